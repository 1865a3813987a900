// The body of the block table (block_table.h): writing it, and reading it
// back with every field checked before it is trusted.
#include "package/block_table.h"

#include <cstring>

#include "package/format.h"
#include "package/solid_decompressor.h"

// Keeps the text in the image, where a package builder looks for it before
// it writes a package of several blocks; nothing reads the variable.
const char* volatile largePackageSupport = nullptr;

namespace {

void writeU64(unsigned char* p, uint64_t value) {
  writeU32(p, static_cast<uint32_t>(value));
  writeU32(p + 4, static_cast<uint32_t>(value >> 32));
}

uint64_t readU64(const unsigned char* p) { return readU32(p) | static_cast<uint64_t>(readU32(p + 4)) << 32; }

// A stream position or length: far below what int64_t holds, so that sums
// of a few of them can't overflow.
const uint64_t kMaxStreamValue = uint64_t(1) << 60;

// A stem names a file in the installer's own directory, never another one.
bool isPlainStem(const std::string& stem) {
  if (stem.empty() || stem == "." || stem == "..") return false;
  return stem.find_first_of("/\\:") == std::string::npos;
}

}  // namespace

int64_t blockTableSize(int blocks, int files) {
  return kBlockTableHeadSize + static_cast<int64_t>(blocks) * kBlockEntrySize +
         static_cast<int64_t>(files) * kPackageFileEntrySize;
}

bool isBlockTable(const unsigned char* head) {
  largePackageSupport = "SupportsLargePackages";
  return std::memcmp(head, kSolidSignature, sizeof kSolidSignature) == 0 && readU32(head + 8) == kSolidMethodZlib &&
         readU32(head + 12) == kBlockTableVersion;
}

int readBlockTableSize(const unsigned char* head, int64_t* size) {
  if (!isBlockTable(head)) return kSolidBadVersion;
  uint32_t blocks = readU32(head + 16);
  uint32_t files = readU32(head + 20);
  if (blocks < 1 || blocks > static_cast<uint32_t>(kMaxBlocks) || files > static_cast<uint32_t>(kMaxPackageFiles))
    return kSolidBadVersion;
  *size = readU32(head + 56);
  if (*size < blockTableSize(static_cast<int>(blocks), static_cast<int>(files)) ||
      *size > blockTableSize(kMaxBlocks, kMaxPackageFiles)) {
    return kSolidTooShort;
  }
  return 0;
}

