// SPDX-License-Identifier: Apache-2.0
// Header validation of a large file: dominated by the checksum over every byte.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/parameterfileheader.h"
#include "tools/writer/tuningfilewriter.h"

namespace {

constexpr size_t FileSize = 16u << 20;

// A sound version 7 file of 16 MiB, most of it one data section.
std::vector<uint8_t>& File()
{
    static std::vector<uint8_t> file = [] {
        TuningWriter::TuningFileWriter writer;
        writer.AddSection(TuningWriter::SectionType::Symbol, std::vector<uint8_t>(8, 0));
        size_t const overhead = writer.Build().size();
        std::vector<uint8_t> data(FileSize - overhead - 12);
        for (size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<uint8_t>(i * 31 + (i >> 9));
        writer.AddSection(TuningWriter::SectionType::Data, std::move(data));
        return writer.Build();
    }();
    return file;
}

void BM_ParameterFileHeader_Read(benchmark::State& state)
{
    std::vector<uint8_t>& file = File();
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
