// Installer: the engine. One object owns the loaded package, the template
// document, the variable store, the wizard's records and the run's state;
// runInstallation() brings a template to life in a fixed order and hands the
// thread to the front end's run(). The same object serves an installation
// and an uninstallation: an open action log (package.actionLogFile) is what
// makes a run an uninstallation.
//
// Installer is free of the system: what it needs of the system it asks
// through its platform operations, which a subclass per system fills in
// (Wini on Windows, LinuxInstaller on Linux). Failures inside an operation
// are thrown as InstallerError and caught at the step that ran it; nothing
// is thrown out of runInstallation or into a front end.
//
// The operations are implemented in one file per subject, named beside each
// group below.
#ifndef QLUX_ENGINE_INSTALLER_H_
#define QLUX_ENGINE_INSTALLER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/colour_map.h"
#include "engine/dialog_records.h"
#include "engine/exchange.h"
#include "engine/journal.h"
#include "engine/records.h"
#include "engine/registry_access.h"
#include "engine/result_log.h"
#include "foundation/console.h"
#include "foundation/lists.h"
#include "foundation/string_pool.h"
#include "foundation/xml.h"
#include "package/package.h"

class BackupFile;
class InstallerUI;
namespace QUtils {
class FileDeleter;
class RemovedFiles;
}  // namespace QUtils

// Indices of the control variables (names read from InstallerControlVariables).
enum ControlVariable {
  kCtlPreviousInstallation = 0,
  kCtlShouldUninstall,
  kCtlCustomizeSettings,
  kCtlProgressDetails,
  kCtlInstallError,
  kCtlUninstallError,
  kCtlDlgCondition,
  kControlVariableCount
};

// The number of colours of the theme.
const int kThemeColourCount = 20;

class Installer : public InstallExchangeInfo {
 public:
  Installer();
  ~Installer() override;

  // ---- Run sequence (run_sequence.cpp) ----
  // Loads the package at `offset` of `fileName`, or with flag bit 0 opens the
  // action log. 0, or the package's negative result code.
  int openPackage(const char* fileName, uint32_t offset, int flags);
  int findFile(const char* key) const { return package.findFile(key); }
  int extractFile(int index, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData, unsigned char* outDigest) {
    return package.extractFile(index, outSize, outData, outDigest);
  }
  int extractFile(const char* key, uint32_t* outSize, QUtils::RefArray<unsigned char>& outData,
                  unsigned char* outDigest) {
    return package.extractFile(key, outSize, outData, outDigest);
  }
  // The file's bytes where the package holds them, without a copy.
  int viewFile(int index, PackageFileView* view, unsigned char* outDigest) {
    return package.viewFile(index, view, outDigest);
  }
  // Starts `reader` on file `index`, for a file of any size.
  int readFile(int index, PackageFileReader* reader, unsigned char* outDigest) {
    return reader->open(&package, index, outDigest);
  }
  QUtils::RefArray<unsigned char> getFileData(const char* key, uint32_t* outSize) override;
  // The run, from the loaded package to the end of the wizard. 0, the
  // non-zero result of ui->run(), or -1.
  int runInstallation(InstallerUI* ui, QUtils::PConsole* log);
  // Frees the package, closes the action log, deletes temporary files.
  int cleanup();
  // Adds a text (cut at 1,559 bytes) to errorList; nothing if it is null.
  void addError(const char* text);
  // Shares another engine's error list (a nested uninstaller).
  void shareErrorList(Installer* owner);
  // A line in the debug log, when there is one.
  void log(const char* format, ...) __attribute__((format(printf, 2, 3)));

  bool isActionLogRun() override { return (package.runFlags & kRunFlagActionLog) != 0; }
  int isCancelled() override { return cancelled; }
  int isFinished() override { return finished; }
  int hasFailed() override { return failed; }
  int getCurrentDialog() override { return currentDialog; }
  int getCurrentSubDialog() override { return currentSubDialog; }
  void setUiState(int state) override { uiState = state; }
  int getUiState() override { return uiState; }
  int setInstallerDir(const char* path) override;
  int getInstallerDir(char* buffer, int size) override;

  // ---- Variables (variables.cpp) ----
  int getVariable(const char* name, char* buffer, int size) override;
  int getVariableDefault(const char* name, char* buffer, int size) override;
  int setVariable(const char* name, const char* value) override;
  virtual int resetVariable(const char* name, int recalculate);
  int defineVariable(const char* name, const char* value, const char* expression, int recalculate,
                     const char* defaultValue);
  int expandVariables(const char* text, char* buffer, int size) override;
  bool expandDollars(const char* text, char* buffer, int size);
  void recalculateDependents(int index);
  bool isVariableIncluded(const char* name, int mask);
  void readExcludes();

  // ---- Conditions (conditions.cpp) ----
  int evaluateCondition(const char* text) override;
  void runAction(InstallerUI* ui, const char* action) override;
  virtual int applyAction(const char* text);

