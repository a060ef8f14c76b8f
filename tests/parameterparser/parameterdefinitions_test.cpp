// SPDX-License-Identifier: Apache-2.0
// The definition table: record reading, layout sizes, verification and trimming.
#include "parameterparser/parameterdefinitions.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/definitiontablebuilder.h"

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"

namespace {

using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionTableBuilder;
using TuningWriter::ElementType;

unsigned long Hash(char const* name)
{
    return ParserCRC64::HashName(name);
}

DefinitionElement Member(std::string name, ElementType type, uint32_t minCount = 1,
                         uint32_t maxCount = 1, uint16_t flags = 0)
{
    DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.minCount = minCount;
    element.maxCount = maxCount;
    element.flags = flags;
    return element;
}

TuningWriter::DefinitionStructure Struct(uint32_t id, std::string name,
                                         std::vector<DefinitionElement> elements = {})
{
    return {id, std::move(name), std::nullopt, std::move(elements)};
}

TuningWriter::DefinitionModule Module(uint32_t structureId, std::string name)
{
    return {structureId, std::move(name), std::nullopt, ""};
}

DefinitionElement Nested(std::string name, uint32_t id, uint32_t minCount = 1,
                         uint32_t maxCount = 1)
{
    DefinitionElement element = Member(std::move(name), ElementType::Structure, minCount, maxCount);
    element.id = id;
    return element;
}

// Reads the section a builder lays out, through a table of a file of the given alignment.
class DefinitionTableTest : public testing::Test
{
protected:
    bool Read(DefinitionTableBuilder const& builder, unsigned char alignment = 1, bool keep = true,
              unsigned int cut = 0, VersionUnion version = VersionUnion(7, 0, 0))
    {
        m_bytes = builder.Build(alignment);
        m_table = std::make_unique<ParameterFileSymbolTable>(nullptr, alignment, version);
        m_pos = 0;
        auto const length = static_cast<unsigned int>(m_bytes.size());
        return m_table->ReadDefinitions(m_bytes.data(), length, m_pos, length - cut, keep);
    }

