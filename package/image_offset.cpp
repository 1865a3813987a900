// The body of the image offset (image_offset.h): the field that the package
// builder fills in, as the running program reads it.
#include "package/image_offset.h"

// Kept as one object so the field and its text stay adjacent in the image.
// It is neither const nor static, so it lands in initialised data and the
// compiler can't prove that nothing else writes it.
struct PackageOffsetField {
  unsigned char offset[4];
  char marker[16];
};

extern PackageOffsetField packageOffsetField;
PackageOffsetField packageOffsetField = {{0, 0, 0, 0}, "ARYIMAGEOFFSET_"};

uint32_t getPackageOffset() {
  // Read through a volatile pointer: the compiler sees the 0 the field holds
  // at build time and would otherwise fold the value into the caller.
  const volatile unsigned char* field = packageOffsetField.offset;
  return static_cast<uint32_t>(field[0]) | (static_cast<uint32_t>(field[1]) << 8) |
         (static_cast<uint32_t>(field[2]) << 16) | (static_cast<uint32_t>(field[3]) << 24);
}
