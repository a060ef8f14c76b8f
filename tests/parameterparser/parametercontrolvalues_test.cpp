// SPDX-License-Identifier: Apache-2.0
// Control and trigger value records: text form, owned value copies, instance lookup by name.
#include "parameterparser/parametercontrolvalues.h"

#include <cstdio>
#include <cstring>
#include <tuple>
#include <utility>

#include <locale.h>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

namespace {

// Packed fields are copied out before comparing: a reference to one may be misaligned.
double ValueAt(ParameterTriggerIDValues const* instance, unsigned int index)
{
    return instance->Values()[index].value;
}

uint32_t IdentifierAt(ParameterTriggerIDValues const* instance, unsigned int index)
{
    return instance->Values()[index].identifier;
}

// The text is written with a decimal point whatever the thread's locale, which it finds again
// afterwards.
TEST(ParameterCTValueTest, TextFormIsIdentifierEqualsValue)
{
    ParameterCTValue const value{42, -1.5};
    char text[32] = "untouched";
    EXPECT_EQ(value.ToString(text, 0), 0u);
    EXPECT_STREQ(text, "untouched");
    locale_t const comma = newlocale(LC_NUMERIC_MASK, "de_DE.UTF-8", static_cast<locale_t>(0));
    if (comma != static_cast<locale_t>(0))
        uselocale(comma);
    EXPECT_EQ(value.ToString(text, sizeof(text)), 12u);
    EXPECT_STREQ(text, "42=-1.500000");
    if (comma != static_cast<locale_t>(0)) {
        std::snprintf(text, sizeof(text), "%.1f", 1.5);
        EXPECT_STREQ(text, "1,5");
        uselocale(LC_GLOBAL_LOCALE);
        freelocale(comma);
    }
    EXPECT_EQ(value.ToString(text, 5), 4u); // cut, still terminated
    EXPECT_STREQ(text, "42=-");
    EXPECT_EQ(value.ToString(nullptr, 8), 0u);
}

TEST(ParameterTriggerIDValuesTest, SetValuesReplacesAnOwnedCopy)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    ParameterTriggerIDValues* instance = ParameterTriggerIDValues::Create("ipe0");
    ASSERT_NE(instance, nullptr);
    EXPECT_STREQ(instance->Name(), "ipe0");

    ParameterCTValue values[2] = {{1, 0.5}, {2, 2.5}};
    ASSERT_TRUE(instance->SetValues(values, 2));
    values[0].value = 99.0; // the record holds its own copy
    ASSERT_EQ(instance->Count(), 2u);
    EXPECT_EQ(
        std::make_tuple(IdentifierAt(instance, 1), ValueAt(instance, 0), ValueAt(instance, 1)),
        std::make_tuple(2u, 0.5, 2.5));
    ASSERT_TRUE(instance->SetValues(values, 1));
    EXPECT_EQ(std::make_pair(instance->Count(), ValueAt(instance, 0)), std::make_pair(1u, 99.0));
    EXPECT_TRUE(instance->SetValues(nullptr, 3));
    EXPECT_TRUE(instance->Count() == 0u && instance->Values() == nullptr);

    Vorn::Testing::FailAllocationsAfter(0);
    bool const stored = instance->SetValues(values, 2);
    Vorn::Testing::ResetAllocationFailure();
    EXPECT_FALSE(stored);
    EXPECT_EQ(instance->Count(), 0u);

    ParameterTriggerIDValues::Destroy(instance);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

TEST(ParameterTriggerValuesTest, FindMatchesWholeNamesInInsertionOrder)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    ParameterTriggerValues* request = ParameterTriggerValues::Create("0.0|1.2", "abf40", "");
    ASSERT_NE(request, nullptr);
    ParameterCTValue const first{7, 1.0};
    ParameterCTValue const second{8, 2.0};
    ASSERT_TRUE(request->AddInstance("ipe", &first, 1));
    ASSERT_TRUE(request->AddInstance("ipe0", &second, 1));
    ASSERT_TRUE(request->AddInstance("ipe", &second, 1)); // not merged with the first

    ASSERT_EQ(request->Instances().Count(), 3u);
    EXPECT_EQ(request->Find("ipe"), request->Instances()[0]);
    EXPECT_EQ(IdentifierAt(request->Instances()[0], 0), 7u);
    EXPECT_EQ(request->Find("ipe0"), request->Instances()[1]);
    EXPECT_TRUE(request->Find("ip") == nullptr && request->Find("ipe00") == nullptr);

    EXPECT_TRUE(request->Matches("0.0|1.2", "abf40", ""));
    EXPECT_TRUE(request->Matches("0.0|1.2", "abf40", nullptr));
    EXPECT_FALSE(request->Matches("0.0|1.2", "abf4", ""));
    EXPECT_FALSE(request->Matches("0.0|1.2", "abf40", "ife"));

    ParameterTriggerValues::Destroy(request);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

TEST(ParameterTriggerValuesTest, CreationFailsCleanlyWhenMemoryRunsOut)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    for (int successes = 0; successes < 4; ++successes) {
        Vorn::Testing::FailAllocationsAfter(successes);
        ParameterTriggerValues* request = ParameterTriggerValues::Create("a", "b", "c");
        Vorn::Testing::ResetAllocationFailure();
        EXPECT_EQ(request, nullptr) << successes;
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before) << successes;
    }
}

} // namespace
