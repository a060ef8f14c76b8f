// SPDX-License-Identifier: Apache-2.0
// VersionUnion: the raw 64-bit layout and ordering by parts where the raw view disagrees.
#include "parameterparser/versionunion.h"

#include <gtest/gtest.h>

namespace {

TEST(VersionUnionTest, RawViewIsLittleEndianMajorMinorPatch)
{
    EXPECT_EQ(VersionUnion(3, 0, 1).Raw, 0x100000003ul);
    VersionUnion const fromRaw(0x0000000700060005ul);
    EXPECT_EQ(fromRaw, VersionUnion(5, 6, 7));
    EXPECT_EQ(VersionUnion().Raw, 0ul);
}

// Each pair is ordered by parts; the raw view orders most of them the other way. Equal versions
// built both ways compare equal.
TEST(VersionUnionTest, OrdersByMajorMinorPatchWhateverTheRawViewSays)
{
    struct
    {
        VersionUnion lower;
        VersionUnion higher;
    } const cases[] = {
        {{1, 9, 0}, {2, 0, 0}}, {{3, 0, 1}, {4, 0, 0}},      {{1, 0, 5}, {1, 1, 0}},
        {{3, 0, 0}, {3, 0, 1}}, {{0, 0xFFFF, 0}, {1, 0, 0}}, {{7, 0, 0}, {7, 0, 0xFFFFFFFFu}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.lower.Raw << " < " << c.higher.Raw);
        EXPECT_EQ(c.lower.Compare(c.higher), -1);
        EXPECT_EQ(c.higher.Compare(c.lower), 1);
        EXPECT_TRUE(c.lower < c.higher && c.lower <= c.higher && c.lower != c.higher);
        EXPECT_TRUE(c.higher > c.lower && c.higher >= c.lower);
        EXPECT_FALSE(c.lower == c.higher || c.lower > c.higher || c.lower >= c.higher);
        EXPECT_EQ(c.lower.Compare(c.lower), 0);
    }
    VersionUnion const a(6, 1, 2);
    VersionUnion const b(0x0000000200010006ul);
    EXPECT_TRUE(a == b && a <= b && a >= b);
    EXPECT_FALSE(a != b || a < b || a > b);
}

} // namespace
