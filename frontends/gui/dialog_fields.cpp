// The four kinds of input field of a page, their shared handling of the
// windows they own, and the shortening of a summary line into its room.
#include "frontends/gui/dialog_fields.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/dirdlg.h>
#include <wx/radiobut.h>
#include <wx/settings.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <cstring>

#include "foundation/text.h"
#include "frontends/gui/custom_controls.h"
#include "frontends/gui/main_frame.h"
#include "frontends/gui/wx_gui.h"

namespace {

// Theme colours by index.
const int kThemeActiveButtonsBackground = 8;
const int kThemeActiveButtonsText = 9;
const int kThemeInactiveText = 11;

// Values of variables are read into fields of this many bytes; what the
// user types or picks is cut to what such a field holds, and a chosen
// folder to what a path field holds.
const int kValueSize = 512;
const size_t kMaxValueLength = kValueSize - 1;
const size_t kMaxPathLength = QUtils::kMaxPath - 1;
// A check box's value ("0" or "1") and a radio group's option number are
// read into this many bytes.
const int kChoiceValueSize = 5;
// The browse button beside a folder box, in the window's units.
const int kBrowseButtonWidth = 30;

// `text` cut to at most `length` bytes.
std::string cutTo(std::string text, size_t length) {
  if (text.size() > length) text.resize(length);
  return text;
}

wxString fromText(const std::string& text) { return wxString::FromUTF8(text.c_str()); }

void setColour(wxWindow* window, uint32_t colour, bool foreground) {
  if (!window || colour == kNoColour) return;
  if (foreground) {
    window->SetForegroundColour(colourFromNumber(colour));
  } else {
    window->SetBackgroundColour(colourFromNumber(colour));
  }
}

std::vector<std::string> splitAt(const char* text, char delimiter) {
  std::vector<std::string> parts;
  QUtils::Table<QUtils::CharString> table;
  QUtils::splitText(text, delimiter, table);
  for (int i = 0; i < table.getCount(); i++) parts.push_back(table[i].getText() ? table[i].getText() : "");
  return parts;
}

bool parseIndex(const std::string& text, int* value) {
  int32_t number = 0;
  if (text.empty() || !QUtils::parseInteger(&number, text.c_str())) return false;
  *value = number;
  return true;
}

}  // namespace

std::string normalisedPath(const std::string& path) {
  char buffer[QUtils::kMaxPath];
  QUtils::copyText(buffer, path.c_str(), sizeof buffer);
  QUtils::cleanPath(buffer);
  return buffer;
}

// --- DialogField

DialogField::DialogField(MainFrame* owner, const FIELDINFO& source, int position, int gap)
    : spacing(gap),
      index(position),
      visible(false),
      rowHeight(0),
      frame(owner),
      record(source),
      labelBkgColour(source.labelBackground) {}

void DialogField::addWindow(wxWindow* window, int rowTop) {
  windows.push_back(OwnedWindow{window, window->GetPosition().y - rowTop, false});
  window->Show(visible);
}

void DialogField::holdDisabled(wxWindow* window) {
  window->Enable(false);
  for (OwnedWindow& owned : windows)
    if (owned.window == window) owned.heldDisabled = true;
}

void DialogField::showWindows(bool show) {
  for (OwnedWindow& owned : windows) owned.window->Show(show);
}

void DialogField::layoutField(int* y) {
  int row = rowStart(*y);
  if (!conditionHolds()) {
    visible = false;
    showWindows(false);
    return;
  }
  visible = true;
  for (OwnedWindow& owned : windows) owned.window->Move(owned.window->GetPosition().x, row + owned.offset);
  showWindows(true);
  afterLayout();
  *y = row + rowHeight;
}

// The windows go with their bindings; the field itself, whose pointers to
// them would dangle now, is deleted by the caller right after.
void DialogField::destroyControls() {
  for (OwnedWindow& owned : windows) owned.window->Destroy();
  windows.clear();
}

