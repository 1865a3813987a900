// The condition and action checks (condition_check.h): a recursive descent
// over the evaluator's grammar that stops at the first fault and names it.
#include "tools/pack/condition_check.h"

#include <cctype>
#include <cstring>

#include "tools/pack/text_helpers.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool isNameCharacter(char c) { return c == '_' || isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

using packtext::lower;

// A recursive descent over the grammar the installer's evaluator reads:
//
//   expression := and-list { ';' and-list }
//   and-list   := comparison { ',' comparison }
//   comparison := operand [ op operand ]        op: == != < <= > >=
//   operand    := number | 'text' | [NAME] | '(' expression ')'
//
// The first fault ends the check: what follows it can't be read reliably.
class ConditionChecker {
 public:
  ConditionChecker(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses)
      : text(text), pos(0), issues(issues), uses(uses), failed(false) {}

  void run() {
    expression();
    if (failed) return;
    skipBlanks();
    if (pos < text.size()) unexpected(pos);
  }

 private:
  void expression() {
    for (;;) {
      andList();
      if (failed) return;
      skipBlanks();
      if (at() != ';') return;
      pos++;
    }
  }

  void andList() {
    for (;;) {
      comparison();
      if (failed) return;
      skipBlanks();
      if (at() != ',') return;
      pos++;
    }
  }

  void comparison() {
    operand();
    if (failed) return;
    skipBlanks();
    char c = at();
    if (c == '=' || c == '!') {
      if (at(1) != '=') {
        if (c == '=')
          fail(pos, "a single '=' is no comparison", "compare with '=='");
        else
          fail(pos, "'!' alone is no operator", "there is no NOT: write (CONDITION)==0");
        return;
      }
      pos += 2;
    } else if (c == '<' || c == '>') {
      pos++;
      if (at() == '=') pos++;
    } else {
      return;
    }
    operand();
  }

  void operand() {
    skipBlanks();
    size_t start = pos;
    char c = at();
    if (c == '(') {
      pos++;
      expression();
      if (failed) return;
      skipBlanks();
      if (at() == ')') {
        pos++;
      } else if (pos >= text.size()) {
        note(start, "the '(' is not closed", "add ')' at the end", true);
      } else {
        unexpected(pos);
      }
      return;
    }
    if (c == '\'') {
      pos++;
      while (pos < text.size() && text[pos] != '\'') {
        if (text[pos] == '[') {
          reference(true);
          if (failed) return;
        } else {
          pos++;
        }
      }
      if (pos < text.size()) {
        pos++;
      } else {
        note(start, "the text is not closed", "add ' at its end", true);
      }
      return;
    }
    if (c == '[') {
      reference(false);
      // What a value holds is read as part of the condition: a reference
      // directly followed by digits makes one number of them.
      while (isDigit(at())) pos++;
      return;
    }
    if (isDigit(c)) {
      number();
      return;
    }
    if (c == 0) {
      fail(pos, "an operand is missing here", "");
    } else if (c == '"') {
      fail(pos, "texts are quoted with ', not \"", "write 'text'");
    } else if (c == '!') {
      fail(pos, "there is no NOT", "compare the group with 0: (CONDITION)==0");
    } else if (isLetter(c)) {
      size_t end = pos;
      while (end < text.size() && isLetter(text[end])) end++;
      std::string word = lower(text.substr(pos, end - pos));
      if (word == "not")
        fail(pos, "there is no NOT", "compare the group with 0: (CONDITION)==0");
      else if (word == "true" || word == "false")
        fail(pos, "there is no '" + word + "'", word == "true" ? "write 1" : "write 0");
      else
        fail(pos, "a text must be in quotes", "write '" + text.substr(pos, end - pos) + "'");
    } else {
      fail(pos, std::string("'") + c + "' can't begin an operand", "");
    }
  }

  void number() {
    if (at() == '0' && (at(1) == 'x' || at(1) == 'X')) {
      pos += 2;
      while (std::isxdigit(static_cast<unsigned char>(at()))) pos++;
      return;
    }
    while (isDigit(at())) pos++;
  }

  // A [NAME] reference at pos.
  void reference(bool quoted) {
    size_t start = pos;
    size_t close = text.find(']', pos);
    if (close == std::string::npos) {
      fail(start, "the reference has no ']'", "write [NAME]");
      return;
    }
    uses->push_back(VariableUse{text.substr(start + 1, close - start - 1), start, quoted});
    pos = close + 1;
  }

