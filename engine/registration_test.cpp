// Tests of the entry in the system's list of installed programs: written,
// sized, named and removed again.
#include <cstring>
#include <string>

#include "engine/test_files.h"
#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {

const char kLM[] = "HKEY_LOCAL_MACHINE";
const char kEntries[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";

// A product with every value the entry needs; `website` may be left out,
// and `extra` adds to the product's description.
std::string productTemplate(bool website = true, const std::string& extra = "",
                            const std::string& program = "installer.exe") {
  return std::string(
             "<HalvoWorksInstallation><Desc><ProductDesc><Fullname>Quill Editor</Fullname>"
             "<MajorVersion>4</MajorVersion><MinorVersion>2</MinorVersion><MinestVersion>7</MinestVersion>") +
         (website ? "<Website>https://quill.example</Website>" : "") + extra +
         "<LegacyApplication>Quill</LegacyApplication></ProductDesc></Desc><Installation><Uninstall>"
         "<InstallLogFile>[ROOT]\\logs\\install.log</InstallLogFile>"
         "<UninstallCmd>[ROOT]\\uninstall\\" + program + "</UninstallCmd>"
         "</Uninstall></Installation></HalvoWorksInstallation>";
}

// `path` as the uninstall command writes it: '\' becomes '/' where that is
// the system's separator.
std::string systemPath(std::string path) {
  if (QUtils::kPathSeparator == '/') {
    for (char& c : path)
      if (c == '\\') c = '/';
  }
  return path;
}

// `path` with every separator the system's own.
std::string ownSeparators(std::string path) {
  for (char& c : path)
    if (QUtils::isSeparator(c)) c = QUtils::kPathSeparator;
  return path;
}

class RegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine.loadTemplate(productTemplate().c_str());
    engine.setVariable("ROOT", "C:\\Quill");
  }
  // A value of the entry `name` as text, or "<none>"; it must be a text.
  std::string stored(const char* name, const char* value) {
    int type = 0;
    std::string text;
    if (!engine.registry.value(kLM, (std::string(kEntries) + name).c_str(), value, &type, &text)) return "<none>";
    EXPECT_EQ(kRegSz, type) << value;
    return text;
  }
  // A DWORD value of the entry `name`, or -1 when it is missing.
  int64_t number(const char* name, const char* value) {
    int type = 0;
    std::string data;
    if (!engine.registry.value(kLM, (std::string(kEntries) + name).c_str(), value, &type, &data)) return -1;
    EXPECT_EQ(kRegDword, type) << value;
    return std::stoll(data);  // the store shows a DWORD in decimal
  }
  // Writes an entry as another tool or an older installation would.
  void writeEntry(const char* name, const char* command, int type = kRegSz) {
    std::string key = std::string(kEntries) + name;
    engine.createRegistryKeys(kLM, key.c_str());
    engine.registry.writeValue(kLM, key.c_str(), "UninstallString", type,
                               reinterpret_cast<const unsigned char*>(command),
                               static_cast<uint32_t>(std::strlen(command)));
  }
  std::string logFile(const char* name, int size = 256) {
    char buffer[256];
    if (!engine.getApplicationLogFile(name, buffer, size)) return "<fail>";
    return buffer;
  }

  TestInstaller engine;
};

