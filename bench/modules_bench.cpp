// SPDX-License-Identifier: Apache-2.0
// Generated modules: LoadModule of the smallest module and of a gamma trigger tree, and value
// access by path (one number six steps down a loaded tree, a whole structure listed).
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/defaultmodule.h"

#include "paramgen/gamma_1_6_1.h"
#include "paramgen/statsroipriority.h"
#include "paramgen/vornflindices.h"
#include "tests/common/modulefile.h"

namespace {

using TuningWriter::EntryValue;

ParamTest::ModuleSchema const FlIndices{&vornflindices::FLIndicesType::Descriptor,
                                        "vornflindices::FLIndicesType",
                                        "flIndices",
                                        {3, 4, 0}};
ParamTest::ModuleSchema const Gamma{&gamma_1_6_1::varitonal_gamma16Type::Descriptor,
                                    "gamma_1_6_1::varitonal_gamma16Type",
                                    "gamma16_v2",
                                    {1, 6, 1}};

/// One module entry holding value, written with its definitions and read into a symbol table.
class ModuleFile : public ParamTest::ModuleFile
{
public:
    ModuleFile(ParamTest::ModuleSchema const& kind, EntryValue const& value)
        : ParamTest::ModuleFile(kind)
    {
        m_id = AddModule(value);
        m_ok = Build();
    }

