// SPDX-License-Identifier: Apache-2.0
// The trigger tree of second-generation pipeline modules: after a load each node knows its level
// and the control variable of that level, as the file lists them.
#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parameterclone.h"

#include "paramgen/clonetest_1_0_1.h"
#include "paramgen/gamma_1_6_1.h"
#include "tests/parametermodules/modulefixture.h"

namespace ModuleTest {
namespace {

EntryValue Node(double start, std::vector<EntryValue> children)
{
    return EntryValue::Struct({{"start", EntryValue::Real(start)},
                               {"end", EntryValue::Real(start + 1)},
                               {"trigger", EntryValue::List(std::move(children))}});
}

// A leaf with one region whose red table rises by 16 a point from base.
EntryValue Leaf(double start, double base)
{
    std::vector<EntryValue> red;
    for (int i = 0; i < 65; ++i)
        red.push_back(EntryValue::Real(base + 16 * i));
    EntryValue region = EntryValue::Struct(
        {{"channel_r_tab", EntryValue::Struct({{"channel_r", EntryValue::List(std::move(red))}})}});
    return Node(start, {}).Set("region", EntryValue::List({region}));
}

TEST(TriggerTreeTest, NodesTakeTheirLevelAndControlVariable)
{
    ModuleSchema const gamma{&gamma_1_6_1::varitonal_gamma16Type::Descriptor,
                             "gamma_1_6_1::varitonal_gamma16Type",
                             "gamma16_v2",
                             {1, 6, 1}};
    ModuleFile file({}, true, gamma);
    // Two levels named by the file (control variables 4 then 9); a third level of nodes lies
    // past the list and keeps what it was loaded with (zeros).
    EntryValue const value = EntryValue::Struct(
        {{"control_variables",
          EntryValue::Struct({{"control_var_type",
                               EntryValue::List({EntryValue::UInt(4), EntryValue::UInt(9)})}})},
         {"varitonal_gamma16_core",
          EntryValue::Struct(
              {{"mod_gamma16_trigger_data",
                EntryValue::List(
                    {Node(0, {Node(10, {Node(100, {})}), Leaf(20, 0.75)}), Node(1, {})})}})}});
    uint32_t const id = file.AddModule(value);
    ASSERT_TRUE(file.Build());
    DefaultModule kind(new gamma_1_6_1::varitonal_gamma16TypeClass("gamma16_v2"));
    auto* module = static_cast<gamma_1_6_1::varitonal_gamma16TypeClass*>(
        kind.module->Create(file.Record(id), &kind));
    ASSERT_NE(module, nullptr);
    ASSERT_TRUE(module->LoadModule(&file.Table()));

    auto const& core = module->varitonal_gamma16_core;
    ASSERT_EQ(core.mod_gamma16_trigger_dataCount, 2u);
    for (unsigned int i = 0; i < 2; ++i) {
        EXPECT_EQ(core.mod_gamma16_trigger_data[i].level, 0u);
        EXPECT_EQ(core.mod_gamma16_trigger_data[i].type, 4u);
    }
    gamma_1_6_1::triggerType const& first = core.mod_gamma16_trigger_data[0];
    ASSERT_EQ(first.triggerCount, 2u);
    EXPECT_EQ(first.trigger[1].level, 1u);
    EXPECT_EQ(first.trigger[1].type, 9u);
    EXPECT_FLOAT_EQ(first.trigger[1].start, 20.0f);
    ASSERT_EQ(first.trigger[0].triggerCount, 1u);
    EXPECT_EQ(first.trigger[0].trigger[0].level, 0u);
    EXPECT_EQ(first.trigger[0].trigger[0].type, 0u);
    EXPECT_FLOAT_EQ(first.trigger[0].trigger[0].start, 100.0f);
    // The hidden members are not on a value path.
    char out[64];
    EXPECT_FALSE(module->GetValue("varitonal_gamma16_core.mod_gamma16_trigger_data[0].level", out,
                                  sizeof(out)));
    EXPECT_TRUE(module->GetValue("varitonal_gamma16_core.mod_gamma16_trigger_data[0].trigger[1]."
                                 "start",
                                 out, sizeof(out)));
    EXPECT_STREQ(out, "20.0");
    // Six steps down to a leaf's table: an "Int32" held as float shows without its fraction.
    ASSERT_TRUE(module->GetValue("varitonal_gamma16_core.mod_gamma16_trigger_data[0].trigger[1]."
                                 "region[0].channel_r_tab.channel_r[64]",
                                 out, sizeof(out)));
    EXPECT_STREQ(out, "1024");
}

TEST(TriggerTreeCloneTest, CopyOwnsEveryNodeAndRegionArray)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ModuleSchema const schema{&clonetest_1_0_1::varitonal_clonetest10Type::Descriptor,
                                  "clonetest_1_0_1::varitonal_clonetest10Type",
                                  "clonetest10_v2",
                                  {1, 0, 1}};
        ModuleFile file({}, true, schema);
        EntryValue const value = EntryValue::Struct(
            {{"varitonal_clonetest10_core",
              EntryValue::Struct({{"mod_clonetest10_trigger_data",
                                   EntryValue::List({Node(0, {Leaf(10, 0.25), Leaf(20, 0.75)}),
                                                     Node(1, {})})}})}});
        uint32_t const id = file.AddModule(value);
        ASSERT_TRUE(file.Build());
        DefaultModule kind(new clonetest_1_0_1::varitonal_clonetest10TypeClass("clonetest10_v2"));
        auto* module = static_cast<clonetest_1_0_1::varitonal_clonetest10TypeClass*>(
            kind.module->Create(file.Record(id), &kind));
        ASSERT_NE(module, nullptr);
        ASSERT_TRUE(module->LoadModule(&file.Table()));
        clonetest_1_0_1::varitonal_clonetest10Type const& original = *module;

