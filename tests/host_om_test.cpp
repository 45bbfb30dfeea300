// Progress, interruption and settings of the embedded host.
#include <skoklana/host/om.h>
#include <skoklana_host.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct progress {
    std::vector<int> percents;
    std::vector<std::string> messages; // "(none)" for NULL
    int answer = 0;
};

int record_progress(void *user, int percent, const char *message)
{
    progress *seen = static_cast<progress *>(user);
    seen->percents.push_back(percent);
    seen->messages.push_back(message != nullptr ? message : "(none)");
    return seen->answer;
}

class Status : public testing::Test {
  protected:
    void SetUp() override
    {
        host_clear_interrupt();
        host_set_progress_handler(record_progress, &seen);
    }
    void TearDown() override
    {
        host_set_progress_handler(nullptr, nullptr);
        host_clear_interrupt();
    }

    int percent_of(int percent)
    {
        OMstatus_check(percent, nullptr, nullptr);
        return seen.percents.back();
    }

    progress seen;
};

bool asked_to_stop()
{
    int stop = -1;
    OMstatus_check(0, nullptr, &stop);
    EXPECT_TRUE(stop == 0 || stop == 1);
    return stop != 0;
}

// The overall percentage, rounded down, in whole numbers: exact for any depth tried here.
int exact_percent(const std::vector<std::pair<int, int>> &ranges, int percent)
{
    __int128 numerator = percent, denominator = 1;
    for (size_t level = ranges.size(); level-- > 0;) {
        // low + (high - low) * x / 100
        numerator = ranges[level].first * denominator * 100 +
                    (ranges[level].second - ranges[level].first) * numerator;
        denominator *= 100;
    }
    return static_cast<int>(numerator / denominator);
}

} // namespace

// ---- progress ------------------------------------------------------------------------------------------------

TEST_F(Status, WithoutARangeIsThePercentageItself)
{
    for (int percent = 0; percent <= 100; ++percent)
        EXPECT_EQ(percent_of(percent), percent);
}

TEST_F(Status, IsMappedThroughNestedRanges)
{
    OMpush_status_range(20, 60);
    EXPECT_EQ(percent_of(0), 20);
    EXPECT_EQ(percent_of(50), 40);
    EXPECT_EQ(percent_of(100), 60);
    OMpush_status_range(25, 75); // 30 to 50
    EXPECT_EQ(percent_of(0), 30);
    EXPECT_EQ(percent_of(10), 32);
    EXPECT_EQ(percent_of(100), 50);
    OMpop_status_range();
    EXPECT_EQ(percent_of(100), 60);
    OMpop_status_range();
    EXPECT_EQ(percent_of(100), 100);
}

TEST_F(Status, AgreesWithExactArithmetic)
{
    std::mt19937 random(11);
    int deepest = 0;
    for (int run = 0; run < 2000; ++run) {
        std::vector<std::pair<int, int>> ranges;
        const int depth = static_cast<int>(random() % 7);
        for (int level = 0; level < depth; ++level) {
            const int low = static_cast<int>(random() % 101);
            ranges.push_back({low, low + static_cast<int>(random() % static_cast<unsigned>(101 - low))});
            OMpush_status_range(ranges.back().first, ranges.back().second);
        }
        const int percent = static_cast<int>(random() % 101);
        EXPECT_EQ(percent_of(percent), exact_percent(ranges, percent)) << run;
        for (int level = 0; level < depth; ++level)
            OMpop_status_range();
        deepest = std::max(deepest, depth);
    }
    EXPECT_EQ(deepest, 6);
}

