// SPDX-License-Identifier: Apache-2.0
// The settings store: value parsing, key hashing, precedence of file over code, the override
// file's line rules, results, logging and cleanup.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"
#include "platform/vornlog.h"
#include "platform/vornplatformconstants.h"

#include "stats/statsalgo/common/statsalgosettings.h"
#include "stats/statsalgo/common/statsalgosettingsimpl.h"

#include "tests/common/logcapture.h"

namespace {

constexpr uint32_t SettingsGroup = Vorn::Log::GroupAlgoSettings;

// The message of each settings line: what follows "<file>:<line> <function>: ".
std::vector<std::string> SettingsMessages(ParamTest::LogCapture const& capture)
{
    std::vector<std::string> messages;
    for (ParamTest::LogLine const& line : capture.Lines()) {
        if (line.group != SettingsGroup)
            continue;
        size_t const group = line.text.find(" ALGOSETTINGS ");
        size_t const colon = line.text.find(": ", group);
        messages.push_back(colon == std::string::npos ? line.text : line.text.substr(colon + 2));
    }
    return messages;
}

bool HasSettingsMessage(ParamTest::LogCapture const& capture, std::string const& text)
{
    for (std::string const& message : SettingsMessages(capture)) {
        if (message == text)
            return true;
    }
    return false;
}

size_t CountSettingsMessages(ParamTest::LogCapture const& capture, std::string const& prefix)
{
    size_t count = 0;
    for (std::string const& message : SettingsMessages(capture))
        count += message.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
    return count;
}

// Each test starts from an empty store whose override file lives in a fresh temporary folder,
// with info and verbose lines of the settings group switched on.
class AlgoSettingsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/algosettings.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_folder = pattern;
        m_savedPath = Vorn::OverrideSettingsPath;
        Vorn::OverrideSettingsPath = m_folder.c_str();
        m_savedInfo = Vorn::Log::g_logInfo;
        Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelInfo] |= SettingsGroup;
        Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelVerbose] |= SettingsGroup;
        // The first GetInstance of the process creates the store; the reset after it leaves the
        // store empty, to be filled from the override file on its next use.
        m_settings = StatsAlgoSettings::GetInstance();
        StatsAlgoSettingsImpl::ResetForTesting();
    }

    void TearDown() override
    {
        StatsAlgoSettingsImpl::ResetForTesting();
        Vorn::OverrideSettingsPath = m_savedPath;
        Vorn::Log::g_logInfo = m_savedInfo;
        std::remove(FilePath().c_str());
        rmdir(m_folder.c_str());
    }

    std::string FilePath() const { return m_folder + "/3AOverrideSettings.txt"; }

    void WriteOverrideFile(std::string const& text)
    {
        FILE* file = std::fopen(FilePath().c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fputs(text.c_str(), file);
        std::fclose(file);
    }

    // The store reads its file on first use after a reset.
    void Load() { StatsAlgoSettingsImpl::GetAlgoSettingsImpl(); }

    // The fixture's log, emptied: every line of the store goes to it, none to stderr.
    ParamTest::LogCapture& Log()
    {
        m_log.Clear();
        return m_log;
    }

    // Keys that a dump lists, taken from its "Dump [key(hash)]" lines. Empties the log.
    std::set<std::string> DumpedKeys()
    {
        ParamTest::LogCapture const& log = Log();
        m_settings->Dump();
        std::set<std::string> keys;
        for (std::string const& message : SettingsMessages(log)) {
            if (message.compare(0, 6, "Dump [") != 0)
                continue;
            keys.insert(message.substr(6, message.find('(') - 6));
        }
        return keys;
    }

    StatsAlgoSettings* m_settings = nullptr;

private:
    ParamTest::LogCapture m_log;
    std::string m_folder;
    char const* m_savedPath = nullptr;
    Vorn::Log::LogInfo m_savedInfo = {};
};

struct ParseCase
{
    char const* text;
    int type;
    AlgoSettingValue value;
};

