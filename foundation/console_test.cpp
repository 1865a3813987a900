// Tests of the consoles: line numbers and times, disabled and closed
// consoles, long lines, file modes, and consoles of several members.
#include "foundation/console.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "foundation/text.h"

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace QUtils {
namespace {

// Keeps every piece handed to write().
class PieceConsole : public PConsole {
 public:
  int write(const char* text, int length) override {
    pieces.push_back(std::string(text, static_cast<size_t>(length)));
    return 0;
  }
  std::string joined() const {
    std::string all;
    for (const std::string& piece : pieces) all += piece;
    return all;
  }
  std::vector<std::string> pieces;
};

TEST(ConsoleTest, LinesCarryNumberAndTimeStampByFlag) {
  PieceConsole console;
  console.flags = kConsoleLineNumbers;
  console.printf("first %d", 1);
  console.printf("second");
  // A line is handed over whole, so that a file console writes it at once.
  EXPECT_EQ((std::vector<std::string>{"   0:  first 1\r\n", "   1:  second\r\n"}), console.pieces);

  console.pieces.clear();
  console.flags = kConsoleLineNumbers | kConsoleTimeStamps;
  console.printf("stamped");
  ASSERT_EQ(1u, console.pieces.size());
  const std::string prefix = console.pieces[0].substr(0, console.pieces[0].find("stamped"));
  EXPECT_EQ("stamped\r\n", console.pieces[0].substr(prefix.size()));
  int number = -1, year = 0, day = 0, hour = -1, minute = -1, second = -1;
  char month[4] = {};
  ASSERT_EQ(7, std::sscanf(prefix.c_str(), "%d:  [%d/%3[A-Za-z]/%d|%d:%d:%d]", &number, &year, month, &day, &hour,
                           &minute, &second))
      << prefix;
  EXPECT_EQ(2, number);
  EXPECT_GE(year, 2000);
  EXPECT_NE(nullptr, std::strstr("JanFebMarAprMayJunJulAugSepOctNovDec", month));
  EXPECT_TRUE(day >= 1 && day <= 31 && hour <= 23 && minute <= 59 && second <= 60);
  EXPECT_EQ("   2:  [", prefix.substr(0, 8));
  EXPECT_EQ(":07]    ", prefix.substr(prefix.size() - 8).replace(1, 2, "07"));  // two-digit seconds

  console.pieces.clear();
  console.flags = 0;
  console.print("plain");
  console.alert("at %s", "once");
  EXPECT_EQ("plain*** ALERT! at once\r\n", console.joined());
  EXPECT_EQ(3, console.lineNumber);
}

TEST(ConsoleTest, DisabledConsolesNeitherWriteNorCount) {
  PieceConsole console;
  console.enabled = 0;
  console.printf("nothing %d", 1);
  console.alert("nothing");
  console.printLine("nothing");
  EXPECT_TRUE(console.pieces.empty());
  EXPECT_EQ(0, console.lineNumber);
}

TEST(ConsoleTest, LongLinesAreCutAt1023AndStillEnd) {
  PieceConsole console;
  console.flags = 0;
  std::string text(2000, 'x');
  console.printf("%s", text.c_str());
  ASSERT_EQ(1u, console.pieces.size());
  EXPECT_EQ(std::string(1023, 'x') + "\r\n", console.pieces[0]);
  // A text passed to printLine itself isn't cut, and still ends its line.
  console.pieces.clear();
  console.printLine(text.c_str());
  EXPECT_EQ(text + "\r\n", console.joined());

  console.pieces.clear();
  console.alert("%s", text.c_str());
  EXPECT_EQ(1025u, console.pieces[0].size());
  EXPECT_EQ(0u, console.pieces[0].find("*** ALERT! xxx"));
}

// File consoles write into a directory made fresh for the test, inside the
// scratch directory the binary runs in, and remove only what they made.
class FileConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char here[kMaxPath];
#ifdef _WIN32
    ASSERT_NE(nullptr, _getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "\\console-XXXXXX";
    ASSERT_EQ(0, _mktemp_s(&pattern[0], pattern.size() + 1));
    ASSERT_EQ(0, _mkdir(pattern.c_str()));
#else
    ASSERT_NE(nullptr, getcwd(here, sizeof here));
    std::string pattern = std::string(here) + "/console-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
#endif
    directory = pattern;
    path = directory + "/installer_debug.log";
  }
  void TearDown() override {
    if (directory.empty()) return;  // never made: nothing of ours to remove
    std::remove(path.c_str());
#ifdef _WIN32
    _rmdir(directory.c_str());
#else
    rmdir(directory.c_str());
#endif
  }
  std::string contents() {
    std::string text;
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (!in) return "<missing>";
    char block[512];
    size_t n;
    while ((n = std::fread(block, 1, sizeof block, in)) > 0) text.append(block, n);
    std::fclose(in);
    return text;
  }
  std::string directory;
  std::string path;
};

TEST_F(FileConsoleTest, ClosedConsoleCountsButDropsLines) {
  PFileConsole console;
  console.printf("lost");
  EXPECT_EQ(1, console.lineNumber);
  EXPECT_FALSE(console.isOpen());
  EXPECT_EQ(-1, console.flush());
  EXPECT_EQ(-1, console.close());

  std::string missing = directory + "/no such dir/x.log";
  EXPECT_NE(0, console.open(missing.c_str(), 0));
  EXPECT_FALSE(console.isOpen());
  console.printf("lost too");
  EXPECT_EQ(2, console.lineNumber);
}

TEST_F(FileConsoleTest, ModeOneAppendsAndOtherModesStartAnew) {
  PFileConsole console;
  console.flags = kConsoleLineNumbers;
  console.printf("before");
  ASSERT_EQ(0, console.open(path.c_str(), 0));
  EXPECT_TRUE(console.isOpen());
  console.printf("a");
  console.printf("b");
  EXPECT_EQ("   0:  a\r\n   1:  b\r\n", contents());  // no buffer: lines are in the file at once
  EXPECT_EQ(0, console.flush());
  EXPECT_EQ(0, console.close());
  EXPECT_FALSE(console.isOpen());

  ASSERT_EQ(0, console.open(path.c_str(), 1));
  console.printf("c");
  EXPECT_EQ("   0:  a\r\n   1:  b\r\n   0:  c\r\n", contents());

  ASSERT_EQ(0, console.open(path.c_str(), 0));  // closes the open file first
  console.flags = 0;
  console.printf("fresh");
  console.close();
  EXPECT_EQ("fresh\r\n", contents());
}

TEST(MultiConsoleTest, PassesEverythingToEachMember) {
  PMultiConsole multi;
  EXPECT_EQ(-1, multi.open("x", 0));
  EXPECT_EQ(-1, multi.close());
  multi.printf("into nothing");

  PieceConsole one, two;
  EXPECT_EQ(0, multi.addConsole(&one));
  EXPECT_EQ(1, multi.addConsole(&two));
  EXPECT_EQ(&two, multi.getConsole(1));
  EXPECT_EQ(nullptr, multi.getConsole(2));
  EXPECT_EQ(nullptr, multi.getConsole(-1));
  multi.flags = kConsoleLineNumbers;
  multi.printf("both");
  EXPECT_EQ("   1:  both\r\n", one.joined());
  EXPECT_EQ(one.pieces, two.pieces);
  EXPECT_EQ(0, one.lineNumber);  // the members' own decoration isn't used
}

std::vector<std::string> forward(PBufConsole& console) {
  std::vector<std::string> lines;
  PReadableConsole::Iterator it;
  console.begin(&it);
  EXPECT_TRUE(console.isBegin(&it));
  while (const char* text = console.next(&it)) lines.push_back(text);
  EXPECT_TRUE(console.isEnd(&it));
  console.release(&it);
  return lines;
}

std::vector<std::string> backward(PBufConsole& console) {
  std::vector<std::string> lines;
  PReadableConsole::Iterator it;
  console.end(&it);
  while (const char* text = console.previous(&it)) lines.insert(lines.begin(), text);
  EXPECT_TRUE(console.isBegin(&it));
  console.release(&it);
  return lines;
}

TEST(BufConsoleTest, StoresLinesWhenTheirEndArrives) {
  PBufConsole console(1000);
  EXPECT_EQ(&console, static_cast<PReadableConsole*>(console.getReadable()));
  console.flags = kConsoleLineNumbers;
  console.printf("one");
  console.print("two ");
  EXPECT_EQ(1, console.getLineCount());
  console.printLine("halves");
  std::string raw = "x\ty\x01\x80\xC3\xA9z\x1F\r\nlast";  // control and high bytes become spaces
  console.write(raw.data(), static_cast<int>(raw.size()));
  EXPECT_EQ((std::vector<std::string>{"   0:  one", "   1:  two    2:  halves", "x y    z\x1F"}), forward(console));

  PReadableConsole::Iterator it;
  console.begin(&it);
  EXPECT_EQ(-1, PReadableConsole::tagOf(console.next(&it)));
  console.release(&it);

  console.clear();
  console.addLine(std::string(600, 'q').c_str(), -1, 1048575);
  console.addLine("low", -1, -1048576);
  console.addLine("zero", -1, 0);
  console.begin(&it);
  const char* longest = console.next(&it);
  EXPECT_EQ(511u, std::strlen(longest));
  EXPECT_EQ(1048575, PReadableConsole::tagOf(longest));
  EXPECT_EQ(-1048576, PReadableConsole::tagOf(console.next(&it)));
  EXPECT_EQ(0, PReadableConsole::tagOf(console.next(&it)));
  console.release(&it);
  EXPECT_EQ(511, console.getLongestLength());
}

TEST(BufConsoleTest, RingDropsOldLinesAndWalksBothWays) {
  // 32 bytes; a line takes its length plus 4.
  PBufConsole console(32);
  console.addLine("aaaa", -1, 1);      // 0..8
  console.addLine("bbbbbbbb", -1, 2);  // 8..20
  console.addLine("cc", -1, 3);        // 20..26
  EXPECT_EQ(8, console.getLongestLength());
  console.addLine("dddddd", -1, 4);  // no room behind: goes to 0, taking a and b
  EXPECT_EQ((std::vector<std::string>{"cc", "dddddd"}), forward(console));
  EXPECT_EQ(forward(console), backward(console));
  EXPECT_EQ(6, console.getLongestLength());

  console.addLine("ee", -1, 5);
  console.addLine("ffff", -1, 6);  // takes cc, the last line before the wrap
  EXPECT_EQ((std::vector<std::string>{"dddddd", "ee", "ffff"}), forward(console));
  EXPECT_EQ(forward(console), backward(console));

  console.addLine(std::string(29, 'z').c_str(), -1, 7);  // needs 33 bytes: dropped
  EXPECT_EQ(3, console.getLineCount());
  console.addLine(std::string(28, 'y').c_str(), -1, 8);  // fills the ring alone
  EXPECT_EQ((std::vector<std::string>{std::string(28, 'y')}), backward(console));
  EXPECT_EQ(28, console.getLongestLength());

  PBufConsole none(0);
  none.printf("dropped");
  EXPECT_TRUE(forward(none).empty());
}

// Against a list of what was added: the ring always holds the newest lines in
// order, as many as its bytes allow, and both walks agree.
TEST(BufConsoleTest, RingHoldsANewestSuffixUnderRandomLines) {
  std::mt19937 random(7);
  PBufConsole console(300);
  std::deque<std::string> added;
  for (int round = 0; round < 2000; round++) {
    std::string line(random() % 60, static_cast<char>('a' + round % 26));
    line += std::to_string(round);
    console.addLine(line.c_str(), -1, round);
    added.push_back(line);
    if (added.size() > 100) added.pop_front();

    std::vector<std::string> lines = forward(console);
    ASSERT_FALSE(lines.empty());
    ASSERT_LE(lines.size(), added.size());
    size_t bytes = 0, longest = 0;
    for (size_t i = 0; i < lines.size(); i++) {
      ASSERT_EQ(added[added.size() - lines.size() + i], lines[i]) << "round " << round;
      bytes += lines[i].size() + 4;
      longest = std::max(longest, lines[i].size());
    }
    ASSERT_LE(bytes, 300u);
    // One more line, the one that was dropped last, couldn't have stayed.
    if (lines.size() < added.size()) {
      ASSERT_GT(bytes + added[added.size() - lines.size() - 1].size() + 4, 150u);
    }
    ASSERT_EQ(static_cast<int>(longest), console.getLongestLength());
    if (round % 50 == 0) {
      ASSERT_EQ(lines, backward(console));
    }
  }
}

TEST(ColourPrintTest, DropsSequencesWhereTheyMeanNothing) {
  // Captured output is no terminal, so on every system only the text remains.
  ::testing::internal::CaptureStdout();
  qutils_cprint(1, "a\x1b[0;31mred\x1b[0m %d|", 5);
  qutils_cprint(0, "b\x1b[1;34mcyan\x1b[0m|");
  qutils_cprint(1, "%s", "");
  std::string unterminated = "c\x1b[" + std::string(70, '1') + "m never";
  qutils_cprint(1, "%s", unterminated.c_str());
  std::string longText(5000, 'L');
  qutils_cprint(1, "%s.", longText.c_str());
  std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ("ared 5|bcyan|cqutils_cprint: Incorrect ESC length!\n" + longText + ".", out);
}

}  // namespace
}  // namespace QUtils
