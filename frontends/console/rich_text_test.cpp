// Tests of the RTF reader: plain text, keywords, damaged documents,
// wrapping and justifying, and a word processor's document.
#include "frontends/console/rich_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Null shown as "<null>", so a failed conversion reads clearly.
std::string plain(const char* rtf, int width = 0, int mode = kRichTextConsole) {
  RichTextReader reader;
  const char* text = reader.convert(rtf, mode, width);
  return text ? text : "<null>";
}

// Writes down every call, separated by blanks.
class RecordingCallback : public RichTextCallback {
 public:
  void onText(const char* text) override { calls += std::string(text) + " "; }
  void endParagraph() override { calls += "<par> "; }
  void setStyle(int which, bool on) override { calls += "<style" + std::to_string(which) + (on ? "+> " : "-> "); }
  void setFontSize(int size) override { calls += "<size" + std::to_string(size) + "> "; }
  void setAlignment(int alignment) override { calls += "<align" + std::to_string(alignment) + "> "; }
  void resetFormat() override { calls += "<reset> "; }
  void setLeftIndent(int tenths) override { calls += "<indent" + std::to_string(tenths) + "> "; }
  void finishText() override { calls += "<finish>"; }
  std::string calls;
};

int countOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) count++;
  return count;
}

std::string callsFor(const char* rtf) {
  RecordingCallback callback;
  RichTextReader reader;
  reader.setCallback(&callback);
  reader.convert(rtf, kRichTextPlain, 0);
  return callback.calls;
}

TEST(RichTextTest, PlainText) {
  EXPECT_EQ("Hello\nWorld", plain("{\\rtf1 Hello\\par World}"));
  // Tables and other data groups hold no text; groups of formatted text do.
  EXPECT_EQ("abc", plain("{\\rtf1{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red0;}a{\\b b}{\\*\\bkmkstart x}"
                         "{\\info{\\title T}}c}"));
  // Source line ends are no text; escaped braces and backslashes are.
  EXPECT_EQ("a{b}\\c-x y", plain("{\\rtf1 a\r\n\\{b\\}\\\\c\\_x\\~y\\*}"));
  // Bytes are characters of the code page (1252 unless named); digits that
  // aren't hexadecimal count as 0, which is no character.
  EXPECT_EQ("\u00a9 2024 \u00ae\u00e4\u20ac" "ab", plain("{\\rtf1 \\'a9 2024 \\'AE\\'e4\\'80a\\'zzb}"));
  // A control word swallows one blank; one that means nothing vanishes,
  // whatever its length.
  EXPECT_EQ(
      "\t x-'\"\"xy",
      plain(("{\\rtf1 \\tab  x\\endash\\rquote\\ldblquote\\rdblquote x\\" + std::string(300, 'z') + " y}").c_str()));
  EXPECT_EQ("", plain(""));
  EXPECT_EQ("<null>", plain(nullptr));
  // Styles as terminal sequences, and the reset at the end.
  EXPECT_EQ("\x1b[1mbold\x1b[0m \x1b[4mu\x1b[0m\x1b[0m",
            plain("{\\rtf1 \\b bold\\b0  \\ul u\\ulnone}", 0, kRichTextEscapes));
}

TEST(RichTextTest, ATextThatIsNotRtfKeepsItsLines) {
  // A licence written as a text file: each line a paragraph, with nothing
  // read as RTF (a backslash or a brace is text), CR LF and a byte order
  // mark taken off, blank lines kept.
  const char kLicence[] = "\xEF\xBB\xBFLicence\r\n\r\nLicenses and\r\nacknowledgements {\\b}\r\n";
  EXPECT_EQ("Licence\n\nLicenses and\nacknowledgements {\\b}", plain(kLicence));
  EXPECT_EQ("Licence <par> <par> Licenses and <par> acknowledgements {\\b} <finish>", callsFor(kLicence));
  // Wrapped like RTF paragraphs where a line is too long; a last line
  // without a line end is kept.
  EXPECT_EQ("aaaa  bbbb\ncc\nd\n", plain("aaaa bbbb cc\nd", 10));
  EXPECT_EQ("aaaa  bbbb\ncc\nd\n", plain("aaaa bbbb cc\nd\n", 10));
  // Line ends before the RTF signature still make an RTF document.
  EXPECT_EQ("x", plain("\r\n{\\rtf1 x}"));
  EXPECT_TRUE(RichTextReader::isRichText("\xEF\xBB\xBF{\\rtf1}"));
  EXPECT_FALSE(RichTextReader::isRichText("{\\rt"));
  EXPECT_FALSE(RichTextReader::isRichText(nullptr));
}

