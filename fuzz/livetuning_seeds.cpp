// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the live tuning fuzz target: request streams made with the packet
// writer, one per command family, one with heads that can never complete, each under two splits.
#include <string>
#include <vector>

#include "parameterparser/livetuning/parameterknobbypacket.h"

#include "fuzz/livetuninginput.h"
#include "fuzz/seedwriter.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using Bytes = std::vector<unsigned char>;

// Appends one request with text as its payload, terminated as a client sends it.
void Add(Bytes& stream, uint16_t command, std::string const& text = "", uint32_t requestId = 1)
{
    Bytes packet(Wire::RequestHeadSize + text.size() + 1);
    unsigned int const length = Wire::WriteRequest(
        packet.data(), static_cast<unsigned int>(packet.size()), command, 0, requestId,
        text.c_str(), text.empty() ? 0 : static_cast<unsigned int>(text.size() + 1));
    stream.insert(stream.end(), packet.begin(), packet.begin() + length);
}

std::string Ask(std::string const& variable)
{
    return std::string(LiveTuningFuzz::PreviewModes) + ":" + variable;
}

Bytes Browse()
{
    Bytes stream;
    Add(stream, Wire::DeviceInfo);
    Add(stream, Wire::ActiveModes);
    Add(stream, Wire::ControlValues);
    Add(stream, Wire::Modes, "Default");
    Add(stream, Wire::Modes, "Default|Sensor.0");
    Add(stream, Wire::ModeIndex, "0");
    return stream;
}

Bytes Values()
{
    Bytes stream;
    Add(stream, Wire::Info, Ask("t2tconfigdata"), 2);
    Add(stream, Wire::Info, Ask("t2tconfigdata.module_version"), 3);
    Add(stream, Wire::GetValues, Ask("t2tconfigdata"), 4);
    Add(stream, Wire::GetValues, Ask("t2tconfigdata:confidenceThreshold,downscaleRatio"), 5);
    Add(stream, Wire::GetValues, Ask("t2tconfigdata.operationMode"), 6);
    Add(stream, Wire::SetValues, Ask("t2tconfigdata:confidenceThreshold=90;downscaleRatio=0.125"),
        7);
    Add(stream, Wire::SetValues, Ask("t2tconfigdata:nothing=1;operationMode="), 8);
    return stream;
}

Bytes HostCalls()
{
    Bytes stream;
    Add(stream, Wire::TriggerValues,
        std::string(LiveTuningFuzz::PreviewModes) + ":t2tconfigdata:ipe");
    Add(stream, Wire::Custom, "ping", 9);
    Add(stream, Wire::ModeIndex, "1");
    Add(stream, Wire::ModeIndex, "-1");
    return stream;
}

// Heads the reader must throw away, each followed by a good request.
Bytes BadHeads()
{
    Bytes stream;
    for (uint16_t length : {0, 5, 65535}) {
        Bytes head(Wire::HeadSize);
        Wire::WriteRequest(head.data(), Wire::HeadSize, Wire::ActiveModes, 0, 0, nullptr, 0);
        Wire::PutU16(head.data() + Wire::LengthOffset, length);
        stream.insert(stream.end(), head.begin(), head.end());
        Add(stream, Wire::ActiveModes);
    }
    Bytes beyond(Wire::HeadSize);
    Wire::WriteRequest(beyond.data(), Wire::HeadSize, Wire::ActiveModes, 0, 0, nullptr, 0);
    Wire::PutU16(beyond.data() + Wire::CommandOffset, 10);
    stream.insert(stream.end(), beyond.begin(), beyond.end());
    Add(stream, Wire::GetValues, Ask("t2tconfigdata.precisionMode"), 10);
    return stream;
}

bool WriteAll(std::string const& folder)
{
    struct Seed
    {
        char const* name;
        Bytes stream;
    } const seeds[] = {{"browse", Browse()},
                       {"values", Values()},
                       {"host", HostCalls()},
                       {"badheads", BadHeads()}};
    for (Seed const& seed : seeds) {
        for (uint16_t split : {1, 4242}) {
            // The split seed frames the stream.
            Bytes framed = {static_cast<unsigned char>(split),
                            static_cast<unsigned char>(split >> 8)};
            framed.insert(framed.end(), seed.stream.begin(), seed.stream.end());
            std::string const name =
                std::string("seed-") + seed.name + "-" + std::to_string(split) + ".bin";
            if (!FuzzSeeds::Write(folder, name, framed))
                return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    return FuzzSeeds::Main(argc, argv, WriteAll);
}
