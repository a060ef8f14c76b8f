// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyWorker: the commands that read the mode tree and the values of the store.
#include <cstring>

#include "platform/vornosutils.h"

#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/livetuning/knobbytext.h"
#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parameterutils.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using KnobbyText::AppendText;
using KnobbyText::CutField;
using KnobbyText::PayloadText;
using KnobbyText::WorkBuffer;

// Text fields of a request are cut into buffers of this size.
constexpr unsigned int FieldLength = 512;
// Device Info text, without and with its head; Active Modes text.
constexpr unsigned int DeviceInfoTextLength = 4080;
constexpr unsigned int ActiveModesTextLength = 4082;
// The Modes response is built in a buffer of this size; the child list fills it from 18.
constexpr unsigned int ModesBufferSize = 16384;
constexpr unsigned int ModesTextLength = 16366;
// The Modes response's length counts 10 bytes behind the buffer's text that BuildResponse's
// arithmetic adds; they are kept zero behind the buffer so that the packet never reads past it.
constexpr unsigned int ModesBufferSlack = 16;
// Room for value text behind an 18-byte head in a 65535-byte packet.
constexpr unsigned int ValueTextLength = 65517;
constexpr unsigned int CustomAnswerCapacity = 65515;
constexpr unsigned int CustomAnswerOffset = 20;
// Log lines show at most this much of a text, or this many bytes in hexadecimal.
constexpr int LogTextLength = 127;
constexpr unsigned int LogHexBytes = 63;

// The last "."-separated step of a variable path: the name a value is shown under when its record
// carries none, as GetValues shows it.
char const* LastStep(char const* path)
{
    char const* dot = std::strrchr(path, '.');
    return dot != nullptr ? dot + 1 : path;
}

// Copies the request's 18-byte head (tag, command, session and request ID) to the response.
void EchoHead(unsigned char* response, unsigned char const* request)
{
    std::memcpy(response, request, Wire::RequestHeadSize);
}

// Reads a request's head; false (nothing to answer) when the packet is no whole request.
bool ReadRequest(unsigned char const* packet, unsigned int size, Wire::Head& head,
                 IParameterLoggingAPI* log)
{
    return Wire::ParseHead(Wire::View(packet, size), Wire::Direction::Request, head, log);
}

} // namespace

void ParameterKnobbyWorker::ProcessDeviceInfo()
{
    unsigned char buffer[Wire::DeviceInfoHeadSize + DeviceInfoTextLength] = {};
    char* text = reinterpret_cast<char*>(buffer + Wire::DeviceInfoHeadSize);
    char const* identifier = m_data->GetLoggingIdentifier();
    if (identifier == nullptr || identifier[0] == '\0')
        Vorn::OsUtils::SNPrintF(text, DeviceInfoTextLength, "0x%016lx",
                                static_cast<unsigned long>(m_knobbyID));
    else
        Vorn::OsUtils::StrLCpy(text, identifier, DeviceInfoTextLength);
    PList<char const*> names;
    if (m_data->GetModeTableNames(names) && names.Count() > 1) {
        Vorn::OsUtils::StrLCat(text, ":", DeviceInfoTextLength);
        for (unsigned int i = 0; i < names.Count(); ++i) {
            if (i > 0)
                Vorn::OsUtils::StrLCat(text, ",", DeviceInfoTextLength);
            Vorn::OsUtils::StrLCat(text, names[i] != nullptr ? names[i] : "", DeviceInfoTextLength);
        }
    }
    unsigned int const length = static_cast<unsigned int>(std::strlen(text)) + 17;
    Wire::PutU16(buffer + Wire::TagOffset, Wire::StartTag);
    Wire::PutU16(buffer + Wire::CommandOffset, Wire::DeviceInfo);
    Wire::PutU16(buffer + Wire::LengthOffset, static_cast<uint16_t>(length));
    Wire::PutU16(buffer + Wire::DeviceInfoVersionOffset, Wire::ProtocolVersion);
    Wire::PutU64(buffer + Wire::DeviceInfoSessionOffset, m_knobbyID);
    m_com->Write(buffer, static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Info(%d), Version: %u.%u, Name: %.*s\n",
                            Wire::DeviceInfo, 2u, 0u, LogTextLength, text);
}

