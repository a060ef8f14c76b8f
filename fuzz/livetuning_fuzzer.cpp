// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the live tuning request stream, cut into receives at points the input chooses,
// framed by the server's reader and executed by the command worker against a loaded manager.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "parameterparser/livetuning/parameterknobbycombase.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "tools/writer/tuningdescription.h"

#include "fuzz/fuzzsupport.h"
#include "fuzz/livetuninginput.h"
#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "tests/common/trackerdescription.h"

namespace {

// A transport with no socket: each read hands out the next piece of the input, of the size the
// split seed says, or reports the client gone; at the input's end it raises the stop flag.
class StreamTransport final : public ParameterKnobbyComBase
{
public:
    explicit StreamTransport(IParameterLoggingAPI* logger) : ParameterKnobbyComBase(logger, true) {}

    /// The next input: a new client's stream, with nothing of the last one left buffered.
    void Reset(uint8_t const* data, size_t size, uint32_t seed)
    {
        BeginConnection();
        m_data = data;
        m_size = size;
        m_position = 0;
        m_state = seed | 1u;
        m_stop = false;
    }

    unsigned short StartCom() override { return 0; }
    void StopCom() override {}
    int WriteData(unsigned char const*, unsigned int length) override
    {
        return static_cast<int>(length);
    }

    int ReadData(unsigned char* buffer, unsigned int length, int, std::atomic<bool> const&) override
    {
        if (m_position >= m_size) {
            m_stop = true;
            return 0;
        }
        int const cut = LiveTuningFuzz::NextCut(m_state);
        if (cut < 0) {
            // The next bytes come from a client that connected after this one went.
            BeginConnection();
            return -1;
        }
        size_t const count =
            std::min({static_cast<size_t>(cut), static_cast<size_t>(length), m_size - m_position});
        std::memcpy(buffer, m_data + m_position, count);
        m_position += count;
        return static_cast<int>(count);
    }

    std::atomic<bool> m_stop{false};

private:
    uint8_t const* m_data = nullptr;
    size_t m_size = 0;
    size_t m_position = 0;
    uint32_t m_state = 1;
};

// The tracker's tuning with live tuning switched off: the target drives a worker of its own, and
// no socket is opened.
class QuietTuningSetManager final : public TuningSetManager
{
public:
    QuietTuningSetManager() : TuningSetManager("fuzz") { m_knobbyEnabled = false; }
};

// Loaded once; values that inputs set stay for later ones, as in a long tuning session.
TuningSetManager* g_manager = nullptr;

} // namespace

// Every command takes packet-sized work buffers. With the default quarantine each freed one is
// held back for long, so every new one lands on fresh pages, which costs more than the command.
extern "C" char const* __asan_default_options()
{
    return "quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
    static std::vector<uint8_t> file = description.Parse(ParamTest::TrackerDescription)
                                           ? description.MakeWriter().Build()
                                           : std::vector<uint8_t>();
    g_manager = new QuietTuningSetManager();
    if (!g_manager->LoadBinaryParameters(file.data(), file.size())) {
        // Without a loaded store every command would end in its first lookup.
        std::fprintf(stderr, "livetuning_fuzzer: the served tuning file does not load\n");
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (g_manager == nullptr || size < LiveTuningFuzz::FrameSize || size > 0x40000)
        return 0;
    uint32_t const seed = static_cast<uint32_t>(data[0] | (data[1] << 8));
    // The reader and its packet buffer are made once; the worker, which keeps the responses it
    // queued, once per input.
    static StreamTransport transport(g_manager);
    static std::vector<unsigned char> packet(ParameterKnobbyComBase::PacketBufferSize);
    transport.Reset(data + LiveTuningFuzz::FrameSize, size - LiveTuningFuzz::FrameSize, seed);
    ParameterKnobbyWorker worker(g_manager);
    worker.SetControlValue({2, -0.25});
    worker.SetControlValue({1, 1.5});
    for (;;) {
        unsigned int const length = transport.ReceiveKnobbyRequest(
            packet.data(), ParameterKnobbyComBase::PacketBufferSize - 1,
            ParameterKnobbyComBase::MaxRequestID, -1, transport.m_stop);
        if (length == 0)
            break;
        worker.Execute(packet.data(), length);
    }
    return 0;
}
