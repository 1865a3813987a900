// The two uninstaller stages. The first is a launcher: it copies the
// program and the action log into the temporary directory and starts the
// copy, so that the uninstaller never runs from the directory it is about to
// delete. Before it copies the log it recovers a run of the product that a
// killed process left half done (journal.h), so that the log describes the
// machine again. The second runs the uninstallation from the copy and
// signals a waiting launcher at its start and at its end; at its end the
// copy removes itself (at once on Linux, when the system restarts on
// Windows).
//
// With -wait the first stage stays until the second has ended and gives
// its exit code, as a script or a deployment tool wants it: the registered
// QuietUninstallString asks for that. It then removes the copies itself.
#include <cstdio>
#include <cstring>
#include <string>

#include "app/entry.h"
#include "app/front_end.h"
#include "app/messages.h"
#include "engine/exit_codes.h"
#include "foundation/files.h"
#include "foundation/system_error.h"
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

// Undoes, or finishes, a half-done run of the product, telling the user
// first. True if that finished an uninstallation, so that the log the
// registered command names is gone and nothing is left to uninstall.
bool recoverInterruptedRun(Installer* engine, const RunOptions& options) {
  Journal found;
  char message[700];
  if (!options.uninstallApp || engine->findInterruptedRun(options.uninstallApp, &found, message, sizeof message) != 1)
    return false;
  if (message[0]) {
    engine->log("%s", message);
    if (options.gui && Host::hasMessageBox()) {
      Host::showMessageBox(message, QLUX_MESSAGE_TITLE, Host::kIconInformation);
    } else if (!options.quiet) {
      std::printf("%s\n", message);
      std::fflush(stdout);
    }
  }
  engine->recoverInterruptedRun(found);
  return found.kind == Journal::kUninstall && !QUtils::fileExists(options.uninstall);
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
  if (options.log) {
    QUtils::appendText(out, " -log=\"", size);
    QUtils::appendText(out, options.log, size);
    QUtils::appendText(out, "\"", size);
  }
}

int runFirstStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* text) {
  log->printf("Uninstalling. Uninstall file: %s", options.uninstall);
  char program[QUtils::kMaxPath];
  if (!QUtils::getModulePath(program, sizeof program)) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to obtain module file name. Exiting!");
    *text = "the uninstaller can't find its own program file";
    return kExitFailed;
  }
  char tempDirectory[QUtils::kMaxPath];
  if (!QUtils::getTempDirectory(tempDirectory, sizeof tempDirectory)) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to obtain temporary path for uninstaller log. Exiting!");
    *text = "the uninstaller has no temporary folder";
    return kExitFailed;
  }
  char logCopy[QUtils::kMaxPath];
  char programCopy[QUtils::kMaxPath];
  tempName(logCopy, sizeof logCopy, tempDirectory, "qluxuninst.log");
  tempName(programCopy, sizeof programCopy, tempDirectory, "qluxuninst.dll");

  // The program is copied first: the recovery below may put another
  // version's file where this program was started from.
  int error = Host::copyFile(program, programCopy);
  if (error != 0) {
    log->printf("Error copying file %s - Error Number = %d", programCopy, error);
    Host::signalNamedEvent(kEndEvent);
    char reason[256];
    QUtils::describeSystemError(error, reason, sizeof reason);
    *text = std::string("the uninstaller can't copy itself to ") + programCopy + ": " + reason;
    return kExitFailed;
  }
  if (recoverInterruptedRun(engine, options)) {
    log->printf("The interrupted uninstallation was finished; nothing is left to uninstall");
    Host::signalNamedEvent(kEndEvent);
    *text = "uninstalled: an interrupted uninstallation was finished";
    return kExitSuccess;
  }
  error = Host::copyFile(options.uninstall, logCopy);
  if (error != 0) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to copy uninstaller log to %s. Exiting!", logCopy);
    char reason[256];
    QUtils::describeSystemError(error, reason, sizeof reason);
    *text = std::string("the action log ") + options.uninstall + " can't be read: " + reason + "; nothing was removed";
    return kExitFailed;
  }

  char commandLine[4096];
  buildUninstallerCommandLine(commandLine, sizeof commandLine, programCopy, logCopy, options);
  log->printf("Calling uninstaller process. Command line: %s", commandLine);
  if (!options.wait) {
    if (Host::startProcess(commandLine, tempDirectory) != 0) {
      Host::signalNamedEvent(kEndEvent);
      log->printf("ERROR: Unable to create uninstall process. Exiting!");
      *text = "the uninstaller's second stage can't be started";
      return kExitFailed;
    }
    return kExitSuccess;  // the second stage writes the result log
  }

  // Waiting, this program would keep its own file, and so its folder, from
  // going: it steps aside first, and comes back if the uninstallation
  // failed, since the product's entry still names it.
  char setAside[QUtils::kMaxPath];
  bool movedAside = Host::setAsideOwnProgram(tempDirectory, setAside, sizeof setAside);
  if (movedAside) log->printf("The uninstaller's own program waits as %s", setAside);
  int code = kExitFailed;
  error = Host::runProcess(commandLine, tempDirectory, &code);
  if (error != 0) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to create uninstall process. Exiting!");
    code = kExitFailed;
    *text = "the uninstaller's second stage can't be started";
  }
  log->printf("The second stage ended with exit code %d", code);
  if (movedAside && code != kExitSuccess && code != kExitErrorsIgnored && !QUtils::fileExists(program) &&
      QUtils::renameFile(setAside, program) != 0) {
    log->printf("ERROR: The uninstaller could not be put back as %s", program);
  }
  // The second stage has ended: its copies can go now.
  QUtils::deleteFile(programCopy);
  if (!options.debug) QUtils::deleteFile(logCopy);
  return code;
}

int runSecondStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* text) {
  log->printf("Real uninstall");
  Host::signalNamedEvent(kStartEvent);
  int result = engine->openPackage(options.uninstallFile, 0, options.runFlags | 1);
  // The log copy is this stage's temporary file: should the stage be killed,
  // the run that finishes its work deletes the copy with the journal's files.
  if (!options.debug) engine->beginJournal(Journal::kUninstall).temporaries.push_back(options.uninstallFile);
  InstallerUI* ui = nullptr;
  if (result == 0 && options.gui) {
    ui = createGraphicalFrontEnd(engine, 1, options);
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
  if (result != 0 && !engine->wizardStarted) {
    // Without its template the uninstaller has no page to say so on.
    log->printf("ERROR: %s", QLUX_UNINSTALL_UNREADABLE);
    if (options.gui && Host::hasMessageBox()) {
      Host::showMessageBox(QLUX_UNINSTALL_UNREADABLE, QLUX_MESSAGE_TITLE, Host::kIconError);
    } else {
      std::printf("%s\n", QLUX_UNINSTALL_UNREADABLE);
      std::fflush(stdout);
    }
  }
  char words[1200];
  int code = engine->getExitCode(result, words, sizeof words);
  if (result != 0 && !engine->wizardStarted && engine->outcome.stopCode < 0) {
    code = kExitFailed;
    QUtils::copyText(words, QLUX_UNINSTALL_UNREADABLE, sizeof words);
  }
  *text = words;
  engine->cleanup();
  delete ui;
  if (!options.debug) {
    QUtils::deleteFile(options.uninstallFile);
    // This program is the first stage's copy: it goes too, now or when the
    // system restarts.
    if (!Host::removeOwnProgram()) log->printf("WARNING: The uninstaller's copy could not be removed");
  }
  Host::signalNamedEvent(kEndEvent);
  return code;
}
