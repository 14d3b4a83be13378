#include <chrono>
#include <cstdio>
#include <string>

#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "emsutil_conformance.h"

ConformanceOptions ConformanceSetup()
{
    constexpr unsigned char ID = 7;
    emsstandin::TaskManagerOptions manager;
    manager.m_Unit = std::chrono::milliseconds(1);
    emsstandin::AddTaskManager(ID, manager)->Start();

    ConformanceOptions options;
    options.m_nTaskMgrId = ID;
    options.m_ConfigText = "MsgHandleMode = 0\nWord = x\n";
    static std::FILE* const lines = std::tmpfile();
    emsstandin::SetDebugStream(lines);
    options.m_DebugText = [] {
        std::string text;
        std::rewind(lines);
        for (int character; (character = std::getc(lines)) != EOF;) {
            text += static_cast<char>(character);
        }
        return text;
    };
    return options;
}
