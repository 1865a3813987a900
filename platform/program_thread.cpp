// The body of RunProgramThread (program_thread.h): the program run on a
// pooled thread, and the engine's polling wait for its end.
#include "platform/program_thread.h"

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

namespace {

// The pause between two looks at a run that names no interval of its own:
// short enough that the front end stays lively, long enough that waiting
// for a long program costs no processor.
const int kIdlePollMs = 5;

}  // namespace

void fillProgramJob(RUNPROGRAMJOB* job, const char* path, const char* arguments, const char* workDir, int flags) {
  QUtils::copyText(job->path, path ? path : "", sizeof job->path);
  QUtils::copyText(job->arguments, arguments ? arguments : "", sizeof job->arguments);
  QUtils::copyText(job->workDir, workDir ? workDir : "", sizeof job->workDir);
  job->flags = flags;
}

AsynchronousRunProgram::RunProgramThread::RunProgramThread() : done(0), exitCode(-1) {}

void AsynchronousRunProgram::RunProgramThread::run(void* job) {
  int32_t code = runProgramJob(*static_cast<const RUNPROGRAMJOB*>(job));
  QUtils::ThreadLockGuard guard(lock);
  exitCode = code;
  done = 1;
}

bool AsynchronousRunProgram::RunProgramThread::isFinished() {
  QUtils::ThreadLockGuard guard(lock);
  return done != 0;
}

int32_t AsynchronousRunProgram::RunProgramThread::waitForResult(int intervalMs) {
  while (!isFinished()) pauseMilliseconds(intervalMs);
  QUtils::ThreadLockGuard guard(lock);
  return exitCode;
}

AsynchronousRunProgram::~AsynchronousRunProgram() { QUtils::deleteThreadManager(threadManager); }

bool AsynchronousRunProgram::run(const RUNPROGRAMJOB& job, InstallerUI* ui, int intervalMs) {
  if (!threadManager) threadManager = QUtils::createThreadManager();
  if (!threadManager) return false;
  RunProgramThread* procedure = new RunProgramThread();
  if (threadManager->runProcedure(procedure, const_cast<RUNPROGRAMJOB*>(&job)) != 0) {
    delete procedure;
    return false;
  }
  int step = 0;
  while (!procedure->isFinished()) {
    if (ui) {
      ui->pumpEvents();
      if (job.flags & Installer::RUN_PROGRESS) {
        ui->setOverallProgress(step);
        if (step < 100) step++;
      }
    }
    pauseMilliseconds(intervalMs > 0 ? intervalMs : kIdlePollMs);
  }
  int32_t exitCode = procedure->waitForResult(100);
  delete procedure;
  return exitCode == 0;
}
