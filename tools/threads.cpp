#include "threads.hpp"

#include "console.hpp"

#include <skoklana_host.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string>
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
    std::vector<std::thread> started;
    for (int k = 1; k < n; ++k)
        started.emplace_back([&, k] {
            host_context *const own = host_new_context();
            host_use_context(own);
            run(k);
            host_use_context(nullptr);
            host_free_context(own);
        });
    run(0);
    for (std::thread &one : started)
        one.join();
    for (const std::exception_ptr &one : thrown)
        if (one != nullptr) std::rethrow_exception(one);
}
