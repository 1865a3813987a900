// Parameters: the parsed command line, a list of named options with text
// values, read by name.
//
// The syntax is `-name`, `--name`, `-name=value`, `-name="value with blanks"`
// and `"-name=value with blanks"`, separated by blanks. Parsing stops at the
// first word that doesn't begin with `-`; what was read up to there stands.
// Inside a quoted value a `"` behind the escape byte belongs to the value,
// and every escape byte is removed from the value.
//
// The list knows no option names. Look-ups ignore ASCII case, and of a name
// given twice only the first counts. An option without a value has the empty
// text as its value, never null. Texts handed out belong to the list.
#ifndef QLUX_FOUNDATION_PARAMETERS_H_
#define QLUX_FOUNDATION_PARAMETERS_H_

#include <cstdint>

#include "foundation/errors.h"
#include "foundation/lists.h"

namespace QUtils {

// The escape byte of the program's own command line.
const char kCommandLineEscape = static_cast<char>(0xAC);

class Parameter {
 public:
  // Copies both texts; a null value becomes the empty text.
  Parameter(const char* name, int nameLength, const char* value);
  Parameter(const Parameter&) = delete;
  Parameter& operator=(const Parameter&) = delete;
  ~Parameter();

  // Checked reading of the value. Each gives true and stores the value, or
  // gives false, leaves `out` alone and adds a message naming the option and
  // its value to `errors` (which may be null).
  // asBoolean: a whole decimal number, 0 or 1.
  bool asBoolean(bool* out, ErrorChain* errors) const;
  // asInteger: a whole decimal number in the range of 32 bits.
  bool asInteger(int32_t* out, ErrorChain* errors) const;
  // asFloat: a whole decimal floating point number.
  bool asFloat(float* out, ErrorChain* errors) const;

  char* name;
  char* value;
};

class Parameters {
 public:
  Parameters();
  Parameters(const Parameters&) = delete;
  Parameters& operator=(const Parameters&) = delete;
  ~Parameters();

  // Parses a whole command line with the program's name in front, which is
  // skipped (quoted or up to the first blank). Options are appended.
  // Gives 0; -1 when a word doesn't begin with `-` (parsing stops there);
  // -2 when a quoted value has no closing quote (that option is dropped).
  int parseCommandLine(const char* text, char escape);
  // The same for a text of options alone.
  int parseArguments(const char* text, char escape);

  // The index of the first option named `name` behind index `after` (-1
  // searches from the start), or -1.
  int find(const char* name, int after) const;
  // If the option is there, stores the number its value begins with (as
  // atoi reads it: blanks, a sign, digits; no number gives 0) and gives
  // true. Otherwise gives false and leaves `out` alone.
  bool getInteger(const char* name, int* out) const;
  // If the option is there, stores its value (if `out` isn't null) and
  // gives true.
  bool getText(const char* name, const char** out) const;

  int getCount() const { return list.getCount(); }
  // Null out of range.
  Parameter* get(int index) const;
  void clear();

 private:
  Table<Parameter*> list;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_PARAMETERS_H_
