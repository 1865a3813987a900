// Building the pages of the MainFrame: the coordinate rule, buttons,
// static controls, pictures, the task list, retained controls and the
// frame's side of the fields.
#include <wx/button.h>
#include <wx/dcclient.h>
#include <wx/display.h>
#include <wx/gauge.h>
#include <wx/imaglist.h>
#include <wx/listctrl.h>
#include <wx/richtext/richtextctrl.h>
#include <wx/settings.h>
#include <wx/statbmp.h>
#include <wx/statbox.h>
#include <wx/statline.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "foundation/text.h"
#include "frontends/console/rich_text.h"
#include "frontends/gui/custom_controls.h"
#include "frontends/gui/dialog_fields.h"
#include "frontends/gui/image_loader.h"
#include "frontends/gui/installer_app.h"
#include "frontends/gui/main_frame.h"
#include "frontends/gui/rtf_callback.h"
#include "frontends/gui/text_fit.h"
#include "frontends/gui/wx_gui.h"

namespace {

// Theme colours by index.
const int kThemeActiveText = 10;
const int kThemeInactiveText = 11;

// The last slide shown, for every page of the process; -1 before the first.
int lastSlide = -1;

int scaleBy(int v, double scale) { return static_cast<int>(static_cast<double>(v) * scale); }

// True when `condition` is empty or the engine says it holds.
bool holds(InstallExchangeInfo* exchange, const std::string& condition) {
  return condition.empty() || exchange->evaluateCondition(condition.c_str()) != 0;
}

// The box of a Text element: it clips its label and never takes the focus,
// so that Tab passes over it to the next input.
class TextBox : public wxPanel {
 public:
  TextBox(wxWindow* parent, int id, const wxPoint& position, const wxSize& size)
      : wxPanel(parent, id, position, size, wxBORDER_NONE) {}
  bool AcceptsFocus() const override { return false; }
  bool AcceptsFocusFromKeyboard() const override { return false; }
};

// Measures lines in the font of a label window.
class LabelMeasure : public TextMeasure {
 public:
  explicit LabelMeasure(wxWindow* label) : dc(label) { dc.SetFont(label->GetFont()); }
  int width(const std::string& line) override { return dc.GetTextExtent(wxString::FromUTF8(line)).GetWidth(); }
  int height(int lines) override {
    wxString block = "Ag";
    for (int i = 1; i < lines; i++) block += "\nAg";
    return dc.GetMultiLineTextExtent(block).GetHeight();
  }

 private:
  wxClientDC dc;
};

void destroyWindows(std::vector<PageControl>& list) {
  for (PageControl& control : list)
    if (control.window) control.window->Destroy();
  list.clear();
}

void destroyWindows(std::vector<PageButton>& list) {
  for (PageButton& button : list)
    if (button.window) button.window->Destroy();
  list.clear();
}

// A picture with its alpha laid over `background`, or, without alpha, with
// the exact system grey lifted by one so it never reads as transparent.
void flattenPicture(wxImage& image, const wxColour& background) {
  int count = image.GetWidth() * image.GetHeight();
  unsigned char* rgb = image.GetData();
  if (image.HasAlpha()) {
    unsigned char* alpha = image.GetAlpha();
    unsigned char back[3] = {background.Red(), background.Green(), background.Blue()};
    for (int i = 0; i < count; i++) {
      float a = static_cast<float>(alpha[i]) * 0.003921569f;
      for (int c = 0; c < 3; c++) {
        rgb[i * 3 + c] = static_cast<unsigned char>(rgb[i * 3 + c] * a + back[c] * (1.0f - a));
      }
      alpha[i] = 255;
    }
    return;
  }
  for (int i = 0; i < count; i++) {
    unsigned char* p = rgb + i * 3;
    if (p[0] == 240 && p[1] == 240 && p[2] == 240) p[0] = p[1] = p[2] = 241;
  }
}

}  // namespace

PageRect placeRect(int x, int y, int w, int h, int hAlign, int vAlign, int clientWidth, int clientHeight,
                   double scale) {
  PageRect rect;
  rect.x = hAlign == kAlignRight ? clientWidth - scaleBy(x, scale) : scaleBy(x, scale);
  rect.y = vAlign == kAlignBottom ? clientHeight - scaleBy(y, scale) : scaleBy(y, scale);
  rect.w = w < 0 ? scaleBy(w, scale) - rect.x + clientWidth : scaleBy(w, scale);
  rect.h = h < 0 ? scaleBy(h, scale) - rect.y + clientHeight : scaleBy(h, scale);
  return rect;
}

int scaled(int v) { return scaleBy(v, uiScale); }

