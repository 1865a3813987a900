// The body of the label fitting (text_fit.h): wrapping at words, breaking an
// overlong word, and the ellipsis where the box is full.
#include "frontends/gui/text_fit.h"

#include <vector>

namespace {

const char kEllipsis[] = "\xe2\x80\xa6";

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The UTF-8 characters of `word`, each as its own string.
std::vector<std::string> characters(const std::string& word) {
  std::vector<std::string> result;
  for (size_t i = 0; i < word.size();) {
    size_t length = 1;
    while (i + length < word.size() && isContinuation(word[i + length])) length++;
    result.push_back(word.substr(i, length));
    i += length;
  }
  return result;
}

// Appends the lines of one paragraph (a text without line breaks) wrapped
// at `width`. The blanks between two words on one line are kept as they
// were; at a break they go.
void wrapParagraph(const std::string& paragraph, int width, TextMeasure& measure, std::vector<std::string>* lines) {
  std::string line;
  std::string gap;          // the blanks before the next word
  bool lineHasWord = false;  // else the line holds at most the indent
  size_t i = 0;
  // Blanks that open the paragraph are an indent and stay.
  while (i < paragraph.size() && paragraph[i] == ' ') line.push_back(paragraph[i++]);
  while (i < paragraph.size()) {
    size_t start = i;
    while (i < paragraph.size() && paragraph[i] != ' ') i++;
    std::string word = paragraph.substr(start, i - start);
    std::string blanks;
    while (i < paragraph.size() && paragraph[i] == ' ') blanks.push_back(paragraph[i++]);

    if (lineHasWord && measure.width(line + gap + word) > width) {
      lines->push_back(line);
      line.clear();
      lineHasWord = false;
    }
    std::string candidate = lineHasWord ? line + gap + word : line + word;
    if (measure.width(candidate) <= width) {
      line = candidate;
    } else {
      // A word wider than a line of its own: broken between characters.
      for (const std::string& character : characters(word)) {
        if (lineHasWord && measure.width(line + character) > width) {
          lines->push_back(line);
          line.clear();
        }
        line += character;
        lineHasWord = true;
      }
    }
    lineHasWord = true;
    gap = blanks;
  }
  lines->push_back(line);
}

// `line` shortened so that it ends with the ellipsis and fits `width`:
// whole words go first, and only a single word left is cut inside.
std::string withEllipsis(std::string line, int width, TextMeasure& measure) {
  while (!line.empty() && line.back() == ' ') line.pop_back();
  while (!line.empty() && measure.width(line + kEllipsis) > width) {
    size_t blank = line.find_last_of(' ');
    size_t firstWord = line.find_first_not_of(' ');
    if (blank != std::string::npos && firstWord != std::string::npos && blank > firstWord) {
      line.erase(blank);
      while (!line.empty() && line.back() == ' ') line.pop_back();
      continue;
    }
    size_t last = line.size() - 1;
    while (last > 0 && isContinuation(line[last])) last--;
    line.erase(last);
  }
  return line + kEllipsis;
}

}  // namespace

std::string fitText(const std::string& text, int width, int height, TextMeasure& measure, bool* cut) {
  *cut = false;
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t end = text.find('\n', start);
    std::string paragraph = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (width < 1) {
      lines.push_back(paragraph);
    } else {
      wrapParagraph(paragraph, width, measure, &lines);
    }
    if (end == std::string::npos) break;
    start = end + 1;
  }

  size_t keep = lines.size();
  if (height >= 1) {
    keep = 1;
    while (keep < lines.size() && measure.height(static_cast<int>(keep) + 1) <= height) keep++;
  }
  if (keep < lines.size()) {
    *cut = true;
    lines.resize(keep);
    lines.back() = withEllipsis(lines.back(), width < 1 ? measure.width(lines.back()) : width, measure);
  }
  std::string result;
  for (size_t i = 0; i < lines.size(); i++) {
    if (i > 0) result.push_back('\n');
    result += lines[i];
  }
  return result;
}
