// Uninstalling from the action log. The order matters: the backup comes back
// first, so that a replaced file is the old file again before its FILE line
// is read; every action line is then undone in the order it was written,
// registry keys after their values, and directories last, deepest first,
// because only an empty directory may go.
//
// Deleting is guarded: an empty path, a root or a relative path is never
// handed to the file layer, a symbolic link is removed as a link and never
// followed, and a directory is only ever removed when it is empty, level by
// level, no higher than the levels the log says the installation made.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/action_texts.h"
#include "engine/backup_file.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/errors.h"
#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/system_error.h"
#include "foundation/text.h"

namespace {

// The file list is flushed on every 32nd line.
const int kFlushEvery = 32;
// A key path of a REGKEY line, and its place name.
const int kKeyPathSize = 512;
const int kPlaceSize = 64;
// The key whose value ProgramFilesDir names the program files directory.
const char kCurrentVersionKey[] = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
// Header line 1 of the log, the template copy's path, as the uninstaller
// reads it.
const int kTemplatePathSize = 512;

// The work messages of an uninstallation.
const actiontext::Verb kDelete = {"Delete ", "FAILED to delete "};
const actiontext::Verb kMissing = {"Missing ", "Missing "};
const actiontext::Verb kRemove = {"Remove ", "FAILED to remove "};
const actiontext::Verb kKept = {"kept: ", "kept: "};
const actiontext::Verb kDeleteMatching = {"Delete: ", "FAILED to delete: "};
const actiontext::Verb kRestoreBackup = {"Restore ", "FAILED to restore all of the damaged backup "};
const actiontext::Verb kUndoDamagedLine = {"Undo ", "FAILED to undo a damaged line of the action log: "};
// Messages that can't fail go to no error list.
QUtils::Table<QUtils::CharString>* const kNoErrorList = nullptr;

struct LoggedDirectory {
  char path[QUtils::kMaxPath];
  int count;
};

struct LoggedKey {
  char place[kPlaceSize];
  char path[kKeyPathSize];
  uint16_t count;
};

// True for a path that deleting code may touch: not empty, not relative,
// and not a root such as "/", "\", "C:", "C:\" or "\\server\share".
bool isDeletablePath(const char* path) {
  if (!path || !path[0]) return false;
  size_t length = std::strlen(path);
  bool drive = length >= 2 && path[1] == ':' &&
               ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
  const char* rest = drive ? path + 2 : path;
  if (!QUtils::isSeparator(rest[0])) return false;
#ifdef _WIN32
  if (!drive && !QUtils::isSeparator(rest[1])) return false;  // "\name" hangs on the current drive
#endif
  // Something other than separators must follow the root.
  const char* p = rest;
  while (*p && QUtils::isSeparator(*p)) p++;
  if (!*p) return false;
  // "\\server\share" is a root as well: it needs a third part.
  if (!drive && QUtils::isSeparator(rest[1])) {
    int parts = 0;
    bool inPart = false;
    for (const char* q = rest; *q; q++) {
      if (QUtils::isSeparator(*q)) {
        inPart = false;
      } else if (!inPart) {
        inPart = true;
        parts++;
      }
    }
    if (parts < 3) return false;
  }
  // ".." could lead anywhere above the directory the log names.
  for (const char* q = rest; *q; q++) {
    if (q[0] == '.' && q[1] == '.' && QUtils::isSeparator(q[-1]) && (!q[2] || QUtils::isSeparator(q[2])))
      return false;
  }
  return true;
}

// Reads the next line of the log, up to and with its line feed. `damaged`
// tells a line that can't be trusted: one that doesn't end in a line feed
// (the last line of a log cut short), one longer than the buffer (the rest
// is passed over), or one that holds a NUL byte. Every line the installer
// writes ends in CR LF and holds text only, and the last field of a damaged
// line may name a path that the installation never wrote, so nothing of it
// is undone. Bytes are counted here, not taken from the text, so that a NUL
// can't make the line that follows look like part of this one.
bool readActionLine(FILE* file, char* line, int size, bool* damaged) {
  int length = 0;
  int c = EOF;
  bool nul = false;
  bool overlong = false;
  while ((c = std::getc(file)) != EOF) {
    if (length < size - 1)
      line[length++] = static_cast<char>(c);
    else
      overlong = true;
    if (c == 0) nul = true;
    if (c == '\n') break;
  }
  line[length] = 0;
  if (length == 0 && c == EOF) return false;
  *damaged = nul || overlong || c != '\n';
  return true;
}

// True if `names` holds `path`.
bool listed(const QUtils::Table<QUtils::CharString>& names, const char* path) {
  for (int i = 0; i < names.getCount(); i++) {
    if (QUtils::isSamePath(names[i].getText(), path)) return true;
  }
  return false;
}

// Whether `path` lies in (or is) one of the `folders`, compared as isSamePath
// compares.
bool isWithin(const char* path, const QUtils::Table<QUtils::CharString>* folders) {
  if (!folders) return false;
  for (int i = 0; i < folders->getCount(); i++) {
    const char* folder = (*folders)[i].getText();
    size_t length = std::strlen(folder);
    std::string head(path, std::min(length, std::strlen(path)));
    if (QUtils::isSamePath(head.c_str(), folder) && (!path[length] || QUtils::isSeparator(path[length]))) return true;
  }
  return false;
}

// Counts what stands in `directory`: the files (links included) in it and
// below it, and the folders right in it, leaving out the folders that were
// reported as kept already. Links are never followed.
void countEntries(const char* directory, const QUtils::Table<QUtils::CharString>* reported, int* files,
                  int* folders, bool top) {
  char pattern[QUtils::kMaxPath];
  if (QUtils::boundedFormat(pattern, sizeof pattern, "%s%c*", directory, QUtils::kPathSeparator) < 0) return;
  QUtils::FileList list;
  if (!list.search(pattern)) return;
  for (const char* name = list.next(); name; name = list.next()) {
    if (QUtils::isDirectory(name) && !QUtils::isLink(name)) {
      if (isWithin(name, reported)) continue;
      if (top) (*folders)++;
      countEntries(name, reported, files, folders, false);
    } else {
      (*files)++;
    }
  }
}

// A folder that stays because it holds what the installation didn't make:
// the user is told what stays, and it is no failure. False if the folder
// is empty after all, so that its removal failed for another reason.
bool reportKeptFolder(const char* path, InstallerUI* ui, QUtils::Table<QUtils::CharString>* kept) {
  int files = 0;
  int folders = 0;
  countEntries(path, kept, &files, &folders, true);
  QUtils::FileList list;
  char pattern[QUtils::kMaxPath];
  QUtils::boundedFormat(pattern, sizeof pattern, "%s%c*", path, QUtils::kPathSeparator);
  if (!list.search(pattern) || list.isEmpty()) return false;
  if (kept) kept->add(QUtils::CharString(path));
  if (files == 0 && folders == 0) return true;  // what it holds was reported in its own folders
  char what[QUtils::kMaxPath + 96];
  int count = files > 0 ? files : folders;
  const char* kind = files > 0 ? (count == 1 ? "file" : "files") : (count == 1 ? "folder" : "folders");
  QUtils::boundedFormat(what, sizeof what, "%d %s that the installation did not make, in %s", count, kind, path);
  actiontext::report(kNoErrorList, ui, kKept, true, what);
  return true;
}

// Removes one directory if it is empty, with the parents that it leaves
// empty, whoever made them, up to `ceiling` (may be null). A missing
// directory counts as removed; a symbolic link in its place is left alone
// and counts as failed. A directory that holds what the installation didn't
// make stays, and is reported as kept; that is no failure.
bool removeOneDirectory(const char* path, QUtils::PConsole* console, InstallerUI* ui,
                        QUtils::Table<QUtils::CharString>* errorList, QUtils::Table<QUtils::CharString>* kept,
                        const char* ceiling, QUtils::FileDeleter* deleter) {
  // The removal is tried first: it takes only an empty directory and never
  // follows a link, so the look at what stands there is needed only to word
  // a failure, and a product's many folders aren't each looked at twice.
  bool ok;
  if (!isDeletablePath(path) || QUtils::isSystemDirectory(path)) {
    ok = false;
  } else if (QUtils::removeEmptyParents(path, ceiling, deleter) > 0 || !QUtils::fileExists(path)) {
    ok = true;
  } else if (QUtils::isLink(path) || !QUtils::isDirectory(path)) {
    ok = false;
  } else {
    ok = false;
    if (reportKeptFolder(path, ui, kept)) {
      if (console) console->printf("Dir: %s (kept)", path);
      return true;
    }
  }
  if (console) console->printf("Dir: %s (%s)", path ? path : "", ok ? "ok" : "failed");
  if (ui) ui->pumpEventsQuietly();
  actiontext::report(errorList, ui, kRemove, ok, path);
  return ok;
}

// The paths of the FILE and SHORTCUT lines of an open log: what the
// installation wrote, and so what its backup may put back.
void loggedPaths(FILE* file, QUtils::Table<QUtils::CharString>* out) {
  if (!file || std::fseek(file, 0, SEEK_SET) != 0) return;
  char line[Installer::kLogLineSize];
  bool damaged = false;
  while (readActionLine(file, line, sizeof line, &damaged)) {
    if (damaged) continue;
    Installer::stripLogLine(line);
    if (!Installer::hasLogTag(line, Installer::kLogFile) && !Installer::hasLogTag(line, Installer::kLogShortcut))
      continue;
    const char* path = Installer::nextLogField(Installer::nextLogField(line));
    if (*path) out->add(QUtils::CharString(path));
  }
}

}  // namespace

