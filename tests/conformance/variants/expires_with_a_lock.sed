# An expiry runs under a lock that arming takes.
s/^eKorAppMgr g_AppMgr;/&\nstd::mutex g_Lock;/
s/^    task->eKorTaskTimeInterval/    const std::lock_guard guard(g_Lock);\n&/
s/^    const Clock::duration length/    const std::lock_guard arming(g_Lock);\n&/
