// Tests of the progress bar's picture: the slices and the trough above the
// fill.
#include "frontends/gui/progress_bar_image.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

wxColour pixel(const wxImage& image, int x, int y) {
  return wxColour(image.GetRed(x, y), image.GetGreen(x, y), image.GetBlue(x, y));
}

int brightness(const wxColour& c) { return c.Red() + c.Green() + c.Blue(); }

TEST(ProgressBarImageTest, SlicesTargetsAndFill) {
  wxRect slices[6];
  progressBarSlices(100, 20, 4, slices);
  EXPECT_EQ(wxRect(0, 0, 4, 20), slices[0]);
  EXPECT_EQ(wxRect(4, 0, 92, 20), slices[1]);
  EXPECT_EQ(wxRect(96, 0, 4, 20), slices[2]);
  EXPECT_EQ(wxRect(3, 20, 3, 20), slices[3]);
  EXPECT_EQ(wxRect(6, 20, 86, 20), slices[4]);
  EXPECT_EQ(wxRect(93, 20, 3, 20), slices[5]);

  EXPECT_EQ(0u, progressBarFill(0, 100, 86));
  EXPECT_EQ(43u, progressBarFill(50, 100, 86));
  EXPECT_EQ(86u, progressBarFill(100, 100, 86));
  EXPECT_EQ(0u, progressBarFill(50, 0, 86));
  EXPECT_EQ(0u, progressBarFill(50, 100, -3));

  // At the largest fill the empty middle has no width left, and the fill's
  // right cap ends where the trough's right end begins.
  wxRect targets[6];
  progressBarTargets(100, 20, 4, 86, targets);
  EXPECT_EQ(0, targets[1].GetWidth());
  EXPECT_EQ(wxRect(6, 0, 87, 20), targets[4]);
  EXPECT_EQ(wxRect(93, 0, 3, 20), targets[5]);
  progressBarTargets(100, 20, 4, 43, targets);
  EXPECT_EQ(wxRect(53, 0, 43, 20), targets[1]);
  EXPECT_EQ(targets[5].GetX(), targets[4].GetRight() + 1);
}

TEST(ProgressBarImageTest, TroughAboveFillBelow) {
  const wxColour background(200, 200, 200), foreground(0, 0, 255), parent(180, 180, 180);
  wxImage image = makeProgressBarImage(100, 20, 4, background, foreground, parent);
  ASSERT_TRUE(image.IsOk());
  ASSERT_EQ(100, image.GetWidth());
  ASSERT_EQ(40, image.GetHeight());

  EXPECT_EQ(background, pixel(image, 50, 10));  // inside the trough
  EXPECT_LT(brightness(pixel(image, 50, 0)), brightness(background));   // dark upper rim
  EXPECT_GT(brightness(pixel(image, 50, 19)), brightness(background));  // light lower edge
  // Outside the rounded corner the parent shows through, softened.
  EXPECT_LT(brightness(pixel(image, 0, 0)), brightness(pixel(image, 50, 10)));

  // The fill darkens from its top row (the foreground itself) downwards;
  // rows = 20 - 2*4 - 1 = 11.
  EXPECT_EQ(foreground, pixel(image, 50, 24));
  EXPECT_EQ(wxColour(0, 0, 197), pixel(image, 50, 34));
  // Left of the fill's cap the lower half is still the trough.
  EXPECT_EQ(pixel(image, 1, 10), pixel(image, 1, 30));

  // Too low for a fill: the lower half is the trough byte for byte.
  wxImage flat = makeProgressBarImage(60, 8, 4, background, foreground, parent);
  ASSERT_TRUE(flat.IsOk());
  size_t half = 60 * 8 * 3;
  EXPECT_EQ(0, std::memcmp(flat.GetData(), flat.GetData() + half, half));

  EXPECT_FALSE(makeProgressBarImage(0, 20, 4, background, foreground, parent).IsOk());
}

}  // namespace
