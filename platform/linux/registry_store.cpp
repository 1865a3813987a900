// The body of RegistryStore (registry_store.h): keys as directories, a
// key's values as the lines of one file that a change replaces whole.
#include "platform/linux/registry_store.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/root.h"

using QUtils::CharString;
using QUtils::StringBuilder;
using QUtils::Table;

namespace {

const char kValuesFile[] = ".values";
const char kValuesBeside[] = ".values.new";

int systemError() { return errno ? errno : EIO; }

CharString builderText(const StringBuilder& builder) {
  return CharString(builder.getText() ? builder.getText() : "");
}

CharString joinPath(const char* directory, const char* name) {
  CharString result(directory);
  result.append("/");
  result.append(name);
  return result;
}

// The store's own directory: its keys and values are root's business alone,
// so it is closed to other users (mode 0700).
CharString storeDirectory() { return Host::rootPath("var/lib/qlux/registry"); }

// Makes the directory of a hive, `base`, in the store's private directory.
int makeHiveDirectory(const CharString& base) {
  errno = 0;
  if (!QUtils::makePrivateDirectory(storeDirectory().getText())) return errno ? errno : EACCES;
  CharString hiveSlash = base;
  hiveSlash.append("/");
  errno = 0;
  return QUtils::createPath(hiveSlash.getText(), nullptr) == 0 ? 0 : systemError();
}

// The store's directory of a hive; null for an unknown hive.
CharString hiveDirectory(const char* hive) {
  const char* name = registryHiveName(hive);
  if (!name) return CharString();
  CharString directory = storeDirectory();
  directory.append("/");
  directory.append(name);
  return directory;
}

// The levels of a key path, separated by '\'; empty levels are none. A '/'
// belongs to a level's name, as in the registry.
void splitLevels(const char* path, Table<CharString>* out) {
  out->clear();
  StringBuilder level;
  for (const char* p = path ? path : "";; p++) {
    if (*p && *p != '\\') {
      level.append(*p);
      continue;
    }
    if (level.getLength() > 0) out->add(builderText(level));
    level.clear();
    if (!*p) break;
  }
}

// A key's name as the name of its directory: a '/' can't stand in that, so
// it is written "%2F", and a '%' "%25". Names of an older store, which
// never hold those two sequences, read the same either way.
CharString encodeLevel(const char* name) {
  StringBuilder encoded;
  for (const char* p = name; *p; p++) {
    if (*p == '%') encoded.append("%25");
    else if (*p == '/') encoded.append("%2F");
    else encoded.append(*p);
  }
  return builderText(encoded);
}

CharString decodeLevel(const char* directoryName) {
  StringBuilder decoded;
  for (const char* p = directoryName; *p; p++) {
    if (p[0] == '%' && p[1] == '2' && (p[2] == 'F' || p[2] == 'f')) {
      decoded.append('/');
      p += 2;
    } else if (p[0] == '%' && p[1] == '2' && p[2] == '5') {
      decoded.append('%');
      p += 2;
    } else {
      decoded.append(*p);
    }
  }
  return builderText(decoded);
}

// A directory of the store that stands for a key: a real directory, not a
// symbolic link, and not one of the names the store uses for itself.
bool isKeyDirectory(const char* path) { return QUtils::isDirectory(path) && !QUtils::isLink(path); }

bool isReservedName(const char* name) {
  return !*name || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
         std::strcmp(name, kValuesFile) == 0 || std::strcmp(name, kValuesBeside) == 0;
}

// The names of the entries of `directory`, without its path; false if it
// can't be read.
bool listEntries(const char* directory, std::vector<CharString>* out) {
  out->clear();
  QUtils::FileList list;
  CharString pattern = joinPath(directory, "*");
  if (!list.search(pattern.getText())) return false;
  size_t skip = std::strlen(directory) + 1;
  for (int i = 0; i < list.getCount(); i++) {
    const char* name = list.getName(i);
    if (std::strlen(name) > skip) out->push_back(CharString(name + skip));
  }
  return true;
}

// The directory of the sub-key `name` of the key at `parent`: the one of
// that exact name if there is one, else the first whose name equals it
// without regard to case.
bool findLevel(const char* parent, const char* name, CharString* outDirectory) {
  if (isReservedName(name)) return false;
  CharString exact = joinPath(parent, encodeLevel(name).getText());
  if (isKeyDirectory(exact.getText())) {
    *outDirectory = exact;
    return true;
  }
  std::vector<CharString> entries;
  if (!listEntries(parent, &entries)) return false;
  const char* best = nullptr;
  for (const CharString& entry : entries) {
    const char* text = entry.getText();
    if (QUtils::compareNoCase(decodeLevel(text).getText(), name) != 0 || isReservedName(text)) continue;
    if (!isKeyDirectory(joinPath(parent, text).getText())) continue;
    if (!best || std::strcmp(text, best) < 0) best = text;
  }
  if (!best) return false;
  *outDirectory = joinPath(parent, best);
  return true;
}

// The directory of the key with the first `count` levels of `levels`
// below the hive's directory `base`. 0 or kRegNotFound.
int findKey(const CharString& base, const Table<CharString>& levels, int count, CharString* outDirectory) {
  CharString directory = base;
  for (int i = 0; i < count; i++) {
    if (!findLevel(directory.getText(), levels[i].getText(), &directory)) return kRegNotFound;
  }
  *outDirectory = directory;
  return 0;
}

// The one value the store answers for without holding it: where programs
// are installed.
bool isProgramFilesKey(const char* hive, const Table<CharString>& levels) {
  static const char* const kPath[] = {"SOFTWARE", "Microsoft", "Windows", "CurrentVersion"};
  if (std::strcmp(registryHiveName(hive), "HKEY_LOCAL_MACHINE") != 0 || levels.getCount() != 4) return false;
  for (int i = 0; i < 4; i++) {
    if (QUtils::compareNoCase(levels[i].getText(), kPath[i]) != 0) return false;
  }
  return true;
}

// ---- The values file ----

// One line of ".values", with its data as the file spells it.
struct ValueLine {
  CharString name;
  CharString type;
  CharString data;
};

const char* typeName(int type) {
  switch (type) {
    case kRegSz: return "REG_SZ";
    case kRegExpandSz: return "REG_EXPAND_SZ";
    case kRegDword: return "REG_DWORD";
    case kRegBinary: return "REG_BINARY";
    default: return nullptr;
  }
}

int typeNumber(const char* name) {
  for (int type : {kRegSz, kRegExpandSz, kRegDword, kRegBinary}) {
    if (std::strcmp(name, typeName(type)) == 0) return type;
  }
  return 0;
}

// Reads the values of the key at `directory`; a key without the file has
// none. Lines that don't have three fields are passed over.
int loadValues(const char* directory, Table<ValueLine>* out) {
  out->clear();
  CharString path = joinPath(directory, kValuesFile);
  errno = 0;
  FILE* file = QUtils::openFile(path.getText(), "rb");
  if (!file) return errno == ENOENT ? 0 : systemError();
  StringBuilder content;
  char block[4096];
  size_t got;
  while ((got = std::fread(block, 1, sizeof block, file)) > 0) content.append(block, static_cast<int>(got));
  bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) return EIO;
  if (!content.getText()) return 0;

