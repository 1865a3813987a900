// The run's outcome. The work notes what happened as it runs (outcome, the
// engine's flags cancelled and finished, the page the walk stopped on);
// getExitCode reads all of it once the wizard has ended and gives the one
// exit code that a script acts on, with the words for the result log.
//
// The order of the questions is the order of their weight: a run that was
// stopped says why; a cancelled run was cancelled, unless the page it was
// cancelled on waits for programs to end; a failed installation failed,
// whatever came after; errors that -ignoreErrors=1 let through come last,
// since the run did what it was asked.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/exit_codes.h"
#include "engine/installer.h"
#include "engine/running_apps.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// The programs that the page the walk stands on waits for, as "a, b"; empty
// when that page waits for none, or none of them runs.
std::string runningPrograms(Installer* engine) {
  DIALOGINFO* page = engine->getDialog(engine->currentDialog, engine->currentSubDialog);
  DIALOGINFO* frame = engine->getDialog(engine->currentDialog, -1);
  DlgCondition* condition = page && page->dlgCondition ? page->dlgCondition.get()
                            : frame && frame->dlgCondition ? frame->dlgCondition.get()
                                                           : nullptr;
  if (!condition || condition != engine->runningApps.get()) return std::string();
  RunningAppsCondition* apps = static_cast<RunningAppsCondition*>(condition);
  if (apps->check(engine, nullptr)) return std::string();
  std::string names;
  for (int i = 0; i < apps->getCount(); i++) {
    const RunningAppsCondition::Entry& entry = apps->getEntry(i);
    if (!(entry.state & RunningAppsCondition::kRunning)) continue;
    if (!names.empty()) names += ", ";
    names += entry.name.getText() ? entry.name.getText() : "";
  }
  return names;
}

}  // namespace

void Installer::note(const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (resultLog) resultLog->printf("%s", line);
  log("%s", line);
}

void Installer::stopRun(int code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(outcome.stopReason, sizeof outcome.stopReason, format, args);
  va_end(args);
  outcome.stopCode = code;
  note("%s", outcome.stopReason);
}

int Installer::getExitCode(int runResult, char* text, int size) {
  bool uninstalling = isActionLogRun();
  const char* done = uninstalling ? "uninstalled" : "installed";
  if (outcome.stopCode >= 0) {
    QUtils::copyText(text, outcome.stopReason, size);
    return outcome.stopCode;
  }
  if (!wizardStarted) {
    QUtils::copyText(text, "the run ended before its wizard started", size);
    return runResult == 0 ? kExitSuccess : kExitFailed;
  }
  std::string programs = runningPrograms(this);
  if (!programs.empty() && !finished) {
    QUtils::boundedFormat(text, size, "a program that must end first is running and wasn't closed: %s",
                          programs.c_str());
    return kExitProgramRunning;
  }
  if (cancelled) {
    QUtils::copyText(text,
                     guiInstall ? "cancelled by the user"
                                : "cancelled: the input ended before every question was answered",
                     size);
    return kExitCancelled;
  }
  if (outcome.installFailed) {
    QUtils::copyText(text,
                     outcome.reverted       ? "failed, and reverted: the machine is as it was"
                     : outcome.revertFailed ? "failed, and the revert failed too: see the errors above"
                                            : "failed; the installation was not reverted",
                     size);
    return kExitFailed;
  }
  if (outcome.workErrors) {
    QUtils::boundedFormat(text, size, "%s with errors: see the lines above",
                          uninstalling ? "uninstallation ended" : "installation ended");
    return outcome.errorsIgnored ? kExitErrorsIgnored : kExitFailed;
  }
  if (!finished || runResult != 0) {
    QUtils::copyText(text, "the wizard ended before its last page", size);
    return kExitFailed;
  }
  if (outcome.errorsIgnored) {
    QUtils::boundedFormat(text, size, "%s, with errors that -ignoreErrors=1 let through", done);
    return kExitErrorsIgnored;
  }
  QUtils::copyText(text, done, size);
  return kExitSuccess;
}

bool Installer::getResultLogPath(char* buffer, int size) {
  char logFile[QUtils::kMaxPath];
  char product[512];
  if (getInstallLogFile(logFile, sizeof logFile) != 0 || !logFile[0]) return false;
  if (getProductName(product, sizeof product) != 0 || !product[0]) return false;
  // The product's name as a file name: characters that no system takes in
  // one become '_'.
  for (char* c = product; *c; c++) {
    if (std::strchr("/\\:*?\"<>|", *c) || static_cast<unsigned char>(*c) < 0x20) *c = '_';
  }
  char* cut = logFile + std::strlen(logFile);
  while (cut > logFile && !QUtils::isSeparator(cut[-1])) cut--;
  *cut = 0;
  if (!logFile[0]) return false;
  return QUtils::boundedFormat(buffer, size, "%s%s-install.log", logFile, product) > 0;
}
