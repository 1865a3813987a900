// Tests of the window front end: the page scale, progress controls, themed
// pages, file lines and buttons by the UI state.
#include <wx/gauge.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include "frontends/gui/custom_controls.h"

#include "frontends/gui/page_test_support.h"

namespace {

TEST(UiScale, OnlyAWiderFontEnlargesThePage) {
  EXPECT_DOUBLE_EQ(1.0, scaleForTextWidth(200));
  EXPECT_DOUBLE_EQ(1.0, scaleForTextWidth(237));
  EXPECT_NEAR(2.0, scaleForTextWidth(474), 1e-9);
}

TEST(UiScale, APageThatWouldNotFitTheScreenIsDrawnSmaller) {
  // A font twice as wide on a 1280 by 900 screen: 760 by 520 units fit at
  // 1280 / 760, not at 2.
  EXPECT_NEAR(1280.0 / 760, scaleToFit(2.0, 760, 520, 1280, 900), 1e-9);
  EXPECT_NEAR(640.0 / 760, scaleToFit(1.0, 760, 520, 640, 450), 1e-9);
  EXPECT_DOUBLE_EQ(1.6, scaleToFit(1.6, 760, 520, 1920, 1080)) << "room enough: the font's scale";
  EXPECT_DOUBLE_EQ(0.25, scaleToFit(1.0, 760, 520, 10, 10));
}

const char kProgressPage[] = R"(<Dialogs>
  <Copy w="750" h="521">
    <Text Name="Destination" x="20" y="10" w="-10" h="20"/>
    <Progress Name="OVERALL" x="20" y="40" w="-10" h="20"/>
    <List Name="Destfilelist" x="20" y="70" w="-10" h="-80"/>
    <Border Name="Current" x="10" y="5" w="-5" h="-5"/>
  </Copy>
</Dialogs>)";

PAGE_TEST(ProgressControlsAreBoundByNameAndClass) {
  open(kProgressPage);
  ASSERT_NE(nullptr, ui.overallGauge) << "names are matched without regard to case";
  EXPECT_EQ(nullptr, ui.overallBar);
  EXPECT_EQ(dynamic_cast<wxTextCtrl*>(control("Destfilelist")->window), ui.fileListControl);
  EXPECT_EQ(nullptr, ui.destinationControl) << "a Text element is a panel, not a label";
  EXPECT_EQ(nullptr, ui.currentGauge) << "a control of the wrong class counts as not found";

  ui.setOverallProgress(40);
  EXPECT_EQ(40, ui.overallGauge->GetValue());
  ui.setCurrentProgress(70);  // nothing bound: nothing happens
  ui.setDestinationText("ignored");
}

PAGE_TEST(ThemedPageUsesTheSelfDrawnControls) {
  open(kProgressPage, {},
       "<ColourTheme><DialogBackground>0x203040</DialogBackground><ActiveText>0xF0F0F0</ActiveText>"
       "<InactiveText>0x808080</InactiveText></ColourTheme>");
  ASSERT_TRUE(frame->hasTheme);
  // The template writes colours as red, green, blue.
  EXPECT_EQ("#203040", frame->panel->GetBackgroundColour().GetAsString(wxC2S_HTML_SYNTAX));
  ASSERT_NE(nullptr, ui.overallBar);
  EXPECT_EQ(nullptr, ui.overallGauge);
  ui.setOverallProgress(55);
  EXPECT_EQ(55u, ui.overallBar->GetValue());
}

PAGE_TEST(FileLinesWaitForAFlush) {
  open(kProgressPage);
  wxTextCtrl* list = ui.fileListControl;
  ASSERT_NE(nullptr, list);
  ui.addFileLine("Copying a", false);
  ui.addFileLine("Copying b", false);
  EXPECT_EQ("", list->GetValue());
  ui.addFileLine("Copying c", true);
  EXPECT_EQ("Copying a\nCopying b\nCopying c\n", list->GetValue());
  ui.addFileLine(nullptr, true);
  EXPECT_EQ("Copying a\nCopying b\nCopying c\n", list->GetValue()) << "an empty buffer adds nothing";
  ui.addFileLine("FAILED : Modifying x", false);
  ui.addFileLine(nullptr, true);
  EXPECT_EQ("Copying a\nCopying b\nCopying c\nFAILED : Modifying x\n", list->GetValue());
  ui.clearFileLines();
  EXPECT_EQ("", list->GetValue());
}

