// Tests of building a page: where its windows stand, controls that follow
// their conditions, the task list, and a page drawn smaller.
#include <wx/gauge.h>
#include <wx/listctrl.h>
#include <wx/checkbox.h>
#include <wx/settings.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/tooltip.h>

#include "frontends/gui/custom_controls.h"
#include "frontends/gui/page_test_support.h"

namespace {

std::string text(const PageRect& r) {
  return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.w) + "," + std::to_string(r.h);
}

TEST(PlaceRect, NegativeSizesReachToTheFarEdges) {
  EXPECT_EQ("230,110,510,331", text(placeRect(230, 110, -10, -80, kAlignNone, kAlignNone, 750, 521, 1.0)));
  // A line one pixel high, 70 above the bottom, to one pixel from the right.
  EXPECT_EQ("1,451,748,1", text(placeRect(1, 70, -1, 1, kAlignLeft, kAlignBottom, 750, 521, 1.0)));
}

TEST(PlaceRect, RightAndBottomCountFromTheFarEdgeAndCentreDoesNotMove) {
  EXPECT_EQ("650,471,80,30", text(placeRect(100, 50, 80, 30, kAlignRight, kAlignBottom, 750, 521, 1.0)));
  EXPECT_EQ("100,50,80,30", text(placeRect(100, 50, 80, 30, kAlignCenter, kAlignCenter, 750, 521, 1.0)));
  // At a scale of 1.5 every number is scaled and truncated towards zero
  // before the edge rule: -5 becomes -7, -29 becomes -43.
  EXPECT_EQ("600,31,143,447", text(placeRect(100, 21, -5, -29, kAlignRight, kAlignNone, 750, 521, 1.5)));
}

const char kPage[] = "<Dialogs><Welcome w=\"750\" h=\"521\">"
                    "<Text Name=\"Intro\" x=\"230\" y=\"110\" w=\"-10\" h=\"-80\">Line one\r\nLine two</Text>"
                    R"(
    <HLine Name="Rule" x="1" y="70" w="-1" h="1" HAlign="left" VAlign="bottom"/>
    <Progress Name="Overall" x="20" y="20" w="200" h="16"/>
    <Image Name="Missing" x="20" y="40" w="100" h="60">no-such-picture</Image>
    <RichEditText Name="Licence" x="20" y="110" w="100" h="60">no-such-document</RichEditText>
    <Text Name="Later" x="20" y="200" w="100" h="20" Condition="[LATER]==1">later</Text>
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">&amp;Next</Button>
    <Button Name="Cancel" x="20" y="50" h="-20" VAlign="bottom" Disableable="1">Cancel</Button>
  </Welcome>
</Dialogs>)";

PAGE_TEST(ButtonsAndControlsStandAtTheirComputedRectangles) {
  open(kPage, {{"LATER", "0"}});
  int width = 0;
  int height = 0;
  frame->clientSize(&width, &height);
  ASSERT_EQ(750, width);
  ASSERT_EQ(521, height);

  ASSERT_EQ(2u, frame->dialogButtons.size());
  EXPECT_EQ(100, frame->dialogButtons[0].id);
  EXPECT_EQ("650,471,80,30", rectOf(frame->dialogButtons[0].window));
  // A negative height on a button leaves that much room below it.
  EXPECT_EQ("20,471,80,30", rectOf(frame->dialogButtons[1].window));

  EXPECT_EQ("230,110,510,331", rectOf(control("Intro")->window));
  EXPECT_EQ("1,451,748,1", rectOf(control("Rule")->window));
  EXPECT_EQ(300, frame->dialogControls[0].id);
  wxStaticText* label = dynamic_cast<wxStaticText*>(control("Intro")->window->GetChildren().GetFirst()->GetData());
  ASSERT_NE(nullptr, label);
  EXPECT_EQ("Line one\nLine two", label->GetLabel()) << "carriage returns are taken out";

  // Missing files leave an empty place and no window, and take their ids.
  EXPECT_EQ(nullptr, control("Missing")->window);
  EXPECT_EQ(nullptr, control("Licence")->window);
  EXPECT_EQ(305, control("Later")->id);
}