TEST(AlgoSettingsParseTest, ChoosesTypeFromFloatingAndIntegerReadings)
{
    ParseCase const cases[] = {
        {"10", AlgoSettingUnsigned, 10u},
        {"-10", AlgoSettingInteger, -10},
        {"0", AlgoSettingInteger, 0},
        {"1.5", AlgoSettingFloating, 1.5},
        // The point is the decimal point and a comma ends the number, whatever the locale.
        {"0.25", AlgoSettingFloating, 0.25},
        {"1,5", AlgoSettingUnsigned, 1u},
        // The floating reader reads hexadecimal too, so both readings agree.
        {"0x10", AlgoSettingUnsigned, 16u},
        // Octal for the integer reader, decimal for the floating one: they disagree.
        {"010", AlgoSettingFloating, 10.0},
        {"1e3", AlgoSettingFloating, 1000.0},
        {"5abc", AlgoSettingUnsigned, 5u},
        // Past the signed 32-bit range the integer reading is cut and no longer agrees.
        {"3000000000", AlgoSettingFloating, 3000000000.0},
        {"2147483647", AlgoSettingUnsigned, 2147483647u},
        {"-2147483648", AlgoSettingInteger, -2147483647 - 1},
        {"TRUE", AlgoSettingBoolean, true},
        {"true", AlgoSettingBoolean, true},
        {"false", AlgoSettingBoolean, false},
        {"FALSE", AlgoSettingBoolean, false},
        {"True", AlgoSettingString, std::string("True")},
        {"fAlse", AlgoSettingString, std::string("fAlse")},
        {"abc", AlgoSettingString, std::string("abc")},
    };
    for (ParseCase const& c : cases) {
        AlgoSettingValue value = 123;
        EXPECT_EQ(StatsAlgoSettingsImpl::ParseString(c.text, value), c.type) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }

    AlgoSettingValue untouched = 7;
    EXPECT_EQ(StatsAlgoSettingsImpl::ParseString(nullptr, untouched), -1);
    EXPECT_EQ(untouched, AlgoSettingValue(7));
}

TEST(AlgoSettingsHashTest, IsCaseBlindRotatingHash)
{
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey(nullptr), 0u);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey(""), 0u);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("a"), 0x61u);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("ab"), 0xC42u);
    // Long enough for bits to wrap around the 32-bit rotation.
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("AecTargetLumaOverride"),
              0x3823E5AEu);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("MaxFace"), 0x85B2881Eu);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("maxface"), 0x85B2881Eu);
}

TEST_F(AlgoSettingsTest, StoredValuesComeBackWithTheirType)
{
    Load();
    AlgoSettingsList const list = {{"frames", 5},
                                   {"limit", 7u},
                                   {"gain", 1.5},
                                   {"enabled", true},
                                   {"mode", std::string("hdr")}};
    EXPECT_EQ(m_settings->Set(list), AlgoSettingDone);

    for (auto const& [key, expected] : list) {
        AlgoSettingDataType type = AlgoSettingString;
        AlgoSettingValue value;
        EXPECT_EQ(m_settings->GetValue(key, type, value), AlgoSettingDone) << key;
        EXPECT_EQ(static_cast<size_t>(type), expected.index()) << key;
        EXPECT_EQ(value, expected) << key;
    }
    // Keys differing only in case are one setting.
    AlgoSettingDataType type = AlgoSettingString;
    AlgoSettingValue value;
    EXPECT_EQ(m_settings->GetValue("FRAMES", type, value), AlgoSettingDone);
    EXPECT_EQ(value, AlgoSettingValue(5));
}

TEST_F(AlgoSettingsTest, LongKeyAndStringAreCutTo63Characters)
{
    Load();
    std::string const longKey(80, 'k');
    std::string const longText(100, 'v');
    EXPECT_EQ(m_settings->StoreValue(longKey, AlgoSettingString, longText), AlgoSettingDone);

    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    ASSERT_EQ(m_settings->GetValue(longKey, type, value), AlgoSettingDone);
    EXPECT_EQ(type, AlgoSettingString);
    EXPECT_EQ(value, AlgoSettingValue(std::string(63, 'v')));
    EXPECT_EQ(DumpedKeys(), std::set<std::string>{std::string(63, 'k')});
}