TEST_F(RegistrationTest, RegisterWritesTheEntryAndItsUninstallCommand) {
  EXPECT_FALSE(engine.isApplicationRegistered(nullptr));
  // The store starts empty: the Uninstall key itself is made as well.
  ASSERT_TRUE(engine.registerApplication());
  EXPECT_TRUE(engine.isApplicationRegistered(nullptr));
  EXPECT_TRUE(engine.isApplicationRegistered("QUILL EDITOR"));

  const std::string program = "\"" + systemPath("C:\\Quill\\uninstall\\installer.exe") + "\"";
  const std::string log = systemPath("C:\\Quill\\logs\\install.log");
  EXPECT_EQ(program, stored("Quill Editor", "DisplayIcon"));
  EXPECT_EQ("Quill Editor", stored("Quill Editor", "DisplayName"));
  EXPECT_EQ("4.2.7", stored("Quill Editor", "DisplayVersion"));
  EXPECT_EQ("https://quill.example", stored("Quill Editor", "HelpLink"));
  EXPECT_EQ("Halvo Software Ltd", stored("Quill Editor", "Publisher"));
  const std::string command = program + " -uninstall=\"" + log + "\" -uninstallApp=\"Quill Editor\"";
  EXPECT_EQ(command, stored("Quill Editor", "UninstallString"));
  EXPECT_EQ(command + " -gui=0 -quiet=1 -wait", stored("Quill Editor", "QuietUninstallString"));
  EXPECT_EQ(1, number("Quill Editor", "NoModify"));
  EXPECT_EQ(1, number("Quill Editor", "NoRepair"));
  // No action log to read: neither a size nor a folder is claimed.
  EXPECT_EQ(-1, number("Quill Editor", "EstimatedSize"));
  EXPECT_EQ("<none>", stored("Quill Editor", "InstallLocation"));

  EXPECT_EQ(log, logFile("Quill Editor"));

  // Installing again into another directory overwrites the same entry: the
  // older log can no longer be reached through it.
  engine.setVariable("ROOT", "D:\\Apps\\Quill");
  ASSERT_TRUE(engine.registerApplication());
  EXPECT_EQ(systemPath("D:\\Apps\\Quill\\logs\\install.log"), logFile("Quill Editor"));
  EXPECT_EQ("\"" + systemPath("D:\\Apps\\Quill\\uninstall\\installer.exe") + "\"",
            stored("Quill Editor", "DisplayIcon"));
}

TEST_F(RegistrationTest, PublisherAndIconNameWhatIsThere) {
  TestInstaller named;
  named.loadTemplate(productTemplate(true, "<Publisher>Quill Works</Publisher>", "installer").c_str());
  const std::string root = here("icon");
  named.setVariable("ROOT", root.c_str());
  ASSERT_TRUE(named.registerApplication());
  int type = 0;
  std::string text;
  const std::string key = std::string(kEntries) + "Quill Editor";
  ASSERT_TRUE(named.registry.value(kLM, key.c_str(), "Publisher", &type, &text));
  EXPECT_EQ("Quill Works", text);
  // The command names the program without ".exe", and no file of either
  // name is there: the icon names the program as the command does.
  const std::string program = systemPath(root + "\\uninstall\\installer");
  ASSERT_TRUE(named.registry.value(kLM, key.c_str(), "DisplayIcon", &type, &text));
  EXPECT_EQ("\"" + program + "\"", text);

  // Only the ".exe" file exists (Windows adds the ending when it starts the
  // program): the icon names that file, the command stays as the template
  // gave it.
  ASSERT_TRUE(QUtils::makeDirectory(root.c_str()));
  ASSERT_TRUE(QUtils::makeDirectory((root + "/uninstall").c_str()));
  writeFile(root + "/uninstall/installer.exe", "MZ");
  ASSERT_TRUE(named.registerApplication());
  ASSERT_TRUE(named.registry.value(kLM, key.c_str(), "DisplayIcon", &type, &text));
  EXPECT_EQ("\"" + program + ".exe\"", text);
  ASSERT_TRUE(named.registry.value(kLM, key.c_str(), "UninstallString", &type, &text));
  EXPECT_EQ(0u, text.find("\"" + program + "\" -uninstall="));
}