    bool Ok() const { return m_ok; }
    ModuleData* Record() { return ParamTest::ModuleFile::Record(m_id); }

private:
    uint32_t m_id = 0;
    bool m_ok = false;
};

EntryValue FlIndicesValue()
{
    std::vector<EntryValue> indices;
    for (unsigned int i = 0; i < 300; ++i)
        indices.push_back(EntryValue::UInt(i * 3));
    return EntryValue::Struct(
        {{"numPoints", EntryValue::UInt(300)}, {"indices", EntryValue::List(indices)}});
}

EntryValue Channel(char const* name, double base)
{
    std::vector<EntryValue> points;
    for (int i = 0; i < 65; ++i)
        points.push_back(EntryValue::Real(base + 16 * i));
    return EntryValue::Struct({{name, EntryValue::List(std::move(points))}});
}

// levels of nodes, fanout children under each inner node and fanout roots; every leaf holds one
// region with all three 65-point channel tables.
EntryValue GammaNodes(unsigned int levels, unsigned int fanout, double start)
{
    std::vector<EntryValue> nodes;
    for (unsigned int i = 0; i < fanout; ++i) {
        double const at = start * 10 + i;
        std::vector<std::pair<std::string, EntryValue>> fields = {
            {"start", EntryValue::Real(at)}, {"end", EntryValue::Real(at + 1)}};
        if (levels > 1) {
            fields.emplace_back("trigger", GammaNodes(levels - 1, fanout, at));
        } else {
            fields.emplace_back("region", EntryValue::List({EntryValue::Struct(
                                              {{"channel_r_tab", Channel("channel_r", at)},
                                               {"channel_g_tab", Channel("channel_g", at + 1)},
                                               {"channel_b_tab", Channel("channel_b", at + 2)}})}));
        }
        nodes.push_back(EntryValue::Struct(std::move(fields)));
    }
    return EntryValue::List(std::move(nodes));
}

EntryValue GammaTreeValue(unsigned int levels, unsigned int fanout)
{
    std::vector<EntryValue> variables;
    for (unsigned int level = 0; level < levels; ++level)
        variables.push_back(EntryValue::UInt(level + 1));
    return EntryValue::Struct(
        {{"control_variables",
          EntryValue::Struct({{"control_var_type", EntryValue::List(std::move(variables))}})},
         {"varitonal_gamma16_core",
          EntryValue::Struct({{"mod_gamma16_trigger_data", GammaNodes(levels, fanout, 1)}})}});
}

/// A module class's factory and one instance created for the file's record.
template <typename Class> class CreatedModule
{
public:
    CreatedModule(ParamTest::ModuleSchema const& kind, ModuleFile& file)
        : m_kind(new Class(kind.instanceName)),
          m_module(m_kind.module->Create(file.Record(), &m_kind))
    {
    }

    ParameterModule* Module() const { return m_module; }

private:
    DefaultModule m_kind;
    ParameterModule* m_module;
};

// probe is a value path that only a complete load answers.
template <typename Class>
void LoadAndUnload(benchmark::State& state, ParamTest::ModuleSchema const& kind,
                   EntryValue const& value, char const* probe)
{
    ModuleFile file(kind, value);
    CreatedModule<Class> created(kind, file);
    ParameterModule* module = created.Module();
    char out[64];
    if (!file.Ok() || module == nullptr || !module->LoadModule(&file.Table()) ||
        (probe != nullptr && !module->GetValue(probe, out, sizeof(out)))) {
        state.SkipWithError("the module could not be made");
        return;
    }
    module->UnloadModule();
    for (auto _ : state) {
        benchmark::DoNotOptimize(module->LoadModule(&file.Table()));
        module->UnloadModule();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(file.DataBytes()));
}

void BM_Module_LoadFlIndices(benchmark::State& state)
{
    LoadAndUnload<vornflindices::FLIndicesTypeClass>(state, FlIndices, FlIndicesValue(), nullptr);
}
BENCHMARK(BM_Module_LoadFlIndices)->Unit(benchmark::kMicrosecond);

// 4 roots, 4 children each, 4 leaves under each child: 84 nodes, 64 leaves with full regions.
void BM_Module_LoadGammaTree3x4(benchmark::State& state)
{
    LoadAndUnload<gamma_1_6_1::varitonal_gamma16TypeClass>(
        state, Gamma, GammaTreeValue(3, 4),
        "varitonal_gamma16_core.mod_gamma16_trigger_data[3].trigger[3].trigger[3].region[0]."
        "channel_b_tab.channel_b[64]");
}
BENCHMARK(BM_Module_LoadGammaTree3x4)->Unit(benchmark::kMicrosecond);

// Six steps into a loaded tree: core, root, child, region, table, point.
void BM_Module_GetValueSixSteps(benchmark::State& state)
{
    ModuleFile file(Gamma, GammaTreeValue(2, 4));
    CreatedModule<gamma_1_6_1::varitonal_gamma16TypeClass> created(Gamma, file);
    ParameterModule* module = created.Module();
    char out[256];
    if (!file.Ok() || module == nullptr || !module->LoadModule(&file.Table()) ||
        !module->GetValue("varitonal_gamma16_core.mod_gamma16_trigger_data[0].trigger[1]."
                          "region[0].channel_r_tab.channel_r[64]",
                          out, sizeof(out))) {
        state.SkipWithError("the tree could not be loaded");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(module->GetValue("varitonal_gamma16_core."
                                                  "mod_gamma16_trigger_data[0].trigger[1]."
                                                  "region[0].channel_r_tab.channel_r[64]",
                                                  out, sizeof(out)));
    }
}
BENCHMARK(BM_Module_GetValueSixSteps);

// A face shrink tuning with values in place; value access does not care where they came from.
statsroipriority::FaceROIShrinkType MakeShrink()
{
    statsroipriority::FaceROIShrinkType shrink{};
    shrink.enable = 1;
    shrink.faceNum = 3;
    shrink.facePoseShrinkFactor.rollShrinkFactor.triggerPt.start = 1.5f;
    for (int i = 0; i < 10; ++i)
        shrink.reservedParameters[i] = 0.5f * static_cast<float>(i);
    return shrink;
}

void BM_Module_GetInfoWholeStructure(benchmark::State& state)
{
    statsroipriority::FaceROIShrinkType shrink = MakeShrink();
    for (auto _ : state) {
        PList<ParameterParserInfo> list;
        benchmark::DoNotOptimize(shrink.GetInfo("", list));
    }
}
BENCHMARK(BM_Module_GetInfoWholeStructure);

void BM_Module_GetValueArray(benchmark::State& state)
{
    statsroipriority::FaceROIShrinkType shrink = MakeShrink();
    char out[512];
    for (auto _ : state)
        benchmark::DoNotOptimize(shrink.GetValue("reservedParameters", out, sizeof(out)));
}
BENCHMARK(BM_Module_GetValueArray);

} // namespace
