// Tests of reading dialogs from the template: frames and sub-dialogs,
// fields, buttons, triggers and the default page.
#include <cstring>
#include <string>

#include "engine/test_support.h"
#include "foundation/console.h"
#include "gtest/gtest.h"

namespace {


// An installer's wizard: two pages without buttons, a frame whose
// SubDialogs stand in another order than its TaskList, and a last page
// without buttons; an uninstaller's wizard beside it.
const char kTemplate[] = R"(<HalvoWorksInstallation>
 <Dialogs>
  <Welcome>
   <Text Name="Intro" x="10" y="10" w="-10" HAlign="Center" VAlign="middle">Welcome\nPress Next /n go on</Text>
   <Image y="5">logo</Image>
  </Welcome>
  <License Special="AutoNext" w="900">
   <RichEditText x="0" y="0">license</RichEditText>
  </License>
  <InstallationDialog Special="HasSubDialogs; weakcondition;Bogus" w="640" h="480" BkgColour="0x102030"
                      Condition="[MODE]!=2" Retain="Overall; Current">
   <TaskLB Name="TaskList" x="0" y="0" w="160" h="-1" Details="size=18"/>
   <Button Name="Cancel" x="20" y="10" HAlign="center" VAlign="bottom" Action="Quit">Cancel</Button>
   <TaskList>
    <Parameters CurrentLabel="Choosing" FinishLabel="Chosen" EnableCondition="[CUSTOM]==1"/>
    <RunningApps CurrentLabel="Checking programs"/>
    <CopyProgress CurrentLabel="Copying" UnreachedLabel="Copy files" ShowCondition="[SHOWCOPY]==1"/>
   </TaskList>
   <SubDialogs>
    <CopyProgress Special="AutoNext"><Progress Name="Overall" x="10" y="10" w="-10" h="20"/></CopyProgress>
    <Unused><Text x="1" y="1">never read</Text></Unused>
    <Parameters>
     <Field Type="Directory" Label="Folder" x="10" y="40" ValidationVariable="DIR_OK">INSTALLDIR</Field>
     <Field Type="checkbox" Label="Desktop icon" Condition="[CUSTOM]==1">DESKTOPICON</Field>
     <Field Type="RadioButtons" Content="Full;Minimal" Description="All;Core" Enable="1|[CUSTOM]==1"
            HAlign="center" InputBkgColour="0x0000FF">MODE</Field>
     <Field Type="InstallParameter" Content="Directory">INSTALLDIR</Field>
     <Field Label="No type">IGNORED</Field>
     <Text x="5" y="5" Condition="[DIR_OK]==0">Pick another folder</Text>
     <Button Name="Next" x="100" y="10" DialogShift="+2">&amp;Next</Button>
     <Button Name="back" x="190" y="10">&amp;Back</Button>
     <Button x="280" y="10" Default="2" LinkStyle="1" Disableable="1" DialogShift="+1" Action="[SEEN]='1'">Skip</Button>
     <Button Name="Customize" x="1" y="1" Default="1">Custom</Button>
     <Button x="1" y="1"></Button>
     <Button x="1">No y</Button>
     <Trigger EvaluateOn="Start;End" Variable="TARGET" Value="[INSTALLDIR]/bin"/>
     <Trigger EvaluateOn="set" Type="VarReset" Variable="TARGET"/>
     <Trigger EvaluateOn="Dynamic" Type="VarChange" Variable="TARGET"/>
     <Trigger Type="VarReset" Variable="TARGET"/>
     <Trigger EvaluateOn="End" Type="Jump" Variable="TARGET" Value="x"/>
    </Parameters>
    <RunningApps/>
   </SubDialogs>
  </InstallationDialog>
  <Extra/>
 </Dialogs>
 <UninstallDialogs>
  <Goodbye><Field Type="CheckBox" x="1" y="1">KEEPDATA</Field><Button Name="Next" x="1" y="1">Next</Button></Goodbye>
 </UninstallDialogs>
</HalvoWorksInstallation>)";

class DialogsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine.logConsole = &console;
    engine.loadTemplate(kTemplate);
    ASSERT_EQ(0, engine.readDialogs(false));
    ASSERT_EQ(4, engine.getDialogCount());
  }
  TestInstaller engine;
  LinesConsole console;
};