void DialogField::enableControls(bool enable) {
  for (OwnedWindow& owned : windows) owned.window->Enable(enable && !owned.heldDisabled);
}

void DialogField::raiseControls() {
  if (!visible) return;
  for (OwnedWindow& owned : windows) owned.window->Raise();
}

bool DialogField::readVariable(std::string* value, int size) {
  if (!frame->exchange) return false;
  std::vector<char> buffer(static_cast<size_t>(size > 0 ? size : 1), 0);
  if (frame->exchange->getVariable(record.variable, buffer.data(), size) < 0) return false;
  *value = buffer.data();
  return true;
}

void DialogField::writeVariableNamed(const char* name, const char* value) {
  if (frame->exchange) frame->exchange->setVariable(name, value);
}

bool DialogField::conditionHolds() {
  return !record.condition[0] || !frame->exchange || frame->exchange->evaluateCondition(record.condition) != 0;
}

int DialogField::rowStart(int y) {
  if (record.y <= 0) return y;
  int width = 0;
  int height = 0;
  frame->clientSize(&width, &height);
  return record.vAlign == kAlignBottom ? height - scaled(record.y) : scaled(record.y);
}

bool DialogField::themed() const { return frame->hasTheme; }

// Tells the engine that the field changed the page, and redraws it.
static void refreshPage(MainFrame* frame, int flags, bool restoreFocus) {
  if (!frame->ui || !frame->exchange) return;
  frame->ui->refreshDialog(frame->exchange->getCurrentDialog(), frame->exchange->getCurrentSubDialog(), flags,
                           restoreFocus);
}

// --- DirectoryField

void DirectoryField::build(int x, int* y, int* id, bool show) {
  visible = show;
  std::string value;
  readVariable(&value, kValueSize);
  value = normalisedPath(value);
  int w = record.w;
  int browseWidth = scaled(kBrowseButtonWidth);
  int labelWidth = w / 3;
  int textWidth = 2 * w / 3 - 2 * spacing - browseWidth;

  textBox = new wxTextCtrl(frame->panel, (*id)++, fromText(value), wxPoint(x + spacing + labelWidth, *y),
                           wxSize(textWidth, -1), 0);
  textBox->Bind(wxEVT_TEXT, &DirectoryField::onTextChanged, this);
  textBox->Bind(wxEVT_SET_FOCUS, [this](wxFocusEvent& event) {
    frame->enterMovesFocus = true;
    event.Skip();
  });
  textBox->Bind(wxEVT_KILL_FOCUS, [this](wxFocusEvent& event) {
    frame->enterMovesFocus = false;
    event.Skip();
  });
  int boxHeight = textBox->GetSize().GetHeight();

  // The label stands level with the text in the box.
  int labelOffset = std::max(0, boxHeight - frame->textHeight) / 2;
  label = new wxStaticText(frame->panel, (*id)++, wxString::FromUTF8(record.label), wxPoint(x, *y + labelOffset),
                           wxSize(labelWidth, -1));
  if (record.description[0]) label->SetToolTip(wxString::FromUTF8(record.description));
  // A long label goes on more lines within its third of the row, rather than
  // being cut; the row grows with it.
  label->Wrap(labelWidth);
  label->SetSize(wxSize(labelWidth, label->GetBestSize().GetHeight()));

  int buttonId = (*id)++;
  wxPoint buttonPosition(x + w - browseWidth, *y);
  wxSize buttonSize(browseWidth, boxHeight);
  if (themed()) {
    uint32_t active[2] = {frame->exchange->getThemeColour(kThemeActiveButtonsBackground),
                          frame->exchange->getThemeColour(kThemeActiveButtonsText)};
    browseButton = new wxDialogButton(frame->panel, buttonId, "...", buttonPosition, buttonSize,
                                      frame->exchange->getThemeColour(kThemeInactiveText), active, wxTAB_TRAVERSAL);
  } else {
    browseButton = new wxButton(frame->panel, buttonId, "...", buttonPosition, buttonSize);
  }
  own(label, *y);
  own(textBox, *y);
  own(browseButton, *y);

  if (themed()) {
    setColour(browseButton, record.buttonForeground, true);
    setColour(browseButton, record.buttonBackground, false);
    setColour(label, record.labelColour, true);
    applyValidityColours();
  }
  rowHeight = 3 * spacing / 2 + std::max(boxHeight, label->GetSize().GetHeight());
  if (visible) *y += rowHeight;
  frame->fieldEvents.push_back(std::make_pair(buttonId, static_cast<DialogField*>(this)));
}

