// The product's entry in the system's list of installed programs.
//
// The entry is a registry key named after the product below the Uninstall
// key of HKEY_LOCAL_MACHINE. Besides what the user sees (name, version,
// publisher, web address, icon) it holds UninstallString, the command that
// starts the product's uninstaller with its action log; a later installer
// finds the log of an earlier installation by parsing that command. An entry
// without the -uninstall option is therefore no installation of ours.
//
// Nothing here logs or throws: a missing or incomplete entry simply reads as
// "not installed".
#include <cstring>

#include "engine/installer.h"
#include "foundation/text.h"

namespace {

const char kHive[] = "HKEY_LOCAL_MACHINE";
const char kUninstallKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
const char kPublisher[] = "Halvo Software Ltd";
const char kLogOption[] = "-uninstall=\"";

// Field sizes of the values the entry is built from.
const int kCommandSize = 4096;
const int kNameSize = 512;
const int kKeySize = 1024;

// The key of the entry of `name`, its levels separated by single '\' as the
// registry primitives hand them on. A '\' (or '/') in the name names a key
// further down. False for a name that has no level of its own, or a level
// "." or "..", which would name the Uninstall key or one above it.
bool entryKey(const char* name, char* out, int size) {
  if (!name) return false;
  QUtils::copyText(out, kUninstallKey, size);
  int levels = 0;
  const char* p = name;
  while (*p) {
    while (QUtils::isSeparator(*p)) p++;
    const char* start = p;
    while (*p && !QUtils::isSeparator(*p)) p++;
    int length = static_cast<int>(p - start);
    if (length == 0) break;
    if ((length == 1 && start[0] == '.') || (length == 2 && start[0] == '.' && start[1] == '.')) return false;
    int used = static_cast<int>(std::strlen(out));
    if (used + 1 + length >= size) return false;
    out[used] = '\\';
    std::memcpy(out + used + 1, start, static_cast<size_t>(length));
    out[used + 1 + length] = 0;
    levels++;
  }
  return levels > 0;
}

// Paths in the uninstall command are written with the system's separator
// where that is '/': there a '\' is read as a separator by the file layer,
// but a shell running the command would take it for an escape.
void useSystemSeparators(char* path) {
  if (QUtils::kPathSeparator != '/') return;
  for (char* p = path; *p; p++) {
    if (*p == '\\') *p = '/';
  }
}

}  // namespace

bool Installer::getUninstallCommand(char* outProgram, int programSize, char* outArguments, int argumentsSize,
                                    int quoted) {
  if (outProgram && programSize > 0) outProgram[0] = 0;
  if (outArguments && argumentsSize > 0) outArguments[0] = 0;
  char program[kCommandSize];
  char logFile[QUtils::kMaxPath];
  char name[kNameSize];
  if (getUninstallCmd(program, sizeof program) != 0 || getInstallLogFile(logFile, sizeof logFile) != 0 ||
      getProductName(name, sizeof name) != 0) {
    return false;
  }
  useSystemSeparators(program);
  useSystemSeparators(logFile);
  if (outProgram && programSize > 0) {
    QUtils::boundedFormat(outProgram, programSize, quoted ? "\"%s\"" : "%s", program);
  }
  if (outArguments && argumentsSize > 0) {
    QUtils::boundedFormat(outArguments, argumentsSize, "-uninstall=\"%s\" -uninstallApp=\"%s\"", logFile, name);
  }
  return true;
}

bool Installer::registerApplication() {
  char program[kCommandSize];
  char arguments[kCommandSize];
  char name[kNameSize];
  char version[kNameSize];
  char website[kNameSize];
  // A template that doesn't describe the product fully installs without an
  // entry; that is no failure of the installation.
  if (!getUninstallCommand(program, sizeof program, arguments, sizeof arguments, 1) ||
      getProductName(name, sizeof name) != 0 || getVersion(version, sizeof version) != 0 ||
      getWebsite(website, sizeof website) != 0) {
    return true;
  }

  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  // Makes the missing levels (a fresh store may lack the Uninstall key
  // itself); an existing entry is kept and its values overwritten.
  createRegistryKeys(kHive, key);
  if (registry->openKey(kHive, key, true, false) != 0) return false;

  char command[2 * kCommandSize];
  QUtils::boundedFormat(command, sizeof command, "%s %s", program, arguments);
  // Single values that can't be written don't undo the entry.
  setRegistryValue(kHive, key, "REG_SZ", "DisplayIcon", program, nullptr);
  setRegistryValue(kHive, key, "REG_SZ", "DisplayName", name, nullptr);
  setRegistryValue(kHive, key, "REG_SZ", "DisplayVersion", version, nullptr);
  setRegistryValue(kHive, key, "REG_SZ", "HelpLink", website, nullptr);
  setRegistryValue(kHive, key, "REG_SZ", "Publisher", kPublisher, nullptr);
  setRegistryValue(kHive, key, "REG_SZ", "UninstallString", command, nullptr);
  return true;
}

bool Installer::unregisterApplication(const char* name) {
  char key[kKeySize];
  if (!entryKey(name, key, sizeof key)) return false;
  // Only the entry's own key: one that still has sub-keys stays.
  return deleteRegistryKeys(kHive, key, 1) == 1;
}

bool Installer::isApplicationRegistered(const char* name) {
  char product[kNameSize];
  if (!name) {
    if (getProductName(product, sizeof product) != 0) return false;
    name = product;
  }
  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  return registry->openKey(kHive, key, false, false) == 0;
}

bool Installer::getUninstallString(const char* name, char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  if (registry->openKey(kHive, key, false, false) != 0) return false;
  int type = 0;
  uint32_t length = 0;
  QUtils::RefArray<unsigned char> data;
  if (registry->readValue(kHive, key, "UninstallString", false, &type, data, &length) != 0) return false;
  if (type != kRegSz || length > data.getSize()) return false;
  uint32_t count = length < static_cast<uint32_t>(size - 1) ? length : static_cast<uint32_t>(size - 1);
  if (count > 0) std::memcpy(out, data.get(), count);
  out[count] = 0;
  return true;
}

bool Installer::getApplicationLogFile(const char* application, char* buffer, int size) {
  if (!application || !buffer || size < 1) return false;
  buffer[0] = 0;
  char command[kCommandSize];
  if (!getUninstallString(application, command, sizeof command)) return false;
  const char* start = std::strstr(command, kLogOption);
  if (!start) return false;
  start += sizeof kLogOption - 1;
  // Up to the closing quote, or all that follows when there is none.
  const char* end = std::strchr(start, '"');
  int length = end ? static_cast<int>(end - start) : static_cast<int>(std::strlen(start));
  if (length > size - 1) length = size - 1;
  std::memcpy(buffer, start, static_cast<size_t>(length));
  buffer[length] = 0;
  return true;
}
