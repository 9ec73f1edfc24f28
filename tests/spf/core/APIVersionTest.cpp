#include "agent/spf/core/APIVersion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using agent::spf::core::APIVersion;

TEST(APIVersionTest, OrderedFieldByFieldWithMajorOnlyMeaningTheRestZero) {
    EXPECT_EQ(APIVersion(2), APIVersion(2, 0, 0, 0));
    EXPECT_EQ(APIVersion().toString(), "0.0.0.0");
    EXPECT_EQ(APIVersion(2, 5, 1, 9).toString(), "2.5.1.9");
    std::vector<APIVersion> versions{{3, 0}, {2, 5, 0, 1}, APIVersion(2), {2, 10}, {2, 5}, {1, 99, 99, 99}};
    std::sort(versions.begin(), versions.end());
    EXPECT_EQ(versions, (std::vector<APIVersion>{{1, 99, 99, 99}, APIVersion(2), {2, 5}, {2, 5, 0, 1}, {2, 10}, {3, 0}}));
    EXPECT_LT(APIVersion(4294967295u, 0), APIVersion(4294967295u, 1));
}
