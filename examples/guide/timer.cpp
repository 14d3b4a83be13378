#include <cstdio>
#include <future>
#include <string>

#include <emsplatform/task_manager.h>
#include <emsutil/timer.h>

using namespace NSQN_EMSUTIL_AGENT;

namespace {

void* Copy(void* text)
{
    return new std::string(*static_cast<std::string*>(text));
}

void Show(void* text)
{
    std::puts(static_cast<std::string*>(text)->c_str());
}

void Free(void* text)
{
    delete static_cast<std::string*>(text);
}

std::promise<void> g_Done;

void Done(void*)
{
    g_Done.set_value();
}

} // namespace

int main()
{
    emsplatform::TaskManager* manager = emsplatform::AddTaskManager(7, {});
    manager->Start();

    EmsUtilTimerInterface timer = {Show, Copy, Free};
    std::string text = "a unit of time later";
    ScheduleEmsUtilTimer(7, timer, &text);

    EmsUtilTimerInterface last = {Done, nullptr, nullptr}; // a timer without data
    ScheduleEmsUtilTimer(7, last, nullptr);
    g_Done.get_future().wait();

    manager->Stop(); // destroys what is still pending
}
