// SPDX-License-Identifier: Apache-2.0
// The platform stand-ins: allocator seam and accounting, log sink and masks, string helpers, map.
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"
#include "platform/vornhashmap.h"
#include "platform/vornlog.h"
#include "platform/vornosutils.h"

#include "tests/common/logcapture.h"

namespace {

// Blocks are zero-filled and counted until freed; the failure seam fails every allocation after
// the given number of successes, until it is reset.
TEST(VornAllocTest, BlocksAreZeroFilledCountedAndFailOnRequest)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    size_t const countBefore = Vorn::Testing::AllocationCount();
    auto* block = static_cast<unsigned char*>(VornCalloc(100, VornTagAllocData));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(block, block + 100), std::vector<unsigned char>(100, 0));
    EXPECT_EQ(Vorn::Testing::AllocationCount(), countBefore + 1);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before + 100);
    EXPECT_GE(Vorn::Testing::PeakAllocatedBytes(), before + 100);
    VornFree(block, VornTagRelease);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);

    Vorn::Testing::FailAllocationsAfter(1);
    void* first = VornCalloc(8, VornTagAllocObject);
    void* second = VornCalloc(8, VornTagAllocObject);
    Vorn::Testing::ResetAllocationFailure();
    void* third = VornCalloc(8, VornTagAllocObject);
    EXPECT_TRUE(first != nullptr && second == nullptr && third != nullptr);
    VornFree(first, VornTagRelease);
    VornFree(third, VornTagRelease);
}

// The sink gets the formatted line with its group, severity and level; a line is cut at 4095
// characters.
TEST(VornLogTest, SinkReceivesFormattedLinesCutAt4095Characters)
{
    ParamTest::LogCapture capture;
    Vorn::Log::LogSystem(Vorn::Log::GroupStats, 'I', Vorn::Log::LevelInfo, "value %d of %s\n", 7,
                         "x");
    Vorn::Log::LogSystem(Vorn::Log::GroupStats, 'E', Vorn::Log::LevelError, "%s",
                         std::string(5000, 'a').c_str());
    auto const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(std::make_tuple(lines[0].group, lines[0].severity, lines[0].level, lines[0].text),
              std::make_tuple(Vorn::Log::GroupStats, 'I', 4u, std::string("value 7 of x\n")));
    EXPECT_EQ(lines[1].text.size(), 4095u);
}

// Without a sink, errors and warnings of every group reach stderr, and chattier levels do not.
TEST(VornLogTest, DefaultSinkWritesErrorsAndWarningsOnly)
{
    testing::internal::CaptureStderr();
    Vorn::Log::LogSystem(Vorn::Log::GroupStats, 'E', Vorn::Log::LevelError, "broken %d\n", 1);
    Vorn::Log::LogSystem(Vorn::Log::GroupStats, 'I', Vorn::Log::LevelInfo, "chatty\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E STATS broken 1\n");
}

TEST(VornLogTest, FileNameAndGroupNames)
{
    EXPECT_STREQ(Vorn::Log::GetFileName("/a/b/vornstatsroiprocessor.cpp"),
                 "vornstatsroiprocessor.cpp");
    EXPECT_STREQ(Vorn::Log::GetFileName("plain.cpp"), "plain.cpp");
    EXPECT_STREQ(Vorn::Log::GetFileName(nullptr), "");
    EXPECT_STREQ(Vorn::Log::GroupToString(Vorn::Log::GroupParameterParser), "PARAMPARSER");
    EXPECT_STREQ(Vorn::Log::GroupToString(0x40000000), "UNKNOWN");
}

TEST(VornOsUtilsTest, BoundedCopyAndConcatenateTerminateAndReportWantedLength)
{
    char text[6];
    EXPECT_EQ(Vorn::OsUtils::StrLCpy(text, "abcdefgh", sizeof(text)), 8u);
    EXPECT_STREQ(text, "abcde");
    EXPECT_EQ(Vorn::OsUtils::StrLCpy(text, "ab", sizeof(text)), 2u);
    EXPECT_EQ(Vorn::OsUtils::StrLCat(text, "cdefg", sizeof(text)), 7u);
    EXPECT_STREQ(text, "abcde");
    // A destination with no terminator within size is full: the wanted length counts all of it.
    EXPECT_EQ(Vorn::OsUtils::StrLCat(text, "xy", 3), 5u);
    EXPECT_STREQ(text, "abcde");
    // No source copies an empty text.
    EXPECT_EQ(Vorn::OsUtils::StrLCpy(text, nullptr, sizeof(text)), 0u);
    EXPECT_STREQ(text, "");
}

void CountEntry(void const*, void* value, void* context)
{
    *static_cast<int*>(context) += *static_cast<int*>(value);
}

// A visit without a visitor is refused and removes nothing.
TEST(VornHashmapTest, FixedSizeKeysFindPutAndVisit)
{
    Vorn::Hashmap::Handle map = nullptr;
    ASSERT_EQ(Vorn::Hashmap::Create(&map, 4, 0, 0), Vorn::Hashmap::Ok);
    uint32_t keyA = 0x1234, keyB = 0x5678;
    int valueA = 3, valueB = 4;
    EXPECT_EQ(Vorn::Hashmap::Put(map, &keyA, &valueA), Vorn::Hashmap::Ok);
    EXPECT_EQ(Vorn::Hashmap::Put(map, &keyB, &valueB), Vorn::Hashmap::Ok);
    void* found = nullptr;
    EXPECT_EQ(Vorn::Hashmap::Get(map, &keyB, &found), Vorn::Hashmap::Ok);
    EXPECT_EQ(found, &valueB);
    uint32_t missing = 1;
    EXPECT_EQ(Vorn::Hashmap::Get(map, &missing, &found), Vorn::Hashmap::NotFound);

    int sum = 0;
    EXPECT_EQ(Vorn::Hashmap::Foreach(map, nullptr, &sum, true), Vorn::Hashmap::BadArgument);
    EXPECT_EQ(Vorn::Hashmap::Foreach(map, CountEntry, &sum, false), Vorn::Hashmap::Ok);
    EXPECT_EQ(sum, 7);
    EXPECT_EQ(Vorn::Hashmap::Foreach(map, CountEntry, &sum, true), Vorn::Hashmap::Ok);
    EXPECT_EQ(Vorn::Hashmap::Get(map, &keyA, &found), Vorn::Hashmap::NotFound);
    Vorn::Hashmap::Destroy(map);
}

} // namespace
