// The thread pool on POSIX threads.
//
// Each worker waits on its own message queue: a MessageList under a
// ThreadLock, with a condition variable that a post signals. A job's threads
// count down a completion latch, which the caller waits on in steps so that
// it can report progress, serve its front end and ask whether to give up.
// Nice values and CPU affinity are per thread on Linux, which is what the
// priority and the NUMA placement of workers rest on.
#include "foundation/thread_manager.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "foundation/files.h"

namespace QUtils {

namespace {

// How long terminateThreads() gives each thread to end.
const int kTerminateTimeoutMs = 2000;
// The caller of run() wakes at this step to report, pump and check.
const int kWaitStepMs = 200;
// There are no window messages to wake the caller early when its front end
// has events, so a caller that wants its events served wakes this often.
const int kPumpStepMs = 20;
// How much nicer than its normal value a below-normal worker runs.
const int kBelowNormalNice = 5;
// Longest thread name that Linux keeps, without its NUL.
const int kThreadNameLength = 15;

int64_t monotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void sleepMs(int ms) {
  struct timespec pause;
  pause.tv_sec = ms / 1000;
  pause.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
  while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
  }
}

// Reads a small text file whole; false if it can't be read.
bool readSmallFile(const char* path, char* buffer, int size) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  int used = 0;
  while (used < size - 1) {
    ssize_t got = read(fd, buffer + used, static_cast<size_t>(size - 1 - used));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    used += static_cast<int>(got);
  }
  close(fd);
  buffer[used] = '\0';
  return used > 0;
}

}  // namespace

ThreadLock::ThreadLock() {
  pthread_mutex_t* mutex = new pthread_mutex_t;
  pthread_mutex_init(mutex, nullptr);
  handle = mutex;
}

ThreadLock::~ThreadLock() {
  pthread_mutex_t* mutex = static_cast<pthread_mutex_t*>(handle);
  pthread_mutex_destroy(mutex);
  delete mutex;
}

void ThreadLock::enter() {
  pthread_mutex_t* mutex = static_cast<pthread_mutex_t*>(handle);
  for (int i = 0; i < 1500; i++) {
    if (pthread_mutex_trylock(mutex) == 0) return;
  }
  for (int i = 0; i < 1500; i++) {
    if (pthread_mutex_trylock(mutex) == 0) return;
    sched_yield();
  }
  pthread_mutex_lock(mutex);
}

void ThreadLock::leave() { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(handle)); }

// A job's completion latch: the threads count down, and the one that reaches
// 0 opens it. Latches are pooled and reused.
struct PosixLatch {
  PosixLatch() : count(0), open(false), inUse(false) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&opened, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~PosixLatch() { pthread_cond_destroy(&opened); }

  void reset(int32_t threads) {
    ThreadLockGuard guard(lock);
    count = threads;
    open = threads <= 0;
  }
  void countDown() {
    if (count.fetch_sub(1) != 1) return;
    ThreadLockGuard guard(lock);
    open = true;
    pthread_cond_broadcast(&opened);
  }
  // True once the latch is open; false when `ms` ran out first.
  bool wait(int ms) {
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += static_cast<long>(ms % 1000) * 1000000;
    if (deadline.tv_nsec >= 1000000000) {
      deadline.tv_sec++;
      deadline.tv_nsec -= 1000000000;
    }
    ThreadLockGuard guard(lock);
    pthread_mutex_t* mutex = static_cast<pthread_mutex_t*>(lock.nativeLock());
    while (!open) {
      if (pthread_cond_timedwait(&opened, mutex, &deadline) == ETIMEDOUT) break;
    }
    return open;
  }

  std::atomic<int32_t> count;
  ThreadLock lock;
  pthread_cond_t opened;
  bool open;
  // Guarded by the manager's pool lock.
  bool inUse;
};

class PosixThreadManager;

// One pooled thread. The manager holds one reference and the thread
// another; whoever drops the last frees the record, so a thread that
// outlives its manager still has it.
struct alignas(128) PosixWorker {
  PosixWorker(PosixThreadManager* owner, pthread_key_t slot)
      : job(nullptr), stopCode(nullptr), progress(0), threadIndex(0), state(kThreadStarting), handle(),
        started(false), latch(nullptr), threadCount(0), manager(owner), procedure(nullptr), argument(nullptr),
        references(2), slot(slot), priority(0), normalNice(0), appliedNice(0) {
    pthread_cond_init(&wakeEvent, nullptr);
  }
  ~PosixWorker() { pthread_cond_destroy(&wakeEvent); }

  void post(int32_t message) {
    ThreadLockGuard guard(queueLock);
    messages.push(message);
    pthread_cond_signal(&wakeEvent);
  }
  int32_t take() {
    ThreadLockGuard guard(queueLock);
    pthread_mutex_t* mutex = static_cast<pthread_mutex_t*>(queueLock.nativeLock());
    int32_t message = 0;
    while (!messages.pop(&message)) pthread_cond_wait(&wakeEvent, mutex);
    return message;
  }
  void release() {
    if (references.fetch_sub(1) == 1) delete this;
  }

