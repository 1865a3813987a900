// Shortcut actions: the installation stage that makes the template's links,
// and the reverse that takes one away again. The link itself is the
// platform's (createShortcut); this unit decides which links are made and
// where, and what the action log says about them.
#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

const char kDefaultDescription[] = "Halvo Works installer shortcut";
const int kArgumentsSize = 4096;
const int kDescriptionSize = 1024;

bool isShortcutType(const char* type) {
  return type && (std::strcmp(type, "File") == 0 || std::strcmp(type, "URL") == 0 ||
                  std::strcmp(type, "Uninstall") == 0 || std::strcmp(type, "Symlink") == 0);
}

// A path as the system writes it: runs of separators made one, each of them
// the system's own.
void systemSeparators(char* path) {
  QUtils::collapseSeparators(path);
  for (char* p = path; *p; p++) {
    if (QUtils::isSeparator(*p)) *p = QUtils::kPathSeparator;
  }
}

}  // namespace

int Installer::applyShortcutActions(QUtils::PConsole* console, InstallerUI* ui) {
  int result = 0;
  for (int element = document.findNext("Shortcuts", -1); element >= 0;
       element = document.findNext("Shortcuts", element)) {
    QUtils::PList<int> children(20);
    document.getChildren(element, &children);
    for (int i = 0; i < children.getCount(); i++) {
      int child = children[i];
      if (QUtils::compareNoCase(document.getName(child), "Add") != 0) continue;
      if (evaluateCondition(document.getAttribute(child, "Condition")) == 0) continue;
      const char* type = document.getAttribute(child, "Type");
      const char* dest = document.getAttribute(child, "Dest");
      const char* target = document.getAttribute(child, "Target");
      const char* name = document.getValue(child);
      if (!isShortcutType(type) || !dest || !name || !*name) continue;
      bool isUrl = std::strcmp(type, "URL") == 0;
      if (std::strcmp(type, "Uninstall") != 0 && !target) continue;

      char directory[QUtils::kMaxPath];
      expandVariables(dest, directory, sizeof directory);
      char separator[2] = {QUtils::kPathSeparator, 0};
      QUtils::appendText(directory, separator, sizeof directory);
      systemSeparators(directory);
      char startPath[QUtils::kMaxPath] = "";
      const char* startText = document.getAttribute(child, "StartPath");
      if (startText) {
        expandVariables(startText, startPath, sizeof startPath);
        systemSeparators(startPath);
      }
      char targetPath[QUtils::kMaxPath] = "";
      if (target) {
        expandVariables(target, targetPath, sizeof targetPath);
        if (!isUrl) systemSeparators(targetPath);
      }
      char arguments[kArgumentsSize] = "";
      const char* argumentText = document.getAttribute(child, "Arguments");
      if (argumentText) expandVariables(argumentText, arguments, sizeof arguments);

      int created = 0;
      if (QUtils::createPath(directory, &created) != 0) {
        log("ERROR: Could not create the directory \"%s\" of a shortcut", directory);
        char message[QUtils::kMaxPath + 64];
        QUtils::boundedFormat(message, sizeof message, "FAILED to create directory %s", directory);
        addError(message);
        if (ui) ui->addFileLine(message, false);
        result = 1;
        break;
      }
      if (created > 0 && console) console->printf("%s%c%d%c%s", kLogDir, kLogTab, created, kLogTab, directory);

      // The link's name is taken as the template writes it, extension and all.
      char linkPath[QUtils::kMaxPath];
      QUtils::copyText(linkPath, directory, sizeof linkPath);
      QUtils::appendText(linkPath, name, sizeof linkPath);

      char description[kDescriptionSize];
      const char* descriptionText = document.getAttribute(child, "Description");
      QUtils::copyText(description, descriptionText ? descriptionText : kDefaultDescription, sizeof description);

      char form[QUtils::kMaxPath + 16];
      if (!createShortcut(type, linkPath, target ? targetPath : nullptr, description,
                          argumentText ? arguments : nullptr, startText ? startPath : nullptr, form, sizeof form, ui)) {
        result = 1;
        break;
      }
      if (console) console->printf("%s%c%s", kLogShortcut, kLogTab, form);
    }
    if (ui) ui->addFileLine(nullptr, true);
  }
  return result;
}

bool Installer::createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                               const char* arguments, const char* startPath, char* out, int outSize, InstallerUI* ui) {
  log("ERROR: Shortcuts of type %s can't be made on this system", type ? type : "(none)");
  return reportShortcut(false, linkPath, out, outSize, ui);
}

bool Installer::reportShortcut(bool made, const char* linkPath, char* out, int outSize, InstallerUI* ui) {
  if (!linkPath) linkPath = "";
  if (out && outSize > 0) {
    if (made)
      QUtils::boundedFormat(out, outSize, "%s%c%s", kLogCreate, kLogTab, linkPath);
    else
      out[0] = 0;
  }
  if (ui) ui->pumpEventsQuietly();
  char message[QUtils::kMaxPath + 64];
  // "Create " keeps its blank, so the line has two in a row.
  QUtils::boundedFormat(message, sizeof message, "%s shortcut %s", made ? "Create " : "FAILED to create ", linkPath);
  if (!made) {
    log("ERROR: %s", message);
    addError(message);
  }
  if (ui) ui->addFileLine(message, false);
  return made;
}

bool Installer::undoShortcut(const char* line, InstallerUI* ui) {
  if (!line) return true;
  size_t modeLength = std::strcspn(line, "\t");
  if (modeLength != std::strlen(kLogCreate) || std::strncmp(line, kLogCreate, modeLength) != 0) return true;
  const char* path = nextLogField(line);

  // The link alone: a symbolic link goes, never what it leads to; the
  // directory it stands in goes by its own DIR line.
  bool removed = *path && (QUtils::isLink(path) || !QUtils::isDirectory(path)) && QUtils::deleteFile(path) == 0;
  if (ui) ui->pumpEventsQuietly();
  char message[QUtils::kMaxPath + 64];
  QUtils::boundedFormat(message, sizeof message, "%s shortcut %s", removed ? "Remove " : "FAILED to remove ", path);
  if (!removed) {
    log("ERROR: %s", message);
    addError(message);
  }
  if (ui) ui->addFileLine(message, false);
  return removed;
}
