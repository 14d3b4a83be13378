#ifndef TESTS_LIBRARY_FAULT_SWEEP_H
#define TESTS_LIBRARY_FAULT_SWEEP_H

/// The operations that the fault sweep runs under every fault, and what they do.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/faults.h"

/// One case of one exported operation, or of several.
struct Operation
{
    std::string name; // as swept.sh shortens the exported names, and then the case
    std::function<void()> prepare = [] {};
    std::function<void()> run = {};
    std::string does = {}; // what TakeState() returns after `run`

    std::vector<faults::Call> tolerates = {}; // faults that need not make it fail
    std::vector<std::pair<faults::Call, std::string>> otherwise = {}; // what else a fault may cause
    bool repeatsFailedMutexes = false; // never returns if mutexes fail persistently
};

/// Returns them, and sets the clock and the configuration that they use.
std::vector<Operation> AllOperations();

/// Adds to what TakeState() returns.
void Note(const std::string& what);

/// Returns what has happened and what the services hold, and restores their first state.
std::string TakeState();

#endif
