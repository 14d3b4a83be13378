#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <memory>

#include <gtest/gtest.h>

#include "host/worker_pool.h"

namespace {

using namespace emshost;

TEST(HostWorkerPool, EndDoesWhatIsLeftWithoutDelay)
{
    std::atomic<int> done = 0;
    std::latch inside(1);
    WorkerPool pool(2);
    // Goes on while the workers end.
    const std::function<void(int)> relay = [&](int rest) {
        ++done;
        if (rest > 0) {
            pool.Submit("handed over by a job", [&relay, rest] { relay(rest - 1); });
        }
    };
    ASSERT_TRUE(pool.Stick());
    pool.Submit("busy", [&] {
        inside.count_down();
        pool.BeBusy(std::chrono::hours(1));
        relay(100);
    });
    inside.wait();
    for (int count = 0; count < 10; ++count) {
        pool.Submit("queued", [&done] { ++done; });
    }
    pool.End();
    EXPECT_EQ(done, 111);
}

TEST(HostWorkerPool, AJobIsGoneWhenItIsDone)
{
    const auto held = std::make_shared<int>(0);
    WorkerPool pool(1);
    pool.Submit("holds something", [held] { ++*held; });
    pool.Await();
    EXPECT_EQ(*held, 1);
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
