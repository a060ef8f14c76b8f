// SPDX-License-Identifier: Apache-2.0
// The symbol, data and definition tables: layouts of every version, identifiers and their range,
// duplicate groups, pointers, shared objects, definition records, structure sizes, verification.
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"
#include "tools/writer/definitiontablebuilder.h"

#include "tests/common/definitionmember.h"
#include "tests/common/formatfiles.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using ParamTest::Bytes;
using ParamTest::Member;
using ParamTest::Module;
using ParamTest::StructMember;
using ParamTest::VersionName;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionTableBuilder;
using TuningWriter::ElementType;
using TuningWriter::FileVersion;
using TuningWriter::ModuleEntry;
using TuningWriter::SymbolTableBuilder;
using TuningWriter::TableDamage;
using Messages = std::vector<std::string>;

std::string TextOf(ParameterFileSymbolTableEntry const& entry)
{
    return entry.Data == nullptr
               ? "<none>"
               : std::string(reinterpret_cast<char const*>(entry.Data), entry.Size);
}

unsigned long Hash(char const* name)
{
    return ParserCRC64::HashName(name);
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
              std::function<void(ParamTest::TableFile&)> const& adjust = {})
    {
        FileVersion const version = builder.Version();
        m_file = std::make_unique<ParamTest::TableFile>(builder);
        if (adjust)
            adjust(*m_file);
        m_table = std::make_unique<ParameterFileSymbolTable>(
            &m_manager, TuningWriter::AlignmentFor(version),
            VersionUnion(version.major, version.minor, version.patch));
        if (mode == Mode::Buffer)
            return m_file->LoadInto(*m_table, &m_modes);
        m_temp = std::make_unique<ParamTest::TempFile>(m_file->bytes);
        auto* file = new ParameterBinaryFile(m_temp->Path().c_str(), &m_manager);
        return m_table->Load(nullptr, 0, m_temp->Path().c_str(), file, file->GetLength(),
                             m_file->symbol, m_file->dataTable, m_file->data, {}, &m_modes, true);
    }

    ParameterFileSymbolTable& Table() { return *m_table; }
    ParamTest::LogCapture& Log() { return m_log; }

private:
    ParamTest::LogCapture m_log;
    ParamTest::TestSetManager m_manager;
    ParamTest::SingleModeTable m_modes;
    std::unique_ptr<ParamTest::TempFile> m_temp;
    std::unique_ptr<ParamTest::TableFile> m_file;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
};

// ---- Layouts and identifiers --------------------------------------------------------------------

struct LayoutCase
{
    FileVersion version;
    /// Two modules and two equal blocks, as the version lays them out; duplicate groups.
    unsigned int symbolCount, dataCount, groups;
};

class SymbolTableLayoutTest : public ::testing::TestWithParam<std::tuple<LayoutCase, Mode>>
{
};

