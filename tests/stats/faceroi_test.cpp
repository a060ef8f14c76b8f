// SPDX-License-Identifier: Apache-2.0
// Face ROI shaping: landmark and pose factors, the temporal filter, small faces, masks, and
// faces followed over several frames.
#include <vector>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsroipriority.h"

#include "tests/stats/roitestsupport.h"

namespace {

using RoiTest::Face;
using RoiTest::Frame;
using RoiTest::Logged;
using RoiTest::LoggedLines;

struct Rect
{
    float left, top, width, height;
};

/// Asserts a ROI's rectangle, with `where` naming the case or frame.
void ExpectRect(ROIData const& roi, Rect expected, std::string const& where)
{
    EXPECT_FLOAT_EQ(roi.left, expected.left) << where;
    EXPECT_FLOAT_EQ(roi.top, expected.top) << where;
    EXPECT_FLOAT_EQ(roi.width, expected.width) << where;
    EXPECT_FLOAT_EQ(roi.height, expected.height) << where;
}

StatsROIData Posed(StatsROIData face, float yaw, float roll = 0.0F)
{
    face.poseValid = 1;
    face.yaw = yaw;
    face.roll = roll;
    return face;
}

StatsROIData Masked(StatsROIData face, unsigned int left, unsigned int top, unsigned int width,
                    unsigned int height)
{
    face.maskValid = 1;
    face.maskROI = {left, top, width, height};
    return face;
}

class FaceROIShapingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_priority.SetLogFunction("FaceROI", RoiTest::RecordLine));
        ASSERT_TRUE(m_priority.SetImageResolution(1000.0F, 1000.0F));
        m_tuning->dominantScoreEnhancement = 0.1F;
        m_tuning->partialFaceThresh = 1.0F;
        auto& shrink = m_tuning.Shrink();
        shrink.enable = 1;
        shrink.faceNum = 16;
        shrink.factorRoundingPrecision = 0.25F;
        shrink.factorFilterLength = 1;
        shrink.minShrinkFactor = 0.25F;
        shrink.minROISizeToShrink = 0.0F;
        shrink.faceMaskROIControl.maskROISizeFactor = 1.0F;
        shrink.faceMaskROIControl.minROISizeToRemoveMask[0] = 0.2F;
        shrink.faceMaskROIControl.minROISizeToRemoveMask[1] = 0.3F;
        // Any yaw shrinks by 0.75 unless a test tunes the curve otherwise.
        m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.75F}});
        ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
        LoggedLines().clear();
    }

    statsroipriority::FaceROIShrinkType::facePoseShrinkFactorStruct& Pose()
    {
        return m_tuning.Shrink().facePoseShrinkFactor;
    }

    /// Shapes one face directly, outside a frame.
    ROIData ShapeOne(StatsROIData const& face)
    {
        ROIData roi;
        roi.roiID = static_cast<uint32_t>(face.roiID);
        roi.left = static_cast<float>(face.left);
        roi.top = static_cast<float>(face.top);
        roi.width = static_cast<float>(face.width);
        roi.height = static_cast<float>(face.height);
        m_priority.AdjustOneFaceROI(roi, face);
        return roi;
    }

    /// Runs one frame and returns the processed ROIs.
    std::vector<ROIData> RunFrame(std::vector<StatsROIData> const& faces)
    {
        StatsROIInformation const information = Frame(faces);
        EXPECT_TRUE(m_priority.UpdateROIData(&information, 0));
        ROIData const* rois = nullptr;
        unsigned int count = 0;
        m_priority.GetProcessedROI(rois, count);
        return std::vector<ROIData>(rois, rois + count);
    }

    RoiTest::Tuning m_tuning;
    ROIPriority m_priority;
};

