#include "tools/pack/template_entries.h"

#include <cstdio>
#include <cstring>

#include "foundation/files.h"
#include "foundation/xml.h"

namespace {

bool readWholeFile(const std::string& path, std::string* out) {
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return false;
  char block[65536];
  size_t got;
  while ((got = std::fread(block, 1, sizeof(block), file)) > 0) out->append(block, got);
  bool ok = !std::ferror(file);
  std::fclose(file);
  return ok;
}

bool startsWith(const std::string& text, size_t at, const char* prefix) {
  return text.compare(at, std::strlen(prefix), prefix) == 0;
}

}  // namespace

std::string keyFromPath(const std::string& text) {
  std::string key;
  for (char c : text) {
    if (c != '/' && c != '\\') key += c;
  }
  return key;
}

std::vector<int> openingTagLines(const std::string& text, const std::string& name) {
  std::vector<int> lines;
  int line = 1;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '\n') {
      line++;
      continue;
    }
    if (text[i] != '<') continue;
    // Comments and processing instructions are skipped whole, counting the
    // lines inside them.
    const char* close = startsWith(text, i, "<!--") ? "-->" : startsWith(text, i, "<?") ? "?>" : nullptr;
    if (close) {
      size_t end = text.find(close, i);
      end = end == std::string::npos ? text.size() : end;
      for (size_t k = i; k < end; k++) line += text[k] == '\n';
      i = end;
      continue;
    }
    size_t after = i + 1 + name.size();
    if (!startsWith(text, i + 1, name.c_str()) || after >= text.size()) continue;
    char c = text[after];
    if (c == '>' || c == '/' || c == ' ' || c == '\t' || c == '\r' || c == '\n') lines.push_back(line);
  }
  return lines;
}

bool readTemplateEntries(const std::string& templatePath, const std::string& source, std::vector<PackEntry>* entries,
                         std::string* error) {
  std::string text;
  if (!readWholeFile(templatePath, &text)) {
    *error = "cannot read the template " + templatePath;
    return false;
  }
  QUtils::PXML document;
  document.parse(text.c_str());
  if (document.getCount() == 0) {
    *error = "the template " + templatePath + " holds no XML element";
    return false;
  }

  std::vector<int> lines = openingTagLines(text, "FN");
  int ordinal = -1;  // how many FN elements came before, in document order
  for (int i = 0; i < document.getCount(); i++) {
    if (std::strcmp(document.getName(i), "FN") != 0) continue;
    ordinal++;
    const char* parentName = document.getName(document.getParent(i));
    const char* value = document.getValue(i);
    if (!parentName || std::strcmp(parentName, "FileSet") != 0 || !value || !*value) continue;

    PackEntry entry;
    entry.text = value;
    const char* alias = document.getAttribute(i, "Alias");
    entry.key = alias ? alias : keyFromPath(entry.text);
    size_t slash = entry.text.find_last_of("/\\");
    entry.name = slash == std::string::npos ? entry.text : entry.text.substr(slash + 1);
    entry.source = source + "/" + entry.text;
    entry.line = ordinal < static_cast<int>(lines.size()) ? lines[ordinal] : 0;
    entry.fileSet = document.getParent(i);
    entry.okIfMissing = document.getAttribute(i, "OkIfMissing") != nullptr;
    entries->push_back(entry);
  }
  return true;
}