    ParameterDefinitionElement* Child(unsigned int id, char const* name)
    {
        ParameterDefinitionStructure* structure = m_table->FindStructure(id);
        return structure != nullptr ? structure->FindChild(Hash(name)) : nullptr;
    }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_bytes;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    unsigned int m_pos = 0;
};

TEST(ParameterDefinitionElementInfoTest, CountFlagsFollowMinimumAndMaximum)
{
    struct Case
    {
        uint32_t minimum, maximum;
        uint16_t fileFlags, flags;
    } const cases[] = {
        {1, 1, 0, 0},
        {0, 0, 0, 0},
        {2, 1, 0, 0},
        {2, 2, 0, ElementFixedCount},
        {7, 7, ElementFourByte, ElementFixedCount | ElementFourByte},
        {0, 1, 0, ElementVariableCount},
        {0, 9, 0, ElementVariableCount},
        {1, 2, 0, ElementVariableCount},
        {2, 3, 0, ElementVariableCount},
        {5, 2, 0, ElementVariableCount},
    };
    for (Case const& c : cases) {
        ParameterDefinitionElementInfo info(TypeUInt32, 0, c.fileFlags, c.minimum, c.maximum);
        EXPECT_EQ(info.Flags, c.flags) << c.minimum << "/" << c.maximum;
        EXPECT_EQ(info.Count, c.maximum);
    }
}

// One element in a structure of its own: what it adds to Size, and the width of one element.
struct SizeCase
{
    ElementType type;
    uint32_t minimum, maximum;
    uint16_t flags;
    uint32_t size;
    unsigned long width;
};

class DefinitionSizeTest : public DefinitionTableTest, public testing::WithParamInterface<SizeCase>
{
};

TEST_P(DefinitionSizeTest, ElementAddsItsLayoutToTheStructure)
{
    SizeCase const c = GetParam();
    DefinitionTableBuilder builder;
    builder.AddStructure(Struct(1, "S", {Member("m", c.type, c.minimum, c.maximum, c.flags)}));
    ASSERT_TRUE(Read(builder));
    ParameterDefinitionElement* element = Child(1, "m");
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(m_table->FindStructure(1)->Size, 4 + c.size); // behind the load limit
    EXPECT_EQ(element->Info->Offset, 4u);
    EXPECT_EQ(element->GetSize(), c.width);
}

INSTANTIATE_TEST_SUITE_P(
    Layout, DefinitionSizeTest,
    testing::Values(SizeCase{ElementType::UInt32, 1, 1, 0, 4, 4},
                    SizeCase{ElementType::Int8, 1, 1, 0, 1, 1},
                    SizeCase{ElementType::ByteLike, 3, 3, 0, 3 + 4, 1},
                    SizeCase{ElementType::ShortLike, 1, 1, 0, 2, 2},
                    SizeCase{ElementType::UInt16, 4, 4, 0, 8 + 4, 2},
                    SizeCase{ElementType::IntLike, 1, 1, 0, 4, 4},
                    SizeCase{ElementType::UIntLike2, 2, 2, 0, 8 + 4, 4},
                    SizeCase{ElementType::Double, 1, 1, 0, 8, 8},
                    SizeCase{ElementType::LongLike, 2, 2, 0, 16 + 4, 8},
                    SizeCase{ElementType::UInt8, 2, 2, TuningWriter::ElementFourByte, 8 + 4, 1},
                    SizeCase{ElementType::Double, 3, 3, TuningWriter::ElementFourByte, 12 + 4, 8},
                    SizeCase{ElementType::Float, 2, 3, 0, 8, 4},
                    SizeCase{ElementType::Int64, 0, 1, 0, 8, 8},
                    SizeCase{ElementType::String, 1, 1, 0, 8, 1},
                    SizeCase{ElementType::String, 3, 3, 0, 24 + 4, 1},
                    SizeCase{ElementType::String, 0, 4, 0, 8, 1},
                    SizeCase{static_cast<ElementType>(28), 2, 3, 0, 8, 1},
                    SizeCase{static_cast<ElementType>(40), 1, 1, 0, 8, 0},
                    SizeCase{static_cast<ElementType>(7), 1, 1, 0, 0, 0}));

TEST_F(DefinitionTableTest, NestedStructuresAreSizedFirstWhateverTheirOrder)
{
    DefinitionTableBuilder builder;
    builder
        .AddStructure(Struct(1, "Outer",
                             {Nested("one", 2), Nested("three", 2, 3, 3), Nested("empty", 3),
                              Nested("optional", 2, 0, 1), Nested("missing", 99),
                              Member("last", ElementType::UInt8)}))
        .AddStructure(
            Struct(2, "Inner", {Member("a", ElementType::UInt16), Member("b", ElementType::Int8)}))
        .AddStructure(Struct(3, "Empty"))
        .AddStructure(Struct(4, "Self", {Member("v", ElementType::UInt32), Nested("me", 4)}));
    ASSERT_TRUE(Read(builder));

    EXPECT_EQ(m_table->FindStructure(2)->Size, 4u + 2 + 1);
    EXPECT_EQ(m_table->FindStructure(3)->Size, 4u); // its length word only
    // The inner call sees Size 4 + 4 already set, which ends the recursion.
    EXPECT_EQ(m_table->FindStructure(4)->Size, 8u + 8);

    std::pair<char const*, uint32_t> const offsets[] = {
        {"one", 4},       {"three", 11},   {"empty", 11 + 21 + 4},
        {"optional", 40}, {"missing", 48}, {"last", 48}};
    for (auto const& expected : offsets)
        EXPECT_EQ(Child(1, expected.first)->Info->Offset, expected.second) << expected.first;
    EXPECT_EQ(m_table->FindStructure(1)->Size, 49u);
    EXPECT_EQ(Child(1, "one")->Info->Structure, m_table->FindStructure(2));
    EXPECT_EQ(Child(1, "one")->GetSize(), 7u);
    EXPECT_EQ(Child(1, "missing")->Info->Structure, nullptr);
    EXPECT_EQ(Child(1, "missing")->GetSize(), 0u);
    EXPECT_EQ(m_log.Messages(),
              std::vector<std::string>{
                  "PopulateOffsetSizeStructure structure not found: ID: 99, NameHash: " +
                  std::to_string(static_cast<long long>(Hash("missing"))) + "\n"});
}

// A file's layout holds only what its version writes: a structure's length word from 6.0.0 on, a
// fixed-length array's count from 7.0.0 on.
TEST_F(DefinitionTableTest, LayoutFollowsTheFileVersion)
{
    struct Case
    {
        VersionUnion version;
        uint32_t inner, outer, lastOffset;
    } const cases[] = {
        {VersionUnion(7, 0, 0), 4 + 4 + 4 + 8, 4 + 20 + 4 + 6 + 1, 34},
        {VersionUnion(6, 0, 0), 4 + 4 + 8, 4 + 16 + 6 + 1, 26},
        {VersionUnion(5, 0, 0), 4 + 8, 12 + 6 + 1, 18},
    };
    DefinitionTableBuilder builder;
    builder
        .AddStructure(Struct(1, "Outer",
                             {Nested("inner", 2), Member("values", ElementType::UInt16, 3, 3),
                              Member("last", ElementType::UInt8)}))
        .AddStructure(
            Struct(2, "Inner",
                   {Member("a", ElementType::UInt32), Member("pair", ElementType::Float, 2, 2)}));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.version.Parts.Major);
        ASSERT_TRUE(Read(builder, 1, true, 0, c.version));
        EXPECT_EQ(m_table->FindStructure(2)->Size, c.inner);
        EXPECT_EQ(m_table->FindStructure(1)->Size, c.outer);
        EXPECT_EQ(Child(1, "last")->Info->Offset, c.lastOffset);
    }
}

