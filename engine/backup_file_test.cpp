// Tests of the backup of replaced files: saved and restored whole, only over
// files that still hold what was installed, and in part when damaged.
#include "engine/backup_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

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

const char kMagic[] = "Halvo Software installer backup file.\n";
// The permission bits behind a record's path ("M644" and its NUL), where
// the system keeps such bits.
#ifdef _WIN32
const size_t kModeAttributeSize = 0;
#else
const size_t kModeAttributeSize = 5;
#endif

// The check sum written out plainly: the length, each whole little-endian
// word, then each byte of the tail into the low byte.
uint32_t referenceCheckSum(const std::string& data) {
  uint32_t sum = static_cast<uint32_t>(data.size());
  size_t whole = data.size() / 4 * 4;
  for (size_t i = 0; i < whole; i += 4) {
    uint32_t word = 0;
    for (int b = 3; b >= 0; b--) word = (word << 8) | static_cast<unsigned char>(data[i + b]);
    sum ^= word;
  }
  for (size_t i = whole; i < data.size(); i++) sum ^= static_cast<unsigned char>(data[i]);
  return sum;
}

std::string pattern(size_t size, unsigned seed) {
  std::string data(size, '\0');
  for (size_t i = 0; i < size; i++) {
    seed = seed * 1103515245u + 12345u;
    data[i] = static_cast<char>(seed >> 16);
  }
  return data;
}

// Each test works in a directory of its own, made fresh under the scratch
// directory the test binary runs in, and removed with all it holds.
class BackupFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[QUtils::kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string name = std::string(here) + "\\backup-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&name[0], name.size() + 1));
    ASSERT_EQ(0, _mkdir(name.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string name = std::string(here) + "/backup-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&name[0]));
#endif
    directory = name;
  }
  void TearDown() override {
    // Only ever the absolute directory made above.
    if (directory.size() > 14 && directory.find("backup-") != std::string::npos) QUtils::deleteTree(directory.c_str());
  }
  std::string path(const std::string& name) const { return directory + "/" + name; }

  // Writes a backup of `files` (check sums computed) to `backup`.
  void writeBackup(const std::string& backup, const std::vector<std::string>& files) {
    BackupFile writer;
    writer.openForWriting(backup.c_str());
    for (const std::string& file : files) {
      QUtils::ErrorChain error;
      writer.addFile(error, file.c_str(), static_cast<int>(file.size() + 1), 0, false);
      ASSERT_TRUE(error.isEmpty()) << file;
    }
    EXPECT_EQ(0, writer.close());
  }

  int restore(const std::string& backup, LinesConsole* console, RecordingUI* ui,
              const QUtils::Table<QUtils::CharString>* allowed = nullptr) {
    BackupFile reader;
    if (reader.openForRestore(backup.c_str()) != 0) return -2;
    return reader.restore(console, ui, nullptr, allowed);
  }

  std::string directory;
};

TEST_F(BackupFileTest, RoundTripRestoresContentNamesAndEmptyFiles) {
  ASSERT_TRUE(QUtils::makeDirectory(path("sub").c_str()));
  std::vector<std::string> files = {path("plain.txt"), directory + "\\sub\\d\xC3\xA9j\xC3\xA0 \xE2\x82\xAC.bin",
                                    path("empty"), path("large.bin")};
  std::vector<std::string> contents = {"hello, world\n", "caf\xC3\xA9", "", pattern(300 * 1024 + 3, 7)};
  for (size_t i = 0; i < files.size(); i++) writeFile(files[i], contents[i]);
  std::string backup = path("backup.bin");
  writeBackup(backup, files);

  std::string raw = readFile(backup);
  ASSERT_GT(raw.size(), sizeof kMagic + 3);
  EXPECT_EQ(std::string(kMagic, sizeof kMagic), raw.substr(0, sizeof kMagic));
  EXPECT_EQ(std::string("\x01\x00\x00", 3), raw.substr(raw.size() - 3));
  EXPECT_TRUE(BackupFile::isBackupFile(backup.c_str()));

  for (const std::string& file : files) ASSERT_EQ(0, QUtils::deleteFile(file.c_str()));
  LinesConsole console;
  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, &console, &ui));
  for (size_t i = 0; i < files.size(); i++) EXPECT_EQ(contents[i], readFile(files[i])) << files[i];
  ASSERT_EQ(4u, ui.lines.size());
  for (size_t i = 0; i < files.size(); i++) EXPECT_EQ("Restore " + files[i], ui.lines[i]);
  EXPECT_TRUE(console.has("Zero saved size for " + files[2] + "; creating blank file"));
  EXPECT_TRUE(console.has("Restored " + files[3]));
  EXPECT_EQ(100, ui.progress);
  EXPECT_EQ("addFileLine <null> flush", ui.calls.back());

  // A backup without records is the magic and the end record, and restores
  // nothing.
  writeBackup(path("none.bin"), {});
  EXPECT_EQ(std::string(kMagic, sizeof kMagic) + std::string("\x01\x00\x00", 3), readFile(path("none.bin")));
  RecordingUI idle;
  EXPECT_EQ(0, restore(path("none.bin"), nullptr, &idle));
  EXPECT_TRUE(idle.lines.empty());
}