TEST_F(Status, NeverFallsOverTheRunOfAnOperation)
{
    // Whole-mesh operations: a range a cell set, and within it blocks of cells, each with its checks.
    for (int nsets : {1, 3, 7, 13})
        for (int nblocks : {1, 6, 11}) {
            seen.percents.clear();
            for (int s = 0; s < nsets; ++s) {
                OMpush_status_range(100 * s / nsets, 100 * (s + 1) / nsets);
                for (int b = 0; b < nblocks; ++b) {
                    OMpush_status_range(100 * b / nblocks, 100 * (b + 1) / nblocks);
                    for (int percent = 0; percent <= 100; percent += 7)
                        percent_of(percent);
                    OMpop_status_range();
                    percent_of(100 * (b + 1) / nblocks);
                }
                OMpop_status_range();
            }
            EXPECT_TRUE(std::is_sorted(seen.percents.begin(), seen.percents.end()));
            EXPECT_EQ(seen.percents.front(), 0);
            EXPECT_EQ(seen.percents.back(), 100);
        }
}

TEST_F(Status, StaysWithinItsRangeWhateverIsReported)
{
    OMpush_status_range(40, 60);
    EXPECT_EQ(percent_of(-5), 40);
    EXPECT_EQ(percent_of(300), 60);
    OMpush_status_range(-50, 700);
    EXPECT_EQ(percent_of(0), 40);
    EXPECT_EQ(percent_of(100), 60);
    OMpop_status_range();
    OMpush_status_range(80, 20); // turned round: a range without length at its lower end
    EXPECT_EQ(percent_of(0), 56);
    EXPECT_EQ(percent_of(100), 56);
    OMpop_status_range();
    OMpop_status_range();
    OMpop_status_range(); // one too many does no harm
    EXPECT_EQ(percent_of(70), 70);
}

TEST_F(Status, SurvivesAnyDepth)
{
    OMpush_status_range(10, 90);
    for (int level = 0; level < 1000; ++level)
        OMpush_status_range(50, 100);
    for (int percent : {0, 50, 100}) {
        EXPECT_GE(percent_of(percent), 10);
        EXPECT_LE(percent_of(percent), 90);
    }
    for (int level = 0; level < 1000; ++level)
        OMpop_status_range();
    EXPECT_EQ(percent_of(50), 50);
    OMpop_status_range();
}

TEST_F(Status, BelongsToItsThread)
{
    OMpush_status_range(50, 60);
    std::thread([this] {
        EXPECT_EQ(percent_of(30), 30);
        OMpush_status_range(0, 10);
        EXPECT_EQ(percent_of(100), 10);
    }).join();
    EXPECT_EQ(percent_of(100), 60);
    OMpop_status_range();
}

TEST_F(Status, HandsMessagesThrough)
{
    EXPECT_EQ(OMstatus_check(1, "reading", nullptr), 1);
    EXPECT_EQ(OMstatus_check(2, nullptr, nullptr), 1);
    EXPECT_EQ(seen.messages, (std::vector<std::string>{"reading", "(none)"}));
}

TEST(StatusWithoutAHandler, OnlyTellsWhetherToStop)
{
    host_clear_interrupt();
    EXPECT_FALSE(asked_to_stop());
    EXPECT_EQ(OMstatus_check(10, "message", nullptr), 1);
}

// ---- interruption --------------------------------------------------------------------------------------------

TEST_F(Status, StopsWhenTheHandlerAsks)
{
    EXPECT_FALSE(asked_to_stop());
    seen.answer = 5;
    EXPECT_TRUE(asked_to_stop());
    EXPECT_EQ(OMstatus_check(10, nullptr, nullptr), 1);
    seen.answer = 0;
    EXPECT_FALSE(asked_to_stop());
}

TEST_F(Status, StopsUntilTheRequestIsTakenBack)
{
    host_interrupt();
    EXPECT_TRUE(asked_to_stop());
    EXPECT_TRUE(asked_to_stop());
    EXPECT_EQ(seen.percents.size(), 2u); // progress is shown all the same
    host_clear_interrupt();
    EXPECT_FALSE(asked_to_stop());
}

TEST(Interruption, ComesFromAnotherThread)
{
    host_clear_interrupt();
    std::atomic<int> checks{0};
    std::thread operation([&] {
        while (!asked_to_stop())
            ++checks;
    });
    while (checks < 100)
        std::this_thread::yield();
    host_interrupt();
    operation.join();
    EXPECT_GE(checks, 100);
    host_clear_interrupt();
}