  MultiThreaded* job;
  std::atomic<int32_t>* stopCode;
  std::atomic<int32_t> progress;
  int32_t threadIndex;
  std::atomic<int32_t> state;
  pthread_t handle;
  bool started;
  PosixLatch* latch;
  int32_t threadCount;
  PosixThreadManager* manager;
  ThreadProcedure* procedure;
  void* argument;
  MessageList messages;
  ThreadLock queueLock;
  pthread_cond_t wakeEvent;
  std::atomic<int32_t> references;
  // Where the thread keeps itself for getThreadIndex().
  pthread_key_t slot;
  // The priority asked for the work in hand; the thread applies it itself,
  // since a nice value can only be set per thread from inside it.
  int32_t priority;
  int normalNice;
  int appliedNice;
};

class PosixThreadManager : public ThreadManager {
 public:
  PosixThreadManager();
  ~PosixThreadManager() override;
  bool isReady() const { return slotMade; }

  void terminateThreads(int force) override;
  int32_t run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) override;
  void setPriority(int value) override { priority = value; }
  int runProcedure(ThreadProcedure* procedure, void* argument) override;
  void setStackSize(size_t size) override { stackSize = size; }
  int getThreadIndex() override;

 private:
  static void* threadMain(void* argument);
  static void nameThread(const char* name);
  static void applyPriority(PosixWorker* worker);

  PosixWorker* takeThread(ThreadCallback* callback);
  bool startThread(PosixWorker* worker);
  PosixLatch* takeLatch(int32_t count);
  void releaseLatch(PosixLatch* latch);
  bool planAffinity();
  void pinToProcess(PosixWorker* worker);

  ThreadLock poolLock;
  Sequence threads;
  Sequence latches;
  pthread_key_t slot;
  bool slotMade;
  int32_t priority;
  size_t stackSize;
  bool useAffinity;
  NodeDealer dealer;
  PList<cpu_set_t> nodeSets;
};

PosixThreadManager::PosixThreadManager()
    : threads(sizeof(PosixWorker*), 10), latches(sizeof(PosixLatch*), 10), slot(), slotMade(false), priority(0),
      stackSize(0), useAffinity(threadAffinityWanted()), nodeSets(8) {
  debugPrint("[PosixThreadManager] Constructor.\n");
  slotMade = pthread_key_create(&slot, nullptr) == 0;
}

PosixThreadManager::~PosixThreadManager() {
  debugPrint("[PosixThreadManager] Destructor.\n");
  terminateThreads(0);
  if (slotMade) pthread_key_delete(slot);
}

void* PosixThreadManager::threadMain(void* argument) {
  PosixWorker* self = static_cast<PosixWorker*>(argument);
  pthread_setspecific(self->slot, self);
  errno = 0;
  int nice = getpriority(PRIO_PROCESS, 0);
  self->normalNice = self->appliedNice = (errno == 0) ? nice : 0;
  self->state = kThreadTaken;
  for (;;) {
    int32_t message = self->take();
    if (message == kMessageRunJob) {
      self->state = kThreadRunning;
      applyPriority(self);
      MultiThreaded* job = self->job;
      PosixLatch* latch = self->latch;
      if (job->stopCode.load() == 0) {
        nameThread(job->getThreadName());
        job->run(&job->stopCode, &self->progress, self->threadIndex, self->threadCount);
      }
      // Back in the pool before the latch opens, so that the caller's next
      // job finds this thread free again.
      self->state = kThreadIdle;
      latch->countDown();
    } else if (message == kMessageRunProcedure) {
      self->state = kThreadRunning;
      applyPriority(self);
      nameThread(self->procedure->getThreadName());
      self->procedure->run(self->argument);
      self->state = kThreadIdle;
    } else if (message == kMessageTerminate) {
      debugPrint("[PosixThreadManager] Thread is terminating\n");
      break;
    }
  }
  self->state = kThreadTerminated;
  self->release();
  return nullptr;
}

void PosixThreadManager::nameThread(const char* name) {
  if (!name || !name[0]) return;
  char shortName[kThreadNameLength + 1];
  std::strncpy(shortName, name, kThreadNameLength);
  shortName[kThreadNameLength] = '\0';
  pthread_setname_np(pthread_self(), shortName);
}

void PosixThreadManager::applyPriority(PosixWorker* worker) {
  int wanted = worker->normalNice;
  if (worker->priority > 0) {
    wanted += kBelowNormalNice;
    if (wanted > 19) wanted = 19;
  }
  if (wanted == worker->appliedNice) return;
  // Going back up needs a privilege that an ordinary process lacks; the
  // thread then stays where it is.
  if (setpriority(PRIO_PROCESS, 0, wanted) == 0) worker->appliedNice = wanted;
}

