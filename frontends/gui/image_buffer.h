// wxImageBuffer: the pixel arrays of one picture while it is being decoded,
// laid out as a wxImage keeps them: three colour bytes per pixel, red first,
// row by row, and optionally one alpha byte per pixel. Both arrays come from
// malloc, so toImage can give them to a wxImage, which then owns and frees
// them; from that moment (`handedOver`) the buffer neither frees them nor
// hands them out again.
//
// Pixels are written one at a time as 0xAARRGGBB or as four floats in 0..1;
// writes outside the picture, or before `allocate`, are ignored. A buffer
// belongs to one thread.
#ifndef QLUX_FRONTENDS_GUI_IMAGE_BUFFER_H_
#define QLUX_FRONTENDS_GUI_IMAGE_BUFFER_H_

#include <wx/image.h>

#include <cstdint>

class wxImageBuffer {
 public:
  wxImageBuffer() : width(0), height(0), rgb(nullptr), alpha(nullptr), handedOver(false) {}
  virtual ~wxImageBuffer();

  wxImageBuffer(const wxImageBuffer&) = delete;
  wxImageBuffer& operator=(const wxImageBuffer&) = delete;

  // Stores the size; allocates nothing.
  virtual void setSize(uint32_t newWidth, uint32_t newHeight);
  // Makes zeroed arrays for the stored size, `alpha` only `withAlpha`.
  // False, with nothing allocated, when the size is below 1 in either
  // direction, too large to address, or memory runs out.
  virtual bool allocate(bool withAlpha);
  // Frees both arrays unless a wxImage owns them.
  virtual void release();
  // `argb` is 0xAARRGGBB; the alpha byte is kept only if there is an alpha array.
  virtual void setPixel(uint32_t x, uint32_t y, uint32_t argb);
  // Each channel is 0..1 and becomes a byte by floatToByte.
  virtual void setPixelFloat(uint32_t x, uint32_t y, float red, float green, float blue, float alphaValue);

  uint32_t width;
  uint32_t height;
  unsigned char* rgb;
  unsigned char* alpha;
  bool handedOver;
};

// A channel of 0..1 as a byte: floor(c * 256) with the product first bounded
// to 0..255, so 1.0 gives 255 and 0.5 gives 128.
unsigned char floatToByte(float channel);

// Gives the buffer's arrays to a new wxImage of its size without copying.
// An empty image if they were handed over already or there are none.
wxImage toImage(wxImageBuffer& buffer);

#endif  // QLUX_FRONTENDS_GUI_IMAGE_BUFFER_H_
