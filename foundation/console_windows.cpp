// Local time and qutils_cprint's output on Windows: the colour sequences
// become text attributes of the console window. A colour keeps the
// background the console had, and the console's first attribute comes back
// at the end. Output that isn't a console gets the plain text.
#include <windows.h>

#include <cstdio>

#include "foundation/console.h"

namespace QUtils {

void getConsoleTime(ConsoleTime* out) {
  SYSTEMTIME now;
  GetLocalTime(&now);
  out->year = now.wYear;
  out->month = now.wMonth - 1;
  out->day = now.wDay;
  out->hour = now.wHour;
  out->minute = now.wMinute;
  out->second = now.wSecond;
}

ColourOutput::ColourOutput(bool colour)
    : valid(true), keepSequences(false), changed(false), console(-1), original(0x7) {
  if (!colour) return;
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  if (output == INVALID_HANDLE_VALUE || output == nullptr) {
    valid = false;
    return;
  }
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (GetConsoleScreenBufferInfo(output, &info)) {
    console = reinterpret_cast<intptr_t>(output);
    original = info.wAttributes;
  }
}

ColourOutput::~ColourOutput() {
  std::fflush(stdout);
  if (changed) SetConsoleTextAttribute(reinterpret_cast<HANDLE>(console), static_cast<WORD>(original));
}

void ColourOutput::text(const char* text, int length) {
  if (length > 0) std::fwrite(text, 1, static_cast<size_t>(length), stdout);
}

void ColourOutput::sequence(const char*, int, int attribute) {
  if (console == -1 || attribute == -2) return;
  // What was written before must reach the console in the old colour.
  std::fflush(stdout);
  int value = attribute == -1 ? original : ((original & 0xF0) | attribute);
  SetConsoleTextAttribute(reinterpret_cast<HANDLE>(console), static_cast<WORD>(value));
  changed = true;
}

}  // namespace QUtils
