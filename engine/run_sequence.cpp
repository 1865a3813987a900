// The engine's life: construction, loading, the run from the loaded package
// to the end of the wizard, and cleanup.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "engine/exit_codes.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/errors.h"
#include "foundation/file_stream.h"
#include "foundation/files.h"
#include "foundation/stream.h"
#include "foundation/system_error.h"
#include "foundation/text.h"

Installer::Installer()
    : installTypes(5), fileSets(5), fileNames(5), variables(100), guiInstall(0), suspendRecalculation(0),
      dialogs(16), errorList(new QUtils::Table<QUtils::CharString>(100)), ownsErrorList(true), currentDialog(-1),
      currentSubDialog(-1), uiState(0), cancelled(0), finished(0), failed(0), previousInstallationFound(0),
      olderInstallationsDone(0), postInstallDone(0), preUninstallDone(0), uninstallPrepared(0), copiedFiles(0),
      excludes(100), usesColourTheme(0), logConsole(nullptr) {
  std::memset(controlVariables, 0, sizeof controlVariables);
  installerDir[0] = uninstallBackupFile[0] = installedBackupFile[0] = installedDirListFile[0] = 0;
  for (int i = 0; i < kThemeColourCount; i++) theme[i] = kNoColour;
  package.runFlags = kRunFlagBackup;
  actionLogWriter.flags = 0;  // the action log's lines carry no number and no time
}

Installer::~Installer() {
  if (ownsErrorList) delete errorList;
}

