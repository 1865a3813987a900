// Tests of the wizard's walk through the dialogs: forward and back through
// the frame, work that can't be stepped back over, clicks and cancelling.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/errors.h"
#include "gtest/gtest.h"

namespace {

const char kControlVariables[] = R"(<InstallerControlVariables>
  <InstallError>INSTALL_ERROR</InstallError><UninstallError>UNINSTALL_ERROR</UninstallError>
  <DlgCondition>DLG_OK</DlgCondition></InstallerControlVariables>)";

// 0 Welcome, 1 License (AutoNext), 2 Options (only when CUSTOM), 3 a frame
// of four steps, 4 an error page, 5 a page named Finish without the flag,
// 6 a closing page with the flag.
const char kWizard[] = R"(
 <Dialogs>
  <Welcome Retain="Logo"><Button Name="Next" x="1" y="1">Next</Button></Welcome>
  <License Special="AutoNext">
   <Trigger EvaluateOn="Start" Variable="TRACE" Value="[TRACE]+"/>
   <Trigger EvaluateOn="End" Variable="TRACE" Value="[TRACE]-"/>
  </License>
  <Options Condition="[CUSTOM]==1"/>
  <Setup Special="HasSubDialogs">
   <TaskList>
    <Parameters CurrentLabel="Choosing" FinishLabel="Chosen"/>
    <Extras CurrentLabel="Extras" UnreachedLabel="Extras later" EnableCondition="[CUSTOM]==1"/>
    <CopyProgress CurrentLabel="Copying"/>
    <Summary CurrentLabel="Summary"/>
   </TaskList>
   <SubDialogs>
    <Parameters Condition="[SHOWPARAMS]==1" Retain="Overall"/>
    <Extras Condition="[CUSTOM]==1"/>
    <CopyProgress Special="AutoNext"/>
    <Summary/>
   </SubDialogs>
  </Setup>
  <ErrorPage Condition="[INSTALL_ERROR]==1"/>
  <Finish Condition="[INSTALL_ERROR]==0"/>
  <Done Special="Finish"/>
 </Dialogs>)";

// The work and the programs of the machine are stand-ins that report to the
// front end's call list, so the tests see them in order with its calls.
class FlowInstaller : public TestInstaller {
 public:
  int removeOlderInstallations(InstallerUI*) override {
    note("work removeOlder");
    throw QUtils::InstallerError("older installation is damaged");
  }
  int installFiles(InstallerUI*) override {
    if (installResult) setControlVariable(kCtlInstallError, "1");
    // What the user clicks while the work keeps the window alive.
    if (duringWork) duringWork();
    return work("installFiles", installResult);
  }
  int uninstall(InstallerUI*, const char*) override { return work("uninstall", 0); }
  int runPostInstall(InstallerUI*) override { return work("postInstall", 0); }
  bool registerApplication() override { return work("register", 1) != 0; }
  bool isAppRunning(const char* name, const char* directory) override {
    asked.push_back(std::string(name) + "@" + (directory ? directory : "anywhere"));
    return running.count(name) > 0;
  }
  bool terminateApp(const char* name, bool asService) override {
    note(std::string("terminate ") + name + (asService ? " service" : ""));
    return true;
  }
  void setUiState(int state) override {
    Installer::setUiState(state);
    note("setUiState " + std::to_string(state));
  }
  void note(const std::string& call) { ui.note(call); }
  int work(const char* what, int result) {
    note(std::string("work ") + what);
    return result;
  }

  int installResult = 0;
  std::function<void()> duringWork;
  std::set<std::string> running;
  std::vector<std::string> asked;
  RecordingUI ui;
};

