#include "package/package.h"

#include <zlib.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "package/format.h"
#include "package/solid_decompressor.h"

namespace {

// Room given to zlib beyond the recorded size when a file of a package that
// isn't solid is inflated.
const uint32_t kInflateSlack = 1024;

// Sizes are signed 32-bit in the loader: a package is under 2 GiB.
const int64_t kMaxLoadSize = 0x7fffffff;

void readRecordHeader(const unsigned char* p, uint32_t recordOffset, COMPFILEINFO* entry) {
  entry->recordOffset = recordOffset;
  entry->magic = readU32(p + kRecordMagicOffset);
  entry->fileSize = readU32(p + kRecordFileSizeOffset);
  entry->storedSize = readU32(p + kRecordStoredSizeOffset);
  entry->flags = readU32(p + kRecordFlagsOffset);
  std::memcpy(entry->md5, p + kRecordDigestOffset, sizeof(entry->md5));
  std::memcpy(entry->name, p + kRecordNameOffset, sizeof(entry->name));
  std::memcpy(entry->key, p + kRecordKeyOffset, sizeof(entry->key));
  // A damaged header must not let a look-up run past its fields.
  entry->name[sizeof(entry->name) - 1] = 0;
  entry->key[sizeof(entry->key) - 1] = 0;
}

}  // namespace

Package::Package()
    : packageData(nullptr),
      packageSize(0),
      packageIsSolid(0),
      files(5),
      runFlags(kRunFlagBackup),
      actionLogFile(nullptr),
      logConsole(nullptr) {}

Package::~Package() { release(); }

void Package::log(const char* format, ...) {
  if (!logConsole) return;
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  logConsole->printf("%s", line);
}

void Package::freePackageData() {
  std::free(packageData);
  packageData = nullptr;
  packageSize = 0;
  packageIsSolid = 0;
  files.clear();
}

void Package::release() {
  freePackageData();
  if (actionLogFile) std::fclose(actionLogFile);
  actionLogFile = nullptr;
}

int Package::openPackage(const char* fileName, uint32_t offset, int flags) {
  runFlags = flags;
  if (actionLogFile) std::fclose(actionLogFile);
  actionLogFile = nullptr;

  if (flags & kRunFlagActionLog) {
    actionLogFile = QUtils::openFile(fileName, "rb");
    if (!actionLogFile) {
      log("ERROR: Failed to open the installation log file (%s)", fileName);
      return kPackageLogOpenFailed;
    }
    return 0;
  }
  return loadPackage(fileName, offset);
}

int Package::loadPackage(const char* fileName, uint32_t offset) {
  QUtils::PFileStream stream;
  if (stream.openFile(fileName, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist) != 0) {
    log("ERROR: Failed to open %s for decompressing!", fileName);
    return kPackageOpenFailed;
  }

  // The package runs to the end of the file, checksum record and
  // certificate table included.
  int64_t length = stream.size() - static_cast<int64_t>(offset);
  freePackageData();
  log("Initalizing memory for the compressed cabinet (%d B)", static_cast<int>(length));
  if (length < 0) {
    // The offset lies behind the file's end: nothing there to seek to.
    log("Seeking file offset %d", static_cast<int>(offset));
    stream.close();
    return kPackageSeekFailed;
  }
  unsigned char* buffer = nullptr;
  if (length > kMaxLoadSize) {
    log("ERROR: Failed to allocate memory for the compressed cabinet (%s)", "package larger than 2 GiB");
  } else if (!(buffer = static_cast<unsigned char*>(std::malloc(length > 0 ? static_cast<size_t>(length) : 1)))) {
    log("ERROR: Failed to allocate memory for the compressed cabinet (%s)", std::strerror(ENOMEM));
  }
  if (!buffer) {
    stream.close();
    return kPackageNoMemory;
  }

  log("Seeking file offset %d", static_cast<int>(offset));
  if (stream.seek(offset) != 0) {
    std::free(buffer);
    stream.close();
    return kPackageSeekFailed;
  }

  log("Reading compressed cabinet into memory");
  int64_t have = 0;
  while (have < length) {
    uint32_t got = 0;
    if (stream.read(buffer + have, static_cast<uint32_t>(length - have), &got) != 0 || got == 0) break;
    have += got;
  }
  stream.close();
  if (have != length) {
    std::free(buffer);
    return kPackageReadFailed;
  }

  log("Checking compressed cabinet version compatibility");
  const uint32_t magic[3] = {kPackageMagic1, kPackageMagic2, kPackageMagic3};
  const int failure[3] = {kPackageBadMagic1, kPackageBadMagic2, kPackageBadMagic3};
  for (int i = 0; i < 3; i++) {
    if (length < 4 * (i + 1) || readU32(buffer + 4 * i) != magic[i]) {
      std::free(buffer);
      return failure[i];
    }
  }

  log("Starting decompression of data ...");
  packageData = buffer;
  packageSize = static_cast<int32_t>(length);
  int32_t firstRecord = kPackageHeaderSize;
  SolidDecompressor* decompressor = nullptr;
  if (length >= kPackageHeaderSize + kSolidHeadSize) decompressor = createSolidDecompressor(buffer + kPackageHeaderSize);
  if (decompressor) {
    packageIsSolid = 1;
    unsigned char* blob = nullptr;
    int32_t blobSize = 0;
    int result = decompressor->decompress(buffer + kPackageHeaderSize, packageSize - kPackageHeaderSize, &blob,
                                          &blobSize);
    delete decompressor;
    if (result != 0) {
      log("ERROR: The solid compressor failed with decompressing the data!");
      freePackageData();
      return result;
    }
    std::free(buffer);
    packageData = blob;
    packageSize = blobSize;
    firstRecord = 0;
  }

  log("Finished decompression. Initializing file headers ...");
  return readRecords(firstRecord);
}

