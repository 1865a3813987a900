// MainFrame: the one window of a graphical run. A frame with one panel, on
// which every dialog of the template is built as a page: the dialog's
// buttons, static controls and fields, and over them the current
// sub-dialog's own three lists. The frame owns those lists and their
// windows; the records they were made from belong to the engine and are not
// kept. The frame takes the size of its dialog, shrunk to fit the screen,
// and the user may resize it: the page is then placed anew.
//
// The frame takes clicks, the Enter, Escape and Alt keys and the close box
// to the engine, polls the engine's conditions about once a second from the
// idle handler and a one-second timer, and destroys itself once the engine
// says the run is cancelled or finished, which ends the event loop.
//
// Page building (coordinates, buttons, controls, pictures, fields) lives in
// page_builder.cpp; the window's own life and events here.
#ifndef QLUX_FRONTENDS_GUI_MAIN_FRAME_H_
#define QLUX_FRONTENDS_GUI_MAIN_FRAME_H_

#include <wx/bitmap.h>
#include <wx/frame.h>
#include <wx/icon.h>
#include <wx/image.h>
#include <wx/panel.h>
#include <wx/stopwatch.h>
#include <wx/timer.h>

#include <string>
#include <utility>
#include <vector>

#include "engine/exchange.h"
#include "frontends/gui/image_scaler.h"

class WxGUI;
class DialogField;
class wxListCtrl;

// Control ids of a page.
const int kDialogButtonIds = 100;
const int kSubDialogButtonIds = 150;
const int kFieldIds = 200;
const int kDialogControlIds = 300;
const int kSubDialogControlIds = 350;
const int kEnterKeyId = 400;
const int kAltKeyId = 401;
const int kEscapeKeyId = 402;
const int kTimerId = 403;
const int kStartCommandId = 405;

// A rectangle of the panel, in pixels.
struct PageRect {
  int x, y, w, h;
};

// The template's numbers as pixels on a client area of `clientWidth` by
// `clientHeight` at `scale`: right and bottom alignment count from the far
// edge, a negative width or height leaves that much room to the far edge.
// Centring doesn't move the rectangle.
PageRect placeRect(int x, int y, int w, int h, int hAlign, int vAlign, int clientWidth, int clientHeight,
                   double scale);
// The template's value `v` in pixels at the process's uiScale, truncated.
int scaled(int v);

// The template's numbers of an element or a button, before placing.
struct PageUnits {
  int x = 0, y = 0, w = 0, h = 0;
};

// One static element of a page.
struct PageControl {
  wxImage picture;  // of an Image or a SlideShow; not IsOk otherwise
  double pictureScale = 1.0;  // device pixels of `picture` for a window pixel
  int id = 0;
  int kind = 0;
  PageUnits units;
  int x = 0, y = 0, w = 0, h = 0;
  wxWindow* window = nullptr;
  std::string name;
  std::string condition;
  int hAlign = 0, vAlign = 0;
  std::string text;  // a Text element's whole label, before it is fitted
};

// One button of a page.
struct PageButton {
  int id = 0;
  wxWindow* window = nullptr;
  int flags = 0;
  PageUnits units;
  int x = 0, y = 0, w = 0, h = 0;
  int hAlign = 0, vAlign = 0;
  std::string label;
  std::string condition;
  std::string action;
  int shift = 0;
};

// One row of the task list.
struct TaskRow {
  std::string name;
  std::string text;
  int state = 0;
};

class MainFrame : public wxFrame {
 public:
  // Makes the frame for the engine's current dialog and enters that dialog.
  MainFrame(WxGUI* ui, InstallExchangeInfo* exchange);
  ~MainFrame() override;

  // --- the frame's life and events (main_frame.cpp)
  void onButton(int id);
  // Gives the focus to the remembered control, the default button, or the
  // first button that can take it. Unless `force`, only while the frame is
  // active.
  void focusInitial(bool force);
  void onAlt();
  // Asks whether the user really wants to cancel; refuses while the engine
  // is working.
  bool confirmCancel();
  // Enables the buttons that move the wizard for the UI `state`: none while
  // work runs, and a Back button only where a step back leads to a page that
  // can be entered again. A default button that comes back on takes the
  // focus, unless the user is typing in a text box.
  void updateStepButtons(int state);
  void setTaskState(const char* taskName, const char* text, int state);
  // The text colour of a task row in `state`.
  wxColour taskColour(int state);
  // Runs the page's periodic check; destroys the frame once the run is over.
  void idleCheck();
  // Destroys the frame, once.
  void closeFrame();
  // An image by file key: from the installed files in an action-log run,
  // else from the package. Not IsOk when there is none.
  wxImage loadImageByKey(const char* key);
  // The picture of `key` for the page scale: where pages are drawn at more
  // than 1.2 times their size and a picture "KEY@2x" exists, that one, with
  // `*density` 2 (it holds two pixels for each pixel of the 1x picture);
  // else the picture of `key` with `*density` 1.
  wxImage loadPicture(const char* key, int* density);
  // Device pixels for a pixel of the window: 2 on a GTK screen scaled by
  // GDK_SCALE=2, else 1.
  double deviceScale();
  // The button of `id` in either list, or null.
  PageButton* findButton(int id);
  // Whether a page window takes input; the self-drawn buttons keep their
  // own state.
  static bool windowEnabled(wxWindow* window);
  static void enableWindow(wxWindow* window, bool enable);

