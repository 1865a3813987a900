// The body of the picture scaler (image_scaler.h): the weights of a line,
// cached, and the reduction of rows, then columns.
#include "frontends/gui/image_scaler.h"

#include <cstdlib>
#include <cstring>

#include "frontends/gui/image_buffer.h"

namespace {

// A byte times this is 0..1.
const float kByteScale = 0.003921569f;

// Where source pixel `index` falls: target pixel `*whole` gets 1 - `*part`
// of it, and the next target pixel, if there is one, gets `*part`.
void placeSourcePixel(uint32_t index, float step, uint32_t targetSize, uint32_t* whole, float* part) {
  float position = static_cast<float>(index) * step;
  uint32_t k = static_cast<uint32_t>(position);
  float fraction = position - static_cast<float>(k);
  // Rounding may not push a pixel past the last target pixel.
  if (k >= targetSize) {
    k = targetSize - 1;
    fraction = 0.0f;
  }
  *whole = k;
  *part = fraction;
}

float stepFor(uint32_t sourceSize, uint32_t targetSize) {
  if (sourceSize < 2 || targetSize < 2) return 0.0f;
  return static_cast<float>(targetSize - 1) / static_cast<float>(sourceSize - 1);
}

}  // namespace

const float* scaleWeights(SCALEWEIGHTS** cache, uint32_t sourceSize, uint32_t targetSize) {
  if (!cache || sourceSize < 1 || targetSize < 1 || targetSize > sourceSize) return nullptr;
  for (SCALEWEIGHTS* entry = *cache; entry; entry = entry->next) {
    if (entry->sourceSize == sourceSize && entry->targetSize == targetSize) return entry->weights;
  }
  SCALEWEIGHTS* entry = static_cast<SCALEWEIGHTS*>(std::malloc(sizeof(SCALEWEIGHTS)));
  float* weights = static_cast<float*>(std::calloc(targetSize, sizeof(float)));
  if (!entry || !weights) {
    std::free(entry);
    std::free(weights);
    return nullptr;
  }
  float step = stepFor(sourceSize, targetSize);
  for (uint32_t i = 0; i < sourceSize; i++) {
    uint32_t k;
    float f;
    placeSourcePixel(i, step, targetSize, &k, &f);
    weights[k] += 1.0f - f;
    if (k + 1 < targetSize) weights[k + 1] += f;
  }
  // With step at most 1 every target pixel gets a share; the test only
  // keeps a rounding accident from dividing by zero.
  for (uint32_t k = 0; k < targetSize; k++) weights[k] = weights[k] > 0.0f ? 1.0f / weights[k] : 0.0f;
  entry->sourceSize = sourceSize;
  entry->targetSize = targetSize;
  entry->weights = weights;
  entry->next = *cache;
  *cache = entry;
  return weights;
}

void freeScaleWeights(SCALEWEIGHTS** cache) {
  if (!cache) return;
  while (*cache) {
    SCALEWEIGHTS* entry = *cache;
    *cache = entry->next;
    std::free(entry->weights);
    std::free(entry);
  }
}

void scaleLine(const float* source, uint32_t sourceSize, size_t sourceStride, float* target, uint32_t targetSize,
               size_t targetStride, const float* weights) {
  for (uint32_t k = 0; k < targetSize; k++) {
    float* out = target + k * targetStride * 4;
    out[0] = out[1] = out[2] = out[3] = 0.0f;
  }
  float step = stepFor(sourceSize, targetSize);
  for (uint32_t i = 0; i < sourceSize; i++) {
    const float* in = source + i * sourceStride * 4;
    uint32_t k;
    float f;
    placeSourcePixel(i, step, targetSize, &k, &f);
    float* out = target + k * targetStride * 4;
    float whole = 1.0f - f;
    for (int c = 0; c < 4; c++) out[c] += whole * in[c];
    if (k + 1 < targetSize) {
      out += targetStride * 4;
      for (int c = 0; c < 4; c++) out[c] += f * in[c];
    }
  }
  for (uint32_t k = 0; k < targetSize; k++) {
    float* out = target + k * targetStride * 4;
    for (int c = 0; c < 4; c++) out[c] *= weights[k];
  }
}

wxImage resampleImage(SCALEWEIGHTS** cache, const wxImage& image, int width, int height) {
  if (!image.IsOk() || width < 1 || height < 1) return wxImage();
  int sourceWidth = image.GetWidth();
  int sourceHeight = image.GetHeight();
  if (width > sourceWidth || height > sourceHeight) return image.Scale(width, height, wxIMAGE_QUALITY_HIGH);

  const float* rowWeights = scaleWeights(cache, sourceWidth, width);
  const float* columnWeights = scaleWeights(cache, sourceHeight, height);
  if (!rowWeights || !columnWeights) return wxImage();

  size_t sourcePixels = static_cast<size_t>(sourceWidth) * sourceHeight;
  size_t narrowPixels = static_cast<size_t>(width) * sourceHeight;
  size_t resultPixels = static_cast<size_t>(width) * height;
  float* pixels = static_cast<float*>(std::malloc(sourcePixels * 4 * sizeof(float)));
  float* narrow = static_cast<float*>(std::malloc(narrowPixels * 4 * sizeof(float)));
  float* result = static_cast<float*>(std::malloc(resultPixels * 4 * sizeof(float)));
  wxImageBuffer buffer;
  buffer.setSize(width, height);
  bool hasAlpha = image.HasAlpha();
  if (!pixels || !narrow || !result || !buffer.allocate(hasAlpha)) {
    std::free(pixels);
    std::free(narrow);
    std::free(result);
    return wxImage();
  }

  const unsigned char* rgb = image.GetData();
  const unsigned char* alpha = image.GetAlpha();
  for (size_t i = 0; i < sourcePixels; i++) {
    pixels[i * 4] = rgb[i * 3] * kByteScale;
    pixels[i * 4 + 1] = rgb[i * 3 + 1] * kByteScale;
    pixels[i * 4 + 2] = rgb[i * 3 + 2] * kByteScale;
    pixels[i * 4 + 3] = (alpha ? alpha[i] : 255) * kByteScale;
  }
  for (int y = 0; y < sourceHeight; y++) {
    scaleLine(pixels + static_cast<size_t>(y) * sourceWidth * 4, sourceWidth, 1,
              narrow + static_cast<size_t>(y) * width * 4, width, 1, rowWeights);
  }
  for (int x = 0; x < width; x++) {
    scaleLine(narrow + static_cast<size_t>(x) * 4, sourceHeight, width, result + static_cast<size_t>(x) * 4, height,
              width, columnWeights);
  }
  for (int y = 0; y < height; y++) {
    for (int x = 0; x < width; x++) {
      const float* p = result + (static_cast<size_t>(y) * width + x) * 4;
      buffer.setPixelFloat(x, y, p[0], p[1], p[2], p[3]);
    }
  }
  std::free(pixels);
  std::free(narrow);
  std::free(result);
  return toImage(buffer);
}
