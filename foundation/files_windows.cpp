// The file layer's system calls on Windows: names are converted to wide
// text at each call and go to the W functions.
#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "foundation/convert.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace QUtils {

namespace {

int lastError() {
  DWORD error = GetLastError();
  return error ? static_cast<int>(error) : -1;
}

bool isPlainAttributes(DWORD attributes) {
  const DWORD excluded =
      FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_DEVICE;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & excluded);
}

DWORD attributesOf(const char* name) {
  if (!name) return INVALID_FILE_ATTRIBUTES;
  TextConverter wide(name);
  return GetFileAttributesW(wide.wide());
}

bool isDotEntry(const char* name) { return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2])); }

}  // namespace

FILE* openFile(const char* name, const char* mode, int) {
  if (!name || !mode) return nullptr;
  TextConverter wideName(name);
  TextConverter wideMode(mode);
  return _wfopen(wideName.wide(), wideMode.wide());
}

int deleteFile(const char* name) {
  if (!name) return -1;
  TextConverter wide(name);
  return DeleteFileW(wide.wide()) ? 0 : lastError();
}

// Windows frees a file's space with its name: nothing is held.
struct RemovedFiles::Held {};

RemovedFiles::RemovedFiles() : held(nullptr) {}

RemovedFiles::~RemovedFiles() { delete held; }

void RemovedFiles::release() {}

int RemovedFiles::count() const { return 0; }

void RemovedFiles::hold(int) {}

// Windows deletes by name in one call already: nothing is kept.
struct FileDeleter::Place {};

FileDeleter::FileDeleter(RemovedFiles* removedFiles) : place(nullptr), removed(removedFiles) {}

FileDeleter::~FileDeleter() { delete place; }

int FileDeleter::deleteFile(const char* name) { return QUtils::deleteFile(name); }

int FileDeleter::removeDirectory(const char* name) { return QUtils::removeDirectory(name); }

int FileDeleter::removeEntry(const char* name, int flags) {
  return flags ? QUtils::removeDirectory(name) : QUtils::deleteFile(name);
}

int renameFile(const char* oldName, const char* newName) {
  if (!oldName || !newName) return -1;
  TextConverter from(oldName);
  TextConverter to(newName);
  return MoveFileW(from.wide(), to.wide()) ? 0 : lastError();
}

