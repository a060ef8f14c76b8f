// SPDX-License-Identifier: Apache-2.0
// Dominant ROI selection: tuned curves, the score of one ROI, hysteresis and the frame entry.
#include "stats/statsalgo/common/vornstatsroipriority.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

/// Bonus of the incumbent and the winner when the tuning gives none.
constexpr float DefaultScoreEnhancement = 0.1F;

/// Partial-ROI discard threshold when the tuning gives none.
constexpr float DefaultPartialThreshold = 0.5F;

/// The set whose ROIs are metered inside the crop window rather than on the full image.
constexpr char const* CropMeteredSetName = "AECFaceROI";

} // namespace

ROIPriority::ROIPriority()
    : m_dominantROIIndex(-1), m_dominantROIID(-1), m_referenceROIID(-1), m_dominantScores(),
      m_tuning(nullptr)
{
}

bool ROIPriority::SetTuningData(TuningType const* tuning)
{
    m_tuning = tuning;
    return true;
}

float ROIPriority::GetScore(int index) const
{
    if (static_cast<unsigned int>(index) >= MaxROICount) {
        return 0.0F;
    }
    return m_dominantScores[index];
}

bool ROIPriority::UpdateReferenceROI()
{
    m_referenceROIID = m_dominantROIID;
    return true;
}

void ROIPriority::GetProcessedROI(ROIData const*& rois, unsigned int& count) const
{
    rois = m_rois;
    count = m_roiCount;
}

void ROIPriority::Clear()
{
    ROIsData::Clear();
    m_dominantROIIndex = -1;
    m_dominantROIID = -1;
    m_referenceROIID = -1;
}

float ROIPriority::GetTriggeredValue(TriggerCurveType const* triggerData, float value,
                                     float defaultValue) const
{
    if (triggerData == nullptr || triggerData->triggerDataCount == 0 ||
        triggerData->triggerData == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: zero tuning entry", m_name);
        return defaultValue;
    }
    auto const* rows = triggerData->triggerData;
    unsigned int const count = triggerData->triggerDataCount;

    unsigned int low = count - 1;
    unsigned int high = count - 1;
    for (unsigned int i = 0; i < count; ++i) {
        if (rows[i].triggerPt.start >= value) {
            high = i;
            low = (i == 0) ? 0 : i - 1;
            break;
        }
        if (rows[i].triggerPt.end >= value) {
            low = i;
            high = i;
            break;
        }
    }
    if (low == high) {
        return rows[low].triggerData.data;
    }
    // Between two bands the value runs on a straight line; bands that touch have no gap and
    // take the upper band's value rather than divide by zero.
    float const gap = rows[high].triggerPt.start - rows[low].triggerPt.end;
    if (gap == 0.0F) {
        return rows[high].triggerData.data;
    }
    return (value - rows[low].triggerPt.end) *
               (rows[high].triggerData.data - rows[low].triggerData.data) / gap +
           rows[low].triggerData.data;
}

float ROIPriority::ROIDominantScore(ROIData& roi) const
{
    float const imageWidth = GetWidth();
    float const imageHeight = GetHeight();
    if (!(imageWidth > 0.0F) || !(imageHeight > 0.0F)) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: invalid image resolution (%f, %f)",
                      m_name, static_cast<double>(imageWidth), static_cast<double>(imageHeight));
        return 0.0F;
    }
    float const fovLength = std::sqrt(imageWidth * imageWidth + imageHeight * imageHeight);

    float sizeRatio = 0.0F;
    float normalizedSize = 0.0F;
    float centerX = 0.0F;
    float centerY = 0.0F;
    float roiCenterX = 0.0F;
    float roiCenterY = 0.0F;
    if (IsCropWindowValid() && std::strcmp(m_name, CropMeteredSetName) == 0) {
        // Exposure meters only what the crop window shows, so the ROI is measured there. The
        // size ratio keeps the full image diagonal as its divisor, so scores stay comparable
        // with those of the other sets.
        ROIData const clipped = ClipToWindow(roi, m_cropWindow);
        float const cropWidth = m_cropWindow.width;
        float const cropHeight = m_cropWindow.height;
        float const w = clipped.width;
        float const h = clipped.height;
        sizeRatio = std::sqrt(w * w + h * h) / fovLength;
        normalizedSize = std::sqrt(w / cropWidth * h / cropHeight);
        centerX = cropWidth / 2.0F;
        centerY = cropHeight / 2.0F;
        roiCenterX = clipped.left + w / 2.0F;
        roiCenterY = clipped.top + h / 2.0F;
        STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                      "%s: FOVLength: %f, ROISize: %f, centerX: %f, centerY: %f, RoiCenterX: %f, "
                      "RoiCenterY: %f",
                      m_name, static_cast<double>(fovLength), static_cast<double>(sizeRatio),
                      static_cast<double>(centerX), static_cast<double>(centerY),
                      static_cast<double>(roiCenterX), static_cast<double>(roiCenterY));
    } else {
        sizeRatio = std::sqrt(roi.width * roi.width + roi.height * roi.height) / fovLength;
        normalizedSize = std::sqrt(roi.width / imageWidth * roi.height / imageHeight);
        centerX = imageWidth / 2.0F;
        centerY = imageHeight / 2.0F;
        roiCenterX = roi.left + roi.width / 2.0F;
        roiCenterY = roi.top + roi.height / 2.0F;
    }

    // 0.0 at the centre of the metered area, 1.0 at its corner.
    float const dx = roiCenterX - centerX;
    float const dy = roiCenterY - centerY;
    float const distanceRatio =
        std::sqrt(dx * dx + dy * dy) / std::sqrt(centerX * centerX + centerY * centerY);
    roi.normalizedSize = normalizedSize;

    float sizeScore = sizeRatio;
    float locationScore = 1.0F;
    if (m_tuning != nullptr) {
        sizeScore = GetTriggeredValue(&m_tuning->FaceROISizeWeight, sizeRatio, sizeRatio);
        locationScore = GetTriggeredValue(&m_tuning->FaceROILocationWeight, distanceRatio, 1.0F);
    }
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                  "%s: ROI size %f score %f distance %f score %f tuning %p", m_name,
                  static_cast<double>(sizeRatio), static_cast<double>(sizeScore),
                  static_cast<double>(distanceRatio), static_cast<double>(locationScore),
                  static_cast<void const*>(m_tuning));
    return sizeScore * locationScore;
}

