// Test helpers shared by the unit tests of several directories: setting or
// removing an environment variable of the test process in the same way on
// both systems, so that a test can try the settings that a unit reads; and
// on POSIX counting the process's descriptors of deleted files, so that a
// test sees what space a deletion still holds.
#ifndef QLUX_FOUNDATION_TEST_ENV_H_
#define QLUX_FOUNDATION_TEST_ENV_H_

#include <cstdlib>
#include <string>

#ifdef _WIN32
#include <windows.h>

#include "foundation/convert.h"
#else
#include <dirent.h>
#include <unistd.h>
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

#ifndef _WIN32
// The number of this process's open descriptors that lead to a deleted
// file or directory whose path began with `prefix`.
inline int descriptorsOfDeletedFiles(const std::string& prefix) {
  int count = 0;
  DIR* fds = opendir("/proc/self/fd");
  if (!fds) return -1;
  while (dirent* entry = readdir(fds)) {
    char target[4096];
    std::string link = std::string("/proc/self/fd/") + entry->d_name;
    ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
    if (length <= 0) continue;
    std::string text(target, static_cast<size_t>(length));
    const std::string deleted = " (deleted)";
    if (text.compare(0, prefix.size(), prefix) == 0 && text.size() > deleted.size() &&
        text.compare(text.size() - deleted.size(), deleted.size(), deleted) == 0)
      count++;
  }
  closedir(fds);
  return count;
}
#endif

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_TEST_ENV_H_
