// Desktop entry texts.
#include "platform/linux/desktop_entry.h"

#include <cstring>

namespace DesktopEntry {

namespace {

// The escapes of a string value.
std::string escapeValue(const std::string& text) {
  std::string result;
  for (char c : text) {
    switch (c) {
      case '\\':
        result += "\\\\";
        break;
      case '\n':
        result += "\\n";
        break;
      case '\r':
        result += "\\r";
        break;
      case '\t':
        result += "\\t";
        break;
      default:
        result += c;
    }
  }
  return result;
}

// One argument of Exec: in double quotes, with '"', '`', '$' and '\'
// behind a backslash, and '%' doubled so that it isn't a field code.
std::string quoteArgument(const std::string& argument) {
  std::string result = "\"";
  for (char c : argument) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') result += '\\';
    if (c == '%') result += '%';
    result += c;
  }
  return result + "\"";
}

void appendLine(std::string* entry, const char* key, const char* value) {
  if (!value) value = "";
  *entry += key;
  *entry += '=';
  *entry += escapeValue(value);
  *entry += '\n';
}

}  // namespace

std::string application(const char* name, const char* comment, const char* exec, const char* path) {
  std::string entry = "[Desktop Entry]\nType=Application\n";
  appendLine(&entry, "Name", name);
  appendLine(&entry, "Comment", comment);
  appendLine(&entry, "Exec", exec);
  if (path && *path) appendLine(&entry, "Path", path);
  return entry;
}

std::string link(const char* name, const char* comment, const char* url) {
  std::string entry = "[Desktop Entry]\nType=Link\n";
  appendLine(&entry, "Name", name);
  appendLine(&entry, "Comment", comment);
  appendLine(&entry, "URL", url);
  return entry;
}

std::string execLine(const char* program, const char* commandLine) {
  std::string exec = quoteArgument(program ? program : "");
  if (!commandLine) return exec;
  std::string word;
  bool inWord = false;
  bool quoted = false;
  for (const char* p = commandLine;; p++) {
    char c = *p;
    if (c == 0 || (!quoted && (c == ' ' || c == '\t'))) {
      if (inWord) exec += " " + quoteArgument(word);
      word.clear();
      inWord = false;
      if (c == 0) break;
    } else if (c == '"') {
      quoted = !quoted;
      inWord = true;
    } else {
      word += c;
      inWord = true;
    }
  }
  return exec;
}

std::string nameOf(const char* linkPath) {
  if (!linkPath) return std::string();
  const char* name = linkPath;
  for (const char* p = linkPath; *p; p++) {
    if (*p == '/' || *p == '\\') name = p + 1;
  }
  std::string result = name;
  size_t dot = result.rfind('.');
  if (dot != std::string::npos && dot > 0) result.erase(dot);
  return result;
}

}  // namespace DesktopEntry
