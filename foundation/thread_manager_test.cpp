// Tests of the thread manager: jobs on pooled threads, thread counts,
// stopping, progress, and a waiting caller whose front end is served.
#include "foundation/thread_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundation/errors.h"
#include "foundation/test_env.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/resource.h>
#endif

namespace QUtils {
namespace {

// Waits in tests are bounded only so that a fault fails a test instead of
// hanging the binary; nothing is asserted about time.
const auto kPatience = std::chrono::seconds(30);

void sleepBriefly() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

struct ManagerDeleter {
  void operator()(ThreadManager* manager) const { deleteThreadManager(manager); }
};
typedef std::unique_ptr<ThreadManager, ManagerDeleter> ManagerHandle;

ManagerHandle makeManager() {
  ManagerHandle manager(createThreadManager());
  EXPECT_NE(manager, nullptr);
  return manager;
}

// Notes what each thread of a job saw. Each slot is written by its own
// thread and read once run() has returned.
class RecordingJob : public MultiThreaded {
 public:
  struct Slot {
    int calls = 0;
    int threadCount = 0;
    int indexFromManager = -2;
    bool stopCodeIsJobs = false;
    std::thread::id thread;
  };

  RecordingJob(ThreadManager* manager, int slotCount) : manager(manager), slotCount(slotCount), slots(new Slot[slotCount]) {}

  void run(std::atomic<int32_t>* stop, std::atomic<int32_t>* progress, int threadIndex, int threadCount) override {
    if (threadIndex < 0 || threadIndex >= slotCount) {
      outOfRange++;
      return;
    }
    Slot& slot = slots[threadIndex];
    slot.calls++;
    slot.threadCount = threadCount;
    slot.indexFromManager = manager->getThreadIndex();
    slot.stopCodeIsJobs = stop == &stopCode;
    slot.thread = std::this_thread::get_id();
  }
  const char* getThreadName() override { return "QluxTestWorker"; }

  std::set<std::thread::id> threadsUsed(int count) const {
    std::set<std::thread::id> used;
    for (int i = 0; i < count; i++) used.insert(slots[i].thread);
    return used;
  }

  ThreadManager* manager;
  int slotCount;
  std::unique_ptr<Slot[]> slots;
  std::atomic<int> outOfRange{0};
};

// Checks that indices 0..count-1 ran once each and saw the right numbers.
void expectEachIndexRanOnce(const RecordingJob& job, int count) {
  for (int i = 0; i < count; i++) {
    SCOPED_TRACE(i);
    EXPECT_EQ(job.slots[i].calls, 1);
    EXPECT_EQ(job.slots[i].threadCount, count);
    EXPECT_EQ(job.slots[i].indexFromManager, i);
    EXPECT_TRUE(job.slots[i].stopCodeIsJobs);
  }
  for (int i = count; i < job.slotCount; i++) EXPECT_EQ(job.slots[i].calls, 0);
  EXPECT_EQ(job.outOfRange.load(), 0);
}

TEST(ThreadManager, JobRunsEachIndexOnItsOwnPooledThread) {
  ManagerHandle manager = makeManager();
  EXPECT_EQ(manager->getThreadIndex(), -1);

  RecordingJob first(manager.get(), 8);
  EXPECT_EQ(manager->run(4, &first, nullptr, 0), 0);
  expectEachIndexRanOnce(first, 4);
  std::set<std::thread::id> pool = first.threadsUsed(4);
  EXPECT_EQ(pool.size(), 4u);
  EXPECT_EQ(pool.count(std::this_thread::get_id()), 0u);

  // The threads are back in the pool when run() returns: a smaller job runs
  // only on them, and a larger one adds threads to them.
  RecordingJob second(manager.get(), 8);
  EXPECT_EQ(manager->run(3, &second, nullptr, 0), 0);
  expectEachIndexRanOnce(second, 3);
  for (const std::thread::id& thread : second.threadsUsed(3)) EXPECT_EQ(pool.count(thread), 1u);

  RecordingJob third(manager.get(), 8);
  EXPECT_EQ(manager->run(6, &third, nullptr, 0), 0);
  expectEachIndexRanOnce(third, 6);
  std::set<std::thread::id> grown = third.threadsUsed(6);
  EXPECT_EQ(grown.size(), 6u);
  for (const std::thread::id& thread : pool) EXPECT_EQ(grown.count(thread), 1u);

  EXPECT_EQ(manager->getThreadIndex(), -1);
}

TEST(ThreadManager, ZeroThreadCountTakesTheDefault) {
  ManagerHandle manager = makeManager();
  int expected = getDefaultThreadCount();
  ASSERT_GE(expected, 1);
  RecordingJob job(manager.get(), expected + 1);
  EXPECT_EQ(manager->run(0, &job, nullptr, 0), 0);
  expectEachIndexRanOnce(job, expected);
}

TEST(ThreadManager, DefaultCountSetting) {
  EXPECT_EQ(chooseThreadCount("6", 2), 6);
  EXPECT_EQ(chooseThreadCount(" 3 ", 2), 3);
  const char* ignored[] = {"0", "-4", "abc", "4x", "", "99999999999999999999"};
  for (const char* setting : ignored) EXPECT_EQ(chooseThreadCount(setting, 2), 2) << setting;
  EXPECT_EQ(chooseThreadCount(nullptr, 5), 5);
  EXPECT_EQ(chooseThreadCount(nullptr, 0), 1);
  EXPECT_GE(getProcessorCount(), 1);
}

// Records what run() tells its caller.
class RecordingCallback : public ThreadCallback {
 public:
  void message(int level, int id, const char* format, ...) override {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    messages.push_back(text);
    levels.push_back(level);
    ids.push_back(id);
  }
  void beginWait() override {
    events += "begin ";
    if (stopOnBegin) stopOnBegin->stopCode = 5;
  }
  void endWait() override { events += "end "; }
  bool wantsMessagePump() override { return pump; }
  void pumpMessages() override { pumps++; }
  void reportProgress(int32_t count, int threadCount) override {
    reports++;
    lastCount = count;
    lastThreadCount = threadCount;
  }
  int32_t checkAbort() override {
    checks++;
    if (abortAtCount >= 0 && lastCount == abortAtCount) return 9;
    // Gives up long after anything should have happened, so that a fault
    // shows as a wrong result.
    if (checks > 150) return 99;
    return 0;
  }