void ParameterKnobbyWorker::ProcessActiveModes()
{
    unsigned char buffer[Wire::HeadSize + ActiveModesTextLength] = {};
    char* text = reinterpret_cast<char*>(buffer + Wire::HeadSize);
    m_data->GetActiveModes(m_modeTableIndex, text, ActiveModesTextLength);
    text[ActiveModesTextLength - 1] = '\0';
    unsigned int const length = static_cast<unsigned int>(std::strlen(text)) + 15;
    WriteBareHead(buffer, Wire::ActiveModes, length);
    m_com->Write(buffer, static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Active Modes(%d), Version: %u.%u, Active: %s\n",
                            Wire::ActiveModes, 2u, 0u, text);
}

void ParameterKnobbyWorker::ProcessModes(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!ReadRequest(packet, size, head, m_data))
        return;
    unsigned int const requestID = head.requestId;
    uint64_t const id = head.session;
    if (id != m_knobbyID)
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Request packet Knobby ID does not match, Command: Modes(%d): "
                                "Expected: %llu, Actual: %llu\n",
                                Wire::Modes, static_cast<unsigned long long>(m_knobbyID),
                                static_cast<unsigned long long>(id));
    PayloadText const modes(head.payload, head.payloadLength);
    WorkBuffer const buffer(ModesBufferSize + ModesBufferSlack);
    if (!modes.Valid() || buffer.Data() == nullptr)
        return;
    char path[FieldLength] = {};
    m_data->GetModeShorthand(modes.Text(), path, sizeof(path));
    unsigned char* text = buffer.Data() + Wire::RequestHeadSize;
    unsigned int written = m_data->GetChildModes(m_modeTableIndex, path, text, ModesTextLength);
    if (written > ModesTextLength)
        written = ModesTextLength;
    unsigned int total = 0;
    // A list too long for the buffer leaves the head zero; the packet goes out all the same.
    (void)BuildResponse(buffer.Data(), ModesBufferSize, total, Wire::Modes, m_knobbyID, requestID,
                        text, written + Wire::RequestHeadSize, m_data);
    m_com->Write(buffer.Data(), static_cast<int>(total));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Modes(%d), ID: %u, Payload: %.*s...\n",
                            Wire::Modes, requestID, LogTextLength,
                            reinterpret_cast<char const*>(text));
}

void ParameterKnobbyWorker::ProcessInfo(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!ReadRequest(packet, size, head, m_data))
        return;
    WorkBuffer const response(Wire::MaxPacketSize);
    PayloadText const payload(head.payload, head.payloadLength);
    if (response.Data() == nullptr || !payload.Valid())
        return;
    EchoHead(response.Data(), packet);
    char modes[FieldLength] = {};
    unsigned int const next = CutField(payload, 0, ':', modes, sizeof(modes));
    char const* variable = next != 0 ? payload.Text() + next : nullptr;
    char path[FieldLength] = {};
    m_data->GetModeShorthand(modes, path, sizeof(path));

    // A member asked for by its own path comes back as a record without a name.
    char const* const askedName = variable != nullptr ? LastStep(variable) : "";
    PList<ParameterParserInfo> records;
    unsigned int position = Wire::RequestHeadSize;
    // The text and its terminator must fit the packet: the terminator goes at 65534 at most.
    unsigned int const limit = Wire::MaxPacketSize - 1;
    if (m_data->GetInfo(m_modeTableIndex, path, variable, records)) {
        for (unsigned int i = 0; i < records.Count(); ++i) {
            ParameterParserInfo const& record = records[i];
            if (i > 0)
                AppendText(response.Data(), position, limit, ";", m_data);
            bool const named = record.name != nullptr && record.name[0] != '\0';
            AppendText(response.Data(), position, limit, named ? record.name : askedName, m_data);
            if (record.value[0] != '\0') {
                AppendText(response.Data(), position, limit, "=", m_data);
                AppendText(response.Data(), position, limit, record.value, m_data);
            }
            AppendText(response.Data(), position, limit, ",", m_data);
            AppendText(response.Data(), position, limit, record.type, m_data);
            if (record.isArray || record.flag) {
                char count[16];
                Vorn::OsUtils::SNPrintF(count, sizeof(count), ",%u", record.count);
                AppendText(response.Data(), position, limit, count, m_data);
            }
        }
    }
    response.Data()[position] = '\0';
    unsigned int const length = position + 1;
    Wire::PutU16(response.Data() + Wire::LengthOffset, static_cast<uint16_t>(length));
    m_com->Write(response.Data(), static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Info(%d), ID: %u, Payload: %s\n", Wire::Info,
                            head.requestId, response.Text(Wire::RequestHeadSize));
}