// Every version's entries decode into the same modules and data, whichever way they are read;
// in file mode they are read again from the file once the table has dropped its entries, in
// buffer mode nothing can be read then, and that is no fault. Identifiers run from 1 to count:
// 0 and count + 1 are refused, naming the range. Two entries that name one DuplicateID form a
// group sharing one block; files without DuplicateID share the bytes but form no group.
TEST_P(SymbolTableLayoutTest, ReadsModulesAndDataOfEveryLayout)
{
    auto const& [test, mode] = GetParam();
    SymbolTableBuilder builder(test.version);
    uint32_t const block = builder.AddData(Bytes("shared block"));
    uint32_t const copy = builder.AddData(Bytes("shared block"), block);
    ModuleEntry second = Module("aecArbitration", "second module", 3);
    second.moduleVersion = {1, 2, 5};
    uint32_t const first = builder.AddModule(Module("FLIndicesType", "first module"));
    uint32_t const other = builder.AddModule(second);

    LoadedTable loaded;
    ASSERT_TRUE(loaded.Load(builder, mode));
    ParameterFileSymbolTable& table = loaded.Table();
    unsigned int const count = table.GetSymbolCount();
    EXPECT_EQ(std::make_pair(count, table.GetDataCount()),
              std::make_pair(test.symbolCount, test.dataCount));
    bool const hashed = test.version.major >= 6;
    // ID, name hash (from 6.0.0), version and Mode ID of each module record.
    std::vector<std::tuple<uint32_t, unsigned long, uint64_t, uint32_t>> records;
    for (unsigned int i = 0; i < table.Modules().Count(); ++i) {
        ModuleData const* m = table.Modules()[i];
        records.emplace_back(m->ID, m->NameHash, m->Version.Raw, m->ModeId);
    }
    EXPECT_EQ(records,
              (decltype(records){
                  {first, hashed ? Hash("FLIndicesType") : 0, VersionUnion(3, 4, 0).Raw, 0},
                  {other, hashed ? Hash("aecArbitration") : 0, VersionUnion(1, 2, 5).Raw, 3}}));
    EXPECT_EQ(table.GetDataDuplicateCount(), test.groups);
    EXPECT_EQ(table.GetDuplicates(false, 1) != nullptr, test.groups > 1);
    uint32_t const group = test.groups > 1 ? 1 : 0;
    EXPECT_EQ(std::make_pair(table.GetDataLookup()[block].Duplicate,
                             table.GetDataLookup()[copy].Duplicate),
              std::make_pair(group, group));

    ParameterFileSymbolTableEntry entry, twin;
    for (int pass = 0; pass < 2; ++pass) {
        SCOPED_TRACE(pass == 0 ? "from the entries" : "after the entries were dropped");
        loaded.Log().Clear();
        if (pass == 1 && mode == Mode::Buffer) {
            EXPECT_FALSE(table.Find(entry, other, true));
            EXPECT_TRUE(loaded.Log().Messages().empty());
            break;
        }
        ASSERT_TRUE(table.Find(entry, other, true));
        EXPECT_EQ(TextOf(entry), "second module");
        // An entry read from the file carries its module record.
        EXPECT_EQ(entry.Module != nullptr && entry.Module->ID == other, pass == 1);
        ASSERT_TRUE(table.Find(entry, block, false) && table.Find(twin, copy, false));
        EXPECT_EQ(TextOf(entry), "shared block");
        EXPECT_EQ(twin.Data == entry.Data, mode == Mode::Buffer);
        EXPECT_EQ(TextOf(twin), "shared block");
        // A view of a table entry owns nothing; an entry read from the file owns its bytes.
        EXPECT_EQ(entry.OwnsData, pass == 1);
        table.FreeEntryData();
    }
    for (unsigned int const id : {0u, count + 1}) {
        EXPECT_FALSE(table.Find(entry, id, true));
        EXPECT_TRUE(loaded.Log().HasMessage("Find: Symbol table entry ID " + std::to_string(id) +
                                            " out of range 1 - " + std::to_string(count) + "\n"));
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, SymbolTableLayoutTest,
                         ::testing::Combine(::testing::Values(LayoutCase{{1, 0, 1}, 4, 4, 1},
                                                              LayoutCase{{1, 1, 0}, 4, 4, 1},
                                                              LayoutCase{{3, 0, 0}, 4, 4, 1},
                                                              LayoutCase{{3, 0, 1}, 4, 4, 1},
                                                              LayoutCase{{3, 1, 0}, 4, 4, 2},
                                                              LayoutCase{{4, 0, 0}, 2, 2, 2},
                                                              LayoutCase{{5, 0, 0}, 2, 2, 2},
                                                              LayoutCase{{6, 0, 0}, 3, 3, 2},
                                                              LayoutCase{{7, 0, 0}, 3, 3, 2}),
                                            ::testing::Values(Mode::Buffer, Mode::File)),
                         [](::testing::TestParamInfo<std::tuple<LayoutCase, Mode>> const& test) {
                             return VersionName(std::get<0>(test.param).version) +
                                    (std::get<1>(test.param) == Mode::File ? "_File" : "_Buffer");
                         });

// Damage inside the tables. Below 6.0.0 each entry lands in the row of its stored identifier;
// one outside 1 to count is skipped without moving on, so every remaining round meets it again
// and the entries behind it are never read. A DuplicateID may name the last entry; one past the
// table is reported and shares nothing. An empty table loads without modules.
TEST(SymbolTableTest, DamagedRowsAreReportedAndSkipped)
{
    auto stored = [](uint32_t bad, size_t rounds) {
        return Messages(rounds,
                        "Symbol table entry ID " + std::to_string(bad) + " out of range 1 - 3\n");
    };
    std::string const beyond =
        "Invalid DuplicateID value 4, should be less than module table count: 3\n";
    struct
    {
        FileVersion version;
        std::map<uint32_t, uint32_t> storedIds, duplicates, sizes;
        Messages messages;
        unsigned int modules, groups; ///< module records, symbol duplicate groups
        char const* first;            ///< the text found at identifier 1; null: none, or no load
    } const cases[] = {
        {{1, 0, 1}, {{2, 9}}, {}, {}, stored(9, 2), 1, 1, "1"},
        {{1, 1, 0}, {{2, 4}}, {}, {}, stored(4, 2), 1, 1, "1"},
        {{3, 0, 1}, {{1, 0}}, {}, {}, stored(0, 3), 0, 1, nullptr},
        {{5, 0, 0}, {{3, 7}}, {}, {}, stored(7, 1), 2, 1, "1"},
        {{5, 0, 0}, {{1, 2}, {2, 1}}, {}, {}, {}, 3, 1, "2"},
        {{5, 0, 0}, {}, {{1, 3}}, {}, {}, 3, 2, "1"},
        {{5, 0, 0}, {}, {{1, 4}}, {}, {beyond}, 3, 1, "1"},
        {{5, 0, 0}, {}, {}, {}, {}, 0, 1, nullptr},
        // The last block may end at the data section's end; one byte further fails the load.
        {{5, 0, 0},
         {},
         {},
         {{3, 2}},
         {"Failed to read 2 bytes from binary file offset 2, length 3\n",
          "Failed to read symbol table from binary file\n"},
         0,
         1,
         nullptr},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(VersionName(test.version) + " " + std::to_string(test.storedIds.size()));
        SymbolTableBuilder builder(test.version);
        for (char const* name : {"1", "2", "3"})
            if (test.first != nullptr || !test.storedIds.empty() || !test.sizes.empty())
                builder.AddModule(Module(name, name));
        TableDamage damage;
        damage.storedIds = test.storedIds;
        damage.duplicates = test.duplicates;
        damage.sizes = test.sizes;
        builder.SetDamage(damage);
        LoadedTable loaded;
        EXPECT_EQ(loaded.Load(builder, Mode::Buffer), test.sizes.empty());
        EXPECT_EQ(loaded.Log().Messages(), test.messages);
        EXPECT_EQ(loaded.Table().Modules().Count(), test.modules);
        EXPECT_EQ(loaded.Table().GetSymbolDuplicateCount(), test.groups);
        ParameterFileSymbolTableEntry entry;
        if (test.first != nullptr) {
            ASSERT_TRUE(loaded.Table().Find(entry, 1, true));
            EXPECT_EQ(TextOf(entry), test.first);
        }
    }
}

// Table sizes from the section table: one that is no multiple of the entry size, or larger than
// the file (a damaged section table can claim nearly 4 GiB), fails the load before any row is
// allocated.
TEST(SymbolTableTest, TableSizeThatDoesNotFitFailsTheLoad)
{
    struct
    {
        FileVersion version;
        bool dataTable;
        unsigned int size, expectedSize; ///< sizes 4 bytes too large, as logged; 0: nearly 4 GiB
        Mode mode;
    } const cases[] = {
        // clang-format off
        {{1, 0, 1}, false, 260, 256, Mode::Buffer}, {{1, 1, 0}, false, 308, 304, Mode::Buffer},
        {{3, 0, 1}, false, 228, 224, Mode::Buffer}, {{5, 0, 0}, false, 124, 120, Mode::Buffer},
        {{7, 0, 0}, false, 100, 96, Mode::Buffer},  {{4, 0, 0}, true, 36, 32, Mode::Buffer},
        {{6, 0, 0}, true, 40, 36, Mode::Buffer},    {{7, 0, 0}, false, 0, 0, Mode::Buffer},
        {{7, 0, 0}, false, 0, 0, Mode::File},       {{7, 0, 0}, true, 0, 0, Mode::Buffer},
        {{7, 0, 0}, true, 0, 0, Mode::File},
        // clang-format on
    };
    for (auto const& test : cases) {
        auto const& [version, dataTable, size, expectedSize, mode] = test;
        SCOPED_TRACE(VersionName(version) + (dataTable ? " data" : " symbol") +
                     (mode == Mode::File ? " file" : " buffer"));
        SymbolTableBuilder builder(version);
        for (char const* name : {"a", "b"}) {
            builder.AddModule(Module(name, name));
            builder.AddData(Bytes(name));
        }
        std::string const kind = dataTable ? "data" : "symbol";
        TableDamage damage;
        (dataTable ? damage.dataTableTrailingBytes : damage.symbolTrailingBytes) =
            size == 0 ? 0 : 4;
        builder.SetDamage(damage);
        LoadedTable loaded;
        Messages expected = {"Invalid " + kind + " table size: " + std::to_string(size) +
                             ", expected: " + std::to_string(expectedSize) + "\n"};
        EXPECT_FALSE(loaded.Load(builder, mode, [&](ParamTest::TableFile& file) {
            if (test.size != 0)
                return;
            uint32_t const entrySize = test.dataTable
                                           ? SymbolTableBuilder::DataEntrySize(test.version)
                                           : SymbolTableBuilder::SymbolEntrySize(test.version);
            (test.dataTable ? file.dataTable : file.symbol).Size =
                0xFFFFFFF0U / entrySize * entrySize;
            // The data table's refusal carries the symbol section's numbers, as it always has.
            expected = {"Failed to read " + kind +
                            " table buffer (offset: " + std::to_string(file.symbol.Offset) +
                            ", size: " + std::to_string(file.symbol.Size) + ") from binary file\n",
                        "Failed to read " + kind + " table from binary file\n"};
        }));
        EXPECT_EQ(loaded.Log().Messages(), expected);
        EXPECT_EQ(loaded.Table().Modules().Count(), 0u);
    }
}

// ---- Pointers and shared objects ----------------------------------------------------------------

// A reader entry holds, one after another: a good identifier, 0, an identifier past the table,
// and two bytes, which are too few for one more.
TEST(PointerTest, ReadPointerEntryFindsTheBlockOrSaysWhyNot)
{
    for (FileVersion const version :
         {FileVersion{1, 1, 0}, FileVersion{3, 1, 0}, FileVersion{5, 0, 0}, FileVersion{7, 0, 0}}) {
        SCOPED_TRACE(VersionName(version));
        SymbolTableBuilder builder(version);
        uint32_t const block = builder.AddData(Bytes("pointed at"));
        TuningWriter::ByteSink pointers(TuningWriter::AlignmentFor(version));
        for (uint32_t id : {block, 0u, 99u})
            pointers.PutU32(id);
        uint8_t const tail[2] = {1, 2};
        pointers.PutUnaligned(tail, sizeof(tail));
        ModuleEntry reader = Module("reader", "");
        reader.data = pointers.Bytes();
        uint32_t const readerId = builder.AddModule(reader);

        LoadedTable loaded;
        ASSERT_TRUE(loaded.Load(builder, Mode::Buffer));
        ParameterFileSymbolTableEntry entry, target;
        ASSERT_TRUE(loaded.Table().Find(entry, readerId, true));
        ASSERT_TRUE(entry.ReadPointerEntry(target));
        EXPECT_EQ(TextOf(target), "pointed at");

        std::string const count = std::to_string(loaded.Table().GetDataCount());
        std::string const unreadable =
            "ReadPointerEntry: Unable to read pointer entry from Symbol table\n";
        auto refused = [&](Messages const& messages) {
            loaded.Log().Clear();
            EXPECT_FALSE(entry.ReadPointerEntry(target));
            EXPECT_EQ(loaded.Log().Messages(), messages);
        };
        refused({unreadable});
        refused({"Find: Symbol table entry ID 99 out of range 1 - " + count + "\n",
                 "ReadPointerEntry: Unable to find pointer entry ID 99 in Symbol table" + count +
                     "\n"});
        refused({"Failed to read 4 bytes from binary file offset " +
                     std::to_string(entry.Position) + ", length " + std::to_string(entry.Size) +
                     "\n",
                 "Insufficient data to read variable from symbol table entry\n", unreadable});
    }
}

// Two data entries with equal bytes (one group) and one block of its own.
class SharedObjectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SymbolTableBuilder builder({7, 0, 0});
        m_original = builder.AddData(Bytes("equal"));
        uint32_t const copy = builder.AddData(Bytes("equal"), m_original);
        m_alone = builder.AddData(Bytes("alone"));
        ASSERT_TRUE(m_loaded.Load(builder, Mode::Buffer));
        ASSERT_TRUE(Table().Find(m_first, m_original, false));
        ASSERT_TRUE(Table().Find(m_second, copy, false));
    }

    ParameterFileSymbolTable& Table() { return m_loaded.Table(); }

    LoadedTable m_loaded;
    uint32_t m_original = 0, m_alone = 0;
    ParameterFileSymbolTableEntry m_first, m_second;
};

