/* A full disk for the end-to-end tests, where mounting a small file system
 * isn't allowed. Preloaded into a program, it treats the directory named by
 * QLUX_ENOSPC_DIR as a volume of QLUX_ENOSPC_BYTES bytes: what the regular
 * files below it hold counts as used, and a write that would grow a file
 * below it past the free rest writes what fits and then fails with ENOSPC,
 * as a full disk does. Deleting files frees their space again. Writes go
 * through write(2) or, for streams opened with fopen or fdopen, through a cookie
 * stream that calls the same check. The directory also counts as a
 * volume of its own, so a rename into it or out of it fails with EXDEV,
 * and a program has to copy instead. Nothing outside it is touched. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static char volume[PATH_MAX];
static long long capacity = -1;
static long long used;

static void setUp(void) {
  if (capacity >= 0) return;
  const char* dir = getenv("QLUX_ENOSPC_DIR");
  const char* bytes = getenv("QLUX_ENOSPC_BYTES");
  capacity = 0;
  if (!dir || !bytes || !realpath(dir, volume)) {
    volume[0] = 0;
    return;
  }
  capacity = atoll(bytes);
}

static int countFile(const char* path, const struct stat* info, int type, struct FTW* walk) {
  (void)path;
  (void)walk;
  if (type == FTW_F && S_ISREG(info->st_mode)) used += info->st_size;
  return 0;
}

/* True if the descriptor is a regular file below the volume. */
static int onVolume(int fd) {
  setUp();
  if (!volume[0]) return 0;
  char link[64], path[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  ssize_t n = readlink(link, path, sizeof path - 1);
  if (n <= 0) return 0;
  path[n] = 0;
  size_t length = strlen(volume);
  return strncmp(path, volume, length) == 0 && path[length] == '/';
}

/* True if `path`, which may not exist yet, lies below the volume. */
static int pathOnVolume(const char* path) {
  setUp();
  if (!volume[0] || !path) return 0;
  char full[PATH_MAX], directory[PATH_MAX];
  snprintf(directory, sizeof directory, "%s", path);
  char* slash = strrchr(directory, '/');
  if (slash && slash != directory) *slash = 0;
  if (!slash || !realpath(directory, full)) return 0;
  size_t length = strlen(volume);
  return strncmp(full, volume, length) == 0 && (full[length] == '/' || full[length] == 0);
}

int rename(const char* from, const char* to) {
  static int (*realRename)(const char*, const char*);
  if (!realRename) realRename = (int (*)(const char*, const char*))dlsym(RTLD_NEXT, "rename");
  if (pathOnVolume(from) != pathOnVolume(to)) {
    errno = EXDEV;
    return -1;
  }
  return realRename(from, to);
}

/* The same for `name` below the directory `directory`. */
static int atOnVolume(int directory, const char* name) {
  if (!name || name[0] == '/' || directory == AT_FDCWD) return pathOnVolume(name);
  char link[64], path[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
  ssize_t n = readlink(link, path, sizeof path - 1);
  if (n <= 0) return 0;
  path[n] = 0;
  snprintf(path + n, sizeof path - (size_t)n, "/%s", name);
  return pathOnVolume(path);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) {
  static int (*realRename)(int, const char*, int, const char*);
  if (!realRename) realRename = (int (*)(int, const char*, int, const char*))dlsym(RTLD_NEXT, "renameat");
  if (atOnVolume(fromDirectory, from) != atOnVolume(toDirectory, to)) {
    errno = EXDEV;
    return -1;
  }
  return realRename(fromDirectory, from, toDirectory, to);
}

/* How many of `count` bytes a write to `fd` may put on the volume. */
static size_t room(int fd, size_t count) {
  struct stat info;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return count;
  off_t at = (fcntl(fd, F_GETFL) & O_APPEND) ? info.st_size : lseek(fd, 0, SEEK_CUR);
  if (at < 0) return count;
  used = 0;
  nftw(volume, countFile, 16, FTW_PHYS);
  long long spare = capacity - used;
  if (spare < 0) spare = 0;
  /* Bytes that overwrite the file's present content take no new room. */
  long long inside = info.st_size > at ? info.st_size - at : 0;
  long long fits = inside + spare;
  return (long long)count <= fits ? count : (size_t)fits;
}

ssize_t write(int fd, const void* buffer, size_t count) {
  static ssize_t (*realWrite)(int, const void*, size_t);
  if (!realWrite) realWrite = (ssize_t(*)(int, const void*, size_t))dlsym(RTLD_NEXT, "write");
  if (count > 0 && onVolume(fd)) {
    size_t fits = room(fd, count);
    if (fits == 0) {
      errno = ENOSPC;
      return -1;
    }
    count = fits;
  }
  return realWrite(fd, buffer, count);
}

/* A stream below the volume hands what it buffered to write() above, so
 * that fwrite, fputs and fprintf meet the same check when it flushes. */
static ssize_t cookieRead(void* cookie, char* buffer, size_t size) {
  return read(fileno((FILE*)cookie), buffer, size);
}

static ssize_t cookieWrite(void* cookie, const char* buffer, size_t size) {
  size_t done = 0;
  while (done < size) {
    ssize_t n = write(fileno((FILE*)cookie), buffer + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += (size_t)n;
  }
  return (ssize_t)done;
}

static int cookieSeek(void* cookie, off64_t* offset, int whence) {
  off_t at = lseek(fileno((FILE*)cookie), (off_t)*offset, whence);
  if (at < 0) return -1;
  *offset = at;
  return 0;
}

static int cookieClose(void* cookie) { return fclose((FILE*)cookie); }

static FILE* wrap(FILE* file, const char* mode) {
  if (!file || !strpbrk(mode, "wa+") || !onVolume(fileno(file))) return file;
  cookie_io_functions_t io = {cookieRead, cookieWrite, cookieSeek, cookieClose};
  FILE* stream = fopencookie(file, mode, io);
  return stream ? stream : file;
}

FILE* fdopen(int fd, const char* mode) {
  static FILE* (*realOpen)(int, const char*);
  if (!realOpen) realOpen = (FILE * (*)(int, const char*)) dlsym(RTLD_NEXT, "fdopen");
  return wrap(realOpen(fd, mode), mode);
}

FILE* fopen(const char* path, const char* mode) {
  static FILE* (*realOpen)(const char*, const char*);
  if (!realOpen) realOpen = (FILE * (*)(const char*, const char*)) dlsym(RTLD_NEXT, "fopen");
  return wrap(realOpen(path, mode), mode);
}

FILE* fopen64(const char* path, const char* mode) {
  static FILE* (*realOpen)(const char*, const char*);
  if (!realOpen) realOpen = (FILE * (*)(const char*, const char*)) dlsym(RTLD_NEXT, "fopen64");
  return wrap(realOpen(path, mode), mode);
}
