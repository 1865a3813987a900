// Tests of the package loader: solid and plain packages, stripes, files cut
// short, extraction results and damage codes.
#include "package/package.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "package/format.h"
#include "package/md5.h"
#include "package/solid_decompressor.h"
#include "package/test_writer.h"

namespace {

using testwriter::File;

// Collects logged lines.
class LineConsole : public QUtils::PConsole {
 public:
  LineConsole() { flags = 0; }
  int write(const char* text, int length) override {
    pending.append(text, static_cast<size_t>(length));
    size_t end;
    while ((end = pending.find("\r\n")) != std::string::npos) {
      lines.push_back(pending.substr(0, end));
      pending.erase(0, end + 2);
    }
    return 0;
  }
  std::vector<std::string> lines;
  std::string pending;
};

File makeFile(const std::string& key, const std::string& name, const std::string& data, uint32_t flags = 0) {
  unsigned char digest[kMD5DigestSize];
  MD5::digest(data.data(), data.size(), digest);
  return File{key, name, data, flags, std::string(reinterpret_cast<char*>(digest), kMD5DigestSize)};
}

std::vector<File> sampleFiles() {
  return {
      makeFile("install.xml", "install.xml", "<HalvoWorksInstallation/>"),
      makeFile("binapp.exe", "app.exe", testwriter::pseudoRandom(70000, 11)),
      makeFile("guilogo.png", "logo.png", testwriter::pseudoRandom(3000, 12), 1),
      makeFile("empty.txt", "empty.txt", ""),
      makeFile(std::string(275, 'k'), std::string(299, 'n'), "longest key and name"),
      makeFile("dup", "dup", "earlier"),
      makeFile("Dup", "Dup", "other case"),
      makeFile("dup", "dup", "later"),
  };
}

// An image of `offset` bytes, the package, and a checksum-like tail.
std::string installerFile(uint32_t offset, const std::string& package) {
  return testwriter::pseudoRandom(offset, 99) + package + "v2sum: " + std::string(16, '\x11') +
         testwriter::pseudoRandom(500, 98);
}

std::string solidPackage(const std::vector<File>& files, int stripes) {
  return testwriter::packageHeader(files) + testwriter::solidBlock(testwriter::records(files, false), stripes, {}, 5);
}

std::string plainPackage(const std::vector<File>& files) {
  return testwriter::packageHeader(files) + testwriter::records(files, true);
}

class PackageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path = ::testing::TempDir() + "qlux_package_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
    package.logConsole = &console;
  }
  void TearDown() override {
    package.release();
    std::remove(path.c_str());
  }
  int open(const std::string& bytes, uint32_t offset, int flags = 0) {
    // A loaded package keeps its file open, which Windows doesn't let
    // anyone rewrite meanwhile.
    package.release();
    EXPECT_TRUE(testwriter::writeFile(path, bytes));
    return package.openPackage(path.c_str(), offset, flags);
  }
  std::string extract(const std::string& key) {
    QUtils::RefArray<unsigned char> data;
    uint32_t size = 12345;
    if (package.extractFile(key.c_str(), &size, data, nullptr) != 0) return "<failed>";
    EXPECT_EQ(0, data.get()[size]) << key;  // text can be parsed as it comes
    return std::string(reinterpret_cast<char*>(data.get()), size);
  }

  std::string path;
  Package package;
  LineConsole console;
};

TEST_F(PackageTest, LoadsSolidAndPlainPackages) {
  std::vector<File> files = sampleFiles();
  struct Case {
    const char* what;
    std::string package;
    int solid;
  };
  const Case cases[] = {{"one stripe", solidPackage(files, 1), 1},
                        {"eight stripes", solidPackage(files, 8), 1},
                        {"256 stripes", solidPackage(files, 256), 1},
                        {"not solid", plainPackage(files), 0}};
  for (const Case& c : cases) {
    ASSERT_EQ(0, open(installerFile(7000, c.package), 7000)) << c.what;
    EXPECT_EQ(c.solid, package.packageIsSolid) << c.what;
    ASSERT_EQ(static_cast<int>(files.size()), package.files.getCount()) << c.what;
    for (size_t i = 0; i < files.size(); i++) {
      const COMPFILEINFO& entry = package.files[static_cast<int>(i)];
      EXPECT_EQ(files[i].key, entry.key);
      EXPECT_EQ(files[i].name, entry.name);
      EXPECT_EQ(files[i].flags, entry.flags);
      EXPECT_EQ(files[i].data.size(), entry.fileSize);
    }
    for (size_t i = 0; i < 5; i++) EXPECT_TRUE(extract(files[i].key) == files[i].data) << c.what << " " << i;
    EXPECT_EQ("later", extract("dup"));
    EXPECT_EQ("other case", extract("Dup"));
    EXPECT_EQ(-1, package.findFile("DUP"));
  }
  EXPECT_EQ((std::vector<std::string>{"Initalizing memory for the compressed cabinet (" +
                                          std::to_string(installerFile(0, plainPackage(files)).size()) + " B)",
                                      "Seeking file offset 7000", "Reading compressed cabinet into memory",
                                      "Checking compressed cabinet version compatibility",
                                      "Starting decompression of data ...",
                                      "Finished decompression. Initializing file headers ...",
                                      "Finished file headers initialization."}),
            std::vector<std::string>(console.lines.end() - 7, console.lines.end()));
}

