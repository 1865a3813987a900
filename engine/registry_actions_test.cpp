// Tests of the registry actions: logged so that they can be undone, and
// undone with the shortcuts and firewall exceptions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

const char* const kCU = "HKEY_CURRENT_USER";

// The platform's shortcuts and firewall, recorded, for a whole round trip.
class RoundTripInstaller : public TestInstaller {
 public:
  bool createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                      const char* arguments, const char* startPath, char* out, int outSize, InstallerUI* ui) override {
    writeFile(linkPath, "link");
    return reportShortcut(true, linkPath, out, outSize, ui);
  }
  bool addFirewallPort(const FirewallPort& port) override { return true; }
  bool removeFirewallPort(const char* text) override {
    removedPorts.push_back(text);
    return true;
  }
  std::vector<std::string> removedPorts;
};

class RegistryActionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = here("registry-actions");
    ASSERT_EQ(0, QUtils::createPath((root + "/").c_str(), nullptr));
    logPath = root + "/install.log";
    writeFile(logPath, root + "/install.xml\r\n" + root + "/backup.bin\r\nNUMVARS\t1\r\nVAR\tROOT\t" + root + "\r\n");
  }
  void TearDown() override {
    engine.logConsole = nullptr;
    // Only the tree this test made below its own working directory.
    if (QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }
  // A template with `body`, whose action log is logPath; gives the index of
  // its first Registry element.
  int load(RoundTripInstaller& target, const std::string& body) {
    templateText =
        "<HalvoWorksInstallation><ProductDesc><Fullname>Demo</Fullname></ProductDesc>"
        "<Installation><Uninstall><InstallLogFile>[ROOT]/install.log</InstallLogFile>"
        "<InstallBackupFile>[ROOT]/backup.bin</InstallBackupFile>"
        "<UninstallXmlFile>[ROOT]/install.xml</UninstallXmlFile></Uninstall></Installation>" +
        body + "</HalvoWorksInstallation>";
    target.loadTemplate(templateText.c_str());
    target.setVariable("ROOT", root.c_str());
    target.setVariable("VER", "2.5");
    target.logConsole = &debugLog;
    return target.document.findNext("Registry", -1);
  }
  // The action lines of the log, behind its header.
  std::vector<std::string> actionLines() {
    std::vector<std::string> lines;
    std::string text = readFile(logPath);
    size_t start = 0;
    for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
      std::string line = text.substr(start, end - start);
      if (line.rfind("REG", 0) == 0 || line.rfind("SHORTCUT", 0) == 0 || line.rfind("FIREWALL", 0) == 0 ||
          line.rfind("DIR", 0) == 0)
        lines.push_back(line);
    }
    return lines;
  }
  std::string stored(const char* path, const char* name) {
    int type = 0;
    std::string text;
    if (!engine.registry.value(kCU, path, name, &type, &text)) return "<none>";
    return text;
  }

  std::string root;
  std::string logPath;
  std::string templateText;
  RoundTripInstaller engine;
  LinesConsole debugLog;
  RecordingUI ui;
};

