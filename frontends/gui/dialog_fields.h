// DialogField: one input field of a page, bound to one variable of the
// engine: a directory box with a browse button, a check box, a group of
// radio buttons, or a read-only line that shows what an earlier field
// chose. A field owns its small group of windows on the frame's panel,
// copies the variable into them (loadValue) and back (storeValue), tells
// the engine when the user changed it, says whether its input is valid, and
// moves itself as a whole when fields above it appear and disappear.
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
  virtual void destroyControls();
  virtual void enableControls(bool enable);
  virtual void raiseControls();
  virtual void loadValue() = 0;
  virtual void storeValue() = 0;
  // Moves the windows to the row at `y` and shows them if the field's
  // condition holds, moving `y` down by the row; else hides them.
  virtual void layoutField(int* y) = 0;
  virtual bool validate() = 0;

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
  wxWindow* mainControl;
  int rowHeight;
  MainFrame* frame;
  FIELDINFO record;
  uint32_t labelBkgColour;
};

// A path, normalised as paths are everywhere in the engine.
std::string normalisedPath(const std::string& path);

class DirectoryField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void destroyControls() override;
  void enableControls(bool enable) override;
  void raiseControls() override;
  void loadValue() override;
  void storeValue() override;
  void layoutField(int* y) override;
  bool validate() override;

  wxStaticText* label = nullptr;
  wxTextCtrl* textBox = nullptr;
  wxWindow* browseButton = nullptr;
  bool updating = false;

 private:
  void onTextChanged(wxCommandEvent& event);
  void applyValidityColours();
  int labelOffset = 0;
};

class CheckBoxField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void loadValue() override;
  void storeValue() override;
  void layoutField(int* y) override;
  bool validate() override { return true; }

  wxCheckBox* checkBox = nullptr;
};

const int kMaxRadioOptions = 20;

class RadioButtonsField : public DialogField {
 public:
  using DialogField::DialogField;
  void activate(int id) override;
  void build(int x, int* y, int* id, bool visible) override;
  void destroyControls() override;
  void enableControls(bool enable) override;
  void raiseControls() override;
  void loadValue() override;
  void storeValue() override;
  void layoutField(int* y) override;
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
  void destroyControls() override;
  void raiseControls() override;
  void loadValue() override;
  void storeValue() override {}
  void layoutField(int* y) override;
  bool validate() override;

  wxStaticText* label = nullptr;
  wxStaticText* valueText = nullptr;
  int parameterType = kParameterNone;
  std::string text;
  std::string displayText;
  bool isShortened = false;

 private:
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
