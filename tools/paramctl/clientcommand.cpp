// SPDX-License-Identifier: Apache-2.0
// paramctl client: talks to a live tuning server the way a desktop tuning tool does.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/liveconnection.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

namespace Wire = ParameterKnobbyPacket;

constexpr char ClientUsage[] =
    "usage: paramctl client [--json] [--timeout SECONDS] [HOST][:PORT] COMMAND [ARGS]\n"
    "\n"
    "Connects to a live tuning server (default 127.0.0.1:19278; an IPv6 address in brackets,\n"
    "[::1]:19278) and sends one command:\n"
    "  info                              device name and mode tables\n"
    "  active                            the active mode branches\n"
    "  modes PATH                        children of a named mode path (Default|Sensor.0)\n"
    "  info-var MODES:VARIABLE           description of a variable's members\n"
    "  get MODES:VARIABLE[:SUBVARIABLES] values as name=value items\n"
    "  set MODES:VARIABLE NAME=VALUE...  change values; prints what was read back\n"
    "  control                           the control values the camera publishes\n"
    "  trigger MODE:MODULE:PIPELINE      ask for trigger values and wait for the answer\n"
    "  custom HEX                        send bytes to the host's custom handler\n"
    "  index N                           select mode table N\n"
    "--timeout bounds each wait for an answer (default 5 seconds). A get, set or info-var\n"
    "whose answer is empty (no such variable, nothing changed) exits 1.\n";

constexpr int ExitNoAnswer = ExitFailure;

bool IsCommandName(std::string const& word)
{
    static char const* const names[] = {"info", "active",  "modes",   "info-var", "get",
                                        "set",  "control", "trigger", "custom",   "index"};
    for (char const* name : names) {
        if (word == name)
            return true;
    }
    return false;
}

bool ParseHex(std::string const& text, Bytes& bytes)
{
    if (text.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < text.size(); i += 2) {
        char* end = nullptr;
        std::string const pair = text.substr(i, 2);
        long const value = std::strtol(pair.c_str(), &end, 16);
        if (end == nullptr || *end != '\0')
            return false;
        bytes.push_back(static_cast<unsigned char>(value));
    }
    return true;
}

