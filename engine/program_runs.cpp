// Program runs: the children of a tag element, run in document order. A
// child's element name is its kind (OpenDocument, RunProgram, CopyFile,
// Registry, without case); its text is the program, document or source
// path. Failures are logged and go no further.
#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

namespace {

const int kFlushEvery = 32;

// Sizes of the expanded texts, terminator included.
const int kPathSize = 1024;
const int kArgumentsSize = 4096;
const int kWorkDirSize = 1560;
const int kDestSize = 1560;

enum ChildKind { kOpenDocument, kRunProgram, kCopyFile, kRegistry, kUnknown };

ChildKind kindOf(const char* name) {
  if (QUtils::compareNoCase(name, "OpenDocument") == 0) return kOpenDocument;
  if (QUtils::compareNoCase(name, "RunProgram") == 0) return kRunProgram;
  if (QUtils::compareNoCase(name, "CopyFile") == 0) return kCopyFile;
  if (QUtils::compareNoCase(name, "Registry") == 0) return kRegistry;
  return kUnknown;
}

// True if the attribute is there and its condition holds.
bool conditionSet(Installer& engine, int child, const char* attribute) {
  const char* text = engine.document.getAttribute(child, attribute);
  return text && engine.evaluateCondition(text) != 0;
}

// The run flags that a child's attributes ask for, and the interval between
// the polls of an asynchronous run.
int readRunFlags(Installer& engine, int child, int* outIntervalMs) {
  int flags = 0;
  if (conditionSet(engine, child, "Wait")) flags |= Installer::RUN_WAIT;
  if (conditionSet(engine, child, "AsRoot")) flags |= Installer::RUN_AS_ROOT;
  if (conditionSet(engine, child, "Asynchronous")) flags |= Installer::RUN_ASYNCHRONOUS;
  *outIntervalMs = 0;
  const char* progress = engine.document.getAttribute(child, "ProgressUpdate");
  int32_t tenths = 0;
  if (progress && QUtils::parseInteger(&tenths, progress) && tenths > 0) {
    flags |= Installer::RUN_PROGRESS;
    *outIntervalMs = tenths * 10;
  }
  const char* errorOutput = engine.document.getAttribute(child, "ErrorOutput");
  if (errorOutput && engine.evaluateCondition(errorOutput) == 0) flags |= Installer::RUN_NO_ERROR_OUTPUT;
  return flags;
}

void copyWithDest(Installer& engine, int child, const char* source) {
  const char* destText = engine.document.getAttribute(child, "Dest");
  if (!destText) {
    engine.log("ERROR: Copy file without Destination attribute!");
    return;
  }
  char dest[kDestSize];
  engine.expandVariables(destText, dest, sizeof dest);
  QUtils::collapseSeparators(dest);
  // A copy that fails is the template's business: it isn't reported.
  engine.copyFile(source, dest);
}

// One child of a tag element; `position` is its place among its siblings.
void runTagChild(Installer& engine, InstallerUI* ui, int child, int position) {
  const char* condition = engine.document.getAttribute(child, "Condition");
  if (condition && engine.evaluateCondition(condition) == 0) return;
  const char* logText = engine.document.getAttribute(child, "Log");
  if (ui && logText) ui->addFileLine(logText, position % kFlushEvery == 0);

  ChildKind kind = kindOf(engine.document.getName(child));
  if (kind == kUnknown) return;
  if (kind == kRegistry) {
    engine.runRegistryAction(ui, child);
    return;
  }
  const char* text = engine.document.getValue(child);
  if (!text || !text[0]) return;

  char path[kPathSize];
  engine.expandVariables(text, path, sizeof path);
  QUtils::cleanPath(path);
  char workDir[kWorkDirSize];
  workDir[0] = 0;
  const char* workDirText = engine.document.getAttribute(child, "WorkDir");
  if (workDirText) {
    engine.expandVariables(workDirText, workDir, sizeof workDir);
    QUtils::cleanPath(workDir);
  }
  char arguments[kArgumentsSize];
  arguments[0] = 0;
  const char* argumentsText = engine.document.getAttribute(child, "Arguments");
  if (argumentsText) engine.expandVariables(argumentsText, arguments, sizeof arguments);
  int intervalMs = 0;
  int flags = readRunFlags(engine, child, &intervalMs);
  // Nobody answers a program that an unattended run starts: one that asks
  // gets the end of its input at once instead of waiting, or taking the
  // installer's own input away from it.
  if (engine.unattended) flags |= Installer::RUN_NO_INPUT;

  switch (kind) {
    case kOpenDocument:
      // The shell opens a document and returns: there is nothing to wait for.
      if (!engine.runProgram(path, nullptr, flags | Installer::RUN_DOCUMENT, nullptr, nullptr, 100))
        engine.log("ERROR: Document was not opened : \"%s\"", path);
      break;
    case kRunProgram:
      if (!engine.runProgram(path, arguments, flags, workDir[0] ? workDir : nullptr, ui, intervalMs))
        engine.log("ERROR: Program was not started : \"%s %s\"", path, arguments);
      break;
    case kCopyFile:
      copyWithDest(engine, child, path);
      break;
    default:
      break;
  }
}

}  // namespace

int Installer::runTagActions(InstallerUI* ui, const char* tag) {
  if (!tag) return -1;
  log("Running Files for installation tag: <%s>", tag);
  for (int element = document.findNext(tag, -1); element >= 0; element = document.findNext(tag, element)) {
    QUtils::PList<int> children(16);
    document.getChildren(element, &children);
    for (int i = 0; i < children.getCount(); i++) runTagChild(*this, ui, children[i], i);
    if (ui) ui->addFileLine(nullptr, true);
  }
  return 0;
}

bool Installer::runProgram(const char* path, const char*, int, const char*, InstallerUI*, int) {
  log("ERROR: This system can't start \"%s\"", path ? path : "");
  return false;
}
