// Tests of the block table: written and read back, and faulty tables
// refused.
#include "package/block_table.h"

#include <gtest/gtest.h>

#include <cstring>

#include "package/format.h"
#include "package/solid_decompressor.h"

namespace {

// Two blocks of 100 and 50 bytes of records behind the table, the index
// behind them, and one package file of 1000 bytes.
BlockTable sampleTable(int64_t* size) {
  BlockTable table;
  *size = blockTableSize(2, 1);
  const int64_t first = kPackageHeaderSize + *size;
  table.blobSize = 150;
  table.blocks.push_back({0, 100, first, 400});
  table.blocks.push_back({100, 50, first + 400, 900});
  table.indexStart = first + 1300;
  table.indexPackedSize = 30;
  table.indexCount = 3;
  table.ownBytes = first + 500;
  table.stem = "setup";
  PackageFilePlace part;
  part.size = 1000;
  std::memset(part.digest, 0xab, sizeof part.digest);
  table.files.push_back(part);
  return table;
}

int reread(const BlockTable& table, int64_t size, BlockTable* out) {
  std::string bytes = writeBlockTable(table, size);
  return readBlockTable(reinterpret_cast<const unsigned char*>(bytes.data()), size, out);
}

TEST(BlockTable, WrittenTableReadsBack) {
  int64_t size = 0;
  BlockTable table = sampleTable(&size);
  std::string bytes = writeBlockTable(table, size);
  const unsigned char* data = reinterpret_cast<const unsigned char*>(bytes.data());
  EXPECT_TRUE(isBlockTable(data));
  int64_t declared = 0;
  ASSERT_EQ(0, readBlockTableSize(data, &declared));
  EXPECT_EQ(size, declared);
  BlockTable read;
  ASSERT_EQ(0, readBlockTable(data, size, &read));
  EXPECT_EQ(150, read.blobSize);
  ASSERT_EQ(2u, read.blocks.size());
  EXPECT_EQ(100, read.blocks[1].blobStart);
  EXPECT_EQ(table.blocks[1].start, read.blocks[1].start);
  ASSERT_EQ(1u, read.files.size());
  EXPECT_EQ(1000, read.files[0].size);
  EXPECT_EQ(0xab, read.files[0].digest[31]);
  EXPECT_EQ("setup", read.stem);
  EXPECT_EQ("setup-12.qpk", packageFileName(read.stem, 12));
  // To an installer that knows single blocks only, the table's version is
  // an unknown one.
  EXPECT_EQ(nullptr, createSolidDecompressor(data));
}

// Each fault of the table is refused with the block's codes, before any
// block is read.
TEST(BlockTable, FaultyTablesAreRefused) {
  int64_t size = 0;
  BlockTable read;
  BlockTable table = sampleTable(&size);
  table.blocks[1].blobStart = 99;  // a hole or an overlap in the blob
  EXPECT_EQ(kSolidNotTiled, reread(table, size, &read));
  table = sampleTable(&size);
  table.blobSize = 151;
  EXPECT_EQ(kSolidNotTiled, reread(table, size, &read));
  table = sampleTable(&size);
  table.blocks[0].start = kPackageHeaderSize;  // over the table itself
  EXPECT_EQ(kSolidOverlap, reread(table, size, &read));
  table = sampleTable(&size);
  table.blocks[1].start = table.blocks[0].start + 399;
  EXPECT_EQ(kSolidOverlap, reread(table, size, &read));
  table = sampleTable(&size);
  table.indexPackedSize = 1000;  // past the last package file's end
  EXPECT_EQ(kSolidStripeTruncated, reread(table, size, &read));
  table = sampleTable(&size);
  table.stem = "../setup";  // package files lie beside the installer only
  EXPECT_EQ(kSolidBadVersion, reread(table, size, &read));
  table = sampleTable(&size);
  EXPECT_EQ(kSolidTooShort, reread(table, size - 1, &read));

  std::string bytes = writeBlockTable(sampleTable(&size), size);
  bytes[12] ^= 1;  // another version
  int64_t declared = 0;
  EXPECT_EQ(kSolidBadVersion, readBlockTableSize(reinterpret_cast<const unsigned char*>(bytes.data()), &declared));
}

}  // namespace
