// RegistryAccess: the system's registry as the engine sees it. Keys are
// named by a hive ("HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER",
// "HKEY_CLASSES_ROOT", "HKEY_USERS") and a path of sub-key names separated
// by '\'. Texts are UTF-8. One body per system: the Reg functions on
// Windows, a file store under $QLUX_ROOT on Linux; tests use one in memory.
// The engine's registry primitives (registry.cpp) are written over this.
#ifndef QLUX_ENGINE_REGISTRY_ACCESS_H_
#define QLUX_ENGINE_REGISTRY_ACCESS_H_

#include <cstdint>

#include "foundation/charstring.h"
#include "foundation/lists.h"

// Value types, with the registry's own numbers.
const int kRegSz = 1;
const int kRegExpandSz = 2;
const int kRegBinary = 3;
const int kRegDword = 4;

// The result of an operation on a key or value that isn't there.
const int kRegNotFound = 2;

// The hive's own spelling for a root name given in any case, or null for
// a name that is none of the four.
inline const char* registryHiveName(const char* name) {
  static const char* const kHives[] = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
  if (!name) return nullptr;
  for (const char* hive : kHives) {
    const char* a = hive;
    const char* b = name;
    while (*a && (*a == *b || (*b >= 'a' && *b <= 'z' && *b - 'a' + 'A' == *a))) {
      a++;
      b++;
    }
    if (!*a && !*b) return hive;
  }
  return nullptr;
}

class RegistryAccess {
 public:
  virtual ~RegistryAccess() {}
  // 0 when the key exists and could be opened for reading (or writing), else
  // kRegNotFound or the system's error number. `view32` asks for the 32-bit
  // view where the system has one.
  virtual int openKey(const char* hive, const char* path, bool forWrite, bool view32) = 0;
  // Makes one key level below an existing parent; *outCreated is 1 if it is
  // new. 0 or an error number.
  virtual int createKey(const char* hive, const char* path, int* outCreated) = 0;
  // Deletes a key that has no sub-keys. 0 or an error number.
  virtual int deleteKey(const char* hive, const char* path) = 0;
  // The names of the direct sub-keys, in the system's order. 0 or an error.
  virtual int listSubKeys(const char* hive, const char* path, QUtils::Table<QUtils::CharString>* out) = 0;
  // A value: its type and raw data (text as UTF-8 without its NUL, a DWORD
  // as four little-endian bytes). 0 or an error.
  virtual int readValue(const char* hive, const char* path, const char* name, bool view32, int* outType,
                        QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) = 0;
  // Sets a value of an existing key. 0 or an error.
  virtual int writeValue(const char* hive, const char* path, const char* name, int type, const unsigned char* data,
                         uint32_t size) = 0;
  // Deletes a value. 0 or an error.
  virtual int deleteValue(const char* hive, const char* path, const char* name) = 0;
};

#endif  // QLUX_ENGINE_REGISTRY_ACCESS_H_
