// SPDX-License-Identifier: Apache-2.0
// ROIStableChecker and ROIChangeChecker side by side: threshold rows by gain,
// the difference measure, refusals, and faces followed by ID over a sequence of
// frames.
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/roifixtures.h"

namespace {

using namespace RoiTest;

// A stable and a change checker of a 300 x 400 image, whose diagonal of 500
// pixels makes a centre shift of 5 pixels 1 percent.
class ROIThresholdCheckerTest : public ::testing::Test
{
protected:
    void Prepare(DifferenceTuning const* tuning)
    {
        LoggedLines().clear();
        Prepare(m_stable, tuning);
        Prepare(m_change, tuning);
    }

    template <typename Checker>
    static void Prepare(Checker& checker, DifferenceTuning const* tuning)
    {
        ASSERT_TRUE(checker.SetLogFunction("Faces", &RecordLine));
        ASSERT_TRUE(checker.SetImageResolution(300.0F, 400.0F));
        ASSERT_TRUE(checker.SetTuningData(tuning != nullptr ? tuning->Get() : nullptr));
    }

    ROIStableChecker m_stable;
    ROIChangeChecker m_change;
};

TEST_F(ROIThresholdCheckerTest, PicksTheFirstRowTheGainHasReached)
{
    // Threshold rows by their starts, the gain, the row picked.
    std::tuple<std::vector<float>, float, int> const cases[] = {
        {{3}, 1.0F, 0},       {{1, 4, 8}, 9.0F, 0}, {{2, 4, 8}, 1.0F, 2}, {{8, 4, 2}, 10.0F, 0},
        {{8, 4, 2}, 8.0F, 0}, {{8, 4, 2}, 7.9F, 1}, {{8, 4, 2}, 2.0F, 2}, {{8, 4, 2}, 1.0F, 2},
    };
    auto check = [&](auto& checker) {
        for (auto const& [starts, gain, expected] : cases) {
            std::vector<ThresholdRow> rows;
            for (float start : starts)
                rows.push_back({start, 1.0F, 1.0F, 1});
            DifferenceTuning tuning(rows);
            LoggedLines().clear();
            Prepare(checker, &tuning);
            ASSERT_TRUE(checker.SetAECGain(gain));
            EXPECT_TRUE(checker.UpdateThreshold());
            EXPECT_EQ(checker.GetThresholdIndex(), expected) << "gain " << gain;
        }
        // No tuning, or a table without rows: refused, the row stays, and a frame
        // is not taken.
        DifferenceTuning empty({});
        checker.SetTuningData(empty.Get());
        EXPECT_FALSE(checker.UpdateThreshold());
        StatsROIInformation const frame = Frame({Face(4, 10, 10, 20, 20)});
        EXPECT_TRUE(checker.UpdateROIData(&frame, 0));
        EXPECT_EQ(checker.GetROI(0).width, 0.0F);
        checker.SetTuningData(nullptr);
        EXPECT_FALSE(checker.UpdateThreshold());
        EXPECT_EQ(checker.GetThresholdIndex(), 2);
        EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: NULL tuning pointer"), 3u);
    };
    check(m_stable);
    check(m_change);
}

TEST_F(ROIThresholdCheckerTest, StableAndChangedAreStrictOppositesAroundThresholds)
{
    // Thresholds of 1 percent: 5 pixels of centre shift or of diagonal growth.
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 1}});
    Prepare(&tuning);
    ASSERT_TRUE(m_stable.UpdateThreshold());
    ASSERT_TRUE(m_change.UpdateThreshold());

    float const nan = std::numeric_limits<float>::quiet_NaN();
    ROIData const base = Box(100, 100, 30, 40); // centre (115, 120), diagonal 50
    std::tuple<ROIData, bool, bool> const cases[] = {
        {Box(100, 100, 30, 40), true, false},
        {Box(100.9F, 100.4F, 30, 40), true, false}, // centres are cut to whole pixels
        {Box(103, 102, 30, 40), true, false},       // shift (3, 2): 0.72 percent
        {Box(103, 104, 30, 40), false, false},      // shift (3, 4): exactly 1 percent
        {Box(106, 100, 30, 40), false, true},       // shift 6: 1.2 percent
        {Box(98.5F, 98, 33, 44), false, false},     // same centre, diagonal 55: exactly 1 percent
        {Box(96, 95, 38, 50), false, true},         // same centre, diagonal 62.8: 2.6 percent
        // Coordinates past the int range or not numbers at all come in unchecked:
        // far away.
        {Box(4.0e9F, 100, 30, 40), false, true},
        {Box(-4.0e9F, 100, 30, 40), false, true},
        {Box(nan, 100, 30, 40), false, true},
    };
    for (auto const& [moved, isStable, isChanged] : cases) {
        EXPECT_EQ(m_stable.ROIStableCheck(moved, base), isStable) << moved.left << "," << moved.top;
        EXPECT_EQ(m_change.ROIChangeCheck(moved, base), isChanged)
            << moved.left << "," << moved.top;
    }
    EXPECT_EQ(CountLogged(StatsLogLevelTrace,
                          "Faces: ROI new (118 122) old (115 120) diff loc 0.721110 "
                          "size 0.000000 thres loc 1.000000 size 1.000000"),
              1u);
    EXPECT_EQ(CountLogged(StatsLogLevelTrace, "Faces: ROI new (118 122) ref (115 120)"), 1u);
}

