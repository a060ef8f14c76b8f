// SPDX-License-Identifier: Apache-2.0
// Module lookup: which node's module a branch finds, references and their misuse, lazy loading,
// the active mode list and its eviction, and all of it from several threads at once.
#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/lookupfixture.h"

namespace ParamTest {
namespace {

constexpr uint16_t ISPHDR = 1;
/// The shipped managers' limit of listed modes that no client holds.
constexpr unsigned int ActiveLimit = 17;

std::vector<TuningMode> Row(unsigned int k)
{
    return Branch({{ModeUsecase, 0}, {ModeFeature1, static_cast<uint16_t>(k)}});
}

class LookupTest : public testing::Test
{
protected:
    /// Loads file into a manager that registers the lookup kinds: in file mode from a temporary
    /// file, otherwise from memory.
    void Load(LookupFile const& file, bool fileMode = true, unsigned int limit = ActiveLimit)
    {
        m_bytes = file.Build();
        TestSetManager::Options options;
        options.registerModules = true;
        options.fileModeAllowed = fileMode;
        options.maxActiveModes = limit;
        m_manager = std::make_unique<TestSetManager>(options);
        m_file = std::make_unique<TempFile>(m_bytes);
        ASSERT_TRUE(m_manager->LoadBinaryParameters(m_file->Path().c_str()));
        ASSERT_EQ(m_manager->IsFileMode(), fileMode);
        m_log.Clear();
    }

    ParameterModule* Get(char letter, std::vector<TuningMode> const& branch,
                         ParameterModule* previous = nullptr, unsigned char table = 0)
    {
        return m_manager->GetModuleInternal(table, LookupModule(letter), branch.data(),
                                            static_cast<unsigned int>(branch.size()), previous,
                                            true);
    }

    ModeEntry* Node(uint32_t modeId) { return NodeOf(*m_manager, modeId); }
    PList<ModeEntry*>& ActiveModes() { return m_manager->GetModeTable(0)->activeModes; }

    /// The messages of this run that start with prefix.
    std::vector<std::string> MessagesStartingWith(std::string const& prefix) const
    {
        std::vector<std::string> found;
        for (std::string const& message : m_log.Messages()) {
            if (message.compare(0, prefix.size(), prefix) == 0)
                found.push_back(message);
        }
        return found;
    }

