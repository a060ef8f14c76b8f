// SPDX-License-Identifier: Apache-2.0
// The mode tree: mode sections read into tables and trees by a load, slot and path lookups,
// branch walks, the text forms of mode paths, child and active mode listings.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parametermodetable.h"
#include "tools/writer/modesectionbuilder.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using ParamTest::TestSetManager;
using TuningWriter::FileVersion;
using TuningWriter::ModeEntryRecord;
using TuningWriter::ModeSectionBuilder;

constexpr uint32_t Table1 = 1u << 24;
constexpr uint32_t NoLink = TuningWriter::NoModeLink;

/// A file of version holding one mode section per table and empty symbol and data records, which
/// loads with nothing but its trees; minimumSize pads it for a file-mode load.
std::vector<uint8_t> ModeFile(std::vector<ModeSectionBuilder> const& tables,
                              FileVersion version = {}, size_t minimumSize = 0)
{
    TuningWriter::TuningFileWriter writer(version);
    writer.AddRawSectionRecord(static_cast<uint32_t>(TuningWriter::SectionType::Symbol), 0, 0);
    writer.AddRawSectionRecord(static_cast<uint32_t>(TuningWriter::SectionType::Data), 0, 0);
    for (ModeSectionBuilder const& table : tables)
        table.AddTo(writer);
    writer.SetMinimumFileSize(minimumSize);
    return writer.Build();
}

bool Load(TestSetManager& manager, std::vector<uint8_t> bytes)
{
    return manager.LoadBinaryParameters(bytes.data(), bytes.size());
}

ModeEntry* SlotNode(TestSetManager& manager, unsigned int table, unsigned int slot)
{
    ParameterModeTable* modeTable = manager.GetModeTable(table);
    return modeTable != nullptr && slot < modeTable->m_modeCount ? modeTable->modes[slot].mode
                                                                 : nullptr;
}

std::vector<ModeEntry*> Children(ModeEntry* node)
{
    std::vector<ModeEntry*> children;
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        children.push_back(child);
    return children;
}

std::vector<TuningMode> Branch(std::initializer_list<std::pair<uint32_t, uint16_t>> steps)
{
    std::vector<TuningMode> branch;
    for (auto const& step : steps)
        branch.push_back(TuningMode{step.first, step.second, 0});
    return branch;
}

template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

// Default|Sensor.0|Usecase.Preview and Usecase.Video (linked to Preview, resident), with a
// Feature1.ADRC below Preview whose slot carries pipeline 0x1FF.
ModeSectionBuilder SampleTable(uint8_t index = 0, std::string name = "rear")
{
    ModeSectionBuilder table(index, std::move(name));
    uint32_t const preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
    table.AddChild(table.Find("Default|Sensor.0"), 2, 2, 0, TuningWriter::ModeFlagResident,
                   preview);
    table.AddChild(preview, 3, 2, 0x1FF);
    return table;
}

class ModeTreeTest : public ::testing::Test
{
protected:
    ParamTest::LogCapture m_log;
    TestSetManager m_manager;
};

// ---- Reading mode sections ---------------------------------------------------------------------

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
    ASSERT_TRUE(Load(m_manager, ModeFile({SampleTable()}, test.version)));
    ASSERT_EQ(m_manager.GetModeTableCount(), 1u);
    ParameterModeTable* table = m_manager.GetModeTable(0);
    if (test.tableName == nullptr)
        EXPECT_EQ(table->name, nullptr);
    else
        EXPECT_STREQ(table->name, test.tableName);
    ASSERT_EQ(table->m_modeCount, 5u);

    ModeEntry* root = table->rootMode;
    ASSERT_EQ(root, SlotNode(m_manager, 0, 0));
    ModeEntry* sensor = SlotNode(m_manager, 0, 1);
    ModeEntry* preview = SlotNode(m_manager, 0, 2);
    ModeEntry* video = SlotNode(m_manager, 0, 3);
    ModeEntry* adrc = SlotNode(m_manager, 0, 4);
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
    // Root and Sensor nodes are always resident; a Usecase node only by its flag.
    EXPECT_TRUE(root->loaded && root->resident && sensor->resident);
    EXPECT_EQ(video->resident, test.hasFlags);
    EXPECT_FALSE(preview->resident);
    EXPECT_TRUE(preview->loaded) << "a buffer load reads every node";
    EXPECT_EQ(video->ResolveLink(), test.hasLink ? preview : video);
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
    ASSERT_TRUE(Load(m_manager, ModeFile({})));
    EXPECT_TRUE(m_log.HasMessage("ReadModeSection: No mode tables in binary, creating default\n"));
    ASSERT_EQ(m_manager.GetModeTableCount(), 1u);
    ParameterModeTable* table = m_manager.GetModeTable(0);
    ASSERT_EQ(table->m_modeCount, 1u);
    ModeEntry* root = table->modes[0].mode;
    ASSERT_EQ(table->rootMode, root);
    EXPECT_EQ(table->name, nullptr);
    EXPECT_EQ(root->mode.Raw, 0u);
    EXPECT_TRUE(root->loaded && root->resident && root->firstChild == nullptr);
}

