// SPDX-License-Identifier: Apache-2.0
// Live tuning against generated modules: a TuningSetManager serves a writer-made file over
// loopback, and camera threads read the module a busy client is changing.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/trackerdescription.h"
#include "tests/parametermodules/managerfixture.h"
#include "tests/parameterparser/livetuning/livetuningsupport.h"

namespace {

using LiveTuningTest::Bytes;
using LiveTuningTest::LoopbackClient;
using LiveTuningTest::Request;
using LiveTuningTest::TextAt;
using ManagerTest::Step;
namespace Wire = ParameterKnobbyPacket;

constexpr char PreviewModes[] = "Default|Sensor.0|Usecase.Preview";

// A TuningSetManager that stops its live tuning server first thing in its destruction. The
// generated manager stops it only in the base destructor, when the command thread may still be
// finishing a command through the object's virtual functions.
class LiveTuningSetManager final : public TuningSetManager
{
public:
    LiveTuningSetManager() : TuningSetManager("live") {}
    ~LiveTuningSetManager() override { StopKnobbyWorker(); }
};

// A TuningSetManager with its live tuning server, loaded from the tracker description, and a client on it.
class KnobbyModulesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_file = ManagerTest::Pack(ParamTest::TrackerDescription);
        ASSERT_FALSE(m_file.empty());
        ASSERT_TRUE(m_manager.LoadBinaryParameters(m_file.data(), m_file.size()))
            << m_manager.GetErrorString();
        ASSERT_NE(m_manager.GetKnobbyPort(), 0);
        ASSERT_TRUE(m_client.Connect(m_manager.GetKnobbyPort()));
    }

    void TearDown() override { m_client.Close(); }

    /// The response to request; fails the test when none comes.
    Bytes Ask(Bytes const& request)
    {
        EXPECT_TRUE(m_client.Send(request));
        Bytes response = m_client.ReadPacket();
        EXPECT_FALSE(response.empty());
        return response;
    }

    /// The response's text from 18 after checking its head: the request's command and ID
    /// echoed, and a length field that counts text and terminator.
    std::string AnswerText(Bytes const& response, uint16_t command, uint32_t requestId)
    {
        EXPECT_GE(response.size(), Wire::RequestHeadSize + 1u);
        if (response.size() < Wire::RequestHeadSize + 1u)
            return "<short>";
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::TagOffset), Wire::StartTag);
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), command);
        EXPECT_EQ(Wire::GetU32(response.data() + Wire::RequestIdOffset), requestId);
        std::string const text = TextAt(response, Wire::RequestHeadSize);
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
        EXPECT_EQ(response.size(), Wire::RequestHeadSize + text.size() + 1);
        return text;
    }

    std::string Exchange(uint16_t command, std::string const& payload, uint32_t requestId)
    {
        return AnswerText(Ask(Request(command, payload, requestId)), command, requestId);
    }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_file;
    LiveTuningSetManager m_manager;
    LoopbackClient m_client;
};

TEST_F(KnobbyModulesTest, InfoDescribesTheModuleMembers)
{
    struct Case
    {
        std::string payload;
        char const* text;
    } const cases[] = {
        {std::string(PreviewModes) + ":t2tconfigdata",
         "module_version,Structure;operationMode=2,UInt32;precisionMode=1,UInt32;"
         "downscaleRatio=0.25,Float;cancelObjectUponMissing=0,UInt32;"
         "confidenceThreshold=75,UInt32"},
        {std::string(PreviewModes) + ":t2tconfigdata.module_version",
         "major_revision=1,Int32;minor_revision=0,Int32;incr_revision=0,Int32"},
        // Video has no tracker of its own: the root's values answer. A member asked for by its
        // own path is named as GetValues names it.
        {"Default|Sensor.0|Usecase.Video:t2tconfigdata.confidenceThreshold",
         "confidenceThreshold=60,UInt32"},
        {std::string(PreviewModes) + ":noSuchModule", ""},
    };
    uint32_t requestId = 100;
    for (Case const& test : cases)
        EXPECT_EQ(Exchange(Wire::Info, test.payload, requestId++), test.text) << test.payload;
}

TEST_F(KnobbyModulesTest, GetValuesAnswersWholeModulesAndChosenMembers)
{
    struct Case
    {
        std::string payload;
        char const* text;
    } const cases[] = {
        // A whole module: its scalars, nested structures left out.
        {std::string(PreviewModes) + ":t2tconfigdata",
         "operationMode=2;precisionMode=1;downscaleRatio=0.25;cancelObjectUponMissing=0;"
         "confidenceThreshold=75"},
        {std::string(PreviewModes) + ":t2tconfigdata:module_version.major_revision,operationMode",
         "module_version.major_revision=1;operationMode=2"},
        {std::string(PreviewModes) + ":t2tconfigdata:confidenceThreshold,downscaleRatio",
         "confidenceThreshold=75;downscaleRatio=0.25"},
        {std::string(PreviewModes) + ":t2tconfigdata.operationMode", "operationMode=2"},
        {"Default|Sensor.0|Usecase.Video:t2tconfigdata:operationMode", "operationMode=1"},
        {std::string(PreviewModes) + ":t2tconfigdata.nothing", ""},
        // The modes alone: nothing is read.
        {PreviewModes, ""},
    };
    uint32_t requestId = 200;
    for (Case const& test : cases)
        EXPECT_EQ(Exchange(Wire::GetValues, test.payload, requestId++), test.text) << test.payload;
}

