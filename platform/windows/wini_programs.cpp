// Program runs on Windows: documents through the shell's "open" verb,
// programs through CreateProcessW with the command line "path" arguments,
// the path quoted by the rules that the program splits its line with.
#include <windows.h>
#include <shellapi.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "foundation/command_line.h"
#include "foundation/convert.h"
#include "foundation/text.h"
#include "platform/program_thread.h"
#include "platform/windows/wini.h"

namespace {

// The longest command line.
const size_t kCommandLineLimit = 4095;

// "path" and, when there are arguments, a blank and the arguments, as wide
// text in a buffer that CreateProcessW may write to.
std::vector<wchar_t> buildCommandLine(const RUNPROGRAMJOB& job) {
  std::string line = QUtils::quoteCommandWord(job.path);
  if (job.arguments[0]) {
    line += ' ';
    line += job.arguments;
  }
  if (line.size() > kCommandLineLimit) line.resize(kCommandLineLimit);
  QUtils::TextConverter wide(line.c_str());
  std::vector<wchar_t> buffer(static_cast<size_t>(wide.wideLength()) + 1, L'\0');
  wide.toWide(buffer.data(), static_cast<int>(buffer.size()));
  return buffer;
}

// An inheritable copy of the standard handle `which`; null without one.
HANDLE inheritableStandardHandle(DWORD which) {
  HANDLE handle = GetStdHandle(which);
  HANDLE copy = nullptr;
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE ||
      !DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS))
    return nullptr;
  return copy;
}

// Starts the program with NUL as its standard input and the installer's
// own outputs. Only these handles are handed down (a handle list): every
// other handle of the installer that happens to be inheritable, such as a
// log file, stays out of the program. False, with nothing started, when
// the system can't do that.
bool startWithoutInput(wchar_t* commandLine, const wchar_t* workDir, PROCESS_INFORMATION* process) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  HANDLE nul = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0,
                           nullptr);
  if (nul == INVALID_HANDLE_VALUE) return false;
  HANDLE output = inheritableStandardHandle(STD_OUTPUT_HANDLE);
  HANDLE error = inheritableStandardHandle(STD_ERROR_HANDLE);
  HANDLE handed[3];
  DWORD count = 0;
  for (HANDLE handle : {nul, output, error}) {
    if (handle) handed[count++] = handle;
  }
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<char> storage(size > 0 ? size : 1);
  LPPROC_THREAD_ATTRIBUTE_LIST attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage.data());
  bool listed = size > 0 && InitializeProcThreadAttributeList(attributes, 1, 0, &size);
  bool ok = false;
  if (listed && UpdateProcThreadAttribute(attributes, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handed,
                                          count * sizeof(HANDLE), nullptr, nullptr)) {
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = nul;
    startup.StartupInfo.hStdOutput = output;
    startup.StartupInfo.hStdError = error;
    startup.lpAttributeList = attributes;
    ok = CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, EXTENDED_STARTUPINFO_PRESENT, nullptr, workDir,
                        &startup.StartupInfo, process) != 0;
  }
  if (listed) DeleteProcThreadAttributeList(attributes);
  for (DWORD i = 0; i < count; i++) CloseHandle(handed[i]);
  return ok;
}

// Starts the job's program; true with `process` filled. With RUN_NO_INPUT
// it reads NUL, where the system lets that be arranged.
bool startProgram(const RUNPROGRAMJOB& job, PROCESS_INFORMATION* process) {
  std::vector<wchar_t> commandLine = buildCommandLine(job);
  QUtils::TextConverter workDir(job.workDir);
  const wchar_t* directory = job.workDir[0] ? workDir.wide() : nullptr;
  *process = PROCESS_INFORMATION();
  if ((job.flags & Installer::RUN_NO_INPUT) && startWithoutInput(commandLine.data(), directory, process)) return true;
  // CreateProcessW may have written into the line: it is made again.
  commandLine = buildCommandLine(job);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  *process = PROCESS_INFORMATION();
  return CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, directory, &startup,
                        process) != 0;
}

// Waits without a limit for the process and closes its handles; its exit
// code, or -1 if that can't be had.
int32_t waitForExit(PROCESS_INFORMATION* process) {
  int32_t result = -1;
  DWORD exitCode = 0;
  if (WaitForSingleObject(process->hProcess, INFINITE) == WAIT_OBJECT_0 &&
      GetExitCodeProcess(process->hProcess, &exitCode))
    result = static_cast<int32_t>(exitCode);
  CloseHandle(process->hThread);
  CloseHandle(process->hProcess);
  return result;
}

}  // namespace

int32_t runProgramJob(const RUNPROGRAMJOB& job) {
  PROCESS_INFORMATION process;
  if (!startProgram(job, &process)) return -1;
  return waitForExit(&process);
}

void pauseMilliseconds(int ms) { Sleep(ms > 0 ? static_cast<DWORD>(ms) : 0); }

bool Wini::runProgram(const char* path, const char* arguments, int flags, const char* workDir, InstallerUI* ui,
                      int intervalMs) {
  if (!path) return false;
  if (flags & RUN_DOCUMENT) {
    QUtils::TextConverter file(path);
    HINSTANCE result = ShellExecuteW(nullptr, L"open", file.wide(), nullptr, nullptr, SW_SHOWDEFAULT);
    return reinterpret_cast<INT_PTR>(result) > 32;
  }

  RUNPROGRAMJOB job;
  fillProgramJob(&job, path, arguments, workDir, flags);
  if (flags & RUN_ASYNCHRONOUS) return programRuns.run(job, ui, intervalMs);
  PROCESS_INFORMATION process;
  if (!startProgram(job, &process)) return false;
  if (!(flags & RUN_WAIT)) {
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
  }
  int32_t exitCode = waitForExit(&process);
  if (exitCode != 0) log("\"%s\" ended with exit code %d", path, exitCode);
  return exitCode == 0;
}
