// SPDX-License-Identifier: Apache-2.0
// Face ROI shaping: shrinks a detector's face box to the area that shows skin.
#include <algorithm>
#include <cmath>

#include "stats/statsalgo/common/vornstatsroipriority.h"

namespace {

/// Landmarks needed before their margins are trusted to shape a face.
constexpr int MinLandmarkCount = 4;

/// Angles feed the pose curves as whole degrees folded into one quadrant, keeping the sign of
/// the angle: 100 reads as 10, -100 as -10. fmod keeps the sign of the dividend, like the
/// integer remainder, and stays defined for angles no integer can hold.
float FoldAngle(float angle)
{
    return static_cast<float>(std::fmod(std::trunc(static_cast<double>(angle)), 90.0));
}

/// Quantises a factor to the tuned step, then limits it to the range [minimum, 1.0]. A step that
/// is not positive would divide by zero, so it leaves the factor unquantised.
float QuantiseFactor(float factor, float step, float minimum)
{
    if (step > 0.0F) {
        factor = std::floor(factor / step) * step;
    }
    factor = std::max(factor, minimum);
    return std::min(factor, 1.0F);
}

/// Lets small faces keep more of their box: below `start` a face is not shrunk, above
/// start / factor fully, and in between the shrink rises in a straight line.
float RelieveSmallFace(float factor, float size, float start, float& end)
{
    end = start / factor;
    if (start > size) {
        return 1.0F;
    }
    if (end > size) {
        return 1.0F - (1.0F - factor) * (start - size) / (start - end);
    }
    return factor;
}

/// Rounds a mask edge (halves away from zero) into the image: not below 0.0 and at most
/// `limit`, the last pixel.
float MaskEdge(float value, float limit)
{
    value = std::max(std::round(value), 0.0F);
    return (limit > value) ? value : limit;
}

/// The smallest value in a non-empty queue.
float SmallestFactor(std::deque<float> const& factors)
{
    return *std::min_element(factors.begin(), factors.end());
}

/// The face being shaped and where its trace lines go: every step logs as AdjustOneFaceROI.
struct FaceStep
{
    StatsLogFunction log;
    char const* name;
    int faceID;
    float imageWidth;
    float imageHeight;
};

constexpr char const* AdjustFunction = "AdjustOneFaceROI";

using ShrinkTuning = statsroipriority::FaceROIShrinkType;

/// Landmarks: the margin between the box's edge and the nearest chosen landmark, scaled by the
/// landmark's tuned share, is hair or background and is cut away on both sides. Leaves the
/// factors at 1.0 with fewer than MinLandmarkCount usable landmarks.
void LandmarkFactors(FaceStep const& step, ShrinkTuning const& shrink, ROIData const& roi,
                     StatsROIData const& statsROI, float& factorX, float& factorY)
{
    float marginX = step.imageWidth;
    float marginY = step.imageHeight;
    int valid = 0;
    unsigned int const pointCount =
        (shrink.landmarkPoints != nullptr)
            ? std::min(statsROI.landmarkCount, shrink.landmarkPointsCount)
            : 0;
    for (unsigned int p = 0; p < pointCount; ++p) {
        unsigned int const index = shrink.landmarkPoints[p].landmarkIndex;
        float const margin = shrink.landmarkPoints[p].shrinkMarginFactor;
        // The record holds a fixed number of points whatever its count claims.
        if (index >= statsROI.landmarkCount || index >= MaxROILandmarkCount) {
            continue;
        }
        int const x = statsROI.landmarks[index].x;
        int const y = statsROI.landmarks[index].y;
        float const pointX = static_cast<float>(x);
        float const pointY = static_cast<float>(y);
        // A detector reports a missing landmark at 0.
        if (!(x > 0 && pointX < step.imageWidth && y > 0 && pointY < step.imageHeight &&
              margin >= 0.0F && margin <= 1.0F)) {
            continue;
        }
        STATS_ROI_LOG_AS(AdjustFunction, step.log, StatsLogLevelTrace,
                         "%s: processing face landmark points (%d,%d) index %d marginFactor %.3f",
                         step.name, x, y, static_cast<int>(index), static_cast<double>(margin));
        marginX = std::min({marginX, std::max(pointX - roi.left, 0.0F) * margin,
                            std::max(roi.left + roi.width - 1.0F - pointX, 0.0F) * margin});
        marginY = std::min({marginY, std::max(pointY - roi.top, 0.0F) * margin,
                            std::max(roi.top + roi.height - 1.0F - pointY, 0.0F) * margin});
        ++valid;
    }
    factorX = 1.0F;
    factorY = 1.0F;
    if (valid >= MinLandmarkCount) {
        factorX = (roi.width - 2.0F * marginX) / std::max(roi.width, 1.0F);
        factorY = (roi.height - 2.0F * marginY) / std::max(roi.height, 1.0F);
        STATS_ROI_LOG_AS(AdjustFunction, step.log, StatsLogLevelTrace,
                         "%s: faceID %d face landmark shrinkFactor (%.3f, %.3f).", step.name,
                         step.faceID, static_cast<double>(factorX), static_cast<double>(factorY));
    } else {
        STATS_ROI_LOG_AS(AdjustFunction, step.log, StatsLogLevelTrace,
                         "%s: faceID %d valid face landmark number %d is not enough, min number "
                         "%d.",
                         step.name, step.faceID, valid, MinLandmarkCount);
    }
}

/// Pose: a turned or tilted head shows less skin across its box. 1.0 without a valid pose.
float PoseFactor(FaceStep const& step, ROIPriority const& priority, ShrinkTuning const& shrink,
                 StatsROIData const& statsROI)
{
    if (statsROI.poseValid != 1) {
        STATS_ROI_LOG_AS(AdjustFunction, step.log, StatsLogLevelTrace,
                         "%s: faceID %d pose info is invalid!", step.name, step.faceID);
        return 1.0F;
    }
    auto const& pose = shrink.facePoseShrinkFactor;
    float const roll = FoldAngle(statsROI.roll);
    float const yaw = FoldAngle(std::fabs(statsROI.yaw));
    float const pitch = FoldAngle(std::fabs(statsROI.pitch));
    // An untuned curve answers -1.0: it must not shape the face.
    auto factor = [&priority](auto const& curve, float angle) {
        float const value = priority.GetTriggeredValue(&curve, angle, -1.0F);
        return (value > 0.0F) ? value : 1.0F;
    };
    float const rollFactor = factor(pose.rollShrinkFactor, roll);
    float const yawFactor = factor(pose.yawShrinkFactor, yaw);
    float const pitchFactor = factor(pose.pitchShrinkFactor, pitch);
    STATS_ROI_LOG_AS(AdjustFunction, step.log, StatsLogLevelTrace,
                     "%s: faceID %d roll angle %.1f factor %.1f, yaw angle %.1f factor %.1f, "
                     "pitch angle %.1f factor %.1f.",
                     step.name, step.faceID, static_cast<double>(roll),
                     static_cast<double>(rollFactor), static_cast<double>(yaw),
                     static_cast<double>(yawFactor), static_cast<double>(pitch),
                     static_cast<double>(pitchFactor));
    return rollFactor * yawFactor * pitchFactor;
}

/// Temporal filter, a sliding minimum: a face shrinks at once and grows back only after the
/// window has passed, so the metered area does not breathe with detector noise.
void FilterFactors(FaceStep const& step, ShrinkFactorHistory& history, uint32_t length,
                   float& factorX, float& factorY)
{
    float const inputX = factorX;
    float const inputY = factorY;
    history.updated = 1;
    history.widthFactors.push_back(factorX);
    history.heightFactors.push_back(factorY);
    while (history.widthFactors.size() > length) {
        history.widthFactors.pop_front();
        history.heightFactors.pop_front();
    }
    if (!history.widthFactors.empty()) {
        factorX = SmallestFactor(history.widthFactors);
        factorY = SmallestFactor(history.heightFactors);
    }
    STATS_ROI_LOG_AS(
        AdjustFunction, step.log, StatsLogLevelTrace,
        "%s: faceID %d filter shrink factor input (%.3f, %.3f) output (%.3f, %.3f) len %d",
        step.name, step.faceID, static_cast<double>(inputX), static_cast<double>(inputY),
        static_cast<double>(factorX), static_cast<double>(factorY),
        static_cast<int>(history.widthFactors.size()));
}

/// Final rounding into the image: whole pixels, no side outside it.
void RoundIntoImage(ROIData& roi, float imageWidth, float imageHeight)
{
    roi.left = std::max(std::round(roi.left), 0.0F);
    if (!(roi.left < imageWidth)) {
        roi.left = imageWidth;
    }
    roi.top = std::max(std::round(roi.top), 0.0F);
    if (!(roi.top < imageHeight)) {
        roi.top = imageHeight;
    }
    roi.width = std::max(std::round(roi.width), 0.0F);
    if (!(imageWidth - roi.left > roi.width)) {
        roi.width = imageWidth - roi.left;
    }
    roi.height = std::max(std::round(roi.height), 0.0F);
    if (!(imageHeight - roi.top > roi.height)) {
        roi.height = imageHeight - roi.top;
    }
}

} // namespace