TEST_F(ModeTreeTest, PipelineVariantSharesParentAndOrphanStaysOutOfTree)
{
    ModeSectionBuilder builder;
    uint32_t const sensor = builder.AddPath("Default|Sensor.0");
    // A child of the variant entry hangs below the shared node.
    builder.AddChild(builder.AddChild(sensor, 1, 0, 3), 2, 1);
    ASSERT_TRUE(Load(m_manager, ModeFile({builder})));
    ModeEntry* sensorNode = SlotNode(m_manager, 0, 1);
    EXPECT_EQ(SlotNode(m_manager, 0, 2), sensorNode);
    EXPECT_EQ(m_manager.GetModeTable(0)->modes[2].pipeline, 3);
    EXPECT_EQ(Children(SlotNode(m_manager, 0, 0)), std::vector<ModeEntry*>{sensorNode});
    EXPECT_EQ(Children(sensorNode), std::vector<ModeEntry*>{SlotNode(m_manager, 0, 3)});

    // A child listed before its parent keeps no parent and is never reached.
    ModeSectionBuilder early;
    early.AddEntry({0, 0, 0, 0, 0, NoLink, 0})
        .AddEntry({1, 2, 2, 0, 0, NoLink, 0})
        .AddEntry({2, 0, 1, 0, 0, NoLink, 0});
    TestSetManager manager;
    ASSERT_TRUE(Load(manager, ModeFile({early})));
    EXPECT_EQ(SlotNode(manager, 0, 1)->parent, nullptr);
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

    EXPECT_FALSE(Load(m_manager, ModeFile({builder})));
    EXPECT_STREQ(m_manager.GetErrorString(), test.error);
    if (test.logged[0] != '\0') {
        EXPECT_TRUE(m_log.HasMessage(test.logged));
    }
    // Two lines for a check with its own message, else the error alone.
    EXPECT_EQ(m_log.Count("ReadModeSection"), test.logged[0] != '\0' ? 2u : 1u);
    ASSERT_EQ(m_manager.GetModeTableCount(), 1u);
    EXPECT_EQ(SlotNode(m_manager, 0, 3), nullptr);
    EXPECT_NE(m_manager.GetModeEntry(0, "0.0|1.0|2.0"), nullptr);
}

// The slot checks are at the bound: slot 4 of a table of four.
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
    EXPECT_TRUE(Load(m_manager, ModeFile({bad, good})));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReadModeSection: Mode ID exceeds mode count");
    EXPECT_EQ(m_manager.GetModeTableCount(), 2u);

    ModeSectionBuilder badSecond(1, "bad");
    badSecond.AddPath("Default");
    badSecond.AddEntry({Table1 | 5, Table1, 1, 0, 0, NoLink, 0});
    ModeSectionBuilder goodFirst(0, "good");
    goodFirst.AddPath("Default|Sensor.1");
    TestSetManager second;
    EXPECT_FALSE(Load(second, ModeFile({goodFirst, badSecond})));
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

    EXPECT_FALSE(Load(m_manager, writer.Build()));
    // 128 name bytes and two entries of 24 make 176; the section has one byte more.
    EXPECT_TRUE(
        m_log.HasMessage("ReadModeSection: ModeSize 177 does not match expected size 176\n"));
    EXPECT_EQ(m_manager.GetModeTableCount(), 0u);
}

