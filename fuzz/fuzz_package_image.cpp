// Fuzzes a whole installer file: the checksum record at its end, then the
// package at the offset the image's offset field names.
//
// At run time the field is read from the program's own loaded image; here
// it is found in the input the way the builder finds it, by the text behind
// it. A fuzzer can't forge an MD5 digest, so the package is opened whatever
// the check said, which reaches the loader with offsets the program itself
// would only meet in a file whose checksum was made to match.
#include <cstdint>
#include <cstring>

#include "fuzz/fuzz_scratch.h"
#include "package/checksum.h"
#include "package/package.h"

namespace {

const char kOffsetMarker[] = "ARYIMAGEOFFSET_";  // with its NUL: 16 bytes

uint32_t findOffset(const uint8_t* data, size_t size) {
  const size_t markerSize = sizeof kOffsetMarker;
  for (size_t at = 4; at + markerSize <= size; at++) {
    if (std::memcmp(data + at, kOffsetMarker, markerSize) == 0) {
      const uint8_t* field = data + at - 4;
      return static_cast<uint32_t>(field[0]) | (static_cast<uint32_t>(field[1]) << 8) |
             (static_cast<uint32_t>(field[2]) << 16) | (static_cast<uint32_t>(field[3]) << 24);
    }
  }
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string path = fuzzScratchWrite("installer.bin", data, size);
  verifyPackageChecksum(path.c_str());
  Package package;
  if (package.openPackage(path.c_str(), findOffset(data, size), kRunFlagBackup) == 0) {
    for (int i = 0; i < package.files.getCount(); i++) {
      uint32_t length = 0;
      QUtils::RefArray<unsigned char> content;
      package.extractFile(i, &length, content, nullptr);
    }
  }
  return 0;
}