void ROIPriority::ShrinkFaceROI(ROIData* rois, unsigned int count,
                                StatsROIInformation const* information)
{
    // Without tuning or input there is nothing to shape by; a face that is not shaped in a
    // frame loses its filter, so the histories go as well.
    if (m_tuning == nullptr || rois == nullptr || information == nullptr) {
        m_shrinkFactors.clear();
        return;
    }
    auto const& shrink = m_tuning->FaceROIDynamicShrink;
    if (shrink.enable == 0 || count == 0 || shrink.faceNum == 0) {
        m_shrinkFactors.clear();
        return;
    }
    count = std::min(count, MaxROICount);
    for (auto& entry : m_shrinkFactors) {
        entry.second.updated = 0;
    }

    // The dominant face is shaped first so that it is never left out by the face limit.
    unsigned int shaped = 0;
    bool const hasDominant =
        m_dominantROIIndex != -1 && static_cast<unsigned int>(m_dominantROIIndex) < count;
    if (hasDominant) {
        AdjustOneFaceROI(rois[m_dominantROIIndex], information->roiData[m_dominantROIIndex]);
        ++shaped;
    }
    // Records pair by position, not by identifier: a ROI dropped at conversion shifts the ones
    // behind it against their input records.
    for (unsigned int i = 0; shaped < shrink.faceNum && i < count; ++i) {
        if (hasDominant && i == static_cast<unsigned int>(m_dominantROIIndex)) {
            continue;
        }
        AdjustOneFaceROI(rois[i], information->roiData[i]);
        ++shaped;
    }

    for (auto it = m_shrinkFactors.begin(); it != m_shrinkFactors.end();) {
        if (it->second.updated == 0) {
            it = m_shrinkFactors.erase(it);
        } else {
            ++it;
        }
    }
}

