// PFileStream: a PStream on a file, named in UTF-8. PMMFileStream: a stream
// over a mapped view of a file. Both have one body for POSIX and one for
// Windows; the access and share masks and the modes are those of the
// Windows file API on both systems.
#ifndef QLUX_FOUNDATION_FILE_STREAM_H_
#define QLUX_FOUNDATION_FILE_STREAM_H_

#include <cstdint>
#include <string>

#include "foundation/stream.h"

namespace QUtils {

const uint32_t kGenericRead = 0x80000000u;
const uint32_t kGenericWrite = 0x40000000u;
const uint32_t kShareRead = 1;
const uint32_t kShareWrite = 2;
// Mode, low two bits: 0 the file must exist; 1 make a new file where
// nothing stands (not even a link), else fail; 2 open or make; 3 make anew.
// Bit 2 hints sequential reading.
const int kModeMustExist = 0;
const int kModeCreateNew = 1;
const int kModeOpenAlways = 2;
const int kModeCreateAlways = 3;
const int kModeSequential = 4;
// Bit 3: a file that the open makes is its owner's alone (POSIX mode 0600,
// else 0644; Windows has no such bits). Making anew (mode 3) never writes
// through a link at the name: it replaces it.
const int kModePrivate = 8;

class PDirectory;

class PFileStream : public PStream {
 public:
  PFileStream();
  ~PFileStream() override;

  int open() override;
  int close() override;
  int flush() override;
  int write(const void* buffer, uint32_t size, uint32_t* outCount) override;
  int read(void* buffer, uint32_t size, uint32_t* outCount) override;
  int seek(int64_t position) override;
  int seekRelative(int64_t offset) override;
  int seekFromEnd(int64_t offset) override;
  int64_t size() override;
  int setEnd() override;
  int64_t position() override;
  int atEnd() override;

  virtual int openFile(const char* name, uint32_t access, uint32_t share, int mode);
  // The length of a named file without opening it; -1 if it isn't there.
  virtual int64_t fileSize(const char* name);
  virtual int configure(const char* name, uint32_t access, uint32_t share, int mode);
  // Opens for reading and writing with read sharing. Mode 1 opens or makes
  // the file and goes to its end (appending); any other mode makes it anew.
  // kModeSequential and kModePrivate may be added.
  virtual int create(const char* name, int mode);
  // Makes the file `leaf` (one name, no separator) in `directory` where
  // nothing stands, not even a link, and opens it for writing: one open,
  // with no walk to the directory. Mode: kModePrivate may be given. 0, or
  // the system's error; `outExists` (may be null) says whether something
  // stood at the name, which is then left as it was.
  int createNewIn(const PDirectory& directory, const char* leaf, int mode, bool* outExists);

  const char* getName() const { return name; }
  // The permission bits of the open file (POSIX, as getFileMode of files.h
  // gives them); -1 while closed, for a file that isn't regular, and on
  // Windows.
  int permissionBits() const;
  // How far the open file can be trusted to give orders (checkFileTrust of
  // files.h); kFileMissing while closed.
  int checkTrust() const;

 protected:
  char* name;
  uint32_t access;
  uint32_t share;
  int mode;
  intptr_t handle;  // a file descriptor or a HANDLE; -1 while closed
};

// A directory held open for making files and directories in it, so that a
// run of files into one directory reaches it once and not once a file. On
// POSIX it is a descriptor that the walk of path_walk.h opened, or that
// openBelow opened without following a link, so nobody's link can lead
// what is made in it elsewhere; on Windows it is the directory's path.
class PDirectory {
 public:
  PDirectory();
  PDirectory(const PDirectory&) = delete;
  PDirectory& operator=(const PDirectory&) = delete;
  ~PDirectory();

  // Opens the directory `path`, walked as every name of the file layer is
  // (a trusted link on the way is followed). 0, or the system's error.
  int open(const char* path);
  // Opens the directory `name` (one name, not "." or "..") below `parent`,
  // making it first where nothing stands, mode 0755 whatever the umask,
  // and setting `outMade`. A link, a file or anything else at the name is
  // refused and left as it is (an error): the caller goes the long way
  // round, by the whole path. 0, or the system's error.
  int openBelow(const PDirectory& parent, const char* name, bool* outMade);
  void close();
  bool isOpen() const { return handle != -1; }
  // The path it was opened by, in the system's separators.
  const std::string& getPath() const { return path; }

 private:
  friend class PFileStream;
  std::string path;
  intptr_t handle;  // a descriptor on POSIX, 0 while open on Windows; -1 closed
};

class PMMFileStream : public PFileStream {
 public:
  PMMFileStream();
  ~PMMFileStream() override;

  // Maps `length` bytes from `offset` of the named file; position 0 is
  // `offset`, whatever the system's granularity. A length of 0 maps up to
  // the file's end; a view that would pass the end is refused. Read access
  // alone gives a read-only view. The stream counts as open once mapped;
  // close() (or the destructor) unmaps.
  int mapFile(const char* fileName, uint32_t access, uint32_t share, int64_t offset, int64_t length);
  const unsigned char* data() const { return base ? base + startOffset : nullptr; }

  int open() override;
  int close() override;
  int flush() override;
  int write(const void* buffer, uint32_t size, uint32_t* outCount) override;
  int read(void* buffer, uint32_t size, uint32_t* outCount) override;
  int seek(int64_t position) override;
  int seekRelative(int64_t offset) override;
  int seekFromEnd(int64_t offset) override;
  int64_t size() override;
  int setEnd() override { return -1; }
  int64_t position() override;
  int atEnd() override;
  int64_t fileSize(const char*) override { return -1; }
  int create(const char*, int) override { return -1; }

 private:
  // What each system supplies for a view; mapFile(), flush() and close()
  // hold the rest. Opens the configured file for a view and gives its
  // length; sets `handle` only on success.
  int openMappedFile(bool writes, int64_t* fileLength);
  // Maps `viewLength` bytes from `alignedOffset` and sets `base` (and
  // `mapping` where the system has one); leaves nothing behind on failure.
  int mapView(bool writes, int64_t alignedOffset, int64_t viewLength);
  // Writes a writable view's changed pages to its file; 0 or -1.
  int syncView();
  // Unmaps the view and closes what mapFile() opened, as far as it got.
  void releaseView();
  // What a view's start in its file must be a multiple of.
  static int64_t viewGranularity();
  // The error for a view that doesn't lie inside its file.
  static const int kViewOutsideFile;

  unsigned char* base;
  int64_t pos;
  int64_t startOffset;
  int64_t length;
  int64_t mappedLength;
  intptr_t mapping;  // the mapping object's HANDLE on Windows
  bool writable;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_FILE_STREAM_H_
