// Makes the front end of a run: the window, or the console with its source
// of answers. Gives null when the front end can't be made.
#ifndef QLUX_APP_FRONT_END_H_
#define QLUX_APP_FRONT_END_H_

#include "app/options.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"

// The window; without one, the person at the terminal is asked instead,
// on a console that keeps the run's -quiet and -ignoreErrors.
InstallerUI* createGraphicalFrontEnd(Installer* engine, int isUninstall, const RunOptions& options);
// `input` is the console's source of answers: a configuration file's path,
// "autoInstall", "autoUninstall" or empty for the person at the terminal.
// *initResult gets the result of opening that source (0 for success).
InstallerUI* createConsoleFrontEnd(Installer* engine, int isUninstall, const RunOptions& options, const char* input,
                                   int* initResult);

#endif  // QLUX_APP_FRONT_END_H_
