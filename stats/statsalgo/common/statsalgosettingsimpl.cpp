// SPDX-License-Identifier: Apache-2.0
// StatsAlgoSettingsImpl: hash map of settings, precedence of file over code, override file reader.
#include "stats/statsalgo/common/statsalgosettingsimpl.h"

#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"
#include "platform/vornplatformconstants.h"

#include "parameterparser/parameterclocale.h"
#include "stats/statsalgo/common/statsalgosettingslog.h"

namespace {

constexpr size_t MaxMessageLength = 4096;
constexpr uint32_t SettingsGroup = Vorn::Log::GroupAlgoSettings;
constexpr size_t LineBufferSize = 256;
constexpr char const* OverrideSettingsFileName = "3AOverrideSettings.txt";
constexpr char const* WhiteSpace = " \t\n\r\f\v";

// A number counts as whole when the floating and the integer readings differ by less than this:
// the single-precision 1e-7, widened.
constexpr double WholeNumberTolerance = 1.0000000116860974e-7;

struct LevelTag
{
    char severity;
    char const* tag;
};

LevelTag TagOf(Vorn::Log::Level level)
{
    switch (level) {
    case Vorn::Log::LevelError:
        return {'E', "[ERROR]"};
    case Vorn::Log::LevelInfo:
        return {'I', "[ INFO]"};
    default:
        return {'V', "[ VERB]"};
    }
}

// Removes every white-space character of `line`, also inside a value, into `joined`.
void JoinWithoutWhiteSpace(char* line, char* joined, size_t size)
{
    char* context = nullptr;
    for (char* piece = Vorn::OsUtils::StrTokReentrant(line, WhiteSpace, &context); piece != nullptr;
         piece = Vorn::OsUtils::StrTokReentrant(nullptr, WhiteSpace, &context))
        Vorn::OsUtils::StrLCat(joined, piece, size);
}

} // namespace

void AlgoSettingsLog(Vorn::Log::Level level, char const* file, int line, char const* function,
                     char const* format, ...)
{
    if (level != Vorn::Log::LevelError &&
        (Vorn::Log::g_logInfo.groupMask[level] & SettingsGroup) == 0)
        return;

    char message[MaxMessageLength];
    // A setting's value is logged as the file writes it, whatever the host's locale.
    ParameterCLocaleScope const cLocale;
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof(message), format, args);
    va_end(args);

    LevelTag const tag = TagOf(level);
    Vorn::Log::LogSystem(SettingsGroup, tag.severity, level,
                         "%s (Process %u, Thread %u) %s %s:%d %s: %s", tag.tag,
                         Vorn::OsUtils::GetProcessID(), Vorn::OsUtils::GetThreadID(),
                         Vorn::Log::GroupToString(SettingsGroup), Vorn::Log::GetFileName(file),
                         line, function, message);
}

void AlgoSettingsTraceMark(char const* text)
{
    Vorn::OsUtils::TraceBegin(Vorn::Log::GroupAlgoSettings, text);
    Vorn::OsUtils::TraceEnd(Vorn::Log::GroupAlgoSettings);
}

StatsAlgoSettingsImpl StatsAlgoSettingsImpl::s_instance;
std::atomic<bool> StatsAlgoSettingsImpl::s_isInitialized{false};

StatsAlgoSettingsImpl* StatsAlgoSettingsImpl::GetAlgoSettingsImpl()
{
    if (s_isInitialized.load())
        return &s_instance;
    s_instance.Initialize();
    s_instance.LoadDefaultAlgoSettings();
    s_instance.LoadFileOverrideSettings();
    s_isInitialized.store(true);
    return &s_instance;
}

bool StatsAlgoSettingsImpl::Initialize()
{
    if (m_map != nullptr)
        return true;
    return Vorn::Hashmap::Create(&m_map, sizeof(uint32_t), 0, 0) == Vorn::Hashmap::Ok;
}