std::string Hex(unsigned char const* bytes, size_t count)
{
    std::string text;
    char pair[3];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(pair, sizeof(pair), "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

// One instance of a trigger answer.
struct TriggerInstance
{
    std::string name;
    std::vector<ParameterCTValue> values;
};

// Reads "mode:module:pipeline#" and the instances behind it; false when the packet is damaged.
bool ParseTrigger(Bytes const& packet, std::string& request, std::vector<TriggerInstance>& out)
{
    size_t at = Wire::HeadSize;
    while (at < packet.size() && packet[at] != '#')
        ++at;
    if (at >= packet.size())
        return false;
    request.assign(packet.begin() + Wire::HeadSize, packet.begin() + static_cast<long>(at));
    ++at;
    while (at < packet.size()) {
        size_t colon = at;
        while (colon < packet.size() && packet[colon] != ':')
            ++colon;
        if (colon >= packet.size())
            return false;
        TriggerInstance instance;
        instance.name.assign(packet.begin() + static_cast<long>(at),
                             packet.begin() + static_cast<long>(colon));
        at = colon + 1;
        if (at + 2 > packet.size())
            return false;
        unsigned int const count = Wire::GetU16(packet.data() + at);
        at += 2;
        if (at + static_cast<size_t>(count) * 12 > packet.size())
            return false;
        for (unsigned int i = 0; i < count; ++i, at += 12) {
            ParameterCTValue value = {};
            value.identifier = Wire::GetU32(packet.data() + at);
            uint64_t const bits = Wire::GetU64(packet.data() + at + 4);
            double number = 0;
            std::memcpy(&number, &bits, sizeof(number));
            value.value = number;
            instance.values.push_back(value);
        }
        out.push_back(instance);
    }
    return true;
}

// What one command sends, and how its answer is shown.
struct Exchange
{
    uint16_t command = 0;
    Bytes payload;
    size_t textOffset = 0; ///< where the answer's text starts
    char const* label = "";
};

int Usage(char const* problem)
{
    if (problem != nullptr)
        std::fprintf(stderr, "paramctl client: %s\n", problem);
    std::fputs(ClientUsage, stderr);
    return ExitUsage;
}

bool BuildExchange(std::string const& name, std::vector<std::string> const& args,
                   Exchange& exchange, std::string& problem)
{
    auto needs = [&](size_t count) {
        if (args.size() == count)
            return true;
        problem = "'" + name + "' takes " + std::to_string(count) + " argument(s)";
        return false;
    };
    if (name == "info") {
        exchange = {Wire::DeviceInfo, {}, Wire::DeviceInfoHeadSize, "name"};
        return needs(0);
    }
    if (name == "active") {
        exchange = {Wire::ActiveModes, {}, Wire::HeadSize, "active"};
        return needs(0);
    }
    if (name == "control") {
        exchange = {Wire::ControlValues, {}, Wire::HeadSize, "values"};
        return needs(0);
    }
    if (name == "modes" || name == "info-var" || name == "get") {
        if (!needs(1))
            return false;
        uint16_t const command = name == "modes" ? Wire::Modes
                                 : name == "get" ? Wire::GetValues
                                                 : Wire::Info;
        exchange = {command, TextPayload(args[0]), Wire::RequestHeadSize,
                    name == "modes" ? "children"
                    : name == "get" ? "values"
                                    : "members"};
        return true;
    }
    if (name == "set") {
        if (args.size() < 2) {
            problem = "'set' takes MODES:VARIABLE and at least one NAME=VALUE";
            return false;
        }
        std::string text = args[0] + ":";
        for (size_t i = 1; i < args.size(); ++i)
            text += (i > 1 ? ";" : "") + args[i];
        exchange = {Wire::SetValues, TextPayload(text), Wire::RequestHeadSize, "values"};
        return true;
    }
    if (name == "trigger") {
        exchange = {Wire::TriggerValues, {}, Wire::HeadSize, "trigger"};
        if (!needs(1))
            return false;
        exchange.payload = TextPayload(args[0]);
        return true;
    }
    if (name == "custom") {
        exchange = {Wire::Custom, {}, 20, "answer"};
        if (!needs(1))
            return false;
        if (!ParseHex(args[0], exchange.payload) || exchange.payload.empty()) {
            problem = "custom needs an even number of hexadecimal digits";
            return false;
        }
        return true;
    }
    if (name == "index") {
        exchange = {Wire::ModeIndex, {}, Wire::HeadSize, "index"};
        if (!needs(1))
            return false;
        exchange.payload = TextPayload(args[0]);
        return true;
    }
    problem = "unknown command '" + Printable(name) + "'";
    return false;
}

void PrintTrigger(std::string const& request, std::vector<TriggerInstance> const& instances,
                  bool json)
{
    if (!json) {
        std::printf("trigger: %s\n", Printable(request).c_str());
        for (TriggerInstance const& instance : instances) {
            std::printf("  %s:", Printable(instance.name).c_str());
            for (ParameterCTValue const& value : instance.values)
                std::printf(" %u=%g", static_cast<unsigned int>(value.identifier),
                            static_cast<double>(value.value));
            std::printf("\n");
        }
        return;
    }
    Json list = Json::array();
    for (TriggerInstance const& instance : instances) {
        Json values = Json::array();
        for (ParameterCTValue const& value : instance.values) {
            // Copies: the record is packed, its members may not be bound to references.
            uint32_t const identifier = value.identifier;
            double const number = value.value;
            values.push_back({{"id", identifier}, {"value", number}});
        }
        list.push_back({{"name", Printable(instance.name)}, {"values", std::move(values)}});
    }
    PrintJson({{"command", "trigger"}, {"request", Printable(request)}, {"instances", list}});
}

/// The answer's text, or the raw bytes in hexadecimal for a custom command; false when the
/// answer shows that the request did nothing (a read or change that came back empty).
bool PrintAnswer(std::string const& name, Exchange const& exchange, Bytes const& response,
                 bool json)
{
    unsigned short command = 0;
    unsigned long id = 0;
    unsigned int requestId = 0;
    unsigned char const* payload = nullptr;
    unsigned int payloadLength = 0;
    static_cast<void>(ParameterKnobbyWorker::ParseResponse(
        response.data(), static_cast<unsigned int>(response.size()), command, id, requestId,
        payload, payloadLength));
    size_t const offset = std::min(exchange.textOffset, response.size());
    std::string text;
    std::string raw;
    unsigned int result = 0;
    if (exchange.command == Wire::Custom) {
        if (response.size() >= 20)
            result = Wire::GetU16(response.data() + 18);
        unsigned char const* answer = response.data() + offset;
        size_t const count = response.size() - offset;
        if (ParameterKnobbyWorker::IsPrintable(answer, static_cast<unsigned int>(count)))
            text = TextOf(answer, count);
        raw = Hex(answer, count);
    } else {
        text = TextOf(response.data() + offset, response.size() - offset);
    }

    if (json) {
        Json answer = {{"command", name}, {"session", static_cast<uint64_t>(id)}};
        if (exchange.command == Wire::DeviceInfo && response.size() >= 8)
            answer["protocol"] = Wire::GetU16(response.data() + 6);
        if (Wire::HasRequestId(exchange.command))
            answer["request"] = requestId;
        if (exchange.command == Wire::Custom) {
            answer["result"] = result;
            answer["hex"] = raw;
        }
        answer[exchange.label] = Printable(text);
        PrintJson(answer);
    } else {
        if (exchange.command == Wire::DeviceInfo)
            std::printf("session: 0x%016lx\nprotocol: %u\n", id,
                        response.size() >= 8 ? Wire::GetU16(response.data() + 6) : 0u);
        if (exchange.command == Wire::Custom)
            std::printf("result: %u\nhex: %s\n", result, raw.c_str());
        std::printf("%s: %s\n", exchange.label, Printable(text).c_str());
    }
    // A value read, a change or a description that names nothing: the server found nothing
    // for the request.
    bool const needsText = exchange.command == Wire::GetValues ||
                           exchange.command == Wire::SetValues || exchange.command == Wire::Info;
    return !needsText || !text.empty();
}

} // namespace

int RunClient(int argc, char** argv)
{
    CommandLine line({"--json"}, {"--timeout"});
    if (!line.Parse(argc, argv))
        return Usage(line.Error().c_str());
    if (line.Has("--help")) {
        std::fputs(ClientUsage, stdout);
        return ExitSuccess;
    }
    std::vector<std::string> operands = line.Operands();
    if (operands.empty())
        return Usage("a command is needed");
    // A first word that is no command is the server, but only when a command follows it.
    if (!IsCommandName(operands[0]) && operands.size() == 1)
        return Usage(("unknown command '" + Printable(operands[0]) + "'").c_str());
    LiveTarget target;
    if (!IsCommandName(operands[0])) {
        if (!ParseTarget(operands[0], target))
            return Usage(("not a server address (HOST, HOST:PORT or [IPv6]:PORT with a port from "
                          "1 to 65535): " +
                          Printable(operands[0]))
                             .c_str());
        operands.erase(operands.begin());
    }
    std::string const name = operands[0];
    std::vector<std::string> const args(operands.begin() + 1, operands.end());
    Exchange exchange;
    std::string problem;
    if (!BuildExchange(name, args, exchange, problem))
        return Usage(problem.c_str());
    int const timeoutMs = std::atoi(line.Value("--timeout", "5").c_str()) * 1000;
    if (timeoutMs <= 0)
        return Usage("--timeout needs a positive number of seconds");
    bool const json = line.Has("--json");

    LiveConnection connection;
    std::string error;
    if (!connection.Open(target.host, target.port, error)) {
        std::fprintf(stderr, "paramctl client: cannot connect to %s:%s: %s\n", target.host.c_str(),
                     target.port.c_str(), error.c_str());
        return ExitFailure;
    }
    // The server announces its session ID in Device Info; the Modes command checks it.
    uint64_t session = 0;
    if (exchange.command != Wire::DeviceInfo) {
        if (!connection.Send(MakeRequest(Wire::DeviceInfo, 0, 0, {}))) {
            std::fprintf(stderr, "paramctl client: send failed\n");
            return ExitFailure;
        }
        Bytes const hello = connection.Receive(timeoutMs);
        if (hello.size() < Wire::DeviceInfoHeadSize) {
            std::fprintf(stderr, "paramctl client: no answer from %s:%s\n", target.host.c_str(),
                         target.port.c_str());
            return ExitNoAnswer;
        }
        session = Wire::GetU64(hello.data() + Wire::DeviceInfoSessionOffset);
    }

    uint32_t const requestId = 1;
    if (!connection.Send(MakeRequest(exchange.command, session, requestId, exchange.payload))) {
        std::fprintf(stderr, "paramctl client: send failed\n");
        return ExitFailure;
    }

    if (exchange.command == Wire::TriggerValues) {
        // The answer leaves the server in the round after a later packet: keep asking for the
        // control values until it comes.
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (std::chrono::steady_clock::now() < end) {
            // The server counts its processor time before it answers; frequent requests bring
            // that moment closer.
            Bytes const packet = connection.Receive(50);
            if (packet.size() >= Wire::HeadSize &&
                Wire::GetU16(packet.data() + Wire::CommandOffset) == Wire::TriggerValues) {
                std::string request;
                std::vector<TriggerInstance> instances;
                if (!ParseTrigger(packet, request, instances)) {
                    std::fprintf(stderr, "paramctl client: damaged trigger answer\n");
                    return ExitFailure;
                }
                PrintTrigger(request, instances, json);
                return ExitSuccess;
            }
            if (packet.empty() &&
                !connection.Send(MakeRequest(Wire::ControlValues, session, 0, {})))
                break;
        }
        std::fprintf(stderr, "paramctl client: no trigger answer within the time-out\n");
        return ExitNoAnswer;
    }

    Bytes const response = connection.Receive(timeoutMs);
    if (response.size() < Wire::HeadSize) {
        std::fprintf(stderr, "paramctl client: no answer from %s:%s\n", target.host.c_str(),
                     target.port.c_str());
        return ExitNoAnswer;
    }
    if (!PrintAnswer(name, exchange, response, json)) {
        std::fprintf(stderr,
                     "paramctl client: %s %s: the server's answer is empty: no such "
                     "variable, or nothing was changed\n",
                     name.c_str(), args.empty() ? "" : Printable(args[0]).c_str());
        return ExitFailure;
    }
    return ExitSuccess;
}

} // namespace ParamCtl
