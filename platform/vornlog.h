// SPDX-License-Identifier: Apache-2.0
// The platform log: one entry point for every log line, group masks, and a replaceable sink.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

namespace Vorn {
namespace Log {

/// Level numbers that callers hand to LogSystem.
enum Level : uint32_t
{
    LevelError = 1,
    LevelWarning = 2,
    LevelHigh = 3,
    LevelInfo = 4,
    LevelVerbose = 5,
};
constexpr uint32_t LevelCount = 6;

/// Log groups, one bit each; a mask names the groups that are on.
enum Group : uint32_t
{
    GroupStats = 0x1,
    GroupAlgoSettings = 0x200,
    GroupParameterParser = 0x1000,
};

/// Per level (index = level number), the mask of groups whose lines reach the default sink.
struct LogInfo
{
    uint32_t groupMask[LevelCount];
};

/// Per group bit, whether trace marks are emitted.
struct TraceInfo
{
    uint32_t groupMask;
};

extern PARAMETERPARSER_API LogInfo g_logInfo;
extern PARAMETERPARSER_API TraceInfo g_traceInfo;

/// Receives each formatted line. `line` ends without a forced line break: the message's own.
using Sink = void (*)(uint32_t group, char severity, uint32_t level, char const* line,
                      void* context);

/// Replaces the sink; null restores the default, which writes lines that g_logInfo lets through to
/// stderr. An installed sink receives every line, whatever the masks say.
PARAMETERPARSER_API void SetSink(Sink sink, void* context);

/// Formats a line (at most 4095 characters) and hands it to the sink.
PARAMETERPARSER_API void LogSystem(uint32_t group, char severity, uint32_t level,
                                   char const* format, ...) __attribute__((format(printf, 4, 5)));

/// The base name of a path: what follows the last '/', or the whole text. Null gives "".
char const* GetFileName(char const* path);

/// A short name for a group ("STATS", "ALGOSETTINGS", "PARAMPARSER"), "UNKNOWN" otherwise.
char const* GroupToString(uint32_t group);

} // namespace Log
} // namespace Vorn
