// SPDX-License-Identifier: Apache-2.0
// The fixed ROI container: coordinate questions, checked setters and input conversion.
#include "stats/statsalgo/common/vornstatsroidata.h"

#include <algorithm>
#include <cstring>

#include "platform/vornosutils.h"

namespace {

/// Clipping of one axis of a ROI to the crop window, relative to the window's start.
void ClipAxisToCrop(float start, float size, float cropStart, float cropSize, float& outStart,
                    float& outSize)
{
    float relative = start - cropStart;
    if (!(relative > 0.0F)) {
        relative = 0.0F;
    }
    relative = std::min(relative, cropSize);

    float end = start + size - cropStart;
    if (!(end > 0.0F)) {
        end = 0.0F;
    }
    end -= relative;

    outStart = relative;
    outSize = std::min(end, cropSize - relative);
}

} // namespace

ROIData ClipToWindow(ROIData roi, ROIData const& window)
{
    ClipAxisToCrop(roi.left, roi.width, window.left, window.width, roi.left, roi.width);
    ClipAxisToCrop(roi.top, roi.height, window.top, window.height, roi.top, roi.height);
    return roi;
}

ROIsData::ROIsData()
    : m_rois(), m_roiCount(0), m_cropWindow(), m_imageWidth(0.0F), m_imageHeight(0.0F),
      m_aecGain(1.0F), m_name(), m_logFunction(nullptr)
{
    Vorn::OsUtils::StrLCpy(m_name, "Unknown", sizeof(m_name));
}

float ROIsData::GetWidth() const
{
    return m_imageWidth < 1.0F ? 1.0F : m_imageWidth;
}

float ROIsData::GetHeight() const
{
    return m_imageHeight < 1.0F ? 1.0F : m_imageHeight;
}

float ROIsData::GetCropWidth() const
{
    return m_cropWindow.width < 1.0F ? 1.0F : m_cropWindow.width;
}

float ROIsData::GetCropHeight() const
{
    return m_cropWindow.height < 1.0F ? 1.0F : m_cropWindow.height;
}

bool ROIsData::SetROIs(ROIData const* rois)
{
    if (rois == nullptr) {
        return false;
    }
    std::copy(rois, rois + MaxROICount, m_rois);
    return true;
}

void ROIsData::Clear()
{
    std::fill(m_rois, m_rois + MaxROICount, ROIData());
}

bool ROIsData::IsCropWindowValid() const
{
    return m_cropWindow.left >= 0.0F && m_cropWindow.top >= 0.0F && m_cropWindow.width > 0.0F &&
           m_cropWindow.height > 0.0F;
}

// Records behind the count are served: callers read the previous frame's stale records on
// purpose. Only the array bound is enforced, so a count raised above the array never lets a
// read run past it.
ROIData ROIsData::GetROI(int index) const
{
    if (static_cast<unsigned int>(index) >= MaxROICount) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: invalid index %d number of ROI %d",
                      m_name, index, static_cast<int>(MaxROICount));
        return ROIData();
    }
    return m_rois[index];
}

ROIData ROIsData::GetNormalizeROI(int index) const
{
    if (static_cast<unsigned int>(index) >= MaxROICount) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: invalid index %d number of ROI %d",
                      m_name, index, static_cast<int>(m_roiCount));
        return ROIData();
    }
    // The raw members are the divisors: an unset resolution yields infinities, which a caller
    // that has not set the resolution must expect.
    ROIData roi = m_rois[index];
    roi.left /= m_imageWidth;
    roi.width /= m_imageWidth;
    roi.top /= m_imageHeight;
    roi.height /= m_imageHeight;
    return roi;
}

ROIData ROIsData::GetROIInCrop(int index) const
{
    if (static_cast<unsigned int>(index) >= MaxROICount) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: invalid index %d number of ROI %d",
                      m_name, index, static_cast<int>(m_roiCount));
        return ROIData();
    }
    if (!IsCropWindowValid()) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: no valid crop window information",
                      m_name);
        return GetROI(index);
    }
    return ClipToWindow(m_rois[index], m_cropWindow);
}

ROIData ROIsData::GetNormalizeROIInCrop(int index) const
{
    if (static_cast<unsigned int>(index) >= MaxROICount) {
        return ROIData();
    }
    if (!IsCropWindowValid()) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: no valid crop window information",
                      m_name);
        return GetNormalizeROI(index);
    }
    ROIData roi = GetROIInCrop(index);
    roi.left /= m_cropWindow.width;
    roi.width /= m_cropWindow.width;
    roi.top /= m_cropWindow.height;
    roi.height /= m_cropWindow.height;
    return roi;
}

bool ROIsData::SetLogFunction(char const* name, StatsLogFunction function)
{
    if (name == nullptr || function == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "NULL input pointer");
        return false;
    }
    Vorn::OsUtils::StrLCpy(m_name, name, sizeof(m_name));
    m_logFunction = function;
    return true;
}

bool ROIsData::SetImageResolution(float width, float height)
{
    if (!(width > 0.0F) || !(height > 0.0F)) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: invalid input resolution (%f, %f)",
                      m_name, static_cast<double>(width), static_cast<double>(height));
        return false;
    }
    m_imageWidth = width;
    m_imageHeight = height;
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: new input resolution (%f, %f)", m_name,
                  static_cast<double>(width), static_cast<double>(height));
    return true;
}

