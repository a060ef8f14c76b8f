// SPDX-License-Identifier: Apache-2.0
// ROIPriority: tuned curves, scoring in image and crop coordinates, dominant hysteresis, and the
// face shaping: landmark and pose factors, the temporal filter, small faces, masks, the face
// limit and bad input.
#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/roifixtures.h"

namespace {

using namespace RoiTest;

class ROIPriorityTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        LoggedLines().clear();
        ASSERT_TRUE(m_priority.SetLogFunction("FaceROI", RecordLine));
        ASSERT_TRUE(m_priority.SetImageResolution(1000.0F, 1000.0F));
        m_tuning->dominantScoreEnhancement = 0.1F;
        m_tuning->partialFaceThresh = 0.5F;
        Tune();
        ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
        LoggedLines().clear();
    }

    /// Tuning a derived fixture adds before it is set.
    virtual void Tune() {}

    /// A square face centred in the 1000 x 1000 image: its plain score is side / 1000.
    static StatsROIData Centred(int id, unsigned int side)
    {
        return Face(id, 500 - side / 2, 500 - side / 2, side, side);
    }

    Tuning m_tuning;
    ROIPriority m_priority;
};

TEST_F(ROIPriorityTest, TriggeredValueHoldsInBandsAndInterpolatesBetween)
{
    std::tuple<std::vector<Band>, float, float> const cases[] = {
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
    for (auto const& [bands, value, expected] : cases) {
        statsroipriority::modFaceRoiTriggerDataType curve = {};
        m_tuning.SetCurve(curve, bands);
        EXPECT_FLOAT_EQ(m_priority.GetTriggeredValue(&curve, value, -1.0F), expected) << value;
    }
    EXPECT_TRUE(LoggedLines().empty());
    statsroipriority::modFaceRoiTriggerDataType empty = {};
    EXPECT_EQ(m_priority.GetTriggeredValue(&empty, 3.0F, 0.25F), 0.25F);
    EXPECT_EQ(m_priority.GetTriggeredValue(nullptr, 3.0F, -1.0F), -1.0F);
    EXPECT_EQ(CountLogged(2, "FaceROI: zero tuning entry"), 2U);
}

TEST_F(ROIPriorityTest, IncumbentKeepsItsPlaceWithinTheEnhancement)
{
    // The incumbent scores 0.50 and competes as 0.55; a newcomer needs more than that.
    for (auto [side, dominant, newcomerScore, incumbentScore] :
         {std::tuple{540u, 1, 0.54F, 0.55F}, {560u, 2, 0.616F, 0.50F}}) {
        ROIPriority priority;
        ASSERT_TRUE(priority.SetImageResolution(1000.0F, 1000.0F));
        ASSERT_TRUE(priority.SetTuningData(m_tuning.Get()));
        StatsROIInformation const first = Frame({Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&first, 0));
        ASSERT_EQ(priority.GetDominantID(), 1);
        StatsROIInformation const second = Frame({Centred(2, side), Centred(1, 500)});
        ASSERT_TRUE(priority.UpdateROIData(&second, 0));
        EXPECT_EQ(priority.GetDominantID(), dominant) << side;
        EXPECT_EQ(priority.GetDominantIndex(), dominant == 2 ? 0 : 1) << side;
        EXPECT_NEAR(priority.GetScore(0), newcomerScore, 1e-5F) << side;
        EXPECT_NEAR(priority.GetScore(1), incumbentScore, 1e-5F) << side;
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
    EXPECT_NEAR(m_priority.GetScore(15), 0.173925F, 1e-6F); // 0.11 * sqrt(5 / 2)
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
    ROIData roi = Box(300.0F, 300.0F, 100.0F, 100.0F);
    // Image coordinates: size 0.1, distance 0.3 from the image centre.
    EXPECT_NEAR(m_priority.ROIDominantScore(roi), 0.07F, 1e-6F);
    EXPECT_NEAR(roi.normalizedSize, 0.1F, 1e-6F);
    // Crop coordinates: the size ratio over the full diagonal, distance 0.6 from the window's
    // centre, and the size normalised by the window.
    ASSERT_TRUE(m_priority.SetLogFunction("AECFaceROI", RecordLine));
    EXPECT_NEAR(m_priority.ROIDominantScore(roi), 0.04F, 1e-6F);
    EXPECT_NEAR(roi.normalizedSize, 0.2F, 1e-6F);
    EXPECT_EQ(CountLogged(
                  32, "AECFaceROI: FOVLength: 1414.213623, ROISize: 0.100000, centerX: 250.000000, "
                      "centerY: 250.000000, RoiCenterX: 100.000000, RoiCenterY: 100.000000"),
              1U);
    // Without a window, or under another name, the full image is measured.
    EXPECT_EQ(CountLogged(32, "FaceROI: FOVLength"), 0U);

    // An unset resolution reads as the unit image: the diagonal ratio is 5 / sqrt(2).
    ROIPriority unset;
    roi = Box(0.0F, 0.0F, 3.0F, 4.0F);
    EXPECT_NEAR(unset.ROIDominantScore(roi), 3.535534F, 1e-5F);
}

TEST_F(ROIPriorityTest, UpdateUsesTheClampedPartialThreshold)
{
    ROIPriority priority;
    ASSERT_TRUE(priority.SetImageResolution(2000.0F, 2000.0F));
    ASSERT_TRUE(priority.SetCropWindow(0.0F, 0.0F, 1000.0F, 1000.0F));
    // Overhanging the window's bottom by half and by three quarters of their heights.
    StatsROIInformation const frame =
        Frame({Face(1, 100, 900, 100, 200), Face(2, 300, 950, 100, 200)});
    for (auto [tuned, threshold, kept] : {std::tuple{false, 0.0F, 1u},
                                          {true, 0.4F, 0u},
                                          {true, -0.3F, 0u},
                                          {true, 1.7F, 2u},
                                          {true, 0.75F, 2u}}) {
        m_tuning->partialFaceThresh = threshold;
        ASSERT_TRUE(priority.SetTuningData(tuned ? m_tuning.Get() : nullptr));
        ASSERT_TRUE(priority.UpdateROIData(&frame, 1));
        EXPECT_EQ(priority.Size(), kept) << tuned << " " << threshold;
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
    EXPECT_NEAR(m_priority.GetROI(1).normalizedSize, 0.3F, 1e-6F);

    // Clear forgets dominant and reference but keeps the scores.
    m_priority.Clear();
    EXPECT_EQ(m_priority.GetDominantID(), -1);
    EXPECT_EQ(m_priority.GetDominantIndex(), -1);
    EXPECT_FALSE(m_priority.IsDominantIDChange());
    EXPECT_EQ(m_priority.GetROI(1).roiID, 0U);
    EXPECT_NEAR(m_priority.GetScore(1), 0.33F, 1e-5F);
}

StatsROIData Posed(StatsROIData face, float yaw, float roll = 0.0F)
{
    face.poseValid = 1;
    face.yaw = yaw;
    face.roll = roll;
    return face;
}

StatsROIData Masked(StatsROIData face, StatsROIRectangle mask)
{
    face.maskValid = 1;
    face.maskROI = mask;
    return face;
}

class FaceROIShapingTest : public ROIPriorityTest
{
protected:
    void Tune() override
    {
        m_tuning->partialFaceThresh = 1.0F;
        auto& shrink = m_tuning.Shrink();
        shrink.enable = 1;
        shrink.faceNum = 16;
        shrink.factorRoundingPrecision = 0.25F;
        shrink.factorFilterLength = 1;
        shrink.minShrinkFactor = 0.25F;
        shrink.faceMaskROIControl.maskROISizeFactor = 1.0F;
        shrink.faceMaskROIControl.minROISizeToRemoveMask[0] = 0.2F;
        shrink.faceMaskROIControl.minROISizeToRemoveMask[1] = 0.3F;
        // Any yaw shrinks by 0.75 unless a test tunes the curve otherwise.
        m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.75F}});
    }

    statsroipriority::FaceROIShrinkType::facePoseShrinkFactorStruct& Pose()
    {
        return m_tuning.Shrink().facePoseShrinkFactor;
    }

    /// Shapes one face directly, outside a frame.
    Rect ShapeOne(StatsROIData const& face, uint32_t* maskRemoved = nullptr)
    {
        ROIData roi = Box(face.left, face.top, face.width, face.height, face.roiID);
        m_priority.AdjustOneFaceROI(roi, face);
        if (maskRemoved != nullptr)
            *maskRemoved = roi.maskRemoved;
        return RectOf(roi);
    }

    /// Runs one frame and returns the processed ROIs.
    std::vector<ROIData> RunFrame(std::vector<StatsROIData> const& faces)
    {
        StatsROIInformation const information = Frame(faces);
        EXPECT_TRUE(m_priority.UpdateROIData(&information, 0));
        return std::vector<ROIData>(m_priority.GetROIs(), m_priority.GetROIs() + m_priority.Size());
    }
};

