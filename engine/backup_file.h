// BackupFile: a file of saved copies of other files, so that they can be
// put back. An installation saves each file it overwrites; a new
// installation that removes an older one saves all of the older one's
// files until it has succeeded.
//
// Layout, little-endian, no padding: the magic text with its NUL, then file
// records, then an end record (the bytes 01 00 00). One record: a u16 name
// size, the name field of that size, a u64 content size, a u32 check sum,
// and the content. The name field is the path with its NUL, and behind it
// may come what the file was, as a text with a NUL of its own: "L" for a
// symbolic link, whose content is then the text the link holds, or "M" and
// the octal permission bits of a regular file ("M755"). A reader that looks
// at the path alone sees a plain record. A record's check sum tells
// restore() which state of the file on disk may be overwritten: a file
// whose check sum differs was changed by somebody and keeps its changes.
// The check sum of a link is that of the text it holds.
//
// Writing keeps the file valid after any failure: a record that can't be
// completed is cut off again, and the first failure blocks further adds.
// Reading stops at the first record that isn't whole; what was restored
// until then stays.
#ifndef QLUX_ENGINE_BACKUP_FILE_H_
#define QLUX_ENGINE_BACKUP_FILE_H_

#include <cstddef>
#include <cstdint>

#include "foundation/charstring.h"
#include "foundation/errors.h"
#include "foundation/file_stream.h"
#include "foundation/lists.h"

class InstallerUI;
namespace QUtils {
class PConsole;
}

// The check sum of a backup record, over data given in pieces of any size
// and in order: the data's length, XORed with each whole little-endian
// 32-bit word, and each byte of a last incomplete word XORed into the low
// byte.
class BackupCheckSum {
 public:
  // For data of `length` bytes in all.
  explicit BackupCheckSum(int64_t length) : sum(static_cast<uint32_t>(length)), length(length), offset(0) {}
  void add(const unsigned char* data, size_t size);
  uint32_t value() const { return sum; }

 private:
  // One byte at offset `at` of the data.
  void addByte(unsigned char byte, int64_t at, int64_t wholeWords);

  uint32_t sum;
  int64_t length;
  int64_t offset;  // bytes added so far
};

class BackupFile : public QUtils::PFileStream {
 public:
  // The states of backupMode.
  static const int kClosed = 0;
  static const int kRestoring = 1;
  static const int kWriting = 2;
  // The longest name size (path and NUL) a record may carry.
  static const int kMaxNameSize = 1559;
  // Content and check sums are moved in blocks of this many bytes.
  static const int kBlockSize = 32768;

  BackupFile();
  ~BackupFile() override;

  // Makes the file at `path` anew, unshared, and writes the magic. Does
  // nothing unless closed; a file that can't be made sets hasError, so
  // every add then fails.
  void openForWriting(const char* path);
  // Opens an existing backup for restore(). 0, or -1 if not closed, if the
  // file can't be opened (it is then closed again), or if it doesn't begin
  // with the magic.
  int openForRestore(const char* path);
  // Appends a record for the file at `path` (of at most maxLength - 1
  // bytes). With checkSumGiven false the check sum is computed from the
  // file. `error` is cleared on success and carries the reason otherwise.
  // A file that is itself a backup is passed over, with success, and
  // `outPassedOver` (may be null) tells so. A symbolic link is saved as a
  // link, never read through. With `outUnreadable` given, a file that can't
  // be opened is reported there, with an error, and the backup takes
  // further adds; without it, that add fails as any other does.
  // `outMode` (may be null) gets the permission bits of the file as opened
  // (PFileStream::permissionBits), -1 for a link or a file not opened.
  void addFile(QUtils::ErrorChain& error, const char* path, int maxLength, uint32_t checkSum,
               bool checkSumGiven, bool* outPassedOver = nullptr, bool* outUnreadable = nullptr,
               int* outMode = nullptr);
  // Restores every record of a backup opened with openForRestore. Each
  // record's file is written back if it is absent or its check sum is the
  // record's; otherwise it is left. A file is made anew with its saved
  // permission bits (a link standing at its name is replaced, never written
  // through), and a link as a link. With `allowed` (may be null), only the
  // records whose path it holds are written back; the others are reported
  // as refused and passed over. A file that can't be written is
  // reported as failed and passed over. `console` gets a line per record and
  // `ui` (may be null) a file line and the progress. `whole` (may be null)
  // receives the name of every record that was read whole, whatever became
  // of its file. A record cut short is reported by its name when the name
  // itself is whole. 0 when the end record was reached, -1 when the backup
  // isn't open for restoring or a record isn't whole.
  int restore(QUtils::PConsole* console, InstallerUI* ui, QUtils::Table<QUtils::CharString>* whole = nullptr,
              const QUtils::Table<QUtils::CharString>* allowed = nullptr);
  // Appends to a backup being written the whole records of the backup at
  // `fromPath` whose names `names` holds, as they are. Gives the number
  // copied, or -1 when that backup can't be read or a copy failed (a record
  // that failed is cut off again, as addFile does).
  int copyRecords(const char* fromPath, const QUtils::Table<QUtils::CharString>& names);
  // Ends a backup being written with the end record, closes, and resets
  // backupMode and hasError. 0, or the stream's result.
  int close() override;

