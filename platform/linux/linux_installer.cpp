// The body of LinuxInstaller (linux_installer.h) apart from its processes,
// programs and shortcuts: the configuration file, temporary names, help,
// installed names, the journal's folder and the engine's factory.
#include "platform/linux/linux_installer.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/installer_factory.h"
#include "platform/linux/root.h"

extern char** environ;

LinuxInstaller::LinuxInstaller(int debug, int gui, int ignoreErrors)
    : debug(debug), gui(gui), ignoreErrors(ignoreErrors) {
  configFile[0] = 0;
}

LinuxInstaller::~LinuxInstaller() {}

void LinuxInstaller::setConfigFile(const char* path) {
  if (path) QUtils::copyText(configFile, path, sizeof configFile);
}

bool LinuxInstaller::getConfigFile(char* buffer, int size) {
  if (size >= 1) QUtils::copyText(buffer, configFile, size);
  return true;
}

int LinuxInstaller::getTempFileName(char* buffer, int size) {
  // A name in this run's own directory that no file has, different at each
  // call of this process; nothing is created. No other user can make a file
  // in that directory, so the name stays free until the run makes it.
  static unsigned counter = 0;
  char directory[QUtils::kMaxPath];
  if (!QUtils::getRunDirectory(directory, sizeof directory)) return -1;
  for (int attempt = 0; attempt < 65536; attempt++) {
    counter = (counter + 1) & 0xFFFF;
    if (counter == 0) counter = 1;
    char name[QUtils::kMaxPath];
    QUtils::boundedFormat(name, sizeof name, "%s/qli%X%04X.tmp", directory,
                          static_cast<unsigned>(getpid()) & 0xFFFF, counter);
    if (!QUtils::fileExists(name)) {
      QUtils::copyText(buffer, name, size);
      return 0;
    }
  }
  return -1;
}

void LinuxInstaller::openHelp(InstallerUI*) {
  char url[4096];
  if (getHelpUrl(url, sizeof url) != 0 || !url[0]) return;
  const char* args[] = {"xdg-open", url, nullptr};
  pid_t pid;
  if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, const_cast<char**>(args), environ) == 0) {
    // xdg-open hands the address to the browser and returns; don't leave it
    // behind as a zombie.
    waitpid(pid, nullptr, 0);
  }
}

void LinuxInstaller::getInstalledFileName(const FILENAMES& entry, char* buffer, int size) {
  Installer::getInstalledFileName(entry, buffer, size);
  if (!entry.executable || !entry.stripExeExt || size < 1) return;
  // A program packed for both systems carries its Windows name; here it is
  // installed under the name a Linux user types.
  size_t length = std::strlen(buffer);
  if (length > 4 && QUtils::compareNoCase(buffer + length - 4, ".exe") == 0) buffer[length - 4] = 0;
}

void LinuxInstaller::onFileWritten(const char* path, const FILENAMES& entry) {
  if (!entry.executable) return;
  int error = QUtils::setExecutable(path);
  if (error != 0) log("WARNING: Could not make \"%s\" executable (error %d)", path, error);
}

Installer* createPlatformInstaller(int debug, int gui, int ignoreErrors, const char* configFile) {
  LinuxInstaller* installer = new LinuxInstaller(debug, gui, ignoreErrors);
  installer->setConfigFile(configFile);
  return installer;
}

bool LinuxInstaller::getJournalDirectory(char* buffer, int size) {
  QUtils::CharString path = Host::rootPath("var/lib/qlux/journal");
  if (!path.getText() || size < 1) return false;
  QUtils::copyText(buffer, path.getText(), size);
  return true;
}

long LinuxInstaller::getProcessId() { return static_cast<long>(getpid()); }

bool LinuxInstaller::isProcessRunning(long pid) {
  if (pid <= 0) return false;
  if (kill(static_cast<pid_t>(pid), 0) != 0 && errno != EPERM) return false;
  // A process that ended but wasn't reaped yet (its parent is gone and the
  // system's first process doesn't reap) is a zombie: it runs no more.
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%ld/stat", pid);
  FILE* file = std::fopen(path, "re");
  if (!file) return true;
  char text[512];
  size_t length = std::fread(text, 1, sizeof text - 1, file);
  std::fclose(file);
  text[length] = 0;
  // The state follows the name, which is in parentheses and may hold any
  // character: it comes after the last ')'.
  const char* close = std::strrchr(text, ')');
  return !(close && close[1] == ' ' && close[2] == 'Z');
}
