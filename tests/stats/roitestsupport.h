// SPDX-License-Identifier: Apache-2.0
// Test support for the ROI processor: a recording log hook, input records and tuning builders.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "stats/statsalgo/common/vornstatsroipriority.h"

namespace RoiTest {

/// One call of the log hook.
struct LoggedLine
{
    std::string file;
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
__attribute__((format(printf, 6, 7))) inline void RecordLine(char const* file, int /*line*/,
                                                             char const* function,
                                                             unsigned int group, unsigned int level,
                                                             char const* format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    LoggedLines().push_back({file, function, group, level, text});
}

/// True when a line with exactly `text` was logged at `level`.
inline bool Logged(unsigned int level, std::string const& text)
{
    for (LoggedLine const& line : LoggedLines()) {
        if (line.level == level && line.text == text) {
            return true;
        }
    }
    return false;
}

/// Lines whose text starts with `prefix`.
inline size_t CountLogged(std::string const& prefix)
{
    size_t count = 0;
    for (LoggedLine const& line : LoggedLines()) {
        count += (line.text.compare(0, prefix.size(), prefix) == 0) ? 1 : 0;
    }
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
    for (size_t i = 0; i < faces.size() && i < MaxROICount; ++i) {
        information.roiData[i] = faces[i];
    }
    return information;
}

/// One band of a tuned curve: [start, end] -> data.
struct Band
{
    float start;
    float end;
    float data;
};

/// Owns a complete ROI priority tuning and the arrays its counted members point at. Curves are
/// empty and shaping is off until a test sets them.
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
        m_rows.emplace_back();
        auto& rows = m_rows.back();
        for (Band const& band : bands) {
            statsglobalelements::glbTriggerDataFloatType row = {};
            row.triggerPt.start = band.start;
            row.triggerPt.end = band.end;
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
        for (auto const& point : points) {
            statsroipriority::FaceLandmarkPointType entry = {};
            entry.landmarkIndex = point.first;
            entry.shrinkMarginFactor = point.second;
            m_landmarks.push_back(entry);
        }
        Shrink().landmarkPointsCount = static_cast<uint32_t>(m_landmarks.size());
        Shrink().landmarkPoints = m_landmarks.empty() ? nullptr : m_landmarks.data();
    }

private:
    statsroipriority::varitonalStatsROIPriorityType m_tuning;
    std::vector<std::vector<statsglobalelements::glbTriggerDataFloatType>> m_rows;
    std::vector<statsroipriority::FaceLandmarkPointType> m_landmarks;
};

} // namespace RoiTest
