// Journal: a small file that describes a run's work on the machine while
// that work is under way, so that the next run of any installer or
// uninstaller of the product can tell that a process ended in the middle of
// it, and undo it (an installation, a revert's undo of one) or finish it (an
// uninstallation). It names the temporary files that the work writes or
// keeps (the action log being written, the backup of replaced files, copies
// of an installed log, backup and template that the work is about to
// delete, the backup of an older installation that was removed), and the
// stage that the work has reached.
//
// One journal per product, in the platform's journal directory, named from
// the product name (journalFileName). The file is text, LF line ends: the
// format line "qlux-journal 1", then NAME=value lines, then "END". It is
// written beside its place and renamed over it, so that a reader finds the
// old journal or the new one, never a mixture. A file without the format
// line, without "END" or with an unknown KIND or STAGE is damaged, and is
// refused whole.
//
// The backup copies of this unit serve the undo: a backup cut off in the
// middle of a record (the writer was killed) is copied up to its last whole
// record and given its end record, so that restore() reads it to its end.
#ifndef QLUX_ENGINE_JOURNAL_H_
#define QLUX_ENGINE_JOURNAL_H_

#include <string>
#include <utility>
#include <vector>

struct Journal {
  enum Kind { kNoKind, kInstall, kUninstall, kRevert };
  // kPreparing: copies are being made, nothing on the machine has changed.
  // kWorking: the machine is being changed. kPlacing: the installation's
  // log is being moved to its final path; it is there once the temporary
  // log is gone. kDone: the work has ended; only temporary files are left.
  enum Stage { kPreparing, kWorking, kPlacing, kDone };

  Kind kind = kNoKind;
  Stage stage = kPreparing;
  long pid = 0;                   // the process doing the work
  std::string product;            // the product's name
  std::string log;                // the action log that describes the work
  std::string backup;             // the backup that goes with that log
  std::string templateCopy;       // the template that the undo reads; may be empty
  std::string finalLog;           // the log's path in the installation
  std::string finalBackup;        // the backup's path in the installation
  std::string oldBackup;          // an older installation's files, saved before its removal
  std::string oldDirList;         // that installation's directories
  std::vector<std::pair<std::string, std::string>> copied;  // (original, temporary) backup files of it
  std::vector<std::string> temporaries;                     // further temporary files of the run
  // Files that an entry with BackupExisting wrote where no file stood: the
  // log marks them OVER, which an uninstallation with its backup restored
  // leaves standing, but an undo of the run must delete them.
  std::vector<std::string> created;

  std::string file;  // where the journal is kept; not part of its text
};

// The first line of every journal.
extern const char kJournalFormat[];

// The journal's text, and back. parseJournal gives false for a damaged
// text, and `out` is then unchanged.
std::string formatJournal(const Journal& journal);
bool parseJournal(const std::string& text, Journal* out);

// Writes the journal to `path` beside it and renames it into place. False
// if it couldn't be written; an older journal at `path` then stays.
bool writeJournal(const char* path, const Journal& journal);
// kJournalRead and `out` filled (its `file` is `path`), kJournalMissing
// when there is no file, kJournalDamaged when it can't be used.
const int kJournalRead = 0;
const int kJournalMissing = -1;
const int kJournalDamaged = -2;
int readJournal(const char* path, Journal* out);

// The journal's file name for a product: ASCII letters, digits, '-' and '_'
// are kept, every other byte becomes '_', and ".journal" follows. An empty
// name gives "product.journal".
std::string journalFileName(const char* product);

// Copies the whole records of the backup `from` into a new backup `to`,
// ended by its end record. kPendingRecords keeps only the records that
// restore() would write now: the file is absent, or (with content) has the
// record's check sum. kForceRecords keeps every record and gives it the
// check sum of the file that stands there now, so that restore() writes
// every saved file back over whatever is there. The number of records
// copied; kBackupNotRead if `from` isn't a backup (`to` is then a backup
// with no records), kBackupCopyFailed if `to` couldn't be written whole.
enum BackupCopyMode { kPendingRecords, kForceRecords };
const int kBackupNotRead = -1;
const int kBackupCopyFailed = -2;
int copyBackupRecords(const char* from, const char* to, BackupCopyMode mode);

#endif  // QLUX_ENGINE_JOURNAL_H_