// A table that runs past the readable bytes keeps the entry it was reading, with the fields it
// did not get at their defaults, and ends there. The reading steps of a load are taken one by
// one, so that the mode sections are handed fewer bytes than the file holds.
TEST_F(ModeTreeTest, ShortReadEndsTableAfterPartialEntry)
{
    ModeSectionBuilder builder(0, "short");
    builder.AddPath("Default|Sensor.0|Usecase.Preview");
    std::vector<uint8_t> bytes = ModeFile({builder});
    unsigned int position = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(bytes.size());
    ASSERT_TRUE(m_manager.ReadHeader(bytes.data(), size, position, sectionOffset, alignment));
    ASSERT_TRUE(m_manager.ReadSectionInfo(bytes.data(), size, sectionOffset, alignment));
    // The second entry's Mode ID is readable, its Mode field is not.
    unsigned int const secondEntry = m_manager.GetModeSections()[0].Offset + 128 + 24;
    unsigned int const length = secondEntry + 6;

    EXPECT_TRUE(m_manager.ReadModeSections(bytes.data(), length, nullptr, alignment));
    EXPECT_TRUE(m_log.HasMessage("Failed to read 8 bytes from binary file offset " +
                                 std::to_string(secondEntry + 4) + ", length " +
                                 std::to_string(length) + "\n"));
    // Mode 0.0 below the root slot: the entry shares the root's node.
    EXPECT_EQ(SlotNode(m_manager, 0, 1), SlotNode(m_manager, 0, 0));
    EXPECT_EQ(m_manager.GetModeTable(0)->rootMode->firstChild, nullptr);
    // Slots stop where the buffer does: a section size claiming more allocates no more.
    EXPECT_EQ(m_manager.GetModeTable(0)->m_modeCount, 2u);

    EXPECT_FALSE(m_manager.ReadModeSections(nullptr, 100, nullptr, 1));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReadModeSection: Failed, buffer is nullptr");
    EXPECT_FALSE(m_manager.ReadModeSections(bytes.data(), 0, nullptr, 1));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReadModeSection: Failed, buffer length is 0");
    EXPECT_EQ(m_manager.GetModeTableCount(), 1u);
}

TEST_F(ModeTreeTest, FileModeReadsSectionsFromTheFile)
{
    ParamTest::TempFile file(ModeFile({SampleTable()}, {}, 4000));
    ASSERT_TRUE(m_manager.LoadBinaryParameters(file.Path().c_str()));
    ASSERT_TRUE(m_manager.IsFileMode());
    EXPECT_STREQ(m_manager.GetModeTable(0)->name, "rear");
    // Root and Sensor nodes are read at once, the others when a lookup asks for them.
    EXPECT_TRUE(SlotNode(m_manager, 0, 0)->loaded && SlotNode(m_manager, 0, 1)->loaded);
    EXPECT_FALSE(SlotNode(m_manager, 0, 2)->loaded);
    EXPECT_FALSE(SlotNode(m_manager, 0, 4)->loaded);

    TuningWriter::TuningFileWriter writer;
    writer.AddRawSectionRecord(0, 0, 0).AddRawSectionRecord(1, 0, 0);
    writer.AddRawSectionRecord(2, 100000, 128 + 24).SetMinimumFileSize(4000);
    ParamTest::TempFile unreadable(writer.Build());
    TestSetManager manager;
    EXPECT_FALSE(manager.LoadBinaryParameters(unreadable.Path().c_str()));
    EXPECT_TRUE(m_log.HasMessage(
        "ReadModeSection(0): Failed to read 152 bytes for mode table from binary file\n"));
    EXPECT_STREQ(manager.GetErrorString(), "ReadModeSection: Failed, buffer is nullptr");
    EXPECT_EQ(manager.GetModeTableCount(), 0u);
}

