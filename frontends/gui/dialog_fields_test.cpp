// Tests of the wizard's fields in a window: folders, check boxes, radio
// groups and summary lines, and the shortening of a summary line.
#include <wx/checkbox.h>
#include <wx/radiobut.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <string>
#include <vector>

#include "frontends/gui/page_test_support.h"

namespace {

const char kFieldsPage[] = R"(<Dialogs>
  <Options w="750" h="521">
    <Field Type="Directory" Label="Folder" ValidationVariable="DIR_OK" x="20" y="50" w="-10">INSTALLDIR</Field>
    <Field Type="Directory" Label="Hidden" Condition="[SHOWOTHER]==1" x="20">OTHERDIR</Field>
    <Field Type="CheckBox" Label="Samples" x="20">SAMPLES</Field>
    <Field Type="RadioButtons" Label="Kind" Content="Full;Minimal;Custom" Enable="[FULL_OK]==1|1|1"
           Description="(everything);;as you choose" x="20">MODE</Field>
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Disableable="1">Next</Button>
  </Options>
</Dialogs>)";

// The beginning of a whole path on this system: a folder that the window
// takes must be one ("/opt/x" alone has no drive on Windows).
#ifdef _WIN32
#define QLUX_TEST_ROOT "C:"
#else
#define QLUX_TEST_ROOT ""
#endif

// A folder as the fields write it back: tidied, with the system's separator.
std::string systemFolder(std::string path) {
#ifdef _WIN32
  for (char& c : path)
    if (c == '/') c = '\\';
#endif
  return path;
}

template <class Field>
Field* fieldAt(MainFrame* frame, size_t index) {
  return index < frame->dialogFields.size() ? dynamic_cast<Field*>(frame->dialogFields[index]) : nullptr;
}

PAGE_TEST(EmptyDirectoryDisablesTheNextButtonUntilSomethingIsTyped) {
  open(kFieldsPage, {{"INSTALLDIR", ""}, {"OTHERDIR", ""}, {"SHOWOTHER", "0"}, {"SAMPLES", "1"}, {"MODE", "1"},
                     {"FULL_OK", "1"}});
  DirectoryField* folder = fieldAt<DirectoryField>(frame, 0);
  ASSERT_NE(nullptr, folder);
  wxWindow* next = frame->dialogButtons[0].window;
  EXPECT_EQ(kUiFieldInvalid, engine.getUiState());
  EXPECT_FALSE(MainFrame::windowEnabled(next));
  EXPECT_EQ("0", engine.value("DIR_OK"));
  EXPECT_EQ(200, folder->textBox->GetId()) << "fields take ids from 200";
  // The rule: w=-10 on a field is 10 units from the right edge; the box
  // starts a third of the way plus the spacing.
  EXPECT_EQ(20 + 8 + (750 - 10 - 20) / 3, folder->textBox->GetPosition().x);

  folder->textBox->SetValue(QLUX_TEST_ROOT "/opt//Product");  // fires the change, as typing does
  EXPECT_EQ(systemFolder(QLUX_TEST_ROOT "/opt/Product"), engine.value("INSTALLDIR"));
  EXPECT_EQ(kUiWaiting, engine.getUiState());
  EXPECT_TRUE(MainFrame::windowEnabled(next));
  EXPECT_EQ("1", engine.value("DIR_OK"));

  folder->textBox->SetValue("");
  EXPECT_FALSE(MainFrame::windowEnabled(next));
}

PAGE_TEST(HiddenFieldsNeverCountAsInvalidAndTakeNoRoom) {
  open(kFieldsPage, {{"INSTALLDIR", QLUX_TEST_ROOT "/opt/x"}, {"OTHERDIR", ""}, {"SHOWOTHER", "0"}, {"SAMPLES", "1"},
                     {"MODE", "1"}, {"FULL_OK", "1"}});
  DirectoryField* hidden = fieldAt<DirectoryField>(frame, 1);
  CheckBoxField* samples = fieldAt<CheckBoxField>(frame, 2);
  ASSERT_NE(nullptr, hidden);
  ASSERT_NE(nullptr, samples);
  EXPECT_FALSE(hidden->textBox->IsShown());
  EXPECT_EQ(kUiWaiting, engine.getUiState());
  int below = samples->checkBox->GetPosition().y;

  // Showing the hidden field pushes the check box down by its row and makes
  // the page invalid, since its box is empty.
  engine.setVariable("SHOWOTHER", "1");
  ui.refreshDialog(0, -1, kRefreshConditions | kRefreshFields, false);
  EXPECT_TRUE(hidden->textBox->IsShown());
  EXPECT_EQ(below + hidden->rowHeight, samples->checkBox->GetPosition().y);
  EXPECT_EQ(kUiFieldInvalid, engine.getUiState());
}

