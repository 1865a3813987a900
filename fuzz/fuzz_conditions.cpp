// Fuzzes variable expansion and the condition language through an engine
// with a few variables defined: the input, as text, is expanded both ways
// and evaluated as a condition.
#include <cstdint>
#include <string>

#include "engine/test_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  TestInstaller engine;
  engine.setVariable("A", "1");
  engine.setVariable("B", "0");
  engine.setVariable("T", "abc");
  engine.setVariable("LIST", "1,0");
  engine.setVariable("EMPTY", "");
  engine.setVariable("Q", "it's");
  engine.setVariable("NEST", "[A]");
  engine.defineVariable("ROOT", "/opt/app", nullptr, 0, "");
  engine.defineVariable("CHILD", "", "$ROOT/sub", 1, "");

  char buffer[2048];
  engine.expandVariables(text.c_str(), buffer, sizeof buffer);
  engine.expandVariables(text.c_str(), buffer, 7);
  engine.expandDollars(text.c_str(), buffer, sizeof buffer);
  engine.evaluateCondition(text.c_str());
  return 0;
}
