// Default values and previous installations.
//
// Before the first page shows, every variable gets its value. The strongest
// source is read first: the action log of the installation being removed or
// replaced; then the template's DefValues; then, in an installation, the
// configuration file of a replayed run, which is itself a DefValues
// document. Each DefValues is walked twice with recalculation suspended, so
// that every entry sees the values exactly as the entries before it left
// them: the order of the entries is part of the template's meaning.
//
// A Value entry names a variable and says where its value comes from
// (DataType): an expression with $NAME references ("value"), the registry
// ("registry"), a variable of another product's action log ("installvar"),
// or whether a program runs ("checkproc"). UseOld keeps a value that an
// earlier source gave; Recalculate lets a "value" entry go on following its
// expression while nobody has changed the variable.
#include <cstring>
#include <string>
#include <vector>

#include "engine/exit_codes.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/errors.h"
#include "foundation/system_error.h"
#include "foundation/text.h"

namespace {

// The room for one value while the entries are worked out.
const int kValueSize = 1024;
// Registry data read as text.
const int kRegistryValueSize = 8192;

const char kLegacyPath[] = "/HalvoWorksInstallation/ProductDesc/LegacyApplication";

enum DataType { kTypeNone, kTypeValue, kTypeRegistry, kTypeInstallVar, kTypeCheckProc };

// The main pass knows a type by its name's first characters, without regard
// to case: "registryX" reads as registry, "values" as value.
DataType typeByPrefix(const char* text) {
  if (!text) return kTypeNone;
  if (QUtils::compareNoCase(text, "registry", 8) == 0) return kTypeRegistry;
  if (QUtils::compareNoCase(text, "checkproc", 9) == 0) return kTypeCheckProc;
  if (QUtils::compareNoCase(text, "installvar", 10) == 0) return kTypeInstallVar;
  if (QUtils::compareNoCase(text, "value", 5) == 0) return kTypeValue;
  return kTypeNone;
}

// A flag attribute (UseOld, Recalculate): off when absent or starting with
// '0'; any other value is on, the empty one too.
bool isFlagSet(const char* text) { return text && text[0] != '0'; }

// The text of an element as the entries use it: an element without text
// reads as empty.
const char* textOf(const QUtils::PXML& source, int element) {
  const char* text = source.getValue(element);
  return text ? text : "";
}

// The Value children of `defValues`, in document order.
void valueEntries(const QUtils::PXML& source, int defValues, QUtils::PList<int>* out) {
  QUtils::PList<int> children(16);
  source.getChildren(defValues, &children);
  for (int i = 0; i < children.getCount(); i++) {
    if (QUtils::compareNoCase(source.getName(children[i]), "Value") == 0) out->add(children[i]);
  }
}

// Declaration: a variable whose old value counts for nothing starts empty
// now, so that an old value from a log can't survive, and a $NAME to it
// from an earlier entry still expands.
void declareDefValue(Installer& engine, const QUtils::PXML& source, int entry) {
  if (isFlagSet(source.getAttribute(entry, "UseOld"))) return;
  const char* name = source.getAttribute(entry, "Name");
  const char* type = source.getAttribute(entry, "DataType");
  const char* defaultValue = source.getValue(entry);
  if (type && QUtils::compareNoCase(type, "registry") == 0) {
    defaultValue = source.getAttribute(entry, "Default");
  } else if (type && QUtils::compareNoCase(type, "checkproc") == 0) {
    defaultValue = "0";
  }
  if (name && defaultValue) engine.defineVariable(name, "", "", 0, defaultValue);
}

// One entry being evaluated: its variable, the value that variable had, and
// whether the entry may replace that value. Without `replace` an entry only
// updates the default and the expression: the value that an earlier source
// gave stays.
struct DefEntry {
  const QUtils::PXML& source;
  int entry;
  const char* name;
  const char* text;  // the element's text
  char old[kValueSize];
  bool replace;
};

// Takes `value` as the variable's default, and as its value where the
// entry may replace it.
void takeValue(Installer& engine, const DefEntry& def, const char* value) {
  engine.defineVariable(def.name, nullptr, nullptr, 0, value);
  if (def.replace) engine.setVariable(def.name, value);
}

// A registry value, found by wildcard where the key has a '*'; the Default
// attribute where it can't be read and the variable has no value yet.
void readRegistryDefValue(Installer& engine, const DefEntry& def) {
  const char* place = def.source.getAttribute(def.entry, "RegPlace");
  const char* key = def.source.getAttribute(def.entry, "RegKey");
  if (!place || !key) return;
  char data[kRegistryValueSize];
  int read = std::strchr(key, '*') ? engine.findRegistryValue(place, key, def.text, data, sizeof data,
                                                              def.source.getAttribute(def.entry, "PreferredKey"), '*')
                                   : engine.readRegistryValue(place, key, def.text, data, sizeof data, false);
  if (read == 0) return takeValue(engine, def, data);
  const char* fallback = def.source.getAttribute(def.entry, "Default");
  if (fallback && !def.old[0]) takeValue(engine, def, fallback);
}

// A variable of another installed application's log.
void readInstallVarDefValue(Installer& engine, const DefEntry& def) {
  const char* application = def.source.getAttribute(def.entry, "AppName");
  if (!application) return;
  char logPath[QUtils::kMaxPath];
  char value[kValueSize];
  if (!engine.getApplicationLogFile(application, logPath, sizeof logPath)) return;
  if (engine.readLogVariable(logPath, def.text, value, sizeof value) != 1) return;
  takeValue(engine, def, value);
}

// The text with its $NAME references expanded; it stays the variable's
// expression.
void readValueDefValue(Installer& engine, const DefEntry& def) {
  char result[kValueSize];
  if (!engine.expandDollars(def.text, result, sizeof result)) return;
  // A kept value goes on following its expression only while it is what
  // the expression gives: a value the user changed stays as is.
  int recalculate = 0;
  if (isFlagSet(def.source.getAttribute(def.entry, "Recalculate")))
    recalculate = (def.replace || QUtils::isSameCleanPath(result, def.old)) ? 1 : 0;
  engine.defineVariable(def.name, def.replace ? result : nullptr, def.text, recalculate, result);
}

// Whether a program runs is a fact of this start, never an old value.
void readCheckProcDefValue(Installer& engine, const DefEntry& def) {
  engine.setVariable(def.name, engine.isAppRunning(def.text, nullptr) ? "1" : "0");
}

// Evaluates one entry whose Condition holds, by its DataType.
void applyDefValue(Installer& engine, const QUtils::PXML& source, int entry) {
  const char* name = source.getAttribute(entry, "Name");
  const char* typeText = source.getAttribute(entry, "DataType");
  if (!name || !typeText) return;
  const char* condition = source.getAttribute(entry, "Condition");
  if (condition && *condition && engine.evaluateCondition(condition) == 0) return;
  DefEntry def{source, entry, name, textOf(source, entry), {}, false};
  bool exists = engine.getVariable(name, def.old, sizeof def.old) != -1;
  def.replace = !exists || !isFlagSet(source.getAttribute(entry, "UseOld"));
  switch (typeByPrefix(typeText)) {
    case kTypeRegistry:
      return readRegistryDefValue(engine, def);
    case kTypeInstallVar:
      return readInstallVarDefValue(engine, def);
    case kTypeValue:
      return readValueDefValue(engine, def);
    case kTypeCheckProc:
      return readCheckProcDefValue(engine, def);
    case kTypeNone:
      return;
  }
}

}  // namespace

