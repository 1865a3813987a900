// Tests of the journal: its text and file, damaged journals, the copies of a
// backup that an undo reads, and the recovery of an interrupted run.
#include "engine/journal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "engine/backup_file.h"
#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"

namespace {

Journal sampleJournal() {
  Journal journal;
  journal.kind = Journal::kRevert;
  journal.stage = Journal::kPlacing;
  journal.pid = 4242;
  journal.product = "Demo Product";
  journal.log = "/tmp/qli1.tmp";
  journal.backup = "/tmp/qli2.tmp";
  journal.templateCopy = "/tmp/qli3.tmp";
  journal.finalLog = "/opt/Demo/uninstall/install.log";
  journal.finalBackup = "/opt/Demo/uninstall/backup.bin";
  journal.oldBackup = "/tmp/qli4.tmp";
  journal.oldDirList = "/tmp/qli5.tmp";
  journal.copied = {{"/opt/Demo/uninstall/backup.bin", "/tmp/qli6.tmp"}};
  journal.temporaries = {"/tmp/qli7.tmp", "/tmp/a=b.tmp"};
  journal.created = {"/opt/Demo/etc/settings.conf"};
  return journal;
}

void expectSame(const Journal& a, const Journal& b) {
  EXPECT_EQ(a.kind, b.kind);
  EXPECT_EQ(a.stage, b.stage);
  EXPECT_EQ(a.pid, b.pid);
  EXPECT_EQ(a.product, b.product);
  EXPECT_EQ(a.log, b.log);
  EXPECT_EQ(a.backup, b.backup);
  EXPECT_EQ(a.templateCopy, b.templateCopy);
  EXPECT_EQ(a.finalLog, b.finalLog);
  EXPECT_EQ(a.finalBackup, b.finalBackup);
  EXPECT_EQ(a.oldBackup, b.oldBackup);
  EXPECT_EQ(a.oldDirList, b.oldDirList);
  EXPECT_EQ(a.copied, b.copied);
  EXPECT_EQ(a.temporaries, b.temporaries);
  EXPECT_EQ(a.created, b.created);
}

TEST(JournalTest, RoundTripsThroughItsFileAndReplacesAnOlderOne) {
  Journal journal = sampleJournal();
  std::string path = here("round.journal");
  Journal older;
  older.kind = Journal::kInstall;
  ASSERT_TRUE(writeJournal(path.c_str(), older));
  ASSERT_TRUE(writeJournal(path.c_str(), journal));
  Journal read;
  ASSERT_EQ(kJournalRead, readJournal(path.c_str(), &read));
  expectSame(journal, read);
  EXPECT_EQ(path, read.file);
  EXPECT_EQ(0u, readFile(path).find(std::string(kJournalFormat) + "\nKIND=revert\nSTAGE=placing\nPID=4242\n"));
  EXPECT_FALSE(QUtils::fileExists((path + ".qlux-new").c_str()));
  EXPECT_EQ(kJournalMissing, readJournal(here("none.journal").c_str(), &read));
  QUtils::deleteFile(path.c_str());
}

// The new text goes beside the journal first: a write that fails leaves the
// older journal whole.
TEST(JournalTest, AFailedWriteLeavesTheOlderJournal) {
  std::string path = here("kept.journal");
  Journal older = sampleJournal();
  ASSERT_TRUE(writeJournal(path.c_str(), older));
  ASSERT_TRUE(QUtils::makeDirectory((path + ".qlux-new").c_str()));
  Journal newer;
  newer.kind = Journal::kInstall;
  EXPECT_FALSE(writeJournal(path.c_str(), newer));
  Journal read;
  ASSERT_EQ(kJournalRead, readJournal(path.c_str(), &read));
  expectSame(older, read);
  QUtils::removeDirectory((path + ".qlux-new").c_str());
  QUtils::deleteFile(path.c_str());
}

TEST(JournalTest, RefusesDamagedTextWhole) {
  std::string good = formatJournal(sampleJournal());
  Journal out;
  out.product = "untouched";
  // Every cut that loses any of the end line.
  for (size_t length = 0; length + 1 < good.size(); length++)
    EXPECT_FALSE(parseJournal(good.substr(0, length), &out)) << length;
  EXPECT_TRUE(parseJournal(good.substr(0, good.size() - 1), &out));  // only the last line end is missing
  out.product = "untouched";
  const char* damaged[] = {
      "qlux-journal 2\nKIND=install\nSTAGE=working\nEND\n",
      "qlux-journal 1\nKIND=upgrade\nSTAGE=working\nEND\n",
      "qlux-journal 1\nKIND=install\nSTAGE=sleeping\nEND\n",
      "qlux-journal 1\nSTAGE=working\nEND\n",
      "qlux-journal 1\nKIND=install\nEND\n",
      "qlux-journal 1\nKIND=install\nSTAGE=working\nPID=12x\nEND\n",
      "qlux-journal 1\nKIND=install\nSTAGE=working\nCOPIED=no tab\nEND\n",
      "qlux-journal 1\nKIND=install\nSTAGE=working\nno equals sign\nEND\n",
      "qlux-journal 1\nKIND=install\nSTAGE=working\nEND\nLOG=/after/the/end\n",
  };
  for (const char* text : damaged) EXPECT_FALSE(parseJournal(text, &out)) << text;
  EXPECT_EQ("untouched", out.product);
  // A name of a newer writer is passed over; CR LF line ends are read too.
  EXPECT_TRUE(parseJournal("qlux-journal 1\r\nKIND=uninstall\r\nSTAGE=done\r\nLATER=1\r\nEND\r\n", &out));
  EXPECT_EQ(Journal::kUninstall, out.kind);
  EXPECT_EQ(Journal::kDone, out.stage);
}

TEST(JournalTest, FileNamesAreSafe) {
  EXPECT_EQ("Demo_Product_2_0.journal", journalFileName("Demo Product/2.0"));
  EXPECT_EQ("a_b_c-d.journal", journalFileName("a\\b:c-d"));
  EXPECT_EQ("__.journal", journalFileName(".."));
  EXPECT_EQ("product.journal", journalFileName(""));
}

// A backup cut off in the middle of its third record, as a killed writer
// leaves it.
class BackupCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(one, "first old");
    writeFile(two, "second old");
    writeFile(three, "third old, long enough to be cut");
    BackupFile backup;
    backup.openForWriting(cut.c_str());
    QUtils::ErrorChain error;
    backup.addFile(error, one.c_str(), QUtils::kMaxPath, 0, false);
    backup.addFile(error, two.c_str(), QUtils::kMaxPath, 0, false);
    backup.addFile(error, three.c_str(), QUtils::kMaxPath, 0, false);
    ASSERT_EQ(0, backup.close());
    std::string whole = readFile(cut);
    writeFile(cut, whole.substr(0, whole.size() - 12));  // the end record and part of the third content
  }
  void TearDown() override {
    for (const std::string& path : {one, two, three, cut, copy, forced}) QUtils::deleteFile(path.c_str());
  }

  int restore(const std::string& path) {
    BackupFile backup;
    if (backup.openForRestore(path.c_str()) != 0) return -2;
    QUtils::PFileConsole quiet;
    return backup.restore(&quiet, nullptr);
  }

  std::string one = here("one.txt"), two = here("two.txt"), three = here("three.txt");
  std::string cut = here("cut.bin"), copy = here("copy.bin"), forced = here("forced.bin");
};

