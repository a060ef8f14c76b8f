// SPDX-License-Identifier: Apache-2.0
// ParameterModeTree: the text forms of mode paths. Live tuning names modes ("Usecase.Preview");
// the tree is walked by numbers ("2.0"): these convert one form into the other.
#include <cstring>

#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetree.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"

namespace {

// The largest mode value that has a name.
constexpr unsigned int MaxModeValue = ModeEffect;
constexpr unsigned int ShorthandItemLength = 256;
constexpr unsigned int KnobbyItemLength = 512;
constexpr unsigned int PathItemLength = 10;
constexpr unsigned int StepTextLength = 12;

// Unsigned value of a run of decimal digits; the caller has checked them.
unsigned int ParseDigits(char const* text, size_t count)
{
    unsigned int value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value * 10 + static_cast<unsigned int>(text[i] - '0');
    return value;
}

bool NamesMatch(char const* name, size_t nameLength, char const* candidate)
{
    return std::strlen(candidate) == nameLength &&
           Vorn::OsUtils::StrNICmp(name, candidate, nameLength) == 0;
}

// A double as a 16-bit value the way an integer conversion would wrap it; values no integer
// holds give 0.
unsigned short ToUnsignedShort(double value)
{
    constexpr double Limit = 9.2e18;
    if (!(value > -Limit && value < Limit))
        return 0;
    return static_cast<unsigned short>(static_cast<long long>(value));
}

// Appends the named form of one mode path step ("2.0" gives "Usecase.Preview") to result.
void AppendNamedStep(char const* step, char* result, unsigned int resultLength)
{
    int const dot = ParameterUtils::GetStringPos(step, '.');
    char modeText[KnobbyItemLength] = {};
    ParameterUtils::GetSubString(step, '.', modeText, sizeof(modeText));
    bool ok = false;
    double const modeValue = ParameterUtils::StringToDouble(modeText, ok);
    bool const known = modeValue >= 0 && modeValue <= MaxModeValue;
    auto const modeIndex = known ? static_cast<unsigned int>(modeValue) : MaxModeValue + 1;
    if (known)
        Vorn::OsUtils::StrLCat(result, ModeEntry::GetModeName(modeIndex), resultLength);

    char const* subModeText = dot >= 0 ? step + dot + 1 : "";
    double const subModeValue = ParameterUtils::StringToDouble(subModeText, ok);
    char const* subModeName = nullptr;
    // Sub-mode rows are short; any larger value has no name.
    if (known && subModeValue >= 0 && subModeValue < 256)
        subModeName = ModeEntry::GetSubModeName(modeIndex, static_cast<unsigned int>(subModeValue));
    if (subModeName != nullptr) {
        Vorn::OsUtils::StrLCat(result, ".", resultLength);
        Vorn::OsUtils::StrLCat(result, subModeName, resultLength);
    } else if (modeValue != 0 && dot >= 0) {
        // A sub-mode without a name keeps its number: "1.2" reads as "Sensor.2".
        Vorn::OsUtils::StrLCat(result, step + dot, resultLength);
    }
}

// Appends each separator-delimited item of text to result, as append converts it, joined by the
// same separator. An empty text still holds one item.
template <typename Append>
void AppendEachItem(char const* text, char separator, char* result, unsigned int resultLength,
                    Append append)
{
    char const joint[2] = {separator, '\0'};
    size_t const length = std::strlen(text);
    size_t pos = 0;
    do {
        char item[KnobbyItemLength] = {};
        unsigned int const taken =
            ParameterUtils::GetSubString(text + pos, separator, item, sizeof(item));
        if (pos != 0)
            Vorn::OsUtils::StrLCat(result, joint, resultLength);
        append(item, result, resultLength);
        pos += taken + 1;
    } while (pos < length);
}

} // namespace

bool ParameterModeTree::GetModeBranchFromPath(char const* path, PList<TuningMode>& modeBranch)
{
    if (path == nullptr)
        return false;
    size_t const length = std::strlen(path);
    size_t pos = 0;
    while (pos < length) {
        char item[PathItemLength] = {};
        unsigned int const taken =
            ParameterUtils::GetSubString(path + pos, '|', item, sizeof(item));
        if (taken == 0)
            break;
        int const dot = ParameterUtils::GetStringPos(item, '.');
        for (unsigned int c = 0; c < taken; ++c) {
            if (static_cast<int>(c) != dot && (item[c] < '0' || item[c] > '9'))
                return false;
        }
        TuningMode step = {0, 0, 0};
        if (dot > 0) {
            auto const dotPos = static_cast<size_t>(dot);
            step.mode = ParseDigits(item, dotPos);
            step.subMode =
                static_cast<uint16_t>(ParseDigits(item + dotPos + 1, taken - dotPos - 1));
        } else {
            // Without a mode part the item is read from its second character on, as a sub-mode
            // of Default: "12" is 0.2.
            step.subMode = static_cast<uint16_t>(ParseDigits(item + 1, taken - 1));
        }
        modeBranch.Add(step);
        // An item cut at 9 characters loses its tenth as if that were the separator.
        pos += taken + 1;
    }
    return modeBranch.Count() != 0;
}