TEST_F(FaceROIShapingTest, LandmarksShrinkTheBoxByTheirMargins)
{
    m_tuning.SetLandmarks({{0, 0.5F}, {1, 0.5F}, {2, 0.5F}, {3, 0.5F}});
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.5F}});
    struct Case
    {
        char const* name;
        std::vector<StatsROIPoint> points;
        bool posed;
        Rect expected;
    };
    // Box (100, 100, 200, 200): points 50 in from the left and top and 50 in from the last
    // pixel on the right and bottom leave margins of 25 at factor 0.5: factor 0.75.
    Case const cases[] = {
        {"four inside",
         {{150, 150}, {249, 150}, {150, 249}, {249, 249}},
         false,
         {125, 125, 150, 150}},
        {"three are too few", {{150, 150}, {249, 150}, {150, 249}}, false, {100, 100, 200, 200}},
        {"zero x is absent",
         {{150, 150}, {249, 150}, {150, 249}, {0, 249}},
         false,
         {100, 100, 200, 200}},
        {"zero y is absent",
         {{150, 150}, {249, 0}, {150, 249}, {249, 249}},
         false,
         {100, 100, 200, 200}},
        {"outside the image",
         {{150, 150}, {1000, 150}, {150, 249}, {249, 249}},
         false,
         {100, 100, 200, 200}},
        // Right of the box: no margin on that side, so only the vertical factor shrinks.
        {"outside the box",
         {{150, 150}, {350, 150}, {150, 249}, {249, 249}},
         false,
         {100, 125, 200, 150}},
        // Too few landmarks: the pose factor alone applies.
        {"three with pose", {{150, 150}, {249, 150}, {150, 249}}, true, {150, 150, 100, 100}},
        // 0.75 * 0.5 quantised down to the step of 0.25.
        {"four with pose",
         {{150, 150}, {249, 150}, {150, 249}, {249, 249}},
         true,
         {175, 175, 50, 50}},
    };
    for (Case const& c : cases) {
        StatsROIData face = Face(1, 100, 100, 200, 200);
        face.landmarkCount = static_cast<uint32_t>(c.points.size());
        for (size_t i = 0; i < c.points.size(); ++i) {
            face.landmarks[i] = c.points[i];
        }
        if (c.posed) {
            face = Posed(face, 0.0F);
        }
        ExpectRect(ShapeOne(face), c.expected, c.name);
    }
    EXPECT_TRUE(Logged(32, "FaceROI: processing face landmark points (249,150) index 1 "
                           "marginFactor 0.500"));
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 1 face landmark shrinkFactor (0.750, 0.750)."));
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 1 valid face landmark number 3 is not enough, min "
                           "number 4."));
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 1 pose info is invalid!"));
}

TEST_F(FaceROIShapingTest, PoseAnglesAreFoldedIntoAQuadrant)
{
    // Roll keeps its sign; yaw and pitch are taken absolute.
    m_tuning.SetCurve(Pose().rollShrinkFactor,
                      {{-90, -10, 0.5F}, {10, 10, 0.75F}, {50, 90, 0.25F}});
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 40, 0.5F}, {45, 90, 1.0F}});
    struct Case
    {
        float roll;
        float yaw;
        Rect expected;
    };
    Case const cases[] = {
        {100.0F, 60.0F, {125, 125, 150, 150}},  // 10: 0.75
        {-100.0F, 60.0F, {150, 150, 100, 100}}, // -10: 0.5
        {190.5F, 60.0F, {125, 125, 150, 150}},  // 190 folds to 10
        {55.0F, 60.0F, {175, 175, 50, 50}},     // 0.25
        {10.0F, -30.0F, {175, 175, 50, 50}},    // 0.75 * 0.5 quantised down to 0.25
        {10.0F, -120.0F, {175, 175, 50, 50}},   // |-120| folds to 30
    };
    for (Case const& c : cases) {
        ExpectRect(ShapeOne(Posed(Face(1, 100, 100, 200, 200), c.yaw, c.roll)), c.expected,
                   std::to_string(c.roll) + "/" + std::to_string(c.yaw));
    }
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 1 roll angle -10.0 factor 0.5, yaw angle 60.0 factor "
                           "1.0, pitch angle 0.0 factor 1.0."));
}

