// qlux-pack and the loader together: installers built by the real builder
// from a template and a source tree, then run and loaded.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "package/block_table.h"
#include "package/checksum.h"
#include "package/deflate_codec.h"
#include "package/format.h"
#include "package/md5.h"
#include "package/package.h"
#include "package/record_index.h"
#include "package/solid_decompressor.h"
#include "package/test_writer.h"
#include "tests/package/run_command.h"

namespace {

namespace fs = std::filesystem;

const char kTemplate[] =
    "<?xml version=\"1.0\"?>\n"
    "<HalvoWorksInstallation>\n"
    "  <!-- <FN>commented/out.txt</FN> is no entry -->\n"
    "  <Installation>\n"
    "    <FileSet Name=\"Main\">\n"
    "      <FN Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/app.bin</FN>\n"
    "      <FN Dest=\"[INSTALLDIR]\" Alias=\"readme\">docs/readme.txt</FN>\n"
    "      <FN>gui/logo.png</FN>\n"
    "      <FN>gui\\Photo.JPG</FN>\n"
    "      <FN>//gui/sky.hdr</FN>\n"
    "      <FN>empty.dat</FN>\n"
    "      <FN OkIfMissing=\"1\">optional/extra.dll</FN>\n"
    "      <FN Dest=\"[INSTALLDIR]\">setup/install.xml</FN>\n"
    "    </FileSet>\n"
    "    <FileSet Name=\"Docs\">\n"
    "      <FN Dest=\"[INSTALLDIR]/doc\" Alias=\"readme\">docs/readme.txt</FN>\n"
    "      <FN>MISSING_ENTRY</FN>\n"
    "    </FileSet>\n"
    "    <Other><FN>not/in/a/fileset.txt</FN></Other>\n"
    "  </Installation>\n"
    "</HalvoWorksInstallation>\n";

std::string md5Hex(const std::string& data) {
  unsigned char digest[kMD5DigestSize];
  MD5::digest(data.data(), data.size(), digest);
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (unsigned char c : digest) (text += digits[c >> 4]) += digits[c & 15];
  return text;
}

class PackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "qlux_pack_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
    root = pattern;
    source = root + "/source";
    out = root + "/out";
    fs::create_directories(source + "/bin");
    fs::create_directories(source + "/docs");
    fs::create_directories(source + "/gui");
    fs::create_directories(out);
    std::string text;
    while (text.size() < 50000) text += "Read me, line " + std::to_string(text.size()) + ".\n";
    // key -> bytes, and where each file stands in the source tree
    sources = {{"binapp.bin", testwriter::pseudoRandom(200000, 1)},
               {"readme", text},
               {"guilogo.png", testwriter::pseudoRandom(3000, 2)},
               {"guiPhoto.JPG", testwriter::pseudoRandom(1000, 3)},
               {"guisky.hdr", "#?RADIANCE\n"},
               {"empty.dat", ""}};
    const std::map<std::string, std::string> paths = {
        {"binapp.bin", "bin/app.bin"},     {"readme", "docs/readme.txt"},  {"guilogo.png", "gui/logo.png"},
        {"guiPhoto.JPG", "gui/Photo.JPG"}, {"guisky.hdr", "gui/sky.hdr"}, {"empty.dat", "empty.dat"}};
    for (const auto& p : paths) ASSERT_TRUE(testwriter::writeFile(source + "/" + p.second, sources[p.first]));
    // The template stands outside the source tree, and lists itself.
    templatePath = root + "/install.xml";
    std::string valid = kTemplate;
    valid.replace(valid.find("      <FN>MISSING_ENTRY</FN>\n"), 29, "");
    sources["setupinstall.xml"] = sources["install.xml"] = valid;
    ASSERT_TRUE(testwriter::writeFile(templatePath, valid));
  }
  void TearDown() override { fs::remove_all(root); }

  // The template is no whole product, only a set of files: its findings are
  // warnings here.
  CommandResult pack(const std::string& arguments, const std::string& environment = "") {
    return run(environment + " " + QLUX_PACK + " --no-strict --template " + templatePath + " --source " + source +
               " -o " + out + "/setup " + arguments);
  }

  // Runs the stub program on `installer` (its own file when that is the
  // packed stub): the checksum and the offset it reports, then every key
  // with its size, image flag and the MD5 of the bytes it extracted, which
  // must be those of the source.
  void expectLoads(const std::string& installer, const std::string& argument, const std::string& head) {
    CommandResult result = run(installer + " " + argument);
    ASSERT_EQ(0, result.status) << result.output;
    ASSERT_EQ(head + "open 0\n", result.output.substr(0, head.size() + 7)) << result.output;
    for (const auto& s : sources) {
      bool image = s.first == "guilogo.png" || s.first == "guiPhoto.JPG" || s.first == "guisky.hdr";
      std::string md5 = md5Hex(s.second);
      std::string line = s.first + "\t" + std::to_string(s.second.size()) + (image ? "\t1\t" : "\t0\t") + md5 +
                         "\t" + md5 + "\n";
      EXPECT_NE(std::string::npos, result.output.find(line)) << line << result.output;
    }
    // One record per key, the template's last so that it is the one found.
    EXPECT_EQ(sources.size() + 3, static_cast<size_t>(std::count(result.output.begin(), result.output.end(), '\n')));
    size_t lastLine = result.output.rfind('\n', result.output.size() - 2) + 1;
    EXPECT_EQ(0, result.output.compare(lastLine, 12, "install.xml\t")) << result.output;
  }
  // The packed stub finds its own package and passes its own checksum.
  void expectInstallerRuns(const std::string& installer) {
    expectLoads(installer, "", "checksum ok\noffset " + std::to_string(fs::file_size(QLUX_PACK_STUB)) + "\n");
  }

  void expectNoOutput() { EXPECT_TRUE(fs::is_empty(out)) << fs::directory_iterator(out)->path(); }

  std::string root, source, out, templatePath;
  std::map<std::string, std::string> sources;  // key -> bytes
};

