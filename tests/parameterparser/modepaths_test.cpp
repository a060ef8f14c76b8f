// SPDX-License-Identifier: Apache-2.0
// Tests of mode branches and paths: walks through the tree, text forms, names and listings.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/modetreefixture.h"

namespace {

using ParamTest::ModeFile;
using ParamTest::ReadModeTree;
using ParamTest::SlotNode;
using ParamTest::TestSetManager;
using TuningWriter::ModeSectionBuilder;

template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

std::vector<TuningMode> Branch(std::initializer_list<std::pair<uint32_t, uint16_t>> steps)
{
    std::vector<TuningMode> branch;
    for (auto const& step : steps)
        branch.push_back(TuningMode{step.first, step.second, 0});
    return branch;
}

// A tree with a run of two Feature1 nodes (ISPHDR above ADRC), a linked Video node and a six
// step branch down to Scene.Night.
class ModePathsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ModeSectionBuilder table(0, "rear");
        m_preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
        table.AddPath("Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR|Feature1.ADRC");
        table.AddPath("Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10|Scene.Night");
        table.AddChild(table.Find("Default|Sensor.0"), 2, 2, 0, 0, m_preview);
        table.AddPath("Default|Sensor.2|Usecase.Snapshot");
        table.AddPath("Default|Sensor.2|Usecase.ZSL");
        m_bytes = ModeFile({table});
        ASSERT_TRUE(ReadModeTree(m_manager, m_bytes));
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

    std::string ActiveModes()
    {
        char result[256] = "untouched";
        m_manager.GetActiveModes(0, result, sizeof(result));
        return result;
    }

    void Activate(ModeEntry* node) { node->modules[0x42].refCount = 1; }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_bytes;
    TestSetManager m_manager;
    ParameterModeTable* m_table = nullptr;
    uint32_t m_preview = 0;
    unsigned int m_written = 0;
};

TEST_F(ModePathsTest, WalksBranchesIncludingRunsInEitherOrder)
{
    ModeEntry* adrcBelowIsphdr = Node("0.0|1.0|2.0|3.1|3.2");
    ASSERT_NE(adrcBelowIsphdr, nullptr);
    EXPECT_EQ(adrcBelowIsphdr->mode.Parts.subMode, 2u);
    EXPECT_EQ(adrcBelowIsphdr->parent->mode.Parts.subMode, 1u);

    // The run names the same two nodes whichever order the client states them in.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}, {3, 1}})), adrcBelowIsphdr);
    // A single Feature1.2 step is ADRC directly below Preview, a different node.
    ModeEntry* adrc = Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}}));
    ASSERT_NE(adrc, nullptr);
    EXPECT_NE(adrc, adrcBelowIsphdr);
    EXPECT_EQ(adrc->parent, SlotNode(m_manager, 0, 2));
    // A run longer than any chain of its mode finds nothing.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 1}, {3, 2}, {3, 3}})), nullptr);
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {2, 0}, {3, 2}, {4, 3}, {5, 5}})),
              Node("0.0|1.0|2.0|3.2|4.3|5.5"));
    EXPECT_NE(Node("0.0|1.0|2.0|3.2|4.3|5.5"), nullptr);
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
}

TEST_F(ModePathsTest, WalkFollowsLinksForChildren)
{
    ModeEntry* video = Node("0.0|1.0|2.2");
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->firstChild, nullptr);
    // Video lends Preview's sub-modes through its link.
    EXPECT_EQ(Node("0.0|1.0|2.2|3.2|4.3"), Node("0.0|1.0|2.0|3.2|4.3"));
    EXPECT_EQ(video->FindMode(&Branch({{3, 1}})[0]), Node("0.0|1.0|2.0|3.1"));
}

