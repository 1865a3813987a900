// The file layer's system calls on POSIX. Every name goes through
// systemPath, so '\' arrives as '/'. Whatever writes or deletes reaches its
// name through walkPath (path_walk.h), and acts on the last part with the
// *at calls below the directory that the walk opened.
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/path_walk.h"
#include "foundation/text.h"
#include "foundation/thread_manager.h"

namespace QUtils {

namespace {

int lastError() { return errno ? errno : -1; }

bool isDotEntry(const char* name) { return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2])); }

// The name without separators at its end, so that lstat judges the name
// itself and not what a link in it leads to.
CharString bareName(const char* name) {
  CharString result = systemPath(name);
  result.makeUnique();
  if (char* text = result.getBuffer()) {
    int length = static_cast<int>(std::strlen(text));
    while (length > 1 && text[length - 1] == '/') text[--length] = 0;
  }
  return result;
}

// Removes `name` below the directory `parentFd` and everything under it.
// Never follows a link and never enters another file system.
bool removeTreeAt(int parentFd, const char* name, dev_t device) {
  struct stat status;
  if (fstatat(parentFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (!S_ISDIR(status.st_mode)) return unlinkat(parentFd, name, 0) == 0;
  if (status.st_dev != device) return false;
  int fd = openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  DIR* directory = fdopendir(fd);
  if (!directory) {
    close(fd);
    return false;
  }
  bool removed = true;
  // A second pass catches entries that the first missed because the
  // directory changed under readdir.
  for (int pass = 0; pass < 2; pass++) {
    removed = true;
    rewinddir(directory);
    while (struct dirent* entry = readdir(directory)) {
      if (isDotEntry(entry->d_name)) continue;
      if (!removeTreeAt(dirfd(directory), entry->d_name, device)) removed = false;
    }
    if (unlinkat(parentFd, name, AT_REMOVEDIR) == 0) {
      closedir(directory);
      return removed;
    }
    if (errno != ENOTEMPTY && errno != EEXIST) break;
  }
  closedir(directory);
  return false;
}

}  // namespace

FILE* openFile(const char* name, const char* mode, int newFileMode) {
  if (!name || !mode) return nullptr;
  bool plus = std::strchr(mode, '+') != nullptr;
  OpenWay way = kOpenExisting;
  int access = plus ? O_RDWR : O_RDONLY;
  if (mode[0] == 'w') {
    way = kMakeNew;
    access = plus ? O_RDWR : O_WRONLY;
  } else if (mode[0] == 'a') {
    way = kOpenOrMake;
    access = (plus ? O_RDWR : O_WRONLY) | O_APPEND;
  } else if (mode[0] != 'r') {
    return nullptr;
  }
  int fd = -1;
  int error = openFileSafely(name, way, access, static_cast<mode_t>(newFileMode), &fd);
  if (error != 0) {
    errno = error;
    return nullptr;
  }
  // The C library has no text mode here: "t" goes.
  char systemMode[4] = {mode[0], 'b', 0, 0};
  if (plus) systemMode[2] = '+';
  FILE* file = fdopen(fd, systemMode);
  if (!file) close(fd);
  return file;
}

int deleteFile(const char* name) {
  if (!name) return -1;
  WalkedPath where;
  int error = walkPath(name, 0, &where);
  if (error != 0) return error;
  return unlinkat(where.directory(), where.leaf(), 0) == 0 ? 0 : lastError();
}

// The descriptors of removed files, and how many may be held: half of what
// the process may open, so that the run's own files always open. `bytes`
// is the space that they take.
struct RemovedFiles::Held {
  std::vector<int> descriptors;
  size_t limit = 0;
  uint64_t bytes = 0;
};

namespace {

// Freeing waits for the disk, not the processor: more threads than cores
// overlap more of the waits.
const size_t kReleaseThreads = 8;
// Too few files to be worth a thread.
const size_t kFilesPerThread = 32;

size_t heldLimit() {
  struct rlimit limit;
  rlim_t open = getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : 1024;
  if (open == RLIM_INFINITY || open > (1u << 20)) open = 1u << 20;
  return open < 64 ? 16 : static_cast<size_t>(open / 2);
}

// Closes descriptors until none is left: each thread that runs it takes
// the next one that no thread has taken.
class CloseJob : public MultiThreaded {
 public:
  explicit CloseJob(const std::vector<int>* all) : descriptors(all), next(0) {}
  void run(std::atomic<int32_t>*, std::atomic<int32_t>*, int, int) override {
    for (size_t i = next++; i < descriptors->size(); i = next++) close((*descriptors)[i]);
  }
  const char* getThreadName() override { return "qlux-release"; }

 private:
  const std::vector<int>* descriptors;
  std::atomic<size_t> next;
};

}  // namespace

RemovedFiles::RemovedFiles() : held(nullptr) {}

RemovedFiles::~RemovedFiles() {
  release();
  delete held;
}

int RemovedFiles::count() const { return held ? static_cast<int>(held->descriptors.size()) : 0; }

void RemovedFiles::hold(int descriptor) {
  if (!held) {
    held = new Held;
    held->limit = heldLimit();
  }
  // The space held never outgrows what is free beside it: files written in
  // its place while it is held find at least as much room.
  struct stat status;
  uint64_t size = fstat(descriptor, &status) == 0 ? static_cast<uint64_t>(status.st_blocks) * 512u : 0;
  struct statfs system;
  uint64_t free = fstatfs(descriptor, &system) == 0
                      ? static_cast<uint64_t>(system.f_bavail) * static_cast<uint64_t>(system.f_bsize)
                      : UINT64_MAX;
  if (held->descriptors.size() >= held->limit || held->bytes + size > free) release();
  held->descriptors.push_back(descriptor);
  held->bytes += size;
}

void RemovedFiles::release() {
  if (!held || held->descriptors.empty()) return;
  std::vector<int> descriptors;
  descriptors.swap(held->descriptors);
  held->bytes = 0;
  CloseJob job(&descriptors);
  size_t threads = std::min(kReleaseThreads, descriptors.size() / kFilesPerThread);
  ThreadManager* manager = threads > 1 ? createThreadManager() : nullptr;
  if (manager) {
    // Ignoring the result on purpose: it is the job's stop code, and
    // nothing stops this job.
    manager->run(static_cast<int>(threads), &job, nullptr, 0);
    deleteThreadManager(manager);
  }
  // What no thread took (all of it without a manager, or when no thread
  // could start) is closed here.
  job.run(nullptr, nullptr, 0, 1);
}

// The kept directories, the most recently used first: the text of a name
// up to its last separator, and the walk's descriptor of that directory. A
// few are kept, since a tree's files come in the order of their names, and
// a directory's own files are often logged around those of its
// subdirectories.
struct FileDeleter::Place {
  struct Kept {
    std::string directory;
    WalkedPath walked;
    dev_t device;
    ino_t inode;
  };
  std::deque<std::unique_ptr<Kept>> kept;
};

namespace {
const size_t kKeptDirectories = 8;
}  // namespace

FileDeleter::FileDeleter(RemovedFiles* removedFiles) : place(nullptr), removed(removedFiles) {}

FileDeleter::~FileDeleter() { delete place; }

int FileDeleter::deleteFile(const char* name) { return removeEntry(name, 0); }

int FileDeleter::removeDirectory(const char* name) { return removeEntry(name, AT_REMOVEDIR); }

int FileDeleter::removeEntry(const char* name, int flags) {
  if (!name) return -1;
  std::string text = systemPath(name).getText();
  size_t cut = text.rfind('/');
  std::string leaf = cut == std::string::npos ? std::string() : text.substr(cut + 1);
  // Only a plain last part is looked up in a kept directory; "", "." and
  // ".." take the whole walk.
  if (leaf.empty() || leaf == "." || leaf == "..")
    return flags ? QUtils::removeDirectory(name) : QUtils::deleteFile(name);
  std::string directory = text.substr(0, cut);
  if (!place) place = new Place;
  auto& kept = place->kept;
  for (size_t i = 0; i < kept.size(); i++) {
    if (kept[i]->directory != directory) continue;
    // The name must still lead to the directory that was walked: one
    // moved away or replaced since is walked again.
    struct stat now;
    if (stat(directory.empty() ? "/" : directory.c_str(), &now) != 0 || now.st_dev != kept[i]->device ||
        now.st_ino != kept[i]->inode) {
      kept.erase(kept.begin() + static_cast<long>(i));
      break;
    }
    if (i > 0) std::rotate(kept.begin(), kept.begin() + static_cast<long>(i), kept.begin() + static_cast<long>(i) + 1);
    return removeAt(kept[0]->walked.directory(), leaf.c_str(), flags);
  }
  std::unique_ptr<Place::Kept> entry(new Place::Kept);
  int error = walkPath(name, 0, &entry->walked);
  if (error != 0) return error;
  int result = removeAt(entry->walked.directory(), entry->walked.leaf(), flags);
  // A walk that ended on another last part than the name's own (an odd
  // name) isn't kept.
  struct stat walked;
  if (leaf == entry->walked.leaf() && fstat(entry->walked.directory(), &walked) == 0) {
    entry->device = walked.st_dev;
    entry->inode = walked.st_ino;
    entry->directory = directory;
    kept.push_front(std::move(entry));
    if (kept.size() > kKeptDirectories) kept.pop_back();
  }
  return result;
}

// Removes `leaf` below `directory`. With `removed`, the file or empty
// directory is opened first (O_PATH: a link itself, never what it leads
// to), so that the open reference keeps it until the release; one that
// can't be opened is removed the plain way.
int FileDeleter::removeAt(int directory, const char* leaf, int flags) {
  int reference = -1;
  if (removed) reference = openat(directory, leaf, O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (unlinkat(directory, leaf, flags) != 0) {
    int error = lastError();
    if (reference >= 0) close(reference);
    return error;
  }
  if (reference >= 0) removed->hold(reference);
  return 0;
}

int renameFile(const char* oldName, const char* newName) {
  if (!oldName || !newName) return -1;
  WalkedPath from, to;
  int error = walkPath(oldName, 0, &from);
  if (error == 0) error = walkPath(newName, 0, &to);
  if (error != 0) return error;
  return renameat(from.directory(), from.leaf(), to.directory(), to.leaf()) == 0 ? 0 : lastError();
}

int replaceFile(const char* source, const char* target) {
  if (!source || !target) return -1;
  WalkedPath from, to;
  int error = walkPath(source, 0, &from);
  // A trusted link at the target stays, and the file it leads to is
  // replaced; anybody else's link is refused.
  if (error == 0) error = walkPath(target, kFollowLastLink, &to);
  if (error != 0) return error;
  struct stat old;
  bool hadFile = fstatat(to.directory(), to.leaf(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (hadFile && S_ISLNK(old.st_mode)) return ELOOP;

  int fd = openat(from.directory(), from.leaf(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return lastError();
  struct stat status;
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(fd);
    return EINVAL;
  }
  if (hadFile && S_ISREG(old.st_mode)) {
    // Ignoring errors on purpose: a file that can't take the old owner
    // (the process isn't root) keeps this user's, which wrote it.
    if (geteuid() == 0 && (old.st_uid != status.st_uid || old.st_gid != status.st_gid))
      (void)fchown(fd, old.st_uid, old.st_gid);
    fchmod(fd, old.st_mode & 0777);
  }
  // The data is on the disk before the name is, so that a crash leaves
  // either the old file or the whole new one.
  fsync(fd);
  close(fd);
  return renameat(from.directory(), from.leaf(), to.directory(), to.leaf()) == 0 ? 0 : lastError();
}

int copyFile(const char* from, const char* to) {
  if (!from || !to) return -1;
  int in = -1;
  int error = openFileSafely(from, kOpenExisting, O_RDONLY, 0, &in);
  if (error != 0) return error;
  struct stat status;
  if (fstat(in, &status) != 0) {
    error = lastError();
    close(in);
    return error;
  }
  int out = -1;
  error = openFileSafely(to, kMakeNew, O_WRONLY, status.st_mode & 0777, &out);
  if (error != 0) {
    close(in);
    return error;
  }
  char buffer[65536];
  for (;;) {
    ssize_t n = read(in, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n < 0) error = lastError();
      break;
    }
    for (ssize_t done = 0; done < n && error == 0;) {
      ssize_t w = write(out, buffer + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w < 0) error = lastError();
      else done += w;
    }
    if (error != 0) break;
  }
  // A copy made by a user other than the file's owner keeps the source's
  // bits all the same (kMakeNew may have kept an older file's).
  if (fchmod(out, status.st_mode & 0777) != 0 && error == 0) error = lastError();
  if (close(out) != 0 && error == 0) error = lastError();
  close(in);
  return error;
}

int removeDirectory(const char* name) {
  if (!name) return -1;
  WalkedPath where;
  int error = walkPath(name, 0, &where);
  if (error != 0) return error;
  return unlinkat(where.directory(), where.leaf(), AT_REMOVEDIR) == 0 ? 0 : lastError();
}

bool fileExists(const char* name) {
  struct stat status;
  return name && lstat(systemPath(name).getText(), &status) == 0;
}

bool isDirectory(const char* name) {
  struct stat status;
  return name && stat(systemPath(name).getText(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isLink(const char* name) {
  struct stat status;
  return name && lstat(bareName(name).getText(), &status) == 0 && S_ISLNK(status.st_mode);
}

int setFileMode(const char* path, int mode) {
  if (!path || !path[0]) return EINVAL;
  WalkedPath where;
  int error = walkPath(path, 0, &where);
  if (error != 0) return error;
  int fd = openat(where.directory(), where.leaf(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat status;
  error = fstat(fd, &status) != 0 ? errno : !S_ISREG(status.st_mode) ? EINVAL : 0;
  if (error == 0 && fchmod(fd, static_cast<mode_t>(mode) & 0777) != 0) error = errno;
  close(fd);
  return error;
}

int getFileMode(const char* path) {
  if (!path || !path[0]) return -1;
  WalkedPath where;
  struct stat status;
  if (walkPath(path, 0, &where) != 0 || fstatat(where.directory(), where.leaf(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode))
    return -1;
  return static_cast<int>(status.st_mode & 0777);
}

int setExecutable(const char* path) { return setFileMode(path, 0755); }

bool isExecutable(const char* path) {
  if (!path || !path[0]) return false;
  struct stat info;
  return stat(systemPath(path).getText(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & S_IXUSR) != 0;
}

bool makeDirectory(const char* name) {
  if (!name) return false;
  WalkedPath where;
  if (walkPath(name, 0, &where) != 0) return false;
  if (mkdirat(where.directory(), where.leaf(), 0755) != 0) return errno == EEXIST && isDirectory(name);
  // The umask may have taken bits away.
  int fd = openat(where.directory(), where.leaf(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0) {
    (void)fchmod(fd, 0755);  // ignoring errors on purpose: the directory works for its maker
    close(fd);
  }
  return true;
}

bool makePrivateDirectory(const char* name) {
  if (!name || !name[0]) return false;
  CharString path = bareName(name);
  std::string parent = path.getText();
  parent += '/';
  if (createPath(parent.c_str(), nullptr) != 0) return false;
  WalkedPath where;
  if (walkPath(path.getText(), 0, &where) != 0) return false;
  if (mkdirat(where.directory(), where.leaf(), 0700) != 0 && errno != EEXIST) return false;
  int fd = openat(where.directory(), where.leaf(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat status;
  bool ok = fstat(fd, &status) == 0 && status.st_uid == geteuid() && fchmod(fd, 0700) == 0;
  close(fd);
  return ok;
}

bool isPlainDirectory(const char* name) {
  if (!name) return false;
  CharString path = bareName(name);
  struct stat status;
  return lstat(path.getText(), &status) == 0 && S_ISDIR(status.st_mode) && access(path.getText(), W_OK) == 0;
}

bool deleteTree(const char* path) {
  if (!path) return false;
  WalkedPath where;
  if (walkPath(path, 0, &where) != 0) return false;
  struct stat status;
  if (fstatat(where.directory(), where.leaf(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return removeTreeAt(where.directory(), where.leaf(), status.st_dev);
}

int makeSymbolicLink(const char* target, const char* path) {
  if (!target || !path) return -1;
  WalkedPath where;
  int error = walkPath(path, 0, &where);
  if (error != 0) return error;
  return symlinkat(systemPath(target).getText(), where.directory(), where.leaf()) == 0 ? 0 : lastError();
}

bool readSymbolicLink(const char* path, char* out, int size) {
  if (!path || !out || size < 1) return false;
  out[0] = 0;
  WalkedPath where;
  if (walkPath(path, 0, &where) != 0) return false;
  ssize_t length = readlinkat(where.directory(), where.leaf(), out, static_cast<size_t>(size - 1));
  if (length < 0 || length >= size - 1) {
    out[0] = 0;
    return false;
  }
  out[length] = 0;
  return true;
}

namespace {

FileTrust trustOf(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return kNotAFile;
  if (status.st_uid != geteuid()) return kFileOfAnotherUser;
  if (status.st_mode & (S_IWGRP | S_IWOTH)) return kFileWritableByOthers;
  return kTrustedFile;
}

}  // namespace

FileTrust checkFileTrust(const char* path) {
  if (!path || !path[0]) return kFileMissing;
  WalkedPath where;
  int error = walkPath(path, kFollowLastLink, &where);
  // A missing directory on the way, or a file where one should be, leaves
  // no place for the name; a link that isn't followed stands in the way.
  if (error != 0) return error == ENOENT || error == ENOTDIR ? kFileMissing : kNotAFile;
  struct stat status;
  if (fstatat(where.directory(), where.leaf(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? kFileMissing : kNotAFile;
  return trustOf(status);
}

FileTrust checkFileTrust(FILE* file) {
  struct stat status;
  if (!file || fstat(fileno(file), &status) != 0) return kFileMissing;
  return trustOf(status);
}

FileTrust checkDescriptorTrust(int fd) {
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) return kFileMissing;
  return trustOf(status);
}

bool FileList::search(const char* pattern) {
  if (!pattern) return false;
  int directoryLength = directoryPartLength(pattern);
  const char* wildcard = pattern + directoryLength;
  if (directoryLength >= kMaxPath) return false;
  char directoryName[kMaxPath];
  if (directoryLength > 0) {
    copyText(directoryName, pattern, directoryLength + 1);
    for (char* p = directoryName; *p; p++)
      if (*p == '\\') *p = '/';
  } else {
    copyText(directoryName, ".", sizeof directoryName);
  }

  DIR* directory = opendir(directoryName);
  if (!directory) return false;
  FileList found;
  bool matched = false;
  while (struct dirent* entry = readdir(directory)) {
    if (!matchWildcard(wildcard, entry->d_name)) continue;
    matched = true;
    if (!isDotEntry(entry->d_name)) found.add(pattern, directoryLength, entry->d_name);
  }
  closedir(directory);
  if (!matched) return false;
  swap(found);
  return true;
}

bool getModulePath(char* out, int size) {
  if (!out || size < 2) return false;
  ssize_t length = readlink("/proc/self/exe", out, static_cast<size_t>(size - 1));
  if (length <= 0 || length >= size - 1) {
    out[0] = 0;
    return false;
  }
  out[length] = 0;
  return true;
}

namespace {

// `path` as a folder of the program with its last '/', with "." levels
// dropped and each ".." taking the level before it (the working directory
// that a relative name starts from has no links in it, so that is the
// folder the name leads to). False if it doesn't fit.
bool folderOf(const std::string& path, char* out, int size) {
  std::vector<std::string> levels;
  size_t start = 0;
  while (start < path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string level = path.substr(start, end - start);
    if (level == "..") {
      if (!levels.empty()) levels.pop_back();
    } else if (!level.empty() && level != ".") {
      levels.push_back(level);
    }
    start = end + 1;
  }
  if (!levels.empty()) levels.pop_back();  // the program's own name
  std::string folder = "/";
  for (const std::string& level : levels) folder += level + "/";
  if (static_cast<int>(folder.size()) >= size) return false;
  copyText(out, folder.c_str(), size);
  return true;
}

}  // namespace

bool findOnPath(const char* name, char* out, int size) {
  const char* list = std::getenv("PATH");
  if (!name || !*name || !list || !out || size < 1) return false;
  for (const char* p = list;;) {
    const char* end = std::strchr(p, ':');
    std::string folder(p, end ? static_cast<size_t>(end - p) : std::strlen(p));
    if (!folder.empty()) {
      std::string candidate = folder + "/" + name;
      struct stat status;
      if (stat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(candidate.c_str(), X_OK) == 0 &&
          static_cast<int>(candidate.size()) < size) {
        copyText(out, candidate.c_str(), size);
        return true;
      }
    }
    if (!end) return false;
    p = end + 1;
  }
}

bool getLaunchDirectory(char* out, int size) {
  if (!out || size < 2) return false;
  const char* started = getProgramPath();
  std::string path;
  if (std::strchr(started, '/')) {
    path = started;
  } else if (started[0]) {
    char found[kMaxPath];
    if (findOnPath(started, found, sizeof found)) path = found;
  }
  if (!path.empty() && path[0] != '/') {
    // No part of the program changes its working directory, so it is still
    // the one the name was given in.
    char here[PATH_MAX];
    if (!getcwd(here, sizeof here)) path.clear();
    else path = std::string(here) + "/" + path;
  }
  if (!path.empty() && folderOf(path, out, size)) return true;
  return getModuleDirectory(out, size);
}

bool getTempDirectory(char* out, int size) {
  if (!out || size < 1) return false;
  const char* directory = std::getenv("TMPDIR");
  if (!directory || !*directory) directory = "/tmp";
  copyText(out, directory, size);
  stripTrailingSeparators(out, size);
  return true;
}

bool getProcessEnvironment(const char* name, CharString* out) {
  const char* value = name && *name ? std::getenv(name) : nullptr;
  out->assign(value);  // an empty value gives an empty text, not a null one
  return value != nullptr;
}

namespace {

// This run's directory once made; empty before.
char runDirectory[kMaxPath];

// The temporary directory as the system names it, with one '/' behind.
std::string temporaryPrefix() {
  char temporary[kMaxPath];
  getTempDirectory(temporary, sizeof temporary);
  std::string prefix = systemPath(temporary).getText();
  if (prefix.empty() || prefix.back() != '/') prefix += '/';
  return prefix;
}

}  // namespace

bool getRunDirectory(char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  if (!runDirectory[0]) {
    std::string pattern = temporaryPrefix() + kRunDirectoryPrefix + "XXXXXX";
    if (pattern.size() >= sizeof runDirectory) return false;
    char made[kMaxPath];
    copyText(made, pattern.c_str(), sizeof made);
    // mkdtemp makes the directory exclusively, mode 0700.
    if (!mkdtemp(made)) return false;
    copyText(runDirectory, made, sizeof runDirectory);
  }
  copyText(out, runDirectory, size);
  return static_cast<int>(std::strlen(runDirectory)) < size;
}

bool isRunDirectory(const char* path) {
  if (!path || !path[0]) return false;
  std::string name = bareName(path).getText();
  std::string prefix = temporaryPrefix();
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return false;
  std::string leaf = name.substr(prefix.size());
  if (leaf.compare(0, std::strlen(kRunDirectoryPrefix), kRunDirectoryPrefix) != 0 || leaf.find('/') != std::string::npos ||
      leaf == "." || leaf == "..")
    return false;
  struct stat status;
  return lstat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & 077) == 0;
}

bool adoptRunDirectory(const char* path) {
  if (!isRunDirectory(path)) return false;
  copyText(runDirectory, bareName(path).getText(), sizeof runDirectory);
  return true;
}

void removeRunDirectory() {
  if (!runDirectory[0]) return;
  // Ignoring the result on purpose: what can't go stays in a directory
  // that only this user may enter.
  (void)deleteTree(runDirectory);
  runDirectory[0] = 0;
}

void listSystemDirectories(Table<CharString>* out) {
  static const char* const kDirectories[] = {
      "/bin",           "/boot",         "/dev",          "/etc",           "/home",          "/lib",
      "/lib32",         "/lib64",        "/libx32",       "/media",         "/mnt",           "/opt",
      "/proc",          "/root",         "/run",          "/sbin",          "/srv",           "/sys",
      "/tmp",           "/usr",          "/usr/bin",      "/usr/sbin",      "/usr/lib",       "/usr/lib32",
      "/usr/lib64",     "/usr/libexec",  "/usr/include",  "/usr/share",     "/usr/share/doc", "/usr/share/applications",
      "/usr/local",     "/usr/local/bin", "/usr/local/sbin", "/usr/local/lib", "/usr/local/share", "/usr/src",
      "/var",           "/var/lib",      "/var/log",      "/var/tmp",       "/var/cache",     "/var/opt",
      "/etc/xdg",       "/etc/systemd",  "/etc/opt"};
  for (const char* directory : kDirectories) out->add(CharString(directory));
  // The temporary directory and the user's home are the user's own.
  char temporary[kMaxPath];
  if (getTempDirectory(temporary, sizeof temporary)) out->add(CharString(systemPath(temporary).getText()));
  const char* home = std::getenv("HOME");
  if (home && home[0]) {
    char clean[kMaxPath];
    copyText(clean, home, sizeof clean);
    stripTrailingSeparators(clean, sizeof clean);
    out->add(CharString(clean));
  }
}

bool getConsoleSize(int* outColumns, int* outRows) {
  struct winsize size;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return false;
  if (outColumns) *outColumns = size.ws_col;
  if (outRows) *outRows = size.ws_row;
  return true;
}

void debugPrint(const char* format, ...) {
  if (!format || !std::getenv("QLUX_DEBUG_PRINT")) return;
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::fputs(text, stderr);
}

}  // namespace QUtils