PAGE_TEST(ControlsFollowShowControlsAndTheirConditions) {
  open(kPage, {{"LATER", "0"}});
  // Entering the page shows its controls.
  EXPECT_TRUE(control("Intro")->window->IsShown());
  EXPECT_TRUE(frame->dialogButtons[0].window->IsShown());
  EXPECT_FALSE(control("Later")->window->IsShown());
  engine.setVariable("LATER", "1");
  ui.updateControlConditions();
  EXPECT_TRUE(control("Later")->window->IsShown());
  ui.showControls(0, -1, false);
  EXPECT_FALSE(control("Intro")->window->IsShown());
  EXPECT_FALSE(control("Later")->window->IsShown());
  ui.showControls(0, -1, true);
  EXPECT_TRUE(control("Intro")->window->IsShown());
}

const char kFramePage[] = R"(<Dialogs>
  <Frame w="750" h="521" Special="HasSubDialogs">
    <TaskLB Name="TaskList" x="10" y="10" w="180" h="-60"/>
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">Next</Button>
    <TaskList><First CurrentLabel="First step"/><Second CurrentLabel="Second step" UnreachedLabel="Soon"/>
      <Hidden CurrentLabel="Never" ShowCondition="[SHOWALL]==1"/></TaskList>
    <SubDialogs>
      <First Retain="Overall"><Progress Name="Overall" x="200" y="40" w="-10" h="20"/></First>
      <Second><Progress Name="Overall" x="200" y="100" w="-10" h="30"/>
        <Text Name="Note" x="200" y="10" w="-10" h="20">note</Text></Second>
    </SubDialogs>
  </Frame>
</Dialogs>)";

PAGE_TEST(TaskListShowsTheTasksAndTheirStates) {
  open(kFramePage, {{"SHOWALL", "0"}});
  wxListCtrl* list = dynamic_cast<wxListCtrl*>(control("TaskList")->window);
  ASSERT_NE(nullptr, list);
  ASSERT_EQ(2, list->GetItemCount()) << "a task whose ShowCondition fails is left out";
  EXPECT_EQ("Soon", list->GetItemText(1)) << "the unreached label comes first";
  ui.setTaskState("second", "Second done", kTaskDone);
  EXPECT_EQ("Second done", list->GetItemText(1));
  EXPECT_EQ(kTaskDone, frame->tasks[1].state);

  // A step that becomes possible (a failure step after a failure) joins the
  // list when its state is next shown; the rows before it keep theirs.
  engine.setVariable("SHOWALL", "1");
  ui.setTaskState("Hidden", "Now", kTaskCurrent);
  ASSERT_EQ(3, list->GetItemCount());
  EXPECT_EQ("Second done", list->GetItemText(1));
  EXPECT_EQ("Now", list->GetItemText(2));
  engine.setVariable("SHOWALL", "0");
  ui.setTaskState("First", "First step", kTaskDone);
  EXPECT_EQ(2, list->GetItemCount());
}

// A frame far larger than any screen: the page is drawn smaller to fit.
const char kHugeFramePage[] = R"(<Dialogs>
  <Frame w="1900" h="1300" Special="HasSubDialogs">
    <TaskLB Name="TaskList" x="10" y="10" w="180" h="-60"/>
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">Next</Button>
    <Text Name="Note" x="200" y="10" w="-10" h="20">note</Text>
    <TaskList><First CurrentLabel="First step"/></TaskList>
    <SubDialogs><First/></SubDialogs>
  </Frame>
</Dialogs>)";

