// SPDX-License-Identifier: Apache-2.0
// The parsing skip decision, the convergence time measurement and the millisecond clock.
#include <cstdio>
#include <string>
#include <vector>

#include <sys/time.h>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsdefs.h"

#include "tests/stats/roitestsupport.h"

namespace {

struct SkipRow
{
    float start;
    float end;
    int data;
};

struct SkipCase
{
    std::vector<SkipRow> rows;
    float value;
    int expected;
};

int Decide(std::vector<SkipRow> const& rows, float value, int enable = 1)
{
    std::vector<statsglobalelements::StatsParsingTriggerType> table;
    for (SkipRow const& row : rows) {
        statsglobalelements::StatsParsingTriggerType entry = {};
        entry.trigger.start = row.start;
        entry.trigger.end = row.end;
        entry.triggerData = row.data;
        table.push_back(entry);
    }
    statsglobalelements::StatsParsingSkipType skip = {};
    skip.enable = enable;
    skip.statsParsingTriggerCount = static_cast<uint32_t>(table.size());
    skip.statsParsingTrigger = table.empty() ? nullptr : table.data();
    return IsStatsParsingToSkip(&skip, value);
}

TEST(StatsParsingSkipTest, ValueTakesTheDataOfItsRowOrOfTheNextRow)
{
    std::vector<SkipRow> const two = {{1, 2, 1}, {4, 5, 0}};
    std::vector<SkipRow> const swapped = {{1, 2, 0}, {4, 5, 1}};
    std::vector<SkipRow> const three = {{1, 2, 1}, {4, 5, 0}, {7, 8, 1}};
    SkipCase const cases[] = {
        {two, 1.5F, 1},
        {two, 1.0F, 1},
        {two, 2.0F, 1},
        {two, 3.0F, 0}, // in the gap: the later row
        {two, 4.0F, 0},
        {two, 6.0F, 0}, // above every row: the last row
        {two, 0.5F, 0}, // below every row: also the last row, not the first
        {swapped, 0.5F, 1},
        {swapped, 3.0F, 1},
        {swapped, 1.5F, 0},
        {swapped, 9.0F, 1},
        {three, 4.5F, 0},
        {three, 6.0F, 1},
        {three, 3.0F, 0},
        {three, 0.0F, 1},
        // A single row answers only inside itself.
        {{{1, 2, 1}}, 1.5F, 1},
        {{{1, 2, 1}}, 0.5F, 0},
        {{{1, 2, 1}}, 3.0F, 0},
        {{}, 1.0F, 0},
    };
    for (SkipCase const& c : cases) {
        std::string rows;
        for (SkipRow const& row : c.rows)
            rows += "[" + std::to_string(row.start) + "," + std::to_string(row.end) +
                    "]=" + std::to_string(row.data) + " ";
        EXPECT_EQ(Decide(c.rows, c.value), c.expected) << rows << "value " << c.value;
    }
}

TEST(StatsParsingSkipTest, OnlyEnableOneSwitchesTheFeatureOn)
{
    std::vector<SkipRow> const rows = {{1, 2, 1}, {4, 5, 1}};
    EXPECT_EQ(Decide(rows, 1.5F, 1), 1);
    EXPECT_EQ(Decide(rows, 1.5F, 0), 0);
    EXPECT_EQ(Decide(rows, 1.5F, 2), 0);
    EXPECT_EQ(IsStatsParsingToSkip(nullptr, 1.5F), 0);
}

class ConvergenceKPITest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        RoiTest::LoggedLines().clear();
        m_savedLogger = g_statsLogger;
        g_statsLogger = &RoiTest::RecordLine;
        g_cameraId = 3;
    }

    void TearDown() override
    {
        g_statsLogger = m_savedLogger;
        g_cameraId = 0;
    }

    static std::string Report(StatsConvergenceKPIType const& kpi, char const* name)
    {
        char text[512];
        std::snprintf(text, sizeof(text),
                      "CID:[3] KPI:%s Convergence done (Convergence Time + Panning Time):%u ms "
                      "StartTime:%u EndTime %u Frames %u",
                      name, kpi.convergenceTime, kpi.startTime, kpi.endTime, kpi.frameCount);
        return text;
    }

