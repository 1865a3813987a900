// The body of MainFrame (main_frame.h) apart from the building of pages
// (page_builder.cpp): pictures, buttons and their events, focus, the step
// buttons, closing, and the task list.
#include "frontends/gui/main_frame.h"

#include <wx/accel.h>
#include <wx/iconbndl.h>
#include <wx/listctrl.h>
#include <wx/msgdlg.h>
#include <wx/settings.h>
#include <wx/textctrl.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"
#include "frontends/gui/custom_controls.h"
#include "frontends/gui/dialog_fields.h"
#include "frontends/gui/image_loader.h"
#include "frontends/gui/installer_app.h"
#include "frontends/gui/wx_gui.h"

namespace {

// The frame asks the engine about the page at most this often.
const long kIdleInterval = 1000;

// Above this page scale, pictures are taken in their large ("@2x") form.
const double kLargePictureScale = 1.2;

// The keys of the task icons, in the order of the task states.
const char* const kTaskIconKeys[] = {"icon_not_started", "icon_current", "icon_good_finish", "icon_bad_finish",
                                     "icon_inactive"};

}  // namespace

MainFrame::MainFrame(WxGUI* ownerUi, InstallExchangeInfo* engine)
    : wxFrame(),
      defaultButtonId(kDialogButtonIds),
      textHeight(0),
      navigateForward(true),
      altShown(false),
      enterMovesFocus(false),
      focusControl(nullptr),
      ui(ownerUi),
      exchange(engine),
      icon(nullptr),
      taskIcons(nullptr),
      taskIconDensity(1),
      panel(nullptr),
      timer(this, kTimerId),
      scaleWeights(nullptr),
      hasTheme(engine && engine->hasColourTheme()),
      textScale(uiScale),
      appliedUnitsWidth(-1),
      appliedUnitsHeight(-1),
      laidOutWidth(-1),
      laidOutHeight(-1),
      relayoutPending(false),
      defaultWasOn(false),
      closing(false) {
  char title[400] = "";
  if (exchange) exchange->getWindowTitle(title, sizeof title);
  int current = exchange ? exchange->getCurrentDialog() : 0;
  Create(nullptr, wxID_ANY, wxString::FromUTF8(title), wxDefaultPosition, wxDefaultSize,
         wxDEFAULT_FRAME_STYLE | wxCLIP_CHILDREN);

  wxFont font = wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT);
  SetFont(font);
  panel = new wxPanel(this, wxID_ANY, wxDefaultPosition, GetClientSize(), wxTAB_TRAVERSAL | wxBORDER_NONE);
  panel->SetFont(font);
  if (exchange) applyDialogSize(current);
  textHeight = panel->GetTextExtent(kFontTestString).GetHeight();

  wxImage appIcon = loadImageByKey("AppIcon");
  if (appIcon.IsOk()) {
    icon = new wxIcon();
    icon->CopyFromBitmap(wxBitmap(appIcon));
    // Both sizes, where there are two: the system picks the one that suits
    // the place it draws the icon in.
    wxIconBundle icons(*icon);
    wxImage large = loadImageByKey("AppIcon@2x");
    if (large.IsOk()) {
      wxIcon second;
      second.CopyFromBitmap(wxBitmap(large));
      icons.AddIcon(second);
    }
    SetIcons(icons);
  }
  loadTaskIcons();

  if (hasTheme) {
    uint32_t background = exchange->getThemeColour(0);
    uint32_t foreground = exchange->getThemeColour(10);
    if (background != kNoColour) panel->SetBackgroundColour(colourFromNumber(background));
    if (foreground != kNoColour) panel->SetForegroundColour(colourFromNumber(foreground));
  }

  Bind(wxEVT_TIMER, &MainFrame::onTimer, this, kTimerId);
  Bind(wxEVT_ACTIVATE, &MainFrame::onActivate, this);
  Bind(wxEVT_IDLE, &MainFrame::onIdle, this);
  Bind(wxEVT_CLOSE_WINDOW, &MainFrame::onClose, this);
  Bind(wxEVT_SIZE, &MainFrame::onSize, this);
  Bind(wxEVT_NAVIGATION_KEY, &MainFrame::onNavigation, this);
  panel->Bind(wxEVT_NAVIGATION_KEY, &MainFrame::onNavigation, this);
  Bind(wxEVT_MENU, &MainFrame::onCommand, this);
  // Page buttons, and the windows of fields, report to the panel.
  panel->Bind(wxEVT_BUTTON, &MainFrame::onCommand, this);
  panel->Bind(wxEVT_MENU, &MainFrame::onCommand, this);
  panel->Bind(wxEVT_CHECKBOX, &MainFrame::onFieldEvent, this);
  panel->Bind(wxEVT_RADIOBUTTON, &MainFrame::onFieldEvent, this);
  timer.Start(1000);
  idleWatch.Start();

  // Escape cancels on every page; with a theme the self-drawn buttons also
  // need Enter (the page builder adds their access keys).
  std::vector<wxAcceleratorEntry> keys = {wxAcceleratorEntry(wxACCEL_NORMAL, WXK_ESCAPE, kEscapeKeyId)};
  if (hasTheme) keys.push_back(wxAcceleratorEntry(wxACCEL_NORMAL, WXK_RETURN, kEnterKeyId));
  SetAcceleratorTable(wxAcceleratorTable(static_cast<int>(keys.size()), keys.data()));

  if (ui) ui->frame = this;
  if (exchange) exchange->enterDialog(current, ui);
}