  // Something stands where the expression should end or go on.
  void unexpected(size_t at) {
    std::string rest = text.substr(at);
    std::string word = lower(rest.substr(0, rest.find_first_of(" \t([")));
    if (rest.compare(0, 2, "&&") == 0 || rest[0] == '&' || word == "and")
      fail(at, "'" + rest.substr(0, rest[0] == '&' ? (rest.compare(0, 2, "&&") == 0 ? 2 : 1) : 3) + "' is no operator",
           "AND is written ','");
    else if (rest.compare(0, 2, "||") == 0 || rest[0] == '|' || word == "or")
      fail(at, "'" + rest.substr(0, rest[0] == '|' ? (rest.compare(0, 2, "||") == 0 ? 2 : 1) : 2) + "' is no operator",
           "OR is written ';'");
    else if (rest[0] == ')')
      fail(at, "')' without '('", "");
    else if (rest[0] == '=' || rest[0] == '!')
      fail(at, "'" + rest.substr(0, 1) + "' can't stand here", "an operator stands between two operands, without blanks inside it");
    else
      fail(at, "unexpected '" + rest.substr(0, 1) + "': the condition ends before it", "");
  }

  void fail(size_t at, const std::string& message, const std::string& hint) {
    issues->push_back(TextIssue{at, message, hint, false});
    failed = true;
  }
  void note(size_t at, const std::string& message, const std::string& hint, bool tolerated) {
    issues->push_back(TextIssue{at, message, hint, tolerated});
  }

  char at(size_t ahead = 0) const { return pos + ahead < text.size() ? text[pos + ahead] : 0; }
  void skipBlanks() {
    while (isBlank(at())) pos++;
  }

  const std::string& text;
  size_t pos;
  std::vector<TextIssue>* issues;
  std::vector<VariableUse>* uses;
  bool failed;
};

}  // namespace

void checkCondition(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses) {
  if (text.empty()) return;
  ConditionChecker(text, issues, uses).run();
}

void checkAction(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* assigned) {
  if (text.empty()) return;
  if (lower(text.substr(0, 6)) == "cancel" || lower(text.substr(0, 4)) == "help") {
    size_t word = lower(text.substr(0, 6)) == "cancel" ? 6 : 4;
    if (text.find_first_not_of(" \t;", word) != std::string::npos)
      issues->push_back(TextIssue{word, "only the first word of an Action can be " + text.substr(0, word) +
                                            ": what follows it is not done",
                                  "put the assignments first, or leave them out", false});
    return;
  }
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(';', start);
    if (end == std::string::npos) end = text.size();
    std::string piece = text.substr(start, end - start);
    if (piece.find_first_not_of(" \t") != std::string::npos) {
      size_t open = piece.find('[');
      size_t close = piece.rfind(']');
      size_t firstQuote = piece.find('\'');
      size_t lastQuote = piece.rfind('\'');
      if (open == std::string::npos || close == std::string::npos || close < open) {
        issues->push_back(TextIssue{start, "an assignment names its variable in brackets", "write [NAME]='value'", false});
      } else if (firstQuote == std::string::npos || firstQuote == lastQuote) {
        issues->push_back(TextIssue{start, "an assignment's value stands between two single quotes",
                                    "write [NAME]='value'", false});
      } else {
        std::string name = piece.substr(open + 1, close - open - 1);
        if (name.empty())
          issues->push_back(TextIssue{start + open, "the assignment names no variable", "write [NAME]='value'", false});
        else
          assigned->push_back(VariableUse{name, start + open, false});
        std::string value = piece.substr(firstQuote + 1, lastQuote - firstQuote - 1);
        if (value.find('[') != std::string::npos)
          issues->push_back(TextIssue{start + firstQuote + 1, "a value is stored as it stands: its [NAME] is not replaced",
                                      "", true});
      }
    }
    if (end == text.size()) break;
    start = end + 1;
  }
}

void findReferences(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses) {
  size_t pos = 0;
  while ((pos = text.find('[', pos)) != std::string::npos) {
    size_t close = text.find(']', pos);
    if (close == std::string::npos) {
      issues->push_back(TextIssue{pos, "the reference has no ']'", "write [NAME]", false});
      return;
    }
    uses->push_back(VariableUse{text.substr(pos + 1, close - pos - 1), pos, false});
    pos = close + 1;
  }
}

void findDollarReferences(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses) {
  for (size_t pos = 0; pos < text.size(); pos++) {
    if (text[pos] != '$') continue;
    size_t end = pos + 1;
    while (end < text.size() && isNameCharacter(text[end])) end++;
    if (end == pos + 1) {
      issues->push_back(TextIssue{pos, "a '$' without a name behind it makes the entry fail",
                                  "a $ in a value always names a variable", false});
      continue;
    }
    uses->push_back(VariableUse{text.substr(pos + 1, end - pos - 1), pos, false});
    pos = end - 1;
  }
}
