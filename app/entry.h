// The program's entry: parses the command line, opens the debug log if
// asked, makes the engine, tests the right to write into the program
// directory, and plays one of four roles: installer, installer over a bare
// package (`-bin`), first-stage uninstaller (`-uninstall`: copies itself and
// the log to the temporary directory and starts the copy) and second-stage
// uninstaller (`-uninstallFile`). Gives the process's exit code.
#ifndef QLUX_APP_ENTRY_H_
#define QLUX_APP_ENTRY_H_

#include <string>

#include "app/options.h"
#include "engine/installer.h"
#include "foundation/console.h"

int qluxEntry(int argc, char** argv);

// Tells the user something before a front end exists: a message box in a
// graphical run where the system has one, standard output otherwise.
// The part messages name the package file given as `detail`.
enum EntryMessage { kMessageNoAdminRights, kMessageBadBin, kMessageBadChecksum, kMessagePartMissing, kMessagePartDamaged };
void tellUser(const RunOptions& options, EntryMessage message, const char* detail = "");

// The second-stage command line that the first stage starts: the program
// copy, the log copy and the application's name, then -gui=0, -quiet=1 and
// -debug=1 as the options ask. Cut at `size` - 1 bytes.
void buildUninstallerCommandLine(char* out, int size, const char* programCopy, const char* logCopy,
                                 const RunOptions& options);

// The roles, each giving the process's exit code (exit_codes.h) and the
// words of the result log's last line in `result`. The engine is made by
// the entry and lives until it returns; its result log is the entry's.
int runInstallation(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* result);
int runFirstStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* result);
int runSecondStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* result);

// Puts the result log where it belongs once the run has ended, unless
// -log named its file: beside the action log when this run placed one and
// its installation stands, else in the temporary directory as
// "<stem>.log", made exclusively. Writes the last line. `stem` is
// "<product>-install" or "<product>-uninstall".
void finishResultLog(Installer* engine, const RunOptions& options, const char* stem, int code,
                     const char* result);

#endif  // QLUX_APP_ENTRY_H_
