// The common start of every run, and the choice of role.
#include "app/entry.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "app/messages.h"
#include "engine/exit_codes.h"
#include "engine/result_log.h"
#include "foundation/files.h"
#include "foundation/parameters.h"
#include "foundation/system_error.h"
#include "foundation/text.h"
#include "platform/host.h"
#include "platform/installer_factory.h"
#include "qlux_revision.h"
#include "qlux_version.h"

namespace {

const char kEscapeByte = static_cast<char>(0xAC);

// What --help prints. The installer's own options only: a vendor's product
// adds none.
const char kUsage[] =
    "usage: %s [options] [-NAME=value ...]\n"
    "\n"
    "Installs the product packed into this program, through a wizard window or,\n"
    "without a display, on the console.\n"
    "\n"
    "  -gui=0                 run the wizard on the console\n"
    "  -auto                  install with the template's answers, asking nothing\n"
    "  -configFile=FILE       install with the answers of a config.xml, asking nothing\n"
    "  -NAME=value            set the template variable NAME (an unknown NAME is\n"
    "                         refused with exit code 4)\n"
    "  -quiet=1               print nothing on the console (-quiet=0 undoes what\n"
    "                         -configFile sets)\n"
    "  -ignoreErrors=1        go on after errors in an unattended run\n"
    "  -backup=0              don't keep a backup of an older installation that is\n"
    "                         removed first\n"
    "  -log=FILE              write the result log to FILE\n"
    "  -exportConfig=FILE     write the run's answers as a config.xml to FILE\n"
    "  -debug=1               write installer_debug.log into the temporary folder\n"
    "  -bin=FILE              install from a bare package instead of this program's own\n"
    "  -uninstall=LOG -uninstallApp=NAME [-wait]\n"
    "                         remove the installation that LOG describes (the command\n"
    "                         the list of installed programs runs); with -wait the\n"
    "                         command ends when the uninstallation has ended, with its\n"
    "                         exit code\n"
    "  --help                 show this text\n"
    "  --version              show the version\n"
    "\n"
    "Exit codes: 0 done, 1 failed, 2 cancelled, 3 damaged installer, 4 bad command\n"
    "line or configuration, 5 rights missing, 6 a program still running, 7 done with\n"
    "errors that -ignoreErrors=1 let through.\n";

// --help (also -h and -?) and --version answer at once and end the run, before
// the rights check: they change nothing.
bool answeredInfoOption(const QUtils::Parameters& parameters) {
  if (parameters.find("help", -1) >= 0 || parameters.find("h", -1) >= 0 || parameters.find("?", -1) >= 0) {
    const char* program = QUtils::getProgramPath();
    const char* slash = program ? std::strrchr(program, '/') : nullptr;
    const char* backslash = program ? std::strrchr(program, '\\') : nullptr;
    if (backslash > slash) slash = backslash;
    std::printf(kUsage, slash ? slash + 1 : program && *program ? program : "qlux-setup");
    std::fflush(stdout);
    return true;
  }
  if (parameters.find("version", -1) >= 0) {
    std::printf("qlux-setup %s (revision %s)\n", QLUX_VERSION, QLUX_REVISION);
    std::fflush(stdout);
    return true;
  }
  return false;
}

void openDebugLog(QUtils::PFileConsole* log) {
  char path[QUtils::kMaxPath];
  if (!QUtils::getTempDirectory(path, sizeof path)) QUtils::copyText(path, "C:", sizeof path);
  QUtils::appendPath(path, "installer_debug.log", sizeof path);
  // The temporary directory is shared: a name that another user took (a
  // file, a link, a FIFO) is left to her, and the run goes on without a log.
  QUtils::FileTrust trust = QUtils::checkFileTrust(path);
  if (trust != QUtils::kFileMissing && trust != QUtils::kTrustedFile) {
    std::printf("The Installer debug log file can't be created: %s %s\n", path, QUtils::describeFileTrust(trust));
    std::fflush(stdout);
    return;
  }
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
  log->printf("Installation was called with arguments:");
  for (int i = 0; i < parameters.getCount(); i++) {
    const QUtils::Parameter* p = parameters.get(i);
    if (p->value && *p->value)
      log->printf("  [ARG %02d] -%s=\"%s\"", i, p->name, p->value);
    else
      log->printf("  [ARG %02d] -%s", i, p->name);
  }
}

// The line that says which folder the rights check could not write, and why.
std::string programFolderReason() {
  char folder[QUtils::kMaxPath];
  char line[QUtils::kMaxPath + 100];
  if (!Host::getProgramFilesDirectory(folder, sizeof folder)) return QLUX_ADMIN_UNKNOWN;
  std::snprintf(line, sizeof line, QUtils::isDirectory(folder) ? QLUX_ADMIN_NOT_WRITABLE : QLUX_ADMIN_MISSING, folder);
  return line;
}

}  // namespace