// As an installation uses it: each record carries the check sum of the file
// that replaced the saved one, so only files still in that state go back.
TEST_F(BackupFileTest, RestoresOnlyFilesThatStillHoldTheInstalledContent) {
  std::string untouched = path("untouched"), edited = path("edited"), gone = path("gone"), keep = path("keep"),
              wasEmpty = path("was-empty");
  writeFile(untouched, "old one");
  writeFile(edited, "old two");
  writeFile(gone, "old three");
  writeFile(keep, "");
  writeFile(wasEmpty, "old five");
  std::string backup = path("install.bak");
  {
    BackupFile writer;
    writer.openForWriting(backup.c_str());
    QUtils::ErrorChain error;
    for (const std::string& file : {untouched, edited, gone, keep}) {
      writer.addFile(error, file.c_str(), QUtils::kMaxPath, referenceCheckSum("new content"), true);
      ASSERT_TRUE(error.isEmpty());
    }
    // A saved check sum of 0 matches a file that is empty now.
    writer.addFile(error, wasEmpty.c_str(), QUtils::kMaxPath, 0, true);
    ASSERT_TRUE(error.isEmpty());
  }
  writeFile(untouched, "new content");
  writeFile(edited, "new content, then edited by hand");
  ASSERT_EQ(0, QUtils::deleteFile(gone.c_str()));
  writeFile(keep, "new content");
  writeFile(wasEmpty, "");

  LinesConsole console;
  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, &console, &ui));
  EXPECT_EQ("old one", readFile(untouched));
  EXPECT_EQ("new content, then edited by hand", readFile(edited));
  EXPECT_EQ("old three", readFile(gone));
  EXPECT_EQ("new content", readFile(keep));  // saved empty, present: left alone
  EXPECT_EQ("old five", readFile(wasEmpty));
  std::vector<std::string> expected = {"Restore " + untouched, "Left " + edited, "Restore " + gone,
                                       "Restore " + wasEmpty};
  EXPECT_EQ(expected, ui.lines);
  EXPECT_TRUE(console.has("Saved check sum different than existing one for " + edited + "; skipping"));
}

TEST_F(BackupFileTest, PassesOverARecordWhoseFileCannotBeWritten) {
  std::string blocked = path("blocked"), next = path("next");
  std::string big = pattern(100000, 3);
  writeFile(blocked, big);
  writeFile(next, "after the blocked one");
  std::string backup = path("b.bak");
  writeBackup(backup, {blocked, next});
  ASSERT_EQ(0, QUtils::deleteFile(blocked.c_str()));
  ASSERT_EQ(0, QUtils::deleteFile(next.c_str()));
  ASSERT_TRUE(QUtils::makeDirectory(blocked.c_str()));  // a directory where the file was

  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, nullptr, &ui));
  EXPECT_TRUE(QUtils::isDirectory(blocked.c_str()));
  EXPECT_EQ("after the blocked one", readFile(next));
  std::vector<std::string> expected = {"FAILED to restore " + blocked, "Restore " + next};
  EXPECT_EQ(expected, ui.lines);
}

