// The console wizard: the walk, the pages, paging of long texts, the
// running file list and the messages.
#include "frontends/console/console_ui.h"

#include <cstring>
#include <string>

#include "engine/dialog_records.h"
#include "foundation/files.h"
#include "frontends/console/console_fields.h"
#include "frontends/console/rich_text.h"

namespace {

// The banner's line when the template gives none; the frame is as wide as
// the line, and at least as wide as these.
const char kInstallerBanner[] = "Halvo Works installer";
const char kUninstallerBanner[] = "Halvo Works uninstaller";
const int kBannerMinimumWidth = 27;
const char kContinuePrompt[] = "Press Enter to continue...";
// "q" (or "end") answered instead skips to the end: the rest of the text
// runs through without pauses, so a long licence takes one answer.
const char kNextPagePrompt[] = "\nPress ENTER for the next page (q: to the end)...";

// The first size of the page buffer; it grows by as much again.
const int kTextBufferStep = 32768;

}  // namespace

ConsoleUI::ConsoleUI(int isUninstall, int ignoreErrors, int quiet)
    : GenericUI(isUninstall, ignoreErrors),
      quiet(quiet),
      progressLineShown(false),
      overallProgress(0),
      currentProgress(0),
      textBuffer(kTextBufferStep),
      lastDialog(-1),
      lastSubDialog(-2),
      shownElements(0),
      walkResult(0) {}

void ConsoleUI::getTerminalSize(int* columns, int* rows) {
  *columns = 80;
  *rows = 24;
  int c = 0;
  int r = 0;
  if (!QUtils::getConsoleSize(&c, &r)) return;
  if (c > 0) *columns = c;
  if (r > 0) *rows = r;
}

int ConsoleUI::run() {
  if (!exchange) return -1;
  exchange->enterDialog(exchange->getCurrentDialog(), this);
  cancelIfInputEnded();
  if (exchange->isCancelled()) return 0;
  // The console only walks forward. A page whose condition holds the walk
  // (programs still running) gives -1, and the run ends there.
  int result = 0;
  while (!exchange->isFinished() && result == 0) {
    result = exchange->nextDialog(this, result + 1);
    cancelIfInputEnded();
    if (exchange->isCancelled()) break;
  }
  walkResult = result;
  return result;
}

void ConsoleUI::cancelIfInputEnded() {
  if (!exchange || !input || !input->inputEnded() || exchange->isCancelled()) return;
  exchange->cancel(this);
}

bool ConsoleUI::confirmCancel() { return input && input->inputEnded(); }

void ConsoleUI::finish() {
  eraseProgressLine();
  // Only a run that did all it was asked succeeded: not one that a page
  // held (programs still running), and not one whose installation failed,
  // whatever the last step gave.
  char ignored[8];
  if (input) input->close(!exchange || exchange->getExitCode(walkResult, ignored, sizeof ignored) != 0);
}

void ConsoleUI::showDialog(int dialog) {
  if (dialog == 0 && !quiet) printBanner();
  showSubDialog(dialog, -1);
}

void ConsoleUI::printBanner() {
  char line[256];
  if (!exchange || exchange->getBannerText(line, sizeof line) != 0 || !line[0])
    QUtils::copyText(line, isUninstall ? kUninstallerBanner : kInstallerBanner, sizeof line);
  int width = static_cast<int>(std::strlen(line));
  if (width < kBannerMinimumWidth) width = kBannerMinimumWidth;
  std::string rule(static_cast<size_t>(width) + 4, '*');
  std::fprintf(outputStream, "%s\n* %-*s *\n%s\n", rule.c_str(), width, line, rule.c_str());
  std::fflush(outputStream);
}

void ConsoleUI::showSubDialog(int dialog, int subDialog) {
  if (dialog != lastDialog || subDialog != lastSubDialog) {
    lastDialog = dialog;
    lastSubDialog = subDialog;
    shownElements = 0;
    elementShown.clear();
  }
  if (!exchange) return;
  // A page with a condition (programs that must end first) prints its texts
  // even in a quiet run: they say why the run can't go on.
  DIALOGINFO* record = exchange->getDialog(dialog, subDialog);
  bool dialogHasCondition = record && record->dlgCondition;
  bool hideTexts = quiet && !dialogHasCondition;
  bool active = progressLineShown;

  // Each element is printed at most once while the page stays the same; one
  // that was passed over (ruled out by its condition, or hidden in a quiet
  // run) is tried again when the page comes again.
  int count = exchange->getElementCount(dialog, subDialog);
  if (static_cast<int>(elementShown.size()) < count) elementShown.resize(static_cast<size_t>(count), false);
  for (int i = 0; i < count; i++) {
    const ELEMENTINFO* element = exchange->getElement(dialog, i, subDialog);
    if (!element || elementShown[static_cast<size_t>(i)]) continue;
    if (element->type == kElementText) {
      if (hideTexts) continue;
      if (element->condition[0] && exchange->evaluateCondition(element->condition) == 0) continue;
      if (active) eraseProgressLine();
      std::string text = labelText(element->text.getText());
      std::fprintf(outputStream, "%s\n", text.c_str());
      std::fflush(outputStream);
      if (active) progressLineShown = true;
    } else if (element->type == kElementRichEditText) {
      if (hideTexts) continue;
      if (input) input->pause(kContinuePrompt);
      if (active) eraseProgressLine();
      showRichText(element->text.getText());
      if (active) progressLineShown = true;
    } else if (quiet) {
      continue;
    }
    elementShown[static_cast<size_t>(i)] = true;
    shownElements++;
  }
  showFields(dialog, subDialog);
}

