// Tests of quoting and splitting command lines by the rules of
// CommandLineToArgvW: backslashes before quotes, doubled quotes, the program
// word, and the way back into the options' syntax.
#include "foundation/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/parameters.h"

namespace {

using Words = std::vector<std::string>;

const char kEscape = static_cast<char>(0xAC);

}  // namespace

// The cases that Windows documents for the arguments of a command line.
TEST(CommandLine, SplitsArgumentsAsWindowsDoes) {
  EXPECT_EQ((Words{"abc", "d", "e"}), QUtils::splitCommandArguments("\"abc\" d e"));
  EXPECT_EQ((Words{"a\\\\b", "de fg", "h"}), QUtils::splitCommandArguments("a\\\\b d\"e f\"g h"));
  EXPECT_EQ((Words{"a\\\"b", "c", "d"}), QUtils::splitCommandArguments("a\\\\\\\"b c d"));
  EXPECT_EQ((Words{"a\\\\b c", "d", "e"}), QUtils::splitCommandArguments("a\\\\\\\\\"b c\" d e"));
  // Blanks and TABs separate, runs of them count once; a newline doesn't.
  EXPECT_EQ((Words{"one", "two\nthree"}), QUtils::splitCommandArguments(" \tone  \t two\nthree\t"));
  EXPECT_EQ((Words{""}), QUtils::splitCommandArguments("\"\""));
  EXPECT_EQ(Words{}, QUtils::splitCommandArguments("   "));
  // A quote that isn't closed runs to the end.
  EXPECT_EQ((Words{"a b c"}), QUtils::splitCommandArguments("\"a b c"));
  // Quotes right behind the one that ends quoting: CommandLineToArgvW's
  // own rule, one literal quote for the pair, and quoting ends.
  EXPECT_EQ((Words{"ab\"", "c", "d"}), QUtils::splitCommandArguments("a\"b\"\" c d"));
  EXPECT_EQ((Words{"\""}), QUtils::splitCommandArguments("\"\"\"\""));
}

TEST(CommandLine, TheProgramWordHasNoEscapes) {
  EXPECT_EQ((Words{"C:\\Program Files\\a.exe", "-x"}),
            QUtils::splitCommandLine("\"C:\\Program Files\\a.exe\" -x"));
  EXPECT_EQ((Words{"C:\\a\\\\\"b", "c"}), QUtils::splitCommandLine("C:\\a\\\\\"b c"));
  EXPECT_EQ((Words{"/opt/a b/setup", "-uninstall=/opt/a b/install.log", "-uninstallApp=Cost$Saver"}),
            QUtils::splitCommandLine("\"/opt/a b/setup\" -uninstall=\"/opt/a b/install.log\" "
                                     "-uninstallApp=\"Cost$Saver\""));
  EXPECT_EQ(Words{}, QUtils::splitCommandLine(""));
  EXPECT_EQ(Words{}, QUtils::splitCommandLine(nullptr));
}

// Whatever a word holds, quoting it and splitting the line gives it back:
// that is what keeps a folder or a product name whole on its way to a
// started program.
TEST(CommandLine, QuotedWordsComeBackWhole) {
  const Words words = {"plain",
                       "",
                       "with blank",
                       "tab\there",
                       "quote \" inside",
                       "\"",
                       "back\\slash",
                       "trailing backslash\\",
                       "two trailing\\\\",
                       "backslash before quote\\\"",
                       "$(touch pwned) `id`; rm -rf / & x|y > z",
                       "new\nline",
                       "C:\\Program Files\\"};
  std::string line = QUtils::quoteCommandWord("/opt/the program");
  for (const std::string& word : words) line += " " + QUtils::quoteCommandWord(word.c_str());
  Words expected = {"/opt/the program"};
  expected.insert(expected.end(), words.begin(), words.end());
  EXPECT_EQ(expected, QUtils::splitCommandLine(line.c_str()));

  // An option's value quoted behind its name, as a registered uninstall
  // command writes it.
  std::string option = "-uninstallApp=" + QUtils::quoteCommandWord("My \"Best\" App\\");
  EXPECT_EQ((Words{"My \"Best\" App\\"}), Words{QUtils::splitCommandArguments(option.c_str())[0].substr(14)});
  EXPECT_EQ("\"a\\\\b\"", QUtils::quoteCommandWord("a\\\\b"));
  EXPECT_EQ("\"\"", QUtils::quoteCommandWord(nullptr));
}

TEST(CommandLine, ParameterTextReadsBackAsTheOptions) {
  Words words = {"/tmp/my \"setup\"", "-uninstallApp=My \"Best\" App", "-gui=0", "-configFile=/a b/config.xml",
                 "-name=$HOME;`x`", "-flag"};
  std::string text = QUtils::toParameterText(words, kEscape);
  QUtils::Parameters parameters;
  EXPECT_EQ(0, parameters.parseCommandLine(text.c_str(), kEscape));
  const char* value = nullptr;
  ASSERT_TRUE(parameters.getText("uninstallApp", &value));
  EXPECT_STREQ("My \"Best\" App", value);
  ASSERT_TRUE(parameters.getText("configFile", &value));
  EXPECT_STREQ("/a b/config.xml", value);
  ASSERT_TRUE(parameters.getText("name", &value));
  EXPECT_STREQ("$HOME;`x`", value);
  EXPECT_TRUE(parameters.getText("flag", nullptr));
  int gui = 1;
  EXPECT_TRUE(parameters.getInteger("gui", &gui));
  EXPECT_EQ(0, gui);
}
