// Fuzzes the replay of a configuration file (config.xml, -configFile): the
// input is the file. An engine with a template's DefValues (plain values
// with $ references, a kept value, a recalculated one, a registry value that
// falls back to its default, and a condition) reads it over its defaults as an unattended run would, then
// judges the folder it ends with as the destination checks do, exports its
// variables as a configuration file of its own, and a second engine
// replays that export. Nothing is installed: the reading, the expansion,
// the checks and the export are exercised.
#include <cstdint>
#include <string>

#include "engine/test_support.h"
#include "fuzz/fuzz_scratch.h"

namespace {

const char kTemplate[] =
    "<HalvoWorksInstallation><Installation><DefValues>"
    "<Value Name=\"PROGRAMFILES\" DataType=\"registry\" RegPlace=\"HKEY_LOCAL_MACHINE\" "
    "RegKey=\"SOFTWARE/Microsoft/Windows/CurrentVersion\" Default=\"/opt\">ProgramFilesDir</Value>"
    "<Value Name=\"INSTALLDIR\" DataType=\"value\" UseOld=\"1\">$PROGRAMFILES/Product</Value>"
    "<Value Name=\"BINDIR\" DataType=\"value\" Recalculate=\"1\">$INSTALLDIR/bin</Value>"
    "<Value Name=\"DESKTOP\" DataType=\"value\">1</Value>"
    "<Value Name=\"DOCS\" DataType=\"value\" Condition=\"[DESKTOP]==1\">$INSTALLDIR/doc</Value>"
    "</DefValues></Installation></HalvoWorksInstallation>";

// The destinations a template of this kind writes to.
const char* const kDestinations[] = {"[INSTALLDIR]", "[INSTALLDIR]/bin", "[BINDIR]/tool", "[DOCS]/readme.txt"};

// Reads the defaults and then `config` into `engine`; judges and exports
// what it ends with when `exportName` is given.
void replay(TestInstaller* engine, const std::string& config, const char* exportName) {
  engine->loadTemplate(kTemplate);
  QUtils::copyText(engine->configFile, config.c_str(), sizeof engine->configFile);
  if (engine->readDefaults(nullptr) != 0) return;
  char reason[QUtils::kMaxPath + 200];
  for (const char* destination : kDestinations) engine->checkDestinationText(destination, "a file", reason, sizeof reason);
  char folder[2048];
  if (engine->getVariable("INSTALLDIR", folder, sizeof folder) >= 0)
    engine->isUsableFolder(folder, reason, sizeof reason);
  if (exportName) engine->writeConfigFile(fuzzScratchPath(exportName).c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string config = fuzzScratchWrite("config.xml", data, size);
  TestInstaller first;
  replay(&first, config, "exported.xml");
  fuzzScratchRemove("config.xml");
  TestInstaller second;
  replay(&second, fuzzScratchPath("exported.xml"), nullptr);
  fuzzScratchRemove("exported.xml");
  return 0;
}
