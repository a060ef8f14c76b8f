// SPDX-License-Identifier: Apache-2.0
// The core's small value types and its log writer: VersionUnion's layout and order, PList's
// growth and zeroed dummy, ParameterParserInfo records, and ParameterLogging::Write's line
// formats, level styles, per-level switches and cutting.
#include <cstdio>
#include <string>
#include <tuple>
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

using Texts = std::vector<std::string>;

// The raw view is little-endian major, minor, patch; versions order by parts where the raw view
// orders most pairs the other way.
TEST(VersionUnionTest, OrdersByMajorMinorPatchWhateverTheRawViewSays)
{
    EXPECT_EQ(VersionUnion(3, 0, 1).Raw, 0x100000003ul);
    EXPECT_EQ(VersionUnion(0x0000000700060005ul), VersionUnion(5, 6, 7));
    std::pair<VersionUnion, VersionUnion> const cases[] = {
        {{1, 9, 0}, {2, 0, 0}}, {{3, 0, 1}, {4, 0, 0}},      {{1, 0, 5}, {1, 1, 0}},
        {{3, 0, 0}, {3, 0, 1}}, {{0, 0xFFFF, 0}, {1, 0, 0}}, {{7, 0, 0}, {7, 0, 0xFFFFFFFFu}},
    };
    for (auto const& [lower, higher] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << lower.Raw << " < " << higher.Raw);
        EXPECT_EQ(std::make_pair(lower.Compare(higher), higher.Compare(lower)),
                  std::make_pair(-1, 1));
        EXPECT_TRUE(lower < higher && lower <= higher && lower != higher && higher > lower &&
                    higher >= lower && lower.Compare(lower) == 0);
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
// reuses freed capacity before it grows again, and finds the first equal element. An index at
// Count() or beyond reads the zeroed dummy.
TEST(PListTest, InsertAndRemoveKeepOrderAndGrowByOne)
{
    PList<unsigned int> list;
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
    EXPECT_EQ(std::make_pair(list.Find(2), list.Find(9)), std::make_pair(1, 5));
    EXPECT_EQ(list.Find(6), -1);
    list.Remove(1);
    EXPECT_EQ(list.Find(2), 2);
    auto const& view = static_cast<PList<unsigned int> const&>(list);
    EXPECT_EQ(view[4], 9u);
    for (unsigned int index : {5u, 6u, 0xFFFFFFFFu}) {
        EXPECT_EQ(view[index], 0u) << "index " << index;
    }
    // The moved-from list must be empty, or both would free the same storage.
    PList<unsigned int> moved(std::move(list));
    EXPECT_EQ(Contents(moved), (std::vector<unsigned int>{0, 3, 2, 8, 9}));
    EXPECT_EQ(list.Count(), 0u); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(list.Capacity(), 0u);
    PList<TuningMode> const modes;
    EXPECT_EQ(modes[0].mode + modes[0].subMode, 0u);
}

// What each constructor leaves in the record: a number as text, a text cut to the record (the
// longest that fits is kept whole), an array with its count.
TEST(ParameterParserInfoTest, ConstructorsFillNamesValueFlagsAndCount)
{
    EXPECT_STREQ(ParameterParserInfo("gain", "Float", 1.5, 10).value, "1.5");
    EXPECT_STREQ(ParameterParserInfo("gain", "UInt32", 7.0, 0).value, "7");
    EXPECT_STREQ(ParameterParserInfo("s", "String", static_cast<char const*>(nullptr)).value, "");
    std::string const longest(ParameterParserInfo::ValueLength - 1, 'v');
    EXPECT_EQ(ParameterParserInfo("s", "String", longest.c_str()).value, longest);
    EXPECT_EQ(ParameterParserInfo("s", "String", (longest + "w").c_str()).value, longest);
    ParameterParserInfo const array("table", "Float", true, false, 12);
    EXPECT_STREQ(array.value, "");
    EXPECT_TRUE(array.isArray && !array.flag && array.count == 12u);
    ParameterParserInfo const blank;
    EXPECT_TRUE(blank.name == nullptr && blank.type == nullptr && blank.value[0] == '\0' &&
                !blank.isArray && !blank.flag && blank.count == 0u);
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
// has one, its identifier. Every line goes to the parameter parser's group, and a line is cut at
// the platform's limit, not overrun.
TEST(ParameterLoggingTest, LineFormatDependsOnApiAndIdentifier)
{
    TestLoggingApi named("camera0;BinaryTag=abc");
    TestLoggingApi anonymous(nullptr);
    ParamTest::LogCapture capture;
    ParameterLogging::Write(nullptr, ParameterLogging::LogError, "plain %d\n", 1);
    ParameterLogging::Write(&anonymous, ParameterLogging::LogError, "anonymous %s\n", "x");
    ParameterLogging::Write(&named, ParameterLogging::LogError, "named %u\n", 3u);
    ParameterLogging::Write(nullptr, ParameterLogging::LogError, "%s|end\n",
                            std::string(5000, 'a').c_str());
    std::string const head = Head("[ERROR]");
    Texts texts;
    for (auto const& line : capture.Lines()) {
        texts.push_back(line.text);
        EXPECT_EQ(line.group, Vorn::Log::GroupParameterParser);
    }
    EXPECT_EQ(texts, (Texts{head + "plain 1\n", head + PointerText(&anonymous) + " anonymous x\n",
                            head + PointerText(&named) + " (camera0;BinaryTag=abc): named 3\n",
                            head + std::string(4095 - head.size(), 'a')}));
}

// The level chooses the tag, the severity letter and the platform level; anything else logs as
// verbose. A disabled level drops only its own lines.
TEST(ParameterLoggingTest, LevelChoosesTagLetterAndPlatformLevel)
{
    std::tuple<int, char, char const*, uint32_t> const cases[] = {{0, 'V', "[VERBOSE]", 5},
                                                                  {1, 'W', "[WARNING]", 2},
                                                                  {2, 'E', "[ERROR]", 1},
                                                                  {3, 'V', "[VERBOSE]", 5}};
    for (auto const& [level, severity, tag, platformLevel] : cases) {
        SCOPED_TRACE(level);
        ParamTest::LogCapture capture;
        ParameterLogging::Write(nullptr, static_cast<ParameterLogging::ParameterLogLevel>(level),
                                "m\n");
        auto const lines = capture.Lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(std::make_tuple(lines[0].severity, lines[0].level, lines[0].text),
                  std::make_tuple(severity, platformLevel, Head(tag) + "m\n"));
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
                                          ? (Texts{"warning\n", "error\n"})
                                          : (Texts{"verbose\n", "warning\n"}));
    }
}

} // namespace
