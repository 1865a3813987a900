// Quoting and splitting command lines by the rules of CommandLineToArgvW.
#include "foundation/command_line.h"

#include <algorithm>
#include <cstring>

namespace QUtils {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Splits the words from `p` on with the rules of every word but the
// program's, appending them to `out`.
void splitWords(const char* p, std::vector<std::string>* out) {
  while (isBlank(*p)) p++;
  while (*p) {
    std::string word;
    // `quotes` is 0 outside quotes and 1 inside; within a run of double
    // quotes it counts on, and every third one of a run is a literal quote.
    int quotes = 0;
    size_t backslashes = 0;
    while (*p && !(isBlank(*p) && quotes == 0)) {
      if (*p == '\\') {
        word += *p++;
        backslashes++;
        continue;
      }
      if (*p != '"') {
        word += *p++;
        backslashes = 0;
        continue;
      }
      // Half of the backslashes in front of a double quote stay; an odd
      // one out makes the quote a character of the word.
      word.erase(word.size() - backslashes / 2);
      if (backslashes % 2 == 1) {
        word.back() = '"';
      } else {
        quotes++;
      }
      backslashes = 0;
      for (p++; *p == '"'; p++) {
        if (++quotes == 3) {
          word += '"';
          quotes = 0;
        }
      }
      if (quotes == 2) quotes = 0;
    }
    out->push_back(word);
    while (isBlank(*p)) p++;
  }
}

bool needsParameterQuotes(const std::string& text) {
  return text.empty() || text.find_first_of(" \t\"") != std::string::npos;
}

void appendParameterQuoted(std::string* line, const std::string& text, char escape) {
  *line += '"';
  for (char c : text) {
    if (c == '"') *line += escape;
    *line += c;
  }
  *line += '"';
}

}  // namespace

std::string quoteCommandWord(const char* word) {
  std::string quoted = "\"";
  size_t backslashes = 0;
  for (const char* p = word ? word : ""; *p; p++) {
    if (*p == '\\') {
      backslashes++;
    } else if (*p == '"') {
      // Each backslash in front of the quote doubles, and the quote gets
      // one of its own.
      quoted.append(backslashes + 1, '\\');
      backslashes = 0;
    } else {
      backslashes = 0;
    }
    quoted += *p;
  }
  // Backslashes at the end stand before the closing quote.
  quoted.append(backslashes, '\\');
  quoted += '"';
  return quoted;
}

std::vector<std::string> splitCommandLine(const char* line) {
  std::vector<std::string> words;
  const char* p = line ? line : "";
  while (isBlank(*p)) p++;
  if (!*p) return words;
  std::string program;
  if (*p == '"') {
    const char* close = std::strchr(p + 1, '"');
    program.assign(p + 1, close ? static_cast<size_t>(close - p - 1) : std::strlen(p + 1));
    p = close ? close + 1 : p + std::strlen(p);
  } else {
    const char* start = p;
    while (*p && !isBlank(*p)) p++;
    program.assign(start, static_cast<size_t>(p - start));
  }
  words.push_back(program);
  splitWords(p, &words);
  return words;
}

std::vector<std::string> splitCommandArguments(const char* text) {
  std::vector<std::string> words;
  splitWords(text ? text : "", &words);
  return words;
}

std::string toParameterText(const std::vector<std::string>& words, char escape) {
  std::string line;
  for (size_t i = 0; i < words.size(); i++) {
    const std::string& word = words[i];
    if (i > 0) line += ' ';
    if (i == 0) {
      // Parameters passes over the program's name up to its closing quote
      // without looking at escapes: a quote of its own would end it early.
      std::string program = word;
      program.erase(std::remove(program.begin(), program.end(), '"'), program.end());
      line += '"' + program + '"';
      continue;
    }
    if (!needsParameterQuotes(word)) {
      line += word;
      continue;
    }
    // -name=value with blanks in the value: the value alone is quoted.
    size_t equals = word.find('=');
    if (word[0] == '-' && equals != std::string::npos && !needsParameterQuotes(word.substr(0, equals))) {
      line += word.substr(0, equals + 1);
      appendParameterQuoted(&line, word.substr(equals + 1), escape);
    } else {
      appendParameterQuoted(&line, word, escape);
    }
  }
  return line;
}

}  // namespace QUtils
