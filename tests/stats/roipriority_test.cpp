// SPDX-License-Identifier: Apache-2.0
// ROIPriority: tuned curves, scoring in image and crop coordinates, dominant hysteresis.
#include <cmath>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsroipriority.h"

#include "tests/stats/roitestsupport.h"

namespace {

using RoiTest::Band;
using RoiTest::Face;
using RoiTest::Frame;
using RoiTest::Logged;
using RoiTest::LoggedLines;

class ROIPriorityTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        LoggedLines().clear();
        ASSERT_TRUE(m_priority.SetLogFunction("FaceROI", RoiTest::RecordLine));
        ASSERT_TRUE(m_priority.SetImageResolution(1000.0F, 1000.0F));
        m_tuning->dominantScoreEnhancement = 0.1F;
        m_tuning->partialFaceThresh = 0.5F;
        ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
        LoggedLines().clear();
    }

    /// A square face centred in the 1000 x 1000 image: its plain score is side / 1000.
    static StatsROIData Centred(int id, unsigned int side)
    {
        return Face(id, 500 - side / 2, 500 - side / 2, side, side);
    }

    RoiTest::Tuning m_tuning;
    ROIPriority m_priority;
};

TEST_F(ROIPriorityTest, TriggeredValueHoldsInBandsAndInterpolatesBetween)
{
    struct Case
    {
        char const* name;
        std::vector<Band> bands;
        float value;
        float expected;
    };
    Case const cases[] = {
        {"one band, below", {{2, 4, 7}}, 1.0F, 7.0F},
        {"one band, inside", {{2, 4, 7}}, 3.0F, 7.0F},
        {"one band, above", {{2, 4, 7}}, 5.0F, 7.0F},
        {"below first", {{0, 1, 1}, {3, 4, 5}}, -5.0F, 1.0F},
        {"between", {{0, 1, 1}, {3, 4, 5}}, 2.0F, 3.0F},
        {"between, near upper", {{0, 1, 1}, {3, 4, 5}}, 2.5F, 4.0F},
        {"above last", {{0, 1, 1}, {3, 4, 5}}, 10.0F, 5.0F},
        {"on a joint", {{0, 1, 1}, {1, 2, 3}}, 1.0F, 1.0F},
        {"in the touching band", {{0, 1, 1}, {1, 2, 3}}, 1.5F, 3.0F},
        {"falling line", {{0, 0, 1}, {1, 1, 0}}, 0.25F, 0.75F},
    };
    for (Case const& c : cases) {
        statsroipriority::modFaceRoiTriggerDataType curve = {};
        m_tuning.SetCurve(curve, c.bands);
        EXPECT_FLOAT_EQ(m_priority.GetTriggeredValue(&curve, c.value, -1.0F), c.expected) << c.name;
    }
    EXPECT_TRUE(LoggedLines().empty());

    statsroipriority::modFaceRoiTriggerDataType empty = {};
    EXPECT_FLOAT_EQ(m_priority.GetTriggeredValue(&empty, 3.0F, 0.25F), 0.25F);
    EXPECT_FLOAT_EQ(m_priority.GetTriggeredValue(nullptr, 3.0F, -1.0F), -1.0F);
    EXPECT_TRUE(Logged(2, "FaceROI: zero tuning entry"));
    EXPECT_EQ(RoiTest::CountLogged("FaceROI: zero tuning entry"), 2U);
}

TEST_F(ROIPriorityTest, IncumbentKeepsItsPlaceWithinTheEnhancement)
{
    struct Case
    {
        unsigned int newcomerSide;
        int dominantID;
        int dominantIndex;
        float newcomerScore;
        float incumbentScore;
    };
    // The incumbent scores 0.50 and competes as 0.55; a newcomer needs more than that.
    Case const cases[] = {
        {540, 1, 1, 0.54F, 0.55F},
        {560, 2, 0, 0.616F, 0.50F},
    };
    for (Case const& c : cases) {
        ROIPriority priority;
        ASSERT_TRUE(priority.SetImageResolution(1000.0F, 1000.0F));
        ASSERT_TRUE(priority.SetTuningData(m_tuning.Get()));
        StatsROIInformation const first = Frame({Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&first, 0));
        ASSERT_EQ(priority.GetDominantID(), 1);
        EXPECT_NEAR(priority.GetScore(0), 0.55F, 1e-5F);

        StatsROIInformation const second = Frame({Centred(2, c.newcomerSide), Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&second, 0));
        EXPECT_EQ(priority.GetDominantID(), c.dominantID) << c.newcomerSide;
        EXPECT_EQ(priority.GetDominantIndex(), c.dominantIndex) << c.newcomerSide;
        EXPECT_NEAR(priority.GetScore(0), c.newcomerScore, 1e-5F) << c.newcomerSide;
        EXPECT_NEAR(priority.GetScore(1), c.incumbentScore, 1e-5F) << c.newcomerSide;
        EXPECT_FLOAT_EQ(priority.GetScore(2), 0.0F);
    }
}