void MainFrame::clientSize(int* width, int* height) {
  static int lastWidth = -1;
  static int lastHeight = -1;
  GetClientSize(width, height);
  if (*width < 1 && *height < 1) {
    if (lastWidth >= 0) {
      *width = lastWidth;
      *height = lastHeight;
    } else if (exchange) {
      *width = exchange->getDialogWidth(exchange->getCurrentDialog());
      *height = exchange->getDialogHeight(exchange->getCurrentDialog());
    }
    return;
  }
  lastWidth = *width;
  lastHeight = *height;
}

void MainFrame::applyDialogSize(int dialog) {
  if (!exchange) return;
  int unitsWidth = exchange->getDialogWidth(dialog);
  int unitsHeight = exchange->getDialogHeight(dialog);
  if (unitsWidth < 1 || unitsHeight < 1) return;
  if (unitsWidth == appliedUnitsWidth && unitsHeight == appliedUnitsHeight) return;
  appliedUnitsWidth = unitsWidth;
  appliedUnitsHeight = unitsHeight;
  wxRect area = workArea();
  wxSize decoration = GetSize() - GetClientSize();
  uiScale = scaleToFit(textScale, unitsWidth, unitsHeight, area.width - std::max(0, decoration.x),
                       area.height - std::max(0, decoration.y));
  // A page drawn smaller than the text asks, so that it fits the screen,
  // takes its text down by as much: the boxes and buttons were laid out for
  // text of that size, and larger text would be cut in them. Pages are
  // built after this, and their windows take the panel's font.
  wxFont font = wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT);
  if (uiScale < textScale) font.SetFractionalPointSize(font.GetFractionalPointSize() * uiScale / textScale);
  SetFont(font);
  if (panel) {
    panel->SetFont(font);
    textHeight = panel->GetTextExtent(kFontTestString).GetHeight();
  }
  int width = scaled(unitsWidth);
  int height = scaled(unitsHeight);
  // Smaller than this the fixed parts of a page (pictures, the task list)
  // would run into each other.
  SetMinClientSize(wxSize(width * 3 / 5, height * 3 / 5));
  SetClientSize(width, height);
  if (panel) panel->SetSize(0, 0, width, height);
  keepOnScreen(area);
}

wxRect MainFrame::workArea() {
  int display = wxDisplay::GetFromWindow(this);
  return wxDisplay(display == wxNOT_FOUND ? 0 : static_cast<unsigned>(display)).GetClientArea();
}

void MainFrame::keepOnScreen(const wxRect& area) {
  wxRect frame = GetRect();
  int x = std::max(area.x, std::min(frame.x, area.x + area.width - frame.width));
  int y = std::max(area.y, std::min(frame.y, area.y + area.height - frame.height));
  if (x != frame.x || y != frame.y) Move(x, y);
}

void MainFrame::relayoutPage() {
  if (!exchange) return;
  int width = 0;
  int height = 0;
  clientSize(&width, &height);
  laidOutWidth = width;
  laidOutHeight = height;
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      PageRect rect = placeRect(button.units.x, button.units.y, button.units.w, button.units.h, button.hAlign,
                                button.vAlign, width, height, uiScale);
      button.x = rect.x;
      button.y = rect.y;
      button.w = rect.w;
      button.h = rect.h;
      if (button.window) button.window->SetSize(rect.x, rect.y, rect.w, rect.h);
    }
  }
  for (std::vector<PageControl>* list : {&dialogControls, &subDialogControls, &retainedControls}) {
    for (PageControl& control : *list) {
      PageRect rect = placeRect(control.units.x, control.units.y, control.units.w, control.units.h, control.hAlign,
                                control.vAlign, width, height, uiScale);
      control.x = rect.x;
      control.y = rect.y;
      control.w = rect.w;
      control.h = rect.h;
      if (!control.window) continue;
      if (control.picture.IsOk()) {
        // A picture keeps its size; only its place in the rectangle moves.
        bool shown = control.window->IsShown();
        control.window->Destroy();
        control.window = nullptr;
        showPicture(control);
        if (control.window) control.window->Show(shown);
        continue;
      }
      control.window->SetSize(rect.x, rect.y, rect.w, rect.h);
      if (control.kind == kElementText) fitTextLabel(control);
      wxListCtrl* taskList = control.kind == kElementTaskLB ? dynamic_cast<wxListCtrl*>(control.window) : nullptr;
      if (taskList) taskList->SetColumnWidth(0, rect.w - 1);
    }
  }
  // Fields place their windows once, when they are built: they are built
  // anew, with the values the user has given so far.
  int dialog = exchange->getCurrentDialog();
  int subDialog = exchange->getCurrentSubDialog();
  storeFieldList(dialogFields);
  buildFields(dialog, -1, dialogFields);
  loadFieldList(dialogFields);
  if (subDialog >= 0) {
    storeFieldList(subDialogFields);
    buildFields(dialog, subDialog, subDialogFields);
    loadFieldList(subDialogFields);
  }
  if (ui) ui->refreshDialog(dialog, subDialog, kRefreshConditions | kRefreshFields, true);
  orderTabs();
  Refresh();
}