  const char* line = content.getText();
  while (*line) {
    const char* end = std::strchr(line, '\n');
    if (!end) end = line + std::strlen(line);
    const char* stop = end;
    if (stop > line && stop[-1] == '\r') stop--;
    const char* tab1 = static_cast<const char*>(std::memchr(line, '\t', static_cast<size_t>(stop - line)));
    const char* tab2 =
        tab1 ? static_cast<const char*>(std::memchr(tab1 + 1, '\t', static_cast<size_t>(stop - tab1 - 1))) : nullptr;
    if (tab2) {
      ValueLine value;
      value.name.assign("");
      value.type.assign("");
      value.data.assign("");
      if (tab1 > line) value.name.assignRange(line, static_cast<int>(tab1 - line));
      if (tab2 > tab1 + 1) value.type.assignRange(tab1 + 1, static_cast<int>(tab2 - tab1 - 1));
      if (stop > tab2 + 1) value.data.assignRange(tab2 + 1, static_cast<int>(stop - tab2 - 1));
      out->add(value);
    }
    line = *end ? end + 1 : end;
  }
  return 0;
}

// Writes the values of the key at `directory` beside the file and puts the
// new file in its place.
int saveValues(const char* directory, const Table<ValueLine>& values) {
  StringBuilder content;
  for (int i = 0; i < values.getCount(); i++) {
    content.append(values[i].name);
    content.append('\t');
    content.append(values[i].type);
    content.append('\t');
    content.append(values[i].data);
    content.append('\n');
  }
  CharString beside = joinPath(directory, kValuesBeside);
  CharString target = joinPath(directory, kValuesFile);
  errno = 0;
  FILE* file = QUtils::openFile(beside.getText(), "wb", QUtils::kPrivateFileMode);
  if (!file) return systemError();
  size_t length = static_cast<size_t>(content.getLength());
  bool failed = length > 0 && std::fwrite(content.getText(), 1, length, file) != length;
  if (std::fflush(file) != 0) failed = true;
  int error = failed ? systemError() : 0;
  if (std::fclose(file) != 0 && !error) error = systemError();
  if (!error) error = QUtils::replaceFile(beside.getText(), target.getText());
  if (error) QUtils::deleteFile(beside.getText());
  return error;
}