bool PosixThreadManager::startThread(PosixWorker* worker) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stackSize > 0) {
    size_t size = stackSize;
    if (size < static_cast<size_t>(PTHREAD_STACK_MIN)) size = PTHREAD_STACK_MIN;
    long page = sysconf(_SC_PAGESIZE);
    if (page > 0) size = (size + static_cast<size_t>(page) - 1) / static_cast<size_t>(page) * static_cast<size_t>(page);
    pthread_attr_setstacksize(&attributes, size);
  }
  int result = pthread_create(&worker->handle, &attributes, threadMain, worker);
  pthread_attr_destroy(&attributes);
  worker->started = result == 0;
  return worker->started;
}

PosixWorker* PosixThreadManager::takeThread(ThreadCallback* callback) {
  PosixWorker* worker = nullptr;
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) {
      PosixWorker* pooled = *static_cast<PosixWorker**>(threads.get(i));
      int32_t idle = kThreadIdle;
      if (pooled && pooled->state.compare_exchange_strong(idle, kThreadTaken)) return pooled;
    }
    PosixWorker** entry = static_cast<PosixWorker**>(threads.append());
    worker = new PosixWorker(this, slot);
    *entry = worker;
  }
  if (!startThread(worker)) {
    debugPrint("[PosixThreadManager] Could not start a thread\n");
    // The thread's own reference goes with it; the record stays in the pool,
    // terminated, until the pool is emptied.
    worker->references--;
    worker->state = kThreadTerminated;
    return nullptr;
  }
  if (callback && callback->wantsMessagePump()) {
    while (worker->state.load() == kThreadStarting) {
      callback->pumpMessages();
      sleepMs(1);
    }
  }
  return worker;
}

PosixLatch* PosixThreadManager::takeLatch(int32_t count) {
  ThreadLockGuard guard(poolLock);
  PosixLatch* latch = nullptr;
  for (int i = 0; i < latches.getCount() && !latch; i++) {
    PosixLatch* pooled = *static_cast<PosixLatch**>(latches.get(i));
    if (!pooled->inUse) latch = pooled;
  }
  if (!latch) {
    PosixLatch** entry = static_cast<PosixLatch**>(latches.append());
    latch = new PosixLatch();
    *entry = latch;
  }
  latch->inUse = true;
  latch->reset(count);
  return latch;
}

void PosixThreadManager::releaseLatch(PosixLatch* latch) {
  ThreadLockGuard guard(poolLock);
  latch->inUse = false;
}

// Builds the node list for a job: the CPUs of each online NUMA node that this
// process may use. False when there is a single node or the system doesn't
// say, and the threads are then left where the scheduler puts them.
bool PosixThreadManager::planAffinity() {
  dealer.clear();
  nodeSets.clear();
  if (!useAffinity) return false;
  const int kMaxNodes = 1024;
  unsigned char online[kMaxNodes];
  char text[4096];
  std::memset(online, 0, sizeof(online));
  if (!readSmallFile("/sys/devices/system/node/online", text, sizeof(text))) return false;
  if (parseCpuList(text, online, kMaxNodes) <= 1) return false;
  cpu_set_t process;
  CPU_ZERO(&process);
  if (sched_getaffinity(0, sizeof(process), &process) != 0) return false;
  for (int node = 0; node < kMaxNodes; node++) {
    if (!online[node]) continue;
    char path[96];
    std::snprintf(path, sizeof(path), "/sys/devices/system/node/node%d/cpulist", node);
    unsigned char cpus[CPU_SETSIZE];
    std::memset(cpus, 0, sizeof(cpus));
    if (!readSmallFile(path, text, sizeof(text)) || parseCpuList(text, cpus, CPU_SETSIZE) < 0) {
      dealer.clear();
      nodeSets.clear();
      return false;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
      if (cpus[cpu] && CPU_ISSET(cpu, &process)) CPU_SET(cpu, &set);
    }
    nodeSets.add(set);
    dealer.addNode(CPU_COUNT(&set));
  }
  return dealer.getNodeCount() > 1;
}

void PosixThreadManager::pinToProcess(PosixWorker* worker) {
  cpu_set_t process;
  CPU_ZERO(&process);
  if (sched_getaffinity(0, sizeof(process), &process) == 0) {
    pthread_setaffinity_np(worker->handle, sizeof(process), &process);
  }
}

