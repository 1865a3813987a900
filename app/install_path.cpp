// The installation path: verify the program's own file, load the package
// behind its image (or a bare package named by -bin), make the front end
// and run the wizard. The result reaches only the log: the process ends
// with 0 whatever it was.
#include <cstring>

#include "app/entry.h"
#include "app/front_end.h"
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

int runInstallation(Installer* engine, const RunOptions& options, QUtils::PFileConsole* log) {
  int result = loadPackage(engine, options, log);
  InstallerUI* ui = nullptr;
  if (result == 0 && options.gui) {
    ui = createGraphicalFrontEnd(engine, 0, options);
    if (ui) {
      log->printf("Running installation");
      result = engine->runInstallation(ui, log);
    } else {
      log->printf("ERROR: Unable to initialize GUI installation");
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
    }
  }
  log->printf("Installation finished (res=%i)", result);
  engine->cleanup();
  delete ui;
  return result;
}
