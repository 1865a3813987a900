// qlux-pack --check, run for real on a correct template and on copies of it
// with one mistake each: every message must name the file, line and column
// of the mistake, and give the hint that fixes it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "package/test_writer.h"
#include "tests/package/run_command.h"

namespace {

namespace fs = std::filesystem;

const char kTemplate[] = R"xml(<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Acme Editor</Fullname>
    <MajorVersion>2</MajorVersion><MinorVersion>1</MinorVersion><MinestVersion>0</MinestVersion>
    <Website>https://acme.example.org</Website>
  </ProductDesc>
  <Dialogs>
    <Welcome>
      <Text x="10" y="10" w="-10" h="40">Welcome.</Text>
      <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom">&amp;Next</Button>
      <Button Name="Cancel" x="20" y="50" VAlign="bottom">&amp;Cancel</Button>
    </Welcome>
    <Options>
      <Field Type="Directory" Label="Folder" ValidationVariable="DIR_OK" x="10" y="10">INSTALLDIR</Field>
      <Text x="10" y="60" Condition="[DIR_OK]==0">Choose another folder.</Text>
      <Button Name="Next" x="100" y="50" HAlign="right" VAlign="bottom" Disableable="1">&amp;Next</Button>
      <Trigger EvaluateOn="End" Variable="DATADIR" Value="[INSTALLDIR]/data"/>
    </Options>
    <CopyProgress Special="AutoNext">
      <Progress Name="Overall" x="10" y="40" w="-10" h="20"/>
      <List Name="Destfilelist" x="10" y="70" w="-10" h="-80"/>
    </CopyProgress>
    <RegisterApplication Special="AutoNext" Condition="[INSTALL_ERROR]==0"/>
    <Finish Special="Finish" Condition="[INSTALL_ERROR]==0"><Text x="10" y="10">Done.</Text></Finish>
    <BadFinish Special="Finish"><List Name="Destfilelist" x="10" y="10" w="-10" h="-10"/></BadFinish>
  </Dialogs>
  <UninstallDialogs>
    <CopyProgress Special="AutoNext"><List Name="Destfilelist" x="10" y="10" w="-10" h="-10"/></CopyProgress>
    <UnregisterApplication Special="AutoNext"/>
    <Finish Special="Finish"/>
  </UninstallDialogs>
  <Installation>
    <Uninstall Auto="1"/>
    <InstallerControlVariables>
      <InstallError>INSTALL_ERROR</InstallError>
    </InstallerControlVariables>
    <DefValues>
      <Value Name="PROGRAMFILES" DataType="registry" UseOld="1" RegPlace="HKEY_LOCAL_MACHINE"
             RegKey="SOFTWARE/Microsoft/Windows/CurrentVersion">ProgramFilesDir</Value>
      <Value Name="INSTALLDIR" DataType="value" UseOld="1">$PROGRAMFILES/Acme Editor</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Program">
      <FN Dest="[INSTALLDIR]/bin" Executable="1">bin/acme</FN>
      <FN Dest="[INSTALLDIR]" Recurse="1">doc</FN>
    </FileSet>
    <Environment>
      <Append VarName="PATH" IsPath="1">[INSTALLDIR]/bin</Append>
    </Environment>
    <Shortcuts>
      <Add Type="File" Dest="[INSTALLDIR]/shortcuts" Target="[INSTALLDIR]/bin/acme">Acme.desktop</Add>
    </Shortcuts>
    <AdditionalInstall>
      <RunProgram Wait="1">[INSTALLDIR]/bin/acme</RunProgram>
      <Registry>
        <AddValue Place="HKEY_LOCAL_MACHINE" Path="Software/Acme" Value="Home" Expand="1">[INSTALLDIR]</AddValue>
      </Registry>
    </AdditionalInstall>
  </Installation>
</HalvoWorksInstallation>
)xml";

// A template with its files in a folder of the test's own.
class TemplateCheckTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "qlux_check_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
    root = pattern;
    fs::create_directories(root + "/bin");
    fs::create_directories(root + "/doc");
    ASSERT_TRUE(testwriter::writeFile(root + "/bin/acme", "#!/bin/sh\n"));
    ASSERT_TRUE(testwriter::writeFile(root + "/doc/readme.txt", "Read me.\n"));
  }
  void TearDown() override { fs::remove_all(root); }

  // Writes the template with each pair's first text replaced by its
  // second, and checks it.
  CommandResult check(const std::vector<std::pair<std::string, std::string>>& changes, const std::string& options = "") {
    std::string text = kTemplate;
    for (const auto& change : changes) {
      size_t at = text.find(change.first);
      EXPECT_NE(std::string::npos, at) << change.first;
      if (at != std::string::npos) text.replace(at, change.first.size(), change.second);
    }
    EXPECT_TRUE(testwriter::writeFile(root + "/install.xml", text));
    return run(std::string(QLUX_PACK) + " --check --template " + root + "/install.xml " + options);
  }

  std::string root;
};