// EstimatedSize and InstallLocation come from the files that the action log
// names.
TEST_F(RegistrationTest, SizeAndFolderComeFromTheLoggedFiles) {
  const std::string root = here("Quill");
  engine.setVariable("ROOT", root.c_str());
  for (const char* folder : {"", "/bin", "/logs"}) ASSERT_TRUE(QUtils::makeDirectory((root + folder).c_str()));
  writeFile(root + "/bin/quill.exe", std::string(3000, 'q'));
  writeFile(root + "/readme.txt", std::string(100, 'r'));
  writeFile(root + "/logs/install.log",
            "NUMVARS\t1\r\nVAR\tROOT\t" + root + "\r\nDIR\t2\t" + root + "/bin\r\nFILE\tCREATE\t" + root +
                "/bin/quill.exe\r\nFILE\tOVER\t" + root + "/readme.txt\r\nFILE\tCREATE\t" + root +
                "/bin/gone.dll\r\nFILEX\tCREATE\t/elsewhere/x\r\n");
  ASSERT_TRUE(engine.registerApplication());
  // 3,100 bytes (the missing file counts nothing) are 4 KB, rounded up.
  EXPECT_EQ(4, number("Quill Editor", "EstimatedSize"));
  EXPECT_EQ(ownSeparators(root), stored("Quill Editor", "InstallLocation"));

  // Files in two folders of the program directory share only that
  // directory, which is no product's own folder: no InstallLocation then.
  const std::string programFiles = here("Programs");
  engine.setRegistryValue(kLM, "SOFTWARE\\Microsoft\\Windows\\CurrentVersion", "REG_SZ", "ProgramFilesDir",
                          programFiles.c_str(), nullptr);
  writeFile(root + "/logs/install.log", "FILE\tCREATE\t" + programFiles + "/Quill/a.txt\r\nFILE\tCREATE\t" +
                                            programFiles + "/Quill Shared/b.txt\r\n");
  engine.unregisterApplication("Quill Editor");
  ASSERT_TRUE(engine.registerApplication());
  EXPECT_EQ(0, number("Quill Editor", "EstimatedSize"));
  EXPECT_EQ("<none>", stored("Quill Editor", "InstallLocation"));
  // One folder below it is the product's own.
  writeFile(root + "/logs/install.log", "FILE\tCREATE\t" + programFiles + "/Quill/a.txt\r\nFILE\tCREATE\t" +
                                            programFiles + "/Quill/sub/b.txt\r\n");
  ASSERT_TRUE(engine.registerApplication());
  EXPECT_EQ(ownSeparators(programFiles + "/Quill"), stored("Quill Editor", "InstallLocation"));
}

TEST_F(RegistrationTest, UnregisterRemovesOnlyItsOwnEntry) {
  ASSERT_TRUE(engine.registerApplication());
  writeEntry("Quill", "\"C:\\Old\\setup.exe\" -uninstall=\"C:\\Old\\install.log\" -uninstallApp=\"Quill\"");
  writeEntry("Other Tool", "C:\\Other\\remove.exe /quiet");

  // The legacy name is an installation of ours; the other tool's entry is
  // registered, but has no action log to offer.
  EXPECT_TRUE(engine.isApplicationRegistered("Quill"));
  EXPECT_EQ("C:\\Old\\install.log", logFile("Quill"));
  EXPECT_TRUE(engine.isApplicationRegistered("Other Tool"));
  EXPECT_EQ("<fail>", logFile("Other Tool"));

  EXPECT_TRUE(engine.unregisterApplication("Quill Editor"));
  EXPECT_FALSE(engine.isApplicationRegistered(nullptr));
  EXPECT_EQ("<fail>", logFile("Quill Editor"));
  EXPECT_FALSE(engine.unregisterApplication("Quill Editor"));
  EXPECT_TRUE(engine.isApplicationRegistered("Quill"));
  EXPECT_TRUE(engine.isApplicationRegistered("Other Tool"));

  // Names that don't name an entry of their own never reach the Uninstall
  // key or anything above it.
  EXPECT_FALSE(engine.unregisterApplication(nullptr));
  EXPECT_FALSE(engine.unregisterApplication(""));
  EXPECT_FALSE(engine.unregisterApplication("\\"));
  EXPECT_FALSE(engine.unregisterApplication(".."));
  EXPECT_FALSE(engine.unregisterApplication("Quill\\..\\.."));
  EXPECT_TRUE(engine.isApplicationRegistered("Quill"));

  // A '\' in the name names a key one level deeper; the upper key can't be
  // deleted while that one is below it.
  writeEntry("Suite\\Part", "x -uninstall=\"/srv/part.log\"");
  EXPECT_EQ("/srv/part.log", logFile("Suite\\Part"));
  EXPECT_FALSE(engine.unregisterApplication("Suite"));
  EXPECT_TRUE(engine.unregisterApplication("Suite\\Part"));
  EXPECT_TRUE(engine.unregisterApplication("Suite"));
}

