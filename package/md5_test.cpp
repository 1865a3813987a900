// Tests of MD5 against the known digests, whole and in pieces.
#include "package/md5.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string hex(const unsigned char digest[kMD5DigestSize]) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < kMD5DigestSize; i++) (text += digits[digest[i] >> 4]) += digits[digest[i] & 15];
  return text;
}

std::string md5Hex(const std::string& text) {
  unsigned char digest[kMD5DigestSize];
  MD5::digest(text.data(), text.size(), digest);
  return hex(digest);
}

TEST(Md5, Rfc1321TestSuite) {
  std::string eightyDigits;
  for (int i = 0; i < 8; i++) eightyDigits += "1234567890";
  EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5Hex(""));
  EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", md5Hex("a"));
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5Hex("abc"));
  EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", md5Hex("message digest"));
  EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", md5Hex("abcdefghijklmnopqrstuvwxyz"));
  EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f",
            md5Hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
  EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a", md5Hex(eightyDigits));
}

// Feeding in two pieces gives the one-call digest wherever the cut falls,
// around the 64-byte block and the 56-byte padding boundary included; and a
// reset object starts afresh.
TEST(Md5, PiecewiseUpdateMatchesOneCall) {
  std::string data;
  for (int i = 0; i < 130; i++) data += static_cast<char>(i * 7 + 3);
  for (size_t length : {55u, 56u, 64u, 120u, 130u}) {
    std::string whole = md5Hex(data.substr(0, length));
    MD5 md5;
    for (size_t cut = 0; cut <= length; cut++) {
      md5.reset();
      md5.update(data.data(), cut);
      md5.update(data.data() + cut, length - cut);
      unsigned char digest[kMD5DigestSize];
      md5.finish(digest);
      ASSERT_EQ(whole, hex(digest)) << "length " << length << " cut " << cut;
    }
  }
}

}  // namespace
