// qlux-pack: makes an installer out of the installer program, a template and
// the directory that holds the template's files.
//
//   qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT
//             [--stripes N] [--level L] [--not-solid] [--bare]
//
// Exit code 0 on success; 1 with a message on standard error otherwise, and
// then no output file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "tools/pack/package_writer.h"
#include "tools/pack/template_entries.h"

namespace {

const char kUsage[] =
    "usage: qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT\n"
    "                 [--stripes N] [--level L] [--not-solid] [--bare]\n"
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
    "\n"
    "Each FN of each FileSet is packed under its Alias, or else under its path\n"
    "with every '/' and '\\' removed. A template that lists its own file is\n"
    "taken from --template when the source directory doesn't hold it.\n"
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

  for (int i = 1; i < argc; i++) {
    std::string option = argv[i];
    if (option == "--help" || option == "-h") {
      std::fputs(kUsage, stdout);
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
        option != "--stripes" && option != "--level") {
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
    } else if (!parseNumber(value, 0, 9, &options.level)) {
      return fail("--level takes 0 to 9, not " + std::string(value));
    }
  }
  if (options.templatePath.empty() || options.source.empty() || options.output.empty() ||
      (options.stub.empty() && !options.bare)) {
    std::fputs(kUsage, stderr);
    return fail("--stub (unless --bare), --template, --source and -o are required");
  }

  std::vector<PackEntry> entries;
  std::string error;
  if (!readTemplateEntries(options.templatePath, options.source, &entries, &error)) return fail(error);
  PackResult result;
  if (!writeInstaller(options, entries, &result, &error)) return fail(error);
  std::printf("qlux-pack: wrote %s: %d files, %llu bytes of data, package at offset %llu, %llu bytes in all\n",
              options.output.c_str(), result.files, result.dataSize, result.packageOffset, result.outputSize);
  return 0;
}
