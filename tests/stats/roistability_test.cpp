// SPDX-License-Identifier: Apache-2.0
// ROIStableChecker and ROIChangeChecker: threshold rows by gain, the difference measure, and faces
// followed by ID over several frames.
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsroistability.h"

#include "tests/stats/roitestsupport.h"

namespace {

using RoiTest::Face;
using RoiTest::Frame;

constexpr unsigned int Fault = StatsLogLevelFault;
constexpr unsigned int Error = StatsLogLevelError;

// One threshold row: from gain `start` on, location and size in percent of the image diagonal,
// and the frames in a row needed.
struct ThresholdRow
{
    float start;
    float location;
    float size;
    int count;
};

// Owns a difference tuning and its rows.
class DifferenceTuning
{
public:
    explicit DifferenceTuning(std::vector<ThresholdRow> const& rows) : m_tuning()
    {
        for (ThresholdRow const& row : rows) {
            statsglobalelements::FaceROIDiffThresholdType entry = {};
            entry.triggerPt.start = row.start;
            entry.triggerPt.end = row.start + 1.0F;
            entry.triggerData.locationThreshold = row.location;
            entry.triggerData.sizeThreshold = row.size;
            entry.triggerData.countThreshold = row.count;
            m_rows.push_back(entry);
        }
        m_tuning.statsROIDiffEnable = 1;
        m_tuning.statsROIDiffThreshold.triggerDataCount = static_cast<uint32_t>(m_rows.size());
        m_tuning.statsROIDiffThreshold.triggerData = m_rows.empty() ? nullptr : m_rows.data();
    }
    DifferenceTuning(DifferenceTuning const&) = delete;
    DifferenceTuning& operator=(DifferenceTuning const&) = delete;

