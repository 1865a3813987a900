// The body of WxGUI (wx_gui.h): every request of the engine passed on to the
// frame, or dropped while there is none.
#include "frontends/gui/wx_gui.h"

#include <wx/gauge.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/msgdlg.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/utils.h>

#include <cstdio>
#include <cstring>

#include "foundation/files.h"
#include "foundation/text.h"
#include "frontends/gui/custom_controls.h"
#include "frontends/gui/dialog_fields.h"
#include "frontends/gui/installer_app.h"
#include "frontends/gui/main_frame.h"

namespace {

// Pending file lines start with room for this many bytes.
const size_t kFileLinesCapacity = 32768;
// The event loop runs at most once in this many milliseconds.
const long kYieldInterval = 65;
// How often, and how far apart, the toolkit is tried on the display.
const int kDisplayAttempts = 4;
const unsigned long kDisplayRetryMs = 500;

}  // namespace

WxGUI::WxGUI(int isUninstall)
    : GenericUI(isUninstall, 0),
      frame(nullptr),
      fileListControl(nullptr),
      destinationControl(nullptr),
      currentGauge(nullptr),
      currentBar(nullptr),
      overallGauge(nullptr),
      overallBar(nullptr),
      toolkitStarted(false) {
  fileLines.reserve(kFileLinesCapacity);
  yieldWatch = std::chrono::steady_clock::now();
}

WxGUI::~WxGUI() {
  if (frame) frame->ui = nullptr;
  if (toolkitStarted) wxEntryCleanup();
}

bool WxGUI::openDisplay() {
  if (toolkitStarted) return true;
  // The toolkit's entry wants the program's own path as its one argument.
  static char self[QUtils::kMaxPath];
  if (!QUtils::getModulePath(self, sizeof self)) QUtils::copyText(self, "qlux-setup", sizeof self);
  static char* argv[] = {self, nullptr};
  int argc = 1;
  // The toolkit's own messages go to the standard error: a message box
  // can't be shown while the display is in doubt.
  delete wxLog::SetActiveTarget(new wxLogStderr);
  // A display that is there may still refuse one connection on a busy
  // machine: the toolkit is tried a few times before the wizard goes to the
  // console, where a user who started the program from a menu has no
  // terminal to see it. A failed start leaves no application object behind.
  for (int attempt = 0; attempt < kDisplayAttempts && !toolkitStarted; attempt++) {
    if (attempt > 0) wxMilliSleep(kDisplayRetryMs);
    wxApp::SetInstance(new InstallerApp(this));
    toolkitStarted = wxEntryStart(argc, argv);
  }
  return toolkitStarted;
}

int WxGUI::run() {
  if (!openDisplay()) return 1;
  if (wxTheApp->CallOnInit()) {
    wxTheApp->OnRun();
    wxTheApp->OnExit();
  }
  wxEntryCleanup();
  toolkitStarted = false;
  return 0;
}

void WxGUI::detachFrame() {
  frame = nullptr;
  fileListControl = nullptr;
  destinationControl = nullptr;
  currentGauge = nullptr;
  currentBar = nullptr;
  overallGauge = nullptr;
  overallBar = nullptr;
}

void WxGUI::showDialog(int dialog) {
  if (frame) frame->showDialogPage(dialog);
}

void WxGUI::showSubDialog(int dialog, int subDialog) {
  if (frame) frame->showSubDialogPage(dialog, subDialog);
}

void WxGUI::updateButtons(int dialog, int subDialog) {
  if (!exchange) return;
  int state = exchange->getUiState();
  if (exchange->checkDialogCondition(this) == 0) {
    state = kUiConditionFailed;
    exchange->setUiState(kUiConditionFailed);
  }
  if (state == kUiWaiting || state == kUiWorking || state == kUiConditionFailed || state == kUiFieldInvalid) {
    enableButtons(state == kUiWaiting);
  }
  if (frame) frame->updateStepButtons(state);
}

