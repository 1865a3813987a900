// Shrinking a picture with a weighted box filter, in single-precision
// floats. Each source pixel i of a line falls at p = i * step in the target,
// step = (targetSize - 1) / (sourceSize - 1), and is shared between target
// pixels trunc(p) and trunc(p) + 1 by the fraction of p; every target pixel
// is then divided by the sum of the shares it got. Rows are scaled first,
// then columns; colour and alpha are scaled alike, without premultiplying.
//
// The weight tables depend only on the two sizes and are kept in a cache, a
// list of SCALEWEIGHTS that the caller owns (null when empty) and frees with
// freeScaleWeights. Neither the cache nor the images are safe to share
// between threads.
#ifndef QLUX_FRONTENDS_GUI_IMAGE_SCALER_H_
#define QLUX_FRONTENDS_GUI_IMAGE_SCALER_H_

#include <wx/image.h>

#include <cstddef>
#include <cstdint>

// One cached table: the reciprocal share sum of each target pixel.
struct SCALEWEIGHTS {
  uint32_t sourceSize;
  uint32_t targetSize;
  float* weights;  // targetSize entries
  SCALEWEIGHTS* next;
};

// The table for one direction, from the cache or worked out and put at the
// cache's front. Null if a size is below 1, the target is larger than the
// source, or memory runs out. A source of 1 pixel maps onto target pixel 0.
const float* scaleWeights(SCALEWEIGHTS** cache, uint32_t sourceSize, uint32_t targetSize);

// Frees every entry and leaves the cache empty.
void freeScaleWeights(SCALEWEIGHTS** cache);

// Scales one line of `sourceSize` pixels of four floats into `targetSize`
// pixels. Strides count pixels, so a column is a line with the row width as
// stride. `target` must not overlap `source`.
void scaleLine(const float* source, uint32_t sourceSize, size_t sourceStride, float* target, uint32_t targetSize,
               size_t targetStride, const float* weights);

// A new image of `width` x `height`. Smaller or equal in both directions:
// the weighted filter, with an alpha array if and only if `image` has one.
// Larger in either direction: the toolkit's high-quality scaling. An empty
// image for an empty source, a size below 1, or, when shrinking, a null
// `cache` or no memory.
wxImage resampleImage(SCALEWEIGHTS** cache, const wxImage& image, int width, int height);

#endif  // QLUX_FRONTENDS_GUI_IMAGE_SCALER_H_
