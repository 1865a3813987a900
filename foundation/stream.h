// PStream: the one interface through which the system reads and writes
// bytes. Results are 0 for success, else -1 or the system's error number;
// counts come back through out-parameters, never in the result.
//
// PBufStream reads and writes one fixed buffer; PMemStream grows in memory as
// a chain of equal blocks; PDynBuf is a plain growable byte buffer.
// A stream belongs to one thread at a time.
#ifndef QLUX_FOUNDATION_STREAM_H_
#define QLUX_FOUNDATION_STREAM_H_

#include <cstdint>

namespace QUtils {

class PStream {
 public:
  PStream() : openCount(0) {}
  virtual ~PStream() {}
  virtual int open() = 0;
  virtual int close() = 0;
  virtual int flush() = 0;
  virtual int write(const void* buffer, uint32_t size, uint32_t* outCount) = 0;
  virtual int writeString(const char* text);
  // Two bytes of length, little-endian, then the data.
  virtual int writeBlock(const void* buffer, uint16_t size, uint32_t* outCount);
  virtual int read(void* buffer, uint32_t size, uint32_t* outCount) = 0;
  virtual int readBlock(void* buffer, uint16_t* size, uint32_t* outCount);
  virtual int readBlockString(char* buffer, uint16_t* size, uint32_t* outCount);
  virtual int seek(int64_t position) = 0;
  virtual int seekRelative(int64_t offset) = 0;
  virtual int seekFromEnd(int64_t offset) = 0;
  virtual int64_t size() = 0;
  virtual int setEnd() { return -1; }
  virtual int64_t position() = 0;
  virtual int atEnd() = 0;
  virtual int isOpen() { return openCount; }

 protected:
  int32_t openCount;
};

// Moves `size` bytes from `source` to `destination` through one block of
// `blockSize` bytes (32 KiB when not positive, at most 32 MiB).
int copyStream(PStream* destination, PStream* source, int64_t size, int64_t* outRead, int64_t* outWritten,
               int blockSize);

class PBufStream : public PStream {
 public:
  PBufStream();
  ~PBufStream() override;
  // Takes `data` without owning it; frees an owned buffer; keeps the position.
  void setBuffer(void* data, uint32_t size);
  // Makes an owned, zeroed buffer of `size` bytes.
  int allocate(uint32_t size);
  unsigned char* getBuffer() { return buffer; }

  int open() override;
  int close() override;
  int flush() override { return 0; }
  int write(const void* data, uint32_t size, uint32_t* outCount) override;
  int read(void* data, uint32_t size, uint32_t* outCount) override;
  int seek(int64_t position) override;
  int seekRelative(int64_t offset) override;
  int seekFromEnd(int64_t offset) override;
  int64_t size() override { return length; }
  int64_t position() override { return pos; }
  int atEnd() override { return pos >= length; }

 private:
  int64_t pos;
  unsigned char* buffer;
  uint32_t length;
  bool owned;
};

struct PMemBlock;

class PMemStream : public PStream {
 public:
  explicit PMemStream(uint32_t blockSize = 65536);
  ~PMemStream() override;

  int open() override;
  int close() override;
  int flush() override { return 0; }
  int write(const void* data, uint32_t size, uint32_t* outCount) override;
  int read(void* data, uint32_t size, uint32_t* outCount) override;
  int seek(int64_t position) override;
  int seekRelative(int64_t offset) override;
  int seekFromEnd(int64_t offset) override;
  int64_t size() override { return length; }
  int64_t position() override { return pos; }
  int atEnd() override { return pos == length; }
  int isOpen() override { return opened ? 1 : 0; }

 private:
  PMemBlock* head;
  int64_t length;
  PMemBlock* current;
  int64_t pos;
  bool opened;
  uint32_t blockSize;
};

class PDynBuf {
 public:
  PDynBuf() : data(nullptr), capacity(0), used(0) {}
  PDynBuf(const PDynBuf&) = delete;
  PDynBuf& operator=(const PDynBuf&) = delete;
  virtual ~PDynBuf();
  // Makes room for at least `size` bytes, keeping the used bytes.
  bool reserve(uint32_t size);

  unsigned char* data;
  uint32_t capacity;
  uint32_t used;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_STREAM_H_
