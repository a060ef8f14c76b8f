// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyWorker: control values and trigger requests between the host and a client.
#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/livetuning/knobbytext.h"
#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parsercrc.h"

namespace {

namespace Wire = ParameterKnobbyPacket;

constexpr unsigned int FieldLength = 512;
// One control value's text, terminator included.
constexpr unsigned int ControlValueTextLength = 128;
// Room the three texts of a trigger response may take, with their three separators.
constexpr unsigned int TriggerTextLimit = 65520;
// Bytes of one value on the wire: identifier and double.
constexpr unsigned int WireValueSize = 12;

void PutText(unsigned char* buffer, unsigned int& position, char const* text, size_t length)
{
    std::memcpy(buffer + position, text, length);
    position += static_cast<unsigned int>(length);
}

// Writes one instance's record at position: its name, ":", a 16-bit count and the 12-byte
// values. False, with nothing written, when the record does not fit the packet; the log says
// which part did not.
bool PutInstance(unsigned char* buffer, unsigned int& position,
                 ParameterTriggerIDValues const& instance, IParameterLoggingAPI* log)
{
    size_t const room = Wire::MaxPacketSize - position;
    size_t const nameLength = std::strlen(instance.Name());
    size_t const valueBytes = static_cast<size_t>(instance.Count()) * WireValueSize;
    if (nameLength + 1 >= room) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Knobby Trigger Values(%u) command, insufficient space to "
                                "write trigger values\n",
                                static_cast<unsigned int>(Wire::TriggerValues));
        return false;
    }
    // The record needs name, ":", the 2-byte count and the values.
    if (room <= valueBytes + 4 || nameLength + 3 + valueBytes > room) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Knobby Trigger Values(%u) command, insufficient packet "
                                "space to hold IPE instance %s\n",
                                static_cast<unsigned int>(Wire::TriggerValues), instance.Name());
        return false;
    }
    PutText(buffer, position, instance.Name(), nameLength);
    buffer[position++] = ':';
    Wire::PutU16(buffer + position, static_cast<uint16_t>(instance.Count()));
    position += 2;
    for (unsigned int v = 0; v < instance.Count(); ++v) {
        ParameterCTValue const& value = instance.Values()[v];
        uint64_t bits = 0;
        double const number = value.value;
        std::memcpy(&bits, &number, sizeof(bits));
        Wire::PutU32(buffer + position, value.identifier);
        Wire::PutU64(buffer + position + 4, bits);
        position += WireValueSize;
    }
    return true;
}

} // namespace

void ParameterKnobbyWorker::SetControlValues(PList<ParameterCTValue> const& values)
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    if (&values == &m_controlValues) {
        m_controlValues.Clear();
        return;
    }
    m_controlValues.Clear();
    for (unsigned int i = 0; i < values.Count(); ++i)
        m_controlValues.Add(values[i]);
}

void ParameterKnobbyWorker::SetControlValue(ParameterCTValue const& value)
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    unsigned int position = 0;
    for (unsigned int i = 0; i < m_controlValues.Count(); ++i) {
        ParameterCTValue& current = m_controlValues[i];
        if (current.identifier < value.identifier) {
            ++position;
        } else if (current.identifier == value.identifier) {
            current.value = value.value;
            return;
        }
    }
    m_controlValues.Insert(position, value);
}

void ParameterKnobbyWorker::ProcessControlValues()
{
    // The text runs from 14 and may fill the buffer to ControlTextLimit; its terminator stands
    // behind that.
    unsigned char buffer[ControlTextLimit + 2] = {};
    unsigned int position = Wire::HeadSize;
    {
        std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
        for (unsigned int i = 0; i < m_controlValues.Count(); ++i) {
            char text[ControlValueTextLength];
            unsigned int const length = m_controlValues[i].ToString(text, sizeof(text));
            // A value that does not fit is left out; a shorter one behind it may still go in.
            if (ControlTextLimit - position <= length)
                continue;
            if (i > 0) {
                if (position > ControlTextLimit - 1)
                    ParameterLogging::Write(
                        m_data, ParameterLogging::LogError,
                        "Failed to write %lld bytes to binary offset %d, length %d\n", 1LL,
                        static_cast<int>(position), static_cast<int>(ControlTextLimit));
                else
                    buffer[position++] = ',';
            }
            PutText(buffer, position, text, length);
        }
    }
    buffer[position] = '\0';
    unsigned int const length = position - Wire::HeadSize + 15;
    WriteBareHead(buffer, Wire::ControlValues, length);
    m_com->Write(buffer, static_cast<int>(length));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Control Values(%d), Version: %u.%u, Name: %s\n",
                            Wire::ControlValues, 2u, 0u,
                            reinterpret_cast<char const*>(buffer + Wire::HeadSize));
}

