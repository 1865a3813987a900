// Tests of the modify-file action: adding lines after each match, undoing
// exactly that, and leaving the target alone on bad input.
#include <gtest/gtest.h>

#include <string>

#include "engine/test_files.h"
#include "engine/test_support.h"

namespace {

const char kTarget[] =
    "first\n"
    "# hook\n"
    "middle\n"
    "# hook\n"
    "last\n";
// Looks for "# hook" and adds two lines after it.
const char kChange[] = "1 line to look for\n# hook\n2\nadded one\nadded two\n";

struct ModifyFixture : ::testing::Test {
  void SetUp() override {
    target = here("target.conf");
    change = here("change.mod");
    writeFile(target, kTarget);
    writeFile(change, kChange);
  }
  void TearDown() override {
    std::remove(target.c_str());
    std::remove(change.c_str());
  }
  bool modify() {
    char out[4096];
    bool ok = engine.modifyFile(target.c_str(), change.c_str(), 1, out, sizeof out, &ui);
    form = out;
    return ok;
  }
  TestInstaller engine;
  RecordingUI ui;
  std::string target;
  std::string change;
  std::string form;
};

TEST_F(ModifyFixture, AddAfterEveryMatchAndUndoItExactly) {
  ASSERT_TRUE(modify());
  EXPECT_EQ(
      "first\n# hook\nadded one\nadded two\nmiddle\n"
      "# hook\nadded one\nadded two\nlast\n",
      readFile(target));
  EXPECT_EQ("ADDAFTER\t" + target + "\t" + change, form);
  EXPECT_EQ("Modifying " + target, ui.lines.back());
  EXPECT_FALSE(QUtils::fileExists((target + ".qlux-new").c_str()));

  EXPECT_TRUE(engine.undoModifyFile(form.c_str(), &ui));
  EXPECT_EQ(kTarget, readFile(target));
  EXPECT_EQ("Undoing modifications to " + target, ui.lines.back());
  EXPECT_EQ(0, engine.errorList->getCount());
}

TEST_F(ModifyFixture, UndoKeepsLinesThatWereChangedSince) {
  writeFile(target, "# hook\nadded one\nedited\n# hook\r\nadded one\r\nadded two\r\nend");
  EXPECT_TRUE(engine.undoModifyFile(("addafter\t" + target + "\t" + change).c_str(), &ui));
  EXPECT_EQ("# hook\nadded one\nedited\n# hook\r\nend", readFile(target));
  // Each line keeps its own line end, and added lines take that of the match.
  writeFile(target, "x\r\n# hook\r\ny");
  ASSERT_TRUE(modify());
  EXPECT_EQ("x\r\n# hook\r\nadded one\r\nadded two\r\ny", readFile(target));
}

TEST_F(ModifyFixture, BadInputFailsAndLeavesTheTargetAlone) {
  std::remove(change.c_str());
  EXPECT_FALSE(modify());
  EXPECT_EQ("FAILED : Modifying " + target, ui.lines.back());
  EXPECT_EQ(kTarget, readFile(target));

  for (const char* bad : {"", "two\n# hook\n", "3\n# hook\n", "1\n# hook\n", "1\n# hook\n2\nonly one\n", "0\n1\nx\n"}) {
    writeFile(change, bad);
    EXPECT_FALSE(modify()) << bad;
    EXPECT_EQ(kTarget, readFile(target));
  }
  writeFile(change, kChange);
  std::string missing = here("missing.conf");
  char out[4096];
  EXPECT_FALSE(engine.modifyFile(missing.c_str(), change.c_str(), 1, out, sizeof out, &ui));
  EXPECT_EQ("<missing>", readFile(missing));
  // Other modes do nothing.
  EXPECT_TRUE(engine.modifyFile(target.c_str(), change.c_str(), 2, out, sizeof out, &ui));
  EXPECT_EQ(kTarget, readFile(target));
  // An unknown form in the log touches nothing.
  EXPECT_FALSE(engine.undoModifyFile(("ADDBEFORE\t" + target + "\t" + change).c_str(), &ui));
  EXPECT_EQ(kTarget, readFile(target));
  EXPECT_EQ(9, engine.errorList->getCount());
}

TEST_F(ModifyFixture, AFailureEndsItsSection) {
  std::string text =
      "<HalvoWorksInstallation>"
      " <ModifyFiles Condition=\"0\"><File Path=\"" + target + "\" Command=\"AddAfter\">" + change + "</File></ModifyFiles>"
      " <ModifyFiles>"
      "  <File Path=\"" + target + "\" Command=\"Replace\">" + change + "</File>"
      "  <file Path=\"" + target + "\" Command=\"addafter\">" + change + "</file>"
      "  <File Path=\"" + here("none.conf") + "\" Command=\"AddAfter\">" + change + "</File>"
      "  <File Path=\"" + target + "\" Command=\"AddAfter\">" + change + "</File>"
      " </ModifyFiles>"
      "</HalvoWorksInstallation>";
  engine.loadTemplate(text.c_str());
  LinesConsole log;
  EXPECT_EQ(1, engine.applyModifyFileActions(&log, &ui));
  EXPECT_EQ((std::vector<std::string>{"MODIFYFILE\tADDAFTER\t" + target + "\t" + change}), log.lines);
  EXPECT_EQ(
      "first\n# hook\nadded one\nadded two\nmiddle\n"
      "# hook\nadded one\nadded two\nlast\n",
      readFile(target));
}

}  // namespace
