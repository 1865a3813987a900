// INI actions: the template's IniFiles sections set keys of INI files, and
// each change leaves a log form (the old value, or that the key is new) from
// which the uninstaller puts the file back. Lines are read and written by
// the foundation's INI code, which keeps every other line as it was.
#include <cstring>
#include <vector>

#include "engine/action_texts.h"
#include "engine/installer.h"
#include "foundation/ini.h"
#include "foundation/text.h"
#include "frontends/console/installer_ui.h"

using actiontext::Verb;

namespace {

const int kModeAdd = 1;
// The key names of one section, each behind a NUL.
const int kKeyListSize = 32768;

const Verb kReplace = {"Replace ", "FAILED to replace "};
const Verb kCreate = {"Create ", "FAILED to create "};
const Verb kRestore = {"Restore ", "FAILED to restore "};
const Verb kRemove = {"Remove ", "FAILED to remove "};

// Whether the first field of `line` is `word`.
bool isKind(const char* line, const char* word) {
  size_t length = std::strlen(word);
  return std::strncmp(line, word, length) == 0 && (line[length] == '\t' || line[length] == 0);
}

// The object of an INI message: "[section]/key in file".
void describe(char* out, int size, const char* file, const char* section, const char* key) {
  QUtils::boundedFormat(out, size, "[%s]/%s in %s", section, key, file);
}

}  // namespace

int Installer::applyIniActions(QUtils::PConsole* console, InstallerUI* ui) {
  bool anyFailed = false;
  QUtils::PList<int> children(16);
  for (int section = document.findNext("IniFiles", -1); section >= 0;
       section = document.findNext("IniFiles", section)) {
    children.clear();
    document.getChildren(section, &children);
    for (int i = 0; i < children.getCount(); i++) {
      int child = children[i];
      const char* fileText = document.getAttribute(child, "FileName");
      const char* sectionText = document.getAttribute(child, "Section");
      const char* keyText = document.getAttribute(child, "Key");
      const char* text = document.getValue(child);
      if (!actiontext::hasText(fileText) || !actiontext::hasText(sectionText) || !actiontext::hasText(keyText) ||
          !actiontext::hasText(text))
        continue;
      if (!evaluateCondition(document.getAttribute(child, "Condition"))) continue;
      if (QUtils::compareNoCase(document.getName(child), "Add") != 0) continue;

      bool isPath = document.getAttribute(child, "IsPath") != nullptr;
      bool ignoreErrors = document.getAttribute(child, "IgnoreErrors") != nullptr;
      char file[actiontext::kTextSize];
      char sectionName[actiontext::kTextSize];
      char key[actiontext::kTextSize];
      char beforeKey[actiontext::kTextSize];
      char value[actiontext::kTextSize];
      actiontext::expand(this, fileText, file, sizeof file, true, true);
      actiontext::expand(this, sectionText, sectionName, sizeof sectionName, false, false);
      actiontext::expand(this, keyText, key, sizeof key, false, false);
      // Without the attribute the key still moves to the end of its section.
      actiontext::expand(this, document.getAttribute(child, "BeforeKey"), beforeKey, sizeof beforeKey, false, false);
      actiontext::expand(this, text, value, sizeof value, true, isPath);

      char form[actiontext::kFormSize];
      bool ok = setIniValue(file, sectionName, key, value, kModeAdd, form, sizeof form, ui, isPath, beforeKey);
      if (!ok && !ignoreErrors) {
        anyFailed = true;
        break;  // the rest of this section is left alone
      }
      if (console) console->printf("%s%c%s", kLogIni, kLogTab, form);
    }
    if (ui) ui->addFileLine(nullptr, true);
  }
  return anyFailed ? 1 : 0;
}

bool Installer::setIniValue(const char* file, const char* section, const char* key, const char* value, int mode,
                            char* out, int outSize, InstallerUI* ui, bool isPath, const char* beforeKey) {
  QUtils::copyText(out, kLogNone, outSize);
  if (mode != kModeAdd) return true;
  if (!file || !section || !key || !value) return false;
  if (isPath && sectionHasPath(file, section, value)) return true;
  if (ui) ui->pumpEventsQuietly();

  char old[actiontext::kTextSize];
  bool exists = readProfileValue(file, section, key, old, sizeof old);
  if (exists) {
    QUtils::boundedFormat(out, outSize, "%s%c%s%c%s%c%s%c%s", kLogReplace, kLogTab, file, kLogTab, section, kLogTab,
                          key, kLogTab, old);
  } else {
    QUtils::boundedFormat(out, outSize, "%s%c%s%c%s%c%s%c%s", kLogCreate, kLogTab, file, kLogTab, section, kLogTab,
                          key, kLogTab, value);
  }
  bool ok = QUtils::writeIniValue(file, section, key, value, beforeKey) == 0;
  char object[QUtils::kMaxPath + 2 * actiontext::kTextSize];
  describe(object, sizeof object, file, section, key);
  actiontext::report(this, ui, exists ? kReplace : kCreate, ok, object);
  return ok;
}

bool Installer::undoIniChange(const char* line, InstallerUI* ui) {
  if (!line) return false;
  bool restore = isKind(line, kLogReplace);
  if (!restore && !isKind(line, kLogCreate)) return true;  // NONE, or nothing known

  char file[QUtils::kMaxPath];
  char section[actiontext::kTextSize];
  char key[actiontext::kTextSize];
  const char* field = nextLogField(line);
  field = actiontext::readField(field, file, sizeof file);
  field = actiontext::readField(field, section, sizeof section);
  const char* value = actiontext::readField(field, key, sizeof key);
  // CREATE takes the key out again; REPLACE puts the old value back where
  // the key stands now.
  bool ok = QUtils::writeIniValue(file, section, key, restore ? value : nullptr, nullptr) == 0;
  if (ui) ui->pumpEventsQuietly();
  char object[QUtils::kMaxPath + 2 * actiontext::kTextSize];
  describe(object, sizeof object, file, section, key);
  actiontext::report(this, ui, restore ? kRestore : kRemove, ok, object);
  return ok;
}

bool Installer::readProfileValue(const char* file, const char* section, const char* key, char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  if (!file || !section || !key) return false;
  return QUtils::readIniValue(file, section, key, "", out, size) > 0;
}

bool Installer::sectionHasPath(const char* file, const char* section, const char* path) {
  if (!file || !section || !path) return false;
  std::vector<char> names(kKeyListSize);
  int length = QUtils::readIniValue(file, section, nullptr, nullptr, names.data(), kKeyListSize);
  for (int at = 0; at < length;) {
    const char* name = names.data() + at;
    at += static_cast<int>(std::strlen(name)) + 1;
    char value[actiontext::kTextSize];
    QUtils::readIniValue(file, section, name, "", value, sizeof value);
    if (value[0] && isSameDirectory(value, path)) return true;
  }
  return false;
}
