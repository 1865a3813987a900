// What an installer does when its product is installed already, in the
// same version or a newer one. Without a word in the template a newer
// version is never replaced by an older one: that is what an administrator
// who pushes an old installer to a machine that got a newer one by other
// means expects, and a downgrade that a product can bear is allowed by its
// template. The same version is installed again unless the template says
// that there is nothing to do then.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/exit_codes.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

namespace {

const char kProductPath[] = "/HalvoWorksInstallation/ProductDesc";

// The policy attribute `name` of ProductDesc, or `fallback`.
const char* policyOf(const QUtils::PXML& document, const char* name, const char* fallback) {
  int product = document.findPath(kProductPath, -1);
  const char* value = product >= 0 ? document.getAttribute(product, name) : nullptr;
  return value && *value ? value : fallback;
}

// Moves `p` past one part of a dotted version and gives the part.
std::string nextPart(const char** p) {
  const char* start = *p;
  while (**p && **p != '.') (*p)++;
  std::string part(start, static_cast<size_t>(*p - start));
  if (**p == '.') (*p)++;
  return part;
}

bool isNumber(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

}  // namespace

int Installer::compareVersions(const char* a, const char* b) {
  const char* p = a ? a : "";
  const char* q = b ? b : "";
  while (*p || *q) {
    std::string left = nextPart(&p);
    std::string right = nextPart(&q);
    if (left.empty()) left = "0";
    if (right.empty()) right = "0";
    int order;
    if (isNumber(left) && isNumber(right)) {
      unsigned long long x = std::strtoull(left.c_str(), nullptr, 10);
      unsigned long long y = std::strtoull(right.c_str(), nullptr, 10);
      order = x < y ? -1 : x > y ? 1 : 0;
    } else {
      int c = left.compare(right);
      order = c < 0 ? -1 : c > 0 ? 1 : 0;
    }
    if (order != 0) return order;
  }
  return 0;
}

int Installer::applyUpgradePolicy(InstallerUI* ui) {
  if (!previousInstallationFound) return 0;
  char product[512];
  char version[128];
  char installed[128];
  if (getProductName(product, sizeof product) != 0 || getVersion(version, sizeof version) != 0 ||
      !getEntryText(product, "DisplayVersion", installed, sizeof installed) || !installed[0]) {
    return 0;  // without both versions there is nothing to compare
  }
  note("Installed version: %s %s; this installer: %s", product, installed, version);
  int order = compareVersions(installed, version);
  char message[1024];
  if (order > 0 && QUtils::compareNoCase(policyOf(document, "IfNewerInstalled", "Refuse"), "Allow") != 0) {
    QUtils::boundedFormat(message, sizeof message,
                          "%s %s is installed, which is newer than %s, the version of this installer. The older "
                          "version is not installed over it; remove the newer one first to install it.",
                          product, installed, version);
    if (ui) ui->showMessage(message, kMessageNotice);
    stopRun(kExitBadUsage, "refused: %s %s is installed, newer than this installer's %s", product, installed,
            version);
    return -1;
  }
  if (order == 0 && QUtils::compareNoCase(policyOf(document, "IfSameInstalled", "Reinstall"), "Skip") == 0) {
    QUtils::boundedFormat(message, sizeof message, "%s %s is installed already; there is nothing to do.", product,
                          version);
    if (ui) ui->showMessage(message, kMessageNotice);
    stopRun(kExitSuccess, "nothing to do: %s %s is installed already", product, version);
    return -1;
  }
  return 0;
}
