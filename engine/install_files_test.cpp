// Tests of installing the files: what is written, logged and backed up, a
// missing package file, and a file that a running program holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/backup_file.h"
#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"
#include "package/md5.h"
#include "package/test_writer.h"

#ifdef _WIN32
#include <direct.h>
#else
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;
#endif

namespace {

// Windows keeps the template's separators and appends its own '\';
// compared with '/' throughout.
std::string slashes(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  for (const std::string& entry : list)
    if (slashes(entry) == item) return true;
  return false;
}

// The template: a main set with every kind of entry, and a set that its
// condition turns off. MISSING switches on an entry whose file isn't packed.
const char kTemplate[] =
    "<HalvoWorksInstallation>"
    " <ProductDesc><Fullname>Demo</Fullname></ProductDesc>"
    " <Installation>"
    "  <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError></InstallerControlVariables>"
    "  <Uninstall><InstallLogFile>[ROOT]/uninstall/install.log</InstallLogFile>"
    "   <InstallBackupFile>[ROOT]/uninstall/backup.bin</InstallBackupFile>"
    "   <UninstallXmlFile>[ROOT]/uninstall/install.xml</UninstallXmlFile></Uninstall>"
    " </Installation>"
    " <FileSet Name=\"Main\">"
    "  <FN Dest=\"[ROOT]/uninstall\">install.xml</FN>"
    "  <FN Dest=\"[ROOT]/uninstall\">install.log</FN>"
    "  <FN Dest=\"[ROOT]\\bin\\deep\">app.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\" BackupExisting=\"1\">conf.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\">same.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\" ExpandVarsInFile=\"1\">vars.txt</FN>"
    "  <FN Dest=\"[ROOT]/skipped\" Condition=\"0\">app.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\" OkIfMissing=\"1\">optional.txt</FN>"
    "  <FN Dest=\"[ROOT]/etc\" Condition=\"[MISSING]==1\">absent.txt</FN>"
    "  <FN>picture.png</FN>"
    " </FileSet>"
    " <FileSet Name=\"Off\" Condition=\"[WANT_OFF]==1\"><FN Dest=\"[ROOT]/off\">off.txt</FN></FileSet>"
    "</HalvoWorksInstallation>";

// An engine with temporary names beside the test's files, over a bare
// package that holds the template and its files.
class FilesInstaller : public TestInstaller {
 public:
  int getTempFileName(char* buffer, int size) override {
    std::string name = here("tmp" + std::to_string(tempCount++));
    QUtils::copyText(buffer, name.c_str(), size);
    return 0;
  }
  int tempCount = 0;
};

class InstallFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = here("root");
    std::vector<testwriter::File> files = {
        packed("install.xml", kTemplate), packed("install.log", "placeholder"),
        packed("app.txt", "application"), packed("conf.txt", "new settings"),
        packed("same.txt", "unchanged"),  packed("vars.txt", "root=[ROOT]"),
        packed("off.txt", "never"),       packed("picture.png", "png")};
    std::string bytes = testwriter::packageHeader(files) + testwriter::records(files, true);
    writeFile(here("package.bin"), bytes);
  }
  void TearDown() override {
    std::remove(here("package.bin").c_str());
    // Only the tree this test made below its own working directory.
    if (!root.empty() && QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }

  // Loads the package and template as a run has by its "CopyProgress" page.
  void prepare(FilesInstaller& engine, bool missing = false) {
    ASSERT_EQ(0, engine.openPackage(here("package.bin").c_str(), 0, 2));
    engine.loadTemplate(kTemplate);
    engine.setVariable("ROOT", root.c_str());
    engine.setVariable("MISSING", missing ? "1" : "0");
    engine.setVariable("WANT_OFF", "0");
    engine.setVariable("INSTALL_ERROR", "0");
    engine.readControlVariables();
    ASSERT_EQ(0, engine.readFileSets());
  }

  std::string root;
};

