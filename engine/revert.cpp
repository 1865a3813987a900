// Reverting a failed installation: the new installation is undone from its
// own log and backup, and an older installation that was removed at the
// start comes back from the backup that its removal made.
#include <cstdio>

#include "engine/installer.h"
#include "foundation/files.h"
#include "foundation/text.h"

int Installer::revertInstallation(InstallerUI* ui) {
  log("Reverting installation!");
  int result = 1;

  char backupPath[QUtils::kMaxPath];
  char logPath[QUtils::kMaxPath];
  if (getInstallBackupFile(backupPath, sizeof backupPath) != 0) backupPath[0] = 0;
  if (getInstallLogFile(logPath, sizeof logPath) != 0) logPath[0] = 0;

  // The log is among the files that the undo deletes, so it runs on a copy.
  if (!package.actionLogFile && logPath[0] && QUtils::fileExists(logPath)) {
    char copy[QUtils::kMaxPath];
    if (getTempFileName(copy, sizeof copy) != 0) {
      log("ERROR: Unable to obtain temporary file");
    } else if (!copyFile(logPath, copy)) {
      log("ERROR: Unable to copy temporal log file");
      QUtils::deleteFile(copy);
    } else {
      package.actionLogFile = QUtils::openFile(copy, "rb");
      if (package.actionLogFile) {
        log("Uninstalling current installation (Revert)");
        // The backup path is given, so the log's header isn't asked for it.
        result = uninstall(ui, backupPath);
        std::fclose(package.actionLogFile);
        package.actionLogFile = nullptr;
      }
      QUtils::deleteFile(copy);
    }
  }

  if (!previousInstallationFound || !installedBackupFile[0] || !QUtils::fileExists(installedBackupFile))
    return result;
  log("Unpacking backup of previous installation");
  if (!restoreInstalledFiles(ui)) result = 1;
  // Backups of the older installation that were themselves installed files
  // were kept aside, since restoring the backup can't hold a backup.
  for (int i = 0; i < copiedFiles.getCount(); i++)
    copyFile(copiedFiles[i].temporary.getText(), copiedFiles[i].original.getText());
  return result;
}
