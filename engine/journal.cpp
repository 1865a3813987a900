// The journal of a run's work, and the recovery of work that a killed
// process left half done. The journal's text and the backup copies come
// first; then the engine's side: keeping this run's journal, and finding and
// recovering the journal that an earlier run left.
//
// Recovery runs on a second engine, opened on the journal's log as an
// uninstaller is, so that the once-flags and lists of this engine stay as
// they were. It reads no template unless the journal names one, and never
// runs PreUninstall programs: those belong to a user's uninstallation.
#include "engine/journal.h"

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <memory>

#include "engine/backup_file.h"
#include "engine/installer.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/stream.h"
#include "foundation/text.h"
#include "foundation/text_lines.h"

const char kJournalFormat[] = "qlux-journal 1";

namespace {

const char* const kKindNames[] = {"", "install", "uninstall", "revert"};
const char* const kStageNames[] = {"preparing", "working", "placing", "done"};
const char kEndLine[] = "END";

// The names of the journal's lines. The text fields and the lists are
// written, read, checked and cleaned up from the tables below; the other
// lines are read and written one by one.
const char kKindField[] = "KIND";
const char kStageField[] = "STAGE";
const char kPidField[] = "PID";
const char kCopiedField[] = "COPIED";  // original TAB temporary

// A line that holds one text of the journal, written only when the text
// isn't empty. `temporary`: the text names a temporary file of the run.
struct TextField {
  const char* name;
  std::string Journal::*member;
  bool temporary;
};
const TextField kTextFields[] = {
    {"PRODUCT", &Journal::product, false},    {"LOG", &Journal::log, true},
    {"BACKUP", &Journal::backup, true},       {"TEMPLATE", &Journal::templateCopy, true},
    {"FINALLOG", &Journal::finalLog, false},  {"FINALBACKUP", &Journal::finalBackup, false},
    {"OLDBACKUP", &Journal::oldBackup, true}, {"OLDDIRLIST", &Journal::oldDirList, true},
};

// A line that may stand any number of times, one entry of a list each.
struct ListField {
  const char* name;
  std::vector<std::string> Journal::*member;
};
const ListField kTemporariesField = {"TEMP", &Journal::temporaries};
const ListField kCreatedField = {"NEW", &Journal::created};
const ListField kListFields[] = {kTemporariesField, kCreatedField};

// The temporary files that the journal names (and the undo may read or
// delete): the text fields so marked, the temporary side of each copied
// pair, and the further temporary files.
std::vector<std::string> temporaryFiles(const Journal& journal) {
  std::vector<std::string> paths;
  for (const TextField& field : kTextFields)
    if (field.temporary) paths.push_back(journal.*field.member);
  for (const auto& pair : journal.copied) paths.push_back(pair.second);
  const std::vector<std::string>& further = journal.*kTemporariesField.member;
  paths.insert(paths.end(), further.begin(), further.end());
  return paths;
}

void putLine(std::string* text, const char* name, const std::string& value) {
  *text += name;
  *text += '=';
  *text += value;
  *text += '\n';
}

// A line for a value that is there; an empty one is left out.
void addLine(std::string* text, const char* name, const std::string& value) {
  if (!value.empty()) putLine(text, name, value);
}

// The index of `name` in `names`, or -1.
int findName(const char* const* names, int count, const std::string& name) {
  for (int i = 0; i < count; i++)
    if (name == names[i] && names[i][0]) return i;
  return -1;
}

uint64_t getLittleEndian(const unsigned char* in, int bytes) {
  uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; i--) value = value << 8 | in[i];
  return value;
}

void putLittleEndian(unsigned char* out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; i++) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

bool readExactly(QUtils::PStream& stream, void* buffer, uint32_t size) {
  uint32_t got = 0;
  return stream.read(buffer, size, &got) == 0 && got == size;
}

bool writeExactly(QUtils::PStream& stream, const void* buffer, uint32_t size) {
  uint32_t written = 0;
  return stream.write(buffer, size, &written) == 0 && written == size;
}

}  // namespace

std::string formatJournal(const Journal& journal) {
  std::string text = std::string(kJournalFormat) + "\n";
  putLine(&text, kKindField, kKindNames[journal.kind]);
  putLine(&text, kStageField, kStageNames[journal.stage]);
  putLine(&text, kPidField, std::to_string(journal.pid));
  for (const TextField& field : kTextFields) addLine(&text, field.name, journal.*field.member);
  for (const auto& pair : journal.copied) addLine(&text, kCopiedField, pair.first + "\t" + pair.second);
  for (const ListField& field : kListFields) {
    for (const std::string& value : journal.*field.member) addLine(&text, field.name, value);
  }
  text += std::string(kEndLine) + "\n";
  return text;
}