  // ---- Product data and control variables (product_data.cpp) ----
  int readProductDesc();
  int getProductName(char* buffer, int size) override;
  int getWindowTitle(char* buffer, int size) override;
  int getMajorVersion(char* buffer, int size) override;
  int getVersion(char* buffer, int size) override;
  int getWebsite(char* buffer, int size) override;
  int getSupportEmail(char* buffer, int size) override;
  int getInstallLogFile(char* buffer, int size) override;
  int getInstallBackupFile(char* buffer, int size) override;
  int getUninstallCmd(char* buffer, int size) override;
  int getUninstallXmlFile(char* buffer, int size) override;
  int getHelpUrl(char* buffer, int size) override;
  // The template's Publisher (a child of ProductDesc), or "Halvo Software
  // Ltd" when it names none. 0, or -1 for a null buffer.
  int getPublisher(char* buffer, int size);
  int getBannerText(char* buffer, int size) override;
  int readControlVariables();
  // The name of a control variable; empty when the template gave none.
  const char* getControlVariable(ControlVariable which) const { return controlVariables[which]; }
  // Sets the named control variable; nothing when it has no name.
  void setControlVariable(ControlVariable which, const char* value);

  // ---- File sets (file_sets.cpp) ----
  int readFileSets();
  int getInstalledFilePath(const char* alias, char* buffer, int size) override;

  // ---- Colour theme (colour_theme.cpp) ----
  void readColourTheme();
  void applyColourTheme();
  uint32_t parseColour(const char* text);
  bool hasColourTheme() override { return usesColourTheme != 0; }
  uint32_t getThemeColour(int index) override;

  // ---- Dialog model (dialogs.cpp) ----
  int readDialogs(bool isUninstall);
  DIALOGINFO* getDialog(int dialog, int subDialog) override;
  int getDialogCount() override { return dialogs.getCount(); }
  int getDialogWidth(int dialog) override;
  int getDialogHeight(int dialog) override;
  int getSubDialogCount(int dialog) override;
  int variableChanged(const char* variable, int dialog, int subDialog) override;
  ELEMENTINFO* getElement(int dialog, int index, int subDialog) override;
  int getElementCount(int dialog, int subDialog) override;
  BUTTONINFO* getButton(int dialog, int index, int subDialog) override;
  int getButtonCount(int dialog, int subDialog) override;
  FIELDINFO* getField(int dialog, int index, int subDialog) override;
  int getFieldCount(int dialog, int subDialog) override;
  int getTaskCount(int dialog) override;
  TASKINFO* getTask(int dialog, int index) override;
  void fireTriggers(int event, int dialog, int subDialog) override;
  void getDialogColours(int dialog, int subDialog, uint32_t* background, uint32_t* foreground) override;

  // ---- Default values and previous installations (defaults.cpp) ----
  // The template's DefValues, then, in an installation, those of the
  // configuration file; a file that can't be loaded is shown to `ui` (may be
  // null). 0, or non-zero: no DefValues, or a bad configuration file.
  int readDefaults(InstallerUI* ui);
  // The two passes over the first DefValues element of `source`: declare the
  // variables whose old values count for nothing, then work out each entry
  // in document order. 0, or -1 without DefValues.
  int readDefValues(const QUtils::PXML& source);
  // Sets previousInstallationFound when this product or one of its legacy
  // names is registered. 0; -1 once older installations were removed, or
  // when the product has no name.
  int checkPreviousInstallation();
  bool isPreviousInstallation() override { return previousInstallationFound != 0; }
  // Reads the values block of the open action log (action_log.cpp). 0, or
  // -1 when it couldn't be read.
  int readActionLogVariables();
  // Reads the values of the installed product's action log (a previous
  // installation); throws GenericError when that log can't be read.
  void readPreviousInstallationValues();

  // ---- Registry (registry.cpp), over the platform's RegistryAccess ----
  int readRegistryValue(const char* place, const char* path, const char* name, char* out, int size, bool view32);
  int findRegistryValue(const char* place, const char* path, const char* name, char* out, int size,
                        const char* firstPath, char wildcard);
  int setRegistryValue(const char* place, const char* path, const char* type, const char* name, const char* data,
                       int* outCreated);
  int createRegistryKeys(const char* place, const char* path);
  int deleteRegistryKeys(const char* place, const char* path, int count);
  int deleteRegistryValue(const char* place, const char* path, const char* name);

  // ---- Application registration (registration.cpp) ----
  // The system's list of installed programs: one key per product below
  // HKEY_LOCAL_MACHINE\Software\Microsoft\Windows\CurrentVersion\Uninstall,
  // named by the product, whose UninstallString runs the product's
  // uninstaller with its action log. Written over the registry primitives
  // above; virtual, so that a system with another list can replace them.
  // The uninstall program (in double quotes when `quoted`) and its
  // arguments -uninstall="LOG" -uninstallApp="NAME", each cut to its field.
  // False if the template lacks the program, the log or the name.
  bool getUninstallCommand(char* outProgram, int programSize, char* outArguments, int argumentsSize, int quoted);
  // Enters this product. True also when the template lacks a value the
  // entry needs (no entry is made then); false if the key can't be made.
  virtual bool registerApplication();
  // Deletes the entry of `name` (not its sub-keys). True if it was deleted.
  virtual bool unregisterApplication(const char* name);
  // Whether `name` (null: this product) has an entry.
  virtual bool isApplicationRegistered(const char* name);
  // The text value UninstallString of the entry of `name`. True if found.
  virtual bool getUninstallString(const char* name, char* out, int size);
  // The text value `valueName` of the entry of `name` (DisplayVersion...),
  // cut to `size` - 1 bytes. True if found.
  bool getEntryText(const char* name, const char* valueName, char* out, int size);
  // The action log path in the entry of `application`: the text behind
  // -uninstall=" up to the next double quote. False without one.
  virtual bool getApplicationLogFile(const char* application, char* buffer, int size);

