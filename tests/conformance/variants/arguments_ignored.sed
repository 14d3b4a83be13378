# A line is written without its arguments.
s/std::vfprintf(g_pDebugFile, \(.*\), args)/std::fputs(\1, g_pDebugFile)/
