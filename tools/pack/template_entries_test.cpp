// Tests of the expansion of folder and wildcard entries and of the uninstall
// data that the builder fills in itself.
#include "tools/pack/template_entries.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "package/test_writer.h"

namespace {

namespace fs = std::filesystem;

// A source folder of the test's own, and the template expanded over it.
class ExpandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "qlux_expand_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
    source = pattern;
  }
  void TearDown() override { fs::remove_all(source); }

  void file(const std::string& path, const std::string& text = "x", bool program = false) {
    fs::create_directories(fs::path(source + "/" + path).parent_path());
    ASSERT_TRUE(testwriter::writeFile(source + "/" + path, text));
    chmod((source + "/" + path).c_str(), program ? 0755 : 0644);
  }

  // Expands a template whose Installation holds `body`.
  std::string expand(const std::string& body, StubKind stub = StubKind::kLinux,
                     const std::string& templateName = "install.xml") {
    text = "<HalvoWorksInstallation><Installation>\n" + body + "\n</Installation></HalvoWorksInstallation>\n";
    XmlSource xml;
    EXPECT_TRUE(xml.parse(text)) << xml.error;
    ExpandOptions options;
    options.templatePath = source + "/" + templateName;
    options.source = source;
    options.stub = source + "/stub";
    options.stubKind = stub;
    result = ExpandedTemplate();
    findings = Findings();
    expandTemplate(xml, options, &result, &findings);
    return result.text;
  }

  const PackEntry* entry(const std::string& key) const {
    for (const PackEntry& e : result.entries)
      if (e.key == key) return &e;
    return nullptr;
  }

  std::string source, text;
  ExpandedTemplate result;
  Findings findings;
};

TEST_F(ExpandTest, AFolderBecomesOneEntryPerFile) {
  file("lib/b.py");
  file("lib/a/x.py", "x", true);
  file("lib/a/x.pyc");
  file("lib/cache/junk.txt");
  file("lib/tests/data/big.bin");
  fs::create_directories(source + "/lib/empty");
  fs::create_symlink("a/x.py", source + "/lib/latest.py");
  std::string expanded =
      expand("    <FileSet Name=\"S\">\n      <FN Dest=\"[D]/lib\" Recurse=\"1\" Condition=\"[X]==1\" "
             "Exclude=\"*.pyc; cache ;tests/data\">lib</FN>\n    </FileSet>");
  EXPECT_TRUE(findings.empty());
  // Sorted, indented as the entry was, the folder entry's own attributes
  // left behind and the others copied.
  EXPECT_NE(std::string::npos,
            expanded.find("      <FN Dest=\"[D]/lib/a\" Condition=\"[X]==1\" Executable=\"1\">lib/a/x.py</FN>\n"
                          "      <FN Dest=\"[D]/lib\" Condition=\"[X]==1\">lib/b.py</FN>\n"
                          "      <FN Dest=\"[D]/lib/empty\" Alias=\"qlux:empty-folder\" OkIfMissing=\"1\" "
                          "Condition=\"[X]==1\">(empty folder)</FN>\n"
                          "      <FN Dest=\"[D]/lib\" Condition=\"[X]==1\" Symlink=\"1\">lib/latest.py</FN>\n"
                          "    </FileSet>"))
      << expanded;
  EXPECT_EQ(std::string::npos, expanded.find("junk")) << expanded;
  EXPECT_EQ(std::string::npos, expanded.find("big.bin")) << expanded;
  ASSERT_NE(nullptr, entry("liblatest.py"));
  EXPECT_TRUE(entry("liblatest.py")->inMemory);
  EXPECT_EQ("a/x.py", entry("liblatest.py")->contents);
  EXPECT_EQ(source + "/lib/a/x.py", entry("libax.py")->source);
  EXPECT_EQ(nullptr, entry("qlux:empty-folder"));  // nothing is packed for it
  EXPECT_EQ(3u, result.installed.size());
}

TEST_F(ExpandTest, WildcardsTakeTheNamesThatMatch) {
  file("lib/a.py");
  file("lib/b.txt");
  file("lib/sub/c.py");
  std::string flat = expand("<FileSet Name=\"S\"><FN Dest=\"/opt/x\">lib/*.py</FN></FileSet>");
  EXPECT_NE(std::string::npos, flat.find("<FN Dest=\"/opt/x\">lib/a.py</FN></FileSet>")) << flat;
  EXPECT_EQ(1u, result.entries.size());
  std::string deep = expand("<FileSet Name=\"S\"><FN Dest=\"/opt/x\" Recurse=\"1\">lib/*.py</FN></FileSet>");
  EXPECT_NE(std::string::npos, deep.find("<FN Dest=\"/opt/x/sub\">lib/sub/c.py</FN>")) << deep;
  EXPECT_EQ(2u, result.entries.size());
}

