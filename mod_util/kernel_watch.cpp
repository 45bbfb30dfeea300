#include "kernel_watch.hpp"

// The slot of a thread's data is known when the library is loaded, so that no call is needed to find it.
#define LOADED_WITH_LIBRARY __attribute__((tls_model("initial-exec")))

static thread_local kernel_watch *innermost LOADED_WITH_LIBRARY = nullptr;

kernel_watch::kernel_watch(const void *table) : watched(table), outer(innermost)
{
    innermost = this;
}

kernel_watch::~kernel_watch()
{
    innermost = outer;
}

void kernel_watch::mark(const void *table, kernel_failure what)
{
    kernel_watch *watch = innermost;
    while (watch != nullptr && watch->watched != table)
        watch = watch->outer;
    if (watch != nullptr) watch->failure = what;
}