int Installer::removeDirectoryLevels(const char* directory, int count, QUtils::PConsole* console, InstallerUI* ui,
                                     QUtils::Table<QUtils::CharString>* errorList,
                                     QUtils::Table<QUtils::CharString>* kept, const char* ceiling,
                                     QUtils::FileDeleter* deleter) {
  if (!directory || !directory[0] || count < 1) return 0;
  char path[QUtils::kMaxPath];
  QUtils::copyText(path, directory, sizeof path);
  int length = static_cast<int>(std::strlen(path));
  int failed = 0;
  // A path without a closing separator names its deepest level itself.
  if (!QUtils::isSeparator(path[length - 1])) {
    if (!removeOneDirectory(path, console, ui, errorList, kept, ceiling, deleter)) failed = 1;
    count--;
  }
  // Each separator met going up closes one more level.
  for (int i = length - 1; i >= 0 && count > 0; i--) {
    if (!QUtils::isSeparator(path[i])) continue;
    path[i] = 0;
    // Runs of separators close one level only.
    if (i > 0 && QUtils::isSeparator(path[i - 1])) continue;
    // The start of the path, or a directory of the system: nothing from
    // there up is the installation's, whatever the log says.
    if (!isDeletablePath(path) || QUtils::isSystemDirectory(path)) break;
    count--;
    if (!removeOneDirectory(path, console, ui, errorList, kept, ceiling, deleter)) failed = 1;
  }
  return failed;
}