void ParameterKnobbyWorker::ProcessGetValues(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!ReadRequest(packet, size, head, m_data))
        return;
    WorkBuffer const response(Wire::MaxPacketSize);
    PayloadText const payload(head.payload, head.payloadLength);
    if (response.Data() == nullptr || !payload.Valid())
        return;
    EchoHead(response.Data(), packet);
    char* text = response.Text(Wire::RequestHeadSize);
    char modes[FieldLength] = {};
    unsigned int const next = CutField(payload, 0, ':', modes, sizeof(modes));
    if (next != 0) {
        char variable[FieldLength] = {};
        unsigned int const subNext = CutField(payload, next, ':', variable, sizeof(variable));
        char const* subVariables = subNext != 0 ? payload.Text() + subNext : nullptr;
        char path[FieldLength] = {};
        m_data->GetModeShorthand(modes, path, sizeof(path));
        // A failed read leaves what the store wrote, usually nothing: the client sees the text.
        (void)m_data->GetValue(m_modeTableIndex, path, variable, subVariables, text,
                               ValueTextLength);
        text[ValueTextLength - 1] = '\0';
    }
    unsigned int const length = static_cast<unsigned int>(std::strlen(text)) + 19;
    Wire::PutU16(response.Data() + Wire::LengthOffset, static_cast<uint16_t>(length));
    m_com->Write(response.Data(), static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: GetValues(%d), ID: %u, Payload: %s\n",
                            Wire::GetValues, head.requestId, text);
}

void ParameterKnobbyWorker::ProcessSetValues(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!ReadRequest(packet, size, head, m_data))
        return;
    WorkBuffer const response(Wire::MaxPacketSize);
    WorkBuffer const item(Wire::MaxPacketSize);
    WorkBuffer const readBack(Wire::MaxPacketSize);
    PayloadText const payload(head.payload, head.payloadLength);
    if (response.Data() == nullptr || item.Data() == nullptr || readBack.Data() == nullptr ||
        !payload.Valid())
        return;
    EchoHead(response.Data(), packet);
    unsigned int const requestID = head.requestId;
    char* text = response.Text(Wire::RequestHeadSize);
    unsigned int position = Wire::RequestHeadSize;
    unsigned int const limit = Wire::RequestHeadSize + ValueTextLength - 1;

    bool succeeded = false;
    unsigned int readBackCount = 0;
    char modes[FieldLength] = {};
    char variable[FieldLength] = {};
    unsigned int const next = CutField(payload, 0, ':', modes, sizeof(modes));
    unsigned int itemOffset =
        next != 0 ? CutField(payload, next, ':', variable, sizeof(variable)) : 0;
    if (next != 0 && itemOffset == 0)
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby SetValues failed: Failed to read mode\n");
    if (itemOffset != 0) {
        char path[FieldLength] = {};
        m_data->GetModeShorthand(modes, path, sizeof(path));
        while (itemOffset != 0 && itemOffset < payload.Length()) {
            // Items run up to ";" and may be long (a whole array), so they get a packet-sized
            // buffer; only the name is cut to a field.
            unsigned int const after =
                CutField(payload, itemOffset, ';', item.Text(), Wire::MaxPacketSize);
            itemOffset = after;
            char* equals = std::strchr(item.Text(), '=');
            if (equals == nullptr || equals[1] == '\0')
                continue;
            char name[FieldLength] = {};
            size_t const nameLength = static_cast<size_t>(equals - item.Text());
            std::memcpy(name, item.Text(), nameLength < FieldLength ? nameLength : FieldLength - 1);
            char const* value = equals + 1;
            succeeded = m_data->SetValue(m_modeTableIndex, path, variable, name, value);
            if (!succeeded) {
                ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                        "Knobby SetValues failed: Mode: %s, Value: %s\n", modes,
                                        item.Text());
                continue;
            }
            readBack.Text()[0] = '\0';
            if (m_data->GetValue(m_modeTableIndex, path, variable, name, readBack.Text(),
                                 Wire::MaxPacketSize)) {
                readBack.Text()[Wire::MaxPacketSize - 1] = '\0';
                // Items are joined by ";" whatever their text: an empty read-back still takes
                // its place, so the client can match answers to items.
                if (readBackCount > 0)
                    AppendText(response.Data(), position, limit, ";", m_data);
                AppendText(response.Data(), position, limit, readBack.Text(), m_data);
                ++readBackCount;
            }
        }
    }
    response.Data()[position] = '\0';
    unsigned int const length = static_cast<unsigned int>(std::strlen(text)) + 19;
    Wire::PutU16(response.Data() + Wire::LengthOffset, static_cast<uint16_t>(length));
    m_com->Write(response.Data(), static_cast<int>(length));
    if (succeeded)
        ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                                "Knobby command succeeded: SetValues(%d), ID: %u, Payload: %s\n",
                                Wire::SetValues, requestID, text);
    else
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby command failed: SetValues(%d), ID: %u, Payload: %s\n",
                                Wire::SetValues, requestID, text);
}

