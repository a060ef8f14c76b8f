// SPDX-License-Identifier: Apache-2.0
// The settings store: value parsing, key hashing, every kind of write read back, precedence of
// file over code, the override file's line rules, results, logging and cleanup.
#include <cstdio>
#include <iterator>
#include <string>
#include <tuple>
#include <variant>

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
        // The reset after the first GetInstance leaves the store empty, to be filled from the
        // override file on its next use.
        m_settings = StatsAlgoSettings::GetInstance();
        StatsAlgoSettingsImpl::ResetForTesting();
        m_log.Clear();
    }

    void TearDown() override
    {
        StatsAlgoSettingsImpl::ResetForTesting();
        Vorn::OverrideSettingsPath = m_savedPath;
        Vorn::Log::g_logInfo = m_savedInfo;
        std::remove((m_folder + "/3AOverrideSettings.txt").c_str());
        rmdir(m_folder.c_str());
    }

    // Writes the override file (unless null) and lets the store read it.
    void Load(char const* text = nullptr)
    {
        if (text != nullptr) {
            FILE* file = std::fopen((m_folder + "/3AOverrideSettings.txt").c_str(), "w");
            ASSERT_NE(file, nullptr);
            std::fputs(text, file);
            std::fclose(file);
        }
        StatsAlgoSettingsImpl::GetAlgoSettingsImpl();
    }

    // The setting read back: its result, type and value.
    std::tuple<unsigned int, int, AlgoSettingValue> Read(std::string const& key)
    {
        AlgoSettingDataType type = static_cast<AlgoSettingDataType>(-1);
        AlgoSettingValue value = -99;
        unsigned int const result = m_settings->GetValue(key, type, value);
        return {result, static_cast<int>(type), value};
    }

    std::tuple<unsigned int, int, AlgoSettingValue> Stored(AlgoSettingValue const& value) const
    {
        return {AlgoSettingDone, static_cast<int>(value.index()), value};
    }

    // How many entries a dump lists.
    size_t DumpedCount()
    {
        m_log.Clear();
        m_settings->Dump();
        return m_log.Count(" Dump [");
    }

    StatsAlgoSettings* m_settings = nullptr;
    ParamTest::LogCapture m_log;

private:
    std::string m_folder;
    char const* m_savedPath = nullptr;
    Vorn::Log::LogInfo m_savedInfo = {};
};

TEST(AlgoSettingsParseTest, ChoosesTypeFromFloatingAndIntegerReadings)
{
    // The point is the decimal point and a comma ends the number, whatever the locale; octal for
    // the integer reader is decimal for the floating one; past the signed 32-bit range the
    // integer reading no longer agrees; only the listed spellings are boolean.
    std::tuple<char const*, int, AlgoSettingValue> const cases[] = {
        {"10", AlgoSettingUnsigned, 10u},
        {"-10", AlgoSettingInteger, -10},
        {"0", AlgoSettingInteger, 0},
        {"1.5", AlgoSettingFloating, 1.5},
        {"1,5", AlgoSettingUnsigned, 1u},
        {"0x10", AlgoSettingUnsigned, 16u},
        {"010", AlgoSettingFloating, 10.0},
        {"1.00000012", AlgoSettingFloating, 1.00000012},
        {"1.0000001", AlgoSettingUnsigned, 1u},
        {"0.00000007", AlgoSettingUnsigned, 0u},
        {"1e3", AlgoSettingFloating, 1000.0},
        {"0.00000010000000116860974", AlgoSettingFloating, 1.0000000116860974e-7},
        {"5abc", AlgoSettingUnsigned, 5u},
        {"3000000000", AlgoSettingFloating, 3000000000.0},
        {"2147483647", AlgoSettingUnsigned, 2147483647u},
        {"-2147483648", AlgoSettingInteger, -2147483647 - 1},
        {"TRUE", AlgoSettingBoolean, true},
        {"true", AlgoSettingBoolean, true},
        {"false", AlgoSettingBoolean, false},
        {"FALSE", AlgoSettingBoolean, false},
        {"True", AlgoSettingString, std::string("True")},
        {"abc", AlgoSettingString, std::string("abc")}};
    for (auto const& [text, type, expected] : cases) {
        AlgoSettingValue value = 123;
        EXPECT_EQ(StatsAlgoSettingsImpl::ParseString(text, value), type) << text;
        EXPECT_EQ(value, expected) << text;
    }
    AlgoSettingValue untouched = 7;
    EXPECT_EQ(StatsAlgoSettingsImpl::ParseString(nullptr, untouched), -1);
    EXPECT_EQ(untouched, AlgoSettingValue(7));

    // The key hash rotates in 32 bits; a null key hashes to 0.
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey("AecTargetLumaOverride"),
              0x3823E5AEu);
    EXPECT_EQ(StatsAlgoSettingsImpl::GenerateHashValueFromKey(nullptr), 0u);
}

