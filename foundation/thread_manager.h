// The thread pool.
//
// A ThreadManager keeps worker threads alive between uses and hands them out
// again. It runs work in two ways:
//   - run() puts one MultiThreaded job on N pooled threads at once and waits
//     until every thread has returned from it, pumping the caller's front end
//     and reporting progress through an optional ThreadCallback meanwhile;
//   - runProcedure() starts one ThreadProcedure on a pooled thread and
//     returns at once; the caller polls the procedure for its end.
// A job learns that it is to be given up through its stopCode, which it must
// look at itself; run() returns that code. A thread-start failure isn't
// reported as an error: the indices that got no thread are never run.
//
// Managers come from createThreadManager() and go back through
// deleteThreadManager(), which ends the pooled threads. One thread at a time
// drives a manager; the jobs and procedures it starts run on the workers.
//
// The environment variable QLUX_NUM_THREADS, when set to a positive number,
// replaces the processor count as the default thread count;
// QLUX_USE_THREAD_AFFINITY, when set to a non-zero number, spreads the
// threads of a job over the machine's NUMA nodes.
//
// The second half of this file holds the pool that both systems share: the
// chunked sequences behind the pools and queues, the three-stage lock, the
// dealing of threads over nodes, the worker record and the manager that owns
// the pools and the order of a job. Each system completes it with a few
// primitives (events, thread-local slots, starting and ending a thread,
// priority and placement), which thread_manager_posix.cpp and
// thread_manager_windows.cpp implement.
#ifndef QLUX_FOUNDATION_THREAD_MANAGER_H_
#define QLUX_FOUNDATION_THREAD_MANAGER_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "foundation/lists.h"

namespace QUtils {

// Codes posted to a worker's queue.
const int32_t kMessageRunJob = 4096;
const int32_t kMessageTerminate = 4097;
const int32_t kMessageRunProcedure = 4098;

// States of a worker thread.
const int32_t kThreadIdle = 0;        // in the pool, free to be taken
const int32_t kThreadRunning = 1;     // inside a job or a procedure
const int32_t kThreadTerminated = 2;  // has left its loop
const int32_t kThreadTaken = 3;       // taken, waiting for its message
const int32_t kThreadStarting = 4;    // created, not yet in its loop

// The level and id of the messages that run() gives its callback.
const int kThreadMessageLevel = 0;
const int kThreadMessageId = 30000;

// What a job run on several threads at once derives from.
class MultiThreaded {
 public:
  MultiThreaded() : progressBase(0), stopCode(0) {}
  virtual ~MultiThreaded() {}

  // The work of one thread. `stopCode` points to this job's field, which
  // turns non-zero when the job is to be given up. `progress` is a counter of
  // this thread's own, which the job raises as it goes; the caller sums the
  // counters for its progress reports. `threadIndex` runs from 0 to
  // `threadCount` - 1.
  virtual void run(std::atomic<int32_t>* stopCode, std::atomic<int32_t>* progress, int threadIndex,
                   int threadCount) = 0;
  // A name shown in debuggers for the threads that run this job, or null.
  virtual const char* getThreadName() { return nullptr; }

  // Added to the threads' counters in progress reports; run() clears it.
  int32_t progressBase;
  // 0 while the job goes on; run() clears it and returns it.
  std::atomic<int32_t> stopCode;
};

// A piece of work run on one pooled thread while its starter goes on.
class ThreadProcedure {
 public:
  virtual ~ThreadProcedure() {}
  virtual void run(void* argument) = 0;
  // A name shown in debuggers for the thread, or null.
  virtual const char* getThreadName() { return nullptr; }
};

// What the caller of run() hears while it waits. Every operation is called
// on the caller's own thread; the defaults do nothing.
class ThreadCallback {
 public:
  virtual ~ThreadCallback() {}
  virtual void message(int level, int id, const char* format, ...) __attribute__((format(printf, 4, 5))) {}
  virtual void beginWait() {}
  virtual void endWait() {}
  // True if the caller runs a front end whose events must be served while
  // it waits; pumpMessages() is then called to serve them.
  virtual bool wantsMessagePump() { return false; }
  virtual void pumpMessages() {}
  // `count` is the job's progressBase plus all its threads' counters.
  virtual void reportProgress(int32_t count, int threadCount) {}
  // A non-zero answer becomes the job's stopCode.
  virtual int32_t checkAbort() { return 0; }
};

class ThreadManager {
 public:
  ThreadManager(const ThreadManager&) = delete;
  ThreadManager& operator=(const ThreadManager&) = delete;

