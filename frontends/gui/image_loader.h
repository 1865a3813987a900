// Decoding the pictures of a wizard from memory. A picture is a PNG file, a
// JPEG file, or the raw form: width and height as little-endian u32, then
// width x height pixels, row by row, each a little-endian u32 0xAARRGGBB.
// A raw picture must be below 6400 pixels in both directions.
//
// decodeImage never fails loudly: any fault gives an empty (not IsOk) image,
// which callers treat as a picture that isn't there. The loaders say what
// went wrong as an ErrorChain with file codes: 3 damaged or truncated data,
// 4 null data or no memory, 5 a PNG colour type that isn't supported (grey
// with alpha), 6 libpng's structures couldn't be made.
#ifndef QLUX_FRONTENDS_GUI_IMAGE_LOADER_H_
#define QLUX_FRONTENDS_GUI_IMAGE_LOADER_H_

#include <wx/image.h>

#include <cstdint>

#include "foundation/errors.h"
#include "frontends/gui/image_buffer.h"

enum ImageFormat { kImageRaw = 0, kImagePNG = 1, kImageJPEG = 2, kImageNoData = 3 };

// PNG when the data starts with 0x89 "PNG", JPEG with 0xFF 0xD8, raw
// otherwise; kImageNoData for null data.
int detectImageFormat(const unsigned char* data, uint32_t size);

// The picture in `data`, or an empty image.
wxImage decodeImage(const unsigned char* data, uint32_t size);

class ImageLoader {
 public:
  // Decode the whole of `data` into `buffer`, which gets an alpha array only
  // for pictures with alpha. An empty chain for success.
  static QUtils::ErrorChain LoadPNGArray(const unsigned char* data, uint32_t size, wxImageBuffer* buffer);
  static QUtils::ErrorChain LoadJPGArray(const unsigned char* data, uint32_t size, wxImageBuffer* buffer);
};

#endif  // QLUX_FRONTENDS_GUI_IMAGE_LOADER_H_
