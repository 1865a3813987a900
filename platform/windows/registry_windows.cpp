// The body of WindowsRegistry (registry_windows.h): the registry's text
// forms turned into Reg calls and back.
#include "platform/windows/registry_windows.h"

#include <windows.h>

#include <cstring>

#include "foundation/convert.h"
#include "foundation/text.h"

namespace {

const REGSAM kKeyRead = 0x20019;
const REGSAM kKeyRead32 = 0x20219;  // KEY_READ with KEY_WOW64_32KEY
const REGSAM kKeyWrite = 0x20006;

HKEY rootKey(const char* hive) {
  const char* name = registryHiveName(hive);
  if (!name) return nullptr;
  if (std::strcmp(name, "HKEY_CLASSES_ROOT") == 0) return HKEY_CLASSES_ROOT;
  if (std::strcmp(name, "HKEY_CURRENT_USER") == 0) return HKEY_CURRENT_USER;
  if (std::strcmp(name, "HKEY_LOCAL_MACHINE") == 0) return HKEY_LOCAL_MACHINE;
  return HKEY_USERS;
}

// A key path as the Reg functions take it: '\' between levels, as the
// engine hands it on; a '/' belongs to a key's name.
QUtils::CharString regPath(const char* path) { return QUtils::CharString(path ? path : ""); }

// Opens a key; the caller closes it.
LONG openRaw(const char* hive, const char* path, REGSAM access, HKEY* outKey) {
  HKEY root = rootKey(hive);
  if (!root) return ERROR_INVALID_PARAMETER;
  QUtils::TextConverter wide(regPath(path));
  return RegOpenKeyExW(root, wide.wide(), 0, access, outKey);
}

}  // namespace

int WindowsRegistry::openKey(const char* hive, const char* path, bool forWrite, bool view32) {
  HKEY key;
  LONG result = openRaw(hive, path, forWrite ? kKeyWrite : (view32 ? kKeyRead32 : kKeyRead), &key);
  if (result == ERROR_SUCCESS) RegCloseKey(key);
  return static_cast<int>(result);
}

int WindowsRegistry::createKey(const char* hive, const char* path, int* outCreated) {
  if (outCreated) *outCreated = 0;
  HKEY root = rootKey(hive);
  QUtils::CharString full = regPath(path);
  if (!root || full.isEmpty()) return ERROR_INVALID_PARAMETER;

  // The system would make missing parents as well; here the parent has to
  // be there, as it is when the engine goes down level by level.
  const char* text = full.getText();
  const char* last = std::strrchr(text, '\\');
  if (last) {
    QUtils::CharString parent;
    parent.assignRange(text, static_cast<int>(last - text));
    HKEY parentKey;
    LONG result = openRaw(hive, parent.getText(), kKeyRead, &parentKey);
    if (result != ERROR_SUCCESS) return static_cast<int>(result);
    RegCloseKey(parentKey);
  }
  QUtils::TextConverter wide(full);
  HKEY key;
  DWORD disposition = 0;
  LONG result =
      RegCreateKeyExW(root, wide.wide(), 0, nullptr, REG_OPTION_NON_VOLATILE, kKeyWrite, nullptr, &key, &disposition);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  RegCloseKey(key);
  if (outCreated) *outCreated = disposition == REG_CREATED_NEW_KEY ? 1 : 0;
  return 0;
}

int WindowsRegistry::deleteKey(const char* hive, const char* path) {
  HKEY root = rootKey(hive);
  QUtils::CharString full = regPath(path);
  if (!root || full.isEmpty()) return ERROR_INVALID_PARAMETER;
  HKEY key;
  LONG result = openRaw(hive, full.getText(), kKeyRead, &key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  DWORD subKeys = 0;
  result = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr);
  RegCloseKey(key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  if (subKeys > 0) return ERROR_ACCESS_DENIED;  // what the system says for such a key
  QUtils::TextConverter wide(full);
  return static_cast<int>(RegDeleteKeyW(root, wide.wide()));
}

int WindowsRegistry::listSubKeys(const char* hive, const char* path, QUtils::Table<QUtils::CharString>* out) {
  out->clear();
  HKEY key;
  LONG result = openRaw(hive, path, kKeyRead, &key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  DWORD count = 0, longest = 0;
  result = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, &longest, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr);
  if (result == ERROR_SUCCESS) {
    DWORD capacity = longest + 1;
    wchar_t* name = new wchar_t[capacity];
    for (DWORD i = 0; i < count; i++) {
      DWORD length = capacity;
      LONG step = RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr);
      if (step == ERROR_NO_MORE_ITEMS) break;
      if (step != ERROR_SUCCESS) continue;
      QUtils::TextConverter narrow(name);
      out->add(QUtils::CharString(narrow.narrow()));
    }
    delete[] name;
  }
  RegCloseKey(key);
  return static_cast<int>(result);
}

