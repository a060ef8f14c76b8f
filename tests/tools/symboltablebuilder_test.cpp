// SPDX-License-Identifier: Apache-2.0
// The symbol table builder read back field by field: identifiers, section sizes and the shape of
// entries per version, placeholders and shared data blocks.
#include "tools/writer/symboltablebuilder.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parsercrc.h"

#include "tests/tools/readback.h"

namespace {

using TuningWriter::FileVersion;
using TuningWriter::ModuleEntry;
using TuningWriter::NoModuleModeId;
using TuningWriter::SymbolTableBuilder;
using WriterTest::ReadField;
using WriterTest::ReadRaw;
using WriterTest::ReadText;

ModuleEntry Module(std::string name, std::vector<uint8_t> data)
{
    ModuleEntry entry;
    entry.name = std::move(name);
    entry.moduleVersion = {3, 4, 0};
    entry.modeId = 0x01000002;
    entry.data = std::move(data);
    return entry;
}

struct SizeCase
{
    char const* name;
    FileVersion version;
    std::vector<uint32_t> ids; ///< of module, module, data in the order added
    size_t symbolSize;
    size_t dataTableSize;
};

class SymbolTableBuilderSizeTest : public ::testing::TestWithParam<SizeCase>
{
};

// Identifiers and section sizes: modules and data share one sequence below 4.0.0; from 6.0.0 a
// placeholder takes position 0 of both tables; a padded file's size counts 76 bytes an entry.
TEST_P(SymbolTableBuilderSizeTest, IdentifiersAndSectionSizesFollowTheVersion)
{
    SizeCase const& test = GetParam();
    SymbolTableBuilder builder(test.version);
    std::vector<uint32_t> ids;
    ids.push_back(builder.AddModule(Module("a", {1, 2, 3})));
    ids.push_back(builder.AddModule(Module("b", {4})));
    ids.push_back(builder.AddData({5, 6}));
    EXPECT_EQ(ids, test.ids);

    SymbolTableBuilder::Sections const sections = builder.Build();
    EXPECT_EQ(sections.symbol.size(), test.symbolSize);
    EXPECT_EQ(sections.dataTable.size(), test.dataTableSize);
    EXPECT_EQ(sections.symbol.size() % SymbolTableBuilder::SymbolEntrySize(test.version), 0u);
}

INSTANTIATE_TEST_SUITE_P(Versions, SymbolTableBuilderSizeTest,
                         ::testing::Values(SizeCase{"V1_0_1", {1, 0, 1}, {1, 2, 3}, 192, 0},
                                           SizeCase{"V1_1_0", {1, 1, 0}, {1, 2, 3}, 228, 0},
                                           SizeCase{"V3_0_1", {3, 0, 1}, {1, 2, 3}, 168, 0},
                                           SizeCase{"V3_1_0", {3, 1, 0}, {1, 2, 3}, 180, 0},
                                           SizeCase{"V4_0_0", {4, 0, 0}, {1, 2, 1}, 120, 16},
                                           SizeCase{"V7_0_0", {7, 0, 0}, {1, 2, 1}, 96, 24}),
                         [](::testing::TestParamInfo<SizeCase> const& test) {
                             return std::string(test.param.name);
                         });

TEST(SymbolTableBuilderTest, PaddedEntriesStep72BytesWithTheCountedRestAtTheEnd)
{
    SymbolTableBuilder builder({2, 0, 0});
    builder.AddModule(Module("first", {1, 2, 3}));
    builder.AddModule(Module("second", {4}));
    std::vector<uint8_t> const symbol = builder.Build().symbol;
    ASSERT_EQ(symbol.size(), 152u);

    auto const length = static_cast<unsigned int>(symbol.size());
    unsigned int pos = 72;
    ParameterByteReader reader(symbol.data(), length, pos, 8, nullptr);
    EXPECT_EQ(ReadField(reader, 4), 2u);
    EXPECT_EQ(ReadText(reader, 32), "second");
    EXPECT_EQ(ReadField(reader, 8), 0x0000000000040003ull);
    EXPECT_EQ(ReadField(reader, 4), 0x01000002u);
    EXPECT_EQ(ReadField(reader, 4), 8u); // the first block padded to 8 bytes
    EXPECT_EQ(ReadField(reader, 4), 1u);
    EXPECT_EQ(pos, 144u);
    EXPECT_EQ(ReadRaw(reader, 8), 0u);
}

// From 6.0.0: placeholders at position 0, name hashes, and duplicates that point at the block of
// the entry they repeat, with its identifier as their DuplicateID.
TEST(SymbolTableBuilderTest, DuplicatesShareTheFirstBlockAndItsIdentifier)
{
    SymbolTableBuilder builder({7, 0, 0});
    uint32_t const module = builder.AddModule(Module("FLIndicesType", {9, 9}));
    uint32_t const original = builder.AddData({1, 2, 3, 4});
    uint32_t const copy = builder.AddData({1, 2, 3, 4}, original);
    uint32_t const later = builder.AddData({7}, copy);
    SymbolTableBuilder::Sections const sections = builder.Build();
    // One copy of each distinct block.
    EXPECT_EQ(sections.data.size(), 6u);

    auto const symbolLength = static_cast<unsigned int>(sections.symbol.size());
    unsigned int pos = 0;
    ParameterByteReader symbols(sections.symbol.data(), symbolLength, pos, 1, nullptr);
    uint64_t const placeholder[] = {0, 0, NoModuleModeId, 0, 0, 0};
    unsigned int const widths[] = {8, 8, 4, 4, 4, 4};
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(ReadField(symbols, widths[i]), placeholder[i]) << "placeholder field " << i;
    EXPECT_EQ(ReadField(symbols, 8), ParserCRC64::HashName("FLIndicesType"));
    EXPECT_EQ(ReadField(symbols, 8), 0x0000000000040003ull);
    EXPECT_EQ(ReadField(symbols, 4), 0x01000002u);
    EXPECT_EQ(ReadField(symbols, 4), 0u);
    EXPECT_EQ(ReadField(symbols, 4), 2u);
    EXPECT_EQ(ReadField(symbols, 4), module);

    // | Offset | Size | DuplicateID | per data entry, after the zeroed placeholder.
    auto const tableLength = static_cast<unsigned int>(sections.dataTable.size());
    ASSERT_EQ(tableLength, 48u);
    pos = 12;
    ParameterByteReader table(sections.dataTable.data(), tableLength, pos, 1, nullptr);
    for (uint32_t id : {original, copy, later}) {
        SCOPED_TRACE(id);
        EXPECT_EQ(ReadField(table, 4), 2u);
        EXPECT_EQ(ReadField(table, 4), 4u);
        EXPECT_EQ(ReadField(table, 4), original);
    }
}

} // namespace
