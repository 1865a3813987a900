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

// The log and backup of the installation to undo: those at their places,
// or, where the log never reached its place, the temporary ones that the
// journal names, which are added to `unplaced` to go with the revert's
// other temporary files.
void findRevertLog(Installer* engine, char* logPath, char* backupPath, std::vector<std::string>* unplaced) {
  if (engine->getInstallBackupFile(backupPath, QUtils::kMaxPath) != 0) backupPath[0] = 0;
  if (engine->getInstallLogFile(logPath, QUtils::kMaxPath) != 0) logPath[0] = 0;
  const Journal& journal = engine->journal;
  if ((!logPath[0] || !QUtils::fileExists(logPath)) && journal.kind == Journal::kInstall && !journal.log.empty() &&
      QUtils::fileExists(journal.log.c_str())) {
    engine->log("Reverting from the temporary log %s", journal.log.c_str());
    QUtils::copyText(logPath, journal.log.c_str(), QUtils::kMaxPath);
    QUtils::copyText(backupPath, journal.backup.c_str(), QUtils::kMaxPath);
    *unplaced = {journal.log, journal.backup};
  }
}

// The temporary copies that the undo runs on: the log is among the files
// that it deletes, and the journal keeps the backup and the template while
// it runs.
struct RevertCopies {
  char log[QUtils::kMaxPath] = "";
  char backup[QUtils::kMaxPath] = "";
  char templateCopy[QUtils::kMaxPath] = "";
};

// Copies the backup's pending records and the package's template for the
// journal, and marks it working. Its failures leave warnings: the undo
// runs all the same, only a later recovery has less to go on.
void prepareJournalCopies(Installer* engine, const char* backupPath, const RevertCopies& copies) {
  // An installation that replaced nothing has no backup to copy.
  if (copyBackupRecords(backupPath, copies.backup, kPendingRecords) == kBackupCopyFailed)
    engine->log("WARNING: The journal's copy of the backup %s is incomplete", backupPath);
  if (!writePackageTemplate(engine, copies.templateCopy))
    engine->log("WARNING: No copy of the template for the journal");
  // Ignoring the result on purpose: saveJournal logs its own failure.
  engine->saveJournal(Journal::kWorking);
}

// Undoes the new installation from a copy of its log. The result of the
// uninstallation, or 1 when it couldn't run.
int undoNewInstallation(Installer* engine, InstallerUI* ui, const char* logPath, const char* backupPath,
                        const std::vector<std::string>& unplaced, RevertCopies* copies) {
  if (engine->getTempFileName(copies->log, sizeof copies->log) != 0 ||
      engine->getTempFileName(copies->backup, sizeof copies->backup) != 0 ||
      engine->getTempFileName(copies->templateCopy, sizeof copies->templateCopy) != 0) {
    engine->log("ERROR: Unable to obtain temporary file");
    *copies = RevertCopies();
    return 1;
  }
  Journal& record = engine->beginJournal(Journal::kRevert);
  record.log = copies->log;
  record.backup = copies->backup;
  record.templateCopy = copies->templateCopy;
  record.finalLog = logPath;
  record.finalBackup = backupPath;
  for (const std::string& path : unplaced) record.temporaries.push_back(path);
  bool journaled = engine->saveJournal(Journal::kPreparing);
  if (!engine->copyFile(logPath, copies->log)) {
    engine->log("ERROR: Unable to copy the temporary log file");
    return 1;
  }
  if (journaled) prepareJournalCopies(engine, backupPath, *copies);
  engine->package.actionLogFile = QUtils::openFile(copies->log, "rb");
  if (!engine->package.actionLogFile) return 1;
  engine->log("Uninstalling current installation (Revert)");
  // The backup path is given, so the log's header isn't asked for it.
  int result = engine->uninstall(ui, backupPath);
  std::fclose(engine->package.actionLogFile);
  engine->package.actionLogFile = nullptr;
  return result;
}

// Brings back the older installation that the run removed, from the backup
// its removal made. False if anything of it didn't come back.
bool restoreOlderInstallation(Installer* engine, InstallerUI* ui) {
  engine->beginJournal(Journal::kRevert);
  // Ignoring the result on purpose: saveJournal logs its own failure.
  engine->saveJournal(Journal::kWorking);
  engine->log("Unpacking backup of previous installation");
  bool restored = engine->restoreInstalledFiles(ui);
  // Backups of the older installation that were themselves installed files
  // were kept aside, since restoring the backup can't hold a backup.
  for (int i = 0; i < engine->copiedFiles.getCount(); i++) {
    const char* saved = engine->copiedFiles[i].temporary.getText();
    const char* original = engine->copiedFiles[i].original.getText();
    if (engine->copyFile(saved, original)) continue;
    engine->log("ERROR: The saved file %s could not be written back to %s", saved, original);
    restored = false;
  }
  return restored;
}

}  // namespace

int Installer::revertInstallation(InstallerUI* ui) {
  log("Reverting installation!");
  int result = 1;
  char backupPath[QUtils::kMaxPath];
  char logPath[QUtils::kMaxPath];
  std::vector<std::string> unplaced;
  findRevertLog(this, logPath, backupPath, &unplaced);
  RevertCopies copies;
  if (!package.actionLogFile && logPath[0] && QUtils::fileExists(logPath))
    result = undoNewInstallation(this, ui, logPath, backupPath, unplaced, &copies);

  if (previousInstallationFound && installedBackupFile[0] && QUtils::fileExists(installedBackupFile) &&
      !restoreOlderInstallation(this, ui))
    result = 1;

  // The copies go now; the older installation's backup stays for cleanup(),
  // which removes the journal with it.
  for (const char* path : {copies.log, copies.backup, copies.templateCopy})
    if (path[0] && QUtils::fileExists(path)) QUtils::deleteFile(path);
  if (journal.kind == Journal::kRevert) {
    journal.log.clear();
    journal.backup.clear();
    journal.templateCopy.clear();
    // Ignoring the result on purpose: saveJournal logs its own failure.
    saveJournal(Journal::kDone);
  }
  return result;
}
