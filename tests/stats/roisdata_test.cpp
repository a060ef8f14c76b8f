// SPDX-License-Identifier: Apache-2.0
// ROIsData: checked setters, the index bound of the accessors, crop coordinates, input
// conversion and partial-ROI trimming.
#include <cmath>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "tests/common/roifixtures.h"

namespace {

using namespace RoiTest;

class ROIsDataTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        LoggedLines().clear();
        ASSERT_TRUE(m_rois.SetLogFunction("FaceROI", RecordLine));
    }

    ROIsData m_rois;
};

TEST_F(ROIsDataTest, RefusedSettingsKeepTheOldValues)
{
    // Resolution (a, b) and crop window (c, d, a, b); sizes below 1.0 read as 1.0.
    using Row = std::tuple<float, float, float, float, bool, bool>;
    Row const rows[] = {
        {0.5F, 640.0F, 0.0F, 0.0F, true, true},      {0.0F, 720.0F, 0.0F, 1.0F, false, false},
        {1280.0F, -1.0F, -1.0F, 0.0F, false, false}, {2.0F, 3.0F, 0.0F, -0.5F, true, false},
        {5.0F, 0.0F, 0.0F, 0.0F, false, false},      {2.0F, 3.0F, 1.0F, 2.0F, true, true}};
    for (auto const& [a, b, c, d, resolution, crop] : rows) {
        ASSERT_TRUE(m_rois.SetImageResolution(1920.0F, 1080.0F));
        ASSERT_TRUE(m_rois.SetCropWindow(7.0F, 8.0F, 9.0F, 10.0F));
        EXPECT_EQ(m_rois.SetImageResolution(a, b), resolution) << a;
        EXPECT_EQ(m_rois.SetCropWindow(c, d, a, b), crop) << a;
        float const width = std::max(a, 1.0F);
        EXPECT_EQ(m_rois.GetWidth(), resolution ? width : 1920.0F) << a;
        EXPECT_EQ(m_rois.GetHeight(), resolution ? b : 1080.0F) << a;
        Rect const window = {m_rois.GetCropLeft(), m_rois.GetCropTop(), m_rois.GetCropWidth(),
                             m_rois.GetCropHeight()};
        EXPECT_EQ(window, (crop ? Rect{c, d, width, b} : Rect{7.0F, 8.0F, 9.0F, 10.0F})) << a;
    }
    EXPECT_EQ(CountLogged(2, "FaceROI: invalid input resolution (0.000000, 720.000000)"), 1U);
    EXPECT_EQ(CountLogged(16, "FaceROI: invalid crop window (-1.000000, 0.000000, 1280.0"), 1U);
    EXPECT_EQ(CountLogged(32, "FaceROI: new crop window (1.000000, 2.000000, 2.000000, 3.0"), 1U);

    // A gain less than 0.01 below unity is unity; one further below is refused.
    for (auto [gain, accepted, stored] : {std::tuple{2.5F, true, 2.5F},
                                          {1.0F, true, 1.0F},
                                          {0.9901F, true, 1.0F},
                                          {0.9899F, false, 4.0F},
                                          {NAN, false, 4.0F}}) {
        ASSERT_TRUE(m_rois.SetAECGain(4.0F));
        EXPECT_EQ(m_rois.SetAECGain(gain), accepted) << gain;
        EXPECT_EQ(m_rois.GetAECGain(), stored) << gain;
    }
    EXPECT_EQ(CountLogged(4, "FaceROI: invalid input AEC gain 0.989900"), 1U);

    // The log hook needs both arguments, and keeps 31 characters of the name.
    EXPECT_FALSE(m_rois.SetLogFunction(nullptr, RecordLine));
    EXPECT_FALSE(m_rois.SetLogFunction("Other", nullptr));
    EXPECT_EQ(CountLogged(2, "NULL input pointer"), 2U);
    std::string const name(40, 'n');
    ASSERT_TRUE(m_rois.SetLogFunction(name.c_str(), RecordLine));
    EXPECT_EQ(m_rois.GetName(), name.substr(0, 31));
}

