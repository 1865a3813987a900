#include "package/solid_compressor.h"

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// A failed stripe keeps the codec's error in its packedSize, moved below any
// length so that it can't be taken for one.
const int32_t kStripeErrorBase = 200;

}  // namespace

CommonSolidCompressor::CommonSolidCompressor()
    : blob(static_cast<unsigned char*>(std::malloc(kBlobInitialCapacity))),
      capacity(kBlobInitialCapacity),
      used(0),
      stripeCount(0),
      level(Z_DEFAULT_COMPRESSION) {
  if (!blob) capacity = 0;
}

CommonSolidCompressor::~CommonSolidCompressor() { std::free(blob); }

int CommonSolidCompressor::init(int stripes, int compressionLevel) {
  if (!blob) return -1;
  stripeCount = stripes;
  if (stripes < 1) return -2;
  level = compressionLevel;
  return 0;
}

int CommonSolidCompressor::addData(const void* data, int32_t size) {
  if (!blob) return -1;
  if (size <= 0) return 0;
  int64_t needed = static_cast<int64_t>(used) + size;
  int64_t newCapacity = capacity;
  while (newCapacity < needed) {
    newCapacity *= 2;
    if (newCapacity > 0x7fffffff) {
      std::fprintf(stderr, "FATAL ERROR: Uncompressed blob size exceeds supported size of %d B\n", kBlobLimit);
      return -2;
    }
  }
  if (newCapacity != capacity) {
    unsigned char* grown = static_cast<unsigned char*>(std::realloc(blob, static_cast<size_t>(newCapacity)));
    if (!grown) return -1;
    blob = grown;
    capacity = static_cast<int32_t>(newCapacity);
  }
  std::memcpy(blob + used, data, static_cast<size_t>(size));
  used += size;
  return 0;
}

StripedSolidCompressor::StripedSolidCompressor() : stripes(100), packedStripes(100) {}

StripedSolidCompressor::~StripedSolidCompressor() { freeStripes(); }

void StripedSolidCompressor::freeStripes() {
  for (int i = 0; i < packedStripes.getCount(); i++) std::free(packedStripes[i]);
  packedStripes.clear();
}

int StripedSolidCompressor::compressStripes() {
  freeStripes();
  stripes.clear();
  // Stripe i runs from i * L / n to (i + 1) * L / n.
  for (int i = 0; i < stripeCount; i++) {
    int64_t start = static_cast<int64_t>(i) * used / stripeCount;
    int64_t end = static_cast<int64_t>(i + 1) * used / stripeCount;
    SOLIDSTRIPE stripe = {static_cast<int32_t>(start), static_cast<int32_t>(end - start), -1, -1};
    stripes.add(stripe);
    packedStripes.add(nullptr);
  }

  QUtils::ThreadManager* manager = QUtils::createThreadManager();
  if (!manager) return -3;
  StripedCompressWorker worker(this);
  manager->run(stripeCount, &worker, nullptr, 0);
  QUtils::deleteThreadManager(manager);

  int result = 0;
  for (int i = 0; i < stripeCount; i++) {
    if (packedStripes[i]) continue;
    std::printf("Worker %d failed with zlib error %d\n", i, stripes[i].packedSize + kStripeErrorBase);
    result = -5;
  }
  return result;
}

void StripedCompressWorker::run(std::atomic<int32_t>* stopCode, std::atomic<int32_t>* progress, int threadIndex,
                                int threadCount) {
  SOLIDSTRIPE& stripe = compressor->stripes[threadIndex];
  // Room for the worst case: zlib never grows data by a tenth plus 64 KiB.
  uint32_t room =
      static_cast<uint32_t>(0x10000 - static_cast<int32_t>(static_cast<float>(stripe.unpackedSize) * -1.1f));
  unsigned char* buffer = static_cast<unsigned char*>(std::malloc(room));
  if (!buffer) {
    stripe.packedSize = Z_MEM_ERROR - kStripeErrorBase;
    return;
  }
  uint32_t length = room;
  int result = compressor->compressStripe(buffer, &length, compressor->blob + stripe.unpackedOffset,
                                          static_cast<uint32_t>(stripe.unpackedSize));
  if (result != 0) {
    std::free(buffer);
    stripe.packedSize = result - kStripeErrorBase;
    return;
  }
  compressor->packedStripes[threadIndex] = buffer;
  stripe.packedSize = static_cast<int32_t>(length);
}

int ZlibSolidCompressor::compressStripe(unsigned char* destination, uint32_t* destinationSize,
                                        const unsigned char* source, uint32_t sourceSize) {
  uLongf length = *destinationSize;
  int result = compress2(destination, &length, source, sourceSize, level);
  *destinationSize = static_cast<uint32_t>(length);
  return result;
}

int ZlibSolidCompressor::compress(unsigned char** outBlock, int32_t* outBlockSize, int32_t* outBlobSize) {
  *outBlock = nullptr;
  if (stripeCount < 1) return -2;
  int result = compressStripes();
  if (result != 0) {
    freeStripes();
    return result;
  }

  // The streams follow the stripe table directly, one behind the other.
  const int n = stripes.getCount();
  int64_t end = kSolidHeadSize + static_cast<int64_t>(kStripeRecordSize) * n;
  for (int i = 0; i < n; i++) {
    stripes[i].packedOffset = static_cast<int32_t>(end);
    end += stripes[i].packedSize;
  }
  if (end > 0x7fffffff) {
    freeStripes();
    return -1;
  }
  unsigned char* block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(end)));
  if (!block) {
    freeStripes();
    return -1;
  }

  std::memcpy(block, kSolidSignature, sizeof(kSolidSignature));
  writeU32(block + 8, kSolidMethodZlib);
  writeU32(block + 12, kSolidVersion);
  writeU32(block + 16, static_cast<uint32_t>(n));
  for (int i = 0; i < n; i++) {
    unsigned char* record = block + kSolidHeadSize + i * kStripeRecordSize;
    writeU32(record, static_cast<uint32_t>(stripes[i].unpackedOffset));
    writeU32(record + 4, static_cast<uint32_t>(stripes[i].unpackedSize));
    writeU32(record + 8, static_cast<uint32_t>(stripes[i].packedOffset));
    writeU32(record + 12, static_cast<uint32_t>(stripes[i].packedSize));
    std::memcpy(block + stripes[i].packedOffset, packedStripes[i], static_cast<size_t>(stripes[i].packedSize));
  }
  freeStripes();
  *outBlock = block;
  *outBlockSize = static_cast<int32_t>(end);
  *outBlobSize = used;
  return 0;
}

SolidCompressor* createSolidCompressor(uint32_t method) {
  if (method != kSolidMethodZlib) return nullptr;
  return new (std::nothrow) ZlibSolidCompressor();
}