void MainFrame::orderTabs() {
  if (!panel) return;
  std::vector<wxWindow*> buttons;
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list)
      if (button.window) buttons.push_back(button.window);
  }
  std::vector<wxWindow*> windows;
  for (wxWindowList::compatibility_iterator node = panel->GetChildren().GetFirst(); node; node = node->GetNext()) {
    windows.push_back(node->GetData());
  }
  auto isButton = [&buttons](wxWindow* window) {
    return std::find(buttons.begin(), buttons.end(), window) != buttons.end();
  };
  std::stable_sort(windows.begin(), windows.end(), [&isButton](wxWindow* a, wxWindow* b) {
    bool buttonA = isButton(a);
    bool buttonB = isButton(b);
    if (buttonA != buttonB) return buttonB;
    wxPoint pa = a->GetPosition();
    wxPoint pb = b->GetPosition();
    return pa.y != pb.y ? pa.y < pb.y : pa.x < pb.x;
  });
  for (size_t i = 1; i < windows.size(); i++) windows[i]->MoveAfterInTabOrder(windows[i - 1]);
}

void MainFrame::showDialogPage(int dialog) {
  applyDialogSize(dialog);
  clientSize(&laidOutWidth, &laidOutHeight);
  focusControl = nullptr;
  buildButtons(dialog, -1, dialogButtons, kDialogButtonIds);
  buildControls(dialog, -1, dialogControls, kDialogControlIds);
  buildFields(dialog, -1, dialogFields);
  bool invalid = anyFieldInvalid(dialogFields);
  if (anyFieldInvalid(subDialogFields)) invalid = true;
  exchange->setUiState(invalid ? kUiFieldInvalid : kUiWaiting);
  if (ui) {
    ui->updateButtons(dialog, -1);
    ui->bindProgressControls();
  }
  orderTabs();
}

void MainFrame::showSubDialogPage(int dialog, int subDialog) {
  focusControl = nullptr;
  buildButtons(dialog, subDialog, subDialogButtons, kSubDialogButtonIds);
  buildControls(dialog, subDialog, subDialogControls, kSubDialogControlIds);
  buildFields(dialog, subDialog, subDialogFields);
  bool invalid = anyFieldInvalid(dialogFields);
  if (anyFieldInvalid(subDialogFields)) invalid = true;
  exchange->setUiState(invalid ? kUiFieldInvalid : kUiWaiting);
  if (ui) {
    ui->updateButtons(dialog, subDialog);
    ui->bindProgressControls();
  }
  orderTabs();
}

void MainFrame::buildButtons(int dialog, int subDialog, std::vector<PageButton>& list, int firstId) {
  focusControl = nullptr;
  defaultWasOn = false;
  destroyWindows(list);
  if (!exchange) return;
  int width = 0;
  int height = 0;
  clientSize(&width, &height);
  int id = firstId;
  int count = exchange->getButtonCount(dialog, subDialog);
  for (int i = 0; i < count; i++) {
    BUTTONINFO* record = exchange->getButton(dialog, i, subDialog);
    if (!record) continue;
    PageButton button;
    button.units = {record->x, record->y, record->w, record->h};
    PageRect rect = placeRect(record->x, record->y, record->w, record->h, record->hAlign, record->vAlign, width,
                              height, uiScale);
    button.id = id++;
    button.flags = record->flags;
    button.x = rect.x;
    button.y = rect.y;
    button.w = rect.w;
    button.h = rect.h;
    button.hAlign = record->hAlign;
    button.vAlign = record->vAlign;
    button.label = record->text;
    button.condition = record->condition;
    button.action = record->action;
    button.shift = record->dialogShift;
    wxString label = wxString::FromUTF8(record->text);
    wxPoint position(rect.x, rect.y);
    wxSize size(rect.w, rect.h);
    uint32_t active[2] = {record->activeBackground, record->activeForeground};
    uint32_t disabled = exchange->getThemeColour(kThemeInactiveText);
    if (record->flags & kButtonLinkStyle) {
      button.window = new wxLinkStyledButton(panel, button.id, label, position, size, disabled, active, wxTAB_TRAVERSAL);
    } else if (hasTheme) {
      button.window = new wxDialogButton(panel, button.id, label, position, size, disabled, active, wxTAB_TRAVERSAL);
    } else {
      button.window = new wxButton(panel, button.id, label, position, size);
    }
    if (hasTheme) {
      if (record->foreground != kNoColour) button.window->SetOwnForegroundColour(colourFromNumber(record->foreground));
      if (record->background != kNoColour) button.window->SetOwnBackgroundColour(colourFromNumber(record->background));
    }
    if (record->flags & kButtonDisableable) enableWindow(button.window, false);
    if (!button.condition.empty()) button.window->Show(holds(exchange, button.condition));
    list.push_back(button);
  }
  if (hasTheme) buildAccelerators();
}