// Counts and sizes from the file multiply: a layout past 32 bits stays at the largest size, and
// what stands behind it lies beyond any entry.
TEST_F(DefinitionTableTest, SizesPastThirtyTwoBitsStayAtTheLargest)
{
    DefinitionTableBuilder builder;
    builder
        .AddStructure(Struct(
            1, "Outer", {Nested("blocks", 2, 65535, 65535), Member("after", ElementType::UInt8)}))
        .AddStructure(Struct(2, "Block", {Member("wide", ElementType::UInt64, 65535, 65535)}));
    ASSERT_TRUE(Read(builder));
    EXPECT_EQ(m_table->FindStructure(2)->Size, 4u + 4 + 8u * 65535);
    EXPECT_EQ(Child(1, "after")->Info->Offset, UINT32_MAX);
    EXPECT_EQ(m_table->FindStructure(1)->Size, UINT32_MAX);
}

TEST_F(DefinitionTableTest, ChainDeeperThanAThreadStackIsSizedAndWalked)
{
    // Structure n holds structure n + 1 and a byte; the last holds a byte only. A damaged or
    // hostile file can nest this deep, and sizing or verifying it must not recurse per level.
    constexpr uint32_t Depth = 50000;
    DefinitionTableBuilder builder;
    for (uint32_t id = 1; id < Depth; ++id)
        builder.AddStructure(
            Struct(id, "S", {Nested("inner", id + 1), Member("tail", ElementType::UInt8)}));
    builder.AddStructure(Struct(Depth, "S", {Member("tail", ElementType::UInt8)}));
    ASSERT_TRUE(Read(builder));

    // 4 bytes of load limit and a byte per level, the innermost level included.
    EXPECT_EQ(m_table->FindStructure(Depth)->Size, 5u);
    EXPECT_EQ(m_table->FindStructure(1)->Size, 5u * Depth);
    EXPECT_EQ(Child(Depth - 1, "tail")->Info->Offset, 4u + 5);

    // Every element verified down to the last level but one tail.
    for (uint32_t id = 1; id < Depth; ++id)
        Child(id, "inner")->Verified = 1;
    for (uint32_t id = 1; id < Depth; ++id)
        Child(id, "tail")->Verified = 1;
    PList<unsigned int> visited;
    EXPECT_FALSE(m_table->FindStructure(1)->IsVerified(visited));
    Child(Depth, "tail")->Verified = 1;
    visited.Clear();
    EXPECT_TRUE(m_table->FindStructure(Depth - 100)->IsVerified(visited));
}

