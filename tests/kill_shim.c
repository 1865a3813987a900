/* A preloaded library for the recovery tests: it kills its own process with
 * SIGKILL at a chosen call, so that a test can stop a run at an exact point
 * of its work, as a power cut or a crash would.
 *
 *   QLUX_KILL_CALL   write (a file opened for writing), rename, or unlink
 *                    (unlink and remove)
 *   QLUX_KILL_MATCH  only calls whose path (either path of a rename)
 *                    contains this text count
 *   QLUX_KILL_AT     the number of the counted call that kills, from 1
 *   QLUX_KILL_WHEN   "before" (default): the call never happens; "after":
 *                    the call is made, then the process dies
 *
 * Each process counts on its own. Without QLUX_KILL_CALL nothing changes.
 * The programs are built with 64-bit file offsets, so their opens are the
 * "64" entries of the C library. The file layer works below opened
 * directories (openat, renameat, unlinkat): a name relative to a directory
 * descriptor is matched as the whole path it stands for.
 * Built by the test: cc -shared -fPIC -o kill_shim.so kill_shim.c -ldl */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

static int counted;

/* The whole path that `name` below the directory `directory` stands for,
 * in `out`; `name` itself when it is absolute or relative to the working
 * directory. */
static const char* fullPath(int directory, const char* name, char* out, size_t size) {
  if (!name || name[0] == '/' || directory == AT_FDCWD) return name;
  char link[64];
  snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
  ssize_t n = readlink(link, out, size - 1);
  if (n <= 0) return name;
  out[n] = 0;
  snprintf(out + n, size - (size_t)n, "/%s", name);
  return out;
}

/* True if this call of `kind` on `path` (and `other`) is the one that
 * kills. */
static int isTheCall(const char* kind, const char* path, const char* other) {
  const char* call = getenv("QLUX_KILL_CALL");
  if (!call || strcmp(call, kind) != 0) return 0;
  const char* match = getenv("QLUX_KILL_MATCH");
  if (match && *match && !(path && strstr(path, match)) && !(other && strstr(other, match))) return 0;
  const char* at = getenv("QLUX_KILL_AT");
  return ++counted == (at ? atoi(at) : 1);
}

static int killsAfter(void) {
  const char* when = getenv("QLUX_KILL_WHEN");
  return when && strcmp(when, "after") == 0;
}

static void die(void) { kill(getpid(), SIGKILL); }

/* Runs `call` (a statement giving `result`) with the kill before or after. */
#define AROUND(hit, call)                  \
  do {                                     \
    if ((hit) && !killsAfter()) die();     \
    call;                                  \
    if (hit) die();                        \
  } while (0)

static int writes(int flags) { return (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0; }
static int writesMode(const char* mode) { return mode && (strchr(mode, 'w') || strchr(mode, 'a') || strchr(mode, '+')); }

/* The mode argument of open, present when a file may be created. */
#define MODE_ARGUMENT(flags, mode)       \
  do {                                   \
    if ((flags) & (O_CREAT | O_TMPFILE)) { \
      va_list args;                      \
      va_start(args, flags);             \
      mode = va_arg(args, mode_t);       \
      va_end(args);                      \
    }                                    \
  } while (0)

typedef int (*OpenCall)(const char*, int, ...);
typedef int (*OpenAtCall)(int, const char*, int, ...);

static int openWith(const char* name, const char* path, int flags, mode_t mode) {
  OpenCall real = (OpenCall)dlsym(RTLD_NEXT, name);
  int hit = writes(flags) && isTheCall("write", path, 0);
  int result;
  AROUND(hit, result = real(path, flags, mode));
  return result;
}

static int openAtWith(const char* name, int directory, const char* path, int flags, mode_t mode) {
  OpenAtCall real = (OpenAtCall)dlsym(RTLD_NEXT, name);
  char whole[4096];
  int hit = writes(flags) && isTheCall("write", fullPath(directory, path, whole, sizeof whole), 0);
  int result;
  AROUND(hit, result = real(directory, path, flags, mode));
  return result;
}

int open64(const char* path, int flags, ...) {
  mode_t mode = 0;
  MODE_ARGUMENT(flags, mode);
  return openWith("open64", path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  mode_t mode = 0;
  MODE_ARGUMENT(flags, mode);
  return openAtWith("openat64", directory, path, flags, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  static FILE* (*real)(const char*, const char*) = 0;
  if (!real) real = (FILE * (*)(const char*, const char*)) dlsym(RTLD_NEXT, "fopen64");
  int hit = writesMode(mode) && isTheCall("write", path, 0);
  FILE* result;
  AROUND(hit, result = real(path, mode));
  return result;
}

int rename(const char* from, const char* to) {
  static int (*real)(const char*, const char*) = 0;
  if (!real) real = (int (*)(const char*, const char*))dlsym(RTLD_NEXT, "rename");
  int hit = isTheCall("rename", from, to);
  int result;
  AROUND(hit, result = real(from, to));
  return result;
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) {
  static int (*real)(int, const char*, int, const char*) = 0;
  if (!real) real = (int (*)(int, const char*, int, const char*))dlsym(RTLD_NEXT, "renameat");
  char wholeFrom[4096], wholeTo[4096];
  int hit = isTheCall("rename", fullPath(fromDirectory, from, wholeFrom, sizeof wholeFrom),
                      fullPath(toDirectory, to, wholeTo, sizeof wholeTo));
  int result;
  AROUND(hit, result = real(fromDirectory, from, toDirectory, to));
  return result;
}

int unlinkat(int directory, const char* path, int flags) {
  static int (*real)(int, const char*, int) = 0;
  if (!real) real = (int (*)(int, const char*, int))dlsym(RTLD_NEXT, "unlinkat");
  char whole[4096];
  int hit = !(flags & AT_REMOVEDIR) && isTheCall("unlink", fullPath(directory, path, whole, sizeof whole), 0);
  int result;
  AROUND(hit, result = real(directory, path, flags));
  return result;
}

int unlink(const char* path) {
  static int (*real)(const char*) = 0;
  if (!real) real = (int (*)(const char*))dlsym(RTLD_NEXT, "unlink");
  int hit = isTheCall("unlink", path, 0);
  int result;
  AROUND(hit, result = real(path));
  return result;
}

int remove(const char* path) {
  static int (*real)(const char*) = 0;
  if (!real) real = (int (*)(const char*))dlsym(RTLD_NEXT, "remove");
  int hit = isTheCall("unlink", path, 0);
  int result;
  AROUND(hit, result = real(path));
  return result;
}
