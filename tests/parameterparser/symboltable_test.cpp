// SPDX-License-Identifier: Apache-2.0
// Tests of the symbol and data tables: layouts of every version, identifiers, duplicate groups,
// lookups in buffer and file mode, pointers and shared objects.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using Section = ParameterFileSymbolTable::SectionInfo;
using TuningWriter::FileVersion;
using TuningWriter::ModuleEntry;
using TuningWriter::SymbolTableBuilder;
using TuningWriter::TableDamage;

std::vector<uint8_t> Bytes(std::string const& text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

std::string TextOf(ParameterFileSymbolTableEntry const& entry)
{
    if (entry.Data == nullptr)
        return "<none>";
    return std::string(reinterpret_cast<char const*>(entry.Data), entry.Size);
}

std::string VersionName(FileVersion version)
{
    return "V" + std::to_string(version.major) + "_" + std::to_string(version.minor) + "_" +
           std::to_string(version.patch);
}

ModuleEntry Module(std::string name, std::string data, uint32_t duplicateOf = 0)
{
    ModuleEntry entry;
    entry.name = std::move(name);
    entry.moduleVersion = {3, 4, 0};
    entry.data = Bytes(data);
    entry.duplicateOf = duplicateOf;
    return entry;
}

// Every Mode ID names the one Default node: module records of table tests always find a mode.
class SingleModeTable : public IModeTable
{
public:
    SingleModeTable() : m_root(true, true) { m_slot.mode = &m_root; }
    ModeSlot* GetModeEntry(unsigned int) override { return &m_slot; }

private:
    ModeEntry m_root;
    ModeSlot m_slot = {};
};

// A file holding the builder's tables, and where they stand in it.
struct TableFile
{
    std::vector<uint8_t> bytes;
    Section symbol = {};
    Section dataTable = {};
    Section data = {};
};

TableFile WriteTables(SymbolTableBuilder const& builder)
{
    TuningWriter::TuningFileWriter writer(builder.Version());
    builder.AddTo(writer);
    SymbolTableBuilder::Sections const sections = builder.Build();
    // AddTo adds the symbol section, the data table where the version has one, then the data.
    bool const hasDataTable = SymbolTableBuilder::DataEntrySize(builder.Version()) != 0;
    TableFile file;
    size_t index = 0;
    file.symbol = {writer.SectionOffsetAt(index++), static_cast<uint32_t>(sections.symbol.size())};
    if (hasDataTable)
        file.dataTable = {writer.SectionOffsetAt(index++),
                          static_cast<uint32_t>(sections.dataTable.size())};
    file.data = {writer.SectionOffsetAt(index), static_cast<uint32_t>(sections.data.size())};
    file.bytes = writer.Build();
    return file;
}

enum class Mode
{
    Buffer,
    File,
};

// A table loaded straight from writer-made sections, in buffer or file mode.
class LoadedTable
{
public:
    /// Loads the builder's tables; adjust may change where the sections claim to stand.
    bool Load(SymbolTableBuilder const& builder, Mode mode,
              std::function<void(TableFile&)> const& adjust = {})
    {
        FileVersion const version = builder.Version();
        m_file = WriteTables(builder);
        if (adjust)
            adjust(m_file);
        m_table = std::make_unique<ParameterFileSymbolTable>(
            &m_manager, TuningWriter::AlignmentFor(version),
            VersionUnion(version.major, version.minor, version.patch));
        Section const none = {};
        if (mode == Mode::Buffer)
            return m_table->Load(
                m_file.bytes.data(), static_cast<unsigned int>(m_file.bytes.size()), nullptr,
                nullptr, 0, m_file.symbol, m_file.dataTable, m_file.data, none, &m_modes, true);
        m_temp = std::make_unique<ParamTest::TempFile>(m_file.bytes);
        auto* file = new ParameterBinaryFile(m_temp->Path().c_str(), &m_manager);
        return m_table->Load(nullptr, 0, m_temp->Path().c_str(), file, file->GetLength(),
                             m_file.symbol, m_file.dataTable, m_file.data, none, &m_modes, true);
    }

    ParameterFileSymbolTable& Table() { return *m_table; }
    ParamTest::LogCapture& Log() { return m_log; }

private:
    ParamTest::LogCapture m_log;
    ParamTest::TestSetManager m_manager;
    SingleModeTable m_modes;
    std::unique_ptr<ParamTest::TempFile> m_temp;
    TableFile m_file;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
};

// ---- Layouts of every version -------------------------------------------------------------------

struct LayoutCase
{
    FileVersion version;
    unsigned int symbolCount; ///< two modules and one data block, as the version lays them out
    unsigned int dataCount;
};

class SymbolTableLayoutTest : public ::testing::TestWithParam<std::tuple<LayoutCase, Mode>>
{
};

// Every version's entries decode into the same modules and data, whichever way they are read;
// in file mode they are read again from the file once the table has dropped its entries.
TEST_P(SymbolTableLayoutTest, ReadsModulesAndDataOfEveryLayout)
{
    LayoutCase const& test = std::get<0>(GetParam());
    Mode const mode = std::get<1>(GetParam());
    SymbolTableBuilder builder(test.version);
    uint32_t const block = builder.AddData(Bytes("shared block"));
    ModuleEntry second = Module("aecArbitration", "second module");
    second.moduleVersion = {1, 2, 5};
    second.modeId = 0x00000003;
    uint32_t const first = builder.AddModule(Module("FLIndicesType", "first module"));
    uint32_t const other = builder.AddModule(second);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, mode));
    ParameterFileSymbolTable& table = loaded.Table();
    EXPECT_EQ(table.GetSymbolCount(), test.symbolCount);
    EXPECT_EQ(table.GetDataCount(), test.dataCount);

    bool const hashed = test.version.major >= 6;
    PList<ModuleData*> const& modules = table.Modules();
    ASSERT_EQ(modules.Count(), 2u);
    EXPECT_EQ(modules[0]->ID, first);
    EXPECT_EQ(modules[1]->ID, other);
    EXPECT_EQ(modules[0]->NameHash, hashed ? ParserCRC64::HashName("FLIndicesType") : 0ul);
    EXPECT_EQ(modules[1]->NameHash, hashed ? ParserCRC64::HashName("aecArbitration") : 0ul);
    EXPECT_EQ(modules[0]->Version, VersionUnion(3, 4, 0));
    EXPECT_EQ(modules[1]->Version, VersionUnion(1, 2, 5));
    EXPECT_EQ(modules[1]->ModeId, 3u);

    for (int pass = 0; pass < (mode == Mode::File ? 2 : 1); ++pass) {
        SCOPED_TRACE(pass == 0 ? "from the entries" : "from the file");
        ParameterFileSymbolTableEntry entry;
        ASSERT_TRUE(table.Find(entry, other, true));
        EXPECT_EQ(TextOf(entry), "second module");
        EXPECT_EQ(entry.ID, other);
        ASSERT_TRUE(table.Find(entry, block, false));
        EXPECT_EQ(TextOf(entry), "shared block");
        // A view of a table entry owns nothing; an entry read from the file owns its bytes.
        EXPECT_EQ(entry.OwnsData, pass == 1);
        table.FreeEntryData();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Versions, SymbolTableLayoutTest,
    ::testing::Combine(::testing::Values(LayoutCase{{1, 0, 1}, 3, 3}, LayoutCase{{1, 1, 0}, 3, 3},
                                         LayoutCase{{3, 0, 0}, 3, 3}, LayoutCase{{3, 0, 1}, 3, 3},
                                         LayoutCase{{3, 1, 0}, 3, 3}, LayoutCase{{4, 0, 0}, 2, 1},
                                         LayoutCase{{5, 0, 0}, 2, 1}, LayoutCase{{6, 0, 0}, 3, 2},
                                         LayoutCase{{7, 0, 0}, 3, 2}),
                       ::testing::Values(Mode::Buffer, Mode::File)),
    [](::testing::TestParamInfo<std::tuple<LayoutCase, Mode>> const& test) {
        return VersionName(std::get<0>(test.param).version) +
               (std::get<1>(test.param) == Mode::File ? "_File" : "_Buffer");
    });

