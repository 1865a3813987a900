// Tests of the stripe workers: each submitted index runs once, and can run
// again.
#include "package/stripe_workers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace {

// Counts the runs of each index. Jobs spin while `held` is set, so that the
// owner's first wait is a real one.
class CountingJob : public StripeJob {
 public:
  explicit CountingJob(int count) : runs(static_cast<size_t>(count)) {}
  void runStripe(int index) override {
    while (held.load()) {
    }
    runs[static_cast<size_t>(index)]++;
  }
  std::vector<std::atomic<int>> runs;
  std::atomic<bool> held{false};
};

// Lets the held jobs go the first time the owner is told that it waits.
class ReleasingWaiter : public StripeWaiter {
 public:
  explicit ReleasingWaiter(CountingJob* job) : job(job) {}
  void waiting() override {
    calls++;
    job->held = false;
  }
  CountingJob* job;
  int calls = 0;
};

// Every submitted index runs exactly once, whatever order the owner waits
// in; a collected index runs again when submitted again; the waiter hears
// of a wait; queued work is dropped when the workers go.
TEST(StripeWorkers, EachSubmittedIndexRunsOnceAndCanRunAgain) {
  const int count = 40;
  CountingJob job(count);
  ReleasingWaiter waiter(&job);
  {
    StripeWorkers workers(&job, count, 2);
    job.held = true;
    for (int i = 0; i < count; i++) workers.submit(i);
    EXPECT_FALSE(workers.isIdle(count - 1));
    for (int i = count - 1; i >= 0; i--) {
      workers.waitFor(i, &waiter);
      EXPECT_TRUE(workers.isDone(i));
      workers.collect(i);
      EXPECT_TRUE(workers.isIdle(i));
    }
    EXPECT_GT(waiter.calls, 0);
    for (int i = 0; i < count; i++) EXPECT_EQ(1, job.runs[static_cast<size_t>(i)].load()) << i;

    workers.submit(7);
    workers.waitFor(7, nullptr);
    workers.collect(7);
    EXPECT_EQ(2, job.runs[7].load());
    for (int i = 0; i < count; i++) workers.submit(i);
  }
  for (int i = 0; i < count; i++) EXPECT_LE(job.runs[static_cast<size_t>(i)].load(), i == 7 ? 3 : 2) << i;
}

}  // namespace
