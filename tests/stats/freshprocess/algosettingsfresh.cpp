// SPDX-License-Identifier: Apache-2.0
// The settings front before and at the store's creation. Built as a program of its own: the store
// is created once per process, so only a process that never touched it sees it uninitialised.
#include <cstdio>

#include <gtest/gtest.h>

#include "platform/vornlog.h"
#include "platform/vornplatformconstants.h"

#include "stats/statsalgo/common/statsalgosettings.h"

#include "tests/common/logcapture.h"

namespace {

TEST(AlgoSettingsFreshProcessTest, StoresAreRefusedUntilGetInstanceCreatesTheStore)
{
    Vorn::OverrideSettingsPath = "/nonexistent-algosettings-folder";
    Vorn::Log::g_logInfo.groupMask[Vorn::Log::LevelVerbose] |= Vorn::Log::GroupAlgoSettings;
    ParamTest::LogCapture capture;

    StatsAlgoSettings front;
    EXPECT_EQ(front.Set({{"early", 1}}), AlgoSettingNotInitialized);
    EXPECT_EQ(front.StoreValue("early", AlgoSettingInteger, 1), AlgoSettingNotInitialized);
    EXPECT_EQ(front.Set({}), AlgoSettingNotInitialized);
    EXPECT_EQ(capture.Count(": Algo Setting not initialized!"), 3u);

    capture.Clear();
    StatsAlgoSettings* const instance = StatsAlgoSettings::GetInstance();
    ASSERT_NE(instance, nullptr);
    char created[64];
    std::snprintf(created, sizeof(created), ": Algo setting instance:%p created",
                  static_cast<void*>(instance));
    EXPECT_EQ(capture.Count(created), 1u);
    EXPECT_EQ(capture.Count(": couldn't find 3A algo override setting file"), 1u);

    // Later calls and the exported entry points return the same object without a second
    // creation.
    EXPECT_EQ(StatsAlgoSettings::GetInstance(), instance);
    EXPECT_EQ(GetAlgoSettings(), instance);
    EXPECT_EQ(StatsAlgoSettingsEntry(), instance);
    EXPECT_EQ(capture.Count(created), 1u);

    EXPECT_EQ(front.Set({}), AlgoSettingDone);
    EXPECT_EQ(front.Set({{"early", 1}}), AlgoSettingDone);
    AlgoSettingDataType type = AlgoSettingString;
    AlgoSettingValue value;
    EXPECT_EQ(instance->GetValue("early", type, value), AlgoSettingDone);
    EXPECT_EQ(value, AlgoSettingValue(1));
}

} // namespace
