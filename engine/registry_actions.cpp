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

}  // namespace

void Installer::runRegistryAction(InstallerUI* ui, int element) {
  if (QUtils::compareNoCase(document.getName(element), "Registry") != 0) return;
  int opened = beginActionLogGroup();

  QUtils::PList<int> children(20);
  document.getChildren(element, &children);
  for (int i = 0; i < children.getCount(); i++) {
    int child = children[i];
    const char* place = document.getAttribute(child, "Place");
    const char* pathText = document.getAttribute(child, "Path");
    if (!place || !pathText) continue;
    if (evaluateCondition(document.getAttribute(child, "Condition")) == 0) continue;

    // Without a true Expand, brackets stand as they are.
    const char* expandText = document.getAttribute(child, "Expand");
    bool expand = expandText && evaluateCondition(expandText) != 0;
    const char* valueText = document.getAttribute(child, "Value");
    char path[QUtils::kMaxPath];
    char valueName[kValueNameSize] = "";
    if (expand) {
      expandVariables(pathText, path, sizeof path);
      if (valueText) expandVariables(valueText, valueName, sizeof valueName);
    } else {
      QUtils::copyText(path, pathText, sizeof path);
      if (valueText) QUtils::copyText(valueName, valueText, sizeof valueName);
    }
    char keyPath[QUtils::kMaxPath];
    logKeyPath(path, keyPath, sizeof keyPath);
    const char* hive = registryHiveName(place);
    bool logged = opened >= 0 && evaluateCondition(document.getAttribute(child, "ActionLog")) != 0;

    const char* action = document.getName(child);
    if (QUtils::compareNoCase(action, "AddValue") == 0) {
      const char* data = document.getValue(child);
      if (!valueText || !data) {
        log("ERROR: No registry value name supplied!");
      } else {
        // Room for each variable reference to grow by a kilobyte.
        size_t references = 0;
        for (const char* p = data; *p; p++) references += *p == '[';
        std::vector<char> expanded(std::strlen(data) + 1024 * references + 1);
        if (expand) {
          expandVariables(data, expanded.data(), static_cast<int>(expanded.size()));
          data = expanded.data();
        }
        int created = 0;
        if (setRegistryValue(place, path, document.getAttribute(child, "Type"), valueName, data, &created) == 0) {
          if (logged) {
            logRegKeyAction(created, hive, keyPath);
            logRegValAction(hive, keyPath, valueName);
          }
        } else {
          log("ERROR: Could not set registry value %s\\%s\\%s", place, keyPath, valueName);
        }
      }
    } else if (QUtils::compareNoCase(action, "AddKey") == 0) {
      int created = createRegistryKeys(place, path);
      if (logged) logRegKeyAction(created, hive, keyPath);
    } else if (QUtils::compareNoCase(action, "RemoveValue") == 0) {
      if (!valueText)
        log("ERROR: No registry value name supplied!");
      else
        deleteRegistryValue(place, path, valueName);
    } else if (QUtils::compareNoCase(action, "RemoveKey") == 0) {
      const char* countText = document.getAttribute(child, "KeyCount");
      deleteRegistryKeys(place, path, countText ? std::atoi(countText) : 1);
    } else {
      log("ERROR: Usupported registry action \"%s\"", action ? action : "");
    }

    const char* logText = document.getAttribute(child, "Log");
    if (logText && ui) {
      if (expand) {
        char line[QUtils::kMaxPath];
        expandVariables(logText, line, sizeof line);
        ui->addFileLine(line, false);
      } else {
        ui->addFileLine(logText, false);
      }
    }
  }

  endActionLogGroup(opened);
  if (ui) ui->addFileLine(nullptr, true);
}
