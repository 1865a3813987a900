// Reaching a name on POSIX without being led astray by symbolic links.
//
// The installer runs as root in directories that other users can write to,
// so the kernel's own reading of a path is not enough: it follows every
// symbolic link on the way, whoever made it, and a link that a user put
// inside a product's folder ("etc -> /etc") would carry root's writes and
// deletions anywhere. A walk here opens one part at a time below the one
// before (openat with O_PATH | O_NOFOLLOW), so each part is looked at once,
// through a descriptor that can't change under the walk. A symbolic link on
// the way is followed only if root or this process's user owns it, since
// nobody else can make such a link; a link of anybody else stops the walk
// with ELOOP. The last part is the caller's: it decides whether a link
// there is followed (reading), replaced (making a new file) or removed
// (deleting).
//
// Only the POSIX bodies of the file layer use this unit.
#ifndef QLUX_FOUNDATION_PATH_WALK_H_
#define QLUX_FOUNDATION_PATH_WALK_H_

#include <sys/types.h>

#include <string>

namespace QUtils {

// The end of a walk: an open directory and the name of the last part in it.
// The directory is an O_PATH descriptor, good for the *at calls.
class WalkedPath {
 public:
  WalkedPath() : fd(-1) {}
  WalkedPath(const WalkedPath&) = delete;
  WalkedPath& operator=(const WalkedPath&) = delete;
  ~WalkedPath() { reset(-1); }

  int directory() const { return fd; }
  // The last part; empty when the path is "/" (or "." and the like) itself.
  const char* leaf() const { return name.c_str(); }

  // Takes `descriptor` (may be -1), closing the one held before.
  void reset(int descriptor);
  void setLeaf(const std::string& text) { name = text; }

 private:
  int fd;
  std::string name;
};

// How walkPath treats what it meets.
enum WalkFlags {
  // A trusted link as the last part is followed as well, so that the leaf
  // is never one (an untrusted link stays the leaf, for the caller to
  // refuse or replace).
  kFollowLastLink = 1,
  // Missing directories on the way (not the last part) are made, mode 0755
  // whatever the umask.
  kMakeDirectories = 2,
};

// Walks to the directory that holds the last part of `path`; a relative
// path starts at the working directory. `outCreated` (may be null) counts
// the directories made. 0, or the error number: ELOOP for a link that isn't
// trusted (or too many links), ENOTDIR for a part on the way that isn't a
// directory, ENOENT for one that is missing.
int walkPath(const char* path, int flags, WalkedPath* out, int* outCreated = nullptr);

// Whether this process follows a link, or keeps a file, of `owner`: root's
// and its own user's.
bool isTrustedOwner(uid_t owner);

// The ways openFileSafely opens a file.
enum OpenWay {
  kOpenExisting,  // the file must exist; a trusted link to it is followed
  kOpenOrMake,    // as kOpenExisting, or a new file if nothing stands there
  kMakeNew,       // a new file replaces whatever stands at the name, a link
                  // included (never written through); a directory is refused
  kMakeExclusive, // a new file where nothing stands, not even a link; else
                  // EEXIST
};

// Opens a regular file with `access` (O_RDONLY, O_WRONLY or O_RDWR, plus
// O_APPEND if wanted). Anything but a regular file is refused without
// blocking on it (a FIFO would hold the process): EISDIR for a directory,
// EINVAL for the rest. A new file gets `permissions` exactly, whatever the
// umask and whatever stood at its name before. The descriptor in
// `outFd`, close-on-exec; 0, or the error number.
int openFileSafely(const char* path, OpenWay way, int access, mode_t permissions, int* outFd);

// checkFileTrust (files.h) for an open descriptor.
enum FileTrust : int;
FileTrust checkDescriptorTrust(int fd);

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_PATH_WALK_H_
