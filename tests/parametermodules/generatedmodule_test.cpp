// SPDX-License-Identifier: Apache-2.0
// Generated modules against writer-made files: loads across file versions, shared arrays,
// creation checks, failed and repeated loads, edit generations.
#include <cstring>
#include <memory>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametermodule.h"

#include "tests/common/logcapture.h"
#include "tests/parametermodules/modulefixture.h"

namespace ModuleTest {
namespace {

using moduletest::moduleTestType;
using moduletest::moduleTestTypeClass;

/// The registry entry a set manager would hold for the test module.
struct Registry
{
    DefaultModule kind{new moduleTestTypeClass(InstanceName)};

    moduleTestTypeClass* Create(ModuleData* data)
    {
        return static_cast<moduleTestTypeClass*>(kind.module->Create(data, &kind));
    }
};

void ExpectSample(moduleTestType const& module)
{
    EXPECT_EQ(module.module_version.major_revision, 2);
    EXPECT_EQ(module.module_version.incr_revision, 1);
    EXPECT_STREQ(module.parameter_version.revision, "rev-A");
    EXPECT_FLOAT_EQ(module.noise_threshold_g, 2.75f);
    EXPECT_EQ(module.frameCount, 9007199254740993ull);
    EXPECT_FLOAT_EQ(module.optionalGain, 1.25f);
    EXPECT_EQ(module.optionalGainCount, 1u);
    ASSERT_EQ(module.levelsCount, 2u);
    EXPECT_EQ(module.levels[0], moduletest::mode_fast);
    EXPECT_EQ(module.levels[1], moduletest::mode_slow);
    ASSERT_EQ(module.labelsCount, 3u);
    EXPECT_STREQ(module.labels[0], "near");
    EXPECT_STREQ(module.labels[1], "far");
    ASSERT_EQ(module.tableCount, 3u);
    EXPECT_EQ(module.table[2], 30);
    auto const& shrink = module.shrink;
    EXPECT_EQ(shrink.enable, 1);
    EXPECT_EQ(shrink.faceNum, 3u);
    ASSERT_EQ(shrink.landmarkPointsCount, 3u);
    EXPECT_EQ(shrink.landmarkPoints[1].landmarkIndex, 9u);
    EXPECT_FLOAT_EQ(shrink.landmarkPoints[2].shrinkMarginFactor, 0.125f);
    auto const& pitch = shrink.facePoseShrinkFactor.pitchShrinkFactor;
    EXPECT_FLOAT_EQ(pitch.triggerPt.end, 6.0f);
    ASSERT_EQ(pitch.triggerDataCount, 3u);
    EXPECT_FLOAT_EQ(pitch.triggerData[2].triggerPt.start, 7.0f);
    EXPECT_FLOAT_EQ(pitch.triggerData[2].triggerData.data, 0.4f);
    EXPECT_EQ(shrink.factorFilterLength, 6u);
    EXPECT_FLOAT_EQ(shrink.minROISizeToShrink, 16.0f);
    EXPECT_FLOAT_EQ(shrink.faceMaskROIControl.minROISizeToRemoveMask[1], 12.0f);
    EXPECT_FLOAT_EQ(shrink.reservedParameters[3], 3.5f);
    EXPECT_FLOAT_EQ(shrink.reservedParameters[9], 9.0f);
    EXPECT_EQ(module.corners[0].x, -4);
    EXPECT_FLOAT_EQ(module.corners[0].weight, 0.5f);
    EXPECT_EQ(module.corners[1].x, 11);
    EXPECT_FLOAT_EQ(module.corners[1].weight, 2.5f);
    ASSERT_EQ(module.noteCount, 1u);
    EXPECT_STREQ(module.note, "spare");
}

class ModuleLoadTest : public testing::TestWithParam<std::tuple<FileVersion, bool>>
{
};

TEST_P(ModuleLoadTest, EveryMemberComesBackAndUnloadFreesAll)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ModuleFile file(std::get<0>(GetParam()), std::get<1>(GetParam()));
        uint32_t const id = file.AddModule(SampleValue());
        ASSERT_TRUE(file.Build());
        Registry registry;
        moduleTestTypeClass* module = registry.Create(file.Record(id));
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(module->symbolTableID, id);

        ParamTest::LogCapture log;
        EXPECT_TRUE(module->LoadModule(&file.Table()));
        EXPECT_TRUE(module->loaded);
        EXPECT_EQ(module->modified, 1u);
        EXPECT_EQ(module->symbolTableID, id) << "Load must keep the ID";
        ExpectSample(*module);
        // Below 7.0.0 the definition table reserves a count word before the fixed array of
        // corners that the file does not hold; the reader reports it and reads on correctly.
        if (std::get<0>(GetParam()).major >= 7 || !std::get<1>(GetParam())) {
            EXPECT_EQ(log.Count("[ERROR]"), 0u) << testing::PrintToString(log.Messages());
        }

