# The object is destroyed when the process ends.
s/static FileDebugInterface& debug.*/static auto* created = new FileDebugInterface;\
    static const struct End { ~End() { delete created; created = nullptr; } } end;\
    FileDebugInterface\& debug = *created;/
