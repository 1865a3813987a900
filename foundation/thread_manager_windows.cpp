// The thread pool on Win32 threads.
//
// Each worker waits on its own message queue: a MessageList under a critical
// section, with an auto-reset event that a post sets. A job's threads count
// down a completion latch with a manual-reset event, which the caller waits
// on in steps; when the caller runs a window, the wait also wakes for its
// input so that the window stays served.
#include "foundation/thread_manager.h"

#include <windows.h>
#include <process.h>

#include <cstring>
#include <new>

#include "foundation/convert.h"
#include "foundation/files.h"

namespace QUtils {

namespace {

// How long terminateThreads() gives each thread to end.
const ULONGLONG kTerminateTimeoutMs = 2000;
// The caller of run() wakes at this step to report, pump and check.
const DWORD kWaitStepMs = 200;
// Spin count of the critical sections behind queue locks.
const DWORD kLockSpinCount = 2000;

typedef BOOL(WINAPI* NumaHighestNodeFunction)(PULONG highestNode);
typedef BOOL(WINAPI* NumaNodeMaskFunction)(UCHAR node, PULONGLONG processorMask);
typedef HRESULT(WINAPI* ThreadDescriptionFunction)(HANDLE thread, PCWSTR description);

// A function of kernel32.dll that older systems may lack, or null.
template <typename Function>
Function kernelFunction(const char* name) {
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  if (!kernel) return nullptr;
  FARPROC address = GetProcAddress(kernel, name);
  return reinterpret_cast<Function>(reinterpret_cast<void (*)(void)>(address));
}

// Dispatches the window messages waiting for this thread. A quit message is
// put back so that the thread's own message loop still sees it.
void pumpWindowMessages() {
  MSG message;
  while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) {
      PostQuitMessage(static_cast<int>(message.wParam));
      break;
    }
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
}

int countBits(ULONGLONG mask) {
  int bits = 0;
  for (; mask; mask &= mask - 1) bits++;
  return bits;
}

}  // namespace

ThreadLock::ThreadLock() {
  CRITICAL_SECTION* section = new CRITICAL_SECTION;
  InitializeCriticalSectionAndSpinCount(section, kLockSpinCount);
  handle = section;
}

ThreadLock::~ThreadLock() {
  CRITICAL_SECTION* section = static_cast<CRITICAL_SECTION*>(handle);
  DeleteCriticalSection(section);
  delete section;
}

void ThreadLock::enter() {
  CRITICAL_SECTION* section = static_cast<CRITICAL_SECTION*>(handle);
  for (int i = 0; i < 1500; i++) {
    if (TryEnterCriticalSection(section)) return;
  }
  for (int i = 0; i < 1500; i++) {
    if (TryEnterCriticalSection(section)) return;
    Sleep(0);
  }
  EnterCriticalSection(section);
}

void ThreadLock::leave() { LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(handle)); }

// A job's completion latch: the threads count down, and the one that reaches
// 0 sets the event. Latches are pooled and keep their event between jobs.
struct WinLatch {
  WinLatch() : count(0), event(CreateEventW(nullptr, TRUE, FALSE, nullptr)), inUse(false) {}
  ~WinLatch() {
    if (event) CloseHandle(event);
  }
  void reset(int32_t threads) {
    count = threads;
    if (threads > 0) {
      ResetEvent(event);
    } else {
      SetEvent(event);
    }
  }
  void countDown() {
    if (count.fetch_sub(1) == 1) SetEvent(event);
  }

  std::atomic<int32_t> count;
  HANDLE event;
  // Guarded by the manager's pool lock.
  bool inUse;
};

class WinThreadManager;