void StatsAlgoSettingsImpl::Cleanup()
{
    if (m_map == nullptr)
        return;
    Vorn::Hashmap::Foreach(m_map, &StatsAlgoSettingsImpl::CleanupData, nullptr, true);
    Vorn::Hashmap::Destroy(m_map);
    m_map = nullptr;
}

void StatsAlgoSettingsImpl::LoadDefaultAlgoSettings()
{
}

void StatsAlgoSettingsImpl::LoadFileOverrideSettings()
{
    ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "Enter LoadFileOverrideSettings");

    char path[LineBufferSize];
    Vorn::OsUtils::SNPrintF(path, sizeof(path), "%s%s%s", Vorn::OverrideSettingsPath,
                            Vorn::PathSeparator, OverrideSettingsFileName);
    FILE* file = Vorn::OsUtils::FOpen(path, "r");
    if (file == nullptr) {
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "couldn't find 3A algo override setting file");
    } else {
        // A line longer than the buffer is read in pieces, each handled as a line of its own.
        char line[LineBufferSize];
        while (std::fgets(line, sizeof(line), file) != nullptr) {
            char joined[LineBufferSize] = {};
            JoinWithoutWhiteSpace(line, joined, sizeof(joined));

            // Empty pieces are skipped, so "a==5" is key "a" with 5 and "=5" has no value.
            char* context = nullptr;
            char* key = Vorn::OsUtils::StrTokReentrant(joined, "=", &context);
            char* text = Vorn::OsUtils::StrTokReentrant(nullptr, "=", &context);
            if (key == nullptr || text == nullptr || text[0] == '\0' || key[0] == ';' ||
                key[0] == '#')
                continue;

            AlgoSettingValue value;
            int const type = ParseString(text, value);
            if (type == -1)
                continue;
            StoreValueImpl(key, static_cast<AlgoSettingDataType>(type), value,
                           AlgoSettingOverrideFile);
        }
        Vorn::OsUtils::FClose(file);
    }

    ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "Exit LoadFileOverrideSettings");
}

uint32_t StatsAlgoSettingsImpl::GenerateHashValueFromKey(char const* key)
{
    uint32_t hash = 0;
    if (key == nullptr)
        return hash;
    for (char const* c = key; *c != '\0'; ++c) {
        uint32_t const lower = static_cast<uint32_t>(std::tolower(static_cast<unsigned char>(*c)));
        hash = lower ^ ((hash >> 27) | (hash << 5));
    }
    return hash;
}

unsigned int StatsAlgoSettingsImpl::GetValueImpl(char const* key, AlgoSettingDataType& type,
                                                 AlgoSettingValue& value)
{
    uint32_t const hash = GenerateHashValueFromKey(key);
    void* found = nullptr;
    if (Vorn::Hashmap::Get(m_map, &hash, &found) != Vorn::Hashmap::Ok || found == nullptr) {
        ALGO_SETTINGS_LOG(Vorn::Log::LevelInfo, "Algo setting[%s] doesn't exist", key);
        return AlgoSettingNoSuchSetting;
    }

    auto const* entry = static_cast<AlgoSettingValueEntry const*>(found);
    type = entry->type;
    switch (entry->type) {
    case AlgoSettingInteger:
        value = entry->value.intValue;
        break;
    case AlgoSettingUnsigned:
        value = entry->value.unsignedValue;
        break;
    case AlgoSettingFloating:
        value = entry->value.floatValue;
        break;
    case AlgoSettingBoolean:
        value = entry->value.boolValue;
        break;
    case AlgoSettingString:
        value = std::string(entry->value.stringValue);
        break;
    default:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelInfo, "Incorrect value type: %d",
                          static_cast<int>(entry->type));
        return AlgoSettingWrongType;
    }
    return AlgoSettingDone;
}

