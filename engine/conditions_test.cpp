// Tests of conditions and actions: worked examples of the syntax, the
// expressions of real templates, and the limits of texts.
#include <string>

#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {

// Counts the two commands an Action can give instead of assignments.
class ActionInstaller : public TestInstaller {
 public:
  void cancel(InstallerUI* ui) override {
    cancels++;
    lastUi = ui;
  }
  void openHelp(InstallerUI* ui) override { helps++; }
  int cancels = 0;
  int helps = 0;
  InstallerUI* lastUi = nullptr;
};

struct ConditionCase {
  const char* text;
  int result;
};

void expectConditions(Installer& engine, const ConditionCase* cases, int count) {
  for (int i = 0; i < count; i++) {
    EXPECT_EQ(cases[i].result, engine.evaluateCondition(cases[i].text)) << "\"" << cases[i].text << "\"";
  }
}

}  // namespace

TEST(ConditionsTest, WorkedExamplesAndSyntax) {
  TestInstaller engine;
  engine.setVariable("A", "1");
  engine.setVariable("B", "0");
  engine.setVariable("T", "abc");
  engine.setVariable("LIST", "1,0");
  engine.setVariable("EMPTY", "");
  const ConditionCase cases[] = {
      // The worked examples.
      {"", 1}, {"0", 0}, {"[A]==1,[B]==1", 0}, {"[A]==1;[B]==1", 1}, {"[B]==1,[A]==1;[A]==1", 1},
      {"[A]==1,([B]==1;[A]==1)", 1}, {"[A]==1,([B]==1;[B]==2)", 0}, {"'[T]'=='abc'", 1}, {"'[T]'!='[A]'", 1},
      {"'1'==1", 0}, {"'a'<1", 1}, {"1<'a'", 0}, {"[T]==1", -1}, {"[NOSUCH]==1", -1},
      {"'[NOSUCH]'=='[NOSUCH]'", 1}, {"[A]=1", -1}, {"!1", -1}, {"1==1==0", 1}, {"([A]==1)==0", 0},
      {"0x10==16", 1}, {"010==8", 1}, {"3000000000>1", 0},
      // Expansion is textual: a value's comma splits the comparison.
      {"[LIST]==1", 0}, {"[EMPTY]", -1},
      // Blanks and tabs before operands, operators and separators only.
      {" \t[A] \t== \t1 \t, [B]!=1 \t; 0", 1}, {"1 = = 1", -1}, {"1 < = 1", -1}, {"1,", -1}, {";1", -1},
      // What follows an expression, and missing closers, are let go.
      {"1 x", 1}, {"1)", 1}, {"(1", 1}, {"'abc", 1}, {"''", 1},
      // Texts compare as unsigned bytes, with case.
      {"'ab'<'abc'", 1}, {"'B'<'a'", 1}, {"'\xC3\xA9'>'z'", 1}, {"2>=2", 1}, {"2<=1", 0},
      // Numbers: octal-ish leading 0, capped hexadecimal, 32-bit wrap.
      {"019==17", 1}, {"0XfF==255", 1}, {"0xFFFFFFFF==2147483647", 1}, {"0x123456789==0x12345678", 1},
      {"4294967297==1", 1}, {"2147483648<0", 1},
      // The numbers that coincide with the marks: -1 is an error, -2 a text.
      {"4294967295", -1}, {"4294967294==''", 1},
  };
  expectConditions(engine, cases, static_cast<int>(sizeof cases / sizeof cases[0]));
  EXPECT_EQ(1, engine.evaluateCondition(nullptr));
}

