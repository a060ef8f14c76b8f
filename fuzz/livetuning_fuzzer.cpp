// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the live tuning request stream, cut into receives at points the input chooses,
// framed by the server's reader and executed by the command worker against a loaded manager. The
// input's first two bytes (u16, little-endian) seed the receive sizes and client drop-outs; the
// rest is the byte stream, any number of packets, whole or not.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

#include "parameterparser/livetuning/parameterknobbycombase.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"

#include "fuzz/fuzzsupport.h"

namespace {

/// The next receive size (1 to 97 bytes) or, about one receive in 29, -1 for a client that went
/// away, from a small generator over state.
int NextCut(uint32_t& state)
{
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state % 29 == 0 ? -1 : static_cast<int>(1 + state % 97);
}

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
        int const cut = NextCut(m_state);
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
    g_manager = FuzzSupport::LoadSample();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (g_manager == nullptr || size < 2 || size > 0x40000)
        return 0;
    uint32_t const seed = static_cast<uint32_t>(data[0] | (data[1] << 8));
    // The reader and its packet buffer are made once; the worker, which keeps the responses it
    // queued, once per input.
    static StreamTransport transport(g_manager);
    static std::vector<unsigned char> packet(ParameterKnobbyComBase::PacketBufferSize);
    transport.Reset(data + 2, size - 2, seed);
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