class DialogFlowTest : public ::testing::Test {
 protected:
  // Reads `dialogs` as the wizard of an installation, with the variables its
  // conditions use, and enters the first page as a front end would.
  void start(const char* dialogs) {
    std::string xml = std::string("<HalvoWorksInstallation>") + kControlVariables + dialogs + "</HalvoWorksInstallation>";
    engine.loadTemplate(xml.c_str());
    engine.logConsole = &log;
    ASSERT_EQ(0, engine.readControlVariables());
    ASSERT_EQ(0, engine.readDialogs(engine.package.actionLogFile != nullptr));
    for (const char* name : {"CUSTOM", "SHOWPARAMS", "INSTALL_ERROR", "UNINSTALL_ERROR", "TRACE", "DLG_OK"})
      engine.setVariable(name, "0");
    engine.currentDialog = 0;
    engine.enterDialog(0, &ui());
  }
  RecordingUI& ui() { return engine.ui; }
  bool called(const std::string& call) {
    return std::find(ui().calls.begin(), ui().calls.end(), call) != ui().calls.end();
  }
  // The calls from the first one equal to `from` on.
  std::vector<std::string> callsFrom(const std::string& from) {
    auto first = std::find(ui().calls.begin(), ui().calls.end(), from);
    return std::vector<std::string>(first, ui().calls.end());
  }
  void expectAt(int dialog, int subDialog) {
    EXPECT_EQ(dialog, engine.currentDialog);
    EXPECT_EQ(subDialog, engine.currentSubDialog);
  }

  FlowInstaller engine;
  LinesConsole log;
};

TEST_F(DialogFlowTest, ForwardWalkSkipsByConditionAndGoesThroughTheFrame) {
  start(kWizard);
  ASSERT_EQ(0, engine.nextDialog(&ui(), 1));
  // License goes on by itself, Options is ruled out, and the frame opens on
  // its first step although that step's own condition is false.
  expectAt(3, 0);
  EXPECT_EQ((std::vector<int>{0, 1, 3}), ui().shown);
  EXPECT_EQ("0+-", engine.value("TRACE"));
  EXPECT_TRUE(called("retainControl Logo"));
  EXPECT_TRUE(called("setTaskState Parameters 1 Choosing"));
  // A task whose EnableCondition is false shows inactive but keeps its state.
  ui().calls.clear();
  engine.updateTasks(&ui());
  EXPECT_EQ((std::vector<std::string>{"setTaskState Extras 4 Extras later"}), ui().calls);
  EXPECT_EQ(kTaskNotStarted, engine.getTask(3, 1)->state);

  // Extras is passed over, CopyProgress works and goes on, Summary stops.
  ui().calls.clear();
  ASSERT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(3, 3);
  EXPECT_EQ((std::vector<std::string>{"retainControl Overall", "setTaskState CopyProgress 1 Copying",
                                      "showSubDialog 3 2", "showControls 3 2", "setUiState 1", "updateButtons 3 2",
                                      "work installFiles", "setUiState 0", "updateButtons 3 2",
                                      "setTaskState CopyProgress 2 Copying", "setTaskState Summary 1 Summary",
                                      "showSubDialog 3 3", "showControls 3 3"}),
            std::vector<std::string>(ui().calls.begin() + 1, ui().calls.end()));
  EXPECT_EQ("setTaskState Parameters 2 Chosen", ui().calls[0]);
  EXPECT_EQ(kTaskDone, engine.getTask(3, 2)->state);

  // The error page is ruled out; the page named Finish stops the walk, and
  // without the flag it doesn't end the run.
  ASSERT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(5, -1);
  EXPECT_EQ(0, engine.finished);
  ASSERT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(6, -1);
  EXPECT_EQ(0, engine.finished);
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(1, engine.finished);
  EXPECT_EQ(0, engine.failed);
}

TEST_F(DialogFlowTest, FailedWorkClosesItsTaskBadlyAndTheTemplateChoosesTheErrorPage) {
  start(kWizard);
  engine.installResult = -1;
  engine.nextDialog(&ui(), 2);
  expectAt(3, 3);
  EXPECT_EQ(-1, engine.hasFailed());
  EXPECT_TRUE(called("setTaskState CopyProgress 3 Copying"));
  engine.nextDialog(&ui(), 1);
  expectAt(4, -1);
}