int replaceFile(const char* source, const char* target) {
  if (!source || !target) return -1;
  TextConverter from(source);
  TextConverter to(target);
  // The data is on the disk before the name is, so that a crash leaves
  // either the old file or the whole new one.
  HANDLE file = CreateFileW(from.wide(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return lastError();
  FlushFileBuffers(file);
  CloseHandle(file);
  return MoveFileExW(from.wide(), to.wide(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ? 0 : lastError();
}

int copyFile(const char* from, const char* to) {
  if (!from || !to) return -1;
  TextConverter source(from);
  TextConverter target(to);
  return CopyFileW(source.wide(), target.wide(), FALSE) ? 0 : lastError();
}

int removeDirectory(const char* name) {
  if (!name) return -1;
  TextConverter wide(name);
  return RemoveDirectoryW(wide.wide()) ? 0 : lastError();
}

bool fileExists(const char* name) { return attributesOf(name) != INVALID_FILE_ATTRIBUTES; }

bool isDirectory(const char* name) {
  DWORD attributes = attributesOf(name);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool isLink(const char* name) {
  DWORD attributes = attributesOf(name);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

// Whether a file runs follows from its name on Windows, and who may read
// it from the access list of its folder.
int setFileMode(const char*, int) { return 0; }

int getFileMode(const char*) { return -1; }

int setExecutable(const char*) { return 0; }

bool isExecutable(const char*) { return false; }

bool makeDirectory(const char* name) {
  if (!name) return false;
  TextConverter wide(name);
  if (CreateDirectoryW(wide.wide(), nullptr)) return true;
  return GetLastError() == ERROR_ALREADY_EXISTS && isDirectory(name);
}

bool makePrivateDirectory(const char* name) {
  if (!name || !name[0]) return false;
  char parent[kMaxPath];
  copyText(parent, name, sizeof parent);
  stripTrailingSeparators(parent, sizeof parent);
  appendText(parent, "\\", sizeof parent);
  return createPath(parent, nullptr) == 0;
}

bool isPlainDirectory(const char* name) {
  DWORD attributes = attributesOf(name);
  return attributes != INVALID_FILE_ATTRIBUTES && isPlainAttributes(attributes);
}

bool deleteTree(const char* path) {
  if (!path || !*path) return false;
  // The shell wants backslashes and a list that ends in two NULs.
  TextConverter converter(path);
  int units = converter.wideLength();  // with its NUL
  WideChar* list = new WideChar[units + 1];
  std::memcpy(list, converter.wide(), sizeof(WideChar) * static_cast<size_t>(units));
  list[units] = 0;
  for (int i = 0; i < units; i++)
    if (list[i] == L'/') list[i] = L'\\';
  SHFILEOPSTRUCTW operation;
  std::memset(&operation, 0, sizeof operation);
  operation.wFunc = FO_DELETE;
  operation.pFrom = list;
  // No confirmation, no progress, no error box, no new-directory question.
  operation.fFlags = 0x215;
  int result = SHFileOperationW(&operation);
  bool aborted = operation.fAnyOperationsAborted;
  delete[] list;
  return result == 0 && !aborted && !fileExists(path);
}

int makeSymbolicLink(const char*, const char*) { return -1; }

bool readSymbolicLink(const char*, char* out, int size) {
  if (out && size > 0) out[0] = 0;
  return false;
}

FileTrust checkFileTrust(const char* path) {
  DWORD attributes = attributesOf(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return kFileMissing;
  if (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE)) return kNotAFile;
  return kTrustedFile;
}

FileTrust checkFileTrust(FILE* file) { return file ? kTrustedFile : kFileMissing; }

bool FileList::search(const char* pattern) {
  if (!pattern) return false;
  TextConverter widePattern(pattern);
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW(widePattern.wide(), &entry);
  if (search == INVALID_HANDLE_VALUE) return false;
  int directoryLength = directoryPartLength(pattern);
  FileList found;
  do {
    char name[MAX_PATH * 3 + 1];
    wideToUtf8(entry.cFileName, name, sizeof name);
    if (!isDotEntry(name)) found.add(pattern, directoryLength, name);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  swap(found);
  return true;
}

bool getModulePath(char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  const DWORD capacity = 32768;
  WideChar* path = new WideChar[capacity];
  DWORD length = GetModuleFileNameW(nullptr, path, capacity);
  bool fits = length > 0 && length < capacity && wideToUtf8(path, nullptr, 0) < size;
  if (fits) wideToUtf8(path, out, size);
  delete[] path;
  return fits;
}

bool getLaunchDirectory(char* out, int size) {
  // The module's path is the path that was started, links included.
  return getModuleDirectory(out, size);
}

bool getTempDirectory(char* out, int size) {
  if (!out || size < 1) return false;
  WideChar path[MAX_PATH + 2];
  DWORD length = GetTempPathW(MAX_PATH + 2, path);
  if (length == 0 || length > MAX_PATH + 1)
    copyText(out, "C:", size);
  else
    wideToUtf8(path, out, size);
  stripTrailingSeparators(out, size);
  return true;
}

bool getProcessEnvironment(const char* name, CharString* out) {
  out->assign(nullptr);
  if (!name || !*name) return false;
  TextConverter wideName(name);
  // The value may change between the two calls (another thread): ask again
  // until it fits.
  DWORD capacity = GetEnvironmentVariableW(wideName.wide(), nullptr, 0);
  while (capacity > 0) {
    WideChar* value = new WideChar[capacity];
    DWORD length = GetEnvironmentVariableW(wideName.wide(), value, capacity);
    if (length < capacity) {
      value[length] = 0;
      TextConverter converter(value);
      out->assign(converter.narrow());
      delete[] value;
      return true;
    }
    delete[] value;
    capacity = length;
  }
  // 0 is both "not set" and "set to the empty text".
  if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) return false;
  out->assign("");
  return true;
}

namespace {

// This run's directory once made; empty before.
char runDirectory[kMaxPath];

}  // namespace

bool getRunDirectory(char* out, int size) {
  if (!out || size < 1) return false;
  out[0] = 0;
  if (!runDirectory[0]) {
    char temporary[kMaxPath];
    getTempDirectory(temporary, sizeof temporary);
    // CreateDirectoryW fails where anything has the name already, so the
    // directory is this run's own; the name only needs to be unlikely.
    static unsigned counter = 0;
    for (int attempt = 0; attempt < 100 && !runDirectory[0]; attempt++) {
      char name[kMaxPath];
      boundedFormat(name, sizeof name, "%s\\%s%06lX", temporary, kRunDirectoryPrefix,
                    (GetCurrentProcessId() * 7919ul + GetTickCount() + ++counter * 104729ul) & 0xFFFFFFul);
      TextConverter wide(name);
      if (CreateDirectoryW(wide.wide(), nullptr)) copyText(runDirectory, name, sizeof runDirectory);
      else if (GetLastError() != ERROR_ALREADY_EXISTS) return false;
    }
    if (!runDirectory[0]) return false;
  }
  copyText(out, runDirectory, size);
  return static_cast<int>(std::strlen(runDirectory)) < size;
}

bool isRunDirectory(const char* name) {
  if (!name || !name[0]) return false;
  char path[kMaxPath];
  copyText(path, name, sizeof path);
  normalizeSeparators(path, '\\');
  stripTrailingSeparators(path, sizeof path);
  char temporary[kMaxPath];
  getTempDirectory(temporary, sizeof temporary);
  normalizeSeparators(temporary, '\\');
  size_t length = std::strlen(temporary);
  if (compareNoCase(path, temporary, length) != 0 || !isSeparator(path[length])) return false;
  const char* leaf = path + length + 1;
  if (compareNoCase(leaf, kRunDirectoryPrefix, std::strlen(kRunDirectoryPrefix)) != 0) return false;
  for (const char* p = leaf; *p; p++)
    if (isSeparator(*p) && p[1]) return false;
  DWORD attributes = attributesOf(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
         !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

bool adoptRunDirectory(const char* path) {
  if (!isRunDirectory(path)) return false;
  copyText(runDirectory, path, sizeof runDirectory);
  stripTrailingSeparators(runDirectory, sizeof runDirectory);
  return true;
}

void removeRunDirectory() {
  if (!runDirectory[0]) return;
  // Ignoring the result on purpose: a program that still runs from the
  // directory (an uninstaller's second stage) keeps it. Its file goes when
  // the system restarts, and the directory, empty then, after it.
  if (!deleteTree(runDirectory) && isDirectory(runDirectory)) {
    TextConverter wide(runDirectory);
    (void)MoveFileExW(wide.wide(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  }
  runDirectory[0] = 0;
}

namespace {

// The shell's folders, asked once: each question is slow, and a tree's
// removal asks for every level.
void findSystemDirectories(Table<CharString>* out) {
  WideChar folder[MAX_PATH + 1];
  char narrow[kMaxPath];
  auto add = [&]() {
    wideToUtf8(folder, narrow, sizeof narrow);
    stripTrailingSeparators(narrow, sizeof narrow);
    if (narrow[0]) out->add(CharString(narrow));
  };
  if (GetWindowsDirectoryW(folder, MAX_PATH)) add();
  if (GetSystemDirectoryW(folder, MAX_PATH)) add();
  static const int kFolders[] = {CSIDL_SYSTEMX86,         CSIDL_PROGRAM_FILES,      CSIDL_PROGRAM_FILESX86,
                                 CSIDL_PROGRAM_FILES_COMMON, CSIDL_COMMON_APPDATA, CSIDL_APPDATA,
                                 CSIDL_LOCAL_APPDATA,     CSIDL_PROFILE,            CSIDL_COMMON_DESKTOPDIRECTORY,
                                 CSIDL_DESKTOPDIRECTORY,  CSIDL_COMMON_STARTMENU,   CSIDL_STARTMENU,
                                 CSIDL_COMMON_PROGRAMS,   CSIDL_PROGRAMS,           CSIDL_COMMON_DOCUMENTS,
                                 CSIDL_PERSONAL};
  for (int id : kFolders) {
    if (SUCCEEDED(SHGetFolderPathW(nullptr, id, nullptr, 0, folder))) add();
  }
  // The folder of all the users' profiles.
  if (SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_PROFILE, nullptr, 0, folder))) {
    wideToUtf8(folder, narrow, sizeof narrow);
    stripTrailingSeparators(narrow, sizeof narrow);
    char* cut = narrow + std::strlen(narrow);
    while (cut > narrow && !isSeparator(cut[-1])) cut--;
    if (cut > narrow) {
      cut[-1] = 0;
      out->add(CharString(narrow));
    }
  }
  char temporary[kMaxPath];
  if (getTempDirectory(temporary, sizeof temporary)) out->add(CharString(temporary));
}

}  // namespace

void listSystemDirectories(Table<CharString>* out) {
  static Table<CharString>* known = nullptr;
  if (!known) {
    known = new Table<CharString>(32);
    findSystemDirectories(known);
  }
  for (int i = 0; i < known->getCount(); i++) out->add((*known)[i]);
}

bool getConsoleSize(int* outColumns, int* outRows) {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return false;
  if (outColumns) *outColumns = info.srWindow.Right - info.srWindow.Left + 1;
  if (outRows) *outRows = info.srWindow.Bottom - info.srWindow.Top + 1;
  return true;
}

void debugPrint(const char* format, ...) {
  if (!format) return;
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  TextConverter wide(text);  // the text is UTF-8; the narrow call would read it in the ANSI code page
  OutputDebugStringW(wide.wide());
}

}  // namespace QUtils
