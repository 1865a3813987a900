// The "PostInstall" step and the configuration file: every variable that
// may leave the machine, as a DefValues document, the same element the
// template holds, so that a later run given the file with -configFile reads
// it as its defaults and asks nothing. A console run with a person at it
// writes config.xml beside the program; -exportConfig=FILE writes it where
// asked, from any run.
#include <cstring>
#include <vector>

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

  // Where it was asked for, every run exports. Otherwise only a console run
  // with a person at it does, beside the program: a graphical run and a run
  // from a file or with -auto write nothing (the program may stand on a
  // share that takes nothing).
  char path[QUtils::kMaxPath];
  bool asked = exportConfigPath[0] != 0;
  if (asked) {
    QUtils::copyText(path, exportConfigPath, sizeof path);
  } else {
    char configFile[QUtils::kMaxPath];
    configFile[0] = 0;
    getConfigFile(configFile, sizeof configFile);
    // A graphical run never exports, even one that the console stood in for.
    if (guiInstall || graphicalRequested || configFile[0] || unattended) return 0;
    bool placed = getInstallerDir(path, sizeof path) == 0 && path[0];
    // A path that won't fit is no place to write to.
    if (placed) placed = std::strlen(path) + 1 + std::strlen(kConfigFileName) < sizeof path;
    if (placed) {
      QUtils::appendPath(path, kConfigFileName, sizeof path);
    } else {
      path[0] = 0;
    }
  }
  int error = path[0] ? writeConfigFile(path) : -1;
  if (error != 0) {
    log("ERROR: Could not create configuration file");
    if (ui) ui->addFileLine("The installer could not create configuration file!", true);
    if (asked) {
      // What -exportConfig asked for wasn't done: an error of the run.
      char message[QUtils::kMaxPath + 64];
      QUtils::boundedFormat(message, sizeof message, "FAILED to write the configuration file %s", path);
      addError(message);
      outcome.workErrors = true;
    }
    return 0;
  }
  note("Configuration file written: %s", path);
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

namespace {

// The attributes of a DefValues entry that say where its value comes from;
// Condition and UseOld belong to the template's walk, not to the value.
const char* const kSourceAttributes[] = {"DataType", "RegPlace", "RegKey", "Default", "PreferredKey", "AppName"};

// Two values are one when they are the same text, or the same path but for
// the doubling and kind of separators.
bool sameValue(const char* a, const char* b) {
  return std::strcmp(a, b) == 0 || QUtils::isSameCleanPath(a, b);
}

}  // namespace

int Installer::findDefaultEntry(const char* name) {
  int defValues = document.findNext("DefValues", -1);
  if (defValues < 0 || !name) return -1;
  QUtils::PList<int> children(16);
  document.getChildren(defValues, &children);
  int found = -1;
  for (int i = 0; i < children.getCount(); i++) {
    int entry = children[i];
    if (QUtils::compareNoCase(document.getName(entry), "Value") != 0) continue;
    const char* entryName = document.getAttribute(entry, "Name");
    if (!entryName || std::strcmp(entryName, name) != 0) continue;
    const char* condition = document.getAttribute(entry, "Condition");
    if (condition && *condition && evaluateCondition(condition) == 0) continue;
    found = entry;  // a later entry that applies wins, as in readDefValues
  }
  return found;
}

bool Installer::isTemplateDefault(int entry, const char* value) {
  const char* type = document.getAttribute(entry, "DataType");
  const char* text = document.getValue(entry);
  if (!type) return false;
  char result[1024];
  if (QUtils::compareNoCase(type, "value", 5) == 0) {
    return expandDollars(text ? text : "", result, sizeof result) && sameValue(result, value);
  }
  if (QUtils::compareNoCase(type, "registry", 8) == 0) {
    const char* place = document.getAttribute(entry, "RegPlace");
    const char* key = document.getAttribute(entry, "RegKey");
    if (!place || !key || std::strchr(key, '*')) return false;
    return readRegistryValue(place, key, text ? text : "", result, sizeof result, false) == 0 &&
           sameValue(result, value);
  }
  return false;
}

int Installer::writeConfigFile(const char* path) {
  if (!path || !*path) return -1;
  QUtils::PXML config;
  int root = config.setPath(-1, "DefValues", nullptr, false);
  if (root < 0) return -1;
  // The variables of the template's DefValues come in its order, since an
  // expression names the entries before it; the others behind them.
  std::vector<int> order;
  std::vector<bool> placed(static_cast<size_t>(variables.getCount()), false);
  int defValues = document.findNext("DefValues", -1);
  QUtils::PList<int> entries(16);
  if (defValues >= 0) document.getChildren(defValues, &entries);
  for (int e = 0; e < entries.getCount(); e++) {
    const char* name = document.getAttribute(entries[e], "Name");
    char ignored[8];
    int index = name ? getVariable(name, ignored, sizeof ignored) : -1;
    if (index < 0 || placed[static_cast<size_t>(index)]) continue;
    placed[static_cast<size_t>(index)] = true;
    order.push_back(index);
  }
  for (int i = 0; i < variables.getCount(); i++) {
    if (!placed[static_cast<size_t>(i)]) order.push_back(i);
  }
  for (int i : order) {
    const VARIABLE& variable = variables[i];
    if (!isVariableIncluded(variable.name, kExcludeFromConfig)) continue;
    // A value that is still what the template gives is written as the
    // template gives it: another machine works it out for itself.
    int entry = findDefaultEntry(variable.name);
    bool asTemplate = entry >= 0 && isTemplateDefault(entry, variable.value);
    const char* text = asTemplate ? document.getValue(entry) : variable.value;
    int element = config.setPath(root, "Value", text ? text : "", true);
    if (element < 0) return -1;
    config.setAttribute(element, "Name", variable.name);
    if (!asTemplate) {
      config.setAttribute(element, "DataType", "value");
      continue;
    }
    for (const char* attribute : kSourceAttributes) {
      const char* given = document.getAttribute(entry, attribute);
      if (given) config.setAttribute(element, attribute, given);
    }
  }
  return config.save(path);
}
