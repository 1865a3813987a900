// The walk over the wizard: a position (currentDialog, currentSubDialog)
// that moves forward and back over the dialog records, passing over pages
// whose Condition is false. A dialog with HasSubDialogs is a frame that
// stays while its sub-dialogs go by, and its task list follows them.
//
// The installation itself happens here, as a side effect of entering pages
// with certain names ("Uninstall", "CopyProgress", ...): the template puts
// the work in the order it wants by placing those pages, and chooses the
// pages behind the work by conditions on the control variables that the
// work sets. A page's DlgCondition (the running-programs test) holds the
// walk on that page until it passes.
#include <cstring>
#include <memory>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "engine/running_apps.h"
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// A frame: a dialog whose sub-dialogs are the pages. A HasSubDialogs dialog
// that got no sub-dialogs (no TaskList) is walked as an ordinary page,
// except that a forward walk comes to rest on it (see nextDialog).
bool isFrame(const DIALOGINFO* record) {
  return record && (record->flags & kDialogHasSubDialogs) && record->subDialogs.getCount() > 0;
}

bool conditionHolds(Installer* engine, const char* condition) { return engine->evaluateCondition(condition) != 0; }

// Pages whose work changes the machine. Once one has run, the walk never
// goes back to it or to a page before it: entering it again would do its
// work a second time (a second copy, a second registration).
bool isWorkPage(const char* name) {
  static const char* const kWorkPages[] = {"Uninstall",   "CopyProgress",          "RevertInstallation",
                                           "PreUninstall", "RegisterApplication", "UnregisterApplication",
                                           "PostInstall"};
  for (const char* page : kWorkPages)
    if (std::strcmp(name, page) == 0) return true;
  return false;
}

// Whether the page (dialog, subDialog) comes at or before the page (other,
// otherSubDialog) in the walk's order; a dialog (-1) comes before its
// sub-dialogs.
bool atOrBefore(int dialog, int subDialog, int other, int otherSubDialog) {
  return dialog < other || (dialog == other && subDialog <= otherSubDialog);
}

// The work that runs wrapped in the working state. An exception from the
// work ends it as a failure; nothing is thrown into the front end.
enum WrappedWork { kRemoveOlder, kCopyFiles, kRevert, kPrepareUninstall };

int doWork(Installer* engine, InstallerUI* ui, WrappedWork work, bool isUninstallation) {
  try {
    switch (work) {
      case kRemoveOlder:
        return engine->removeOlderInstallations(ui);
      case kCopyFiles:
        return isUninstallation ? engine->uninstallWithJournal(ui) : engine->installFiles(ui);
      case kRevert:
        return engine->revertInstallation(ui);
      case kPrepareUninstall:
        return engine->PrepareUninstall(ui, nullptr);
    }
  } catch (const QUtils::GenericError& error) {
    engine->log("%s", error.getMessage());
    return 1;
  }
  return 1;
}

// What a page's work did, for the result log and the run's outcome.
void noteWork(Installer* engine, WrappedWork work, bool isUninstallation, bool failed) {
  Installer::Outcome& outcome = engine->outcome;
  switch (work) {
    case kRemoveOlder:
      engine->note("Removing the installed version: %s", failed ? "FAILED" : "done");
      if (failed) outcome.workErrors = true;
      break;
    case kCopyFiles:
      if (isUninstallation) {
        engine->note("Uninstalling: %s", failed ? "FAILED, with errors" : "done");
        if (failed) outcome.workErrors = true;
      } else {
        // The file stage's errors that -ignoreErrors=1 let through are
        // noted by the stage itself.
        engine->note("Installing: %s", !failed                ? "done"
                                       : outcome.errorsIgnored ? "done, with errors let through"
                                                               : "FAILED, with errors");
        if (failed && !outcome.errorsIgnored) outcome.installFailed = true;
      }
      break;
    case kRevert:
      engine->note("Reverting the installation: %s", failed ? "FAILED" : "done");
      if (failed)
        outcome.revertFailed = true;
      else
        outcome.reverted = true;
      break;
    case kPrepareUninstall:
      break;
  }
}

