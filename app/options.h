// RunOptions: the command line's options as the entry reads them.
//
// Options are read in a fixed order and later ones act on earlier ones:
// `auto` and `configFile` turn the window off, `configFile` turns `quiet` on,
// and an explicit `quiet` overrides that. Names ignore case; of an option
// given twice the first counts.
#ifndef QLUX_APP_OPTIONS_H_
#define QLUX_APP_OPTIONS_H_

#include "foundation/parameters.h"

struct RunOptions {
  int debug = 0;
  int gui = 1;
  int ignoreErrors = 0;
  int backup = 1;
  bool autoInstall = false;
  const char* configFile = nullptr;  // points into the Parameters
  int quiet = 0;
  const char* bin = nullptr;
  const char* uninstall = nullptr;
  const char* uninstallApp = nullptr;
  const char* uninstallFile = nullptr;
  // Bit 0: the named file is an action log (an uninstallation).
  // Bit 1: replaced files are kept in the backup.
  int runFlags = 0;
};

// Reads `debug` alone: it decides about the log before anything else.
int readDebugOption(QUtils::Parameters& parameters);

// Reads every option in order into `options`.
void readRunOptions(QUtils::Parameters& parameters, RunOptions* options);

#endif  // QLUX_APP_OPTIONS_H_
