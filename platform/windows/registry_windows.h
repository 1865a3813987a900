// WindowsRegistry: the registry on Windows, through the Reg functions.
//
// Reading opens keys with KEY_READ, or with the 32-bit view when asked;
// writing, creating and deleting with KEY_WRITE. Names and text data are
// UTF-8 here and wide at the calls; a text value is read without its
// terminator and written with one. A key is made one level below a parent
// that has to exist, so that a caller counts exactly the levels it made.
// Errors are the system's (ERROR_FILE_NOT_FOUND is kRegNotFound).
#ifndef QLUX_PLATFORM_WINDOWS_REGISTRY_WINDOWS_H_
#define QLUX_PLATFORM_WINDOWS_REGISTRY_WINDOWS_H_

#include "engine/registry_access.h"

class WindowsRegistry : public RegistryAccess {
 public:
  WindowsRegistry() {}
  WindowsRegistry(const WindowsRegistry&) = delete;
  WindowsRegistry& operator=(const WindowsRegistry&) = delete;

  int openKey(const char* hive, const char* path, bool forWrite, bool view32) override;
  int createKey(const char* hive, const char* path, int* outCreated) override;
  int deleteKey(const char* hive, const char* path) override;
  int listSubKeys(const char* hive, const char* path, QUtils::Table<QUtils::CharString>* out) override;
  int readValue(const char* hive, const char* path, const char* name, bool view32, int* outType,
                QUtils::RefArray<unsigned char>& outData, uint32_t* outSize) override;
  int writeValue(const char* hive, const char* path, const char* name, int type, const unsigned char* data,
                 uint32_t size) override;
  int deleteValue(const char* hive, const char* path, const char* name) override;
};

#endif  // QLUX_PLATFORM_WINDOWS_REGISTRY_WINDOWS_H_