  // Ends every pooled thread: each is asked to stop and given 2 seconds.
  // With `force` a thread that is still running is killed where the system
  // allows it; without, it is left to end on its own, and the front end of
  // the calling thread is served meanwhile. The pools are emptied.
  virtual void terminateThreads(int force) = 0;
  // Runs `job` on `threadCount` distinct threads (the default count for 0)
  // and waits for all of them. `callback` may be null; progress is reported
  // to it only if `reportProgress` is non-zero. Returns the job's stopCode.
  virtual int32_t run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) = 0;
  // For threads taken from now on: above 0 runs them below normal priority,
  // anything else at normal priority.
  virtual void setPriority(int priority) = 0;
  // Starts `procedure` with `argument` on a pooled thread and returns at
  // once: 0, or -1 if no thread could be had. The procedure must outlive its
  // run.
  virtual int runProcedure(ThreadProcedure* procedure, void* argument) = 0;
  // Stack size in bytes for threads made from now on; 0 is the system's.
  virtual void setStackSize(size_t size) = 0;
  // The calling thread's index in its job (0 in a procedure), or -1 on a
  // thread that this manager doesn't own.
  virtual int getThreadIndex() = 0;

 protected:
  ThreadManager() {}
  virtual ~ThreadManager() {}
  friend void deleteThreadManager(ThreadManager* manager);
};

// Makes a manager with no threads yet; null if the system refuses.
ThreadManager* createThreadManager();
// Ends the manager's threads and frees it; null is allowed.
void deleteThreadManager(ThreadManager* manager);

// The number of threads a job gets for a count of 0: QLUX_NUM_THREADS if it
// is set to a positive number, else the processor count. Fixed at first use.
int getDefaultThreadCount();
// The rule behind it: `setting` if it is a positive decimal number, else
// `processorCount` (at least 1).
int chooseThreadCount(const char* setting, int processorCount);
// The processors this process may run on, at least 1.
int getProcessorCount();
// True if QLUX_USE_THREAD_AFFINITY holds a non-zero number.
bool threadAffinityWanted();

// ---------------------------------------------------------------------------
// Shared by the implementations.

// A chunked store of fixed-size items: a doubly linked list of blocks of
// `blockItems` items each. A block is allocated when the last one is full, so
// an item never moves, and items are never freed singly: clear() gives all
// blocks back at once. A block that can't be allocated throws ExceptionMsg.
// Not thread-safe.
class Sequence {
 public:
  Sequence(size_t itemSize, int blockItems);
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;
  ~Sequence();

  // Room for one more item, zero-filled, at a fixed address.
  void* append();
  void* get(int index) const;
  int getCount() const { return count; }
  void clear();

 private:
  struct _SequenceBlock;

  size_t itemSize;
  int blockItems;
  int count;
  _SequenceBlock* first;
  _SequenceBlock* last;
};

// A worker's queue of message codes, first in first out. Items come from a
// Sequence of 100 and go to a free list when taken. The caller locks.
class MessageList {
 public:
  MessageList();
  void push(int32_t message);
  // False on an empty list.
  bool pop(int32_t* message);
  int getCount() const { return count; }

 private:
  struct Item {
    Item* next;
    int32_t message;
  };

  Sequence items;
  Item* head;
  Item* tail;
  Item* freeItems;
  int count;
};

