// Tests of the file operations: the basics, making paths, searching,
// wildcards, deleting by pattern and removing empty parents.
#include "foundation/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "foundation/test_env.h"
#include "foundation/text.h"

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace QUtils {
namespace {

// The separator that isn't the system's: both must work in every name.
const char kOtherSeparator = kPathSeparator == '/' ? '\\' : '/';

std::string withSeparator(std::string text, char separator) {
  for (char& c : text)
    if (c == '/' || c == '\\') c = separator;
  return text;
}

std::string readAll(const std::string& name, const char* mode) {
  std::string content;
  FILE* file = openFile(name.c_str(), mode);
  if (!file) return "<missing>";
  char block[256];
  size_t count;
  while ((count = std::fread(block, 1, sizeof block, file)) > 0) content.append(block, count);
  std::fclose(file);
  return content;
}

// Each test works in a fresh directory under the test's temporary
// directory, removed afterwards.
class FilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string base = ::testing::TempDir();
    while (base.size() > 1 && (base.back() == '/' || base.back() == '\\')) base.pop_back();
    std::random_device random;
    root = base + kPathSeparator + "qlux-files-" + std::to_string(random()) + std::to_string(random());
    ASSERT_FALSE(fileExists(root.c_str()));
    ASSERT_TRUE(makeDirectory(root.c_str()));
  }
  void TearDown() override { deleteTree(root.c_str()); }

  // `relative` is written with '/'; the result has system separators.
  std::string path(const char* relative) const { return withSeparator(root + "/" + relative, kPathSeparator); }
  bool exists(const char* relative) const { return fileExists(path(relative).c_str()); }
  void makeFile(const char* relative, const char* content = "x") {
    FILE* file = openFile(path(relative).c_str(), "wb");
    ASSERT_NE(nullptr, file) << relative;
    std::fputs(content, file);
    std::fclose(file);
  }
  void makeDirectories(const char* relative) {
    ASSERT_EQ(0, createPath((path(relative) + kPathSeparator).c_str(), nullptr)) << relative;
  }
  std::vector<std::string> leafNames(const FileList& list, const std::string& prefix) {
    std::vector<std::string> names;
    for (int i = 0; i < list.getCount(); i++) {
      std::string name = list.getName(i);
      EXPECT_EQ(prefix, name.substr(0, prefix.size()));
      names.push_back(name.substr(prefix.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // removeEmptyParents walks upwards out of the test's directory and would
  // remove whatever it wrongly finds empty above it. Each test that calls
  // it puts a file into its directory first and stops here unless a search
  // sees that file.
  void requireRootInUse() {
    FileList entries;
    ASSERT_TRUE(entries.search(path("*").c_str()));
    ASSERT_GT(entries.getCount(), 0);
  }

  std::string root;
};

TEST_F(FilesTest, BasicOperations) {
  FILE* file = openFile(path("text.txt").c_str(), "wt");
  ASSERT_NE(nullptr, file);
  std::fputs("a\nb\n", file);
  std::fclose(file);
  EXPECT_EQ("a\nb\n", readAll(path("text.txt"), "rt"));
  EXPECT_EQ(nullptr, openFile(path("missing/x").c_str(), "wb"));

  EXPECT_TRUE(fileExists(path("text.txt").c_str()));
  EXPECT_FALSE(isDirectory(path("text.txt").c_str()));
  EXPECT_TRUE(isDirectory(root.c_str()));
  EXPECT_FALSE(fileExists(path("missing").c_str()));
  EXPECT_FALSE(isDirectory(nullptr));

  EXPECT_TRUE(makeDirectory(path("dir").c_str()));
  EXPECT_TRUE(makeDirectory(path("dir").c_str()));
  EXPECT_FALSE(makeDirectory(path("text.txt").c_str()));
  EXPECT_TRUE(isPlainDirectory(path("dir").c_str()));
  EXPECT_FALSE(isPlainDirectory(path("text.txt").c_str()));

  EXPECT_EQ(0, renameFile(path("text.txt").c_str(), path("dir/moved.txt").c_str()));
  EXPECT_FALSE(exists("text.txt"));
  makeFile("new.txt", "new");
  EXPECT_EQ(0, replaceFile(path("new.txt").c_str(), path("dir/moved.txt").c_str()));
  EXPECT_FALSE(exists("new.txt"));
  EXPECT_EQ("new", readAll(path("dir/moved.txt"), "rb"));

  EXPECT_EQ(0, deleteFile(path("dir/moved.txt").c_str()));
  EXPECT_NE(0, deleteFile(path("dir/moved.txt").c_str()));
  EXPECT_NE(0, removeDirectory(path("missing").c_str()));
  EXPECT_EQ(0, removeDirectory(path("dir").c_str()));

  // Non-ASCII names survive the way to the system and back.
  makeFile("gr\xC3\xBC\xC3\x9F" "e.txt");
  FileList list;
  ASSERT_TRUE(list.search(path("*.txt").c_str()));
  ASSERT_EQ(1, list.getCount());
  EXPECT_EQ(path("gr\xC3\xBC\xC3\x9F" "e.txt"), list.getName(0));
}

TEST_F(FilesTest, CreatePathMakesEveryLevelBehindASeparator) {
  int made = -1;
  EXPECT_EQ(0, createPath(path("a/b/").c_str(), &made));
  EXPECT_EQ(2, made);
  EXPECT_TRUE(isDirectory(path("a/b").c_str()));

  // The last part of a path to a file isn't made.
  EXPECT_EQ(0, createPath(path("c/d").c_str(), &made));
  EXPECT_EQ(1, made);
  EXPECT_TRUE(isDirectory(path("c").c_str()));
  EXPECT_FALSE(exists("c/d"));

  EXPECT_EQ(0, createPath(path("a/b/").c_str(), &made));
  EXPECT_EQ(0, made);

  // Either separator, mixed too.
  std::string other = withSeparator(path("e/f/g/"), kOtherSeparator);
  EXPECT_EQ(0, createPath(other.c_str(), &made));
  EXPECT_EQ(3, made);
  EXPECT_TRUE(isDirectory(path("e/f/g").c_str()));
  std::string mixed = root + kOtherSeparator + "h" + kPathSeparator + "i" + kOtherSeparator;
  EXPECT_EQ(0, createPath(mixed.c_str(), &made));
  EXPECT_EQ(2, made);
  EXPECT_TRUE(isDirectory(path("h/i").c_str()));

  // A file in the way fails at once; what was made before is counted.
  makeFile("h/file");
  EXPECT_EQ(-1, createPath(path("j/../h/file/x/").c_str(), &made));
  EXPECT_EQ(1, made);
  EXPECT_FALSE(exists("h/file/x"));

  EXPECT_EQ(-1, createPath(nullptr, &made));
  EXPECT_EQ(0, made);
  EXPECT_EQ(0, createPath("", nullptr));
}

TEST_F(FilesTest, FileListSearch) {
  makeFile("x.tmp");
  makeFile("y.txt");
  makeDirectories("sub");
  makeDirectories("empty");

  FileList list;
  ASSERT_TRUE(list.search(path("*").c_str()));
  EXPECT_EQ((std::vector<std::string>{"empty", "sub", "x.tmp", "y.txt"}),
            leafNames(list, root + kPathSeparator));

  // Names keep the pattern's own spelling of its directory part.
  std::string other = withSeparator(root + "/", kOtherSeparator);
  ASSERT_TRUE(list.search((other + "*.tmp").c_str()));
  EXPECT_EQ((std::vector<std::string>{"x.tmp"}), leafNames(list, other));

  // Nothing found at all keeps the list as it was.
  EXPECT_FALSE(list.search(path("*.none").c_str()));
  EXPECT_FALSE(list.search(path("missing/*").c_str()));
  EXPECT_FALSE(list.search(nullptr));
  ASSERT_EQ(1, list.getCount());
  EXPECT_EQ(other + "x.tmp", list.getName(0));

  // An empty directory has "." and "..", which count as found.
  ASSERT_TRUE(list.search(path("empty/*").c_str()));
  EXPECT_TRUE(list.isEmpty());
  EXPECT_EQ(nullptr, list.next());

  ASSERT_TRUE(list.search(path("?.t*").c_str()));
  ASSERT_EQ(2, list.getCount());
  EXPECT_NE(nullptr, list.next());
  EXPECT_NE(nullptr, list.next());
  EXPECT_EQ(nullptr, list.next());
  list.rewind();
  EXPECT_STREQ(list.getName(0), list.next());
  EXPECT_EQ(nullptr, list.getName(2));
  EXPECT_EQ(nullptr, list.getName(-1));
  list.clear();
  EXPECT_EQ(0, list.getCount());
}

TEST(WildcardTest, MatchesAsTheWindowsSearchDoes) {
  EXPECT_TRUE(matchWildcard("*.tmp", "a.tmp"));
  EXPECT_TRUE(matchWildcard("*.tmp", ".tmp"));
  EXPECT_TRUE(matchWildcard("*.tmp", "a.b.tmp"));
  EXPECT_FALSE(matchWildcard("*.tmp", "a.tmp.bak"));
  EXPECT_FALSE(matchWildcard("*.tmp", "a.TMP"));
  EXPECT_TRUE(matchWildcard("*", ".hidden"));
  EXPECT_TRUE(matchWildcard("*a*b", "xxaybb"));
  EXPECT_FALSE(matchWildcard("*a*b", "xxaybc"));

  EXPECT_TRUE(matchWildcard("a?c", "abc"));
  EXPECT_FALSE(matchWildcard("a?c", "ac"));
  EXPECT_FALSE(matchWildcard("a?c", "abbc"));
  EXPECT_TRUE(matchWildcard("a?c", "a\xC3\xA9" "c"));  // one character of two bytes

  // A closing ".*" also takes names without a dot.
  EXPECT_TRUE(matchWildcard("*.*", "README"));
  EXPECT_TRUE(matchWildcard("*.*", "a.b"));
  EXPECT_TRUE(matchWildcard("data.*", "data"));
  EXPECT_TRUE(matchWildcard("data.*", "data.txt"));
  EXPECT_FALSE(matchWildcard("data.*", "database"));

  EXPECT_TRUE(matchWildcard("file.txt", "file.txt"));
  EXPECT_FALSE(matchWildcard("file.txt", "file.txtx"));
  EXPECT_FALSE(matchWildcard(nullptr, "x"));
}

TEST_F(FilesTest, DeleteMatchingWalksTheWholeTree) {
  makeFile("keep.dat");
  makeFile("a.tmp");
  makeFile("keep.txt");
  makeDirectories("sub/deeper");
  makeFile("sub/b.tmp");
  makeFile("sub/deeper/c.tmp");
  makeFile("sub/deeper/d.txt");
  makeDirectories("only");
  makeFile("only/e.tmp");
  makeDirectories("empty");

  EXPECT_EQ(0, deleteMatching(root.c_str(), "*.none", false));
  EXPECT_TRUE(exists("sub/deeper/c.tmp"));
  EXPECT_TRUE(exists("empty"));

  std::string other = withSeparator(root, kOtherSeparator);
  EXPECT_EQ(4, deleteMatching(other.c_str(), "*.tmp", false));
  EXPECT_FALSE(exists("a.tmp"));
  EXPECT_FALSE(exists("sub/b.tmp"));
  EXPECT_FALSE(exists("sub/deeper/c.tmp"));
  EXPECT_FALSE(exists("only/e.tmp"));
  EXPECT_TRUE(exists("keep.txt"));
  EXPECT_TRUE(exists("sub/deeper/d.txt"));
  EXPECT_TRUE(exists("only"));

  // With removeIfEmpty every directory left empty goes, bottom up.
  EXPECT_EQ(2, deleteMatching(root.c_str(), "*.txt", true));
  EXPECT_FALSE(exists("sub"));
  EXPECT_FALSE(exists("only"));
  EXPECT_FALSE(exists("empty"));
  EXPECT_TRUE(exists("keep.dat"));

  EXPECT_EQ(-1, deleteMatching(path("missing").c_str(), "*", false));
  EXPECT_EQ(-1, deleteMatching(nullptr, "*", false));
  EXPECT_EQ(-1, deleteMatching(root.c_str(), nullptr, false));
}

TEST_F(FilesTest, RemoveEmptyParentsStopsAtTheFirstLevelInUse) {
  makeFile("keep.txt");
  makeDirectories("a/b/c");
  requireRootInUse();
  EXPECT_EQ(3, removeEmptyParents(path("a/b/c").c_str()));
  EXPECT_FALSE(exists("a"));
  EXPECT_TRUE(exists("keep.txt"));

  // A trailing separator, the other separator.
  makeDirectories("x/y");
  std::string other = withSeparator(path("x/y/"), kOtherSeparator);
  EXPECT_EQ(2, removeEmptyParents(other.c_str()));
  EXPECT_FALSE(exists("x"));

  // A sibling keeps the common parent.
  makeDirectories("s/t/u");
  makeDirectories("s/v");
  EXPECT_EQ(2, removeEmptyParents(path("s/t/u").c_str()));
  EXPECT_FALSE(exists("s/t"));
  EXPECT_TRUE(exists("s/v"));

  // A directory that must stay ends the walk below it, bare as it is.
  makeDirectories("k/l/m");
  EXPECT_EQ(2, removeEmptyParents(path("k/l/m").c_str(), (path("k") + kPathSeparator).c_str()));
  EXPECT_TRUE(exists("k"));
  EXPECT_FALSE(exists("k/l"));
  EXPECT_EQ(0, removeEmptyParents(path("k").c_str(), path("k").c_str()));
  EXPECT_TRUE(exists("k"));

  // A file in the directory itself, or in a parent: the walk ends there.
  makeDirectories("f/g");
  makeFile("f/g/.file");
  EXPECT_EQ(0, removeEmptyParents(path("f/g").c_str()));
  EXPECT_TRUE(exists("f/g/.file"));
  makeDirectories("f/h/i");
  FileDeleter deleter;
  EXPECT_EQ(2, removeEmptyParents(path("f/h/i").c_str(), nullptr, &deleter));
  EXPECT_TRUE(exists("f/g/.file"));

  EXPECT_EQ(0, removeEmptyParents(path("missing").c_str()));
  EXPECT_EQ(0, removeEmptyParents(""));
  EXPECT_EQ(0, removeEmptyParents(nullptr));
}

// A deleter gives what deleteFile and removeDirectory give, name by name,
// over more directories than it keeps open, and also when a directory it
// walked before has been replaced by another of the same name.
TEST_F(FilesTest, FileDeleterActsAsDeleteFileAcrossDirectories) {
  FileDeleter deleter;
  std::vector<std::string> names;
  for (int d = 0; d < 12; d++) {
    std::string directory = "d" + std::to_string(d);
    makeDirectories(directory.c_str());
    for (int f = 0; f < 3; f++) names.push_back(directory + "/f" + std::to_string(f));
  }
  for (const std::string& name : names) makeFile(name.c_str());
  // Two rounds, the second going back to directories walked long before.
  for (int round = 0; round < 2; round++) {
    for (size_t i = static_cast<size_t>(round); i < names.size(); i += 2)
      EXPECT_EQ(0, deleter.deleteFile(path(names[i].c_str()).c_str())) << names[i];
  }
  for (const std::string& name : names) EXPECT_FALSE(exists(name.c_str())) << name;
  EXPECT_EQ(deleteFile(path("d0/f0").c_str()), deleter.deleteFile(path("d0/f0").c_str()));
  EXPECT_NE(0, deleter.deleteFile(path("d0/f0").c_str()));
  EXPECT_NE(0, deleter.deleteFile(path("d1").c_str()));  // a directory is no file
  EXPECT_TRUE(exists("d1"));

  makeFile("d2/again");
  EXPECT_EQ(0, deleter.deleteFile(path("d2/again").c_str()));
  ASSERT_EQ(0, renameFile(path("d2").c_str(), path("moved").c_str()));
  makeDirectories("d2");
  makeFile("d2/new");
  makeFile("moved/new");
  EXPECT_EQ(0, deleter.deleteFile(path("d2/new").c_str()));
  EXPECT_FALSE(exists("d2/new"));
  EXPECT_TRUE(exists("moved/new"));

  EXPECT_EQ(0, deleter.removeDirectory(path("d2").c_str()));
  EXPECT_NE(0, deleter.removeDirectory(path("moved").c_str()));  // not empty
  EXPECT_TRUE(exists("moved/new"));
  EXPECT_EQ(-1, deleter.deleteFile(nullptr));
}

TEST_F(FilesTest, DeleteTree) {
  makeDirectories("tree/a/b");
  makeFile("tree/top.txt");
  makeFile("tree/a/b/deep.txt");
  EXPECT_TRUE(deleteTree(withSeparator(path("tree"), kOtherSeparator).c_str()));
  EXPECT_FALSE(exists("tree"));
  EXPECT_FALSE(deleteTree(path("tree").c_str()));
  EXPECT_FALSE(deleteTree(nullptr));
  makeFile("single.txt");
  EXPECT_TRUE(deleteTree(path("single.txt").c_str()));
  EXPECT_FALSE(exists("single.txt"));
}

#ifndef _WIN32
TEST_F(FilesTest, LinksAreNeverFollowedOutOfATree) {
  makeFile("keep.txt");
  makeDirectories("outside");
  makeFile("outside/victim.tmp");
  makeDirectories("tree/inner");
  ASSERT_EQ(0, symlink(path("outside").c_str(), path("tree/link").c_str()));
  EXPECT_TRUE(isLink(path("tree/link").c_str()));
  EXPECT_TRUE(isLink((path("tree/link") + "/").c_str()));
  EXPECT_FALSE(isPlainDirectory(path("tree/link").c_str()));

  EXPECT_EQ(0, deleteMatching(path("tree").c_str(), "*.tmp", true));
  EXPECT_TRUE(exists("outside/victim.tmp"));
  EXPECT_FALSE(exists("tree/inner"));

  // A link as a level of the chain isn't walked.
  makeDirectories("chain");
  ASSERT_EQ(0, symlink(path("outside").c_str(), path("chain/link").c_str()));
  makeDirectories("outside/empty");
  requireRootInUse();
  EXPECT_EQ(0, removeEmptyParents(path("chain/link").c_str()));
  EXPECT_EQ(1, removeEmptyParents(path("chain/link/empty").c_str()));
  EXPECT_TRUE(exists("chain/link"));

  EXPECT_TRUE(deleteTree(path("tree").c_str()));
  EXPECT_TRUE(exists("outside/victim.tmp"));

  // A deleter removes a link as a link, and through a link of the chain
  // reaches only the name at its end.
  FileDeleter deleter;
  makeFile("outside/one");
  ASSERT_EQ(0, symlink(path("outside/one").c_str(), path("chain/to-one").c_str()));
  EXPECT_EQ(0, deleter.deleteFile(path("chain/to-one").c_str()));
  EXPECT_TRUE(exists("outside/one"));
  EXPECT_EQ(0, deleter.deleteFile(path("chain/link/one").c_str()));
  EXPECT_FALSE(exists("outside/one"));
  EXPECT_TRUE(exists("outside/victim.tmp"));
}

// With a RemovedFiles, a deletion takes the names at once and keeps the
// files (and emptied directories) open until the release; a deletion that
// fails keeps nothing; and never more than half the descriptors the process
// may open are held.
TEST_F(FilesTest, RemovedFilesHoldTheSpaceOfDeletedFilesUntilReleased) {
  std::string prefix = path("held");
  makeDirectories("held/sub");
  for (int i = 0; i < 40; i++) makeFile(("held/f" + std::to_string(i)).c_str(), "content");
  RemovedFiles removed;
  {
    FileDeleter deleter(&removed);
    for (int i = 0; i < 40; i++) EXPECT_EQ(0, deleter.deleteFile(path(("held/f" + std::to_string(i)).c_str()).c_str()));
    EXPECT_EQ(0, deleter.removeDirectory(path("held/sub").c_str()));
    EXPECT_NE(0, deleter.deleteFile(path("held/missing").c_str()));
    makeFile("held/stays");
    EXPECT_NE(0, deleter.removeDirectory(path("held").c_str()));  // not empty
  }
  EXPECT_FALSE(exists("held/f0"));
  EXPECT_FALSE(exists("held/sub"));
  EXPECT_TRUE(exists("held/stays"));
  EXPECT_EQ(41, removed.count());
  EXPECT_EQ(41, descriptorsOfDeletedFiles(prefix));
  removed.release();
  EXPECT_EQ(0, removed.count());
  EXPECT_EQ(0, descriptorsOfDeletedFiles(prefix));

  // At 64 descriptors a process may open, 32 are held at most; the rest
  // go on being deleted.
  struct rlimit saved;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
  struct rlimit low = saved;
  low.rlim_cur = 64;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &low));
  for (int i = 0; i < 100; i++) makeFile(("held/g" + std::to_string(i)).c_str());
  {
    RemovedFiles bounded;
    FileDeleter deleter(&bounded);
    int most = 0;
    for (int i = 0; i < 100; i++) {
      EXPECT_EQ(0, deleter.deleteFile(path(("held/g" + std::to_string(i)).c_str()).c_str()));
      most = std::max(most, bounded.count());
    }
    EXPECT_EQ(32, most);
  }
  EXPECT_EQ(0, descriptorsOfDeletedFiles(prefix));
  setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_FALSE(exists("held/g99"));
}

TEST_F(FilesTest, ReplaceFileKeepsLinksAndPermissions) {
  makeFile("real.ini", "old");
  chmod(path("real.ini").c_str(), 0640);
  ASSERT_EQ(0, symlink(path("real.ini").c_str(), path("link.ini").c_str()));
  makeFile("new.ini", "new");
  EXPECT_EQ(0, replaceFile(path("new.ini").c_str(), path("link.ini").c_str()));
  EXPECT_TRUE(isLink(path("link.ini").c_str()));
  EXPECT_EQ("new", readAll(path("real.ini"), "rb"));
  struct stat status;
  ASSERT_EQ(0, stat(path("real.ini").c_str(), &status));
  EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST(PlacesTest, TempDirectoryFollowsTmpdir) {
  const char* saved = std::getenv("TMPDIR");
  std::string savedValue = saved ? saved : "";
  char out[kMaxPath];
  setenv("TMPDIR", "/some/where//", 1);
  EXPECT_TRUE(getTempDirectory(out, sizeof out));
  EXPECT_STREQ("/some/where", out);
  setenv("TMPDIR", "", 1);
  EXPECT_TRUE(getTempDirectory(out, sizeof out));
  EXPECT_STREQ("/tmp", out);
  if (saved)
    setenv("TMPDIR", savedValue.c_str(), 1);
  else
    unsetenv("TMPDIR");
}
#endif

TEST(PlacesTest, ProcessEnvironmentIsUtf8AndTellsUnsetFromEmpty) {
  const char* name = "QLUX_FILES_TEST_ENV";
  const char* value = "Zo\xc3\xab \xd0\x96\xd1\x83\xd0\xba";  // Latin and Cyrillic: no ANSI code page holds both
  CharString out("stale");
  setEnvironment(name, value);
  ASSERT_TRUE(getProcessEnvironment(name, &out));
  EXPECT_STREQ(value, out.getText());

  setEnvironment(name, "");
  ASSERT_TRUE(getProcessEnvironment(name, &out));
  ASSERT_FALSE(out.isNull());
  EXPECT_STREQ("", out.getText());

  setEnvironment(name, nullptr);
  EXPECT_FALSE(getProcessEnvironment(name, &out));
  EXPECT_TRUE(out.isNull());
  EXPECT_FALSE(getProcessEnvironment("", &out));
}

TEST(PlacesTest, ModuleTempAndProgramPaths) {
  char temp[kMaxPath];
  ASSERT_TRUE(getTempDirectory(temp, sizeof temp));
  size_t length = std::strlen(temp);
  ASSERT_GT(length, 0u);
  EXPECT_TRUE(length == 1 || !isSeparator(temp[length - 1])) << temp;
  EXPECT_TRUE(isDirectory(temp)) << temp;

  char module[kMaxPath];
  char directory[kMaxPath];
  ASSERT_TRUE(getModulePath(module, sizeof module));
  EXPECT_TRUE(fileExists(module));
  EXPECT_FALSE(isDirectory(module));
  ASSERT_TRUE(getModuleDirectory(directory, sizeof directory));
  size_t directoryLength = std::strlen(directory);
  EXPECT_TRUE(isSeparator(directory[directoryLength - 1]));
  EXPECT_EQ(0, std::strncmp(module, directory, directoryLength));
  EXPECT_EQ(nullptr, std::strpbrk(module + directoryLength, "/\\"));
  char tiny[4];
  EXPECT_FALSE(getModulePath(tiny, sizeof tiny));

  setProgramPath("C:\\setup.exe");
  EXPECT_STREQ("C:\\setup.exe", getProgramPath());
  std::string longPath(3000, 'p');
  setProgramPath(longPath.c_str());
  EXPECT_EQ(static_cast<size_t>(kMaxPath - 1), std::strlen(getProgramPath()));
  setProgramPath(nullptr);
  EXPECT_STREQ("", getProgramPath());
}

}  // namespace
}  // namespace QUtils
