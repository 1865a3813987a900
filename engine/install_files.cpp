// The file stage of an installation: every file entry of the template is
// written out of the package to its expanded destination, the directories it
// needs are made, a file it replaces is saved into the backup file when its
// entry asks for that, and each step is recorded in the action log. The
// stage never stops at an error: errors are gathered in errorList, every
// entry and every later stage still runs, and the result tells the template
// whether to revert.
#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "engine/action_texts.h"
#include "engine/backup_file.h"
#include "engine/directory_chain.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/errors.h"
#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/system_error.h"
#include "foundation/text.h"
#include "package/md5.h"

namespace {

// An existing file is read this much at a time to compare it with the
// package's: files of any size are compared in bounded memory.
const uint32_t kCompareChunk = 1 << 20;
// A write of more than this is cut into pieces: the stream counts in 32
// bits.
const size_t kLargestWrite = 0x40000000;
// Files with ExpandVarsInFile are expanded below this size, into a text of
// at most this many bytes with its NUL.
const uint32_t kExpandLimit = 8192;
// How long a running program that holds a target may take to end.
const int kRunningFileTimeoutMs = 2000;
// deleteRunningFile sleeps at most this long between two looks.
const int kMaxSleepMs = 50;

// The work messages of a file entry.
const actiontext::Verb kCreate = {"Create ", "FAILED to create "};
const actiontext::Verb kOverwrite = {"Overwrite ", "FAILED to overwrite "};

// Where the system's separator is '/', a '\' that a template wrote becomes
// one too, so that the log and the messages name the path the system uses.
void useSystemSeparators(char* path) {
  if (QUtils::kPathSeparator != '/') return;
  for (char* p = path; *p; p++) {
    if (*p == '\\') *p = '/';
  }
}

// What stands at the target before it is written.
struct TargetState {
  bool exists = false;
  bool same = false;
  // Something other than a file of its own: a symbolic link, a FIFO, a
  // device. It is replaced by the file, and never opened or written through.
  bool foreign = false;
};

// Whether what stands at `target` is no file of its own (see TargetState).
bool isForeignNode(const char* target) {
  return QUtils::isLink(target) ||
         (!QUtils::isDirectory(target) && QUtils::checkFileTrust(target) == QUtils::kNotAFile);
}

// A target exists if it opens for reading; it is the same if it has the
// package file's length, reads whole, and has the package record's digest.
// It is read a piece at a time, so a file of any size is compared.
TargetState lookAtTarget(const char* target, const unsigned char* digest, uint64_t packedSize) {
  TargetState state;
  if (isForeignNode(target)) {
    state.exists = state.foreign = true;
    return state;
  }
  QUtils::PFileStream file;
  if (file.openFile(target, QUtils::kGenericRead, QUtils::kShareRead | QUtils::kShareWrite,
                    QUtils::kModeMustExist | QUtils::kModeSequential) != 0)
    return state;
  state.exists = true;
  int64_t size = file.size();
  // Another length can't give the same digest: nothing need be read.
  if (size >= 0 && static_cast<uint64_t>(size) == packedSize) {
    std::vector<unsigned char> chunk(kCompareChunk);
    MD5 md5;
    int64_t done = 0;
    while (done < size) {
      uint32_t want = size - done < kCompareChunk ? static_cast<uint32_t>(size - done) : kCompareChunk;
      uint32_t got = 0;
      if (file.read(chunk.data(), want, &got) != 0 || got != want) break;
      md5.update(chunk.data(), got);
      done += got;
    }
    unsigned char oldDigest[kMD5DigestSize];
    md5.finish(oldDigest);
    state.same = done == size && std::memcmp(oldDigest, digest, kMD5DigestSize) == 0;
  }
  file.close();
  return state;
}

// Whether an existing file opens for writing, without changing it.
bool canOpenForWriting(const char* target) {
  QUtils::PFileStream file;
  if (file.openFile(target, QUtils::kGenericWrite, 0, QUtils::kModeMustExist) != 0) return false;
  file.close();
  return true;
}

// Writes `size` bytes in pieces the system takes. 0, or the system's error
// number (-1 when a write fell short without one).
int writeAll(QUtils::PFileStream* file, const unsigned char* data, size_t size) {
  while (size > 0) {
    uint32_t piece = static_cast<uint32_t>(size < kLargestWrite ? size : kLargestWrite);
    uint32_t written = 0;
    int error = file->write(data, piece, &written);
    if (error != 0) return error;
    if (written != piece) return -1;
    data += piece;
    size -= piece;
  }
  return 0;
}

// Writes the content of a target open in `file`: `text` when it isn't
// null, otherwise the package file that `reader` reads, as its bytes come;
// then closes it. False if a write fell short or the close failed;
// `outError` gets the system's error number (-1 when the system gave none;
// 0 when the package couldn't be read).
bool writeContent(QUtils::PFileStream* file, const char* text, PackageFileReader* reader, int* outError) {
  bool ok = true;
  if (text) {
    *outError = writeAll(file, reinterpret_cast<const unsigned char*>(text), std::strlen(text));
    ok = *outError == 0;
  } else {
    for (;;) {
      const unsigned char* data = nullptr;
      size_t size = 0;
      if (reader->next(&data, &size) != 0) {
        ok = false;
        break;
      }
      if (size == 0) break;
      *outError = writeAll(file, data, size);
      if (*outError != 0) {
        ok = false;
        break;
      }
    }
  }
  int closed = file->close();
  if (closed != 0 && ok) *outError = closed;
  if (closed != 0) ok = false;
  return ok;
}

// Makes the target anew, in place of whatever stood there (a link is
// replaced, never written through), and writes its content (writeContent).
// False if it couldn't be made or written; `outCreated` says whether it was
// made, and `outError` gets the system's error number of a failure to make
// or write it.
bool writeTarget(const char* target, const char* text, PackageFileReader* reader, bool* outCreated, int* outError) {
  QUtils::PFileStream file;
  *outCreated = false;
  *outError = file.openFile(target, QUtils::kGenericWrite, 0, QUtils::kModeCreateAlways);
  if (*outError != 0) return false;
  *outCreated = true;
  return writeContent(&file, text, reader, outError);
}

// The file stage over one entry and its bookkeeping. While it waits for the
// package to inflate a stripe, the front end is served.
class FileStage : public StripeWaiter {
 public:
  FileStage(Installer* engine, InstallerUI* ui, BackupFile* backup)
      : errors(0), engine(engine), ui(ui), backup(backup) {}

