// SPDX-License-Identifier: Apache-2.0
// ROI processor fixtures for tests and benchmarks: a recording log hook, input frames and the
// tunings of the priority and difference services with the arrays they point at.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "stats/statsalgo/common/vornstatsroipriority.h"
#include "stats/statsalgo/common/vornstatsroistability.h"

namespace RoiTest {

/// One call of the log hook.
struct LoggedLine
{
    std::string function;
    unsigned int group;
    unsigned int level;
    std::string text;
};

inline std::vector<LoggedLine>& LoggedLines()
{
    static std::vector<LoggedLine> lines;
    return lines;
}

/// A StatsLogFunction that formats and keeps each line.
__attribute__((format(printf, 6, 7))) inline void RecordLine(char const*, int, char const* function,
                                                             unsigned int group, unsigned int level,
                                                             char const* format, ...)
{
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    LoggedLines().push_back({function, group, level, text});
}

/// How many lines were logged at `level` whose text starts with `prefix`.
inline size_t CountLogged(unsigned int level, std::string const& prefix)
{
    size_t count = 0;
    for (LoggedLine const& line : LoggedLines())
        count += (line.level == level && line.text.compare(0, prefix.size(), prefix) == 0) ? 1 : 0;
    return count;
}

/// An input face record with the given box; no landmarks, pose or mask.
inline StatsROIData Face(int id, unsigned int left, unsigned int top, unsigned int width,
                         unsigned int height)
{
    StatsROIData face = {};
    face.roiID = id;
    face.left = left;
    face.top = top;
    face.width = width;
    face.height = height;
    return face;
}

/// A frame of input records.
inline StatsROIInformation Frame(std::vector<StatsROIData> const& faces)
{
    StatsROIInformation information = {};
    information.roiCount = static_cast<uint32_t>(faces.size());
    for (size_t i = 0; i < faces.size() && i < MaxROICount; ++i)
        information.roiData[i] = faces[i];
    return information;
}

/// A ROI with the given identifier and box.
inline ROIData Box(float left, float top, float width, float height, uint32_t id = 0)
{
    ROIData roi;
    roi.roiID = id;
    roi.left = left;
    roi.top = top;
    roi.width = width;
    roi.height = height;
    return roi;
}

/// Left, top, width and height of a ROI, to compare in one assertion.
using Rect = std::array<float, 4>;
inline Rect RectOf(ROIData const& roi)
{
    return {roi.left, roi.top, roi.width, roi.height};
}

/// One band of a tuned curve: [start, end] -> data.
struct Band
{
    float start;
    float end;
    float data;
};

/// Owns a ROI priority tuning and the arrays its counted members point at. Curves are empty and
/// shaping is off until a test sets them.
class Tuning
{
public:
    Tuning() : m_tuning() {}
    Tuning(Tuning const&) = delete;
    Tuning& operator=(Tuning const&) = delete;

    statsroipriority::varitonalStatsROIPriorityType* operator->() { return &m_tuning; }
    statsroipriority::varitonalStatsROIPriorityType const* Get() const { return &m_tuning; }
    statsroipriority::FaceROIShrinkType& Shrink() { return m_tuning.FaceROIDynamicShrink; }

    /// Points `curve` at rows made from `bands`; the rows live as long as this object.
    void SetCurve(statsroipriority::modFaceRoiTriggerDataType& curve,
                  std::vector<Band> const& bands)
    {
        auto& rows = m_rows.emplace_back();
        for (Band const& band : bands) {
            statsglobalelements::glbTriggerDataFloatType row = {};
            row.triggerPt = {band.start, band.end};
            row.triggerData.data = band.data;
            rows.push_back(row);
        }
        curve.triggerDataCount = static_cast<uint32_t>(rows.size());
        curve.triggerData = rows.empty() ? nullptr : rows.data();
    }

    /// Tuned landmarks: (landmark index, margin factor) pairs.
    void SetLandmarks(std::vector<std::pair<unsigned int, float>> const& points)
    {
        m_landmarks.clear();
        for (auto const& [index, margin] : points)
            m_landmarks.push_back({index, margin});
        Shrink().landmarkPointsCount = static_cast<uint32_t>(m_landmarks.size());
        Shrink().landmarkPoints = m_landmarks.empty() ? nullptr : m_landmarks.data();
    }

private:
    statsroipriority::varitonalStatsROIPriorityType m_tuning;
    std::vector<std::vector<statsglobalelements::glbTriggerDataFloatType>> m_rows;
    std::vector<statsroipriority::FaceLandmarkPointType> m_landmarks;
};

/// One threshold row of the difference services: from gain `start` on, location and size in
/// percent of the image diagonal, and the frames in a row needed.
struct ThresholdRow
{
    float start;
    float location;
    float size;
    int count;
};

/// Owns a difference tuning and its rows.
class DifferenceTuning
{
public:
    explicit DifferenceTuning(std::vector<ThresholdRow> const& rows) : m_tuning()
    {
        for (ThresholdRow const& row : rows) {
            statsglobalelements::FaceROIDiffThresholdType entry = {};
            entry.triggerPt = {row.start, row.start + 1.0F};
            entry.triggerData.locationThreshold = row.location;
            entry.triggerData.sizeThreshold = row.size;
            entry.triggerData.countThreshold = row.count;
            m_rows.push_back(entry);
        }
        m_tuning.statsROIDiffThreshold.triggerDataCount = static_cast<uint32_t>(m_rows.size());
        m_tuning.statsROIDiffThreshold.triggerData = m_rows.empty() ? nullptr : m_rows.data();
    }
    DifferenceTuning(DifferenceTuning const&) = delete;
    DifferenceTuning& operator=(DifferenceTuning const&) = delete;

    statsroidifference::varitonalStatsROIDifferenceType const* Get() const { return &m_tuning; }

private:
    statsroidifference::varitonalStatsROIDifferenceType m_tuning;
    std::vector<statsglobalelements::FaceROIDiffThresholdType> m_rows;
};

} // namespace RoiTest
