// SPDX-License-Identifier: Apache-2.0
// Tests of reading mode sections into mode tables and trees, and of the slot lookups.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/modetreefixture.h"

namespace {

using ParamTest::Children;
using ParamTest::ModeFile;
using ParamTest::ReadModeTree;
using ParamTest::SlotNode;
using ParamTest::TestSetManager;
using TuningWriter::FileVersion;
using TuningWriter::ModeEntryRecord;
using TuningWriter::ModeSectionBuilder;

template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

class ModeTreeTest : public ::testing::Test
{
protected:
    ParamTest::LogCapture m_log;
};

// Default|Sensor.0|Usecase.Preview and Usecase.Video (linked to Preview, resident), with a
// Feature1.ADRC below Preview whose slot carries pipeline 0x1FF.
ModeSectionBuilder SampleTable(uint8_t index = 0, std::string name = "rear")
{
    ModeSectionBuilder table(index, std::move(name));
    uint32_t const preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
    uint32_t const sensor = table.Find("Default|Sensor.0");
    table.AddChild(sensor, 2, 2, 0, TuningWriter::ModeFlagResident, preview);
    table.AddChild(preview, 3, 2, 0x1FF);
    return table;
}

struct VersionCase
{
    char const* name;
    FileVersion version;
    char const* tableName; ///< null where the format has no name field
    bool hasLink;
    bool hasFlags;
};

class ModeSectionFormatTest : public ModeTreeTest, public ::testing::WithParamInterface<VersionCase>
{
};

TEST_P(ModeSectionFormatTest, ReadsTreeOfEveryFormat)
{
    VersionCase const& test = GetParam();
    std::vector<uint8_t> bytes = ModeFile({SampleTable()}, test.version);
    TestSetManager manager;

    ASSERT_TRUE(ReadModeTree(manager, bytes));
    ASSERT_EQ(manager.GetModeTableCount(), 1u);
    ParameterModeTable* table = manager.GetModeTable(0);
    ASSERT_NE(table, nullptr);
    if (test.tableName == nullptr)
        EXPECT_EQ(table->name, nullptr);
    else
        EXPECT_STREQ(table->name, test.tableName);
    ASSERT_EQ(table->m_modeCount, 5u);

    ModeEntry* root = table->rootMode;
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root, SlotNode(manager, 0, 0));
    EXPECT_TRUE(root->loaded);
    EXPECT_TRUE(root->resident);
    ModeEntry* sensor = SlotNode(manager, 0, 1);
    ModeEntry* preview = SlotNode(manager, 0, 2);
    ModeEntry* video = SlotNode(manager, 0, 3);
    ModeEntry* adrc = SlotNode(manager, 0, 4);
    EXPECT_EQ(Children(root), std::vector<ModeEntry*>{sensor});
    EXPECT_EQ(Children(sensor), (std::vector<ModeEntry*>{preview, video}));
    EXPECT_EQ(Children(preview), std::vector<ModeEntry*>{adrc});
    EXPECT_EQ(adrc->parent, preview);
    EXPECT_EQ(video->modeId, 3u);
    EXPECT_EQ(video->mode.Parts.mode, 2u);
    EXPECT_EQ(video->mode.Parts.subMode, 2u);
    EXPECT_EQ(adrc->mode.Parts.pipeline, 0x1FFu);
    EXPECT_EQ(table->modes[4].pipeline, 0xFF);
    EXPECT_EQ(table->modes[2].pipeline, 0);

