// Tests of reverting a failed installation: the new one undone, and an
// older installation that it took over brought back or reported.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/test_env.h"

namespace {

// One product in two versions: version 2 drops old.txt and adds new.txt.
std::string productTemplate(const std::string& version, const std::vector<std::string>& files) {
  std::string entries;
  for (const std::string& file : files) entries += "  <FN Dest=\"[ROOT]/app\">" + file + "</FN>\n";
  return "<HalvoWorksInstallation>"
         " <ProductDesc><Fullname>Demo</Fullname><MajorVersion>" + version + "</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>"
         "  <Website>https://example.invalid</Website></ProductDesc>"
         " <Installation>"
         "  <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError>"
         "   <UninstallError>UNINSTALL_ERROR</UninstallError>"
         "   <PreviousInstallation>PREVIOUS</PreviousInstallation></InstallerControlVariables>"
         "  <Uninstall><InstallLogFile>[ROOT]/uninstall/install.log</InstallLogFile>"
         "   <InstallBackupFile>[ROOT]/uninstall/backup.bin</InstallBackupFile>"
         "   <UninstallXmlFile>[ROOT]/uninstall/install.xml</UninstallXmlFile>"
         "   <UninstallCmd>[ROOT]/uninstall/setup</UninstallCmd></Uninstall>"
         " </Installation>"
         " <FileSet Name=\"Main\">"
         "  <FN Dest=\"[ROOT]/uninstall\">install.xml</FN>"
         "  <FN Dest=\"[ROOT]/uninstall\">install.log</FN>"
         "  <FN Dest=\"[ROOT]/uninstall\">backup.bin</FN>\n" +
         entries +
         " </FileSet>"
         "</HalvoWorksInstallation>";
}

// Engines of one machine: they share its registry, and the second engine
// that removes an older installation is one of them too.
class MachineInstaller : public TestInstaller {
 public:
  explicit MachineInstaller(MemoryRegistry* machine) : machine(machine) {}
  RegistryAccess* getRegistry() override { return machine; }
  int getTempFileName(char* buffer, int size) override {
    static int made = 0;
    QUtils::copyText(buffer, here("temp" + std::to_string(++made)).c_str(), size);
    return 0;
  }
  Installer* createEngine() override {
    engines++;
    return new MachineInstaller(machine);
  }
  MemoryRegistry* machine;
  int engines = 0;
};

class RevertTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }

  // Opens the package of `version` on `engine` as an installation would,
  // with a backup of what it removes wanted.
  void load(MachineInstaller& engine, const std::string& version, const std::vector<testwriter::File>& files) {
    std::vector<std::string> names;
    for (const testwriter::File& file : files) names.push_back(file.key);
    std::string xml = productTemplate(version, names);
    std::vector<testwriter::File> all = {packed("install.xml", xml), packed("install.log", "placeholder"),
                                         packed("backup.bin", "placeholder")};
    all.insert(all.end(), files.begin(), files.end());
    std::string package = here("package" + version + ".bin");
    writeFile(package, testwriter::packageHeader(all) + testwriter::records(all, true));
    ASSERT_EQ(0, engine.openPackage(package.c_str(), 0, 2));
    engine.loadTemplate(xml.c_str());
    engine.setVariable("ROOT", root.c_str());
    engine.readControlVariables();
    ASSERT_EQ(0, engine.readFileSets());
    ASSERT_EQ(0, engine.readProductDesc());
    engine.logConsole = &debugLog;
  }

  void installVersion1() {
    MachineInstaller engine(&machine);
    load(engine, "1", {packed("common.txt", "common 1"), packed("old.txt", "only in 1")});
    RecordingUI ui;
    ASSERT_EQ(0, engine.installFiles(&ui));
    ASSERT_TRUE(engine.registerApplication());
    engine.logConsole = nullptr;
  }

  std::string root = here("machine");
  MemoryRegistry machine;
  LinesConsole debugLog;
};

