# A key without an integer counts as found.
s/return parsed.ec .*/return parsed.ptr != nullptr ? 1 : 0;/
