#include "host/tally.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "emsutil/diagnostics.h"
#include "host/command_parser.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

constexpr std::size_t MOST_NAMES_KEPT = 1000;
constexpr std::size_t MOST_NAMES_SHOWN = 10;

using Row = std::pair<std::string, std::string>;
using NameCount = std::pair<std::string, std::uint64_t>;

void AddNames(std::vector<Row>& rows, std::vector<NameCount> names, bool namesLeftOut)
{
    std::stable_sort(names.begin(), names.end(), [](const NameCount& left, const NameCount& right) {
        return left.second > right.second;
    });
    for (std::size_t index = 0; index < std::min(names.size(), MOST_NAMES_SHOWN); ++index) {
        rows.emplace_back("  " + Quoted(names[index].first), std::to_string(names[index].second));
    }
    if (names.size() > MOST_NAMES_SHOWN) {
        rows.emplace_back(string_format("  and %s%zu more", namesLeftOut ? "at least " : "",
                                        names.size() - MOST_NAMES_SHOWN),
                          "");
    }
}

std::string Aligned(const std::vector<Row>& rows)
{
    std::size_t labelWidth = 0;
    std::size_t valueWidth = 0;
    for (const auto& [label, value] : rows) {
        labelWidth = std::max(labelWidth, label.size());
        valueWidth = std::max(valueWidth, value.size());
    }
    std::string table;
    for (const auto& [label, value] : rows) {
        table += label;
        if (!value.empty()) {
            table.append(2 + labelWidth - label.size() + valueWidth - value.size(), ' ');
            table += value;
        }
        table += '\n';
    }
    return table;
}

} // namespace

void Tally::CountWithoutHandler(const std::string& name)
{
    const std::lock_guard guard(m_Mutex);
    ++m_nWithoutHandler;
    if (const auto found = m_CountByName.find(name); found != m_CountByName.end()) {
        ++found->second;
    } else if (m_CountByName.size() < MOST_NAMES_KEPT) {
        m_CountByName.emplace(name, 1);
    } else {
        m_bNamesLeftOut = true;
    }
}

bool Tally::IsAllWell() const
{
    return m_nBadLines == 0 && m_nBadCommands == 0 && m_nUnreadScripts == 0;
}

std::string Tally::Summary(std::chrono::duration<double> elapsed) const
{
    const std::lock_guard guard(m_Mutex);
    const double seconds = elapsed.count();
    const double perSecond =
        seconds > 0 ? static_cast<double>(m_nRun + m_nWithoutHandler) / seconds : 0;

    std::vector<Row> rows;
    rows.emplace_back("read", std::to_string(m_nRead));
    rows.emplace_back("added by handlers", std::to_string(m_nAdded));
    rows.emplace_back("run", std::to_string(m_nRun));
    rows.emplace_back("without a handler", std::to_string(m_nWithoutHandler));
    AddNames(rows, {m_CountByName.begin(), m_CountByName.end()}, m_bNamesLeftOut);
    rows.emplace_back("bad lines", std::to_string(m_nBadLines));
    for (const auto& [label, count] : {std::pair("bad commands", m_nBadCommands.load()),
                                       std::pair("scripts given up", m_nUnreadScripts.load()),
                                       std::pair("skipped at the end", m_nSkipped.load())}) {
        if (count > 0) {
            rows.emplace_back(label, std::to_string(count));
        }
    }
    rows.emplace_back("seconds", string_format("%.3f", seconds));
    rows.emplace_back("commands a second", string_format("%.0f", perSecond));
    return Aligned(rows);
}

} // namespace emshost
