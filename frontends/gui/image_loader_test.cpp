// Decoding pictures that another program wrote: ImageMagick's convert makes
// each PNG and JPEG from raw pixels the test chose, in a scratch directory
// of the test's own, and the test decodes the bytes from memory.
#include "frontends/gui/image_loader.h"

#include <gtest/gtest.h>
#include <unistd.h>
#ifndef _WIN32
#include <spawn.h>
#include <sys/wait.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

typedef std::vector<unsigned char> Bytes;

// A directory made with mkdtemp under $TMPDIR. Only the two files convert
// reads and writes are ever removed, then the directory itself.
class ImageFiles : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef _WIN32
    // convert is a program of the build machine: the Windows test binary,
    // under Wine, has no way to start it. The decoder is the same code on
    // both systems and meets these files in the native run.
    GTEST_SKIP() << "needs ImageMagick's convert, which runs on the build machine only";
#else
    const char* base = std::getenv("TMPDIR");
    std::string root = base && base[0] == '/' ? base : ::testing::TempDir();
    ASSERT_EQ('/', root[0]);
    std::string pattern = root + (root.back() == '/' ? "" : "/") + "qlux-images-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
    directory = pattern;
#endif
  }
  void TearDown() override {
    if (directory.empty()) return;
    unlink((directory + "/in").c_str());
    unlink((directory + "/out").c_str());
    rmdir(directory.c_str());
  }

  // convert <inOptions> <inFormat>:in <outOptions> <outFormat>:out, with
  // `pixels` as "in"; gives the bytes of "out".
  Bytes convert(const Bytes& pixels, const std::string& inOptions, const char* inFormat, const std::string& outOptions,
                const char* outFormat) {
    Bytes out;
    std::string in = directory + "/in", outName = directory + "/out";
    FILE* file = std::fopen(in.c_str(), "wb");
    if (!file) return out;
    std::fwrite(pixels.data(), 1, pixels.size(), file);
    std::fclose(file);
    // The options are words separated by blanks; convert is started with
    // them as its arguments, no shell reads the names.
    std::vector<std::string> words = {"convert"};
    addWords(inOptions, &words);
    words.push_back(std::string(inFormat) + ":" + in);
    addWords(outOptions, &words);
    words.push_back(std::string(outFormat) + ":" + outName);
    EXPECT_EQ(0, run(words)) << "convert " << inOptions << " " << inFormat << " " << outOptions << " " << outFormat;
    file = std::fopen(outName.c_str(), "rb");
    if (!file) return out;
    for (int c; (c = std::fgetc(file)) != EOF;) out.push_back(static_cast<unsigned char>(c));
    std::fclose(file);
    return out;
  }

  std::string directory;

 private:
  static void addWords(const std::string& text, std::vector<std::string>* out) {
    size_t start = 0;
    while (start < text.size()) {
      size_t end = text.find(' ', start);
      if (end == std::string::npos) end = text.size();
      if (end > start) out->push_back(text.substr(start, end - start));
      start = end + 1;
    }
  }
  // Runs the words as a program found on the PATH; its exit code, or -1.
  static int run(const std::vector<std::string>& words) {
#ifdef _WIN32
    return -1;
#else
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t pid;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
      if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  }
};

// What a PNG header says: bit depth, colour type, interlace method.
std::vector<int> pngKind(const Bytes& png) {
  if (png.size() < 29) return {};
  return {png[24], png[25], png[28]};
}

// The component count in a JPEG frame header.
int jpegComponents(const Bytes& jpeg) {
  for (size_t i = 2; i + 9 < jpeg.size(); i++) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] >= 0xC0 && jpeg[i + 1] <= 0xC2) return jpeg[i + 9];
  }
  return -1;
}

wxImage decode(const Bytes& bytes) { return decodeImage(bytes.data(), static_cast<uint32_t>(bytes.size())); }

