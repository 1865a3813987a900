#include "package/package.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "package/deflate_codec.h"
#include "package/format.h"
#include "package/record_index.h"
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
    : packageIsSolid(0),
      files(5),
      runFlags(kRunFlagBackup),
      actionLogFile(nullptr),
      logConsole(nullptr),
      packageOffset(0),
      packageLength(0),
      recordsIndexed(false),
      stripeWaiter(nullptr) {}

Package::~Package() { release(); }

void PackageFileView::release() {
  if (reader && pinned >= 0) reader->release(pinned);
  reader = nullptr;
  pinned = -1;
  copy.reset();
  bytes = nullptr;
  length = 0;
}

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
  stripes.reset();
  packageFile.close();
  packageOffset = 0;
  packageLength = 0;
  packageIsSolid = 0;
  recordsIndexed = false;
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
  freePackageData();
  if (packageFile.open(fileName) != 0) {
    log("ERROR: Failed to open %s for decompressing!", fileName);
    return kPackageOpenFailed;
  }

  // The package runs to the end of the file, checksum record and
  // certificate table included. It is read where it lies, a piece at a
  // time; the lines below name the steps of loading as they always were.
  int64_t length = packageFile.size() - static_cast<int64_t>(offset);
  log("Initalizing memory for the compressed cabinet (%d B)", static_cast<int>(length));
  if (length < 0) {
    // The offset lies behind the file's end: nothing there to seek to.
    log("Seeking file offset %d", static_cast<int>(offset));
    freePackageData();
    return kPackageSeekFailed;
  }
  if (length > kMaxLoadSize) {
    log("ERROR: Failed to allocate memory for the compressed cabinet (%s)", "package larger than 2 GiB");
    freePackageData();
    return kPackageNoMemory;
  }
  packageOffset = offset;
  packageLength = length;
  log("Seeking file offset %d", static_cast<int>(offset));
  log("Reading compressed cabinet into memory");
  unsigned char header[kPackageHeaderSize + kSolidHeadSize] = {0};
  int64_t headerBytes = length < static_cast<int64_t>(sizeof(header)) ? length : static_cast<int64_t>(sizeof(header));
  if (packageFile.readAt(offset, header, static_cast<size_t>(headerBytes)) != 0) {
    freePackageData();
    return kPackageReadFailed;
  }

  log("Checking compressed cabinet version compatibility");
  const uint32_t magic[3] = {kPackageMagic1, kPackageMagic2, kPackageMagic3};
  const int failure[3] = {kPackageBadMagic1, kPackageBadMagic2, kPackageBadMagic3};
  for (int i = 0; i < 3; i++) {
    if (length < 4 * (i + 1) || readU32(header + 4 * i) != magic[i]) {
      freePackageData();
      return failure[i];
    }
  }

  log("Starting decompression of data ...");
  StripedSolidDecompressor* codec = nullptr;
  if (length >= kPackageHeaderSize + kSolidHeadSize) codec = createSolidDecompressor(header + kPackageHeaderSize);
  int result;
  if (codec) {
    packageIsSolid = 1;
    stripes.reset(new StripeReader());
    const int64_t blockOffset = offset + kPackageHeaderSize;
    result = stripes->open(&packageFile, blockOffset, length - kPackageHeaderSize, codec, 0);
    if (result == 0) {
      log("Finished decompression. Initializing file headers ...");
      if (readIndexedRecords(blockOffset, length - kPackageHeaderSize) != 0) result = readSolidRecords();
    }
    if (result != 0 && result != kPackageBadRecord) log("ERROR: The solid compressor failed with decompressing the data!");
  } else {
    log("Finished decompression. Initializing file headers ...");
    result = readPlainRecords();
  }
  if (result != 0) {
    freePackageData();
    return result;
  }
  log("Finished file headers initialization.");
  return 0;
}

int Package::addRecord(const unsigned char* header, int64_t position, int64_t limit, int64_t* next) {
  uint32_t magic = readU32(header + kRecordMagicOffset);
  if (magic == kRecordMagicEnd) return 0;
  if (magic != kRecordMagicFile) return kPackageBadRecord;
  COMPFILEINFO entry;
  readRecordHeader(header, static_cast<uint32_t>(position), &entry);
  *next = position + kRecordHeaderSize + entry.storedSize;
  if (*next > limit) return kPackageBadRecord;
  // Doubling, not the list's own step of 5: a package of thousands of files
  // would otherwise copy its growing table thousands of times.
  if (files.getCount() == files.getCapacity()) files.setCapacity(2 * files.getCapacity() + 5);
  files.add(entry);
  return 1;
}

int Package::readIndexedRecords(int64_t blockOffset, int64_t blockSize) {
  if (stripes->streamsStart() - stripes->headEnd() < kRecordIndexPointerSize) return -1;
  unsigned char pointer[kRecordIndexPointerSize];
  RecordIndexPlace place;
  if (packageFile.readAt(blockOffset + stripes->headEnd(), pointer, sizeof pointer) != 0 ||
      !readRecordIndexPointer(pointer, blockSize, stripes->streamsEnd(), &place)) {
    return -1;
  }
  std::vector<unsigned char> stream(place.packedSize);
  std::vector<unsigned char> entries;
  if (packageFile.readAt(blockOffset + place.streamOffset, stream.data(), stream.size()) != 0 ||
      !decodeRecordIndex(place, stream.data(), stripes->blobSize(), &entries)) {
    return -1;
  }
  // The last entry is the end record.
  files.setCapacity(static_cast<int>(place.count));
  for (uint32_t i = 0; i + 1 < place.count; i++) {
    const unsigned char* entry = entries.data() + static_cast<size_t>(i) * kRecordIndexEntrySize;
    COMPFILEINFO info;
    readRecordHeader(entry + 8, readU32(entry), &info);
    files.add(info);
  }
  recordsIndexed = true;
  return 0;
}

