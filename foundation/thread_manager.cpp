// The parts of the thread pool that don't touch the system: the sequences,
// the message list, the dealing of threads over nodes, the default thread
// count, and the pool itself: taking threads and latches, the order of a job
// and of a procedure, a worker's message loop, and ending the threads. The
// system calls beneath them are in thread_manager_posix.cpp and
// thread_manager_windows.cpp.
#include "foundation/thread_manager.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "foundation/errors.h"
#include "foundation/files.h"

namespace QUtils {

// A block header; its items follow it, at the item size's natural spacing.
struct Sequence::_SequenceBlock {
  _SequenceBlock* previous;
  _SequenceBlock* next;
  int used;
};

namespace {

// A block header's size rounded up so that the items behind it stay aligned
// for any type.
size_t alignedHeader(size_t size) {
  const size_t align = alignof(std::max_align_t);
  return (size + align - 1) / align * align;
}

}  // namespace

Sequence::Sequence(size_t itemSize, int blockItems)
    : itemSize(itemSize ? itemSize : 1), blockItems(blockItems > 0 ? blockItems : 1), count(0), first(nullptr),
      last(nullptr) {}

Sequence::~Sequence() { clear(); }

void* Sequence::append() {
  if (!last || last->used >= blockItems) {
    size_t header = alignedHeader(sizeof(_SequenceBlock));
    void* memory = nullptr;
    if (itemSize <= (SIZE_MAX - header) / static_cast<size_t>(blockItems)) {
      memory = std::calloc(1, header + itemSize * static_cast<size_t>(blockItems));
    }
    if (!memory) throw ExceptionMsg("[_SequenceBlock] Could not allocate memory");
    _SequenceBlock* block = static_cast<_SequenceBlock*>(memory);
    block->previous = last;
    if (last) {
      last->next = block;
    } else {
      first = block;
    }
    last = block;
  }
  unsigned char* items = reinterpret_cast<unsigned char*>(last) + alignedHeader(sizeof(_SequenceBlock));
  void* item = items + itemSize * static_cast<size_t>(last->used);
  last->used++;
  count++;
  return item;
}

void* Sequence::get(int index) const {
  if (index < 0 || index >= count) return nullptr;
  _SequenceBlock* block = first;
  while (index >= blockItems) {
    block = block->next;
    index -= blockItems;
  }
  unsigned char* items = reinterpret_cast<unsigned char*>(block) + alignedHeader(sizeof(_SequenceBlock));
  return items + itemSize * static_cast<size_t>(index);
}

void Sequence::clear() {
  while (first) {
    _SequenceBlock* next = first->next;
    std::free(first);
    first = next;
  }
  last = nullptr;
  count = 0;
}

MessageList::MessageList() : items(sizeof(Item), 100), head(nullptr), tail(nullptr), freeItems(nullptr), count(0) {}

void MessageList::push(int32_t message) {
  Item* item = freeItems;
  if (item) {
    freeItems = item->next;
  } else {
    item = static_cast<Item*>(items.append());
  }
  item->next = nullptr;
  item->message = message;
  if (tail) {
    tail->next = item;
  } else {
    head = item;
  }
  tail = item;
  count++;
}

bool MessageList::pop(int32_t* message) {
  Item* item = head;
  if (!item) return false;
  head = item->next;
  if (!head) tail = nullptr;
  *message = item->message;
  item->next = freeItems;
  freeItems = item;
  count--;
  return true;
}

void NodeDealer::addNode(int processors) {
  int32_t total = nodeTotals.getCount() > 0 ? nodeTotals[nodeTotals.getCount() - 1] : 0;
  nodeTotals.add(total + (processors > 0 ? processors : 0));
}

int NodeDealer::nextNode() {
  int nodes = nodeTotals.getCount();
  if (nodes == 0 || nodeTotals[nodes - 1] <= 0) return -1;
  if (counter >= nodeTotals[nodes - 1]) counter = 0;
  int node = 0;
  while (nodeTotals[node] <= counter) node++;
  counter++;
  return node;
}

namespace {

// Reads a decimal number at `*text` and moves past it; false if there is none
// or it is out of range.
bool readCpuNumber(const char** text, long* out) {
  const char* start = *text;
  if (*start < '0' || *start > '9') return false;
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(start, &end, 10);
  if (errno != 0 || value > INT_MAX) return false;
  *text = end;
  *out = value;
  return true;
}

// A setting from the process's environment; a null text when it isn't set,
// which the parsers take as "not given".
CharString environmentSetting(const char* name) {
  CharString value;
  getProcessEnvironment(name, &value);  // unset leaves the null text
  return value;
}

}  // namespace

int parseCpuList(const char* text, unsigned char* cpus, int limit) {
  if (!text) return -1;
  int listed = 0;
  const char* p = text;
  while (*p == ' ' || *p == '\t') p++;
  while (*p && *p != '\n') {
    long low = 0;
    long high = 0;
    if (!readCpuNumber(&p, &low)) return -1;
    high = low;
    if (*p == '-') {
      p++;
      if (!readCpuNumber(&p, &high) || high < low) return -1;
    }
    for (long cpu = low; cpu <= high; cpu++) {
      if (cpu < limit) cpus[cpu] = 1;
      listed++;
    }
    if (*p == ',') {
      p++;
      if (*p == '\0' || *p == '\n') return -1;
    } else if (*p != '\0' && *p != '\n') {
      return -1;
    }
  }
  return listed;
}

namespace {

// A whole decimal number, with blanks allowed around it; false otherwise.
bool parseWholeNumber(const char* text, long* out) {
  if (!text) return false;
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(text, &end, 10);
  if (end == text || errno != 0) return false;
  while (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n') end++;
  if (*end != '\0') return false;
  *out = value;
  return true;
}

}  // namespace

int chooseThreadCount(const char* setting, int processorCount) {
  long value = 0;
  if (parseWholeNumber(setting, &value) && value > 0 && value <= INT_MAX) return static_cast<int>(value);
  return processorCount > 0 ? processorCount : 1;
}

int getDefaultThreadCount() {
  static const int count = chooseThreadCount(environmentSetting("QLUX_NUM_THREADS").getText(), getProcessorCount());
  return count;
}

bool threadAffinityWanted() {
  long value = 0;
  return parseWholeNumber(environmentSetting("QLUX_USE_THREAD_AFFINITY").getText(), &value) && value != 0;
}

void deleteThreadManager(ThreadManager* manager) { delete manager; }

// ---------------------------------------------------------------------------
// The pool

namespace {

// How long terminateThreads() gives each thread to end.
const int kTerminateTimeoutMs = 2000;
// The caller of run() wakes at this step to report, pump and check.
const int kWaitStepMs = 200;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace

void ThreadLock::enter() {
  const int kSpinTries = 1500;
  const int kYieldingTries = 1500;
  for (int i = 0; i < kSpinTries; i++) {
    if (tryEnter()) return;
  }
  for (int i = 0; i < kYieldingTries; i++) {
    if (tryEnter()) return;
    yieldProcessor();
  }
  enterBlocking();
}

void ThreadLatch::reset(int32_t threads) {
  count = threads;
  if (threads > 0) {
    opened.reset();
  } else {
    opened.set();
  }
}

void ThreadLatch::countDown() {
  if (count.fetch_sub(1) == 1) opened.set();
}

PooledThread::PooledThread(PooledThreadManager* owner, const char* traceName, const ThreadSlot& slot)
    : job(nullptr), stopCode(nullptr), progress(0), threadIndex(0), state(kThreadStarting), handle(0), started(false),
      latch(nullptr), threadCount(0), manager(owner), procedure(nullptr), argument(nullptr), priority(0),
      wakeEvent(false), references(2), slot(slot), traceName(traceName) {}

void PooledThread::post(int32_t message) {
  {
    ThreadLockGuard guard(queueLock);
    messages.push(message);
  }
  wakeEvent.set();
}

// The event is cleared under the queue lock, so a post that comes after the
// queue was seen empty sets it again and the wait ends at once.
int32_t PooledThread::take() {
  for (;;) {
    {
      ThreadLockGuard guard(queueLock);
      int32_t message = 0;
      if (messages.pop(&message)) return message;
      wakeEvent.reset();
    }
    wakeEvent.wait(-1);
  }
}

void PooledThread::release() {
  if (references.fetch_sub(1) == 1) delete this;
}

void PooledThread::main(PooledThread* self) {
  self->slot.set(self);
  self->state = kThreadTaken;
  for (;;) {
    int32_t message = self->take();
    if (message == kMessageRunJob) {
      self->state = kThreadRunning;
      setCurrentThreadPriority(self->priority);
      MultiThreaded* job = self->job;
      ThreadLatch* latch = self->latch;
      if (job->stopCode.load() == 0) {
        nameCurrentThread(job->getThreadName());
        job->run(&job->stopCode, &self->progress, self->threadIndex, self->threadCount);
      }
      // Back in the pool before the latch opens, so that the caller's next
      // job finds this thread free again.
      self->state = kThreadIdle;
      latch->countDown();
    } else if (message == kMessageRunProcedure) {
      self->state = kThreadRunning;
      setCurrentThreadPriority(self->priority);
      nameCurrentThread(self->procedure->getThreadName());
      self->procedure->run(self->argument);
      self->state = kThreadIdle;
    } else if (message == kMessageTerminate) {
      debugPrint("[%s] Thread is terminating\n", self->traceName);
      break;
    }
  }
  self->state = kThreadTerminated;
  self->release();
}

PooledThreadManager::PooledThreadManager(const char* traceName)
    : traceName(traceName), threads(sizeof(PooledThread*), 10), latches(sizeof(ThreadLatch*), 10), priority(0),
      stackSize(0) {
  debugPrint("[%s] Constructor.\n", traceName);
  slot.make();
}

// terminateThreads() calls only the system's free primitives, never the
// virtual placement, so it is safe here after the system's part is gone.
PooledThreadManager::~PooledThreadManager() {
  debugPrint("[%s] Destructor.\n", traceName);
  terminateThreads(0);
  slot.destroy();
}

PooledThread* PooledThreadManager::takeThread(ThreadCallback* callback) {
  PooledThread* worker = nullptr;
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) {
      PooledThread* pooled = *static_cast<PooledThread**>(threads.get(i));
      int32_t idle = kThreadIdle;
      if (pooled && pooled->state.compare_exchange_strong(idle, kThreadTaken)) return pooled;
    }
    PooledThread** entry = static_cast<PooledThread**>(threads.append());
    worker = new PooledThread(this, traceName, slot);
    *entry = worker;
  }
  if (!worker->wakeEvent.isReady() || !startPooledThread(worker, stackSize)) {
    debugPrint("[%s] Could not start a thread\n", traceName);
    // The thread's own reference goes with it; the record stays in the pool,
    // terminated, until the pool is emptied.
    worker->references--;
    worker->state = kThreadTerminated;
    return nullptr;
  }
  worker->started = true;
  if (callback && callback->wantsMessagePump()) {
    while (worker->state.load() == kThreadStarting) {
      callback->pumpMessages();
      sleepMs(1);
    }
  }
  return worker;
}

ThreadLatch* PooledThreadManager::takeLatch(int32_t count) {
  ThreadLockGuard guard(poolLock);
  ThreadLatch* latch = nullptr;
  for (int i = 0; i < latches.getCount() && !latch; i++) {
    ThreadLatch* pooled = *static_cast<ThreadLatch**>(latches.get(i));
    if (!pooled->inUse) latch = pooled;
  }
  if (!latch) {
    ThreadLatch** entry = static_cast<ThreadLatch**>(latches.append());
    latch = new ThreadLatch();
    *entry = latch;
  }
  latch->inUse = true;
  latch->reset(count);
  return latch;
}

void PooledThreadManager::releaseLatch(ThreadLatch* latch) {
  ThreadLockGuard guard(poolLock);
  latch->inUse = false;
}

int32_t PooledThreadManager::run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) {
  if (!job) return 0;
  if (threadCount <= 0) threadCount = getDefaultThreadCount();
  job->stopCode = 0;
  job->progressBase = 0;
  if (callback) {
    callback->message(kThreadMessageLevel, kThreadMessageId, "Setting up %i thread(s)\n", threadCount);
    callback->beginWait();
  }
  ThreadLatch* latch = takeLatch(threadCount);
  dealer.clear();
  bool placed = planAffinity(&dealer);
  // All threads are taken before any starts, so that the job gets as many
  // distinct threads as it asked for: a thread that finished an early index
  // must not be handed a later one.
  PList<PooledThread*> workers(threadCount);
  for (int i = 0; i < threadCount; i++) {
    PooledThread* worker = takeThread(callback);
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
    if (placed) {
      int node = dealer.nextNode();
      if (node >= 0) placeOnNode(worker, node);
    }
    workers.add(worker);
  }
  for (int i = 0; i < workers.getCount(); i++) workers[i]->post(kMessageRunJob);
  for (;;) {
    bool pump = callback && callback->wantsMessagePump();
    bool done = pump ? latch->opened.waitServingInput(kWaitStepMs) : latch->opened.wait(kWaitStepMs);
    if (done) break;
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

int PooledThreadManager::runProcedure(ThreadProcedure* procedure, void* argument) {
  if (!procedure) return -1;
  PooledThread* worker = takeThread(nullptr);
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
  pinToProcess(worker);
  worker->post(kMessageRunProcedure);
  return 0;
}

int PooledThreadManager::getThreadIndex() {
  if (!slot.isMade()) return -1;
  PooledThread* worker = static_cast<PooledThread*>(slot.get());
  return worker ? worker->threadIndex : -1;
}

void PooledThreadManager::terminateThreads(int force) {
  PList<PooledThread*> pool(10);
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) pool.add(*static_cast<PooledThread**>(threads.get(i)));
  }
  debugPrint("[%s] Terminating %i threads\n", traceName, pool.getCount());
  for (int i = 0; i < pool.getCount(); i++) {
    PooledThread* worker = pool[i];
    if (!worker) continue;
    debugPrint("[%s] Terminating thread %i\n", traceName, i);
    if (worker->started) {
      worker->post(kMessageTerminate);
      auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kTerminateTimeoutMs);
      while (worker->state.load() != kThreadTerminated && std::chrono::steady_clock::now() < deadline) {
        // A thread may be waiting on this thread's windows to finish.
        if (!force) serveWindowMessages();
        sleepMs(1);
      }
      if (worker->state.load() == kThreadTerminated) {
        joinPooledThread(worker);
      } else {
        debugPrint("[%s] Thread did not terminate for the timeout interval\n", traceName);
        // A killed thread can't drop its own reference, so it is dropped here.
        if (abandonPooledThread(worker, force)) worker->release();
      }
    }
    worker->release();
  }
  {
    ThreadLockGuard guard(poolLock);
    threads.clear();
    for (int i = 0; i < latches.getCount(); i++) delete *static_cast<ThreadLatch**>(latches.get(i));
    latches.clear();
  }
  debugPrint("[%s] All threads terminated\n", traceName);
}

}  // namespace QUtils
