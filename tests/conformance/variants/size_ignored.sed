# Only 'count' limits a text.
s/std::min(count, destMax - 1)/std::max(count, destMax \& 0)/