PAGE_TEST(ButtonsFollowTheUiState) {
  open(R"(<Dialogs><Page w="400" h="300">
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Disableable="1">Next</Button>
    <Button Name="Help" x="20" y="50" VAlign="bottom" Condition="[HELP]==1">Help</Button>
  </Page></Dialogs>)",
       {{"HELP", "0"}});
  wxWindow* next = frame->dialogButtons[0].window;
  EXPECT_TRUE(MainFrame::windowEnabled(next));
  EXPECT_FALSE(frame->dialogButtons[1].window->IsShown());
  engine.setUiState(kUiWorking);
  ui.updateButtons(0, -1);
  EXPECT_FALSE(MainFrame::windowEnabled(next));
  // The idle check leaves a working engine alone.
  ui.refreshDialog(0, -1, kRefreshConditions, false);
  EXPECT_FALSE(MainFrame::windowEnabled(next));
  engine.setUiState(kUiWaiting);
  engine.setVariable("HELP", "1");
  ui.refreshDialog(0, -1, kRefreshButtons, false);
  EXPECT_TRUE(MainFrame::windowEnabled(next));
  EXPECT_TRUE(frame->dialogButtons[1].window->IsShown());
}

const char kTwoPages[] = R"(<Dialogs>
  <Welcome w="400" h="300">
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">Next</Button>
  </Welcome>
  <Options w="400" h="300">
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Disableable="1">Next</Button>
    <Button Name="Back" x="190" y="50" HAlign="right" VAlign="bottom">Back</Button>
    <Button Name="Cancel" x="20" y="50" VAlign="bottom">Cancel</Button>
  </Options>
  <RegisterApplication w="400" h="300">
    <Button Name="Back" x="190" y="50" HAlign="right" VAlign="bottom">Back</Button>
  </RegisterApplication>
</Dialogs>)";

PAGE_TEST(NoButtonMovesTheWizardWhileWorkRunsNorBackIntoWorkDone) {
  open(kTwoPages);
  EXPECT_FALSE(engine.canGoBack());
  frame->onButton(kDialogButtonIds);
  ASSERT_EQ(1, engine.currentDialog);
  PageButton* next = &frame->dialogButtons[0];
  PageButton* back = &frame->dialogButtons[1];
  EXPECT_TRUE(MainFrame::windowEnabled(back->window));

  // While work runs (its events come through pumpEvents), neither Next nor
  // Back does anything, and both are off; Cancel stays, to say why not.
  engine.setUiState(kUiWorking);
  ui.updateButtons(1, -1);
  EXPECT_FALSE(MainFrame::windowEnabled(next->window));
  EXPECT_FALSE(MainFrame::windowEnabled(back->window));
  EXPECT_TRUE(MainFrame::windowEnabled(frame->dialogButtons[2].window));
  MainFrame::enableWindow(back->window, true);  // as if a click came in first
  frame->onButton(back->id);
  frame->onButton(next->id);
  EXPECT_EQ(1, engine.currentDialog);
  engine.setUiState(kUiWaiting);
  ui.updateButtons(1, -1);
  EXPECT_TRUE(MainFrame::windowEnabled(next->window));
  EXPECT_TRUE(MainFrame::windowEnabled(back->window));

  // Behind a page whose work has run, Back is off and goes nowhere.
  frame->onButton(next->id);
  ASSERT_EQ(2, engine.currentDialog);
  EXPECT_TRUE(engine.hasWorkRun());
  back = &frame->dialogButtons[0];
  EXPECT_FALSE(MainFrame::windowEnabled(back->window));
  MainFrame::enableWindow(back->window, true);
  frame->onButton(back->id);
  EXPECT_EQ(2, engine.currentDialog);
}

}  // namespace