MainFrame::~MainFrame() {
  timer.Stop();
  if (ui) ui->detachFrame();
  deleteFields(dialogFields);
  deleteFields(subDialogFields);
  delete icon;
  delete taskIcons;
  freeScaleWeights(&scaleWeights);
}

void MainFrame::loadTaskIcons() {
  taskIcons = new std::vector<wxImage>();
  // The large forms only when all five have one, so that the icons match.
  for (int density : {2, 1}) {
    if (density == 2 && uiScale <= kLargePictureScale) continue;
    taskIcons->clear();
    taskIconDensity = density;
    for (const char* key : kTaskIconKeys) {
      std::string name = std::string(key) + (density == 2 ? "@2x" : "");
      wxImage image = loadImageByKey(name.c_str());
      if (!image.IsOk()) break;
      taskIcons->push_back(image);
    }
    if (taskIcons->size() == sizeof kTaskIconKeys / sizeof kTaskIconKeys[0]) return;
  }
  // No icon data: the list goes without icons.
  delete taskIcons;
  taskIcons = nullptr;
  taskIconDensity = 1;
}

double MainFrame::deviceScale() {
#ifdef __WXGTK__
  double scale = GetContentScaleFactor();
  return scale >= 1.0 ? scale : 1.0;
#else
  // Windows places windows in device pixels: uiScale covers its scaling.
  return 1.0;
#endif
}

wxImage MainFrame::loadPicture(const char* key, int* density) {
  *density = 1;
  if (!key || !*key) return wxImage();
  if (uiScale * deviceScale() > kLargePictureScale) {
    wxImage large = loadImageByKey((std::string(key) + "@2x").c_str());
    if (large.IsOk()) {
      *density = 2;
      return large;
    }
  }
  return loadImageByKey(key);
}