void ParameterModeTree::GetPathFromModeBranch(TuningMode const* modeBranch, unsigned int modeCount,
                                              char* path, unsigned int length)
{
    if (modeBranch == nullptr || modeCount == 0 || path == nullptr)
        return;
    for (unsigned int i = 0; i < modeCount; ++i) {
        if (!ValidateMode("GetPathFromModeBranch", modeBranch, i))
            break;
        if (i > 0)
            Vorn::OsUtils::StrLCat(path, "|", length);
        char step[StepTextLength] = {};
        Vorn::OsUtils::SNPrintF(step, sizeof(step), "%u.%u", modeBranch[i].mode,
                                static_cast<unsigned int>(modeBranch[i].subMode));
        Vorn::OsUtils::StrLCat(path, step, length);
    }
}

unsigned short ParameterModeTree::GetModeIndex(char const* name)
{
    if (name == nullptr)
        return 0;
    size_t const nameLength = std::strlen(name);
    for (unsigned int value = 0; value <= MaxModeValue; ++value) {
        if (NamesMatch(name, nameLength, ModeEntry::GetModeName(value)))
            return static_cast<unsigned short>(value);
    }
    return 0;
}

unsigned short ParameterModeTree::GetSubModeIndex(unsigned short mode, char const* name)
{
    if (name == nullptr)
        return 0;
    bool isNumber = false;
    double const number = ParameterUtils::StringToDouble(name, isNumber);
    if (isNumber)
        return ToUnsignedShort(number);
    size_t const nameLength = std::strlen(name);
    unsigned int const count = ModeEntry::GetSubModeNameCount(mode);
    for (unsigned int value = 0; value < count; ++value) {
        if (NamesMatch(name, nameLength, ModeEntry::GetSubModeName(mode, value)))
            return static_cast<unsigned short>(value);
    }
    return 0;
}

void ParameterModeTree::GetModeShorthand(char const* modes, char* result, unsigned int resultLength)
{
    if (result == nullptr || resultLength == 0)
        return;
    unsigned int out = 0;
    size_t const length = modes != nullptr ? std::strlen(modes) : 0;
    size_t pos = 0;
    bool ok = false;
    while (pos < length) {
        char item[ShorthandItemLength] = {};
        unsigned int const taken =
            ParameterUtils::GetSubString(modes + pos, '|', item, sizeof(item));
        // An empty item between two "|" ends the conversion.
        if (taken == 0)
            break;
        if (pos != 0 && out + 1 < resultLength)
            result[out++] = '|';
        char name[ShorthandItemLength] = {};
        ParameterUtils::GetSubString(item, '.', name, sizeof(name));
        unsigned short const modeValue = GetModeIndex(name);
        if (out < resultLength)
            out +=
                ParameterUtils::DoubleToString(modeValue, result + out, resultLength - out, 0, ok);
        int const dot = ParameterUtils::GetStringPos(item, '.');
        if (dot >= 0 && item[dot + 1] != '\0') {
            if (out + 1 < resultLength)
                result[out++] = '.';
            if (out < resultLength)
                out += ParameterUtils::DoubleToString(GetSubModeIndex(modeValue, item + dot + 1),
                                                      result + out, resultLength - out, 0, ok);
        }
        pos += taken + 1;
    }
    result[out < resultLength ? out : resultLength - 1] = '\0';
    result[resultLength - 1] = '\0';
}

void ParameterModeTree::GetKnobbyModesString(char const* modes, char* result,
                                             unsigned int resultLength)
{
    if (result == nullptr || resultLength == 0)
        return;
    result[0] = '\0';
    // Each path of the list is named step by step; an empty path names the Default root.
    AppendEachItem(modes != nullptr ? modes : "", ';', result, resultLength,
                   [](char const* path, char* out, unsigned int outLength) {
                       AppendEachItem(path, '|', out, outLength, AppendNamedStep);
                   });
}

// The manager's text forms of mode paths.

bool ParameterSetManager::GetModeBranchFromPath(char const* path, PList<TuningMode>& modeBranch)
{
    return ParameterModeTree::GetModeBranchFromPath(path, modeBranch);
}

void ParameterSetManager::GetPathFromModeBranch(TuningMode const* modeBranch,
                                                unsigned int modeCount, char* path,
                                                unsigned int length)
{
    MainManager()->m_modeTree.GetPathFromModeBranch(modeBranch, modeCount, path, length);
}

unsigned short ParameterSetManager::GetModeIndex(char const* name)
{
    return ParameterModeTree::GetModeIndex(name);
}

unsigned short ParameterSetManager::GetSubModeIndex(unsigned short mode, char const* name)
{
    return ParameterModeTree::GetSubModeIndex(mode, name);
}

void ParameterSetManager::GetModeShorthand(char const* modes, char* result,
                                           unsigned int resultLength)
{
    ParameterModeTree::GetModeShorthand(modes, result, resultLength);
}

void ParameterSetManager::GetKnobbyModesString(char const* modes, char* result,
                                               unsigned int resultLength)
{
    ParameterModeTree::GetKnobbyModesString(modes, result, resultLength);
}
