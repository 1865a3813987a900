// Text and path helpers on UTF-8 byte strings.
#include "foundation/text.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace QUtils {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

}  // namespace

int copyText(char* destination, const char* source, int size) {
  if (!destination || size < 1) return 0;
  int n = 0;
  if (source) {
    while (n < size - 1 && source[n]) {
      destination[n] = source[n];
      n++;
    }
  }
  destination[n] = 0;
  return n + 1;
}

int appendText(char* destination, const char* source, int size) {
  if (!destination || size < 1) return 0;
  int used = static_cast<int>(strnlen(destination, static_cast<size_t>(size - 1)));
  return used + copyText(destination + used, source, size - used);
}

int compareNoCase(const char* a, const char* b) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  for (;; a++, b++) {
    char x = lowerAscii(*a), y = lowerAscii(*b);
    if (x != y || !x) return static_cast<unsigned char>(x) - static_cast<unsigned char>(y);
  }
}

int compareNoCase(const char* a, const char* b, size_t count) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  for (size_t i = 0; i < count; i++) {
    char x = lowerAscii(a[i]), y = lowerAscii(b[i]);
    if (x != y || !x) return static_cast<unsigned char>(x) - static_cast<unsigned char>(y);
  }
  return 0;
}

int normalizeSeparators(char* text, char separator) {
  if (!text || !*text) return 0;
  if (separator == 0) separator = kPathSeparator;
  int changes = 0;
  for (char* p = text; *p; p++) {
    if (isSeparator(*p) && *p != separator) {
      *p = separator;
      changes++;
    }
  }
  // From the second character on, a run of separators becomes one; the
  // first is left out so that a leading pair of a network path stays.
  char* out = text + 1;
  for (char* in = text + 1; *in; in++) {
    if (*in == separator && in[1] == separator) {
      changes++;
      continue;
    }
    *out++ = *in;
  }
  *out = 0;
  return changes;
}

bool isSameCleanPath(const char* a, const char* b) {
  char left[kMaxPath];
  char right[kMaxPath];
  copyText(left, a, sizeof left);
  copyText(right, b, sizeof right);
  cleanPath(left);
  cleanPath(right);
  collapseSeparators(left);
  collapseSeparators(right);
  return std::strcmp(left, right) == 0;
}

void collapseSeparators(char* text) {
  if (!text) return;
  char* out = text;
  for (char* in = text; *in; in++) {
    if (isSeparator(*in) && isSeparator(in[1])) continue;
    *out++ = *in;
  }
  *out = 0;
}

int stripTrailingSeparators(char* text, int size) {
  if (!text) return 0;
  int length = static_cast<int>(strnlen(text, size > 0 ? static_cast<size_t>(size) : 0));
  while (length > 1 && isSeparator(text[length - 1])) text[--length] = 0;
  return length;
}

void trimText(char* text) {
  if (!text) return;
  char* start = text;
  while (isBlank(*start)) start++;
  size_t length = std::strlen(start);
  while (length > 0 && isBlank(start[length - 1])) length--;
  std::memmove(text, start, length);
  text[length] = 0;
}

int cleanPath(char* text) {
  if (!text) return 0;
  size_t before = std::strlen(text);
  trimText(text);
  int changes = static_cast<int>(before - std::strlen(text));
  changes += normalizeSeparators(text, kPathSeparator);
  // Blanks directly before a separator, working back from the end.
  for (int i = static_cast<int>(std::strlen(text)) - 1; i > 0; i--) {
    if (text[i] == kPathSeparator && (text[i - 1] == ' ' || text[i - 1] == '\t')) {
      std::memmove(text + i - 1, text + i, std::strlen(text + i) + 1);
      changes++;
    }
  }
  return changes;
}

const char* baseName(const char* path) {
  const char* base = path;
  for (const char* p = path; *p; p++) {
    if (isSeparator(*p)) base = p + 1;
  }
  return base;
}

int appendPath(char* text, const char* name, int size) {
  if (!text || size < 1) return 0;
  int length = static_cast<int>(strnlen(text, static_cast<size_t>(size)));
  if (name && isSeparator(*name)) name++;
  if (length > 0 && !isSeparator(text[length - 1]) && name && *name) {
    char separator[2] = {kPathSeparator, 0};
    appendText(text, separator, size);
  }
  return appendText(text, name, size);
}

bool isAbsolutePath(const char* path) {
  if (!path || !path[0]) return false;
#ifdef _WIN32
  bool drive = ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z')) && path[1] == ':';
  if (drive) return isSeparator(path[2]);
  return isSeparator(path[0]) && isSeparator(path[1]);
#else
  return isSeparator(path[0]);
#endif
}

bool isSamePath(const char* a, const char* b) {
  if (!a || !b) return false;
  for (;; a++, b++) {
    if (isSeparator(*a) && isSeparator(*b)) continue;
#ifdef _WIN32
    char x = *a >= 'A' && *a <= 'Z' ? static_cast<char>(*a + 32) : *a;
    char y = *b >= 'A' && *b <= 'Z' ? static_cast<char>(*b + 32) : *b;
    if (x != y) return false;
#else
    if (*a != *b) return false;
#endif
    if (!*a) return true;
  }
}