// Objects are shared per group and Loc and freed by the last release; the emptied record is used
// again by the next load of the block. A block that is not shared takes no record, and calls that
// do not fit the tables are logged.
TEST_F(SharedObjectTest, ObjectIsSharedPerLocAndFreedByTheLastRelease)
{
    int objectA = 0, objectB = 0;
    EXPECT_EQ(m_first.SetFromDupObject(8), nullptr);
    DupObjInfo* published = m_first.SetDupObject(&objectA, 8);
    ASSERT_NE(published, nullptr);
    EXPECT_EQ(m_second.SetFromDupObject(8), &objectA);
    EXPECT_EQ(published->RefCount.load(), 2u);
    EXPECT_EQ(m_second.SetFromDupObject(9), nullptr);
    ASSERT_NE(m_second.SetDupObject(&objectB, 9), nullptr);
    ASSERT_NE(Table().GetDuplicates(false, 1), nullptr);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 2u);

    EXPECT_FALSE(Table().ReleaseDupObject(&objectA));
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));
    EXPECT_EQ(Table().FindDupObject(&objectA), nullptr);
    // Gone from the map, the address is no longer shared: its holder frees it.
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));
    EXPECT_TRUE(Table().ReleaseDupObject(&objectB));
    EXPECT_FALSE(Table().ReleaseDupObject(nullptr));
    DupObjInfo* again = m_second.SetDupObject(&objectA, 8);
    EXPECT_EQ(again, published);
    EXPECT_EQ(again->RefCount.load(), 1u);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 2u);
    EXPECT_TRUE(Table().ReleaseDupObject(&objectA));

    ParameterFileSymbolTableEntry alone;
    ASSERT_TRUE(Table().Find(alone, m_alone, false));
    EXPECT_EQ(alone.SetDupObject(&objectA, 8), nullptr);
    EXPECT_EQ(alone.GetDupObject(8), nullptr);
    EXPECT_EQ(Table().FindDupObject(&objectA), nullptr);
    EXPECT_TRUE(m_loaded.Log().Messages().empty());

    unsigned int const past = Table().GetDataCount() + 1;
    EXPECT_EQ(Table().GetDupObjectInternal(false, past, 8, true), nullptr);
    EXPECT_EQ(Table().SetDupObject(false, past, &objectA, 8), nullptr);
    EXPECT_EQ(m_loaded.Log().Count("SetDupObject called with invalid values"), 1u);
    EXPECT_EQ(m_loaded.Log().Count(", IsModule: 0, ID: " + std::to_string(past) + ", "), 2u);
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
    std::atomic<int> published{0}, privateCopies{0}, sharedUses{0};
    for (int round = 0; round < Rounds; ++round) {
        std::atomic<int> ready{0};
        int* held[2] = {nullptr, nullptr};
        auto reader = [&](ParameterFileSymbolTableEntry& entry, size_t index) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            held[index] = static_cast<int*>(entry.SetFromDupObject(12));
            if (held[index] != nullptr) {
                sharedUses.fetch_add(1);
                return;
            }
            held[index] = new int(static_cast<int>(index));
            (entry.SetDupObject(held[index], 12) != nullptr ? published : privateCopies)
                .fetch_add(1);
        };
        std::thread one(reader, std::ref(m_first), 0);
        std::thread two(reader, std::ref(m_second), 1);
        one.join();
        two.join();
        // Both holders give their objects back; each object is freed exactly once.
        for (int* object : held)
            if (Table().ReleaseDupObject(object))
                delete object;
    }
    EXPECT_EQ(published.load(), Rounds);
    EXPECT_EQ(privateCopies.load() + sharedUses.load(), Rounds);
    EXPECT_EQ(Table().GetDuplicates(false, 1)->Count(), 1u);
}

