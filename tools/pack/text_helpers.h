// Small text helpers that the package builder's units share: names compared
// without regard to ASCII case, trimmed texts with the count of what was cut
// in front (so that places in the template stay right), and lists.
#ifndef QLUX_TOOLS_PACK_TEXT_HELPERS_H_
#define QLUX_TOOLS_PACK_TEXT_HELPERS_H_

#include <cctype>
#include <string>
#include <vector>

namespace packtext {

inline std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

inline bool sameNoCase(const std::string& a, const std::string& b) { return lower(a) == lower(b); }

// The text without blanks and line ends around it; `leading` gets how many
// bytes were cut in front.
inline std::string trimmed(const std::string& text, size_t* leading) {
  size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) {
    *leading = 0;
    return "";
  }
  *leading = first;
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The pieces of `text` between the separators, empty ones included.
inline std::vector<std::string> splitList(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return parts;
}

// The part behind the last '/' or '\'.
inline std::string baseName(const std::string& path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Whether `name` matches a wildcard pattern: '*' any run of characters, '?'
// one, with case, as the Linux file search matches.
inline bool matchPattern(const std::string& pattern, const std::string& name) {
  size_t p = 0, n = 0, star = std::string::npos, mark = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      p++;
      n++;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = n;
    } else if (star != std::string::npos) {
      p = star + 1;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') p++;
  return p == pattern.size();
}

}  // namespace packtext

#endif  // QLUX_TOOLS_PACK_TEXT_HELPERS_H_
