// The body of Parameters (parameters.h): parsing the command line's words
// into named options, and reading them back by name and type.
#include "foundation/parameters.h"

#include <climits>
#include <cstring>

#include "foundation/text.h"

namespace QUtils {

namespace {

char* duplicate(const char* text, int length) {
  char* copy = new char[length + 1];
  std::memcpy(copy, text, static_cast<size_t>(length));
  copy[length] = 0;
  return copy;
}

const char* skipBlanks(const char* p) {
  while (*p == ' ' || *p == '\t') p++;
  return p;
}

const char* skipSpaces(const char* p) {
  while (*p == ' ') p++;
  return p;
}

// atoi's reading, without its undefined overflow: the value saturates.
int leadingInteger(const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) p++;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  long long value = 0;
  for (; *p >= '0' && *p <= '9'; p++) {
    value = value * 10 + (*p - '0');
    if (value > static_cast<long long>(INT_MAX) + 1) value = static_cast<long long>(INT_MAX) + 1;
  }
  if (negative) value = -value;
  if (value > INT_MAX) value = INT_MAX;
  return static_cast<int>(value);
}

}  // namespace

Parameter::Parameter(const char* nameText, int nameLength, const char* valueText)
    : name(duplicate(nameText, nameLength)),
      value(duplicate(valueText ? valueText : "", valueText ? static_cast<int>(std::strlen(valueText)) : 0)) {}

Parameter::~Parameter() {
  delete[] name;
  delete[] value;
}

bool Parameter::asBoolean(bool* out, ErrorChain* errors) const {
  int32_t number = 0;
  if (!parseInteger(&number, value) || (number != 0 && number != 1)) {
    if (errors)
      errors->addError("Parameter::asBoolean", -1, "Integer value of 0 or 1 expected for parameter '%s', but got '%s'",
                       name, value);
    return false;
  }
  if (out) *out = number == 1;
  return true;
}

bool Parameter::asInteger(int32_t* out, ErrorChain* errors) const {
  int32_t number = 0;
  if (!parseInteger(&number, value)) {
    if (errors)
      errors->addError("Parameter::asInteger", -1, "Integer value expected for parameter '%s', but got '%s'", name,
                       value);
    return false;
  }
  if (out) *out = number;
  return true;
}

bool Parameter::asFloat(float* out, ErrorChain* errors) const {
  float number = 0;
  if (!parseFloat(&number, value)) {
    if (errors)
      errors->addError("Parameter::asFloat", -1,
                       "Floating point value expected for parameter '%s', but got '%s'", name, value);
    return false;
  }
  if (out) *out = number;
  return true;
}

Parameters::Parameters() : list(100) {}

Parameters::~Parameters() { clear(); }

void Parameters::clear() {
  for (int i = 0; i < list.getCount(); i++) delete list[i];
  list.clear();
}

Parameter* Parameters::get(int index) const {
  if (index < 0 || index >= list.getCount()) return nullptr;
  return list[index];
}

int Parameters::parseCommandLine(const char* text, char escape) {
  if (!text) return 0;
  const char* p = skipBlanks(text);
  if (*p == '"') {
    const char* close = std::strchr(p + 1, '"');
    p = close ? close + 1 : p + std::strlen(p);
  } else {
    while (*p && *p != ' ' && *p != '\t') p++;
  }
  return parseArguments(skipBlanks(p), escape);
}

int Parameters::parseArguments(const char* text, char escape) {
  if (!text) return 0;
  const char* p = skipBlanks(text);
  while (*p) {
    // A quote before the dash makes the whole word one quoted argument,
    // as a shell's quoting of "-path=C:\Program Files" leaves it.
    bool quotedWord = *p == '"';
    if (quotedWord) p++;
    if (*p != '-') return -1;
    p++;
    if (*p == '-') p++;

    const char* name = p;
    while (*p && *p != ' ' && *p != '=' && !(quotedWord && *p == '"')) p++;
    int nameLength = static_cast<int>(p - name);
    if (quotedWord && *p == '"') p++;  // "-flag" quoted without a value
    p = skipSpaces(p);
    if (*p != '=') {
      list.add(new Parameter(name, nameLength, ""));
      continue;
    }

    while (*p == '=' || *p == ' ') p++;
    bool quoted = quotedWord;
    if (*p == '"') {
      quoted = true;
      p++;
    }
    const char* start = p;
    if (quoted) {
      // Up to a quote whose preceding byte isn't the escape byte; p > text
      // here, so p[-1] is always readable.
      while (*p && !(*p == '"' && p[-1] != escape)) p++;
      if (*p != '"') return -2;
    } else {
      while (*p && *p != ' ') p++;
    }

    // The value without its escape bytes.
    int length = static_cast<int>(p - start);
    char* value = new char[length + 1];
    int kept = 0;
    for (int i = 0; i < length; i++)
      if (start[i] != escape) value[kept++] = start[i];
    value[kept] = 0;
    list.add(new Parameter(name, nameLength, value));
    delete[] value;

    if (*p) p++;  // the closing quote or the blank
    p = skipSpaces(p);
  }
  return 0;
}

int Parameters::find(const char* name, int after) const {
  if (!name || after < -1) return -1;
  for (int i = after + 1; i < list.getCount(); i++)
    if (compareNoCase(list[i]->name, name) == 0) return i;
  return -1;
}

bool Parameters::getInteger(const char* name, int* out) const {
  int index = find(name, -1);
  if (index < 0) return false;
  if (out) *out = leadingInteger(list[index]->value);
  return true;
}

bool Parameters::getText(const char* name, const char** out) const {
  int index = find(name, -1);
  if (index < 0) return false;
  if (out) *out = list[index]->value;
  return true;
}

}  // namespace QUtils
