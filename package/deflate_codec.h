// Whole-buffer zlib streams (RFC 1950): the codec behind every compressed
// piece of a package, a stripe of a solid block or a file of a package that
// isn't solid.
//
// Both calls work on complete buffers, never on pieces of a stream. Where
// the build has libdeflate they use it, which inflates such buffers two to
// three times as fast as zlib's uncompress and deflates at zlib's ratio in
// half the time; otherwise they call zlib. The streams are the same either
// way, so a package written with one is read with the other.
//
// Thread rules: the calls keep no state between them and may run on any
// number of threads at once.
#ifndef QLUX_PACKAGE_DEFLATE_CODEC_H_
#define QLUX_PACKAGE_DEFLATE_CODEC_H_

#include <cstddef>
#include <cstdint>

// Results besides 0. The zlib build passes zlib's own (negative) codes on
// instead, which these never equal.
const int kCodecBadData = 1;       // not a zlib stream, or its check sum is wrong
const int kCodecNoRoom = 3;        // the stream inflates to more than the room
const int kCodecNoMemory = 4;      // the codec's state couldn't be allocated
const int kCodecUnsupported = 5;   // a level the codec doesn't have

// Inflates the complete stream `source` into `destination`, which has
// `*destinationSize` bytes of room. On success gives 0 and sets
// `*destinationSize` to the length written; otherwise a code above (or
// zlib's). Bytes behind the stream's end are ignored.
int inflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize);

// The most bytes deflateZlibStream() can give for `sourceSize` bytes.
size_t deflateZlibBound(size_t sourceSize);

// Deflates `source` into one complete stream at `level` (0 to 9, or -1 for
// the codec's default, which is 6). `*destinationSize` is the room on entry
// and the length written on return. Gives 0, or a code above (or zlib's).
int deflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize, int level);

// The codec in use, for benchmarks and logs: "libdeflate" or "zlib".
const char* deflateCodecName();

#endif  // QLUX_PACKAGE_DEFLATE_CODEC_H_
