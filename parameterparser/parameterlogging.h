// SPDX-License-Identifier: Apache-2.0
// The framework's log writer and the interface through which an owner names and gates its lines.
#pragma once

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

class PARAMETERPARSER_API ParameterLogging
{
public:
    /// Levels of the framework's messages; any other value logs as verbose.
    enum ParameterLogLevel
    {
        LogVerbose = 0,
        LogWarning = 1,
        LogError = 2,
    };

    /// Formats one message (cut at 4095 characters) and hands it to the platform log with group
    /// 0x1000, tagged with the level, the thread and the api's identity. With a non-null api whose
    /// LoggingEnabled(level) is false nothing is logged; a null api logs everything. Messages
    /// bring their own line end.
    static void Write(IParameterLoggingAPI* api, ParameterLogLevel level, char const* format, ...)
        __attribute__((format(printf, 3, 4)));
};

/// While it exists, keeps the first error-level message that ParameterLogging::Write writes on
/// the creating thread, whether or not its api lets it through, without its line end. A load
/// that fails without a reason of its own gives this one. Recorders nest: each one sees the
/// messages written during its life. Destroy in reverse order of creation. Internal to the
/// library: not exported.
class ParameterFirstErrorRecorder
{
public:
    ParameterFirstErrorRecorder();
    ~ParameterFirstErrorRecorder();
    ParameterFirstErrorRecorder(ParameterFirstErrorRecorder const&) = delete;
    ParameterFirstErrorRecorder& operator=(ParameterFirstErrorRecorder const&) = delete;

    /// The message, empty while none was written.
    char const* Text() const { return m_text; }

    /// Hands message to every recorder of this thread that holds none yet.
    static void Record(char const* message);

private:
    static constexpr unsigned int TextLength = 2048;

    ParameterFirstErrorRecorder* m_outer;
    char m_text[TextLength] = {};
};

/// Who is logging: a name for the line and per-level switches.
class PARAMETERPARSER_API IParameterLoggingAPI
{
public:
    /// A name for the log line; may be null.
    virtual char const* GetLoggingIdentifier() = 0;

    virtual bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) = 0;

    // Declared after the two operations so that they keep the first two slots of the table.
    virtual ~IParameterLoggingAPI() = default;
};
