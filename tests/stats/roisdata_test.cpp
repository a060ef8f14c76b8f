// SPDX-License-Identifier: Apache-2.0
// ROIsData: coordinates, checked setters, input conversion and partial-ROI trimming.
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "stats/statsalgo/common/vornstatsroidata.h"

#include "tests/stats/roitestsupport.h"

namespace {

using RoiTest::Face;
using RoiTest::Frame;
using RoiTest::Logged;
using RoiTest::LoggedLines;

class ROIsDataTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        LoggedLines().clear();
        ASSERT_TRUE(m_rois.SetLogFunction("FaceROI", RoiTest::RecordLine));
    }

    ROIsData m_rois;
};

TEST_F(ROIsDataTest, StartEmptyWithUnitGainAndClampedGetters)
{
    ROIsData rois;
    EXPECT_EQ(rois.Size(), 0U);
    EXPECT_STREQ(rois.GetName(), "Unknown");
    EXPECT_EQ(rois.GetLogFunction(), nullptr);
    EXPECT_FLOAT_EQ(rois.GetAECGain(), 1.0F);
    // Unset sizes read as 1.0 so that callers can divide by them.
    EXPECT_FLOAT_EQ(rois.GetWidth(), 1.0F);
    EXPECT_FLOAT_EQ(rois.GetHeight(), 1.0F);
    EXPECT_FLOAT_EQ(rois.GetCropWidth(), 1.0F);
    EXPECT_FLOAT_EQ(rois.GetCropHeight(), 1.0F);
    ASSERT_TRUE(rois.SetImageResolution(0.5F, 640.0F));
    EXPECT_FLOAT_EQ(rois.GetWidth(), 1.0F);
    EXPECT_FLOAT_EQ(rois.GetHeight(), 640.0F);
    // Without a hook every failure is silent and gives the same result.
    EXPECT_FALSE(rois.SetAECGain(0.5F));
    EXPECT_EQ(rois.GetROI(40).roiID, 0U);
}

TEST_F(ROIsDataTest, SetLogFunctionRefusesNullAndTruncatesTheName)
{
    EXPECT_FALSE(m_rois.SetLogFunction(nullptr, RoiTest::RecordLine));
    EXPECT_FALSE(m_rois.SetLogFunction("Other", nullptr));
    EXPECT_EQ(RoiTest::CountLogged("NULL input pointer"), 2U);
    EXPECT_STREQ(m_rois.GetName(), "FaceROI");
    ASSERT_FALSE(LoggedLines().empty());
    EXPECT_EQ(LoggedLines()[0].file, "vornstatsroiprocessor.cpp");
    EXPECT_EQ(LoggedLines()[0].function, "SetLogFunction");
    EXPECT_EQ(LoggedLines()[0].group, 1U);
    EXPECT_EQ(LoggedLines()[0].level, 2U);

    ASSERT_TRUE(
        m_rois.SetLogFunction("0123456789012345678901234567890123456789", RoiTest::RecordLine));
    EXPECT_STREQ(m_rois.GetName(), "0123456789012345678901234567890");
}

TEST_F(ROIsDataTest, RefusedResolutionAndCropWindowKeepTheOldValues)
{
    ASSERT_TRUE(m_rois.SetImageResolution(1920.0F, 1080.0F));
    EXPECT_TRUE(Logged(32, "FaceROI: new input resolution (1920.000000, 1080.000000)"));
    EXPECT_FALSE(m_rois.SetImageResolution(0.0F, 720.0F));
    EXPECT_FALSE(m_rois.SetImageResolution(1280.0F, -1.0F));
    EXPECT_TRUE(Logged(2, "FaceROI: invalid input resolution (0.000000, 720.000000)"));
    EXPECT_FLOAT_EQ(m_rois.GetWidth(), 1920.0F);
    EXPECT_FLOAT_EQ(m_rois.GetHeight(), 1080.0F);

    ASSERT_TRUE(m_rois.SetCropWindow(0.0F, 10.0F, 100.0F, 50.0F));
    EXPECT_TRUE(
        Logged(32, "FaceROI: new crop window (0.000000, 10.000000, 100.000000, 50.000000)"));
    struct Window
    {
        float left, top, width, height;
    };
    for (Window window : {Window{-1.0F, 0.0F, 10.0F, 10.0F}, Window{0.0F, -0.5F, 10.0F, 10.0F},
                          Window{0.0F, 0.0F, 0.0F, 10.0F}, Window{0.0F, 0.0F, 10.0F, -3.0F}}) {
        EXPECT_FALSE(m_rois.SetCropWindow(window.left, window.top, window.width, window.height));
    }
    EXPECT_TRUE(
        Logged(16, "FaceROI: invalid crop window (-1.000000, 0.000000, 10.000000, 10.000000)"));
    EXPECT_EQ(RoiTest::CountLogged("FaceROI: invalid crop window"), 4U);
    EXPECT_FLOAT_EQ(m_rois.GetCropTop(), 10.0F);
    EXPECT_FLOAT_EQ(m_rois.GetCropWidth(), 100.0F);
}

