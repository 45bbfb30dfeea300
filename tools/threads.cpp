#include "threads.hpp"

#include "console.hpp"

#include <skoklana_host.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

static constexpr int most_threads = 64;
// Cells or points a thread that take longer than to start it.
static constexpr qx_long worthwhile = 20000;

static int asked, processors_here;

void ask_for_threads(int count)
{
    asked = count;
}

void have_processors(int count)
{
    processors_here = count;
}

// 0: the variable is not set, or no number of threads.
static int threads_of_variable()
{
    const char *const text = getenv("QX_NUM_THREADS");
    if (text == nullptr) return 0;
    char *end;
    errno = 0;
    const long count = strtol(text, &end, 10);
    if (end != text && *end == '\0' && errno == 0 && count > 0)
        return static_cast<int>(std::min<long>(count, most_threads));
    say_note("QX_NUM_THREADS is \"" + std::string(text) + "\", which is no number of threads: it is ignored");
    return 0;
}

int threads_for(qx_long things)
{
    static const int of_variable = asked > 0 ? 0 : threads_of_variable();
    if (asked > 0) return std::min(asked, most_threads);
    if (of_variable > 0) return of_variable;
    const auto here = processors_here > 0 ? static_cast<unsigned>(processors_here)
                                          : std::max(std::thread::hardware_concurrency(), 1u);
    const qx_long processors = std::min<qx_long>(here, most_threads);
    return static_cast<int>(std::clamp<qx_long>(things / worthwhile, 1, processors));
}

void run_side_by_side(int n, const std::function<void(int)> &work)
{
    std::vector<std::exception_ptr> thrown(static_cast<size_t>(n));
    const auto run = [&](int k) {
        try {
            work(k);
        } catch (...) {
            thrown[static_cast<size_t>(k)] = std::current_exception();
        }
    };
    struct freed_context {
        void operator()(host_context *context) const { host_free_context(context); }
    };
    std::vector<std::unique_ptr<host_context, freed_context>> contexts(static_cast<size_t>(n));
    std::vector<std::thread> started(static_cast<size_t>(n));
    for (size_t k = 1; k < started.size(); ++k) {
        contexts[k].reset(host_new_context());
        if (contexts[k] == nullptr) break;
        try {
            started[k] = std::thread([&run, k, own = contexts[k].get()] {
                host_use_context(own);
                run(static_cast<int>(k));
                host_use_context(nullptr);
            });
        } catch (const std::system_error &) {
            break;
        }
    }
    for (size_t k = 0; k < started.size(); ++k)
        if (!started[k].joinable()) run(static_cast<int>(k));
    for (std::thread &one : started)
        if (one.joinable()) one.join();
    for (const std::exception_ptr &one : thrown)
        if (one != nullptr) std::rethrow_exception(one);
}
