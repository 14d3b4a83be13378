#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <list>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <pthread.h>

#include "emsutil/thread_monitor.h"
#include "host/worker_pool.h"

namespace {

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

std::list<EmsThreadInfo> Records()
{
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    return records;
}

TEST(HostWorkerPool, WorkersTakeTurnsWithTheirOwnCounters)
{
    WorkerPool pool(2);
    unsigned long ids[5];
    for (unsigned long& id : ids) {
        pool.Submit(std::to_string(&id - ids), [&id] { id = pthread_self(); });
        pool.Await();
    }
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_EQ(ids[0], ids[2]);
    EXPECT_EQ(ids[1], ids[3]);

    EXPECT_TRUE(IsEmsThreadReport(ids[0]));
    EXPECT_FALSE(IsEmsThreadReport(ids[1]));
    const auto records = Records();
    ASSERT_EQ(records.size(), 2U);
    for (const EmsThreadInfo& record : records) {
        const bool first = record.m_ulThreadId == ids[0];
        EXPECT_EQ(record.m_nStatus, 0); // what is awaited has left its stretch
        EXPECT_EQ(record.m_llRecvs, first ? 6 : 4);
        EXPECT_EQ(record.m_InfoMap.at("jobs").first, first ? "2" : "1");
        EXPECT_EQ(record.m_InfoMap.at("last").first, first ? "4" : "3");
    }
}

TEST(HostWorkerPool, AwaitWaitsForAllButTheStuck)
{
    std::atomic<int> done = 0;
    const auto job = [&done] { ++done; };
    WorkerPool pool(2);
    pool.Await(); // before the first job

    ASSERT_TRUE(pool.Stick());
    EXPECT_EQ(Records().front().m_nStatus, 1);
    for (int count = 0; count < 1000; ++count) {
        pool.Submit("beside the stuck one", job);
    }
    pool.Await();
    EXPECT_EQ(done, 1000);

    ASSERT_TRUE(pool.Stick());
    EXPECT_FALSE(pool.Stick());
    pool.Submit("with nobody to do it", job);
    pool.Await();
    EXPECT_EQ(done, 1000);

    pool.Unstick();
    pool.Await();
    EXPECT_EQ(done, 1001);
    for (const EmsThreadInfo& record : Records()) {
        EXPECT_EQ(record.m_nStatus, 0);
    }
    EXPECT_TRUE(pool.Stick());
}

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
