// SPDX-License-Identifier: Apache-2.0
// Reloading a file under clients that hold modules, and merging a second manager's modules.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/parsercrc.h"

#include "paramgen/TuningSetManager.h"
#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"
#include "tests/common/tempfile.h"
#include "tests/parameterparser/lookupfixture.h"

#if defined(__SANITIZE_ADDRESS__)
#define RELOAD_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RELOAD_TEST_ASAN 1
#endif
#endif
#if defined(RELOAD_TEST_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace {

using ParamTest::LookupFile;
using ParamTest::Revision;
namespace Wire = ParameterKnobbyPacket;

constexpr char const* Preview = "Default|Sensor.0|Usecase.Preview";
constexpr char const* Video = "Default|Sensor.0|Usecase.Video";
constexpr TuningMode PreviewBranch[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
constexpr TuningMode VideoBranch[] = {{0, 0, 0}, {1, 0, 0}, {2, 2, 0}};

/// The tuning set's manager with its parked generation in view. It serves live tuning, which only
/// the test that talks to it runs; its verbose lines are logged.
class ReloadSetManager : public TuningSetManager
{
public:
    explicit ReloadSetManager(char const* name, bool live = false) : TuningSetManager(name)
    {
        m_knobbyEnabled = live;
        m_logVerbose = true;
    }
    // The live tuning threads call into this object: they stop before any part of it goes.
    ~ReloadSetManager() override { StopKnobbyWorker(); }

    unsigned int ParkedModules() const { return m_replacedModules.Count(); }
    unsigned int ParkedModeTables() const { return m_modeTree.ParkedTables().Count(); }
    unsigned int ParkedSymbolTables() const { return m_store.ParkedSymbolTables().Count(); }
    /// The module of kind letter through branch.
    ParameterModule* Get(TuningMode const* branch = PreviewBranch,
                         ParameterModule* previous = nullptr, char letter = 'A')
    {
        return GetModuleInternal(0, ParamTest::LookupModule(letter), branch, 3, previous, true);
    }
};

/// The file most tests start from: module A in Preview (tag) and in Video (tag + "v"), with the
/// binary tag binaryTag.
std::vector<uint8_t> PreviewAndVideo(std::string const& tag, std::string const& binaryTag = "first")
{
    LookupFile file("rear");
    file.AddModule('A', file.Path(Preview), tag);
    file.AddModule('A', file.Path(Video), tag + "v");
    return file.Build(binaryTag);
}

class ReloadTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_manager.LoadBinaryParameters(m_file.Path().c_str())); }

    /// Rewrites the file and reloads it in file mode.
    bool Reload(std::vector<uint8_t> const& bytes)
    {
        m_file.Rewrite(bytes);
        return m_manager.ReloadBinaryParameters(false);
    }

    ParamTest::LogCapture m_log;
    ParamTest::TempFile m_file{PreviewAndVideo("p1")};
    ReloadSetManager m_manager{"reload"};
};

// The module cache read back through three generations: the one in service, the parked one, and
// the one before, which the next reload frees.
TEST_F(ReloadTest, ParkedGenerationStaysReadableUntilTheNextReload)
{
    ParameterModule* before = m_manager.Get();
    ASSERT_NE(before, nullptr);
    ASSERT_TRUE(Reload(PreviewAndVideo("p2", "second")));
    EXPECT_TRUE(m_log.HasMessage("Reloading binary file " + m_file.Path() + "\n"));
    EXPECT_STREQ(m_manager.GetLoggingIdentifier(), "reload;BinaryTag=second");
    EXPECT_EQ(m_manager.ParkedModules(), 2u);
    EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
    EXPECT_EQ(m_manager.ParkedSymbolTables(), 1u);
    EXPECT_STREQ(Revision(before), "p1");
    ParameterModule* between = m_manager.Get();
    ASSERT_NE(between, nullptr);
    EXPECT_NE(between, before);
    EXPECT_STREQ(Revision(between), "p2");

    ASSERT_TRUE(Reload(PreviewAndVideo("p3", "third")));
    EXPECT_TRUE(m_log.HasMessage("FreeReplacedParameters called\n"));
    EXPECT_EQ(m_manager.ParkedModules(), 2u);
    EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
    EXPECT_STREQ(Revision(between), "p2");
    EXPECT_STREQ(Revision(m_manager.Get()), "p3");
#if defined(RELOAD_TEST_ASAN)
    // The module from before the last two reloads is freed.
    EXPECT_TRUE(__asan_address_is_poisoned(before));
    EXPECT_FALSE(__asan_address_is_poisoned(between));
#endif
}