void ROIPriority::AdjustOneFaceROI(ROIData& roi, StatsROIData const& statsROI)
{
    if (m_tuning == nullptr) {
        return;
    }
    auto const& shrink = m_tuning->FaceROIDynamicShrink;
    float const imageWidth = GetWidth();
    float const imageHeight = GetHeight();
    int const faceID = static_cast<int>(roi.roiID);
    FaceStep const step = {m_logFunction, m_name, faceID, imageWidth, imageHeight};
    ROIData const input = roi;

    float factorX = 1.0F;
    float factorY = 1.0F;
    LandmarkFactors(step, shrink, roi, statsROI, factorX, factorY);
    float const poseFactor = PoseFactor(step, *this, shrink, statsROI);
    factorX = QuantiseFactor(factorX * poseFactor, shrink.factorRoundingPrecision,
                             shrink.minShrinkFactor);
    factorY = QuantiseFactor(factorY * poseFactor, shrink.factorRoundingPrecision,
                             shrink.minShrinkFactor);
    FilterFactors(step, m_shrinkFactors[faceID], shrink.factorFilterLength, factorX, factorY);

    // Small faces: shrinking a small box leaves too few pixels to meter on.
    float sizeX = roi.width / imageWidth;
    float sizeY = roi.height / imageHeight;
    // Sizes are measured in the crop window when asked to; without a window the whole image is
    // the window, and the unset window's width of 1 must not read as a thousandfold zoom.
    if (shrink.roiSizeInCropWindow == 1 && IsCropWindowValid()) {
        float const zoomX = imageWidth / GetCropWidth();
        float const zoomY = imageHeight / GetCropHeight();
        if (zoomX > 1.0F) {
            sizeX *= zoomX;
        }
        if (zoomY > 1.0F) {
            sizeY *= zoomY;
        }
    }
    float const start = shrink.minROISizeToShrink;
    auto relieve = [&](float& factor, float size) {
        if (!(factor < 1.0F && factor > 0.0F)) {
            return;
        }
        float end = 0.0F;
        factor = RelieveSmallFace(factor, size, start, end);
        STATS_ROI_LOG_AS(
            AdjustFunction, m_logFunction, StatsLogLevelTrace,
            "%s: faceID %d handling small ROI normROISize (%.4f %.4f) thres start %.4f "
            "end %.4f.",
            m_name, faceID, static_cast<double>(sizeX), static_cast<double>(sizeY),
            static_cast<double>(start), static_cast<double>(end));
    };
    relieve(factorX, sizeX);
    relieve(factorY, sizeY);

    // Shrink toward the centre.
    float const deltaX = (1.0F - factorX) * roi.width * 0.5F;
    float const deltaY = (1.0F - factorY) * roi.height * 0.5F;
    roi.left += deltaX;
    roi.top += deltaY;
    roi.width -= 2.0F * deltaX;
    roi.height -= 2.0F * deltaY;
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                  "%s: faceID %d final shrinkFactor (%.3f,%.3f) inputROI (%.1f,%.1f,%.1f,%.1f) "
                  "outROI (%.1f,%.1f,%.1f,%.1f)",
                  m_name, faceID, static_cast<double>(factorX), static_cast<double>(factorY),
                  static_cast<double>(input.left), static_cast<double>(input.top),
                  static_cast<double>(input.width), static_cast<double>(input.height),
                  static_cast<double>(roi.left), static_cast<double>(roi.top),
                  static_cast<double>(roi.width), static_cast<double>(roi.height));

    ApplyMask(roi, statsROI, std::min(sizeX * factorX, sizeY * factorY));
    RoundIntoImage(roi, imageWidth, imageHeight);
}

