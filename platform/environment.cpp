#include "emsplatform/platform.h"
#include "emsstandin/setup.h"

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <optional>

namespace {

/// The paths that a host has set. A path that is not set is computed at each use.
struct Environment
{
    std::mutex lock;
    std::optional<std::string> installPath; // guarded by lock
    std::optional<std::string> configFile;  // guarded by lock
};

// Never destroyed, as the library may need it until the process ends.
Environment& TheEnvironment()
{
    static Environment& environment = *new Environment;
    return environment;
}

void Set(std::optional<std::string>& field, const std::string& text)
{
    const std::lock_guard guard(TheEnvironment().lock);
    field = text;
}

// Never destroyed, as the library may need it until the process ends.
std::string StartDirectory()
{
    std::error_code error; // ignored: a removed directory has no path
    static const std::string& directory =
        *new std::string(std::filesystem::current_path(error).string());
    return directory;
}

} // namespace

namespace NSQN_util {

// Constructed before a host's objects and destroyed after them, also in a static link.
[[gnu::init_priority(101)]] std::string g_ProcName = program_invocation_short_name;
bool g_bEnableMitLockErrMgr = false;

std::string GetEKORPath()
{
    Environment& environment = TheEnvironment();
    {
        const std::lock_guard guard(environment.lock);
        if (environment.installPath) {
            return *environment.installPath;
        }
    }
    return StartDirectory();
}

// Reads the text only, not the file system.
std::string GetParentPath(const std::string& path)
{
    const std::size_t nameEnd = path.find_last_not_of('/');
    if (nameEnd == std::string::npos) {
        return path.empty() ? "./" : "/";
    }
    const std::size_t separator = path.find_last_of('/', nameEnd);
    if (separator == std::string::npos) {
        return "./";
    }
    const std::size_t parentEnd = path.find_last_not_of('/', separator);
    return parentEnd == std::string::npos ? "/" : path.substr(0, parentEnd + 1) + '/';
}

void GetEmsCfgFile(std::string& path)
{
    Environment& environment = TheEnvironment();
    {
        const std::lock_guard guard(environment.lock);
        if (environment.configFile) {
            path = *environment.configFile;
            return;
        }
    }
    path = GetEKORPath() + "/ems.cfg";
}

} // namespace NSQN_util

namespace emsstandin {

void SetInstallPath(const std::string& path)
{
    Set(TheEnvironment().installPath, path);
}

void SetProcessName(const std::string& name)
{
    NSQN_util::g_ProcName = name;
}

void SetConfigFile(const std::string& path)
{
    Set(TheEnvironment().configFile, path);
}

} // namespace emsstandin
