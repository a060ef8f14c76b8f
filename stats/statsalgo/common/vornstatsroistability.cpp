// SPDX-License-Identifier: Apache-2.0
// The threshold-checker base, and the stable and change checkers built on it.
#include "stats/statsalgo/common/vornstatsroistability.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

using DifferenceTuning = ROIThresholdChecker::TuningType;
using ThresholdRow = ROIThresholdChecker::ThresholdRow;

// The threshold rows of the tuning, and how many there are.
uint32_t RowCount(DifferenceTuning const& tuning)
{
    return tuning.statsROIDiffThreshold.triggerDataCount;
}

ThresholdRow const* Rows(DifferenceTuning const& tuning)
{
    return tuning.statsROIDiffThreshold.triggerData;
}

// The row the thresholds come from: the first whose start is at or below the gain, otherwise
// the last. -1 when there is no row to choose.
int RowForGain(DifferenceTuning const* tuning, float gain)
{
    if (tuning == nullptr || RowCount(*tuning) == 0 || Rows(*tuning) == nullptr)
        return -1;
    uint32_t const count = RowCount(*tuning);
    for (uint32_t i = 0; i < count; ++i) {
        if (Rows(*tuning)[i].triggerPt.start <= gain)
            return static_cast<int>(i);
    }
    return static_cast<int>(count - 1);
}

// The row at `index`, or null when the tuning has no such row (no tuning, an empty table, or an
// index left from a longer table).
ThresholdRow const* RowAt(DifferenceTuning const* tuning, int index)
{
    if (tuning == nullptr || Rows(*tuning) == nullptr || index < 0 ||
        static_cast<uint32_t>(index) >= RowCount(*tuning))
        return nullptr;
    return &Rows(*tuning)[index];
}

// How far two ROIs are apart, in percent of the image diagonal: centre distance and difference
// of the ROI diagonals. Centres are cut to whole pixels first, so sub-pixel jitter counts as 0.
struct ROIDifference
{
    int newX;
    int newY;
    int oldX;
    int oldY;
    float location;
    float size;
};

// The centre of a ROI along one axis, cut toward zero. Coordinates come from another library
// unchecked: a NaN or a value past the int range is pinned instead of converted, which would be
// undefined.
int CentreCoordinate(float start, float length)
{
    double const centre = static_cast<double>(start) + static_cast<double>(length) * 0.5;
    if (!(centre > static_cast<double>(std::numeric_limits<int>::min())))
        return centre > 0.0 ? std::numeric_limits<int>::max() : std::numeric_limits<int>::min();
    if (centre >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    return static_cast<int>(centre);
}

ROIDifference MeasureDifference(ROIData const& newROI, ROIData const& oldROI, float width,
                                float height)
{
    ROIDifference difference = {};
    difference.newX = CentreCoordinate(newROI.left, newROI.width);
    difference.newY = CentreCoordinate(newROI.top, newROI.height);
    difference.oldX = CentreCoordinate(oldROI.left, oldROI.width);
    difference.oldY = CentreCoordinate(oldROI.top, oldROI.height);
    float const dx = static_cast<float>(static_cast<int64_t>(difference.newX) - difference.oldX);
    float const dy = static_cast<float>(static_cast<int64_t>(difference.newY) - difference.oldY);
    float const diagonal = std::sqrt(width * width + height * height);
    difference.location = std::sqrt(dx * dx + dy * dy) * 100.0F / diagonal;
    float const newDiagonal =
        std::sqrt(newROI.width * newROI.width + newROI.height * newROI.height);
    float const oldDiagonal =
        std::sqrt(oldROI.width * oldROI.width + oldROI.height * oldROI.height);
    difference.size = std::fabs(newDiagonal - oldDiagonal) * 100.0F / diagonal;
    return difference;
}

// The per-ROI arrays hold MaxROICount records; a larger count is never walked past them.
int CappedCount(unsigned int count)
{
    return static_cast<int>(std::min(count, MaxROICount));
}

} // namespace

