// Runs a command line through the shell for the builder's tests, and gives
// its exit code with its output (standard output and error together).
#ifndef QLUX_TESTS_PACKAGE_RUN_COMMAND_H_
#define QLUX_TESTS_PACKAGE_RUN_COMMAND_H_

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct CommandResult {
  int status;  // the exit code, -1 when the command didn't end normally
  std::string output;
};

inline CommandResult run(const std::string& command) {
  CommandResult result{-1, ""};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return result;
  char block[4096];
  size_t got;
  while ((got = std::fread(block, 1, sizeof(block), pipe)) > 0) result.output.append(block, got);
  int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

#endif  // QLUX_TESTS_PACKAGE_RUN_COMMAND_H_
