// The condition language of the template and the assignments of a button's
// Action.
//
// A condition is expanded ([NAME] references replaced by their values) and
// then read once by a recursive descent, without tokens or a tree:
//
//   expression := and-list { ';' and-list }          ';' is OR
//   and-list   := comparison { ',' comparison }      ',' is AND, binds tighter
//   comparison := operand [ op operand ]             op: == != < <= > >=
//   operand    := number | 'text' | '(' expression ')'
//
// The evaluator never reports an error: bad syntax gives -1, and callers test
// the result for 0 only, so an expression in error counts as true.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/installer.h"
#include "foundation/text.h"

namespace {

// The work buffer of an expanded expression; a longer text is cut.
const int kConditionBufferSize = 2048;
// A text operand keeps at most this many bytes; the rest is read as further
// input.
const int kMaxTextOperand = 1023;

// The marks among operand values: a text operand, and an error.
const int32_t kTextValue = -2;
const int32_t kErrorValue = -1;

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

class ConditionParser {
 public:
  explicit ConditionParser(const char* text) : text(text), pos(0), operandText(nullptr), operandLength(0) {}

  // expression: the and-lists joined by ';'. All of them are evaluated; an
  // error in any ends the whole with -1.
  int32_t expression() {
    int32_t result = 0;
    for (;;) {
      int32_t value = andList();
      if (value == kErrorValue) return kErrorValue;
      if (value) result = 1;
      skipBlanks();
      if (text[pos] != ';') return result;
      pos++;
    }
  }

 private:
  // and-list: the comparisons joined by ','. No short cut either.
  int32_t andList() {
    int32_t result = 1;
    for (;;) {
      int32_t value = comparison();
      if (value == kErrorValue) return kErrorValue;
      if (!value) result = 0;
      skipBlanks();
      if (text[pos] != ',') return result;
      pos++;
    }
  }

  int32_t comparison() {
    int32_t first = operand();
    if (first == kErrorValue) return kErrorValue;
    const char* firstText = operandText;
    int firstLength = operandLength;

    skipBlanks();
    char op = text[pos];
    bool orEqual = false;
    if (op == '=' || op == '!') {
      if (text[pos + 1] != '=') return kErrorValue;
      pos += 2;
    } else if (op == '<' || op == '>') {
      pos++;
      if (text[pos] == '=') {
        orEqual = true;
        pos++;
      }
    } else {
      return first;
    }

    int32_t second = operand();
    if (second == kErrorValue) return kErrorValue;

    int32_t difference;
    if (first == kTextValue && second == kTextValue) {
      difference = compareTexts(firstText, firstLength, operandText, operandLength);
    } else {
      difference = static_cast<int32_t>(static_cast<uint32_t>(first) - static_cast<uint32_t>(second));
    }

    switch (op) {
      case '=':
        return difference == 0;
      case '!':
        return difference != 0;
      case '<':
        return orEqual ? difference <= 0 : difference < 0;
      default:
        return orEqual ? difference >= 0 : difference > 0;
    }
  }

  // A number, a text (-2, with operandText/operandLength pointing into the
  // expression) or a group. Anything else, the end included, is -1.
  int32_t operand() {
    skipBlanks();
    operandText = text + pos;
    operandLength = 0;
    char c = text[pos];
    if (c == '(') {
      pos++;
      int32_t value = expression();
      skipBlanks();
      if (text[pos] == ')') pos++;
      return value;
    }
    if (c == '\'') {
      pos++;
      operandText = text + pos;
      while (text[pos] && text[pos] != '\'' && operandLength < kMaxTextOperand) {
        pos++;
        operandLength++;
      }
      if (text[pos] == '\'') pos++;
      return kTextValue;
    }
    if (isDigit(c)) return number();
    return kErrorValue;
  }