    LogCapture m_log;
    std::vector<uint8_t> m_bytes;
    std::unique_ptr<TempFile> m_file;
    std::unique_ptr<TestSetManager> m_manager;
};

// ---- Which module a branch finds ---------------------------------------------------------------

/// Root: A, B. Preview: A, C. Preview|Feature1.ISPHDR: A. Below it Feature1.ADRC: A. Video links
/// to Preview and holds a B of its own, as does the ISPHDR node below it.
LookupFile RuleFile()
{
    LookupFile file;
    uint32_t const root = file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    uint32_t const video = file.Table().AddChild(root, ModeUsecase, 2, 0, 0, preview);
    file.AddModule('A', root, "root");
    file.AddModule('B', root, "rootB");
    file.AddModule('A', preview, "preview");
    file.AddModule('C', preview, "previewC");
    file.AddModule('A', file.Path("Default|Usecase.Preview|Feature1.ISPHDR"), "isphdr");
    file.AddModule('A', file.Path("Default|Usecase.Preview|Feature1.ISPHDR|Feature1.ADRC"), "adrc");
    file.AddModule('B', video, "video");
    file.AddModule('B', file.Table().AddChild(video, ModeFeature1, ISPHDR), "videoChild");
    return file;
}

struct RuleCase
{
    char const* name;
    char letter;
    std::vector<TuningMode> branch;
    int nullCount;        ///< -1: the branch is passed; otherwise a null branch with this count
    char const* expected; ///< revision of the module found; null: no module
    char const* message;  ///< the one "GetModule..." line; null: none
};

std::vector<RuleCase> RuleCases()
{
    std::vector<TuningMode> offTree = Branch({{ModeUsecase, 0}, {ModeScene, 3}, {ModeEffect, 1}});
    std::vector<TuningMode> notDefault = Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}});
    notDefault[0] = TuningMode{ModeSensor, 2, 0};
    // A run of one mode names nested nodes in either order; one longer than the tree's chain
    // leaves the tree.
    std::vector<TuningMode> run = Branch({{ModeUsecase, 0}, {ModeFeature1, 2}, {ModeFeature1, 1}});
    std::vector<TuningMode> longRun = run;
    longRun[3].subMode = 5;
    // clang-format off
    return {
        {"OnlyInChildMode", 'C', Branch({{ModeUsecase, 0}}), -1, "previewC",
         "GetModule versionsC_sw module not found in default scenario (0.0), mode path: 0.0|2.0\n"},
        {"DeepestNodeWins", 'A', Row(ISPHDR), -1, "isphdr", nullptr},
        {"ParentFillsGapBelow", 'B', Row(ISPHDR), -1, "rootB", nullptr},
        {"OffTreeAtStepTwoOfFour", 'A', offTree, -1, "preview", nullptr},
        {"StepZeroNotDefault", 'A', notDefault, -1, "isphdr",
         "GetModule(versionsA_sw) called with first mode != Default, might not return module data "
         "from the desired mode path: 1.2|2.0|3.1\n"},
        {"RunInOtherOrder", 'A', run, -1, "adrc", nullptr},
        {"RunLongerThanTree", 'A', longRun, -1, "preview", nullptr},
        {"NullBranch", 'A', {}, 0, "root", nullptr},
        {"NullBranchWithCount", 'A', {}, 3, "root",
         "GetModule(versionsA_sw) called with modeBranch == null and modeCount = 3, will return "
         "default mode module data\n"},
        {"NullBranchChildModule", 'C', {}, 0, nullptr,
         "GetModule versionsC_sw module not found in default scenario (0.0), mode path: \n"},
        {"InvalidModeValueEndsWalk", 'A', Branch({{ModeUsecase, 0}, {9, 0}, {ModeFeature1, 1}}), -1,
         "preview", "GetModule Error: Invalid Mode value (9) found in modeBranch[2]. Expected "
         "range: 0 to 6\n"},
        // A link serves its target's modules, never the entries of the linked node or its own
        // children; the walk goes on below the target.
        {"LinkServesTheTarget", 'A', Branch({{ModeUsecase, 2}}), -1, "preview", nullptr},
        {"LinkedNodeOwnEntryUnseen", 'B', Branch({{ModeUsecase, 2}}), -1, "rootB", nullptr},
        {"LinkWalksBelowTheTarget", 'A', Branch({{ModeUsecase, 2}, {ModeFeature1, ISPHDR}}), -1,
         "isphdr", nullptr},
    };
    // clang-format on
}

TEST_F(LookupTest, DeepestNodeOfTheBranchWins)
{
    for (bool const fileMode : {true, false}) {
        Load(RuleFile(), fileMode);
        for (RuleCase const& test : RuleCases()) {
            SCOPED_TRACE(std::string(test.name) + (fileMode ? " in file mode" : ""));
            m_log.Clear();
            bool const null = test.nullCount >= 0;
            ParameterModule* found = m_manager->GetModuleInternal(
                0, LookupModule(test.letter), null ? nullptr : test.branch.data(),
                null ? test.nullCount : static_cast<unsigned int>(test.branch.size()), nullptr,
                false);
            EXPECT_STREQ(Revision(found), test.expected);
            if (found != nullptr)
                found->Release();
            EXPECT_EQ(MessagesStartingWith("GetModule"),
                      test.message != nullptr ? std::vector<std::string>{test.message}
                                              : std::vector<std::string>{});
        }
    }
}

// ---- References --------------------------------------------------------------------------------

