// SPDX-License-Identifier: Apache-2.0
// The generated set managers: registries from their lists, derived managers on a file with two
// mode tables, and the operations that are refused.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parsercrc.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/vornflindices.h"
#include "tests/common/logcapture.h"
#include "tests/parametermodules/managerfixture.h"

namespace {

using ManagerTest::Step;

// Table "front" holds flIndices at its root and in sensor 0's preview; table "rear" at its root.
constexpr char TwoTables[] = R"(
version 7.0.0
modetable front
  path Default|Sensor.0|Usecase.Preview
instance flIndices FLIndicesType mode Default
  value numPoints 3
  value indices 1,2,3
instance flIndices FLIndicesType mode Default|Sensor.0|Usecase.Preview
  value numPoints 4
modetable rear
  path Default|Sensor.1|Usecase.Video
instance flIndices FLIndicesType mode Default
  value numPoints 7
)";

class ConcreteSetManagerTest : public ::testing::Test
{
protected:
    /// The two-table file loaded into m_main.
    void LoadTwoTables()
    {
        m_file = ManagerTest::Pack(TwoTables);
        ASSERT_TRUE(m_main.LoadBinaryParameters(m_file.data(), m_file.size()))
            << m_main.GetErrorString();
    }

    static unsigned int NumPoints(vornflindices::FLIndicesType const* module)
    {
        return module != nullptr ? module->numPoints : 0;
    }

    ParamTest::LogCapture m_log;
    fdSetManager m_main{"fd"};
    std::vector<uint8_t> m_file;
};

// Every instance of every list is found by its name in the catalogue sweep; here the line each
// main manager logs when it is made, and one factory per instance even where types repeat.
TEST_F(ConcreteSetManagerTest, MainManagerLogsItsConstructionAndMakesAFactoryPerInstance)
{
    struct Case
    {
        char const* manager;
        std::unique_ptr<ConcreteSetManager> object;
        bool constructedLine;
    };
    Case cases[] = {
        {"fdSetManager", std::make_unique<fdSetManager>(nullptr), true},
        {"bitmlSetManager", std::make_unique<bitmlSetManager>(nullptr), true},
        {"ImageSensorModuleSetManager", std::make_unique<ImageSensorModuleSetManager>(nullptr),
         true},
        // The tuning manager's verbose lines are off by the time it is constructed.
        {"TuningSetManager", std::make_unique<ManagerTest::QuietTuningSetManager>(), false},
    };
    std::string const constructed =
        " constructed: Parameter Parser V7.4.1 (8cca6579792b9fcef3bc725ff070c5ec453c7c85)\n";
    for (Case const& test : cases)
        EXPECT_EQ(m_log.HasMessage(test.manager + constructed), test.constructedLine)
            << test.manager;
    // Two instances of one type are two kinds, each with its own factory instance.
    auto const& tuning = cases[3].object;
    DefaultModule* bps = tuning->GetDefaultModule(ParserCRC64::HashName("gamma16_bps"));
    DefaultModule* ife = tuning->GetDefaultModule(ParserCRC64::HashName("gamma16_ife"));
    ASSERT_NE(bps, nullptr);
    ASSERT_NE(ife, nullptr);
    EXPECT_NE(bps->module, ife->module);
    EXPECT_EQ(bps->first, nullptr);
}

TEST_F(ConcreteSetManagerTest, UnknownKindIsLoggedWithItsHash)
{
    unsigned long const hash = ParserCRC64::HashName("noSuchInstance");
    EXPECT_EQ(m_main.GetDefaultModule(hash), nullptr);
    char expected[96];
    std::snprintf(expected, sizeof(expected), "Failed to find module 0x%llx in DefaultModuleMap\n",
                  static_cast<unsigned long long>(hash));
    EXPECT_TRUE(m_log.HasMessage(expected));
}

TEST_F(ConcreteSetManagerTest, CreateSetManagerBeforeALoadFindsNoTable)
{
    EXPECT_EQ(m_main.CreateSetManager(static_cast<unsigned char>(0)), nullptr);
    EXPECT_TRUE(
        m_log.HasMessage("CreateSetManager called mode table index (0) >= mode table count (0)\n"));
    EXPECT_EQ(m_main.CreateSetManager("front"), nullptr);
    EXPECT_EQ(m_main.CreateSetManager(static_cast<char const*>(nullptr)), nullptr);
}

