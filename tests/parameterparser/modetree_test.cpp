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

/// A node's mode path; "null" for none.
std::string PathOf(ModeEntry* node)
{
    if (node == nullptr)
        return "null";
    char path[128] = {};
    node->GetModePath(path, sizeof(path));
    return path;
}

/// The slots of a table as "<path>[ p<mode's pipeline>/<slot's>][ r][ l][ -><link target>]",
/// "-" for an empty slot, joined by ", ": the path shows the parent chain the load made, r and l
/// a resident and a loaded node.
std::string Slots(TestSetManager& manager, unsigned int table = 0)
{
    ParameterModeTable* modeTable = manager.GetModeTable(table);
    std::string text;
    for (unsigned int i = 0; modeTable != nullptr && i < modeTable->m_modeCount; ++i) {
        ModeEntry* node = modeTable->modes[i].mode;
        text += i != 0 ? ", " : "";
        if (node == nullptr) {
            text += "-";
            continue;
        }
        text += PathOf(node);
        if (node->mode.Parts.pipeline != 0 || modeTable->modes[i].pipeline != 0)
            text += " p" + std::to_string(node->mode.Parts.pipeline) + "/" +
                    std::to_string(modeTable->modes[i].pipeline);
        text += std::string(node->resident ? " r" : "") + (node->loaded ? " l" : "");
        if (node->ResolveLink() != node)
            text += " ->" + PathOf(node->ResolveLink());
    }
    return text;
}

/// The paths of a node's children, in order, joined by ",".
std::string Children(ModeEntry* node)
{
    std::string text;
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        text += (text.empty() ? "" : ",") + PathOf(child);
    return text;
}

