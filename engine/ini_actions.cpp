// INI actions: the template's IniFiles sections set keys of INI files, and
// each change leaves a log form (the old value, or that the key is new) from
// which the uninstaller puts the file back. Lines are read and written by
// the foundation's INI code, which keeps every other line as it was.
#include <cstring>
#include <string>
#include <vector>

#include "engine/action_texts.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/files.h"
#include "foundation/ini.h"
#include "foundation/system_error.h"
#include "foundation/text.h"
#include "foundation/text_lines.h"

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

// Makes the folder that `file` goes into, with the folders above it that
// are missing, and logs the levels made (DIR) to `console`. A folder that
// can't be made shows in the failure of the write that follows.
void makeFolderOf(const char* file, QUtils::PConsole* console) {
  char folder[QUtils::kMaxPath];
  QUtils::copyText(folder, file, sizeof folder);
  char* end = folder + std::strlen(folder);
  while (end > folder && !QUtils::isSeparator(end[-1])) end--;
  *end = 0;  // the folder with its closing separator
  if (!folder[0]) return;
  int created = 0;
  // Ignoring the result on purpose: the INI write reports the failure.
  QUtils::createPath(folder, &created);
  if (console && created > 0)
    console->printf("%s%c%d%c%s", Installer::kLogDir, Installer::kLogTab, created, Installer::kLogTab, folder);
}

// Whether an INI file holds nothing but blank lines and section lines: what
// is left of a file that only the installation's keys filled.
bool holdsNoKeys(const char* file) {
  std::string data;
  if (!QUtils::readWholeFile(file, &data)) return false;
  for (const QUtils::TextLine& line : QUtils::splitTextLines(data)) {
    size_t start = line.text.find_first_not_of(" \t\xef\xbb\xbf");
    if (start == std::string::npos) continue;
    size_t end = line.text.find_last_not_of(" \t");
    if (line.text[start] != '[' || line.text[end] != ']') return false;
  }
  return true;
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

      // A file that isn't there yet is made, in a folder made for it if
      // need be; both are logged, so that the uninstaller removes them
      // again once its undo has left them empty.
      bool newFile = !QUtils::fileExists(file);
      if (newFile) makeFolderOf(file, console);
      char form[actiontext::kFormSize];
      bool ok = setIniValue(file, sectionName, key, value, kModeAdd, form, sizeof form, ui, isPath, beforeKey);
      if (!ok && !ignoreErrors) {
        anyFailed = true;
        break;  // the rest of this section is left alone
      }
      if (console) console->printf("%s%c%s", kLogIni, kLogTab, form);
      if (console && newFile && QUtils::fileExists(file))
        console->printf("%s%c%s%c%s", kLogIni, kLogTab, kLogNewFile, kLogTab, file);
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
  // Taken at once: the next call may replace it.
  int error = ok ? 0 : QUtils::lastSystemError();
  char object[QUtils::kMaxPath + 2 * actiontext::kTextSize];
  describe(object, sizeof object, file, section, key);
  actiontext::report(this, ui, exists ? kReplace : kCreate, ok, object, error);
  return ok;
}

bool Installer::undoIniChange(const char* line, InstallerUI* ui) {
  if (!line) return false;
  char file[QUtils::kMaxPath];
  if (isKind(line, kLogNewFile)) {
    // Removed once every line of the log is undone: a later line may still
    // take a key out of it.
    actiontext::readField(nextLogField(line), file, sizeof file);
    if (file[0]) newIniFiles.add(QUtils::CharString(file));
    return true;
  }
  bool restore = isKind(line, kLogReplace);
  if (!restore && !isKind(line, kLogCreate)) return true;  // NONE, or nothing known

  char section[actiontext::kTextSize];
  char key[actiontext::kTextSize];
  const char* field = nextLogField(line);
  field = actiontext::readField(field, file, sizeof file);
  // A file that went with the product's files has nothing left to undo;
  // writing the key would make it again.
  if (!QUtils::fileExists(file)) return true;
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

void Installer::removeNewIniFiles(InstallerUI* ui) {
  for (int i = 0; i < newIniFiles.getCount(); i++) {
    const char* file = newIniFiles[i].getText();
    if (!QUtils::fileExists(file)) continue;
    if (!holdsNoKeys(file)) {
      log("The INI file %s holds keys that the installation did not write; it stays", file);
      continue;
    }
    bool ok = QUtils::deleteFile(file) == 0;
    if (ui) ui->pumpEventsQuietly();
    actiontext::report(this, ui, kRemove, ok, file);
  }
  newIniFiles.clear();
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
