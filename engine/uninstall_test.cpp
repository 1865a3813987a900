// Tests of uninstalling from the action log: files, directories, the
// backup, user files that stay, and damaged logs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "engine/backup_file.h"
#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/test_env.h"
#include "package/md5.h"
#include "package/test_writer.h"

#ifdef _WIN32
#include <direct.h>
#else
#include <unistd.h>
#endif

namespace {

bool exists(const std::string& path) { return QUtils::fileExists(path.c_str()); }

bool hasLine(const std::vector<std::string>& lines, const std::string& line) {
  for (std::string entry : lines) {
    std::replace(entry.begin(), entry.end(), '\\', '/');
    if (entry == line) return true;
  }
  return false;
}

const char kTemplate[] =
    "<HalvoWorksInstallation>"
    " <ProductDesc><Fullname>Demo</Fullname></ProductDesc>"
    " <Installation>"
    "  <InstallerControlVariables><UninstallError>UNINSTALL_ERROR</UninstallError></InstallerControlVariables>"
    "  <Uninstall><InstallLogFile>[ROOT]/uninstall/install.log</InstallLogFile>"
    "   <InstallBackupFile>[ROOT]/uninstall/backup.bin</InstallBackupFile>"
    "   <UninstallXmlFile>[ROOT]/uninstall/install.xml</UninstallXmlFile></Uninstall>"
    " </Installation>"
    " <FileSet Name=\"Main\">"
    "  <FN Dest=\"[ROOT]/uninstall\">install.xml</FN>"
    "  <FN Dest=\"[ROOT]/uninstall\">install.log</FN>"
    "  <FN Dest=\"[ROOT]/uninstall\">backup.bin</FN>"
    "  <FN Dest=\"[ROOT]/bin/deep\">app.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\" BackupExisting=\"1\">conf.txt</FN>"
    " </FileSet>"
    " <UninstallWildcards><Wildcard Dest=\"[ROOT]/bin\">*.cache</Wildcard></UninstallWildcards>"
    "</HalvoWorksInstallation>";

class FilesInstaller : public TestInstaller {
 public:
  int getTempFileName(char* buffer, int size) override {
    QUtils::copyText(buffer, here("tmp" + std::to_string(tempCount++)).c_str(), size);
    return 0;
  }
  int tempCount = 0;
};

class UninstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = here("root");
    std::vector<testwriter::File> files = {packed("install.xml", kTemplate), packed("install.log", "placeholder"),
                                           packed("backup.bin", "placeholder"), packed("app.txt", "application"),
                                           packed("conf.txt", "new settings")};
    writeFile(here("package.bin"), testwriter::packageHeader(files) + testwriter::records(files, true));
  }
  void TearDown() override {
    std::remove(here("package.bin").c_str());
    std::remove(here("uninst.log").c_str());
    // Only the tree this test made below its own working directory.
    if (QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }

  void install() {
    FilesInstaller engine;
    ASSERT_EQ(0, engine.openPackage(here("package.bin").c_str(), 0, 2));
    engine.loadTemplate(kTemplate);
    engine.setVariable("ROOT", root.c_str());
    engine.readControlVariables();
    ASSERT_EQ(0, engine.readFileSets());
    RecordingUI ui;
    ASSERT_EQ(0, engine.installFiles(&ui));
    // The uninstaller reads a copy, as the log itself is deleted.
    writeFile(here("uninst.log"), readFile(root + "/uninstall/install.log") + extraLines);
  }

  // Opens the copied log as an uninstallation and runs it.
  int uninstall(TestInstaller& engine, RecordingUI& ui) {
    EXPECT_EQ(0, engine.openPackage(here("uninst.log").c_str(), 0, 1));
    engine.initFromActionLog(&ui, &debugLog);
    engine.logConsole = &debugLog;
    int result = engine.uninstall(&ui, nullptr);
    engine.logConsole = nullptr;
    return result;
  }

  std::string root;
  std::string extraLines;
  LinesConsole debugLog;
};