// Brings the values of all directory fields into the form the file work
// expects (blanks trimmed, one kind of separator, no doubled separators)
// before that work reads them.
void normaliseDirectoryFields(Installer* engine, DIALOGINFO& record) {
  for (int i = 0; i < record.fields.getCount(); i++) {
    const FIELDINFO& field = record.fields[i];
    if (field.type != kFieldDirectory) continue;
    char value[512];
    if (engine->getVariable(field.variable, value, sizeof value) < 0) continue;
    if (QUtils::cleanPath(value) > 0) engine->setVariable(field.variable, value);
  }
  for (int i = 0; i < record.subDialogs.getCount(); i++) normaliseDirectoryFields(engine, record.subDialogs[i]);
}

// Whether the action log and the uninstall program that the product's entry
// would name are on the disk. An entry without them can't remove the
// product (a failed installation that was kept may lack both), so such a
// product stays off the list. A template without uninstall data makes no
// entry at all and needs neither. Windows starts "X" as "X.exe", so a
// program named without its ".exe" counts when that file is there.
bool uninstallDataOnDisk(Installer* engine) {
  char program[QUtils::kMaxPath];
  char logFile[QUtils::kMaxPath];
  if (!engine->getUninstallCommand(program, sizeof program, nullptr, 0, 0)) return true;
  if (engine->getInstallLogFile(logFile, sizeof logFile) != 0) return true;
  char withExtension[QUtils::kMaxPath + 8];
  QUtils::boundedFormat(withExtension, sizeof withExtension, "%s.exe", program);
  const char* missing = nullptr;
  if (!QUtils::fileExists(logFile)) {
    missing = logFile;
  } else if (!QUtils::fileExists(program) && !QUtils::fileExists(withExtension)) {
    missing = program;
  }
  if (!missing) return true;
  char message[QUtils::kMaxPath + 80];
  QUtils::boundedFormat(message, sizeof message, "FAILED to register the product: %s is missing", missing);
  engine->log("ERROR: %s", message);
  engine->addError(message);
  return false;
}

// Sends the collected errors to the page's file list under a heading,
// pushing the lines out every 32 entries so a long list shows as it grows.
void showErrorSummary(Installer* engine, InstallerUI* ui, bool isUninstallation) {
  const QUtils::Table<QUtils::CharString>* errors = engine->errorList;
  if (!errors || errors->getCount() == 0) return;
  char heading[64];
  QUtils::boundedFormat(heading, sizeof heading, "%s errors summary:",
                        isUninstallation ? "Uninstallation" : "Installation");
  ui->pumpEventsQuietly();
  ui->addFileLine(heading, false);
  for (int i = 0; i < errors->getCount(); i++) {
    ui->pumpEventsQuietly();
    ui->addFileLine((*errors)[i].getText(), i % 32 == 0);
  }
  ui->addFileLine(nullptr, true);
}

// A "RunningApps" page: ends the programs its TerminateApp children name,
// fills the shared condition with its TestApp children, and makes that the
// page's condition. While a listed program runs the page is blocked.
void enterRunningAppsPage(Installer* engine, int dialog, int subDialog, InstallerUI* ui, DIALOGINFO* record) {
  if (!engine->runningApps) engine->runningApps = std::make_shared<RunningAppsCondition>();
  RunningAppsCondition* apps = static_cast<RunningAppsCondition*>(engine->runningApps.get());
  apps->clear();

  const QUtils::PXML& document = engine->document;
  QUtils::PList<int> children(16);
  if (record->node >= 0) document.getChildren(record->node, &children);
  for (int i = 0; i < children.getCount(); i++) {
    int child = children[i];
    if (!conditionHolds(engine, document.getAttribute(child, "Condition"))) continue;
    const char* tag = document.getName(child);
    if (QUtils::compareNoCase(tag, "TerminateApp") == 0) {
      const char* service = document.getAttribute(child, "Service");
      engine->terminateApp(document.getValue(child), service && QUtils::compareNoCase(service, "true") == 0);
    } else if (tag && std::strcmp(tag, "TestApp") == 0) {
      const char* directory = document.getAttribute(child, "Directory");
      char expanded[QUtils::kMaxPath];
      expanded[0] = 0;
      if (directory) engine->expandVariables(directory, expanded, sizeof expanded);
      apps->add(document.getValue(child), expanded);
    }
  }

  if (!apps->check(engine, ui)) {
    if (!engine->guiInstall) {
      apps->showText(ui, "The installation can not continue, because the processes listed above are running.");
    }
    engine->log("Running applications found");
    ui->showControls(dialog, subDialog, true);
    engine->setUiState(kUiConditionFailed);
    ui->updateButtons(dialog, subDialog);
  }
  record->dlgCondition = engine->runningApps;
}

