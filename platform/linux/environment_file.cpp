// The machine-wide environment file on Linux.
#include "platform/linux/environment_file.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "foundation/files.h"
#include "foundation/text_lines.h"

namespace {

// One line of the file: its text and the line end that followed it.
typedef QUtils::TextLine Line;

// Where a variable's parts stand in a line's text.
struct Assignment {
  std::string name;
  size_t valueStart = 0;  // behind the '=' (and the opening quote)
  size_t valueEnd = 0;    // before the closing quote, or the end
  char quote = 0;
};

bool isNameCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool isValidName(const char* name) {
  if (!name || !*name) return false;
  for (const char* p = name; *p; p++) {
    if (!isNameCharacter(*p)) return false;
  }
  return true;
}

// Whether `text` sets a variable, and where its name and value stand.
bool parseAssignment(const std::string& text, Assignment* out) {
  size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) at++;
  if (text.compare(at, 7, "export ") == 0) {
    at += 7;
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) at++;
  }
  size_t start = at;
  while (at < text.size() && isNameCharacter(text[at])) at++;
  if (at == start || at >= text.size() || text[at] != '=') return false;
  out->name = text.substr(start, at - start);
  out->valueStart = at + 1;
  out->valueEnd = text.size();
  out->quote = 0;
  if (out->valueEnd - out->valueStart >= 2) {
    char first = text[out->valueStart];
    if ((first == '"' || first == '\'') && text[out->valueEnd - 1] == first) {
      out->quote = first;
      out->valueStart++;
      out->valueEnd--;
    }
  }
  return true;
}


// The index of the last line that sets `name`, or -1.
int findLast(const std::vector<Line>& lines, const char* name, Assignment* out) {
  int found = -1;
  Assignment assignment;
  for (size_t i = 0; i < lines.size(); i++) {
    if (parseAssignment(lines[i].text, &assignment) && assignment.name == name) {
      found = static_cast<int>(i);
      *out = assignment;
    }
  }
  return found;
}

// Whether a value must be quoted so that the system reads it whole.
bool needsQuotes(const char* value) {
  for (const char* p = value; *p; p++) {
    if (std::strchr(" \t#'\"$`\\;&|<>()", *p)) return true;
  }
  return false;
}

}  // namespace

bool EnvironmentFile::load(std::string* out) const {
  out->clear();
  if (path.empty()) return false;
  // A store that doesn't exist yet is empty.
  if (!QUtils::readWholeFile(path.c_str(), out)) return !QUtils::fileExists(path.c_str());
  return true;
}

bool EnvironmentFile::store(const std::string& data) {
  if (path.empty() || QUtils::createPath(path.c_str(), nullptr) != 0) return false;
  return QUtils::replaceWholeFile(path.c_str(), data);
}

int EnvironmentFile::get(const char* name, char* out, int size) const {
  if (out && size > 0) out[0] = 0;
  std::string data;
  if (!name || !load(&data)) return -1;
  std::vector<Line> lines = QUtils::splitTextLines(data);
  Assignment assignment;
  int index = findLast(lines, name, &assignment);
  if (index < 0) return -1;
  std::string value = lines[index].text.substr(assignment.valueStart, assignment.valueEnd - assignment.valueStart);
  int length = static_cast<int>(value.size());
  if (out && length < size) std::memcpy(out, value.c_str(), value.size() + 1);
  return length;
}

bool EnvironmentFile::set(const char* name, const char* value) {
  if (!isValidName(name) || !value || std::strpbrk(value, "\r\n")) return false;
  std::string data;
  if (!load(&data)) return false;
  std::vector<Line> lines = QUtils::splitTextLines(data);
  Assignment assignment;
  int index = findLast(lines, name, &assignment);
  if (index >= 0) {
    std::string& text = lines[index].text;
    if (!assignment.quote && needsQuotes(value)) {
      text = text.substr(0, assignment.valueStart) + "\"" + value + "\"";
    } else {
      text = text.substr(0, assignment.valueStart) + value + text.substr(assignment.valueEnd);
    }
  } else {
    if (!lines.empty() && lines.back().end.empty()) lines.back().end = "\n";
    Line line;
    line.text = std::string(name) + "=" + (needsQuotes(value) ? "\"" + std::string(value) + "\"" : value);
    line.end = "\n";
    lines.push_back(line);
  }
  return store(QUtils::joinTextLines(lines));
}

bool EnvironmentFile::remove(const char* name) {
  if (!isValidName(name)) return false;
  std::string data;
  if (!load(&data)) return false;
  std::vector<Line> lines = QUtils::splitTextLines(data);
  std::vector<Line> kept;
  Assignment assignment;
  for (const Line& line : lines) {
    if (parseAssignment(line.text, &assignment) && assignment.name == name) continue;
    kept.push_back(line);
  }
  if (kept.size() == lines.size()) return false;
  return store(QUtils::joinTextLines(kept));
}
