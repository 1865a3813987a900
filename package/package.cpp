// The body of Package (package.h): opening the installer file, listing the
// records of its blocks, and reading a file out of them.
#include "package/package.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "package/block_table.h"
#include "package/deflate_codec.h"
#include "package/format.h"
#include "package/record_index.h"
#include "package/sha256.h"
#include "package/solid_decompressor.h"

namespace {

// Room given to zlib beyond the recorded size when a file of a package that
// isn't solid is inflated.
const uint32_t kInflateSlack = 1024;

// A package that isn't solid is read with 32-bit sizes, and a file is
// handed out whole only below this: larger ones are read piece by piece.
const int64_t kMaxLoadSize = 0x7fffffff;

// Package files are proved a piece of this size at a time.
const size_t kDigestChunk = 1 << 20;

void readRecordHeader(const unsigned char* p, uint64_t recordOffset, COMPFILEINFO* entry) {
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
  entry->size = entry->fileSize;
  entry->firstPiece = -1;
  entry->pieceCount = 0;
}

// Whether two entries read from headers describe one header.
bool sameHeader(const COMPFILEINFO& a, const COMPFILEINFO& b) {
  return a.recordOffset == b.recordOffset && a.magic == b.magic && a.fileSize == b.fileSize &&
         a.storedSize == b.storedSize && a.flags == b.flags && std::memcmp(a.md5, b.md5, sizeof a.md5) == 0 &&
         std::strcmp(a.name, b.name) == 0 && std::strcmp(a.key, b.key) == 0;
}

// Whether `later` can be a further record of the file that `first` starts.
bool sameFile(const COMPFILEINFO& first, const COMPFILEINFO& later) {
  return later.magic == kRecordMagicFile && later.fileSize == later.storedSize &&
         std::memcmp(first.md5, later.md5, sizeof first.md5) == 0 && std::strcmp(first.name, later.name) == 0 &&
         std::strcmp(first.key, later.key) == 0;
}

// The directory part of a path, its last separator included; empty for a
// bare name.
std::string directoryOf(const char* path) {
  const char* end = path;
  for (const char* p = path; *p; p++) {
    if (*p == '/' || *p == '\\') end = p + 1;
  }
  return std::string(path, static_cast<size_t>(end - path));
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
      stripeWaiter(nullptr),
      blocks(0) {}

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
  keysMapped = -1;
  pieces.clear();
  blocks = 0;
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
    // The log tells the uninstaller what to delete: one that another user
    // wrote, or could have, is not followed.
    QUtils::FileTrust trust = QUtils::checkFileTrust(actionLogFile);
    if (trust != QUtils::kTrustedFile) {
      log("ERROR: The installation log file (%s) %s", fileName, QUtils::describeFileTrust(trust));
      std::fclose(actionLogFile);
      actionLogFile = nullptr;
      return kPackageLogOpenFailed;
    }
    return 0;
  }
  return loadPackage(fileName, offset);
}