int Package::readRecords(int32_t position) {
  for (;;) {
    // A record that doesn't fit in what was loaded ends the walk, as a
    // missing end record does.
    if (static_cast<int64_t>(position) + kRecordHeaderSize > packageSize) break;
    const unsigned char* header = packageData + position;
    uint32_t magic = readU32(header + kRecordMagicOffset);
    if (magic == kRecordMagicEnd) {
      log("Finished file headers initialization.");
      return 0;
    }
    if (magic != kRecordMagicFile) break;
    COMPFILEINFO entry;
    readRecordHeader(header, static_cast<uint32_t>(position), &entry);
    int64_t next = static_cast<int64_t>(position) + kRecordHeaderSize + entry.storedSize;
    if (next > packageSize) break;
    files.add(entry);
    position = static_cast<int32_t>(next);
  }
  freePackageData();
  return kPackageBadRecord;
}

int Package::findFile(const char* key) const {
  for (int i = files.getCount() - 1; i >= 0; i--) {
    if (std::strcmp(files[i].key, key) == 0) return i;
  }
  return -1;
}

int Package::extractFile(int index, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                         unsigned char* outDigest) {
  *outSize = 0;
  if (index < 0 || index >= files.getCount() || !packageData) return -1;
  const COMPFILEINFO& entry = files[index];
  const unsigned char* stored = packageData + entry.recordOffset + kRecordHeaderSize;

  // One byte more than the data, for the terminating 0.
  uint64_t room = packageIsSolid ? entry.fileSize : static_cast<uint64_t>(entry.fileSize) + kInflateSlack;
  if (room + 1 > static_cast<uint64_t>(kMaxLoadSize)) return -1;
  QUtils::RefArray<unsigned char> data(static_cast<uint32_t>(room + 1));
  unsigned char* bytes = data.get();
  if (!bytes) return -1;

  uint32_t length;
  if (packageIsSolid) {
    length = entry.fileSize;
    std::memcpy(bytes, stored, entry.storedSize < entry.fileSize ? entry.storedSize : entry.fileSize);
  } else {
    uLongf inflated = static_cast<uLongf>(room);
    if (uncompress(bytes, &inflated, stored, entry.storedSize) != Z_OK) return -1;
    length = static_cast<uint32_t>(inflated);
  }
  bytes[length] = 0;

  outData = data;
  *outSize = length;
  if (outDigest) std::memcpy(outDigest, entry.md5, sizeof(entry.md5));
  return 0;
}

int Package::extractFile(const char* key, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                         unsigned char* outDigest) {
  int index = findFile(key);
  if (index < 0) return -1;
  return extractFile(index, outSize, outData, outDigest);
}

QUtils::RefArray<unsigned char> Package::getFileData(const char* key, uint32_t* outSize) {
  QUtils::RefArray<unsigned char> data;
  int index = findFile(key);
  if (index >= 0) extractFile(index, outSize, data, nullptr);
  return data;
}
