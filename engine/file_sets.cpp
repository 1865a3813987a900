// The template's install types, file sets and file entries, tied to the
// package's file table; and the installed path of a file entry.
#include <cstring>

#include "engine/installer.h"
#include "foundation/text.h"

namespace {

// The key under which the package builder stores an entry without an Alias:
// its path with every separator taken out.
void keyFromPath(const char* path, char* key, int size) {
  int n = 0;
  for (const char* p = path; *p && n < size - 1; p++) {
    if (!QUtils::isSeparator(*p)) key[n++] = *p;
  }
  key[n] = 0;
}

bool hasText(const char* text) { return text && *text; }

// A copy of `text` (none: empty) in `pool`, cut to `size` bytes with its
// terminator as copyText cuts it.
const char* keepText(QUtils::PStringPool* pool, const char* text, int size) {
  char cut[kFileDestSize];
  QUtils::copyText(cut, text, size < kFileDestSize ? size : kFileDestSize);
  return pool->add(cut);
}

// One InstallType element.
void readInstallType(const QUtils::PXML& document, int node, INSTALLTYPE* type) {
  std::memset(type, 0, sizeof *type);
  QUtils::copyText(type->name, document.getAttribute(node, "Name"), sizeof type->name);
  QUtils::copyText(type->description, document.getValue(document.findNextChild(node, "Desc", -1)),
                   sizeof type->description);
  int32_t number = 0;
  const char* text = document.getAttribute(node, "Default");
  if (text && QUtils::parseInteger(&number, text)) type->isDefault = number;
  number = 0;
  text = document.getAttribute(node, "EditFileSets");
  if (text && QUtils::parseInteger(&number, text)) type->editFileSets = number;
}

}  // namespace

// Install types and file sets in document order. A set's FN entries go into
// fileNames in reverse document order, which is the order installFiles works
// in. Each entry takes the size, digest and table index of the package's
// file under its key; an entry whose file isn't packed keeps -1 as its index
// and is dealt with when it is installed.
int Installer::readFileSets() {
  for (int node = document.findNext("InstallType", -1); node >= 0; node = document.findNext("InstallType", node)) {
    INSTALLTYPE type;
    readInstallType(document, node, &type);
    installTypes.add(type);
  }

  QUtils::PList<int> children(16);
  for (int node = document.findNext("FileSet", -1); node >= 0; node = document.findNext("FileSet", node)) {
    const char* name = document.getAttribute(node, "Name");
    if (!hasText(name)) continue;
    FILESET set;
    std::memset(&set, 0, sizeof set);
    QUtils::copyText(set.name, name, sizeof set.name);
    QUtils::copyText(set.description, document.getAttribute(node, "Desc"), sizeof set.description);
    QUtils::copyText(set.condition, document.getAttribute(node, "Condition"), sizeof set.condition);
    int setIndex = fileSets.add(set);

    children.clear();
    document.getChildren(node, &children);
    // Room for the whole set at once: the list's own step of 5 would copy
    // the growing list once for every five files of a large product.
    if (fileNames.getCapacity() < fileNames.getCount() + children.getCount())
      fileNames.setCapacity(fileNames.getCount() + children.getCount());
    for (int i = children.getCount() - 1; i >= 0; i--) {
      int child = children[i];
      const char* path = document.getValue(child);
      if (std::strcmp(document.getName(child), "FN") != 0 || !hasText(path)) continue;

      FILENAMES entry;
      std::memset(&entry, 0, sizeof entry);
      entry.fileSet = setIndex;
      entry.packageIndex = -1;
      entry.dest = keepText(&fileNameTexts, document.getAttribute(child, "Dest"), kFileDestSize);
      entry.fileName = keepText(&fileNameTexts, QUtils::baseName(path), kFileNameSize);
      const char* alias = document.getAttribute(child, "Alias");
      if (alias) {
        entry.alias = keepText(&fileNameTexts, alias, kFileAliasSize);
      } else {
        char key[kFileAliasSize];
        keyFromPath(path, key, sizeof key);
        entry.alias = keepText(&fileNameTexts, key, kFileAliasSize);
      }
      entry.condition = keepText(&fileNameTexts, document.getAttribute(child, "Condition"), kFileConditionSize);
      // The flags count by presence alone: Executable="0" is set.
      entry.expandVarsInFile = document.getAttribute(child, "ExpandVarsInFile") != nullptr;
      entry.executable = document.getAttribute(child, "Executable") != nullptr;
      entry.stripExeExt = entry.executable && document.getAttribute(child, "StripExeExt") != nullptr;
      entry.okIfMissing = document.getAttribute(child, "OkIfMissing") != nullptr;
      entry.backupExisting = document.getAttribute(child, "BackupExisting") != nullptr;
      entry.symlink = document.getAttribute(child, "Symlink") != nullptr;

      int packed = package.findFile(entry.alias);
      if (packed >= 0) {
        const COMPFILEINFO& info = package.files[packed];
        entry.packageIndex = packed;
        entry.size = info.size;
        std::memcpy(entry.md5, info.md5, sizeof entry.md5);
      }
      fileNames.add(entry);
    }
  }
  return 0;
}

// Writes "<expanded Dest>/<base name of the entry's path>", with every
// separator made the system's and runs of them shrunk, for the first file
// entry whose Alias is `alias`. An entry without a Dest or a path leaves the
// buffer as it was. Callers read the buffer; the result is always -1.
int Installer::getInstalledFilePath(const char* alias, char* buffer, int size) {
  if (!alias || !buffer || size < 1) return -1;
  QUtils::PList<int> children(16);
  for (int node = document.findNext("FileSet", -1); node >= 0; node = document.findNext("FileSet", node)) {
    children.clear();
    document.getChildren(node, &children);
    // Room for the whole set at once: the list's own step of 5 would copy
    // the growing list once for every five files of a large product.
    if (fileNames.getCapacity() < fileNames.getCount() + children.getCount())
      fileNames.setCapacity(fileNames.getCount() + children.getCount());
    for (int i = 0; i < children.getCount(); i++) {
      int child = children[i];
      const char* childAlias = document.getAttribute(child, "Alias");
      if (!childAlias || std::strcmp(childAlias, alias) != 0) continue;

      const char* dest = document.getAttribute(child, "Dest");
      const char* path = document.getValue(child);
      if (!hasText(dest) || !hasText(path)) return -1;
      char result[QUtils::kMaxPath];
      expandVariables(dest, result, sizeof result);
      QUtils::appendText(result, "/", sizeof result);
      QUtils::appendText(result, QUtils::baseName(path), sizeof result);
      for (char* p = result; *p; p++) {
        if (QUtils::isSeparator(*p)) *p = QUtils::kPathSeparator;
      }
      QUtils::collapseSeparators(result);
      QUtils::copyText(buffer, result, size);
      return -1;
    }
  }
  return -1;
}