// One pooled thread. The manager holds one reference and the thread
// another; whoever drops the last frees the record, so a thread that
// outlives its manager still has it.
struct alignas(128) WinWorker {
  WinWorker(WinThreadManager* owner, DWORD tlsIndex)
      : job(nullptr), stopCode(nullptr), progress(0), threadIndex(0), state(kThreadStarting), handle(nullptr),
        started(false), latch(nullptr), threadCount(0), manager(owner), procedure(nullptr), argument(nullptr),
        wakeEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr)), references(2), tlsIndex(tlsIndex) {}
  ~WinWorker() {
    if (wakeEvent) CloseHandle(wakeEvent);
    if (handle) CloseHandle(handle);
  }

  void post(int32_t message) {
    {
      ThreadLockGuard guard(queueLock);
      messages.push(message);
    }
    SetEvent(wakeEvent);
  }
  int32_t take() {
    for (;;) {
      {
        ThreadLockGuard guard(queueLock);
        int32_t message = 0;
        if (messages.pop(&message)) return message;
        ResetEvent(wakeEvent);
      }
      WaitForSingleObject(wakeEvent, INFINITE);
    }
  }
  void release() {
    if (references.fetch_sub(1) == 1) delete this;
  }

  MultiThreaded* job;
  std::atomic<int32_t>* stopCode;
  std::atomic<int32_t> progress;
  int32_t threadIndex;
  std::atomic<int32_t> state;
  HANDLE handle;
  bool started;
  WinLatch* latch;
  int32_t threadCount;
  WinThreadManager* manager;
  ThreadProcedure* procedure;
  void* argument;
  MessageList messages;
  HANDLE wakeEvent;
  ThreadLock queueLock;
  std::atomic<int32_t> references;
  // The manager's TLS slot, where the thread keeps itself for
  // getThreadIndex().
  DWORD tlsIndex;
};

class WinThreadManager : public ThreadManager {
 public:
  WinThreadManager();
  ~WinThreadManager() override;
  bool isReady() const { return tlsIndex != TLS_OUT_OF_INDEXES; }

  void terminateThreads(int force) override;
  int32_t run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) override;
  void setPriority(int value) override { priority = value; }
  int runProcedure(ThreadProcedure* procedure, void* argument) override;
  void setStackSize(size_t size) override { stackSize = size; }
  int getThreadIndex() override;

 private:
  static unsigned __stdcall threadMain(void* argument);
  static void nameThread(const char* name);

  WinWorker* takeThread(ThreadCallback* callback);
  bool startThread(WinWorker* worker);
  WinLatch* takeLatch(int32_t count);
  void releaseLatch(WinLatch* latch);
  void applyPriority(WinWorker* worker);
  bool planAffinity();

  ThreadLock poolLock;
  Sequence threads;
  Sequence latches;
  DWORD tlsIndex;
  int32_t priority;
  size_t stackSize;
  NumaHighestNodeFunction numaHighestNode;
  NumaNodeMaskFunction numaNodeMask;
  DWORD_PTR processMask;
  NodeDealer dealer;
  PList<ULONGLONG> nodeMasks;
};

WinThreadManager::WinThreadManager()
    : threads(sizeof(WinWorker*), 10), latches(sizeof(WinLatch*), 10), tlsIndex(TlsAlloc()), priority(0),
      stackSize(0), numaHighestNode(nullptr), numaNodeMask(nullptr), processMask(0), nodeMasks(8) {
  debugPrint("[WinThreadManager] Constructor.\n");
  if (threadAffinityWanted()) {
    numaHighestNode = kernelFunction<NumaHighestNodeFunction>("GetNumaHighestNodeNumber");
    numaNodeMask = kernelFunction<NumaNodeMaskFunction>("GetNumaNodeProcessorMask");
  }
}

WinThreadManager::~WinThreadManager() {
  debugPrint("[WinThreadManager] Destructor.\n");
  terminateThreads(0);
  if (tlsIndex != TLS_OUT_OF_INDEXES) TlsFree(tlsIndex);
}

unsigned __stdcall WinThreadManager::threadMain(void* argument) {
  WinWorker* self = static_cast<WinWorker*>(argument);
  TlsSetValue(self->tlsIndex, self);
  self->state = kThreadTaken;
  for (;;) {
    int32_t message = self->take();
    if (message == kMessageRunJob) {
      self->state = kThreadRunning;
      MultiThreaded* job = self->job;
      WinLatch* latch = self->latch;
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
      nameThread(self->procedure->getThreadName());
      self->procedure->run(self->argument);
      self->state = kThreadIdle;
    } else if (message == kMessageTerminate) {
      debugPrint("[WinThreadManager] Thread is terminating\n");
      break;
    }
  }
  self->state = kThreadTerminated;
  self->release();
  return 0;
}