int findValue(const Table<ValueLine>& values, const char* name) {
  for (int i = 0; i < values.getCount(); i++) {
    if (QUtils::compareNoCase(values[i].name.getText(), name) == 0) return i;
  }
  return -1;
}

CharString escapeData(const unsigned char* data, uint32_t size) {
  StringBuilder text;
  for (uint32_t i = 0; i < size && data[i]; i++) {
    switch (data[i]) {
      case '\\': text.append("\\\\"); break;
      case '\t': text.append("\\t"); break;
      case '\r': text.append("\\r"); break;
      case '\n': text.append("\\n"); break;
      default: text.append(static_cast<char>(data[i]));
    }
  }
  return builderText(text);
}

void unescapeData(const char* text, StringBuilder* out) {
  for (const char* p = text; *p; p++) {
    if (*p != '\\' || !p[1]) {
      out->append(*p);
      continue;
    }
    switch (*++p) {
      case '\\': out->append('\\'); break;
      case 't': out->append('\t'); break;
      case 'r': out->append('\r'); break;
      case 'n': out->append('\n'); break;
      default:
        out->append('\\');
        out->append(*p);
    }
  }
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The data of a line as the engine reads it; EINVAL for data that its type
// can't have.
int decodeValue(const ValueLine& value, int* outType, QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) {
  int type = typeNumber(value.type.getText());
  const char* data = value.data.getText();
  if (type == kRegSz || type == kRegExpandSz) {
    StringBuilder text;
    unescapeData(data, &text);
    *outSize = static_cast<uint32_t>(text.getLength());
    outData = QUtils::RefArray<unsigned char>(*outSize);
    if (*outSize) std::memcpy(outData.get(), text.getText(), *outSize);
  } else if (type == kRegDword) {
    char* end = nullptr;
    errno = 0;
    unsigned long long number = std::strtoull(data, &end, 10);
    if (!*data || *data < '0' || *data > '9' || *end || errno == ERANGE || number > 0xFFFFFFFFull) return EINVAL;
    *outSize = 4;
    outData = QUtils::RefArray<unsigned char>(4);
    for (int i = 0; i < 4; i++) outData.get()[i] = static_cast<unsigned char>(number >> (8 * i));
  } else if (type == kRegBinary) {
    size_t digits = std::strlen(data);
    if (digits % 2) return EINVAL;
    *outSize = static_cast<uint32_t>(digits / 2);
    outData = QUtils::RefArray<unsigned char>(*outSize);
    for (uint32_t i = 0; i < *outSize; i++) {
      int high = hexValue(data[2 * i]), low = hexValue(data[2 * i + 1]);
      if (high < 0 || low < 0) return EINVAL;
      outData.get()[i] = static_cast<unsigned char>((high << 4) | low);
    }
  } else {
    return EINVAL;
  }
  *outType = type;
  return 0;
}

CharString encodeData(int type, const unsigned char* data, uint32_t size) {
  if (type == kRegDword) {
    uint32_t value = 0;
    for (uint32_t i = 0; i < size && i < 4; i++) value |= static_cast<uint32_t>(data[i]) << (8 * i);
    char number[16];
    std::snprintf(number, sizeof number, "%u", static_cast<unsigned>(value));
    return CharString(number);
  }
  if (type == kRegBinary) {
    StringBuilder hex;
    for (uint32_t i = 0; i < size; i++) {
      hex.append("0123456789abcdef"[data[i] >> 4]);
      hex.append("0123456789abcdef"[data[i] & 15]);
    }
    return builderText(hex);
  }
  return escapeData(data, size);
}

}  // namespace

