// SPDX-License-Identifier: Apache-2.0
// Per-ROI stability and change detection across frames, with thresholds chosen by AEC gain.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "stats/statsalgo/common/vornstatsroidata.h"

#include "paramgen/statsroidifference.h"

/// What the stable and the change checker share: the borrowed tuning, the threshold row picked
/// for the AEC gain, the difference measure between two ROIs, and a per-ROI flag with the number
/// of frames in a row that a condition held. Internal: hosts use the two checkers.
class ROIThresholdChecker : public ROIsData
{
public:
    using TuningType = statsroidifference::varitonalStatsROIDifferenceType;
    using ThresholdRow = statsglobalelements::FaceROIDiffThresholdType;

    /// The row that UpdateThreshold picked last.
    int GetThresholdIndex() const { return m_thresholdIndex; }

protected:
    /// No ROIs, no tuning, all flags and counters 0.
    ROIThresholdChecker();

    /// Picks the first row whose start is at or below the gain, or the last row. No tuning or no
    /// rows: level 2 log, false, the row stays.
    bool SelectThresholdRow();

    /// The row picked, when the resolution is set and the row exists; `newROI` measured against
    /// `oldROI` in `location` and `size`, traced with `oldName` naming the second ROI. Otherwise
    /// null after a level 2 log.
    ThresholdRow const* Measure(ROIData const& newROI, ROIData const& oldROI, char const* oldName,
                                float& location, float& size) const;

    /// The frame update of both checkers: no input, no tuning (logged at `noTuningLevel`) or no
    /// row: false, nothing changes. Otherwise each of the first `count` records of `rois`
    /// (capped at MaxROICount) gets the counter `next(i, previous)` returns, where `previous`
    /// is the index of the same ID among the stored records or -1; its flag is set once the
    /// counter reaches the tuned count. Then `rois` becomes the stored frame.
    template <typename Next>
    bool UpdateFlags(ROIData const* rois, unsigned int count, unsigned int noTuningLevel,
                     char const* flagName, Next next);

    /// The index of `id` among the current ROIs, or -1.
    int CurrentIndex(int id) const;

    uint32_t m_flags[MaxROICount];
    int32_t m_counts[MaxROICount];
    TuningType const* m_tuning;
    int32_t m_thresholdIndex;
};

/// Tells for each ROI, by its identifier, whether it has stayed put: it moved and resized less
/// than the tuned thresholds against the previous frame for the tuned number of frames in a row.
/// The tuning is borrowed: the caller keeps it alive. No allocation on the frame path.
class PARAMETERPARSER_API ROIStableChecker : public ROIThresholdChecker
{
public:
    /// No ROIs, no tuning, all flags and counters 0.
    ROIStableChecker();

    /// Borrows the tuning; null means no tuning. Always true.
    bool SetTuningData(TuningType const* tuning);

    /// The frame entry: converts the input (trimming partial ROIs with threshold 1.0 when
    /// `processPartial` is 1) and updates the flags. Null `information`: "NULL input pointer" at
    /// level 2 and false, nothing changes. Otherwise true.
    bool UpdateROIData(StatsROIInformation const* information, int processPartial);

    /// The frame entry for records that are processed already: `rois` holds MaxROICount records
    /// of which the first `count` are this frame's. Null `rois`: level 2 log and false.
    bool UpdateProcROIData(ROIData const* rois, unsigned int count);

    /// Compares each of the first `count` records of `rois` (MaxROICount records) with the
    /// stored record of the same ID, counts frames in a row below the thresholds, sets the
    /// flags, then takes `rois` as the stored frame. No tuning, or a threshold table without
    /// rows: level 16 log, false, nothing changes. `count` is capped at MaxROICount.
    bool UpdateROIStable(ROIData const* rois, unsigned int count);

    /// True when `newROI` lies within the location and size thresholds of `oldROI`, both as
    /// percentages of the image diagonal, strictly. No usable tuning row: level 2 log, true.
    bool ROIStableCheck(ROIData newROI, ROIData oldROI) const;

    /// The stability flag of the ROI with this ID. No tuning, or an ID that is not among the
    /// current ROIs: level 16 log and true (what nothing is known about counts as stable).
    bool IsROIStableByID(int id) const;

    /// Picks the threshold row for the current AEC gain: the first row whose start is at or
    /// below the gain, or the last row. No tuning or no rows: level 2 log, false, the row stays.
    bool UpdateThreshold();
};

/// Tells for each ROI, by its identifier, whether it has left a reference snapshot: it differed
/// from the reference record of the same ID by more than the tuned thresholds for the tuned
/// number of frames in a row. A ROI the reference does not hold counts as different. The
/// tuning is borrowed. No allocation on the frame path.
class PARAMETERPARSER_API ROIChangeChecker : public ROIThresholdChecker
{
public:
    /// No ROIs, no reference, no tuning, all flags and counters 0.
    ROIChangeChecker();

    /// Borrows the tuning; null means no tuning. Always true.
    bool SetTuningData(TuningType const* tuning);

    /// The frame entry: converts the input (trimming partial ROIs with threshold 1.0 when
    /// `processPartial` is 1) and updates the flags. Null `information`: false without a log.
    bool UpdateROIData(StatsROIInformation const* information, int processPartial);

    /// Compares each of the first `count` records of `rois` (MaxROICount records) with the
    /// reference record of the same ID, counts frames in a row beyond a threshold, sets the
    /// flags, then takes `rois` as the stored frame. No tuning, or a threshold table without
    /// rows: level 2 log, false, nothing changes. `count` is capped at MaxROICount.
    bool UpdateROIChange(ROIData const* rois, unsigned int count);

    /// True when `newROI` is beyond the location or the size threshold from `referenceROI`,
    /// strictly. No usable tuning row: level 2 log, false.
    bool ROIChangeCheck(ROIData newROI, ROIData referenceROI) const;

    /// Takes the current records, all MaxROICount of them, as the reference. Always true.
    bool UpdateReferenceROI();

    /// The change flag of the ROI with this ID. No tuning: level 16 log, false. An ID that is
    /// not among the current ROIs: level 2 log, false.
    bool IsROIChangeByID(int id) const;

    /// As ROIStableChecker::UpdateThreshold.
    bool UpdateThreshold();

private:
    ROIData m_referenceROIs[MaxROICount];
};