  // True if the file at `path` begins with the magic text.
  static bool isBackupFile(const char* path);
  // The check sum of a file's content: its length, XORed with each whole
  // little-endian 32-bit word, and each byte of a last incomplete word
  // XORed into the low byte. 0 for an empty file or one that can't be read.
  // A symbolic link's is that of the text it holds.
  static uint32_t computeCheckSum(const char* path);
  // The same over data in memory.
  static uint32_t checkSumOf(const unsigned char* data, uint32_t size);

  int32_t backupMode;  // kClosed, kRestoring or kWriting
  int32_t hasError;    // set by the first failure while writing

 private:
  // Sets `error` to `message`, marks the backup failed and cuts the file
  // back to `recordStart`, where the next record (or the end record) goes.
  void failAdd(QUtils::ErrorChain& error, int64_t recordStart, int32_t code, const char* format, ...)
      __attribute__((format(printf, 5, 6)));
  // Writes the content of the record at the read position (`size` bytes)
  // to a new file at `name` with the permission bits `mode` (-1: the
  // file's own), or makes `name` a link holding that text. True if done.
  bool restoreContent(const char* name, int64_t size, int mode, bool link);
  // The parts of addFile's record. writeNameField writes the name field
  // (the path, cut at `maxLength`, with its attributes: a link's mark or
  // the permission bits `mode`, -1 for none) from `field`, a buffer of 2 + kMaxNameSize bytes,
  // whose name then starts at `field` + 2. writeSizeAndSum writes the
  // content's size and check sum; writeContent the content, the file's
  // (`source`, from its start) or the link's text. Each gives false after failAdd.
  bool writeNameField(QUtils::ErrorChain& error, const char* path, int maxLength, bool link, int mode,
                      int64_t recordStart, unsigned char* field);
  bool writeSizeAndSum(QUtils::ErrorChain& error, int64_t size, uint32_t checkSum, int64_t recordStart);
  void writeContent(QUtils::ErrorChain& error, QUtils::PFileStream* source, const char* linkText, int64_t size,
                    int64_t recordStart);
  // Whether the open `file` begins with the magic text; it is read from
  // its start again afterwards.
  static bool beginsAsBackup(QUtils::PFileStream* file);
  // The check sum of the first `length` bytes of the open `file`, read
  // from where it stands.
  static uint32_t checkSumOfStream(QUtils::PFileStream* file, int64_t length);
  // Reads exactly `size` bytes; false if fewer arrived.
  bool readAll(void* buffer, uint32_t size);
  bool writeAll(const void* buffer, uint32_t size);
};

#endif  // QLUX_ENGINE_BACKUP_FILE_H_
