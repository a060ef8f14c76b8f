// SPDX-License-Identifier: Apache-2.0
// Live tuning on loopback: request round trip (median and p99) and requests per second.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/vornlog.h"

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "tests/common/loopbackclient.h"
#include "tests/common/trackerdescription.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using Bytes = std::vector<uint8_t>;

// One member, and the whole module through its value list.
constexpr char ScalarRequest[] =
    "Default|Sensor.0|Usecase.Preview:t2tconfigdata.confidenceThreshold";
constexpr char StructureRequest[] = "Default|Sensor.0|Usecase.Preview:t2tconfigdata";

Bytes TrackerFileBytes()
{
    TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
    if (!description.Parse(ParamTest::TrackerDescription))
        return {};
    return description.MakeWriter().Build();
}

Bytes MakeRequest(uint16_t command, char const* text, uint64_t session = 0)
{
    return ParamTest::Request(command, text != nullptr ? text : "", 1, session);
}

void DropLine(uint32_t, char, uint32_t, char const*, void*)
{
}

// A server on a loaded manager and one connected client.
class Session
{
public:
    Session()
    {
        // The figures need no log.
        Vorn::Log::SetSink(DropLine, nullptr);
        m_file = TrackerFileBytes();
        // Loopback only: the figures need no other interface.
        m_ready = m_manager.SetKnobbyListenAddress("127.0.0.1", 0) && !m_file.empty() &&
                  m_manager.LoadBinaryParameters(m_file.data(), m_file.size()) &&
                  m_manager.GetKnobbyPort() != 0 && m_client.Connect(m_manager.GetKnobbyPort());
        // The session ID that the Modes command checks comes with Device Info.
        m_ready = m_ready && Send(MakeRequest(Wire::DeviceInfo, nullptr)) && Receive() &&
                  m_response.size() >= Wire::DeviceInfoHeadSize;
        if (m_ready)
            m_session = Wire::GetU64(m_response.data() + Wire::DeviceInfoSessionOffset);
    }
    ~Session() { Vorn::Log::SetSink(nullptr, nullptr); }

    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;

    bool Ready() const { return m_ready; }
    uint64_t SessionId() const { return m_session; }
    bool Send(Bytes const& packet) { return m_client.Send(packet); }

    /// True when request is answered with a text: a value read that finds nothing answers
    /// with the 18-byte head and an empty text, which would make the figures meaningless.
    bool AnswersWithText(Bytes const& request)
    {
        return Send(request) && Receive() && m_response.size() > Wire::RequestHeadSize + 1;
    }

    /// Reads one response by its length field.
    bool Receive()
    {
        m_response = m_client.ReadPacket();
        return !m_response.empty();
    }

private:
    Bytes m_file;
    TuningSetManager m_manager{"bench"};
    ParamTest::LoopbackClient m_client;
    bool m_ready = false;
    uint64_t m_session = 0;
    Bytes m_response;
};

// One request, one response: what a tuning tool waits for on each click.
void BM_LiveTuning_RoundTrip(benchmark::State& state, uint16_t command, char const* text)
{
    Session session;
    if (!session.Ready()) {
        state.SkipWithError("no live tuning server");
        return;
    }
    Bytes const request = MakeRequest(command, text, session.SessionId());
    if (command == Wire::GetValues && !session.AnswersWithText(request)) {
        state.SkipWithError("the value is not in the file");
        return;
    }
    std::vector<double> latencies;
    for (auto _ : state) {
        auto const start = std::chrono::steady_clock::now();
        if (!session.Send(request) || !session.Receive()) {
            state.SkipWithError("request failed");
            return;
        }
        latencies.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] =
        latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)];
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(BM_LiveTuning_RoundTrip, ActiveModes, Wire::ActiveModes, nullptr)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(BM_LiveTuning_RoundTrip, Modes, Wire::Modes, "Default|Sensor.0")
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(BM_LiveTuning_RoundTrip, GetValuesScalar, Wire::GetValues, ScalarRequest)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(BM_LiveTuning_RoundTrip, GetValuesStructure, Wire::GetValues, StructureRequest)
    ->UseRealTime()
    ->MinTime(2.0);

// Requests sent back to back in batches of 32: the service's throughput.
void BM_LiveTuning_Pipelined(benchmark::State& state, uint16_t command, char const* text)
{
    Session session;
    if (!session.Ready()) {
        state.SkipWithError("no live tuning server");
        return;
    }
    constexpr int Batch = 32;
    Bytes batch;
    Bytes const request = MakeRequest(command, text, session.SessionId());
    if (command == Wire::GetValues && !session.AnswersWithText(request)) {
        state.SkipWithError("the value is not in the file");
        return;
    }
    for (int i = 0; i < Batch; ++i)
        batch.insert(batch.end(), request.begin(), request.end());
    for (auto _ : state) {
        if (!session.Send(batch)) {
            state.SkipWithError("send failed");
            return;
        }
        for (int i = 0; i < Batch; ++i) {
            if (!session.Receive()) {
                state.SkipWithError("receive failed");
                return;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * Batch);
}
BENCHMARK_CAPTURE(BM_LiveTuning_Pipelined, ActiveModes, Wire::ActiveModes, nullptr)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(BM_LiveTuning_Pipelined, GetValuesScalar, Wire::GetValues, ScalarRequest)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK_CAPTURE(BM_LiveTuning_Pipelined, GetValuesStructure, Wire::GetValues, StructureRequest)
    ->UseRealTime()
    ->MinTime(2.0);

} // namespace
