// Line formatting, the consoles, the line ring, and the parsing side of
// qutils_cprint. Local time and the console's colours come from
// console_posix.cpp or console_windows.cpp.
#include "foundation/console.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace QUtils {

namespace {

const char* const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char kAlertPrefix[] = "*** ALERT! ";
const int kLongestStoredLine = 511;
const int kTagSize = 3;

// Appends a formatted piece to `out`, which holds `used` of `size` bytes.
int appendFormatted(char* out, int used, int size, const char* format, ...) __attribute__((format(printf, 4, 5)));
int appendFormatted(char* out, int used, int size, const char* format, ...) {
  if (used >= size - 1) return used;
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(out + used, static_cast<size_t>(size - used), format, args);
  va_end(args);
  if (n < 0) return used;
  return used + n < size - 1 ? used + n : size - 1;
}

}  // namespace

// ---------------------------------------------------------------------------
// PConsole

namespace {

// The prefix of the next line (numbering and time as `flags` ask), into
// `prefix` of 96 bytes; its length. Moves the line number on.
int linePrefix(PConsole* console, char* prefix, int size) {
  int used = 0;
  prefix[0] = 0;
  if (console->flags & kConsoleLineNumbers) {
    used = appendFormatted(prefix, used, size, "%4i:  ", console->lineNumber);
    console->lineNumber++;
  }
  if (console->flags & kConsoleTimeStamps) {
    ConsoleTime now;
    getConsoleTime(&now);
    int month = now.month < 0 ? 0 : now.month > 11 ? 11 : now.month;
    used = appendFormatted(prefix, used, size, "[%i/%s/%i|%02i:%02i:%02i]    ", now.year, kMonths[month], now.day,
                           now.hour, now.minute, now.second);
  }
  return used;
}

const int kPrefixSize = 96;

}  // namespace

void PConsole::print(const char* text) {
  if (!enabled) return;
  char prefix[kPrefixSize];
  int used = linePrefix(this, prefix, sizeof prefix);
  if (used > 0) write(prefix, used);
  int length = text ? static_cast<int>(std::strlen(text)) : 0;
  if (length > 0) write(text, length);
}

// A line that fits is handed over whole, line end included: a file console
// then writes it with one call.
void PConsole::printLine(const char* text) {
  if (!enabled) return;
  char line[kPrefixSize + kConsoleLineSize + 2];
  int length = text ? static_cast<int>(std::strlen(text)) : 0;
  if (length >= kConsoleLineSize) {
    print(text);
    write("\r\n", 2);
    return;
  }
  int used = linePrefix(this, line, kPrefixSize);
  if (length > 0) std::memcpy(line + used, text, static_cast<size_t>(length));
  used += length;
  line[used++] = '\r';
  line[used++] = '\n';
  write(line, used);
}

void PConsole::printf(const char* format, ...) {
  if (!enabled || !format) return;
  char line[kConsoleLineSize];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (n < 0) line[0] = 0;
  line[sizeof line - 1] = 0;
  printLine(line);
}

void PConsole::alert(const char* format, ...) {
  if (!enabled || !format) return;
  char line[kConsoleLineSize];
  int used = static_cast<int>(sizeof kAlertPrefix) - 1;
  std::memcpy(line, kAlertPrefix, static_cast<size_t>(used) + 1);
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(line + used, sizeof line - static_cast<size_t>(used), format, args);
  va_end(args);
  if (n < 0) line[used] = 0;
  line[sizeof line - 1] = 0;
  printLine(line);
}

// ---------------------------------------------------------------------------
// PFileConsole

PFileConsole::~PFileConsole() { close(); }

int PFileConsole::open(const char* name, int mode) {
  close();
  stream = new PFileStream();
  // A log holds what a run did and the values it was given: its file is
  // its owner's alone.
  int result = stream->create(name, mode | kModePrivate);
  if (result != 0) {
    delete stream;
    stream = nullptr;
    return result;
  }
  lineNumber = 0;
  return 0;
}

