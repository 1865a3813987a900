// Tests of reading the registry for defaults: the types as text, fields too
// small, wildcards in key paths, and the preferred key.
#include <string>

#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {

const char* const kCU = "HKEY_CURRENT_USER";

class RegistryTest : public ::testing::Test {
 protected:
  // Makes every level of `path` under HKEY_CURRENT_USER.
  void makeKey(const char* path) { engine.createRegistryKeys(kCU, path); }
  void setText(const char* path, const char* name, const char* text) {
    int created;
    ASSERT_EQ(0, engine.setRegistryValue(kCU, path, "REG_SZ", name, text, &created));
  }
  // The value read as text, or "<fail>".
  std::string read(const char* path, const char* name, int size = 256) {
    char out[512];
    if (engine.readRegistryValue(kCU, path, name, out, size, false) != 0) return "<fail>";
    return out;
  }
  std::string find(const char* path, const char* name, const char* preferred = nullptr) {
    char out[256];
    if (engine.findRegistryValue(kCU, path, name, out, sizeof out, preferred, '*') != 0) return "<fail>";
    return out;
  }
  std::string stored(const char* path, const char* name, int* type) {
    std::string text;
    if (!engine.registry.value(kCU, path, name, type, &text)) return "<none>";
    return text;
  }

  TestInstaller engine;
};

TEST_F(RegistryTest, ReadConvertsEachTypeToText) {
  makeKey("Software/Vendor");
  const unsigned char dword[4] = {0xFF, 0, 0, 0};
  const unsigned char big[4] = {0x0D, 0xF0, 0xAD, 0x8B};
  const unsigned char bytes[3] = {0x00, 0xAB, 0x7F};
  const unsigned char multi[4] = {'a', 0, 'b', 0};
  MemoryRegistry& r = engine.registry;
  r.writeValue(kCU, "Software\\Vendor", "Text", kRegSz, reinterpret_cast<const unsigned char*>("C:\\x"), 4);
  r.writeValue(kCU, "Software\\Vendor", "Expand", kRegExpandSz, reinterpret_cast<const unsigned char*>("%T%"), 3);
  r.writeValue(kCU, "Software\\Vendor", "Small", kRegDword, dword, 4);
  r.writeValue(kCU, "Software\\Vendor", "Big", kRegDword, big, 4);
  r.writeValue(kCU, "Software\\Vendor", "Bytes", kRegBinary, bytes, 3);
  r.writeValue(kCU, "Software\\Vendor", "Multi", 7, multi, 4);
  r.writeValue(kCU, "Software\\Vendor", "", kRegSz, reinterpret_cast<const unsigned char*>("default"), 7);

  EXPECT_EQ("C:\\x", read("Software\\Vendor", "Text"));
  EXPECT_EQ("%T%", read("Software\\Vendor", "Expand"));
  EXPECT_EQ("FF", read("Software\\Vendor", "Small"));
  EXPECT_EQ("8BADF00D", read("Software\\Vendor", "Big"));
  EXPECT_EQ("00ab7f", read("Software\\Vendor", "Bytes"));
  EXPECT_EQ("<fail>", read("Software\\Vendor", "Multi"));
  EXPECT_EQ("default", read("Software\\Vendor", nullptr));
  // Both separators, any run of them, names in any case.
  EXPECT_EQ("FF", read("/software//VENDOR/", "small"));
  EXPECT_EQ("<fail>", read("Software\\Vendor", "Missing"));
  EXPECT_EQ("<fail>", read("Software\\Nothing", "Text"));

  char out[64];
  EXPECT_EQ(0, engine.readRegistryValue("hkey_current_user", "Software\\Vendor", "Text", out, sizeof out, true));
  EXPECT_TRUE(r.lastView32);
  EXPECT_NE(0, engine.readRegistryValue("HKEY_NOWHERE", "Software\\Vendor", "Text", out, sizeof out, false));
}

TEST_F(RegistryTest, ReadFailsWhenTheDataDoesNotFitTheField) {
  // The field of `size` bytes stands for `size` wide characters, the
  // terminator included; binary data may take twice that many bytes.
  setText("Software\\Fit", "Text", "abcd");
  EXPECT_EQ("abcd", read("Software\\Fit", "Text", 5));
  EXPECT_EQ("<fail>", read("Software\\Fit", "Text", 4));
  int created;
  engine.setRegistryValue(kCU, "Software\\Fit", "REG_BINARY", "Bytes", "0102030405060708", &created);
  EXPECT_EQ("010", read("Software\\Fit", "Bytes", 4));
  EXPECT_EQ("<fail>", read("Software\\Fit", "Bytes", 3));
}