void DirectoryField::applyValidityColours() {
  if (!themed() || !textBox) return;
  if (validate()) {
    setColour(textBox, record.inputBackground, false);
    setColour(textBox, record.inputForeground, true);
  } else {
    setColour(textBox, record.invalidBackground, false);
    setColour(textBox, record.invalidForeground, true);
  }
  textBox->Refresh();
}

void DirectoryField::activate(int id) {
  frame->focusControl = browseButton;
  wxDirDialog dialog(frame->panel, "Select a directory", textBox->GetValue());
  if (dialog.ShowModal() == wxID_OK) {
    std::string path(dialog.GetPath().utf8_str());
    path = cutTo(path, kMaxPathLength);
    writeVariable(path.c_str());
    // The change event takes it from here.
    textBox->SetValue(fromText(path));
  }
}

void DirectoryField::onTextChanged(wxCommandEvent& event) {
  if (!visible) return;
  updating = true;
  std::string value = cutTo(std::string(textBox->GetValue().utf8_str()), kMaxValueLength);
  writeVariable(normalisedPath(value).c_str());
  refreshPage(frame, kRefreshConditions | kRefreshFields, false);
  updating = false;
}

void DirectoryField::loadValue() {
  if (!visible || updating || !textBox) return;
  std::string value;
  if (!readVariable(&value, kValueSize)) return;
  textBox->ChangeValue(fromText(normalisedPath(value)));
}

void DirectoryField::storeValue() {
  if (!visible || !textBox || !textBox->IsModified()) return;
  std::string value = cutTo(std::string(textBox->GetValue().utf8_str()), kMaxValueLength);
  writeVariable(normalisedPath(value).c_str());
}

bool DirectoryField::validate() {
  if (!visible || !textBox) return true;
  std::string path = normalisedPath(std::string(textBox->GetValue().utf8_str()));
  // The engine's rule for a folder that the user gives: a whole path that
  // is neither a root nor a system directory.
  char reason[300];
  return !path.empty() && (!frame->exchange || frame->exchange->isUsableFolder(path.c_str(), reason, sizeof reason));
}

// --- CheckBoxField

void CheckBoxField::build(int x, int* y, int* id, bool show) {
  visible = show;
  int checkId = (*id)++;
  checkBox = new wxCheckBox(frame->panel, checkId, wxString::FromUTF8(record.label), wxPoint(x, *y),
                            wxSize(record.w > 0 ? record.w : -1, record.h > 0 ? record.h : -1), 0);
  own(checkBox, *y);
  if (record.description[0]) checkBox->SetToolTip(wxString::FromUTF8(record.description));
  if (themed()) {
    setColour(checkBox, record.labelColour, true);
    setColour(checkBox, labelBkgColour, false);
  }
  std::string value;
  readVariable(&value, kChoiceValueSize);
  checkBox->SetValue(!value.empty() && value[0] == '1');
  rowHeight = 3 * spacing / 2 + checkBox->GetSize().GetHeight();
  if (visible) *y += rowHeight;
  frame->fieldEvents.push_back(std::make_pair(checkId, static_cast<DialogField*>(this)));
}

void CheckBoxField::activate(int id) {
  const char* value = checkBox->GetValue() ? "1" : "0";
  std::string current;
  if (!readVariable(&current, kValueSize) || current == value) return;
  writeVariable(value);
  int flags = frame->exchange->variableChanged(record.variable, frame->exchange->getCurrentDialog(),
                                               frame->exchange->getCurrentSubDialog());
  if (flags != 0) {
    frame->focusControl = checkBox;
    refreshPage(frame, flags, true);
  }
}

