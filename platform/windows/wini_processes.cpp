// Wini: a second engine for removing an older installation, and the
// registered uninstaller run in its own process.
#include "platform/uninstaller_handover.h"
#include "platform/windows/wini.h"

Installer* Wini::createEngine() { return new Wini(debug, gui, ignoreErrors); }

bool Wini::runRegisteredUninstaller(const char* name) { return ::runRegisteredUninstaller(this, name, gui); }
