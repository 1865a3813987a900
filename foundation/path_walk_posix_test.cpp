// The file layer where other users can write: links that they put on the
// way, FIFOs and links at a name, and the bits of what the layer makes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "foundation/text_lines.h"

namespace {

// Another user's id for the links an attacker makes; root can give a link
// any owner, other users can't, and those tests are skipped.
const uid_t kOtherUser = 65534;

class PathWalkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[4096];
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    directory = std::string(here) + "/walk-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&directory[0]));
    ASSERT_EQ(0, mkdir(path("tree").c_str(), 0755));
    ASSERT_EQ(0, mkdir(path("outside").c_str(), 0755));
    write(path("outside/victim"), "victim");
  }
  void TearDown() override {
    // Only ever the absolute directory made above.
    if (directory.find("/walk-") != std::string::npos) QUtils::deleteTree(directory.c_str());
  }
  std::string path(const std::string& name) const { return directory + "/" + name; }
  static void write(const std::string& name, const std::string& text) {
    std::FILE* file = std::fopen(name.c_str(), "wb");
    ASSERT_NE(nullptr, file);
    std::fputs(text.c_str(), file);
    std::fclose(file);
  }
  static std::string read(const std::string& name) {
    std::string text;
    return QUtils::readWholeFile(name.c_str(), &text) ? text : "<none>";
  }
  // A link at `name` to `target`, owned by `owner`.
  static bool link(const std::string& target, const std::string& name, uid_t owner) {
    return symlink(target.c_str(), name.c_str()) == 0 && lchown(name.c_str(), owner, owner) == 0;
  }
  static mode_t modeOf(const std::string& name) {
    struct stat status;
    return lstat(name.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }

  std::string directory;
};

// A link that another user put into a folder ("etc -> /etc") carries no
// write, deletion or directory through it: every operation fails, and what
// it leads to stays as it was.
TEST_F(PathWalkTest, AnotherUsersLinkOnTheWayIsNeverFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "giving a link another owner needs root";
  ASSERT_TRUE(link(path("outside"), path("tree/etc"), kOtherUser));
  std::string through = path("tree/etc/victim");

  EXPECT_EQ(nullptr, QUtils::openFile(through.c_str(), "wb"));
  EXPECT_EQ(nullptr, QUtils::openFile(through.c_str(), "ab"));
  EXPECT_EQ(nullptr, QUtils::openFile(through.c_str(), "rb"));
  EXPECT_EQ(ELOOP, QUtils::deleteFile(through.c_str()));
  EXPECT_NE(0, QUtils::copyFile(path("outside/victim").c_str(), through.c_str()));
  write(path("tree/new"), "new");
  EXPECT_NE(0, QUtils::replaceFile(path("tree/new").c_str(), through.c_str()));
  EXPECT_NE(0, QUtils::renameFile(path("tree/new").c_str(), through.c_str()));
  EXPECT_NE(0, QUtils::setFileMode(through.c_str(), 0777));
  EXPECT_FALSE(QUtils::makeDirectory(path("tree/etc/made").c_str()));
  EXPECT_NE(0, QUtils::createPath(path("tree/etc/a/b/").c_str(), nullptr));
  EXPECT_FALSE(QUtils::deleteTree(through.c_str()));
  QUtils::PFileStream stream;
  EXPECT_NE(0, stream.openFile(through.c_str(), QUtils::kGenericWrite, 0, QUtils::kModeCreateAlways));
  EXPECT_EQ(QUtils::kNotAFile, QUtils::checkFileTrust(through.c_str()));

  EXPECT_EQ("victim", read(path("outside/victim")));
  EXPECT_EQ(0644, modeOf(path("outside/victim")));
  EXPECT_FALSE(QUtils::fileExists(path("outside/made").c_str()));
  EXPECT_FALSE(QUtils::fileExists(path("outside/a").c_str()));
  // The link itself may go: deleting a name never follows its last part.
  EXPECT_EQ(0, QUtils::deleteFile(path("tree/etc").c_str()));
  EXPECT_EQ("victim", read(path("outside/victim")));
}

