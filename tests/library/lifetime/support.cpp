#include "tests/library/lifetime/support.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <unistd.h>

#include <emsplatform/platform.h>
#include <emsstandin/setup.h>

#include "emsutil/transaction_log.h"

using namespace NSQN_util;

Installation::Installation() : m_Root("lifetime." + std::to_string(getpid()) + "/")
{
    std::filesystem::create_directories(m_Root + "var/dump");
    std::ofstream(m_Root + "ems.cfg") << "MsgHandleMode=0";
    emsstandin::SetInstallPath(m_Root + "var/bin");
    emsstandin::SetConfigFile(m_Root + "ems.cfg");
    g_bEnableMitLockErrMgr = true;
}

Installation::~Installation()
{
    std::filesystem::remove_all(m_Root);
}

std::string Installation::Report() const
{
    std::ifstream file(m_Root + "var/dump/" + g_ProcName + ".rpt");
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned long LeaveLog()
{
    QNTransactionLog log;
    log.AddBuffer("left", 1, new QNTransactionBuffer);
    REQUIRE(log.AddRef(1) == 1);
    return log.GetHandle();
}

void FinishLog(unsigned long handle)
{
    REQUIRE(QNTransactionLog(handle).GetBuffer("left", 1) != nullptr);
    REQUIRE(QNTransactionLog(handle).Release() == 0);
    REQUIRE(!QNTransactionLog(handle).IsValid());
}
