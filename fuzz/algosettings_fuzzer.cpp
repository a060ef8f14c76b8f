// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the override settings file read from arbitrary text, then the settings store.
// Aborts when a value the file or code stored is not read back as stored, when a code value
// replaces a file value, or when a number's text does not read back as the same number.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <variant>

#include <unistd.h>

#include "platform/vornplatformconstants.h"

#include "stats/statsalgo/common/statsalgosettings.h"
#include "stats/statsalgo/common/statsalgosettingsimpl.h"

#include "fuzz/fuzzsupport.h"

namespace {

// The line the target adds behind the input, so that one line's value is known for certain: the
// last line of a key wins, whatever came before it.
constexpr char CheckKey[] = "FuzzCheckKey";
constexpr char CheckKeyOtherCase[] = "fUZZcHECKkEY";
// Longer than the store keeps of a string, shorter than a line of the file.
constexpr size_t MaxCheckText = 100;
// The store takes a number this close to a whole one as that whole number (a little more than
// its own single-precision margin).
constexpr double WholeMargin = 2e-7;

// The file is written and read once a run: in memory where the host has a memory file system.
std::string g_folder;
std::string g_fileName;

bool MakeFolder(char const* parent)
{
    std::string name = std::string(parent) + "/algosettings-fuzz-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        return false;
    g_folder = name;
    return true;
}

using FuzzSupport::Require;

bool SameValue(AlgoSettingValue const& left, AlgoSettingValue const& right)
{
    if (left.index() != right.index())
        return false;
    if (auto const* number = std::get_if<double>(&left)) {
        double const other = std::get<double>(right);
        return *number == other || (std::isnan(*number) && std::isnan(other));
    }
    return left == right;
}

// The value as the store gives it back: strings keep at most 63 characters.
AlgoSettingValue AsStored(AlgoSettingValue value)
{
    if (auto* text = std::get_if<std::string>(&value))
        text->resize(std::min(text->size(), size_t{AlgoSettingTextSize - 1}));
    return value;
}

double AsNumber(AlgoSettingValue const& value)
{
    switch (value.index()) {
    case AlgoSettingInteger:
        return std::get<int>(value);
    case AlgoSettingUnsigned:
        return std::get<unsigned int>(value);
    case AlgoSettingFloating:
        return std::get<double>(value);
    default:
        return NAN;
    }
}

// The first line of the input, without the characters that a line of the file cannot carry
// inside a value: white space (removed by the reader), "=" (the separator) and NUL.
std::string CheckText(uint8_t const* data, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size && data[i] != '\n' && text.size() < MaxCheckText; ++i) {
        char const c = static_cast<char>(data[i]);
        if (c != '\0' && c != '=' && std::strchr(" \t\r\f\v", c) == nullptr)
            text.push_back(c);
    }
    return text;
}

bool WriteFile(uint8_t const* data, size_t size, std::string const& checkText)
{
    FILE* file = std::fopen(g_fileName.c_str(), "wb");
    if (file == nullptr)
        return false;
    std::fwrite(data, 1, size, file);
    std::fprintf(file, "\n%s=%s\n", CheckKey, checkText.c_str());
    return std::fclose(file) == 0;
}

// A number written with enough digits reads back as the same number. A whole number keeps its
// type. A floating one may come back whole: "1e3" is stored as a floating 1000 but "1000" as a
// whole one, and "1.000000005e1" as 10.00000005 but its seventeen digits as 10.
void CheckNumberText(AlgoSettingValue const& parsed, std::string const& text)
{
    char written[64];
    switch (parsed.index()) {
    case AlgoSettingInteger:
        std::snprintf(written, sizeof(written), "%d", std::get<int>(parsed));
        break;
    case AlgoSettingUnsigned:
        std::snprintf(written, sizeof(written), "%u", std::get<unsigned int>(parsed));
        break;
    case AlgoSettingFloating:
        std::snprintf(written, sizeof(written), "%.17g", std::get<double>(parsed));
        break;
    default:
        return;
    }
    AlgoSettingValue again;
    int const type = StatsAlgoSettingsImpl::ParseString(written, again);
    if (parsed.index() == AlgoSettingFloating) {
        double const before = std::get<double>(parsed);
        double const after = AsNumber(again);
        bool const same = type == AlgoSettingFloating
                              ? before == after || (std::isnan(before) && std::isnan(after))
                              : std::fabs(before - after) < WholeMargin;
        Require((type == AlgoSettingFloating || type == AlgoSettingInteger ||
                 type == AlgoSettingUnsigned) &&
                    same,
                "a floating number's text reads back as another number", text);
    } else {
        // A positive text that rounds to 0 ("0.00...07") is stored as an unsigned 0, whose text
        // "0" reads back as a signed 0: the same number under the other whole type.
        bool const sameWhole = (type == AlgoSettingInteger || type == AlgoSettingUnsigned) &&
                               AsNumber(again) == AsNumber(parsed);
        Require(SameValue(again, parsed) || sameWhole,
                "a whole number's text reads back differently", text);
    }
}

// A fresh load holds file values only: code cannot replace one, but fills a key the file lacks
// and then replaces its own value.
void CheckRanks(StatsAlgoSettings& settings, std::string const& key, AlgoSettingValue const& value)
{
    AlgoSettingDataType type{};
    AlgoSettingValue before;
    bool const fromFile = settings.GetValue(key, type, before) == AlgoSettingDone;
    AlgoSettingValue const replacement = std::string("code");
    for (AlgoSettingValue const& stored : {value, replacement}) {
        Require(settings.Set({{key, stored}}) == AlgoSettingDone, "a store by code failed", key);
        AlgoSettingValue after;
        Require(settings.GetValue(key, type, after) == AlgoSettingDone &&
                    static_cast<size_t>(type) == after.index(),
                "a stored key is missing", key);
        Require(SameValue(after, fromFile ? before : AsStored(stored)),
                fromFile ? "code replaced a file value" : "a code value reads back differently",
                key);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (!MakeFolder("/dev/shm") && !MakeFolder("/tmp")) {
        std::perror("mkdtemp");
        std::abort();
    }
    Vorn::OverrideSettingsPath = g_folder.c_str();
    g_fileName = g_folder + "/3AOverrideSettings.txt";
    std::atexit([] {
        unlink(g_fileName.c_str());
        rmdir(g_folder.c_str());
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::string const checkText = CheckText(data, size);
    if (!WriteFile(data, size, checkText))
        std::abort();
    // The store reads the file again on its next use.
    StatsAlgoSettingsImpl::ResetForTesting();
    StatsAlgoSettings& settings = *StatsAlgoSettings::GetInstance();

    AlgoSettingValue parsed;
    int const parsedType = StatsAlgoSettingsImpl::ParseString(checkText.c_str(), parsed);
    Require(parsedType >= 0 && static_cast<size_t>(parsedType) == parsed.index(),
            "the parsed type is not the value's", checkText);
    CheckNumberText(parsed, checkText);

    // An empty value stores nothing.
    AlgoSettingDataType type{};
    AlgoSettingValue read;
    unsigned int const result = settings.GetValue(CheckKeyOtherCase, type, read);
    if (checkText.empty()) {
        CheckRanks(settings, CheckKey, parsed);
    } else {
        Require(result == AlgoSettingDone && SameValue(read, AsStored(parsed)) &&
                    static_cast<size_t>(type) == read.index(),
                "the file's last line reads back differently", checkText);
        CheckRanks(settings, CheckKey, std::string("replacement"));
    }
    CheckRanks(settings, checkText, parsed);
    return 0;
}
