# The task manager of ConformanceSetup() cannot be created.
s/g_TaskMgrs.m_nId. = this;/__builtin_trap();/
