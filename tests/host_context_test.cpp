// Contexts: each chain of calls has its own reports, error text, progress and requests to stop; workers share those of
// their caller. The host's own objects are linked here, so that workers can be run.
#include "support/host_calls.hpp"

#include "workers.hpp"

#include <skoklana/host/om.h>
#include <skoklana/mesh.h>
#include <skoklana_host.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// The library's stand-in.
int FLD_METHinit(void)
{
    return 1;
}

// Past the records of the other host calls.
extern "C" void __real_ERRerror(const char *module, int zero, int severity, const char *message);

namespace {

struct freed {
    void operator()(host_context *context) const { host_free_context(context); }
};
using context_ptr = std::unique_ptr<host_context, freed>;

// Uses a context till the end of the block.
struct in_use {
    host_context *before;
    explicit in_use(const context_ptr &context) : before(host_use_context(context.get())) {}
    in_use(const in_use &) = delete;
    in_use &operator=(const in_use &) = delete;
    ~in_use() { host_use_context(before); }
};

void report(const std::string &text)
{
    __real_ERRerror("module", 0, 2, text.c_str());
}

std::string newest()
{
    const char *message = "";
    return host_last_report(0, nullptr, &message) == 1 ? message : "none";
}

bool stops()
{
    int stop = 0;
    OMstatus_check(0, nullptr, &stop);
    return stop != 0;
}

void note_text(void *user, const char *, int, const char *message)
{
    static_cast<std::vector<std::string> *>(user)->push_back(message);
}

int note_percent(void *user, int percent, const char *)
{
    static_cast<std::vector<int> *>(user)->push_back(percent);
    return 0;
}

int ask_to_stop(void *, int, const char *)
{
    return 1;
}

class HostContexts : public testing::Test {
  protected:
    void TearDown() override
    {
        host_use_context(nullptr);
        host_clear_interrupt();
        host_clear_reports();
        host_set_error_handler(nullptr, nullptr);
        host_set_progress_handler(nullptr, nullptr);
    }

    context_ptr one{host_new_context()}, other{host_new_context()};
};

} // namespace

TEST_F(HostContexts, AreUsedByTurns)
{
    EXPECT_EQ(host_use_context(one.get()), nullptr);
    EXPECT_EQ(host_use_context(other.get()), one.get());
    EXPECT_EQ(host_use_context(nullptr), other.get());
    EXPECT_EQ(host_use_context(one.get()), nullptr);
    one.reset(); // also while in use
    EXPECT_EQ(host_use_context(nullptr), nullptr);
    host_free_context(nullptr);
}

TEST_F(HostContexts, KeepTheirReportsAndErrorTexts)
{
    std::vector<std::string> of_one, of_process;
    host_set_error_handler(note_text, &of_process);
    {
        const in_use use(one);
        host_set_error_handler(note_text, &of_one);
        report("first");
        host_get_setting("nowhere", nullptr);
    }
    {
        const in_use use(other);
        EXPECT_EQ(newest(), "none");
        EXPECT_STREQ(host_error(), "");
        report("second"); // goes to no handler, and is kept
        EXPECT_EQ(newest(), "second");
        host_clear_reports();
    }
    report("third");
    EXPECT_EQ(newest(), "third");
    const in_use use(one);
    EXPECT_EQ(newest(), "first");
    EXPECT_STREQ(host_error(), "host_get_setting: there is no setting \"nowhere\"");
    EXPECT_EQ(of_one, std::vector<std::string>{"first"});
    EXPECT_EQ(of_process, std::vector<std::string>{"third"});
}

TEST_F(HostContexts, HaveProgressOfTheirOwn)
{
    std::vector<int> of_one, of_other;
    {
        const in_use use(one);
        host_set_progress_handler(note_percent, &of_one);
        OMpush_status_range(50, 100);
    }
    {
        const in_use use(other);
        host_set_progress_handler(note_percent, &of_other);
        OMstatus_check(10, nullptr, nullptr);
    }
    OMstatus_check(20, nullptr, nullptr); // the process has no handler
    const in_use use(one);
    OMstatus_check(10, nullptr, nullptr);
    OMpop_status_range();
    OMstatus_check(10, nullptr, nullptr);
    EXPECT_EQ(of_one, (std::vector<int>{55, 10}));
    EXPECT_EQ(of_other, std::vector<int>{10});
}

