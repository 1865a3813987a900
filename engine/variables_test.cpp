// Tests of variables: how values are stored, recalculated and expanded, and
// names from the environment.
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/test_support.h"
#include "foundation/console.h"
#include "foundation/test_env.h"
#include "gtest/gtest.h"

namespace {


using QUtils::setEnvironment;

std::string expanded(Installer& engine, const char* text) {
  char buffer[2048];
  engine.expandVariables(text, buffer, sizeof buffer);
  return buffer;
}

VARIABLE& record(TestInstaller& engine, const char* name) {
  int index = engine.getVariable(name, nullptr, 0);
  EXPECT_GE(index, 0) << name;
  return engine.variables[index];
}

}  // namespace

TEST(VariablesTest, EveryStoredFieldHasSeparatorRunsCollapsed) {
  TestInstaller engine;
  engine.defineVariable("NEW", "C:\\\\data//x", "$ROOT\\/sub", 0, "a///b");
  EXPECT_STREQ("C:\\data/x", record(engine, "NEW").value);
  EXPECT_STREQ("$ROOT/sub", record(engine, "NEW").expression);
  EXPECT_STREQ("a/b", record(engine, "NEW").defaultValue);

  // A new record without a value takes the default, collapsed too.
  engine.defineVariable("FROMDEFAULT", nullptr, nullptr, 0, "//srv//share");
  EXPECT_EQ("/srv/share", engine.value("FROMDEFAULT"));

  // Changing a record collapses all three fields, also those not given.
  engine.setVariable("NEW", "not//a/path");
  EXPECT_EQ("not/a/path", engine.value("NEW"));

  // A recalculated value is stored the same way.
  engine.setVariable("ROOT", "/opt/");
  engine.defineVariable("CHILD", "", "$ROOT/app", 1, "");
  engine.setVariable("ROOT", "/srv/");
  EXPECT_EQ("/srv/app", engine.value("CHILD"));
}

TEST(VariablesTest, DependentsAreRecalculatedAfterWhatTheyFollow) {
  // The same chain ROOT <- B <- C <- D, defined in three orders. The store
  // is walked from its last record back, so each order needs a different
  // amount of sorting to work out B before C before D.
  const char* orders[][3] = {{"B", "C", "D"}, {"D", "C", "B"}, {"D", "B", "C"}};
  for (const auto& order : orders) {
    TestInstaller engine;
    engine.setVariable("ROOT", "r");
    for (const char* name : order) {
      const char* expression = name[0] == 'B' ? "$ROOT/b" : name[0] == 'C' ? "$B/c" : "$C/d";
      engine.defineVariable(name, "stale", expression, 1, "");
    }
    engine.setVariable("ROOT", "s");
    EXPECT_EQ("s/b", engine.value("B")) << order[0] << order[1] << order[2];
    EXPECT_EQ("s/b/c", engine.value("C")) << order[0] << order[1] << order[2];
    EXPECT_EQ("s/b/c/d", engine.value("D")) << order[0] << order[1] << order[2];
  }
}

TEST(VariablesTest, RecalculationFollowsOnlyWhileAttachedAndNotSuspended) {
  TestInstaller engine;
  engine.setVariable("ROOT", "a");
  engine.defineVariable("DIR", "a/x", "$ROOT/x", 1, "a/x");

  engine.suspendRecalculation = 1;
  engine.setVariable("ROOT", "b");
  EXPECT_EQ("a/x", engine.value("DIR"));
  engine.suspendRecalculation = 0;
  engine.setVariable("ROOT", "c");
  EXPECT_EQ("c/x", engine.value("DIR"));

  // Setting it by hand detaches it for good.
  engine.setVariable("DIR", "mine");
  EXPECT_EQ(0, record(engine, "DIR").recalculate);
  engine.setVariable("ROOT", "d");
  EXPECT_EQ("mine", engine.value("DIR"));

  // Until a reset ties it again.
  EXPECT_EQ(0, engine.resetVariable("DIR", 1));
  EXPECT_EQ("d/x", engine.value("DIR"));
  engine.setVariable("ROOT", "e");
  EXPECT_EQ("e/x", engine.value("DIR"));

  EXPECT_EQ(-1, engine.resetVariable("NOSUCH", 1));
  EXPECT_EQ(-1, engine.resetVariable("GUI_INSTALL", 1));
  EXPECT_EQ(-1, engine.resetVariable(nullptr, 1));
}

