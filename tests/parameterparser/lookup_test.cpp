// SPDX-License-Identifier: Apache-2.0
// Module lookup: which node's module a branch finds, references and their misuse, lazy loading,
// the active mode list and its eviction, and files that change under a loaded manager.
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/lookupfixture.h"

namespace ParamTest {
namespace {

constexpr uint16_t ISPHDR = 1;
constexpr uint16_t ADRC = 2;

unsigned long HashOf(char letter)
{
    return ParserCRC64::HashName(LookupModule(letter));
}

class LookupTest : public testing::Test
{
protected:
    /// Loads file into a manager that registers the lookup kinds: in file mode from a temporary
    /// file, otherwise from memory.
    void Load(LookupFile const& file, bool fileMode = true)
    {
        m_bytes = file.Build();
        TestSetManager::Options options;
        options.registerModules = true;
        options.fileModeAllowed = fileMode;
        m_manager = std::make_unique<TestSetManager>(options);
        if (fileMode) {
            m_file = std::make_unique<TempFile>(m_bytes);
            ASSERT_TRUE(m_manager->LoadBinaryParameters(m_file->Path().c_str()));
        } else {
            ASSERT_TRUE(m_manager->LoadBinaryParameters(m_bytes.data(), m_bytes.size()));
        }
        ASSERT_EQ(m_manager->IsFileMode(), fileMode);
        m_log.Clear();
    }

    ParameterModule* Get(char letter, std::vector<TuningMode> const& branch,
                         ParameterModule* previous = nullptr)
    {
        return m_manager->GetModuleInternal(0, LookupModule(letter), branch.data(),
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

/// Root: A, B. Preview: A, C. Preview|Feature1.ISPHDR: A. Below it Feature1.ADRC: A.
LookupFile RuleFile()
{
    LookupFile file;
    uint32_t const root = file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    uint32_t const isphdr = file.Path("Default|Usecase.Preview|Feature1.ISPHDR");
    uint32_t const adrc = file.Path("Default|Usecase.Preview|Feature1.ISPHDR|Feature1.ADRC");
    file.AddModule('A', root, "root");
    file.AddModule('B', root, "rootB");
    file.AddModule('A', preview, "preview");
    file.AddModule('C', preview, "previewC");
    file.AddModule('A', isphdr, "isphdr");
    file.AddModule('A', adrc, "adrc");
    return file;
}

struct RuleCase
{
    char const* name;
    char letter;
    std::vector<TuningMode> branch;
    bool nullBranch;
    unsigned int count;                ///< with a null branch
    char const* expected;              ///< revision of the module found; null: no module
    std::vector<std::string> messages; ///< "GetModule..." lines, exactly
};

std::vector<RuleCase> RuleCases()
{
    std::vector<TuningMode> offTree = Branch({{ModeUsecase, 0}, {ModeScene, 3}, {ModeEffect, 1}});
    std::vector<TuningMode> notDefault = Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}});
    notDefault[0] = TuningMode{ModeSensor, 2, 0};
    return {
        {"OnlyInChildMode",
         'C',
         Branch({{ModeUsecase, 0}}),
         false,
         0,
         "previewC",
         {"GetModule versionsC_sw module not found in default scenario (0.0), mode path: "
          "0.0|2.0\n"}},
        {"DeepestNodeWins",
         'A',
         Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}}),
         false,
         0,
         "isphdr",
         {}},
        {"ParentFillsGapBelow",
         'B',
         Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}}),
         false,
         0,
         "rootB",
         {}},
        {"OffTreeAtStepTwoOfFour", 'A', offTree, false, 0, "preview", {}},
        {"StepZeroNotDefault",
         'A',
         notDefault,
         false,
         0,
         "isphdr",
         {"GetModule(versionsA_sw) called with first mode != Default, might not return module "
          "data from the desired mode path: 1.2|2.0|3.1\n"}},
        {"RunInFileOrder",
         'A',
         Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}, {ModeFeature1, ADRC}}),
         false,
         0,
         "adrc",
         {}},
        {"RunInOtherOrder",
         'A',
         Branch({{ModeUsecase, 0}, {ModeFeature1, ADRC}, {ModeFeature1, ISPHDR}}),
         false,
         0,
         "adrc",
         {}},
        {"RunLongerThanTree",
         'A',
         Branch({{ModeUsecase, 0}, {ModeFeature1, ADRC}, {ModeFeature1, 5}}),
         false,
         0,
         "preview",
         {}},
        {"NullBranch", 'A', {}, true, 0, "root", {}},
        {"NullBranchWithCount",
         'A',
         {},
         true,
         3,
         "root",
         {"GetModule(versionsA_sw) called with modeBranch == null and modeCount = 3, will return "
          "default mode module data\n"}},
        {"NullBranchChildModule",
         'C',
         {},
         true,
         0,
         nullptr,
         {"GetModule versionsC_sw module not found in default scenario (0.0), mode path: \n"}},
        {"InvalidModeValueEndsWalk",
         'A',
         Branch({{ModeUsecase, 0}, {9, 0}, {ModeFeature1, ISPHDR}}),
         false,
         0,
         "preview",
         {"GetModule Error: Invalid Mode value (9) found in modeBranch[2]. Expected range: 0 to "
          "6\n"}},
        {"DefaultBelowRootEndsWalk",
         'A',
         Branch({{ModeUsecase, 0}, {ModeDefault, 0}}),
         false,
         0,
         "preview",
         {"GetModule Error: Default mode found in modeBranch at an index > 0 (2). Index 0 must be "
          "Default, but only index 0 may be Default\n"}},
    };
}

