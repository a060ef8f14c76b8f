// SPDX-License-Identifier: Apache-2.0
// Header validation of a large file: dominated by the checksum over every byte.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/parameterfileheader.h"

#include "tests/common/formatfiles.h"

namespace {

void BM_ParameterFileHeader_Read(benchmark::State& state)
{
    // A sound version 7 file of 16 MiB, nearly all of it one data section.
    static std::vector<uint8_t> file = ParamTest::PatternFile((16u << 20) - 256);
    auto const length = static_cast<unsigned int>(file.size());
    for (auto _ : state) {
        ParameterFileHeader header;
        if (!ReadFileHeader(file.data(), length, header, nullptr, nullptr)) {
            state.SkipWithError("the header was refused");
            break;
        }
        benchmark::DoNotOptimize(header.sectionOffset);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * length);
}

} // namespace

BENCHMARK(BM_ParameterFileHeader_Read)->Unit(benchmark::kMillisecond);