// Re-checks the condition of the page being left; on failure enters the
// page again, which runs its tests afresh, and checks once more. A page
// with WeakCondition may always be left.
bool mayLeave(Installer* engine, InstallerUI* ui, DIALOGINFO* page, bool weak, int dialog, int subDialog) {
  if (!page || !page->dlgCondition) return true;
  if (page->dlgCondition->check(engine, ui) || weak) return true;
  if (subDialog < 0) {
    engine->enterDialog(dialog, ui);
  } else {
    engine->enterSubDialog(dialog, subDialog, ui);
  }
  return page->dlgCondition && page->dlgCondition->check(engine, ui);
}

// Whether the page now shown carries the flag Finish.
bool atFinishPage(Installer* engine) {
  DIALOGINFO* dialog = engine->getDialog(engine->currentDialog, -1);
  if (!dialog) return false;
  if (dialog->flags & kDialogFinish) return true;
  if (!isFrame(dialog) || engine->currentSubDialog < 0) return false;
  DIALOGINFO* page = engine->getDialog(engine->currentDialog, engine->currentSubDialog);
  return page && (page->flags & kDialogFinish);
}

// The page that a walk of `count` steps back comes to rest on, found without
// moving or touching anything; false when it would run off the front of the
// wizard, or `count` is below 1. Inside a frame the walk steps from
// sub-dialog to sub-dialog; out of it, onto the last sub-dialog of the
// dialog before. Each step passes over what its Condition rules out.
bool findPreviousPage(Installer* engine, int count, int* outDialog, int* outSubDialog) {
  int dialog = engine->currentDialog;
  int subDialog = engine->currentSubDialog;
  while (dialog >= 0 && count >= 1) {
    DIALOGINFO* record = engine->getDialog(dialog, -1);
    if (!record || (isFrame(record) && subDialog < 0)) return false;
    if (!isFrame(record) || subDialog < 1) {
      dialog--;
      if (dialog < 0) return false;
      record = &engine->dialogs[dialog];
      subDialog = isFrame(record) ? record->subDialogs.getCount() - 1 : -1;
      if (!conditionHolds(engine, record->condition)) continue;
      if (isFrame(record) && !conditionHolds(engine, record->subDialogs[subDialog].condition)) continue;
    } else {
      subDialog--;
      if (!conditionHolds(engine, record->subDialogs[subDialog].condition)) continue;
    }
    if (--count < 1) {
      *outDialog = dialog;
      *outSubDialog = subDialog;
      return true;
    }
  }
  return false;
}

// The walk ran off its list: the wizard can't go on.
void endWalk(Installer* engine, const char* direction) {
  engine->log("ERROR: Bad dialog %s shifting. Current dialog: %d, current subdialog: %d", direction,
              engine->currentDialog, engine->currentSubDialog);
  engine->failed = 1;
  engine->finished = 1;
}

}  // namespace