std::vector<TuningMode> Branch(std::initializer_list<std::pair<uint32_t, uint16_t>> steps)
{
    std::vector<TuningMode> branch;
    for (auto const& step : steps)
        branch.push_back(TuningMode{step.first, step.second, 0});
    return branch;
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

// Root and Sensor nodes are always resident, a Usecase node only by its flag; a buffer load reads
// every node. Table names, links and flags come with the versions that have them.
TEST_F(ModeTreeTest, ReadsTreeOfEveryFormat)
{
    struct Case
    {
        FileVersion version;
        char const* tableName; ///< null where the format has no name field
        char const* video;     ///< Usecase.Video's slot
    } const cases[] = {
        {{1, 0, 2}, nullptr, "0.0|1.0|2.2 l"},
        {{1, 1, 0}, nullptr, "0.0|1.0|2.2 l"},
        {{2, 0, 0}, nullptr, "0.0|1.0|2.2 l ->0.0|1.0|2.0"},
        {{3, 0, 1}, nullptr, "0.0|1.0|2.2 l ->0.0|1.0|2.0"},
        {{4, 0, 0}, "rear", "0.0|1.0|2.2 l ->0.0|1.0|2.0"},
        {{5, 0, 0}, "rear", "0.0|1.0|2.2 r l ->0.0|1.0|2.0"},
        {{7, 0, 0}, "rear", "0.0|1.0|2.2 r l ->0.0|1.0|2.0"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.version.major);
        TestSetManager manager;
        ASSERT_TRUE(Load(manager, ModeFile({SampleTable()}, test.version)));
        ParameterModeTable* table = manager.GetModeTable(0);
        EXPECT_STREQ(table->name != nullptr ? table->name : "null",
                     test.tableName != nullptr ? test.tableName : "null");
        EXPECT_EQ(Slots(manager), "0.0 r l, 0.0|1.0 r l, 0.0|1.0|2.0 l, " +
                                      std::string(test.video) + ", 0.0|1.0|2.0|3.2 p511/255 l");
        EXPECT_EQ(table->rootMode, SlotNode(manager, 0, 0));
        EXPECT_EQ(Children(SlotNode(manager, 0, 1)), "0.0|1.0|2.0,0.0|1.0|2.2");
    }
}

TEST_F(ModeTreeTest, PipelineVariantSharesParentAndOrphanStaysOutOfTree)
{
    ModeSectionBuilder builder;
    uint32_t const sensor = builder.AddPath("Default|Sensor.0");
    // A child of the variant entry hangs below the shared node.
    builder.AddChild(builder.AddChild(sensor, 1, 0, 3), 2, 1);
    ASSERT_TRUE(Load(m_manager, ModeFile({builder})));
    EXPECT_EQ(SlotNode(m_manager, 0, 2), SlotNode(m_manager, 0, 1));
    EXPECT_EQ(Slots(m_manager), "0.0 r l, 0.0|1.0 r l, 0.0|1.0 p0/3 r l, 0.0|1.0|2.1 l");
    EXPECT_EQ(Children(SlotNode(m_manager, 0, 1)), "0.0|1.0|2.1");

    // A child listed before its parent keeps no parent and is never reached.
    ModeSectionBuilder early;
    early.AddEntry({0, 0, 0, 0, 0, NoLink, 0})
        .AddEntry({1, 2, 2, 0, 0, NoLink, 0})
        .AddEntry({2, 0, 1, 0, 0, NoLink, 0});
    TestSetManager manager;
    ASSERT_TRUE(Load(manager, ModeFile({early})));
    EXPECT_EQ(Slots(manager), "0.0 r l, 2.0 l, 0.0|1.0 r l");
    EXPECT_EQ(manager.GetModeEntry(0, "0.0|1.0|2.0"), nullptr);
}

// A damaged entry, appended as slot 3 of a table of four, is refused with the error and the
// entries before it kept. The slot checks are at the bound: slot 4 of a table of four.
TEST_F(ModeTreeTest, RefusesDamagedEntryAndKeepsOthers)
{
    struct Case
    {
        ModeEntryRecord entry;
        char const* logged; ///< "" when the check logs nothing but the error
        char const* error;
    } const cases[] = {
        {{Table1 | 3, 2, 2, 1, 0, NoLink, 0},
         "ReadModeSection: Mode Table Index in Mode ID (16777219) does not match expected (0)\n",
         "ReadModeSection: Index from Mode ID does not match expected"},
        {{3, Table1 | 2, 2, 1, 0, NoLink, 0},
         "ReadModeSection: Mode Table Index != Parent Table Index,Mode ID (3), Parent ID "
         "(16777218)\n",
         "ReadModeSection: Mode Table Index != Parent Table Index"},
        {{3, 1, 2, 1, 0, Table1 | 2, 0},
         "ReadModeSection: Mode Table Index != Link Table Index, Mode ID (3), Link ID "
         "(16777218)\n",
         "ReadModeSection: Mode Table Index != Link Table Index"},
        {{4, 1, 2, 1, 0, NoLink, 0}, "", "ReadModeSection: Mode ID exceeds mode count"},
        {{3, 4, 2, 1, 0, NoLink, 0}, "", "ReadModeSection: Parent Mode ID exceeds mode count"},
        {{3, 1, 2, 1, 0, 4, 0}, "", "ReadModeSection: Link Mode ID exceeds mode count"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.error);
        m_log.Clear();
        ModeSectionBuilder builder;
        builder.AddPath("Default|Sensor.0|Usecase.Preview");
        builder.AddEntry(test.entry);
        TestSetManager manager;
        EXPECT_FALSE(Load(manager, ModeFile({builder})));
        EXPECT_STREQ(manager.GetErrorString(), test.error);
        // A check with its own message logs it before the error.
        EXPECT_EQ(m_log.Count("ReadModeSection"), test.logged[0] != '\0' ? 2u : 1u);
        EXPECT_TRUE(test.logged[0] == '\0' || m_log.HasMessage(test.logged));
        EXPECT_EQ(Slots(manager), "0.0 r l, 0.0|1.0 r l, 0.0|1.0|2.0 l, -");
    }
}

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
    // The same tables the other way round.
    bad = ModeSectionBuilder(1, "bad");
    bad.AddPath("Default");
    bad.AddEntry({Table1 | 5, Table1, 1, 0, 0, NoLink, 0});
    good = ModeSectionBuilder(0, "good");
    good.AddPath("Default|Sensor.1");
    TestSetManager second;
    EXPECT_FALSE(Load(second, ModeFile({good, bad})));
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
    // The name alone is a table without slots.
    TestSetManager named;
    EXPECT_TRUE(Load(named, ModeFile({ModeSectionBuilder(0, "empty")}, version)));
    EXPECT_EQ(named.GetModeTable(0)->m_modeCount, 0u);
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
    // The section records read again replace those read before.
    for (int pass = 0; pass < 2; ++pass) {
        unsigned int at = sectionOffset;
        ASSERT_TRUE(m_manager.ReadSectionInfo(bytes.data(), size, at, alignment));
    }
    ASSERT_EQ(m_manager.GetModeSections().Count(), 1u);
    // The second entry's Mode ID is readable, its Mode field is not.
    unsigned int const secondEntry = m_manager.GetModeSections()[0].Offset + 128 + 24;
    unsigned int const length = secondEntry + 6;

    EXPECT_TRUE(m_manager.ReadModeSections(bytes.data(), length, nullptr, alignment));
    EXPECT_TRUE(m_log.HasMessage("Failed to read 8 bytes from binary file offset " +
                                 std::to_string(secondEntry + 4) + ", length " +
                                 std::to_string(length) + "\n"));
    // Mode 0.0 below the root slot: the entry shares the root's node. Slots stop where the
    // buffer does: a section size claiming more allocates no more.
    EXPECT_EQ(SlotNode(m_manager, 0, 1), SlotNode(m_manager, 0, 0));
    EXPECT_EQ(Slots(m_manager), "0.0 r l, 0.0 r l");
    EXPECT_EQ(Children(SlotNode(m_manager, 0, 0)), "");

    EXPECT_FALSE(m_manager.ReadModeSections(nullptr, 100, nullptr, 1));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReadModeSection: Failed, buffer is nullptr");
    EXPECT_FALSE(m_manager.ReadModeSections(bytes.data(), 0, nullptr, 1));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReadModeSection: Failed, buffer length is 0");
    EXPECT_EQ(m_manager.GetModeTableCount(), 1u);
}