TEST_F(ModePathsTest, BadTableIndexOrStepIsReported)
{
    EXPECT_EQ(m_manager.GetModeEntry(3, "0.0|1.0"), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "GetModeEntry called with mode table index (3) >= mode table count (1)\n"));

    // A refused step ends the walk where it stands.
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {0, 0}})), Node("0.0|1.0"));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetModeEntry Error: Default mode found in modeBranch at an index > 0 (2). Index "
                 "0 must be Default, but only index 0 may be Default");
    EXPECT_EQ(Walk(Branch({{0, 0}, {1, 0}, {7, 0}})), Node("0.0|1.0"));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetModeEntry Error: Invalid Mode value (7) found in modeBranch[2]. Expected "
                 "range: 0 to 6");
}

TEST_F(ModePathsTest, ValidateModeChecksRangeAndDefaultPlace)
{
    std::vector<TuningMode> branch = Branch({{0, 0}, {2, 0}, {0, 0}, {6, 1}, {7, 0}, {1, 0}});
    EXPECT_TRUE(m_manager.ValidateMode("Caller", branch.data(), 0));
    EXPECT_TRUE(m_manager.ValidateMode("Caller", branch.data(), 1));
    EXPECT_TRUE(m_manager.ValidateMode("Caller", branch.data(), 3));
    EXPECT_STREQ(m_manager.GetErrorString(), "");
    EXPECT_FALSE(m_manager.ValidateMode("Caller", branch.data(), 2));
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "Caller Error: Default mode found in modeBranch at an index > 0 (2). Index 0 "
                 "must be Default, but only index 0 may be Default");
    EXPECT_FALSE(m_manager.ValidateMode("Caller", branch.data(), 4));
    EXPECT_TRUE(m_log.HasMessage("Caller Error: Invalid Mode value (7) found in modeBranch[4]. "
                                 "Expected range: 0 to 6\n"));
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
    TestSetManager manager;
    PList<TuningMode> branch;

    EXPECT_EQ(manager.GetModeBranchFromPath(test.path, branch), test.result);
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

TEST_F(ModePathsTest, PathFromBranchAppendsUntilInvalidStep)
{
    std::vector<TuningMode> branch = Branch({{0, 0}, {1, 2}, {2, 0}, {3, 65535}});
    char path[64] = "x|";
    m_manager.GetPathFromModeBranch(branch.data(), 4, path, sizeof(path));
    EXPECT_STREQ(path, "x|0.0|1.2|2.0|3.65535");

    char cut[8] = "";
    m_manager.GetPathFromModeBranch(branch.data(), 4, cut, sizeof(cut));
    EXPECT_STREQ(cut, "0.0|1.2");

    std::vector<TuningMode> invalid = Branch({{0, 0}, {1, 1}, {9, 0}, {2, 0}});
    char stopped[64] = "";
    m_manager.GetPathFromModeBranch(invalid.data(), 4, stopped, sizeof(stopped));
    EXPECT_STREQ(stopped, "0.0|1.1");
    EXPECT_STREQ(m_manager.GetErrorString(),
                 "GetPathFromModeBranch Error: Invalid Mode value (9) found in modeBranch[2]. "
                 "Expected range: 0 to 6");

    char untouched[8] = "keep";
    m_manager.GetPathFromModeBranch(nullptr, 4, untouched, sizeof(untouched));
    m_manager.GetPathFromModeBranch(branch.data(), 0, untouched, sizeof(untouched));
    EXPECT_STREQ(untouched, "keep");
}

TEST_F(ModePathsTest, NodeModePathIsCutToBuffer)
{
    ModeEntry* night = Node("0.0|1.0|2.0|3.2|4.3|5.5");
    ASSERT_NE(night, nullptr);
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

TEST(ModeNamesTest, ModeAndSubModeIndexFromNames)
{
    EXPECT_EQ(ParameterSetManager::GetModeIndex("usecase"), 2);
    EXPECT_EQ(ParameterSetManager::GetModeIndex("EFFECT"), 6);
    EXPECT_EQ(ParameterSetManager::GetModeIndex("Feature2"), 4);
    EXPECT_EQ(ParameterSetManager::GetModeIndex("Use"), 0);
    EXPECT_EQ(ParameterSetManager::GetModeIndex("Usecases"), 0);
    EXPECT_EQ(ParameterSetManager::GetModeIndex(nullptr), 0);

    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(2, "7"), 7);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(2, "300"), 300);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(2, "idealraw"), 6);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(2, "IdealRawReprocess"), 7);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(4, "viullmctf2"), 24);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(5, "AICam"), 21);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(6, "whiteboard"), 11);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(2, "Previe"), 0);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(1, "Preview"), 0);
    EXPECT_EQ(ParameterSetManager::GetSubModeIndex(3, nullptr), 0);

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
    EXPECT_EQ(ChildModes("0.0|1.2"), "Usecase.Snapshot,Usecase.ZSL");
    // A link lends modules, not children.
    EXPECT_EQ(ChildModes("0.0|1.0|2.2"), "");
    EXPECT_EQ(m_written, 1u);
    // A path that is not in the tree lists the root's children.
    EXPECT_EQ(ChildModes("0.0|4.4"), "Sensor.0,Sensor.2");
}

