#include "package/solid_decompressor.h"

#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "package/format.h"

// Keeps the text in the image, where a package builder looks for it before
// it writes a solid block; nothing reads the variable.
const char* volatile solidZlibSupport = nullptr;

namespace {

// The most bytes one byte of a deflate stream can give, and room for the
// smallest streams' own framing.
const int64_t kMaxInflateRatio = 1032;
const int64_t kInflateSlack = 1024;

// A cursor over the block: reads never go past `size`.
struct BlockReader {
  const unsigned char* data;
  int64_t size;
  int64_t position;

  int64_t remaining() const { return size - position; }
  const unsigned char* here() const { return data + position; }
};

SOLIDSTRIPE readStripe(const unsigned char* p) {
  SOLIDSTRIPE stripe;
  stripe.unpackedOffset = static_cast<int32_t>(readU32(p));
  stripe.unpackedSize = static_cast<int32_t>(readU32(p + 4));
  stripe.packedOffset = static_cast<int32_t>(readU32(p + 8));
  stripe.packedSize = static_cast<int32_t>(readU32(p + 12));
  return stripe;
}

// Two ranges overlap when the first or last byte of either lies in the
// other. Worked in 64 bits so that no field value can overflow.
bool contains(int64_t start, int64_t length, int64_t position) {
  return start <= position && position < start + length;
}

bool rangesOverlap(int64_t startA, int64_t lengthA, int64_t startB, int64_t lengthB) {
  return contains(startB, lengthB, startA) || contains(startB, lengthB, startA + lengthA - 1) ||
         contains(startA, lengthA, startB) || contains(startA, lengthA, startB + lengthB - 1);
}

bool stripesOverlap(const SOLIDSTRIPE& a, const SOLIDSTRIPE& b) {
  return rangesOverlap(a.packedOffset, a.packedSize, b.packedOffset, b.packedSize) ||
         rangesOverlap(a.unpackedOffset, a.unpackedSize, b.unpackedOffset, b.unpackedSize);
}

}  // namespace

int StripedSolidDecompressor::decompressStripes(const unsigned char* data, int32_t size, unsigned char** out,
                                                int32_t* outSize) {
  *out = nullptr;
  BlockReader reader = {data, size < 0 ? 0 : size, 0};
  if (reader.remaining() < kSolidHeadSize) return kSolidTooShort;
  uint32_t version = readU32(data + 12);
  uint32_t count = readU32(data + 16);
  if (version != kSolidVersion || count == 0 || count > static_cast<uint32_t>(kMaxStripes)) return kSolidBadVersion;
  reader.position = kSolidHeadSize;

  // At most 256 records: the table stays on the stack.
  SOLIDSTRIPE stripes[kMaxStripes];
  int n = static_cast<int>(count);
  if (reader.remaining() < static_cast<int64_t>(kStripeRecordSize) * n) return kSolidTooShort;
  for (int i = 0; i < n; i++) stripes[i] = readStripe(reader.here() + i * kStripeRecordSize);
  const int64_t headerSize = kSolidHeadSize + static_cast<int64_t>(kStripeRecordSize) * n;

  for (int i = 0; i < n; i++) {
    if (stripes[i].packedOffset < headerSize) return kSolidStripeInHeader;
    if (stripes[i].unpackedOffset < 0) return kSolidNegativeOffset;
    for (int j = i + 1; j < n; j++) {
      if (stripesOverlap(stripes[i], stripes[j])) return kSolidOverlap;
    }
  }

  // Disjoint ranges from 0 whose sizes add up to the greatest end tile the
  // output exactly.
  int64_t total = 0;
  int64_t sum = 0;
  for (int i = 0; i < n; i++) {
    int64_t end = static_cast<int64_t>(stripes[i].unpackedOffset) + stripes[i].unpackedSize;
    if (end > total) total = end;
    sum += stripes[i].unpackedSize;
  }
  if (sum != total) return kSolidNotTiled;
  if (total > 0x7fffffff) return kSolidNoMemory;
  // Deflate can't expand a byte to more than 1032 bytes, so no block can
  // fill an output larger than that: such a table is refused like an
  // allocation that fails, before a damaged header of a few bytes can make
  // the reader claim gigabytes.
  if (total > reader.size * kMaxInflateRatio + kInflateSlack) return kSolidNoMemory;

  unsigned char* output = static_cast<unsigned char*>(std::malloc(total > 0 ? static_cast<size_t>(total) : 1));
  if (!output) return kSolidNoMemory;

  // Each stream is inflated straight from the block into its place.
  for (int i = 0; i < n; i++) {
    const SOLIDSTRIPE& stripe = stripes[i];
    if (stripe.packedOffset > reader.size) {
      std::free(output);
      return kSolidStripeOutside;
    }
    reader.position = stripe.packedOffset;
    if (stripe.packedSize < 0 || reader.remaining() < stripe.packedSize) {
      std::free(output);
      return kSolidStripeTruncated;
    }
    uint32_t written = static_cast<uint32_t>(stripe.unpackedSize);
    if (decompressStripe(output + stripe.unpackedOffset, &written, reader.here(),
                         static_cast<uint32_t>(stripe.packedSize)) != 0 ||
        written != static_cast<uint32_t>(stripe.unpackedSize)) {
      std::free(output);
      return kSolidStripeFailed;
    }
  }
  *out = output;
  *outSize = static_cast<int32_t>(total);
  return 0;
}

int ZlibSolidDecompressor::decompress(const unsigned char* data, int32_t size, unsigned char** out,
                                      int32_t* outSize) {
  // The factory checked signature and method; the version and the count are
  // checked again with the stripe table.
  return decompressStripes(data, size, out, outSize);
}

int ZlibSolidDecompressor::decompressStripe(unsigned char* destination, uint32_t* destinationSize,
                                            const unsigned char* source, uint32_t sourceSize) {
  uLongf length = *destinationSize;
  int result = uncompress(destination, &length, source, sourceSize);
  *destinationSize = static_cast<uint32_t>(length);
  return result;
}

SolidDecompressor* createSolidDecompressor(const unsigned char* block) {
  solidZlibSupport = "SupportsSolidZlib";
  if (std::memcmp(block, kSolidSignature, sizeof(kSolidSignature)) != 0) return nullptr;
  if (readU32(block + 8) != kSolidMethodZlib) return nullptr;
  if (readU32(block + 12) != kSolidVersion) return nullptr;
  if (readU32(block + 16) - 1 > static_cast<uint32_t>(kMaxStripes - 1)) return nullptr;
  return new (std::nothrow) ZlibSolidDecompressor();
}