// Compares an image with 0xAARRGGBB pixels, row by row, each channel
// within `tolerance`; a picture without alpha must expect 0xFF.
void expectImage(const wxImage& image, int width, bool alpha, const std::vector<uint32_t>& argb, int tolerance = 0) {
  ASSERT_TRUE(image.IsOk());
  ASSERT_EQ(width, image.GetWidth());
  ASSERT_EQ(static_cast<int>(argb.size()) / width, image.GetHeight());
  ASSERT_EQ(alpha, image.HasAlpha());
  for (size_t i = 0; i < argb.size(); i++) {
    int x = static_cast<int>(i) % width, y = static_cast<int>(i) / width;
    int got[4] = {alpha ? image.GetAlpha(x, y) : 0xFF, image.GetRed(x, y), image.GetGreen(x, y), image.GetBlue(x, y)};
    for (int c = 0; c < 4; c++) {
      EXPECT_NEAR(static_cast<int>(argb[i] >> (24 - 8 * c) & 0xFF), got[c], tolerance)
          << "channel " << c << " (alpha, red, green, blue) at " << x << "," << y;
    }
  }
}

int pngCode(const Bytes& bytes) {
  wxImageBuffer buffer;
  return ImageLoader::LoadPNGArray(bytes.data(), static_cast<uint32_t>(bytes.size()), &buffer).getCode(0);
}

int jpegCode(const Bytes& bytes) {
  wxImageBuffer buffer;
  return ImageLoader::LoadJPGArray(bytes.data(), static_cast<uint32_t>(bytes.size()), &buffer).getCode(0);
}

const Bytes kRgba = {255, 0, 0, 255, 0, 255, 0, 128, 0, 0, 255, 0, 10, 20, 30, 40, 200, 100, 50, 255, 1, 2, 3, 4};
const std::vector<uint32_t> kRgbaArgb = {0xFFFF0000, 0x8000FF00, 0x000000FF, 0x280A141E, 0xFFC86432, 0x04010203};

TEST_F(ImageFiles, RgbaAndPalettePngs) {
  Bytes png = convert(kRgba, "-size 3x2 -depth 8", "rgba", "", "PNG32");
  ASSERT_EQ((std::vector<int>{8, 6, 0}), pngKind(png));
  expectImage(decode(png), 3, true, kRgbaArgb);

  Bytes rgb = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 0, 0};
  png = convert(rgb, "-size 2x2 -depth 8", "rgb", "", "PNG8");
  ASSERT_EQ(3, pngKind(png).at(1));
  expectImage(decode(png), 2, false, {0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFFFF0000});

  // A transparent palette entry expands to RGBA; its colour is whatever
  // the writer chose, so only opaque pixels are compared in full.
  png = convert({255, 0, 0, 255, 0, 0, 255, 255, 0, 0, 0, 0}, "-size 3x1 -depth 8", "rgba", "", "PNG8");
  ASSERT_EQ(3, pngKind(png).at(1));
  wxImage image = decode(png);
  ASSERT_TRUE(image.HasAlpha());
  EXPECT_EQ(0, image.GetAlpha(2, 0));
  EXPECT_EQ(255, image.GetBlue(1, 0));
  EXPECT_EQ(255, image.GetAlpha(1, 0));
}

TEST_F(ImageFiles, GreyPngsAndGreyWithAlpha) {
  Bytes png = convert({0, 64, 128, 255}, "-size 4x1 -depth 8", "gray",
                      "-define png:color-type=0 -define png:bit-depth=8", "PNG");
  ASSERT_EQ((std::vector<int>{8, 0, 0}), pngKind(png));
  expectImage(decode(png), 4, false, {0xFF000000, 0xFF404040, 0xFF808080, 0xFFFFFFFF});

  // Nine one-bit pixels span two bytes of a row; each must become a byte.
  png = convert({255, 0, 0, 255, 255, 0, 255, 0, 255}, "-size 9x1 -depth 8", "gray",
                "-define png:color-type=0 -define png:bit-depth=1", "PNG");
  ASSERT_EQ((std::vector<int>{1, 0, 0}), pngKind(png));
  const uint32_t w = 0xFFFFFFFF, b = 0xFF000000;
  expectImage(decode(png), 9, false, {w, b, b, w, w, b, w, b, w});

  png = convert({0, 255, 128, 0}, "-size 2x1 -depth 8", "graya", "-define png:color-type=4", "PNG");
  ASSERT_EQ(4, pngKind(png).at(1));
  EXPECT_EQ(5, pngCode(png));
  EXPECT_FALSE(decode(png).IsOk());
}

