// Tests of the shortcut and firewall actions: made, logged, failed and
// undone.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"
#include "foundation/text.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

// A path spelled with the system's separators, as the stages write them.
std::string sys(std::string path) {
  std::replace(path.begin(), path.end(), '/', QUtils::kPathSeparator);
  std::replace(path.begin(), path.end(), '\\', QUtils::kPathSeparator);
  return path;
}

bool contains(const std::vector<std::string>& list, const std::string& entry) {
  return std::find(list.begin(), list.end(), entry) != list.end();
}

// The platform's shortcut and firewall operations, recorded. A shortcut is
// a small file at its link path (so that undoing it has something to
// delete); `refuse` names a link, port or program that fails.
class StandInInstaller : public TestInstaller {
 public:
  bool createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                      const char* arguments, const char* startPath, char* out, int outSize, InstallerUI* ui) override {
    calls.push_back(std::string(type) + "|" + linkPath + "|" + (target ? target : "<null>") + "|" + description + "|" +
                    (arguments ? arguments : "<null>") + "|" + (startPath ? startPath : "<null>"));
    bool made = refuse.empty() || std::string(linkPath).find(refuse) == std::string::npos;
    if (made) writeFile(linkPath, "link");
    return reportShortcut(made, linkPath, out, outSize, ui);
  }
  bool addFirewallApplication(const char* path, const char* name) override {
    return record("addApp " + std::string(path) + " " + name);
  }
  bool removeFirewallApplication(const char* path) override { return record("removeApp " + std::string(path)); }
  bool addFirewallPort(const FirewallPort& port) override {
    return record("addPort " + std::to_string(port.port) + " " + std::to_string(port.protocols) + " " + port.name);
  }
  bool removeFirewallPort(const char* text) override { return record("removePort " + std::string(text)); }

  bool record(const std::string& call) {
    calls.push_back(call);
    return refuse.empty() || call.find(refuse) == std::string::npos;
  }
  std::vector<std::string> errors() {
    std::vector<std::string> list;
    for (int i = 0; errorList && i < errorList->getCount(); i++) list.push_back((*errorList)[i].getText());
    return list;
  }

  std::vector<std::string> calls;
  std::string refuse;
};

class ShortcutActionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = here("actions");
    ASSERT_EQ(0, QUtils::createPath((root + "/").c_str(), nullptr));
  }
  void TearDown() override {
    engine.logConsole = nullptr;
    // Only the tree this test made below its own working directory.
    if (QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }
  void load(const std::string& body) {
    engine.loadTemplate(("<HalvoWorksInstallation>" + body + "</HalvoWorksInstallation>").c_str());
    engine.setVariable("ROOT", root.c_str());
    engine.logConsole = &debugLog;
  }

  std::string root;
  StandInInstaller engine;
  LinesConsole actionLog;
  LinesConsole debugLog;
  RecordingUI ui;
};

TEST_F(ShortcutActionsTest, ShortcutsAreMadeInTheirDirectoriesAndLogged) {
  ASSERT_EQ(0, QUtils::createPath((root + "/existing/").c_str(), nullptr));
  load(
      "<Shortcuts>"
      " <Add Type=\"File\" Dest=\"[ROOT]/menu\\\\sub\" Target=\"[ROOT]//bin\\app\" Arguments=\"-x [ROOT]\""
      "  StartPath=\"[ROOT]//bin\">App [1].lnk</Add>"
      " <add Type=\"URL\" Dest=\"[ROOT]/menu/sub\" Target=\"http://example.org//x\" Description=\"Site\">Site.url</add>"
      " <Add Type=\"Uninstall\" Dest=\"[ROOT]/menu/sub\" Description=\"Remove\">Remove.lnk</Add>"
      " <Add Type=\"file\" Dest=\"[ROOT]/menu\" Target=\"x\">WrongCase.lnk</Add>"
      " <Add Type=\"File\" Dest=\"[ROOT]/menu\">NoTarget.lnk</Add>"
      " <Add Type=\"File\" Dest=\"[ROOT]/menu\" Target=\"x\" Condition=\"0\">Off.lnk</Add>"
      " <Link Type=\"File\" Dest=\"[ROOT]/menu\" Target=\"x\">NotAdd.lnk</Link>"
      "</Shortcuts>"
      "<Shortcuts><Add Type=\"Symlink\" Dest=\"[ROOT]/existing\" Target=\"[ROOT]/bin/app\">app</Add></Shortcuts>");

  EXPECT_EQ(0, engine.applyShortcutActions(&actionLog, &ui));

  std::string sub = sys(root + "/menu/sub/");
  std::vector<std::string> expectedCalls = {"File|" + sub + "App [1].lnk|" + sys(root + "/bin/app") +
                                                "|Halvo Works installer shortcut|-x " + root + "|" + sys(root + "/bin"),
                                            "URL|" + sub + "Site.url|http://example.org//x|Site|<null>|<null>",
                                            "Uninstall|" + sub + "Remove.lnk|<null>|Remove|<null>|<null>",
                                            "Symlink|" + sys(root + "/existing/") + "app|" + sys(root + "/bin/app") +
                                                "|Halvo Works installer shortcut|<null>|<null>"};
  EXPECT_EQ(expectedCalls, engine.calls);
  // The DIR line for the levels made, none for a directory that was there.
  std::vector<std::string> expectedLog = {
      "DIR\t2\t" + sub, "SHORTCUT\tCREATE\t" + sub + "App [1].lnk", "SHORTCUT\tCREATE\t" + sub + "Site.url",
      "SHORTCUT\tCREATE\t" + sub + "Remove.lnk", "SHORTCUT\tCREATE\t" + sys(root + "/existing/app")};
  EXPECT_EQ(expectedLog, actionLog.lines);
  EXPECT_TRUE(contains(ui.lines, "Create  shortcut " + sub + "Site.url"));
  EXPECT_TRUE(contains(ui.calls, "addFileLine <null> flush"));
  EXPECT_TRUE(engine.errors().empty());
}