TEST_F(BackupCopyTest, ForcedCopyEndsCleanlyAndPutsEveryWholeRecordBack) {
  EXPECT_EQ(-1, restore(cut));  // the reader stops at the cut
  // One file was written half, one never: both get their saved content.
  writeFile(one, "first, half writ");
  QUtils::deleteFile(two.c_str());
  writeFile(three, "third new");
  EXPECT_EQ(2, copyBackupRecords(cut.c_str(), copy.c_str(), kForceRecords));
  EXPECT_EQ(0, restore(copy));
  EXPECT_EQ("first old", readFile(one));
  EXPECT_EQ("second old", readFile(two));
  EXPECT_EQ("third new", readFile(three));
}

TEST_F(BackupCopyTest, PendingCopyKeepsWhatRestoreWouldWriteNow) {
  // The first file is as it was saved; the second was changed since.
  writeFile(two, "second, changed by the user");
  EXPECT_EQ(1, copyBackupRecords(cut.c_str(), copy.c_str(), kPendingRecords));
  // The restore that used it was killed half way; forced, the kept record
  // goes back, and the user's change stays.
  writeFile(one, "first, cut by a kill");
  EXPECT_EQ(1, copyBackupRecords(copy.c_str(), forced.c_str(), kForceRecords));
  EXPECT_EQ(0, restore(forced));
  EXPECT_EQ("first old", readFile(one));
  EXPECT_EQ("second, changed by the user", readFile(two));
}

// An engine with a journal directory, processes that it is told about, and
// second engines of its own kind for the recovery.
class JournalInstaller : public TestInstaller {
 public:
  bool getJournalDirectory(char* buffer, int size) override {
    QUtils::copyText(buffer, here("journals").c_str(), size);
    return true;
  }
  long getProcessId() override { return 100; }
  bool isProcessRunning(long pid) override { return pid == running; }
  Installer* createEngine() override { return new JournalInstaller(); }
  long running = 0;
};

class RecoveryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine.logConsole = &debugLog;
    ASSERT_EQ(0, QUtils::createPath((here("journals") + "/").c_str(), nullptr));
    ASSERT_TRUE(engine.getJournalPath("Demo", path, sizeof path));
  }
  void TearDown() override {
    if (QUtils::isDirectory(here("machine").c_str())) QUtils::deleteTree(here("machine").c_str());
    if (QUtils::isDirectory(here("journals").c_str())) QUtils::deleteTree(here("journals").c_str());
  }
  std::string inJournals(const std::string& name) { return here("journals/" + name); }

  JournalInstaller engine;
  LinesConsole debugLog;
  char path[QUtils::kMaxPath];
};

TEST_F(RecoveryTest, ADamagedJournalIsLoggedAndRemoved) {
  writeFile(path, "qlux-journal 1\nKIND=install\nSTAGE=wor");
  Journal found;
  char message[200];
  EXPECT_EQ(0, engine.findInterruptedRun("Demo", &found, message, sizeof message));
  EXPECT_FALSE(QUtils::fileExists(path));
  EXPECT_NE(std::string::npos, debugLog.all.find("can't be read; it is removed"));
}

// A path in this run's own directory, where the run's temporary files lie.
std::string inRun(const std::string& name) {
  char directory[QUtils::kMaxPath];
  EXPECT_TRUE(QUtils::getRunDirectory(directory, sizeof directory));
  std::string path = std::string(directory) + "/" + name;
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

TEST_F(RecoveryTest, AJournalOfARunningProcessIsLeftAlone) {
  Journal journal;
  journal.kind = Journal::kRevert;
  journal.stage = Journal::kWorking;
  journal.product = "Demo";
  journal.pid = 4242;
  journal.log = inRun("qli1.tmp");
  journal.oldBackup = inRun("qli2.tmp");
  ASSERT_TRUE(writeJournal(path, journal));
  engine.running = 4242;
  Journal found;
  char message[200];
  EXPECT_EQ(0, engine.findInterruptedRun("Demo", &found, message, sizeof message));
  EXPECT_TRUE(QUtils::fileExists(path));
  engine.running = 0;
  EXPECT_EQ(Installer::kInterruptedRunFound, engine.findInterruptedRun("Demo", &found, message, sizeof message));
  EXPECT_EQ(Journal::kRevert, found.kind);
}

// Done, the run left only temporary files: those in its run directory and
// beside the journal go.
TEST_F(RecoveryTest, AFinishedRunLeavesOnlyItsTemporaryFilesToDelete) {
  std::string stray = inJournals("temp-stray");
  std::string temporary = inRun("qli7.tmp");
  writeFile(stray, "x");
  writeFile(temporary, "y");
  Journal journal;
  journal.kind = Journal::kInstall;
  journal.stage = Journal::kDone;
  journal.product = "Demo";
  journal.oldBackup = stray;
  journal.temporaries = {temporary};
  ASSERT_TRUE(writeJournal(path, journal));
  Journal found;
  char message[200];
  ASSERT_EQ(Installer::kInterruptedRunFound, engine.findInterruptedRun("Demo", &found, message, sizeof message));
  EXPECT_STREQ("", message);
  EXPECT_EQ(0, engine.recoverInterruptedRun(found));
  EXPECT_FALSE(QUtils::fileExists(stray.c_str()));
  EXPECT_FALSE(QUtils::fileExists(temporary.c_str()));
  EXPECT_FALSE(QUtils::fileExists(path));
}

// A journal gives a run as root its orders: one that names a file outside
// the places its run makes temporary files in, a file to delete that its
// log never wrote, or that another user could have written, is refused
// whole. The user is told, nothing is touched, and the journal stays.
TEST_F(RecoveryTest, AnUntrustedJournalIsRefusedAndLeft) {
  std::string outside = here("machine/keep.txt");
  ASSERT_EQ(0, QUtils::createPath(here("machine/").c_str(), nullptr));
  writeFile(outside, "mine");
  std::string log = inRun("qli1.tmp");
  writeFile(log, "template\nbackup\nNUMVARS\t0\nFILE\tCREATE\t" + here("machine/product.txt") + "\r\n");

  Journal outsideTemporary;
  outsideTemporary.kind = Journal::kInstall;
  outsideTemporary.stage = Journal::kDone;
  outsideTemporary.product = "Demo";
  outsideTemporary.temporaries = {outside};

  Journal strangeNew;
  strangeNew.kind = Journal::kInstall;
  strangeNew.stage = Journal::kWorking;
  strangeNew.product = "Demo";
  strangeNew.log = log;
  strangeNew.created = {outside};

  for (const Journal& journal : {outsideTemporary, strangeNew}) {
    ASSERT_TRUE(writeJournal(path, journal));
    Journal found;
    char message[400];
    EXPECT_EQ(Installer::kInterruptedRunRefused, engine.findInterruptedRun("Demo", &found, message, sizeof message));
    EXPECT_NE(std::string::npos, std::string(message).find("can't be trusted (it names " + outside)) << message;
    EXPECT_EQ("mine", readFile(outside));
    EXPECT_TRUE(QUtils::fileExists(path));
  }

#ifndef _WIN32
  // A journal that others may write to, or another user's.
  Journal plain;
  plain.kind = Journal::kInstall;
  plain.stage = Journal::kDone;
  plain.product = "Demo";
  ASSERT_TRUE(writeJournal(path, plain));
  ASSERT_EQ(0, chmod(path, 0666));
  Journal found;
  char message[400];
  EXPECT_EQ(Installer::kInterruptedRunRefused, engine.findInterruptedRun("Demo", &found, message, sizeof message));
  EXPECT_NE(std::string::npos, std::string(message).find("can be changed by other users")) << message;
  if (geteuid() == 0) {
    ASSERT_EQ(0, chmod(path, 0600));
    ASSERT_EQ(0, chown(path, 65534, 65534));
    EXPECT_EQ(Installer::kInterruptedRunRefused, engine.findInterruptedRun("Demo", &found, message, sizeof message));
    EXPECT_NE(std::string::npos, std::string(message).find("belongs to another user")) << message;
  }
  EXPECT_TRUE(QUtils::fileExists(path));
#endif
}

// The recovery of an older installation that the run had removed: its
// saved files come back, and one that can't be written back, or a backup
// whose records can't be copied for the restore, is reported and fails the
// recovery instead of passing for success.
TEST_F(RecoveryTest, ASavedFileThatCantBeWrittenBackFailsTheRecovery) {
  std::string app = here("machine/app.txt");
  ASSERT_EQ(0, QUtils::createPath(here("machine/").c_str(), nullptr));
  writeFile(app, "old app");
  std::string oldBackup = inRun("qli2.tmp");
  BackupFile backup;
  backup.openForWriting(oldBackup.c_str());
  QUtils::ErrorChain error;
  backup.addFile(error, app.c_str(), QUtils::kMaxPath, 0, false);
  ASSERT_EQ(0, backup.close());
  QUtils::deleteFile(app.c_str());
  std::string dirList = inRun("qli3.tmp");
  writeFile(dirList, here("machine/") + "\n");
  std::string savedLog = inRun("qli4.tmp");
  writeFile(savedLog, "the older installation's log");
  writeFile(here("machine/blocked"), "a file where the log's folder goes");

  Journal journal;
  journal.kind = Journal::kInstall;
  journal.stage = Journal::kWorking;
  journal.product = "Demo";
  journal.oldBackup = oldBackup;
  journal.oldDirList = dirList;
  journal.copied = {{here("machine/blocked/install.log"), savedLog}};
  journal.file = path;
  ASSERT_TRUE(writeJournal(path, journal));
  EXPECT_EQ(-1, engine.recoverInterruptedRun(journal));
  EXPECT_EQ("old app", readFile(app));
  EXPECT_NE(std::string::npos, debugLog.all.find("ERROR: Recovery: the saved file " + savedLog)) << debugLog.all;

  // The restore's copy of the backup lies beside the journal: a folder
  // there keeps it from being written.
  QUtils::deleteFile(app.c_str());
  journal.copied.clear();
  backup.openForWriting(oldBackup.c_str());
  writeFile(app, "old app");
  backup.addFile(error, app.c_str(), QUtils::kMaxPath, 0, false);
  ASSERT_EQ(0, backup.close());
  QUtils::deleteFile(app.c_str());
  writeFile(dirList, here("machine/") + "\n");
  ASSERT_EQ(0, QUtils::createPath((std::string(path) + ".older/").c_str(), nullptr));
  ASSERT_TRUE(writeJournal(path, journal));
  EXPECT_EQ(-1, engine.recoverInterruptedRun(journal));
  EXPECT_FALSE(QUtils::fileExists(app.c_str()));
  EXPECT_NE(std::string::npos, debugLog.all.find("ERROR: Recovery: the saved files in " + oldBackup)) << debugLog.all;
}

}  // namespace
