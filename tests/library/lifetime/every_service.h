#ifndef TESTS_LIBRARY_LIFETIME_EVERY_SERVICE_H
#define TESTS_LIBRARY_LIFETIME_EVERY_SERVICE_H

#include "soak/load.h"

/// Does one burst of the work of each thread of the load, on the calling thread.
void WorkOnce(const soak::Load& load);

/// Uses every service on the calling thread and checks the results.
void UseEveryService();

#endif