TEST_F(ModePathsTest, ChildModesLogBytesThatDoNotFit)
{
    EXPECT_EQ(ChildModes("0.0|1.0|2.0|3.2|4.3", 0), "");
    EXPECT_EQ(m_written, 0u);
    EXPECT_TRUE(m_log.HasMessage("Failed to write 1 bytes to binary offset 0, length 0\n"));

    std::vector<unsigned char> result(5, 0xEE);
    EXPECT_EQ(m_manager.GetChildModes(3, "0.0", result.data(), 4), 1u);
    EXPECT_EQ(result[0], 0);
    EXPECT_TRUE(m_log.HasMessage(
        "GetChildModes called with mode table index (3) >= mode table count (1)\n"));

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

    ModeEntry* sensor = Node("0.0|1.0");
    ModeEntry* preview = Node("0.0|1.0|2.0");
    ModeEntry* snapshot = Node("0.0|1.2|2.1");
    ModeEntry* night = Node("0.0|1.0|2.0|3.2|4.3|5.5");
    for (ModeEntry* node : {sensor, preview, snapshot, night})
        Activate(node);
    // An ancestor after its descendant is dropped; a descendant replaces its ancestor.
    m_table->activeModes.Add(preview);
    m_table->activeModes.Add(sensor);
    m_table->activeModes.Add(snapshot);
    m_table->activeModes.Add(night);
    EXPECT_EQ(ActiveModes(), "Default|Sensor.0|Usecase.Preview|Feature1.ADRC|Feature2.HDR10|"
                             "Scene.Night;Default|Sensor.2|Usecase.Snapshot");
}

TEST_F(ModePathsTest, ActiveModesSkipResidentNodesAfterInactiveOne)
{
    ModeEntry* sensor = Node("0.0|1.0");
    ModeEntry* sensor2 = Node("0.0|1.2");
    ModeEntry* zsl = Node("0.0|1.2|2.3");
    ModeEntry* video = Node("0.0|1.0|2.2");
    Activate(sensor);
    Activate(sensor2);
    Activate(video);
    // video is resident and active, zsl inactive: sensor (resident) before the inactive node
    // counts, sensor2 behind it does not, and neither does the resident video.
    m_table->activeModes.Add(sensor);
    m_table->activeModes.Add(zsl);
    m_table->activeModes.Add(sensor2);
    m_table->activeModes.Add(video);
    video->resident = true;
    EXPECT_EQ(ActiveModes(), "Default|Sensor.0");
    video->resident = false;
    EXPECT_EQ(ActiveModes(), "Default|Sensor.0|Usecase.Video");
}

TEST_F(ModePathsTest, ActiveModesReportAtMostFive)
{
    std::vector<char const*> const paths = {"0.0|1.0|2.0|3.1", "0.0|1.0|2.0|3.2|4.3",
                                            "0.0|1.0|2.2",     "0.0|1.2|2.1",
                                            "0.0|1.2|2.3",     "0.0|1.0|2.0|3.1|3.2"};
    for (char const* path : paths) {
        ModeEntry* node = Node(path);
        ASSERT_NE(node, nullptr) << path;
        Activate(node);
        m_table->activeModes.Add(node);
    }
    std::string const active = ActiveModes();
    EXPECT_EQ(active, "Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR;"
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
