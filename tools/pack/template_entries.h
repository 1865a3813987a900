// The files an installation template asks for, as the package builder packs
// them, and the template as it goes into the package.
//
// Every `FN` element (with text) whose parent is a `FileSet` names one file,
// relative to the source folder. It is packed under its key: the `Alias`
// attribute, or else the element's text with every '/' and '\' removed, so
// "gui/icons/tick.png" becomes "guiiconstick.png". The record's name is the
// text behind the last separator. An entry with `OkIfMissing` may name a
// file that isn't there; it is then left out of the package.
//
// The builder writes some entries for the vendor, into the template that is
// packed; the installer, the action log and the uninstaller then see only
// ordinary entries, and neither the package format nor the installer
// changes:
// - a folder entry (`Recurse`) or a wildcard (`lib/*.py`) becomes one entry
//   per file below it, each in the folder below `Dest` that its path gives,
//   less what `Exclude` names; a file with an execute bit gets `Executable`;
//   an empty folder becomes an entry whose file is missing on purpose
//   (`OkIfMissing`), which makes the folder and nothing in it; a symbolic
//   link becomes an entry with `Symlink` whose packed file holds the link's
//   target (the Windows program can't make links: there a link is refused);
// - `<Uninstall Auto="1"/>` becomes the four uninstall paths below its
//   `Dest`, a file set with the uninstaller program (the stub), the template
//   copy and placeholders for the log and the backup, and a wildcard for
//   what a log rewrite may leave behind.
// An entry whose text names "install.xml" (or the template's own file) is
// the template itself, as packed: the expanded text.
#ifndef QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_
#define QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_

#include <string>
#include <vector>

#include "tools/pack/findings.h"
#include "tools/pack/xml_source.h"

struct PackEntry {
  std::string text;    // the FN element's text as the template gives it
  std::string key;     // the key the engine looks the file up by
  std::string name;    // the base name stored in the record
  std::string source;  // where the builder reads the file (empty when in memory)
  int line;            // the FN element's line in the template, 0 if unknown
  int fileSet;         // the FileSet element's place in the document
  bool okIfMissing;
  bool inMemory;         // the data is `contents`, not a file
  std::string contents;  // a link's target, a placeholder, the template
};

// An installed file as the template will have it, for the checks of what
// the file sets fill: the Dest text and the base name, unexpanded.
struct InstalledFile {
  std::string dest;
  std::string name;
  std::string key;
  bool stripExeExt;  // also installed without its ".exe" on Linux
  int element;       // the FN in the source template (or the Uninstall element for Auto)
};

// What system the installer program (the stub) is for.
enum class StubKind { kUnknown, kLinux, kWindows };

// Reads the first bytes of a program to tell.
StubKind stubKindOf(const std::string& path);

struct ExpandOptions {
  std::string templatePath;
  std::string source;  // the source folder
  std::string stub;    // the installer program, for Auto's uninstaller; may be empty
  StubKind stubKind = StubKind::kUnknown;
};

struct ExpandedTemplate {
  std::string text;  // the template to pack (the source's bytes when nothing was expanded)
  std::vector<PackEntry> entries;
  std::vector<InstalledFile> installed;
  bool autoUninstall = false;
  std::string autoFolder;  // the Dest of Auto's uninstall data
};

// Expands the parsed template. Problems go to `findings` (a missing file or
// folder, a pattern that matches nothing, a link for Windows); the result is
// complete as far as it could be made.
void expandTemplate(const XmlSource& xml, const ExpandOptions& options, ExpandedTemplate* out, Findings* findings);

// The key of an entry without an alias: its text without separators.
std::string keyFromPath(const std::string& text);

#endif  // QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_