TEST_F(RevertTest, AFailedUpgradeIsUndoneAndTheOlderInstallationComesBack) {
  installVersion1();
  MachineInstaller engine(&machine);
  load(engine, "2", {packed("common.txt", "common 2"), packed("new.txt", "only in 2")});
  ASSERT_EQ(0, engine.checkPreviousInstallation());
  ASSERT_EQ(1, engine.previousInstallationFound);
  // A directory stands where a file of version 2 must go.
  ASSERT_EQ(0, QUtils::createPath((root + "/app/new.txt/").c_str(), nullptr));

  RecordingUI ui;
  EXPECT_EQ(-1, engine.installFiles(&ui));
  // Version 1 was removed through its log, by a second engine, and saved.
  EXPECT_EQ(1, engine.engines);
  EXPECT_EQ("<missing>", readFile(root + "/app/old.txt"));
  EXPECT_EQ("common 2", readFile(root + "/app/common.txt"));
  EXPECT_TRUE(QUtils::fileExists(engine.installedBackupFile));
  EXPECT_EQ("1", engine.value("INSTALL_ERROR"));

  // The directory in the way isn't the installation's: it stays, and so
  // does its parent, reported as kept; the undo itself did all it had to.
  EXPECT_EQ(0, engine.revertInstallation(&ui));
  EXPECT_EQ("common 1", readFile(root + "/app/common.txt"));
  EXPECT_EQ("only in 1", readFile(root + "/app/old.txt"));
  EXPECT_TRUE(QUtils::isDirectory((root + "/app/new.txt").c_str()));
  // Version 1's log and template copy stand again, so it can be removed.
  std::string log = readFile(root + "/uninstall/install.log");
  EXPECT_NE(std::string::npos, log.find("old.txt"));
  EXPECT_EQ(std::string::npos, log.find("new.txt"));
  EXPECT_NE(std::string::npos, readFile(root + "/uninstall/install.xml").find("<MajorVersion>1</MajorVersion>"));
  EXPECT_TRUE(debugLog.has("Uninstalling current installation (Revert)"));
  EXPECT_TRUE(debugLog.has("Unpacking backup of previous installation"));

  // A second revert finds version 1's log at the same path: it undoes
  // version 1 and brings it back again from the same backup.
  engine.revertInstallation(&ui);
  EXPECT_EQ("common 1", readFile(root + "/app/common.txt"));
  EXPECT_EQ("only in 1", readFile(root + "/app/old.txt"));

  // The temporary backup goes when the process cleans up.
  std::string backup = engine.installedBackupFile;
  engine.cleanup();
  EXPECT_FALSE(QUtils::fileExists(backup.c_str()));
}

TEST_F(RevertTest, WithoutAnOlderInstallationOnlyTheNewOneIsUndone) {
  MachineInstaller engine(&machine);
  load(engine, "2", {packed("common.txt", "common 2")});
  RecordingUI ui;
  ASSERT_EQ(0, engine.installFiles(&ui));
  EXPECT_EQ(0, engine.engines);
  EXPECT_EQ(0, engine.revertInstallation(&ui));
  EXPECT_FALSE(QUtils::fileExists(root.c_str()));
  EXPECT_FALSE(debugLog.has("Unpacking backup of previous installation"));
}

TEST_F(RevertTest, AnUpgradeWithoutBackupRemovesTheOlderInstallationForGood) {
  installVersion1();
  MachineInstaller engine(&machine);
  load(engine, "2", {packed("common.txt", "common 2")});
  engine.package.runFlags = 0;
  ASSERT_EQ(0, engine.checkPreviousInstallation());
  RecordingUI ui;
  ASSERT_EQ(0, engine.installFiles(&ui));
  EXPECT_TRUE(debugLog.has("Skipping creation of uninstall backup file"));
  EXPECT_EQ("<missing>", readFile(root + "/app/old.txt"));
  // The older files' space was held while the new files were written, and
  // is free now.
  ASSERT_TRUE(engine.olderFilesSpace);
  EXPECT_EQ(0, engine.olderFilesSpace->count());
#ifndef _WIN32
  EXPECT_EQ(0, QUtils::descriptorsOfDeletedFiles(root));
#endif
  EXPECT_EQ(0, engine.revertInstallation(&ui));
  EXPECT_FALSE(QUtils::fileExists((root + "/app/common.txt").c_str()));
  EXPECT_FALSE(QUtils::fileExists((root + "/app/old.txt").c_str()));
}

TEST_F(RevertTest, AnOlderInstallationWhoseLogIsGoneIsReportedAndNothingIsRemoved) {
  installVersion1();
  std::remove((root + "/uninstall/install.log").c_str());
  MachineInstaller engine(&machine);
  load(engine, "2", {packed("common.txt", "common 2")});
  RecordingUI ui;
  EXPECT_THROW(engine.uninstallApplication(&ui, "Demo"), QUtils::GenericError);
  EXPECT_EQ("only in 1", readFile(root + "/app/old.txt"));
}

}  // namespace