// ---- Definition records -------------------------------------------------------------------------

TuningWriter::DefinitionStructure Struct(uint32_t id, std::string name,
                                         std::vector<DefinitionElement> elements = {})
{
    return {id, std::move(name), std::nullopt, std::move(elements)};
}

TuningWriter::DefinitionModule DefModule(uint32_t structureId, std::string name)
{
    return {structureId, std::move(name), std::nullopt, ""};
}

// Reads the section a builder lays out, through a table of a file of the given alignment that
// logs through a manager.
class DefinitionTableTest : public testing::Test
{
protected:
    bool Read(DefinitionTableBuilder const& builder, unsigned char alignment = 1, bool keep = true,
              unsigned int cut = 0, VersionUnion version = VersionUnion(7, 0, 0))
    {
        m_bytes = builder.Build(alignment);
        m_table = std::make_unique<ParameterFileSymbolTable>(&m_manager, alignment, version);
        m_pos = 0;
        auto const length = static_cast<unsigned int>(m_bytes.size());
        return m_table->ReadDefinitions(m_bytes.data(), length, m_pos, length - cut, keep);
    }

    ParameterDefinitionStructure* Find(unsigned int id) { return m_table->FindStructure(id); }

    ParameterDefinitionElement* Child(unsigned int id, char const* name)
    {
        ParameterDefinitionStructure* structure = Find(id);
        return structure != nullptr ? structure->FindChild(Hash(name)) : nullptr;
    }