TEST_F(ROIThresholdCheckerTest, WithoutTuningOrInputNothingChanges)
{
    Prepare(nullptr);
    ROIData const far = Box(200, 200, 90, 90);
    EXPECT_TRUE(m_stable.ROIStableCheck(far, Box(0, 0, 10, 10)));
    EXPECT_FALSE(m_change.ROIChangeCheck(far, Box(0, 0, 10, 10)));
    EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: NULL tuning pointer (nil) or invalid "
                                              "resolution (300.000000, 400.000000)"),
              2u);
    EXPECT_TRUE(m_stable.IsROIStableByID(1));
    EXPECT_FALSE(m_change.IsROIChangeByID(1));
    EXPECT_EQ(CountLogged(StatsLogLevelFault, "Faces: return stable when no tuning data"), 1u);
    EXPECT_EQ(CountLogged(StatsLogLevelFault, "Faces: return no change when no tuning data"), 1u);

    LoggedLines().clear();
    StatsROIInformation const frame = Frame({Face(4, 10, 10, 20, 20)});
    EXPECT_TRUE(m_stable.UpdateROIData(&frame, 0));
    EXPECT_TRUE(m_change.UpdateROIData(&frame, 0));
    EXPECT_EQ(CountLogged(StatsLogLevelFault, "Faces: NULL tuning pointer"), 1u);
    EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: NULL tuning pointer"), 1u);
    EXPECT_EQ(m_stable.GetROI(0).width, 0.0F);
    EXPECT_EQ(m_change.GetROI(0).width, 0.0F);

    // A row picked from a longer table is not read from a shorter one (the row
    // lookup is shared).
    DifferenceTuning longer({{8, 50.0F, 50.0F, 1}, {1, 50.0F, 50.0F, 1}});
    DifferenceTuning shorter({{1, 50.0F, 50.0F, 1}});
    Prepare(m_stable, &longer);
    ASSERT_TRUE(m_stable.UpdateThreshold());
    ASSERT_EQ(m_stable.GetThresholdIndex(), 1);
    m_stable.SetTuningData(shorter.Get());
    EXPECT_TRUE(m_stable.ROIStableCheck(far, far));
    EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: NULL tuning pointer 0x"), 1u);

    // Null records: refused, with one line each, except the change checker's
    // frame entry.
    LoggedLines().clear();
    EXPECT_FALSE(m_stable.UpdateROIData(nullptr, 0));
    EXPECT_FALSE(m_stable.UpdateProcROIData(nullptr, 1));
    EXPECT_FALSE(m_stable.UpdateROIStable(nullptr, 1));
    EXPECT_FALSE(m_change.UpdateROIChange(nullptr, 1));
    EXPECT_FALSE(m_change.UpdateROIData(nullptr, 0));
    EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: NULL input pointer"), 4u);
}

// A frame: faces as (ID, left), each 40 x 40 at (left, 100); whether the change
// checker takes it as its reference; and per ID asked whether it is stable and
// whether it has changed.
struct Step
{
    std::vector<std::pair<int, unsigned int>> faces;
    bool takeReference;
    std::vector<std::tuple<int, bool, bool>> expected;
};