int Installer::enterDialog(int dialog, InstallerUI* ui) {
  if (!ui || dialog < 0 || dialog >= dialogs.getCount()) return -1;
  DIALOGINFO* leaving = getDialog(currentDialog, currentSubDialog);
  if (leaving) {
    for (int i = 0; i < leaving->retain.getCount(); i++) ui->retainControl(leaving->retain[i].getText());
  }
  ui->storeFields(currentDialog);
  ui->clearTasks();
  ui->destroySubDialog();
  fireTriggers(kEventEnd, currentDialog, currentSubDialog);

  currentDialog = dialog;
  currentSubDialog = -1;
  fireTriggers(kEventStart, dialog, -1);
  // Marked before the page is shown, so that its Back button already knows.
  if (isWorkPage(dialogs[dialog].name)) {
    workDialog = dialog;
    workSubDialog = -1;
  }
  ui->leaveDialog(dialog);
  ui->showDialog(dialog);
  return handleSpecialDialog(dialog, -1, ui, &dialogs[dialog]);
}

int Installer::enterSubDialog(int dialog, int subDialog, InstallerUI* ui) {
  if (!ui || subDialog < 0) return -1;
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record) return -1;
  DIALOGINFO* leaving = getDialog(currentDialog, currentSubDialog);
  if (leaving) {
    for (int i = 0; i < leaving->retain.getCount(); i++) ui->retainControl(leaving->retain[i].getText());
  }
  ui->storeSubDialogFields(currentDialog, currentSubDialog);
  fireTriggers(kEventEnd, currentDialog, currentSubDialog);

  currentDialog = dialog;
  currentSubDialog = subDialog;
  fireTriggers(kEventStart, dialog, subDialog);
  updateTask(ui, currentDialog, currentSubDialog, kTaskCurrent);
  if (isWorkPage(record->name)) {
    workDialog = dialog;
    workSubDialog = subDialog;
  }
  ui->leaveSubDialog(dialog, subDialog);
  ui->showSubDialog(dialog, subDialog);
  return handleSpecialDialog(dialog, subDialog, ui, record);
}

int Installer::handleSpecialDialog(int dialog, int subDialog, InstallerUI* ui, DIALOGINFO* record) {
  if (!ui || !record) return 0;
  log("Setting dialog \"%s\" (%d, %d)", record->name, dialog, subDialog);
  if (resultLog) resultLog->printf("Page %s", record->name);
  setControlVariable(kCtlDlgCondition, "0");

  const char* name = record->name;
  bool isUninstallation = package.actionLogFile != nullptr;
  bool isPostInstall = std::strcmp(name, "PostInstall") == 0;

  // Long work shows the page first and holds the buttons while it runs.
  int work = -1;
  if (std::strcmp(name, "Uninstall") == 0) work = kRemoveOlder;
  else if (std::strcmp(name, "CopyProgress") == 0) work = kCopyFiles;
  else if (std::strcmp(name, "RevertInstallation") == 0) work = kRevert;

  if (work >= 0) {
    ui->showControls(dialog, subDialog, true);
    setUiState(kUiWorking);
    ui->updateButtons(dialog, subDialog);
    if (work == kCopyFiles) {
      for (int i = 0; i < dialogs.getCount(); i++) normaliseDirectoryFields(this, dialogs[i]);
    }
    failed = doWork(this, ui, static_cast<WrappedWork>(work), isUninstallation);
    noteWork(this, static_cast<WrappedWork>(work), isUninstallation, failed != 0);
    setUiState(kUiWaiting);
    ui->updateButtons(dialog, subDialog);
  } else if (std::strcmp(name, "RegisterApplication") == 0) {
    failed = (!isUninstallation && uninstallDataOnDisk(this) && registerApplication()) ? 0 : 1;
    note("Registering the product in the list of installed programs: %s", failed ? "FAILED" : "done");
    if (failed) outcome.workErrors = true;
  } else if (std::strcmp(name, "UnregisterApplication") == 0) {
    if (isUninstallation) {
      char product[200];
      failed = (getProductName(product, sizeof product) == 0 && unregisterApplication(product)) ? 0 : 1;
      note("Removing the product from the list of installed programs: %s", failed ? "FAILED" : "done");
      if (failed) outcome.workErrors = true;
    }
  } else if (std::strcmp(name, "PreUninstall") == 0) {
    ui->showControls(dialog, subDialog, true);
    failed = doWork(this, ui, kPrepareUninstall, isUninstallation);
  } else if (std::strcmp(name, "RunningApps") == 0) {
    enterRunningAppsPage(this, dialog, subDialog, ui, record);
  } else {
    if (isPostInstall) {
      try {
        failed = runPostInstall(ui);
      } catch (const QUtils::GenericError& error) {
        log("%s", error.getMessage());
        failed = 1;
      }
    }
    ui->showControls(dialog, subDialog, true);
    if (std::strcmp(name, "Finish") == 0 || std::strcmp(name, "BadFinish") == 0) {
      showErrorSummary(this, ui, isUninstallation);
    }
  }

  if (record->flags & kDialogAutoNext) return 1;
  return isPostInstall ? 1 : 0;
}

