// The body of the solid block reader (solid_decompressor.h): the stripe
// table read and checked (no stripe may overlap another) before any use.
#include "package/solid_decompressor.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "package/deflate_codec.h"
#include "package/format.h"

// Keeps the text in the image, where a package builder looks for it before
// it writes a solid block; nothing reads the variable.
const char* volatile solidZlibSupport = nullptr;

namespace {

// The most bytes one byte of a deflate stream can give, and room for the
// smallest streams' own framing.
const int64_t kMaxInflateRatio = 1032;
const int64_t kInflateSlack = 1024;

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

int readSolidTable(const unsigned char* head, int64_t blockSize, SolidTable* table) {
  if (blockSize < kSolidHeadSize) return kSolidTooShort;
  uint32_t version = readU32(head + 12);
  uint32_t count = readU32(head + 16);
  if (version != kSolidVersion || count == 0 || count > static_cast<uint32_t>(kMaxStripes)) return kSolidBadVersion;
  const int n = static_cast<int>(count);
  const int64_t headerSize = kSolidHeadSize + static_cast<int64_t>(kStripeRecordSize) * n;
  if (blockSize < headerSize) return kSolidTooShort;
  table->count = n;
  table->headerSize = headerSize;
  SOLIDSTRIPE* stripes = table->stripes;
  for (int i = 0; i < n; i++) stripes[i] = readStripe(head + kSolidHeadSize + i * kStripeRecordSize);

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
  if (total > blockSize * kMaxInflateRatio + kInflateSlack) return kSolidNoMemory;
  table->blobSize = total;

  // Every stream must lie inside the block; whether it inflates is known
  // only when it is inflated.
  for (int i = 0; i < n; i++) {
    if (stripes[i].packedOffset > blockSize) return kSolidStripeOutside;
    if (stripes[i].packedSize < 0 || blockSize - stripes[i].packedOffset < stripes[i].packedSize)
      return kSolidStripeTruncated;
  }
  return 0;
}

int StripedSolidDecompressor::decompressStripes(const unsigned char* data, int32_t size, unsigned char** out,
                                                int32_t* outSize) {
  *out = nullptr;
  SolidTable table;
  int result = readSolidTable(data, size < 0 ? 0 : size, &table);
  if (result != 0) return result;
  unsigned char* output =
      static_cast<unsigned char*>(std::malloc(table.blobSize > 0 ? static_cast<size_t>(table.blobSize) : 1));
  if (!output) return kSolidNoMemory;

  // Each stream is inflated straight from the block into its place.
  for (int i = 0; i < table.count; i++) {
    const SOLIDSTRIPE& stripe = table.stripes[i];
    uint32_t written = static_cast<uint32_t>(stripe.unpackedSize);
    if (decompressStripe(output + stripe.unpackedOffset, &written, data + stripe.packedOffset,
                         static_cast<uint32_t>(stripe.packedSize)) != 0 ||
        written != static_cast<uint32_t>(stripe.unpackedSize)) {
      std::free(output);
      return kSolidStripeFailed;
    }
  }
  *out = output;
  *outSize = static_cast<int32_t>(table.blobSize);
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
  size_t length = *destinationSize;
  int result = inflateZlibStream(destination, &length, source, sourceSize);
  *destinationSize = static_cast<uint32_t>(length);
  return result;
}

StripedSolidDecompressor* createSolidDecompressor(const unsigned char* block) {
  solidZlibSupport = "SupportsSolidZlib";
  if (std::memcmp(block, kSolidSignature, sizeof(kSolidSignature)) != 0) return nullptr;
  if (readU32(block + 8) != kSolidMethodZlib) return nullptr;
  if (readU32(block + 12) != kSolidVersion) return nullptr;
  if (readU32(block + 16) - 1 > static_cast<uint32_t>(kMaxStripes - 1)) return nullptr;
  return new (std::nothrow) ZlibSolidDecompressor();
}
