// A stand-in installer for the builder's tests: it checks its own file, finds
// its package through the offset field, loads it, and lists every record as
//   KEY <tab> SIZE <tab> FLAGS <tab> MD5 OF THE EXTRACTED DATA <tab> RECORDED MD5
// after the lines "checksum ok|failed", "offset N" and "open RESULT".
// With an argument it loads that file instead of its own.
#include <cstdio>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "package/checksum.h"
#include "package/image_offset.h"
#include "package/md5.h"
#include "package/package.h"

namespace {

std::string hex(const unsigned char* bytes) {
  char text[2 * kMD5DigestSize + 1];
  QUtils::bytesToHex(text, sizeof(text), bytes, kMD5DigestSize);
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  char self[QUtils::kMaxPath];
  if (argc > 1) {
    QUtils::copyText(self, argv[1], sizeof(self));
  } else if (!QUtils::getModulePath(self, sizeof(self))) {
    std::printf("no module path\n");
    return 2;
  }
  std::printf("checksum %s\n", verifyPackageChecksum(self) ? "ok" : "failed");
  uint32_t offset = getPackageOffset();
  std::printf("offset %u\n", offset);
  Package package;
  int result = package.openPackage(self, offset, 0);
  std::printf("open %d\n", result);
  for (int i = 0; i < package.files.getCount(); i++) {
    QUtils::RefArray<unsigned char> data;
    uint32_t size = 0;
    unsigned char recorded[kMD5DigestSize];
    if (package.extractFile(i, &size, data, recorded) != 0) {
      std::printf("%s\textract failed\n", package.files[i].key);
      continue;
    }
    unsigned char actual[kMD5DigestSize];
    MD5::digest(data.get(), size, actual);
    std::printf("%s\t%u\t%u\t%s\t%s\n", package.files[i].key, size, package.files[i].flags, hex(actual).c_str(),
                hex(recorded).c_str());
  }
  return 0;
}