namespace {

// Sets the text or list field named `name`. Other names are passed over:
// they can only come from a newer writer of the same format, and say
// nothing that this reader acts on.
void readTableField(const std::string& name, const std::string& value, Journal* journal) {
  for (const TextField& field : kTextFields) {
    if (name == field.name) journal->*field.member = value;
  }
  for (const ListField& field : kListFields) {
    if (name == field.name) (journal->*field.member).push_back(value);
  }
}

}  // namespace

bool parseJournal(const std::string& text, Journal* out) {
  std::vector<QUtils::TextLine> lines = QUtils::splitTextLines(text);
  if (lines.empty() || lines[0].text != kJournalFormat) return false;
  Journal journal;
  bool ended = false;
  bool hasStage = false;
  for (size_t i = 1; i < lines.size(); i++) {
    const std::string& line = lines[i].text;
    if (line.empty()) continue;
    if (ended) return false;  // nothing may follow the end line
    if (line == kEndLine) {
      ended = true;
      continue;
    }
    size_t equals = line.find('=');
    if (equals == std::string::npos) return false;
    std::string name = line.substr(0, equals);
    std::string value = line.substr(equals + 1);
    if (name == kKindField) {
      int kind = findName(kKindNames, 4, value);
      if (kind < 0) return false;
      journal.kind = static_cast<Journal::Kind>(kind);
    } else if (name == kStageField) {
      int stage = findName(kStageNames, 4, value);
      if (stage < 0) return false;
      journal.stage = static_cast<Journal::Stage>(stage);
      hasStage = true;
    } else if (name == kPidField) {
      char* end = nullptr;
      journal.pid = std::strtol(value.c_str(), &end, 10);
      if (value.empty() || *end) return false;
    } else if (name == kCopiedField) {
      size_t tab = value.find('\t');
      if (tab == std::string::npos) return false;
      journal.copied.push_back(std::make_pair(value.substr(0, tab), value.substr(tab + 1)));
    } else {
      readTableField(name, value, &journal);
    }
  }
  if (!ended || journal.kind == Journal::kNoKind || !hasStage) return false;
  *out = journal;
  return true;
}

bool writeJournal(const char* path, const Journal& journal) {
  // A value with a line break would read back as lines of its own: a folder
  // name could then add a line that the next run acts on.
  std::vector<const std::string*> values;
  for (const TextField& field : kTextFields) values.push_back(&(journal.*field.member));
  for (const auto& pair : journal.copied) {
    values.push_back(&pair.first);
    values.push_back(&pair.second);
  }
  for (const ListField& field : kListFields) {
    for (const std::string& value : journal.*field.member) values.push_back(&value);
  }
  for (const std::string* value : values)
    if (value->find_first_of("\r\n") != std::string::npos) return false;
  return path && path[0] && QUtils::replaceWholeFile(path, formatJournal(journal), QUtils::kPrivateFileMode);
}

int readJournal(const char* path, Journal* out) {
  if (!path || !path[0] || !QUtils::fileExists(path)) return kJournalMissing;
  std::string text;
  if (!QUtils::readWholeFile(path, &text) || !parseJournal(text, out)) return kJournalDamaged;
  out->file = path;
  return kJournalRead;
}

std::string journalFileName(const char* product) {
  std::string name;
  for (const char* p = product ? product : ""; *p; p++) {
    char c = *p;
    bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    name += plain ? c : '_';
  }
  if (name.empty()) name = "product";
  return name + ".journal";
}

