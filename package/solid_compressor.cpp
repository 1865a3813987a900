// The body of the solid block writer (solid_compressor.h): filling stripes,
// deflating them on workers, and writing them out in order.
#include "package/solid_compressor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "package/deflate_codec.h"

size_t ZlibSolidCompressor::stripeBound(size_t sourceSize) { return deflateZlibBound(sourceSize); }

int ZlibSolidCompressor::compressStripe(unsigned char* destination, size_t* destinationSize,
                                        const unsigned char* source, size_t sourceSize) {
  return deflateZlibStream(destination, destinationSize, source, sourceSize, level);
}

SolidCompressor* createSolidCompressor(uint32_t method, int level) {
  if (method != kSolidMethodZlib) return nullptr;
  return new (std::nothrow) ZlibSolidCompressor(level);
}

int chooseStripeCount(int64_t blobSize) {
  if (blobSize <= 0) return 1;
  int64_t count = (blobSize + kStripeTarget - 1) / kStripeTarget;
  count = std::min<int64_t>(std::max<int64_t>(count, kDefaultStripes), kMaxStripes);
  return static_cast<int>(std::min<int64_t>(count, blobSize));
}

SolidBlockWriter::SolidBlockWriter(SolidCompressor* codec, SolidBlockSink* sink, int64_t blobSize, int count,
                                   int threads, int64_t gap)
    : codec(codec),
      sink(sink),
      plan(0),
      status(0),
      gap(gap),
      filling(0),
      nextOut(0),
      inFlight(0),
      maxInFlight(0),
      written(0),
      largestStripe(0) {
  // Empty stripes would overlap their neighbours in the reader's test, so
  // a stream shorter than the count has no plan.
  if (count < 1 || count > kMaxStripes || blobSize < count || blobSize > kBlobLimit || gap < 0 || gap > kBlobLimit) {
    plan = status = kWriterBadPlan;
    return;
  }
  stripes.resize(static_cast<size_t>(count));
  for (int i = 0; i < count; i++) {
    Stripe& stripe = stripes[static_cast<size_t>(i)];
    stripe.start = i * blobSize / count;
    stripe.size = (i + 1) * blobSize / count - stripe.start;
    stripe.filled = 0;
    stripe.raw = nullptr;
    stripe.packed = nullptr;
    stripe.packedSize = 0;
    stripe.result = 0;
    largestStripe = std::max(largestStripe, static_cast<size_t>(stripe.size));
  }
  workers.reset(new StripeWorkers(this, count, threads));
  // One stripe compressing on each worker and one more waiting, so that a
  // worker never idles while the files are read.
  maxInFlight = workers->threadCount() + 1;
}

SolidBlockWriter::~SolidBlockWriter() {
  // The workers go first: one may still be writing into a stripe's buffer.
  workers.reset();
  for (Stripe& stripe : stripes) {
    std::free(stripe.raw);
    std::free(stripe.packed);
  }
  for (unsigned char* buffer : freeRaw) std::free(buffer);
  for (unsigned char* buffer : freePacked) std::free(buffer);
}

int64_t SolidBlockWriter::headSize() const {
  return kSolidHeadSize + static_cast<int64_t>(kStripeRecordSize) * static_cast<int64_t>(stripes.size());
}

unsigned char* SolidBlockWriter::takeRaw() {
  if (!freeRaw.empty()) {
    unsigned char* buffer = freeRaw.back();
    freeRaw.pop_back();
    return buffer;
  }
  return static_cast<unsigned char*>(std::malloc(largestStripe));
}

unsigned char* SolidBlockWriter::takePacked() {
  if (!freePacked.empty()) {
    unsigned char* buffer = freePacked.back();
    freePacked.pop_back();
    return buffer;
  }
  return static_cast<unsigned char*>(std::malloc(codec->stripeBound(largestStripe)));
}

void SolidBlockWriter::runStripe(int index) {
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  size_t length = codec->stripeBound(static_cast<size_t>(stripe.size));
  stripe.result = codec->compressStripe(stripe.packed, &length, stripe.raw, static_cast<size_t>(stripe.size));
  stripe.packedSize = length;
}

int SolidBlockWriter::drain(bool wait) {
  while (status == 0 && nextOut < filling) {
    const int index = nextOut;
    Stripe& stripe = stripes[static_cast<size_t>(index)];
    if (!workers->isDone(index)) {
      if (!wait) break;
      workers->waitFor(index, nullptr);
    }
    wait = false;
    workers->collect(index);
    if (stripe.result != 0) return status = kWriterCodecFailed;
    // Every packed offset must stay a positive 32-bit number.
    if (headSize() + gap + written + static_cast<int64_t>(stripe.packedSize) > 0x7fffffff)
      return status = kWriterTooLarge;
    if (!sink->write(stripe.packed, stripe.packedSize)) return status = kWriterSinkFailed;
    written += static_cast<int64_t>(stripe.packedSize);
    freeRaw.push_back(stripe.raw);
    freePacked.push_back(stripe.packed);
    stripe.raw = nullptr;
    stripe.packed = nullptr;
    inFlight--;
    nextOut++;
  }
  return status;
}

int SolidBlockWriter::addData(const void* data, size_t size) {
  const unsigned char* from = static_cast<const unsigned char*>(data);
  while (status == 0 && size > 0) {
    if (filling >= static_cast<int>(stripes.size())) return status = kWriterLengthWrong;
    Stripe& stripe = stripes[static_cast<size_t>(filling)];
    if (!stripe.raw && !(stripe.raw = takeRaw())) return status = kWriterNoMemory;
    size_t piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(size), stripe.size - stripe.filled));
    std::memcpy(stripe.raw + stripe.filled, from, piece);
    stripe.filled += static_cast<int64_t>(piece);
    from += piece;
    size -= piece;
    if (stripe.filled < stripe.size) break;

    // Full: to a worker, once one of those in flight has gone out.
    while (status == 0 && inFlight >= maxInFlight) drain(true);
    if (status != 0) break;
    if (!(stripe.packed = takePacked())) return status = kWriterNoMemory;
    inFlight++;
    workers->submit(filling);
    filling++;
    drain(false);
  }
  return status;
}

int SolidBlockWriter::finish(std::string* head) {
  if (status != 0) return status;
  if (filling != static_cast<int>(stripes.size())) return status = kWriterLengthWrong;
  while (status == 0 && nextOut < filling) drain(true);
  if (status != 0) return status;

  // The head: signature, method, version, count, then the table, with the
  // streams in blob order back to back behind it and the gap.
  head->assign(static_cast<size_t>(headSize()), '\0');
  unsigned char* out = reinterpret_cast<unsigned char*>(&(*head)[0]);
  std::memcpy(out, kSolidSignature, sizeof(kSolidSignature));
  writeU32(out + 8, kSolidMethodZlib);
  writeU32(out + 12, kSolidVersion);
  writeU32(out + 16, static_cast<uint32_t>(stripes.size()));
  int64_t packedAt = headSize() + gap;
  for (size_t i = 0; i < stripes.size(); i++) {
    unsigned char* record = out + kSolidHeadSize + i * kStripeRecordSize;
    writeU32(record, static_cast<uint32_t>(stripes[i].start));
    writeU32(record + 4, static_cast<uint32_t>(stripes[i].size));
    writeU32(record + 8, static_cast<uint32_t>(packedAt));
    writeU32(record + 12, static_cast<uint32_t>(stripes[i].packedSize));
    packedAt += static_cast<int64_t>(stripes[i].packedSize);
  }
  return 0;
}
