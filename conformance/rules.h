#ifndef CONFORMANCE_RULES_H
#define CONFORMANCE_RULES_H

#include <cstddef>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "emsutil_conformance.h"

struct Rule
{
    const char* m_pName; ///< "ROW.WHAT": a row of docs/platform.md, and what is checked of it
    const char* m_pMust; ///< the duty, as a whole sentence
    void (*m_pfnCheck)(const ConformanceOptions& options);
};

std::span<const Rule> FormatterRules();
std::span<const Rule> PlatformRules();
std::span<const Rule> TaskRules();

/// Reports that the rule does not hold, and ends the process: other threads of the platform may be
/// in any state.
[[noreturn]] void Fail(const std::string& found);

/// Reports that the rule does not apply to this platform, and ends the process.
[[noreturn]] void Skip(const std::string& reason);

inline void Require(bool holds, const std::string& found)
{
    if (!holds) {
        Fail(found);
    }
}

/// Calls `function` with 0, 1, 2 and 3, each on a thread of its own.
inline void OnFourThreads(const std::function<void(int thread)>& function)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back(function, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// The place of a virtual operation in its class's table, counted from 1; 0 for an operation that
/// is not virtual. In a pointer to such a member, g++ and clang++ keep the distance of the place in
/// bytes, and a mark: 1 in the first word or, on ARM, in the second.
template <class Member>
int VirtualPlace(Member member)
{
    std::ptrdiff_t words[2];
    static_assert(sizeof words == sizeof member);
    std::memcpy(words, &member, sizeof words);
    const bool isVirtual = ((words[0] | words[1]) & 1) != 0;
    return isVirtual ? static_cast<int>(words[0] / std::ptrdiff_t{sizeof(void*)}) + 1 : 0;
}

inline void RequirePlace(const std::string& name, int place, int expected)
{
    Require(place == expected, name + " has place " + std::to_string(place) + ", not " +
                                   std::to_string(expected) + " (0 is not virtual)");
}

#endif