// ---- Identifiers ----------------------------------------------------------------------------------

struct StoredIdCase
{
    char const* name;
    FileVersion version;
    uint32_t entry;       ///< identifier whose stored ID is replaced
    uint32_t storedId;    ///< the ID written instead
    size_t reports;       ///< rounds that meet the bad identifier
    unsigned int modules; ///< module records that remain
};

class StoredIdTest : public ::testing::TestWithParam<StoredIdCase>
{
};

// A stored identifier outside 1 to count is skipped without moving on, so every remaining round
// meets it again: the entries behind it are never read.
TEST_P(StoredIdTest, OutOfRangeIdentifierIsReportedForEachRemainingRound)
{
    StoredIdCase const& test = GetParam();
    SymbolTableBuilder builder(test.version);
    builder.AddModule(Module("a", "1"));
    builder.AddModule(Module("b", "2"));
    builder.AddModule(Module("c", "3"));
    TableDamage damage;
    damage.storedIds[test.entry] = test.storedId;
    builder.SetDamage(damage);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    std::string const message =
        "Symbol table entry ID " + std::to_string(test.storedId) + " out of range 1 - 3\n";
    std::vector<std::string> const messages = loaded.Log().Messages();
    EXPECT_EQ(static_cast<size_t>(std::count(messages.begin(), messages.end(), message)),
              test.reports);
    EXPECT_EQ(loaded.Table().Modules().Count(), test.modules);
}