TEST_F(UninstallTest, RemovesFilesAndDirectoriesRestoresBackupAndKeepsUserFiles) {
  ASSERT_EQ(0, QUtils::createPath((root + "/etc/").c_str(), nullptr));
  writeFile(root + "/etc/conf.txt", "old settings");
  extraLines =
      "REGKEY\t2\tHKEY_CURRENT_USER\tSoftware\\Demo\\Sub\r\n"
      "REGVAL\tHKEY_CURRENT_USER\tSoftware\\Demo\\Sub\tVersion\r\n"
      "REGVAL\tHKEY_CURRENT_USER\tSoftware\\Keep\tbroken\textra\r\n"
      "FILE\tODD\t" + root + "/bin/user.txt\r\n";
  install();
  writeFile(root + "/bin/user.txt", "mine");
  writeFile(root + "/bin/old.cache", "cache");
  TestInstaller engine;
  int created = 0;
  ASSERT_EQ(0, engine.registry.createKey("HKEY_CURRENT_USER", "Software", &created));
  ASSERT_EQ(0, engine.registry.createKey("HKEY_CURRENT_USER", "Software\\Demo", &created));
  ASSERT_EQ(0, engine.registry.createKey("HKEY_CURRENT_USER", "Software\\Demo\\Sub", &created));
  ASSERT_EQ(0, engine.registry.writeValue("HKEY_CURRENT_USER", "Software\\Demo\\Sub", "Version", 1,
                                          reinterpret_cast<const unsigned char*>("1"), 2));

  RecordingUI ui;
  EXPECT_EQ(0, uninstall(engine, ui));

  // Values and template came from the log and its template copy.
  EXPECT_EQ(root, engine.value("ROOT"));
  // The replaced file is the old one again; the rest of the installation is
  // gone, including the log, the backup and the template copy.
  EXPECT_EQ("old settings", readFile(root + "/etc/conf.txt"));
  EXPECT_FALSE(exists(root + "/bin/deep"));
  EXPECT_FALSE(exists(root + "/uninstall"));
  EXPECT_FALSE(exists(root + "/bin/old.cache"));
  // The user's file (logged with a mode that means nothing to the
  // uninstaller) keeps its directory; that is reported, and no failure.
  EXPECT_EQ("mine", readFile(root + "/bin/user.txt"));
  EXPECT_TRUE(hasLine(ui.lines, "kept: 1 file that the installation did not make, in " + root + "/bin"));
  EXPECT_TRUE(hasLine(ui.lines, "Delete " + root + "/bin/deep/app.txt"));
  EXPECT_TRUE(hasLine(ui.lines, "Delete: " + root + "/bin/*.cache"));
  EXPECT_EQ(0, engine.errorList->getCount());
  EXPECT_EQ(100, ui.progress);
#ifndef _WIN32
  // The deleted files' space is free when the uninstallation returns.
  EXPECT_EQ(0, QUtils::descriptorsOfDeletedFiles(root));
#endif
  // Registry: values first, then the logged levels of keys, deepest first.
  EXPECT_FALSE(engine.registry.hasKey("HKEY_CURRENT_USER", "Software\\Demo"));
  EXPECT_TRUE(engine.registry.hasKey("HKEY_CURRENT_USER", "Software"));
  EXPECT_TRUE(debugLog.has("WARNING: (Dev) Wrong number of tokens in the install.log for REGVAL"));
}

// A firewall exception that the system won't remove: the user is told, in
// the file lines and the debug log, and the rest of the uninstallation goes
// on; such an undo doesn't make the uninstallation fail.
class StuckFirewallInstaller : public TestInstaller {
 public:
  bool removeFirewallPort(const char*) override { return false; }
};

TEST_F(UninstallTest, AFailedUndoOfAnExceptionIsReportedAndTheRestGoes) {
  extraLines = "FIREWALL\tPORT\tTCP 8080\r\n";
  install();
  StuckFirewallInstaller engine;
  RecordingUI ui;
  EXPECT_EQ(0, uninstall(engine, ui));
  EXPECT_TRUE(hasLine(ui.lines, "FAILED to remove port from firewall: TCP 8080"));
  EXPECT_TRUE(debugLog.has("WARNING: FAILED to remove port from firewall: TCP 8080"));
  EXPECT_FALSE(exists(root + "/bin/deep/app.txt"));
  EXPECT_NE("1", engine.value("UNINSTALL_ERROR"));
}

