// Tests of the environment file on Linux: values read as the system reads
// them, and changes to the variable's lines only.
#include "platform/linux/environment_file.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/test_files.h"

namespace {

std::string get(const EnvironmentFile& file, const char* name) {
  char value[64];
  int length = file.get(name, value, sizeof value);
  if (length < 0) return "<unset>";
  return length < static_cast<int>(sizeof value) ? value : "<long>";
}

TEST(EnvironmentFileTest, ReadsValuesWithoutQuotesAndTheLastDefinition) {
  std::string path = here("environment");
  writeFile(path,
            "# machine settings\n"
            "PATH=\"/usr/bin:/bin\"\n"
            "  export LANG='C'\n"
            "EMPTY=\n"
            "not a variable\n"
            "TWICE=1\r\n"
            "TWICE=2");
  EnvironmentFile file(path.c_str());
  EXPECT_EQ("/usr/bin:/bin", get(file, "PATH"));
  EXPECT_EQ("C", get(file, "LANG"));
  EXPECT_EQ("", get(file, "EMPTY"));
  EXPECT_EQ("2", get(file, "TWICE"));
  EXPECT_EQ("<unset>", get(file, "not"));
  EXPECT_EQ("<unset>", get(file, "path"));
  char small[4];
  EXPECT_EQ(13, file.get("PATH", small, sizeof small));
  EXPECT_STREQ("", small);
  EXPECT_EQ(-1, EnvironmentFile(here("none").c_str()).get("PATH", small, sizeof small));
  std::remove(path.c_str());
}

TEST(EnvironmentFileTest, ChangesOnlyTheLinesOfTheVariable) {
  std::string path = here("env-change");
  writeFile(path, "# keep me\nPATH=\"/usr/bin\"\r\n  export LANG=C\nTWICE=1\nTWICE=2");
  EnvironmentFile file(path.c_str());
  EXPECT_TRUE(file.set("PATH", "/usr/bin:/opt/x"));
  EXPECT_TRUE(file.set("LANG", "en US"));
  EXPECT_TRUE(file.set("TWICE", "3"));
  EXPECT_TRUE(file.set("NEW", "a b"));
  EXPECT_EQ("# keep me\nPATH=\"/usr/bin:/opt/x\"\r\n  export LANG=\"en US\"\nTWICE=1\nTWICE=3\nNEW=\"a b\"\n",
            readFile(path));
  EXPECT_EQ("en US", get(file, "LANG"));
  EXPECT_TRUE(file.remove("TWICE"));
  EXPECT_FALSE(file.remove("TWICE"));
  EXPECT_EQ("# keep me\nPATH=\"/usr/bin:/opt/x\"\r\n  export LANG=\"en US\"\nNEW=\"a b\"\n", readFile(path));
  EXPECT_FALSE(file.set("BAD NAME", "x"));
  EXPECT_FALSE(file.set("LINE", "a\nB=1"));
  EXPECT_EQ("<missing>", readFile(path + ".qlux-new"));
  std::remove(path.c_str());

  // A file that isn't there is made, with its directory.
  std::string fresh = here("root-etc/etc/environment");
  EnvironmentFile made(fresh.c_str());
  EXPECT_FALSE(made.remove("X"));
  EXPECT_TRUE(made.set("X", "1"));
  EXPECT_EQ("X=1\n", readFile(fresh));
  EXPECT_TRUE(QUtils::deleteTree(here("root-etc").c_str()));
}

}  // namespace
