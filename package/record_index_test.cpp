// Tests of the record index: taken only when it chains through the blob.
#include "package/record_index.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "package/test_writer.h"

namespace {

// An index of records of the given data sizes, the end record last, and the
// length of the blob they chain through.
struct Built {
  std::string stream;
  std::string pointer;
  int64_t blobSize;
};

Built build(const std::vector<uint32_t>& sizes, int64_t skew = 0) {
  RecordIndexWriter writer;
  int64_t at = 0;
  for (uint32_t size : sizes) {
    std::string header = testwriter::recordHeader(0x63270010u, size, size, 0, "", "n", "k");
    writer.add(at, reinterpret_cast<const unsigned char*>(header.data()));
    at += 608 + size + skew;
  }
  std::string end = testwriter::recordHeader(0x63270003u, 0, 0, 0, "", "", "");
  writer.add(at, reinterpret_cast<const unsigned char*>(end.data()));
  Built built;
  EXPECT_TRUE(writer.finish(6, 1000, &built.stream, &built.pointer));
  built.blobSize = at + 608;
  return built;
}

bool decodes(const Built& built, int64_t blobSize) {
  RecordIndexPlace place;
  const unsigned char* pointer = reinterpret_cast<const unsigned char*>(built.pointer.data());
  if (!readRecordIndexPointer(pointer, 1000 + static_cast<int64_t>(built.stream.size()), 1000, &place)) return false;
  std::vector<unsigned char> entries;
  return decodeRecordIndex(place, reinterpret_cast<const unsigned char*>(built.stream.data()), blobSize, &entries);
}

// An index is taken only when its pointer fits the block and its records
// chain through the whole blob; anything else sends the loader the long way.
TEST(RecordIndex, TakenOnlyWhenItChainsThroughTheBlob) {
  Built good = build({0, 70000, 5});
  EXPECT_TRUE(decodes(good, good.blobSize));
  EXPECT_FALSE(decodes(good, good.blobSize + 1)) << "something behind the end record";
  EXPECT_FALSE(decodes(good, good.blobSize - 1));
  Built gapped = build({10, 10}, 1);
  EXPECT_FALSE(decodes(gapped, gapped.blobSize)) << "a record that doesn't start where the one before ends";

  RecordIndexPlace place;
  const unsigned char* pointer = reinterpret_cast<const unsigned char*>(good.pointer.data());
  const int64_t blockSize = 1000 + static_cast<int64_t>(good.stream.size());
  EXPECT_FALSE(readRecordIndexPointer(pointer, blockSize, 1001, &place)) << "the index inside the streams";
  EXPECT_FALSE(readRecordIndexPointer(pointer, blockSize - 1, 1000, &place)) << "the index past the block";
  std::string damaged = good.pointer;
  damaged[0] = 'q';
  EXPECT_FALSE(readRecordIndexPointer(reinterpret_cast<const unsigned char*>(damaged.data()), blockSize, 1000, &place));
  damaged = good.pointer;
  damaged[28]++;  // an inflated length that isn't count x entry size
  EXPECT_FALSE(readRecordIndexPointer(reinterpret_cast<const unsigned char*>(damaged.data()), blockSize, 1000, &place));

  std::string stream = good.stream;
  stream[stream.size() / 2] ^= 0x10;
  ASSERT_TRUE(readRecordIndexPointer(pointer, blockSize, 1000, &place));
  std::vector<unsigned char> entries;
  EXPECT_FALSE(decodeRecordIndex(place, reinterpret_cast<const unsigned char*>(stream.data()), good.blobSize, &entries));
}

}  // namespace