    statsroidifference::varitonalStatsROIDifferenceType const* Get() const { return &m_tuning; }

private:
    statsroidifference::varitonalStatsROIDifferenceType m_tuning;
    std::vector<statsglobalelements::FaceROIDiffThresholdType> m_rows;
};

ROIData Box(float left, float top, float width, float height)
{
    ROIData roi;
    roi.left = left;
    roi.top = top;
    roi.width = width;
    roi.height = height;
    return roi;
}

// A 300 x 400 image has a diagonal of 500 pixels: a centre shift of 5 pixels is 1 percent.
template <typename Checker> void Prepare(Checker& checker, DifferenceTuning const* tuning)
{
    RoiTest::LoggedLines().clear();
    ASSERT_TRUE(checker.SetLogFunction("Faces", &RoiTest::RecordLine));
    ASSERT_TRUE(checker.SetImageResolution(300.0F, 400.0F));
    ASSERT_TRUE(checker.SetTuningData(tuning != nullptr ? tuning->Get() : nullptr));
}

struct ThresholdCase
{
    std::vector<float> starts;
    float gain;
    int expected;
};

template <typename Checker> void CheckThresholdSelection()
{
    ThresholdCase const cases[] = {
        // Rows by falling start, as tuned: the first row the gain has reached.
        {{8, 4, 2}, 10.0F, 0},
        {{8, 4, 2}, 8.0F, 0},
        {{8, 4, 2}, 5.0F, 1},
        {{8, 4, 2}, 2.0F, 2},
        // A gain below every start takes the last row.
        {{8, 4, 2}, 1.0F, 2},
        // Rows by rising start: the first row wins as soon as the gain reaches it.
        {{1, 4, 8}, 5.0F, 0},
        {{1, 4, 8}, 9.0F, 0},
        {{2, 4, 8}, 1.0F, 2},
        {{3}, 1.0F, 0},
    };
    for (ThresholdCase const& c : cases) {
        std::vector<ThresholdRow> rows;
        for (float start : c.starts)
            rows.push_back({start, 1.0F, 1.0F, 1});
        DifferenceTuning tuning(rows);
        Checker checker;
        Prepare(checker, &tuning);
        ASSERT_TRUE(checker.SetAECGain(c.gain));
        EXPECT_TRUE(checker.UpdateThreshold());
        EXPECT_EQ(checker.GetThresholdIndex(), c.expected)
            << "gain " << c.gain << " first start " << c.starts.front();
    }

    // No tuning, or a table without rows: refused, the row stays.
    DifferenceTuning tuning({{8, 1, 1, 1}, {4, 1, 1, 1}, {1, 1, 1, 1}});
    DifferenceTuning empty({});
    Checker checker;
    Prepare(checker, &tuning);
    ASSERT_TRUE(checker.SetAECGain(5.0F));
    ASSERT_TRUE(checker.UpdateThreshold());
    checker.SetTuningData(empty.Get());
    EXPECT_FALSE(checker.UpdateThreshold());
    checker.SetTuningData(nullptr);
    EXPECT_FALSE(checker.UpdateThreshold());
    EXPECT_EQ(checker.GetThresholdIndex(), 1);
    EXPECT_EQ(RoiTest::CountLogged("Faces: NULL tuning pointer"), 2u);

    // A frame against a table without rows has no row to compare with: it is not taken, and
    // that is said once.
    checker.SetTuningData(empty.Get());
    RoiTest::LoggedLines().clear();
    StatsROIInformation const frame = Frame({Face(4, 10, 10, 20, 20)});
    EXPECT_TRUE(checker.UpdateROIData(&frame, 0));
    EXPECT_EQ(RoiTest::CountLogged("Faces: NULL tuning pointer"), 1u);
    EXPECT_EQ(checker.GetROI(0).width, 0.0F);
}

TEST(ROIStabilityThresholdTest, StableCheckerPicksFirstRowReachedByGain)
{
    CheckThresholdSelection<ROIStableChecker>();
}

TEST(ROIStabilityThresholdTest, ChangeCheckerPicksFirstRowReachedByGain)
{
    CheckThresholdSelection<ROIChangeChecker>();
}

struct DifferenceCase
{
    ROIData moved;
    bool stable;
    bool changed;
};

TEST(ROIStabilityMeasureTest, StableAndChangedAreStrictOppositesAroundThresholds)
{
    // Thresholds of 1 percent: 5 pixels of centre shift or of diagonal growth.
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 1}});
    ROIStableChecker stable;
    ROIChangeChecker change;
    Prepare(stable, &tuning);
    Prepare(change, &tuning);
    ASSERT_TRUE(stable.UpdateThreshold());
    ASSERT_TRUE(change.UpdateThreshold());

    ROIData const base = Box(100, 100, 30, 40); // centre (115, 120), diagonal 50
    DifferenceCase const cases[] = {
        {Box(100, 100, 30, 40), true, false},
        // Centres are cut to whole pixels first: sub-pixel jitter is no movement.
        {Box(100.9F, 100.4F, 30, 40), true, false},
        {Box(102, 102, 30, 40), true, false},   // shift (2, 2): 0.57 percent
        {Box(103, 102, 30, 40), true, false},   // shift (3, 2): 0.72 percent
        {Box(103, 104, 30, 40), false, false},  // shift (3, 4): exactly 1 percent
        {Box(106, 100, 30, 40), false, true},   // shift 6: 1.2 percent
        {Box(98.5F, 98, 33, 44), false, false}, // same centre, diagonal 55: exactly 1 percent
        {Box(96, 95, 38, 50), false, true},     // same centre, diagonal 62.8: 2.6 percent
        {Box(101, 101, 33, 40), true, false},   // shift (2, 1), diagonal 51.9: both below
        // Coordinates past the int range or not numbers at all come in unchecked: far away.
        {Box(4.0e9F, 100, 30, 40), false, true},
        {Box(std::numeric_limits<float>::quiet_NaN(), 100, 30, 40), false, true},
    };
    for (DifferenceCase const& c : cases) {
        EXPECT_EQ(stable.ROIStableCheck(c.moved, base), c.stable)
            << c.moved.left << "," << c.moved.top << " " << c.moved.width << "x" << c.moved.height;
        EXPECT_EQ(change.ROIChangeCheck(c.moved, base), c.changed)
            << c.moved.left << "," << c.moved.top << " " << c.moved.width << "x" << c.moved.height;
    }
    EXPECT_TRUE(RoiTest::Logged(
        StatsLogLevelTrace,
        "Faces: ROI new (118 122) old (115 120) diff loc 0.721110 size 0.000000 thres loc "
        "1.000000 size 1.000000"));

    // A location threshold of 0 is never met by a strict comparison.
    DifferenceTuning zero({{1, 0.0F, 1.0F, 1}});
    stable.SetTuningData(zero.Get());
    EXPECT_FALSE(stable.ROIStableCheck(base, base));
}

