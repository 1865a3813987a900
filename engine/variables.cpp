// The variable store: records looked up by name, the built-in names, the two
// expansion forms ([NAME] for use, $NAME for definition), the recalculation
// of variables that follow an expression, and the exclude list that keeps
// some variables out of the action log and the configuration file.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/installer.h"
#include "foundation/files.h"
#include "foundation/lists.h"
#include "foundation/text.h"

namespace {

// Stored names are compared exactly over the whole name field.
const size_t kNameCompareLength = sizeof(VARIABLE::name);
// The value buffer that both expansion forms ask getVariable for.
const int kExpansionValueSize = 1024;
// A [NAME] reference longer than this is cut; templates stay well below it.
const int kMaxReferenceName = 127;

bool isBuiltInName(const char* name) {
  return QUtils::compareNoCase(name, "GUI_INSTALL") == 0 || QUtils::compareNoCase(name, "INSTALLER_DIR") == 0 ||
         QUtils::compareNoCase(name, "WX_PORT") == 0;
}

bool isDollarNameChar(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The index of the stored record called `name`, searched from the last
// record back; -1 if there is none.
int findStored(QUtils::PList<VARIABLE>& variables, const char* name) {
  VARIABLE* records = variables.getItems();
  for (int i = variables.getCount() - 1; i >= 0; i--) {
    if (std::strncmp(records[i].name, name, kNameCompareLength) == 0) return i;
  }
  return -1;
}

void clearBuffer(char* buffer, int size) {
  if (buffer && size > 0) buffer[0] = 0;
}

// Stores a text field of a record, cut to fit, with runs of separators
// collapsed: every stored value goes through this, path or not.
void storeField(char* field, int fieldSize, const char* text) {
  QUtils::copyText(field, text, fieldSize);
  QUtils::collapseSeparators(field);
}

}  // namespace

int Installer::getVariable(const char* name, char* buffer, int size) {
  if (!name || !*name) {
    clearBuffer(buffer, size);
    return -1;
  }
  if (name[0] == '$') {
    QUtils::CharString environmentValue;
    if (!QUtils::getProcessEnvironment(name + 1, &environmentValue)) {
      log("WARNING: Environment variable \"%s\" is not defined!", name + 1);
      clearBuffer(buffer, size);
      return -1;
    }
    QUtils::copyText(buffer, environmentValue.getText(), size);
    return -2;
  }
  if (QUtils::compareNoCase(name, "GUI_INSTALL") == 0) {
    QUtils::copyText(buffer, guiInstall ? "1" : "0", size);
    return -2;
  }
  if (QUtils::compareNoCase(name, "INSTALLER_DIR") == 0) {
    char directory[QUtils::kMaxPath];
    if (getInstallerDir(directory, sizeof directory) != 0) directory[0] = 0;
    QUtils::copyText(buffer, directory, size);
    return -2;
  }
  if (QUtils::compareNoCase(name, "WX_PORT") == 0) {
    QUtils::copyText(buffer, getToolkitPort(), size);
    return -2;
  }
  int index = findStored(variables, name);
  if (index < 0) {
    clearBuffer(buffer, size);
    return -1;
  }
  QUtils::copyText(buffer, variables[index].value, size);
  return index;
}

int Installer::getVariableDefault(const char* name, char* buffer, int size) {
  if (name && *name) {
    for (int i = 0; i < variables.getCount(); i++) {
      if (std::strncmp(variables[i].name, name, kNameCompareLength) == 0) {
        QUtils::copyText(buffer, variables[i].defaultValue, size);
        return i;
      }
    }
  }
  clearBuffer(buffer, size);
  return -1;
}

int Installer::setVariable(const char* name, const char* value) {
  return defineVariable(name, value, nullptr, 0, nullptr);
}

int Installer::defineVariable(const char* name, const char* value, const char* expression, int recalculate,
                              const char* defaultValue) {
  if (!name || !*name) return -1;
  // Built-ins and environment names are answered without a record; a record
  // under such a name could never be read back.
  if (name[0] == '$' || isBuiltInName(name)) return -1;

  int index = findStored(variables, name);
  if (index >= 0) {
    VARIABLE& record = variables[index];
    QUtils::copyText(record.name, name, sizeof record.name);
    if (defaultValue) QUtils::copyText(record.defaultValue, defaultValue, sizeof record.defaultValue);
    if (value) QUtils::copyText(record.value, value, sizeof record.value);
    if (expression) QUtils::copyText(record.expression, expression, sizeof record.expression);
    QUtils::collapseSeparators(record.defaultValue);
    QUtils::collapseSeparators(record.value);
    QUtils::collapseSeparators(record.expression);
    record.recalculate = recalculate ? 1 : 0;
    recalculateDependents(index);
    return 0;
  }

  VARIABLE record;
  std::memset(&record, 0, sizeof record);
  QUtils::copyText(record.name, name, sizeof record.name);
  storeField(record.defaultValue, sizeof record.defaultValue, defaultValue ? defaultValue : "");
  storeField(record.value, sizeof record.value, value ? value : record.defaultValue);
  storeField(record.expression, sizeof record.expression, expression ? expression : "");
  record.recalculate = recalculate ? 1 : 0;
  variables.add(record);
  return 0;
}

int Installer::resetVariable(const char* name, int recalculate) {
  if (!name || !*name || name[0] == '$' || isBuiltInName(name)) return -1;
  int index = findStored(variables, name);
  if (index < 0) return -1;
  VARIABLE& record = variables[index];
  // Expand into a scratch buffer so that a failed expansion keeps the old
  // value whole.
  char result[kExpansionValueSize];
  if (expandDollars(record.expression, result, sizeof result)) storeField(record.value, sizeof record.value, result);
  record.recalculate = recalculate ? 1 : 0;
  return 0;
}

int Installer::expandVariables(const char* text, char* buffer, int size) {
  if (!buffer) return -1;
  if (size < 1) return 0;
  buffer[0] = 0;
  if (!text) return 0;

  int out = 0;
  const char* p = text;
  while (*p && out < size - 1) {
    if (*p != '[') {
      buffer[out++] = *p++;
      continue;
    }
    const char* nameStart = p + 1;
    const char* nameEnd = std::strchr(nameStart, ']');
    if (!nameEnd) nameEnd = nameStart + std::strlen(nameStart);
    p = *nameEnd ? nameEnd + 1 : nameEnd;

    int nameLength = static_cast<int>(nameEnd - nameStart);
    if (nameLength > kMaxReferenceName) nameLength = kMaxReferenceName;
    char name[kMaxReferenceName + 1];
    std::memcpy(name, nameStart, static_cast<size_t>(nameLength));
    name[nameLength] = 0;

    char value[kExpansionValueSize];
    if (getVariable(name, value, sizeof value) == -1) {
      // An unknown name stands for itself, so that the text stays readable
      // and a condition that names it fails to parse.
      log("WARNING: Variable [%s] is not initialized in the expression: \"%s\"", name, text);
      QUtils::boundedFormat(value, sizeof value, "[%s]", name);
    }
    for (const char* v = value; *v && out < size - 1; v++) buffer[out++] = *v;
  }
  buffer[out] = 0;
  return 0;
}

bool Installer::expandDollars(const char* text, char* buffer, int size) {
  if (!buffer || size < 1) return false;
  int out = 0;
  const char* p = text ? text : "";
  while (*p) {
    if (*p != '$') {
      if (out >= size - 1) return false;
      buffer[out++] = *p++;
      continue;
    }
    p++;
    char name[kExpansionValueSize];
    int nameLength = 0;
    while (isDollarNameChar(*p)) {
      if (nameLength < static_cast<int>(sizeof name) - 1) name[nameLength++] = *p;
      p++;
    }
    name[nameLength] = 0;
    // The $ form names stored variables and built-ins only; its names can't
    // start with '$', so it never reads the environment.
    char value[kExpansionValueSize];
    if (getVariable(name, value, sizeof value) == -1) return false;
    for (const char* v = value; *v; v++) {
      if (out >= size - 1) return false;
      buffer[out++] = *v;
    }
  }
  buffer[out] = 0;
  return true;
}

void Installer::recalculateDependents(int index) {
  if (suspendRecalculation) return;

  std::vector<int> followers;
  for (int i = variables.getCount() - 1; i >= 0; i--) {
    if (i != index && variables[i].recalculate) followers.push_back(i);
  }
  int count = static_cast<int>(followers.size());
  if (count == 0) return;

  // dependsOn[i * count + j]: the expression of follower i names follower j.
  // A plain substring test, so "$ROOT2" also counts as naming ROOT.
  std::vector<unsigned char> dependsOn(static_cast<size_t>(count) * count, 0);
  for (int i = 0; i < count; i++) {
    const VARIABLE& record = variables[followers[i]];
    for (int j = 0; j < count; j++) {
      if (i == j) continue;
      char reference[sizeof VARIABLE::name + 1];
      reference[0] = '$';
      QUtils::copyText(reference + 1, variables[followers[j]].name, sizeof reference - 1);
      if (std::strstr(record.expression, reference)) dependsOn[static_cast<size_t>(i) * count + j] = 1;
    }
  }

  // Move each variable behind what it depends on. A cycle has no such order
  // and is worked through in whatever order comes out.
  std::vector<int> order(static_cast<size_t>(count));
  for (int i = 0; i < count; i++) order[i] = i;
  for (int a = 0; a < count; a++) {
    for (int b = a + 1; b < count; b++) {
      if (dependsOn[static_cast<size_t>(order[a]) * count + order[b]]) {
        int swap = order[a];
        order[a] = order[b];
        order[b] = swap;
      }
    }
  }

  for (int k = 0; k < count; k++) {
    VARIABLE& record = variables[followers[order[k]]];
    // A variable whose expression names an unknown variable keeps its value.
    char result[kExpansionValueSize];
    if (expandDollars(record.expression, result, sizeof result)) storeField(record.value, sizeof record.value, result);
  }
}

bool Installer::isVariableIncluded(const char* name, int mask) {
  if (!name) return true;
  for (int i = 0; i < excludes.getCount(); i++) {
    const char* excluded = excludes[i].name.getText();
    if (excluded && std::strcmp(excluded, name) == 0 && (excludes[i].mask & mask) != 0) return false;
  }
  return true;
}

namespace {

void addExclude(QUtils::Table<EXCLUDEINFO>& excludes, const char* name, int mask) {
  if (!name || !*name) return;
  EXCLUDEINFO entry;
  entry.name = name;
  entry.mask = mask;
  excludes.add(entry);
}

// The mask of an ExcludeFrom list: "log", "config" or "all", separated by
// ';' and compared without regard to case. Without the attribute, both.
int parseExcludeFrom(const char* text) {
  if (!text) return kExcludeFromLog | kExcludeFromConfig;
  int mask = 0;
  const char* p = text;
  for (;;) {
    const char* end = std::strchr(p, ';');
    size_t length = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (length == 3 && QUtils::compareNoCase(p, "all", 3) == 0) return kExcludeFromLog | kExcludeFromConfig;
    if (length == 3 && QUtils::compareNoCase(p, "log", 3) == 0) mask |= kExcludeFromLog;
    if (length == 6 && QUtils::compareNoCase(p, "config", 6) == 0) mask |= kExcludeFromConfig;
    if (!end) break;
    p = end + 1;
  }
  return mask;
}

}  // namespace

void Installer::readExcludes() {
  const int both = kExcludeFromLog | kExcludeFromConfig;
  // The control variables are the engine's own bookkeeping: some belong to
  // this run only, and none of them is a setting a user would replay.
  addExclude(excludes, getControlVariable(kCtlPreviousInstallation), kExcludeFromConfig);
  addExclude(excludes, getControlVariable(kCtlProgressDetails), both);
  addExclude(excludes, getControlVariable(kCtlInstallError), kExcludeFromConfig);
  addExclude(excludes, getControlVariable(kCtlUninstallError), kExcludeFromConfig);
  addExclude(excludes, getControlVariable(kCtlCustomizeSettings), both);
  addExclude(excludes, getControlVariable(kCtlDlgCondition), both);

  // Validation variables describe the state of a page's fields. They are
  // defined as valid now, so that a condition on one has a value before the
  // page that holds its field was seen.
  for (int d = 0; d < dialogs.getCount(); d++) {
    DIALOGINFO& dialog = dialogs[d];
    int pages = (dialog.flags & kDialogHasSubDialogs) ? dialog.subDialogs.getCount() : 0;
    for (int s = -1; s < pages; s++) {
      DIALOGINFO& page = s < 0 ? dialog : dialog.subDialogs[s];
      for (int f = 0; f < page.fields.getCount(); f++) {
        const char* name = page.fields[f].validationVariable;
        if (!*name) continue;
        addExclude(excludes, name, both);
        defineVariable(name, "1", "1", 0, nullptr);
      }
    }
  }

  int list = document.findNext("InstallerExcludeVariables", -1);
  if (list < 0) return;
  QUtils::PList<int> children;
  document.getChildren(list, &children);
  for (int i = 0; i < children.getCount(); i++) {
    const char* name = document.getValue(children[i]);
    if (!name || !*name) continue;
    addExclude(excludes, name, parseExcludeFrom(document.getAttribute(children[i], "ExcludeFrom")));
  }
}
