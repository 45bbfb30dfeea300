// What was asked of the host, for tests that begin with nothing recorded.
#pragma once

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <vector>

class FreshHost : public testing::Test {
  protected:
    void SetUp() override { host_calls::reset(); }
};

namespace host_calls {

// All status checks: told by percent alone, outside of any range.
inline void expect_checks(const std::vector<int> &percents)
{
    std::vector<int> told;
    for (const status &s : seen().statuses) {
        told.push_back(s.percent);
        EXPECT_EQ(s.message, "");
        EXPECT_EQ(s.depth, 0);
    }
    EXPECT_EQ(told, percents);
    EXPECT_TRUE(seen().pushes.empty());
}

} // namespace host_calls
