// The installation path: verify the program's own file, load the package
// behind its image (or a bare package named by -bin), make the front end
// and run the wizard. The result is the process's exit code: 3 for a
// damaged installer, 4 for a configuration file the console can't use,
// else what the engine's run came to.
#include <cstring>
#include <string>

#include "app/entry.h"
#include "app/front_end.h"
#include "engine/exit_codes.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "package/checksum.h"
#include "package/image_offset.h"

namespace {

int loadPackage(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log) {
  if (options.bin) {
    log->printf("Initializing with bin file: %s", options.bin);
    int result = engine->openPackage(options.bin, 0, options.runFlags);
    if (result != 0) {
      log->printf("ERROR: Initialization with bin file failed with result: %d", result);
      tellUser(options, kMessageBadBin);
    }
    return result;
  }
  char path[QUtils::kMaxPath];
  if (!QUtils::getModulePath(path, sizeof path)) {
    log->printf("ERROR: Failed to obtain module file name");
    return -1;
  }
  uint32_t offset = getPackageOffset();
  log->printf("Initializing with file=\"%s\", offset=%i", path, static_cast<int>(offset));
  if (!verifyPackageChecksum(path)) {
    tellUser(options, kMessageBadChecksum);
    log->printf("ERROR: The installer checksum failed!");
    return -1;
  }
  log->printf("Checksum successfuly verified");
  int result = engine->openPackage(path, offset, options.runFlags);
  if (result == kPackagePartMissing || result == kPackagePartDamaged) {
    tellUser(options, result == kPackagePartMissing ? kMessagePartMissing : kMessagePartDamaged,
             engine->package.problemFile());
  }
  return result;
}

}  // namespace

int runInstallation(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log, std::string* text) {
  int result = loadPackage(engine, options, log);
  int code = kExitSuccess;
  if (result != 0) {
    code = kExitDamaged;
    *text = options.bin ? std::string("the package ") + options.bin + " can't be loaded: it is damaged or no package"
                        : "the installer is damaged (its checksum or its package): download it again";
  }
  InstallerUI* ui = nullptr;
  if (result == 0 && options.gui) {
    ui = createGraphicalFrontEnd(engine, 0, options);
    if (ui) {
      log->printf("Running installation");
      result = engine->runInstallation(ui, log);
    } else {
      log->printf("ERROR: Unable to initialize GUI installation");
      code = kExitFailed;
      *text = "the wizard's window can't be opened";
    }
  } else if (result == 0) {
    char input[QUtils::kMaxPath];
    QUtils::copyText(input, options.configFile ? options.configFile : options.autoInstall ? "autoInstall" : "",
                     sizeof input);
    log->printf("Initializing with input: \"%s\"", input);
    int initResult = -1;
    ui = createConsoleFrontEnd(engine, 0, options, input, &initResult);
    if (ui && initResult == 0) {
      log->printf("Running installation");
      result = engine->runInstallation(ui, log);
    } else {
      log->printf("ERROR: Unable to initialize Console installation");
      result = -1;
      code = kExitBadUsage;
      *text = std::string("the configuration file ") + (options.configFile ? options.configFile : "") +
              " is missing or no configuration file";
    }
  }
  log->printf("Installation finished (res=%i)", result);
  if (text->empty()) {
    char words[1200];
    code = engine->getExitCode(result, words, sizeof words);
    *text = words;
  }
  engine->cleanup();
  delete ui;
  return code;
}