TEST(ROIStabilityMeasureTest, WithoutTuningStableIsAssumedAndChangeIsNot)
{
    ROIStableChecker stable;
    ROIChangeChecker change;
    Prepare(stable, nullptr);
    Prepare(change, nullptr);
    ROIData const roi = Box(0, 0, 10, 10);
    ROIData const far = Box(200, 200, 90, 90);
    EXPECT_TRUE(stable.ROIStableCheck(far, roi));
    EXPECT_FALSE(change.ROIChangeCheck(far, roi));
    EXPECT_EQ(RoiTest::CountLogged("Faces: NULL tuning pointer (nil) or invalid resolution "
                                   "(300.000000, 400.000000)"),
              2u);

    EXPECT_TRUE(stable.IsROIStableByID(1));
    EXPECT_FALSE(change.IsROIChangeByID(1));
    EXPECT_TRUE(RoiTest::Logged(Fault, "Faces: return stable when no tuning data available"));
    EXPECT_TRUE(RoiTest::Logged(Fault, "Faces: return no change when no tuning data available"));

    // The frame updates refuse without tuning; the stored frame stays.
    StatsROIInformation const frame = Frame({Face(4, 10, 10, 20, 20)});
    EXPECT_TRUE(stable.UpdateROIData(&frame, 0));
    EXPECT_TRUE(change.UpdateROIData(&frame, 0));
    EXPECT_TRUE(RoiTest::Logged(Fault, "Faces: NULL tuning pointer"));
    EXPECT_TRUE(RoiTest::Logged(Error, "Faces: NULL tuning pointer"));
    EXPECT_EQ(stable.GetROI(0).width, 0.0F);
    EXPECT_EQ(change.GetROI(0).width, 0.0F);
}

TEST(ROIStabilityInputTest, NullInputIsRefused)
{
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 1}});
    ROIStableChecker stable;
    ROIChangeChecker change;
    Prepare(stable, &tuning);
    EXPECT_FALSE(stable.UpdateROIData(nullptr, 0));
    EXPECT_FALSE(stable.UpdateProcROIData(nullptr, 1));
    EXPECT_EQ(RoiTest::CountLogged("Faces: NULL input pointer"), 2u);

    Prepare(change, &tuning);
    RoiTest::LoggedLines().clear();
    EXPECT_FALSE(change.UpdateROIData(nullptr, 0));
    EXPECT_TRUE(RoiTest::LoggedLines().empty());
}

// One face of a frame: ID and top-left corner; every face is 40 x 40.
struct Seen
{
    int id;
    unsigned int left;
    unsigned int top;
};

// One frame and what the checker says afterwards about each ID asked.
struct Step
{
    std::vector<Seen> faces;
    std::vector<std::pair<int, bool>> expected;
    char const* what;
};

StatsROIInformation FrameOf(std::vector<Seen> const& faces)
{
    std::vector<StatsROIData> records;
    for (Seen const& face : faces)
        records.push_back(Face(face.id, face.left, face.top, 40, 40));
    return Frame(records);
}