    // Sensor nodes are always resident; a Usecase node only by its flag.
    EXPECT_TRUE(sensor->resident);
    EXPECT_EQ(video->resident, test.hasFlags);
    EXPECT_FALSE(preview->resident);
    EXPECT_TRUE(preview->loaded);
    if (test.hasLink) {
        EXPECT_NE(video->link, nullptr);
        EXPECT_EQ(video->ResolveLink(), preview);
    } else {
        EXPECT_EQ(video->link, nullptr);
        EXPECT_EQ(video->ResolveLink(), video);
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, ModeSectionFormatTest,
                         ::testing::Values(VersionCase{"V1_0_2", {1, 0, 2}, nullptr, false, false},
                                           VersionCase{"V1_1_0", {1, 1, 0}, nullptr, false, false},
                                           VersionCase{"V2_0_0", {2, 0, 0}, nullptr, true, false},
                                           VersionCase{"V3_0_1", {3, 0, 1}, nullptr, true, false},
                                           VersionCase{"V5_0_0", {5, 0, 0}, "rear", true, true},
                                           VersionCase{"V7_0_0", {7, 0, 0}, "rear", true, true}),
                         CaseName<VersionCase>);

TEST_F(ModeTreeTest, FileWithoutModeSectionsGetsDefaultTable)
{
    std::vector<uint8_t> bytes = ModeFile({});
    TestSetManager manager;

    ASSERT_TRUE(ReadModeTree(manager, bytes));
    EXPECT_TRUE(m_log.HasMessage("ReadModeSection: No mode tables in binary, creating default\n"));
    ASSERT_EQ(manager.GetModeTableCount(), 1u);
    ParameterModeTable* table = manager.GetModeTable(0);
    EXPECT_EQ(table->name, nullptr);
    ASSERT_EQ(table->m_modeCount, 1u);
    ModeEntry* root = table->rootMode;
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(table->modes[0].mode, root);
    EXPECT_EQ(root->modeId, 0u);
    EXPECT_EQ(root->mode.Raw, 0u);
    EXPECT_TRUE(root->loaded);
    EXPECT_TRUE(root->resident);
    EXPECT_EQ(root->firstChild, nullptr);
    EXPECT_EQ(manager.GetModeEntry(0u), &table->modes[0]);
}

TEST_F(ModeTreeTest, PipelineVariantSharesParentNode)
{
    ModeSectionBuilder builder;
    uint32_t const sensor = builder.AddPath("Default|Sensor.0");
    uint32_t const variant = builder.AddChild(sensor, 1, 0, 3);
    // A child of the variant entry hangs below the shared node.
    builder.AddChild(variant, 2, 1);
    std::vector<uint8_t> bytes = ModeFile({builder});
    TestSetManager manager;

    ASSERT_TRUE(ReadModeTree(manager, bytes));
    ModeEntry* sensorNode = SlotNode(manager, 0, 1);
    ASSERT_NE(sensorNode, nullptr);
    EXPECT_EQ(SlotNode(manager, 0, 2), sensorNode);
    EXPECT_EQ(manager.GetModeTable(0)->modes[1].pipeline, 0);
    EXPECT_EQ(manager.GetModeTable(0)->modes[2].pipeline, 3);
    EXPECT_EQ(Children(SlotNode(manager, 0, 0)), std::vector<ModeEntry*>{sensorNode});
    EXPECT_EQ(Children(sensorNode), std::vector<ModeEntry*>{SlotNode(manager, 0, 3)});
}

TEST_F(ModeTreeTest, ChildBeforeItsParentStaysOutOfTree)
{
    ModeSectionBuilder builder;
    builder.AddEntry({0, 0, 0, 0, 0, TuningWriter::NoModeLink, 0})
        .AddEntry({1, 2, 2, 0, 0, TuningWriter::NoModeLink, 0})
        .AddEntry({2, 0, 1, 0, 0, TuningWriter::NoModeLink, 0});
    std::vector<uint8_t> bytes = ModeFile({builder});
    TestSetManager manager;

    ASSERT_TRUE(ReadModeTree(manager, bytes));
    ModeEntry* orphan = SlotNode(manager, 0, 1);
    ASSERT_NE(orphan, nullptr);
    EXPECT_EQ(orphan->parent, nullptr);
    EXPECT_EQ(Children(SlotNode(manager, 0, 2)), std::vector<ModeEntry*>{});
    EXPECT_EQ(manager.GetModeEntry(0, "0.0|1.0|2.0"), nullptr);
    EXPECT_EQ(manager.GetModeEntry(0, "0.0|1.0"), SlotNode(manager, 0, 2));
}

struct EntryCheckCase
{
    char const* name;
    ModeEntryRecord entry; ///< appended as slot 3 of a table of four slots
    char const* logged;    ///< "" when the check logs nothing but the error
    char const* error;
};

class ModeEntryCheckTest : public ModeTreeTest, public ::testing::WithParamInterface<EntryCheckCase>
{
};

TEST_P(ModeEntryCheckTest, RefusesEntryAndKeepsOthers)
{
    EntryCheckCase const& test = GetParam();
    ModeSectionBuilder builder;
    builder.AddPath("Default|Sensor.0|Usecase.Preview");
    builder.AddEntry(test.entry);
    std::vector<uint8_t> bytes = ModeFile({builder});
    TestSetManager manager;

    EXPECT_FALSE(ReadModeTree(manager, bytes));
    EXPECT_STREQ(manager.GetErrorString(), test.error);
    if (test.logged[0] != '\0') {
        EXPECT_TRUE(m_log.HasMessage(test.logged));
    }
    // Two lines for a check with its own message, else the error alone.
    EXPECT_EQ(m_log.Count("ReadModeSection"), test.logged[0] != '\0' ? 2u : 1u);
    ASSERT_EQ(manager.GetModeTableCount(), 1u);
    EXPECT_EQ(SlotNode(manager, 0, 3), nullptr);
    EXPECT_NE(manager.GetModeEntry(0, "0.0|1.0|2.0"), nullptr);
}

constexpr uint32_t Table1 = 1u << 24;
constexpr uint32_t NoLink = TuningWriter::NoModeLink;

INSTANTIATE_TEST_SUITE_P(
    Checks, ModeEntryCheckTest,
    ::testing::Values(
        EntryCheckCase{"ModeIdTable",
                       {Table1 | 3, 2, 2, 1, 0, NoLink, 0},
                       "ReadModeSection: Mode Table Index in Mode ID (16777219) does not match "
                       "expected (0)\n",
                       "ReadModeSection: Index from Mode ID does not match expected"},
        EntryCheckCase{"ParentTable",
                       {3, Table1 | 2, 2, 1, 0, NoLink, 0},
                       "ReadModeSection: Mode Table Index != Parent Table Index,Mode ID (3), "
                       "Parent ID (16777218)\n",
                       "ReadModeSection: Mode Table Index != Parent Table Index"},
        EntryCheckCase{"LinkTable",
                       {3, 1, 2, 1, 0, Table1 | 2, 0},
                       "ReadModeSection: Mode Table Index != Link Table Index, Mode ID (3), Link "
                       "ID (16777218)\n",
                       "ReadModeSection: Mode Table Index != Link Table Index"},
        EntryCheckCase{"ModeIdSlot",
                       {4, 1, 2, 1, 0, NoLink, 0},
                       "",
                       "ReadModeSection: Mode ID exceeds mode count"},
        EntryCheckCase{"ParentSlot",
                       {3, 4, 2, 1, 0, NoLink, 0},
                       "",
                       "ReadModeSection: Parent Mode ID exceeds mode count"},
        EntryCheckCase{"LinkSlot",
                       {3, 1, 2, 1, 0, 4, 0},
                       "",
                       "ReadModeSection: Link Mode ID exceeds mode count"}),
    CaseName<EntryCheckCase>);

// The result is that of the last table read: an error in an earlier table does not show.
TEST_F(ModeTreeTest, LastTableDecidesResult)
{
    ModeSectionBuilder bad(0, "bad");
    bad.AddPath("Default");
    bad.AddEntry({5, 0, 1, 0, 0, NoLink, 0});
    ModeSectionBuilder good(1, "good");
    good.AddPath("Default|Sensor.1");
    // The second table's IDs carry table index 1 once it follows the bad one.
    std::vector<uint8_t> badFirst = ModeFile({bad, good});
    ModeSectionBuilder badSecond(1, "bad");
    badSecond.AddPath("Default");
    badSecond.AddEntry({Table1 | 5, Table1, 1, 0, 0, NoLink, 0});
    ModeSectionBuilder goodFirst(0, "good");
    goodFirst.AddPath("Default|Sensor.1");
    std::vector<uint8_t> goodFirstBytes = ModeFile({goodFirst, badSecond});

    TestSetManager first;
    EXPECT_TRUE(ReadModeTree(first, badFirst));
    EXPECT_STREQ(first.GetErrorString(), "ReadModeSection: Mode ID exceeds mode count");
    EXPECT_EQ(first.GetModeTableCount(), 2u);
    TestSetManager second;
    EXPECT_FALSE(ReadModeTree(second, goodFirstBytes));
    EXPECT_EQ(second.GetModeTableCount(), 2u);
}

TEST_F(ModeTreeTest, SectionOfWrongSizeMakesNoTable)
{
    FileVersion const version{7, 0, 0};
    ModeSectionBuilder builder(0, "odd");
    builder.AddPath("Default|Sensor.0");
    std::vector<uint8_t> section = builder.Build(version);
    section.push_back(0);
    TuningWriter::TuningFileWriter writer(version);
    writer.AddRawSectionRecord(0, 0, 0).AddRawSectionRecord(1, 0, 0);
    writer.AddSection(TuningWriter::SectionType::Mode, section);
    std::vector<uint8_t> bytes = writer.Build();
    TestSetManager manager;

    EXPECT_FALSE(ReadModeTree(manager, bytes));
    // 128 name bytes and two entries of 24 make 176; the section has one byte more.
    EXPECT_TRUE(
        m_log.HasMessage("ReadModeSection: ModeSize 177 does not match expected size 176\n"));
    EXPECT_EQ(manager.GetModeTableCount(), 0u);
}

// A table that runs past the readable bytes keeps the entry it was reading, with the fields it
// did not get at their defaults, and ends there.
TEST_F(ModeTreeTest, ShortReadEndsTableAfterPartialEntry)
{
    ModeSectionBuilder builder(0, "short");
    builder.AddPath("Default|Sensor.0|Usecase.Preview");
    std::vector<uint8_t> bytes = ModeFile({builder});
    TestSetManager manager;
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(bytes.size());
    ASSERT_TRUE(manager.ReadHeader(bytes.data(), size, pos, sectionOffset, alignment));
    pos = sectionOffset;
    ASSERT_TRUE(manager.ReadSectionInfo(bytes.data(), size, pos, alignment));
    // The second entry's Mode ID is readable, its Mode field is not.
    unsigned int const secondEntry = manager.GetModeSections()[0].Offset + 128 + 24;
    unsigned int const length = secondEntry + 6;

    EXPECT_TRUE(manager.ReadModeSections(bytes.data(), length, nullptr, alignment));
    EXPECT_TRUE(m_log.HasMessage("Failed to read 8 bytes from binary file offset " +
                                 std::to_string(secondEntry + 4) + ", length " +
                                 std::to_string(length) + "\n"));
    // Mode 0.0 below the root slot: the entry shares the root's node.
    EXPECT_EQ(SlotNode(manager, 0, 1), SlotNode(manager, 0, 0));
    EXPECT_EQ(SlotNode(manager, 0, 2), nullptr);
    EXPECT_EQ(manager.GetModeTable(0)->rootMode->firstChild, nullptr);
    // Slots stop where the buffer does: a section size claiming more allocates no more.
    EXPECT_EQ(manager.GetModeTable(0)->m_modeCount, 2u);
}

TEST_F(ModeTreeTest, MissingBufferOrLengthIsError)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable()});
    TestSetManager manager;
    ASSERT_TRUE(ReadModeTree(manager, bytes));
    ASSERT_EQ(manager.GetModeTableCount(), 1u);

    EXPECT_FALSE(manager.ReadModeSections(nullptr, 100, nullptr, 1));
    EXPECT_STREQ(manager.GetErrorString(), "ReadModeSection: Failed, buffer is nullptr");
    EXPECT_FALSE(manager.ReadModeSections(bytes.data(), 0, nullptr, 1));
    EXPECT_STREQ(manager.GetErrorString(), "ReadModeSection: Failed, buffer length is 0");
    EXPECT_EQ(manager.GetModeTableCount(), 1u);
}

