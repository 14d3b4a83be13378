// A static object keeps a log from its constructor to its destructor.

#include "tests/library/lifetime/support.h"

namespace {

const struct Module
{
    Module() : m_ulLog(LeaveLog()) {}
    ~Module() { FinishLog(m_ulLog); }

    const unsigned long m_ulLog;
} g_Module;

} // namespace

int main() {}
