// SPDX-License-Identifier: Apache-2.0
// Work buffers and the text fields of live tuning requests and responses.
#pragma once

#include <cstddef>

class IParameterLoggingAPI;

namespace KnobbyText {

/// A zero-filled block from the platform allocator, freed with its holder. Data() is null when
/// memory ran out.
class WorkBuffer
{
public:
    explicit WorkBuffer(size_t size);
    ~WorkBuffer();

    WorkBuffer(WorkBuffer const&) = delete;
    WorkBuffer& operator=(WorkBuffer const&) = delete;

    unsigned char* Data() const { return m_data; }
    char* Text(size_t offset = 0) const { return reinterpret_cast<char*>(m_data + offset); }

private:
    unsigned char* m_data;
};

/// A zero-terminated copy of a request's payload, so that its text fields can be cut without
/// reading past the packet whatever the client sent. A null payload is an empty text.
class PayloadText
{
public:
    PayloadText(unsigned char const* payload, unsigned int length);

    char const* Text() const { return m_buffer.Text(); }
    unsigned int Length() const { return m_length; }
    bool Valid() const { return m_buffer.Data() != nullptr; }

private:
    WorkBuffer m_buffer;
    unsigned int m_length = 0;
};

/// Cuts the field that starts at offset up to delimiter, the text's end or a zero byte into
/// result (resultLength bytes, terminated). Returns the offset of the next field when one stands
/// behind the delimiter, or 0 when the text ends there or one byte later.
unsigned int CutField(PayloadText const& payload, unsigned int offset, char delimiter, char* result,
                      unsigned int resultLength);

/// Appends text at position, keeping limit - position bytes as the most that fits; what does not
/// fit is dropped with "Failed to write %lld bytes to binary offset %d, length %d\n" at error
/// level.
void AppendText(unsigned char* buffer, unsigned int& position, unsigned int limit, char const* text,
                IParameterLoggingAPI* log);

} // namespace KnobbyText