const int kFrame = 2;  // InstallationDialog
const int kParameters = 0;

}  // namespace

TEST_F(DialogsTest, FrameReadsItsSubDialogsInTaskListOrder) {
  DIALOGINFO* frame = engine.getDialog(kFrame, -1);
  ASSERT_NE(nullptr, frame);
  EXPECT_STREQ("InstallationDialog", frame->name);
  EXPECT_EQ(kDialogHasSubDialogs | kDialogWeakCondition, frame->flags);
  EXPECT_EQ(640, engine.getDialogWidth(kFrame));
  EXPECT_EQ(480, engine.getDialogHeight(kFrame));
  ASSERT_EQ(2, frame->retain.getCount());
  EXPECT_STREQ("Current", frame->retain[1].getText());
  uint32_t background, foreground;
  engine.getDialogColours(kFrame, -1, &background, &foreground);
  EXPECT_EQ(0x302010u, background);
  EXPECT_EQ(kNoColour, foreground);

  // The TaskLB control named "TaskList" is an element; the TaskList child is
  // the data behind it.
  ASSERT_EQ(1, engine.getElementCount(kFrame, -1));
  EXPECT_EQ(kElementTaskLB, engine.getElement(kFrame, 0, -1)->type);
  ASSERT_EQ(3, engine.getTaskCount(kFrame));
  EXPECT_STREQ("[SHOWCOPY]==1", engine.getTask(kFrame, 2)->showCondition);
  EXPECT_EQ(nullptr, engine.getTask(kFrame, 3));

  ASSERT_EQ(3, engine.getSubDialogCount(kFrame));
  EXPECT_STREQ("Parameters", engine.getDialog(kFrame, 0)->name);
  EXPECT_STREQ("RunningApps", engine.getDialog(kFrame, 1)->name);
  EXPECT_STREQ("CopyProgress", engine.getDialog(kFrame, 2)->name);
  EXPECT_EQ(kDialogAutoNext, engine.getDialog(kFrame, 2)->flags);
  EXPECT_EQ(nullptr, engine.getDialog(kFrame, 3));
  EXPECT_EQ(nullptr, engine.getDialog(4, -1));
}

TEST_F(DialogsTest, FieldsOfEachTypeAndUnknownTypeLeftOut) {
  ASSERT_EQ(4, engine.getFieldCount(kFrame, kParameters));
  FIELDINFO* directory = engine.getField(kFrame, 0, kParameters);
  EXPECT_EQ(kFieldDirectory, directory->type);
  EXPECT_STREQ("DIR_OK", directory->validationVariable);
  EXPECT_EQ(10, directory->x);
  EXPECT_EQ(-1, directory->w);
  EXPECT_EQ(kFieldCheckBox, engine.getField(kFrame, 1, kParameters)->type);
  FIELDINFO* radio = engine.getField(kFrame, 2, kParameters);
  EXPECT_EQ(kFieldRadioButtons, radio->type);
  EXPECT_STREQ("Full;Minimal", radio->content);
  EXPECT_EQ(kAlignCenter, radio->hAlign);
  EXPECT_EQ(0xFF0000u, radio->inputBackground);
  EXPECT_EQ(kFieldInstallParameter, engine.getField(kFrame, 3, kParameters)->type);
  EXPECT_NE(std::string::npos, console.all.find("Field of unknown type"));
}