int Package::loadPackage(const char* fileName, uint32_t offset) {
  freePackageData();
  problem.clear();
  if (packageFile.open(fileName) != 0) {
    log("ERROR: Failed to open %s for decompressing!", fileName);
    return kPackageOpenFailed;
  }

  // The package runs to the end of the file, checksum record and
  // certificate table included. It is read where it lies, a piece at a
  // time; the lines below name the steps of loading as they always were.
  int64_t length = packageFile.size() - static_cast<int64_t>(offset);
  log("Initalizing memory for the compressed cabinet (%lld B)", static_cast<long long>(length));
  if (length < 0) {
    // The offset lies behind the file's end: nothing there to seek to.
    log("Seeking file offset %d", static_cast<int>(offset));
    freePackageData();
    return kPackageSeekFailed;
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
  const bool table = length >= kPackageHeaderSize + kSolidHeadSize && isBlockTable(header + kPackageHeaderSize);
  if (!table && length >= kPackageHeaderSize + kSolidHeadSize) codec = createSolidDecompressor(header + kPackageHeaderSize);
  int result;
  if (table) {
    packageIsSolid = 1;
    result = loadBlocks(fileName);
    if (result != 0 && result != kPackageBadRecord && result != kPackagePartMissing && result != kPackagePartDamaged)
      log("ERROR: The solid compressor failed with decompressing the data!");
  } else if (codec) {
    packageIsSolid = 1;
    blocks = 1;
    stripes.reset(new StripeReader());
    const int64_t blockOffset = offset + kPackageHeaderSize;
    result = stripes->open(&packageFile, blockOffset, length - kPackageHeaderSize, codec, 0);
    if (result == 0) {
      log("Finished decompression. Initializing file headers ...");
      if (readIndexedRecords(blockOffset, length - kPackageHeaderSize) != 0) result = readSolidRecords();
    }
    if (result != 0 && result != kPackageBadRecord) log("ERROR: The solid compressor failed with decompressing the data!");
  } else if (length > kMaxLoadSize) {
    // Records of a package that isn't solid are placed with 32-bit sizes.
    log("ERROR: Failed to allocate memory for the compressed cabinet (%s)", "package larger than 2 GiB");
    result = kPackageNoMemory;
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

int Package::loadBlocks(const char* fileName) {
  const int64_t tableOffset = packageOffset + kPackageHeaderSize;
  unsigned char head[kBlockTableHeadSize];
  int64_t tableSize = 0;
  if (packageLength < kPackageHeaderSize + kBlockTableHeadSize ||
      packageFile.readAt(tableOffset, head, sizeof head) != 0) {
    return kSolidTooShort;
  }
  int result = readBlockTableSize(head, &tableSize);
  if (result != 0) return result;
  std::vector<unsigned char> bytes(static_cast<size_t>(tableSize));
  if (tableSize > packageLength - kPackageHeaderSize || packageFile.readAt(tableOffset, bytes.data(), bytes.size()) != 0)
    return kSolidTooShort;
  BlockTable table;
  result = readBlockTable(bytes.data(), tableSize, &table);
  if (result != 0) return result;
  // The stream's share in this file must all be there; what follows it
  // (the checksum record, a signature) is not the package's.
  if (table.ownBytes > packageLength) return kPackageReadFailed;
  if (!table.files.empty()) {
    result = openPackageFiles(fileName, table);
    if (result != 0) return result;
  }
  log("Package of %d blocks, %lld bytes of records, in %d package files beside the installer",
      static_cast<int>(table.blocks.size()), static_cast<long long>(table.blobSize), static_cast<int>(table.files.size()));

  std::vector<StripeReader::Block> places;
  for (const BlockPlace& block : table.blocks)
    places.push_back({packageOffset + block.start, block.size, block.blobStart, block.blobSize});
  unsigned char blockHead[kSolidHeadSize];
  if (packageFile.readAt(places[0].offset, blockHead, sizeof blockHead) != 0) return kSolidTooShort;
  StripedSolidDecompressor* codec = createSolidDecompressor(blockHead);
  if (!codec) return kSolidBadVersion;
  blocks = static_cast<int>(table.blocks.size());
  stripes.reset(new StripeReader());
  result = stripes->open(&packageFile, places, codec, 0);
  if (result != 0) return result;
  if (stripes->blobSize() != table.blobSize) return kSolidNotTiled;
  log("Finished decompression. Initializing file headers ...");
  if (listFromIndex(packageOffset + table.indexStart, table.indexPackedSize, table.indexCount) == 0) return 0;
  return readSolidRecords();
}

int Package::openPackageFiles(const char* fileName, const BlockTable& table) {
  const std::string directory = directoryOf(fileName);
  const int64_t end = packageOffset + table.ownBytes;
  for (size_t i = 0; i < table.files.size(); i++) {
    problem = directory + packageFileName(table.stem, static_cast<int>(i + 1));
    int result = packageFile.addPart(end, problem.c_str(), table.files[i].size);
    if (result != 0) {
      bool present = QUtils::fileExists(problem.c_str());
      log("ERROR: The package file %s is %s", problem.c_str(), present ? "damaged" : "missing");
      return present ? kPackagePartDamaged : kPackagePartMissing;
    }
    // Every byte is proved before any is used: the digests stand in the
    // installer, whose own checksum (and signature) covers them.
    const int64_t start = packageFile.size() - table.files[i].size;
    SHA256 sha;
    std::vector<unsigned char> chunk(kDigestChunk);
    for (int64_t at = 0; at < table.files[i].size;) {
      size_t piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(chunk.size()), table.files[i].size - at));
      if (packageFile.readAt(start + at, chunk.data(), piece) != 0) break;
      sha.update(chunk.data(), piece);
      at += static_cast<int64_t>(piece);
    }
    unsigned char digest[kSHA256DigestSize];
    sha.finish(digest);
    if (std::memcmp(digest, table.files[i].digest, sizeof digest) != 0) {
      log("ERROR: The package file %s is damaged", problem.c_str());
      return kPackagePartDamaged;
    }
  }
  problem.clear();
  return 0;
}

int Package::addRecord(const unsigned char* header, int64_t position, int64_t limit, int64_t* next) {
  uint32_t magic = readU32(header + kRecordMagicOffset);
  if (magic == kRecordMagicEnd) return !pieces.empty() && pieces.back().continued ? kPackageBadRecord : 0;
  if (magic != kRecordMagicFile) return kPackageBadRecord;
  *next = position + kRecordHeaderSize + readU32(header + kRecordStoredSizeOffset);
  if (*next > limit || !listRecord(header, position)) return kPackageBadRecord;
  return 1;
}

bool Package::listRecord(const unsigned char* header, int64_t position) {
  COMPFILEINFO entry;
  readRecordHeader(header, static_cast<uint64_t>(position), &entry);
  // Only a solid package joins records: the builder splits a file only
  // where a block can't hold it.
  Piece piece = {position + kRecordHeaderSize, entry.storedSize,
                 packageIsSolid != 0 && (entry.flags & kRecordFlagContinued) != 0};
  // The entry stands for the whole file, which goes on nowhere.
  if (piece.continued) entry.flags &= ~kRecordFlagContinued;
  if (!pieces.empty() && pieces.back().continued) {
    COMPFILEINFO& file = files[files.getCount() - 1];
    if (!sameFile(file, entry) || file.pieceCount == 0x7fffffff) return false;
    file.size += entry.fileSize;
    file.pieceCount++;
  } else {
    if (piece.continued && entry.fileSize != entry.storedSize) return false;
    entry.firstPiece = static_cast<int32_t>(pieces.size());
    entry.pieceCount = 1;
    // Doubling, not the list's own step of 5: a package of thousands of
    // files would otherwise copy its growing table thousands of times.
    if (files.getCount() == files.getCapacity()) files.setCapacity(2 * files.getCapacity() + 5);
    files.add(entry);
  }
  pieces.push_back(piece);
  return true;
}

int Package::readIndexedRecords(int64_t blockOffset, int64_t blockSize) {
  if (stripes->streamsStart() - stripes->headEnd() < kRecordIndexPointerSize) return -1;
  unsigned char pointer[kRecordIndexPointerSize];
  RecordIndexPlace place;
  if (packageFile.readAt(blockOffset + stripes->headEnd(), pointer, sizeof pointer) != 0 ||
      !readRecordIndexPointer(pointer, blockSize, stripes->streamsEnd(), &place)) {
    return -1;
  }
  return listFromIndex(blockOffset + place.streamOffset, place.packedSize, place.count);
}

int Package::listFromIndex(int64_t start, uint32_t packedSize, uint32_t count) {
  RecordIndexPlace place = {count, start, packedSize, static_cast<uint32_t>(count * kRecordIndexEntrySize)};
  if (count < 1 || static_cast<uint64_t>(count) * kRecordIndexEntrySize > 0xffffffffu) return -1;
  std::vector<unsigned char> stream(packedSize);
  std::vector<unsigned char> entries;
  if (packageFile.readAt(start, stream.data(), stream.size()) != 0 ||
      !decodeRecordIndex(place, stream.data(), stripes->blobSize(), &entries)) {
    return -1;
  }
  // The last entry is the end record.
  files.setCapacity(static_cast<int>(count));
  for (uint32_t i = 0; i + 1 < count; i++) {
    const unsigned char* entry = entries.data() + static_cast<size_t>(i) * kRecordIndexEntrySize;
    uint64_t offset = readU32(entry) | static_cast<uint64_t>(readU32(entry + 4)) << 32;
    if (!listRecord(entry + 8, static_cast<int64_t>(offset))) break;
  }
  if (!pieces.empty() && pieces.back().continued) {
    // A continued file that the index breaks off: listed the long way.
    files.clear();
    pieces.clear();
    return -1;
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
  if (!key) return -1;
  if (keysMapped != files.getCount()) {
    keyMap.clear();
    keyMap.reserve(static_cast<size_t>(files.getCount()));
    for (int i = 0; i < files.getCount(); i++) keyMap[files[i].key] = i;
    keysMapped = files.getCount();
  }
  auto found = keyMap.find(key);
  if (found == keyMap.end()) return -1;
  // A list that was cleared and filled again to the same count is checked
  // here: the key must still be the file's, else the list is searched and
  // mapped again at the next look-up.
  if (std::strcmp(files[found->second].key, key) == 0) return found->second;
  keysMapped = -1;
  for (int i = files.getCount() - 1; i >= 0; i--) {
    if (std::strcmp(files[i].key, key) == 0) return i;
  }
  return -1;
}

bool Package::headersMatch(const COMPFILEINFO& entry) {
  for (int i = 0; i < entry.pieceCount; i++) {
    const Piece& piece = pieces[static_cast<size_t>(entry.firstPiece + i)];
    const int64_t at = piece.data - kRecordHeaderSize;
    unsigned char header[kRecordHeaderSize];
    if (stripes->read(at, header, sizeof header, stripeWaiter) != 0) return false;
    COMPFILEINFO found;
    readRecordHeader(header, static_cast<uint64_t>(at), &found);
    bool continued = (found.flags & kRecordFlagContinued) != 0;
    if (packageIsSolid) found.flags &= ~kRecordFlagContinued;
    if (i == 0 ? !sameHeader(found, entry) : !sameFile(entry, found) || found.storedSize != piece.size) return false;
    if (entry.pieceCount > 1 && continued != (i + 1 < entry.pieceCount)) return false;
  }
  return true;
}

int Package::viewFile(int index, PackageFileView* view, unsigned char* outDigest) {
  view->release();
  if (index < 0 || index >= files.getCount() || !isLoaded()) return -1;
  const COMPFILEINFO& entry = files[index];
  const int64_t stored = static_cast<int64_t>(entry.recordOffset) + kRecordHeaderSize;

  if (packageIsSolid) {
    // The record's data is the file, which the writer stores as it is; a
    // damaged record that claims more than it holds is filled with zeros.
    // Larger files are read with a PackageFileReader.
    if (entry.size >= static_cast<uint64_t>(kMaxLoadSize)) return -1;
    uint32_t size = static_cast<uint32_t>(entry.size);
    if (recordsIndexed && !headersMatch(entry)) return -1;
    int first = stripes->stripeAt(stored);
    if (entry.pieceCount == 1 && entry.storedSize >= size && size > 0 && first >= 0 &&
        stored + size <= stripes->stripeEnd(first)) {
      const unsigned char* data = nullptr;
      if (stripes->acquire(first, &data, stripeWaiter) != 0) return -1;
      view->reader = stripes.get();
      view->pinned = first;
      view->bytes = data + (stored - stripes->stripeStart(first));
    } else {
      // Spanning stripes or records: assembled once, with a NUL behind it.
      QUtils::RefArray<unsigned char> copy(size + 1);
      if (!copy.get()) return -1;
      uint32_t filled = 0;
      for (int i = 0; i < entry.pieceCount && filled < size; i++) {
        const Piece& piece = pieces[static_cast<size_t>(entry.firstPiece + i)];
        uint32_t take = piece.size < size - filled ? piece.size : size - filled;
        if (take > 0 && stripes->read(piece.data, copy.get() + filled, take, stripeWaiter) != 0) return -1;
        filled += take;
      }
      std::memset(copy.get() + filled, 0, size + 1 - filled);
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

int PackageFileReader::open(Package* owner, int index, unsigned char* outDigest) {
  close();
  if (!owner || index < 0 || index >= owner->files.getCount() || !owner->isLoaded()) return -1;
  const COMPFILEINFO& file = owner->files[index];
  if (!owner->packageIsSolid) {
    // Each record is a stream of its own, inflated whole.
    uint32_t size = 0;
    if (owner->extractFile(index, &size, copy, nullptr) != 0) return -1;
  } else if (owner->recordsIndexed && !owner->headersMatch(file)) {
    return -1;
  }
  package = owner;
  entry = &file;
  if (outDigest) std::memcpy(outDigest, file.md5, sizeof(file.md5));
  return 0;
}

uint64_t PackageFileReader::size() const { return entry ? entry->size : 0; }

int PackageFileReader::next(const unsigned char** data, size_t* size) {
  *data = nullptr;
  *size = 0;
  if (!package) return -1;
  StripeReader* stripes = package->stripes.get();
  if (pinned >= 0) stripes->release(pinned);
  pinned = -1;
  if (handedOut >= entry->size) return 0;
  if (!copy.isNull()) {
    *data = copy.get();
    *size = static_cast<size_t>(entry->size);
    handedOut = entry->size;
    return 0;
  }

  while (piece < entry->pieceCount && position >= package->pieces[static_cast<size_t>(entry->firstPiece + piece)].size) {
    piece++;
    position = 0;
  }
  if (piece >= entry->pieceCount) {
    // A damaged record that claims more than it holds: the rest is zeros,
    // as when the file is handed out whole.
    static const unsigned char kZeros[4096] = {0};
    *data = kZeros;
    *size = static_cast<size_t>(std::min<uint64_t>(sizeof kZeros, entry->size - handedOut));
    handedOut += *size;
    return 0;
  }
  const Package::Piece& current = package->pieces[static_cast<size_t>(entry->firstPiece + piece)];
  const int64_t at = current.data + static_cast<int64_t>(position);
  int index = stripes->stripeAt(at);
  const unsigned char* bytes = nullptr;
  int result = stripes->acquire(index, &bytes, package->stripeWaiter);
  if (result != 0) return result;
  pinned = index;
  uint64_t take = std::min<uint64_t>(current.size - position, static_cast<uint64_t>(stripes->stripeEnd(index) - at));
  take = std::min<uint64_t>(take, entry->size - handedOut);
  *data = bytes + (at - stripes->stripeStart(index));
  *size = static_cast<size_t>(take);
  position += take;
  handedOut += take;
  return 0;
}

void PackageFileReader::close() {
  if (package && pinned >= 0) package->stripes->release(pinned);
  package = nullptr;
  entry = nullptr;
  pinned = -1;
  piece = 0;
  position = 0;
  handedOut = 0;
  copy.reset();
}