    ParamTest::LogCapture m_log;
    ParamTest::TestSetManager m_manager;
    std::vector<uint8_t> m_bytes;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    unsigned int m_pos = 0;
};

// One element in a structure of its own: what it adds to Size behind the load limit, and the
// width of one element.
TEST_F(DefinitionTableTest, ElementAddsItsLayoutToTheStructure)
{
    using TuningWriter::ElementFourByte;
    // Type, minimum and maximum count, flags, what it adds to Size, the width of one element.
    std::tuple<ElementType, uint32_t, uint32_t, uint16_t, uint32_t, unsigned long> const cases[] = {
        // clang-format off
        {ElementType::UInt32, 1, 1, 0, 4, 4}, {ElementType::Int8, 1, 1, 0, 1, 1},
        {ElementType::ByteLike, 3, 3, 0, 3 + 4, 1}, {ElementType::ShortLike, 1, 1, 0, 2, 2},
        {ElementType::UInt16, 4, 4, 0, 8 + 4, 2}, {ElementType::IntLike, 1, 1, 0, 4, 4},
        {ElementType::UIntLike2, 2, 2, 0, 8 + 4, 4}, {ElementType::Double, 1, 1, 0, 8, 8},
        {ElementType::LongLike, 2, 2, 0, 16 + 4, 8},
        {ElementType::UInt8, 2, 2, ElementFourByte, 8 + 4, 1},
        {ElementType::Double, 3, 3, ElementFourByte, 12 + 4, 8},
        {ElementType::Float, 2, 3, 0, 8, 4}, {ElementType::Double, 1, 2, 0, 8, 8},
        {ElementType::Int64, 0, 1, 0, 8, 8},
        {ElementType::String, 1, 1, 0, 8, 1}, {ElementType::String, 3, 3, 0, 24 + 4, 1},
        {ElementType::String, 0, 4, 0, 8, 1}, {static_cast<ElementType>(28), 2, 3, 0, 8, 1},
        {static_cast<ElementType>(40), 1, 1, 0, 8, 0}, {static_cast<ElementType>(7), 1, 1, 0, 0, 0},
        // clang-format on
    };
    for (auto const& [type, minimum, maximum, flags, size, width] : cases) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(type) << " " << minimum << "/"
                                        << maximum << " flags " << flags);
        ASSERT_TRUE(Read(DefinitionTableBuilder().AddStructure(
            Struct(1, "S", {Member("m", type, minimum, maximum, flags)}))));
        ASSERT_NE(Child(1, "m"), nullptr);
        EXPECT_EQ(
            std::make_tuple(Find(1)->Size, Child(1, "m")->Info->Offset, Child(1, "m")->GetSize()),
            std::make_tuple(4 + size, 4u, width));
    }
}

// Nested structures are sized first whatever their order; a structure that holds itself ends the
// recursion at the size already set, and a missing one is logged and takes no room.
TEST_F(DefinitionTableTest, NestedStructuresAreSizedFirstWhateverTheirOrder)
{
    ASSERT_TRUE(Read(
        DefinitionTableBuilder()
            .AddStructure(Struct(1, "Outer",
                                 {StructMember("one", 2), StructMember("three", 2, 3, 3),
                                  StructMember("empty", 3), StructMember("optional", 2, 0, 1),
                                  StructMember("missing", 99), Member("last", ElementType::UInt8)}))
            .AddStructure(Struct(
                2, "Inner", {Member("a", ElementType::UInt16), Member("b", ElementType::Int8)}))
            .AddStructure(Struct(3, "Empty"))
            .AddStructure(
                Struct(4, "Self", {Member("v", ElementType::UInt32), StructMember("me", 4)}))));
    // Inner: its length word and 3 bytes; Empty: its length word only.
    EXPECT_EQ(std::make_tuple(Find(1)->Size, Find(2)->Size, Find(3)->Size, Find(4)->Size),
              std::make_tuple(49u, 7u, 4u, 16u));
    std::pair<char const*, uint32_t> const offsets[] = {
        {"one", 4},       {"three", 11},   {"empty", 11 + 21 + 4},
        {"optional", 40}, {"missing", 48}, {"last", 48}};
    for (auto const& expected : offsets) {
        EXPECT_EQ(Child(1, expected.first)->Info->Offset, expected.second) << expected.first;
    }
    EXPECT_EQ(std::make_pair(Child(1, "one")->Info->Structure, Child(1, "one")->GetSize()),
              std::make_pair(Find(2), 7ul));
    EXPECT_EQ(std::make_pair(Child(1, "missing")->Info->Structure, Child(1, "missing")->GetSize()),
              std::make_pair(static_cast<ParameterDefinitionStructure*>(nullptr), 0ul));
    EXPECT_EQ(m_log.Messages(),
              Messages{"PopulateOffsetSizeStructure structure not found: ID: 99, NameHash: " +
                       std::to_string(static_cast<long long>(Hash("missing"))) + "\n"});
}