TEST_F(AlgoSettingsTest, UnknownKeyReturnsSixAndLeavesOutputsAlone)
{
    Load();
    ParamTest::LogCapture& capture = Log();
    AlgoSettingDataType type = AlgoSettingBoolean;
    AlgoSettingValue value = 42;
    EXPECT_EQ(m_settings->GetValue("missing", type, value), AlgoSettingNoSuchSetting);
    EXPECT_EQ(type, AlgoSettingBoolean);
    EXPECT_EQ(value, AlgoSettingValue(42));
    EXPECT_TRUE(HasSettingsMessage(capture, "Algo setting[missing] doesn't exist"));

    // The line carries the info tag and its source; without the group's info bit it is not
    // written at all.
    std::vector<ParamTest::LogLine> const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].severity, 'I');
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].text.compare(0, 17, "[ INFO] (Process "), 0) << lines[0].text;
    EXPECT_NE(lines[0].text.find(" ALGOSETTINGS statsalgosettingsimpl.cpp:"), std::string::npos);
    EXPECT_NE(lines[0].text.find(" GetValueImpl: "), std::string::npos);

    capture.Clear();
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelInfo] &= ~SettingsGroup;
    EXPECT_EQ(m_settings->GetValue("missing", type, value), AlgoSettingNoSuchSetting);
    EXPECT_TRUE(capture.Lines().empty());
}

TEST_F(AlgoSettingsTest, NullKeyRaisesLogicError)
{
    Load();
    char const* const key = nullptr;
    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    EXPECT_THROW(m_settings->GetValue(key, type, value), std::logic_error);
    EXPECT_THROW(m_settings->StoreValue(key, AlgoSettingInteger, 1), std::logic_error);
}

TEST_F(AlgoSettingsTest, TypeNotMatchingTheValueThrowsAndStoresNothing)
{
    Load();
    EXPECT_THROW(m_settings->StoreValue("k", AlgoSettingInteger, 1.5), std::bad_variant_access);
    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    EXPECT_EQ(m_settings->GetValue("k", type, value), AlgoSettingNoSuchSetting);

    // An existing entry keeps its value when the replacement throws.
    ASSERT_EQ(m_settings->StoreValue("k", AlgoSettingInteger, 3), AlgoSettingDone);
    EXPECT_THROW(m_settings->StoreValue("k", AlgoSettingString, 4u), std::bad_variant_access);
    EXPECT_EQ(m_settings->GetValue("k", type, value), AlgoSettingDone);
    EXPECT_EQ(value, AlgoSettingValue(3));
}

TEST_F(AlgoSettingsTest, UnknownTypeIsStoredWithoutValueAndReadAsWrongType)
{
    Load();
    ParamTest::LogCapture& capture = Log();
    auto const bogus = static_cast<AlgoSettingDataType>(7);
    EXPECT_EQ(m_settings->StoreValue("odd", bogus, 1), AlgoSettingDone);
    EXPECT_TRUE(HasSettingsMessage(capture, "Incorrect value type: 7"));
    EXPECT_TRUE(
        HasSettingsMessage(capture, "Added: Invalid type:7 for [odd(1B0E4)]: override:0\n"));

    capture.Clear();
    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value = 9;
    EXPECT_EQ(m_settings->GetValue("odd", type, value), AlgoSettingWrongType);
    EXPECT_TRUE(HasSettingsMessage(capture, "Incorrect value type: 7"));
    EXPECT_EQ(value, AlgoSettingValue(9));
}

