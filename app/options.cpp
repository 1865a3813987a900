#include "app/options.h"

int readDebugOption(QUtils::Parameters& parameters) {
  int debug = 0;
  parameters.getInteger("debug", &debug);
  return debug;
}

void readRunOptions(QUtils::Parameters& parameters, RunOptions* options) {
  options->debug = readDebugOption(parameters);
  parameters.getInteger("gui", &options->gui);
  parameters.getInteger("ignoreErrors", &options->ignoreErrors);
  parameters.getInteger("backup", &options->backup);
  if (options->backup) options->runFlags |= 2;
  if (parameters.getText("auto", nullptr)) {
    options->autoInstall = true;
    options->gui = 0;
  }
  if (parameters.getText("configFile", &options->configFile)) {
    options->gui = 0;
    options->quiet = 1;
  }
  parameters.getInteger("quiet", &options->quiet);
  parameters.getText("bin", &options->bin);
  parameters.getText("uninstall", &options->uninstall);
  parameters.getText("uninstallApp", &options->uninstallApp);
  if (parameters.getText("uninstallFile", &options->uninstallFile)) options->runFlags |= 1;
}
