// Tests of the backup of an installation that an upgrade takes over: saved
// from its log, put back, and put back in part when cut short.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine/backup_file.h"
#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

// The text with the line ends of a text-mode write made plain.
std::string withoutCR(const std::string& text) {
  std::string plain;
  for (char c : text)
    if (c != '\r') plain += c;
  return plain;
}

// An engine whose temporary names lie in the test's directory.
class BackupInstaller : public TestInstaller {
 public:
  int getTempFileName(char* buffer, int size) override {
    std::string name = directory + "/temp" + std::to_string(++made);
    QUtils::copyText(buffer, name.c_str(), size);
    return 0;
  }
  std::string directory;
  int made = 0;
};

// A directory of the test's own under the scratch directory the binary runs
// in, removed with all it holds at the end.
class InstalledBackupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[QUtils::kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string name = std::string(here) + "\\installed-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&name[0], name.size() + 1));
    ASSERT_EQ(0, _mkdir(name.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string name = std::string(here) + "/installed-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&name[0]));
#endif
    directory = name;
    engine.directory = name;
  }
  void TearDown() override {
    if (directory.size() > 17 && directory.find("installed-") != std::string::npos)
      QUtils::deleteTree(directory.c_str());
  }
  std::string path(const std::string& name) const { return directory + "/" + name; }
  std::string errors() {
    std::string all;
    for (int i = 0; i < engine.errorList->getCount(); i++) all += std::string((*engine.errorList)[i].getText()) + "\n";
    return all;
  }

  std::string directory;
  BackupInstaller engine;
};

// The older installation is saved from its log, removed, and put back:
// files, shortcuts, an empty directory, and an earlier backup kept aside.
TEST_F(InstalledBackupTest, SavesAnInstallationFromItsLogAndPutsItBack) {
  std::string app = path("app"), data = path("app/data"), empty = path("app/empty");
  ASSERT_TRUE(QUtils::makeDirectory(app.c_str()));
  ASSERT_TRUE(QUtils::makeDirectory(data.c_str()));
  ASSERT_TRUE(QUtils::makeDirectory(empty.c_str()));
  writeFile(path("app/prog"), "program");
  QUtils::setExecutable(path("app/prog").c_str());
  // Where files have an execute bit, the list names the programs too.
  std::string executables = QUtils::isExecutable(path("app/prog").c_str()) ? "EXECUTABLE\t" + path("app/prog") + "\n" : "";
  writeFile(path("app/data/table.dat"), std::string(5000, 'x'));
  writeFile(path("app/Prog.desktop"), "[Desktop Entry]\n");
  std::string earlier = path("app/backup.bin");
  {
    BackupFile older;
    older.openForWriting(earlier.c_str());
  }
  std::string earlierBytes = readFile(earlier);
  std::string log = path("install.log");
  // A header line that looks like a tag must not count.
  writeFile(log, "FILE\t" + path("not/a/file") + "\r\n" + earlier + "\r\nNUMVARS\t1\r\nVAR\tX\t1\r\n" +
                     "DIR\t1\t" + app + "\r\nDIR\t2\t" + data + "\r\nDIR\t1\t" + empty + "\r\n" +
                     "FILE\tCREATE\t" + path("app/prog") + "\r\nFILE\tOVER\t" + path("app/data/table.dat") +
                     "\r\nENV\tADD\tPATH\t" + app + "\r\nSHORTCUT\tCREATE\t" + path("app/Prog.desktop") +
                     "\r\nFILE\tCREATE\t" + path("app/vanished") + "\r\nFILE\tCREATE\t" + earlier + "\r\n");

  RecordingUI ui;
  std::string backup = path("old.bak"), dirs = path("old.dirs");
  EXPECT_TRUE(engine.backupInstalledFiles(&ui, backup.c_str(), dirs.c_str(), log.c_str()));
  EXPECT_EQ(app + "\n" + data + "\n" + empty + "\n" + executables, withoutCR(readFile(dirs)));
  EXPECT_EQ("FAILED to back up " + path("app/vanished") + ": File does not exist\n", errors());
  ASSERT_EQ(5u, ui.lines.size());
  EXPECT_EQ("Back up " + path("app/prog"), ui.lines[0]);
  EXPECT_EQ("Back up " + earlier, ui.lines[4]);
  EXPECT_EQ(100, ui.progress);
  ASSERT_EQ(1, engine.copiedFiles.getCount());
  EXPECT_EQ(earlier, engine.copiedFiles[0].original.getText());
  EXPECT_EQ(earlierBytes, readFile(engine.copiedFiles[0].temporary.getText()));

  ASSERT_TRUE(QUtils::deleteTree(app.c_str()));
  QUtils::copyText(engine.installedBackupFile, backup.c_str(), sizeof engine.installedBackupFile);
  QUtils::copyText(engine.installedDirListFile, dirs.c_str(), sizeof engine.installedDirListFile);
  RecordingUI back;
  EXPECT_TRUE(engine.restoreInstalledFiles(&back));
  EXPECT_EQ("program", readFile(path("app/prog")));
  EXPECT_EQ(!executables.empty(), QUtils::isExecutable(path("app/prog").c_str()));
  EXPECT_FALSE(QUtils::isExecutable(path("app/data/table.dat").c_str()));
  EXPECT_EQ(std::string(5000, 'x'), readFile(path("app/data/table.dat")));
  EXPECT_EQ("[Desktop Entry]\n", readFile(path("app/Prog.desktop")));
  EXPECT_TRUE(QUtils::isDirectory(empty.c_str()));
  EXPECT_EQ("<missing>", readFile(earlier));  // put back from copiedFiles, not from the backup
}

#ifndef _WIN32
// A link of the older installation is kept as a link: what it leads to is
// neither saved nor touched, and the restore makes the link again.
TEST_F(InstalledBackupTest, LinksComeBackAsLinks) {
  writeFile(path("outside"), "not the product's");
  ASSERT_TRUE(QUtils::makeDirectory(path("app").c_str()));
  ASSERT_EQ(0, QUtils::makeSymbolicLink("../outside", path("app/lib").c_str()));
  std::string log = path("install.log");
  writeFile(log, "FILE\tCREATE\t" + path("app/lib") + "\r\n");
  std::string backup = path("old.bak"), dirs = path("old.dirs");
  ASSERT_TRUE(engine.backupInstalledFiles(nullptr, backup.c_str(), dirs.c_str(), log.c_str()));

  // The older installation was removed, the link with it.
  ASSERT_EQ(0, QUtils::deleteFile(path("app/lib").c_str()));
  QUtils::copyText(engine.installedBackupFile, backup.c_str(), sizeof engine.installedBackupFile);
  QUtils::copyText(engine.installedDirListFile, dirs.c_str(), sizeof engine.installedDirListFile);
  EXPECT_TRUE(engine.restoreInstalledFiles(nullptr));
  char target[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::readSymbolicLink(path("app/lib").c_str(), target, sizeof target));
  EXPECT_STREQ("../outside", target);
  EXPECT_EQ("not the product's", readFile(path("outside")));
}
#endif

TEST_F(InstalledBackupTest, StopsAtTheFirstFileThatCannotBeSaved) {
  writeFile(path("a"), "a");
  writeFile(path("b"), "b");
  std::string log = path("install.log");
  writeFile(log, "FILE\tCREATE\t" + path("a") + "\nFILE\tCREATE\t" + path("b") + "\n");
  RecordingUI ui;
  // The backup can't be made, so the first add fails and nothing follows.
  EXPECT_FALSE(engine.backupInstalledFiles(&ui, path("no/such/dir.bak").c_str(), path("dirs").c_str(), log.c_str()));
  EXPECT_EQ("FAILED to back up " + path("a") + ": [BackupFile::addFile] There is a previous error\n" +
                "Error in backup: stopping proccess\n",
            errors());
  std::vector<std::string> expected = {"FAILED to back up " + path("a") +
                                           ": [BackupFile::addFile] There is a previous error",
                                       "Error in backup: stopping proccess"};
  EXPECT_EQ(expected, ui.lines);
}

// A backup of the older installation that was cut short still gives back
// every whole record; the file of the cut one and the failure are named.
TEST_F(InstalledBackupTest, ACutBackupPutsBackItsWholeRecordsAndNamesTheRest) {
  writeFile(path("one"), "first file");
  writeFile(path("two"), "second file");
  std::string log = path("install.log");
  writeFile(log, "FILE\tCREATE\t" + path("one") + "\r\nFILE\tCREATE\t" + path("two") + "\r\n");
  std::string backup = path("old.bak"), dirs = path("old.dirs");
  ASSERT_TRUE(engine.backupInstalledFiles(nullptr, backup.c_str(), dirs.c_str(), log.c_str()));
  std::string raw = readFile(backup);
  // Into the second record's content: its end record and last bytes go.
  writeFile(backup, raw.substr(0, raw.size() - 3 - 4));
  QUtils::deleteFile(path("one").c_str());
  QUtils::deleteFile(path("two").c_str());

  QUtils::copyText(engine.installedBackupFile, backup.c_str(), sizeof engine.installedBackupFile);
  QUtils::copyText(engine.installedDirListFile, dirs.c_str(), sizeof engine.installedDirListFile);
  RecordingUI ui;
  EXPECT_FALSE(engine.restoreInstalledFiles(&ui));
  EXPECT_EQ("first file", readFile(path("one")));
  EXPECT_EQ("<missing>", readFile(path("two")));
  std::vector<std::string> expected = {"Restore " + path("one"), "FAILED to restore " + path("two"),
                                       "FAILED to restore all of the previous installation from " + backup};
  EXPECT_EQ(expected, ui.lines);
  EXPECT_EQ(expected[2] + "\n", errors());
}

}  // namespace
