// The body of the checksum record (checksum.h): finding the marker nearest
// the end, and summing the part of the file that the record covers.
#include "package/checksum.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "package/md5.h"

// Keeps the text in the image, where a package builder looks for it before
// it writes a current-style record; nothing reads the variable.
const char* volatile signedInstallerSupport = nullptr;

namespace {

const char kMarkerOld[] = "MD5SUM: ";
const char kMarkerCurrent[] = "v2sum: ";
const int kMarkerOldLength = 8;
const int kMarkerCurrentLength = 7;
// The file is read this much at a time: the digest doesn't depend on how
// its input is cut, and a large read costs one call where 4 KiB reads cost
// thousands for an installer of a few hundred megabytes.
const uint32_t kReadSize = 256 << 10;

// Feeds `length` bytes from the stream's position to `md5`; false on a
// short read, or if no buffer can be had.
bool digestRange(QUtils::PFileStream& file, int64_t length, MD5& md5) {
  std::vector<unsigned char> block(kReadSize);
  while (length > 0) {
    uint32_t want = length < kReadSize ? static_cast<uint32_t>(length) : kReadSize;
    uint32_t got = 0;
    if (file.read(block.data(), want, &got) != 0 || got != want) return false;
    md5.update(block.data(), got);
    length -= got;
  }
  return true;
}

bool verifyOpenFile(QUtils::PFileStream& file) {
  int64_t fileSize = file.size();
  if (fileSize < 24) return false;

  int64_t tailStart = fileSize > kChecksumSearchTail ? fileSize - kChecksumSearchTail : 0;
  int tailLength = static_cast<int>(fileSize - tailStart);
  unsigned char* tail = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(tailLength)));
  if (!tail) return false;
  uint32_t got = 0;
  if (file.seek(tailStart) != 0 || file.read(tail, static_cast<uint32_t>(tailLength), &got) != 0 ||
      got != static_cast<uint32_t>(tailLength)) {
    std::free(tail);
    return false;
  }

  // The marker nearest the end decides: a certificate table behind the
  // record may hold either text by chance, but never the record after it.
  int mode = 0;
  int64_t markerPosition = 0;
  for (int i = tailLength - 1; i >= 0 && mode == 0; i--) {
    if (tailLength - i >= kMarkerOldLength && std::memcmp(tail + i, kMarkerOld, kMarkerOldLength) == 0) {
      mode = kChecksumModeOld;
    } else if (tailLength - i >= kMarkerCurrentLength &&
               std::memcmp(tail + i, kMarkerCurrent, kMarkerCurrentLength) == 0) {
      mode = kChecksumModeCurrent;
    }
    if (mode != 0) markerPosition = tailStart + i;
  }
  std::free(tail);
  if (mode == 0) return false;

  int64_t start = mode == kChecksumModeOld ? 0 : kChecksumSkippedHead;
  int64_t length = markerPosition - start;
  if (length < 1 || file.seek(start) != 0) return false;
  MD5 md5;
  if (!digestRange(file, length, md5)) return false;
  unsigned char expected[kMD5DigestSize];
  md5.finish(expected);

  const char* marker = mode == kChecksumModeOld ? kMarkerOld : kMarkerCurrent;
  uint32_t markerLength = mode == kChecksumModeOld ? kMarkerOldLength : kMarkerCurrentLength;
  unsigned char record[kMarkerOldLength + kMD5DigestSize];
  if (file.read(record, markerLength + kMD5DigestSize, &got) != 0 || got != markerLength + kMD5DigestSize) {
    return false;
  }
  return std::memcmp(record, marker, markerLength) == 0 &&
         std::memcmp(record + markerLength, expected, kMD5DigestSize) == 0;
}

}  // namespace

bool verifyPackageChecksum(const char* fileName) {
  signedInstallerSupport = "SupportsSignedInstallers";
  QUtils::PFileStream file;
  if (file.openFile(fileName, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist) != 0) {
    return false;
  }
  bool valid = verifyOpenFile(file);
  file.close();
  return valid;
}

int writePackageChecksum(const char* fileName, int mode) {
  QUtils::PFileStream input;
  int result = input.openFile(fileName, QUtils::kGenericRead, QUtils::kShareRead,
                              QUtils::kModeMustExist | QUtils::kModeSequential);
  if (result != 0) return result;
  if (mode == kChecksumModeCurrent && (result = input.seek(kChecksumSkippedHead)) != 0) {
    input.close();
    return result;
  }
  MD5 md5;
  std::vector<unsigned char> block(kReadSize);
  for (;;) {
    uint32_t got = 0;
    result = input.read(block.data(), kReadSize, &got);
    if (result != 0) {
      input.close();
      return result;
    }
    if (got == 0) break;
    md5.update(block.data(), got);
  }
  input.close();

  unsigned char record[kMarkerOldLength + kMD5DigestSize];
  const char* marker = mode == kChecksumModeOld ? kMarkerOld : kMarkerCurrent;
  uint32_t markerLength = mode == kChecksumModeOld ? kMarkerOldLength : kMarkerCurrentLength;
  std::memcpy(record, marker, markerLength);
  md5.finish(record + markerLength);

  QUtils::PFileStream output;
  result = output.create(fileName, 1);
  if (result != 0) return result;
  uint32_t written = 0;
  result = output.write(record, markerLength + kMD5DigestSize, &written);
  if (result == 0 && written != markerLength + kMD5DigestSize) result = -1;
  int closed = output.close();
  return result != 0 ? result : closed;
}

int writePackageChecksum(const char* fileName) {
  QUtils::CharString setting;
  bool old = QUtils::getProcessEnvironment("OLD_CHECKSUMMING", &setting) && setting.getText()[0] == '1';
  int mode = old ? kChecksumModeOld : kChecksumModeCurrent;
  return writePackageChecksum(fileName, mode);
}