TEST_F(AlgoSettingsTest, AllocationFailureReturnsEightAndLogsAnErrorEvenWhenQuiet)
{
    Load();
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelVerbose] &= ~SettingsGroup;
    ParamTest::LogCapture& capture = Log();
    Vorn::Testing::FailAllocationsAfter(0);
    unsigned int const result = m_settings->StoreValue("k", AlgoSettingUnsigned, 1u);
    Vorn::Testing::ResetAllocationFailure();
    EXPECT_EQ(result, AlgoSettingNoMemory);
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Lines()[0].severity, 'E');
    EXPECT_EQ(capture.Lines()[0].text.compare(0, 8, "[ERROR] "), 0);
    EXPECT_TRUE(HasSettingsMessage(capture, "Failed to allocate algo setting entry!"));
    EXPECT_TRUE(DumpedKeys().empty());
}

TEST_F(AlgoSettingsTest, LaterStoreFromCodeOverridesEarlierOne)
{
    Load();
    ParamTest::LogCapture& capture = Log();
    EXPECT_EQ(m_settings->StoreValue("exposure", AlgoSettingInteger, 1), AlgoSettingDone);
    EXPECT_EQ(m_settings->StoreValue("Exposure", AlgoSettingFloating, 2.5), AlgoSettingDone);
    EXPECT_TRUE(
        HasSettingsMessage(capture, "Added: [exposure(E6C85913)]: 1 type:Integer override:0\n"));
    EXPECT_TRUE(HasSettingsMessage(
        capture, "Overridden: [Exposure(E6C85913)]: 2.500000 type:Floating override:0\n"));

    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    EXPECT_EQ(m_settings->GetValue("exposure", type, value), AlgoSettingDone);
    EXPECT_EQ(type, AlgoSettingFloating);
    EXPECT_EQ(value, AlgoSettingValue(2.5));
    EXPECT_EQ(DumpedKeys(), std::set<std::string>{"Exposure"});
}

TEST_F(AlgoSettingsTest, FileValueBeatsEveryStoreFromCode)
{
    WriteOverrideFile("MaxFace=3\nmaxface=4\n");
    Load();
    ParamTest::LogCapture& capture = Log();
    EXPECT_EQ(m_settings->StoreValue("MAXFACE", AlgoSettingUnsigned, 9u), AlgoSettingDone);
    EXPECT_EQ(m_settings->Set({{"maxFace", 10u}}), AlgoSettingDone);
    EXPECT_EQ(CountSettingsMessages(capture, "Discarded: [MAXFACE(85B2881E)]: 9 type:Unsigned "
                                             "override:0\n"),
              1u);
    EXPECT_TRUE(HasSettingsMessage(
        capture, "Discarded: [maxFace(85B2881E)]: 10 type:Unsigned override:0\n"));

    // Within the file the later line wins, with its own spelling of the key.
    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    EXPECT_EQ(m_settings->GetValue("MaxFace", type, value), AlgoSettingDone);
    EXPECT_EQ(type, AlgoSettingUnsigned);
    EXPECT_EQ(value, AlgoSettingValue(4u));
    EXPECT_EQ(DumpedKeys(), std::set<std::string>{"maxface"});
}