unsigned int StatsAlgoSettingsImpl::StoreValueImpl(char const* key, AlgoSettingDataType type,
                                                   AlgoSettingValue const& value,
                                                   AlgoSettingOverride override)
{
    uint32_t const hash = GenerateHashValueFromKey(key);
    void* found = nullptr;
    if (Vorn::Hashmap::Get(m_map, &hash, &found) != Vorn::Hashmap::Ok || found == nullptr) {
        auto* entry = static_cast<AlgoSettingValueEntry*>(
            VornCalloc(sizeof(AlgoSettingValueEntry), VornTagAllocObject));
        if (entry == nullptr) {
            ALGO_SETTINGS_LOG(Vorn::Log::LevelError, "Failed to allocate algo setting entry!");
            AlgoSettingsTraceMark("Failed to allocate algo setting entry!");
            return AlgoSettingNoMemory;
        }
        // Filled before it is published, so a value of the wrong alternative leaves no entry.
        try {
            UpdateAlgoSettingValueEntry(key, hash, type, value, override, entry);
        } catch (...) {
            VornFree(entry, VornTagRelease);
            throw;
        }
        if (Vorn::Hashmap::Put(m_map, &hash, entry) != Vorn::Hashmap::Ok) {
            VornFree(entry, VornTagRelease);
            ALGO_SETTINGS_LOG(Vorn::Log::LevelError, "Failed to allocate algo setting entry!");
            AlgoSettingsTraceMark("Failed to allocate algo setting entry!");
            return AlgoSettingNoMemory;
        }
        PrintSettingRecord("Added:", entry);
        return AlgoSettingDone;
    }

    auto* entry = static_cast<AlgoSettingValueEntry*>(found);
    if (entry->override > override) {
        AlgoSettingValueEntry discarded = {};
        UpdateAlgoSettingValueEntry(key, hash, type, value, override, &discarded);
        PrintSettingRecord("Discarded:", &discarded);
        return AlgoSettingDone;
    }
    UpdateAlgoSettingValueEntry(key, hash, type, value, override, entry);
    Vorn::Hashmap::Put(m_map, &hash, entry);
    PrintSettingRecord("Overridden:", entry);
    return AlgoSettingDone;
}

void StatsAlgoSettingsImpl::UpdateAlgoSettingValueEntry(char const* key, uint32_t hash,
                                                        AlgoSettingDataType type,
                                                        AlgoSettingValue const& value,
                                                        AlgoSettingOverride override,
                                                        AlgoSettingValueEntry* entry)
{
    if (entry == nullptr)
        return;
    // The value is taken first, so a type that does not match the variant throws before the
    // entry is touched.
    decltype(entry->value) stored = {};
    switch (type) {
    case AlgoSettingInteger:
        stored.intValue = std::get<int>(value);
        break;
    case AlgoSettingUnsigned:
        stored.unsignedValue = std::get<unsigned int>(value);
        break;
    case AlgoSettingFloating:
        stored.floatValue = std::get<double>(value);
        break;
    case AlgoSettingBoolean:
        stored.boolValue = std::get<bool>(value);
        break;
    case AlgoSettingString:
        Vorn::OsUtils::StrLCpy(stored.stringValue, std::get<std::string>(value).c_str(),
                               sizeof(stored.stringValue));
        break;
    default:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelInfo, "Incorrect value type: %d", static_cast<int>(type));
        break;
    }
    Vorn::OsUtils::StrLCpy(entry->key, key, sizeof(entry->key));
    entry->hash = hash;
    entry->type = type;
    entry->override = override;
    entry->value = stored;
}

