// Tests of processes on Windows: finding and ending programs, a running
// program's file, and the uninstaller's hand-over.
#include <windows.h>

#include <string>
#include <vector>

#include "foundation/convert.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "gtest/gtest.h"
#include "platform/host.h"
#include "platform/windows/wini.h"

namespace {

// The test binary itself is a running program with a known name and place.
TEST(WiniProcessesTest, FindsTheRunningTestProgramByNameAndDirectory) {
  wchar_t wide[520];
  ASSERT_GT(GetModuleFileNameW(nullptr, wide, 520), 0u);
  char path[QUtils::kMaxPath];
  QUtils::wideToUtf8(wide, path, sizeof path);
  std::string full = path;
  size_t slash = full.find_last_of("\\/");
  ASSERT_NE(std::string::npos, slash);
  std::string name = full.substr(slash + 1);
  std::string directory = full.substr(0, slash);
  for (char& c : name) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));

  Wini engine(0, 0, 0);
  EXPECT_TRUE(engine.isAppRunning(name.c_str(), nullptr));
  EXPECT_TRUE(engine.isAppRunning(name.c_str(), directory.c_str()));
  EXPECT_FALSE(engine.isAppRunning(name.c_str(), "C:\\no\\such\\place"));
  EXPECT_FALSE(engine.isAppRunning("no-such-program.exe", nullptr));
  EXPECT_FALSE(engine.isAppRunning(nullptr, nullptr));
  EXPECT_FALSE(engine.terminateApp("no-such-program.exe", false));
}

// A copy of this test binary, started to run the child test below, is a
// real program that holds its own file: Windows refuses to delete the file
// while it runs. The engine ends the program, waits for it, and then deletes
// the file.
TEST(HolderChild, DISABLED_RunsUntilEnded) { Sleep(60000); }

TEST(WiniProcessesTest, AProgramHoldingTheTargetIsEndedBeforeTheFileIsDeleted) {
  char self[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::getModulePath(self, sizeof self));
  char here[QUtils::kMaxPath];
  ASSERT_NE(0u, GetCurrentDirectoryA(sizeof here, here));
  std::string holder = std::string(here) + "\\QluxHolder.exe";
  ASSERT_TRUE(CopyFileA(self, holder.c_str(), FALSE));
  std::string command = "\"" + holder + "\" --gtest_also_run_disabled_tests --gtest_filter=HolderChild.DISABLED_RunsUntilEnded";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  std::vector<char> line(command.begin(), command.end());
  line.push_back(0);
  ASSERT_TRUE(CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, here, &startup, &process));
  Wini engine(0, 0, 0);
  for (int i = 0; i < 100 && !engine.isAppRunning("QluxHolder.exe", nullptr); i++) Sleep(20);
  ASSERT_TRUE(engine.isAppRunning("QluxHolder.exe", here));

  EXPECT_TRUE(engine.deleteRunningFile(nullptr, holder.c_str(), 5000));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process.hProcess, 0)) << "the program still runs";
  EXPECT_FALSE(QUtils::fileExists(holder.c_str()));
  if (WaitForSingleObject(process.hProcess, 0) != WAIT_OBJECT_0) TerminateProcess(process.hProcess, 1);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
}

// The registered uninstaller is this test binary run again with the child
// test below, which signals both hand-over events as the second uninstaller
// stage does. Without the signals the wait would last a minute.
TEST(HandOverChild, DISABLED_SignalsBothEvents) {
  Host::signalNamedEvent(Host::kUninstallerStartEvent);
  Host::signalNamedEvent(Host::kUninstallerEndEvent);
}

TEST(HandOverTest, RunsTheRegisteredUninstallerAndWaitsForItsSignals) {
  char self[QUtils::kMaxPath];
  ASSERT_TRUE(QUtils::getModulePath(self, sizeof self));
  std::string command = std::string("\"") + self +
                        "\" --gtest_also_run_disabled_tests --gtest_filter=HandOverChild.DISABLED_SignalsBothEvents";
  const char* key = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\QluxHandOverTest";
  Wini engine(0, 1, 0);
  engine.createRegistryKeys("HKEY_LOCAL_MACHINE", key);
  ASSERT_EQ(0, engine.setRegistryValue("HKEY_LOCAL_MACHINE", key, "REG_SZ", "UninstallString", command.c_str(), nullptr));

  DWORD started = GetTickCount();
  EXPECT_TRUE(engine.runRegisteredUninstaller("QluxHandOverTest"));
  EXPECT_LT(GetTickCount() - started, 30000u);
  EXPECT_FALSE(engine.runRegisteredUninstaller("QluxNotRegistered"));
  engine.unregisterApplication("QluxHandOverTest");
}

}  // namespace