// Root and Sensor nodes are read at once, the others when a lookup asks for them.
TEST_F(ModeTreeTest, FileModeReadsSectionsFromTheFile)
{
    ParamTest::TempFile file(ModeFile({SampleTable()}, {}, 4000));
    ASSERT_TRUE(m_manager.LoadBinaryParameters(file.Path().c_str()));
    ASSERT_TRUE(m_manager.IsFileMode());
    EXPECT_STREQ(m_manager.GetModeTable(0)->name, "rear");
    EXPECT_EQ(Slots(m_manager), "0.0 r l, 0.0|1.0 r l, 0.0|1.0|2.0, 0.0|1.0|2.2 r ->0.0|1.0|2.0, "
                                "0.0|1.0|2.0|3.2 p511/255");

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
    ASSERT_TRUE(m_manager.GetModeTableNames(names) && names.Count() == 2u);
    EXPECT_EQ(std::string(names[0]) + "," + names[1], "front,rear");

    // A Mode ID's table and slot are checked at their bounds.
    EXPECT_EQ(m_manager.GetModeEntry(Table1 | 4)->mode->modeId, Table1 | 4);
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

    m_manager.FreeBinaryParameters();
    names.Clear();
    EXPECT_FALSE(m_manager.GetModeTableNames(names) || names.Count() != 0u);

    // A file of 7.0.0 or later is searched for a table name without a load.
    ParamTest::TempFile multi(bytes);
    ParamTest::TempFile older(ModeFile({SampleTable(0, "front")}, {6, 0, 0}));
    std::string const missing = multi.Path() + ".missing";
    struct Case
    {
        char const* path;
        char const* name;
        bool exists;
    } const cases[] = {
        {multi.Path().c_str(), "front", true},  {multi.Path().c_str(), "rear", true},
        {multi.Path().c_str(), "rea", false},   {multi.Path().c_str(), "side", false},
        {older.Path().c_str(), "front", false}, {nullptr, "front", false},
        {missing.c_str(), "front", false}};
    for (Case const& test : cases)
        EXPECT_EQ(ParameterSetManager::ModeTableEntryExists(test.path, test.name), test.exists)
            << test.name;
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
    // The run names the same two nodes whichever order the client states them in; a single
    // Feature1.2 step is ADRC directly below Preview, a different node.
    EXPECT_EQ(PathOf(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}, {3, 1}}))),
              "0.0|1.0|2.0|3.1|3.2");
    EXPECT_EQ(PathOf(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}}))), "0.0|1.0|2.0|3.2");
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

    // Video lends Preview's sub-modes through its link.
    EXPECT_EQ(Node("0.0|1.0|2.2|3.2|4.3"), Node("0.0|1.0|2.0|3.2|4.3"));
    EXPECT_EQ(Node("0.0|1.0|2.2")->FindMode(&Branch({{3, 1}})[0]), Node("0.0|1.0|2.0|3.1"));

    // A node's own path, cut to the buffer, and its ancestry.
    char cut[10] = {};
    night->GetModePath(cut, sizeof(cut));
    EXPECT_STREQ(cut, "0.0|1.0|2");
    EXPECT_TRUE(night->IsParent(m_table->rootMode));
    EXPECT_FALSE(night->IsParent(night) || m_table->rootMode->IsParent(night) ||
                 night->IsParent(nullptr));
}

