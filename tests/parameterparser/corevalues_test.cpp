// SPDX-License-Identifier: Apache-2.0
// The core's small value types and its log writer: VersionUnion's layout and order, PList's
// growth and zeroed dummy, ParameterParserInfo records, and ParameterLogging::Write's line
// formats, level styles, per-level switches and cutting.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornlog.h"
#include "platform/vornosutils.h"

#include "parameterparser/modeunion.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

#include "tests/common/logcapture.h"

namespace {

// The raw view is little-endian major, minor, patch; versions order by parts where the raw view
// orders most pairs the other way.
TEST(VersionUnionTest, OrdersByMajorMinorPatchWhateverTheRawViewSays)
{
    EXPECT_EQ(VersionUnion(3, 0, 1).Raw, 0x100000003ul);
    EXPECT_EQ(VersionUnion(0x0000000700060005ul), VersionUnion(5, 6, 7));
    EXPECT_EQ(VersionUnion().Raw, 0ul);
    std::pair<VersionUnion, VersionUnion> const cases[] = {
        {{1, 9, 0}, {2, 0, 0}}, {{3, 0, 1}, {4, 0, 0}},      {{1, 0, 5}, {1, 1, 0}},
        {{3, 0, 0}, {3, 0, 1}}, {{0, 0xFFFF, 0}, {1, 0, 0}}, {{7, 0, 0}, {7, 0, 0xFFFFFFFFu}},
    };
    for (auto const& [lower, higher] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << lower.Raw << " < " << higher.Raw);
        EXPECT_EQ(lower.Compare(higher), -1);
        EXPECT_EQ(higher.Compare(lower), 1);
        EXPECT_EQ(lower.Compare(lower), 0);
        EXPECT_TRUE(lower < higher && lower <= higher && lower != higher && higher > lower &&
                    higher >= lower);
        EXPECT_FALSE(lower == higher || lower > higher || lower >= higher || higher <= lower);
    }
}

std::vector<unsigned int> Contents(PList<unsigned int> const& list)
{
    std::vector<unsigned int> items;
    for (unsigned int i = 0; i < list.Count(); ++i)
        items.push_back(list[i]);
    return items;
}

// The list grows by exactly one element when full, inserts and removes by moving later elements,
// reuses freed capacity before it grows again, and finds the first equal element.
TEST(PListTest, InsertAndRemoveKeepOrderAndGrowByOne)
{
    PList<unsigned int> list;
    EXPECT_EQ(list.Capacity(), 0u);
    EXPECT_EQ(list.Find(0), -1);
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
    list.Add(2);
    list.Add(8);
    EXPECT_EQ(list.Capacity(), 5u);
    list.Add(9);
    EXPECT_EQ(list.Capacity(), 6u);
    EXPECT_EQ(list.Find(2), 1);
    EXPECT_EQ(list.Find(9), 5);
    EXPECT_EQ(list.Find(6), -1);
    list.Remove(1);
    EXPECT_EQ(list.Find(2), 2);
    // The moved-from list must be empty, or both would free the same storage.
    PList<unsigned int> moved(std::move(list));
    EXPECT_EQ(Contents(moved), (std::vector<unsigned int>{0, 3, 2, 8, 9}));
    EXPECT_EQ(list.Count(), 0u); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(list.Capacity(), 0u);
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
    for (unsigned int index : {1u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(view[index].mode + view[index].subMode, 0u) << "index " << index;
    }
    PList<unsigned int> const empty;
    EXPECT_EQ(empty[0] + PList<unsigned int>()[0], 0u);
}

// What each constructor leaves in the record: a number as text, a text cut to the record (the
// longest that fits is kept whole), an array with its count; records travel bytewise in a list.
TEST(ParameterParserInfoTest, ConstructorsFillNamesValueFlagsAndCount)
{
    char const* const name = "gain";
    ParameterParserInfo const number(name, "Float", 1.5, 10);
    EXPECT_EQ(number.name, name);
    EXPECT_STREQ(number.value, "1.5");
    EXPECT_FALSE(number.isArray);
    EXPECT_EQ(number.count, 0u);
    EXPECT_STREQ(ParameterParserInfo(name, "UInt32", 7.0, 0).value, "7");
    EXPECT_STREQ(ParameterParserInfo(name, "String", static_cast<char const*>(nullptr)).value, "");
    std::string const longest(ParameterParserInfo::ValueLength - 1, 'v');
    EXPECT_EQ(ParameterParserInfo(name, "String", longest.c_str()).value, longest);
    EXPECT_EQ(ParameterParserInfo(name, "String", (longest + "w").c_str()).value, longest);
    ParameterParserInfo const array(name, "Float", true, false, 12);
    EXPECT_STREQ(array.value, "");
    EXPECT_TRUE(array.isArray && !array.flag);
    EXPECT_EQ(array.count, 12u);
    EXPECT_EQ(ParameterParserInfo().name, nullptr);

    PList<ParameterParserInfo> list;
    list.Add(ParameterParserInfo("a", "Int32", -3.0, 0));
    list.Add(ParameterParserInfo("b", "Structure"));
    EXPECT_STREQ(list[0].value, "-3");
    EXPECT_STREQ(list[1].name, "b");
    EXPECT_EQ(list[2].name, nullptr); // the zeroed dummy
}

// A logging owner with a settable identifier and one switch per level.
class TestLoggingApi : public IParameterLoggingAPI
{
public:
    explicit TestLoggingApi(char const* identifier) : m_identifier(identifier) {}
    char const* GetLoggingIdentifier() override { return m_identifier; }
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) override
    {
        return m_enabled[level];
    }
    void Enable(ParameterLogging::ParameterLogLevel level, bool on) { m_enabled[level] = on; }

private:
    char const* m_identifier;
    bool m_enabled[3] = {true, true, true};
};

