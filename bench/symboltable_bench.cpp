// SPDX-License-Identifier: Apache-2.0
// Reading a large symbol table: one module record per entry, every entry pointing into the data.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "parameterparser/parameterfilesymboltable.h"
#include "tools/writer/symboltablebuilder.h"

#include "tests/common/formatfiles.h"

namespace {

constexpr uint32_t EntryCount = 100000;

// A version 7 file of 100 000 modules, every fourth a duplicate of the one before it.
ParamTest::TableFile& File()
{
    static ParamTest::TableFile file = [] {
        TuningWriter::SymbolTableBuilder builder({7, 0, 0});
        for (uint32_t i = 0; i < EntryCount; ++i) {
            TuningWriter::ModuleEntry entry;
            entry.name = "module";
            entry.moduleVersion = {1, 0, 0};
            entry.data = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 1, 2};
            entry.duplicateOf = i % 4 == 3 ? i : 0;
            builder.AddModule(entry);
        }
        return ParamTest::TableFile(builder);
    }();
    return file;
}

void BM_ParameterFileSymbolTable_ReadTable(benchmark::State& state)
{
    ParamTest::TableFile& file = File();
    ParamTest::SingleModeTable modes;
    for (auto _ : state) {
        ParameterFileSymbolTable table(nullptr, 1, VersionUnion(7, 0, 0));
        if (!file.LoadInto(table, &modes) || table.Modules().Count() != EntryCount) {
            state.SkipWithError("the table was not read");
            break;
        }
        benchmark::DoNotOptimize(table.GetSymbolDuplicateCount());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * EntryCount);
}

} // namespace

BENCHMARK(BM_ParameterFileSymbolTable_ReadTable)->Unit(benchmark::kMillisecond);
