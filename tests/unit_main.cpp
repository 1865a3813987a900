// The main of every unit test binary: runs the tests from a fresh, empty
// working directory under the temporary directory, so that nothing a test
// does with a relative path can reach the source tree. The directory is the
// tests' temporary directory too: a run directory that the code under test
// makes lies in it, and goes at the end.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>

#include "foundation/files.h"

#ifdef _WIN32
#include <direct.h>
#include <process.h>
#define QLUX_MKDIR(path) _mkdir(path)
#define QLUX_CHDIR(path) _chdir(path)
#define QLUX_RMDIR(path) _rmdir(path)
#define QLUX_PID() _getpid()
#define QLUX_SET_TEMP(path) (_putenv_s("TMP", path), _putenv_s("TEMP", path))
#else
#include <sys/stat.h>
#include <unistd.h>
#define QLUX_MKDIR(path) mkdir(path, 0700)
#define QLUX_CHDIR(path) chdir(path)
#define QLUX_RMDIR(path) rmdir(path)
#define QLUX_PID() getpid()
#define QLUX_SET_TEMP(path) setenv("TMPDIR", path, 1)
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  std::string base = ::testing::TempDir();
  std::mt19937 random(static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                      static_cast<unsigned>(QLUX_PID()));
  std::string directory;
  bool entered = false;
  for (int attempt = 0; attempt < 100 && !entered; attempt++) {
    directory = base + "qlux-unit-" + std::to_string(QLUX_PID()) + "-" + std::to_string(random() % 1000000);
    entered = QLUX_MKDIR(directory.c_str()) == 0 && QLUX_CHDIR(directory.c_str()) == 0;
  }
  if (!entered) {
    std::fprintf(stderr, "cannot enter a scratch directory under %s\n", base.c_str());
    return 1;
  }
  QLUX_SET_TEMP(directory.c_str());
  int result = RUN_ALL_TESTS();
  QUtils::removeRunDirectory();
  if (QLUX_CHDIR(base.c_str()) == 0) QLUX_RMDIR(directory.c_str());
  return result;
}
