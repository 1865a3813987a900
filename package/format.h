// The byte layout of a package, shared by the loader and the builder.
//
// An installer file is the program image, then the package: a 64-byte
// package header, then either a solid block (one compressed stream of all
// file records, see solid_decompressor.h) or, in a package that isn't solid,
// the file records themselves with each file's data zlib-compressed on its
// own. A checksum record (checksum.h) follows the package. Every integer is
// little-endian; the helpers below read and write them byte by byte, so the
// code doesn't depend on the host's byte order or alignment.
#ifndef QLUX_PACKAGE_FORMAT_H_
#define QLUX_PACKAGE_FORMAT_H_

#include <cstdint>

// Package header: three magic numbers, two copies of the sum of all file
// data sizes, the number of files, and 40 reserved zero bytes.
const uint32_t kPackageMagic1 = 0x63276327u;
const uint32_t kPackageMagic2 = 0x75092612u;
const uint32_t kPackageMagic3 = 0x78011813u;
const int kPackageHeaderSize = 64;
// Where the header's fields stand.
const int kPackageMagic1Offset = 0;
const int kPackageMagic2Offset = 4;
const int kPackageMagic3Offset = 8;
const int kPackageDataSizeOffset = 12;      // the sum of the files' data sizes, its low 32 bits
const int kPackageDataSizeCopyOffset = 16;  // the same sum again
const int kPackageFileCountOffset = 20;     // the number of files

// File record: a 608-byte header, then `storedSize` data bytes. The
// sequence of records ends with an end record, a header with kRecordMagicEnd
// and zeros everywhere else.
const uint32_t kRecordMagicFile = 0x63270010u;
const uint32_t kRecordMagicEnd = 0x63270003u;
const int kRecordHeaderSize = 608;
const int kRecordMagicOffset = 0;
const int kRecordFileSizeOffset = 4;
const int kRecordStoredSizeOffset = 8;
const int kRecordFlagsOffset = 12;
const int kRecordDigestOffset = 16;
const int kRecordNameOffset = 32;
const int kRecordKeyOffset = 332;
const int kRecordNameSize = 300;  // NUL included
const int kRecordKeySize = 276;   // NUL included
// `flags` bit set on image files, for the builder's and tools' benefit.
const uint32_t kRecordFlagImage = 1;
// `flags` bit of a record whose file goes on in the next record: a file too
// large for one solid block is stored as several records with one key and
// name, each holding the whole file's digest (block_table.h).
const uint32_t kRecordFlagContinued = 2;

// Solid block head: signature, method, version, stripe count, then one
// 16-byte stripe record per stripe.
const char kSolidSignature[8] = {'S', 'o', 'l', 'i', 'd', 'H', 'D', 0};
const uint32_t kSolidMethodZlib = 100;
const uint32_t kSolidVersion = 0x20121111u;
const int kSolidHeadSize = 20;
const int kStripeRecordSize = 16;
const int kMaxStripes = 256;

// One stripe: where its data lies in the unpacked record stream (the blob),
// and where its zlib stream lies, counted from the block's first byte.
struct SOLIDSTRIPE {
  int32_t unpackedOffset;
  int32_t unpackedSize;
  int32_t packedOffset;
  int32_t packedSize;
};

inline uint32_t readU32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

inline void writeU32(unsigned char* p, uint32_t value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
  p[2] = static_cast<unsigned char>(value >> 16);
  p[3] = static_cast<unsigned char>(value >> 24);
}

#endif  // QLUX_PACKAGE_FORMAT_H_