class LookupRulesTest : public LookupTest, public testing::WithParamInterface<bool>
{
};

TEST_P(LookupRulesTest, DeepestNodeOfTheBranchWins)
{
    Load(RuleFile(), GetParam());
    for (RuleCase const& test : RuleCases()) {
        SCOPED_TRACE(test.name);
        m_log.Clear();
        ParameterModule* found = m_manager->GetModuleInternal(
            0, LookupModule(test.letter), test.nullBranch ? nullptr : test.branch.data(),
            test.nullBranch ? test.count : static_cast<unsigned int>(test.branch.size()), nullptr,
            false);
        if (test.expected == nullptr) {
            EXPECT_EQ(found, nullptr);
        } else {
            ASSERT_NE(found, nullptr);
            EXPECT_STREQ(Revision(found), test.expected);
            found->Release();
        }
        EXPECT_EQ(MessagesStartingWith("GetModule"), test.messages);
    }
}

INSTANTIATE_TEST_SUITE_P(BothModes, LookupRulesTest, testing::Bool(),
                         [](testing::TestParamInfo<bool> const& param) {
                             return param.param ? "FileMode" : "BufferMode";
                         });

TEST_F(LookupTest, LinkedModeServesTheModulesOfItsTarget)
{
    LookupFile file;
    uint32_t const root = file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    uint32_t const video = file.Table().AddChild(root, ModeUsecase, 2, 0, 0, preview);
    uint32_t const ownChild = file.Table().AddChild(video, ModeFeature1, ISPHDR);
    uint32_t const targetChild = file.Table().AddChild(preview, ModeFeature1, ISPHDR);
    file.AddModule('A', preview, "preview");
    // Entries in the linked node, and in its own children, are never searched.
    file.AddModule('B', video, "video");
    file.AddModule('B', ownChild, "ownChild");
    file.AddModule('B', targetChild, "targetChild");
    Load(file);

    ParameterModule* viaPreview = Get('A', Branch({{ModeUsecase, 0}}));
    ParameterModule* viaVideo = Get('A', Branch({{ModeUsecase, 2}}));
    ASSERT_NE(viaVideo, nullptr);
    EXPECT_EQ(viaVideo, viaPreview);
    EXPECT_EQ(viaVideo->GetReferenceCount(), 2);
    EXPECT_EQ(Get('B', Branch({{ModeUsecase, 2}})), nullptr);
    // The walk goes on below the link's target.
    ParameterModule* below = Get('B', Branch({{ModeUsecase, 2}, {ModeFeature1, ISPHDR}}));
    ASSERT_NE(below, nullptr);
    EXPECT_STREQ(Revision(below), "targetChild");
    EXPECT_EQ(Node(video)->FindModule(viaVideo->moduleNameHash), viaVideo);
    for (ParameterModule* module : {viaPreview, viaVideo, below})
        module->Release();
    EXPECT_EQ(viaPreview->GetReferenceCount(), 0);
}

