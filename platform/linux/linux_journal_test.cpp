// Tests of journals on Linux: where they lie under the root, and processes
// found by their id.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "foundation/test_env.h"
#include "platform/linux/linux_installer.h"

namespace {

TEST(LinuxJournalTest, JournalsLieUnderTheRootAndProcessesAreFoundById) {
  const char* old = std::getenv("QLUX_ROOT");
  std::string saved = old ? old : "";
  QUtils::setEnvironment("QLUX_ROOT", "/machine/root");
  LinuxInstaller engine(0, 0, 0);
  char path[1560];
  ASSERT_TRUE(engine.getJournalPath("Demo Product", path, sizeof path));
  EXPECT_STREQ("/machine/root/var/lib/qlux/journal/Demo_Product.journal", path);
  QUtils::setEnvironment("QLUX_ROOT", old ? saved.c_str() : nullptr);

  EXPECT_EQ(static_cast<long>(getpid()), engine.getProcessId());
  EXPECT_TRUE(engine.isProcessRunning(engine.getProcessId()));
  EXPECT_FALSE(engine.isProcessRunning(0));
  EXPECT_FALSE(engine.isProcessRunning(-1));
}

}  // namespace
