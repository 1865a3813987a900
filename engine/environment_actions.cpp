// Environment actions: the template's Environment sections change
// machine-wide variables (Replace, Append, Insert), and each change leaves a
// log form from which the uninstaller undoes it. The logic is here once;
// the store itself is the platform's (getEnvironmentValue and its sisters),
// which the base keeps in the registry, as Windows does.
#include <cstring>
#include <string>
#include <vector>

#include "engine/action_texts.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/files.h"
#include "foundation/text.h"

using actiontext::Verb;

namespace {

const int kModeReplace = 1;
const int kModeAppend = 2;
const int kModeInsert = 3;

// An old value that Replace keeps in the log must fit the log's line, so it
// is read into this many bytes; a longer one can't be put back, and Replace
// refuses it.
const int kLoggedValueSize = 2048;
// Lists (Append, Insert and their reverse) are read whole up to the
// system's limit for one variable: they are never replaced by a part.
const int kListValueSize = 32768;

const Verb kReplace = {"Replace ", "FAILED to replace "};
const Verb kCreate = {"Create ", "FAILED to create "};
const Verb kAddTo = {"Add to ", "FAILED to add to "};
const Verb kRestore = {"Restore ", "FAILED to restore "};
const Verb kRemove = {"Remove ", "FAILED to remove "};
const Verb kEraseFrom = {"Erase from ", "FAILED to erase from "};

const char* const kProbeName = "test$$$$.$$$file";

int modeOf(const char* kind) {
  if (QUtils::compareNoCase(kind, "Replace") == 0) return kModeReplace;
  if (QUtils::compareNoCase(kind, "Append") == 0) return kModeAppend;
  if (QUtils::compareNoCase(kind, "Insert") == 0) return kModeInsert;
  return 0;
}

// Shrinks every run of `separator` in `text` to one.
void collapseRuns(std::string* text, char separator) {
  std::string result;
  for (char c : *text) {
    if (c == separator && !result.empty() && result.back() == separator) continue;
    result.push_back(c);
  }
  *text = result;
}

// Whether the first field of `line` is `word`.
bool isKind(const char* line, const char* word) {
  size_t length = std::strlen(word);
  return std::strncmp(line, word, length) == 0 && (line[length] == '\t' || line[length] == 0);
}

}  // namespace

int Installer::applyEnvironmentActions(QUtils::PConsole* console, InstallerUI* ui) {
  bool anyFailed = false;
  bool changed = false;
  QUtils::PList<int> children(16);
  for (int section = document.findNext("Environment", -1); section >= 0;
       section = document.findNext("Environment", section)) {
    if (!evaluateCondition(document.getAttribute(section, "Condition"))) continue;
    children.clear();
    document.getChildren(section, &children);
    for (int i = 0; i < children.getCount(); i++) {
      int child = children[i];
      const char* name = document.getAttribute(child, "VarName");
      const char* text = document.getValue(child);
      int mode = modeOf(document.getName(child));
      if (!actiontext::hasText(name) || !actiontext::hasText(text) || mode == 0) continue;
      if (!evaluateCondition(document.getAttribute(child, "Condition"))) continue;

      bool isPath = document.getAttribute(child, "IsPath") != nullptr;
      char value[actiontext::kTextSize];
      actiontext::expand(this, text, value, sizeof value, true, isPath);
      char form[actiontext::kFormSize];
      if (!setEnvironment(name, value, mode, form, sizeof form, ui, isPath)) {
        anyFailed = true;
        break;  // the rest of this section is left alone
      }
      if (console) console->printf("%s%c%s", kLogEnv, kLogTab, form);
      changed = true;
    }
    if (ui) ui->addFileLine(nullptr, true);
  }
  // Ignoring the result on purpose: the values are stored either way; the
  // announcement only reaches the programs that run now.
  if (!anyFailed && changed) notifyEnvironmentChange();
  return anyFailed ? 1 : 0;
}

