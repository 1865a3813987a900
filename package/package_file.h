// The files that a package is read from, open for reading at any position
// from any thread.
//
// The loader doesn't bring the package into memory whole: it reads the
// header and the stripe tables, and the stripe reader's workers then read
// each compressed stripe when it is wanted. Reads are serialised by a lock
// around one seek-and-read, which costs nothing beside the inflating that
// follows them.
//
// Most packages lie in one file, the installer. A package that the builder
// split lies in the installer and in package files beside it, which read
// as if they followed the installer's package bytes: positions count in
// the installer file, and a package file's first byte follows the last
// package byte of the file before it (see block_table.h). A read may run
// from one file into the next.
#ifndef QLUX_PACKAGE_PACKAGE_FILE_H_
#define QLUX_PACKAGE_PACKAGE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

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
  // Ends the first file's share of the package at `end` (a position in it,
  // at most its length) and has the named file follow there, and each file
  // added later behind the one before. 0; the system's error if the file
  // can't be opened, or -1 if it isn't `size` bytes long or the first file
  // is shorter than `end`.
  int addPart(int64_t end, const char* fileName, int64_t size);
  void close();
  bool isOpen() const { return length >= 0; }
  // The first file's length, then the package files' after it.
  int64_t size() const { return length; }
  // Reads exactly `size` bytes from `position`. 0; -1 if the files end
  // first or the system fails. Safe on several threads at once.
  int readAt(int64_t position, void* buffer, size_t size);

 private:
  struct Piece {
    std::unique_ptr<QUtils::PFileStream> stream;
    int64_t start;  // where its first byte stands among the positions
    int64_t size;
  };

  QUtils::ThreadLock lock;
  std::vector<Piece> pieces;
  int64_t length;  // -1 while closed
};

#endif  // QLUX_PACKAGE_PACKAGE_FILE_H_
