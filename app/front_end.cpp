// Front ends by mode. Neither the window nor the console wizard is part of
// this build yet, so no front end can be made and a run ends before its
// wizard, logged as a failed start.
#include "app/front_end.h"

InstallerUI* createGraphicalFrontEnd(Installer*, int) { return nullptr; }

InstallerUI* createConsoleFrontEnd(Installer*, int, const RunOptions&, const char*, int* initResult) {
  *initResult = -1;
  return nullptr;
}
