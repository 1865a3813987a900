// Test helper shared by the unit tests of several directories: sets or
// removes an environment variable of the test process in the same way on
// both systems, so that a test can try the settings that a unit reads.
#ifndef QLUX_FOUNDATION_TEST_ENV_H_
#define QLUX_FOUNDATION_TEST_ENV_H_

#include <cstdlib>

namespace QUtils {

// Sets `name` to `value`; a null `value` removes the variable. On Windows a
// variable can't hold an empty text, so there an empty `value` removes it
// as well.
inline void setEnvironment(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value ? value : "");
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
