// Tests of processes on Linux: finding and ending programs and scripts by
// name, named events, and the uninstaller's hand-over.
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "gtest/gtest.h"
#include "platform/host.h"
#include "platform/linux/linux_installer.h"

extern char** environ;

namespace {

// A copy of sleep under a name of its own, in the scratch directory that
// the test binary runs in, so that only the test's own process matches.
class RunningProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[QUtils::kMaxPath];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
    directory = cwd;
    program = directory + "/QluxSleeper";
    ASSERT_EQ(0, QUtils::copyFile("/bin/sleep", program.c_str()));
  }
  void TearDown() override {
    if (child > 0) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
    std::remove(program.c_str());
  }
  void start() {
    const char* args[] = {program.c_str(), "30", nullptr};
    ASSERT_EQ(0, posix_spawn(&child, program.c_str(), nullptr, nullptr, const_cast<char**>(args), environ));
    // The program shows in /proc once it has replaced the spawned copy.
    for (int i = 0; i < 100 && !engine.isAppRunning("qluxsleeper", nullptr); i++) usleep(20 * 1000);
  }

  LinuxInstaller engine{0, 0, 0};
  std::string directory;
  std::string program;
  pid_t child = 0;
};

TEST_F(RunningProgramTest, FindsAProgramByNameAndDirectoryAndEndsIt) {
  EXPECT_FALSE(engine.isAppRunning("QluxSleeper", nullptr));
  start();
  // Names compare without case; a directory counts when the program's path
  // contains it, at any level.
  EXPECT_TRUE(engine.isAppRunning("QLUXSLEEPER", nullptr));
  EXPECT_TRUE(engine.isAppRunning("QluxSleeper", directory.c_str()));
  EXPECT_TRUE(engine.isAppRunning("QluxSleeper", (directory + "/").c_str()));
  EXPECT_FALSE(engine.isAppRunning("QluxSleeper", "/nowhere/else"));
  EXPECT_FALSE(engine.isAppRunning("Sleeper", nullptr));
  EXPECT_FALSE(engine.isAppRunning(nullptr, nullptr));

  // terminateApp waits until the process is gone; as our own child it is
  // reaped on the way.
  EXPECT_TRUE(engine.terminateApp("qluxsleeper", false));
  EXPECT_EQ(-1, kill(child, 0));
  child = 0;
  EXPECT_FALSE(engine.isAppRunning("QluxSleeper", nullptr));
  EXPECT_FALSE(engine.terminateApp("QluxSleeper", false));
}

// A shell script runs as /bin/sh with the script behind it: it is found by
// the script's name and folder, and ended like a program. A program that
// merely has the script open (here tail) is not the script.
TEST_F(RunningProgramTest, FindsAScriptByItsOwnNameAndEndsIt) {
  std::string script = directory + "/qlux-script.sh";
  FILE* file = std::fopen(script.c_str(), "w");
  ASSERT_NE(nullptr, file);
  std::fputs("#!/bin/sh\nwhile :; do sleep 0.2; done\n", file);
  std::fclose(file);
  ASSERT_EQ(0, chmod(script.c_str(), 0755));
  const char* viewer[] = {"/usr/bin/tail", "-f", "qlux-script.sh", nullptr};
  pid_t tail = 0;
  ASSERT_EQ(0, posix_spawn(&tail, viewer[0], nullptr, nullptr, const_cast<char**>(viewer), environ));
  usleep(100 * 1000);
  EXPECT_FALSE(engine.isAppRunning("qlux-script.sh", nullptr));

  // Started by a name relative to the working directory.
  const char* args[] = {"./qlux-script.sh", nullptr};
  ASSERT_EQ(0, posix_spawn(&child, args[0], nullptr, nullptr, const_cast<char**>(args), environ));
  for (int i = 0; i < 100 && !engine.isAppRunning("qlux-script.sh", nullptr); i++) usleep(20 * 1000);
  EXPECT_TRUE(engine.isAppRunning("QLUX-SCRIPT.SH", directory.c_str()));
  EXPECT_FALSE(engine.isAppRunning("qlux-script.sh", "/nowhere/else"));
  EXPECT_TRUE(engine.terminateApp("qlux-script.sh", false));
  EXPECT_EQ(-1, kill(child, 0));
  if (kill(child, 0) == -1) child = 0;  // reaped by terminateApp; else TearDown ends it
  EXPECT_FALSE(engine.isAppRunning("qlux-script.sh", nullptr));

  kill(tail, SIGKILL);
  waitpid(tail, nullptr, 0);
  std::remove(script.c_str());
}

TEST(NamedEventTest, ASignalReachesTheWaiterAndNoSignalTimesOut) {
  const char name[] = "QluxEventTest";
  Host::NamedEvent* event = Host::createNamedEvent(name);
  ASSERT_NE(nullptr, event);
  EXPECT_FALSE(Host::waitNamedEvent(event, 50));
  Host::signalNamedEvent(name);
  EXPECT_TRUE(Host::waitNamedEvent(event, 1000));
  // Auto-reset: one signal wakes one wait.
  EXPECT_FALSE(Host::waitNamedEvent(event, 50));
  Host::closeNamedEvent(event);
  // Closing frees the name: a signal then reaches nobody, and a new event
  // starts unsignalled.
  Host::signalNamedEvent(name);
  event = Host::createNamedEvent(name);
  EXPECT_FALSE(Host::waitNamedEvent(event, 50));
  Host::closeNamedEvent(event);
}

// The registered uninstaller is this test binary run again with the child
// test below, which signals both hand-over events as the second uninstaller
// stage does. Without the signals the wait would last a minute.
TEST(HandOverChild, DISABLED_SignalsBothEvents) {
  Host::signalNamedEvent(Host::kUninstallerStartEvent);
  Host::signalNamedEvent(Host::kUninstallerEndEvent);
}

TEST(HandOverTest, RunsTheRegisteredUninstallerAndWaitsForItsSignals) {
  char cwd[QUtils::kMaxPath];
  ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
  std::string root = std::string(cwd) + "/handover-root";
  const char* old = std::getenv("QLUX_ROOT");
  std::string oldRoot = old ? old : "";
  setenv("QLUX_ROOT", root.c_str(), 1);

  char self[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::getModulePath(self, sizeof self));
  std::string command = std::string("\"") + self +
                        "\" --gtest_also_run_disabled_tests --gtest_filter=HandOverChild.DISABLED_SignalsBothEvents";
  const char* key = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\QluxHandOverTest";
  LinuxInstaller engine(0, 1, 0);
  engine.createRegistryKeys("HKEY_LOCAL_MACHINE", key);
  ASSERT_EQ(0, engine.setRegistryValue("HKEY_LOCAL_MACHINE", key, "REG_SZ", "UninstallString", command.c_str(), nullptr));

  time_t started = time(nullptr);
  EXPECT_TRUE(engine.runRegisteredUninstaller("QluxHandOverTest"));
  EXPECT_LT(time(nullptr) - started, 30);
  EXPECT_FALSE(engine.runRegisteredUninstaller("QluxNotRegistered"));

  if (old) setenv("QLUX_ROOT", oldRoot.c_str(), 1); else unsetenv("QLUX_ROOT");
  if (root.find("/handover-root") != std::string::npos) QUtils::deleteTree(root.c_str());
}

}  // namespace