TEST_F(FaceROIShapingTest, TemporalFilterIsASlidingMinimum)
{
    auto& shrink = m_tuning.Shrink();
    shrink.factorFilterLength = 3;
    // A fine step that is a power of two keeps 0.8 close to itself.
    shrink.factorRoundingPrecision = 1.0F / 1024.0F;
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.8F}});
    StatsROIData const face = Face(5, 100, 100, 200, 200);

    // Factors 0.8, 1.0, 1.0: the window keeps 0.8 for three frames, then lets go.
    struct Step
    {
        bool posed;
        Rect expected;
        size_t length;
    };
    Step const steps[] = {
        {true, {120, 120, 160, 160}, 1},
        {false, {120, 120, 160, 160}, 2},
        {false, {120, 120, 160, 160}, 3},
        {false, {100, 100, 200, 200}, 3},
    };
    int frame = 0;
    for (Step const& step : steps) {
        std::vector<ROIData> const rois = RunFrame({step.posed ? Posed(face, 0.0F) : face});
        ASSERT_EQ(rois.size(), 1U);
        ExpectRect(rois[0], step.expected, "frame " + std::to_string(++frame));
        ASSERT_EQ(m_priority.GetShrinkFactors().count(5), 1U);
        auto const& history = m_priority.GetShrinkFactors().at(5);
        EXPECT_EQ(history.widthFactors.size(), step.length);
        EXPECT_EQ(history.heightFactors.size(), step.length);
        EXPECT_EQ(history.updated, 1U);
    }
    EXPECT_NEAR(m_priority.GetShrinkFactors().at(5).widthFactors.front(), 1.0F, 1e-6F);

    // A face missing for one frame loses its filter and starts afresh.
    RunFrame({Posed(face, 0.0F)});
    RunFrame({Face(6, 500, 500, 100, 100)});
    EXPECT_EQ(m_priority.GetShrinkFactors().count(5), 0U);
    ExpectRect(RunFrame({face})[0], {100, 100, 200, 200}, "back after a gap");

    // Length 0 keeps no history: the factors pass unchanged.
    shrink.factorFilterLength = 0;
    ExpectRect(RunFrame({Posed(face, 0.0F)})[0], {120, 120, 160, 160}, "length 0, posed");
    ExpectRect(RunFrame({face})[0], {100, 100, 200, 200}, "length 0, plain");
    EXPECT_TRUE(m_priority.GetShrinkFactors().at(5).widthFactors.empty());
}

TEST_F(FaceROIShapingTest, SmallFacesAreSpared)
{
    auto& shrink = m_tuning.Shrink();
    shrink.minROISizeToShrink = 0.1F;
    struct Case
    {
        unsigned int side;
        int sizeInCrop;
        Rect expected;
    };
    // Factor 0.75: below 0.1 no shrink, above 0.1 / 0.75 full, a straight line between.
    Case const cases[] = {
        {50, 0, {100, 100, 50, 50}},
        {120, 0, {109, 109, 102, 102}},
        {200, 0, {125, 125, 150, 150}},
        {70, 0, {100, 100, 70, 70}},
        // Measured in a 500-pixel crop window the face is twice as large.
        {70, 1, {109, 109, 53, 53}},
    };
    // Without a crop window the whole image is the window: nothing is zoomed.
    shrink.roiSizeInCropWindow = 1;
    ExpectRect(ShapeOne(Posed(Face(2, 100, 100, 70, 70), 0.0F)), {100, 100, 70, 70},
               "no crop window");
    ASSERT_TRUE(m_priority.SetCropWindow(0.0F, 0.0F, 500.0F, 500.0F));
    for (Case const& c : cases) {
        shrink.roiSizeInCropWindow = c.sizeInCrop;
        ExpectRect(ShapeOne(Posed(Face(2, 100, 100, c.side, c.side), 0.0F)), c.expected,
                   "side " + std::to_string(c.side));
        // The filter records the factor even where it was not applied.
        EXPECT_FLOAT_EQ(m_priority.GetShrinkFactors().at(2).widthFactors.back(), 0.75F);
    }
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 2 handling small ROI normROISize (0.1200 0.1200) "
                           "thres start 0.1000 end 0.1333."));
}

