// SPDX-License-Identifier: Apache-2.0
// The log writer of the settings store: platform log, group ALGOSETTINGS, with a source prefix.
#pragma once

#include "platform/vornlog.h"

/// Writes one line of the settings store through Vorn::Log::LogSystem in group 0x200, prefixed
/// with the level's tag, process, thread, group, file base name, line and function. Info and
/// verbose lines are written only when the group's bit is set in g_logInfo for their level;
/// error lines always are.
void AlgoSettingsLog(Vorn::Log::Level level, char const* file, int line, char const* function,
                     char const* format, ...) __attribute__((format(printf, 5, 6)));

/// Also emits `text` as a trace mark of the settings group (when tracing of the group is on).
void AlgoSettingsTraceMark(char const* text);

#define ALGO_SETTINGS_LOG(level, ...)                                                              \
    AlgoSettingsLog((level), __FILE__, __LINE__, __func__, __VA_ARGS__)
