#include "package/package_file.h"

int PackageFile::open(const char* fileName) {
  close();
  int result = stream.openFile(fileName, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist);
  if (result != 0) return result;
  length = stream.size();
  if (length < 0) {
    stream.close();
    return -1;
  }
  return 0;
}

void PackageFile::close() {
  if (length < 0) return;
  // Ignoring the result on purpose: the file was only read.
  stream.close();
  length = -1;
}

int PackageFile::readAt(int64_t position, void* buffer, size_t size) {
  if (length < 0 || position < 0 || position > length || static_cast<int64_t>(size) > length - position) return -1;
  QUtils::ThreadLockGuard guard(lock);
  if (stream.seek(position) != 0) return -1;
  unsigned char* at = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    // The stream counts in 32 bits; a read of 1 GiB at a time keeps well
    // inside that.
    uint32_t piece = size > 0x40000000u ? 0x40000000u : static_cast<uint32_t>(size);
    uint32_t got = 0;
    if (stream.read(at, piece, &got) != 0 || got == 0) return -1;
    at += got;
    size -= got;
  }
  return 0;
}