// A link that root or this user made is theirs to make: it is followed.
TEST_F(PathWalkTest, ATrustedLinkOnTheWayIsFollowed) {
  ASSERT_TRUE(link(path("outside"), path("tree/mine"), geteuid()));
  ASSERT_TRUE(link("../outside", path("tree/relative"), geteuid()));
  EXPECT_EQ("victim", read(path("tree/mine/victim")));
  EXPECT_EQ("victim", read(path("tree/relative/victim")));
  std::FILE* file = QUtils::openFile(path("tree/mine/made").c_str(), "wb");
  ASSERT_NE(nullptr, file);
  std::fclose(file);
  EXPECT_TRUE(QUtils::fileExists(path("outside/made").c_str()));
  int created = -1;
  EXPECT_EQ(0, QUtils::createPath(path("tree/relative/x/y/").c_str(), &created));
  EXPECT_EQ(2, created);
  EXPECT_TRUE(QUtils::isDirectory(path("outside/x/y").c_str()));
}

// A link or a FIFO where a file is made anew is replaced, never written
// through or waited on; reading follows only a trusted link and never opens
// a FIFO.
TEST_F(PathWalkTest, WhatStandsAtANameIsReplacedNotWrittenThrough) {
  ASSERT_TRUE(link(path("outside/victim"), path("tree/file"), geteuid()));
  EXPECT_EQ("victim", read(path("tree/file")));
  std::FILE* file = QUtils::openFile(path("tree/file").c_str(), "wb");
  ASSERT_NE(nullptr, file);
  std::fputs("new", file);
  std::fclose(file);
  EXPECT_FALSE(QUtils::isLink(path("tree/file").c_str()));
  EXPECT_EQ("new", read(path("tree/file")));
  EXPECT_EQ("victim", read(path("outside/victim")));

  ASSERT_EQ(0, mkfifo(path("tree/fifo").c_str(), 0666));
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(nullptr, QUtils::openFile(path("tree/fifo").c_str(), "rb"));
  QUtils::PFileStream stream;
  EXPECT_NE(0, stream.openFile(path("tree/fifo").c_str(), QUtils::kGenericWrite, 0, QUtils::kModeMustExist));
  EXPECT_EQ(QUtils::kNotAFile, QUtils::checkFileTrust(path("tree/fifo").c_str()));
  EXPECT_EQ(0, stream.openFile(path("tree/fifo").c_str(), QUtils::kGenericWrite, 0, QUtils::kModeCreateAlways));
  stream.close();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  struct stat status;
  ASSERT_EQ(0, lstat(path("tree/fifo").c_str(), &status));
  EXPECT_TRUE(S_ISREG(status.st_mode));

  if (geteuid() == 0) {
    ASSERT_TRUE(link(path("outside/victim"), path("tree/theirs"), kOtherUser));
    EXPECT_EQ("<none>", read(path("tree/theirs")));
    EXPECT_EQ(nullptr, QUtils::openFile(path("tree/theirs").c_str(), "ab"));
    EXPECT_EQ(ELOOP, QUtils::replaceFile(path("tree/file").c_str(), path("tree/theirs").c_str()));
    EXPECT_EQ("victim", read(path("outside/victim")));
  }
}