TEST_F(TemplateCheckTest, ACorrectTemplateGivesNoOutput) {
  CommandResult result = check({});
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("", result.output);
  // --check writes nothing: the folder holds what it held.
  int entries = 0;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) entries++;
  EXPECT_EQ(5, entries);
}

struct Mistake {
  const char* what;
  std::vector<std::pair<std::string, std::string>> changes;
  const char* message;  // "LINE:COLUMN: error: ..." or "...: warning: ..."
  const char* hint;     // "LINE:COLUMN: hint: ...", or "" for none
};

// Each mistake, with the message and the hint it must give. The places are
// those of the template above after the change.
const Mistake kMistakes[] = {
    {"a misspelt element",
     {{"<FileSet Name", "<FileSett Name"}, {"</FileSet>", "</FileSett>"}},
     "43:5: error: unknown element 'FileSett' in 'Installation'",
     "43:5: hint: did you mean 'FileSet'?"},
    {"a misspelt section",
     {{"<Environment>", "<Enviroment>"}, {"</Environment>", "</Enviroment>"}},
     "47:5: error: unknown element 'Enviroment' in 'Installation'",
     "47:5: hint: did you mean 'Environment'?"},
    {"an element name in another case",
     {{"<FN Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/acme</FN>",
       "<Fn Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/acme</Fn>"}},
     "44:7: error: unknown element 'Fn' in 'FileSet'",
     "44:7: hint: element names are compared with case: write 'FN'"},
    {"a short element name",
     {{"<Add Type=\"File\"", "<Ad Type=\"File\""}, {"Acme.desktop</Add>", "Acme.desktop</Ad>"}},
     "51:7: error: unknown element 'Ad' in 'Shortcuts'",
     "51:7: hint: did you mean 'Add'?"},
    {"an element in the wrong place",
     {{"    <Environment>", "    <FN Dest=\"[INSTALLDIR]\">bin/acme</FN>\n    <Environment>"}},
     "47:5: error: 'FN' is not read in 'Installation'",
     "47:5: hint: it belongs in FileSet"},
    {"an unknown element on a page",
     {{"<Text x=\"10\" y=\"60\"", "<Txt x=\"10\" y=\"60\""}, {"folder.</Text>", "folder.</Txt>"}},
     "15:7: error: unknown element 'Txt' in the page Options",
     "15:7: hint: did you mean 'Text'?"},
    {"a misspelt Dest", {{"<FN Dest=\"[INSTALLDIR]/bin\"", "<FN Dset=\"[INSTALLDIR]/bin\""}},
     "44:11: error: unknown attribute 'Dset' of FN",
     "44:11: hint: did you mean 'Dest'?"},
    {"a misspelt Condition", {{"Condition=\"[DIR_OK]==0\"", "Condtion=\"[DIR_OK]==0\""}},
     "15:27: error: unknown attribute 'Condtion' of Text",
     "15:27: hint: did you mean 'Condition'?"},
    {"a misspelt VarName", {{"VarName=\"PATH\"", "VarNam=\"PATH\""}},
     "48:15: error: unknown attribute 'VarNam' of Append",
     "48:15: hint: did you mean 'VarName'?"},
    {"a required attribute missing", {{"VarName=\"PATH\"", "VarNam=\"PATH\""}},
     "48:7: error: Append without VarName is passed over",
     "48:7: hint: give VarName=\"...\""},
    {"an attribute of another element",
     {{"Target=\"[INSTALLDIR]/bin/acme\">Acme", "File=\"[INSTALLDIR]/bin/acme\">Acme"}},
     "51:54: error: unknown attribute 'File' of Add",
     "51:54: hint: it is passed over"},
    {"an unknown variable in a Dest", {{"<FN Dest=\"[INSTALLDIR]/bin\"", "<FN Dest=\"[INSTALDIR]/bin\""}},
     "44:17: error: unknown variable [INSTALDIR]: the text keeps [INSTALDIR]",
     "44:17: hint: did you mean [INSTALLDIR]?"},
    {"&& for AND", {{"Condition=\"[DIR_OK]==0\"", "Condition=\"[DIR_OK]==0 &amp;&amp; [DIR_OK]==1\""}},
     "15:50: error: '&&' is no operator",
     "15:50: hint: AND is written ','"},
    {"and for AND",
     {{"<RegisterApplication Special=\"AutoNext\" Condition=\"[INSTALL_ERROR]==0\"",
       "<RegisterApplication Special=\"AutoNext\" Condition=\"[INSTALL_ERROR]==0 and [DIR_OK]==1\""}},
     "23:75: error: 'and' is no operator",
     "23:75: hint: AND is written ','"},
    {"a single =", {{"Condition=\"[DIR_OK]==0\"", "Condition=\"[DIR_OK]=0\""}},
     "15:46: error: a single '=' is no comparison",
     "15:46: hint: compare with '=='"},
    {"a text without quotes", {{"Condition=\"[DIR_OK]==0\"", "Condition=\"[DIR_OK]==yes\""}},
     "15:48: error: a text must be in quotes",
     "15:48: hint: write 'yes'"},
    {"NOT", {{"Condition=\"[DIR_OK]==0\"", "Condition=\"![DIR_OK]\""}},
     "15:38: error: there is no NOT",
     "15:38: hint: compare the group with 0: (CONDITION)==0"},
    {"an empty reference", {{"Condition=\"[DIR_OK]==0\"", "Condition=\"[]==0\""}},
     "15:38: error: an empty reference []",
     "15:38: hint: write [NAME]"},
    {"an uninstaller that nothing installs",
     {{"<Uninstall Auto=\"1\"/>",
       "<Uninstall>\n      <InstallLogFile>[INSTALLDIR]/install.log</InstallLogFile>\n"
       "      <UninstallCmd>[INSTALLDIR]/uninstall</UninstallCmd>\n    </Uninstall>"}},
     "35:21: error: no FN installs the uninstaller at [INSTALLDIR]/uninstall: the registered command would find no "
     "program",
     "35:21: hint: install the installer program there (Executable, and StripExeExt for a .exe on Linux), or use "
     "<Uninstall Auto=\"1\"/>"},
    {"a log that nothing removes",
     {{"<Uninstall Auto=\"1\"/>",
       "<Uninstall>\n      <InstallLogFile>[INSTALLDIR]/install.log</InstallLogFile>\n"
       "      <UninstallCmd>[INSTALLDIR]/uninstall</UninstallCmd>\n    </Uninstall>"}},
     "34:23: error: nothing installs the action log's place [INSTALLDIR]/install.log: uninstalling would leave the "
     "log behind",
     "34:23: hint: list a placeholder for it in a FileSet, or use <Uninstall Auto=\"1\"/>"},
    {"the file page renamed",
     {{"<CopyProgress Special=\"AutoNext\">\n      <Progress", "<CopyProgres Special=\"AutoNext\">\n      <Progress"},
      {"</CopyProgress>\n    <RegisterApplication", "</CopyProgres>\n    <RegisterApplication"}},
     "19:5: error: the template installs files, but no page of Dialogs is named CopyProgress: nothing would be "
     "installed",
     "19:5: hint: did you mean CopyProgress? The page CopyProgres does no work"},
    {"a relative Dest", {{"<FN Dest=\"[INSTALLDIR]/bin\"", "<FN Dest=\"bin\""}},
     "44:17: error: Dest 'bin' is not an absolute folder: it would be taken from the folder the installer runs in",
     "44:17: hint: start it with a variable that holds a folder, such as [INSTALLDIR]"},
    {"a Dest on a variable that holds no folder", {{"<FN Dest=\"[INSTALLDIR]/bin\"", "<FN Dest=\"[INSTALL_ERROR]/bin\""}},
     "44:17: error: Dest starts with [INSTALL_ERROR], which holds no absolute folder",
     "44:17: hint: start it with a variable that holds a folder, such as [INSTALLDIR]"},
    {"a shortcut type in another case", {{"Type=\"File\"", "Type=\"file\""}},
     "51:18: error: 'file' is not a Type the installer knows",
     "51:18: hint: write 'File': it is compared with case"},
    {"an unknown registry place", {{"<AddValue Place=\"HKEY_LOCAL_MACHINE\"", "<AddValue Place=\"HKLM\""}},
     "56:26: error: 'HKLM' is not a Place the installer knows",
     "56:26: hint: use one of HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS"},
    {"an unclosed FN",
     {{"<FN Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/acme</FN>",
       "<FN Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/acme"}},
     "46:7: error: the template is not well-formed XML: mismatched tag",
     "46:7: hint: the <FN> of line 44, column 7 is not closed"},
    {"an upgrade policy it doesn't know", {{"  <ProductDesc>", "  <ProductDesc IfSameInstalled=\"Ask\">"}},
     "2:33: error: 'Ask' is not an IfSameInstalled the installer knows",
     "2:33: hint: use one of Reinstall, Skip"},
    {"a misspelt Special word", {{"<CopyProgress Special=\"AutoNext\">\n", "<CopyProgress Special=\"AutoNxt\">\n"}},
     "19:28: error: 'AutoNxt' is not a word of Special",
     "19:28: hint: did you mean 'AutoNext'?"},
    {"DefValues out of order",
     {{"      <Value Name=\"PROGRAMFILES\" DataType=\"registry\" UseOld=\"1\" RegPlace=\"HKEY_LOCAL_MACHINE\"\n"
       "             RegKey=\"SOFTWARE/Microsoft/Windows/CurrentVersion\">ProgramFilesDir</Value>\n",
       ""},
      {"$PROGRAMFILES/Acme Editor</Value>\n",
       "$PROGRAMFILES/Acme Editor</Value>\n"
       "      <Value Name=\"PROGRAMFILES\" DataType=\"registry\" UseOld=\"1\" RegPlace=\"HKEY_LOCAL_MACHINE\"\n"
       "             RegKey=\"SOFTWARE/Microsoft/Windows/CurrentVersion\">ProgramFilesDir</Value>\n"}},
     "38:60: error: $PROGRAMFILES is not defined yet here, so this entry is passed over",
     "38:60: hint: move the entry for PROGRAMFILES above this one"},
    {"a $ without a name", {{"$PROGRAMFILES/Acme Editor", "$PROGRAMFILES/Acme $ Editor"}},
     "40:79: error: a '$' without a name behind it makes the entry fail",
     "40:79: hint: a $ in a value always names a variable"},
    {"a control variable without a default", {{"      <Value Name=\"INSTALL_ERROR\" DataType=\"value\">0</Value>\n", ""}},
     "23:56: error: INSTALL_ERROR has no default: the engine sets it only when it has something to say, and until "
     "then a condition on it counts as true",
     "23:56: hint: add <Value Name=\"INSTALL_ERROR\" DataType=\"value\">0</Value> to DefValues"},
    {"a licence that isn't packed",
     {{"<Text x=\"10\" y=\"10\" w=\"-10\" h=\"40\">Welcome.</Text>",
       "<RichEditText x=\"10\" y=\"10\" w=\"-10\" h=\"40\">licence</RichEditText>"}},
     "9:50: error: no file is packed under the key 'licence': the wizard shows nothing here",
     "9:50: hint: add <FN Alias=\"licence\">path/of/the/file</FN> to a FileSet"},
    {"a missing source file", {{"bin/acme</FN>", "bin/acme2</FN>"}},
     "44:50: error: the file bin/acme2 is not in the source folder ",
     "44:50: hint: give OkIfMissing=\"1\" if the file may be missing"},
    {"a folder without Recurse", {{" Recurse=\"1\">doc", " >doc"}},
     "45:32: error: doc is a folder",
     "45:32: hint: give Recurse=\"1\" to take every file below it, or name the files with a wildcard"},
    {"a wildcard that takes nothing", {{" Recurse=\"1\">doc", ">doc/*.pdf"}},
     "45:31: error: doc/*.pdf takes no file from the source folder", ""},
    {"a RunningApps list without its name",
     {{"    <CopyProgress Special=\"AutoNext\">\n      <Progress",
       "    <RunningApps><List x=\"10\" y=\"10\" w=\"-10\" h=\"-10\"/><TestApp>acme</TestApp></RunningApps>\n"
       "    <CopyProgress Special=\"AutoNext\">\n      <Progress"}},
     "19:18: error: a List on the RunningApps page shows the running programs only when it is named Destfilelist",
     "19:18: hint: give it Name=\"Destfilelist\""},
    {"a TestApp outside RunningApps", {{"<Text x=\"10\" y=\"60\"", "<TestApp>acme</TestApp><Text x=\"10\" y=\"60\""}},
     "15:7: error: TestApp is read only on a page named RunningApps",
     "15:7: hint: move it to the RunningApps page"},
    {"a word for a number", {{"Disableable=\"1\">", "Disableable=\"1\" DialogShift=\"next\">"}},
     "16:102: error: DialogShift takes a whole number, not 'next'", ""},
    {"a colour by name", {{"<Text x=\"10\" y=\"60\"", "<Text BkgColour=\"red\" x=\"10\" y=\"60\""}},
     "15:24: error: 'red' is not a colour",
     "15:24: hint: write 0xRRGGBB, or Group:NAME"},
    {"an assignment without quotes", {{"VAlign=\"bottom\" Disableable=\"1\">", "VAlign=\"bottom\" Disableable=\"1\" Action=\"[OK]=1\">"}},
     "16:97: error: an assignment's value stands between two single quotes",
     "16:97: hint: write [NAME]='value'"},
    {"a trigger's section that isn't there",
     {{"Variable=\"DATADIR\" Value=\"[INSTALLDIR]/data\"", "Type=\"RunActions\" Value=\"Setup\""}},
     "17:58: error: the template has no section Setup for the trigger to run", ""},
    {"UninstallWildcards before Uninstall",
     {{"<Uninstall Auto=\"1\"/>",
       "<UninstallWildcards><Files Dest=\"[INSTALLDIR]\">*.log</Files></UninstallWildcards>\n    <Uninstall Auto=\"1\"/>"}},
     "33:5: error: UninstallWildcards stands before Uninstall, and the engine would take it for Uninstall",
     "33:5: hint: move Uninstall above it"},
    {"a registration without a web site", {{"    <Website>https://acme.example.org</Website>\n", ""}},
     "22:5: error: RegisterApplication makes no entry without the product's Website",
     "22:5: hint: give <Website> in ProductDesc"},
    {"a task list on a page without steps", {{"<Options>", "<Options><TaskList/>"}},
     "13:14: error: TaskList is read only in a page with Special=\"HasSubDialogs\"",
     "13:14: hint: add HasSubDialogs to the page's Special"},
    // Warnings: the template works, with a trap.
    {"Executable=\"0\"", {{"Executable=\"1\">bin/acme", "Executable=\"0\">bin/acme"}},
     "44:47: warning: Executable=\"0\" counts as set: the value isn't looked at",
     "44:47: hint: leave Executable out to switch it off"},
    {"UseOld=\"no\"", {{"DataType=\"value\" UseOld=\"1\">$PROGRAMFILES", "DataType=\"value\" UseOld=\"no\">$PROGRAMFILES"}},
     "40:57: warning: UseOld=\"no\" counts as set: only a value that starts with 0 switches it off",
     "40:57: hint: write 0"},
    {"a Back button behind the file stage",
     {{"<Finish Special=\"Finish\" Condition=\"[INSTALL_ERROR]==0\"><Text",
       "<Finish Special=\"Finish\" Condition=\"[INSTALL_ERROR]==0\"><Button Name=\"Back\" x=\"190\" y=\"50\">&amp;Back"
       "</Button><Text"}},
     "24:61: warning: this Back button stands on Finish, behind the page CopyProgress: the window disables it once "
     "the files are in, since going back would install them again",
     "24:61: hint: leave it out"},
    {"an error page without the error list",
     {{"<BadFinish Special=\"Finish\"><List Name=\"Destfilelist\" x=\"10\" y=\"10\" w=\"-10\" h=\"-10\"/></BadFinish>",
       "<BadFinish Special=\"Finish\"><Text x=\"10\" y=\"10\">Failed.</Text></BadFinish>"}},
     "25:5: warning: the error page BadFinish doesn't show the list of errors",
     "25:5: hint: add <List Name=\"Destfilelist\" .../>: the page lists the errors in it"},
    {"a reference in a text that isn't expanded", {{"<Fullname>Acme Editor</Fullname>", "<Fullname>Acme [DIR_OK]</Fullname>"}},
     "3:20: warning: this text is shown as it stands: [DIR_OK] is not replaced", ""},
    {"an unknown variable in a page's text", {{"Welcome.</Text>", "Welcome to [INSTALDIR].</Text>"}},
     "9:53: error: unknown variable [INSTALDIR]: the text keeps [INSTALDIR]",
     "9:53: hint: did you mean [INSTALLDIR]?"},
};