// ---- References --------------------------------------------------------------------------------

TEST_F(LookupTest, PreviousIsReleasedAfterTheNewReferenceIsTaken)
{
    Load(RuleFile());
    std::vector<TuningMode> const preview = Branch({{ModeUsecase, 0}});
    ParameterModule* held = Get('A', preview);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 1);

    // Asking again with the pointer just returned leaves the count where it was.
    EXPECT_EQ(Get('A', preview, held), held);
    EXPECT_EQ(held->GetReferenceCount(), 1);

    ParameterModule* deeper = Get('A', Branch({{ModeUsecase, 0}, {ModeFeature1, ISPHDR}}), held);
    ASSERT_NE(deeper, nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 0);
    EXPECT_EQ(deeper->GetReferenceCount(), 1);

    // A lookup that finds nothing still gives previous back.
    EXPECT_EQ(Get('D', preview, deeper), nullptr);
    EXPECT_EQ(deeper->GetReferenceCount(), 0);
    EXPECT_TRUE(MessagesStartingWith("Attempt").empty());
}

TEST_F(LookupTest, BufferModeCountsNoReferences)
{
    Load(RuleFile(), false);
    std::vector<TuningMode> const preview = Branch({{ModeUsecase, 0}});
    ParameterModule* held = Get('A', preview);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(Get('A', preview, held), held);
    held->Release();
    EXPECT_EQ(held->GetReferenceCount(), 0);
    EXPECT_TRUE(MessagesStartingWith("Attempt").empty());
    EXPECT_FALSE(m_log.Contains("LoadMode"));
}

TEST_F(LookupTest, ReferenceCountOfAModuleSumsToTheEndOfTheMap)
{
    LookupFile file;
    file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    file.AddModule('A', preview, "a");
    file.AddModule('B', preview, "b");
    file.AddModule('C', preview, "c");
    Load(file);

    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    // Counts 1, 2 and 4 make every partial sum distinct.
    std::vector<ParameterModule*> held;
    char const letters[] = {'A', 'B', 'C'};
    for (unsigned int i = 0; i < 3; ++i) {
        for (unsigned int n = 0; n < (1u << i); ++n)
            held.push_back(Get(letters[i], branch));
    }
    ModeEntry* node = Node(preview);
    EXPECT_EQ(node->GetReferenceCount(nullptr), 7u);
    EXPECT_TRUE(node->IsActive());

    unsigned int remaining = 7;
    for (auto const& entry : node->modules) {
        ParameterModule* module = entry.second.module;
        EXPECT_EQ(node->GetReferenceCount(module), remaining) << module->moduleName;
        EXPECT_EQ(module->GetReferenceCount(), static_cast<int>(remaining));
        remaining -= static_cast<unsigned int>(entry.second.refCount.load());
    }
    EXPECT_EQ(remaining, 0u);

    PList<ParameterModule*> list;
    for (ParameterModule* module : held)
        list.Add(module);
    m_manager->ReleaseModules(list);
    EXPECT_EQ(list.Count(), 0u);
    EXPECT_FALSE(node->IsActive());
    EXPECT_EQ(node->GetReferenceCount(nullptr), 0u);
}

/// Root: C. Preview: A, B in a pipeline variant slot (pipeline 3), C shared with the root.
struct SharedFile
{
    LookupFile file;
    uint32_t root = file.Path("Default");
    uint32_t preview = file.Path("Default|Usecase.Preview");
    uint32_t previewPipeline = file.Table().AddChild(preview, ModeUsecase, 0, 3);
    uint32_t rootC = file.AddModule('C', root, "rootC");

    SharedFile()
    {
        file.AddModule('A', preview, "a");
        file.AddModule('B', previewPipeline, "b");
        file.AddModule('C', preview, "sharedC", rootC);
    }
};