int readBlockTable(const unsigned char* data, int64_t size, BlockTable* table) {
  if (size < kBlockTableHeadSize) return kSolidTooShort;
  int64_t declared = 0;
  int result = readBlockTableSize(data, &declared);
  if (result != 0) return result;
  if (declared != size) return kSolidTooShort;
  const int blockCount = static_cast<int>(readU32(data + 16));
  const int fileCount = static_cast<int>(readU32(data + 20));

  uint64_t blob = readU64(data + 24);
  uint64_t own = readU64(data + 32);
  uint64_t index = readU64(data + 40);
  if (blob > kMaxStreamValue || own > kMaxStreamValue || index > kMaxStreamValue) return kSolidStripeTruncated;
  table->blobSize = static_cast<int64_t>(blob);
  table->ownBytes = static_cast<int64_t>(own);
  table->indexStart = static_cast<int64_t>(index);
  table->indexPackedSize = readU32(data + 48);
  table->indexCount = readU32(data + 52);
  const char* stem = reinterpret_cast<const char*>(data + 64);
  table->stem.assign(stem, strnlen(stem, kPartStemSize - 1));
  if (fileCount > 0 && !isPlainStem(table->stem)) return kSolidBadVersion;

  // The package files first: together with ownBytes they say how long the
  // stream is.
  table->files.resize(static_cast<size_t>(fileCount));
  uint64_t streamEnd = own;
  const unsigned char* entry = data + kBlockTableHeadSize + static_cast<int64_t>(blockCount) * kBlockEntrySize;
  for (PackageFilePlace& file : table->files) {
    uint64_t length = readU64(entry);
    if (length > kMaxStreamValue) return kSolidStripeTruncated;
    file.size = static_cast<int64_t>(length);
    std::memcpy(file.digest, entry + 8, kSHA256DigestSize);
    streamEnd += length;
    entry += kPackageFileEntrySize;
  }
  // The table lies in the table's own file, behind the package header.
  const uint64_t tableEnd = static_cast<uint64_t>(kPackageHeaderSize) + static_cast<uint64_t>(size);
  if (own < tableEnd) return kSolidTooShort;

  table->blocks.resize(static_cast<size_t>(blockCount));
  uint64_t blobAt = 0;
  uint64_t streamAt = tableEnd;
  entry = data + kBlockTableHeadSize;
  for (BlockPlace& block : table->blocks) {
    uint64_t blobStart = readU64(entry), blobSize = readU64(entry + 8);
    uint64_t start = readU64(entry + 16), length = readU64(entry + 24);
    entry += kBlockEntrySize;
    if (blobStart != blobAt || blobSize > kMaxStreamValue) return kSolidNotTiled;
    if (start < streamAt) return kSolidOverlap;
    if (start > streamEnd || length > streamEnd - start) return kSolidStripeTruncated;
    block.blobStart = static_cast<int64_t>(blobStart);
    block.blobSize = static_cast<int64_t>(blobSize);
    block.start = static_cast<int64_t>(start);
    block.size = static_cast<int64_t>(length);
    blobAt += blobSize;
    streamAt = start + length;
  }
  if (blobAt != blob) return kSolidNotTiled;
  if (index < streamAt) return kSolidOverlap;
  if (index > streamEnd || table->indexPackedSize > streamEnd - index) return kSolidStripeTruncated;
  return 0;
}

std::string writeBlockTable(const BlockTable& table, int64_t size) {
  std::string bytes(static_cast<size_t>(size), '\0');
  unsigned char* out = reinterpret_cast<unsigned char*>(&bytes[0]);
  std::memcpy(out, kSolidSignature, sizeof kSolidSignature);
  writeU32(out + 8, kSolidMethodZlib);
  writeU32(out + 12, kBlockTableVersion);
  writeU32(out + 16, static_cast<uint32_t>(table.blocks.size()));
  writeU32(out + 20, static_cast<uint32_t>(table.files.size()));
  writeU64(out + 24, static_cast<uint64_t>(table.blobSize));
  writeU64(out + 32, static_cast<uint64_t>(table.ownBytes));
  writeU64(out + 40, static_cast<uint64_t>(table.indexStart));
  writeU32(out + 48, table.indexPackedSize);
  writeU32(out + 52, table.indexCount);
  writeU32(out + 56, static_cast<uint32_t>(size));
  std::memcpy(out + 64, table.stem.data(), table.stem.size() < kPartStemSize ? table.stem.size() : kPartStemSize - 1);
  unsigned char* entry = out + kBlockTableHeadSize;
  for (const BlockPlace& block : table.blocks) {
    writeU64(entry, static_cast<uint64_t>(block.blobStart));
    writeU64(entry + 8, static_cast<uint64_t>(block.blobSize));
    writeU64(entry + 16, static_cast<uint64_t>(block.start));
    writeU64(entry + 24, static_cast<uint64_t>(block.size));
    entry += kBlockEntrySize;
  }
  for (const PackageFilePlace& file : table.files) {
    writeU64(entry, static_cast<uint64_t>(file.size));
    std::memcpy(entry + 8, file.digest, kSHA256DigestSize);
    entry += kPackageFileEntrySize;
  }
  return bytes;
}

std::string packageFileName(const std::string& stem, int number) {
  return stem + "-" + std::to_string(number) + ".qpk";
}