TEST_F(TemplateCheckTest, EachMistakeIsNamedWithItsPlaceAndHint) {
  ASSERT_GE(sizeof kMistakes / sizeof kMistakes[0], 25u);
  for (const Mistake& mistake : kMistakes) {
    SCOPED_TRACE(mistake.what);
    CommandResult result = check(mistake.changes);
    std::string file = root + "/install.xml:";
    bool warningOnly = std::string(mistake.message).find(": warning: ") != std::string::npos;
    EXPECT_EQ(warningOnly ? 0 : 1, result.status) << result.output;
    EXPECT_NE(std::string::npos, result.output.find(file + mistake.message)) << result.output;
    if (mistake.hint[0]) {
      EXPECT_NE(std::string::npos, result.output.find(file + mistake.hint + "\n")) << result.output;
    }
  }
}

// --no-strict lets the findings about the language through as warnings; a
// malformed template or a missing file stays an error.
TEST_F(TemplateCheckTest, NoStrictTurnsLanguageErrorsIntoWarnings) {
  CommandResult result = check({{"<FileSet Name", "<FileSett Name"}, {"</FileSet>", "</FileSett>"}}, "--no-strict");
  EXPECT_EQ(0, result.status) << result.output;
  EXPECT_NE(std::string::npos, result.output.find(":43:5: warning: unknown element 'FileSett'")) << result.output;
  result = check({{"bin/acme</FN>", "bin/acme2</FN>"}}, "--no-strict");
  EXPECT_EQ(1, result.status) << result.output;
  result = check({{"</Welcome>", ""}}, "--no-strict");
  EXPECT_EQ(1, result.status) << result.output;
}

