// SPDX-License-Identifier: Apache-2.0
// ParameterLogging::Write: the three line formats, level styles, per-level switches and cutting.
#include "parameterparser/parameterlogging.h"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "platform/vornlog.h"
#include "platform/vornosutils.h"

#include "tests/common/logcapture.h"

namespace {

// A logging owner with a settable identifier and one switch per level.
class TestLoggingApi : public IParameterLoggingAPI
{
public:
    explicit TestLoggingApi(char const* identifier) : m_identifier(identifier) {}

    char const* GetLoggingIdentifier() override { return m_identifier; }

    bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) override
    {
        int const index = static_cast<int>(level);
        return index < 0 || index > 2 ? true : m_enabled[index];
    }

    void Enable(ParameterLogging::ParameterLogLevel level, bool on) { m_enabled[level] = on; }

private:
    char const* m_identifier;
    bool m_enabled[3] = {true, true, true};
};

std::string ThreadText()
{
    return std::to_string(Vorn::OsUtils::GetThreadID());
}

std::string PointerText(void const* pointer)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

TEST(ParameterLoggingTest, LineFormatDependsOnApiAndIdentifier)
{
    TestLoggingApi named("camera0;BinaryTag=abc");
    TestLoggingApi anonymous(nullptr);
    ParamTest::LogCapture capture;

    ParameterLogging::Write(nullptr, ParameterLogging::LogError, "plain %d\n", 1);
    ParameterLogging::Write(&anonymous, ParameterLogging::LogError, "anonymous %s\n", "x");
    ParameterLogging::Write(&named, ParameterLogging::LogError, "named %u\n", 3u);

    std::string const head = "[ERROR] ParameterParser (Thread " + ThreadText() + "): ";
    auto const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, head + "plain 1\n");
    EXPECT_EQ(lines[1].text, head + PointerText(&anonymous) + " anonymous x\n");
    EXPECT_EQ(lines[2].text, head + PointerText(&named) + " (camera0;BinaryTag=abc): named 3\n");
    for (auto const& line : lines)
        EXPECT_EQ(line.group, Vorn::Log::GroupParameterParser);
}

struct LevelCase
{
    int level;
    char severity;
    char const* tag;
    uint32_t platformLevel;
};

TEST(ParameterLoggingTest, LevelChoosesTagLetterAndPlatformLevel)
{
    LevelCase const cases[] = {
        {0, 'V', "[VERBOSE]", 5},
        {1, 'W', "[WARNING]", 2},
        {2, 'E', "[ERROR]", 1},
        {3, 'V', "[VERBOSE]", 5}, // anything else logs as verbose
    };
    for (LevelCase const& c : cases) {
        SCOPED_TRACE(c.level);
        ParamTest::LogCapture capture;
        ParameterLogging::Write(nullptr, static_cast<ParameterLogging::ParameterLogLevel>(c.level),
                                "m\n");
        auto const lines = capture.Lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].severity, c.severity);
        EXPECT_EQ(lines[0].level, c.platformLevel);
        EXPECT_EQ(lines[0].text.rfind(std::string(c.tag) + " ParameterParser (Thread ", 0), 0u)
            << lines[0].text;
    }
}

TEST(ParameterLoggingTest, DisabledLevelDropsOnlyItsLines)
{
    TestLoggingApi api("id");
    api.Enable(ParameterLogging::LogVerbose, false);
    ParamTest::LogCapture capture;

    ParameterLogging::Write(&api, ParameterLogging::LogVerbose, "verbose\n");
    ParameterLogging::Write(&api, ParameterLogging::LogWarning, "warning\n");
    ParameterLogging::Write(&api, ParameterLogging::LogError, "error\n");
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"warning\n", "error\n"}));

    capture.Clear();
    api.Enable(ParameterLogging::LogVerbose, true);
    api.Enable(ParameterLogging::LogError, false);
    ParameterLogging::Write(&api, ParameterLogging::LogVerbose, "verbose\n");
    ParameterLogging::Write(&api, ParameterLogging::LogError, "error\n");
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"verbose\n"}));
}

TEST(ParameterLoggingTest, LongMessageIsCutNotOverrun)
{
    std::string const longText(5000, 'a');
    ParamTest::LogCapture capture;
    ParameterLogging::Write(nullptr, ParameterLogging::LogWarning, "%s|end\n", longText.c_str());
    auto const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 1u);
    std::string const& text = lines[0].text;
    EXPECT_EQ(text.size(), 4095u);
    EXPECT_EQ(text.find("|end"), std::string::npos);
    std::string const head = "[WARNING] ParameterParser (Thread " + ThreadText() + "): ";
    ASSERT_EQ(text.rfind(head, 0), 0u);
    EXPECT_EQ(text.find_first_not_of('a', head.size()), std::string::npos);
}

} // namespace