void ParameterKnobbyWorker::ProcessCustom(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!ReadRequest(packet, size, head, m_data))
        return;
    WorkBuffer const response(Wire::MaxPacketSize);
    if (response.Data() == nullptr)
        return;
    EchoHead(response.Data(), packet);
    unsigned short result = 0;
    unsigned short answerLength = 0;
    unsigned char* answer = response.Data() + CustomAnswerOffset;
    KnobbyHandler* handler = Handler();
    if (handler != nullptr) {
        result = handler->Custom(head.payload, head.payloadLength,
                                 static_cast<unsigned short>(CustomAnswerCapacity), answer,
                                 answerLength);
        if (answerLength > CustomAnswerCapacity)
            answerLength = static_cast<unsigned short>(CustomAnswerCapacity);
    } else {
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby queued Custom command received with no handler "
                                "installed, sending result = 0\n");
    }
    Wire::PutU16(response.Data() + Wire::RequestHeadSize, result);
    unsigned int const length = answerLength + CustomAnswerOffset;
    Wire::PutU16(response.Data() + Wire::LengthOffset, static_cast<uint16_t>(length));
    m_com->Write(response.Data(), static_cast<int>(length));

    // Room for either form with its terminator: 127 characters of text, or 63 bytes as
    // hexadecimal.
    constexpr size_t ShownLength = static_cast<size_t>(LogTextLength) + 1;
    static_assert(ShownLength >= 2 * LogHexBytes + 1, "the hexadecimal form must fit too");
    char shown[ShownLength] = {};
    if (IsPrintable(answer, answerLength)) {
        unsigned int const count =
            answerLength < static_cast<unsigned int>(LogTextLength) ? answerLength : LogTextLength;
        std::memcpy(shown, answer, count);
        shown[count] = '\0';
    } else {
        unsigned int const count = answerLength < LogHexBytes ? answerLength : LogHexBytes;
        for (unsigned int i = 0; i < count; ++i)
            Vorn::OsUtils::SNPrintF(shown + 2 * i, 3, "%02X", answer[i]);
    }
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Custom(%d), ID: %u, Payload: %s...\n",
                            Wire::Custom, head.requestId, shown);
}

void ParameterKnobbyWorker::ProcessModeTableIndex(unsigned char const* packet, unsigned int size)
{
    Wire::View const view(packet, size);
    PayloadText const request(view.From(Wire::HeadSize), view.CountFrom(Wire::HeadSize));
    if (!request.Valid())
        return;
    bool ok = false;
    double const value = ParameterUtils::StringToDouble(request.Text(), ok);
    if (ok && value < static_cast<double>(m_data->GetModeTableCount()))
        // A negative number is below every count and selects the first table.
        m_modeTableIndex = value < 1.0 ? 0 : static_cast<uint8_t>(static_cast<unsigned int>(value));
    unsigned char buffer[Wire::HeadSize + 18] = {};
    char* text = reinterpret_cast<char*>(buffer + Wire::HeadSize);
    Vorn::OsUtils::SNPrintF(text, 18, "%u", static_cast<unsigned int>(m_modeTableIndex));
    unsigned int const length = static_cast<unsigned int>(std::strlen(text)) + 15;
    WriteBareHead(buffer, Wire::ModeIndex, length);
    m_com->Write(buffer, static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command (%d): Mode Index(%s), Version: %u.%u, Index: "
                            "%s\n",
                            Wire::ModeIndex, request.Text(), 2u, 0u, text);
}