TEST_F(AlgoSettingsTest, EveryWriteIsReadBack)
{
    // Without an override file the store starts empty.
    Load();
    EXPECT_EQ(m_log.Count(": couldn't find 3A algo override setting file"), 1u);
    EXPECT_EQ(DumpedCount(), 0u);
    AlgoSettingsList const list = {{"exposure", 5},
                                   {"limit", 7u},
                                   {"gain", 1.5},
                                   {"enabled", true},
                                   {"mode", std::string("hdr")}};
    EXPECT_EQ(m_settings->Set(list), AlgoSettingDone);
    for (auto const& [key, value] : list)
        EXPECT_EQ(Read(key), Stored(value)) << key;
    EXPECT_EQ(Read("EXPOSURE"), Stored(5)); // keys differing only in case are one setting

    // A later store from code replaces an earlier one, type and spelling included.
    EXPECT_EQ(m_settings->StoreValue("Exposure", AlgoSettingFloating, 2.5), AlgoSettingDone);
    EXPECT_EQ(Read("exposure"), Stored(2.5));
    EXPECT_EQ(m_log.Count(": Added: [exposure(E6C85913)]: 5 type:Integer override:0\n"), 1u);
    EXPECT_EQ(
        m_log.Count(": Overridden: [Exposure(E6C85913)]: 2.500000 type:Floating override:0\n"), 1u);
    EXPECT_EQ(DumpedCount(), 5u);
    EXPECT_EQ(m_log.Count(": Dump [Exposure(E6C85913)]: 2.500000 type:Floating override:0\n"), 1u);
    EXPECT_EQ(m_log.Count(" Algo Settings Dump Begin "), 1u);
    EXPECT_EQ(m_log.Count(" Algo Settings Dump End "), 1u);

    // Keys and string values keep 63 characters; 63 are kept whole. Keys are told apart by the
    // hash of the whole key.
    for (size_t length : {63u, 64u, 100u}) {
        std::string const key(length, 'k');
        EXPECT_EQ(m_settings->StoreValue(key, AlgoSettingString, std::string(length, 'v')),
                  AlgoSettingDone);
        EXPECT_EQ(Read(key), Stored(std::string(63, 'v'))) << length;
    }
    EXPECT_EQ(DumpedCount(), 8u);
    EXPECT_EQ(m_log.Count(": Dump [" + std::string(63, 'k') + "("), 3u);

    // Everything is freed by a cleanup.
    size_t const before = Vorn::Testing::AllocatedBytes();
    StatsAlgoSettingsImpl::GetAlgoSettingsImpl()->Cleanup();
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before - 8 * sizeof(AlgoSettingValueEntry));
    EXPECT_EQ(std::get<0>(Read("limit")), AlgoSettingNoSuchSetting);
}

TEST_F(AlgoSettingsTest, FileValuesBeatEveryStoreFromCode)
{
    Load("MaxFace=3\nmaxface=4\n");
    m_log.Clear();
    EXPECT_EQ(m_settings->StoreValue("MAXFACE", AlgoSettingUnsigned, 9u), AlgoSettingDone);
    EXPECT_EQ(m_settings->Set({{"maxFace", 10u}}), AlgoSettingDone);
    EXPECT_EQ(m_log.Count(": Discarded: [MAXFACE(85B2881E)]: 9 type:Unsigned override:0\n"), 1u);
    EXPECT_EQ(m_log.Count(": Discarded: [maxFace(85B2881E)]: 10 type:Unsigned override:0\n"), 1u);
    // Within the file the later line wins.
    EXPECT_EQ(Read("MaxFace"), Stored(4u));
    EXPECT_EQ(DumpedCount(), 1u);
    EXPECT_EQ(m_log.Count(": Dump [maxface(85B2881E)]: 4 type:Unsigned override:1\n"), 1u);
}

