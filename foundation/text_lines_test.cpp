// Tests of text lines: every line keeps its own end and the lines join back
// byte for byte.
#include "foundation/text_lines.h"

#include <gtest/gtest.h>

namespace {

TEST(TextLinesTest, LinesKeepTheirOwnEndsAndJoinBackByteForByte) {
  const std::string mixed = "a\r\nb\n\nlast";
  std::vector<QUtils::TextLine> lines = QUtils::splitTextLines(mixed);
  ASSERT_EQ(4u, lines.size());
  EXPECT_EQ("a", lines[0].text);
  EXPECT_EQ("\r\n", lines[0].end);
  EXPECT_EQ("\n", lines[1].end);
  EXPECT_EQ("", lines[2].text);
  EXPECT_EQ("last", lines[3].text);
  EXPECT_EQ("", lines[3].end);
  EXPECT_EQ(mixed, QUtils::joinTextLines(lines));
  EXPECT_TRUE(QUtils::splitTextLines("").empty());
  // A lone CR inside a line is text, not a line end.
  EXPECT_EQ("x\ry", QUtils::splitTextLines("x\ry\n")[0].text);
}

}  // namespace
