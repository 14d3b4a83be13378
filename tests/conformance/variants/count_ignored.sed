# Only the size of the buffer limits a text.
s/std::min(count, destMax - 1)/std::max(destMax - 1, count \& 0)/