void CheckBoxField::storeValue() {
  if (visible && checkBox) writeVariable(checkBox->GetValue() ? "1" : "0");
}

void CheckBoxField::loadValue() {
  if (!visible || !checkBox) return;
  std::string value;
  readVariable(&value, kValueSize);
  checkBox->SetValue(value != "0");
}

// --- RadioButtonsField

void RadioButtonsField::build(int x, int* y, int* id, bool show) {
  visible = show;
  std::vector<std::string> options = splitAt(record.content, ';');
  std::vector<std::string> tips;
  if (record.description[0]) {
    tips = splitAt(record.description, ';');
    hasTooltips = true;
  }
  optionCount = std::min(static_cast<int>(options.size()), kMaxRadioOptions);

  label = own(new wxStaticText(frame->panel, (*id)++, wxString::FromUTF8(record.label), wxPoint(x, *y + spacing)),
              *y);
  if (themed()) setColour(label, record.labelColour, true);
  int row = *y + spacing + spacing + label->GetSize().GetHeight();

  // An option's description stands behind its name, as on the console, so
  // that it is read without the mouse; it stays the tool tip as well.
  if (tips.size() <= options.size()) {
    for (size_t i = 0; i < tips.size(); i++) {
      if (!tips[i].empty()) options[i] += " " + tips[i];
    }
  }
  for (int i = 0; i < optionCount; i++) {
    int optionId = (*id)++;
    long style = i == 0 ? wxRB_GROUP : 0;
    wxRadioButton* radio;
    if (themed()) {
      wxColour colour = record.labelColour != kNoColour ? colourFromNumber(record.labelColour)
                                                        : wxSystemSettings::GetColour(wxSYS_COLOUR_WINDOWTEXT);
      radio = new wxCustomRadioButton(frame->panel, frame->panel, optionId, fromText(options[i]),
                                      wxPoint(x + spacing, row), wxDefaultSize, style, colour);
      setColour(radio, record.labelColour, true);
      setColour(radio, labelBkgColour, false);
    } else {
      radio = new wxRadioButton(frame->panel, optionId, fromText(options[i]), wxPoint(x + spacing, row),
                                wxDefaultSize, style);
    }
    own(radio, *y);
    if (hasTooltips && i < static_cast<int>(tips.size()) && !tips[i].empty()) radio->SetToolTip(fromText(tips[i]));
    radios[i] = radio;
    optionEnabled[i] = true;
    row += spacing + radio->GetSize().GetHeight();
    frame->fieldEvents.push_back(std::make_pair(optionId, static_cast<DialogField*>(this)));
  }

  if (record.enable[0] && frame->exchange) {
    std::vector<std::string> conditions = splitAt(record.enable, '|');
    for (size_t i = 0; i < conditions.size() && static_cast<int>(i) < optionCount; i++) {
      if (frame->exchange->evaluateCondition(conditions[i].c_str()) == 0) {
        holdDisabled(radios[i]);
        optionEnabled[i] = false;
      }
    }
  }

  std::string value;
  int chosen = -1;
  if (readVariable(&value, kValueSize) && parseIndex(value, &chosen) && chosen >= 0 && chosen < optionCount &&
      optionEnabled[chosen]) {
    radios[chosen]->SetValue(true);
  } else {
    for (int i = 0; i < optionCount; i++) {
      if (!optionEnabled[i]) continue;
      radios[i]->SetValue(true);
      activate(radios[i]->GetId());
      break;
    }
  }
  rowHeight = row + spacing - *y;
  if (visible) *y += rowHeight;
}

int RadioButtonsField::selectedIndex() {
  for (int i = optionCount - 1; i >= 0; i--)
    if (radios[i] && radios[i]->GetValue()) return i;
  return -1;
}