TEST_F(ROIPriorityTest, SelectionWithoutIncumbent)
{
    // Equal scores: the lower index wins, boosted by the default enhancement without tuning.
    ASSERT_TRUE(m_priority.SetTuningData(nullptr));
    StatsROIInformation const equal =
        Frame({Face(5, 0, 0, 100, 100), Face(6, 800, 800, 100, 100), Face(7, 10, 10, 50, 50)});
    ASSERT_TRUE(m_priority.UpdateROIData(&equal, 0));
    EXPECT_EQ(m_priority.GetDominantIndex(), 0);
    EXPECT_EQ(m_priority.GetDominantID(), 5);
    EXPECT_NEAR(m_priority.GetScore(0), 0.11F, 1e-6F);
    EXPECT_NEAR(m_priority.GetScore(1), 0.1F, 1e-6F);
    EXPECT_TRUE(Logged(32, "FaceROI: m_dominantROIIndex 0 m_dominantROIID 5"));
    EXPECT_TRUE(Logged(32, "FaceROI: index 2 id 7 score 0.050000"));

    // The incumbent has left; a newcomer that scores nothing wins the walk but is no dominant.
    StatsROIInformation const empty = Frame({Face(8, 10, 10, 0, 0)});
    ASSERT_TRUE(m_priority.UpdateROIData(&empty, 0));
    EXPECT_EQ(m_priority.GetDominantIndex(), -1);
    EXPECT_EQ(m_priority.GetDominantID(), -1);
    EXPECT_FLOAT_EQ(m_priority.GetScore(0), 0.0F);
    EXPECT_FLOAT_EQ(m_priority.GetScore(1), 0.0F);

    // No ROI at all.
    ASSERT_TRUE(m_priority.UpdateROIData(&equal, 0));
    StatsROIInformation const none = Frame({});
    ASSERT_TRUE(m_priority.UpdateROIData(&none, 0));
    EXPECT_EQ(m_priority.GetDominantID(), -1);
    EXPECT_FLOAT_EQ(m_priority.GetScore(0), 0.0F);
    EXPECT_TRUE(m_priority.DominantROISelection(nullptr, 3));
    EXPECT_EQ(m_priority.GetDominantIndex(), -1);

    EXPECT_FLOAT_EQ(m_priority.GetScore(16), 0.0F);
    EXPECT_FLOAT_EQ(m_priority.GetScore(-1), 0.0F);
}

TEST_F(ROIPriorityTest, AECFaceROIMeasuresInsideTheCropWindow)
{
    // Location score falls from 1.0 at the centre to 0.0 at a corner.
    m_tuning.SetCurve(m_tuning->FaceROILocationWeight, {{0, 0, 1}, {1, 1, 0}});
    ASSERT_TRUE(m_priority.SetCropWindow(250.0F, 250.0F, 500.0F, 500.0F));
    ROIData roi;
    roi.left = 300.0F;
    roi.top = 300.0F;
    roi.width = 100.0F;
    roi.height = 100.0F;

    // Image coordinates: size 0.1, distance 0.3 from the image centre.
    EXPECT_NEAR(m_priority.ROIDominantScore(roi), 0.07F, 1e-6F);
    EXPECT_NEAR(roi.normalizedSize, 0.1F, 1e-6F);
    EXPECT_EQ(RoiTest::CountLogged("FaceROI: FOVLength:"), 0U);

    // Crop coordinates: the same size ratio over the full diagonal, distance 0.6 from the
    // window's centre, and the size normalised by the window.
    ASSERT_TRUE(m_priority.SetLogFunction("AECFaceROI", RoiTest::RecordLine));
    EXPECT_NEAR(m_priority.ROIDominantScore(roi), 0.04F, 1e-6F);
    EXPECT_NEAR(roi.normalizedSize, 0.2F, 1e-6F);
    EXPECT_TRUE(Logged(32, "AECFaceROI: FOVLength: 1414.213623, ROISize: 0.100000, centerX: "
                           "250.000000, centerY: 250.000000, RoiCenterX: 100.000000, RoiCenterY: "
                           "100.000000"));
    EXPECT_EQ(RoiTest::CountLogged("AECFaceROI: ROI size 0.100000 score 0.100000 distance "
                                   "0.600000 score 0.400000 tuning 0x"),
              1U);
}

