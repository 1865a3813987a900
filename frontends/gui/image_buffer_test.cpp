// Tests of the picture buffer: allocation, alpha, float channels, and the
// hand-over to a wxImage.
#include "frontends/gui/image_buffer.h"

#include <gtest/gtest.h>

namespace {

TEST(ImageBuffer, AllocatesOnlyWithASizeAndWritesAlphaOnlyIfItHasSome) {
  wxImageBuffer buffer;
  buffer.setSize(0, 5);
  EXPECT_FALSE(buffer.allocate(true));
  EXPECT_EQ(nullptr, buffer.rgb);
  EXPECT_EQ(nullptr, buffer.alpha);

  buffer.setSize(2, 2);
  ASSERT_TRUE(buffer.allocate(false));
  EXPECT_EQ(nullptr, buffer.alpha);
  buffer.setPixel(1, 1, 0x40A1B2C3);
  EXPECT_EQ(0xA1, buffer.rgb[9]);
  EXPECT_EQ(0xC3, buffer.rgb[11]);

  ASSERT_TRUE(buffer.allocate(true));
  buffer.setPixel(1, 0, 0x40A1B2C3);
  buffer.setPixel(2, 0, 0xFFFFFFFF);  // outside: ignored
  buffer.setPixel(0, 2, 0xFFFFFFFF);
  for (int i = 0; i < 4; i++) EXPECT_EQ(i == 1 ? 0x40 : 0, buffer.alpha[i]);
  EXPECT_EQ(0xB2, buffer.rgb[4]);
}

TEST(ImageBuffer, FloatChannelsBecomeBytes) {
  EXPECT_EQ(255, floatToByte(1.0f));
  EXPECT_EQ(128, floatToByte(0.5f));
  EXPECT_EQ(63, floatToByte(0.249f));  // floored, not rounded
  EXPECT_EQ(0, floatToByte(-0.5f));
  EXPECT_EQ(255, floatToByte(7.0f));

  wxImageBuffer buffer;
  buffer.setSize(1, 1);
  ASSERT_TRUE(buffer.allocate(true));
  buffer.setPixelFloat(0, 0, 1.0f, 0.5f, 0.0f, 0.25f);
  EXPECT_EQ(255, buffer.rgb[0]);
  EXPECT_EQ(128, buffer.rgb[1]);
  EXPECT_EQ(64, buffer.alpha[0]);
}

TEST(ImageBuffer, HandsItsArraysOverOnceWithoutCopying) {
  wxImageBuffer buffer;
  EXPECT_FALSE(toImage(buffer).IsOk());
  buffer.setSize(3, 2);
  ASSERT_TRUE(buffer.allocate(true));
  buffer.setPixel(2, 1, 0x11223344);
  unsigned char* rgb = buffer.rgb;
  unsigned char* alpha = buffer.alpha;

  wxImage image = toImage(buffer);
  EXPECT_EQ(rgb, image.GetData());
  EXPECT_EQ(alpha, image.GetAlpha());
  EXPECT_EQ(3, image.GetWidth());
  EXPECT_FALSE(toImage(buffer).IsOk());

  // The image's arrays outlive the buffer's writes, release and a new
  // allocation, and the destructor's release below.
  buffer.setPixel(0, 0, 0xFFFFFFFF);
  buffer.release();
  ASSERT_TRUE(buffer.allocate(false));
  EXPECT_FALSE(toImage(buffer).HasAlpha());
  EXPECT_EQ(0, image.GetRed(0, 0));
  EXPECT_EQ(0x22, image.GetRed(2, 1));
  EXPECT_EQ(0x11, image.GetAlpha(2, 1));
}

}  // namespace