TEST(VariablesTest, FailedDollarExpansionKeepsTheOldValue) {
  TestInstaller engine;
  engine.setVariable("ROOT", "r");
  engine.defineVariable("BROKEN", "old", "$NOSUCH/b", 1, "");
  engine.setVariable("ROOT", "s");
  EXPECT_EQ("old", engine.value("BROKEN"));
  EXPECT_EQ(0, engine.resetVariable("BROKEN", 1));
  EXPECT_EQ("old", engine.value("BROKEN"));

  char buffer[16];
  EXPECT_FALSE(engine.expandDollars("US$ 5", buffer, sizeof buffer));          // empty name
  EXPECT_FALSE(engine.expandDollars("$HOME", buffer, sizeof buffer));          // no environment
  EXPECT_FALSE(engine.expandDollars("$ROOT_$ROOT.x", buffer, sizeof buffer));  // the name is ROOT_
  ASSERT_TRUE(engine.expandDollars("$ROOT-$GUI_INSTALL", buffer, sizeof buffer));
  EXPECT_STREQ("s-0", buffer);
  // The output must leave room for its terminator.
  ASSERT_TRUE(engine.expandDollars("123456789012345", buffer, sizeof buffer));
  EXPECT_FALSE(engine.expandDollars("1234567890123456", buffer, sizeof buffer));
  EXPECT_FALSE(engine.expandDollars("123456789012345$ROOT", buffer, sizeof buffer));
}

TEST(VariablesTest, BracketReferencesExpandAndUnknownOnesStay) {
  TestInstaller engine;
  LinesConsole console;
  engine.logConsole = &console;
  engine.setVariable("A", "1");
  engine.setVariable("PATH_X", "/p");

  EXPECT_EQ("x=1 [B] /p/1", expanded(engine, "x=[A] [B] [PATH_X]/[A"));
  EXPECT_NE(std::string::npos, console.all.find("WARNING: Variable [B] is not initialized in the expression: "
                                                   "\"x=[A] [B] [PATH_X]/[A\""));
  // A name runs to the end when no ']' follows; unknown, it is closed.
  EXPECT_EQ("/[ZZ]", expanded(engine, "/[ZZ"));
  // A value isn't expanded again, and a '[' inside a name is part of it.
  engine.setVariable("REF", "[A]");
  EXPECT_EQ("[A]", expanded(engine, "[REF]"));
  EXPECT_EQ("[[A]", expanded(engine, "[[A]"));

  char small[6];
  EXPECT_EQ(0, engine.expandVariables("ab[PATH_X]cd", small, sizeof small));
  EXPECT_STREQ("ab/pc", small);
  EXPECT_EQ(0, engine.expandVariables(nullptr, small, sizeof small));
  EXPECT_STREQ("", small);
  EXPECT_EQ(-1, engine.expandVariables("x", nullptr, 10));
}

