// The RTF reader: a first pass that turns the document into text (or
// callback calls), and an optional second pass that wraps and justifies
// that text for a terminal.
#include "frontends/console/rich_text.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "frontends/console/code_pages.h"

namespace {

// A control word is cut to this many characters (a swallowed blank
// included) before the keyword table sees it; keywords match by prefix, so
// nothing that matters is lost.
const int kMaxWordLength = 111;

// The code page of \'xx bytes in a document that names none.
const int kDefaultCodePage = 1252;

// Twips to tenths of a millimetre.
const double kTwipsToTenths = 0.1763888888888889;

const char kResetEscape[] = "\x1b[0m";
const char kBoldEscape[] = "\x1b[1m";
const char kUnderlineEscape[] = "\x1b[4m";

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The value of one hexadecimal digit; 0 for anything else.
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}

bool startsWith(const char* word, const char* keyword) {
  return std::strncmp(word, keyword, std::strlen(keyword)) == 0;
}

// The decimal number at `text`, with an optional sign; 0 if there is none.
int leadingNumber(const char* text) {
  bool negative = false;
  if (*text == '-' || *text == '+') negative = *text++ == '-';
  long value = 0;
  while (isDigit(*text) && value < 100000000) value = value * 10 + (*text++ - '0');
  return static_cast<int>(negative ? -value : value);
}

// One run of a line in the wrapping pass: a word, or blanks and tabs.
struct Run {
  int start;
  int length;   // bytes
  int display;  // columns: 1 a character, 8 a tab
  bool blank;
};

// Groups that hold data about the document rather than its text: fonts,
// colours, styles, properties, pictures, page furniture, field codes. A
// group that opens with one of these words, or with "\*" (a group that
// readers who don't know it must pass over), is dropped with everything in
// it. Any other group is a run of formatted text and is read.
const char kDestinations[] =
    " fonttbl colortbl stylesheet info pict nonshppict header headerl headerr headerf footer footerl footerr footerf"
    " footnote object objdata listtable listoverridetable revtbl rsidtbl filetbl fldinst shpinst annotation xe tc"
    " template private ";

// True when the group whose "{" stands just before `text` is dropped.
bool isDestination(const char* text) {
  if (text[0] != '\\') return false;
  if (text[1] == '*') return true;
  char word[24] = " ";
  int length = 1;
  for (const char* p = text + 1; isLetter(*p); p++) {
    if (length >= static_cast<int>(sizeof word) - 2) return false;  // longer than any of them
    word[length++] = *p;
  }
  word[length++] = ' ';
  word[length] = 0;
  return length > 2 && std::strstr(kDestinations, word) != nullptr;
}

bool isSingleBlank(const Run& run) { return run.blank && run.display == 1; }

bool isBlankByte(char c) { return c == ' ' || c == '\t'; }

// What a UTF-8 text file may begin with; it is no part of the text.
const char kByteOrderMark[] = "\xEF\xBB\xBF";

}  // namespace

RichTextReader::RichTextReader()
    : inputLength(0),
      outLength(0),
      outCapacity(0),
      groupDepth(0),
      skipDepth(0),
      codePage(kDefaultCodePage),
      fallbackLength(1),
      fallbackLeft(0),
      highSurrogate(0),
      out(nullptr),
      callback(nullptr) {}

RichTextReader::~RichTextReader() { std::free(out); }

void RichTextReader::setCallback(RichTextCallback* callback) { this->callback = callback; }

bool RichTextReader::grow(int needed) {
  int64_t capacity = outCapacity;
  while (capacity < needed) {
    int64_t next = capacity + capacity / 4;  // 1.25 times, truncated
    capacity = next > capacity ? next : capacity + 1;
  }
  if (capacity > INT32_MAX) return false;
  char* grown = static_cast<char*>(std::realloc(out, static_cast<size_t>(capacity)));
  if (!grown) return false;
  out = grown;
  outCapacity = static_cast<int>(capacity);
  return true;
}

bool RichTextReader::store(const char* text, int length, bool notify) {
  if (skipDepth > 0) return true;
  if (static_cast<int64_t>(outLength) + length + 1 > outCapacity) {
    if (static_cast<int64_t>(outLength) + length + 1 > INT32_MAX || !grow(outLength + length + 1)) return false;
  }
  std::memcpy(out + outLength, text, static_cast<size_t>(length));
  int start = outLength;
  outLength += length;
  out[outLength] = 0;
  if (notify && callback) callback->onText(out + start);
  return true;
}