void WxGUI::refreshDialog(int dialog, int subDialog, int flags, bool restoreFocus) {
  if (!exchange || !frame) return;
  if (exchange->getUiState() != kUiWorking) exchange->setUiState(kUiWaiting);
  exchange->fireTriggers(kEventDynamic, dialog, subDialog);
  if (!frame) return;
  if (flags & kRefreshFields) {
    std::vector<DialogField*>& list = subDialog >= 0 ? frame->subDialogFields : frame->dialogFields;
    if (subDialog >= 0) {
      storeSubDialogFields(dialog, subDialog);
    } else {
      storeFields(dialog);
    }
    frame->layoutFields(list);
    loadFields(dialog, subDialog);
  }
  // Both lists are validated, so that either may colour itself.
  bool invalid = frame->anyFieldInvalid(frame->dialogFields);
  if (frame->anyFieldInvalid(frame->subDialogFields)) invalid = true;
  if (invalid) exchange->setUiState(kUiFieldInvalid);
  if (flags & kRefreshTasks) exchange->updateTasks(this);
  if (!frame) return;
  if (flags & kRefreshConditions) updateControlConditions();
  if (flags & kRefreshButtons) {
    for (std::vector<PageButton>* list : {&frame->dialogButtons, &frame->subDialogButtons}) {
      for (PageButton& button : *list) {
        if (button.condition.empty() || !button.window) continue;
        button.window->Show(exchange->evaluateCondition(button.condition.c_str()) != 0);
      }
    }
  }
  updateButtons(dialog, subDialog);
  if (restoreFocus) frame->focusInitial(false);
  if (flags != 0) frame->Refresh();
}

void WxGUI::loadFields(int dialog, int subDialog) {
  if (!frame) return;
  frame->loadFieldList(subDialog >= 0 ? frame->subDialogFields : frame->dialogFields);
}

void WxGUI::updateControlConditions() {
  if (frame) frame->updateControlConditions();
}

void WxGUI::showControls(int dialog, int subDialog, bool visible) {
  if (!frame) return;
  frame->showPageControls(subDialog < 0 ? frame->dialogControls : frame->subDialogControls, visible);
}

int WxGUI::leaveDialog(int dialog) {
  if (!frame) return 0;
  // Lines still waiting belong to the page being left: shown there.
  addFileLine(nullptr, true);
  frame->storeFieldList(frame->dialogFields);
  frame->fieldEvents.clear();
  if (wxTheApp) wxTheApp->ProcessPendingEvents();
  if (frame) frame->resetPageMemory();
  return 0;
}

void WxGUI::leaveSubDialog(int dialog, int subDialog) {
  if (!frame) return;
  addFileLine(nullptr, true);
  frame->storeFieldList(frame->subDialogFields);
  frame->fieldEvents.clear();
  if (wxTheApp) wxTheApp->ProcessPendingEvents();
  if (frame) frame->resetPageMemory();
}

int WxGUI::storeFields(int dialog) {
  if (frame) frame->storeFieldList(frame->dialogFields);
  return 0;
}

void WxGUI::storeSubDialogFields(int dialog, int subDialog) {
  if (!frame) return;
  frame->storeFieldList(subDialog < 0 ? frame->dialogFields : frame->subDialogFields);
}

void WxGUI::clearTasks() {
  if (frame) frame->clearTasks();
}

void WxGUI::destroySubDialog() {
  if (!frame) return;
  addFileLine(nullptr, true);
  frame->destroySubDialog();
  // The progress controls may have been the sub-dialog's: bound anew to
  // what is left, so that no pointer outlives its window.
  bindProgressControls();
}

void WxGUI::retainControl(const char* name) {
  if (frame && name) frame->retainControl(name);
}

bool WxGUI::confirmCancel() {
  // Without a window there is nobody to ask.
  if (!frame) return true;
  return frame->confirmCancel();
}

void WxGUI::enableButtons(bool enable) {
  if (!frame) return;
  for (std::vector<PageButton>* list : {&frame->dialogButtons, &frame->subDialogButtons}) {
    for (PageButton& button : *list) {
      if ((button.flags & kButtonDisableable) && button.window) MainFrame::enableWindow(button.window, enable);
    }
  }
}

long WxGUI::yieldToEvents() {
  std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
  long elapsed = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(now - yieldWatch).count());
  if (elapsed < kYieldInterval) return elapsed;
  yieldWatch = now;
  if (wxTheApp) wxTheApp->Yield(true);
  return 0;
}

