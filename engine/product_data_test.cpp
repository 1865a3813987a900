// Tests of the product data: the window title and version, the
// uninstaller's title, the uninstall paths and the control variables.
#include <cstdio>
#include <string>

#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {


std::string call(Installer& engine, int (Installer::*getter)(char*, int), int* result) {
  char buffer[1560] = "garbage";
  *result = (engine.*getter)(buffer, sizeof buffer);
  return buffer;
}

std::string withProduct(const std::string& product, bool descSegment) {
  std::string desc = "<ProductDesc>" + product + "</ProductDesc>";
  if (descSegment) desc = "<Desc>" + desc + "</Desc>";
  return "<HalvoWorksInstallation>" + desc + "</HalvoWorksInstallation>";
}

TEST(ProductData, WindowTitleAndVersionWithAndWithoutDescSegment) {
  const std::string kFull =
      "<Fullname>Quill</Fullname><Title></Title><MajorVersion>4</MajorVersion>"
      "<MinorVersion>2</MinorVersion><MinestVersion>17</MinestVersion><Website>https://quill.example</Website>";
  for (bool descSegment : {true, false}) {
    TestInstaller engine;
    engine.loadTemplate(withProduct(kFull, descSegment).c_str());
    int result;
    EXPECT_EQ(0, engine.readProductDesc());
    EXPECT_EQ("https://quill.example", call(engine, &Installer::getWebsite, &result));
    // An empty Title counts as absent.
    EXPECT_EQ("Quill - ver. 4.2.17", call(engine, &Installer::getWindowTitle, &result));
    EXPECT_EQ(0, result);
  }

  // A missing part ends the version with -1, keeping what came before; the
  // title is then the name alone.
  TestInstaller partial;
  partial.loadTemplate(withProduct("<Fullname>Quill</Fullname><MajorVersion>4</MajorVersion>", false).c_str());
  int result;
  EXPECT_EQ("4.", call(partial, &Installer::getVersion, &result));
  EXPECT_EQ(-1, result);
  EXPECT_EQ("Quill", call(partial, &Installer::getWindowTitle, &result));
  EXPECT_EQ(0, result);

  TestInstaller nameless;
  nameless.loadTemplate(withProduct("<Title/>", false).c_str());
  EXPECT_EQ("Unknown title", call(nameless, &Installer::getWindowTitle, &result));
  EXPECT_EQ(-1, result);
  EXPECT_EQ(-1, TestInstaller().readProductDesc());
}

TEST(ProductData, TheUninstallerHasATitleOfItsOwnWhereTheTemplateGivesOne) {
  TestInstaller engine;
  engine.loadTemplate(
      withProduct("<Fullname>Quill</Fullname><Title>Quill Setup</Title><UninstallTitle>Remove Quill</UninstallTitle>",
                  false)
          .c_str());
  int result;
  EXPECT_EQ("Quill Setup", call(engine, &Installer::getWindowTitle, &result));
#ifdef _WIN32
  engine.package.actionLogFile = std::fopen("NUL", "rb");
#else
  engine.package.actionLogFile = std::fopen("/dev/null", "rb");
#endif
  ASSERT_NE(nullptr, engine.package.actionLogFile);
  EXPECT_EQ("Remove Quill", call(engine, &Installer::getWindowTitle, &result));
}

TEST(ProductData, UninstallPathsExpandVariablesAtEachCall) {
  TestInstaller engine;
  engine.loadTemplate(
      "<HalvoWorksInstallation><Installation><Uninstall>"
      "<InstallLogFile>[ROOT]/install.log</InstallLogFile><UninstallCmd>[ROOT]/bin/un.exe</UninstallCmd>"
      "</Uninstall><UninstallWildcards/></Installation></HalvoWorksInstallation>");
  int result;
  engine.setVariable("ROOT", "/opt/quill");
  EXPECT_EQ("/opt/quill/bin/un.exe", call(engine, &Installer::getUninstallCmd, &result));
  engine.setVariable("ROOT", "/srv/q");
  EXPECT_EQ("/srv/q/install.log", call(engine, &Installer::getInstallLogFile, &result));
  EXPECT_EQ("", call(engine, &Installer::getInstallBackupFile, &result));
  EXPECT_EQ(-1, result);
}

TEST(ProductData, ControlVariablesWarnAboutMissingAndEmptyTags) {
  TestInstaller engine;
  LinesConsole log;
  engine.logConsole = &log;
  engine.loadTemplate(
      "<HalvoWorksInstallation><Installation><InstallerControlVariables>"
      "<PreviousInstallation>PREV</PreviousInstallation><ShouldUninstall>SHOULD</ShouldUninstall>"
      "<CustomizeSettings>CUSTOM</CustomizeSettings><ProgressDetails>DETAILS</ProgressDetails>"
      "<InstallError></InstallError><UninstallError>UNERR</UninstallError>"
      "</InstallerControlVariables></Installation></HalvoWorksInstallation>");
  EXPECT_EQ(0, engine.readControlVariables());
  EXPECT_EQ(
      "WARNING: Missing tag data for variable specifier in the installation template. (tag InstallError)\r\n"
      "WARNING: Missing control variable specifier in the installation template. (tag DlgCondition)\r\n",
      log.all);

  engine.setControlVariable(kCtlShouldUninstall, "1");
  EXPECT_EQ("1", engine.value("SHOULD"));
  // A control variable without a name is never written.
  engine.setControlVariable(kCtlInstallError, "1");
  engine.setControlVariable(kCtlDlgCondition, "1");
  EXPECT_EQ(1, engine.variables.getCount());
  EXPECT_NE(0, TestInstaller().readControlVariables());
}

}  // namespace
