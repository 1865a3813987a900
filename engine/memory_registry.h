// MemoryRegistry: a RegistryAccess held in memory, for unit tests. It acts
// as the system's registry does where the engine can tell: key and value
// names are compared without regard to ASCII case and keep the case they
// were made with, the four hives always exist, sub-keys are listed in ASCII
// order ignoring case, a key is made one level below an existing parent,
// and a key with sub-keys can't be deleted. `refuseCreate` makes creating
// the key of that path (any case) fail, to test what callers do then.
#ifndef QLUX_ENGINE_MEMORY_REGISTRY_H_
#define QLUX_ENGINE_MEMORY_REGISTRY_H_

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "engine/registry_access.h"

class MemoryRegistry : public RegistryAccess {
 public:
  struct Value {
    std::string name;
    int type = 0;
    std::vector<unsigned char> data;
  };
  struct Key {
    std::string path;  // hive and path as made: "HKEY_CURRENT_USER\Software\A"
    std::map<std::string, Value> values;  // by lower-case name
  };

  // The access error of the system, for a refused key.
  static const int kAccessDenied = 5;

  int openKey(const char* hive, const char* path, bool forWrite, bool view32) override {
    lastView32 = view32;
    if (!registryHiveName(hive)) return kRegNotFound;
    return isRoot(path) || keys.count(fold(hive, path)) ? 0 : kRegNotFound;
  }

  int createKey(const char* hive, const char* path, int* outCreated) override {
    if (outCreated) *outCreated = 0;
    if (!registryHiveName(hive) || isRoot(path)) return kRegNotFound;
    std::string id = fold(hive, path);
    if (keys.count(id)) return 0;
    if (!refuseCreate.empty() && id == fold(hive, refuseCreate.c_str())) return kAccessDenied;
    size_t cut = id.rfind('\\');
    if (cut != std::string::npos && cut > std::strlen(registryHiveName(hive)) && !keys.count(id.substr(0, cut)))
      return kRegNotFound;
    keys[id].path = spelled(hive, path);
    if (outCreated) *outCreated = 1;
    return 0;
  }

  int deleteKey(const char* hive, const char* path) override {
    if (!registryHiveName(hive) || isRoot(path)) return kAccessDenied;
    std::string id = fold(hive, path);
    if (!keys.count(id)) return kRegNotFound;
    if (!children(id).empty()) return kAccessDenied;
    keys.erase(id);
    return 0;
  }

  int listSubKeys(const char* hive, const char* path, QUtils::Table<QUtils::CharString>* out) override {
    if (!registryHiveName(hive)) return kRegNotFound;
    std::string id = isRoot(path) ? fold(hive, "") : fold(hive, path);
    if (!isRoot(path) && !keys.count(id)) return kRegNotFound;
    out->clear();
    for (const std::string& name : children(id)) out->add(QUtils::CharString(name.c_str()));
    return 0;
  }

  int readValue(const char* hive, const char* path, const char* name, bool view32, int* outType,
                QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) override {
    Key* key = find(hive, path);
    if (!key) return kRegNotFound;
    auto found = key->values.find(lower(name));
    if (found == key->values.end()) return kRegNotFound;
    const Value& value = found->second;
    *outType = value.type;
    *outSize = static_cast<uint32_t>(value.data.size());
    outData = QUtils::RefArray<unsigned char>(*outSize);
    if (*outSize) std::memcpy(outData.get(), value.data.data(), *outSize);
    return 0;
  }

  int writeValue(const char* hive, const char* path, const char* name, int type, const unsigned char* data,
                 uint32_t size) override {
    Key* key = find(hive, path);
    if (!key) return kRegNotFound;
    Value& value = key->values[lower(name)];
    if (value.name.empty()) value.name = name ? name : "";
    value.type = type;
    value.data.assign(data, data + size);
    return 0;
  }

  int deleteValue(const char* hive, const char* path, const char* name) override {
    Key* key = find(hive, path);
    if (!key) return kRegNotFound;
    return key->values.erase(lower(name)) ? 0 : kRegNotFound;
  }

  // For tests: does the key exist; a value's type and data as text (a
  // DWORD as a decimal number, binary as lower-case hex); the number of
  // keys below the hives.
  bool hasKey(const char* hive, const char* path) { return find(hive, path) != nullptr; }
  bool value(const char* hive, const char* path, const char* name, int* outType, std::string* outText) {
    Key* key = find(hive, path);
    if (!key) return false;
    auto found = key->values.find(lower(name));
    if (found == key->values.end()) return false;
    const Value& v = found->second;
    *outType = v.type;
    outText->clear();
    if (v.type == kRegDword && v.data.size() == 4) {
      unsigned number = v.data[0] | (v.data[1] << 8) | (v.data[2] << 16) | (static_cast<unsigned>(v.data[3]) << 24);
      *outText = std::to_string(number);
    } else if (v.type == kRegBinary) {
      for (unsigned char c : v.data) {
        outText->push_back("0123456789abcdef"[c >> 4]);
        outText->push_back("0123456789abcdef"[c & 15]);
      }
    } else {
      outText->assign(v.data.begin(), v.data.end());
    }
    return true;
  }
  size_t keyCount() const { return keys.size(); }

  std::string refuseCreate;  // a path below any hive whose creation fails
  bool lastView32 = false;   // the view asked for by the last openKey

 private:
  static bool isRoot(const char* path) { return !path || !*path; }

  static std::string lower(const char* text) {
    std::string result = text ? text : "";
    for (char& c : result)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
  }

  // "HIVE\path", with no separator at either end. As in the registry, a
  // '/' belongs to a key's name.
  static std::string spelled(const char* hive, const char* path) {
    std::string result = registryHiveName(hive);
    std::string rest = path ? path : "";
    while (!rest.empty() && rest.front() == '\\') rest.erase(0, 1);
    while (!rest.empty() && rest.back() == '\\') rest.pop_back();
    if (!rest.empty()) result += "\\" + rest;
    return result;
  }
  static std::string fold(const char* hive, const char* path) { return lower(spelled(hive, path).c_str()); }

  Key* find(const char* hive, const char* path) {
    if (!registryHiveName(hive)) return nullptr;
    auto found = keys.find(fold(hive, path));
    return found == keys.end() ? nullptr : &found->second;
  }

  // The names of the direct sub-keys of `id` (folded), in ASCII order
  // ignoring case: the order of the folded map.
  std::vector<std::string> children(const std::string& id) {
    std::vector<std::string> names;
    std::string prefix = id + "\\";
    for (const auto& entry : keys) {
      if (entry.first.compare(0, prefix.size(), prefix) != 0) continue;
      if (entry.first.find('\\', prefix.size()) != std::string::npos) continue;
      names.push_back(entry.second.path.substr(prefix.size()));
    }
    return names;
  }

  std::map<std::string, Key> keys;  // by folded "hive\path"
};

#endif  // QLUX_ENGINE_MEMORY_REGISTRY_H_
