// SPDX-License-Identifier: Apache-2.0
// Helpers to read back what the writer produced through the library's own byte reader.
#pragma once

#include <cstdint>
#include <string>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"

namespace WriterTest {

/// A counted text (count bytes, stepped at the reader's alignment) as a string; "<missing>" if
/// the bytes are not there.
inline std::string ReadText(ParameterByteReader& reader, unsigned int count)
{
    char* text = reader.ReadCountedString(count);
    if (text == nullptr)
        return "<missing>";
    std::string result(text);
    VornFree(text, VornTagRelease);
    return result;
}

/// count little-endian bytes taken exactly (no alignment step); 0 and a failed reader if short.
inline uint64_t ReadRaw(ParameterByteReader& reader, unsigned int count)
{
    unsigned char const* bytes = reader.Peek(count);
    if (!reader.SkipUnaligned(count))
        return 0;
    uint64_t value = 0;
    for (unsigned int i = 0; i < count; ++i)
        value |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    return value;
}

/// A field of width 1, 2, 4 or 8 at the reader's step; all ones when the read failed.
inline uint64_t ReadField(ParameterByteReader& reader, unsigned int width)
{
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    uint64_t u64 = 0;
    switch (width) {
    case 1:
        return reader.ReadU8(u8) ? u8 : ~0ull;
    case 2:
        return reader.ReadU16(u16) ? u16 : ~0ull;
    case 4:
        return reader.ReadU32(u32) ? u32 : ~0ull;
    default:
        return reader.ReadU64(u64) ? u64 : ~0ull;
    }
}

/// The u32 at offset, read with alignment 1.
inline uint32_t U32At(uint8_t const* data, unsigned int length, unsigned int offset)
{
    unsigned int pos = offset;
    ParameterByteReader reader(data, length, pos, 1, nullptr);
    uint32_t value = 0;
    return reader.ReadU32(value) ? value : 0xDEADBEEF;
}

} // namespace WriterTest
