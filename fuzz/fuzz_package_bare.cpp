// Fuzzes a bare package through the loader, as `qlux-setup -bin=FILE` reads
// it: the input is the file, opened at offset 0; every record it lists is
// then looked up by key and extracted.
#include <cstdint>

#include "fuzz/fuzz_scratch.h"
#include "package/package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string path = fuzzScratchWrite("package.bin", data, size);
  Package package;
  if (package.openPackage(path.c_str(), 0, 0) == 0) {
    for (int i = 0; i < package.files.getCount(); i++) {
      package.findFile(package.files[i].key);
      uint32_t length = 0;
      QUtils::RefArray<unsigned char> content;
      unsigned char digest[16];
      package.extractFile(i, &length, content, digest);
    }
    uint32_t length = 0;
    package.getFileData("install.xml", &length);
  }
  return 0;
}
