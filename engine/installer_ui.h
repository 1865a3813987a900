// InstallerUI: the one object through which the engine talks to a person
// (a window or a terminal) or to nobody (an unattended run). The engine
// calls it; it calls back through InstallExchangeInfo. Every call comes on
// the engine's one thread.
#ifndef QLUX_ENGINE_INSTALLER_UI_H_
#define QLUX_ENGINE_INSTALLER_UI_H_

// Kinds of showMessage.
const int kMessageOkCancel = 0;
const int kMessageNotice = 1;
const int kMessageYesNo = 2;

// Refresh flags of refreshDialog.
const int kRefreshConditions = 1;
const int kRefreshFields = 2;
const int kRefreshTasks = 4;
const int kRefreshButtons = 8;

// UI states of setUiState.
const int kUiWaiting = 0;
const int kUiWorking = 1;
const int kUiConditionFailed = 32;
const int kUiFieldInvalid = 64;

class InstallerUI {
 public:
  virtual ~InstallerUI() {}
  // The whole conversation happens inside run; non-zero on error.
  virtual int run() = 0;
  virtual void finish() = 0;
  virtual void showDialog(int dialog) = 0;
  virtual void showSubDialog(int dialog, int subDialog) = 0;
  virtual void updateButtons(int dialog, int subDialog) = 0;
  virtual void refreshDialog(int dialog, int subDialog, int flags, bool restoreFocus) = 0;
  virtual void loadFields(int dialog, int subDialog) = 0;
  virtual void updateControlConditions() = 0;
  virtual void showControls(int dialog, int subDialog, bool visible) = 0;
  virtual int leaveDialog(int dialog) = 0;
  virtual void leaveSubDialog(int dialog, int subDialog) = 0;
  virtual int storeFields(int dialog) = 0;
  virtual void storeSubDialogFields(int dialog, int subDialog) = 0;
  virtual void clearTasks() = 0;
  virtual void destroySubDialog() = 0;
  virtual void retainControl(const char* name) = 0;
  virtual bool confirmCancel() = 0;
  virtual void enableButtons(bool enable) = 0;
  virtual void pumpEvents() = 0;
  virtual void setOverallProgress(int percent) = 0;
  virtual void setCurrentProgress(int percent) = 0;
  virtual void setDestinationText(const char* text) = 0;
  virtual int pumpEventsQuietly() = 0;
  virtual void addFileLine(const char* text, bool flush) = 0;
  virtual void clearFileLines() = 0;
  virtual bool showMessage(const char* text, int kind) = 0;
  virtual int beginProgress() = 0;
  virtual int endProgress() = 0;
  virtual bool isGraphical() = 0;
  virtual int getIgnoreErrors() = 0;
  virtual void setTaskState(const char* taskName, const char* text, int state) = 0;
  virtual void showHelp() = 0;
};

#endif  // QLUX_ENGINE_INSTALLER_UI_H_