bool RichTextReader::storeCharacter(uint32_t codePoint) {
  if (codePoint == 0) return true;  // a byte its code page leaves undefined
  if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) codePoint = 0xFFFD;
  char bytes[4];
  int length;
  if (codePoint < 0x80) {
    bytes[0] = static_cast<char>(codePoint);
    length = 1;
  } else if (codePoint < 0x800) {
    bytes[0] = static_cast<char>(0xC0 | (codePoint >> 6));
    bytes[1] = static_cast<char>(0x80 | (codePoint & 0x3F));
    length = 2;
  } else if (codePoint < 0x10000) {
    bytes[0] = static_cast<char>(0xE0 | (codePoint >> 12));
    bytes[1] = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    bytes[2] = static_cast<char>(0x80 | (codePoint & 0x3F));
    length = 3;
  } else {
    bytes[0] = static_cast<char>(0xF0 | (codePoint >> 18));
    bytes[1] = static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
    bytes[2] = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    bytes[3] = static_cast<char>(0x80 | (codePoint & 0x3F));
    length = 4;
  }
  return store(bytes, length, true);
}

bool RichTextReader::unicodeCharacter(const char* number) {
  // RTF writes numbers as signed 16-bit values: -4064 is U+F020.
  long value = leadingNumber(number);
  if (value < 0) value += 65536;
  fallbackLeft = fallbackLength;
  uint32_t codePoint = static_cast<uint32_t>(value);
  // A character beyond U+FFFF comes as two halves, each with its fallback.
  if (codePoint >= 0xD800 && codePoint <= 0xDBFF) {
    highSurrogate = codePoint;
    return true;
  }
  if (codePoint >= 0xDC00 && codePoint <= 0xDFFF && highSurrogate) {
    codePoint = 0x10000 + ((highSurrogate - 0xD800) << 10) + (codePoint - 0xDC00);
  }
  highSurrogate = 0;
  return storeCharacter(codePoint);
}

bool RichTextReader::keyword(const char* word, bool useEscapes) {
  // The characters of the text beyond ASCII, and how they are written.
  if (startsWith(word, "ansicpg")) {
    codePage = leadingNumber(word + 7);
    return true;
  }
  if (word[0] == 'u' && word[1] == 'c' && isDigit(word[2])) {
    fallbackLength = leadingNumber(word + 2);
    return true;
  }
  if (word[0] == 'u' && (isDigit(word[1]) || word[1] == '-')) return unicodeCharacter(word + 1);

  if (startsWith(word, "tab")) return store("\t", 1, true);
  if (startsWith(word, "endash")) return store("-", 1, true);
  if (startsWith(word, "pard")) {
    if (callback) callback->resetFormat();
    return true;
  }
  if (startsWith(word, "par")) {
    if (callback) callback->endParagraph();
    return store("\n", 1, false);
  }
  // The alignment words don't end the search.
  if (callback) {
    if (startsWith(word, "qc")) callback->setAlignment(1);
    if (startsWith(word, "ql")) callback->setAlignment(0);
    if (startsWith(word, "qr")) callback->setAlignment(2);
    if (startsWith(word, "qj")) callback->setAlignment(3);
  }
  // Bold, italic and underline, each with the word that ends it first.
  static const struct {
    const char* keyword;
    const char* escape;
    int style;
    bool on;
  } kStyles[] = {
      {"b0", kResetEscape, 0, false}, {"b", kBoldEscape, 0, true},        {"i0", kResetEscape, 1, false},
      {"i", kBoldEscape, 1, true},    {"ulnone", kResetEscape, 2, false}, {"ul", kUnderlineEscape, 2, true},
  };
  for (const auto& style : kStyles) {
    if (!startsWith(word, style.keyword)) continue;
    if (useEscapes) return store(style.escape, static_cast<int>(std::strlen(style.escape)), true);
    if (callback) callback->setStyle(style.style, style.on);
    return true;
  }
  if (startsWith(word, "li")) {
    if (callback) callback->setLeftIndent(static_cast<int>(leadingNumber(word + 2) * kTwipsToTenths));
    return true;
  }
  if (startsWith(word, "rquote")) return store("'", 1, true);
  if (startsWith(word, "ldblquote") || startsWith(word, "rdblquote")) return store("\"", 1, true);
  if (startsWith(word, "restorenormaltextmode")) {
    if (useEscapes) return store(kResetEscape, static_cast<int>(std::strlen(kResetEscape)), true);
    if (callback) callback->resetFormat();
  }
  return true;
}