TEST_F(ModePathsTest, RefusedStepsAndTableIndexAreReported)
{
    // Mode value 6 is the last valid one, and a step of it that is not in the tree ends the walk
    // with nothing; Default is valid only at index 0, where any step stands for the root.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {6, 1}})), nullptr);
    EXPECT_STREQ(m_manager.GetErrorString(), "");
    EXPECT_FALSE(m_manager.ValidateMode("Caller", Branch({{0, 0}, {7, 0}}).data(), 1));
    EXPECT_TRUE(m_log.HasMessage("Caller Error: Invalid Mode value (7) found in modeBranch[1]. "
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

    // A branch written as a path stops at the first refused step; each text is cut at its
    // buffer's length, and nothing is written for no branch or no step.
    std::vector<TuningMode> const full = Branch({{0, 0}, {1, 2}, {2, 0}, {3, 65535}});
    std::vector<TuningMode> const invalid = Branch({{0, 0}, {1, 1}, {9, 0}, {2, 0}});
    struct Case
    {
        TuningMode const* branch;
        unsigned int count;
        unsigned int length;
        char const* expected; ///< from a buffer that held "x|"
    } const cases[] = {
        {full.data(), 4, 64, "x|0.0|1.2|2.0|3.65535"},
        {full.data(), 4, 8, "x|0.0|1"},
        {full.data(), 1, 8, "x|0.0"},
        {invalid.data(), 4, 64, "x|0.0|1.1"},
        {nullptr, 4, 8, "x|"},
        {full.data(), 0, 8, "x|"},
    };
    for (Case const& test : cases) {
        char text[64] = "x|";
        m_manager.GetPathFromModeBranch(test.branch, test.count, text, test.length);
        EXPECT_STREQ(text, test.expected);
    }
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetPathFromModeBranch Error: Invalid Mode value (9) found in modeBranch[2]. "
                 "Expected range: 0 to 6");
}

// Mode and sub-mode numbers from names, named paths to mode paths (shorthand), mode paths to
// named paths, and mode paths to branches. Each text is cut at length and terminated inside it;
// the byte behind length stays untouched ("Z" where nothing may be written).
TEST(ModeTextTest, ConvertsNamesAndPaths)
{
    enum Kind
    {
        ModeNumber,
        SubModeNumber,
        Shorthand,
        Named,
        BranchOf,
    };
    struct Case
    {
        Kind kind;
        char const* input;
        unsigned int number;  ///< the mode of a sub-mode name, or the text's length
        char const* expected; ///< a number in decimal; a branch as "m.s|m.s", "!" when refused
    } const cases[] = {
        {ModeNumber, "usecase", 0, "2"},
        {ModeNumber, "EFFECT", 0, "6"},
        {ModeNumber, "Feature2", 0, "4"},
        {ModeNumber, "Use", 0, "0"},
        {ModeNumber, "Usecases", 0, "0"},
        {ModeNumber, nullptr, 0, "0"},
        {SubModeNumber, "7", 2, "7"},
        {SubModeNumber, "300", 2, "300"},
        {SubModeNumber, "idealraw", 2, "6"},
        {SubModeNumber, "IdealRawReprocess", 2, "7"},
        {SubModeNumber, "viullmctf2", 4, "24"},
        {SubModeNumber, "AICam", 5, "21"},
        {SubModeNumber, "whiteboard", 6, "11"},
        {SubModeNumber, "Previe", 2, "0"},
        {SubModeNumber, "Preview", 1, "0"},
        {SubModeNumber, nullptr, 3, "0"},
        {Shorthand, "Default|Sensor.2|Usecase.Preview", 64, "0|1.2|2.0"},
        {Shorthand, "default|feature1.adrc|Scene.9", 64, "0|3.2|5.9"},
        {Shorthand, "Sideways.Up|Effect.Mono", 64, "0.0|6.1"},
        {Shorthand, "Default|Sensor.2|Usecase.Preview", 6, "0|1.2"},
        {Shorthand, "", 8, ""},
        {Shorthand, "Sensor.1|Scene.9||Effect.Mono", 64, "1.1|5.9"},
        {Shorthand, "Default", 0, "Z"},
        {Named, "0.0|1.2|2.0|3.2", 128, "Default|Sensor.2|Usecase.Preview|Feature1.ADRC"},
        {Named, "0.0|3.8", 128, "Default|Feature1.8"},
        {Named, "0.5", 128, "Default"},
        {Named, "", 128, "Default"},
        {Named, nullptr, 128, "Default"},
        {Named, "0.0;0.0|2.1|4.24", 128, "Default;Default|Usecase.Snapshot|Feature2.ViULLMCTF2"},
        {Named, "0.0|9.1|6.11", 128, "Default|.1|Effect.Whiteboard"},
        {Named, "0.0|1.2|2.0", 12, "Default|Sen"},
        {BranchOf, "0.0|1.2|2.0|3.2", 0, "0.0|1.2|2.0|3.2"},
        {BranchOf, nullptr, 0, "!"},
        {BranchOf, "", 0, "!"},
        {BranchOf, "0.0|a.1", 0, "!0.0"}, // a letter keeps the steps before it
        {BranchOf, "0.0|1.2.3", 0, "!0.0"},
        {BranchOf, "12", 0, "0.2"}, // no dot: the first digit is skipped
        {BranchOf, "5", 0, "0.0"},
        {BranchOf, ".3", 0, "0.3"},
        {BranchOf, "0.0||2.0", 0, "0.0"}, // an empty item ends the path
        {BranchOf, "0.0|3.0000001|2.0", 0, "0.0|3.1|2.0"},
        // Ten characters: the item is cut to nine, its tenth is taken as the separator and the
        // real separator then reads as an empty item.
        {BranchOf, "0.0|3.00000012|2.0", 0, "0.0|3.1"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.input != nullptr ? test.input : "null");
        std::string result;
        std::vector<char> text(test.number + 2, 'Z');
        text.back() = '\0';
        PList<TuningMode> branch;
        switch (test.kind) {
        case ModeNumber:
            result = std::to_string(ParameterSetManager::GetModeIndex(test.input));
            break;
        case SubModeNumber:
            result = std::to_string(ParameterSetManager::GetSubModeIndex(
                static_cast<unsigned short>(test.number), test.input));
            break;
        case Shorthand:
            TestSetManager().GetModeShorthand(test.input, text.data(), test.number);
            result = text.data();
            break;
        case Named:
            ParameterSetManager::GetKnobbyModesString(test.input, text.data(), test.number);
            result = text.data();
            break;
        case BranchOf:
            result = TestSetManager().GetModeBranchFromPath(test.input, branch) ? "" : "!";
            for (unsigned int i = 0; i < branch.Count(); ++i)
                result += (i != 0 ? "|" : "") + std::to_string(branch[i].mode) + "." +
                          std::to_string(branch[i].subMode);
            break;
        }
        EXPECT_EQ(result, test.expected);
    }
    // Feature1 has eight sub-mode names: 7 is the last named one.
    ModeEntry node(false, false);
    node.Initialize(1, 3, 7, nullptr);
    EXPECT_STREQ(node.GetSubModeName(), "FDProcess");
    node.Initialize(1, 3, 8, nullptr);
    EXPECT_EQ(node.GetSubModeName(), nullptr);
    node.Initialize(1, 1, 0, nullptr);
    EXPECT_EQ(node.GetSubModeName(), nullptr);
    // Mode 6 is the last with names; 7 has none.
    EXPECT_EQ(ModeEntry::GetSubModeNameCount(3), 8u);
    EXPECT_EQ(ModeEntry::GetSubModeNameCount(7), 0u);
    EXPECT_EQ(ModeEntry::GetSubModeName(7, 0), nullptr);
}

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

// The deepest active branches, at most five: an ancestor after its descendant is dropped, a
// descendant replaces its ancestor. A listed node that is inactive ends the resident nodes that
// count: a resident one before it counts, one behind it does not.
TEST_F(ModePathsTest, ActiveModesShowDeepestActiveBranches)
{
    EXPECT_EQ(ActiveModes(), "Default");
    EXPECT_EQ(ActiveModes({"0.0|1.0|2.0", "0.0|1.0", "0.0|1.2|2.1", "0.0|1.0|2.0|3.2|4.3|5.5"}),
              "Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10|Scene.Night;"
              "Default|Sensor.2|Usecase.Snapshot");
    // Six active branches: the sixth is left out.
    m_table->activeModes.Clear();
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

    Node("0.0|1.2|2.3")->modules.clear();
    m_table->activeModes.Clear();
    ActiveModes({"0.0|1.0"});
    m_table->activeModes.Add(Node("0.0|1.2|2.3"));
    ModeEntry* video = Node("0.0|1.0|2.2");
    video->resident = true;
    EXPECT_EQ(ActiveModes({"0.0|1.2", "0.0|1.0|2.2"}), "Default|Sensor.0");
    video->resident = false;
    EXPECT_EQ(ActiveModes(), "Default|Sensor.0|Usecase.Video");
}

} // namespace