TEST_F(FaceROIShapingTest, MaskRemovalHasHysteresis)
{
    m_tuning.Shrink().faceMaskROIControl.enableMaskROIAdjustment = 1;
    // No pose: factor 1.0, so the size is the box's share of the image. The mask covers the
    // box from y 300 down, so the strip above it is kept.
    struct Step
    {
        unsigned int side;
        uint32_t removed;
        Rect expected;
    };
    Step const steps[] = {
        {250, 0, {100, 100, 250, 250}}, // 0.25: not above 0.3
        {350, 1, {100, 100, 350, 200}}, // above 0.3: cut
        {250, 1, {100, 100, 250, 200}}, // 0.25: still at least 0.2
        {150, 0, {100, 100, 150, 150}}, // below 0.2: stops
        {250, 0, {100, 100, 250, 250}}, // 0.25: must rise above 0.3 again
    };
    int frame = 0;
    for (Step const& step : steps) {
        StatsROIData const face =
            Masked(Face(4, 100, 100, step.side, step.side), 100, 300, step.side, 400);
        std::vector<ROIData> const rois = RunFrame({face});
        ASSERT_EQ(rois.size(), 1U);
        std::string const where = "frame " + std::to_string(++frame);
        EXPECT_EQ(rois[0].maskRemoved, step.removed) << where;
        ExpectRect(rois[0], step.expected, where);
    }
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 4 skip mask removal due to small ROI size 0.250, "
                           "thres (0.200 0.300), prevRemoved 0."));
    EXPECT_TRUE(Logged(32, "FaceROI: faceID 4 inputROI (100.0,100.0,350.0,350.0) maskROI "
                           "(100.0,300.0,350.0,400.0) outROI (100.0  100.0 350.0 200.0)."));

    // An invalid mask is never cut, however large the face.
    std::vector<ROIData> rois = RunFrame({Face(4, 100, 100, 400, 400)});
    EXPECT_EQ(rois[0].maskRemoved, 0U);
    ExpectRect(rois[0], {100, 100, 400, 400}, "mask not valid");

    // A mask over the whole box leaves a zero rectangle, and the ROI stays in the array.
    rois =
        RunFrame({Masked(Face(4, 100, 100, 350, 350), 0, 0, 600, 600), Face(8, 700, 700, 10, 10)});
    ASSERT_EQ(rois.size(), 2U);
    EXPECT_EQ(rois[0].maskRemoved, 1U);
    ExpectRect(rois[0], {0, 0, 0, 0}, "covered");
}

