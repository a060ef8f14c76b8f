// SPDX-License-Identifier: Apache-2.0
// LogCapture: collects every platform log line while it lives, for assertions on exact texts.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace ParamTest {

/// One captured line.
struct LogLine
{
    uint32_t group;
    char severity;
    uint32_t level;
    std::string text;
};

/// Installs itself as the platform log sink on construction and restores the default on
/// destruction. Only one may live at a time.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    std::vector<LogLine> Lines() const;

    /// True if some line contains text.
    bool Contains(std::string const& text) const;

    /// Lines that contain text.
    size_t Count(std::string const& text) const;

    /// The message part of each ParameterParser line: what follows the logging prefix
    /// ("[ERROR] ParameterParser (Thread n): ...: "), so tests can compare exact texts.
    std::vector<std::string> Messages() const;

    /// True if some line's message is exactly text.
    bool HasMessage(std::string const& text) const;

    void Clear();

private:
    static void Sink(uint32_t group, char severity, uint32_t level, char const* line,
                     void* context);

    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

} // namespace ParamTest
