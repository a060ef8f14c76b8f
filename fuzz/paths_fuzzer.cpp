// SPDX-License-Identifier: Apache-2.0
// Fuzz target: mode paths and value paths from arbitrary text against a writer-made file loaded
// into a tuning manager. Aborts when a mode path does not read back as the steps it was written
// from, when a node's own path leads elsewhere, or when writing a value's own text changes it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"

#include "fuzz/fuzzsupport.h"
#include "fuzz/pathsinput.h"

namespace {

// Room for any value text of the loaded modules; a text that fills it was cut.
constexpr unsigned int TextSize = 16384;
// Small enough that named and numeric forms of longer paths are cut.
constexpr unsigned int ShortSize = 12;

std::unique_ptr<PathsFuzz::LoadedManager> g_manager;

using FuzzSupport::Require;

bool SameSteps(PList<TuningMode> const& left, PList<TuningMode> const& right, unsigned int count)
{
    if (left.Count() < count || right.Count() != count)
        return false;
    for (unsigned int i = 0; i < count; ++i) {
        if (left[i].mode != right[i].mode || left[i].subMode != right[i].subMode)
            return false;
    }
    return true;
}

// A parsed mode path is written back up to its first invalid step and that text parses to the
// same steps again.
void CheckModeBranch(ParameterSetManager& manager, std::string const& path,
                     PList<TuningMode> const& branch)
{
    unsigned int valid = 0;
    while (valid < branch.Count() && manager.ValidateMode("fuzz", branch.Items(), valid))
        ++valid;
    // Each step is written as "<mode>.<sub-mode>|": at most 1 + 1 + 5 + 1 characters.
    std::vector<char> written(branch.Count() * 8 + 1, '\0');
    manager.GetPathFromModeBranch(branch.Items(), branch.Count(), written.data(),
                                  static_cast<unsigned int>(written.size()));
    PList<TuningMode> again;
    bool const parsed = manager.GetModeBranchFromPath(written.data(), again);
    Require(parsed == (valid > 0) && SameSteps(branch, again, parsed ? valid : 0),
            "a mode path reads back as other steps", path);
}

// The node a path names is named again by the path it gives for itself.
void CheckModeNode(ParameterSetManager& manager, std::string const& path)
{
    ModeEntry* node = manager.GetModeEntry(0, path.c_str());
    char children[64];
    (void)manager.GetChildModes(0, path.c_str(), reinterpret_cast<unsigned char*>(children),
                                sizeof(children));
    if (node == nullptr)
        return;
    char own[TextSize] = {};
    node->GetModePath(own, sizeof(own));
    Require(manager.GetModeEntry(0, own) == node, "a node's own path names another node", path);
}

// The named and numeric forms, into room enough and into a buffer that cuts them.
void ConvertModeText(ParameterSetManager& manager, std::string const& text)
{
    char result[TextSize];
    char shortResult[ShortSize];
    manager.GetModeShorthand(text.c_str(), result, sizeof(result));
    manager.GetModeShorthand(text.c_str(), shortResult, sizeof(shortResult));
    ParameterSetManager::GetKnobbyModesString(text.c_str(), result, sizeof(result));
    ParameterSetManager::GetKnobbyModesString(text.c_str(), shortResult, sizeof(shortResult));
    (void)ParameterSetManager::GetSubModeIndex(ParameterSetManager::GetModeIndex(text.c_str()),
                                               text.c_str());
}

std::string Read(ParameterModule& module, char const* path, bool& ok)
{
    std::vector<char> text(TextSize, '\0');
    ok = module.GetValue(path, text.data(), TextSize) && std::strlen(text.data()) + 1 < TextSize;
    return text.data();
}

// Writes value into the module, directly and through the manager, then the value's own text
// back; the module must read as it did before. Writing a text that was read leaves it as it is,
// so every run starts from the same values.
void CheckValueText(ParameterSetManager& manager, std::string const& modePath,
                    std::string const& instance, ParameterModule& module, char const* path,
                    std::string const& value)
{
    bool ok = false;
    std::string const before = Read(module, path, ok);
    if (!ok)
        return;
    bool changed = module.SetValue(path, value.c_str());
    bool changedRead = false;
    (void)Read(module, path, changedRead);
    // The manager finds the module by the same branch, or refuses a path that does not parse.
    changed |= manager.SetValue(0, modePath.c_str(), instance.c_str(), path, value.c_str());
    if (changed)
        (void)module.SetValue(path, before.c_str());
    bool restoredRead = false;
    std::string const after = Read(module, path, restoredRead);
    Require(restoredRead && after == before, "a value's own text reads back differently",
            std::string(path) + " = " + before + " -> " + after);
}

void CheckValuePaths(ParameterSetManager& manager, std::string const& modePath,
                     PList<TuningMode> const& branch, std::string const& variable,
                     std::string const& subVariables, std::string const& value)
{
    char const* const subList = subVariables.empty() ? nullptr : subVariables.c_str();
    std::vector<char> result(TextSize);
    (void)manager.GetValue(0, modePath.c_str(), variable.c_str(), subList, result.data(), TextSize);
    (void)manager.GetValue(0, modePath.c_str(), variable.c_str(), subList, result.data(),
                           ShortSize);
    PList<ParameterParserInfo> info;
    (void)manager.GetInfo(0, modePath.c_str(), variable.c_str(), info);

    // The module of the variable's first step, in the branch when the path parsed.
    size_t const dot = variable.find('.');
    std::string const instance = variable.substr(0, dot);
    char const* const path = dot == std::string::npos ? "" : variable.c_str() + dot + 1;
    TuningMode const root = {0, 0, 0};
    bool const hasBranch = branch.Count() > 0;
    ParameterModule* module =
        manager.GetModuleInternal(0, instance.c_str(), hasBranch ? branch.Items() : &root,
                                  hasBranch ? branch.Count() : 1, nullptr, false);
    if (module == nullptr)
        return;
    CheckValueText(manager, modePath, instance, *module, path, value);
    PList<ParameterParserInfo> members;
    (void)module->GetInfo(path, members);
    module->Release();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_manager = std::make_unique<PathsFuzz::LoadedManager>();
    if (!g_manager->Loaded()) {
        std::fprintf(stderr, "paths: the description did not load\n");
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<std::string> const fields = PathsFuzz::SplitFields(data, size);
    std::string const& modePath = fields[0];
    ParameterSetManager& manager = *g_manager;

    // A path that fails to parse may leave the steps before its fault behind: they are not used.
    PList<TuningMode> branch;
    PList<TuningMode> const none;
    bool const parsed = manager.GetModeBranchFromPath(modePath.c_str(), branch);
    if (parsed)
        CheckModeBranch(manager, modePath, branch);
    CheckModeNode(manager, modePath);
    ConvertModeText(manager, modePath);
    CheckValuePaths(manager, modePath, parsed ? branch : none, fields[1], fields[2], fields[3]);
    return 0;
}
