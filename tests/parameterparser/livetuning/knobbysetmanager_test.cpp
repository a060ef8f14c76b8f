// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning service hosted by a set manager: start on load, commands against the
// loaded mode tree and the host forwards.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parametersetmanager.h"
#include "tools/writer/modesectionbuilder.h"

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/livetuning/livetuningsupport.h"
#include "tests/parameterparser/modetreefixture.h"

namespace {

using LiveTuningTest::Bytes;
using LiveTuningTest::LoopbackClient;
using LiveTuningTest::Request;
using LiveTuningTest::TextAt;
using TuningWriter::ModeSectionBuilder;
namespace Wire = ParameterKnobbyPacket;

/// A manager with the live tuning worker and no module kinds.
class LiveSetManager : public ParameterSetManager
{
public:
    LiveSetManager() : ParameterSetManager(nullptr, 0, "LiveManager", true) {}
    LiveSetManager(ParameterSetManager* main, unsigned char modeTableIndex)
        : ParameterSetManager(main, modeTableIndex, nullptr, false)
    {
    }
    ~LiveSetManager() override { StopKnobbyWorker(); }

    DefaultModule* GetDefaultModule(unsigned long) override { return nullptr; }
    void SaveAndClearModules() override {}
};

std::vector<uint8_t> TwoTableFile()
{
    ModeSectionBuilder rear(0, "rear");
    rear.AddPath("Default|Sensor.0|Usecase.Preview");
    rear.AddPath("Default|Sensor.0|Usecase.Video");
    rear.AddPath("Default|Sensor.2|Usecase.Snapshot");
    ModeSectionBuilder front(1, "front");
    front.AddPath("Default|Sensor.1|Usecase.ZSL");
    return ParamTest::ModeFile({rear, front});
}

class KnobbySetManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_file = TwoTableFile();
        EXPECT_EQ(m_manager.GetKnobbyPort(), 0);
        ASSERT_TRUE(m_manager.LoadBinaryParameters(m_file.data(), m_file.size()));
        ASSERT_NE(m_manager.GetKnobbyPort(), 0);
        ASSERT_TRUE(m_client.Connect(m_manager.GetKnobbyPort()));
    }

    void TearDown() override { m_client.Close(); }

    std::string AskText(Bytes const& request, size_t offset)
    {
        EXPECT_TRUE(m_client.Send(request));
        Bytes const response = m_client.ReadPacket();
        EXPECT_FALSE(response.empty());
        return TextAt(response, offset);
    }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_file;
    LiveSetManager m_manager;
    LoopbackClient m_client;
};

TEST_F(KnobbySetManagerTest, LoadStartsTheServerOnTheLoadedTree)
{
    EXPECT_EQ(AskText(Request(Wire::DeviceInfo), 16),
              std::string(m_manager.GetLoggingIdentifier()) + ":rear,front");
    EXPECT_EQ(AskText(Request(Wire::Modes, "Default"), 18), "Sensor.0,Sensor.2");
    EXPECT_EQ(AskText(Request(Wire::Modes, "Default|Sensor.0"), 18),
              "Usecase.Preview,Usecase.Video");
    EXPECT_EQ(AskText(Request(Wire::ActiveModes), 14), "Default");

    // The second table answers once a client selects it.
    EXPECT_EQ(AskText(Request(Wire::ModeIndex, "1"), 14), "1");
    EXPECT_EQ(AskText(Request(Wire::Modes, "Default"), 18), "Sensor.1");
    EXPECT_EQ(AskText(Request(Wire::ModeIndex, "2"), 14), "1");
}

TEST_F(KnobbySetManagerTest, ControlValuesArePublishedThroughTheManagers)
{
    m_manager.SetControlValue({2, 2.0});
    m_manager.SetControlValue({1, 1.0});
    EXPECT_EQ(AskText(Request(Wire::ControlValues), 14), "1=1.000000,2=2.000000");

    // A derived manager's single value replaces the main manager's whole list.
    LiveSetManager derived(&m_manager, 1);
    derived.SetControlValue({5, 0.5});
    EXPECT_EQ(AskText(Request(Wire::ControlValues), 14), "5=0.500000");

    EXPECT_FALSE(derived.SetTriggerValues("0.0", "module", "", "unit", nullptr, 0));
    EXPECT_FALSE(m_manager.TriggerRequestExists("0.0", "module", ""));
}

TEST_F(KnobbySetManagerTest, FormatHelpersNeedAWorker)
{
    Bytes const request = Request(Wire::Info, "Default:module", 9);
    unsigned short command = 0;
    unsigned long id = 0;
    unsigned int requestId = 0;
    unsigned char const* payload = nullptr;
    unsigned int payloadLength = 0;
    EXPECT_TRUE(m_manager.ParseKnobbyRequest(request.data(),
                                             static_cast<unsigned int>(request.size()), command, id,
                                             requestId, payload, payloadLength));
    EXPECT_EQ(requestId, 9u);

    ParamTest::TestSetManager withoutWorker;
    EXPECT_FALSE(withoutWorker.ParseKnobbyRequest(request.data(),
                                                  static_cast<unsigned int>(request.size()),
                                                  command, id, requestId, payload, payloadLength));
    unsigned char buffer[64] = {};
    unsigned int total = 0;
    EXPECT_FALSE(withoutWorker.BuildKnobbyResponse(buffer, sizeof(buffer), total, Wire::Info, 1, 2,
                                                   nullptr, 0));
    EXPECT_EQ(withoutWorker.GetKnobbyPort(), 0);
    withoutWorker.SetControlValue({1, 1.0});
}

} // namespace
