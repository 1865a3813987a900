// Program runs. Until their unit is built in, running a tag only says in
// the log that its actions were skipped.
#include "engine/installer.h"

int Installer::runTagActions(InstallerUI* ui, const char* tag) {
  if (!tag) return -1;
  log("WARNING: The actions of <%s> are not run: program runs are not part of this build", tag);
  return 0;
}