TEST_F(RegistryTest, OneWildcardTakesTheLastSubKeyFirstThenTheOthersInOrder) {
  setText("Software\\Vendor\\Product\\1.0", "Path", "one");
  setText("Software\\Vendor\\Product\\2.0", "Path", "two");
  setText("Software\\Vendor\\Product\\3.0", "Path", "three");
  setText("Software\\Vendor\\Product\\4.0", "Other", "x");
  // 4.0 comes first but lacks the value; then the list from its start.
  EXPECT_EQ("one", find("Software/Vendor/Product/*", "Path"));
  engine.deleteRegistryValue(kCU, "Software\\Vendor\\Product\\1.0", "Path");
  EXPECT_EQ("two", find("Software\\Vendor\\Product\\*", "Path"));
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product\\4.0", nullptr, "Path", "four", nullptr);
  EXPECT_EQ("four", find("Software\\Vendor\\Product\\*", "Path"));
  EXPECT_EQ("<fail>", find("Software\\Vendor\\Product\\*", "Nothing"));
  EXPECT_EQ("<fail>", find("Software\\Missing\\*", "Path"));
}

TEST_F(RegistryTest, WildcardWithPrefixTailAndTwoWildcards) {
  setText("Software\\AppOne\\Setup", "Dir", "one");
  setText("Software\\AppTwo\\Setup", "Dir", "two");
  setText("Software\\AppTwo\\Other", "Dir", "other");
  setText("Software\\appZ\\Setup", "Dir", "lower");   // the prefix compares with case
  setText("Software\\Zother\\Setup", "Dir", "other");  // listed last, but no match
  EXPECT_EQ("two", find("Software\\App*\\Setup", "Dir"));

  // Rounds: A and B replace the pattern (B first); then B's sub-keys, last
  // first, then A's, last first.
  setText("Root\\A\\Ver\\p", "V", "A-p");
  setText("Root\\A\\Ver\\q", "V", "A-q");
  setText("Root\\B\\Ver\\r", "V", "B-r");
  EXPECT_EQ("B-r", find("Root\\*\\Ver\\*", "V"));
  engine.deleteRegistryValue(kCU, "Root\\B\\Ver\\r", "V");
  EXPECT_EQ("A-q", find("Root\\*\\Ver\\*", "V"));
  engine.deleteRegistryValue(kCU, "Root\\A\\Ver\\q", "V");
  EXPECT_EQ("A-p", find("Root\\*\\Ver\\*", "V"));
}

TEST_F(RegistryTest, PreferredKeyIsReadFirstAndFallsBackToTheSearch) {
  setText("Software\\P\\1", "Dir", "one");
  setText("Software\\P\\2", "Dir", "two");
  EXPECT_EQ("two", find("Software\\P\\*", "Dir", ""));
  EXPECT_EQ("one", find("Software\\P\\*", "Dir", "Software\\P\\1"));
  EXPECT_EQ("two", find("Software\\P\\*", "Dir", "Software\\P\\9"));
}

TEST_F(RegistryTest, CreateKeysCountsOnlyNewLevels) {
  EXPECT_EQ(2, engine.createRegistryKeys(kCU, "Software\\Vendor"));
  EXPECT_EQ(0, engine.createRegistryKeys(kCU, "software\\VENDOR"));
  EXPECT_EQ(2, engine.createRegistryKeys(kCU, "Software/Vendor/Product/1.0"));
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Software\\Vendor\\Product\\1.0"));
  EXPECT_EQ(0, engine.createRegistryKeys("HKEY_NOWHERE", "Software\\X"));
  EXPECT_EQ(0, engine.createRegistryKeys(kCU, nullptr));
}

TEST_F(RegistryTest, CreateKeysTakesBackWhatItMadeWhenALevelFails) {
  makeKey("Software\\Vendor");
  size_t before = engine.registry.keyCount();
  engine.registry.refuseCreate = "Software\\Vendor\\A\\B\\C";
  EXPECT_EQ(0, engine.createRegistryKeys(kCU, "Software\\Vendor\\A\\B\\C\\D"));
  EXPECT_EQ(before, engine.registry.keyCount());
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Software\\Vendor"));

  // A value on such a key is not written, and no levels are reported.
  int created = -1;
  EXPECT_NE(0, engine.setRegistryValue(kCU, "Software\\Vendor\\A\\B\\C", "REG_SZ", "N", "v", &created));
  EXPECT_EQ(0, created);
  EXPECT_FALSE(engine.registry.hasKey(kCU, "Software\\Vendor\\A"));
}

