// SPDX-License-Identifier: Apache-2.0
// The platform log: formatting, masks and the sink.
#include "platform/vornlog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace Vorn {
namespace Log {

// Errors and warnings of every group reach stderr by default; chattier levels are opt-in.
LogInfo g_logInfo = {{0, 0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0, 0}};
TraceInfo g_traceInfo = {0};

namespace {

constexpr size_t MaxLineLength = 4096;

void DefaultSink(uint32_t group, char severity, uint32_t level, char const* line, void*)
{
    if (level >= LevelCount || (g_logInfo.groupMask[level] & group) == 0)
        return;
    std::fprintf(stderr, "%c %s %s", severity, GroupToString(group), line);
}

std::mutex g_sinkMutex;
Sink g_sink = nullptr;
void* g_sinkContext = nullptr;

} // namespace

void SetSink(Sink sink, void* context)
{
    std::lock_guard<std::mutex> lock(g_sinkMutex);
    g_sink = sink;
    g_sinkContext = context;
}

void LogSystem(uint32_t group, char severity, uint32_t level, char const* format, ...)
{
    char line[MaxLineLength];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);

    Sink sink;
    void* context;
    {
        std::lock_guard<std::mutex> lock(g_sinkMutex);
        sink = g_sink != nullptr ? g_sink : DefaultSink;
        context = g_sinkContext;
    }
    sink(group, severity, level, line, context);
}

char const* GetFileName(char const* path)
{
    if (path == nullptr)
        return "";
    char const* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

char const* GroupToString(uint32_t group)
{
    switch (group) {
    case GroupStats:
        return "STATS";
    case GroupAlgoSettings:
        return "ALGOSETTINGS";
    case GroupParameterParser:
        return "PARAMPARSER";
    default:
        return "UNKNOWN";
    }
}

} // namespace Log
} // namespace Vorn
