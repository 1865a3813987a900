// Tests of the registry store on Linux: its file format, data another
// writer left, case, slashes in names, and deleting keys.
#include "platform/linux/registry_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "gtest/gtest.h"
#include "platform/linux/linux_installer.h"

namespace {

const char* const kLM = "HKEY_LOCAL_MACHINE";

// Every test runs against a store under a fresh QLUX_ROOT of its own,
// made with mkdtemp in the temporary directory and removed afterwards.
class RegistryStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char temp[QUtils::kMaxPath];
    ASSERT_TRUE(QUtils::getTempDirectory(temp, sizeof temp));
    ASSERT_EQ('/', temp[0]);
    std::string pattern = std::string(temp) + "/qlux-registry-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
    root = pattern;
    const char* old = std::getenv("QLUX_ROOT");
    hadRoot = old != nullptr;
    if (old) oldRoot = old;
    setenv("QLUX_ROOT", root.c_str(), 1);
  }
  void TearDown() override {
    if (hadRoot) {
      setenv("QLUX_ROOT", oldRoot.c_str(), 1);
    } else {
      unsetenv("QLUX_ROOT");
    }
    // Only ever the directory this test made.
    if (root.size() > 16 && root.find("/qlux-registry-") != std::string::npos) QUtils::deleteTree(root.c_str());
  }

  std::string hive(const char* name) { return root + "/var/lib/qlux/registry/" + name; }
  std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
  }
  int make(const char* path) {
    // Each level in turn, as the engine does.
    std::string levels;
    int result = 0;
    for (const char* p = path;; p++) {
      if (*p == '\\' || !*p) result = store.createKey(kLM, levels.c_str(), nullptr);
      if (!*p) return result;
      levels += *p;
    }
  }
  int writeText(const char* path, const char* name, const char* text) {
    return store.writeValue(kLM, path, name, kRegSz, reinterpret_cast<const unsigned char*>(text),
                            static_cast<uint32_t>(std::strlen(text)));
  }
  // A value as the engine gets it: "type:bytes", or "error N".
  std::string read(const char* path, const char* name) {
    int type = 0;
    uint32_t size = 0;
    QUtils::RefArray<unsigned char> data;
    int result = store.readValue(kLM, path, name, false, &type, data, &size);
    if (result != 0) return "error " + std::to_string(result);
    return std::to_string(type) + ":" + std::string(reinterpret_cast<const char*>(data.get()), size);
  }
  std::string subKeys(const char* path) {
    QUtils::Table<QUtils::CharString> names;
    int result = store.listSubKeys(kLM, path, &names);
    if (result != 0) return "error " + std::to_string(result);
    std::string list;
    for (int i = 0; i < names.getCount(); i++) list += std::string(i ? "," : "") + names[i].getText();
    return list;
  }

  std::string root;
  std::string oldRoot;
  bool hadRoot = false;
  RegistryStore store;
};

