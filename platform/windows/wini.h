// Wini: the engine on Windows. Fills in the platform operations with the
// Win32 calls: temporary names, the browser for help, and (in later units)
// the registry, the environment, shell links, the firewall and processes.
#ifndef QLUX_PLATFORM_WINDOWS_WINI_H_
#define QLUX_PLATFORM_WINDOWS_WINI_H_

#include "engine/installer.h"
#include "platform/program_thread.h"
#include "platform/windows/registry_windows.h"

class Wini : public Installer {
 public:
  Wini(int debug, int gui, int ignoreErrors);
  ~Wini() override;

  void setConfigFile(const char* path);
  bool getConfigFile(char* buffer, int size) override;
  int getTempFileName(char* buffer, int size) override;
  void openHelp(InstallerUI* ui) override;
  const char* getToolkitPort() override { return "win"; }
  RegistryAccess* getRegistry() override { return &registry; }

  // ---- Machine-wide environment (wini_environment.cpp) ----
  // Broadcasts WM_SETTINGCHANGE with "Environment" to every top-level
  // window, in 8-bit and in wide form. Always true.
  bool notifyEnvironmentChange() override;

  // ---- Shortcuts and firewall (wini_shortcuts.cpp) ----
  // Shell links (File, Uninstall) through IShellLinkW and IPersistFile,
  // Internet shortcuts (URL) through IUniformResourceLocatorW; Symlink is
  // no shortcut type of this system and fails.
  bool createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                      const char* arguments, const char* startPath, char* out, int outSize,
                      InstallerUI* ui) override;
  // Each makes a FirewallOperations (firewall_operations.h) for one call;
  // what it throws is logged and gives false.
  bool addFirewallApplication(const char* path, const char* name) override;
  bool removeFirewallApplication(const char* path) override;
  bool addFirewallPort(const FirewallPort& port) override;
  bool removeFirewallPort(const char* text) override;

  // ---- Program runs (wini_programs.cpp) ----
  // A document opens through the shell's "open" verb; a program starts with
  // CreateProcessW. RUN_AS_ROOT and RUN_NO_ERROR_OUTPUT have no effect here.
  bool runProgram(const char* path, const char* arguments, int flags, const char* workDir, InstallerUI* ui,
                  int intervalMs) override;
  AsynchronousRunProgram programRuns;

  // ---- Running programs and the uninstaller hand-over (wini_processes.cpp) ----
  // Programs are found through the process list (EnumProcesses), by the
  // base name of each process's first module; ending one is TerminateProcess.
  bool isAppRunning(const char* name, const char* directory) override;
  bool terminateApp(const char* name, bool asService) override;
  Installer* createEngine() override;
  bool runRegisteredUninstaller(const char* name) override;

  // ---- Journals of interrupted runs (wini.cpp) ----
  // The journals lie in "qlux\journal" of the common application data
  // folder (CSIDL_COMMON_APPDATA). A process runs if it opens and has no exit
  // code yet; one that may not be opened counts as running.
  bool getJournalDirectory(char* buffer, int size) override;
  long getProcessId() override;
  bool isProcessRunning(long pid) override;

  // ---- Members ----
  char configFile[1560];
  int debug;
  int gui;
  int ignoreErrors;
  WindowsRegistry registry;
};

#endif  // QLUX_PLATFORM_WINDOWS_WINI_H_