INSTANTIATE_TEST_SUITE_P(Versions, StoredIdTest,
                         ::testing::Values(StoredIdCase{"V1_0_1_Middle", {1, 0, 1}, 2, 9, 2, 1},
                                           StoredIdCase{"V1_1_0_Middle", {1, 1, 0}, 2, 4, 2, 1},
                                           StoredIdCase{"V3_0_1_First", {3, 0, 1}, 1, 0, 3, 0},
                                           StoredIdCase{"V5_0_0_Last", {5, 0, 0}, 3, 7, 1, 2}),
                         [](::testing::TestParamInfo<StoredIdCase> const& test) {
                             return std::string(test.param.name);
                         });

TEST(SymbolTableTest, StoredIdentifiersChooseTheRowBelowVersion6)
{
    // Entries stored in the order 2, 1: each lands in the row of its stored identifier.
    SymbolTableBuilder builder({5, 0, 0});
    builder.AddModule(Module("a", "first written"));
    builder.AddModule(Module("b", "second written"));
    TableDamage damage;
    damage.storedIds = {{1, 2}, {2, 1}};
    builder.SetDamage(damage);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    ParameterFileSymbolTableEntry entry;
    ASSERT_TRUE(loaded.Table().Find(entry, 1, true));
    EXPECT_EQ(TextOf(entry), "second written");
    ASSERT_TRUE(loaded.Table().Find(entry, 2, true));
    EXPECT_EQ(TextOf(entry), "first written");
}

class FindTest : public ::testing::TestWithParam<std::tuple<FileVersion, Mode>>
{
};

// The rows run to count inclusive: count is found and count + 1 is not; 0 never is. From 6.0.0
// position 0 is read (it counts) but cannot be found.
TEST_P(FindTest, IdentifiersOneToCountAreFound)
{
    FileVersion const version = std::get<0>(GetParam());
    Mode const mode = std::get<1>(GetParam());
    SymbolTableBuilder builder(version);
    builder.AddModule(Module("a", "first"));
    uint32_t const last = builder.AddModule(Module("b", "last"));

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, mode));
    ParameterFileSymbolTable& table = loaded.Table();
    unsigned int const count = table.GetSymbolCount();
    EXPECT_EQ(count, version.major >= 6 ? 3u : 2u);
    // The module records start at identifier 1 in both schemes.
    EXPECT_EQ(table.Modules().Count(), 2u);

    table.FreeEntryData();
    ParameterFileSymbolTableEntry entry;
    if (mode == Mode::Buffer) {
        // Without entries and without a file nothing can be read any more, and that is no fault.
        loaded.Log().Clear();
        EXPECT_FALSE(table.Find(entry, last, true));
        EXPECT_TRUE(loaded.Log().Messages().empty());
    } else {
        ASSERT_TRUE(table.Find(entry, last, true));
        EXPECT_EQ(TextOf(entry), "last");
        ASSERT_NE(entry.Module, nullptr);
        EXPECT_EQ(entry.Module->ID, last);
    }

    std::string const range = " out of range 1 - " + std::to_string(count) + "\n";
    EXPECT_FALSE(table.Find(entry, count + 1, true));
    EXPECT_TRUE(loaded.Log().HasMessage("Find: Symbol table entry ID " + std::to_string(count + 1) +
                                        range));
    EXPECT_FALSE(table.Find(entry, 0, true));
    EXPECT_TRUE(loaded.Log().HasMessage("Find: Symbol table entry ID 0" + range));
}