void MainFrame::buildAccelerators() {
  std::vector<wxAcceleratorEntry> entries;
  for (std::vector<PageButton>* list : {&dialogButtons, &subDialogButtons}) {
    for (PageButton& button : *list) {
      AcceleratorLabel parts = splitAcceleratorLabel(wxString::FromUTF8(button.label.c_str()));
      if (!parts.hasAccelerator || parts.letter.empty()) continue;
      entries.push_back(wxAcceleratorEntry(wxACCEL_ALT, static_cast<int>(wxToupper(parts.letter[0])), button.id));
    }
  }
  entries.push_back(wxAcceleratorEntry(wxACCEL_NORMAL, WXK_RETURN, kEnterKeyId));
  entries.push_back(wxAcceleratorEntry(wxACCEL_NORMAL, WXK_ESCAPE, kEscapeKeyId));
  entries.push_back(wxAcceleratorEntry(wxACCEL_ALT, WXK_ALT, kAltKeyId));
  SetAcceleratorTable(wxAcceleratorTable(static_cast<int>(entries.size()), entries.data()));
}

void MainFrame::buildControls(int dialog, int subDialog, std::vector<PageControl>& list, int firstId) {
  focusControl = nullptr;
  destroyWindows(list);
  if (!exchange) return;
  int width = 0;
  int height = 0;
  clientSize(&width, &height);
  int id = firstId;
  std::vector<bool> moved;
  if (subDialog >= 0) {
    for (PageControl& control : retainedControls) {
      if (control.window && control.window->GetId() + 1 > id) id = control.window->GetId() + 1;
      list.push_back(control);
      moved.push_back(true);
    }
    retainedControls.clear();
  }
  size_t retainedCount = list.size();
  int count = exchange->getElementCount(dialog, subDialog);
  for (int i = 0; i < count; i++) {
    ELEMENTINFO* element = exchange->getElement(dialog, i, subDialog);
    if (!element) continue;
    PageRect rect = placeRect(element->x, element->y, element->w, element->h, element->hAlign, element->vAlign, width,
                              height, uiScale);
    PageControl* kept = nullptr;
    for (size_t k = 0; k < retainedCount; k++) {
      if (element->name[0] && QUtils::compareNoCase(list[k].name.c_str(), element->name) == 0) kept = &list[k];
    }
    if (kept) {
      kept->condition = element->condition;
      kept->units = {element->x, element->y, element->w, element->h};
      kept->hAlign = element->hAlign;
      kept->vAlign = element->vAlign;
      kept->x = rect.x;
      kept->y = rect.y;
      kept->w = rect.w;
      kept->h = rect.h;
      if (kept->window) kept->window->SetSize(rect.x, rect.y, rect.w, rect.h);
      continue;
    }
    PageControl control;
    control.id = id++;
    control.kind = element->type;
    control.units = {element->x, element->y, element->w, element->h};
    control.x = rect.x;
    control.y = rect.y;
    control.w = rect.w;
    control.h = rect.h;
    control.name = element->name;
    control.condition = element->condition;
    control.hAlign = element->hAlign;
    control.vAlign = element->vAlign;
    makeControl(element, control);
    list.push_back(control);
  }
}