TEST_F(FaceROIShapingTest, LandmarksAndPoseShrinkTheBox)
{
    m_tuning.SetLandmarks({{0, 0.5F}, {1, 0.5F}, {2, 0.5F}, {3, 0.5F}});
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.5F}});
    // Box (100, 100, 200, 200): points 50 in from the left and top and 50 in from the last pixel
    // on the right and bottom leave margins of 25 at factor 0.5: factor 0.75.
    std::tuple<std::vector<StatsROIPoint>, bool, Rect> const cases[] = {
        {{{150, 150}, {249, 150}, {150, 249}, {249, 249}}, false, {125, 125, 150, 150}},
        // Further in from the left and top: the right and bottom margins are the smaller.
        {{{170, 170}, {249, 170}, {170, 249}, {249, 249}}, false, {125, 125, 150, 150}},
        {{{150, 150}, {249, 150}, {150, 249}}, false, {100, 100, 200, 200}}, // too few
        {{{150, 150}, {249, 150}, {150, 249}, {0, 249}}, false, {100, 100, 200, 200}},
        {{{150, 150}, {249, 0}, {150, 249}, {249, 249}}, false, {100, 100, 200, 200}},
        {{{150, 150}, {1000, 150}, {150, 249}, {249, 249}}, false, {100, 100, 200, 200}},
        {{{150, 150}, {150, 1000}, {150, 249}, {249, 249}}, false, {100, 100, 200, 200}},
        // Right of the box: no margin on that side, so only the vertical factor shrinks.
        {{{150, 150}, {350, 150}, {150, 249}, {249, 249}}, false, {100, 125, 200, 150}},
        // On the top edge: the same for the horizontal factor.
        {{{150, 100}, {249, 150}, {150, 249}, {249, 249}}, false, {125, 100, 150, 200}},
        {{{150, 150}, {249, 150}, {150, 249}}, true, {150, 150, 100, 100}}, // pose alone
        // 0.75 * 0.5 quantised down to the step of 0.25.
        {{{150, 150}, {249, 150}, {150, 249}, {249, 249}}, true, {175, 175, 50, 50}},
    };
    for (auto const& [points, posed, expected] : cases) {
        StatsROIData face = Face(1, 100, 100, 200, 200);
        face.landmarkCount = static_cast<uint32_t>(points.size());
        std::copy(points.begin(), points.end(), face.landmarks);
        EXPECT_EQ(ShapeOne(posed ? Posed(face, 0.0F) : face), expected) << points[1].x;
    }
    EXPECT_EQ(CountLogged(32, "FaceROI: faceID 1 face landmark shrinkFactor (0.750, 0.750)."), 3U);
    // The shaping steps log as the function they were cut from; untuned curves say so.
    for (LoggedLine const& line : LoggedLines())
        EXPECT_EQ(line.function, line.text == "FaceROI: zero tuning entry" ? "GetTriggeredValue"
                                                                           : "AdjustOneFaceROI")
            << line.text;
}

