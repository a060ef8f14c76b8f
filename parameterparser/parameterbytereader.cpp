// SPDX-License-Identifier: Apache-2.0
// ParameterByteReader: the bounded little-endian cursor.
#include "parameterparser/parameterbytereader.h"

#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterutils.h"

ParameterByteReader::ParameterByteReader(unsigned char const* buffer, unsigned int length,
                                         unsigned int& pos, unsigned char alignment,
                                         IParameterLoggingAPI* log)
    : m_buffer(buffer), m_length(buffer != nullptr ? length : 0), m_pos(pos),
      m_alignment(alignment), m_log(log)
{
}

ParameterByteReader::ParameterByteReader(unsigned char const* buffer, unsigned int length,
                                         unsigned char alignment, IParameterLoggingAPI* log,
                                         unsigned int start)
    : m_buffer(buffer), m_length(buffer != nullptr ? length : 0), m_ownPos(start), m_pos(m_ownPos),
      m_alignment(alignment), m_log(log)
{
}

void ParameterByteReader::Fail(unsigned int width)
{
    if (!m_failed)
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "Failed to read %lld bytes from binary file offset %d, length %d\n",
                                static_cast<long long>(width), static_cast<int>(m_pos),
                                static_cast<int>(m_length));
    m_failed = true;
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
    m_pos = Fits(step) ? m_pos + step : m_length;
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
    unsigned int const step = AlignUp(count, m_alignment);
    m_pos = Fits(step) && step >= count ? m_pos + step : m_length;
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
    unsigned int const step = AlignUp(count, m_alignment);
    m_pos = Fits(step) && step >= count ? m_pos + step : m_length;
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
    m_pos += AlignUp(count, m_alignment);
    return copy;
}

unsigned char const* ParameterByteReader::Peek(unsigned int count) const
{
    return !m_failed && Fits(count) ? m_buffer + m_pos : nullptr;
}
