// Tests of reading the command line into run options: the order in which
// options act on each other, and what the second stage passes on.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "app/entry.h"
#include "app/options.h"

namespace {

// Parses a command line into options that stay valid as long as the test.
class OptionsTest : public ::testing::Test {
 protected:
  RunOptions parse(const char* commandLine) {
    parameters.push_back(std::make_unique<QUtils::Parameters>());
    parameters.back()->parseCommandLine(commandLine, static_cast<char>(0xAC));
    RunOptions options;
    readRunOptions(*parameters.back(), &options);
    return options;
  }
  std::vector<std::unique_ptr<QUtils::Parameters>> parameters;
};

TEST_F(OptionsTest, LaterOptionsActOnEarlierOnes) {
  RunOptions plain = parse("setup");
  EXPECT_EQ(1, plain.gui);
  EXPECT_EQ(1, plain.backup);
  EXPECT_EQ(2, plain.runFlags);

  RunOptions automatic = parse("setup -gui=1 -auto=0");
  EXPECT_EQ(0, automatic.gui);
  EXPECT_TRUE(automatic.autoInstall);

  RunOptions config = parse("setup -gui=1 -configFile=\"c:\\my dir\\config.xml\"");
  EXPECT_EQ(0, config.gui);
  EXPECT_EQ(1, config.quiet);
  EXPECT_STREQ("c:\\my dir\\config.xml", config.configFile);

  RunOptions loud = parse("setup -configFile=x -quiet=0");
  EXPECT_EQ(0, loud.quiet);

  // Bare integer options read as 0; a word without '-' ends the options.
  RunOptions bare = parse("setup -gui -quiet -backup");
  EXPECT_EQ(0, bare.gui);
  EXPECT_EQ(0, bare.quiet);
  EXPECT_EQ(0, bare.runFlags);
  RunOptions stopped = parse("setup.exe foo -gui=0");
  EXPECT_EQ(1, stopped.gui);

  RunOptions both = parse("setup -uninstall=a.log -uninstallFile=b.log -DEBUG=1 -debug=0");
  EXPECT_STREQ("a.log", both.uninstall);
  EXPECT_EQ(3, both.runFlags);
  EXPECT_EQ(1, both.debug);  // the first of two counts

  RunOptions empty = parse("setup -uninstall");
  ASSERT_NE(nullptr, empty.uninstall);
  EXPECT_STREQ("", empty.uninstall);
}

TEST_F(OptionsTest, SecondStagePassesOnOnlyWhatItNeeds) {
  RunOptions options = parse("setup -uninstall=x.log -uninstallApp=\"My App\" -gui=0 -quiet=1 -debug=1 "
                             "-ignoreErrors=1 -backup=0");
  char line[4096];
  buildUninstallerCommandLine(line, sizeof line, "/tmp/qluxuninst.dll", "/tmp/qluxuninst.log", options);
  EXPECT_STREQ(
      "\"/tmp/qluxuninst.dll\" -uninstallFile=\"/tmp/qluxuninst.log\" -uninstallApp=\"My App\" -gui=0 -quiet=1 "
      "-debug=1",
      line);

  RunOptions windowed = parse("setup -uninstall=x.log -uninstallApp=App");
  buildUninstallerCommandLine(line, sizeof line, "a", "b", windowed);
  EXPECT_STREQ("\"a\" -uninstallFile=\"b\" -uninstallApp=\"App\"", line);

  // The result log's name reaches the second stage as one word.
  RunOptions logged = parse("setup -uninstall=x.log -uninstallApp=App -log=\"/var/log/my run.log\"");
  buildUninstallerCommandLine(line, sizeof line, "a", "b", logged);
  EXPECT_STREQ("\"a\" -uninstallFile=\"b\" -uninstallApp=\"App\" -log=\"/var/log/my run.log\"", line);

  std::string longPath(5000, 'p');
  buildUninstallerCommandLine(line, sizeof line, longPath.c_str(), "b", windowed);
  EXPECT_EQ(4095u, std::string(line).size());
}

}  // namespace