TEST(ROIStableCheckerTest, FollowsTwoFacesThroughMovesSwapsAndDisappearance)
{
    // Two frames in a row within 1 percent make a face stable.
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 2}});
    ROIStableChecker checker;
    Prepare(checker, &tuning);

    constexpr int A = 7;
    constexpr int B = 9;
    Step const steps[] = {
        {{{A, 100, 100}, {B, 200, 200}}, {{A, false}, {B, false}}, "both new: counters 0"},
        {{{A, 100, 100}, {B, 200, 200}}, {{A, false}, {B, false}}, "counters 1"},
        {{{A, 101, 100}, {B, 200, 200}}, {{A, true}, {B, true}}, "counters 2"},
        {{{B, 200, 200}, {A, 101, 100}}, {{A, true}, {B, true}}, "swapped: counters follow IDs"},
        {{{B, 200, 200}, {A, 121, 100}}, {{A, false}, {B, true}}, "A jumps 20 pixels"},
        {{{B, 200, 200}}, {{A, true}, {B, true}}, "A gone: unknown counts as stable"},
        {{{A, 121, 100}, {B, 200, 200}}, {{A, false}, {B, true}}, "A back: starts from 0"},
        {{{A, 121, 100}, {B, 200, 200}}, {{A, false}, {B, true}}, "A counter 1"},
        {{{A, 121, 100}, {B, 200, 200}}, {{A, true}, {B, true}}, "A counter 2"},
        // B stood at index 1, behind the new count of 1: it is not found and starts again.
        {{{B, 200, 200}}, {{B, false}}, "count drops, B moves to index 0"},
    };
    int frame = 0;
    for (Step const& step : steps) {
        StatsROIInformation const information = FrameOf(step.faces);
        ASSERT_TRUE(checker.UpdateROIData(&information, 0));
        EXPECT_EQ(checker.GetROIsCount(), step.faces.size());
        for (auto const& [id, stable] : step.expected)
            EXPECT_EQ(checker.IsROIStableByID(id), stable)
                << "frame " << frame << " (" << step.what << ") ID " << id;
        ++frame;
    }
    EXPECT_TRUE(RoiTest::Logged(Fault, "Faces: No ROI ID 7 in ROIStableChecker"));
    EXPECT_TRUE(
        RoiTest::Logged(StatsLogLevelTrace, "Faces: ROI id 9 index 0 stable 0 stable cnt 0"));
    EXPECT_TRUE(
        RoiTest::Logged(StatsLogLevelTrace, "Faces: ROI id 7 index 1 stable 1 stable cnt 3"));
    EXPECT_TRUE(RoiTest::Logged(StatsLogLevelTrace, "Faces: ROI size 2"));
}

TEST(ROIStableCheckerTest, CountThresholdZeroIsStableAtOnceAndProcessedInputIsTaken)
{
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 0}});
    ROIStableChecker checker;
    Prepare(checker, &tuning);
    ROIData rois[MaxROICount];
    rois[0] = Box(10, 10, 40, 40);
    rois[0].roiID = 5;
    rois[1] = Box(100, 10, 40, 40);
    rois[1].roiID = 6;
    ASSERT_TRUE(checker.UpdateProcROIData(rois, 2));
    EXPECT_EQ(checker.GetROIsCount(), 2u);
    EXPECT_TRUE(checker.IsROIStableByID(5));
    EXPECT_TRUE(checker.IsROIStableByID(6));
    EXPECT_EQ(checker.GetROI(1).left, 100.0F);
}

TEST(ROIStableCheckerTest, ThresholdsFollowTheGain)
{
    // In the dark (gain 8 and above) a move of 3 percent still counts as stable.
    DifferenceTuning tuning({{8, 4.0F, 4.0F, 1}, {1, 1.0F, 1.0F, 1}});
    ROIStableChecker checker;
    Prepare(checker, &tuning);
    StatsROIInformation const first = FrameOf({{1, 100, 100}});
    StatsROIInformation const moved = FrameOf({{1, 115, 100}});
    ASSERT_TRUE(checker.UpdateROIData(&first, 0));
    ASSERT_TRUE(checker.UpdateROIData(&moved, 0));
    EXPECT_FALSE(checker.IsROIStableByID(1));

    ASSERT_TRUE(checker.SetAECGain(8.0F));
    ASSERT_TRUE(checker.UpdateROIData(&first, 0));
    EXPECT_TRUE(checker.IsROIStableByID(1));
    EXPECT_EQ(checker.GetThresholdIndex(), 0);
}