TEST(RichTextTest, KeywordsMatchByPrefixAndReachTheCallback) {
  EXPECT_EQ("<indent0> x <par> y <style1+> z <indent127> <align1> <align3> <reset> <finish>",
            callsFor("{\\rtf1 \\line x\\pararsid5 y\\info z\\li720 \\qc\\qj}"));
  // "pard" comes before "par", "b0" before "b", and any other word that
  // begins with b is bold.
  EXPECT_EQ("<reset> <style0-> <style0+> <style2+> <style2-> <style1-> <reset> <finish>",
            callsFor("{\\rtf1\\pard\\b0\\bin\\ul\\ulnone\\i0}"));
  // Paragraph ends reach the callback, not as text.
  EXPECT_EQ("a <par> <par> b <reset> <finish>", callsFor("{\\rtf1 a\\par\\par b}"));
}

TEST(RichTextTest, DamagedDocumentsGiveNull) {
  EXPECT_EQ("<null>", plain("{\\rtf1 a}}"));
  EXPECT_EQ("<null>", plain("{\\rtf1 a"));
  EXPECT_EQ("<null>", plain("{\\rtf1 \\'a"));
  // What came before a stray brace has been passed on, but the document is
  // never finished.
  EXPECT_EQ("a ", callsFor("{\\rtf1 a}}b"));
  EXPECT_EQ("a ", callsFor("{\\rtf1 a"));
}

TEST(RichTextTest, WrapsAndJustifies) {
  EXPECT_EQ("aaaa  bbbb\ncc dddddd\n", plain("{\\rtf1 aaaa bbbb cc dddddd}", 10));
  // The slack goes to the later gaps first.
  EXPECT_EQ("a  b   c   d\neeeeeeeeeeee\nf\n", plain("{\\rtf1 a b c d eeeeeeeeeeee f}", 12));
  // No line is wider than the width, a paragraph's last included, unless a
  // single word is: it stands alone, uncut.
  EXPECT_EQ("one\ntwo\n", plain("{\\rtf1 one two}", 5));
  // A blank left behind the last word makes no empty line.
  EXPECT_EQ("aaaaa\nb\n", plain("{\\rtf1 aaaaa \\par b}", 5));
  EXPECT_EQ("ab\nabcdefgh\ncd\n", plain("{\\rtf1 ab abcdefgh cd}", 5));
  // Paragraphs wrap each by itself; double blanks and tabs take no slack;
  // characters count, not bytes.
  EXPECT_EQ("a  b c\nd\n\nx\n", plain("{\\rtf1 a  b c d\\par\\par x}", 6));
  EXPECT_EQ("a\tb\nc\n", plain("{\\rtf1 a\\tab b c}", 10));
  EXPECT_EQ(
      "und gr\xc3\xbc\xc3\x9f"
      "e\nx\n",
      plain("{\\rtf1 und gr\xc3\xbc\xc3\x9f"
            "e x}",
            9));
  // An empty text is one empty line; a text ending in a paragraph has one more.
  EXPECT_EQ("\n", plain("{\\rtf1}", 10));
  EXPECT_EQ("x\n\n", plain("{\\rtf1 x\\par}", 10));
}