TEST_F(DialogsTest, ButtonsTakeTheirShorthandsAndDropWithoutTextOrPosition) {
  ASSERT_EQ(4, engine.getButtonCount(kFrame, kParameters));
  BUTTONINFO* next = engine.getButton(kFrame, 0, kParameters);
  EXPECT_EQ(1, next->dialogShift);  // the name wins over DialogShift="+2"
  EXPECT_EQ(kButtonShift | kButtonDefault, next->flags);
  EXPECT_EQ(80, next->w);
  EXPECT_EQ(30, next->h);
  BUTTONINFO* back = engine.getButton(kFrame, 1, kParameters);
  EXPECT_EQ(-1, back->dialogShift);
  EXPECT_EQ(kButtonShift, back->flags);
  BUTTONINFO* skip = engine.getButton(kFrame, 2, kParameters);
  EXPECT_EQ(1, skip->dialogShift);
  // Default="2" is not the default button; only 1 is.
  EXPECT_EQ(kButtonShift | kButtonAction | kButtonLinkStyle | kButtonDisableable, skip->flags);
  BUTTONINFO* custom = engine.getButton(kFrame, 3, kParameters);
  EXPECT_STREQ("[CUSTOMIZE]='1'", custom->action);
  EXPECT_EQ(kButtonShift | kButtonAction | kButtonDefault, custom->flags);

  // Cancel replaces the action it was given; buttons can't be centred.
  BUTTONINFO* cancel = engine.getButton(kFrame, 0, -1);
  EXPECT_STREQ("Cancel", cancel->action);
  EXPECT_EQ(kButtonAction, cancel->flags);
  EXPECT_EQ(kAlignNone, cancel->hAlign);
  EXPECT_EQ(kAlignBottom, cancel->vAlign);
}

TEST_F(DialogsTest, TriggersKeptOnlyWithEventsAndWhatTheirTypeNeeds) {
  DIALOGINFO* parameters = engine.getDialog(kFrame, kParameters);
  ASSERT_EQ(3, parameters->triggers.getCount());
  EXPECT_EQ(kEventStart | kEventEnd, parameters->triggers[0].events);
  EXPECT_EQ(kTriggerVarChange, parameters->triggers[0].type);
  // A reset needs no value.
  EXPECT_EQ(kEventStart, parameters->triggers[1].events);
  EXPECT_EQ(kTriggerVarReset, parameters->triggers[1].type);
  // An unknown type counts as a variable change.
  EXPECT_EQ(kTriggerVarChange, parameters->triggers[2].type);
  EXPECT_STREQ("x", parameters->triggers[2].value);
  EXPECT_NE(std::string::npos,
            console.all.find("WARNING: Unrecognized trigger type = Jump (Parent dlg name: Parameters)"));
  // The change without a value and the trigger without events were dropped.
  const char* dropped = "WARNING: Extracted a trigger with no type nor specified value (Parent dlg name: Parameters)";
  size_t first = console.all.find(dropped);
  ASSERT_NE(std::string::npos, first);
  EXPECT_NE(std::string::npos, console.all.find(dropped, first + 1));
}

TEST_F(DialogsTest, DefaultPageOnlyWhileNoButtonWasRead) {
  // Welcome: forced size, its own element kept and the line behind it, no Back.
  EXPECT_EQ(500, engine.getDialogWidth(0));
  EXPECT_EQ(390, engine.getDialogHeight(0));
  ASSERT_EQ(2, engine.getElementCount(0, -1));  // the Image without x is dropped
  ELEMENTINFO* line = engine.getElement(0, 1, -1);
  EXPECT_EQ(kElementHLine, line->type);
  EXPECT_EQ(-1, line->w);
  ASSERT_EQ(2, engine.getButtonCount(0, -1));
  EXPECT_STREQ("&Next", engine.getButton(0, 0, -1)->text);
  EXPECT_EQ(kButtonShift, engine.getButton(0, 0, -1)->flags);
  EXPECT_STREQ("&Cancel", engine.getButton(0, 1, -1)->text);
  EXPECT_EQ(kAlignLeft, engine.getButton(0, 1, -1)->hAlign);

  // License is still before any button, so it gets the page too, with Back.
  EXPECT_EQ(500, engine.getDialogWidth(1));
  ASSERT_EQ(3, engine.getButtonCount(1, -1));
  EXPECT_EQ(-1, engine.getButton(1, 2, -1)->dialogShift);
  EXPECT_EQ(190, engine.getButton(1, 2, -1)->x);

  // Behind the frame's buttons a page without any stays so.
  EXPECT_EQ(0, engine.getButtonCount(3, -1));
  EXPECT_EQ(760, engine.getDialogWidth(3));
  EXPECT_EQ(520, engine.getDialogHeight(3));
}

