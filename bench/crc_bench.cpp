// SPDX-License-Identifier: Apache-2.0
// Checksum throughput: every form against the byte-at-a-time reference, side by side.
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

char const* FormName(ParserCRCForm form)
{
    switch (form) {
    case ParserCRCForm::Bytewise:
        return "bytewise";
    case ParserCRCForm::Sliced:
        return "sliced";
    case ParserCRCForm::Clmul:
        return "clmul128";
    case ParserCRCForm::Clmul512:
        return "clmul512";
    }
    return "?";
}

// Runs checksum over the first range(1) bytes with the form range(0); a form this processor
// lacks is reported as skipped rather than measured as the sliced fallback.
template <typename Checksum> void RunChecksum(benchmark::State& state, Checksum checksum)
{
    auto const form = static_cast<ParserCRCForm>(state.range(0));
    if (!ParserCRCFormAvailable(form)) {
        state.SkipWithError("form not available on this processor");
        return;
    }
    state.SetLabel(FormName(form));
    unsigned char const* data = Data().data();
    auto const length = static_cast<unsigned int>(state.range(1));
    for (auto _ : state) {
        auto crc = checksum(form, data, length);
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * length);
}

// Benchmark names follow the BM_<Unit>_<Operation> convention, not the function naming rule.
void BM_ParserCRC64_GetCRCWith(benchmark::State& state)
{
    RunChecksum(state, [](ParserCRCForm form, unsigned char const* data, unsigned int length) {
        return ParserCRC64::GetCRCWith(form, data, length, true, 0);
    });
}

void BM_ParserCRC32_GetCRCWith(benchmark::State& state)
{
    RunChecksum(state, [](ParserCRCForm form, unsigned char const* data, unsigned int length) {
        return ParserCRC32::GetCRCWith(form, data, length, 0);
    });
}

// Every form on the same buffer, 1 MiB and 64 MiB, so the ratios come from one run.
void AllForms(benchmark::internal::Benchmark* benchmark)
{
    for (ParserCRCForm form : {ParserCRCForm::Bytewise, ParserCRCForm::Sliced, ParserCRCForm::Clmul,
                               ParserCRCForm::Clmul512}) {
        for (int64_t size : {int64_t{1} << 20, int64_t{64} << 20})
            benchmark->Args({static_cast<int64_t>(form), size});
    }
}

} // namespace

BENCHMARK(BM_ParserCRC64_GetCRCWith)->Apply(AllForms);
BENCHMARK(BM_ParserCRC32_GetCRCWith)->Apply(AllForms);