TEST_F(ModeTreeTest, TablesAreFoundByNameIndexAndModeId)
{
    std::vector<uint8_t> const bytes = ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")});
    ASSERT_TRUE(Load(m_manager, bytes));
    PList<char const*> names;
    ASSERT_TRUE(m_manager.GetModeTableNames(names));
    ASSERT_EQ(names.Count(), 2u);
    EXPECT_STREQ(names[0], "front");
    EXPECT_STREQ(names[1], "rear");

    // A Mode ID's table and slot are checked at their bounds.
    ModeSlot* slot = m_manager.GetModeEntry(Table1 | 4);
    ASSERT_EQ(slot, &m_manager.GetModeTable(1)->modes[4]);
    EXPECT_EQ(slot->mode->modeId, Table1 | 4);
    EXPECT_EQ(m_manager.GetModeEntry((2u << 24) | 1), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with  Mode ID (33554433) Table Index >= mode table count (2)\n"));
    EXPECT_EQ(m_manager.GetModeEntry(5u), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with Mode ID Value (5) that exceeds the mode table entries (5)\n"));

    // A derived manager is a handle on one table of its main manager: index 1 of 2 is the last.
    TestSetManager::Options options;
    options.name = "Derived";
    options.main = &m_manager;
    options.modeTableIndex = 1;
    TestSetManager derived(options);
    options.modeTableIndex = 2;
    TestSetManager outOfRange(options);
    EXPECT_TRUE(m_log.HasMessage("ParameterSetManager constructed for mode table index 1: rear\n"));
    EXPECT_TRUE(m_log.HasMessage(
        "ParameterSetManager called mode table index (2) >= mode table count (2)\n"));
    EXPECT_EQ(derived.GetModeTableCount(), 0u);
    EXPECT_EQ(derived.GetModeEntry(Table1 | 2), m_manager.GetModeEntry(Table1 | 2));
    EXPECT_EQ(derived.GetModeEntry(1, "0.0|1.0|2.0"), SlotNode(m_manager, 1, 2));
    PList<char const*> derivedNames;
    ASSERT_TRUE(derived.GetModeTableNames(derivedNames));
    EXPECT_EQ(derivedNames.Count(), 2u);

    m_manager.FreeBinaryParameters();
    EXPECT_EQ(m_manager.GetModeTableCount(), 0u);
    PList<char const*> none;
    EXPECT_FALSE(m_manager.GetModeTableNames(none));
    EXPECT_EQ(none.Count(), 0u);

    // A file of 7.0.0 or later is searched for a table name without a load.
    ParamTest::TempFile multi(bytes);
    ParamTest::TempFile older(ModeFile({SampleTable(0, "front")}, {6, 0, 0}));
    std::string const missing = multi.Path() + ".missing";
    for (char const* name : {"front", "rear"})
        EXPECT_TRUE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), name));
    for (char const* name : {"rea", "side"})
        EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(multi.Path().c_str(), name));
    for (char const* path :
         {older.Path().c_str(), static_cast<char const*>(nullptr), missing.c_str()})
        EXPECT_FALSE(ParameterSetManager::ModeTableEntryExists(path, "front"));
}

TEST_F(ModeTreeTest, ModuleDataFindsItsMode)
{
    ASSERT_TRUE(Load(m_manager, ModeFile({SampleTable(0, "front"), SampleTable(1, "rear")})));
    VersionUnion const version(1, 0, 0);
    ModuleData known(0x1234, 7, 0, version, Table1 | 4, &m_manager, &m_manager, nullptr);
    EXPECT_EQ(known.Mode, &m_manager.GetModeTable(1)->modes[4]);
    EXPECT_STREQ(known.ModePath, "0.0|1.0|2.0|3.2");
    EXPECT_EQ(known.GetModeTable(), m_manager.GetModeTable(1));
    // An unknown Mode ID gets a node of its own, outside the tree and never loaded.
    ModuleData unknown(0x1234, 8, 0, version, 9, &m_manager, &m_manager, nullptr);
    EXPECT_TRUE(
        m_log.HasMessage("Failed to find ModeID 9 in mode table when creating ModuleData\n"));
    ASSERT_TRUE(unknown.Mode != nullptr && unknown.Mode->mode != nullptr);
    EXPECT_FALSE(unknown.Mode->mode->loaded || unknown.Mode->mode->parent != nullptr);
    EXPECT_STREQ(unknown.ModePath, "");
    ModuleData orphan(0x1234, 9, 0, version, 0, nullptr, &m_manager, nullptr);
    EXPECT_TRUE(m_log.HasMessage("ModuleData called with nullptr modeTable parameter\n"));
    EXPECT_EQ(orphan.Mode, nullptr);
    ModuleData noManager(0x1234, 10, 0, version, Table1, &m_manager, nullptr, nullptr);
    EXPECT_EQ(noManager.GetModeTable(), nullptr);
}

// ---- Walks and paths ---------------------------------------------------------------------------

// A tree with a run of two Feature1 nodes (ISPHDR above ADRC), a linked Video node and a six
// step branch down to Scene.Night.
class ModePathsTest : public ModeTreeTest
{
protected:
    void SetUp() override
    {
        ModeSectionBuilder table(0, "rear");
        uint32_t const preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
        table.AddPath("Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR|Feature1.ADRC");
        table.AddPath("Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10|Scene.Night");
        table.AddChild(table.Find("Default|Sensor.0"), 2, 2, 0, 0, preview);
        table.AddPath("Default|Sensor.2|Usecase.Snapshot");
        table.AddPath("Default|Sensor.2|Usecase.ZSL");
        ASSERT_TRUE(Load(m_manager, ModeFile({table})));
        m_table = m_manager.GetModeTable(0);
    }

