// SPDX-License-Identifier: Apache-2.0
// The live tuning packet: its head layout, command numbers and little-endian field access.
#pragma once

#include <cstdint>

#include "parameterparser/parameterbytereader.h"

class IParameterLoggingAPI;

/// Layout of every live tuning packet. All fields are little-endian and unaligned.
///
/// | offset   | size | field      | meaning                                                  |
/// |----------|------|------------|----------------------------------------------------------|
/// | 0        | 2    | start tag  | 19278                                                    |
/// | 2        | 2    | command    | 0 to 9                                                   |
/// | 4        | 2    | length     | whole packet in bytes, head included                     |
/// | 6        | 8    | session ID | announced by the Device Info response                    |
/// | 14       | 4    | request ID | commands 3, 4, 5, 6 and 8 only; chosen by the client     |
/// | 14 or 18 | rest | payload    | from 18 with a request ID, otherwise from 14             |
///
/// The Device Info response differs: a 2-byte protocol version (2) at 6, the session ID at 8 and
/// the payload from 16.
namespace ParameterKnobbyPacket {

constexpr uint16_t StartTag = 19278;
/// The largest packet; also the size of every packet buffer.
constexpr unsigned int MaxPacketSize = 65535;
/// Highest command number plus one.
constexpr unsigned int CommandCount = 10;
constexpr uint16_t ProtocolVersion = 2;

constexpr unsigned int TagOffset = 0;
constexpr unsigned int CommandOffset = 2;
constexpr unsigned int LengthOffset = 4;
constexpr unsigned int SessionOffset = 6;
constexpr unsigned int RequestIdOffset = 14;
constexpr unsigned int DeviceInfoVersionOffset = 6;
constexpr unsigned int DeviceInfoSessionOffset = 8;

/// Bytes ahead of the payload: bare head, head with request ID, Device Info response head.
constexpr unsigned int HeadSize = 14;
constexpr unsigned int RequestHeadSize = 18;
constexpr unsigned int DeviceInfoHeadSize = 16;

enum Command : uint16_t
{
    DeviceInfo = 0,
    ActiveModes = 1,
    ControlValues = 2,
    Modes = 3,
    Info = 4,
    GetValues = 5,
    SetValues = 6,
    TriggerValues = 7,
    Custom = 8,
    ModeIndex = 9,
};

/// True for the commands whose packets carry a request ID at 14.
inline bool HasRequestId(unsigned int command)
{
    return command == Modes || command == Info || command == GetValues || command == SetValues ||
           command == Custom;
}

inline uint16_t GetU16(unsigned char const* bytes)
{
    return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

inline uint32_t GetU32(unsigned char const* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
           (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

inline uint64_t GetU64(unsigned char const* bytes)
{
    return static_cast<uint64_t>(GetU32(bytes)) | (static_cast<uint64_t>(GetU32(bytes + 4)) << 32);
}

inline void PutU16(unsigned char* bytes, uint16_t value)
{
    bytes[0] = static_cast<unsigned char>(value);
    bytes[1] = static_cast<unsigned char>(value >> 8);
}

inline void PutU32(unsigned char* bytes, uint32_t value)
{
    for (unsigned int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline void PutU64(unsigned char* bytes, uint64_t value)
{
    for (unsigned int i = 0; i < 8; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

/// Writes the bare head: tag, command, length and the session ID at 6.
inline void WriteHead(unsigned char* buffer, uint16_t command, unsigned int length,
                      uint64_t session)
{
    PutU16(buffer + TagOffset, StartTag);
    PutU16(buffer + CommandOffset, command);
    PutU16(buffer + LengthOffset, static_cast<uint16_t>(length));
    PutU64(buffer + SessionOffset, session);
}

/// Writes a client's request into buffer: the head (with requestId for the commands that carry
/// one) and payloadLength bytes of payload. Returns the packet's length, or 0 when it does not
/// fit bufferSize or exceeds the largest packet.
inline unsigned int WriteRequest(unsigned char* buffer, unsigned int bufferSize, uint16_t command,
                                 uint64_t session, uint32_t requestId, void const* payload,
                                 unsigned int payloadLength)
{
    unsigned int const head = HasRequestId(command) ? RequestHeadSize : HeadSize;
    unsigned int const length = head + payloadLength;
    if (buffer == nullptr || length > bufferSize || length > MaxPacketSize)
        return 0;
    WriteHead(buffer, command, length, session);
    if (head == RequestHeadSize)
        PutU32(buffer + RequestIdOffset, requestId);
    auto const* bytes = static_cast<unsigned char const*>(payload);
    for (unsigned int i = 0; i < payloadLength && bytes != nullptr; ++i)
        buffer[head + i] = bytes[i];
    return length;
}

/// The bytes of one packet. Every field of a received packet is read through it, so that no
/// read passes the packet's end: a field that does not fit reads as 0 and gives false, and with
/// a log, "Failed to read %lld bytes from binary file offset %d, length %d\n" at error level.
class View
{
public:
    View(unsigned char const* bytes, unsigned int size)
        : m_bytes(bytes), m_size(bytes != nullptr ? size : 0)
    {
    }

    /// True when width bytes stand at offset.
    bool Fits(unsigned int offset, unsigned int width) const
    {
        return ParameterByteReader::InBounds(offset, width, m_size);
    }

    bool U16(unsigned int offset, uint16_t& value, IParameterLoggingAPI* log = nullptr) const;
    bool U32(unsigned int offset, uint32_t& value, IParameterLoggingAPI* log = nullptr) const;
    bool U64(unsigned int offset, uint64_t& value, IParameterLoggingAPI* log = nullptr) const;

    /// The bytes from offset to the end; null when none stand there.
    unsigned char const* From(unsigned int offset) const
    {
        return offset < m_size ? m_bytes + offset : nullptr;
    }
    /// How many bytes stand from offset to the end.
    unsigned int CountFrom(unsigned int offset) const
    {
        return offset < m_size ? m_size - offset : 0;
    }
    unsigned int Size() const { return m_size; }

private:
    bool Fail(unsigned int width, unsigned int offset, IParameterLoggingAPI* log) const;

    unsigned char const* m_bytes;
    unsigned int m_size;
};

/// Which side wrote a packet: the client's requests and the server's responses differ only for
/// Device Info, whose response carries the protocol version at 6 and the session ID at 8.
enum class Direction
{
    Request,
    Response,
};

/// A packet's head as ParseHead reads it; payload points into the packet.
struct Head
{
    uint16_t command = 0;
    uint64_t session = 0;
    uint32_t requestId = 0;
    unsigned char const* payload = nullptr;
    unsigned int payloadLength = 0;
};

/// The one parser of a packet's head, for both directions. False for a packet below 7 bytes or
/// with a wrong start tag; a packet too short for its session ID logs the short read (see View)
/// and is true only for the commands without a payload (requests: 0 to 2 and 9 upward;
/// responses: 1, 2 and 9 upward). The commands with a request ID, Trigger Values and the Device
/// Info response need 19 bytes; the payload follows the session ID (and the request ID).
/// head is reset first; on a false result it holds what was read before the refusal.
[[nodiscard]] bool ParseHead(View packet, Direction direction, Head& head,
                             IParameterLoggingAPI* log = nullptr);

} // namespace ParameterKnobbyPacket