TEST_F(InstallFilesTest, WritesFilesDirectoriesLogAndTemplateCopy) {
  FilesInstaller engine;
  prepare(engine);
  RecordingUI ui;
  EXPECT_EQ(0, engine.installFiles(&ui));

  // Files at their expanded Dest, with a '\' of the template read as a
  // separator, and the text of an ExpandVarsInFile entry expanded.
  EXPECT_EQ("application", readFile(root + "/bin/deep/app.txt"));
  EXPECT_EQ("new settings", readFile(root + "/etc/conf.txt"));
  EXPECT_EQ("root=" + root, readFile(root + "/etc/vars.txt"));
  EXPECT_EQ(kTemplate, readFile(root + "/uninstall/install.xml"));
  // Conditions of an entry and of its set leave files out; so does a
  // missing OkIfMissing file and an entry without Dest.
  EXPECT_FALSE(QUtils::fileExists((root + "/skipped").c_str()));
  EXPECT_FALSE(QUtils::fileExists((root + "/off").c_str()));
  EXPECT_FALSE(QUtils::fileExists((root + "/etc/optional.txt").c_str()));
  EXPECT_EQ("0", engine.value("INSTALL_ERROR"));
  EXPECT_EQ(100, ui.progress);
  EXPECT_TRUE(contains(ui.lines, "Create " + root + "/bin/deep/app.txt"));
  EXPECT_EQ(0, engine.errorList->getCount());

  // The log replaced its placeholder, and the temporary files are gone.
  std::string log = slashes(readFile(root + "/uninstall/install.log"));
  EXPECT_EQ(0u, log.find(root + "/uninstall/install.xml\r\n" + root + "/uninstall/backup.bin\r\nNUMVARS\t"));
  EXPECT_NE(std::string::npos, log.find("VAR\tROOT\t" + root + "\r\n"));
  // Entries run in reverse document order within a set, so etc/ comes
  // first and makes the root too.
  EXPECT_EQ(log.find("DIR\t"), log.find("DIR\t2\t" + root + "/etc/\r\n"));
  EXPECT_NE(std::string::npos, log.find("DIR\t2\t" + root + "/bin/deep/\r\n"));
  EXPECT_NE(std::string::npos, log.find("FILE\tCREATE\t" + root + "/bin/deep/app.txt\r\n"));
  EXPECT_NE(std::string::npos, log.find("FILE\tOVER\t" + root + "/etc/conf.txt\r\n"));
  EXPECT_NE(std::string::npos, log.find("FILE\tCREATE\t" + root + "/uninstall/install.log\r\n"));
  EXPECT_EQ(std::string::npos, log.find("optional.txt"));
  EXPECT_EQ(std::string::npos, log.find("skipped"));
  // A directory is logged once: the second entry in it creates nothing.
  size_t uninstallDir = log.find("DIR\t1\t" + root + "/uninstall/\r\n");
  EXPECT_NE(std::string::npos, uninstallDir);
  EXPECT_EQ(std::string::npos, log.find("/uninstall/\r\n", log.find("\r\n", uninstallDir)));
  EXPECT_TRUE(BackupFile::isBackupFile((root + "/uninstall/backup.bin").c_str()));
  for (int i = 0; i < engine.tempCount; i++) EXPECT_FALSE(QUtils::fileExists(here("tmp" + std::to_string(i)).c_str()));
}