void ConsoleUI::showRichText(const char* key) {
  if (!key || !exchange) return;
  uint32_t size = 0;
  QUtils::RefArray<unsigned char> data = exchange->getFileData(key, &size);
  if (data.isNull() || size == 0) return;
  // The package's bytes carry no terminator of their own.
  std::string document(reinterpret_cast<const char*>(data.get()), size);
  int columns = 0;
  int rows = 0;
  getTerminalSize(&columns, &rows);
  RichTextReader reader;
  const char* text = reader.convert(document.c_str(), kRichTextConsole, columns - 2);
  if (!text) {
    std::fprintf(outputStream, "The document \"%s\" can not be shown: it is not a readable RTF text.\n", key);
    std::fflush(outputStream);
    return;
  }
  printPaged(text);
}

void ConsoleUI::printPaged(const char* text) {
  if (!text) return;
  int columns = 0;
  int rows = 0;
  getTerminalSize(&columns, &rows);
  // A screenful leaves two rows for the prompt; a terminal of two rows or
  // fewer has no room for a page, and the text runs through.
  int page = rows - 2;
  int lines = 0;
  bool endsAtPage = false;
  bool toTheEnd = false;
  textBuffer.clear();
  for (const char* p = text; *p; p++) {
    textBuffer.append(*p);
    endsAtPage = false;
    if (*p != '\n') continue;
    if (++lines < page || page < 1 || quiet || toTheEnd) continue;
    std::fputs(textBuffer.getText(), outputStream);
    textBuffer.clear();
    if (input) toTheEnd = input->pause(kNextPagePrompt);
    std::fputs("\n\n\n", outputStream);
    std::fflush(outputStream);
    getTerminalSize(&columns, &rows);
    page = rows - 2;
    lines = 0;
    endsAtPage = true;
  }
  std::fputs(textBuffer.getText(), outputStream);
  textBuffer.clear();
  // A text that ended with a full page has had its pause already.
  if (!endsAtPage) {
    if (input) input->pause(kNextPagePrompt);
    std::fputs("\n\n\n", outputStream);
  }
  std::fflush(outputStream);
}

int ConsoleUI::showFields(int dialog, int subDialog) {
  if (!input || !exchange) return -1;
  int count = exchange->getFieldCount(dialog, subDialog);
  for (int i = 0; i < count; i++) {
    const FIELDINFO* field = exchange->getField(dialog, i, subDialog);
    if (!field) continue;
    ConsoleInterface::ConsoleField* question = nullptr;
    if (field->type == kFieldDirectory)
      question = new ConsoleInterface::DirectoryField();
    else if (field->type == kFieldCheckBox)
      question = new ConsoleInterface::CheckboxField();
    else if (field->type == kFieldRadioButtons)
      question = new ConsoleInterface::RadioField();
    if (!question) continue;
    question->ask(field, input, exchange);
    delete question;
    if (input->inputEnded()) {
      cancelIfInputEnded();
      break;
    }
  }
  return 0;
}

void ConsoleUI::setCurrentProgress(int percent) {
  currentProgress = percent;
  progressLineShown = true;
}

void ConsoleUI::setDestinationText(const char* text) {
  if (quiet) return;
  destinationText = text ? text : "";
  int length = destinationText.getLength();
  if (length > 0 && destinationText.getText()[length - 1] == '\n') destinationText.setLength(length - 1, 1);
  if (!progressLineShown) {
    std::fprintf(outputStream, "%s\n", destinationText.getText());
    std::fflush(outputStream);
  }
}

void ConsoleUI::addFileLine(const char* text, bool flush) {
  if (quiet) return;
  if (text) std::fprintf(outputStream, "%s\n", text);
  if (flush) std::fflush(outputStream);
}

bool ConsoleUI::showMessage(const char* text, int kind) {
  if (quiet) return true;
  std::fputs("\n", outputStream);
  if (!input) {
    std::fprintf(outputStream, "%s\n", text ? text : "");
    std::fflush(outputStream);
    return kind != kMessageNotice;
  }
  switch (kind) {
    case kMessageOkCancel:
      return input->askTwoWay(text, 0, "OK", "Cancel", 1, 1) == 0;
    case kMessageNotice:
      input->showNotice(text);
      return false;
    case kMessageYesNo:
      return input->askTwoWay(text, 0, "yes", "no", 0, 0) == 0;
    default:
      return true;
  }
}

int ConsoleUI::beginProgress() {
  progressLineShown = true;
  return 0;
}

int ConsoleUI::endProgress() {
  eraseProgressLine();
  return 0;
}

void ConsoleUI::eraseProgressLine() {
  if (quiet) return;
  progressLineShown = false;
  std::fprintf(outputStream, "\r%78s\r", "");
  std::fflush(outputStream);
  std::fputs("\n", outputStream);
}