INSTANTIATE_TEST_SUITE_P(Versions, FindTest,
                         ::testing::Combine(::testing::Values(FileVersion{1, 1, 0},
                                                              FileVersion{5, 0, 0},
                                                              FileVersion{7, 0, 0}),
                                            ::testing::Values(Mode::Buffer, Mode::File)),
                         [](::testing::TestParamInfo<std::tuple<FileVersion, Mode>> const& test) {
                             return VersionName(std::get<0>(test.param)) +
                                    (std::get<1>(test.param) == Mode::File ? "_File" : "_Buffer");
                         });

// ---- Table sizes --------------------------------------------------------------------------------

struct SizeCase
{
    char const* name;
    FileVersion version;
    bool dataTable; ///< damage the data table rather than the symbol table
    char const* message;
};

class TableSizeTest : public ::testing::TestWithParam<SizeCase>
{
};

TEST_P(TableSizeTest, SizeThatIsNoMultipleOfTheEntrySizeFailsTheLoad)
{
    SizeCase const& test = GetParam();
    SymbolTableBuilder builder(test.version);
    builder.AddModule(Module("a", "1"));
    builder.AddModule(Module("b", "2"));
    builder.AddData(Bytes("x"));
    builder.AddData(Bytes("y"));
    TableDamage damage;
    (test.dataTable ? damage.dataTableTrailingBytes : damage.symbolTrailingBytes) = 4;
    builder.SetDamage(damage);

    LoadedTable loaded;
    EXPECT_FALSE(loaded.Load(builder, Mode::Buffer));
    EXPECT_TRUE(loaded.Log().HasMessage(test.message));
    EXPECT_EQ(loaded.Table().Modules().Count(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, TableSizeTest,
    ::testing::Values(
        SizeCase{"V1_0_1", {1, 0, 1}, false, "Invalid symbol table size: 260, expected: 256\n"},
        SizeCase{"V1_1_0", {1, 1, 0}, false, "Invalid symbol table size: 308, expected: 304\n"},
        SizeCase{"V3_0_1", {3, 0, 1}, false, "Invalid symbol table size: 228, expected: 224\n"},
        SizeCase{"V5_0_0", {5, 0, 0}, false, "Invalid symbol table size: 124, expected: 120\n"},
        SizeCase{"V7_0_0", {7, 0, 0}, false, "Invalid symbol table size: 100, expected: 96\n"},
        SizeCase{"V4_0_0_Data", {4, 0, 0}, true, "Invalid data table size: 36, expected: 32\n"},
        SizeCase{"V6_0_0_Data", {6, 0, 0}, true, "Invalid data table size: 40, expected: 36\n"}),
    [](::testing::TestParamInfo<SizeCase> const& test) { return std::string(test.param.name); });

// A damaged section table can make a table claim nearly 4 GiB: the load refuses it before any
// row is allocated, in both modes.
TEST(SymbolTableTest, TableLargerThanTheFileFailsBeforeAllocating)
{
    struct Case
    {
        bool dataTable;
        Mode mode;
        char const* kind;
    };
    Case const cases[] = {
        {false, Mode::Buffer, "symbol"},
        {false, Mode::File, "symbol"},
        {true, Mode::Buffer, "data"},
        {true, Mode::File, "data"},
    };
    FileVersion const version = {7, 0, 0};
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.kind) +
                     (test.mode == Mode::Buffer ? " table, buffer mode" : " table, file mode"));
        SymbolTableBuilder builder(version);
        builder.AddModule(Module("a", "1"));
        builder.AddData(Bytes("x"));
        uint32_t const entrySize = test.dataTable ? SymbolTableBuilder::DataEntrySize(version)
                                                  : SymbolTableBuilder::SymbolEntrySize(version);
        LoadedTable loaded;
        EXPECT_FALSE(loaded.Load(builder, test.mode, [&](TableFile& file) {
            Section& section = test.dataTable ? file.dataTable : file.symbol;
            section.Size = 0xFFFFFFF0U / entrySize * entrySize;
        }));
        std::string const kind = test.kind;
        EXPECT_TRUE(loaded.Log().Contains("Failed to read " + kind + " table buffer (offset: "));
        EXPECT_TRUE(
            loaded.Log().HasMessage("Failed to read " + kind + " table from binary file\n"));
        EXPECT_EQ(loaded.Table().Modules().Count(), 0u);
    }
}

