// SPDX-License-Identifier: Apache-2.0
// Reading a large symbol table: one module record per entry, every entry pointing into the data.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/imodetable.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace {

constexpr uint32_t EntryCount = 100000;

// Every Mode ID names one node, so that the records find a mode without a mode tree.
class SingleModeTable : public IModeTable
{
public:
    SingleModeTable() : m_root(true, true) { m_slot.mode = &m_root; }
    ModeSlot* GetModeEntry(unsigned int) override { return &m_slot; }

private:
    ModeEntry m_root;
    ModeSlot m_slot = {};
};

struct TableFile
{
    std::vector<uint8_t> bytes;
    ParameterFileSymbolTable::SectionInfo symbol;
    ParameterFileSymbolTable::SectionInfo dataTable;
    ParameterFileSymbolTable::SectionInfo data;
};

// A version 7 file of 100 000 modules, every fourth a duplicate of the one before it.
TableFile const& File()
{
    static TableFile const file = [] {
        TuningWriter::SymbolTableBuilder builder({7, 0, 0});
        for (uint32_t i = 0; i < EntryCount; ++i) {
            TuningWriter::ModuleEntry entry;
            entry.name = "module";
            entry.moduleVersion = {1, 0, 0};
            entry.data = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 1, 2};
            entry.duplicateOf = i % 4 == 3 ? i : 0;
            builder.AddModule(entry);
        }
        TuningWriter::TuningFileWriter writer({7, 0, 0});
        builder.AddTo(writer);
        TuningWriter::SymbolTableBuilder::Sections const sections = builder.Build();
        TableFile result;
        result.symbol = {writer.SectionOffsetAt(0), static_cast<uint32_t>(sections.symbol.size())};
        result.dataTable = {writer.SectionOffsetAt(1),
                            static_cast<uint32_t>(sections.dataTable.size())};
        result.data = {writer.SectionOffsetAt(2), static_cast<uint32_t>(sections.data.size())};
        result.bytes = writer.Build();
        return result;
    }();
    return file;
}

void BM_ParameterFileSymbolTable_ReadTable(benchmark::State& state)
{
    TableFile const& file = File();
    std::vector<uint8_t> bytes = file.bytes;
    SingleModeTable modes;
    ParameterFileSymbolTable::SectionInfo const none = {};
    for (auto _ : state) {
        ParameterFileSymbolTable table(nullptr, 1, VersionUnion(7, 0, 0));
        bool const loaded =
            table.Load(bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr, nullptr, 0,
                       file.symbol, file.dataTable, file.data, none, &modes, true);
        if (!loaded || table.Modules().Count() != EntryCount) {
            state.SkipWithError("the table was not read");
            break;
        }
        benchmark::DoNotOptimize(table.GetSymbolDuplicateCount());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * EntryCount);
}

} // namespace

BENCHMARK(BM_ParameterFileSymbolTable_ReadTable)->Unit(benchmark::kMillisecond);
