#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include <emsplatform/debug_interface.h>
#include <emsstandin/setup.h>
#include <emsutil/diagnostics.h>

using namespace NSQN_EMSUTIL_AGENT;

int main()
{
    // For the stand-in platform: the report file is var/dump/demo.rpt in this directory.
    std::filesystem::create_directories("ems/bin");
    std::filesystem::create_directories("var/dump");
    emsstandin::SetInstallPath("ems/bin");
    emsstandin::SetProcessName("demo");
    emsstandin::SetDebugStream(stdout);

    const std::string name = "NE-17";
    const int port = 8080;

    std::string who = string_format("%s on port %d", name.c_str(), port);
    if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface())
        debug->DebugPrint(1, "connected: %s\n", who.c_str());

    EmsUtilReport(" connected: %s\n", who.c_str()); // Sun Nov 22 20:38:00 2026 connected: ...
    EmsUtilTraced("    at the third attempt\n");    // without the time

    std::cout << std::ifstream("var/dump/demo.rpt").rdbuf();
}
