// SPDX-License-Identifier: Apache-2.0
// Generated modules holding arrays that other entries share: one array for every holder, counted
// in the table's registry and freed with the last, also when the holders disagree on its count;
// and pointers that lead back into the tree being read.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametermodule.h"

#include "paramgen/gamma_1_6_1.h"
#include "tests/common/logcapture.h"
#include "tests/parametermodules/modulefixture.h"

namespace ModuleTest {
namespace {

using moduletest::moduleTestType;
using moduletest::moduleTestTypeClass;

// Two holders of one block, declaring the same count or another one: the first loads it, the
// second takes the same array (cut to what it holds) and the registry counts both; the array goes
// with the last, whichever that is.
TEST(ModuleSharingTest, SharedArrayIsLoadedOnceAndFreedWithItsLastHolder)
{
    struct Case
    {
        char const* name;
        std::function<EntryValue(unsigned int)> items; ///< the member's list of n elements
        std::function<void(EntryValue&, EntryValue const&)> set;
        std::function<unsigned int(moduleTestType const&)> count;
        std::function<void const*(moduleTestType const&)> array;
        char const* path; ///< value path of element #
        unsigned int first;
        unsigned int second;
        bool secondUnloadsLast;
    };
    auto numbers = [](unsigned int n) {
        std::vector<EntryValue> items;
        for (unsigned int i = 0; i < n; ++i)
            items.push_back(EntryValue::Int(10 * (i + 1)));
        return EntryValue::List(items);
    };
    auto texts = [](unsigned int n) {
        std::vector<EntryValue> items;
        for (unsigned int i = 0; i < n; ++i)
            items.push_back(EntryValue::Text("label" + std::to_string(i)));
        return EntryValue::List(items);
    };
    auto landmarks = [](unsigned int n) {
        std::vector<EntryValue> items;
        for (unsigned int i = 0; i < n; ++i)
            items.push_back(Detail::Landmark(i + 1, 0.5));
        return EntryValue::List(items);
    };
    auto setTop = [](char const* member) {
        return [member](EntryValue& value, EntryValue const& list) { value.Set(member, list); };
    };
    auto setLandmarks = [](EntryValue& value, EntryValue const& list) {
        value.Set("shrink", EntryValue(*value.Find("shrink")).Set("landmarkPoints", list));
    };
    Case const cases[] = {
        {"same count", numbers, setTop("table"),
         [](moduleTestType const& m) { return m.tableCount; },
         [](moduleTestType const& m) -> void const* { return m.table; }, "table[#]", 3, 3, false},
        {"numbers", numbers, setTop("table"), [](moduleTestType const& m) { return m.tableCount; },
         [](moduleTestType const& m) -> void const* { return m.table; }, "table[#]", 3, 5, false},
        {"strings", texts, setTop("labels"), [](moduleTestType const& m) { return m.labelsCount; },
         [](moduleTestType const& m) -> void const* { return m.labels; }, "labels[#]", 2, 6, false},
        {"structures", landmarks, setLandmarks,
         [](moduleTestType const& m) { return m.shrink.landmarkPointsCount; },
         [](moduleTestType const& m) -> void const* { return m.shrink.landmarkPoints; },
         "shrink.landmarkPoints[#].landmarkIndex", 3, 4, false},
        {"one text", [](unsigned int) { return EntryValue::Text("shared text"); },
         [](EntryValue& value, EntryValue const& text) {
             value.Set("parameter_version",
                       EntryValue(*value.Find("parameter_version")).Set("revision", text));
         },
         [](moduleTestType const&) { return 1u; },
         [](moduleTestType const& m) -> void const* { return m.parameter_version.revision; },
         "parameter_version.revision", 1, 1, false},
        // A holder with fewer elements keeps its count; going last, it still frees them all.
        {"fewer strings, freed last", texts, setTop("labels"),
         [](moduleTestType const& m) { return m.labelsCount; },
         [](moduleTestType const& m) -> void const* { return m.labels; }, "labels[#]", 3, 1, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            // Both holders name one block of the larger count: only the counts they declare
            // differ, so the array the first one loads is the smaller one when it goes first.
            ModuleFile file;
            unsigned int const written = c.first > c.second ? c.first : c.second;
            EntryValue firstList = c.items(written);
            firstList.blockName = "shared";
            EntryValue secondList = c.items(written);
            secondList.duplicateOf = "shared";
            if (firstList.kind == EntryValue::Kind::List) {
                firstList.countOverride = c.first;
                secondList.countOverride = c.second;
            }
            EntryValue first = SampleValue();
            c.set(first, firstList);
            EntryValue second = SampleValue();
            c.set(second, secondList);
            uint32_t const firstId = file.AddModule(first);
            uint32_t const secondId = file.AddModule(second);
            ASSERT_TRUE(file.Build());

            ParamTest::LogCapture log;
            LoadedModule<moduleTestTypeClass> a(file, firstId, InstanceName);
            LoadedModule<moduleTestTypeClass> b(file, secondId, InstanceName);
            ASSERT_TRUE(a.loadResult);
            ASSERT_TRUE(b.loadResult);
            EXPECT_EQ(c.array(*b.module), c.array(*a.module)) << "one array for both holders";
            EXPECT_EQ(c.count(*a.module), c.first);
            unsigned int const expected = c.second < c.first ? c.second : c.first;
            EXPECT_EQ(c.count(*b.module), expected);
            std::string const cut =
                "holds " + std::to_string(c.first) + " elements, not " + std::to_string(c.second);
            EXPECT_EQ(log.Contains(cut), c.second > c.first)
                << testing::PrintToString(log.Messages());
            // Every element the second holder names is readable (under ASan: inside the array).
            char out[256];
            for (unsigned int i = 0; i < c.count(*b.module); ++i) {
                std::string path = c.path;
                if (path.find('#') != std::string::npos)
                    path.replace(path.find('#'), 1, std::to_string(i));
                EXPECT_TRUE(b.module->GetValue(path.c_str(), out, sizeof(out))) << path;
            }
            void const* const array = c.array(*a.module);
            DupObjInfo* info = file.Table().FindDupObject(const_cast<void*>(array));
            ASSERT_NE(info, nullptr);
            EXPECT_EQ(info->RefCount.load(), 2u);
            moduleTestTypeClass* earlier = c.secondUnloadsLast ? a.module : b.module;
            moduleTestTypeClass* later = c.secondUnloadsLast ? b.module : a.module;
            earlier->UnloadModule();
            EXPECT_EQ(c.array(*earlier), nullptr);
            EXPECT_EQ(info->RefCount.load(), 1u);
            EXPECT_EQ(c.array(*later), array) << "kept for its other holder";
            later->UnloadModule();
            EXPECT_EQ(file.Table().FindDupObject(const_cast<void*>(array)), nullptr);
        }
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before) << "every element freed once";
    }
}

EntryValue Node(double start, EntryValue trigger)
{
    return EntryValue::Struct({{"start", EntryValue::Real(start)},
                               {"end", EntryValue::Real(start + 1)},
                               {"trigger", std::move(trigger)}});
}

// A list that points at data entry id (holding count elements) instead of a block of its own.
EntryValue PointerTo(uint32_t id, uint32_t count)
{
    EntryValue list = EntryValue::List({});
    list.idOverride = id;
    list.countOverride = count;
    return list;
}

TEST(TriggerTreeCycleTest, PointerBackIntoTheTreeIsCutAndLeftEmpty)
{
    ModuleSchema const gamma{&gamma_1_6_1::varitonal_gamma16Type::Descriptor,
                             "gamma_1_6_1::varitonal_gamma16Type",
                             "gamma16_v2",
                             {1, 6, 1}};
    // back: the pointer that leads from a node to the root list (data entry rootId); the root
    // holds two nodes, the first with one child.
    auto write = [&](ModuleFile& file, std::function<EntryValue(EntryValue)> shape) {
        EntryValue const value = EntryValue::Struct(
            {{"control_variables",
              EntryValue::Struct({{"control_var_type",
                                   EntryValue::List({EntryValue::UInt(4), EntryValue::UInt(9)})}})},
             {"varitonal_gamma16_core",
              EntryValue::Struct({{"mod_gamma16_trigger_data", shape(EntryValue::List({}))}})}});
        return file.AddModule(value);
    };
    struct Case
    {
        char const* name;
        std::function<EntryValue(EntryValue)> shape; ///< the root list, given the pointer back
        unsigned int cutLevel;                       ///< depth of the node whose pointer is cut
    };
    Case const cases[] = {
        {"node points at its own entry",
         [](EntryValue back) {
             return EntryValue::List({Node(0, back), Node(1, EntryValue::List({}))});
         },
         0},
        {"grandchild points at the root",
         [](EntryValue back) {
             return EntryValue::List(
                 {Node(0, EntryValue::List({Node(10, back)})), Node(1, EntryValue::List({}))});
         },
         1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        // The identifiers are fixed by the layout: a sound file of the same shape tells the
        // root's identifier.
        uint32_t rootId = 0;
        {
            ModuleFile probe({}, true, gamma);
            uint32_t const id = write(probe, [&](EntryValue) { return c.shape(PointerTo(0, 0)); });
            ASSERT_TRUE(probe.Build());
            LoadedModule<gamma_1_6_1::varitonal_gamma16TypeClass> loaded(probe, id, "gamma16_v2");
            ASSERT_TRUE(loaded.loadResult);
            rootId = loaded.module->varitonal_gamma16_core.mod_gamma16_trigger_dataID;
            ASSERT_NE(rootId, 0u);
        }
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            ModuleFile file({}, true, gamma);
            uint32_t const id =
                write(file, [&](EntryValue) { return c.shape(PointerTo(rootId, 2)); });
            ASSERT_TRUE(file.Build());
            ParamTest::LogCapture log;
            LoadedModule<gamma_1_6_1::varitonal_gamma16TypeClass> loaded(file, id, "gamma16_v2");
            ASSERT_TRUE(loaded.loadResult);
            auto const& core = loaded.module->varitonal_gamma16_core;
            ASSERT_EQ(core.mod_gamma16_trigger_dataID, rootId) << "same layout as the probe";
            ASSERT_EQ(core.mod_gamma16_trigger_dataCount, 2u);
            gamma_1_6_1::triggerType const* cut = &core.mod_gamma16_trigger_data[0];
            for (unsigned int level = 0; level < c.cutLevel; ++level) {
                ASSERT_EQ(cut->triggerCount, 1u);
                cut = &cut->trigger[0];
            }
            EXPECT_EQ(cut->triggerCount, 0u);
            EXPECT_EQ(cut->trigger, nullptr);
            EXPECT_FLOAT_EQ(cut->start, c.cutLevel == 0 ? 0.0f : 10.0f);
            EXPECT_FLOAT_EQ(core.mod_gamma16_trigger_data[1].start, 1.0f);
            EXPECT_EQ(log.Count("data entry " + std::to_string(rootId) +
                                " points back into itself, left empty"),
                      1u)
                << testing::PrintToString(log.Messages());
            loaded.module->UnloadModule();
        }
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
    }
}

} // namespace
} // namespace ModuleTest
