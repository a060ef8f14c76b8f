// SPDX-License-Identifier: Apache-2.0
// Millisecond clock, convergence time measurement and the parsing skip decision.
#include "stats/statsalgo/common/vornstatsdefs.h"

#include <sys/time.h>

#include "platform/vornlog.h"

StatsLogFunction g_statsLogger = nullptr;
thread_local int g_cameraId = 0;

namespace {

// The convergence report goes to the host's exposure/focus log group, not to the ROI group.
constexpr unsigned int StatsLogGroupConvergence = 2;

using SkipRow = statsglobalelements::StatsParsingTriggerType;

// Of a row and the one behind it, the row whose data holds for `value`, when `value` is not
// below the row's start: the row itself up to its end, the next row in the gap behind it.
int RowOrNext(SkipRow const& row, SkipRow const& next, float value)
{
    return row.trigger.end >= value ? row.triggerData : next.triggerData;
}

} // namespace

extern "C" {

uint32_t z3a_get_time_ms()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    // Both parts are cut to 32 bits first, so the sum wraps the way the algorithms expect.
    return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec) / 1000u;
}

void StatsRestartConvergenceKPI(StatsConvergenceKPIType* kpi)
{
    if (kpi == nullptr)
        return;
    kpi->startTime = kpi->lastTime;
    kpi->frameCount = 1;
    kpi->frameCountingStopped = 0;
    kpi->reported = 0;
}

void StatsConvergenceKPIMeasure(int state, StatsConvergenceKPIType* kpi, char const* name)
{
    if (kpi == nullptr)
        return;
    if (state == 1) {
        if (kpi->frameCountingStopped == 0)
            ++kpi->frameCount;
        kpi->lastTime = z3a_get_time_ms();
        return;
    }
    if (kpi->reported != 0)
        return;

    kpi->endTime = z3a_get_time_ms();
    kpi->frameCountingStopped = 1;
    kpi->reported = 1;
    kpi->convergenceTime = kpi->endTime - kpi->startTime;
    StatsLogFunction const logger = g_statsLogger;
    if (logger != nullptr)
        logger(Vorn::Log::GetFileName(__FILE__), __LINE__, "StatsConvergenceKPIMeasure",
               StatsLogGroupConvergence, StatsLogLevelFault,
               "CID:[%d] KPI:%s Convergence done (Convergence Time + Panning Time):%u ms "
               "StartTime:%u EndTime %u Frames %u",
               g_cameraId, name != nullptr ? name : "", kpi->convergenceTime, kpi->startTime,
               kpi->endTime, kpi->frameCount);
}

int IsStatsParsingToSkip(statsglobalelements::StatsParsingSkipType const* skip, float value)
{
    if (skip == nullptr || skip->enable != 1)
        return 0;
    uint32_t const count = skip->statsParsingTriggerCount;
    SkipRow const* rows = skip->statsParsingTrigger;
    if (count == 0 || rows == nullptr)
        return 0;
    if (count == 1)
        return rows[0].trigger.start <= value && rows[0].trigger.end >= value ? rows[0].triggerData
                                                                              : 0;

    for (uint32_t i = 0; i + 1 < count; ++i) {
        if (rows[i].trigger.start <= value && rows[i + 1].trigger.start >= value)
            return RowOrNext(rows[i], rows[i + 1], value);
    }
    // Above every row the last pair decides; below every row the last row's data holds too.
    SkipRow const& row = rows[count - 2];
    SkipRow const& next = rows[count - 1];
    return row.trigger.start <= value ? RowOrNext(row, next, value) : next.triggerData;
}
}
