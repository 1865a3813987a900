// The action log: writing it while an installation runs, putting it in its
// place at the end, rewriting its variable block with the final values, and
// reading the values back for an uninstallation or a later installation.
//
// Every line is written through actionLogWriter, whose lines end in CR LF
// and are cut at 1,023 characters. Each line goes to the file as it is
// printed (the writer's stream keeps no buffer of its own), so a process
// that is killed leaves every line that it printed. Readers strip
// whatever white space ends a line. The variable block is scanned with
// "NUMVARS TAB %i" and "VAR TAB %[^TAB] TAB %[^TAB]", so a value is cut at
// its first TAB, and a value that is empty (or only white space) doesn't
// scan at all.
#include <cstdio>
#include <cstring>

#include "engine/installer.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// Scan limits of a VAR line: a name holds up to 1,023 characters and a value
// up to 1,559.
const int kLogNameSize = 1024;
const int kLogValueSize = 1560;
// The name of the rewrite's temporary file, beside the log.
const char kRewriteFileName[] = "templog.log";

// The scan formats of the variable block: "NUMVARS\t%i" and
// "VAR\t%1023[^\t]\t%1559[^\t]".
struct BlockFormats {
  BlockFormats() {
    QUtils::boundedFormat(count, sizeof count, "%s%c%%i", Installer::kLogNumVars, Installer::kLogTab);
    QUtils::boundedFormat(variable, sizeof variable, "%s%c%%%d[^%c]%c%%%d[^%c]", Installer::kLogVar, Installer::kLogTab,
                          kLogNameSize - 1, Installer::kLogTab, Installer::kLogTab, kLogValueSize - 1,
                          Installer::kLogTab);
  }
  char count[32];
  char variable[64];
};

// Reads lines until one holds NUMVARS anywhere; false at the end of the file.
bool findCountLine(FILE* file, char* line, int size) {
  while (Installer::readLogLine(file, line, size)) {
    if (std::strstr(line, Installer::kLogNumVars)) return true;
  }
  return false;
}

// Closes a file when the scope ends, unless it was released.
class FileCloser {
 public:
  explicit FileCloser(FILE* file) : file(file) {}
  ~FileCloser() {
    if (file) std::fclose(file);
  }
  FileCloser(const FileCloser&) = delete;
  FileCloser& operator=(const FileCloser&) = delete;
  int close() {
    int result = file ? std::fclose(file) : 0;
    file = nullptr;
    return result;
  }

 private:
  FILE* file;
};

// Copies the bytes from `from` up to `to` (or the end, for -1) of `in` to
// `out`. False on a read or write failure.
bool copyRange(FILE* in, long from, long to, FILE* out) {
  if (std::fseek(in, from, SEEK_SET) != 0) return false;
  char block[4096];
  long left = to < 0 ? -1 : to - from;
  while (left != 0) {
    size_t want = sizeof block;
    if (left > 0 && static_cast<long>(want) > left) want = static_cast<size_t>(left);
    size_t got = std::fread(block, 1, want, in);
    if (got == 0) break;
    if (std::fwrite(block, 1, got, out) != got) return false;
    if (left > 0) left -= static_cast<long>(got);
  }
  return !std::ferror(in);
}

// The indexes of the variables that go to the log, in table order.
void loggedVariables(Installer& engine, QUtils::PList<int>* out) {
  for (int i = 0; i < engine.variables.getCount(); i++) {
    if (engine.isVariableIncluded(engine.variables[i].name, kExcludeFromLog)) out->add(i);
  }
}

}  // namespace

// ---- Line helpers ----

bool Installer::readLogLine(FILE* file, char* buffer, int size) {
  if (!file || !buffer || size < 2) return false;
  // Cleared first, so that a line end found below was read by this call even
  // when a damaged line holds a zero byte before it.
  std::memset(buffer, 0, static_cast<size_t>(size));
  if (!std::fgets(buffer, size, file)) {
    buffer[0] = 0;
    return false;
  }
  if (!std::memchr(buffer, '\n', static_cast<size_t>(size - 1))) {
    // An overlong line: the rest of it is not a line of its own.
    int c;
    while ((c = std::fgetc(file)) != EOF && c != '\n') {
    }
  }
  return true;
}

