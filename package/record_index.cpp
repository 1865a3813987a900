// The body of the record index (record_index.h): the builder's side, which
// gathers the record headers of a block and writes them as the index.
#include "package/record_index.h"

#include <cstring>

#include "package/deflate_codec.h"

namespace {

const char kSignature[8] = {'Q', 'l', 'u', 'x', 'R', 'I', 'x', 0};
const uint32_t kVersion = 1;

void writeU64(unsigned char* p, uint64_t value) {
  writeU32(p, static_cast<uint32_t>(value));
  writeU32(p + 4, static_cast<uint32_t>(value >> 32));
}

uint64_t readU64(const unsigned char* p) { return readU32(p) | static_cast<uint64_t>(readU32(p + 4)) << 32; }

}  // namespace

void RecordIndexWriter::add(int64_t blobOffset, const unsigned char* header) {
  unsigned char offset[8];
  writeU64(offset, static_cast<uint64_t>(blobOffset));
  entries.append(reinterpret_cast<const char*>(offset), sizeof offset);
  entries.append(reinterpret_cast<const char*>(header), kRecordHeaderSize);
  count++;
}

bool RecordIndexWriter::finish(int level, int64_t streamOffset, std::string* stream, std::string* pointer) {
  if (entries.size() > 0x7fffffffu) return false;
  size_t length = deflateZlibBound(entries.size());
  stream->resize(length);
  if (deflateZlibStream(reinterpret_cast<unsigned char*>(&(*stream)[0]), &length,
                        reinterpret_cast<const unsigned char*>(entries.data()), entries.size(), level) != 0) {
    return false;
  }
  stream->resize(length);
  pointer->assign(kRecordIndexPointerSize, '\0');
  unsigned char* p = reinterpret_cast<unsigned char*>(&(*pointer)[0]);
  std::memcpy(p, kSignature, sizeof kSignature);
  writeU32(p + 8, kVersion);
  writeU32(p + 12, count);
  writeU64(p + 16, static_cast<uint64_t>(streamOffset));
  writeU32(p + 24, static_cast<uint32_t>(length));
  writeU32(p + 28, static_cast<uint32_t>(entries.size()));
  return true;
}

bool readRecordIndexPointer(const unsigned char* pointer, int64_t blockSize, int64_t streamsEnd,
                            RecordIndexPlace* place) {
  if (std::memcmp(pointer, kSignature, sizeof kSignature) != 0 || readU32(pointer + 8) != kVersion) return false;
  place->count = readU32(pointer + 12);
  uint64_t offset = readU64(pointer + 16);
  place->packedSize = readU32(pointer + 24);
  place->unpackedSize = readU32(pointer + 28);
  if (place->count < 1 || place->unpackedSize != static_cast<uint64_t>(place->count) * kRecordIndexEntrySize)
    return false;
  if (offset < static_cast<uint64_t>(streamsEnd) || offset > static_cast<uint64_t>(blockSize) ||
      place->packedSize > static_cast<uint64_t>(blockSize) - offset) {
    return false;
  }
  place->streamOffset = static_cast<int64_t>(offset);
  return true;
}

bool decodeRecordIndex(const RecordIndexPlace& place, const unsigned char* stream, int64_t blobSize,
                       std::vector<unsigned char>* entries) {
  entries->resize(place.unpackedSize);
  size_t length = place.unpackedSize;
  if (inflateZlibStream(entries->data(), &length, stream, place.packedSize) != 0 || length != place.unpackedSize)
    return false;
  int64_t expected = 0;
  for (uint32_t i = 0; i < place.count; i++) {
    const unsigned char* entry = entries->data() + static_cast<size_t>(i) * kRecordIndexEntrySize;
    const unsigned char* header = entry + 8;
    if (readU64(entry) != static_cast<uint64_t>(expected)) return false;
    uint32_t magic = readU32(header + kRecordMagicOffset);
    bool last = i + 1 == place.count;
    if (magic != (last ? kRecordMagicEnd : kRecordMagicFile)) return false;
    expected += kRecordHeaderSize + (last ? 0 : static_cast<int64_t>(readU32(header + kRecordStoredSizeOffset)));
  }
  // The end record closes the blob: nothing stands behind it.
  return expected == blobSize;
}