private:
    StatsLogFunction m_savedLogger = nullptr;
};

TEST_F(ConvergenceKPITest, FirstConvergedFrameIsReportedOnce)
{
    StatsConvergenceKPIType kpi = {};
    kpi.startTime = z3a_get_time_ms() - 250;
    kpi.frameCount = 1;
    for (int frame = 0; frame < 3; ++frame)
        StatsConvergenceKPIMeasure(1, &kpi, "AEC");
    EXPECT_EQ(kpi.frameCount, 4u);
    EXPECT_EQ(kpi.reported, 0u);
    EXPECT_TRUE(RoiTest::LoggedLines().empty());

    StatsConvergenceKPIMeasure(0, &kpi, "AEC");
    EXPECT_EQ(kpi.reported, 1u);
    EXPECT_EQ(kpi.frameCountingStopped, 1u);
    EXPECT_EQ(kpi.convergenceTime, kpi.endTime - kpi.startTime);
    EXPECT_GE(kpi.convergenceTime, 250u);
    EXPECT_LT(kpi.convergenceTime, 250u + 5000u);

    // Further converged frames, and unconverged ones after them, neither log nor count.
    StatsConvergenceKPIType const reported = kpi;
    StatsConvergenceKPIMeasure(2, &kpi, "AEC");
    StatsConvergenceKPIMeasure(1, &kpi, "AEC");
    StatsConvergenceKPIMeasure(0, &kpi, "AEC");
    EXPECT_EQ(kpi.frameCount, reported.frameCount);
    EXPECT_EQ(kpi.endTime, reported.endTime);

    ASSERT_EQ(RoiTest::LoggedLines().size(), 1u);
    RoiTest::LoggedLine const& line = RoiTest::LoggedLines()[0];
    EXPECT_EQ(line.text, Report(reported, "AEC"));
    EXPECT_EQ(line.file, "vornstatsdefs.cpp");
    EXPECT_EQ(line.function, "StatsConvergenceKPIMeasure");
    EXPECT_EQ(line.group, 2u);
    EXPECT_EQ(line.level, 16u);
}

TEST_F(ConvergenceKPITest, RestartMeasuresFromTheLastUnconvergedFrame)
{
    StatsConvergenceKPIType kpi = {};
    StatsConvergenceKPIMeasure(1, &kpi, "AF");
    StatsConvergenceKPIMeasure(0, &kpi, "AF");
    uint32_t const lastUnconverged = kpi.lastTime;

    StatsRestartConvergenceKPI(&kpi);
    EXPECT_EQ(kpi.startTime, lastUnconverged);
    EXPECT_EQ(kpi.frameCount, 1u);
    EXPECT_EQ(kpi.frameCountingStopped, 0u);
    EXPECT_EQ(kpi.reported, 0u);

    StatsConvergenceKPIMeasure(1, &kpi, "AF");
    EXPECT_EQ(kpi.frameCount, 2u);
    StatsConvergenceKPIMeasure(0, &kpi, "AF");
    ASSERT_EQ(RoiTest::LoggedLines().size(), 2u);
    EXPECT_EQ(RoiTest::LoggedLines()[1].text, Report(kpi, "AF"));
}

TEST_F(ConvergenceKPITest, MeasurementEndsWithoutALogger)
{
    g_statsLogger = nullptr;
    StatsConvergenceKPIType kpi = {};
    StatsConvergenceKPIMeasure(0, &kpi, "AWB");
    EXPECT_EQ(kpi.reported, 1u);
    EXPECT_EQ(kpi.frameCountingStopped, 1u);
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
