// Wini: the engine on Windows. Fills in the platform operations with the
// Win32 calls: temporary names, the browser for help, and (in later units)
// the registry, the environment, shell links, the firewall and processes.
#ifndef QLUX_PLATFORM_WINDOWS_WINI_H_
#define QLUX_PLATFORM_WINDOWS_WINI_H_

#include "engine/installer.h"
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

  // ---- Program runs (wini_programs.cpp) ----

  // ---- Running programs and the uninstaller hand-over (wini_processes.cpp) ----
  Installer* createEngine() override;
  bool runRegisteredUninstaller(const char* name) override;

  // ---- Members ----
  char configFile[1560];
  int debug;
  int gui;
  int ignoreErrors;
  WindowsRegistry registry;
};

#endif  // QLUX_PLATFORM_WINDOWS_WINI_H_
