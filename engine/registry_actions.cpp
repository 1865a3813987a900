// Registry actions: the children of a Registry element among a tag's
// actions. Values and keys that are made are written to the action log (as
// REGKEY and REGVAL lines) unless ActionLog says otherwise; removals can't
// be undone and aren't logged. Nothing here fails the run: a bad child is
// logged and passed over.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

namespace {

const int kValueNameSize = 1024;

// A key path as the action log keeps it: every separator a '\', runs of
// them made one, none at either end.
void logKeyPath(const char* path, char* out, int size) {
  int length = 0;
  for (const char* p = path; *p && length + 1 < size; p++) {
    if (!QUtils::isSeparator(*p)) {
      out[length++] = *p;
    } else if (length > 0 && p[1] && !QUtils::isSeparator(p[1])) {
      out[length++] = '\\';
    }
  }
  out[length] = 0;
}

// One child of a Registry element, read: its key and value name, expanded
// when Expand holds, the key as the log writes it, and whether its change
// goes to the log.
struct RegistryEntry {
  int child;
  const char* place;
  const char* valueText;  // the Value attribute as written; null without one
  bool expand;
  bool logged;
  char path[QUtils::kMaxPath];
  char valueName[kValueNameSize];
  char keyPath[QUtils::kMaxPath];
  const char* hive;
};

// Reads the child `child`; false for one without Place and Path, or whose
// Condition doesn't hold. `logging`: the action log takes lines now.
bool readRegistryEntry(Installer& engine, int child, bool logging, RegistryEntry* entry) {
  QUtils::PXML& document = engine.document;
  entry->child = child;
  entry->place = document.getAttribute(child, "Place");
  const char* pathText = document.getAttribute(child, "Path");
  if (!entry->place || !pathText) return false;
  if (engine.evaluateCondition(document.getAttribute(child, "Condition")) == 0) return false;
  // Without a true Expand, brackets stand as they are.
  const char* expandText = document.getAttribute(child, "Expand");
  entry->expand = expandText && engine.evaluateCondition(expandText) != 0;
  entry->valueText = document.getAttribute(child, "Value");
  entry->valueName[0] = 0;
  if (entry->expand) {
    engine.expandVariables(pathText, entry->path, sizeof entry->path);
    if (entry->valueText) engine.expandVariables(entry->valueText, entry->valueName, sizeof entry->valueName);
  } else {
    QUtils::copyText(entry->path, pathText, sizeof entry->path);
    if (entry->valueText) QUtils::copyText(entry->valueName, entry->valueText, sizeof entry->valueName);
  }
  logKeyPath(entry->path, entry->keyPath, sizeof entry->keyPath);
  entry->hive = registryHiveName(entry->place);
  entry->logged = logging && engine.evaluateCondition(document.getAttribute(child, "ActionLog")) != 0;
  return true;
}

// AddValue: sets the value to the element's text, expanded with Expand, and
// logs the keys it made and the value.
void addValue(Installer& engine, const RegistryEntry& entry) {
  const char* data = engine.document.getValue(entry.child);
  if (!entry.valueText || !data) {
    engine.log("ERROR: No registry value name supplied!");
    return;
  }
  // Room for each variable reference to grow by a kilobyte.
  size_t references = 0;
  for (const char* p = data; *p; p++) references += *p == '[';
  std::vector<char> expanded(std::strlen(data) + 1024 * references + 1);
  if (entry.expand) {
    engine.expandVariables(data, expanded.data(), static_cast<int>(expanded.size()));
    data = expanded.data();
  }
  int created = 0;
  const char* type = engine.document.getAttribute(entry.child, "Type");
  if (engine.setRegistryValue(entry.place, entry.path, type, entry.valueName, data, &created) != 0) {
    engine.log("ERROR: Could not set registry value %s\\%s\\%s", entry.place, entry.keyPath, entry.valueName);
    return;
  }
  if (!entry.logged) return;
  engine.logRegKeyAction(created, entry.hive, entry.keyPath);
  engine.logRegValAction(entry.hive, entry.keyPath, entry.valueName);
}

// AddKey: makes the key's missing levels and logs how many there were.
void addKey(Installer& engine, const RegistryEntry& entry) {
  int created = engine.createRegistryKeys(entry.place, entry.path);
  if (entry.logged) engine.logRegKeyAction(created, entry.hive, entry.keyPath);
}

// RemoveValue and RemoveKey: a removal that fails is logged, and the rest
// goes on.
void removeValue(Installer& engine, const RegistryEntry& entry) {
  if (!entry.valueText) {
    engine.log("ERROR: No registry value name supplied!");
  } else if (engine.deleteRegistryValue(entry.place, entry.path, entry.valueName) != 0) {
    engine.log("WARNING: Could not remove registry value %s\\%s\\%s", entry.place, entry.keyPath, entry.valueName);
  }
}

void removeKey(Installer& engine, const RegistryEntry& entry) {
  const char* countText = engine.document.getAttribute(entry.child, "KeyCount");
  if (engine.deleteRegistryKeys(entry.place, entry.path, countText ? std::atoi(countText) : 1) < 0)
    engine.log("WARNING: Could not remove registry key %s\\%s", entry.place, entry.keyPath);
}

struct RegistryAction {
  const char* name;
  void (*run)(Installer& engine, const RegistryEntry& entry);
};
const RegistryAction kRegistryActions[] = {
    {"AddValue", addValue}, {"AddKey", addKey}, {"RemoveValue", removeValue}, {"RemoveKey", removeKey}};

// Runs the action that the child's element names.
void runRegistryEntry(Installer& engine, const RegistryEntry& entry) {
  const char* action = engine.document.getName(entry.child);
  for (const RegistryAction& known : kRegistryActions) {
    if (QUtils::compareNoCase(action, known.name) == 0) return known.run(engine, entry);
  }
  engine.log("ERROR: Usupported registry action \"%s\"", action ? action : "");
}

// The child's Log text, expanded with Expand, as a file line.
void showLogText(Installer& engine, InstallerUI* ui, const RegistryEntry& entry) {
  const char* logText = engine.document.getAttribute(entry.child, "Log");
  if (!logText || !ui) return;
  if (!entry.expand) return ui->addFileLine(logText, false);
  char line[QUtils::kMaxPath];
  engine.expandVariables(logText, line, sizeof line);
  ui->addFileLine(line, false);
}

}  // namespace

void Installer::runRegistryAction(InstallerUI* ui, int element) {
  if (QUtils::compareNoCase(document.getName(element), "Registry") != 0) return;
  int opened = beginActionLogGroup();
  QUtils::PList<int> children(20);
  document.getChildren(element, &children);
  for (int i = 0; i < children.getCount(); i++) {
    RegistryEntry entry;
    if (!readRegistryEntry(*this, children[i], opened >= 0, &entry)) continue;
    runRegistryEntry(*this, entry);
    showLogText(*this, ui, entry);
  }
  endActionLogGroup(opened);
  if (ui) ui->addFileLine(nullptr, true);
}
