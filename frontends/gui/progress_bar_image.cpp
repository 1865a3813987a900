// The body of the progress bar's picture (progress_bar_image.h): the trough
// and the fill drawn once, and the slices an update copies.
#include "frontends/gui/progress_bar_image.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "frontends/gui/colour_tools.h"

namespace {

bool sameRgb(const wxColour& a, const wxColour& b) {
  return a.Red() == b.Red() && a.Green() == b.Green() && a.Blue() == b.Blue();
}

// Writes outside the picture are dropped, so odd sizes can't reach past it.
void putPixel(wxImage& image, int x, int y, const wxColour& colour) {
  if (x < 0 || y < 0 || x >= image.GetWidth() || y >= image.GetHeight()) return;
  image.SetRGB(x, y, colour.Red(), colour.Green(), colour.Blue());
}

void horizontalLine(wxImage& image, int x, int y, int length, const wxColour& colour) {
  for (int i = 0; i < length; i++) putPixel(image, x + i, y, colour);
}

void verticalLine(wxImage& image, int x, int y, int length, const wxColour& colour) {
  for (int i = 0; i < length; i++) putPixel(image, x, y + i, colour);
}

// The trough in the upper half: flat background, then its edges and
// corners from a blurred matrix of one rounded corner set.
void drawTrough(wxImage& image, int width, int height, int radius, const wxColour& background,
                const wxColour& parentBackground) {
  for (int y = 0; y < height; y++) horizontalLine(image, 0, y, width, background);

  int n = 2 * radius + 2;
  std::vector<float> field = circleField(n, radius - 1);
  wxColour rim = scaleColour(background, 0.5f);
  wxColour lowerEdge = scaleColour(parentBackground, 1.25f);
  std::vector<wxColour> matrix(static_cast<size_t>(n) * static_cast<size_t>(n));
  for (int row = 0; row < n; row++) {
    for (int column = 0; column < n; column++) {
      float f = field[row * n + column];
      wxColour cell = background;
      if (std::fabs(f) < radius && row + column < n + 1) {
        cell = rim;  // dark rim on the upper left
      } else if (row == n - 1 &&
                 (sameRgb(matrix[(row - 1) * n + column], background) ||
                  sameRgb(matrix[(row - 1) * n + column], rim))) {
        cell = lowerEdge;  // light lower edge
      } else if (f >= radius) {
        cell = parentBackground;  // outside the corner
      }
      matrix[row * n + column] = cell;
    }
  }
  blurMatrix(matrix, n, n, 0.6f);

  // Rows and columns of the matrix below and right of its middle belong to
  // the far edges of the bar.
  int h = radius;
  for (int i = 0; i < n - 1; i++) {
    int y = i < h ? i : height - 2 * radius - 1 + i;
    horizontalLine(image, 0, y, width, matrix[(i + 1) * n + n / 2]);
  }
  for (int i = 0; i < n - 1; i++) {
    int x = i < h ? i : width - 2 * radius - 1 + i;
    verticalLine(image, x, 0, height - 1, matrix[(n / 2) * n + i + 1]);
  }
  for (int a = 0; a < n - 1; a++) {
    int y = a < h ? a : height - 2 * radius - 1 + a;
    for (int b = 0; b < n - 1; b++) {
      int x = b < h ? b : width - 2 * radius - 1 + b;
      putPixel(image, x, y, matrix[(a + 1) * n + b + 1]);
    }
  }
}

// The fill in the lower half: a gradient `middle` wide, then the two caps
// from a blurred matrix of the same gradient with round ends.
void drawFill(wxImage& image, int width, int height, int radius, const wxColour& background,
              const wxColour& foreground) {
  int rows = height - 2 * radius - 1;
  if (rows < 1) return;  // no room for a fill; the lower half stays a trough
  int middle = width - 2 * radius;
  int largest = std::max(foreground.Red(), std::max(foreground.Green(), foreground.Blue()));
  wxColour dark = shiftColour(foreground, -(largest / 4));
  float step = 1.0f / rows;

  float t = 1.0f;
  for (int i = 0; i < rows; i++) {
    horizontalLine(image, radius, height + radius + i, middle, mixColour(foreground, dark, t));
    t -= step;
  }

  int capWidth = 2 * radius;
  int capHeight = rows + 2;
  std::vector<float> field = circleField(capWidth, radius - 2);
  std::vector<wxColour> matrix(static_cast<size_t>(capWidth) * static_cast<size_t>(capHeight));
  int lowerShift = rows + 2 - 2 * radius;
  t = 1.0f;
  for (int row = 0; row < capHeight; row++) {
    for (int column = 0; column < capWidth; column++) {
      wxColour cell = mixColour(foreground, dark, t);
      bool outside = row == 0 || row == capHeight - 1 || column == 0 || column == capWidth - 1;
      if (!outside && row < radius) outside = field[row * capWidth + column] >= radius;
      if (!outside && row > radius + lowerShift) {
        int fieldRow = row - lowerShift;
        outside = fieldRow >= 0 && fieldRow < capWidth && field[fieldRow * capWidth + column] >= radius;
      }
      matrix[row * capWidth + column] = outside ? background : cell;
    }
    if (row != 0 && row != capHeight - 1) t -= step;
  }
  blurMatrix(matrix, capWidth, capHeight, 0.6f);

  for (int row = 1; row <= rows; row++) {
    for (int column = 0; column < capWidth; column++) {
      int x = column < radius ? radius - 1 + column : middle - radius + column;
      putPixel(image, x, height + radius - 1 + row, matrix[row * capWidth + column]);
    }
  }
}

}  // namespace

void progressBarSlices(int width, int height, int radius, wxRect slices[6]) {
  int r = radius;
  int m = width - 2 * r;
  slices[0] = wxRect(0, 0, r, height);
  slices[1] = wxRect(r, 0, m, height);
  slices[2] = wxRect(width - r, 0, r, height);
  slices[3] = wxRect(r - 1, height, r - 1, height);
  slices[4] = wxRect(2 * (r - 1), height, m - 2 * (r - 1), height);
  slices[5] = wxRect(m + 1, height, r - 1, height);
}

unsigned progressBarFill(unsigned value, unsigned range, int sliceWidth) {
  if (range == 0 || sliceWidth <= 0) return 0;
  return value * static_cast<unsigned>(sliceWidth) / range;
}

void progressBarTargets(int width, int height, int radius, unsigned fill, wxRect targets[6]) {
  int r = radius;
  int f = static_cast<int>(fill);
  targets[0] = wxRect(0, 0, r, height);
  targets[1] = wxRect(3 * r - 2 + f, 0, width - 4 * r + 2 - f, height);
  targets[2] = wxRect(width - r, 0, r, height);
  targets[3] = wxRect(r - 1, 0, r - 1, height);
  targets[4] = wxRect(2 * r - 2, 0, f + 1, height);
  targets[5] = wxRect(2 * r - 1 + f, 0, r - 1, height);
}

wxImage makeProgressBarImage(int width, int height, int radius, const wxColour& ownBackground,
                             const wxColour& ownForeground, const wxColour& parentBackground) {
  if (width < 1 || height < 1 || radius < 1) return wxImage();
  wxImage image(width, 2 * height, true);
  drawTrough(image, width, height, radius, ownBackground, parentBackground);
  // The lower half starts as the trough, so that a fill too small to draw
  // still shows an empty bar.
  unsigned char* data = image.GetData();
  size_t half = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
  std::memcpy(data + half, data, half);
  drawFill(image, width, height, radius, ownBackground, ownForeground);
  return image;
}