TEST(SymbolTableTest, EmptySymbolTableLoadsWithoutModules)
{
    SymbolTableBuilder builder({5, 0, 0});
    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    EXPECT_EQ(loaded.Table().GetSymbolCount(), 0u);
    EXPECT_EQ(loaded.Table().Modules().Count(), 0u);
}

// ---- Duplicate groups ---------------------------------------------------------------------------

struct GroupCase
{
    FileVersion version;
    unsigned int groups; ///< duplicate count of the data side: groups + 1
};

class DuplicateGroupTest : public ::testing::TestWithParam<GroupCase>
{
};

// Two entries that name one DuplicateID form a group; a third block stays alone. Files without
// DuplicateID still share the bytes but form no group.
TEST_P(DuplicateGroupTest, EntriesOfOneDuplicateIdFormOneGroup)
{
    GroupCase const& test = GetParam();
    SymbolTableBuilder builder(test.version);
    uint32_t const original = builder.AddData(Bytes("equal bytes"));
    uint32_t const copy = builder.AddData(Bytes("equal bytes"), original);
    uint32_t const alone = builder.AddData(Bytes("other bytes"));

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    ParameterFileSymbolTable& table = loaded.Table();
    EXPECT_EQ(table.GetDataDuplicateCount(), test.groups);
    uint32_t const group = test.groups > 1 ? 1 : 0;
    ASSERT_NE(table.GetDataLookup(), nullptr);
    EXPECT_EQ(table.GetDataLookup()[original].Duplicate, group);
    EXPECT_EQ(table.GetDataLookup()[copy].Duplicate, group);
    EXPECT_EQ(table.GetDataLookup()[alone].Duplicate, 0u);
    EXPECT_EQ(table.GetDuplicates(false, 1) != nullptr, test.groups > 1);

    ParameterFileSymbolTableEntry first;
    ParameterFileSymbolTableEntry second;
    ASSERT_TRUE(table.Find(first, original, false));
    ASSERT_TRUE(table.Find(second, copy, false));
    EXPECT_EQ(first.Data, second.Data);
    EXPECT_EQ(TextOf(second), "equal bytes");
}

INSTANTIATE_TEST_SUITE_P(Versions, DuplicateGroupTest,
                         ::testing::Values(GroupCase{{1, 1, 0}, 1}, GroupCase{{3, 0, 1}, 1},
                                           GroupCase{{3, 1, 0}, 2}, GroupCase{{4, 0, 0}, 2},
                                           GroupCase{{7, 0, 0}, 2}),
                         [](::testing::TestParamInfo<GroupCase> const& test) {
                             return VersionName(test.param.version);
                         });

TEST(SymbolTableTest, DuplicateIdBeyondTheTableIsReportedAndNotShared)
{
    SymbolTableBuilder builder({5, 0, 0});
    uint32_t const module = builder.AddModule(Module("a", "1"));
    builder.AddModule(Module("b", "2"));
    TableDamage damage;
    damage.duplicates[module] = 40;
    builder.SetDamage(damage);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    EXPECT_TRUE(loaded.Log().HasMessage(
        "Invalid DuplicateID value 40, should be less than module table count: 2\n"));
    EXPECT_EQ(loaded.Table().GetSymbolLookup()[module].Duplicate, 0u);
    EXPECT_EQ(loaded.Table().GetSymbolDuplicateCount(), 1u);
}

// ---- Pointers -----------------------------------------------------------------------------------

class PointerTest : public ::testing::TestWithParam<FileVersion>
{
};

