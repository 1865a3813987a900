// Writing a solid block (the layout is in solid_decompressor.h) stripe by
// stripe: the record stream is cut into equal stripes, each stripe is
// deflated on a worker thread as soon as it is full, and the compressed
// streams go out in blob order while the next stripes are still being
// filled. Only the package builder uses this side.
//
// Memory: the stripe being filled, and the few that the workers compress
// or that wait for their turn to be written, never the whole stream. So the
// builder holds the stream's length in advance (it knows every file's size)
// and the stripes are fixed before the first byte arrives: stripe i of n
// runs from i x L / n to (i + 1) x L / n. The head, whose table needs the
// compressed lengths, is given last; the caller leaves room for it in front
// of the streams and writes it there at the end.
//
// Use: createSolidCompressor(kSolidMethodZlib, level); a SolidBlockWriter
// over it and a sink; addData() for every byte of the record stream;
// finish(); then write the head at the block's start.
//
// Thread rules: one thread calls the writer; the codec's compressStripe()
// runs on its workers, several at once.
#ifndef QLUX_PACKAGE_SOLID_COMPRESSOR_H_
#define QLUX_PACKAGE_SOLID_COMPRESSOR_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "package/format.h"
#include "package/stripe_workers.h"

// The longest record stream a solid block may hold: every offset in the
// block stays far inside the positive 32-bit range the reader works in.
const int64_t kBlobLimit = 0x40000000;
// The stripe length the builder aims at when it chooses the count itself:
// small enough that an installer holds only a few in memory, large enough
// that deflate's 32 KiB window loses nothing worth measuring.
const int64_t kStripeTarget = 4 << 20;
const int kDefaultStripes = 8;

// The codec of one stripe.
class SolidCompressor {
 public:
  virtual ~SolidCompressor() {}
  // The most bytes compressStripe() can give for `sourceSize` bytes.
  virtual size_t stripeBound(size_t sourceSize) = 0;
  // Compresses `source` into one complete stream in `destination`, whose
  // room `*destinationSize` holds on entry; the length written on return.
  // Gives 0 or the codec's error code. Safe on several threads at once.
  virtual int compressStripe(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                             size_t sourceSize) = 0;
};

// zlib streams at a zlib level (-1: the default).
class ZlibSolidCompressor : public SolidCompressor {
 public:
  explicit ZlibSolidCompressor(int level) : level(level) {}
  size_t stripeBound(size_t sourceSize) override;
  int compressStripe(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                     size_t sourceSize) override;

 private:
  int level;
};

// A codec for `method` (kSolidMethodZlib) at `level`, or null for any other.
SolidCompressor* createSolidCompressor(uint32_t method, int level);

// The stripe count qlux-pack uses when it is given none: 8 (kDefaultStripes),
// or more for a large stream so that no stripe is much over kStripeTarget, at
// most 256, and never more than the stream has bytes.
int chooseStripeCount(int64_t blobSize);

// Where the compressed streams go, in blob order.
class SolidBlockSink {
 public:
  virtual ~SolidBlockSink() {}
  // False if the bytes couldn't be written.
  virtual bool write(const void* data, size_t size) = 0;
};

// Results of SolidBlockWriter besides 0.
const int kWriterNoMemory = -1;
const int kWriterBadPlan = -2;      // stripe count outside 1..256 or above the length, or length past kBlobLimit
const int kWriterLengthWrong = -3;  // more bytes added than planned, or fewer at finish()
const int kWriterCodecFailed = -5;  // a stripe didn't compress
const int kWriterSinkFailed = -6;   // the sink refused a stream
const int kWriterTooLarge = -7;     // the block would pass what its offsets can hold

class SolidBlockWriter : private StripeJob {
 public:
  // A block for a stream of `blobSize` bytes in `stripes` stripes, deflated
  // by `codec` (not owned) on `threads` workers (0: the pool's default). The
  // first compressed stream starts `gap` bytes behind the head.
  SolidBlockWriter(SolidCompressor* codec, SolidBlockSink* sink, int64_t blobSize, int stripes, int threads,
                   int64_t gap = 0);
  SolidBlockWriter(const SolidBlockWriter&) = delete;
  SolidBlockWriter& operator=(const SolidBlockWriter&) = delete;
  ~SolidBlockWriter() override;

  // 0 if the plan is one a reader takes; else kWriterBadPlan, and nothing
  // below does anything.
  int check() const { return plan; }
  // The head's length, 20 + 16 x n; the head and the gap are the room the
  // caller leaves in front of the first stream.
  int64_t headSize() const;
  int64_t gapSize() const { return gap; }
  // Appends bytes of the record stream. Gives 0 or a code above; after a
  // failure every later call gives the same code.
  int addData(const void* data, size_t size);
  // After the stream's last byte: compresses and writes what is left, and
  // gives 0 with `head` set to the block's head and stripe table (offsets
  // from the head's first byte), or a code above.
  int finish(std::string* head);
  // Compressed bytes handed to the sink so far.
  int64_t packedSize() const { return written; }

 private:
  struct Stripe {
    int64_t start;
    int64_t size;
    int64_t filled;
    unsigned char* raw;
    unsigned char* packed;
    size_t packedSize;
    int result;
  };

  void runStripe(int index) override;
  // Hands the stripes that are done to the sink, in order; with `wait`, it
  // waits for the next one first.
  int drain(bool wait);
  unsigned char* takeRaw();
  unsigned char* takePacked();

  SolidCompressor* codec;
  SolidBlockSink* sink;
  int plan;
  int status;
  int64_t gap;
  std::vector<Stripe> stripes;
  std::unique_ptr<StripeWorkers> workers;
  int filling;    // the stripe that addData() fills
  int nextOut;    // the next stripe for the sink
  int inFlight;   // submitted and not yet handed to the sink
  int maxInFlight;
  int64_t written;
  size_t largestStripe;
  std::vector<unsigned char*> freeRaw;
  std::vector<unsigned char*> freePacked;
};

#endif  // QLUX_PACKAGE_SOLID_COMPRESSOR_H_