int Installer::readDefaults(InstallerUI* ui) {
  int result = readDefValues(document);
  // An uninstallation takes its values from its log and the template only:
  // a configuration file describes an installation.
  if (package.actionLogFile || result != 0) return result;

  char path[QUtils::kMaxPath];
  path[0] = 0;
  getConfigFile(path, sizeof path);
  if (!path[0]) return 0;

  QUtils::PXML config;
  int loaded = config.load(path);
  if (loaded != 0) {
    char message[2048];
    QUtils::boundedFormat(message, sizeof message,
                          "Error loading configuration file \"%s\" (%i). Installation cannot continue.", path, loaded);
    log("%s", message);
    if (ui) ui->showMessage(message, kMessageNotice);
    char reason[256];
    QUtils::describeSystemError(loaded > 0 ? loaded : 0, reason, sizeof reason);
    stopRun(kExitBadUsage, "the configuration file %s can't be read%s%s", path, reason[0] ? ": " : "", reason);
    return -1;
  }
  note("Configuration file: %s", path);
  if (readDefValues(config) != 0) {
    stopRun(kExitBadUsage, "the configuration file %s holds no DefValues element", path);
    return -1;
  }
  return 0;
}

int Installer::applyCommandLineValues() {
  // All names are checked first: a run with a wrong one changes nothing.
  std::vector<std::string> names;
  for (const CommandLineValue& given : commandLineValues) {
    std::string name = given.name;
    char ignored[8];
    if (getVariable(name.c_str(), ignored, sizeof ignored) < 0) {
      // Not that spelling: one variable whose name differs in case only.
      int matches = 0;
      for (int i = 0; i < variables.getCount(); i++) {
        if (QUtils::compareNoCase(variables[i].name, given.name.c_str()) != 0) continue;
        name = variables[i].name;
        matches++;
      }
      if (matches != 1) {
        stopRun(kExitBadUsage, "bad command line: -%s names no variable of this installer's template",
                given.name.c_str());
        return -1;
      }
    }
    names.push_back(name);
  }
  // Each value is taken as it stands (a '$' in it is no reference), and the
  // variables that follow it by their expressions follow it now.
  for (size_t i = 0; i < names.size(); i++) {
    const char* value = commandLineValues[i].value.c_str();
    defineVariable(names[i].c_str(), value, value, 0, nullptr);
    note("Set from the command line: %s=%s", names[i].c_str(), value);
  }
  return 0;
}

