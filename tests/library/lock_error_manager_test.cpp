#include <stdexcept>

#include <gtest/gtest.h>

#include <emsplatform/platform.h>

#include "emsutil/lock_error_manager.h"
#include "tests/support/expose.h"

using NSQN_util::QNMitLockErrMgr;
using Records = std::map<int, std::string>;

EXPOSE(RecordsOf, QNMitLockErrMgr, m_ThrIDInfoMap, Records)

TEST(LockErrorManager, KeepsTheFirstTextOfAThreadWhileTheSwitchIsOn)
{
    QNMitLockErrMgr::Destroy(); // there is none
    QNMitLockErrMgr& locks = *QNMitLockErrMgr::Instance();
    locks.InsertThrIDandInfo(1, "off");
    locks.InsertThrIDandInfo(1, nullptr);
    EXPECT_EQ(RecordsOf(locks), Records{});

    NSQN_util::g_bEnableMitLockErrMgr = true;
    char text[] = "A";
    locks.InsertThrIDandInfo(7, text);
    text[0] = 'B';
    locks.InsertThrIDandInfo(7, text);
    locks.InsertThrIDandInfo(0, "zero");
    locks.InsertThrIDandInfo(-1, "negative");
    EXPECT_THROW(locks.InsertThrIDandInfo(8, nullptr), std::logic_error);
    locks.EraseThrIDandInfo(9);
    EXPECT_EQ(RecordsOf(locks), (Records{{-1, "negative"}, {0, "zero"}, {7, "A"}}));
    locks.EraseThrIDandInfo(7);
    locks.InsertThrIDandInfo(7, text);
    EXPECT_EQ(RecordsOf(locks).at(7), "B");
    NSQN_util::g_bEnableMitLockErrMgr = false;
    locks.EraseThrIDandInfo(7);
    EXPECT_EQ(RecordsOf(locks).size(), 3u);
}
