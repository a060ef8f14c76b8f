// SPDX-License-Identifier: Apache-2.0
// StatsAlgoSettingsImpl: the map behind the settings store and the reader of the override file.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/vornhashmap.h"

#include "parameterparser/parameterexport.h"
#include "stats/statsalgo/common/statsalgosettings.h"

/// Longest key and longest string value kept, each with its terminator.
constexpr unsigned int AlgoSettingTextSize = 64;

/// One stored setting: a zero-filled block from VornCalloc, owned by the map.
struct AlgoSettingValueEntry
{
    char key[AlgoSettingTextSize];
    uint32_t hash;
    AlgoSettingDataType type;
    union
    {
        int intValue;
        unsigned int unsignedValue;
        double floatValue;
        bool boolValue;
        char stringValue[AlgoSettingTextSize];
    } value;
    AlgoSettingOverride override;
};

/// The store: a map from key hash to entry, filled from the override file on first use.
class PARAMETERPARSER_API StatsAlgoSettingsImpl
{
public:
    /// The singleton; on its first call creates the map and reads the override file.
    static StatsAlgoSettingsImpl* GetAlgoSettingsImpl();

    /// Creates the empty map. False when the map could not be made (the store then stays empty
    /// and every lookup reports no such setting).
    bool Initialize();

    /// Frees every entry and the map; the store is empty afterwards.
    void Cleanup();

    /// No setting has a built-in default; kept as the place where defaults would be stored.
    void LoadDefaultAlgoSettings();

    /// Reads `<OverrideSettingsPath>/3AOverrideSettings.txt` line by line and stores each valid
    /// `key=value` line at the file's rank. A missing file leaves the store as it is.
    void LoadFileOverrideSettings();

    /// Case-blind hash of `key`: 0 for null or empty.
    static uint32_t GenerateHashValueFromKey(char const* key);

    /// See StatsAlgoSettings::GetValue.
    unsigned int GetValueImpl(char const* key, AlgoSettingDataType& type, AlgoSettingValue& value);

    /// Stores `value` at rank `override` unless the held value ranks higher. 0 (also when the
    /// value is discarded), or 8 when no entry could be allocated.
    unsigned int StoreValueImpl(char const* key, AlgoSettingDataType type,
                                AlgoSettingValue const& value, AlgoSettingOverride override);

    /// Writes key (cut to 63 characters), hash, type, rank and value into `entry`; null does
    /// nothing. Throws std::bad_variant_access when `value` does not hold the alternative `type`
    /// names; an unknown type logs "Incorrect value type: %d" and leaves the value zero.
    static void UpdateAlgoSettingValueEntry(char const* key, uint32_t hash,
                                            AlgoSettingDataType type, AlgoSettingValue const& value,
                                            AlgoSettingOverride override,
                                            AlgoSettingValueEntry* entry);

    /// Reads `text` as a number, a boolean word or a string; returns the type chosen and sets
    /// `value` to it. -1 for null text.
    static int ParseString(char const* text, AlgoSettingValue& value);

    /// "Integer", "Unsigned", "Floating", "Boolean", "String", or "Invalid".
    static char const* TypeName(int type);

    /// The index of the active alternative, or -1 if it is not one of the five.
    static int ExtractDataVariantType(AlgoSettingValue const& value);

    /// Logs one entry behind `label` (verbose).
    static void PrintSettingRecord(char const* label, AlgoSettingValueEntry const* entry);

    /// Logs every entry between a begin and an end line (verbose).
    void DumpImpl();

    /// Map visitors: free an entry, log an entry. A null value does nothing.
    static void CleanupData(void const* key, void* value, void* context);
    static void DumpData(void const* key, void* value, void* context);

    /// For tests only: empties the store and clears the initialised flag, so the next use creates
    /// the map and reads the override file again.
    static void ResetForTesting();

private:
    StatsAlgoSettingsImpl() = default;

    Vorn::Hashmap::Handle m_map = nullptr;

    static StatsAlgoSettingsImpl s_instance;
    static std::atomic<bool> s_isInitialized;
};
