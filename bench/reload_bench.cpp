// SPDX-License-Identifier: Apache-2.0
// Reloading a 16 MiB tuning file beside the generation in service, in file mode and in buffer
// mode, the memory that two generations take at once, and the memory one takes per MiB of file.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "platform/vornalloc.h"
#include "platform/vornlog.h"

#include "bench/scenemodesfile.h"

#include "paramgen/vornflindices.h"

namespace {

constexpr size_t FileSize = 16u << 20;
constexpr double MiB = 1024.0 * 1024.0;

// 8 x 8 x 25 x 8 = 12800 Scene modes of about 1.2 KiB of data each, padded to 16 MiB.
constexpr BenchFiles::SceneGrid Grid{8, 8, 25, 8};

// The file on disk for the whole run.
class BenchFile
{
public:
    BenchFile()
    {
        char pattern[] = "/tmp/reloadbench-XXXXXX";
        int const fd = mkstemp(pattern);
        if (fd < 0)
            return;
        close(fd);
        m_path = pattern;
        m_bytes = BenchFiles::BuildSceneModesFile(Grid, FileSize);
        m_size = m_bytes.size();
        FILE* file = std::fopen(m_path.c_str(), "wb");
        if (file == nullptr ||
            std::fwrite(m_bytes.data(), 1, m_bytes.size(), file) != m_bytes.size())
            m_path.clear();
        if (file != nullptr)
            std::fclose(file);
    }
    ~BenchFile()
    {
        if (!m_path.empty())
            unlink(m_path.c_str());
    }
    BenchFile(BenchFile const&) = delete;
    BenchFile& operator=(BenchFile const&) = delete;

    char const* Path() const { return m_path.c_str(); }
    size_t Size() const { return m_size; }
    bool Ok() const { return !m_path.empty(); }
    /// A copy of the file's bytes, for a buffer-mode load (which takes a writable buffer).
    std::vector<uint8_t> Bytes() const { return m_bytes; }

private:
    std::string m_path;
    std::vector<uint8_t> m_bytes;
    size_t m_size = 0;
};

BenchFile const& File()
{
    static BenchFile const file;
    return file;
}

void BM_Reload_FileMode(benchmark::State& state)
{
    BenchFile const& file = File();
    auto manager = std::make_unique<fdSetManager>("bench");
    if (!file.Ok() || !manager->LoadBinaryParameters(file.Path())) {
        state.SkipWithError("the file could not be loaded");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(manager->ReloadBinaryParameters(false));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.Size()));
}
BENCHMARK(BM_Reload_FileMode)->Unit(benchmark::kMillisecond);

// A buffer-mode reload clears the file name, so each one starts from a fresh file-mode load.
void BM_Reload_BufferMode(benchmark::State& state)
{
    BenchFile const& file = File();
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = std::make_unique<fdSetManager>("bench");
        bool const loaded = file.Ok() && manager->LoadBinaryParameters(file.Path());
        state.ResumeTiming();
        if (!loaded) {
            state.SkipWithError("the file could not be loaded");
            break;
        }
        benchmark::DoNotOptimize(manager->ReloadBinaryParameters(true));
        state.PauseTiming();
        manager.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.Size()));
}
BENCHMARK(BM_Reload_BufferMode)->Unit(benchmark::kMillisecond);

// Bytes held through the platform allocator: by one generation after a load, by two after a
// reload (the old one parked beside the new), and at the peak of the reload, which also holds the
// whole file read at once for its checksum. Argument 0 reloads in file mode, 1 in buffer mode.
void BM_Reload_TwoGenerationPeak(benchmark::State& state)
{
    BenchFile const& file = File();
    bool const bufferMode = state.range(0) != 0;
    double one = 0;
    double two = 0;
    double peak = 0;
    for (auto _ : state) {
        size_t const base = Vorn::Testing::AllocatedBytes();
        auto manager = std::make_unique<fdSetManager>("bench");
        if (!file.Ok() || !manager->LoadBinaryParameters(file.Path())) {
            state.SkipWithError("the file could not be loaded");
            break;
        }
        one = static_cast<double>(Vorn::Testing::AllocatedBytes() - base);
        Vorn::Testing::ResetPeakAllocatedBytes();
        benchmark::DoNotOptimize(manager->ReloadBinaryParameters(bufferMode));
        peak = static_cast<double>(Vorn::Testing::PeakAllocatedBytes() - base);
        two = static_cast<double>(Vorn::Testing::AllocatedBytes() - base);
    }
    state.counters["one_generation_MiB"] = one / MiB;
    state.counters["two_generations_MiB"] = two / MiB;
    state.counters["reload_peak_MiB"] = peak / MiB;
    state.counters["file_MiB"] = static_cast<double>(file.Size()) / MiB;
}
BENCHMARK(BM_Reload_TwoGenerationPeak)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// Memory held per MiB of file right after the load and after every one of the 12800 Scene modes
// was asked for once and given back, in file mode (argument 0: modes are read on demand and the
// active list keeps the last 17) and in buffer mode (argument 1: everything is read at load).
void BM_Load_MemoryPerFileMiB(benchmark::State& state)
{
    BenchFile const& file = File();
    bool const bufferMode = state.range(0) != 0;
    double afterLoad = 0;
    double afterVisits = 0;
    for (auto _ : state) {
        std::vector<uint8_t> bytes = bufferMode ? file.Bytes() : std::vector<uint8_t>();
        size_t const base = Vorn::Testing::AllocatedBytes();
        auto manager = std::make_unique<fdSetManager>("bench");
        bool const loaded =
            file.Ok() && (bufferMode ? manager->LoadBinaryParameters(bytes.data(), bytes.size())
                                     : manager->LoadBinaryParameters(file.Path()));
        if (!loaded) {
            state.SkipWithError("the file could not be loaded");
            break;
        }
        afterLoad = static_cast<double>(Vorn::Testing::AllocatedBytes() - base);
        // The modules stand only in Scene modes, so every request warns that the root lacks it.
        Vorn::Log::SetSink([](uint32_t, char, uint32_t, char const*, void*) {}, nullptr);
        vornflindices::FLIndicesType* held = nullptr;
        for (uint16_t u = 0; u < Grid.usecases; ++u)
            for (uint16_t f1 = 0; f1 < Grid.features1; ++f1)
                for (uint16_t f2 = 0; f2 < Grid.features2; ++f2)
                    for (uint16_t scene = 0; scene < Grid.scenes; ++scene) {
                        TuningMode const branch[] = {{ModeDefault, 0, 0},   {ModeSensor, 0, 0},
                                                     {ModeUsecase, u, 0},   {ModeFeature1, f1, 0},
                                                     {ModeFeature2, f2, 0}, {ModeScene, scene, 0}};
                        held = manager->GetModule_flIndices(branch, 6, held);
                    }
        if (held != nullptr)
            held->Release();
        Vorn::Log::SetSink(nullptr, nullptr);
        afterVisits = static_cast<double>(Vorn::Testing::AllocatedBytes() - base);
    }
    auto const fileBytes = static_cast<double>(file.Size());
    state.counters["held_after_load_MiB_per_file_MiB"] = afterLoad / fileBytes;
    state.counters["held_after_every_mode_MiB_per_file_MiB"] = afterVisits / fileBytes;
    state.SetLabel(bufferMode ? "buffer mode" : "file mode");
}
BENCHMARK(BM_Load_MemoryPerFileMiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
