// UTF-8 <-> UTF-16 conversion that survives any byte sequence, and
// TextConverter.
#include "foundation/convert.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace QUtils {

namespace {

// Bytes that are not valid UTF-8 travel as this plane's code points.
const uint32_t kRawBase = 0x100000;

int leadingOnes(unsigned char c) {
  int n = 0;
  while (n < 8 && (c & (0x80 >> n))) n++;
  return n;
}

// Decodes one valid sequence at `s`; gives its length, or 0 if not valid.
int decodeSequence(const unsigned char* s, uint32_t* out) {
  int k = leadingOnes(s[0]);
  if (k < 2 || k > 4) return 0;
  uint32_t cp = s[0] & (0x7F >> k);
  for (int i = 1; i < k; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  static const uint32_t kMinimum[5] = {0, 0, 0x7F, 0x7FF, 0xFFFF};
  if (cp <= kMinimum[k]) return 0;
  if (cp >= kRawBase && cp <= kRawBase + 0xFF) return 0;
  if (cp >= 0x110000) return 0;
  *out = cp;
  return k;
}

}  // namespace

int utf8ToWide(const char* text, WideChar* out, int size) {
  if (!text) {
    if (out && size > 0) out[0] = 0;
    return 0;
  }
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  int n = 0;
  while (*s) {
    uint32_t cp;
    int used;
    if (*s < 0x80) {
      cp = *s;
      used = 1;
    } else {
      used = decodeSequence(s, &cp);
      if (used == 0) {
        cp = kRawBase + *s;
        used = 1;
      }
    }
    int units = cp > 0xFFFF ? 2 : 1;
    if (out) {
      if (n + units > size - 1) break;
      if (units == 1) {
        out[n] = static_cast<WideChar>(cp);
      } else {
        uint32_t v = cp - 0x10000;
        out[n] = static_cast<WideChar>(0xD800 + (v >> 10));
        out[n + 1] = static_cast<WideChar>(0xDC00 + (v & 0x3FF));
      }
    }
    n += units;
    s += used;
  }
  if (out && size > 0) out[n < size ? n : size - 1] = 0;
  return n;
}

int wideToUtf8(const WideChar* text, char* out, int size) {
  if (!text) {
    if (out && size > 0) out[0] = 0;
    return 0;
  }
  int n = 0;
  for (int i = 0; text[i]; i++) {
    uint32_t cp = static_cast<uint16_t>(text[i]);
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      uint32_t low = static_cast<uint16_t>(text[i + 1]);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        i++;
      }
    }
    unsigned char bytes[4];
    int count;
    if (cp >= kRawBase && cp <= kRawBase + 0xFF) {
      bytes[0] = static_cast<unsigned char>(cp - kRawBase);
      count = 1;
    } else if (cp < 0x80) {
      bytes[0] = static_cast<unsigned char>(cp);
      count = 1;
    } else if (cp < 0x800) {
      bytes[0] = static_cast<unsigned char>(0xC0 | (cp >> 6));
      bytes[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      count = 2;
    } else if (cp < 0x10000) {
      bytes[0] = static_cast<unsigned char>(0xE0 | (cp >> 12));
      bytes[1] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      bytes[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      count = 3;
    } else {
      bytes[0] = static_cast<unsigned char>(0xF0 | (cp >> 18));
      bytes[1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
      bytes[2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      bytes[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      count = 4;
    }
    if (out) {
      if (n + count > size - 1) break;
      std::memcpy(out + n, bytes, static_cast<size_t>(count));
    }
    n += count;
  }
  if (out && size > 0) out[n < size ? n : size - 1] = 0;
  return n;
}

TextConverter::TextConverter(const char* text)
    : narrowText(text), wideText(nullptr), ownedNarrow(nullptr), ownedWide(nullptr) {}

TextConverter::TextConverter(const WideChar* text)
    : narrowText(nullptr), wideText(text), ownedNarrow(nullptr), ownedWide(nullptr) {}

TextConverter::TextConverter(const CharString& text)
    : narrowText(text.getText()), wideText(nullptr), ownedNarrow(nullptr), ownedWide(nullptr) {
  // The handle may go before we do; keep a copy of its text.
  if (narrowText) {
    size_t n = std::strlen(narrowText) + 1;
    ownedNarrow = static_cast<char*>(std::malloc(n));
    std::memcpy(ownedNarrow, narrowText, n);
    narrowText = ownedNarrow;
  }
}

TextConverter::~TextConverter() {
  std::free(ownedNarrow);
  std::free(ownedWide);
}

const char* TextConverter::narrow() {
  if (narrowText || !wideText) return narrowText;
  int n = wideToUtf8(wideText, nullptr, 0) + 1;
  ownedNarrow = static_cast<char*>(std::malloc(static_cast<size_t>(n)));
  wideToUtf8(wideText, ownedNarrow, n);
  narrowText = ownedNarrow;
  return narrowText;
}

const WideChar* TextConverter::wide() {
  if (wideText || !narrowText) return wideText;
  int n = utf8ToWide(narrowText, nullptr, 0) + 1;
  ownedWide = static_cast<WideChar*>(std::malloc(sizeof(WideChar) * static_cast<size_t>(n)));
  utf8ToWide(narrowText, ownedWide, n);
  wideText = ownedWide;
  return wideText;
}

int TextConverter::toNarrow(char* buffer, int size) {
  if (narrowText) {
    size_t n = std::strlen(narrowText);
    if (size <= 0) return 0;
    if (n > static_cast<size_t>(size - 1)) n = static_cast<size_t>(size - 1);
    std::memcpy(buffer, narrowText, n);
    buffer[n] = 0;
    return static_cast<int>(n);
  }
  if (!wideText) {
    if (size > 0) buffer[0] = 0;
    return 0;
  }
  return wideToUtf8(wideText, buffer, size);
}

int TextConverter::toWide(WideChar* buffer, int size) {
  if (wideText) {
    int n = 0;
    while (wideText[n] && n < size - 1) {
      buffer[n] = wideText[n];
      n++;
    }
    if (size > 0) buffer[n] = 0;
    return n;
  }
  return utf8ToWide(narrowText, buffer, size);
}

int TextConverter::narrowLength() {
  const char* text = narrow();
  return text ? static_cast<int>(std::strlen(text)) + 1 : 0;
}

int TextConverter::wideLength() {
  const WideChar* text = wide();
  if (!text) return 0;
  int n = 0;
  while (text[n]) n++;
  return n + 1;
}

}  // namespace QUtils