TEST_F(ShortcutActionsTest, AFailedShortcutEndsItsElementOnly) {
  load(
      "<Shortcuts>"
      " <Add Type=\"File\" Dest=\"[ROOT]/a\" Target=\"t\">bad.lnk</Add>"
      " <Add Type=\"File\" Dest=\"[ROOT]/a\" Target=\"t\">skipped.lnk</Add>"
      "</Shortcuts>"
      "<Shortcuts><Add Type=\"File\" Dest=\"[ROOT]/b\" Target=\"t\">good.lnk</Add></Shortcuts>");
  engine.refuse = "bad.lnk";

  EXPECT_EQ(1, engine.applyShortcutActions(&actionLog, &ui));

  std::string failed = "FAILED to create  shortcut " + sys(root + "/a/bad.lnk");
  EXPECT_EQ(std::vector<std::string>{failed}, engine.errors());
  EXPECT_TRUE(contains(ui.lines, failed));
  EXPECT_EQ(2u, engine.calls.size());
  // The failed link's directory was made, so it is still logged.
  std::vector<std::string> expectedLog = {"DIR\t1\t" + sys(root + "/a/"), "DIR\t1\t" + sys(root + "/b/"),
                                          "SHORTCUT\tCREATE\t" + sys(root + "/b/good.lnk")};
  EXPECT_EQ(expectedLog, actionLog.lines);
}

TEST_F(ShortcutActionsTest, UndoingAShortcutRemovesTheLinkOnly) {
  std::string link = root + "/menu/App.lnk";
  ASSERT_EQ(0, QUtils::createPath(link.c_str(), nullptr));
  writeFile(link, "link");

  EXPECT_TRUE(engine.undoShortcut(("CREATE\t" + link).c_str(), &ui));
  EXPECT_FALSE(QUtils::fileExists(link.c_str()));
  EXPECT_TRUE(QUtils::isDirectory((root + "/menu").c_str()));
  EXPECT_TRUE(contains(ui.lines, "Remove  shortcut " + link));

  // Gone already: a failure, reported.
  EXPECT_FALSE(engine.undoShortcut(("CREATE\t" + link).c_str(), &ui));
  EXPECT_EQ(std::vector<std::string>{"FAILED to remove  shortcut " + link}, engine.errors());
  // Another form, or a directory, isn't touched.
  EXPECT_TRUE(engine.undoShortcut(("CREATED\t" + root + "/menu").c_str(), &ui));
  EXPECT_FALSE(engine.undoShortcut(("CREATE\t" + root + "/menu").c_str(), &ui));
  EXPECT_TRUE(QUtils::isDirectory((root + "/menu").c_str()));
}

#ifndef _WIN32
TEST_F(ShortcutActionsTest, UndoingASymbolicLinkLeavesWhatItLeadsTo) {
  std::string target = root + "/data";
  ASSERT_EQ(0, QUtils::createPath((target + "/").c_str(), nullptr));
  writeFile(target + "/keep.txt", "keep");
  std::string link = root + "/link";
  ASSERT_EQ(0, symlink(target.c_str(), link.c_str()));

  EXPECT_TRUE(engine.undoShortcut(("CREATE\t" + link).c_str(), &ui));
  EXPECT_FALSE(QUtils::fileExists(link.c_str()));
  EXPECT_EQ("keep", readFile(target + "/keep.txt"));
}
#endif