TEST_F(ModeTreeTest, FileModeReadsSectionsFromFileAndLeavesNodesUnloaded)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable()});
    ParamTest::TempFile file(bytes);
    TestSetManager manager;
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(bytes.size());
    ASSERT_TRUE(manager.ReadHeader(bytes.data(), size, pos, sectionOffset, alignment));
    pos = sectionOffset;
    ASSERT_TRUE(manager.ReadSectionInfo(bytes.data(), size, pos, alignment));
    ParameterBinaryFile binary(file.Path().c_str(), &manager);

    ASSERT_TRUE(manager.ReadModeSections(nullptr, 0, &binary, alignment));
    EXPECT_STREQ(manager.GetModeTable(0)->name, "rear");
    EXPECT_TRUE(SlotNode(manager, 0, 0)->loaded);
    EXPECT_TRUE(SlotNode(manager, 0, 1)->loaded);
    EXPECT_FALSE(SlotNode(manager, 0, 2)->loaded);
    EXPECT_FALSE(SlotNode(manager, 0, 4)->loaded);
}

TEST_F(ModeTreeTest, UnreadableSectionInFileModeIsError)
{
    TuningWriter::TuningFileWriter writer;
    writer.AddRawSectionRecord(0, 0, 0).AddRawSectionRecord(1, 0, 0);
    writer.AddRawSectionRecord(2, 100000, 128 + 24);
    std::vector<uint8_t> bytes = writer.Build();
    ParamTest::TempFile file(bytes);
    TestSetManager manager;
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(bytes.size());
    ASSERT_TRUE(manager.ReadHeader(bytes.data(), size, pos, sectionOffset, alignment));
    pos = sectionOffset;
    ASSERT_TRUE(manager.ReadSectionInfo(bytes.data(), size, pos, alignment));
    ParameterBinaryFile binary(file.Path().c_str(), &manager);

    EXPECT_FALSE(manager.ReadModeSections(nullptr, 0, &binary, alignment));
    EXPECT_TRUE(m_log.HasMessage(
        "ReadModeSection(0): Failed to read 152 bytes for mode table from binary file\n"));
    EXPECT_STREQ(manager.GetErrorString(), "ReadModeSection: Failed, buffer is nullptr");
    EXPECT_EQ(manager.GetModeTableCount(), 0u);
}

