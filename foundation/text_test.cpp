// Tests of the text helpers: CharString, StringBuilder, the lists, and the
// text and path operations.
#include "foundation/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "foundation/convert.h"
#include "foundation/errors.h"

namespace QUtils {
namespace {

std::string sep(const char* portable) {
  // Tests write paths with '|' where the system's separator goes.
  std::string s(portable);
  for (char& c : s)
    if (c == '|') c = kPathSeparator;
  return s;
}

TEST(CharStringTest, CopiesShareUntilOneIsWritten) {
  CharString a("hello");
  CharString b(a);
  EXPECT_EQ(a.getText(), b.getText());
  EXPECT_EQ(2, a.getReferences());
  b.append(" world");
  EXPECT_STREQ("hello", a.getText());
  EXPECT_STREQ("hello world", b.getText());
  EXPECT_EQ(1, a.getReferences());

  CharString c(a);
  c.makeUnique();
  c.getBuffer()[0] = 'J';
  EXPECT_STREQ("hello", a.getText());
  EXPECT_STREQ("Jello", c.getText());
}

TEST(CharStringTest, NullIsAStateOfItsOwn) {
  CharString none;
  EXPECT_EQ(nullptr, none.getText());
  EXPECT_EQ(0, none.getLength());
  CharString fromNull(static_cast<const char*>(nullptr));
  EXPECT_TRUE(fromNull.isNull());
  CharString empty("");
  EXPECT_FALSE(empty.isNull());
  EXPECT_STREQ("", empty.getText());
  none.append("x");
  EXPECT_STREQ("x", none.getText());
  none.assign(nullptr);
  EXPECT_TRUE(none.isNull());
  empty.assignRange("abc", 0);
  EXPECT_TRUE(empty.isNull());
}

TEST(CharStringTest, LengthOperations) {
  CharString a("abcdef");
  a.setLength(3, 0);  // sole owner: bytes stay even without keep
  EXPECT_STREQ("abc", a.getText());
  a.resize(5, '*');
  EXPECT_STREQ("abc**", a.getText());
  a.resize(2, 0);
  EXPECT_STREQ("ab", a.getText());
  a.resize(0, 0);
  EXPECT_TRUE(a.isNull());
  a.assignRange("xyz", 2);
  EXPECT_STREQ("xy", a.getText());
  a.append(a.getText());  // appending its own text
  EXPECT_STREQ("xyxy", a.getText());
  a.assign(a.getText() + 2);  // assigning a part of its own text
  EXPECT_STREQ("xy", a.getText());
}

TEST(StringBuilderTest, GrowsByItsStep) {
  StringBuilder b(4);
  for (int i = 0; i < 10; i++) b.append(static_cast<char>('a' + i));
  b.append(static_cast<const char*>(nullptr));
  b.append(CharString("!"));
  EXPECT_STREQ("abcdefghij!", b.getText());
  EXPECT_EQ(11, b.getLength());
  b.clear();
  EXPECT_STREQ("", b.getText());
}

TEST(ListsTest, TableGrowthRules) {
  Table<int> t(100);
  t.setCount(100, 0);
  EXPECT_EQ(200, t.getCapacity());  // an exact multiple gains a whole step
  t.setCount(201, 1);
  EXPECT_EQ(201, t.getCapacity());

  Table<int> doubling(-1);
  doubling.setCount(3, 0);
  EXPECT_EQ(3, doubling.getCapacity());
  doubling.setCount(7, 0);
  EXPECT_EQ(12, doubling.getCapacity());

  Table<CharString> strings(0);
  for (int i = 0; i < 50; i++) strings.add(CharString(std::to_string(i).c_str()));
  EXPECT_STREQ("49", strings[49].getText());
  EXPECT_STREQ("0", strings[0].getText());
}

TEST(ListsTest, PListAndRefArray) {
  PList<int> list;
  for (int i = 0; i < 12; i++) list.add(i);
  EXPECT_EQ(12, list.getCount());
  EXPECT_EQ(15, list.getCapacity());
  list.remove(0);
  EXPECT_EQ(1, list[0]);
  list.setCapacity(0);
  EXPECT_EQ(0, list.getCount());

  RefArray<unsigned char> a(16);
  a.get()[3] = 7;
  {
    RefArray<unsigned char> b(a);
    EXPECT_EQ(2, a.getReferences());
    EXPECT_EQ(7, b.get()[3]);
  }
  EXPECT_EQ(1, a.getReferences());
  EXPECT_EQ(16u, a.getSize());
}

TEST(TextTest, FixedFieldCopiesTruncate) {
  char field[6];
  EXPECT_EQ(6, copyText(field, "abcdefgh", sizeof field));
  EXPECT_STREQ("abcde", field);
  copyText(field, "ab", sizeof field);
  appendText(field, "cdefg", sizeof field);
  EXPECT_STREQ("abcde", field);
  EXPECT_EQ(0, compareNoCase("Program", "pROGRAM"));
  EXPECT_NE(0, compareNoCase("Progra", "Program"));
  EXPECT_EQ(0, compareNoCase("UninstallX", "uninstally", 9));
}

TEST(PathTextTest, SeparatorsAndCleaning) {
  char a[64] = "\\\\\\\\server//a";
  normalizeSeparators(a, '\\');
  EXPECT_STREQ("\\\\server\\a", a);

  char b[64] = " C:/dir /sub ";
  cleanPath(b);
  EXPECT_EQ(sep("C:|dir|sub"), b);

  char c[64] = "a//b\\/c";
  collapseSeparators(c);
  EXPECT_STREQ("a/b/c", c);

  char d[64] = "/x/y///";
  EXPECT_EQ(4, stripTrailingSeparators(d, sizeof d));
  char root[8] = "/";
  EXPECT_EQ(1, stripTrailingSeparators(root, sizeof root));

  char e[16] = "dir";
  appendPath(e, "/file", sizeof e);
  EXPECT_EQ(sep("dir|file"), e);
  char f[16] = "dir/";
  appendPath(f, "file", sizeof f);
  EXPECT_STREQ("dir/file", f);
  char g[8] = "";
  appendPath(g, "file", sizeof g);
  EXPECT_STREQ("file", g);

  // A file's own name: behind the last separator of either kind.
  EXPECT_STREQ("app.exe", baseName("C:\\Program Files/Demo\\app.exe"));
  EXPECT_STREQ("", baseName("/opt/demo/"));
  EXPECT_STREQ("app", baseName("app"));

  // One file, as the system names it: the kind of separator aside, and
  // case aside only where the system ignores it.
#ifdef _WIN32
  EXPECT_TRUE(isSamePath("C:\\Program Files/App", "c:/program files\\APP"));
#else
  EXPECT_TRUE(isSamePath("/opt\\App/bin", "/opt/App\\bin"));
  EXPECT_FALSE(isSamePath("/opt/App", "/opt/app"));
#endif
  EXPECT_FALSE(isSamePath("C:\\App", "C:\\App2"));
  EXPECT_FALSE(isSamePath("C:\\App\\", "C:\\App"));
  EXPECT_FALSE(isSamePath(nullptr, ""));

  EXPECT_STREQ("a/b/c", systemPath("a/b/c").getText());
#ifndef _WIN32
  EXPECT_STREQ("C:/a/b", systemPath("C:\\a\\b").getText());
#endif
}

TEST(TextTest, SplitAndBetween) {
  Table<CharString> parts;
  ASSERT_EQ(4, splitText("a,,b,", ',', parts));
  EXPECT_STREQ("a", parts[0].getText());
  EXPECT_STREQ("", parts[1].getText());
  EXPECT_FALSE(parts[1].isNull());
  EXPECT_STREQ("b", parts[2].getText());
  EXPECT_STREQ("", parts[3].getText());
  EXPECT_EQ(0, splitText("", ',', parts));
  EXPECT_EQ(4, parts.getCount());  // untouched

  char out[32];
  EXPECT_TRUE(textBetween("f(a, b(c))", '(', ')', out, sizeof out));
  EXPECT_STREQ("a, b(c)", out);
  EXPECT_FALSE(textBetween("x)y(z", '(', ')', out, sizeof out));
  EXPECT_STREQ("a\\\"b", escapeText("a\"b", '"', '\\').getText());
}

TEST(TextTest, NumbersParseOnlyWhole) {
  int32_t i = 0;
  EXPECT_TRUE(parseInteger(&i, "-42"));
  EXPECT_EQ(-42, i);
  EXPECT_FALSE(parseInteger(&i, ""));
  EXPECT_FALSE(parseInteger(&i, " 1"));
  EXPECT_FALSE(parseInteger(&i, "1x"));
  EXPECT_FALSE(parseInteger(&i, "-"));
  EXPECT_FALSE(parseInteger(&i, "2147483648"));
  float f = 0;
  EXPECT_TRUE(parseFloat(&f, "2.5"));
  EXPECT_FLOAT_EQ(2.5f, f);
  EXPECT_FALSE(parseFloat(&f, "2.5x"));

  char out[40];
  formatNumber(255, out, 16, sizeof out);
  EXPECT_STREQ("FF", out);
  formatNumber(-7, out, 10, sizeof out);
  EXPECT_STREQ("-7", out);
  formatNumber(0, out, 2, sizeof out);
  EXPECT_STREQ("0", out);
  formatNumber(5, out, 17, sizeof out);
  EXPECT_STREQ("", out);

  unsigned char bytes[4] = {0x00, 0xAB, 0x10, 0xFF};
  char hex[9];
  EXPECT_EQ(-1, bytesToHex(hex, 8, bytes, 4));
  bytesToHex(hex, sizeof hex, bytes, 4);
  EXPECT_STREQ("00ab10ff", hex);
  unsigned char back[4];
  EXPECT_EQ(4, hexToBytes(back, 4, "00AB10ff"));
  EXPECT_EQ(0, std::memcmp(bytes, back, 4));
  EXPECT_EQ(-1, hexToBytes(back, 4, "abc"));

  char small[4];
  EXPECT_EQ(-1, boundedFormat(small, sizeof small, "%d", 12345));
  EXPECT_STREQ("123", small);
  EXPECT_EQ(2, boundedFormat(small, sizeof small, "%d", 12));
}

TEST(ConvertTest, InvalidBytesSurviveTheRoundTrip) {
  WideChar wide[16];
  ASSERT_EQ(2, utf8ToWide("\xE9", wide, 16));
  EXPECT_EQ(0xDBC0, wide[0]);
  EXPECT_EQ(0xDCE9, wide[1]);
  char back[16];
  wideToUtf8(wide, back, sizeof back);
  EXPECT_STREQ("\xE9", back);

  // U+100041 in its valid four-byte form is carried byte for byte.
  const char* reserved = "\xF4\x80\x81\x81";
  EXPECT_EQ(8, utf8ToWide(reserved, nullptr, 0));
  utf8ToWide(reserved, wide, 16);
  wideToUtf8(wide, back, sizeof back);
  EXPECT_STREQ(reserved, back);

  // An over-long form, and a valid text with a surrogate pair.
  const char* mixed = "a\xC0\xAF\xC3\xA9\xF0\x9F\x98\x80z";
  int n = utf8ToWide(mixed, wide, 16);
  EXPECT_EQ(1 + 4 + 1 + 2 + 1, n);
  wideToUtf8(wide, back, sizeof back);
  EXPECT_STREQ(mixed, back);

  // A lone surrogate stands for itself in three bytes.
  WideChar lone[] = {0xD800, 'x', 0};
  EXPECT_EQ(4, wideToUtf8(lone, back, sizeof back));
}

TEST(ConvertTest, TextConverterGivesBothForms) {
  TextConverter c("h\xC3\xA9");
  EXPECT_EQ(3, c.wideLength());
  EXPECT_EQ(0xE9, c.wide()[1]);
  EXPECT_EQ(4, c.narrowLength());
  WideChar w[] = {'o', 'k', 0};
  TextConverter d(w);
  EXPECT_STREQ("ok", d.narrow());
  TextConverter none(static_cast<const char*>(nullptr));
  EXPECT_EQ(nullptr, none.wide());
  EXPECT_EQ(0, none.narrowLength());
}

TEST(ErrorsTest, ChainsReadFrontToBack) {
  ErrorChain inner;
  inner.setError("PFileStream::open", 2, "cannot open %s", "a.bin");
  ErrorChain outer;
  outer.wrapError(inner, "BackupFile::addFile", -1, "backup failed");
  EXPECT_TRUE(inner.isEmpty());
  char text[256];
  outer.toText(text, sizeof text);
  EXPECT_STREQ("[BackupFile::addFile] backup failed | [PFileStream::open] cannot open a.bin", text);
  EXPECT_EQ(-1, outer.getCode(0));
  EXPECT_EQ(2, outer.getCode(1));
  EXPECT_EQ(0, outer.getCode(2));
  ErrorChain none;
  none.toText(text, sizeof text);
  EXPECT_STREQ("No error", text);
  ErrorChain::fromFileCode(3).toText(text, sizeof text);
  EXPECT_STREQ("error in file format", text);
  EXPECT_TRUE(ErrorChain::fromFileCode(0).isEmpty());
  EXPECT_STREQ("unknown error", ErrorChain::fileCodeText(99));

  InstallerError e("Failed to %s", "copy");
  const GenericError& g = e;
  EXPECT_STREQ("Failed to copy", g.getMessage());
}

}  // namespace
}  // namespace QUtils