void ROIPriority::ApplyMask(ROIData& roi, StatsROIData const& statsROI, float size)
{
    // Mask: metering a mask's fabric goes wrong, so a face large enough keeps only the largest
    // strip beside it. Removal starts above the high size threshold and goes on down to the
    // low one, so a face near the threshold does not switch every frame.
    auto const& mask = m_tuning->FaceROIDynamicShrink.faceMaskROIControl;
    if (mask.enableMaskROIAdjustment == 1 && statsROI.maskValid == 1) {
        int const faceID = static_cast<int>(roi.roiID);
        int const previousIndex = FindROIIndexByROIID(
            m_rois, static_cast<int>(std::min(m_roiCount, MaxROICount)), faceID);
        uint32_t const previous = (previousIndex != -1) ? m_rois[previousIndex].maskRemoved : 0;
        float const low = mask.minROISizeToRemoveMask[0];
        float const high = mask.minROISizeToRemoveMask[1];
        bool cut = false;
        if (previous == 0) {
            cut = size > high;
            roi.maskRemoved = 0;
        } else if (previous == 1) {
            cut = !(low > size);
            roi.maskRemoved = 0;
        } else {
            roi.maskRemoved = previous;
        }
        if (cut) {
            RemoveMaskArea(roi, statsROI, mask.maskROISizeFactor);
        } else {
            STATS_ROI_LOG_AS(
                AdjustFunction, m_logFunction, StatsLogLevelTrace,
                "%s: faceID %d skip mask removal due to small ROI size %.3f, thres (%.3f "
                "%.3f), prevRemoved %d.",
                m_name, faceID, static_cast<double>(size), static_cast<double>(low),
                static_cast<double>(high), static_cast<int>(previous));
        }
    }
}