void MainFrame::makeControl(ELEMENTINFO* element, PageControl& control) {
  wxPoint position(control.x, control.y);
  wxSize size(control.w, control.h);
  wxWindow* window = nullptr;
  const char* text = element->text.getText() ? element->text.getText() : "";
  switch (element->type) {
    case kElementText: {
      TextBox* box = new TextBox(panel, control.id, position, size);
      box->Hide();
      // Lines break at the line feeds and where the box's width ends.
      std::string label = ui ? ui->labelText(text) : std::string(text);
      label.erase(std::remove(label.begin(), label.end(), '\r'), label.end());
      control.text = label;
      wxStaticText* child = new wxStaticText(box, wxID_ANY, wxEmptyString);
      if (hasTheme && element->foreground != kNoColour) {
        child->SetOwnForegroundColour(colourFromNumber(element->foreground));
      }
      window = box;
      break;
    }
    case kElementImage:
    case kElementSlideShow: {
      std::string key = text;
      if (element->type == kElementSlideShow) {
        int slides = std::atoi(std::string(text, strnlen(text, 127)).c_str());
        if (slides < 1) break;
        static bool seeded = false;
        if (!seeded) {
          std::srand(static_cast<unsigned>(std::time(nullptr)));
          seeded = true;
        }
        int draw = std::rand() % slides;
        if (lastSlide < 0) {
          lastSlide = draw;
        } else if (lastSlide == draw && slides > 1) {
          while (draw == lastSlide) draw = std::rand() % slides;
          lastSlide = draw;
        }
        key = std::string(element->name) + std::to_string(draw);
      }
      // From the package, or in an uninstallation from the installed files.
      int density = 1;
      wxImage image = loadPicture(key.c_str(), &density);
      if (!image.IsOk() || image.GetWidth() < 1 || image.GetHeight() < 1) break;
      int targetWidth = scaled(image.GetWidth() / density);
      int targetHeight = scaled(image.GetHeight() / density);
      if (control.w > 0 && targetWidth > control.w) targetWidth = control.w;
      if (control.h > 0 && targetHeight > control.h) targetHeight = control.h;
      // On a screen with more device pixels than window units (GDK_SCALE)
      // the picture gets those pixels, and the bitmap says so.
      control.pictureScale = deviceScale();
      targetWidth = static_cast<int>(targetWidth * control.pictureScale + 0.5);
      targetHeight = static_cast<int>(targetHeight * control.pictureScale + 0.5);
      if (std::abs(targetWidth - image.GetWidth()) >= 3 || std::abs(targetHeight - image.GetHeight()) >= 3) {
        wxImage resized = resampleImage(&scaleWeights, image, targetWidth, targetHeight);
        if (resized.IsOk()) image = resized;
      }
      wxColour background = *wxWHITE;
      if (element->background != kNoColour) background = colourFromNumber(element->background);
      flattenPicture(image, background);
      control.picture = image;
      break;
    }
    case kElementHLine:
      window = new wxStaticLine(panel, control.id, position, size, wxLI_HORIZONTAL);
      break;
    case kElementRichEditText: {
      uint32_t dataSize = 0;
      QUtils::RefArray<unsigned char> data = exchange->getFileData(text, &dataSize);
      if (data.isNull() || dataSize == 0) break;
      wxRichTextCtrl* rich = new wxRichTextCtrl(panel, control.id, wxEmptyString, position, size,
                                                wxVSCROLL | wxBORDER_STATIC | wxRE_MULTILINE | wxRE_READONLY);
      rich->Hide();
      wxRTFCallback callback(rich);
      uint32_t active = hasTheme ? exchange->getThemeColour(kThemeActiveText) : kNoColour;
      if (active != kNoColour) callback.setTextColour(colourFromNumber(active));
      callback.prepare();
      std::string document(reinterpret_cast<const char*>(data.get()), dataSize);
      RichTextReader reader;
      reader.setCallback(&callback);
      rich->Freeze();
      reader.convert(document.c_str(), kRichTextPlain, 0);
      rich->Thaw();
      rich->ShowPosition(0);
      window = rich;
      break;
    }
    case kElementProgress:
      if (hasTheme) {
        window = new wxCustomProgressBar(panel, control.id, 100, position, size, 0, scaled(4));
      } else {
        window = new wxGauge(panel, control.id, 100, position, size, wxGA_HORIZONTAL | wxGA_SMOOTH);
      }
      break;
    case kElementList: {
      wxTextCtrl* box = new wxTextCtrl(panel, control.id, wxEmptyString, position, size,
                                       wxVSCROLL | wxBORDER_STATIC | wxTE_MULTILINE | wxTE_READONLY);
      wxFont font = box->GetFont();
      font.SetPointSize(font.GetPointSize() - 1);
      box->SetFont(font);
      window = box;
      break;
    }
    case kElementTaskLB:
      buildTaskList(element, control);
      window = control.window;
      break;
    case kElementBorder:
      window = new wxStaticBox(panel, control.id, wxEmptyString, position, size);
      break;
    default:
      break;
  }
  if (!window) return;
  window->Hide();
  if (hasTheme) {
    if (element->foreground != kNoColour && element->type != kElementTaskLB && element->type != kElementRichEditText) {
      window->SetOwnForegroundColour(colourFromNumber(element->foreground));
    }
    if (element->background != kNoColour && element->type != kElementTaskLB) {
      window->SetOwnBackgroundColour(colourFromNumber(element->background));
    }
  }
  control.window = window;
  if (element->type == kElementText) fitTextLabel(control);
}