// Asking again with the pointer just returned leaves the count alone; another module takes the
// new reference before previous is given back, also when nothing is found. A node's count of one
// module sums the counts from that module to the end of its map. Buffer mode counts nothing.
TEST_F(LookupTest, PreviousIsReleasedAfterTheNewReferenceIsTaken)
{
    for (bool const fileMode : {true, false}) {
        SCOPED_TRACE(fileMode ? "file mode" : "buffer mode");
        Load(RuleFile(), fileMode);
        int const one = fileMode ? 1 : 0;
        ParameterModule* held = Get('A', Branch({{ModeUsecase, 0}}));
        ASSERT_NE(held, nullptr);
        EXPECT_EQ(Get('A', Branch({{ModeUsecase, 0}}), held), held);
        ParameterModule* c = Get('C', Branch({{ModeUsecase, 0}}));
        ModeEntry* preview = m_manager->GetModeEntry(0, Branch({{ModeUsecase, 0}}).data(), 2);
        ParameterModule* first = preview->modules.begin()->second.module;
        ParameterModule* second = first == c ? held : c;
        // A module's count sums the counts from it to the end of its node's map.
        EXPECT_EQ(std::make_tuple(preview->GetReferenceCount(nullptr), first->GetReferenceCount(),
                                  second->GetReferenceCount()),
                  std::make_tuple(2u * one, 2 * one, one));
        c->Release();
        ParameterModule* deeper = Get('A', Row(ISPHDR), held);
        ASSERT_NE(deeper, nullptr);
        EXPECT_EQ(std::make_pair(held->GetReferenceCount(), deeper->GetReferenceCount()),
                  std::make_pair(0, one));
        EXPECT_EQ(Get('D', Branch({{ModeUsecase, 0}}), deeper), nullptr);
        EXPECT_EQ(deeper->GetReferenceCount(), 0);
        EXPECT_TRUE(MessagesStartingWith("Attempt").empty());
        EXPECT_TRUE(fileMode || !m_log.Contains("LoadMode"));
    }
}

/// Root: C. Preview: A, B in a pipeline variant slot (pipeline 3), C shared with the root.
struct SharedFile
{
    LookupFile file;
    uint32_t root = file.Path("Default");
    uint32_t preview = file.Path("Default|Usecase.Preview");
    uint32_t rootC = file.AddModule('C', root, "rootC");

    SharedFile()
    {
        file.AddModule('A', preview, "a");
        file.AddModule('B', file.Table().AddChild(preview, ModeUsecase, 0, 3), "b");
        file.AddModule('C', preview, "sharedC", rootC);
    }
};

