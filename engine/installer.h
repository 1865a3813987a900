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
// The operations are implemented in one file per subject: run_sequence.cpp,
// variables.cpp, conditions.cpp, product_data.cpp, file_sets.cpp,
// colour_theme.cpp, dialogs.cpp, defaults.cpp.
#ifndef QLUX_ENGINE_INSTALLER_H_
#define QLUX_ENGINE_INSTALLER_H_

#include <cstdint>

#include "engine/colour_map.h"
#include "engine/dialog_records.h"
#include "engine/exchange.h"
#include "engine/records.h"
#include "foundation/console.h"
#include "foundation/lists.h"
#include "foundation/xml.h"
#include "package/package.h"

class InstallerUI;

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

  bool isActionLogRun() override { return (package.runFlags & 1) != 0; }
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
  int expandVariables(const char* text, char* buffer, int size);
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
  int readDefaults();
  void checkPreviousInstallation();
  bool isPreviousInstallation() override { return previousInstallationFound != 0; }
  // Reads the values block of the open action log into the variables.
  int readActionLogVariables();
  // Reads the values of the installed product's action log (a previous
  // installation); throws GenericError when that log can't be read.
  void readPreviousInstallationValues();

  // ---- Platform operations: a subclass per system gives the bodies ----
  int getTempFileName(char* buffer, int size) override { return -1; }
  void openHelp(InstallerUI* ui) override {}
  // The configuration file's path; empty when there is none. Always true.
  virtual bool getConfigFile(char* buffer, int size) = 0;
  // The value of the built-in WX_PORT: the toolkit's port name.
  virtual const char* getToolkitPort() { return "win"; }
  // Copies a file whole. True if both opened and nothing failed.
  virtual bool copyFile(const char* from, const char* to);

  // ---- Members ----
  Package package;  // packageData, files, runFlags, actionLogFile
  QUtils::PXML document;
  QUtils::PList<INSTALLTYPE> installTypes;
  QUtils::PList<FILESET> fileSets;
  QUtils::PList<FILENAMES> fileNames;
  QUtils::PList<VARIABLE> variables;
  char controlVariables[kControlVariableCount][200];
  int guiInstall;
  int suspendRecalculation;
  char installerDir[1560];
  QUtils::Table<DIALOGINFO> dialogs;
  QUtils::PFileConsole actionLogWriter;
  QUtils::Table<QUtils::CharString>* errorList;
  bool ownsErrorList;
  int currentDialog;
  int currentSubDialog;
  int uiState;
  int cancelled;
  int finished;
  int failed;
  int previousInstallationFound;
  int olderInstallationsDone;
  int postInstallDone;
  int preUninstallDone;
  int uninstallPrepared;
  char uninstallBackupFile[1560];
  char installedBackupFile[1560];
  char installedDirListFile[1560];
  QUtils::Table<COPIEDFILE> copiedFiles;
  QUtils::Table<EXCLUDEINFO> excludes;
  uint32_t theme[kThemeColourCount];
  ColourMap themeGroups;
  unsigned char usesColourTheme;
  QUtils::PConsole* logConsole;
};

#endif  // QLUX_ENGINE_INSTALLER_H_
