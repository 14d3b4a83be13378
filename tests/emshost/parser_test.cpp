#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "host/command_parser.h"

namespace {

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

using namespace std::string_view_literals;

TEST(HostParser, NamesOfCommands)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"help show", ":help={objs={},nvtps={nvtp={name=command,value=show,rtype=String}}};"},
        {"show#1", ":show#1={objs={},nvtps={}};"},
        {"\"\"", ":={objs={},nvtps={}};"},
        {"\"a =\"{a=1}",
         ":a =={objs={obj={nvtps={nvtp={name=a,value=1,rtype=String}}}},nvtps={}};"},
        {"last", ":last={objs={},nvtps={}};"},
    };
    EmsGeneralCmd cmd; // one for all: nothing of a former line may stay
    std::string error;
    for (const auto& [line, textForm] : cases) {
        EXPECT_EQ(ParseCommand(line, cmd, error), ParseResult::Command) << line << ": " << error;
        EXPECT_EQ(cmd.ToString(), textForm) << line;
    }
}

TEST(HostParser, QuotedTextIsFitForAMessage)
{
    EXPECT_EQ(Quoted("a\"\\\n\0\x7f"sv), R"("a\"\\\x0a\x00\x7f")");
    EXPECT_EQ(Quoted(std::string(41, 'x')), '"' + std::string(40, 'x') + "\"...");
    EXPECT_EQ(Quoted(std::string(38, 'x') + "\u20ac"), '"' + std::string(38, 'x') + "\"...");
}

} // namespace
