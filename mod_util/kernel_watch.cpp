#include "kernel_watch.hpp"

// The slot of a thread's data is known when the library is loaded, so that no call is needed to find it.
#define LOADED_WITH_LIBRARY __attribute__((tls_model("initial-exec")))

static thread_local kernel_watch *innermost LOADED_WITH_LIBRARY = nullptr;

kernel_watch::kernel_watch(const void *table, const void *prepared_)
    : watched(table), prepared(prepared_), outer(innermost)
{
    innermost = this;
}

kernel_watch::~kernel_watch()
{
    innermost = outer;
}

kernel_watch *kernel_watch::of(const void *table)
{
    kernel_watch *watch = innermost;
    while (watch != nullptr && watch->watched != table)
        watch = watch->outer;
    return watch;
}

void kernel_watch::mark(const void *table, kernel_failure what)
{
    if (kernel_watch *watch = of(table)) watch->failure = what;
}

const void *kernel_watch::prepared_for(const void *table)
{
    const kernel_watch *watch = of(table);
    return watch != nullptr ? watch->prepared : nullptr;
}
