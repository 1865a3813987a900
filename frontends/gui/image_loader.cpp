// The body of the picture decoder (image_loader.h): PNG through libpng, JPEG
// through libjpeg, the raw form read here; every fault an empty image.
#include "frontends/gui/image_loader.h"

#include <csetjmp>
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
#include <jerror.h>
#include <png.h>

#include "foundation/stream.h"

namespace {

// Raw pictures are refused from this size on, in either direction.
const uint32_t kRawSizeLimit = 6400;
// A 16-bit sample times this is 0..1.
const float kSixteenBitScale = 1.5259022e-5f;

uint32_t readLittleEndian32(const unsigned char* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Leaves `buffer` without pixels when the header asks for more than the
// data holds or for too large a picture.
void loadRaw(const unsigned char* data, uint32_t size, wxImageBuffer* buffer) {
  if (size < 8) return;
  uint32_t width = readLittleEndian32(data);
  uint32_t height = readLittleEndian32(data + 4);
  if (width >= kRawSizeLimit || height >= kRawSizeLimit) return;
  // The two header words count as the first two "pixels".
  if ((static_cast<uint64_t>(width) * height + 2) * 4 > size) return;
  buffer->setSize(width, height);
  if (!buffer->allocate(true)) {
    buffer->setSize(0, 0);
    return;
  }
  const unsigned char* pixel = data + 8;
  for (uint32_t y = 0; y < height; y++) {
    for (uint32_t x = 0; x < width; x++, pixel += 4) buffer->setPixel(x, y, readLittleEndian32(pixel));
  }
}

// --- PNG -------------------------------------------------------------------

void readPngBytes(png_structp png, png_bytep out, png_size_t count) {
  QUtils::PBufStream* stream = static_cast<QUtils::PBufStream*>(png_get_io_ptr(png));
  uint32_t got = 0;
  if (count > UINT32_MAX || stream->read(out, static_cast<uint32_t>(count), &got) != 0 || got != count) {
    png_error(png, "PNG data ends early");
  }
}

// libpng's own handlers print to stderr; nobody reads a loader's messages.
void failPngRead(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignorePngWarning(png_structp, png_const_charp) {}

// Copies the decoded rows into `buffer`; `channels` is 1, 3 or 4 and
// `bitDepth` 8 or 16.
int storePngRows(png_bytepp rows, uint32_t width, uint32_t height, int channels, int bitDepth,
                 wxImageBuffer* buffer) {
  buffer->setSize(width, height);
  if (!buffer->allocate(channels == 4)) return 4;
  int bytesPerPixel = bitDepth * channels / 8;
  for (uint32_t y = 0; y < height; y++) {
    const unsigned char* p = rows[y];
    for (uint32_t x = 0; x < width; x++, p += bytesPerPixel) {
      if (bitDepth == 16) {
        float c[4];
        for (int i = 0; i < channels; i++) c[i] = static_cast<float>(p[2 * i] << 8 | p[2 * i + 1]) * kSixteenBitScale;
        if (channels == 1) {
          buffer->setPixelFloat(x, y, c[0], c[0], c[0], 1.0f);
        } else {
          buffer->setPixelFloat(x, y, c[0], c[1], c[2], channels == 4 ? c[3] : 1.0f);
        }
      } else if (channels == 1) {
        buffer->setPixel(x, y, 0xFF000000u | p[0] * 0x010101u);
      } else {
        uint32_t a = channels == 4 ? p[3] : 0xFF;
        buffer->setPixel(x, y, a << 24 | static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2]);
      }
    }
  }
  return 0;
}

// The whole PNG decode; a file code as result. Nothing here may hold a
// value that changes between setjmp and libpng's jump back.
int readPng(const unsigned char* data, uint32_t size, wxImageBuffer* buffer) {
  if (size < 8 || png_sig_cmp(data, 0, 8) != 0) return 3;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, failPngRead, ignorePngWarning);
  if (!png) return 6;
  png_infop info = png_create_info_struct(png);
  png_infop endInfo = info ? png_create_info_struct(png) : nullptr;
  if (!info || !endInfo) {
    png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    return 6;
  }
  QUtils::PBufStream stream;
  stream.setBuffer(const_cast<unsigned char*>(data + 8), size - 8);
  stream.open();
  png_set_read_fn(png, &stream, readPngBytes);
  png_set_sig_bytes(png, 8);

  if (setjmp(png_jmpbuf(png))) {
    // A damaged or truncated stream, or libpng out of memory midway.
    png_destroy_read_struct(&png, &info, &endInfo);
    return 3;
  }
  // Packing spreads pixels below 8 bits to a byte each; expanding turns a
  // palette into RGB (RGBA with transparency) and low-depth grey into 8 bits.
  png_read_png(png, info, PNG_TRANSFORM_PACKING | PNG_TRANSFORM_EXPAND, nullptr);

  int code = 0;
  int colourType = png_get_color_type(png, info);
  int channels = png_get_channels(png, info);
  int bitDepth = png_get_bit_depth(png, info);
  bool supported = (colourType == PNG_COLOR_TYPE_GRAY && channels == 1) ||
                   (colourType == PNG_COLOR_TYPE_RGB && channels == 3) ||
                   (colourType == PNG_COLOR_TYPE_RGB_ALPHA && channels == 4);
  if (!supported || (bitDepth != 8 && bitDepth != 16)) {
    code = 5;
  } else {
    code = storePngRows(png_get_rows(png, info), png_get_image_width(png, info), png_get_image_height(png, info),
                        channels, bitDepth, buffer);
  }
  png_destroy_read_struct(&png, &info, &endInfo);
  return code;
}

// --- JPEG ------------------------------------------------------------------

struct JpegErrorManager {
  jpeg_error_mgr base;
  jmp_buf jump;
};

// Every libjpeg error ends the decode: the decompressor is destroyed here
// and readJpeg resumes at its setjmp.
void failJpegRead(j_common_ptr info) {
  JpegErrorManager* manager = reinterpret_cast<JpegErrorManager*>(info->err);
  jpeg_destroy(info);
  longjmp(manager->jump, 1);
}

void ignoreJpegMessage(j_common_ptr) {}

void startJpegSource(j_decompress_ptr) {}
void endJpegSource(j_decompress_ptr) {}

// The source holds all the data from the start, so being asked for more
// means the data ended early.
boolean fillJpegSource(j_decompress_ptr info) {
  ERREXIT(info, JERR_INPUT_EMPTY);
  return FALSE;
}

// A skip beyond the data stops at its end; the next read then fails.
void skipJpegSource(j_decompress_ptr info, long count) {
  if (count <= 0) return;
  jpeg_source_mgr* source = info->src;
  size_t skip = static_cast<size_t>(count);
  if (skip > source->bytes_in_buffer) skip = source->bytes_in_buffer;
  source->next_input_byte += skip;
  source->bytes_in_buffer -= skip;
}

const int kJpegComponentsUnsupported = -1;

// The whole JPEG decode; a file code, or kJpegComponentsUnsupported.
int readJpeg(const unsigned char* data, uint32_t size, wxImageBuffer* buffer) {
  jpeg_decompress_struct info;
  JpegErrorManager errors;
  jpeg_source_mgr source;
  info.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = failJpegRead;
  errors.base.output_message = ignoreJpegMessage;
  if (setjmp(errors.jump)) return 3;

  jpeg_create_decompress(&info);
  source.next_input_byte = data;
  source.bytes_in_buffer = size;
  source.init_source = startJpegSource;
  source.fill_input_buffer = fillJpegSource;
  source.skip_input_data = skipJpegSource;
  source.resync_to_restart = jpeg_resync_to_restart;
  source.term_source = endJpegSource;
  info.src = &source;

  jpeg_read_header(&info, TRUE);
  jpeg_start_decompress(&info);
  int components = info.output_components;
  if (components != 1 && components != 3 && components != 4) {
    jpeg_destroy_decompress(&info);
    return kJpegComponentsUnsupported;
  }
  JSAMPARRAY row = (*info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE,
                                             info.output_width * components, 1);
  buffer->setSize(info.output_width, info.output_height);
  if (!buffer->allocate(components == 4)) {
    // Finishing now would complain of the unread rows; destroying aborts.
    jpeg_destroy_decompress(&info);
    return 4;
  }
  while (info.output_scanline < info.output_height) {
    if (jpeg_read_scanlines(&info, row, 1) != 1) break;
    uint32_t y = info.output_scanline - 1;
    const unsigned char* p = row[0];
    for (uint32_t x = 0; x < info.output_width; x++, p += components) {
      uint32_t argb;
      if (components == 1) {
        argb = 0xFF000000u | p[0] * 0x010101u;
      } else {
        // A fourth component is taken as alpha, as it stands.
        uint32_t a = components == 4 ? p[3] : 0xFF;
        argb = a << 24 | static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
      }
      buffer->setPixel(x, y, argb);
    }
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return 0;
}

}  // namespace

int detectImageFormat(const unsigned char* data, uint32_t size) {
  if (!data) return kImageNoData;
  if (size >= 4 && data[0] == 0x89 && data[1] == 'P' && data[2] == 'N' && data[3] == 'G') return kImagePNG;
  if (size >= 2 && data[0] == 0xFF && data[1] == 0xD8) return kImageJPEG;
  return kImageRaw;
}

wxImage decodeImage(const unsigned char* data, uint32_t size) {
  if (!data || size < 1) return wxImage();
  wxImageBuffer buffer;
  int format = detectImageFormat(data, size);
  if (format == kImageRaw) {
    loadRaw(data, size, &buffer);
  } else {
    QUtils::ErrorChain error = format == kImagePNG ? ImageLoader::LoadPNGArray(data, size, &buffer)
                                                   : ImageLoader::LoadJPGArray(data, size, &buffer);
    if (!error.isEmpty()) {
      buffer.release();
      buffer.setSize(0, 0);
    }
  }
  return toImage(buffer);
}

QUtils::ErrorChain ImageLoader::LoadPNGArray(const unsigned char* data, uint32_t size, wxImageBuffer* buffer) {
  if (!data || size == 0 || !buffer) {
    QUtils::ErrorChain error;
    error.setError("ImageLoader::LoadPNGArray", 4, "Can't read NULL PNG data");
    return error;
  }
  return QUtils::ErrorChain::fromFileCode(readPng(data, size, buffer));
}

QUtils::ErrorChain ImageLoader::LoadJPGArray(const unsigned char* data, uint32_t size, wxImageBuffer* buffer) {
  if (!data || size == 0 || !buffer) {
    QUtils::ErrorChain error;
    error.setError("ImageLoader::LoadJPGArray", 4, "Can't read NULL JPEG data");
    return error;
  }
  int code = readJpeg(data, size, buffer);
  if (code == kJpegComponentsUnsupported) {
    QUtils::ErrorChain error;
    error.setError(nullptr, 3, "%s", "");
    return error;
  }
  return QUtils::ErrorChain::fromFileCode(code);
}
