// LinuxInstaller: the engine on Linux. Every machine-wide place lives under
// $QLUX_ROOT (see root.h); temporary names come from $TMPDIR, else /tmp; the
// help address opens with xdg-open; WX_PORT is "gtk"; the registry is the
// file store of registry_store.h.
#ifndef QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_
#define QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_

#include "engine/installer.h"
#include "platform/linux/registry_store.h"

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
  char getEnvironmentListSeparator() override { return ':'; }
  // An empty item of PATH names the current directory.
  bool allowsEmptyListItems() override { return false; }

  // ---- Shortcuts and firewall (linux_shortcuts.cpp) ----

  // ---- Program runs (linux_programs.cpp) ----

  // ---- Running programs and the uninstaller hand-over (linux_processes.cpp) ----
  // Programs are found through /proc/<pid>/exe; ending one is SIGTERM,
  // then SIGKILL after two seconds.
  bool isAppRunning(const char* name, const char* directory) override;
  bool terminateApp(const char* name, bool asService) override;
  Installer* createEngine() override;
  bool runRegisteredUninstaller(const char* name) override;

  // ---- Members ----
  char configFile[1560];
  int debug;
  int gui;
  int ignoreErrors;
  RegistryStore registry;
};

#endif  // QLUX_PLATFORM_LINUX_LINUX_INSTALLER_H_