  // ---- Uninstall (uninstall.cpp) ----
  // uninstall and PrepareUninstall are declared with the work that pages
  // start. Makes an engine that has only an action log ready to uninstall:
  // the template copy that the log's first line names, and the values of
  // the log's variable block (the template's defaults if that can't be
  // read). `console` (may be null) gets the steps. Throws InstallerError.
  void initFromActionLog(InstallerUI* ui, QUtils::PConsole* console);
  // Deletes what the template's UninstallWildcards entries match below
  // their Dest.
  void uninstallWildcards(InstallerUI* ui);
  // Removes `count` levels of `directory`, deepest first, each only if it is
  // empty; a path that ends in a separator starts at the level it closes.
  // Never climbs to a root. Each removal takes the parents that it leaves
  // empty along, whoever made them, but never `ceiling` (may be null) or
  // what lies above it. A level that holds what the installation didn't
  // make stays and is reported to `ui` as kept ("kept: N files that the
  // installation did not make, in FOLDER"), once: `kept` (may be null)
  // gathers the folders reported, over calls. 1 if a level couldn't be
  // removed for another reason, else 0. `deleter` (may be null) removes
  // the levels, keeping its walks over calls.
  static int removeDirectoryLevels(const char* directory, int count, QUtils::PConsole* console, InstallerUI* ui,
                                   QUtils::Table<QUtils::CharString>* errorList,
                                   QUtils::Table<QUtils::CharString>* kept = nullptr, const char* ceiling = nullptr,
                                   QUtils::FileDeleter* deleter = nullptr);

  // ---- Destination checks (destinations.cpp) ----
  // Whether a folder that a user gives can take an installation: absolute,
  // without control characters, and neither a root nor a system directory.
  // False with the reason (cut at `size`) otherwise.
  bool isUsableFolder(const char* path, char* reason, int size) override;
  // Whether a path text of the template can be written to as it expands
  // now: the variable it begins with is a folder (not empty, not relative,
  // not a root), and the whole expands to an absolute path. `what` names
  // the text in the reason.
  bool checkDestinationText(const char* text, const char* what, char* reason, int size);
  // Checks every destination of the file entries that install now and the
  // places of the log, the backup, the template copy and the uninstaller,
  // before the first change of a run. 0, or -1 after telling errorList, the
  // log and `ui` (may be null) which variable or path is unusable.
  int checkDestinations(InstallerUI* ui);

  // ---- File installation (install_files.cpp) ----
  // installFiles (declared with the work that pages start) writes every file
  // entry to its expanded Dest, logs and backs up what it does, and moves
  // the action log and the backup file to their places.
  // (deleteRunningFile frees a file that a running program holds: see the
  // platform operations.)

  // An installation over the registered installation of this product
  // that the user chose to keep (olderInstallationKept) takes it over
  // (adopt_older.cpp). saveOlderInstallation copies its action log and
  // backup to temporary files before the new files are written, which may
  // go over them; false (noted) if its log can't be read. Once the new
  // installation stands, adoptOlderInstallation appends the older log's
  // action lines that the new log at `tempLog` doesn't have already to
  // actionLogWriter, and copies the records of the files it had saved
  // (FILE OVER) into `backup`. 0, or -1 when something couldn't be read.
  bool saveOlderInstallation();
  int adoptOlderInstallation(const char* tempLog, BackupFile* backup);
  // Set when the "Uninstall" page found the user's answer to keep the
  // registered older installation.
  bool olderInstallationKept = false;
  std::string keptOlderLog;     // the copies; empty without them
  std::string keptOlderBackup;

  // ---- Backup of installed files (installed_backup.cpp) ----
  // Saves every file and shortcut that the action log at `logPath` names
  // into a new backup at `backupPath`, and lists the log's directories in
  // `dirListPath`, one a line. A file that is itself a backup is copied to a
  // temporary file and noted in copiedFiles. Stops at the first file that
  // can't be added. True if every file was saved.
  bool backupInstalledFiles(InstallerUI* ui, const char* backupPath, const char* dirListPath, const char* logPath);
  // Makes the directories of installedDirListFile again and restores
  // installedBackupFile. True if the whole backup was restored.
  bool restoreInstalledFiles(InstallerUI* ui);

