// SPDX-License-Identifier: Apache-2.0
// ParameterBinaryFile: the tuning file on disk with its read cache.
#include "parameterparser/parameterbinaryfile.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parsercrc.h"

namespace {

// A stream that fails is reopened and tried again; a file that keeps failing is given up.
constexpr int MaxReadAttempts = 4;

} // namespace

ParameterBinaryFile::ParameterBinaryFile(char const* fileName, IParameterLoggingAPI* log)
    : m_log(log)
{
    if (fileName == nullptr) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile constructor called with null file name\n");
        return;
    }
    size_t const length = std::strlen(fileName);
    if (length > MaxFileNameLength) {
        ParameterLogging::Write(
            m_log, ParameterLogging::LogError,
            "ParameterBinaryFile constructor file name length (%lld) exceeds max length: %d\n",
            static_cast<long long>(length), static_cast<int>(MaxFileNameLength + 1));
        return;
    }
    Vorn::OsUtils::StrLCpy(m_fileName, fileName, sizeof(m_fileName));
    Reference(1);
    m_valid = m_file != nullptr;
}

ParameterBinaryFile::~ParameterBinaryFile()
{
    int const references = m_refCount.load();
    if (references >= 1) {
        if (references > 1)
            ParameterLogging::Write(m_log, ParameterLogging::LogWarning,
                                    "ParameterBinaryFile deleted with outstanding references: %u\n",
                                    static_cast<unsigned int>(references));
        // A file that never opened holds its constructor's reference without a stream; dropping
        // it through Reference would only report a close that cannot happen.
        if (m_file != nullptr)
            Reference(-references);
        else
            m_refCount = 0;
    }
    Close();
}

void ParameterBinaryFile::Open(bool logFailure)
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    if (m_file != nullptr)
        return;
    m_file = Vorn::OsUtils::FOpen(m_fileName, "rb");
    if (m_file == nullptr) {
        int const error = errno;
        if (logFailure)
            ParameterLogging::Write(
                m_log, ParameterLogging::LogError,
                "ParameterBinaryFile::Open failed to open file, errno: %d, file name: %s\n", error,
                m_fileName);
        errno = error;
        return;
    }
    struct stat status = {};
    if (fstat(fileno(m_file), &status) != 0)
        return;
    // Positions in a tuning file are 32-bit: a larger file is taken as empty, so every read of
    // it fails instead of reading a wrapped range.
    uint32_t const size = static_cast<unsigned long long>(status.st_size) > UINT32_MAX
                              ? 0
                              : static_cast<uint32_t>(status.st_size);
    // A rewrite within the same second is told apart by the nanoseconds of the time where the
    // file system keeps them, and by the size where it does not.
    int64_t const modifiedTime = static_cast<int64_t>(status.st_mtim.tv_sec);
    int64_t const modifiedNanoseconds = static_cast<int64_t>(status.st_mtim.tv_nsec);
    auto const fileSize = static_cast<int64_t>(status.st_size);
    if (!m_statusKnown) {
        m_statusKnown = true;
        m_length = size;
        m_modifiedTime = modifiedTime;
        m_modifiedNanoseconds = modifiedNanoseconds;
        m_fileSize = fileSize;
    } else if (modifiedTime != m_modifiedTime || modifiedNanoseconds != m_modifiedNanoseconds ||
               fileSize != m_fileSize) {
        // The cached length and buffers belong to the old content; the owner has to load the
        // file again, so from here on every read fails.
        m_modified = true;
        m_length = size;
        m_modifiedTime = modifiedTime;
        m_modifiedNanoseconds = modifiedNanoseconds;
        m_fileSize = fileSize;
        ParameterLogging::Write(m_log, ParameterLogging::LogWarning,
                                "ParameterBinaryFile::Open, file modified, must reload\n");
    }
}

void ParameterBinaryFile::Close()
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    if (m_file != nullptr) {
        Vorn::OsUtils::FClose(m_file);
        m_file = nullptr;
    }
}

bool ParameterBinaryFile::CheckRead(bool haveValue, unsigned int offset, unsigned int pos,
                                    unsigned long count) const
{
    if (m_file == nullptr) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read called with null file\n");
    } else if (!haveValue) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read called with null value\n");
    } else if (m_length == 0) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read called with a zero length file\n");
    } else if (!ParameterByteReader::InBounds(static_cast<uint64_t>(pos) + offset, count,
                                              m_length)) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read attempted to read past the end of the "
                                "file, offset: %u, pos: %u, count: %u, length: %u\n",
                                offset, pos, static_cast<unsigned int>(count), m_length);
    } else {
        return true;
    }
    return false;
}