TEST_F(RegistryTest, DeleteKeysWalksUpwardAndStopsAtNothing) {
  makeKey("Software\\Vendor\\Product\\Sub");
  makeKey("Software\\Vendor\\Keep");
  makeKey("Software\\Other");
  EXPECT_EQ(-1, engine.deleteRegistryKeys(kCU, "Software\\Vendor\\Product", 0));
  EXPECT_EQ(-1, engine.deleteRegistryKeys(nullptr, "Software", 1));
  EXPECT_EQ(0, engine.deleteRegistryKeys(kCU, "Software\\Vendor\\Product", 4));
  EXPECT_EQ(0, engine.deleteRegistryKeys(kCU, "Software\\Vendor\\Product", -2));
  // Product has a sub-key: it stays, and so does Vendor above it.
  EXPECT_EQ(0, engine.deleteRegistryKeys(kCU, "Software\\Vendor\\Product", 2));
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Software\\Vendor\\Product"));
  // A missing lowest level doesn't stop the walk.
  EXPECT_EQ(2, engine.deleteRegistryKeys(kCU, "Software\\Vendor\\Product\\Sub\\Gone", 3));
  EXPECT_FALSE(engine.registry.hasKey(kCU, "Software\\Vendor\\Product"));
  // Software still holds Other.
  EXPECT_EQ(2, engine.deleteRegistryKeys(kCU, "software/vendor/keep", 3));
  EXPECT_FALSE(engine.registry.hasKey(kCU, "Software\\Vendor"));
  EXPECT_TRUE(engine.registry.hasKey(kCU, "Software"));
}

TEST_F(RegistryTest, SetValueWritesEachTypeAndReportsNewLevels) {
  makeKey("Software\\Vendor");
  int created = -1;
  EXPECT_EQ(0, engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_SZ", "Dir", "C:\\P", &created));
  EXPECT_EQ(1, created);
  EXPECT_EQ(0, engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "reg_dword", "Hex", "ff", &created));
  EXPECT_EQ(0, created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_DWORD", "Max", "1FFFFFFFF", &created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_DWORD", "Junk", "zz", &created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_BINARY", "Bin", "0aFF10", &created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_BINARY", "Odd", "abcde", &created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", "REG_MULTI_SZ", "Other", "text", &created);
  engine.setRegistryValue(kCU, "Software\\Vendor\\Product", nullptr, "Plain", "text", &created);

  const struct {
    const char* name;
    int type;
    const char* data;
  } kExpected[] = {{"Dir", kRegSz, "C:\\P"},       {"Hex", kRegDword, "255"},   {"Max", kRegDword, "4294967295"},
                   {"Junk", kRegDword, "0"},        {"Bin", kRegBinary, "0aff10"}, {"Odd", kRegBinary, "0000"},
                   {"Other", kRegSz, ""},           {"Plain", kRegSz, "text"}};
  for (const auto& expected : kExpected) {
    int type = 0;
    EXPECT_EQ(expected.data, stored("Software\\Vendor\\Product", expected.name, &type)) << expected.name;
    EXPECT_EQ(expected.type, type) << expected.name;
  }

  // The whole chain is new under an empty hive.
  EXPECT_EQ(0, engine.setRegistryValue(kCU, "A\\B\\C", "REG_SZ", "N", "v", &created));
  EXPECT_EQ(3, created);
  EXPECT_EQ(-1, engine.setRegistryValue("HKEY_NOWHERE", "A", "REG_SZ", "N", "v", &created));
}

TEST(RegistryWithoutStore, EveryOperationFails) {
  class NoRegistry : public TestInstaller {
   public:
    RegistryAccess* getRegistry() override { return nullptr; }
  } engine;
  char out[16];
  int created = 7;
  EXPECT_NE(0, engine.findRegistryValue(kCU, "A\\*", "N", out, sizeof out, "A", '*'));
  EXPECT_NE(0, engine.setRegistryValue(kCU, "A", "REG_SZ", "N", "v", &created));
  EXPECT_EQ(0, created);
  EXPECT_EQ(-1, engine.deleteRegistryKeys(kCU, "A", 1));
}

}  // namespace