void Installer::log(const char* format, ...) {
  if (!logConsole) return;
  char line[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  logConsole->printf("%s", line);
}

void Installer::addError(const char* text) {
  if (!errorList || !text) return;
  char cut[1560];
  QUtils::copyText(cut, text, sizeof cut);
  errorList->add(QUtils::CharString(cut));
  if (resultLog) resultLog->printf("%s", cut);
}

void Installer::shareErrorList(Installer* owner) {
  if (ownsErrorList) delete errorList;
  errorList = owner->errorList;
  ownsErrorList = false;
}

int Installer::openPackage(const char* fileName, uint32_t offset, int flags) {
  package.logConsole = logConsole;
  return package.openPackage(fileName, offset, flags);
}

QUtils::RefArray<unsigned char> Installer::getFileData(const char* key, uint32_t* outSize) {
  return package.getFileData(key, outSize);
}

int Installer::setInstallerDir(const char* path) {
  if (!path) return 1;
  QUtils::copyText(installerDir, path, sizeof installerDir);
  return 0;
}

int Installer::getInstallerDir(char* buffer, int size) {
  if (!buffer) return 1;
  if (installerDir[0]) {
    QUtils::copyText(buffer, installerDir, size);
    return 0;
  }
  // The folder the user started the program from: through a link to the
  // installer, the link's folder, where config.xml belongs too.
  if (!QUtils::getLaunchDirectory(buffer, size)) {
    if (size > 0) buffer[0] = 0;
    return 1;
  }
  return 0;
}

bool Installer::copyFile(const char* from, const char* to) { return QUtils::copyFile(from, to) == 0; }

namespace {

// Reads a whole file into `out` (with a NUL behind it). False on failure,
// and for a file that another user wrote or could have: the template copy
// of an uninstallation says what to delete.
bool readWholeFile(const char* path, QUtils::RefArray<unsigned char>& out, uint32_t* outSize) {
  QUtils::PFileStream stream;
  if (stream.openFile(path, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist) != 0) return false;
  if (stream.checkTrust() != QUtils::kTrustedFile) return false;
  int64_t size = stream.size();
  if (size < 0 || size > 0x7FFFFFF0) return false;
  QUtils::RefArray<unsigned char> data(static_cast<uint32_t>(size) + 1);
  uint32_t got = 0;
  if (size > 0 && (stream.read(data.get(), static_cast<uint32_t>(size), &got) != 0 || got != size)) return false;
  data.get()[size] = 0;
  out = data;
  *outSize = static_cast<uint32_t>(size);
  return true;
}

// Finds the journal that a killed run of this product left, tells the user,
// and undoes or finishes that run's work.
void recoverBeforeStart(Installer* engine, InstallerUI* ui) {
  char product[512];
  if (engine->getProductName(product, sizeof product) != 0) return;
  engine->log("Checking for an interrupted run");
  Journal found;
  char message[700];
  int state = engine->findInterruptedRun(product, &found, message, sizeof message);
  if (state == 0) return;
  if (message[0]) {
    engine->log("%s", message);
    ui->showMessage(message, kMessageNotice);
  }
  if (state == Installer::kInterruptedRunFound) engine->recoverInterruptedRun(found);
}

// The template's text: from the package, or for an uninstallation from the
// file that the action log's first line names, after the log's variables.
// False after stopRun.
bool readTemplateText(Installer& engine, QUtils::RefArray<unsigned char>& text, uint32_t* textSize) {
  Package& package = engine.package;
  if (!package.actionLogFile) {
    engine.log("Decompressing installation file");
    int index = package.findFile("install.xml");
    if (index >= 0 && package.extractFile(index, textSize, text, nullptr) == 0) return true;
    engine.log("ERROR: Decompressing installation file");
    engine.log("ERROR: Cannot continue due to error(s). Exiting!");
    engine.stopRun(kExitDamaged, "the installer is damaged: its package holds no readable install.xml");
    return false;
  }
  engine.log("Reading installation file name from action log");
  char line[1560];
  if (!std::fgets(line, sizeof line, package.actionLogFile)) {
    engine.log("ERROR: Could not obtain installation file from action log. Exiting!");
    engine.stopRun(kExitFailed, "the action log names no installation file: nothing was removed");
    return false;
  }
  engine.log("Reading previous installation variables");
  if (engine.readActionLogVariables() != 0) engine.log("ERROR: Failed to read variables from log");
  size_t length = std::strlen(line);
  while (length > 0 && (line[length - 1] == ' ' || line[length - 1] == '\t' || line[length - 1] == '\r' ||
                        line[length - 1] == '\n'))
    line[--length] = 0;
  engine.log("Reading installation file");
  if (readWholeFile(line, text, textSize)) return true;
  int error = QUtils::lastSystemError();
  engine.log("ERROR: Failed reading installation file");
  engine.log("ERROR: Cannot continue due to error(s). Exiting!");
  char reason[256];
  QUtils::describeSystemError(error, reason, sizeof reason);
  engine.stopRun(kExitFailed,
                 "the installation file %s that the action log names can't be read (%s): nothing was removed", line,
                 reason);
  return false;
}

// The exit code of a template that can't be read: the installer's own
// damage; in an uninstallation it is the saved copy that the log names.
int damagedTemplateCode(bool uninstalling) { return uninstalling ? kExitFailed : kExitDamaged; }

// Parses the template and reads what the wizard is made of: the product,
// the file sets, the colour theme of a graphical run, and the dialogs.
// False after stopRun.
bool loadTemplate(Installer& engine, const QUtils::RefArray<unsigned char>& text, uint32_t textSize) {
  bool uninstalling = engine.package.actionLogFile != nullptr;
  engine.log("Parsing installation file");
  QUtils::PBufStream stream;
  stream.setBuffer(text.get(), textSize);
  int damaged = damagedTemplateCode(uninstalling);
  if (engine.document.load(&stream) != 0) {
    engine.log("ERROR: Parsing installation file. Exiting!");
    engine.stopRun(damaged, "the installation file can't be parsed");
    return false;
  }
  engine.log("Getting product description");
  if (engine.readProductDesc() != 0) {
    engine.stopRun(damaged, "the installation file has no product description");
    return false;
  }
  engine.log("Getting file sets");
  if (engine.readFileSets() != 0) {
    engine.stopRun(damaged, "the installation file's file sets can't be read");
    return false;
  }
  if (engine.guiInstall) {
    engine.log("Getting GUI colour theme info");
    engine.readColourTheme();
  }
  engine.log("Getting UI dialogs");
  if (engine.readDialogs(uninstalling) != 0) {
    engine.stopRun(damaged, "the installation file has no %s", uninstalling ? "UninstallDialogs" : "Dialogs");
    return false;
  }
  return true;
}

// The result log's first line: what starts, of which product and version.
void noteStart(Installer& engine) {
  char product[512];
  char version[64];
  if (engine.getProductName(product, sizeof product) != 0) product[0] = 0;
  if (engine.getVersion(version, sizeof version) != 0) version[0] = 0;
  engine.note("%s %s of %s %s", engine.package.actionLogFile ? "Uninstallation" : "Installation", "started", product,
              version);
}

// prepareValues' answer when the wizard may start.
const int kGoOn = 1;

// Everything the wizard's first page needs: the control variables and
// excludes, the theme applied, an interrupted run recovered, the previous
// installation's values, the defaults, the command line's values and the
// upgrade policy. kGoOn, or the result that runInstallation gives.
int prepareValues(Installer& engine, InstallerUI* ui) {
  bool uninstalling = engine.package.actionLogFile != nullptr;
  engine.log("Getting control variables names");
  if (engine.readControlVariables() != 0)
    engine.log("WARNING: There are no control variable names provided in the installation xml!");
  engine.readExcludes();
  if (engine.guiInstall) {
    engine.log("Initializing GUI colour theme");
    engine.applyColourTheme();
  }
  // A run of this product that a killed process left half done is undone
  // (or finished) first, so that what follows sees the machine as that run
  // found it. An uninstaller does this in its first stage.
  if (!uninstalling) recoverBeforeStart(&engine, ui);
  engine.log("Checking for previous installations");
  // Ignoring the result on purpose: what it found is in
  // previousInstallationFound, and a product without a name has no
  // previous installation.
  engine.checkPreviousInstallation();
  if (engine.previousInstallationFound) {
    engine.setControlVariable(kCtlShouldUninstall, "1");
    engine.log("Initializing previous install's variable values from log");
    try {
      engine.readPreviousInstallationValues();
    } catch (const QUtils::GenericError& e) {
      engine.log("%s", e.getMessage());
    }
  }
  engine.log("Initializing default values");
  if (engine.readDefaults(ui) != 0) {
    engine.log("ERROR: Parsing XML Default values (This may indicate wrong configuration file format)");
    if (engine.outcome.stopCode < 0)
      engine.stopRun(damagedTemplateCode(uninstalling), "the installation file has no DefValues");
    return -1;
  }
  if (!uninstalling && engine.applyCommandLineValues() != 0) return -1;
  if (engine.previousInstallationFound) engine.setControlVariable(kCtlPreviousInstallation, "1");
  if (!uninstalling && engine.applyUpgradePolicy(ui) != 0) return engine.outcome.stopCode == kExitSuccess ? 0 : -1;
  return kGoOn;
}

}  // namespace

int Installer::runInstallation(InstallerUI* ui, QUtils::PConsole* log) {
  logConsole = log;
  package.logConsole = log;
  if (!ui) {
    this->log("No installer UI handler specified");
    return -1;
  }
  guiInstall = ui->isGraphical() ? 1 : 0;
  QUtils::RefArray<unsigned char> text;
  uint32_t textSize = 0;
  if (!readTemplateText(*this, text, &textSize) || !loadTemplate(*this, text, textSize)) return -1;
  noteStart(*this);
  int prepared = prepareValues(*this, ui);
  if (prepared != kGoOn) return prepared;

  this->log("Starting installation UI");
  currentDialog = 0;
  wizardStarted = true;
  int result = ui->run();
  this->log("Ending installation UI");
  ui->finish();
  if (result != 0) this->log("ERROR: There were errors during the installation");
  return result;
}

int Installer::cleanup() {
  package.release();
  if (olderFilesSpace) olderFilesSpace->release();
  if (installedBackupFile[0]) QUtils::deleteFile(installedBackupFile);
  if (installedDirListFile[0]) QUtils::deleteFile(installedDirListFile);
  for (int i = 0; i < copiedFiles.getCount(); i++) {
    if (copiedFiles[i].temporary.getText()) QUtils::deleteFile(copiedFiles[i].temporary.getText());
  }
  // The run's work has ended: its journal goes last, after every file it names.
  dropJournal();
  return 0;
}
