// Tests of running programs on Linux: exit codes, working directory and
// arguments, programs that can't start, and waiting.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/test_support.h"
#include "platform/linux/linux_installer.h"
#include "platform/program_thread.h"

namespace {

// The test binary starts in a fresh directory of its own; every file these
// tests make is below it.
std::string scratch(const std::string& name) {
  char here[1024];
  if (!getcwd(here, sizeof here)) return name;
  std::string path = std::string(here) + "/" + name;
  mkdir(path.c_str(), 0755);
  return path;
}

std::string readAll(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeScript(const std::string& path, const std::string& body, mode_t mode = 0755) {
  std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
  chmod(path.c_str(), mode);
}

bool appears(const std::string& path, int ms) {
  for (int waited = 0; waited < ms; waited += 20) {
    if (access(path.c_str(), F_OK) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

// A front end that counts its pumps and keeps every progress it was given.
class PumpingUI : public RecordingUI {
 public:
  void pumpEvents() override { pumps++; }
  void setOverallProgress(int percent) override { steps.push_back(percent); }
  int pumps = 0;
  std::vector<int> steps;
};

const int kWait = Installer::RUN_WAIT;
const int kAsync = Installer::RUN_ASYNCHRONOUS;

}  // namespace

TEST(LinuxPrograms, WaitGivesTheExitCode) {
  RUNPROGRAMJOB job;
  fillProgramJob(&job, "sh", "-c \"exit 3\"", nullptr, kWait);
  EXPECT_EQ(3, runProgramJob(job));

  LinuxInstaller engine(0, 0, 0);
  EXPECT_FALSE(engine.runProgram("sh", "-c \"exit 3\"", kWait, nullptr, nullptr, 0));
  EXPECT_TRUE(engine.runProgram("sh", "-c \"exit 0\"", kWait, nullptr, nullptr, 0));
  EXPECT_TRUE(engine.runProgram("true", nullptr, kWait, nullptr, nullptr, 0));
}

TEST(LinuxPrograms, WorkingDirectoryQuotingAndArguments) {
  std::string work = scratch("work dir");
  std::string tools = scratch("tools $HOME `x`");
  // The path is taken whole, whatever it holds; the arguments are split as
  // Windows splits them, and no shell reads either.
  writeScript(tools + "/count \"args\".sh", "pwd > count.txt; echo $# \"$1\" >> count.txt");
  LinuxInstaller engine(0, 0, 0);
  EXPECT_TRUE(engine.runProgram((tools + "/count \"args\".sh").c_str(), "\"one two\" three", kWait, work.c_str(),
                                nullptr, 0));
  EXPECT_EQ(work + "\n2 one two\n", readAll(work + "/count.txt"));

  // A relative program path is found from the working directory.
  writeScript(work + "/local.sh", "echo local > local.txt");
  EXPECT_TRUE(engine.runProgram("./local.sh", nullptr, kWait, work.c_str(), nullptr, 0));
  EXPECT_EQ("local\n", readAll(work + "/local.txt"));
  // Backslashes are separators.
  EXPECT_TRUE(engine.runProgram((work + "\\local.sh").c_str(), nullptr, kWait, nullptr, nullptr, 0));
}

// No shell reads a path or an argument: what a typed folder or a product
// name holds reaches the program as characters, and nothing of it runs.
TEST(LinuxPrograms, ShellCharactersAreOnlyCharacters) {
  std::string work = scratch("shell $(touch pwned-path) `touch pwned-tick`; x");
  writeScript(work + "/args.sh", "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done > args.txt");
  LinuxInstaller engine(0, 0, 0);
  for (int flags : {kWait, kAsync}) {
    SCOPED_TRACE(flags);
    EXPECT_TRUE(engine.runProgram((work + "/args.sh").c_str(),
                                  "\"$(touch pwned)\" `touch pwned2` a;touch${IFS}pwned3 \"x\ny\" 'q' >out", flags,
                                  work.c_str(), nullptr, 0));
    EXPECT_EQ("[$(touch pwned)]\n[`touch]\n[pwned2`]\n[a;touch${IFS}pwned3]\n[x\ny]\n['q']\n[>out]\n",
              readAll(work + "/args.txt"));
  }
  for (const char* name : {"pwned", "pwned2", "pwned3", "pwned-path", "pwned-tick", "out"})
    EXPECT_NE(0, access((work + "/" + name).c_str(), F_OK)) << name;
}

TEST(LinuxPrograms, ProgramsThatCannotStartFail) {
  std::string work = scratch("fail");
  writeScript(work + "/plain.sh", "exit 0", 0644);
  LinuxInstaller engine(0, 0, 0);
  for (int flags : {0, kWait, kAsync}) {
    SCOPED_TRACE(flags);
    EXPECT_FALSE(engine.runProgram((work + "/missing").c_str(), nullptr, flags, nullptr, nullptr, 0));
    EXPECT_FALSE(engine.runProgram((work + "/plain.sh").c_str(), nullptr, flags, nullptr, nullptr, 0));
    EXPECT_FALSE(engine.runProgram("qlux-no-such-program", nullptr, flags, nullptr, nullptr, 0));
    EXPECT_FALSE(engine.runProgram(work.c_str(), nullptr, flags, nullptr, nullptr, 0));  // a directory
    EXPECT_FALSE(engine.runProgram("true", nullptr, flags, (work + "/no-such-dir").c_str(), nullptr, 0));
  }
  EXPECT_FALSE(engine.runProgram(nullptr, nullptr, kWait, nullptr, nullptr, 0));
}

TEST(LinuxPrograms, WithoutWaitReturnsAtOnce) {
  std::string work = scratch("nowait");
  LinuxInstaller engine(0, 0, 0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(engine.runProgram("sh", "-c \"sleep 1; echo late > late.txt\"", 0, work.c_str(), nullptr, 0));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(800));
  EXPECT_TRUE(appears(work + "/late.txt", 10000));
  // Its exit code is nobody's business.
  EXPECT_TRUE(engine.runProgram("false", nullptr, 0, nullptr, nullptr, 0));
}

TEST(LinuxPrograms, ErrorOutputCanBeDropped) {
  const char* check = "-c \"[ \\\"$(readlink /proc/$$/fd/2)\\\" = /dev/null ]\"";
  LinuxInstaller engine(0, 0, 0);
  EXPECT_TRUE(engine.runProgram("sh", check, kWait | Installer::RUN_NO_ERROR_OUTPUT, nullptr, nullptr, 0));
  EXPECT_TRUE(engine.runProgram("sh", check, kAsync | Installer::RUN_NO_ERROR_OUTPUT, nullptr, nullptr, 0));
  // Without the flag the program keeps the installer's own error output.
  char target[256] = {};
  if (readlink("/proc/self/fd/2", target, sizeof target - 1) > 0 && std::string(target) != "/dev/null") {
    EXPECT_FALSE(engine.runProgram("sh", check, kWait, nullptr, nullptr, 0));
  }
}

TEST(LinuxPrograms, AsynchronousKeepsTheFrontEndAlive) {
  std::string work = scratch("async");
  LinuxInstaller engine(0, 0, 0);
  PumpingUI ui;
  EXPECT_TRUE(engine.runProgram("sh", "-c \"sleep 1; echo done > done.txt\"", kAsync | Installer::RUN_PROGRESS,
                                work.c_str(), &ui, 10));
  // It waited for the end, pumping and moving the progress one step a poll.
  EXPECT_EQ("done\n", readAll(work + "/done.txt"));
  EXPECT_GE(ui.pumps, 20);
  ASSERT_FALSE(ui.steps.empty());
  EXPECT_EQ(static_cast<size_t>(ui.pumps), ui.steps.size());
  for (size_t i = 0; i < ui.steps.size(); i++) ASSERT_EQ(std::min<int>(static_cast<int>(i), 100), ui.steps[i]);

  // Without RUN_PROGRESS the progress stays; without a front end it waits
  // all the same; the exit code decides the result.
  PumpingUI quiet;
  EXPECT_FALSE(engine.runProgram("sh", "-c \"sleep 0.2; exit 3\"", kAsync, nullptr, &quiet, 10));
  EXPECT_GT(quiet.pumps, 0);
  EXPECT_TRUE(quiet.steps.empty());
  EXPECT_TRUE(engine.runProgram("sh", "-c \"sleep 0.2; echo x > null-ui.txt\"", kAsync, work.c_str(), nullptr, 0));
  EXPECT_EQ("x\n", readAll(work + "/null-ui.txt"));
  // The manager made for the first run serves the next ones.
  EXPECT_NE(nullptr, engine.programRuns.threadManager);
}

TEST(LinuxPrograms, DocumentsOpenWithXdgOpen) {
  std::string bin = scratch("bin");
  std::string work = scratch("docs");
  writeScript(bin + "/xdg-open", "echo \"$1\" > \"" + work + "/opened.txt\"");
  std::ofstream(work + "/notes.txt") << "notes";
  const char* oldPath = std::getenv("PATH");
  std::string saved = oldPath ? oldPath : "";
  setenv("PATH", (bin + ":" + saved).c_str(), 1);

  LinuxInstaller engine(0, 0, 0);
  const int document = Installer::RUN_DOCUMENT | kWait;
  EXPECT_TRUE(engine.runProgram((work + "/notes.txt").c_str(), nullptr, document, nullptr, nullptr, 100));
  EXPECT_TRUE(appears(work + "/opened.txt", 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(work + "/notes.txt\n", readAll(work + "/opened.txt"));
  EXPECT_TRUE(engine.runProgram("https://example.invalid/help", nullptr, document, nullptr, nullptr, 100));
  EXPECT_FALSE(engine.runProgram((work + "/missing.txt").c_str(), nullptr, document, nullptr, nullptr, 100));

  // Without xdg-open nothing can be opened.
  setenv("PATH", "/qlux/no/such/dir", 1);
  EXPECT_FALSE(engine.runProgram((work + "/notes.txt").c_str(), nullptr, document, nullptr, nullptr, 100));
  setenv("PATH", saved.c_str(), 1);
}