  void waiting() override { pumpQuietly(); }

  // The file step of entry `index` of `count`.
  void installEntry(int index, int count);
  // The same for an entry whose target has nothing standing at its name,
  // the usual case: one exclusive open in the entry's open directory. The
  // log line comes first, as for every file. False, with the line written,
  // when something stands at the name or the open fails otherwise: the
  // entry then goes the long way (installExisting).
  bool installNew(const FILENAMES& entry, QUtils::PDirectory* folder, const char* target, PackageFileReader* data,
                  int index, int count);
  // The long way: what stands at the target is looked at, saved with
  // BackupExisting, and replaced unless it is the same. `logged` says that
  // installNew wrote the entry's log line already.
  void installExisting(const FILENAMES& entry, const char* target, PackageFileReader* data, const unsigned char* digest,
                       int packed, bool logged, int index, int count);
  // The same for an entry whose packed file holds a link's target: the link
  // is made in place of a file. What stands there already is replaced
  // (saved first with BackupExisting), unless it is a link to that target.
  void installLink(const FILENAMES& entry, const char* target, PackageFileReader* data, int packed, int index,
                   int count);

  int errors;

 private:
  // Line and error for a step that failed or succeeded, with the flush
  // every 32nd entry.
  // `error` is the system's error number of a failure, 0 when unknown.
  void report(const actiontext::Verb& verb, bool failed, const char* target, int index, int error = 0);
  void fileLine(const char* text, bool flush) {
    if (ui) ui->addFileLine(text, flush);
  }
  void pumpQuietly() {
    if (ui) ui->pumpEventsQuietly();
  }
  // Saves the file at `target` into the backup, with the check sum of the
  // package file `packed` that replaces it.
  void saveOldFile(const char* target, int packed);
  // The steps of installEntry. Whether the entry and its file set apply.
  bool entryApplies(const FILENAMES& entry);
  // Makes (and logs) the entry's directory, expanded, into `directory`,
  // which ends in a separator. The directory held open, or null.
  QUtils::PDirectory* makeEntryDirectory(const FILENAMES& entry, char* directory, int size);
  // Opens the entry's packed file; false (an error unless OkIfMissing) if
  // the package doesn't hold it.
  bool openPackedFile(const FILENAMES& entry, PackageFileReader* data, unsigned char* digest, int* packed);
  // Tells the journal of a file that BackupExisting writes where none stood.
  void noteNewFile(const FILENAMES& entry, const char* target, const TargetState& state);
  void readExpanded(PackageFileReader* data, char* expanded);
  // Writes the target, freeing it from a running program first where it
  // must. False if it couldn't be written; `error` as writeTarget gives it.
  bool writeEntry(const char* target, const TargetState& state, const char* text, PackageFileReader* data,
                  int* error);
  // The end of an entry's step: the platform's treatment of a written file,
  // the progress and the entry's line.
  void finishEntry(const FILENAMES& entry, const char* target, bool failed, bool replacing, int error, int index,
                   int count);
  // Whether the entry's file is expanded (ExpandVarsInFile) as it is written.
  static bool expands(const FILENAMES& entry, uint64_t size) { return entry.expandVarsInFile && size < kExpandLimit; }