int Installer::nextDialog(InstallerUI* ui, int count) {
  if (!ui) return -1;
  // A click that the front end let through while work runs (the work keeps
  // the window alive) must not start a second step inside the first.
  if (uiState == kUiWorking) {
    log("WARNING: A step forward was refused while work runs");
    return -1;
  }
  if (atFinishPage(this)) {
    finished = 1;
    return 0;
  }

  // The page being left must let the user go, unless its condition is weak.
  DIALOGINFO* frame = getDialog(currentDialog, -1);
  bool frameWeak = frame && (frame->flags & kDialogWeakCondition);
  if (!mayLeave(this, ui, frame, frameWeak, currentDialog, -1)) return -1;
  if (isFrame(frame) && currentSubDialog >= 0) {
    DIALOGINFO* page = getDialog(currentDialog, currentSubDialog);
    bool weak = frameWeak || (page && (page->flags & kDialogWeakCondition));
    if (!mayLeave(this, ui, page, weak, currentDialog, currentSubDialog)) return -1;
  }
  if (count < 1) return 0;

  // Each page entered spends one step of the budget; a page that goes on by
  // itself (AutoNext, a condition that passes) gives its step back.
  int dialog = currentDialog;
  int subDialog = currentSubDialog;
  for (;;) {
    if (finished) return 0;
    DIALOGINFO* record = getDialog(dialog, -1);
    if (!record || (isFrame(record) && subDialog >= record->subDialogs.getCount())) {
      endWalk(this, "next");
      return 0;
    }
    if (atFinishPage(this)) {
      finished = 1;
      return 0;
    }

    int budget;
    if (isFrame(record) && subDialog < record->subDialogs.getCount() - 1) {
      subDialog++;
      if (!conditionHolds(this, record->subDialogs[subDialog].condition)) continue;
      updateTask(ui, currentDialog, currentSubDialog, failed ? kTaskFailed : kTaskDone);
      budget = count + enterSubDialog(dialog, subDialog, ui);
    } else {
      dialog++;
      subDialog = 0;
      if (dialog >= dialogs.getCount()) {
        endWalk(this, "next");
        return 0;
      }
      record = &dialogs[dialog];
      if (!conditionHolds(this, record->condition)) continue;
      budget = count + enterDialog(dialog, ui);
      // A frame opens on its first sub-dialog, whatever that one's Condition.
      // A frame without sub-dialogs has no first page to open, and the step
      // that costs keeps its AutoNext from carrying the walk past it: the
      // template's author sees where the pages went missing.
      if (record->flags & kDialogHasSubDialogs) budget += enterSubDialog(dialog, 0, ui);
    }

    record = &dialogs[dialog];
    if (record->dlgCondition) {
      if (!record->dlgCondition->check(this, ui)) return 0;
      budget++;
    }
    if (isFrame(record) && subDialog < record->subDialogs.getCount()) {
      DIALOGINFO& page = record->subDialogs[subDialog];
      if (page.dlgCondition) {
        if (!page.dlgCondition->check(this, ui)) return 0;
        budget++;
      }
    }
    count = budget - 1;
    if (count < 1) return 0;
  }
}