TEST_F(FaceROIShapingTest, PoseAnglesAreFoldedIntoAQuadrant)
{
    // Roll keeps its sign; yaw and pitch are taken absolute.
    m_tuning.SetCurve(Pose().rollShrinkFactor,
                      {{-90, -10, 0.5F}, {10, 10, 0.75F}, {50, 90, 0.25F}});
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 40, 0.5F}, {45, 90, 1.0F}});
    std::tuple<float, float, Rect> const cases[] = {
        {100.0F, 60.0F, {125, 125, 150, 150}},  // 10: 0.75
        {-100.0F, 60.0F, {150, 150, 100, 100}}, // -10: 0.5
        {190.5F, 60.0F, {125, 125, 150, 150}},  // 190 folds to 10
        {55.0F, 60.0F, {175, 175, 50, 50}},     // 0.25
        {10.0F, -120.0F, {175, 175, 50, 50}},   // |-120| folds to 30: 0.75 * 0.5, quantised
    };
    for (auto const& [roll, yaw, expected] : cases)
        EXPECT_EQ(ShapeOne(Posed(Face(1, 100, 100, 200, 200), yaw, roll)), expected) << roll;
    EXPECT_EQ(CountLogged(32, "FaceROI: faceID 1 roll angle -10.0 factor 0.5, yaw angle 60.0 "
                              "factor 1.0, pitch angle 0.0 factor 1.0."),
              1U);
}