bool ROIsData::SetCropWindow(float left, float top, float width, float height)
{
    if (!(left >= 0.0F) || !(top >= 0.0F) || !(width > 0.0F) || !(height > 0.0F)) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelFault, "%s: invalid crop window (%f, %f, %f, %f)",
                      m_name, static_cast<double>(left), static_cast<double>(top),
                      static_cast<double>(width), static_cast<double>(height));
        return false;
    }
    m_cropWindow.left = left;
    m_cropWindow.top = top;
    m_cropWindow.width = width;
    m_cropWindow.height = height;
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: new crop window (%f, %f, %f, %f)", m_name,
                  static_cast<double>(left), static_cast<double>(top), static_cast<double>(width),
                  static_cast<double>(height));
    return true;
}

bool ROIsData::SetAECGain(float gain)
{
    if (gain >= 1.0F) {
        m_aecGain = gain;
        return true;
    }
    // A gain a rounding step below unity comes from the exposure arithmetic, not from a fault:
    // it is taken as unity. The float difference is compared in double precision.
    float const belowUnity = 1.0F - gain;
    if (static_cast<double>(belowUnity) < 0.01) {
        m_aecGain = 1.0F;
        return true;
    }
    STATS_ROI_LOG(m_logFunction, StatsLogLevelGain, "%s: invalid input AEC gain %f", m_name,
                  static_cast<double>(gain));
    return false;
}

int ROIsData::FindROIIndexByROIID(ROIData const* list, int count, int id)
{
    if (list == nullptr || count < 1) {
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        if (list[i].roiID == static_cast<uint32_t>(id)) {
            return i;
        }
    }
    return -1;
}

bool ROIsData::ConvertToROIData(StatsROIInformation const* information, ROIData* output,
                                int processPartial, float threshold)
{
    if (information == nullptr || output == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL input pointer", m_name);
        return false;
    }
    m_roiCount = 0;
    // The producer's count is trusted elsewhere; the array bound is not negotiable here.
    unsigned int const inputCount = std::min(information->roiCount, MaxROICount);
    for (unsigned int i = 0; i < inputCount; ++i) {
        StatsROIData const& input = information->roiData[i];
        if (input.roiID < 0) {
            continue;
        }
        ROIData roi;
        roi.roiID = static_cast<uint32_t>(input.roiID);
        roi.left = static_cast<float>(input.left);
        roi.top = static_cast<float>(input.top);
        roi.width = static_cast<float>(input.width);
        roi.height = static_cast<float>(input.height);
        roi.carriedValue = static_cast<float>(input.carriedValue);
        if (processPartial == 1 && ProcessPartialROI(roi, threshold) == 1) {
            continue;
        }
        output[m_roiCount] = roi;
        ++m_roiCount;
    }
    return true;
}

int ROIsData::ProcessPartialROI(ROIData& roi, float threshold) const
{
    float const cropLeft = m_cropWindow.left;
    float const cropTop = m_cropWindow.top;
    float const cropWidth = m_cropWindow.width;
    float const cropHeight = m_cropWindow.height;
    if (!(cropWidth > 0.0F) || !(cropHeight > 0.0F) || cropWidth > m_imageWidth ||
        cropHeight > m_imageHeight) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                      "%s: Incorrect input sensor res [%f, %f], crop window [%f, %f]", m_name,
                      static_cast<double>(m_imageWidth), static_cast<double>(m_imageHeight),
                      static_cast<double>(cropWidth), static_cast<double>(cropHeight));
        return 0;
    }

    float maxOut = 0.0F;
    // Top and left move the ROI's corner into the window without shrinking it; the bottom and
    // right overhang measured afterwards then takes the size down.
    if (cropTop > roi.top) {
        float const fraction = std::max((cropTop - roi.top) / std::max(roi.height, 1.0F), 0.0F);
        maxOut = std::max(maxOut, fraction);
        roi.top = cropTop;
    }
    if (cropLeft > roi.left) {
        float const fraction = (cropLeft - roi.left) / std::max(roi.width, 1.0F);
        maxOut = std::max(maxOut, fraction);
        roi.left = cropLeft;
    }
    float over = roi.top + roi.height - (cropTop + cropHeight);
    if (over > 0.0F) {
        float const fraction = over / std::max(roi.height, 1.0F);
        maxOut = std::max(maxOut, fraction);
        roi.height = std::max(roi.height - over, 0.0F);
    }
    over = roi.left + roi.width - (cropLeft + cropWidth);
    if (over > 0.0F) {
        // The right overhang is measured against the left coordinate, not the width. Algorithms
        // were tuned against this measure, so a ROI near the left edge is dropped sooner.
        float const fraction = over / std::max(roi.left, 1.0F);
        maxOut = std::max(maxOut, fraction);
        roi.width = std::max(roi.width - over, 0.0F);
    }

    int const discard = (maxOut > threshold || !(roi.width > 0.0F) || !(roi.height > 0.0F)) ? 1 : 0;
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                  "%s: ROI %d out of crop window by %f per. discardROI %d.", m_name,
                  static_cast<int>(roi.roiID), static_cast<double>(maxOut), discard);
    return discard;
}

bool ROIsData::UpdateROIData(StatsROIInformation const* information, int processPartial)
{
    static_cast<void>(ConvertToROIData(information, m_rois, processPartial, 1.0F));
    return true;
}
