// The conformance kit: checks whether a platform does what docs/platform.md asks for.
//
//     my_platform_conformance         checks every rule; the exit status is 0 when all hold, else 1
//     my_platform_conformance RULE    checks one rule in this process, without a limit of time, for
//                                     a debugger
//
// Each rule runs in a process of its own, so that a rule that hangs or crashes is named, and the
// other rules still run.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <sys/wait.h>
#include <unistd.h>

#include "rules.h"

namespace {

constexpr unsigned int SECONDS_FOR_SETUP = 10;
constexpr int STATUS_HOLDS = 0;
constexpr int STATUS_FAILED = 1;
constexpr int STATUS_REPORTED = 76; // Fail() has said what does not hold
constexpr int STATUS_SKIPPED = 77;

const Rule* g_pRule = nullptr; // the rule that this process checks

constexpr Rule SETUP = {
    "ConformanceSetup.returns",
    "It must return within 10 seconds, with an id of a task manager that is at most 255.",
    [](const ConformanceOptions& options) {
        Require(options.m_nTaskMgrId <= 255, "the id " + std::to_string(options.m_nTaskMgrId));
    }};

std::vector<Rule> AllRules()
{
    std::vector<Rule> rules = {SETUP};
    for (const std::span<const Rule> some : {PlatformRules(), FormatterRules(), TaskRules()}) {
        rules.insert(rules.end(), some.begin(), some.end());
    }
    return rules;
}

void PrintFailure(const Rule& rule, const std::string& found)
{
    const std::string name = rule.m_pName;
    std::printf("FAILS  %s: %s Found: %s. See %s in docs/platform.md.\n", name.c_str(),
                rule.m_pMust, found.c_str(), name.substr(0, name.find('.')).c_str());
}

std::mutex g_Ending;

/// Prints and ends the process. A rule may fail on several threads: the first reports, and the
/// others wait for the lock until the process has ended.
template <class Print>
[[noreturn]] void End(int status, Print print)
{
    const std::lock_guard guard(g_Ending);
    print();
    std::fflush(stdout);
    std::_Exit(status);
}

int CheckHere(const char* name)
{
    for (const Rule& rule : AllRules()) {
        if (std::strcmp(rule.m_pName, name) == 0) {
            g_pRule = &rule;
            const ConformanceOptions options = ConformanceSetup();
            if (alarm(0) != 0) { // CheckInProcess() has set one
                alarm(options.m_nSecondsPerRule);
            }
            rule.m_pfnCheck(options);
            return STATUS_HOLDS;
        }
    }
    std::fprintf(stderr, "%s: there is no such rule. The rules are:\n", name);
    for (const Rule& rule : AllRules()) {
        std::fprintf(stderr, "%s\n", rule.m_pName);
    }
    return STATUS_FAILED;
}

/// Returns whether the rule holds, or does not apply. The process has the name of this one, because
/// the platform may use it.
bool CheckInProcess(const Rule& rule, const char* program)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        alarm(SECONDS_FOR_SETUP); // is kept by execl()
        execl("/proc/self/exe", program, rule.m_pName, static_cast<char*>(nullptr));
        std::_Exit(STATUS_FAILED);
    }
    int status = 0;
    if (child == -1 || waitpid(child, &status, 0) == -1) {
        PrintFailure(rule, "no process to check it in");
        return false;
    }
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        PrintFailure(rule, signal == SIGALRM ? std::string("it did not end in time")
                                             : "a crash, signal " + std::to_string(signal));
        return false;
    }
    switch (WEXITSTATUS(status)) {
    case STATUS_HOLDS:
        std::printf("holds  %s\n", rule.m_pName);
        return true;
    case STATUS_SKIPPED:
        return true;
    case STATUS_REPORTED:
        return false;
    default:
        PrintFailure(rule, "the exit status " + std::to_string(WEXITSTATUS(status)));
        return false;
    }
}

} // namespace

void Fail(const std::string& found)
{
    End(STATUS_REPORTED, [&found] { PrintFailure(*g_pRule, found); });
}

void Skip(const std::string& reason)
{
    End(STATUS_SKIPPED,
        [&reason] { std::printf("skips  %s: %s\n", g_pRule->m_pName, reason.c_str()); });
}

int main(int argc, char** argv)
{
    if (argc > 1) {
        return CheckHere(argv[1]);
    }
    int failed = 0;
    const std::vector<Rule> rules = AllRules();
    for (const Rule& rule : rules) {
        failed += CheckInProcess(rule, argv[0]) ? 0 : 1;
        if (failed > 0 && &rule == &rules.front()) {
            std::puts("The other rules were not checked, because they need ConformanceSetup().");
            break;
        }
    }
    std::printf("rules that do not hold: %d\n", failed);
    return failed == 0 ? STATUS_HOLDS : STATUS_FAILED;
}