// A reader entry holds, one after another: a good identifier, 0, an identifier past the table,
// and two bytes, which are too few for one more.
TEST_P(PointerTest, ReadPointerEntryFindsTheBlockOrSaysWhyNot)
{
    FileVersion const version = GetParam();
    SymbolTableBuilder builder(version);
    uint32_t const block = builder.AddData(Bytes("pointed at"));
    TuningWriter::ByteSink pointers(TuningWriter::AlignmentFor(version));
    pointers.PutU32(block);
    pointers.PutU32(0);
    pointers.PutU32(99);
    uint8_t const tail[2] = {1, 2};
    pointers.PutUnaligned(tail, sizeof(tail));
    ModuleEntry reader = Module("reader", "");
    reader.data = pointers.Bytes();
    uint32_t const readerId = builder.AddModule(reader);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
    ParameterFileSymbolTable& table = loaded.Table();
    ParamTest::LogCapture& log = loaded.Log();
    ParameterFileSymbolTableEntry entry;
    ASSERT_TRUE(table.Find(entry, readerId, true));

    ParameterFileSymbolTableEntry target;
    ASSERT_TRUE(entry.ReadPointerEntry(target));
    EXPECT_EQ(TextOf(target), "pointed at");

    log.Clear();
    EXPECT_FALSE(entry.ReadPointerEntry(target));
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"ReadPointerEntry: Unable to read pointer entry from Symbol "
                                       "table\n"});

    log.Clear();
    std::string const count = std::to_string(table.GetDataCount());
    EXPECT_FALSE(entry.ReadPointerEntry(target));
    EXPECT_EQ(log.Messages(),
              (std::vector<std::string>{
                  "Find: Symbol table entry ID 99 out of range 1 - " + count + "\n",
                  "ReadPointerEntry: Unable to find pointer entry ID 99 in Symbol table" + count +
                      "\n"}));

    log.Clear();
    unsigned int const cursor = entry.Position;
    EXPECT_FALSE(entry.ReadPointerEntry(target));
    EXPECT_EQ(log.Messages(),
              (std::vector<std::string>{
                  "Failed to read 4 bytes from binary file offset " + std::to_string(cursor) +
                      ", length " + std::to_string(entry.Size) + "\n",
                  "Insufficient data to read variable from symbol table entry\n",
                  "ReadPointerEntry: Unable to read pointer entry from Symbol table\n"}));
}

INSTANTIATE_TEST_SUITE_P(Versions, PointerTest,
                         ::testing::Values(FileVersion{1, 1, 0}, FileVersion{3, 1, 0},
                                           FileVersion{5, 0, 0}, FileVersion{7, 0, 0}),
                         [](::testing::TestParamInfo<FileVersion> const& test) {
                             return VersionName(test.param);
                         });

// ---- Shared objects -----------------------------------------------------------------------------

// Two data entries with equal bytes (one group) and one block of its own.
class SharedObjectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SymbolTableBuilder builder({7, 0, 0});
        m_original = builder.AddData(Bytes("equal"));
        m_copy = builder.AddData(Bytes("equal"), m_original);
        m_alone = builder.AddData(Bytes("alone"));
        ASSERT_TRUE(m_loaded.Load(builder, Mode::Buffer));
        ASSERT_TRUE(Table().Find(m_first, m_original, false));
        ASSERT_TRUE(Table().Find(m_second, m_copy, false));
    }

    ParameterFileSymbolTable& Table() { return m_loaded.Table(); }

    LoadedTable m_loaded;
    uint32_t m_original = 0;
    uint32_t m_copy = 0;
    uint32_t m_alone = 0;
    ParameterFileSymbolTableEntry m_first;
    ParameterFileSymbolTableEntry m_second;
};