    ModeEntry* Node(char const* path) { return m_manager.GetModeEntry(0, path); }
    ModeEntry* Walk(std::vector<TuningMode> const& branch)
    {
        return m_manager.GetModeEntry(0, branch.data(), static_cast<unsigned int>(branch.size()));
    }

    // The bytes GetChildModes wrote, without the terminator if it fitted.
    std::string ChildModes(char const* path, unsigned int length = 256)
    {
        std::vector<unsigned char> result(length + 1, 0xEE);
        m_written = m_manager.GetChildModes(0, path, result.data(), length);
        std::string text(reinterpret_cast<char const*>(result.data()), m_written);
        if (!text.empty() && text.back() == '\0')
            text.pop_back();
        return text;
    }

    /// Lists the nodes of paths as active (held), in order, and reads the active modes back.
    std::string ActiveModes(std::vector<char const*> const& paths = {})
    {
        for (char const* path : paths) {
            ModeEntry* node = Node(path);
            EXPECT_NE(node, nullptr) << path;
            node->modules[0x42].refCount = 1;
            m_table->activeModes.Add(node);
        }
        char result[256] = "untouched";
        m_manager.GetActiveModes(0, result, sizeof(result));
        return result;
    }

    ParameterModeTable* m_table = nullptr;
    unsigned int m_written = 0;
};

TEST_F(ModePathsTest, WalksBranchesIncludingRunsInEitherOrder)
{
    ModeEntry* adrcBelowIsphdr = Node("0.0|1.0|2.0|3.1|3.2");
    ASSERT_NE(adrcBelowIsphdr, nullptr);
    EXPECT_EQ(adrcBelowIsphdr->parent->mode.Parts.subMode, 1u);
    // The run names the same two nodes whichever order the client states them in.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}, {3, 1}})), adrcBelowIsphdr);
    // A single Feature1.2 step is ADRC directly below Preview, a different node.
    ModeEntry* adrc = Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}}));
    ASSERT_NE(adrc, nullptr);
    EXPECT_NE(adrc, adrcBelowIsphdr);
    EXPECT_EQ(adrc->parent, Node("0.0|1.0|2.0"));
    // A run longer than any chain of its mode finds nothing.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 1}, {3, 2}, {3, 3}})), nullptr);
    ModeEntry* night = Node("0.0|1.0|2.0|3.2|4.3|5.5");
    ASSERT_NE(night, nullptr);
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}, {4, 3}, {5, 5}})), night);
    // Steps that are not in the tree.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 1}})), nullptr);
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {3, 1}})), nullptr);
    EXPECT_EQ(Node("0.0|1.2|2.0"), nullptr);
    // Step 0 is the root whatever it says; a null branch or a branch of one step is the root.
    EXPECT_EQ(Walk(Branch({{5, 5}, {1, 2}})), Node("0.0|1.2"));
    EXPECT_EQ(m_manager.GetModeEntry(0, static_cast<TuningMode const*>(nullptr), 4),
              m_table->rootMode);
    EXPECT_EQ(Walk(Branch({{0, 0}})), m_table->rootMode);
    EXPECT_EQ(Node("garbage"), nullptr);
    EXPECT_EQ(m_manager.GetModeEntry(0, static_cast<char const*>(nullptr)), nullptr);

    // Video lends Preview's sub-modes through its link.
    ModeEntry* video = Node("0.0|1.0|2.2");
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->firstChild, nullptr);
    EXPECT_EQ(Node("0.0|1.0|2.2|3.2|4.3"), Node("0.0|1.0|2.0|3.2|4.3"));
    EXPECT_EQ(video->FindMode(&Branch({{3, 1}})[0]), Node("0.0|1.0|2.0|3.1"));

    // A node's own path, cut to the buffer, and its ancestry.
    char path[128] = {};
    night->GetModePath(path, sizeof(path));
    EXPECT_STREQ(path, "0.0|1.0|2.0|3.2|4.3|5.5");
    char cut[10] = {};
    night->GetModePath(cut, sizeof(cut));
    EXPECT_STREQ(cut, "0.0|1.0|2");
    EXPECT_TRUE(night->IsParent(m_table->rootMode));
    EXPECT_FALSE(night->IsParent(night));
    EXPECT_FALSE(m_table->rootMode->IsParent(night));
    EXPECT_FALSE(night->IsParent(nullptr));
}

