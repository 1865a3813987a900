// Tests of the checksum record: what the current and the old record cover,
// files without a usable record, and the checking mode.
#include "package/checksum.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/test_env.h"
#include "package/md5.h"
#include "package/test_writer.h"

namespace {

using QUtils::setEnvironment;

class ChecksumTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path = ::testing::TempDir() + "qlux_checksum_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
  }
  void TearDown() override { std::remove(path.c_str()); }

  // Writes `data` and gives whether it verifies.
  bool verifies(const std::string& data) {
    EXPECT_TRUE(testwriter::writeFile(path, data));
    return verifyPackageChecksum(path.c_str());
  }
  // `data` with a record of `mode` appended by writePackageChecksum.
  std::string withRecord(const std::string& data, int mode) {
    EXPECT_TRUE(testwriter::writeFile(path, data));
    EXPECT_EQ(0, writePackageChecksum(path.c_str(), mode));
    return testwriter::readFile(path);
  }
  static std::string flipped(std::string data, size_t at) {
    data[at] = static_cast<char>(data[at] ^ 0x40);
    return data;
  }

  std::string path;
};

TEST_F(ChecksumTest, CurrentRecordCoversFromOffset5000ToTheMarker) {
  std::string image = testwriter::pseudoRandom(12000, 1);
  std::string file = withRecord(image, kChecksumModeCurrent);
  ASSERT_EQ(image.size() + 23, file.size());
  unsigned char digest[kMD5DigestSize];
  MD5::digest(image.data() + 5000, image.size() - 5000, digest);
  EXPECT_EQ("v2sum: " + std::string(reinterpret_cast<char*>(digest), 16), file.substr(image.size()));

  EXPECT_TRUE(verifies(file));
  EXPECT_TRUE(verifies(flipped(file, 0)));
  EXPECT_TRUE(verifies(flipped(file, 4999)));  // a signer may change the headers
  EXPECT_FALSE(verifies(flipped(file, 5000)));
  EXPECT_FALSE(verifies(flipped(file, image.size() - 1)));
  EXPECT_FALSE(verifies(flipped(file, file.size() - 1)));  // the digest itself
  EXPECT_FALSE(verifies(file.substr(0, file.size() - 1)));
  // A signature's certificate table behind the digest doesn't matter, as
  // long as the record stays within the last 20,000 bytes.
  std::string certificate = testwriter::pseudoRandom(4176, 2);
  ASSERT_EQ(std::string::npos, certificate.find("sum: "));
  EXPECT_TRUE(verifies(file + certificate));
  EXPECT_FALSE(verifies(file + testwriter::pseudoRandom(20000, 2)));
}

TEST_F(ChecksumTest, OldRecordCoversTheWholeFile) {
  std::string file = withRecord(testwriter::pseudoRandom(3000, 3), kChecksumModeOld);
  EXPECT_EQ("MD5SUM: ", file.substr(3000, 8));
  EXPECT_TRUE(verifies(file));
  EXPECT_FALSE(verifies(flipped(file, 0)));
}

TEST_F(ChecksumTest, FilesWithoutAUsableRecordFail) {
  EXPECT_FALSE(verifyPackageChecksum((path + ".missing").c_str()));
  EXPECT_FALSE(verifies(testwriter::pseudoRandom(30000, 4)));
  // A current record at 5000 or before covers nothing.
  EXPECT_FALSE(verifies(withRecord(testwriter::pseudoRandom(5000, 5), kChecksumModeCurrent)));
  EXPECT_TRUE(verifies(withRecord(testwriter::pseudoRandom(5001, 5), kChecksumModeCurrent)));
  // The smallest file that can pass: one byte under an old record.
  std::string tiny = withRecord("x", kChecksumModeOld);
  ASSERT_EQ(25u, tiny.size());
  EXPECT_TRUE(verifies(tiny));
  EXPECT_FALSE(verifies(tiny.substr(2)));
}

TEST_F(ChecksumTest, TheMarkerNearestTheEndDecides) {
  std::string image = testwriter::pseudoRandom(9000, 6);
  // An old record behind a current one: the old one decides, so a change
  // in the first 5000 bytes now counts.
  std::string both = withRecord(withRecord(image, kChecksumModeCurrent), kChecksumModeOld);
  EXPECT_TRUE(verifies(both));
  EXPECT_FALSE(verifies(flipped(both, 10)));
  // The other way round the current record decides.
  std::string reverse = withRecord(withRecord(image, kChecksumModeOld), kChecksumModeCurrent);
  EXPECT_TRUE(verifies(flipped(reverse, 10)));
  // A marker that turns up by chance behind the real record is taken too.
  EXPECT_FALSE(verifies(withRecord(image, kChecksumModeCurrent) + "certificate v2sum: and more bytes"));
}

TEST_F(ChecksumTest, EnvironmentChoosesTheMode) {
  std::string image = testwriter::pseudoRandom(6000, 7);
  const char* settings[] = {"1", "10", "0", "yes", nullptr};
  const char* markers[] = {"MD5SUM: ", "MD5SUM: ", "v2sum: ", "v2sum: ", "v2sum: "};
  for (int i = 0; i < 5; i++) {
    setEnvironment("OLD_CHECKSUMMING", settings[i]);
    ASSERT_TRUE(testwriter::writeFile(path, image));
    ASSERT_EQ(0, writePackageChecksum(path.c_str()));
    std::string file = testwriter::readFile(path);
    EXPECT_EQ(markers[i], file.substr(image.size(), std::string(markers[i]).size())) << i;
    EXPECT_TRUE(verifyPackageChecksum(path.c_str()));
  }
  setEnvironment("OLD_CHECKSUMMING", nullptr);
  EXPECT_NE(0, writePackageChecksum((path + ".missing").c_str(), kChecksumModeCurrent));
}

}  // namespace