int Installer::PrepareUninstall(InstallerUI* ui, const char* backupPath) {
  if (uninstallPrepared) return 0;
  uninstallPrepared = 1;
  if (backupPath) {
    QUtils::copyText(uninstallBackupFile, backupPath, sizeof uninstallBackupFile);
  } else if (package.actionLogFile) {
    // Header line 2 of the log names the backup file. Cut short, it names
    // none: restoring from a file that merely begins like the right one
    // would write whatever that file holds.
    char line[kLogLineSize];
    bool damaged = false;
    std::fseek(package.actionLogFile, 0, SEEK_SET);
    uninstallBackupFile[0] = 0;
    if (readActionLine(package.actionLogFile, line, sizeof line, &damaged) &&
        readActionLine(package.actionLogFile, line, sizeof line, &damaged)) {
      stripLogLine(line);
      if (damaged)
        log("WARNING: The backup file's name in the action log is damaged: \"%s\"", line);
      else
        QUtils::copyText(uninstallBackupFile, line, sizeof uninstallBackupFile);
    }
  } else {
    log("WARNING: PrepareUninstall called without open action log and no specified backup file!");
  }
  // The backup is written back as root: one that another user wrote, or
  // could have, refuses the whole uninstallation before anything changes.
  QUtils::FileTrust trust = uninstallBackupFile[0] ? QUtils::checkFileTrust(uninstallBackupFile) : QUtils::kFileMissing;
  if (trust != QUtils::kTrustedFile && trust != QUtils::kFileMissing) {
    QUtils::boundedFormat(uninstallRefusal, sizeof uninstallRefusal,
                          "The uninstallation can't start: the backup %s %s. Nothing was removed.",
                          uninstallBackupFile, QUtils::describeFileTrust(trust));
    log("ERROR: %s", uninstallRefusal);
    return 0;
  }
  if (preUninstallDone) return 0;
  preUninstallDone = 1;
  runTagActions(ui, "PreUninstall");
  return 0;
}

