// Text files as lines that keep their own line ends: a text splits into
// lines whose `end` is "\n", "\r\n" or (for a last line without one) "",
// and joining them gives the text back byte for byte. For the editors of
// configuration files, which must change one line and leave every other
// byte as it was.
#ifndef QLUX_FOUNDATION_TEXT_LINES_H_
#define QLUX_FOUNDATION_TEXT_LINES_H_

#include <string>
#include <vector>

namespace QUtils {

struct TextLine {
  std::string text;  // without its line end
  std::string end;
};

std::vector<TextLine> splitTextLines(const std::string& data);
std::string joinTextLines(const std::vector<TextLine>& lines);

// A file's bytes; false if it can't be opened or read.
bool readWholeFile(const char* path, std::string* out);

// Replaces the file at `path` with `data` only once the new content is
// complete: it is written to "<path>.qlux-new" beside it and renamed over
// it. On failure that file is removed and the old file stays as it was.
// The file keeps its owner and permission bits (replaceFile); a new one
// gets `newFileMode`, and kPrivateFileMode is kept in any case.
bool replaceWholeFile(const char* path, const std::string& data, int newFileMode = 0644);

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_TEXT_LINES_H_