TEST_F(LookupTest, ReferenceMisuseIsLoggedAndLeavesCountsAlone)
{
    SharedFile shared;
    Load(shared.file);
    ModeEntry* preview = Node(shared.preview);
    ModeEntry* root = Node(shared.root);
    unsigned long const hashA = ParserCRC64::HashName("versionsA_sw");
    ParameterModule* a = preview->FindModule(hashA);
    ParameterModule* b = preview->FindModule(ParserCRC64::HashName("versionsB_sw"));
    ParameterModule* c = preview->FindModule(ParserCRC64::HashName("versionsC_sw"));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(c, root->FindModule(c->moduleNameHash));
    ParameterModule* factory = m_manager->GetDefaultModule(hashA)->module;
    // One real reference on each of a and c, which no misuse may move.
    ASSERT_EQ(Get('A', Branch({{ModeUsecase, 0}})), a);
    ASSERT_EQ(Get('C', Branch({})), c);

    struct Case
    {
        char const* name;
        std::function<void()> act;
        std::string message;
    };
    std::vector<Case> const cases = {
        {"AddToNodeWithoutIt", [&] { root->AddReference(a); },
         "Attempt to add reference to a non-existant module.  Mode: 0, SubMode: 0, Module "
         "versionsA_sw\n"},
        {"AddThroughSharingNode", [&] { preview->AddReference(c); },
         "Attempt to add module reference from wrong mode.  Mode: 2, SubMode: 0, Module "
         "versionsC_sw, ModePath: 0.0\n"},
        {"ReleaseFromNodeWithoutIt", [&] { root->ReleaseReference(a); },
         "Attempt to release a non-existant module.  Mode: 0, SubMode: 0, Module versionsA_sw\n"},
        {"ReleaseThroughSharingNode", [&] { preview->ReleaseReference(c); },
         "Attempt to release module reference from wrong mode.  Mode: 2, SubMode: 0, Module "
         "versionsC_sw, ModePath: 0.0\n"},
        {"ReleaseUnreferenced", [&] { b->Release(); },
         "Attempt to release unreferenced module.  Mode: 2, SubMode: 0, Module versionsB_sw\n"},
        {"ManagerReleasesFactory", [&] { m_manager->ReleaseModule(factory); },
         "Attempt to release module with a nullptr Data object.  Mode: 0, SubMode: 0, Module "
         "versionsA_sw\n"},
        {"FactoryReleasesItself", [&] { factory->Release(); },
         "Attempt to release module reference when Data or SetManager is nullptr. Module "
         "versionsA_sw\n"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        m_log.Clear();
        test.act();
        EXPECT_EQ(m_log.Messages(), std::vector<std::string>{test.message});
        EXPECT_EQ(preview->GetReferenceCount(nullptr), 1u);
        EXPECT_EQ(c->GetReferenceCount(), 1);
        EXPECT_EQ(preview->modules.at(b->moduleNameHash).refCount.load(), 0);
        EXPECT_EQ(factory->GetReferenceCount(), 0);
    }
}

TEST_F(LookupTest, GetModulesFiltersByOwnerAndPipeline)
{
    SharedFile shared;
    Load(shared.file);
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    PipelineType pipeline = 2;
    PipelineType otherPipeline = 0;
    struct Case
    {
        bool local;
        bool shared;
        PipelineType* pipeline;
        char const* expected;
    } const cases[] = {
        {true, true, nullptr, "versionsA_sw versionsB_sw versionsC_sw "},
        {true, false, nullptr, "versionsA_sw versionsB_sw "},
        {false, true, nullptr, "versionsC_sw "},
        {false, false, nullptr, ""},
        {true, true, &pipeline, "versionsB_sw "},
        {true, true, &otherPipeline, ""},
    };
    PList<ParameterModule*> list;
    auto const names = [&list] {
        std::vector<std::string> sorted;
        for (unsigned int i = 0; i < list.Count(); ++i) {
            // Every module handed out holds a reference on its owner until the list is released.
            EXPECT_GE(list[i]->GetReferenceCount(), 1) << list[i]->moduleName;
            sorted.emplace_back(std::string(list[i]->moduleName) + " ");
        }
        std::sort(sorted.begin(), sorted.end());
        std::string joined;
        for (std::string const& name : sorted)
            joined += name;
        return joined;
    };
    for (Case const& test : cases) {
        m_manager->GetModules(0, list, branch.data(), count, test.local, test.shared,
                              test.pipeline);
        EXPECT_EQ(names(), test.expected);
    }
    m_manager->GetModules(0, list, nullptr, 0, true, true, nullptr);
    EXPECT_EQ(names(), "versionsC_sw ");
    m_manager->ReleaseModules(list);
    EXPECT_FALSE(Node(shared.preview)->IsActive());
    EXPECT_FALSE(Node(shared.root)->IsActive());
    EXPECT_TRUE(MessagesStartingWith("Attempt").empty());
    // A branch that leaves the tree gives nothing.
    std::vector<TuningMode> const missing = Branch({{ModeUsecase, 5}});
    m_manager->GetModules(0, list, missing.data(), 2, true, true, nullptr);
    EXPECT_EQ(list.Count(), 0u);
}

// ---- Bad arguments -----------------------------------------------------------------------------

// Table index 1 is the first past the one table; previous is given back all the same. Unknown
// modules give null; a mode not in the tree is reported by a load and refused by an unload.
// A record of a known kind whose class refuses it (another module version) fails the load; the
// error names the kind by an instance made before.
TEST_F(LookupTest, RefusedRecordFailsTheLoadNamingItsKind)
{
    LookupFile file;
    file.AddModule('A', file.Path("Default"), "root");
    file.AddModule('A', file.Path("Default|Usecase.Preview"), "preview", 0, {1, 0, 1});
    m_bytes = file.Build();
    TestSetManager::Options options;
    options.registerModules = true;
    TestSetManager manager(options);
    EXPECT_FALSE(manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size()));
    EXPECT_STREQ(manager.GetErrorString(), "Failed to parse binary header data for:  Name: "
                                           "versionsA_sw, Major: 1, Minor: 0, Patch: 1, Mode: 2");
}