TEST_F(ModeTreeTest, LoadedFileKeepsItsTreesUntilFreed)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")});
    TestSetManager manager;

    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    ASSERT_EQ(manager.GetModeTableCount(), 2u);
    EXPECT_NE(manager.GetModeEntry(1, "0.0|1.0|2.0|3.2"), nullptr);
    PList<char const*> names;
    ASSERT_TRUE(manager.GetModeTableNames(names));
    ASSERT_EQ(names.Count(), 2u);
    EXPECT_STREQ(names[0], "front");
    EXPECT_STREQ(names[1], "rear");

    manager.FreeBinaryParameters();
    EXPECT_EQ(manager.GetModeTableCount(), 0u);
    PList<char const*> none;
    EXPECT_FALSE(manager.GetModeTableNames(none));
    EXPECT_EQ(none.Count(), 0u);
}

TEST_F(ModeTreeTest, ModeTableEntryExistsFindsNamedTables)
{
    ParamTest::TempFile multi(ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")}));
    ParamTest::TempFile older(ModeFile({SampleTable(0, "front")}, {6, 0, 0}));

    EXPECT_TRUE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), "front"));
    EXPECT_TRUE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), "rear"));
    EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), "rea"));
    EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), "side"));
    // Before 7.0.0 names cannot be searched without a load.
    EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(older.Path().c_str(), "front"));
    EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(nullptr, "front"));
    EXPECT_FALSE(
        ParameterSetManager::ModeTableEntryExists((multi.Path() + ".missing").c_str(), "front"));
}

