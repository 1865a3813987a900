// ConsoleUI: the template's wizard on a terminal, or with nobody there.
// run() walks the dialogs forward only; each page prints its texts (long
// rich texts page by page at the terminal's size) and asks its fields
// through the input source that initInput chose. With `quiet` set a page
// prints only where it must explain why the run can't go on (a page with a
// condition), and no banner, destination, file line or message appears.
//
// The front end prints to the output stream of setStreams (standard output
// by default), and finds the terminal's size through the foundation; no
// other system service is used.
#ifndef QLUX_FRONTENDS_CONSOLE_CONSOLE_UI_H_
#define QLUX_FRONTENDS_CONSOLE_CONSOLE_UI_H_

#include <vector>

#include "foundation/charstring.h"
#include "frontends/console/generic_ui.h"

class ConsoleUI : public GenericUI {
 public:
  ConsoleUI(int isUninstall, int ignoreErrors, int quiet);

  int run() override;
  void finish() override;
  void showDialog(int dialog) override;
  void showSubDialog(int dialog, int subDialog) override;
  void updateButtons(int dialog, int subDialog) override {}
  void refreshDialog(int dialog, int subDialog, int flags, bool restoreFocus) override {}
  void loadFields(int dialog, int subDialog) override {}
  void updateControlConditions() override {}
  void showControls(int dialog, int subDialog, bool visible) override {}
  int leaveDialog(int dialog) override { return 0; }
  void leaveSubDialog(int dialog, int subDialog) override {}
  int storeFields(int dialog) override { return 0; }
  void storeSubDialogFields(int dialog, int subDialog) override {}
  void clearTasks() override {}
  void destroySubDialog() override {}
  void retainControl(const char* name) override {}
  // Nobody is asked: a console run is never cancelled by a button. Only an
  // input that ran out before a question was answered counts as a cancel.
  bool confirmCancel() override;
  void enableButtons(bool enable) override {}
  void pumpEvents() override {}
  void setOverallProgress(int percent) override { overallProgress = percent; }
  void setCurrentProgress(int percent) override;
  void setDestinationText(const char* text) override;
  int pumpEventsQuietly() override { return 0; }
  void addFileLine(const char* text, bool flush) override;
  void clearFileLines() override {}
  bool showMessage(const char* text, int kind) override;
  int beginProgress() override;
  int endProgress() override;
  bool isGraphical() override { return false; }
  int getIgnoreErrors() override { return ignoreErrors; }
  void setTaskState(const char* taskName, const char* text, int state) override {}
  void showHelp() override {}
  void setStartupError(const char* message, const char* title) override {}
  void showStartupError() override {}

  // The banner a run opens with: the template's BannerText (or
  // UninstallBannerText) in a frame of stars.
  void printBanner();
  // Asks the fields of a page; -1 without an input or an engine.
  int showFields(int dialog, int subDialog);
  int showFields(int dialog) { return showFields(dialog, -1); }
  // Prints a long text, pausing after each screenful.
  void printPaged(const char* text);

  int quiet;
  bool progressLineShown;
  int overallProgress;
  int currentProgress;
  QUtils::CharString destinationText;

 protected:
  // The terminal's size; 80 columns and 24 rows when it can't be found.
  virtual void getTerminalSize(int* columns, int* rows);

 private:
  void eraseProgressLine();
  // Prints a RichEditText element's document, as plain text at the
  // terminal's width.
  void showRichText(const char* key);
  // After a question went unanswered at the end of the input: the walk ends
  // as a cancel.
  void cancelIfInputEnded();

  QUtils::StringBuilder textBuffer;
  // The page last shown, and which of its elements were printed: a page
  // entered again in a row (its condition held the walk) prints only what
  // it hasn't printed yet.
  int lastDialog;
  int lastSubDialog;
  int shownElements;
  std::vector<bool> elementShown;
  int walkResult;  // what run() gave
};

#endif  // QLUX_FRONTENDS_CONSOLE_CONSOLE_UI_H_
