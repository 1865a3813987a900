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

// One FN entry of a FileSet. Its texts lie in Installer::fileNameTexts,
// which keeps them as long as the engine: a product of many files holds a
// few bytes of text for each, not the largest text each field may have.
// They are cut to the sizes below, terminator included, as they are read.
const int kFileDestSize = 1559;
const int kFileAliasSize = 258;
const int kFileNameSize = 258;
const int kFileConditionSize = 510;
struct FILENAMES {
  int32_t fileSet;       // index into Installer::fileSets
  const char* dest;      // Dest, not yet expanded; empty: a package item only
  const char* alias;     // the key of the file in the package
  const char* fileName;  // the base name it is written under
  uint64_t size;         // unpacked size from the package table
  int32_t packageIndex;  // index into the package's file table, -1 if absent
  unsigned char md5[16];
  unsigned char expandVarsInFile;
  unsigned char executable;
  unsigned char okIfMissing;
  unsigned char stripExeExt;
  unsigned char backupExisting;
  unsigned char symlink;  // the packed file holds the target of a link made in its place
  const char* condition;
};

// A pair of paths: a file and its temporary copy.
struct COPIEDFILE {
  QUtils::CharString original;
  QUtils::CharString temporary;
};

#endif  // QLUX_ENGINE_RECORDS_H_
