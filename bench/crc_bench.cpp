// SPDX-License-Identifier: Apache-2.0
// Checksum throughput: the sliced forms against the byte-at-a-time reference, side by side.
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/parsercrc.h"

namespace {

// One random buffer shared by every run, as large as the largest size measured.
std::vector<unsigned char> const& Data()
{
    static std::vector<unsigned char> const data = [] {
        std::vector<unsigned char> bytes(64u << 20);
        std::mt19937_64 generator(42);
        for (size_t i = 0; i < bytes.size(); i += 8) {
            uint64_t const word = generator();
            for (size_t k = 0; k < 8; ++k)
                bytes[i + k] = static_cast<unsigned char>(word >> (8 * k));
        }
        return bytes;
    }();
    return data;
}

template <typename Checksum> void RunChecksum(benchmark::State& state, Checksum checksum)
{
    unsigned char const* data = Data().data();
    auto const length = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        auto crc = checksum(data, length);
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * length);
}

// Benchmark names follow the BM_<Unit>_<Operation> convention, not the function naming rule.
void BM_ParserCRC64_GetCRC(benchmark::State& state)
{
    RunChecksum(state, [](unsigned char const* data, unsigned int length) {
        return ParserCRC64::GetCRC(data, length, true, 0);
    });
}

void BM_ParserCRC64_GetCRCBytewise(benchmark::State& state)
{
    RunChecksum(state, [](unsigned char const* data, unsigned int length) {
        return ParserCRC64::GetCRCBytewise(data, length, true, 0);
    });
}

void BM_ParserCRC32_GetCRC(benchmark::State& state)
{
    RunChecksum(state, [](unsigned char const* data, unsigned int length) {
        return ParserCRC32::GetCRC(data, length, 0);
    });
}

void BM_ParserCRC32_GetCRCBytewise(benchmark::State& state)
{
    RunChecksum(state, [](unsigned char const* data, unsigned int length) {
        return ParserCRC32::GetCRCBytewise(data, length, 0);
    });
}

} // namespace

BENCHMARK(BM_ParserCRC64_GetCRC)->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(BM_ParserCRC64_GetCRCBytewise)->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(BM_ParserCRC32_GetCRC)->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(BM_ParserCRC32_GetCRCBytewise)->Arg(1 << 20)->Arg(64 << 20);
