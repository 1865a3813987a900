// Shortcut, registry and firewall actions. Until their unit is built in,
// each stage says in the log that it was skipped, and each reverse that it
// could not undo its line.
#include "engine/installer.h"

int Installer::applyShortcutActions(QUtils::PConsole* console, InstallerUI* ui) {
  log("WARNING: Shortcut actions are not part of this build; skipped");
  return 0;
}

int Installer::applyFirewallActions(QUtils::PConsole* console, InstallerUI* ui) {
  log("WARNING: Firewall actions are not part of this build; skipped");
  return 0;
}

bool Installer::undoShortcut(const char* line, InstallerUI* ui) {
  log("WARNING: Undoing this action is not part of this build: SHORTCUT %s", line);
  return false;
}

bool Installer::undoFirewall(const char* line, InstallerUI* ui) {
  log("WARNING: Undoing this action is not part of this build: FIREWALL %s", line);
  return false;
}

void Installer::runRegistryAction(InstallerUI* ui, int element) {
  log("WARNING: Registry actions are not part of this build; skipped");
}
