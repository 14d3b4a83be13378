// A destructor of an object of a thread is the first to use the services, when the thread ends.

#include <thread>

#include "tests/library/lifetime/every_service.h"

namespace {

struct ThreadObject
{
    ~ThreadObject() { UseEveryService(); }
};

} // namespace

int main()
{
    std::thread([] {
        thread_local const ThreadObject object;
        static_cast<void>(object);
    }).join();
}