void ROIPriority::RemoveMaskArea(ROIData& roi, StatsROIData const& statsROI,
                                 float maskSizeFactor) const
{
    float const imageWidth = GetWidth();
    float const imageHeight = GetHeight();
    roi.maskRemoved = 1;

    float const maskWidth = static_cast<float>(statsROI.maskROI.width);
    float const maskHeight = static_cast<float>(statsROI.maskROI.height);
    float const centerX = static_cast<float>(statsROI.maskROI.left) + maskWidth * 0.5F;
    float const centerY = static_cast<float>(statsROI.maskROI.top) + maskHeight * 0.5F;
    float const halfWidth = maskWidth * maskSizeFactor * 0.5F;
    float const halfHeight = maskHeight * maskSizeFactor * 0.5F;
    float const maskLeft = MaskEdge(centerX - halfWidth, imageWidth - 1.0F);
    float const maskTop = MaskEdge(centerY - halfHeight, imageHeight - 1.0F);
    float const maskRight = MaskEdge(centerX + halfWidth, imageWidth - 1.0F);
    float const maskBottom = MaskEdge(centerY + halfHeight, imageHeight - 1.0F);

    // The largest strip of the box outside the scaled mask; on a tie the earlier candidate
    // stays. A mask over the whole box leaves the zero rectangle.
    ROIData best;
    float bestArea = 0.0F;
    auto consider = [&best, &bestArea](float left, float top, float width, float height) {
        float const area = width * height;
        if (area > bestArea) {
            bestArea = area;
            best.left = left;
            best.top = top;
            best.width = width;
            best.height = height;
        }
    };
    float const right = roi.left + roi.width;
    float const bottom = roi.top + roi.height;
    if (right > maskRight) {
        consider(maskRight, roi.top, right - maskRight, roi.height);
    }
    if (roi.left < maskLeft) {
        consider(roi.left, roi.top, maskLeft - roi.left, roi.height);
    }
    if (bottom > maskBottom) {
        consider(roi.left, maskBottom, roi.width, bottom - maskBottom);
    }
    if (maskTop > roi.top) {
        consider(roi.left, roi.top, roi.width, maskTop - roi.top);
    }

    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                  "%s: faceID %d inputROI (%.1f,%.1f,%.1f,%.1f) maskROI (%.1f,%.1f,%.1f,%.1f) "
                  "outROI (%.1f % .1f %.1f %.1f).",
                  m_name, static_cast<int>(roi.roiID), static_cast<double>(roi.left),
                  static_cast<double>(roi.top), static_cast<double>(roi.width),
                  static_cast<double>(roi.height), static_cast<double>(maskLeft),
                  static_cast<double>(maskTop), static_cast<double>(maskRight - maskLeft),
                  static_cast<double>(maskBottom - maskTop), static_cast<double>(best.left),
                  static_cast<double>(best.top), static_cast<double>(best.width),
                  static_cast<double>(best.height));
    roi.left = best.left;
    roi.top = best.top;
    roi.width = best.width;
    roi.height = best.height;
}
