// Tests of running the template's programs: texts and flags of each kind,
// failures, log lines and conditions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/installer.h"
#include "engine/test_support.h"
#include "foundation/text.h"

namespace {

// A path as cleanPath leaves it on this system.
std::string sys(std::string path) {
  for (char& c : path)
    if (c == '/' || c == '\\') c = QUtils::kPathSeparator;
  return path;
}

// An engine that records the programs and copies asked of the system, and
// lets each program succeed or fail as the test says.
class RunRecorder : public TestInstaller {
 public:
  struct Run {
    std::string path;
    std::string arguments;  // "<null>" for none
    int flags;
    std::string workDir;  // "<null>" for none
    InstallerUI* ui;
    int intervalMs;
  };

  bool runProgram(const char* path, const char* arguments, int flags, const char* workDir, InstallerUI* ui,
                  int intervalMs) override {
    runs.push_back({path, arguments ? arguments : "<null>", flags, workDir ? workDir : "<null>", ui, intervalMs});
    return succeed;
  }
  bool copyFile(const char* from, const char* to) override {
    copies.push_back(std::string(from) + " -> " + to);
    return true;
  }

  bool succeed = true;
  std::vector<Run> runs;
  std::vector<std::string> copies;
};

const char kTemplate[] =
    "<HalvoWorksInstallation>"
    "<AdditionalInstall>"
    "  <RunProgram Arguments='-x [NAME]' WorkDir='[DIR]\\work ' Wait='1' ErrorOutput='0'"
    "   StripExeExt='1'>[DIR]\\setup.sh</RunProgram>"
    "  <runprogram Asynchronous='[ON]' ProgressUpdate='5' AsRoot='1'>/bin/tool</runprogram>"
    "  <OpenDocument Wait='1' Asynchronous='1' WorkDir='/w' Arguments='a'>[DIR]/readme.txt</OpenDocument>"
    "  <CopyFile Dest='[DIR]//copy//x.txt'>[DIR]/x.txt</CopyFile>"
    "  <CopyFile>[DIR]/y.txt</CopyFile>"
    "  <RunProgram Condition='[ON]==0'>/bin/skipped</RunProgram>"
    "  <RunProgram Wait='1'></RunProgram>"
    "  <Launch>/bin/unknown</Launch>"
    "</AdditionalInstall>"
    "</HalvoWorksInstallation>";

}  // namespace

TEST(ProgramRuns, EachKindGetsItsTextsAndFlags) {
  RunRecorder engine;
  LinesConsole log;
  engine.logConsole = &log;
  engine.setVariable("DIR", "/opt/p");
  engine.setVariable("NAME", "tiny");
  engine.setVariable("ON", "1");
  engine.loadTemplate(kTemplate);
  RecordingUI ui;

  EXPECT_EQ(0, engine.runTagActions(&ui, "AdditionalInstall"));
  EXPECT_TRUE(log.has("Running Files for installation tag: <AdditionalInstall>"));

  ASSERT_EQ(3u, engine.runs.size());
  const RunRecorder::Run& setup = engine.runs[0];
  EXPECT_EQ(sys("/opt/p/setup.sh"), setup.path);
  EXPECT_EQ("-x tiny", setup.arguments);
  EXPECT_EQ(sys("/opt/p/work"), setup.workDir);  // separators made the system's, blanks trimmed
  EXPECT_EQ(Installer::RUN_WAIT | Installer::RUN_NO_ERROR_OUTPUT, setup.flags);
  EXPECT_EQ(&ui, setup.ui);
  EXPECT_EQ(0, setup.intervalMs);

  const RunRecorder::Run& tool = engine.runs[1];  // the kind is read without case
  EXPECT_EQ(sys("/bin/tool"), tool.path);
  EXPECT_EQ("", tool.arguments);
  EXPECT_EQ("<null>", tool.workDir);
  EXPECT_EQ(Installer::RUN_ASYNCHRONOUS | Installer::RUN_PROGRESS | Installer::RUN_AS_ROOT, tool.flags);
  EXPECT_EQ(50, tool.intervalMs);

  // A document is opened by the shell: no arguments, no directory, no front
  // end, whatever the element says.
  const RunRecorder::Run& document = engine.runs[2];
  EXPECT_EQ(sys("/opt/p/readme.txt"), document.path);
  EXPECT_EQ("<null>", document.arguments);
  EXPECT_EQ("<null>", document.workDir);
  EXPECT_EQ(Installer::RUN_DOCUMENT | Installer::RUN_WAIT | Installer::RUN_ASYNCHRONOUS, document.flags);
  EXPECT_EQ(nullptr, document.ui);
  EXPECT_EQ(100, document.intervalMs);

  ASSERT_EQ(1u, engine.copies.size());
  EXPECT_EQ(sys("/opt/p/x.txt") + " -> /opt/p/copy/x.txt", engine.copies[0]);
  EXPECT_TRUE(log.has("ERROR: Copy file without Destination attribute!"));
  EXPECT_EQ(std::string::npos, log.all.find("ERROR: Program"));
}

