// A loaded package: the installer's files, unpacked into memory, with a
// table that finds a file by its key.
//
// openPackage() takes the package from `offset` to the end of the named file
// (checksum record and any certificate table included, which are ignored),
// checks the package header and lists the file records. The file stays open
// until the Package goes or is opened again, and the data is read out of it
// when it is asked for: a solid block is inflated stripe by stripe through a
// StripeReader, which holds only a few stripes in memory and inflates ahead
// on worker threads; a package that isn't solid is read record by record.
// Loading reads the record index that the builder stores beside the block
// (record_index.h); a block without one is inflated once to list its
// records, which also refuses a damaged block then, with its code. With flag
// bit 0 the file is instead an action log, which is only opened for reading.
//
// A package larger than one solid block holds is a block table and several
// blocks (block_table.h), possibly with package files beside the named
// file. Those are opened and proved against the digests in the table before
// anything else is read: a missing or damaged one fails the load, and
// problemFile() names it.
//
// A file record is a 608-byte header (see format.h) followed by the data: in
// a solid package the plain bytes, otherwise a zlib stream of its own. A
// COMPFILEINFO's recordOffset counts from the start of the unpacked record
// stream of a solid package, and from the package header otherwise. A file
// too large for one record is stored in several with one key, which the
// table joins into one entry. Keys are compared byte by byte,
// case-sensitively; of two records with one key the later one wins.
// viewFile() hands out a file's bytes where they lie in an inflated stripe,
// without a copy; every extraction makes a new copy with a NUL behind the
// data, so that text can be parsed as it comes. A PackageFileReader hands
// out a file of any size front to back, a stripe's share at a time.
//
// Thread rules: one thread uses a Package; its workers are its own.
#ifndef QLUX_PACKAGE_PACKAGE_H_
#define QLUX_PACKAGE_PACKAGE_H_

#include <cstdint>
#include <cstdio>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/console.h"
#include "foundation/lists.h"
#include "package/block_table.h"
#include "package/package_file.h"
#include "package/stripe_reader.h"

// One entry of the file table: where the record starts (see above), then
// the fields of the record's header. `name` and `key` are always terminated.
// A file stored in several records has the first one's header here; `size`
// is the whole file's length, and its records' data are the package's
// pieces from `firstPiece` on.
struct COMPFILEINFO {
  uint64_t recordOffset;
  uint32_t magic;
  uint32_t fileSize;
  uint32_t storedSize;
  uint32_t flags;
  unsigned char md5[16];
  char name[300];
  char key[276];
  uint64_t size;
  int32_t firstPiece;
  int32_t pieceCount;
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
// A package file beside the named file is missing, or isn't what the block
// table says (its length or its digest differs).
const int kPackagePartMissing = -30;
const int kPackagePartDamaged = -31;

// openPackage() flags.
const int kRunFlagActionLog = 1;  // the file is an action log, not a package
const int kRunFlagBackup = 2;     // a backup of replaced files is wanted

// A file's bytes as the package holds them, for as long as the view lives:
// either where they lie in an inflated stripe, which stays pinned, or a copy
// for a file that spans stripes (assembled once) or that had to be inflated
// on its own. A view must go before its Package.
class PackageFileView {
 public:
  PackageFileView() : reader(nullptr), pinned(-1), bytes(nullptr), length(0) {}
  PackageFileView(const PackageFileView&) = delete;
  PackageFileView& operator=(const PackageFileView&) = delete;
  ~PackageFileView() { release(); }

  const unsigned char* data() const { return bytes; }
  uint32_t size() const { return length; }
  // Lets go of the bytes; the view is then empty.
  void release();

 private:
  friend class Package;
  StripeReader* reader;
  int pinned;  // the stripe held, or -1
  QUtils::RefArray<unsigned char> copy;
  const unsigned char* bytes;
  uint32_t length;
};

class Package;

// Reads one file of the package front to back, handing out its bytes where
// they lie in the inflated stripes: each piece stays valid until the next
// call of next(), or until the reader goes, which must be before its
// Package. Memory stays what the stripe reader holds, whatever the file's
// size.
class PackageFileReader {
 public:
  PackageFileReader() : package(nullptr), entry(nullptr), pinned(-1), piece(0), position(0), handedOut(0) {}
  PackageFileReader(const PackageFileReader&) = delete;
  PackageFileReader& operator=(const PackageFileReader&) = delete;
  ~PackageFileReader() { close(); }

  // Starts on file `index` of `package`, with the record's digest in
  // `outDigest` unless that is null. 0; -1 for no such file, or one whose
  // records don't stand in the blob as the table says.
  int open(Package* package, int index, unsigned char* outDigest);
  // The file's length.
  uint64_t size() const;
  // The next bytes of the file: 0 with `*data` and `*size` set, `*size` 0
  // once the file has been handed out whole; a negative code if a stripe
  // doesn't inflate.
  int next(const unsigned char** data, size_t* size);
  void close();