bool ParameterBinaryFile::Read(unsigned char* value, unsigned int offset, unsigned int& pos,
                               unsigned long count, unsigned char alignment)
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    // A read of nothing reports only whether the file is still the one that was loaded.
    if (!CheckRead(value != nullptr, offset, pos, count) || !m_valid || m_modified)
        return count == 0 ? !m_modified : false;
    if (count == 0)
        return !m_modified;

    // CheckRead has bounded the range by the 32-bit length, so neither sum can wrap.
    unsigned int const position = offset + pos;
    unsigned int const step = AlignUp(static_cast<unsigned int>(count), alignment);
    if (count <= BufferSize && m_useBuffers) {
        ReadBufferEntry const* buffer = GetBuffer(position, count);
        if (buffer != nullptr) {
            if (position < buffer->Offset) {
                ParameterLogging::Write(
                    m_log, ParameterLogging::LogError,
                    "ParameterBinaryFile::Read filePos < buffer Offset, filePos: %u, Offset: %u\n",
                    position, buffer->Offset);
            } else if (!ParameterByteReader::InBounds(position - buffer->Offset, count,
                                                      buffer->Length)) {
                ParameterLogging::Write(
                    m_log, ParameterLogging::LogError,
                    "ParameterBinaryFile::Read filePos - buffer->Offset + count > buffer->Length, "
                    "filePos: %u, Offset: %u, count: %u, Length: %u\n",
                    position, buffer->Offset, static_cast<unsigned int>(count), buffer->Length);
            } else {
                std::memcpy(value, buffer->Data + (position - buffer->Offset), count);
                pos += step;
                return !m_modified;
            }
        }
        // A fill that found the file changed on disk must not be followed by a direct read.
        if (m_modified)
            return false;
    }

    if (!ReadFromFile(value, offset, pos, count))
        return false;
    pos += step;
    return !m_modified;
}

bool ParameterBinaryFile::ReadFromFile(unsigned char* value, unsigned int offset, unsigned int pos,
                                       unsigned long count)
{
    unsigned int const position = offset + pos;
    for (int attempt = 1;; ++attempt) {
        if (m_file == nullptr) {
            ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                    "ParameterBinaryFile::Read fseek failed, file not open\n");
        } else {
            int const seek = std::fseek(m_file, static_cast<long>(position), SEEK_SET);
            if (seek != 0) {
                ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                        "ParameterBinaryFile::Read fseek failed, ferror: %d, "
                                        "return value %d, offset: %d\n",
                                        std::ferror(m_file), seek, static_cast<int>(position));
            } else {
                size_t const actual = std::fread(value, 1, count, m_file);
                if (actual == count)
                    return true;
                ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                        "Read failed to read from file, ferror: %d, offset: %u, "
                                        "pos: %u, requested: %lld, actual: %lld\n",
                                        std::ferror(m_file), offset, pos,
                                        static_cast<long long>(count),
                                        static_cast<long long>(actual));
            }
        }
        if (attempt == MaxReadAttempts)
            return false;
        // A stream can go bad (a file system hiccup, a replaced file); a fresh stream either
        // recovers or reveals that the file has changed, which no retry can mend.
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read failed, retrying\n");
        Close();
        Open(true);
        if (m_modified)
            return false;
    }
}

