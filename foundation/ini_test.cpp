// Tests of the INI editor: reading values and lists, replacing and adding
// keys, new keys, and removing keys and sections.
#include "foundation/ini.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"

namespace QUtils {
namespace {

class IniTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string base = ::testing::TempDir();
    while (base.size() > 1 && (base.back() == '/' || base.back() == '\\')) base.pop_back();
    std::random_device random;
    directory = base + kPathSeparator + "qlux-ini-" + std::to_string(random()) + std::to_string(random());
    ASSERT_TRUE(makeDirectory(directory.c_str()));
    file = directory + kPathSeparator + "app.ini";
  }
  void TearDown() override { deleteTree(directory.c_str()); }

  void write(const std::string& content) {
    FILE* stream = openFile(file.c_str(), "wb");
    ASSERT_NE(nullptr, stream);
    std::fwrite(content.data(), 1, content.size(), stream);
    std::fclose(stream);
  }
  std::string read() {
    FILE* stream = openFile(file.c_str(), "rb");
    if (!stream) return "<missing>";
    std::string content;
    char block[256];
    size_t count;
    while ((count = std::fread(block, 1, sizeof block, stream)) > 0) content.append(block, count);
    std::fclose(stream);
    return content;
  }
  // The value, or "<default>".
  std::string value(const char* section, const char* key) {
    char out[512];
    readIniValue(file.c_str(), section, key, "<default>", out, sizeof out);
    return out;
  }
  // A NUL-separated list, shown with '|' behind each name.
  std::string names(const char* section, const char* key, int size = 512) {
    char out[512];
    int count = readIniValue(file.c_str(), section, key, nullptr, out, size);
    EXPECT_EQ(0, out[count]);
    std::string shown;
    for (int i = 0; i < count; i++) shown += out[i] ? out[i] : '|';
    return shown;
  }

  std::string directory;
  std::string file;
};

const char kSample[] =
    "; settings\n"
    "top=before any section\n"
    "[Paths]\n"
    "home = /opt/app \n"
    "; a comment = not a key\n"
    "\n"
    "data=/var/app\n"
    "[broken\n"
    "no equals sign\n"
    "[Other]\n"
    "home=elsewhere\n";

TEST_F(IniTest, ReadsValuesAndLists) {
  write(kSample);
  EXPECT_EQ("/opt/app", value("Paths", "home"));
  EXPECT_EQ("/var/app", value("Paths", "data"));
  EXPECT_EQ("elsewhere", value("Other", "home"));
  // Values compare both names exactly (on Windows without case, as the
  // system reads them); comments aren't keys.
#ifdef _WIN32
  EXPECT_EQ("/opt/app", value("paths", "home"));
  EXPECT_EQ("/opt/app", value("Paths", "HOME"));
#else
  EXPECT_EQ("<default>", value("paths", "home"));
  EXPECT_EQ("<default>", value("Paths", "HOME"));
#endif
  EXPECT_EQ("<default>", value("Paths", "; a comment"));
  EXPECT_EQ("<default>", value("Missing", "home"));

  // Listing keys compares the section without regard to case.
  EXPECT_EQ("home|data|", names("paths", nullptr));
  EXPECT_EQ("", names("Missing", nullptr));
  EXPECT_EQ("Paths|Other|", names(nullptr, "ignored"));
  // A list that doesn't fit keeps the names that do, and its closing NUL.
  EXPECT_EQ("Paths|", names(nullptr, nullptr, 9));

  char out[512];
  EXPECT_EQ(3, readIniValue(file.c_str(), "Paths", "home", "", out, 4));
  EXPECT_STREQ("/op", out);
  EXPECT_EQ(1, readIniValue((directory + "/none.ini").c_str(), "a", "b", "d", out, sizeof out));
  EXPECT_STREQ("d", out);
}

TEST_F(IniTest, ReplaceInPlaceKeepsEverythingElse) {
  write(kSample);
  EXPECT_EQ(0, writeIniValue(file.c_str(), "paths", "data", "/srv/app", nullptr));
  std::string expected = kSample;
  expected.replace(expected.find("data=/var/app"), 13, "data=/srv/app");
  EXPECT_EQ(expected, read());
}

