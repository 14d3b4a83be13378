# A task whose state is set twice is destroyed twice.
/m_Tasks.contains/,/}/d
