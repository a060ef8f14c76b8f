// SPDX-License-Identifier: Apache-2.0
// ParameterByteReader: the bounded little-endian cursor through which file structures are read.
#pragma once

#include <cstdint>

class IParameterLoggingAPI;

/// Reads fields of a file buffer at a caller's position. Each field of width w takes w bytes and
/// moves the position by FieldStep(w) at the reader's alignment. A read that does not fit logs
/// "Failed to read %lld bytes from binary file offset %d, length %d\n" at error level (with the
/// width, the position and the length), yields 0 and makes the reader fail: every later read
/// fails too without a further message, so a caller can read a record and check once.
class ParameterByteReader
{
public:
    /// A reader that moves the caller's pos.
    ParameterByteReader(unsigned char const* buffer, unsigned int length, unsigned int& pos,
                        unsigned char alignment, IParameterLoggingAPI* log);
    /// A reader that owns its position, starting at start.
    ParameterByteReader(unsigned char const* buffer, unsigned int length, unsigned char alignment,
                        IParameterLoggingAPI* log, unsigned int start = 0);

    ParameterByteReader(ParameterByteReader const&) = delete;
    ParameterByteReader& operator=(ParameterByteReader const&) = delete;

    [[nodiscard]] bool ReadU8(uint8_t& value);
    [[nodiscard]] bool ReadU16(uint16_t& value);
    [[nodiscard]] bool ReadU32(uint32_t& value);
    [[nodiscard]] bool ReadU64(uint64_t& value);

    /// Moves on by count bytes rounded up to the alignment, if they lie within the buffer.
    [[nodiscard]] bool Skip(unsigned int count);

    /// Moves on by exactly count bytes, whatever the alignment.
    [[nodiscard]] bool SkipUnaligned(unsigned int count);

    /// A new NUL-terminated copy (VornCalloc) of count bytes, stopping at a NUL; the position
    /// moves on by count rounded. Null when the bytes are not there or memory runs out; the
    /// caller frees the result with VornFree.
    [[nodiscard]] char* ReadCountedString(unsigned int count);

    /// A new NUL-terminated copy (VornCalloc) of the text in a fixed field of count bytes,
    /// stopping at a NUL or the end of the buffer. Never fails and logs nothing: a field cut short
    /// keeps what is there, and the position moves on by count rounded all the same. Null only
    /// for a null buffer or when memory runs out; the caller frees the result with VornFree.
    [[nodiscard]] char* ReadTextField(unsigned int count);

    /// Pointer to count bytes at the position without moving it; null if they are not there.
    unsigned char const* Peek(unsigned int count) const;

    bool Failed() const { return m_failed; }
    unsigned int Position() const { return m_pos; }
    unsigned int Remaining() const { return m_pos <= m_length ? m_length - m_pos : 0; }
    unsigned char Alignment() const { return m_alignment; }

private:
    bool Take(unsigned int width, unsigned int step, uint64_t& value);
    bool Fits(unsigned int count) const { return count <= Remaining(); }
    void Fail(unsigned int width);

    unsigned char const* m_buffer;
    unsigned int m_length;
    unsigned int m_ownPos = 0;
    unsigned int& m_pos;
    unsigned char m_alignment;
    IParameterLoggingAPI* m_log;
    bool m_failed = false;
};
