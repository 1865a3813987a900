// RunOptions: the command line's options as the entry reads them.
//
// Options are read in a fixed order and later ones act on earlier ones:
// `auto` and `configFile` turn the window off, `configFile` turns `quiet` on,
// and an explicit `quiet` overrides that. Names ignore case; of an option
// given twice the first counts.
//
// An option that isn't one of the program's own is a template variable of
// an installation (-INSTALLDIR=/opt/x); the engine checks its name against
// the template. The uninstaller's roles take no variables, and a word that
// isn't an option at all is a fault of the command line (exit code 4).
#ifndef QLUX_APP_OPTIONS_H_
#define QLUX_APP_OPTIONS_H_

#include <string>
#include <vector>

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
  // Where the result log goes (null: its default place).
  const char* log = nullptr;
  // Where the configuration file is written (null: only a console run with
  // a person at it writes config.xml beside the program).
  const char* exportConfig = nullptr;
  // The first uninstaller stage waits for the second and gives its exit code.
  bool wait = false;
  // Bit 0: the named file is an action log (an uninstallation).
  // Bit 1: replaced files are kept in the backup.
  int runFlags = 0;
  // -NAME=value options that aren't the program's own, in their order.
  std::vector<std::pair<std::string, std::string>> values;
  // What is wrong with the command line; empty when nothing is.
  std::string usageError;
};

// Reads `debug` alone: it decides about the log before anything else.
int readDebugOption(QUtils::Parameters& parameters);

// Reads every option in order into `options`. `parseResult` is what
// Parameters::parseCommandLine gave: a word that isn't an option, or an
// open quote, is a fault of the command line.
void readRunOptions(QUtils::Parameters& parameters, RunOptions* options, int parseResult = 0);

// True without a person to answer: -auto, -configFile, or an uninstaller
// without its window, which asks nothing.
inline bool isUnattended(const RunOptions& options) {
  return options.autoInstall || options.configFile || ((options.uninstall || options.uninstallFile) && !options.gui);
}

#endif  // QLUX_APP_OPTIONS_H_