        clonetest_1_0_1::varitonal_clonetest10Type* copy = original.Clone();
        ASSERT_NE(copy, nullptr);
        auto const& roots = original.varitonal_clonetest10_core;
        auto const& copiedRoots = copy->varitonal_clonetest10_core;
        ASSERT_EQ(copiedRoots.mod_clonetest10_trigger_dataCount, 2u);
        EXPECT_NE(copiedRoots.mod_clonetest10_trigger_data, roots.mod_clonetest10_trigger_data);
        clonetest_1_0_1::triggerType const& node = copiedRoots.mod_clonetest10_trigger_data[0];
        ASSERT_EQ(node.triggerCount, 2u);
        EXPECT_NE(node.trigger, roots.mod_clonetest10_trigger_data[0].trigger);
        ASSERT_EQ(node.trigger[1].regionCount, 1u);
        EXPECT_NE(node.trigger[1].region, roots.mod_clonetest10_trigger_data[0].trigger[1].region);
        EXPECT_FLOAT_EQ(node.trigger[1].region[0].channel_r_tab.channel_r[64], 1024.75f);
        EXPECT_FLOAT_EQ(node.trigger[1].start, 20.0f);
        // A node without children or regions has null arrays in the copy too.
        clonetest_1_0_1::triggerType const& bare = copiedRoots.mod_clonetest10_trigger_data[1];
        EXPECT_EQ(bare.triggerCount, 0u);
        EXPECT_EQ(bare.trigger, nullptr);
        EXPECT_EQ(bare.region, nullptr);

        // Editing the copy leaves the module alone.
        node.trigger[1].region[0].channel_r_tab.channel_r[64] = 5.0f;
        EXPECT_FLOAT_EQ(
            roots.mod_clonetest10_trigger_data[0].trigger[1].region[0].channel_r_tab.channel_r[64],
            1024.75f);
        ParameterClone::Destroy(copy, clonetest_1_0_1::varitonal_clonetest10Type::Descriptor);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

} // namespace
} // namespace ModuleTest
