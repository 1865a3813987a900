// The body of the stripe reader (stripe_reader.h): inflating ahead on the
// workers and holding only a few stripes in memory.
#include "package/stripe_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// What the inflated stripes held at once may take. The builder's stripes
// are a few megabytes, so this holds the caller's stripe and the ones the
// workers inflate ahead of it; a block of a few huge stripes gets two.
const int64_t kBufferBudget = 32 << 20;

}  // namespace

StripeReader::StripeReader()
    : file(nullptr),
      blob(0),
      headSize(0),
      firstStream(0),
      lastStreamEnd(0),
      largestStripe(0),
      largestPacked(0),
      ahead(0),
      maxBuffers(0),
      buffersOut(0),
      clock(0) {}

StripeReader::~StripeReader() { freeAll(); }

void StripeReader::freeAll() {
  // The workers go first: one may still write into a stripe's buffer.
  workers.reset();
  for (Stripe& stripe : stripes) std::free(stripe.buffer);
  stripes.clear();
  for (unsigned char* buffer : freeBuffers) std::free(buffer);
  freeBuffers.clear();
  for (unsigned char* scratch : freeScratch) std::free(scratch);
  freeScratch.clear();
  buffersOut = 0;
}

int StripeReader::open(PackageFile* packageFile, int64_t blockOffset, int64_t blockSize,
                       StripedSolidDecompressor* stripeCodec, int threads) {
  return open(packageFile, std::vector<Block>{{blockOffset, blockSize, 0, -1}}, stripeCodec, threads);
}

int StripeReader::open(PackageFile* packageFile, const std::vector<Block>& blocks,
                       StripedSolidDecompressor* stripeCodec, int threads) {
  freeAll();
  codec.reset(stripeCodec);
  file = packageFile;
  blob = 0;
  largestStripe = 0;
  largestPacked = 0;

  for (size_t b = 0; b < blocks.size(); b++) {
    const Block& block = blocks[b];
    // The head and the longest table fit on the stack: 4 KiB.
    unsigned char head[kSolidMaxHeadSize];
    int64_t headBytes = std::min(block.size, kSolidMaxHeadSize);
    if (headBytes < 0 || file->readAt(block.offset, head, static_cast<size_t>(headBytes)) != 0) return kSolidTooShort;
    SolidTable table;
    int result = readSolidTable(head, block.size, &table);
    if (result != 0) return result;
    if (block.blobStart != blob || (block.blobSize >= 0 && block.blobSize != table.blobSize)) return kSolidNotTiled;
    if (b == 0) {
      headSize = table.headerSize;
      firstStream = block.size;
      lastStreamEnd = 0;
    }
    const size_t first = stripes.size();
    stripes.resize(first + static_cast<size_t>(table.count));
    for (int i = 0; i < table.count; i++) {
      const SOLIDSTRIPE& record = table.stripes[i];
      Stripe& stripe = stripes[first + static_cast<size_t>(i)];
      stripe.start = blob + record.unpackedOffset;
      stripe.size = record.unpackedSize;
      stripe.packedAt = block.offset + record.packedOffset;
      stripe.packedSize = record.packedSize;
      stripe.state = kEmpty;
      stripe.result = 0;
      stripe.buffer = nullptr;
      stripe.pins = 0;
      stripe.used = 0;
      if (b == 0) {
        firstStream = std::min<int64_t>(firstStream, record.packedOffset);
        lastStreamEnd = std::max<int64_t>(lastStreamEnd, static_cast<int64_t>(record.packedOffset) + record.packedSize);
      }
      largestStripe = std::max(largestStripe, static_cast<size_t>(record.unpackedSize));
      largestPacked = std::max(largestPacked, static_cast<size_t>(record.packedSize));
    }
    // The table was proved to tile the block's records, so in blob order
    // each stripe begins where the one before it ends.
    std::sort(stripes.begin() + static_cast<long>(first), stripes.end(),
              [](const Stripe& a, const Stripe& b) { return a.start < b.start; });
    blob += table.blobSize;
  }
  if (stripes.empty()) return kSolidTooShort;

  workers.reset(new StripeWorkers(this, stripeCount(), threads));
  int64_t fitting = kBufferBudget / static_cast<int64_t>(std::max<size_t>(largestStripe, 1));
  maxBuffers = static_cast<int>(std::max<int64_t>(2, std::min<int64_t>(fitting, workers->threadCount() + 2)));
  ahead = maxBuffers - 1;
  return 0;
}

int StripeReader::stripeAt(int64_t position) const {
  if (position < 0 || position >= blob) return -1;
  auto after = std::upper_bound(stripes.begin(), stripes.end(), position,
                                [](int64_t value, const Stripe& stripe) { return value < stripe.start; });
  return static_cast<int>(after - stripes.begin()) - 1;
}

unsigned char* StripeReader::takeScratch() {
  {
    QUtils::ThreadLockGuard guard(scratchLock);
    if (!freeScratch.empty()) {
      unsigned char* scratch = freeScratch.back();
      freeScratch.pop_back();
      return scratch;
    }
  }
  // At most one for each thread that inflates at once.
  return static_cast<unsigned char*>(std::malloc(std::max<size_t>(largestPacked, 1)));
}

void StripeReader::giveScratch(unsigned char* scratch) {
  QUtils::ThreadLockGuard guard(scratchLock);
  freeScratch.push_back(scratch);
}

