// The block operations every stream shares, the stream copy, and the
// streams that live in memory: PBufStream, PMemStream and PDynBuf.
#include "foundation/stream.h"

#include <cstdlib>
#include <cstring>

namespace QUtils {

namespace {

const int kDefaultCopyBlock = 32768;
const int kLargestCopyBlock = 0x2000000;

// Reads the two-byte, little-endian length that opens a block. A short read
// gives -1; a failing one gives the stream's code.
int readBlockLength(PStream* stream, uint32_t* length) {
  unsigned char head[2] = {0, 0};
  uint32_t got = 0;
  int result = stream->read(head, 2, &got);
  if (result != 0) return result;
  if (got != 2) return -1;
  *length = static_cast<uint32_t>(head[0]) | (static_cast<uint32_t>(head[1]) << 8);
  return 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// PStream

int PStream::writeString(const char* text) {
  if (!text) return -1;
  uint32_t written = 0;
  return write(text, static_cast<uint32_t>(std::strlen(text)), &written);
}

int PStream::writeBlock(const void* buffer, uint16_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  unsigned char head[2] = {static_cast<unsigned char>(size & 0xFF), static_cast<unsigned char>(size >> 8)};
  uint32_t written = 0;
  int result = write(head, 2, &written);
  if (result != 0) return result;
  if (written != 2) return -1;
  if (outCount) *outCount = 2;
  if (size == 0) return 0;
  result = write(buffer, size, &written);
  if (outCount) *outCount = written + 2;
  return result;
}

// A block whose data end early is incomplete, so it gives -1 even when the
// stream reports no failure; the out count tells how much arrived.
int PStream::readBlock(void* buffer, uint16_t* size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (size) *size = 0;
  uint32_t length = 0;
  int result = readBlockLength(this, &length);
  if (result != 0) return result;
  if (outCount) *outCount = 2;
  if (length == 0) return 0;
  uint32_t got = 0;
  result = read(buffer, length, &got);
  if (outCount) *outCount = got + 2;
  if (size) *size = static_cast<uint16_t>(length);
  if (result == 0 && got != length) result = -1;
  return result;
}

int PStream::readBlockString(char* buffer, uint16_t* size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (!size) return -1;
  uint32_t length = 0;
  int result = readBlockLength(this, &length);
  if (result != 0) return result;
  if (outCount) *outCount = 2;
  if (length == 0) return 0;
  // The room must hold the text and its NUL; a longer text stays unread.
  if (static_cast<int>(length) > static_cast<int>(*size) - 1) return -1;
  uint32_t got = 0;
  result = read(buffer, length, &got);
  if (outCount) *outCount = got + 2;
  buffer[got <= length ? got : length] = 0;
  *size = static_cast<uint16_t>(length);
  if (result == 0 && got != length) result = -1;
  return result;
}

// ---------------------------------------------------------------------------
// copyStream

int copyStream(PStream* destination, PStream* source, int64_t size, int64_t* outRead, int64_t* outWritten,
               int blockSize) {
  if (outRead) *outRead = 0;
  if (outWritten) *outWritten = 0;
  if (size < 1) return 0;
  if (!destination || !source) return -1;

  int64_t block = blockSize > 0 ? blockSize : kDefaultCopyBlock;
  if (block > kLargestCopyBlock) block = kLargestCopyBlock;
  if (block > size) block = size;
  unsigned char* buffer = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(block)));
  if (!buffer) return -1;

