// The parts of the file layer that need no system call of their own: the
// wildcard rule, the file list's storage, and the tree walks, which stand
// on the primitives of files_posix.cpp and files_windows.cpp.
#include "foundation/files.h"

#include <cstdlib>
#include <cstring>

#include "foundation/text.h"

namespace QUtils {

namespace {

char programPath[kMaxPath];

// Makes every separator the system's own.
void useSystemSeparators(char* text) {
  for (; *text; text++)
    if (isSeparator(*text)) *text = kPathSeparator;
}

// `directory`, one separator, `name`, in system separators. False if it
// didn't fit.
bool joinPath(char* out, int size, const char* directory, const char* name) {
  copyText(out, directory, size);
  int length = static_cast<int>(std::strlen(out));
  if (length > 0 && !isSeparator(out[length - 1])) {
    char separator[2] = {kPathSeparator, 0};
    appendText(out, separator, size);
  }
  int needed = static_cast<int>(std::strlen(out) + std::strlen(name));
  appendText(out, name, size);
  useSystemSeparators(out);
  return needed < size;
}

// The characters of `path` that createPath takes as its root.
int rootLength(const char* path) {
#ifdef _WIN32
  int length = static_cast<int>(std::strlen(path));
  if (length >= 2 && isSeparator(path[0]) && isSeparator(path[1])) {
    // \\server\share\ : the server and the share can't be made.
    int separators = 0;
    for (int i = 2; i < length; i++)
      if (isSeparator(path[i]) && ++separators == 2) return i + 1;
    return length;
  }
  return 3;
#else
  (void)path;
  return 1;
#endif
}

// Steps over one whole UTF-8 character, so that '?' stands for a character
// and not for a byte of one.
const char* nextCharacter(const char* text) {
  text++;
  while ((static_cast<unsigned char>(*text) & 0xC0) == 0x80) text++;
  return text;
}

// Matches the first `length` bytes of `pattern` against all of `name`:
// '*' takes any run, backtracking to the latest star on a mismatch.
bool matchRange(const char* pattern, size_t length, const char* name) {
  const char* p = pattern;
  const char* end = pattern + length;
  const char* star = nullptr;
  const char* resume = nullptr;
  while (*name) {
    if (p < end && *p == '*') {
      star = ++p;
      resume = name;
    } else if (p < end && *p == '?') {
      p++;
      name = nextCharacter(name);
    } else if (p < end && *p == *name) {
      p++;
      name++;
    } else if (star) {
      p = star;
      resume = nextCharacter(resume);
      name = resume;
    } else {
      return false;
    }
  }
  while (p < end && *p == '*') p++;
  return p == end;
}

}  // namespace

bool matchWildcard(const char* pattern, const char* name) {
  if (!pattern || !name) return false;
  size_t length = std::strlen(pattern);
  if (matchRange(pattern, length, name)) return true;
  // "name.*" also takes "name", and "*.*" every name, as on Windows.
  if (length >= 2 && pattern[length - 2] == '.' && pattern[length - 1] == '*' && !std::strchr(name, '.'))
    return matchRange(pattern, length - 2, name);
  return false;
}

// FileList storage.

FileList::FileList() : names(nullptr), count(0), capacity(0), position(0) {}

FileList::~FileList() { clear(); }

void FileList::clear() {
  for (int i = 0; i < count; i++) std::free(names[i]);
  std::free(names);
  names = nullptr;
  count = capacity = position = 0;
}

const char* FileList::getName(int index) const {
  if (index < 0 || index >= count) return nullptr;
  return names[index];
}

const char* FileList::next() {
  if (position >= count) return nullptr;
  return names[position++];
}

int FileList::directoryPartLength(const char* pattern) {
  int length = 0;
  for (int i = 0; pattern[i]; i++)
    if (isSeparator(pattern[i])) length = i + 1;
  return length;
}

void FileList::add(const char* pattern, int directoryLength, const char* name) {
  if (count >= capacity) {
    int grown = capacity + 100;
    char** block = static_cast<char**>(std::realloc(names, sizeof(char*) * static_cast<size_t>(grown)));
    if (!block) return;
    names = block;
    capacity = grown;
  }
  size_t nameLength = std::strlen(name);
  char* entry = static_cast<char*>(std::malloc(static_cast<size_t>(directoryLength) + nameLength + 1));
  if (!entry) return;
  std::memcpy(entry, pattern, static_cast<size_t>(directoryLength));
  std::memcpy(entry + directoryLength, name, nameLength + 1);
  names[count++] = entry;
}

void FileList::swap(FileList& other) {
  char** otherNames = other.names;
  int otherCount = other.count;
  int otherCapacity = other.capacity;
  other.names = names;
  other.count = count;
  other.capacity = capacity;
  other.position = 0;
  names = otherNames;
  count = otherCount;
  capacity = otherCapacity;
  position = 0;
}

// Trees.

int createPath(const char* path, int* outCreated) {
  if (outCreated) *outCreated = 0;
  if (!path) return -1;
  char buffer[kMaxPath];
  copyText(buffer, path, sizeof buffer);
  useSystemSeparators(buffer);
  int length = static_cast<int>(std::strlen(buffer));
  int created = 0;
  int result = 0;
  for (int i = rootLength(buffer); i < length; i++) {
    if (buffer[i] != kPathSeparator) continue;
    buffer[i] = 0;
    if (!isDirectory(buffer)) {
      if (!makeDirectory(buffer)) {
        result = -1;
        break;
      }
      created++;
    }
    buffer[i] = kPathSeparator;
  }
  if (outCreated) *outCreated = created;
  return result;
}

int deleteMatching(const char* directory, const char* pattern, bool removeIfEmpty) {
  if (!directory || !pattern) return -1;
  char search[kMaxPath];
  if (!joinPath(search, sizeof search, directory, "*")) return -1;
  FileList entries;
  if (!entries.search(search)) return -1;

  int handled = 0;
  // Subdirectories first, so that one emptied there can go with its parent.
  // Links are never entered: what they lead to isn't part of this tree.
  while (const char* name = entries.next()) {
    if (isDirectory(name) && !isLink(name)) {
      int result = deleteMatching(name, pattern, removeIfEmpty);
      if (result > 0) handled += result;
    }
  }

  if (joinPath(search, sizeof search, directory, pattern)) {
    FileList matches;
    if (matches.search(search)) {
      // Counted whether the deletion worked or not: a match that is a
      // directory can't go this way, and is counted all the same.
      while (const char* name = matches.next()) {
        deleteFile(name);
        handled++;
      }
    }
  }

  if (removeIfEmpty) {
    joinPath(search, sizeof search, directory, "*");
    if (entries.search(search) && entries.isEmpty()) removeDirectory(directory);
  }
  return handled;
}

int removeEmptyParents(const char* path, const char* keep, FileDeleter* deleter) {
  if (!path) return 0;
  char current[kMaxPath];
  copyText(current, path, sizeof current);
  useSystemSeparators(current);
  stripTrailingSeparators(current, sizeof current);
  if (!current[0]) return 0;
  char kept[kMaxPath];
  kept[0] = 0;
  if (keep) {
    copyText(kept, keep, sizeof kept);
    useSystemSeparators(kept);
    stripTrailingSeparators(kept, sizeof kept);
  }

  // Each level goes with the system's own call for an empty directory,
  // which removes nothing that holds an entry, however the level was
  // judged: one call a level, and no scan of what a parent holds.
  int levels = 0;
  for (;;) {
#ifdef _WIN32
    if (kept[0] && compareNoCase(current, kept) == 0) break;
#else
    if (kept[0] && std::strcmp(current, kept) == 0) break;
#endif
    if (isSystemDirectory(current) || !isPlainDirectory(current)) break;
    if ((deleter ? deleter->removeDirectory(current) : removeDirectory(current)) != 0) break;
    levels++;
    char* separator = std::strrchr(current, kPathSeparator);
    if (!separator) break;
    *separator = 0;
    // No separator left: what remains is a root ("C:", or "" for "/"), or a
    // relative name that nothing here may judge.
    if (!std::strchr(current, kPathSeparator)) break;
  }
  return levels;
}

bool isSystemDirectory(const char* path) {
  if (!path || !path[0]) return false;
  if (isRootPath(path)) return true;
  char clean[kMaxPath];
  copyText(clean, path, sizeof clean);
  useSystemSeparators(clean);
  collapseSeparators(clean);
  stripTrailingSeparators(clean, sizeof clean);
  if (!clean[0] || isRootPath(clean)) return true;
  QUtils::Table<CharString> directories(64);
  listSystemDirectories(&directories);
  for (int i = 0; i < directories.getCount(); i++) {
    const char* directory = directories[i].getText();
    if (!directory) continue;
#ifdef _WIN32
    if (compareNoCase(directory, clean) == 0) return true;
#else
    if (std::strcmp(directory, clean) == 0) return true;
#endif
  }
  return false;
}

const char* describeFileTrust(FileTrust trust) {
  switch (trust) {
    case kTrustedFile:
      return "can be trusted";
    case kFileMissing:
      return "is missing";
    case kNotAFile:
      return "is no regular file";
    case kFileOfAnotherUser:
      return "belongs to another user";
    case kFileWritableByOthers:
      return "can be changed by other users";
  }
  return "can't be checked";
}

// Places.

bool getModuleDirectory(char* out, int size) {
  if (!out || size < 1) return false;
  if (!getModulePath(out, size)) return false;
  int cut = 0;
  for (int i = 0; out[i]; i++)
    if (isSeparator(out[i])) cut = i + 1;
  out[cut] = 0;
  return cut > 0;
}

void setProgramPath(const char* path) { copyText(programPath, path ? path : "", sizeof programPath); }

const char* getProgramPath() { return programPath; }

}  // namespace QUtils