TEST(ROIChangeCheckerTest, FollowsTwoFacesAgainstTheReference)
{
    // Two frames in a row beyond 1 percent of the reference make a face changed.
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 2}});
    ROIChangeChecker checker;
    Prepare(checker, &tuning);

    constexpr int A = 7;
    constexpr int B = 9;
    constexpr int C = 11;
    auto run = [&](Step const& step, int frame) {
        StatsROIInformation const information = FrameOf(step.faces);
        ASSERT_TRUE(checker.UpdateROIData(&information, 0));
        for (auto const& [id, changed] : step.expected)
            EXPECT_EQ(checker.IsROIChangeByID(id), changed)
                << "frame " << frame << " (" << step.what << ") ID " << id;
    };

    // Nothing is in the reference yet: every face counts up from 1.
    run({{{A, 100, 100}, {B, 200, 200}}, {{A, false}, {B, false}}, "no reference: counters 1"}, 0);
    run({{{A, 100, 100}, {B, 200, 200}}, {{A, true}, {B, true}}, "no reference: counters 2"}, 1);
    ASSERT_TRUE(checker.UpdateReferenceROI());

    Step const steps[] = {
        {{{A, 100, 100}, {B, 200, 200}}, {{A, false}, {B, false}}, "at the reference"},
        {{{A, 110, 100}, {B, 201, 200}}, {{A, false}, {B, false}}, "A moved: counter 1"},
        {{{A, 110, 100}, {B, 201, 200}}, {{A, true}, {B, false}}, "A moved: counter 2"},
        {{{B, 201, 200}, {A, 110, 100}}, {{A, true}, {B, false}}, "swapped: counters follow IDs"},
        {{{B, 201, 200}, {A, 100, 100}}, {{A, false}, {B, false}}, "A back at the reference"},
        // The reference is searched only up to the new count: B, at reference index 1, is not
        // found once the count is 1, and counts as changed.
        {{{B, 201, 200}}, {{A, false}, {B, false}}, "A gone: B counter 1"},
        {{{B, 201, 200}}, {{B, true}}, "B counter 2"},
        {{{B, 201, 200}, {C, 50, 50}}, {{B, false}, {C, false}}, "C new: counter 1"},
        {{{B, 201, 200}, {C, 50, 50}}, {{B, false}, {C, true}}, "C counter 2"},
    };
    int frame = 2;
    for (Step const& step : steps)
        run(step, frame++);
    EXPECT_TRUE(RoiTest::Logged(Error, "Faces: No ROI ID 7 at index -1 in ROIStableChecker"));
    EXPECT_TRUE(
        RoiTest::Logged(StatsLogLevelTrace, "Faces: ROI id 11 index 1 change 1 change cnt 2"));
}

TEST(ROIStabilityLogTest, WithoutAHookLoggingIsSkippedAndResultsStay)
{
    DifferenceTuning tuning({{1, 1.0F, 1.0F, 1}});
    ROIStableChecker stable;
    ROIChangeChecker change;
    ASSERT_TRUE(stable.SetImageResolution(300.0F, 400.0F));
    ASSERT_TRUE(change.SetImageResolution(300.0F, 400.0F));
    stable.SetTuningData(tuning.Get());
    change.SetTuningData(tuning.Get());
    RoiTest::LoggedLines().clear();
    StatsROIInformation const information = FrameOf({{1, 10, 10}, {2, 100, 100}});
    for (int frame = 0; frame < 2; ++frame) {
        ASSERT_TRUE(stable.UpdateROIData(&information, 0));
        ASSERT_TRUE(change.UpdateROIData(&information, 0));
    }
    EXPECT_TRUE(stable.IsROIStableByID(1));
    EXPECT_TRUE(stable.IsROIStableByID(42));
    EXPECT_TRUE(change.IsROIChangeByID(2));
    EXPECT_FALSE(change.IsROIChangeByID(42));
}

} // namespace
