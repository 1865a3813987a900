// The product's entry in the system's list of installed programs.
//
// The entry is a registry key named after the product below the Uninstall
// key of HKEY_LOCAL_MACHINE. Besides what the user sees (name, version,
// publisher, web address, icon, folder, size) it holds UninstallString, the
// command that starts the product's uninstaller with its action log; a later
// installer finds the log of an earlier installation by parsing that
// command. An entry without the -uninstall option is therefore no
// installation of ours. QuietUninstallString is the same command for a run
// without a window or questions; NoModify and NoRepair tell the system's
// list that the product offers only removal.
//
// Nothing here logs or throws: a missing or incomplete entry simply reads as
// "not installed".
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "engine/installer.h"
#include "foundation/command_line.h"
#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

const char kHive[] = "HKEY_LOCAL_MACHINE";
const char kUninstallKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
const char kLogOption[] = "-uninstall=";
// Where the system keeps the program directory's path.
const char kProgramFilesKey[] = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
// The options that make the uninstaller run without its window and without
// questions, and give its result as the exit code of the command itself.
const char kQuietOptions[] = " -gui=0 -quiet=1 -wait";
// The name by which the system starts a program may leave out this ending
// (Windows adds it); the icon must name the file itself.
const char kProgramEnding[] = ".exe";

// Field sizes of the values the entry is built from.
const int kCommandSize = 4096;
const int kNameSize = 512;
const int kKeySize = 1024;