bool Installer::setEnvironment(const char* name, const char* value, int mode, char* out, int outSize,
                               InstallerUI* ui, bool isPath) {
  QUtils::copyText(out, kLogNone, outSize);
  if (mode != kModeReplace && mode != kModeAppend && mode != kModeInsert) return true;
  if (!name || !value) return false;
  if (ui) ui->pumpEventsQuietly();

  if (mode == kModeReplace) {
    char old[kLoggedValueSize];
    int length = getEnvironmentValue(name, old, sizeof old);
    bool ok;
    if (length >= static_cast<int>(sizeof old)) {
      log("ERROR: The value of %s is too long to be kept for uninstalling; it is left as it is", name);
      ok = false;
    } else if (length >= 0) {
      QUtils::boundedFormat(out, outSize, "%s%c%s%c%s", kLogReplace, kLogTab, name, kLogTab, old);
      ok = setEnvironmentValue(name, value);
    } else {
      QUtils::boundedFormat(out, outSize, "%s%c%s", kLogCreate, kLogTab, name);
      ok = setEnvironmentValue(name, value);
    }
    actiontext::report(this, ui, length >= 0 ? kReplace : kCreate, ok, name);
    return ok;
  }

  char separator = getEnvironmentListSeparator();
  std::vector<char> old(kListValueSize);
  int length = getEnvironmentValue(name, old.data(), kListValueSize);
  if (length >= kListValueSize) {
    // The list can't be read whole, and a part of it must not replace it.
    log("ERROR: The value of %s is too long to be changed", name);
    actiontext::report(this, ui, kAddTo, false, name);
    return false;
  }
  // An empty variable is there all the same, and gets the separator;
  // except where an empty list item means something (on Linux, the current
  // directory): there it is taken as missing, and the value stands alone.
  bool exists = length > 0 || (length == 0 && allowsEmptyListItems());
  std::string result;
  if (exists) {
    if (isPath && isPathInList(value, old.data())) return true;
    if (mode == kModeAppend) {
      result = std::string(old.data()) + separator + value;
      collapseRuns(&result, separator);
      QUtils::boundedFormat(out, outSize, "%s%c%s%c%s", kLogAdd, kLogTab, name, kLogTab, value);
    } else {
      result = std::string(value) + separator + old.data();
      QUtils::boundedFormat(out, outSize, "%s%c%s%c%s%c", kLogAdd, kLogTab, name, kLogTab, value, separator);
    }
  } else if (length < 0) {
    // A list made from nothing: where the system has a value for the
    // variable that the store doesn't hold (PATH on Linux), that value is
    // written with the item, or the store's line would take its place. The
    // log says the list is new, so that the undo removes it once it holds
    // no more than that again.
    std::string base = getUndefinedListValue(name);
    if (base.empty()) {
      result = value;
    } else if (mode == kModeAppend) {
      result = base + separator + value;
    } else {
      result = std::string(value) + separator + base;
    }
    collapseRuns(&result, separator);
    QUtils::boundedFormat(out, outSize, "%s%c%s%c%s", kLogAddNew, kLogTab, name, kLogTab, value);
  } else {
    // An empty list where an empty item would mean the current directory.
    result = value;
    QUtils::boundedFormat(out, outSize, "%s%c%s%c%s", kLogAdd, kLogTab, name, kLogTab, value);
  }
  bool ok = setEnvironmentValue(name, result.c_str());
  actiontext::report(this, ui, kAddTo, ok, name);
  return ok;
}

bool Installer::undoEnvironment(const char* line, InstallerUI* ui) {
  if (!line) return false;
  char name[actiontext::kTextSize];
  const char* rest = nextLogField(line);
  if (isKind(line, kLogReplace)) {
    const char* oldValue = actiontext::readField(rest, name, sizeof name);
    if (!name[0]) return true;
    bool ok = setEnvironmentValue(name, oldValue);
    if (ui) ui->pumpEventsQuietly();
    actiontext::report(this, ui, kRestore, ok, name);
    return ok;
  }
  if (isKind(line, kLogCreate)) {
    actiontext::readField(rest, name, sizeof name);
    bool ok = deleteEnvironmentValue(name);
    if (ui) ui->pumpEventsQuietly();
    actiontext::report(this, ui, kRemove, ok, name);
    return ok;
  }
  bool madeList = isKind(line, kLogAddNew);
  if (!madeList && !isKind(line, kLogAdd)) return true;  // NONE, or nothing known

  const char* text = actiontext::readField(rest, name, sizeof name);
  if (!name[0]) return true;
  std::vector<char> buffer(kListValueSize);
  int length = getEnvironmentValue(name, buffer.data(), kListValueSize);
  bool ok = length >= 0 && length < kListValueSize;
  if (ok) {
    std::string value(buffer.data());
    size_t at = *text ? value.find(text) : std::string::npos;
    if (at != std::string::npos) {
      size_t count = std::strlen(text);
      // Where an empty item would mean something, the separator that
      // joined an appended text to the list goes with it.
      char separator = getEnvironmentListSeparator();
      if (!allowsEmptyListItems() && text[count - 1] != separator) {
        if (at > 0 && value[at - 1] == separator) {
          at--;
          count++;
        } else if (at + count < value.size() && value[at + count] == separator) {
          count++;
        }
      }
      value.erase(at, count);
    }
    // A list that this installation made goes when nothing else was added
    // to it since.
    if (madeList && (value.empty() || value == getUndefinedListValue(name))) {
      ok = deleteEnvironmentValue(name);
      if (ui) ui->pumpEventsQuietly();
      actiontext::report(this, ui, kRemove, ok, name);
      return ok;
    }
    ok = setEnvironmentValue(name, value.c_str());
  }
  if (ui) ui->pumpEventsQuietly();
  actiontext::report(this, ui, kEraseFrom, ok, name);
  return ok;
}

