// Running a program without freezing the front end. The engine's thread
// hands the program to a RunProgramThread on a pooled thread of the
// foundation's ThreadManager, and polls it, pumping the front end's events
// and moving its progress, until the program has ended.
//
// The thread that runs the program touches nothing of the engine: only the
// job, which the caller keeps alive until the poll has ended, and its own
// two fields, `done` and `exitCode`, under one lock. No CharString crosses
// to it. The engine's thread is the only one that calls the front end.
//
// One AsynchronousRunProgram belongs to each platform installer; it makes
// its thread manager on the first asynchronous run and ends it when the
// installer is destroyed. Starting a program and pausing are the system's
// part: runProgramJob and pauseMilliseconds have one body per system
// (linux_programs.cpp, wini_programs.cpp).
#ifndef QLUX_PLATFORM_PROGRAM_THREAD_H_
#define QLUX_PLATFORM_PROGRAM_THREAD_H_

#include <cstdint>

#include "foundation/thread_manager.h"

class InstallerUI;

// One program to run: the program, its command-line text, the directory it
// starts in (empty: the installer's own) and the run flags of runProgram.
struct RUNPROGRAMJOB {
  char path[1560];
  char arguments[4096];
  char workDir[1560];
  int flags;
};

// Fills `job`, cutting each text at its field; null texts are empty.
void fillProgramJob(RUNPROGRAMJOB* job, const char* path, const char* arguments, const char* workDir, int flags);

// Starts the job's program, waits for its end and gives its exit code, or -1
// if it couldn't be started or its code can't be had. Blocks the calling
// thread.
int32_t runProgramJob(const RUNPROGRAMJOB& job);

// Pauses the calling thread; 0 only yields the processor.
void pauseMilliseconds(int ms);

class AsynchronousRunProgram {
 public:
  // Runs one job on a pooled thread.
  class RunProgramThread : public QUtils::ThreadProcedure {
   public:
    RunProgramThread();
    // `job` is a RUNPROGRAMJOB. Sets done and exitCode when the program ends.
    void run(void* job) override;
    const char* getThreadName() override { return "InstallerRunProgramThread"; }
    virtual bool isFinished();
    // Waits, `intervalMs` at a time, until the run has ended; its exit code,
    // -1 if the program couldn't be started.
    virtual int32_t waitForResult(int intervalMs);

   private:
    QUtils::ThreadLock lock;
    unsigned char done;
    int32_t exitCode;
  };

  AsynchronousRunProgram() : threadManager(nullptr) {}
  AsynchronousRunProgram(const AsynchronousRunProgram&) = delete;
  AsynchronousRunProgram& operator=(const AsynchronousRunProgram&) = delete;
  // Ends the manager's threads.
  ~AsynchronousRunProgram();

  // Runs `job` on a pooled thread and waits for its end. Meanwhile, when
  // `ui` isn't null, each poll pumps its events and, with RUN_PROGRESS in
  // job.flags, moves its overall progress one step towards 100; polls are
  // `intervalMs` apart (a few milliseconds when it is 0). True if the program ended with 0; false if it
  // didn't, or if no thread could be had.
  bool run(const RUNPROGRAMJOB& job, InstallerUI* ui, int intervalMs);

  // Made on the first run; null before.
  QUtils::ThreadManager* threadManager;
};

#endif  // QLUX_PLATFORM_PROGRAM_THREAD_H_
