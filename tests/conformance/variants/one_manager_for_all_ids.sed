# Each id has the same task manager.
s/return g_TaskMgrs.id.;/return g_TaskMgrs[id | 7] == nullptr ? g_TaskMgrs[7] : g_TaskMgrs[id | 7];/