// The key of the entry of `name`, its levels separated by single '\' as the
// registry primitives hand them on. A '\' in the name names a key further
// down, as in the registry; a '/' is part of the name ("Tools/Extra" is one
// key). False for a name that has no level of its own, or a level "." or
// "..", which would name the Uninstall key or one above it.
bool entryKey(const char* name, char* out, int size) {
  if (!name) return false;
  QUtils::copyText(out, kUninstallKey, size);
  int levels = 0;
  const char* p = name;
  while (*p) {
    while (*p == '\\') p++;
    const char* start = p;
    while (*p && *p != '\\') p++;
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

// Makes the entry's key with every missing level above it (a fresh store
// may lack the Uninstall key itself); an existing key is kept. True if the
// key is there.
bool makeKey(RegistryAccess* registry, const char* key) {
  if (registry->openKey(kHive, key, true, false) == 0) return true;
  for (const char* p = key;; p++) {
    if (*p && *p != '\\') continue;
    std::string level(key, static_cast<size_t>(p - key));
    // A level that can't be made shows in the check of the whole key.
    registry->createKey(kHive, level.c_str(), nullptr);
    if (!*p) break;
  }
  return registry->openKey(kHive, key, true, false) == 0;
}

// Values of the entry. Ignoring the results on purpose: a value that can't
// be written leaves the rest of the entry standing.
void writeText(RegistryAccess* registry, const char* key, const char* name, const char* text) {
  registry->writeValue(kHive, key, name, kRegSz, reinterpret_cast<const unsigned char*>(text),
                       static_cast<uint32_t>(std::strlen(text)));
}

void writeDword(RegistryAccess* registry, const char* key, const char* name, uint32_t value) {
  const unsigned char bytes[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                  static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
  registry->writeValue(kHive, key, name, kRegDword, bytes, 4);
}

// Paths in the uninstall command are written with the system's separator
// where that is '/': there a '\' is read as a separator by the file layer,
// and '/' keeps the command as the system's own tools show paths.
void useSystemSeparators(char* path) {
  if (QUtils::kPathSeparator != '/') return;
  for (char* p = path; *p; p++) {
    if (*p == '\\') *p = '/';
  }
}

// What the entry tells of the installed files, read from the action log:
// their total size and the deepest folder that holds them all.
struct InstalledFiles {
  uint64_t bytes = 0;
  int count = 0;
  char folder[QUtils::kMaxPath] = "";
};

// Shrinks `folder` to the part it shares with the folder of the file
// `path`, cut at a separator; the two kinds of separator count as one.
void shareFolder(char* folder, const char* path) {
  size_t pathFolder = 0;  // the separator before the file's own name
  for (size_t i = 0; path[i]; i++)
    if (QUtils::isSeparator(path[i])) pathFolder = i;
  size_t i = 0;
  size_t lastShared = 0;
  for (; folder[i] && i <= pathFolder; i++) {
    bool separators = QUtils::isSeparator(folder[i]) && QUtils::isSeparator(path[i]);
    if (!separators && folder[i] != path[i]) break;
    if (separators) lastShared = i;
  }
  bool whole = folder[i] == 0 && (i == pathFolder || QUtils::isSeparator(path[i]));
  if (!whole) folder[lastShared] = 0;
}

// Reads the FILE lines of the log at `logPath`. False if it can't be read.
bool readInstalledFiles(const char* logPath, InstalledFiles* out) {
  FILE* log = QUtils::openFile(logPath, "rb");
  if (!log) return false;
  Installer::seekActionLines(log);  // without a variable block every line may be an action
  QUtils::PFileStream probe;
  char line[Installer::kLogLineSize];
  while (Installer::readLogLine(log, line, sizeof line)) {
    Installer::stripLogLine(line);
    if (!Installer::hasLogTag(line, Installer::kLogFile) || line[std::strlen(Installer::kLogFile)] != '\t') continue;
    const char* path = Installer::nextLogField(Installer::nextLogField(line));
    if (!*path) continue;
    int64_t size = probe.fileSize(path);
    if (size > 0) out->bytes += static_cast<uint64_t>(size);
    if (out->count++ == 0) {
      QUtils::copyText(out->folder, path, sizeof out->folder);
      // The file's own name goes; the first file's folder is the start.
      char* cut = out->folder;
      for (char* p = out->folder; *p; p++)
        if (QUtils::isSeparator(*p)) cut = p;
      *cut = 0;
    } else {
      shareFolder(out->folder, path);
    }
  }
  std::fclose(log);
  return true;
}

// Whether `folder` is fit to be named as the product's own: a folder below a
// root that is neither the program directory nor one that holds it. Files in
// two folders of the program directory share only that directory, which is
// no product's own.
bool isOwnFolder(const char* folder, const char* programFiles) {
  const char* separator = std::strpbrk(folder, "/\\");
  if (!separator || !separator[1]) return false;  // a root, or no folder at all
  if (!programFiles || !*programFiles) return true;
  std::string holder = programFiles;
  while (!holder.empty()) {
    if (QUtils::isSamePath(folder, holder.c_str())) return false;
    size_t cut = holder.find_last_of("/\\");
    holder.resize(cut == std::string::npos ? 0 : cut);
  }
  return true;
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
  // Each value is quoted by the rules that the command is split with
  // (command_line.h), so that a '"' or '\' in a folder or product name
  // reaches the uninstaller as it stands.
  if (outProgram && programSize > 0)
    QUtils::copyText(outProgram, quoted ? QUtils::quoteCommandWord(program).c_str() : program, programSize);
  if (outArguments && argumentsSize > 0) {
    std::string arguments = std::string(kLogOption) + QUtils::quoteCommandWord(logFile) +
                            " -uninstallApp=" + QUtils::quoteCommandWord(name);
    QUtils::copyText(outArguments, arguments.c_str(), argumentsSize);
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
  if (!getUninstallCommand(program, sizeof program, arguments, sizeof arguments, 0) ||
      getProductName(name, sizeof name) != 0 || getVersion(version, sizeof version) != 0 ||
      getWebsite(website, sizeof website) != 0) {
    return true;
  }

  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  // The key goes straight to the registry, not through the template's
  // registry primitives: those read a '/' as a separator, and in the
  // product's name it is none.
  if (!makeKey(registry, key)) return false;

  char command[2 * kCommandSize + sizeof kQuietOptions];
  QUtils::boundedFormat(command, sizeof command, "\"%s\" %s", program, arguments);
  char icon[kCommandSize + sizeof kProgramEnding + 2];
  QUtils::boundedFormat(icon, sizeof icon, "\"%s\"", program);
  // The command may name the uninstaller without the ending the system
  // adds when it starts it; the icon is read from the file itself.
  char withEnding[kCommandSize + sizeof kProgramEnding];
  if (QUtils::boundedFormat(withEnding, sizeof withEnding, "%s%s", program, kProgramEnding) > 0 &&
      !QUtils::fileExists(program) && QUtils::fileExists(withEnding)) {
    QUtils::boundedFormat(icon, sizeof icon, "\"%s\"", withEnding);
  }
  char publisher[kNameSize];
  getPublisher(publisher, sizeof publisher);

  // Single values that can't be written don't undo the entry.
  writeText(registry, key, "DisplayIcon", icon);
  writeText(registry, key, "DisplayName", name);
  writeText(registry, key, "DisplayVersion", version);
  writeText(registry, key, "HelpLink", website);
  writeText(registry, key, "Publisher", publisher);
  writeText(registry, key, "UninstallString", command);
  QUtils::appendText(command, kQuietOptions, sizeof command);
  writeText(registry, key, "QuietUninstallString", command);
  writeDword(registry, key, "NoModify", 1);
  writeDword(registry, key, "NoRepair", 1);

  // Size and folder come from the files that the action log names; a log
  // that can't be read leaves both out rather than telling something wrong.
  char logFile[QUtils::kMaxPath];
  InstalledFiles files;
  if (getInstallLogFile(logFile, sizeof logFile) == 0 && readInstalledFiles(logFile, &files)) {
    // Kilobytes, rounded up, as a DWORD.
    uint64_t kilobytes = (files.bytes + 1023) / 1024;
    writeDword(registry, key, "EstimatedSize",
               static_cast<uint32_t>(kilobytes > 0xFFFFFFFFull ? 0xFFFFFFFFull : kilobytes));
    char programFiles[QUtils::kMaxPath];
    if (readRegistryValue(kHive, kProgramFilesKey, "ProgramFilesDir", programFiles, sizeof programFiles, false) != 0)
      programFiles[0] = 0;
    if (files.count > 0 && isOwnFolder(files.folder, programFiles)) {
      // The log keeps the separators that the template wrote; the folder is
      // given in the system's own.
      for (char* p = files.folder; *p; p++)
        if (QUtils::isSeparator(*p)) *p = QUtils::kPathSeparator;
      writeText(registry, key, "InstallLocation", files.folder);
    }
  }
  return true;
}

bool Installer::unregisterApplication(const char* name) {
  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  // Only the entry's own key: one that still has sub-keys stays.
  return registry->deleteKey(kHive, key) == 0;
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
  return getEntryText(name, "UninstallString", out, size);
}

bool Installer::getEntryText(const char* name, const char* valueName, char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  RegistryAccess* registry = getRegistry();
  char key[kKeySize];
  if (!registry || !entryKey(name, key, sizeof key)) return false;
  if (registry->openKey(kHive, key, false, false) != 0) return false;
  int type = 0;
  uint32_t length = 0;
  QUtils::RefArray<unsigned char> data;
  if (registry->readValue(kHive, key, valueName, false, &type, data, &length) != 0) return false;
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
  // The command's words as the uninstaller receives them: the option's value
  // has its quotes removed, or is all that follows when one isn't closed.
  std::vector<std::string> words = QUtils::splitCommandLine(command);
  for (size_t i = 1; i < words.size(); i++) {
    if (words[i].compare(0, sizeof kLogOption - 1, kLogOption) != 0) continue;
    QUtils::copyText(buffer, words[i].c_str() + sizeof kLogOption - 1, size);
    return true;
  }
  return false;
}
