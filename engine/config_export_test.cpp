// Tests of the configuration export: which values are written, in which
// form, and which runs export where.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "engine/test_support.h"
#include "foundation/files.h"
#include "foundation/text.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

const char kTemplate[] =
    "<HalvoWorksInstallation><ProductDesc><Fullname>Demo</Fullname></ProductDesc>"
    "<Installation>"
    " <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError>"
    "  <DlgCondition>DLG_CONDITION</DlgCondition></InstallerControlVariables>"
    " <InstallerExcludeVariables><Variable ExcludeFrom=\"config\">SECRET</Variable>"
    "  <Variable ExcludeFrom=\"log\">LOG_ONLY</Variable></InstallerExcludeVariables>"
    " <DefValues>"
    "  <Value Name=\"ROOT\" DataType=\"value\">/opt/demo</Value>"
    "  <Value Name=\"NOTE\" DataType=\"value\">plain</Value>"
    "  <Value Name=\"SECRET\" DataType=\"value\">s3cret</Value>"
    "  <Value Name=\"LOG_ONLY\" DataType=\"value\">kept</Value>"
    "  <Value Name=\"INSTALL_ERROR\" DataType=\"value\">0</Value>"
    " </DefValues>"
    "</Installation></HalvoWorksInstallation>";

// An engine that has read the template's values, as a run has by the time
// its wizard starts.
class Engine : public TestInstaller {
 public:
  Engine() {
    loadTemplate(kTemplate);
    readControlVariables();
    readExcludes();
  }
};