TEST(RichTextTest, OutputGrowsPastItsFirstSize) {
  // A bare \b is two bytes in and four out.
  std::string rtf = "{\\rtf1 ";
  for (int i = 0; i < 5000; i++) rtf += "\\b";
  EXPECT_EQ(20004u, plain((rtf + "}").c_str(), 0, kRichTextEscapes).size());
  // Justifying "a b" to 20 columns adds far more than half.
  rtf = "{\\rtf1 ";
  for (int i = 0; i < 1000; i++) rtf += "a b " + std::string(20, 'c') + " ";
  std::string text = plain((rtf + "end}").c_str(), 20);
  ASSERT_EQ(2000u * 21 + 4, text.size());
  EXPECT_EQ("a                  b\n" + std::string(20, 'c') + "\n", text.substr(0, 42));
}

// Documents as a word processor saves them: every run of text in a group of
// its own, tables and properties in data groups.
const char kLicenceDocument[] = R"doc({\rtf1\ansi\deff3\adeflang1025
{\fonttbl{\f0\froman\fprq2\fcharset0 Times New Roman;}{\f1\froman\fprq2\fcharset2 Symbol;}{\f2\fswiss\fprq2\fcharset0 Arial;}{\f3\froman\fprq2\fcharset0 DejaVu Serif;}{\f4\fswiss\fprq2\fcharset0 Liberation Sans{\*\falt Arial};}{\f5\fnil\fprq2\fcharset0 Liberation Sans Unicode MS;}}
{\colortbl;\red0\green0\blue0;\red0\green0\blue255;\red0\green255\blue255;\red0\green255\blue0;\red255\green0\blue255;\red255\green0\blue0;\red255\green255\blue0;\red255\green255\blue255;\red0\green0\blue128;\red0\green128\blue128;\red0\green128\blue0;\red128\green0\blue128;\red128\green0\blue0;\red128\green128\blue0;\red128\green128\blue128;\red192\green192\blue192;\red153\green204\blue255;}
{\stylesheet{\s0\snext0\rtlch\af6\afs24\alang1081 \ltrch\lang1033\langfe2052\hich\af3\loch\nowidctlpar\hyphpar0\ltrpar\cf0\f3\fs24\lang1033\dbch\af6\langfe2052 Normal;}
{\s1\sbasedon28\snext27\rtlch\afs44\ab \ltrch\hich\af5\loch\sb240\sa283\keepn\f5\fs48\b Heading 1;}
{\*\cs15\snext15 Endnote Characters;}
{\*\cs16\snext16 Footnote Characters;}
{\*\cs17\snext17\loch\cf9\ul\ulc0 Internet Link;}
{\s18\sbasedon0\snext27\loch\sb0\sa283\brdrt\brdrnone\brdrl\brdrnone\brdrb\brdrdb\brdrw7\brdrcf15\brsp0\brdrr\brdrnone\fs12 Horizontal Line;}
{\s19\sbasedon0\snext19\loch\i Sender;}
{\s20\sbasedon27\snext20\loch\sb0\sa283 Table Contents;}
{\s21\sbasedon0\snext21\loch\tqc\tx4818\tqr\tx9637\noline Footer;}
{\s22\sbasedon0\snext22\loch\tqc\tx4818\tqr\tx9637\noline Header;}
{\s23\sbasedon0\snext23\loch\tqc\tx4819\tqr\tx9638\noline Header and Footer;}
{\s24\sbasedon0\snext24\loch\noline Index;}
{\s25\sbasedon0\snext25\rtlch\afs24\ai \ltrch\loch\sb120\sa120\noline\fs24\i Caption;}
{\s26\sbasedon27\snext26\loch\sb0\sa283 List;}
{\s27\sbasedon0\snext27\loch\sb0\sa283 Text Body;}
{\s28\sbasedon0\snext27\rtlch\afs28 \ltrch\hich\af4\loch\sb240\sa283\keepn\f4\fs28 Heading;}
}{\*\generator Writer}{\info{\creatim\yr0\mo0\dy0\hr0\min0}{\revtim\yr0\mo0\dy0\hr0\min0}{\printim\yr0\mo0\dy0\hr0\min0}}{\*\userprops}
\hyphauto1\viewscale100
{\*\pgdsctbl
{\pgdsc0\pgdscuse451\pgwsxn11906\pghsxn16838\marglsxn1134\margrsxn1134\margtsxn1134\margbsxn1134\pgdscnxt0 Default Page Style;}
{\pgdsc1\pgdscuse451\pgndec\pgwsxn11906\pghsxn16838\marglsxn1134\margrsxn1134\margtsxn1134\margbsxn1134\pgdscnxt1 Endnote;}
{\pgdsc2\pgdscuse451\pgndec\pgwsxn11906\pghsxn16838\marglsxn1134\margrsxn567\margtsxn567\margbsxn567\pgdscnxt2 HTML;}}
\formshade{\*\pgdscno2}\paperh16838\paperw11906\margl1134\margr567\margt567\margb567\sectd\sbknone\pgndec\sftnnar\saftnnrlc\sectunlocked1\pgwsxn11906\pghsxn16838\marglsxn1134\margrsxn567\margtsxn567\margbsxn567\ftnbj\ftnstart1\ftnrstcont\ftnnar\aenddoc\aftnrstcont\aftnstart1\aftnnrlc
{\*\ftnsep\chftnsep}\pgndec\pard\plain \s1\rtlch\afs44\ab \ltrch\hich\af5\loch\sb240\sa283\keepn\f5\fs48\b\qc\sb240\sa283\ltrpar{\loch
Licence Agreement}
\par \pard\plain \s27\loch\sb0\sa283\qj\ltrpar{\loch
Please read this agreement carefully before installing the software. By installing, copying or otherwise using the software you agree to be bound by the terms below.}
\par \pard\plain \s27\loch\sb0\sa283\ql\sb0\sa283\ltrpar{\loch\b\loch
1. Grant.}{\loch
 You may install and use one copy of the software on any number of computers that you own.}
