// SPDX-License-Identifier: Apache-2.0
// Module lookup: a repeated request of a loaded branch and the allocations it makes, the first
// request of a mode in file mode, the open of a file by the size of its tree, and the memory that
// file mode holds after many modes were visited.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametersetmanager.h"

#include "paramgen/versionsA_1_0_0.h"
#include "paramgen/versionsB_1_0_0.h"
#include "tests/parameterparser/lookupfixture.h"

// Every allocation through the global operator new in this program is counted, so a benchmark
// can show that a path allocates nothing; the platform allocator counts its own.
namespace {
std::atomic<size_t> g_newCount{0};
} // namespace

void* operator new(std::size_t size)
{
    g_newCount.fetch_add(1, std::memory_order_relaxed);
    if (void* block = std::malloc(size != 0 ? size : 1))
        return block;
    throw std::bad_alloc();
}

// The replaced operator new takes its blocks from malloc, so free is the matching release; the
// compiler cannot see that pairing once the two are inlined apart.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace {

using ParamTest::Branch;
using ParamTest::LookupFile;

// A manager that knows the two module kinds the files below use, with the shipped managers'
// limit of 17 active modes.
class BenchSetManager : public ParameterSetManager
{
public:
    explicit BenchSetManager(bool fileMode) : ParameterSetManager(nullptr, 0, "bench", false)
    {
        m_fileModeAllowed = fileMode;
        m_maxActiveModes = 17;
        Register(new versionsA_1_0_0::varitonal_versionsA10TypeClass("versionsA_sw"));
        Register(new versionsB_1_0_0::varitonal_versionsB10TypeClass("versionsB_sw"));
    }
    ~BenchSetManager() override
    {
        for (auto& entry : m_defaultModules)
            delete entry.second;
        m_defaultModules.clear();
    }

    BenchSetManager(BenchSetManager const&) = delete;
    BenchSetManager& operator=(BenchSetManager const&) = delete;

    DefaultModule* GetDefaultModule(unsigned long nameHash) override
    {
        auto found = m_defaultModules.find(nameHash);
        return found != m_defaultModules.end() ? found->second : nullptr;
    }
    void SaveAndClearModules() override {}

private:
    void Register(ParameterModule* factory)
    {
        m_defaultModules[factory->moduleNameHash] = new DefaultModule(factory);
    }
};

constexpr unsigned int RowCount = 100;

// Default|Sensor.0|Usecase.Preview|Feature1.k for k below RowCount, every node holding A and the
// root B, so a 4-step request finds A in each node it passes.
std::vector<uint8_t> BranchFile()
{
    LookupFile file;
    uint32_t const root = file.Path("Default");
    uint32_t const sensor = file.Path("Default|Sensor.0");
    uint32_t const preview = file.Path("Default|Sensor.0|Usecase.Preview");
    file.AddModule('A', root, "root");
    file.AddModule('B', root, "rootB");
    file.AddModule('A', sensor, "sensor");
    file.AddModule('A', preview, "preview");
    for (unsigned int k = 0; k < RowCount; ++k) {
        uint32_t const row = file.Table().AddChild(preview, ModeFeature1, static_cast<uint16_t>(k));
        file.AddModule('A', row, "row" + std::to_string(k));
    }
    return file.Build();
}

// A file of `modes` modes, each holding its own A: Default alone, or Default, Sensor.0 and Usecase
// modes below it. Default and Sensor modes are read at open in either working mode; the Usecase
// modes are what a file-mode open must only index.
std::vector<uint8_t> ModeCountFile(unsigned int modes)
{
    LookupFile file;
    uint32_t const root = file.Path("Default");
    file.AddModule('A', root, "root");
    if (modes > 1) {
        uint32_t const sensor = file.Path("Default|Sensor.0");
        file.AddModule('A', sensor, "sensor");
        for (unsigned int k = 2; k < modes; ++k) {
            uint32_t const usecase =
                file.Table().AddChild(sensor, ModeUsecase, static_cast<uint16_t>(k - 2));
            file.AddModule('A', usecase, "usecase" + std::to_string(k));
        }
    }
    return file.Build();
}

size_t Allocations()
{
    return g_newCount.load(std::memory_order_relaxed) + Vorn::Testing::AllocationCount();
}

std::vector<TuningMode> Row(unsigned int k)
{
    return Branch({{ModeSensor, 0}, {ModeUsecase, 0}, {ModeFeature1, static_cast<uint16_t>(k)}});
}

