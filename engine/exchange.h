// InstallExchangeInfo: the engine's face toward the front ends. Front ends
// read the wizard's records by index and ask the engine to move, to set and
// read variables and to evaluate conditions through it, and through nothing
// else. Every operation has a body here that finds nothing (-1 from text and
// index getters, 0 from object, count and flag getters, 1 from the installer
// directory pair, 2 from checkDialogCondition); the Installer gives the real
// ones.
#ifndef QLUX_ENGINE_EXCHANGE_H_
#define QLUX_ENGINE_EXCHANGE_H_

#include <cstdint>
#include <cstring>

#include "engine/dialog_records.h"
#include "foundation/lists.h"

class InstallerUI;

class InstallExchangeInfo {
 public:
  virtual ~InstallExchangeInfo() {}

  // Product data; each 0, or -1 with an empty buffer when absent.
  virtual int getProductName(char* buffer, int size) { return -1; }
  virtual int getWindowTitle(char* buffer, int size) { return -1; }
  virtual int getMajorVersion(char* buffer, int size) { return -1; }
  virtual int getVersion(char* buffer, int size) { return -1; }
  virtual int getWebsite(char* buffer, int size) { return -1; }
  virtual int getSupportEmail(char* buffer, int size) { return -1; }
  virtual int getInstallLogFile(char* buffer, int size) { return -1; }
  virtual int getInstallBackupFile(char* buffer, int size) { return -1; }
  virtual int getUninstallCmd(char* buffer, int size) { return -1; }
  virtual int getUninstallXmlFile(char* buffer, int size) { return -1; }
  virtual int getTempFileName(char* buffer, int size) { return -1; }
  virtual int getHelpUrl(char* buffer, int size) { return -1; }
  // The template's line for the console's banner: BannerText, or
  // UninstallBannerText in an uninstallation.
  virtual int getBannerText(char* buffer, int size) { return -1; }
  virtual bool isPreviousInstallation() { return false; }
  virtual bool isActionLogRun() { return false; }
  // The packed file's bytes; an empty array, with `outSize` untouched, for
  // an unknown key.
  virtual QUtils::RefArray<unsigned char> getFileData(const char* key, uint32_t* outSize) {
    return QUtils::RefArray<unsigned char>();
  }
  virtual int getInstalledFilePath(const char* alias, char* buffer, int size) { return -1; }

  // The wizard's records; subDialog -1 means the dialog itself.
  virtual DIALOGINFO* getDialog(int dialog, int subDialog) { return nullptr; }
  virtual int getDialogCount() { return 0; }
  virtual int getDialogWidth(int dialog) { return 0; }
  virtual int getDialogHeight(int dialog) { return 0; }
  virtual int getSubDialogCount(int dialog) { return 0; }
  virtual int getCurrentDialog() { return -1; }
  virtual int getCurrentSubDialog() { return -1; }
  virtual int variableChanged(const char* variable, int dialog, int subDialog) { return 0; }
  virtual ELEMENTINFO* getElement(int dialog, int index, int subDialog) { return nullptr; }
  virtual int getElementCount(int dialog, int subDialog) { return 0; }
  virtual BUTTONINFO* getButton(int dialog, int index, int subDialog) { return nullptr; }
  virtual int getButtonCount(int dialog, int subDialog) { return 0; }
  virtual FIELDINFO* getField(int dialog, int index, int subDialog) { return nullptr; }
  virtual int getTaskCount(int dialog) { return 0; }
  virtual TASKINFO* getTask(int dialog, int index) { return nullptr; }
  virtual int getFieldCount(int dialog, int subDialog) { return 0; }
  virtual int isCancelled() { return 0; }
  virtual int isFinished() { return 0; }
  virtual int hasFailed() { return 0; }
  // How the run ended, once the wizard has: the exit code (exit_codes.h),
  // with `runResult` what the front end's run gave, and its meaning.
  virtual int getExitCode(int runResult, char* text, int size) { return 0; }
  virtual int setInstallerDir(const char* path) { return 1; }
  virtual int getInstallerDir(char* buffer, int size) { return 1; }
  virtual int checkDialogCondition(InstallerUI* ui) { return 2; }
  virtual void setUiState(int state) {}
  virtual int getUiState() { return 0; }

  // Whether a folder that the user gives can take an installation; false
  // with the reason (cut at `size`) otherwise. The console and the window
  // refuse such an answer.
  virtual bool isUsableFolder(const char* path, char* reason, int size) { return true; }

  // Variables and conditions.
  virtual int getVariableDefault(const char* name, char* buffer, int size) { return -1; }
  virtual int getVariable(const char* name, char* buffer, int size) { return -1; }
  virtual int setVariable(const char* name, const char* value) { return -1; }
  virtual int evaluateCondition(const char* text) { return -1; }
  // A label with its [NAME] references replaced by their values, cut to
  // `size`; 0, or -1 (the text copied as it is) when there is no engine.
  virtual int expandVariables(const char* text, char* buffer, int size);
  virtual void runAction(InstallerUI* ui, const char* action) {}

  // The walk.
  virtual int shiftDialog(InstallerUI* ui, int count) { return -1; }
  virtual void openHelp(InstallerUI* ui) {}
  virtual int previousDialog(InstallerUI* ui, int count) { return -1; }
  virtual int nextDialog(InstallerUI* ui, int count) { return -1; }
  virtual void cancel(InstallerUI* ui) {}
  // Whether a step back would reach a page: false on the first page, while
  // work runs, and where the page before lies at or before a page whose work
  // (copying, removing, registering...) has run, since entering it again
  // would do that work a second time.
  virtual bool canGoBack() { return false; }
  // Whether a page with work has run in this wizard: from then on closing
  // the wizard keeps what was done instead of cancelling an installation.
  virtual bool hasWorkRun() { return false; }
  virtual int enterDialog(int dialog, InstallerUI* ui) { return -1; }
  virtual int enterSubDialog(int dialog, int subDialog, InstallerUI* ui) { return -1; }
  virtual void fireTriggers(int event, int dialog, int subDialog) {}
  virtual void updateTasks(InstallerUI* ui) {}
  virtual void updateTask(InstallerUI* ui, int dialog, int task, int state) {}

  // Colours.
  virtual bool hasColourTheme() { return false; }
  virtual uint32_t getThemeColour(int index) { return kNoColour; }
  // The page's background and foreground; kNoColour twice when none.
  virtual void getDialogColours(int dialog, int subDialog, uint32_t* background, uint32_t* foreground) {
    *background = *foreground = kNoColour;
  }
};

inline int InstallExchangeInfo::expandVariables(const char* text, char* buffer, int size) {
  if (!buffer || size < 1) return -1;
  buffer[0] = 0;
  if (text) std::strncat(buffer, text, static_cast<size_t>(size - 1));
  return -1;
}

#endif  // QLUX_ENGINE_EXCHANGE_H_