// A file's layout holds only what its version writes: a structure's length word from 6.0.0 on, a
// fixed-length array's count from 7.0.0 on. Counts and sizes from the file multiply: a layout past
// 32 bits stays at the largest size, and what stands behind it lies beyond any entry.
TEST_F(DefinitionTableTest, LayoutFollowsTheFileVersion)
{
    // Version, the sizes of Inner and Outer, the offset of Outer's last member.
    std::tuple<VersionUnion, uint32_t, uint32_t, uint32_t> const cases[] = {
        {VersionUnion(7, 0, 0), 4 + 4 + 4 + 8, 4 + 20 + 4 + 6 + 1, 34},
        {VersionUnion(6, 0, 0), 4 + 4 + 8, 4 + 16 + 6 + 1, 26},
        {VersionUnion(5, 0, 0), 4 + 8, 12 + 6 + 1, 18},
    };
    DefinitionTableBuilder builder;
    builder
        .AddStructure(Struct(1, "Outer",
                             {StructMember("inner", 2), Member("values", ElementType::UInt16, 3, 3),
                              Member("last", ElementType::UInt8)}))
        .AddStructure(
            Struct(2, "Inner",
                   {Member("a", ElementType::UInt32), Member("pair", ElementType::Float, 2, 2)}));
    for (auto const& [version, inner, outer, lastOffset] : cases) {
        SCOPED_TRACE(version.Parts.Major);
        ASSERT_TRUE(Read(builder, 1, true, 0, version));
        EXPECT_EQ(std::make_tuple(Find(2)->Size, Find(1)->Size, Child(1, "last")->Info->Offset),
                  std::make_tuple(inner, outer, lastOffset));
    }

    DefinitionTableBuilder wide;
    wide.AddStructure(
            Struct(1, "Outer",
                   {StructMember("blocks", 2, 65535, 65535), Member("after", ElementType::UInt8)}))
        .AddStructure(Struct(2, "Block", {Member("wide", ElementType::UInt64, 65535, 65535)}));
    ASSERT_TRUE(Read(wide));
    EXPECT_EQ(Find(2)->Size, 4u + 4 + 8u * 65535);
    EXPECT_EQ(Child(1, "after")->Info->Offset, UINT32_MAX);
    EXPECT_EQ(Find(1)->Size, UINT32_MAX);
}

TEST_F(DefinitionTableTest, ChainDeeperThanAThreadStackIsSizedAndWalked)
{
    // Structure n holds structure n + 1 and a byte; the last holds a byte only. A damaged or
    // hostile file can nest this deep, and sizing or verifying it must not recurse per level.
    constexpr uint32_t Depth = 50000;
    DefinitionTableBuilder builder;
    for (uint32_t id = 1; id < Depth; ++id)
        builder.AddStructure(
            Struct(id, "S", {StructMember("inner", id + 1), Member("tail", ElementType::UInt8)}));
    builder.AddStructure(Struct(Depth, "S", {Member("tail", ElementType::UInt8)}));
    ASSERT_TRUE(Read(builder));
    // 4 bytes of load limit and a byte per level, the innermost level included.
    EXPECT_EQ(Find(Depth)->Size, 5u);
    EXPECT_EQ(Find(1)->Size, 5u * Depth);
    EXPECT_EQ(Child(Depth - 1, "tail")->Info->Offset, 4u + 5);
    // Every element verified down to the last level but one tail.
    for (uint32_t id = 1; id < Depth; ++id)
        Child(id, "inner")->Verified = Child(id, "tail")->Verified = 1;
    PList<unsigned int> visited;
    EXPECT_FALSE(Find(1)->IsVerified(visited));
    Child(Depth, "tail")->Verified = 1;
    visited.Clear();
    EXPECT_TRUE(Find(Depth - 100)->IsVerified(visited));
}

// The first of two records of one module name, structure ID or child name is kept; both children
// of one name take room.
TEST_F(DefinitionTableTest, DuplicatesKeepTheFirstRecord)
{
    DefinitionTableBuilder builder;
    builder.AddModule(DefModule(1, "Mod"))
        .AddModule({2, "Other", Hash("Mod"), ""})
        .AddStructure(Struct(1, "First",
                             {Member("x", ElementType::UInt32), Member("x", ElementType::UInt16)}))
        .AddStructure(Struct(1, "Second"));
    ASSERT_TRUE(Read(builder));
    EXPECT_EQ(
        m_log.Messages(),
        (Messages{
            "Error: Duplicate structure Hash (" + std::to_string(Hash("Mod")) +
                ") found in definition table: Mod / Other\n",
            "Duplicated hash found in Children (" + std::to_string(Hash("x")) + ") object First\n",
            "Error: Duplicate structure ID (1) found in definition table: First / Second\n"}));
    EXPECT_EQ(m_table->GetDefinitionModules()->size(), 1u);
    EXPECT_STREQ(m_table->FindModuleStructure(Hash("Mod"))->Name, "First");
    EXPECT_EQ(Find(1)->Size, 4u + 4 + 2);
    EXPECT_EQ(Child(1, "x")->Info->Type, TypeUInt32);
}

class DefinitionRecordKindTest : public DefinitionTableTest,
                                 public testing::WithParamInterface<unsigned char>
{
};