wxImage MainFrame::loadImageByKey(const char* key) {
  if (!exchange || !key || !*key) return wxImage();
  if (exchange->isActionLogRun()) {
    char path[QUtils::kMaxPath] = "";
    // The result is -1 in every case: an empty path means there is no such file entry.
    exchange->getInstalledFilePath(key, path, sizeof path);
    if (!path[0]) return wxImage();
    FILE* file = QUtils::openFile(path, "rb");  // UTF-8 name: the wide call on Windows
    if (!file) return wxImage();
    std::string bytes;
    char block[8192];
    size_t count;
    while ((count = std::fread(block, 1, sizeof block, file)) > 0) bytes.append(block, count);
    std::fclose(file);
    if (bytes.empty()) return wxImage();
    return decodeImage(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<uint32_t>(bytes.size()));
  }
  uint32_t size = 0;
  QUtils::RefArray<unsigned char> data = exchange->getFileData(key, &size);
  if (data.isNull() || size == 0) return wxImage();
  return decodeImage(data.get(), size);
}

bool MainFrame::windowEnabled(wxWindow* window) {
  if (!window) return false;
  wxCustomButton* custom = dynamic_cast<wxCustomButton*>(window);
  if (custom) return custom->isEnabled();
  return window->IsEnabled();
}

void MainFrame::enableWindow(wxWindow* window, bool enable) {
  if (window) window->Enable(enable);
}

PageButton* MainFrame::findButton(int id) {
  for (PageButton& button : dialogButtons)
    if (button.id == id) return &button;
  for (PageButton& button : subDialogButtons)
    if (button.id == id) return &button;
  return nullptr;
}

void MainFrame::onCommand(wxCommandEvent& event) {
  int id = event.GetId();
  if (id == kStartCommandId) {
    focusInitial(true);
    uiReady = true;
    return;
  }
  if (id == kAltKeyId) {
    onAlt();
    return;
  }
  if (id == kEscapeKeyId) {
    // The engine asks through confirmCancel, as for a Cancel button.
    if (exchange && !closing) exchange->runAction(ui, "Cancel");
    return;
  }
  for (auto& entry : fieldEvents) {
    if (entry.first == id) {
      entry.second->activate(id);
      return;
    }
  }
  if (id == kEnterKeyId || findButton(id)) {
    onButton(id);
    return;
  }
  event.Skip();
}

void MainFrame::onFieldEvent(wxCommandEvent& event) {
  for (auto& entry : fieldEvents) {
    if (entry.first == event.GetId()) {
      entry.second->activate(event.GetId());
      return;
    }
  }
  event.Skip();
}

void MainFrame::onButton(int id) {
  if (!exchange) return;
  if (id == kEnterKeyId) {
    if (enterMovesFocus) {
      wxWindow* focused = wxWindow::FindFocus();
      if (focused) focused->Navigate(wxNavigationKeyEvent::IsForward);
      return;
    }
    id = defaultButtonId;
  }
  PageButton* button = findButton(id);
  if (!button || !windowEnabled(button->window)) return;
  // The work runs inside this handler's caller and lets events through; a
  // button that moves the wizard must not start a second step inside it,
  // whatever the template's buttons say (the engine refuses it as well).
  if ((button->flags & kButtonShift) && exchange->getUiState() == kUiWorking) return;
  // The engine may rebuild the page below; keep what is needed.
  int flags = button->flags;
  int shift = button->shift;
  std::string action = button->action;
  wxWindow* window = button->window;
  if (flags & kButtonAction) {
    exchange->runAction(ui, action.c_str());
    if (!(flags & kButtonShift) && ui && ui->frame == this && !closing) {
      // The action may have rebuilt the page; only a button still there
      // keeps the focus.
      PageButton* again = findButton(id);
      focusControl = again && again->window == window ? window : nullptr;
      ui->refreshDialog(exchange->getCurrentDialog(), exchange->getCurrentSubDialog(), 31, true);
      focusInitial(false);
    }
  }
  if (flags & kButtonShift) exchange->shiftDialog(ui, shift);
}

