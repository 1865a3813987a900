// Tests of reading the defaults: their order, recalculation, their sources
// (registry, earlier logs, running programs, configuration, command line).
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine/exit_codes.h"
#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/errors.h"
#include "foundation/files.h"

#ifdef _WIN32
#include <direct.h>
#else
#include <unistd.h>
#endif

namespace {

// An engine on a template with the given DefValues entries, whose system is
// a few tables: registered applications with their logs, running programs,
// and the applications whose removal fails.
class Engine : public TestInstaller {
 public:
  explicit Engine(const std::string& values, const char* product = "<Fullname>Demo</Fullname>") {
    std::string text = std::string("<HalvoWorksInstallation><ProductDesc>") + product +
                       "<LegacyApplication>Old Demo</LegacyApplication><LegacyApplication></LegacyApplication>"
                       "<LegacyApplication>Older Demo</LegacyApplication></ProductDesc><Installation>"
                       "<InstallerControlVariables><PreviousInstallation>PREVIOUS</PreviousInstallation>"
                       "<ShouldUninstall>SHOULD_UNINSTALL</ShouldUninstall><UninstallError>UNINSTALL_ERROR"
                       "</UninstallError></InstallerControlVariables><DefValues>" +
                       values + "</DefValues></Installation></HalvoWorksInstallation>";
    loadTemplate(text.c_str());
    readControlVariables();
  }
  bool isAppRunning(const char* name, const char*) override { return name && running.count(name); }
  bool isApplicationRegistered(const char* name) override {
    asked.push_back(name);
    return registered.count(name) > 0;
  }
  bool getApplicationLogFile(const char* application, char* buffer, int size) override {
    if (!logs.count(application)) return false;
    QUtils::copyText(buffer, logs[application].c_str(), size);
    return true;
  }
  int uninstallApplication(InstallerUI*, const char* application) override {
    uninstalled.push_back(application);
    return failing.count(application) ? -1 : 0;
  }
  bool unregisterApplication(const char* name) override {
    unregistered.push_back(name);
    registered.erase(name);
    return true;
  }
  std::string defaultOf(const char* name) {
    char buffer[1560];
    return getVariableDefault(name, buffer, sizeof buffer) < 0 ? "<unset>" : buffer;
  }
  std::set<std::string> running, registered, failing;
  std::map<std::string, std::string> logs;
  std::vector<std::string> asked, uninstalled, unregistered;
};

// Writes a file in the fresh directory the binary runs in; gives its path.
std::string scratchFile(const char* name, const std::string& text) {
  std::string path = here(name);
  writeFile(path, text);
  return path;
}

std::string entry(const char* name, const char* attributes, const char* text) {
  return std::string("<Value Name=\"") + name + "\" " + attributes + ">" + text + "</Value>";
}

TEST(DefaultsTest, DeclarationComesFirstAndEntriesWorkInDocumentOrder) {
  Engine engine(
      entry("EARLY", "DataType=\"value\"", "$LATE/x") + entry("ORPHAN", "DataType=\"value\"", "$MADE/x") +
      entry("LATE", "DataType=\"value\"", "late") + entry("MADE", "UseOld=\"1\" DataType=\"value\"", "made") +
      entry("WIPED", "DataType=\"value\" Condition=\"0\"", "new") +
      entry("KEPT", "UseOld=\"1\" DataType=\"value\"", "template") +
      entry("KEPT_TOO", "UseOld=\"\" DataType=\"value\"", "template") +
      "<value Name=\"LOWER\" DataType=\"VALUES\">ok</value><Other Name=\"OTHER\" DataType=\"value\">x</Other>" +
      entry("CUSTOMIZE", "DataType=\"value\" Condition=\"[GUI_INSTALL]==1\"", "0") +
      entry("CUSTOMIZE", "DataType=\"value\" Condition=\"[GUI_INSTALL]==0\"", "1"));
  // Values of a previous installation's log.
  engine.setVariable("WIPED", "old");
  engine.setVariable("KEPT", "old kept");
  engine.setVariable("KEPT_TOO", "old kept too");
  EXPECT_EQ(0, engine.readDefValues(engine.document));
  // LATE was declared empty before EARLY was worked out; MADE, which keeps
  // old values, didn't exist yet, so ORPHAN was passed over.
  EXPECT_EQ("/x", engine.value("EARLY"));
  EXPECT_EQ("", engine.value("ORPHAN"));
  EXPECT_EQ("made", engine.value("MADE"));
  EXPECT_EQ("", engine.value("WIPED"));  // wiped though its entry didn't apply
  EXPECT_EQ("old kept", engine.value("KEPT"));
  EXPECT_EQ("template", engine.defaultOf("KEPT"));
  EXPECT_EQ("old kept too", engine.value("KEPT_TOO"));  // only absent or "0..." replaces
  EXPECT_EQ("ok", engine.value("LOWER"));
  EXPECT_EQ("<unset>", engine.value("OTHER"));
  EXPECT_EQ("1", engine.value("CUSTOMIZE"));
  TestInstaller none;
  none.loadTemplate("<HalvoWorksInstallation><DefValue></DefValue></HalvoWorksInstallation>");
  EXPECT_EQ(-1, none.readDefValues(none.document));
}

TEST(DefaultsTest, RecalculateFollowsOnlyAValueNobodyChanged) {
  const char* follows = "UseOld=\"1\" Recalculate=\"1\" DataType=\"value\"";
  Engine engine(
      entry("ROOT", "UseOld=\"1\" DataType=\"value\"", "/template") + entry("ADDINS", follows, "$ROOT//addins") +
      entry("PLUGINS", follows, "$ROOT/plugins") + entry("TOOLS", follows, "$ROOT/tools") +
      entry("FIXED", "DataType=\"value\"", "$ROOT/fixed") + entry("BASE", "DataType=\"value\"", "/b") +
      entry("FOLLOW", "Recalculate=\"1\" DataType=\"value\"", "$BASE/f") + entry("BASE", "DataType=\"value\"", "/c") +
      entry("EMPTY_FLAG", "Recalculate=\"\" DataType=\"value\"", "$ROOT/e"));
  engine.setVariable("ROOT", "/p");
  engine.setVariable("ADDINS", "/p/addins ");   // what the expression gives, but for the blank
  engine.setVariable("PLUGINS", "/elsewhere");  // the user chose another place
  ASSERT_EQ(0, engine.readDefValues(engine.document));
  EXPECT_EQ("/b/f", engine.value("FOLLOW"));  // nothing was recalculated during the walk
  EXPECT_EQ("/p/tools", engine.value("TOOLS"));

  engine.setVariable("ROOT", "/q");
  EXPECT_EQ("/q/addins", engine.value("ADDINS"));
  EXPECT_EQ("/elsewhere", engine.value("PLUGINS"));
  EXPECT_EQ("/q/tools", engine.value("TOOLS"));
  EXPECT_EQ("/p/fixed", engine.value("FIXED"));
  EXPECT_EQ("/c/f", engine.value("FOLLOW"));
  EXPECT_EQ("/q/e", engine.value("EMPTY_FLAG"));  // an empty Recalculate is on
}

TEST(DefaultsTest, ValuesComeFromTheRegistryOtherLogsAndRunningPrograms) {
  const char* demo = "DataType=\"registry\" RegPlace=\"HKEY_LOCAL_MACHINE\" RegKey=\"SOFTWARE/Demo\"";
  const char* versions = "DataType=\"registry\" RegPlace=\"HKEY_LOCAL_MACHINE\" RegKey=\"SOFTWARE/Demo/Versions/*\"";
  const char* none = "RegPlace=\"HKEY_LOCAL_MACHINE\" RegKey=\"SOFTWARE/None\" Default=\"fallback\"";
  Engine engine(
      entry("DIR", demo, "Dir") +
      entry("COUNT", "DataType=\"registryX\" RegPlace=\"HKEY_LOCAL_MACHINE\" RegKey=\"SOFTWARE\\Demo\"", "Count") +
      entry("LATEST", versions, "Path") +
      entry("CHOSEN", (std::string(versions) + " PreferredKey=\"SOFTWARE/Demo/Versions/1.0\"").c_str(), "Path") +
      entry("MISSING", (std::string("DataType=\"registry\" ") + none).c_str(), "Dir") +
      entry("FIRST", "DataType=\"value\"", "first") +
      entry("FIRST", (std::string("DataType=\"registry\" ") + none).c_str(), "Dir") +
      entry("KEEP", (std::string(demo) + " UseOld=\"1\"").c_str(), "Dir") +
      entry("HOME", "DataType=\"installvar\" AppName=\"Other\"", "OTHER_HOME") +
      entry("NOAPP", "DataType=\"installvar\" AppName=\"Nobody\"", "OTHER_HOME") +
      entry("RUNNING", "UseOld=\"1\" DataType=\"checkproc\"", "tool.exe") +
      entry("IDLE", "DataType=\"checkproc\"", "other.exe"));
  int created = 0;
  engine.setRegistryValue("HKEY_LOCAL_MACHINE", "SOFTWARE/Demo", "REG_SZ", "Dir", "/opt/demo", &created);
  engine.setRegistryValue("HKEY_LOCAL_MACHINE", "SOFTWARE/Demo", "REG_DWORD", "Count", "ff", &created);
  for (const char* version : {"1.0", "2.0", "1.5"}) {
    std::string key = std::string("SOFTWARE/Demo/Versions/") + version;
    engine.setRegistryValue("HKEY_LOCAL_MACHINE", key.c_str(), "REG_SZ", "Path", version, &created);
  }
  engine.logs["Other"] = scratchFile("other.log", "a.xml\r\nb.bin\r\nNUMVARS\t1\r\nVAR\tOTHER_HOME\t/opt/other\r\n");
  engine.running.insert("tool.exe");
  engine.setVariable("KEEP", "mine");
  engine.setVariable("RUNNING", "0");

  ASSERT_EQ(0, engine.readDefValues(engine.document));
  EXPECT_EQ("/opt/demo", engine.value("DIR"));
  EXPECT_EQ("FF", engine.value("COUNT"));
  EXPECT_EQ("2.0", engine.value("LATEST"));  // the highest version's key
  EXPECT_EQ("1.0", engine.value("CHOSEN"));
  EXPECT_EQ("fallback", engine.value("MISSING"));
  EXPECT_EQ("first", engine.value("FIRST"));  // the default stands in only for an empty value
  EXPECT_EQ("mine", engine.value("KEEP"));
  EXPECT_EQ("/opt/demo", engine.defaultOf("KEEP"));
  EXPECT_EQ("/opt/other", engine.value("HOME"));
  EXPECT_EQ("", engine.value("NOAPP"));
  EXPECT_EQ("1", engine.value("RUNNING"));  // evaluated at each start, whatever UseOld says
  EXPECT_EQ("0", engine.value("IDLE"));
  QUtils::deleteFile(engine.logs["Other"].c_str());
}

TEST(DefaultsTest, AConfigurationFileReplacesTheTemplatesValues) {
  Engine engine(entry("ROOT", "DataType=\"value\"", "/template") +
                entry("SUB", "Recalculate=\"1\" DataType=\"value\"", "$ROOT/sub"));
  RecordingUI ui;
  std::string config = scratchFile("config.xml", "<DefValues>\n" + entry("ROOT", "DataType=\"value\"", "/config") +
                                                     entry("SUB", "DataType=\"value\"", "/a &amp; b") + "</DefValues>");
  QUtils::copyText(engine.configFile, config.c_str(), sizeof engine.configFile);
  ASSERT_EQ(0, engine.readDefaults(&ui));
  engine.setVariable("ROOT", "/other");
  EXPECT_EQ("/a & b", engine.value("SUB"));  // replaced, and no longer following ROOT

  // A file without DefValues ends the run; one that isn't there is shown.
  scratchFile("config.xml", "not a configuration");
  EXPECT_EQ(-1, engine.readDefaults(&ui));
  EXPECT_TRUE(ui.messages.empty());
  QUtils::deleteFile(config.c_str());
  EXPECT_EQ(-1, engine.readDefaults(&ui));
  ASSERT_EQ(1u, ui.messages.size());
  EXPECT_EQ(0u, ui.messages[0].find("Error loading configuration file \"" + config + "\" ("));
  EXPECT_NE(std::string::npos, ui.messages[0].find("). Installation cannot continue."));

  // An uninstallation never reads one.
  std::string log = scratchFile("install.log", "a.xml\r\n");
  ASSERT_EQ(0, engine.openPackage(log.c_str(), 0, 1));
  EXPECT_EQ(0, engine.readDefaults(&ui));
  engine.cleanup();
  QUtils::deleteFile(log.c_str());
}

TEST(DefaultsTest, CommandLineValuesWinAndTheirFollowersFollowButUnknownNamesStopTheRun) {
  Engine engine(entry("ROOT", "DataType=\"value\"", "/template") +
                entry("BIN", "Recalculate=\"1\" DataType=\"value\"", "$ROOT/bin") +
                entry("MODE", "DataType=\"value\"", "full"));
  ASSERT_EQ(0, engine.readDefValues(engine.document));
  // Spelled as the template spells it, or in another case when that names
  // one variable; a '$' is part of the value.
  engine.commandLineValues = {{"ROOT", "/opt/x"}, {"mode", "a$b"}};
  EXPECT_EQ(0, engine.applyCommandLineValues());
  EXPECT_EQ("/opt/x", engine.value("ROOT"));
  EXPECT_EQ("/opt/x/bin", engine.value("BIN"));
  EXPECT_EQ("a$b", engine.value("MODE"));
  EXPECT_EQ("<unset>", engine.value("mode"));

  // A name the template doesn't know changes nothing, not even the names
  // before it, and ends the run as a bad command line.
  Engine other(entry("ROOT", "DataType=\"value\"", "/template"));
  ASSERT_EQ(0, other.readDefValues(other.document));
  other.commandLineValues = {{"ROOT", "/opt/y"}, {"INSTALDIR", "/opt/z"}};
  EXPECT_EQ(-1, other.applyCommandLineValues());
  EXPECT_EQ("/template", other.value("ROOT"));
  char reason[256];
  EXPECT_EQ(kExitBadUsage, other.getExitCode(0, reason, sizeof reason));
  EXPECT_STREQ("bad command line: -INSTALDIR names no variable of this installer's template", reason);
}

TEST(DefaultsTest, PreviousInstallationsAreFoundReadAndRemoved) {
  Engine engine(entry("ROOT", "UseOld=\"1\" DataType=\"value\"", "/template"));
  engine.registered = {"Older Demo", "Demo"};
  EXPECT_EQ(0, engine.checkPreviousInstallation());
  EXPECT_TRUE(engine.isPreviousInstallation());
  EXPECT_EQ("1", engine.value("PREVIOUS"));
  EXPECT_EQ((std::vector<std::string>{"Old Demo", "Older Demo", "Demo"}), engine.asked);
  EXPECT_THROW(engine.readPreviousInstallationValues(), QUtils::InstallerError);
  engine.logs["Demo"] = scratchFile("install.log", "a.xml\r\nb.bin\r\nNUMVARS\t1\r\nVAR\tROOT\t/opt/old\r\n");
  engine.readPreviousInstallationValues();
  ASSERT_EQ(0, engine.readDefValues(engine.document));
  EXPECT_EQ("/opt/old", engine.value("ROOT"));
  QUtils::deleteFile(engine.logs["Demo"].c_str());

  engine.setVariable("SHOULD_UNINSTALL", "0");  // the user keeps the old installation
  EXPECT_EQ(0, engine.removeOlderInstallations(nullptr));
  EXPECT_TRUE(engine.uninstalled.empty());
  EXPECT_EQ(-1, engine.checkPreviousInstallation());
  // Back on the page, the user chooses to remove it after all.
  engine.setVariable("SHOULD_UNINSTALL", "1");
  EXPECT_EQ(0, engine.removeOlderInstallations(nullptr));
  EXPECT_EQ((std::vector<std::string>{"Older Demo", "Demo"}), engine.uninstalled);
  // Entered once more, the page finds nothing left to remove: the product
  // stays registered until this installation registers itself.
  EXPECT_EQ(0, engine.removeOlderInstallations(nullptr));
  EXPECT_EQ(2u, engine.uninstalled.size());

  // A removal that failed is tried again on the next entry.
  Engine second("");
  second.registered = {"Older Demo", "Demo"};
  second.failing = {"Demo"};
  second.setVariable("SHOULD_UNINSTALL", "1");
  EXPECT_EQ(-1, second.removeOlderInstallations(nullptr));
  EXPECT_EQ((std::vector<std::string>{"Older Demo", "Demo"}), second.uninstalled);
  EXPECT_EQ((std::vector<std::string>{"Older Demo"}), second.unregistered);
  EXPECT_EQ("1", second.value("UNINSTALL_ERROR"));
  second.failing.clear();
  EXPECT_EQ(0, second.removeOlderInstallations(nullptr));
  EXPECT_EQ((std::vector<std::string>{"Older Demo", "Demo", "Demo"}), second.uninstalled);

  Engine nameless("", "");
  EXPECT_EQ(-1, nameless.checkPreviousInstallation());
  EXPECT_THROW(nameless.removeOlderInstallations(nullptr), QUtils::InstallerError);
}

}  // namespace