int RegistryStore::openKey(const char* hive, const char* path, bool forWrite, bool) {
  CharString base = hiveDirectory(hive);
  if (base.isNull()) return EINVAL;
  Table<CharString> levels;
  splitLevels(path, &levels);
  if (levels.getCount() == 0) return 0;  // a hive is always there
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  if (result != 0) return !forWrite && isProgramFilesKey(hive, levels) ? 0 : result;
  if (forWrite && access(directory.getText(), W_OK) != 0) return systemError();
  return 0;
}

int RegistryStore::createKey(const char* hive, const char* path, int* outCreated) {
  if (outCreated) *outCreated = 0;
  CharString base = hiveDirectory(hive);
  Table<CharString> levels;
  splitLevels(path, &levels);
  int count = levels.getCount();
  if (base.isNull() || count == 0) return EINVAL;
  const char* name = levels[count - 1].getText();
  if (isReservedName(name)) return EINVAL;

  if (count == 1) {
    // The hive's directory is made with the first key in it.
    int made = makeHiveDirectory(base);
    if (made != 0) return made;
  }
  CharString parent;
  int result = findKey(base, levels, count - 1, &parent);
  if (result != 0) return result;
  CharString existing;
  if (findLevel(parent.getText(), name, &existing)) return 0;
  CharString directory = joinPath(parent.getText(), encodeLevel(name).getText());
  errno = 0;
  if (!QUtils::makeDirectory(directory.getText())) return systemError();
  if (outCreated) *outCreated = 1;
  return 0;
}

int RegistryStore::deleteKey(const char* hive, const char* path) {
  CharString base = hiveDirectory(hive);
  Table<CharString> levels;
  splitLevels(path, &levels);
  // A hive itself is never deleted.
  if (base.isNull() || levels.getCount() == 0) return EINVAL;
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  if (result != 0) return result;

  // Only a directory that holds nothing but the key's own files goes, and
  // it goes as an empty directory.
  std::vector<CharString> entries;
  if (!listEntries(directory.getText(), &entries)) return systemError();
  for (const CharString& entry : entries) {
    if (std::strcmp(entry.getText(), kValuesFile) != 0 && std::strcmp(entry.getText(), kValuesBeside) != 0)
      return ENOTEMPTY;
  }
  for (const CharString& entry : entries) {
    int error = QUtils::deleteFile(joinPath(directory.getText(), entry.getText()).getText());
    if (error) return error;
  }
  return QUtils::removeDirectory(directory.getText());
}

