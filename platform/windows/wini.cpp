// The body of Wini (wini.h) apart from the units named there: the
// configuration file, temporary names, help, the journal's folder and the
// engine's factory.
#include "platform/windows/wini.h"

#include <windows.h>
#include <shlobj.h>

#include <cstring>
#include <cwchar>

#include "foundation/convert.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/installer_factory.h"

Wini::Wini(int debug, int gui, int ignoreErrors) : debug(debug), gui(gui), ignoreErrors(ignoreErrors) {
  configFile[0] = 0;
}

Wini::~Wini() {}

void Wini::setConfigFile(const char* path) {
  if (path) QUtils::copyText(configFile, path, sizeof configFile);
}

bool Wini::getConfigFile(char* buffer, int size) {
  if (size >= 1) QUtils::copyText(buffer, configFile, size);
  return true;
}

int Wini::getTempFileName(char* buffer, int size) {
  // With a unique number that isn't 0 the system only builds the name. The
  // names lie in this run's own directory, which only this run makes files in.
  static unsigned counter = 0;
  counter = (counter + 1) & 0xFFFF;
  if (counter == 0) counter = 1;
  char runDirectory[QUtils::kMaxPath];
  if (!QUtils::getRunDirectory(runDirectory, sizeof runDirectory)) return -1;
  QUtils::TextConverter directory(runDirectory);
  wchar_t name[520];
  if (GetTempFileNameW(directory.wide(), L"qlinstall", counter, name) == 0) return -1;
  QUtils::TextConverter converter(name);
  converter.toNarrow(buffer, size);
  return 0;
}

void Wini::openHelp(InstallerUI*) {
  char url[4096];
  if (getHelpUrl(url, sizeof url) != 0 || !url[0]) return;
  wchar_t type[520];
  LONG typeSize = sizeof type;
  if (RegQueryValueW(HKEY_CLASSES_ROOT, L".htm", type, &typeSize) != ERROR_SUCCESS) return;
  if (RegQueryValueW(HKEY_CLASSES_ROOT, type, nullptr, nullptr) != ERROR_SUCCESS) return;
  wchar_t key[600];
  _snwprintf(key, 600, L"%ls\\shell\\open\\command", type);
  key[599] = 0;
  wchar_t command[520];
  LONG commandSize = sizeof command;
  if (RegQueryValueW(HKEY_CLASSES_ROOT, key, command, &commandSize) != ERROR_SUCCESS) return;

  // The address takes the place of "%1", or goes behind a blank.
  QUtils::TextConverter commandText(command);
  QUtils::CharString line;
  const char* text = commandText.narrow();
  const char* mark = std::strstr(text, "%1");
  if (mark) {
    line.assignRange(text, static_cast<int>(mark - text));
    line.append(url);
    line.append(mark + 2);
  } else {
    line.assign(text);
    line.append(" ");
    line.append(url);
  }
  QUtils::TextConverter wideLine(line);
  int length = wideLine.wideLength();
  wchar_t* writable = new wchar_t[length];
  wideLine.toWide(writable, length);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (CreateProcessW(nullptr, writable, nullptr, nullptr, FALSE, 0x4000230, nullptr, nullptr, &startup, &process)) {
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  delete[] writable;
}

Installer* createPlatformInstaller(int debug, int gui, int ignoreErrors, const char* configFile) {
  Wini* installer = new Wini(debug, gui, ignoreErrors);
  installer->setConfigFile(configFile);
  return installer;
}

bool Wini::getJournalDirectory(char* buffer, int size) {
  wchar_t folder[MAX_PATH];
  if (FAILED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder)) || size < 1) return false;
  QUtils::TextConverter converter(folder);
  converter.toNarrow(buffer, size);
  QUtils::appendText(buffer, "\\qlux\\journal", size);
  return true;
}

long Wini::getProcessId() { return static_cast<long>(GetCurrentProcessId()); }

bool Wini::isProcessRunning(long pid) {
  if (pid <= 0) return false;
  HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid));
  if (!process) return GetLastError() == ERROR_ACCESS_DENIED;
  DWORD code = 0;
  bool running = GetExitCodeProcess(process, &code) && code == STILL_ACTIVE;
  CloseHandle(process);
  return running;
}
