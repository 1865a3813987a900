// Fuzzes the command line: the input is parsed as a whole command line
// (program name first) with the program's escape byte and as a text of
// options with a quote-free escape, then read as the entry reads it, and
// every option's value is read as each checked type.
#include <cstdint>
#include <string>

#include "app/options.h"
#include "foundation/errors.h"
#include "foundation/parameters.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);

  QUtils::Parameters parameters;
  parameters.parseCommandLine(text.c_str(), QUtils::kCommandLineEscape);
  RunOptions options;
  readRunOptions(parameters, &options);

  QUtils::Parameters arguments;
  arguments.parseArguments(text.c_str(), '\\');
  QUtils::ErrorChain errors;
  for (int i = 0; i < arguments.getCount(); i++) {
    QUtils::Parameter* parameter = arguments.get(i);
    bool flag;
    int32_t number;
    float real;
    parameter->asBoolean(&flag, &errors);
    parameter->asInteger(&number, &errors);
    parameter->asFloat(&real, &errors);
    arguments.find(parameter->name, i);
  }
  const char* value;
  arguments.getText("bin", &value);
  int number;
  arguments.getInteger("debug", &number);
  return 0;
}