// Records of every kind, some skipped, leave the walk on the next record; without keep every
// record is stepped over and dropped. A module element is built only through a module record
// that names a structure.
TEST_P(DefinitionRecordKindTest, SkippedRecordsLeaveTheWalkOnTheNextRecord)
{
    DefinitionElement unnamed = Member("", ElementType::UInt8);
    unnamed.nameLengthOverride = 0;
    DefinitionTableBuilder builder;
    builder.AddOpaque({0, "abc", ""})
        .AddModule({10, "Alpha", std::nullopt, "notes"})
        .AddOpaque({1, "hello!", ""})
        .AddEnum({3, "Colour", std::nullopt, {{1, true, "Red", "r"}, {2, false, "Green", ""}}})
        .AddOpaque({2, "x", "yz12345"})
        .AddStructure(Struct(10, "AlphaType", {Member("gain", ElementType::Float, 2, 2), unnamed}))
        .AddStructure(Struct(12, "Gamma"))
        .AddEnum({4, "Empty", std::nullopt, {}})
        .AddModule(DefModule(11, "Beta"));
    ASSERT_TRUE(Read(builder, GetParam()));
    EXPECT_EQ(m_pos, m_bytes.size());
    EXPECT_TRUE(m_log.Messages().empty());
    EXPECT_EQ(m_table->GetDefinitionModules()->size(), 2u);
    ParameterDefinitionStructure const* structure = Find(10);
    EXPECT_EQ(m_table->FindModuleStructure(Hash("Alpha")), structure);
    EXPECT_EQ(m_table->FindModuleStructure(Hash("Beta")), nullptr); // no structure 11
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Gamma")), nullptr); // no module record
    EXPECT_EQ(Find(11), nullptr);
    std::unique_ptr<ParameterDefinitionElement> module(m_table->BuildModuleElement(Hash("Alpha")));
    ASSERT_NE(module, nullptr);
    EXPECT_TRUE(!module->FromFile && module->Info->Structure == structure);
    EXPECT_EQ(structure->NameHash, Hash("AlphaType"));
    ParameterDefinitionElement const* gain = Child(10, "gain");
    ASSERT_NE(gain, nullptr);
    EXPECT_TRUE(gain->FromFile && gain->Info->Flags == ElementFixedCount);
    // A stored name length of 0 hashes as the empty name instead of running off the record.
    EXPECT_NE(structure->FindChild(Hash("")), nullptr);
    EXPECT_EQ(structure->Size, 4u + 8 + 4 + 1);

    ASSERT_TRUE(Read(builder, GetParam(), false));
    EXPECT_EQ(m_pos, m_bytes.size());
    EXPECT_TRUE(m_table->GetDefinitionModules()->empty());
    EXPECT_TRUE(m_table->GetDefinitionStructures()->empty());
    EXPECT_TRUE(m_log.Messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Alignments, DefinitionRecordKindTest, testing::Values(1, 8));

// An undefined kind stops the walk and keeps what came before; the line names the manager.
TEST_F(DefinitionTableTest, UndefinedKindStopsTheWalkAndKeepsWhatCameBefore)
{
    for (unsigned int kind : {3u, 7u, 255u}) {
        m_log.Clear();
        DefinitionTableBuilder builder;
        builder.AddModule(DefModule(1, "Mod"))
            .AddRawKind({static_cast<uint8_t>(kind)})
            .AddModule(DefModule(2, "Later"));
        EXPECT_FALSE(Read(builder, 8));
        EXPECT_EQ(m_log.Messages(), Messages{"Error: Unexpected type found in definition table (" +
                                             std::to_string(kind) + ")\n"});
        EXPECT_EQ(m_log.Count("(TestSetManager): Error: Unexpected type"), 1u);
        EXPECT_EQ(m_table->GetDefinitionModules()->size(), 1u);
        EXPECT_EQ(m_table->GetDefinitionModules()->count(Hash("Mod")), 1u);
    }
}

// A section that ends inside a record fails at the record; one that does not lie within the
// buffer is refused before anything is read. A table that read none has no definitions.
TEST_F(DefinitionTableTest, SectionThatEndsInsideARecordFails)
{
    ParameterFileSymbolTable empty(nullptr, 1, VersionUnion(7, 0, 0));
    EXPECT_EQ(empty.GetDefinitionStructures(), nullptr);
    EXPECT_EQ(empty.FindStructure(1), nullptr);
    EXPECT_EQ(empty.BuildModuleElement(Hash("Mod")), nullptr);
    DefinitionElement last = Member("a", ElementType::UInt32);
    last.skipped = "abcd";
    DefinitionTableBuilder builder;
    builder.AddModule(DefModule(1, "Mod"))
        .AddStructure(Struct(1, "S", {Member("b", ElementType::UInt8), last}));
    EXPECT_FALSE(Read(builder, 1, true, 2));
    auto const full = static_cast<unsigned int>(m_bytes.size());
    EXPECT_EQ(m_log.Messages(),
              Messages{"Failed to read 4 bytes from binary file offset " +
                       std::to_string(full - 4) + ", length " + std::to_string(full - 2) + "\n"});
    EXPECT_NE(m_table->FindModuleStructure(Hash("Mod")), nullptr);
    for (unsigned int const start : {0u, 1u}) {
        unsigned int pos = start;
        EXPECT_EQ(m_table->ReadDefinitions(m_bytes.data(), full, pos, full, true), start == 0);
        EXPECT_EQ(pos, start == 0 ? full : 1u);
    }
}

// Structure 1 {a, s: 2}, structure 2 {c, back: 1}: a cycle through both. Holder refers to Leaf
// and to Childless; Lonely has no children and nothing refers to it.
class DefinitionVerificationTest : public DefinitionTableTest
{
protected:
    void SetUp() override
    {
        DefinitionTableBuilder builder;
        builder.AddModule(DefModule(1, "Mod"))
            .AddModule(DefModule(3, "Bare"))
            .AddModule(DefModule(6, "Alone"))
            .AddStructure(
                Struct(1, "One", {Member("a", ElementType::UInt32), StructMember("s", 2)}))
            .AddStructure(
                Struct(2, "Two", {Member("c", ElementType::UInt8), StructMember("back", 1, 0, 1)}))
            .AddStructure(Struct(3, "Childless"))
            .AddStructure(Struct(4, "Leaf", {Member("d", ElementType::Int8)}))
            .AddStructure(Struct(5, "Holder", {StructMember("leaf", 4), StructMember("none", 3)}))
            .AddStructure(Struct(6, "Lonely"));
        ASSERT_TRUE(Read(builder));
    }

    void Verify(std::initializer_list<std::pair<unsigned int, char const*>> children, int on = 1)
    {
        for (auto const& child : children)
            Child(child.first, child.second)->Verified = on;
    }

    bool ModuleVerified()
    {
        std::unique_ptr<ParameterDefinitionElement> module(
            m_table->BuildModuleElement(Hash("Mod")));
        module->Verified = 1;
        PList<unsigned int> visited;
        return module->IsStructVerified(visited);
    }
};

// A module is verified only when every child below it is; freeing a child takes it out of its
// structure, and clearing all releases every record.
TEST_F(DefinitionVerificationTest, VerifiedOnlyWhenEveryChildBelowIs)
{
    EXPECT_FALSE(ModuleVerified());
    Verify({{1, "a"}, {1, "s"}});
    EXPECT_FALSE(ModuleVerified()); // "c" below "s" is not verified
    Verify({{2, "c"}});
    // "back" leads to One, which is being walked already: it is left alone, verified or not.
    EXPECT_TRUE(ModuleVerified());
    Verify({{2, "back"}});
    Verify({{1, "a"}}, 0);
    EXPECT_FALSE(ModuleVerified());
    PList<unsigned int> visited;
    EXPECT_TRUE(Find(3)->IsVerified(visited)); // no children
    EXPECT_EQ(visited.Count(), 1u);

    ParameterDefinitionStructure* one = Find(1);
    one->FreeChild(0, Child(1, "a"));
    one->FreeChild(Hash("a"), nullptr);
    EXPECT_NE(Child(1, "a"), nullptr);
    one->FreeChild(Hash("a"), Child(1, "a"));
    EXPECT_EQ(Child(1, "a"), nullptr);
    EXPECT_EQ(one->Children.size(), 1u);
    m_table->ClearDefinitions(true);
    EXPECT_EQ(m_table->GetDefinitionModules(), nullptr);
    EXPECT_EQ(m_table->GetDefinitionStructures(), nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Mod")), nullptr);
}

// Clearing keeps only what failed. With nothing verified, a structure without children goes, with
// its module, unless a failed child refers to it. In a partly verified module what fails stays,
// and the entry reader then finds a cleared child verified without Info, to be read straight, and
// no member the file lacks; once verified all the way down the module goes whole.
TEST_F(DefinitionVerificationTest, ClearDropsWhatIsVerifiedAllTheWayDown)
{
    m_table->ClearDefinitions(false);
    EXPECT_EQ(Find(6), nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Alone")), nullptr);
    EXPECT_NE(m_table->FindModuleStructure(Hash("Bare")), nullptr);
    Verify({{5, "none"}});
    m_table->ClearDefinitions(false);
    EXPECT_EQ(Child(5, "none")->Info, nullptr);
    EXPECT_EQ(Find(3), nullptr);

    Verify({{1, "a"}, {1, "s"}, {2, "back"}});
    ParameterDefinitionStructure* two = Find(2);
    m_table->ClearDefinitions(false);
    ASSERT_EQ(Find(2), two);
    EXPECT_EQ(Child(1, "s")->Info->Structure, two);
    EXPECT_NE(Child(2, "c")->Info, nullptr);
    ParameterDefinitionElement const* a = Child(1, "a");
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->Verified.load() == 1 && a->Info == nullptr && a->GetSize() == 0u);
    EXPECT_EQ(Child(1, "notInFile"), nullptr);

    Verify({{2, "c"}});
    m_table->ClearDefinitions(false);
    EXPECT_TRUE(Find(1) == nullptr && Find(2) == nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Mod")), nullptr);
    EXPECT_NE(Find(5), nullptr);
}

// An enumeration record read behind its kind; a cut one fails its reader and holds nothing.
TEST(ParameterDefinitionEnumTest, ReadsItsRecordBehindTheKind)
{
    DefinitionTableBuilder builder;
    builder.AddEnum({9, "Mode", std::nullopt, {{1, true, "On", "lit"}, {0, false, "Off", ""}}});
    std::vector<uint8_t> const bytes = builder.Build(1);
    ParameterByteReader reader(bytes.data(), static_cast<unsigned int>(bytes.size()), 1, nullptr,
                               1);
    ParameterDefinitionEnum enumeration(reader);
    EXPECT_EQ(reader.Position(), bytes.size());
    EXPECT_EQ(std::make_tuple(enumeration.ID, std::string(enumeration.Name), enumeration.NameHash),
              std::make_tuple(9u, std::string("Mode"), Hash("Mode")));
    ASSERT_EQ(enumeration.Values.Count(), 2u);
    EXPECT_TRUE(enumeration.Values[0]->Flag && !enumeration.Values[1]->Flag);
    EXPECT_EQ(std::string(enumeration.Values[0]->Text) + enumeration.Values[1]->Name, "litOff");
    EXPECT_EQ(enumeration.Values[0]->Value + enumeration.Values[1]->Value, 1u);

    ParamTest::LogCapture log;
    ParameterByteReader shortReader(bytes.data(), 12, 1, nullptr, 1);
    ParameterDefinitionEnum cut(shortReader);
    EXPECT_TRUE(shortReader.Failed() && cut.Values.Count() == 0u);
    EXPECT_EQ(log.Count("Failed to read 5 bytes from binary file offset 9, length 12"), 1u);
}

} // namespace