  int32_t number() {
    if (text[pos] == '0' && (text[pos + 1] == 'x' || text[pos + 1] == 'X')) {
      pos += 2;
      char digits[9];
      int count = 0;
      while (isHexDigit(text[pos])) {
        if (count < 8) digits[count++] = text[pos];
        pos++;
      }
      digits[count] = 0;
      // Eight digits can exceed a 32-bit long; the value is capped there so
      // that it reads the same on every system.
      long long value = std::strtoll(digits, nullptr, 16);
      if (value > INT32_MAX) value = INT32_MAX;
      return static_cast<int32_t>(value);
    }
    // Decimal, or with a leading 0 in eights, where 8 and 9 still count as
    // digits ("019" is 17). Both wrap around in 32 bits.
    uint32_t radix = text[pos] == '0' ? 8 : 10;
    uint32_t value = 0;
    while (isDigit(text[pos])) {
      value = value * radix + static_cast<uint32_t>(text[pos] - '0');
      pos++;
    }
    return static_cast<int32_t>(value);
  }

  // Byte by byte, as unsigned characters and with case: -1, 0 or 1.
  static int32_t compareTexts(const char* a, int aLength, const char* b, int bLength) {
    int common = aLength < bLength ? aLength : bLength;
    int order = std::memcmp(a, b, static_cast<size_t>(common));
    if (order != 0) return order < 0 ? -1 : 1;
    if (aLength == bLength) return 0;
    return aLength < bLength ? -1 : 1;
  }

  void skipBlanks() {
    while (isBlank(text[pos])) pos++;
  }

  const char* text;
  int pos;
  // The last text operand read.
  const char* operandText;
  int operandLength;
};

}  // namespace

int Installer::evaluateCondition(const char* text) {
  if (!text || !*text) return 1;
  char expanded[kConditionBufferSize];
  expandVariables(text, expanded, sizeof expanded);
  ConditionParser parser(expanded);
  int32_t result = parser.expression();
  return result == kErrorValue ? -1 : (result ? 1 : 0);
}

void Installer::runAction(InstallerUI* ui, const char* action) {
  if (!action) return;
  // Only the first word of an action list can be one of the two commands.
  if (QUtils::compareNoCase(action, "Cancel", 6) == 0) {
    cancel(ui);
    return;
  }
  if (QUtils::compareNoCase(action, "Help", 4) == 0) {
    openHelp(ui);
    return;
  }
  if (!std::strchr(action, ';')) {
    applyAction(action);
    return;
  }
  const char* p = action;
  for (;;) {
    const char* end = std::strchr(p, ';');
    size_t length = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (length > 0) applyAction(std::string(p, length).c_str());
    if (!end) break;
    p = end + 1;
  }
}

int Installer::applyAction(const char* text) {
  if (!text) return -2;
  size_t length = std::strlen(text);

  // The name lies between the first '[' and the last ']', the value between
  // the first and the last quote; a missing mark stands for the text's start
  // or end. The '=' between them isn't looked at.
  const char* open = std::strchr(text, '[');
  const char* close = std::strrchr(text, ']');
  size_t nameStart = open ? static_cast<size_t>(open - text) + 1 : 0;
  size_t nameEnd = close ? static_cast<size_t>(close - text) : length;

  const char* firstQuote = std::strchr(text, '\'');
  const char* lastQuote = std::strrchr(text, '\'');
  size_t valueStart = firstQuote ? static_cast<size_t>(firstQuote - text) + 1 : 0;
  size_t valueEnd = lastQuote ? static_cast<size_t>(lastQuote - text) : length;

  if (nameStart > nameEnd || valueStart > valueEnd) return -2;

  char name[sizeof VARIABLE::name];
  size_t nameLength = nameEnd - nameStart;
  if (nameLength > sizeof name - 1) nameLength = sizeof name - 1;
  std::memcpy(name, text + nameStart, nameLength);
  name[nameLength] = 0;

  // The value is stored as it stands: a [NAME] in it isn't expanded.
  std::string value(text + valueStart, valueEnd - valueStart);
  setVariable(name, value.c_str());
  return 0;
}
