// The thread pool's primitives on POSIX threads.
//
// Events are a mutex, a condition variable on the monotonic clock and a flag.
// Thread-local slots are pthread keys. Nice values and CPU affinity are per
// thread on Linux, which is what the priority and the NUMA placement of
// workers rest on. There are no window messages: a caller that serves a front
// end polls it instead.
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

// How often a caller that wants its front end served wakes to serve it.
const int kInputPollMs = 20;
// How much nicer than its normal value a below-normal worker runs.
const int kBelowNormalNice = 5;
const int kNicest = 19;
// Longest thread name that Linux keeps, without its NUL.
const int kThreadNameLength = 15;

static_assert(sizeof(pthread_t) <= sizeof(uintptr_t), "a pthread_t must fit a worker's handle");

pthread_t threadOf(const PooledThread* worker) {
  pthread_t thread;
  std::memcpy(&thread, &worker->handle, sizeof(thread));
  return thread;
}

void* threadEntry(void* argument) {
  PooledThread::main(static_cast<PooledThread*>(argument));
  return nullptr;
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

struct PosixEvent {
  pthread_mutex_t mutex;
  pthread_cond_t changed;
  bool manualReset;
  bool signaled;
};

// The nice value that the calling thread had when it first took work, and
// the one it has now; kUnknownNice until the first.
const int kUnknownNice = INT_MIN;
thread_local int normalNice = kUnknownNice;
thread_local int appliedNice = 0;

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

bool ThreadLock::tryEnter() { return pthread_mutex_trylock(static_cast<pthread_mutex_t*>(handle)) == 0; }

void ThreadLock::enterBlocking() { pthread_mutex_lock(static_cast<pthread_mutex_t*>(handle)); }

void ThreadLock::yieldProcessor() { sched_yield(); }

void ThreadLock::leave() { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(handle)); }

ThreadEvent::ThreadEvent(bool manualReset) {
  PosixEvent* event = new PosixEvent;
  pthread_mutex_init(&event->mutex, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&event->changed, &attributes);
  pthread_condattr_destroy(&attributes);
  event->manualReset = manualReset;
  event->signaled = false;
  handle = event;
}

ThreadEvent::~ThreadEvent() {
  PosixEvent* event = static_cast<PosixEvent*>(handle);
  pthread_cond_destroy(&event->changed);
  pthread_mutex_destroy(&event->mutex);
  delete event;
}

bool ThreadEvent::isReady() const { return handle != nullptr; }

void ThreadEvent::set() {
  PosixEvent* event = static_cast<PosixEvent*>(handle);
  pthread_mutex_lock(&event->mutex);
  event->signaled = true;
  if (event->manualReset) {
    pthread_cond_broadcast(&event->changed);
  } else {
    pthread_cond_signal(&event->changed);
  }
  pthread_mutex_unlock(&event->mutex);
}

void ThreadEvent::reset() {
  PosixEvent* event = static_cast<PosixEvent*>(handle);
  pthread_mutex_lock(&event->mutex);
  event->signaled = false;
  pthread_mutex_unlock(&event->mutex);
}

bool ThreadEvent::wait(int ms) {
  PosixEvent* event = static_cast<PosixEvent*>(handle);
  struct timespec deadline;
  if (ms >= 0) {
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += static_cast<long>(ms % 1000) * 1000000;
    if (deadline.tv_nsec >= 1000000000) {
      deadline.tv_sec++;
      deadline.tv_nsec -= 1000000000;
    }
  }
  pthread_mutex_lock(&event->mutex);
  while (!event->signaled) {
    if (ms < 0) {
      pthread_cond_wait(&event->changed, &event->mutex);
    } else if (pthread_cond_timedwait(&event->changed, &event->mutex, &deadline) == ETIMEDOUT) {
      break;
    }
  }
  bool signaled = event->signaled;
  if (signaled && !event->manualReset) event->signaled = false;
  pthread_mutex_unlock(&event->mutex);
  return signaled;
}

bool ThreadEvent::waitServingInput(int ms) { return wait(ms < 0 || ms > kInputPollMs ? kInputPollMs : ms); }

bool ThreadSlot::make() {
  if (made) return true;
  pthread_key_t newKey;
  if (pthread_key_create(&newKey, nullptr) != 0) return false;
  key = static_cast<uintptr_t>(newKey);
  made = true;
  return true;
}