void Installer::initFromActionLog(InstallerUI* ui, QUtils::PConsole* console) {
  QUtils::PConsole* saved = logConsole;
  if (console) logConsole = console;
  struct Restore {
    Installer* engine;
    QUtils::PConsole* console;
    ~Restore() { engine->logConsole = console; }
  } restoreConsole{this, saved};

  FILE* file = package.actionLogFile;
  if (!file) throw QUtils::InstallerError("ERROR: Unable to open action file");

  log("Uninstall: Reading installation file name from action log");
  char templatePath[kTemplatePathSize];
  std::fseek(file, 0, SEEK_SET);
  if (!readLogLine(file, templatePath, sizeof templatePath)) {
    log("Could not obtain installation file from action log");
    throw QUtils::InstallerError("ERROR: Unable to obtain installation file from action log");
  }
  stripLogLine(templatePath);

  // The document reads the file whole and parses it in one call; parsing
  // itself never fails, it keeps what it read before a fault.
  log("Uninstall: Reading installation file");
  // The template copy names what its UninstallWildcards delete: one that
  // another user could have written is not read.
  QUtils::PFileStream templateFile;
  if (!templatePath[0] ||
      templateFile.openFile(templatePath, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist) != 0 ||
      templateFile.checkTrust() != QUtils::kTrustedFile || document.load(&templateFile) != 0)
    throw QUtils::InstallerError("ERROR: Unable to read installation file");
  log("Uninstall: Parsing installation file");
  if (document.getCount() == 0) throw QUtils::InstallerError("ERROR: Error parsing installation file");

  log("Uninstall: Getting product description");
  if (readProductDesc() != 0) throw QUtils::InstallerError("ERROR: Unable to get product description");
  log("Uninstall: Getting file sets");
  if (readFileSets() != 0) throw QUtils::InstallerError("ERROR: Unable to get file sets");
  readControlVariables();

  log("Uninstall: Initializing values from previous log");
  try {
    readLogVariables(file);
  } catch (const QUtils::GenericError& error) {
    log("%s", error.getMessage());
    log("Uninstall: Initializing default values");
    if (readDefaults(ui) != 0) throw QUtils::InstallerError("ERROR: Unable to initialize default values");
  }
}

