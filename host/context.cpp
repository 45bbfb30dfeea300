// Which context a thread uses, and what stands in for one where it uses none.
#include "context.hpp"

#include "field.hpp"
#include "report.hpp"

namespace {

thread_local host_context *in_use;
thread_local call_chain own_chain;
handlers process_handlers; // set before threads run

} // namespace

host_context *context_in_use()
{
    return in_use;
}

call_chain &this_chain()
{
    return in_use != nullptr ? in_use->chain : own_chain;
}

handlers &handlers_in_use()
{
    return in_use != nullptr ? in_use->to : process_handlers;
}

extern "C" {

host_context *host_new_context(void)
{
    host_context *context = allocate_zeroed<host_context>(1); // all of it is plain data
    if (context == nullptr) host_fail("host_new_context: no memory for the context");
    return context;
}

void host_free_context(host_context *context)
{
    if (context == nullptr) return;
    if (context == in_use) in_use = nullptr;
    free(context->chain.reserve);
    free(context);
}

host_context *host_use_context(host_context *context)
{
    host_context *before = in_use;
    in_use = context;
    return before;
}

void host_interrupt_context(host_context *context)
{
    if (context != nullptr) context->stop.store(1, std::memory_order_relaxed);
}

} // extern "C"
