// The thread pool's primitives on Win32 threads.
//
// Events are Win32 events; a wait that must keep a window served is made
// with MsgWaitForMultipleObjects, which also wakes for the window's input.
// Queue locks are critical sections with a spin count. Thread-local slots are
// TLS indices. Threads of a job are placed on NUMA nodes through the node
// calls of kernel32.dll, where the system has them.
#include "foundation/thread_manager.h"

#include <windows.h>
#include <process.h>

#include <new>

#include "foundation/convert.h"
#include "foundation/files.h"

namespace QUtils {

namespace {

// Spin count of the critical sections behind queue locks.
const DWORD kLockSpinCount = 2000;
// How long a killed thread is given to be gone.
const DWORD kKillTimeoutMs = 2000;

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

HANDLE handleOf(const PooledThread* worker) { return reinterpret_cast<HANDLE>(worker->handle); }

unsigned __stdcall threadEntry(void* argument) {
  PooledThread::main(static_cast<PooledThread*>(argument));
  return 0;
}

// The result of a wait on one event: true if it is set. A failed wait sleeps
// for a moment, so that a caller that waits in a loop doesn't spin.
bool eventWasSet(DWORD result) {
  if (result == WAIT_OBJECT_0) return true;
  if (result == WAIT_FAILED) Sleep(1);
  return false;
}

DWORD waitTime(int ms) { return ms < 0 ? INFINITE : static_cast<DWORD>(ms); }

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

bool ThreadLock::tryEnter() { return TryEnterCriticalSection(static_cast<CRITICAL_SECTION*>(handle)) != FALSE; }

void ThreadLock::enterBlocking() { EnterCriticalSection(static_cast<CRITICAL_SECTION*>(handle)); }

void ThreadLock::yieldProcessor() { Sleep(0); }

void ThreadLock::leave() { LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(handle)); }

ThreadEvent::ThreadEvent(bool manualReset) : handle(CreateEventW(nullptr, manualReset, FALSE, nullptr)) {}

ThreadEvent::~ThreadEvent() {
  if (handle) CloseHandle(handle);
}

bool ThreadEvent::isReady() const { return handle != nullptr; }

void ThreadEvent::set() { SetEvent(handle); }

void ThreadEvent::reset() { ResetEvent(handle); }

bool ThreadEvent::wait(int ms) { return eventWasSet(WaitForSingleObject(handle, waitTime(ms))); }

bool ThreadEvent::waitServingInput(int ms) {
  HANDLE event = handle;
  return eventWasSet(MsgWaitForMultipleObjects(1, &event, FALSE, waitTime(ms), QS_ALLINPUT));
}

bool ThreadSlot::make() {
  if (made) return true;
  DWORD index = TlsAlloc();
  if (index == TLS_OUT_OF_INDEXES) return false;
  key = index;
  made = true;
  return true;
}

void ThreadSlot::destroy() {
  if (made) TlsFree(static_cast<DWORD>(key));
  made = false;
}

void ThreadSlot::set(void* value) const {
  if (made) TlsSetValue(static_cast<DWORD>(key), value);
}

void* ThreadSlot::get() const { return made ? TlsGetValue(static_cast<DWORD>(key)) : nullptr; }

// Thread descriptions exist from Windows 10 on; older systems show no name.
void nameCurrentThread(const char* name) {
  static const ThreadDescriptionFunction describe = kernelFunction<ThreadDescriptionFunction>("SetThreadDescription");
  if (!describe || !name || !name[0]) return;
  TextConverter converter(name);
  describe(GetCurrentThread(), converter.wide());
}

void setCurrentThreadPriority(int priority) {
  SetThreadPriority(GetCurrentThread(), priority > 0 ? THREAD_PRIORITY_BELOW_NORMAL : THREAD_PRIORITY_NORMAL);
}

// A quit message is put back so that the thread's own message loop still
// sees it.
void serveWindowMessages() {
  MSG message;
  // The wide pair: an ANSI pump would pass typed characters outside the
  // code page to the (wide) windows as '?'.
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) {
      PostQuitMessage(static_cast<int>(message.wParam));
      break;
    }
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

bool startPooledThread(PooledThread* worker, size_t stackSize) {
  unsigned size = stackSize > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(stackSize);
  // The size is the stack's reserve, as "stack size" means to a caller; the
  // system commits pages as the stack grows.
  uintptr_t handle = _beginthreadex(nullptr, size, threadEntry, worker, size ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0,
                                    nullptr);
  if (handle == 0) return false;
  worker->handle = handle;
  return true;
}

void joinPooledThread(PooledThread* worker) { CloseHandle(handleOf(worker)); }

bool abandonPooledThread(PooledThread* worker, int force) {
  bool killed = force && TerminateThread(handleOf(worker), 1) &&
                WaitForSingleObject(handleOf(worker), kKillTimeoutMs) == WAIT_OBJECT_0;
  // A thread that is let go goes on without its handle.
  CloseHandle(handleOf(worker));
  return killed;
}

// The pool on Win32 threads, which places the threads of a job on the
// processors of the machine's NUMA nodes when asked to.
class WinThreadManager : public PooledThreadManager {
 public:
  WinThreadManager();