TEST_F(AlgoSettingsTest, MalformedOverrideFileKeepsOnlyWellFormedLines)
{
    // fgets reads at most 255 characters, so the tail of a longer line is a line of its own.
    std::string const longLine = "pad=" + std::string(251, 'a') + "tail=9\n";
    WriteOverrideFile("# comment = 1\n"
                      ";disabled=2\n"
                      "novalue=\n"
                      "=5\n"
                      "noequals\n"
                      "\n"
                      " \t \r\n"
                      "a==5\n"
                      "multi=1=2\n"
                      "spaced key = b c\n"
                      "trailing = 7 # note\n"
                      "hex=0x10\n"
                      "octal=010\n"
                      "flag=TRUE\n"
                      "word=True\n"
                      "negative=-3\n" +
                      longLine + "last=2.5");
    ParamTest::LogCapture& capture = Log();
    Load();
    EXPECT_TRUE(HasSettingsMessage(capture, "Enter LoadFileOverrideSettings"));
    EXPECT_TRUE(HasSettingsMessage(capture, "Exit LoadFileOverrideSettings"));
    EXPECT_FALSE(HasSettingsMessage(capture, "couldn't find 3A algo override setting file"));

    struct Expected
    {
        char const* key;
        AlgoSettingDataType type;
        AlgoSettingValue value;
    };
    Expected const expected[] = {
        {"a", AlgoSettingUnsigned, 5u},
        {"multi", AlgoSettingUnsigned, 1u},
        {"spacedkey", AlgoSettingString, std::string("bc")},
        // White space is removed before the split, so the comment joins the value; the number
        // readers stop at it.
        {"trailing", AlgoSettingUnsigned, 7u},
        {"hex", AlgoSettingUnsigned, 16u},
        {"octal", AlgoSettingFloating, 10.0},
        {"flag", AlgoSettingBoolean, true},
        {"word", AlgoSettingString, std::string("True")},
        {"negative", AlgoSettingInteger, -3},
        {"pad", AlgoSettingString, std::string(63, 'a')},
        {"tail", AlgoSettingUnsigned, 9u},
        {"last", AlgoSettingFloating, 2.5},
    };
    std::set<std::string> expectedKeys;
    for (Expected const& e : expected) {
        expectedKeys.insert(e.key);
        AlgoSettingDataType type = AlgoSettingInteger;
        AlgoSettingValue value;
        ASSERT_EQ(m_settings->GetValue(e.key, type, value), AlgoSettingDone) << e.key;
        EXPECT_EQ(type, e.type) << e.key;
        EXPECT_EQ(value, e.value) << e.key;
    }
    EXPECT_TRUE(
        HasSettingsMessage(capture, "Added: [spacedkey(8063D041)]: bc type:String override:1\n"));
    // Comments, lines without "=" or without a value, and empty lines store nothing.
    EXPECT_EQ(DumpedKeys(), expectedKeys);
}

TEST_F(AlgoSettingsTest, MissingFileLeavesStoreEmpty)
{
    ParamTest::LogCapture& capture = Log();
    Load();
    std::vector<std::string> const messages = SettingsMessages(capture);
    std::vector<std::string> const expected = {"Enter LoadFileOverrideSettings",
                                               "couldn't find 3A algo override setting file",
                                               "Exit LoadFileOverrideSettings"};
    EXPECT_EQ(messages, expected);
    EXPECT_TRUE(DumpedKeys().empty());
}

TEST_F(AlgoSettingsTest, DumpListsEveryEntryBetweenBeginAndEnd)
{
    Load();
    ASSERT_EQ(m_settings->Set({{"b", true}, {"u", 3u}}), AlgoSettingDone);
    ParamTest::LogCapture& capture = Log();
    m_settings->Dump();
    std::vector<std::string> const messages = SettingsMessages(capture);
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages.front(), "------------------------- Algo Settings Dump Begin "
                                "-------------------------");
    EXPECT_EQ(messages.back(), "------------------------- Algo Settings Dump End "
                               "---------------------------");
    std::set<std::string> const records(messages.begin() + 1, messages.end() - 1);
    EXPECT_EQ(records, (std::set<std::string>{"Dump [b(62)]: 1 type:Boolean override:0\n",
                                              "Dump [u(75)]: 3 type:Unsigned override:0\n"}));
}

TEST_F(AlgoSettingsTest, CleanupFreesEveryEntry)
{
    Load();
    size_t const before = Vorn::Testing::AllocatedBytes();
    ASSERT_EQ(m_settings->Set({{"one", 1}, {"two", 2}, {"three", 3}}), AlgoSettingDone);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before + 3 * sizeof(AlgoSettingValueEntry));

    StatsAlgoSettingsImpl::GetAlgoSettingsImpl()->Cleanup();
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
    AlgoSettingDataType type = AlgoSettingInteger;
    AlgoSettingValue value;
    EXPECT_EQ(m_settings->GetValue("one", type, value), AlgoSettingNoSuchSetting);
}

} // namespace
