#ifndef TESTS_LIBRARY_FAULT_SWEEP_H
#define TESTS_LIBRARY_FAULT_SWEEP_H

/// The operations that the fault sweep runs under every fault, and their outcomes.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/faults.h"

/// The state of all services after an operation.
struct State
{
    struct Thread
    {
        bool inside = false;
        long long events = 0;
        bool report = false;
        bool operator==(const Thread&) const = default;
    };
    struct Log
    {
        int references = 0;
        int extra = 0;
        std::size_t buffers = 0;
        bool operator==(const Log&) const = default;
    };

    std::string called = {};             // each handler, timer function and ~Buffer, in order
    std::string queued = {};             // each handler of the queued commands
    bool registered = false;             // whether a handler is registered
    std::vector<std::string> lines = {}; // the debug lines, each up to its first comma
    std::string reported = {};           // the text in the report file
    std::vector<Thread> threads = {};
    std::vector<Log> logs = {};
    std::optional<std::size_t> lockErrors = {}; // empty if there is no manager
    bool operator==(const State&) const = default;
};

/// A call of an operation. The result is 0 if the operation returns nothing.
struct Action
{
    template <class Function>
    Action(Function function)
        : m_Call([function]() -> long {
              if constexpr (std::is_void_v<decltype(function())>) {
                  function();
                  return 0;
              } else {
                  return static_cast<long>(function());
              }
          })
    {}

    std::function<long()> m_Call;
};

/// One case of one exported operation, or of several.
struct Operation
{
    std::vector<std::string> covers; // exported names, as ShortName() writes them
    std::string when = {};           // tells the case from others of the same operation
    std::function<void()> prepare = [] {};
    Action run;
    long returns = 0;
    long refused = 0;                 // returned when it fails, which changes nothing
    std::optional<State> leaves = {}; // empty if it changes nothing

    std::vector<faults::Call> tolerates = {}; // faults that need not make it fail
    struct Otherwise
    {
        faults::Call fault;
        State leaves;
        std::string throws = {}; // empty if it returns as without a fault
    };
    std::vector<Otherwise> otherwise = {}; // further outcomes that a fault may have

    bool refusedUnprepared = false;    // without its preparation it fails
    bool repeatsFailedMutexes = false; // never returns if mutexes fail persistently
};

std::vector<Operation> AllOperations();

/// Sets the clock and the configuration that the operations use.
void SetUpServices();

/// Returns the state and then restores the first one.
State TakeState();

#endif
