// qlux-pack: makes an installer out of the installer program, a template and
// the folder that holds the template's files. Every pack checks the template
// first; --check does only that.
//
//   qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT
//             [--stripes N] [--level L] [--not-solid] [--bare] [--split SIZE] [--no-strict]
//   qlux-pack --check --template FILE [--source DIR] [--stub PROGRAM] [--no-strict]
//
// Exit code 0 on success; 1 with the findings or a message on standard error
// otherwise, and then no output file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"
#include "foundation/text_lines.h"
#include "qlux_revision.h"
#include "qlux_version.h"
#include "tools/pack/findings.h"
#include "tools/pack/package_output.h"
#include "tools/pack/package_writer.h"
#include "tools/pack/template_check.h"
#include "tools/pack/template_entries.h"
#include "tools/pack/xml_source.h"

namespace {

const char kUsage[] =
    "usage: qlux-pack --stub PROGRAM --template FILE --source DIR -o OUTPUT\n"
    "                 [--stripes N] [--level L] [--not-solid] [--bare] [--split SIZE]\n"
    "                 [--no-strict]\n"
    "       qlux-pack --check --template FILE [--source DIR] [--stub PROGRAM] [--no-strict]\n"
    "\n"
    "  --stub PROGRAM   the installer program the package is appended to\n"
    "  --template FILE  the installation template, packed as \"install.xml\"\n"
    "  --source DIR     the folder the template's FN paths are relative to\n"
    "                   (with --check: the template's folder unless given)\n"
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
    "  --check          check the template and its files, and write nothing\n"
    "  --no-strict      report what the installer would pass over (an unknown\n"
    "                   element, a condition that doesn't parse) as warnings\n"
    "  --help           show this text\n"
    "  --version        show the version\n"
    "\n"
    "Every pack checks the template first, and reports each problem as\n"
    "FILE:LINE:COLUMN: error|warning: ..., with a hint where there is one.\n"
    "Each FN of each FileSet is packed under its Alias, or else under its path\n"
    "with every '/' and '\\' removed; a folder (Recurse=\"1\") or a wildcard\n"
    "takes every file it names. docs/template-reference.md tells the whole\n"
    "template language.\n"
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

std::string folderOf(const std::string& path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
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
  bool checkOnly = false;
  bool strict = true;

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
    if (option == "--not-solid" || option == "--bare" || option == "--check" || option == "--no-strict") {
      if (option == "--not-solid") options.notSolid = true;
      if (option == "--bare") options.bare = true;
      if (option == "--check") checkOnly = true;
      if (option == "--no-strict") strict = false;
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
  if (checkOnly) {
    if (options.templatePath.empty()) {
      std::fputs(kUsage, stderr);
      return fail("--check needs --template");
    }
    if (options.source.empty()) options.source = folderOf(options.templatePath);
  } else if (options.templatePath.empty() || options.source.empty() || options.output.empty() ||
             (options.stub.empty() && !options.bare)) {
    std::fputs(kUsage, stderr);
    return fail("--stub (unless --bare), --template, --source and -o are required");
  }
  if (!QUtils::isDirectory(options.source.c_str())) return fail("the source folder " + options.source + " does not exist");

  std::string text;
  if (!QUtils::readWholeFile(options.templatePath.c_str(), &text)) return fail("cannot read the template " + options.templatePath);

  // The template is read strictly: a malformed one is never packed.
  XmlSource xml;
  Findings findings;
  if (!xml.parse(text)) {
    std::string hint;
    if (!xml.openElement.empty())
      hint = "the <" + xml.openElement + "> of line " + std::to_string(xml.openPosition.line) + ", column " +
             std::to_string(xml.openPosition.column) + " is not closed";
    findings.add(xml.errorPosition, Weight::kBroken, "the template is not well-formed XML: " + xml.error, hint);
    findings.print(stderr, options.templatePath, strict);
    return 1;
  }
  ExpandOptions expandOptions;
  expandOptions.templatePath = options.templatePath;
  expandOptions.source = options.source;
  expandOptions.stub = options.stub;
  expandOptions.stubKind = options.stub.empty() ? StubKind::kUnknown : stubKindOf(options.stub);
  ExpandedTemplate expanded;
  expandTemplate(xml, expandOptions, &expanded, &findings);
  checkTemplate(xml, expanded, &findings);
  findings.print(stderr, options.templatePath, strict);
  if (findings.errorCount(strict) > 0) return 1;
  if (checkOnly) return 0;

  options.templateText = expanded.text;
  PackResult result;
  std::string error;
  if (!writeInstaller(options, expanded.entries, &result, &error)) return fail(error);
  std::printf("qlux-pack: wrote %s: %d files, %llu bytes of data, package at offset %llu, %llu bytes in all\n",
              options.output.c_str(), result.files, result.dataSize, result.packageOffset, result.outputSize);
  if (result.packageFiles > 0) std::printf("qlux-pack: and %d package files beside it\n", result.packageFiles);
  return 0;
}
