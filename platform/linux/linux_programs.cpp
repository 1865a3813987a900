// Program runs on Linux. A program starts with the argument list that
// Windows would give it: the path, then the words of the arguments split by
// the rules of CommandLineToArgvW (foundation/command_line.h), started by
// posix_spawn. No shell reads any of it, so a '$', '`', ';' or newline in a
// path, a typed folder or a template's arguments is a character like any
// other; a template that wants a shell names one as its program. A
// document is handed to xdg-open.
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
#include <thread>
#include <vector>

#include "foundation/command_line.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/linux_installer.h"
#include "platform/linux/run_command.h"
#include "platform/program_thread.h"

extern char** environ;

namespace {

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

// The program that `path` names: with a separator a file (relative to
// `workDir` when that is given), else a file on PATH. Empty if there is
// none that can run: checking first lets a run that isn't waited for fail
// as one on Windows does.
std::string findProgram(const char* path, const char* workDir) {
  if (!path[0]) return std::string();
  if (std::strchr(path, '/')) {
    std::string full = path;
    if (path[0] != '/' && workDir[0]) full = std::string(workDir) + "/" + path;
    return isExecutableFile(full) ? full : std::string();
  }
  return Host::findOnPath(path);
}

// Starts `program` with `words` as its arguments behind its own name, in
// `workDir` (empty: the current directory). RUN_NO_INPUT and
// RUN_NO_ERROR_OUTPUT of `flags` put /dev/null in place of the input and
// the error output; `quiet` puts it in place of all three. 0, or the
// system's error number.
int spawnProgram(const std::string& program, const std::vector<std::string>& words, const char* workDir, int flags,
                 bool quiet, pid_t* outPid) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  QUtils::CharString directory = QUtils::systemPath(workDir);
  if (workDir[0]) posix_spawn_file_actions_addchdir_np(&actions, directory.getText());
  if (quiet || (flags & Installer::RUN_NO_INPUT)) posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (quiet) posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (quiet || (flags & Installer::RUN_NO_ERROR_OUTPUT))
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  int result = posix_spawn(outPid, program.c_str(), &actions, nullptr, argv.data(), environ);
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

// A program that nobody waits for is reaped by a thread of its own, so that
// it never stays behind as a zombie.
void reapLater(pid_t pid) {
  std::thread([pid] {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }).detach();
}

// Hands a document or an address to xdg-open without waiting for the
// program that shows it. True if there was something to open and xdg-open
// to do it.
bool openDocument(const char* path) {
  if (!path[0]) return false;
  if (!isAddress(path) && !QUtils::fileExists(path) && !QUtils::isDirectory(path)) return false;
  std::string opener = Host::findOnPath("xdg-open");
  if (opener.empty()) return false;
  pid_t pid;
  if (spawnProgram(opener, {QUtils::systemPath(path).getText()}, "", 0, true, &pid) != 0) return false;
  reapLater(pid);
  return true;
}

}  // namespace

int32_t runProgramJob(const RUNPROGRAMJOB& job) {
  std::string program = findProgram(job.path, job.workDir);
  if (program.empty()) return -1;
  pid_t pid;
  if (spawnProgram(program, QUtils::splitCommandArguments(job.arguments), job.workDir, job.flags, false, &pid) != 0)
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

  // Not waited for: started, and reaped whenever it ends.
  std::string program = findProgram(job.path, job.workDir);
  if (program.empty()) return false;
  pid_t pid;
  if (spawnProgram(program, QUtils::splitCommandArguments(job.arguments), job.workDir, flags, false, &pid) != 0)
    return false;
  reapLater(pid);
  return true;
}
