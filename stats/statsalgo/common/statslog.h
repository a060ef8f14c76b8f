// SPDX-License-Identifier: Apache-2.0
// The log hook of the stats services and the macro that calls it only when a hook is installed.
#pragma once

#include "platform/vornlog.h"

#include "parameterparser/parameterexport.h"

/// The host's log function for the stats code: source file base name, source line, function
/// name, log group, level, printf format and the format's arguments. The format attribute lets
/// the compiler check every fixed message against its arguments.
typedef void (*StatsLogFunction)(char const* fileName, int line, char const* functionName,
                                 unsigned int group, unsigned int level, char const* format, ...)
    __attribute__((format(printf, 6, 7)));

/// The process-wide stats log hook that the host sets; null until then.
extern PARAMETERPARSER_API StatsLogFunction g_statsLogger;

/// Log group of every line that the ROI services write.
constexpr unsigned int StatsLogGroupROI = 1;

/// Levels the stats services use: faults, refused gains, traces.
constexpr unsigned int StatsLogLevelError = 2;
constexpr unsigned int StatsLogLevelGain = 4;
constexpr unsigned int StatsLogLevelFault = 16;
constexpr unsigned int StatsLogLevelTrace = 32;

/// The base name that every log line of the ROI processor carries, whichever file of the
/// processor family writes it: hosts filter their logs by it.
constexpr char const* StatsROIProcessorFile = "vornstatsroiprocessor.cpp";

/// Calls `hook` with the file's base name, the line, the function, group 1, `level` and the
/// format; does nothing (and evaluates no argument) when `hook` is null.
#define STATS_ROI_LOG(hook, level, ...) STATS_ROI_LOG_AS(__func__, hook, level, __VA_ARGS__)

/// STATS_ROI_LOG under the name of `function`: a step split out of a function logs as that
/// function, so hosts see the same lines whichever helper writes them.
#define STATS_ROI_LOG_AS(function, hook, level, ...)                                               \
    do {                                                                                           \
        StatsLogFunction statsLogHook_ = (hook);                                                   \
        if (statsLogHook_ != nullptr) {                                                            \
            statsLogHook_(Vorn::Log::GetFileName(StatsROIProcessorFile), __LINE__, (function),     \
                          StatsLogGroupROI, (level), __VA_ARGS__);                                 \
        }                                                                                          \
    } while (0)