TEST_F(KnobbyModulesTest, SetValuesChangesTheModuleAndAnswersTheReadBack)
{
    std::string const modes = std::string(PreviewModes) + ":t2tconfigdata:";
    struct Case
    {
        std::string items;
        char const* text;
        bool failed; ///< the last item failed, which decides the verdict
    } const cases[] = {
        {"confidenceThreshold=90;downscaleRatio=0.125",
         "confidenceThreshold=90;downscaleRatio=0.125", false},
        // A member the module lacks is left out of the answer; the last item decides.
        {"nothing=1;operationMode=3", "operationMode=3", false},
        {"precisionMode=4;nothing=1", "precisionMode=4", true},
        // An item without a value is skipped.
        {"operationMode=;cancelObjectUponMissing=1", "cancelObjectUponMissing=1", false},
    };
    uint32_t requestId = 300;
    for (Case const& test : cases)
        EXPECT_EQ(Exchange(Wire::SetValues, modes + test.items, requestId++), test.text)
            << test.items;
    // The command thread logs a verdict before it takes the next request: once this answer is
    // in, every verdict above has been logged. Only failures are logged by this manager.
    Exchange(Wire::GetValues, PreviewModes, 350);
    requestId = 300;
    for (Case const& test : cases) {
        std::string const line =
            "Knobby command failed: SetValues(6), ID: " + std::to_string(requestId++) +
            ", Payload: " + test.text + "\n";
        EXPECT_EQ(m_log.HasMessage(line), test.failed) << line;
    }
    EXPECT_EQ(m_log.Count("Knobby SetValues failed: Variable not found: \n"), 2u);

    // The camera's view of the module has changed with it.
    TuningMode const preview[] = {Step(0), Step(1, 0), Step(2, 0)};
    vornt2tconfig::T2TCtrlType* module = m_manager.GetModule_t2tconfigdata(preview, 3, nullptr);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->confidenceThreshold, 90u);
    EXPECT_FLOAT_EQ(module->downscaleRatio, 0.125f);
    EXPECT_EQ(module->operationMode, 3u);
    EXPECT_EQ(module->precisionMode, 4u);
    EXPECT_EQ(module->cancelObjectUponMissing, 1u);
    module->Release();
    // Another client reads what this one wrote.
    m_client.Close();
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_manager.GetKnobbyPort()));
    ASSERT_TRUE(next.Send(
        Request(Wire::GetValues, std::string(PreviewModes) + ":t2tconfigdata:operationMode", 399)));
    Bytes const response = next.ReadPacket(std::chrono::milliseconds(8000));
    EXPECT_EQ(AnswerText(response, Wire::GetValues, 399), "operationMode=3");
}

// Camera threads take and read the module that a client keeps changing and reading back; under
// ThreadSanitizer this checks the locking between value access and module lookup. A live edit
// and a camera's read meet on the bare value without a lock, by design, so the cameras read the
// members the client leaves alone.
TEST_F(KnobbyModulesTest, CameraThreadsRunBesideABusyClient)
{
    constexpr unsigned int CameraCount = 4;
    constexpr unsigned int CameraRounds = 100000;
    constexpr unsigned int ClientRounds = 150;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);

    std::atomic<bool> done{false};
    std::atomic<unsigned int> badReads{0};
    std::atomic<unsigned int> reads{0};
    std::vector<std::thread> cameras;
    for (unsigned int camera = 0; camera < CameraCount; ++camera) {
        cameras.emplace_back([&, camera] {
            // Half the cameras run the preview, which the client changes; half run video, which
            // reads the root's values and must not see the changes.
            bool const preview = camera % 2 == 0;
            TuningMode const branch[] = {Step(0), Step(1, 0), Step(2, preview ? 0 : 2)};
            vornt2tconfig::T2TCtrlType* module = nullptr;
            for (unsigned int round = 0; round < CameraRounds && !done; ++round) {
                module = m_manager.GetModule_t2tconfigdata(branch, 3, module);
                if (module == nullptr) {
                    ++badReads;
                    continue;
                }
                bool const good =
                    preview ? module->operationMode == 2 && module->downscaleRatio == 0.25f
                            : module->operationMode == 1 && module->confidenceThreshold == 60;
                if (!good)
                    ++badReads;
                ++reads;
                if (std::chrono::steady_clock::now() >= deadline)
                    break;
            }
            if (module != nullptr)
                module->Release();
        });
    }

    std::string const modes = std::string(PreviewModes) + ":t2tconfigdata";
    unsigned int answered = 0;
    for (unsigned int i = 0; i < ClientRounds && std::chrono::steady_clock::now() < deadline; ++i) {
        std::string const value = std::to_string(75 + i);
        std::string const set =
            Exchange(Wire::SetValues, modes + ":confidenceThreshold=" + value, 2 * i);
        std::string const get =
            Exchange(Wire::GetValues, modes + ":confidenceThreshold", 2 * i + 1);
        EXPECT_EQ(set, "confidenceThreshold=" + value);
        EXPECT_EQ(get, "confidenceThreshold=" + value);
        if (HasFailure())
            break;
        ++answered;
    }
    done = true;
    for (std::thread& camera : cameras)
        camera.join();
    EXPECT_EQ(answered, ClientRounds);
    EXPECT_GT(reads.load(), 0u);
    EXPECT_EQ(badReads.load(), 0u);
}

} // namespace