int copyBackupRecords(const char* from, const char* to, BackupCopyMode mode) {
  BackupFile out;
  out.openForWriting(to);
  BackupFile in;
  int copied = in.openForRestore(from) == 0 ? 0 : kBackupNotRead;
  int64_t total = copied == 0 ? in.size() : 0;
  // Each whole record in turn; the end record, a damaged field or a record
  // whose content doesn't all stand in the file ends the copy.
  while (copied >= 0 && !out.hasError) {
    unsigned char field[12];
    if (!readExactly(in, field, 2)) break;
    uint32_t nameSize = static_cast<uint32_t>(getLittleEndian(field, 2));
    if (nameSize < 2 || nameSize > static_cast<uint32_t>(BackupFile::kMaxNameSize)) break;
    char name[BackupFile::kMaxNameSize + 1];
    if (!readExactly(in, name, nameSize)) break;
    name[nameSize - 1] = 0;
    if (!readExactly(in, field, 12)) break;
    int64_t size = static_cast<int64_t>(getLittleEndian(field, 8));
    uint32_t checkSum = static_cast<uint32_t>(getLittleEndian(field + 8, 4));
    int64_t contentStart = in.position();
    if (size < 0 || contentStart < 0 || size > total - contentStart) break;

    uint32_t onDisk = BackupFile::computeCheckSum(name);
    bool keep = true;
    if (mode == kForceRecords) {
      checkSum = onDisk;
    } else {
      keep = !QUtils::fileExists(name) || (size != 0 && onDisk == checkSum);
    }
    if (!keep) {
      if (in.seek(contentStart + size) != 0) break;
      continue;
    }
    unsigned char header[2 + BackupFile::kMaxNameSize];
    putLittleEndian(header, nameSize, 2);
    std::memcpy(header + 2, name, nameSize);
    putLittleEndian(field, static_cast<uint64_t>(size), 8);
    putLittleEndian(field + 8, checkSum, 4);
    int64_t got = 0, written = 0;
    if (!writeExactly(out, header, 2 + nameSize) || !writeExactly(out, field, 12) ||
        (size > 0 && (QUtils::copyStream(&out, &in, size, &got, &written, BackupFile::kBlockSize) != 0 ||
                      got != size || written != size))) {
      copied = kBackupCopyFailed;
      break;
    }
    copied++;
  }
  // Ignoring the result on purpose: the backup was only read.
  in.close();
  bool written = !out.hasError;
  if (out.close() != 0 || !written) copied = kBackupCopyFailed;
  return copied;
}

// ---- The engine's side ----

namespace {

bool isThere(const std::string& path) { return !path.empty() && QUtils::fileExists(path.c_str()); }

// Whether the journal's work changed the machine and may need undoing.
bool needsUndo(const Journal& journal) {
  if (journal.stage == Journal::kPlacing) return isThere(journal.log);  // gone: the log reached its place
  if (journal.stage != Journal::kWorking) return false;
  return isThere(journal.log) || (journal.kind != Journal::kUninstall && isThere(journal.oldBackup));
}

// True if `path` lies directly in `directory` (no deeper, no '..').
bool liesIn(const std::string& path, const char* directory) {
  size_t length = std::strlen(directory);
  while (length > 0 && QUtils::isSeparator(directory[length - 1])) length--;
  if (length == 0 || path.size() <= length + 1) return false;
  if (path.compare(0, length, directory, length) != 0 || !QUtils::isSeparator(path[length])) return false;
  for (size_t i = length + 1; i < path.size(); i++)
    if (QUtils::isSeparator(path[i])) return false;
  return path.find("..") == std::string::npos;
}

// The directory part of `path`, without its last separator; empty if none.
std::string parentOf(const std::string& path) {
  size_t cut = path.size();
  while (cut > 0 && !QUtils::isSeparator(path[cut - 1])) cut--;
  while (cut > 1 && QUtils::isSeparator(path[cut - 1])) cut--;
  return path.substr(0, cut);
}

// Whether a journal may name `path` as a temporary file: it lies directly in
// a run directory (a directory of this user's runs, that no other user can
// enter) or directly in the journal directory.
bool isTemporaryPlace(const std::string& path, const char* journals) {
  if (path.empty()) return false;
  if (journals[0] && liesIn(path, journals)) return true;
  std::string parent = parentOf(path);
  return !parent.empty() && QUtils::isRunDirectory(parent.c_str()) && liesIn(path, parent.c_str());
}

// An absolute path without "." or ".." parts and without control
// characters: one that names one place whatever the working directory.
bool isPlainAbsolutePath(const std::string& path) {
  if (path.empty()) return false;
  bool drive = path.size() >= 3 && path[1] == ':' && QUtils::isSeparator(path[2]);
  if (!drive && !QUtils::isSeparator(path[0])) return false;
  for (char c : path)
    if (static_cast<unsigned char>(c) < 0x20) return false;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = start;
    while (end < path.size() && !QUtils::isSeparator(path[end])) end++;
    std::string part = path.substr(start, end - start);
    if (part == "." || part == "..") return false;
    start = end + 1;
  }
  return true;
}

