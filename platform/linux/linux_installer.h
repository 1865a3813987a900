// LinuxInstaller: the engine on Linux. Every machine-wide place lives under
// $QLUX_ROOT (see root.h); temporary names lie in the run's own directory
// below $TMPDIR, else /tmp (QUtils::getRunDirectory); the
// help address opens with xdg-open; WX_PORT is "gtk"; the registry is the
// file store of registry_store.h.
#ifndef QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_
#define QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_

#include "engine/installer.h"
#include "platform/linux/registry_store.h"
#include "platform/program_thread.h"

class LinuxInstaller : public Installer {
 public:
  LinuxInstaller(int debug, int gui, int ignoreErrors);
  ~LinuxInstaller() override;

  void setConfigFile(const char* path);
  bool getConfigFile(char* buffer, int size) override;
  int getTempFileName(char* buffer, int size) override;
  void openHelp(InstallerUI* ui) override;
  const char* getToolkitPort() override { return "gtk"; }
  RegistryAccess* getRegistry() override { return &registry; }
  // StripExeExt drops a closing ".exe" from the installed name.
  void getInstalledFileName(const FILENAMES& entry, char* buffer, int size) override;
  // An Executable entry gets mode 0755.
  void onFileWritten(const char* path, const FILENAMES& entry) override;

  // ---- Machine-wide environment (linux_environment.cpp) ----
  // The variables are the lines NAME=value of $QLUX_ROOT/etc/environment
  // (environment_file.h), and lists are separated by ':'.
  int getEnvironmentValue(const char* name, char* out, int size) override;
  bool setEnvironmentValue(const char* name, const char* value) override;
  bool deleteEnvironmentValue(const char* name) override;
  // Sessions read the environment file when they start; a running program
  // has nothing to be told.
  bool notifyEnvironmentChange() override { return true; }
  char getEnvironmentListSeparator() override { return ':'; }
  // An empty item of PATH names the current directory.
  bool allowsEmptyListItems() override { return false; }
  // A PATH that the file doesn't set is the system's default path: a new
  // PATH line keeps it in front of the product's folder.
  std::string getUndefinedListValue(const char* name) override;

  // ---- Shortcuts and firewall (linux_shortcuts.cpp) ----
  // A shell link or Internet shortcut is a desktop entry written at the
  // link path with mode 0755 (desktop_entry.h); Symlink makes a symbolic
  // link from the link path to the target.
  bool createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                      const char* arguments, const char* startPath, char* out, int outSize,
                      InstallerUI* ui) override;
  // Ports go through firewall-cmd, ufw or nft (firewall_linux.h); with
  // none of them nothing filters ports, and a port succeeds without a
  // change. Linux firewalls don't filter by program: those exceptions
  // succeed without a change too. Each says so in the log.
  bool addFirewallApplication(const char* path, const char* name) override;
  bool removeFirewallApplication(const char* path) override;
  bool addFirewallPort(const FirewallPort& port) override;
  bool removeFirewallPort(const char* text) override;
  bool firewallFiltersPrograms() override { return false; }
  bool firewallFiltersPorts() override;

  // ---- Program runs (linux_programs.cpp) ----
  // A document or address opens with xdg-open. A program starts in `workDir`
  // with the words of `arguments`, split as Windows splits a command line,
  // and no shell; one that isn't on disk (or on PATH) fails before anything
  // starts. RUN_NO_ERROR_OUTPUT sends its
  // standard error to /dev/null. RUN_AS_ROOT adds nothing: the installer
  // itself runs with the rights to write into the system's directories.
  bool runProgram(const char* path, const char* arguments, int flags, const char* workDir, InstallerUI* ui,
                  int intervalMs) override;
  AsynchronousRunProgram programRuns;

  // ---- Running programs and the uninstaller hand-over (linux_processes.cpp) ----
  // Programs are found through /proc/<pid>/exe, scripts through the
  // command line of their interpreter; ending one is SIGTERM, then SIGKILL
  // after two seconds.
  bool isAppRunning(const char* name, const char* directory) override;
  bool terminateApp(const char* name, bool asService) override;
  // A running program's file can't be opened for writing ("text file
  // busy"), but its name can be unlinked while the program goes on with
  // the old file: that frees the name for the new version, and is logged.
  // Other files that can't be written go the base's way.
  bool deleteRunningFile(InstallerUI* ui, const char* path, int timeoutMs) override;
  Installer* createEngine() override;
  bool runRegisteredUninstaller(const char* name) override;

  // ---- Journals of interrupted runs (linux_installer.cpp) ----
  // The journals lie in $QLUX_ROOT/var/lib/qlux/journal. A process runs if
  // kill(pid, 0) finds it (a process of another user counts as running).
  bool getJournalDirectory(char* buffer, int size) override;
  long getProcessId() override;
  bool isProcessRunning(long pid) override;

  // ---- Members ----
  char configFile[1560];
  int debug;
  int gui;
  int ignoreErrors;
  RegistryStore registry;
};

#endif  // QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_