        module->UnloadModule();
        EXPECT_FALSE(module->loaded);
        EXPECT_EQ(module->shrink.landmarkPoints, nullptr);
        EXPECT_EQ(module->labels, nullptr);
        EXPECT_EQ(module->parameter_version.revision, nullptr);
        EXPECT_EQ(module->note, nullptr);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, ModuleLoadTest,
    testing::Combine(testing::Values(FileVersion{6, 0, 0}, FileVersion{7, 0, 0}), testing::Bool()),
    [](testing::TestParamInfo<std::tuple<FileVersion, bool>> const& param) {
        return "V" + std::to_string(std::get<0>(param.param).major) +
               (std::get<1>(param.param) ? "WithDefinitions" : "WithoutDefinitions");
    });

TEST(ModuleSharingTest, ArrayOfTwoEntriesLoadsOnceAndGoesWithItsLastHolder)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ModuleFile file;
        EntryValue first = SampleValue();
        EntryValue shrink = *first.Find("shrink");
        EntryValue landmarks = *shrink.Find("landmarkPoints");
        landmarks.blockName = "landmarks";
        first.Set("shrink", EntryValue(shrink).Set("landmarkPoints", landmarks));
        landmarks.blockName.clear();
        landmarks.duplicateOf = "landmarks";
        EntryValue second = SampleValue();
        second.Set("shrink", EntryValue(shrink).Set("landmarkPoints", landmarks));
        uint32_t const firstId = file.AddModule(first);
        uint32_t const secondId = file.AddModule(second);
        ASSERT_TRUE(file.Build());

        Registry registry;
        moduleTestTypeClass* a = registry.Create(file.Record(firstId));
        moduleTestTypeClass* b = registry.Create(file.Record(secondId));
        ASSERT_NE(a, b);
        ASSERT_TRUE(a->LoadModule(&file.Table()));
        ASSERT_TRUE(b->LoadModule(&file.Table()));
        auto* shared = a->shrink.landmarkPoints;
        ASSERT_NE(shared, nullptr);
        EXPECT_EQ(b->shrink.landmarkPoints, shared) << "the second entry must reuse the array";
        // Arrays the two entries do not share are their own.
        EXPECT_NE(a->labels, b->labels);
        DupObjInfo* info = file.Table().FindDupObject(shared);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->RefCount.load(), 2u);

        a->UnloadModule();
        EXPECT_EQ(info->RefCount.load(), 1u);
        EXPECT_EQ(b->shrink.landmarkPoints[2].landmarkIndex, 12u) << "freed under its holder";
        b->UnloadModule();
        EXPECT_EQ(file.Table().FindDupObject(shared), nullptr);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

TEST(ModuleCreateTest, RefusesAnotherVersionOrName)
{
    struct Case
    {
        char const* label;
        VersionUnion version;
        char const* name;
        std::string message;
    };
    unsigned long const ownHash = ParserCRC64::HashName(InstanceName);
    unsigned long const otherHash = ParserCRC64::HashName("otherModule");
    char hashMessage[200];
    std::snprintf(hashMessage, sizeof(hashMessage),
                  "Unable to create moduleTestTypeClass, binary name hash (0x%016lx) does not "
                  "match source name hash (0x%016lx)\n",
                  otherHash, ownHash);
    std::string const versionMessage = "Unable to create moduleTestTypeClass, binary version (" +
                                       std::to_string(VersionUnion(2, 4, 1).Raw) +
                                       ") does not match source version (" +
                                       std::to_string(VersionUnion(2, 3, 1).Raw) + ")\n";
    Case const cases[] = {
        {"version", VersionUnion(2, 4, 1), InstanceName, versionMessage},
        {"version before name", VersionUnion(2, 4, 1), "otherModule", versionMessage},
        {"name", VersionUnion(2, 3, 1), "otherModule", hashMessage},
    };
    ModuleFile file;
    uint32_t const id = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    for (Case const& item : cases) {
        SCOPED_TRACE(item.label);
        Registry registry;
        ParamTest::LogCapture log;
        EXPECT_EQ(
            registry.Create(file.Record(id, 0, ParserCRC64::HashName(item.name), item.version)),
            nullptr);
        EXPECT_TRUE(log.HasMessage(item.message)) << testing::PrintToString(log.Messages());
        EXPECT_EQ(registry.kind.first, nullptr);
    }
}