TEST_F(AlgoSettingsTest, OverrideFileKeepsOnlyWellFormedLines)
{
    // fgets reads at most 255 characters, so the tail of a longer line is a line of its own.
    std::string const text =
        "# comment = 1\n;disabled=2\nnovalue=\n=5\nnoequals\n\n \t \r\na==5\nmulti=1=2\nspaced key "
        "= b c\ntrailing = 7 # note\nflag=TRUE\nnegative=-3\npad=" +
        std::string(251, 'a') + "tail=9\nlast=2.5";
    Load(text.c_str());
    // White space is removed before the split, so a comment joins the value.
    std::tuple<char const*, AlgoSettingValue> const expected[] = {
        {"a", 5u},      {"multi", 1u},    {"spacedkey", std::string("bc")}, {"trailing", 7u},
        {"flag", true}, {"negative", -3}, {"pad", std::string(63, 'a')},    {"tail", 9u},
        {"last", 2.5},
    };
    for (auto const& [key, value] : expected)
        EXPECT_EQ(Read(key), Stored(value)) << key;
    EXPECT_EQ(DumpedCount(), std::size(expected));
    EXPECT_EQ(m_log.Count(": Dump [spacedkey(8063D041)]: bc type:String override:1\n"), 1u);
}

TEST_F(AlgoSettingsTest, FailedReadsAndWritesChangeNothing)
{
    Load();
    m_log.Clear();
    // An unknown key: 6, outputs untouched, one info line with its source.
    EXPECT_EQ(Read("missing"),
              (std::tuple<unsigned int, int, AlgoSettingValue>{AlgoSettingNoSuchSetting, -1, -99}));
    ASSERT_EQ(m_log.Lines().size(), 1u);
    EXPECT_EQ(m_log.Lines()[0].severity, 'I');
    EXPECT_EQ(m_log.Count(" ALGOSETTINGS statsalgosettingsimpl.cpp:"), 1u);
    EXPECT_EQ(m_log.Count(" GetValueImpl: Algo setting[missing] doesn't exist"), 1u);
    // Info lines of the settings group are written only while the group is switched on.
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelInfo] &= ~SettingsGroup;
    EXPECT_EQ(std::get<0>(Read("missing")), AlgoSettingNoSuchSetting);
    EXPECT_EQ(m_log.Lines().size(), 1u);
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelInfo] |= SettingsGroup;

    // A type that does not match the value throws and stores nothing, nor replaces a value.
    EXPECT_THROW(m_settings->StoreValue("k", AlgoSettingInteger, 1.5), std::bad_variant_access);
    EXPECT_EQ(std::get<0>(Read("k")), AlgoSettingNoSuchSetting);
    ASSERT_EQ(m_settings->StoreValue("k", AlgoSettingInteger, 3), AlgoSettingDone);
    EXPECT_THROW(m_settings->StoreValue("k", AlgoSettingString, 4u), std::bad_variant_access);
    EXPECT_EQ(Read("k"), Stored(3));

    // An unknown type is stored without a value and read back as a wrong type.
    m_log.Clear();
    EXPECT_EQ(m_settings->StoreValue("odd", static_cast<AlgoSettingDataType>(7), 1),
              AlgoSettingDone);
    EXPECT_EQ(m_log.Count(": Added: Invalid type:7 for [odd(1B0E4)]: override:0\n"), 1u);
    EXPECT_EQ(Read("odd"),
              (std::tuple<unsigned int, int, AlgoSettingValue>{AlgoSettingWrongType, 7, -99}));
    EXPECT_EQ(m_log.Count(": Incorrect value type: 7"), 2u);

    // No memory for an entry: 8 and an error line even with verbose lines off.
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelVerbose] &= ~SettingsGroup;
    m_log.Clear();
    Vorn::Testing::FailAllocationsAfter(0);
    unsigned int const result = m_settings->StoreValue("new", AlgoSettingUnsigned, 1u);
    Vorn::Testing::ResetAllocationFailure();
    EXPECT_EQ(result, AlgoSettingNoMemory);
    ASSERT_EQ(m_log.Lines().size(), 1u);
    EXPECT_EQ(m_log.Lines()[0].text.compare(0, 8, "[ERROR] "), 0);
    EXPECT_EQ(m_log.Count(": Failed to allocate algo setting entry!"), 1u);
    EXPECT_EQ(std::get<0>(Read("new")), AlgoSettingNoSuchSetting);
}

} // namespace
