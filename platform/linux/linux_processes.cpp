// LinuxInstaller: running programs, a second engine for removing an older
// installation, and the registered uninstaller run in its own process.
//
// A program is a process whose /proc/<pid>/exe names its executable; the
// name compares without case, so a template written for Windows finds its
// programs. A process whose link can't be read (another user's, without the
// rights) isn't seen, as on Windows.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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

const char* baseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash ? slash + 1 : path;
}

struct RunningProgram {
  pid_t pid;
  std::string path;
};

// The processes, ours excepted, that run an executable named `name`, in
// the order of /proc.
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
    if (QUtils::compareNoCase(baseName(path), name) != 0) continue;
    found.push_back(RunningProgram{pid, path});
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

Installer* LinuxInstaller::createEngine() {
  LinuxInstaller* engine = new LinuxInstaller(debug, gui, ignoreErrors);
  engine->setConfigFile(configFile);
  return engine;
}

bool LinuxInstaller::runRegisteredUninstaller(const char* name) {
  return ::runRegisteredUninstaller(this, name, gui);
}