void Installer::uninstallWildcards(InstallerUI* ui) {
  int element = document.findNext("UninstallWildcards", -1);
  if (element < 0) return;
  QUtils::PList<int> children(16);
  document.getChildren(element, &children);
  for (int n = 0; n < children.getCount(); n++) {
    int child = children[n];
    const char* condition = document.getAttribute(child, "Condition");
    if (condition && evaluateCondition(condition) == 0) continue;
    const char* pattern = document.getValue(child);
    if (!pattern || !pattern[0]) continue;
    char dest[QUtils::kMaxPath];
    dest[0] = 0;
    const char* destText = document.getAttribute(child, "Dest");
    if (destText) expandVariables(destText, dest, sizeof dest);
    const char* deleteDirsText = document.getAttribute(child, "DeleteDirs");
    bool deleteDirs = deleteDirsText && evaluateCondition(deleteDirsText) != 0;
    // The pattern is matched through the whole tree below Dest: a Dest that
    // isn't a real, absolute directory below a root is never searched.
    if (!isDeletablePath(dest) || QUtils::isLink(dest) || QUtils::isSystemDirectory(dest)) {
      log("WARNING: UninstallWildcards entry with an unusable Dest \"%s\" passed over", dest);
      continue;
    }
    // Ignoring the result on purpose: a wildcard entry tidies up what the
    // product left behind; what it finds, or fails to delete, counts
    // neither as an error nor as success of the uninstallation.
    QUtils::deleteMatching(dest, pattern, deleteDirs);
    char what[QUtils::kMaxPath * 2];
    QUtils::boundedFormat(what, sizeof what, "%s/%s", dest, pattern);
    actiontext::report(kNoErrorList, ui, kDeleteMatching, true, what, 0, n % kFlushEvery == 0);
  }
  if (ui) ui->addFileLine(nullptr, true);
}

namespace {

// What the steps of uninstall() share. The lines are counted in the first
// pass; the second counts each DIR line again, as its removal at the end
// moves the progress too.
struct UndoRun {
  UndoRun(Installer* owner, InstallerUI* frontEnd, QUtils::PConsole* quiet)
      : engine(owner), ui(frontEnd), console(quiet) {}
  Installer* engine;
  InstallerUI* ui;
  QUtils::PConsole* console;  // a console without a file: its lines aren't kept
  bool errors = false;
  bool restored = false;  // the backup came back whole: OVER files stay
  QUtils::Table<QUtils::CharString> wholeRecords;  // what a damaged backup did give back
  bool environmentChanged = false;
  QUtils::Table<LoggedDirectory> directories;
  QUtils::Table<LoggedKey> keys;
  // The space of the deleted files, freed many at a time at the end (or
  // by the engine that removes this older installation, once its own
  // files are written).
  QUtils::RemovedFiles removed;
  // The files of a directory are logged one after the other: its walk is
  // done once for all of them.
  QUtils::FileDeleter deleter{engine->removedFilesSpace ? engine->removedFilesSpace : &removed};
  int line = 0;   // the number of the action line, from 0
  int total = 0;  // the action lines, and the DIR lines again
};

void setProgress(InstallerUI* ui, int line, int total) {
  if (!ui || total < 1) return;
  ui->setOverallProgress(static_cast<int>(std::ceil(static_cast<float>(line) / static_cast<float>(total) * 100.0f)));
}

// Puts replaced files back before their FILE lines are read: a restored
// OVER file is the old file again and stays. A backup that is there but
// damaged still gives back every record that is whole, and the files of
// those records stay too; the user is told of the rest. The backup may put
// back only what the log says the installation wrote: a record of any
// other file is refused.
void restoreBackup(UndoRun& run, const char* backupPath, FILE* log) {
  if (backupPath[0]) {
    QUtils::Table<QUtils::CharString> logged;
    if (log) loggedPaths(log, &logged);
    BackupFile backup;
    bool opened = backup.openForRestore(backupPath) == 0;
    if (opened) run.restored = backup.restore(run.console, run.ui, &run.wholeRecords, log ? &logged : nullptr) == 0;
    backup.close();
    if (!run.restored && (opened || QUtils::fileExists(backupPath))) {
      actiontext::report(run.engine, run.ui, kRestoreBackup, false, backupPath, 0, true);
      run.errors = true;
    }
  }
  if (!run.restored) run.engine->log("Uninstall: no backup restored from \"%s\"", backupPath);
}

// A damaged line is undone in no part; the user is told, and the
// uninstallation counts as failed, since what it did stays. Fields show as
// words; other control characters of garbage don't go to a terminal.
void reportDamagedLine(UndoRun& run, const char* line) {
  char shown[Installer::kLogLineSize];
  QUtils::copyText(shown, line, sizeof shown);
  for (char* c = shown; *c; c++) {
    if (*c == Installer::kLogTab)
      *c = ' ';
    else if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7f)
      *c = '?';
  }
  actiontext::report(run.engine, run.ui, kUndoDamagedLine, false, shown, 0, true);
  run.errors = true;
}