TEST_F(ExpandTest, KeysStayUnique) {
  // "a/bc" and "ab/c" would both be "abc"; the later one gets a key of its own.
  file("d/a/bc");
  file("d/ab/c");
  std::string expanded = expand("<FileSet Name=\"S\"><FN Dest=\"/x\" Recurse=\"1\">d</FN></FileSet>");
  EXPECT_NE(std::string::npos, expanded.find("<FN Dest=\"/x/a\">d/a/bc</FN>")) << expanded;
  EXPECT_NE(std::string::npos, expanded.find("<FN Dest=\"/x/ab\" Alias=\"qlux:1:c\">d/ab/c</FN>")) << expanded;
  // Nothing to expand: the template is packed byte for byte.
  file("plain.txt");
  std::string plain = "<FileSet Name=\"S\">  <FN Dest=\"/x\" >plain.txt</FN></FileSet><!-- as written -->";
  std::string packed = expand(plain);
  EXPECT_EQ(text, packed);
}

TEST_F(ExpandTest, AutoUninstallDataForEachSystem) {
  std::string body =
      "    <Uninstall Auto=\"1\" Dest=\"[APP]/uninstall/\"/>\n"
      "    <UninstallWildcards><Files Dest=\"[APP]\">*.tmp</Files></UninstallWildcards>";
  std::string forLinux = expand(body);
  EXPECT_NE(std::string::npos, forLinux.find("<UninstallCmd>[APP]/uninstall/uninstall</UninstallCmd>")) << forLinux;
  EXPECT_NE(std::string::npos,
            forLinux.find("<FN Dest=\"[APP]/uninstall\" Alias=\"qlux:uninstaller\" Executable=\"1\">uninstall</FN>"));
  EXPECT_NE(std::string::npos,
            forLinux.find("<Files Dest=\"[APP]\">*.tmp</Files><Files Dest=\"[APP]/uninstall\">templog.log</Files>"));
  EXPECT_EQ(source + "/stub", entry("qlux:uninstaller")->source);
  // The template's copy carries the expanded text.
  EXPECT_EQ(forLinux, entry("install.xml")->contents);
  EXPECT_EQ(4u, result.installed.size());

  std::string forWindows = expand(body, StubKind::kWindows);
  EXPECT_NE(std::string::npos, forWindows.find("<UninstallCmd>[APP]/uninstall/uninstall.exe</UninstallCmd>"));
  EXPECT_NE(std::string::npos, forWindows.find("Alias=\"qlux:uninstaller\">uninstall.exe</FN>"));
}

// The template's copy is the template as packed, whatever the template's
// own file is called and wherever a file of that name lies.
TEST_F(ExpandTest, AnEntryNamedInstallXmlIsTheTemplate) {
  file("product.xml", "<the template on disk/>");
  file("etc/install.xml", "<another file/>");
  std::string packed = expand("<FileSet Name=\"S\"><FN Dest=\"/x\">install.xml</FN><FN Dest=\"/x/u\">product.xml</FN>"
                              "<FN Dest=\"/x/etc\">etc/install.xml</FN></FileSet>",
                              StubKind::kLinux, "product.xml");
  EXPECT_TRUE(findings.empty());
  ASSERT_NE(nullptr, entry("install.xml"));
  EXPECT_EQ(packed, entry("install.xml")->contents);
  EXPECT_EQ(packed, entry("product.xml")->contents);
  // A different file that happens to be called install.xml stays itself.
  EXPECT_FALSE(entry("etcinstall.xml")->inMemory);
}

TEST_F(ExpandTest, ProblemsAreFoundNotPacked) {
  file("lib/a.txt");
  fs::create_symlink("a.txt", source + "/lib/link.txt");
  expand("<FileSet Name=\"S\"><FN Dest=\"/x\" Recurse=\"1\">lib</FN><FN Dest=\"/x\">gone.txt</FN>"
         "<FN Dest=\"/x\" Alias=\"k\" Recurse=\"1\">lib</FN><FN Dest=\"/x\">l*/a.txt</FN></FileSet>",
         StubKind::kWindows);
  std::string all;
  for (const Finding& finding : findings.all()) all += finding.message + "\n";
  EXPECT_EQ(
      "lib/link.txt is a symbolic link, which the Windows program can't make\n"
      "the file gone.txt is not in the source folder " + source + "\n"
      "an Alias can't name the many files of a folder or wildcard entry\n"
      "wildcards may stand only in the last part of an entry's path\n",
      all);
}

}  // namespace
