// Default values and previous installations.
//
// This unit so far checks only that the template has its DefValues section
// (a run without one must stop before the wizard); it reads no values, finds
// no previous installation and reads no action log's values yet.
#include "engine/installer.h"

int Installer::readDefaults() { return document.findNext("DefValues", -1) < 0 ? -1 : 0; }

void Installer::checkPreviousInstallation() { previousInstallationFound = 0; }

int Installer::readActionLogVariables() { return -1; }

void Installer::readPreviousInstallationValues() {}
