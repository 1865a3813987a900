// The body of the text-line helpers (text_lines.h): splitting a text into
// lines that keep their ends, and reading and replacing whole files.
#include "foundation/text_lines.h"

#include <cstdio>

#include "foundation/files.h"

namespace QUtils {

std::vector<TextLine> splitTextLines(const std::string& data) {
  std::vector<TextLine> lines;
  size_t start = 0;
  while (start < data.size()) {
    size_t end = data.find('\n', start);
    TextLine line;
    if (end == std::string::npos) {
      line.text = data.substr(start);
      start = data.size();
    } else {
      line.text = data.substr(start, end - start);
      line.end = "\n";
      start = end + 1;
    }
    if (!line.text.empty() && line.text.back() == '\r') {
      line.text.pop_back();
      line.end = "\r" + line.end;
    }
    lines.push_back(line);
  }
  return lines;
}

std::string joinTextLines(const std::vector<TextLine>& lines) {
  std::string data;
  for (const TextLine& line : lines) data += line.text + line.end;
  return data;
}

bool readWholeFile(const char* path, std::string* out) {
  out->clear();
  FILE* file = openFile(path, "rb");
  if (!file) return false;
  char block[8192];
  size_t count;
  while ((count = std::fread(block, 1, sizeof block, file)) > 0) out->append(block, count);
  bool ok = !std::ferror(file);
  std::fclose(file);
  return ok;
}

bool replaceWholeFile(const char* path, const std::string& data, int newFileMode) {
  if (!path || !path[0]) return false;
  std::string beside = std::string(path) + ".qlux-new";
  FILE* file = openFile(beside.c_str(), "wb", newFileMode);
  if (!file) return false;
  bool ok = std::fwrite(data.data(), 1, data.size(), file) == data.size();
  if (std::fclose(file) != 0) ok = false;
  if (ok && replaceFile(beside.c_str(), path) == 0) {
    // Ignoring the result on purpose: the data is in place, and only a
    // file made before private files were asked for keeps wider bits.
    if (newFileMode == kPrivateFileMode) (void)setFileMode(path, kPrivateFileMode);
    return true;
  }
  deleteFile(beside.c_str());
  return false;
}

}  // namespace QUtils
