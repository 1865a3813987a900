// Where the package lies in the installer's own file.
//
// The image carries, in its initialised data, a four-byte little-endian
// field directly followed by the text "ARYIMAGEOFFSET_" and a NUL. The
// package builder finds the field by that text in its copy of the program
// and writes the package's file offset into it before the checksum is
// computed, so the checksum covers it. At run time the field is read as it
// stands; nothing searches the file or parses its section table.
#ifndef QLUX_PACKAGE_IMAGE_OFFSET_H_
#define QLUX_PACKAGE_IMAGE_OFFSET_H_

#include <cstdint>

// The package's offset in this program's own file; 0 in a program that no
// package has been appended to.
uint32_t getPackageOffset();

#endif  // QLUX_PACKAGE_IMAGE_OFFSET_H_