// Cut at every length, a backup restores exactly its whole records, leaves
// no partial file, and reports the failure.
TEST_F(BackupFileTest, TruncatedBackupRestoresWhatIsWhole) {
  std::vector<std::string> files = {path("one"), path("two"), path("three")};
  std::vector<std::string> contents = {"first file", "", "third file, a little longer"};
  for (size_t i = 0; i < files.size(); i++) writeFile(files[i], contents[i]);
  std::string backup = path("full.bak");
  writeBackup(backup, files);
  std::string raw = readFile(backup);

  // Where each record ends in the file.
  std::vector<size_t> recordEnds;
  size_t at = sizeof kMagic;
  for (size_t i = 0; i < files.size(); i++) {
    at += 2 + files[i].size() + 1 + kModeAttributeSize + 8 + 4 + contents[i].size();
    recordEnds.push_back(at);
  }
  ASSERT_EQ(raw.size(), at + 3);

  std::string cut = path("cut.bak");
  for (size_t length = 0; length < raw.size(); length++) {
    SCOPED_TRACE(length);
    writeFile(cut, raw.substr(0, length));
    for (const std::string& file : files) QUtils::deleteFile(file.c_str());
    int result = restore(cut, nullptr, nullptr);
    EXPECT_EQ(length < sizeof kMagic ? -2 : -1, result);
    for (size_t i = 0; i < files.size(); i++) {
      if (length >= recordEnds[i])
        EXPECT_EQ(contents[i], readFile(files[i]));
      else
        EXPECT_EQ("<missing>", readFile(files[i]));
    }
  }
}

TEST_F(BackupFileTest, AddFileRefusesAndKeepsTheBackupValidAfterAFailure) {
  QUtils::ErrorChain error;
  char text[256];
  BackupFile closed;
  closed.addFile(error, path("x").c_str(), QUtils::kMaxPath, 0, false);
  error.toText(text, sizeof text);
  EXPECT_STREQ("[BackupFile::addFile] Not in write mode", text);

  std::string good = path("good"), backup = path("partial.bak"), nested = path("nested.bak");
  writeFile(good, "kept");
  writeBackup(nested, {});
  {
    BackupFile writer;
    writer.openForWriting(backup.c_str());
    writer.addFile(error, good.c_str(), QUtils::kMaxPath, 0, false);
    EXPECT_TRUE(error.isEmpty());
    // A backup is passed over without a record or an error, and says so.
    bool passedOver = false;
    writer.addFile(error, nested.c_str(), QUtils::kMaxPath, 0, false, &passedOver);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(passedOver);
    writer.addFile(error, good.c_str(), QUtils::kMaxPath, 0, false, &passedOver);
    EXPECT_FALSE(passedOver);
    // A caller that asks to hear of a file that isn't there gets no record
    // and keeps the backup going.
    bool unreadable = false;
    writer.addFile(error, path("gone").c_str(), QUtils::kMaxPath, 0, false, nullptr, &unreadable);
    EXPECT_TRUE(unreadable);
    error.toText(text, sizeof text);
    EXPECT_STREQ("[BackupFile::addFile] File does not exist", text);
    EXPECT_FALSE(writer.hasError);
    writer.addFile(error, path("missing").c_str(), QUtils::kMaxPath, 0, false);
    error.toText(text, sizeof text);
    EXPECT_STREQ("[BackupFile::addFile] Error opening file", text);
    writer.addFile(error, good.c_str(), QUtils::kMaxPath, 0, false);
    error.toText(text, sizeof text);
    EXPECT_STREQ("[BackupFile::addFile] There is a previous error", text);
  }
  // The failed record was cut off: two records, then the end record.
  EXPECT_EQ(sizeof kMagic + 2 * (2 + good.size() + 1 + kModeAttributeSize + 12 + 4) + 3, readFile(backup).size());
  ASSERT_EQ(0, QUtils::deleteFile(good.c_str()));
  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, nullptr, &ui));
  EXPECT_EQ("kept", readFile(good));
  EXPECT_EQ(2u, ui.lines.size());
}

// Only what the installation's log names goes back; a record of any other
// file, or of a path that depends on the working directory, is refused.
TEST_F(BackupFileTest, RestoresOnlyTheFilesItIsAllowedTo) {
  std::string mine = path("mine.conf"), other = path("other.conf");
  writeFile(mine, "saved");
  writeFile(other, "saved too");
  writeFile("relative.txt", "in the working directory");
  std::string backup = path("allowed.bak");
  writeBackup(backup, {mine, other, "relative.txt"});
  QUtils::deleteFile(mine.c_str());
  QUtils::deleteFile(other.c_str());
  QUtils::deleteFile("relative.txt");
  QUtils::Table<QUtils::CharString> allowed;
  allowed.add(QUtils::CharString(mine.c_str()));
  allowed.add(QUtils::CharString("relative.txt"));
  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, nullptr, &ui, &allowed));
  EXPECT_EQ("saved", readFile(mine));
  EXPECT_EQ("<missing>", readFile(other));
  EXPECT_EQ("<missing>", readFile("relative.txt"));
  std::vector<std::string> expected = {"Restore " + mine, "FAILED to restore " + other + ": not a file of the installation",
                                       "FAILED to restore relative.txt: not a file of the installation"};
  EXPECT_EQ(expected, ui.lines);
}

