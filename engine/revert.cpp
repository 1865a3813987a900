// Reverting a failed installation: the new installation is undone from its
// own log and backup, and an older installation that was removed at the
// start comes back from the backup that its removal made.
//
// The undo deletes the log, the backup and the template copy as it goes, so
// the journal keeps copies of them while the revert runs: a revert cut short
// is run again from those by the next run (journal.h).
#include <cstdio>
#include <string>
#include <vector>

#include "engine/installer.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// Writes the package's own template to `path`: the revert undoes with it.
bool writePackageTemplate(Installer* engine, const char* path) {
  uint32_t size = 0;
  QUtils::RefArray<unsigned char> data = engine->getFileData("install.xml", &size);
  if (!data.get()) return false;
  FILE* file = QUtils::openFile(path, "wb");
  if (!file) return false;
  bool ok = std::fwrite(data.get(), 1, size, file) == size;
  if (std::fclose(file) != 0) ok = false;
  return ok;
}

}  // namespace

int Installer::revertInstallation(InstallerUI* ui) {
  log("Reverting installation!");
  int result = 1;

  char backupPath[QUtils::kMaxPath];
  char logPath[QUtils::kMaxPath];
  if (getInstallBackupFile(backupPath, sizeof backupPath) != 0) backupPath[0] = 0;
  if (getInstallLogFile(logPath, sizeof logPath) != 0) logPath[0] = 0;

  // A log that never reached its place is still on its temporary file,
  // with the backup beside it; the journal names both.
  // They go with the revert's other temporary files.
  std::vector<std::string> unplaced;
  if ((!logPath[0] || !QUtils::fileExists(logPath)) && journal.kind == Journal::kInstall && !journal.log.empty() &&
      QUtils::fileExists(journal.log.c_str())) {
    log("Reverting from the temporary log %s", journal.log.c_str());
    QUtils::copyText(logPath, journal.log.c_str(), sizeof logPath);
    QUtils::copyText(backupPath, journal.backup.c_str(), sizeof backupPath);
    unplaced = {journal.log, journal.backup};
  }

  // The log is among the files that the undo deletes, so it runs on a copy.
  char copy[QUtils::kMaxPath];
  char backupCopy[QUtils::kMaxPath];
  char templateCopy[QUtils::kMaxPath];
  copy[0] = backupCopy[0] = templateCopy[0] = 0;
  if (!package.actionLogFile && logPath[0] && QUtils::fileExists(logPath)) {
    if (getTempFileName(copy, sizeof copy) != 0 || getTempFileName(backupCopy, sizeof backupCopy) != 0 ||
        getTempFileName(templateCopy, sizeof templateCopy) != 0) {
      log("ERROR: Unable to obtain temporary file");
      copy[0] = backupCopy[0] = templateCopy[0] = 0;
    } else {
      Journal& record = beginJournal(Journal::kRevert);
      record.log = copy;
      record.backup = backupCopy;
      record.templateCopy = templateCopy;
      record.finalLog = logPath;
      record.finalBackup = backupPath;
      for (const std::string& path : unplaced) record.temporaries.push_back(path);
      bool journaled = saveJournal(Journal::kPreparing);
      if (!copyFile(logPath, copy)) {
        log("ERROR: Unable to copy the temporary log file");
      } else {
        if (journaled) {
          // The backup copy holds what this undo is going to put back.
          // An installation that replaced nothing has no backup to copy.
          if (copyBackupRecords(backupPath, backupCopy, kPendingRecords) == kBackupCopyFailed)
            log("WARNING: The journal's copy of the backup %s is incomplete", backupPath);
          if (!writePackageTemplate(this, templateCopy)) log("WARNING: No copy of the template for the journal");
          saveJournal(Journal::kWorking);
        }
        package.actionLogFile = QUtils::openFile(copy, "rb");
        if (package.actionLogFile) {
          log("Uninstalling current installation (Revert)");
          // The backup path is given, so the log's header isn't asked for it.
          result = uninstall(ui, backupPath);
          std::fclose(package.actionLogFile);
          package.actionLogFile = nullptr;
        }
      }
    }
  }

  if (previousInstallationFound && installedBackupFile[0] && QUtils::fileExists(installedBackupFile)) {
    beginJournal(Journal::kRevert);
    saveJournal(Journal::kWorking);
    log("Unpacking backup of previous installation");
    if (!restoreInstalledFiles(ui)) result = 1;
    // Backups of the older installation that were themselves installed files
    // were kept aside, since restoring the backup can't hold a backup.
    for (int i = 0; i < copiedFiles.getCount(); i++)
      copyFile(copiedFiles[i].temporary.getText(), copiedFiles[i].original.getText());
  }

  // The copies go now; the older installation's backup stays for cleanup(),
  // which removes the journal with it.
  const char* copies[] = {copy, backupCopy, templateCopy};
  for (const char* path : copies)
    if (path[0] && QUtils::fileExists(path)) QUtils::deleteFile(path);
  if (journal.kind == Journal::kRevert) {
    journal.log.clear();
    journal.backup.clear();
    journal.templateCopy.clear();
    saveJournal(Journal::kDone);
  }
  return result;
}
