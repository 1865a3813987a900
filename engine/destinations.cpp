// Destination checks: before an installation changes anything, every place
// it will write to must be a whole, absolute path. A folder variable that a
// stray '$' in a configuration file emptied, or a relative answer, would
// otherwise turn "[INSTALLDIR]/bin" into "/bin" or into a folder below the
// working directory, and the uninstallation would later delete from there.
// The same rules judge a folder that a user types, so that the console and
// the window refuse it before the run gets that far.
#include <cstring>
#include <string>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// Where the template names the places of the installation's own records.
const char* const kRecordElements[] = {"InstallLogFile", "InstallBackupFile", "UninstallXmlFile", "UninstallCmd"};

bool hasControlCharacter(const char* text) {
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++)
    if (*p < 0x20 || *p == 0x7f) return true;
  return false;
}

// A folder's name can't hold what would break the lines it is written into:
// control characters (the action log's lines, the journal's), and double
// quotes, which no Windows name may hold and which end the quoted word of
// a command line that names the folder.
bool hasForbiddenCharacter(const char* text) { return hasControlCharacter(text) || std::strchr(text, '"'); }

// The name of the variable that `text` begins with ("[NAME]..."), or empty.
std::string leadingVariable(const char* text) {
  if (!text || text[0] != '[') return std::string();
  const char* end = std::strchr(text + 1, ']');
  return end ? std::string(text + 1, static_cast<size_t>(end - text - 1)) : std::string();
}

}  // namespace

bool Installer::isUsableFolder(const char* path, char* reason, int size) {
  const char* problem = nullptr;
  if (!path || !path[0])
    problem = "A folder must be given";
  else if (hasForbiddenCharacter(path))
    problem = "A folder can't hold double quotes, line breaks, TABs or other control characters";
  else if (!QUtils::isAbsolutePath(path))
    problem = "The folder must be a whole path from the root of a drive or of the file system";
  else if (QUtils::isSystemDirectory(path))
    problem = "The folder is a root or a folder of the system itself; choose a folder of its own";
  if (problem && reason && size > 0) QUtils::copyText(reason, problem, size);
  return problem == nullptr;
}

bool Installer::checkDestinationText(const char* text, const char* what, char* reason, int size) {
  // The variable that a path begins with is its base: empty or relative, it
  // would make the path something else than the template means.
  std::string name = leadingVariable(text);
  if (!name.empty()) {
    char value[QUtils::kMaxPath];
    if (getVariable(name.c_str(), value, sizeof value) >= 0) {
      if (!value[0]) {
        QUtils::boundedFormat(reason, size, "The folder variable %s is empty", name.c_str());
        return false;
      }
      if (hasForbiddenCharacter(value) || !QUtils::isAbsolutePath(value) || QUtils::isRootPath(value)) {
        QUtils::boundedFormat(reason, size, "The folder variable %s is no usable folder: \"%s\"", name.c_str(),
                              value);
        return false;
      }
    }
  }
  char expanded[QUtils::kMaxPath];
  expandVariables(text, expanded, sizeof expanded);
  if (hasControlCharacter(expanded) || !QUtils::isAbsolutePath(expanded)) {
    QUtils::boundedFormat(reason, size, "The destination \"%s\" of %s is not a whole path", expanded, what);
    return false;
  }
  return true;
}

int Installer::checkDestinations(InstallerUI* ui) {
  char reason[QUtils::kMaxPath + 200];
  bool usable = true;
  for (int i = 0; i < fileNames.getCount() && usable; i++) {
    const FILENAMES& entry = fileNames[i];
    if (!entry.dest[0]) continue;  // a package item only
    if (entry.condition[0] && !evaluateCondition(entry.condition)) continue;
    if (entry.fileSet >= 0 && entry.fileSet < fileSets.getCount()) {
      const char* setCondition = fileSets[entry.fileSet].condition;
      if (setCondition[0] && !evaluateCondition(setCondition)) continue;
    }
    char what[300];
    QUtils::boundedFormat(what, sizeof what, "the file %s", entry.alias);
    usable = checkDestinationText(entry.dest, what, reason, sizeof reason);
  }
  for (const char* element : kRecordElements) {
    if (!usable) break;
    char path[200];
    QUtils::boundedFormat(path, sizeof path, "HalvoWorksInstallation/Installation/Uninstall/%s", element);
    const char* text = document.getValue(document.findPath(path, -1));
    if (text && text[0]) usable = checkDestinationText(text, element, reason, sizeof reason);
  }
  if (usable) return 0;

  // Told once: the page that removes an older installation and the file
  // stage both ask.
  if (destinationsRefused) return -1;
  destinationsRefused = true;
  QUtils::appendText(reason, ": nothing was installed or removed.", sizeof reason);
  log("ERROR: %s", reason);
  addError(reason);
  if (ui) {
    ui->setDestinationText("There were errors during the installation.");
    ui->showMessage(reason, kMessageNotice);
  }
  return -1;
}
