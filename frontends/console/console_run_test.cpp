// Whole runs of the engine with the console front end: a person answers
// the wizard, the run writes config.xml, and a second run replays it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/test_support.h"
#include "frontends/console/console_test_support.h"
#include "frontends/console/console_ui.h"
#include "package/test_writer.h"

namespace {

const char kTemplate[] = R"xml(<HalvoWorksInstallation>
 <ProductDesc><Fullname>Demo</Fullname></ProductDesc>
 <Dialogs>
  <Welcome><Text x="1" y="1">Welcome to Demo.</Text></Welcome>
  <Licence><RichEditText x="0" y="0">licence</RichEditText></Licence>
  <Options>
   <Field Type="Directory" Label="Install to" x="1" y="1">INSTALLDIR</Field>
   <Field Type="CheckBox" Label="Desktop icon" x="1" y="2">DESKTOPICON</Field>
   <Field Type="RadioButtons" Label="Installation type" x="1" y="3" Content="Full;Minimal;Custom"
          Description="(everything);(the program only)" Enable="1|1|[ADVANCED]==1">MODE</Field>
  </Options>
  <PostInstall Special="AutoNext;Finish"><Text x="1" y="1">Demo is installed.</Text></PostInstall>
 </Dialogs>
 <Installation>
  <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError>
   <DlgCondition>DLG_CONDITION</DlgCondition></InstallerControlVariables>
  <InstallerExcludeVariables><Variable ExcludeFrom="config">SECRET</Variable></InstallerExcludeVariables>
  <DefValues>
   <Value Name="INSTALLDIR" DataType="value">/opt/demo</Value>
   <Value Name="DESKTOPICON" DataType="value">1</Value>
   <Value Name="MODE" DataType="value">0</Value>
   <Value Name="ADVANCED" DataType="value">0</Value>
   <Value Name="SECRET" DataType="value">from the template</Value>
  </DefValues>
 </Installation>
</HalvoWorksInstallation>)xml";

const char kLicence[] = "{\\rtf1{\\fonttbl{\\f0 Sans;}}{\\b Licence}\\par Use it well.\\par}";

testwriter::File packed(const std::string& key, const std::string& data) {
  return testwriter::File{key, key, data, 0, std::string(16, '\0')};
}

// The console on a terminal of 80 by 24, whatever runs the test.
class FixedSizeConsole : public ConsoleUI {
 public:
  FixedSizeConsole(int quiet) : ConsoleUI(0, 0, quiet) {}

 protected:
  void getTerminalSize(int* columns, int* rows) override {
    *columns = 80;
    *rows = 24;
  }
};

// One run of the template's installation with a console front end.
struct ConsoleRun {
  ConsoleRun(ScratchDirectory& scratch, const std::string& answers, const char* inputName, int quiet,
             const std::string& configFile = "")
      : terminal(answers), ui(quiet) {
    std::vector<testwriter::File> files = {packed("install.xml", kTemplate), packed("licence", kLicence)};
    std::string package =
        scratch.write("package.bin", testwriter::packageHeader(files) + testwriter::records(files, true));
    EXPECT_EQ(0, engine.openPackage(package.c_str(), 0, 2));
    engine.setInstallerDir((scratch.directory + QUtils::kPathSeparator).c_str());
    QUtils::copyText(engine.configFile, configFile.c_str(), sizeof engine.configFile);
    ui.setStreams(terminal.in, terminal.out);
    bool automatic = false;
    initResult = ui.initInput(inputName, &automatic);
    ui.exchange = &engine;
    result = engine.runInstallation(&ui, &log);
    engine.cleanup();
  }
  FakeTerminal terminal;
  TestInstaller engine;
  FixedSizeConsole ui;
  LinesConsole log;
  int initResult;
  int result;
};

TEST(ConsoleRunTest, APersonInstallsAndTheRunIsReplayedFromItsConfiguration) {
  ScratchDirectory scratch;
  ASSERT_TRUE(scratch.ok());
  std::string config = scratch.path("config.xml");
  {
    ConsoleRun run(scratch, "\n\n" QLUX_TEST_ROOT "/srv/demo\nno\n3\n2\n", "", 0);
    EXPECT_EQ(0, run.result);
    EXPECT_TRUE(run.engine.isFinished());
    EXPECT_EQ(nativePath(QLUX_TEST_ROOT "/srv/demo"), run.engine.value("INSTALLDIR"));
    EXPECT_EQ("0", run.engine.value("DESKTOPICON"));
    EXPECT_EQ("1", run.engine.value("MODE"));
    std::string printed = run.terminal.printed();
    EXPECT_NE(std::string::npos,
              printed.find("Welcome to Demo.\n"
                           "Press Enter to continue...Licence\nUse it well.\n\n"
                           "\nPress ENTER for the next page (q: to the end)...\n\n\n"
                           "Install to [/opt/demo]:Desktop icon (no or [yes]): Installation type\n"
                           "  1) Full (everything)\n"
                           "  2) Minimal (the program only)\n"
                           "  3) Custom\n"
                           "Enter your choice [1-3, default is 1]: Choice 3 is disabled, choose something else!\n"
                           "Enter your choice [1-3, default is 1]: Demo is installed.\n"
                           "Successfully created configuration file:\n\t\"" +
                           config + "\"\n"))
        << printed;
    EXPECT_NE(std::string::npos, printed.find(" -configFile=\"" + config + "\" {-ignoreErrors=1}\n"));
    EXPECT_EQ(std::string::npos, ScratchDirectory::read(config).find("SECRET"));
  }
  {
    // The replay asks nothing, prints nothing but its result, and doesn't
    // export again.
    ConsoleRun run(scratch, "", config.c_str(), 1, config);
    EXPECT_EQ(0, run.initResult);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(nativePath(QLUX_TEST_ROOT "/srv/demo"), run.engine.value("INSTALLDIR"));
    EXPECT_EQ("0", run.engine.value("DESKTOPICON"));
    EXPECT_EQ("1", run.engine.value("MODE"));
    EXPECT_EQ("from the template", run.engine.value("SECRET"));
    EXPECT_EQ("Automatic installation was successful!\n", run.terminal.printed());
  }
}

TEST(ConsoleRunTest, AMissingConfigurationEndsTheRunBeforeTheWizard) {
  ScratchDirectory scratch;
  ASSERT_TRUE(scratch.ok());
  std::string config = scratch.path("config.xml");
  ConsoleRun run(scratch, "", config.c_str(), 1, config);
  EXPECT_EQ(1, run.initResult);
  EXPECT_EQ(-1, run.result);
  EXPECT_TRUE(run.log.has("ERROR: Parsing XML Default values (This may indicate wrong configuration file format)"));
  EXPECT_EQ("The file \"" + config + "\" does not exist! Please specify existing file!\n", run.terminal.printed());
}

}  // namespace
