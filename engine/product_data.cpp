// Product data, the paths of the uninstall data, and the names of the control
// variables, all read from the template.
//
// The product and path values are not copied at load time: each getter looks
// its element up in the document when it is asked. The paths from the root
// are searched with findPath, which passes over a segment that has no match,
// so the "Desc" segment is optional: a ProductDesc right under the root is
// found as well as one inside a Desc element.
#include <cstring>

#include "engine/installer.h"
#include "foundation/text.h"

namespace {

const char kProductPath[] = "HalvoWorksInstallation/Desc/ProductDesc/";
const char kUninstallPath[] = "HalvoWorksInstallation/Installation/Uninstall/";

// The publisher that the list of installed programs shows when the template
// names none.
const char kDefaultPublisher[] = "Halvo Software Ltd";

// The product name and the version are each cut at this many bytes,
// terminator included, when the window title is put together.
const int kTitlePartSize = 200;

// The control variables' tags, in the order of the ControlVariable indices.
const char* const kControlVariableTags[kControlVariableCount] = {
    "PreviousInstallation", "ShouldUninstall", "CustomizeSettings", "ProgressDetails",
    "InstallError",         "UninstallError",  "DlgCondition",
};

// The text of the element at `base` + `child`, or null when the element is
// missing or its text is empty.
const char* findText(const QUtils::PXML& document, const char* base, const char* child) {
  char path[256];
  QUtils::copyText(path, base, sizeof path);
  QUtils::appendText(path, child, sizeof path);
  const char* value = document.getValue(document.findPath(path, -1));
  return value && *value ? value : nullptr;
}

void clearBuffer(char* buffer, int size) {
  if (buffer && size > 0) buffer[0] = 0;
}

// Copies a product value into `buffer`. 0, or -1 with an empty buffer when
// the template has no such value.
int copyProductValue(const QUtils::PXML& document, const char* child, char* buffer, int size) {
  clearBuffer(buffer, size);
  const char* value = findText(document, kProductPath, child);
  if (!value || !buffer) return -1;
  QUtils::copyText(buffer, value, size);
  return 0;
}

}  // namespace

int Installer::readProductDesc() { return document.findNext("ProductDesc", -1) < 0 ? -1 : 0; }

int Installer::getProductName(char* buffer, int size) {
  return copyProductValue(document, "Fullname", buffer, size);
}

int Installer::getMajorVersion(char* buffer, int size) {
  return copyProductValue(document, "MajorVersion", buffer, size);
}

int Installer::getWebsite(char* buffer, int size) { return copyProductValue(document, "Website", buffer, size); }

int Installer::getSupportEmail(char* buffer, int size) {
  return copyProductValue(document, "Supportemail", buffer, size);
}

int Installer::getPublisher(char* buffer, int size) {
  if (copyProductValue(document, "Publisher", buffer, size) == 0) return 0;
  if (!buffer) return -1;
  QUtils::copyText(buffer, kDefaultPublisher, size);
  return 0;
}

int Installer::getHelpUrl(char* buffer, int size) {
  return copyProductValue(document, "InstallHelpURL", buffer, size);
}

int Installer::getBannerText(char* buffer, int size) {
  return copyProductValue(document, isActionLogRun() ? "UninstallBannerText" : "BannerText", buffer, size);
}

// The three parts joined with dots. A missing part ends the text there, with
// what was appended before it left in the buffer.
int Installer::getVersion(char* buffer, int size) {
  clearBuffer(buffer, size);
  if (!buffer) return -1;
  static const char* const kParts[] = {"MajorVersion", "MinorVersion", "MinestVersion"};
  for (int i = 0; i < 3; i++) {
    if (i > 0) QUtils::appendText(buffer, ".", size);
    const char* part = findText(document, kProductPath, kParts[i]);
    if (!part) return -1;
    QUtils::appendText(buffer, part, size);
  }
  return 0;
}

// The Title when the template gives one; else "<name> - ver. <version>", or
// the name alone when the version is incomplete; else "Unknown title" and -1.
// An uninstallation shows UninstallTitle where the template gives one, so
// that the window that removes the product doesn't call itself its setup.
int Installer::getWindowTitle(char* buffer, int size) {
  if (package.actionLogFile && copyProductValue(document, "UninstallTitle", buffer, size) == 0) return 0;
  if (copyProductValue(document, "Title", buffer, size) == 0) return 0;
  if (!buffer) return -1;
  char name[kTitlePartSize];
  if (getProductName(name, sizeof name) != 0) {
    QUtils::copyText(buffer, "Unknown title", size);
    return -1;
  }
  QUtils::copyText(buffer, name, size);
  char version[kTitlePartSize];
  if (getVersion(version, sizeof version) == 0) {
    QUtils::appendText(buffer, " - ver. ", size);
    QUtils::appendText(buffer, version, size);
  }
  return 0;
}

// ---- Uninstall data: path texts with [NAME] references, expanded at each call ----

namespace {

int expandUninstallValue(Installer* engine, const char* child, char* buffer, int size) {
  clearBuffer(buffer, size);
  const char* value = findText(engine->document, kUninstallPath, child);
  if (!value || !buffer) return -1;
  engine->expandVariables(value, buffer, size);
  return 0;
}

}  // namespace

int Installer::getInstallLogFile(char* buffer, int size) {
  return expandUninstallValue(this, "InstallLogFile", buffer, size);
}

int Installer::getInstallBackupFile(char* buffer, int size) {
  return expandUninstallValue(this, "InstallBackupFile", buffer, size);
}

int Installer::getUninstallCmd(char* buffer, int size) {
  return expandUninstallValue(this, "UninstallCmd", buffer, size);
}

int Installer::getUninstallXmlFile(char* buffer, int size) {
  return expandUninstallValue(this, "UninstallXmlFile", buffer, size);
}

// ---- Control variables ----

// Each tag's text names the template variable that the engine writes for
// that purpose. A missing or empty tag leaves the name empty, which makes
// writing that variable a no-op; the reading goes on after a warning.
int Installer::readControlVariables() {
  std::memset(controlVariables, 0, sizeof controlVariables);
  int section = document.findNext("InstallerControlVariables", -1);
  if (section < 0) return 1;
  for (int i = 0; i < kControlVariableCount; i++) {
    const char* tag = kControlVariableTags[i];
    int child = document.findNextChild(section, tag, -1);
    if (child < 0) {
      log("WARNING: Missing control variable specifier in the installation template. (tag %s)", tag);
      continue;
    }
    const char* name = document.getValue(child);
    if (!name || !*name) {
      log("WARNING: Missing tag data for variable specifier in the installation template. (tag %s)", tag);
      continue;
    }
    QUtils::copyText(controlVariables[i], name, sizeof controlVariables[i]);
  }
  return 0;
}

void Installer::setControlVariable(ControlVariable which, const char* value) {
  if (which < 0 || which >= kControlVariableCount || !controlVariables[which][0]) return;
  setVariable(controlVariables[which], value);
}