  // ---- Interrupted runs (journal.cpp) ----
  // While this run changes the machine (the removal of an older
  // installation and installFiles, revertInstallation, an uninstaller's
  // uninstallation) the product's journal (journal.h) names the work's
  // temporary files and its stage; cleanup() removes it. A later run that
  // finds the journal of a process that no longer runs undoes that work
  // (installation, revert's undo) or finishes it (uninstallation).
  // The journal's path for `product`; false without a journal directory.
  bool getJournalPath(const char* product, char* buffer, int size);
  // Looks for the journal of `product`. kInterruptedRunFound if a process
  // that no longer runs left one: `out` holds it, and `message` (cut at
  // `size`) the text for the user, empty when there is nothing to undo.
  // kInterruptedRunRefused for a journal that can't be trusted (another
  // user's, or one that names files that its run couldn't have made):
  // `message` says why, and the journal is left as it is. 0 for no
  // journal, one of a running process (left alone) or a damaged one
  // (logged and removed).
  static constexpr int kInterruptedRunFound = 1;
  static constexpr int kInterruptedRunRefused = 2;
  int findInterruptedRun(const char* product, Journal* out, char* message, int size);
  // Undoes or finishes the work of `found` through a second engine, with no
  // front end (the steps go to the log), then deletes its temporary files
  // and the journal. 0; -1 if the undo reported errors, or if no second
  // engine could be made (the journal then stays).
  int recoverInterruptedRun(const Journal& found);
  // The uninstallation of an uninstaller run: copies of the log, the
  // backup and the template are kept under a journal until cleanup(), so
  // that a run cut short can be finished. The result of uninstall().
  int uninstallWithJournal(InstallerUI* ui);
  // This run's journal: beginJournal gives the record for `kind` (a record
  // of another kind starts afresh); saveJournal writes it at `stage`, with
  // the backup of an older installation that this run removed. False
  // (logged) if it wasn't written: the work goes on without one.
  Journal& beginJournal(Journal::Kind kind);
  bool saveJournal(Journal::Stage stage);
  // Deletes this run's journal and the temporary files it names.
  void dropJournal();
  // Deletes the temporary files that `found` names, each only if it lies
  // directly in a run directory or in the journal directory; with
  // `removeRunDirectories` (the journal of a run that was cut short) the
  // run directories they lie in go as well.
  void deleteJournalFiles(const Journal& found, bool removeRunDirectories = false);
  Journal journal;  // kind kNoKind while this run keeps none
  // INI files made by the actions of the log being undone.
  QUtils::Table<QUtils::CharString> newIniFiles;

  // ---- Action log (action_log.cpp) ----
  // The action log: two header lines (the template copy, the backup file),
  // the variable block (NUMVARS TAB count, then VAR TAB name TAB value), and
  // one line per undoable action, its fields separated by TAB. Tags and the
  // words of the action forms:
  static constexpr char kLogTab = '\t';
  static constexpr const char* kLogNumVars = "NUMVARS";
  static constexpr const char* kLogVar = "VAR";
  static constexpr const char* kLogDir = "DIR";
  static constexpr const char* kLogFile = "FILE";
  static constexpr const char* kLogEnv = "ENV";
  static constexpr const char* kLogIni = "INI";
  static constexpr const char* kLogModifyFile = "MODIFYFILE";
  static constexpr const char* kLogShortcut = "SHORTCUT";
  static constexpr const char* kLogFirewall = "FIREWALL";
  static constexpr const char* kLogRegKey = "REGKEY";
  static constexpr const char* kLogRegVal = "REGVAL";
  static constexpr const char* kLogCreate = "CREATE";      // FILE, ENV, INI, SHORTCUT
  static constexpr const char* kLogOver = "OVER";          // FILE
  static constexpr const char* kLogReplace = "REPLACE";    // ENV, INI
  static constexpr const char* kLogAdd = "ADD";            // ENV
  static constexpr const char* kLogAddNew = "ADDNEW";      // ENV: a list made by the item
  static constexpr const char* kLogNone = "NONE";          // ENV, INI
  static constexpr const char* kLogAddAfter = "ADDAFTER";  // MODIFYFILE
  static constexpr const char* kLogNewFile = "NEWFILE";    // INI: the file was made by the action
  static constexpr const char* kLogApp = "APP";            // FIREWALL
  static constexpr const char* kLogPort = "PORT";          // FIREWALL
  // Line limits of the readers, terminator included.
  static const int kLogLineSize = 2604;       // the uninstaller, readLogVariable
  static const int kLogBlockLineSize = 2048;  // readLogVariables, the rewrite

  // Opens actionLogWriter on a new temporary file and writes the header and
  // the variable block. `tempLog` receives the log's temporary name and
  // `tempBackup` a second temporary name, reserved for the backup file.
  // 0, or -1 with nothing left open.
  int openActionLog(char* tempLog, int tempLogSize, char* tempBackup, int tempBackupSize);
  // Closes the writer and puts the temporary log at getInstallLogFile's path,
  // replacing what is there (renamed, or copied across volumes). 0 or -1.
  int placeActionLog(const char* tempLog);
  // For actions after the log was placed: opens the log at its final path
  // for appending unless the writer is open. 1 if it was opened now (give
  // that to endActionLogGroup), 0 if it was open, -1 if it can't be opened
  // (the actions then run unlogged).
  int beginActionLogGroup();
  void endActionLogGroup(int opened);
  // Action lines. DIR and REGKEY lines with a count below 1 aren't written;
  // logAction writes "tag TAB rest" for the forms that build their own rest.
  void logAction(const char* tag, const char* rest);
  void logDirAction(int created, const char* directory);
  void logFileAction(const char* mode, const char* path);
  void logFirewallAction(const char* kind, const char* text);
  void logRegKeyAction(int created, const char* place, const char* path);
  void logRegValAction(const char* place, const char* path, const char* name);
  // The count line and one VAR line per variable that may go to the log.
  int writeVariableBlock(QUtils::PConsole* console);
  // Replaces the variable block of the placed log with the current values,
  // through "templog.log" beside it. Throws InstallerError.
  void rewriteVariableBlock();
  // Sets every variable of the block of an open log. Throws InstallerError;
  // 1 if some VAR line didn't parse, else 0.
  int readLogVariables(FILE* file);
  // readLogVariables on the log at `path`, or with null on this product's
  // registered log. Throws InstallerError.
  void loadLogVariables(const char* path);
  // One variable of a log that isn't open: 1 and the value (cut to size - 1)
  // if found, else 0. Never throws.
  int readLogVariable(const char* path, const char* name, char* out, int size);
  // Reads one line of at most size - 1 bytes, line end included; the rest
  // of a longer line is passed over. False at the end of the file.
  static bool readLogLine(FILE* file, char* buffer, int size);
  // Removes white space (line ends, TABs, blanks) from the end of a line.
  static void stripLogLine(char* line);
  // True if `line` begins with `tag` (case-sensitive; no TAB needed behind).
  static bool hasLogTag(const char* line, const char* tag);
  // The field behind the next run of TABs, or the end of the text.
  static const char* nextLogField(const char* field);
  // Positions an open log at its first action line: behind the variable
  // block, or at the start when no intact block is found. True if found.
  static bool seekActionLines(FILE* file);