// Gives the calling thread a name that debuggers show, on systems that have
// thread descriptions.
void WinThreadManager::nameThread(const char* name) {
  static const ThreadDescriptionFunction describe = kernelFunction<ThreadDescriptionFunction>("SetThreadDescription");
  if (!describe || !name || !name[0]) return;
  TextConverter converter(name);
  describe(GetCurrentThread(), converter.wide());
}

bool WinThreadManager::startThread(WinWorker* worker) {
  if (!worker->wakeEvent) return false;
  unsigned size = stackSize > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(stackSize);
  // The size is the stack's reserve, as "stack size" means to a caller; the
  // system commits pages as the stack grows.
  uintptr_t handle = _beginthreadex(nullptr, size, threadMain, worker, size ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0,
                                    nullptr);
  if (handle == 0) return false;
  worker->handle = reinterpret_cast<HANDLE>(handle);
  worker->started = true;
  return true;
}

WinWorker* WinThreadManager::takeThread(ThreadCallback* callback) {
  WinWorker* worker = nullptr;
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) {
      WinWorker* pooled = *static_cast<WinWorker**>(threads.get(i));
      int32_t idle = kThreadIdle;
      if (pooled && pooled->state.compare_exchange_strong(idle, kThreadTaken)) return pooled;
    }
    WinWorker** entry = static_cast<WinWorker**>(threads.append());
    worker = new WinWorker(this, tlsIndex);
    *entry = worker;
  }
  if (!startThread(worker)) {
    debugPrint("[WinThreadManager] Could not start a thread\n");
    // The thread's own reference goes with it; the record stays in the pool,
    // terminated, until the pool is emptied.
    worker->references--;
    worker->state = kThreadTerminated;
    return nullptr;
  }
  if (callback && callback->wantsMessagePump()) {
    while (worker->state.load() == kThreadStarting) {
      callback->pumpMessages();
      Sleep(1);
    }
  }
  return worker;
}

WinLatch* WinThreadManager::takeLatch(int32_t count) {
  ThreadLockGuard guard(poolLock);
  WinLatch* latch = nullptr;
  for (int i = 0; i < latches.getCount() && !latch; i++) {
    WinLatch* pooled = *static_cast<WinLatch**>(latches.get(i));
    if (!pooled->inUse) latch = pooled;
  }
  if (!latch) {
    WinLatch** entry = static_cast<WinLatch**>(latches.append());
    latch = new WinLatch();
    *entry = latch;
  }
  latch->inUse = true;
  latch->reset(count);
  return latch;
}

void WinThreadManager::releaseLatch(WinLatch* latch) {
  ThreadLockGuard guard(poolLock);
  latch->inUse = false;
}

void WinThreadManager::applyPriority(WinWorker* worker) {
  SetThreadPriority(worker->handle, priority > 0 ? THREAD_PRIORITY_BELOW_NORMAL : THREAD_PRIORITY_NORMAL);
}

// Builds the node list for a job: each NUMA node's processors that this
// process may use. False on a single node or when a query fails, and the
// threads are then left where the scheduler puts them.
bool WinThreadManager::planAffinity() {
  dealer.clear();
  nodeMasks.clear();
  if (!numaHighestNode || !numaNodeMask) return false;
  ULONG highest = 0;
  if (!numaHighestNode(&highest) || highest == 0) return false;
  DWORD_PTR systemMask = 0;
  if (!GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask)) return false;
  if (countBits(processMask) == 0) return false;
  for (ULONG node = 0; node <= highest && node <= 0xFF; node++) {
    ULONGLONG mask = 0;
    if (!numaNodeMask(static_cast<UCHAR>(node), &mask)) {
      dealer.clear();
      nodeMasks.clear();
      return false;
    }
    mask &= processMask;
    nodeMasks.add(mask);
    dealer.addNode(countBits(mask));
  }
  return dealer.getNodeCount() > 1;
}

