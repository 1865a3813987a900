// Host: the handful of system services that the entry program needs before
// an engine or a front end exists. One body per system (host_linux.cpp,
// host_windows.cpp); nothing above platform/ calls the system for these.
//
// On Linux every machine-wide place lives under $QLUX_ROOT (default "/"):
// the program files directory is $QLUX_ROOT/opt, and the named events are
// POSIX named semaphores.
#ifndef QLUX_PLATFORM_HOST_H_
#define QLUX_PLATFORM_HOST_H_

#include "foundation/charstring.h"

namespace Host {

// The whole command line as one UTF-8 text, the program's name first, in the
// syntax that Parameters parses. Windows asks the system for it; Linux
// quotes argv back together. False if there is none.
bool getCommandLine(int argc, char** argv, QUtils::CharString* out);

// The system's directory for programs (Windows: the registry's
// ProgramFilesDir; Linux: $QLUX_ROOT/opt), without a separator at its end.
bool getProgramFilesDirectory(char* out, int size);

// True only if a file can be made (and removed) in the program directory.
bool hasAdminRights();

// Signals the named event if somebody made it; an event nobody made is no
// error.
void signalNamedEvent(const char* name);

// An event that this process makes for a hand-over with a process that it
// starts: made unsignalled (an old event of the name is replaced), waited
// for with a limit, and closed, which frees its name. Null if it can't be
// made.
struct NamedEvent;
// The two events of the uninstaller's hand-over: the second stage signals
// the first when it starts and the second when it ends.
const char kUninstallerStartEvent[] = "QluxUninstallerStart";
const char kUninstallerEndEvent[] = "QluxUninstallerEnd";
NamedEvent* createNamedEvent(const char* name);
// True if the event was signalled within `timeoutMs`.
bool waitNamedEvent(NamedEvent* event, int timeoutMs);
void closeNamedEvent(NamedEvent* event);

// Starts `commandLine` in `workDirectory` without waiting for it. Gives 0,
// or the system's error number.
int startProcess(const char* commandLine, const char* workDirectory);

// Starts `commandLine` in `workDirectory` as startProcess does and waits for
// its end; `outExitCode` gets its exit code (on Linux 128 plus the signal
// that ended it). Gives 0, or the system's error number when it couldn't be
// started or waited for.
int runProcess(const char* commandLine, const char* workDirectory, int* outExitCode);

// Takes the running program's own file out of its folder, so that the
// folder can be removed while the program still runs: Windows can't delete
// a running program's file but can move it, into `directory` (or, across
// volumes, beside itself under a name of its own), and the file goes when
// the system restarts. `outMoved` gets where it went. False where the
// system deletes a running program's file anyway (Linux) and nothing was
// moved, or when it couldn't be moved.
bool setAsideOwnProgram(const char* directory, char* outMoved, int size);

// Removes the running program's own file, a temporary copy: at once where
// the system allows it (Linux unlinks it), else when the system restarts
// (Windows). True if it is gone or will go.
bool removeOwnProgram();

// True where the system has a message box to show before a front end exists.
bool hasMessageBox();

enum MessageIcon { kIconWarning, kIconError, kIconInformation };
// A message box with no owner (Windows). Linux has no box before a front end
// exists: the text goes to standard output with a line end.
void showMessageBox(const char* text, const char* title, MessageIcon icon);

// A graphical run started from the desktop got a console window of its own
// that nobody reads (the program is a console program, so that its console
// runs can write where they were started): lets it go. A console that other
// processes share (a command prompt) is kept. Nothing on Linux.
void releaseOwnConsole();

}  // namespace Host

#endif  // QLUX_PLATFORM_HOST_H_
