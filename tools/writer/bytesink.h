// SPDX-License-Identifier: Apache-2.0
// ByteSink: appends little-endian fields at a file's alignment, the writer's mirror of the reader.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace TuningWriter {

/// Appends fields the way the reader steps over them: a field of width w takes w bytes followed by
/// zero padding up to FieldStep(w) = max(w, alignment); a block of bytes is padded to a multiple
/// of the alignment.
class ByteSink
{
public:
    explicit ByteSink(unsigned char alignment = 1) : m_alignment(alignment) {}

    void PutU8(uint8_t value);
    void PutU16(uint16_t value);
    void PutU32(uint32_t value);
    void PutU64(uint64_t value);
    /// The low `width` bytes of bits as one field: width 1, 2 or 4; any other width puts all 8.
    void PutNumber(uint64_t bits, unsigned int width);

    /// Raw bytes, padded to the alignment.
    void PutBytes(void const* data, size_t size);
    void PutBytes(std::vector<uint8_t> const& data) { PutBytes(data.data(), data.size()); }

    /// Text in a fixed field of `width` bytes, NUL-padded and cut to the width (alignment 1, as
    /// header strings are).
    void PutFixedString(std::string const& text, size_t width);

    /// Raw bytes with no padding at all.
    void PutUnaligned(void const* data, size_t size);

    /// Overwrites a u32 at an earlier offset (little-endian, no padding).
    void PatchU32(size_t offset, uint32_t value);

    size_t Size() const { return m_bytes.size(); }
    unsigned char Alignment() const { return m_alignment; }
    std::vector<uint8_t> const& Bytes() const { return m_bytes; }
    std::vector<uint8_t> Take() { return std::move(m_bytes); }

private:
    void PutField(uint64_t value, unsigned int width);

    std::vector<uint8_t> m_bytes;
    unsigned char m_alignment;
};

} // namespace TuningWriter