void RadioButtonsField::activate(int id) {
  int selected = selectedIndex();
  std::string value = std::to_string(selected);
  std::string current;
  if (!readVariable(&current, kValueSize) || current == value) return;
  writeVariable(value.c_str());
  int flags = frame->exchange->variableChanged(record.variable, frame->exchange->getCurrentDialog(),
                                               frame->exchange->getCurrentSubDialog());
  if (flags != 0) {
    if (selected >= 0) frame->focusControl = radios[selected];
    refreshPage(frame, flags, true);
  }
}

void RadioButtonsField::storeValue() {
  if (visible) writeVariable(std::to_string(selectedIndex()).c_str());
}

void RadioButtonsField::loadValue() {
  if (!visible) return;
  std::string value;
  readVariable(&value, kChoiceValueSize);
  int chosen = -1;
  if (value.empty() || !parseIndex(value, &chosen)) return;
  if (chosen >= 0 && chosen < optionCount) radios[chosen]->SetValue(true);
}

// --- InstallParameterField

void InstallParameterField::build(int x, int* y, int* id, bool show) {
  visible = show;
  if (std::strcmp(record.content, "Directory") == 0) {
    parameterType = kParameterDirectory;
  } else if (std::strcmp(record.content, "CheckBox") == 0) {
    parameterType = kParameterCheckBox;
  } else if (std::strcmp(record.content, "RadioButtons") == 0) {
    parameterType = kParameterRadio;
  } else if (std::strcmp(record.content, "Info") == 0) {
    parameterType = kParameterInfo;
  }
  int w = record.w;
  int labelWidth = 2 * w / 5 - spacing / 2;
  int valueWidth = w - spacing - labelWidth;
  valueRoom = 3 * w / 5 - spacing / 2;
  label = own(new wxStaticText(frame->panel, (*id)++, wxString::FromUTF8(record.label), wxPoint(x, *y),
                               wxSize(labelWidth, -1)),
              *y);
  if (record.description[0] && (parameterType == kParameterDirectory || parameterType == kParameterCheckBox)) {
    label->SetToolTip(wxString::FromUTF8(record.description));
  }
  std::string value;
  readVariable(&value, kValueSize);
  describeValue(value);
  valueText = own(new wxStaticText(frame->panel, (*id)++, fromText(displayText),
                                   wxPoint(x + labelWidth + spacing, *y), wxSize(valueWidth, -1)),
                  *y);
  if (isShortened) valueText->SetToolTip(fromText(text));
  if (themed()) {
    bool valid = validate() || record.invalidForeground == kNoColour;
    uint32_t colour = valid ? record.labelColour : record.invalidForeground;
    setColour(label, colour, true);
    setColour(valueText, colour, true);
  }
  rowHeight = spacing + label->GetSize().GetHeight();
  if (visible) *y += rowHeight;
}

void InstallParameterField::describeValue(const std::string& value) {
  switch (parameterType) {
    case kParameterDirectory:
      text = normalisedPath(value);
      break;
    case kParameterCheckBox: {
      int number = 0;
      text = parseIndex(value, &number) && number != 0 ? "Yes" : "No";
      break;
    }
    case kParameterRadio: {
      std::vector<std::string> names = splitAt(record.description, ';');
      int chosen = -1;
      text = parseIndex(value, &chosen) && chosen >= 0 && chosen < static_cast<int>(names.size()) ? names[chosen] : "";
      break;
    }
    case kParameterInfo:
      text = record.description;
      break;
    default:
      text = "Error reading parameter!";
      break;
  }
  text = cutTo(text, kMaxValueLength);
  shorten();
}

void InstallParameterField::shorten() {
  wxWindow* panel = frame->panel;
  int room = valueRoom;
  auto fits = [panel, room](const std::string& candidate) {
    return panel->GetTextExtent(wxString::FromUTF8(candidate.c_str())).GetWidth() <= room;
  };
  if (parameterType != kParameterDirectory && parameterType != kParameterRadio) {
    displayText = text;
    isShortened = false;
    return;
  }
  displayText = shortenText(text, parameterType == kParameterDirectory, parameterType == kParameterRadio,
                            &isShortened, fits);
}

