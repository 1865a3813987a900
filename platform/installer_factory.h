// Makes the engine object of the system the program runs on: a Wini on
// Windows, a LinuxInstaller on Linux. The caller owns it.
#ifndef QLUX_PLATFORM_INSTALLER_FACTORY_H_
#define QLUX_PLATFORM_INSTALLER_FACTORY_H_

#include "engine/installer.h"

// `configFile` may be null; at most 1,559 bytes of it are kept.
Installer* createPlatformInstaller(int debug, int gui, int ignoreErrors, const char* configFile);

#endif  // QLUX_PLATFORM_INSTALLER_FACTORY_H_
