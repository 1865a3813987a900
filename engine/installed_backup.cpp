// The backup of an older installation's files, taken while a new
// installation removes the older one, and its restoration if the new one
// fails. The files come from the older installation's action log: each
// FILE and SHORTCUT line names one, each DIR line a directory that the
// restore has to make again before the files can go back.
//
// A symbolic link among them (a Symlink shortcut) is saved as a link.
//
// The backup keeps no file modes. Where the system has an execute bit, the
// directory list also names the saved files that had it, on lines
// "EXECUTABLE<TAB>path" behind the directories, so that a restored program
// can run again.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "engine/backup_file.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/console.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// The third field of a log line: the path of DIR, FILE and SHORTCUT lines.
const char* thirdField(const char* line) { return Installer::nextLogField(Installer::nextLogField(line)); }

bool namesAFile(const char* line) {
  return Installer::hasLogTag(line, Installer::kLogFile) || Installer::hasLogTag(line, Installer::kLogShortcut);
}

const char kExecutableMark[] = "EXECUTABLE\t";
// The owner's execute bit among a file's permission bits: what makes a
// saved file one that the restore marks as executable again.
const int kOwnerExecute = 0100;

}  // namespace

bool Installer::backupInstalledFiles(InstallerUI* ui, const char* backupPath, const char* dirListPath,
                                     const char* logPath) {
  if (!logPath || !logPath[0] || !dirListPath || !dirListPath[0]) return false;
  FILE* logFile = QUtils::openFile(logPath, "rt");
  if (!logFile) {
    log("ERROR: Could not open the action log %s to back up its files", logPath);
    return false;
  }
  BackupFile backup;
  backup.openForWriting(backupPath);
  if (ui) ui->setDestinationText("Creating backup of old files, in case the installation fails");
  FILE* dirList = QUtils::openFile(dirListPath, "wt");
  if (!dirList) {
    log("ERROR: Could not create the directory list %s", dirListPath);
    std::fclose(logFile);
    return false;
  }

  // First pass: the number of files, for the progress, and the directories.
  // Only action lines count: the header and the variable block hold texts
  // that could begin like a tag.
  char line[kLogLineSize];
  int count = 0;
  seekActionLines(logFile);
  while (readLogLine(logFile, line, sizeof line)) {
    stripLogLine(line);
    if (namesAFile(line)) {
      count++;
    } else if (hasLogTag(line, kLogDir)) {
      const char* directory = thirdField(line);
      if (directory[0]) std::fprintf(dirList, "%s\n", directory);
    }
  }
  std::fclose(dirList);
  seekActionLines(logFile);

  if (ui) ui->beginProgress();
  bool failed = false;
  int done = 0;
  QUtils::Table<QUtils::CharString> executables;
  char message[QUtils::kMaxPath + 600];
  while (!failed && readLogLine(logFile, line, sizeof line)) {
    stripLogLine(line);
    if (namesAFile(line)) {
      const char* path = thirdField(line);
      // A link (a Symlink shortcut) is saved as a link, whatever it leads
      // to, and has no permission bits of its own: it is never marked as
      // executable.
      QUtils::ErrorChain error;
      bool passedOver = false;
      bool unreadable = false;
      int mode = -1;
      backup.addFile(error, path, static_cast<int>(std::strlen(path)) + 1, 0, false, &passedOver, &unreadable,
                     &mode);
      if (unreadable) {
        QUtils::boundedFormat(message, sizeof message, "FAILED to back up %s: File does not exist", path);
        addError(message);
      } else if (!error.isEmpty()) {
        char text[512];
        error.toText(text, sizeof text);
        QUtils::boundedFormat(message, sizeof message, "FAILED to back up %s: %s", path, text);
        addError(message);
        failed = true;
      } else {
        if (passedOver) {
          // addFile passed it over: a backup of an earlier version is
          // kept aside whole, to be put back with the rest.
          char temporary[QUtils::kMaxPath];
          if (getTempFileName(temporary, sizeof temporary) == 0 && temporary[0] && copyFile(path, temporary)) {
            COPIEDFILE copied;
            copied.original = QUtils::CharString(path);
            copied.temporary = QUtils::CharString(temporary);
            copiedFiles.add(copied);
          } else {
            log("WARNING: Could not keep a copy of the backup file %s", path);
          }
        }
        if (mode >= 0 && (mode & kOwnerExecute) != 0) executables.add(QUtils::CharString(path));
        QUtils::boundedFormat(message, sizeof message, "Back up %s", path);
      }
      if (ui) {
        ui->addFileLine(message, done % 32 == 0);
        done++;
        ui->setOverallProgress(static_cast<int>(std::ceil(static_cast<double>(done) / count * 100.0)));
      } else {
        done++;
      }
    }
    if (ui) ui->pumpEvents();
  }
  if (failed) {
    static const char kStopped[] = "Error in backup: stopping proccess";
    addError(kStopped);
    if (ui) ui->addFileLine(kStopped, true);
  }
  std::fclose(logFile);
  if (ui) ui->addFileLine(nullptr, true);
  if (executables.getCount() > 0) {
    dirList = QUtils::openFile(dirListPath, "at");
    if (dirList) {
      for (int i = 0; i < executables.getCount(); i++)
        std::fprintf(dirList, "%s%s\n", kExecutableMark, executables[i].getText());
      std::fclose(dirList);
    }
  }
  if (backup.close() != 0) {
    log("ERROR: Could not complete the backup file %s", backupPath ? backupPath : "");
    failed = true;
  }
  return !failed;
}

bool Installer::restoreInstalledFiles(InstallerUI* ui) {
  if (!installedDirListFile[0]) return false;
  FILE* dirList = QUtils::openFile(installedDirListFile, "rt");
  if (!dirList) return false;
  char line[kLogLineSize];
  QUtils::Table<QUtils::CharString> executables;
  while (readLogLine(dirList, line, sizeof line - 1)) {
    stripLogLine(line);
    if (!line[0]) continue;
    if (std::strncmp(line, kExecutableMark, sizeof kExecutableMark - 1) == 0) {
      executables.add(QUtils::CharString(line + sizeof kExecutableMark - 1));
      continue;
    }
    // createPath makes the directories that a separator ends.
    size_t length = std::strlen(line);
    if (line[length - 1] != '/' && line[length - 1] != '\\') {
      line[length] = QUtils::kPathSeparator;
      line[length + 1] = 0;
    }
    if (QUtils::createPath(line, nullptr) != 0) log("WARNING: Could not make the directory %s", line);
  }
  std::fclose(dirList);

  int result = -1;
  BackupFile backup;
  if (backup.openForRestore(installedBackupFile) == 0) {
    // The lines for each file reach the user through the front end; the
    // console keeps none of them.
    QUtils::PFileConsole quiet;
    result = backup.restore(&quiet, ui);
  }
  backup.close();
  // Every whole record came back; what the damaged rest held is lost, and
  // the user is told.
  if (result != 0) {
    char message[QUtils::kMaxPath + 80];
    QUtils::boundedFormat(message, sizeof message, "FAILED to restore all of the previous installation from %s",
                          installedBackupFile);
    addError(message);
    if (ui) ui->addFileLine(message, true);
  }
  for (int i = 0; i < executables.getCount(); i++) QUtils::setExecutable(executables[i].getText());
  return result == 0;
}
