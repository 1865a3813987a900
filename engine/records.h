// The engine's plain records for variables and the template's file entries.
// Texts are fixed, NUL-terminated fields filled by truncating copies; the
// records that live in PLists hold no pointers, so lists copy them as raw
// memory.
#ifndef QLUX_ENGINE_RECORDS_H_
#define QLUX_ENGINE_RECORDS_H_

#include <cstdint>

#include "foundation/charstring.h"

// One variable. A record's index is its identity for the whole run:
// records are never removed and never move.
struct VARIABLE {
  char name[1024];
  char value[1560];
  // The text `value` is worked out from, with $NAME references; empty when
  // the variable has none.
  char expression[1560];
  // The value the template gave; a directory field shows it as its default.
  char defaultValue[1560];
  // Non-zero: `value` follows `expression` when another variable changes.
  unsigned char recalculate;
};

// One entry of the exclude list: a variable left out of the action log's
// values (mask bit 0) or of a configuration file (bit 1).
struct EXCLUDEINFO {
  QUtils::CharString name;
  int mask;
};

const int kExcludeFromLog = 1;
const int kExcludeFromConfig = 2;

struct INSTALLTYPE {
  char name[198];
  char description[198];
  int isDefault;
  int editFileSets;
};

struct FILESET {
  char name[198];
  char description[1022];
  char condition[510];
};

// One FN entry of a FileSet.
struct FILENAMES {
  int32_t fileSet;       // index into Installer::fileSets
  char dest[1559];       // Dest, not yet expanded; empty: a package item only
  char alias[258];       // the key of the file in the package
  char fileName[258];    // the base name it is written under
  uint64_t size;         // unpacked size from the package table
  int32_t packageIndex;  // index into the package's file table, -1 if absent
  unsigned char md5[16];
  unsigned char expandVarsInFile;
  unsigned char executable;
  unsigned char okIfMissing;
  unsigned char stripExeExt;
  unsigned char backupExisting;
  unsigned char symlink;  // the packed file holds the target of a link made in its place
  char condition[510];
};

// A pair of paths: a file and its temporary copy.
struct COPIEDFILE {
  QUtils::CharString original;
  QUtils::CharString temporary;
};

#endif  // QLUX_ENGINE_RECORDS_H_