TEST_F(ModePathsTest, RefusedStepsAndTableIndexAreReported)
{
    // Mode value 6 is the last valid one; Default only at index 0.
    std::vector<TuningMode> branch = Branch({{0, 0}, {2, 0}, {0, 0}, {6, 1}, {7, 0}});
    for (unsigned int index : {0u, 1u, 3u})
        EXPECT_TRUE(m_manager.ValidateMode("Caller", branch.data(), index)) << index;
    EXPECT_STREQ(m_manager.GetErrorString(), "");
    EXPECT_FALSE(m_manager.ValidateMode("Caller", branch.data(), 2));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "Caller Error: Default mode found in modeBranch at an index > 0 (2). Index 0 "
                 "must be Default, but only index 0 may be Default");
    EXPECT_FALSE(m_manager.ValidateMode("Caller", branch.data(), 4));
    EXPECT_TRUE(m_log.HasMessage("Caller Error: Invalid Mode value (7) found in modeBranch[4]. "
                                 "Expected range: 0 to 6\n"));

    // Table index 1 is the first past the one table.
    EXPECT_EQ(m_manager.GetModeEntry(1, "0.0|1.0"), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with mode table index (1) >= mode table count (1)\n"));

    // A refused step ends the walk where it stands.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {0, 0}})), Node("0.0|1.0"));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetModeEntry Error: Default mode found in modeBranch at an index > 0 (2). Index "
                 "0 must be Default, but only index 0 may be Default");
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {7, 0}})), Node("0.0|1.0"));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetModeEntry Error: Invalid Mode value (7) found in modeBranch[2]. Expected "
                 "range: 0 to 6");

    // A branch written as a path stops at the first refused step.
    std::vector<TuningMode> full = Branch({{0, 0}, {1, 2}, {2, 0}, {3, 65535}});
    char text[64] = "x|";
    m_manager.GetPathFromModeBranch(full.data(), 4, text, sizeof(text));
    EXPECT_STREQ(text, "x|0.0|1.2|2.0|3.65535");
    char cut[8] = "";
    m_manager.GetPathFromModeBranch(full.data(), 4, cut, sizeof(cut));
    EXPECT_STREQ(cut, "0.0|1.2");
    char single[8] = "";
    m_manager.GetPathFromModeBranch(full.data(), 1, single, sizeof(single));
    EXPECT_STREQ(single, "0.0");
    std::vector<TuningMode> invalid = Branch({{0, 0}, {1, 1}, {9, 0}, {2, 0}});
    char stopped[64] = "";
    m_manager.GetPathFromModeBranch(invalid.data(), 4, stopped, sizeof(stopped));
    EXPECT_STREQ(stopped, "0.0|1.1");
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetPathFromModeBranch Error: Invalid Mode value (9) found in modeBranch[2]. "
                 "Expected range: 0 to 6");
    char untouched[8] = "keep";
    m_manager.GetPathFromModeBranch(nullptr, 4, untouched, sizeof(untouched));
    m_manager.GetPathFromModeBranch(full.data(), 0, untouched, sizeof(untouched));
    EXPECT_STREQ(untouched, "keep");
}

struct BranchFromPathCase
{
    char const* name;
    char const* path;
    bool result;
    std::vector<TuningMode> steps;
};

class BranchFromPathTest : public ::testing::TestWithParam<BranchFromPathCase>
{
};