TEST_F(FaceROIShapingTest, TemporalFilterIsASlidingMinimumPerFace)
{
    auto& shrink = m_tuning.Shrink();
    shrink.factorFilterLength = 3;
    shrink.factorRoundingPrecision = 1.0F / 1024.0F;
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.8F}});
    StatsROIData const face = Face(5, 100, 100, 200, 200);
    Rect const shrunk = {120, 120, 160, 160};
    Rect const whole = {100, 100, 200, 200};
    // Factors 0.8, 1.0, 1.0, 1.0: the window of three keeps 0.8 for three frames, then lets go.
    std::pair<bool, Rect> const steps[] = {
        {true, shrunk}, {false, shrunk}, {false, shrunk}, {false, whole}};
    for (auto const& [posed, expected] : steps)
        EXPECT_EQ(RectOf(RunFrame({posed ? Posed(face, 0.0F) : face})[0]), expected) << posed;
    // A face missing for one frame loses its filter and starts afresh.
    RunFrame({Posed(face, 0.0F)});
    RunFrame({Face(6, 500, 500, 100, 100)});
    EXPECT_EQ(RectOf(RunFrame({face})[0]), whole);
    // Length 0 keeps no history: the factors pass unchanged.
    shrink.factorFilterLength = 0;
    EXPECT_EQ(RectOf(RunFrame({Posed(face, 0.0F)})[0]), shrunk);
    EXPECT_EQ(RectOf(RunFrame({face})[0]), whole);
}

TEST_F(FaceROIShapingTest, SmallFacesAreSpared)
{
    auto& shrink = m_tuning.Shrink();
    shrink.minROISizeToShrink = 0.1F;
    // Without a crop window the whole image is the window: nothing is zoomed.
    shrink.roiSizeInCropWindow = 1;
    EXPECT_EQ(ShapeOne(Posed(Face(2, 100, 100, 70, 70), 0.0F)), (Rect{100, 100, 70, 70}));
    ASSERT_TRUE(m_priority.SetCropWindow(0.0F, 0.0F, 500.0F, 500.0F));
    // Factor 0.75: below 0.1 no shrink, above 0.1 / 0.75 full, a straight line between; measured
    // in a 500-pixel crop window a face is twice as large.
    std::tuple<unsigned int, int, Rect> const cases[] = {
        {100, 0, {100, 100, 100, 100}}, {120, 0, {109, 109, 102, 102}},
        {133, 0, {116, 116, 100, 100}}, {200, 0, {125, 125, 150, 150}},
        {70, 1, {109, 109, 53, 53}},
    };
    for (auto const& [side, inCrop, expected] : cases) {
        shrink.roiSizeInCropWindow = inCrop;
        EXPECT_EQ(ShapeOne(Posed(Face(2, 100, 100, side, side), 0.0F)), expected) << side;
    }
    EXPECT_EQ(CountLogged(32, "FaceROI: faceID 2 handling small ROI normROISize (0.1200 0.1200) "
                              "thres start 0.1000 end 0.1333."),
              2U);
}

TEST_F(FaceROIShapingTest, MaskIsCutWithHysteresisKeepingTheLargestStrip)
{
    auto& mask = m_tuning.Shrink().faceMaskROIControl;
    mask.enableMaskROIAdjustment = 1;
    // No pose: the size is the box's share of the image. The mask covers the box from y 300
    // down: removal starts above 0.3 and goes on down to 0.2.
    std::tuple<unsigned int, uint32_t, Rect> const steps[] = {
        {300, 0, {100, 100, 300, 300}}, {350, 1, {100, 100, 350, 200}},
        {200, 1, {100, 100, 200, 200}}, {199, 0, {100, 100, 199, 199}},
        {250, 0, {100, 100, 250, 250}},
    };
    for (auto const& [side, removed, expected] : steps) {
        ROIData const roi = RunFrame({Masked(Face(4, 100, 100, side, side), {100, 300, side, 400}),
                                      Face(8, 900, 900, 10, 10)})[0];
        EXPECT_EQ(roi.maskRemoved, removed) << side;
        EXPECT_EQ(RectOf(roi), expected) << side;
    }
    EXPECT_EQ(CountLogged(32, "FaceROI: faceID 4 inputROI (100.0,100.0,350.0,350.0) maskROI "
                              "(100.0,300.0,350.0,400.0) outROI (100.0  100.0 350.0 200.0)."),
              1U);
    // An invalid mask is never cut.
    EXPECT_EQ(RunFrame({Face(4, 100, 100, 400, 400)})[0].maskRemoved, 0U);

    // Box (100, 100, 400, 400): the strip kept beside the (scaled) mask; on a tie the right one,
    // tested first, stays; mask edges stop at the image; a mask over the box leaves nothing.
    std::tuple<float, StatsROIRectangle, Rect> const strips[] = {
        {1.0F, {100, 100, 100, 400}, {200, 100, 300, 400}},
        {1.0F, {400, 100, 100, 400}, {100, 100, 300, 400}},
        {1.0F, {100, 300, 400, 200}, {100, 100, 400, 200}},
        {1.0F, {100, 100, 400, 150}, {100, 250, 400, 250}},
        {0.5F, {100, 100, 200, 400}, {250, 100, 250, 400}},
        {1.0F, {250, 100, 100, 400}, {350, 100, 150, 400}},
        {1.0F, {300, 100, 900, 400}, {100, 100, 200, 400}},
        {1.0F, {0, 0, 600, 600}, {0, 0, 0, 0}},
    };
    for (auto const& [factor, maskROI, expected] : strips) {
        mask.maskROISizeFactor = factor;
        uint32_t removed = 0;
        EXPECT_EQ(ShapeOne(Masked(Face(3, 100, 100, 400, 400), maskROI), &removed), expected);
        EXPECT_EQ(removed, 1U);
    }
}

