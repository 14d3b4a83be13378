#ifndef HOST_SOAK_H
#define HOST_SOAK_H

#include <chrono>
#include <stop_token>

namespace emshost {

/// Loads all services for `time`, or until the stop, and then compares what was done with what was
/// seen of it. Meanwhile it samples the process each second: after a warm-up of a quarter of the
/// time, memory, descriptors and threads must stay as they are.
///
/// Prints a table, and a message for each total and each measure that is wrong. Returns the exit
/// status: 1 when there is one, else 0. To be called once per process.
int Soak(std::chrono::seconds time, const std::stop_token& stop);

} // namespace emshost

#endif