TEST_F(ROIsDataTest, AECGainBelowUnityIsSnappedOrRefused)
{
    struct Case
    {
        float gain;
        bool accepted;
        float stored;
    };
    Case const cases[] = {
        {2.5F, true, 2.5F},   {1.0F, true, 1.0F},   {0.995F, true, 1.0F},
        {0.98F, false, 1.0F}, {-4.0F, false, 1.0F}, {NAN, false, 1.0F},
    };
    for (Case const& c : cases) {
        ASSERT_TRUE(m_rois.SetAECGain(1.0F));
        EXPECT_EQ(m_rois.SetAECGain(c.gain), c.accepted) << c.gain;
        EXPECT_FLOAT_EQ(m_rois.GetAECGain(), c.stored) << c.gain;
    }
    // A refused gain leaves the previous one, not unity.
    ASSERT_TRUE(m_rois.SetAECGain(4.0F));
    EXPECT_FALSE(m_rois.SetAECGain(0.98F));
    EXPECT_FLOAT_EQ(m_rois.GetAECGain(), 4.0F);
    EXPECT_TRUE(Logged(4, "FaceROI: invalid input AEC gain 0.980000"));
}

TEST_F(ROIsDataTest, GetROIServesStaleRecordsAndRefusesIndexesPastTheArray)
{
    StatsROIInformation const two = Frame({Face(1, 0, 0, 10, 10), Face(2, 5, 5, 20, 20)});
    StatsROIInformation const one = Frame({Face(9, 1, 1, 4, 4)});
    ASSERT_TRUE(m_rois.UpdateROIData(&two, 0));
    ASSERT_TRUE(m_rois.UpdateROIData(&one, 0));
    EXPECT_EQ(m_rois.Size(), 1U);
    EXPECT_EQ(m_rois.GetROI(0).roiID, 9U);
    EXPECT_EQ(m_rois.GetROI(1).roiID, 2U); // behind the count, still served

    EXPECT_EQ(m_rois.GetROI(20).roiID, 0U);
    EXPECT_FLOAT_EQ(m_rois.GetROI(-1).width, 0.0F);
    EXPECT_TRUE(Logged(2, "FaceROI: invalid index 20 number of ROI 16"));
    EXPECT_TRUE(Logged(2, "FaceROI: invalid index -1 number of ROI 16"));
    EXPECT_FLOAT_EQ(m_rois.GetNormalizeROI(16).width, 0.0F);
    EXPECT_TRUE(Logged(2, "FaceROI: invalid index 16 number of ROI 1"));

    m_rois.Clear();
    EXPECT_EQ(m_rois.Size(), 1U);
    EXPECT_EQ(m_rois.GetROI(0).roiID, 0U);
}

TEST_F(ROIsDataTest, NormalizedROIDividesByTheRawResolution)
{
    StatsROIInformation const frame = Frame({Face(3, 100, 50, 200, 100)});
    ASSERT_TRUE(m_rois.UpdateROIData(&frame, 0));
    // Unset resolution: the division still happens and gives infinities.
    EXPECT_TRUE(std::isinf(m_rois.GetNormalizeROI(0).width));

    ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 500.0F));
    ROIData const roi = m_rois.GetNormalizeROI(0);
    EXPECT_FLOAT_EQ(roi.left, 0.1F);
    EXPECT_FLOAT_EQ(roi.top, 0.1F);
    EXPECT_FLOAT_EQ(roi.width, 0.2F);
    EXPECT_FLOAT_EQ(roi.height, 0.2F);
    EXPECT_EQ(roi.roiID, 3U);
}