TEST_F(IniTest, AddMovesTheKeyToTheEndOfItsSection) {
  write("[A]\na=1\nb=2\nc=3\n\n[B]\nx=1\n");
  // The template's Add passes an empty beforeKey.
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "a", "9", ""));
  EXPECT_EQ("[A]\nb=2\nc=3\na=9\n\n[B]\nx=1\n", read());

  // A named beforeKey takes the line in front of that key.
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "n", "new", "c"));
  EXPECT_EQ("[A]\nb=2\nn=new\nc=3\na=9\n\n[B]\nx=1\n", read());

  // The key given twice: every line of it goes.
  write("[A]\nk=1\nz=0\nk=2\n[B]\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "k", "3", ""));
  EXPECT_EQ("[A]\nz=0\nk=3\n[B]\n", read());

  // A section without keys gets the line behind its section line.
  write("[A]\n; only a comment\n[B]\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "a", "k", "v", ""));
  EXPECT_EQ("[A]\nk=v\n; only a comment\n[B]\n", read());
}

// A key given in another case is the file's key where the system's reader
// takes it for that (Windows): it is changed in place of a second line, and
// keeps its spelling.
TEST_F(IniTest, AKeyInAnotherCaseIsTheSameKeyWhereTheSystemSaysSo) {
  write("[Paths]\nHome=/old\nother=1\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "Paths", "home", "/new", ""));
#ifdef _WIN32
  EXPECT_EQ("[Paths]\nother=1\nHome=/new\n", read());
  EXPECT_EQ(0, writeIniValue(file.c_str(), "PATHS", "HOME", "/old", nullptr));
  EXPECT_EQ("[Paths]\nother=1\nHome=/old\n", read());
#else
  EXPECT_EQ("[Paths]\nHome=/old\nother=1\nhome=/new\n", read());
#endif
}

TEST_F(IniTest, NewKeysAtTheEndOfTheFile) {
  // In the file's last section the line goes to the very end.
  write("[A]\nx=1\n; trailing\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "y", "2", ""));
  EXPECT_EQ("[A]\nx=1\n; trailing\ny=2\n", read());
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "w", "0", "x"));
  EXPECT_EQ("[A]\nw=0\nx=1\n; trailing\ny=2\n", read());

  // A section that isn't there is appended.
  EXPECT_EQ(0, writeIniValue(file.c_str(), "New", "k", "v", nullptr));
  EXPECT_EQ("[A]\nw=0\nx=1\n; trailing\ny=2\n[New]\nk=v\n", read());

  // The last section spelled otherwise gets a section line of its own,
  // except where the system's reader takes it for the same (Windows).
  write("[a]\nx=1\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "y", "2", "x"));
#ifdef _WIN32
  EXPECT_EQ("[a]\ny=2\nx=1\n", read());
#else
  EXPECT_EQ("[a]\nx=1\n[A]\ny=2\n", read());
#endif
  EXPECT_EQ("2", value("A", "y"));

  // A file that isn't there yet is made.
  std::string fresh = directory + "/fresh.ini";
  EXPECT_EQ(0, writeIniValue(fresh.c_str(), "S", "k", "v", ""));
  char out[64];
  readIniValue(fresh.c_str(), "S", "k", "", out, sizeof out);
  EXPECT_STREQ("v", out);
}

TEST_F(IniTest, RemovingKeysAndSections) {
  write("[A]\nk=1\nk=2\n[B]\nk=3\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "k", nullptr, nullptr));
  EXPECT_EQ("[A]\nk=2\n[B]\nk=3\n", read());
  // A key that isn't there leaves the file untouched.
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "none", nullptr, nullptr));
  EXPECT_EQ("[A]\nk=2\n[B]\nk=3\n", read());
  std::string missing = directory + "/missing.ini";
  EXPECT_EQ(0, writeIniValue(missing.c_str(), "A", "k", nullptr, nullptr));
  EXPECT_FALSE(fileExists(missing.c_str()));

  write("; head\n[A]\na=1\n; note\nb=2\n[B]\nk=3\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "a", nullptr, nullptr, nullptr));
  EXPECT_EQ("; head\n; note\n[B]\nk=3\n", read());
}

TEST_F(IniTest, UndoRestoresAReplacedValue) {
  // What an INI action and its undoing do: read the old value, Add over
  // it, then put the old value back where the key now stands.
  write("[S]\nkey=old\nother=1\n");
  EXPECT_EQ("old", value("S", "key"));
  EXPECT_EQ(0, writeIniValue(file.c_str(), "S", "key", "new", ""));
  EXPECT_EQ("[S]\nother=1\nkey=new\n", read());
  EXPECT_EQ(0, writeIniValue(file.c_str(), "S", "key", "old", nullptr));
  EXPECT_EQ("[S]\nother=1\nkey=old\n", read());
}

TEST_F(IniTest, LineEndsAndByteOrderMarkStay) {
  write("\xEF\xBB\xBF[A]\r\nx=1\r\n\r\n[B]\r\ny=2");
  EXPECT_EQ("1", value("A", "x"));
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "z", "3", ""));
  EXPECT_EQ("\xEF\xBB\xBF[A]\r\nx=1\r\nz=3\r\n\r\n[B]\r\ny=2\r\n", read());

  // Mixed files keep each line's own end.
  write("[A]\nx=1\r\ny=2\n");
  EXPECT_EQ(0, writeIniValue(file.c_str(), "A", "x", "5", nullptr));
  EXPECT_EQ("[A]\nx=5\r\ny=2\n", read());
}

TEST_F(IniTest, FailuresLeaveTheOldFile) {
  EXPECT_EQ(-1, writeIniValue(nullptr, "A", "k", "v", nullptr));
  EXPECT_EQ(-1, writeIniValue(file.c_str(), nullptr, "k", "v", nullptr));
  std::string nowhere = directory + "/missing/dir/app.ini";
  EXPECT_EQ(-1, writeIniValue(nowhere.c_str(), "A", "k", "v", nullptr));

  // The temporary file can't be made where a directory of its name stands:
  // the old content stays whole and nothing is left behind.
  write("[A]\nk=1\n");
  ASSERT_TRUE(makeDirectory((file + ".qlux-new").c_str()));
  EXPECT_EQ(-1, writeIniValue(file.c_str(), "A", "k", "2", nullptr));
  EXPECT_EQ("[A]\nk=1\n", read());
}

}  // namespace
}  // namespace QUtils