int Installer::getEnvironmentValue(const char* name, char* out, int size) {
  if (out && size > 0) out[0] = 0;
  RegistryAccess* registry = getRegistry();
  if (!registry || !name) return -1;
  int type = 0;
  QUtils::RefArray<unsigned char> data;
  uint32_t length = 0;
  if (registry->readValue("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, false, &type, data, &length) != 0) return -1;
  if (type != kRegSz && type != kRegExpandSz) return -1;
  const char* text = reinterpret_cast<const char*>(data.get());
  while (length > 0 && text[length - 1] == 0) length--;
  if (out && static_cast<int64_t>(length) < size) {
    std::memcpy(out, text, length);
    out[length] = 0;
  }
  return static_cast<int>(length);
}

bool Installer::setEnvironmentValue(const char* name, const char* value) {
  RegistryAccess* registry = getRegistry();
  if (!registry || !name || !value) return false;
  // The value keeps the type it has: PATH is an expandable text holding
  // %SystemRoot%\system32, and written back as a plain text its references
  // would stay unexpanded, and every program would lose the system's
  // commands. A new variable is expandable when its text holds a '%', so
  // that a reference in it works as it does in PATH; otherwise plain.
  int type = std::strchr(value, '%') ? kRegExpandSz : kRegSz;
  int oldType = 0;
  QUtils::RefArray<unsigned char> old;
  uint32_t oldLength = 0;
  if (registry->readValue("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, false, &oldType, old, &oldLength) == 0 &&
      (oldType == kRegSz || oldType == kRegExpandSz)) {
    type = oldType;
  }
  return registry->writeValue("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, type,
                              reinterpret_cast<const unsigned char*>(value),
                              static_cast<uint32_t>(std::strlen(value))) == 0;
}

bool Installer::deleteEnvironmentValue(const char* name) {
  RegistryAccess* registry = getRegistry();
  if (!registry || !name) return false;
  return registry->deleteValue("HKEY_LOCAL_MACHINE", kEnvironmentKey, name) == 0;
}

bool Installer::isPathInList(const char* path, const char* list) {
  if (!path || !list) return false;
  std::string wanted = path;
  if (!wanted.empty() && wanted[0] == '"') wanted = wanted.size() >= 2 ? wanted.substr(1, wanted.size() - 2) : "";
  char separator = getEnvironmentListSeparator();
  std::string item;
  for (const char* p = list;; p++) {
    if (*p == separator || *p == 0) {
      if (!item.empty() && isSameDirectory(item.c_str(), wanted.c_str())) return true;
      item.clear();
      if (*p == 0) break;
    } else if (*p != '"') {
      item.push_back(*p);
    }
  }
  return false;
}

bool Installer::isSameDirectory(const char* first, const char* second) {
  if (!actiontext::hasText(first) || !actiontext::hasText(second)) return false;
  char probe[QUtils::kMaxPath];
  char other[QUtils::kMaxPath];
  // A name cut to the field would be some other file: no probe then.
  if (QUtils::boundedFormat(probe, sizeof probe, "%s/%s", second, kProbeName) < 0) return false;
  if (QUtils::boundedFormat(other, sizeof other, "%s/%s", first, kProbeName) < 0) return false;
  FILE* file = QUtils::openFile(probe, "wb");
  if (!file) return false;
  std::fputs("test", file);
  std::fclose(file);
  FILE* seen = QUtils::openFile(other, "rb");
  if (seen) std::fclose(seen);
  QUtils::deleteFile(probe);
  return seen != nullptr;
}