TEST_F(InstallFilesTest, BacksUpADifferentFileAndLeavesAnIdenticalOneAlone) {
  ASSERT_EQ(0, QUtils::createPath((root + "/etc/").c_str(), nullptr));
  writeFile(root + "/etc/conf.txt", "old settings, edited by hand");
  writeFile(root + "/etc/same.txt", "unchanged");
  namespace fs = std::filesystem;
  fs::file_time_type old = fs::last_write_time(fs::u8path(root + "/etc/same.txt")) - std::chrono::hours(48);
  fs::last_write_time(fs::u8path(root + "/etc/same.txt"), old);

  FilesInstaller engine;
  prepare(engine);
  RecordingUI ui;
  EXPECT_EQ(0, engine.installFiles(&ui));

  EXPECT_EQ("new settings", readFile(root + "/etc/conf.txt"));
  EXPECT_TRUE(old == fs::last_write_time(fs::u8path(root + "/etc/same.txt")));
  EXPECT_TRUE(contains(ui.lines, "Back up " + root + "/etc/conf.txt"));
  EXPECT_TRUE(contains(ui.lines, "Overwrite " + root + "/etc/conf.txt"));
  EXPECT_TRUE(contains(ui.lines, "Create " + root + "/etc/same.txt"));
  // The identical file is still logged, so that uninstalling removes it;
  // once, although its name was first tried as a new file.
  std::string log = slashes(readFile(root + "/uninstall/install.log"));
  std::string line = "FILE\tCREATE\t" + root + "/etc/same.txt\r\n";
  ASSERT_NE(std::string::npos, log.find(line));
  EXPECT_EQ(std::string::npos, log.find(line, log.find(line) + 1));

  // The backup's record carries the new file's check sum, so restoring it
  // puts the old content back over the untouched new file.
  BackupFile backup;
  ASSERT_EQ(0, backup.openForRestore((root + "/uninstall/backup.bin").c_str()));
  LinesConsole console;
  EXPECT_EQ(0, backup.restore(&console, nullptr));
  backup.close();
  EXPECT_EQ("old settings, edited by hand", readFile(root + "/etc/conf.txt"));
}

TEST_F(InstallFilesTest, AMissingFileIsAnErrorAndTheRestGoesOn) {
  FilesInstaller engine;
  prepare(engine, true);
  LinesConsole debugLog;
  engine.logConsole = &debugLog;
  RecordingUI ui;
  EXPECT_EQ(-1, engine.installFiles(&ui));
  engine.logConsole = nullptr;

  EXPECT_EQ("1", engine.value("INSTALL_ERROR"));
  EXPECT_TRUE(contains(ui.lines, "Encountered errors during installation:"));
  // The entries after the missing one (entries run in reverse document
  // order within a set) and the log's move still happen.
  EXPECT_EQ("application", readFile(root + "/bin/deep/app.txt"));
  EXPECT_EQ(kTemplate, readFile(root + "/uninstall/install.xml"));
  EXPECT_NE(std::string::npos, readFile(root + "/uninstall/install.log").find("NUMVARS\t"));
  EXPECT_EQ(std::string::npos, readFile(root + "/uninstall/install.log").find("absent.txt"));
  EXPECT_EQ(100, ui.progress);
  EXPECT_TRUE(debugLog.has("WARNING: An error occurred during installation"));
}

TEST_F(InstallFilesTest, WorksWithoutAFrontEnd) {
  FilesInstaller engine;
  prepare(engine, true);
  EXPECT_EQ(-1, engine.installFiles(nullptr));
  EXPECT_EQ("1", engine.value("INSTALL_ERROR"));
  EXPECT_EQ("new settings", readFile(root + "/etc/conf.txt"));
}

