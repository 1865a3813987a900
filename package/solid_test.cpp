// Tests of solid blocks: stripes read in any order, the factory, damage
// codes, and blocks written and read back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "package/solid_compressor.h"
#include "package/solid_decompressor.h"
#include "package/test_writer.h"

namespace {

using testwriter::Stripe;

// A blob that compresses: text with some noise in it.
std::string sampleBlob(size_t size) {
  std::string text;
  while (text.size() < size) text += "file record " + std::to_string(text.size() % 977) + "; ";
  text.resize(size);
  std::string noise = testwriter::pseudoRandom(size / 4, 7);
  text.replace(size / 2, noise.size(), noise);
  return text;
}

// Runs the factory and the decompressor; gives the result and the output.
int unpack(const std::string& block, std::string* out) {
  std::string padded = block + std::string(20, '\0');  // the factory reads 20 bytes
  SolidDecompressor* decompressor = createSolidDecompressor(reinterpret_cast<const unsigned char*>(padded.data()));
  if (!decompressor) return 1;
  unsigned char* data = nullptr;
  int32_t size = -1;
  int result = decompressor->decompress(reinterpret_cast<const unsigned char*>(block.data()),
                                        static_cast<int32_t>(block.size()), &data, &size);
  delete decompressor;
  if (result == 0) {
    out->assign(reinterpret_cast<char*>(data), static_cast<size_t>(size));
    std::free(data);
  } else {
    EXPECT_EQ(nullptr, data);
  }
  return result;
}

// Collects what a SolidBlockWriter hands out.
class StringSink : public SolidBlockSink {
 public:
  bool write(const void* data, size_t size) override {
    if (refuse) return false;
    bytes.append(static_cast<const char*>(data), size);
    return true;
  }
  std::string bytes;
  bool refuse = false;
};

// A block made by the writer under test, fed in pieces as the builder does
// record by record; the head goes in front of the streams at the end.
std::string compressed(const std::string& blob, int stripes, int threads = 0) {
  std::unique_ptr<SolidCompressor> codec(createSolidCompressor(100, 6));
  StringSink sink;
  SolidBlockWriter writer(codec.get(), &sink, static_cast<int64_t>(blob.size()), stripes, threads);
  EXPECT_EQ(0, writer.check());
  for (size_t at = 0; at < blob.size(); at += 7777) {
    size_t piece = blob.size() - at < 7777 ? blob.size() - at : 7777;
    EXPECT_EQ(0, writer.addData(blob.data() + at, piece));
  }
  std::string head;
  EXPECT_EQ(0, writer.finish(&head));
  EXPECT_EQ(static_cast<int64_t>(sink.bytes.size()), writer.packedSize());
  return head + sink.bytes;
}

TEST(SolidDecompressor, ReadsStripesInAnyOrderWithGaps) {
  std::string blob = sampleBlob(50000);
  struct Case {
    int stripes;
    std::vector<int> tableOrder;
    int gap;
    bool reversed;
  };
  std::vector<int> shuffled;
  for (int i = 0; i < 256; i++) shuffled.push_back((i * 97) % 256);
  const Case cases[] = {{1, {}, 0, false}, {3, {2, 0, 1}, 0, false}, {3, {1, 2, 0}, 13, true},
                        {8, {}, 1, false}, {256, shuffled, 3, true}};
  for (const Case& c : cases) {
    std::string out;
    ASSERT_EQ(0, unpack(testwriter::solidBlock(blob, c.stripes, c.tableOrder, c.gap, c.reversed), &out))
        << c.stripes << " stripes";
    EXPECT_TRUE(out == blob) << c.stripes << " stripes";
  }
  // Whatever stands behind the last stripe is ignored.
  std::string out;
  ASSERT_EQ(0, unpack(testwriter::solidBlock(blob, 2) + "v2sum: 0123456789abcdef", &out));
  EXPECT_TRUE(out == blob);
}

TEST(SolidDecompressor, FactoryRecognisesOnlyReadableBlocks) {
  auto recognised = [](const std::string& head) {
    SolidDecompressor* d = createSolidDecompressor(reinterpret_cast<const unsigned char*>(head.data()));
    delete d;
    return d != nullptr;
  };
  EXPECT_TRUE(recognised(testwriter::solidHead(100, 0x20121111u, 1, {})));
  EXPECT_TRUE(recognised(testwriter::solidHead(100, 0x20121111u, 256, {})));
  EXPECT_FALSE(recognised(testwriter::solidHead(100, 0x20121111u, 0, {})));
  EXPECT_FALSE(recognised(testwriter::solidHead(100, 0x20121111u, 257, {})));
  EXPECT_FALSE(recognised(testwriter::solidHead(101, 0x20121111u, 1, {})));
  EXPECT_FALSE(recognised(testwriter::solidHead(100, 0x20121112u, 1, {})));
  std::string head = testwriter::solidHead(100, 0x20121111u, 1, {});
  head[7] = 'x';  // the signature's NUL
  EXPECT_FALSE(recognised(head));
}

// Each damage the reader checks for, with the code it gives. The blocks are
// handed to a ZlibSolidDecompressor directly, as openPackage does once the
// factory has said yes.
TEST(SolidDecompressor, DamageCodes) {
  std::string a = testwriter::deflate("first stripe");
  std::string b = testwriter::deflate("second");
  const int32_t la = 12, lb = 6, pa = 52, pb = 52 + static_cast<int32_t>(a.size());
  const int32_t packed = static_cast<int32_t>(a.size()), packedB = static_cast<int32_t>(b.size());
  auto block2 = [&](Stripe s1, Stripe s2) { return testwriter::solidHead(100, 0x20121111u, 2, {s1, s2}) + a + b; };
  const Stripe goodA = {0, la, pa, packed}, goodB = {la, lb, pb, packedB};

  struct Case {
    const char* what;
    std::string block;
    int code;
  };
  std::string oneStripe = testwriter::solidHead(100, 0x20121111u, 1, {{0, la, 36, packed}}) + a;
  const Case cases[] = {
      {"head cut", oneStripe.substr(0, 19), kSolidTooShort},
      {"table cut", oneStripe.substr(0, 35), kSolidTooShort},
      {"version", testwriter::solidHead(100, 0x20121112u, 1, {{0, la, 36, packed}}) + a, kSolidBadVersion},
      {"no stripes", testwriter::solidHead(100, 0x20121111u, 0, {}) + a, kSolidBadVersion},
      {"257 stripes", testwriter::solidHead(100, 0x20121111u, 257, {}) + a, kSolidBadVersion},
      {"stream in header", testwriter::solidHead(100, 0x20121111u, 1, {{0, la, 35, packed}}) + " " + a,
       kSolidStripeInHeader},
      {"negative place", block2({-1, la, pa, packed}, goodB), kSolidNegativeOffset},
      {"same unpacked start", block2(goodA, {0, lb, pb, packedB}), kSolidOverlap},
      {"packed overlap", block2(goodA, {la, lb, pa + 1, packedB}), kSolidOverlap},
      {"hole in blob", block2(goodA, {la + 1, lb, pb, packedB}), kSolidNotTiled},
      {"stream outside", block2(goodA, {la, lb, pb + 100, packedB}), kSolidStripeOutside},
      {"last stream cut", block2(goodA, goodB).substr(0, pb + packedB - 1), kSolidStripeTruncated},
      {"inflates to more", testwriter::solidHead(100, 0x20121111u, 1, {{0, la - 1, 36, packed}}) + a,
       kSolidStripeFailed},
      {"inflates to less", testwriter::solidHead(100, 0x20121111u, 1, {{0, la + 1, 36, packed}}) + a,
       kSolidStripeFailed},
      {"not zlib", testwriter::solidHead(100, 0x20121111u, 1, {{0, 4, 36, 4}}) + "junk", kSolidStripeFailed},
      // A few bytes that claim nearly 2 GB: refused before any allocation
      // (found by fuzzing, where it took half a minute and 600 MB).
      {"claims more than deflate gives",
       testwriter::solidHead(100, 0x20121111u, 1, {{0, 0x7ff00000, 36, packed}}) + a, kSolidNoMemory},
  };
  for (const Case& c : cases) {
    ZlibSolidDecompressor decompressor;
    unsigned char* out = reinterpret_cast<unsigned char*>(1);
    int32_t size = 0;
    EXPECT_EQ(c.code, decompressor.decompress(reinterpret_cast<const unsigned char*>(c.block.data()),
                                              static_cast<int32_t>(c.block.size()), &out, &size))
        << c.what;
    EXPECT_EQ(nullptr, out) << c.what;
  }
  std::string out;
  EXPECT_EQ(0, unpack(oneStripe, &out));  // stream at 36, the head's size for one stripe
  EXPECT_EQ("first stripe", out);
}

TEST(SolidCompressor, PlansAndLimits) {
  EXPECT_EQ(nullptr, createSolidCompressor(101, 6));
  std::unique_ptr<SolidCompressor> codec(createSolidCompressor(100, 6));
  StringSink sink;
  // Counts outside 1..256, more stripes than bytes (empty stripes overlap
  // in the reader's test), and streams past 1 GiB have no plan.
  for (auto plan : {std::make_pair<int64_t, int>(1000, 0), {1000, 257}, {100, 101}, {kBlobLimit + 1, 8}}) {
    SolidBlockWriter writer(codec.get(), &sink, plan.first, plan.second, 1);
    EXPECT_EQ(kWriterBadPlan, writer.check()) << plan.first << " in " << plan.second;
    EXPECT_EQ(kWriterBadPlan, writer.addData("x", 1));
  }
  // More bytes than planned, or fewer at the end, are refused.
  SolidBlockWriter longer(codec.get(), &sink, 10, 2, 1);
  EXPECT_EQ(kWriterLengthWrong, longer.addData("0123456789x", 11));
  SolidBlockWriter shorter(codec.get(), &sink, 10, 2, 1);
  EXPECT_EQ(0, shorter.addData("01234", 5));
  std::string head;
  EXPECT_EQ(kWriterLengthWrong, shorter.finish(&head));
  // A sink that fails stops the writer.
  sink.refuse = true;
  SolidBlockWriter refused(codec.get(), &sink, 10, 1, 1);
  EXPECT_EQ(0, refused.addData("0123456789", 10));
  EXPECT_EQ(kWriterSinkFailed, refused.finish(&head));

  EXPECT_EQ(3, chooseStripeCount(3));
  EXPECT_EQ(8, chooseStripeCount(2000));
  EXPECT_EQ(8, chooseStripeCount(8 * kStripeTarget));
  EXPECT_EQ(9, chooseStripeCount(8 * kStripeTarget + 1));
  EXPECT_EQ(256, chooseStripeCount(kBlobLimit));
}

// The writer's blocks have the documented layout: stripe i covers i*L/n to
// (i+1)*L/n, the streams follow the table back to back; and they read back,
// with one worker or several.
TEST(SolidCompressor, BlocksReadBack) {
  for (int stripes : {1, 8, 256}) {
    for (int64_t length : {300, 300000}) {
      std::string blob = sampleBlob(static_cast<size_t>(length));
      std::string block = compressed(blob, stripes, stripes == 8 ? 1 : 0);
      const unsigned char* record = reinterpret_cast<const unsigned char*>(block.data()) + 20;
      int64_t packedEnd = 20 + 16 * stripes;
      for (int i = 0; i < stripes; i++, record += 16) {
        ASSERT_EQ(i * length / stripes, readU32(record));
        ASSERT_EQ((i + 1) * length / stripes - i * length / stripes, readU32(record + 4));
        ASSERT_EQ(packedEnd, readU32(record + 8));
        packedEnd += readU32(record + 12);
      }
      EXPECT_EQ(static_cast<int64_t>(block.size()), packedEnd);
      std::string out;
      ASSERT_EQ(0, unpack(block, &out)) << stripes << " stripes of " << length;
      EXPECT_TRUE(out == blob);
    }
  }
}

}  // namespace