TEST_F(HostContexts, StopAloneOrAllTogether)
{
    host_interrupt_context(one.get());
    EXPECT_FALSE(stops());
    {
        const in_use use(other);
        EXPECT_FALSE(stops());
        host_clear_interrupt(); // its own, of which there is none
    }
    {
        const in_use use(one);
        EXPECT_TRUE(stops());
        EXPECT_TRUE(stops());
        host_clear_interrupt();
        EXPECT_FALSE(stops());
    }
    host_interrupt();
    EXPECT_TRUE(stops());
    {
        const in_use use(one);
        EXPECT_TRUE(stops());
        host_clear_interrupt();
        EXPECT_TRUE(stops()); // that of the process stands
    }
    host_clear_interrupt();
    EXPECT_FALSE(stops());
    host_interrupt_context(nullptr);
    EXPECT_FALSE(stops());
}

TEST_F(HostContexts, OfTwoThreadsKnowNothingOfOneAnother)
{
    std::atomic<bool> is_stopped{false};
    std::string texts[2];
    int seen[2] = {0, 0};
    const auto run = [&](const context_ptr &context, int which) {
        const in_use use(context);
        for (int i = 0; i < 1000; ++i) {
            report(std::to_string(which) + " " + std::to_string(i));
            OMpush_status_range(0, 50);
            seen[which] += stops();
            OMpop_status_range();
        }
        if (which == 0) {
            host_interrupt_context(other.get());
            is_stopped = true;
            seen[0] += stops();
        } else {
            while (!is_stopped)
                std::this_thread::yield();
            seen[1] = stops() ? -1 : seen[1];
        }
        texts[which] = newest();
    };
    std::thread first([&] { run(one, 0); }), second([&] { run(other, 1); });
    first.join();
    second.join();
    EXPECT_EQ(texts[0], "0 999");
    EXPECT_EQ(texts[1], "1 999");
    EXPECT_EQ(seen[0], 0);
    EXPECT_EQ(seen[1], -1);
}

// ---- workers --------------------------------------------------------------------------------------------------

TEST_F(HostContexts, GetTheReportsOfWorkersInTheirOrder)
{
    std::vector<std::string> texts, expected;
    const in_use use(one);
    host_set_error_handler(note_text, &texts);
    std::atomic<int> done{0};
    auto work = [&](int k) {
        while (k > 0 && done < 3 - k) // the last one first
            std::this_thread::yield();
        for (int i = 0; i < 20; ++i)
            report(std::to_string(k) + " " + std::to_string(i));
        ++done;
    };
    run_workers(4, work);
    EXPECT_EQ(done, 4);
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 20; ++i)
            expected.push_back(std::to_string(k) + " " + std::to_string(i));
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(newest(), "3 19");
}

TEST_F(HostContexts, StopTheirWorkersWithThem)
{
    std::atomic<int> stopped{0};
    auto work = [&](int) {
        while (!stops())
            std::this_thread::yield();
        ++stopped;
    };
    {
        const in_use use(one);
        host_set_progress_handler(ask_to_stop, nullptr); // asked on the caller's thread alone
        run_workers(3, work);
        EXPECT_EQ(stopped, 3);
    }
    host_interrupt_context(other.get());
    const in_use use(other);
    run_workers(3, work);
    EXPECT_EQ(stopped, 6);
}

TEST_F(HostContexts, DoTheWorkThemselvesWhereThereIsNoMemoryForThreads)
{
    host_calls::watch watch;
    host_calls::fail_allocations_from(0);
    int order[4], n = 0;
    const std::thread::id here = std::this_thread::get_id();
    bool all_here = true;
    auto work = [&](int k) {
        order[n++] = k;
        all_here = all_here && std::this_thread::get_id() == here;
    };
    run_workers(4, work);
    EXPECT_EQ(n, 4);
    EXPECT_TRUE(all_here);
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(order[k], k);
    EXPECT_EQ(host_new_context(), nullptr);
    EXPECT_STREQ(host_error(), "host_new_context: no memory for the context");
}