bool ROIPriority::DominantROISelection(ROIData* rois, unsigned int count)
{
    if (rois == nullptr) {
        count = 0;
    }
    count = std::min(count, MaxROICount);
    if (count == 0) {
        m_dominantROIIndex = -1;
        m_dominantROIID = -1;
        std::fill(m_dominantScores, m_dominantScores + MaxROICount, 0.0F);
    } else {
        float const enhancement =
            (m_tuning != nullptr) ? m_tuning->dominantScoreEnhancement : DefaultScoreEnhancement;

        // The last winner competes with a bonus, so two faces of like score do not make the
        // choice flicker from frame to frame.
        float best = -1.0F;
        int winner = -1;
        int const previous = FindROIIndexByROIID(rois, static_cast<int>(count), m_dominantROIID);
        if (previous != -1) {
            winner = previous;
            best = (enhancement + 1.0F) * ROIDominantScore(rois[previous]);
        }
        STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                      "%s: previous dominant select index %d ID %d score %f", m_name, previous,
                      m_dominantROIID, static_cast<double>(best));

        float scores[MaxROICount] = {};
        for (unsigned int i = 0; i < count; ++i) {
            scores[i] = ROIDominantScore(rois[i]);
            STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: index %d id %d score %f", m_name,
                          static_cast<int>(i), static_cast<int>(rois[i].roiID),
                          static_cast<double>(scores[i]));
            // Strictly above: the incumbent keeps a tie, and of equal newcomers the first wins.
            if (scores[i] > best) {
                best = scores[i];
                winner = static_cast<int>(i);
            }
        }
        STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                      "%s: previous dominant select index %d ID %d score %f", m_name, winner,
                      winner == -1 ? -1 : static_cast<int>(rois[winner].roiID),
                      static_cast<double>(best));

        if (winner != -1) {
            scores[winner] *= (enhancement + 1.0F);
            m_dominantROIIndex = winner;
            m_dominantROIID = static_cast<int>(rois[winner].roiID);
            std::copy(scores, scores + MaxROICount, m_dominantScores);
            // A ROI that scores nothing is no dominant ROI.
            if (scores[winner] == 0.0F) {
                m_dominantROIIndex = -1;
                m_dominantROIID = -1;
                std::fill(m_dominantScores, m_dominantScores + MaxROICount, 0.0F);
            }
        }
    }
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: m_dominantROIIndex %d m_dominantROIID %d",
                  m_name, m_dominantROIIndex, m_dominantROIID);
    return true;
}

bool ROIPriority::UpdateROIData(StatsROIInformation const* information, int processPartial)
{
    ROIData local[MaxROICount];
    if (information == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL input pointer", m_name);
        return false;
    }
    float threshold = DefaultPartialThreshold;
    if (m_tuning != nullptr) {
        threshold = std::min(std::max(m_tuning->partialFaceThresh, 0.0F), 1.0F);
    }
    // From here on the count is the new frame's while m_rois still holds the previous frame:
    // face shaping reads the previous mask state from there.
    static_cast<void>(ConvertToROIData(information, local, processPartial, threshold));
    static_cast<void>(DominantROISelection(local, m_roiCount));
    ShrinkFaceROI(local, m_roiCount, information);
    static_cast<void>(SetROIs(local));
    return true;
}