  // --- page building (page_builder.cpp)
  // The client size, or the last good one while the frame reports none.
  void clientSize(int* width, int* height);
  // Sizes the frame for `dialog`: at the font's scale, or at a smaller one
  // where that page would not fit the display's work area (uiScale follows).
  // A dialog of the size of the one before keeps the frame as it is, which
  // the user may have resized.
  void applyDialogSize(int dialog);
  // The work area of the display the frame is on.
  wxRect workArea();
  // Moves the frame back into `area` where it sticks out.
  void keepOnScreen(const wxRect& area);
  // Places the page's buttons, controls and fields anew for the present
  // client size, after the user resized the frame.
  void relayoutPage();
  // Makes Tab follow the page: its inputs in reading order (rows from the
  // top, in a row from the left), then the buttons at its foot.
  void orderTabs();
  void showDialogPage(int dialog);
  void showSubDialogPage(int dialog, int subDialog);
  void buildButtons(int dialog, int subDialog, std::vector<PageButton>& list, int firstId);
  void buildAccelerators();
  void buildControls(int dialog, int subDialog, std::vector<PageControl>& list, int firstId);
  // Makes the window of one element; `control` already has its rectangle.
  void makeControl(ELEMENTINFO* element, PageControl& control);
  // Makes the window of a picture control at its placed position.
  void showPicture(PageControl& control);
  // Wraps a Text control's label to its box, with an ellipsis and the whole
  // text as tool tip where the box is too small.
  void fitTextLabel(PageControl& control);
  void buildTaskList(ELEMENTINFO* element, PageControl& control);
  // The rows of the current dialog's tasks whose ShowCondition holds now;
  // a row already shown keeps its text and state.
  std::vector<TaskRow> visibleTaskRows();
  // Puts `tasks` into the list control, replacing its rows.
  void fillTaskList(wxListCtrl* list);
  // Brings the rows in line with the ShowConditions of the moment: a step
  // that can now happen joins the list at its place, one that no longer can
  // leaves it.
  void syncTaskRows(wxListCtrl* list);
  void showPageControls(std::vector<PageControl>& list, bool visible);
  void updateControlConditions();
  void retainControl(const char* name);
  void destroySubDialog();
  void clearTasks();
  // The control named `name` in the dialog's, the sub-dialog's and the
  // retained lists, in that order, case ignored.
  PageControl* findControl(const char* name);

  // --- fields (page_builder.cpp)
  void buildFields(int dialog, int subDialog, std::vector<DialogField*>& list);
  void layoutFields(std::vector<DialogField*>& list);
  bool anyFieldInvalid(std::vector<DialogField*>& list);
  void storeFieldList(std::vector<DialogField*>& list);
  void loadFieldList(std::vector<DialogField*>& list);
  void deleteFields(std::vector<DialogField*>& list);
  // Resets what a page remembers of focus and keys.
  void resetPageMemory();

  int defaultButtonId;
  int textHeight;
  bool navigateForward;
  bool altShown;
  bool enterMovesFocus;
  wxWindow* focusControl;
  WxGUI* ui;
  InstallExchangeInfo* exchange;
  wxIcon* icon;
  std::vector<wxImage>* taskIcons;
  int taskIconDensity;  // pixels of the icons for a pixel of their 1x form
  wxPanel* panel;
  wxTimer timer;
  std::vector<TaskRow> tasks;
  std::vector<DialogField*> dialogFields;
  std::vector<DialogField*> subDialogFields;
  std::vector<std::pair<int, DialogField*>> fieldEvents;
  std::vector<PageControl> dialogControls;
  std::vector<PageControl> subDialogControls;
  std::vector<PageControl> retainedControls;
  std::vector<PageButton> dialogButtons;
  std::vector<PageButton> subDialogButtons;
  SCALEWEIGHTS* scaleWeights;
  bool hasTheme;
  // The scale the font asks for; uiScale is lower where a page must shrink
  // to fit the screen.
  double textScale;
  // The template size of the dialog the frame was last sized for.
  int appliedUnitsWidth, appliedUnitsHeight;
  // The client size the page's windows were placed for.
  int laidOutWidth, laidOutHeight;
  // A relayoutPage is on its way.
  bool relayoutPending;
  // The page's default button was on at the last updateStepButtons.
  bool defaultWasOn;

 private:
  void onTimer(wxTimerEvent& event);
  void onIdle(wxIdleEvent& event);
  void onActivate(wxActivateEvent& event);
  void onClose(wxCloseEvent& event);
  void onSize(wxSizeEvent& event);
  void onNavigation(wxNavigationKeyEvent& event);
  void onCommand(wxCommandEvent& event);
  void onFieldEvent(wxCommandEvent& event);
  void loadTaskIcons();

  wxStopWatch idleWatch;
  bool closing;
};

#endif  // QLUX_FRONTENDS_GUI_MAIN_FRAME_H_
