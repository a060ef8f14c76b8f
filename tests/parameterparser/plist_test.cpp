// SPDX-License-Identifier: Apache-2.0
// PList: growth one element at a time, insertion and removal order, lookup, the zeroed dummy.
#include "parameterparser/plist.h"

#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeunion.h"

namespace {

std::vector<unsigned int> Contents(PList<unsigned int> const& list)
{
    std::vector<unsigned int> items;
    for (unsigned int i = 0; i < list.Count(); ++i)
        items.push_back(list[i]);
    return items;
}

TEST(PListTest, GrowsByExactlyOneElementPerAddBeyondCapacity)
{
    PList<unsigned int> list;
    EXPECT_EQ(list.Capacity(), 0u);
    for (unsigned int i = 1; i <= 3; ++i) {
        list.Add(i * 10);
        EXPECT_EQ(list.Count(), i);
        EXPECT_EQ(list.Capacity(), i);
    }
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{10, 20, 30}));
}

TEST(PListTest, InsertMovesLaterElementsUp)
{
    PList<unsigned int> list;
    list.Add(1);
    list.Add(2);
    list.Add(4);
    list.Insert(2, 3);
    list.Insert(0, 0);
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(list.Capacity(), 5u);
}

TEST(PListTest, RemoveMovesLaterElementsDownAndKeepsCapacity)
{
    PList<unsigned int> list;
    for (unsigned int i = 0; i < 5; ++i)
        list.Add(i);
    list.Remove(1);
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 2, 3, 4}));
    list.Remove(3);
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 2, 3}));
    list.Remove(3); // out of range: nothing happens
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 2, 3}));
    EXPECT_EQ(list.Capacity(), 5u);

    // Freed capacity is reused before the list grows again.
    list.Add(7);
    list.Add(8);
    EXPECT_EQ(list.Capacity(), 5u);
    list.Add(9);
    EXPECT_EQ(list.Capacity(), 6u);
}

TEST(PListTest, FindGivesFirstEqualElementOrMinusOne)
{
    PList<unsigned int> list;
    for (unsigned int value : {5u, 7u, 5u, 9u})
        list.Add(value);
    EXPECT_EQ(list.Find(5), 0);
    EXPECT_EQ(list.Find(9), 3);
    EXPECT_EQ(list.Find(6), -1);
    list.Remove(0);
    EXPECT_EQ(list.Find(5), 1);
    EXPECT_EQ(PList<unsigned int>().Find(0), -1);
}

TEST(PListTest, BadIndexReadsAZeroedElement)
{
    PList<TuningMode> modes;
    TuningMode sensor{};
    sensor.mode = 1;
    sensor.subMode = 2;
    modes.Add(sensor);

    EXPECT_EQ(modes[0].mode, 1u);
    EXPECT_EQ(modes[0].subMode, 2u);
    for (unsigned int index : {1u, 2u, 0xFFFFFFFFu}) {
        TuningMode const& dummy = static_cast<PList<TuningMode> const&>(modes)[index];
        EXPECT_EQ(dummy.mode, 0u) << "index " << index;
        EXPECT_EQ(dummy.subMode, 0u) << "index " << index;
    }
    PList<unsigned int> empty;
    EXPECT_EQ(empty[0], 0u);
    EXPECT_EQ(empty.Count(), 0u);
}

TEST(PListTest, MoveTakesTheStorage)
{
    PList<unsigned int> list;
    list.Add(1);
    list.Add(2);
    PList<unsigned int> moved(std::move(list));
    EXPECT_EQ(Contents(moved), (std::vector<unsigned int>{1, 2}));
    // The moved-from list must be empty, or both would free the same storage.
    EXPECT_EQ(list.Count(), 0u); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(list.Capacity(), 0u);
}

} // namespace
