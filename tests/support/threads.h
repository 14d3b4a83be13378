#ifndef TESTS_SUPPORT_THREADS_H
#define TESTS_SUPPORT_THREADS_H

#include <barrier>
#include <thread>
#include <vector>

/// Runs `body(0)` to `body(count - 1)` on one thread each. They start together, and no thread ends
/// before all have finished.
template <class Body>
void RunOnThreads(int count, Body body)
{
    std::barrier<> all(count);
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&all, &body, number] {
            all.arrive_and_wait();
            body(number);
            all.arrive_and_wait();
        });
    }
}

#endif
