// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: values by name, the text surface the live tuning worker and tools use.
#include <cstring>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parametervaluepath.h"

namespace {

// A module's instance name holds 64 characters and its terminator.
constexpr unsigned int ModuleNameLength = 65;
// A full value path inside a module, and one name of a sub-variable list.
constexpr unsigned int FullPathLength = 4096;
constexpr unsigned int TokenLength = 4096;
// One value's text when it is asked for by its own path.
constexpr unsigned int ValueLength = 65535;
// One element's text inside a whole-structure read: longer texts are cut to 64 characters.
constexpr unsigned int ElementValueLength = 65;

/// The value text of one call: a zeroed platform block (data tag), given back on every path.
class ValueBuffer
{
public:
    ValueBuffer() : m_text(static_cast<char*>(VornCalloc(ValueLength, VornTagAllocData))) {}
    ~ValueBuffer() { VornFree(m_text, VornTagRelease); }

    ValueBuffer(ValueBuffer const&) = delete;
    ValueBuffer& operator=(ValueBuffer const&) = delete;

    char* Text() { return m_text; }

private:
    char* m_text;
};

/// The text behind the module name and its ".", when variable has a path of at least two
/// characters there; null otherwise (a one-character path counts as none).
char const* PathBehindModule(char const* variable, unsigned int moduleLength)
{
    return moduleLength + 2 < std::strlen(variable) ? variable + moduleLength + 1 : nullptr;
}

/// The last "."-separated component of path: the name a value is shown under.
char const* LastComponent(char const* path)
{
    char const* dot = std::strrchr(path, '.');
    return dot != nullptr ? dot + 1 : path;
}

void Append(char* result, unsigned int resultLength, char const* text)
{
    Vorn::OsUtils::StrLCat(result, text != nullptr ? text : "", resultLength);
}

/// Appends "name=" to result, led by ";" unless it is the first item.
void AppendItemName(char* result, unsigned int resultLength, unsigned int itemsGiven,
                    char const* name)
{
    if (itemsGiven > 0)
        Append(result, resultLength, ";");
    Append(result, resultLength, name);
    Append(result, resultLength, "=");
}

/// Reads each member that GetInfo described under path, one GetValue an element, each element's
/// text cut at ElementValueLength. Structures (and arrays of them) have no text of their own and
/// are passed over. False at the first element that cannot be read, with the items before it in
/// result.
bool AppendDescribedValues(ParameterModule* module, char const* path,
                           PList<ParameterParserInfo> const& records, char* value, char* result,
                           unsigned int resultLength)
{
    unsigned int itemsGiven = 0;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        // The module code hands out these very objects: the pointers tell a structure apart.
        if (record.type == ParameterTypeNames::Module ||
            record.type == ParameterTypeNames::Structure)
            continue;
        char fullPath[FullPathLength] = {};
        Vorn::OsUtils::StrLCpy(fullPath, path, sizeof(fullPath));
        if (record.name != nullptr) {
            if (fullPath[0] != '\0')
                Vorn::OsUtils::StrLCat(fullPath, ".", sizeof(fullPath));
            Vorn::OsUtils::StrLCat(fullPath, record.name, sizeof(fullPath));
        }
        // A record without a name is the member that path itself names.
        char const* shownName = record.name != nullptr ? record.name : LastComponent(path);
        if (!record.isArray) {
            // A member that cannot be read leaves no "name=" behind: the items before it stand.
            if (!module->GetValue(fullPath, value, ElementValueLength))
                return false;
            AppendItemName(result, resultLength, itemsGiven, shownName);
            Append(result, resultLength, value);
            ++itemsGiven;
            continue;
        }
        AppendItemName(result, resultLength, itemsGiven, shownName);
        for (unsigned int index = 0; index < record.count; ++index) {
            char elementPath[FullPathLength] = {};
            Vorn::OsUtils::SNPrintF(elementPath, sizeof(elementPath), "%s[%u]", fullPath, index);
            bool const read = module->GetValue(elementPath, value, ElementValueLength);
            if (index > 0)
                Append(result, resultLength, ",");
            Append(result, resultLength, value);
            if (!read)
                return false;
        }
        ++itemsGiven;
    }
    return true;
}

} // namespace

bool ParameterSetManager::GetValue(unsigned char modeTableIndex, char const* modePath,
                                   char const* variable, char const* subVariables, char* result,
                                   unsigned int resultLength)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetValue(modeTableIndex, modePath, variable, subVariables, result,
                                       resultLength);
    if (variable == nullptr || result == nullptr || modePath == nullptr)
        return false;
    PList<TuningMode> branch;
    if (!GetModeBranchFromPath(modePath, branch))
        return false;
    // The branch form does not parse: the path's steps, root included, are the branch.
    return GetValue(modeTableIndex, branch.Items(), branch.Count(), variable, subVariables, result,
                    resultLength);
}

