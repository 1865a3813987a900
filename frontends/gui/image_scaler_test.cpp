// Tests of the picture scaler: cached weights, reductions, alpha, and sizes
// it leaves to the toolkit.
#include "frontends/gui/image_scaler.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class ScalerTest : public ::testing::Test {
 protected:
  ~ScalerTest() override { freeScaleWeights(&cache); }

  // Red follows x, green follows y, blue is 200; alpha follows x when
  // `alphaByX` isn't empty.
  static wxImage gradient(const std::vector<int>& redByX, const std::vector<int>& greenByY,
                          const std::vector<int>& alphaByX = {}) {
    wxImage image(static_cast<int>(redByX.size()), static_cast<int>(greenByY.size()));
    if (!alphaByX.empty()) image.InitAlpha();
    for (int y = 0; y < image.GetHeight(); y++) {
      for (int x = 0; x < image.GetWidth(); x++) {
        image.SetRGB(x, y, redByX[x], greenByY[y], 200);
        if (!alphaByX.empty()) image.SetAlpha(x, y, alphaByX[x]);
      }
    }
    return image;
  }

  SCALEWEIGHTS* cache = nullptr;
};

TEST_F(ScalerTest, WeightsAreCachedNewestFirst) {
  const float* fourToTwo = scaleWeights(&cache, 4, 2);
  ASSERT_NE(nullptr, fourToTwo);
  EXPECT_FLOAT_EQ(0.5f, fourToTwo[0]);
  EXPECT_FLOAT_EQ(0.5f, fourToTwo[1]);
  const float* fiveToThree = scaleWeights(&cache, 5, 3);  // shares 1.5, 2, 1.5
  EXPECT_FLOAT_EQ(0.5f, fiveToThree[1]);
  EXPECT_FLOAT_EQ(1.0f / 1.5f, fiveToThree[2]);
  EXPECT_EQ(5u, cache->sourceSize);
  EXPECT_EQ(fourToTwo, scaleWeights(&cache, 4, 2));
  EXPECT_EQ(nullptr, cache->next->next);
  EXPECT_EQ(nullptr, scaleWeights(&cache, 2, 4));
}

TEST_F(ScalerTest, ReductionsFollowTheShares) {
  // Four to two: (p0 + 2/3 p1 + 1/3 p2) / 2 and (1/3 p1 + 2/3 p2 + p3) / 2.
  wxImage result = resampleImage(&cache, gradient({0, 30, 60, 90}, {90, 60, 30, 0}), 2, 2);
  ASSERT_EQ(2, result.GetWidth());
  ASSERT_EQ(2, result.GetHeight());
  EXPECT_FALSE(result.HasAlpha());
  EXPECT_EQ(20, result.GetRed(0, 1));
  EXPECT_EQ(70, result.GetRed(1, 0));
  EXPECT_EQ(20, result.GetGreen(0, 1));
  EXPECT_EQ(200, result.GetBlue(1, 1));

  // Five to three: (p0 + p1/2) / 1.5, (p1/2 + p2 + p3/2) / 2, (p3/2 + p4) / 1.5.
  result = resampleImage(&cache, gradient({0, 60, 90, 120, 30}, {10, 10}), 3, 2);
  EXPECT_EQ(20, result.GetRed(0, 0));
  EXPECT_EQ(90, result.GetRed(1, 1));
  EXPECT_EQ(60, result.GetRed(2, 0));
  EXPECT_EQ(10, result.GetGreen(2, 1));

  // A one-pixel column keeps its pixel across while its rows are reduced.
  result = resampleImage(&cache, gradient({40}, {10, 20, 30, 40}), 1, 2);
  EXPECT_EQ(40, result.GetRed(0, 1));
  EXPECT_EQ(16, result.GetGreen(0, 0));
  EXPECT_EQ(33, result.GetGreen(0, 1));
}

TEST_F(ScalerTest, AlphaIsScaledLikeColourAndOnePixelIsTheMean) {
  wxImage result = resampleImage(&cache, gradient({0, 30, 60, 90}, {50, 50}, {255, 255, 0, 0}), 2, 1);
  ASSERT_TRUE(result.HasAlpha());
  // 212.5 and 42.5, times 256/255, floored.
  EXPECT_EQ(213, result.GetAlpha(0, 0));
  EXPECT_EQ(42, result.GetAlpha(1, 0));
  EXPECT_EQ(70, result.GetRed(1, 0));  // no premultiplying

  result = resampleImage(&cache, gradient({10, 20, 30}, {0, 60}, {0, 100, 200}), 1, 1);
  ASSERT_EQ(1, result.GetWidth());
  EXPECT_EQ(20, result.GetRed(0, 0));
  EXPECT_EQ(30, result.GetGreen(0, 0));
  EXPECT_EQ(100, result.GetAlpha(0, 0));
}

TEST_F(ScalerTest, SameSizeKeepsEveryByte) {
  std::vector<int> ramp;
  for (int i = 0; i < 256; i += 5) ramp.push_back(i);
  ramp.push_back(255);
  wxImage image = gradient(ramp, {0, 1, 254, 255}, ramp);
  wxImage result = resampleImage(&cache, image, image.GetWidth(), image.GetHeight());
  ASSERT_TRUE(result.IsOk());
  for (int y = 0; y < image.GetHeight(); y++) {
    for (int x = 0; x < image.GetWidth(); x++) {
      ASSERT_EQ(image.GetRed(x, y), result.GetRed(x, y)) << x << "," << y;
      ASSERT_EQ(image.GetGreen(x, y), result.GetGreen(x, y)) << x << "," << y;
      ASSERT_EQ(image.GetAlpha(x, y), result.GetAlpha(x, y)) << x << "," << y;
    }
  }
}

TEST_F(ScalerTest, GrowingInEitherDirectionIsTheToolkitsJob) {
  wxImage result = resampleImage(&cache, gradient({0, 30, 60, 90}, {90, 60}), 2, 4);
  EXPECT_EQ(2, result.GetWidth());
  EXPECT_EQ(4, result.GetHeight());
  EXPECT_EQ(nullptr, cache);  // the weighted filter wasn't used
  EXPECT_FALSE(resampleImage(&cache, wxImage(), 1, 1).IsOk());
}

}  // namespace
