// Fuzzes restoring a backup file without letting it write anywhere but its
// own scratch directory.
//
// The input is the backup's body, the part behind the magic. Before the
// restore sees it, the target reads the records the way restore() does and
// replaces each record's path with one of three fixed names in the scratch
// directory; sizes, check sums, content and every damaged or cut-off record
// pass through as they came. Where the target stops understanding the
// input (a bad name size, a short field, content that runs past the end) it
// copies the rest unchanged, and restore() stops at that same place before
// it writes anything, so no path from the input ever reaches the file
// system.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/backup_file.h"
#include "engine/test_support.h"
#include "fuzz/fuzz_scratch.h"

namespace {

const char kMagic[] = "Halvo Software installer backup file.\n";  // with its NUL
const char* const kTargets[] = {"restored0", "restored1", "restored2"};

uint64_t readLittleEndian(const uint8_t* in, int bytes) {
  uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; i--) value = (value << 8) | in[i];
  return value;
}

void appendLittleEndian(std::string* out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; i++) out->push_back(static_cast<char>(value >> (8 * i)));
}

// The backup to restore: the magic, then the input with every whole
// record's path replaced by a scratch path.
std::string rewriteBackup(const uint8_t* data, size_t size) {
  std::string out(kMagic, sizeof kMagic);
  size_t at = 0;
  for (int record = 0;; record++) {
    if (size - at < 2) break;
    uint64_t nameSize = readLittleEndian(data + at, 2);
    if (nameSize <= 1 || nameSize > static_cast<uint64_t>(BackupFile::kMaxNameSize)) break;
    if (size - at - 2 < nameSize + 12) break;
    uint64_t contentSize = readLittleEndian(data + at + 2 + nameSize, 8);
    size_t contentStart = at + 2 + nameSize + 12;
    if (contentSize > size - contentStart) break;

    std::string path = fuzzScratchPath(kTargets[record % 3]);
    appendLittleEndian(&out, path.size() + 1, 2);
    out.append(path.c_str(), path.size() + 1);
    out.append(reinterpret_cast<const char*>(data + at + 2 + nameSize), 12 + contentSize);
    at = contentStart + contentSize;
  }
  // The end record, or whatever the restore will stop at unwritten. A path
  // it reads there is blanked all the same, to a relative name that can only
  // land in the scratch directory (the working directory), so that even a
  // restore that went on past its checks couldn't write elsewhere.
  size_t restStart = out.size();
  out.append(reinterpret_cast<const char*>(data + at), size - at);
  if (size - at >= 2) {
    size_t nameSize = static_cast<size_t>(readLittleEndian(data + at, 2));
    for (size_t i = restStart + 2; i < out.size() && i < restStart + 2 + nameSize; i++) out[i] = 'z';
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (chdir(fuzzScratchDir().c_str()) != 0) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const char* name : kTargets) fuzzScratchRemove(name);
  std::string backup = rewriteBackup(data, size);
  std::string path =
      fuzzScratchWrite("backup.bak", reinterpret_cast<const uint8_t*>(backup.data()), backup.size());

  BackupFile file;
  if (file.openForRestore(path.c_str()) == 0) {
    LinesConsole console;
    file.restore(&console, nullptr);
  }
  file.close();
  return 0;
}