  // ---- Environment, INI and modify-file actions (environment_actions.cpp) ----
  // Stages of installFiles: each runs the template's actions of its family
  // and writes one line per change to `console`, the action log (null: the
  // changes are made but not logged). 0, or 1 if an action failed.
  int applyEnvironmentActions(QUtils::PConsole* console, InstallerUI* ui);
  int applyIniActions(QUtils::PConsole* console, InstallerUI* ui);
  int applyModifyFileActions(QUtils::PConsole* console, InstallerUI* ui);
  // The reverses of the uninstaller, each given a log line without its tag.
  // A failure is reported to errorList and `ui` by the reverse itself.
  // True if the change was undone.
  virtual bool undoEnvironment(const char* line, InstallerUI* ui);
  virtual bool undoIniChange(const char* line, InstallerUI* ui);
  virtual bool undoModifyFile(const char* line, InstallerUI* ui);
  // Deletes the INI files that the undone log says its actions made
  // (undoIniChange gathers them in newIniFiles), each only if no key is
  // left in it.
  void removeNewIniFiles(InstallerUI* ui);
  // One environment action: `mode` 1 Replace, 2 Append, 3 Insert (others
  // only give NONE). `out` receives the log form; the work message goes to
  // `ui` (may be null), a failure also to errorList. True on success.
  virtual bool setEnvironment(const char* name, const char* value, int mode, char* out, int outSize, InstallerUI* ui,
                              bool isPath);
  // One INI action; only `mode` 1 (Add) acts. A null `beforeKey` replaces
  // the key in place; any other moves it before that key, or to the end of
  // its section. Reports as setEnvironment does.
  virtual bool setIniValue(const char* file, const char* section, const char* key, const char* value, int mode,
                           char* out, int outSize, InstallerUI* ui, bool isPath, const char* beforeKey);
  // Adds the lines of `modificationFile` after every run of the lines it
  // looks for in `target` (`mode` 1; others do nothing and succeed). The
  // target is replaced only by a complete new version. True on success.
  virtual bool modifyFile(const char* target, const char* modificationFile, int mode, char* out, int outSize,
                          InstallerUI* ui);
  // (The machine-wide environment store is read and written through the
  // platform operations.)
  static constexpr const char* kEnvironmentKey = "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
  // The system's reading of an INI value: true if the key has a value that
  // isn't empty (cut to `size` - 1 bytes).
  virtual bool readProfileValue(const char* file, const char* section, const char* key, char* out, int size);
  // Whether two names lead to one directory, found by a probe file written
  // into `second` and looked for in `first`. False if `second` can't take it.
  bool isSameDirectory(const char* first, const char* second);
  // Whether `path` (quotes around it dropped) is the same directory as a
  // non-empty item of the list.
  bool isPathInList(const char* path, const char* list);
  // Whether a value of a key of the INI file's section is the directory `path`.
  bool sectionHasPath(const char* file, const char* section, const char* path);

  // ---- Shortcuts, registry actions and firewall (shortcut_actions.cpp) ----
  // (runRegistryAction: registry_actions.cpp; the firewall:
  // firewall_actions.cpp.)
  // A port exception as the firewall stage hands it to the platform: the
  // number, the rule's name, and the protocols (kFirewallTcp, kFirewallUdp).
  struct FirewallPort {
    uint32_t port;
    char name[512];
    uint8_t protocols;
  };
  static const uint8_t kFirewallTcp = 1;
  static const uint8_t kFirewallUdp = 2;
  // (Links and firewall rules are made by the platform operations.)
  // The end of every createShortcut: the log form on success, the work line
  // to `ui` (may be null) and a failure to errorList. Gives `made`.
  bool reportShortcut(bool made, const char* linkPath, char* out, int outSize, InstallerUI* ui);
  // Reads the removal text of a logged port: "PORT" (both protocols) or
  // "PROTOCOLS PORT", the protocols a ';' list of TCP and UDP in any case.
  // False for any other number of words; a mask of 0 stays 0.
  static bool parsePortRemovalText(const char* text, uint32_t* outPort, uint8_t* outProtocols);
  // Stages of installFiles, as above. Shortcuts: 0 or 1; firewall: 0 or -1.
  int applyShortcutActions(QUtils::PConsole* console, InstallerUI* ui);
  int applyFirewallActions(QUtils::PConsole* console, InstallerUI* ui);
  // Reverses of SHORTCUT and FIREWALL lines, as the reverses above.
  virtual bool undoShortcut(const char* line, InstallerUI* ui);
  bool undoFirewall(const char* line, InstallerUI* ui);
  // Runs the children of the Registry element `element` of the document.
  void runRegistryAction(InstallerUI* ui, int element);