  Installer* engine;
  InstallerUI* ui;
  BackupFile* backup;
  // The directories that the entries go into, held open: the entries of
  // one folder don't walk its path again.
  DirectoryChain directories;
};

void FileStage::report(const actiontext::Verb& verb, bool failed, const char* target, int index, int error) {
  char message[QUtils::kMaxPath + 300];
  actiontext::compose(message, sizeof message, verb, !failed, target, error);
  if (failed) {
    errors++;
    engine->addError(message);
  }
  fileLine(message, index % 32 == 0);
}

void FileStage::saveOldFile(const char* target, int packed) {
  // The new data is read once for its check sum before the old file is
  // saved, and again when it is written: the backup record, which goes
  // first, must carry it.
  PackageFileReader reader;
  uint32_t sum = 0;
  if (engine->readFile(packed, &reader, nullptr) == 0) {
    BackupCheckSum check(static_cast<int64_t>(reader.size()));
    const unsigned char* data = nullptr;
    size_t size = 0;
    while (reader.next(&data, &size) == 0 && size > 0) check.add(data, size);
    sum = check.value();
  }
  reader.close();
  pumpQuietly();
  QUtils::ErrorChain error;
  backup->addFile(error, target, QUtils::kMaxPath, sum, true);
  char message[QUtils::kMaxPath + 1100];
  if (error.isEmpty()) {
    QUtils::boundedFormat(message, sizeof message, "Back up %s", target);
  } else {
    char reason[1024];
    error.toText(reason, sizeof reason);
    QUtils::boundedFormat(message, sizeof message, "FAILED to back up %s: %s", target, reason);
    errors++;
    engine->addError(message);
  }
  // The file is overwritten either way: a failed backup only costs the
  // chance to restore it.
  fileLine(message, false);
}

bool FileStage::entryApplies(const FILENAMES& entry) {
  if (!entry.dest[0]) return false;  // a package item only, such as a picture
  if (entry.condition[0] && !engine->evaluateCondition(entry.condition)) return false;
  if (entry.fileSet >= 0 && entry.fileSet < engine->fileSets.getCount()) {
    const char* setCondition = engine->fileSets[entry.fileSet].condition;
    if (setCondition[0] && !engine->evaluateCondition(setCondition)) return false;
  }
  return true;
}

QUtils::PDirectory* FileStage::makeEntryDirectory(const FILENAMES& entry, char* directory, int size) {
  if (engine->expandVariables(entry.dest, directory, size) != 0) errors++;
  char separator[2] = {QUtils::kPathSeparator, 0};
  QUtils::appendText(directory, separator, size);
  useSystemSeparators(directory);
  QUtils::collapseSeparators(directory);
  int created = 0;
  QUtils::PDirectory* folder = nullptr;
  if (directories.enter(directory, &created, &folder) != 0) errors++;
  // Levels made before a failure are logged as well: the uninstaller removes
  // them.
  engine->logDirAction(created, directory);
  return folder;
}

bool FileStage::openPackedFile(const FILENAMES& entry, PackageFileReader* data, unsigned char* digest, int* packed) {
  *packed = engine->findFile(entry.alias);
  if (*packed >= 0 && engine->readFile(*packed, data, digest) == 0) return true;
  if (!entry.okIfMissing) {
    engine->log("ERROR: \"%s\" is not in the package", entry.alias);
    errors++;
  }
  return false;
}

void FileStage::noteNewFile(const FILENAMES& entry, const char* target, const TargetState& state) {
  if (state.exists || !entry.backupExisting || engine->journal.kind != Journal::kInstall) return;
  // Logged OVER, the file would outlive an undo; the journal says that
  // nothing stood there.
  engine->journal.created.push_back(target);
  // Ignoring the result on purpose: saveJournal logs its own failure.
  engine->saveJournal(Journal::kWorking);
}

// The file is small: read whole, with a NUL behind it, and expanded into
// `expanded` (kExpandLimit bytes).
void FileStage::readExpanded(PackageFileReader* data, char* expanded) {
  char raw[kExpandLimit];
  const unsigned char* bytes = nullptr;
  size_t piece = 0;
  size_t length = 0;
  while (data->next(&bytes, &piece) == 0 && piece > 0 && length + piece < sizeof raw) {
    std::memcpy(raw + length, bytes, piece);
    length += piece;
  }
  raw[length] = 0;
  engine->expandVariables(raw, expanded, kExpandLimit);
}

bool FileStage::writeEntry(const char* target, const TargetState& state, const char* text, PackageFileReader* data,
                           int* error) {
  // A file already there that can't be opened for writing (a running
  // program, a locked file) is asked to go first; a link or another node
  // that isn't a file of its own is no program to free. POSIX would let
  // the new file take the name of a running program's without asking:
  // it is asked all the same, so that the log says the program goes on
  // with its old version. Nothing was read from the package while the
  // target wouldn't open.
  bool created = false;
  bool asked = false;
  if (state.exists && !state.foreign && !canOpenForWriting(target)) {
    asked = true;
    // Ignoring the result on purpose: the write below tells whether the
    // name could be taken.
    (void)engine->deleteRunningFile(ui, target, kRunningFileTimeoutMs);
  }
  bool ok = writeTarget(target, text, data, &created, error);
  if (!created && state.exists && !state.foreign && !asked &&
      engine->deleteRunningFile(ui, target, kRunningFileTimeoutMs))
    ok = writeTarget(target, text, data, &created, error);
  if (!created) engine->log("ERROR: \"%s\" can't be written", target);
  return ok;
}

void FileStage::installEntry(int index, int count) {
  const FILENAMES& entry = engine->fileNames[index];
  if (!entryApplies(entry)) return;
  // The directory, with a closing separator so that all its levels are
  // made.
  char directory[QUtils::kMaxPath];
  QUtils::PDirectory* folder = makeEntryDirectory(entry, directory, sizeof directory);
  char name[QUtils::kMaxPath];
  engine->getInstalledFileName(entry, name, sizeof name);
  char target[QUtils::kMaxPath];
  QUtils::boundedFormat(target, sizeof target, "%s%c%s", directory, QUtils::kPathSeparator, name);
  QUtils::collapseSeparators(target);
  if (ui) ui->setDestinationText(target);

  // A missing package file ends the step without a line: there is nothing
  // that could be undone. The data is read where the package holds it, as
  // the stripes inflate, whatever the file's size.
  int packed = -1;
  PackageFileReader data;
  unsigned char digest[kMD5DigestSize];
  if (!openPackedFile(entry, &data, digest, &packed)) return;
  if (entry.symlink) {
    installLink(entry, target, &data, packed, index, count);
    return;
  }
  // BackupExisting needs to know what stood there before anything is made:
  // the journal notes a new file before it exists.
  bool logged = false;
  if (folder && !entry.backupExisting) {
    if (installNew(entry, folder, target, &data, index, count)) return;
    logged = true;
  }
  installExisting(entry, target, &data, digest, packed, logged, index, count);
}

bool FileStage::installNew(const FILENAMES& entry, QUtils::PDirectory* folder, const char* target,
                           PackageFileReader* data, int index, int count) {
  // The line comes before the file exists, so that a run killed at any
  // point leaves no file of its own that the log doesn't name.
  engine->logFileAction(Installer::kLogCreate, target);
  pumpQuietly();
  char name[QUtils::kMaxPath];
  engine->getInstalledFileName(entry, name, sizeof name);
  QUtils::PFileStream file;
  if (file.createNewIn(*folder, name, 0, nullptr) != 0) return false;
  char expanded[kExpandLimit];
  const bool expand = expands(entry, data->size());
  if (expand) readExpanded(data, expanded);
  int error = 0;
  bool failed = !writeContent(&file, expand ? expanded : nullptr, data, &error);
  finishEntry(entry, target, failed, false, error, index, count);
  return true;
}

void FileStage::installExisting(const FILENAMES& entry, const char* target, PackageFileReader* data,
                                const unsigned char* digest, int packed, bool logged, int index, int count) {
  const uint64_t size = data->size();
  TargetState state = lookAtTarget(target, digest, size);
  bool replacing = state.exists && !state.same;
  if (replacing && entry.backupExisting) saveOldFile(target, packed);
  noteNewFile(entry, target, state);
  // The digest was taken of the data as packed, so an expanded file is
  // always written anew.
  const bool expand = expands(entry, size);
  bool writing = !state.same || expand;
  // The line comes before the write, and stands whether the write works or
  // not: a file that fails half way, or an older version that couldn't be
  // freed (a program still running), is still the product's, and the
  // uninstaller and a revert remove it.
  if (!logged) {
    engine->logFileAction(entry.backupExisting ? Installer::kLogOver : Installer::kLogCreate, target);
    pumpQuietly();
  }

  char expanded[kExpandLimit];
  if (expand) readExpanded(data, expanded);
  int error = 0;
  bool failed = writing && !writeEntry(target, state, expand ? expanded : nullptr, data, &error);
  finishEntry(entry, target, failed, replacing, error, index, count);
}

void FileStage::finishEntry(const FILENAMES& entry, const char* target, bool failed, bool replacing, int error,
                            int index, int count) {
  if (!failed) engine->onFileWritten(target, entry);
  if (ui) ui->setOverallProgress(static_cast<int>(std::ceil(static_cast<float>(index) / count * 100.0f)));
  report(replacing ? kOverwrite : kCreate, failed, target, index, error);
}

void FileStage::installLink(const FILENAMES& entry, const char* target, PackageFileReader* data, int packed,
                            int index, int count) {
  // The packed file holds the link's target, a path: short, and read whole.
  std::string linkTarget;
  const unsigned char* bytes = nullptr;
  size_t piece = 0;
  while (data->next(&bytes, &piece) == 0 && piece > 0 && linkTarget.size() < QUtils::kMaxPath)
    linkTarget.append(reinterpret_cast<const char*>(bytes), piece);
  if (linkTarget.empty() || linkTarget.size() != data->size()) {
    engine->log("ERROR: The link \"%s\" has no target in the package", target);
    report(kCreate, true, target, index);
    return;
  }
  char existing[QUtils::kMaxPath];
  bool exists = QUtils::fileExists(target);
  bool same = QUtils::readSymbolicLink(target, existing, sizeof existing) && linkTarget == existing;
  bool replacing = exists && !same;
  // A folder is never replaced by a link: what it holds isn't the entry's.
  if (replacing && QUtils::isDirectory(target) && !QUtils::isLink(target)) {
    engine->log("ERROR: \"%s\" is a folder; the link is not made", target);
    report(kCreate, true, target, index);
    return;
  }
  if (replacing && entry.backupExisting && !QUtils::isLink(target)) saveOldFile(target, packed);
  if (!exists && entry.backupExisting && engine->journal.kind == Journal::kInstall) {
    // As for a file: logged OVER, the link would outlive an undo.
    engine->journal.created.push_back(target);
    engine->saveJournal(Journal::kWorking);
  }
  engine->logFileAction(entry.backupExisting ? Installer::kLogOver : Installer::kLogCreate, target);
  pumpQuietly();
  bool failed = false;
  if (!same) {
    // Deleting a link removes the link, never what it leads to.
    if (exists) QUtils::deleteFile(target);
    int error = QUtils::makeSymbolicLink(linkTarget.c_str(), target);
    if (error != 0) {
      engine->log("ERROR: The link \"%s\" could not be made (error %d)", target, error);
      failed = true;
    }
  }
  if (ui) ui->setOverallProgress(static_cast<int>(std::ceil(static_cast<float>(index) / count * 100.0f)));
  report(replacing ? kOverwrite : kCreate, failed, target, index);
}

// The stages that follow the files, each in turn whatever the ones before
// gave. True if one of them failed.
bool runLaterStages(Installer* engine, InstallerUI* ui) {
  QUtils::PConsole* log = &engine->actionLogWriter;
  bool failed = false;
  if (ui) ui->setDestinationText("Updating environment variables");
  failed |= engine->applyEnvironmentActions(log, ui) != 0;
  if (ui) ui->setDestinationText("Updating .ini files");
  failed |= engine->applyIniActions(log, ui) != 0;
  if (ui) ui->setDestinationText("Modifying files");
  failed |= engine->applyModifyFileActions(log, ui) != 0;
  if (ui) ui->setDestinationText("Creating shortcuts");
  failed |= engine->applyShortcutActions(log, ui) != 0;
  if (ui) ui->setDestinationText("Updating Firewall");
  failed |= engine->applyFirewallActions(log, ui) != 0;
  if (ui) ui->setDestinationText("Running additional installations");
  failed |= engine->runTagActions(ui, "AdditionalInstall") != 0;
  return failed;
}

// Finishes the action log and the backup once the work is done: the result
// log's line, and an older installation that the user kept taken over.
// The journal then stands at kPlacing. The number of errors it adds.
int closeActionLog(Installer& engine, InstallerUI* ui, const char* tempLog, BackupFile* backup, int errors) {
  int added = 0;
  // The result log will stand beside the action log when no -log named its
  // place, so the uninstaller removes it with the product.
  char resultLogPath[QUtils::kMaxPath];
  if (engine.resultLog && !engine.resultLog->getPath()[0] &&
      engine.getResultLogPath(resultLogPath, sizeof resultLogPath))
    engine.logFileAction(Installer::kLogCreate, resultLogPath);
  // An older installation that the user kept becomes part of this one,
  // once this one stands: a failed installation is reverted from its own
  // lines alone.
  bool standing = errors == 0 || (ui && ui->getIgnoreErrors() != 0);
  if (engine.olderInstallationKept && standing && engine.adoptOlderInstallation(tempLog, backup) != 0) added++;
  engine.actionLogWriter.close();
  // Ignoring the result on purpose: a backup that failed to write has
  // reported its records' failures as they came.
  backup->close();
  // The log is placed before the result is told: without it the product
  // could never be uninstalled, so a log that can't be placed fails the
  // run, ignoreErrors or not, and the template's revert undoes it. The
  // journal's stage kPlacing tells a later run that the installation
  // stands once the temporary log is gone; the backup's copy is then all
  // that is left to finish.
  // Ignoring the result on purpose: saveJournal logs its own failure.
  engine.saveJournal(Journal::kPlacing);
  return added;
}

// After the log was placed (or not): a log that couldn't be placed is
// reported, and keeps the journal at kWorking with the temporary log and
// backup, for the revert. Otherwise the backup goes to its place and the
// temporary files go. The number of errors it adds.
int keepBackup(Installer& engine, const char* tempLog, const char* tempBackup, bool logPlaced) {
  if (!logPlaced) {
    char logPath[QUtils::kMaxPath];
    if (engine.getInstallLogFile(logPath, sizeof logPath) != 0) logPath[0] = 0;
    char message[QUtils::kMaxPath + 128];
    QUtils::boundedFormat(message, sizeof message,
                          "FAILED to write the action log %s: without it the product could not be uninstalled",
                          logPath);
    engine.addError(message);
    if (!engine.journal.file.empty() && QUtils::fileExists(tempLog)) {
      engine.saveJournal(Journal::kWorking);
      return 0;
    }
  }
  int added = 0;
  char backupPath[QUtils::kMaxPath];
  if (engine.getInstallBackupFile(backupPath, sizeof backupPath) != 0 || !backupPath[0]) {
    engine.log("WARNING: The template names no backup file; the backup is not kept");
  } else if (!engine.copyFile(tempBackup, backupPath)) {
    engine.log("ERROR: Could not copy the backup file to \"%s\"", backupPath);
    added++;
  }
  engine.saveJournal(Journal::kDone);
  // Ignoring the results on purpose: these are this run's temporary files;
  // one left behind holds nothing that the product needs.
  QUtils::deleteFile(tempBackup);
  if (!engine.keptOlderLog.empty()) QUtils::deleteFile(engine.keptOlderLog.c_str());
  if (!engine.keptOlderBackup.empty()) QUtils::deleteFile(engine.keptOlderBackup.c_str());
  return added;
}

// Tells the user how the installation went, listing the errors when they
// fail it: errors that the user let through (ignoreErrors) don't, unless
// the log couldn't be placed.
void reportInstallation(Installer& engine, InstallerUI* ui, int errors, bool logPlaced) {
  if (ui) {
    ui->setDestinationText(errors ? "There were errors during the installation."
                                  : "The installation was successful.");
  }
  bool ignored = ui && ui->getIgnoreErrors() != 0 && logPlaced;
  if (errors && ignored) engine.outcome.errorsIgnored = true;
  if (!errors || ignored) return;
  engine.log("WARNING: An error occurred during installation");
  engine.setControlVariable(kCtlInstallError, "1");
  if (!ui) return;
  ui->addFileLine("Encountered errors during installation:", false);
  int listed = engine.errorList ? engine.errorList->getCount() : 0;
  for (int i = 0; i < listed; i++) ui->addFileLine((*engine.errorList)[i].getText(), i % 32 == 0);
  ui->addFileLine(nullptr, true);
}

}  // namespace

