// SPDX-License-Identifier: Apache-2.0
// ROIPriority: tuned curves, scoring in image and crop coordinates, dominant hysteresis.
#include <cmath>

#include <gtest/gtest.h>

#include "tests/common/roifixtures.h"

namespace {

using RoiTest::CountLogged;
using RoiTest::Face;
using RoiTest::Frame;

class ROIPriorityTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        RoiTest::LoggedLines().clear();
        ASSERT_TRUE(m_priority.SetLogFunction("FaceROI", RoiTest::RecordLine));
        ASSERT_TRUE(m_priority.SetImageResolution(1000.0F, 1000.0F));
        m_tuning->dominantScoreEnhancement = 0.1F;
        m_tuning->partialFaceThresh = 0.5F;
        ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
        RoiTest::LoggedLines().clear();
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
        std::vector<RoiTest::Band> bands;
        float value;
        float expected;
    };
    Case const cases[] = {
        {{{2, 4, 7}}, 1.0F, 7.0F},
        {{{2, 4, 7}}, 5.0F, 7.0F},
        {{{0, 1, 1}, {3, 4, 5}}, -5.0F, 1.0F},
        {{{0, 1, 1}, {3, 4, 5}}, 1.0F, 1.0F},
        {{{0, 1, 1}, {3, 4, 5}}, 2.5F, 4.0F},
        {{{0, 1, 1}, {3, 4, 5}}, 3.0F, 5.0F},
        {{{0, 1, 1}, {3, 4, 5}}, 10.0F, 5.0F},
        {{{0, 1, 1}, {1, 2, 3}}, 1.5F, 3.0F}, // touching bands: no gap to divide by
        {{{0, 0, 1}, {1, 1, 0}}, 0.25F, 0.75F},
    };
    for (Case const& c : cases) {
        statsroipriority::modFaceRoiTriggerDataType curve = {};
        m_tuning.SetCurve(curve, c.bands);
        EXPECT_FLOAT_EQ(m_priority.GetTriggeredValue(&curve, c.value, -1.0F), c.expected)
            << c.value;
    }
    EXPECT_TRUE(RoiTest::LoggedLines().empty());
    statsroipriority::modFaceRoiTriggerDataType empty = {};
    EXPECT_EQ(m_priority.GetTriggeredValue(&empty, 3.0F, 0.25F), 0.25F);
    EXPECT_EQ(m_priority.GetTriggeredValue(nullptr, 3.0F, -1.0F), -1.0F);
    EXPECT_EQ(CountLogged(2, "FaceROI: zero tuning entry"), 2U);
}

TEST_F(ROIPriorityTest, IncumbentKeepsItsPlaceWithinTheEnhancement)
{
    struct Case
    {
        unsigned int newcomerSide;
        int dominantID;
        float newcomerScore;
        float incumbentScore;
    };
    // The incumbent scores 0.50 and competes as 0.55; a newcomer needs more than that.
    for (Case c : {Case{540, 1, 0.54F, 0.55F}, Case{560, 2, 0.616F, 0.50F}}) {
        ROIPriority priority;
        ASSERT_TRUE(priority.SetImageResolution(1000.0F, 1000.0F));
        ASSERT_TRUE(priority.SetTuningData(m_tuning.Get()));
        StatsROIInformation const first = Frame({Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&first, 0));
        ASSERT_EQ(priority.GetDominantID(), 1);
        StatsROIInformation const second = Frame({Centred(2, c.newcomerSide), Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&second, 0));
        EXPECT_EQ(priority.GetDominantID(), c.dominantID) << c.newcomerSide;
        EXPECT_EQ(priority.GetDominantIndex(), c.dominantID == 2 ? 0 : 1) << c.newcomerSide;
        EXPECT_NEAR(priority.GetScore(0), c.newcomerScore, 1e-5F) << c.newcomerSide;
        EXPECT_NEAR(priority.GetScore(1), c.incumbentScore, 1e-5F) << c.newcomerSide;
    }
}

