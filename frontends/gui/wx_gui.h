// WxGUI: the wizard in a window. run() starts the toolkit's application,
// which makes one MainFrame; the frame builds each dialog of the template
// as a page and takes the user's clicks to the engine. Everything the
// engine asks of the front end arrives here and goes to the frame; while
// there is no frame (before run, after the window closed) the operations do
// nothing.
//
// There is one thread: the engine's long work runs inside a click handler
// and keeps the window alive by calling pumpEvents, which lets the event
// loop run at most once in 65 milliseconds.
//
// The header needs no toolkit headers, so that the entry program can make
// the front end without them.
#ifndef QLUX_FRONTENDS_GUI_WX_GUI_H_
#define QLUX_FRONTENDS_GUI_WX_GUI_H_

#include <chrono>
#include <string>

#include "frontends/console/generic_ui.h"

class MainFrame;
class wxTextCtrl;
class wxStaticText;
class wxGauge;
class wxCustomProgressBar;

class WxGUI : public GenericUI {
 public:
  explicit WxGUI(int isUninstall);
  ~WxGUI() override;

  // Starts the toolkit on the display of the environment. False when it
  // can't be reached, and the toolkit is left as it was: the caller can then
  // use another front end. run() calls it if nobody did.
  bool openDisplay();
  int run() override;
  void finish() override {}
  void showDialog(int dialog) override;
  void showSubDialog(int dialog, int subDialog) override;
  void updateButtons(int dialog, int subDialog) override;
  void refreshDialog(int dialog, int subDialog, int flags, bool restoreFocus) override;
  void loadFields(int dialog, int subDialog) override;
  void updateControlConditions() override;
  void showControls(int dialog, int subDialog, bool visible) override;
  int leaveDialog(int dialog) override;
  void leaveSubDialog(int dialog, int subDialog) override;
  int storeFields(int dialog) override;
  void storeSubDialogFields(int dialog, int subDialog) override;
  void clearTasks() override;
  void destroySubDialog() override;
  void retainControl(const char* name) override;
  bool confirmCancel() override;
  void enableButtons(bool enable) override;
  void pumpEvents() override;
  void setOverallProgress(int percent) override;
  void setCurrentProgress(int percent) override;
  void setDestinationText(const char* text) override;
  int pumpEventsQuietly() override;
  void addFileLine(const char* text, bool flush) override;
  void clearFileLines() override;
  bool showMessage(const char* text, int kind) override;
  int beginProgress() override { return 0; }
  int endProgress() override { return 0; }
  bool isGraphical() override { return true; }
  int getIgnoreErrors() override { return 0; }
  void setTaskState(const char* taskName, const char* text, int state) override;
  void showHelp() override;
  void setStartupError(const char* message, const char* title) override;
  void showStartupError() override;

  // Finds the progress controls of the page just built by name:
  // "Destfilelist", "Destination", "Current" and "Overall".
  void bindProgressControls();
  // Forgets the frame and the controls bound on it; the frame calls this
  // when it goes.
  void detachFrame();

  const std::string& startupErrorText() const { return startupText; }
  const std::string& startupErrorTitle() const { return startupCaption; }

  MainFrame* frame;  // not owned: the toolkit deletes it
  std::string fileLines;
  wxTextCtrl* fileListControl;
  wxStaticText* destinationControl;
  wxGauge* currentGauge;
  wxCustomProgressBar* currentBar;
  wxGauge* overallGauge;
  wxCustomProgressBar* overallBar;

 private:
  // Runs the event loop once unless that happened less than 65 ms ago.
  // Gives the elapsed time when it returned early, else 0.
  long yieldToEvents();

  // When the event loop last ran.
  std::chrono::steady_clock::time_point yieldWatch;
  std::string startupText;
  std::string startupCaption;
  bool toolkitStarted;
};

#endif  // QLUX_FRONTENDS_GUI_WX_GUI_H_
