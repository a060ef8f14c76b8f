// SPDX-License-Identifier: Apache-2.0
// KnobbyText: work buffers and text fields of live tuning packets.
#include "parameterparser/livetuning/knobbytext.h"

#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/parameterlogging.h"

namespace KnobbyText {

WorkBuffer::WorkBuffer(size_t size)
    : m_data(static_cast<unsigned char*>(VornCalloc(size, VornTagAllocData)))
{
}

WorkBuffer::~WorkBuffer()
{
    VornFree(m_data, VornTagRelease);
}

PayloadText::PayloadText(unsigned char const* payload, unsigned int length)
    : m_buffer(static_cast<size_t>(length) + 1)
{
    if (m_buffer.Data() != nullptr && payload != nullptr) {
        std::memcpy(m_buffer.Data(), payload, length);
        m_length = length;
    }
}

unsigned int CutField(PayloadText const& payload, unsigned int offset, char delimiter, char* result,
                      unsigned int resultLength)
{
    char const* text = payload.Text();
    unsigned int const length = payload.Length();
    unsigned int end = offset;
    while (end < length && text[end] != delimiter && text[end] != '\0')
        ++end;
    unsigned int const count = offset < end ? end - offset : 0;
    unsigned int const copied = count < resultLength - 1 ? count : resultLength - 1;
    if (copied > 0)
        std::memcpy(result, text + offset, copied);
    result[copied] = '\0';
    if (end >= length || text[end] != delimiter)
        return 0;
    unsigned int const next = end + 1;
    return next < length && text[next] != '\0' ? next : 0;
}

void AppendText(unsigned char* buffer, unsigned int& position, unsigned int limit, char const* text,
                IParameterLoggingAPI* log)
{
    if (text == nullptr)
        return;
    size_t const length = std::strlen(text);
    size_t const room = position < limit ? limit - position : 0;
    size_t const count = length < room ? length : room;
    std::memcpy(buffer + position, text, count);
    position += static_cast<unsigned int>(count);
    if (count < length)
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to write %lld bytes to binary offset %d, length %d\n",
                                static_cast<long long>(length - count), static_cast<int>(position),
                                static_cast<int>(limit));
}

} // namespace KnobbyText