TEST_F(ModeTreeTest, ModeIdLookupChecksTableAndSlot)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")});
    TestSetManager manager;
    ASSERT_TRUE(ReadModeTree(manager, bytes));

    ModeSlot* slot = manager.GetModeEntry(Table1 | 4);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot, &manager.GetModeTable(1)->modes[4]);
    EXPECT_EQ(slot->mode->modeId, Table1 | 4);
    EXPECT_EQ(manager.GetModeEntry((2u << 24) | 1), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with  Mode ID (33554433) Table Index >= mode table count (2)\n"));
    EXPECT_EQ(manager.GetModeEntry(5u), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with Mode ID Value (5) that exceeds the mode table entries (5)\n"));
}

TEST_F(ModeTreeTest, DerivedManagerUsesMainTables)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")});
    TestSetManager main;
    ASSERT_TRUE(ReadModeTree(main, bytes));
    TestSetManager::Options options;
    options.name = "Derived";
    options.main = &main;
    options.modeTableIndex = 1;
    TestSetManager derived(options);
    options.modeTableIndex = 5;
    TestSetManager outOfRange(options);

    EXPECT_TRUE(m_log.HasMessage("ParameterSetManager constructed for mode table index 1: rear\n"));
    EXPECT_TRUE(m_log.HasMessage(
        "ParameterSetManager called mode table index (5) >= mode table count (2)\n"));
    EXPECT_EQ(derived.GetModeTableCount(), 0u);
    EXPECT_EQ(derived.GetModeEntry(Table1 | 2), main.GetModeEntry(Table1 | 2));
    EXPECT_EQ(derived.GetModeEntry(1, "0.0|1.0|2.0"), SlotNode(main, 1, 2));
    PList<char const*> names;
    ASSERT_TRUE(derived.GetModeTableNames(names));
    ASSERT_EQ(names.Count(), 2u);
    EXPECT_STREQ(names[1], "rear");
}