TEST_F(ConcreteSetManagerTest, DerivedManagerSelectsItsTable)
{
    LoadTwoTables();
    TuningMode const root[] = {Step(ModeDefault)};
    std::unique_ptr<fdSetManager> rear(m_main.CreateSetManager("rear"));
    ASSERT_NE(rear, nullptr);
    EXPECT_EQ(rear->GetMainSetManager(), &m_main);

    vornflindices::FLIndicesType* front = m_main.GetModule_flIndices(root, 1, nullptr);
    vornflindices::FLIndicesType* back = rear->GetModule_flIndices(root, 1, nullptr);
    EXPECT_EQ(NumPoints(front), 3u);
    EXPECT_EQ(NumPoints(back), 7u);
    ASSERT_NE(front, nullptr);
    EXPECT_EQ(front->indices[2], 3u);

    // The deepest mode of the branch that holds the module wins; a mode without its own values
    // reads its parent's.
    TuningMode const preview[] = {Step(ModeDefault), Step(ModeSensor, 0), Step(ModeUsecase, 0)};
    TuningMode const video[] = {Step(ModeDefault), Step(ModeSensor, 1), Step(ModeUsecase, 2)};
    vornflindices::FLIndicesType* previewModule = m_main.GetModule_flIndices(preview, 3, front);
    EXPECT_EQ(NumPoints(previewModule), 4u);
    vornflindices::FLIndicesType* videoModule = rear->GetModule_flIndices(video, 3, back);
    EXPECT_EQ(NumPoints(videoModule), 7u);
    if (previewModule != nullptr)
        previewModule->Release();
    if (videoModule != nullptr)
        videoModule->Release();
}

TEST_F(ConcreteSetManagerTest, CreateSetManagerOnADerivedManagerMakesASibling)
{
    LoadTwoTables();
    std::unique_ptr<fdSetManager> rear(m_main.CreateSetManager(static_cast<unsigned char>(1)));
    ASSERT_NE(rear, nullptr);
    std::unique_ptr<fdSetManager> front(rear->CreateSetManager("front"));
    ASSERT_NE(front, nullptr);
    EXPECT_EQ(front->GetMainSetManager(), &m_main);
    TuningMode const root[] = {Step(ModeDefault)};
    vornflindices::FLIndicesType* module = front->GetModule_flIndices(root, 1, nullptr);
    EXPECT_EQ(NumPoints(module), 3u);
    if (module != nullptr)
        module->Release();

    EXPECT_EQ(rear->CreateSetManager(static_cast<unsigned char>(2)), nullptr);
    EXPECT_TRUE(
        m_log.HasMessage("CreateSetManager called mode table index (2) >= mode table count (2)\n"));
    EXPECT_EQ(rear->CreateSetManager("side"), nullptr);
    EXPECT_TRUE(m_log.HasMessage("CreateSetManager unable to find mode table side\n"));
}

TEST_F(ConcreteSetManagerTest, DeletingADerivedManagerLeavesTheMainOneIntact)
{
    LoadTwoTables();
    TuningMode const root[] = {Step(ModeDefault)};
    vornflindices::FLIndicesType* held = nullptr;
    {
        std::unique_ptr<fdSetManager> front(m_main.CreateSetManager("front"));
        ASSERT_NE(front, nullptr);
        held = front->GetModule_flIndices(root, 1, nullptr);
        // A derived manager has no registry of its own.
        EXPECT_EQ(front->GetDefaultModule(ParserCRC64::HashName("flIndices")), nullptr);
    }
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->numPoints, 3u);
    EXPECT_EQ(m_main.GetModule_flIndices(root, 1, held), held);
    held->Release();
}

TEST_F(ConcreteSetManagerTest, RefusedOperationsReportAndChangeNothing)
{
    LoadTwoTables();
    m_log.Clear();
    unsigned char buffer[4] = {};
    EXPECT_FALSE(m_main.UpdateBinaryParameters(buffer, sizeof(buffer)));
    EXPECT_FALSE(m_main.UpdateBinaryParameters(nullptr, 0));
    EXPECT_EQ(m_log.Count("UpdateBinaryParameters not available.  To enable, add --update when "
                          "generating parser utility code"),
              2u);

    std::unique_ptr<fdSetManager> derived(m_main.CreateSetManager(static_cast<unsigned char>(0)));
    ASSERT_NE(derived, nullptr);
    derived->AddDefaultModule(nullptr);
    EXPECT_STREQ(m_main.GetErrorString(),
                 "AddDefaultModule called on a derived set manager object");

    fdSetManager orphan(nullptr, 0);
    EXPECT_TRUE(m_log.HasMessage("fdSetManager called with null main parameter\n"));
}

TEST_F(ConcreteSetManagerTest, SaveAndClearModulesParksEveryInstanceAndKeepsTheFactories)
{
    LoadTwoTables();
    DefaultModule* kind = m_main.GetDefaultModule(ParserCRC64::HashName("flIndices"));
    ASSERT_NE(kind, nullptr);
    ASSERT_NE(kind->first, nullptr);
    ParameterModule* factory = kind->module;

    // Through a derived manager, as a reload of either would do it.
    std::unique_ptr<fdSetManager> derived(m_main.CreateSetManager(static_cast<unsigned char>(1)));
    ASSERT_NE(derived, nullptr);
    derived->SaveAndClearModules();
    EXPECT_EQ(kind->first, nullptr);
    EXPECT_EQ(kind->last, nullptr);
    EXPECT_EQ(kind->module, factory);
    // The parked instances go with the main manager; the sanitizer run checks that they do.
}

} // namespace
