// SPDX-License-Identifier: Apache-2.0
// StatsAlgoSettings: the singleton front of the settings store and its exported entry points.
#include "stats/statsalgo/common/statsalgosettings.h"

#include "platform/vornlog.h"

#include "stats/statsalgo/common/statsalgosettingsimpl.h"
#include "stats/statsalgo/common/statsalgosettingslog.h"

StatsAlgoSettings StatsAlgoSettings::s_instance;
std::atomic<bool> StatsAlgoSettings::s_isInitialized{false};
std::once_flag StatsAlgoSettings::s_onceFlag;

StatsAlgoSettings* StatsAlgoSettings::GetInstance()
{
    if (s_isInitialized.load())
        return &s_instance;
    std::call_once(s_onceFlag, [] {
        StatsAlgoSettingsImpl::GetAlgoSettingsImpl();
        s_isInitialized.store(true);
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "Algo setting instance:%p created",
                          static_cast<void*>(&s_instance));
    });
    return &s_instance;
}

bool StatsAlgoSettings::IsInitialized()
{
    if (s_isInitialized.load())
        return true;
    ALGO_SETTINGS_LOG(Vorn::Log::LevelError, "Algo Setting not initialized!");
    AlgoSettingsTraceMark("Algo Setting not initialized!");
    return false;
}

unsigned int StatsAlgoSettings::GetValue(std::string const& key, AlgoSettingDataType& type,
                                         AlgoSettingValue& value)
{
    return StatsAlgoSettingsImpl::GetAlgoSettingsImpl()->GetValueImpl(key.c_str(), type, value);
}

unsigned int StatsAlgoSettings::StoreValue(std::string const& key, AlgoSettingDataType type,
                                           AlgoSettingValue const& value)
{
    if (!IsInitialized())
        return AlgoSettingNotInitialized;
    return StatsAlgoSettingsImpl::GetAlgoSettingsImpl()->StoreValueImpl(key.c_str(), type, value,
                                                                        AlgoSettingOverrideCode);
}

unsigned int StatsAlgoSettings::Set(AlgoSettingsList const& list)
{
    if (!IsInitialized())
        return AlgoSettingNotInitialized;
    for (auto const& [key, value] : list) {
        int const type = StatsAlgoSettingsImpl::ExtractDataVariantType(value);
        StoreValue(key, static_cast<AlgoSettingDataType>(type), value);
    }
    return AlgoSettingDone;
}

void StatsAlgoSettings::Dump()
{
    StatsAlgoSettingsImpl::GetAlgoSettingsImpl()->DumpImpl();
}

extern "C" {

StatsAlgoSettings* GetAlgoSettings()
{
    return StatsAlgoSettings::GetInstance();
}

StatsAlgoSettings* StatsAlgoSettingsEntry()
{
    return GetAlgoSettings();
}
}