TEST_F(DefinitionTableTest, DuplicatesKeepTheFirstRecord)
{
    DefinitionTableBuilder builder;
    builder.AddModule(Module(1, "Mod"))
        .AddModule({2, "Other", Hash("Mod"), ""})
        .AddStructure(Struct(1, "First",
                             {Member("x", ElementType::UInt32), Member("x", ElementType::UInt16)}))
        .AddStructure(Struct(1, "Second"));
    ASSERT_TRUE(Read(builder));

    EXPECT_EQ(
        m_log.Messages(),
        (std::vector<std::string>{
            "Error: Duplicate structure Hash (" + std::to_string(Hash("Mod")) +
                ") found in definition table: Mod / Other\n",
            "Duplicated hash found in Children (" + std::to_string(Hash("x")) + ") object First\n",
            "Error: Duplicate structure ID (1) found in definition table: First / Second\n"}));
    EXPECT_EQ(m_table->GetDefinitionModules()->size(), 1u);
    EXPECT_STREQ(m_table->FindModuleStructure(Hash("Mod"))->Name, "First");
    // Both elements of one name take room; only the first is found.
    EXPECT_EQ(m_table->FindStructure(1)->Size, 4u + 4 + 2);
    EXPECT_EQ(Child(1, "x")->Info->Type, TypeUInt32);
}

class DefinitionRecordKindTest : public DefinitionTableTest,
                                 public testing::WithParamInterface<unsigned char>
{
};

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
        .AddEnum({4, "Empty", std::nullopt, {}})
        .AddModule(Module(11, "Beta"));
    ASSERT_TRUE(Read(builder, GetParam()));

    EXPECT_EQ(m_pos, m_bytes.size());
    EXPECT_TRUE(m_log.Messages().empty());
    EXPECT_EQ(m_table->GetDefinitionModules()->size(), 2u);
    EXPECT_EQ(m_table->FindModuleStructure(Hash("Alpha")), m_table->FindStructure(10));
    EXPECT_EQ(m_table->FindModuleStructure(Hash("Beta")), nullptr); // no structure 11
    ParameterDefinitionStructure const* structure = m_table->FindStructure(10);
    EXPECT_STREQ(structure->Name, "AlphaType");
    EXPECT_EQ(structure->NameHash, Hash("AlphaType"));
    ParameterDefinitionElement const* gain = Child(10, "gain");
    ASSERT_NE(gain, nullptr);
    EXPECT_TRUE(gain->FromFile);
    EXPECT_EQ(gain->Info->Flags, ElementFixedCount);
    // A stored name length of 0 hashes as the empty name instead of running off the record.
    EXPECT_NE(structure->FindChild(Hash("")), nullptr);
    EXPECT_EQ(structure->Size, 4u + 8 + 4 + 1);
}