PAGE_TEST(APageDrawnSmallerToFitTheScreenTakesItsTextDownAsMuch) {
  open(kHugeFramePage);
  ASSERT_LT(uiScale, frame->textScale);
  double expected = wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT).GetFractionalPointSize() * uiScale /
                    frame->textScale;
  // Text at the font's full size would be cut in boxes laid out smaller.
  ASSERT_NE(nullptr, control("Note"));
  ASSERT_NE(nullptr, control("TaskList"));
  ASSERT_FALSE(frame->dialogButtons.empty());
  EXPECT_NEAR(expected, control("Note")->window->GetFont().GetFractionalPointSize(), 0.05);
  EXPECT_NEAR(expected, control("TaskList")->window->GetFont().GetFractionalPointSize(), 0.05);
  EXPECT_NEAR(expected, frame->dialogButtons[0].window->GetFont().GetFractionalPointSize(), 0.05);
}

PAGE_TEST(AConditionInErrorCountsAsTrueAsOnTheConsole) {
  // "((" can't be evaluated (-1): the engine and the console take that as
  // true, and so does the window, for every kind of condition.
  open(R"(<Dialogs><Frame w="750" h="521" Special="HasSubDialogs">
    <Text Name="Note" x="200" y="10" w="-10" h="20" Condition="((">shown</Text>
    <TaskLB Name="TaskList" x="10" y="10" w="180" h="-60"/>
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Condition="((">Next</Button>
    <TaskList><First CurrentLabel="First" ShowCondition="(("/><Second CurrentLabel="Second" EnableCondition="(("/>
    </TaskList>
    <SubDialogs><First/><Second/></SubDialogs>
  </Frame></Dialogs>)");
  EXPECT_EQ(-1, engine.evaluateCondition("(("));
  EXPECT_TRUE(control("Note")->window->IsShown());
  EXPECT_TRUE(frame->dialogButtons[0].window->IsShown());
  ASSERT_EQ(2u, frame->tasks.size());
  EXPECT_EQ(kTaskNotStarted, frame->tasks[1].state) << "not inactive";
  ui.refreshDialog(0, -1, kRefreshButtons | kRefreshConditions, false);
  EXPECT_TRUE(control("Note")->window->IsShown());
  EXPECT_TRUE(frame->dialogButtons[0].window->IsShown());
}

PAGE_TEST(TextsWrapInTheirBoxAndShowAnEllipsisWhereTheyDoNotFit) {
  open(R"(<Dialogs><Welcome w="750" h="521">
    <Text Name="Fits" x="10" y="10" w="200" h="200">Qlux Demo Enterprise Edition for Distributed Teams and Large Organisations 2026</Text>
    <Text Name="Cut" x="10" y="300" w="200" h="20">Qlux Demo Enterprise Edition for Distributed Teams and Large Organisations 2026</Text>
    <Text Name="Named" x="300" y="10" w="-10" h="20">Into [TARGET] &amp; more</Text>
  </Welcome></Dialogs>)",
       {{"TARGET", "/opt/Qlux"}});
  auto label = [this](const char* name) {
    return dynamic_cast<wxStaticText*>(control(name)->window->GetChildren().GetFirst()->GetData());
  };
  wxString wrapped = label("Fits")->GetLabelText();
  EXPECT_GT(wrapped.Freq('\n'), 0) << "the long name goes on another line";
  wrapped.Replace("\n", " ");
  EXPECT_EQ("Qlux Demo Enterprise Edition for Distributed Teams and Large Organisations 2026", wrapped)
      << "no word is cut or lost";
  EXPECT_EQ(nullptr, label("Fits")->GetToolTip());
  EXPECT_LE(label("Fits")->GetSize().GetWidth(), 200);

  wxString cut = label("Cut")->GetLabelText();
  EXPECT_EQ(0, cut.Freq('\n')) << "one line fits";
  EXPECT_TRUE(cut.EndsWith(wxString::FromUTF8("\xe2\x80\xa6")));
  ASSERT_NE(nullptr, label("Cut")->GetToolTip());
  EXPECT_EQ("Qlux Demo Enterprise Edition for Distributed Teams and Large Organisations 2026",
            label("Cut")->GetToolTip()->GetTip());

  EXPECT_EQ("Into /opt/Qlux & more", label("Named")->GetLabelText()) << "variables, and '&' as it stands";
}

