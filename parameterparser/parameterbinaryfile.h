// SPDX-License-Identifier: Apache-2.0
// ParameterBinaryFile: a reference-counted tuning file on disk, read through three small buffers.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

/// A tuning file that stays on disk while modules are read from it piece by piece. The stream is
/// open only while someone holds a reference. Reads of up to BufferSize bytes are served from
/// three read buffers so that neighbouring reads cost no seek. When the file changes on disk
/// (noticed at the next open) it is marked modified and every later read fails until the owner
/// loads it again. Every operation is thread-safe.
class PARAMETERPARSER_API ParameterBinaryFile
{
public:
    static constexpr unsigned int BufferSize = 1024;
    static constexpr unsigned int BufferCount = 3;
    /// Longest file name in characters; the stored name has room for it and its terminator.
    static constexpr unsigned int MaxFileNameLength = 1022;

    /// One read buffer: BufferSize bytes from file offset Offset, of which Length are valid.
    struct ReadBufferEntry
    {
        unsigned char Data[BufferSize];
        uint32_t Offset;
        uint32_t Length; ///< 0: unused
    };

    /// Where a read buffer stands, for callers that watch the cache.
    struct BufferWindow
    {
        uint32_t Offset;
        uint32_t Length;
    };

    /// Copies the name and takes one reference, which opens the file. A null name or one of more
    /// than MaxFileNameLength characters is logged at error level and leaves the object closed
    /// with no reference; IsValid() tells whether the file could be opened. log is borrowed and
    /// may be null.
    ParameterBinaryFile(char const* fileName, IParameterLoggingAPI* log);

    /// Releases every outstanding reference, which closes the file; more than one left is logged
    /// as a warning.
    ~ParameterBinaryFile();

    ParameterBinaryFile(ParameterBinaryFile const&) = delete;
    ParameterBinaryFile& operator=(ParameterBinaryFile const&) = delete;
    ParameterBinaryFile(ParameterBinaryFile&&) = delete;
    ParameterBinaryFile& operator=(ParameterBinaryFile&&) = delete;

    /// Opens the stream unless it is open. A failure is logged at error level only when
    /// logFailure is set. The first open records the file's size and modification time; a later
    /// open that sees another time (seconds or nanoseconds) or another size marks the file
    /// modified and logs a warning.
    void Open(bool logFailure);

    /// Closes the stream if it is open; the references stay as they are.
    void Close();

    /// Reads count bytes at file position offset + pos into value and moves pos on by count
    /// rounded up to alignment. Returns false (logged at error level) for a closed file, a null
    /// value, an empty file or a range past the end, and, silently, once the file is invalid or
    /// modified; with count 0 those cases return !IsModified() instead. A stream that fails is
    /// reopened and the read retried up to four times in all.
    [[nodiscard]] bool Read(unsigned char* value, unsigned int offset, unsigned int& pos,
                            unsigned long count, unsigned char alignment);

    /// A new block (VornCalloc) with count bytes read at offset. Null for count 0 (logged), an
    /// invalid or modified file (silently), a failed allocation or a failed read. The caller
    /// frees the block with VornFree.
    [[nodiscard]] unsigned char* Read(unsigned int offset, unsigned long count);

    /// Adds adjust to the reference count, opening the file when a reference is taken and
    /// closing it when the last one goes. Inconsistent counts are logged. Returns the new count.
    int Reference(int adjust);

    /// Checks the checksum in the last bytes of buffer: the 64-bit CRC with the length added if
    /// crc64, else CRC-32. A mismatch or a buffer too small for a checksum is logged at error
    /// level and gives false.
    [[nodiscard]] static bool ValidateCRC(unsigned char* buffer, unsigned int length, bool crc64,
                                          IParameterLoggingAPI* log);

    /// Whether the file could be opened when the object was built.
    bool IsValid() const;
    /// Whether the file has changed on disk since it was first opened.
    bool IsModified() const;
    bool IsOpen() const;
    /// Size of the file at the first open; 0 if it never opened.
    unsigned int GetLength() const;
    int GetReferenceCount() const { return m_refCount.load(); }
    char const* GetFileName() const { return m_fileName; }
    /// Offset and valid length of read buffer index; a zeroed window for an index out of range.
    BufferWindow GetBufferWindow(unsigned int index) const;

private:
    /// Checks that a read of count bytes at offset + pos can be tried, logging why not.
    bool CheckRead(bool haveValue, unsigned int offset, unsigned int pos,
                   unsigned long count) const;
    /// A read buffer that holds [position, position + count), filled if need be; null if the
    /// fill fails.
    ReadBufferEntry* GetBuffer(unsigned int position, unsigned long count);
    /// Reads straight from the stream with retries.
    bool ReadFromFile(unsigned char* value, unsigned int offset, unsigned int pos,
                      unsigned long count);

    FILE* m_file = nullptr;
    uint32_t m_length = 0;
    std::atomic<int32_t> m_refCount{0};
    ReadBufferEntry m_buffers[BufferCount] = {};
    bool m_useBuffers = true;
    char m_fileName[MaxFileNameLength + 2] = {};
    bool m_valid = false;
    bool m_modified = false;
    /// The modification time and size of the file at its first open; a later open that finds
    /// any of them changed marks the object modified.
    bool m_statusKnown = false;
    int64_t m_modifiedTime = 0;
    int64_t m_modifiedNanoseconds = 0;
    int64_t m_fileSize = 0;
    mutable std::recursive_mutex m_lock;
    IParameterLoggingAPI* m_log = nullptr;
};