\par \pard\plain \s27\loch\sb0\sa283\ql\sb0\sa283\ltrpar{\loch\i\loch
2. Restrictions.}{\loch
 You may not rent, lease or lend the software; \u169\'a9 2024 Example Works \u8211\'96 all rights reserved\u174\'ae.}
\par \pard\plain \s27\loch\sb0\sa283\ql\sb0\sa283\ltrpar{\loch
3. \u8220\'93As is\u8221\'94: the software comes without warranty of any kind.}
\par })doc";

TEST(RichTextTest, AWordProcessorsDocument) {
  EXPECT_EQ(
      "Licence Agreement\n"
      "Please read this agreement carefully before installing the software. By installing, copying or "
      "otherwise using the software you agree to be bound by the terms below.\n"
      "1. Grant. You may install and use one copy of the software on any number of computers that you own.\n"
      "2. Restrictions. You may not rent, lease or lend the software; \u00a9 2024 Example Works \u2013 all rights "
      "reserved\u00ae.\n"
      "3. \u201c" "As is\u201d: the software comes without warranty of any kind.\n",
      plain(kLicenceDocument));
  // Justified at 46 columns, counting characters, not bytes.
  EXPECT_EQ(
      "Licence Agreement\n"
      "Please read  this agreement  carefully  before\n"
      "installing  the   software.   By   installing,\n"
      "copying or  otherwise using  the software  you\n"
      "agree to be bound by the terms below.\n"
      "1. Grant. You may install and use one copy  of\n"
      "the software on any  number of computers  that\n"
      "you own.\n"
      "2. Restrictions. You  may not  rent, lease  or\n"
      "lend the software; \u00a9 2024 Example Works \u2013  all\n"
      "rights reserved\u00ae.\n"
      "3.  \u201c" "As  is\u201d:   the  software  comes   without\n"
      "warranty of any kind.\n"
      "\n",
      plain(kLicenceDocument, 46));
  // The tables and the stylesheet (whose words are colours, fonts, the bold
  // heading style) set no style: only the runs of text do.
  EXPECT_EQ(std::string::npos, callsFor(kLicenceDocument).find("Licence Agreement <style0+>"));
  std::string calls = callsFor(kLicenceDocument);
  EXPECT_EQ(2, countOf(calls, "<style0+>")) << calls;  // the heading's paragraph, and "1. Grant."
  EXPECT_EQ(1, countOf(calls, "<style1+>")) << calls;  // "2. Restrictions."
}