int Installer::installFiles(InstallerUI* ui) {
  // Nothing changes while a destination can't be used.
  if (checkDestinations(ui) != 0) {
    setControlVariable(kCtlInstallError, "1");
    return -1;
  }
  // A template without an "Uninstall" page still removes what stands in
  // the way; after that page it is the page's choice that counts.
  try {
    if (!olderInstallationsDone) removeOlderInstallations(ui);
  } catch (const QUtils::GenericError& e) {
    log("%s", e.getMessage());
  }

  char tempLog[QUtils::kMaxPath];
  char tempBackup[QUtils::kMaxPath];
  if (openActionLog(tempLog, sizeof tempLog, tempBackup, sizeof tempBackup) != 0) return -1;
  if (olderInstallationKept && !saveOlderInstallation()) olderInstallationKept = false;
  BackupFile backup;
  backup.openForWriting(tempBackup);

  if (ui) ui->beginProgress();
  FileStage stage(this, ui, &backup);
  package.setWaiter(&stage);
  int count = fileNames.getCount();
  for (int i = 0; i < count; i++) stage.installEntry(i, count);
  package.setWaiter(nullptr);
  // The files are written: the older installation's space can go now.
  if (olderFilesSpace) olderFilesSpace->release();
  int errors = stage.errors;
  if (runLaterStages(this, ui)) errors++;
  if (ui) {
    ui->setOverallProgress(100);
    ui->endProgress();
    ui->addFileLine(nullptr, true);
  }

  errors += closeActionLog(*this, ui, tempLog, &backup, errors);
  bool logPlaced = placeActionLog(tempLog) == 0;
  outcome.logPlaced = logPlaced;
  if (!logPlaced) errors++;
  errors += keepBackup(*this, tempLog, tempBackup, logPlaced);
  reportInstallation(*this, ui, errors, logPlaced);
  return errors ? -1 : 0;
}

