// The file layer's system calls on Windows: names are converted to wide
// text at each call and go to the W functions.
#include <windows.h>
#include <shellapi.h>

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

FILE* openFile(const char* name, const char* mode) {
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

// Whether a file runs follows from its name on Windows.
int setExecutable(const char*) { return 0; }

bool isExecutable(const char*) { return false; }

bool makeDirectory(const char* name) {
  if (!name) return false;
  TextConverter wide(name);
  if (CreateDirectoryW(wide.wide(), nullptr)) return true;
  return GetLastError() == ERROR_ALREADY_EXISTS && isDirectory(name);
}

bool isPlainDirectory(const char* name) {
  DWORD attributes = attributesOf(name);
  return attributes != INVALID_FILE_ATTRIBUTES && isPlainAttributes(attributes);
}

bool isBareDirectory(const char* path, const char* child) {
  if (!path) return false;
  char pattern[kMaxPath];
  copyText(pattern, path, sizeof pattern);
  appendPath(pattern, "*", sizeof pattern);
  TextConverter widePattern(pattern);
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW(widePattern.wide(), &entry);
  if (search == INVALID_HANDLE_VALUE) return false;
  // "." and ".." come with the attributes of the directory and its parent.
  bool bare = true;
  do {
    char name[MAX_PATH * 3 + 1];
    wideToUtf8(entry.cFileName, name, sizeof name);
    bool expected = isDotEntry(name) || (child && compareNoCase(name, child) == 0);
    if (!expected || !isPlainAttributes(entry.dwFileAttributes)) {
      bare = false;
      break;
    }
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  return bare;
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