// A field's windows are one group: they move by the same rows, hide and show
// together, and go together; an option that its condition disables stays
// disabled when the field is enabled again.
PAGE_TEST(AFieldsWindowsMoveHideAndGoTogether) {
  open(kFieldsPage, {{"INSTALLDIR", "/opt/x"}, {"OTHERDIR", ""}, {"SHOWOTHER", "0"}, {"SAMPLES", "1"},
                     {"MODE", "1"}, {"FULL_OK", "0"}});
  DirectoryField* hidden = fieldAt<DirectoryField>(frame, 1);
  RadioButtonsField* mode = fieldAt<RadioButtonsField>(frame, 3);
  ASSERT_TRUE(hidden && mode);
  ASSERT_EQ(3, mode->optionCount);
  std::vector<wxWindow*> group = {mode->label, mode->radios[0], mode->radios[1], mode->radios[2]};
  std::vector<int> before;
  for (wxWindow* window : group) before.push_back(window->GetPosition().y);
  EXPECT_FALSE(hidden->label->IsShown() || hidden->textBox->IsShown() || hidden->browseButton->IsShown());

  engine.setVariable("SHOWOTHER", "1");
  ui.refreshDialog(0, -1, kRefreshConditions | kRefreshFields, false);
  EXPECT_TRUE(hidden->label->IsShown() && hidden->textBox->IsShown() && hidden->browseButton->IsShown());
  EXPECT_EQ(hidden->textBox->GetPosition().y, hidden->browseButton->GetPosition().y);
  for (size_t i = 0; i < group.size(); i++) EXPECT_EQ(before[i] + hidden->rowHeight, group[i]->GetPosition().y) << i;

  mode->enableControls(false);
  for (wxWindow* window : group) EXPECT_FALSE(window->IsEnabled());
  mode->enableControls(true);
  EXPECT_TRUE(mode->label->IsEnabled());
  EXPECT_FALSE(mode->radios[0]->IsEnabled()) << "held disabled by its condition";
  EXPECT_TRUE(mode->radios[1]->IsEnabled() && mode->radios[2]->IsEnabled());

  size_t windows = frame->panel->GetChildren().size();
  mode->destroyControls();
  EXPECT_EQ(windows - group.size(), frame->panel->GetChildren().size());
}

PAGE_TEST(CheckBoxReadsAndWritesItsVariable) {
  open(kFieldsPage, {{"INSTALLDIR", QLUX_TEST_ROOT "/opt/x"}, {"SAMPLES", ""}, {"MODE", "0"}, {"FULL_OK", "1"}});
  CheckBoxField* samples = fieldAt<CheckBoxField>(frame, 2);
  ASSERT_NE(nullptr, samples);
  EXPECT_FALSE(samples->checkBox->GetValue()) << "build checks only a value starting with 1";
  ui.loadFields(0, -1);
  EXPECT_TRUE(samples->checkBox->GetValue()) << "loadValue unchecks only 0";
  samples->checkBox->SetValue(false);
  samples->activate(samples->checkBox->GetId());
  EXPECT_EQ("0", engine.value("SAMPLES"));
  ui.storeFields(0);
  EXPECT_EQ("0", engine.value("SAMPLES"));
}

