// SPDX-License-Identifier: Apache-2.0
// Dominant ROI selection with hysteresis, and shaping of face ROIs to the skin area.
#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "stats/statsalgo/common/vornstatsroidata.h"

#include "paramgen/statsroipriority.h"

/// The recent shrink factors of one face: a sliding window of at most the filter length.
struct ShrinkFactorHistory
{
    std::deque<float> widthFactors;
    std::deque<float> heightFactors;
    uint32_t updated = 0; ///< 1 when the face was shaped in the current frame
};

/// Per face identifier, its shrink factor history. The only storage of the ROI processor that
/// grows: a face's entry lives while the face is shaped every frame.
using FacesShrinkFactors = std::unordered_map<int, ShrinkFactorHistory>;

/// Picks the dominant ROI of each frame by size and centrality, with a bonus for the last
/// winner, and shapes the face ROIs. The tuning is borrowed: the caller keeps it alive.
class PARAMETERPARSER_API ROIPriority : public ROIsData
{
public:
    using TuningType = statsroipriority::varitonalStatsROIPriorityType;
    using TriggerCurveType = statsroipriority::modFaceRoiTriggerDataType;

    /// No dominant or reference ROI, no tuning, zero scores.
    ROIPriority();

    /// Borrows the tuning; null is accepted and means the defaults of the scoring steps.
    /// Always true.
    bool SetTuningData(TuningType const* tuning);

    /// The frame entry: converts the input (trimming partial ROIs with the tuned threshold when
    /// `processPartial` is 1), selects the dominant ROI, shapes the faces and keeps the result.
    /// Null `information`: logs "NULL input pointer" at level 2, false, nothing changes.
    bool UpdateROIData(StatsROIInformation const* information, int processPartial);

    /// The last selection's score at `index`; 0.0 outside 0..15.
    float GetScore(int index) const;
    int GetDominantIndex() const { return m_dominantROIIndex; }
    int GetDominantID() const { return m_dominantROIID; }
    /// True when the dominant ID differs from the one of the last UpdateReferenceROI.
    bool IsDominantIDChange() const { return m_referenceROIID != m_dominantROIID; }
    /// Takes the current dominant ID as the reference; always true.
    bool UpdateReferenceROI();
    /// Hands out the processed records and their count; the records stay owned by this object.
    void GetProcessedROI(ROIData const*& rois, unsigned int& count) const;
    /// Zeroes the records and forgets dominant and reference; scores, history and tuning stay.
    void Clear();

    /// Evaluates a curve of flat bands joined by straight lines at `value`. A null or empty
    /// curve logs "zero tuning entry" at level 2 and gives `defaultValue`.
    float GetTriggeredValue(TriggerCurveType const* triggerData, float value,
                            float defaultValue) const;
    /// The plain score of `roi`: tuned size score times location score. Writes
    /// roi.normalizedSize. A set named "AECFaceROI" with a valid crop window measures the ROI
    /// inside the window.
    float ROIDominantScore(ROIData& roi) const;
    /// Selects the dominant of the first `count` records of `rois` (at most MaxROICount) and
    /// stores index, ID and scores. Always true.
    bool DominantROISelection(ROIData* rois, unsigned int count);

    /// Shapes up to the tuned number of faces of `rois`, the dominant one first, pairing record
    /// `i` with input record `i`, and drops the history of faces not shaped in this frame.
    /// Shaping off, no tuning, null arguments or `count` 0: every history is dropped.
    void ShrinkFaceROI(ROIData* rois, unsigned int count, StatsROIInformation const* information);
    /// Shapes one ROI in place from its input record: landmark and pose factors, quantisation,
    /// temporal minimum filter, small-face relief, mask removal and final rounding. Does
    /// nothing without tuning.
    void AdjustOneFaceROI(ROIData& roi, StatsROIData const& statsROI);

    /// The shrink history, one entry per face shaped in the last frame.
    FacesShrinkFactors const& GetShrinkFactors() const { return m_shrinkFactors; }

private:
    /// Mask removal with hysteresis for a face of `size` (the smaller shaped side over the
    /// image): starts above the high size threshold and goes on down to the low one.
    __attribute__((visibility("hidden"))) void ApplyMask(ROIData& roi, StatsROIData const& statsROI,
                                                         float size);
    /// Cuts the scaled mask out of `roi`, keeping the largest strip beside it.
    void RemoveMaskArea(ROIData& roi, StatsROIData const& statsROI, float maskSizeFactor) const;

    int m_dominantROIIndex;
    int m_dominantROIID;
    int m_referenceROIID;
    float m_dominantScores[MaxROICount];
    TuningType const* m_tuning;
    FacesShrinkFactors m_shrinkFactors;
};