void tellUser(const RunOptions& options, EntryMessage message, const char* detail) {
  const bool box = options.gui && Host::hasMessageBox();
  char text[QUtils::kMaxPath + 512];
  switch (message) {
    case kMessageNoAdminRights:
      std::snprintf(text, sizeof text, "%s%s%s", box ? QLUX_ADMIN_GRAPHICAL : QLUX_ADMIN_CONSOLE, box ? "\n\n" : "",
                    programFolderReason().c_str());
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
  std::printf("%s\n", text);
  std::fflush(stdout);
}

namespace {

// The result log's first lines: what runs, and with which options.
void noteStart(ResultLog* result, const RunOptions& options, QUtils::Parameters& parameters) {
  const char* role = options.uninstall       ? "uninstaller, first stage"
                     : options.uninstallFile ? "uninstaller"
                                             : "installer";
  result->printf("qlux-setup %s (revision %s), %s", QLUX_VERSION, QLUX_REVISION, role);
  std::string line = "Options:";
  for (int i = 0; i < parameters.getCount(); i++) {
    const QUtils::Parameter* p = parameters.get(i);
    line += " -";
    line += p->name;
    if (p->value && *p->value) line += std::string("=\"") + p->value + "\"";
  }
  result->printf("%s", parameters.getCount() > 0 ? line.c_str() : "Options: none");
}

// The engine takes what the options say about the run's values and files.
void configureEngine(Installer* engine, const RunOptions& options, ResultLog* result, QUtils::PFileConsole* log) {
  engine->logConsole = log;
  engine->resultLog = result;
  engine->unattended = isUnattended(options);
  if (options.exportConfig)
    QUtils::copyText(engine->exportConfigPath, options.exportConfig, sizeof engine->exportConfigPath);
  for (const auto& value : options.values) engine->commandLineValues.push_back({value.first, value.second});
}

}  // namespace

// Exposed for the tests: the file name a product's result log takes.
std::string resultLogStem(const char* product, const char* role) {
  std::string stem = product && *product ? product : "qlux";
  for (char& c : stem) {
    if (std::strchr("/\\:*?\"<>|", c) || static_cast<unsigned char>(c) < 0x20) c = '_';
  }
  return stem + "-" + role;
}

void finishResultLog(Installer* engine, const RunOptions& options, const char* stem, int code, const char* text) {
  ResultLog* result = engine->resultLog;
  if (!result) return;
  if (!result->getPath()[0]) {
    char besideLog[QUtils::kMaxPath];
    char directory[QUtils::kMaxPath];
    bool placed = false;
    const Installer::Outcome& outcome = engine->outcome;
    bool stands = outcome.logPlaced && !outcome.reverted && !outcome.revertFailed;
    if (stands && engine->getResultLogPath(besideLog, sizeof besideLog))
      placed = result->placeAt(besideLog) == 0;
    if (!placed && QUtils::getTempDirectory(directory, sizeof directory)) placed = result->placeExclusively(directory, stem) == 0;
    if (!placed) engine->log("ERROR: The result log could not be written");
  }
  result->writeResult(text, code);
  engine->log("Result: %s (exit code %d); result log: %s", text, code, result->getPath());
  // A person at the console is told where the story of the run is.
  if (code != kExitSuccess && !options.quiet && result->getPath()[0]) {
    std::fprintf(stderr, "The result log is %s\n", result->getPath());
  }
}

int qluxEntry(int argc, char** argv) {
  QUtils::CharString commandLine;
  if (!Host::getCommandLine(argc, argv, &commandLine)) {
    std::printf("ERROR: Command line couldn't be parsed. Exiting!\n");
    return kExitBadUsage;
  }
  storeProgramName(commandLine.getText());
  char narrow[4096];
  QUtils::copyText(narrow, commandLine.getText(), sizeof narrow);
  QUtils::Parameters parameters;
  int parsed = parameters.parseCommandLine(narrow, kEscapeByte);
  if (answeredInfoOption(parameters)) return kExitSuccess;

  RunOptions options;
  options.debug = readDebugOption(parameters);
  QUtils::PFileConsole log;
  if (options.debug) openDebugLog(&log);
  log.printf("Installer version revision: %s", QLUX_REVISION);
  log.printf("Installer version: %s", QLUX_VERSION);
  log.printf("Parsing command line arguments");
  if (options.debug) logArguments(parameters, &log);
  readRunOptions(parameters, &options, parsed);
  log.printf("Installation started");

  // -log names the result log's file from the start; a first stage leaves
  // it to the second stage, which it hands the option on to.
  ResultLog result;
  if (options.log && !options.uninstall && options.usageError.empty()) {
    int error = result.openNamed(options.log);
    if (error != 0) {
      char reason[256];
      QUtils::describeSystemError(error, reason, sizeof reason);
      options.usageError = std::string("the result log ") + options.log + " can't be written: " + reason;
    }
  }
  noteStart(&result, options, parameters);

  Installer* engine = createPlatformInstaller(options.debug, options.gui, options.ignoreErrors, options.configFile);
  configureEngine(engine, options, &result, &log);
  engine->graphicalRequested = options.gui;

  std::string text;
  int code;
  const char* role = options.uninstall || options.uninstallFile ? "uninstall" : "install";
  if (!options.usageError.empty()) {
    text = "bad command line: " + options.usageError;
    std::fprintf(stderr, "%s\n", text.c_str());
    code = kExitBadUsage;
  } else if (!Host::hasAdminRights()) {
    tellUser(options, kMessageNoAdminRights);
    char folder[QUtils::kMaxPath];
    if (!Host::getProgramFilesDirectory(folder, sizeof folder)) folder[0] = 0;
    text = std::string("rights missing: the program folder ") + folder + " can't be written";
    code = kExitNoRights;
  } else if (options.uninstall) {
    code = runFirstStage(engine, options, &log, &text);
  } else if (options.uninstallFile) {
    code = runSecondStage(engine, options, &log, &text);
  } else {
    code = runInstallation(engine, options, &log, &text);
  }
  // A first stage that handed over leaves the result log to the second.
  if (!text.empty()) {
    char product[512];
    if (engine->getProductName(product, sizeof product) != 0 || !product[0])
      QUtils::copyText(product, options.uninstallApp ? options.uninstallApp : "", sizeof product);
    if (options.log && options.uninstall) {
      int error = result.openNamed(options.log);
      if (error != 0) engine->log("ERROR: The result log %s can't be written", options.log);
    }
    finishResultLog(engine, options, resultLogStem(product, role).c_str(), code, text.c_str());
  }
  delete engine;
  // Temporary files lie in this run's own directory, which goes with them.
  // A first stage that started the second hands its directory over (one
  // that waited has removed it already); a second stage run with -debug
  // keeps the copies it was handed.
  bool handedOver = options.uninstall && code == kExitSuccess;
  bool keptForDebugging = !options.uninstall && options.uninstallFile && options.debug;
  if (!handedOver && !keptForDebugging) QUtils::removeRunDirectory();
  return code;
}