ROIThresholdChecker::ROIThresholdChecker()
    : m_flags{}, m_counts{}, m_tuning(nullptr), m_thresholdIndex(0)
{
}

bool ROIThresholdChecker::SelectThresholdRow()
{
    int const index = RowForGain(m_tuning, GetAECGain());
    if (index < 0) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL tuning pointer", m_name);
        return false;
    }
    m_thresholdIndex = index;
    return true;
}

ROIThresholdChecker::ThresholdRow const*
ROIThresholdChecker::Measure(ROIData const& newROI, ROIData const& oldROI, char const* oldName,
                             float& location, float& size) const
{
    float const width = GetWidth();
    float const height = GetHeight();
    ThresholdRow const* row = RowAt(m_tuning, m_thresholdIndex);
    if (width <= 0.0F || height <= 0.0F || row == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError,
                      "%s: NULL tuning pointer %p or invalid resolution (%f, %f)", m_name,
                      static_cast<void const*>(m_tuning), static_cast<double>(width),
                      static_cast<double>(height));
        return nullptr;
    }
    ROIDifference const difference = MeasureDifference(newROI, oldROI, width, height);
    location = difference.location;
    size = difference.size;
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace,
                  "%s: ROI new (%d %d) %s (%d %d) diff loc %f size %f thres loc %f size %f", m_name,
                  difference.newX, difference.newY, oldName, difference.oldX, difference.oldY,
                  static_cast<double>(location), static_cast<double>(size),
                  static_cast<double>(row->triggerData.locationThreshold),
                  static_cast<double>(row->triggerData.sizeThreshold));
    return row;
}

template <typename Next>
bool ROIThresholdChecker::UpdateFlags(ROIData const* rois, unsigned int count,
                                      unsigned int noTuningLevel, char const* flagName, Next next)
{
    if (rois == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL input pointer", m_name);
        return false;
    }
    if (m_tuning == nullptr) {
        STATS_ROI_LOG(m_logFunction, noTuningLevel, "%s: NULL tuning pointer", m_name);
        return false;
    }
    // An empty threshold table leaves no row to compare against; the selection has logged it.
    if (!SelectThresholdRow())
        return false;
    ThresholdRow const* row = RowAt(m_tuning, m_thresholdIndex);
    STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: ROI size %u", m_name, count);

    // The stored records are the previous frame. They are searched with the new count, so a ROI
    // whose previous index lies at or behind it starts again from 0.
    int const limit = CappedCount(count);
    int32_t counters[MaxROICount] = {};
    for (int i = 0; i < limit; ++i) {
        int const id = static_cast<int>(rois[i].roiID);
        int32_t const counter = next(i, FindROIIndexByROIID(m_rois, limit, id), limit);
        counters[i] = counter;
        m_flags[i] = row->triggerData.countThreshold <= counter ? 1 : 0;
        STATS_ROI_LOG(m_logFunction, StatsLogLevelTrace, "%s: ROI id %d index %d %s %d %s cnt %d",
                      m_name, id, i, flagName, static_cast<int>(m_flags[i]), flagName, counter);
    }
    std::memcpy(m_counts, counters, sizeof(m_counts));
    SetROIs(rois);
    return true;
}

int ROIThresholdChecker::CurrentIndex(int id) const
{
    return FindROIIndexByROIID(m_rois, CappedCount(m_roiCount), id);
}

ROIStableChecker::ROIStableChecker() = default;

bool ROIStableChecker::SetTuningData(TuningType const* tuning)
{
    m_tuning = tuning;
    return true;
}

bool ROIStableChecker::UpdateThreshold()
{
    return SelectThresholdRow();
}

bool ROIStableChecker::UpdateROIData(StatsROIInformation const* information, int processPartial)
{
    if (information == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL input pointer", m_name);
        return false;
    }
    ROIData rois[MaxROICount];
    ConvertToROIData(information, rois, processPartial, 1.0F);
    UpdateROIStable(rois, m_roiCount);
    return true;
}

