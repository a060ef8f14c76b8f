// SPDX-License-Identifier: Apache-2.0
// Tests of a whole load past the section table: mode tables, symbol and data tables and module
// records, in buffer and file mode, on files the writer made.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using TuningWriter::FileVersion;
using TuningWriter::ModeSectionBuilder;
using TuningWriter::ModuleEntry;
using TuningWriter::SymbolTableBuilder;
using TuningWriter::TuningFileWriter;

// A file read in file mode must hold the 3388-byte header window: a block of this size pads it.
constexpr size_t FillerSize = 4000;

std::vector<uint8_t> Bytes(std::string const& text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

ModuleEntry Module(std::string name, uint32_t modeId, std::string data)
{
    ModuleEntry entry;
    entry.name = std::move(name);
    entry.moduleVersion = {3, 4, 0};
    entry.modeId = modeId;
    entry.data = Bytes(data);
    return entry;
}

// What SetError writes for a module record whose kind the manager does not know.
std::string UnknownModuleError(FileVersion version, char const* name, unsigned int mode)
{
    unsigned long long const hash = version.major >= 6 ? ParserCRC64::HashName(name) : 0;
    char text[256];
    std::snprintf(text, sizeof(text),
                  "Failed to find header module:  Name Hash: %llx, Major: 3, Minor: 4, Patch: 0, "
                  "Mode: %u",
                  hash, mode);
    return text;
}

struct LoadCase
{
    FileVersion version;
    bool fileMode;
};

std::string CaseName(::testing::TestParamInfo<LoadCase> const& test)
{
    FileVersion const& version = test.param.version;
    return "V" + std::to_string(version.major) + "_" + std::to_string(version.minor) + "_" +
           std::to_string(version.patch) + (test.param.fileMode ? "_File" : "_Buffer");
}

class ReadSectionsTest : public ::testing::TestWithParam<LoadCase>
{
protected:
    ReadSectionsTest() : m_manager(Options()) {}

    static ParamTest::TestSetManager::Options Options()
    {
        ParamTest::TestSetManager::Options options;
        options.fileModeAllowed = GetParam().fileMode;
        return options;
    }

    bool Load(TuningFileWriter const& writer)
    {
        m_bytes = writer.Build();
        if (!GetParam().fileMode)
            return m_manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size());
        m_temp.Rewrite(m_bytes);
        return m_manager.LoadBinaryParameters(m_temp.Path().c_str());
    }

    ParamTest::LogCapture m_log;
    ParamTest::TempFile m_temp;
    ParamTest::TestSetManager m_manager;
    std::vector<uint8_t> m_bytes;
};

// A file whose symbol section is empty loads, with no modules and a message that says why.
TEST_P(ReadSectionsTest, FileWithoutSymbolEntriesLoadsWithNoModules)
{
    TuningFileWriter writer(GetParam().version);
    writer.AddSection(TuningWriter::SectionType::Symbol, {});
    writer.AddSection(TuningWriter::SectionType::Data, std::vector<uint8_t>(FillerSize, 0x5A));

    ASSERT_TRUE(Load(writer));
    EXPECT_TRUE(m_log.HasMessage(
        "ReadModeSections: Binary missing symbol table or data SymbolOffset(" +
        std::to_string(writer.SectionOffsetAt(0)) + ") && SymbolSize(0) && DataOffset(" +
        std::to_string(writer.SectionOffsetAt(1)) + ") && DataSize(" + std::to_string(FillerSize) +
        ")\n"));
    ParameterFileSymbolTable* table = m_manager.GetSymbolTable();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->Modules().Count(), 0u);
    // The table never took the file over: the load closed and dropped it.
    EXPECT_EQ(table->GetFile(), nullptr);
}

