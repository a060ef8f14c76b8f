// SPDX-License-Identifier: Apache-2.0
// ParameterByteReader: the bounded little-endian cursor through which file structures are read.
#pragma once

#include <cstdint>

class IParameterLoggingAPI;

/// Reads fields of a file buffer at a position that the reader owns. Each field of width w takes
/// w bytes and moves the position by FieldStep(w) at the reader's alignment. A read that does not
/// fit logs "Failed to read %lld bytes from binary file offset %d, length %d\n" at error level
/// (with the width, the position and the reader's end), yields 0 and makes the reader fail: every
/// later read fails too without a further message, so a caller can read a record and check once.
///
/// Positions are offsets in the buffer. A reader may be cut into sub-readers for a section or a
/// record: a sub-reader reads the same buffer within the part of its parent's bounds that it was
/// given, so it can never read past its parent's end, and its failure is its own. Give a record
/// its own sub-reader to have one failure cover that record alone.
class ParameterByteReader
{
public:
    /// A reader of buffer[0, length), positioned at start. A null buffer holds nothing.
    ParameterByteReader(unsigned char const* buffer, unsigned int length, unsigned char alignment,
                        IParameterLoggingAPI* log, unsigned int start = 0);

    ParameterByteReader(ParameterByteReader const&) = delete;
    ParameterByteReader& operator=(ParameterByteReader const&) = delete;

    /// True when offset + count bytes lie within length; the sum cannot wrap. The one bounds
    /// computation of every read of the file's bytes.
    static bool InBounds(uint64_t offset, uint64_t count, uint64_t length)
    {
        return offset <= length && count <= length - offset;
    }

    /// A reader of the size bytes at offset, cut to this reader's bounds and positioned at
    /// offset, with this reader's alignment and log. A section that starts outside the bounds
    /// holds nothing. A reader that has failed gives a failed section. This reader stays where
    /// it is.
    ParameterByteReader Section(unsigned int offset, unsigned int size) const;

    /// A reader of the next count bytes (a record), cut to this reader's bounds; this reader
    /// moves past them, at most to its end. A reader that has failed gives a failed record and
    /// stays where it is.
    ParameterByteReader Sub(unsigned int count);

    [[nodiscard]] bool ReadU8(uint8_t& value);
    [[nodiscard]] bool ReadU16(uint16_t& value);
    [[nodiscard]] bool ReadU32(uint32_t& value);
    [[nodiscard]] bool ReadU64(uint64_t& value);

    /// Moves on by count bytes rounded up to the alignment, if they lie within the buffer.
    [[nodiscard]] bool Skip(unsigned int count);

    /// Moves on by exactly count bytes, whatever the alignment.
    [[nodiscard]] bool SkipUnaligned(unsigned int count);

    /// Copies count bytes into value and moves on by count rounded, whether they were there or
    /// not. A block cut short keeps the bytes that were there, logs "ReadBuffer failed, read %d
    /// bytes, expected %d bytes\n" at error level and fails the reader; a reader that has failed
    /// copies nothing and gives false without a message. A null buffer or value logs "ReadBuffer
    /// called with nullptr buffer\n" (or "value") at error level, stays and gives count == 0.
    [[nodiscard]] bool ReadBlock(unsigned char* value, unsigned int count);

    /// Copies what the buffer holds of a field of count bytes, at most capacity bytes, into value
    /// (nothing when value is null) and moves on by count rounded, whether the bytes were there or
    /// not. Never fails and logs nothing. Returns the bytes copied.
    unsigned int CopyField(unsigned char* value, unsigned int capacity, unsigned int count);

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

    bool HasBuffer() const { return m_buffer != nullptr; }
    bool Failed() const { return m_failed; }
    unsigned int Position() const { return m_pos; }
    /// Bytes between the position and the reader's end.
    unsigned int Remaining() const { return m_pos <= m_end ? m_end - m_pos : 0; }
    unsigned char Alignment() const { return m_alignment; }
    /// Where the reader logs; null logs everything.
    IParameterLoggingAPI* Log() const { return m_log; }

private:
    /// A sub-reader of [begin, end) of buffer, positioned at begin.
    ParameterByteReader(unsigned char const* buffer, unsigned int begin, unsigned int end,
                        unsigned char alignment, IParameterLoggingAPI* log, bool failed);

    bool Take(unsigned int width, unsigned int step, uint64_t& value);
    bool Fits(unsigned int count) const { return InBounds(m_pos, count, m_end); }
    /// Moves on by step bytes; with clamp, at most to the end.
    void MoveBy(unsigned int step, bool clamp);
    /// Moves on by count rounded up to the alignment; with clamp, at most to the end.
    void Advance(unsigned int count, bool clamp);
    void Fail(unsigned int width);

    unsigned char const* m_buffer;
    /// The bounds [m_begin, m_end) within which this reader and its sub-readers read.
    unsigned int m_begin = 0;
    unsigned int m_end;
    unsigned int m_pos;
    unsigned char m_alignment;
    IParameterLoggingAPI* m_log;
    bool m_failed = false;
};