// Every problem of a template comes in one run.
TEST_F(TemplateCheckTest, AllProblemsInOneRun) {
  CommandResult result = check({{"<FileSet Name", "<FileSett Name"},
                                {"</FileSet>", "</FileSett>"},
                                {"Condition=\"[DIR_OK]==0\"", "Condtion=\"[DIR_OK]==0\""},
                                {"Type=\"File\"", "Type=\"file\""}});
  EXPECT_EQ(1, result.status);
  for (const char* place : {":15:27: error:", ":43:5: error:", ":51:18: error:"})
    EXPECT_NE(std::string::npos, result.output.find(place)) << result.output;
}

// A link can't be installed by the Windows program: the builder says so
// when the stub is one.
TEST_F(TemplateCheckTest, ALinkForTheWindowsProgramIsRefused) {
  fs::create_symlink("readme.txt", root + "/doc/latest.txt");
  ASSERT_TRUE(testwriter::writeFile(root + "/setup.exe", "MZ and the rest of a Windows program"));
  CommandResult result = check({}, "--stub " + root + "/setup.exe");
  EXPECT_EQ(1, result.status);
  EXPECT_NE(std::string::npos,
            result.output.find(":45:43: error: doc/latest.txt is a symbolic link, which the Windows program can't make"))
      << result.output;
  EXPECT_EQ(0, check({}).status);
}

