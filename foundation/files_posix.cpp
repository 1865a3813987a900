// The file layer's system calls on POSIX. Every name goes through
// systemPath, so '\' arrives as '/'.
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"

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

FILE* openFile(const char* name, const char* mode) {
  if (!name || !mode) return nullptr;
  // The C library has no text mode here: "t" goes, and "e" keeps the
  // stream out of programs that the installer starts.
  char systemMode[16];
  int length = 0;
  for (const char* p = mode; *p && length < 12; p++)
    if (*p != 't') systemMode[length++] = *p;
  systemMode[length++] = 'e';
  systemMode[length] = 0;
  return std::fopen(systemPath(name).getText(), systemMode);
}

int deleteFile(const char* name) {
  if (!name) return -1;
  return unlink(systemPath(name).getText()) == 0 ? 0 : lastError();
}

int renameFile(const char* oldName, const char* newName) {
  if (!oldName || !newName) return -1;
  return std::rename(systemPath(oldName).getText(), systemPath(newName).getText()) == 0 ? 0 : lastError();
}

int replaceFile(const char* source, const char* target) {
  if (!source || !target) return -1;
  CharString from = systemPath(source);
  CharString to = systemPath(target);

  // The data is on the disk before the name is, so that a crash leaves
  // either the old file or the whole new one.
  int fd = open(from.getText(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return lastError();
  fsync(fd);
  close(fd);

  const char* destination = to.getText();
  char resolved[PATH_MAX];
  struct stat status;
  if (lstat(destination, &status) == 0) {
    if (S_ISLNK(status.st_mode) && realpath(destination, resolved) && stat(resolved, &status) == 0)
      destination = resolved;
    if (!S_ISLNK(status.st_mode)) chmod(from.getText(), status.st_mode & 07777);
  }
  return std::rename(from.getText(), destination) == 0 ? 0 : lastError();
}

int removeDirectory(const char* name) {
  if (!name) return -1;
  return rmdir(systemPath(name).getText()) == 0 ? 0 : lastError();
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

int setExecutable(const char* path) {
  if (!path || !path[0]) return EINVAL;
  return chmod(systemPath(path).getText(), 0755) == 0 ? 0 : errno;
}

bool isExecutable(const char* path) {
  if (!path || !path[0]) return false;
  struct stat info;
  return stat(systemPath(path).getText(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & S_IXUSR) != 0;
}

bool makeDirectory(const char* name) {
  if (!name) return false;
  if (mkdir(systemPath(name).getText(), 0777) == 0) return true;
  return errno == EEXIST && isDirectory(name);
}

bool isPlainDirectory(const char* name) {
  if (!name) return false;
  CharString path = bareName(name);
  struct stat status;
  return lstat(path.getText(), &status) == 0 && S_ISDIR(status.st_mode) && access(path.getText(), W_OK) == 0;
}

bool isBareDirectory(const char* path, const char* child) {
  if (!path || !isPlainDirectory(path)) return false;
  CharString self = bareName(path);
  CharString parent = self;
  parent.append("/..");
  if (!isPlainDirectory(parent.getText())) return false;
  // The top of a mounted file system, or "/", whose ".." is itself.
  struct stat selfStatus, parentStatus;
  if (stat(self.getText(), &selfStatus) != 0 || stat(parent.getText(), &parentStatus) != 0) return false;
  if (selfStatus.st_dev != parentStatus.st_dev || selfStatus.st_ino == parentStatus.st_ino) return false;

  DIR* directory = opendir(self.getText());
  if (!directory) return false;
  bool bare = true;
  while (struct dirent* entry = readdir(directory)) {
    if (isDotEntry(entry->d_name)) continue;
    if (child && std::strcmp(entry->d_name, child) == 0) {
      CharString childPath = self;
      childPath.append("/");
      childPath.append(child);
      if (isPlainDirectory(childPath.getText())) continue;
    }
    bare = false;
    break;
  }
  closedir(directory);
  return bare;
}

bool deleteTree(const char* path) {
  if (!path) return false;
  CharString name = bareName(path);
  struct stat status;
  if (lstat(name.getText(), &status) != 0) return false;
  return removeTreeAt(AT_FDCWD, name.getText(), status.st_dev);
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
