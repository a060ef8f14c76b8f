// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyPacket: bounded field reads and the one parser of packet heads.
#include "parameterparser/livetuning/parameterknobbypacket.h"

#include "parameterparser/parameterlogging.h"

namespace ParameterKnobbyPacket {

bool View::Fail(unsigned int width, unsigned int offset, IParameterLoggingAPI* log) const
{
    if (log != nullptr)
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to read %lld bytes from binary file offset %d, length %d\n",
                                static_cast<long long>(width), static_cast<int>(offset),
                                static_cast<int>(m_size));
    return false;
}

bool View::U16(unsigned int offset, uint16_t& value, IParameterLoggingAPI* log) const
{
    value = 0;
    if (!Fits(offset, 2))
        return Fail(2, offset, log);
    value = GetU16(m_bytes + offset);
    return true;
}

bool View::U32(unsigned int offset, uint32_t& value, IParameterLoggingAPI* log) const
{
    value = 0;
    if (!Fits(offset, 4))
        return Fail(4, offset, log);
    value = GetU32(m_bytes + offset);
    return true;
}

bool View::U64(unsigned int offset, uint64_t& value, IParameterLoggingAPI* log) const
{
    value = 0;
    if (!Fits(offset, 8))
        return Fail(8, offset, log);
    value = GetU64(m_bytes + offset);
    return true;
}

bool ParseHead(View packet, Direction direction, Head& head, IParameterLoggingAPI* log)
{
    head = Head();
    // Below 7 bytes a packet is no head at all, whatever it starts with.
    constexpr unsigned int SmallestHead = 7;
    uint16_t tag = 0;
    if (!packet.Fits(0, SmallestHead) || !packet.U16(TagOffset, tag) || tag != StartTag)
        return false;
    (void)packet.U16(CommandOffset, head.command);
    unsigned int const command = head.command;
    bool const response = direction == Direction::Response;
    unsigned int const idOffset =
        response && command == DeviceInfo ? DeviceInfoSessionOffset : SessionOffset;
    if (!packet.U64(idOffset, head.session, log)) {
        // Too short for the session ID: only the commands that carry no payload pass.
        if (response)
            return command == ActiveModes || command == ControlValues || command >= ModeIndex;
        return command < Modes || command > Custom;
    }
    unsigned int const afterId = idOffset + 8;
    unsigned int start = afterId;
    bool const withPayload =
        HasRequestId(command) || command == TriggerValues || (response && command == DeviceInfo);
    if (!withPayload)
        return true;
    // A payload of at least one byte behind the request head.
    if (!packet.Fits(0, RequestHeadSize + 1))
        return false;
    if (HasRequestId(command)) {
        (void)packet.U32(afterId, head.requestId);
        start = afterId + 4;
    }
    head.payload = packet.From(start);
    head.payloadLength = packet.CountFrom(start);
    return true;
}

} // namespace ParameterKnobbyPacket
