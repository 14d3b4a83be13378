# The process's name is a path.
s/g_ProcName = "/&\/opt\//
