// Reading the command line into RunOptions (options.h): the program's own
// options first, then the run options in their fixed order.
#include "app/options.h"

#include "foundation/text.h"
#include "package/package.h"

namespace {

// The program's own options; --help, -h, -? and --version answer before
// anything else is read.
const char* const kOwnOptions[] = {"debug",         "gui",  "ignoreErrors", "backup", "auto",         "configFile",
                                   "quiet",         "bin",  "uninstall",    "uninstallApp", "uninstallFile", "log",
                                   "exportConfig",  "wait", "help",         "h",      "?",            "version"};

bool isOwnOption(const char* name) {
  for (const char* own : kOwnOptions) {
    if (QUtils::compareNoCase(own, name) == 0) return true;
  }
  return false;
}

}  // namespace

int readDebugOption(QUtils::Parameters& parameters) {
  int debug = 0;
  parameters.getInteger("debug", &debug);
  return debug;
}

void readRunOptions(QUtils::Parameters& parameters, RunOptions* options, int parseResult) {
  options->debug = readDebugOption(parameters);
  parameters.getInteger("gui", &options->gui);
  parameters.getInteger("ignoreErrors", &options->ignoreErrors);
  parameters.getInteger("backup", &options->backup);
  if (options->backup) options->runFlags |= kRunFlagBackup;
  if (parameters.getText("auto", nullptr)) {
    options->autoInstall = true;
    options->gui = 0;
  }
  if (parameters.getText("configFile", &options->configFile)) {
    options->gui = 0;
    options->quiet = 1;
  }
  parameters.getInteger("quiet", &options->quiet);
  parameters.getText("bin", &options->bin);
  parameters.getText("uninstall", &options->uninstall);
  parameters.getText("uninstallApp", &options->uninstallApp);
  if (parameters.getText("uninstallFile", &options->uninstallFile)) options->runFlags |= kRunFlagActionLog;
  parameters.getText("log", &options->log);
  parameters.getText("exportConfig", &options->exportConfig);
  options->wait = parameters.getText("wait", nullptr);

  if (parseResult == -1) {
    options->usageError = "a word on the command line is no option: options begin with '-'";
  } else if (parseResult == -2) {
    options->usageError = "a quoted value on the command line has no closing quote";
  } else if (options->log && !*options->log) {
    options->usageError = "-log needs a file name: -log=FILE";
  } else if (options->exportConfig && !*options->exportConfig) {
    options->usageError = "-exportConfig needs a file name: -exportConfig=FILE";
  }
  bool uninstalling = options->uninstall || options->uninstallFile;
  for (int i = 0; i < parameters.getCount(); i++) {
    const QUtils::Parameter* option = parameters.get(i);
    if (isOwnOption(option->name)) continue;
    if (uninstalling) {
      if (options->usageError.empty())
        options->usageError = std::string("-") + option->name + " is no option of the uninstaller";
      continue;
    }
    // Of a name given twice the first counts, as for every option.
    if (parameters.find(option->name, -1) != i) continue;
    options->values.emplace_back(option->name, option->value ? option->value : "");
  }
}
