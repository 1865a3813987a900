// The record index: a copy of every record header of a solid block, with
// where each stands in the blob, which the package builder stores beside the
// block so that loading doesn't have to inflate the whole block to list the
// files.
//
// Without it the loader must inflate every stripe to find the headers, and
// the file stage then inflates them all again: it can hold only a few
// stripes in memory. With it, loading reads a few kilobytes.
//
// Where it lies, in the block's terms (solid_decompressor.h): the builder
// starts the first compressed stream kRecordIndexPointerSize bytes behind
// the stripe table, and puts the pointer in that gap; the index itself, one
// zlib stream, stands behind the last compressed stream. A reader that
// knows nothing of it skips both, as the block's layout allows gaps between
// the table and the streams and ignores what follows the last stream.
//
// The pointer (little-endian):
//   0   "QluxRIx\0"   signature
//   8   u32 1         version
//   12  u32 count     records, the end record included
//   16  u64           where the index stream starts, from the block's first byte
//   24  u32           its compressed length
//   28  u32           its length inflated: count x kRecordIndexEntrySize
// An entry of the inflated index: u64 blob offset of the record, then its
// 608-byte header as the blob holds it.
//
// The index is only a shortcut: a loader that finds it damaged or at odds
// with the block lists the records the long way, and the file stage checks
// each header against the blob before it uses the file's data.
#ifndef QLUX_PACKAGE_RECORD_INDEX_H_
#define QLUX_PACKAGE_RECORD_INDEX_H_

#include <cstdint>
#include <string>
#include <vector>

#include "package/format.h"

const int kRecordIndexPointerSize = 32;
const int kRecordIndexEntrySize = 8 + kRecordHeaderSize;

// Collects the index while the records are written.
class RecordIndexWriter {
 public:
  // Adds the record whose header is `header` (608 bytes), at `blobOffset`.
  void add(int64_t blobOffset, const unsigned char* header);
  // Deflates the index at `level` into `stream`, and gives the pointer for
  // a stream placed at `streamOffset` of the block. False if the codec fails
  // or the index is too large for the pointer's fields.
  bool finish(int level, int64_t streamOffset, std::string* stream, std::string* pointer);

 private:
  std::string entries;
  uint32_t count = 0;
};

// What a pointer says, once its fields were checked against the block.
struct RecordIndexPlace {
  uint32_t count;
  int64_t streamOffset;
  uint32_t packedSize;
  uint32_t unpackedSize;
};

// Reads the pointer in `pointer` (kRecordIndexPointerSize bytes). True if it
// is one, and the stream it names lies in a block of `blockSize` bytes
// behind `streamsEnd` (the end of the last compressed stream).
bool readRecordIndexPointer(const unsigned char* pointer, int64_t blockSize, int64_t streamsEnd,
                            RecordIndexPlace* place);

// Inflates the index stream and proves that its records chain through a
// blob of `blobSize` bytes: the first at 0, each next one where the one
// before ends, file records up to an end record that closes the blob.
// True with `entries` holding the inflated entries.
bool decodeRecordIndex(const RecordIndexPlace& place, const unsigned char* stream, int64_t blobSize,
                       std::vector<unsigned char>* entries);

#endif  // QLUX_PACKAGE_RECORD_INDEX_H_
