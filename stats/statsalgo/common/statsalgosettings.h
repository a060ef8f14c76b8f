// SPDX-License-Identifier: Apache-2.0
// StatsAlgoSettings: the process-wide store of named values for the statistics algorithms.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "parameterparser/parameterexport.h"

/// The kind of a stored value; equals the index of the matching alternative of AlgoSettingValue.
enum AlgoSettingDataType : int
{
    AlgoSettingInteger = 0,
    AlgoSettingUnsigned = 1,
    AlgoSettingFloating = 2,
    AlgoSettingBoolean = 3,
    AlgoSettingString = 4,
};

/// Rank of a stored value; a higher rank is not replaced by a lower one.
enum AlgoSettingOverride : int
{
    AlgoSettingOverrideCode = 0,
    AlgoSettingOverrideFile = 1,
};

/// Results of the store's operations.
enum AlgoSettingResult : unsigned int
{
    AlgoSettingDone = 0,
    AlgoSettingNotInitialized = 3,
    AlgoSettingWrongType = 4,
    AlgoSettingNoSuchSetting = 6,
    AlgoSettingNoMemory = 8,
};

/// A value as callers hand it in and get it back. The order of the alternatives is fixed: the
/// active index is the value's AlgoSettingDataType.
using AlgoSettingValue = std::variant<int, unsigned int, double, bool, std::string>;

/// Pairs of key and value for StatsAlgoSettings::Set.
using AlgoSettingsList = std::vector<std::pair<std::string const, AlgoSettingValue>>;

/// The front of the store. Values stored by code rank below values from the override file, which
/// is read once, on the first use of the store. Keys are matched by a case-blind 32-bit hash.
class PARAMETERPARSER_API StatsAlgoSettings
{
public:
    /// The front holds no data: every object reaches the one process-wide store. Stores are
    /// refused until GetInstance has created the store.
    StatsAlgoSettings() = default;

    /// The singleton; creates the store and reads the override file on the first call, once per
    /// process whichever thread comes first. Logs "Algo setting instance:%p created" (verbose).
    static StatsAlgoSettings* GetInstance();

    /// Fills `type` and `value` from the setting named `key`. 6 (and both untouched) when there is
    /// no such setting, 4 when the stored entry has an unknown type, otherwise 0. A null key
    /// throws std::logic_error when the string is built.
    unsigned int GetValue(std::string const& key, AlgoSettingDataType& type,
                          AlgoSettingValue& value);

    /// Stores `value` under `key` at the rank of code: 0 also when a file value keeps the place
    /// ("Discarded:"), 3 before GetInstance ran ("Algo Setting not initialized!"), 8 when no entry
    /// could be allocated. `type` must name the alternative that `value` holds, otherwise
    /// std::bad_variant_access leaves the call.
    unsigned int StoreValue(std::string const& key, AlgoSettingDataType type,
                            AlgoSettingValue const& value);

    /// Stores every pair of `list` by its active alternative; the per-pair results are ignored.
    /// 3 before GetInstance ran, otherwise 0.
    unsigned int Set(AlgoSettingsList const& list);

    /// Logs every setting between a begin and an end line (verbose).
    void Dump();

private:
    static bool IsInitialized();

    static StatsAlgoSettings s_instance;
    static std::atomic<bool> s_isInitialized;
    static std::once_flag s_onceFlag;
};

extern "C" {

/// The address of the settings singleton (StatsAlgoSettings::GetInstance).
PARAMETERPARSER_API StatsAlgoSettings* GetAlgoSettings();

/// The same as GetAlgoSettings, under the entry name that hosts look up.
PARAMETERPARSER_API StatsAlgoSettings* StatsAlgoSettingsEntry();
}