bool ROIStableChecker::UpdateProcROIData(ROIData const* rois, unsigned int count)
{
    if (rois == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError, "%s: NULL input pointer", m_name);
        return false;
    }
    SetROIsCount(count);
    UpdateROIStable(rois, count);
    return true;
}

bool ROIStableChecker::ROIStableCheck(ROIData newROI, ROIData oldROI) const
{
    float location = 0.0F;
    float size = 0.0F;
    ThresholdRow const* row = Measure(newROI, oldROI, "old", location, size);
    if (row == nullptr)
        return true;
    return row->triggerData.locationThreshold > location && row->triggerData.sizeThreshold > size;
}

bool ROIStableChecker::UpdateROIStable(ROIData const* rois, unsigned int count)
{
    // A ROI that stayed put since the previous frame counts one more frame; any other starts
    // again from 0.
    return UpdateFlags(rois, count, StatsLogLevelFault, "stable", [&](int i, int previous, int) {
        if (previous >= 0 && ROIStableCheck(rois[i], GetROI(previous)))
            return m_counts[previous] + 1;
        return 0;
    });
}

bool ROIStableChecker::IsROIStableByID(int id) const
{
    if (m_tuning == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelFault,
                      "%s: return stable when no tuning data available", m_name);
        return true;
    }
    int const index = CurrentIndex(id);
    if (index < 0) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelFault, "%s: No ROI ID %d in ROIStableChecker",
                      m_name, id);
        return true;
    }
    return m_flags[index] != 0;
}

ROIChangeChecker::ROIChangeChecker() : m_referenceROIs{}
{
}

bool ROIChangeChecker::SetTuningData(TuningType const* tuning)
{
    m_tuning = tuning;
    return true;
}

bool ROIChangeChecker::UpdateThreshold()
{
    return SelectThresholdRow();
}

bool ROIChangeChecker::UpdateROIData(StatsROIInformation const* information, int processPartial)
{
    if (information == nullptr)
        return false;
    ROIData rois[MaxROICount];
    ConvertToROIData(information, rois, processPartial, 1.0F);
    UpdateROIChange(rois, m_roiCount);
    return true;
}

bool ROIChangeChecker::ROIChangeCheck(ROIData newROI, ROIData referenceROI) const
{
    float location = 0.0F;
    float size = 0.0F;
    ThresholdRow const* row = Measure(newROI, referenceROI, "ref", location, size);
    if (row == nullptr)
        return false;
    return row->triggerData.locationThreshold < location || row->triggerData.sizeThreshold < size;
}

bool ROIChangeChecker::UpdateROIChange(ROIData const* rois, unsigned int count)
{
    // A ROI away from its reference counts one more frame; one at its reference starts again
    // from 0. A ROI that the reference does not hold has changed by definition.
    return UpdateFlags(
        rois, count, StatsLogLevelError, "change", [&](int i, int previous, int limit) {
            int32_t const old = previous >= 0 ? m_counts[previous] : 0;
            int const reference =
                FindROIIndexByROIID(m_referenceROIs, limit, static_cast<int>(rois[i].roiID));
            if (reference >= 0 && !ROIChangeCheck(rois[i], m_referenceROIs[reference]))
                return 0;
            return old + 1;
        });
}

bool ROIChangeChecker::UpdateReferenceROI()
{
    std::memcpy(m_referenceROIs, m_rois, sizeof(m_referenceROIs));
    return true;
}

bool ROIChangeChecker::IsROIChangeByID(int id) const
{
    if (m_tuning == nullptr) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelFault,
                      "%s: return no change when no tuning data available", m_name);
        return false;
    }
    int const index = CurrentIndex(id);
    if (index < 0) {
        STATS_ROI_LOG(m_logFunction, StatsLogLevelError,
                      "%s: No ROI ID %d at index %d in ROIStableChecker", m_name, id, index);
        return false;
    }
    return m_flags[index] != 0;
}
