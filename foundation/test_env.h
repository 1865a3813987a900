// Test helper shared by the unit tests of several directories: sets or
// removes an environment variable of the test process in the same way on
// both systems, so that a test can try the settings that a unit reads.
#ifndef QLUX_FOUNDATION_TEST_ENV_H_
#define QLUX_FOUNDATION_TEST_ENV_H_

#include <cstdlib>

#ifdef _WIN32
#include <windows.h>

#include "foundation/convert.h"
#endif

namespace QUtils {

// Sets `name` to the UTF-8 `value`; a null `value` removes the variable.
// Windows takes both as wide text, so a value with letters outside the
// ANSI code page arrives whole, as the system's own environment has it.
inline void setEnvironment(const char* name, const char* value) {
#ifdef _WIN32
  TextConverter wideName(name);
  TextConverter wideValue(value);
  SetEnvironmentVariableW(wideName.wide(), value ? wideValue.wide() : nullptr);
#else
  if (value) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
#endif
}

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_TEST_ENV_H_
