// Tests of the file stream: open modes, seeking and cutting, failures
// passed through, names, and mapped views.
#include "foundation/file_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/convert.h"
#include "foundation/text.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace QUtils {
namespace {

// Each test works in a directory of its own, made fresh under the scratch
// directory the test binary runs in. Tear-down removes only the files the
// test named through file() and then the (then empty) directory.
class FileStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "\\streams-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&pattern[0], pattern.size() + 1));
    ASSERT_EQ(0, _mkdir(pattern.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "/streams-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
#endif
    directory = pattern;
  }

  void TearDown() override {
    if (directory.empty()) return;  // never made: nothing of ours to remove
    for (const std::string& path : made) {
      CharString system = systemPath(path.c_str());
#ifdef _WIN32
      TextConverter wide(system);
      DeleteFileW(wide.wide());
#else
      unlink(system.getText());
#endif
    }
#ifdef _WIN32
    _rmdir(directory.c_str());
#else
    rmdir(directory.c_str());
#endif
  }

  // A path in the test's directory, joined with '\' on every system.
  std::string file(const char* name) {
    std::string path = directory + "\\" + name;
    made.push_back(path);
    return path;
  }

  static std::string contents(const std::string& path) {
    PFileStream stream;
    if (stream.openFile(path.c_str(), kGenericRead, kShareRead, kModeMustExist) != 0) return "<missing>";
    std::string text(static_cast<size_t>(stream.size()), '\0');
    uint32_t got = 0;
    if (!text.empty()) stream.read(&text[0], static_cast<uint32_t>(text.size()), &got);
    text.resize(got);
    return text;
  }

  static void writeFile(const std::string& path, const std::string& text) {
    PFileStream stream;
    ASSERT_EQ(0, stream.create(path.c_str(), 0));
    uint32_t count = 0;
    ASSERT_EQ(0, stream.write(text.data(), static_cast<uint32_t>(text.size()), &count));
    ASSERT_EQ(text.size(), count);
  }

  std::string directory;
  std::vector<std::string> made;
};

TEST_F(FileStreamTest, ModesDecideWhetherTheFileMustExist) {
  std::string path = file("modes.bin");
  PFileStream stream;
  EXPECT_NE(0, stream.openFile(path.c_str(), kGenericRead, kShareRead, kModeMustExist));
  EXPECT_EQ(0, stream.isOpen());
  EXPECT_EQ(-1, stream.fileSize(path.c_str()));

  ASSERT_EQ(0, stream.openFile(path.c_str(), kGenericRead | kGenericWrite, kShareRead, kModeOpenAlways));
  EXPECT_EQ(1, stream.isOpen());
  uint32_t count = 0;
  EXPECT_EQ(0, stream.write("hello", 5, &count));
  EXPECT_EQ(0, stream.close());
  EXPECT_EQ(0, stream.isOpen());

  // Opening again keeps the content and starts at 0; making anew cuts it.
  ASSERT_EQ(0, stream.openFile(path.c_str(), kGenericRead, kShareRead, kModeOpenAlways | kModeSequential));
  EXPECT_EQ(5, stream.size());
  EXPECT_EQ(0, stream.position());
  stream.close();
  ASSERT_EQ(0, stream.openFile(path.c_str(), kGenericRead | kGenericWrite, kShareRead, kModeCreateAlways));
  EXPECT_EQ(0, stream.size());
  stream.close();
  EXPECT_EQ(0, stream.fileSize(path.c_str()));

  // Making a new file takes a free name only.
  EXPECT_NE(0, stream.openFile(path.c_str(), kGenericWrite, 0, kModeCreateNew));
  EXPECT_EQ(0, stream.isOpen());
  std::string fresh = file("fresh.bin");
  ASSERT_EQ(0, stream.openFile(fresh.c_str(), kGenericWrite, 0, kModeCreateNew));
  stream.close();
  EXPECT_EQ(0, stream.fileSize(fresh.c_str()));
}

TEST_F(FileStreamTest, CreateWithModeOneAppends) {
  std::string path = file("log.txt");
  {
    PFileStream stream;
    ASSERT_EQ(0, stream.create(path.c_str(), 1));  // missing: made
    uint32_t count = 0;
    stream.write("one ", 4, &count);
  }  // the destructor closes
  {
    PFileStream stream;
    ASSERT_EQ(0, stream.create(path.c_str(), 1));
    EXPECT_EQ(4, stream.position());
    uint32_t count = 0;
    stream.write("two", 3, &count);
    stream.close();
    // A null name keeps the stored one.
    ASSERT_EQ(0, stream.create(nullptr, 1));
    stream.write("!", 1, &count);
  }
  EXPECT_EQ("one two!", contents(path));

  PFileStream stream;
  ASSERT_EQ(0, stream.create(path.c_str(), 2));  // any other mode makes it anew
  stream.close();
  EXPECT_EQ("", contents(path));
}

TEST_F(FileStreamTest, SeeksCutsAndReadsAtTheEnd) {
  std::string path = file("seek.bin");
  writeFile(path, "0123456789");
  PFileStream stream;
  ASSERT_EQ(0, stream.openFile(path.c_str(), kGenericRead | kGenericWrite, kShareRead, kModeMustExist));
  EXPECT_EQ(0, stream.seek(6));
  EXPECT_EQ(0, stream.setEnd());
  EXPECT_EQ(6, stream.size());
  EXPECT_EQ(0, stream.seekFromEnd(-2));
  EXPECT_EQ(4, stream.position());
  EXPECT_EQ(0, stream.seekRelative(-3));
  EXPECT_EQ(1, stream.position());
  EXPECT_FALSE(stream.atEnd());

  char buffer[16];
  uint32_t count = 0;
  EXPECT_EQ(0, stream.read(buffer, sizeof buffer, &count));
  EXPECT_EQ("12345", std::string(buffer, count));
  EXPECT_TRUE(stream.atEnd());
  count = 9;
  EXPECT_EQ(0, stream.read(buffer, sizeof buffer, &count));
  EXPECT_EQ(0u, count);
  stream.close();
  EXPECT_EQ("012345", contents(path));
}

TEST_F(FileStreamTest, ClosedStreamsPassFailuresThrough) {
  PFileStream stream;
  char byte;
  uint32_t count = 5;
  EXPECT_NE(0, stream.close());
  EXPECT_NE(0, stream.read(&byte, 1, &count));
  EXPECT_EQ(0u, count);
  EXPECT_NE(0, stream.write("x", 1, &count));
  EXPECT_NE(0, stream.seek(0));
  EXPECT_EQ(-1, stream.size());
  EXPECT_EQ(-1, stream.position());
  EXPECT_EQ(-1, stream.flush());
  EXPECT_TRUE(stream.atEnd());
  EXPECT_EQ(0, stream.isOpen());
}

TEST_F(FileStreamTest, NamesTakeEitherSeparatorAndUtf8) {
  std::string path = file("Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC.txt");  // "Grüße €.txt"
  writeFile(path, "abc");
  PFileStream probe;
  EXPECT_EQ(3, probe.fileSize(path.c_str()));
  std::string forward = path;
  for (char& c : forward)
    if (c == '\\') c = '/';
  EXPECT_EQ(3, probe.fileSize(forward.c_str()));
  EXPECT_EQ("abc", contents(forward));
  EXPECT_EQ(0, probe.isOpen());
  EXPECT_EQ(-1, probe.fileSize(directory.c_str()));
  EXPECT_NE(0, probe.openFile(directory.c_str(), kGenericRead, kShareRead, kModeMustExist));
}

// A view whose offset isn't a multiple of the granularity still starts at
// the wanted byte, and reads and writes are all or nothing.
TEST_F(FileStreamTest, MappedViewsStartAtTheWantedOffset) {
  std::string path = file("mapped.bin");
  std::string data(140000, '\0');
  for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
  writeFile(path, data);

  const int64_t offset = 70001;
  PMMFileStream view;
  EXPECT_EQ(-1, view.create(path.c_str(), 0));
  EXPECT_EQ(-1, view.fileSize(path.c_str()));
  ASSERT_EQ(0, view.mapFile(path.c_str(), kGenericRead, kShareRead, offset, 50));
  EXPECT_EQ(1, view.isOpen());
  EXPECT_EQ(50, view.size());
  ASSERT_NE(nullptr, view.data());
  EXPECT_EQ(data.substr(offset, 50), std::string(reinterpret_cast<const char*>(view.data()), 50));

  char buffer[64];
  uint32_t count = 9;
  EXPECT_EQ(-1, view.read(buffer, 51, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(0, view.position());
  EXPECT_EQ(0, view.seek(10));
  EXPECT_EQ(0, view.read(buffer, 40, &count));
  EXPECT_EQ(40u, count);
  EXPECT_EQ(data.substr(offset + 10, 40), std::string(buffer, 40));
  EXPECT_TRUE(view.atEnd());
  EXPECT_EQ(-1, view.seek(50));
  EXPECT_EQ(0, view.seekFromEnd(5));
  EXPECT_EQ(45, view.position());
  EXPECT_EQ(-1, view.write("x", 1, &count));  // a read-only view
  EXPECT_EQ(-1, view.setEnd());

  // A writable view changes the file in place.
  ASSERT_EQ(0, view.mapFile(path.c_str(), kGenericRead | kGenericWrite, 0, offset + 3, 10));
  EXPECT_EQ(0, view.seek(2));
  EXPECT_EQ(-1, view.write("0123456789", 9, &count));
  EXPECT_EQ(0, view.write("WXYZ", 4, &count));
  EXPECT_EQ(0, view.close());
  EXPECT_TRUE(view.atEnd());
  EXPECT_EQ(-1, view.size());
  EXPECT_EQ(-1, view.flush());
  data.replace(offset + 5, 4, "WXYZ");
  EXPECT_EQ(data, contents(path));

  // Views must lie inside the file.
  EXPECT_NE(0, view.mapFile(path.c_str(), kGenericRead, 0, 139990, 11));
  EXPECT_EQ(0, view.isOpen());
  EXPECT_NE(0, view.mapFile(file("absent.bin").c_str(), kGenericRead, 0, 0, 10));
}

}  // namespace
}  // namespace QUtils