TEST_F(DialogFlowTest, BackWalkInsideAndOutOfTheFrame) {
  start(kWizard);
  engine.setVariable("SHOWPARAMS", "1");
  engine.setVariable("CUSTOM", "1");
  EXPECT_FALSE(engine.canGoBack());  // the first page has nothing before it
  engine.nextDialog(&ui(), 1);
  engine.nextDialog(&ui(), 1);
  engine.nextDialog(&ui(), 1);
  expectAt(3, 1);

  // Back inside the frame, then out of it to Options and License. Going
  // back doesn't give steps for AutoNext.
  EXPECT_TRUE(engine.canGoBack());
  ui().calls.clear();
  EXPECT_EQ(0, engine.shiftDialog(&ui(), -1));
  expectAt(3, 0);
  EXPECT_EQ("setTaskState Extras 0 Extras later", ui().calls[0]);
  EXPECT_EQ(0, engine.shiftDialog(&ui(), -1));
  expectAt(2, -1);
  EXPECT_EQ(0, engine.previousDialog(&ui(), 1));
  expectAt(1, -1);

  // Back past the first page is the end of the walk.
  EXPECT_EQ(0, engine.previousDialog(&ui(), 3));
  EXPECT_EQ(1, engine.failed);
  EXPECT_EQ(1, engine.finished);
  EXPECT_TRUE(log.has("ERROR: Bad dialog back shifting. Current dialog: 1, current subdialog: -1"));
}

TEST_F(DialogFlowTest, OnceWorkHasRunNoStepBackReachesItOrWhatCameBefore) {
  start(kWizard);
  engine.nextDialog(&ui(), 2);
  expectAt(3, 3);
  EXPECT_TRUE(engine.hasWorkRun());
  EXPECT_FALSE(engine.canGoBack());
  ui().calls.clear();
  EXPECT_EQ(-1, engine.previousDialog(&ui(), 1));
  EXPECT_EQ(-1, engine.shiftDialog(&ui(), -3));
  expectAt(3, 3);
  EXPECT_TRUE(ui().calls.empty());
  EXPECT_EQ(0, engine.failed);
  EXPECT_EQ(0, engine.finished);
  EXPECT_TRUE(log.has("A step back was refused: the work of page (3, 2) has run"));

  // Pages behind the work can still be walked back and forth.
  engine.nextDialog(&ui(), 1);
  expectAt(5, -1);
  EXPECT_TRUE(engine.canGoBack());
  EXPECT_EQ(0, engine.previousDialog(&ui(), 1));
  expectAt(3, 3);
  EXPECT_FALSE(called("work installFiles"));
}

TEST_F(DialogFlowTest, ClicksWhileWorkRunsMoveNothing) {
  start(kWizard);
  std::vector<int> results;
  engine.duringWork = [&]() {
    EXPECT_FALSE(engine.canGoBack());
    results.push_back(engine.shiftDialog(&ui(), -1));
    results.push_back(engine.shiftDialog(&ui(), 1));
    results.push_back(engine.nextDialog(&ui(), 1));
  };
  engine.nextDialog(&ui(), 2);
  // The walk went on from the copy page as if nobody had clicked.
  expectAt(3, 3);
  EXPECT_EQ((std::vector<int>{-1, -1, -1}), results);
  EXPECT_EQ(1, std::count(ui().calls.begin(), ui().calls.end(), "work installFiles"));
  EXPECT_EQ(1, std::count(ui().calls.begin(), ui().calls.end(), "showSubDialog 3 3"));
  EXPECT_TRUE(log.has("WARNING: A step back was refused while work runs"));
  EXPECT_TRUE(log.has("WARNING: A step forward was refused while work runs"));
}

TEST_F(DialogFlowTest, CancelAsksAndRunningOffTheEndFailsTheRun) {
  start("<Dialogs><Welcome/><Finish/></Dialogs>");
  engine.runAction(&ui(), "Cancel");
  EXPECT_EQ(0, engine.isCancelled());
  ui().confirm = true;
  engine.runAction(&ui(), "Cancel");
  EXPECT_EQ(1, engine.isCancelled());

  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(0, engine.finished);
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(1, engine.failed);
  EXPECT_EQ(1, engine.finished);
  EXPECT_TRUE(log.has("ERROR: Bad dialog next shifting. Current dialog: 1, current subdialog: -1"));
}

