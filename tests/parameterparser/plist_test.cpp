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

// The list grows by exactly one element when full, inserts and removes by moving later elements,
// and reuses freed capacity before it grows again.
TEST(PListTest, InsertAndRemoveKeepOrderAndGrowByOne)
{
    PList<unsigned int> list;
    EXPECT_EQ(list.Capacity(), 0u);
    for (unsigned int value : {1u, 2u, 4u}) {
        list.Add(value);
        EXPECT_EQ(list.Capacity(), list.Count());
    }
    list.Insert(2, 3);
    list.Insert(0, 0);
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 1, 2, 3, 4}));
    list.Remove(1);
    list.Remove(3);
    list.Remove(3); // out of range: nothing happens
    EXPECT_EQ(Contents(list), (std::vector<unsigned int>{0, 2, 3}));
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

// An index at Count() or beyond reads the zeroed dummy; the last index reads the element.
TEST(PListTest, BadIndexReadsAZeroedElement)
{
    PList<TuningMode> modes;
    TuningMode sensor{};
    sensor.mode = 1;
    sensor.subMode = 2;
    modes.Add(sensor);
    auto const& view = static_cast<PList<TuningMode> const&>(modes);
    EXPECT_EQ(view[0].subMode, 2u);
    for (unsigned int index : {1u, 2u, 0xFFFFFFFFu})
        EXPECT_EQ(view[index].mode + view[index].subMode, 0u) << "index " << index;
    EXPECT_EQ(PList<unsigned int>()[0], 0u);
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