int PFileConsole::close() {
  if (!stream) return -1;
  int result = stream->close();
  delete stream;
  stream = nullptr;
  return result;
}

int PFileConsole::write(const char* text, int length) {
  if (!stream || !text || length <= 0) return 0;
  uint32_t written = 0;
  return stream->write(text, static_cast<uint32_t>(length), &written);
}

int PFileConsole::flush() { return stream ? stream->flush() : -1; }

bool PFileConsole::isOpen() { return stream && stream->isOpen() != 0; }

// ---------------------------------------------------------------------------
// Standard output and error

namespace {

// Prints `length` bytes of `text` up to its first NUL.
int printTerminated(std::FILE* to, const char* text, int length) {
  if (!text || length <= 0) return 0;
  char local[kConsoleLineSize];
  char* copy = length < static_cast<int>(sizeof local) ? local : static_cast<char*>(std::malloc(length + 1u));
  if (!copy) return -1;
  std::memcpy(copy, text, static_cast<size_t>(length));
  copy[length] = 0;
  int result = std::fprintf(to, "%s", copy) < 0 ? -1 : 0;
  if (copy != local) std::free(copy);
  return result;
}

}  // namespace

int PStdOutConsole::write(const char* text, int length) { return printTerminated(stdout, text, length); }

int PStdErrConsole::write(const char* text, int length) { return printTerminated(stderr, text, length); }

// ---------------------------------------------------------------------------
// PMultiConsole

int PMultiConsole::addConsole(PConsole* console) { return consoles.add(console); }

PConsole* PMultiConsole::getConsole(int index) {
  if (index < 0 || index >= consoles.getCount()) return nullptr;
  return consoles[index];
}

// Every member is asked; the result is the first failure.
int PMultiConsole::open(const char* name, int mode) {
  if (consoles.getCount() == 0) return -1;
  int result = 0;
  for (int i = 0; i < consoles.getCount(); i++) {
    int r = consoles[i]->open(name, mode);
    if (result == 0) result = r;
  }
  return result;
}

int PMultiConsole::close() {
  if (consoles.getCount() == 0) return -1;
  int result = 0;
  for (int i = 0; i < consoles.getCount(); i++) {
    int r = consoles[i]->close();
    if (result == 0) result = r;
  }
  return result;
}

void PMultiConsole::clear() {
  for (int i = 0; i < consoles.getCount(); i++) consoles[i]->clear();
}

int PMultiConsole::write(const char* text, int length) {
  int result = 0;
  for (int i = 0; i < consoles.getCount(); i++) {
    int r = consoles[i]->write(text, length);
    if (result == 0) result = r;
  }
  return result;
}

// ---------------------------------------------------------------------------
// PBufConsole
//
// Lines lie in the ring oldest first, from `first` on. While the ring hasn't
// wrapped they end at `writeAt`; once a line didn't fit before the ring's end
// and went to 0, the older lines end at `wrapEnd` and the newer ones run from
// 0 to `writeAt`. Tags and texts hold no zero byte, so the NUL behind each
// text marks where the next line starts, going forward or back.

int32_t PReadableConsole::tagOf(const char* text) {
  const unsigned char* tag = reinterpret_cast<const unsigned char*>(text) - kTagSize;
  int32_t value = ((tag[0] - 128) << 14) | ((tag[1] - 128) << 7) | (tag[2] - 128);
  return (value & 0x100000) ? value - 0x200000 : value;
}

PBufConsole::PBufConsole(int size)
    : ring(size > 0 ? new char[size] : nullptr),
      ringSize(size > 0 ? size : 0),
      first(0),
      writeAt(0),
      wrapEnd(size > 0 ? size : 0),
      count(0),
      longestAt(-1),
      longestLength(0),
      pendingLength(0) {}

PBufConsole::~PBufConsole() { delete[] ring; }

