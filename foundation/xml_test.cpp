// Tests of the XML document: the string pool, parsing (malformed input
// included), and finding elements.
#include "foundation/xml.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#define QLUX_SEP "\\"
#define QLUX_EOL "\r\n"
#else
#include <unistd.h>
#define QLUX_SEP "/"
#define QLUX_EOL "\n"
#endif

namespace QUtils {
namespace {

std::string shown(const char* text) { return text ? text : "<null>"; }

// Same elements in the same order. A null value reads back as an empty one,
// since the writer gives every element a body.
void expectSameDocument(const PXML& a, const PXML& b) {
  ASSERT_EQ(a.getCount(), b.getCount());
  for (int i = 0; i < a.getCount(); i++) {
    SCOPED_TRACE(std::to_string(i) + " " + a.getName(i));
    EXPECT_STREQ(a.getName(i), b.getName(i));
    EXPECT_EQ(a.getParent(i), b.getParent(i));
    bool parent = i + 1 < a.getCount() && a.getParent(i + 1) == i;
    EXPECT_EQ(parent ? "<null>" : std::string(a.getValue(i) ? a.getValue(i) : ""), shown(b.getValue(i)));
    ASSERT_EQ(a.getAttributeCount(i), b.getAttributeCount(i));
    for (int n = 0; n < a.getAttributeCount(i); n++) {
      EXPECT_STREQ(a.getAttributeName(i, n), b.getAttributeName(i, n));
      EXPECT_STREQ(a.getAttributeValue(i, n), b.getAttributeValue(i, n));
    }
  }
}

TEST(StringPoolTest, LongTextsKeepTheBlockBeingFilledLast) {
  PStringPool pool;
  char* a = pool.add("abc");
  char* b = pool.add(std::string(1000, 'x').c_str());
  EXPECT_EQ(std::string(1000, 'x'), b);
  EXPECT_EQ(a + 4, pool.add("de"));
  EXPECT_EQ(2, pool.getBlockCount());
  pool.add(std::string(PStringPool::kBlockSize - 8, 'y').c_str());  // 7 + 249 fills it exactly
  EXPECT_EQ(2, pool.getBlockCount());
  pool.add("");
  EXPECT_EQ(3, pool.getBlockCount());
  EXPECT_STREQ("abc", a);
}

TEST(XMLParseTest, Attributes) {
  PXML doc;
  doc.parse("<A x='1' Y=\"it's\" z = \"&lt;&amp;&gt;&quot;&apos;\" y='later'/>");
  ASSERT_EQ(1, doc.getCount());
  EXPECT_STREQ("", doc.getValue(0));
  EXPECT_EQ(4, doc.getAttributeCount(0));
  EXPECT_STREQ("1", doc.getAttribute(0, "X"));
  EXPECT_STREQ("<&>\"'", doc.getAttribute(0, "z"));
  EXPECT_STREQ("later", doc.getAttribute(0, "y"));  // the later of one name wins

  // An unterminated attribute ends the tag's reading; what came before stays.
  for (const char* text : {"<R a=\"1\" b=\"2></R>", "<R a=\"1\" b></R>", "<R a=\"1\" b=></R>"}) {
    PXML d;
    d.parse(text);
    EXPECT_EQ(1, d.getAttributeCount(0)) << text;
    EXPECT_STREQ("1", d.getAttribute(0, "a")) << text;
  }
  // A '>' inside quotes ends the tag; the rest becomes text.
  PXML gt;
  gt.parse("<A b=\"1>2\">t</A>");
  EXPECT_EQ(0, gt.getAttributeCount(0));
  EXPECT_STREQ("2\">t", gt.getValue(0));
}

TEST(XMLParseTest, ValuesOnlyOnElementsWithoutChildren) {
  struct {
    const char* text;
    const char* element;
    const char* value;
  } cases[] = {
      {"<A>  text  </A>", "A", "text"},
      {"<A> \t\r\n </A>", "A", ""},
      {"<A><B>x</B></A>", "A", nullptr},
      {"<A><B>x</B></A>", "B", "x"},
      {"<A>one<B/>two</A>", "A", nullptr},
      {"<A><B></B>tail</A>", "A", nullptr},
      {"<A>x<!-- c -->y</A>", "A", "y"},
      {"<A>line1\r\nline2</A>", "A", "line1\r\nline2"},
      {"<A>&amp;lt;</A>", "A", "&lt;"},
      {"<A>AT&T &#65; &amp</A>", "A", "AT&T &#65; &amp"},
      {"<A>\xC3\xA9t\xC3\xA9 \xE6\x97\xA5</A>", "A", "\xC3\xA9t\xC3\xA9 \xE6\x97\xA5"},
      {"<A><B>x", "B", nullptr},
  };
  for (const auto& c : cases) {
    PXML doc;
    doc.parse(c.text);
    int index = doc.findNext(c.element, -1);
    EXPECT_EQ(shown(c.value), shown(doc.getValue(index))) << c.text;
    EXPECT_EQ(c.value ? static_cast<int>(std::strlen(c.value)) : 0, doc.getValueLength(index)) << c.text;
  }
}

TEST(XMLParseTest, ToleratesMalformedStructure) {
  PXML mismatched, matched;  // a closing tag closes the innermost element
  mismatched.parse("<A><B>x</C><D/></A>");
  matched.parse("<A><B>x</B><D/></A>");
  expectSameDocument(matched, mismatched);

  std::string nul("<A><B>x</B>");
  nul += '\0';
  nul += "<C/></A>";
  struct {
    const char* text;
    int count;
  } cases[] = {
      {"<A></A><B></B>", 1},  // nothing behind the first top-level element
      {"<A><B><C>text", 3},   // unclosed: all that was made stands
      {"</X><A/>", 0},        // a closing tag with nothing open ends the parse
      {"no markup", 0},
      {nul.c_str(), 2},  // the text ends at its first NUL
      {"<A><B x=\"1\"", 1},  // a tag without its '>' ends the parse
      {"<A><!-- never ends <B/></A>", 1},
  };
  for (const auto& c : cases) {
    PXML doc;
    doc.parse(c.text);
    EXPECT_EQ(c.count, doc.getCount()) << c.text;
  }

  PXML twice;  // parsing again adds to what is there
  twice.parse("<A/>");
  twice.parse("<B><C/></B>");
  ASSERT_EQ(3, twice.getCount());
  EXPECT_EQ(-1, twice.getParent(1));
  EXPECT_EQ(1, twice.getParent(2));
}

TEST(XMLParseTest, CommentsDeclarationsAndDoctype) {
  PXML doc;
  doc.parse(
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<!DOCTYPE Setup>\n<!-- <Fake/> -->\n"
      "<Setup>\n"
      "  <!-- with -- inside, and an arrow ---> <Fake/> that isn't an end -->\n"
      "  <Name>Tool</Name><!----><Version>2</Version>\n"
      "</Setup>\n");
  // The doctype is an element that is never closed; the rest nests in it.
  ASSERT_EQ(4, doc.getCount());
  EXPECT_STREQ("!DOCTYPE", doc.getName(0));
  EXPECT_EQ(0, doc.getParent(doc.findNext("Setup", -1)));
  EXPECT_EQ(-1, doc.findNext("Fake", -1));
  EXPECT_STREQ("2", doc.getValue(doc.findNext("Version", -1)));
}

const char kTree[] =
    "<Root><Installation>"
    "<UninstallWildcards>w</UninstallWildcards><Uninstall><InstallLogFile>log</InstallLogFile></Uninstall>"
    "</Installation><Dialogs>"
    "<Dialog Name=\"one\"><Field>f1</Field></Dialog><Dialog Name=\"two\"><Field>f2</Field><Field>f3</Field></Dialog>"
    "</Dialogs></Root>";

TEST(XMLSearchTest, FindNextAndChildren) {
  PXML doc;
  doc.parse(kTree);
  std::string fields;
  for (int i = doc.findNext("Field", -1); i >= 0; i = doc.findNext("Field", i)) fields += doc.getValue(i);
  EXPECT_EQ("f1f2f3", fields);
  EXPECT_EQ(-1, doc.findNext("Dialo", -1));

  int dialogs = doc.findNext("Dialogs", -1);
  int first = doc.findNextChild(dialogs, "Dialog", -1);
  int second = doc.findNextChild(dialogs, "Dialog", first);
  EXPECT_STREQ("two", doc.getAttribute(second, "name"));
  EXPECT_EQ(-1, doc.findNextChild(dialogs, "Dialog", second));
  EXPECT_EQ(-1, doc.findNextChild(dialogs, "Field", -1));

  PList<int> children;
  EXPECT_EQ(2, doc.getChildren(second, &children));
  EXPECT_EQ(2, doc.getChildren(0, &children));  // appends
  ASSERT_EQ(4, children.getCount());
  EXPECT_STREQ("f3", doc.getValue(children[1]));
  EXPECT_STREQ("Dialogs", doc.getName(children[3]));
}

TEST(XMLSearchTest, FindPathIsForgivingAndFindPathFromIsStrict) {
  PXML doc;
  doc.parse(kTree);
  // Segments match by prefix, so "Uninstall" takes UninstallWildcards.
  PList<int> trail;
  EXPECT_EQ(-1, doc.findPath("/Root/Installation/Uninstall/InstallLogFile", -1, &trail));
  ASSERT_EQ(3, trail.getCount());
  EXPECT_STREQ("UninstallWildcards", doc.getName(trail[2]));
  // An unmatched segment is passed over; a trailing '/' takes the first child.
  EXPECT_STREQ("f1", doc.getValue(doc.findPath("Root/Missing/Dialogs/Dialog/Field", -1)));
  EXPECT_STREQ("Dialog", doc.getName(doc.findPath("Root/Dialogs/", -1)));
  // A start element limits the search to what follows it.
  int first = doc.findPath("Root/Dialogs/Dialog", -1);
  int second = doc.findPath("Dialog", first);
  EXPECT_STREQ("two", doc.getAttribute(second, "Name"));
  EXPECT_STREQ("f2", doc.getValue(doc.findPath("Dialog/Field", first)));
  EXPECT_EQ(-1, doc.findPath("Dialog", second));

  EXPECT_STREQ("log", doc.getValue(doc.findPathFrom("/Root/Installation/Uninstall/InstallLogFile", -1)));
  EXPECT_EQ(-1, doc.findPathFrom("Root/Installation/Uninst", -1));
  EXPECT_EQ(-1, doc.findPathFrom("Root/Missing/Dialogs", -1));
  EXPECT_STREQ("f1", doc.getValue(doc.findPathFrom("Dialog/Field", doc.findNext("Dialogs", -1))));
}

TEST(XMLChangeTest, SetAttributeAndSetPath) {
  PXML doc;
  doc.parse("<Config name=\"first\" Name=\"second\"><Variables></Variables></Config>");
  EXPECT_EQ(0, doc.setAttribute(0, "NAME", "third"));  // replaces what a read finds
  EXPECT_STREQ("first", doc.getAttributeValue(0, 0));
  EXPECT_STREQ("third", doc.getAttributeValue(0, 1));
  EXPECT_EQ(0, doc.setAttribute(0, "none", nullptr));
  EXPECT_EQ(3, doc.getAttributeCount(0));
  EXPECT_EQ(nullptr, doc.getAttribute(0, "none"));
  EXPECT_EQ(-1, doc.setAttribute(2, "x", "y"));

  int value = doc.setPath(0, "Variables/Entry/Value", "1", 0);
  int entry = doc.getParent(value);
  EXPECT_EQ(4, doc.getCount());
  EXPECT_EQ(1, doc.getParent(entry));
  EXPECT_STREQ("", doc.getValue(entry));  // made on the way
  EXPECT_STREQ("1", doc.getValue(value));
  EXPECT_EQ(value, doc.setPath(0, "/Variables//Entry/Value/", nullptr, 0));
  EXPECT_EQ(nullptr, doc.getValue(value));
  // With `always` every call adds a last element beside the others.
  int more = doc.setPath(0, "Variables/Entry/Value", "x", 1);
  EXPECT_NE(value, more);
  EXPECT_EQ(entry, doc.getParent(more));
  EXPECT_STREQ("x", doc.getValue(more));
  EXPECT_EQ(-1, doc.getParent(doc.setPath(-1, "Other", "v", 0)));
  EXPECT_EQ(-1, doc.setPath(99, "X", "v", 0));
  EXPECT_EQ(-1, doc.setPath(0, "/", "v", 0));
}

// Works in a directory of its own under the temporary directory, and removes
// only the files it named, then that directory.
class XMLFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string base = ::testing::TempDir();
    while (base.size() > 1 && (base.back() == '/' || base.back() == '\\')) base.pop_back();
    std::string pattern = base + QLUX_SEP "qlux-xml-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back(0);
#ifdef _WIN32
    ASSERT_TRUE(_mktemp_s(name.data(), name.size()) == 0 && _mkdir(name.data()) == 0);
#else
    ASSERT_NE(nullptr, mkdtemp(name.data()));
#endif
    directory = name.data();
  }
  void TearDown() override {
    for (const std::string& path : made) std::remove(path.c_str());
    if (!directory.empty()) rmdir(directory.c_str());
  }
  std::string file(const char* name) {
    made.push_back(directory + QLUX_SEP + name);
    return made.back();
  }
  static std::string readFile(const std::string& path) {
    std::string content;
    if (FILE* stream = std::fopen(path.c_str(), "rb")) {
      char block[4096];
      size_t count;
      while ((count = std::fread(block, 1, sizeof block, stream)) > 0) content.append(block, count);
      std::fclose(stream);
    }
    return content;
  }