int RegistryStore::listSubKeys(const char* hive, const char* path, Table<CharString>* out) {
  out->clear();
  CharString base = hiveDirectory(hive);
  if (base.isNull()) return EINVAL;
  Table<CharString> levels;
  splitLevels(path, &levels);
  if (levels.getCount() == 0 && !QUtils::fileExists(base.getText())) return 0;  // an empty hive
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  if (result != 0) return result;

  std::vector<CharString> entries;
  if (!listEntries(directory.getText(), &entries)) return systemError();
  std::vector<CharString> names;
  for (const CharString& entry : entries) {
    if (isReservedName(entry.getText())) continue;
    if (isKeyDirectory(joinPath(directory.getText(), entry.getText()).getText()))
      names.push_back(decodeLevel(entry.getText()));
  }
  std::sort(names.begin(), names.end(), [](const CharString& a, const CharString& b) {
    int order = QUtils::compareNoCase(a.getText(), b.getText());
    return order != 0 ? order < 0 : std::strcmp(a.getText(), b.getText()) < 0;
  });
  for (const CharString& name : names) out->add(name);
  return 0;
}

int RegistryStore::readValue(const char* hive, const char* path, const char* name, bool, int* outType,
                             QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) {
  CharString base = hiveDirectory(hive);
  if (base.isNull()) return EINVAL;
  if (!name) name = "";
  Table<CharString> levels;
  splitLevels(path, &levels);
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  Table<ValueLine> values;
  if (result == 0) result = loadValues(directory.getText(), &values);
  if (result == 0 || result == kRegNotFound) {
    int index = result == 0 ? findValue(values, name) : -1;
    if (index >= 0) return decodeValue(values[index], outType, outData, outSize);
    if (isProgramFilesKey(hive, levels) && QUtils::compareNoCase(name, "ProgramFilesDir") == 0) {
      CharString programs = Host::rootPath("opt");
      *outType = kRegSz;
      *outSize = static_cast<uint32_t>(programs.getLength());
      outData = QUtils::RefArray<unsigned char>(*outSize);
      std::memcpy(outData.get(), programs.getText(), *outSize);
      return 0;
    }
    return kRegNotFound;
  }
  return result;
}

int RegistryStore::writeValue(const char* hive, const char* path, const char* name, int type,
                              const unsigned char* data, uint32_t size) {
  CharString base = hiveDirectory(hive);
  if (!name) name = "";
  if (base.isNull() || !typeName(type) || std::strpbrk(name, "\t\r\n") || (size > 0 && !data)) return EINVAL;
  Table<CharString> levels;
  splitLevels(path, &levels);
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  if (result == kRegNotFound && levels.getCount() == 0) {
    // A value straight in the hive: its directory comes with it.
    result = makeHiveDirectory(base);
    directory = base;
  }
  if (result != 0) return result;

  Table<ValueLine> values;
  result = loadValues(directory.getText(), &values);
  if (result != 0) return result;
  int index = findValue(values, name);
  if (index < 0) {
    ValueLine line;
    line.name.assign(name);
    index = values.add(line);
  }
  values[index].type.assign(typeName(type));
  values[index].data = encodeData(type, data, size);
  return saveValues(directory.getText(), values);
}

int RegistryStore::deleteValue(const char* hive, const char* path, const char* name) {
  CharString base = hiveDirectory(hive);
  if (base.isNull()) return EINVAL;
  Table<CharString> levels;
  splitLevels(path, &levels);
  CharString directory;
  int result = findKey(base, levels, levels.getCount(), &directory);
  if (result != 0) return result;
  Table<ValueLine> values;
  result = loadValues(directory.getText(), &values);
  if (result != 0) return result;
  int index = findValue(values, name ? name : "");
  if (index < 0) return kRegNotFound;
  for (int i = index; i + 1 < values.getCount(); i++) values[i] = values[i + 1];
  values.setCount(values.getCount() - 1, 0);
  return saveValues(directory.getText(), values);
}