// A German and a French licence as Writer saves them (shortened): the
// colour table and the stylesheet as it writes them, letters beyond ASCII
// as \uN with the code page's byte behind it as the fallback.
const char kGermanFrench[] = R"doc({\rtf1\ansi\ansicpg1252\deff3\adeflang1025
{\fonttbl{\f0\froman\fprq2\fcharset0 Times New Roman;}{\f3\froman\fprq2\fcharset0 Liberation Serif{\*\falt Times New Roman};}}
{\colortbl;\red0\green0\blue0;\red0\green0\blue255;\red29\green79\blue145;}
{\stylesheet{\s0\snext0\rtlch\af6\afs24\alang1081 \ltrch\lang1031\langfe2052\hich\af3\loch\cf0\f3\fs24 Standard;}
{\s1\sbasedon15\snext16\rtlch\af6\afs36\ab \ltrch\hich\af4\loch\keepn\f4\fs36\b \u220\'dcberschrift 1;}
{\s18\sbasedon0\snext18\rtlch\af6\afs24\ai \ltrch\loch\fs24\i L\u233\'e9gende;}
}{\*\generator LibreOffice/7.4.7.2$Linux_X86_64 LibreOffice_project/40$Build-2}{\info{\creatim\yr2026\mo11\dy24\hr8\min12}}\deftab709
\pard\plain \s16\loch\sl276\slmult1\sb0\sa140\qj\ltrpar{\loch
Lizenzgeb\u252\'fchr f\u252\'fcr Gro\u223\'dfkunden: 0 \u8364\'80.}
\par \pard\plain \s16\loch\sl276\slmult1\sb0\sa140\ql\ltrpar{\loch
Qlux Demo est fourni \u171\'ab\u160\'a0tel quel\u160\'a0\u187\'bb, un \u339\'9cuvre de d\u233\'e9monstration \u8212? \u192\'c0 vous.}
\par })doc";

TEST(RichTextTest, LettersOfGermanAndFrenchLicencesComeThroughAsUnicode) {
  EXPECT_EQ(
      "Lizenzgeb\u00fchr f\u00fcr Gro\u00dfkunden: 0 \u20ac.\n"
      "Qlux Demo est fourni \u00ab\u00a0tel quel\u00a0\u00bb, un \u0153uvre de d\u00e9monstration \u2014 "
      "\u00c0 vous.\n",
      plain(kGermanFrench));
  // No style comes from the tables or the stylesheet, and each letter
  // reaches the callback whole.
  std::string calls = callsFor(kGermanFrench);
  EXPECT_EQ(std::string::npos, calls.find("<style")) << calls;
  EXPECT_NE(std::string::npos, calls.find(" \u00fc h r ")) << calls;
}

TEST(RichTextTest, CodePagesFallbacksAndCharactersBeyondTheFirstPlane) {
  // Czech in code page 1250: the same bytes mean other letters.
  EXPECT_EQ("\u010de\u0161tina \u00e8", plain("{\\rtf1\\ansi\\ansicpg1250 \\'e8e\\'9atina {\\ansicpg1252 \\'e8}}"));
  // \ucN says how many characters stand in for each \uN; a brace or a word
  // ends them early.
  EXPECT_EQ("\u00fcber", plain("{\\rtf1\\uc2 \\u252\\'fc\\'fcber}"));
  EXPECT_EQ("\u00fcx", plain("{\\rtf1\\uc0\\u252 x}"));
  EXPECT_EQ("\u00fc{b}", plain("{\\rtf1\\uc3\\u252 a\\{b\\}}"));
  // Negative numbers are the upper half of the 16-bit range; a character
  // beyond U+FFFF comes in two halves; a lone half is no character.
  EXPECT_EQ("\uf020 \U0001F600 \ufffd", plain("{\\rtf1 \\u-4064? \\u-10179?\\u-8704? \\u-8704?}"));
}

}  // namespace