  // ---- Program runs (program_runs.cpp) ----
  // Runs every child of every element named `tag`: programs, documents,
  // file copies, registry actions. `ui` may be null (triggers). -1 for a
  // null tag, else 0: a failed action is logged, never passed on.
  int runTagActions(InstallerUI* ui, const char* tag);
  // Flags of runProgram.
  static constexpr int RUN_DOCUMENT = 1;          // open with the file's associated program
  static constexpr int RUN_WAIT = 2;              // wait for the end; exit code 0 is success
  static constexpr int RUN_AS_ROOT = 4;           // with full rights
  static constexpr int RUN_ASYNCHRONOUS = 8;      // wait on a thread, serving the front end
  static constexpr int RUN_PROGRESS = 16;         // move the overall progress while waiting
  static constexpr int RUN_NO_ERROR_OUTPUT = 32;  // the program's error output is dropped
  static constexpr int RUN_NO_INPUT = 64;         // the program reads the null device, not the terminal
  // (runProgram, a platform operation, starts one program.)

  // ---- Dialog flow (dialog_flow.cpp) ----
  // The walk over the wizard's pages, `count` pages forward or back. Work
  // happens as a side effect of entering pages with certain names.
  int nextDialog(InstallerUI* ui, int count) override;
  int previousDialog(InstallerUI* ui, int count) override;
  int shiftDialog(InstallerUI* ui, int count) override;
  int enterDialog(int dialog, InstallerUI* ui) override;
  int enterSubDialog(int dialog, int subDialog, InstallerUI* ui) override;
  // The work of the page `record` at (dialog, subDialog), chosen by its name.
  // 1 if the page goes on by itself (AutoNext, PostInstall), else 0.
  int handleSpecialDialog(int dialog, int subDialog, InstallerUI* ui, DIALOGINFO* record);
  int checkDialogCondition(InstallerUI* ui) override;
  void cancel(InstallerUI* ui) override;
  bool canGoBack() override;
  bool hasWorkRun() override { return workDialog >= 0; }
  void updateTask(InstallerUI* ui, int dialog, int task, int state) override;
  void updateTasks(InstallerUI* ui) override;
  // The work that pages start: removeOlderInstallations is in defaults.cpp,
  // installFiles in install_files.cpp, uninstall and PrepareUninstall in
  // uninstall.cpp, revertInstallation in revert.cpp.
  virtual int removeOlderInstallations(InstallerUI* ui);
  virtual int installFiles(InstallerUI* ui);
  virtual int uninstall(InstallerUI* ui, const char* backupPath);
  virtual int revertInstallation(InstallerUI* ui);
  virtual int PrepareUninstall(InstallerUI* ui, const char* backupPath);
  // registerApplication and unregisterApplication: registration.cpp.

  // ---- Configuration export (config_export.cpp) ----
  // The work of the "PostInstall" page: the PostInstall action section, the
  // action log's variable block, and the configuration file: at
  // exportConfigPath when one was asked for (any run), else config.xml
  // beside the program for a console run with a person at it (not one from
  // a file or with -auto). Runs once; 0.
  virtual int runPostInstall(InstallerUI* ui);
  // Writes the variables that a configuration file may hold, in store order,
  // as a DefValues document. A variable that still has the value its
  // template entry gives is written as that entry (its expression, or its
  // registry place), so that the file serves another machine as it stands;
  // any other value is written as it is. 0, or non-zero when it couldn't be
  // written.
  int writeConfigFile(const char* path);
  // The template's DefValues entry that gives `name` its default: the
  // last one whose Condition holds. -1 without one.
  int findDefaultEntry(const char* name);
  // Whether `value` is what the template's entry gives now: a "value"
  // entry's expression, or a "registry" entry's registry value.
  bool isTemplateDefault(int entry, const char* value);
  // Where -exportConfig asked for the configuration file; empty: nowhere.
  char exportConfigPath[1560] = "";
  // Set for a run without a person at it (-auto, -configFile): it writes
  // no configuration file unless asked, and the programs it starts read
  // nothing from the terminal.
  bool unattended = false;

  // ---- Values from the command line (defaults.cpp) ----
  // -NAME=value options of an installation: each sets the template
  // variable NAME once the template's defaults and a configuration file
  // are read, as a configuration file's entry would, and the variables
  // that follow it are recalculated. A name that the template doesn't
  // define ends the run (exit code 4). NAME is matched exactly, else
  // without regard to case when that finds one variable only.
  struct CommandLineValue {
    std::string name;
    std::string value;
  };
  std::vector<CommandLineValue> commandLineValues;
  // Sets them; 0, or -1 after stopRun for an unknown name.
  int applyCommandLineValues();

  // ---- Upgrade policy (upgrade_policy.cpp) ----
  // Compares this product's version with the registered one's
  // (DisplayVersion) and applies the template's policy, attributes of
  // ProductDesc: IfNewerInstalled "Refuse" (the default: the run ends with
  // a message and exit code 4) or "Allow"; IfSameInstalled "Reinstall"
  // (the default) or "Skip" (the run ends at once with exit code 0). Versions
  // compare number by number. 0 to go on; -1 after stopRun.
  int applyUpgradePolicy(InstallerUI* ui);
  // -1, 0 or 1 as version `a` is older than, the same as or newer than `b`:
  // dotted numbers compared one by one, a missing number counting as 0, and
  // text that isn't a number compared as text.
  static int compareVersions(const char* a, const char* b);