int Package::readSolidRecords() {
  // Stripe by stripe in blob order, so that each is inflated once here
  // (ahead, on the workers) and every stripe is proved sound, also those
  // that hold only the middle of a large file. A header that crosses into
  // the next stripe is read across it.
  const int64_t blob = stripes->blobSize();
  int64_t position = 0;
  bool ended = false;
  for (int index = 0; index < stripes->stripeCount(); index++) {
    const unsigned char* data = nullptr;
    int result = stripes->acquire(index, &data, stripeWaiter);
    if (result != 0) return result;
    while (!ended && position < stripes->stripeEnd(index)) {
      unsigned char header[kRecordHeaderSize];
      // A record that doesn't fit in the blob ends the walk, as a missing
      // end record does.
      if (position + kRecordHeaderSize > blob) break;
      result = stripes->read(position, header, sizeof(header), stripeWaiter);
      if (result != 0) break;
      result = addRecord(header, position, blob, &position);
      if (result < 0) break;
      ended = result == 0;
      result = 0;
    }
    stripes->release(index);
    if (result != 0) return result;
    if (!ended && position + kRecordHeaderSize > blob) return kPackageBadRecord;
  }
  return ended ? 0 : kPackageBadRecord;
}

int Package::readPlainRecords() {
  int64_t position = kPackageHeaderSize;
  for (;;) {
    unsigned char header[kRecordHeaderSize];
    if (position + kRecordHeaderSize > packageLength) return kPackageBadRecord;
    if (packageFile.readAt(packageOffset + position, header, sizeof(header)) != 0) return kPackageReadFailed;
    int result = addRecord(header, position, packageLength, &position);
    if (result <= 0) return result;
  }
}

int Package::findFile(const char* key) const {
  for (int i = files.getCount() - 1; i >= 0; i--) {
    if (std::strcmp(files[i].key, key) == 0) return i;
  }
  return -1;
}

bool Package::headerMatches(const COMPFILEINFO& entry) {
  unsigned char header[kRecordHeaderSize];
  if (stripes->read(entry.recordOffset, header, sizeof header, stripeWaiter) != 0) return false;
  COMPFILEINFO found;
  readRecordHeader(header, entry.recordOffset, &found);
  static_assert(sizeof(COMPFILEINFO) == 612, "COMPFILEINFO has no padding to compare");
  return std::memcmp(&found, &entry, sizeof found) == 0;
}

int Package::viewFile(int index, PackageFileView* view, unsigned char* outDigest) {
  view->release();
  if (index < 0 || index >= files.getCount() || !isLoaded()) return -1;
  const COMPFILEINFO& entry = files[index];
  const int64_t stored = static_cast<int64_t>(entry.recordOffset) + kRecordHeaderSize;

  if (packageIsSolid) {
    // The record's data is the file, which the writer stores as it is; a
    // damaged record that claims more than it holds is filled with zeros.
    uint32_t size = entry.fileSize;
    if (size >= static_cast<uint64_t>(kMaxLoadSize)) return -1;
    uint32_t held = entry.storedSize < size ? entry.storedSize : size;
    if (recordsIndexed && !headerMatches(entry)) return -1;
    int first = stripes->stripeAt(stored);
    if (held == size && size > 0 && first >= 0 && stored + size <= stripes->stripeEnd(first)) {
      const unsigned char* data = nullptr;
      if (stripes->acquire(first, &data, stripeWaiter) != 0) return -1;
      view->reader = stripes.get();
      view->pinned = first;
      view->bytes = data + (stored - stripes->stripeStart(first));
    } else {
      // Spanning stripes: assembled once, with a NUL behind it.
      QUtils::RefArray<unsigned char> copy(size + 1);
      if (!copy.get()) return -1;
      std::memset(copy.get() + held, 0, size + 1 - held);
      if (held > 0 && stripes->read(stored, copy.get(), held, stripeWaiter) != 0) return -1;
      view->copy = copy;
      view->bytes = copy.get();
    }
    view->length = size;
  } else {
    // One byte more than the room, for the terminating 0.
    uint64_t room = static_cast<uint64_t>(entry.fileSize) + kInflateSlack;
    if (room + 1 > static_cast<uint64_t>(kMaxLoadSize)) return -1;
    QUtils::RefArray<unsigned char> packed(entry.storedSize > 0 ? entry.storedSize : 1);
    QUtils::RefArray<unsigned char> copy(static_cast<uint32_t>(room + 1));
    if (!packed.get() || !copy.get()) return -1;
    if (packageFile.readAt(packageOffset + stored, packed.get(), entry.storedSize) != 0) return -1;
    size_t inflated = static_cast<size_t>(room);
    if (inflateZlibStream(copy.get(), &inflated, packed.get(), entry.storedSize) != 0) return -1;
    copy.get()[inflated] = 0;
    view->copy = copy;
    view->bytes = copy.get();
    view->length = static_cast<uint32_t>(inflated);
  }
  if (outDigest) std::memcpy(outDigest, entry.md5, sizeof(entry.md5));
  return 0;
}

int Package::extractFile(int index, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                         unsigned char* outDigest) {
  *outSize = 0;
  PackageFileView view;
  if (viewFile(index, &view, outDigest) != 0) return -1;
  QUtils::RefArray<unsigned char> data = view.copy;
  if (data.isNull()) {
    // One byte more than the data, for the terminating 0.
    data = QUtils::RefArray<unsigned char>(view.size() + 1);
    if (!data.get()) return -1;
    if (view.size() > 0) std::memcpy(data.get(), view.data(), view.size());
    data.get()[view.size()] = 0;
  }
  *outSize = view.size();
  outData = data;
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