void WxGUI::pumpEvents() { yieldToEvents(); }

int WxGUI::pumpEventsQuietly() {
  yieldToEvents();
  return 0;
}

void WxGUI::setOverallProgress(int percent) {
  if (overallBar) {
    overallBar->SetValue(static_cast<unsigned>(percent));
  } else if (overallGauge) {
    overallGauge->SetValue(percent);
  }
}

void WxGUI::setCurrentProgress(int percent) {
  if (currentBar) {
    currentBar->SetValue(static_cast<unsigned>(percent));
  } else if (currentGauge) {
    currentGauge->SetValue(percent);
  }
}

void WxGUI::setDestinationText(const char* text) {
  if (destinationControl && text) destinationControl->SetLabel(wxString::FromUTF8(text));
}

void WxGUI::addFileLine(const char* text, bool flush) {
  if (!fileListControl) return;
  if (text) {
    fileLines.append(text);
    fileLines.push_back('\n');
  }
  if (flush && !fileLines.empty()) {
    fileListControl->AppendText(wxString::FromUTF8(fileLines.c_str()));
    fileLines.clear();
  }
}

void WxGUI::clearFileLines() {
  if (fileListControl) fileListControl->Clear();
}

bool WxGUI::showMessage(const char* text, int kind) {
  if (!wxTheApp) {
    // Before the toolkit runs, or after it ended, the message can only go
    // to the standard error.
    std::fprintf(stderr, "%s\n", text ? text : "");
    return kind == kMessageNotice;
  }
  long style = wxOK;
  if (kind == kMessageOkCancel) style = wxOK | wxCANCEL;
  if (kind == kMessageYesNo) style = wxYES_NO;
  int answer = wxMessageBox(wxString::FromUTF8(text ? text : ""), "Installation", style, frame);
  if (kind == kMessageNotice) return true;
  return answer == wxOK || answer == wxYES;
}

void WxGUI::setTaskState(const char* taskName, const char* text, int state) {
  if (frame && taskName) frame->setTaskState(taskName, text ? text : "", state);
}

void WxGUI::showHelp() {
  if (!exchange || !wxTheApp) return;
  static char url[4096];
  if (exchange->getHelpUrl(url, sizeof url) != 0) {
    wxMessageBox("Sorry, no help is available for this product", "Error", wxOK | wxICON_INFORMATION, frame);
    return;
  }
  if (!wxLaunchDefaultBrowser(wxString::FromUTF8(url))) {
    wxMessageBox("The help WebPage could not be opened.", "Error", wxOK | wxICON_ERROR, frame);
  }
}

void WxGUI::setStartupError(const char* message, const char* title) {
  if (!startupText.empty() || !message) return;
  startupText.assign(message, strnlen(message, 511));
  startupCaption.assign(title ? title : "", title ? strnlen(title, 511) : 0);
}

void WxGUI::showStartupError() {
  if (startupText.empty()) return;
  // The application object shows the message and stops at once.
  run();
}

void WxGUI::bindProgressControls() {
  wxTextCtrl* previousList = fileListControl;
  fileListControl = nullptr;
  destinationControl = nullptr;
  currentGauge = nullptr;
  currentBar = nullptr;
  overallGauge = nullptr;
  overallBar = nullptr;
  if (!frame) return;
  PageControl* control = frame->findControl("Destfilelist");
  if (control) fileListControl = dynamic_cast<wxTextCtrl*>(control->window);
  // Lines meant for a list that is gone don't move to another page's list.
  if (fileListControl != previousList) fileLines.clear();
  control = frame->findControl("Destination");
  if (control) destinationControl = dynamic_cast<wxStaticText*>(control->window);
  control = frame->findControl("Current");
  if (control && frame->hasTheme) currentBar = dynamic_cast<wxCustomProgressBar*>(control->window);
  if (control && !frame->hasTheme) currentGauge = dynamic_cast<wxGauge*>(control->window);
  control = frame->findControl("Overall");
  if (control && frame->hasTheme) overallBar = dynamic_cast<wxCustomProgressBar*>(control->window);
  if (control && !frame->hasTheme) overallGauge = dynamic_cast<wxGauge*>(control->window);
}
