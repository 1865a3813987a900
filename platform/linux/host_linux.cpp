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

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/root.h"

extern char** environ;

namespace Host {

namespace {

const char kEscapeByte = static_cast<char>(0xAC);

bool needsQuotes(const char* arg) { return !*arg || std::strpbrk(arg, " \t\"") != nullptr; }

// Quotes a value so that the parser takes it whole: a '"' inside is kept by
// the escape byte in front of it.
void appendQuoted(std::string* line, const char* text) {
  *line += '"';
  for (; *text; text++) {
    if (*text == '"') *line += kEscapeByte;
    *line += *text;
  }
  *line += '"';
}

}  // namespace

bool getCommandLine(int argc, char** argv, QUtils::CharString* out) {
  if (argc < 1 || !argv || !argv[0]) return false;
  std::string line;
  appendQuoted(&line, argv[0]);
  for (int i = 1; i < argc; i++) {
    const char* arg = argv[i];
    line += ' ';
    if (!needsQuotes(arg)) {
      line += arg;
      continue;
    }
    // -name=value with blanks in the value: quote the value alone.
    const char* equals = std::strchr(arg, '=');
    if (arg[0] == '-' && equals && !std::strpbrk(std::string(arg, equals).c_str(), " \t\"")) {
      line.append(arg, equals + 1);
      appendQuoted(&line, equals + 1);
    } else {
      appendQuoted(&line, arg);
    }
  }
  out->assign(line.c_str());
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
  FILE* file = std::fopen(path, "wb");
  if (!file) return false;
  std::fclose(file);
  std::remove(path);
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
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  QUtils::CharString directory = QUtils::systemPath(workDirectory);
  if (workDirectory && *workDirectory) posix_spawn_file_actions_addchdir_np(&actions, directory.getText());
  const char* args[] = {"/bin/sh", "-c", commandLine, nullptr};
  int result = posix_spawn(pid, "/bin/sh", &actions, nullptr, const_cast<char**>(args), environ);
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

int copyFile(const char* from, const char* to) {
  QUtils::CharString source = QUtils::systemPath(from);
  QUtils::CharString target = QUtils::systemPath(to);
  int in = open(source.getText() ? source.getText() : "", O_RDONLY | O_CLOEXEC);
  if (in < 0) return errno;
  struct stat info;
  if (fstat(in, &info) != 0 || !S_ISREG(info.st_mode)) {
    int error = S_ISREG(info.st_mode) ? errno : EISDIR;
    close(in);
    return error;
  }
  int out = open(target.getText() ? target.getText() : "", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                 info.st_mode & 07777);
  if (out < 0) {
    int error = errno;
    close(in);
    return error;
  }
  char buffer[65536];
  int error = 0;
  for (;;) {
    ssize_t n = read(in, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = errno;
      break;
    }
    if (n == 0) break;
    for (ssize_t done = 0; done < n;) {
      ssize_t w = write(out, buffer + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w < 0) {
        error = errno;
        break;
      }
      done += w;
    }
    if (error) break;
  }
  if (fchmod(out, info.st_mode & 07777) != 0 && !error) error = errno;
  if (close(out) != 0 && !error) error = errno;
  close(in);
  return error;
}

void releaseOwnConsole() {}

bool hasMessageBox() { return false; }

void showMessageBox(const char* text, const char*, MessageIcon) {
  std::printf("%s\n", text);
  std::fflush(stdout);
}

}  // namespace Host
