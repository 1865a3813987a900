// The engine's registry primitives, over the platform's RegistryAccess.
//
// A place is one of the four root names, in any case; a key path takes '/'
// and '\' alike and is handed to the platform with '\' only, without empty
// levels. Reads turn a value into text: strings as they are, a DWORD as
// upper-case hexadecimal without prefix, binary data as lower-case hex
// pairs. Writes create the missing levels of their key and say how many.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/installer.h"
#include "foundation/convert.h"
#include "foundation/text.h"

namespace {

// `path` with every separator made '\', runs of them made one, and none at
// either end.
QUtils::CharString keyPath(const char* path) {
  QUtils::StringBuilder result;
  if (path) {
    for (const char* p = path; *p; p++) {
      if (!QUtils::isSeparator(*p)) {
        result.append(*p);
      } else if (result.getLength() > 0 && p[1] && !QUtils::isSeparator(p[1])) {
        result.append('\\');
      }
    }
  }
  return QUtils::CharString(result.getText() ? result.getText() : "");
}

// The first `count` levels of a key path whose levels are `parts`.
QUtils::CharString joinLevels(const QUtils::Table<QUtils::CharString>& parts, int count) {
  QUtils::StringBuilder result;
  for (int i = 0; i < count; i++) {
    if (i > 0) result.append('\\');
    result.append(parts[i]);
  }
  return QUtils::CharString(result.getText() ? result.getText() : "");
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}

// A value as text into `out`. The data has to fit where the system's own
// read puts it, `size` wide characters, or the read fails as it would
// there; the text is then cut to the field.
int valueToText(int type, const unsigned char* data, uint32_t length, char* out, int size) {
  if (size < 1) return -1;
  uint32_t room = static_cast<uint32_t>(size) * 2;
  if (type == kRegSz || type == kRegExpandSz) {
    QUtils::CharString text("");
    if (length > 0) text.assignRange(reinterpret_cast<const char*>(data), static_cast<int>(length));
    int units = QUtils::utf8ToWide(text.getText(), nullptr, 0);
    if (static_cast<uint32_t>(units + 1) * 2 > room) return -1;
    QUtils::copyText(out, text.getText(), size);
    return 0;
  }
  if (type == kRegDword) {
    if (length != 4) return -1;
    uint32_t value = data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<uint32_t>(data[3]) << 24);
    char number[16];
    std::snprintf(number, sizeof number, "%X", static_cast<unsigned>(value));
    QUtils::copyText(out, number, size);
    return 0;
  }
  if (type == kRegBinary) {
    if (length > room) return -1;
    int written = 0;
    for (uint32_t i = 0; i < length && written + 1 < size; i++) {
      const char pair[2] = {"0123456789abcdef"[data[i] >> 4], "0123456789abcdef"[data[i] & 15]};
      for (int k = 0; k < 2 && written + 1 < size; k++) out[written++] = pair[k];
    }
    out[written] = 0;
    return 0;
  }
  return -1;
}

// One entry of the wildcard search: a key path and where in it the next
// wildcard is looked for.
struct KeyPattern {
  QUtils::CharString text;
  int position = 0;
};

// True if a pattern of the list still has a wildcard at or behind its
// position.
bool hasWildcard(const QUtils::Table<KeyPattern>& list, char wildcard) {
  for (int i = 0; i < list.getCount(); i++) {
    if (std::strchr(list[i].text.getText() + list[i].position, wildcard)) return true;
  }
  return false;
}

