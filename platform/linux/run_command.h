// Runs one program to its end and gives its exit code. The program is
// started directly with its argument list (no shell, so no text of a
// template is ever read as shell syntax), with standard input, output and
// error on /dev/null.
#ifndef QLUX_PLATFORM_LINUX_RUN_COMMAND_H_
#define QLUX_PLATFORM_LINUX_RUN_COMMAND_H_

#include <string>
#include <vector>

namespace Host {

// `arguments[0]` is the program's full path. The exit code, or -1 if the
// program couldn't be started or didn't end normally.
int runCommand(const std::vector<std::string>& arguments);

// The full path of an executable file named `name` in a directory of $PATH;
// empty if there is none.
std::string findOnPath(const char* name);

}  // namespace Host

#endif  // QLUX_PLATFORM_LINUX_RUN_COMMAND_H_
