// SPDX-License-Identifier: Apache-2.0
// Generated module classes against writer-made files: a load and unload, creation checks, failed
// and repeated loads, edit generations, the registry chain.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametermodule.h"

#include "tests/common/logcapture.h"
#include "tests/parametermodules/modulefixture.h"
#include "tests/parametermodules/modulevalues.h"

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

// One load and unload of every member kind: the loaded module holds what was written, counts its
// load and keeps its ID; the unload gives every allocation back.
TEST(ModuleLoadTest, LoadFillsEveryMemberAndUnloadFreesAll)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ModuleFile file;
        uint32_t const id = file.AddModule(SampleValue());
        ASSERT_TRUE(file.Build());
        Registry registry;
        moduleTestTypeClass* module = registry.Create(file.Record(id));
        ASSERT_NE(module, nullptr);

        ParamTest::LogCapture log;
        EXPECT_TRUE(module->LoadModule(&file.Table()));
        EXPECT_TRUE(module->loaded);
        EXPECT_EQ(module->modified, 1u);
        EXPECT_EQ(module->symbolTableID, id) << "Load must keep the ID";
        ValueChecker().Check(static_cast<moduleTestType*>(module), moduleTestType::Descriptor,
                             SampleValue(), "");
        EXPECT_EQ(log.Messages(), std::vector<std::string>());

        module->UnloadModule();
        EXPECT_FALSE(module->loaded);
        EXPECT_EQ(module->shrink.landmarkPoints, nullptr);
        EXPECT_EQ(module->labels, nullptr);
        EXPECT_EQ(module->parameter_version.revision, nullptr);
        EXPECT_EQ(module->note, nullptr);
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
    std::string const patchMessage = "Unable to create moduleTestTypeClass, binary version (" +
                                     std::to_string(VersionUnion(2, 3, 0).Raw) +
                                     ") does not match source version (" +
                                     std::to_string(VersionUnion(2, 3, 1).Raw) + ")\n";
    Case const cases[] = {
        {"patch", VersionUnion(2, 3, 0), InstanceName, patchMessage},
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