// The demo and the templates of the end-to-end tests pass, each staged as
// its test stages it: with the installer program as its uninstaller.
TEST(ShippedTemplatesTest, TheDemoAndTheTestTemplatesPass) {
  const char* templates[] = {"examples/demo/install.xml",      "examples/demo/install-themed.xml",
                             "tests/data/tiny/install.xml",    "tests/data/wizard/install.xml",
                             "tests/data/envini/install.xml",  "tests/data/lifecycle/v1/install.xml",
                             "tests/data/lifecycle/v2/install.xml"};
  std::string stage = ::testing::TempDir() + "qlux_shipped_XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(&stage[0]));
  for (const char* name : templates) {
    SCOPED_TRACE(name);
    fs::path source = fs::path(QLUX_SOURCE_DIR) / name;
    fs::path copy = fs::path(stage) / "copy";
    fs::remove_all(copy);
    fs::copy(source.parent_path(), copy, fs::copy_options::recursive);
    fs::copy_file(QLUX_SETUP, copy / "qlux-uninstall.exe");
    CommandResult result =
        run(std::string(QLUX_PACK) + " --check --template " + (copy / source.filename()).string());
    EXPECT_EQ(0, result.status) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find(": error: ")) << result.output;
  }
  fs::remove_all(stage);
}

}  // namespace