void Installer::stripLogLine(char* line) {
  if (!line) return;
  size_t length = std::strlen(line);
  while (length > 0 && (line[length - 1] == ' ' || line[length - 1] == '\t' || line[length - 1] == '\r' ||
                        line[length - 1] == '\n' || line[length - 1] == '\v' || line[length - 1] == '\f'))
    line[--length] = 0;
}

bool Installer::hasLogTag(const char* line, const char* tag) {
  return line && tag && std::strncmp(line, tag, std::strlen(tag)) == 0;
}

const char* Installer::nextLogField(const char* field) {
  if (!field) return nullptr;
  const char* tab = std::strchr(field, kLogTab);
  if (!tab) return field + std::strlen(field);
  while (*tab == kLogTab) tab++;
  return tab;
}

bool Installer::seekActionLines(FILE* file) {
  if (!file || std::fseek(file, 0, SEEK_SET) != 0) return false;
  BlockFormats formats;
  char line[kLogLineSize];
  while (readLogLine(file, line, sizeof line)) {
    int count = 0;
    if (std::sscanf(line, formats.count, &count) != 1) continue;
    bool complete = true;
    for (int i = 0; i < count && complete; i++) complete = readLogLine(file, line, sizeof line);
    if (complete) return true;
    break;
  }
  // No block, or one cut short: every line may be an action.
  std::fseek(file, 0, SEEK_SET);
  return false;
}

// ---- Writing ----

int Installer::openActionLog(char* tempLog, int tempLogSize, char* tempBackup, int tempBackupSize) {
  if (!tempLog || tempLogSize < 1 || !tempBackup || tempBackupSize < 1) return -1;
  tempLog[0] = tempBackup[0] = 0;
  if (getTempFileName(tempLog, tempLogSize) != 0 || !tempLog[0]) {
    log("ERROR: Could not obtain a temporary name for the action log");
    return -1;
  }
  if (getTempFileName(tempBackup, tempBackupSize) != 0 || !tempBackup[0]) {
    log("ERROR: Could not obtain a temporary name for the backup file");
    QUtils::deleteFile(tempLog);
    tempLog[0] = tempBackup[0] = 0;
    return -1;
  }
  // The journal names both files before either is written: from here on, a
  // process that is killed leaves work that the next run can undo.
  Journal& record = beginJournal(Journal::kInstall);
  record.log = tempLog;
  record.backup = tempBackup;
  char path[QUtils::kMaxPath];
  if (getInstallLogFile(path, sizeof path) == 0) record.finalLog = path;
  if (getInstallBackupFile(path, sizeof path) == 0) record.finalBackup = path;
  saveJournal(Journal::kWorking);
  if (actionLogWriter.open(tempLog, 0) != 0) {
    log("ERROR: Could not create the action log \"%s\"", tempLog);
    QUtils::deleteFile(tempBackup);
    return -1;
  }

  // A missing path writes an empty header line: the lines keep their places.
  char header[QUtils::kMaxPath];
  getUninstallXmlFile(header, sizeof header);
  actionLogWriter.printf("%s", header);
  getInstallBackupFile(header, sizeof header);
  actionLogWriter.printf("%s", header);
  writeVariableBlock(&actionLogWriter);
  return 0;
}

int Installer::placeActionLog(const char* tempLog) {
  actionLogWriter.close();
  if (!tempLog || !*tempLog) return -1;
  // A log that can't reach its place stays on its temporary file while this
  // run keeps a journal that names it: a revert, or a later run, undoes the
  // installation from there.
  bool keep = !journal.file.empty();
  char target[QUtils::kMaxPath];
  if (getInstallLogFile(target, sizeof target) != 0 || !target[0]) {
    log("ERROR: Obtaining actionlog filename");
    if (!keep) QUtils::deleteFile(tempLog);
    return -1;
  }
  // The template lists the log as a placeholder file of its own; the log
  // takes its place.
  QUtils::deleteFile(target);
  int result = 0;
  if (QUtils::renameFile(tempLog, target) != 0) {
    // A rename can't cross volumes: the temporary directory may lie on
    // another one than the installation.
    if (!copyFile(tempLog, target)) {
      log("ERROR: Could not move the action log to \"%s\"", target);
      // Half a log would be taken for the whole one.
      QUtils::deleteFile(target);
      result = -1;
    }
  }
  if (result != 0 && keep) return result;
  if (QUtils::fileExists(tempLog)) QUtils::deleteFile(tempLog);
  return result;
}

