# Each call returns an object of its own.
s/static FileDebugInterface debug;.*/auto\& debug = *new FileDebugInterface;/
