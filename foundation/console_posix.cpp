// Local time and qutils_cprint's output on POSIX. A terminal understands the
// colour sequences itself, so they stay in the text; anywhere else (a file,
// a pipe) they would only be noise and are dropped.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "foundation/console.h"

namespace QUtils {

void getConsoleTime(ConsoleTime* out) {
  std::time_t now = std::time(nullptr);
  struct tm local;
  if (!localtime_r(&now, &local)) {
    *out = ConsoleTime{1970, 0, 1, 0, 0, 0};
    return;
  }
  out->year = local.tm_year + 1900;
  out->month = local.tm_mon;
  out->day = local.tm_mday;
  out->hour = local.tm_hour;
  out->minute = local.tm_min;
  out->second = local.tm_sec;
}

ColourOutput::ColourOutput(bool colour)
    : valid(true), keepSequences(false), changed(false), console(-1), original(0) {
  if (!colour) return;
  std::fflush(stdout);
  valid = fcntl(STDOUT_FILENO, F_GETFD) != -1;
  keepSequences = valid && isatty(STDOUT_FILENO);
}

ColourOutput::~ColourOutput() {
  if (changed) std::fputs("\x1b[0m", stdout);
  std::fflush(stdout);
}

void ColourOutput::text(const char* text, int length) {
  if (length > 0) std::fwrite(text, 1, static_cast<size_t>(length), stdout);
}

void ColourOutput::sequence(const char* text, int length, int attribute) {
  if (!keepSequences || length <= 0) return;
  std::fwrite(text, 1, static_cast<size_t>(length), stdout);
  changed = attribute != -1;
}

}  // namespace QUtils
