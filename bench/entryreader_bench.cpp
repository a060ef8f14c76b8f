// SPDX-License-Identifier: Apache-2.0
// Entry reads: a 300-element integer array read from an entry, checked against the file's
// definitions and without them, side by side.
#include <cstdint>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"

#include "tests/common/formatfiles.h"

namespace {

constexpr unsigned int ArrayLength = 300;
constexpr uint32_t StructureId = 1;
char const* const ModuleName = "BenchIndices";

// A module { uint32 numPoints; uint32 indices[300]; } written by the writer and read into a
// symbol table of its own, with or without its definition section.
class BenchFile
{
public:
    explicit BenchFile(bool withDefinitions)
    {
        TuningWriter::FileVersion const version{};
        TuningWriter::DefinitionElement numPoints;
        numPoints.name = "numPoints";
        TuningWriter::DefinitionElement indices;
        indices.name = "indices";
        indices.minCount = indices.maxCount = ArrayLength;
        std::vector<TuningWriter::DefinitionStructure> structures = {
            {StructureId, "BenchIndicesType", std::nullopt, {numPoints, indices}}};

        TuningWriter::SymbolTableBuilder symbols(version);
        TuningWriter::EntryEncoder encoder(version, structures, symbols);
        std::vector<TuningWriter::EntryValue> values;
        for (unsigned int i = 0; i < ArrayLength; ++i)
            values.push_back(TuningWriter::EntryValue::UInt(i * 3));
        TuningWriter::EntryValue const value = TuningWriter::EntryValue::Struct(
            {{"numPoints", TuningWriter::EntryValue::UInt(ArrayLength)},
             {"indices", TuningWriter::EntryValue::List(values)}});
        TuningWriter::ModuleEntry module;
        module.name = ModuleName;
        module.modeId = TuningWriter::NoModuleModeId;
        module.data = encoder.Encode(StructureId, &value);
        m_id = symbols.AddModule(module);

        std::vector<uint8_t> definitions;
        if (withDefinitions) {
            TuningWriter::DefinitionTableBuilder builder;
            builder.AddModule({StructureId, ModuleName, std::nullopt, ""});
            builder.AddStructure(structures.front());
            definitions = builder.Build(1);
        }
        m_file = std::make_unique<ParamTest::TableFile>(symbols, definitions);
        m_table = std::make_unique<ParameterFileSymbolTable>(nullptr, 1, VersionUnion(7, 0, 0));
        m_ok = m_file->LoadInto(*m_table, nullptr) && m_table->Find(m_entry, m_id, true);
    }

    bool Ok() const { return m_ok; }

    /// One module load of the array the way generated code reads it.
    void Read(uint32_t* indices)
    {
        m_entry.Position = 0;
        ParameterDefinitionElement* root = nullptr;
        if (m_table->GetDefinitionModules() != nullptr)
            root = m_table->BuildModuleElement(ParserCRC64::HashName(ModuleName));
        ParameterLoadParameters params{
            &m_entry, ParserCRC64::HashName(ModuleName), true, true, root, 0, 0, NoLoadLimit};
        ParameterLoadParameters local;
        if (ParameterEntryReader::BeginStructure(params, local)) {
            uint32_t numPoints = 0;
            local.nameHash = m_numPointsHash;
            m_entry.ReadSimpleTypeFixedArray(&numPoints, 1, local);
            local.nameHash = m_indicesHash;
            m_entry.ReadSimpleTypeFixedArray(indices, ArrayLength, local);
            m_entry.UpdatePosition(local.loadLimit);
        }
        delete root;
    }

private:
    std::unique_ptr<ParamTest::TableFile> m_file;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    ParameterFileSymbolTableEntry m_entry;
    uint32_t m_id = 0;
    bool m_ok = false;
    unsigned long const m_numPointsHash = ParserCRC64::HashName("numPoints");
    unsigned long const m_indicesHash = ParserCRC64::HashName("indices");
};

// Benchmark names follow the BM_<Unit>_<Operation> convention, not the function naming rule.
// Argument 1 reads with the definition section, 0 without.
void BM_ParameterFileSymbolTableEntry_ReadArray300(benchmark::State& state)
{
    bool const withDefinitions = state.range(0) != 0;
    BenchFile file(withDefinitions);
    if (!file.Ok()) {
        state.SkipWithError("the benchmark file did not load");
        return;
    }
    std::vector<uint32_t> indices(ArrayLength);
    for (auto _ : state) {
        file.Read(indices.data());
        benchmark::DoNotOptimize(indices.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(withDefinitions ? "with definitions" : "without definitions");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * ArrayLength *
                            sizeof(uint32_t));
}

} // namespace

BENCHMARK(BM_ParameterFileSymbolTableEntry_ReadArray300)->Arg(0)->Arg(1);
