// PFileStream and PMMFileStream on Windows: CreateFileW with the access and
// share masks as given, and file mappings whose view offsets are aligned to
// the system's allocation granularity. Names are UTF-8 and go to the system
// as UTF-16. Failures give GetLastError().
#include <windows.h>

#include <cstring>
#include <string>

#include "foundation/convert.h"
#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace QUtils {

namespace {

int lastError() {
  DWORD code = GetLastError();
  return code != 0 ? static_cast<int>(code) : -1;
}

HANDLE toHandle(intptr_t value) { return reinterpret_cast<HANDLE>(value); }

DWORD disposition(int mode) {
  switch (mode & 3) {
    case kModeOpenAlways:
      return OPEN_ALWAYS;
    case kModeCreateAlways:
      return CREATE_ALWAYS;
    case kModeCreateNew:
      return CREATE_NEW;
    default:  // the file must exist
      return OPEN_EXISTING;
  }
}

HANDLE openHandle(const char* fileName, DWORD access, DWORD share, DWORD how, DWORD flags) {
  CharString path = systemPath(fileName);
  TextConverter wide(path);
  return CreateFileW(wide.wide(), access, share, nullptr, how, flags, nullptr);
}

// A name that stands for itself in its directory: one part, not "." or "..".
bool isPlainName(const char* name) {
  if (!name || !name[0] || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
  for (const char* p = name; *p; p++) {
    if (isSeparator(*p) || *p == ':') return false;
  }
  return true;
}

std::string joinName(const std::string& directory, const char* name) {
  std::string joined = directory;
  if (joined.empty() || !isSeparator(joined.back())) joined += '\\';
  joined += name;
  return joined;
}

// Whether `path` is a directory of its own, not a link or junction to one.
bool isRealDirectory(const std::string& path) {
  TextConverter wide(path.c_str());
  DWORD attributes = GetFileAttributesW(wide.wide());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
         !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

int64_t allocationGranularity() {
  static const int64_t granularity = [] {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return static_cast<int64_t>(info.dwAllocationGranularity ? info.dwAllocationGranularity : 65536);
  }();
  return granularity;
}

int moveTo(intptr_t handle, int64_t offset, DWORD method) {
  if (handle == -1) return ERROR_INVALID_HANDLE;
  LARGE_INTEGER distance;
  distance.QuadPart = offset;
  return SetFilePointerEx(toHandle(handle), distance, nullptr, method) ? 0 : lastError();
}

}  // namespace

// ---------------------------------------------------------------------------
// PFileStream

int PFileStream::open() {
  if (handle != -1) close();
  if (!name) return -1;
  DWORD flags = FILE_ATTRIBUTE_NORMAL | ((mode & kModeSequential) ? FILE_FLAG_SEQUENTIAL_SCAN : 0);
  HANDLE file = openHandle(name, access, share, disposition(mode), flags);
  if (file == INVALID_HANDLE_VALUE) {
    handle = -1;
    return lastError();
  }
  handle = reinterpret_cast<intptr_t>(file);
  openCount++;
  return 0;
}

int PFileStream::createNewIn(const PDirectory& directory, const char* leaf, int newMode, bool* outExists) {
  if (outExists) *outExists = false;
  if (handle != -1) close();
  if (!directory.isOpen() || !isPlainName(leaf)) return ERROR_INVALID_NAME;
  std::string full = joinName(directory.path, leaf);
  configure(full.c_str(), kGenericWrite, 0, kModeCreateNew | (newMode & kModePrivate));
  TextConverter wide(full.c_str());
  HANDLE file = CreateFileW(wide.wide(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    int error = lastError();
    if (outExists) *outExists = error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
    return error;
  }
  handle = reinterpret_cast<intptr_t>(file);
  openCount++;
  return 0;
}

// The handle is cleared in any case: a failed CloseHandle leaves nothing to
// retry with.
// Who may change a file is a matter of its folder's access list on Windows.
int PFileStream::checkTrust() const { return handle == -1 ? kFileMissing : kTrustedFile; }

int PFileStream::close() {
  if (handle == -1) return ERROR_INVALID_HANDLE;
  BOOL closed = CloseHandle(toHandle(handle));
  handle = -1;
  if (!closed) return lastError();
  if (openCount > 0) openCount--;
  return 0;
}

int PFileStream::flush() {
  if (handle == -1) return -1;
  return FlushFileBuffers(toHandle(handle)) ? 0 : -1;
}

int PFileStream::write(const void* buffer, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (handle == -1) return ERROR_INVALID_HANDLE;
  DWORD written = 0;
  BOOL ok = WriteFile(toHandle(handle), buffer, size, &written, nullptr);
  if (outCount) *outCount = written;
  return ok ? 0 : lastError();
}

int PFileStream::read(void* buffer, uint32_t size, uint32_t* outCount) {
  if (outCount) *outCount = 0;
  if (handle == -1) return ERROR_INVALID_HANDLE;
  DWORD got = 0;
  BOOL ok = ReadFile(toHandle(handle), buffer, size, &got, nullptr);
  if (outCount) *outCount = got;
  return ok ? 0 : lastError();
}

int PFileStream::seek(int64_t position) { return moveTo(handle, position, FILE_BEGIN); }

int PFileStream::seekRelative(int64_t offset) { return moveTo(handle, offset, FILE_CURRENT); }

int PFileStream::seekFromEnd(int64_t offset) { return moveTo(handle, offset, FILE_END); }

int64_t PFileStream::size() {
  LARGE_INTEGER value;
  if (handle == -1 || !GetFileSizeEx(toHandle(handle), &value)) return -1;
  return value.QuadPart;
}

int PFileStream::permissionBits() const { return -1; }

int PFileStream::setEnd() {
  if (handle == -1) return ERROR_INVALID_HANDLE;
  return SetEndOfFile(toHandle(handle)) ? 0 : lastError();
}

int64_t PFileStream::position() {
  if (handle == -1) return -1;
  LARGE_INTEGER zero, at;
  zero.QuadPart = 0;
  if (!SetFilePointerEx(toHandle(handle), zero, &at, FILE_CURRENT)) return -1;
  return at.QuadPart;
}

int64_t PFileStream::fileSize(const char* fileName) {
  if (!fileName) return -1;
  CharString path = systemPath(fileName);
  TextConverter wide(path);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(wide.wide(), GetFileExInfoStandard, &data)) return -1;
  if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return -1;
  return (static_cast<int64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// ---------------------------------------------------------------------------
// PDirectory: Windows opens by name, so the directory is its path, checked
// once to be a directory.

PDirectory::PDirectory() : handle(-1) {}

PDirectory::~PDirectory() { close(); }

void PDirectory::close() {
  handle = -1;
  path.clear();
}

int PDirectory::open(const char* name) {
  close();
  if (!name || !name[0]) return ERROR_INVALID_NAME;
  CharString text = systemPath(name);
  std::string opened = text.getText() ? text.getText() : "";
  while (opened.size() > 3 && isSeparator(opened.back())) opened.pop_back();
  TextConverter wide(opened.c_str());
  DWORD attributes = GetFileAttributesW(wide.wide());
  if (attributes == INVALID_FILE_ATTRIBUTES) return lastError();
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return ERROR_DIRECTORY;
  path = opened;
  handle = 0;
  return 0;
}

int PDirectory::openBelow(const PDirectory& parent, const char* name, bool* outMade) {
  *outMade = false;
  if (!parent.isOpen() || !isPlainName(name)) return ERROR_INVALID_NAME;
  std::string joined = joinName(parent.path, name);
  TextConverter wide(joined.c_str());
  if (CreateDirectoryW(wide.wide(), nullptr)) {
    *outMade = true;
  } else {
    int error = lastError();
    if (error != ERROR_ALREADY_EXISTS) return error;
    if (!isRealDirectory(joined)) return ERROR_DIRECTORY;
  }
  close();
  path = joined;
  handle = 0;
  return 0;
}

// ---------------------------------------------------------------------------
// PMMFileStream
//
// Read access alone gives a copy-on-write mapping seen through a read-only
// view; with write access the mapping and the view are read and write. The
// file is shared only when sharing is asked for, and then only in the ways
// that match the access. A view's offset is aligned to the allocation
// granularity.

const int PMMFileStream::kViewOutsideFile = ERROR_INVALID_PARAMETER;

int64_t PMMFileStream::viewGranularity() { return allocationGranularity(); }

int PMMFileStream::openMappedFile(bool writes, int64_t* fileLength) {
  DWORD shareMode = 0;
  if (share != 0) {
    if (access & kGenericRead) shareMode |= FILE_SHARE_READ;
    if (writes) shareMode |= FILE_SHARE_WRITE;
  }
  HANDLE file = openHandle(name, access, shareMode, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
  if (file == INVALID_HANDLE_VALUE) return lastError();
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file, &size)) {
    int result = lastError();
    CloseHandle(file);
    return result;
  }
  *fileLength = size.QuadPart;
  handle = reinterpret_cast<intptr_t>(file);
  return 0;
}

int PMMFileStream::mapView(bool writes, int64_t alignedOffset, int64_t viewLength) {
  HANDLE map = CreateFileMappingA(toHandle(handle), nullptr, writes ? PAGE_READWRITE : PAGE_WRITECOPY, 0, 0, nullptr);
  if (!map) return lastError();
  void* view = MapViewOfFile(map, writes ? FILE_MAP_WRITE : FILE_MAP_READ, static_cast<DWORD>(alignedOffset >> 32),
                             static_cast<DWORD>(alignedOffset & 0xFFFFFFFF), static_cast<SIZE_T>(viewLength));
  if (!view) {
    int result = lastError();
    CloseHandle(map);
    return result;
  }
  mapping = reinterpret_cast<intptr_t>(map);
  base = static_cast<unsigned char*>(view);
  return 0;
}

int PMMFileStream::syncView() { return FlushViewOfFile(base, static_cast<SIZE_T>(mappedLength)) ? 0 : -1; }

void PMMFileStream::releaseView() {
  if (base) UnmapViewOfFile(base);
  if (mapping != -1) CloseHandle(toHandle(mapping));
  if (handle != -1) CloseHandle(toHandle(handle));
}

}  // namespace QUtils