TEST_F(FaceROIShapingTest, MaskKeepsTheLargestStripBesideIt)
{
    auto& mask = m_tuning.Shrink().faceMaskROIControl;
    mask.enableMaskROIAdjustment = 1;
    struct Case
    {
        char const* name;
        float sizeFactor;
        StatsROIRectangle maskROI;
        Rect expected;
    };
    // Box (100, 100, 400, 400); the size 0.4 is above the removal threshold.
    Case const cases[] = {
        {"left column masked", 1.0F, {100, 100, 100, 400}, {200, 100, 300, 400}},
        {"right column masked", 1.0F, {400, 100, 100, 400}, {100, 100, 300, 400}},
        {"lower half masked", 1.0F, {100, 300, 400, 200}, {100, 100, 400, 200}},
        {"upper half masked", 1.0F, {100, 100, 400, 150}, {100, 250, 400, 250}},
        // Scaled to half about its centre: (150..250, 200..400); the right strip is largest.
        {"scaled mask", 0.5F, {100, 100, 200, 400}, {250, 100, 250, 400}},
        // Equal left and right strips: the right one, tested first, stays.
        {"centre column", 1.0F, {250, 100, 100, 400}, {350, 100, 150, 400}},
        // Edges are kept inside the image: the mask's right edge stops at the last pixel.
        {"past the image", 1.0F, {300, 100, 900, 400}, {100, 100, 200, 400}},
    };
    for (Case const& c : cases) {
        mask.maskROISizeFactor = c.sizeFactor;
        StatsROIData const face = Masked(Face(3, 100, 100, 400, 400), c.maskROI.left, c.maskROI.top,
                                         c.maskROI.width, c.maskROI.height);
        ROIData const roi = ShapeOne(face);
        EXPECT_EQ(roi.maskRemoved, 1U) << c.name;
        ExpectRect(roi, c.expected, c.name);
    }
}

TEST_F(FaceROIShapingTest, TwoFacesThroughAppearanceSwapAndDisappearance)
{
    auto& shrink = m_tuning.Shrink();
    shrink.faceNum = 2;
    shrink.factorFilterLength = 2;
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 10, 1.0F}, {30, 90, 0.5F}});
    StatsROIData const a = Face(7, 100, 100, 200, 200);
    StatsROIData const b = Face(3, 600, 600, 300, 300);

    struct Expected
    {
        int dominantID;
        int dominantIndex;
        std::vector<Rect> rects;
        size_t histories;
    };
    struct Step
    {
        std::vector<StatsROIData> faces;
        Expected expected;
    };
    Step const steps[] = {
        // Both appear; B is larger and dominant. B turned away shrinks to half.
        {{Posed(a, 0), Posed(b, 40)}, {3, 1, {{100, 100, 200, 200}, {675, 675, 150, 150}}, 2}},
        // Swapped positions: the filters follow the IDs. B faces front but its window still holds
        // 0.5; A turns away and shrinks at once.
        {{Posed(b, 0), Posed(a, 40)}, {3, 0, {{675, 675, 150, 150}, {150, 150, 100, 100}}, 2}},
        // A leaves: B's window now holds 1.0 twice, and A's history is gone.
        {{Posed(b, 0)}, {3, 0, {{600, 600, 300, 300}}, 1}},
        // A returns larger and takes the lead; its filter starts empty, so no old 0.5 holds it.
        {{Posed(Face(7, 100, 100, 400, 400), 0), Posed(b, 0)},
         {7, 0, {{100, 100, 400, 400}, {600, 600, 300, 300}}, 2}},
        // Nobody: no dominant, no history.
        {{}, {-1, -1, {}, 0}},
    };
    int frame = 0;
    for (Step const& step : steps) {
        std::string const where = "frame " + std::to_string(++frame);
        std::vector<ROIData> const rois = RunFrame(step.faces);
        EXPECT_EQ(m_priority.GetDominantID(), step.expected.dominantID) << where;
        EXPECT_EQ(m_priority.GetDominantIndex(), step.expected.dominantIndex) << where;
        ASSERT_EQ(rois.size(), step.expected.rects.size()) << where;
        for (size_t i = 0; i < rois.size(); ++i) {
            EXPECT_EQ(rois[i].roiID, static_cast<uint32_t>(step.faces[i].roiID)) << where;
            ExpectRect(rois[i], step.expected.rects[i], where + " ROI " + std::to_string(i));
        }
        EXPECT_EQ(m_priority.GetShrinkFactors().size(), step.expected.histories) << where;
    }
}