void MainFrame::fitTextLabel(PageControl& control) {
  wxWindow* box = control.window;
  if (!box || box->GetChildren().IsEmpty()) return;
  wxStaticText* label = dynamic_cast<wxStaticText*>(box->GetChildren().GetFirst()->GetData());
  if (!label) return;
  LabelMeasure measure(label);
  bool cut = false;
  std::string fitted = fitText(control.text, control.w, control.h, measure, &cut);
  // As text, not markup: a "&" in the template is shown as it stands.
  label->SetLabelText(wxString::FromUTF8(fitted));
  label->SetSize(label->GetBestSize());
  wxString whole = wxString::FromUTF8(control.text);
  if (cut) {
    label->SetToolTip(whole);
    box->SetToolTip(whole);
  } else {
    label->UnsetToolTip();
    box->UnsetToolTip();
  }
}

void MainFrame::showPicture(PageControl& control) {
  if (control.window || !control.picture.IsOk()) return;
  int pictureWidth = static_cast<int>(control.picture.GetWidth() / control.pictureScale + 0.5);
  int pictureHeight = static_cast<int>(control.picture.GetHeight() / control.pictureScale + 0.5);
  int x = control.x;
  int y = control.y;
  if (x >= 0 && y >= 0 && pictureWidth < control.w && pictureHeight < control.h) {
    if (control.vAlign == kAlignCenter) y += (control.h - pictureHeight) / 2;
    if (control.vAlign == kAlignBottom) y = y - pictureHeight + control.h - 1;
    if (control.hAlign == kAlignCenter) x += (control.w - pictureWidth) / 2;
    if (control.hAlign == kAlignRight) x = x - pictureWidth + control.w - 1;
  }
  control.window = new wxStaticBitmap(panel, control.id, wxBitmap(control.picture, -1, control.pictureScale),
                                      wxPoint(x, y), wxSize(pictureWidth, pictureHeight));
}

void MainFrame::buildTaskList(ELEMENTINFO* element, PageControl& control) {
  wxListCtrl* list = new wxListCtrl(panel, control.id, wxPoint(control.x, control.y), wxSize(control.w, control.h),
                                    wxLC_REPORT | wxLC_ALIGN_LEFT | wxLC_NO_HEADER | wxBORDER_NONE);
  list->Hide();
  // The list's rows don't take the panel's font by themselves.
  list->SetFont(panel->GetFont());
  // The list is only a display: it passes the focus on and ignores the mouse.
  list->Bind(wxEVT_SET_FOCUS, [this, list](wxFocusEvent&) {
    list->Navigate(navigateForward ? wxNavigationKeyEvent::IsForward : wxNavigationKeyEvent::IsBackward);
  });
  auto ignore = [](wxMouseEvent&) {};
  list->Bind(wxEVT_LEFT_DOWN, ignore);
  list->Bind(wxEVT_LEFT_UP, ignore);
  list->Bind(wxEVT_LEFT_DCLICK, ignore);
  list->Bind(wxEVT_RIGHT_DOWN, ignore);
  list->Bind(wxEVT_RIGHT_UP, ignore);
  list->Bind(wxEVT_RIGHT_DCLICK, ignore);
  list->Bind(wxEVT_MIDDLE_DOWN, ignore);
  list->Bind(wxEVT_MIDDLE_UP, ignore);
  list->Bind(wxEVT_MOTION, ignore);
  list->Bind(wxEVT_MOUSEWHEEL, ignore);
  list->Bind(wxEVT_ENTER_WINDOW, ignore);
  list->Bind(wxEVT_LEAVE_WINDOW, ignore);
  if (element->background != kNoColour) list->SetBackgroundColour(colourFromNumber(element->background));

  tasks = visibleTaskRows();

  int iconWidth = 0;
  int iconHeight = 0;
  QUtils::Table<QUtils::CharString> entries;
  QUtils::splitText(element->details, ';', entries);
  for (int i = 0; i < entries.getCount(); i++) {
    const char* entry = entries[i].getText();
    const char* equals = entry ? std::strchr(entry, '=') : nullptr;
    if (!equals) continue;
    std::string key(entry, static_cast<size_t>(equals - entry));
    int value = std::atoi(equals + 1);
    if (QUtils::compareNoCase(key.c_str(), "size") == 0) iconWidth = iconHeight = value;
    if (QUtils::compareNoCase(key.c_str(), "width") == 0) iconWidth = value;
    if (QUtils::compareNoCase(key.c_str(), "height") == 0) iconHeight = value;
  }
  // The icons are flattened on what stands behind them: the theme's colour,
  // else the list's own background (a native list is usually white, not the
  // panel's grey, and grey squares would show around the icons).
  wxColour background = list->GetBackgroundColour();
  if (!background.IsOk()) background = panel->GetBackgroundColour();
  if (hasTheme && element->background != kNoColour) background = colourFromNumber(element->background);

  if (taskIcons && !taskIcons->empty()) {
    const wxImage& first = (*taskIcons)[0];
    int ownWidth = taskIconDensity > 1 ? scaled(first.GetWidth() / taskIconDensity) : first.GetWidth();
    int ownHeight = taskIconDensity > 1 ? scaled(first.GetHeight() / taskIconDensity) : first.GetHeight();
    int width = iconWidth > 0 ? scaled(iconWidth) : ownWidth;
    int height = iconHeight > 0 ? scaled(iconHeight) : ownHeight;
    wxImageList* images = new wxImageList(width, height, false);
    for (const wxImage& icon : *taskIcons) {
      wxImage picture = icon;
      if (picture.GetWidth() != width || picture.GetHeight() != height) {
        wxImage resized = resampleImage(&scaleWeights, picture, width, height);
        picture = resized.IsOk() ? resized : picture.Scale(width, height);
      }
      picture = picture.Copy();
      if (picture.HasAlpha()) {
        unsigned char* rgb = picture.GetData();
        unsigned char* alpha = picture.GetAlpha();
        for (int i = 0; i < width * height; i++) {
          wxColour mixed = mixColour(wxColour(rgb[i * 3], rgb[i * 3 + 1], rgb[i * 3 + 2]), background,
                                     static_cast<float>(alpha[i]) * 0.003921569f);
          rgb[i * 3] = mixed.Red();
          rgb[i * 3 + 1] = mixed.Green();
          rgb[i * 3 + 2] = mixed.Blue();
          alpha[i] = 255;
        }
        picture.ClearAlpha();
      }
      images->Add(wxBitmap(picture));
    }
    list->AssignImageList(images, wxIMAGE_LIST_SMALL);
  }
  list->InsertColumn(0, wxEmptyString, wxLIST_FORMAT_LEFT, control.w - 1);
  fillTaskList(list);
  control.window = list;
}

