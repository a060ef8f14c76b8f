// SPDX-License-Identifier: Apache-2.0
// LogCapture: a platform log sink for tests.
#include "logcapture.h"

#include <algorithm>

#include "platform/vornlog.h"

namespace ParamTest {

LogCapture::LogCapture()
{
    Vorn::Log::SetSink(&LogCapture::Sink, this);
}

LogCapture::~LogCapture()
{
    Vorn::Log::SetSink(nullptr, nullptr);
}

void LogCapture::Sink(uint32_t group, char severity, uint32_t level, char const* line,
                      void* context)
{
    auto* self = static_cast<LogCapture*>(context);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_lines.push_back({group, severity, level, line});
}

std::vector<LogLine> LogCapture::Lines() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

bool LogCapture::Contains(std::string const& text) const
{
    return Count(text) > 0;
}

size_t LogCapture::Count(std::string const& text) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(std::count_if(m_lines.begin(), m_lines.end(), [&](LogLine const& l) {
        return l.text.find(text) != std::string::npos;
    }));
}

std::vector<std::string> LogCapture::Messages() const
{
    // Prefixes: "<tag> ParameterParser (Thread <n>): " then optionally "<ptr> " or
    // "<ptr> (<identifier>): ". The message is what stands behind the last of these.
    std::vector<std::string> messages;
    for (LogLine const& line : Lines()) {
        std::string const& text = line.text;
        size_t const thread = text.find("ParameterParser (Thread ");
        if (thread == std::string::npos) {
            messages.push_back(text);
            continue;
        }
        size_t pos = text.find("): ", thread);
        pos = pos == std::string::npos ? 0 : pos + 3;
        if (text.compare(pos, 2, "0x") == 0) {
            size_t const space = text.find(' ', pos);
            pos = space == std::string::npos ? text.size() : space + 1;
            if (text.compare(pos, 1, "(") == 0) {
                size_t const close = text.find("): ", pos);
                pos = close == std::string::npos ? pos : close + 3;
            }
        }
        messages.push_back(text.substr(pos));
    }
    return messages;
}

bool LogCapture::HasMessage(std::string const& text) const
{
    std::vector<std::string> const messages = Messages();
    return std::find(messages.begin(), messages.end(), text) != messages.end();
}

void LogCapture::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

} // namespace ParamTest
