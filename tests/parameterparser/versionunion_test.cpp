// SPDX-License-Identifier: Apache-2.0
// VersionUnion: the raw 64-bit layout and ordering by parts where the raw view disagrees.
#include "parameterparser/versionunion.h"

#include <gtest/gtest.h>

namespace {

TEST(VersionUnionTest, RawViewIsLittleEndianMajorMinorPatch)
{
    VersionUnion const version(3, 0, 1);
    EXPECT_EQ(version.Raw, 0x100000003ul);

    VersionUnion const fromRaw(0x0000000700060005ul);
    EXPECT_EQ(fromRaw.Parts.Major, 5u);
    EXPECT_EQ(fromRaw.Parts.Minor, 6u);
    EXPECT_EQ(fromRaw.Parts.Patch, 7u);
    EXPECT_EQ(VersionUnion().Raw, 0ul);
}

struct OrderCase
{
    VersionUnion lower;
    VersionUnion higher;
};

TEST(VersionUnionTest, OrdersByMajorMinorPatchWhateverTheRawViewSays)
{
    OrderCase const cases[] = {
        {{1, 9, 0}, {2, 0, 0}}, // raw 0x90001 > 0x2
        {{3, 0, 1}, {4, 0, 0}}, // raw 0x100000003 > 0x4
        {{1, 0, 5}, {1, 1, 0}}, // the patch lies above the minor in the raw view
        {{3, 0, 0}, {3, 0, 1}}, // raw agrees here
        {{0, 0xFFFF, 0}, {1, 0, 0}}, {{7, 0, 0}, {7, 0, 0xFFFFFFFFu}},
    };
    for (OrderCase const& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.lower.Raw << " < " << c.higher.Raw);
        EXPECT_EQ(c.lower.Compare(c.higher), -1);
        EXPECT_EQ(c.higher.Compare(c.lower), 1);
        EXPECT_TRUE(c.lower < c.higher);
        EXPECT_TRUE(c.lower <= c.higher);
        EXPECT_TRUE(c.higher > c.lower);
        EXPECT_TRUE(c.higher >= c.lower);
        EXPECT_TRUE(c.lower != c.higher);
        EXPECT_FALSE(c.lower == c.higher);
        EXPECT_FALSE(c.lower > c.higher);
        EXPECT_FALSE(c.lower >= c.higher);
    }
}

TEST(VersionUnionTest, EqualVersionsCompareEqual)
{
    VersionUnion const a(6, 1, 2);
    VersionUnion const b(0x0000000200010006ul);
    EXPECT_EQ(a.Compare(b), 0);
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a <= b);
    EXPECT_TRUE(a >= b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(a > b);
}

} // namespace