void MainFrame::focusInitial(bool force) {
  if (!force && !IsActive()) return;
  if (focusControl && focusControl->IsShown() && windowEnabled(focusControl)) {
    focusControl->SetFocus();
    return;
  }
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      if (!(button.flags & kButtonDefault)) continue;
      defaultButtonId = button.id;
      if (button.window && button.window->IsShown() && windowEnabled(button.window)) {
        button.window->SetFocus();
        return;
      }
    }
  }
  // No default button can take it (Next is off while work runs or a
  // program is in the way): the first other button, but neither Cancel nor
  // Back, so that a Return meant for Next neither cancels nor goes back.
  // Without one the focus stays where it is: the panel itself can't hold it
  // (GTK then walks the focus chain round without end when a key comes).
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      if (button.flags & kButtonDefault) defaultButtonId = button.id;
      if (QUtils::compareNoCase(button.action.c_str(), "Cancel") == 0 || button.shift < 0) continue;
      if (button.window && button.window->IsShown() && windowEnabled(button.window)) {
        button.window->SetFocus();
        return;
      }
    }
  }
}

void MainFrame::onAlt() {
  altShown = !altShown;
  PageButton* button = findButton(defaultButtonId);
  if (!button || !button->window) return;
  wxKeyEvent key(wxEVT_KEY_DOWN);
  key.SetId(button->id);
  key.SetEventObject(button->window);
  key.m_altDown = altShown;
  button->window->GetEventHandler()->ProcessEvent(key);
}

bool MainFrame::confirmCancel() {
  if (!exchange) return true;
  bool removal = ui && ui->isUninstall;
  if (exchange->getUiState() == kUiWorking) {
    wxMessageBox(removal ? "The removal is running and can not be aborted!"
                         : "The installation is running and can not be aborted!",
                 "Cancel information", wxOK, this);
    return false;
  }
  char product[200] = "";
  exchange->getProductName(product, sizeof product);
  // Before any work, leaving cancels; once work has run, leaving keeps what
  // was done, and the question says so.
  bool afterWork = exchange->hasWorkRun();
  wxString text;
  if (!afterWork) text = removal ? "This will cancel the removal of\n" : "This will cancel the installation of\n";
  if (afterWork) text = removal ? "This will close the removal of\n" : "This will close the setup of\n";
  text += wxString::FromUTF8(product);
  if (!afterWork) text += removal ? "\nNothing has been removed yet." : "";
  if (afterWork) text += removal ? "\nWhat has been removed stays removed." : "\nWhat has been done is kept.";
  text += "\nAre you sure?";
  // No is the default: a stray Return must not end the wizard.
  return wxMessageBox(text, afterWork ? "Close confirmation" : "Cancel confirmation",
                      wxYES_NO | wxNO_DEFAULT | wxICON_INFORMATION, this) == wxYES;
}

void MainFrame::updateStepButtons(int state) {
  if (!exchange) return;
  bool working = state == kUiWorking;
  bool backLeadsSomewhere = !working && exchange->canGoBack();
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      if (!(button.flags & kButtonShift) || !button.window) continue;
      bool enable;
      if (button.shift < 0 && !backLeadsSomewhere) {
        enable = false;
      } else if (working) {
        enable = false;
      } else if (button.flags & kButtonDisableable) {
        enable = state == kUiWaiting;  // as enableButtons left it
      } else {
        enable = true;
      }
      if (windowEnabled(button.window) != enable) enableWindow(button.window, enable);
    }
  }
  // The default button as it stands now, against the last look: enableButtons
  // may have turned it on just before this.
  PageButton* standing = nullptr;
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      if (standing || !(button.flags & kButtonDefault) || !button.window) continue;
      if (button.window->IsShown() && windowEnabled(button.window)) standing = &button;
    }
  }
  PageButton* cameOn = defaultWasOn ? nullptr : standing;
  defaultWasOn = standing != nullptr;
  if (!cameOn || !IsActive()) return;
  wxWindow* focused = wxWindow::FindFocus();
  wxTextCtrl* typing = dynamic_cast<wxTextCtrl*>(focused);
  if (typing && typing->IsEditable() && typing->IsEnabled()) return;
  defaultButtonId = cameOn->id;
  cameOn->window->SetFocus();
}