void Installer::getInstalledFileName(const FILENAMES& entry, char* buffer, int size) {
  QUtils::copyText(buffer, entry.fileName, size);
}

bool Installer::deleteRunningFile(InstallerUI* ui, const char* path, int timeoutMs) {
  if (!path || !path[0]) return false;
  char name[200];
  QUtils::copyText(name, QUtils::baseName(path), sizeof name);
  if (!std::strstr(path, ".exe")) return false;
  // A recovery run from an installed uninstaller meets its own program in
  // the log: this program never ends itself to free its own file.
  char self[QUtils::kMaxPath];
  if (QUtils::getModulePath(self, sizeof self) && QUtils::isSamePath(self, path)) return false;

  if (isAppRunning(name, nullptr) && (terminateApp(name, false) || terminateApp(name, true))) {
    int sleepMs = timeoutMs / 20 < kMaxSleepMs ? timeoutMs / 20 : kMaxSleepMs;
    if (sleepMs < 1) sleepMs = 1;
    int waited = 0;
    while (isAppRunning(name, nullptr) && waited <= timeoutMs) {
      std::this_thread::sleep_for(std::chrono::milliseconds(sleepMs));
      if (ui) ui->pumpEvents();
      waited += sleepMs;
    }
  }
  return QUtils::deleteFile(path) == 0;
}
