// Host services on Windows.
#include "platform/host.h"

#include <windows.h>

#include <cstdio>

#include "foundation/command_line.h"
#include "foundation/convert.h"
#include "foundation/parameters.h"
#include "foundation/text.h"

namespace Host {

bool getCommandLine(int, char**, QUtils::CharString* out) {
  const wchar_t* line = GetCommandLineW();
  if (!line) return false;
  QUtils::TextConverter converter(line);
  if (!converter.narrow()) return false;
  // Split as every Windows program splits its line, then written in the
  // syntax of Parameters, as on Linux: one reading of a command line for
  // both systems, whatever quotes and backslashes it holds.
  out->assign(QUtils::toParameterText(QUtils::splitCommandLine(converter.narrow()), QUtils::kCommandLineEscape).c_str());
  return out->getText() != nullptr;
}

bool getProgramFilesDirectory(char* out, int size) {
  HKEY key;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", 0, KEY_READ, &key) !=
      ERROR_SUCCESS)
    return false;
  wchar_t value[QUtils::kMaxPath];
  DWORD bytes = sizeof(value) - sizeof(wchar_t);
  DWORD type = 0;
  LONG result = RegQueryValueExW(key, L"ProgramFilesDir", nullptr, &type, reinterpret_cast<BYTE*>(value), &bytes);
  RegCloseKey(key);
  if (result != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return false;
  value[bytes / sizeof(wchar_t)] = 0;
  QUtils::TextConverter converter(value);
  converter.toNarrow(out, size);
  QUtils::stripTrailingSeparators(out, size);
  return true;
}

bool hasAdminRights() {
  char path[QUtils::kMaxPath];
  if (!getProgramFilesDirectory(path, sizeof path)) return false;
  QUtils::appendText(path, "\\test$$$1234ajgtr.tmp", sizeof path);
  QUtils::TextConverter name(path);
  HANDLE file = CreateFileW(name.wide(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  CloseHandle(file);
  DeleteFileW(name.wide());
  return true;
}

void signalNamedEvent(const char* name) {
  QUtils::TextConverter wideName(name);
  HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, wideName.wide());
  if (!event) return;
  SetEvent(event);
  CloseHandle(event);
}

struct NamedEvent {
  HANDLE handle;
};

NamedEvent* createNamedEvent(const char* name) {
  QUtils::TextConverter wideName(name);
  // Auto-reset, not signalled.
  HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, wideName.wide());
  if (!handle) return nullptr;
  // An event that another process still holds keeps its state: clear it.
  ResetEvent(handle);
  return new NamedEvent{handle};
}

bool waitNamedEvent(NamedEvent* event, int timeoutMs) {
  if (!event) return false;
  return WaitForSingleObject(event->handle, static_cast<DWORD>(timeoutMs)) == WAIT_OBJECT_0;
}

void closeNamedEvent(NamedEvent* event) {
  if (!event) return;
  CloseHandle(event->handle);
  delete event;
}

namespace {

// Starts the process; the caller closes both handles of `process`.
int spawn(const char* commandLine, const char* workDirectory, PROCESS_INFORMATION* process) {
  QUtils::TextConverter line(commandLine);
  QUtils::TextConverter directory(workDirectory);
  // CreateProcessW may write into the command line.
  int length = line.wideLength();
  wchar_t* writable = new wchar_t[length > 0 ? length : 1];
  line.toWide(writable, length > 0 ? length : 1);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  BOOL ok = CreateProcessW(nullptr, writable, nullptr, nullptr, FALSE, 0, nullptr,
                           (workDirectory && *workDirectory) ? directory.wide() : nullptr, &startup, process);
  int error = ok ? 0 : static_cast<int>(GetLastError());
  delete[] writable;
  return error;
}

}  // namespace

int startProcess(const char* commandLine, const char* workDirectory) {
  PROCESS_INFORMATION process = {};
  int error = spawn(commandLine, workDirectory, &process);
  if (error == 0) {
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  return error;
}

int runProcess(const char* commandLine, const char* workDirectory, int* outExitCode) {
  PROCESS_INFORMATION process = {};
  int error = spawn(commandLine, workDirectory, &process);
  if (error != 0) return error;
  CloseHandle(process.hThread);
  DWORD code = 1;
  if (WaitForSingleObject(process.hProcess, INFINITE) != WAIT_OBJECT_0 || !GetExitCodeProcess(process.hProcess, &code))
    error = static_cast<int>(GetLastError());
  CloseHandle(process.hProcess);
  *outExitCode = static_cast<int>(code);
  return error;
}

bool setAsideOwnProgram(const char* directory, char* outMoved, int size) {
  if (outMoved && size > 0) outMoved[0] = 0;
  wchar_t self[QUtils::kMaxPath];
  DWORD length = GetModuleFileNameW(nullptr, self, QUtils::kMaxPath);
  if (length == 0 || length >= QUtils::kMaxPath) return false;
  char moved[QUtils::kMaxPath];
  QUtils::boundedFormat(moved, sizeof moved, "%s\\qluxlauncher.exe", directory ? directory : "");
  QUtils::TextConverter target(moved);
  // A running program's file can be moved within its volume; across
  // volumes it is renamed where it stands.
  if (!directory || !*directory || !MoveFileExW(self, target.wide(), MOVEFILE_REPLACE_EXISTING)) {
    QUtils::TextConverter selfName(self);
    QUtils::boundedFormat(moved, sizeof moved, "%s.qlux-running", selfName.narrow());
    QUtils::TextConverter beside(moved);
    if (!MoveFileExW(self, beside.wide(), MOVEFILE_REPLACE_EXISTING)) return false;
  }
  QUtils::TextConverter movedName(moved);
  // Ignoring the result on purpose: without the right to plan the deletion
  // the file stays where it was moved to, which is all that can be done.
  MoveFileExW(movedName.wide(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  QUtils::copyText(outMoved, moved, size);
  return true;
}

bool removeOwnProgram() {
  wchar_t self[QUtils::kMaxPath];
  DWORD length = GetModuleFileNameW(nullptr, self, QUtils::kMaxPath);
  if (length == 0 || length >= QUtils::kMaxPath) return false;
  // A running program's file can't be deleted: the system deletes it when
  // it restarts.
  return MoveFileExW(self, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != 0;
}

void releaseOwnConsole() {
  DWORD processes[2];
  if (GetConsoleProcessList(processes, 2) == 1) FreeConsole();
}

bool hasMessageBox() { return true; }

void showMessageBox(const char* text, const char* title, MessageIcon icon) {
  UINT type = MB_OK | (icon == kIconWarning ? MB_ICONWARNING : icon == kIconError ? MB_ICONERROR : MB_ICONINFORMATION);
  // The texts are UTF-8: the wide call shows every letter of them.
  QUtils::TextConverter wideText(text);
  QUtils::TextConverter wideTitle(title);
  MessageBoxW(nullptr, wideText.wide(), wideTitle.wide(), type);
}

}  // namespace Host