void MainFrame::closeFrame() {
  if (closing) return;
  closing = true;
  timer.Stop();
  // The toolkit hides a last top-level window only once its children are
  // gone, which on Windows leaves an empty frame on the screen for a while;
  // hidden first, the window leaves the screen at once.
  Hide();
  Destroy();
}

void MainFrame::idleCheck() {
  if (!exchange || closing) return;
  if (exchange->isCancelled() || exchange->isFinished()) {
    closeFrame();
    return;
  }
  if (idleWatch.Time() < kIdleInterval + 1) return;
  idleWatch.Start();
  if (ui) ui->refreshDialog(exchange->getCurrentDialog(), exchange->getCurrentSubDialog(), kRefreshConditions, false);
}

void MainFrame::onTimer(wxTimerEvent&) {
  idleCheck();
  if (!closing && exchange && ui && exchange->getUiState() != kUiWorking) ui->pumpEvents();
}

void MainFrame::onIdle(wxIdleEvent& event) {
  idleCheck();
  event.Skip();
}

void MainFrame::onActivate(wxActivateEvent& event) {
  if (event.GetActive() && panel && !closing) {
    panel->SetFocus();
    Refresh();
    Update();
  }
  event.Skip();
}

void MainFrame::onClose(wxCloseEvent& event) {
  if (event.CanVeto()) {
    if (confirmCancel()) {
      closeFrame();
    } else {
      event.Veto();
    }
    return;
  }
  closeFrame();
}

void MainFrame::onSize(wxSizeEvent& event) {
  event.Skip();
  if (!panel || closing) return;
  int width = 0;
  int height = 0;
  GetClientSize(&width, &height);
  if (width < 1 || height < 1) return;
  panel->SetSize(0, 0, width, height);
  // Only a page that stands, placed for another size, is placed anew, once
  // the toolkit has finished sizing: windows made while it sizes the frame
  // get other natural heights.
  if (laidOutWidth < 0 || (width == laidOutWidth && height == laidOutHeight) || relayoutPending) return;
  relayoutPending = true;
  CallAfter([this]() {
    relayoutPending = false;
    if (!closing) relayoutPage();
  });
}

void MainFrame::onNavigation(wxNavigationKeyEvent& event) {
  navigateForward = event.GetDirection();
  event.Skip();
}

void MainFrame::setTaskState(const char* taskName, const char* text, int state) {
  PageControl* control = findControl("TaskList");
  wxListCtrl* list = control ? dynamic_cast<wxListCtrl*>(control->window) : nullptr;
  if (!list) return;
  // A step whose ShowCondition has come true since (a failure step after a
  // failure) joins the list before its state is shown.
  syncTaskRows(list);
  for (size_t row = 0; row < tasks.size(); row++) {
    if (QUtils::compareNoCase(tasks[row].name.c_str(), taskName) != 0) continue;
    TaskRow& task = tasks[row];
    task.state = state;
    task.text = text;
    long item = static_cast<long>(row);
    if (item >= list->GetItemCount()) continue;
    list->SetItemImage(item, state);
    list->SetItemText(item, wxString::FromUTF8(text));
    list->SetItemTextColour(item, taskColour(state));
  }
}

wxColour MainFrame::taskColour(int state) {
  uint32_t themed = hasTheme ? exchange->getThemeColour(state == kTaskInactive ? 11 : 10) : kNoColour;
  if (themed != kNoColour) return colourFromNumber(themed);
  return wxSystemSettings::GetColour(state == kTaskInactive ? wxSYS_COLOUR_GRAYTEXT : wxSYS_COLOUR_WINDOWTEXT);
}

void MainFrame::resetPageMemory() {
  focusControl = nullptr;
  enterMovesFocus = false;
  altShown = false;
  defaultButtonId = kDialogButtonIds;
}
