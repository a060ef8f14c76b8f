// SPDX-License-Identifier: Apache-2.0
// The trigger tree of second-generation pipeline modules: after a load each node knows its level
// and the control variable of that level, as the file lists them.
#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"

#include "paramgen/gamma_1_6_1.h"
#include "paramgen/gamma_1_6_1.writer.h"
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
    ModuleSchema const gamma{&ParamSchema::gamma_1_6_1::Describe,
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

} // namespace
} // namespace ModuleTest