// Deals the threads of a job out over NUMA nodes in proportion to the
// processors each node offers: with a counter that starts at 0, a thread
// goes to the first node whose running total of processors is above the
// counter, and the counter goes up by one, starting over at the total.
class NodeDealer {
 public:
  NodeDealer() : nodeTotals(8), counter(0) {}
  void clear() {
    nodeTotals.clear();
    counter = 0;
  }
  void addNode(int processors);
  int getNodeCount() const { return nodeTotals.getCount(); }
  // The node for the next thread, or -1 if the nodes offer no processor.
  int nextNode();
  void restart() { counter = 0; }

 private:
  PList<int32_t> nodeTotals;
  int32_t counter;
};

// Reads a Linux CPU list such as "0-3,8,10-11": marks each listed CPU below
// `limit` in `cpus` (which the caller zeroes). Returns the number of CPUs
// listed, or -1 for malformed text.
int parseCpuList(const char* text, unsigned char* cpus, int limit);

// A lock for state shared between a worker and the thread that watches it.
// enter() tries 1,500 times without yielding, 1,500 times more yielding the
// processor after each try, and only then blocks.
class ThreadLock {
 public:
  ThreadLock();
  ThreadLock(const ThreadLock&) = delete;
  ThreadLock& operator=(const ThreadLock&) = delete;
  ~ThreadLock();
  void enter();
  void leave();

 private:
  // The system's calls behind enter().
  bool tryEnter();
  void enterBlocking();
  static void yieldProcessor();

  void* handle;
};

class ThreadLockGuard {
 public:
  explicit ThreadLockGuard(ThreadLock& lock) : lock(lock) { lock.enter(); }
  ThreadLockGuard(const ThreadLockGuard&) = delete;
  ThreadLockGuard& operator=(const ThreadLockGuard&) = delete;
  ~ThreadLockGuard() { lock.leave(); }

 private:
  ThreadLock& lock;
};

// An event that one thread sets and others wait for. An auto-reset event
// lets one waiter through and clears itself; a manual-reset event stays set
// until reset().
class ThreadEvent {
 public:
  explicit ThreadEvent(bool manualReset);
  ThreadEvent(const ThreadEvent&) = delete;
  ThreadEvent& operator=(const ThreadEvent&) = delete;
  ~ThreadEvent();
  // False if the system gave no event; nothing else works then.
  bool isReady() const;
  void set();
  void reset();
  // True once the event is set; false when `ms` ran out first. A negative
  // `ms` waits without limit.
  bool wait(int ms);
  // As wait(), but ends early, with false, when the calling thread has
  // window input to serve. Where there are no window messages to wake it,
  // the wait ends at least every 20 ms instead, so that the caller can serve
  // its front end by polling.
  bool waitServingInput(int ms);

 private:
  void* handle;
};

// A slot of thread-local storage: each thread sees its own value in it, null
// until the thread sets one. Copies name the same slot.
class ThreadSlot {
 public:
  ThreadSlot() : key(0), made(false) {}
  // Asks the system for a slot; false if it has none left.
  bool make();
  // Gives the slot back; values that threads left in it are forgotten.
  void destroy();
  bool isMade() const { return made; }
  void set(void* value) const;
  void* get() const;

 private:
  uintptr_t key;
  bool made;
};

// Gives the calling thread a name that debuggers show; null or empty leaves
// it as it is.
void nameCurrentThread(const char* name);
// Runs the calling thread below normal priority if `priority` is above 0,
// otherwise at normal priority, as far as the system lets it.
void setCurrentThreadPriority(int priority);
// Dispatches the window messages waiting for the calling thread, so that a
// front end on it stays served while it waits for a worker.
void serveWindowMessages();

// A job's completion latch: the threads of the job count it down, and the one
// that brings it to 0 sets its event. Latches are pooled and keep their event
// between jobs.
struct ThreadLatch {
  ThreadLatch() : count(0), opened(true), inUse(false) {}
  // Arms the latch for `threads` threads; 0 or less leaves it open.
  void reset(int32_t threads);
  void countDown();

  std::atomic<int32_t> count;
  ThreadEvent opened;
  // Guarded by the manager's pool lock.
  bool inUse;
};

class PooledThreadManager;