TEST(ModuleCreateTest, RecordWithADuplicateIdSharesTheInstance)
{
    ModuleFile file;
    uint32_t const first = file.AddModule(SampleValue());
    uint32_t const second = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    Registry registry;
    moduleTestTypeClass* original = registry.Create(file.Record(first));
    ASSERT_NE(original, nullptr);
    EXPECT_EQ(registry.Create(file.Record(second, first)), original);
    moduleTestTypeClass* own = registry.Create(file.Record(second));
    EXPECT_NE(own, original);
    EXPECT_EQ(own->symbolTableID, second);
}

TEST(ModuleLoadFailureTest, MissingSymbolIdLeavesZerosAndUnloaded)
{
    ModuleFile file;
    file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    Registry registry;
    moduleTestTypeClass* module = registry.Create(file.Record(77));
    ASSERT_NE(module, nullptr);
    // Stale values from an earlier life must not survive a failed load.
    module->noise_threshold_g = 5.0f;
    module->shrink.faceNum = 9;

    ParamTest::LogCapture log;
    EXPECT_FALSE(module->LoadModule(&file.Table()));
    EXPECT_TRUE(log.HasMessage(
        "moduleTestTypeClass::LoadModule Failed to find module ID (77) in Symbol Table\n"))
        << testing::PrintToString(log.Messages());
    EXPECT_FALSE(module->loaded);
    EXPECT_EQ(module->modified, 1u);
    EXPECT_EQ(module->symbolTableID, 77u);
    moduleTestType zero{};
    zero.symbolTableID = 77;
    EXPECT_EQ(std::memcmp(static_cast<moduleTestType*>(module), &zero, sizeof(zero)), 0);
}

TEST(ModuleLoadFailureTest, SecondLoadOfALoadedModuleChangesNothing)
{
    ModuleFile file;
    uint32_t const id = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    Registry registry;
    moduleTestTypeClass* module = registry.Create(file.Record(id));
    ASSERT_TRUE(module->LoadModule(&file.Table()));
    auto* landmarks = module->shrink.landmarkPoints;
    module->shrink.faceNum = 42;
    EXPECT_TRUE(module->LoadModule(&file.Table()));
    EXPECT_EQ(module->modified, 1u);
    EXPECT_EQ(module->shrink.faceNum, 42u);
    EXPECT_EQ(module->shrink.landmarkPoints, landmarks);
}

TEST(ModuleEditTest, GenerationWrapsToOneAndTheModuleStillReloads)
{
    ModuleFile file;
    uint32_t const id = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    Registry registry;
    moduleTestTypeClass* module = registry.Create(file.Record(id));
    ASSERT_TRUE(module->LoadModule(&file.Table()));
    for (int edit = 1; edit <= 254; ++edit)
        ASSERT_TRUE(module->SetValue("shrink.faceNum", "5"));
    EXPECT_EQ(module->symbolTableID, 0xFE000000u | id);
    ASSERT_TRUE(module->SetValue("shrink.faceNum", "6"));
    EXPECT_EQ(module->symbolTableID, 0xFF000000u | id) << "255th edit";
    ASSERT_TRUE(module->SetValue("shrink.faceNum", "7"));
    EXPECT_EQ(module->symbolTableID, 0x01000000u | id) << "256th edit wraps to 1, not 0";
    EXPECT_EQ(module->modified, 1u + 256u);
    // A failed edit counts nothing.
    EXPECT_FALSE(module->SetValue("shrink.nothing", "1"));
    EXPECT_EQ(module->modified, 257u);

    module->UnloadModule();
    EXPECT_TRUE(module->LoadModule(&file.Table())) << "found by the low 24 bits";
    EXPECT_EQ(module->shrink.faceNum, 3u);
    EXPECT_EQ(module->symbolTableID, 0x01000000u | id);
}

TEST(DefaultModuleTest, ChainFindsByIdAndSurvivesRemovingItsTail)
{
    ModuleFile file;
    uint32_t const first = file.AddModule(SampleValue());
    uint32_t const second = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    Registry registry;
    moduleTestTypeClass* a = registry.Create(file.Record(first));
    moduleTestTypeClass* b = registry.Create(file.Record(second));
    EXPECT_EQ(registry.kind.Find(second), b);
    EXPECT_EQ(registry.kind.Find(99), nullptr);

    registry.kind.RemoveModule(b);
    EXPECT_EQ(registry.kind.Find(second), nullptr);
    // The removed instance is the caller's now; the chain must still take new ones.
    std::unique_ptr<ParameterModule> removed(b);
    moduleTestTypeClass* c = registry.Create(file.Record(second));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(registry.kind.first->module, a);
    EXPECT_EQ(registry.kind.last->module, c);
}

} // namespace
} // namespace ModuleTest
