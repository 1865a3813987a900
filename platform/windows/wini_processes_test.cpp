#include <windows.h>

#include <string>

#include "foundation/convert.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "gtest/gtest.h"
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

}  // namespace
