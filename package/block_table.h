// The block table: the head of a package too large for one solid block, and
// of a package whose data the builder split into package files that travel
// beside the installer.
//
// One solid block holds at most 1 GiB of records (solid_decompressor.h:
// its offsets and sizes are 32-bit). A larger product is packed into
// several blocks, each an ordinary solid block with its own head and
// stripes, and this table in front of them says where each lies. The
// record stream (the blob) is the blocks' records one block after the
// other; a record never crosses from one block into the next, and a file
// too large for one block is stored as several records with one key, each
// but the last flagged kRecordFlagContinued (format.h). A package that fits
// one block keeps the single block's layout, which every installer reads.
//
// The package stream: the bytes from the package header's first byte on,
// first those in the file that holds the table (`ownBytes` of them), then
// each package file in turn, whole. Every position below counts in that
// stream, so a block or a compressed stripe may run from one package file
// into the next. Package file k (from 1) is named stem-k.qpk and lies in
// the directory of the file that holds the table; its length and SHA-256
// digest stand in the table, which the installer's checksum (and a
// signature over the installer) covers.
//
// Layout behind the 64-byte package header (little-endian):
//   0    "SolidHD\0"   the solid block's signature
//   8    u32 100        method: zlib
//   12   u32            kBlockTableVersion. An installer that reads only
//                       single blocks finds no solid block it knows here,
//                       and refuses the package as damaged.
//   16   u32 B          blocks, 1 to kMaxBlocks
//   20   u32 P          package files, 0 to kMaxPackageFiles
//   24   u64            the blob's length
//   32   u64            ownBytes: the stream's bytes in the table's file
//   40   u64            where the record index stream starts (record_index.h)
//   48   u32            its compressed length
//   52   u32            the records it lists, the end record included
//   56   u32            the table's length: head, blocks, and room for files
//   60   u32 0          reserved
//   64   256 bytes      the package files' stem, NUL-terminated, zero-filled
//   320  B x 32         a block: u64 where its records start in the blob,
//                       u64 their length, u64 where the block starts in the
//                       stream, u64 its length there
//   then P x 40         a package file: u64 length, then its SHA-256
// Blocks stand in blob order, each behind the one before in the stream.
#ifndef QLUX_PACKAGE_BLOCK_TABLE_H_
#define QLUX_PACKAGE_BLOCK_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "package/sha256.h"

const uint32_t kBlockTableVersion = 0x20261124u;
const int kBlockTableHeadSize = 320;
const int kBlockEntrySize = 32;
const int kPackageFileEntrySize = 8 + kSHA256DigestSize;
const int kPartStemSize = 256;  // NUL included
const int kMaxBlocks = 65536;
const int kMaxPackageFiles = 999;

struct BlockPlace {
  int64_t blobStart;  // where its records start in the blob
  int64_t blobSize;
  int64_t start;      // where the block starts in the package stream
  int64_t size;       // its length there
};

struct PackageFilePlace {
  int64_t size;
  unsigned char digest[kSHA256DigestSize];
};

struct BlockTable {
  int64_t blobSize = 0;
  int64_t ownBytes = 0;
  int64_t indexStart = 0;
  uint32_t indexPackedSize = 0;
  uint32_t indexCount = 0;
  std::string stem;
  std::vector<BlockPlace> blocks;
  std::vector<PackageFilePlace> files;
};

// The table's length for `blocks` blocks and room for `files` package files.
int64_t blockTableSize(int blocks, int files);

// True if the bytes behind the package header (at least 16 of them) start a
// block table.
bool isBlockTable(const unsigned char* head);

// Reads the table's fixed head (kBlockTableHeadSize bytes at `head`) and
// gives the table's whole length in `*size`: the caller then reads that
// much and calls readBlockTable(). 0, or kSolidBadVersion for a head no
// table of this program's has.
int readBlockTableSize(const unsigned char* head, int64_t* size);

// Reads and checks the whole table (`size` bytes). Gives 0 with `table`
// filled, or a code of solid_decompressor.h: kSolidTooShort if the table
// doesn't fit its length, kSolidBadVersion for counts out of range,
// kSolidNotTiled if the blocks don't tile the blob in order,
// kSolidOverlap if a block overlaps the table or the block before it,
// kSolidStripeTruncated if a block or the index passes the stream's end.
int readBlockTable(const unsigned char* data, int64_t size, BlockTable* table);

// The table in its layout, `size` bytes long (blockTableSize() of the
// blocks and at least as many package files as the table has).
std::string writeBlockTable(const BlockTable& table, int64_t size);

// The name of package file `number` (from 1) of `stem`: "stem-1.qpk".
std::string packageFileName(const std::string& stem, int number);

#endif  // QLUX_PACKAGE_BLOCK_TABLE_H_