TEST_F(ROIPriorityTest, UpdateUsesTheClampedPartialThreshold)
{
    ROIPriority priority;
    ASSERT_TRUE(priority.SetImageResolution(2000.0F, 2000.0F));
    ASSERT_TRUE(priority.SetCropWindow(0.0F, 0.0F, 1000.0F, 1000.0F));
    // Overhanging the window's bottom by half and by three quarters of their heights.
    StatsROIInformation const frame =
        Frame({Face(1, 100, 900, 100, 200), Face(2, 300, 950, 100, 200)});
    struct Case
    {
        bool tuned;
        float threshold;
        unsigned int kept;
    };
    for (Case c : {Case{false, 0.0F, 1}, Case{true, 0.4F, 0}, Case{true, -0.3F, 0},
                   Case{true, 1.7F, 2}, Case{true, 0.75F, 2}}) {
        m_tuning->partialFaceThresh = c.threshold;
        ASSERT_TRUE(priority.SetTuningData(c.tuned ? m_tuning.Get() : nullptr));
        ASSERT_TRUE(priority.UpdateROIData(&frame, 1));
        EXPECT_EQ(priority.Size(), c.kept) << c.tuned << " " << c.threshold;
    }
    // Only a trimming request trims.
    ASSERT_TRUE(priority.UpdateROIData(&frame, 0));
    EXPECT_EQ(priority.Size(), 2U);
    EXPECT_FLOAT_EQ(priority.GetROI(0).height, 200.0F);
}

TEST_F(ROIPriorityTest, FrameEntryKeepsStateOnNullInputAndTracksTheReference)
{
    StatsROIInformation const frame = Frame({Face(3, 100, 100, 50, 50), Centred(9, 300)});
    EXPECT_FALSE(m_priority.IsDominantIDChange());
    ASSERT_TRUE(m_priority.UpdateROIData(&frame, 0));
    EXPECT_EQ(m_priority.GetDominantID(), 9);
    EXPECT_TRUE(m_priority.IsDominantIDChange());
    EXPECT_TRUE(m_priority.UpdateReferenceROI());
    EXPECT_FALSE(m_priority.IsDominantIDChange());

    EXPECT_FALSE(m_priority.UpdateROIData(nullptr, 0));
    EXPECT_TRUE(Logged(2, "FaceROI: NULL input pointer"));
    EXPECT_EQ(m_priority.GetDominantID(), 9);
    ROIData const* rois = nullptr;
    unsigned int count = 0;
    m_priority.GetProcessedROI(rois, count);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(rois, m_priority.GetROIs());
    EXPECT_EQ(rois[1].roiID, 9U);
    EXPECT_NEAR(rois[1].normalizedSize, 0.3F, 1e-6F);

    // Clear forgets dominant and reference but keeps the scores.
    m_priority.Clear();
    EXPECT_EQ(m_priority.GetDominantID(), -1);
    EXPECT_EQ(m_priority.GetDominantIndex(), -1);
    EXPECT_FALSE(m_priority.IsDominantIDChange());
    EXPECT_EQ(m_priority.GetROI(1).roiID, 0U);
    EXPECT_NEAR(m_priority.GetScore(1), 0.33F, 1e-5F);
}

TEST_F(ROIPriorityTest, UnsetResolutionScoresAgainstTheUnitImage)
{
    ROIPriority priority;
    ROIData roi;
    roi.width = 3.0F;
    roi.height = 4.0F;
    // Width and height read as 1.0: the diagonal ratio is 5 / sqrt(2).
    EXPECT_NEAR(priority.ROIDominantScore(roi), 5.0F / std::sqrt(2.0F), 1e-5F);
}

} // namespace
