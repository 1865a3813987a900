// Host services on Linux.
#include "platform/host.h"

#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/command_line.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/root.h"

extern char** environ;

namespace Host {

namespace {

const char kEscapeByte = static_cast<char>(0xAC);

}  // namespace

bool getCommandLine(int argc, char** argv, QUtils::CharString* out) {
  if (argc < 1 || !argv || !argv[0]) return false;
  std::vector<std::string> words(argv, argv + argc);
  out->assign(QUtils::toParameterText(words, kEscapeByte).c_str());
  return true;
}

bool getProgramFilesDirectory(char* out, int size) {
  QUtils::copyText(out, rootPath("opt").getText(), size);
  return true;
}

bool hasAdminRights() {
  char path[QUtils::kMaxPath];
  if (!getProgramFilesDirectory(path, sizeof path)) return false;
  QUtils::appendText(path, "/test$$$1234ajgtr.tmp", sizeof path);
  FILE* file = QUtils::openFile(path, "wb");
  if (!file) return false;
  std::fclose(file);
  QUtils::deleteFile(path);
  return true;
}

void signalNamedEvent(const char* name) {
  std::string semaphore = std::string("/") + name;
  sem_t* event = sem_open(semaphore.c_str(), 0);
  if (event == SEM_FAILED) return;
  sem_post(event);
  sem_close(event);
}

struct NamedEvent {
  std::string name;
  sem_t* semaphore;
};

NamedEvent* createNamedEvent(const char* name) {
  std::string semaphoreName = std::string("/") + name;
  // A semaphore left by an earlier run may still hold a count.
  sem_unlink(semaphoreName.c_str());
  sem_t* semaphore = sem_open(semaphoreName.c_str(), O_CREAT | O_EXCL, 0600, 0);
  if (semaphore == SEM_FAILED) return nullptr;
  return new NamedEvent{semaphoreName, semaphore};
}

bool waitNamedEvent(NamedEvent* event, int timeoutMs) {
  if (!event) return false;
  struct timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += timeoutMs / 1000;
  deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec++;
    deadline.tv_nsec -= 1000000000L;
  }
  while (sem_timedwait(event->semaphore, &deadline) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

void closeNamedEvent(NamedEvent* event) {
  if (!event) return;
  sem_close(event->semaphore);
  sem_unlink(event->name.c_str());
  delete event;
}

namespace {

int spawn(const char* commandLine, const char* workDirectory, pid_t* pid) {
  // The line is read as the started program would read it on Windows; no
  // shell sees it.
  std::vector<std::string> words = QUtils::splitCommandLine(commandLine);
  if (words.empty() || words[0].empty()) return ENOENT;
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  std::string program = QUtils::systemPath(words[0].c_str()).getText();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  QUtils::CharString directory = QUtils::systemPath(workDirectory);
  if (workDirectory && *workDirectory) posix_spawn_file_actions_addchdir_np(&actions, directory.getText());
  int result = program.find('/') == std::string::npos
                   ? posix_spawnp(pid, program.c_str(), &actions, nullptr, argv.data(), environ)
                   : posix_spawn(pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return result;
}

}  // namespace

int startProcess(const char* commandLine, const char* workDirectory) {
  pid_t pid;
  return spawn(commandLine, workDirectory, &pid);
}

int runProcess(const char* commandLine, const char* workDirectory, int* outExitCode) {
  pid_t pid;
  int error = spawn(commandLine, workDirectory, &pid);
  if (error != 0) return error;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  *outExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : 1;
  return 0;
}

bool setAsideOwnProgram(const char*, char* outMoved, int size) {
  if (outMoved && size > 0) outMoved[0] = 0;
  return false;  // a running program's file may go with its folder
}

bool removeOwnProgram() {
  char self[QUtils::kMaxPath];
  if (!QUtils::getModulePath(self, sizeof self)) return false;
  // The process keeps its image while it runs; the name goes now.
  return unlink(self) == 0 || errno == ENOENT;
}

void releaseOwnConsole() {}

bool hasMessageBox() { return false; }

void showMessageBox(const char* text, const char*, MessageIcon) {
  std::printf("%s\n", text);
  std::fflush(stdout);
}

}  // namespace Host
