// The body of the INI editor (ini.h): a file is loaded as lines, a line is
// classified as comment, section or key, and a change rewrites the whole file.
#include "foundation/ini.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"

namespace QUtils {

namespace {

const char kByteOrderMark[] = "\xEF\xBB\xBF";

struct IniLine {
  std::string text;  // without its line end
  bool crlf;
};

struct IniFile {
  std::vector<IniLine> lines;
  bool byteOrderMark = false;
  bool crlf = false;  // the line end of new lines
};

enum LineKind { kOtherLine, kCommentLine, kSectionLine, kKeyLine };

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string trimmed(const std::string& text, size_t begin, size_t end) {
  while (begin < end && isBlank(text[begin])) begin++;
  while (end > begin && isBlank(text[end - 1])) end--;
  return text.substr(begin, end - begin);
}

// Whether a name in the file is `wanted` where the names must match
// exactly: on Windows without regard to case, as the system's own INI
// functions read them, so that a key the system finds is the one changed.
bool sameName(const std::string& name, const char* wanted) {
#ifdef _WIN32
  return compareNoCase(name.c_str(), wanted) == 0;
#else
  return name == wanted;
#endif
}

// What a line is; `name` gets the section's or the key's name, `value` (if
// not null) a key's value.
LineKind classify(const std::string& line, std::string* name, std::string* value) {
  size_t start = 0;
  while (start < line.size() && isBlank(line[start])) start++;
  if (start < line.size() && line[start] == ';') return kCommentLine;
  if (start < line.size() && line[start] == '[') {
    size_t close = line.find(']', start + 1);
    if (close == std::string::npos) return kOtherLine;
    *name = trimmed(line, start + 1, close);
    return kSectionLine;
  }
  size_t equals = line.find('=');
  if (equals == std::string::npos) return kOtherLine;
  *name = trimmed(line, 0, equals);
  if (value) *value = trimmed(line, equals + 1, line.size());
  return kKeyLine;
}

// Reads the whole file; false (and no lines) if it can't be read.
bool load(const char* fileName, IniFile* file) {
#ifdef _WIN32
  file->crlf = true;
#endif
  FILE* stream = fileName ? openFile(fileName, "rb") : nullptr;
  if (!stream) return false;
  std::string content;
  char block[8192];
  size_t count;
  while ((count = std::fread(block, 1, sizeof block, stream)) > 0) content.append(block, count);
  bool failed = std::ferror(stream) != 0;
  std::fclose(stream);
  if (failed) return false;

  size_t position = 0;
  if (content.compare(0, 3, kByteOrderMark) == 0) {
    file->byteOrderMark = true;
    position = 3;
  }
  bool firstEnd = true;
  while (position < content.size()) {
    size_t end = content.find('\n', position);
    bool terminated = end != std::string::npos;
    if (!terminated) end = content.size();
    IniLine line;
    line.text = content.substr(position, end - position);
    line.crlf = terminated && !line.text.empty() && line.text.back() == '\r';
    if (line.crlf) line.text.pop_back();
    if (terminated && firstEnd) {
      file->crlf = line.crlf;
      firstEnd = false;
    }
    if (!terminated) line.crlf = file->crlf;  // a last line without an end gets the file's
    file->lines.push_back(line);
    position = end + 1;
  }
  return true;
}

// Writes the lines beside the file, then puts that in the file's place.
int save(const char* fileName, const IniFile& file) {
  std::string content;
  if (file.byteOrderMark) content = kByteOrderMark;
  for (const IniLine& line : file.lines) {
    content += line.text;
    content += line.crlf ? "\r\n" : "\n";
  }
  std::string temporary = std::string(fileName) + ".qlux-new";
  FILE* stream = openFile(temporary.c_str(), "wb");
  if (!stream) return -1;
  bool written = std::fwrite(content.data(), 1, content.size(), stream) == content.size();
  if (std::fclose(stream) != 0) written = false;
  if (!written || replaceFile(temporary.c_str(), fileName) != 0) {
    deleteFile(temporary.c_str());
    return -1;
  }
  return 0;
}

// Appends `text` and a NUL to a list being built in `out`, if it fits with
// room left for the list's closing NUL.
void appendName(char* out, int size, int* used, const std::string& text) {
  int length = static_cast<int>(text.size());
  if (*used + length + 2 > size) return;
  std::memcpy(out + *used, text.c_str(), static_cast<size_t>(length) + 1);
  *used += length + 1;
}

}  // namespace

int readIniValue(const char* fileName, const char* section, const char* key, const char* defaultValue, char* out,
                 int size) {
  if (!out || size < 1) return 0;
  out[0] = 0;
  IniFile file;
  load(fileName, &file);

  bool listing = !section || !key;
  int used = 0;
  bool inSection = false;
  std::string name, value;
  for (const IniLine& line : file.lines) {
    LineKind kind = classify(line.text, &name, &value);
    if (kind == kSectionLine) {
      if (!section) {
        appendName(out, size, &used, name);
        continue;
      }
      if (inSection) break;  // only the first section of the name counts
      inSection = key ? sameName(name, section) : compareNoCase(name.c_str(), section) == 0;
      continue;
    }
    if (kind != kKeyLine || !inSection) continue;
    if (!key) {
      appendName(out, size, &used, name);
    } else if (sameName(name, key)) {
      copyText(out, value.c_str(), size);
      return static_cast<int>(std::strlen(out));
    }
  }
  if (listing) {
    out[used] = 0;
    return used;
  }
  copyText(out, defaultValue ? defaultValue : "", size);
  return static_cast<int>(std::strlen(out));
}

int writeIniValue(const char* fileName, const char* section, const char* key, const char* value,
                  const char* beforeKey) {
  if (!fileName || !section) return -1;
  IniFile file;
  load(fileName, &file);
  std::vector<IniLine>& lines = file.lines;

  bool changed = false;
  bool written = false;       // the key's line is in place
  bool inSection = false;
  bool endedAtSection = false;  // the scan stopped at the next section line
  bool haveCurrent = false;
  std::string current;          // the last section line's name
  long sectionLine = -1, lastKey = -1, beforePosition = -1;
  std::string name;
  // The key keeps the spelling it has in the file where it stands there
  // under another case (Windows).
  std::string spelling = key ? key : "";

  size_t i = 0;
  while (i < lines.size()) {
    LineKind kind = classify(lines[i].text, &name, nullptr);
    if (kind == kSectionLine) {
      if (inSection) {
        endedAtSection = true;
        break;
      }
      current = name;
      haveCurrent = true;
      inSection = compareNoCase(name.c_str(), section) == 0;
      if (inSection) {
        if (!key) {
          lines.erase(lines.begin() + static_cast<long>(i));
          changed = true;
          continue;
        }
        sectionLine = static_cast<long>(i);
      }
      i++;
      continue;
    }
    if (kind != kKeyLine || !inSection) {
      i++;
      continue;
    }

    bool sameKey = key && sameName(name, key);
    if (sameKey) spelling = name;
    if (!key || (sameKey && (!value || beforeKey))) {
      // Removed: all keys of a removed section, the first line of a removed
      // key, every line of a key that is being moved.
      lines.erase(lines.begin() + static_cast<long>(i));
      changed = true;
      if (key && !value) break;
      continue;
    }
    if (sameKey) {
      std::string replacement = spelling + "=" + value;
      if (lines[i].text != replacement) {
        lines[i].text = replacement;
        changed = true;
      }
      written = true;
      break;
    }
    if (beforeKey && beforePosition < 0 && sameName(name, beforeKey)) beforePosition = static_cast<long>(i);
    lastKey = static_cast<long>(i);
    i++;
  }

  if (key && value && !written) {
    long position;
    if (endedAtSection) {
      position = beforePosition >= 0 ? beforePosition : lastKey >= 0 ? lastKey + 1 : sectionLine + 1;
    } else if (haveCurrent && sameName(current, section)) {
      position = beforePosition >= 0 ? beforePosition : static_cast<long>(lines.size());
    } else {
      // The file ends in another section (or in one spelled otherwise).
      lines.push_back(IniLine{"[" + std::string(section) + "]", file.crlf});
      position = static_cast<long>(lines.size());
    }
    lines.insert(lines.begin() + position, IniLine{spelling + "=" + value, file.crlf});
    changed = true;
  }

  if (!changed) return 0;
  return save(fileName, file);
}

}  // namespace QUtils
