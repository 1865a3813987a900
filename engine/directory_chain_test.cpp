// Tests of the chain of open directories that the file stage writes into:
// the levels it makes and counts, where the files made in what it gives
// land, and a level that can't be a directory.
#include "engine/directory_chain.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/test_files.h"
#include "foundation/files.h"

namespace {

class DirectoryChainTest : public ::testing::Test {
 protected:
  void SetUp() override { root = here("chain"); }
  void TearDown() override {
    // Only the tree this test made below its own working directory.
    if (QUtils::isDirectory(root.c_str())) QUtils::deleteTree(root.c_str());
  }
  // Enters `directory`, and makes `name` in what the chain gives.
  int enter(DirectoryChain* chain, const std::string& directory, const char* name = nullptr) {
    int created = -1;
    QUtils::PDirectory* open = nullptr;
    int result = chain->enter(directory.c_str(), &created, &open);
    EXPECT_TRUE(result != 0 || open != nullptr) << directory;
    if (result == 0 && open && name) {
      QUtils::PFileStream file;
      EXPECT_EQ(0, file.createNewIn(*open, name, 0, nullptr)) << directory;
    }
    return result == 0 ? created : -1 - created;
  }

  std::string root;
};

// Each level is made once and counted where it was made, whichever way the
// entries come: down, across to a sibling, back up, and to a cousin.
TEST_F(DirectoryChainTest, LevelsAreMadeOnceAndCountedWhereTheyAreMade) {
  DirectoryChain chain;
  EXPECT_EQ(3, enter(&chain, root + "/lib/pkg/", "a"));
  EXPECT_EQ(0, enter(&chain, root + "/lib/pkg", "b"));
  EXPECT_EQ(2, enter(&chain, root + "/lib/pkg/sub/deep/", "c"));
  EXPECT_EQ(1, enter(&chain, root + "/lib/other", "d"));
  EXPECT_EQ(0, enter(&chain, root + "/lib/pkg/sub", "e"));
  EXPECT_EQ(2, enter(&chain, root + "/doc/pkg", "f"));
  EXPECT_EQ(0, enter(&chain, root, "g"));
  // Either separator, and doubled ones, name the same levels.
  EXPECT_EQ(0, enter(&chain, root + "\\lib//pkg\\sub/", "h"));
  for (const char* file : {"lib/pkg/a", "lib/pkg/b", "lib/pkg/sub/deep/c", "lib/other/d", "lib/pkg/sub/e", "doc/pkg/f",
                           "g", "lib/pkg/sub/h"}) {
    EXPECT_TRUE(QUtils::fileExists((root + "/" + file).c_str())) << file;
  }
  // A chain that starts afresh finds the levels standing.
  DirectoryChain later;
  EXPECT_EQ(0, enter(&later, root + "/lib/pkg/sub/deep"));
}

// A file where a level goes stops the entry, and is left as it was.
TEST_F(DirectoryChainTest, AFileWhereALevelGoesFailsTheEntry) {
  ASSERT_EQ(0, QUtils::createPath((root + "/").c_str(), nullptr));
  writeFile(root + "/file", "in the way");
  DirectoryChain chain;
  EXPECT_EQ(-1, enter(&chain, root + "/file/below"));
  EXPECT_EQ(-1, enter(&chain, root + "/file"));
  EXPECT_EQ("in the way", readFile(root + "/file"));
  // The chain goes on for the entries after it.
  EXPECT_EQ(1, enter(&chain, root + "/after", "x"));
  EXPECT_TRUE(QUtils::fileExists((root + "/after/x").c_str()));
}

#ifndef _WIN32
// A link on the way is taken as the file layer takes it: a link of this
// user's is followed (the levels below it are made where it leads), as
// createPath does.
TEST_F(DirectoryChainTest, ATrustedLinkOnTheWayIsFollowed) {
  ASSERT_EQ(0, QUtils::createPath((root + "/real/").c_str(), nullptr));
  ASSERT_EQ(0, QUtils::makeSymbolicLink((root + "/real").c_str(), (root + "/link").c_str()));
  DirectoryChain chain;
  EXPECT_EQ(1, enter(&chain, root + "/link/below", "x"));
  EXPECT_TRUE(QUtils::fileExists((root + "/real/below/x").c_str()));
  EXPECT_TRUE(QUtils::isLink((root + "/link").c_str()));
}
#endif

}  // namespace
