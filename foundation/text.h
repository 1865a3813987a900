// Text helpers on NUL-terminated UTF-8 byte strings.
//
// Copies into fixed fields truncate silently and always terminate. Path
// helpers work in place. On Windows the system's separator is '\'; elsewhere
// it is '/', and both '/' and '\' are read as separators everywhere.
#ifndef QLUX_FOUNDATION_TEXT_H_
#define QLUX_FOUNDATION_TEXT_H_

#include <cstddef>
#include <cstdint>

#include "foundation/charstring.h"
#include "foundation/lists.h"

namespace QUtils {

#ifdef _WIN32
const char kPathSeparator = '\\';
#else
const char kPathSeparator = '/';
#endif
// Paths live in fields of this many bytes, terminator included.
const int kMaxPath = 1560;

inline bool isSeparator(char c) { return c == '/' || c == '\\'; }

// Copies at most size-1 bytes and terminates; gives the count with the NUL.
int copyText(char* destination, const char* source, int size);
// The same, behind what the field already holds.
int appendText(char* destination, const char* source, int size);

// Compares ASCII letters without regard to case. Null sorts before text.
int compareNoCase(const char* a, const char* b);
int compareNoCase(const char* a, const char* b, size_t count);

// Path text. A separator of 0 means the system's separator.
int normalizeSeparators(char* text, char separator);
void collapseSeparators(char* text);
int stripTrailingSeparators(char* text, int size);
int cleanPath(char* text);
int appendPath(char* text, const char* name, int size);
// The part of `path` behind its last separator: the file's own name.
const char* baseName(const char* path);
// Whether two paths are one once cleaned: blanks at the ends and the kind
// and doubling of separators don't count; case does.
bool isSameCleanPath(const char* a, const char* b);
// Whether `path` names one place whatever the working directory: on Windows
// a drive with its root ("C:\") or a network path ("\\server\share");
// elsewhere a path that begins with a separator.
bool isAbsolutePath(const char* path);
// Whether two texts name the same path as the system reads them: either
// separator stands for the other, and on Windows ASCII letters compare
// without case.
bool isSamePath(const char* a, const char* b);
// Whether `path` is a root and nothing more: "/", "C:\", "C:", or a
// network path's "\\server\share".
bool isRootPath(const char* path);
void trimText(char* text);

// Other text operations.
int splitText(const char* text, char delimiter, Table<CharString>& list);
bool textBetween(const char* text, char first, char last, char* out, int size);
void toLowerText(char* text);
CharString escapeText(const char* text, char character, char escape);
bool parseInteger(int32_t* out, const char* text);
bool parseFloat(float* out, const char* text);
void formatNumber(int32_t value, char* out, int radix, int size);
void formatNumber64(int64_t value, char* out, int radix, int size);
int bytesToHex(char* out, int size, const unsigned char* data, int count);
int hexToBytes(unsigned char* out, int size, const char* text);

// The path as the system's calls want it: on POSIX every '\\' becomes '/';
// on Windows the text is unchanged. A null path gives a null handle.
CharString systemPath(const char* path);

// Gives the length, -1 if the text was cut, 0 for a size under 1.
int boundedFormat(char* out, int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_TEXT_H_
