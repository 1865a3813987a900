// Tests of the registry on Windows: writing, reading, listing and deleting,
// and the engine's use of it.
#include "platform/windows/registry_windows.h"

#include <windows.h>

#include <cstring>
#include <string>

#include "gtest/gtest.h"
#include "platform/windows/wini.h"

namespace {

const char* const kCU = "HKEY_CURRENT_USER";
const char* const kTest = "Software\\QluxTest";

// Everything happens below HKEY_CURRENT_USER\Software\QluxTest, which each
// test starts and leaves without.
class WindowsRegistryTest : public ::testing::Test {
 protected:
  void SetUp() override { RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\QluxTest"); }
  void TearDown() override { RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\QluxTest"); }

  std::string read(const char* path, const char* name, bool view32 = false) {
    int type = 0;
    uint32_t size = 0;
    QUtils::RefArray<unsigned char> data;
    int result = registry.readValue(kCU, path, name, view32, &type, data, &size);
    if (result != 0) return "error " + std::to_string(result);
    return std::to_string(type) + ":" + std::string(reinterpret_cast<const char*>(data.get()), size);
  }

  WindowsRegistry registry;
};

TEST_F(WindowsRegistryTest, WritesReadsListsAndDeletes) {
  int created = -1;
  ASSERT_EQ(0, registry.createKey(kCU, kTest, &created));
  EXPECT_EQ(1, created);
  EXPECT_EQ(0, registry.createKey(kCU, "software\\qluxtest", &created));
  EXPECT_EQ(0, created);
  EXPECT_EQ(kRegNotFound, registry.createKey(kCU, "Software\\QluxTest\\Missing\\Child", &created));
  ASSERT_EQ(0, registry.createKey(kCU, "Software\\QluxTest\\Beta", &created));
  ASSERT_EQ(0, registry.createKey(kCU, "Software\\QluxTest\\Alpha", &created));
  // Only '\' separates levels; a '/' is part of the key's name.
  ASSERT_EQ(0, registry.createKey(kCU, "Software\\QluxTest\\Tools/Extra", &created));
  EXPECT_EQ(1, created);

  const char* text = "Gr\xC3\xBC\xC3\x9F" "e";
  const unsigned char dword[4] = {0x78, 0x56, 0x34, 0x12};
  const unsigned char bytes[3] = {0x00, 0xAB, 0x7F};
  EXPECT_EQ(0, registry.writeValue(kCU, kTest, "Text", kRegSz, reinterpret_cast<const unsigned char*>(text),
                                   static_cast<uint32_t>(std::strlen(text))));
  EXPECT_EQ(0, registry.writeValue(kCU, kTest, "", kRegSz, reinterpret_cast<const unsigned char*>("dflt"), 4));
  EXPECT_EQ(0, registry.writeValue(kCU, kTest, "Word", kRegDword, dword, 4));
  EXPECT_EQ(0, registry.writeValue(kCU, kTest, "Blob", kRegBinary, bytes, 3));

  EXPECT_EQ(std::string("1:") + text, read(kTest, "text", true));
  EXPECT_EQ("1:dflt", read(kTest, ""));
  EXPECT_EQ("4:\x78\x56\x34\x12", read(kTest, "Word"));
  EXPECT_EQ(std::string("3:\0\xAB\x7F", 5), read(kTest, "Blob"));
  EXPECT_EQ("error 2", read(kTest, "Missing"));

  // A text value is stored with its terminator, as other programs expect.
  HKEY key;
  ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\QluxTest", 0, KEY_READ, &key));
  DWORD type = 0, size = 0;
  EXPECT_EQ(ERROR_SUCCESS, RegQueryValueExW(key, L"Text", nullptr, &type, nullptr, &size));
  RegCloseKey(key);
  EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
  EXPECT_EQ(6u * sizeof(wchar_t), size);

  QUtils::Table<QUtils::CharString> names;
  EXPECT_EQ(0, registry.listSubKeys(kCU, kTest, &names));
  ASSERT_EQ(3, names.getCount());
  EXPECT_STREQ("Alpha", names[0].getText());
  EXPECT_STREQ("Beta", names[1].getText());
  EXPECT_STREQ("Tools/Extra", names[2].getText());
  EXPECT_EQ(0, registry.deleteKey(kCU, "Software\\QluxTest\\Tools/Extra"));

  EXPECT_NE(0, registry.deleteKey(kCU, kTest));
  EXPECT_EQ(0, registry.openKey(kCU, kTest, true, false));
  EXPECT_EQ(0, registry.deleteKey(kCU, "Software\\QluxTest\\Alpha"));
  EXPECT_EQ(0, registry.deleteKey(kCU, "Software\\QluxTest\\Beta"));
  EXPECT_EQ(0, registry.deleteValue(kCU, kTest, "Word"));
  EXPECT_EQ(kRegNotFound, registry.deleteValue(kCU, kTest, "Word"));
  EXPECT_EQ(0, registry.deleteKey(kCU, kTest));
  EXPECT_EQ(kRegNotFound, registry.openKey(kCU, kTest, false, false));
}

TEST_F(WindowsRegistryTest, TheWindowsEngineUsesTheRegistry) {
  Wini engine(0, 0, 0);
  int created = 0;
  EXPECT_EQ(0, engine.setRegistryValue(kCU, "Software/QluxTest/Product/2.0", "REG_DWORD", "Build", "1f", &created));
  EXPECT_EQ(3, created);
  EXPECT_EQ(0, engine.setRegistryValue(kCU, "Software\\QluxTest\\Product\\1.0", nullptr, "Build", "old", &created));
  char out[64];
  EXPECT_EQ(0, engine.findRegistryValue(kCU, "Software\\QluxTest\\Product\\*", "Build", out, sizeof out, nullptr, '*'));
  EXPECT_STREQ("1F", out);
  EXPECT_EQ(1, engine.deleteRegistryKeys(kCU, "Software\\QluxTest\\Product\\1.0", 1));
  EXPECT_EQ(3, engine.deleteRegistryKeys(kCU, "Software\\QluxTest\\Product\\2.0", 3));
  EXPECT_EQ(kRegNotFound, engine.registry.openKey(kCU, kTest, false, false));
}

}  // namespace
