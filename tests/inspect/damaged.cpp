// A process whose registry of logs was left half changed. It prints "ready", and then waits to be
// killed.

#include <cstdio>

#include <unistd.h>

#include "util/translog.h"

using NSQN_util::g_TransLogMap;
using NSQN_util::QNTransactionLog;

int main()
{
    QNTransactionLog logs[4];
    // A node that leads back to the one above it.
    std::_Rb_tree_node_base* const last = g_TransLogMap.find(logs[3].GetHandle())._M_node;
    last->_M_right = last->_M_parent;
    // A buffer that is none, of a log that is found before the circle.
    logs[0].AddBuffer("torn", 1, reinterpret_cast<NSQN_util::QNTransactionBuffer*>(16));
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        pause();
    }
}