std::string Head(char const* tag)
{
    return std::string(tag) + " ParameterParser (Thread " +
           std::to_string(Vorn::OsUtils::GetThreadID()) + "): ";
}

std::string PointerText(void const* pointer)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

// Without an owner the line is the head and the message; an owner adds its address and, if it
// has one, its identifier. Every line goes to the parameter parser's group.
TEST(ParameterLoggingTest, LineFormatDependsOnApiAndIdentifier)
{
    TestLoggingApi named("camera0;BinaryTag=abc");
    TestLoggingApi anonymous(nullptr);
    ParamTest::LogCapture capture;
    ParameterLogging::Write(nullptr, ParameterLogging::LogError, "plain %d\n", 1);
    ParameterLogging::Write(&anonymous, ParameterLogging::LogError, "anonymous %s\n", "x");
    ParameterLogging::Write(&named, ParameterLogging::LogError, "named %u\n", 3u);
    std::string const head = Head("[ERROR]");
    std::vector<std::string> texts;
    for (auto const& line : capture.Lines()) {
        texts.push_back(line.text);
        EXPECT_EQ(line.group, Vorn::Log::GroupParameterParser);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         head + "plain 1\n", head + PointerText(&anonymous) + " anonymous x\n",
                         head + PointerText(&named) + " (camera0;BinaryTag=abc): named 3\n"}));
}

// The level chooses the tag, the severity letter and the platform level; anything else logs as
// verbose. A disabled level drops only its own lines.
TEST(ParameterLoggingTest, LevelChoosesTagLetterAndPlatformLevel)
{
    struct
    {
        int level;
        char severity;
        char const* tag;
        uint32_t platformLevel;
    } const cases[] = {{0, 'V', "[VERBOSE]", 5},
                       {1, 'W', "[WARNING]", 2},
                       {2, 'E', "[ERROR]", 1},
                       {3, 'V', "[VERBOSE]", 5}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.level);
        ParamTest::LogCapture capture;
        ParameterLogging::Write(nullptr, static_cast<ParameterLogging::ParameterLogLevel>(c.level),
                                "m\n");
        auto const lines = capture.Lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].severity, c.severity);
        EXPECT_EQ(lines[0].level, c.platformLevel);
        EXPECT_EQ(lines[0].text, Head(c.tag) + "m\n");
    }
    TestLoggingApi api("id");
    for (auto const level : {ParameterLogging::LogVerbose, ParameterLogging::LogError}) {
        api.Enable(ParameterLogging::LogVerbose, level != ParameterLogging::LogVerbose);
        api.Enable(ParameterLogging::LogError, level != ParameterLogging::LogError);
        ParamTest::LogCapture capture;
        ParameterLogging::Write(&api, ParameterLogging::LogVerbose, "verbose\n");
        ParameterLogging::Write(&api, ParameterLogging::LogWarning, "warning\n");
        ParameterLogging::Write(&api, ParameterLogging::LogError, "error\n");
        EXPECT_EQ(capture.Messages(), level == ParameterLogging::LogVerbose
                                          ? (std::vector<std::string>{"warning\n", "error\n"})
                                          : (std::vector<std::string>{"verbose\n", "warning\n"}));
    }
}

TEST(ParameterLoggingTest, LongMessageIsCutNotOverrun)
{
    std::string const longText(5000, 'a');
    ParamTest::LogCapture capture;
    ParameterLogging::Write(nullptr, ParameterLogging::LogWarning, "%s|end\n", longText.c_str());
    auto const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 1u);
    std::string const head = Head("[WARNING]");
    EXPECT_EQ(lines[0].text, head + std::string(4095 - head.size(), 'a'));
}

} // namespace
