# An id that is not armed ends the process.
s/m_Intervals.erase(id);.*/if (m_Intervals.erase(id) == 0) {\n        __builtin_trap();\n    }/
