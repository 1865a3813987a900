// Stripe work on the thread pool: jobs named by a stripe's index run on
// pooled threads while the thread that submitted them goes on, and that
// thread waits only for the one it needs next. The package's stripe reader
// inflates ahead with it, and the package builder deflates behind its
// reading of the files.
//
// An index moves from idle to queued (submit) to running to done, and back
// to idle when its owner collects it. Workers take queued indices in the
// order they were submitted, as many at once as there are threads, and
// call the job's runStripe() on their own thread. A worker with nothing
// queued goes back to the pool; submit() starts another when work comes.
// If no pooled thread can be had, waitFor() runs the job on the owner's own
// thread, so work never stalls.
//
// Thread rules: one owner thread makes the object and calls all of its
// operations. runStripe() runs on a worker or on the owner and may touch
// only what belongs to its index, plus state it locks itself. Everything
// that runStripe() wrote is visible to the owner once waitFor() returned.
// The destructor drops what is still queued and waits for what runs.
#ifndef QLUX_PACKAGE_STRIPE_WORKERS_H_
#define QLUX_PACKAGE_STRIPE_WORKERS_H_

#include <cstdint>
#include <deque>
#include <vector>

#include "foundation/thread_manager.h"

class StripeJob {
 public:
  virtual ~StripeJob() {}
  // The work of stripe `index`, on whichever thread runs it.
  virtual void runStripe(int index) = 0;
};

// Told while its owner waits, so that a front end can be served.
class StripeWaiter {
 public:
  virtual ~StripeWaiter() {}
  // Called on the waiting thread about every 20 ms of waiting.
  virtual void waiting() = 0;
};

class StripeWorkers {
 public:
  // For indices 0 to `count` - 1 of `job`, on at most `threads` workers (the
  // pool's default count for 0).
  StripeWorkers(StripeJob* job, int count, int threads);
  StripeWorkers(const StripeWorkers&) = delete;
  StripeWorkers& operator=(const StripeWorkers&) = delete;
  ~StripeWorkers();

  int threadCount() const { return threads; }
  // REQUIRES: `index` is idle. Queues it.
  void submit(int index);
  // True if `index` is idle: never submitted, or collected.
  bool isIdle(int index);
  // True if `index` ran to its end and wasn't collected yet.
  bool isDone(int index);
  // REQUIRES: `index` was submitted and not collected. Returns once it is
  // done, telling `waiter` (which may be null) meanwhile.
  void waitFor(int index, StripeWaiter* waiter);
  // REQUIRES: `index` is done. Makes it idle again.
  void collect(int index);

 private:
  // One pooled thread's loop: takes queued indices until there are none.
  class Worker : public QUtils::ThreadProcedure {
   public:
    Worker() : owner(nullptr), running(false) {}
    void run(void* argument) override;
    const char* getThreadName() override { return "StripeWorker"; }
    StripeWorkers* owner;
    bool running;  // guarded by the owner's lock
  };
  enum State : uint8_t { kIdle, kQueued, kRunning, kDone };

  // Starts a worker if queued work has fewer workers than it could use.
  // Called with the lock held; leaves it held.
  void startWorkerLocked();
  // Runs `index` on the calling thread. Called with the lock held, with
  // `index` queued; leaves the lock held and `index` done.
  void runInlineLocked(int index);

  StripeJob* job;
  int threads;
  QUtils::ThreadManager* manager;  // made at the first submit
  QUtils::ThreadLock lock;
  QUtils::ThreadEvent finished;  // set whenever a job ends or a worker leaves
  // Guarded by `lock`:
  std::vector<State> states;
  std::deque<int> queue;
  std::vector<Worker> workers;
  int running;  // workers started and not yet left
  bool stopping;
};

#endif  // QLUX_PACKAGE_STRIPE_WORKERS_H_
