// A program of several modules' tests. With --module=NAME those of NAME_test.cpp alone are run; that there are
// none is a failure, so that no entry passes by testing nothing.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

bool ends_with(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A filter for the tests of one file. A suite that stands in two files would be in the filters of both.
std::string tests_of(const std::string &module)
{
    std::string filter;
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    for (int s = 0; s < all.total_test_suite_count(); ++s) {
        const testing::TestSuite &suite = *all.GetTestSuite(s);
        if (suite.total_test_count() == 0) continue;
        if (ends_with(suite.GetTestInfo(0)->file(), "/" + module + "_test.cpp"))
            filter += (filter.empty() ? "" : ":") + std::string(suite.name()) + ".*";
    }
    return filter;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    constexpr char option[] = "--module=";
    if (argc > 1 && strncmp(argv[1], option, sizeof option - 1) == 0) {
        const std::string filter = tests_of(argv[1] + sizeof option - 1);
        if (filter.empty()) {
            fprintf(stderr, "there are no tests for %s\n", argv[1]);
            return 2;
        }
        GTEST_FLAG_SET(filter, filter);
    } else if (argc > 1) {
        fprintf(stderr, "usage: %s [--module=NAME] [--gtest_...]\n", argv[0]);
        return 2;
    }
    return RUN_ALL_TESTS();
}
