# The length is counted to the first NUL.
s/return length > \(.*\) ? -1 : length;/return length < 0 || length > \1 ? -1 : static_cast<int>(std::string(dest).size());/
