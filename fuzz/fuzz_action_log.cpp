// Fuzzes the action log readers. The input is written as a log file; the
// engine reads its variable block (readLogVariables) and one variable by
// name (readLogVariable), then the uninstaller's reader loop walks the
// action lines and splits each into the fields its tag calls for. Nothing
// is undone: only the reading is exercised.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/test_support.h"
#include "foundation/errors.h"
#include "foundation/text.h"
#include "fuzz/fuzz_scratch.h"

namespace {

// Keeps the parsed numbers alive, as the uninstaller's use of them would.
volatile int sink;

// The uninstaller's two passes over the action lines, with its field
// splitting.
void walkActionLines(FILE* file) {
  char line[Installer::kLogLineSize];
  Installer::seekActionLines(file);
  long start = std::ftell(file);
  while (Installer::readLogLine(file, line, sizeof line)) {
    Installer::stripLogLine(line);
    if (Installer::hasLogTag(line, Installer::kLogModifyFile)) Installer::nextLogField(line);
  }
  if (start < 0 || std::fseek(file, start, SEEK_SET) != 0) return;
  while (Installer::readLogLine(file, line, sizeof line)) {
    Installer::stripLogLine(line);
    if (Installer::hasLogTag(line, Installer::kLogDir)) {
      const char* countField = Installer::nextLogField(line);
      const char* pathField = Installer::nextLogField(countField);
      char path[QUtils::kMaxPath];
      sink = std::atoi(countField);
      QUtils::copyText(path, pathField, sizeof path);
    } else if (Installer::hasLogTag(line, Installer::kLogFile)) {
      const char* mode = Installer::nextLogField(line);
      const char* path = Installer::nextLogField(mode);
      size_t modeLength = static_cast<size_t>(path - mode);
      while (modeLength > 0 && mode[modeLength - 1] == Installer::kLogTab) modeLength--;
      sink = std::strncmp(mode, Installer::kLogCreate, modeLength);
    } else if (Installer::hasLogTag(line, Installer::kLogRegKey) ||
               Installer::hasLogTag(line, Installer::kLogRegVal)) {
      bool isKey = Installer::hasLogTag(line, Installer::kLogRegKey);
      const char* rest = line + std::strlen(isKey ? Installer::kLogRegKey : Installer::kLogRegVal);
      if (*rest == Installer::kLogTab) rest++;
      QUtils::Table<QUtils::CharString> fields;
      QUtils::splitText(rest, Installer::kLogTab, fields);
    } else {
      Installer::nextLogField(Installer::nextLogField(line));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string path = fuzzScratchWrite("install.log", data, size);
  TestInstaller engine;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) std::abort();
  try {
    engine.readLogVariables(file);
  } catch (const QUtils::GenericError&) {
  }
  walkActionLines(file);
  // Short buffers: a line longer than the buffer is cut and its rest skipped.
  std::fseek(file, 0, SEEK_SET);
  char small[5];
  while (Installer::readLogLine(file, small, sizeof small)) Installer::stripLogLine(small);
  std::fclose(file);

  char value[64];
  engine.readLogVariable(path.c_str(), "A", value, sizeof value);
  return 0;
}
