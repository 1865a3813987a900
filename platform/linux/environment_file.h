// EnvironmentFile: the machine-wide environment on Linux, a file of lines
// NAME=value (normally $QLUX_ROOT/etc/environment).
//
// A line is a variable if, after optional blanks and an optional "export ",
// it has a name of letters, digits and '_' followed by '='. A value in
// double or single quotes is read without them. Blank lines, comments and
// every line that isn't changed are kept as they stand, with their own line
// ends. Where a name is defined twice, the last line counts, as it does for
// the system's reader. A changed line keeps its blanks, "export " and
// quotes; a new line goes at the end, in double quotes if its value holds
// blanks or other characters that a shell would read. The new file is
// written beside the old one and renamed over it, so a reader sees the old
// variables or the new ones, never a part.
#ifndef QLUX_PLATFORM_LINUX_ENVIRONMENT_FILE_H_
#define QLUX_PLATFORM_LINUX_ENVIRONMENT_FILE_H_

#include <string>

class EnvironmentFile {
 public:
  explicit EnvironmentFile(const char* path) : path(path ? path : "") {}

  // The length of the variable's value, or -1 if it isn't defined (or the
  // file can't be read). The value is copied to `out` only if it is shorter
  // than `size`; otherwise `out` is left empty.
  int get(const char* name, char* out, int size) const;
  // Sets the variable, making the file and its directory if needed. False
  // for a name that isn't one, a value with a line end, or a failed write.
  bool set(const char* name, const char* value);
  // Removes every line of the variable. False if there was none, or the
  // file couldn't be written.
  bool remove(const char* name);

 private:
  // Reads the file; a file that isn't there is empty. False on a read error.
  bool load(std::string* out) const;
  bool store(const std::string& data);

  std::string path;
};

#endif  // QLUX_PLATFORM_LINUX_ENVIRONMENT_FILE_H_