TEST(VariablesTest, EnvironmentNamesAreReadOnlyThroughGetVariable) {
  TestInstaller engine;
  LinesConsole console;
  engine.logConsole = &console;
  setEnvironment("QLUX_VARIABLES_TEST", "from env");
  setEnvironment("QLUX_VARIABLES_UNSET", nullptr);

  char buffer[64];
  EXPECT_EQ(-2, engine.getVariable("$QLUX_VARIABLES_TEST", buffer, sizeof buffer));
  EXPECT_STREQ("from env", buffer);
  EXPECT_EQ("from env/x", expanded(engine, "[$QLUX_VARIABLES_TEST]/x"));

  std::strcpy(buffer, "junk");
  EXPECT_EQ(-1, engine.getVariable("$QLUX_VARIABLES_UNSET", buffer, sizeof buffer));
  EXPECT_STREQ("", buffer);
  console.all.clear();
  EXPECT_EQ("[$QLUX_VARIABLES_UNSET]", expanded(engine, "[$QLUX_VARIABLES_UNSET]"));
  EXPECT_NE(std::string::npos,
            console.all.find("WARNING: Environment variable \"QLUX_VARIABLES_UNSET\" is not defined!"));
  EXPECT_NE(std::string::npos, console.all.find("WARNING: Variable [$QLUX_VARIABLES_UNSET] is not initialized"));

  // Latin and Cyrillic letters, which no ANSI code page holds together,
  // come out as the same UTF-8 on every system.
  setEnvironment("QLUX_VARIABLES_UTF8", "C:\\Users\\Zo\xc3\xab \xd0\x96\xd1\x83\xd0\xba");
  EXPECT_EQ("C:\\Users\\Zo\xc3\xab \xd0\x96\xd1\x83\xd0\xba\\x", expanded(engine, "[$QLUX_VARIABLES_UTF8]\\x"));
  setEnvironment("QLUX_VARIABLES_UTF8", nullptr);

  // An environment name can't be given a record.
  EXPECT_EQ(-1, engine.setVariable("$QLUX_VARIABLES_TEST", "x"));
  EXPECT_EQ(-1, engine.setVariable("$QLUX_VARIABLES_UNSET", "x"));
  EXPECT_EQ(0, engine.variables.getCount());
  setEnvironment("QLUX_VARIABLES_TEST", nullptr);
}

TEST(VariablesTest, BuiltInsIgnoreCaseAndStoredNamesDoNot) {
  TestInstaller engine;
  char buffer[QUtils::kMaxPath];
  EXPECT_EQ(-2, engine.getVariable("gui_install", buffer, sizeof buffer));
  EXPECT_STREQ("0", buffer);
  engine.guiInstall = 1;
  EXPECT_EQ("1", engine.value("GUI_INSTALL"));
  EXPECT_EQ("test", engine.value("Wx_Port"));

  std::string directory = engine.value("INSTALLER_DIR");
  ASSERT_FALSE(directory.empty());
  EXPECT_TRUE(QUtils::isSeparator(directory.back()));
  EXPECT_EQ(directory, expanded(engine, "[installer_dir]"));

  EXPECT_EQ(-1, engine.setVariable("Gui_Install", "5"));
  EXPECT_EQ(-1, engine.defineVariable("WX_PORT", "x", nullptr, 0, nullptr));
  EXPECT_EQ(-1, engine.setVariable("", "x"));
  EXPECT_EQ(-1, engine.setVariable(nullptr, "x"));
  EXPECT_EQ(0, engine.variables.getCount());

  engine.setVariable("MYVAR", "upper");
  engine.setVariable("myvar", "lower");
  EXPECT_EQ(0, engine.getVariable("MYVAR", buffer, sizeof buffer));
  EXPECT_STREQ("upper", buffer);
  EXPECT_EQ(1, engine.getVariable("myvar", buffer, sizeof buffer));
  EXPECT_STREQ("lower", buffer);
  EXPECT_EQ(-1, engine.getVariable("MyVar", buffer, sizeof buffer));
  EXPECT_EQ(-1, engine.getVariable("", nullptr, 0));
}

TEST(VariablesTest, DefineKeepsWhatIsNotGivenAndDefaultsAreSeparate) {
  TestInstaller engine;
  engine.defineVariable("V", nullptr, "$X", 1, "def");
  EXPECT_EQ("def", engine.value("V"));
  engine.defineVariable("V", "val", nullptr, 0, nullptr);
  EXPECT_STREQ("$X", record(engine, "V").expression);
  EXPECT_STREQ("def", record(engine, "V").defaultValue);

  char buffer[16];
  EXPECT_EQ(0, engine.getVariableDefault("V", buffer, sizeof buffer));
  EXPECT_STREQ("def", buffer);
  EXPECT_EQ(-1, engine.getVariableDefault("GUI_INSTALL", buffer, sizeof buffer));

  // Values are cut to their fields; the getter cuts to the caller's buffer.
  std::string longValue(2000, 'v');
  engine.setVariable("LONG", longValue.c_str());
  EXPECT_EQ(1559u, engine.value("LONG").size());
  EXPECT_EQ(1, engine.getVariable("LONG", buffer, sizeof buffer));
  EXPECT_EQ(15u, std::strlen(buffer));
}