int WindowsRegistry::readValue(const char* hive, const char* path, const char* name, bool view32, int* outType,
                               QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) {
  HKEY key;
  LONG result = openRaw(hive, path, view32 ? kKeyRead32 : kKeyRead, &key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  QUtils::TextConverter wideName(name ? name : "");
  DWORD type = 0;
  DWORD size = 0;
  QUtils::RefArray<unsigned char> raw;
  result = RegQueryValueExW(key, wideName.wide(), nullptr, &type, nullptr, &size);
  // The value may grow between the size and the read; ask again a few times.
  for (int attempt = 0; result == ERROR_SUCCESS; attempt++) {
    raw = QUtils::RefArray<unsigned char>(size + sizeof(wchar_t));
    DWORD got = size;
    result = RegQueryValueExW(key, wideName.wide(), nullptr, &type, raw.get(), &got);
    size = got;
    if (result != ERROR_MORE_DATA || attempt == 3) break;
    result = ERROR_SUCCESS;
  }
  RegCloseKey(key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);

  *outType = static_cast<int>(type);
  if (type == REG_SZ || type == REG_EXPAND_SZ) {
    // The buffer has a spare wide character of zeros behind the data, so
    // the text ends even if the value was stored without its terminator.
    QUtils::TextConverter text(reinterpret_cast<const wchar_t*>(raw.get()));
    const char* narrow = text.narrow();
    uint32_t length = static_cast<uint32_t>(std::strlen(narrow));
    outData = QUtils::RefArray<unsigned char>(length);
    std::memcpy(outData.get(), narrow, length);
    *outSize = length;
  } else {
    outData = raw;
    *outSize = size;
  }
  return 0;
}

int WindowsRegistry::writeValue(const char* hive, const char* path, const char* name, int type,
                                const unsigned char* data, uint32_t size) {
  if (size > 0 && !data) return ERROR_INVALID_PARAMETER;
  if (type != kRegSz && type != kRegExpandSz && type != kRegDword && type != kRegBinary)
    return ERROR_INVALID_PARAMETER;
  HKEY key;
  LONG result = openRaw(hive, path, kKeyWrite, &key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  QUtils::TextConverter wideName(name ? name : "");
  if (type == kRegSz || type == kRegExpandSz) {
    QUtils::CharString text("");
    if (size > 0) text.assignRange(reinterpret_cast<const char*>(data), static_cast<int>(size));
    QUtils::TextConverter wide(text);
    DWORD bytes = static_cast<DWORD>(wide.wideLength()) * sizeof(wchar_t);
    result = RegSetValueExW(key, wideName.wide(), 0, static_cast<DWORD>(type),
                            reinterpret_cast<const BYTE*>(wide.wide()), bytes);
  } else {
    result = RegSetValueExW(key, wideName.wide(), 0, static_cast<DWORD>(type), data, size);
  }
  RegCloseKey(key);
  return static_cast<int>(result);
}

int WindowsRegistry::deleteValue(const char* hive, const char* path, const char* name) {
  HKEY key;
  LONG result = openRaw(hive, path, kKeyWrite, &key);
  if (result != ERROR_SUCCESS) return static_cast<int>(result);
  QUtils::TextConverter wideName(name ? name : "");
  result = RegDeleteValueW(key, wideName.wide());
  RegCloseKey(key);
  return static_cast<int>(result);
}
