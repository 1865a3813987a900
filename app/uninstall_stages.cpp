// The two uninstaller stages. The first is a launcher: it copies the
// action log and the program into a directory of its own in the temporary
// directory (getRunDirectory: made exclusively, mode 0700, so that no other
// user can have put anything at the copies' names or can touch them) and
// starts the copy, so that the uninstaller never runs from the directory it
// is about to delete. A log that another user could have written is
// refused before anything is copied. A run of the product that a killed
// process left half done is recovered (journal.h) once the program is
// copied, since the recovery may put another version's file where this
// program was started from; the log is then copied again, as it now
// stands. A first stage that fails removes what it made. The second stage
// runs the uninstallation from the copy, signals a waiting launcher at its
// start and at its end, and removes the first stage's directory with the
// copies (Linux lets a running program's file go; on Windows its own
// program, and so the directory, go when the system restarts).
//
// With -wait the first stage stays until the second has ended and gives
// its exit code, as a script or a deployment tool wants it: the registered
// QuietUninstallString asks for that. It then removes the directory itself.
#include <cstdio>
#include <cstring>
#include <string>

#include "app/entry.h"
#include "app/front_end.h"
#include "app/messages.h"
#include "engine/exit_codes.h"
#include "foundation/command_line.h"
#include "foundation/files.h"
#include "foundation/system_error.h"
#include "foundation/text.h"
#include "platform/host.h"

namespace {

const char* const kStartEvent = Host::kUninstallerStartEvent;
const char* const kEndEvent = Host::kUninstallerEndEvent;

// Tells the user why the uninstallation didn't start: nothing was changed.
void tellFirstStageRefusal(const RunOptions& options, const char* text) {
  if (options.gui && Host::hasMessageBox()) {
    Host::showMessageBox(text, QLUX_MESSAGE_TITLE, Host::kIconError);
  } else {
    std::printf("%s\n", text);
    std::fflush(stdout);
  }
}

// Undoes, or finishes, a half-done run of the product, telling the user
// first. `outFound` tells whether there was one. True if that finished an
// uninstallation, so that the log the registered command names is gone and
// nothing is left to uninstall.
bool recoverInterruptedRun(Installer* engine, const RunOptions& options, bool* outFound) {
  *outFound = false;
  Journal found;
  char message[700];
  int state = options.uninstallApp ? engine->findInterruptedRun(options.uninstallApp, &found, message, sizeof message) : 0;
  if (state == 0) return false;
  if (message[0]) {
    engine->log("%s", message);
    if (options.gui && Host::hasMessageBox()) {
      Host::showMessageBox(message, QLUX_MESSAGE_TITLE, Host::kIconInformation);
    } else if (!options.quiet) {
      std::printf("%s\n", message);
      std::fflush(stdout);
    }
  }
  if (state != Installer::kInterruptedRunFound) return false;
  *outFound = true;
  engine->recoverInterruptedRun(found);
  return found.kind == Journal::kUninstall && !QUtils::fileExists(options.uninstall);
}

// A log the uninstaller may take its orders from; otherwise the refusal is
// logged and told, `outReason` gets it for the result log, and false.
bool isTrustedLog(const RunOptions& options, QUtils::PFileConsole* log, std::string* outReason) {
  QUtils::FileTrust trust = QUtils::checkFileTrust(options.uninstall);
  // A missing log fails the copy, which says so.
  if (trust == QUtils::kTrustedFile || trust == QUtils::kFileMissing) return true;
  char text[QUtils::kMaxPath + 200];
  QUtils::boundedFormat(text, sizeof text, "The uninstallation can't start: the action log %s %s. Nothing was removed.",
                        options.uninstall, QUtils::describeFileTrust(trust));
  log->printf("ERROR: %s", text);
  tellFirstStageRefusal(options, text);
  *outReason = std::string("the action log ") + options.uninstall + " " + QUtils::describeFileTrust(trust) +
               "; nothing was removed";
  return false;
}

// Ends a first stage that failed: what it made goes, a launcher that waits
// hears of the end, and `reason` becomes the run's result.
int failFirstStage(std::string* text, const std::string& reason) {
  QUtils::removeRunDirectory();
  Host::signalNamedEvent(kEndEvent);
  *text = reason;
  return kExitFailed;
}

// The system's words for the error number `error`.
std::string describeError(int error) {
  char reason[256];
  QUtils::describeSystemError(error, reason, sizeof reason);
  return reason;
}

}  // namespace