#ifndef _WIN32
// An engine that sees one real program, the child the test started, under
// the name of the file it holds. Ending it only asks (SIGTERM), as ending a
// program on Windows returns before it is gone, so that the engine's own
// wait is what the test watches; the program counts as running until it is
// reaped.
class OneProgramInstaller : public FilesInstaller {
 public:
  bool isAppRunning(const char* name, const char*) override { return isOurs(name) && !hasEnded(); }
  bool terminateApp(const char* name, bool) override { return isOurs(name) && kill(child, SIGTERM) == 0; }
  bool isOurs(const char* name) const { return child > 0 && name && programName == name; }
  bool hasEnded() {
    if (!ended && waitpid(child, &status, WNOHANG) == child) ended = true;
    return ended;
  }
  // Starts `script` under /bin/sh, which keeps it open while it runs, and
  // waits until it has written its file `ready` (the script's path with
  // ".ready").
  bool start(const std::string& script) {
    std::string ready = script + ".ready";
    programName = QUtils::baseName(script.c_str());
    const char* args[] = {"/bin/sh", script.c_str(), nullptr};
    if (posix_spawn(&child, args[0], nullptr, nullptr, const_cast<char**>(args), environ) != 0) return false;
    for (int i = 0; i < 500 && !QUtils::fileExists(ready.c_str()); i++) usleep(10 * 1000);
    return QUtils::fileExists(ready.c_str());
  }
  ~OneProgramInstaller() override {
    if (child > 0 && !hasEnded()) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
  pid_t child = 0;
  std::string programName;
  int status = 0;
  bool ended = false;
};

// The program that holds the target is asked to end, and the file goes only
// once it has: here it takes a moment after being asked (its TERM handler
// tidies up and exits with 7). One that won't end is waited for no longer
// than the limit.
TEST_F(InstallFilesTest, AProgramHoldingTheTargetIsEndedAndWaitedForBeforeTheFileGoes) {
  ASSERT_EQ(0, QUtils::createPath((root + "/").c_str(), nullptr));
  std::string target = root + "/tool.exe";
  writeFile(target, "trap 'sleep 0.3; exit 7' TERM\necho > \"$0.ready\"\nwhile :; do sleep 0.05; done\n");
  OneProgramInstaller engine;
  ASSERT_TRUE(engine.start(target));
  EXPECT_TRUE(engine.deleteRunningFile(nullptr, target.c_str(), 5000));
  EXPECT_TRUE(engine.ended) << "the file went while its program still ran";
  EXPECT_TRUE(WIFEXITED(engine.status) && WEXITSTATUS(engine.status) == 7) << "ended as asked, not killed";
  EXPECT_FALSE(QUtils::fileExists(target.c_str()));

  std::string stubborn = root + "/stubborn.exe";
  writeFile(stubborn, "trap '' TERM\necho > \"$0.ready\"\nwhile :; do sleep 0.05; done\n");
  OneProgramInstaller holder;
  ASSERT_TRUE(holder.start(stubborn));
  auto begun = std::chrono::steady_clock::now();
  // After the limit the file is deleted all the same, which Linux allows.
  EXPECT_TRUE(holder.deleteRunningFile(nullptr, stubborn.c_str(), 300));
  auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begun);
  EXPECT_GE(waited.count(), 300);
  EXPECT_LT(waited.count(), 3000);
  EXPECT_FALSE(holder.hasEnded());
}
#endif

TEST_F(InstallFilesTest, ARunningFileIsOnlyDeletedWhenItIsAProgram) {
  FilesInstaller engine;
  ASSERT_EQ(0, QUtils::createPath((root + "/").c_str(), nullptr));
  writeFile(root + "/tool.exe", "x");
  writeFile(root + "/notes.txt", "x");
  EXPECT_FALSE(engine.deleteRunningFile(nullptr, (root + "/notes.txt").c_str(), 2000));
  EXPECT_TRUE(QUtils::fileExists((root + "/notes.txt").c_str()));
  EXPECT_TRUE(engine.deleteRunningFile(nullptr, (root + "/tool.exe").c_str(), 2000));
  EXPECT_FALSE(QUtils::fileExists((root + "/tool.exe").c_str()));
  EXPECT_FALSE(engine.deleteRunningFile(nullptr, "", 2000));
}

