// SPDX-License-Identifier: Apache-2.0
// Reloading a file under clients that hold modules, and merging a second manager's modules.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyhost.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/parsercrc.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"

#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"
#include "paramgen/vornflindices.h"
#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"
#include "tests/common/tempfile.h"

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

using TuningWriter::EntryValue;
using Module = vornflindices::FLIndicesType;
namespace Wire = ParameterKnobbyPacket;

constexpr char const* FlIndices = "flIndices";
constexpr char const* FdConfig = "fdconfigdata";
constexpr char const* Preview = "Default|Sensor.0|Usecase.Preview";
constexpr char const* Video = "Default|Sensor.0|Usecase.Video";
constexpr TuningMode PreviewBranch[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
constexpr TuningMode VideoBranch[] = {{0, 0, 0}, {1, 0, 0}, {2, 2, 0}};

/// fdSetManager with its parked generation in view, and optionally the live tuning worker, which
/// fdSetManager itself does not run.
class ReloadSetManager : public fdSetManager
{
public:
    explicit ReloadSetManager(char const* name, bool live = false) : fdSetManager(name)
    {
        if (live) {
            m_host = std::make_unique<ParameterKnobbyHost>(this);
            m_hostsLiveTuning = true;
            EXPECT_TRUE(AttachLiveTuning(m_host.get()));
        }
    }
    ~ReloadSetManager() override { StopKnobbyWorker(); }

    unsigned int ParkedModules() const { return m_replacedModules.Count(); }
    unsigned int ParkedModeTables() const { return m_replacedModeTables.Count(); }
    unsigned int ParkedSymbolTables() const { return m_replacedSymbolTables.Count(); }
    Module* Get(TuningMode const* branch = PreviewBranch, Module* previous = nullptr)
    {
        return GetModule_flIndices(branch, 3, previous);
    }

private:
    std::unique_ptr<ParameterKnobbyHost> m_host;
};

/// A tuning file of fdSetManager's modules, built from the writer descriptions of its instances.
/// flIndices holds numPoints = points and indices[i] = points + i.
class TuningImage
{
public:
    explicit TuningImage(std::string tag = "first") : m_tag(std::move(tag)) {}

    /// Starts the next mode table.
    TuningImage& Table(std::string name)
    {
        m_tables.emplace_back(static_cast<uint8_t>(m_tables.size()), std::move(name));
        return *this;
    }
    /// The tree of the current table, for paths of no module and for raw entries.
    TuningWriter::ModeSectionBuilder& Tree()
    {
        if (m_tables.empty())
            Table("rear");
        return m_tables.back();
    }
    TuningImage& Module(char const* instance, std::string const& path, uint32_t points = 0)
    {
        return Module(instance, Tree().AddPath(path), points);
    }
    TuningImage& Module(char const* instance, uint32_t modeId, uint32_t points = 0)
    {
        m_modules.push_back({instance, modeId, points});
        return *this;
    }

    std::vector<uint8_t> Build(TuningWriter::Damage const& damage = {})
    {
        TuningWriter::FileVersion const version{};
        TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::fdSetManager::Instances();
        TuningWriter::SchemaSet schema;
        TuningWriter::DefinitionTableBuilder definitions;
        for (size_t i = 0; i < catalogue.count; ++i)
            catalogue.instances[i].Describe(schema);
        for (size_t i = 0; i < catalogue.count; ++i)
            definitions.AddModule(
                schema.Module(catalogue.instances[i].instanceName, catalogue.instances[i].topType));
        schema.AddTo(definitions);

        TuningWriter::SymbolTableBuilder symbols(version);
        TuningWriter::EntryEncoder encoder(version, schema.Structures(), symbols);
        for (Placed const& placed : m_modules) {
            TuningWriter::InstanceSchema const* instance = catalogue.Find(placed.instance);
            std::vector<EntryValue> indices;
            for (uint32_t i = 0; i < 300; ++i)
                indices.push_back(EntryValue::UInt(placed.points + i));
            EntryValue const value =
                EntryValue::Struct({{"numPoints", EntryValue::UInt(placed.points)},
                                    {"indices", EntryValue::List(indices)}});
            TuningWriter::ModuleEntry entry;
            entry.name = placed.instance;
            entry.moduleVersion = instance->version;
            entry.modeId = placed.modeId;
            entry.data =
                encoder.Encode(schema.Id(instance->topType),
                               placed.instance == std::string(FlIndices) ? &value : nullptr);
            symbols.AddModule(std::move(entry));
        }

        TuningWriter::TuningFileWriter writer(version);
        writer.SetBinaryTag(m_tag);
        writer.AddSection(TuningWriter::SectionType::Definition,
                          definitions.Build(writer.Alignment()));
        symbols.AddTo(writer);
        Tree();
        for (TuningWriter::ModeSectionBuilder const& table : m_tables)
            table.AddTo(writer);
        writer.SetMinimumFileSize(TuningWriter::FileModeWindow);
        writer.SetDamage(damage);
        return writer.Build();
    }

private:
    struct Placed
    {
        char const* instance;
        uint32_t modeId;
        uint32_t points;
    };

    std::string m_tag;
    std::vector<TuningWriter::ModeSectionBuilder> m_tables;
    std::vector<Placed> m_modules;
};

/// The file most tests start from: flIndices in Preview (points) and in Video (points + 1).
std::vector<uint8_t> PreviewAndVideo(uint32_t points, std::string tag = "first")
{
    return TuningImage(std::move(tag))
        .Module(FlIndices, Preview, points)
        .Module(FlIndices, Video, points + 1)
        .Build();
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
    ParamTest::TempFile m_file{PreviewAndVideo(10)};
    ReloadSetManager m_manager{"reload"};
};

// The module cache read back through three generations: the one in service, the parked one, and
// the one before, which the next reload frees.
TEST_F(ReloadTest, ParkedGenerationStaysReadableUntilTheNextReload)
{
    Module* before = m_manager.Get();
    ASSERT_NE(before, nullptr);
    ASSERT_TRUE(Reload(PreviewAndVideo(20, "second")));
    EXPECT_TRUE(m_log.HasMessage("Reloading binary file " + m_file.Path() + "\n"));
    EXPECT_STREQ(m_manager.GetLoggingIdentifier(), "reload;BinaryTag=second");
    EXPECT_EQ(m_manager.ParkedModules(), 2u);
    EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
    EXPECT_EQ(m_manager.ParkedSymbolTables(), 1u);
    EXPECT_EQ(before->numPoints, 10u);
    EXPECT_EQ(before->indices[299], 309u);
    Module* between = m_manager.Get();
    ASSERT_NE(between, nullptr);
    EXPECT_NE(between, before);
    EXPECT_EQ(between->numPoints, 20u);

    ASSERT_TRUE(Reload(PreviewAndVideo(30, "third")));
    EXPECT_TRUE(m_log.HasMessage("FreeReplacedParameters called\n"));
    EXPECT_EQ(m_manager.ParkedModules(), 2u);
    EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
    EXPECT_EQ(between->numPoints, 20u);
    EXPECT_EQ(between->indices[299], 319u);
    EXPECT_EQ(m_manager.Get()->numPoints, 30u);
#if defined(RELOAD_TEST_ASAN)
    // The pointer from before the last two reloads is freed.
    EXPECT_TRUE(__asan_address_is_poisoned(&before->numPoints));
    EXPECT_FALSE(__asan_address_is_poisoned(&between->numPoints));
#endif
}

TEST_F(ReloadTest, CountsMoveOnlyWhileTheFileKeepsItsShape)
{
    struct Case
    {
        char const* name;
        std::vector<uint8_t> image;
        char const* heldAfter; ///< the instance in Preview after the reload
        int32_t count;         ///< its count after the reload
        char const* message;   ///< the transfer's message; null for none
    };
    TuningImage tables;
    tables.Table("rear").Module(FlIndices, Preview, 20).Module(FlIndices, Video);
    TuningImage slots;
    slots.Tree().AddPath("Default|Sensor.0|Usecase.Snapshot");
    Case const cases[] = {
        {"SameShape", PreviewAndVideo(20, "second"), FlIndices, 1, nullptr},
        {"AnotherTableCount", tables.Table("front").Module(FlIndices, Preview).Build(), FlIndices,
         0, nullptr},
        {"AnotherSlotCount", slots.Module(FlIndices, Preview).Module(FlIndices, Video).Build(),
         FlIndices, 0, nullptr},
        {"AnotherModuleInTheSlot",
         TuningImage().Module(FdConfig, Preview).Module(FlIndices, Video).Build(), FdConfig, 0,
         "ReloadBinaryParameters: Failed to transfer reference counts, current module name "
         "(fdconfigdata) does not match prev name (flIndices) in mode index 2\n"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        m_log.Clear();
        Module* held = m_manager.Get();
        ASSERT_NE(held, nullptr);
        ASSERT_TRUE(Reload(test.image));
        ModeEntry* node = m_manager.GetModeEntry(0, PreviewBranch, 3);
        ModeEntry::ModuleReference& reference =
            node->modules.at(ParserCRC64::HashName(test.heldAfter));
        EXPECT_EQ(reference.refCount.load(), test.count);
        EXPECT_EQ(node->IsActive(), test.count > 0);
        if (test.message != nullptr)
            EXPECT_TRUE(m_log.HasMessage(test.message));
        else
            EXPECT_EQ(m_log.Count("Failed to transfer reference counts"), 0u);
        // Giving back the old pointer lowers only the old generation's count.
        held->Release();
        EXPECT_EQ(reference.refCount.load(), test.count);
        // The next case starts from a generation of the first shape.
        if (test.count > 0) {
            Module* carried = m_manager.Get();
            carried->Release();
            carried->Release();
        }
        ASSERT_TRUE(Reload(PreviewAndVideo(10)));
    }
}

TEST_F(ReloadTest, ModeHeldThroughAReloadIsNotEvicted)
{
    // 24 modes that can be evicted, where at most 17 stay listed unless they are in use.
    TuningImage image;
    std::vector<std::vector<TuningMode>> branches;
    for (uint16_t usecase = 0; usecase < 8; ++usecase) {
        std::string const path = "Default|Sensor.0|Usecase." + std::to_string(usecase);
        image.Module(FlIndices, path, usecase);
        branches.push_back({{0, 0, 0}, {1, 0, 0}, {2, usecase, 0}});
        for (uint16_t feature = 0; usecase < 2 && feature < 8; ++feature) {
            image.Module(FlIndices, path + "|Feature1." + std::to_string(feature), feature);
            branches.push_back({{0, 0, 0}, {1, 0, 0}, {2, usecase, 0}, {3, feature, 0}});
        }
    }
    std::vector<uint8_t> const bytes = image.Build();
    ASSERT_TRUE(Reload(bytes));
    TuningMode const held[] = {{0, 0, 0}, {1, 0, 0}, {2, 5, 0}};
    ASSERT_NE(m_manager.Get(held), nullptr);
    ASSERT_TRUE(Reload(bytes));
    Module* fresh = m_manager.Get(held);
    ASSERT_NE(fresh, nullptr);
    fresh->Release(); // what stays is the count carried over from the old generation
    ModeEntry* node = m_manager.GetModeEntry(0, held, 3);
    unsigned int unloaded = 0;
    std::vector<ModeEntry*> visited;
    for (std::vector<TuningMode> const& branch : branches) {
        auto const count = static_cast<unsigned int>(branch.size());
        ModeEntry* visit = m_manager.GetModeEntry(0, branch.data(), count);
        if (visit != node) {
            visited.push_back(visit);
            Module* module = m_manager.GetModule_flIndices(branch.data(), count, nullptr);
            ASSERT_NE(module, nullptr);
            module->Release();
        }
    }
    for (ModeEntry const* visit : visited)
        unloaded += visit->loaded ? 0 : 1;
    EXPECT_GT(unloaded, 0u); // eviction ran, and passed over the held mode, the oldest
    EXPECT_TRUE(node->IsActive() && node->loaded);
    EXPECT_EQ(fresh->numPoints, 5u);
}

TEST_F(ReloadTest, FailedReloadLeavesTheManagerEmptyAndTheOldGenerationIntact)
{
    TuningWriter::Damage badChecksum;
    badChecksum.badChecksum = true;
    TuningWriter::Damage cutShort;
    cutShort.cutAt = 200;
    struct Case
    {
        char const* name;
        std::vector<uint8_t> image; ///< empty: the file is removed
        char const* error;          ///< the start of the manager's error text
    } const cases[] = {
        {"FileRemoved", {}, "Unable to open binary file"},
        {"BadChecksum", TuningImage().Module(FlIndices, Preview).Build(badChecksum),
         "Binary file CRC validation failed"},
        {"Truncated", TuningImage().Module(FlIndices, Preview).Build(cutShort),
         "Binary header data too small: Expected: "},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        Module* held = m_manager.Get();
        ASSERT_NE(held, nullptr);
        uint32_t const points = held->numPoints;
        if (test.image.empty())
            std::remove(m_file.Path().c_str());
        else
            m_file.Rewrite(test.image);
        EXPECT_FALSE(m_manager.ReloadBinaryParameters(false));
        EXPECT_EQ(std::string(m_manager.GetErrorString()).rfind(test.error, 0), 0u)
            << m_manager.GetErrorString();
        EXPECT_EQ(m_manager.GetModeTableCount(), 0u);
        EXPECT_EQ(m_manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(m_manager.Get(), nullptr);
        EXPECT_EQ(m_manager.ParkedModeTables(), 1u);
        EXPECT_EQ(held->numPoints, points);
        EXPECT_EQ(held->indices[0], points);

        // The file name stays, so the reload can be tried again once the file is sound.
        ASSERT_TRUE(Reload(PreviewAndVideo(points + 1, "repaired")));
        EXPECT_STREQ(m_manager.GetLoggingIdentifier(), "reload;BinaryTag=repaired");
        EXPECT_EQ(m_manager.Get()->numPoints, points + 1);
    }
}

TEST_F(ReloadTest, BufferModeReloadReadsTheWholeFileAndClearsTheName)
{
    std::remove(m_file.Path().c_str());
    EXPECT_FALSE(m_manager.ReloadBinaryParameters(true));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReloadBinaryParameters: Failed to open file");
    EXPECT_TRUE(m_manager.IsFileMode()); // not opened: the name stays

    m_file.Rewrite(PreviewAndVideo(40, "buffered"));
    ASSERT_TRUE(m_manager.ReloadBinaryParameters(true));
    EXPECT_TRUE(m_log.HasMessage("Reloading binary file " + m_file.Path() + " in buffer mode\n"));
    EXPECT_FALSE(m_manager.IsFileMode());
    Module* module = m_manager.Get(VideoBranch);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->numPoints, 41u);

    unsigned int const parked = m_manager.ParkedModeTables();
    EXPECT_FALSE(m_manager.ReloadBinaryParameters(false));
    EXPECT_STREQ(m_manager.GetErrorString(), "ReloadBinaryParameters called with empty file name");
    EXPECT_EQ(m_manager.ParkedModeTables(), parked) << "a refused reload parks nothing";
    EXPECT_EQ(module->numPoints, 41u);

    ReloadSetManager fromBuffer("buffer");
    std::vector<uint8_t> bytes = PreviewAndVideo(1);
    ASSERT_TRUE(fromBuffer.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_FALSE(fromBuffer.ReloadBinaryParameters(false));
    EXPECT_STREQ(fromBuffer.GetErrorString(), "ReloadBinaryParameters called with empty file name");
}

TEST_F(ReloadTest, ChangedFileFailsLaterReadsUntilReloaded)
{
    Module* preview = m_manager.Get();
    ASSERT_NE(preview, nullptr);
    m_file.Rewrite(PreviewAndVideo(50, "changed"));
    EXPECT_EQ(m_manager.Get(VideoBranch), nullptr);
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"));
    EXPECT_TRUE(m_log.HasMessage("Failed to load module flIndices, path: 0.0|1.0|2.2, skipping\n"));
    EXPECT_TRUE(m_log.HasMessage(
        "GetModule flIndices failed to find a loaded module in 0.0|1.0|2.2, returning null\n"));
    ModeEntry* video = m_manager.GetModeEntry(0, VideoBranch, 3);
    EXPECT_EQ(video->GetReferenceCount(nullptr), 0u);
    EXPECT_FALSE(video->loaded);
    // A module read before the change is still served and counted.
    EXPECT_EQ(m_manager.Get(PreviewBranch, preview), preview);
    EXPECT_EQ(preview->numPoints, 10u);
    EXPECT_EQ(m_manager.GetModeEntry(0, PreviewBranch, 3)->GetReferenceCount(nullptr), 1u);

    ASSERT_TRUE(m_manager.ReloadBinaryParameters(false));
    EXPECT_EQ(m_manager.Get(VideoBranch)->numPoints, 51u);
}

TEST_F(ReloadTest, ClientsReadHeldModulesWhileTheFileIsReloaded)
{
    constexpr unsigned int Rounds = 4;
    constexpr unsigned int Readers = 3;
    for (unsigned int round = 0; round < Rounds; ++round) {
        uint32_t const points = 10 + 100 * round;
        // Lookups run alone; only reads of pointers already held overlap the reload. The last
        // round reloads in buffer mode, which reads the file whole.
        Module* held = m_manager.Get();
        ASSERT_NE(held, nullptr);
        std::atomic<bool> stop{false};
        std::atomic<unsigned int> mismatches{0};
        std::atomic<unsigned int> reads{0};
        std::vector<std::thread> readers;
        for (unsigned int i = 0; i < Readers; ++i)
            readers.emplace_back([&] {
                while (!stop.load() || reads.load() < Readers) {
                    uint32_t sum = 0;
                    for (uint32_t index = 0; index < 300; ++index)
                        sum += held->indices[index] - index;
                    if (held->numPoints != points || sum != 300 * points)
                        mismatches.fetch_add(1);
                    reads.fetch_add(1);
                }
            });
        m_file.Rewrite(PreviewAndVideo(points + 100, "round" + std::to_string(round)));
        bool const reloaded = m_manager.ReloadBinaryParameters(round + 1 == Rounds);
        stop.store(true);
        for (std::thread& reader : readers)
            reader.join();
        ASSERT_TRUE(reloaded);
        EXPECT_EQ(mismatches.load(), 0u);
    }
}

// A desktop tool stays connected while the camera process reloads the file: the server stops
// for each reload and serves the new generation after it, and the client goes on asking. Its
// requests walk the tree, look the module up and read the identifier, all of which a reload
// frees; under the sanitizers no request may reach a freed generation.
TEST_F(ReloadTest, LiveTuningClientAsksThroughReloads)
{
    ReloadSetManager manager("live", true);
    ASSERT_TRUE(manager.LoadBinaryParameters(m_file.Path().c_str()));
    ASSERT_NE(manager.GetKnobbyPort(), 0);
    constexpr unsigned int Rounds = 4;
    struct Ask
    {
        uint16_t command;
        std::string payload;
        size_t textOffset;
        char const* answer; ///< null: a logging identifier of a generation in service
    };
    // flIndices has no value access: its read answers with an empty text after the lookup.
    std::vector<Ask> const asks = {
        {Wire::DeviceInfo, "", Wire::DeviceInfoHeadSize, nullptr},
        {Wire::GetValues, std::string(Preview) + ":flIndices:numPoints", Wire::RequestHeadSize, ""},
        {Wire::Modes, "Default|Sensor.0", Wire::RequestHeadSize, "Usecase.Preview,Usecase.Video"},
    };
    // Every identifier read comes from a generation that was in service.
    std::vector<std::string> identifiers{"live;BinaryTag=first"};
    for (unsigned int round = 1; round <= Rounds; ++round)
        identifiers.push_back("live;BinaryTag=round" + std::to_string(round));
    std::atomic<bool> done{false};
    std::atomic<unsigned int> answered{0};
    std::atomic<unsigned int> wrong{0};
    std::string lastIdentifier;
    // One connection for the whole test: a reload keeps the client, and a request that comes
    // during one is answered when it is done.
    ParamTest::LoopbackClient connection;
    ASSERT_TRUE(connection.Connect(manager.GetKnobbyPort()));
    std::thread client([&] {
        for (unsigned int i = 0; i < 5000 && !done.load(); ++i) {
            Ask const& ask = asks[i % asks.size()];
            ParamTest::Bytes const response =
                connection.Send(ParamTest::Request(ask.command, ask.payload, i))
                    ? connection.ReadPacket()
                    : ParamTest::Bytes();
            if (response.size() < Wire::HeadSize ||
                Wire::GetU16(response.data() + Wire::LengthOffset) != response.size() ||
                Wire::GetU16(response.data() + Wire::CommandOffset) != ask.command) {
                wrong.fetch_add(1000);
                break;
            }
            std::string const text = ParamTest::TextAt(response, ask.textOffset);
            bool const served =
                std::find(identifiers.begin(), identifiers.end(), text) != identifiers.end();
            if (ask.answer != nullptr ? text != ask.answer : !served)
                wrong.fetch_add(1);
            if (ask.answer == nullptr)
                lastIdentifier = text;
            answered.fetch_add(1);
        }
    });
    for (unsigned int round = 1; round <= Rounds + 1; ++round) {
        // Each reload starts while the client is in the middle of its requests.
        unsigned int const before = answered.load();
        EXPECT_TRUE(ParamTest::WaitFor([&] { return answered.load() > before + 3; })) << round;
        if (round > Rounds)
            break;
        m_file.Rewrite(PreviewAndVideo(10 + 100 * round, "round" + std::to_string(round)));
        EXPECT_TRUE(manager.ReloadBinaryParameters(false)) << manager.GetErrorString();
    }
    done.store(true);
    client.join();
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(lastIdentifier, identifiers.back());

    // A reload that fails leaves nothing to serve: the server stays down until one succeeds.
    std::remove(m_file.Path().c_str());
    EXPECT_FALSE(manager.ReloadBinaryParameters(false));
    EXPECT_EQ(manager.GetKnobbyPort(), 0);
    m_file.Rewrite(PreviewAndVideo(7, "restored"));
    ASSERT_TRUE(manager.ReloadBinaryParameters(false));
    EXPECT_NE(manager.GetKnobbyPort(), 0);
}

// ---- Merging a second manager's modules --------------------------------------------------------

TEST_F(ReloadTest, UpdateFromItselfOrNothingIsRefused)
{
    EXPECT_FALSE(m_manager.UpdateParameters(nullptr));
    EXPECT_STREQ(m_manager.GetErrorString(), "");
    Module* before = m_manager.Get();
    ASSERT_NE(before, nullptr);
    std::unique_ptr<fdSetManager> derived(m_manager.CreateSetManager("rear"));
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
    EXPECT_EQ(m_manager.Get(PreviewBranch, before), before);
    EXPECT_EQ(before->numPoints, 10u);
    before->Release();
}

/// Merges of a second manager's modules; both loaded from buffers, so every module is read.
class UpdateTest : public ::testing::Test
{
protected:
    static void Load(ReloadSetManager& manager, std::vector<uint8_t> bytes)
    {
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
    Load(m_manager, TuningImage().Table("rear").Module(FlIndices, Preview, 1).Build());
    // fdconfigdata takes ID 1 in the update, so flIndices (ID 2) is no instance this manager's
    // chain knows and the module it replaces is parked.
    Load(m_update, TuningImage()
                       .Table("front")
                       .Module(FdConfig, Preview)
                       .Module(FlIndices, Preview, 2)
                       .Build());
    Module* old = m_manager.Get();
    ASSERT_NE(old, nullptr);
    ASSERT_EQ(m_manager.GetModule_fdconfigdata(PreviewBranch, 3, nullptr), nullptr);

    ASSERT_TRUE(m_manager.UpdateParameters(&m_update));
    EXPECT_EQ(m_manager.Get()->numPoints, 2u);
    EXPECT_EQ(old->numPoints, 1u); // parked, still readable
    EXPECT_EQ(m_manager.ParkedModules(), 1u);
    // fdconfigdata replaced nothing: it is added and nothing more is parked.
    EXPECT_NE(m_manager.GetModule_fdconfigdata(PreviewBranch, 3, nullptr), nullptr);
    EXPECT_TRUE(m_update.GetModeEntry(0, PreviewBranch, 3)->modules.empty());
    EXPECT_EQ(m_update.Get(), nullptr);
}

TEST_F(UpdateTest, TablesMatchByNameAtTheSameIndexOnly)
{
    TuningImage target;
    target.Table("rear").Module(FlIndices, Preview, 1).Table("front").Module(FlIndices, Preview, 2);
    for (bool const swapped : {true, false}) {
        SCOPED_TRACE(swapped ? "swapped" : "same order");
        ReloadSetManager update("update");
        ReloadSetManager manager("target");
        Load(manager, target.Build());
        TuningImage image;
        image.Table(swapped ? "front" : "rear").Module(FlIndices, Preview, 3);
        Load(update, image.Table(swapped ? "rear" : "front").Module(FlIndices, Preview, 4).Build());
        EXPECT_EQ(manager.UpdateParameters(&update), !swapped);
        std::unique_ptr<fdSetManager> front(manager.CreateSetManager("front"));
        EXPECT_EQ(front->GetModule_flIndices(PreviewBranch, 3, nullptr)->numPoints,
                  swapped ? 2u : 4u);
        EXPECT_STREQ(manager.GetErrorString(),
                     swapped ? "UpdateParameters: Error: No matching module tables names found, "
                               "unable to update parameters"
                             : "");
    }
}

TEST_F(UpdateTest, TargetWithALinkKeepsItsModules)
{
    // Preview links to Video in the target, so it serves Video's module.
    TuningImage target;
    uint32_t const video = target.Tree().AddPath(Video);
    target.Tree().AddChild(target.Tree().Find("Default|Sensor.0"), 2, 0, 0, 0, video);
    Load(m_manager, target.Module(FlIndices, video, 5).Build());
    Load(m_update, TuningImage().Module(FlIndices, Preview, 6).Build());

    EXPECT_TRUE(m_manager.UpdateParameters(&m_update));
    EXPECT_EQ(m_manager.Get()->numPoints, 5u);
    EXPECT_EQ(m_update.GetModeEntry(0, PreviewBranch, 3)->modules.size(), 1u);
}

} // namespace