// Gathers pieces until a line end; a CR before it is part of the line end.
int PBufConsole::write(const char* text, int length) {
  if (!text || length <= 0) return 0;
  std::lock_guard<std::mutex> guard(lock);
  for (int i = 0; i < length; i++) {
    char c = text[i];
    if (c == '\n') {
      int n = pendingLength;
      if (n > 0 && pending[n - 1] == '\r') n--;
      store(pending, n, -1);
      pendingLength = 0;
    } else if (pendingLength < kLongestStoredLine) {
      pending[pendingLength++] = c;
    }
  }
  return 0;
}

void PBufConsole::addLine(const char* text, int length, int32_t tag) {
  if (!text) text = "";
  if (length < 0) length = static_cast<int>(std::strlen(text));
  std::lock_guard<std::mutex> guard(lock);
  store(text, length, tag);
}

void PBufConsole::clear() {
  std::lock_guard<std::mutex> guard(lock);
  first = writeAt = 0;
  wrapEnd = ringSize;
  count = 0;
  longestAt = -1;
  longestLength = 0;
  pendingLength = 0;
}

int PBufConsole::getLineCount() {
  std::lock_guard<std::mutex> guard(lock);
  return count;
}

int PBufConsole::getLongestLength() {
  std::lock_guard<std::mutex> guard(lock);
  return longestLength;
}

int PBufConsole::lineLength(int position) const {
  return kTagSize + static_cast<int>(std::strlen(ring + position + kTagSize)) + 1;
}

void PBufConsole::dropOldest() {
  if (first == longestAt) longestAt = -1;  // found again once the new line is in
  first += lineLength(first);
  count--;
  if (count > 0 && first >= wrapEnd) {
    first = 0;
    wrapEnd = ringSize;
  }
}

void PBufConsole::findLongest() {
  longestAt = -1;
  longestLength = 0;
  int position = first;
  for (int i = 0; i < count; i++) {
    int length = lineLength(position) - kTagSize - 1;
    if (longestAt < 0 || length > longestLength) {
      longestAt = position;
      longestLength = length;
    }
    position += length + kTagSize + 1;
    if (position >= wrapEnd) position = 0;
  }
}

void PBufConsole::store(const char* text, int length, int32_t tag) {
  if (length > kLongestStoredLine) length = kLongestStoredLine;
  int need = kTagSize + length + 1;
  if (need > ringSize) return;

  // Make room: past the newest line up to the ring's end, else from 0 on,
  // taking away the oldest lines until the new one fits before them.
  for (;;) {
    if (count == 0) {
      first = writeAt = 0;
      wrapEnd = ringSize;
      break;
    }
    if (writeAt > first) {
      if (writeAt + need <= ringSize) break;
      wrapEnd = writeAt;
      writeAt = 0;
    } else {
      if (writeAt + need <= first) break;
      dropOldest();
    }
  }

  unsigned char* at = reinterpret_cast<unsigned char*>(ring + writeAt);
  uint32_t bits = static_cast<uint32_t>(tag) & 0x1FFFFF;
  at[0] = static_cast<unsigned char>(((bits >> 14) & 0x7F) + 128);
  at[1] = static_cast<unsigned char>(((bits >> 7) & 0x7F) + 128);
  at[2] = static_cast<unsigned char>((bits & 0x7F) + 128);
  for (int i = 0; i < length; i++) {
    signed char c = static_cast<signed char>(text[i]);
    at[kTagSize + i] = c < 31 ? ' ' : static_cast<unsigned char>(c);
  }
  at[kTagSize + length] = 0;
  int stored = writeAt;
  writeAt += need;
  count++;
  if (longestAt < 0) {
    findLongest();
  } else if (length > longestLength) {
    longestAt = stored;
    longestLength = length;
  }
}

void PBufConsole::begin(Iterator* iterator) {
  lock.lock();
  iterator->console = this;
  iterator->index = 0;
  iterator->position = first;
}