TEST_F(ShortcutActionsTest, FirewallExceptionsGoToThePlatformAndTheLog) {
  load(
      "<Firewall>"
      " <Application Target=\" [ROOT]//bin/app.exe \">My App</Application>"
      " <Application Target=\"[ROOT]/other.exe\"></Application>"
      " <Application>No target</Application>"
      " <Port Port=\"8080\">8080</Port>"
      " <Port Port=\"8081\" Protocol=\"TCP\">TCP 8081</Port>"
      " <Port Port=\"8082\" Protocol=\"UDP;TCP;tcp\">TCP;UDP 8082</Port>"
      " <Port Port=\"9000\" Condition=\"0\">9000</Port>"
      " <Port>No port</Port>"
      " <port Port=\"9001\">9001</port>"
      "</Firewall>"
      "<Firewall><Port Port=\"1\">1</Port></Firewall>");

  EXPECT_EQ(0, engine.applyFirewallActions(&actionLog, &ui));

  std::string app = sys(root + "/bin/app.exe");
  std::vector<std::string> expectedCalls = {"addApp " + app + " My App", "addPort 8080 3 8080",
                                            "addPort 8081 1 TCP 8081", "addPort 8082 3 TCP;UDP 8082"};
  EXPECT_EQ(expectedCalls, engine.calls);
  std::vector<std::string> expectedLog = {"FIREWALL\tAPP\t" + app, "FIREWALL\tPORT\t8080", "FIREWALL\tPORT\tTCP 8081",
                                          "FIREWALL\tPORT\tTCP;UDP 8082"};
  EXPECT_EQ(expectedLog, actionLog.lines);
  EXPECT_TRUE(contains(ui.lines, "Firewall: Added exception for application: " + app));
  EXPECT_TRUE(contains(ui.lines, "Firewall: Added port 8082"));
  // Only the lower-case token is unknown.
  EXPECT_EQ(1, std::count(debugLog.lines.begin(), debugLog.lines.end(),
                          "WARNING: (Firewall): Unrecognized protocol in the Protocol attribute"));
}

TEST_F(ShortcutActionsTest, AFailedExceptionIsReportedAndTheRestGoOn) {
  load(
      "<Firewall><Port Port=\"8081\" Protocol=\"TCP\">TCP 8081</Port><Port Port=\"8082\">8082</Port>"
      "<Application Target=\"app\">App</Application></Firewall>");
  engine.refuse = "8081";

  EXPECT_EQ(-1, engine.applyFirewallActions(&actionLog, &ui));

  EXPECT_EQ(3u, engine.calls.size());
  EXPECT_EQ(std::vector<std::string>{"Firewall: FAILED to add port 8081"}, engine.errors());
  std::vector<std::string> expectedLog = {"FIREWALL\tPORT\t8082", "FIREWALL\tAPP\tapp"};
  EXPECT_EQ(expectedLog, actionLog.lines);
}

TEST_F(ShortcutActionsTest, UndoingFirewallLinesCallsTheRemovals) {
  EXPECT_TRUE(engine.undoFirewall("APP\t/opt/x/app", &ui));
  EXPECT_TRUE(engine.undoFirewall("PORT\t\tTCP;UDP 8082", &ui));
  EXPECT_TRUE(engine.undoFirewall("RULE\tsomething", &ui));
  engine.refuse = "9";
  EXPECT_FALSE(engine.undoFirewall("PORT\tUDP 9", &ui));

  std::vector<std::string> expectedCalls = {"removeApp /opt/x/app", "removePort TCP;UDP 8082", "removePort UDP 9"};
  EXPECT_EQ(expectedCalls, engine.calls);
  std::vector<std::string> expectedLines = {"Removed application from firewall: /opt/x/app",
                                            "Removed port from firewall: TCP;UDP 8082",
                                            "FAILED to remove port from firewall: UDP 9"};
  EXPECT_EQ(expectedLines, ui.lines);
  EXPECT_TRUE(engine.errors().empty());
}

TEST(PortRemovalText, ReadsOneOrTwoWords) {
  uint32_t port = 0;
  uint8_t protocols = 0;
  ASSERT_TRUE(Installer::parsePortRemovalText("8080", &port, &protocols));
  EXPECT_EQ(8080u, port);
  EXPECT_EQ(3, protocols);
  ASSERT_TRUE(Installer::parsePortRemovalText(" tcp;sctp  53 ", &port, &protocols));
  EXPECT_EQ(53u, port);
  EXPECT_EQ(1, protocols);
  ASSERT_TRUE(Installer::parsePortRemovalText("ICMP 1", &port, &protocols));
  EXPECT_EQ(0, protocols);
  EXPECT_FALSE(Installer::parsePortRemovalText("My web port 80", &port, &protocols));
  EXPECT_FALSE(Installer::parsePortRemovalText("", &port, &protocols));
}

}  // namespace