// The first pass: counts the action lines from `start`, reports the
// damaged ones, and repairs the modified files before anything is deleted.
void repairModifiedFiles(UndoRun& run, FILE* file) {
  char line[Installer::kLogLineSize];
  bool damaged = false;
  while (readActionLine(file, line, sizeof line, &damaged)) {
    Installer::stripLogLine(line);
    if (damaged) {
      reportDamagedLine(run, line);
    } else if (Installer::hasLogTag(line, Installer::kLogModifyFile) &&
               !run.engine->undoModifyFile(Installer::nextLogField(line), run.ui)) {
      run.errors = true;
    }
    run.total++;
    if (run.ui && run.total % kFlushEvery == 0) run.ui->addFileLine(nullptr, true);
  }
}

// --- Undoing one action line, one function for each tag. Each gets the
// whole line.

// DIR count path: noted, for the end, when the files are gone.
void noteDirectory(UndoRun& run, const char* line) {
  const char* countField = Installer::nextLogField(line);
  const char* pathField = Installer::nextLogField(countField);
  LoggedDirectory entry;
  entry.count = std::atoi(countField);
  QUtils::copyText(entry.path, pathField, sizeof entry.path);
  run.directories.add(entry);
  run.total++;
}

void deleteLoggedFile(UndoRun& run, const char* path) {
  if (run.ui) run.ui->pumpEventsQuietly();
  const char* state;
  const actiontext::Verb* verb = &kDelete;
  // The deletion is tried first: the system's call for a file never takes
  // a directory, so the directory check is only needed to word a failure,
  // and the files of a large product aren't each looked at twice.
  int error = 0;
  if (!isDeletablePath(path)) {
    // Never a root or a relative name.
    state = "failed";
  } else if ((error = run.deleter.deleteFile(path)) == 0) {
    state = "ok";
  } else if (QUtils::isDirectory(path) && !QUtils::isLink(path)) {
    // A FILE line names a file: a folder that stands at its name isn't the
    // installation's (the file never got written there), and stays.
    state = "missing";
  } else if (!QUtils::fileExists(path)) {
    state = "missing";
  } else if (run.engine->deleteRunningFile(run.ui, path, 2000)) {
    state = "ok";
  } else {
    state = "failed";
  }
  run.console->printf("File: %s (%s)", path, state);
  bool failed = std::strcmp(state, "failed") == 0;
  if (std::strcmp(state, "missing") == 0) verb = &kMissing;
  if (failed) run.errors = true;
  // The system's words are those of the first attempt, and only while the
  // file is still there.
  int reason = failed && error > 0 && QUtils::fileExists(path) ? error : 0;
  actiontext::report(run.engine, run.ui, *verb, !failed, path, reason, run.line % kFlushEvery == 0);
}

// FILE mode path: a file the installation made goes; one it replaced goes
// only when the backup didn't put the old one back. Other modes stay.
void undoFileLine(UndoRun& run, const char* line) {
  const char* mode = Installer::nextLogField(line);
  const char* path = Installer::nextLogField(mode);
  size_t modeLength = static_cast<size_t>(path - mode);
  while (modeLength > 0 && mode[modeLength - 1] == Installer::kLogTab) modeLength--;
  bool create =
      modeLength == std::strlen(Installer::kLogCreate) && std::strncmp(mode, Installer::kLogCreate, modeLength) == 0;
  bool over =
      modeLength == std::strlen(Installer::kLogOver) && std::strncmp(mode, Installer::kLogOver, modeLength) == 0;
  if (!*path)
    run.engine->log("WARNING: FILE line without a path passed over");
  else if (create || (over && !run.restored && !listed(run.wholeRecords, path)))
    deleteLoggedFile(run, path);
}

