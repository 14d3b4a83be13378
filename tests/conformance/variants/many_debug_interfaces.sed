# Each call returns an object of its own.
s/static FileDebugInterface& debug/FileDebugInterface\& debug/
