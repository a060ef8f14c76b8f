// SPDX-License-Identifier: Apache-2.0
// Stats helpers shared by the algorithms: millisecond clock, convergence time measurement,
// the per-frame decision whether statistics are parsed, and the stats globals.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "stats/statsalgo/common/statslog.h"

#include "paramgen/statsglobalelements.h"

/// One convergence time measurement, owned by the caller. Times are milliseconds of
/// z3a_get_time_ms.
struct StatsConvergenceKPIType
{
    uint32_t startTime;            ///< start of the measurement
    uint32_t lastTime;             ///< last frame that was not converged
    uint32_t endTime;              ///< first converged frame
    uint32_t convergenceTime;      ///< endTime - startTime, wrapping
    uint32_t frameCount;           ///< frames since the start
    uint32_t frameCountingStopped; ///< non-zero stops frameCount
    uint32_t reported;             ///< non-zero once the result is logged
};

/// The camera that the calling thread works for; printed by the convergence report.
extern PARAMETERPARSER_API thread_local int g_cameraId;

extern "C" {

/// Wall clock in milliseconds, wrapping in 32 bits.
PARAMETERPARSER_API uint32_t z3a_get_time_ms();

/// Starts a new measurement from the last unconverged frame of the previous one: startTime
/// takes lastTime, the frame count restarts at 1, counting and reporting are re-armed.
PARAMETERPARSER_API void StatsRestartConvergenceKPI(StatsConvergenceKPIType* kpi);

/// Feeds one frame. `state` 1 means not yet converged: the frame is counted and its time kept.
/// Any other state ends the measurement on its first call and reports the convergence time once
/// through g_statsLogger (group 2, level 16); later calls do nothing until a restart. Without a
/// logger installed the report is skipped, the measurement still ends.
PARAMETERPARSER_API void StatsConvergenceKPIMeasure(int state, StatsConvergenceKPIType* kpi,
                                                    char const* name);

/// Whether a frame's statistics are skipped at control value `value`: the triggerData of the
/// row of `skip`'s table that holds `value`, or of the next row when `value` lies in the gap
/// behind a row. Rows must stand by rising start. 0 when the feature is not enabled (enable
/// other than 1) or the table is empty. A value outside a single row gives 0; with two or more
/// rows a value below or above all rows gives the last row's data.
PARAMETERPARSER_API int IsStatsParsingToSkip(statsglobalelements::StatsParsingSkipType const* skip,
                                             float value);
}
