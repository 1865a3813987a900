// Tests of SHA-256 against the known digests, whole and in pieces.
#include "package/sha256.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string hex(const unsigned char digest[kSHA256DigestSize]) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < kSHA256DigestSize; i++) (text += digits[digest[i] >> 4]) += digits[digest[i] & 15];
  return text;
}

std::string sha256Hex(const std::string& text) {
  unsigned char digest[kSHA256DigestSize];
  SHA256::digest(text.data(), text.size(), digest);
  return hex(digest);
}

// The portable code and the processor's extensions, where it has them.
class Sha256 : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { SHA256::usePortableCode(GetParam()); }
  void TearDown() override { SHA256::usePortableCode(false); }
};

TEST_P(Sha256, StandardVectors) {
  EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", sha256Hex(""));
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", sha256Hex("abc"));
  EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
            sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
  EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", sha256Hex(std::string(1000000, 'a')));
}

// Feeding in two pieces gives the one-call digest wherever the cut falls,
// around the 64-byte block and the 56-byte padding boundary included, and
// with several whole blocks in one call.
TEST_P(Sha256, PiecewiseUpdateMatchesOneCall) {
  std::string data;
  for (int i = 0; i < 300; i++) data += static_cast<char>(i * 7 + 3);
  for (size_t length : {55u, 56u, 64u, 120u, 300u}) {
    std::string whole = sha256Hex(data.substr(0, length));
    SHA256 sha;
    for (size_t cut = 0; cut <= length; cut++) {
      sha.reset();
      sha.update(data.data(), cut);
      sha.update(data.data() + cut, length - cut);
      unsigned char digest[kSHA256DigestSize];
      sha.finish(digest);
      ASSERT_EQ(whole, hex(digest)) << "length " << length << " cut " << cut;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Code, Sha256, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? "Portable" : (SHA256::usesProcessorExtensions() ? "Extensions" : "Default");
                         });

}  // namespace
