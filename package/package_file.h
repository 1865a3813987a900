// The installer file that a package is read from, open for reading at any
// position from any thread.
//
// The loader no longer brings the package into memory whole: it reads the
// header and the stripe table, and the stripe reader's workers then read
// each compressed stripe when it is wanted. Reads are serialised by a lock
// around one seek-and-read, which costs nothing beside the inflating that
// follows them.
#ifndef QLUX_PACKAGE_PACKAGE_FILE_H_
#define QLUX_PACKAGE_PACKAGE_FILE_H_

#include <cstddef>
#include <cstdint>

#include "foundation/file_stream.h"
#include "foundation/thread_manager.h"

class PackageFile {
 public:
  PackageFile() : length(-1) {}
  PackageFile(const PackageFile&) = delete;
  PackageFile& operator=(const PackageFile&) = delete;

  // Opens the UTF-8 path for reading, with read sharing. 0, or the system's
  // error; the length is taken once, here.
  int open(const char* fileName);
  void close();
  bool isOpen() const { return length >= 0; }
  int64_t size() const { return length; }
  // Reads exactly `size` bytes from `position`. 0; -1 if the file ends
  // first or the system fails. Safe on several threads at once.
  int readAt(int64_t position, void* buffer, size_t size);

 private:
  QUtils::PFileStream stream;
  QUtils::ThreadLock lock;
  int64_t length;  // -1 while closed
};

#endif  // QLUX_PACKAGE_PACKAGE_FILE_H_
