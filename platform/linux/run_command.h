// Runs one program to its end and gives its exit code. The program is
// started directly with its argument list (no shell, so no text of a
// template is ever read as shell syntax), with standard input and error on
// /dev/null, and its output there too unless the caller keeps it.
#ifndef QLUX_PLATFORM_LINUX_RUN_COMMAND_H_
#define QLUX_PLATFORM_LINUX_RUN_COMMAND_H_

#include <string>
#include <vector>

namespace Host {

// `arguments[0]` is the program's full path. The exit code, or -1 if the
// program couldn't be started or didn't end normally. With `output`, the
// program's standard output is kept there (its first 64 KiB) instead of
// going to /dev/null.
int runCommand(const std::vector<std::string>& arguments, std::string* output = nullptr);

// The full path of an executable file named `name` in a directory of $PATH;
// empty if there is none.
std::string findOnPath(const char* name);

}  // namespace Host

#endif  // QLUX_PLATFORM_LINUX_RUN_COMMAND_H_