TEST_F(LookupTest, BadArgumentsAreLoggedAndRefused)
{
    Load(RuleFile());
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    std::vector<TuningMode> const missing = Branch({{ModeUsecase, 3}});
    auto const count = static_cast<unsigned int>(branch.size());
    ParameterModule* held = Get('A', branch);
    ASSERT_NE(held, nullptr);
    m_log.Clear();
    EXPECT_EQ(Get('A', branch, held, 1), nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 0);
    EXPECT_FALSE(m_manager->LoadModeInternal(1, branch.data(), count, nullptr));
    EXPECT_FALSE(m_manager->UnloadMode(1, branch.data(), count));
    PList<ParameterModule*> list;
    m_manager->GetModules(1, list, branch.data(), count, true, true, nullptr);
    EXPECT_EQ(list.Count(), 0u);
    for (char const* name : {"noSuchModule", static_cast<char const*>(nullptr)})
        EXPECT_EQ(m_manager->GetModuleInternal(0, name, branch.data(), count, nullptr, true),
                  nullptr);
    EXPECT_FALSE(m_manager->LoadModeInternal(0, missing.data(), 2, "test"));
    EXPECT_FALSE(m_manager->UnloadMode(0, missing.data(), 2));
    PList<ParameterParserInfo> info;
    EXPECT_FALSE(m_manager->GetInfo(0, branch.data(), count, nullptr, info));
    std::vector<std::string> const expected = {
        "GetModuleInternal called with mode table index (1) >= mode table count (1)\n",
        "LoadModeInternal called with mode table index (1) >= mode table count (1)\n",
        "UnloadMode called with mode table index (1) >= mode table count (1)\n",
        "GetModules called with mode table index (1) >= mode table count (1)\n",
        "GetModule noSuchModule module not found in default scenario (0.0), mode path: 0.0|2.0\n",
        "GetModule  module not found in default scenario (0.0), mode path: 0.0|2.0\n"};
    std::vector<std::string> messages = m_log.Messages();
    messages.resize(std::min<size_t>(messages.size(), expected.size()));
    EXPECT_EQ(messages, expected);

    // A load of a branch reads the modes it names; a tool walking the tree after an unload
    // finds the modules of the branch read, as a client would.
    EXPECT_TRUE(m_manager->LoadModeInternal(0, branch.data(), count, "test"));
    EXPECT_TRUE(m_manager->GetModeTable(0)->rootMode->loaded);
    EXPECT_FALSE(m_manager->GetModeTable(0)->rootMode->IsActive());
    EXPECT_TRUE(m_manager->UnloadMode(0, branch.data(), count));
    ModeEntry* preview = m_manager->GetModeEntry(0, branch.data(), count);
    ASSERT_NE(preview, nullptr);
    EXPECT_TRUE(preview->loaded);
    EXPECT_STREQ(m_manager->GetErrorString(), "");
}

// A manager with no file and one in buffer mode refuse loads of modes; lookups in buffer mode
// only search: no load is tried and no error is left behind.
TEST_F(LookupTest, LoadAndUnloadModeNeedAFileMode)
{
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    TestSetManager empty;
    EXPECT_FALSE(empty.LoadMode(0, branch.data(), count, nullptr));
    EXPECT_STREQ(empty.GetErrorString(), "LoadMode called with no binary file loaded");
    Load(RuleFile(), false);
    EXPECT_NE(Get('A', branch), nullptr);
    EXPECT_STREQ(m_manager->GetErrorString(), "");
    EXPECT_FALSE(m_manager->LoadMode(0, branch.data(), count, "direct"));
    EXPECT_STREQ(m_manager->GetErrorString(), "LoadMode is not valid in buffer mode");
    EXPECT_TRUE(m_manager->UnloadMode(0, branch.data(), count));
    EXPECT_STREQ(m_manager->GetErrorString(), "UnloadMode is not valid in buffer mode");
    EXPECT_TRUE(Get('A', branch)->loaded);
}

// ---- File mode: lazy loads, the active list, eviction ------------------------------------------

