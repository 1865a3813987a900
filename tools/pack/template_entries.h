// The files an installation template asks for, as the package builder packs
// them.
//
// Every `FN` element (with text) whose parent is a `FileSet` names one file,
// relative to the source directory. It is packed under its key: the `Alias`
// attribute, or else the element's text with every '/' and '\' removed, so
// "gui/icons/tick.png" becomes "guiiconstick.png". The record's name is the
// text behind the last separator. An entry with `OkIfMissing` may name a
// file that isn't there; it is then left out of the package.
//
// The XML reader keeps no line numbers, so the entries' lines are found by
// counting `<FN` tags in the template's text, comments and processing
// instructions left out as the reader leaves them out.
#ifndef QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_
#define QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_

#include <string>
#include <vector>

struct PackEntry {
  std::string text;    // the FN element's text as the template gives it
  std::string key;     // the key the engine looks the file up by
  std::string name;    // the base name stored in the record
  std::string source;  // where the builder reads the file
  int line;            // the FN element's line in the template, 0 if unknown
  int fileSet;         // the FileSet element's place in the document
  bool okIfMissing;
};

// Reads the template and lists its file entries in document order. `source`
// is the source directory. Gives false with a message in `error` if the
// template can't be read or holds no element.
bool readTemplateEntries(const std::string& templatePath, const std::string& source, std::vector<PackEntry>* entries,
                         std::string* error);

// The key of an entry without an alias: its text without separators.
std::string keyFromPath(const std::string& text);

// The line (from 1) of each opening tag `<name` in an XML text, in order.
std::vector<int> openingTagLines(const std::string& text, const std::string& name);

#endif  // QLUX_TOOLS_PACK_TEMPLATE_ENTRIES_H_
