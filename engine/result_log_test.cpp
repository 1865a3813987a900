// Tests of the result log: what comes before its place is known, the result
// line last, and where it is written (never through a link).
#include "engine/result_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

// A directory of the test's own below the working directory; the files
// named through `file` and the directory go at the end.
class ResultLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[QUtils::kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "\\result-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&pattern[0], pattern.size() + 1));
    ASSERT_EQ(0, _mkdir(pattern.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "/result-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
#endif
    directory = pattern;
  }
  void TearDown() override {
    if (directory.empty()) return;
    for (const std::string& name : names) std::remove(name.c_str());
#ifdef _WIN32
    _rmdir(directory.c_str());
#else
    rmdir(directory.c_str());
#endif
  }
  std::string file(const char* name) {
    names.push_back(directory + QUtils::kPathSeparator + name);
    return names.back();
  }
  // The file's lines, without their ends; empty when it can't be read.
  static std::vector<std::string> lines(const std::string& path) {
    std::vector<std::string> out;
    FILE* stream = QUtils::openFile(path.c_str(), "rb");
    if (!stream) return out;
    std::string line;
    int c;
    while ((c = std::fgetc(stream)) != EOF) {
      if (c == '\r') continue;
      if (c != '\n') {
        line += static_cast<char>(c);
        continue;
      }
      out.push_back(line);
      line.clear();
    }
    if (!line.empty()) out.push_back(line);
    std::fclose(stream);
    return out;
  }
  static void write(const std::string& path, const char* text) {
    FILE* stream = QUtils::openFile(path.c_str(), "wb");
    ASSERT_NE(nullptr, stream);
    std::fputs(text, stream);
    std::fclose(stream);
  }

  std::string directory;
  std::vector<std::string> names;
};

TEST_F(ResultLogTest, LinesKeptBeforeThePlaceIsKnownComeFirstAndTheResultIsLast) {
  std::string path = file("Demo-install.log");
  {
    ResultLog log;
    log.printf("Page Welcome");
    log.printf("Installing: done");
    EXPECT_STREQ("", log.getPath());
    ASSERT_EQ(0, log.placeAt(path.c_str()));
    EXPECT_EQ(path, log.getPath());
    log.printf("Registering: done");
    log.writeResult("installed", 0);
  }
  std::vector<std::string> got = lines(path);
  ASSERT_EQ(4u, got.size());
  // Every step has its time in front; the result stands alone, for a script.
  EXPECT_NE(std::string::npos, got[0].find("Page Welcome"));
  EXPECT_NE(0u, got[0].find("Page Welcome"));
  EXPECT_NE(std::string::npos, got[2].find("Registering: done"));
  EXPECT_EQ("Result: installed (exit code 0)", got[3]);
}

TEST_F(ResultLogTest, ARunInTheSharedTemporaryFolderNeverWritesOverAnotherRunsLog) {
  std::string first = file("Demo-install.log");
  std::string second = file("Demo-install-2.log");
  std::string third = file("Demo-install-3.log");
  write(first, "earlier run\n");
  write(second, "earlier run\n");
  ResultLog log;
  log.printf("Installing: FAILED");
  ASSERT_EQ(0, log.placeExclusively(directory.c_str(), "Demo-install"));
  EXPECT_EQ(third, log.getPath());
  log.writeResult("failed", 1);
  EXPECT_EQ(std::vector<std::string>{"earlier run"}, lines(first));
  EXPECT_EQ(std::vector<std::string>{"earlier run"}, lines(second));
  EXPECT_EQ("Result: failed (exit code 1)", lines(third).back());
}

TEST_F(ResultLogTest, ANamedLogReplacesWhatStandsThere) {
  std::string path = file("result.log");
  write(path, "an older run's lines\n");
  ResultLog log;
  ASSERT_EQ(0, log.openNamed(path.c_str()));
  log.writeResult("installed", 0);
  EXPECT_EQ(std::vector<std::string>{"Result: installed (exit code 0)"}, lines(path));
  // A folder at the name is no file to write: the system's error.
  ResultLog other;
  EXPECT_NE(0, other.openNamed(directory.c_str()));
  EXPECT_STREQ("", other.getPath());
}

#ifndef _WIN32
TEST_F(ResultLogTest, ALinkAtTheNameIsRemovedNeverFollowed) {
  std::string target = file("victim.txt");
  std::string link = file("result.log");
  write(target, "not the installer's\n");
  ASSERT_EQ(0, symlink(target.c_str(), link.c_str()));
  ResultLog log;
  ASSERT_EQ(0, log.placeAt(link.c_str()));
  log.writeResult("installed", 0);
  EXPECT_EQ(std::vector<std::string>{"not the installer's"}, lines(target));
  EXPECT_FALSE(QUtils::isLink(link.c_str()));
  EXPECT_EQ("Result: installed (exit code 0)", lines(link).back());
}
#endif

}  // namespace