  int result = 0;
  int64_t remaining = size;
  while (remaining > 0) {
    uint32_t want = static_cast<uint32_t>(remaining < block ? remaining : block);
    uint32_t got = 0;
    result = source->read(buffer, want, &got);
    if (result != 0) break;
    if (outRead) *outRead += got;
    if (got > 0) {
      uint32_t written = 0;
      result = destination->write(buffer, got, &written);
      if (outWritten) *outWritten += written;
      // A destination that takes less than it was given is full: stop, and
      // let the counters tell the caller.
      if (result != 0 || written != got) break;
    }
    if (got < want) break;  // the source ended early
    remaining -= got;
  }
  std::free(buffer);
  return result;
}

// ---------------------------------------------------------------------------
// PBufStream

PBufStream::PBufStream() : pos(0), buffer(nullptr), length(0), owned(true) {}

PBufStream::~PBufStream() {
  if (owned) std::free(buffer);
}

void PBufStream::setBuffer(void* data, uint32_t size) {
  if (owned) std::free(buffer);
  buffer = static_cast<unsigned char*>(data);
  length = data ? size : 0;
  owned = false;
}

int PBufStream::allocate(uint32_t size) {
  unsigned char* block = static_cast<unsigned char*>(std::calloc(size ? size : 1, 1));
  if (!block) return -1;
  if (owned) std::free(buffer);
  buffer = block;
  length = size;
  owned = true;
  return 0;
}

int PBufStream::open() {
  openCount++;
  pos = 0;
  return 0;
}

int PBufStream::close() {
  if (openCount < 1) return -1;
  openCount--;
  return 0;
}

int PBufStream::write(const void* data, uint32_t size, uint32_t* outCount) {
  uint32_t count = 0;
  if (pos < length) {
    uint64_t left = length - static_cast<uint64_t>(pos);
    count = size < left ? size : static_cast<uint32_t>(left);
    if (count > 0) std::memcpy(buffer + pos, data, count);
    pos += count;
  }
  if (outCount) *outCount = count;
  return 0;
}

int PBufStream::read(void* data, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (atEnd()) return -1;
  uint64_t left = length - static_cast<uint64_t>(pos);
  uint32_t count = size < left ? size : static_cast<uint32_t>(left);
  if (count > 0) std::memcpy(data, buffer + pos, count);
  pos += count;
  if (outCount) *outCount = count;
  return 0;
}

int PBufStream::seek(int64_t position) {
  if (position < 0 || position > static_cast<int64_t>(length)) return -1;
  pos = position;
  return 0;
}

int PBufStream::seekRelative(int64_t offset) { return seek(pos + offset); }

int PBufStream::seekFromEnd(int64_t offset) { return seek(static_cast<int64_t>(length) + offset); }

// ---------------------------------------------------------------------------
// PMemStream
//
// The block in hand is the one that holds the byte before the position, so
// that a position at a block's end stays in that block until more is
// written or read; at position 0 it is the head. Moving on follows `next`.

struct PMemBlock {
  PMemBlock* next;
  unsigned char* data;
};

namespace {

PMemBlock* newBlock(uint32_t size) {
  PMemBlock* block = new PMemBlock;
  block->next = nullptr;
  block->data = static_cast<unsigned char*>(std::calloc(size, 1));
  if (!block->data) {
    delete block;
    return nullptr;
  }
  return block;
}

}  // namespace

PMemStream::PMemStream(uint32_t blockSize)
    : head(nullptr), length(0), current(nullptr), pos(0), opened(false), blockSize(blockSize ? blockSize : 65536) {}

PMemStream::~PMemStream() {
  while (head) {
    PMemBlock* next = head->next;
    std::free(head->data);
    delete head;
    head = next;
  }
}

int PMemStream::open() {
  if (opened) return -1;
  pos = 0;
  current = head;
  opened = true;
  return 0;
}

int PMemStream::close() {
  opened = false;
  return 0;
}

int PMemStream::write(const void* data, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (!opened) return -1;
  const unsigned char* from = static_cast<const unsigned char*>(data);
  uint32_t done = 0;
  while (done < size) {
    if (!head) {
      head = newBlock(blockSize);
      if (!head) return -1;
      current = head;
    }
    // Offset of the position inside the block in hand, 1..blockSize except at 0.
    uint32_t offset = pos == 0 ? 0 : static_cast<uint32_t>((pos - 1) % blockSize) + 1;
    if (offset == blockSize) {
      if (!current->next) {
        current->next = newBlock(blockSize);
        if (!current->next) return -1;
      }
      current = current->next;
      offset = 0;
    }
    uint32_t piece = blockSize - offset;
    if (piece > size - done) piece = size - done;
    std::memcpy(current->data + offset, from + done, piece);
    done += piece;
    pos += piece;
    if (pos > length) length = pos;
    if (outCount) *outCount = done;
  }
  return 0;
}

int PMemStream::read(void* data, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (!opened) return -1;
  unsigned char* to = static_cast<unsigned char*>(data);
  int64_t left = length - pos;
  uint32_t want = left < static_cast<int64_t>(size) ? static_cast<uint32_t>(left > 0 ? left : 0) : size;
  uint32_t done = 0;
  while (done < want) {
    uint32_t offset = pos == 0 ? 0 : static_cast<uint32_t>((pos - 1) % blockSize) + 1;
    if (offset == blockSize) {
      current = current->next;
      offset = 0;
    }
    uint32_t piece = blockSize - offset;
    if (piece > want - done) piece = want - done;
    std::memcpy(to + done, current->data + offset, piece);
    done += piece;
    pos += piece;
  }
  if (outCount) *outCount = done;
  return 0;
}

int PMemStream::seek(int64_t position) {
  if (position < 0 || position > length) return -1;
  PMemBlock* block = head;
  int64_t index = position == 0 ? 0 : (position - 1) / blockSize;
  for (int64_t i = 0; i < index && block; i++) block = block->next;
  if (!block && position > 0) return -2;
  current = block;
  pos = position;
  return 0;
}

int PMemStream::seekRelative(int64_t offset) { return seek(pos + offset); }

int PMemStream::seekFromEnd(int64_t) { return seek(length); }

// ---------------------------------------------------------------------------
// PDynBuf

PDynBuf::~PDynBuf() { std::free(data); }

bool PDynBuf::reserve(uint32_t size) {
  if (size <= capacity && data) return true;
  unsigned char* block = static_cast<unsigned char*>(std::realloc(data, size ? size : 1));
  if (!block) return false;
  data = block;
  if (size > capacity) capacity = size;
  if (used > capacity) used = capacity;
  return true;
}

}  // namespace QUtils