// The paths of the FILE lines of the action log at `path`.
std::vector<std::string> loggedFiles(const std::string& path) {
  std::vector<std::string> files;
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return files;
  char line[Installer::kLogLineSize];
  while (Installer::readLogLine(file, line, sizeof line)) {
    Installer::stripLogLine(line);
    if (!Installer::hasLogTag(line, Installer::kLogFile)) continue;
    const char* field = Installer::nextLogField(Installer::nextLogField(line));
    if (*field) files.push_back(field);
  }
  std::fclose(file);
  return files;
}

// Header line 2 of the action log at `path`, the backup's path; empty if
// it can't be read.
std::string loggedBackupPath(const std::string& path) {
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return std::string();
  char line[Installer::kLogLineSize];
  std::string backup;
  if (Installer::readLogLine(file, line, sizeof line) && Installer::readLogLine(file, line, sizeof line)) {
    Installer::stripLogLine(line);
    backup = line;
  }
  std::fclose(file);
  return backup;
}

// Why a journal can't be trusted with the next run's work; empty if it can.
// A journal tells a run as root what to undo, restore and delete: it must be
// this user's own, name temporary files only where this user's runs make
// them, and name nothing that its own log doesn't.
std::string journalRefusal(const Journal& found, const char* journals) {
  QUtils::FileTrust trust = QUtils::checkFileTrust(found.file.c_str());
  if (trust != QUtils::kTrustedFile) return "the journal " + found.file + " " + QUtils::describeFileTrust(trust);
  for (const std::string& path : temporaryFiles(found)) {
    if (path.empty()) continue;
    if (!isTemporaryPlace(path, journals)) return "it names " + path + ", which is no temporary file of a run";
    trust = QUtils::checkFileTrust(path.c_str());
    if (trust != QUtils::kTrustedFile && trust != QUtils::kFileMissing)
      return "its temporary file " + path + " " + QUtils::describeFileTrust(trust);
  }
  // The files that an undo deletes beyond the log's own (used only while
  // the log is there to undo).
  std::vector<std::string> logged = isThere(found.log) ? loggedFiles(found.log) : std::vector<std::string>();
  for (const std::string& path : found.created) {
    if (isThere(found.log) && std::find(logged.begin(), logged.end(), path) == logged.end())
      return "it names " + path + ", which its action log doesn't";
  }
  for (const auto& pair : found.copied) {
    if (!isPlainAbsolutePath(pair.first)) return "it names " + pair.first + " to restore";
  }
  // The backup's copy to its place follows the log there: the backup must
  // be the one the log names, the placed log once the temporary one is gone.
  if (!found.finalBackup.empty() && found.kind == Journal::kInstall && found.stage == Journal::kPlacing) {
    const std::string& log = isThere(found.log) ? found.log : found.finalLog;
    if (QUtils::checkFileTrust(log.c_str()) != QUtils::kTrustedFile || loggedBackupPath(log) != found.finalBackup)
      return "its backup " + found.finalBackup + " is not the one its action log names";
  }
  return std::string();
}

}  // namespace

bool Installer::getJournalPath(const char* product, char* buffer, int size) {
  char directory[QUtils::kMaxPath];
  if (!getJournalDirectory(directory, sizeof directory) || !directory[0]) return false;
  QUtils::copyText(buffer, directory, size);
  QUtils::appendPath(buffer, journalFileName(product).c_str(), size);
  return true;
}

void Installer::deleteJournalFiles(const Journal& found, bool removeRunDirectories) {
  // The journal names temporary files only, and only files that lie
  // directly in a run directory or beside the journal are deleted: a
  // journal that says otherwise is not trusted with the user's files.
  char journals[QUtils::kMaxPath];
  if (!getJournalDirectory(journals, sizeof journals)) journals[0] = 0;
  std::vector<std::string> runDirectories;
  for (const std::string& path : temporaryFiles(found)) {
    if (path.empty()) continue;
    if (!isTemporaryPlace(path, journals)) {
      if (isThere(path)) log("WARNING: The journal names %s, which is no temporary file; it is left", path.c_str());
      continue;
    }
    std::string parent = parentOf(path);
    if (!(journals[0] && liesIn(path, journals)) &&
        std::find(runDirectories.begin(), runDirectories.end(), parent) == runDirectories.end())
      runDirectories.push_back(parent);
    if (isThere(path) && QUtils::deleteFile(path.c_str()) != 0)
      log("WARNING: Could not delete the temporary file %s", path.c_str());
  }
  // The run that was cut short left its directory with whatever else it
  // held (an uninstaller's program copy): it goes whole.
  if (!removeRunDirectories) return;
  char own[QUtils::kMaxPath];
  if (!QUtils::getRunDirectory(own, sizeof own)) own[0] = 0;
  for (const std::string& directory : runDirectories) {
    if (QUtils::isSamePath(directory.c_str(), own)) continue;  // this run's own goes when it ends
    if (QUtils::isRunDirectory(directory.c_str()) && !QUtils::deleteTree(directory.c_str()))
      log("WARNING: Could not remove the directory %s", directory.c_str());
  }
}

