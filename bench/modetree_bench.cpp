// SPDX-License-Identifier: Apache-2.0
// Mode lookup by path: parsing a six-step mode path and walking the tree it names.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametersetmanager.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace {

// A manager with no module kinds: the lookup needs only the mode tables.
class BenchSetManager : public ParameterSetManager
{
public:
    BenchSetManager() : ParameterSetManager(nullptr, 0, "bench", false) {}
    DefaultModule* GetDefaultModule(unsigned long) override { return nullptr; }
    void SaveAndClearModules() override {}
};

// A tree of realistic width: two sensors, each with every use case, each use case with a few
// features, and one branch six steps deep.
std::vector<uint8_t> TreeFile()
{
    TuningWriter::ModeSectionBuilder table(0, "rear");
    for (char const* sensor : {"Sensor.0", "Sensor.1"}) {
        for (char const* usecase : {"Preview", "Snapshot", "Video", "ZSL", "IDEALRAW"}) {
            std::string const base = std::string("Default|") + sensor + "|Usecase." + usecase;
            table.AddPath(base);
            table.AddPath(base + "|Feature1.ISPHDR");
            table.AddPath(base + "|Feature1.ADRC|Feature2.HDR10|Scene.Night");
            table.AddPath(base + "|Feature1.ADRC|Feature2.OISCapture");
        }
    }
    TuningWriter::TuningFileWriter writer;
    writer.AddRawSectionRecord(0, 0, 0).AddRawSectionRecord(1, 0, 0);
    table.AddTo(writer);
    return writer.Build();
}

void BM_ParameterSetManager_GetModeEntryByPath(benchmark::State& state)
{
    std::vector<uint8_t> file = TreeFile();
    BenchSetManager manager;
    if (!manager.LoadBinaryParameters(file.data(), file.size())) {
        state.SkipWithError("the tree file did not load");
        return;
    }
    char const* const path = "0.0|1.1|2.2|3.2|4.3|5.5";
    if (manager.GetModeEntry(0, path) == nullptr) {
        state.SkipWithError("the branch is not in the tree");
        return;
    }
    for (auto _ : state) {
        ModeEntry* node = manager.GetModeEntry(0, path);
        benchmark::DoNotOptimize(node);
    }
}
BENCHMARK(BM_ParameterSetManager_GetModeEntryByPath);

} // namespace