TEST_F(RegistryActionsTest, ChangesAreLoggedAsTheyCanBeUndone) {
  int created = 0;
  engine.registry.createKey(kCU, "Old", &created);
  engine.registry.createKey(kCU, "Old\\Gone", &created);
  int element = load(engine,
                     "<Registry>"
                     " <AddValue Place=\"hkey_current_user\" Path=\"Software//Demo/Sub\" Value=\"Version\""
                     "  Expand=\"1\" Log=\"Version [VER]\">v[VER]</AddValue>"
                     " <AddValue Place=\"HKEY_CURRENT_USER\" Path=\"Software\\Demo\" Value=\"[Raw]\">[VER]</AddValue>"
                     " <AddValue Place=\"HKEY_CURRENT_USER\" Path=\"Keep\" Value=\"Stays\" ActionLog=\"0\">x</AddValue>"
                     " <AddValue Place=\"HKEY_CURRENT_USER\" Path=\"Keep\">no name</AddValue>"
                     " <addkey Place=\"HKEY_CURRENT_USER\" Path=\"Made/Two\" Log=\"Key [VER]\"/>"
                     " <AddKey Place=\"HKEY_CURRENT_USER\" Path=\"Made/Off\" Condition=\"0\"/>"
                     " <AddKey Place=\"HKEY_NOWHERE\" Path=\"X\"/>"
                     " <RemoveKey Place=\"HKEY_CURRENT_USER\" Path=\"Old\\Gone\" KeyCount=\"3\"/>"
                     " <RemoveKey Place=\"HKEY_CURRENT_USER\" Path=\"Old\\Gone\"/>"
                     " <Frob Place=\"HKEY_CURRENT_USER\" Path=\"X\"/>"
                     "</Registry>");
  ASSERT_GE(element, 0);
  engine.runRegistryAction(&ui, element);

  EXPECT_EQ("v2.5", stored("Software\\Demo\\Sub", "Version"));
  EXPECT_EQ("[VER]", stored("Software\\Demo", "[Raw]"));
  EXPECT_EQ("x", stored("Keep", "Stays"));
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Made\\Two"));
  EXPECT_FALSE(engine.registry.hasKey(kCU, "Made\\Off"));
  // A count above the path's depth removes nothing; 1 removes the last level.
  EXPECT_FALSE(engine.registry.hasKey(kCU, "Old\\Gone"));
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Old"));

  std::vector<std::string> expected = {
      "REGKEY\t3\tHKEY_CURRENT_USER\tSoftware\\Demo\\Sub", "REGVAL\tHKEY_CURRENT_USER\tSoftware\\Demo\\Sub\tVersion",
      "REGVAL\tHKEY_CURRENT_USER\tSoftware\\Demo\t[Raw]", "REGKEY\t2\tHKEY_CURRENT_USER\tMade\\Two"};
  EXPECT_EQ(expected, actionLines());
  // The log was opened for the element and closed again.
  EXPECT_FALSE(engine.actionLogWriter.isOpen());
  std::vector<std::string> shown = {"Version 2.5", "Key [VER]"};
  EXPECT_EQ(shown, ui.lines);
  EXPECT_TRUE(debugLog.has("ERROR: No registry value name supplied!"));
  EXPECT_TRUE(debugLog.has("ERROR: Usupported registry action \"Frob\""));
}

TEST_F(RegistryActionsTest, UninstallingUndoesShortcutsFirewallAndRegistry) {
  std::string body =
      "<Shortcuts><Add Type=\"File\" Dest=\"[ROOT]/menu/sub\" Target=\"[ROOT]/app\">App.lnk</Add></Shortcuts>"
      "<Firewall><Port Port=\"8080\" Protocol=\"TCP\">TCP 8080</Port></Firewall>"
      "<AdditionalInstall><Registry>"
      " <AddValue Place=\"HKEY_CURRENT_USER\" Path=\"Software/Demo\" Value=\"Path\">[ROOT]</AddValue>"
      " <AddValue Place=\"HKEY_CURRENT_USER\" Path=\"Software\" Value=\"Shared\">x</AddValue>"
      "</Registry></AdditionalInstall>";
  int element = load(engine, body);
  writeFile(root + "/install.xml", templateText);
  ASSERT_EQ(0, engine.actionLogWriter.open(logPath.c_str(), 1));
  EXPECT_EQ(0, engine.applyShortcutActions(&engine.actionLogWriter, &ui));
  EXPECT_EQ(0, engine.applyFirewallActions(&engine.actionLogWriter, &ui));
  engine.actionLogWriter.close();
  engine.runRegistryAction(&ui, element);
  std::string link = root + "/menu/sub/App.lnk";
  ASSERT_TRUE(QUtils::fileExists(link.c_str()));
  ASSERT_EQ("x", stored("Software", "Shared"));

  // The uninstaller reads a copy, as it would from the temporary directory.
  std::string copy = here("registry-actions-uninst.log");
  writeFile(copy, readFile(logPath));
  RoundTripInstaller remover;
  remover.registry = engine.registry;
  ASSERT_EQ(0, remover.openPackage(copy.c_str(), 0, 1));
  remover.initFromActionLog(&ui, &debugLog);
  remover.logConsole = &debugLog;
  remover.uninstall(&ui, nullptr);
  remover.logConsole = nullptr;
  remover.cleanup();
  QUtils::deleteFile(copy.c_str());

  EXPECT_FALSE(QUtils::fileExists(link.c_str()));
  EXPECT_FALSE(QUtils::fileExists((root + "/menu").c_str()));
  EXPECT_EQ(std::vector<std::string>{"TCP 8080"}, remover.removedPorts);
  // Both levels made for the first value go, once the second value, in
  // the upper one, is deleted.
  EXPECT_FALSE(remover.registry.hasKey(kCU, "Software"));
  int type = 0;
  std::string text;
  EXPECT_FALSE(remover.registry.value(kCU, "Software", "Shared", &type, &text));
}

}  // namespace
