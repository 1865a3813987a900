// Tests of running programs on Windows: exit codes, working directory,
// waiting, and missing programs.
#include <direct.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "engine/test_support.h"
#include "platform/program_thread.h"
#include "platform/windows/wini.h"

namespace {

// The test binary starts in a fresh directory of its own.
std::string scratch(const char* name) {
  char here[1024];
  if (!_getcwd(here, sizeof here)) return name;
  std::string path = std::string(here) + "\\" + name;
  _mkdir(path.c_str());
  return path;
}

bool exists(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  std::fclose(file);
  return true;
}

class PumpingUI : public RecordingUI {
 public:
  void pumpEvents() override { pumps++; }
  int pumps = 0;
};

const int kWait = Installer::RUN_WAIT;
const int kAsync = Installer::RUN_ASYNCHRONOUS;

}  // namespace

TEST(WiniPrograms, WaitGivesTheExitCode) {
  RUNPROGRAMJOB job;
  fillProgramJob(&job, "cmd.exe", "/c exit 3", nullptr, kWait);
  EXPECT_EQ(3, runProgramJob(job));

  Wini engine(0, 0, 0);
  EXPECT_FALSE(engine.runProgram("cmd.exe", "/c exit 3", kWait, nullptr, nullptr, 0));
  EXPECT_TRUE(engine.runProgram("cmd.exe", "/c exit 0", kWait, nullptr, nullptr, 0));
}

TEST(WiniPrograms, WorkingDirectory) {
  std::string work = scratch("work dir");
  Wini engine(0, 0, 0);
  EXPECT_TRUE(engine.runProgram("cmd.exe", "/c echo here> marker.txt", kWait, work.c_str(), nullptr, 0));
  EXPECT_TRUE(exists(work + "\\marker.txt"));
}

TEST(WiniPrograms, AsynchronousWaitsForTheExitCode) {
  std::string work = scratch("async");
  Wini engine(0, 0, 0);
  PumpingUI ui;
  EXPECT_FALSE(engine.runProgram("cmd.exe", "/c exit 3", kAsync | Installer::RUN_PROGRESS, nullptr, &ui, 10));
  EXPECT_TRUE(engine.runProgram("cmd.exe", "/c echo x> async.txt", kAsync, work.c_str(), nullptr, 0));
  EXPECT_TRUE(exists(work + "\\async.txt"));
  EXPECT_NE(nullptr, engine.programRuns.threadManager);
}

TEST(WiniPrograms, MissingProgramsFail) {
  Wini engine(0, 0, 0);
  for (int flags : {0, kWait, kAsync}) {
    SCOPED_TRACE(flags);
    EXPECT_FALSE(engine.runProgram("C:\\qlux\\no\\such\\program.exe", nullptr, flags, nullptr, nullptr, 0));
  }
}