TEST_F(RegistryStoreTest, ValuesFileHasTheAgreedFormat) {
  ASSERT_EQ(0, make("SOFTWARE\\Vendor"));
  EXPECT_TRUE(QUtils::isDirectory((hive("HKEY_LOCAL_MACHINE") + "/SOFTWARE/Vendor").c_str()));
  const unsigned char dword[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  const unsigned char bytes[3] = {0x00, 0xAB, 0x7F};
  EXPECT_EQ(0, writeText("software\\vendor", "Path", "C:\\a\tb\r\nc"));
  EXPECT_EQ(0, writeText("SOFTWARE\\Vendor", "", "default"));
  EXPECT_EQ(0, store.writeValue(kLM, "SOFTWARE\\Vendor", "Count", kRegDword, dword, 4));
  EXPECT_EQ(0, store.writeValue(kLM, "SOFTWARE\\Vendor", "Blob", kRegBinary, bytes, 3));
  EXPECT_EQ(0, store.writeValue(kLM, "SOFTWARE\\Vendor", "Exp", kRegExpandSz,
                                reinterpret_cast<const unsigned char*>("%X%"), 3));
  // Overwriting keeps the line's place and the name's first spelling.
  EXPECT_EQ(0, writeText("SOFTWARE\\Vendor", "PATH", "D:\\x"));

  std::string values = hive("HKEY_LOCAL_MACHINE") + "/SOFTWARE/Vendor/.values";
  EXPECT_EQ(
      "Path\tREG_SZ\tD:\\\\x\n"
      "\tREG_SZ\tdefault\n"
      "Count\tREG_DWORD\t4294967295\n"
      "Blob\tREG_BINARY\t00ab7f\n"
      "Exp\tREG_EXPAND_SZ\t%X%\n",
      fileText(values));
  EXPECT_FALSE(QUtils::fileExists((values + ".new").c_str()));

  EXPECT_EQ(0, writeText("SOFTWARE\\Vendor", "Path", "C:\\a\tb\r\nc\\t"));
  EXPECT_EQ("1:C:\\a\tb\r\nc\\t", read("Software\\VENDOR", "path"));
  EXPECT_EQ("1:default", read("SOFTWARE\\Vendor", ""));
  EXPECT_EQ("4:\xFF\xFF\xFF\xFF", read("SOFTWARE\\Vendor", "Count"));
  EXPECT_EQ(std::string("3:\0\xAB\x7F", 5), read("SOFTWARE\\Vendor", "Blob"));
  EXPECT_EQ("2:%X%", read("SOFTWARE\\Vendor", "Exp"));

  EXPECT_EQ(0, store.deleteValue(kLM, "SOFTWARE\\Vendor", "count"));
  EXPECT_EQ(kRegNotFound, store.deleteValue(kLM, "SOFTWARE\\Vendor", "Count"));
  EXPECT_EQ(std::string::npos, fileText(values).find("Count"));
  EXPECT_NE(0, writeText("SOFTWARE\\Vendor", "Bad\tName", "x"));
  EXPECT_EQ(kRegNotFound, writeText("SOFTWARE\\Missing", "Name", "x"));
}

TEST_F(RegistryStoreTest, ReadsWhatAnotherWriterLeftAndRefusesBadData) {
  ASSERT_EQ(0, make("Hand"));
  writeFile(hive("HKEY_LOCAL_MACHINE") + "/Hand/.values",
            "Upper\tREG_BINARY\t0AFF\r\n"
            "junk line without fields\n"
            "Word\tREG_DWORD\t255\n"
            "BadWord\tREG_DWORD\t0x10\n"
            "Huge\tREG_DWORD\t4294967296\n"
            "OddHex\tREG_BINARY\tabc\n"
            "Multi\tREG_MULTI_SZ\tx\n"
            "Last\tREG_SZ\tno newline");
  EXPECT_EQ("3:\x0A\xFF", read("Hand", "Upper"));
  EXPECT_EQ(std::string("4:\xFF\0\0\0", 6), read("Hand", "Word"));
  for (const char* bad : {"BadWord", "Huge", "OddHex", "Multi"}) EXPECT_EQ(0u, read("Hand", bad).find("error")) << bad;
  EXPECT_EQ("1:no newline", read("Hand", "Last"));
}

TEST_F(RegistryStoreTest, KeysKeepTheirCaseAndListInOrderIgnoringCase) {
  EXPECT_EQ(0, make("Root\\beta"));
  EXPECT_EQ(0, make("Root\\Alpha"));
  EXPECT_EQ(0, make("Root\\Gamma"));
  EXPECT_EQ(0, make("Root\\10"));
  EXPECT_EQ(0, make("Root\\delta"));
  int created = -1;
  EXPECT_EQ(0, store.createKey(kLM, "ROOT\\ALPHA", &created));
  EXPECT_EQ(0, created);
  EXPECT_EQ(0, store.createKey(kLM, "root\\Epsilon", &created));
  EXPECT_EQ(1, created);
  EXPECT_TRUE(QUtils::isDirectory((hive("HKEY_LOCAL_MACHINE") + "/Root/Epsilon").c_str()));
  EXPECT_EQ(kRegNotFound, store.createKey(kLM, "Nowhere\\Child", &created));
  EXPECT_NE(0, store.createKey(kLM, "Root\\..", &created));
  EXPECT_NE(0, store.createKey(kLM, "Root\\.values", &created));

  // Files and symbolic links in a key's directory are no sub-keys.
  writeText("Root", "Value", "v");
  std::string rootDir = hive("HKEY_LOCAL_MACHINE") + "/Root";
  writeFile(rootDir + "/stray", "x");
  ASSERT_EQ(0, symlink((rootDir + "/beta").c_str(), (rootDir + "/Link").c_str()));
  EXPECT_EQ("10,Alpha,beta,delta,Epsilon,Gamma", subKeys("root"));
  EXPECT_EQ("Root", subKeys(""));
  EXPECT_EQ(kRegNotFound, store.openKey(kLM, "Root\\Link", false, false));
  EXPECT_EQ(0, store.openKey(kLM, "ROOT\\GAMMA", true, false));
  // A hive that holds nothing yet lists nothing.
  QUtils::Table<QUtils::CharString> names;
  EXPECT_EQ(0, store.listSubKeys("HKEY_USERS", "", &names));
  EXPECT_EQ(0, names.getCount());
}

// Only '\' separates levels: a '/' and a '%' are part of a key's name, and
// the directory stands for the whole name.
TEST_F(RegistryStoreTest, ASlashBelongsToTheKeysName) {
  EXPECT_EQ(0, make("Apps\\Tools/Extra 50%"));
  EXPECT_TRUE(QUtils::isDirectory((hive("HKEY_LOCAL_MACHINE") + "/Apps/Tools%2FExtra 50%25").c_str()));
  EXPECT_EQ(kRegNotFound, store.openKey(kLM, "Apps\\Tools", false, false));
  EXPECT_EQ(0, store.openKey(kLM, "apps\\tools/extra 50%", false, false));
  EXPECT_EQ("Tools/Extra 50%", subKeys("Apps"));
  EXPECT_EQ(0, store.deleteKey(kLM, "Apps\\Tools/Extra 50%"));
  EXPECT_EQ("", subKeys("Apps"));
}

TEST_F(RegistryStoreTest, DeletesOnlyKeysWithoutSubKeysOrStrayFiles) {
  ASSERT_EQ(0, make("App\\Sub"));
  ASSERT_EQ(0, make("App\\Other"));
  writeText("App\\Sub", "Name", "v");
  std::string app = hive("HKEY_LOCAL_MACHINE") + "/App";

  EXPECT_NE(0, store.deleteKey(kLM, "App"));
  EXPECT_TRUE(QUtils::isDirectory(app.c_str()));
  EXPECT_NE(0, store.deleteKey(kLM, ""));
  EXPECT_EQ(0, store.deleteKey(kLM, "app\\SUB"));
  EXPECT_FALSE(QUtils::fileExists((app + "/Sub").c_str()));
  EXPECT_EQ(kRegNotFound, store.deleteKey(kLM, "App\\Sub"));

  // A file that isn't the store's keeps its key.
  writeFile(app + "/Other/notes.txt", "keep me");
  EXPECT_NE(0, store.deleteKey(kLM, "App\\Other"));
  EXPECT_EQ("keep me", fileText(app + "/Other/notes.txt"));

  // A link to a directory outside the store is no key: nothing behind it goes.
  std::string outside = root + "/outside";
  ASSERT_TRUE(QUtils::makeDirectory(outside.c_str()));
  writeFile(outside + "/.values", "A\tREG_SZ\tx\n");
  ASSERT_EQ(0, symlink(outside.c_str(), (app + "/Linked").c_str()));
  EXPECT_EQ(kRegNotFound, store.deleteKey(kLM, "App\\Linked"));
  EXPECT_EQ(kRegNotFound, store.deleteValue(kLM, "App\\Linked", "A"));
  EXPECT_TRUE(QUtils::fileExists((outside + "/.values").c_str()));
}

TEST_F(RegistryStoreTest, ProgramFilesDirReadsAsTheProgramDirectoryUntilStored) {
  const char* key = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
  EXPECT_EQ(0, store.openKey(kLM, "Software\\Microsoft\\Windows\\CurrentVersion", false, false));
  EXPECT_EQ("1:" + root + "/opt", read("software\\microsoft\\windows\\currentversion", "programfilesdir"));
  EXPECT_EQ("error 2", read(key, "CommonFilesDir"));
  EXPECT_EQ(kRegNotFound, store.openKey(kLM, key, true, false));

  ASSERT_EQ(0, make(key));
  EXPECT_EQ("1:" + root + "/opt", read(key, "ProgramFilesDir"));
  EXPECT_EQ(0, writeText(key, "ProgramFilesDir", "/srv/programs"));
  EXPECT_EQ("1:/srv/programs", read(key, "ProgramFilesDir"));
}

TEST_F(RegistryStoreTest, TheLinuxEngineReadsAndWritesThroughTheStore) {
  LinuxInstaller engine(0, 0, 0);
  int created = 0;
  EXPECT_EQ(0, engine.setRegistryValue("hkey_local_machine", "Software/Vendor/Product/2.0", "REG_DWORD", "Build",
                                       "1f", &created));
  EXPECT_EQ(4, created);
  engine.setRegistryValue(kLM, "Software\\Vendor\\Product\\1.0", "REG_SZ", "Build", "old", &created);
  EXPECT_EQ(1, created);
  EXPECT_EQ("Build\tREG_DWORD\t31\n",
            fileText(hive("HKEY_LOCAL_MACHINE") + "/Software/Vendor/Product/2.0/.values"));
  char out[64];
  EXPECT_EQ(0, engine.findRegistryValue(kLM, "Software\\Vendor\\Product\\*", "Build", out, sizeof out, nullptr, '*'));
  EXPECT_STREQ("1F", out);
  EXPECT_EQ(1, engine.deleteRegistryKeys(kLM, "Software\\Vendor\\Product\\1.0", 1));
  EXPECT_EQ(4, engine.deleteRegistryKeys(kLM, "Software\\Vendor\\Product\\2.0", 4));
  EXPECT_EQ("", subKeys(""));
}

}  // namespace
