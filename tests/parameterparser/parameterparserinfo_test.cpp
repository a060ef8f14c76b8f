// SPDX-License-Identifier: Apache-2.0
// ParameterParserInfo: what each constructor leaves in the record.
#include "parameterparser/parameterparserinfo.h"

#include <string>

#include <gtest/gtest.h>

#include "parameterparser/plist.h"

namespace {

TEST(ParameterParserInfoTest, ConstructorsFillNamesValueFlagsAndCount)
{
    char const* const name = "gain";
    char const* const type = "Float";

    ParameterParserInfo const number(name, type, 1.5, 10);
    EXPECT_EQ(number.name, name);
    EXPECT_EQ(number.type, type);
    EXPECT_STREQ(number.value, "1.5");
    EXPECT_FALSE(number.isArray);
    EXPECT_EQ(number.count, 0u);

    EXPECT_STREQ(ParameterParserInfo(name, "UInt32", 7.0, 0).value, "7");
    EXPECT_STREQ(ParameterParserInfo(name, type, "text").value, "text");
    EXPECT_STREQ(ParameterParserInfo(name, type, static_cast<char const*>(nullptr)).value, "");

    ParameterParserInfo const array(name, type, true, false, 12);
    EXPECT_STREQ(array.value, "");
    EXPECT_TRUE(array.isArray);
    EXPECT_FALSE(array.flag);
    EXPECT_EQ(array.count, 12u);

    ParameterParserInfo const empty;
    EXPECT_EQ(empty.name, nullptr);
    EXPECT_EQ(empty.type, nullptr);
    EXPECT_STREQ(empty.value, "");
}

TEST(ParameterParserInfoTest, LongValueTextIsCutToTheRecord)
{
    std::string const longText(2000, 'v');
    ParameterParserInfo const info("n", "String", longText.c_str());
    EXPECT_EQ(std::string(info.value), std::string(ParameterParserInfo::ValueLength - 1, 'v'));
}

TEST(ParameterParserInfoTest, RecordsTravelBytewiseInAList)
{
    PList<ParameterParserInfo> list;
    list.Add(ParameterParserInfo("a", "Int32", -3.0, 0));
    list.Add(ParameterParserInfo("b", "Structure"));
    ASSERT_EQ(list.Count(), 2u);
    EXPECT_STREQ(list[0].value, "-3");
    EXPECT_STREQ(list[1].name, "b");
    EXPECT_EQ(list[2].name, nullptr); // the zeroed dummy
}

} // namespace
