// Tests of the console front end: paging, a person walking the wizard,
// running programs, progress, file lines and messages.
#include "frontends/console/console_ui.h"

#include <gtest/gtest.h>

#include <string>

#include "frontends/console/console_test_support.h"

namespace {

const char kBanner[] =
    "*******************************\n"
    "* Halvo Works installer       *\n"
    "*******************************\n";
const char kNextPage[] = "\nPress ENTER for the next page (q: to the end)...\n\n\n";
// What erasing the progress line prints.
const std::string kErase = "\r" + std::string(78, ' ') + "\r\n";

// A console on a terminal of a fixed size, reading its answers from
// `terminal`, talking to `engine`.
class TestConsole : public ConsoleUI {
 public:
  TestConsole(FakeTerminal& terminal, const char* inputName, InstallExchangeInfo* engine = nullptr, int quiet = 0)
      : ConsoleUI(0, 0, quiet) {
    setStreams(terminal.in, terminal.out);
    bool automatic = false;
    initInput(inputName, &automatic);
    exchange = engine;
  }
  int columns = 80;
  int rows = 24;

 protected:
  void getTerminalSize(int* c, int* r) override {
    *c = columns;
    *r = rows;
  }
};

std::string lines(int first, int last) {
  std::string text;
  for (int i = first; i <= last; i++) text += "line " + std::to_string(i) + "\n";
  return text;
}

TEST(ConsoleUITest, PagingByTheTerminalsHeight) {
  struct Case {
    int rows;
    int quiet;
    int count;
    std::string expected;
  } cases[] = {
      {24, 0, 50, lines(1, 22) + kNextPage + lines(23, 44) + kNextPage + lines(45, 50) + kNextPage},
      // A text that fills its last page has had its last pause.
      {24, 0, 44, lines(1, 22) + kNextPage + lines(23, 44) + kNextPage},
      // Too small to page, or quiet: one pause at the end.
      {2, 0, 5, lines(1, 5) + kNextPage},
      {0, 0, 5, lines(1, 5) + kNextPage},
      {24, 1, 50, lines(1, 50) + kNextPage},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rows);
    FakeTerminal terminal("");
    TestConsole ui(terminal, "", nullptr, c.quiet);
    ui.rows = c.rows;
    ui.printPaged(lines(1, c.count).c_str());
    EXPECT_EQ(c.expected, terminal.printed());
  }
}

TEST(ConsoleUITest, TheBannerIsTheTemplates) {
  // The frame grows with a long line; the uninstaller's banner is its own.
  FakeTerminal terminal("");
  WizardEngine engine("<Done Special=\"Finish\"/>", "",
                      "<BannerText>Acme Editor 2.1 setup, for all its users</BannerText>"
                      "<UninstallBannerText>Acme Editor removal</UninstallBannerText>");
  TestConsole ui(terminal, "autoInstall", &engine);
  ui.showDialog(0);
  EXPECT_EQ(
      "********************************************\n"
      "* Acme Editor 2.1 setup, for all its users *\n"
      "********************************************\n",
      terminal.printed());
}

TEST(ConsoleUITest, QSkipsToTheEndOfALongText) {
  // "q" at the first pause lets the rest run through; the end still waits
  // for a last answer, so the text's end stays on the screen.
  for (const char* answer : {"q\n", "END\n", " q \n"}) {
    SCOPED_TRACE(answer);
    FakeTerminal terminal(answer);
    TestConsole ui(terminal, "");
    ui.printPaged(lines(1, 100).c_str());
    EXPECT_EQ(lines(1, 22) + kNextPage + lines(23, 100) + kNextPage, terminal.printed());
  }
  // Any other answer is the next page.
  FakeTerminal terminal("x\n\n\n\n");
  TestConsole ui(terminal, "");
  ui.printPaged(lines(1, 50).c_str());
  EXPECT_EQ(3, terminal.count(kNextPage));
}