TEST_F(SharedObjectTest, ObjectIsSharedPerLocAndFreedByTheLastRelease)
{
    int objectA = 0;
    int objectB = 0;
    constexpr int LocA = 8;
    constexpr int LocB = 9;

    EXPECT_EQ(m_first.SetFromDupObject(LocA), nullptr);
    DupObjInfo* published = m_first.SetDupObject(&objectA, LocA);
    ASSERT_NE(published, nullptr);
    EXPECT_EQ(published->RefCount.load(), 1u);

    // The other member of the group gets the object and holds a reference of its own; another
    // Loc of the same block is a record of its own.
    EXPECT_EQ(m_second.SetFromDupObject(LocA), &objectA);
    EXPECT_EQ(published->RefCount.load(), 2u);
    EXPECT_EQ(m_second.SetFromDupObject(LocB), nullptr);
    ASSERT_NE(m_second.SetDupObject(&objectB, LocB), nullptr);
    ASSERT_NE(Table().GetDuplicates(false, 1), nullptr);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 2u);

    EXPECT_FALSE(Table().ReleaseDupObject(&objectA));
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));
    EXPECT_EQ(Table().FindDupObject(&objectA), nullptr);
    // Gone from the map, the address is no longer shared: its holder frees it.
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));
    EXPECT_TRUE(Table().ReleaseDupObject(&objectB));
    EXPECT_FALSE(Table().ReleaseDupObject(nullptr));

    // The emptied record waits for the next load of the block and is used again.
    DupObjInfo* again = m_second.SetDupObject(&objectA, LocA);
    EXPECT_EQ(again, published);
    EXPECT_EQ(again->RefCount.load(), 1u);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 2u);
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));
}

TEST_F(SharedObjectTest, BlockThatIsNotSharedTakesNoRecord)
{
    int object = 0;
    ParameterFileSymbolTableEntry alone;
    ASSERT_TRUE(Table().Find(alone, m_alone, false));
    EXPECT_EQ(alone.SetDupObject(&object, 8), nullptr);
    EXPECT_EQ(alone.GetDupObject(8), nullptr);
    EXPECT_EQ(Table().FindDupObject(&object), nullptr);
    EXPECT_TRUE(m_loaded.Log().Messages().empty());
}

TEST_F(SharedObjectTest, CallsThatDoNotFitTheTablesAreLogged)
{
    int object = 0;
    unsigned int const past = Table().GetDataCount() + 1;
    EXPECT_EQ(Table().GetDupObjectInternal(false, past, 8, true), nullptr);
    EXPECT_EQ(Table().SetDupObject(false, past, &object, 8), nullptr);
    EXPECT_EQ(m_loaded.Log().Count("GetDupObject called with invalid values"), 1u);
    EXPECT_EQ(m_loaded.Log().Count("SetDupObject called with invalid values"), 1u);
    // Without lookups no call fits.
    Table().FreeLookupData();
    EXPECT_EQ(Table().GetDupObjectInternal(false, m_original, 8, true), nullptr);
    EXPECT_EQ(m_loaded.Log().Count("GetDupObject called with invalid values"), 2u);
}

// Two readers of one group race to publish their copies: one wins, the other keeps its copy
// private, and its release frees it. No object stays behind.
TEST_F(SharedObjectTest, ConcurrentPublishKeepsTheLosersCopyPrivate)
{
    constexpr int Rounds = 200;
    constexpr int Loc = 12;
    std::atomic<int> published{0};
    std::atomic<int> privateCopies{0};
    std::atomic<int> sharedUses{0};
    for (int round = 0; round < Rounds; ++round) {
        std::atomic<int> ready{0};
        std::vector<int*> held(2, nullptr);
        auto reader = [&](ParameterFileSymbolTableEntry& entry, size_t index) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            auto* shared = static_cast<int*>(entry.SetFromDupObject(Loc));
            if (shared != nullptr) {
                sharedUses.fetch_add(1);
                held[index] = shared;
                return;
            }
            int* mine = new int(static_cast<int>(index));
            if (entry.SetDupObject(mine, Loc) != nullptr)
                published.fetch_add(1);
            else
                privateCopies.fetch_add(1);
            held[index] = mine;
        };
        std::thread one(reader, std::ref(m_first), 0);
        std::thread two(reader, std::ref(m_second), 1);
        one.join();
        two.join();
        // Both holders give their objects back; each object is freed exactly once.
        for (int* object : held) {
            if (Table().ReleaseDupObject(object))
                delete object;
        }
    }
    EXPECT_EQ(published.load(), Rounds);
    EXPECT_EQ(privateCopies.load() + sharedUses.load(), Rounds);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 1u);
}

} // namespace