  // ---- The run's outcome and result log (run_outcome.cpp) ----
  // What the run did, noted by the work as it runs; getExitCode turns it
  // into the process's exit code (exit_codes.h) and the words of the result
  // log's last line.
  struct Outcome {
    int stopCode = -1;            // set by stopRun: the run ended before or instead of its work
    char stopReason[1024] = "";   // and why
    bool installFailed = false;   // the file stage reported errors that weren't let through
    bool errorsIgnored = false;   // ... or -ignoreErrors=1 let them through
    bool workErrors = false;      // another step failed: an older installation's removal, the
                                  // registration, the uninstallation
    bool reverted = false;        // a failed installation was undone
    bool revertFailed = false;
    bool logPlaced = false;       // this run put its action log in its place
  };
  Outcome outcome;
  // The result log (not owned); null when there is none.
  ResultLog* resultLog = nullptr;
  // A step of the run: a line in the result log and in the debug log.
  void note(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Ends the run with `code` and the reason; the wizard doesn't start, or
  // ends. Noted as a step.
  void stopRun(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
  // Where the result log of an installation stands when no -log named it:
  // "<product>-install.log" in the folder of the action log. False when the
  // template names no action log or no product.
  bool getResultLogPath(char* buffer, int size);
  // The exit code of the run, with `runResult` what runInstallation gave,
  // and its meaning in `text` (cut to `size`).
  int getExitCode(int runResult, char* text, int size) override;

  // ---- Platform operations ----
  // What the engine asks of the system. A subclass per system gives the
  // bodies (Wini: platform/windows, LinuxInstaller: platform/linux); the
  // base has no system behind it, so a base body that can't do the work
  // fails, and one that only looks finds nothing. The base bodies of
  // getTempFileName and openHelp are in exchange.h.

  // Files and the configuration.
  // The configuration file's path; empty when there is none. Always true.
  virtual bool getConfigFile(char* buffer, int size) = 0;
  int getTempFileName(char* buffer, int size) override { return -1; }
  void openHelp(InstallerUI* ui) override {}
  // Copies a file whole, replacing the target. True if it all arrived.
  virtual bool copyFile(const char* from, const char* to);
  // The name under which a file entry is written in its directory: the
  // entry's fileName, unless the system drops a ".exe" that StripExeExt asks
  // to drop. Decided before the write, so the action log names the file
  // that is really there.
  virtual void getInstalledFileName(const FILENAMES& entry, char* buffer, int size);
  // Called for every file entry that stands in place, written now or found
  // identical: a system with permission bits marks Executable entries.
  virtual void onFileWritten(const char* path, const FILENAMES& entry) {}
  // Frees and deletes a file that can't be replaced, taking it for a
  // running program: one whose path holds ".exe" is ended if it runs, and
  // waited for up to `timeoutMs` while `ui` (may be null) pumps events.
  // True if the file is gone. A system whose running programs don't hold
  // their files' names can free the name without ending the program.
  virtual bool deleteRunningFile(InstallerUI* ui, const char* path, int timeoutMs);

  // Programs and processes.
  // Starts `path` with `arguments` (null or empty: none) in `workDir`
  // (null: the installer's own), or with RUN_DOCUMENT opens it. With
  // RUN_ASYNCHRONOUS it waits while `ui` (may be null) pumps events, pausing
  // `intervalMs` between polls. True if the program started and, where it
  // was waited for, ended with 0. The base starts nothing and fails.
  virtual bool runProgram(const char* path, const char* arguments, int flags, const char* workDir, InstallerUI* ui,
                          int intervalMs);
  // Whether a program with this executable name (with extension, compared
  // without case) runs; with a directory, only one whose path contains it.
  // The base sees no programs: false.
  virtual bool isAppRunning(const char* name, const char* directory) { return false; }
  // Ends the first process running that executable; with asService its
  // program is first asked to stop itself. True if one was ended; the base
  // ends none.
  virtual bool terminateApp(const char* name, bool asService) { return false; }
  // This process's id, and whether a process of that id runs. The base has
  // no id (0) and sees no process.
  virtual long getProcessId() { return 0; }
  virtual bool isProcessRunning(long pid) { return false; }
  // Runs the registered uninstaller of `name` (null: this product) in its
  // own process and waits for it through the two hand-over events. True if
  // the process started; the base starts none and fails.
  virtual bool runRegisteredUninstaller(const char* name) { return false; }
  // A new engine of the same platform class, made as this one was; null
  // where the system has none. The caller owns it.
  virtual Installer* createEngine() { return nullptr; }
  // Removes one registered older installation in this process, through a
  // second engine object (uninstall_application.cpp). The result of its
  // uninstall, or -1 without a second engine; may throw GenericError.
  virtual int uninstallApplication(InstallerUI* ui, const char* application);

  // Where the engine keeps its state between runs.
  // The system's registry; null where there is none (every read fails).
  virtual RegistryAccess* getRegistry() { return nullptr; }
  // The directory of the journals (made when a journal is written); false
  // where the system keeps none, as the base does.
  virtual bool getJournalDirectory(char* buffer, int size) { return false; }

  // The machine-wide environment store. getEnvironmentValue gives the
  // length of a text value (the value itself only if it is shorter than
  // `size`), or -1 if there is no such text value. The base keeps the
  // variables in the registry key kEnvironmentKey of HKEY_LOCAL_MACHINE;
  // setEnvironmentValue keeps the type (REG_SZ or REG_EXPAND_SZ) that a
  // value has, and makes a new one REG_EXPAND_SZ only if it holds a '%'.
  // The setters give false when the value couldn't be stored or removed.
  virtual int getEnvironmentValue(const char* name, char* out, int size);
  virtual bool setEnvironmentValue(const char* name, const char* value);
  virtual bool deleteEnvironmentValue(const char* name);
  // Tells running programs that the machine-wide environment changed. True
  // if they were told, or there is nobody to tell; the base can't tell
  // anybody and gives false.
  virtual bool notifyEnvironmentChange() { return false; }
  // What separates the items of a list variable such as PATH.
  virtual char getEnvironmentListSeparator() { return ';'; }
  // Whether an empty item of such a list is harmless. Where it is (Windows),
  // undoing an appended item leaves its separator behind, as the log holds
  // only the item; where an empty item means something (on Linux, the
  // current directory), the separator goes with the item.
  virtual bool allowsEmptyListItems() { return true; }
  // The value that a list variable has for the system's programs while the
  // store doesn't hold it: a new list of that name starts with it. Empty
  // where the store holds every value (Windows).
  virtual std::string getUndefinedListValue(const char* name) { return std::string(); }

  // Shortcuts and the firewall.
  // Makes the link of `type` ("File", "URL", "Uninstall", "Symlink") at
  // `linkPath`, reports it through reportShortcut and gives its log form
  // ("CREATE" TAB link path) in `out`. The base makes nothing and fails.
  virtual bool createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                              const char* arguments, const char* startPath, char* out, int outSize,
                              InstallerUI* ui);
  // Rules of the firewall for a program and for a port, made and removed.
  // True on success; the base changes nothing and fails.
  virtual bool addFirewallApplication(const char* path, const char* name);
  virtual bool removeFirewallApplication(const char* path);
  virtual bool addFirewallPort(const FirewallPort& port);
  virtual bool removeFirewallPort(const char* text);
  // Whether the system's firewall filters by program, and whether a
  // firewall filters ports at all now. Where one doesn't, the operations
  // above succeed without a change (the platform logs why), and the user is
  // told that no rule was needed.
  virtual bool firewallFiltersPrograms() { return true; }
  virtual bool firewallFiltersPorts() { return true; }

  // The value of the built-in WX_PORT: the toolkit's port name.
  virtual const char* getToolkitPort() { return "win"; }

  // ---- Members ----
  Package package;  // files, runFlags, actionLogFile
  QUtils::PXML document;
  QUtils::PList<INSTALLTYPE> installTypes;
  QUtils::PList<FILESET> fileSets;
  QUtils::PList<FILENAMES> fileNames;
  QUtils::PStringPool fileNameTexts;  // the texts of fileNames
  QUtils::PList<VARIABLE> variables;
  char controlVariables[kControlVariableCount][200];
  int guiInstall;
  // Whether the user asked for the window (-gui not 0): such a run exports
  // no configuration, also when it fell back to the console for want of a
  // display. Set by whoever makes the engine for a run.
  int graphicalRequested = 0;
  int suspendRecalculation;
  char installerDir[1560];
  QUtils::Table<DIALOGINFO> dialogs;
  QUtils::PFileConsole actionLogWriter;
  QUtils::Table<QUtils::CharString>* errorList;
  bool ownsErrorList;
  int currentDialog;
  int currentSubDialog;
  // The last page entered whose work changed the machine; -1 before any.
  // The walk doesn't go back to it or before it.
  int workDialog = -1;
  int workSubDialog = -1;
  int uiState;
  int cancelled;
  int finished;
  int failed;
  int previousInstallationFound;
  int olderInstallationsDone;  // the "Uninstall" work ran at least once
  int olderInstallationRemoved = 0;  // and removed this product's older installation
  int postInstallDone;
  int preUninstallDone;
  int uninstallPrepared;
  char uninstallBackupFile[1560];
  // Set once checkDestinations refused the run's destinations (and said so).
  bool destinationsRefused = false;
  // Why the uninstallation refuses to start (an untrusted backup); empty
  // while it may.
  char uninstallRefusal[1800] = {0};
  char installedBackupFile[1560];
  char installedDirListFile[1560];
  // The space of an older installation's files, held from their removal
  // until this installation's files are written: making thousands of files
  // right after freeing thousands is slow on some file systems, and the
  // freeing itself goes faster many at a time. Null until an older
  // installation is removed.
  std::unique_ptr<QUtils::RemovedFiles> olderFilesSpace;
  // Where uninstall() holds the space of the files it deletes, for the
  // engine that removes an older installation; null: uninstall() frees it
  // itself before it returns.
  QUtils::RemovedFiles* removedFilesSpace = nullptr;
  QUtils::Table<COPIEDFILE> copiedFiles;
  QUtils::Table<EXCLUDEINFO> excludes;
  uint32_t theme[kThemeColourCount];
  ColourMap themeGroups;
  unsigned char usesColourTheme;
  QUtils::PConsole* logConsole;
  // The one running-programs condition that every "RunningApps" page shares.
  std::shared_ptr<DlgCondition> runningApps;
  // Set when runInstallation hands over to the front end: a run that failed
  // before never showed the user anything.
  bool wizardStarted = false;
};

#endif  // QLUX_ENGINE_INSTALLER_H_