// A directory held open makes files in it with one open each: only where
// nothing stands, never through a link or into a FIFO, and with the bits
// asked for whatever the umask. What stood at the name is left as it was.
TEST_F(PathWalkTest, AnOpenDirectoryMakesFilesOnlyWhereNothingStands) {
  QUtils::PDirectory tree;
  ASSERT_EQ(0, tree.open(path("tree").c_str()));
  mode_t saved = umask(077);
  QUtils::PFileStream file;
  bool exists = true;
  ASSERT_EQ(0, file.createNewIn(tree, "new", 0, &exists));
  EXPECT_FALSE(exists);
  uint32_t written = 0;
  ASSERT_EQ(0, file.write("made", 4, &written));
  EXPECT_EQ(path("tree/new"), QUtils::systemPath(file.getName()).getText());
  file.close();
  ASSERT_EQ(0, file.createNewIn(tree, "private", QUtils::kModePrivate, nullptr));
  file.close();
  umask(saved);
  EXPECT_EQ("made", read(path("tree/new")));
  EXPECT_EQ(0644, modeOf(path("tree/new")));
  EXPECT_EQ(0600, modeOf(path("tree/private")));

  ASSERT_TRUE(link(path("outside/victim"), path("tree/mine"), getuid()));
  ASSERT_EQ(0, mkfifo(path("tree/fifo").c_str(), 0644));
  for (const char* name : {"new", "mine", "fifo"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(EEXIST, file.createNewIn(tree, name, 0, &exists));
    EXPECT_TRUE(exists);
  }
  EXPECT_EQ("made", read(path("tree/new")));
  EXPECT_EQ("victim", read(path("outside/victim")));
  EXPECT_TRUE(QUtils::isLink(path("tree/mine").c_str()));
  // One name only: a path, "." or ".." is no file of this directory.
  for (const char* name : {"sub/file", "..", ".", ""}) {
    EXPECT_NE(0, file.createNewIn(tree, name, 0, &exists)) << name;
    EXPECT_FALSE(exists) << name;
  }
}

// Below an open directory, a level is made and opened in one step; a link
// there, whoever made it, is not followed, and nothing is made where it
// leads. The descriptor keeps to the directory it opened: a link put in
// its place afterwards leads nothing astray.
TEST_F(PathWalkTest, DirectoriesOpenBelowWithoutFollowingLinks) {
  QUtils::PDirectory tree, sub;
  ASSERT_EQ(0, tree.open(path("tree").c_str()));
  mode_t saved = umask(077);
  bool made = false;
  ASSERT_EQ(0, sub.openBelow(tree, "sub", &made));
  umask(saved);
  EXPECT_TRUE(made);
  EXPECT_EQ(0755, modeOf(path("tree/sub")));
  EXPECT_EQ(path("tree/sub"), sub.getPath());
  QUtils::PDirectory again;
  ASSERT_EQ(0, again.openBelow(tree, "sub", &made));
  EXPECT_FALSE(made);

  ASSERT_TRUE(link(path("outside"), path("tree/mine"), getuid()));
  write(path("tree/plain"), "file");
  QUtils::PDirectory refused;
  for (const char* name : {"mine", "plain", "..", "a/b"}) {
    EXPECT_NE(0, refused.openBelow(tree, name, &made)) << name;
    EXPECT_FALSE(made) << name;
    EXPECT_FALSE(refused.isOpen()) << name;
  }
  QUtils::PFileStream file;
  ASSERT_EQ(0, rename(path("tree/sub").c_str(), path("tree/moved").c_str()));
  ASSERT_TRUE(link(path("outside"), path("tree/sub"), getuid()));
  ASSERT_EQ(0, file.createNewIn(sub, "late", 0, nullptr));
  file.close();
  EXPECT_TRUE(QUtils::fileExists(path("tree/moved/late").c_str()));
  EXPECT_FALSE(QUtils::fileExists(path("outside/late").c_str()));

  if (getuid() != 0) return;  // only root can make a link of another user
  ASSERT_TRUE(link(path("outside"), path("tree/theirs"), kOtherUser));
  EXPECT_EQ(ELOOP, refused.open(path("tree/theirs/x").c_str()));
  EXPECT_NE(0, refused.open(path("tree/theirs").c_str()));
}

// Whatever the umask, what the layer makes has the bits it asks for.
TEST_F(PathWalkTest, ModesAreExplicitWhateverTheUmask) {
  mode_t saved = umask(0);
  std::FILE* file = QUtils::openFile(path("tree/public").c_str(), "wb");
  ASSERT_NE(nullptr, file);
  std::fclose(file);
  file = QUtils::openFile(path("tree/private").c_str(), "wb", QUtils::kPrivateFileMode);
  ASSERT_NE(nullptr, file);
  std::fclose(file);
  ASSERT_EQ(0, QUtils::createPath(path("tree/a/b/").c_str(), nullptr));
  ASSERT_TRUE(QUtils::makePrivateDirectory(path("tree/secret").c_str()));
  QUtils::PFileStream stream;
  ASSERT_EQ(0, stream.create(path("tree/log").c_str(), QUtils::kModePrivate));
  stream.close();
  ASSERT_EQ(0, QUtils::copyFile(path("tree/private").c_str(), path("tree/copy").c_str()));
  umask(077);
  ASSERT_TRUE(QUtils::replaceWholeFile(path("tree/replaced").c_str(), "text"));
  umask(saved);

  EXPECT_EQ(0644, modeOf(path("tree/public")));
  EXPECT_EQ(0600, modeOf(path("tree/private")));
  EXPECT_EQ(0755, modeOf(path("tree/a")));
  EXPECT_EQ(0755, modeOf(path("tree/a/b")));
  EXPECT_EQ(0700, modeOf(path("tree/secret")));
  EXPECT_EQ(0600, modeOf(path("tree/log")));
  EXPECT_EQ(0600, modeOf(path("tree/copy")));
  EXPECT_EQ(0644, modeOf(path("tree/replaced")));
}

TEST_F(PathWalkTest, TrustNeedsThisUsersFileThatOnlyItMayWrite) {
  write(path("tree/own"), "x");
  chmod(path("tree/own").c_str(), 0644);
  EXPECT_EQ(QUtils::kTrustedFile, QUtils::checkFileTrust(path("tree/own").c_str()));
  chmod(path("tree/own").c_str(), 0664);
  EXPECT_EQ(QUtils::kFileWritableByOthers, QUtils::checkFileTrust(path("tree/own").c_str()));
  EXPECT_EQ(QUtils::kFileMissing, QUtils::checkFileTrust(path("tree/none").c_str()));
  EXPECT_EQ(QUtils::kFileMissing, QUtils::checkFileTrust(path("tree/own/below").c_str()));
  EXPECT_EQ(QUtils::kNotAFile, QUtils::checkFileTrust(path("tree").c_str()));
  if (geteuid() == 0) {
    chmod(path("tree/own").c_str(), 0644);
    ASSERT_EQ(0, chown(path("tree/own").c_str(), kOtherUser, kOtherUser));
    EXPECT_EQ(QUtils::kFileOfAnotherUser, QUtils::checkFileTrust(path("tree/own").c_str()));
    std::FILE* file = QUtils::openFile(path("tree/own").c_str(), "rb");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(QUtils::kFileOfAnotherUser, QUtils::checkFileTrust(file));
    std::fclose(file);
  }
}

// The run's own directory: made once, closed to others, in the temporary
// directory; a look-alike that isn't private isn't one.
TEST_F(PathWalkTest, TheRunDirectoryIsPrivateAndRecognised) {
  char first[QUtils::kMaxPath], second[QUtils::kMaxPath], temporary[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::getRunDirectory(first, sizeof first));
  ASSERT_TRUE(QUtils::getRunDirectory(second, sizeof second));
  ASSERT_TRUE(QUtils::getTempDirectory(temporary, sizeof temporary));
  EXPECT_STREQ(first, second);
  EXPECT_EQ(std::string(temporary) + "/qlux-", std::string(first).substr(0, std::string(temporary).size() + 6));
  EXPECT_EQ(0700, modeOf(first));
  EXPECT_TRUE(QUtils::isRunDirectory(first));

  std::string open = std::string(temporary) + "/qlux-open00";
  ASSERT_EQ(0, mkdir(open.c_str(), 0755));
  std::string elsewhere = path("qlux-nested");
  ASSERT_EQ(0, mkdir(elsewhere.c_str(), 0700));
  EXPECT_FALSE(QUtils::isRunDirectory(open.c_str()));
  EXPECT_FALSE(QUtils::adoptRunDirectory(open.c_str()));
  EXPECT_FALSE(QUtils::isRunDirectory(elsewhere.c_str()));
  EXPECT_FALSE(QUtils::isRunDirectory((std::string(first) + "/..").c_str()));
  rmdir(open.c_str());
}

TEST(SystemDirectories, RootsAndTheSystemsOwnFolders) {
  for (const char* path : {"/", "//", "/usr", "/usr/", "/etc", "//etc//", "/opt", "/usr/local/bin", "/home", "/tmp"})
    EXPECT_TRUE(QUtils::isSystemDirectory(path)) << path;
  for (const char* path : {"/opt/Product", "/usr/share/product", "/home/alice/app", "/etcetera"})
    EXPECT_FALSE(QUtils::isSystemDirectory(path)) << path;
}

}  // namespace
