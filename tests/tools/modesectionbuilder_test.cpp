// SPDX-License-Identifier: Apache-2.0
// Tests of the mode section builder: slot numbering from named paths and section layout.
#include "tools/writer/modesectionbuilder.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using TuningWriter::FileVersion;
using TuningWriter::InvalidModeId;
using TuningWriter::ModeEntryRecord;
using TuningWriter::ModeSectionBuilder;

TEST(ModeSectionBuilderTest, NamedPathsShareStepsAndNumberNewOnes)
{
    ModeSectionBuilder table(2, "front");
    uint32_t const preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
    uint32_t const video = table.AddPath("Default|Sensor.0|Usecase.Video");
    uint32_t const numeric = table.AddPath("0|1.0|2.2");

    constexpr uint32_t Table2 = 2u << 24;
    EXPECT_EQ(preview, Table2 | 2);
    EXPECT_EQ(video, Table2 | 3);
    EXPECT_EQ(numeric, video);
    EXPECT_EQ(table.Find("Default|Sensor.0"), Table2 | 1);
    EXPECT_EQ(table.Find("Default|Sensor.1"), InvalidModeId);
    ASSERT_EQ(table.Entries().size(), 4u);
    ModeEntryRecord const& root = table.Entries()[0];
    EXPECT_EQ(root.parentId, root.modeId);
    EXPECT_EQ(table.Entries()[3].parentId, Table2 | 1);
    EXPECT_EQ(table.Entries()[3].subMode, 2u);

    // Unknown names and a root other than the existing one are refused and add nothing.
    EXPECT_EQ(table.AddPath("Default|Sideways.0"), InvalidModeId);
    EXPECT_EQ(table.AddPath("Default|Usecase.Nope"), InvalidModeId);
    EXPECT_EQ(table.AddPath("Sensor.0|Usecase.Preview"), InvalidModeId);
    EXPECT_EQ(table.Entries().size(), 4u);
}

TEST(ModeSectionBuilderTest, LaysOutFieldsOfEachVersion)
{
    ModeSectionBuilder table(0, "rear");
    table.AddEntry({0x01, 0x02, 0x0403, 0x0605, 0x0A090807, 0x0C0B0A09, 0x1});

    // Alignment 1 before 1.1.0: ID, mode, parent; no name, link or flags.
    std::vector<uint8_t> const v102 = table.Build(FileVersion{1, 0, 2});
    EXPECT_EQ(v102, (std::vector<uint8_t>{1, 0, 0, 0, 3, 4, 5, 6, 7, 8, 9, 10, 2, 0, 0, 0}));
    // Alignment 8 with a link from 2.0.0: every field takes 8 bytes.
    std::vector<uint8_t> const v200 = table.Build(FileVersion{2, 0, 0});
    ASSERT_EQ(v200.size(), 32u);
    EXPECT_EQ(v200[24], 9);
    EXPECT_EQ(v200[27], 12);
    EXPECT_EQ(v200[28], 0);
    // From 7.0.0 a 128-byte name, then 24-byte entries ending in the flags.
    std::vector<uint8_t> const v700 = table.Build(FileVersion{7, 0, 0});
    ASSERT_EQ(v700.size(), 128u + 24u);
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(v700.data())), "rear");
    EXPECT_EQ(v700[128 + 20], 1);

    EXPECT_EQ(ModeSectionBuilder::EntrySize(FileVersion{1, 1, 0}), 24u);
    EXPECT_EQ(ModeSectionBuilder::EntrySize(FileVersion{3, 0, 1}), 20u);
    EXPECT_EQ(ModeSectionBuilder::EntrySize(FileVersion{5, 0, 0}), 24u);
    EXPECT_EQ(ModeSectionBuilder::NameFieldSize(FileVersion{4, 0, 0}), 32u);
    EXPECT_EQ(ModeSectionBuilder::NameFieldSize(FileVersion{3, 0, 1}), 0u);
}

} // namespace
