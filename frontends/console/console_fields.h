// The console's questions: each turns one field of a dialog into a
// question to the InputProvider and stores the answer in the field's
// variable through the engine. An object lives for one question. A field
// whose Condition is false isn't asked; nor is any field once the input has
// run out (the walk is ending then).
#ifndef QLUX_FRONTENDS_CONSOLE_CONSOLE_FIELDS_H_
#define QLUX_FRONTENDS_CONSOLE_CONSOLE_FIELDS_H_

#include "engine/dialog_records.h"
#include "engine/exchange.h"
#include "frontends/console/input_provider.h"

namespace ConsoleInterface {

class ConsoleField {
 public:
  virtual ~ConsoleField() {}
  virtual void ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) = 0;
};

// A path, with the variable's value (or its default) as the preset answer.
class DirectoryField : public ConsoleField {
 public:
  void ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) override;
};

// "no" or "yes", stored as 0 or 1.
class CheckboxField : public ConsoleField {
 public:
  void ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) override;
};

// One of the options of Content (";"-separated, with the Description of
// each behind it), stored as its index. Enable holds one condition per
// option, separated by "|".
class RadioField : public ConsoleField {
 public:
  void ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) override;
};

}  // namespace ConsoleInterface

#endif  // QLUX_FRONTENDS_CONSOLE_CONSOLE_FIELDS_H_