void ParameterKnobbyWorker::ProcessTriggerValues(unsigned char const* packet, unsigned int size)
{
    Wire::Head head;
    if (!Wire::ParseHead(Wire::View(packet, size), Wire::Direction::Request, head, m_data) ||
        head.payload == nullptr || head.payloadLength == 0)
        return;
    // "modePath:module:pipeline"; a field left out is empty.
    KnobbyText::PayloadText const text(head.payload, head.payloadLength);
    if (!text.Valid())
        return;
    char modePath[FieldLength] = {};
    char module[FieldLength] = {};
    char pipeline[FieldLength] = {};
    unsigned int offset = KnobbyText::CutField(text, 0, ':', modePath, FieldLength);
    if (offset != 0)
        offset = KnobbyText::CutField(text, offset, ':', module, FieldLength);
    if (offset != 0)
        KnobbyText::CutField(text, offset, ':', pipeline, FieldLength);

    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    if (!TriggerRequestExists(modePath, module, pipeline)) {
        ParameterTriggerValues* request =
            ParameterTriggerValues::Create(modePath, module, pipeline);
        if (request != nullptr) {
            unsigned int const before = m_triggerRequests.Count();
            m_triggerRequests.Add(request);
            if (m_triggerRequests.Count() == before)
                ParameterTriggerValues::Destroy(request);
        }
    }
    // The host may answer from inside the notice: the value mutex is recursive.
    if (m_handler != nullptr)
        m_handler->TriggerNotice(modePath, module,
                                 ParserCRC64::GetCRC(reinterpret_cast<unsigned char const*>(module),
                                                     static_cast<unsigned int>(std::strlen(module)),
                                                     true, 0),
                                 pipeline);
}

bool ParameterKnobbyWorker::TriggerRequestExists(char const* modePath, char const* module,
                                                 char const* pipeline)
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    for (unsigned int i = 0; i < m_triggerRequests.Count(); ++i) {
        ParameterTriggerValues const* request = m_triggerRequests[i];
        if (request != nullptr && request->Matches(modePath, module, pipeline))
            return true;
    }
    return false;
}

bool ParameterKnobbyWorker::SetTriggerValues(char const* modePath, char const* module,
                                             char const* pipeline, char const* instance,
                                             ParameterCTValue const* values, unsigned int count)
{
    // Taken although the notice already holds it when the host answers from there: a host that
    // answers later from its own thread must not race the command thread.
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    for (unsigned int i = 0; i < m_triggerRequests.Count(); ++i) {
        ParameterTriggerValues* request = m_triggerRequests[i];
        if (request != nullptr && request->Matches(modePath, module, pipeline))
            return request->AddInstance(instance, values, count);
    }
    return false;
}

void ParameterKnobbyWorker::SendTriggerResponses()
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    clock_t const now = clock();
    unsigned int i = 0;
    while (i < m_triggerRequests.Count()) {
        ParameterTriggerValues* request = m_triggerRequests[i];
        if (request != nullptr && now - request->CreatedAt() <= TriggerResponseTicks) {
            ++i;
            continue;
        }
        SendTriggerValues(request);
        m_triggerRequests.Remove(i);
        ParameterTriggerValues::Destroy(request);
    }
}

void ParameterKnobbyWorker::SendTriggerValues(ParameterTriggerValues const* request)
{
    if (request == nullptr) {
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby Trigger Values(%d) command, unable to allocate memory\n",
                                Wire::TriggerValues);
        return;
    }
    size_t const modePathLength = std::strlen(request->ModePath());
    size_t const moduleLength = std::strlen(request->Module());
    size_t const pipelineLength = std::strlen(request->Pipeline());
    if (modePathLength + moduleLength + pipelineLength + 3 > TriggerTextLimit) {
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby Trigger Values(%d) command, insufficient space for mode "
                                "path, module, and pipeline info\n",
                                Wire::TriggerValues);
        return;
    }
    auto* buffer = static_cast<unsigned char*>(VornCalloc(Wire::MaxPacketSize, VornTagAllocData));
    if (buffer == nullptr) {
        ParameterLogging::Write(m_data, ParameterLogging::LogError,
                                "Knobby Trigger Values(%d) command, unable to allocate memory\n",
                                Wire::TriggerValues);
        return;
    }
    unsigned int position = Wire::HeadSize;
    PutText(buffer, position, request->ModePath(), modePathLength);
    buffer[position++] = ':';
    PutText(buffer, position, request->Module(), moduleLength);
    buffer[position++] = ':';
    PutText(buffer, position, request->Pipeline(), pipelineLength);
    buffer[position++] = '#';
    unsigned int const textLength = position - Wire::HeadSize;

    PList<ParameterTriggerIDValues*> const& instances = request->Instances();
    for (unsigned int i = 0; i < instances.Count(); ++i) {
        if (instances[i] != nullptr && !PutInstance(buffer, position, *instances[i], m_data))
            break;
    }
    Wire::WriteHead(buffer, Wire::TriggerValues, position, m_knobbyID);
    m_com->Write(buffer, static_cast<int>(position));
    ParameterLogging::Write(m_data, ParameterLogging::LogVerbose,
                            "Knobby queued command: Control Values(%d), Version: %u.%u, Name: "
                            "%.*s\n",
                            Wire::TriggerValues, 2u, 0u, static_cast<int>(textLength),
                            reinterpret_cast<char const*>(buffer + Wire::HeadSize));
    VornFree(buffer, VornTagRelease);
}
