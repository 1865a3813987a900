// Fuzzes the INI writer and reader on a file in the scratch directory.
//
// The input is the file's content and up to four NUL-separated texts behind
// it: section, key, value and the key to put it before. A missing text is
// passed as null, which selects the writer's other operations (delete a
// key, delete a section). Each input writes once and then reads the value,
// the section's keys and the list of sections back.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/ini.h"
#include "fuzz/fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const char* end = text + size;
  const char* contentEnd = static_cast<const char*>(std::memchr(text, 0, size));
  if (!contentEnd) contentEnd = end;

  // section, key, value, beforeKey: whatever follows the content's NUL.
  std::vector<std::string> fields;
  for (const char* at = contentEnd; at < end && fields.size() < 4;) {
    at++;
    const char* stop = static_cast<const char*>(std::memchr(at, 0, static_cast<size_t>(end - at)));
    if (!stop) stop = end;
    fields.emplace_back(at, static_cast<size_t>(stop - at));
    at = stop;
  }
  auto field = [&fields](size_t i) { return i < fields.size() ? fields[i].c_str() : nullptr; };

  std::string path =
      fuzzScratchWrite("settings.ini", data, static_cast<size_t>(contentEnd - text));
  QUtils::writeIniValue(path.c_str(), field(0), field(1), field(2), field(3));
  fuzzScratchRemove("settings.ini.qlux-new");

  char out[512];
  QUtils::readIniValue(path.c_str(), field(0), field(1), "default", out, sizeof out);
  QUtils::readIniValue(path.c_str(), field(0), nullptr, nullptr, out, sizeof out);
  QUtils::readIniValue(path.c_str(), nullptr, nullptr, nullptr, out, 16);
  return 0;
}