void InstallParameterField::loadValue() {
  if (!visible || !valueText) return;
  std::string value;
  readVariable(&value, kValueSize);
  describeValue(value);
  valueText->SetLabel(fromText(displayText));
  valueText->SetToolTip(isShortened ? fromText(text) : wxString());
}

bool InstallParameterField::validate() {
  if (visible && parameterType == kParameterDirectory) return !text.empty();
  return true;
}

void InstallParameterField::afterLayout() {
  if (themed() && record.invalidForeground != kNoColour) {
    uint32_t colour = validate() ? record.labelColour : record.invalidForeground;
    setColour(label, colour, true);
    setColour(valueText, colour, true);
  }
}

// --- shortening

namespace {

std::string endRule(const std::string& text, const std::function<bool(const std::string&)>& fits) {
  if (text.size() <= 3) return text;
  size_t keep = text.size() - 3;
  std::string candidate = text.substr(0, keep) + "...";
  while (!fits(candidate) && keep > 0) {
    keep--;
    candidate = text.substr(0, keep) + "...";
  }
  return candidate;
}

// The largest n in [low, high] that `fits`, where fits(low) is taken to
// hold and fits stays false above the first n where it fails.
int largestFitting(int low, int high, const std::function<bool(int)>& fits) {
  while (low < high) {
    int middle = (low + high + 1) / 2;
    if (fits(middle)) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

// The path with `k` of its `positions` kept: the first ceil(k/2) and the
// last floor(k/2) around "...".
std::string pathCandidate(const std::string& text, const std::vector<size_t>& positions, int k) {
  int n = static_cast<int>(positions.size());
  int front = (k + 1) / 2;
  int back = k / 2;
  return text.substr(0, positions[front - 1] + 1) + "..." + text.substr(positions[n - 1 - back]);
}

}  // namespace

std::string shortenText(const std::string& text, bool isPath, bool byWords, bool* shortened,
                        const std::function<bool(const std::string&)>& fits) {
  *shortened = false;
  if (fits(text)) return text;
  *shortened = true;
  if (isPath) {
    std::vector<size_t> positions;
    for (size_t i = 0; i < text.size(); i++)
      if (QUtils::isSeparator(text[i])) positions.push_back(i);
    int n = static_cast<int>(positions.size());
    if (n < 3) return endRule(text, fits);
    int k = n / 2;  // ceil((n - 1) / 2)
    while (k >= 1 && !fits(pathCandidate(text, positions, k))) k = k > 1 ? (k + 1) / 2 : 0;
    if (k < 1) return endRule(text, fits);
    // The largest k that fits lies between this one and twice it.
    int best = largestFitting(k, std::min(2 * k, n - 1),
                              [&](int kept) { return fits(pathCandidate(text, positions, kept)); });
    return pathCandidate(text, positions, best);
  }
  if (byWords) {
    std::vector<size_t> cuts;
    cuts.push_back(0);
    for (size_t i = 0; i < text.size(); i++)
      if (text[i] == ' ') cuts.push_back(i);
    cuts.push_back(text.size());
    int best = largestFitting(0, static_cast<int>(cuts.size()) - 1,
                              [&](int cut) { return fits(text.substr(0, cuts[cut]) + "..."); });
    return text.substr(0, cuts[best]) + "...";
  }
  return endRule(text, fits);
}

DialogField* makeDialogField(MainFrame* frame, const FIELDINFO& record, int index, int spacing) {
  switch (record.type) {
    case kFieldDirectory:
      return new DirectoryField(frame, record, index, spacing);
    case kFieldCheckBox:
      return new CheckBoxField(frame, record, index, spacing);
    case kFieldRadioButtons:
      return new RadioButtonsField(frame, record, index, spacing);
    case kFieldInstallParameter:
      return new InstallParameterField(frame, record, index, spacing);
    default:
      return nullptr;
  }
}
