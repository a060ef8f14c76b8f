// SPDX-License-Identifier: Apache-2.0
// Live tuning soak: a server on loopback under valid, malformed, slow and abandoned clients while
// a camera thread keeps asking for modules, for a given time. Prints what was served, the errors,
// the round-trip latency and the process's memory and threads at the start and the end.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/vornlog.h"

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/vornt2tconfig.h"
#include "tests/common/loopbackclient.h"
#include "tests/common/trackerdescription.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr char Preview[] = "Default|Sensor.0|Usecase.Preview";
// Short enough that silent clients cost the others seconds, not the default's ten.
constexpr unsigned int IdleTimeoutSeconds = 2;

void DropLine(uint32_t, char, uint32_t, char const*, void*)
{
}

// VmRSS and Threads of this process, from the kernel's status file.
std::string ProcessFigures()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    std::string rss = "?";
    std::string threads = "?";
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            rss = line.substr(line.find_first_not_of(" \t", 6));
        else if (line.rfind("Threads:", 0) == 0)
            threads = line.substr(line.find_first_not_of(" \t", 8));
    }
    return "RSS " + rss + ", threads " + threads;
}

Bytes MakeRequest(uint16_t command, std::string const& text, uint32_t requestId)
{
    return ParamTest::Request(command, text, requestId);
}

// One loopback connection with bounded waits.
class Client : public ParamTest::LoopbackClient
{
public:
    explicit Client(unsigned short port) : m_connected(Connect(port)) {}

    bool Connected() const { return m_connected; }

    // The next response by its length field; empty when none came by deadline.
    Bytes Receive(Clock::time_point deadline)
    {
        return ReadPacket(std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()));
    }

private:
    bool m_connected;
};

struct Figures
{
    std::atomic<unsigned long> served{0};
    std::atomic<unsigned long> errors{0};
    std::atomic<unsigned long> malformed{0};
    std::atomic<unsigned long> recovered{0};
    std::atomic<unsigned long> slow{0};
    std::atomic<unsigned long> abandoned{0};
    std::atomic<unsigned long> cameraReads{0};
    std::atomic<unsigned long> cameraErrors{0};
    std::mutex latencyMutex;
    std::vector<double> latencies;
};

// Asks one request; true when its answer is the one asked for. Records the round trip.
bool Ask(Client& client, Bytes const& request, Figures& figures)
{
    auto const start = Clock::now();
    Bytes const response =
        client.Send(request) ? client.Receive(start + std::chrono::seconds(30)) : Bytes();
    double const micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    uint16_t const command = Wire::GetU16(request.data() + Wire::CommandOffset);
    bool const good = response.size() >= Wire::HeadSize &&
                      Wire::GetU16(response.data() + Wire::CommandOffset) == command &&
                      (!Wire::HasRequestId(command) ||
                       (response.size() >= Wire::RequestHeadSize &&
                        Wire::GetU32(response.data() + Wire::RequestIdOffset) ==
                            Wire::GetU32(request.data() + Wire::RequestIdOffset)));
    std::lock_guard<std::mutex> lock(figures.latencyMutex);
    figures.latencies.push_back(micros);
    return good;
}