const char kWizard[] =
    "<Welcome><Text x=\"1\" y=\"1\">Welcome to Demo.</Text>"
    " <Text x=\"1\" y=\"2\" Condition=\"[NEVER]==1\">Never shown.</Text><Image x=\"1\" y=\"3\">logo</Image></Welcome>"
    "<Licence><RichEditText x=\"0\" y=\"0\">licence.rtf</RichEditText></Licence>"
    "<Options><Field Type=\"Directory\" Label=\"Install to\" x=\"1\" y=\"1\">TARGET</Field>"
    " <Field Type=\"CheckBox\" Label=\"Desktop icon\" x=\"1\" y=\"2\">ICON</Field></Options>"
    "<Done Special=\"Finish\"><Text x=\"1\" y=\"1\">Done.</Text></Done>";
const char kWizardValues[] =
    "<Value Name=\"TARGET\" DataType=\"value\">/opt/demo</Value>"
    "<Value Name=\"ICON\" DataType=\"value\">0</Value>"
    "<Value Name=\"NEVER\" DataType=\"value\">0</Value>";
const char kLicence[] = "{\\rtf1{\\fonttbl{\\f0 Sans;}}\\qc Licence\\par\\ql Use it well, use it often.}";

TEST(ConsoleUITest, APersonWalksTheWizard) {
  FakeTerminal terminal("\n\n" QLUX_TEST_ROOT "/srv/demo\nyes\n");
  WizardEngine engine(kWizard, kWizardValues);
  engine.files["licence.rtf"] = kLicence;
  TestConsole ui(terminal, "", &engine);
  ui.columns = 20;
  EXPECT_EQ(0, ui.run());
  ui.finish();
  EXPECT_EQ(std::string(kBanner) +
                "Welcome to Demo.\n"
                "Press Enter to continue..."
                "Licence\n"
                "Use it  well,  use\n"
                "it often.\n" +
                kNextPage + "Install to [/opt/demo]:Desktop icon ([no] or yes): Done.\n" + kErase,
            terminal.printed());
  EXPECT_EQ(nativePath(QLUX_TEST_ROOT "/srv/demo"), engine.value("TARGET"));
  EXPECT_EQ("1", engine.value("ICON"));
  EXPECT_TRUE(engine.isFinished());
}

const char kRunningApps[] =
    "<Welcome><Text x=\"1\" y=\"1\">Welcome.</Text></Welcome>"
    "<RunningApps><Text x=\"1\" y=\"1\">Close these programs first:</Text><List x=\"1\" y=\"2\"/>"
    " <TestApp>demo-server</TestApp></RunningApps>"
    "<Done Special=\"Finish\"/>";

TEST(ConsoleUITest, ARunHeldByRunningProgramsEndsAndSaysWhy) {
  {
    FakeTerminal terminal("");
    WizardEngine engine(kRunningApps, "");
    engine.appRunning = true;
    TestConsole ui(terminal, "autoInstall", &engine);
    EXPECT_EQ(-1, ui.run());
    ui.finish();
    std::string printed = terminal.printed();
    EXPECT_EQ(0u, printed.find(std::string(kBanner) +
                               "Welcome.\n"
                               "Close these programs first:\n"
                               "demo-server\n"
                               "The installation can not continue, because the processes listed above are running.\n"))
        << printed;
    // The page is entered again to check once more, and its text isn't
    // repeated; the run ends as a failure.
    EXPECT_EQ(1, terminal.count("Close these programs first:"));
    const std::string error = "The automatic installer has encountered an ERROR!\n";
    EXPECT_EQ(error, printed.substr(printed.size() - error.size()));
  }
  {
    // Quiet, the page's texts still tell why; nothing else is printed.
    FakeTerminal terminal("");
    WizardEngine engine(kRunningApps, "");
    engine.appRunning = true;
    TestConsole ui(terminal, "autoInstall", &engine, 1);
    EXPECT_EQ(-1, ui.run());
    ui.finish();
    EXPECT_EQ("Close these programs first:\nThe automatic installer has encountered an ERROR!\n", terminal.printed());
  }
}

