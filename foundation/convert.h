// Conversion between UTF-8 and UTF-16, lossless in both directions: bytes
// that are not valid UTF-8 travel as code points 0x100000 + byte and come
// back as the same byte. TextConverter is a short-lived stack object that
// gives a text in the form a platform call wants.
#ifndef QLUX_FOUNDATION_CONVERT_H_
#define QLUX_FOUNDATION_CONVERT_H_

#include "foundation/charstring.h"

namespace QUtils {

// A 16-bit unit of wide text: the platform's wchar_t on Windows.
#ifdef _WIN32
typedef wchar_t WideChar;
#else
typedef char16_t WideChar;
#endif

// With a null `out` they only count. Sizes are in units of the output; the
// result is the number of units written (or needed), without the NUL.
int utf8ToWide(const char* text, WideChar* out, int size);
int wideToUtf8(const WideChar* text, char* out, int size);

class TextConverter {
 public:
  explicit TextConverter(const char* text);
  explicit TextConverter(const WideChar* text);
  explicit TextConverter(const CharString& text);
  TextConverter(const TextConverter&) = delete;
  TextConverter& operator=(const TextConverter&) = delete;
  ~TextConverter();

  const char* narrow();
  const WideChar* wide();
  int toNarrow(char* buffer, int size);
  int toWide(WideChar* buffer, int size);
  // Lengths with the terminator; 0 for a null source.
  int narrowLength();
  int wideLength();

 private:
  const char* narrowText;
  const WideChar* wideText;
  char* ownedNarrow;
  WideChar* ownedWide;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_CONVERT_H_
