// Writing a solid block (the layout is in solid_decompressor.h): the record
// stream of a package is collected in memory, cut into equal stripes, and
// the stripes are compressed at once, one worker thread each. Only the
// package builder uses this side.
//
// Use: createSolidCompressor(kSolidMethodZlib), init(stripes, level),
// addData() for every byte of the record stream, compress(), delete.
#ifndef QLUX_PACKAGE_SOLID_COMPRESSOR_H_
#define QLUX_PACKAGE_SOLID_COMPRESSOR_H_

#include <atomic>
#include <cstdint>

#include "foundation/lists.h"
#include "foundation/thread_manager.h"
#include "package/format.h"

// The collected stream starts with this much room and doubles as needed.
const int32_t kBlobInitialCapacity = 0x400000;
// The stream's largest size: a capacity beyond this would leave the positive
// 32-bit range.
const int32_t kBlobLimit = 0x40000000;

class SolidCompressor {
 public:
  virtual ~SolidCompressor() {}
  // Sets the stripe count and the codec's level. Gives 0; -1 if the
  // collecting buffer couldn't be allocated; -2 for fewer than 1 stripe.
  virtual int init(int stripes, int level) = 0;
  // Kept for the family's interface; no compressor uses it. Gives -1.
  virtual int reserved() { return -1; }
  // Appends to the stream. Gives 0; -1 if the buffer can't grow; -2 when the
  // stream would pass kBlobLimit.
  virtual int addData(const void* data, int32_t size) = 0;
  // Builds the block into a new malloc'ed buffer the caller frees. Gives 0,
  // with the block's and the stream's lengths, or a negative code.
  virtual int compress(unsigned char** outBlock, int32_t* outBlockSize, int32_t* outBlobSize) = 0;
};

// Collects the stream.
class CommonSolidCompressor : public SolidCompressor {
 public:
  CommonSolidCompressor();
  ~CommonSolidCompressor() override;
  int init(int stripes, int level) override;
  int addData(const void* data, int32_t size) override;

 protected:
  unsigned char* blob;
  int32_t capacity;
  int32_t used;
  int stripeCount;
  int level;
};

// Cuts the stream into stripes and compresses them on worker threads.
class StripedSolidCompressor : public CommonSolidCompressor {
 public:
  StripedSolidCompressor();
  ~StripedSolidCompressor() override;
  // Compresses one stripe into `destination`; `destinationSize` holds the
  // room on entry and the length written on return. Gives 0 or the codec's
  // error code.
  virtual int compressStripe(unsigned char* destination, uint32_t* destinationSize, const unsigned char* source,
                             uint32_t sourceSize) = 0;

 protected:
  // Fills `stripes` and `packedStripes`. Gives 0; -3 if no thread manager
  // can be made; -5 if a stripe failed.
  int compressStripes();
  // Frees the compressed stripes still held.
  void freeStripes();

  QUtils::PList<SOLIDSTRIPE> stripes;
  QUtils::PList<unsigned char*> packedStripes;

  friend class StripedCompressWorker;
};

class ZlibSolidCompressor : public StripedSolidCompressor {
 public:
  int compress(unsigned char** outBlock, int32_t* outBlockSize, int32_t* outBlobSize) override;
  int compressStripe(unsigned char* destination, uint32_t* destinationSize, const unsigned char* source,
                     uint32_t sourceSize) override;
};

// The job of one compression run: thread i compresses stripe i.
class StripedCompressWorker : public QUtils::MultiThreaded {
 public:
  explicit StripedCompressWorker(StripedSolidCompressor* compressor) : compressor(compressor) {}
  void run(std::atomic<int32_t>* stopCode, std::atomic<int32_t>* progress, int threadIndex,
           int threadCount) override;
  const char* getThreadName() override { return "StripedCompressWorker"; }

 private:
  StripedSolidCompressor* compressor;
};

// A compressor for `method` (kSolidMethodZlib), or null for any other.
SolidCompressor* createSolidCompressor(uint32_t method);

#endif  // QLUX_PACKAGE_SOLID_COMPRESSOR_H_