TEST(VariablesTest, ReadExcludesListsControlValidationAndTemplateNames) {
  TestInstaller engine;
  engine.loadTemplate(
      "<HalvoWorksInstallation>"
      " <InstallerControlVariables>"
      "  <PreviousInstallation>PREV</PreviousInstallation>"
      "  <ShouldUninstall>SHOULD</ShouldUninstall>"
      "  <CustomizeSettings>CUSTOMIZE</CustomizeSettings>"
      "  <ProgressDetails>DETAILS</ProgressDetails>"
      "  <InstallError>IERR</InstallError>"
      "  <UninstallError>UERR</UninstallError>"
      "  <DlgCondition>DLG</DlgCondition>"
      " </InstallerControlVariables>"
      " <Dialogs>"
      "  <Welcome><Button>Next</Button></Welcome>"
      "  <Paths><Field Type='Directory' ValidationVariable='DIR_OK'>DIR</Field>"
      "   <Field Type='CheckBox'>FLAG</Field></Paths>"
      "  <Progress Special='HasSubDialogs'>"
      "   <TaskList><Second></Second><First></First></TaskList>"
      "   <SubDialogs>"
      "    <First><Field Type='Directory' ValidationVariable='FIRST_OK'>F</Field></First>"
      "    <Second><Field Type='Directory' ValidationVariable='SECOND_OK'>S</Field></Second>"
      "   </SubDialogs>"
      "  </Progress>"
      " </Dialogs>"
      " <InstallerExcludeVariables>"
      "  <V ExcludeFrom='Log'>ONLY_LOG</V>"
      "  <V ExcludeFrom='config;LOG'>BOTH</V>"
      "  <V ExcludeFrom='ALL;nonsense'>ALL</V>"
      "  <V ExcludeFrom='nonsense'>NOTHING</V>"
      "  <V></V>"
      "  <V>DEFAULT</V>"
      " </InstallerExcludeVariables>"
      "</HalvoWorksInstallation>");
  ASSERT_EQ(0, engine.readControlVariables());

  // Validation variables come from the dialogs' own fields, then, with
  // HasSubDialogs, from each sub-dialog's in task order.
  ASSERT_EQ(0, engine.readDialogs(false));
  engine.setVariable("DIR_OK", "0");  // as an action log would have left it

  engine.readExcludes();

  const struct {
    const char* name;
    int mask;
  } expected[] = {{"PREV", 2},     {"DETAILS", 3},   {"IERR", 2},      {"UERR", 2},     {"CUSTOMIZE", 3},
                  {"DLG", 3},      {"DIR_OK", 3},    {"SECOND_OK", 3}, {"FIRST_OK", 3}, {"ONLY_LOG", 1},
                  {"BOTH", 3},     {"ALL", 3},       {"NOTHING", 0},   {"DEFAULT", 3}};
  ASSERT_EQ(static_cast<int>(sizeof expected / sizeof expected[0]), engine.excludes.getCount());
  for (int i = 0; i < engine.excludes.getCount(); i++) {
    EXPECT_STREQ(expected[i].name, engine.excludes[i].name.getText()) << i;
    EXPECT_EQ(expected[i].mask, engine.excludes[i].mask) << i;
  }

  for (const char* name : {"DIR_OK", "FIRST_OK", "SECOND_OK"}) {
    EXPECT_EQ("1", engine.value(name)) << name;
    EXPECT_STREQ("1", record(engine, name).expression) << name;
  }

  EXPECT_FALSE(engine.isVariableIncluded("ONLY_LOG", kExcludeFromLog));
  EXPECT_TRUE(engine.isVariableIncluded("ONLY_LOG", kExcludeFromConfig));
  EXPECT_TRUE(engine.isVariableIncluded("PREV", kExcludeFromLog));
  EXPECT_FALSE(engine.isVariableIncluded("PREV", kExcludeFromConfig));
  EXPECT_TRUE(engine.isVariableIncluded("NOTHING", kExcludeFromLog | kExcludeFromConfig));
  EXPECT_TRUE(engine.isVariableIncluded("only_log", kExcludeFromLog));
  EXPECT_TRUE(engine.isVariableIncluded("SHOULD", kExcludeFromLog | kExcludeFromConfig));
}