TEST_F(ROIsDataTest, AccessorsServeStaleRecordsUpToTheArrayBound)
{
    ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 500.0F));
    StatsROIInformation full = {};
    full.roiCount = MaxROICount;
    for (unsigned int i = 0; i < MaxROICount; ++i)
        full.roiData[i] = Face(static_cast<int>(i + 1), 100, 50, 200, 100);
    ASSERT_TRUE(m_rois.UpdateROIData(&full, 0));
    StatsROIInformation const one = Frame({Face(9, 1, 1, 4, 4)});
    ASSERT_TRUE(m_rois.UpdateROIData(&one, 0));
    ASSERT_EQ(m_rois.Size(), 1U);

    // The last record, behind the count, is served; the array's size and -1 are not. Without a
    // crop window the crop forms are the plain ones.
    int const last = static_cast<int>(MaxROICount) - 1;
    EXPECT_EQ(m_rois.GetROI(last).roiID, MaxROICount);
    EXPECT_EQ(RectOf(m_rois.GetROIInCrop(last)), (Rect{100.0F, 50.0F, 200.0F, 100.0F}));
    EXPECT_EQ(RectOf(m_rois.GetNormalizeROIInCrop(last)), (Rect{0.1F, 0.1F, 0.2F, 0.2F}));
    for (int index : {static_cast<int>(MaxROICount), -1}) {
        EXPECT_EQ(m_rois.GetROI(index).roiID, 0U);
        EXPECT_EQ(m_rois.GetNormalizeROI(index).roiID, 0U);
        EXPECT_EQ(m_rois.GetROIInCrop(index).roiID, 0U);
        EXPECT_EQ(m_rois.GetNormalizeROIInCrop(index).roiID, 0U);
    }
    EXPECT_EQ(CountLogged(2, "FaceROI: invalid index 16 number of ROI 16"), 1U);
    EXPECT_EQ(CountLogged(2, "FaceROI: invalid index 16 number of ROI 1"), 3U);
    EXPECT_EQ(CountLogged(2, "FaceROI: invalid index -1 number of ROI"), 3U);
    EXPECT_EQ(CountLogged(2, "FaceROI: no valid crop window information"), 2U);

    EXPECT_FALSE(m_rois.SetROIs(nullptr));
    m_rois.Clear();
    EXPECT_EQ(m_rois.Size(), 1U);
    EXPECT_EQ(m_rois.GetROI(last).roiID, 0U);
    // An unset resolution still divides, giving infinities.
    ROIsData unset;
    ASSERT_TRUE(unset.UpdateROIData(&one, 0));
    EXPECT_TRUE(std::isinf(unset.GetNormalizeROI(0).width));
}

TEST_F(ROIsDataTest, ROIInCropIsClippedAndRelativeToTheWindow)
{
    // Window (100, 200, 400, 300): inside, over the top-left and bottom-right corners, right of
    // and above the window.
    std::tuple<StatsROIData, Rect> const cases[] = {
        {Face(1, 150, 250, 100, 50), {50, 50, 100, 50}},
        {Face(2, 50, 150, 100, 100), {0, 0, 50, 50}},
        {Face(3, 450, 450, 100, 100), {350, 250, 50, 50}},
        {Face(4, 600, 250, 50, 50), {400, 50, 0, 50}},
        {Face(5, 150, 0, 50, 50), {50, 0, 50, 0}},
    };
    ASSERT_TRUE(m_rois.SetImageResolution(1000.0F, 1000.0F));
    ASSERT_TRUE(m_rois.SetCropWindow(100.0F, 200.0F, 400.0F, 300.0F));
    for (auto const& [face, expected] : cases) {
        StatsROIInformation const frame = Frame({face});
        ASSERT_TRUE(m_rois.UpdateROIData(&frame, 0));
        EXPECT_EQ(RectOf(m_rois.GetROIInCrop(0)), expected) << face.roiID;
    }
    // The normalised form divides by the window's size.
    EXPECT_EQ(RectOf(m_rois.GetNormalizeROIInCrop(0)), (Rect{0.125F, 0.0F, 0.125F, 0.0F}));
}