TEST_P(DefinitionRecordKindTest, WithoutKeepRecordsAreSteppedOverAndDropped)
{
    DefinitionTableBuilder builder;
    builder.AddModule(Module(1, "Mod"))
        .AddModule(Module(1, "Mod"))
        .AddStructure(Struct(1, "S", {Member("a", ElementType::UInt32)}));
    ASSERT_TRUE(Read(builder, GetParam(), false));
    EXPECT_EQ(m_pos, m_bytes.size());
    EXPECT_TRUE(m_table->GetDefinitionModules()->empty());
    EXPECT_TRUE(m_table->GetDefinitionStructures()->empty());
    EXPECT_TRUE(m_log.Messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Alignments, DefinitionRecordKindTest, testing::Values(1, 8));

TEST_F(DefinitionTableTest, UndefinedKindStopsTheWalkAndKeepsWhatCameBefore)
{
    for (unsigned int kind : {3u, 7u, 255u}) {
        m_log.Clear();
        DefinitionTableBuilder builder;
        builder.AddModule(Module(1, "Mod"))
            .AddRawKind({static_cast<uint8_t>(kind)})
            .AddModule(Module(2, "Later"));
        EXPECT_FALSE(Read(builder, 8));
        EXPECT_EQ(m_log.Messages(),
                  std::vector<std::string>{"Error: Unexpected type found in definition table (" +
                                           std::to_string(kind) + ")\n"});
        EXPECT_EQ(m_table->GetDefinitionModules()->size(), 1u);
        EXPECT_EQ(m_table->GetDefinitionModules()->count(Hash("Mod")), 1u);
    }
}

TEST_F(DefinitionTableTest, LogsThroughTheOwningManager)
{
    ParamTest::TestSetManager manager;
    ParameterFileSymbolTable table(&manager, 1, VersionUnion(7, 0, 0));
    std::vector<uint8_t> bytes = DefinitionTableBuilder().AddRawKind({3}).Build(1);
    unsigned int pos = 0;
    auto const length = static_cast<unsigned int>(bytes.size());
    EXPECT_FALSE(table.ReadDefinitions(bytes.data(), length, pos, length, true));
    EXPECT_EQ(m_log.Count("(TestSetManager): Error: Unexpected type"), 1u);
}

TEST_F(DefinitionTableTest, SectionThatEndsInsideARecordFails)
{
    DefinitionElement last = Member("a", ElementType::UInt32);
    last.skipped = "abcd";
    DefinitionTableBuilder builder;
    builder.AddModule(Module(1, "Mod"))
        .AddStructure(Struct(1, "S", {Member("b", ElementType::UInt8), last}));
    EXPECT_FALSE(Read(builder, 1, true, 2));
    auto const full = static_cast<unsigned int>(m_bytes.size());
    EXPECT_EQ(m_log.Messages(),
              std::vector<std::string>{"Failed to read 4 bytes from binary file offset " +
                                       std::to_string(full - 4) + ", length " +
                                       std::to_string(full - 2) + "\n"});
    EXPECT_NE(m_table->FindModuleStructure(Hash("Mod")), nullptr);

    // A section that does not lie within the buffer is refused before anything is read.
    unsigned int pos = 1;
    m_log.Clear();
    EXPECT_FALSE(m_table->ReadDefinitions(m_bytes.data(), full, pos, full, true));
    EXPECT_EQ(pos, 1u);
    EXPECT_TRUE(m_log.Messages().empty());
}

TEST_F(DefinitionTableTest, LookupsFindModulesOnlyThroughTheirRecords)
{
    ParameterFileSymbolTable empty(nullptr, 1, VersionUnion(7, 0, 0));
    EXPECT_EQ(empty.GetDefinitionStructures(), nullptr);
    EXPECT_EQ(empty.FindStructure(1), nullptr);
    EXPECT_EQ(empty.BuildModuleElement(Hash("Mod")), nullptr);

    // Without module records the maps exist, yet no module element can be built.
    DefinitionTableBuilder bare;
    bare.AddStructure(Struct(5, "Mod", {Member("a", ElementType::UInt32)}));
    ASSERT_TRUE(Read(bare));
    EXPECT_TRUE(m_table->GetDefinitionModules()->empty());
    EXPECT_NE(m_table->FindStructure(5), nullptr);
    EXPECT_EQ(m_table->FindStructure(6), nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Mod")), nullptr);

    DefinitionTableBuilder builder;
    builder.AddModule(Module(5, "Mod"))
        .AddStructure(Struct(5, "ModType", {Member("a", ElementType::UInt32)}));
    ASSERT_TRUE(Read(builder));
    std::unique_ptr<ParameterDefinitionElement> element(m_table->BuildModuleElement(Hash("Mod")));
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->NameHash, Hash("Mod"));
    EXPECT_FALSE(element->FromFile);
    EXPECT_EQ(element->Verified.load(), 0);
    EXPECT_EQ(element->Info->Type, 0u);
    EXPECT_EQ(element->Info->Count, 1u);
    EXPECT_EQ(element->Info->Flags, 0u);
    EXPECT_EQ(element->Info->Structure, m_table->FindStructure(5));
}

// Structure 1 {a, s: 2}, structure 2 {c, back: 1}: a cycle through both. Holder refers to Leaf
// and to Childless; Lonely has no children and nothing refers to it.
class DefinitionVerificationTest : public DefinitionTableTest
{
protected:
    void SetUp() override
    {
        DefinitionTableBuilder builder;
        builder.AddModule(Module(1, "Mod"))
            .AddModule(Module(3, "Bare"))
            .AddModule(Module(6, "Alone"))
            .AddStructure(Struct(1, "One", {Member("a", ElementType::UInt32), Nested("s", 2)}))
            .AddStructure(
                Struct(2, "Two", {Member("c", ElementType::UInt8), Nested("back", 1, 0, 1)}))
            .AddStructure(Struct(3, "Childless"))
            .AddStructure(Struct(4, "Leaf", {Member("d", ElementType::Int8)}))
            .AddStructure(Struct(5, "Holder", {Nested("leaf", 4), Nested("none", 3)}))
            .AddStructure(Struct(6, "Lonely"));
        ASSERT_TRUE(Read(builder));
    }

    void Verify(std::initializer_list<std::pair<unsigned int, char const*>> children)
    {
        for (auto const& child : children)
            Child(child.first, child.second)->Verified = 1;
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

TEST_F(DefinitionVerificationTest, VerifiedOnlyWhenEveryChildBelowIs)
{
    EXPECT_FALSE(ModuleVerified());
    Verify({{1, "a"}, {1, "s"}});
    EXPECT_FALSE(ModuleVerified()); // "c" below "s" is not verified
    Verify({{2, "c"}});
    // "back" leads to One, which is being walked already: it is left alone, verified or not.
    EXPECT_TRUE(ModuleVerified());
    Verify({{2, "back"}});
    EXPECT_TRUE(ModuleVerified());
    Child(1, "a")->Verified = 0;
    EXPECT_FALSE(ModuleVerified());

    PList<unsigned int> visited;
    EXPECT_TRUE(m_table->FindStructure(3)->IsVerified(visited)); // no children
    EXPECT_EQ(visited.Count(), 1u);
}

TEST_F(DefinitionVerificationTest, ClearWithNothingVerifiedKeepsStructuresThatHaveChildren)
{
    m_table->ClearDefinitions(false);
    for (unsigned int id : {1u, 2u, 4u, 5u})
        EXPECT_NE(m_table->FindStructure(id), nullptr) << id;
    EXPECT_NE(Child(1, "a")->Info, nullptr);
    // A structure without children goes, with its module, unless a failed child refers to it.
    EXPECT_EQ(m_table->FindStructure(6), nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Alone")), nullptr);
    EXPECT_NE(m_table->FindModuleStructure(Hash("Bare")), nullptr);

    Child(5, "none")->Verified = 1;
    m_table->ClearDefinitions(false);
    EXPECT_EQ(Child(5, "none")->Info, nullptr);
    EXPECT_EQ(m_table->FindStructure(3), nullptr);
    EXPECT_EQ(m_table->GetDefinitionModules()->size(), 1u);
}

TEST_F(DefinitionVerificationTest, ClearDropsAFullyVerifiedModule)
{
    Verify({{1, "a"}, {1, "s"}, {2, "c"}, {2, "back"}});
    m_table->ClearDefinitions(false);
    EXPECT_EQ(m_table->FindStructure(1), nullptr);
    EXPECT_EQ(m_table->FindStructure(2), nullptr);
    EXPECT_EQ(m_table->BuildModuleElement(Hash("Mod")), nullptr);
    EXPECT_NE(m_table->FindStructure(5), nullptr);
}

TEST_F(DefinitionVerificationTest, ClearKeepsWhatFailedInAPartlyVerifiedModule)
{
    Verify({{1, "a"}, {1, "s"}, {2, "back"}});
    ParameterDefinitionStructure* two = m_table->FindStructure(2);
    m_table->ClearDefinitions(false);

    ASSERT_EQ(m_table->FindStructure(2), two);
    EXPECT_EQ(Child(1, "a")->Info, nullptr);
    EXPECT_EQ(Child(1, "s")->Info->Structure, two);
    EXPECT_NE(Child(2, "c")->Info, nullptr);
    EXPECT_EQ(m_table->FindModuleStructure(Hash("Mod")), m_table->FindStructure(1));
}

// What the entry reader finds after a partial clear: a child whose Info was cleared is found
// verified, to be read straight...
TEST_F(DefinitionVerificationTest, ClearedChildIsFoundVerifiedWithoutInfo)
{
    Verify({{1, "a"}});
    m_table->ClearDefinitions(false);
    ParameterDefinitionElement const* a =
        m_table->FindModuleStructure(Hash("Mod"))->FindChild(Hash("a"));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->Verified.load(), 1);
    EXPECT_EQ(a->Info, nullptr);
    EXPECT_EQ(a->GetSize(), 0u);
}

// ...while a member the file never had is not found in a structure that is still live.
TEST_F(DefinitionVerificationTest, LiveStructureDoesNotFindAMemberTheFileLacks)
{
    m_table->ClearDefinitions(false);
    ParameterDefinitionStructure* one = m_table->FindModuleStructure(Hash("Mod"));
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->FindChild(Hash("notInFile")), nullptr);
    EXPECT_NE(one->FindChild(Hash("a"))->Info, nullptr);
}

TEST_F(DefinitionVerificationTest, FreeChildAndClearAllReleaseEverything)
{
    ParameterDefinitionStructure* one = m_table->FindStructure(1);
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

TEST(ParameterDefinitionEnumTest, ReadsItsRecordBehindTheKind)
{
    DefinitionTableBuilder builder;
    builder.AddEnum({9, "Mode", std::nullopt, {{1, true, "On", "lit"}, {0, false, "Off", ""}}});
    std::vector<uint8_t> const bytes = builder.Build(1);
    unsigned int pos = 1;
    ParameterByteReader reader(bytes.data(), static_cast<unsigned int>(bytes.size()), pos, 1,
                               nullptr);
    ParameterDefinitionEnum enumeration(reader);
    EXPECT_FALSE(reader.Failed());
    EXPECT_EQ(pos, bytes.size());
    EXPECT_EQ(enumeration.ID, 9u);
    EXPECT_STREQ(enumeration.Name, "Mode");
    EXPECT_EQ(enumeration.NameHash, Hash("Mode"));
    ASSERT_EQ(enumeration.Values.Count(), 2u);
    EXPECT_TRUE(enumeration.Values[0]->Flag);
    EXPECT_STREQ(enumeration.Values[0]->Text, "lit");
    EXPECT_EQ(enumeration.Values[1]->Value, 0u);
    EXPECT_STREQ(enumeration.Values[1]->Name, "Off");

    ParamTest::LogCapture log;
    pos = 1;
    ParameterByteReader shortReader(bytes.data(), 12, pos, 1, nullptr);
    ParameterDefinitionEnum cut(shortReader);
    EXPECT_TRUE(shortReader.Failed());
    EXPECT_STREQ(cut.Name, "");
    EXPECT_EQ(cut.Values.Count(), 0u);
    EXPECT_EQ(log.Count("Failed to read 5 bytes from binary file offset 9, length 12"), 1u);
}

} // namespace
