// SPDX-License-Identifier: Apache-2.0
// Generated modules: LoadModule of the smallest module, and value access by path on the face
// shrink tuning (one number several steps down, a whole structure listed).
#include <cstdint>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"

#include "paramgen/statsroipriority.h"
#include "paramgen/vornflindices.h"
#include "paramgen/vornflindices.writer.h"

namespace {

using TuningWriter::EntryValue;

char const* const InstanceName = "flIndices";

// flIndices written by the writer from its generated description and read into a symbol table
// of its own, with its definitions.
class FlIndicesFile
{
public:
    FlIndicesFile()
    {
        TuningWriter::FileVersion const version{};
        TuningWriter::SchemaSet schema;
        ParamSchema::vornflindices::Describe(schema);
        TuningWriter::SymbolTableBuilder symbols(version);
        TuningWriter::EntryEncoder encoder(version, schema.Structures(), symbols);
        std::vector<EntryValue> indices;
        for (unsigned int i = 0; i < 300; ++i)
            indices.push_back(EntryValue::UInt(i * 3));
        EntryValue const value = EntryValue::Struct(
            {{"numPoints", EntryValue::UInt(300)}, {"indices", EntryValue::List(indices)}});
        TuningWriter::ModuleEntry module;
        module.name = InstanceName;
        module.moduleVersion = {3, 4, 0};
        module.modeId = TuningWriter::NoModuleModeId;
        module.data = encoder.Encode(schema.Id("vornflindices::FLIndicesType"), &value);
        uint32_t const id = symbols.AddModule(module);

        TuningWriter::DefinitionTableBuilder builder;
        builder.AddModule(schema.Module(InstanceName, "vornflindices::FLIndicesType"));
        schema.AddTo(builder);
        std::vector<uint8_t> const definitions = builder.Build(1);
        TuningWriter::SymbolTableBuilder::Sections const sections = symbols.Build();
        auto const definitionSection = Append(definitions);
        auto const symbolSection = Append(sections.symbol);
        auto const dataTableSection = Append(sections.dataTable);
        auto const dataSection = Append(sections.data);
        m_table = std::make_unique<ParameterFileSymbolTable>(nullptr, 1, VersionUnion(7, 0, 0));
        auto const length = static_cast<unsigned int>(m_buffer.size());
        m_ok = m_table->Load(m_buffer.data(), length, nullptr, nullptr, length, symbolSection,
                             dataTableSection, dataSection, definitionSection, nullptr, true);
        m_record =
            std::make_unique<ModuleData>(ParserCRC64::HashName(InstanceName), id, 0,
                                         VersionUnion(3, 4, 0), 0, nullptr, nullptr, m_table.get());
    }

    bool Ok() const { return m_ok; }
    ParameterFileSymbolTable* Table() { return m_table.get(); }
    ModuleData* Record() { return m_record.get(); }

private:
    ParameterFileSymbolTable::SectionInfo Append(std::vector<uint8_t> const& bytes)
    {
        ParameterFileSymbolTable::SectionInfo section{};
        section.Offset = static_cast<uint32_t>(m_buffer.size());
        section.Size = static_cast<uint32_t>(bytes.size());
        m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
        return section;
    }

    std::vector<uint8_t> m_buffer;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    std::unique_ptr<ModuleData> m_record;
    bool m_ok = false;
};

void BM_Module_LoadFlIndices(benchmark::State& state)
{
    FlIndicesFile file;
    DefaultModule kind(new vornflindices::FLIndicesTypeClass(InstanceName));
    ParameterModule* module = kind.module->Create(file.Record(), &kind);
    if (!file.Ok() || module == nullptr) {
        state.SkipWithError("the module could not be made");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(module->LoadModule(file.Table()));
        module->UnloadModule();
    }
}
BENCHMARK(BM_Module_LoadFlIndices)->Unit(benchmark::kMicrosecond);

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

void BM_Module_GetValueDeepScalar(benchmark::State& state)
{
    statsroipriority::FaceROIShrinkType shrink = MakeShrink();
    char out[256];
    for (auto _ : state) {
        benchmark::DoNotOptimize(shrink.GetValue(
            "facePoseShrinkFactor.rollShrinkFactor.triggerPt.start", out, sizeof(out)));
    }
}
BENCHMARK(BM_Module_GetValueDeepScalar);

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
