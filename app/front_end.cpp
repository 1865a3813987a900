// Front ends by mode. The console serves every run with -gui=0, -auto or
// -configFile. A graphical run gets the window where this build has one and
// a display can be opened; otherwise the person at the terminal is asked
// instead, and a line on the standard error and in the debug log says so.
#include "app/front_end.h"

#include <cstdio>
#include <cstdlib>

#include "foundation/files.h"
#include "frontends/console/console_ui.h"
#include "platform/host.h"
#ifdef QLUX_WITH_GUI
#include "frontends/gui/wx_gui.h"
#endif

namespace {

#ifdef QLUX_WITH_GUI
bool displayAvailable() {
#ifdef _WIN32
  return true;  // a Windows session always has its desktop
#else
  QUtils::CharString x11, wayland;
  // An unset variable leaves its text empty, which is what is tested.
  QUtils::getProcessEnvironment("DISPLAY", &x11);
  QUtils::getProcessEnvironment("WAYLAND_DISPLAY", &wayland);
  return !x11.isEmpty() || !wayland.isEmpty();
#endif
}
#endif

}  // namespace

InstallerUI* createGraphicalFrontEnd(Installer* engine, int isUninstall, const RunOptions& options) {
#ifdef QLUX_WITH_GUI
  const char* reason = "There is no display: the wizard runs on the console";
  if (displayAvailable()) {
    WxGUI* window = new WxGUI(isUninstall);
    if (window->openDisplay()) {
      window->exchange = engine;
      Host::releaseOwnConsole();
      return window;
    }
    delete window;
    reason = "The display can't be opened: the wizard runs on the console";
  }
#else
  const char* reason = "The window front end isn't part of this build: the wizard runs on the console";
#endif
  engine->log(reason);
  std::fprintf(stderr, "%s\n", reason);
  ConsoleUI* ui = new ConsoleUI(isUninstall, options.ignoreErrors, options.quiet);
  bool automatic = false;
  if (ui->initInput(isUninstall ? "uninstall" : "", &automatic) != 0) {
    delete ui;
    return nullptr;
  }
  ui->exchange = engine;
  return ui;
}

InstallerUI* createConsoleFrontEnd(Installer* engine, int isUninstall, const RunOptions& options, const char* input,
                                   int* initResult) {
  ConsoleUI* ui = new ConsoleUI(isUninstall, options.ignoreErrors, options.quiet);
  bool automatic = false;
  *initResult = ui->initInput(input, &automatic);
  ui->exchange = engine;
  return ui;
}