#ifndef _WIN32
// A link that stands where a file goes is replaced by the file and saved as
// a link; what it leads to is neither read nor written.
TEST_F(InstallFilesTest, ALinkWhereAFileGoesIsReplacedAndSavedAsALink) {
  FilesInstaller engine;
  prepare(engine);
  std::string outside = here("outside.txt");
  writeFile(outside, "not the product's");
  ASSERT_EQ(0, QUtils::createPath((root + "/etc/").c_str(), nullptr));
  ASSERT_EQ(0, QUtils::makeSymbolicLink(outside.c_str(), (root + "/etc/conf.txt").c_str()));
  ASSERT_EQ(0, QUtils::makeSymbolicLink(outside.c_str(), (root + "/etc/same.txt").c_str()));
  RecordingUI ui;
  EXPECT_EQ(0, engine.installFiles(&ui));
  EXPECT_EQ("not the product's", readFile(outside));
  EXPECT_FALSE(QUtils::isLink((root + "/etc/conf.txt").c_str()));
  EXPECT_FALSE(QUtils::isLink((root + "/etc/same.txt").c_str()));
  EXPECT_EQ("new settings", readFile(root + "/etc/conf.txt"));
  EXPECT_EQ("unchanged", readFile(root + "/etc/same.txt"));
  std::string backup = readFile(root + "/uninstall/backup.bin");
  EXPECT_EQ(std::string::npos, backup.find("not the product's"));
  EXPECT_NE(std::string::npos, backup.find(root + "/etc/conf.txt" + std::string(1, '\0') + "L"));

  // Restored, the link is a link again.
  BackupFile restorer;
  ASSERT_EQ(0, restorer.openForRestore((root + "/uninstall/backup.bin").c_str()));
  EXPECT_EQ(0, restorer.restore(nullptr, nullptr));
  restorer.close();
  EXPECT_TRUE(QUtils::isLink((root + "/etc/conf.txt").c_str()));
  EXPECT_EQ("not the product's", readFile(root + "/etc/conf.txt"));
  QUtils::deleteFile(outside.c_str());
}
#endif

// A folder variable that is empty or relative would put the product
// somewhere else than the template means ("[ROOT]/etc" as "/etc", or below
// the working directory): the run stops before its first change, and says
// which variable it is. The runs here have relative values, so that a
// fault can only reach the test's own directory; the empty value, which
// would reach the machine's root, is only checked.
TEST_F(InstallFilesTest, AnEmptyOrRelativeFolderVariableStopsTheRunFirst) {
  for (const char* value : {"relative/place", "has\nline"}) {
    SCOPED_TRACE(value);
    FilesInstaller engine;
    prepare(engine);
    engine.setVariable("ROOT", value);
    RecordingUI ui;
    EXPECT_EQ(-1, engine.installFiles(&ui));
    EXPECT_EQ("1", engine.value("INSTALL_ERROR"));
    ASSERT_EQ(1, engine.errorList->getCount());
    std::string reason = (*engine.errorList)[0].getText();
    EXPECT_NE(std::string::npos, reason.find("The folder variable ROOT is no usable folder")) << reason;
    EXPECT_NE(std::string::npos, reason.find("nothing was installed or removed")) << reason;
    EXPECT_EQ(0, engine.tempCount) << "no log was begun";
    EXPECT_FALSE(QUtils::fileExists("relative"));
    EXPECT_FALSE(QUtils::fileExists("has\nline"));
  }
  FilesInstaller empty;
  prepare(empty);
  empty.setVariable("ROOT", "");
  EXPECT_EQ(-1, empty.checkDestinations(nullptr));
  EXPECT_STREQ("The folder variable ROOT is empty: nothing was installed or removed.", (*empty.errorList)[0].getText());

  // A whole path that isn't a root is a folder.
  FilesInstaller engine;
  char reason[300];
  EXPECT_TRUE(engine.isUsableFolder(root.c_str(), reason, sizeof reason));
  EXPECT_FALSE(engine.isUsableFolder("n", reason, sizeof reason));
  EXPECT_FALSE(engine.isUsableFolder("", reason, sizeof reason));
#ifndef _WIN32
  EXPECT_FALSE(engine.isUsableFolder("/", reason, sizeof reason));
  EXPECT_FALSE(engine.isUsableFolder("/usr", reason, sizeof reason));
  EXPECT_FALSE(engine.isUsableFolder("/opt/a\nb", reason, sizeof reason));
#endif
}

}  // namespace
