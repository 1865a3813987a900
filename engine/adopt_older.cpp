// Installing over an older installation that the user chose to keep: the
// new installation takes the older one over, so that its uninstaller
// removes what the older one made too. Without this the new action log
// would take the older one's place and name only the new files: every file
// that only the older version had, its folders and its machine-wide
// changes would stay behind for good, with nothing left to remove them.
//
// The older log's action lines go behind the new ones, so that the
// uninstaller undoes the new changes first and then the older ones, as they
// were made, in reverse. A line the new log has already, and a FILE line
// for a path that the new log names, are left out. A file that the older
// installation saved in its backup before it replaced it (FILE OVER) keeps
// its saved copy: the record is copied into the new backup, which takes
// the older one's place.
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "engine/backup_file.h"
#include "engine/installer.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// The path of a FILE line ("FILE TAB mode TAB path"), or null.
const char* filePathOf(const char* line) {
  if (!Installer::hasLogTag(line, Installer::kLogFile) || line[std::strlen(Installer::kLogFile)] != Installer::kLogTab)
    return nullptr;
  const char* path = Installer::nextLogField(Installer::nextLogField(line));
  return *path ? path : nullptr;
}

bool isOverLine(const char* line) {
  const char* mode = Installer::nextLogField(line);
  return std::strncmp(mode, Installer::kLogOver, std::strlen(Installer::kLogOver)) == 0 &&
         mode[std::strlen(Installer::kLogOver)] == Installer::kLogTab;
}

// The action lines of the log at `path`, each without its line end. Lines
// that don't end in a line end (a log cut short) are left out. False if
// the log can't be read.
bool readActionLines(const char* path, std::vector<std::string>* out, std::string* backupPath) {
  FILE* file = QUtils::openFile(path, "rb");
  if (!file) return false;
  char line[Installer::kLogLineSize];
  if (backupPath && Installer::readLogLine(file, line, sizeof line) &&
      Installer::readLogLine(file, line, sizeof line)) {
    Installer::stripLogLine(line);
    *backupPath = line;
  }
  Installer::seekActionLines(file);
  while (Installer::readLogLine(file, line, sizeof line)) {
    bool whole = std::strchr(line, '\n') != nullptr;
    Installer::stripLogLine(line);
    if (whole && line[0]) out->push_back(line);
  }
  std::fclose(file);
  return true;
}

}  // namespace

bool Installer::saveOlderInstallation() {
  char product[512];
  char olderLog[QUtils::kMaxPath];
  if (getProductName(product, sizeof product) != 0 || !getApplicationLogFile(product, olderLog, sizeof olderLog))
    return false;
  // The new files may be written over the older log and backup (a
  // placeholder of the same name): their copies are what is taken over.
  std::vector<std::string> lines;
  std::string olderBackup;
  char logCopy[QUtils::kMaxPath];
  char backupCopy[QUtils::kMaxPath];
  // What the log names is removed, and what the backup holds written back,
  // by the new uninstaller: a log or backup that another user wrote, or
  // could have, is not taken over.
  QUtils::FileTrust trust = QUtils::checkFileTrust(olderLog);
  if (trust != QUtils::kTrustedFile && trust != QUtils::kFileMissing) {
    note("The kept installation's action log %s %s; it isn't taken over", olderLog, QUtils::describeFileTrust(trust));
    return false;
  }
  if (!readActionLines(olderLog, &lines, &olderBackup) || getTempFileName(logCopy, sizeof logCopy) != 0 ||
      !copyFile(olderLog, logCopy)) {
    note("The kept installation's action log %s can't be read; what only it made stays", olderLog);
    return false;
  }
  keptOlderLog = logCopy;
  journal.temporaries.push_back(logCopy);
  if (!olderBackup.empty() && QUtils::checkFileTrust(olderBackup.c_str()) == QUtils::kTrustedFile &&
      getTempFileName(backupCopy, sizeof backupCopy) == 0 && copyFile(olderBackup.c_str(), backupCopy)) {
    keptOlderBackup = backupCopy;
    journal.temporaries.push_back(backupCopy);
  }
  saveJournal(Journal::kWorking);
  return true;
}

int Installer::adoptOlderInstallation(const char* tempLog, BackupFile* backup) {
  if (keptOlderLog.empty()) return -1;
  char product[512];
  if (getProductName(product, sizeof product) != 0) product[0] = 0;
  std::vector<std::string> older;
  if (!readActionLines(keptOlderLog.c_str(), &older, nullptr)) return -1;
  std::string olderBackup = keptOlderBackup;
  std::vector<std::string> ours;
  readActionLines(tempLog, &ours, nullptr);
  std::unordered_set<std::string> lines(ours.begin(), ours.end());
  std::unordered_set<std::string> files;
  for (const std::string& line : ours) {
    const char* path = filePathOf(line.c_str());
    if (path) files.insert(path);
  }

  int adopted = 0;
  QUtils::Table<QUtils::CharString> saved;
  for (const std::string& line : older) {
    const char* path = filePathOf(line.c_str());
    if (lines.count(line) || (path && files.count(path))) continue;
    if (path && isOverLine(line.c_str())) saved.add(QUtils::CharString(path));
    actionLogWriter.printf("%s", line.c_str());
    adopted++;
  }
  int result = 0;
  if (saved.getCount() > 0 && (olderBackup.empty() || backup->copyRecords(olderBackup.c_str(), saved) < 0)) {
    note("The kept installation's backup can't be read: the files it saved stay as they are now");
    result = -1;
  }
  note("The kept installation of %s is taken over: %d of its changes are now this installation's", product, adopted);
  return result;
}