const char* RichTextReader::convert(const char* data, int mode, int wrapWidth) {
  if (!data) return nullptr;
  std::free(out);
  out = nullptr;
  size_t length = std::strlen(data);
  if (length > INT32_MAX / 2) return nullptr;
  inputLength = static_cast<int>(length);
  outLength = 0;
  groupDepth = 0;
  skipDepth = 0;
  codePage = kDefaultCodePage;
  fallbackLength = 1;
  fallbackLeft = 0;
  highSurrogate = 0;
  outCapacity = 1000 + static_cast<int>(1.1 * inputLength);
  out = static_cast<char*>(std::malloc(static_cast<size_t>(outCapacity)));
  if (!out) {
    outCapacity = 0;
    return nullptr;
  }
  out[0] = 0;
  bool useEscapes = mode == kRichTextEscapes;

  // Plain text has its own first pass; the finish is the same.
  bool rich = isRichText(data);
  bool ok = rich || convertPlain(data);
  int i = 0;
  while (rich && ok && i < inputLength) {
    char c = data[i];
    // The characters that stand in for a \uN are passed over: a plain
    // character or a \'xx counts one; any other word or a brace ends them.
    if (fallbackLeft > 0 && c != 10 && c != 13) {
      if (c == '\\' && data[i + 1] == '\'') {
        i += 2;
        for (int n = 0; n < 2 && i < inputLength; n++) i++;
        fallbackLeft--;
        continue;
      }
      if (c != '\\' && c != '{' && c != '}') {
        i++;
        fallbackLeft--;
        continue;
      }
      fallbackLeft = 0;
    }
    if (c == '\\') {
      char next = data[i + 1];  // the terminator at worst
      if (next == '\\' || next == '{' || next == '}') {
        ok = store(&next, 1, true);
        i += 2;
      } else if (isLetter(next)) {
        int end = i + 1;
        while (isLetter(data[end]) || isDigit(data[end]) || data[end] == '-') end++;
        if (data[end] == ' ') end++;  // one blank belongs to the word
        char word[kMaxWordLength + 1];
        int wordLength = end - (i + 1);
        if (wordLength > kMaxWordLength) wordLength = kMaxWordLength;
        std::memcpy(word, data + i + 1, static_cast<size_t>(wordLength));
        word[wordLength] = 0;
        // A data group is passed over whole: its words mean nothing to the text.
        if (skipDepth == 0) ok = keyword(word, useEscapes);
        i = end;
      } else if (next == '\'') {
        int value = 0;
        int digits = i + 2;
        for (int n = 0; n < 2 && digits < inputLength; n++, digits++) value = value * 16 + hexValue(data[digits]);
        ok = storeCharacter(codePageCharacter(codePage, static_cast<unsigned char>(value)));
        i = digits;
      } else if (next == '_') {
        ok = store("-", 1, true);
        i += 2;
      } else if (next == '~') {
        ok = store(" ", 1, true);
        i += 2;
      } else {
        i += next ? 2 : 1;
      }
    } else if (c == 9 || c == 10 || c == 13) {
      i++;
    } else if (c == '{') {
      groupDepth++;
      i++;
      if (skipDepth == 0 && isDestination(data + i)) skipDepth = groupDepth;
    } else if (c == '}') {
      if (groupDepth == skipDepth) skipDepth = 0;
      if (--groupDepth < 0) ok = false;
      i++;
    } else {
      ok = store(&c, 1, true);
      i++;
    }
  }
  if (rich && ok && groupDepth != 0) ok = false;
  if (rich && ok) ok = keyword("restorenormaltextmode", useEscapes);
  if (ok && callback) callback->finishText();
  if (ok && wrapWidth >= 1) ok = wrap(wrapWidth);
  if (!ok) {
    std::free(out);
    out = nullptr;
    outLength = outCapacity = 0;
    return nullptr;
  }
  return out;
}

bool RichTextReader::isRichText(const char* data) {
  if (!data) return false;
  if (std::strncmp(data, kByteOrderMark, 3) == 0) data += 3;
  while (*data == ' ' || *data == '\t' || *data == '\r' || *data == '\n') data++;
  return std::strncmp(data, "{\\rtf", 5) == 0;
}