TEST_F(UninstallTest, WithoutItsBackupEveryInstalledFileGoesAndAMissingFileIsNoError) {
  install();
  // Without a backup to restore, an OVER file is deleted like any other.
  std::remove((root + "/uninstall/backup.bin").c_str());
  TestInstaller engine;
  RecordingUI ui;
  EXPECT_EQ(0, uninstall(engine, ui));
  EXPECT_TRUE(hasLine(ui.lines, "Missing " + root + "/uninstall/backup.bin"));
  EXPECT_TRUE(hasLine(ui.lines, "Delete " + root + "/etc/conf.txt"));
  EXPECT_FALSE(exists(root));
  EXPECT_EQ(0, engine.errorList->getCount());
  EXPECT_EQ(100, ui.progress);
}

TEST_F(UninstallTest, ARestoredBackupKeepsAnOverFileThatWasNewAndItsDirectory) {
  // The backup holds nothing (there was no old conf.txt), and restoring it
  // succeeds: an OVER file is then taken for the old file and stays.
  install();
  TestInstaller engine;
  RecordingUI ui;
  EXPECT_EQ(0, uninstall(engine, ui));
  EXPECT_EQ("new settings", readFile(root + "/etc/conf.txt"));
  EXPECT_FALSE(exists(root + "/bin"));
  EXPECT_TRUE(hasLine(ui.lines, "kept: 1 file that the installation did not make, in " + root + "/etc"));
}

TEST_F(UninstallTest, InitFromActionLogFailsWithoutItsTemplateCopy) {
  install();
  std::remove((root + "/uninstall/install.xml").c_str());
  TestInstaller engine;
  ASSERT_EQ(0, engine.openPackage(here("uninst.log").c_str(), 0, 1));
  RecordingUI ui;
  EXPECT_THROW(engine.initFromActionLog(&ui, nullptr), QUtils::InstallerError);
  TestInstaller noLog;
  EXPECT_THROW(noLog.initFromActionLog(&ui, nullptr), QUtils::InstallerError);
}

TEST_F(UninstallTest, DirectoryLevelsGoDeepestFirstAndNeverPastTheGivenLevels) {
  ASSERT_EQ(0, QUtils::createPath((root + "/a/b/c/").c_str(), nullptr));
  writeFile(root + "/keep.txt", "x");
  // Two levels of three, and the parent they leave empty with them, though
  // the installation didn't make it; a second removal of the same
  // directory finds nothing and succeeds.
  EXPECT_EQ(0, Installer::removeDirectoryLevels((root + "/a/b/c/").c_str(), 2, nullptr, nullptr, nullptr));
  EXPECT_FALSE(exists(root + "/a"));
  EXPECT_TRUE(exists(root + "/keep.txt"));
  EXPECT_EQ(0, Installer::removeDirectoryLevels((root + "/a/b/c/").c_str(), 2, nullptr, nullptr, nullptr));
  // A directory that must stay ends the walk below it.
  ASSERT_EQ(0, QUtils::createPath((root + "/a/b/c/").c_str(), nullptr));
  EXPECT_EQ(0, Installer::removeDirectoryLevels((root + "/a/b/c/").c_str(), 1, nullptr, nullptr, nullptr, nullptr,
                                                (root + "/a").c_str()));
  EXPECT_FALSE(exists(root + "/a/b"));
  EXPECT_TRUE(exists(root + "/a"));
  // A level that isn't empty stays and is reported as kept, once, with
  // what it holds that no level below it reported; that is no failure.
  ASSERT_EQ(0, QUtils::createPath((root + "/a/b/mine/").c_str(), nullptr));
  writeFile(root + "/a/b/one.txt", "x");
  writeFile(root + "/a/b/mine/two.txt", "x");
  ASSERT_EQ(0, QUtils::createPath((root + "/a/empty/").c_str(), nullptr));
  QUtils::Table<QUtils::CharString> errors;
  QUtils::Table<QUtils::CharString> kept;
  RecordingUI ui;
  EXPECT_EQ(0, Installer::removeDirectoryLevels((root + "/a/b/").c_str(), 1, nullptr, &ui, &errors, &kept));
  EXPECT_EQ(0, Installer::removeDirectoryLevels((root + "/a/").c_str(), 2, nullptr, &ui, &errors, &kept));
  EXPECT_EQ((std::vector<std::string>{"kept: 2 files that the installation did not make, in " + root + "/a/b",
                                      "kept: 1 folder that the installation did not make, in " + root + "/a",
                                      "kept: 1 file that the installation did not make, in " + root}),
            ui.lines);
  EXPECT_EQ(0, errors.getCount());
  EXPECT_TRUE(exists(root + "/keep.txt"));
  EXPECT_TRUE(QUtils::deleteTree((root + "/a").c_str()));
  // Roots and relative names are never touched.
  EXPECT_EQ(0, Installer::removeDirectoryLevels("/", 3, nullptr, nullptr, nullptr));
  EXPECT_EQ(0, Installer::removeDirectoryLevels("", 3, nullptr, nullptr, nullptr));
  ASSERT_TRUE(QUtils::makeDirectory((root + "/rel").c_str()));
  EXPECT_EQ(0, Installer::removeDirectoryLevels("root/rel/", 1, nullptr, nullptr, nullptr));
  EXPECT_TRUE(exists(root + "/rel"));
}

