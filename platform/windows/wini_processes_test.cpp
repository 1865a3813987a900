#include <windows.h>

#include <string>

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