TEST_F(ImageFiles, SixteenBitAndInterlacedPngs) {
  // 65535, 32768, 0 and 25700 (100 x 257), high byte first.
  Bytes png = convert({0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00, 0x64, 0x64}, "-size 4x1 -depth 16 -endian MSB", "gray",
                      "-define png:color-type=0 -define png:bit-depth=16", "PNG");
  ASSERT_EQ((std::vector<int>{16, 0, 0}), pngKind(png));
  expectImage(decode(png), 4, false, {0xFFFFFFFF, 0xFF808080, 0xFF000000, 0xFF646464});

  png = convert({0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00, 0x80, 0x00, 0x64, 0x64, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF},
                "-size 2x1 -depth 16 -endian MSB", "rgba", "", "PNG64");
  ASSERT_EQ((std::vector<int>{16, 6, 0}), pngKind(png));
  expectImage(decode(png), 2, true, {0x80FF8000, 0xFF6400FF});

  // 9 x 7 pixels give every pass of the interlacing some pixels.
  Bytes rgb;
  std::vector<uint32_t> argb;
  for (uint32_t i = 0; i < 63; i++) {
    uint32_t r = i % 9 * 25, g = i / 9 * 35, b = i * 3;
    rgb.insert(rgb.end(), {static_cast<unsigned char>(r), static_cast<unsigned char>(g), static_cast<unsigned char>(b)});
    argb.push_back(0xFF000000 | r << 16 | g << 8 | b);
  }
  png = convert(rgb, "-size 9x7 -depth 8", "rgb", "-interlace PNG", "PNG24");
  ASSERT_EQ((std::vector<int>{8, 2, 1}), pngKind(png));
  expectImage(decode(png), 9, false, argb);
}

// 16 x 16 pixels in four flat 8 x 8 blocks, which compress almost exactly,
// and the pixel in the middle of each block.
Bytes blocks(const uint32_t colours[4], std::vector<uint32_t>* argb) {
  Bytes rgb;
  for (int i = 0; i < 256; i++) {
    uint32_t c = colours[(i / 128) * 2 + i % 16 / 8];
    rgb.insert(rgb.end(), {static_cast<unsigned char>(c >> 16), static_cast<unsigned char>(c >> 8),
                           static_cast<unsigned char>(c)});
    argb->push_back(0xFF000000 | c);
  }
  return rgb;
}

TEST_F(ImageFiles, ColourGreyAndFourComponentJpegs) {
  const uint32_t colours[4] = {0xC81E1E, 0x1EC81E, 0x1E1EC8, 0x808080};
  std::vector<uint32_t> argb;
  Bytes rgb = blocks(colours, &argb);
  Bytes jpeg = convert(rgb, "-size 16x16 -depth 8", "rgb", "-quality 95 -sampling-factor 1x1", "JPEG");
  ASSERT_EQ(3, jpegComponents(jpeg));
  expectImage(decode(jpeg), 16, false, argb, 8);

  const uint32_t greys[4] = {0x282828, 0xDCDCDC, 0xDCDCDC, 0x282828};
  argb.clear();
  jpeg = convert(blocks(greys, &argb), "-size 16x16 -depth 8", "rgb", "-quality 95 -colorspace Gray", "JPEG");
  ASSERT_EQ(1, jpegComponents(jpeg));
  expectImage(decode(jpeg), 16, false, argb, 8);

  // CMYK comes through as stored: black and white differ only in K, which
  // lands in the alpha array.
  const uint32_t blackWhite[4] = {0x000000, 0x000000, 0xFFFFFF, 0xFFFFFF};
  jpeg = convert(blocks(blackWhite, &argb), "-size 16x16 -depth 8", "rgb", "-quality 95 -colorspace CMYK", "JPEG");
  ASSERT_EQ(4, jpegComponents(jpeg));
  wxImage image = decode(jpeg);
  ASSERT_TRUE(image.HasAlpha());
  EXPECT_GT(std::abs(image.GetAlpha(4, 4) - image.GetAlpha(4, 12)), 200);
}

