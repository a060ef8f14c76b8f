// SPDX-License-Identifier: Apache-2.0
// ByteSink: appends little-endian fields at a file's alignment.
#include "tools/writer/bytesink.h"

#include <cstring>

#include "parameterparser/parameterutils.h"

namespace TuningWriter {

void ByteSink::PutField(uint64_t value, unsigned int width)
{
    for (unsigned int i = 0; i < width; ++i)
        m_bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    // The reader moves on by FieldStep(width): the gap behind the value is zero padding.
    m_bytes.resize(m_bytes.size() + (FieldStep(width, m_alignment) - width), 0);
}

void ByteSink::PutU8(uint8_t value)
{
    PutField(value, 1);
}

void ByteSink::PutU16(uint16_t value)
{
    PutField(value, 2);
}

void ByteSink::PutU32(uint32_t value)
{
    PutField(value, 4);
}

void ByteSink::PutU64(uint64_t value)
{
    PutField(value, 8);
}

void ByteSink::PutNumber(uint64_t bits, unsigned int width)
{
    PutField(bits, width == 1 || width == 2 || width == 4 ? width : 8);
}

void ByteSink::PutBytes(void const* data, size_t size)
{
    PutUnaligned(data, size);
    m_bytes.resize(m_bytes.size() + (AlignUp(static_cast<unsigned int>(size), m_alignment) - size),
                   0);
}

void ByteSink::PutFixedString(std::string const& text, size_t width)
{
    size_t const used = text.size() < width ? text.size() : width;
    PutUnaligned(text.data(), used);
    m_bytes.resize(m_bytes.size() + (width - used), 0);
}

void ByteSink::PutUnaligned(void const* data, size_t size)
{
    if (size == 0)
        return;
    auto const* bytes = static_cast<uint8_t const*>(data);
    m_bytes.insert(m_bytes.end(), bytes, bytes + size);
}

void ByteSink::PatchU32(size_t offset, uint32_t value)
{
    // A patch never grows the buffer: it rewrites what an earlier Put reserved.
    for (size_t i = 0; i < 4 && offset + i < m_bytes.size(); ++i)
        m_bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

} // namespace TuningWriter
