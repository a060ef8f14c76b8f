// SPDX-License-Identifier: Apache-2.0
// LiveConnection: the requests a client sends to a live tuning server.
#include "tools/paramctl/liveconnection.h"

#include "tools/paramctl/commandline.h"

namespace ParamCtl {

namespace Wire = ParameterKnobbyPacket;

bool ParseTarget(std::string const& text, LiveTarget& target)
{
    std::string host = text;
    std::string port;
    if (!text.empty() && text[0] == '[') {
        size_t const close = text.find(']');
        if (close == std::string::npos)
            return false;
        host = text.substr(1, close - 1);
        if (close + 1 < text.size()) {
            if (text[close + 1] != ':')
                return false;
            port = text.substr(close + 2);
        }
    } else if (text.find(':') == text.rfind(':')) {
        size_t const colon = text.find(':');
        if (colon != std::string::npos) {
            host = text.substr(0, colon);
            port = text.substr(colon + 1);
        }
    }
    if (!host.empty())
        target.host = host;
    if (port.empty())
        return true;
    unsigned short number = 0;
    if (!ParsePortNumber(port, number))
        return false;
    target.port = port;
    return true;
}

Bytes MakeRequest(uint16_t command, uint64_t session, uint32_t requestId, Bytes const& payload)
{
    Bytes packet(Wire::RequestHeadSize + payload.size());
    unsigned int const length = Wire::WriteRequest(
        packet.data(), static_cast<unsigned int>(packet.size()), command, session, requestId,
        payload.data(), static_cast<unsigned int>(payload.size()));
    packet.resize(length);
    return packet;
}

Bytes TextPayload(std::string const& text)
{
    Bytes payload(text.begin(), text.end());
    payload.push_back(0);
    return payload;
}

std::string TextOf(unsigned char const* bytes, size_t count)
{
    size_t length = 0;
    while (length < count && bytes[length] != 0)
        ++length;
    return std::string(reinterpret_cast<char const*>(bytes), length);
}

bool LiveRequest(LiveTarget const& target, uint16_t command, std::string const& text, int timeoutMs,
                 std::string& answer, std::string& error)
{
    LiveConnection connection;
    if (!connection.Open(target.host, target.port, error)) {
        error = "cannot connect to " + target.host + ":" + target.port + ": " + error;
        return false;
    }
    // The server announces its session ID in Device Info; the requests after it carry it.
    Bytes const hello = connection.Send(MakeRequest(Wire::DeviceInfo, 0, 0, {}))
                            ? connection.Receive(timeoutMs)
                            : Bytes();
    if (hello.size() < Wire::DeviceInfoHeadSize) {
        error = "no answer from " + target.host + ":" + target.port;
        return false;
    }
    uint64_t const session = Wire::GetU64(hello.data() + Wire::DeviceInfoSessionOffset);
    Bytes const response = connection.Send(MakeRequest(command, session, 1, TextPayload(text)))
                               ? connection.Receive(timeoutMs)
                               : Bytes();
    if (response.size() < Wire::RequestHeadSize) {
        error = "no answer from " + target.host + ":" + target.port;
        return false;
    }
    answer =
        TextOf(response.data() + Wire::RequestHeadSize, response.size() - Wire::RequestHeadSize);
    return true;
}

LiveExchange::~LiveExchange()
{
    std::string inForce;
    if (!m_restore.empty() && m_restore != m_current)
        static_cast<void>(SelectTable(m_restore, inForce));
}

bool LiveExchange::SelectTable(std::string const& text, std::string& inForce)
{
    Bytes const answer =
        m_connection.Send(MakeRequest(Wire::ModeIndex, m_session, 0, TextPayload(text)))
            ? m_connection.Receive(m_timeoutMs)
            : Bytes();
    if (answer.size() <= Wire::HeadSize)
        return false;
    inForce = TextOf(answer.data() + Wire::HeadSize, answer.size() - Wire::HeadSize);
    return true;
}

bool LiveExchange::Open(LiveTarget const& target, unsigned char table, int timeoutMs,
                        std::string& error)
{
    m_where = target.host + ":" + target.port;
    m_timeoutMs = timeoutMs;
    if (!m_connection.Open(target.host, target.port, error)) {
        error = "cannot connect to " + m_where + ": " + error;
        return false;
    }
    Bytes const hello = m_connection.Send(MakeRequest(Wire::DeviceInfo, 0, 0, {}))
                            ? m_connection.Receive(timeoutMs)
                            : Bytes();
    if (hello.size() < Wire::DeviceInfoHeadSize) {
        error = "no answer from " + m_where;
        return false;
    }
    m_session = Wire::GetU64(hello.data() + Wire::DeviceInfoSessionOffset);
    m_device =
        TextOf(hello.data() + Wire::DeviceInfoHeadSize, hello.size() - Wire::DeviceInfoHeadSize);
    // An index no server has answers with the one in force.
    if (!SelectTable("256", m_restore)) {
        error = "no answer from " + m_where;
        return false;
    }
    m_current = m_restore;
    return Select(table, error);
}

bool LiveExchange::Select(unsigned char table, std::string& error)
{
    if (!SelectTable(std::to_string(table), m_current)) {
        error = "no answer from " + m_where;
        return false;
    }
    if (m_current != std::to_string(table)) {
        error =
            "the live tuning server at " + m_where + " has no mode table " + std::to_string(table);
        return false;
    }
    return true;
}

bool LiveExchange::Request(uint16_t command, std::string const& text, std::string& answer,
                           std::string& error)
{
    std::vector<std::string> answers;
    if (!RequestEach(command, {text}, answers, error))
        return false;
    answer = answers.front();
    return true;
}

bool LiveExchange::RequestEach(uint16_t command, std::vector<std::string> const& texts,
                               std::vector<std::string>& answers, std::string& error)
{
    // The requests go out a window ahead of the answers: the server answers them one at a time
    // and in order, and a long run of small requests would otherwise cost a round trip each.
    // The window stays far below the packets the server queues for one client.
    constexpr size_t Window = 32;
    answers.clear();
    size_t sent = 0;
    uint32_t const firstId = m_requestId + 1;
    while (answers.size() < texts.size()) {
        for (; sent < texts.size() && sent - answers.size() < Window; ++sent) {
            if (!m_connection.Send(
                    MakeRequest(command, m_session, ++m_requestId, TextPayload(texts[sent])))) {
                error = "no answer from " + m_where;
                return false;
            }
        }
        Bytes const response = m_connection.Receive(m_timeoutMs);
        if (response.size() < Wire::RequestHeadSize ||
            Wire::GetU32(response.data() + Wire::RequestIdOffset) !=
                firstId + static_cast<uint32_t>(answers.size())) {
            error = "no answer from " + m_where;
            return false;
        }
        answers.push_back(TextOf(response.data() + Wire::RequestHeadSize,
                                 response.size() - Wire::RequestHeadSize));
    }
    return true;
}

} // namespace ParamCtl
