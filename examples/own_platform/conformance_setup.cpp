#include <chrono>
#include <cstdio>

#include <emsplatform/debug_interface.h>
#include <emsplatform/task.h>
#include <emsutil_conformance.h>

namespace {

std::string DebugText()
{
    std::string text;
    std::rewind(g_pDebugFile);
    for (int character; (character = std::getc(g_pDebugFile)) != EOF;) {
        text += static_cast<char>(character);
    }
    return text;
}

} // namespace

ConformanceOptions ConformanceSetup()
{
    constexpr unsigned char ID = 7;
    static eKorTaskMgr manager(ID, std::chrono::milliseconds(1));
    g_pDebugFile = std::tmpfile();

    ConformanceOptions options;
    options.m_nTaskMgrId = ID;
    options.m_ConfigText = "MsgHandleMode=0\nWord=x\n";
    options.m_DebugText = DebugText;
    options.m_nSecondsPerRule = 5;
    return options;
}
