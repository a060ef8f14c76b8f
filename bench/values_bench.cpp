// SPDX-License-Identifier: Apache-2.0
// Values by name through a set manager, as live tuning reads them: a whole structure member by
// member, the same members named in a sub-variable list, and, as the baseline, the typed lookup
// that a camera thread uses for the same module.
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/aftofelements.h"

namespace {

// The scene change tuning of time-of-flight focus: seven numbers and two arrays, given at the
// root and read through a branch below it.
constexpr char Description[] = R"(
version 7.0.0
modetable rear
  path Default|Sensor.0|Usecase.Preview
instance varitonalTOF varitonalTOFType mode Default
  value SceneChange.scene_change_distance_std_dev_thres 3
  value SceneChange.far_distance_unstable_cnt_factor 2
  value SceneChange.panning_stable_cnt 4
  value SceneChange.panning_stable_thres 12
  value SceneChange.normal_light_cnt 6
  value SceneChange.lowlight_cnt 9
  value SceneChange.num_monitor_samples 16
  value SceneChange.scene_change_distance_thres 10,20,30,40,50,60,70,80
  value SceneChange.distance_region 100,200,400,800,1600,3200,6400,12800
)";

constexpr char ModePath[] = "0.0|1.0|2.0";
constexpr char Structure[] = "varitonalTOF.SceneChange";
constexpr char Members[] = "scene_change_distance_std_dev_thres,far_distance_unstable_cnt_factor,"
                           "panning_stable_cnt,panning_stable_thres,normal_light_cnt,lowlight_cnt,"
                           "num_monitor_samples,scene_change_distance_thres,distance_region";

/// The file loaded in buffer mode into a tuning manager that keeps the live tuning server off.
class LoadedManager : public TuningSetManager
{
public:
    LoadedManager() : TuningSetManager("bench")
    {
        m_knobbyEnabled = false;
        TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
        if (!description.Parse(Description))
            return;
        m_bytes = description.MakeWriter().Build();
        m_loaded = LoadBinaryParameters(m_bytes.data(), m_bytes.size());
    }

    bool Loaded() const { return m_loaded; }

private:
    std::vector<uint8_t> m_bytes;
    bool m_loaded = false;
};

// A whole structure member by member; with a sub-variable list, the same members named.
void BM_Values_GetValue(benchmark::State& state, char const* subVariables)
{
    LoadedManager manager;
    if (!manager.Loaded()) {
        state.SkipWithError("the description did not load");
        return;
    }
    std::vector<char> result(4096);
    for (auto _ : state) {
        bool const read = manager.GetValue(0, ModePath, Structure, subVariables, result.data(),
                                           static_cast<unsigned int>(result.size()));
        benchmark::DoNotOptimize(read);
        benchmark::DoNotOptimize(result.data());
    }
}
BENCHMARK_CAPTURE(BM_Values_GetValue, Structure, nullptr)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Values_GetValue, SubVariables, Members)->Unit(benchmark::kMicrosecond);

// The typed path a camera thread takes: lookup, reference and release of the same module.
void BM_Values_TypedModule(benchmark::State& state)
{
    LoadedManager manager;
    if (!manager.Loaded()) {
        state.SkipWithError("the description did not load");
        return;
    }
    TuningMode const branch[] = {{ModeDefault, 0, 0}, {ModeSensor, 0, 0}, {ModeUsecase, 0, 0}};
    aftofelements::varitonalTOFType* module = nullptr;
    for (auto _ : state) {
        module = manager.GetModule_varitonalTOF(branch, 3, module);
        benchmark::DoNotOptimize(module->SceneChange.panning_stable_cnt);
    }
    if (module != nullptr)
        module->Release();
}
BENCHMARK(BM_Values_TypedModule)->Unit(benchmark::kMicrosecond);

} // namespace
