// The body of wxImageBuffer (image_buffer.h): allocating the pixel arrays,
// writing pixels into them, and handing them over to a wxImage once.
#include "frontends/gui/image_buffer.h"

#include <cmath>
#include <cstdlib>
#include <limits>

wxImageBuffer::~wxImageBuffer() { release(); }

void wxImageBuffer::setSize(uint32_t newWidth, uint32_t newHeight) {
  width = newWidth;
  height = newHeight;
}

bool wxImageBuffer::allocate(bool withAlpha) {
  if (width < 1 || height < 1) return false;
  release();
  handedOver = false;
  rgb = nullptr;
  alpha = nullptr;
  // A wxImage addresses its pixels with int, so the pixel count must fit.
  uint64_t pixels = static_cast<uint64_t>(width) * height;
  if (width > static_cast<uint32_t>(std::numeric_limits<int>::max()) ||
      height > static_cast<uint32_t>(std::numeric_limits<int>::max()) ||
      pixels * 3 > static_cast<uint64_t>(std::numeric_limits<int>::max())) {
    return false;
  }
  rgb = static_cast<unsigned char*>(std::calloc(static_cast<size_t>(pixels), 3));
  if (rgb && withAlpha) alpha = static_cast<unsigned char*>(std::calloc(static_cast<size_t>(pixels), 1));
  if (!rgb || (withAlpha && !alpha)) {
    release();
    return false;
  }
  return true;
}

void wxImageBuffer::release() {
  if (handedOver) return;
  std::free(rgb);
  std::free(alpha);
  rgb = nullptr;
  alpha = nullptr;
}

void wxImageBuffer::setPixel(uint32_t x, uint32_t y, uint32_t argb) {
  if (handedOver || !rgb || x >= width || y >= height) return;
  size_t index = static_cast<size_t>(y) * width + x;
  unsigned char* pixel = rgb + index * 3;
  pixel[0] = static_cast<unsigned char>(argb >> 16);
  pixel[1] = static_cast<unsigned char>(argb >> 8);
  pixel[2] = static_cast<unsigned char>(argb);
  if (alpha) alpha[index] = static_cast<unsigned char>(argb >> 24);
}

void wxImageBuffer::setPixelFloat(uint32_t x, uint32_t y, float red, float green, float blue, float alphaValue) {
  uint32_t argb = static_cast<uint32_t>(floatToByte(alphaValue)) << 24 |
                  static_cast<uint32_t>(floatToByte(red)) << 16 |
                  static_cast<uint32_t>(floatToByte(green)) << 8 | floatToByte(blue);
  setPixel(x, y, argb);
}

unsigned char floatToByte(float channel) {
  float scaled = channel * 256.0f;
  // Written so that NaN, which fails every comparison, ends as 0.
  if (!(scaled > 0.0f)) return 0;
  if (scaled > 255.0f) return 255;
  return static_cast<unsigned char>(std::floor(scaled));
}

wxImage toImage(wxImageBuffer& buffer) {
  if (buffer.handedOver || !buffer.rgb || buffer.width < 1 || buffer.height < 1) return wxImage();
  buffer.handedOver = true;
  int width = static_cast<int>(buffer.width);
  int height = static_cast<int>(buffer.height);
  // Without static data the image takes both arrays and frees them with free().
  if (buffer.alpha) return wxImage(width, height, buffer.rgb, buffer.alpha, false);
  return wxImage(width, height, buffer.rgb, false);
}
