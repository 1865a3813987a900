// Tests of journals on Windows: where they lie.
#include <windows.h>
#include <shlobj.h>

#include <string>

#include "foundation/convert.h"
#include "gtest/gtest.h"
#include "platform/windows/wini.h"

namespace {

// The journals lie in "qlux\journal" of the common application data folder,
// and this process is known to run under its own id.
TEST(WiniJournalTest, JournalsLieInTheCommonApplicationDataFolder) {
  wchar_t wide[MAX_PATH];
  ASSERT_TRUE(SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, wide)));
  char folder[1560];
  QUtils::wideToUtf8(wide, folder, sizeof folder);

  Wini engine(0, 0, 0);
  char directory[1560];
  ASSERT_TRUE(engine.getJournalDirectory(directory, sizeof directory));
  EXPECT_EQ(std::string(folder) + "\\qlux\\journal", directory);
  char path[1560];
  ASSERT_TRUE(engine.getJournalPath("Demo Product", path, sizeof path));
  EXPECT_EQ(std::string(directory) + "\\Demo_Product.journal", path);

  EXPECT_EQ(static_cast<long>(GetCurrentProcessId()), engine.getProcessId());
  EXPECT_TRUE(engine.isProcessRunning(engine.getProcessId()));
  EXPECT_FALSE(engine.isProcessRunning(0));
}

}  // namespace