bool RichTextReader::convertPlain(const char* data) {
  if (std::strncmp(data, kByteOrderMark, 3) == 0) data += 3;
  // Lines are joined as paragraphs are in RTF: a break between two of them,
  // none after the last (the line end that closes a text file starts no
  // line of its own).
  const char* line = data;
  bool first = true;
  while (*line) {
    const char* end = std::strchr(line, '\n');
    if (!end) end = line + std::strlen(line);
    int length = static_cast<int>(end - line);
    if (length > 0 && line[length - 1] == '\r') length--;
    if (!first) {
      if (callback) callback->endParagraph();
      if (!store("\n", 1, false)) return false;
    }
    first = false;
    if (length > 0 && !store(line, length, true)) return false;
    line = *end ? end + 1 : end;
  }
  return true;
}

bool RichTextReader::wrap(int width) {
  char* text = out;
  int length = outLength;
  int64_t capacity = static_cast<int64_t>(length) * 3 / 2 + 1;
  if (capacity > INT32_MAX) return false;
  outCapacity = static_cast<int>(capacity);
  out = static_cast<char*>(std::malloc(static_cast<size_t>(outCapacity)));
  if (!out) {
    out = text;
    return false;
  }
  out[0] = 0;
  outLength = 0;
  bool ok = true;
  int start = 0;
  for (int i = 0; ok && i <= length; i++) {
    if (i == length || text[i] == '\n') {
      ok = wrapLine(text + start, i - start, width);
      start = i + 1;
    }
  }
  std::free(text);
  return ok;
}

bool RichTextReader::wrapLine(const char* line, int length, int width) {
  if (length == 0) return store("\n", 1, true);

  std::vector<Run> runs;
  for (int i = 0; i < length;) {
    Run run = {i, 0, 0, isBlankByte(line[i])};
    while (i < length && isBlankByte(line[i]) == run.blank) {
      if (line[i] == '\t')
        run.display += 8;
      else if ((static_cast<unsigned char>(line[i]) & 0xC0) != 0x80)  // UTF-8: count characters
        run.display++;
      i++;
    }
    run.length = i - run.start;
    runs.push_back(run);
  }

  static const char kBlanks[] = "                                ";
  const int blanksLength = static_cast<int>(sizeof kBlanks) - 1;
  int count = static_cast<int>(runs.size());
  int position = 0;
  while (position < count) {
    int sum = 0;
    int end = position;
    while (end < count && sum <= width) sum += runs[end++].display;

    if (end == count && sum <= width) {
      // The runs ran out: the paragraph's last line is stored as it stands.
      // (When its last word goes past the width, the word begins a line of
      // its own like any other, so that no line is wider than the terminal.)
      int first = position;
      if (isSingleBlank(runs[first])) first++;
      // Only the blank left over from the line before: no line of its own.
      if (first == count && position > 0) return true;
      if (first < count) {
        const Run& from = runs[first];
        if (!store(line + from.start, length - from.start, true)) return false;
      }
      return store("\n", 1, true);
    }

    // The last run went past the width: it begins the next line.
    sum -= runs[--end].display;
    if (end == position) {
      // A single run wider than the line stands alone, uncut.
      const Run& only = runs[position++];
      if (!store(line + only.start, only.length, true) || !store("\n", 1, true)) return false;
      continue;
    }
    int first = position;
    if (isSingleBlank(runs[first])) sum -= runs[first++].display;
    // A blank at the end is left for the next line, which drops it.
    if (end - first > 1 && isSingleBlank(runs[end - 1])) sum -= runs[--end].display;
    position = end;
    if (first == end) continue;

    int gaps = 0;
    for (int r = first; r < end; r++)
      if (isSingleBlank(runs[r])) gaps++;
    int slack = width - sum;
    int gap = 0;
    int added = 0;
    for (int r = first; r < end; r++) {
      if (!store(line + runs[r].start, runs[r].length, true)) return false;
      if (!isSingleBlank(runs[r]) || gaps == 0) continue;
      int target = ++gap * slack / gaps;
      for (int missing = target - added; missing > 0; missing -= blanksLength) {
        if (!store(kBlanks, missing < blanksLength ? missing : blanksLength, true)) return false;
      }
      added = target;
    }
    if (!store("\n", 1, true)) return false;
  }
  return true;
}