// The undo calls of ENV, INI, SHORTCUT and FIREWALL lines report their own
// failures to the error list and the front end. Ignoring their results on
// purpose: such a failure doesn't make the uninstallation fail, which only
// files, directories and modified files do; the user has been told.
void undoEnvironmentLine(UndoRun& run, const char* line) {
  run.engine->undoEnvironment(Installer::nextLogField(line), run.ui);
  run.environmentChanged = true;
}

void undoIniLine(UndoRun& run, const char* line) { run.engine->undoIniChange(Installer::nextLogField(line), run.ui); }

void undoShortcutLine(UndoRun& run, const char* line) {
  run.engine->undoShortcut(Installer::nextLogField(line), run.ui);
}

void undoFirewallLine(UndoRun& run, const char* line) {
  run.engine->undoFirewall(Installer::nextLogField(line), run.ui);
}

// The three TAB-separated fields behind `tag`; false (and a warning) if
// there are more or fewer.
bool registryFields(UndoRun& run, const char* line, const char* tag, QUtils::Table<QUtils::CharString>* fields) {
  const char* rest = line + std::strlen(tag);
  if (*rest == Installer::kLogTab) rest++;
  if (QUtils::splitText(rest, Installer::kLogTab, *fields) == 3) return true;
  run.engine->log("WARNING: (Dev) Wrong number of tokens in the install.log for %s", tag);
  return false;
}

// REGKEY count place path: noted; keys go after all values are gone.
void noteRegistryKey(UndoRun& run, const char* line) {
  QUtils::Table<QUtils::CharString> fields;
  if (!registryFields(run, line, Installer::kLogRegKey, &fields)) return;
  LoggedKey key;
  key.count = static_cast<uint16_t>(std::atoi(fields[0].getText()));
  QUtils::copyText(key.place, fields[1].getText(), sizeof key.place);
  QUtils::copyText(key.path, fields[2].getText(), sizeof key.path);
  run.keys.add(key);
}

// REGVAL place path name: the value goes at once. A failure is logged and
// is no error of the uninstallation.
void deleteRegistryValueLine(UndoRun& run, const char* line) {
  QUtils::Table<QUtils::CharString> fields;
  if (!registryFields(run, line, Installer::kLogRegVal, &fields)) return;
  if (run.engine->deleteRegistryValue(fields[0].getText(), fields[1].getText(), fields[2].getText()) != 0)
    run.engine->log("WARNING: Could not delete registry value %s\\%s\\%s", fields[0].getText(), fields[1].getText(),
                    fields[2].getText());
}

// The tags in the order a line is compared with them; a line of any other
// tag, MODIFYFILE too (the first pass did it), has no effect here.
struct LineUndo {
  const char* tag;
  void (*undo)(UndoRun& run, const char* line);
};
const LineUndo kLineUndos[] = {
    {Installer::kLogDir, noteDirectory},         {Installer::kLogFile, undoFileLine},
    {Installer::kLogEnv, undoEnvironmentLine},   {Installer::kLogIni, undoIniLine},
    {Installer::kLogShortcut, undoShortcutLine}, {Installer::kLogFirewall, undoFirewallLine},
    {Installer::kLogRegKey, noteRegistryKey},    {Installer::kLogRegVal, deleteRegistryValueLine},
};

void undoLine(UndoRun& run, const char* line) {
  for (const LineUndo& kind : kLineUndos) {
    if (Installer::hasLogTag(line, kind.tag)) return kind.undo(run, line);
  }
}