// Module records of kinds the manager does not know fail the load, one error per record, while
// every table is read and every record is in place.
TEST_P(ReadSectionsTest, UnknownModulesFailTheLoadButTheTablesStay)
{
    FileVersion const version = GetParam().version;
    TuningFileWriter writer(version);
    ModeSectionBuilder modes(0, "Camera");
    uint32_t const root = modes.AddPath("Default");
    uint32_t const sensor = modes.AddPath("Default|Sensor.2");
    modes.AddTo(writer);
    SymbolTableBuilder symbols(version);
    symbols.AddModule(Module("FLIndicesType", root, "root module"));
    uint32_t const second = symbols.AddModule(Module("aecArbitration", sensor, "sensor module"));
    symbols.AddData(std::vector<uint8_t>(FillerSize, 0x5A));
    symbols.AddTo(writer);

    EXPECT_FALSE(Load(writer));
    EXPECT_FALSE(m_manager.GetLoadStatus());
    std::string const first = UnknownModuleError(version, "FLIndicesType", 0);
    std::string const last = UnknownModuleError(version, "aecArbitration", 1);
    EXPECT_TRUE(m_log.HasMessage(first + "\n"));
    EXPECT_TRUE(m_log.HasMessage(last + "\n"));
    EXPECT_EQ(m_log.Count("Failed to find header module: "), 2u);
    EXPECT_EQ(m_manager.GetErrorString(), last);

    ParameterFileSymbolTable* table = m_manager.GetSymbolTable();
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(table->Modules().Count(), 2u);
    EXPECT_EQ(table->Modules()[1]->ModeId, sensor);
    EXPECT_EQ(table->GetSymbolEntries(), nullptr);

    ParameterFileSymbolTableEntry entry;
    if (!GetParam().fileMode) {
        // Buffer mode keeps nothing of the tables once the modules are made.
        EXPECT_EQ(table->GetSymbolLookup(), nullptr);
        EXPECT_FALSE(table->Find(entry, second, true));
        return;
    }
    // File mode keeps the lookups and the file, closed until an entry is read again.
    ASSERT_NE(table->GetFile(), nullptr);
    EXPECT_FALSE(table->GetFile()->IsOpen());
    EXPECT_EQ(table->GetFile()->GetReferenceCount(), 0);
    ASSERT_TRUE(table->Find(entry, second, true));
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(entry.Data), entry.Size), "sensor module");
    EXPECT_FALSE(table->GetFile()->IsOpen());
}

// A load that fails inside the symbol table frees what it had made so far: every byte that the
// load took from the allocator is back once the manager is gone.
TEST_P(ReadSectionsTest, FailureHalfWayThroughTheTableLeaksNothing)
{
    FileVersion const version = GetParam().version;
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ParamTest::TestSetManager manager(Options());
        TuningFileWriter writer(version);
        SymbolTableBuilder symbols(version);
        symbols.AddModule(Module("a", 0, "first"));
        uint32_t const broken = symbols.AddModule(Module("b", 0, "second"));
        symbols.AddModule(Module("c", 0, "third"));
        symbols.AddData(std::vector<uint8_t>(FillerSize, 0x5A));
        TuningWriter::TableDamage damage;
        damage.sizes[broken] = 50000;
        symbols.SetDamage(damage);
        symbols.AddTo(writer);
        m_bytes = writer.Build();
        bool loaded = false;
        if (GetParam().fileMode) {
            m_temp.Rewrite(m_bytes);
            loaded = manager.LoadBinaryParameters(m_temp.Path().c_str());
        } else {
            loaded = manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size());
        }
        EXPECT_FALSE(loaded);
        EXPECT_TRUE(m_log.HasMessage("Failed to read symbol table from binary file\n"));
        ASSERT_NE(manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(manager.GetSymbolTable()->Modules().Count(), 0u);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

// Allocation failures at every step of a load: each ends in a refused load or a loaded file,
// never in a crash or a leak.
TEST_P(ReadSectionsTest, AllocationFailureAtAnyStepLeaksNothing)
{
    FileVersion const version = GetParam().version;
    TuningFileWriter writer(version);
    SymbolTableBuilder symbols(version);
    // A symbol entry that is no module: the tables are read, and no module record stops the load.
    symbols.AddModule(Module("", TuningWriter::NoModuleModeId, "plain"));
    uint32_t const original = symbols.AddData(Bytes("shared"));
    symbols.AddData(Bytes("shared"), original);
    symbols.AddData(std::vector<uint8_t>(FillerSize, 0x5A));
    symbols.AddTo(writer);
    m_bytes = writer.Build();
    m_temp.Rewrite(m_bytes);

    // Enough steps for the whole load to run through: the last load must succeed.
    constexpr int Steps = 120;
    bool loaded = false;
    for (int successes = 0; successes <= Steps; ++successes) {
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            ParamTest::TestSetManager manager(Options());
            Vorn::Testing::FailAllocationsAfter(successes);
            loaded = GetParam().fileMode
                         ? manager.LoadBinaryParameters(m_temp.Path().c_str())
                         : manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size());
            Vorn::Testing::ResetAllocationFailure();
            if (successes == Steps) {
                ASSERT_NE(manager.GetSymbolTable(), nullptr);
                // The two equal blocks form a group where the version stores DuplicateID.
                EXPECT_EQ(manager.GetSymbolTable()->GetDataDuplicateCount(),
                          version.major > 3 ? 2u : 1u);
            }
        }
        ASSERT_EQ(Vorn::Testing::AllocatedBytes(), before) << "after " << successes;
    }
    EXPECT_TRUE(loaded);
}

INSTANTIATE_TEST_SUITE_P(Versions, ReadSectionsTest,
                         ::testing::Values(LoadCase{{5, 0, 0}, false}, LoadCase{{5, 0, 0}, true},
                                           LoadCase{{7, 0, 0}, false}, LoadCase{{7, 0, 0}, true},
                                           LoadCase{{1, 1, 0}, false}),
                         CaseName);

} // namespace