TEST_P(BranchFromPathTest, ParsesSteps)
{
    BranchFromPathCase const& test = GetParam();
    PList<TuningMode> branch;
    EXPECT_EQ(TestSetManager().GetModeBranchFromPath(test.path, branch), test.result);
    ASSERT_EQ(branch.Count(), test.steps.size());
    for (unsigned int i = 0; i < branch.Count(); ++i) {
        EXPECT_EQ(branch[i].mode, test.steps[i].mode) << "step " << i;
        EXPECT_EQ(branch[i].subMode, test.steps[i].subMode) << "step " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, BranchFromPathTest,
    ::testing::Values(
        BranchFromPathCase{"Full", "0.0|1.2|2.0|3.2", true,
                           Branch({{0, 0}, {1, 2}, {2, 0}, {3, 2}})},
        BranchFromPathCase{"Null", nullptr, false, {}}, BranchFromPathCase{"Empty", "", false, {}},
        BranchFromPathCase{"LetterKeepsEarlierSteps", "0.0|a.1", false, Branch({{0, 0}})},
        BranchFromPathCase{"SecondDot", "0.0|1.2.3", false, Branch({{0, 0}})},
        BranchFromPathCase{"NoDotSkipsFirstDigit", "12", true, Branch({{0, 2}})},
        BranchFromPathCase{"SingleDigit", "5", true, Branch({{0, 0}})},
        BranchFromPathCase{"LeadingDot", ".3", true, Branch({{0, 3}})},
        BranchFromPathCase{"EmptyItemEnds", "0.0||2.0", true, Branch({{0, 0}})},
        BranchFromPathCase{"NineCharacters", "0.0|3.0000001|2.0", true,
                           Branch({{0, 0}, {3, 1}, {2, 0}})},
        // Ten characters: the item is cut to nine, its tenth is taken as the separator and the
        // real separator then reads as an empty item.
        BranchFromPathCase{"TenCharacters", "0.0|3.00000012|2.0", true, Branch({{0, 0}, {3, 1}})}),
    CaseName<BranchFromPathCase>);

TEST(ModeNamesTest, ModeAndSubModeIndexFromNames)
{
    struct Case
    {
        unsigned short mode; ///< 99: the name is a mode name
        char const* name;
        unsigned short expected;
    } const cases[] = {
        {99, "usecase", 2},    {99, "EFFECT", 6},
        {99, "Feature2", 4},   {99, "Use", 0},
        {99, "Usecases", 0},   {99, nullptr, 0},
        {2, "7", 7},           {2, "300", 300},
        {2, "idealraw", 6},    {2, "IdealRawReprocess", 7},
        {4, "viullmctf2", 24}, {5, "AICam", 21},
        {6, "whiteboard", 11}, {2, "Previe", 0},
        {1, "Preview", 0},     {3, nullptr, 0},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name != nullptr ? test.name : "null");
        EXPECT_EQ(test.mode == 99 ? ParameterSetManager::GetModeIndex(test.name)
                                  : ParameterSetManager::GetSubModeIndex(test.mode, test.name),
                  test.expected);
    }
    // Feature1 has eight sub-mode names: 7 is the last named one.
    ModeEntry node(false, false);
    node.Initialize(1, 3, 7, nullptr);
    EXPECT_STREQ(node.GetSubModeName(), "FDProcess");
    node.Initialize(1, 3, 8, nullptr);
    EXPECT_EQ(node.GetSubModeName(), nullptr);
    node.Initialize(1, 1, 0, nullptr);
    EXPECT_EQ(node.GetSubModeName(), nullptr);
}

struct TextCase
{
    char const* name;
    bool shorthand; ///< named path to mode path; otherwise mode paths to named paths
    char const* input;
    unsigned int length;
    char const* expected; ///< "Z" where nothing may be written
};

class ModePathTextTest : public ::testing::TestWithParam<TextCase>
{
};