std::vector<TaskRow> MainFrame::visibleTaskRows() {
  std::vector<TaskRow> rows;
  int dialog = exchange->getCurrentDialog();
  int count = exchange->getTaskCount(dialog);
  for (int i = 0; i < count; i++) {
    TASKINFO* task = exchange->getTask(dialog, i);
    if (!task) continue;
    if (task->showCondition[0] && exchange->evaluateCondition(task->showCondition) == 0) continue;
    TaskRow row;
    row.name = task->name;
    row.state = task->enableCondition[0] && exchange->evaluateCondition(task->enableCondition) == 0 ? kTaskInactive
                                                                                                    : task->state;
    // The label that goes with the state the task has reached.
    const char* label = task->currentLabel;
    if ((row.state == kTaskNotStarted || row.state == kTaskInactive) && task->unreachedLabel[0]) {
      label = task->unreachedLabel;
    }
    if ((row.state == kTaskDone || row.state == kTaskFailed) && task->finishLabel[0]) label = task->finishLabel;
    row.text = label;
    for (const TaskRow& shown : tasks) {
      if (QUtils::compareNoCase(shown.name.c_str(), row.name.c_str()) == 0) row = shown;
    }
    rows.push_back(row);
  }
  return rows;
}

void MainFrame::fillTaskList(wxListCtrl* list) {
  list->DeleteAllItems();
  for (size_t i = 0; i < tasks.size(); i++) {
    long item = list->InsertItem(static_cast<long>(i), wxString::FromUTF8(tasks[i].text.c_str()),
                                 taskIcons ? tasks[i].state : -1);
    list->SetItemTextColour(item, taskColour(tasks[i].state));
  }
}

void MainFrame::syncTaskRows(wxListCtrl* list) {
  std::vector<TaskRow> rows = visibleTaskRows();
  bool same = rows.size() == tasks.size();
  for (size_t i = 0; same && i < rows.size(); i++) same = rows[i].name == tasks[i].name;
  if (same) return;
  tasks = rows;
  fillTaskList(list);
}

void MainFrame::showPageControls(std::vector<PageControl>& list, bool visible) {
  for (PageControl& control : list) {
    if (!control.condition.empty()) {
      if (!visible) {
        if (control.window) control.window->Hide();
        continue;
      }
      if (!holds(exchange, control.condition)) {
        if (control.window) control.window->Hide();
        continue;
      }
    }
    if ((control.kind == kElementImage || control.kind == kElementSlideShow) && visible) showPicture(control);
    if (control.window) control.window->Show(visible);
  }
  focusInitial(false);
  Refresh();
  Update();
}