TEST_F(ROIsDataTest, ROIInCropIsClippedAndRelativeToTheWindow)
{
    struct Case
    {
        char const* name;
        StatsROIData face;
        float left, top, width, height;
    };
    // Crop window (100, 200, 400, 300).
    Case const cases[] = {
        {"inside", Face(1, 150, 250, 100, 50), 50.0F, 50.0F, 100.0F, 50.0F},
        {"over top-left", Face(2, 50, 150, 100, 100), 0.0F, 0.0F, 50.0F, 50.0F},
        {"over bottom-right", Face(3, 450, 450, 100, 100), 350.0F, 250.0F, 50.0F, 50.0F},
        {"right of window", Face(4, 600, 250, 50, 50), 400.0F, 50.0F, 0.0F, 50.0F},
        {"above window", Face(5, 150, 0, 50, 50), 50.0F, 0.0F, 50.0F, 0.0F},
    };
    ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 1000.0F));
    for (Case const& c : cases) {
        StatsROIInformation const frame = Frame({c.face});
        ASSERT_TRUE(m_rois.UpdateROIData(&frame, 0));
        EXPECT_FLOAT_EQ(m_rois.GetROIInCrop(0).left, c.face.left) << "no window yet: " << c.name;
        ASSERT_TRUE(m_rois.SetCropWindow(100.0F, 200.0F, 400.0F, 300.0F));
        ROIData const roi = m_rois.GetROIInCrop(0);
        EXPECT_FLOAT_EQ(roi.left, c.left) << c.name;
        EXPECT_FLOAT_EQ(roi.top, c.top) << c.name;
        EXPECT_FLOAT_EQ(roi.width, c.width) << c.name;
        EXPECT_FLOAT_EQ(roi.height, c.height) << c.name;
        EXPECT_EQ(roi.roiID, static_cast<uint32_t>(c.face.roiID)) << c.name;

        ROIData const normal = m_rois.GetNormalizeROIInCrop(0);
        EXPECT_FLOAT_EQ(normal.left, c.left / 400.0F) << c.name;
        EXPECT_FLOAT_EQ(normal.height, c.height / 300.0F) << c.name;
        m_rois = ROIsData();
        ASSERT_TRUE(m_rois.SetLogFunction("FaceROI", RoiTest::RecordLine));
        ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 1000.0F));
    }
    EXPECT_TRUE(Logged(2, "FaceROI: no valid crop window information"));

    // Without a window the normalised form falls back to the full image; a bad index is zero
    // without a log line.
    StatsROIInformation const frame = Frame({Face(1, 100, 100, 500, 250)});
    ASSERT_TRUE(m_rois.UpdateROIData(&frame, 0));
    EXPECT_FLOAT_EQ(m_rois.GetNormalizeROIInCrop(0).width, 0.5F);
    LoggedLines().clear();
    EXPECT_FLOAT_EQ(m_rois.GetNormalizeROIInCrop(16).width, 0.0F);
    EXPECT_TRUE(LoggedLines().empty());
}

TEST_F(ROIsDataTest, ConversionPacksRecordsAndSkipsNegativeIDs)
{
    StatsROIInformation frame = Frame(
        {Face(-1, 1, 1, 1, 1), Face(4, 10, 20, 30, 40), Face(-7, 0, 0, 5, 5), Face(6, 1, 2, 3, 4)});
    frame.roiData[1].carriedValue = -12;
    ROIData output[MaxROICount];
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 0, 0.0F));
    ASSERT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(output[0].roiID, 4U);
    EXPECT_FLOAT_EQ(output[0].left, 10.0F);
    EXPECT_FLOAT_EQ(output[0].height, 40.0F);
    EXPECT_FLOAT_EQ(output[0].carriedValue, -12.0F);
    EXPECT_EQ(output[1].roiID, 6U);
    // The own records are untouched when another output array is given.
    EXPECT_EQ(m_rois.GetROI(0).roiID, 0U);

    // A null frame is refused and the count stays.
    EXPECT_FALSE(m_rois.ConvertToROIData(nullptr, output, 0, 0.0F));
    EXPECT_TRUE(m_rois.UpdateROIData(nullptr, 0));
    EXPECT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(RoiTest::CountLogged("FaceROI: NULL input pointer"), 2U);

    // A producer count above the array is not followed past it: the 12 unused records behind
    // the four given ones have ID 0 and count as ROIs.
    frame.roiCount = 1000;
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 0, 0.0F));
    EXPECT_EQ(m_rois.Size(), 14U);
}

