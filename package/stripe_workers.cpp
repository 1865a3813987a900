// The body of the stripe workers (stripe_workers.h): jobs by stripe index on
// the thread pool, and the wait for the one that is needed next.
#include "package/stripe_workers.h"

namespace {

// How long one wait for a job lasts before the waiter is told.
const int kWaitSliceMs = 20;

}  // namespace

StripeWorkers::StripeWorkers(StripeJob* job, int count, int threads)
    : job(job),
      threads(threads > 0 ? threads : QUtils::getDefaultThreadCount()),
      manager(nullptr),
      finished(false),
      states(static_cast<size_t>(count > 0 ? count : 0), kIdle),
      workers(static_cast<size_t>(this->threads)),
      running(0),
      stopping(false) {
  for (Worker& worker : workers) worker.owner = this;
}

StripeWorkers::~StripeWorkers() {
  {
    QUtils::ThreadLockGuard guard(lock);
    stopping = true;
    for (int index : queue) states[static_cast<size_t>(index)] = kIdle;
    queue.clear();
  }
  // A worker leaves as soon as its job in hand ends; the pool's threads
  // are ended with the manager only after that.
  for (;;) {
    {
      QUtils::ThreadLockGuard guard(lock);
      if (running == 0) break;
    }
    finished.wait(kWaitSliceMs);
  }
  QUtils::deleteThreadManager(manager);
}

bool StripeWorkers::isIdle(int index) {
  QUtils::ThreadLockGuard guard(lock);
  return states[static_cast<size_t>(index)] == kIdle;
}

bool StripeWorkers::isDone(int index) {
  QUtils::ThreadLockGuard guard(lock);
  return states[static_cast<size_t>(index)] == kDone;
}

void StripeWorkers::submit(int index) {
  QUtils::ThreadLockGuard guard(lock);
  states[static_cast<size_t>(index)] = kQueued;
  queue.push_back(index);
  startWorkerLocked();
}

void StripeWorkers::startWorkerLocked() {
  if (stopping || running >= threads || running >= static_cast<int>(queue.size())) return;
  if (!finished.isReady()) return;  // no way to hear of an end: waitFor() runs jobs itself
  if (!manager) manager = QUtils::createThreadManager();
  if (!manager) return;
  for (Worker& worker : workers) {
    if (worker.running) continue;
    worker.running = true;
    running++;
    // The worker takes the lock as its first step, so starting it under the
    // lock only makes it wait a moment.
    if (manager->runProcedure(&worker, nullptr) != 0) {
      worker.running = false;
      running--;
    }
    return;
  }
}

void StripeWorkers::Worker::run(void*) {
  StripeWorkers* self = owner;
  for (;;) {
    int index;
    {
      QUtils::ThreadLockGuard guard(self->lock);
      if (self->stopping || self->queue.empty()) {
        running = false;
        self->running--;
        // Set under the lock, so the owner can't be gone before it returns.
        self->finished.set();
        return;
      }
      index = self->queue.front();
      self->queue.pop_front();
      self->states[static_cast<size_t>(index)] = kRunning;
    }
    self->job->runStripe(index);
    {
      QUtils::ThreadLockGuard guard(self->lock);
      self->states[static_cast<size_t>(index)] = kDone;
      self->finished.set();
    }
  }
}

void StripeWorkers::runInlineLocked(int index) {
  for (auto at = queue.begin(); at != queue.end(); ++at) {
    if (*at == index) {
      queue.erase(at);
      break;
    }
  }
  states[static_cast<size_t>(index)] = kRunning;
  lock.leave();
  job->runStripe(index);
  lock.enter();
  states[static_cast<size_t>(index)] = kDone;
}

void StripeWorkers::waitFor(int index, StripeWaiter* waiter) {
  for (;;) {
    {
      QUtils::ThreadLockGuard guard(lock);
      State state = states[static_cast<size_t>(index)];
      if (state == kDone || state == kIdle) return;
      // Queued with no worker left to take it: no thread could be had.
      if (state == kQueued && running == 0) {
        runInlineLocked(index);
        return;
      }
    }
    finished.wait(kWaitSliceMs);
    if (waiter) waiter->waiting();
  }
}

void StripeWorkers::collect(int index) {
  QUtils::ThreadLockGuard guard(lock);
  states[static_cast<size_t>(index)] = kIdle;
}
