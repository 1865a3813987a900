/* A chmod that fails, for the end-to-end tests. Preloaded into a program, it
 * refuses (EPERM) every chmod and fchmodat of a path that contains the text
 * in QLUX_CHMOD_FAIL, as a file system that keeps no permission bits would;
 * every other call goes to the system. Nothing else changes.
 * Built by the test: cc -shared -fPIC -o chmod_shim.so chmod_shim.c -ldl */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static int refused(const char* path) {
  const char* text = getenv("QLUX_CHMOD_FAIL");
  return text && text[0] && path && strstr(path, text) != NULL;
}

int chmod(const char* path, mode_t mode) {
  if (refused(path)) {
    errno = EPERM;
    return -1;
  }
  int (*next)(const char*, mode_t) = (int (*)(const char*, mode_t))dlsym(RTLD_NEXT, "chmod");
  return next ? next(path, mode) : (errno = ENOSYS, -1);
}

int fchmodat(int directory, const char* path, mode_t mode, int flags) {
  if (refused(path)) {
    errno = EPERM;
    return -1;
  }
  int (*next)(int, const char*, mode_t, int) = (int (*)(int, const char*, mode_t, int))dlsym(RTLD_NEXT, "fchmodat");
  return next ? next(directory, path, mode, flags) : (errno = ENOSYS, -1);
}