int Installer::previousDialog(InstallerUI* ui, int count) {
  if (!ui) return -1;
  if (uiState == kUiWorking) {
    log("WARNING: A step back was refused while work runs");
    return -1;
  }
  if (count < 1) return 0;
  int target = -1;
  int targetSubDialog = -1;
  bool found = findPreviousPage(this, count, &target, &targetSubDialog);
  if (workDialog >= 0 && (!found || atOrBefore(target, targetSubDialog, workDialog, workSubDialog))) {
    log("A step back was refused: the work of page (%d, %d) has run", workDialog, workSubDialog);
    return -1;
  }
  if (!found) {
    endWalk(this, "back");
    return 0;
  }

  // The steps of the frame that the walk passes back over are not reached
  // any more: down to the target inside the frame, or to its first step
  // when the walk leaves it.
  DIALOGINFO* record = getDialog(currentDialog, -1);
  if (isFrame(record)) {
    int last = target == currentDialog ? targetSubDialog + 1 : 1;
    for (int task = currentSubDialog; task >= last; task--) updateTask(ui, currentDialog, task, kTaskNotStarted);
  }
  if (target == currentDialog) {
    enterSubDialog(target, targetSubDialog, ui);
  } else {
    enterDialog(target, ui);
    if (isFrame(&dialogs[target])) enterSubDialog(target, targetSubDialog, ui);
  }
  return 0;
}

int Installer::shiftDialog(InstallerUI* ui, int count) {
  if (count > 0) return nextDialog(ui, count);
  if (count < 0) return previousDialog(ui, -count);
  return 0;
}

int Installer::checkDialogCondition(InstallerUI* ui) {
  DIALOGINFO* page = getDialog(currentDialog, currentSubDialog);
  if (!page) return 0;
  if (!page->dlgCondition) return 2;
  bool passed = page->dlgCondition->check(this, ui);
  setControlVariable(kCtlDlgCondition, passed ? "1" : "0");
  return passed ? 1 : 0;
}

void Installer::cancel(InstallerUI* ui) {
  if (ui && ui->confirmCancel()) cancelled = 1;
}

bool Installer::canGoBack() {
  if (uiState == kUiWorking) return false;
  int dialog = -1;
  int subDialog = -1;
  if (!findPreviousPage(this, 1, &dialog, &subDialog)) return false;
  return workDialog < 0 || !atOrBefore(dialog, subDialog, workDialog, workSubDialog);
}

void Installer::updateTask(InstallerUI* ui, int dialog, int task, int state) {
  DIALOGINFO* record = getDialog(dialog, -1);
  if (!record || task < 0 || task >= record->tasks.getCount()) return;
  TASKINFO& entry = record->tasks[task];
  // The inactive look is only shown; the task keeps the state it reached.
  if (state != kTaskInactive) entry.state = state;

  const char* label = "";
  switch (state) {
    case kTaskNotStarted:
    case kTaskInactive:
      label = entry.unreachedLabel[0] ? entry.unreachedLabel : entry.currentLabel;
      break;
    case kTaskCurrent:
      label = entry.currentLabel;
      break;
    case kTaskDone:
    case kTaskFailed:
      label = entry.finishLabel[0] ? entry.finishLabel : entry.currentLabel;
      break;
    default:
      break;
  }
  if (ui) ui->setTaskState(entry.name, label, state);
}

void Installer::updateTasks(InstallerUI* ui) {
  DIALOGINFO* record = getDialog(currentDialog, -1);
  if (!record) return;
  for (int i = currentSubDialog < 0 ? 0 : currentSubDialog; i < record->tasks.getCount(); i++) {
    const TASKINFO& task = record->tasks[i];
    if (!task.enableCondition[0]) continue;
    bool enabled = conditionHolds(this, task.enableCondition);
    updateTask(ui, currentDialog, i, enabled ? task.state : kTaskInactive);
  }
}
