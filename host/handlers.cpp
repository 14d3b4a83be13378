#include "host/handlers.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Made on first use: tables in other files fill it while the program is initialised.
std::map<std::string, const char*>& MutableHelp()
{
    static auto* const help = new std::map<std::string, const char*>;
    return *help;
}

} // namespace

HandlerTable::HandlerTable(std::initializer_list<HandlerEntry> entries)
{
    for (const HandlerEntry& entry : entries) {
        std::string name = entry.m_pName;
        const RegEmsUtilCmd registration(name, entry.m_pHandler);
        MutableHelp().emplace(name, entry.m_pHelp);
    }
}

const std::map<std::string, const char*>& HandlerHelp()
{
    return MutableHelp();
}

const Pair* FindPair(const EmsGeneralCmd& cmd, std::string_view name)
{
    for (const Pair& pair : cmd.nvtps.nvtps) {
        if (pair.name == name) {
            return &pair;
        }
    }
    return nullptr;
}

std::optional<std::string> TextOf(const Pair* pair)
{
    if (pair == nullptr || pair->rtype != NVTP_TYPE_STRING) {
        return std::nullopt;
    }
    return pair->value;
}

std::optional<int> IntOf(const Pair* pair, int lowest, int highest)
{
    if (pair == nullptr || pair->rtype != NVTP_TYPE_LONG) {
        return std::nullopt;
    }
    errno = 0;
    const long value = std::strtol(pair->value.c_str(), nullptr, 10);
    if (errno != 0 || value < lowest || value > highest) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

std::optional<unsigned long> UnsignedOf(const Pair* pair)
{
    if (pair == nullptr || pair->rtype != NVTP_TYPE_LONG) {
        return std::nullopt;
    }
    std::string_view digits = pair->value;
    if (digits.starts_with('+')) {
        digits.remove_prefix(1);
    }
    unsigned long value = 0;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace emshost
