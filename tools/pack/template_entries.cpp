// The body of the template's entries (template_entries.h): the files that
// the template asks for, found and keyed, and the template as it is packed.
#include "tools/pack/template_entries.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "tools/pack/text_helpers.h"

namespace fs = std::filesystem;

namespace {

const char kTemplateKey[] = "install.xml";
// An empty folder is an entry whose file is missing on purpose: the
// installer makes its Dest, finds no packed file under this key, and with
// OkIfMissing goes on without an error. The folder is logged and removed
// like any other the installation made.
const char kEmptyFolderKey[] = "qlux:empty-folder";
const char kEmptyFolderText[] = "(empty folder)";
// The engine keeps keys and file names of up to this many bytes.
const size_t kMaxKeyLength = 257;
const size_t kMaxNameLength = 257;
// What the placeholders of the log and the backup hold until the
// installation writes the real files over them.
const char kLogPlaceholder[] = "Placeholder: the installer puts the action log here.\n";
const char kBackupPlaceholder[] = "Placeholder: the installer puts the backup of replaced files here.\n";
// What a rewrite of the log's variable block may leave beside the log.
const char kLogRewriteLeftover[] = "templog.log";

// A change of the template's text: [begin, end) becomes `text`.
struct Edit {
  size_t begin;
  size_t end;
  std::string text;
};

// One thing found below a folder entry.
struct Found {
  std::string relative;  // below the entry's base folder, '/'-separated
  enum Kind { kFile, kLink, kEmptyFolder } kind;
  bool executable;
  std::string linkTarget;
};

bool hasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

using packtext::baseName;
using packtext::trimmed;

std::string withSlashes(std::string path) {
  for (char& c : path)
    if (c == '\\') c = '/';
  return path;
}

// "a" + "b" with one '/' between them; either may be empty.
std::string joinPath(const std::string& first, const std::string& second) {
  if (first.empty()) return second;
  if (second.empty()) return first;
  bool slash = first.back() == '/' || first.back() == '\\';
  return first + (slash ? "" : "/") + second;
}

std::string canonical(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

std::string escapeXml(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

using packtext::matchPattern;

std::vector<std::string> splitPatterns(const std::string& text) {
  std::vector<std::string> patterns;
  for (const std::string& part : packtext::splitList(text, ';')) {
    size_t leading = 0;
    std::string piece = trimmed(part, &leading);
    if (!piece.empty()) patterns.push_back(withSlashes(piece));
  }
  return patterns;
}

// An Exclude pattern with a '/' is matched against the path below the
// entry's folder, one without against the name alone.
bool excluded(const std::vector<std::string>& patterns, const std::string& relative) {
  std::string name = baseName(relative);
  for (const std::string& pattern : patterns) {
    if (matchPattern(pattern, pattern.find('/') != std::string::npos ? relative : name)) return true;
  }
  return false;
}

// Walks `folder` (a real folder, not through links), collecting what the
// entry takes: files whose name matches `pattern` (empty: every file), links
// as links, and, when `keepEmpty`, folders that hold nothing at all.
void walk(const std::string& folder, const std::string& relative, const std::string& pattern, bool recurse,
          bool keepEmpty, const std::vector<std::string>& excludes, std::vector<Found>* out, std::string* error) {
  std::vector<std::string> names;
  std::error_code code;
  for (fs::directory_iterator it(folder, code), end; !code && it != end; it.increment(code))
    names.push_back(it->path().filename().string());
  if (code) {
    *error = "cannot read the folder " + folder + ": " + code.message();
    return;
  }
  std::sort(names.begin(), names.end());
  if (names.empty() && keepEmpty && !relative.empty()) {
    out->push_back(Found{relative, Found::kEmptyFolder, false, ""});
    return;
  }
  for (const std::string& name : names) {
    std::string path = folder + "/" + name;
    std::string below = relative.empty() ? name : relative + "/" + name;
    if (excluded(excludes, below)) continue;
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
      *error = "cannot read " + path + ": " + std::strerror(errno);
      return;
    }
    if (S_ISDIR(status.st_mode)) {
      if (recurse) walk(path, below, pattern, recurse, keepEmpty, excludes, out, error);
      if (!error->empty()) return;
      continue;
    }
    if (!pattern.empty() && !matchPattern(pattern, name)) continue;
    if (S_ISLNK(status.st_mode)) {
      std::vector<char> target(static_cast<size_t>(PATH_MAX) + 1);
      ssize_t length = readlink(path.c_str(), target.data(), target.size() - 1);
      if (length < 0) {
        *error = "cannot read the link " + path + ": " + std::strerror(errno);
        return;
      }
      out->push_back(Found{below, Found::kLink, false, std::string(target.data(), static_cast<size_t>(length))});
    } else if (S_ISREG(status.st_mode)) {
      out->push_back(Found{below, Found::kFile, (status.st_mode & S_IXUSR) != 0, ""});
    } else {
      *error = path + " is neither a file, a folder nor a link";
      return;
    }
  }
}

// Attributes of a folder entry that each file's entry takes over as they
// stand. Dest and Executable are worked out per file; Alias, Recurse,
// Exclude and OkIfMissing belong to the folder entry alone.
bool copiedAttribute(const std::string& name) {
  static const char* const kOwn[] = {"dest", "alias", "recurse", "exclude", "okifmissing", "executable", "symlink"};
  for (const char* own : kOwn)
    if (packtext::lower(name) == own) return false;
  return true;
}

class Expander {
 public:
  Expander(const XmlSource& xml, const ExpandOptions& options, ExpandedTemplate* out, Findings* findings)
      : xml(xml), options(options), out(out), findings(findings), generated(0) {}

  void run();

 private:
  void reserveKeys();
  void expandEntry(int element);
  void addPlainEntry(int element, const std::string& text, size_t leading);
  void expandFolder(int element, const std::string& text, size_t leading);
  void expandAutoUninstall(int element);
  std::string uniqueKey(const std::string& text);
  std::string indentOf(size_t offset) const;
  const std::string* value(int element, const char* name) const {
    const SourceAttribute* attribute = xml.attribute(element, name);
    return attribute ? &attribute->value : nullptr;
  }
  bool isTemplateCopy(const std::string& text, const std::string& key) const;
  SourcePosition textPlace(int element, size_t leading) const {
    return xml.textPosition(xml.elements()[static_cast<size_t>(element)], leading);
  }
  int lineOf(int element) const { return xml.position(xml.elements()[static_cast<size_t>(element)].begin).line; }

  const XmlSource& xml;
  const ExpandOptions& options;
  ExpandedTemplate* out;
  Findings* findings;
  std::vector<Edit> edits;
  std::set<std::string> keys;  // taken by the template's own entries and by generated ones
  int generated;
};

bool Expander::isTemplateCopy(const std::string& text, const std::string& key) const {
  if (key == kTemplateKey) return true;
  std::string name = baseName(text);
  if (name != kTemplateKey && name != baseName(options.templatePath)) return false;
  std::string source = options.source + "/" + withSlashes(text);
  return !fs::exists(source) || canonical(source) == canonical(options.templatePath);
}

void Expander::reserveKeys() {
  const std::vector<SourceElement>& nodes = xml.elements();
  for (size_t i = 0; i < nodes.size(); i++) {
    const SourceElement& node = nodes[i];
    if (node.name != "FN" || node.parent < 0 || nodes[static_cast<size_t>(node.parent)].name != "FileSet") continue;
    size_t leading = 0;
    std::string text = trimmed(node.text, &leading);
    if (text.empty() || xml.attribute(static_cast<int>(i), "Recurse") || hasWildcard(text)) continue;
    const std::string* alias = value(static_cast<int>(i), "Alias");
    keys.insert(alias ? *alias : keyFromPath(text));
  }
  keys.insert(kEmptyFolderKey);
}

std::string Expander::uniqueKey(const std::string& text) {
  std::string key = keyFromPath(text);
  if (key.size() <= kMaxKeyLength && keys.insert(key).second) return key;
  // Another entry has it, or the engine couldn't hold it: a short key of
  // its own, which the entry names as its Alias.
  for (;;) {
    std::string made = "qlux:" + std::to_string(++generated) + ":" + baseName(text);
    if (made.size() > kMaxKeyLength) made.resize(kMaxKeyLength);
    if (keys.insert(made).second) return made;
  }
}

std::string Expander::indentOf(size_t offset) const {
  const std::string& text = xml.text();
  size_t lineStart = text.rfind('\n', offset == 0 ? 0 : offset - 1);
  lineStart = lineStart == std::string::npos ? 0 : lineStart + 1;
  std::string indent = text.substr(lineStart, offset - lineStart);
  return indent.find_first_not_of(" \t") == std::string::npos ? indent : "";
}

void Expander::run() {
  reserveKeys();
  const std::vector<SourceElement>& nodes = xml.elements();
  for (size_t i = 0; i < nodes.size(); i++) {
    const SourceElement& node = nodes[i];
    int parent = node.parent;
    if (node.name == "FN" && parent >= 0 && nodes[static_cast<size_t>(parent)].name == "FileSet") {
      expandEntry(static_cast<int>(i));
    } else if (node.name == "Uninstall" && xml.attribute(static_cast<int>(i), "Auto")) {
      expandAutoUninstall(static_cast<int>(i));
    }
  }

  if (edits.empty()) {
    out->text = xml.text();
  } else {
    std::sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    const std::string& source = xml.text();
    size_t at = 0;
    for (const Edit& edit : edits) {
      out->text.append(source, at, edit.begin - at);
      out->text += edit.text;
      at = edit.end;
    }
    out->text.append(source, at, std::string::npos);
  }
  // The template's copies carry the template as packed.
  for (PackEntry& entry : out->entries) {
    if (entry.inMemory && entry.source == options.templatePath) {
      entry.contents = out->text;
      entry.source.clear();
    }
  }
}

void Expander::expandEntry(int element) {
  const SourceElement& node = xml.elements()[static_cast<size_t>(element)];
  size_t leading = 0;
  std::string text = trimmed(node.text, &leading);
  if (text.empty()) return;
  bool recurse = xml.attribute(element, "Recurse") != nullptr;
  std::string source = options.source + "/" + withSlashes(text);
  struct stat status;
  bool isFolder = !hasWildcard(text) && stat(source.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  if (recurse || hasWildcard(text) || isFolder) {
    expandFolder(element, text, leading);
  } else {
    addPlainEntry(element, text, leading);
  }
}

void Expander::addPlainEntry(int element, const std::string& text, size_t leading) {
  PackEntry entry;
  entry.text = text;
  const std::string* alias = value(element, "Alias");
  entry.key = alias ? *alias : keyFromPath(text);
  entry.name = baseName(text);
  entry.source = options.source + "/" + withSlashes(text);
  entry.line = lineOf(element);
  entry.fileSet = xml.elements()[static_cast<size_t>(element)].parent;
  entry.okIfMissing = xml.attribute(element, "OkIfMissing") != nullptr;
  entry.inMemory = false;
  if (isTemplateCopy(text, entry.key)) {
    entry.inMemory = true;
    entry.source = options.templatePath;  // filled with the packed text at the end
  } else if (!fs::exists(fs::symlink_status(entry.source)) && !entry.okIfMissing) {
    findings->add(textPlace(element, leading), Weight::kBroken,
                  "the file " + text + " is not in the source folder " + options.source,
                  "give OkIfMissing=\"1\" if the file may be missing");
  }
  const std::string* dest = value(element, "Dest");
  if (dest) {
    out->installed.push_back(InstalledFile{*dest, entry.name, entry.key,
                                           xml.attribute(element, "Executable") && xml.attribute(element, "StripExeExt"),
                                           element});
  }
  out->entries.push_back(entry);
}

void Expander::expandFolder(int element, const std::string& text, size_t leading) {
  const SourceElement& node = xml.elements()[static_cast<size_t>(element)];
  SourcePosition place = textPlace(element, leading);
  bool recurse = xml.attribute(element, "Recurse") != nullptr;
  bool optional = xml.attribute(element, "OkIfMissing") != nullptr;
  if (xml.attribute(element, "Alias")) {
    findings->add(xml.position(xml.attribute(element, "Alias")->nameOffset), Weight::kBroken,
                  "an Alias can't name the many files of a folder or wildcard entry", "leave the Alias out");
    return;
  }
  std::string path = withSlashes(text);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  std::string directory = path;  // the folder the entry's files are taken from
  std::string pattern;           // the wildcard for their names, if any
  if (hasWildcard(path)) {
    size_t slash = path.rfind('/');
    directory = slash == std::string::npos ? "" : path.substr(0, slash);
    pattern = slash == std::string::npos ? path : path.substr(slash + 1);
    if (hasWildcard(directory)) {
      findings->add(place, Weight::kBroken, "wildcards may stand only in the last part of an entry's path",
                    "name the folder, and give Recurse=\"1\" to take the files of its folders");
      return;
    }
  }
  std::string base = directory.empty() ? options.source : options.source + "/" + directory;
  struct stat status;
  if (stat(base.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    if (!optional)
      findings->add(place, Weight::kBroken, "the folder " + (directory.empty() ? "." : directory) +
                                                " is not in the source folder " + options.source);
    return;
  }
  if (pattern.empty() && !recurse) {
    findings->add(place, Weight::kBroken, text + " is a folder",
                  "give Recurse=\"1\" to take every file below it, or name the files with a wildcard");
    return;
  }
  std::vector<std::string> excludes;
  if (const std::string* exclude = value(element, "Exclude")) excludes = splitPatterns(*exclude);
  std::vector<Found> found;
  std::string error;
  walk(base, "", pattern, recurse, pattern.empty(), excludes, &found, &error);
  if (!error.empty()) {
    findings->add(place, Weight::kBroken, error);
    return;
  }
  if (found.empty()) {
    if (!optional) findings->add(place, Weight::kBroken, text + " takes no file from the source folder");
    return;
  }

  const std::string* dest = value(element, "Dest");
  bool executable = xml.attribute(element, "Executable") != nullptr;
  std::string copied;
  for (const SourceAttribute& attribute : node.attributes) {
    if (copiedAttribute(attribute.name)) copied += " " + attribute.name + "=\"" + escapeXml(attribute.value) + "\"";
  }
  std::string indent = indentOf(node.begin);
  std::string replacement;
  for (const Found& file : found) {
    size_t slash = file.relative.rfind('/');
    std::string subfolder = file.kind == Found::kEmptyFolder ? file.relative
                            : slash == std::string::npos    ? ""
                                                             : file.relative.substr(0, slash);
    std::string entryText = file.kind == Found::kEmptyFolder ? kEmptyFolderText : joinPath(directory, file.relative);
    std::string name = baseName(entryText);
    if (name.size() > kMaxNameLength) {
      findings->add(place, Weight::kBroken, "the name of " + joinPath(directory, file.relative) + " is longer than " +
                                                std::to_string(kMaxNameLength) + " bytes");
      continue;
    }
    if (file.relative.find('\\') != std::string::npos) {
      findings->add(place, Weight::kBroken,
                    joinPath(directory, file.relative) + " has a '\\' in its name, which the installer reads as a "
                                                         "folder separator");
      continue;
    }
    if (file.kind == Found::kLink && options.stubKind == StubKind::kWindows) {
      findings->add(place, Weight::kBroken,
                    joinPath(directory, file.relative) + " is a symbolic link, which the Windows program can't make",
                    "leave it out with Exclude, or put the file it leads to in its place");
      continue;
    }

    PackEntry entry;
    entry.text = entryText;
    entry.name = name;
    entry.line = lineOf(element);
    entry.fileSet = node.parent;
    entry.okIfMissing = file.kind == Found::kEmptyFolder;
    entry.inMemory = file.kind == Found::kLink;
    entry.contents = file.linkTarget;
    entry.source = file.kind == Found::kFile ? options.source + "/" + entryText : "";
    std::string entryDest = dest ? joinPath(*dest, subfolder) : "";
    std::string line = "<FN";
    if (dest) line += " Dest=\"" + escapeXml(entryDest) + "\"";
    if (file.kind == Found::kEmptyFolder) {
      entry.key = kEmptyFolderKey;
      line += std::string(" Alias=\"") + kEmptyFolderKey + "\" OkIfMissing=\"1\"";
    } else {
      entry.key = uniqueKey(entryText);
      if (entry.key != keyFromPath(entryText)) line += " Alias=\"" + escapeXml(entry.key) + "\"";
    }
    line += copied;
    if (file.kind == Found::kFile && (executable || file.executable)) line += " Executable=\"1\"";
    if (file.kind == Found::kLink) line += " Symlink=\"1\"";
    line += ">" + escapeXml(entryText) + "</FN>";
    replacement += (replacement.empty() ? "" : "\n" + indent) + line;

    if (file.kind != Found::kEmptyFolder) {
      out->entries.push_back(entry);
      if (dest)
        out->installed.push_back(InstalledFile{entryDest, name, entry.key,
                                               executable && xml.attribute(element, "StripExeExt") != nullptr,
                                               element});
    }
  }
  edits.push_back(Edit{node.begin, node.end, replacement});
}

void Expander::expandAutoUninstall(int element) {
  const SourceElement& node = xml.elements()[static_cast<size_t>(element)];
  std::string folder;
  if (const std::string* dest = value(element, "Dest")) {
    folder = *dest;
  } else {
    // The folder of the first Directory field: where the product goes.
    for (size_t i = 0; i < xml.elements().size() && folder.empty(); i++) {
      const SourceElement& field = xml.elements()[i];
      const std::string* type = value(static_cast<int>(i), "Type");
      size_t leading = 0;
      std::string variable = trimmed(field.text, &leading);
      if (field.name == "Field" && type && (*type == "Directory" || *type == "directory") && !variable.empty())
        folder = "[" + variable + "]/uninstall";
    }
    if (folder.empty()) {
      findings->add(xml.position(node.begin), Weight::kBroken,
                    "Auto needs a folder for the uninstall data, and the wizard has no Directory field to take it "
                    "from",
                    "give Dest=\"[INSTALLDIR]/uninstall\"");
      return;
    }
  }
  while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
  out->autoUninstall = true;
  out->autoFolder = folder;
  bool windows = options.stubKind == StubKind::kWindows;
  std::string program = windows ? "uninstall.exe" : "uninstall";
  std::string indent = indentOf(node.begin);
  std::string inner = indent + "  ";
  std::string f = escapeXml(folder);

  std::string text = "<Uninstall>\n" + inner + "<InstallLogFile>" + f + "/install.log</InstallLogFile>\n" + inner +
                     "<InstallBackupFile>" + f + "/backup.bin</InstallBackupFile>\n" + inner + "<UninstallXmlFile>" +
                     f + "/install.xml</UninstallXmlFile>\n" + inner + "<UninstallCmd>" + f + "/" + program +
                     "</UninstallCmd>\n" + indent + "</Uninstall>\n";
  text += indent + "<FileSet Name=\"Uninstall data\">\n";
  text += inner + "<FN Dest=\"" + f + "\" Alias=\"qlux:uninstaller\"" + (windows ? "" : " Executable=\"1\"") + ">" +
          program + "</FN>\n";
  text += inner + "<FN Dest=\"" + f + "\">install.xml</FN>\n";
  text += inner + "<FN Dest=\"" + f + "\" Alias=\"qlux:install.log\">install.log</FN>\n";
  text += inner + "<FN Dest=\"" + f + "\" Alias=\"qlux:backup.bin\">backup.bin</FN>\n";
  text += indent + "</FileSet>";
  std::string wildcard = "<Files Dest=\"" + f + "\">" + kLogRewriteLeftover + "</Files>";

  // The first UninstallWildcards is the one the uninstaller reads: the
  // leftover's pattern joins it, or makes one.
  int wildcards = -1;
  for (size_t i = 0; i < xml.elements().size() && wildcards < 0; i++)
    if (xml.elements()[i].name == "UninstallWildcards") wildcards = static_cast<int>(i);
  if (wildcards < 0) {
    text += "\n" + indent + "<UninstallWildcards>\n" + inner + wildcard + "\n" + indent + "</UninstallWildcards>";
  } else {
    const SourceElement& list = xml.elements()[static_cast<size_t>(wildcards)];
    if (list.contentBegin == list.end)
      edits.push_back(Edit{list.begin, list.end, "<UninstallWildcards>" + wildcard + "</UninstallWildcards>"});
    else
      edits.push_back(Edit{list.contentEnd, list.contentEnd, wildcard});
  }
  edits.push_back(Edit{node.begin, node.end, text});

  // The generated file set stands where the Uninstall element stood; its
  // place in the document tells it from every other set.
  int line = lineOf(element);
  int set = element;
  if (!options.stub.empty()) {
    out->entries.push_back(PackEntry{program, "qlux:uninstaller", program, options.stub, line, set, false, false, ""});
  }
  out->entries.push_back(
      PackEntry{"install.xml", kTemplateKey, kTemplateKey, options.templatePath, line, set, false, true, ""});
  out->entries.push_back(
      PackEntry{"install.log", "qlux:install.log", "install.log", "", line, set, false, true, kLogPlaceholder});
  out->entries.push_back(
      PackEntry{"backup.bin", "qlux:backup.bin", "backup.bin", "", line, set, false, true, kBackupPlaceholder});
  for (const char* name : {"install.log", "backup.bin", "install.xml"})
    out->installed.push_back(InstalledFile{folder, name, name, false, element});
  out->installed.push_back(InstalledFile{folder, program, "qlux:uninstaller", false, element});
}

}  // namespace

StubKind stubKindOf(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return StubKind::kUnknown;
  unsigned char head[4] = {0, 0, 0, 0};
  size_t got = std::fread(head, 1, sizeof head, file);
  std::fclose(file);
  if (got >= 2 && head[0] == 'M' && head[1] == 'Z') return StubKind::kWindows;
  if (got == 4 && head[0] == 0x7f && head[1] == 'E' && head[2] == 'L' && head[3] == 'F') return StubKind::kLinux;
  return StubKind::kUnknown;
}

std::string keyFromPath(const std::string& text) {
  std::string key;
  for (char c : text) {
    if (c != '/' && c != '\\') key += c;
  }
  return key;
}

void expandTemplate(const XmlSource& xml, const ExpandOptions& options, ExpandedTemplate* out, Findings* findings) {
  Expander(xml, options, out, findings).run();
}
