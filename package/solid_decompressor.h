// Reading a solid block: all file records of a package compressed as one
// stream, cut into stripes that were compressed independently.
//
// Block layout (little-endian, offsets from the block's first byte):
//   0   "SolidHD\0"       signature
//   8   u32 100            method: zlib
//   12  u32 0x20121111     format version
//   16  u32 n              stripe count, 1 to 256
//   20  n x 16 bytes       stripe records (see SOLIDSTRIPE in format.h)
//   then the compressed stripes, each a complete zlib stream, wherever the
//   records place them; anything behind the last one is ignored.
// The stripes may stand in any order in the table and in the block, with
// gaps between them, as long as their unpacked ranges tile the output from 0
// with no gap or overlap and no two compressed ranges overlap.
//
// The table is checked whole before any stripe is inflated (readSolidTable),
// so a damaged table is refused at once. The objects hold no state, and
// decompressStripe() may run on several threads at once; the package's
// stripe reader (stripe_reader.h) calls it from its workers.
#ifndef QLUX_PACKAGE_SOLID_DECOMPRESSOR_H_
#define QLUX_PACKAGE_SOLID_DECOMPRESSOR_H_

#include <cstdint>

#include "package/format.h"

// Result codes of decompress().
const int kSolidTooShort = -11;         // block shorter than its head or table
const int kSolidBadVersion = -21;       // version, or stripe count outside 1..256
const int kSolidStripeInHeader = -22;   // a compressed stripe starts in the head
const int kSolidNegativeOffset = -23;   // a stripe with a negative unpacked offset
const int kSolidOverlap = -24;          // two stripes overlap, unpacked or packed
const int kSolidNotTiled = -25;         // the sizes don't add up to the output
const int kSolidNoMemory = -26;         // the output can't be allocated
const int kSolidStripeOutside = -27;    // a compressed stripe starts outside
const int kSolidStripeTruncated = -28;  // a compressed stripe runs past the end
const int kSolidStripeFailed = -29;     // zlib failed or gave another length

// A checked stripe table: every stripe starts behind the head, none overlaps
// another in the output or in the block, together they tile the output from
// 0 to `blobSize`, and each compressed stream lies inside the block.
struct SolidTable {
  int count;
  int64_t headerSize;  // 20 + 16 x count: where compressed data may begin
  int64_t blobSize;    // the output's length
  SOLIDSTRIPE stripes[kMaxStripes];
};

// The longest head: 256 stripe records.
const int64_t kSolidMaxHeadSize = kSolidHeadSize + static_cast<int64_t>(kStripeRecordSize) * kMaxStripes;

// Reads and checks the head and stripe table of a block of `blockSize`
// bytes. `head` holds the block's first min(blockSize, kSolidMaxHeadSize)
// bytes. Gives 0 with `table` filled, or one of the codes above except -29.
int readSolidTable(const unsigned char* head, int64_t blockSize, SolidTable* table);

class SolidDecompressor {
 public:
  virtual ~SolidDecompressor() {}
  // Decompresses the block `data` of which `size` bytes may be read. On
  // success gives 0, with `out` a new malloc'ed buffer the caller frees and
  // `outSize` its length; otherwise one of the codes above and `out` null.
  virtual int decompress(const unsigned char* data, int32_t size, unsigned char** out, int32_t* outSize) = 0;
};

// Checks the stripe table and decompresses stripe by stripe through
// decompressStripe().
class StripedSolidDecompressor : public SolidDecompressor {
 public:
  // Decompresses one complete stream. `destinationSize` holds the room on
  // entry and the length written on return. Gives 0 or the codec's error.
  // Safe to call on several threads at once.
  virtual int decompressStripe(unsigned char* destination, uint32_t* destinationSize, const unsigned char* source,
                               uint32_t sourceSize) = 0;

 protected:
  // The shared work behind the parsed head: `data` is the whole block.
  int decompressStripes(const unsigned char* data, int32_t size, unsigned char** out, int32_t* outSize);
};

class ZlibSolidDecompressor : public StripedSolidDecompressor {
 public:
  int decompress(const unsigned char* data, int32_t size, unsigned char** out, int32_t* outSize) override;
  int decompressStripe(unsigned char* destination, uint32_t* destinationSize, const unsigned char* source,
                       uint32_t sourceSize) override;
};

// Gives a decompressor for the bytes behind the package header if they start
// a solid block this program reads: the signature, method 100, the current
// version and a stripe count of 1 to 256. Otherwise, or if the object can't
// be made, null: the package is then one that isn't solid. `block` must
// have at least 20 readable bytes. The caller deletes the object.
StripedSolidDecompressor* createSolidDecompressor(const unsigned char* block);

#endif  // QLUX_PACKAGE_SOLID_DECOMPRESSOR_H_