int Installer::readDefValues(const QUtils::PXML& source) {
  suspendRecalculation = 1;
  int defValues = source.findNext("DefValues", -1);
  if (defValues < 0) {
    suspendRecalculation = 0;
    return -1;
  }
  QUtils::PList<int> entries(16);
  valueEntries(source, defValues, &entries);
  for (int i = 0; i < entries.getCount(); i++) declareDefValue(*this, source, entries[i]);
  // Evaluation, in document order; a later entry that applies wins.
  for (int i = 0; i < entries.getCount(); i++) applyDefValue(*this, source, entries[i]);
  suspendRecalculation = 0;
  return 0;
}

int Installer::checkPreviousInstallation() {
  // Once the older installation was removed, its registration says nothing
  // about this run any more.
  if (olderInstallationsDone) return -1;
  if (package.actionLogFile) return 0;
  previousInstallationFound = 0;
  for (int e = document.findPath(kLegacyPath, -1); e >= 0; e = document.findPath(kLegacyPath, e)) {
    const char* legacy = document.getValue(e);
    if (legacy && *legacy && isApplicationRegistered(legacy)) previousInstallationFound = 1;
  }
  char product[512];
  if (getProductName(product, sizeof product) != 0) return -1;
  if (isApplicationRegistered(product)) previousInstallationFound = 1;
  if (previousInstallationFound) setControlVariable(kCtlPreviousInstallation, "1");
  return 0;
}

void Installer::readPreviousInstallationValues() { loadLogVariables(nullptr); }

int Installer::removeOlderInstallations(InstallerUI* ui) {
  // Nothing is removed for an installation that can't go where it should.
  if (checkDestinations(ui) != 0) return -1;
  // The removal runs each time the wizard enters the page: a user who kept
  // the older installation may go back and choose to remove it after all.
  olderInstallationsDone = 1;
  // What the user answers now counts, not what was answered on an earlier
  // entry of the page.
  olderInstallationKept = false;

  const char* control = getControlVariable(kCtlShouldUninstall);
  if (control[0]) {
    char answer[kValueSize];
    int32_t number = 1;
    if (getVariable(control, answer, sizeof answer) != -1) {
      QUtils::trimText(answer);
      // The user chose to keep the old installation: the new one is put
      // over it and takes it over (adoptOlderInstallation).
      if (QUtils::parseInteger(&number, answer) && number == 0) {
        char name[512];
        // One removed on an earlier entry of the page is gone: nothing is kept.
        olderInstallationKept =
            !olderInstallationRemoved && getProductName(name, sizeof name) == 0 && isApplicationRegistered(name);
        if (olderInstallationKept) note("The installed version is kept; this installation goes over it");
        return 0;
      }
    }
  }

  char product[512];
  if (getProductName(product, sizeof product) != 0)
    throw QUtils::InstallerError("ERROR: Could not obtain Application name");

  int result = 0;
  for (int e = document.findPath(kLegacyPath, -1); e >= 0; e = document.findPath(kLegacyPath, e)) {
    const char* legacy = document.getValue(e);
    if (!legacy || !*legacy || !isApplicationRegistered(legacy)) continue;
    int removed = uninstallApplication(ui, legacy);
    if (removed != 0) result = removed;
    // A legacy name is never registered again, so its entry goes now; the
    // product's own entry is written anew by this installation.
    unregisterApplication(legacy);
  }
  // The product's entry stays until this installation registers itself, so
  // an older installation removed on an earlier entry of the page is known
  // by this run's list: its log is gone, and a second removal would fail.
  if (isApplicationRegistered(product) && !olderInstallationRemoved) {
    int removed = uninstallApplication(ui, product);
    if (removed != 0) result = removed;
    else olderInstallationRemoved = 1;
  }
  if (result != 0) setControlVariable(kCtlUninstallError, "1");
  return result;
}