// A tuning tool: a connection, a round of reads and writes, and away.
void ValidClient(unsigned short port, std::atomic<bool> const& stop, Figures& figures)
{
    std::string const module = std::string(Preview) + ":t2tconfigdata";
    uint32_t requestId = 0;
    while (!stop) {
        Client client(port);
        if (!client.Connected()) {
            figures.errors++;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        for (unsigned int i = 0; i < 50 && !stop; ++i) {
            Bytes const requests[] = {
                MakeRequest(Wire::DeviceInfo, "", 0),
                MakeRequest(Wire::GetValues, module + ".confidenceThreshold", ++requestId),
                MakeRequest(Wire::SetValues,
                            module + ":confidenceThreshold=" + std::to_string(70 + i % 20),
                            ++requestId),
                MakeRequest(Wire::Info, module, ++requestId),
                MakeRequest(Wire::Modes, "Default|Sensor.0", ++requestId),
            };
            bool const good = Ask(client, requests[i % 5], figures);
            (good ? figures.served : figures.errors)++;
            if (!good)
                break;
        }
    }
}

// Bytes no server can frame on a connection the server is already reading (a good request was
// answered on it first), then one good request after a pause: the junk is dropped on its own
// and the connection must go on serving. Junk that happens to hold a start tag may swallow the
// good request: such a miss is no server fault, so it is only counted as not recovered.
void MalformedClient(unsigned short port, std::atomic<bool> const& stop, Figures& figures)
{
    uint32_t state = 0x9e3779b9u;
    while (!stop) {
        Client client(port);
        Bytes junk(64);
        for (uint8_t& byte : junk) {
            state = state * 1664525u + 1013904223u;
            byte = static_cast<uint8_t>(state >> 24);
        }
        Bytes head = MakeRequest(Wire::ActiveModes, "", 0);
        Wire::PutU16(head.data() + Wire::LengthOffset, static_cast<uint16_t>(state % 14));
        junk.insert(junk.end(), head.begin(), head.end());
        if (client.Connected() && Ask(client, MakeRequest(Wire::ActiveModes, "", 0), figures) &&
            client.Send(junk)) {
            figures.malformed++;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            if (Ask(client, MakeRequest(Wire::ActiveModes, "", 0), figures))
                figures.recovered++;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
}

// A request sent a byte at a time.
void SlowClient(unsigned short port, std::atomic<bool> const& stop, Figures& figures)
{
    while (!stop) {
        Client client(port);
        Bytes const request =
            MakeRequest(Wire::GetValues, std::string(Preview) + ":t2tconfigdata.operationMode", 1);
        bool sent = client.Connected();
        for (size_t i = 0; i < request.size() && sent && !stop; ++i) {
            sent = client.Send(Bytes{request[i]});
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (sent && !stop && client.Receive(Clock::now() + std::chrono::seconds(30)).size() > 0)
            figures.slow++;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

// Half a request and away, or a connection that never says anything.
void AbandoningClient(unsigned short port, std::atomic<bool> const& stop, Figures& figures)
{
    bool silent = false;
    while (!stop) {
        {
            Client client(port);
            if (!silent) {
                Bytes const request = MakeRequest(Wire::Info, std::string(Preview) + ":x", 1);
                (void)client.Send(Bytes(request.begin(), request.begin() + request.size() / 2));
            } else {
                std::this_thread::sleep_for(std::chrono::seconds(IdleTimeoutSeconds + 1));
            }
            figures.abandoned++;
        }
        silent = !silent;
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

// The camera: takes and releases the tracker module of two branches as fast as it can.
void Camera(TuningSetManager& manager, std::atomic<bool> const& stop, Figures& figures)
{
    TuningMode const preview[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
    TuningMode const video[] = {{0, 0, 0}, {1, 0, 0}, {2, 2, 0}};
    vornt2tconfig::T2TCtrlType* module = nullptr;
    for (unsigned long round = 0; !stop; ++round) {
        module = manager.GetModule_t2tconfigdata(round % 2 == 0 ? preview : video, 3, module);
        (module != nullptr ? figures.cameraReads : figures.cameraErrors)++;
    }
    if (module != nullptr)
        module->Release();
}

double Percentile(std::vector<double>& values, unsigned int percent)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, values.size() * percent / 100)];
}

} // namespace

int main(int argc, char** argv)
{
    int const seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    if (argc > 2 || seconds <= 0) {
        std::fprintf(stderr, "usage: %s [SECONDS]\n", argv[0]);
        return 2;
    }
    Vorn::Log::SetSink(DropLine, nullptr);
    TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
    if (!description.Parse(ParamTest::TrackerDescription)) {
        std::fprintf(stderr, "soak: the tracker description does not parse\n");
        return 1;
    }
    Bytes file = description.MakeWriter().Build();
    TuningSetManager manager("soak");
    manager.SetKnobbyIdleTimeout(IdleTimeoutSeconds);
    if (!manager.SetKnobbyListenAddress("127.0.0.1", 0) ||
        !manager.LoadBinaryParameters(file.data(), file.size()) || manager.GetKnobbyPort() == 0) {
        std::fprintf(stderr, "soak: no live tuning server: %s\n", manager.GetErrorString());
        return 1;
    }
    unsigned short const port = manager.GetKnobbyPort();
    std::printf("soak: %d s on 127.0.0.1:%u, idle time-out %u s\n", seconds, port,
                IdleTimeoutSeconds);
    std::printf("start: %s\n", ProcessFigures().c_str());
    std::fflush(stdout);

    Figures figures;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.emplace_back(Camera, std::ref(manager), std::cref(stop), std::ref(figures));
    threads.emplace_back(ValidClient, port, std::cref(stop), std::ref(figures));
    threads.emplace_back(ValidClient, port, std::cref(stop), std::ref(figures));
    threads.emplace_back(MalformedClient, port, std::cref(stop), std::ref(figures));
    threads.emplace_back(SlowClient, port, std::cref(stop), std::ref(figures));
    threads.emplace_back(AbandoningClient, port, std::cref(stop), std::ref(figures));
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    // Taken once the soak's own client and camera threads are gone and the server has had the
    // idle time-out to release the last connection, so the figures compare with the start.
    std::this_thread::sleep_for(std::chrono::seconds(IdleTimeoutSeconds + 1));
    std::printf("end:   %s\n", ProcessFigures().c_str());

    std::vector<double> latencies;
    {
        std::lock_guard<std::mutex> lock(figures.latencyMutex);
        latencies = figures.latencies;
    }
    double const p50 = Percentile(latencies, 50);
    double const p99 = Percentile(latencies, 99);
    std::printf("requests served %lu, errors %lu; malformed connections %lu (recovered %lu), "
                "slow requests answered %lu, abandoned connections %lu\n",
                figures.served.load(), figures.errors.load(), figures.malformed.load(),
                figures.recovered.load(), figures.slow.load(), figures.abandoned.load());
    std::printf("round trip p50 %.0f us, p99 %.0f us\n", p50, p99);
    std::printf("camera module reads %lu, failed %lu\n", figures.cameraReads.load(),
                figures.cameraErrors.load());
    return figures.errors.load() == 0 && figures.cameraErrors.load() == 0 ? 0 : 1;
}