TEST(Interruption, ComesFromASignalHandler)
{
    host_clear_interrupt();
    struct sigaction action = {}, before;
    action.sa_handler = [](int) { host_interrupt(); };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    EXPECT_FALSE(asked_to_stop());
    raise(SIGUSR1);
    EXPECT_TRUE(asked_to_stop());
    sigaction(SIGUSR1, &before, nullptr);
    host_clear_interrupt();
}

// ---- settings --------------------------------------------------------------------------------------------------

namespace {

bool same(OMobj_id a, OMobj_id b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

const char *const threads = "Templates.CONFIG.num_threads";

} // namespace

TEST(Settings, AreNotThereBeforeTheyAreStored)
{
    int value = 77;
    EXPECT_EQ(host_get_setting(threads, &value), 0);
    EXPECT_EQ(value, 77);
    EXPECT_STREQ(host_error(), "host_get_setting: \"Templates.CONFIG.num_threads\" was never set");
}

TEST(Settings, AreStoredByTheirPath)
{
    const OMobj_id object = OMfind_str_subobj(OMroot_obj, threads);
    ASSERT_FALSE(same(object, OMnull_obj));
    for (int stored : {4, 0, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(OMset_int_val(object, stored), 1);
        int value = 77;
        EXPECT_EQ(host_get_setting(threads, &value), 1);
        EXPECT_EQ(value, stored);
    }
}

TEST(Settings, AreFoundStepByStep)
{
    const OMobj_id templates = OMfind_str_subobj(OMroot_obj, "Templates");
    const OMobj_id config = OMfind_str_subobj(templates, "CONFIG");
    const OMobj_id object = OMfind_str_subobj(OMroot_obj, threads);
    EXPECT_TRUE(same(OMfind_str_subobj(config, "num_threads"), object));
    EXPECT_TRUE(same(OMfind_str_subobj(templates, "CONFIG.num_threads"), object));
    EXPECT_TRUE(same(OMfind_str_subobj(OMroot_obj, "Templates.CONFIG"), config));
}

TEST(Settings, ThatAreNotThereAreTheNullObject)
{
    const OMobj_id config = OMfind_str_subobj(OMroot_obj, "Templates.CONFIG");
    for (const char *path : {"Template", "Templates.", ".Templates", "Templates.CONFIG.num_threads.more",
                             "num_threads", "templates", "Templates.CONFIG.num_thread", "CONFIG.num_threads"})
        EXPECT_TRUE(same(OMfind_str_subobj(OMroot_obj, path), OMnull_obj)) << path;
    EXPECT_TRUE(same(OMfind_str_subobj(config, "Templates"), OMnull_obj));
    EXPECT_TRUE(same(OMfind_str_subobj(OMnull_obj, "Templates"), OMnull_obj));
    EXPECT_TRUE(same(OMfind_str_subobj(OMroot_obj, nullptr), OMnull_obj));
    EXPECT_FALSE(same(OMroot_obj, OMnull_obj));
}

TEST(Settings, TakeIntegersOnlyWhereTheyHoldOne)
{
    EXPECT_EQ(OMset_int_val(OMroot_obj, 1), 0);
    EXPECT_EQ(OMset_int_val(OMnull_obj, 1), 0);
    EXPECT_EQ(OMset_int_val(OMfind_str_subobj(OMroot_obj, "Templates.CONFIG"), 1), 0);
    int value = 77;
    EXPECT_EQ(host_get_setting("Templates.CONFIG", &value), 0);
    EXPECT_EQ(host_get_setting("Templates.CONFIG.unknown", &value), 0);
    EXPECT_STREQ(host_error(), "host_get_setting: there is no setting \"Templates.CONFIG.unknown\"");
    EXPECT_EQ(host_get_setting(nullptr, &value), 0);
    EXPECT_EQ(host_get_setting("", &value), 0);
    EXPECT_EQ(value, 77);
}
