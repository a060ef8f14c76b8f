// SPDX-License-Identifier: Apache-2.0
// The parsing skip decision and the convergence time measurement.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsdefs.h"

#include "tests/common/roifixtures.h"

namespace {

using namespace RoiTest;
using SkipRows = std::vector<std::tuple<float, float, int>>;

TEST(StatsParsingSkipTest, ValueTakesTheDataOfItsRowOrOfTheNextRow)
{
    SkipRows const two = {{1, 2, 1}, {4, 5, 0}};
    SkipRows const swapped = {{1, 2, 0}, {4, 5, 1}};
    SkipRows const three = {{1, 2, 1}, {4, 5, 0}, {7, 8, 1}};
    SkipRows const falling = {{5, 6, 1}, {3, 4, 0}};
    // Rows, value, enable, the decision. In a gap the later row holds; below and above every row
    // the last row, unless the value stands in the last but one; a single row answers only inside
    // itself. A count of 0 is an empty table.
    std::tuple<SkipRows, float, int, int> const cases[] = {
        {two, 1.0F, 1, 1},         {two, 2.0F, 1, 1},         {two, 3.0F, 1, 0},
        {two, 4.0F, 1, 0},         {two, 6.0F, 1, 0},         {two, 0.5F, 1, 0},
        {swapped, 0.5F, 1, 1},     {swapped, 3.0F, 1, 1},     {swapped, 1.5F, 1, 0},
        {swapped, 5.0F, 1, 1},     {swapped, 9.0F, 1, 1},     {three, 4.5F, 1, 0},
        {three, 6.0F, 1, 1},       {three, 0.0F, 1, 1},       {{{1, 2, 1}}, 1.0F, 1, 1},
        {{{1, 2, 1}}, 2.0F, 1, 1}, {{{1, 2, 1}}, 0.5F, 1, 0}, {{{1, 2, 1}}, 3.0F, 1, 0},
        {{}, 1.0F, 1, 0},          {two, 1.5F, 0, 0},         {two, 1.5F, 2, 0},
        {falling, 5.0F, 1, 1},     {falling, 4.5F, 1, 0}};
    for (auto const& [rows, value, enable, expected] : cases) {
        std::vector<statsglobalelements::StatsParsingTriggerType> table;
        for (auto [start, end, data] : rows)
            table.push_back({{start, end}, data});
        statsglobalelements::StatsParsingSkipType skip = {};
        skip.enable = enable;
        skip.statsParsingTriggerCount = static_cast<uint32_t>(table.size());
        skip.statsParsingTrigger = table.empty() ? &table.emplace_back() : table.data();
        EXPECT_EQ(IsStatsParsingToSkip(&skip, value), expected)
            << rows.size() << " rows, value " << value << ", enable " << enable;
    }
    EXPECT_EQ(IsStatsParsingToSkip(nullptr, 1.5F), 0);
}

TEST(ConvergenceKPITest, ConvergenceIsMeasuredFromStartToTheFirstConvergedFrameOnce)
{
    LoggedLines().clear();
    StatsLogFunction const saved = g_statsLogger;
    g_statsLogger = &RecordLine;
    g_cameraId = 3;
    // The report names the function and goes to the convergence group as a fault line.
    auto expect = [](size_t line, StatsConvergenceKPIType const& kpi, char const* name) {
        char text[256];
        std::snprintf(text, sizeof(text),
                      "CID:[3] KPI:%s Convergence done (Convergence Time + Panning Time):%u ms "
                      "StartTime:%u EndTime %u Frames %u",
                      name, kpi.convergenceTime, kpi.startTime, kpi.endTime, kpi.frameCount);
        LoggedLine const& logged = LoggedLines().at(line);
        EXPECT_EQ(
            std::tie(logged.text, logged.function, logged.group, logged.level),
            std::make_tuple(std::string(text), std::string("StatsConvergenceKPIMeasure"), 2u, 16u));
    };

    StatsConvergenceKPIType kpi = {};
    kpi.startTime = z3a_get_time_ms();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    kpi.frameCount = 1;
    for (int frame = 0; frame < 3; ++frame)
        StatsConvergenceKPIMeasure(1, &kpi, "AEC");
    EXPECT_TRUE(LoggedLines().empty());
    StatsConvergenceKPIMeasure(0, &kpi, "AEC");
    StatsConvergenceKPIType const reported = kpi;
    EXPECT_EQ(kpi.frameCount, 4u);
    EXPECT_EQ(kpi.convergenceTime, kpi.endTime - kpi.startTime);
    EXPECT_GE(kpi.convergenceTime, 30u);
    EXPECT_LT(kpi.convergenceTime, 30u + 5000u);
    // Later frames of any state neither log nor count until a restart.
    for (int state : {2, 1, 0})
        StatsConvergenceKPIMeasure(state, &kpi, "AEC");
    EXPECT_EQ(kpi.frameCount, 4u);
    EXPECT_EQ(kpi.endTime, reported.endTime);
    ASSERT_EQ(LoggedLines().size(), 1u);
    expect(0, reported, "AEC");

    // A restart measures from the last unconverged frame, with the frame count at 1.
    uint32_t const lastUnconverged = kpi.lastTime;
    StatsRestartConvergenceKPI(&kpi);
    EXPECT_EQ(kpi.startTime, lastUnconverged);
    StatsConvergenceKPIMeasure(1, &kpi, "AF");
    EXPECT_EQ(kpi.frameCount, 2u);
    StatsConvergenceKPIMeasure(0, &kpi, nullptr);
    ASSERT_EQ(LoggedLines().size(), 2u);
    expect(1, kpi, "");

    // Without a logger the measurement still ends; null records are ignored.
    g_statsLogger = nullptr;
    StatsRestartConvergenceKPI(&kpi);
    StatsConvergenceKPIMeasure(0, &kpi, "AWB");
    EXPECT_EQ(kpi.reported, 1u);
    StatsRestartConvergenceKPI(nullptr);
    StatsConvergenceKPIMeasure(0, nullptr, "AWB");
    EXPECT_EQ(LoggedLines().size(), 2u);
    g_statsLogger = saved;
    g_cameraId = 0;
}

} // namespace
