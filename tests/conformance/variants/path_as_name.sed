# The process's name is the path of the program.
s/g_ProcName = "provider"/g_ProcName = program_invocation_name/
