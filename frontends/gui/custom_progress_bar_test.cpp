// Tests of the self-drawn progress bar: value and range, and the fill.
#include "frontends/gui/custom_progress_bar.h"

#include <gtest/gtest.h>

#include "frontends/gui/gui_test_display.h"

namespace {

// Counts the drawings, to see which updates draw.
class CountingBar : public wxCustomProgressBar {
 public:
  using wxCustomProgressBar::wxCustomProgressBar;
  void render(wxDC& dc) override {
    renders++;
    wxCustomProgressBar::render(dc);
  }
  int renders = 0;
};

class CustomProgressBarTest : public GuiWindowTest {
 protected:
  CountingBar* makeBar(unsigned range) {
    CountingBar* bar = new CountingBar(panel, wxID_ANY, range, wxPoint(10, 10), wxSize(200, 20), 0, 4);
    bar->SetBackgroundColour(wxColour(220, 220, 220));
    bar->SetForegroundColour(wxColour(0, 0, 255));
    return bar;
  }

  // Pixels along the middle row that show the fill's blue.
  int filledPixels(wxCustomProgressBar* bar) {
    wxImage image = drawToImage(200, 20, [bar](wxDC& dc) { bar->render(dc); });
    int count = 0;
    for (int x = 0; x < 200; x++) {
      if (image.GetBlue(x, 10) > image.GetRed(x, 10) + 100) count++;
    }
    return count;
  }
};

TEST_F(CustomProgressBarTest, ValueAndRangeRules) {
  EXPECT_EQ(100u, makeBar(0)->GetRange());
  CountingBar* bar = makeBar(50);
  EXPECT_EQ(0u, bar->GetValue());
  bar->SetValue(80);
  EXPECT_EQ(50u, bar->GetValue());
  bar->SetRange(0);
  EXPECT_EQ(50u, bar->GetRange());
  bar->SetRange(200);
  EXPECT_EQ(200u, bar->GetRange());
  EXPECT_EQ(50u, bar->GetValue());  // the value isn't clamped again

  // The same non-zero value draws nothing; 0 always draws.
  ASSERT_TRUE(bar->IsShownOnScreen());
  int renders = bar->renders;
  bar->SetValue(50);
  EXPECT_EQ(renders, bar->renders);
  bar->SetValue(0);
  bar->SetValue(0);
  EXPECT_EQ(renders + 2, bar->renders);
  bar->SetValue(10);
  EXPECT_EQ(renders + 3, bar->renders);
}

TEST_F(CustomProgressBarTest, FillGrowsWithTheValue) {
  CountingBar* bar = makeBar(100);
  EXPECT_EQ(0, filledPixels(bar));
  bar->SetValue(1);  // a fill of at most one pixel shows the empty trough
  EXPECT_EQ(0, filledPixels(bar));
  bar->SetValue(25);
  int quarter = filledPixels(bar);
  bar->SetValue(50);
  int half = filledPixels(bar);
  bar->SetValue(100);
  int full = filledPixels(bar);
  EXPECT_GT(quarter, 20);
  EXPECT_GT(half, quarter + 30);
  EXPECT_GT(full, half + 60);
  EXPECT_LE(full, 200 - 2 * 4);

  // A new colour shows at the next drawing without further calls.
  bar->SetForegroundColour(wxColour(255, 0, 0));
  EXPECT_EQ(0, filledPixels(bar));
}

}  // namespace
