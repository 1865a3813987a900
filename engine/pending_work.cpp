// The work that wizard pages start, for as long as this build has no unit
// that does it: each operation says in the log that it is missing and
// reports failure, so that a template's error pages take over. Where the
// real operation marks its failure in a control variable, the stand-in does
// the same, so the template can see it.
#include "engine/installer.h"

namespace {

void reportMissing(Installer* engine, const char* operation) {
  engine->log("WARNING: %s is not available in this build", operation);
}

}  // namespace

int Installer::revertInstallation(InstallerUI* ui) {
  reportMissing(this, "revertInstallation");
  return -1;
}
