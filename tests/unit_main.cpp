// The main of every unit test binary: runs the tests from a fresh, empty
// working directory under the temporary directory, so that nothing a test
// does with a relative path can reach the source tree.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  std::string base = ::testing::TempDir();
  std::string directory = base + "qlux-unit-" + std::to_string(std::rand()) + "-" +
                          std::to_string(reinterpret_cast<uintptr_t>(&base) & 0xFFFFF);
#ifdef _WIN32
  bool entered = _mkdir(directory.c_str()) == 0 && _chdir(directory.c_str()) == 0;
#else
  bool entered = mkdir(directory.c_str(), 0700) == 0 && chdir(directory.c_str()) == 0;
#endif
  if (!entered) {
    std::fprintf(stderr, "cannot enter a scratch directory under %s\n", base.c_str());
    return 1;
  }
  int result = RUN_ALL_TESTS();
#ifdef _WIN32
  _chdir(base.c_str());
  _rmdir(directory.c_str());
#else
  if (chdir(base.c_str()) == 0) rmdir(directory.c_str());
#endif
  return result;
}
