#include <atomic>
#include <latch>

#include <gtest/gtest.h>

#include "host/workers.h"

namespace {

using namespace emshost;

constexpr int AN_HOUR = 3600000; // milliseconds

TEST(Workers, EndDoesWhatIsLeftWithoutDelay)
{
    std::atomic<int> done = 0;
    std::latch inside(1);
    Workers workers(2, {});
    workers.Stick();
    workers.Submit("busy", [&](const std::stop_token& ending) {
        inside.count_down();
        Sleep(ending, AN_HOUR);
        ++done;
    });
    inside.wait();
    for (int count = 0; count < 10; ++count) {
        workers.Submit("waits behind", [&done](const std::stop_token&) { ++done; });
    }
    workers.End();
    EXPECT_EQ(done, 11);
}

TEST(Workers, AStopEndsEveryWait)
{
    std::stop_source stop;
    std::latch inside(1);
    Workers workers(3, stop.get_token());
    workers.Stick();
    workers.Submit("busy", [&](const std::stop_token& ending) {
        inside.count_down();
        Sleep(ending, AN_HOUR);
    });
    workers.Submit("stops", [&](const std::stop_token&) {
        inside.wait();
        stop.request_stop();
    });
    workers.Await();
    workers.End();
}

} // namespace
