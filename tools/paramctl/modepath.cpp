// SPDX-License-Identifier: Apache-2.0
// ResolveModePath: strict and lenient reading of a mode path.
#include "tools/paramctl/modepath.h"

#include <cstdlib>
#include <vector>

#include <strings.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametersetmanager.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

// Mode values run from Default (0) to Effect (6).
constexpr unsigned int ModeValueCount = 7;

// Mode paths hold at most 128 characters.
constexpr unsigned int ModePathLength = 128;

struct Step
{
    unsigned int mode;
    unsigned int subMode;
};

// A decimal number below limit, the whole text.
bool Number(std::string const& text, unsigned long limit, unsigned int& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        text.size() > 6)
        return false;
    unsigned long const number = std::strtoul(text.c_str(), nullptr, 10);
    if (number >= limit)
        return false;
    value = static_cast<unsigned int>(number);
    return true;
}

} // namespace

bool ParseModeStep(std::string const& text, unsigned int& mode, unsigned int& subMode)
{
    Step step{};
    size_t const dot = text.find('.');
    std::string const modeText = text.substr(0, dot);
    bool found = Number(modeText, ModeValueCount, step.mode);
    for (unsigned int value = 0; !found && value < ModeValueCount; ++value) {
        char const* name = ModeEntry::GetModeName(value);
        if (name != nullptr && strcasecmp(name, modeText.c_str()) == 0) {
            step.mode = value;
            found = true;
        }
    }
    if (!found)
        return false;
    mode = step.mode;
    subMode = 0;
    // Only Default stands without a sub-mode.
    if (dot == std::string::npos)
        return step.mode == 0;
    std::string const subText = text.substr(dot + 1);
    if (Number(subText, 0x10000, subMode))
        return true;
    unsigned int const count = ModeEntry::GetSubModeNameCount(step.mode);
    for (unsigned int value = 0; value < count; ++value) {
        char const* name = ModeEntry::GetSubModeName(step.mode, value);
        if (name != nullptr && strcasecmp(name, subText.c_str()) == 0) {
            subMode = value;
            return true;
        }
    }
    return false;
}

namespace {

std::string NamedStep(Step const& step)
{
    char const* modeName = ModeEntry::GetModeName(step.mode);
    std::string text = modeName != nullptr ? modeName : std::to_string(step.mode);
    if (step.mode == 0)
        return text;
    char const* subName = ModeEntry::GetSubModeName(step.mode, step.subMode);
    return text + "." + (subName != nullptr ? subName : std::to_string(step.subMode));
}

} // namespace

bool ResolveModeSteps(std::string const& text, unsigned char table, ModeDescent const& descend,
                      ResolvedMode& resolved, std::string& error)
{
    std::vector<std::string> pieces;
    for (size_t start = 0;;) {
        size_t const bar = text.find('|', start);
        pieces.push_back(text.substr(start, bar == std::string::npos ? bar : bar - start));
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    resolved.named = "Default";
    resolved.numeric = "0.0";
    for (size_t i = 0; i < pieces.size(); ++i) {
        Step step{};
        bool const parsed = ParseModeStep(pieces[i], step.mode, step.subMode);
        if (i == 0) {
            if (parsed && step.mode == 0 && step.subMode == 0)
                continue;
            error = "mode path '" + Printable(text) + "' does not start at Default";
            return false;
        }
        if (parsed && descend(step.mode, step.subMode)) {
            resolved.named += "|" + NamedStep(step);
            resolved.numeric +=
                "|" + std::to_string(step.mode) + "." + std::to_string(step.subMode);
            continue;
        }
        error = pieces[i].empty() ? "mode path '" + Printable(text) + "' has an empty step"
                                  : "no mode '" + Printable(pieces[i]) + "' under " +
                                        resolved.named + " in mode table " + std::to_string(table);
        return false;
    }
    return true;
}

bool ResolveModePath(ParameterSetManager& manager, unsigned char table, std::string const& text,
                     bool lenient, ResolvedMode& resolved, std::string& error)
{
    unsigned int const tableCount = manager.GetModeTableCount();
    ParameterModeTable* modeTable = table < tableCount ? manager.GetModeTable(table) : nullptr;
    if (modeTable == nullptr || modeTable->rootMode == nullptr) {
        error = "the file has no mode table " + std::to_string(table) + " (it has " +
                std::to_string(tableCount) + ")";
        return false;
    }
    ModeEntry* node = modeTable->rootMode;
    auto const descend = [&node](unsigned int mode, unsigned int subMode) {
        for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling) {
            if (child->mode.Parts.mode == mode && child->mode.Parts.subMode == subMode) {
                node = child;
                return true;
            }
        }
        return false;
    };
    if (ResolveModeSteps(text, table, descend, resolved, error))
        return true;
    if (!lenient)
        return false;
    // The library reads the path its own way: unknown names count as 0, and the deepest mode of
    // the branch that exists holds the values. The branch shown stops at the step refused.
    if (text.find_first_not_of("0123456789.|") == std::string::npos) {
        resolved.numeric = text;
    } else {
        char numeric[ModePathLength] = {};
        manager.GetModeShorthand(text.c_str(), numeric, sizeof(numeric));
        resolved.numeric = numeric;
    }
    error.clear();
    return true;
}

std::string ModeStepName(ModeEntry const& node)
{
    unsigned int const mode = node.mode.Parts.mode;
    unsigned int const subMode = node.mode.Parts.subMode;
    char const* modeName = ModeEntry::GetModeName(mode);
    std::string step = modeName != nullptr ? modeName : std::to_string(mode);
    if (mode == ModeDefault)
        return step;
    char const* subName = ModeEntry::GetSubModeName(mode, subMode);
    return step + "." + (subName != nullptr ? subName : std::to_string(subMode));
}

} // namespace ParamCtl