int Installer::beginActionLogGroup() {
  if (actionLogWriter.isOpen()) return 0;
  char path[QUtils::kMaxPath];
  if (getInstallLogFile(path, sizeof path) != 0 || !path[0]) return -1;
  if (actionLogWriter.open(path, 1) != 0) return -1;
  return 1;
}

void Installer::endActionLogGroup(int opened) {
  if (opened == 1) actionLogWriter.close();
}

void Installer::logAction(const char* tag, const char* rest) {
  actionLogWriter.printf("%s%c%s", tag ? tag : "", kLogTab, rest ? rest : "");
}

void Installer::logDirAction(int created, const char* directory) {
  if (created < 1) return;
  actionLogWriter.printf("%s%c%d%c%s", kLogDir, kLogTab, created, kLogTab, directory ? directory : "");
}

void Installer::logFileAction(const char* mode, const char* path) {
  actionLogWriter.printf("%s%c%s%c%s", kLogFile, kLogTab, mode ? mode : "", kLogTab, path ? path : "");
}

void Installer::logFirewallAction(const char* kind, const char* text) {
  actionLogWriter.printf("%s%c%s%c%s", kLogFirewall, kLogTab, kind ? kind : "", kLogTab, text ? text : "");
}

void Installer::logRegKeyAction(int created, const char* place, const char* path) {
  if (created < 1) return;
  actionLogWriter.printf("%s%c%d%c%s%c%s", kLogRegKey, kLogTab, created, kLogTab, place ? place : "", kLogTab,
                         path ? path : "");
}

void Installer::logRegValAction(const char* place, const char* path, const char* name) {
  actionLogWriter.printf("%s%c%s%c%s%c%s", kLogRegVal, kLogTab, place ? place : "", kLogTab, path ? path : "", kLogTab,
                         name ? name : "");
}

int Installer::writeVariableBlock(QUtils::PConsole* console) {
  if (!console) return 0;
  QUtils::PList<int> included(100);
  loggedVariables(*this, &included);
  console->printf("%s%c%i", kLogNumVars, kLogTab, included.getCount());
  for (int k = 0; k < included.getCount(); k++) {
    const VARIABLE& record = variables[included[k]];
    console->printf("%s%c%s%c%s", kLogVar, kLogTab, record.name, kLogTab, record.value);
  }
  return 0;
}

void Installer::rewriteVariableBlock() {
  char path[QUtils::kMaxPath];
  if (getInstallLogFile(path, sizeof path) != 0 || !path[0])
    throw QUtils::InstallerError("ERROR: Obtaining actionlog filename");
  FILE* in = QUtils::openFile(path, "rb");
  if (!in) throw QUtils::InstallerError("ERROR: Opening action file");
  FileCloser closeIn(in);

  char tempPath[QUtils::kMaxPath];
  QUtils::copyText(tempPath, path, sizeof tempPath);
  char* cut = tempPath + std::strlen(tempPath);
  while (cut > tempPath && !QUtils::isSeparator(cut[-1])) cut--;
  *cut = 0;
  QUtils::appendText(tempPath, kRewriteFileName, sizeof tempPath);
  FILE* out = QUtils::openFile(tempPath, "wb");
  if (!out) throw QUtils::InstallerError("ERROR: Creating temp file for new log");
  FileCloser closeOut(out);

  // Find the block: the count line, then the VAR lines behind it. The log
  // must go on behind the block, so the end of the file in either place
  // means there is nothing to rewrite.
  char line[kLogBlockLineSize];
  long blockStart = 0;
  bool found = false;
  for (;;) {
    blockStart = std::ftell(in);
    if (!readLogLine(in, line, sizeof line)) break;
    if (std::strstr(line, kLogNumVars)) {
      found = true;
      break;
    }
  }
  long blockEnd = -1;
  if (found) {
    for (;;) {
      long position = std::ftell(in);
      if (!readLogLine(in, line, sizeof line)) break;
      if (!hasLogTag(line, kLogVar)) {
        blockEnd = position;
        break;
      }
    }
  }
  if (blockEnd < 0) {
    closeOut.close();
    QUtils::deleteFile(tempPath);
    throw QUtils::InstallerError("ERROR: No variables in action file");
  }

  bool ok = copyRange(in, 0, blockStart, out);
  QUtils::PList<int> included(100);
  loggedVariables(*this, &included);
  QUtils::boundedFormat(line, sizeof line, "%s%c%i\r\n", kLogNumVars, kLogTab, included.getCount());
  ok = ok && std::fputs(line, out) >= 0;
  for (int k = 0; k < included.getCount() && ok; k++) {
    const VARIABLE& record = variables[included[k]];
    // Cut a long line before its end, never through it: a line without its
    // CR LF would swallow the next one.
    QUtils::boundedFormat(line, sizeof line - 2, "%s%c%s%c%s", kLogVar, kLogTab, record.name, kLogTab, record.value);
    QUtils::appendText(line, "\r\n", sizeof line);
    ok = std::fputs(line, out) >= 0;
  }
  ok = ok && copyRange(in, blockEnd, -1, out);
  closeIn.close();
  if (closeOut.close() != 0) ok = false;
  if (!ok || QUtils::replaceFile(tempPath, path) != 0) {
    QUtils::deleteFile(tempPath);
    throw QUtils::InstallerError("ERROR: Writing new action file \"%s\"", path);
  }
}