int32_t PosixThreadManager::run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) {
  if (!job) return 0;
  if (threadCount <= 0) threadCount = getDefaultThreadCount();
  job->stopCode = 0;
  job->progressBase = 0;
  if (callback) {
    callback->message(kThreadMessageLevel, kThreadMessageId, "Setting up %i thread(s)\n", threadCount);
    callback->beginWait();
  }
  PosixLatch* latch = takeLatch(threadCount);
  bool pinned = planAffinity();
  // All threads are taken before any starts, so that the job gets as many
  // distinct threads as it asked for: a thread that finished an early index
  // must not be handed a later one.
  PList<PosixWorker*> workers(threadCount);
  for (int i = 0; i < threadCount; i++) {
    PosixWorker* worker = takeThread(callback);
    if (!worker) {
      // No thread for this index: its share of the latch goes at once, and
      // the job sees the index never run.
      latch->countDown();
      continue;
    }
    worker->job = job;
    worker->stopCode = &job->stopCode;
    worker->latch = latch;
    worker->threadIndex = i;
    worker->threadCount = threadCount;
    worker->procedure = nullptr;
    worker->argument = nullptr;
    worker->progress = 0;
    worker->priority = priority;
    if (pinned) {
      int node = dealer.nextNode();
      if (node >= 0) pthread_setaffinity_np(worker->handle, sizeof(cpu_set_t), &nodeSets[node]);
    }
    workers.add(worker);
  }
  for (int i = 0; i < workers.getCount(); i++) workers[i]->post(kMessageRunJob);
  for (;;) {
    bool pump = callback && callback->wantsMessagePump();
    if (latch->wait(pump ? kPumpStepMs : kWaitStepMs)) break;
    if (!callback) continue;
    if (pump) callback->pumpMessages();
    if (reportProgress) {
      int64_t sum = job->progressBase;
      for (int i = 0; i < workers.getCount(); i++) sum += workers[i]->progress.load(std::memory_order_relaxed);
      callback->reportProgress(static_cast<int32_t>(sum), threadCount);
    }
    int32_t abort = callback->checkAbort();
    if (abort != 0) job->stopCode = abort;
  }
  releaseLatch(latch);
  if (callback) {
    callback->endWait();
    callback->message(kThreadMessageLevel, kThreadMessageId, "Threads completed\n");
    if (callback->wantsMessagePump()) callback->pumpMessages();
  }
  return job->stopCode;
}

int PosixThreadManager::runProcedure(ThreadProcedure* procedure, void* argument) {
  if (!procedure) return -1;
  PosixWorker* worker = takeThread(nullptr);
  if (!worker) return -1;
  worker->procedure = procedure;
  worker->argument = argument;
  worker->threadCount = 1;
  worker->threadIndex = 0;
  worker->job = nullptr;
  worker->stopCode = nullptr;
  worker->latch = nullptr;
  worker->progress = 0;
  worker->priority = priority;
  if (useAffinity) pinToProcess(worker);
  worker->post(kMessageRunProcedure);
  return 0;
}

int PosixThreadManager::getThreadIndex() {
  if (!slotMade) return -1;
  PosixWorker* worker = static_cast<PosixWorker*>(pthread_getspecific(slot));
  return worker ? worker->threadIndex : -1;
}

void PosixThreadManager::terminateThreads(int force) {
  PList<PosixWorker*> pool(10);
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) pool.add(*static_cast<PosixWorker**>(threads.get(i)));
  }
  debugPrint("[PosixThreadManager] Terminating %i threads\n", pool.getCount());
  for (int i = 0; i < pool.getCount(); i++) {
    PosixWorker* worker = pool[i];
    if (!worker) continue;
    debugPrint("[PosixThreadManager] Terminating thread %i\n", i);
    if (worker->started) {
      worker->post(kMessageTerminate);
      int64_t deadline = monotonicMs() + kTerminateTimeoutMs;
      while (worker->state.load() != kThreadTerminated && monotonicMs() < deadline) sleepMs(1);
      if (worker->state.load() == kThreadTerminated) {
        pthread_join(worker->handle, nullptr);
      } else {
        // POSIX has no safe way to kill one thread of a process, so even
        // with `force` the thread is let go: it ends when its work returns,
        // and its own reference keeps the record alive until then.
        debugPrint("[PosixThreadManager] Thread did not terminate for the timeout interval\n");
        pthread_detach(worker->handle);
      }
    }
    worker->release();
  }
  {
    ThreadLockGuard guard(poolLock);
    threads.clear();
    for (int i = 0; i < latches.getCount(); i++) delete *static_cast<PosixLatch**>(latches.get(i));
    latches.clear();
  }
  debugPrint("[PosixThreadManager] All threads terminated\n");
}

int getProcessorCount() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0) {
    int count = CPU_COUNT(&set);
    if (count > 0) return count;
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<int>(online) : 1;
}

ThreadManager* createThreadManager() {
  PosixThreadManager* manager = new (std::nothrow) PosixThreadManager();
  if (manager && !manager->isReady()) {
    delete manager;
    return nullptr;
  }
  return manager;
}

}  // namespace QUtils
