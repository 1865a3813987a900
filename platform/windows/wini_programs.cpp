// Program runs on Windows: documents through the shell's "open" verb,
// programs through CreateProcessW with the command line "path" arguments.
#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

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
  std::string line = "\"";
  line += job.path;
  line += "\"";
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

// Starts the job's program; true with `process` filled.
bool startProgram(const RUNPROGRAMJOB& job, PROCESS_INFORMATION* process) {
  std::vector<wchar_t> commandLine = buildCommandLine(job);
  QUtils::TextConverter workDir(job.workDir);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  *process = PROCESS_INFORMATION();
  return CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        job.workDir[0] ? workDir.wide() : nullptr, &startup, process) != 0;
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