PAGE_TEST(RadioGroupMovesOffADisabledOption) {
  open(kFieldsPage, {{"INSTALLDIR", QLUX_TEST_ROOT "/opt/x"}, {"SAMPLES", "1"}, {"MODE", "0"}, {"FULL_OK", "0"}});
  RadioButtonsField* mode = fieldAt<RadioButtonsField>(frame, 3);
  ASSERT_NE(nullptr, mode);
  ASSERT_EQ(3, mode->optionCount);
  EXPECT_FALSE(mode->radios[0]->IsEnabled());
  // Descriptions are read beside the options, not only under the mouse.
  EXPECT_EQ("Full (everything)", mode->radios[0]->GetLabel());
  EXPECT_EQ("Minimal", mode->radios[1]->GetLabel());
  EXPECT_EQ("Custom as you choose", mode->radios[2]->GetLabel());
  EXPECT_TRUE(mode->radios[1]->GetValue());
  EXPECT_EQ("1", engine.value("MODE")) << "written during build";

  engine.setVariable("MODE", "2");
  ui.loadFields(0, -1);
  EXPECT_EQ(2, mode->selectedIndex());
  engine.setVariable("MODE", "7");
  ui.loadFields(0, -1);
  EXPECT_EQ(2, mode->selectedIndex()) << "an index past the options is ignored";
}

PAGE_TEST(SummaryLinesShowEarlierChoicesInWords) {
  open(R"(<Dialogs><Summary w="750" h="521">
    <Field Type="InstallParameter" Label="Folder" Content="Directory" x="20" y="40">INSTALLDIR</Field>
    <Field Type="InstallParameter" Label="Samples" Content="CheckBox" x="20">SAMPLES</Field>
    <Field Type="InstallParameter" Label="Kind" Content="RadioButtons" Description="Full;Minimal" x="20">MODE</Field>
    <Field Type="InstallParameter" Label="Odd" Content="Slider" x="20">MODE</Field>
  </Summary></Dialogs>)",
       {{"INSTALLDIR", "/opt//Demo"}, {"SAMPLES", "1"}, {"MODE", "5"}});
  InstallParameterField* folder = fieldAt<InstallParameterField>(frame, 0);
  InstallParameterField* samples = fieldAt<InstallParameterField>(frame, 1);
  InstallParameterField* kind = fieldAt<InstallParameterField>(frame, 2);
  InstallParameterField* odd = fieldAt<InstallParameterField>(frame, 3);
  ASSERT_TRUE(folder && samples && kind && odd);
  EXPECT_EQ(systemFolder("/opt/Demo"), folder->displayText);
  EXPECT_EQ("Yes", samples->displayText);
  EXPECT_EQ("", kind->displayText) << "an index past the descriptions shows nothing";
  EXPECT_EQ("Error reading parameter!", odd->displayText);
  EXPECT_LT(folder->label->GetPosition().y, samples->label->GetPosition().y);

  engine.setVariable("SAMPLES", "0");
  engine.setVariable("MODE", "1");
  engine.setVariable("INSTALLDIR", "");
  ui.loadFields(0, -1);
  EXPECT_EQ("No", samples->displayText);
  EXPECT_EQ("Minimal", kind->valueText->GetLabel());
  EXPECT_FALSE(folder->validate()) << "an empty folder is not a valid summary";
}

// Each character is 10 pixels wide.
std::function<bool(const std::string&)> fitsIn(size_t characters) {
  return [characters](const std::string& text) { return text.size() <= characters; };
}

TEST(ShortenText, TextThatFitsStaysWhole) {
  bool shortened = true;
  EXPECT_EQ("/opt/app", shortenText("/opt/app", true, false, &shortened, fitsIn(20)));
  EXPECT_FALSE(shortened);
}

TEST(ShortenText, PathKeepsItsEndsAroundDots) {
  bool shortened = false;
  std::string path = "/home/user/projects/clients/acme/build/output";
  std::string result = shortenText(path, true, false, &shortened, fitsIn(24));
  EXPECT_TRUE(shortened);
  EXPECT_LE(result.size(), 24u);
  EXPECT_EQ(0u, result.find("/home/")) << result;
  EXPECT_NE(std::string::npos, result.find("..."));
  EXPECT_EQ(result.size() - 7, result.rfind("/output")) << result;
}

TEST(ShortenText, FewSeparatorsAndWordsFallBackToCutting) {
  bool shortened = false;
  EXPECT_EQ("abcdefg...", shortenText("abcdefghijklmnop", true, false, &shortened, fitsIn(10)));
  EXPECT_EQ("program and...", shortenText("program and documentation", false, true, &shortened, fitsIn(15)));
}

}  // namespace