TEST_F(FaceROIShapingTest, FaceLimitShapesTheDominantFaceFirst)
{
    m_tuning.Shrink().faceNum = 1;
    StatsROIData const a = Posed(Face(7, 100, 100, 200, 200), 0);
    StatsROIData const b = Posed(Face(3, 600, 600, 300, 300), 0);
    std::vector<ROIData> rois = RunFrame({a, b});
    ExpectRect(rois[0], {100, 100, 200, 200}, "not shaped");
    ExpectRect(rois[1], {638, 638, 225, 225}, "dominant shaped");
    EXPECT_EQ(m_priority.GetShrinkFactors().size(), 1U);
    EXPECT_EQ(m_priority.GetShrinkFactors().count(3), 1U);

    // With no dominant face the walk starts at the first ROI.
    m_priority.Clear();
    StatsROIInformation const information = Frame({a, b});
    ROIData direct[MaxROICount];
    ASSERT_TRUE(m_priority.ConvertToROIData(&information, direct, 0, 1.0F));
    m_priority.ShrinkFaceROI(direct, 2, &information);
    ExpectRect(direct[0], {125, 125, 150, 150}, "first shaped");
    ExpectRect(direct[1], {600, 600, 300, 300}, "second not shaped");
    EXPECT_EQ(m_priority.GetShrinkFactors().count(3), 0U);
}

TEST_F(FaceROIShapingTest, BadInputNeverShapesOrCrashes)
{
    auto& shrink = m_tuning.Shrink();
    StatsROIData const face = Posed(Face(1, 100, 100, 200, 200), 0);
    ASSERT_EQ(RunFrame({face}).size(), 1U);
    ASSERT_EQ(m_priority.GetShrinkFactors().size(), 1U);

    // Shaping off, no faces to shape, or no tuning: every history goes, boxes stay.
    shrink.faceNum = 0;
    ExpectRect(RunFrame({face})[0], {100, 100, 200, 200}, "face limit 0");
    EXPECT_TRUE(m_priority.GetShrinkFactors().empty());
    shrink.faceNum = 16;
    RunFrame({face});
    shrink.enable = 0;
    ExpectRect(RunFrame({face})[0], {100, 100, 200, 200}, "shaping off");
    EXPECT_TRUE(m_priority.GetShrinkFactors().empty());
    shrink.enable = 1;
    RunFrame({face});
    ASSERT_TRUE(m_priority.SetTuningData(nullptr));
    ExpectRect(RunFrame({face})[0], {100, 100, 200, 200}, "no tuning");
    EXPECT_TRUE(m_priority.GetShrinkFactors().empty());
    ASSERT_TRUE(m_priority.SetTuningData(m_tuning.Get()));
    RunFrame({face});
    m_priority.ShrinkFaceROI(nullptr, 1, nullptr);
    EXPECT_TRUE(m_priority.GetShrinkFactors().empty());

    // A landmark index past the record's points and a count past the array are ignored.
    m_tuning.SetLandmarks({{40, 0.5F}, {1, 0.5F}, {2, 1.5F}, {3, -0.1F}});
    StatsROIData wild = Face(1, 100, 100, 200, 200);
    wild.landmarkCount = 1000;
    for (StatsROIPoint& point : wild.landmarks) {
        point = {150, 150};
    }
    ExpectRect(ShapeOne(wild), {100, 100, 200, 200}, "wild landmarks");

    // A rounding step of 0 leaves the factor unquantised instead of dividing by zero.
    shrink.factorRoundingPrecision = 0.0F;
    m_tuning.SetCurve(Pose().yawShrinkFactor, {{0, 90, 0.8F}});
    ExpectRect(ShapeOne(face), {120, 120, 160, 160}, "step 0");

    // The final rounding keeps the box inside the image.
    ExpectRect(ShapeOne(Face(1, 900, 950, 200, 200)), {900, 950, 100, 50}, "over the edge");
    ExpectRect(ShapeOne(Face(1, 1200, 100, 50, 50)), {1000, 100, 0, 50}, "past the edge");
}

} // namespace