// The file written to the temporary folder for the life of the object.
class BenchFile
{
public:
    explicit BenchFile(std::vector<uint8_t> const& bytes = BranchFile())
        : m_path("/tmp/lookup_bench_" + std::to_string(getpid()) + "_" + std::to_string(s_next++) +
                 ".bin"),
          m_size(bytes.size())
    {
        std::ofstream out(m_path, std::ios::binary);
        out.write(reinterpret_cast<char const*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    ~BenchFile() { std::remove(m_path.c_str()); }

    BenchFile(BenchFile const&) = delete;
    BenchFile& operator=(BenchFile const&) = delete;

    char const* Path() const { return m_path.c_str(); }
    size_t Size() const { return m_size; }

private:
    static inline unsigned int s_next = 0;
    std::string m_path;
    size_t m_size;
};

// The file on disk and a manager that loaded it, in either working mode.
struct LoadedFile
{
    BenchFile onDisk;
    BenchSetManager manager;
    bool loaded;

    explicit LoadedFile(bool fileMode)
        : manager(fileMode), loaded(manager.LoadBinaryParameters(onDisk.Path()))
    {
    }

    ParameterModule* Get(std::vector<TuningMode> const& branch, ParameterModule* previous)
    {
        return manager.GetModuleInternal(0, "versionsA_sw", branch.data(),
                                         static_cast<unsigned int>(branch.size()), previous, true);
    }
};

// A repeated request of a loaded 4-step branch, the previous pointer given back each time: the
// cost a client pays per frame. Buffer mode, which only searches, is the baseline.
void BM_ParameterSetManager_GetModuleLoadedBranch(benchmark::State& state)
{
    LoadedFile file(state.range(0) != 0);
    std::vector<TuningMode> const branch = Row(7);
    ParameterModule* held = file.loaded ? file.Get(branch, nullptr) : nullptr;
    if (held == nullptr) {
        state.SkipWithError("the branch's module did not load");
        return;
    }
    size_t const allocationsBefore = Allocations();
    for (auto _ : state) {
        held = file.Get(branch, held);
        benchmark::DoNotOptimize(held);
    }
    state.counters["allocations_per_request"] = benchmark::Counter(
        static_cast<double>(Allocations() - allocationsBefore), benchmark::Counter::kAvgIterations);
    if (held != nullptr)
        held->Release();
    state.SetLabel(state.range(0) != 0 ? "file mode" : "buffer mode");
}
BENCHMARK(BM_ParameterSetManager_GetModuleLoadedBranch)->Arg(1)->Arg(0);

// The first request of a mode in file mode: the mode is unloaded (untimed) and then asked for,
// which opens the file, reads the node's module and closes the file again.
void BM_ParameterSetManager_GetModuleFirstRequest(benchmark::State& state)
{
    LoadedFile file(true);
    std::vector<TuningMode> const branch = Row(3);
    ParameterModule* first = file.loaded ? file.Get(branch, nullptr) : nullptr;
    if (first == nullptr) {
        state.SkipWithError("the branch's module did not load");
        return;
    }
    first->Release();
    for (auto _ : state) {
        state.PauseTiming();
        static_cast<void>(
            file.manager.UnloadMode(0, branch.data(), static_cast<unsigned int>(branch.size())));
        state.ResumeTiming();
        ParameterModule* module = file.Get(branch, nullptr);
        benchmark::DoNotOptimize(module);
        if (module != nullptr)
            module->Release();
    }
}
BENCHMARK(BM_ParameterSetManager_GetModuleFirstRequest)->Unit(benchmark::kMicrosecond);

// Opening a file in file mode (header, checksum, tables; no module read), with one mode and with
// 64 in files of the same size: the open must not grow with the tree.
void BM_ParameterSetManager_OpenByModeCount(benchmark::State& state)
{
    BenchFile const onDisk(ModeCountFile(static_cast<unsigned int>(state.range(0))));
    for (auto _ : state) {
        BenchSetManager manager(true);
        if (!manager.LoadBinaryParameters(onDisk.Path())) {
            state.SkipWithError("the file did not load");
            break;
        }
    }
    state.counters["file_bytes"] = static_cast<double>(onDisk.Size());
}
BENCHMARK(BM_ParameterSetManager_OpenByModeCount)->Arg(1)->Arg(64)->Unit(benchmark::kMicrosecond);

// Bytes held through the platform allocator after 100 modes were each asked for once and given
// back: file mode keeps at most 17 of them; buffer mode, which read all at load, is the
// comparison.
void BM_ParameterSetManager_MemoryAfterVisits(benchmark::State& state)
{
    bool const fileMode = state.range(0) != 0;
    for (auto _ : state) {
        size_t const before = Vorn::Testing::AllocatedBytes();
        LoadedFile file(fileMode);
        if (!file.loaded) {
            state.SkipWithError("the file did not load");
            return;
        }
        size_t const afterLoad = Vorn::Testing::AllocatedBytes() - before;
        for (unsigned int k = 0; k < RowCount; ++k) {
            ParameterModule* module = file.Get(Row(k), nullptr);
            if (module != nullptr)
                module->Release();
        }
        size_t const afterVisits = Vorn::Testing::AllocatedBytes() - before;
        state.counters["bytes_after_load"] = static_cast<double>(afterLoad);
        state.counters["bytes_after_100_modes"] = static_cast<double>(afterVisits);
    }
    state.SetLabel(fileMode ? "file mode" : "buffer mode");
}
BENCHMARK(BM_ParameterSetManager_MemoryAfterVisits)->Arg(1)->Arg(0)->Iterations(1);

} // namespace