 private:
  Package* package;
  const COMPFILEINFO* entry;
  int pinned;        // the stripe held, or -1
  int piece;         // the piece being read, counted from the file's first
  uint64_t position; // in that piece
  uint64_t handedOut;  // of the file's bytes
  // A package that isn't solid: the file inflated whole, handed out once.
  QUtils::RefArray<unsigned char> copy;
};

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
  // The index of the last file with `key`, or -1. The first look-up after
  // the list grew or was cleared maps every key once, so that a package of
  // many files isn't searched end to end for each of them.
  int findFile(const char* key) const;
  // The data of file `index` in `view`, which lets go of what it held
  // before, and the record's digest in `outDigest` unless that is null.
  // Gives 0; -1 on failure, with the view empty.
  int viewFile(int index, PackageFileView* view, unsigned char* outDigest);
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
  // Told while the package waits for a stripe, so that a window stays
  // served; null for none.
  void setWaiter(StripeWaiter* waiter) { stripeWaiter = waiter; }
  // True while a package is loaded.
  bool isLoaded() const { return packageFile.isOpen(); }
  // The solid block's reader while one is loaded, else null. For tests and
  // benchmarks.
  StripeReader* getStripeReader() { return stripes.get(); }
  // True if the records were listed from the builder's record index.
  bool listedFromIndex() const { return recordsIndexed; }
  // The solid blocks of the package, 1 for most; 0 when it isn't solid.
  int blockCount() const { return blocks; }
  // After kPackagePartMissing or kPackagePartDamaged: the package file's
  // path. Otherwise empty.
  const char* problemFile() const { return problem.c_str(); }

  int packageIsSolid;
  QUtils::PList<COMPFILEINFO> files;
  int runFlags;
  FILE* actionLogFile;
  QUtils::PConsole* logConsole;

 private:
  void log(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void freePackageData();
  // findFile's map: each key to its last file, for the first keysMapped
  // files (-1 before the first look-up). The list is only ever added to or
  // cleared, so a count that changed is all that makes the map old.
  mutable std::unordered_map<std::string, int> keyMap;
  mutable int keysMapped = -1;
  int loadPackage(const char* fileName, uint32_t offset);
  // Loads the blocks that a block table lists, and opens and proves the
  // package files beside `fileName`.
  int loadBlocks(const char* fileName);
  int openPackageFiles(const char* fileName, const BlockTable& table);
  // Lists the records of a single block from the record index the builder
  // stored beside it. 0; -1 if there is none or it doesn't fit the block,
  // which is no error.
  int readIndexedRecords(int64_t blockOffset, int64_t blockSize);
  // Lists the records from the index stream at file position `start`. 0;
  // -1 if it doesn't chain through the blob as it must.
  int listFromIndex(int64_t start, uint32_t packedSize, uint32_t count);
  // Lists the records of a solid package, inflating every stripe on the way.
  int readSolidRecords();
  // Lists the records of a package that isn't solid, from the file.
  int readPlainRecords();
  // Adds the record whose header is `header`, at `position`, if it is a
  // file record whose data ends by `limit`. Gives 1 for a file record, 0
  // for the end record, kPackageBadRecord otherwise; `*next` is where the
  // following record starts.
  int addRecord(const unsigned char* header, int64_t position, int64_t limit, int64_t* next);
  // Adds a file record to the table: a new entry, or one more piece of the
  // entry whose last record said that this one continues it. False for a
  // record that breaks off a continued file.
  bool listRecord(const unsigned char* header, int64_t position);
  // Whether the blob holds, for every record of `entry`, the header that
  // the index gave: the first as the entry has it, each later one with the
  // same name, key and digest and the length of its piece.
  bool headersMatch(const COMPFILEINFO& entry);

  friend class PackageFileReader;
  // Where a record's data lies in the blob, and its length.
  struct Piece {
    int64_t data;
    uint32_t size;
    bool continued;  // its record said that the next one continues the file
  };

  PackageFile packageFile;
  std::unique_ptr<StripeReader> stripes;  // a solid package's
  int64_t packageOffset;  // where the package header lies in the file
  int64_t packageLength;  // from there to the file's end
  // The records were listed from the record index, so each header is
  // compared with the blob's before its file is handed out.
  bool recordsIndexed;
  StripeWaiter* stripeWaiter;
  std::vector<Piece> pieces;
  int blocks;
  std::string problem;
};

#endif  // QLUX_PACKAGE_PACKAGE_H_
