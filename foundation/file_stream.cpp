// The parts of PFileStream and PMMFileStream that need no system call: the
// stored settings, create's choice of disposition, and the making, checking,
// arithmetic and closing of a mapped view. The calls themselves are in
// file_stream_posix.cpp and file_stream_windows.cpp.
#include "foundation/file_stream.h"

#include <cstring>

namespace QUtils {

// ---------------------------------------------------------------------------
// PFileStream

PFileStream::PFileStream()
    : name(nullptr), access(kGenericRead | kGenericWrite), share(kShareRead), mode(kModeOpenAlways), handle(-1) {}

PFileStream::~PFileStream() {
  if (handle != -1) PFileStream::close();
  delete[] name;
}

int PFileStream::configure(const char* fileName, uint32_t fileAccess, uint32_t fileShare, int fileMode) {
  // A null name keeps the stored one; storing our own name again is a no-op.
  if (fileName && fileName != name) {
    size_t length = std::strlen(fileName);
    char* copy = new char[length + 1];
    std::memcpy(copy, fileName, length + 1);
    delete[] name;
    name = copy;
  }
  access = fileAccess;
  share = fileShare;
  mode = fileMode;
  return 0;
}

int PFileStream::openFile(const char* fileName, uint32_t fileAccess, uint32_t fileShare, int fileMode) {
  configure(fileName, fileAccess, fileShare, fileMode);
  return open();
}

int PFileStream::create(const char* fileName, int createMode) {
  bool append = (createMode & 3) == 1;
  int disposition = (append ? kModeOpenAlways : kModeCreateAlways) | (createMode & (kModeSequential | kModePrivate));
  configure(fileName, kGenericRead | kGenericWrite, kShareRead, disposition);
  int result = open();
  if (result == 0 && append) result = seekFromEnd(0);
  return result;
}

int PFileStream::atEnd() {
  int64_t at = position();
  int64_t end = size();
  if (at < 0 || end < 0) return 1;
  return at >= end;
}

// ---------------------------------------------------------------------------
// PMMFileStream

PMMFileStream::PMMFileStream()
    : base(nullptr), pos(0), startOffset(0), length(0), mappedLength(0), mapping(-1), writable(false) {}

PMMFileStream::~PMMFileStream() { close(); }

int PMMFileStream::mapFile(const char* fileName, uint32_t fileAccess, uint32_t fileShare, int64_t offset,
                           int64_t wanted) {
  close();
  if (!fileName || offset < 0 || wanted < 0) return -1;
  configure(fileName, fileAccess, fileShare, kModeMustExist);
  bool writes = (fileAccess & kGenericWrite) != 0;
  int64_t fileLength = 0;
  int result = openMappedFile(writes, &fileLength);
  if (result != 0) return result;

  // A view must lie inside the file: pages behind its end fault when touched.
  if (wanted == 0) wanted = fileLength - offset;
  if (offset >= fileLength || wanted <= 0 || wanted > fileLength - offset) {
    close();
    return kViewOutsideFile;
  }
  // The view starts at the granularity below the offset; position 0 is the
  // offset itself.
  int64_t aligned = offset - offset % viewGranularity();
  int64_t viewLength = wanted + (offset - aligned);
  result = mapView(writes, aligned, viewLength);
  if (result != 0) {
    close();
    return result;
  }
  startOffset = offset - aligned;
  length = wanted;
  mappedLength = viewLength;
  writable = writes;
  pos = 0;
  openCount = 1;
  return 0;
}

int PMMFileStream::flush() {
  if (!base) return -1;
  if (!writable) return 0;
  return syncView();
}

int PMMFileStream::close() {
  if (!base && handle == -1) return -1;
  int result = flush();
  releaseView();
  base = nullptr;
  handle = -1;
  mapping = -1;
  pos = startOffset = length = mappedLength = 0;
  writable = false;
  openCount = 0;
  return result;
}

// The view is made by mapFile; open only counts another user of it.
int PMMFileStream::open() {
  if (!base) return -1;
  openCount++;
  pos = 0;
  return 0;
}

int PMMFileStream::read(void* buffer, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (!base || pos + static_cast<int64_t>(size) > length) return -1;
  std::memcpy(buffer, base + startOffset + pos, size);
  pos += size;
  if (outCount) *outCount = size;
  return 0;
}

int PMMFileStream::write(const void* buffer, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (!base || !writable || pos + static_cast<int64_t>(size) > length) return -1;
  std::memcpy(base + startOffset + pos, buffer, size);
  pos += size;
  if (outCount) *outCount = size;
  return 0;
}

int PMMFileStream::seek(int64_t position) {
  if (!base || position < 0 || position >= length) return -1;
  pos = position;
  return 0;
}

int PMMFileStream::seekRelative(int64_t offset) { return seek(pos + offset); }

// The end itself is a valid place to stand, though seek refuses it.
int PMMFileStream::seekFromEnd(int64_t offset) {
  if (!base || offset < 0 || offset > length) return -1;
  pos = length - offset;
  return 0;
}

int64_t PMMFileStream::size() { return base ? length : -1; }

int64_t PMMFileStream::position() { return base ? pos : -1; }

int PMMFileStream::atEnd() { return !base || pos == length; }

}  // namespace QUtils