Journal& Installer::beginJournal(Journal::Kind kind) {
  if (journal.kind != kind) {
    Journal fresh;
    fresh.file = journal.file;
    fresh.product = journal.product;
    fresh.kind = kind;
    journal = fresh;
  }
  return journal;
}

bool Installer::saveJournal(Journal::Stage stage) {
  if (journal.kind == Journal::kNoKind) return false;
  if (journal.file.empty()) {
    char product[512];
    char path[QUtils::kMaxPath];
    // A system without a journal directory keeps no journals.
    if (!getJournalPath("", path, sizeof path)) return false;
    if (getProductName(product, sizeof product) != 0 || !product[0] || !getJournalPath(product, path, sizeof path)) {
      log("WARNING: No journal can be kept for this run: the product has no name");
      return false;
    }
    // Another installer or uninstaller of the product that is running now
    // keeps its journal; this run doesn't write over it.
    Journal other;
    if (readJournal(path, &other) == kJournalRead && other.pid > 0 && other.pid != getProcessId() &&
        isProcessRunning(other.pid)) {
      log("WARNING: Process %ld keeps the journal %s; this run keeps none", other.pid, path);
      return false;
    }
    // The journals' directory is this user's alone: a journal in it gives
    // orders to the next run.
    char directory[QUtils::kMaxPath];
    getJournalDirectory(directory, sizeof directory);
    if (!QUtils::makePrivateDirectory(directory)) {
      log("WARNING: The journal directory %s can't be made, or belongs to another user; this run keeps none",
          directory);
      return false;
    }
    journal.file = path;
    journal.product = product;
  }
  journal.stage = stage;
  journal.pid = getProcessId();
  // An older installation removed by this run is brought back from these.
  journal.oldBackup = installedBackupFile;
  journal.oldDirList = installedDirListFile;
  journal.copied.clear();
  for (int i = 0; i < copiedFiles.getCount(); i++) {
    const char* original = copiedFiles[i].original.getText();
    const char* temporary = copiedFiles[i].temporary.getText();
    if (original && temporary) journal.copied.push_back(std::make_pair(original, temporary));
  }
  if (!writeJournal(journal.file.c_str(), journal)) {
    log("WARNING: Could not write the journal %s", journal.file.c_str());
    return false;
  }
  return true;
}

void Installer::dropJournal() {
  if (!journal.file.empty() && QUtils::fileExists(journal.file.c_str())) {
    deleteJournalFiles(journal);
    QUtils::deleteFile(journal.file.c_str());
  }
  journal = Journal();
}

int Installer::findInterruptedRun(const char* product, Journal* out, char* message, int size) {
  if (message && size > 0) message[0] = 0;
  char path[QUtils::kMaxPath];
  if (!product || !product[0] || !out || !getJournalPath(product, path, sizeof path)) return 0;
  Journal found;
  int read = readJournal(path, &found);
  if (read == kJournalMissing) return 0;
  if (read == kJournalDamaged) {
    log("WARNING: The journal %s can't be read; it is removed", path);
    QUtils::deleteFile(path);
    return 0;
  }
  if (found.product != product) {
    log("WARNING: The journal %s is of the product \"%s\"; it is left", path, found.product.c_str());
    return 0;
  }
  if (found.pid > 0 && found.pid != getProcessId() && isProcessRunning(found.pid)) {
    log("The journal %s belongs to process %ld, which is still running; it is left", path, found.pid);
    return 0;
  }
  char journals[QUtils::kMaxPath];
  if (!getJournalDirectory(journals, sizeof journals)) journals[0] = 0;
  std::string refusal = journalRefusal(found, journals);
  if (!refusal.empty()) {
    log("ERROR: The journal %s is not trusted: %s; it is left, and nothing is undone", path, refusal.c_str());
    if (message)
      QUtils::boundedFormat(message, size,
                            "An interrupted run of %s was found, but its journal can't be trusted (%s); "
                            "nothing of it was undone",
                            product, refusal.c_str());
    return kInterruptedRunRefused;
  }
  static const char* const kTexts[] = {"", "An interrupted installation of %s was found; undoing it",
                                       "An interrupted uninstallation of %s was found; finishing it",
                                       "An interrupted revert of %s was found; finishing it"};
  log("Found the journal %s: %s, stage %s, process %ld", path, kKindNames[found.kind], kStageNames[found.stage],
      found.pid);
  if (needsUndo(found) && message) QUtils::boundedFormat(message, size, kTexts[found.kind], product);
  *out = found;
  return 1;
}

