// SPDX-License-Identifier: Apache-2.0
// Value access by textual path on a loaded generated module.
#include <cstring>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametervaluepath.h"

#include "tests/parametermodules/modulefixture.h"

namespace ModuleTest {
namespace {

using moduletest::moduleTestTypeClass;

class ValuePathTest : public testing::Test
{
protected:
    void SetUp() override
    {
        uint32_t const id = m_file.AddModule(SampleValue());
        ASSERT_TRUE(m_file.Build());
        m_module =
            static_cast<moduleTestTypeClass*>(m_kind.module->Create(m_file.Record(id), &m_kind));
        ASSERT_NE(m_module, nullptr);
        ASSERT_TRUE(m_module->LoadModule(&m_file.Table()));
    }

    std::string Get(char const* path, bool expected = true, unsigned int size = 256)
    {
        std::string out(size, '#');
        EXPECT_EQ(m_module->GetValue(path, out.data(), size), expected) << path;
        return out.c_str();
    }

    ModuleFile m_file;
    DefaultModule m_kind{new moduleTestTypeClass(InstanceName)};
    moduleTestTypeClass* m_module = nullptr;
};

TEST_F(ValuePathTest, GetValueByPath)
{
    struct Case
    {
        char const* path;
        char const* text;
    };
    Case const cases[] = {
        {"shrink.reservedParameters[3]", "3.5"},
        {"shrink.reservedParameters", "0.0,1.0,2.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0"},
        // An index at the last element reads it; one past reads the whole array.
        {"shrink.reservedParameters[9]", "9.0"},
        {"shrink.reservedParameters[10]", "0.0,1.0,2.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0"},
        {"table[2]", "30"},
        {"table[3]", "10,20,30"},
        {"labels[2]", ""},
        {"labels[3]", "near,far,"},
        {"shrink.facePoseShrinkFactor.rollShrinkFactor.triggerPt.start", "1.5"},
        {"shrink.facePoseShrinkFactor.pitchShrinkFactor.triggerData[1].triggerData.data", "0.5"},
        {"shrink.landmarkPoints[2].landmarkIndex", "12"},
        // A float held under an integer name reads without its fraction (2.75).
        {"noise_threshold_g", "2"},
        // Steps behind a number are ignored.
        {"shrink.enable.x", "1"},
        {"frameCount", "9007199254740992"},
        {"optionalGain", "1.25"},
        {"levels", "1,7"},
        {"table[1]", "20"},
        {"labels", "near,far,"},
        {"labels[1]", "far"},
        {"parameter_version.revision", "rev-A"},
        {"corners[1].x", "11"},
        {"corners[0].weight", "0.5"},
        {"note", "spare"},
    };
    for (Case const& item : cases)
        EXPECT_EQ(Get(item.path), item.text) << item.path;
}

TEST_F(ValuePathTest, PathsWithoutAValueGiveFalse)
{
    for (char const* path : {"shrink.landmarkPoints", "shrink.landmarkPoints[3].landmarkIndex",
                             "shrink.missing", "Shrink.enable", "", "shrink",
                             "shrink.facePoseShrinkFactor", "corners", "corners[2].x"}) {
        EXPECT_EQ(Get(path, false), std::string(256, '#').c_str()) << path;
    }
}

// Text is cut to the buffer, terminator included: a buffer that just holds it, and one byte less.
TEST_F(ValuePathTest, TextIsCutToTheBuffer)
{
    struct Case
    {
        char const* path;
        unsigned int size;
        char const* text;
    };
    Case const cases[] = {
        {"shrink.reservedParameters", 8, "0.0,1.0"},
        {"shrink.reservedParameters", 7, "0.0,1."},
        {"parameter_version.revision", 6, "rev-A"},
        {"parameter_version.revision", 5, "rev-"},
    };
    for (Case const& item : cases)
        EXPECT_EQ(Get(item.path, true, item.size), item.text) << item.path << " " << item.size;
}

TEST_F(ValuePathTest, EmptyBufferIsNeverWritten)
{
    // The byte behind an empty buffer stays as it was, for a list, a string and a number.
    for (char const* path : {"shrink.reservedParameters[10]", "labels",
                             "parameter_version.revision", "shrink.enable"}) {
        char guard = '#';
        EXPECT_FALSE(m_module->GetValue(path, &guard, 0)) << path;
        EXPECT_EQ(guard, '#') << path;
    }
}

// Each change is read back by path; every one counts as an edit.
TEST_F(ValuePathTest, SetValueStoresNumbersAndLists)
{
    struct Case
    {
        char const* path;
        char const* value;
        char const* readPath;
        char const* text;
    };
    Case const cases[] = {
        // A list stores from the first element on and skips what is no number; "" is no change.
        {"shrink.reservedParameters", "10,x,12", "shrink.reservedParameters",
         "10.0,1.0,12.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0"},
        {"shrink.reservedParameters", "", "shrink.reservedParameters",
         "10.0,1.0,12.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0"},
        // An index at the last element sets it; one past stores a list from the first.
        {"shrink.reservedParameters[9]", "19", "shrink.reservedParameters[9]", "19.0"},
        {"shrink.reservedParameters[10]", "20", "shrink.reservedParameters[0]", "20.0"},
        // A list longer than the array stops at its end; a counted array never grows.
        {"table", "1,2,3,4,5", "table", "1,2,3"},
        {"table[2]", "33", "table", "1,2,33"},
        {"table[3]", "7", "table", "7,2,33"},
        {"shrink.faceMaskROIControl.minROISizeToRemoveMask[1]", "0.5",
         "shrink.faceMaskROIControl.minROISizeToRemoveMask", "8.0,0.5"},
        // A float held under an integer name keeps its fraction but shows without it.
        {"noise_threshold_g", "2.25", "noise_threshold_g", "2"},
        // Integer storage saturates.
        {"shrink.faceNum", "-5", "shrink.faceNum", "0"},
        {"levels[0]", "2", "levels", "2,7"},
        {"shrink.landmarkPoints[2].shrinkMarginFactor", "0.75",
         "shrink.landmarkPoints[2].shrinkMarginFactor", "0.75"},
    };
    for (Case const& item : cases) {
        EXPECT_TRUE(m_module->SetValue(item.path, item.value)) << item.path;
        EXPECT_EQ(Get(item.readPath), item.text) << item.path;
    }
    EXPECT_FLOAT_EQ(m_module->noise_threshold_g, 2.25f);
    EXPECT_EQ(m_module->modified, 1u + std::size(cases));
}

TEST_F(ValuePathTest, SetValueRefusals)
{
    uint32_t const edits = m_module->modified;
    uint32_t const id = m_module->symbolTableID;
    char const* const refused[][2] = {
        {"shrink.faceNum", "many"},
        {"parameter_version.revision", "rev-B"},
        {"labels[0]", "x"},
        {"note", "other"},
        {"corners", "1"},
        {"shrink.landmarkPoints", "1"},
        {"shrink.landmarkPoints[3].landmarkIndex", "1"},
        {"corners[2].x", "1"},
        {"shrink.nothing", "1"},
    };
    for (auto const& item : refused)
        EXPECT_FALSE(m_module->SetValue(item[0], item[1])) << item[0];
    EXPECT_STREQ(m_module->parameter_version.revision, "rev-A");
    EXPECT_EQ(m_module->shrink.faceNum, 3u);
    EXPECT_EQ(m_module->modified, edits);
    EXPECT_EQ(m_module->symbolTableID, id);
}

TEST_F(ValuePathTest, GetInfoOfTheEmptyPathListsEveryMember)
{
    PList<ParameterParserInfo> list;
    ASSERT_TRUE(m_module->GetInfo("shrink.", list));
    ASSERT_EQ(list.Count(), 11u);
    EXPECT_STREQ(list[0].name, "enable");
    EXPECT_STREQ(list[0].type, "Boolean");
    EXPECT_STREQ(list[0].value, "1");
    EXPECT_STREQ(list[2].name, "landmarkPoints");
    EXPECT_EQ(list[2].type, ParameterTypeNames::Structure);
    EXPECT_TRUE(list[2].isArray);
    EXPECT_EQ(list[2].count, 3u);
    EXPECT_STREQ(list[2].value, "");
    EXPECT_EQ(list[3].type, ParameterTypeNames::Structure);
    EXPECT_FALSE(list[3].isArray);
    EXPECT_STREQ(list[4].value, "0.0500000007") << "a float shown with ten digits";
    EXPECT_STREQ(list[10].name, "reservedParameters");
    EXPECT_STREQ(list[10].type, "Float");
    EXPECT_TRUE(list[10].isArray);
    EXPECT_EQ(list[10].count, 10u);

    PList<ParameterParserInfo> top;
    ASSERT_TRUE(m_module->GetInfo("", top));
    ASSERT_EQ(top.Count(), 11u);
    EXPECT_STREQ(top[2].name, "noise_threshold_g");
    EXPECT_STREQ(top[2].value, "2");
    EXPECT_STREQ(top[6].name, "labels");
    EXPECT_STREQ(top[6].type, "String");
    EXPECT_EQ(top[6].count, 3u);
    EXPECT_EQ(top[9].type, ParameterTypeNames::Structure);
    EXPECT_TRUE(top[9].isArray);
    EXPECT_EQ(top[9].count, 2u);
    EXPECT_STREQ(top[10].name, "note");
    EXPECT_STREQ(top[10].type, "String");
}

TEST_F(ValuePathTest, GetInfoOfANamedMember)
{
    PList<ParameterParserInfo> list;
    ASSERT_TRUE(m_module->GetInfo("shrink.landmarkPoints", list));
    ASSERT_EQ(list.Count(), 1u);
    EXPECT_EQ(list[0].name, nullptr);
    EXPECT_EQ(list[0].type, ParameterTypeNames::Structure);
    EXPECT_TRUE(list[0].isArray);
    EXPECT_EQ(list[0].count, 3u);

    ASSERT_TRUE(m_module->GetInfo("shrink.landmarkPoints[1]", list));
    ASSERT_EQ(list.Count(), 3u);
    EXPECT_STREQ(list[1].name, "landmarkIndex");
    EXPECT_STREQ(list[2].value, "0.25");

    ASSERT_TRUE(m_module->GetInfo("parameter_version.revision", list));
    ASSERT_EQ(list.Count(), 4u);
    EXPECT_EQ(list[3].name, nullptr);
    EXPECT_STREQ(list[3].value, "rev-A");

    // Arrays of numbers are not named here: their values come through GetValue.
    EXPECT_FALSE(m_module->GetInfo("shrink.reservedParameters", list));
    EXPECT_FALSE(m_module->GetInfo("shrink.missing", list));
    EXPECT_EQ(list.Count(), 4u);
}

} // namespace
} // namespace ModuleTest
