#include <cstdlib>
#include <iterator>

#ifdef BENCH_HAS_FMT
#include <fmt/format.h>
#endif

#include "bench/compare.h"
#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

EmsGeneralCmd Command(int objects)
{
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel";
    EmsNameAndValueStringTypePair text;
    text.name = "label";
    text.value = "two words";
    EmsNameAndValueStringTypePair number;
    number.name = "identifier";
    number.value = "4711";
    number.rtype = NVTP_TYPE_LONG;
    EmsGeneralObj obj;
    obj.nvtps.nvtps = {number, text, number, text};
    cmd.objs.objs.assign(static_cast<std::size_t>(objects), obj);
    return cmd;
}

/// The text form of a command, around what `pair(text, pair)` appends for each pair.
template <class AppendPair>
std::string TextForm(const EmsGeneralCmd& cmd, AppendPair pair)
{
    const auto list = [&pair](std::string& text, const EmsNVTPList& pairs) {
        text += "nvtps={";
        for (const auto& element : pairs.nvtps) {
            if (&element != &pairs.nvtps.front()) {
                text += ",";
            }
            pair(text, element);
        }
        text += "}";
    };
    std::string text = ":";
    text += cmd.name;
    text += "={objs={";
    for (const EmsGeneralObj& obj : cmd.objs.objs) {
        text += &obj != &cmd.objs.objs.front() ? ",obj={" : "obj={";
        list(text, obj.nvtps);
        text += "}";
    }
    text += "},";
    list(text, cmd.nvtps);
    text += "};";
    return text;
}

std::int32_t Long(const EmsNameAndValueStringTypePair& pair)
{
    return static_cast<std::int32_t>(std::strtol(pair.value.c_str(), nullptr, 10));
}

bool IsText(const EmsNameAndValueStringTypePair& pair)
{
    return pair.rtype == NVTP_TYPE_STRING;
}

void ByAppending(std::string& text, const EmsNameAndValueStringTypePair& pair)
{
    text += "nvtp={name=";
    text += pair.name;
    text += ",value=";
    text += IsText(pair) ? pair.value : std::to_string(Long(pair));
    text += IsText(pair) ? ",rtype=String}" : ",rtype=Long}";
}

void ByStringFormat(std::string& text, const EmsNameAndValueStringTypePair& pair)
{
    text += IsText(pair) ? string_format("nvtp={name=%s,value=%s,rtype=%s}", pair.name.c_str(),
                                         pair.value.c_str(), "String")
                         : string_format("nvtp={name=%s,value=%d,rtype=%s}", pair.name.c_str(),
                                         Long(pair), "Long");
}

#ifdef BENCH_HAS_FMT
void ByFmt(std::string& text, const EmsNameAndValueStringTypePair& pair)
{
    if (IsText(pair)) {
        fmt::format_to(std::back_inserter(text), "nvtp={{name={},value={},rtype={}}}", pair.name,
                       pair.value, "String");
    } else {
        fmt::format_to(std::back_inserter(text), "nvtp={{name={},value={},rtype={}}}", pair.name,
                       Long(pair), "Long");
    }
}
#endif

template <class AppendPair>
Body Repeat(EmsGeneralCmd& cmd, AppendPair pair)
{
    return [&cmd, pair](benchmark::State& state) {
        if (TextForm(cmd, pair) != cmd.ToString()) {
            state.SkipWithError("another text");
        }
        for (auto _ : state) {
            benchmark::DoNotOptimize(TextForm(cmd, pair));
        }
    };
}

} // namespace

void MeasureTextForms()
{
    for (const auto& [objects, name] :
         {std::pair(1, "text form, 1 object"), std::pair(10, "text form, 10 objects"),
          std::pair(1000, "text form, 1,000 objects")}) {
        EmsGeneralCmd cmd = Command(objects);
        std::vector<Row> rows = {
            Ours([&cmd](benchmark::State& state) {
                for (auto _ : state) {
                    benchmark::DoNotOptimize(cmd.ToString());
                }
            }),
            Floor(Repeat(cmd, ByAppending)),
            Rival("string_format a pair", Repeat(cmd, ByStringFormat)),
        };
#ifdef BENCH_HAS_FMT
        rows.push_back(Rival("fmt::format_to", Repeat(cmd, ByFmt)));
#endif
        Compare({name, 1.3}, rows);
    }
}

} // namespace bench