TEST_F(ModeTreeTest, ModuleDataFindsItsMode)
{
    std::vector<uint8_t> bytes = ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")});
    TestSetManager manager;
    ASSERT_TRUE(ReadModeTree(manager, bytes));

    ModuleData known(0x1234, 7, 0, VersionUnion(1, 0, 0), Table1 | 4, &manager, &manager, nullptr);
    EXPECT_EQ(known.Mode, &manager.GetModeTable(1)->modes[4]);
    EXPECT_STREQ(known.ModePath, "0.0|1.0|2.0|3.2");
    EXPECT_EQ(known.GetModeTableIndex(), 1u);
    EXPECT_EQ(known.GetModeIDValue(), 4u);
    EXPECT_EQ(known.GetModeTable(), manager.GetModeTable(1));

    ModuleData unknown(0x1234, 8, 0, VersionUnion(1, 0, 0), 9, &manager, &manager, nullptr);
    EXPECT_TRUE(
        m_log.HasMessage("Failed to find ModeID 9 in mode table when creating ModuleData\n"));
    ASSERT_NE(unknown.Mode, nullptr);
    ASSERT_NE(unknown.Mode->mode, nullptr);
    EXPECT_FALSE(unknown.Mode->mode->loaded);
    EXPECT_EQ(unknown.Mode->mode->parent, nullptr);
    EXPECT_STREQ(unknown.ModePath, "");

    ModuleData orphan(0x1234, 9, 0, VersionUnion(1, 0, 0), 0, nullptr, &manager, nullptr);
    EXPECT_TRUE(m_log.HasMessage("ModuleData called with nullptr modeTable parameter\n"));
    EXPECT_EQ(orphan.Mode, nullptr);
    EXPECT_STREQ(orphan.ModePath, "");
    ModuleData noManager(0x1234, 10, 0, VersionUnion(1, 0, 0), Table1, &manager, nullptr, nullptr);
    EXPECT_EQ(noManager.GetModeTable(), nullptr);
}

} // namespace
