// Running a registered uninstaller in its own process, the way the system's
// list of installed programs runs it: the entry's UninstallString (with
// " -gui=0" for a console run) starts the first stage, which hands over to a
// copy of itself and ends at once; only the two hand-over events tell when
// the uninstallation really starts and ends. The same on every system.
#ifndef QLUX_PLATFORM_UNINSTALLER_HANDOVER_H_
#define QLUX_PLATFORM_UNINSTALLER_HANDOVER_H_

#include "engine/installer.h"

// `name` null means the engine's own product. Waits up to a minute for the
// start and then up to five minutes for the end. True if the process
// started.
bool runRegisteredUninstaller(Installer* engine, const char* name, int gui);

#endif  // QLUX_PLATFORM_UNINSTALLER_HANDOVER_H_