  std::vector<std::string> messages;
  std::vector<int> levels;
  std::vector<int> ids;
  std::string events;
  bool pump = false;
  std::atomic<int> pumps{0};
  MultiThreaded* stopOnBegin = nullptr;
  int reports = 0;
  int32_t lastCount = -1;
  int lastThreadCount = 0;
  int checks = 0;
  int32_t abortAtCount = -1;
};

TEST(ThreadManager, StopCodeRaisedBeforeTheThreadsRunSkipsTheJob) {
  ManagerHandle manager = makeManager();
  RecordingJob job(manager.get(), 4);
  RecordingCallback callback;
  callback.stopOnBegin = &job;
  EXPECT_EQ(manager->run(3, &job, &callback, 1), 5);
  for (int i = 0; i < 4; i++) EXPECT_EQ(job.slots[i].calls, 0);
  EXPECT_EQ(callback.events, "begin end ");

  // The next run clears the code and reuses the latch and threads.
  callback.stopOnBegin = nullptr;
  EXPECT_EQ(manager->run(3, &job, &callback, 1), 0);
  expectEachIndexRanOnce(job, 3);
}

// Each thread counts up to its share, then waits to be told to stop.
class CountingJob : public MultiThreaded {
 public:
  void run(std::atomic<int32_t>* stop, std::atomic<int32_t>* progress, int threadIndex, int threadCount) override {
    for (int i = 0; i <= threadIndex; i++) progress->fetch_add(10);
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (stop->load() == 0 && std::chrono::steady_clock::now() < deadline) sleepBriefly();
    if (stop->load() != 0) stopped++;
  }
  std::atomic<int> stopped{0};
};

TEST(ThreadManager, CallbackSeesSummedProgressAndGivesUpTheJob) {
  ManagerHandle manager = makeManager();
  CountingJob job;
  RecordingCallback callback;
  callback.abortAtCount = 10 + 20 + 30;
  EXPECT_EQ(manager->run(3, &job, &callback, 1), 9);
  EXPECT_EQ(job.stopped.load(), 3);
  EXPECT_EQ(callback.lastCount, 60);
  EXPECT_EQ(callback.lastThreadCount, 3);
  EXPECT_EQ(callback.pumps.load(), 0);

  ASSERT_EQ(callback.messages.size(), 2u);
  EXPECT_EQ(callback.messages[0], "Setting up 3 thread(s)\n");
  EXPECT_EQ(callback.messages[1], "Threads completed\n");
  for (size_t i = 0; i < 2; i++) {
    EXPECT_EQ(callback.levels[i], 0);
    EXPECT_EQ(callback.ids[i], 30000);
  }
  EXPECT_EQ(callback.events, "begin end ");
}

// Holds its threads until the caller has pumped its front end a few times.
class PumpWatchingJob : public MultiThreaded {
 public:
  explicit PumpWatchingJob(std::atomic<int>* pumps) : pumps(pumps) {}
  void run(std::atomic<int32_t>* stop, std::atomic<int32_t>* progress, int threadIndex, int threadCount) override {
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (pumps->load() < 3 && std::chrono::steady_clock::now() < deadline) sleepBriefly();
  }
  std::atomic<int>* pumps;
};

TEST(ThreadManager, WaitingCallerKeepsItsFrontEndServed) {
  ManagerHandle manager = makeManager();
  RecordingCallback callback;
  callback.pump = true;
  PumpWatchingJob job(&callback.pumps);
  EXPECT_EQ(manager->run(2, &job, &callback, 0), 0);
  // Three pumps while waiting, and one more once the threads are done.
  EXPECT_GE(callback.pumps.load(), 4);
  EXPECT_EQ(callback.reports, 0);
}

// Waits for a gate that the starter opens only after runProcedure() has
// returned, and notes where it ran.
class GateProcedure : public ThreadProcedure {
 public:
  GateProcedure(ThreadManager* manager, ThreadManager* other)
      : manager(manager), other(other), opened(gate.get_future()) {}
  void run(void* argument) override {
    receivedArgument = argument;
    indexFromManager = manager->getThreadIndex();
    indexFromOther = other->getThreadIndex();
    thread = std::this_thread::get_id();
    gateOpened = opened.wait_for(kPatience) == std::future_status::ready;
    done = true;
  }
  const char* getThreadName() override { return "QluxTestProcedureThread"; }

