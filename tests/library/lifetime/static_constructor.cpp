// A constructor of a static object is the first to use the services.

#include "tests/library/lifetime/every_service.h"

namespace {

const struct Module
{
    Module() { UseEveryService(); }
} g_Module;

} // namespace

int main() {}
