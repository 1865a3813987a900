// RegistryStore: the registry on Linux, kept as files below
// $QLUX_ROOT/var/lib/qlux/registry/<HIVE>/.
//
// Levels of a key path are separated by '\'; a '/' belongs to a key's name,
// as in the registry. Each key is a directory, whose name keeps the case
// the key was made with, a '/' in it written "%2F" and a '%' "%25";
// looking a key up ignores ASCII case. A key's values are the lines
// of the file ".values" in its directory, NAME TAB TYPE TAB DATA, with an
// empty NAME for the default value. TYPE is REG_SZ, REG_EXPAND_SZ,
// REG_DWORD or REG_BINARY; text data has '\', TAB, CR and LF written as
// "\\", "\t", "\r" and "\n"; a DWORD is written in decimal and binary data
// in lower-case hex. Value names are written as they are, so a name holding
// TAB, CR or LF is refused. The file is written beside and renamed over the
// old one, so a reader sees the old values or the new ones, never a part.
//
// Sub-keys list in ASCII order ignoring case. A key that has sub-keys, or
// whose directory holds anything besides its values, is not deleted, and a
// key is only ever removed as one empty directory: nothing here deletes a
// tree or follows a symbolic link (a link in the store is no key).
// There is one view, so the 32-bit view is the same. The value
// HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\ProgramFilesDir
// reads as $QLUX_ROOT/opt while the store doesn't hold it. Errors are errno
// values, and kRegNotFound for a key or value that isn't there.
#ifndef QLUX_PLATFORM_LINUX_REGISTRY_STORE_H_
#define QLUX_PLATFORM_LINUX_REGISTRY_STORE_H_

#include "engine/registry_access.h"

class RegistryStore : public RegistryAccess {
 public:
  RegistryStore() {}
  RegistryStore(const RegistryStore&) = delete;
  RegistryStore& operator=(const RegistryStore&) = delete;

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

#endif  // QLUX_PLATFORM_LINUX_REGISTRY_STORE_H_