void StripeReader::runStripe(int index) {
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  unsigned char* scratch = takeScratch();
  if (!scratch) {
    stripe.result = kSolidNoMemory;
    return;
  }
  if (file->readAt(stripe.packedAt, scratch, static_cast<size_t>(stripe.packedSize)) != 0) {
    // The table placed the stream inside the file, which has since become
    // shorter or unreadable.
    stripe.result = kSolidStripeTruncated;
  } else {
    uint32_t written = static_cast<uint32_t>(stripe.size);
    int code = codec->decompressStripe(stripe.buffer, &written, scratch, static_cast<uint32_t>(stripe.packedSize));
    stripe.result = code != 0 || written != static_cast<uint32_t>(stripe.size) ? kSolidStripeFailed : 0;
  }
  giveScratch(scratch);
}

unsigned char* StripeReader::takeBuffer(int keepFrom, int keepTo) {
  if (!freeBuffers.empty()) {
    unsigned char* buffer = freeBuffers.back();
    freeBuffers.pop_back();
    buffersOut++;
    return buffer;
  }
  if (buffersOut < maxBuffers) {
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(std::max<size_t>(largestStripe, 1)));
    if (buffer) buffersOut++;
    return buffer;
  }
  int oldest = -1;
  for (int i = 0; i < stripeCount(); i++) {
    const Stripe& stripe = stripes[static_cast<size_t>(i)];
    if (stripe.state != kReady || stripe.pins > 0 || (i >= keepFrom && i <= keepTo)) continue;
    if (oldest < 0 || stripe.used < stripes[static_cast<size_t>(oldest)].used) oldest = i;
  }
  if (oldest < 0) return nullptr;
  Stripe& evicted = stripes[static_cast<size_t>(oldest)];
  unsigned char* buffer = evicted.buffer;
  evicted.buffer = nullptr;
  evicted.state = kEmpty;
  return buffer;
}

void StripeReader::giveBuffer(unsigned char* buffer) {
  buffersOut--;
  // Buffers made past the limit, for a caller that pinned more than it
  // allows, go back to the system.
  if (buffersOut + static_cast<int>(freeBuffers.size()) >= maxBuffers) {
    std::free(buffer);
  } else {
    freeBuffers.push_back(buffer);
  }
}

void StripeReader::schedule(int index, unsigned char* buffer) {
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  stripe.buffer = buffer;
  stripe.state = kInflating;
  stripe.used = clock;
  workers->submit(index);
}

void StripeReader::collect(int index) {
  workers->collect(index);
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  if (stripe.result == 0) {
    stripe.state = kReady;
    return;
  }
  stripe.state = kFailed;
  giveBuffer(stripe.buffer);
  stripe.buffer = nullptr;
}

void StripeReader::collectFinished() {
  for (int i = 0; i < stripeCount(); i++) {
    if (stripes[static_cast<size_t>(i)].state == kInflating && workers->isDone(i)) collect(i);
  }
}

int StripeReader::acquire(int index, const unsigned char** data, StripeWaiter* waiter) {
  *data = nullptr;
  if (index < 0 || index >= stripeCount()) return kSolidStripeFailed;
  collectFinished();
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  stripe.used = ++clock;
  const int last = std::min(stripeCount() - 1, index + ahead);

  // A stripe that nobody inflates yet is inflated here, on the caller's
  // thread, while the workers start on the ones behind it.
  bool here = stripe.state == kEmpty;
  if (here) {
    unsigned char* buffer = takeBuffer(index, last);
    // The read-ahead gives way to the stripe needed now; and when every
    // buffer is pinned or in flight, one more is made.
    if (!buffer) buffer = takeBuffer(index, index);
    if (!buffer) {
      buffer = static_cast<unsigned char*>(std::malloc(std::max<size_t>(largestStripe, 1)));
      if (!buffer) return kSolidNoMemory;
      buffersOut++;
    }
    stripe.buffer = buffer;
    stripe.state = kInflating;
  }
  for (int next = index + 1; next <= last; next++) {
    if (stripes[static_cast<size_t>(next)].state != kEmpty) continue;
    unsigned char* buffer = takeBuffer(index, last);
    if (!buffer) break;
    schedule(next, buffer);
  }
  if (here) {
    runStripe(index);
    stripe.state = stripe.result == 0 ? kReady : kFailed;
    if (stripe.state == kFailed) {
      giveBuffer(stripe.buffer);
      stripe.buffer = nullptr;
    }
  } else if (stripe.state == kInflating) {
    workers->waitFor(index, waiter);
    collect(index);
  }
  if (stripe.state == kFailed) return stripe.result;
  stripe.pins++;
  *data = stripe.buffer;
  return 0;
}

void StripeReader::release(int index) {
  if (index < 0 || index >= stripeCount()) return;
  Stripe& stripe = stripes[static_cast<size_t>(index)];
  if (stripe.pins > 0) stripe.pins--;
}

int StripeReader::read(int64_t position, void* out, size_t size, StripeWaiter* waiter) {
  if (position < 0 || position > blob || static_cast<int64_t>(size) > blob - position) return -1;
  unsigned char* to = static_cast<unsigned char*>(out);
  while (size > 0) {
    int index = stripeAt(position);
    const unsigned char* data = nullptr;
    int result = acquire(index, &data, waiter);
    if (result != 0) return result;
    const Stripe& stripe = stripes[static_cast<size_t>(index)];
    size_t piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(size), stripe.start + stripe.size - position));
    std::memcpy(to, data + (position - stripe.start), piece);
    release(index);
    to += piece;
    position += static_cast<int64_t>(piece);
    size -= piece;
  }
  return 0;
}