bool ParameterSetManager::GetValue(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                   unsigned int modeCount, char const* variable,
                                   char const* subVariables, char* result,
                                   unsigned int resultLength)
{
    if (modeBranch == nullptr || modeCount == 0)
        return false;
    if (variable == nullptr || result == nullptr || resultLength == 0)
        return false;
    char moduleName[ModuleNameLength] = {};
    unsigned int const moduleLength =
        ParameterUtils::GetSubString(variable, '.', moduleName, sizeof(moduleName));
    result[0] = '\0';

    // The reference taken here is kept: a mode read through this surface stays active.
    ParameterModule* module =
        GetModuleInternal(modeTableIndex, moduleName, modeBranch, modeCount, nullptr, false);
    if (module == nullptr)
        return false;
    ValueBuffer value;
    if (value.Text() == nullptr)
        return false;

    if (subVariables != nullptr) {
        char const* path = PathBehindModule(variable, moduleLength);
        bool read = false;
        unsigned int itemsGiven = 0;
        char const* rest = subVariables;
        while (*rest != '\0') {
            char name[TokenLength] = {};
            ParameterUtils::GetSubString(rest, ',', name, sizeof(name));
            char fullPath[FullPathLength] = {};
            if (path != nullptr) {
                Vorn::OsUtils::StrLCpy(fullPath, path, sizeof(fullPath));
                Vorn::OsUtils::StrLCat(fullPath, ".", sizeof(fullPath));
            }
            Vorn::OsUtils::StrLCat(fullPath, name, sizeof(fullPath));
            read = module->GetValue(fullPath, value.Text(), ValueLength);
            if (read) {
                AppendItemName(result, resultLength, itemsGiven, name);
                Append(result, resultLength, value.Text());
                ++itemsGiven;
            }
            char const* comma = std::strchr(rest, ',');
            if (comma == nullptr)
                break;
            rest = comma + 1;
        }
        return read;
    }

    // A variable that is a module name alone reads the whole module.
    char const* path = variable[moduleLength] == '.' ? variable + moduleLength + 1 : "";
    PList<ParameterParserInfo> records;
    if (module->GetInfo(path, records))
        return AppendDescribedValues(module, path, records, value.Text(), result, resultLength);
    if (!module->GetValue(path, value.Text(), ValueLength))
        return false;
    AppendItemName(result, resultLength, 0, LastComponent(path));
    Append(result, resultLength, value.Text());
    return true;
}

bool ParameterSetManager::SetValue(unsigned char modeTableIndex, char const* modePath,
                                   char const* variableBase, char const* variableName,
                                   char const* value)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->SetValue(modeTableIndex, modePath, variableBase, variableName, value);
    if (variableBase == nullptr || value == nullptr || modePath == nullptr)
        return false;
    PList<TuningMode> branch;
    if (!GetModeBranchFromPath(modePath, branch))
        return false;
    return SetValue(modeTableIndex, branch.Items(), branch.Count(), variableBase, variableName,
                    value);
}

bool ParameterSetManager::SetValue(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                   unsigned int modeCount, char const* variableBase,
                                   char const* variableName, char const* value)
{
    if (modeBranch == nullptr || modeCount == 0 || variableBase == nullptr || value == nullptr)
        return false;
    char moduleName[ModuleNameLength] = {};
    unsigned int const moduleLength =
        ParameterUtils::GetSubString(variableBase, '.', moduleName, sizeof(moduleName));
    if (moduleLength == 0)
        return false;
    ParameterModule* module =
        GetModuleInternal(modeTableIndex, moduleName, modeBranch, modeCount, nullptr, false);
    if (module == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Knobby SetValues failed: Module not found: \n");
        return false;
    }

    char fullPath[FullPathLength] = {};
    if (std::strlen(variableBase) > moduleLength) {
        Vorn::OsUtils::StrLCpy(fullPath, variableBase + moduleLength + 1, sizeof(fullPath));
        Vorn::OsUtils::StrLCat(fullPath, ".", sizeof(fullPath));
    }
    Vorn::OsUtils::StrLCat(fullPath, variableName != nullptr ? variableName : "", sizeof(fullPath));
    if (!module->SetValue(fullPath, value)) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Knobby SetValues failed: Variable not found: \n");
        return false;
    }
    ++MainManager()->m_modifiedValueCount;

    // The owner of the module, which may be a parent of the mode asked for, must never be
    // unloaded now: an unload would lose the change.
    MainManager()->m_store.KeepOwnerLoaded(module);
    return true;
}

bool ParameterSetManager::GetInfo(unsigned char modeTableIndex, char const* modePath,
                                  char const* variable, PList<ParameterParserInfo>& info)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetInfo(modeTableIndex, modePath, variable, info);
    if (modePath == nullptr)
        return GetInfo(modeTableIndex, nullptr, 0, variable, info);
    PList<TuningMode> branch;
    if (!GetModeBranchFromPath(modePath, branch))
        return false;
    return GetInfo(modeTableIndex, branch.Items(), branch.Count(), variable, info);
}

bool ParameterSetManager::GetInfo(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                  unsigned int modeCount, char const* variable,
                                  PList<ParameterParserInfo>& info)
{
    if (modeBranch == nullptr || modeCount == 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "GetInfo called with null or empty modeBranch\n");
        return false;
    }
    if (variable == nullptr)
        return false;
    char moduleName[ModuleNameLength] = {};
    unsigned int const moduleLength =
        ParameterUtils::GetSubString(variable, '.', moduleName, sizeof(moduleName));
    ParameterModule* module =
        GetModuleInternal(modeTableIndex, moduleName, modeBranch, modeCount, nullptr, false);
    if (module == nullptr)
        return false;
    // A module without value access keeps the base GetInfo, which gives false.
    return module->GetInfo(PathBehindModule(variable, moduleLength), info);
}