// A solid block of many stripes, listed in shuffled order and stored in
// reverse with gaps, read the way the file stage reads it (in order, with
// files that span stripes) and then in a scattered order: every file comes
// out whole, a file inside one stripe is handed out where it lies, and no
// more stripes are held than the reader's limit.
TEST_F(PackageTest, SolidPackagesAreReadStripeByStripe) {
  std::vector<File> files;
  for (int i = 0; i < 60; i++) {
    size_t size = i % 7 == 0 ? 20000 + 997 * static_cast<size_t>(i) : 37 * static_cast<size_t>(i);
    std::string data = i % 2 ? testwriter::pseudoRandom(size, static_cast<uint32_t>(i))
                             : std::string(size, static_cast<char>('a' + i % 26));
    files.push_back(makeFile("f" + std::to_string(i), "f", data));
  }
  const int stripes = 200;
  std::vector<int> order;
  for (int i = 0; i < stripes; i++) order.push_back((i * 73) % stripes);
  std::string blob = testwriter::records(files, false);
  ASSERT_EQ(0, open(testwriter::packageHeader(files) + testwriter::solidBlock(blob, stripes, order, 3, true), 0));
  StripeReader* reader = package.getStripeReader();
  ASSERT_NE(nullptr, reader);
  ASSERT_EQ(stripes, reader->stripeCount());

  int inPlace = 0;
  auto check = [&](int index) {
    PackageFileView view;
    ASSERT_EQ(0, package.viewFile(index, &view, nullptr)) << index;
    ASSERT_EQ(files[static_cast<size_t>(index)].data.size(), view.size()) << index;
    EXPECT_TRUE(std::string(reinterpret_cast<const char*>(view.data()), view.size()) ==
                files[static_cast<size_t>(index)].data)
        << index;
    EXPECT_LE(reader->buffersInUse(), reader->bufferLimit());
    int64_t start = package.files[index].recordOffset + 608;
    int first = reader->stripeAt(start);
    if (view.size() > 0 && start + view.size() <= reader->stripeEnd(first)) inPlace++;
  };
  for (int i = 0; i < 60; i++) check(i);
  EXPECT_GT(inPlace, 20);
  for (int i = 0; i < 60; i++) check((i * 17) % 60);
  // Two views at once pin two stripes; both stay valid.
  PackageFileView first, last;
  ASSERT_EQ(0, package.viewFile(1, &first, nullptr));
  ASSERT_EQ(0, package.viewFile(59, &last, nullptr));
  EXPECT_TRUE(std::string(reinterpret_cast<const char*>(first.data()), first.size()) == files[1].data);
  EXPECT_TRUE(std::string(reinterpret_cast<const char*>(last.data()), last.size()) == files[59].data);
}

// The installer file may change under a loaded package where the system
// lets it (Windows doesn't): what can't be read any more fails to extract,
// and nothing reads out of bounds.
TEST_F(PackageTest, FileCutAfterLoadingFailsToExtract) {
#ifdef _WIN32
  GTEST_SKIP() << "the loaded package's file can't be rewritten";
#endif
  std::vector<File> files = {makeFile("a", "a", testwriter::pseudoRandom(50000, 3)),
                             makeFile("b", "b", testwriter::pseudoRandom(50000, 4))};
  for (const std::string& whole : {solidPackage(files, 40), plainPackage(files)}) {
    ASSERT_EQ(0, open(whole, 0));
    ASSERT_TRUE(testwriter::writeFile(path, whole.substr(0, whole.size() / 3)));
    // The last stripes may still be held from loading; the first file's
    // later ones aren't, and lay behind the cut.
    EXPECT_EQ("<failed>", extract("a"));
  }
}

TEST_F(PackageTest, ExtractionResults) {
  std::vector<File> files = sampleFiles();
  ASSERT_EQ(0, open(solidPackage(files, 2), 0));
  QUtils::RefArray<unsigned char> data;
  uint32_t size = 77;
  unsigned char digest[kMD5DigestSize];
  ASSERT_EQ(0, package.extractFile(1, &size, data, digest));
  EXPECT_EQ(files[1].digest, std::string(reinterpret_cast<char*>(digest), kMD5DigestSize));

  // A failure by index zeroes the size and leaves the data; an unknown key
  // touches nothing.
  QUtils::RefArray<unsigned char> kept = data;
  EXPECT_EQ(-1, package.extractFile(package.files.getCount(), &size, data, nullptr));
  EXPECT_EQ(0u, size);
  EXPECT_EQ(kept.get(), data.get());
  EXPECT_EQ(-1, package.extractFile(-1, &size, data, nullptr));
  size = 77;
  EXPECT_EQ(-1, package.extractFile("absent", &size, data, nullptr));
  EXPECT_EQ(77u, size);
  EXPECT_TRUE(package.getFileData("absent", &size).isNull());
  EXPECT_EQ(77u, size);

  QUtils::RefArray<unsigned char> empty = package.getFileData("empty.txt", &size);
  EXPECT_EQ(0u, size);
  ASSERT_FALSE(empty.isNull());
  EXPECT_EQ(0, empty.get()[0]);
}