  bool waitUntilDone() {
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done.load() && std::chrono::steady_clock::now() < deadline) sleepBriefly();
    return done.load();
  }

  ThreadManager* manager;
  ThreadManager* other;
  std::promise<void> gate;
  std::future<void> opened;
  void* receivedArgument = nullptr;
  int indexFromManager = -2;
  int indexFromOther = -2;
  bool gateOpened = false;
  std::thread::id thread;
  std::atomic<bool> done{false};
};

TEST(ThreadManager, ProcedureRunsOnAPooledThreadWhileTheCallerGoesOn) {
  ManagerHandle manager = makeManager();
  ManagerHandle other = makeManager();
  RecordingJob job(manager.get(), 2);
  ASSERT_EQ(manager->run(2, &job, nullptr, 0), 0);

  GateProcedure procedure(manager.get(), other.get());
  int argument = 0;
  ASSERT_EQ(manager->runProcedure(&procedure, &argument), 0);
  procedure.gate.set_value();
  ASSERT_TRUE(procedure.waitUntilDone());
  EXPECT_TRUE(procedure.gateOpened);
  EXPECT_EQ(procedure.receivedArgument, &argument);
  EXPECT_EQ(procedure.indexFromManager, 0);
  EXPECT_EQ(procedure.indexFromOther, -1);
  EXPECT_EQ(job.threadsUsed(2).count(procedure.thread), 1u);

  EXPECT_EQ(manager->runProcedure(nullptr, nullptr), -1);
}

TEST(ThreadManager, TerminateThreadsLeavesAManagerThatStillWorks) {
  ManagerHandle manager = makeManager();
  manager->terminateThreads(0);

  RecordingJob before(manager.get(), 3);
  ASSERT_EQ(manager->run(3, &before, nullptr, 0), 0);
  manager->terminateThreads(0);

  RecordingJob after(manager.get(), 3);
  EXPECT_EQ(manager->run(3, &after, nullptr, 0), 0);
  expectEachIndexRanOnce(after, 3);
  EXPECT_EQ(manager->getThreadIndex(), -1);
}

TEST(ThreadManager, ThreadThatOutlivesItsManagerEndsOnItsOwn) {
  ManagerHandle manager = makeManager();
  ManagerHandle other = makeManager();
  // The procedure asks only the other manager, which stays alive.
  GateProcedure procedure(other.get(), other.get());
  ASSERT_EQ(manager->runProcedure(&procedure, nullptr), 0);
  // It holds its thread past the 2 seconds that deletion waits; the thread
  // is left to finish, and then frees its own record.
  manager.reset();
  procedure.gate.set_value();
  ASSERT_TRUE(procedure.waitUntilDone());
  EXPECT_TRUE(procedure.gateOpened);
}

// Uses a stack frame far above any system's default thread stack.
class DeepStackJob : public MultiThreaded {
 public:
  void run(std::atomic<int32_t>* stop, std::atomic<int32_t>* progress, int threadIndex, int threadCount) override {
    volatile unsigned char frame[12 << 20];
    for (size_t i = 0; i < sizeof(frame); i += 4096) frame[i] = static_cast<unsigned char>(i >> 12);
    unsigned sum = 0;
    for (size_t i = 0; i < sizeof(frame); i += 4096) sum += frame[i];
    touched = sum != 0;
  }
  std::atomic<bool> touched{false};
};

// Notes whether its thread runs below normal priority.
class PriorityJob : public MultiThreaded {
 public:
  void run(std::atomic<int32_t>* stop, std::atomic<int32_t>* progress, int threadIndex, int threadCount) override {
#ifdef _WIN32
    lowered = GetThreadPriority(GetCurrentThread()) == THREAD_PRIORITY_BELOW_NORMAL;
#else
    lowered = getpriority(PRIO_PROCESS, 0) > normal;
#endif
  }
  int normal = 0;
  std::atomic<bool> lowered{false};
};

TEST(ThreadManager, StackSizeAndPriorityApplyToNewThreads) {
  ManagerHandle manager = makeManager();
  manager->setStackSize(32 << 20);
  DeepStackJob deep;
  EXPECT_EQ(manager->run(1, &deep, nullptr, 0), 0);
  EXPECT_TRUE(deep.touched.load());

  PriorityJob job;
#ifndef _WIN32
  job.normal = getpriority(PRIO_PROCESS, 0);
#endif
  ManagerHandle lowered = makeManager();
  lowered->setPriority(1);
  EXPECT_EQ(lowered->run(1, &job, nullptr, 0), 0);
  EXPECT_TRUE(job.lowered.load());
}

TEST(ThreadManager, AffinitySettingIsReadAndJobsStillRun) {
  setEnvironment("QLUX_USE_THREAD_AFFINITY", "0");
  EXPECT_FALSE(threadAffinityWanted());
  setEnvironment("QLUX_USE_THREAD_AFFINITY", "yes");
  EXPECT_FALSE(threadAffinityWanted());
  setEnvironment("QLUX_USE_THREAD_AFFINITY", "1");
  EXPECT_TRUE(threadAffinityWanted());

  ManagerHandle manager = makeManager();
  setEnvironment("QLUX_USE_THREAD_AFFINITY", nullptr);
  RecordingJob job(manager.get(), 4);
  EXPECT_EQ(manager->run(4, &job, nullptr, 0), 0);
  expectEachIndexRanOnce(job, 4);
}

TEST(ThreadLock, KeepsOtherThreadsOut) {
  ThreadLock lock;
  int shared = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; i++) {
        ThreadLockGuard guard(lock);
        shared++;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(shared, 80000);
}

TEST(ThreadEvent, AutoResetLetsOneWaitThroughAndManualResetStaysSet) {
  ThreadEvent automatic(false);
  ASSERT_TRUE(automatic.isReady());
  EXPECT_FALSE(automatic.wait(0));
  automatic.set();
  EXPECT_TRUE(automatic.wait(0));
  EXPECT_FALSE(automatic.wait(0));
  automatic.set();
  automatic.reset();
  EXPECT_FALSE(automatic.wait(1));

  ThreadEvent manual(true);
  manual.set();
  EXPECT_TRUE(manual.wait(0));
  EXPECT_TRUE(manual.waitServingInput(0));
  manual.reset();
  EXPECT_FALSE(manual.waitServingInput(1));

  // A waiter without a time limit wakes when another thread sets the event.
  std::atomic<bool> woke{false};
  std::thread waiter([&] { woke = automatic.wait(-1); });
  automatic.set();
  waiter.join();
  EXPECT_TRUE(woke.load());
}

TEST(Sequence, ItemsStayPutAcrossBlocksUntilCleared) {
  Sequence sequence(sizeof(int64_t), 10);
  std::vector<int64_t*> addresses;
  for (int i = 0; i < 25; i++) {
    int64_t* item = static_cast<int64_t*>(sequence.append());
    EXPECT_EQ(*item, 0);
    *item = i * 3;
    addresses.push_back(item);
  }
  EXPECT_EQ(sequence.getCount(), 25);
  for (int i = 0; i < 25; i++) {
    EXPECT_EQ(sequence.get(i), addresses[i]);
    EXPECT_EQ(*addresses[i], i * 3);
  }
  EXPECT_EQ(sequence.get(25), nullptr);
  EXPECT_EQ(sequence.get(-1), nullptr);
  sequence.clear();
  EXPECT_EQ(sequence.getCount(), 0);
  EXPECT_EQ(sequence.get(0), nullptr);
  EXPECT_NE(sequence.append(), nullptr);
}

TEST(Sequence, BlockThatCannotBeAllocatedThrows) {
  const size_t sizes[] = {size_t(1) << 20, SIZE_MAX / 2};
  for (size_t size : sizes) {
    Sequence sequence(size, INT_MAX);
    try {
      sequence.append();
      FAIL() << "no exception for items of " << size << " bytes";
    } catch (const ExceptionMsg& error) {
      EXPECT_STREQ(error.getMessage(), "[_SequenceBlock] Could not allocate memory");
    }
    EXPECT_EQ(sequence.getCount(), 0);
  }
}

TEST(MessageList, KeepsOrderAcrossBlocksAndReusesTakenItems) {
  MessageList list;
  int32_t message = 0;
  EXPECT_FALSE(list.pop(&message));
  for (int round = 0; round < 2; round++) {
    for (int i = 0; i < 250; i++) list.push(4096 + i);
    EXPECT_EQ(list.getCount(), 250);
    for (int i = 0; i < 250; i++) {
      ASSERT_TRUE(list.pop(&message));
      EXPECT_EQ(message, 4096 + i);
    }
    EXPECT_FALSE(list.pop(&message));
    EXPECT_EQ(list.getCount(), 0);
  }
  // Interleaved use keeps first-in first-out.
  list.push(1);
  list.push(2);
  ASSERT_TRUE(list.pop(&message));
  EXPECT_EQ(message, 1);
  list.push(3);
  ASSERT_TRUE(list.pop(&message));
  EXPECT_EQ(message, 2);
  ASSERT_TRUE(list.pop(&message));
  EXPECT_EQ(message, 3);
}

TEST(NodeDealer, DealsThreadsInProportionToProcessors) {
  NodeDealer dealer;
  EXPECT_EQ(dealer.nextNode(), -1);
  dealer.addNode(3);
  dealer.addNode(0);
  dealer.addNode(2);
  std::vector<int> nodes;
  for (int i = 0; i < 7; i++) nodes.push_back(dealer.nextNode());
  EXPECT_EQ(nodes, (std::vector<int>{0, 0, 0, 2, 2, 0, 0}));
  dealer.restart();
  EXPECT_EQ(dealer.nextNode(), 0);

  dealer.clear();
  dealer.addNode(0);
  EXPECT_EQ(dealer.nextNode(), -1);
}

TEST(ParseCpuList, ReadsRangesAndRefusesMalformedText) {
  unsigned char cpus[16] = {};
  EXPECT_EQ(parseCpuList("0-2,5,14-17\n", cpus, 16), 8);
  const unsigned char expected[16] = {1, 1, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1};
  EXPECT_EQ(std::memcmp(cpus, expected, sizeof(cpus)), 0);

  const char* malformed[] = {"3-1", "a", "1,", "1-", "2 3", "-1"};
  for (const char* text : malformed) {
    unsigned char scratch[16] = {};
    EXPECT_EQ(parseCpuList(text, scratch, 16), -1) << text;
  }
  unsigned char none[4] = {};
  EXPECT_EQ(parseCpuList("\n", none, 4), 0);
}

}  // namespace
}  // namespace QUtils
