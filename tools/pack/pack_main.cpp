// qlux-pack: makes an installer out of the installer program, a template and
// the directory that holds the template's files.
//
//   qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT
//             [--stripes N] [--level L] [--not-solid] [--bare] [--split SIZE]
//
// Exit code 0 on success; 1 with a message on standard error otherwise, and
// then no output file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"
#include "qlux_revision.h"
#include "qlux_version.h"
#include "tools/pack/package_output.h"
#include "tools/pack/package_writer.h"
#include "tools/pack/template_entries.h"

namespace {

const char kUsage[] =
    "usage: qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT\n"
    "                 [--stripes N] [--level L] [--not-solid] [--bare] [--split SIZE]\n"
    "\n"
    "  --stub PROGRAM   the installer program the package is appended to\n"
    "  --template FILE  the installation template, packed as \"install.xml\"\n"
    "  --source DIR     the directory the template's FN paths are relative to\n"
    "  -o OUTPUT        the installer to write\n"
    "  --stripes N      stripes of the solid block, 1 to 256 (default: 8, or one\n"
    "                   for each 4 MiB of data when that is more)\n"
    "  --level L        zlib compression level, 0 to 9 (default zlib's)\n"
    "  --not-solid      compress each file on its own instead of one solid block\n"
    "  --bare           write only the package, without stub and checksum,\n"
    "                   for `qlux-setup -bin=OUTPUT`\n"
    "  --split SIZE     write no file longer than SIZE (such as 2G or 700M): the\n"
    "                   package goes on in OUTPUT-1.qpk, OUTPUT-2.qpk, ... beside\n"
    "                   the installer (named without its extension), which must\n"
    "                   travel with it\n"
    "  --help           show this text\n"
    "  --version        show the version\n"
    "\n"
    "Each FN of each FileSet is packed under its Alias, or else under its path\n"
    "with every '/' and '\\' removed. A template that lists its own file is\n"
    "taken from --template when the source directory doesn't hold it.\n"
    "Files that come to more than 1 GiB go into several solid blocks, which\n"
    "only a stub that carries the text SupportsLargePackages reads.\n"
    "OLD_CHECKSUMMING=1 writes the old checksum record.\n";

int fail(const std::string& message) {
  std::fprintf(stderr, "qlux-pack: %s\n", message.c_str());
  return 1;
}

bool parseNumber(const char* text, int low, int high, int* out) {
  int32_t value = 0;
  if (!QUtils::parseInteger(&value, text) || value < low || value > high) return false;
  *out = value;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  PackOptions options;
  options.stripes = 0;
  options.level = -1;
  options.notSolid = false;
  options.bare = false;
  options.splitSize = 0;
  options.blockLimit = 0;

  for (int i = 1; i < argc; i++) {
    std::string option = argv[i];
    if (option == "--help" || option == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (option == "--version") {
      std::printf("qlux-pack %s (revision %s)\n", QLUX_VERSION, QLUX_REVISION);
      return 0;
    }
    if (option == "--not-solid") {
      options.notSolid = true;
      continue;
    }
    if (option == "--bare") {
      options.bare = true;
      continue;
    }
    if (option != "--stub" && option != "--template" && option != "--source" && option != "-o" &&
        option != "--stripes" && option != "--level" && option != "--split" && option != "--block-limit") {
      std::fputs(kUsage, stderr);
      return fail("unknown option " + option);
    }
    if (i + 1 >= argc) return fail("option " + option + " needs a value");
    const char* value = argv[++i];
    if (option == "--stub") {
      options.stub = value;
    } else if (option == "--template") {
      options.templatePath = value;
    } else if (option == "--source") {
      options.source = value;
    } else if (option == "-o") {
      options.output = value;
    } else if (option == "--stripes") {
      if (!parseNumber(value, 1, 256, &options.stripes)) {
        return fail("--stripes takes 1 to 256, not " + std::string(value));
      }
    } else if (option == "--split") {
      options.splitSize = parseSize(value);
      if (options.splitSize < (1 << 20)) return fail("--split takes a size of at least 1M, not " + std::string(value));
    } else if (option == "--block-limit") {
      // Packages of several blocks on a small scale, for tests.
      options.blockLimit = parseSize(value);
      if (options.blockLimit < 4096 || options.blockLimit > 0x40000000)
        return fail("--block-limit takes 4K to 1G, not " + std::string(value));
    } else if (!parseNumber(value, 0, 9, &options.level)) {
      return fail("--level takes 0 to 9, not " + std::string(value));
    }
  }
  if (options.templatePath.empty() || options.source.empty() || options.output.empty() ||
      (options.stub.empty() && !options.bare)) {
    std::fputs(kUsage, stderr);
    return fail("--stub (unless --bare), --template, --source and -o are required");
  }

  if (!QUtils::isDirectory(options.source.c_str())) return fail("the source folder " + options.source + " does not exist");

  std::vector<PackEntry> entries;
  std::string error;
  if (!readTemplateEntries(options.templatePath, options.source, &entries, &error)) return fail(error);
  PackResult result;
  if (!writeInstaller(options, entries, &result, &error)) return fail(error);
  std::printf("qlux-pack: wrote %s: %d files, %llu bytes of data, package at offset %llu, %llu bytes in all\n",
              options.output.c_str(), result.files, result.dataSize, result.packageOffset, result.outputSize);
  if (result.packageFiles > 0) std::printf("qlux-pack: and %d package files beside it\n", result.packageFiles);
  return 0;
}
