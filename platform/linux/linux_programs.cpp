// Program runs on Linux. A program starts as the command line that Windows
// would get, "path" and the arguments behind a blank, read by /bin/sh -c:
// the path is quoted, the arguments are passed as they stand, so that the
// shell splits them. A document is handed to xdg-open.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/linux_installer.h"
#include "platform/program_thread.h"

extern char** environ;

namespace {

// The longest command line, as on Windows.
const size_t kCommandLineLimit = 4095;

// Appends `text` in double quotes. Inside them the shell still reads '"',
// '$', '`' and '\', so each of those gets a backslash.
void appendQuoted(std::string* line, const char* text) {
  *line += '"';
  for (; *text; text++) {
    if (std::strchr("\"$`\\", *text)) *line += '\\';
    *line += *text;
  }
  *line += '"';
}

std::string buildCommandLine(const RUNPROGRAMJOB& job) {
  std::string line;
  appendQuoted(&line, job.path);
  if (job.arguments[0]) {
    line += ' ';
    line += job.arguments;
  }
  if (line.size() > kCommandLineLimit) line.resize(kCommandLineLimit);
  return line;
}

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

// Whether `path` names a program that can be started: with a separator a
// file (relative to `workDir` when that is given), else a file on PATH. The
// shell would start neither a missing nor a non-executable file, and would
// say so only in an exit code; checking first lets a run that isn't waited
// for fail as one on Windows does.
bool findProgram(const char* path, const char* workDir) {
  if (!path[0]) return false;
  if (std::strchr(path, '/')) {
    std::string full = path;
    if (path[0] != '/' && workDir[0]) full = std::string(workDir) + "/" + path;
    return isExecutableFile(full);
  }
  const char* search = std::getenv("PATH");
  if (!search) search = "/usr/local/bin:/usr/bin:/bin";
  for (const char* entry = search;;) {
    const char* end = std::strchr(entry, ':');
    std::string directory(entry, end ? static_cast<size_t>(end - entry) : std::strlen(entry));
    if (directory.empty()) directory = ".";
    if (isExecutableFile(directory + "/" + path)) return true;
    if (!end) return false;
    entry = end + 1;
  }
}

// Spawns /bin/sh -c `script` in `workDir` (empty: the current directory),
// with `argument` as $1 when it isn't null. RUN_NO_ERROR_OUTPUT and
// RUN_NO_INPUT of `flags` put /dev/null in place of the error output and
// the input. 0, or the system's error number.
int spawnShell(const std::string& script, const char* argument, const char* workDir, int flags, pid_t* outPid) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  QUtils::CharString directory = QUtils::systemPath(workDir);
  if (workDir[0]) posix_spawn_file_actions_addchdir_np(&actions, directory.getText());
  if (flags & Installer::RUN_NO_INPUT) posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (flags & Installer::RUN_NO_ERROR_OUTPUT) posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  const char* args[] = {"/bin/sh", "-c", script.c_str(), argument ? "sh" : nullptr, argument, nullptr};
  int result = posix_spawn(outPid, "/bin/sh", &actions, nullptr, const_cast<char**>(args), environ);
  posix_spawn_file_actions_destroy(&actions);
  return result;
}

// Waits for `pid`; its exit code, 128 plus the signal that ended it, or -1.
int32_t waitForExit(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// True if `path` reads as an address (a scheme such as "https:" or
// "mailto:" in front) rather than a file.
bool isAddress(const char* path) {
  const char* colon = std::strchr(path, ':');
  if (!colon || colon - path < 2) return false;
  for (const char* c = path; c < colon; c++) {
    if (!(std::isalnum(static_cast<unsigned char>(*c)) || *c == '+' || *c == '-' || *c == '.')) return false;
  }
  return true;
}

// Hands a document or an address to xdg-open without waiting for the
// program that shows it; the shell in between ends at once, so nothing is
// left to reap. True if there was something to open and xdg-open to do it.
bool openDocument(const char* path) {
  if (!path[0]) return false;
  if (!isAddress(path) && !QUtils::fileExists(path) && !QUtils::isDirectory(path)) return false;
  static const char kScript[] =
      "command -v xdg-open >/dev/null 2>&1 || exit 127\n"
      "xdg-open \"$1\" </dev/null >/dev/null 2>&1 &\n"
      "exit 0";
  pid_t pid;
  if (spawnShell(kScript, QUtils::systemPath(path).getText(), "", 0, &pid) != 0) return false;
  return waitForExit(pid) == 0;
}

}  // namespace

int32_t runProgramJob(const RUNPROGRAMJOB& job) {
  if (!findProgram(job.path, job.workDir)) return -1;
  pid_t pid;
  if (spawnShell(buildCommandLine(job), nullptr, job.workDir, job.flags, &pid) != 0)
    return -1;
  return waitForExit(pid);
}

void pauseMilliseconds(int ms) {
  if (ms <= 0) {
    sched_yield();
    return;
  }
  struct timespec rest = {ms / 1000, (ms % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

bool LinuxInstaller::runProgram(const char* path, const char* arguments, int flags, const char* workDir,
                                InstallerUI* ui, int intervalMs) {
  if (!path) return false;
  if (flags & RUN_DOCUMENT) return openDocument(path);
  if ((flags & RUN_AS_ROOT) && geteuid() != 0)
    log("WARNING: \"%s\" runs with the installer's own rights, not as root", path);

  RUNPROGRAMJOB job;
  fillProgramJob(&job, QUtils::systemPath(path).getText(), arguments,
                 workDir ? QUtils::systemPath(workDir).getText() : nullptr, flags);
  if (flags & RUN_ASYNCHRONOUS) return programRuns.run(job, ui, intervalMs);
  if (flags & RUN_WAIT) {
    int32_t exitCode = runProgramJob(job);
    if (exitCode > 0) log("\"%s\" ended with exit code %d", path, exitCode);
    return exitCode == 0;
  }

  // Not waited for: a shell that puts the program in the background and
  // ends at once, so that the program never stays behind as a zombie.
  if (!findProgram(job.path, job.workDir)) return false;
  std::string script = "(\n" + buildCommandLine(job) + "\n) &";
  pid_t pid;
  if (spawnShell(script, nullptr, job.workDir, flags, &pid) != 0) return false;
  return waitForExit(pid) == 0;
}