/// Root: B. Sensor.0: D. Preview (no modules) with Feature1.0 to Feature1.<count-1> below it,
/// each holding A tagged "f<k>"; Usecase.Video, resident, holding A "video".
struct RowFile
{
    LookupFile file;
    uint32_t root = file.Path("Default");
    uint32_t sensor = file.Path("Default|Sensor.0");
    uint32_t preview = file.Path("Default|Usecase.Preview");
    uint32_t video = file.Table().AddChild(root, ModeUsecase, 2, 0, TuningWriter::ModeFlagResident);
    std::vector<uint32_t> rows;

    /// With shareEvery, Preview holds B "previewB" and every shareEvery-th row shares it.
    explicit RowFile(unsigned int count = ActiveLimit + 1, unsigned int shareEvery = 0)
    {
        file.AddModule('B', root, "root");
        file.AddModule('D', sensor, "sensor");
        file.AddModule('A', video, "video");
        uint32_t const previewB = shareEvery != 0 ? file.AddModule('B', preview, "previewB") : 0;
        for (unsigned int k = 0; k < count; ++k) {
            rows.push_back(file.Table().AddChild(preview, ModeFeature1, static_cast<uint16_t>(k)));
            file.AddModule('A', rows.back(), "f" + std::to_string(k));
            if (shareEvery != 0 && k % shareEvery == 0)
                file.AddModule('B', rows.back(), "previewB", previewB);
        }
    }
};

TEST_F(LookupTest, OldestUnheldModeIsUnloadedPastTheLimit)
{
    // A manager's limit below five still lists five modes.
    for (auto const& limits : {std::make_pair(ActiveLimit, ActiveLimit), std::make_pair(1u, 5u)}) {
        unsigned int const listed = limits.second;
        SCOPED_TRACE(listed);
        RowFile rows;
        Load(rows.file, true, limits.first);
        std::vector<ParameterModule*> seen;
        for (unsigned int k = 0; k <= listed; ++k) {
            ParameterModule* module = Get('A', Row(k));
            EXPECT_EQ(Revision(module), "f" + std::to_string(k));
            seen.push_back(module);
            module->Release();
            // Up to the limit every visited mode stays listed and loaded.
            if (k < listed) {
                EXPECT_TRUE(Node(rows.rows[0])->loaded && ActiveModes().Count() == k + 1) << k;
            }
        }
        // One past the limit pushed the first mode out: its node and its values are gone.
        EXPECT_EQ(ActiveModes().Count(), listed);
        EXPECT_EQ(ActiveModes()[0], Node(rows.rows[listed]));
        EXPECT_EQ(ActiveModes().Find(Node(rows.rows[0])), -1);
        EXPECT_FALSE(Node(rows.rows[0])->loaded || seen[0]->loaded);
        EXPECT_EQ(Revision(seen[0]), nullptr);
        EXPECT_TRUE(m_log.HasMessage("Unloading modules (GetModule:Unknown:0.0|2.0|3." +
                                     std::to_string(listed) + "): 0.0|2.0|3.0\n"));

        // Asked for again it is read from the file again, and the next oldest goes.
        ParameterModule* again = Get('A', Row(0));
        ASSERT_EQ(again, seen[0]);
        EXPECT_STREQ(Revision(again), "f0");
        EXPECT_EQ(again->modified, 2u) << "each read is counted";
        again->Release();
        EXPECT_FALSE(seen[1]->loaded);
        EXPECT_EQ(ActiveModes().Count(), listed);

        // A listed mode asked for again moves to the front: the next to go passes it over.
        Get('A', Row(2))->Release();
        Get('A', Row(1))->Release();
        EXPECT_TRUE(seen[2]->loaded);
        EXPECT_FALSE(seen[3]->loaded);
    }
}

