// Putting an installer together: the package (header, then a solid block or
// the plain records) out of the template's entries, and the installer file
// (a copy of the stub with its package offset field set, the package, and
// the checksum record).
//
// Records that don't fit one solid block (1 GiB) go into several, behind a
// block table (package/block_table.h); a file too large for one block is
// split into records across blocks. With a split size the package goes on
// in package files beside the installer. A package that fits one block and
// isn't split keeps the single block's layout, which every installer reads.
//
// The files are read one at a time and the solid block is compressed stripe
// by stripe as they come, so the builder holds a few stripes and pieces of
// a few megabytes, never a whole large file or the payload. The output is written under a temporary
// name beside it and renamed into place only when it is complete, so a
// failure never leaves a file behind.
#ifndef QLUX_TOOLS_PACK_PACKAGE_WRITER_H_
#define QLUX_TOOLS_PACK_PACKAGE_WRITER_H_

#include <string>
#include <vector>

#include "tools/pack/template_entries.h"

struct PackOptions {
  std::string stub;          // the installer program; empty for a bare package
  std::string templatePath;  // the template's file, for messages
  std::string templateText;  // the template as packed under "install.xml"
  std::string source;        // the directory FN texts are relative to
  std::string output;
  int stripes;    // 1 to 256; 0 chooses 8, or one per 4 MiB of records when that is more
  int level;      // zlib's level; -1 is its default
  bool notSolid;  // each file its own zlib stream, no solid block
  bool bare;      // header and package only: no stub, no checksum record
  // Above 0: no file written is longer; the rest of the package goes into
  // numbered package files beside the installer.
  long long splitSize;
  // Above 0: the most bytes of records a solid block holds, in place of
  // the format's 1 GiB. For tests of packages of several blocks.
  long long blockLimit;
};

struct PackResult {
  int files;                    // records packed, the template's included
  unsigned long long dataSize;  // their bytes, unpacked
  unsigned long long packageOffset;
  unsigned long long outputSize;  // the installer's
  int packageFiles;              // written beside it
};

// Builds the installer (or the bare package) that `options` describe from
// `entries`. Gives false with a message saying what went wrong and where.
bool writeInstaller(const PackOptions& options, const std::vector<PackEntry>& entries, PackResult* result,
                    std::string* error);

// Where the stub's package offset field is: the offset of its four bytes,
// or -1 with `error` set when there is none, or more than one.
long long findOffsetField(const std::string& image, std::string* error);

#endif  // QLUX_TOOLS_PACK_PACKAGE_WRITER_H_