PAGE_TEST(TabGoesThroughTheInputsInReadingOrderThenTheButtons) {
  open(R"(<Dialogs><Options w="750" h="521">
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">Next</Button>
    <Button Name="Cancel" x="20" y="50" VAlign="bottom">Cancel</Button>
    <Text Name="Intro" x="200" y="10" w="-10" h="30">Choose</Text>
    <Field Type="Directory" Label="Folder" x="200" y="50" w="-10">TARGET</Field>
    <Field Type="CheckBox" Label="Samples" x="200" y="120">SAMPLES</Field>
  </Options></Dialogs>)",
       {{"TARGET", "/opt/x"}, {"SAMPLES", "1"}});
  EXPECT_FALSE(control("Intro")->window->AcceptsFocusFromKeyboard()) << "a text is no Tab stop";
  std::vector<wxWindow*> stops;
  for (wxWindowList::compatibility_iterator node = frame->panel->GetChildren().GetFirst(); node;
       node = node->GetNext()) {
    if (node->GetData()->AcceptsFocusFromKeyboard()) stops.push_back(node->GetData());
  }
  // The folder box, its browse button, the check box, then Cancel (left)
  // and Next (right).
  ASSERT_EQ(5u, stops.size());
  EXPECT_NE(nullptr, dynamic_cast<wxTextCtrl*>(stops[0]));
  EXPECT_NE(nullptr, dynamic_cast<wxCheckBox*>(stops[2]));
  EXPECT_EQ(frame->dialogButtons[1].window, stops[3]);
  EXPECT_EQ(frame->dialogButtons[0].window, stops[4]);
}

PAGE_TEST(RetainedControlKeepsItsWindowAndFollowsTheNewElement) {
  open(kFramePage, {{"SHOWALL", "0"}});
  ui.showSubDialog(0, 0);
  PageControl* first = control("Overall");
  ASSERT_NE(nullptr, first);
  wxWindow* window = first->window;
  int id = window->GetId();
  EXPECT_EQ(350, id);
  EXPECT_EQ("200,40,540,20", rectOf(window));

  ui.retainControl("OVERALL");
  ui.destroySubDialog();
  ui.showSubDialog(0, 1);
  PageControl* second = control("Overall");
  ASSERT_NE(nullptr, second);
  EXPECT_EQ(window, second->window);
  EXPECT_EQ("200,100,540,30", rectOf(window));
  EXPECT_EQ(id + 1, control("Note")->id) << "new ids start above the retained window's";
  EXPECT_TRUE(frame->retainedControls.empty());
}

PAGE_TEST(ThemedButtonsAreSelfDrawnWithAccelerators) {
  open(R"(<Dialogs><Page w="400" h="300">
    <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Default="1">&amp;Next</Button>
    <Button Name="Web" x="20" y="50" VAlign="bottom" LinkStyle="1">Web site</Button>
  </Page></Dialogs>)",
       {}, "<ColourTheme><ActiveText>0x000000</ActiveText><InactiveText>0x808080</InactiveText></ColourTheme>");
  EXPECT_NE(nullptr, dynamic_cast<wxDialogButton*>(frame->dialogButtons[0].window));
  EXPECT_NE(nullptr, dynamic_cast<wxLinkStyledButton*>(frame->dialogButtons[1].window));
  frame->focusInitial(true);
  EXPECT_EQ(100, frame->defaultButtonId);
  EXPECT_EQ(frame->dialogButtons[0].window, wxWindow::FindFocus());
}

}  // namespace
