// LinuxInstaller: running programs, a second engine for removing an older
// installation, and the registered uninstaller run in its own process.
//
// A program is a process whose /proc/<pid>/exe names its executable; the
// name compares without case, so a template written for Windows finds its
// programs. A script is a program too: its process runs the interpreter
// (/bin/dash, say), and the script is the first argument of the command
// line that isn't an option, resolved against the process's working
// directory. It counts only if it is a file that starts with "#!" naming
// that interpreter, so that an editor or a viewer opened on the script
// isn't taken for it. A process whose links can't be read (another user's,
// without the rights) isn't seen, as on Windows.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/linux_installer.h"
#include "platform/linux/run_command.h"
#include "platform/uninstaller_handover.h"

namespace {

const int kTerminateGraceMs = 2000;
const char kDeletedSuffix[] = " (deleted)";

// The full path of the executable that process `pid` runs; false if the
// link can't be read.
bool readExecutable(pid_t pid, char* out, int size) {
  char link[64];
  std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(pid));
  ssize_t length = readlink(link, out, static_cast<size_t>(size - 1));
  if (length <= 0) return false;
  out[length] = 0;
  // A program whose file was replaced while it runs still counts.
  size_t total = static_cast<size_t>(length);
  size_t suffix = sizeof kDeletedSuffix - 1;
  if (total > suffix && std::strcmp(out + total - suffix, kDeletedSuffix) == 0) out[total - suffix] = 0;
  return true;
}

// The words of process `pid`'s command line, at most the first kMaxWords.
std::vector<std::string> readCommandLine(pid_t pid) {
  const int kMaxWords = 16;
  std::vector<std::string> words;
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/cmdline", static_cast<int>(pid));
  FILE* file = std::fopen(path, "rb");
  if (!file) return words;
  char buffer[8192];
  size_t length = std::fread(buffer, 1, sizeof buffer, file);
  std::fclose(file);
  for (size_t start = 0; start < length && static_cast<int>(words.size()) < kMaxWords;) {
    const char* end = static_cast<const char*>(std::memchr(buffer + start, 0, length - start));
    size_t stop = end ? static_cast<size_t>(end - buffer) : length;
    words.push_back(std::string(buffer + start, stop - start));
    start = stop + 1;
  }
  return words;
}

// The interpreter that a script's first line names: the word behind "#!",
// or behind "#!/usr/bin/env", by its base name. Empty for a file that isn't
// a script.
std::string scriptInterpreter(const std::string& script) {
  // Only a regular file is read: a pipe named on a command line mustn't
  // hold the installer, nor a link lead it elsewhere.
  int fd = open(script.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return std::string();
  struct stat status;
  char line[256];
  ssize_t length = 0;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) length = read(fd, line, sizeof line - 1);
  close(fd);
  if (length < 2) return std::string();
  line[length] = 0;
  if (line[0] != '#' || line[1] != '!') return std::string();
  std::vector<std::string> words;
  const char* blanks = " \t\r\n";
  for (const char* p = line + 2; *p && words.size() < 2;) {
    p += std::strspn(p, blanks);
    size_t length = std::strcspn(p, blanks);
    if (length > 0) words.push_back(std::string(p, length));
    p += length;
  }
  if (words.empty()) return std::string();
  if (words.size() > 1 && std::strcmp(QUtils::baseName(words[0].c_str()), "env") == 0)
    return QUtils::baseName(words[1].c_str());
  return QUtils::baseName(words[0].c_str());
}

// Whether process `pid` runs a script named `name` through its interpreter;
// `out` gets the script's full path.
bool runsScriptNamed(pid_t pid, const char* name, std::string* out) {
  std::vector<std::string> words = readCommandLine(pid);
  if (words.size() < 2) return false;
  const std::string* script = nullptr;
  for (size_t i = 1; i < words.size() && !script; i++)
    if (!words[i].empty() && words[i][0] != '-') script = &words[i];
  if (!script || QUtils::compareNoCase(QUtils::baseName(script->c_str()), name) != 0) return false;
  std::string path = *script;
  if (path[0] != '/') {
    char link[64];
    char directory[QUtils::kMaxPath];
    std::snprintf(link, sizeof link, "/proc/%d/cwd", static_cast<int>(pid));
    ssize_t length = readlink(link, directory, sizeof directory - 1);
    if (length <= 0) return false;
    directory[length] = 0;
    path = std::string(directory) + "/" + path;
  }
  if (scriptInterpreter(path) != QUtils::baseName(words[0].c_str())) return false;
  *out = path;
  return true;
}

