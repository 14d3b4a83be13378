#ifndef TESTS_LIBRARY_FAULT_SWEEP_H
#define TESTS_LIBRARY_FAULT_SWEEP_H

/// What the sweep takes through every fault: each exported operation, and the services behind it.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/faults.h"

struct Operation
{
    const char* m_pName;
    std::function<void()> m_Prepare;
    std::function<std::string()> m_Run;
    // Outcomes are what the operation gave, "|", and what it left behind.
    std::string m_Usual;
    std::string m_Refused; // when it could not be done
    /// What other outcomes faults of a kind may have.
    std::vector<std::pair<faults::Call, std::string>> m_Others = {};
    /// The usual outcome without the preparation; empty where that cannot be.
    std::string m_Unprepared = {};
    bool m_bPersistently = true; // failures of mutexes, too
};

/// Those that are prepared stand there without their preparation too, where that can be.
std::vector<Operation> AllOperations();

/// Gives the operations a clock and a configuration to work on.
void SetUpServices();

/// What the operations have left behind, in all services, which are then as before.
std::string TakeState();

#endif
