// The common start of every run, and the choice of role.
#include "app/entry.h"

#include <cstdio>
#include <cstring>

#include "app/messages.h"
#include "foundation/files.h"
#include "foundation/parameters.h"
#include "foundation/text.h"
#include "platform/host.h"
#include "platform/installer_factory.h"
#include "qlux_revision.h"

namespace {

const char kEscapeByte = static_cast<char>(0xAC);

void openDebugLog(QUtils::PFileConsole* log) {
  char path[QUtils::kMaxPath];
  if (!QUtils::getTempDirectory(path, sizeof path)) QUtils::copyText(path, "C:", sizeof path);
  QUtils::appendPath(path, "installer_debug.log", sizeof path);
  if (log->open(path, 0) == 0) {
    std::printf("Successfully created Installer debug log file:\n\t%s\n", path);
    std::fflush(stdout);
  }
}

// Stores the program's name as the command line gives it: its first word,
// quoted or up to the first blank. It comes from the command line in UTF-8
// rather than from argv, whose text on Windows is in the ANSI code page.
void storeProgramName(const char* commandLine) {
  char name[QUtils::kMaxPath] = "";
  const char* p = commandLine ? commandLine : "";
  char end = ' ';
  if (*p == '"') {
    end = '"';
    p++;
  }
  int length = 0;
  while (p[length] && p[length] != end && length < static_cast<int>(sizeof name) - 1) length++;
  std::memcpy(name, p, static_cast<size_t>(length));
  name[length] = 0;
  QUtils::setProgramPath(name);
}

void logArguments(QUtils::Parameters& parameters, QUtils::PFileConsole* log) {
  log->printf("Insatllation was called with arguments:");
  for (int i = 0; i < parameters.getCount(); i++) {
    const QUtils::Parameter* p = parameters.get(i);
    if (p->value && *p->value)
      log->printf("  [ARG %02d] -%s=\"%s\"", i, p->name, p->value);
    else
      log->printf("  [ARG %02d] -%s", i, p->name);
  }
}

}  // namespace

void tellUser(const RunOptions& options, EntryMessage message, const char* detail) {
  const bool box = options.gui && Host::hasMessageBox();
  char text[QUtils::kMaxPath + 512];
  switch (message) {
    case kMessageNoAdminRights:
      std::snprintf(text, sizeof text, "%s", box ? QLUX_ADMIN_GRAPHICAL : QLUX_ADMIN_CONSOLE);
      break;
    case kMessageBadBin:
      std::snprintf(text, sizeof text, "%s", QLUX_BAD_BIN);
      break;
    case kMessageBadChecksum:
      std::snprintf(text, sizeof text, "%s", QLUX_BAD_CHECKSUM);
      break;
    case kMessagePartMissing:
      std::snprintf(text, sizeof text, QLUX_PART_MISSING, detail);
      break;
    case kMessagePartDamaged:
      std::snprintf(text, sizeof text, QLUX_PART_DAMAGED, detail);
      break;
  }
  if (box) {
    Host::showMessageBox(text, QLUX_MESSAGE_TITLE,
                         message == kMessageNoAdminRights ? Host::kIconWarning : Host::kIconError);
    return;
  }
  std::printf(message == kMessageNoAdminRights ? "%s" : "%s\n", text);
  std::fflush(stdout);
}

int qluxEntry(int argc, char** argv) {
  QUtils::CharString commandLine;
  if (!Host::getCommandLine(argc, argv, &commandLine)) {
    std::printf("ERROR: Command line couldn't be parsed. Exiting!\n");
    return -1;
  }
  storeProgramName(commandLine.getText());
  char narrow[4096];
  QUtils::copyText(narrow, commandLine.getText(), sizeof narrow);
  QUtils::Parameters parameters;
  parameters.parseCommandLine(narrow, kEscapeByte);  // what was read up to an error counts

  RunOptions options;
  options.debug = readDebugOption(parameters);
  QUtils::PFileConsole log;
  if (options.debug) openDebugLog(&log);
  log.printf("Installer version revision: %s", QLUX_REVISION);
  log.printf("Parsing command line arguments");
  if (options.debug) logArguments(parameters, &log);
  readRunOptions(parameters, &options);
  log.printf("Installation started");

  Installer* engine = createPlatformInstaller(options.debug, options.gui, options.ignoreErrors, options.configFile);
  engine->logConsole = &log;
  engine->graphicalRequested = options.gui;

  int code = 0;
  if (!Host::hasAdminRights()) {
    tellUser(options, kMessageNoAdminRights);
    code = -1;
  } else if (options.uninstall) {
    code = runFirstStage(engine, options, &log);
  } else if (options.uninstallFile) {
    code = runSecondStage(engine, options, &log);
  } else {
    runInstallation(engine, options, &log);  // its result reaches only the log
  }
  delete engine;
  return code;
}
