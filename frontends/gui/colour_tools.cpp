// The body of the colour arithmetic (colour_tools.h) for the self-drawn
// controls.
#include "frontends/gui/colour_tools.h"

namespace {

int clampChannel(float value) {
  // Truncation toward zero first, as a float-to-int conversion does.
  int channel = static_cast<int>(value);
  if (channel < 0) return 0;
  if (channel > 255) return 255;
  return channel;
}

int clampChannel(int value) {
  if (value < 0) return 0;
  if (value > 255) return 255;
  return value;
}

}  // namespace

wxColour colourFromNumber(uint32_t value) {
  return wxColour(static_cast<unsigned char>(value & 0xFF), static_cast<unsigned char>((value >> 8) & 0xFF),
                  static_cast<unsigned char>((value >> 16) & 0xFF), 255);
}

wxColour mixColour(const wxColour& a, const wxColour& b, float t) {
  float u = 1.0f - t;
  return wxColour(clampChannel(a.Red() * t + b.Red() * u), clampChannel(a.Green() * t + b.Green() * u),
                  clampChannel(a.Blue() * t + b.Blue() * u), 255);
}

wxColour scaleColour(const wxColour& c, float factor) {
  return wxColour(clampChannel(c.Red() * factor), clampChannel(c.Green() * factor), clampChannel(c.Blue() * factor),
                  255);
}

wxColour shiftColour(const wxColour& c, int delta) {
  return wxColour(clampChannel(c.Red() + delta), clampChannel(c.Green() + delta), clampChannel(c.Blue() + delta), 255);
}

void blurMatrix(std::vector<wxColour>& matrix, int width, int height, float centre) {
  if (width < 1 || height < 1 || matrix.size() != static_cast<size_t>(width) * static_cast<size_t>(height)) return;
  if (centre < 0.0f || centre > 1.0f) centre = 0.2f;
  float side = (1.0f - centre) / 4.0f;
  const std::vector<wxColour> source = matrix;
  for (int row = 0; row < height; row++) {
    int below = row + 1 < height ? row + 1 : row;
    int above = row > 0 ? row - 1 : row;
    for (int column = 0; column < width; column++) {
      int right = column + 1 < width ? column + 1 : column;
      int left = column > 0 ? column - 1 : column;
      // Right, below, left, above: the order fixes the float rounding.
      const wxColour* cells[4] = {&source[row * width + right], &source[below * width + column],
                                  &source[row * width + left], &source[above * width + column]};
      const wxColour& self = source[row * width + column];
      float red = centre * self.Red();
      float green = centre * self.Green();
      float blue = centre * self.Blue();
      for (const wxColour* cell : cells) {
        red += side * cell->Red();
        green += side * cell->Green();
        blue += side * cell->Blue();
      }
      matrix[row * width + column] = wxColour(clampChannel(red), clampChannel(green), clampChannel(blue), 255);
    }
  }
}

std::vector<float> circleField(int n, int rr) {
  std::vector<float> field;
  if (n < 1) return field;
  field.resize(static_cast<size_t>(n) * static_cast<size_t>(n));
  int half = n / 2;
  float rr2 = static_cast<float>(rr) * static_cast<float>(rr);
  for (int row = 0; row < n; row++) {
    int a = row < half ? half - 1 - row : row - half;
    for (int column = 0; column < n; column++) {
      int b = column < half ? half - 1 - column : column - half;
      field[row * n + column] = static_cast<float>(a * a + b * b) - rr2;
    }
  }
  return field;
}
