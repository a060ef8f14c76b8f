// SPDX-License-Identifier: Apache-2.0
// ParameterByteReader: the bounded little-endian cursor.
#include "parameterparser/parameterbytereader.h"

#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterutils.h"

ParameterByteReader::ParameterByteReader(unsigned char const* buffer, unsigned int length,
                                         unsigned char alignment, IParameterLoggingAPI* log,
                                         unsigned int start)
    : m_buffer(buffer), m_end(buffer != nullptr ? length : 0), m_pos(start), m_alignment(alignment),
      m_log(log)
{
}

ParameterByteReader::ParameterByteReader(unsigned char const* buffer, unsigned int begin,
                                         unsigned int end, unsigned char alignment,
                                         IParameterLoggingAPI* log, bool failed)
    : m_buffer(buffer), m_begin(begin), m_end(end), m_pos(begin), m_alignment(alignment),
      m_log(log), m_failed(failed)
{
}

ParameterByteReader ParameterByteReader::Section(unsigned int offset, unsigned int size) const
{
    // A section outside the bounds is empty: its end is its start, and every read of it fails.
    unsigned int end = offset;
    if (offset >= m_begin && offset <= m_end)
        end = InBounds(offset, size, m_end) ? offset + size : m_end;
    return ParameterByteReader(m_buffer, offset, end, m_alignment, m_log, m_failed);
}

ParameterByteReader ParameterByteReader::Sub(unsigned int count)
{
    unsigned int const start = m_pos;
    if (!m_failed)
        MoveBy(count, true);
    return Section(start, count);
}

void ParameterByteReader::Fail(unsigned int width)
{
    if (!m_failed)
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "Failed to read %lld bytes from binary file offset %d, length %d\n",
                                static_cast<long long>(width), static_cast<int>(m_pos),
                                static_cast<int>(m_end));
    m_failed = true;
}

void ParameterByteReader::MoveBy(unsigned int step, bool clamp)
{
    if (!clamp)
        m_pos += step;
    else if (Fits(step))
        m_pos += step;
    else if (m_pos < m_end)
        m_pos = m_end;
}

void ParameterByteReader::Advance(unsigned int count, bool clamp)
{
    unsigned int const step = AlignUp(count, m_alignment);
    // Rounding a count near the top of the range wraps: such a step runs past any end.
    if (clamp && step < count)
        m_pos = m_pos < m_end ? m_end : m_pos;
    else
        MoveBy(step, clamp);
}

bool ParameterByteReader::Take(unsigned int width, unsigned int step, uint64_t& value)
{
    value = 0;
    if (m_failed || !Fits(width)) {
        Fail(width);
        return false;
    }
    // Little-endian and unaligned: assemble byte by byte.
    for (unsigned int i = 0; i < width; ++i)
        value |= static_cast<uint64_t>(m_buffer[m_pos + i]) << (8 * i);
    MoveBy(step, true);
    return true;
}

bool ParameterByteReader::ReadU8(uint8_t& value)
{
    uint64_t raw;
    bool const ok = Take(1, FieldStep(1, m_alignment), raw);
    value = static_cast<uint8_t>(raw);
    return ok;
}

bool ParameterByteReader::ReadU16(uint16_t& value)
{
    uint64_t raw;
    bool const ok = Take(2, FieldStep(2, m_alignment), raw);
    value = static_cast<uint16_t>(raw);
    return ok;
}

bool ParameterByteReader::ReadU32(uint32_t& value)
{
    uint64_t raw;
    bool const ok = Take(4, FieldStep(4, m_alignment), raw);
    value = static_cast<uint32_t>(raw);
    return ok;
}

bool ParameterByteReader::ReadU64(uint64_t& value)
{
    return Take(8, FieldStep(8, m_alignment), value);
}

bool ParameterByteReader::Skip(unsigned int count)
{
    if (m_failed || !Fits(count)) {
        Fail(count);
        return false;
    }
    Advance(count, true);
    return true;
}

bool ParameterByteReader::SkipUnaligned(unsigned int count)
{
    if (m_failed || !Fits(count)) {
        Fail(count);
        return false;
    }
    m_pos += count;
    return true;
}

unsigned int ParameterByteReader::CopyField(unsigned char* value, unsigned int capacity,
                                            unsigned int count)
{
    unsigned int copied = count < Remaining() ? count : Remaining();
    copied = capacity < copied ? capacity : copied;
    if (value == nullptr || m_buffer == nullptr)
        copied = 0;
    if (copied > 0)
        std::memcpy(value, m_buffer + m_pos, copied);
    // The field's size moves the cursor, not the bytes found of it.
    Advance(count, false);
    return copied;
}

bool ParameterByteReader::ReadBlock(unsigned char* value, unsigned int count)
{
    if (m_buffer == nullptr || value == nullptr) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                m_buffer == nullptr ? "ReadBuffer called with nullptr buffer\n"
                                                    : "ReadBuffer called with nullptr value\n");
        return count == 0;
    }
    if (m_failed) {
        Advance(count, false);
        return false;
    }
    unsigned int const copied = CopyField(value, count, count);
    if (copied == count)
        return true;
    ParameterLogging::Write(m_log, ParameterLogging::LogError,
                            "ReadBuffer failed, read %d bytes, expected %d bytes\n",
                            static_cast<int>(copied), static_cast<int>(count));
    m_failed = true;
    return false;
}

char* ParameterByteReader::ReadCountedString(unsigned int count)
{
    if (m_failed || !Fits(count)) {
        Fail(count);
        return nullptr;
    }
    char const* text = reinterpret_cast<char const*>(m_buffer + m_pos);
    size_t const characters = strnlen(text, count);
    auto* copy = static_cast<char*>(VornCalloc(characters + 1, VornTagAllocData));
    if (copy != nullptr)
        std::memcpy(copy, text, characters);
    Advance(count, true);
    return copy;
}

char* ParameterByteReader::ReadTextField(unsigned int count)
{
    if (m_buffer == nullptr)
        return nullptr;
    unsigned int const available = count < Remaining() ? count : Remaining();
    char const* text = reinterpret_cast<char const*>(m_buffer + (available != 0 ? m_pos : 0));
    size_t const characters = available != 0 ? strnlen(text, available) : 0;
    auto* copy = static_cast<char*>(VornCalloc(characters + 1, VornTagAllocData));
    if (copy != nullptr)
        std::memcpy(copy, text, characters);
    // The field's size moves the cursor, not the length of the text found in it.
    Advance(count, false);
    return copy;
}

unsigned char const* ParameterByteReader::Peek(unsigned int count) const
{
    return !m_failed && Fits(count) ? m_buffer + m_pos : nullptr;
}
