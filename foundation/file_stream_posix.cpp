// PFileStream and PMMFileStream on POSIX: a file descriptor, and mmap with
// the page size as the granularity of a view's offset. Names go through
// systemPath, so '\' works as a separator, and are reached by walkPath, so
// no link of another user leads an open astray. The share masks have no POSIX
// counterpart and are not enforced. Failures give errno.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/path_walk.h"
#include "foundation/text.h"

namespace QUtils {

namespace {

int lastError() { return errno != 0 ? errno : -1; }

// Opens `fileName` as the mode says: an existing file, one opened or made,
// one made anew in place of whatever stood there, or one made where nothing
// stood (path_walk.h). Only a regular file opens, so a directory is refused
// as the Windows call refuses it.
int openDescriptor(const char* fileName, uint32_t access, int mode, int* out) {
  bool reads = (access & kGenericRead) != 0;
  bool writes = (access & kGenericWrite) != 0;
  int flags = reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
  OpenWay way = kOpenExisting;
  if ((mode & 3) == kModeOpenAlways) way = kOpenOrMake;
  if ((mode & 3) == kModeCreateAlways) way = kMakeNew;
  if ((mode & 3) == kModeCreateNew) way = kMakeExclusive;
  mode_t permissions = (mode & kModePrivate) ? kPrivateFileMode : kPublicFileMode;
  return openFileSafely(fileName, way, flags, permissions, out);
}

// Reads into or writes from `buffer` until `size` bytes are moved or the file
// ends, retrying a call that a signal cut short. The count is what was
// moved, also when a call fails.
int transfer(intptr_t handle, char* buffer, uint32_t size, uint32_t* outCount, bool writing) {
  if (outCount) *outCount = 0;
  if (handle == -1) return EBADF;
  int fd = static_cast<int>(handle);
  uint32_t done = 0;
  while (done < size) {
    ssize_t n = writing ? ::write(fd, buffer + done, size - done) : ::read(fd, buffer + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (outCount) *outCount = done;
      return lastError();
    }
    if (n == 0) break;
    done += static_cast<uint32_t>(n);
  }
  if (outCount) *outCount = done;
  return 0;
}

int moveTo(intptr_t handle, int64_t offset, int whence) {
  if (handle == -1) return EBADF;
  return lseek(static_cast<int>(handle), static_cast<off_t>(offset), whence) < 0 ? lastError() : 0;
}

// A name that stands for itself in its directory: one part, not "." or "..".
bool isPlainName(const char* name) {
  if (!name || !name[0] || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
  for (const char* p = name; *p; p++) {
    if (isSeparator(*p)) return false;
  }
  return true;
}

int64_t pageSize() {
  static const int64_t size = [] {
    long value = sysconf(_SC_PAGESIZE);
    return static_cast<int64_t>(value > 0 ? value : 4096);
  }();
  return size;
}

}  // namespace

// ---------------------------------------------------------------------------
// PFileStream

int PFileStream::open() {
  if (handle != -1) close();
  if (!name) return -1;
  int fd = -1;
  int result = openDescriptor(name, access, mode, &fd);
  if (result != 0) {
    handle = -1;
    return result;
  }
#ifdef POSIX_FADV_SEQUENTIAL
  if (mode & kModeSequential) posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
  handle = fd;
  openCount++;
  return 0;
}

int PFileStream::createNewIn(const PDirectory& directory, const char* leaf, int newMode, bool* outExists) {
  if (outExists) *outExists = false;
  if (handle != -1) close();
  if (!directory.isOpen() || !isPlainName(leaf)) return EINVAL;
  mode_t permissions = (newMode & kModePrivate) ? kPrivateFileMode : kPublicFileMode;
  // Exclusive and not through a link: the file is known to be this call's
  // own, a new regular file, so nothing about it needs asking.
  int fd;
  do {
    fd = openat(static_cast<int>(directory.handle), leaf, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC,
                permissions);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    int error = lastError();
    if (outExists) *outExists = error == EEXIST;
    return error;
  }
  // The umask had its say in openat; the file gets its bits exactly, set
  // through the descriptor (the process's umask is only known by changing
  // it). Ignoring the result on purpose: the file is usable with the
  // umask's bits.
  (void)fchmod(fd, permissions);
  std::string full = directory.path;
  if (full.empty() || full.back() != '/') full += '/';
  full += leaf;
  configure(full.c_str(), kGenericWrite, 0, kModeCreateNew | (newMode & kModePrivate));
  handle = fd;
  openCount++;
  return 0;
}

int PFileStream::checkTrust() const {
  return handle == -1 ? kFileMissing : checkDescriptorTrust(static_cast<int>(handle));
}

int PFileStream::close() {
  if (handle == -1) return EBADF;
  int result = ::close(static_cast<int>(handle));
  // Linux releases the descriptor even when close reports a failure.
  handle = -1;
  if (result != 0) return lastError();
  if (openCount > 0) openCount--;
  return 0;
}

int PFileStream::flush() {
  if (handle == -1) return -1;
  return fsync(static_cast<int>(handle)) == 0 ? 0 : -1;
}

// A regular file takes everything at once unless the disk is full; the loop
// only covers signals and the kernel's cap on one call.
int PFileStream::write(const void* buffer, uint32_t size, uint32_t* outCount) {
  // write(2) only reads from the buffer.
  return transfer(handle, const_cast<char*>(static_cast<const char*>(buffer)), size, outCount, true);
}

// Reads until the request is met or the file ends, as one ReadFile would.
int PFileStream::read(void* buffer, uint32_t size, uint32_t* outCount) {
  return transfer(handle, static_cast<char*>(buffer), size, outCount, false);
}

int PFileStream::seek(int64_t position) { return moveTo(handle, position, SEEK_SET); }

int PFileStream::seekRelative(int64_t offset) { return moveTo(handle, offset, SEEK_CUR); }

int PFileStream::seekFromEnd(int64_t offset) { return moveTo(handle, offset, SEEK_END); }

int64_t PFileStream::size() {
  struct stat info;
  if (handle == -1 || fstat(static_cast<int>(handle), &info) != 0) return -1;
  return static_cast<int64_t>(info.st_size);
}

int PFileStream::permissionBits() const {
  struct stat info;
  if (handle == -1 || fstat(static_cast<int>(handle), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
  return static_cast<int>(info.st_mode & 0777);
}

int PFileStream::setEnd() {
  if (handle == -1) return EBADF;
  off_t at = lseek(static_cast<int>(handle), 0, SEEK_CUR);
  if (at < 0) return lastError();
  return ftruncate(static_cast<int>(handle), at) == 0 ? 0 : lastError();
}

int64_t PFileStream::position() {
  if (handle == -1) return -1;
  off_t at = lseek(static_cast<int>(handle), 0, SEEK_CUR);
  return at < 0 ? -1 : static_cast<int64_t>(at);
}

int64_t PFileStream::fileSize(const char* fileName) {
  if (!fileName) return -1;
  CharString path = systemPath(fileName);
  struct stat info;
  if (stat(path.getText(), &info) != 0 || S_ISDIR(info.st_mode)) return -1;
  return static_cast<int64_t>(info.st_size);
}

// ---------------------------------------------------------------------------
// PDirectory

PDirectory::PDirectory() : handle(-1) {}

PDirectory::~PDirectory() { close(); }

void PDirectory::close() {
  if (handle != -1) ::close(static_cast<int>(handle));
  handle = -1;
  path.clear();
}

int PDirectory::open(const char* name) {
  close();
  if (!name || !name[0]) return EINVAL;
  WalkedPath where;
  int error = walkPath(name, kFollowLastLink, &where);
  if (error != 0) return error;
  const char* leaf = where.leaf()[0] ? where.leaf() : ".";
  int fd = openat(where.directory(), leaf, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return lastError();
  CharString text = systemPath(name);
  path = text.getText() ? text.getText() : "";
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  handle = fd;
  return 0;
}

int PDirectory::openBelow(const PDirectory& parent, const char* name, bool* outMade) {
  *outMade = false;
  if (!parent.isOpen() || !isPlainName(name)) return EINVAL;
  int at = static_cast<int>(parent.handle);
  // O_NOFOLLOW with O_PATH opens a link itself, which O_DIRECTORY refuses:
  // only a real directory opens.
  int fd = openat(at, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT) {
    if (mkdirat(at, name, 0755) == 0) {
      *outMade = true;
    } else if (errno != EEXIST) {
      return lastError();
    }
    // A directory made here is opened for reading, so that the bits the
    // umask took can be given back through the descriptor, not the name.
    fd = openat(at, name, (*outMade ? O_RDONLY : O_PATH) | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    // Ignoring the result on purpose: a directory that keeps narrower bits
    // still works for the one that made it.
    if (fd >= 0 && *outMade) (void)fchmod(fd, 0755);
  }
  if (fd < 0) return lastError();
  std::string joined = parent.path;
  if (joined.empty() || joined.back() != '/') joined += '/';
  joined += name;
  close();
  path = joined;
  handle = fd;
  return 0;
}

// ---------------------------------------------------------------------------
// PMMFileStream
//
// Read access alone gives a private (copy-on-write) mapping of read-only
// pages; with write access the pages are shared with the file and writable.
// A view's offset is aligned to the page size.

const int PMMFileStream::kViewOutsideFile = EINVAL;

int64_t PMMFileStream::viewGranularity() { return pageSize(); }

int PMMFileStream::openMappedFile(bool writes, int64_t* fileLength) {
  int fd = -1;
  int result = openDescriptor(name, writes ? kGenericRead | kGenericWrite : kGenericRead, kModeMustExist, &fd);
  if (result != 0) return result;
  struct stat info;
  if (fstat(fd, &info) != 0) {
    result = lastError();
    ::close(fd);
    return result;
  }
  *fileLength = static_cast<int64_t>(info.st_size);
  handle = fd;
  return 0;
}

int PMMFileStream::mapView(bool writes, int64_t alignedOffset, int64_t viewLength) {
  void* view = mmap(nullptr, static_cast<size_t>(viewLength), writes ? PROT_READ | PROT_WRITE : PROT_READ,
                    writes ? MAP_SHARED : MAP_PRIVATE, static_cast<int>(handle), static_cast<off_t>(alignedOffset));
  if (view == MAP_FAILED) return lastError();
  base = static_cast<unsigned char*>(view);
  return 0;
}

int PMMFileStream::syncView() { return msync(base, static_cast<size_t>(mappedLength), MS_SYNC) == 0 ? 0 : -1; }

void PMMFileStream::releaseView() {
  if (base) munmap(base, static_cast<size_t>(mappedLength));
  if (handle != -1) ::close(static_cast<int>(handle));
}

}  // namespace QUtils