bool isRootPath(const char* path) {
  if (!path || !path[0]) return false;
  const char* p = path;
  bool drive = ((p[0] >= 'A' && p[0] <= 'Z') || (p[0] >= 'a' && p[0] <= 'z')) && p[1] == ':';
  if (drive) p += 2;
  bool network = !drive && isSeparator(p[0]) && isSeparator(p[1]);
  // The parts that a root has: none, or a server and a share.
  int parts = 0;
  bool inPart = false;
  for (; *p; p++) {
    if (isSeparator(*p)) {
      inPart = false;
    } else if (!inPart) {
      inPart = true;
      parts++;
    }
  }
  if (network) return parts <= 2;
  return parts == 0 && (drive || isSeparator(path[0]));
}

int splitText(const char* text, char delimiter, Table<CharString>& list) {
  if (!text || !*text) return 0;
  list.setCount(0, 0);
  const char* start = text;
  for (;;) {
    const char* end = std::strchr(start, delimiter);
    if (!end) end = start + std::strlen(start);
    CharString part("");
    if (end > start) part.assignRange(start, static_cast<int>(end - start));
    list.add(part);
    if (!*end) break;
    start = end + 1;
  }
  return list.getCount();
}

bool textBetween(const char* text, char first, char last, char* out, int size) {
  if (!text || !out || size < 1) return false;
  const char* start = std::strchr(text, first);
  start = start ? start + 1 : text;
  const char* end = std::strrchr(text, last);
  if (!end) end = text + std::strlen(text);
  if (start > end) return false;
  int n = static_cast<int>(end - start);
  if (n > size - 1) n = size - 1;
  std::memcpy(out, start, static_cast<size_t>(n));
  out[n] = 0;
  return true;
}

void toLowerText(char* text) {
  if (!text) return;
  for (; *text; text++) *text = lowerAscii(*text);
}

CharString escapeText(const char* text, char character, char escape) {
  StringBuilder builder;
  if (text) {
    for (; *text; text++) {
      if (*text == character) builder.append(escape);
      builder.append(*text);
    }
  }
  return CharString(builder.getText());
}

bool parseInteger(int32_t* out, const char* text) {
  if (!text || !*text) return false;
  if (!(std::isdigit(static_cast<unsigned char>(*text)) || *text == '+' || *text == '-')) return false;
  char* end = nullptr;
  errno = 0;
  long long value = std::strtoll(text, &end, 10);
  if (end == text || *end || errno == ERANGE || value < INT32_MIN || value > INT32_MAX) return false;
  if (!std::isdigit(static_cast<unsigned char>(end[-1]))) return false;
  if (out) *out = static_cast<int32_t>(value);
  return true;
}

bool parseFloat(float* out, const char* text) {
  if (!text || !*text) return false;
  if (!(std::isdigit(static_cast<unsigned char>(*text)) || *text == '+' || *text == '-' || *text == '.'))
    return false;
  char* end = nullptr;
  errno = 0;
  float value = std::strtof(text, &end);
  if (end == text || *end || errno == ERANGE || !std::isfinite(value)) return false;
  if (out) *out = value;
  return true;
}

void formatNumber64(int64_t value, char* out, int radix, int size) {
  if (!out || size < 1) return;
  out[0] = 0;
  if (radix < 2 || radix > 16) return;
  char digits[72];
  int n = 0;
  bool negative = value < 0 && radix == 10;
  uint64_t v = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  do {
    digits[n++] = "0123456789ABCDEF"[v % static_cast<uint64_t>(radix)];
    v /= static_cast<uint64_t>(radix);
  } while (v);
  if (negative) digits[n++] = '-';
  int k = 0;
  while (n > 0 && k < size - 1) out[k++] = digits[--n];
  out[k] = 0;
}

void formatNumber(int32_t value, char* out, int radix, int size) {
  // Outside radix 10 a negative number shows its 32-bit pattern.
  if (radix != 10 && value < 0)
    formatNumber64(static_cast<int64_t>(static_cast<uint32_t>(value)), out, radix, size);
  else
    formatNumber64(value, out, radix, size);
}

int bytesToHex(char* out, int size, const unsigned char* data, int count) {
  if (!out || count < 0 || size < 2 * count + 1) return -1;
  for (int i = 0; i < count; i++) {
    out[2 * i] = "0123456789abcdef"[data[i] >> 4];
    out[2 * i + 1] = "0123456789abcdef"[data[i] & 15];
  }
  out[2 * count] = 0;
  return 2 * count;
}

int hexToBytes(unsigned char* out, int size, const char* text) {
  if (!out || !text) return -1;
  int n = 0;
  while (text[0] && n < size) {
    if (!text[1]) return -1;
    unsigned char pair[2];
    for (int i = 0; i < 2; i++) {
      unsigned char c = static_cast<unsigned char>(text[i]);
      pair[i] = static_cast<unsigned char>((c & 15) + (std::isalpha(c) ? 9 : 0));
    }
    out[n++] = static_cast<unsigned char>((pair[0] << 4) | (pair[1] & 15));
    text += 2;
  }
  return n;
}

int boundedFormat(char* out, int size, const char* format, ...) {
  if (!out || size < 1) return 0;
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(out, static_cast<size_t>(size), format, args);
  va_end(args);
  out[size - 1] = 0;
  if (n < 0 || n >= size) return -1;
  return n;
}

CharString systemPath(const char* path) {
  CharString result(path);
#ifndef _WIN32
  if (char* p = result.getBuffer()) {
    for (; *p; p++)
      if (*p == '\\') *p = '/';
  }
#endif
  return result;
}

}  // namespace QUtils