// One pooled thread. The manager holds one reference and the thread another;
// whoever drops the last frees the record, so a thread that outlives its
// manager still has it. What the thread needs from its manager is therefore
// copied into the record.
struct alignas(128) PooledThread {
  PooledThread(PooledThreadManager* owner, const char* traceName, const ThreadSlot& slot);

  // Appends `message` to the queue and wakes the thread.
  void post(int32_t message);
  // Takes the oldest message, waiting for one if the queue is empty.
  int32_t take();
  void release();
  // The thread's body, which each system's thread entry calls: announces the
  // thread in its slot, then serves messages until told to terminate.
  static void main(PooledThread* self);

  MultiThreaded* job;
  std::atomic<int32_t>* stopCode;
  std::atomic<int32_t> progress;
  int32_t threadIndex;
  std::atomic<int32_t> state;
  // The system's handle of the thread (a pthread_t or a HANDLE), valid once
  // `started` is set.
  uintptr_t handle;
  bool started;
  ThreadLatch* latch;
  int32_t threadCount;
  // The owner. The thread itself never follows it, since it may be gone.
  PooledThreadManager* manager;
  ThreadProcedure* procedure;
  void* argument;
  // The priority for the work in hand; the thread applies it to itself.
  int32_t priority;
  MessageList messages;
  ThreadLock queueLock;
  ThreadEvent wakeEvent;
  std::atomic<int32_t> references;
  // Where the thread keeps itself for getThreadIndex().
  ThreadSlot slot;
  // The manager's name for traces; a literal, so it outlives the manager.
  const char* traceName;
};

// Starts the system thread of `worker`, which runs PooledThread::main(worker)
// with a stack of `stackSize` bytes (0: the system's size). Sets `handle`.
bool startPooledThread(PooledThread* worker, size_t stackSize);
// Gives back what the system keeps for a thread that has ended.
void joinPooledThread(PooledThread* worker);
// For a thread that didn't end in time. With `force` it is killed where the
// system allows it; true if it was, and then its own reference is the
// caller's to drop. Otherwise the thread is let go: it ends when its work
// returns, and frees its record then.
bool abandonPooledThread(PooledThread* worker, int force);

// The pool that both systems share: it owns the threads, the latches and the
// order of a job, and calls the system only through the primitives above and
// the virtual placement operations below, which a system's manager supplies.
// Ending the threads needs only the free primitives, so this class's own
// destructor does it, after the system's part is gone.
class PooledThreadManager : public ThreadManager {
 public:
  // False if the system had no thread-local slot to give.
  bool isReady() const { return slot.isMade(); }

  void terminateThreads(int force) override;
  int32_t run(int threadCount, MultiThreaded* job, ThreadCallback* callback, int reportProgress) override;
  void setPriority(int value) override { priority = value; }
  int runProcedure(ThreadProcedure* procedure, void* argument) override;
  void setStackSize(size_t size) override { stackSize = size; }
  int getThreadIndex() override;

 protected:
  // `traceName` opens the traces, as in "[traceName] Constructor."; it must
  // be a literal.
  explicit PooledThreadManager(const char* traceName);
  ~PooledThreadManager() override;

  // Fills the cleared `dealer` with the NUMA nodes that a job's threads are
  // dealt over; false leaves the threads where the scheduler puts them.
  virtual bool planAffinity(NodeDealer* dealer) = 0;
  // Binds a job's thread to `node` of the last plan.
  virtual void placeOnNode(PooledThread* worker, int node) = 0;
  // Lets a procedure's thread run on every processor of the process, if
  // threads are placed at all.
  virtual void pinToProcess(PooledThread* worker) = 0;

 private:
  PooledThread* takeThread(ThreadCallback* callback);
  ThreadLatch* takeLatch(int32_t count);
  void releaseLatch(ThreadLatch* latch);

  const char* traceName;
  ThreadLock poolLock;
  Sequence threads;
  Sequence latches;
  ThreadSlot slot;
  int32_t priority;
  size_t stackSize;
  NodeDealer dealer;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_THREAD_MANAGER_H_