namespace {

// Reads a template copy into an engine opened on an action log, as
// initFromActionLog does with the file that the log's first line names.
void loadTemplateCopy(Installer* engine, const char* path) {
  if (engine->document.load(path) != 0 || engine->document.getCount() == 0 || engine->readProductDesc() != 0 ||
      engine->readFileSets() != 0) {
    engine->log("WARNING: The template copy %s can't be read; the undo goes on without it", path);
    return;
  }
  engine->readControlVariables();
  try {
    engine->readLogVariables(engine->package.actionLogFile);
  } catch (const QUtils::GenericError& error) {
    engine->log("%s", error.getMessage());
  }
}

// The backup's saved files could not all be copied for the restore: some
// of them won't come back, and the recovery fails. Gives -1.
int reportUnsealedBackup(Installer* engine, const std::string& backup, const std::string& sealed) {
  engine->log("ERROR: Recovery: the saved files in %s could not be copied to %s; not all of them come back",
              backup.c_str(), sealed.c_str());
  return -1;
}

}  // namespace

int Installer::recoverInterruptedRun(const Journal& found) {
  int result = 0;
  if (needsUndo(found)) {
    std::unique_ptr<Installer> helper(createEngine());
    if (!helper) {
      log("ERROR: No engine to recover with; the journal %s stays", found.file.c_str());
      return -1;
    }
    helper->logConsole = logConsole;
    helper->preUninstallDone = 1;

    if (isThere(found.log)) {
      log("Recovery: undoing the actions of %s", found.log.c_str());
      if (helper->openPackage(found.log.c_str(), 0, 1) != 0) {
        result = -1;
      } else {
        if (isThere(found.templateCopy)) loadTemplateCopy(helper.get(), found.templateCopy.c_str());
        // Their OVER lines stay standing once the backup is restored, and
        // their directories could not go.
        for (const std::string& path : found.created) {
          if (isThere(path) && !QUtils::isDirectory(path.c_str()) && QUtils::deleteFile(path.c_str()) == 0)
            log("Recovery: deleted %s, which the run made", path.c_str());
        }
        // Every whole record goes back, whatever stands there now: a file
        // written half, or restored half, is the saved file again. A
        // restore that reaches its end also keeps the OVER files in place.
        std::string sealed = found.file + ".backup";
        int copied = copyBackupRecords(found.backup.c_str(), sealed.c_str(), kForceRecords);
        if (copied == kBackupNotRead) log("Recovery: no saved files in \"%s\"", found.backup.c_str());
        if (copied == kBackupCopyFailed) result = reportUnsealedBackup(this, found.backup, sealed);
        if (helper->uninstall(nullptr, sealed.c_str()) != 0) result = -1;
        helper->package.release();
        QUtils::deleteFile(sealed.c_str());
      }
      if (found.kind == Journal::kUninstall) helper->unregisterApplication(found.product.c_str());
    }

    if (found.kind != Journal::kUninstall && isThere(found.oldBackup)) {
      log("Recovery: restoring the older installation from %s", found.oldBackup.c_str());
      std::string sealed = found.file + ".older";
      // A backup cut before its first record (the run ended while it was
      // being begun) holds nothing, and nothing of the older installation
      // was removed yet; restoring it then brings nothing back.
      if (copyBackupRecords(found.oldBackup.c_str(), sealed.c_str(), kForceRecords) == kBackupCopyFailed)
        result = reportUnsealedBackup(this, found.oldBackup, sealed);
      QUtils::copyText(helper->installedBackupFile, sealed.c_str(), sizeof helper->installedBackupFile);
      QUtils::copyText(helper->installedDirListFile, found.oldDirList.c_str(), sizeof helper->installedDirListFile);
      if (!helper->restoreInstalledFiles(nullptr)) result = -1;
      for (const auto& pair : found.copied) {
        if (helper->copyFile(pair.second.c_str(), pair.first.c_str())) continue;
        log("ERROR: Recovery: the saved file %s could not be written back to %s", pair.second.c_str(),
            pair.first.c_str());
        result = -1;
      }
      // Ignoring the result on purpose: the sealed copy lies beside the
      // journal, and the next recovery's copy replaces it.
      QUtils::deleteFile(sealed.c_str());
    }
    log("Recovery of %s ended%s", found.product.c_str(), result == 0 ? "" : " with errors");
  } else if (found.kind == Journal::kInstall && found.stage == Journal::kPlacing && isThere(found.backup) &&
             !found.finalBackup.empty()) {
    // The log reached its place; the backup's copy is finished here.
    log("Recovery: the installation of %s stands; its backup goes to %s", found.product.c_str(),
        found.finalBackup.c_str());
    if (!copyFile(found.backup.c_str(), found.finalBackup.c_str())) result = -1;
  } else {
    log("The interrupted run of %s left nothing to undo", found.product.c_str());
  }
  deleteJournalFiles(found, true);
  QUtils::deleteFile(found.file.c_str());
  return result;
}

