// Tests of the upgrade policy: comparing versions, and what an installed
// newer or equal version means for this run.
#include <gtest/gtest.h>

#include <string>

#include "engine/exit_codes.h"
#include "engine/test_support.h"

namespace {

TEST(UpgradePolicyTest, VersionsCompareNumberByNumber) {
  EXPECT_EQ(0, Installer::compareVersions("1.2.0", "1.2"));
  EXPECT_EQ(1, Installer::compareVersions("1.10.0", "1.9.9"));
  EXPECT_EQ(-1, Installer::compareVersions("1.2.0", "1.2.1"));
  EXPECT_EQ(-1, Installer::compareVersions("0.9", "1"));
  // Parts that aren't numbers compare as text.
  EXPECT_EQ(1, Installer::compareVersions("2.0.b", "2.0.a"));
}

// An engine whose product (Demo 1.2.0, ProductDesc with `attributes`) finds
// `installed` registered.
class PolicyEngine : public TestInstaller {
 public:
  PolicyEngine(const char* attributes, const char* installed) {
    std::string text = std::string("<HalvoWorksInstallation><ProductDesc ") + attributes +
                       "><Fullname>Demo</Fullname><MajorVersion>1</MajorVersion><MinorVersion>2</MinorVersion>"
                       "<MinestVersion>0</MinestVersion></ProductDesc></HalvoWorksInstallation>";
    loadTemplate(text.c_str());
    const char* key = "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Demo";
    createRegistryKeys("HKEY_LOCAL_MACHINE", key);
    setRegistryValue("HKEY_LOCAL_MACHINE", key, "REG_SZ", "DisplayVersion", installed, nullptr);
    previousInstallationFound = 1;
  }
  int code() {
    char text[256];
    return getExitCode(0, text, sizeof text);
  }
  RecordingUI ui;
};

TEST(UpgradePolicyTest, ANewerInstalledVersionIsRefusedUnlessTheTemplateAllowsIt) {
  PolicyEngine refusing("", "1.10.0");
  EXPECT_EQ(-1, refusing.applyUpgradePolicy(&refusing.ui));
  EXPECT_EQ(kExitBadUsage, refusing.code());
  ASSERT_EQ(1u, refusing.ui.messages.size());
  EXPECT_NE(std::string::npos, refusing.ui.messages[0].find("Demo 1.10.0 is installed, which is newer than 1.2.0"));

  PolicyEngine allowing("IfNewerInstalled=\"Allow\"", "1.10.0");
  EXPECT_EQ(0, allowing.applyUpgradePolicy(&allowing.ui));
  EXPECT_TRUE(allowing.ui.messages.empty());
  // An older installed version is always replaced.
  PolicyEngine older("", "1.1.9");
  EXPECT_EQ(0, older.applyUpgradePolicy(&older.ui));
}

TEST(UpgradePolicyTest, TheSameVersionIsReinstalledOrSkippedByPolicy) {
  PolicyEngine reinstalling("", "1.2.0");
  EXPECT_EQ(0, reinstalling.applyUpgradePolicy(&reinstalling.ui));
  PolicyEngine skipping("IfSameInstalled=\"Skip\"", "1.2");
  EXPECT_EQ(-1, skipping.applyUpgradePolicy(&skipping.ui));
  EXPECT_EQ(kExitSuccess, skipping.code());
  EXPECT_EQ(std::vector<std::string>{"Demo 1.2.0 is installed already; there is nothing to do."},
            skipping.ui.messages);
  // Without a registered version nothing is compared.
  PolicyEngine unknown("IfSameInstalled=\"Skip\"", "");
  EXPECT_EQ(0, unknown.applyUpgradePolicy(&unknown.ui));
}

}  // namespace
