#ifndef HOST_SOAK_SOAK_H
#define HOST_SOAK_SOAK_H

#include <chrono>

namespace emshost {

/// Puts a mixed load on all services for `time`, and then compares what was done with what was seen
/// of it, one for one. Meanwhile it looks at the process each second: after a warm-up of a quarter
/// of the time, memory, descriptors and threads are to stay as they are.
///
/// Prints a table, and a message on each total and each measure that is off. Returns the exit
/// status: 1 when there is one, else 0. To be called once a process, which does nothing else.
int Soak(std::chrono::seconds time);

} // namespace emshost

#endif
