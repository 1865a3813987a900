// Tests of the run's sequence up to the wizard: a whole template, the
// theme, missing sections and packages, and an uninstallation's start.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine/exit_codes.h"
#include "engine/test_support.h"
#include "package/test_writer.h"

namespace {

const char kMinimal[] =
    "<HalvoWorksInstallation>"
    " <ProductDesc><Fullname>Demo</Fullname></ProductDesc>"
    " <Dialogs><Welcome><Button Name=\"Next\" x=\"1\" y=\"1\">Next</Button></Welcome></Dialogs>"
    " <UninstallDialogs><Bye><Text x=\"1\" y=\"1\">Bye</Text></Bye></UninstallDialogs>"
    " <ColourTheme><DialogBackground>0x112233</DialogBackground></ColourTheme>"
    " <Installation>"
    "  <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError></InstallerControlVariables>"
    "  <DefValues><Value Name=\"ROOT\">x</Value></DefValues>"
    " </Installation>"
    "</HalvoWorksInstallation>";

// A bare package (header and plain records) holding `files`, written to
// `path`.
void writeBarePackage(const std::string& path, const std::vector<testwriter::File>& files) {
  std::string bytes = testwriter::packageHeader(files) + testwriter::records(files, true);
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(nullptr, f);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

testwriter::File file(const std::string& key, const std::string& data) {
  return testwriter::File{key, key, data, 0, std::string(16, '\0')};
}

// Runs a template through the whole sequence with a recording front end.
struct TemplateRun {
  explicit TemplateRun(const std::string& templateText, bool graphical = false, int runResult = 0) {
    ui.graphical = graphical;
    ui.runResult = runResult;
    writeBarePackage("package.bin", {file("install.xml", templateText)});
    EXPECT_EQ(0, engine.openPackage("package.bin", 0, 2));
    result = engine.runInstallation(&ui, &log);
    engine.cleanup();
    std::remove("package.bin");
  }
  TestInstaller engine;
  RecordingUI ui;
  LinesConsole log;
  int result;
};

TEST(RunSequenceTest, AWholeTemplateReachesTheWizard) {
  TemplateRun run(kMinimal);
  EXPECT_EQ(0, run.result);
  EXPECT_TRUE(run.ui.finished);
  EXPECT_TRUE(run.log.has("Starting installation UI"));
  EXPECT_TRUE(run.log.has("Ending installation UI"));
  EXPECT_FALSE(run.log.has("ERROR: There were errors during the installation"));
  EXPECT_EQ(0, run.engine.getCurrentDialog());
  EXPECT_STREQ("Welcome", run.engine.getDialog(0, -1)->name);
  EXPECT_EQ("0", run.engine.value("GUI_INSTALL"));
  // A console run reads no theme at all.
  EXPECT_FALSE(run.engine.hasColourTheme());
  EXPECT_FALSE(run.log.has("Getting GUI colour theme info"));
}

TEST(RunSequenceTest, AGraphicalRunReadsTheTheme) {
  TemplateRun run(kMinimal, true, 7);
  EXPECT_EQ(7, run.result);
  EXPECT_TRUE(run.engine.hasColourTheme());
  EXPECT_EQ(0x332211u, run.engine.getThemeColour(0));
  EXPECT_EQ("1", run.engine.value("GUI_INSTALL"));
  // The front end's failure is logged after it ended, and finish ran anyway.
  ASSERT_GE(run.log.lines.size(), 2u);
  EXPECT_EQ("ERROR: There were errors during the installation", run.log.lines.back());
  EXPECT_EQ("Ending installation UI", run.log.lines[run.log.lines.size() - 2]);
  EXPECT_TRUE(run.ui.finished);
}

TEST(RunSequenceTest, MissingSectionsStopBeforeTheWizard) {
  struct Case {
    const char* what;
    std::string text;
    const char* lastLine;
  };
  std::string noProduct = kMinimal;
  noProduct.replace(noProduct.find("ProductDesc"), 11, "ProductInfo");
  std::string noDialogs = kMinimal;
  noDialogs.replace(noDialogs.find("<Dialogs>"), 9, "<Pages>");
  std::string noDefaults = kMinimal;
  noDefaults.replace(noDefaults.find("DefValues"), 9, "Defaults0");
  const Case cases[] = {
      {"no ProductDesc", noProduct, "Getting product description"},
      {"not XML", "just some text, no markup at all", "Getting product description"},
      {"no Dialogs", noDialogs, "Getting UI dialogs"},
      {"no DefValues", noDefaults,
       "ERROR: Parsing XML Default values (This may indicate wrong configuration file format)"},
  };
  for (const Case& c : cases) {
    TemplateRun run(c.text);
    EXPECT_EQ(-1, run.result) << c.what;
    EXPECT_FALSE(run.ui.finished) << c.what;
    EXPECT_TRUE(run.log.has(c.lastLine)) << c.what;
    // A template that can't serve is the installer's damage.
    char reason[256];
    EXPECT_EQ(kExitDamaged, run.engine.getExitCode(run.result, reason, sizeof reason)) << c.what;
    EXPECT_EQ(std::string(reason), run.log.lines.back()) << c.what;
  }
}

TEST(RunSequenceTest, APackageWithoutTemplateStops) {
  writeBarePackage("other.bin", {file("readme.txt", "hello")});
  TestInstaller engine;
  RecordingUI ui;
  LinesConsole log;
  ASSERT_EQ(0, engine.openPackage("other.bin", 0, 2));
  EXPECT_EQ(-1, engine.runInstallation(&ui, &log));
  EXPECT_TRUE(log.has("ERROR: Decompressing installation file"));
  char reason[256];
  EXPECT_EQ(kExitDamaged, engine.getExitCode(-1, reason, sizeof reason));
  EXPECT_STREQ("the installer is damaged: its package holds no readable install.xml", reason);
  EXPECT_EQ(-1, engine.runInstallation(nullptr, &log));
  EXPECT_EQ("No installer UI handler specified", log.lines.back());
  engine.cleanup();
  std::remove("other.bin");
}

TEST(RunSequenceTest, AnUninstallationReadsTheTemplateNamedByItsLog) {
  FILE* saved = std::fopen("saved.xml", "wb");
  ASSERT_NE(nullptr, saved);
  std::fputs(kMinimal, saved);
  std::fclose(saved);
  FILE* actionLog = std::fopen("install.log", "wb");
  ASSERT_NE(nullptr, actionLog);
  std::fputs("saved.xml  \r\n", actionLog);
  std::fclose(actionLog);

  TestInstaller engine;
  RecordingUI ui;
  LinesConsole log;
  ASSERT_EQ(0, engine.openPackage("install.log", 0, 1));
  EXPECT_TRUE(engine.isActionLogRun());
  EXPECT_EQ(0, engine.runInstallation(&ui, &log));
  EXPECT_TRUE(log.has("Reading installation file"));
  EXPECT_FALSE(log.has("Decompressing installation file"));
  ASSERT_EQ(1, engine.getDialogCount());
  EXPECT_STREQ("Bye", engine.getDialog(0, -1)->name);
  engine.cleanup();

  FILE* broken = std::fopen("broken.log", "wb");
  ASSERT_NE(nullptr, broken);
  std::fputs("missing-template.xml\r\n", broken);
  std::fclose(broken);
  TestInstaller second;
  ASSERT_EQ(0, second.openPackage("broken.log", 0, 1));
  EXPECT_EQ(-1, second.runInstallation(&ui, &log));
  EXPECT_TRUE(log.has("ERROR: Cannot continue due to error(s). Exiting!"));
  // An uninstaller whose template copy is gone failed; it isn't damaged.
  char reason[256];
  EXPECT_EQ(kExitFailed, second.getExitCode(-1, reason, sizeof reason));
  second.cleanup();
  std::remove("saved.xml");
  std::remove("install.log");
  std::remove("broken.log");
}

}  // namespace
