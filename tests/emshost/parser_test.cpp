#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "host/command_parser.h"

namespace {

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

using namespace std::string_view_literals;

TEST(HostParser, CommandsAndTheirTextForm)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"show", ":show={objs={},nvtps={}};"},
        {" \tshow\t # comment", ":show={objs={},nvtps={}};"},
        {"help show", ":help={objs={},nvtps={nvtp={name=command,value=show,rtype=String}}};"},
        {"show#1", ":show#1={objs={},nvtps={}};"},
        {"\"\"", ":={objs={},nvtps={}};"},
        {"\"a =\" \"b c\"=d", ":a =={objs={},nvtps={nvtp={name=b c,value=d,rtype=String}}};"},
        {"c a=#2=:x b:long=-3 a=",
         ":c={objs={},nvtps={nvtp={name=a,value=#2=:x,rtype=String},"
         "nvtp={name=b,value=-3,rtype=Long},nvtp={name=a,value=,rtype=String}}};"},
        {"c \"\"=\"\" q:long=\"+7\"", ":c={objs={},nvtps={nvtp={name=,value=,rtype=String},"
                                      "nvtp={name=q,value=7,rtype=Long}}};"},
        {R"(c a="\"\\\x41\x7a{}#" b=\n)",
         R"(:c={objs={},nvtps={nvtp={name=a,value="\Az{}#,rtype=String},)"
         R"(nvtp={name=b,value=\n,rtype=String}}};)"},
        {R"(c a="x\n\t\r")", ":c={objs={},nvtps={nvtp={name=a,value=x\n\t\r,rtype=String}}};"},
        {"c{a=1}{}#", ":c={objs={obj={nvtps={nvtp={name=a,value=1,rtype=String}}},"
                      "obj={nvtps={}}},nvtps={}};"},
        {"c a=1{ b:long=2 c=\"}\" } ",
         ":c={objs={obj={nvtps={nvtp={name=b,value=2,rtype=Long},"
         "nvtp={name=c,value=},rtype=String}}}},nvtps={nvtp={name=a,value=1,rtype=String}}};"},
    };
    EmsGeneralCmd cmd; // one for all: nothing of a former line may stay
    std::string error;
    for (const auto& [line, textForm] : cases) {
        EXPECT_EQ(ParseCommand(line, cmd, error), ParseResult::Command) << line << ": " << error;
        EXPECT_EQ(cmd.ToString(), textForm) << line;
    }
}

TEST(HostParser, ErrorsTellWhatAndWhere)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"a=1", R"(expected a command name, found "a=1" at column 1)"},
        {"  {a=1}", R"(expected a command name, found "{a=1}" at column 3)"},
        {"\"a\"b", R"(expected a command name, found "\"a\"b" at column 1)"},
        {"c a", R"(expected name=value, found "a" at column 3)"},
        {"help a b", R"(expected name=value, found "b" at column 8)"},
        {"c a:long", R"(expected name=value, found "a:long" at column 3)"},
        {"c =1", R"(expected name=value, found "=1" at column 3)"},
        {"c a=x\"y\"", "quote inside a bare value at column 6"},
        {"c a=\"x\"y", "text after a closing quote at column 8"},
        {"c a:int=1", R"(unknown type "int", only long is known at column 5)"},
        {"c a:=1", R"(unknown type "", only long is known at column 5)"},
        {"c a:long=12x", R"("12x" is not an integer at column 10)"},
        {"c a:long=+", R"("+" is not an integer at column 10)"},
        {"c a:long=\"\\x001\"", R"("\x001" is not an integer at column 10)"},
        {"c a=\"x", "unterminated quote at column 5"},
        {"c a=\"x\\", "unterminated quote at column 5"},
        {"c a=\"x\\\"", "unterminated quote at column 5"},
        {"\"c", "unterminated quote at column 1"},
        {"c a=\"\\q\"", R"(unknown escape "\\q" at column 6)"},
        {"c a=\"\\x4", R"(\x without two hexadecimal digits at column 6)"},
        {"c a=\"\\x-1\"", R"(\x without two hexadecimal digits at column 6)"},
        {"c {a=1", "object not closed with } at column 3"},
        {"c {a=1 # }", "object not closed with } at column 3"},
        {"c {a=1 {b=2}}", R"(expected name=value or }, found "{b=2}}" at column 8)"},
        {"c }", R"(expected { or the end of the line, found "}" at column 3)"},
        {"c {} a=1", R"(expected { or the end of the line, found "a=1" at column 6)"},
    };
    EmsGeneralCmd cmd;
    for (const auto& [line, expected] : cases) {
        std::string error;
        EXPECT_EQ(ParseCommand(line, cmd, error), ParseResult::Error) << line;
        EXPECT_EQ(error, expected) << line;
    }
}

TEST(HostParser, QuotedTextIsFitForAMessage)
{
    EXPECT_EQ(Quoted("a\"\\\n\0\x7f"sv), R"("a\"\\\x0a\x00\x7f")");
    EXPECT_EQ(Quoted(std::string(41, 'x')), '"' + std::string(40, 'x') + "\"...");
    EXPECT_EQ(Quoted(std::string(38, 'x') + "\u20ac"), '"' + std::string(38, 'x') + "\"...");
}

} // namespace