TEST_F(ROIsDataTest, ConversionPacksRecordsUpToTheArraySize)
{
    StatsROIInformation frame = Frame(
        {Face(-1, 1, 1, 1, 1), Face(4, 10, 20, 30, 40), Face(-7, 0, 0, 5, 5), Face(6, 1, 2, 3, 4)});
    frame.roiData[1].carriedValue = -12;
    ROIData output[MaxROICount];
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 0, 0.0F));
    ASSERT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(output[0].roiID, 4U);
    EXPECT_EQ(RectOf(output[0]), (Rect{10, 20, 30, 40}));
    EXPECT_EQ(output[0].carriedValue, -12.0F);
    EXPECT_EQ(output[1].roiID, 6U);
    EXPECT_EQ(m_rois.GetROI(0).roiID, 0U); // the own records are untouched

    EXPECT_FALSE(m_rois.ConvertToROIData(nullptr, output, 0, 0.0F));
    EXPECT_FALSE(m_rois.ConvertToROIData(&frame, nullptr, 0, 0.0F));
    EXPECT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(CountLogged(2, "FaceROI: NULL input pointer"), 2U);

    // A producer count at the array's size and past it: the array bound holds. Records behind
    // the four given ones have ID 0 and count.
    frame.roiData[MaxROICount - 1] = Face(99, 0, 0, 1, 1);
    for (uint32_t count : {MaxROICount, MaxROICount + 1, 1000U}) {
        frame.roiCount = count;
        ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 0, 0.0F));
        EXPECT_EQ(m_rois.Size(), MaxROICount - 2) << count;
        EXPECT_EQ(output[MaxROICount - 3].roiID, 99U) << count;
    }
}

TEST_F(ROIsDataTest, PartialROIsAreTrimmedAndDroppedPastTheThreshold)
{
    ASSERT_TRUE(m_rois.SetImageResolution(2000.0F, 2000.0F));
    ASSERT_TRUE(m_rois.SetCropWindow(100.0F, 100.0F, 1000.0F, 1000.0F));
    // The right overhang is measured against the left coordinate (100 / 1000), the bottom one
    // against the height; top and left move the corner in without shrinking the ROI.
    std::tuple<ROIData, float, int, Rect> const cases[] = {
        {Box(200, 200, 200, 200, 5), 0.0F, 0, {200, 200, 200, 200}},
        {Box(1000, 200, 200, 200), 0.1F, 0, {1000, 200, 100, 200}},
        {Box(1000, 200, 200, 200), 0.099F, 1, {1000, 200, 100, 200}},
        {Box(200, 1000, 100, 200), 0.5F, 0, {200, 1000, 100, 100}},
        {Box(200, 1000, 100, 200), 0.49F, 1, {200, 1000, 100, 100}},
        {Box(200, 1300, 100, 100), 1000.0F, 1, {200, 1300, 100, 0}},
        {Box(50, 80, 200, 100), 0.25F, 0, {100, 100, 200, 100}},
        {Box(50, 80, 200, 100), 0.24F, 1, {100, 100, 200, 100}},
        {Box(90, 50, 200, 100), 0.49F, 1, {100, 100, 200, 100}},
    };
    for (auto const& [input, threshold, discard, expected] : cases) {
        ROIData roi = input;
        EXPECT_EQ(m_rois.ProcessPartialROI(roi, threshold), discard) << threshold;
        EXPECT_EQ(RectOf(roi), expected) << threshold;
    }
    EXPECT_EQ(CountLogged(32, "FaceROI: ROI 5 out of crop window by 0.000000 per. discardROI 0."),
              1U);

    // Conversion trims only when asked to (1): the first face is dropped, the third trimmed.
    StatsROIInformation const frame = Frame(
        {Face(1, 200, 100, 1000, 100), Face(2, 200, 200, 100, 100), Face(3, 200, 1040, 50, 100)});
    ROIData output[MaxROICount];
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 2, 0.0F));
    EXPECT_EQ(m_rois.Size(), 3U);
    ASSERT_TRUE(m_rois.ConvertToROIData(&frame, output, 1, 0.45F));
    ASSERT_EQ(m_rois.Size(), 2U);
    EXPECT_EQ(output[1].height, 60.0F);
    // A window larger than the image, either way, turns trimming off.
    for (auto [width, height] :
         {std::pair{2000.0F, 2000.0F}, {2001.0F, 1000.0F}, {1000.0F, 2001.0F}}) {
        ASSERT_TRUE(m_rois.SetCropWindow(0.0F, 0.0F, width, height));
        ROIData roi = Box(900, 1900, 500, 500);
        EXPECT_EQ(m_rois.ProcessPartialROI(roi, 0.0F), width > 2000.0F || height > 2000.0F ? 0 : 1)
            << width;
    }
    EXPECT_EQ(CountLogged(32, "FaceROI: Incorrect input sensor res [2000.000000, 2000.000000], "
                              "crop window [2001.000000, 1000.000000]"),
              1U);
}

} // namespace
