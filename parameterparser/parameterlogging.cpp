// SPDX-License-Identifier: Apache-2.0
// The framework's log writer.
#include "parameterparser/parameterlogging.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

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

// The innermost recorder of this thread; loads run on one thread from start to end.
thread_local ParameterFirstErrorRecorder* t_recorder = nullptr;

} // namespace

ParameterFirstErrorRecorder::ParameterFirstErrorRecorder() : m_outer(t_recorder)
{
    t_recorder = this;
}

ParameterFirstErrorRecorder::~ParameterFirstErrorRecorder()
{
    t_recorder = m_outer;
}

void ParameterFirstErrorRecorder::Record(char const* message)
{
    for (ParameterFirstErrorRecorder* recorder = t_recorder; recorder != nullptr;
         recorder = recorder->m_outer) {
        if (recorder->m_text[0] != '\0')
            continue;
        Vorn::OsUtils::StrLCpy(recorder->m_text, message, sizeof(recorder->m_text));
        size_t const length = std::strlen(recorder->m_text);
        if (length > 0 && recorder->m_text[length - 1] == '\n')
            recorder->m_text[length - 1] = '\0';
    }
}

void ParameterLogging::Write(IParameterLoggingAPI* api, ParameterLogLevel level, char const* format,
                             ...)
{
    bool const recorded = level == LogError && t_recorder != nullptr;
    if (!recorded && api != nullptr && !api->LoggingEnabled(level))
        return;

    char message[MaxMessageLength];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof(message), format, args);
    va_end(args);

    if (recorded) {
        ParameterFirstErrorRecorder::Record(message);
        if (api != nullptr && !api->LoggingEnabled(level))
            return;
    }

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
