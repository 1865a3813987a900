// The streaming reader of a solid block: its stripes are inflated when they
// are wanted, straight out of the installer file, and only a few are held in
// memory at a time.
//
// A solid package is read front to back twice: once at loading, to list the
// file records and to prove that every stripe inflates, and once by the file
// stage, which writes the files in the order they were packed. The reader
// serves both with read-ahead: acquiring a stripe also queues the stripes
// behind it on worker threads, so that while the caller uses one stripe
// the next ones are being inflated on the other cores.
//
// Memory: at most `bufferLimit` inflated stripes (each buffer as large as
// the largest stripe, and reused), plus one compressed stripe per running
// worker. The limit grows only if the caller pins more stripes than it
// allows; for the builder's stripes of a few megabytes that stays far below
// what the whole block would take.
//
// Stripes are numbered in blob order here (0 holds the blob's first byte),
// whatever order the block's table lists them in. A package of several
// blocks (block_table.h) hands the reader all of them: their stripes make
// one list, each block's shifted to where its records start in the blob.
// Positions in the blob and in the file are 64-bit.
//
// Thread rules: one thread calls the reader. Workers run runStripe(); the
// StripeWorkers lock orders their writes before the caller's reads.
#ifndef QLUX_PACKAGE_STRIPE_READER_H_
#define QLUX_PACKAGE_STRIPE_READER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/thread_manager.h"
#include "package/package_file.h"
#include "package/solid_decompressor.h"
#include "package/stripe_workers.h"

class StripeReader : private StripeJob {
 public:
  StripeReader();
  StripeReader(const StripeReader&) = delete;
  StripeReader& operator=(const StripeReader&) = delete;
  ~StripeReader() override;

  // One solid block: where it starts in `file`, how many bytes of it may be
  // read, where its records start in the blob and how long they are (-1:
  // as long as its table says).
  struct Block {
    int64_t offset;
    int64_t size;
    int64_t blobStart;
    int64_t blobSize;
  };

  // Reads and checks the table of the solid block at `blockOffset` of
  // `file`, of which `blockSize` bytes may be read, and makes `codec` the
  // one that inflates its stripes (the reader owns it). Gives 0, or a code
  // of solid_decompressor.h (-11 to -28). `threads` workers inflate (0: the
  // pool's default count).
  int open(PackageFile* file, int64_t blockOffset, int64_t blockSize, StripedSolidDecompressor* codec, int threads);
  // The same for several blocks, whose records follow one another in the
  // blob in the order given: a block must start where the one before ends
  // and tile the length it claims, else kSolidNotTiled.
  int open(PackageFile* file, const std::vector<Block>& blocks, StripedSolidDecompressor* codec, int threads);

  int64_t blobSize() const { return blob; }
  int stripeCount() const { return static_cast<int>(stripes.size()); }
  int64_t stripeStart(int index) const { return stripes[static_cast<size_t>(index)].start; }
  int64_t stripeEnd(int index) const {
    return stripes[static_cast<size_t>(index)].start + stripes[static_cast<size_t>(index)].size;
  }
  // The stripe that holds blob byte `position`, or -1 outside the blob.
  int stripeAt(int64_t position) const;
  // Where, from the first block's first byte, its head ends, its first
  // compressed stream begins and its last one ends. Bytes between the first
  // two are a gap that the block's layout allows; the record index
  // (record_index.h) of a single block keeps its pointer there.
  int64_t headEnd() const { return headSize; }
  int64_t streamsStart() const { return firstStream; }
  int64_t streamsEnd() const { return lastStreamEnd; }

  // Pins stripe `index`, inflating it first if it isn't in memory, and
  // queues the stripes behind it. Gives 0 with `*data` the stripe's bytes,
  // valid until the matching release(); or kSolidStripeFailed when the
  // stripe doesn't inflate to its recorded length, or kSolidNoMemory.
  // `waiter`, which may be null, is told while the call waits.
  int acquire(int index, const unsigned char** data, StripeWaiter* waiter);
  // Unpins a stripe that acquire() gave; it stays in memory until its
  // buffer is needed for another.
  void release(int index);
  // Copies `size` bytes of the blob from `position` to `out`, across
  // stripes where it has to. 0, a code of acquire(), or -1 for a range
  // outside the blob.
  int read(int64_t position, void* out, size_t size, StripeWaiter* waiter);

  // How many stripes acquire() queues behind the one it pins, and how many
  // inflated stripes are held at most. For tests and benchmarks.
  int readAhead() const { return ahead; }
  int bufferLimit() const { return maxBuffers; }
  // Inflated stripes held now, pinned or not, and in flight.
  int buffersInUse() const { return buffersOut; }

 private:
  enum State { kEmpty, kInflating, kReady, kFailed };
  struct Stripe {
    int64_t start;       // in the blob
    int64_t size;
    int64_t packedAt;    // in the file
    int64_t packedSize;
    State state;
    int result;          // when kFailed
    unsigned char* buffer;  // while kInflating or kReady
    int pins;
    uint64_t used;       // when it was last acquired, for eviction
  };

  void runStripe(int index) override;
  // Gets a buffer for a stripe about to be inflated: a free one, a new one
  // below the limit, or the least recently used unpinned stripe's outside
  // [keepFrom, keepTo]. Null if none can be had that way.
  unsigned char* takeBuffer(int keepFrom, int keepTo);
  void giveBuffer(unsigned char* buffer);
  // Takes in the results of finished stripes.
  void collectFinished();
  void collect(int index);
  void schedule(int index, unsigned char* buffer);
  unsigned char* takeScratch();
  void giveScratch(unsigned char* scratch);
  void freeAll();

  PackageFile* file;
  std::unique_ptr<StripedSolidDecompressor> codec;
  std::unique_ptr<StripeWorkers> workers;
  std::vector<Stripe> stripes;
  int64_t blob;
  int64_t headSize;
  int64_t firstStream;
  int64_t lastStreamEnd;
  size_t largestStripe;
  size_t largestPacked;
  int ahead;
  int maxBuffers;
  int buffersOut;  // held by stripes
  std::vector<unsigned char*> freeBuffers;
  uint64_t clock;
  // Compressed stripes are read into these; workers share them under the
  // lock.
  QUtils::ThreadLock scratchLock;
  std::vector<unsigned char*> freeScratch;
};

#endif  // QLUX_PACKAGE_STRIPE_READER_H_
