#include <atomic>
#include <chrono>
#include <latch>
#include <memory>

#include <gtest/gtest.h>

#include "host/workers.h"

namespace {

using namespace emshost;

TEST(Workers, EndDoesWhatIsLeftWithoutDelay)
{
    std::atomic<int> done = 0;
    std::latch inside(1);
    Workers workers(2, {});
    ASSERT_TRUE(workers.Stick());
    ASSERT_TRUE(workers.Submit("busy", [&] {
        inside.count_down();
        workers.BeBusy(std::chrono::hours(1));
        ++done;
    }));
    inside.wait();
    for (int count = 0; count < 10; ++count) {
        ASSERT_TRUE(workers.Submit("waits behind", [&done] { ++done; }));
    }
    workers.End();
    EXPECT_EQ(done, 11);
}

TEST(Workers, AStopEndsEveryWait)
{
    std::stop_source stop;
    std::latch inside(1);
    Workers workers(3, stop.get_token());
    ASSERT_TRUE(workers.Stick());
    ASSERT_TRUE(workers.Submit("busy", [&] {
        inside.count_down();
        workers.BeBusy(std::chrono::hours(1));
    }));
    ASSERT_TRUE(workers.Submit("stops", [&] {
        inside.wait();
        stop.request_stop();
    }));
    workers.Await();
    workers.End();
}

TEST(Workers, AJobIsGoneWhenItIsDone)
{
    const auto held = std::make_shared<int>(0);
    Workers workers(1, {});
    ASSERT_TRUE(workers.Submit("holds something", [held] { ++*held; }));
    workers.Await();
    EXPECT_EQ(*held, 1);
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
