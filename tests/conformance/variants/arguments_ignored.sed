# A line is written without its arguments.
s/std::vfprintf(g_pDebugFile, format, args)/std::fputs(format, g_pDebugFile)/