TEST_F(ROIThresholdCheckerTest, FollowsFacesByIDThroughMovesSwapsAndDisappearance)
{
    // At gain 1 the second row holds: two frames in a row within (stable) or
    // beyond (changed) 1 percent. The first row, for the dark, would hide every
    // move.
    DifferenceTuning tuning({{8, 50.0F, 50.0F, 1}, {1, 1.0F, 1.0F, 2}});
    Prepare(&tuning);

    constexpr int A = 7, B = 9, C = 11;
    Step const steps[] = {
        {{{A, 100}, {B, 200}}, false, {{A, false, false}, {B, false, false}}},
        // Nothing is in the reference yet: every face counts as changed.
        {{{A, 100}, {B, 200}}, true, {{A, false, true}, {B, false, true}}},
        {{{A, 101}, {B, 200}}, false, {{A, true, false}, {B, true, false}}},
        {{{B, 200}, {A, 101}}, false, {{A, true, false}, {B, true, false}}},  // counters follow IDs
        {{{B, 200}, {A, 121}}, false, {{A, false, false}, {B, true, false}}}, // A jumps 20 pixels
        {{{B, 200}, {A, 121}}, false, {{A, false, true}, {B, true, false}}},
        {{{B, 200}, {A, 100}}, false, {{A, false, false}, {B, true, false}}}, // A at reference
        // A is gone: what nothing is known about is stable and unchanged. The
        // reference is searched only up to the new count, so B (at reference
        // index 1) is not found there.
        {{{B, 200}}, false, {{A, true, false}, {B, true, false}}},
        {{{B, 200}, {C, 300}}, false, {{B, true, false}, {C, false, false}}},
        {{{B, 200}, {C, 300}}, false, {{B, true, false}, {C, false, true}}},
        // C stood at index 1, behind the new count of 1: it is not found and
        // starts again.
        {{{C, 300}}, false, {{C, false, false}}},
    };
    int frame = 0;
    for (Step const& step : steps) {
        std::vector<StatsROIData> records;
        for (auto [id, left] : step.faces)
            records.push_back(Face(id, left, 100, 40, 40));
        StatsROIInformation const information = Frame(records);
        ASSERT_TRUE(m_stable.UpdateROIData(&information, 0));
        ASSERT_TRUE(m_change.UpdateROIData(&information, 0));
        EXPECT_TRUE(!step.takeReference || m_change.UpdateReferenceROI());
        for (auto [id, stableNow, changedNow] : step.expected) {
            EXPECT_EQ(m_stable.IsROIStableByID(id), stableNow) << "frame " << frame << " ID " << id;
            EXPECT_EQ(m_change.IsROIChangeByID(id), changedNow)
                << "frame " << frame << " ID " << id;
        }
        ++frame;
    }
    EXPECT_EQ(CountLogged(StatsLogLevelTrace, "Faces: ROI id 7 index 1 stable 1 stable cnt 3"), 1u);
    EXPECT_EQ(CountLogged(StatsLogLevelTrace, "Faces: ROI id 11 index 1 change 1 change cnt 2"),
              1u);
    EXPECT_EQ(CountLogged(StatsLogLevelFault, "Faces: No ROI ID 7 in ROIStableChecker"), 1u);
    EXPECT_EQ(CountLogged(StatsLogLevelError, "Faces: No ROI ID 7 at index -1 in ROIStable"), 1u);
}

TEST_F(ROIThresholdCheckerTest, ProcessedRecordsAreTakenUpToTheArraySize)
{
    // A tuned count of 0 makes every face stable at once; a count past the array
    // is walked only to its end, and the last record is still found.
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 0}});
    for (unsigned int count : {MaxROICount, MaxROICount + 1}) {
        Prepare(&tuning);
        ROIData rois[MaxROICount];
        for (unsigned int i = 0; i < MaxROICount; ++i)
            rois[i] = Box(10.0F * static_cast<float>(i), 10, 5, 5, i + 1);
        ASSERT_TRUE(m_stable.UpdateProcROIData(rois, count));
        EXPECT_EQ(m_stable.GetROIsCount(), count);
        EXPECT_EQ(m_stable.GetROI(MaxROICount - 1).left, 150.0F);
        EXPECT_TRUE(m_stable.IsROIStableByID(static_cast<int>(MaxROICount)));
        EXPECT_EQ(CountLogged(StatsLogLevelFault, "Faces: No ROI ID"), 0u);
    }
}

} // namespace