  std::string directory;
  std::vector<std::string> made;
};

TEST_F(XMLFileTest, WritesOneElementPerLine) {
  PXML doc;
  doc.parse("<R a=\"x&amp;y&quot;\"><B>AT&T &lt;b&gt;</B><C/><D><E/></D></R>");
  doc.setPath(doc.findNext("C", -1), "New", nullptr, 0);  // lands behind E in the array
  std::string path = file("out.xml");
  ASSERT_EQ(0, doc.save(path.c_str()));
  EXPECT_EQ("<R a=\"x&amp;y&quot;\">" QLUX_EOL " <B>AT&amp;T &lt;b&gt;</B>" QLUX_EOL " <C>" QLUX_EOL
            "  <New></New>" QLUX_EOL " </C>" QLUX_EOL " <D>" QLUX_EOL "  <E></E>" QLUX_EOL " </D>" QLUX_EOL
            "</R>" QLUX_EOL,
            readFile(path));
  EXPECT_EQ(-1, doc.save(file("no-such-directory" QLUX_SEP "out.xml").c_str()));
}

const char kTemplate[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Installation>\r\n"
    "  <ProductDesc>\r\n"
    "    <Name>Caf\xC3\xA9 &amp; Co \xE2\x84\xA2</Name>\r\n"
    "    <Description>Says &quot;hi&quot; &lt;loudly&gt; &apos;twice&apos;\r\nsecond line</Description>\r\n"
    "  </ProductDesc>\r\n"
    "  <FileSet Name=\"Main\" Dest=\"[INSTALLDIR]\\bin\">\r\n"
    "    <FN Alias=\"a&amp;b\">bin\\app.exe</FN>\r\n"
    "    <FN OkIfMissing=\"1\">docs/\xE6\x97\xA5\xE6\x9C\xAC.txt</FN>\r\n"
    "    <Empty/>\r\n"
    "  </FileSet>\r\n"
    "  <Dialogs><Dialog Name=\"Welcome\" Condition=\"[A]&lt;&gt;&quot;x&quot;\">\r\n"
    "    <Text Colour='0x00FF00'>Welcome to  [PRODUCT]!</Text>\r\n"
    "  </Dialog></Dialogs>\r\n"
    "</Installation>\r\n";

// Hands out half of what is asked for.
class ShortStream : public PBufStream {
 public:
  int read(void* data, uint32_t size, uint32_t* outCount) override {
    return PBufStream::read(data, size / 2, outCount);
  }
};

TEST_F(XMLFileTest, SaveAndLoadRoundTrip) {
  PXML doc;
  std::string text(kTemplate);
  PBufStream stream;
  stream.setBuffer(&text[0], static_cast<uint32_t>(text.size()));
  ASSERT_EQ(0, doc.load(&stream));
  ASSERT_EQ(11, doc.getCount());
  std::string path = file("install.xml");
  ASSERT_EQ(0, doc.save(path.c_str()));

  PXML back;
  ASSERT_EQ(0, back.load(path.c_str()));
  expectSameDocument(doc, back);
  EXPECT_STREQ("Caf\xC3\xA9 & Co \xE2\x84\xA2", back.getValue(back.findNext("Name", -1)));
  std::string again = file("again.xml");
  ASSERT_EQ(0, back.save(again.c_str()));
  EXPECT_EQ(readFile(path), readFile(again));

  PXML missing;
  EXPECT_NE(0, missing.load(file("missing.xml").c_str()));
  ShortStream shortStream;
  shortStream.setBuffer(&text[0], static_cast<uint32_t>(text.size()));
  EXPECT_EQ(-3, missing.load(&shortStream));
  EXPECT_EQ(0, missing.getCount());
}

TEST_F(XMLFileTest, LargeAndDeepDocuments) {
  std::string text = "<Root>";
  for (int i = 0; i < 4000; i++) {
    std::string n = std::to_string(i);
    text += "<Item Id=\"" + n + "\" Path=\"C:\\dir&amp;" + n + "\"><Value>v" + n + "</Value></Item>";
  }
  text += "</Root>";
  PXML doc;
  doc.parse(text.c_str());
  ASSERT_EQ(8001, doc.getCount());
  int seen = 0, last = -1;
  for (int i = doc.findNext("Item", -1); i >= 0; i = doc.findNext("Item", i), seen++) last = i;
  EXPECT_EQ(4000, seen);
  EXPECT_STREQ("v3999", doc.getValue(doc.findNextChild(last, "Value", -1)));

  std::string deep;  // the writer must not depend on the depth
  for (int i = 0; i < 3000; i++) deep.insert(0, "<N>").append("</N>");
  PXML nested;
  nested.parse(deep.c_str());
  ASSERT_EQ(3000, nested.getCount());

  PXML backDoc, backNested;
  ASSERT_EQ(0, doc.save(file("large.xml").c_str()));
  ASSERT_EQ(0, backDoc.load(made.back().c_str()));
  expectSameDocument(doc, backDoc);
  ASSERT_EQ(0, nested.save(file("deep.xml").c_str()));
  ASSERT_EQ(0, backNested.load(made.back().c_str()));
  expectSameDocument(nested, backNested);
}

}  // namespace
}  // namespace QUtils
