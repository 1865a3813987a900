// Wini: running programs, a second engine for removing an older
// installation, and the registered uninstaller run in its own process.
//
// Programs are found by the base name of a process's first module, compared
// without case. The debug privilege is asked for so that other users'
// processes can be opened; where it is refused, those are passed over.
#include <windows.h>
#include <psapi.h>

#include <cstring>

#include "foundation/convert.h"
#include "foundation/text.h"
#include "platform/uninstaller_handover.h"
#include "platform/windows/wini.h"

namespace {

const DWORD kIdBufferBytes = 8192;
const DWORD kModuleBufferBytes = 8192;
const DWORD kWideNameSize = 520;

bool setPrivilege(HANDLE token, const wchar_t* privilegeName, bool enable) {
  LUID id;
  if (!LookupPrivilegeValueW(nullptr, privilegeName, &id)) return false;
  // First the present state, without enabling anything.
  TOKEN_PRIVILEGES request = {};
  request.PrivilegeCount = 1;
  request.Privileges[0].Luid = id;
  request.Privileges[0].Attributes = 0;
  TOKEN_PRIVILEGES previous = {};
  DWORD previousSize = sizeof previous;
  AdjustTokenPrivileges(token, FALSE, &request, sizeof request, &previous, &previousSize);
  if (GetLastError() != ERROR_SUCCESS) return false;
  previous.PrivilegeCount = 1;
  previous.Privileges[0].Luid = id;
  if (enable)
    previous.Privileges[0].Attributes |= SE_PRIVILEGE_ENABLED;
  else
    previous.Privileges[0].Attributes &= ~static_cast<DWORD>(SE_PRIVILEGE_ENABLED);
  AdjustTokenPrivileges(token, FALSE, &previous, previousSize, nullptr, nullptr);
  return GetLastError() == ERROR_SUCCESS;
}

// The process list with the debug privilege held for as long as it lives.
class ProcessWalk {
 public:
  ProcessWalk() : ids(new DWORD[kIdBufferBytes / sizeof(DWORD)]), count(0), token(nullptr) {
    DWORD bytes = 0;
    if (!EnumProcesses(ids, kIdBufferBytes, &bytes) || bytes == 0) return;
    count = static_cast<int>(bytes / sizeof(DWORD));
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, FALSE, &token)) {
      token = nullptr;
      if (GetLastError() == ERROR_NO_TOKEN && ImpersonateSelf(SecurityImpersonation) &&
          !OpenThreadToken(GetCurrentThread(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, FALSE, &token))
        token = nullptr;
    }
    if (token) setPrivilege(token, L"SeDebugPrivilege", true);
  }
  ~ProcessWalk() {
    delete[] ids;
    if (token) {
      setPrivilege(token, L"SeDebugPrivilege", false);
      CloseHandle(token);
    }
  }
  int getCount() const { return count; }
  DWORD getId(int index) const { return ids[index]; }

 private:
  DWORD* ids;
  int count;
  HANDLE token;
};

// Opens process `id` with `access` when its executable is `name`. Null if
// it can't be opened or runs something else.
HANDLE openProcessNamed(DWORD id, DWORD access, const char* name) {
  HANDLE process = OpenProcess(access, FALSE, id);
  if (!process) return nullptr;
  HMODULE* modules = new HMODULE[kModuleBufferBytes / sizeof(HMODULE)];
  DWORD needed = 0;
  wchar_t baseName[kWideNameSize];
  bool named = EnumProcessModules(process, modules, kModuleBufferBytes, &needed) && needed > 0 &&
               GetModuleBaseNameW(process, modules[0], baseName, kWideNameSize) > 0;
  delete[] modules;
  if (named) {
    char base[kWideNameSize * 3];
    QUtils::wideToUtf8(baseName, base, sizeof base);
    named = QUtils::compareNoCase(base, name) == 0;
  }
  if (!named) {
    CloseHandle(process);
    return nullptr;
  }
  return process;
}

// The full path of the process's executable, in UTF-8; false if unknown.
bool fullPathOf(HANDLE process, char* out, int size) {
  wchar_t path[kWideNameSize];
  if (GetModuleFileNameExW(process, nullptr, path, kWideNameSize) == 0) return false;
  QUtils::wideToUtf8(path, out, size);
  return true;
}

}  // namespace

bool Wini::isAppRunning(const char* name, const char* directory) {
  if (!name) return false;
  ProcessWalk walk;
  for (int i = 0; i < walk.getCount(); i++) {
    HANDLE process = openProcessNamed(walk.getId(i), PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, name);
    if (!process) continue;
    bool found = !directory;
    if (directory) {
      char full[QUtils::kMaxPath];
      if (!fullPathOf(process, full, sizeof full)) {
        log("ERROR: Wini::isAppRunning(..) could not obtain the full file name of the running module: \"%s\"", name);
      } else {
        char wanted[QUtils::kMaxPath];
        QUtils::copyText(wanted, directory, sizeof wanted);
        QUtils::cleanPath(full);
        QUtils::cleanPath(wanted);
        QUtils::toLowerText(full);
        QUtils::toLowerText(wanted);
        found = std::strstr(full, wanted) != nullptr;
        if (!found) log("App \"%s\" running in separate dir: \"%s\" - searched: \"%s\"", name, full, wanted);
      }
    }
    CloseHandle(process);
    if (found) return true;
  }
  return false;
}

bool Wini::terminateApp(const char* name, bool asService) {
  if (!name) return false;
  ProcessWalk walk;
  for (int i = 0; i < walk.getCount(); i++) {
    HANDLE process =
        openProcessNamed(walk.getId(i), PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_TERMINATE, name);
    if (!process) continue;
    if (asService) {
      // A service's own program is asked to stop first; it is ended anyway.
      char full[QUtils::kMaxPath];
      if (fullPathOf(process, full, sizeof full)) runProgram(full, "-stop", RUN_ASYNCHRONOUS, nullptr, nullptr, 100);
    }
    bool ended = TerminateProcess(process, 0) != 0;
    CloseHandle(process);
    if (ended) return true;
  }
  return false;
}

Installer* Wini::createEngine() {
  Wini* engine = new Wini(debug, gui, ignoreErrors);
  engine->setConfigFile(configFile);
  return engine;
}

bool Wini::runRegisteredUninstaller(const char* name) { return ::runRegisteredUninstaller(this, name, gui); }
