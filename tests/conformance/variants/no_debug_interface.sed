# Conforms: there is no debug interface.
s/return &debug;/return g_pDebugFile == nullptr ? \&debug : nullptr;/
