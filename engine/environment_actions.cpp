// Environment, INI and modify-file actions. Until their unit is built in,
// each stage says in the log that it was skipped, and each reverse that it
// could not undo its line.
#include "engine/installer.h"

int Installer::applyEnvironmentActions(QUtils::PConsole* console, InstallerUI* ui) {
  log("WARNING: Environment actions are not part of this build; skipped");
  return 0;
}

int Installer::applyIniActions(QUtils::PConsole* console, InstallerUI* ui) {
  log("WARNING: INI actions are not part of this build; skipped");
  return 0;
}

int Installer::applyModifyFileActions(QUtils::PConsole* console, InstallerUI* ui) {
  log("WARNING: Modify-file actions are not part of this build; skipped");
  return 0;
}

bool Installer::undoEnvironment(const char* line, InstallerUI* ui) {
  log("WARNING: Undoing this action is not part of this build: ENV %s", line);
  return false;
}

bool Installer::undoIniChange(const char* line, InstallerUI* ui) {
  log("WARNING: Undoing this action is not part of this build: INI %s", line);
  return false;
}

bool Installer::undoModifyFile(const char* line, InstallerUI* ui) {
  log("WARNING: Undoing a modified file is not part of this build: %s", line);
  return true;
}