TEST_F(PackTest, InstallersLoadWithEveryFileIntact) {
  const char* variants[] = {"", "--stripes 1 --level 9", "--stripes 256 --level 0", "--not-solid"};
  for (const char* variant : variants) {
    SCOPED_TRACE(variant);
    CommandResult result = pack(std::string("--stub ") + QLUX_PACK_STUB + " " + variant);
    ASSERT_EQ(0, result.status) << result.output;
    std::string installer = out + "/setup";
    EXPECT_TRUE(verifyPackageChecksum(installer.c_str()));
    EXPECT_EQ("v2sum: ", testwriter::readFile(installer).substr(fs::file_size(installer) - 23, 7));
    EXPECT_TRUE((fs::status(installer).permissions() & fs::perms::owner_exec) != fs::perms::none);
    expectInstallerRuns(installer);
    fs::remove(installer);
  }
}

TEST_F(PackTest, OldChecksumRecordAndBarePackage) {
  CommandResult result = pack(std::string("--stub ") + QLUX_PACK_STUB, "OLD_CHECKSUMMING=1");
  ASSERT_EQ(0, result.status) << result.output;
  std::string installer = out + "/setup";
  EXPECT_EQ("MD5SUM: ", testwriter::readFile(installer).substr(fs::file_size(installer) - 24, 8));
  expectInstallerRuns(installer);

  result = pack("--bare");
  ASSERT_EQ(0, result.status) << result.output;
  std::string bare = testwriter::readFile(installer);
  EXPECT_EQ(std::string("\x27\x63\x27\x63", 4), bare.substr(0, 4));
  EXPECT_EQ(std::string::npos, bare.find("v2sum: "));
  // The unpatched stub reads a bare package given to it at offset 0.
  expectLoads(QLUX_PACK_STUB, installer, "checksum failed\noffset 0\n");
}

