#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/test_files.h"
#include "engine/test_support.h"

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

TEST(IniActionsTest, IgnoreErrorsKeepsTheSectionGoing) {
  std::string bad = here("no-such-dir/x.ini");
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
  ASSERT_EQ(2u, tolerant.log.lines.size());
  EXPECT_EQ("INI\tCREATE\t" + bad + "\tS\tK\t1", tolerant.log.lines[0]);
  EXPECT_EQ("FAILED to create [S]/K in " + bad, tolerant.ui.lines[0]);

  std::remove(good.c_str());
  std::string strict = children;
  strict.replace(strict.find("%s"), 2, "");
  IniRun failing(good, strict);
  EXPECT_EQ(1, failing.result);
  EXPECT_TRUE(failing.log.lines.empty());
  EXPECT_EQ("<missing>", readFile(good));
  EXPECT_EQ(1, failing.engine.errorList->getCount());
  EXPECT_FALSE(QUtils::fileExists(here("no-such-dir").c_str()));
}

}  // namespace