TEST_F(LookupTest, HeldAndResidentModesStayLoaded)
{
    RowFile rows;
    Load(rows.file);
    // Default and Sensor modes take no place in the list; a resident Usecase does, until the
    // list passes it on, and stays loaded after.
    ParameterModule* sensor = Get('D', Branch({{ModeSensor, 0}}));
    EXPECT_STREQ(Revision(sensor), "sensor");
    sensor->Release();
    ParameterModule* video = Get('A', Branch({{ModeUsecase, 2}}));
    video->Release();
    EXPECT_EQ(ActiveModes().Count(), 1u);
    EXPECT_EQ(ActiveModes()[0], Node(rows.video));

    std::vector<ParameterModule*> held;
    for (unsigned int k = 0; k <= ActiveLimit; ++k)
        held.push_back(Get('A', Row(k)));
    EXPECT_EQ(ActiveModes().Count(), ActiveLimit + 1) << "held modes are all listed";
    EXPECT_EQ(ActiveModes().Find(Node(rows.video)), -1);
    EXPECT_TRUE(held[0]->loaded && video->loaded && sensor->loaded);
    EXPECT_FALSE(m_log.Contains("Unloading"));

    for (ParameterModule* module : held)
        module->Release();
    // Freshening the oldest puts it in front; the one now past the limit goes.
    Get('A', Row(0))->Release();
    EXPECT_EQ(ActiveModes().Count(), ActiveLimit);
    EXPECT_EQ(ActiveModes()[0], Node(rows.rows[0]));
    EXPECT_TRUE(held[0]->loaded && !held[1]->loaded && held[2]->loaded);
}

TEST_F(LookupTest, UnloadModeDropsTheLastModeOfTheBranch)
{
    RowFile rows(4);
    Load(rows.file);
    std::vector<TuningMode> const row = Row(3);
    ParameterModule* held = Get('A', row);
    ASSERT_NE(held, nullptr);
    ParameterModule* other = Get('A', Row(2));
    other->Release();
    m_log.Clear();

    // A mode still held is unloaded by force: the holder's pointer stays a valid object.
    EXPECT_TRUE(m_manager->UnloadMode(0, row.data(), static_cast<unsigned int>(row.size())));
    for (char const* message :
         {"Unloading referenced module versionsA_sw, Mode: 0.0|2.0|3.3, Ref count: 1\n",
          "Unloading mode with 1 unreleased modules: 0.0|2.0|3.3\n",
          "ReleaseReferences called with unreleased module: versionsA_sw, RefCnt: 1\n"})
        EXPECT_TRUE(m_log.HasMessage(message)) << message;
    EXPECT_EQ(Revision(held), nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 0);
    EXPECT_EQ(ActiveModes().Find(Node(rows.rows[3])), -1);
    EXPECT_TRUE(other->loaded) << "only the named mode goes";
    held->Release();
    EXPECT_TRUE(m_log.HasMessage(
        "Attempt to release unreferenced module.  Mode: 3, SubMode: 3, Module versionsA_sw\n"));

    // Resident modes stay: the root, and a mode whose module a value change went into.
    std::vector<TuningMode> const changed = Row(2);
    auto const changedCount = static_cast<unsigned int>(changed.size());
    ASSERT_TRUE(m_manager->SetValue(0, changed.data(), changedCount, "versionsA_sw.module_version",
                                    "minor_revision", "3"));
    EXPECT_TRUE(Node(rows.rows[2])->resident);
    EXPECT_EQ(ActiveModes().Find(Node(rows.rows[2])), -1);
    EXPECT_TRUE(m_manager->UnloadMode(0, changed.data(), changedCount));
    EXPECT_STREQ(Revision(other), "f2");
    char value[32] = {};
    // A path of one character behind the module name counts as none.
    ASSERT_TRUE(m_manager->GetValue(0, changed.data(), changedCount, "versionsA_sw.m",
                                    "module_version.minor_revision", value, sizeof(value)));
    EXPECT_STREQ(value, "module_version.minor_revision=3");
    std::vector<TuningMode> const root = Branch({});
    EXPECT_TRUE(m_manager->UnloadMode(0, root.data(), 1));
    EXPECT_STREQ(Revision(Get('B', root)), "root");
}

// ---- The registry's chain ----------------------------------------------------------------------