ParameterBinaryFile::ReadBufferEntry* ParameterBinaryFile::GetBuffer(unsigned int position,
                                                                     unsigned long count)
{
    for (ReadBufferEntry& buffer : m_buffers) {
        if (buffer.Length != 0 && position >= buffer.Offset &&
            ParameterByteReader::InBounds(position - buffer.Offset, count, buffer.Length))
            return &buffer;
    }

    ReadBufferEntry* chosen = nullptr;
    for (ReadBufferEntry& buffer : m_buffers) {
        if (buffer.Length == 0) {
            chosen = &buffer;
            break;
        }
    }
    if (chosen == nullptr) {
        // Nearest start wins, the lower index on a tie. Reads of one module cluster around its
        // entry, so the buffer closest to the position is the one least likely to be needed
        // again; this is deliberately not a least-recently-used rule.
        unsigned int bestDistance = 0;
        for (ReadBufferEntry& buffer : m_buffers) {
            unsigned int const distance =
                position > buffer.Offset ? position - buffer.Offset : buffer.Offset - position;
            if (chosen == nullptr || distance < bestDistance) {
                chosen = &buffer;
                bestDistance = distance;
            }
        }
    }

    uint32_t fillOffset = position;
    uint32_t fillLength = BufferSize;
    if (m_length <= BufferSize) {
        fillOffset = 0;
        fillLength = m_length;
    } else if (position > m_length - BufferSize) {
        // Slide back so that a fill near the end still holds a full buffer of the file.
        fillOffset = m_length - BufferSize;
    }

    // The fill goes through Read, which must go straight to the stream this time.
    chosen->Length = 0;
    m_useBuffers = false;
    unsigned int fillPos = 0;
    bool const filled = Read(chosen->Data, fillOffset, fillPos, fillLength, 1);
    m_useBuffers = true;
    if (!filled)
        return nullptr;
    chosen->Offset = fillOffset;
    chosen->Length = fillLength;
    return chosen;
}

unsigned char* ParameterBinaryFile::Read(unsigned int offset, unsigned long count)
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    if (count == 0) {
        ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                "ParameterBinaryFile::Read called with 0 count\n");
        return nullptr;
    }
    if (!m_valid || m_modified)
        return nullptr;
    // Checked before allocating so that a count from a damaged file cannot ask for a huge block.
    if (!CheckRead(true, offset, 0, count))
        return nullptr;
    auto* block = static_cast<unsigned char*>(VornCalloc(count, VornTagAllocData));
    if (block == nullptr)
        return nullptr;
    unsigned int pos = 0;
    if (!Read(block, offset, pos, count, 1)) {
        VornFree(block, VornTagRelease);
        return nullptr;
    }
    return block;
}

int ParameterBinaryFile::Reference(int adjust)
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    int const count = m_refCount.load();
    if (adjust > 0) {
        if (m_file == nullptr && count != 0)
            ParameterLogging::Write(m_log, ParameterLogging::LogWarning,
                                    "FileReference Adjust: %d, RefCount: %u, Binary File was null "
                                    "when file reference was %u\n",
                                    adjust, static_cast<unsigned int>(count),
                                    static_cast<unsigned int>(count));
        if (m_file == nullptr) {
            Open(false);
            if (m_file == nullptr)
                ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                        "FileReference Adjust: %d, RefCount: %u, Failed to open "
                                        "binary file '%s' errno: %d\n",
                                        adjust, static_cast<unsigned int>(count), m_fileName,
                                        errno);
        }
        m_refCount += adjust;
    } else if (adjust < 0) {
        if (m_file != nullptr) {
            if (count + adjust < 0)
                ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                        "FileReference Adjust: %d, RefCount: %u, File Reference "
                                        "is less than adjust amount\n",
                                        adjust, static_cast<unsigned int>(count));
            m_refCount += adjust;
            if (m_refCount.load() < 1) {
                Close();
                m_refCount = 0;
            }
        } else {
            ParameterLogging::Write(m_log, ParameterLogging::LogWarning,
                                    "FileReference Remove: %d, RefCount: %i, Called when file was "
                                    "already closed\n",
                                    adjust, count);
        }
    }
    return m_refCount.load();
}

bool ParameterBinaryFile::ValidateCRC(unsigned char* buffer, unsigned int length, bool crc64,
                                      IParameterLoggingAPI* log)
{
    return crc64 ? ParserCRC64::Validate(buffer, length, true, log)
                 : ParserCRC32::Validate(buffer, length, log);
}

bool ParameterBinaryFile::IsValid() const
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    return m_valid;
}

bool ParameterBinaryFile::IsModified() const
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    return m_modified;
}

bool ParameterBinaryFile::IsOpen() const
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    return m_file != nullptr;
}

unsigned int ParameterBinaryFile::GetLength() const
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    return m_length;
}

ParameterBinaryFile::BufferWindow ParameterBinaryFile::GetBufferWindow(unsigned int index) const
{
    std::lock_guard<std::recursive_mutex> guard(m_lock);
    if (index >= BufferCount)
        return {0, 0};
    return {m_buffers[index].Offset, m_buffers[index].Length};
}