 protected:
  bool planAffinity(NodeDealer* dealer) override;
  void placeOnNode(PooledThread* worker, int node) override;
  void pinToProcess(PooledThread* worker) override;

 private:
  NumaHighestNodeFunction numaHighestNode;
  NumaNodeMaskFunction numaNodeMask;
  PList<ULONGLONG> nodeMasks;
};

WinThreadManager::WinThreadManager()
    : PooledThreadManager("WinThreadManager"), numaHighestNode(nullptr), numaNodeMask(nullptr), nodeMasks(8) {
  if (threadAffinityWanted()) {
    numaHighestNode = kernelFunction<NumaHighestNodeFunction>("GetNumaHighestNodeNumber");
    numaNodeMask = kernelFunction<NumaNodeMaskFunction>("GetNumaNodeProcessorMask");
  }
}

// Each NUMA node's processors that this process may use. There is nothing
// to plan on a single node or when a query fails.
bool WinThreadManager::planAffinity(NodeDealer* dealer) {
  nodeMasks.clear();
  if (!numaHighestNode || !numaNodeMask) return false;
  ULONG highest = 0;
  if (!numaHighestNode(&highest) || highest == 0) return false;
  DWORD_PTR processMask = 0;
  DWORD_PTR systemMask = 0;
  if (!GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask)) return false;
  if (countBits(processMask) == 0) return false;
  for (ULONG node = 0; node <= highest && node <= 0xFF; node++) {
    ULONGLONG mask = 0;
    if (!numaNodeMask(static_cast<UCHAR>(node), &mask)) return false;
    mask &= processMask;
    nodeMasks.add(mask);
    dealer->addNode(countBits(mask));
  }
  return dealer->getNodeCount() > 1;
}

void WinThreadManager::placeOnNode(PooledThread* worker, int node) {
  if (node < nodeMasks.getCount()) SetThreadAffinityMask(handleOf(worker), static_cast<DWORD_PTR>(nodeMasks[node]));
}

void WinThreadManager::pinToProcess(PooledThread* worker) {
  if (!numaHighestNode || !numaNodeMask) return;
  DWORD_PTR processMask = 0;
  DWORD_PTR systemMask = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask) && processMask) {
    SetThreadAffinityMask(handleOf(worker), processMask);
  }
}

int getProcessorCount() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwNumberOfProcessors > 0 ? static_cast<int>(info.dwNumberOfProcessors) : 1;
}

ThreadManager* createThreadManager() {
  WinThreadManager* manager = new (std::nothrow) WinThreadManager();
  if (manager && !manager->isReady()) {
    deleteThreadManager(manager);
    return nullptr;
  }
  return manager;
}

}  // namespace QUtils