// ---- Reading ----

int Installer::readLogVariables(FILE* file) {
  if (!file) throw QUtils::InstallerError("ERROR: Invalid file handle for reading values from log!");
  if (std::fseek(file, 0, SEEK_SET) != 0)
    throw QUtils::InstallerError("ERROR: The file handle for reading values from log could not be reset!");
  BlockFormats formats;
  char line[kLogBlockLineSize];
  if (!findCountLine(file, line, sizeof line))
    throw QUtils::InstallerError("ERROR: No variable number found in the provided log file!");
  int count = 0;
  if (std::sscanf(line, formats.count, &count) != 1)
    throw QUtils::InstallerError("ERROR: Error parsing the number of variables in log file!");
  if (count < 1) return 0;

  int errors = 0;
  char name[kLogNameSize];
  char value[kLogValueSize];
  for (int i = 0; i < count; i++) {
    if (!readLogLine(file, line, sizeof line))
      throw QUtils::InstallerError("ERROR: Encountered EOF before expected number of variables (%d)!", count);
    stripLogLine(line);
    if (std::sscanf(line, formats.variable, name, value) == 2) {
      setVariable(name, value);
    } else {
      log("ERROR: Format error in variable format in log file (Read buff: %s)", line);
      errors++;
    }
  }
  return errors ? 1 : 0;
}

void Installer::loadLogVariables(const char* path) {
  char found[QUtils::kMaxPath];
  if (!path) {
    char product[512];
    if (getProductName(product, sizeof product) != 0) throw QUtils::InstallerError("ERROR: Obtaining app name");
    if (!getApplicationLogFile(product, found, sizeof found))
      throw QUtils::InstallerError("ERROR: Obtaining actionlog filename");
    path = found;
  }
  FILE* file = QUtils::openFile(path, "rb");
  if (!file) throw QUtils::InstallerError("ERROR: Opening action file");
  FileCloser closer(file);
  readLogVariables(file);
}

int Installer::readLogVariable(const char* path, const char* name, char* out, int size) {
  if (!path || !name) return 0;
  FILE* file = QUtils::openFile(path, "rt");
  if (!file) return 0;
  FileCloser closer(file);
  BlockFormats formats;
  char line[kLogLineSize];
  if (!findCountLine(file, line, sizeof line)) return 0;
  int count = 0;
  if (std::sscanf(line, formats.count, &count) != 1 || count < 1) return 0;
  char foundName[kLogNameSize];
  char value[kLogValueSize];
  for (int i = 0; i < count; i++) {
    if (!readLogLine(file, line, sizeof line)) return 0;
    stripLogLine(line);
    if (std::sscanf(line, formats.variable, foundName, value) != 2) continue;
    if (std::strcmp(foundName, name) != 0) continue;
    if (out && size > 0) QUtils::copyText(out, value, size);
    return 1;
  }
  return 0;
}

int Installer::readActionLogVariables() {
  try {
    readLogVariables(package.actionLogFile);
  } catch (const QUtils::GenericError& e) {
    log("%s", e.getMessage());
    return -1;
  }
  return 0;
}