// A directory of the test's own below the working directory; at the end
// the files named through it, and it, are removed.
class ConfigExportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[QUtils::kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "\\export-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&pattern[0], pattern.size() + 1));
    ASSERT_EQ(0, _mkdir(pattern.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "/export-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
#endif
    directory = pattern + QUtils::kPathSeparator;
    configPath = directory + "config.xml";
  }
  void TearDown() override {
    if (directory.empty()) return;
    std::remove(configPath.c_str());
#ifdef _WIN32
    _rmdir(directory.c_str());
#else
    rmdir(directory.c_str());
#endif
  }
  // The file's text with the platform's line ends made plain.
  static std::string read(const std::string& path) {
    FILE* file = QUtils::openFile(path.c_str(), "rb");
    if (!file) return "<missing>";
    std::string text;
    int c;
    while ((c = std::fgetc(file)) != EOF)
      if (c != '\r') text += static_cast<char>(c);
    std::fclose(file);
    return text;
  }

  std::string directory;
  std::string configPath;
};

TEST_F(ConfigExportTest, WritesTheValuesAConfigurationMayHold) {
  Engine engine;
  ASSERT_EQ(0, engine.readDefaults(nullptr));
  engine.setVariable("NOTE", "a & b <c> \"d\"");
  ASSERT_EQ(0, engine.writeConfigFile(configPath.c_str()));
  // Control variables and what the template keeps out of configurations
  // are left out; the order is the store's.
  EXPECT_EQ(
      "<DefValues>\n"
      " <Value Name=\"ROOT\" DataType=\"value\">/opt/demo</Value>\n"
      " <Value Name=\"NOTE\" DataType=\"value\">a &amp; b &lt;c&gt; &quot;d&quot;</Value>\n"
      " <Value Name=\"LOG_ONLY\" DataType=\"value\">kept</Value>\n"
      "</DefValues>\n",
      read(configPath));
}

const char kReplayTemplate[] =
    "<HalvoWorksInstallation><Installation><DefValues>"
    " <Value Name=\"PF\" DataType=\"registry\" UseOld=\"1\" RegPlace=\"HKEY_LOCAL_MACHINE\" "
    "RegKey=\"Software\\Where\">Dir</Value>"
    " <Value Name=\"HOME\" DataType=\"value\">$PF/Product</Value>"
    " <Value Name=\"DATA\" DataType=\"value\">$PF/Data</Value>"
    " <Value Name=\"KIND\" DataType=\"value\" Condition=\"0\">never</Value>"
    " <Value Name=\"KIND\" DataType=\"value\">$HOME</Value>"
    "</DefValues></Installation></HalvoWorksInstallation>";

TEST_F(ConfigExportTest, ValuesStillAsTheTemplateGivesThemKeepTheTemplatesForm) {
  TestInstaller engine;
  engine.loadTemplate(kReplayTemplate);
  engine.createRegistryKeys("HKEY_LOCAL_MACHINE", "Software\\Where");
  engine.setRegistryValue("HKEY_LOCAL_MACHINE", "Software\\Where", "REG_SZ", "Dir", "/machine/programs", nullptr);
  ASSERT_EQ(0, engine.readDefaults(nullptr));
  engine.setVariable("DATA", "/chosen/data");
  ASSERT_EQ(0, engine.writeConfigFile(configPath.c_str()));
  // The machine's program folder and the product folder that follows it
  // are exported as the template finds them; a value that somebody chose
  // is exported as it is.
  EXPECT_EQ(
      "<DefValues>\n"
      " <Value Name=\"PF\" DataType=\"registry\" RegPlace=\"HKEY_LOCAL_MACHINE\" RegKey=\"Software\\Where\">Dir</Value>\n"
      " <Value Name=\"HOME\" DataType=\"value\">$PF/Product</Value>\n"
      " <Value Name=\"DATA\" DataType=\"value\">/chosen/data</Value>\n"
      " <Value Name=\"KIND\" DataType=\"value\">$HOME</Value>\n"
      "</DefValues>\n",
      read(configPath));

  // Replayed on another machine, the file gives that machine's values.
  TestInstaller other;
  other.loadTemplate(kReplayTemplate);
  other.createRegistryKeys("HKEY_LOCAL_MACHINE", "Software\\Where");
  other.setRegistryValue("HKEY_LOCAL_MACHINE", "Software\\Where", "REG_SZ", "Dir", "/other/programs", nullptr);
  QUtils::copyText(other.configFile, configPath.c_str(), sizeof other.configFile);
  ASSERT_EQ(0, other.readDefaults(nullptr));
  EXPECT_EQ("/other/programs/Product", other.value("HOME"));
  EXPECT_EQ("/chosen/data", other.value("DATA"));
}

TEST_F(ConfigExportTest, AnUnattendedRunWritesOnlyWhereAsked) {
  Engine engine;
  ASSERT_EQ(0, engine.readDefaults(nullptr));
  engine.setInstallerDir(directory.c_str());
  engine.unattended = true;
  RecordingUI ui;
  EXPECT_EQ(0, engine.runPostInstall(&ui));
  EXPECT_FALSE(QUtils::fileExists(configPath.c_str()));

  // -exportConfig: written where asked, by any run, a graphical one too.
  Engine graphical;
  ASSERT_EQ(0, graphical.readDefaults(nullptr));
  graphical.guiInstall = 1;
  std::string asked = directory + "asked.xml";
  QUtils::copyText(graphical.exportConfigPath, asked.c_str(), sizeof graphical.exportConfigPath);
  EXPECT_EQ(0, graphical.runPostInstall(&ui));
  EXPECT_NE(std::string::npos, read(asked).find("Name=\"ROOT\""));
  std::remove(asked.c_str());

  // A place that can't be written to is an error of the run when asked for.
  Engine failing;
  std::string nowhere = directory + "missing" + QUtils::kPathSeparator + "x.xml";
  QUtils::copyText(failing.exportConfigPath, nowhere.c_str(), sizeof failing.exportConfigPath);
  EXPECT_EQ(0, failing.runPostInstall(&ui));
  EXPECT_TRUE(failing.outcome.workErrors);
  EXPECT_EQ(1, failing.errorList->getCount());
}

TEST_F(ConfigExportTest, AConsoleRunExportsOnceAndSaysHowToReplay) {
  Engine engine;
  ASSERT_EQ(0, engine.readDefaults(nullptr));
  engine.setInstallerDir(directory.c_str());
  RecordingUI ui;
  EXPECT_EQ(0, engine.runPostInstall(&ui));
  ASSERT_EQ(3u, ui.lines.size());
  EXPECT_EQ("Successfully created configuration file:\n\t\"" + configPath + "\"", ui.lines[0]);
  EXPECT_EQ(
      "You can use the file to automatically install the same product on different machine with the same "
      "settings, by running the installer with the following arguments:",
      ui.lines[1]);
  EXPECT_EQ(" -configFile=\"" + configPath + "\" {-ignoreErrors=1}", ui.lines[2]);
  EXPECT_EQ("addFileLine " + ui.lines[2] + " flush", ui.calls.back());
  EXPECT_NE(std::string::npos, read(configPath).find("Name=\"ROOT\""));

  // The step runs once in a run.
  std::remove(configPath.c_str());
  EXPECT_EQ(0, engine.runPostInstall(&ui));
  EXPECT_EQ(3u, ui.lines.size());
  EXPECT_FALSE(QUtils::fileExists(configPath.c_str()));
}

TEST_F(ConfigExportTest, GraphicalAndReplayedRunsDontExportAndAFailureIsReported) {
  RecordingUI ui;
  Engine graphical;
  graphical.guiInstall = 1;
  graphical.setInstallerDir(directory.c_str());
  EXPECT_EQ(0, graphical.runPostInstall(&ui));
  Engine replayed;
  QUtils::copyText(replayed.configFile, configPath.c_str(), sizeof replayed.configFile);
  replayed.setInstallerDir(directory.c_str());
  EXPECT_EQ(0, replayed.runPostInstall(&ui));
  EXPECT_FALSE(QUtils::fileExists(configPath.c_str()));
  EXPECT_TRUE(ui.lines.empty());

  // A place that can't be written to: the step still succeeds.
  Engine engine;
  engine.setInstallerDir((directory + "missing" + QUtils::kPathSeparator).c_str());
  EXPECT_EQ(0, engine.runPostInstall(&ui));
  EXPECT_EQ(std::vector<std::string>({"The installer could not create configuration file!"}), ui.lines);
  EXPECT_EQ("addFileLine The installer could not create configuration file! flush", ui.calls.back());
}

}  // namespace