TEST_F(ROIPriorityTest, SelectionWithoutIncumbent)
{
    // Equal scores: the lower index wins, boosted by the default enhancement without tuning.
    ASSERT_TRUE(m_priority.SetTuningData(nullptr));
    std::vector<StatsROIData> faces;
    for (int i = 0; i < static_cast<int>(MaxROICount); ++i)
        faces.push_back(Face(i + 5, 10 * static_cast<unsigned int>(i), 0, 100, 100));
    faces.back().width = 200;
    StatsROIInformation const full = Frame(faces);
    ASSERT_TRUE(m_priority.UpdateROIData(&full, 0));
    EXPECT_EQ(m_priority.GetDominantIndex(), 15);
    EXPECT_EQ(m_priority.GetDominantID(), 20);
    EXPECT_NEAR(m_priority.GetScore(15), 0.11F * std::sqrt(5.0F) / std::sqrt(2.0F), 1e-6F);
    EXPECT_NEAR(m_priority.GetScore(0), 0.1F, 1e-6F);
    EXPECT_EQ(m_priority.GetScore(16), 0.0F);
    EXPECT_EQ(m_priority.GetScore(-1), 0.0F);
    EXPECT_EQ(CountLogged(32, "FaceROI: m_dominantROIIndex 15 m_dominantROIID 20"), 1U);

    StatsROIInformation const equal = Frame({Face(5, 0, 0, 100, 100), Face(6, 800, 800, 100, 100)});
    ASSERT_TRUE(m_priority.UpdateROIData(&equal, 0));
    EXPECT_EQ(m_priority.GetDominantID(), 5);
    EXPECT_NEAR(m_priority.GetScore(0), 0.11F, 1e-6F);

    // A newcomer that scores nothing wins the walk but is no dominant; so is no ROI at all.
    for (StatsROIInformation const& frame : {Frame({Face(8, 10, 10, 0, 0)}), Frame({})}) {
        ASSERT_TRUE(m_priority.UpdateROIData(&equal, 0));
        ASSERT_TRUE(m_priority.UpdateROIData(&frame, 0));
        EXPECT_EQ(m_priority.GetDominantIndex(), -1);
        EXPECT_EQ(m_priority.GetDominantID(), -1);
        EXPECT_EQ(m_priority.GetScore(0), 0.0F);
        EXPECT_EQ(m_priority.GetScore(1), 0.0F);
    }
    ASSERT_TRUE(m_priority.UpdateROIData(&equal, 0));
    EXPECT_TRUE(m_priority.DominantROISelection(nullptr, 3));
    EXPECT_EQ(m_priority.GetDominantIndex(), -1);
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
    // Crop coordinates: the size ratio over the full diagonal, distance 0.6 from the window's
    // centre, and the size normalised by the window.
    ASSERT_TRUE(m_priority.SetLogFunction("AECFaceROI", RoiTest::RecordLine));
    EXPECT_NEAR(m_priority.ROIDominantScore(roi), 0.04F, 1e-6F);
    EXPECT_NEAR(roi.normalizedSize, 0.2F, 1e-6F);
    EXPECT_EQ(CountLogged(32, "AECFaceROI: FOVLength: 1414.213623, ROISize: 0.100000, centerX: "
                              "250.000000, centerY: 250.000000, RoiCenterX: 100.000000, "
                              "RoiCenterY: 100.000000"),
              1U);
    // Without a window, or under another name, the full image is measured.
    EXPECT_EQ(CountLogged(32, "FaceROI: FOVLength"), 0U);

    // An unset resolution reads as the unit image: the diagonal ratio is 5 / sqrt(2).
    ROIPriority unset;
    roi.width = 3.0F;
    roi.height = 4.0F;
    roi.left = roi.top = 0.0F;
    EXPECT_NEAR(unset.ROIDominantScore(roi), 5.0F / std::sqrt(2.0F), 1e-5F);
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
    EXPECT_EQ(CountLogged(2, "FaceROI: NULL input pointer"), 1U);
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

} // namespace
