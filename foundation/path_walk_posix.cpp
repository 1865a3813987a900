// The walk below opened directories, and opening a file at its end.
#include "foundation/path_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <deque>

#include "foundation/text.h"

namespace QUtils {

namespace {

// As many links as the kernel follows in one path.
const int kMaxLinks = 40;
// Bits that a kept file mode never carries: set-user-id, set-group-id and
// the sticky bit.
const mode_t kPermissionBits = 0777;

// Splits `text` at '/' (and '\', which POSIX paths of this system never
// hold as a character of a name) into the parts that count: "" and "." go.
void splitParts(const std::string& text, std::deque<std::string>* parts, bool atFront) {
  std::deque<std::string> found;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = start;
    while (end < text.size() && !isSeparator(text[end])) end++;
    std::string part = text.substr(start, end - start);
    if (!part.empty() && part != ".") found.push_back(part);
    start = end + 1;
  }
  if (atFront)
    parts->insert(parts->begin(), found.begin(), found.end());
  else
    parts->insert(parts->end(), found.begin(), found.end());
}

int openStart(bool absolute) {
  return open(absolute ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
}

// Makes the directory `name` below `parent` with mode 0755 exactly. 0, or
// the error number; a directory that another process made first counts.
int makeOneDirectory(int parent, const char* name, bool* outMade) {
  *outMade = false;
  if (mkdirat(parent, name, 0755) != 0) return errno == EEXIST ? 0 : errno;
  *outMade = true;
  // The umask may have taken bits away. The descriptor is of the directory
  // just made, or of whatever replaced it, which the walk then looks at.
  int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0) {
    // Ignoring the result on purpose: a directory that keeps narrower bits
    // still works for the root that made it.
    (void)fchmod(fd, 0755);
    close(fd);
  }
  return 0;
}

}  // namespace

void WalkedPath::reset(int descriptor) {
  if (fd >= 0) close(fd);
  fd = descriptor;
}

bool isTrustedOwner(uid_t owner) { return owner == 0 || owner == geteuid(); }

int walkPath(const char* path, int flags, WalkedPath* out, int* outCreated) {
  if (outCreated) *outCreated = 0;
  if (!path || !path[0] || !out) return EINVAL;
  std::string text = systemPath(path).getText();
  std::deque<std::string> parts;
  splitParts(text, &parts, false);
  out->reset(openStart(text[0] == '/'));
  out->setLeaf("");
  if (out->directory() < 0) return errno;

  int links = 0;
  while (!parts.empty()) {
    std::string part = parts.front();
    parts.pop_front();
    bool last = parts.empty();
    int fd = openat(out->directory(), part.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
      int error = errno;
      if (error == ENOENT && last) {
        out->setLeaf(part);
        return 0;
      }
      if (error != ENOENT || !(flags & kMakeDirectories)) return error;
      bool made = false;
      int result = makeOneDirectory(out->directory(), part.c_str(), &made);
      if (result != 0) return result;
      if (made && outCreated) (*outCreated)++;
      parts.push_front(part);  // looked at again, as whatever stands there now
      continue;
    }
    struct stat status;
    if (fstat(fd, &status) != 0) {
      int error = errno;
      close(fd);
      return error;
    }
    if (S_ISLNK(status.st_mode)) {
      if (last && !(flags & kFollowLastLink)) {
        close(fd);
        out->setLeaf(part);
        return 0;
      }
      if (!isTrustedOwner(status.st_uid)) {
        close(fd);
        if (last) {  // the caller refuses or replaces it
          out->setLeaf(part);
          return 0;
        }
        return ELOOP;
      }
      char target[PATH_MAX];
      ssize_t length = readlinkat(fd, "", target, sizeof target - 1);
      close(fd);
      if (length <= 0) return length == 0 ? ENOENT : errno;
      if (++links > kMaxLinks) return ELOOP;
      target[length] = 0;
      if (target[0] == '/') {
        out->reset(openStart(true));
        if (out->directory() < 0) return errno;
      }
      splitParts(target, &parts, true);
      if (parts.empty()) {  // a link to "/" or "."
        out->setLeaf("");
        return 0;
      }
      continue;
    }
    if (last) {
      close(fd);
      out->setLeaf(part);
      return 0;
    }
    if (!S_ISDIR(status.st_mode)) {
      close(fd);
      return ENOTDIR;
    }
    out->reset(fd);
  }
  // The path named a directory that is now open itself ("/", or one that
  // ended in ".."): its name in its parent is "." for the *at calls.
  out->setLeaf(".");
  return 0;
}

int openFileSafely(const char* path, OpenWay way, int access, mode_t permissions, int* outFd) {
  *outFd = -1;
  WalkedPath where;
  int result = walkPath(path, way == kMakeNew || way == kMakeExclusive ? 0 : kFollowLastLink, &where);
  if (result != 0) return result;
  if (!where.leaf()[0] || std::string(where.leaf()) == "." || std::string(where.leaf()) == "..") return EISDIR;

  int base = access | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  mode_t newMode = permissions & kPermissionBits;
  if (way == kMakeNew) {
    // Whatever stands at the name goes first; the new file is then made
    // exclusively, so a name that somebody takes again in between fails
    // the open instead of being written through.
    struct stat status;
    if (fstatat(where.directory(), where.leaf(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
      if (S_ISDIR(status.st_mode)) return EISDIR;
      if (unlinkat(where.directory(), where.leaf(), 0) != 0 && errno != ENOENT) return errno;
    }
  }

  // A new file is made exclusively, so that it is known to be this open's
  // own; kOpenOrMake then opens what somebody else made first as an
  // existing file.
  bool made = way != kOpenExisting;
  int fd;
  do {
    fd = openat(where.directory(), where.leaf(), base | (made ? O_CREAT | O_EXCL : 0), newMode);
    if (fd < 0 && errno == EEXIST && way == kOpenOrMake) {
      made = false;
      errno = EINTR;
    }
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return errno;
  struct stat status;
  if (fstat(fd, &status) != 0) {
    int error = errno;
    close(fd);
    return error;
  }
  if (!S_ISREG(status.st_mode)) {
    close(fd);
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  }
  // The umask had its say in openat; a file made here gets its bits exactly.
  // Ignoring the result on purpose: the file is usable with the umask's bits.
  if (made && (status.st_mode & kPermissionBits) != newMode) (void)fchmod(fd, newMode);
  int fileFlags = fcntl(fd, F_GETFL);
  if (fileFlags >= 0) fcntl(fd, F_SETFL, fileFlags & ~O_NONBLOCK);
  *outFd = fd;
  return 0;
}

}  // namespace QUtils
