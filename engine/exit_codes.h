// The exit codes of qlux-setup, as scripts and deployment tools read them.
// Every run gives one of these, graphical runs and both uninstaller stages
// included; the last line of the result log names it with its meaning.
#ifndef QLUX_ENGINE_EXIT_CODES_H_
#define QLUX_ENGINE_EXIT_CODES_H_

enum ExitCode {
  kExitSuccess = 0,         // installed, or uninstalled; or nothing to do
  kExitFailed = 1,          // the work failed (an installation is reverted where the template says so)
  kExitCancelled = 2,       // cancelled by the user, or the answers ran out
  kExitDamaged = 3,         // the installer, its package or its template is damaged
  kExitBadUsage = 4,        // a bad command line or configuration file; a refused downgrade
  kExitNoRights = 5,        // no right to write into the system's program folder
  kExitProgramRunning = 6,  // a program that must end first is running and wasn't closed
  kExitErrorsIgnored = 7,   // done, with errors that -ignoreErrors=1 let through
};

#endif  // QLUX_ENGINE_EXIT_CODES_H_
