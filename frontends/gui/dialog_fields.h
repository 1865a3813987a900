// DialogField: one input field of a page, bound to one variable of the
// engine: a directory box with a browse button, a check box, a group of
// radio buttons, or a read-only line that shows what an earlier field
// chose. A field owns its small group of windows on the frame's panel,
// copies the variable into them (loadValue) and back (storeValue), tells
// the engine when the user changed it, says whether its input is valid, and
// moves itself as a whole when fields above it appear and disappear.
//
// The base class owns the list of a field's windows, each with its place in
// the field's row, and shows, moves, raises, enables and destroys them; a
// field class only builds its controls and reads or writes its value.
//
// The frame routes the events of a field's windows to activate() through
// its list of (control id, field) pairs, which build() fills.
#ifndef QLUX_FRONTENDS_GUI_DIALOG_FIELDS_H_
#define QLUX_FRONTENDS_GUI_DIALOG_FIELDS_H_

#include <wx/event.h>

#include <functional>
#include <string>
#include <vector>

#include "engine/dialog_records.h"

class MainFrame;
class wxWindow;
class wxStaticText;
class wxTextCtrl;
class wxCheckBox;
class wxRadioButton;

class DialogField : public wxEvtHandler {
 public:
  // `record` is copied; its `w` must already be in pixels.
  DialogField(MainFrame* frame, const FIELDINFO& record, int index, int spacing);
  ~DialogField() override {}

  // A window of the field fired.
  virtual void activate(int id) = 0;
  // Makes the windows at (x, y); moves `y` down by the row when `visible`
  // and takes the ids it needs from `id`.
  virtual void build(int x, int* y, int* id, bool visible) = 0;
  virtual void loadValue() = 0;
  virtual void storeValue() = 0;
  virtual bool validate() = 0;

  // Moves the windows to the row at `y` and shows them if the field's
  // condition holds, moving `y` down by the row; else hides them.
  void layoutField(int* y);
  // Destroys the field's windows; the field is deleted next.
  void destroyControls();
  // Enables or disables the windows; an option held disabled stays so.
  void enableControls(bool enable);
  // Raises the windows of a visible field above the page's background.
  void raiseControls();

  // The variable's value, or false when the engine doesn't know it.
  bool readVariable(std::string* value, int size);
  void writeVariable(const char* value) { writeVariableNamed(record.variable, value); }
  void writeVariableNamed(const char* name, const char* value);
  // The field's Condition; an empty one holds.
  bool conditionHolds();
  // The start of the row: the field's own y if it has one, else `y`.
  int rowStart(int y);
  bool themed() const;

  int spacing;
  int index;
  bool visible;
  int rowHeight;
  MainFrame* frame;
  FIELDINFO record;
  uint32_t labelBkgColour;

 protected:
  // Takes `window`, made by build() with the row's top at `rowTop`, into
  // the field: it keeps its distance below the row's top wherever the row
  // moves, and is shown as the field is. Gives the window.
  template <class Window>
  Window* own(Window* window, int rowTop) {
    addWindow(window, rowTop);
    return window;
  }
  // Disables an option for good: enableControls leaves it disabled.
  void holdDisabled(wxWindow* window);
  // Called after layoutField has shown the field in its new row: a field
  // whose colours follow its value sets them here.
  virtual void afterLayout() {}

 private:
  struct OwnedWindow {
    wxWindow* window;
    int offset;  // below the top of the field's row
    bool heldDisabled;
  };
  void addWindow(wxWindow* window, int rowTop);
  void showWindows(bool show);
  std::vector<OwnedWindow> windows;
};

// A path, normalised as paths are everywhere in the engine.
std::string normalisedPath(const std::string& path);

class DirectoryField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void loadValue() override;
  void storeValue() override;
  bool validate() override;

  wxStaticText* label = nullptr;
  wxTextCtrl* textBox = nullptr;
  wxWindow* browseButton = nullptr;
  bool updating = false;

 private:
  void afterLayout() override { applyValidityColours(); }
  void onTextChanged(wxCommandEvent& event);
  void applyValidityColours();
};

class CheckBoxField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void loadValue() override;
  void storeValue() override;
  bool validate() override { return true; }

  wxCheckBox* checkBox = nullptr;
};

const int kMaxRadioOptions = 20;

class RadioButtonsField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void loadValue() override;
  void storeValue() override;
  bool validate() override { return true; }
  // The selected option, looking from the end; -1 for none.
  int selectedIndex();

  wxStaticText* label = nullptr;
  wxRadioButton* radios[kMaxRadioOptions] = {};
  bool optionEnabled[kMaxRadioOptions] = {};
  int optionCount = 0;
  bool hasTooltips = false;
};

enum ParameterType { kParameterNone, kParameterDirectory, kParameterCheckBox, kParameterRadio, kParameterInfo };

class InstallParameterField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override {}
  void build(int x, int* y, int* id, bool visible) override;
  void loadValue() override;
  void storeValue() override {}
  bool validate() override;

  wxStaticText* label = nullptr;
  wxStaticText* valueText = nullptr;
  int parameterType = kParameterNone;
  std::string text;
  std::string displayText;
  bool isShortened = false;

 private:
  void afterLayout() override;
  // Works out `text` from the variable and shortens it into the room.
  void describeValue(const std::string& value);
  void shorten();
  int valueRoom = 0;
};

// Makes the field class that the record's type selects; null for an
// unknown type.
DialogField* makeDialogField(MainFrame* frame, const FIELDINFO& record, int index, int spacing);

// Shortens `text` until `fits` accepts it: a path keeps its first and last
// parts around "...", other text loses its end. `isPath` chooses the rule;
// `byWords` cuts at blanks. Gives the text and whether it was shortened.
std::string shortenText(const std::string& text, bool isPath, bool byWords, bool* shortened,
                        const std::function<bool(const std::string&)>& fits);

#endif  // QLUX_FRONTENDS_GUI_DIALOG_FIELDS_H_
