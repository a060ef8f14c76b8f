// SPDX-License-Identifier: Apache-2.0
// The parsing skip decision, the convergence time measurement and the millisecond clock.
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <sys/time.h>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsdefs.h"

#include "tests/common/roifixtures.h"

namespace {

using SkipRows = std::vector<std::tuple<float, float, int>>;

TEST(StatsParsingSkipTest, ValueTakesTheDataOfItsRowOrOfTheNextRow)
{
    SkipRows const two = {{1, 2, 1}, {4, 5, 0}};
    SkipRows const swapped = {{1, 2, 0}, {4, 5, 1}};
    SkipRows const three = {{1, 2, 1}, {4, 5, 0}, {7, 8, 1}};
    // Rows, value, enable, the decision. In a gap the later row holds; below and above every row
    // the last row; a single row answers only inside itself.
    std::tuple<SkipRows, float, int, int> const cases[] = {
        {two, 1.0F, 1, 1},         {two, 2.0F, 1, 1},         {two, 3.0F, 1, 0},
        {two, 4.0F, 1, 0},         {two, 6.0F, 1, 0},         {two, 0.5F, 1, 0},
        {swapped, 0.5F, 1, 1},     {swapped, 3.0F, 1, 1},     {swapped, 1.5F, 1, 0},
        {swapped, 5.0F, 1, 1},     {swapped, 9.0F, 1, 1},     {three, 4.5F, 1, 0},
        {three, 6.0F, 1, 1},       {three, 0.0F, 1, 1},       {{{1, 2, 1}}, 1.0F, 1, 1},
        {{{1, 2, 1}}, 2.0F, 1, 1}, {{{1, 2, 1}}, 0.5F, 1, 0}, {{{1, 2, 1}}, 3.0F, 1, 0},
        {{}, 1.0F, 1, 0},          {two, 1.5F, 0, 0},         {two, 1.5F, 2, 0},
    };
    for (auto const& [rows, value, enable, expected] : cases) {
        std::vector<statsglobalelements::StatsParsingTriggerType> table;
        for (auto [start, end, data] : rows)
            table.push_back({{start, end}, data});
        statsglobalelements::StatsParsingSkipType skip = {};
        skip.enable = enable;
        skip.statsParsingTriggerCount = static_cast<uint32_t>(table.size());
        skip.statsParsingTrigger = table.empty() ? nullptr : table.data();
        EXPECT_EQ(IsStatsParsingToSkip(&skip, value), expected)
            << rows.size() << " rows, value " << value << ", enable " << enable;
    }
    EXPECT_EQ(IsStatsParsingToSkip(nullptr, 1.5F), 0);
    // A count of 0 is an empty table whatever the pointer says.
    statsglobalelements::StatsParsingTriggerType row = {{0, 9}, 1};
    statsglobalelements::StatsParsingSkipType zero = {};
    zero.enable = 1;
    zero.statsParsingTrigger = &row;
    EXPECT_EQ(IsStatsParsingToSkip(&zero, 1.5F), 0);
}

TEST(ConvergenceKPITest, ConvergenceIsMeasuredFromStartToTheFirstConvergedFrameOnce)
{
    RoiTest::LoggedLines().clear();
    StatsLogFunction const saved = g_statsLogger;
    g_statsLogger = &RoiTest::RecordLine;
    g_cameraId = 3;
    auto report = [](StatsConvergenceKPIType const& kpi, char const* name) {
        char text[256];
        std::snprintf(text, sizeof(text),
                      "CID:[3] KPI:%s Convergence done (Convergence Time + Panning Time):%u ms "
                      "StartTime:%u EndTime %u Frames %u",
                      name, kpi.convergenceTime, kpi.startTime, kpi.endTime, kpi.frameCount);
        return std::string(text);
    };

    StatsConvergenceKPIType kpi = {};
    kpi.startTime = z3a_get_time_ms() - 250;
    kpi.frameCount = 1;
    for (int frame = 0; frame < 3; ++frame)
        StatsConvergenceKPIMeasure(1, &kpi, "AEC");
    EXPECT_EQ(kpi.frameCount, 4u);
    EXPECT_TRUE(RoiTest::LoggedLines().empty());
    StatsConvergenceKPIMeasure(0, &kpi, "AEC");
    StatsConvergenceKPIType const reported = kpi;
    EXPECT_EQ(kpi.convergenceTime, kpi.endTime - kpi.startTime);
    EXPECT_GE(kpi.convergenceTime, 250u);
    EXPECT_LT(kpi.convergenceTime, 250u + 5000u);
    EXPECT_GE(kpi.endTime, kpi.lastTime);
    // Later frames of any state neither log nor count until a restart.
    StatsConvergenceKPIMeasure(2, &kpi, "AEC");
    StatsConvergenceKPIMeasure(1, &kpi, "AEC");
    StatsConvergenceKPIMeasure(0, &kpi, "AEC");
    EXPECT_EQ(kpi.frameCount, 4u);
    EXPECT_EQ(kpi.endTime, reported.endTime);
    ASSERT_EQ(RoiTest::LoggedLines().size(), 1u);
    EXPECT_EQ(RoiTest::LoggedLines()[0].text, report(reported, "AEC"));
    EXPECT_EQ(RoiTest::LoggedLines()[0].function, "StatsConvergenceKPIMeasure");
    EXPECT_EQ(RoiTest::LoggedLines()[0].group, 2u);
    EXPECT_EQ(RoiTest::LoggedLines()[0].level, 16u);

    // A restart measures from the last unconverged frame, with the frame count at 1.
    uint32_t const lastUnconverged = kpi.lastTime;
    StatsRestartConvergenceKPI(&kpi);
    EXPECT_EQ(kpi.startTime, lastUnconverged);
    StatsConvergenceKPIMeasure(1, &kpi, "AF");
    EXPECT_EQ(kpi.frameCount, 2u);
    StatsConvergenceKPIMeasure(0, &kpi, nullptr);
    ASSERT_EQ(RoiTest::LoggedLines().size(), 2u);
    EXPECT_EQ(RoiTest::LoggedLines()[1].text, report(kpi, ""));

    // Without a logger the measurement still ends; null records are ignored.
    g_statsLogger = nullptr;
    StatsRestartConvergenceKPI(&kpi);
    StatsConvergenceKPIMeasure(0, &kpi, "AWB");
    EXPECT_EQ(kpi.reported, 1u);
    StatsRestartConvergenceKPI(nullptr);
    StatsConvergenceKPIMeasure(0, nullptr, "AWB");
    EXPECT_EQ(RoiTest::LoggedLines().size(), 2u);
    g_statsLogger = saved;
    g_cameraId = 0;
}

TEST(StatsClockTest, MillisecondsOfTheWallClockCutTo32Bits)
{
    timeval before = {};
    gettimeofday(&before, nullptr);
    uint32_t const now = z3a_get_time_ms();
    uint64_t const expected = static_cast<uint64_t>(before.tv_sec) * 1000u +
                              static_cast<uint64_t>(before.tv_usec) / 1000u;
    // Unsigned difference, so the wrap of the 32-bit clock does not matter.
    EXPECT_LT(now - static_cast<uint32_t>(expected), 1000u);
}

} // namespace