TEST_F(LookupTest, ReferenceMisuseIsLoggedAndLeavesCountsAlone)
{
    SharedFile shared;
    Load(shared.file);
    ModeEntry* preview = Node(shared.preview);
    ModeEntry* root = Node(shared.root);
    ParameterModule* a = preview->FindModule(HashOf('A'));
    ParameterModule* c = preview->FindModule(HashOf('C'));
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(c, root->FindModule(HashOf('C')));
    DefaultModule* kind = m_manager->GetDefaultModule(HashOf('A'));
    ASSERT_NE(kind, nullptr);
    ParameterModule* factory = kind->module;
    ParameterModule* b = preview->FindModule(HashOf('B'));
    ASSERT_NE(b, nullptr);
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
        EXPECT_EQ(Node(shared.preview)->GetReferenceCount(nullptr), 1u);
        EXPECT_EQ(c->GetReferenceCount(), 1);
        EXPECT_EQ(preview->modules.at(HashOf('B')).refCount.load(), 0);
        EXPECT_EQ(factory->GetReferenceCount(), 0);
    }
}

TEST_F(LookupTest, GetModulesFiltersByOwnerAndPipeline)
{
    SharedFile shared;
    Load(shared.file);
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const names = [](PList<ParameterModule*> const& list) {
        std::vector<std::string> result;
        for (unsigned int i = 0; i < list.Count(); ++i)
            result.emplace_back(list[i]->moduleName);
        std::sort(result.begin(), result.end());
        return result;
    };
    using Names = std::vector<std::string>;
    PipelineType pipeline = 2;
    PipelineType otherPipeline = 0;
    struct Case
    {
        bool local;
        bool shared;
        PipelineType* pipeline;
        Names expected;
    };
    std::vector<Case> const cases = {
        {true, true, nullptr, {"versionsA_sw", "versionsB_sw", "versionsC_sw"}},
        {true, false, nullptr, {"versionsA_sw", "versionsB_sw"}},
        {false, true, nullptr, {"versionsC_sw"}},
        {false, false, nullptr, {}},
        {true, true, &pipeline, {"versionsB_sw"}},
        {true, true, &otherPipeline, {}},
    };
    PList<ParameterModule*> list;
    for (Case const& test : cases) {
        m_manager->GetModules(0, list, branch.data(), static_cast<unsigned int>(branch.size()),
                              test.local, test.shared, test.pipeline);
        EXPECT_EQ(names(list), test.expected);
        // Every module handed out holds a reference on its owner until the list is released.
        for (unsigned int i = 0; i < list.Count(); ++i)
            EXPECT_GE(list[i]->GetReferenceCount(), 1) << list[i]->moduleName;
    }
    m_manager->GetModules(0, list, nullptr, 0, true, true, nullptr);
    EXPECT_EQ(names(list), Names{"versionsC_sw"});
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

TEST_F(LookupTest, TableIndexOutOfRangeIsLoggedAndRefused)
{
    Load(RuleFile());
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    ParameterModule* held = Get('A', branch);
    ASSERT_NE(held, nullptr);

    m_log.Clear();
    EXPECT_EQ(m_manager->GetModuleInternal(4, "versionsA_sw", branch.data(), count, held, true),
              nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 0) << "previous is given back";
    EXPECT_FALSE(m_manager->LoadModeInternal(4, branch.data(), count, nullptr));
    EXPECT_FALSE(m_manager->UnloadMode(4, branch.data(), count));
    PList<ParameterModule*> list;
    m_manager->GetModules(4, list, branch.data(), count, true, true, nullptr);
    EXPECT_EQ(list.Count(), 0u);
    std::vector<std::string> const expected = {
        "GetModuleInternal called with mode table index (4) >= mode table count (1)\n",
        "LoadModeInternal called with mode table index (4) >= mode table count (1)\n",
        "UnloadMode called with mode table index (4) >= mode table count (1)\n",
        "GetModules called with mode table index (4) >= mode table count (1)\n"};
    EXPECT_EQ(m_log.Messages(), expected);
}

TEST_F(LookupTest, LoadAndUnloadModeNeedAFileMode)
{
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    {
        TestSetManager empty;
        EXPECT_FALSE(empty.LoadMode(0, branch.data(), count, nullptr));
        EXPECT_STREQ(empty.GetErrorString(), "LoadMode called with no binary file loaded");
    }
    Load(RuleFile(), false);
    // Lookups in buffer mode only search: no load is tried and no error is left behind.
    EXPECT_NE(Get('A', branch), nullptr);
    EXPECT_STREQ(m_manager->GetErrorString(), "");
    EXPECT_FALSE(m_manager->LoadMode(0, branch.data(), count, "direct"));
    EXPECT_STREQ(m_manager->GetErrorString(), "LoadMode is not valid in buffer mode");
    EXPECT_TRUE(m_manager->UnloadMode(0, branch.data(), count));
    EXPECT_STREQ(m_manager->GetErrorString(), "UnloadMode is not valid in buffer mode");
    EXPECT_TRUE(Get('A', branch)->loaded);
}

TEST_F(LookupTest, UnknownModulesAndModesGiveNull)
{
    Load(RuleFile());
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    EXPECT_EQ(m_manager->GetModuleInternal(0, "noSuchModule", branch.data(), count, nullptr, true),
              nullptr);
    EXPECT_EQ(m_manager->GetModuleInternal(0, nullptr, branch.data(), count, nullptr, true),
              nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModule noSuchModule module not found in default scenario (0.0), mode path: 0.0|2.0\n"));
    // A mode that is not in the tree: loading reports it, unloading refuses it.
    std::vector<TuningMode> const missing = Branch({{ModeUsecase, 3}});
    EXPECT_FALSE(m_manager->LoadModeInternal(0, missing.data(), 2, "test"));
    EXPECT_FALSE(m_manager->UnloadMode(0, missing.data(), 2));
    EXPECT_TRUE(m_manager->LoadModeInternal(0, branch.data(), count, "test"));
    ModeEntry* root = m_manager->GetModeTable(0)->rootMode;
    EXPECT_TRUE(root->loaded);
    EXPECT_FALSE(root->IsActive());
}

TEST_F(LookupTest, GetModeEntryReadsTheBranchInFileMode)
{
    // Preview is 0 among the use cases of the file.
    std::vector<TuningMode> const branch = Branch({{ModeUsecase, 0}});
    auto const count = static_cast<unsigned int>(branch.size());
    for (bool fileMode : {true, false}) {
        SCOPED_TRACE(fileMode ? "file mode" : "buffer mode");
        Load(RuleFile(), fileMode);
        ModeEntry* preview = m_manager->GetModeEntry(0, branch.data(), count);
        ASSERT_NE(preview, nullptr);
        // A tool walking the tree finds the modules of the branch read, as a client would.
        EXPECT_TRUE(preview->loaded);
        EXPECT_TRUE(m_manager->GetModeTable(0)->rootMode->loaded);
        EXPECT_STREQ(m_manager->GetErrorString(), "");
    }
}

// ---- File mode: lazy loads, the active list, eviction ------------------------------------------

constexpr unsigned int ModeRowCount = 18;

/// Root: B. Sensor.0: D. Preview (no modules) with Feature1.0 to Feature1.17 below it, each
/// holding A tagged "f<k>"; Usecase.Video, resident, holding A "video".
struct RowFile
{
    LookupFile file;
    uint32_t root = file.Path("Default");
    uint32_t sensor = file.Path("Default|Sensor.0");
    uint32_t preview = file.Path("Default|Usecase.Preview");
    uint32_t video = file.Table().AddChild(root, ModeUsecase, 2, 0, TuningWriter::ModeFlagResident);
    std::vector<uint32_t> rows;

    explicit RowFile(unsigned int count = ModeRowCount)
    {
        file.AddModule('B', root, "root");
        file.AddModule('D', sensor, "sensor");
        file.AddModule('A', video, "video");
        for (unsigned int k = 0; k < count; ++k) {
            rows.push_back(file.Table().AddChild(preview, ModeFeature1, static_cast<uint16_t>(k)));
            file.AddModule('A', rows.back(), "f" + std::to_string(k));
        }
    }

    static std::vector<TuningMode> Row(unsigned int k)
    {
        return Branch({{ModeUsecase, 0}, {ModeFeature1, static_cast<uint16_t>(k)}});
    }
};

TEST_F(LookupTest, OldestUnheldModeIsUnloadedPastTheLimit)
{
    RowFile rows;
    Load(rows.file);
    ASSERT_EQ(m_manager->MaxActiveModes(), 17u);
    std::vector<ParameterModule*> seen;
    for (unsigned int k = 0; k < ModeRowCount; ++k) {
        ParameterModule* module = Get('A', RowFile::Row(k));
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(std::string(Revision(module)), "f" + std::to_string(k));
        seen.push_back(module);
        module->Release();
        if (k + 1 < ModeRowCount) {
            EXPECT_TRUE(Node(rows.rows[0])->loaded) << "after visit " << k;
            EXPECT_EQ(ActiveModes().Count(), k + 1);
        }
    }
    // The 18th visit pushed the first mode out: its node and its values are gone.
    EXPECT_EQ(ActiveModes().Count(), 17u);
    EXPECT_EQ(ActiveModes()[0], Node(rows.rows[17]));
    EXPECT_EQ(ActiveModes().Find(Node(rows.rows[0])), -1);
    EXPECT_FALSE(Node(rows.rows[0])->loaded);
    EXPECT_FALSE(seen[0]->loaded);
    EXPECT_EQ(Revision(seen[0]), nullptr);
    EXPECT_TRUE(seen[1]->loaded);
    EXPECT_TRUE(
        m_log.HasMessage("Unloading modules (GetModule:Unknown:0.0|2.0|3.17): 0.0|2.0|3.0\n"));

    // Asked for again it is read from the file again, and the next oldest goes.
    ParameterModule* again = Get('A', RowFile::Row(0));
    ASSERT_EQ(again, seen[0]);
    EXPECT_STREQ(Revision(again), "f0");
    again->Release();
    EXPECT_FALSE(seen[1]->loaded);
    EXPECT_EQ(ActiveModes().Count(), 17u);
}

TEST_F(LookupTest, HeldModesStayLoadedAndListed)
{
    RowFile rows;
    Load(rows.file);
    std::vector<ParameterModule*> held;
    for (unsigned int k = 0; k < ModeRowCount; ++k)
        held.push_back(Get('A', RowFile::Row(k)));
    EXPECT_EQ(ActiveModes().Count(), ModeRowCount);
    for (unsigned int k = 0; k < ModeRowCount; ++k) {
        EXPECT_TRUE(held[k]->loaded) << k;
        EXPECT_EQ(std::string(Revision(held[k])), "f" + std::to_string(k));
    }
    EXPECT_FALSE(m_log.Contains("Unloading"));

    for (ParameterModule* module : held)
        module->Release();
    // Freshening the oldest puts it in front; the one now past the limit goes.
    ParameterModule* first = Get('A', RowFile::Row(0));
    first->Release();
    EXPECT_EQ(ActiveModes().Count(), 17u);
    EXPECT_EQ(ActiveModes()[0], Node(rows.rows[0]));
    EXPECT_TRUE(held[0]->loaded);
    EXPECT_FALSE(held[1]->loaded);
    EXPECT_TRUE(held[2]->loaded);
}

TEST_F(LookupTest, ResidentModesAreNeverUnloadedByTheList)
{
    RowFile rows;
    Load(rows.file);
    ParameterModule* sensor = Get('D', Branch({{ModeSensor, 0}}));
    ASSERT_NE(sensor, nullptr);
    EXPECT_STREQ(Revision(sensor), "sensor");
    sensor->Release();
    ParameterModule* video = Get('A', Branch({{ModeUsecase, 2}}));
    ASSERT_NE(video, nullptr);
    video->Release();
    // Default and Sensor modes take no place in the list; a resident Usecase does, until the
    // list passes it on.
    EXPECT_EQ(ActiveModes().Count(), 1u);
    EXPECT_EQ(ActiveModes()[0], Node(rows.video));
    for (unsigned int k = 0; k < 17; ++k)
        Get('A', RowFile::Row(k))->Release();
    EXPECT_EQ(ActiveModes().Find(Node(rows.video)), -1);
    EXPECT_EQ(ActiveModes().Find(Node(rows.sensor)), -1);
    EXPECT_EQ(ActiveModes().Count(), 17u);
    EXPECT_TRUE(video->loaded);
    EXPECT_STREQ(Revision(video), "video");
    EXPECT_TRUE(sensor->loaded);
    for (unsigned int k = 0; k < 17; ++k)
        EXPECT_TRUE(Node(rows.rows[k])->loaded) << k;
}

TEST_F(LookupTest, UnloadModeDropsTheLastModeOfTheBranch)
{
    RowFile rows(4);
    Load(rows.file);
    std::vector<TuningMode> const row = RowFile::Row(3);
    ParameterModule* held = Get('A', row);
    ASSERT_NE(held, nullptr);
    ParameterModule* other = Get('A', RowFile::Row(2));
    other->Release();
    m_log.Clear();

    // A mode still held is unloaded by force: the holder's pointer stays a valid object.
    EXPECT_TRUE(m_manager->UnloadMode(0, row.data(), static_cast<unsigned int>(row.size())));
    EXPECT_TRUE(m_log.HasMessage(
        "Unloading referenced module versionsA_sw, Mode: 0.0|2.0|3.3, Ref count: 1\n"));
    EXPECT_TRUE(m_log.HasMessage("Unloading mode with 1 unreleased modules: 0.0|2.0|3.3\n"));
    EXPECT_TRUE(
        m_log.HasMessage("ReleaseReferences called with unreleased module: versionsA_sw, RefCnt: "
                         "1\n"));
    EXPECT_FALSE(held->loaded);
    EXPECT_EQ(Revision(held), nullptr);
    EXPECT_EQ(held->GetReferenceCount(), 0);
    EXPECT_EQ(ActiveModes().Find(Node(rows.rows[3])), -1);
    EXPECT_TRUE(other->loaded) << "only the named mode goes";
    held->Release();
    EXPECT_TRUE(m_log.HasMessage(
        "Attempt to release unreferenced module.  Mode: 3, SubMode: 3, Module versionsA_sw\n"));

    // Resident modes stay: the root, and a mode whose module a value change went into.
    std::vector<TuningMode> const changed = RowFile::Row(2);
    auto const changedCount = static_cast<unsigned int>(changed.size());
    ASSERT_TRUE(m_manager->SetValue(0, changed.data(), changedCount, "versionsA_sw.module_version",
                                    "minor_revision", "3"));
    EXPECT_TRUE(Node(rows.rows[2])->resident);
    EXPECT_EQ(ActiveModes().Find(Node(rows.rows[2])), -1);
    EXPECT_TRUE(m_manager->UnloadMode(0, changed.data(), changedCount));
    EXPECT_TRUE(other->loaded);
    EXPECT_STREQ(Revision(other), "f2");
    char value[32] = {};
    ASSERT_TRUE(m_manager->GetValue(0, changed.data(), changedCount,
                                    "versionsA_sw.module_version.minor_revision", nullptr, value,
                                    sizeof(value)));
    EXPECT_STREQ(value, "minor_revision=3");
    std::vector<TuningMode> const root = Branch({});
    EXPECT_TRUE(m_manager->UnloadMode(0, root.data(), 1));
    EXPECT_TRUE(m_manager->GetModeTable(0)->rootMode->loaded);
    EXPECT_STREQ(Revision(Get('B', root)), "root");
}

TEST_F(LookupTest, SharedModuleGoesWithItsOwnerOnly)
{
    LookupFile file;
    file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    uint32_t const video = file.Path("Default|Usecase.Video");
    uint32_t const first = file.AddModule('A', preview, "shared");
    file.AddModule('A', video, "shared", first);
    file.AddModule('B', video, "video");
    Load(file);

    std::vector<TuningMode> const previewBranch = Branch({{ModeUsecase, 0}});
    std::vector<TuningMode> const videoBranch = Branch({{ModeUsecase, 2}});
    ParameterModule* viaVideo = Get('A', videoBranch);
    ASSERT_NE(viaVideo, nullptr);
    EXPECT_EQ(viaVideo, Get('A', previewBranch, viaVideo));
    // The reference lives with the owner, and the owner takes a place in the active list.
    EXPECT_EQ(Node(preview)->GetReferenceCount(nullptr), 1u);
    EXPECT_EQ(Node(video)->GetReferenceCount(nullptr), 0u);
    viaVideo->Release();
    EXPECT_NE(ActiveModes().Find(Node(preview)), -1);

    ParameterModule* videoOwn = Get('B', videoBranch);
    ASSERT_NE(videoOwn, nullptr);
    videoOwn->Release();
    EXPECT_TRUE(m_manager->UnloadMode(0, videoBranch.data(),
                                      static_cast<unsigned int>(videoBranch.size())));
    EXPECT_FALSE(videoOwn->loaded);
    EXPECT_TRUE(viaVideo->loaded) << "a shared module stays with its owner";
    EXPECT_TRUE(m_manager->UnloadMode(0, previewBranch.data(),
                                      static_cast<unsigned int>(previewBranch.size())));
    EXPECT_FALSE(viaVideo->loaded);
    // The sharer still names it; the next request reads it in again.
    ParameterModule* again = Get('A', videoBranch);
    ASSERT_EQ(again, viaVideo);
    EXPECT_TRUE(again->loaded);
    EXPECT_STREQ(Revision(again), "shared");
}

TEST_F(LookupTest, FileChangedOnDiskFailsLaterReadsOnly)
{
    RowFile rows(3);
    Load(rows.file);
    ParameterModule* before = Get('A', RowFile::Row(0));
    ASSERT_NE(before, nullptr);

    RowFile other(3);
    other.file.AddModule('C', other.root, "new");
    m_file->Rewrite(other.file.Build());
    m_log.Clear();
    EXPECT_EQ(Get('A', RowFile::Row(1)), nullptr);
    EXPECT_TRUE(
        m_log.HasMessage("Failed to load module versionsA_sw, path: 0.0|2.0|3.1, skipping\n"));
    EXPECT_TRUE(m_log.HasMessage(
        "GetModule versionsA_sw failed to find a loaded module in 0.0|2.0|3.1, returning null\n"));
    EXPECT_EQ(Node(rows.rows[1])->GetReferenceCount(nullptr), 0u);
    EXPECT_FALSE(Node(rows.rows[1])->loaded);

    // What was read before the change stays readable and counted.
    EXPECT_EQ(Get('A', RowFile::Row(0), before), before);
    EXPECT_STREQ(Revision(before), "f0");
    EXPECT_EQ(before->GetReferenceCount(), 1);
    before->Release();
}

// ---- The registry's chain ----------------------------------------------------------------------

TEST(DefaultModuleTest, RemovingKeepsTheChainSound)
{
    DefaultModule kind(new versionsA_1_0_0::varitonal_versionsA10TypeClass("versionsA_sw"));
    ParameterModule* made[4];
    for (ParameterModule*& module : made)
        module = new versionsA_1_0_0::varitonal_versionsA10TypeClass("versionsA_sw");
    kind.AddModule(made[0]);
    kind.AddModule(made[1]);
    kind.AddModule(made[2]);

    kind.RemoveModule(made[2]); // the tail
    EXPECT_EQ(kind.last->module, made[1]);
    kind.AddModule(made[3]);
    ASSERT_NE(kind.first->next, nullptr);
    EXPECT_EQ(kind.first->next->next->module, made[3]);
    EXPECT_EQ(kind.last->module, made[3]);

    kind.RemoveModule(made[2]); // no longer there
    kind.RemoveModule(made[0]); // the head
    EXPECT_EQ(kind.first->module, made[1]);
    kind.RemoveModule(made[1]);
    kind.RemoveModule(made[3]);
    EXPECT_EQ(kind.first, nullptr);
    EXPECT_EQ(kind.last, nullptr);
    kind.AddModule(made[2]);
    EXPECT_EQ(kind.first, kind.last);
    EXPECT_EQ(kind.Find(0), made[2]) << "an instance without a record matches any ID";
    // The chain owns made[2] again; the others were handed back.
    delete made[0];
    delete made[1];
    delete made[3];
}

} // namespace
} // namespace ParamTest