namespace {

// Copies the whole of an open file to `path`. False on any failure.
bool copyOpenFile(FILE* from, const char* path) {
  if (!from || std::fseek(from, 0, SEEK_SET) != 0) return false;
  FILE* to = QUtils::openFile(path, "wb");
  if (!to) return false;
  char block[8192];
  size_t n;
  bool ok = true;
  while (ok && (n = std::fread(block, 1, sizeof block, from)) > 0) ok = std::fwrite(block, 1, n, to) == n;
  if (std::ferror(from)) ok = false;
  if (std::fclose(to) != 0) ok = false;
  return ok;
}

}  // namespace

int Installer::uninstallWithJournal(InstallerUI* ui) {
  // The uninstallation deletes the installed log, backup and template copy
  // as it goes; a run that finishes it later works on copies of them. The
  // backup copy holds only what this uninstallation is going to put back.
  char logCopy[QUtils::kMaxPath], backupCopy[QUtils::kMaxPath], templateCopy[QUtils::kMaxPath];
  char templatePath[kLogLineSize], backupPath[kLogLineSize];
  templatePath[0] = backupPath[0] = 0;
  FILE* file = package.actionLogFile;
  if (file && std::fseek(file, 0, SEEK_SET) == 0 && readLogLine(file, templatePath, sizeof templatePath))
    readLogLine(file, backupPath, sizeof backupPath);
  stripLogLine(templatePath);
  stripLogLine(backupPath);
  bool named = file && getTempFileName(logCopy, sizeof logCopy) == 0 &&
               getTempFileName(backupCopy, sizeof backupCopy) == 0 &&
               getTempFileName(templateCopy, sizeof templateCopy) == 0;
  if (named) {
    Journal& record = beginJournal(Journal::kUninstall);
    record.log = logCopy;
    record.backup = backupCopy;
    record.templateCopy = templateCopy;
    char finalLog[QUtils::kMaxPath];
    if (getInstallLogFile(finalLog, sizeof finalLog) == 0) record.finalLog = finalLog;
    record.finalBackup = backupPath;
    if (saveJournal(Journal::kPreparing)) {
      bool copied = copyOpenFile(file, logCopy);
      // A log without a backup (nothing was replaced) has none to copy.
      if (copyBackupRecords(backupPath, backupCopy, kPendingRecords) == kBackupCopyFailed)
        log("WARNING: The journal's copy of the backup %s is incomplete", backupPath);
      if (templatePath[0] && !copyFile(templatePath, templateCopy))
        log("WARNING: No copy of the template %s", templatePath);
      if (!copied || !saveJournal(Journal::kWorking)) {
        log("WARNING: The uninstallation runs without a journal");
        dropJournal();
      }
    }
  } else {
    log("WARNING: No temporary names for the journal's copies; the uninstallation runs without a journal");
  }
  return uninstall(ui, nullptr);
}