TEST(ProgramRuns, FailuresAreLoggedAndNotPassedOn) {
  RunRecorder engine;
  LinesConsole log;
  engine.logConsole = &log;
  engine.succeed = false;
  engine.loadTemplate(
      "<HalvoWorksInstallation><PostInstall>"
      "<RunProgram Arguments='--quiet --all'>/opt/missing</RunProgram>"
      "<RunProgram>/opt/bare</RunProgram>"
      "<OpenDocument>/opt/notes.txt</OpenDocument>"
      "</PostInstall></HalvoWorksInstallation>");

  EXPECT_EQ(0, engine.runTagActions(nullptr, "PostInstall"));
  EXPECT_EQ(3u, engine.runs.size());
  EXPECT_TRUE(log.has("ERROR: Program was not started : \"" + sys("/opt/missing") + " --quiet --all\""));
  EXPECT_TRUE(log.has("ERROR: Program was not started : \"" + sys("/opt/bare") + " \""));
  EXPECT_TRUE(log.has("ERROR: Document was not opened : \"" + sys("/opt/notes.txt") + "\""));
  EXPECT_EQ(nullptr, engine.runs[0].ui);  // a trigger runs without a front end
}

TEST(ProgramRuns, LogLinesConditionsAndFlushes) {
  RunRecorder engine;
  engine.setVariable("ON", "0");
  engine.loadTemplate(
      "<HalvoWorksInstallation>"
      "<Tag><RunProgram Log='Starting [ON]'>/a</RunProgram>"
      "<RunProgram Log='Not shown' Condition='[ON]==1'>/b</RunProgram>"
      "<Comment Log='Unknown kinds still log'/>"
      "<CopyFile Log='Copying'>/c</CopyFile></Tag>"
      "<Other><RunProgram>/d</RunProgram></Other>"
      "<Tag><RunProgram>/e</RunProgram></Tag>"
      "</HalvoWorksInstallation>");
  RecordingUI ui;

  EXPECT_EQ(0, engine.runTagActions(&ui, "Tag"));
  // Each element of the tag runs, in document order; other tags don't.
  ASSERT_EQ(2u, engine.runs.size());
  EXPECT_EQ(sys("/a"), engine.runs[0].path);
  EXPECT_EQ(sys("/e"), engine.runs[1].path);
  // Log texts go out as they stand, flushed at every 32nd child; the file
  // list is flushed after each element.
  std::vector<std::string> expected = {"addFileLine Starting [ON] flush", "addFileLine Unknown kinds still log",
                                       "addFileLine Copying", "addFileLine <null> flush", "addFileLine <null> flush"};
  EXPECT_EQ(expected, ui.calls);

  // Without a front end nothing is shown, and the work is the same.
  engine.runs.clear();
  EXPECT_EQ(0, engine.runTagActions(nullptr, "Tag"));
  EXPECT_EQ(2u, engine.runs.size());
}

TEST(ProgramRuns, NullAndMissingTags) {
  RunRecorder engine;
  LinesConsole log;
  engine.logConsole = &log;
  engine.loadTemplate("<HalvoWorksInstallation><PostInstall><RunProgram>/a</RunProgram></PostInstall>"
                      "</HalvoWorksInstallation>");
  RecordingUI ui;
  EXPECT_EQ(-1, engine.runTagActions(&ui, nullptr));
  EXPECT_EQ(0, engine.runTagActions(&ui, "PreUninstall"));
  EXPECT_EQ(0, engine.runTagActions(&ui, "postinstall"));  // tags are matched with case
  EXPECT_TRUE(engine.runs.empty());
  EXPECT_TRUE(ui.calls.empty());
}
