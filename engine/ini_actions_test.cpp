// Tests of the INI actions and their undoing: adding, replacing, moving,
// new files and their folders, and errors let through.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/files.h"
#include "foundation/ini.h"

namespace {

const char kSettings[] =
    "; settings of the tool\n"
    "[Main]\n"
    "Name=old\n"
    "Mode=fast\n"
    "\n"
    "[Paths]\n"
    "Home=somewhere\n";

// Runs the IniFiles section `children` over the file at `path`.
struct IniRun {
  IniRun(const std::string& path, const std::string& children) {
    std::string text = "<HalvoWorksInstallation><IniFiles>" + children + "</IniFiles></HalvoWorksInstallation>";
    engine.setVariable("INI", path.c_str());
    engine.loadTemplate(text.c_str());
    result = engine.applyIniActions(&log, &ui);
  }
  // Undoes every logged line, last first, as the uninstaller does.
  void undoAll() {
    for (auto line = log.lines.rbegin(); line != log.lines.rend(); ++line)
      EXPECT_TRUE(engine.undoIniChange(Installer::nextLogField(line->c_str()), &ui)) << *line;
  }
  TestInstaller engine;
  RecordingUI ui;
  LinesConsole log;
  int result;
};

TEST(IniActionsTest, AddReplacesMovesAndCreatesKeysAndIsUndone) {
  std::string path = here("settings.ini");
  writeFile(path, kSettings);
  IniRun run(path,
             "<Add FileName=\"[INI]\" Section=\"Main\" Key=\"Name\">new</Add>"
             "<Add FileName=\"[INI]\" Section=\"Main\" Key=\"Level\" BeforeKey=\"Mode\">3</Add>"
             "<Add FileName=\"[INI]\" Section=\"Paths\" Key=\"Data\">d</Add>"
             "<Add FileName=\"[INI]\" Section=\"Extra\" Key=\"On\">1</Add>");
  EXPECT_EQ(0, run.result);
  EXPECT_EQ(
      "; settings of the tool\n"
      "[Main]\n"
      "Level=3\n"
      "Mode=fast\n"
      "Name=new\n"
      "\n"
      "[Paths]\n"
      "Home=somewhere\n"
      "Data=d\n"
      "[Extra]\n"
      "On=1\n",
      readFile(path));
  ASSERT_EQ(4u, run.log.lines.size());
  EXPECT_EQ("INI\tREPLACE\t" + path + "\tMain\tName\told", run.log.lines[0]);
  EXPECT_EQ("INI\tCREATE\t" + path + "\tMain\tLevel\t3", run.log.lines[1]);
  EXPECT_EQ("Replace [Main]/Name in " + path, run.ui.lines[0]);
  EXPECT_EQ("Create [Main]/Level in " + path, run.ui.lines[1]);

  run.undoAll();
  // The old value comes back where the key now stands; the new section's
  // line stays behind.
  EXPECT_EQ(
      "; settings of the tool\n"
      "[Main]\n"
      "Mode=fast\n"
      "Name=old\n"
      "\n"
      "[Paths]\n"
      "Home=somewhere\n"
      "[Extra]\n",
      readFile(path));
  EXPECT_EQ("Restore [Main]/Name in " + path, run.ui.lines.back());
  EXPECT_EQ(0, run.engine.errorList->getCount());
  std::remove(path.c_str());
}

TEST(IniActionsTest, EmptyValuesCountAsMissingAndPathsAlreadyThereAreKept) {
  std::string dir = here("inidir");
  ASSERT_TRUE(QUtils::makeDirectory(dir.c_str()));
  std::string path = here("paths.ini");
  writeFile(path, "[S]\nEmpty=\nWhere=" + dir + "/\n");
  IniRun run(path,
             "<Add FileName=\"[INI]\" Section=\"S\" Key=\"Empty\">v</Add>"
             "<Add FileName=\"[INI]\" Section=\"S\" Key=\"Other\" IsPath=\"\">" + dir + "</Add>");
  EXPECT_EQ(0, run.result);
  ASSERT_EQ(2u, run.log.lines.size());
  EXPECT_EQ("INI\tCREATE\t" + path + "\tS\tEmpty\tv", run.log.lines[0]);
  EXPECT_EQ("INI\tNONE", run.log.lines[1]);
  EXPECT_EQ("[S]\nWhere=" + dir + "/\nEmpty=v\n", readFile(path));
  run.undoAll();
  EXPECT_EQ("[S]\nWhere=" + dir + "/\n", readFile(path));
  std::remove(path.c_str());
  EXPECT_TRUE(QUtils::deleteTree(dir.c_str()));
}

TEST(IniActionsTest, ANewFileGetsItsFolderAndGoesWhenItsUndoLeavesItEmpty) {
  std::string folder = here("made/deeper");
  std::string path = folder + "/new.ini";
  IniRun run(path,
             "<Add FileName=\"[INI]\" Section=\"S\" Key=\"A\">1</Add>"
             "<Add FileName=\"[INI]\" Section=\"T\" Key=\"B\">2</Add>");
  EXPECT_EQ(0, run.result);
  // The two levels made for it are logged, the file's making after its key.
  ASSERT_EQ(4u, run.log.lines.size());
  EXPECT_EQ("DIR\t2\t" + folder + "/", run.log.lines[0]);
  EXPECT_EQ("INI\tNEWFILE\t" + path, run.log.lines[2]);
  EXPECT_EQ("INI\tCREATE\t" + path + "\tT\tB\t2", run.log.lines[3]);
  // The undo of every line leaves section lines only: the file goes.
  for (auto line = run.log.lines.rbegin(); line != run.log.lines.rend(); ++line) {
    if (Installer::hasLogTag(line->c_str(), Installer::kLogIni)) {
      EXPECT_TRUE(run.engine.undoIniChange(Installer::nextLogField(line->c_str()), &run.ui));
    }
  }
  run.engine.removeNewIniFiles(&run.ui);
  EXPECT_FALSE(QUtils::fileExists(path.c_str()));
  EXPECT_EQ("Remove " + path, run.ui.lines.back());

  // A key that somebody added keeps the file; a second undo of a key finds
  // no file and makes none.
  IniRun again(path, "<Add FileName=\"[INI]\" Section=\"S\" Key=\"A\">1</Add>");
  ASSERT_EQ(0, QUtils::writeIniValue(path.c_str(), "S", "Mine", "x", nullptr));
  again.undoAll();
  again.engine.removeNewIniFiles(&again.ui);
  std::string left = readFile(path);
  left.erase(std::remove(left.begin(), left.end(), '\r'), left.end());
  EXPECT_EQ("[S]\nMine=x\n", left);
  std::remove(path.c_str());
  EXPECT_TRUE(again.engine.undoIniChange(("CREATE\t" + path + "\tS\tA\t1").c_str(), &again.ui));
  EXPECT_FALSE(QUtils::fileExists(path.c_str()));
  EXPECT_TRUE(QUtils::deleteTree(here("made").c_str()));
}

TEST(IniActionsTest, IgnoreErrorsKeepsTheSectionGoing) {
  // A file where the folder should be: the INI file can't be made.
  writeFile(here("blocker"), "not a folder");
  std::string bad = here("blocker/x.ini");
  std::string good = here("good.ini");
  std::string children = "<Add FileName=\"" + bad + "\" Section=\"S\" Key=\"K\"%s>1</Add>"
                         "<Add FileName=\"" + good + "\" Section=\"S\" Key=\"K\">1</Add>";
  std::string ignoring = children;
  ignoring.replace(ignoring.find("%s"), 2, " IgnoreErrors=\"\"");
  IniRun tolerant(good, ignoring);
  EXPECT_EQ(0, tolerant.result);
  // A new file takes the system's own line end.
  std::string made = readFile(good);
  made.erase(std::remove(made.begin(), made.end(), '\r'), made.end());
  EXPECT_EQ("[S]\nK=1\n", made);
  ASSERT_EQ(3u, tolerant.log.lines.size());
  EXPECT_EQ("INI\tCREATE\t" + bad + "\tS\tK\t1", tolerant.log.lines[0]);
  EXPECT_EQ("INI\tNEWFILE\t" + good, tolerant.log.lines[2]);
  // The failure says why, in the system's words.
  EXPECT_EQ(0u, tolerant.ui.lines[0].find("FAILED to create [S]/K in " + bad + ": "));

  std::remove(good.c_str());
  std::string strict = children;
  strict.replace(strict.find("%s"), 2, "");
  IniRun failing(good, strict);
  EXPECT_EQ(1, failing.result);
  EXPECT_TRUE(failing.log.lines.empty());
  EXPECT_EQ("<missing>", readFile(good));
  EXPECT_EQ(1, failing.engine.errorList->getCount());
  std::remove(here("blocker").c_str());
}

}  // namespace
