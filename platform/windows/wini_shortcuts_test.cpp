// Tests of shortcuts and the firewall on Windows: shell links, internet
// shortcuts, and a failing firewall removal.
#include <windows.h>

#include <string>
#include <vector>

#include "foundation/console.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "gtest/gtest.h"
#include "platform/windows/wini.h"

namespace {

// Keeps the debug log's lines.
class KeptLines : public QUtils::PConsole {
 public:
  KeptLines() { flags = 0; }
  int write(const char* text, int length) override {
    all.append(text, static_cast<size_t>(length));
    return 0;
  }
  std::string all;
};

std::string scratch(const char* name) {
  char directory[QUtils::kMaxPath];
  DWORD length = GetCurrentDirectoryA(sizeof directory, directory);
  EXPECT_GT(length, 0u);
  return std::string(directory) + "\\" + name;
}

TEST(WiniShortcutsTest, ShellLinksAndInternetShortcutsAreSaved) {
  std::string directory = scratch("wini-shortcuts");
  ASSERT_TRUE(QUtils::makeDirectory(directory.c_str()));
  Wini engine(0, 0, 0);
  char form[2048];

  std::string link = directory + "\\Tool.lnk";
  ASSERT_TRUE(engine.createShortcut("File", link.c_str(), "C:\\windows\\notepad.exe", "Notepad", "-x", "C:\\", form,
                                    sizeof form, nullptr));
  EXPECT_EQ("CREATE\t" + link, std::string(form));
  EXPECT_TRUE(QUtils::fileExists(link.c_str()));

  std::string site = directory + "\\Site.url";
  ASSERT_TRUE(engine.createShortcut("URL", site.c_str(), "http://example.org/", "", nullptr, nullptr, form, sizeof form,
                                    nullptr));
  EXPECT_TRUE(QUtils::fileExists(site.c_str()));

  std::string symlink = directory + "\\latest";
  EXPECT_FALSE(engine.createShortcut("Symlink", symlink.c_str(), link.c_str(), "", nullptr, nullptr, form, sizeof form,
                                     nullptr));
  EXPECT_FALSE(QUtils::fileExists(symlink.c_str()));
  EXPECT_EQ(1, engine.errorList->getCount());

  QUtils::deleteTree(directory.c_str());
}

TEST(WiniShortcutsTest, ABadPortRemovalTextFailsWithItsLogLine) {
  Wini engine(0, 0, 0);
  KeptLines lines;
  engine.logConsole = &lines;
  EXPECT_FALSE(engine.removeFirewallPort("my web port"));
  engine.logConsole = nullptr;
  EXPECT_NE(std::string::npos, lines.all.find("ERROR: (Firewall Port) Invalid port removal string my web port"))
      << lines.all;
}

}  // namespace
