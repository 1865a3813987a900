// Tests of the console's input: answers typed by a person or read from a
// configuration file, and the end of input.
#include "frontends/console/input_provider.h"

#include <gtest/gtest.h>

#include <string>

#include "frontends/console/console_test_support.h"
#include "frontends/console/console_ui.h"

namespace {

struct Options {
  Options(std::initializer_list<const char*> texts, std::initializer_list<bool> flags) {
    for (const char* text : texts) list.add(QUtils::CharString(text));
    for (bool flag : flags) enabled.add(flag);
  }
  QUtils::Table<QUtils::CharString> list{4};
  QUtils::PList<bool> enabled{4};
};

TEST(UserInputTest, TwoWords) {
  FakeTerminal terminal("\nc\nCan\nYES\nye\n\na\nab\nO\n");
  User user(0, terminal.in, terminal.out);
  // No default: an empty line and a wrong case don't answer; the beginning
  // of a word in its case does.
  EXPECT_EQ(1, user.askTwoWay("Go on?", -1, "OK", "Cancel", 1, 1));
  // Without case only whole words count.
  EXPECT_EQ(0, user.askTwoWay("Sure?", 1, "yes", "no", 0, 0));
  EXPECT_EQ(1, user.askTwoWay("Sure?", 1, "yes", "no", 0, 0));
  // A beginning that both words share answers neither.
  EXPECT_EQ(1, user.askTwoWay("Which?", 5, "aa", "ab", 1, 1));
  // Exact words; at the end of the input the default answers.
  EXPECT_EQ(0, user.askTwoWay("Start?", 0, "OK", "Cancel", 1, 0));
  EXPECT_EQ(
      "Go on? (OK or Cancel): Please, answer with OK or Cancel: Please, answer with OK or Cancel: "
      "Sure? (yes or [no]): Sure? (yes or [no]): Please, answer with yes or no: "
      "Which? (aa or ab): Please, answer with aa or ab: "
      "Start? ([OK] or Cancel): Please, answer with OK or Cancel: ",
      terminal.printed());
  EXPECT_FALSE(user.inputEnded());
}

TEST(UserInputTest, ChoiceAmongOptions) {
  FakeTerminal terminal("\n2\n9\nx\n3abc\n\n");
  User user(0, terminal.in, terminal.out);
  Options options({"Typical", "Custom", "Full"}, {true, false, true});
  // The preselected option is disabled: no default, and an empty line asks again.
  EXPECT_EQ(2, user.askChoice("Setup type", 1, options.list, options.enabled));
  EXPECT_EQ(
      "Setup type\n  1) Typical\n  2) Custom\n  3) Full\n"
      "Enter your choice [1-3]: Enter your choice [1-3]: Choice 2 is disabled, choose something else!\n"
      "Enter your choice [1-3]: Please, answer with a number (1 to 3)\n"
      "Enter your choice [1-3]: Please, answer with a number (1 to 3)\n"
      "Enter your choice [1-3]: ",
      terminal.printed());
  EXPECT_EQ(0, user.askChoice("Again", 0, options.list, options.enabled));
  EXPECT_EQ(1, terminal.count("Enter your choice [1-3, default is 1]: "));
}

TEST(UserInputTest, TextWithCurrentValueAndDefault) {
  FakeTerminal terminal("\n\n/srv/app\r\n" + std::string(40, 'x') + "\n\n");
  User user(0, terminal.in, terminal.out);
  char answer[16];
  user.askText("Folder", answer, sizeof answer, "/opt/a", "/opt/b");
  EXPECT_STREQ("/opt/a", answer);
  user.askText("Folder", answer, sizeof answer, "", "/opt/b");
  EXPECT_STREQ("/opt/b", answer);
  user.askText("Folder", answer, sizeof answer, "/opt/a", nullptr);
  EXPECT_STREQ("/srv/app", answer);
  // A line longer than the answer is cut, and its rest answers nothing else.
  user.askText("Folder", answer, sizeof answer, "", "");
  EXPECT_EQ(std::string(15, 'x'), answer);
  user.askText("Folder", answer, sizeof answer, "", "/opt/c");
  EXPECT_STREQ("/opt/c", answer);
  EXPECT_EQ("Folder [/opt/a]:Folder [/opt/b]:Folder [/opt/a]:Folder:Folder [/opt/c]:", terminal.printed());
}

TEST(UserInputTest, EndOfInput) {
  FakeTerminal terminal("");
  User user(0, terminal.in, terminal.out);
  Options options({"a", "b"}, {true, true});
  // Questions with a default take it.
  EXPECT_EQ(1, user.askTwoWay("Q", 1, "yes", "no", 0, 0));
  EXPECT_EQ(1, user.askChoice("C", 1, options.list, options.enabled));
  EXPECT_FALSE(user.inputEnded());
  // One without a default can't be answered any more.
  EXPECT_EQ(-1, user.askChoice("C", -1, options.list, options.enabled));
  EXPECT_TRUE(user.inputEnded());
  EXPECT_EQ(1, terminal.count("\nThe input has ended before this question was answered. The installation is "
                              "cancelled.\n"));
  User uninstaller(1, terminal.in, terminal.out);
  EXPECT_EQ(-1, uninstaller.askTwoWay("Q", -1, "yes", "no", 0, 0));
  EXPECT_EQ(1, terminal.count("The uninstallation is cancelled."));
}

TEST(AutomatedInputTest, ChecksTheFileAndReportsTheEnd) {
  FakeTerminal terminal("");
  std::string good = terminal.scratch.write("config.xml", "<DefValues><Value Name=\"A\">1</Value></DefValues>");
  std::string text = terminal.scratch.write("notes.txt", "just some notes");
  std::string missing = terminal.scratch.path("missing.xml");
  EXPECT_TRUE(Automated(nullptr, 0, terminal.out).open());
  EXPECT_TRUE(Automated(good.c_str(), 0, terminal.out).open());
  EXPECT_FALSE(Automated(missing.c_str(), 0, terminal.out).open());
  EXPECT_FALSE(Automated(text.c_str(), 0, terminal.out).open());
  Automated(nullptr, 0, terminal.out).close(false);
  Automated(nullptr, 1, terminal.out).close(true);
  EXPECT_EQ("The file \"" + missing + "\" does not exist! Please specify existing file!\n" + "The file \"" + text +
                "\" is not a propper XML installation config file. The installation can not continue!\n"
                "Automatic installation was successful!\n"
                "The automatic uninstaller has encountered an ERROR!\n",
            terminal.printed());
}

TEST(GenericUITest, InitInputChoosesTheSource) {
  FakeTerminal terminal("");
  std::string good = terminal.scratch.write("config.xml", "<DefValues></DefValues>");
  std::string bad = terminal.scratch.path("absent.xml");
  struct Case {
    std::string name;
    bool automated;
    int isUninstall;
    bool automatic;
    int result;
  } cases[] = {
      {"", false, 0, false, 0},
      {"uninstall", false, 1, false, 0},
      {"autoInstall", true, 0, true, 0},
      {"autoUninstall", true, 1, true, 0},
      {good, true, 0, true, 0},
      // A file that won't serve leaves the person at the terminal to answer.
      {bad, false, 0, false, 1},
      // The names are exact: this one is a file's, and there is no such file.
      {"AutoInstall", false, 0, false, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ConsoleUI ui(0, 0, 0);
    ui.setStreams(terminal.in, terminal.out);
    bool automatic = false;
    EXPECT_EQ(c.result, ui.initInput(c.name.c_str(), &automatic));
    User* user = dynamic_cast<User*>(ui.input);
    Automated* automated = dynamic_cast<Automated*>(ui.input);
    ASSERT_TRUE(user || automated);
    EXPECT_EQ(c.automated, automated != nullptr);
    EXPECT_EQ(c.isUninstall, user ? user->isUninstall : automated->isUninstall);
    EXPECT_EQ(c.automatic, automatic);
  }
}

}  // namespace
