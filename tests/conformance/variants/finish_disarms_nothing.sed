# A task at state 3 still expires.
/std::erase_if/d