TEST_F(ROIsDataTest, PartialROIsAreTrimmedToTheCropWindowAndDroppedPastTheThreshold)
{
    ASSERT_TRUE(m_rois.SetImageResolution(2000.0F, 2000.0F));
    ASSERT_TRUE(m_rois.SetCropWindow(0.0F, 0.0F, 1000.0F, 1000.0F));
    struct Case
    {
        char const* name;
        ROIData roi;
        float threshold;
        int discard;
        float left, top, width, height;
    };
    auto box = [](float left, float top, float width, float height) {
        ROIData roi;
        roi.roiID = 5;
        roi.left = left;
        roi.top = top;
        roi.width = width;
        roi.height = height;
        return roi;
    };
    Case const cases[] = {
        {"inside", box(100, 100, 200, 200), 0.0F, 0, 100, 100, 200, 200},
        // The right overhang is measured against the left coordinate: 10 / 10.
        {"right overhang", box(10, 100, 1000, 200), 1.0F, 0, 10, 100, 990, 200},
        {"right overhang strict", box(10, 100, 1000, 200), 0.99F, 1, 10, 100, 990, 200},
        {"bottom overhang", box(100, 900, 100, 200), 0.5F, 0, 100, 900, 100, 100},
        {"bottom overhang strict", box(100, 900, 100, 200), 0.49F, 1, 100, 900, 100, 100},
        {"wholly below", box(100, 1200, 100, 100), 1000.0F, 1, 100, 1200, 100, 0},
    };
    for (Case const& c : cases) {
        ROIData roi = c.roi;
        EXPECT_EQ(m_rois.ProcessPartialROI(roi, c.threshold), c.discard) << c.name;
        EXPECT_FLOAT_EQ(roi.left, c.left) << c.name;
        EXPECT_FLOAT_EQ(roi.top, c.top) << c.name;
        EXPECT_FLOAT_EQ(roi.width, c.width) << c.name;
        EXPECT_FLOAT_EQ(roi.height, c.height) << c.name;
    }
    EXPECT_TRUE(Logged(32, "FaceROI: ROI 5 out of crop window by 1.000000 per. discardROI 0."));

    // Top and left move the corner into the window without shrinking the ROI.
    ASSERT_TRUE(m_rois.SetCropWindow(100.0F, 100.0F, 1000.0F, 1000.0F));
    ROIData roi = box(50, 80, 200, 100);
    EXPECT_EQ(m_rois.ProcessPartialROI(roi, 0.25F), 0);
    EXPECT_FLOAT_EQ(roi.left, 100.0F);
    EXPECT_FLOAT_EQ(roi.top, 100.0F);
    EXPECT_FLOAT_EQ(roi.width, 200.0F);
    EXPECT_FLOAT_EQ(roi.height, 100.0F);
    EXPECT_EQ(m_rois.ProcessPartialROI(roi = box(50, 80, 200, 100), 0.24F), 1);

    // A crop window larger than the image disables trimming: the ROI is kept as it is.
    ASSERT_TRUE(m_rois.SetCropWindow(0.0F, 0.0F, 3000.0F, 1000.0F));
    roi = box(1900, 0, 500, 500);
    EXPECT_EQ(m_rois.ProcessPartialROI(roi, 0.0F), 0);
    EXPECT_FLOAT_EQ(roi.width, 500.0F);
    EXPECT_TRUE(Logged(32, "FaceROI: Incorrect input sensor res [2000.000000, 2000.000000], crop "
                           "window [3000.000000, 1000.000000]"));
}

TEST_F(ROIsDataTest, ConversionTrimsOnlyWhenAskedTo)
{
    ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 1000.0F));
    ASSERT_TRUE(m_rois.SetCropWindow(0.0F, 0.0F, 500.0F, 500.0F));
    StatsROIInformation const frame = Frame(
        {Face(1, 400, 100, 300, 100), Face(2, 100, 100, 100, 100), Face(3, 100, 440, 50, 100)});
    ROIData output[MaxROICount];

    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 2, 0.0F));
    ASSERT_EQ(m_rois.Size(), 3U);
    EXPECT_FLOAT_EQ(output[0].width, 300.0F);

    // Face 1 overhangs by 200 over its left of 400 and is dropped; face 3 by 40 of its height
    // of 100 and is kept, trimmed.
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 1, 0.45F));
    ASSERT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(output[0].roiID, 2U);
    EXPECT_EQ(output[1].roiID, 3U);
    EXPECT_FLOAT_EQ(output[1].height, 60.0F);
}

TEST_F(ROIsDataTest, FindsTheFirstMatchingIDWithinTheCount)
{
    ROIData list[3];
    list[0].roiID = 4;
    list[1].roiID = 7;
    list[2].roiID = 7;
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(list, 3, 7), 1);
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(list, 1, 7), -1);
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(list, 3, 9), -1);
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(list, 0, 4), -1);
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(list, -2, 4), -1);
    EXPECT_EQ(ROIsData::FindROIIndexByROIID(nullptr, 3, 4), -1);
}

} // namespace