TEST(ConsoleUITest, APageShownAgainPrintsOnlyWhatItHasNotPrinted) {
  FakeTerminal terminal("");
  WizardEngine engine(
      "<RunningApps><Text x=\"1\" y=\"1\" Condition=\"[RUNNING]==1\">Programs are running.</Text>"
      " <Text x=\"1\" y=\"2\">Close them to go on.</Text></RunningApps><Other/>",
      "<Value Name=\"RUNNING\" DataType=\"value\">0</Value>");
  TestConsole ui(terminal, "autoInstall", &engine);
  ui.showSubDialog(0, -1);
  engine.setVariable("RUNNING", "1");
  ui.showSubDialog(0, -1);
  ui.showSubDialog(0, -1);
  EXPECT_EQ("Close them to go on.\nPrograms are running.\n", terminal.printed());
  // Another page in between starts again.
  ui.showSubDialog(1, -1);
  ui.showSubDialog(0, -1);
  EXPECT_EQ("Close them to go on.\nPrograms are running.\nPrograms are running.\nClose them to go on.\n",
            terminal.printed());
}

TEST(ConsoleUITest, ProgressLineDestinationsAndFileLines) {
  FakeTerminal terminal("");
  WizardEngine engine("<CopyProgress><Text x=\"1\" y=\"1\">Copying files</Text></CopyProgress>", "");
  TestConsole ui(terminal, "autoInstall", &engine);
  ui.setDestinationText("/opt/demo/bin\n");
  ui.beginProgress();
  ui.setDestinationText("/opt/demo/lib");
  ui.addFileLine("Create /opt/demo/lib/a.so", false);
  ui.addFileLine(nullptr, true);
  // A text shown during work clears the progress line first.
  ui.showSubDialog(0, -1);
  EXPECT_TRUE(ui.progressLineShown);
  ui.endProgress();
  ui.setDestinationText("/opt/demo/share");
  EXPECT_EQ("/opt/demo/bin\nCreate /opt/demo/lib/a.so\n" + kErase + "Copying files\n" + kErase + "/opt/demo/share\n",
            terminal.printed());
  // Quiet: none of it.
  FakeTerminal quietTerminal("");
  TestConsole quiet(quietTerminal, "autoInstall", &engine, 1);
  quiet.setDestinationText("/opt/demo/bin");
  quiet.addFileLine("Create a", true);
  quiet.endProgress();
  EXPECT_TRUE(quiet.showMessage("Really?", kMessageYesNo));
  EXPECT_EQ("", quietTerminal.printed());
}

TEST(ConsoleUITest, Messages) {
  FakeTerminal terminal("Can\nx\nno\n\n\n");
  TestConsole ui(terminal, "");
  EXPECT_FALSE(ui.showMessage("Remove the old version?", kMessageOkCancel));
  EXPECT_FALSE(ui.showMessage("Keep settings?", kMessageYesNo));
  EXPECT_FALSE(ui.showMessage("Configuration file missing.", kMessageNotice));
  EXPECT_TRUE(ui.showMessage("Go on?", kMessageOkCancel));
  EXPECT_EQ(
      "\nRemove the old version? ([OK] or Cancel): "
      "\nKeep settings? ([yes] or no): Please, answer with yes or no: "
      "\nConfiguration file missing.\nPress Enter to continue..."
      "\nGo on? ([OK] or Cancel): ",
      terminal.printed());
  EXPECT_FALSE(ui.confirmCancel());
}

TEST(ConsoleUITest, InputEndingBeforeAnAnswerCancelsTheRun) {
  FakeTerminal terminal("");
  WizardEngine engine(kWizard, kWizardValues);
  engine.setVariable("ICON", "");  // no default: the question can't be answered
  TestConsole ui(terminal, "", &engine);
  EXPECT_EQ(0, ui.run());
  EXPECT_TRUE(engine.isCancelled());
  EXPECT_EQ("", engine.value("ICON"));
  EXPECT_EQ(1, terminal.count("The input has ended before this question was answered. The installation is "
                              "cancelled.\n"));
  EXPECT_EQ(0, terminal.count("Done."));
}

TEST(ConsoleUITest, AnUnreadableLicenceSaysSo) {
  FakeTerminal terminal("");
  WizardEngine engine(kWizard, kWizardValues);
  engine.files["licence.rtf"] = "{\\rtf1 cut short";
  TestConsole ui(terminal, "autoInstall", &engine);
  ui.showSubDialog(1, -1);
  EXPECT_EQ("The document \"licence.rtf\" can not be shown: it is not a readable RTF text.\n", terminal.printed());
}

}  // namespace