// A line cut short at the end of the log, or one with a NUL byte, names a
// path the installation never wrote: nothing of it is undone, and it is
// named as a failure. Whole lines around it are undone as usual.
TEST_F(UninstallTest, ADamagedLogLineIsNamedAndNothingOfItIsUndone) {
  extraLines = std::string("FILE\tCREATE\t") + root + "/bin/x" + std::string(1, '\0') + "yz\r\n" +
               "FILE\tCREATE\t" + root + "/etc/conf.txt\r\n" + "FILE\tCREATE\t" + root + "/bin/deep/app";
  install();
  writeFile(root + "/bin/x", "mine");
  writeFile(root + "/bin/deep/app", "mine too");
  TestInstaller engine;
  RecordingUI ui;
  EXPECT_EQ(-1, uninstall(engine, ui));
  EXPECT_EQ("mine", readFile(root + "/bin/x"));
  EXPECT_EQ("mine too", readFile(root + "/bin/deep/app"));
  EXPECT_FALSE(exists(root + "/bin/deep/app.txt"));
  EXPECT_FALSE(exists(root + "/etc/conf.txt"));  // the whole line after the damaged one
  EXPECT_TRUE(hasLine(ui.lines, "FAILED to undo a damaged line of the action log: FILE CREATE " + root + "/bin/x"));
  EXPECT_TRUE(
      hasLine(ui.lines, "FAILED to undo a damaged line of the action log: FILE CREATE " + root + "/bin/deep/app"));
  EXPECT_EQ("1", engine.value("UNINSTALL_ERROR"));
}

// A backup cut inside its second record: the file of the whole first
// record is the old file again and stays, though it is logged OVER; the
// cut one's is named, and goes as an OVER file of a failed restore does.
TEST_F(UninstallTest, ACutBackupKeepsTheFilesOfItsWholeRecords) {
  std::string conf = root + "/etc/conf.txt", extra = root + "/bin/extra.txt";
  extraLines = "FILE\tOVER\t" + extra + "\r\n";
  install();
  // The backup as the installation would have made it, had it replaced
  // both: the old contents, with the check sums of the installed ones.
  writeFile(here("new.txt"), "new settings");
  uint32_t installedConf = BackupFile::computeCheckSum(here("new.txt").c_str());
  writeFile(here("new.txt"), "new extra");
  uint32_t installedExtra = BackupFile::computeCheckSum(here("new.txt").c_str());
  std::string backupPath = root + "/uninstall/backup.bin";
  writeFile(conf, "old settings");
  writeFile(extra, "old extra");
  {
    BackupFile backup;
    backup.openForWriting(backupPath.c_str());
    QUtils::ErrorChain error;
    backup.addFile(error, conf.c_str(), QUtils::kMaxPath, installedConf, true);
    backup.addFile(error, extra.c_str(), QUtils::kMaxPath, installedExtra, true);
  }
  std::string raw = readFile(backupPath);
  writeFile(backupPath, raw.substr(0, raw.size() - 3 - 4));
  writeFile(conf, "new settings");
  writeFile(extra, "new extra");

  TestInstaller engine;
  RecordingUI ui;
  EXPECT_EQ(-1, uninstall(engine, ui));
  EXPECT_EQ("old settings", readFile(conf));
  EXPECT_FALSE(exists(extra));
  EXPECT_TRUE(hasLine(ui.lines, "Restore " + conf));
  EXPECT_TRUE(hasLine(ui.lines, "FAILED to restore " + extra));
  EXPECT_TRUE(hasLine(ui.lines, "FAILED to restore all of the damaged backup " + backupPath));
  std::remove(here("new.txt").c_str());
}

}  // namespace
