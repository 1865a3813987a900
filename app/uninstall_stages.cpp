// The two uninstaller stages. The first is only a launcher: it copies the
// action log and the program into the temporary directory and starts the
// copy, so that the uninstaller never runs from the directory it is about to
// delete. The second runs the uninstallation from that copy and signals a
// waiting launcher at its start and at its end.
#include <cstring>

#include "app/entry.h"
#include "app/front_end.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/host.h"

namespace {

const char* const kStartEvent = Host::kUninstallerStartEvent;
const char* const kEndEvent = Host::kUninstallerEndEvent;

void tempName(char* out, int size, const char* tempDirectory, const char* name) {
  QUtils::copyText(out, tempDirectory, size);
  char separator[2] = {QUtils::kPathSeparator, 0};
  QUtils::appendText(out, separator, size);
  QUtils::appendText(out, name, size);
}

}  // namespace

void buildUninstallerCommandLine(char* out, int size, const char* programCopy, const char* logCopy,
                                 const RunOptions& options) {
  QUtils::copyText(out, "\"", size);
  QUtils::appendText(out, programCopy, size);
  QUtils::appendText(out, "\" -uninstallFile=\"", size);
  QUtils::appendText(out, logCopy, size);
  QUtils::appendText(out, "\" -uninstallApp=\"", size);
  QUtils::appendText(out, options.uninstallApp, size);
  QUtils::appendText(out, "\"", size);
  if (options.gui == 0) QUtils::appendText(out, " -gui=0", size);
  if (options.quiet) QUtils::appendText(out, " -quiet=1", size);
  if (options.debug) QUtils::appendText(out, " -debug=1", size);
}

int runFirstStage(const RunOptions& options, QUtils::PFileConsole* log) {
  log->printf("Uninstalling. Uninstall file: %s", options.uninstall);
  char program[QUtils::kMaxPath];
  if (!QUtils::getModulePath(program, sizeof program)) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to obtain module file name. Exiting!");
    return -1;
  }
  char tempDirectory[QUtils::kMaxPath];
  if (!QUtils::getTempDirectory(tempDirectory, sizeof tempDirectory)) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to obtain temporary path for uninstaller log. Exiting!");
    return -1;
  }
  char logCopy[QUtils::kMaxPath];
  char programCopy[QUtils::kMaxPath];
  tempName(logCopy, sizeof logCopy, tempDirectory, "qluxuninst.log");
  tempName(programCopy, sizeof programCopy, tempDirectory, "qluxuninst.dll");

  if (Host::copyFile(options.uninstall, logCopy) != 0) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to copy uninstaller log to %s. Exiting!", logCopy);
    return -1;
  }
  int error = Host::copyFile(program, programCopy);
  if (error != 0) {
    log->printf("Error copying file %s - Error Number = %d", programCopy, error);
    Host::signalNamedEvent(kEndEvent);
    return -1;
  }

  char commandLine[4096];
  buildUninstallerCommandLine(commandLine, sizeof commandLine, programCopy, logCopy, options);
  log->printf("Calling uninstaller process. Command line: %s", commandLine);
  if (Host::startProcess(commandLine, tempDirectory) != 0) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to create uninstall process. Exiting!");
    return -1;
  }
  return 0;
}

int runSecondStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log) {
  log->printf("Real uninstall");
  Host::signalNamedEvent(kStartEvent);
  int result = engine->openPackage(options.uninstallFile, 0, options.runFlags | 1);
  InstallerUI* ui = nullptr;
  if (result == 0 && options.gui) {
    ui = createGraphicalFrontEnd(engine, 1);
    if (ui) {
      log->printf("Running uninstallation");
      result = engine->runInstallation(ui, log);
    } else {
      log->printf("ERROR: Unable to start GUI uninstall");
    }
  } else if (result == 0) {
    int ignored = 0;
    ui = createConsoleFrontEnd(engine, 1, options, "autoUninstall", &ignored);
    if (ui) {
      log->printf("Running uninstallation");
      result = engine->runInstallation(ui, log);
    } else {
      log->printf("ERROR: Unable to start Console uninstall");
    }
  }
  engine->cleanup();
  delete ui;
  if (!options.debug) QUtils::deleteFile(options.uninstallFile);
  Host::signalNamedEvent(kEndEvent);
  return result == 0 ? 0 : -1;
}