// A client's count moves to the new generation's module in the same slot while the file keeps
// its tables, its slots and the kinds in them; the old generation's count is the old module's.
TEST_F(ReloadTest, CountsMoveOnlyWhileTheFileKeepsItsShape)
{
    struct Case
    {
        char const* name;
        std::vector<uint8_t> image;
        char heldAfter; ///< the kind in Preview after the reload
        int32_t count;  ///< its count after the reload
        char const* message;
    };
    LookupFile tables("rear");
    tables.AddModule('A', tables.Path(Preview), "p");
    tables.AddModule('A', tables.Path(Video), "v");
    tables.NewTable("front");
    tables.AddModule('A', tables.Path(Preview), "front");
    LookupFile slots("rear");
    slots.Path("Default|Sensor.0|Usecase.Snapshot");
    slots.AddModule('A', slots.Path(Preview), "p");
    slots.AddModule('A', slots.Path(Video), "v");
    LookupFile other("rear");
    other.AddModule('B', other.Path(Preview), "p");
    other.AddModule('A', other.Path(Video), "v");
    Case const cases[] = {
        {"SameShape", PreviewAndVideo("p2"), 'A', 1, nullptr},
        {"AnotherTableCount", tables.Build(), 'A', 0, nullptr},
        {"AnotherSlotCount", slots.Build(), 'A', 0, nullptr},
        {"AnotherModuleInTheSlot", other.Build(), 'B', 0,
         "ReloadBinaryParameters: Failed to transfer reference counts, current module name "
         "(versionsB_sw) does not match prev name (versionsA_sw) in mode index 2\n"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        m_log.Clear();
        ParameterModule* held = m_manager.Get();
        ASSERT_NE(held, nullptr);
        ASSERT_TRUE(Reload(test.image));
        ModeEntry* node = m_manager.GetModeEntry(0, PreviewBranch, 3);
        ModeEntry::ModuleReference& reference =
            node->modules.at(ParserCRC64::HashName(ParamTest::LookupModule(test.heldAfter)));
        EXPECT_EQ(reference.refCount.load(), test.count);
        EXPECT_EQ(node->IsActive(), test.count > 0);
        EXPECT_EQ(m_log.Count("Failed to transfer reference counts"), test.message ? 1u : 0u);
        if (test.message != nullptr) {
            EXPECT_TRUE(m_log.HasMessage(test.message));
        }
        // Giving back the old pointer lowers only the old generation's count.
        held->Release();
        EXPECT_EQ(reference.refCount.load(), test.count);
        // The next case starts from a generation of the first shape.
        if (test.count > 0) {
            ParameterModule* carried = m_manager.Get();
            carried->Release();
            carried->Release();
        }
        ASSERT_TRUE(Reload(PreviewAndVideo("p1")));
    }
}

// Which check refuses the new file is the loader's matter; a reload that fails at any of them
// leaves the manager empty with the generation in service parked, its modules still readable.
TEST_F(ReloadTest, FailedReloadLeavesTheManagerEmptyAndTheOldGenerationIntact)
{
    ParameterModule* held = m_manager.Get();
    ASSERT_NE(held, nullptr);
    TuningWriter::Damage badChecksum;
    badChecksum.badChecksum = true;
    LookupFile damaged("rear");
    damaged.AddModule('A', damaged.Path(Preview), "damaged");
    EXPECT_FALSE(Reload(damaged.Build("first", badChecksum)));
    EXPECT_STREQ(m_manager.GetErrorString(), "Binary file CRC validation failed");
    EXPECT_EQ(m_manager.GetModeTableCount(), 0u);
    EXPECT_EQ(m_manager.GetSymbolTable(), nullptr);
    EXPECT_EQ(m_manager.Get(), nullptr);
    EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
    EXPECT_STREQ(Revision(held), "p1");

    // The file name stays, so the reload can be tried again once the file is sound.
    ASSERT_TRUE(Reload(PreviewAndVideo("p2", "repaired")));
    EXPECT_STREQ(m_manager.GetLoggingIdentifier(), "reload;BinaryTag=repaired");
    EXPECT_STREQ(Revision(m_manager.Get()), "p2");
}

TEST_F(ReloadTest, BufferModeReloadReadsTheWholeFileAndClearsTheName)
{
    std::remove(m_file.Path().c_str());
    EXPECT_FALSE(m_manager.ReloadBinaryParameters(true));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReloadBinaryParameters: Failed to open file");
    EXPECT_TRUE(m_manager.IsFileMode()); // not opened: the name stays

    m_file.Rewrite(PreviewAndVideo("buffered"));
    ASSERT_TRUE(m_manager.ReloadBinaryParameters(true));
    EXPECT_TRUE(m_log.HasMessage("Reloading binary file " + m_file.Path() + " in buffer mode\n"));
    EXPECT_FALSE(m_manager.IsFileMode());
    ParameterModule* module = m_manager.Get(VideoBranch);
    EXPECT_STREQ(Revision(module), "bufferedv");

    unsigned int const parked = m_manager.ParkedModeTables();
    EXPECT_FALSE(m_manager.ReloadBinaryParameters(false));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReloadBinaryParameters called with empty file name");
    EXPECT_EQ(m_manager.ParkedModeTables(), parked) << "a refused reload parks nothing";
    EXPECT_STREQ(Revision(module), "bufferedv");

    ReloadSetManager fromBuffer("buffer");
    std::vector<uint8_t> bytes = PreviewAndVideo("p");
    ASSERT_TRUE(fromBuffer.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_FALSE(fromBuffer.ReloadBinaryParameters(false));
    EXPECT_STREQ(fromBuffer.GetErrorString(), "ReloadBinaryParameters called with empty file name");
}

TEST_F(ReloadTest, ChangedFileFailsLaterReadsUntilReloaded)
{
    ParameterModule* preview = m_manager.Get();
    ASSERT_NE(preview, nullptr);
    m_file.Rewrite(PreviewAndVideo("changed"));
    EXPECT_EQ(m_manager.Get(VideoBranch), nullptr);
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"));
    EXPECT_TRUE(
        m_log.HasMessage("Failed to load module versionsA_sw, path: 0.0|1.0|2.2, skipping\n"));
    EXPECT_TRUE(m_log.HasMessage(
        "GetModule versionsA_sw failed to find a loaded module in 0.0|1.0|2.2, returning null\n"));
    EXPECT_FALSE(m_manager.GetModeEntry(0, VideoBranch, 3)->loaded);
    // A module read before the change is still served and counted.
    EXPECT_EQ(m_manager.Get(PreviewBranch, preview), preview);
    EXPECT_STREQ(Revision(preview), "p1");
    EXPECT_EQ(m_manager.GetModeEntry(0, PreviewBranch, 3)->GetReferenceCount(nullptr), 1u);

    ASSERT_TRUE(m_manager.ReloadBinaryParameters(false));
    EXPECT_STREQ(Revision(m_manager.Get(VideoBranch)), "changedv");
}

// A desktop tool stays connected while the camera process reloads the file: the server stops
// for each reload and serves the new generation after it, and the client goes on asking. Its
// requests walk the tree, look the module up and read the identifier, all of which a reload
// frees; under the sanitizers no request may reach a freed generation. A reload that fails
// leaves nothing to serve: the server stays down until one succeeds.
TEST_F(ReloadTest, LiveTuningClientAsksThroughReloads)
{
    ReloadSetManager manager("live", true);
    ASSERT_TRUE(manager.LoadBinaryParameters(m_file.Path().c_str()));
    ParamTest::LoopbackClient connection;
    ASSERT_TRUE(connection.Connect(manager.GetKnobbyPort()));
    std::string const values = std::string(Preview) + ":versionsA_sw.module_version:major_revision";
    std::atomic<bool> done{false};
    std::atomic<unsigned int> answered{0}, wrong{0};
    std::string identifier;
    std::thread client([&] {
        for (unsigned int i = 0; i < 5000 && !done.load(); ++i) {
            bool const info = i % 2 == 0;
            ParamTest::Bytes const request = ParamTest::Request(
                info ? Wire::DeviceInfo : Wire::GetValues, info ? "" : values, i);
            ParamTest::Bytes const response =
                connection.Send(request) ? connection.ReadPacket() : ParamTest::Bytes();
            std::string const text = ParamTest::TextAt(response, info ? Wire::DeviceInfoHeadSize
                                                                      : Wire::RequestHeadSize);
            // Every identifier read is that of a generation in service.
            wrong += info ? text.rfind("live;BinaryTag=", 0) != 0 : text != "major_revision=1";
            identifier = info ? text : identifier;
            answered.fetch_add(1);
        }
    });
    for (unsigned int round = 1; round <= 5; ++round) {
        // Each reload starts while the client is in the middle of its requests.
        unsigned int const before = answered.load();
        EXPECT_TRUE(ParamTest::WaitFor([&] { return answered.load() > before + 3; })) << round;
        if (round == 5)
            break;
        m_file.Rewrite(PreviewAndVideo("p", "round" + std::to_string(round)));
        EXPECT_TRUE(manager.ReloadBinaryParameters(false)) << manager.GetErrorString();
    }
    done.store(true);
    client.join();
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(identifier, "live;BinaryTag=round4");

    std::remove(m_file.Path().c_str());
    EXPECT_FALSE(manager.ReloadBinaryParameters(false));
    EXPECT_EQ(manager.GetKnobbyPort(), 0);
    m_file.Rewrite(PreviewAndVideo("restored"));
    ASSERT_TRUE(manager.ReloadBinaryParameters(false));
    EXPECT_NE(manager.GetKnobbyPort(), 0);

    // The host's control values reach the client, set on the main manager or through a derived
    // one, whose value replaces the whole list.
    ParamTest::LoopbackClient again;
    ASSERT_TRUE(again.Connect(manager.GetKnobbyPort()));
    std::unique_ptr<TuningSetManager> derived(
        manager.CreateSetManager(static_cast<unsigned char>(0)));
    ASSERT_NE(derived, nullptr);
    manager.SetControlValue({4, 2.0});
    manager.SetControlValue({3, 1.5});
    ASSERT_TRUE(again.Send(ParamTest::Request(Wire::ControlValues)));
    EXPECT_EQ(ParamTest::TextAt(again.ReadPacket(), Wire::HeadSize), "3=1.500000,4=2.000000");
    derived->SetControlValue({5, 0.5});
    ASSERT_TRUE(again.Send(ParamTest::Request(Wire::ControlValues)));
    EXPECT_EQ(ParamTest::TextAt(again.ReadPacket(), Wire::HeadSize), "5=0.500000");
}

// ---- Merging a second manager's modules --------------------------------------------------------

TEST_F(ReloadTest, UpdateFromItselfOrNothingIsRefused)
{
    EXPECT_FALSE(m_manager.UpdateParameters(nullptr));
    EXPECT_STREQ(m_manager.GetErrorString(), "");
    ParameterModule* before = m_manager.Get();
    ASSERT_NE(before, nullptr);
    std::unique_ptr<TuningSetManager> derived(m_manager.CreateSetManager("rear"));
    ASSERT_NE(derived, nullptr);
    char const* const error =
        "UpdateParameters: Error: update is this manager, unable to update parameters";
    for (ParameterSetManager* update : {static_cast<ParameterSetManager*>(&m_manager),
                                        static_cast<ParameterSetManager*>(derived.get())}) {
        m_log.Clear();
        EXPECT_FALSE(m_manager.UpdateParameters(update));
        EXPECT_STREQ(m_manager.GetErrorString(), error);
        EXPECT_TRUE(m_log.Contains(error));
    }
    ModeEntry* preview = m_manager.GetModeEntry(0, PreviewBranch, 3);
    EXPECT_FALSE(m_manager.UpdateParameters(preview, preview, nullptr));
    EXPECT_EQ(m_manager.ParkedModules(), 0u);
    EXPECT_STREQ(Revision(before), "p1");
    before->Release();
}

/// Merges of a second manager's modules; both loaded from buffers, so every module is read.
class UpdateTest : public ::testing::Test
{
protected:
    static void Load(ReloadSetManager& manager, LookupFile const& file)
    {
        std::vector<uint8_t> bytes = file.Build();
        ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    }

    ParamTest::LogCapture m_log;
    // The update outlives the manager that takes its modules.
    ReloadSetManager m_update{"update"};
    ReloadSetManager m_manager{"target"};
};

TEST_F(UpdateTest, OneTableEachIsMergedWhateverTheNames)
{
    EXPECT_FALSE(m_manager.UpdateParameters(&m_update)) << "refused before a load";
    LookupFile target("rear");
    target.AddModule('A', target.Path(Preview), "old");
    Load(m_manager, target);
    // B takes ID 1 in the update, so A (ID 2) is no instance this manager's chain knows and the
    // module it replaces is parked.
    LookupFile update("front");
    uint32_t const preview = update.Path(Preview);
    update.AddModule('B', preview, "added");
    update.AddModule('A', preview, "new");
    Load(m_update, update);
    ParameterModule* old = m_manager.Get();
    ASSERT_NE(old, nullptr);
    ASSERT_EQ(m_manager.Get(PreviewBranch, nullptr, 'B'), nullptr);

    ASSERT_TRUE(m_manager.UpdateParameters(&m_update));
    EXPECT_STREQ(Revision(m_manager.Get()), "new");
    EXPECT_STREQ(Revision(old), "old"); // parked, still readable
    EXPECT_EQ(m_manager.ParkedModules(), 1u);
    // B replaced nothing: it is added and nothing more is parked.
    EXPECT_STREQ(Revision(m_manager.Get(PreviewBranch, nullptr, 'B')), "added");
    EXPECT_TRUE(m_update.GetModeEntry(0, PreviewBranch, 3)->modules.empty());
    EXPECT_EQ(m_update.Get(), nullptr);
}

TEST_F(UpdateTest, TablesMatchByNameAtTheSameIndexOnly)
{
    LookupFile target("rear");
    target.AddModule('A', target.Path(Preview), "rear");
    target.NewTable("front");
    target.AddModule('A', target.Path(Preview), "front");
    for (bool const swapped : {true, false}) {
        SCOPED_TRACE(swapped ? "swapped" : "same order");
        ReloadSetManager update("update");
        ReloadSetManager manager("target");
        Load(manager, target);
        LookupFile image(swapped ? "front" : "rear");
        image.AddModule('A', image.Path(Preview), "new0");
        image.NewTable(swapped ? "rear" : "front");
        image.AddModule('A', image.Path(Preview), "new1");
        Load(update, image);
        EXPECT_EQ(manager.UpdateParameters(&update), !swapped);
        std::unique_ptr<TuningSetManager> front(manager.CreateSetManager("front"));
        EXPECT_STREQ(
            Revision(front->GetModuleInternal(1, "versionsA_sw", PreviewBranch, 3, nullptr, true)),
            swapped ? "front" : "new1");
        EXPECT_STREQ(manager.GetErrorString(),
                     swapped ? "UpdateParameters: Error: No matching module tables names found, "
                               "unable to update parameters"
                             : "");
    }
}

} // namespace