int32_t WinThreadManager::run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) {
  if (!job) return 0;
  if (threadCount <= 0) threadCount = getDefaultThreadCount();
  job->stopCode = 0;
  job->progressBase = 0;
  if (callback) {
    callback->message(kThreadMessageLevel, kThreadMessageId, "Setting up %i thread(s)\n", threadCount);
    callback->beginWait();
  }
  WinLatch* latch = takeLatch(threadCount);
  bool pinned = planAffinity();
  // All threads are taken before any starts, so that the job gets as many
  // distinct threads as it asked for: a thread that finished an early index
  // must not be handed a later one.
  PList<WinWorker*> workers(threadCount);
  for (int i = 0; i < threadCount; i++) {
    WinWorker* worker = takeThread(callback);
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
    applyPriority(worker);
    if (pinned) {
      int node = dealer.nextNode();
      if (node >= 0) SetThreadAffinityMask(worker->handle, static_cast<DWORD_PTR>(nodeMasks[node]));
    }
    workers.add(worker);
  }
  for (int i = 0; i < workers.getCount(); i++) workers[i]->post(kMessageRunJob);
  for (;;) {
    bool pump = callback && callback->wantsMessagePump();
    DWORD result = pump ? MsgWaitForMultipleObjects(1, &latch->event, FALSE, kWaitStepMs, QS_ALLINPUT)
                        : WaitForSingleObject(latch->event, kWaitStepMs);
    if (result == WAIT_OBJECT_0) break;
    if (result == WAIT_FAILED) Sleep(1);
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

int WinThreadManager::runProcedure(ThreadProcedure* procedure, void* argument) {
  if (!procedure) return -1;
  WinWorker* worker = takeThread(nullptr);
  if (!worker) return -1;
  worker->procedure = procedure;
  worker->argument = argument;
  worker->threadCount = 1;
  worker->threadIndex = 0;
  worker->job = nullptr;
  worker->stopCode = nullptr;
  worker->latch = nullptr;
  worker->progress = 0;
  applyPriority(worker);
  if (numaHighestNode && numaNodeMask) {
    DWORD_PTR systemMask = 0;
    if (GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask) && processMask) {
      SetThreadAffinityMask(worker->handle, processMask);
    }
  }
  worker->post(kMessageRunProcedure);
  return 0;
}

int WinThreadManager::getThreadIndex() {
  if (tlsIndex == TLS_OUT_OF_INDEXES) return -1;
  WinWorker* worker = static_cast<WinWorker*>(TlsGetValue(tlsIndex));
  return worker ? worker->threadIndex : -1;
}

void WinThreadManager::terminateThreads(int force) {
  PList<WinWorker*> pool(10);
  {
    ThreadLockGuard guard(poolLock);
    for (int i = 0; i < threads.getCount(); i++) pool.add(*static_cast<WinWorker**>(threads.get(i)));
  }
  debugPrint("[WinThreadManager] Terminating %i threads\n", pool.getCount());
  for (int i = 0; i < pool.getCount(); i++) {
    WinWorker* worker = pool[i];
    if (!worker) continue;
    debugPrint("[WinThreadManager] Terminating thread %i\n", i);
    if (worker->started) {
      worker->post(kMessageTerminate);
      ULONGLONG deadline = GetTickCount64() + kTerminateTimeoutMs;
      while (worker->state.load() != kThreadTerminated && GetTickCount64() < deadline) {
        // A thread may be waiting on this thread's windows to finish.
        if (!force) pumpWindowMessages();
        Sleep(1);
      }
      if (worker->state.load() != kThreadTerminated) {
        debugPrint("[WinThreadManager] Thread did not terminate for the timeout interval\n");
        // A killed thread can't drop its own reference, so it is dropped
        // here once the thread is seen to be gone.
        if (force && TerminateThread(worker->handle, 1) &&
            WaitForSingleObject(worker->handle, static_cast<DWORD>(kTerminateTimeoutMs)) == WAIT_OBJECT_0) {
          worker->release();
        }
      }
    }
    worker->release();
  }
  {
    ThreadLockGuard guard(poolLock);
    threads.clear();
    for (int i = 0; i < latches.getCount(); i++) delete *static_cast<WinLatch**>(latches.get(i));
    latches.clear();
  }
  debugPrint("[WinThreadManager] All threads terminated\n");
}

int getProcessorCount() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwNumberOfProcessors > 0 ? static_cast<int>(info.dwNumberOfProcessors) : 1;
}

ThreadManager* createThreadManager() {
  WinThreadManager* manager = new (std::nothrow) WinThreadManager();
  if (manager && !manager->isReady()) {
    delete manager;
    return nullptr;
  }
  return manager;
}

}  // namespace QUtils