void MainFrame::updateControlConditions() {
  for (std::vector<PageControl>* list : {&dialogControls, &subDialogControls}) {
    for (PageControl& control : *list) {
      if (control.condition.empty()) continue;
      if (!holds(exchange, control.condition)) {
        if (control.window) control.window->Hide();
        continue;
      }
      showPicture(control);
      if (control.window) control.window->Show();
    }
  }
}

void MainFrame::retainControl(const char* name) {
  for (size_t i = 0; i < subDialogControls.size();) {
    if (QUtils::compareNoCase(subDialogControls[i].name.c_str(), name) == 0) {
      retainedControls.push_back(subDialogControls[i]);
      subDialogControls.erase(subDialogControls.begin() + static_cast<long>(i));
    } else {
      i++;
    }
  }
}

void MainFrame::destroySubDialog() {
  focusControl = nullptr;
  destroyWindows(subDialogControls);
  destroyWindows(subDialogButtons);
  deleteFields(subDialogFields);
}

void MainFrame::clearTasks() {
  tasks.clear();
  PageControl* control = findControl("TaskList");
  wxListCtrl* list = control ? dynamic_cast<wxListCtrl*>(control->window) : nullptr;
  if (list) list->DeleteAllItems();
}

PageControl* MainFrame::findControl(const char* name) {
  for (std::vector<PageControl>* list : {&dialogControls, &subDialogControls, &retainedControls}) {
    for (PageControl& control : *list) {
      if (QUtils::compareNoCase(control.name.c_str(), name) == 0) return &control;
    }
  }
  return nullptr;
}

void MainFrame::buildFields(int dialog, int subDialog, std::vector<DialogField*>& list) {
  deleteFields(list);
  if (!exchange) return;
  int width = 0;
  int height = 0;
  clientSize(&width, &height);
  int y = scaled(65);
  int id = kFieldIds;
  int count = exchange->getFieldCount(dialog, subDialog);
  for (int i = 0; i < count; i++) {
    FIELDINFO* source = exchange->getField(dialog, i, subDialog);
    if (!source) continue;
    FIELDINFO record = *source;
    bool visible = holds(exchange, record.condition);
    if (record.y >= 0) y = record.vAlign == kAlignBottom ? height - scaled(record.y) : scaled(record.y);
    int x;
    if (record.x < 0) {
      x = scaled(25);
    } else {
      x = record.hAlign == kAlignRight ? width - scaled(record.x) : scaled(record.x);
    }
    if (record.w < -1) {
      record.w = scaled(record.w) - x + width;
    } else if (record.w == -1 || record.w == 0) {
      record.w = width - scaled(16) - x;
    } else {
      record.w = scaled(record.w);
    }
    if (record.h > 0) record.h = scaled(record.h);
    DialogField* field = makeDialogField(this, record, static_cast<int>(list.size()), scaled(8));
    if (!field) continue;
    list.push_back(field);
    field->build(x, &y, &id, visible);
    field->raiseControls();
  }
}

void MainFrame::layoutFields(std::vector<DialogField*>& list) {
  int width = 0;
  int height = 0;
  clientSize(&width, &height);
  int y = scaled(60);
  if (!list.empty() && list[0]->record.y > 0) {
    const FIELDINFO& first = list[0]->record;
    y = first.vAlign == kAlignBottom ? height - scaled(first.y) : scaled(first.y);
  }
  for (DialogField* field : list) field->layoutField(&y);
}

bool MainFrame::anyFieldInvalid(std::vector<DialogField*>& list) {
  bool invalid = false;
  for (DialogField* field : list) {
    bool valid = field->validate();
    if (field->record.validationVariable[0]) field->writeVariableNamed(field->record.validationVariable, valid ? "1" : "0");
    if (!valid) invalid = true;
  }
  return invalid;
}

void MainFrame::storeFieldList(std::vector<DialogField*>& list) {
  for (DialogField* field : list) field->storeValue();
}

void MainFrame::loadFieldList(std::vector<DialogField*>& list) {
  for (DialogField* field : list) field->loadValue();
}

void MainFrame::deleteFields(std::vector<DialogField*>& list) {
  // The remembered focus may be a window of a field.
  if (!list.empty()) focusControl = nullptr;
  for (DialogField* field : list) {
    for (size_t i = 0; i < fieldEvents.size();) {
      if (fieldEvents[i].second == field) {
        fieldEvents.erase(fieldEvents.begin() + static_cast<long>(i));
      } else {
        i++;
      }
    }
    field->destroyControls();
    delete field;
  }
  list.clear();
}
