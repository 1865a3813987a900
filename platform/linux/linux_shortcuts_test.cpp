// Tests of shortcuts and the firewall on Linux: desktop entries, the
// firewall tools' steps, and links.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "gtest/gtest.h"
#include "platform/linux/desktop_entry.h"
#include "platform/linux/firewall_linux.h"
#include "platform/linux/linux_installer.h"

namespace {

std::string readAll(const std::string& path) {
  std::string text;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return "<missing>";
  char block[4096];
  size_t n;
  while ((n = std::fread(block, 1, sizeof block, file)) > 0) text.append(block, n);
  std::fclose(file);
  return text;
}

std::string scratch(const char* name) {
  char directory[1024];
  EXPECT_NE(nullptr, getcwd(directory, sizeof directory));
  return std::string(directory) + "/" + name;
}

// The arguments of each step, joined by blanks, the tool's path first.
std::vector<std::string> joined(const std::vector<LinuxFirewall::Step>& steps) {
  std::vector<std::string> lines;
  for (const LinuxFirewall::Step& step : steps) {
    std::string line;
    for (const std::string& argument : step.arguments) line += (line.empty() ? "" : " ") + argument;
    lines.push_back(line + (step.mayFail ? " (may fail)" : ""));
  }
  return lines;
}

TEST(DesktopEntryTest, ExecQuotesEachArgumentAndEscapesWhatTheFormatReads) {
  EXPECT_EQ("\"/opt/My App/run\"", DesktopEntry::execLine("/opt/My App/run", nullptr));
  EXPECT_EQ("\"/p\" \"-uninstall=/opt/a b/install.log\" \"-uninstallApp=Demo\" \"x\"",
            DesktopEntry::execLine("/p", "  -uninstall=\"/opt/a b/install.log\"   -uninstallApp=\"Demo\" x"));
  EXPECT_EQ("\"/p\" \"100%%\" \"\\$HOME\" \"a\\\\b\" \"\"", DesktopEntry::execLine("/p", "100% $HOME a\\b \"\""));

  std::string entry = DesktopEntry::application("Tool", "Runs\tthe tool", "\"/p\" \"a\\\\b\"", "/opt/x");
  EXPECT_EQ(
      "[Desktop Entry]\nType=Application\nName=Tool\nComment=Runs\\tthe tool\nExec=\"/p\" \"a\\\\\\\\b\"\n"
      "Path=/opt/x\n",
      entry);
  EXPECT_EQ("[Desktop Entry]\nType=Link\nName=Site\nComment=\nURL=http://example.org/\n",
            DesktopEntry::link("Site", nullptr, "http://example.org/"));
  EXPECT_EQ("Tool", DesktopEntry::nameOf("/opt/menu/Tool.lnk"));
  EXPECT_EQ("Tool v1", DesktopEntry::nameOf("C:\\menu\\Tool v1.desktop"));
  EXPECT_EQ(".hidden", DesktopEntry::nameOf("/x/.hidden"));
}

TEST(LinuxFirewallTest, StepsForEachTool) {
  EXPECT_EQ("qlux-TCP-UDP-8080", LinuxFirewall::serviceName("TCP;UDP 8080"));
  std::vector<std::string> add = {"fc --permanent --new-service=qlux-TCP-UDP-8080 (may fail)",
                                  "fc --permanent --service=qlux-TCP-UDP-8080 --add-port=8080/tcp --add-port=8080/udp",
                                  "fc --permanent --add-service=qlux-TCP-UDP-8080", "fc --reload"};
  EXPECT_EQ(add, joined(LinuxFirewall::addPortSteps(LinuxFirewall::kFirewallCmd, "fc", 8080, 3, "TCP;UDP 8080")));
  std::vector<std::string> remove = {"fc --permanent --remove-service=qlux-8080",
                                     "fc --permanent --delete-service=qlux-8080 (may fail)", "fc --reload"};
  EXPECT_EQ(remove, joined(LinuxFirewall::removePortSteps(LinuxFirewall::kFirewallCmd, "fc", 8080, 3, "8080")));

  EXPECT_EQ(std::vector<std::string>{"ufw allow 8080 comment 8080"},
            joined(LinuxFirewall::addPortSteps(LinuxFirewall::kUfw, "ufw", 8080, 3, "8080")));
  EXPECT_EQ(std::vector<std::string>{"ufw allow 53/udp comment UDP 53"},
            joined(LinuxFirewall::addPortSteps(LinuxFirewall::kUfw, "ufw", 53, 2, "UDP 53")));
  EXPECT_EQ(std::vector<std::string>{"ufw delete allow 22/tcp"},
            joined(LinuxFirewall::removePortSteps(LinuxFirewall::kUfw, "ufw", 22, 1, "tcp 22")));
}

TEST(LinuxShortcutsTest, EntriesAreExecutableAndSymlinksLeadToTheirTarget) {
  std::string directory = scratch("linux-shortcuts");
  ASSERT_TRUE(QUtils::makeDirectory(directory.c_str()));
  LinuxInstaller engine(0, 0, 0);
  char form[2048];

  std::string entry = directory + "/Tool.lnk";
  ASSERT_TRUE(engine.createShortcut("File", entry.c_str(), "/opt/tool/run", "The tool", "-v \"a b\"", nullptr, form,
                                    sizeof form, nullptr));
  EXPECT_EQ("CREATE\t" + entry, std::string(form));
  EXPECT_EQ("[Desktop Entry]\nType=Application\nName=Tool\nComment=The tool\nExec=\"/opt/tool/run\" \"-v\" \"a b\"\n",
            readAll(entry));
  struct stat info;
  ASSERT_EQ(0, stat(entry.c_str(), &info));
  EXPECT_EQ(0755u, info.st_mode & 07777u);

  // A symbolic link at the path is replaced, never written through.
  std::string outside = directory + "/outside.txt";
  std::FILE* file = std::fopen(outside.c_str(), "wb");
  ASSERT_NE(nullptr, file);
  std::fclose(file);
  std::string site = directory + "/Site.url";
  ASSERT_EQ(0, symlink(outside.c_str(), site.c_str()));
  ASSERT_TRUE(engine.createShortcut("URL", site.c_str(), "http://example.org/", "", nullptr, nullptr, form, sizeof form,
                                    nullptr));
  EXPECT_FALSE(QUtils::isLink(site.c_str()));
  EXPECT_EQ("", readAll(outside));

  std::string link = directory + "/latest";
  ASSERT_TRUE(engine.createShortcut("Symlink", link.c_str(), outside.c_str(), "", nullptr, nullptr, form, sizeof form,
                                    nullptr));
  char target[1024] = "";
  ASSERT_GT(readlink(link.c_str(), target, sizeof target - 1), 0);
  EXPECT_EQ(outside, std::string(target));
  // Without a template there is no uninstall command to link to.
  EXPECT_FALSE(engine.createShortcut("Uninstall", (directory + "/Remove.lnk").c_str(), nullptr, "", nullptr, nullptr,
                                     form, sizeof form, nullptr));
  EXPECT_EQ("", std::string(form));

  QUtils::deleteTree(directory.c_str());
}

}  // namespace