void buildUninstallerCommandLine(char* out, int size, const char* programCopy, const char* logCopy,
                                 const RunOptions& options) {
  std::string line = QUtils::quoteCommandWord(programCopy);
  line += " -uninstallFile=" + QUtils::quoteCommandWord(logCopy);
  line += " -uninstallApp=" + QUtils::quoteCommandWord(options.uninstallApp ? options.uninstallApp : "");
  if (options.gui == 0) line += " -gui=0";
  if (options.quiet) line += " -quiet=1";
  if (options.debug) line += " -debug=1";
  if (options.log) line += " -log=" + QUtils::quoteCommandWord(options.log);
  QUtils::copyText(out, line.c_str(), size);
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
  std::string refusal;
  if (!isTrustedLog(options, log, &refusal)) return failFirstStage(text, refusal);
  char runDirectory[QUtils::kMaxPath];
  if (!QUtils::getRunDirectory(runDirectory, sizeof runDirectory)) {
    Host::signalNamedEvent(kEndEvent);
    log->printf("ERROR: Unable to obtain temporary path for uninstaller log. Exiting!");
    *text = "the uninstaller can't make its own folder in the temporary folder";
    return kExitFailed;
  }
  char logCopy[QUtils::kMaxPath];
  char programCopy[QUtils::kMaxPath];
  QUtils::copyText(logCopy, runDirectory, sizeof logCopy);
  QUtils::appendPath(logCopy, "qluxuninst.log", sizeof logCopy);
  QUtils::copyText(programCopy, runDirectory, sizeof programCopy);
  QUtils::appendPath(programCopy, "qluxuninst.dll", sizeof programCopy);

  // The log first; a log that an interrupted upgrade took away comes back
  // with the recovery below, and is copied then.
  int logError = QUtils::copyFile(options.uninstall, logCopy);
  int error = QUtils::copyFile(program, programCopy);
  if (error == 0) error = QUtils::setExecutable(programCopy);
  if (error != 0) {
    log->printf("Error copying file %s - Error Number = %d", programCopy, error);
    return failFirstStage(text, std::string("the uninstaller can't copy itself to ") + programCopy + ": " +
                                    describeError(error));
  }
  bool recovered = false;
  if (recoverInterruptedRun(engine, options, &recovered)) {
    log->printf("The interrupted uninstallation was finished; nothing is left to uninstall");
    QUtils::removeRunDirectory();
    Host::signalNamedEvent(kEndEvent);
    *text = "uninstalled: an interrupted uninstallation was finished";
    return kExitSuccess;
  }
  // The recovery may have put the log back as an older installation had it.
  if (recovered || logError != 0) {
    if (!isTrustedLog(options, log, &refusal)) return failFirstStage(text, refusal);
    logError = QUtils::copyFile(options.uninstall, logCopy);
  }
  if (logError != 0) {
    log->printf("ERROR: Unable to copy uninstaller log to %s. Exiting!", logCopy);
    return failFirstStage(text, std::string("the action log ") + options.uninstall + " can't be read: " +
                                    describeError(logError) + "; nothing was removed");
  }

  char commandLine[4096];
  buildUninstallerCommandLine(commandLine, sizeof commandLine, programCopy, logCopy, options);
  log->printf("Calling uninstaller process. Command line: %s", commandLine);
  if (!options.wait) {
    if (Host::startProcess(commandLine, runDirectory) != 0) {
      log->printf("ERROR: Unable to create uninstall process. Exiting!");
      return failFirstStage(text, "the uninstaller's second stage can't be started");
    }
    return kExitSuccess;  // the second stage writes the result log
  }

  // Waiting, this program would keep its own file, and so its folder, from
  // going: it steps aside into the run's own directory first, and comes
  // back if the uninstallation failed, since the product's entry still
  // names it.
  char setAside[QUtils::kMaxPath];
  bool movedAside = Host::setAsideOwnProgram(runDirectory, setAside, sizeof setAside);
  if (movedAside) log->printf("The uninstaller's own program waits as %s", setAside);
  int code = kExitFailed;
  error = Host::runProcess(commandLine, runDirectory, &code);
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
  // The second stage has ended: its directory, with the copies, can go now
  // (a run with -debug keeps them).
  if (!options.debug) QUtils::removeRunDirectory();
  return code;
}

int runSecondStage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* text) {
  log->printf("Real uninstall");
  Host::signalNamedEvent(kStartEvent);
  // The directory that the first stage made for the copies is this run's
  // own: its temporary files go there, and it goes at the end.
  char directory[QUtils::kMaxPath];
  QUtils::copyText(directory, options.uninstallFile, sizeof directory);
  char* cut = directory + std::strlen(directory);
  while (cut > directory && !QUtils::isSeparator(cut[-1])) cut--;
  *cut = 0;
  QUtils::stripTrailingSeparators(directory, sizeof directory);
  if (!QUtils::adoptRunDirectory(directory)) log->printf("WARNING: %s is no directory of a first stage", directory);
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
    // This program is the first stage's copy: it goes now (Linux) or when
    // the system restarts (Windows), and then its directory with it.
    if (!Host::removeOwnProgram()) log->printf("WARNING: The uninstaller's copy could not be removed");
    QUtils::removeRunDirectory();
  }
  Host::signalNamedEvent(kEndEvent);
  return code;
}