// Appends to `list` what `pattern` stands for: for its next wildcard, one
// pattern for each sub-key of the parent whose name begins with the text
// before the wildcard (compared with case); a pattern without a wildcard
// left is appended as it is, with its position at its end. A parent that
// can't be opened or listed adds nothing.
void expandPattern(RegistryAccess* registry, const char* hive, KeyPattern pattern, char wildcard,
                   QUtils::Table<KeyPattern>& list) {
  const char* text = pattern.text.getText();
  const char* star = std::strchr(text + pattern.position, wildcard);
  if (!star) {
    pattern.position = pattern.text.getLength();
    list.add(pattern);
    return;
  }
  const char* lastSeparator = nullptr;
  for (const char* p = text; p < star; p++) {
    if (*p == '\\') lastSeparator = p;
  }
  int parentLength = lastSeparator ? static_cast<int>(lastSeparator - text) + 1 : 0;
  QUtils::CharString parent("");
  if (parentLength > 0) parent.assignRange(text, parentLength);
  QUtils::CharString prefix("");
  if (star - text > parentLength) prefix.assignRange(text + parentLength, static_cast<int>(star - text) - parentLength);
  QUtils::CharString parentKey = keyPath(parent.getText());

  if (registry->openKey(hive, parentKey.getText(), false, false) != 0) return;
  QUtils::Table<QUtils::CharString> subKeys;
  if (registry->listSubKeys(hive, parentKey.getText(), &subKeys) != 0) return;
  int prefixLength = prefix.getLength();
  for (int i = 0; i < subKeys.getCount(); i++) {
    const char* name = subKeys[i].getText();
    if (!name || std::strncmp(name, prefix.getText(), static_cast<size_t>(prefixLength)) != 0) continue;
    KeyPattern next;
    next.text = parent;
    next.text.append(name);
    next.position = next.text.getLength();
    next.text.append(star + 1);
    list.add(next);
  }
}

}  // namespace

int Installer::readRegistryValue(const char* place, const char* path, const char* name, char* out, int size,
                                 bool view32) {
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive || !path || !out || size < 1) return -1;
  QUtils::CharString key = keyPath(path);
  int result = registry->openKey(hive, key.getText(), false, view32);
  if (result != 0) return result;
  int type = 0;
  uint32_t length = 0;
  QUtils::RefArray<unsigned char> data;
  result = registry->readValue(hive, key.getText(), name ? name : "", view32, &type, data, &length);
  if (result != 0) return result;
  if (length > data.getSize()) return -1;
  return valueToText(type, data.get(), length, out, size);
}

int Installer::findRegistryValue(const char* place, const char* path, const char* name, char* out, int size,
                                 const char* firstPath, char wildcard) {
  if (firstPath && *firstPath && readRegistryValue(place, firstPath, name, out, size, false) == 0) return 0;
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive || !path) return -1;

  QUtils::Table<KeyPattern> list;
  KeyPattern first;
  first.text = keyPath(path);
  list.add(first);

  // Each round replaces every pattern it started with by what it expands
  // to. A pattern leaves its place to the list's last entry, so with one
  // wildcard the sub-key listed last comes first and the others follow in
  // their order: for version-numbered keys, the highest version first.
  while (hasWildcard(list, wildcard)) {
    int index = 0;
    int roundEnd = list.getCount();
    while (index < roundEnd) {
      expandPattern(registry, hive, list[index], wildcard, list);
      int last = list.getCount() - 1;
      if (last != index) list[index] = list[last];
      list.setCount(last, 0);
      // Nothing new behind the round's own entries: the entry moved into
      // this place (if any) is one of the round's and still has to be done.
      if (last < roundEnd) {
        roundEnd--;
      } else {
        index++;
      }
    }
  }

  for (int i = 0; i < list.getCount(); i++) {
    if (readRegistryValue(place, list[i].text.getText(), name, out, size, false) == 0) return 0;
  }
  return -1;
}