TEST_F(FaceROIShapingTest, FaceLimitShapesTheDominantFaceFirst)
{
    m_tuning.Shrink().faceNum = 1;
    StatsROIData const a = Posed(Face(7, 100, 100, 200, 200), 0);
    StatsROIData const b = Posed(Face(3, 600, 600, 300, 300), 0);
    std::vector<ROIData> const rois = RunFrame({a, b});
    EXPECT_EQ(RectOf(rois[0]), (Rect{100, 100, 200, 200}));
    EXPECT_EQ(RectOf(rois[1]), (Rect{638, 638, 225, 225}));

    // With no dominant face the walk starts at the first ROI.
    m_priority.Clear();
    StatsROIInformation const information = Frame({a, b});
    ROIData direct[MaxROICount];
    ASSERT_TRUE(m_priority.ConvertToROIData(&information, direct, 0, 1.0F));
    m_priority.ShrinkFaceROI(direct, 2, &information);
    EXPECT_EQ(RectOf(direct[0]), (Rect{125, 125, 150, 150}));
    EXPECT_EQ(RectOf(direct[1]), (Rect{600, 600, 300, 300}));
}

TEST_F(FaceROIShapingTest, BadInputNeverShapesOrCrashes)
{
    auto& shrink = m_tuning.Shrink();
    StatsROIData const face = Posed(Face(1, 100, 100, 200, 200), 0);
    Rect const whole = {100, 100, 200, 200};
    // Shaping off, no faces to shape, or no tuning: every history goes, boxes stay.
    for (int variant = 0; variant < 4; ++variant) {
        shrink.faceNum = 16;
        shrink.enable = 1;
        ASSERT_EQ(RunFrame({face}).size(), 1U);
        ASSERT_EQ(m_priority.GetShrinkFactors().size(), 1U);
        shrink.faceNum = variant == 0 ? 0 : 16;
        shrink.enable = variant == 1 ? 0 : 1;
        ASSERT_TRUE(m_priority.SetTuningData(variant == 2 ? nullptr : m_tuning.Get()));
        if (variant == 3)
            m_priority.ShrinkFaceROI(nullptr, 1, nullptr);
        else
            EXPECT_EQ(RectOf(RunFrame({face})[0]), whole) << variant;
        EXPECT_TRUE(m_priority.GetShrinkFactors().empty()) << variant;
        ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
    }

    // A landmark index past the record's points (12 and on, whatever the count says) and a
    // margin outside [0, 1] are ignored: three usable landmarks are too few. Behind the points
    // lie the count and the carried value, which would read as a usable point (200, 150).
    m_tuning.SetLandmarks(
        {{40, 0.5F}, {1, 0.5F}, {2, 0.5F}, {11, 0.5F}, {12, 0.5F}, {3, 1.5F}, {4, -0.1F}});
    StatsROIData wild = Face(1, 100, 100, 200, 200);
    wild.landmarkCount = 200;
    wild.carriedValue = 150;
    for (StatsROIPoint& point : wild.landmarks)
        point = {150, 150};
    EXPECT_EQ(ShapeOne(wild), whole);
    // A rounding step of 0 leaves the factor unquantised instead of dividing by zero.
    shrink.factorRoundingPrecision = 0.0F;
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.8F}});
    EXPECT_EQ(ShapeOne(face), (Rect{120, 120, 160, 160}));
    // The final rounding keeps the box inside the image.
    EXPECT_EQ(ShapeOne(Face(1, 900, 950, 200, 200)), (Rect{900, 950, 100, 50}));
    EXPECT_EQ(ShapeOne(Face(1, 1200, 1100, 50, 50)), (Rect{1000, 1000, 0, 0}));
}

} // namespace