TEST(DefaultModuleTest, RemovingKeepsTheChainSound)
{
    using Kind = versionsA_1_0_0::varitonal_versionsA10TypeClass;
    DefaultModule kind(new Kind("versionsA_sw"));
    ParameterModule* made[4];
    for (ParameterModule*& module : made)
        module = new Kind("versionsA_sw");
    for (int i = 0; i < 3; ++i)
        kind.AddModule(made[i]);
    kind.RemoveModule(made[2]); // the tail
    EXPECT_EQ(kind.last->module, made[1]);
    kind.AddModule(made[3]);
    EXPECT_EQ(kind.first->next->next->module, made[3]);
    EXPECT_EQ(kind.last->module, made[3]);
    kind.RemoveModule(made[2]); // no longer there
    kind.RemoveModule(made[0]); // the head
    EXPECT_EQ(kind.first->module, made[1]);
    kind.RemoveModule(made[1]);
    kind.RemoveModule(made[3]);
    EXPECT_TRUE(kind.first == nullptr && kind.last == nullptr);
    kind.AddModule(made[2]);
    EXPECT_EQ(kind.first, kind.last);
    EXPECT_EQ(kind.Find(0), made[2]) << "an instance without a record matches any ID";
    // A kind without value access keeps the frame's reader, which reads nothing.
    char text[8] = "";
    EXPECT_FALSE(made[2]->ParameterModule::GetValue("module_version", text, sizeof(text)));
    // The chain owns made[2] again; the others were handed back.
    for (int i : {0, 1, 3})
        delete made[i];
}

// ---- Concurrency -------------------------------------------------------------------------------

// Threads ask for and give back modules of more modes than the active list holds, so that loads
// and evictions overlap, while another changes values through mode paths as live tuning does. A
// change pins the mode that owns the module: eviction passes it over from then on.
TEST_F(LookupTest, ThreadsAskAndReleaseAcrossEvictions)
{
    constexpr unsigned int ModeCount = 30;
    constexpr unsigned int Rounds = 150;
    // Every third row shares Preview's B, so that loads also touch a module another mode owns.
    RowFile rows(ModeCount, 3);
    Load(rows.file);
    TestSetManager& manager = *m_manager;
    std::atomic<unsigned int> wrong{0};
    auto const worker = [&](unsigned int thread) {
        ParameterModule* held = nullptr;
        for (unsigned int round = 0; round < Rounds; ++round) {
            unsigned int const k = (thread * 7 + round * 11) % ModeCount;
            // The module held from the last round is given back as previous.
            held = manager.GetModuleInternal(0, "versionsA_sw", Row(k).data(), 3, held, true);
            char const* revision = Revision(held);
            wrong += revision == nullptr || revision != "f" + std::to_string(k);
            ParameterModule* shared =
                manager.GetModuleInternal(0, "versionsB_sw", Row(k).data(), 3, nullptr, true);
            wrong += Revision(shared) == nullptr;
            if (shared != nullptr)
                shared->Release();
        }
        if (held != nullptr)
            held->Release();
    };
    // The A module of every fifth row is changed, round after round.
    auto const changer = [&] {
        for (unsigned int round = 0; round < Rounds; ++round)
            wrong += !manager.SetValue(0, ("0.0|2.0|3." + std::to_string(round * 5 % 30)).c_str(),
                                       "versionsA_sw.module_version", "minor_revision",
                                       std::to_string(round).c_str());
    };
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < 8; ++t)
        threads.emplace_back(worker, t);
    threads.emplace_back(changer);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_FALSE(m_log.Contains("Attempt to") || m_log.Contains("Unloading referenced module"));
    EXPECT_GT(m_log.Count("Unloading modules"), 0u) << "the run must evict modes";
    // A changed row keeps its last value; the file is closed again once no load holds it.
    for (unsigned int k = 0; k < ModeCount; k += 5) {
        char value[64] = {};
        ASSERT_TRUE(manager.GetValue(0, Row(k).data(), 3,
                                     "versionsA_sw.module_version.minor_revision", nullptr, value,
                                     sizeof(value)));
        EXPECT_EQ(std::string(value), "minor_revision=" + std::to_string(144 + k / 5)) << k;
        EXPECT_TRUE(Node(rows.rows[k])->resident);
    }
    EXPECT_EQ(manager.GetSymbolTable()->GetFile()->GetReferenceCount(), 0);
}

} // namespace
} // namespace ParamTest