int StatsAlgoSettingsImpl::ParseString(char const* text, AlgoSettingValue& value)
{
    if (text == nullptr)
        return -1;

    // The file is written with a decimal point whatever locale the host has set: "1.5" must
    // not read as 1 in a host whose locale writes "1,5".
    ParameterCLocaleScope const cLocale;
    char* end = nullptr;
    double const number = std::strtod(text, &end);
    if (end == text) {
        // Only these exact spellings are boolean; "True" stays a string.
        if (std::strcmp(text, "true") == 0 || std::strcmp(text, "TRUE") == 0) {
            value = true;
            return AlgoSettingBoolean;
        }
        if (std::strcmp(text, "false") == 0 || std::strcmp(text, "FALSE") == 0) {
            value = false;
            return AlgoSettingBoolean;
        }
        value = std::string(text);
        return AlgoSettingString;
    }

    // The integer readers honour "0x" and a leading 0 (octal) where the floating reader reads
    // decimal, so "010" differs between them and ends up a double.
    int const asLong = static_cast<int>(std::strtol(text, nullptr, 0));
    unsigned int const asUnsigned = static_cast<unsigned int>(std::strtoul(text, nullptr, 0));
    double const difference = std::fabs(number - static_cast<double>(asLong));
    if (number > 0.0 && difference < WholeNumberTolerance) {
        value = asUnsigned;
        return AlgoSettingUnsigned;
    }
    if (!(number > 0.0) && difference < WholeNumberTolerance) {
        value = asLong;
        return AlgoSettingInteger;
    }
    value = number;
    return AlgoSettingFloating;
}

char const* StatsAlgoSettingsImpl::TypeName(int type)
{
    switch (type) {
    case AlgoSettingInteger:
        return "Integer";
    case AlgoSettingUnsigned:
        return "Unsigned";
    case AlgoSettingFloating:
        return "Floating";
    case AlgoSettingBoolean:
        return "Boolean";
    case AlgoSettingString:
        return "String";
    default:
        return "Invalid";
    }
}

int StatsAlgoSettingsImpl::ExtractDataVariantType(AlgoSettingValue const& value)
{
    size_t const index = value.index();
    return index < std::variant_size_v<AlgoSettingValue> ? static_cast<int>(index) : -1;
}

void StatsAlgoSettingsImpl::PrintSettingRecord(char const* label,
                                               AlgoSettingValueEntry const* entry)
{
    if (entry == nullptr)
        return;
    char const* const typeName = TypeName(entry->type);
    int const rank = static_cast<int>(entry->override);
    switch (entry->type) {
    case AlgoSettingInteger:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s [%s(%X)]: %d type:%s override:%d\n", label,
                          entry->key, entry->hash, entry->value.intValue, typeName, rank);
        break;
    case AlgoSettingBoolean:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s [%s(%X)]: %d type:%s override:%d\n", label,
                          entry->key, entry->hash, entry->value.boolValue ? 1 : 0, typeName, rank);
        break;
    case AlgoSettingUnsigned:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s [%s(%X)]: %u type:%s override:%d\n", label,
                          entry->key, entry->hash, entry->value.unsignedValue, typeName, rank);
        break;
    case AlgoSettingFloating:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s [%s(%X)]: %f type:%s override:%d\n", label,
                          entry->key, entry->hash, entry->value.floatValue, typeName, rank);
        break;
    case AlgoSettingString:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s [%s(%X)]: %s type:%s override:%d\n", label,
                          entry->key, entry->hash, entry->value.stringValue, typeName, rank);
        break;
    default:
        ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "%s Invalid type:%d for [%s(%X)]: override:%d\n",
                          label, static_cast<int>(entry->type), entry->key, entry->hash, rank);
        break;
    }
}

void StatsAlgoSettingsImpl::DumpImpl()
{
    ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "------------------------- Algo Settings Dump Begin "
                                               "-------------------------");
    Vorn::Hashmap::Foreach(m_map, &StatsAlgoSettingsImpl::DumpData, nullptr, false);
    ALGO_SETTINGS_LOG(Vorn::Log::LevelVerbose, "------------------------- Algo Settings Dump End "
                                               "---------------------------");
}

void StatsAlgoSettingsImpl::CleanupData(void const* key, void* value, void*)
{
    if (key == nullptr || value == nullptr)
        return;
    VornFree(value, VornTagRelease);
}

void StatsAlgoSettingsImpl::DumpData(void const* key, void* value, void*)
{
    if (key == nullptr || value == nullptr)
        return;
    PrintSettingRecord("Dump", static_cast<AlgoSettingValueEntry const*>(value));
}

void StatsAlgoSettingsImpl::ResetForTesting()
{
    s_instance.Cleanup();
    s_isInitialized.store(false);
}
