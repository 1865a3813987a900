// Removing a registered older installation inside this process: a second
// engine of the same platform class reads that installation's log and
// template copy, optionally saves its files for a revert, and uninstalls.
#include <cstdio>
#include <memory>

#include "engine/installer.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// Deletes the temporary files that it was given when it goes out of scope.
class TemporaryFiles {
 public:
  ~TemporaryFiles() {
    for (const char* path : paths)
      if (path && path[0]) QUtils::deleteFile(path);
  }
  void add(const char* path) { paths[count++] = path; }

 private:
  const char* paths[3] = {nullptr, nullptr, nullptr};
  int count = 0;
};

}  // namespace

int Installer::uninstallApplication(InstallerUI* ui, const char* application) {
  std::unique_ptr<Installer> second(createEngine());
  if (!second) return -1;
  second->logConsole = logConsole;
  second->resultLog = resultLog;
  log("Uninstalling");

  char logPath[QUtils::kMaxPath];
  char tempLog[QUtils::kMaxPath];
  tempLog[0] = 0;
  TemporaryFiles temporary;
  try {
    if (!getApplicationLogFile(application, logPath, sizeof logPath))
      throw QUtils::GenericError("ERROR: Obtaining actionlog filename");
    // The log says what to delete; the copy below would be this run's own
    // file, so the original is judged here.
    QUtils::FileTrust trust = QUtils::checkFileTrust(logPath);
    if (trust != QUtils::kTrustedFile && trust != QUtils::kFileMissing) {
      note("The older installation's action log %s %s; it is not followed", logPath, QUtils::describeFileTrust(trust));
      throw QUtils::GenericError("ERROR: The older installation's action log can't be trusted");
    }
    if (getTempFileName(tempLog, sizeof tempLog) != 0) {
      tempLog[0] = 0;
      throw QUtils::GenericError("ERROR: Unable to obtain temporary file");
    }
    temporary.add(tempLog);
    char backupPath[QUtils::kMaxPath];
    char dirListPath[QUtils::kMaxPath];
    backupPath[0] = dirListPath[0] = 0;
    bool wantBackup = (package.runFlags & kRunFlagBackup) != 0;
    if (wantBackup &&
        (getTempFileName(backupPath, sizeof backupPath) != 0 || getTempFileName(dirListPath, sizeof dirListPath) != 0))
      throw QUtils::GenericError("ERROR: Unable to obtain temporary file");
    // The removal is the first change of an installation: the journal names
    // the temporary files before they are written, and the older
    // installation's backup once it is complete, so that a run killed during
    // the removal brings the older installation back.
    Journal& record = beginJournal(Journal::kInstall);
    record.temporaries.push_back(tempLog);
    if (wantBackup) {
      record.temporaries.push_back(backupPath);
      record.temporaries.push_back(dirListPath);
    }
    saveJournal(Journal::kWorking);
    if (!copyFile(logPath, tempLog)) throw QUtils::GenericError("ERROR: Unable to copy the temporary log file");
    if (second->openPackage(tempLog, 0, 1) != 0)
      throw QUtils::GenericError("ERROR: Unable to initialize uninstaller object");
    second->shareErrorList(this);
    second->initFromActionLog(ui, logConsole);

    // With a backup wanted, the older installation's files are saved first,
    // so that a failing new installation can bring them back.
    if (wantBackup) {
      if (second->backupInstalledFiles(ui, backupPath, dirListPath, tempLog)) {
        QUtils::copyText(installedBackupFile, backupPath, sizeof installedBackupFile);
        QUtils::copyText(installedDirListFile, dirListPath, sizeof installedDirListFile);
        for (int i = 0; i < second->copiedFiles.getCount(); i++) copiedFiles.add(second->copiedFiles[i]);
        second->copiedFiles.clear();
        saveJournal(Journal::kWorking);
      } else {
        log("ERROR: Failed to create uninstall backup of files");
        QUtils::deleteFile(backupPath);
        QUtils::deleteFile(dirListPath);
      }
    } else {
      log("Skipping creation of uninstall backup file");
    }

    // A failed backup doesn't keep the older installation from going. The
    // space of its files stays taken until this installation's files are
    // written (installFiles frees it).
    if (!olderFilesSpace) olderFilesSpace.reset(new QUtils::RemovedFiles);
    second->removedFilesSpace = olderFilesSpace.get();
    int result = second->uninstall(ui, nullptr);
    second->package.release();
    return result;
  } catch (const QUtils::GenericError& e) {
    second->package.release();
    throw QUtils::GenericError(e.getMessage());
  }
}