// The second pass: every action line undone in the order it was done.
// Damaged lines were reported by the first pass.
void undoActionLines(UndoRun& run, FILE* file) {
  char line[Installer::kLogLineSize];
  bool damaged = false;
  for (; readActionLine(file, line, sizeof line, &damaged); run.line++) {
    Installer::stripLogLine(line);
    if (!damaged) undoLine(run, line);
    setProgress(run.ui, run.line, run.total);
  }
}

// Keys made later go before the keys they were made in. A key that can't
// go is logged and is no error of the uninstallation.
void deleteLoggedKeys(UndoRun& run) {
  for (int k = run.keys.getCount() - 1; k >= 0; k--) {
    const LoggedKey& key = run.keys[k];
    if (run.engine->deleteRegistryKeys(key.place, key.path, key.count) < 0)
      run.engine->log("WARNING: Could not delete registry key %s\\%s", key.place, key.path);
  }
}

// Directories last, the deepest of each line first. The program files
// directory stays, however empty the last product leaves it.
void removeLoggedDirectories(UndoRun& run) {
  char programFiles[QUtils::kMaxPath];
  if (run.engine->readRegistryValue("HKEY_LOCAL_MACHINE", kCurrentVersionKey, "ProgramFilesDir", programFiles,
                                    sizeof programFiles, false) != 0)
    programFiles[0] = 0;
  QUtils::Table<QUtils::CharString> keptFolders;
  for (int d = run.directories.getCount() - 1; d >= 0; d--, run.line++) {
    if (Installer::removeDirectoryLevels(run.directories[d].path, run.directories[d].count, run.console, run.ui,
                                         run.engine->errorList, &keptFolders,
                                         programFiles[0] ? programFiles : nullptr, &run.deleter) != 0)
      run.errors = true;
    setProgress(run.ui, run.line, run.total);
    if (run.ui && (run.directories.getCount() - d) % kFlushEvery == 0) run.ui->addFileLine(nullptr, true);
  }
}

}  // namespace

int Installer::uninstall(InstallerUI* ui, const char* backupPath) {
  // Ignoring the result on purpose: it is always 0; a backup that must not
  // be read leaves its reason in uninstallRefusal.
  PrepareUninstall(ui, backupPath);
  if (uninstallRefusal[0]) {
    addError(uninstallRefusal);
    if (ui) {
      ui->addFileLine(uninstallRefusal, true);
      ui->setDestinationText("There were errors during the uninstall.");
    }
    setControlVariable(kCtlUninstallError, "1");
    return -1;
  }
  QUtils::PFileConsole nullConsole;
  UndoRun run{this, ui, &nullConsole};
  FILE* file = package.actionLogFile;
  restoreBackup(run, uninstallBackupFile, file);
  if (ui) ui->setDestinationText("Uninstalling");

  long start = 0;
  if (!file) {
    log("ERROR: Uninstall without an open action log");
    run.errors = true;
  } else {
    seekActionLines(file);
    start = std::ftell(file);
    repairModifiedFiles(run, file);
  }
  if (ui) {
    ui->addFileLine(nullptr, true);
    ui->beginProgress();
  }
  if (file && std::fseek(file, start, SEEK_SET) == 0) undoActionLines(run, file);
  if (ui) ui->addFileLine(nullptr, true);

  deleteLoggedKeys(run);
  removeNewIniFiles(ui);
  uninstallWildcards(ui);
  removeLoggedDirectories(run);
  run.removed.release();

  if (ui) {
    ui->setOverallProgress(100);
    ui->endProgress();
  }
  if (run.environmentChanged) {
    if (ui) ui->setDestinationText("Updating environment");
    // Ignoring the result on purpose: the environment has changed either
    // way; the announcement only tells the programs that run now.
    notifyEnvironmentChange();
  }
  if (ui) {
    ui->setDestinationText(run.errors ? "There were errors during the uninstall."
                                      : "The uninstall was successful.");
  }
  if (run.errors) {
    setControlVariable(kCtlUninstallError, "1");
    return -1;
  }
  return 0;
}