TEST(ConditionsTest, ExpressionsOfRealTemplates) {
  TestInstaller engine;
  engine.guiInstall = 1;
  engine.setVariable("PREVIOUSINSTALLATION", "0");
  engine.setVariable("SHOULDUNINSTALL", "1");
  engine.setVariable("INSTALL_ERROR", "1");
  engine.setVariable("REVERT_INSTALL", "1");
  engine.setVariable("DIRECTORY_VALID_0", "1");
  engine.setVariable("DIRECTORY_VALID_1", "0");
  engine.setVariable("DATA_ROOT", "C:\\Data");
  engine.setVariable("PREVIOUS_DATA_ROOT", "C:\\Old Data");
  const ConditionCase cases[] = {
      {"[PREVIOUSINSTALLATION]==1,[SHOULDUNINSTALL]==1", 0},
      {"[SHOULDUNINSTALL]==1,([INSTALL_ERROR]==0;[REVERT_INSTALL]==0)", 0},
      {"[INSTALL_ERROR]==0;[REVERT_INSTALL]==0", 0},
      {"[GUI_INSTALL]==1,([DIRECTORY_VALID_0]==0;[DIRECTORY_VALID_1]==0)", 1},
      {"'[DATA_ROOT]'!='[PREVIOUS_DATA_ROOT]'", 1},
      {"[DATA_ROOT]!=[PREVIOUS_DATA_ROOT]", -1},
      {"0", 0},
  };
  expectConditions(engine, cases, static_cast<int>(sizeof cases / sizeof cases[0]));

  engine.setVariable("PREVIOUSINSTALLATION", "1");
  engine.setVariable("REVERT_INSTALL", "0");
  engine.setVariable("PREVIOUS_DATA_ROOT", "C:\\Data");
  const ConditionCase changed[] = {
      {"[PREVIOUSINSTALLATION]==1,[SHOULDUNINSTALL]==1", 1},
      {"[SHOULDUNINSTALL]==1,([INSTALL_ERROR]==0;[REVERT_INSTALL]==0)", 1},
      {"[INSTALL_ERROR]==0;[REVERT_INSTALL]==0", 1},
      {"'[DATA_ROOT]'!='[PREVIOUS_DATA_ROOT]'", 0},
  };
  expectConditions(engine, changed, static_cast<int>(sizeof changed / sizeof changed[0]));
}

TEST(ConditionsTest, LengthLimitsOfTextsAndExpressions) {
  TestInstaller engine;
  // A text operand keeps 1,023 bytes. The rest of a longer one is read as
  // further input, where no operator follows: the operand alone is true.
  std::string kept(1023, 'a');
  EXPECT_EQ(0, engine.evaluateCondition(("'" + kept + "'=='x'").c_str()));
  EXPECT_EQ(1, engine.evaluateCondition(("'" + kept + "b'=='x'").c_str()));

  // The expanded expression is cut at 2,047 bytes.
  std::string fits = "0;" + std::string(2044, ' ') + "1";
  EXPECT_EQ(1, engine.evaluateCondition(fits.c_str()));
  std::string cut = "0;" + std::string(2045, ' ') + "1";
  EXPECT_EQ(-1, engine.evaluateCondition(cut.c_str()));

  // Groups nest as deep as the buffer allows.
  std::string deep = std::string(2000, '(') + "1";
  EXPECT_EQ(1, engine.evaluateCondition(deep.c_str()));
}

TEST(ConditionsTest, ActionsAssignCancelOrOpenHelp) {
  ActionInstaller engine;
  RecordingUI ui;

  engine.runAction(&ui, "Cancel;[A]='1'");
  EXPECT_EQ(1, engine.cancels);
  EXPECT_EQ(&ui, engine.lastUi);
  EXPECT_EQ("<unset>", engine.value("A"));

  engine.runAction(&ui, "help");
  EXPECT_EQ(1, engine.helps);

  engine.runAction(&ui, "[A]='1';[B]='0'");
  EXPECT_EQ("1", engine.value("A"));
  EXPECT_EQ("0", engine.value("B"));

  // Only the first piece can be a command; empty pieces are passed over.
  engine.runAction(&ui, ";[A]='2';;Cancel;");
  EXPECT_EQ("2", engine.value("A"));
  EXPECT_EQ(1, engine.cancels);

  engine.runAction(&ui, "[CUSTOMIZE]='1'");
  EXPECT_EQ("1", engine.value("CUSTOMIZE"));
  engine.runAction(&ui, nullptr);
}

TEST(ConditionsTest, ApplyActionSplitsNameAndValue) {
  TestInstaller engine;
  EXPECT_EQ(0, engine.applyAction("[A] 'one'"));
  EXPECT_EQ("one", engine.value("A"));
  EXPECT_EQ(0, engine.applyAction("'two'[A]"));
  EXPECT_EQ("two", engine.value("A"));
  // First '[' to last ']', first quote to last quote.
  EXPECT_EQ(0, engine.applyAction("[B]='it's'"));
  EXPECT_EQ("it's", engine.value("B"));
  EXPECT_EQ(0, engine.applyAction("[[B]]='x'"));
  EXPECT_EQ("x", engine.value("[B]"));
  EXPECT_EQ(0, engine.applyAction("[C]=''"));
  EXPECT_EQ("", engine.value("C"));

  EXPECT_EQ(-2, engine.applyAction("[D]='1"));
  EXPECT_EQ("<unset>", engine.value("D"));
  EXPECT_EQ(-2, engine.applyAction("]x[='1'"));
  EXPECT_EQ(-2, engine.applyAction(nullptr));
  // A built-in can't be assigned.
  engine.applyAction("[GUI_INSTALL]='1'");
  EXPECT_EQ("0", engine.value("GUI_INSTALL"));
}
