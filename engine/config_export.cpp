// The "PostInstall" step and the configuration file. A console run writes
// every variable that may leave the machine into config.xml beside the
// program: a DefValues document, the same element the template holds, so a
// later run given the file with -configFile reads it as its defaults and
// asks nothing.
#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/errors.h"
#include "foundation/text.h"
#include "foundation/xml.h"

namespace {

const char kConfigFileName[] = "config.xml";

}  // namespace

int Installer::runPostInstall(InstallerUI* ui) {
  if (postInstallDone) return 0;
  postInstallDone = 1;

  runTagActions(ui, "PostInstall");

  // The action log keeps the values as they are now, after the last page.
  try {
    rewriteVariableBlock();
  } catch (const QUtils::GenericError& e) {
    log("%s", e.getMessage());
  }

  // A graphical run never exports, even one that the console stood in for,
  // and neither does a run from a file.
  char configFile[QUtils::kMaxPath];
  configFile[0] = 0;
  getConfigFile(configFile, sizeof configFile);
  if (guiInstall || graphicalRequested || configFile[0]) return 0;

  char path[QUtils::kMaxPath];
  bool placed = getInstallerDir(path, sizeof path) == 0 && path[0];
  // A path that won't fit is no place to write to.
  if (placed) placed = std::strlen(path) + 1 + std::strlen(kConfigFileName) < sizeof path;
  if (placed) QUtils::appendPath(path, kConfigFileName, sizeof path);
  if (!placed || writeConfigFile(path) != 0) {
    log("ERROR: Could not create configuration file");
    if (ui) ui->addFileLine("The installer could not create configuration file!", true);
    return 0;
  }
  log("Configuration file written: %s", path);
  if (!ui) return 0;
  char line[QUtils::kMaxPath + 64];
  QUtils::boundedFormat(line, sizeof line, "Successfully created configuration file:\n\t\"%s\"", path);
  ui->addFileLine(line, false);
  ui->addFileLine(
      "You can use the file to automatically install the same product on different machine with the same "
      "settings, by running the installer with the following arguments:",
      false);
  QUtils::boundedFormat(line, sizeof line, " -configFile=\"%s\" {-ignoreErrors=1}", path);
  ui->addFileLine(line, true);
  return 0;
}

int Installer::writeConfigFile(const char* path) {
  if (!path || !*path) return -1;
  QUtils::PXML config;
  int root = config.setPath(-1, "DefValues", nullptr, false);
  if (root < 0) return -1;
  for (int i = 0; i < variables.getCount(); i++) {
    const VARIABLE& variable = variables[i];
    if (!isVariableIncluded(variable.name, kExcludeFromConfig)) continue;
    int element = config.setPath(root, "Value", variable.value, true);
    if (element < 0) return -1;
    config.setAttribute(element, "Name", variable.name);
    config.setAttribute(element, "DataType", "value");
  }
  return config.save(path);
}