// Each text is cut at length and terminated inside it; the byte behind length stays untouched.
TEST_P(ModePathTextTest, ConvertsWithinLength)
{
    TextCase const& test = GetParam();
    std::vector<char> result(test.length + 2, 'Z');
    result.back() = '\0';
    if (test.shorthand)
        TestSetManager().GetModeShorthand(test.input, result.data(), test.length);
    else
        ParameterSetManager::GetKnobbyModesString(test.input, result.data(), test.length);
    EXPECT_STREQ(result.data(), test.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ModePathTextTest,
    ::testing::Values(
        TextCase{"Shorthand", true, "Default|Sensor.2|Usecase.Preview", 64, "0|1.2|2.0"},
        TextCase{"ShorthandCaseAndNumbers", true, "default|feature1.adrc|Scene.9", 64, "0|3.2|5.9"},
        TextCase{"ShorthandUnknownNames", true, "Sideways.Up|Effect.Mono", 64, "0.0|6.1"},
        TextCase{"ShorthandCut", true, "Default|Sensor.2|Usecase.Preview", 6, "0|1.2"},
        TextCase{"ShorthandEmpty", true, "", 8, ""},
        TextCase{"ShorthandZeroLength", true, "Default", 0, "Z"},
        TextCase{"Named", false, "0.0|1.2|2.0|3.2", 128,
                 "Default|Sensor.2|Usecase.Preview|Feature1.ADRC"},
        TextCase{"NamedUnnamedSubMode", false, "0.0|3.8", 128, "Default|Feature1.8"},
        TextCase{"NamedDefaultSubMode", false, "0.5", 128, "Default"},
        TextCase{"NamedEmpty", false, "", 128, "Default"},
        TextCase{"NamedNull", false, nullptr, 128, "Default"},
        TextCase{"NamedSeveralPaths", false, "0.0;0.0|2.1|4.24", 128,
                 "Default;Default|Usecase.Snapshot|Feature2.ViULLMCTF2"},
        TextCase{"NamedModeOutOfRange", false, "0.0|9.1|6.11", 128, "Default|.1|Effect.Whiteboard"},
        TextCase{"NamedCut", false, "0.0|1.2|2.0", 12, "Default|Sen"}),
    CaseName<TextCase>);

TEST_F(ModePathsTest, ChildModesNameTheNodesOwnChildren)
{
    EXPECT_EQ(ChildModes(nullptr), "Sensor.0,Sensor.2");
    EXPECT_EQ(m_written, 18u);
    EXPECT_EQ(ChildModes("0.0|1.0"), "Usecase.Preview,Usecase.Video");
    EXPECT_EQ(ChildModes("0.0|1.0|2.0"), "Feature1.ISPHDR,Feature1.ADRC");
    // A link lends modules, not children.
    EXPECT_EQ(ChildModes("0.0|1.0|2.2"), "");
    EXPECT_EQ(m_written, 1u);
    // A path that is not in the tree lists the root's children.
    EXPECT_EQ(ChildModes("0.0|4.4"), "Sensor.0,Sensor.2");

    EXPECT_EQ(ChildModes("0.0|1.0|2.0|3.2|4.3", 0), "");
    EXPECT_EQ(m_written, 0u);
    EXPECT_TRUE(m_log.HasMessage("Failed to write 1 bytes to binary offset 0, length 0\n"));
    std::vector<unsigned char> result(5, 0xEE);
    EXPECT_EQ(m_manager.GetChildModes(1, "0.0", result.data(), 4), 1u);
    EXPECT_EQ(result[0], 0);
    EXPECT_TRUE(m_log.HasMessage(
        "GetChildModes called with mode table index (1) >= mode table count (1)\n"));
    m_log.Clear();
    // The first child and the separator fit; the second child, its "." and the terminator do
    // not, and each byte that does not fit is logged.
    EXPECT_EQ(ChildModes(nullptr, 9), "Sensor.0,");
    EXPECT_EQ(m_written, 9u);
    EXPECT_EQ(m_log.Count("Failed to write 1 bytes to binary offset 9, length 9"), 2u);
}

TEST_F(ModePathsTest, ActiveModesShowDeepestActiveBranches)
{
    EXPECT_EQ(ActiveModes(), "Default");
    // An ancestor after its descendant is dropped; a descendant replaces its ancestor.
    EXPECT_EQ(ActiveModes({"0.0|1.0|2.0", "0.0|1.0", "0.0|1.2|2.1", "0.0|1.0|2.0|3.2|4.3|5.5"}),
              "Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10|Scene.Night;"
              "Default|Sensor.2|Usecase.Snapshot");
}

TEST_F(ModePathsTest, ActiveModesSkipResidentNodesAfterInactiveOne)
{
    // zsl is listed but inactive: sensor (resident) before it counts, sensor2 behind it does not,
    // and neither does a resident video.
    ActiveModes({"0.0|1.0"});
    m_table->activeModes.Add(Node("0.0|1.2|2.3"));
    ModeEntry* video = Node("0.0|1.0|2.2");
    video->resident = true;
    EXPECT_EQ(ActiveModes({"0.0|1.2", "0.0|1.0|2.2"}), "Default|Sensor.0");
    video->resident = false;
    EXPECT_EQ(ActiveModes(), "Default|Sensor.0|Usecase.Video");
}

TEST_F(ModePathsTest, ActiveModesReportAtMostFive)
{
    // Six active branches: the sixth is left out.
    EXPECT_EQ(ActiveModes({"0.0|1.0|2.0|3.1", "0.0|1.0|2.0|3.2|4.3", "0.0|1.0|2.2", "0.0|1.2|2.1",
                           "0.0|1.2|2.3", "0.0|1.0|2.0|3.1|3.2"}),
              "Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR;"
              "Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10;"
              "Default|Sensor.0|Usecase.Video;Default|Sensor.2|Usecase.Snapshot;"
              "Default|Sensor.2|Usecase.ZSL");
    char result[8] = "keep";
    m_manager.GetActiveModes(1, result, sizeof(result));
    m_manager.GetActiveModes(0, nullptr, sizeof(result));
    m_manager.GetActiveModes(0, result, 0);
    EXPECT_STREQ(result, "keep");
}

} // namespace