#ifndef _WIN32
// A symbolic link is saved as a link and comes back as one: what it leads to
// is neither read into the backup nor written when it is restored. A file
// comes back with its permission bits.
TEST_F(BackupFileTest, LinksStayLinksAndFilesKeepTheirModes) {
  std::string secret = path("secret"), link = path("link"), script = path("tool.sh"), closed = path("closed");
  writeFile(secret, "not for the backup");
  ASSERT_EQ(0, QUtils::makeSymbolicLink(secret.c_str(), link.c_str()));
  writeFile(script, "#!/bin/sh\n");
  ASSERT_EQ(0, QUtils::setFileMode(script.c_str(), 0755));
  writeFile(closed, "mine only");
  ASSERT_EQ(0, QUtils::setFileMode(closed.c_str(), 0600));
  std::string backup = path("links.bak");
  writeBackup(backup, {link, script, closed});
  EXPECT_EQ(std::string::npos, readFile(backup).find("not for the backup"));

  QUtils::deleteFile(link.c_str());
  QUtils::deleteFile(script.c_str());
  QUtils::deleteFile(closed.c_str());

  RecordingUI ui;
  EXPECT_EQ(0, restore(backup, nullptr, &ui));
  EXPECT_TRUE(QUtils::isLink(link.c_str()));
  char text[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::readSymbolicLink(link.c_str(), text, sizeof text));
  EXPECT_EQ(secret, text);
  EXPECT_EQ("not for the backup", readFile(secret));
  EXPECT_EQ(0755, QUtils::getFileMode(script.c_str()));
  EXPECT_EQ(0600, QUtils::getFileMode(closed.c_str()));
  EXPECT_EQ("mine only", readFile(closed));
}
#endif

TEST_F(BackupFileTest, RecognisesBackupsAndSumsFiles) {
  writeFile(path("text-only"), kMagic);
  writeFile(path("junk"), "Halvo Software installer backup file!\n");
  EXPECT_TRUE(BackupFile::isBackupFile(path("text-only").c_str()));
  EXPECT_FALSE(BackupFile::isBackupFile(path("junk").c_str()));
  EXPECT_FALSE(BackupFile::isBackupFile(directory.c_str()));
  BackupFile reader;
  EXPECT_EQ(-1, reader.openForRestore(path("text-only").c_str()));  // no NUL behind the text

  writeFile(path("ten"), std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A", 10));
  // 10 ^ 0x04030201 ^ 0x08070605 ^ 0x09 ^ 0x0A
  EXPECT_EQ(0x0C04040Du, BackupFile::computeCheckSum(path("ten").c_str()));
  EXPECT_EQ(0u, BackupFile::computeCheckSum(path("absent").c_str()));
  // Longer than one read block, with a tail of three bytes.
  std::string data = pattern(3 * 32768 + 1003, 11);
  writeFile(path("long"), data);
  EXPECT_EQ(referenceCheckSum(data), BackupFile::computeCheckSum(path("long").c_str()));

  // The sum of data handed over in pieces, as a file stage does while the
  // stripes inflate, wherever the pieces are cut: inside a word, and into
  // the incomplete last one.
  std::string odd = pattern(103, 5);
  for (size_t first = 0; first <= odd.size(); first += 7) {
    for (size_t second : {size_t(1), size_t(4), size_t(13)}) {
      BackupCheckSum sum(static_cast<int64_t>(odd.size()));
      const unsigned char* bytes = reinterpret_cast<const unsigned char*>(odd.data());
      size_t at = std::min(first, odd.size());
      sum.add(bytes, at);
      while (at < odd.size()) {
        size_t piece = std::min(second, odd.size() - at);
        sum.add(bytes + at, piece);
        at += piece;
      }
      ASSERT_EQ(referenceCheckSum(odd), sum.value()) << first << " then " << second;
    }
  }
}

}  // namespace