TEST_F(RegistrationTest, ASlashInTheProductNameIsPartOfOneKey) {
  TestInstaller slashed;
  std::string text = productTemplate();
  slashed.loadTemplate(text.replace(text.find("Quill Editor"), 12, "Quill/Editor").c_str());
  slashed.setVariable("ROOT", "C:\\Quill");
  ASSERT_TRUE(slashed.registerApplication());
  EXPECT_TRUE(slashed.isApplicationRegistered(nullptr));
  EXPECT_FALSE(slashed.isApplicationRegistered("Quill"));
  int type = 0;
  std::string name;
  EXPECT_TRUE(slashed.registry.value(kLM, (std::string(kEntries) + "Quill/Editor").c_str(), "DisplayName", &type,
                                     &name));
  EXPECT_EQ("Quill/Editor", name);
  EXPECT_TRUE(slashed.unregisterApplication("Quill/Editor"));
  // Nothing of the entry is left behind: no key "Quill" above it.
  QUtils::Table<QUtils::CharString> names;
  ASSERT_EQ(0, slashed.registry.listSubKeys(kLM, kEntries, &names));
  EXPECT_EQ(0, names.getCount());
}

TEST_F(RegistrationTest, LogFileIsReadFromTheUninstallOption) {
  // No closing quote: all that stands behind the option.
  writeEntry("Open", "setup -uninstall=\"/var/log/open.log");
  EXPECT_EQ("/var/log/open.log", logFile("Open"));
  // Cut to the field.
  EXPECT_EQ("/var", logFile("Open", 5));
  // The option must be -uninstall= itself, not another beginning alike.
  writeEntry("AppOnly", "setup -uninstallApp=\"AppOnly\"");
  EXPECT_EQ("<fail>", logFile("AppOnly"));
  // Only a text value counts.
  writeEntry("Expandable", "-uninstall=\"/x.log\"", kRegExpandSz);
  EXPECT_EQ("<fail>", logFile("Expandable"));
  EXPECT_EQ("<fail>", logFile("Missing"));
}

TEST_F(RegistrationTest, IncompleteTemplateOrRefusedKey) {
  // Without a web address nothing is registered, and that is no failure.
  TestInstaller partial;
  partial.loadTemplate(productTemplate(false).c_str());
  EXPECT_TRUE(partial.registerApplication());
  EXPECT_FALSE(partial.isApplicationRegistered(nullptr));
  EXPECT_EQ(0u, partial.registry.keyCount());
  // The command itself needs no web address; each text is cut to its field.
  partial.setVariable("ROOT", "/q");
  char program[64];
  char arguments[20];
  EXPECT_TRUE(partial.getUninstallCommand(program, sizeof program, arguments, sizeof arguments, 0));
  EXPECT_EQ(systemPath("/q\\uninstall\\installer.exe"), program);
  EXPECT_EQ(systemPath("-uninstall=\"/q\\logs"), arguments);

  // A key that can't be made is a failure.
  engine.registry.refuseCreate = std::string(kEntries) + "Quill Editor";
  EXPECT_FALSE(engine.registerApplication());
  EXPECT_FALSE(engine.isApplicationRegistered(nullptr));
}

}  // namespace