// The builder's block keeps the documented layout: a reader that knows only
// the stripe table inflates it to the record stream, skipping the record
// index's pointer in the gap and the index behind the last stream. The
// loader lists the records from that index; a damaged index is passed over,
// and one at odds with the blob keeps the file it misdescribes from being
// handed out.
TEST_F(PackTest, BlocksKeepTheLayoutAndCarryARecordIndex) {
  CommandResult result = pack("--bare --stripes 5");
  ASSERT_EQ(0, result.status) << result.output;
  const std::string bare = out + "/setup";
  std::string bytes = testwriter::readFile(bare);

  std::unique_ptr<SolidDecompressor> reader(
      createSolidDecompressor(reinterpret_cast<const unsigned char*>(bytes.data()) + 64));
  ASSERT_NE(nullptr, reader);
  unsigned char* blob = nullptr;
  int32_t blobSize = 0;
  ASSERT_EQ(0, reader->decompress(reinterpret_cast<const unsigned char*>(bytes.data()) + 64,
                                  static_cast<int32_t>(bytes.size() - 64), &blob, &blobSize));
  std::map<std::string, std::string> found;
  for (int32_t at = 0; readU32(blob + at) == kRecordMagicFile;) {
    uint32_t size = readU32(blob + at + kRecordStoredSizeOffset);
    found[reinterpret_cast<const char*>(blob + at + kRecordKeyOffset)] =
        std::string(reinterpret_cast<const char*>(blob + at + kRecordHeaderSize), size);
    at += kRecordHeaderSize + static_cast<int32_t>(size);
  }
  std::free(blob);
  EXPECT_TRUE(found == sources);

  auto load = [&](const std::string& package, Package* loaded) {
    EXPECT_TRUE(testwriter::writeFile(bare, package));
    return loaded->openPackage(bare.c_str(), 0, 0);
  };
  auto extract = [](Package* loaded, const std::string& key) {
    QUtils::RefArray<unsigned char> data;
    uint32_t size = 0;
    if (loaded->extractFile(key.c_str(), &size, data, nullptr) != 0) return std::string("<failed>");
    return std::string(reinterpret_cast<char*>(data.get()), size);
  };
  Package intact;
  ASSERT_EQ(0, load(bytes, &intact));
  EXPECT_TRUE(intact.listedFromIndex());
  for (const auto& s : sources) EXPECT_TRUE(extract(&intact, s.first) == s.second) << s.first;

  // The pointer stands behind the five stripe records; the index, a zlib
  // stream, at the package's end.
  const size_t pointerAt = 64 + 20 + 16 * 5;
  RecordIndexPlace place;
  ASSERT_TRUE(readRecordIndexPointer(reinterpret_cast<const unsigned char*>(bytes.data()) + pointerAt,
                                     static_cast<int64_t>(bytes.size() - 64), 0, &place));
  const size_t streamAt = 64 + static_cast<size_t>(place.streamOffset);
  ASSERT_EQ(bytes.size(), streamAt + place.packedSize);

  std::string damaged = bytes;
  damaged[streamAt + place.packedSize / 2] ^= 0x40;
  Package passedOver;
  ASSERT_EQ(0, load(damaged, &passedOver));
  EXPECT_FALSE(passedOver.listedFromIndex());
  for (const auto& s : sources) EXPECT_TRUE(extract(&passedOver, s.first) == s.second) << s.first;

  // An index that names the first record by another key, but chains
  // through the blob as it should.
  std::vector<unsigned char> entries(place.unpackedSize);
  size_t length = entries.size();
  ASSERT_EQ(0, inflateZlibStream(entries.data(), &length,
                                 reinterpret_cast<const unsigned char*>(bytes.data()) + streamAt, place.packedSize));
  std::string firstKey = reinterpret_cast<const char*>(entries.data() + 8 + kRecordKeyOffset);
  entries[8 + kRecordKeyOffset] ^= 0x01;
  RecordIndexWriter rewritten;
  for (uint32_t i = 0; i < place.count; i++) {
    const unsigned char* entry = entries.data() + i * kRecordIndexEntrySize;
    rewritten.add(readU32(entry), entry + 8);
  }
  std::string stream, pointer;
  ASSERT_TRUE(rewritten.finish(6, place.streamOffset, &stream, &pointer));
  std::string misleading = bytes.substr(0, streamAt) + stream;
  misleading.replace(pointerAt, pointer.size(), pointer);
  Package misled;
  ASSERT_EQ(0, load(misleading, &misled));
  EXPECT_TRUE(misled.listedFromIndex());
  EXPECT_EQ("<failed>", extract(&misled, reinterpret_cast<const char*>(misled.files[0].key)));
  EXPECT_EQ(firstKey, std::string(reinterpret_cast<const char*>(&misled.files[0].key[0])).replace(0, 1, 1, firstKey[0]))
      << "the index's key differs in its first byte only";
  for (int i = 1; i < misled.files.getCount(); i++) {
    EXPECT_TRUE(extract(&misled, misled.files[i].key) == sources[misled.files[i].key]) << misled.files[i].key;
  }
}