TEST_F(DialogFlowTest, AFrameWithoutSubDialogsStopsTheWalkInSpiteOfAutoNext) {
  start(R"(<Dialogs><Welcome/><Frame Special="HasSubDialogs;AutoNext"/><After/><Done Special="Finish"/></Dialogs>)");
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(1, -1);
  EXPECT_EQ(0, engine.failed);
  // The next step leaves it as an ordinary page.
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(2, -1);
  EXPECT_EQ(0, engine.finished);
}

TEST_F(DialogFlowTest, WorkPagesSetFailedAndExceptionsStayInside) {
  start(R"(<Dialogs><Welcome/><Uninstall/><RegisterApplication/><PostInstall/>
             <UnregisterApplication Special="Finish"/></Dialogs>)");
  // The exception of the removal ends its work, and the buttons come back.
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(1, engine.failed);
  EXPECT_TRUE(log.has("older installation is damaged"));
  EXPECT_EQ((std::vector<std::string>{"showControls 1 -1", "setUiState 1", "updateButtons 1 -1", "work removeOlder",
                                      "setUiState 0", "updateButtons 1 -1"}),
            callsFrom("showControls 1 -1"));
  // A registration that works clears it; PostInstall goes on by itself, and
  // in an installation the unregistration page leaves `failed` alone.
  engine.failed = 1;
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(2, -1);
  EXPECT_EQ(0, engine.failed);
  EXPECT_FALSE(called("showControls 2 -1"));
  engine.failed = 1;
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(4, -1);
  EXPECT_EQ("showControls 3 -1", callsFrom("work postInstall").at(1));
  EXPECT_EQ(0, engine.failed);
}

TEST_F(DialogFlowTest, AnUninstallationRemovesFilesAndSummarisesItsErrors) {
#ifdef _WIN32
  engine.package.actionLogFile = std::fopen("NUL", "rb");
#else
  engine.package.actionLogFile = std::fopen("/dev/null", "rb");
#endif
  ASSERT_NE(nullptr, engine.package.actionLogFile);
  start(R"(<UninstallDialogs><CopyProgress Special="AutoNext"/><RegisterApplication/>
             <BadFinish Special="Finish"/></UninstallDialogs>)");
  EXPECT_TRUE(called("work uninstall"));
  for (int i = 0; i < 34; i++) engine.addError(("error " + std::to_string(i)).c_str());
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(1, -1);
  EXPECT_FALSE(called("work register"));
  EXPECT_EQ(1, engine.failed);

  ui().calls.clear();
  engine.nextDialog(&ui(), 1);
  std::vector<std::string> summary = callsFrom("addFileLine Uninstallation errors summary:");
  ASSERT_EQ(36u, summary.size());
  EXPECT_EQ("addFileLine error 0 flush", summary[1]);
  EXPECT_EQ("addFileLine error 1", summary[2]);
  EXPECT_EQ("addFileLine error 32 flush", summary[33]);
  EXPECT_EQ("addFileLine <null> flush", summary[35]);
}

const char kRunningApps[] = R"(<Dialogs>
  <Welcome><Button Name="Next" x="1" y="1">Next</Button></Welcome>
  <RunningApps Special="AutoNext">
   <TerminateApp Service="TRUE">agent.exe</TerminateApp>
   <TerminateApp Condition="0">never.exe</TerminateApp>
   <TestApp>tool.exe</TestApp>
   <TestApp Directory="[TARGET]/bin">viewer.exe</TestApp>
   <TestApp Condition="[CUSTOM]==1">extra.exe</TestApp>
  </RunningApps>
  <Relaxed Special="WeakCondition"/>
  <RunningApps><TestApp>tool.exe</TestApp></RunningApps>
  <Done Special="Finish"/>
 </Dialogs>)";

