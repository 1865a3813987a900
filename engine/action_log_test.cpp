// Tests of the action log: written under a temporary name, then placed and
// appended; its variable block read back and rewritten; its lines read.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "foundation/errors.h"
#include "foundation/files.h"

#ifdef _WIN32
#include <direct.h>
#else
#include <unistd.h>
#endif

namespace {

// An engine with temporary names beside the test's files, and a template
// that puts the log there and keeps SECRET out of it.
class LogInstaller : public TestInstaller {
 public:
  LogInstaller() {
    std::string text = "<HalvoWorksInstallation><Installation><Uninstall><InstallLogFile>" + here("install.log") +
                       "</InstallLogFile><InstallBackupFile>[ROOT]/backup.bin</InstallBackupFile>"
                       "<UninstallXmlFile>[ROOT]/install.xml</UninstallXmlFile></Uninstall></Installation>"
                       "<InstallerExcludeVariables><V ExcludeFrom=\"log\">SECRET</V><V ExcludeFrom=\"config\">KEPT</V>"
                       "</InstallerExcludeVariables></HalvoWorksInstallation>";
    loadTemplate(text.c_str());
    readExcludes();
  }
  int getTempFileName(char* buffer, int size) override {
    if (static_cast<int>(tempNames.size()) >= tempNameLimit) return -1;
    tempNames.push_back(here("tmp" + std::to_string(tempNames.size())));
    QUtils::copyText(buffer, tempNames.back().c_str(), size);
    return 0;
  }
  std::vector<std::string> tempNames;
  int tempNameLimit = 100;
};

// What readLogVariables threw for the log text, or "" if it didn't throw.
std::string readError(Installer& reader, const std::string& text, int* result = nullptr) {
  writeFile(here("read.log"), text);
  FILE* f = QUtils::openFile(here("read.log").c_str(), "rb");
  std::string message;
  try {
    int r = reader.readLogVariables(f);
    if (result) *result = r;
  } catch (const QUtils::GenericError& e) {
    message = e.getMessage();
  }
  std::fclose(f);
  QUtils::deleteFile(here("read.log").c_str());
  return message;
}

TEST(ActionLogTest, TheLogIsWrittenOnATemporaryNameThenPlacedAndAppended) {
  LogInstaller engine;
  engine.setVariable("ROOT", "/opt/demo");
  engine.setVariable("SECRET", "hidden");
  engine.setVariable("KEPT", "in the log");
  engine.setVariable("EMPTY", "");
  writeFile(here("install.log"), "placeholder");

  char tempLog[QUtils::kMaxPath], tempBackup[QUtils::kMaxPath];
  ASSERT_EQ(0, engine.openActionLog(tempLog, sizeof tempLog, tempBackup, sizeof tempBackup));
  EXPECT_NE(std::string(tempLog), std::string(tempBackup));
  engine.logDirAction(0, "/opt/demo/");  // nothing was created: no line
  engine.logDirAction(2, "/opt/demo/bin/");
  engine.logFileAction(Installer::kLogOver, "/opt/demo/bin/tool");
  engine.logAction(Installer::kLogEnv, "CREATE\tDEMO_HOME");
  engine.logFirewallAction(Installer::kLogPort, "8080");
  engine.logRegKeyAction(1, "HKEY_CURRENT_USER", "Software\\Demo");
  engine.logRegValAction("HKEY_CURRENT_USER", "Software\\Demo", "Path");
  EXPECT_EQ("placeholder", readFile(here("install.log")));
  ASSERT_EQ(0, engine.placeActionLog(tempLog));
  EXPECT_FALSE(QUtils::fileExists(tempLog));

  // A group of actions after the placing appends and closes again.
  int opened = engine.beginActionLogGroup();
  EXPECT_EQ(1, opened);
  engine.logAction(Installer::kLogShortcut, "CREATE\t/home/u/Demo.desktop");
  engine.endActionLogGroup(opened);
  EXPECT_FALSE(engine.actionLogWriter.isOpen());
  EXPECT_EQ(
      "/opt/demo/install.xml\r\n/opt/demo/backup.bin\r\n"
      "NUMVARS\t3\r\nVAR\tROOT\t/opt/demo\r\nVAR\tKEPT\tin the log\r\nVAR\tEMPTY\t\r\n"
      "DIR\t2\t/opt/demo/bin/\r\nFILE\tOVER\t/opt/demo/bin/tool\r\nENV\tCREATE\tDEMO_HOME\r\n"
      "FIREWALL\tPORT\t8080\r\nREGKEY\t1\tHKEY_CURRENT_USER\tSoftware\\Demo\r\n"
      "REGVAL\tHKEY_CURRENT_USER\tSoftware\\Demo\tPath\r\nSHORTCUT\tCREATE\t/home/u/Demo.desktop\r\n",
      readFile(here("install.log")));

  // Without a second temporary name nothing is left open or behind.
  engine.tempNameLimit = static_cast<int>(engine.tempNames.size()) + 1;
  EXPECT_EQ(-1, engine.openActionLog(tempLog, sizeof tempLog, tempBackup, sizeof tempBackup));
  EXPECT_FALSE(engine.actionLogWriter.isOpen());
  EXPECT_FALSE(QUtils::fileExists(engine.tempNames.back().c_str()));
  QUtils::deleteFile(here("install.log").c_str());
}

TEST(ActionLogTest, VariablesReadBackAsTheBlockHoldsThem) {
  const std::string header = "a.xml\r\nb.bin\r\n";
  TestInstaller reader;
  reader.setVariable("EMPTY", "before");
  int result = -1;
  EXPECT_EQ("", readError(reader,
                          header + "NUMVARS\t4\r\nVAR\tROOT\t/opt/demo dir  \r\nVAR\tEMPTY\t\r\n"
                                   "VAR\tTABBED\tleft\tright\r\nVAR\tLAST\tx\nFILE\tCREATE\t/a\r\n",
                          &result));
  EXPECT_EQ(1, result);  // EMPTY lost its TAB with the line's end and didn't scan
  EXPECT_EQ("/opt/demo dir", reader.value("ROOT"));
  EXPECT_EQ("before", reader.value("EMPTY"));
  EXPECT_EQ("left", reader.value("TABBED"));
  EXPECT_EQ("x", reader.value("LAST"));

  EXPECT_EQ("ERROR: No variable number found in the provided log file!", readError(reader, header));
  // NUMVARS anywhere in a line, a header path too, is taken for the count.
  EXPECT_EQ("ERROR: Error parsing the number of variables in log file!",
            readError(reader, "/NUMVARS/a.xml\r\nNUMVARS\t1\r\nVAR\tA\t1\r\n"));
  EXPECT_EQ("ERROR: Encountered EOF before expected number of variables (3)!",
            readError(reader, header + "NUMVARS\t3\r\nVAR\tA\t1\r\nFILE\tCREATE\t/a\r\n"));
  EXPECT_EQ("1", reader.value("A"));

  // One value out of a log that isn't open, cut to the buffer.
  writeFile(here("other.log"), header + "NUMVARS\t2\r\nVAR\tROOT\t/opt/demo\r\nVAR\tB\tb\r\n");
  char value[8];
  EXPECT_EQ(1, reader.readLogVariable(here("other.log").c_str(), "ROOT", value, sizeof value));
  EXPECT_STREQ("/opt/de", value);
  EXPECT_EQ(0, reader.readLogVariable(here("other.log").c_str(), "root", value, sizeof value));
  EXPECT_EQ(0, reader.readLogVariable(here("none.log").c_str(), "ROOT", value, sizeof value));

  // An uninstallation reads the log it was opened on; a bad block is logged.
  LinesConsole log;
  TestInstaller uninstaller;
  uninstaller.logConsole = &log;
  ASSERT_EQ(0, uninstaller.openPackage(here("other.log").c_str(), 0, 1));
  EXPECT_EQ(0, uninstaller.readActionLogVariables());
  EXPECT_EQ("b", uninstaller.value("B"));
  uninstaller.cleanup();
  writeFile(here("other.log"), header);
  ASSERT_EQ(0, uninstaller.openPackage(here("other.log").c_str(), 0, 1));
  EXPECT_EQ(-1, uninstaller.readActionLogVariables());
  EXPECT_TRUE(log.has("ERROR: No variable number found in the provided log file!"));
  uninstaller.cleanup();
  QUtils::deleteFile(here("other.log").c_str());
}

TEST(ActionLogTest, TheRewriteReplacesOnlyTheVariableBlock) {
  LogInstaller engine;
  const std::string actions = "DIR\t1\t/opt/demo/\r\nFILE\tOVER\t/opt/demo/a\r\n";
  writeFile(here("install.log"), "x.xml\r\nb.bin\r\nNUMVARS\t2\r\nVAR\tROOT\t/old\r\nVAR\tGONE\tx\r\n" + actions);
  engine.setVariable("ROOT", "/opt/demo");
  engine.setVariable("SECRET", "hidden");
  engine.setVariable("NEW", "final value");
  engine.rewriteVariableBlock();
  EXPECT_EQ("x.xml\r\nb.bin\r\nNUMVARS\t2\r\nVAR\tROOT\t/opt/demo\r\nVAR\tNEW\tfinal value\r\n" + actions,
            readFile(here("install.log")));
  EXPECT_FALSE(QUtils::fileExists(here("templog.log").c_str()));

  // A log that ends with its block can't be rewritten, and stays as it is.
  const std::string shortLog = "a.xml\r\nb.bin\r\nNUMVARS\t1\r\nVAR\tROOT\t/old\r\n";
  writeFile(here("install.log"), shortLog);
  EXPECT_THROW(engine.rewriteVariableBlock(), QUtils::InstallerError);
  EXPECT_EQ(shortLog, readFile(here("install.log")));
  EXPECT_FALSE(QUtils::fileExists(here("templog.log").c_str()));
  QUtils::deleteFile(here("install.log").c_str());
}

TEST(ActionLogTest, ReadersFindTheActionLinesAndTheirFields) {
  char line[Installer::kLogLineSize];
  writeFile(here("read.log"), "a.xml\r\nb.bin\r\nNUMVARS\t1\r\nVAR\tA\t1\r\nDIR\t2\t\t/opt/x/\r\n");
  FILE* f = QUtils::openFile(here("read.log").c_str(), "rb");
  EXPECT_TRUE(Installer::seekActionLines(f));
  ASSERT_TRUE(Installer::readLogLine(f, line, sizeof line));
  Installer::stripLogLine(line);
  EXPECT_TRUE(Installer::hasLogTag(line, Installer::kLogDir));
  // A run of TABs separates like one.
  EXPECT_STREQ("/opt/x/", Installer::nextLogField(Installer::nextLogField(line)));
  std::fclose(f);

  // A block cut short: every line may be an action. An overlong line is
  // cut, and its rest is no line of its own.
  writeFile(here("read.log"), std::string(20, 'x') + "\r\nNUMVARS\t5\r\nVAR\tA\t1\r\n");
  f = QUtils::openFile(here("read.log").c_str(), "rb");
  EXPECT_FALSE(Installer::seekActionLines(f));
  ASSERT_TRUE(Installer::readLogLine(f, line, 10));
  EXPECT_EQ(std::string(9, 'x'), line);
  ASSERT_TRUE(Installer::readLogLine(f, line, 10));
  EXPECT_STREQ("NUMVARS\t5", line);
  std::fclose(f);

  // A zero byte inside a line (a block a crash left) ends its text, but the
  // next line is still a line of its own.
  writeFile(here("read.log"), std::string("FILE\tCREATE\t/a") + '\0' + "b\r\nFILE\tCREATE\t/c\r\n");
  f = QUtils::openFile(here("read.log").c_str(), "rb");
  ASSERT_TRUE(Installer::readLogLine(f, line, sizeof line));
  EXPECT_STREQ("FILE\tCREATE\t/a", line);
  ASSERT_TRUE(Installer::readLogLine(f, line, sizeof line));
  EXPECT_STREQ("FILE\tCREATE\t/c\r\n", line);
  std::fclose(f);
  QUtils::deleteFile(here("read.log").c_str());
}

}  // namespace
