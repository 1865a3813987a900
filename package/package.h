// A loaded package: the installer's files, unpacked into memory, with a
// table that finds a file by its key.
//
// openPackage() reads everything from `offset` to the end of the named file
// (checksum record and any certificate table included, which are ignored),
// checks the package header, unpacks a solid block when one follows it, and
// lists the file records. The data stays in memory until the Package goes or
// is opened again; a COMPFILEINFO's recordOffset is valid only as long as
// that. With flag bit 0 the file is instead an action log, which is only
// opened for reading.
//
// A file record is a 608-byte header (see format.h) followed by the data: in
// a solid package the plain bytes, otherwise a zlib stream of its own.
// Keys are compared byte by byte, case-sensitively; of two records with one
// key the later one wins. Every extraction makes a new copy with a NUL behind
// the data, so that text can be parsed as it comes.
#ifndef QLUX_PACKAGE_PACKAGE_H_
#define QLUX_PACKAGE_PACKAGE_H_

#include <cstdint>
#include <cstdio>

#include "foundation/console.h"
#include "foundation/lists.h"

// One entry of the file table: where the record starts in packageData, then
// the fields of the record's header. `name` and `key` are always terminated.
struct COMPFILEINFO {
  uint32_t recordOffset;
  uint32_t magic;
  uint32_t fileSize;
  uint32_t storedSize;
  uint32_t flags;
  unsigned char md5[16];
  char name[300];
  char key[276];
};

// Results of openPackage(); the solid decompressor's codes (-11 to -29,
// solid_decompressor.h) are passed on unchanged.
const int kPackageLogOpenFailed = -1;
const int kPackageOpenFailed = -2;
const int kPackageSeekFailed = -3;
const int kPackageReadFailed = -4;
const int kPackageBadMagic1 = -5;
const int kPackageBadMagic2 = -6;
const int kPackageBadMagic3 = -7;
const int kPackageBadRecord = -8;
const int kPackageNoMemory = -10;

// openPackage() flags.
const int kRunFlagActionLog = 1;  // the file is an action log, not a package
const int kRunFlagBackup = 2;     // a backup of replaced files is wanted

class Package {
 public:
  Package();
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;
  ~Package();

  // Loads the package at `offset` of the UTF-8 path `fileName`, or with
  // kRunFlagActionLog opens the file as the action log. Gives 0 or one of
  // the codes above; on failure no package data is kept. Progress and
  // failures go to logConsole when it is set.
  int openPackage(const char* fileName, uint32_t offset, int flags);
  // The index of the last file with `key`, or -1.
  int findFile(const char* key) const;
  // A new copy of the file's data in `outData` (with a 0 byte behind it that
  // the size doesn't count), its length in `outSize`, and the record's
  // digest in `outDigest` unless that is null. Gives 0; -1 on failure, with
  // `outSize` 0 and `outData` untouched.
  int extractFile(int index, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                  unsigned char* outDigest);
  // The same by key; an unknown key gives -1 and touches nothing.
  int extractFile(const char* key, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                  unsigned char* outDigest);
  // The file's data, or an empty array for an unknown key, in which case
  // `outSize` keeps its value.
  QUtils::RefArray<unsigned char> getFileData(const char* key, uint32_t* outSize);
  // Frees the package data and the table, and closes the action log.
  void release();

  // The loaded bytes: the unpacked record stream of a solid package, else
  // the package as read from the file, header included. Malloc'ed.
  unsigned char* packageData;
  int32_t packageSize;
  int packageIsSolid;
  QUtils::PList<COMPFILEINFO> files;
  int runFlags;
  FILE* actionLogFile;
  QUtils::PConsole* logConsole;

 private:
  void log(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void freePackageData();
  int loadPackage(const char* fileName, uint32_t offset);
  int readRecords(int32_t position);
};

#endif  // QLUX_PACKAGE_PACKAGE_H_