TEST_F(DialogFlowTest, RunningAppsHoldsTheWalkWhileAListedProgramRuns) {
  engine.setVariable("TARGET", "/opt/app");
  engine.running = {"tool.exe"};
  start(kRunningApps);
  EXPECT_EQ(2, engine.checkDialogCondition(&ui()));
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  // AutoNext doesn't carry the walk past a failed condition.
  expectAt(1, -1);
  EXPECT_TRUE(called("terminate agent.exe service"));
  EXPECT_FALSE(called("terminate never.exe"));
  EXPECT_EQ((std::vector<std::string>{"tool.exe@anywhere", "viewer.exe@/opt/app/bin"}),
            std::vector<std::string>(engine.asked.begin(), engine.asked.begin() + 2));
  EXPECT_EQ((std::vector<std::string>{"tool.exe",
                                      "The installation can not continue, because the processes listed above are "
                                      "running."}),
            ui().lines);
  EXPECT_EQ(kUiConditionFailed, engine.getUiState());
  EXPECT_TRUE(log.has("Running applications found"));

  // Leaving is refused: the page is entered again and stays.
  EXPECT_EQ(-1, engine.nextDialog(&ui(), 1));
  expectAt(1, -1);
  EXPECT_EQ(0, engine.checkDialogCondition(&ui()));
  EXPECT_EQ("0", engine.value("DLG_OK"));

  // The list follows the machine, and is rewritten only on a change.
  ui().calls.clear();
  engine.running = {"tool.exe", "viewer.exe"};
  engine.checkDialogCondition(&ui());
  engine.checkDialogCondition(&ui());
  EXPECT_EQ((std::vector<std::string>{"clearFileLines", "addFileLine tool.exe", "addFileLine viewer.exe",
                                      "addFileLine <null> flush"}),
            ui().calls);
  engine.running.clear();
  EXPECT_EQ(1, engine.checkDialogCondition(&ui()));
  EXPECT_EQ("1", engine.value("DLG_OK"));

  // Now the walk goes on, and a weak page can be left with a program running.
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(2, -1);
  EXPECT_EQ("0", engine.value("DLG_OK"));  // cleared by the new page
  engine.getDialog(2, -1)->dlgCondition = engine.runningApps;
  engine.running = {"tool.exe"};
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(3, -1);
  // With nothing running, a RunningApps page is passed over unseen.
  engine.previousDialog(&ui(), 1);
  expectAt(2, -1);
  engine.running.clear();
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  expectAt(4, -1);
}

TEST_F(DialogFlowTest, AProductIsRegisteredOnlyWithItsLogAndUninstallerOnTheDisk) {
  start(R"(<ProductDesc><Fullname>Quill</Fullname></ProductDesc>
   <Installation><Uninstall><InstallLogFile>[ROOT]/install.log</InstallLogFile>
    <UninstallCmd>[ROOT]/uninstall</UninstallCmd></Uninstall></Installation>
   <Dialogs><Welcome/><RegisterApplication/><RegisterApplication/><Done Special="Finish"/></Dialogs>)");
  std::string root = here("registered");
  ASSERT_TRUE(QUtils::makeDirectory(root.c_str()));
  engine.setVariable("ROOT", root.c_str());

  // A failed installation that was kept may lack its log: no entry then.
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(1, engine.failed);
  EXPECT_FALSE(called("work register"));
  ASSERT_EQ(1, engine.errorList->getCount());
  EXPECT_EQ("FAILED to register the product: " + root + "/install.log is missing",
            std::string((*engine.errorList)[0].getText()));

  // The program may be named without the ".exe" that Windows adds.
  writeFile(root + "/install.log", "log");
  writeFile(root + "/uninstall.exe", "program");
  EXPECT_EQ(0, engine.nextDialog(&ui(), 1));
  EXPECT_EQ(0, engine.failed);
  EXPECT_TRUE(called("work register"));
}

}  // namespace
