// Front ends by mode. The console serves every run with -gui=0, -auto or
// -configFile. The window isn't part of this build yet, so a graphical run
// asks the person at the terminal instead, and says so in the debug log.
#include "app/front_end.h"

#include "frontends/console/console_ui.h"

InstallerUI* createGraphicalFrontEnd(Installer* engine, int isUninstall) {
  engine->log("The window front end isn't part of this build: the wizard runs on the console");
  ConsoleUI* ui = new ConsoleUI(isUninstall, 0, 0);
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
