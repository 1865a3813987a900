// Tests of the colour arithmetic: channel bounds, the blur and the circle
// field.
#include "frontends/gui/colour_tools.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int> reds(const std::vector<wxColour>& matrix) {
  std::vector<int> result;
  for (const wxColour& c : matrix) result.push_back(c.Red());
  return result;
}

std::vector<wxColour> greys(std::initializer_list<int> values) {
  std::vector<wxColour> matrix;
  for (int v : values) matrix.push_back(wxColour(v, v, v));
  return matrix;
}

TEST(ColourToolsTest, ChannelArithmeticTruncatesAndBounds) {
  EXPECT_EQ(wxColour(0x11, 0x22, 0x33), colourFromNumber(0xFF332211u));
  EXPECT_EQ(wxColour(50, 62, 191), mixColour(wxColour(200, 100, 0), wxColour(0, 50, 255), 0.25f));
  EXPECT_EQ(wxColour(125, 250, 3), scaleColour(wxColour(100, 200, 3), 1.25f));
  EXPECT_EQ(wxColour(200, 255, 6), scaleColour(wxColour(100, 200, 3), 2.0f));
  EXPECT_EQ(wxColour(127, 0, 1), scaleColour(wxColour(255, 1, 3), 0.5f));
  EXPECT_EQ(wxColour(20, 255, 138), shiftColour(wxColour(10, 250, 128), 10));
  EXPECT_EQ(wxColour(0, 230, 108), shiftColour(wxColour(10, 250, 128), -20));
  EXPECT_EQ(255, shiftColour(wxColour(10, 250, 128), -20).Alpha());
}

TEST(ColourToolsTest, BlurCountsTheBorderCellAgain) {
  // One row: above and below are the cell itself; past either end, too.
  std::vector<wxColour> row = greys({0, 80, 160});
  blurMatrix(row, 3, 1, 0.5f);
  EXPECT_EQ((std::vector<int>{10, 80, 150}), reds(row));
  // The same standing upright.
  std::vector<wxColour> column = greys({0, 80, 160});
  blurMatrix(column, 1, 3, 0.5f);
  EXPECT_EQ((std::vector<int>{10, 80, 150}), reds(column));
  // A weight outside 0..1 counts as 0.2.
  std::vector<wxColour> wild = greys({0, 80, 160});
  blurMatrix(wild, 3, 1, 2.0f);
  EXPECT_EQ((std::vector<int>{16, 80, 144}), reds(wild));
  // Channels are truncated at the end, not rounded.
  std::vector<wxColour> faint = greys({0, 1});
  blurMatrix(faint, 2, 1, 0.5f);
  EXPECT_EQ((std::vector<int>{0, 0}), reds(faint));
  // Every cell reads the original, not its blurred neighbours. In single
  // precision (1 - 0.6) / 4 lies just below 0.1, so 200 of it truncates to 19.
  std::vector<wxColour> square = greys({0, 0, 0, 200});
  blurMatrix(square, 2, 2, 0.6f);
  EXPECT_EQ((std::vector<int>{0, 19, 19, 160}), reds(square));
  // A matrix of the wrong size is left alone.
  std::vector<wxColour> wrong = greys({0, 80, 160});
  blurMatrix(wrong, 2, 2, 0.5f);
  EXPECT_EQ((std::vector<int>{0, 80, 160}), reds(wrong));
}

TEST(ColourToolsTest, CircleFieldIsSymmetricAroundTheMiddle) {
  std::vector<float> small = circleField(4, 1);
  EXPECT_EQ((std::vector<float>{1, 0, 0, 1, 0, -1, -1, 0, 0, -1, -1, 0, 1, 0, 0, 1}), small);
  EXPECT_EQ(4.0f, circleField(6, 2)[0]);  // a = b = 2

  const int n = 10;
  std::vector<float> field = circleField(n, 3);
  ASSERT_EQ(static_cast<size_t>(n * n), field.size());
  for (int row = 0; row < n; row++) {
    for (int column = 0; column < n; column++) {
      float cell = field[row * n + column];
      EXPECT_EQ(cell, field[(n - 1 - row) * n + column]);
      EXPECT_EQ(cell, field[row * n + n - 1 - column]);
      EXPECT_EQ(cell, field[column * n + row]);
    }
  }
  EXPECT_EQ(-9.0f, field[4 * n + 5]);  // next to the middle
  EXPECT_EQ(32.0f - 9.0f, field[0]);   // a corner: 4*4 + 4*4 - 3*3
  EXPECT_TRUE(circleField(0, 3).empty());
}

}  // namespace