void ThreadSlot::destroy() {
  if (made) pthread_key_delete(static_cast<pthread_key_t>(key));
  made = false;
}

void ThreadSlot::set(void* value) const {
  if (made) pthread_setspecific(static_cast<pthread_key_t>(key), value);
}

void* ThreadSlot::get() const { return made ? pthread_getspecific(static_cast<pthread_key_t>(key)) : nullptr; }

void nameCurrentThread(const char* name) {
  if (!name || !name[0]) return;
  char shortName[kThreadNameLength + 1];
  std::strncpy(shortName, name, kThreadNameLength);
  shortName[kThreadNameLength] = '\0';
  pthread_setname_np(pthread_self(), shortName);
}

// A nice value can only be set per thread from inside it. Going back up
// needs a privilege that an ordinary process lacks; the thread then stays
// where it is.
void setCurrentThreadPriority(int priority) {
  if (normalNice == kUnknownNice) {
    errno = 0;
    int nice = getpriority(PRIO_PROCESS, 0);
    normalNice = appliedNice = (errno == 0) ? nice : 0;
  }
  int wanted = normalNice;
  if (priority > 0) {
    wanted += kBelowNormalNice;
    if (wanted > kNicest) wanted = kNicest;
  }
  if (wanted == appliedNice) return;
  if (setpriority(PRIO_PROCESS, 0, wanted) == 0) appliedNice = wanted;
}

void serveWindowMessages() {}

bool startPooledThread(PooledThread* worker, size_t stackSize) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stackSize > 0) {
    size_t size = stackSize;
    if (size < static_cast<size_t>(PTHREAD_STACK_MIN)) size = PTHREAD_STACK_MIN;
    long page = sysconf(_SC_PAGESIZE);
    if (page > 0) size = (size + static_cast<size_t>(page) - 1) / static_cast<size_t>(page) * static_cast<size_t>(page);
    pthread_attr_setstacksize(&attributes, size);
  }
  pthread_t thread;
  int result = pthread_create(&thread, &attributes, threadEntry, worker);
  pthread_attr_destroy(&attributes);
  if (result != 0) return false;
  worker->handle = 0;
  std::memcpy(&worker->handle, &thread, sizeof(thread));
  return true;
}

void joinPooledThread(PooledThread* worker) { pthread_join(threadOf(worker), nullptr); }

// POSIX has no safe way to kill one thread of a process, so even with
// `force` the thread is let go.
bool abandonPooledThread(PooledThread* worker, int force) {
  pthread_detach(threadOf(worker));
  return false;
}

// The pool on POSIX threads, which places the threads of a job on the CPUs
// of the machine's NUMA nodes when asked to.
class PosixThreadManager : public PooledThreadManager {
 public:
  PosixThreadManager()
      : PooledThreadManager("PosixThreadManager"), useAffinity(threadAffinityWanted()), nodeSets(8) {}

 protected:
  bool planAffinity(NodeDealer* dealer) override;
  void placeOnNode(PooledThread* worker, int node) override;
  void pinToProcess(PooledThread* worker) override;

 private:
  bool useAffinity;
  PList<cpu_set_t> nodeSets;
};

// The CPUs of each online NUMA node that this process may use. There is
// nothing to plan on a single node or when the system doesn't say.
bool PosixThreadManager::planAffinity(NodeDealer* dealer) {
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
    if (!readSmallFile(path, text, sizeof(text)) || parseCpuList(text, cpus, CPU_SETSIZE) < 0) return false;
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
      if (cpus[cpu] && CPU_ISSET(cpu, &process)) CPU_SET(cpu, &set);
    }
    nodeSets.add(set);
    dealer->addNode(CPU_COUNT(&set));
  }
  return dealer->getNodeCount() > 1;
}

void PosixThreadManager::placeOnNode(PooledThread* worker, int node) {
  if (node < nodeSets.getCount()) pthread_setaffinity_np(threadOf(worker), sizeof(cpu_set_t), &nodeSets[node]);
}

void PosixThreadManager::pinToProcess(PooledThread* worker) {
  if (!useAffinity) return;
  cpu_set_t process;
  CPU_ZERO(&process);
  if (sched_getaffinity(0, sizeof(process), &process) == 0) {
    pthread_setaffinity_np(threadOf(worker), sizeof(process), &process);
  }
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
    deleteThreadManager(manager);
    return nullptr;
  }
  return manager;
}

}  // namespace QUtils
