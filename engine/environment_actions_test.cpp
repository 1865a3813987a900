// Tests of the environment actions and their undoing: replacing, appending
// and inserting, separators, and the type of a value.
#include <gtest/gtest.h>

#include <string>

#include "engine/test_files.h"
#include "engine/test_support.h"

namespace {

// An engine whose registry holds the machine-wide environment key, and
// which counts its announcements of a change.
class EnvInstaller : public TestInstaller {
 public:
  EnvInstaller() {
    std::string path;
    for (const char* level : {"SYSTEM", "CurrentControlSet", "Control", "Session Manager", "Environment"}) {
      path += (path.empty() ? "" : "\\") + std::string(level);
      registry.createKey("HKEY_LOCAL_MACHINE", path.c_str(), nullptr);
    }
  }
  bool notifyEnvironmentChange() override {
    notified++;
    return true;
  }
  void put(const char* name, const std::string& value, int type = kRegSz) {
    registry.writeValue("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, type,
                        reinterpret_cast<const unsigned char*>(value.data()), static_cast<uint32_t>(value.size()));
  }
  // The variable's text, or "<missing>".
  std::string env(const char* name) {
    int type = 0;
    std::string text;
    if (!registry.value("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, &type, &text)) return "<missing>";
    return text;
  }
  // The variable's registry type, or 0 when it is missing.
  int typeOf(const char* name) {
    int type = 0;
    std::string text;
    return registry.value("HKEY_LOCAL_MACHINE", kEnvironmentKey, name, &type, &text) ? type : 0;
  }
  std::string form;
  bool set(const char* name, const char* value, int mode, bool isPath = false) {
    char out[4096];
    bool ok = setEnvironment(name, value, mode, out, sizeof out, &ui, isPath);
    form = out;
    return ok;
  }
  int errors() { return errorList->getCount(); }
  int notified = 0;
  RecordingUI ui;
};

TEST(EnvironmentActionsTest, ReplaceLogsTheOldValueOrThatTheVariableIsNew) {
  EnvInstaller engine;
  engine.put("TOOL_HOME", "C:\\old");
  EXPECT_TRUE(engine.set("TOOL_HOME", "C:\\new", 1));
  EXPECT_EQ("REPLACE\tTOOL_HOME\tC:\\old", engine.form);
  EXPECT_EQ("C:\\new", engine.env("TOOL_HOME"));
  EXPECT_TRUE(engine.set("FRESH", "1", 1));
  EXPECT_EQ("CREATE\tFRESH", engine.form);
  EXPECT_EQ((std::vector<std::string>{"Replace TOOL_HOME", "Create FRESH"}), engine.ui.lines);

  EXPECT_TRUE(engine.undoEnvironment("REPLACE\tTOOL_HOME\tC:\\old", &engine.ui));
  EXPECT_EQ("C:\\old", engine.env("TOOL_HOME"));
  EXPECT_TRUE(engine.undoEnvironment("CREATE\tFRESH", &engine.ui));
  EXPECT_EQ("<missing>", engine.env("FRESH"));
  EXPECT_EQ("Remove FRESH", engine.ui.lines.back());

  // A value that isn't text can't be kept, so it counts as new.
  engine.put("NUMBER", std::string(4, '\0'), kRegDword);
  EXPECT_TRUE(engine.set("NUMBER", "2", 1));
  EXPECT_EQ("CREATE\tNUMBER", engine.form);
  EXPECT_EQ(0, engine.errors());
}

TEST(EnvironmentActionsTest, AppendAndInsertAreUndoneAndTheJoiningSeparatorStays) {
  EnvInstaller engine;
  engine.put("LIST", "a;b");
  EXPECT_TRUE(engine.set("LIST", "c", 2));
  EXPECT_EQ("ADD\tLIST\tc", engine.form);
  EXPECT_EQ("a;b;c", engine.env("LIST"));
  EXPECT_EQ("Add to LIST", engine.ui.lines.back());
  // The log holds only the text, so the separator before it stays.
  EXPECT_TRUE(engine.undoEnvironment("ADD\tLIST\tc", &engine.ui));
  EXPECT_EQ("a;b;", engine.env("LIST"));
  EXPECT_EQ("Erase from LIST", engine.ui.lines.back());

  EXPECT_TRUE(engine.set("LIST", "z", 3));
  EXPECT_EQ("ADD\tLIST\tz;", engine.form);
  EXPECT_EQ("z;a;b;", engine.env("LIST"));
  EXPECT_TRUE(engine.undoEnvironment("ADD\tLIST\tz;", &engine.ui));
  EXPECT_EQ("a;b;", engine.env("LIST"));

  // A variable that isn't there takes the value alone, and the log says that
  // the list is new: undoing removes it rather than leaving it empty.
  EXPECT_TRUE(engine.set("NEWLIST", "q", 3));
  EXPECT_EQ("ADDNEW\tNEWLIST\tq", engine.form);
  EXPECT_EQ("q", engine.env("NEWLIST"));
  EXPECT_TRUE(engine.undoEnvironment("ADDNEW\tNEWLIST\tq", &engine.ui));
  EXPECT_EQ("<missing>", engine.env("NEWLIST"));
  EXPECT_EQ("Remove NEWLIST", engine.ui.lines.back());
  // One that somebody added to since stays, without the item.
  EXPECT_TRUE(engine.set("NEWLIST", "q", 2));
  EXPECT_TRUE(engine.set("NEWLIST", "r", 2));
  EXPECT_TRUE(engine.undoEnvironment("ADDNEW\tNEWLIST\tq", &engine.ui));
  EXPECT_EQ(";r", engine.env("NEWLIST"));

  // A variable that is there but empty gets the separator all the same.
  engine.put("EMPTY", "");
  EXPECT_TRUE(engine.set("EMPTY", "e", 2));
  EXPECT_EQ(";e", engine.env("EMPTY"));
  engine.put("EMPTY", "");
  EXPECT_TRUE(engine.set("EMPTY", "f", 3));
  EXPECT_EQ("ADD\tEMPTY\tf;", engine.form);
  EXPECT_EQ("f;", engine.env("EMPTY"));
  EXPECT_TRUE(engine.undoEnvironment("ADD\tEMPTY\tf;", &engine.ui));
  EXPECT_EQ("", engine.env("EMPTY"));

  // A text that is gone already leaves the variable as it is.
  EXPECT_TRUE(engine.undoEnvironment("ADD\tLIST\tgone", &engine.ui));
  EXPECT_EQ("a;b;", engine.env("LIST"));
  // Unknown forms and NONE change nothing; an ADD of a missing variable fails.
  EXPECT_TRUE(engine.undoEnvironment("NONE", &engine.ui));
  EXPECT_FALSE(engine.undoEnvironment("ADD\tNOSUCH\tx", &engine.ui));
  EXPECT_EQ("FAILED to erase from NOSUCH", engine.ui.lines.back());
  EXPECT_EQ(1, engine.errors());
}

// Where an empty list item names the current directory, the separator goes
// with the item.
class ColonListInstaller : public EnvInstaller {
 public:
  char getEnvironmentListSeparator() override { return ':'; }
  bool allowsEmptyListItems() override { return false; }
};

// Where the system has a PATH of its own that the store doesn't hold, a
// PATH made by an installation starts with it, and goes again with the
// product: the store ends as it was.
class DefaultPathInstaller : public ColonListInstaller {
 public:
  std::string getUndefinedListValue(const char* name) override {
    return std::string(name) == "PATH" ? "/usr/bin:/bin" : "";
  }
};

TEST(EnvironmentActionsTest, APathMadeFromNothingKeepsTheSystemsPathAndGoesWithTheProduct) {
  DefaultPathInstaller engine;
  EXPECT_TRUE(engine.set("PATH", "/opt/p/bin", 2));
  EXPECT_EQ("/usr/bin:/bin:/opt/p/bin", engine.env("PATH"));
  EXPECT_EQ("ADDNEW\tPATH\t/opt/p/bin", engine.form);
  EXPECT_TRUE(engine.undoEnvironment(engine.form.c_str(), &engine.ui));
  EXPECT_EQ("<missing>", engine.env("PATH"));

  EXPECT_TRUE(engine.set("PATH", "/opt/p/bin", 3));
  EXPECT_EQ("/opt/p/bin:/usr/bin:/bin", engine.env("PATH"));
  EXPECT_TRUE(engine.undoEnvironment(engine.form.c_str(), &engine.ui));
  EXPECT_EQ("<missing>", engine.env("PATH"));
  // Other lists have no value of the system's.
  EXPECT_TRUE(engine.set("OTHER", "/x", 2));
  EXPECT_EQ("/x", engine.env("OTHER"));
  EXPECT_EQ(0, engine.errors());
}

// PATH is expandable on a real machine, with %SystemRoot% in it: written
// back as a plain text, those entries would no longer lead anywhere.
TEST(EnvironmentActionsTest, AValueKeepsItsTypeThroughTheChangeAndItsUndo) {
  EnvInstaller engine;
  engine.put("PATH", "%SystemRoot%\\system32;%SystemRoot%", kRegExpandSz);
  EXPECT_TRUE(engine.set("PATH", "C:\\Tool\\bin", 2));
  EXPECT_EQ("%SystemRoot%\\system32;%SystemRoot%;C:\\Tool\\bin", engine.env("PATH"));
  EXPECT_EQ(kRegExpandSz, engine.typeOf("PATH"));
  EXPECT_TRUE(engine.undoEnvironment("ADD\tPATH\tC:\\Tool\\bin", &engine.ui));
  EXPECT_EQ("%SystemRoot%\\system32;%SystemRoot%;", engine.env("PATH"));
  EXPECT_EQ(kRegExpandSz, engine.typeOf("PATH"));

  // A plain value stays plain, even when the new text holds a reference;
  // its Replace and the undo of it keep the type too.
  engine.put("PLAIN", "old");
  EXPECT_TRUE(engine.set("PLAIN", "%TEMP%\\x", 1));
  EXPECT_EQ(kRegSz, engine.typeOf("PLAIN"));
  engine.put("EXPANDED", "%ProgramFiles%\\Old", kRegExpandSz);
  EXPECT_TRUE(engine.set("EXPANDED", "C:\\New", 1));
  EXPECT_EQ(kRegExpandSz, engine.typeOf("EXPANDED"));
  EXPECT_TRUE(engine.undoEnvironment(engine.form.c_str(), &engine.ui));
  EXPECT_EQ("%ProgramFiles%\\Old", engine.env("EXPANDED"));
  EXPECT_EQ(kRegExpandSz, engine.typeOf("EXPANDED"));

  // A new variable is expandable only when its text holds a '%'.
  EXPECT_TRUE(engine.set("NEW_REF", "%ProgramFiles%\\Tool", 1));
  EXPECT_EQ(kRegExpandSz, engine.typeOf("NEW_REF"));
  EXPECT_TRUE(engine.set("NEW_PLAIN", "C:\\Tool", 2));
  EXPECT_EQ(kRegSz, engine.typeOf("NEW_PLAIN"));
}

TEST(EnvironmentActionsTest, WithoutEmptyItemsTheSeparatorGoesWithTheItem) {
  ColonListInstaller engine;
  engine.put("PATH", "/usr/bin:/bin");
  EXPECT_TRUE(engine.set("PATH", "/opt/tool", 2));
  EXPECT_EQ("/usr/bin:/bin:/opt/tool", engine.env("PATH"));
  EXPECT_TRUE(engine.undoEnvironment("ADD\tPATH\t/opt/tool", &engine.ui));
  EXPECT_EQ("/usr/bin:/bin", engine.env("PATH"));
  EXPECT_TRUE(engine.set("PATH", "/opt/first", 3));
  EXPECT_EQ("/opt/first:/usr/bin:/bin", engine.env("PATH"));
  EXPECT_TRUE(engine.undoEnvironment("ADD\tPATH\t/opt/first:", &engine.ui));
  EXPECT_EQ("/usr/bin:/bin", engine.env("PATH"));
  // An empty list takes the value alone: a leading or closing ':' would
  // put the current directory on it.
  engine.put("EMPTY", "");
  EXPECT_TRUE(engine.set("EMPTY", "/opt/e", 2));
  EXPECT_EQ("/opt/e", engine.env("EMPTY"));
}

TEST(EnvironmentActionsTest, IsPathFindsADirectoryByAnotherSpelling) {
  EnvInstaller engine;
  std::string dir = here("envbin");
  ASSERT_TRUE(QUtils::makeDirectory(dir.c_str()));
  std::string other = dir + "/./";
  engine.put("PATH", "C:\\x;\"" + other + "\";D:\\y");
  size_t before = engine.ui.lines.size();
  EXPECT_TRUE(engine.set("PATH", dir.c_str(), 2, true));
  EXPECT_EQ("NONE", engine.form);
  EXPECT_EQ(before, engine.ui.lines.size());
  EXPECT_TRUE(engine.set("PATH", ("\"" + dir + "\"").c_str(), 3, true));
  EXPECT_EQ("NONE", engine.form);
  EXPECT_EQ("C:\\x;\"" + other + "\";D:\\y", engine.env("PATH"));

  // A directory that isn't there is never in the list.
  std::string missing = here("nothere");
  EXPECT_TRUE(engine.set("PATH", missing.c_str(), 2, true));
  EXPECT_EQ("ADD\tPATH\t" + missing, engine.form);
  EXPECT_FALSE(QUtils::fileExists((dir + "/test$$$$.$$$file").c_str()));
  EXPECT_TRUE(QUtils::deleteTree(dir.c_str()));
}

TEST(EnvironmentActionsTest, TooLongValuesAreLeftAlone) {
  EnvInstaller engine;
  std::string longValue(3000, 'v');
  engine.put("BIG", longValue);
  EXPECT_FALSE(engine.set("BIG", "small", 1));
  EXPECT_EQ(longValue, engine.env("BIG"));
  EXPECT_EQ("FAILED to replace BIG", engine.ui.lines.back());
  std::string hugeList(40000, 'h');
  engine.put("HUGE", hugeList);
  EXPECT_FALSE(engine.set("HUGE", "x", 2));
  EXPECT_EQ(hugeList, engine.env("HUGE"));
  // A long list is still changed whole.
  EXPECT_TRUE(engine.set("BIG", "w", 2));
  EXPECT_EQ(longValue + ";w", engine.env("BIG"));
}

TEST(EnvironmentActionsTest, AFailureEndsItsSectionAndKeepsTheAnnouncementBack) {
  EnvInstaller engine;
  engine.put("A", "1");
  engine.loadTemplate(
      "<HalvoWorksInstallation>"
      " <Environment Condition=\"0\"><Replace VarName=\"SKIPPED\">x</Replace></Environment>"
      " <Environment>"
      "  <replace VarName=\"A\">2</replace>"
      "  <Other VarName=\"B\">x</Other>"
      "  <Append VarName=\"C\" Condition=\"0\">x</Append>"
      "  <Append VarName=\"\">x</Append>"
      "  <Insert VarName=\"D\">d</Insert>"
      " </Environment>"
      "</HalvoWorksInstallation>");
  LinesConsole log;
  EXPECT_EQ(0, engine.applyEnvironmentActions(&log, &engine.ui));
  EXPECT_EQ((std::vector<std::string>{"ENV\tREPLACE\tA\t1", "ENV\tADDNEW\tD\td"}), log.lines);
  EXPECT_EQ("<missing>", engine.env("SKIPPED"));
  EXPECT_EQ(1, engine.notified);

  // Without the key every write fails: the first failure ends the section,
  // the next section still runs, and nothing is announced.
  TestInstaller bare;
  RecordingUI ui;
  bare.loadTemplate(
      "<HalvoWorksInstallation>"
      " <Environment><Replace VarName=\"E\">1</Replace><Replace VarName=\"F\">1</Replace></Environment>"
      " <Environment><Replace VarName=\"G\">1</Replace></Environment>"
      "</HalvoWorksInstallation>");
  LinesConsole none;
  EXPECT_EQ(1, bare.applyEnvironmentActions(&none, &ui));
  EXPECT_TRUE(none.lines.empty());
  EXPECT_EQ((std::vector<std::string>{"FAILED to create E", "FAILED to create G"}), ui.lines);
  EXPECT_EQ(2, bare.errorList->getCount());
}

}  // namespace