TEST_F(PackageTest, PackageWithNoFiles) {
  ASSERT_EQ(0, open(solidPackage({}, 1), 0));
  EXPECT_EQ(0, package.files.getCount());
  EXPECT_EQ(-1, package.findFile("install.xml"));
  ASSERT_EQ(0, open(plainPackage({}), 0));
  EXPECT_EQ(0, package.files.getCount());
}

// Each damage gives its code, and no package data survives it.
TEST_F(PackageTest, DamageCodes) {
  std::vector<File> files = sampleFiles();
  std::string plain = plainPackage(files);
  std::string solid = solidPackage(files, 3);
  auto patched = [](std::string bytes, size_t at, uint32_t value) {
    testwriter::set32(bytes, at, value);
    return bytes;
  };
  // The first stripe one byte shorter than its data: a hole in the blob.
  const unsigned char* firstStripe = reinterpret_cast<const unsigned char*>(solid.data()) + 64 + 20;
  std::string badBlock = patched(solid, 64 + 24, readU32(firstStripe + 4) - 1);
  // Where the last compressed stream starts: the streams follow the table in
  // blob order, so the third record names it.
  const size_t lastStream = 64 + readU32(firstStripe + 2 * 16 + 8);
  auto flipped = [](std::string bytes, size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 0x55);
    return bytes;
  };

  struct Case {
    const char* what;
    std::string bytes;
    uint32_t offset;
    int code;
  };
  const Case cases[] = {
      {"offset past the end", plain, static_cast<uint32_t>(plain.size() + 1), kPackageSeekFailed},
      {"first magic", patched(plain, 0, 0), 0, kPackageBadMagic1},
      {"second magic", patched(plain, 4, 0), 0, kPackageBadMagic2},
      {"third magic", patched(plain, 8, 0), 0, kPackageBadMagic3},
      {"header cut short", plain.substr(0, 6), 0, kPackageBadMagic2},
      {"record magic", patched(plain, 64, 0x63270011u), 0, kPackageBadRecord},
      {"no end record", plain.substr(0, plain.size() - 608), 0, kPackageBadRecord},
      {"data runs past the end", patched(plain, 64 + 8, 0x7fff0000u), 0, kPackageBadRecord},
      {"signature damaged: not solid", patched(solid, 64, 0), 0, kPackageBadRecord},
      {"stripe length wrong", badBlock, 0, kSolidNotTiled},
      {"last stream damaged", flipped(solid, lastStream + 9), 0, kSolidStripeFailed},
      {"last stream cut", solid.substr(0, lastStream + 9), 0, kSolidStripeTruncated},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.code, open(c.bytes, c.offset)) << c.what;
    EXPECT_FALSE(package.isLoaded()) << c.what;
  }
  EXPECT_EQ("ERROR: The solid compressor failed with decompressing the data!", console.lines.back());

  console.lines.clear();
  EXPECT_EQ(kPackageOpenFailed, package.openPackage((path + ".missing").c_str(), 0, 0));
  EXPECT_EQ(std::vector<std::string>{"ERROR: Failed to open " + path + ".missing for decompressing!"}, console.lines);
  package.logConsole = nullptr;  // codes come back the same without a log
  EXPECT_EQ(kPackageOpenFailed, package.openPackage((path + ".missing").c_str(), 0, 0));
}

// Every length of a cut file fails cleanly and never reads past what was
// loaded (run under the address sanitizer to see the second part).
TEST_F(PackageTest, TruncatedPackagesFailCleanly) {
  std::vector<File> files = {makeFile("a", "a", testwriter::pseudoRandom(900, 21)), makeFile("b", "b", "text")};
  for (const std::string& whole : {solidPackage(files, 4), plainPackage(files)}) {
    for (size_t length = 0; length < whole.size(); length += length < 200 ? 1 : 13) {
      EXPECT_NE(0, open(whole.substr(0, length), 0)) << length;
      EXPECT_FALSE(package.isLoaded()) << length;
    }
    EXPECT_EQ(0, open(whole, 0));
  }
}

TEST_F(PackageTest, ActionLogFlagOpensTheFileOnly) {
  ASSERT_EQ(0, open("not a package", 0, kRunFlagActionLog | kRunFlagBackup));
  EXPECT_NE(nullptr, package.actionLogFile);
  EXPECT_FALSE(package.isLoaded());
  EXPECT_EQ(kRunFlagActionLog | kRunFlagBackup, package.runFlags);
  package.release();
  EXPECT_EQ(kPackageLogOpenFailed, package.openPackage((path + ".missing").c_str(), 0, kRunFlagActionLog));
  EXPECT_EQ(nullptr, package.actionLogFile);
  EXPECT_EQ("ERROR: Failed to open the installation log file (" + path + ".missing)", console.lines.back());
}

}  // namespace
