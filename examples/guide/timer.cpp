#include <cstdio>
#include <future>
#include <string>

#include <emsstandin/task_manager.h>
#include <emsutil/timer.h>

using namespace NSQN_EMSUTIL_AGENT;

std::promise<void> g_Displayed;

void Display(const std::string& text)
{
    std::puts(text.c_str());
    g_Displayed.set_value();
}

void* Copy(void* text)
{
    return new std::string(*static_cast<std::string*>(text));
}

void Show(void* text)
{
    Display(*static_cast<std::string*>(text));
}

void Free(void* text)
{
    delete static_cast<std::string*>(text);
}

int main()
{
    emsstandin::TaskManager* manager = emsstandin::AddTaskManager(7, {});
    manager->Start();

    EmsUtilTimerInterface timer = {Show, Copy, Free};
    std::string text = "a unit of time later";
    ScheduleEmsUtilTimer(7, timer, &text);

    g_Displayed.get_future().wait();
    manager->Stop(); // destroys what is still pending
}