TEST_F(ImageFiles, DamagedAndTruncatedDataFailCleanly) {
  Bytes png = convert(kRgba, "-size 3x2 -depth 8", "rgba", "", "PNG32");
  const char kIdat[] = "IDAT";
  size_t idat = std::search(png.begin(), png.end(), kIdat, kIdat + 4) - png.begin();
  ASSERT_LT(idat + 8, png.size());
  Bytes flipped = png;  // fails the checksum of the picture data
  flipped[idat + 6] ^= 0x55;
  Bytes badSignature = png;
  badSignature[6] = 'x';
  for (const Bytes& bad : {Bytes(png.begin(), png.begin() + idat + 6), Bytes(png.begin(), png.begin() + 8), flipped,
                           badSignature}) {
    EXPECT_EQ(3, pngCode(bad));
    EXPECT_FALSE(decode(bad).IsOk());
  }

  std::vector<uint32_t> argb;
  const uint32_t colours[4] = {0xC81E1E, 0x1EC81E, 0x1E1EC8, 0x808080};
  Bytes jpeg = convert(blocks(colours, &argb), "-size 16x16 -depth 8", "rgb", "-quality 95", "JPEG");
  ASSERT_GT(jpeg.size(), 200u);
  for (const Bytes& bad : {Bytes(jpeg.begin(), jpeg.begin() + jpeg.size() * 6 / 10),
                           Bytes(jpeg.begin(), jpeg.begin() + 20), Bytes{0xFF, 0xD8, 0x00, 0x13, 0x37, 0xFF, 0x00}}) {
    EXPECT_EQ(3, jpegCode(bad));
    EXPECT_FALSE(decode(bad).IsOk());
  }
}

TEST(ImageLoader, NullAndTooShortData) {
  wxImageBuffer buffer;
  char text[100];
  ImageLoader::LoadPNGArray(nullptr, 10, &buffer).toText(text, sizeof text);
  EXPECT_STREQ("[ImageLoader::LoadPNGArray] Can't read NULL PNG data", text);
  const unsigned char start[] = {0x89, 'P', 'N', 'G'};
  QUtils::ErrorChain jpeg = ImageLoader::LoadJPGArray(start, 0, &buffer);
  EXPECT_EQ(4, jpeg.getCode(0));
  jpeg.toText(text, sizeof text);
  EXPECT_STREQ("[ImageLoader::LoadJPGArray] Can't read NULL JPEG data", text);

  EXPECT_EQ(kImageNoData, detectImageFormat(nullptr, 4));
  EXPECT_EQ(kImagePNG, detectImageFormat(start, 4));
  EXPECT_EQ(kImageRaw, detectImageFormat(start, 3));  // never read past the end
  EXPECT_FALSE(decodeImage(start, 0).IsOk());
}

// The raw form: width, height, then 0xAARRGGBB per pixel, little-endian.
Bytes raw(uint32_t width, uint32_t height, const std::vector<uint32_t>& pixels) {
  Bytes bytes;
  std::vector<uint32_t> words = {width, height};
  words.insert(words.end(), pixels.begin(), pixels.end());
  for (uint32_t word : words) {
    for (int i = 0; i < 4; i++) bytes.push_back(static_cast<unsigned char>(word >> (8 * i)));
  }
  return bytes;
}

TEST(ImageLoader, RawPictures) {
  const std::vector<uint32_t> pixels = {0xFF102030, 0x80FF0000, 0x0000FF00, 0x7F0000FF, 0x01020304, 0xFEFDFCFB};
  expectImage(decode(raw(2, 3, pixels)), 2, true, pixels);

  // Below 6400 pixels in both directions.
  EXPECT_TRUE(decode(raw(6399, 1, std::vector<uint32_t>(6399))).IsOk());
  EXPECT_FALSE(decode(raw(6400, 1, std::vector<uint32_t>(6400))).IsOk());
  EXPECT_FALSE(decode(raw(1, 6400, std::vector<uint32_t>(6400))).IsOk());
  EXPECT_FALSE(decode(raw(0, 5, {})).IsOk());

  // The data must hold (width x height + 2) x 4 bytes.
  Bytes exact = raw(3, 2, pixels);
  EXPECT_TRUE(decode(exact).IsOk());
  exact.pop_back();
  EXPECT_FALSE(decode(exact).IsOk());
  EXPECT_FALSE(decode(Bytes{3, 0, 0, 0, 1}).IsOk());
}

}  // namespace