struct RunningProgram {
  pid_t pid;
  std::string path;
};

// The processes, ours excepted, that run an executable or a script named
// `name`, in the order of /proc, each with the path of what it runs.
std::vector<RunningProgram> findProgramsNamed(const char* name) {
  std::vector<RunningProgram> found;
  DIR* proc = opendir("/proc");
  if (!proc) return found;
  pid_t self = getpid();
  while (struct dirent* entry = readdir(proc)) {
    char* end = nullptr;
    long number = std::strtol(entry->d_name, &end, 10);
    if (!end || *end || number <= 0) continue;
    pid_t pid = static_cast<pid_t>(number);
    if (pid == self) continue;
    char path[QUtils::kMaxPath];
    if (!readExecutable(pid, path, sizeof path)) continue;
    std::string script;
    if (QUtils::compareNoCase(QUtils::baseName(path), name) == 0) {
      found.push_back(RunningProgram{pid, path});
    } else if (runsScriptNamed(pid, name, &script)) {
      found.push_back(RunningProgram{pid, script});
    }
  }
  closedir(proc);
  return found;
}

bool processGone(pid_t pid) {
  // Our own child is reaped here; anyone else's ends as a zombie of its
  // parent, which counts as gone.
  waitpid(pid, nullptr, WNOHANG);
  char stat[64];
  std::snprintf(stat, sizeof stat, "/proc/%d/stat", static_cast<int>(pid));
  FILE* file = std::fopen(stat, "r");
  if (!file) return true;
  char state = 0;
  int scanned = std::fscanf(file, "%*d (%*[^)]) %c", &state);
  std::fclose(file);
  return scanned != 1 || state == 'Z' || state == 'X';
}


}  // namespace

bool LinuxInstaller::isAppRunning(const char* name, const char* directory) {
  if (!name) return false;
  char wanted[QUtils::kMaxPath];
  if (directory) {
    QUtils::copyText(wanted, directory, sizeof wanted);
    QUtils::cleanPath(wanted);
    QUtils::toLowerText(wanted);
  }
  for (const RunningProgram& program : findProgramsNamed(name)) {
    if (!directory) return true;
    char found[QUtils::kMaxPath];
    QUtils::copyText(found, program.path.c_str(), sizeof found);
    QUtils::cleanPath(found);
    QUtils::toLowerText(found);
    if (std::strstr(found, wanted)) return true;
    log("App \"%s\" running in separate dir: \"%s\" - searched: \"%s\"", name, found, wanted);
  }
  return false;
}

bool LinuxInstaller::terminateApp(const char* name, bool asService) {
  if (!name) return false;
  for (const RunningProgram& program : findProgramsNamed(name)) {
    if (asService) Host::runCommand({program.path, "-stop"});  // waits for it to end
    if (kill(program.pid, SIGTERM) != 0) continue;
    for (int waited = 0; waited < kTerminateGraceMs && !processGone(program.pid); waited += 50) usleep(50 * 1000);
    if (!processGone(program.pid)) {
      kill(program.pid, SIGKILL);
      for (int waited = 0; waited < kTerminateGraceMs && !processGone(program.pid); waited += 50)
        usleep(50 * 1000);
    }
    return true;
  }
  return false;
}

bool LinuxInstaller::deleteRunningFile(InstallerUI* ui, const char* path, int timeoutMs) {
  if (!path || !path[0]) return false;
  QUtils::CharString name = QUtils::systemPath(path);
  // Opening for writing without truncating changes nothing; a file that a
  // process executes refuses it with ETXTBSY.
  int fd = open(name.getText(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
  bool busy = fd < 0 && errno == ETXTBSY;
  if (fd >= 0) close(fd);
  if (!busy) return Installer::deleteRunningFile(ui, path, timeoutMs);
  // Deleted through the file layer, which follows no other user's link on
  // the way.
  int error = QUtils::deleteFile(path);
  if (error != 0) {
    log("ERROR: \"%s\" is a running program and can't be unlinked (error %d)", path, error);
    return false;
  }
  log("\"%s\" is a running program: its file was unlinked to be written anew; the program goes on with the "
      "old version until it ends",
      path);
  return true;
}

Installer* LinuxInstaller::createEngine() {
  LinuxInstaller* engine = new LinuxInstaller(debug, gui, ignoreErrors);
  engine->setConfigFile(configFile);
  return engine;
}

bool LinuxInstaller::runRegisteredUninstaller(const char* name) {
  return ::runRegisteredUninstaller(this, name, gui);
}
