// SPDX-License-Identifier: Apache-2.0
// The framework's log writer.
#include "parameterparser/parameterlogging.h"

#include <cstdarg>
#include <cstdio>

#include "platform/vornlog.h"
#include "platform/vornosutils.h"

namespace {

constexpr size_t MaxMessageLength = 4096;

struct LevelStyle
{
    char severity;
    char const* tag;
    uint32_t platformLevel;
};

LevelStyle StyleOf(ParameterLogging::ParameterLogLevel level)
{
    switch (level) {
    case ParameterLogging::LogWarning:
        return {'W', "[WARNING]", 2};
    case ParameterLogging::LogError:
        return {'E', "[ERROR]", 1};
    default:
        return {'V', "[VERBOSE]", 5};
    }
}

} // namespace

void ParameterLogging::Write(IParameterLoggingAPI* api, ParameterLogLevel level, char const* format,
                             ...)
{
    if (api != nullptr && !api->LoggingEnabled(level))
        return;

    char message[MaxMessageLength];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof(message), format, args);
    va_end(args);

    char thread[16];
    std::snprintf(thread, sizeof(thread), "%u", Vorn::OsUtils::GetThreadID());

    LevelStyle const style = StyleOf(level);
    constexpr uint32_t group = Vorn::Log::GroupParameterParser;
    if (api == nullptr) {
        Vorn::Log::LogSystem(group, style.severity, style.platformLevel,
                             "%s ParameterParser (Thread %s): %s", style.tag, thread, message);
        return;
    }
    char const* identifier = api->GetLoggingIdentifier();
    if (identifier == nullptr)
        Vorn::Log::LogSystem(group, style.severity, style.platformLevel,
                             "%s ParameterParser (Thread %s): %p %s", style.tag, thread,
                             static_cast<void*>(api), message);
    else
        Vorn::Log::LogSystem(group, style.severity, style.platformLevel,
                             "%s ParameterParser (Thread %s): %p (%s): %s", style.tag, thread,
                             static_cast<void*>(api), identifier, message);
}
