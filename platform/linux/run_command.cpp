// Running a program to its end, and finding one on $PATH.
#include "platform/linux/run_command.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/files.h"
#include "foundation/text.h"

extern char** environ;

namespace Host {

int runCommand(const std::vector<std::string>& arguments, std::string* output) {
  if (output) output->clear();
  if (arguments.empty() || arguments[0].empty()) return -1;
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  int pipeEnds[2] = {-1, -1};
  if (output && pipe2(pipeEnds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (output)
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  else
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  int started = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (output) close(pipeEnds[1]);
  if (started != 0) {
    if (output) close(pipeEnds[0]);
    return -1;
  }

  if (output) {
    // Read to the end, so that the program never blocks on a full pipe;
    // what passes kMaxOutput is read and dropped.
    const size_t kMaxOutput = 65536;
    char block[4096];
    for (;;) {
      ssize_t got = read(pipeEnds[0], block, sizeof block);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      if (output->size() < kMaxOutput) output->append(block, static_cast<size_t>(got));
    }
    close(pipeEnds[0]);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string findOnPath(const char* name) {
  char path[QUtils::kMaxPath];
  return QUtils::findOnPath(name, path, sizeof path) ? std::string(path) : std::string();
}

}  // namespace Host