int Installer::setRegistryValue(const char* place, const char* path, const char* type, const char* name,
                                const char* data, int* outCreated) {
  if (outCreated) *outCreated = 0;
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive || !path) return -1;
  QUtils::CharString key = keyPath(path);
  int result = registry->openKey(hive, key.getText(), true, false);
  if (result == kRegNotFound) {
    int created = createRegistryKeys(place, key.getText());
    if (outCreated) *outCreated = created;
    result = registry->openKey(hive, key.getText(), true, false);
  }
  if (result != 0) return result;

  if (!data) data = "";
  if (!name) name = "";
  if (!type || QUtils::compareNoCase(type, "REG_SZ") == 0) {
    return registry->writeValue(hive, key.getText(), name, kRegSz, reinterpret_cast<const unsigned char*>(data),
                                static_cast<uint32_t>(std::strlen(data)));
  }
  if (QUtils::compareNoCase(type, "REG_DWORD") == 0) {
    // An unsigned number in base 16; what doesn't fit in 32 bits is the
    // largest DWORD.
    unsigned long long number = std::strtoull(data, nullptr, 16);
    uint32_t value = number > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(number);
    unsigned char bytes[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                              static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    return registry->writeValue(hive, key.getText(), name, kRegDword, bytes, 4);
  }
  if (QUtils::compareNoCase(type, "REG_BINARY") == 0) {
    // Hex pairs, in either case; an odd number of digits gives zeros.
    size_t digits = std::strlen(data);
    uint32_t length = static_cast<uint32_t>(digits / 2);
    QUtils::RefArray<unsigned char> bytes(length);
    if (digits % 2 == 0) {
      for (uint32_t i = 0; i < length; i++) {
        bytes.get()[i] = static_cast<unsigned char>((hexDigit(data[2 * i]) << 4) | hexDigit(data[2 * i + 1]));
      }
    }
    return registry->writeValue(hive, key.getText(), name, kRegBinary, bytes.get(), length);
  }
  // A type that the registry actions don't know still leaves the value
  // behind, as an empty text.
  return registry->writeValue(hive, key.getText(), name, kRegSz, reinterpret_cast<const unsigned char*>(""), 0);
}

int Installer::createRegistryKeys(const char* place, const char* path) {
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive || !path) return 0;
  QUtils::CharString key = keyPath(path);
  if (key.isEmpty()) return 0;
  if (registry->openKey(hive, key.getText(), true, false) != kRegNotFound) return 0;

  QUtils::Table<QUtils::CharString> parts;
  QUtils::splitText(key.getText(), '\\', parts);
  int created = 0;
  for (int level = 1; level <= parts.getCount(); level++) {
    QUtils::CharString levelPath = joinLevels(parts, level);
    int isNew = 0;
    if (registry->createKey(hive, levelPath.getText(), &isNew) != 0) {
      // The new levels are the lowest ones made so far; take them away
      // again, so that a failed call leaves the registry as it found it.
      if (created > 0) deleteRegistryKeys(place, joinLevels(parts, level - 1).getText(), created);
      return 0;
    }
    if (isNew) created++;
  }
  return created;
}

int Installer::deleteRegistryKeys(const char* place, const char* path, int count) {
  if (!place || !path || count == 0) return -1;
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive) return -1;
  QUtils::CharString key = keyPath(path);
  QUtils::Table<QUtils::CharString> parts;
  int levels = QUtils::splitText(key.getText(), '\\', parts);
  if (count < 1 || count > levels) return 0;

  // From the lowest level upward. A key that still has sub-keys stays, and
  // the walk goes on (its parents then stay as well).
  int deleted = 0;
  for (int level = levels; level > levels - count; level--) {
    QUtils::CharString parent = joinLevels(parts, level - 1);
    if (registry->openKey(hive, parent.getText(), true, false) != 0) continue;
    if (registry->deleteKey(hive, joinLevels(parts, level).getText()) == 0) deleted++;
  }
  return deleted;
}

int Installer::deleteRegistryValue(const char* place, const char* path, const char* name) {
  RegistryAccess* registry = getRegistry();
  const char* hive = registryHiveName(place);
  if (!registry || !hive || !path) return -1;
  QUtils::CharString key = keyPath(path);
  int result = registry->openKey(hive, key.getText(), true, false);
  if (result != 0) return result;
  return registry->deleteValue(hive, key.getText(), name ? name : "");
}