// Records past what one block holds (lowered here from 1 GiB) go into
// several blocks behind a block table, the largest file split across them.
// The loader lists them from the record index, or the long way when that is
// damaged, and hands every file out whole, or a stripe's share at a time.
TEST_F(PackTest, PackagesOfSeveralBlocks) {
  CommandResult result = pack("--bare --block-limit 64K --stripes 3");
  ASSERT_EQ(0, result.status) << result.output;
  const std::string bare = out + "/setup";
  const std::string bytes = testwriter::readFile(bare);
  BlockTable table;
  int64_t tableSize = 0;
  const unsigned char* head = reinterpret_cast<const unsigned char*>(bytes.data()) + kPackageHeaderSize;
  ASSERT_EQ(0, readBlockTableSize(head, &tableSize));
  ASSERT_EQ(0, readBlockTable(head, tableSize, &table));
  EXPECT_GE(table.blocks.size(), 4u);  // 200 kB of app.bin alone
  EXPECT_TRUE(table.files.empty());
  for (const BlockPlace& block : table.blocks) EXPECT_LE(block.blobSize, 64 << 10);
  EXPECT_EQ(static_cast<int64_t>(bytes.size()), table.ownBytes);
  expectLoads(QLUX_PACK_STUB, bare, "checksum failed\noffset 0\n");

  auto readAll = [](Package* package, const std::string& key) {
    PackageFileReader reader;
    std::string data;
    if (reader.open(package, package->findFile(key.c_str()), nullptr) != 0) return std::string("<failed>");
    const unsigned char* piece = nullptr;
    size_t size = 0;
    while (reader.next(&piece, &size) == 0 && size > 0) data.append(reinterpret_cast<const char*>(piece), size);
    return data;
  };
  Package loaded;
  ASSERT_EQ(0, loaded.openPackage(bare.c_str(), 0, 0));
  EXPECT_TRUE(loaded.listedFromIndex());
  EXPECT_EQ(static_cast<int>(table.blocks.size()), loaded.blockCount());
  EXPECT_EQ(static_cast<int>(sources.size()), loaded.files.getCount());
  for (const auto& s : sources) EXPECT_TRUE(readAll(&loaded, s.first) == s.second) << s.first;

  // The index stands behind the last block; damaged, it is passed over.
  std::string damaged = bytes;
  damaged[static_cast<size_t>(table.indexStart) + table.indexPackedSize / 2] ^= 0x40;
  ASSERT_TRUE(testwriter::writeFile(bare, damaged));
  Package longWay;
  ASSERT_EQ(0, longWay.openPackage(bare.c_str(), 0, 0));
  EXPECT_FALSE(longWay.listedFromIndex());
  for (const auto& s : sources) EXPECT_TRUE(readAll(&longWay, s.first) == s.second) << s.first;

  // An installer that reads only single blocks finds no solid block here,
  // and no file record either.
  ASSERT_EQ(nullptr, createSolidDecompressor(head));
  EXPECT_NE(kRecordMagicFile, readU32(head));

  // The stub must say that it reads such packages.
  fs::remove(bare);
  ASSERT_TRUE(testwriter::writeFile(root + "/old-stub", "\x01\x02\x03\x04" "ARYIMAGEOFFSET_" + std::string(1, '\0') +
                                                           "SupportsSolidZlib SupportsSignedInstallers"));
  result = pack("--stub " + root + "/old-stub --block-limit 64K");
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos, result.output.find("can't read packages of several blocks")) << result.output;
  expectNoOutput();
}

// A failure says what and where, exits 1, and leaves nothing behind.
TEST_F(PackTest, ErrorsLeaveNoOutput) {
  std::string stub = std::string("--stub ") + QLUX_PACK_STUB;
  ASSERT_TRUE(testwriter::writeFile(templatePath, kTemplate));
  CommandResult result = pack(stub);
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos,
            result.output.find(templatePath + ":17:11: error: the file MISSING_ENTRY is not in the source folder " +
                               source))
      << result.output;
  expectNoOutput();

  // Two different files under one key: the engine could only reach one.
  std::string conflicting = kTemplate;
  conflicting.replace(conflicting.find("<FN>MISSING_ENTRY"), 17, "<FN Alias=\"readme\">gui/logo.png");
  ASSERT_TRUE(testwriter::writeFile(templatePath, conflicting));
  result = pack(stub);
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos, result.output.find("key \"readme\"")) << result.output;
  expectNoOutput();

  result = run(std::string(QLUX_PACK) + " " + stub + " --template " + root + "/absent.xml --source " + source +
               " -o " + out + "/setup");
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos, result.output.find("absent.xml")) << result.output;
  expectNoOutput();

  result = run(std::string(QLUX_PACK) + " " + stub + " --template " + templatePath + " --source " + root +
               "/absent -o " + out + "/setup");
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos, result.output.find("the source folder " + root + "/absent does not exist"))
      << result.output;
  expectNoOutput();

  ASSERT_TRUE(testwriter::writeFile(templatePath, sources["install.xml"]));
  ASSERT_TRUE(testwriter::writeFile(root + "/plain", testwriter::pseudoRandom(9000, 5)));
  result = pack("--stub " + root + "/plain");
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos, result.output.find("no package offset field")) << result.output;
  expectNoOutput();

  for (const char* bad : {"--stripes 0", "--stripes 257", "--level 10", "--frobnicate"}) {
    result = pack(stub + " " + bad);
    EXPECT_EQ(1, result.status) << bad;
    expectNoOutput();
  }
}

}  // namespace