void PBufConsole::end(Iterator* iterator) {
  lock.lock();
  iterator->console = this;
  iterator->index = count;
  iterator->position = writeAt;
}

void PBufConsole::release(Iterator* iterator) {
  if (iterator->console != this) return;
  iterator->console = nullptr;
  lock.unlock();
}

const char* PBufConsole::next(Iterator* iterator) {
  if (iterator->index < 0 || iterator->index >= count) return nullptr;
  int position = iterator->position;
  const char* text = ring + position + kTagSize;
  position += lineLength(position);
  if (position >= wrapEnd) position = 0;
  iterator->position = position;
  iterator->index++;
  return text;
}

const char* PBufConsole::previous(Iterator* iterator) {
  if (iterator->index <= 0 || iterator->index > count) return nullptr;
  int position = iterator->position;
  if (position == 0) position = wrapEnd;  // the line before lies at the top
  iterator->index--;
  int start;
  if (iterator->index == 0) {
    start = first;
  } else {
    start = position - 1;  // the NUL of the line we go back to
    while (start > 0 && ring[start - 1] != 0) start--;
  }
  iterator->position = start;
  return ring + start + kTagSize;
}

// ---------------------------------------------------------------------------
// qutils_cprint

namespace {

const int kLongestSequence = 64;

struct ColourSequence {
  const char* text;  // behind the ESC
  int attribute;
};

const ColourSequence kSequences[] = {
    {"[0;31m", 0x4}, {"[0;32m", 0x2}, {"[0;33m", 0x6}, {"[0;34m", 0x3},
    {"[1;34m", 0xB}, {"[0;35m", 0x5}, {"[0m", -1},
};

int attributeOf(const char* sequence, int length) {
  for (const ColourSequence& known : kSequences) {
    int n = static_cast<int>(std::strlen(known.text));
    if (n == length - 1 && std::memcmp(known.text, sequence + 1, static_cast<size_t>(n)) == 0) return known.attribute;
  }
  return -2;
}

// Splits the text at each sequence: the text before it goes out in the
// attribute in force, then the sequence's attribute is set.
void printColoured(ColourOutput* out, const char* text, int length) {
  int start = 0;
  int i = 0;
  while (i < length) {
    if (text[i] != 27) {
      i++;
      continue;
    }
    if (i > start) out->text(text + start, i - start);
    int end = i + 1;
    while (end < length && end - i < kLongestSequence && text[end] != 'm') end++;
    if (end >= length || text[end] != 'm') {
      // No 'm': a sequence cut off by the end of the text is dropped.
      if (end - i >= kLongestSequence) std::printf("qutils_cprint: Incorrect ESC length!\n");
      return;
    }
    out->sequence(text + i, end + 1 - i, attributeOf(text + i, end + 1 - i));
    i = start = end + 1;
  }
  if (length > start) out->text(text + start, length - start);
}

}  // namespace

void qutils_cprint(int colour, const char* format, ...) {
  if (!format) return;
  char local[2048];
  char* text = local;
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(local, sizeof local, format, args);
  va_end(args);
  if (n < 0) {
    local[sizeof local - 1] = 0;
    n = static_cast<int>(std::strlen(local));
  } else if (n >= static_cast<int>(sizeof local)) {
    char* large = static_cast<char*>(std::malloc(static_cast<size_t>(n) + 1));
    if (large) {
      va_start(args, format);
      std::vsnprintf(large, static_cast<size_t>(n) + 1, format, args);
      va_end(args);
      text = large;
    } else {
      n = static_cast<int>(sizeof local) - 1;
    }
  }
  if (n > 0) {
    ColourOutput out(colour != 0);
    if (out.isValid())
      printColoured(&out, text, n);
    else
      std::printf("qutils_cprint: Invalid handle!\n");
  }
  if (text != local) std::free(text);
}

}  // namespace QUtils
