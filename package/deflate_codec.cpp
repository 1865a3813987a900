// The body of the zlib codec (deflate_codec.h), through libdeflate where the
// build has it and zlib elsewhere.
#include "package/deflate_codec.h"

#ifdef QLUX_WITH_LIBDEFLATE
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

#include <climits>

#ifdef QLUX_WITH_LIBDEFLATE

// The codec's state is made for each call: a decompressor is a few kilobytes
// and a compressor a few hundred, against buffers of megabytes, and no call
// then shares anything with another thread.

int inflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize) {
  libdeflate_decompressor* codec = libdeflate_alloc_decompressor();
  if (!codec) return kCodecNoMemory;
  size_t written = 0;
  libdeflate_result result =
      libdeflate_zlib_decompress(codec, source, sourceSize, destination, *destinationSize, &written);
  libdeflate_free_decompressor(codec);
  if (result == LIBDEFLATE_INSUFFICIENT_SPACE) return kCodecNoRoom;
  if (result != LIBDEFLATE_SUCCESS) return kCodecBadData;
  *destinationSize = written;
  return 0;
}

size_t deflateZlibBound(size_t sourceSize) {
  // Called without a compressor, libdeflate gives the bound of every level.
  return libdeflate_zlib_compress_bound(nullptr, sourceSize);
}

int deflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize, int level) {
  if (level < 0) level = 6;
  if (level > 9) return kCodecUnsupported;
  libdeflate_compressor* codec = libdeflate_alloc_compressor(level);
  if (!codec) return kCodecNoMemory;
  size_t written = libdeflate_zlib_compress(codec, source, sourceSize, destination, *destinationSize);
  libdeflate_free_compressor(codec);
  // libdeflate gives 0 only when the room is too small.
  if (written == 0) return kCodecNoRoom;
  *destinationSize = written;
  return 0;
}

const char* deflateCodecName() { return "libdeflate"; }

#else

int inflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize) {
  // zlib counts in uLong, which is 32 bits on Windows.
  if (*destinationSize > ULONG_MAX || sourceSize > ULONG_MAX) return kCodecNoRoom;
  uLongf length = static_cast<uLongf>(*destinationSize);
  int result = uncompress(destination, &length, source, static_cast<uLong>(sourceSize));
  if (result != Z_OK) return result;
  *destinationSize = length;
  return 0;
}

size_t deflateZlibBound(size_t sourceSize) { return compressBound(static_cast<uLong>(sourceSize)); }

int deflateZlibStream(unsigned char* destination, size_t* destinationSize, const unsigned char* source,
                      size_t sourceSize, int level) {
  if (*destinationSize > ULONG_MAX || sourceSize > ULONG_MAX) return kCodecNoRoom;
  uLongf length = static_cast<uLongf>(*destinationSize);
  int result = compress2(destination, &length, source, static_cast<uLong>(sourceSize), level);
  if (result != Z_OK) return result;
  *destinationSize = length;
  return 0;
}

const char* deflateCodecName() { return "zlib"; }

#endif