TEST(DialogsReadTest, FrameWithoutTaskListTakesOneFromTheButtonCount) {
  TestInstaller engine;
  engine.loadTemplate(
      "<R><Dialogs><Frame Special=\"HasSubDialogs\"><Button x=\"1\" y=\"1\">Go</Button></Frame>"
      "<finish/></Dialogs></R>");
  ASSERT_EQ(0, engine.readDialogs(false));
  // The frame's one button is cancelled out, so both pages get the default.
  EXPECT_EQ(4, engine.getButtonCount(0, -1));
  EXPECT_EQ(0, engine.getSubDialogCount(0));
  EXPECT_EQ(2, engine.getButtonCount(1, -1));  // "finish" has no Back
}

TEST_F(DialogsTest, ElementTextBreaksOnlyAtBackslashN) {
  ELEMENTINFO* intro = engine.getElement(0, 0, -1);
  EXPECT_STREQ("Welcome\r\nPress Next /n go on", intro->text.getText());
  EXPECT_EQ(kAlignCenter, intro->hAlign);
  EXPECT_EQ(kAlignNone, intro->vAlign);  // "middle" is no alignment
}

TEST(DialogsReadTest, UninstallationReadsItsOwnSectionWithoutFields) {
  TestInstaller engine;
  engine.loadTemplate(kTemplate);
  ASSERT_EQ(0, engine.readDialogs(true));
  ASSERT_EQ(1, engine.getDialogCount());
  EXPECT_STREQ("Goodbye", engine.getDialog(0, -1)->name);
  EXPECT_EQ(0, engine.getFieldCount(0, -1));
  EXPECT_EQ(1, engine.getButtonCount(0, -1));

  TestInstaller bare;
  bare.loadTemplate("<R><Dialogs><A/></Dialogs></R>");
  EXPECT_EQ(-1, bare.readDialogs(true));
}

TEST_F(DialogsTest, VariableChangedFlagsWhatDependsOnTheVariable) {
  // CUSTOM: a field's condition and a task's enable condition; the text that
  // reads a validation variable is refreshed on every change of the page.
  EXPECT_EQ(kRefreshConditions | kRefreshFields | kRefreshTasks,
            engine.variableChanged("CUSTOM", kFrame, kParameters));
  EXPECT_EQ(kRefreshConditions, engine.variableChanged("UNUSED", kFrame, kParameters));
  EXPECT_EQ(0, engine.variableChanged("UNUSED", kFrame, 1));
  // A sub-dialog outside the list reads the frame itself.
  EXPECT_EQ(kRefreshTasks, engine.variableChanged("CUSTOM", kFrame, 7));
  EXPECT_EQ(0, engine.variableChanged("CUSTOM", 9, -1));
}

TEST_F(DialogsTest, FireTriggersRunsThoseOfTheEventWhoseConditionHolds) {
  engine.defineVariable("INSTALLDIR", "/opt/demo", nullptr, 0, nullptr);
  engine.defineVariable("TARGET", "old", "$INSTALLDIR/lib", 1, nullptr);
  DIALOGINFO* parameters = engine.getDialog(kFrame, kParameters);
  std::strcpy(parameters->triggers[2].condition, "1==2");

  engine.fireTriggers(kEventEnd, kFrame, kParameters);
  EXPECT_EQ("/opt/demo/bin", engine.value("TARGET"));
  // Start runs the change, then the reset back to the expression.
  engine.fireTriggers(kEventStart, kFrame, kParameters);
  EXPECT_EQ("/opt/demo/lib", engine.value("TARGET"));
  engine.fireTriggers(kEventDynamic, kFrame, kParameters);
  EXPECT_EQ("/opt/demo/lib", engine.value("TARGET"));

  std::strcpy(parameters->triggers[0].condition, "1==2");
  engine.fireTriggers(kEventEnd, kFrame, kParameters);
  EXPECT_EQ("/opt/demo/lib", engine.value("TARGET"));

  std::strcpy(parameters->triggers[1].variable, "MISSING");
  engine.fireTriggers(kEventStart, kFrame, kParameters);
  EXPECT_NE(std::string::npos, console.all.find("WARNING: Trying to reset non-existent variable: MISSING"));
}
