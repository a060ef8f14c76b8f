// SPDX-License-Identifier: Apache-2.0
// Live tuning hosted by a generated set manager: a load starts the server on the loaded tree, a
// client's changes reach the cameras, and camera threads read a module a busy client changes.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"
#include "tests/common/trackerdescription.h"
#include "tests/parametermodules/managerfixture.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using ManagerTest::Step;
using ParamTest::Request;
using ParamTest::TextAt;

constexpr char Preview[] = "Default|Sensor.0|Usecase.Preview:t2tconfigdata";

// Stops its server first thing in its destruction, while the object is still whole: the command
// thread may be finishing a command through its virtual functions.
class LiveTuningSetManager final : public TuningSetManager
{
public:
    LiveTuningSetManager() : TuningSetManager("live") {}
    ~LiveTuningSetManager() override { StopKnobbyWorker(); }
};

class KnobbyHostTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_file = ManagerTest::Pack(ParamTest::TrackerDescription);
        ASSERT_EQ(m_manager.GetKnobbyPort(), 0);
        ASSERT_TRUE(m_manager.SetKnobbyListenAddress("127.0.0.1", 0));
        ASSERT_TRUE(m_manager.LoadBinaryParameters(m_file.data(), m_file.size()));
        ASSERT_TRUE(m_client.Connect(m_manager.GetKnobbyPort()));
    }

    std::string Ask(uint16_t command, std::string const& payload, size_t textAt = 18)
    {
        EXPECT_TRUE(m_client.Send(Request(command, payload)));
        return TextAt(m_client.ReadPacket(), textAt);
    }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_file;
    LiveTuningSetManager m_manager;
    ParamTest::LoopbackClient m_client;
};

TEST_F(KnobbyHostTest, LoadStartsTheServerOnTheLoadedTree)
{
    EXPECT_EQ(Ask(Wire::DeviceInfo, "", 16), m_manager.GetLoggingIdentifier());
    EXPECT_EQ(Ask(Wire::Modes, "Default|Sensor.0"), "Usecase.Preview,Usecase.Video");
    EXPECT_EQ(Ask(Wire::ActiveModes, "", 14), "Default");
}

// A client's change is what the cameras read next, and what any later client reads back.
TEST_F(KnobbyHostTest, SetValuesReachTheCamerasAndLaterClients)
{
    EXPECT_EQ(Ask(Wire::SetValues, std::string(Preview) + ":confidenceThreshold=90;nothing=1"),
              "confidenceThreshold=90");
    TuningMode const preview[] = {Step(0), Step(1, 0), Step(2, 0)};
    vornt2tconfig::T2TCtrlType* module = m_manager.GetModule_t2tconfigdata(preview, 3, nullptr);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->confidenceThreshold, 90u);
    module->Release();
    m_client.Close();
    ASSERT_TRUE(m_client.Connect(m_manager.GetKnobbyPort()));
    EXPECT_EQ(Ask(Wire::GetValues, std::string(Preview) + ":confidenceThreshold"),
              "confidenceThreshold=90");
}

// Under ThreadSanitizer this checks the locking between value access and module lookup. A live
// edit and a camera's read meet on the bare value without a lock, by design, so the cameras read
// the members the client leaves alone; the video cameras read the root's values.
TEST_F(KnobbyHostTest, CameraThreadsRunBesideABusyClient)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::atomic<bool> done{false};
    std::atomic<unsigned int> badReads{0};
    std::atomic<unsigned int> reads{0};
    std::vector<std::thread> cameras;
    for (unsigned int camera = 0; camera < 4; ++camera) {
        cameras.emplace_back([&, camera] {
            bool const preview = camera % 2 == 0;
            TuningMode const branch[] = {Step(0), Step(1, 0), Step(2, preview ? 0 : 2)};
            vornt2tconfig::T2TCtrlType* module = nullptr;
            while (!done && std::chrono::steady_clock::now() < deadline) {
                module = m_manager.GetModule_t2tconfigdata(branch, 3, module);
                bool const good =
                    module != nullptr &&
                    (preview ? module->operationMode == 2 && module->downscaleRatio == 0.25f
                             : module->operationMode == 1 && module->confidenceThreshold == 60);
                badReads += good ? 0 : 1;
                ++reads;
            }
            if (module != nullptr)
                module->Release();
        });
    }
    unsigned int answered = 0;
    for (unsigned int i = 0; i < 150 && std::chrono::steady_clock::now() < deadline; ++i) {
        std::string const value = "confidenceThreshold=" + std::to_string(75 + i);
        answered += Ask(Wire::SetValues, std::string(Preview) + ":" + value) == value &&
                    Ask(Wire::GetValues, std::string(Preview) + ":confidenceThreshold") == value;
    }
    done = true;
    for (std::thread& camera : cameras)
        camera.join();
    EXPECT_EQ(answered, 150u);
    EXPECT_GT(reads.load(), 0u);
    EXPECT_EQ(badReads.load(), 0u);
}

} // namespace
