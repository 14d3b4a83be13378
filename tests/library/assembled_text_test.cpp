// The texts that are assembled without printf, against what string_format makes of the same
// records. The seeds are fixed: a failure comes again.

#include <climits>
#include <cstdlib>
#include <random>
#include <string_view>

#include <gtest/gtest.h>

#include "agent/emsutil_thread.h"
#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int TYPES[] = {0, 1, 0, 1, 2, -1, INT_MAX, INT_MIN};

class AssembledText : public testing::Test
{
protected:
    template <class T, std::size_t size>
    T OneOf(const T (&values)[size])
    {
        return values[m_Random() % size];
    }

    /// One that ends a text early, means something to printf, or starts a number; or a limit.
    std::string Field()
    {
        constexpr std::string_view letters("%sdn,{}=\0 -+09aZ\n\xff", 18);
        if (m_Random() % 4 == 0) {
            return OneOf({"2147483647", "2147483648", " -2147483649x", "9223372036854775807",
                          "9223372036854775808", "-9223372036854775809", "+7", "010", "%n"});
        }
        std::string field(m_Random() % 40, ' ');
        for (char& letter : field) {
            letter = letters[m_Random() % letters.size()];
        }
        return field;
    }

    std::mt19937_64 m_Random{20};
};

/// As printf's %d takes it.
int ReadInt(const std::string& text)
{
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

std::string Printed(const EmsNameAndValueStringTypePair& pair)
{
    const char* const name = pair.name.c_str();
    if (pair.rtype == NVTP_TYPE_STRING) {
        return string_format("nvtp={name=%s,value=%s,rtype=String}", name, pair.value.c_str());
    }
    return pair.rtype != NVTP_TYPE_LONG
               ? ""
               : string_format("nvtp={name=%s,value=%d,rtype=Long}", name, ReadInt(pair.value));
}

std::string Printed(const EmsThreadInfo& record)
{
    const auto milliseconds = [](const ACE_Time_Value& time) {
        return static_cast<long long>(time.sec()) * 1000 + time.usec() / 1000;
    };
    std::string text = string_format(
        " thread id           %x\n thread status       %d\n thread start        %lld\n"
        " thread duration     %lld\n thread max duration %lld\n thread recvs        %lld\n",
        static_cast<unsigned int>(record.m_ulThreadId), record.m_nStatus,
        milliseconds(record.m_StartTime), milliseconds(record.m_Duration),
        milliseconds(record.m_MaxDuration), record.m_llRecvs);
    for (const auto& [name, value] : record.m_InfoMap) {
        const auto& [shown, type] = value;
        text +=
            type == THREADINFO_TYPE_STRING ? string_format(" %s %s\n", name.c_str(), shown.c_str())
            : type == THREADINFO_TYPE_INT  ? string_format(" %s %d\n", name.c_str(), ReadInt(shown))
                                           : string_format(" Impossible type %d\n", type);
    }
    return text;
}

} // namespace

TEST_F(AssembledText, ACommandsFormIsWhatPrintfMakes)
{
    for (int i = 0; i < 2000; ++i) {
        EmsGeneralCmd cmd;
        cmd.name = Field();
        std::string pairs;
        for (int count = OneOf({0, 1, 5}); count > 0; --count) {
            auto& pair = cmd.nvtps.nvtps.emplace_back();
            pair.name = Field();
            pair.value = Field();
            pair.rtype = OneOf(TYPES);
            pairs += cmd.nvtps.nvtps.size() == 1 ? "" : ",";
            pairs += Printed(pair);
        }
        cmd.objs.objs.resize(m_Random() % 3);
        std::string objs;
        for (EmsGeneralObj& obj : cmd.objs.objs) {
            obj.nvtps = cmd.nvtps;
            objs += string_format("%sobj={nvtps={%s}}", objs.empty() ? "" : ",", pairs.c_str());
        }
        ASSERT_EQ(cmd.ToString(), string_format(":%s={objs={%s},nvtps={%s}};", cmd.name.c_str(),
                                                objs.c_str(), pairs.c_str()));
    }
}

TEST_F(AssembledText, TheStatisticsAreWhatPrintfMakes)
{
    EmsThreadInfoMgr& monitor = *EmsThreadInfoMgr::Instance();
    for (int i = 0; i < 2000; ++i) {
        EmsThreadInfoMap values;
        for (int count = OneOf({0, 1, 5}); count > 0; --count) {
            values[Field()] = {Field(), OneOf(TYPES)};
        }
        EmsThreadInfo event;
        event.m_ulThreadId = OneOf({m_Random(), m_Random() % 100, ULONG_MAX});
        event.m_nStatus = OneOf({0, 1, 1});
        const long long time =
            OneOf({-2'001'999ll, 0ll, 999ll, 1'790'000'000'000'000ll, 253'402'300'799'999'999ll});
        event.m_StartTime.set(time / 1'000'000, time % 1'000'000);
        monitor.UpdateThreadInfo(event, &values);
    }
    std::list<EmsThreadInfo> records;
    monitor.GetAll(records);
    std::string printed;
    for (const EmsThreadInfo& record : records) {
        printed += Printed(record);
    }
    std::string text;
    ASSERT_TRUE(monitor.AppendStatistics(text));
    EXPECT_GT(records.size(), 500u);
    EXPECT_TRUE(text == printed);
}
