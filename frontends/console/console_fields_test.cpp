// Tests of the console's fields: a folder, a check box and a radio group
// asked and stored, and a question left unanswered.
#include "frontends/console/console_fields.h"

#include <gtest/gtest.h>

#include <string>

#include "frontends/console/console_test_support.h"

namespace {

using ConsoleInterface::CheckboxField;
using ConsoleInterface::DirectoryField;
using ConsoleInterface::RadioField;

FIELDINFO field(int type, const char* label, const char* variable, const char* content = "",
                const char* description = "", const char* enable = "") {
  FIELDINFO f;
  f.type = type;
  QUtils::copyText(f.label, label, sizeof f.label);
  QUtils::copyText(f.variable, variable, sizeof f.variable);
  QUtils::copyText(f.content, content, sizeof f.content);
  QUtils::copyText(f.description, description, sizeof f.description);
  QUtils::copyText(f.enable, enable, sizeof f.enable);
  return f;
}

const char kValues[] =
    "<Value Name=\"TARGET\" DataType=\"value\">" QLUX_TEST_ROOT "/opt/product</Value>"
    "<Value Name=\"ICON\" DataType=\"value\"></Value>"
    "<Value Name=\"KIND\" DataType=\"value\">7</Value>"
    "<Value Name=\"ADVANCED\" DataType=\"value\">0</Value>";

TEST(ConsoleFieldsTest, DirectoryOffersTheValueOrTheDefaultAndStoresACleanPath) {
  FakeTerminal terminal("\n  " QLUX_TEST_ROOT "/srv/my app /data  \n");
  User user(0, terminal.in, terminal.out);
  WizardEngine engine("", kValues);
  FIELDINFO target = field(kFieldDirectory, "Install to", "TARGET");
  engine.setVariable("TARGET", "");
  DirectoryField().ask(&target, &user, &engine);
  const std::string product = nativePath(QLUX_TEST_ROOT "/opt/product");
  EXPECT_EQ(product, engine.value("TARGET"));
  DirectoryField().ask(&target, &user, &engine);
  EXPECT_EQ(nativePath(QLUX_TEST_ROOT "/srv/my app/data"), engine.value("TARGET"));
  EXPECT_EQ("Install to [" QLUX_TEST_ROOT "/opt/product]:Install to [" + product + "]:", terminal.printed());
}

// A folder that can't take an installation (relative, a root) is refused
// with the reason, and asked for again.
TEST(ConsoleFieldsTest, DirectoryRefusesAFolderThatIsNoWholePath) {
  FakeTerminal terminal("n\n\n" QLUX_TEST_ROOT "/\n\n" QLUX_TEST_ROOT "/srv/app\n");  // each notice waits for Enter
  User user(0, terminal.in, terminal.out);
  WizardEngine engine("", kValues);
  FIELDINFO target = field(kFieldDirectory, "Install to", "TARGET");
  DirectoryField().ask(&target, &user, &engine);
  EXPECT_EQ(nativePath(QLUX_TEST_ROOT "/srv/app"), engine.value("TARGET"));
  std::string printed = terminal.printed();
  EXPECT_NE(std::string::npos, printed.find("The folder must be a whole path")) << printed;
  EXPECT_NE(std::string::npos, printed.find("The folder is a root or a folder of the system itself")) << printed;

  // The end of the input answers with the held value, unusable as it may
  // be and cleaned as any answer: it is taken, not asked for again and
  // again (the run's check of its destinations stops it later).
  FakeTerminal ended("");
  User nobody(0, ended.in, ended.out);
  engine.setVariable("TARGET", "relative/place/ ");
  DirectoryField().ask(&target, &nobody, &engine);
  EXPECT_EQ(nativePath("relative/place/"), engine.value("TARGET"));
}

TEST(ConsoleFieldsTest, CheckboxAsksNoOrYes) {
  FakeTerminal terminal("yes\n\nNO\n");
  User user(0, terminal.in, terminal.out);
  WizardEngine engine("", kValues);
  FIELDINFO icon = field(kFieldCheckBox, "Desktop icon", "ICON");
  for (const char* expected : {"1", "1", "0"}) {
    CheckboxField().ask(&icon, &user, &engine);
    EXPECT_EQ(expected, engine.value("ICON"));
  }
  EXPECT_EQ("Desktop icon (no or yes): Desktop icon (no or [yes]): Desktop icon (no or [yes]): ", terminal.printed());

  // Nobody there: a value that is no answer is stored as none.
  Automated automated(nullptr, 0, terminal.out);
  engine.setVariable("ICON", "");
  CheckboxField().ask(&icon, &automated, &engine);
  EXPECT_EQ("-1", engine.value("ICON"));

  // A field ruled out by its condition isn't asked.
  QUtils::copyText(icon.condition, "[ADVANCED]==1", sizeof icon.condition);
  CheckboxField().ask(&icon, &user, &engine);
  EXPECT_EQ("-1", engine.value("ICON"));
}

TEST(ConsoleFieldsTest, RadioOptionsDescriptionsAndEnabling) {
  FakeTerminal terminal("2\n1\n1\n");
  User user(0, terminal.in, terminal.out);
  WizardEngine engine("", kValues);
  FIELDINFO kind = field(kFieldRadioButtons, "Installation type", "KIND", "Typical;Custom;Full",
                         "(recommended);(choose parts)", "1|[ADVANCED]==1");
  // 7 is no option: no default.
  RadioField().ask(&kind, &user, &engine);
  EXPECT_EQ("0", engine.value("KIND"));
  EXPECT_EQ(
      "Installation type\n  1) Typical (recommended)\n  2) Custom (choose parts)\n  3) Full\n"
      "Enter your choice [1-3]: Choice 2 is disabled, choose something else!\nEnter your choice [1-3]: ",
      terminal.printed());

  Automated automated(nullptr, 0, terminal.out);
  engine.setVariable("KIND", "7");
  RadioField().ask(&kind, &automated, &engine);
  EXPECT_EQ("-1", engine.value("KIND"));

  // Descriptions are added only when each option can have one.
  FIELDINFO pair = field(kFieldRadioButtons, "Type", "KIND", "A;B", "one;two;three");
  RadioField().ask(&pair, &user, &engine);
  EXPECT_NE(std::string::npos, terminal.printed().find("Type\n  1) A\n  2) B\n"));
}

TEST(ConsoleFieldsTest, AnUnansweredQuestionStoresNothing) {
  FakeTerminal terminal("");
  User user(0, terminal.in, terminal.out);
  WizardEngine engine("", kValues);
  FIELDINFO icon = field(kFieldCheckBox, "Desktop icon", "ICON");
  FIELDINFO target = field(kFieldDirectory, "Target", "TARGET");
  engine.setVariable("ICON", "maybe");
  CheckboxField().ask(&icon, &user, &engine);
  EXPECT_TRUE(user.inputEnded());
  EXPECT_EQ("maybe", engine.value("ICON"));
  // Once the input has ended, nothing more is asked.
  DirectoryField().ask(&target, &user, &engine);
  EXPECT_EQ(0, terminal.count("Target"));
}

}  // namespace
