// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: module lookup by mode branch, the loading of a branch's modes, and the
// references clients hold.
#include <cstring>
#include <mutex>

#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"

namespace {

constexpr unsigned int ModePathLength = 128;
using WalkEnd = ParameterModeTree::WalkEnd;

void ReleasePrevious(ParameterModule* previous)
{
    if (previous != nullptr)
        previous->Release();
}

} // namespace

void ParameterSetManager::WarnAboutLookup(char const* caller, char const* name,
                                          ParameterModeTable const* table,
                                          TuningMode const* modeBranch, unsigned int modeCount)
{
    // caller and name make "GetModule(<name>)" or "GetModules()" in front of each message.
    if (modeBranch == nullptr && modeCount != 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s(%s) called with modeBranch == null and modeCount = %d, "
                                "will return default mode module data\n",
                                caller, name, static_cast<int>(modeCount));
    } else if (modeBranch != nullptr && modeCount != 0 &&
               (modeBranch[0].mode != ModeDefault || modeBranch[0].subMode != 0)) {
        char path[ModePathLength] = {};
        GetPathFromModeBranch(modeBranch, modeCount, path, sizeof(path));
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s(%s) called with first mode != Default, might not return "
                                "module data from the desired mode path: %s\n",
                                caller, name, path);
    }
    if (m_defaultModules.empty())
        ParameterLogging::Write(
            this, ParameterLogging::LogError,
            "%s(%s) Uninitialized Set Manager. this: %lx, SymbolTable: %lx, Modes: %lx, "
            "ModeCount: %d, RootMode: %lx\n",
            caller, name, reinterpret_cast<unsigned long>(this),
            reinterpret_cast<unsigned long>(m_symbolTable),
            reinterpret_cast<unsigned long>(table != nullptr ? table->modes : nullptr),
            table != nullptr ? static_cast<int>(table->m_modeCount) : 0,
            reinterpret_cast<unsigned long>(table != nullptr ? table->rootMode : nullptr));
}

ParameterModule* ParameterSetManager::FindOnBranch(ModeEntry* root, char const* name,
                                                   TuningMode const* modeBranch,
                                                   unsigned int modeCount)
{
    unsigned long const nameHash =
        ParserCRC64::GetCRC(reinterpret_cast<unsigned char const*>(name),
                            static_cast<unsigned int>(std::strlen(name)), true, 0);
    ParameterModule* best = root->FindModule(nameHash);
    if (best == nullptr) {
        char rootPath[ModePathLength] = {};
        char branchPath[ModePathLength] = {};
        root->GetModePath(rootPath, sizeof(rootPath));
        GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
        ParameterLogging::Write(this, ParameterLogging::LogWarning,
                                "GetModule %s module not found in default scenario (%s), mode "
                                "path: %s\n",
                                name, rootPath, branchPath);
        if (modeBranch == nullptr)
            return nullptr;
    }
    // The deepest node of the branch that holds the module wins; the walk ends quietly where the
    // branch leaves the tree.
    if (modeBranch != nullptr && modeCount > 1) {
        ModeEntry* node = root;
        static_cast<void>(m_modeTree.WalkBranch(
            "GetModule", node, modeBranch, modeCount, [&](ModeEntry* reached) {
                ParameterModule* found = reached->FindModule(nameHash);
                if (found != nullptr)
                    best = found;
                return true;
            }));
    }
    return best;
}

bool ParameterSetManager::TakeModule(ParameterModule* module, bool fileMode)
{
    // The reference is taken before the load test and before the caller's previous module
    // goes, so that asking again for the module one holds never lets its mode's count touch 0.
    ModeEntry* owner = ModeEntry::OwnerOf(module);
    if (fileMode && owner != nullptr)
        owner->AddReference(module);
    bool read = false;
    bool loaded = false;
    {
        std::lock_guard<std::recursive_mutex> lock(module->moduleMutex);
        read = module->LoadModule(m_symbolTable);
        loaded = module->loaded;
    }
    if (!read && module->data != nullptr) {
        if (fileMode && owner != nullptr)
            owner->ReleaseReference(module);
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Failed to load module %s, path: %s, skipping\n",
                                module->moduleName != nullptr ? module->moduleName : "",
                                module->data->ModePath != nullptr ? module->data->ModePath : "");
    }
    return loaded;
}

ParameterModule* ParameterSetManager::GetModuleInternal(unsigned char modeTableIndex,
                                                        char const* moduleName,
                                                        TuningMode const* modeBranch,
                                                        unsigned int modeCount,
                                                        ParameterModule* previous, bool unused)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetModuleInternal(modeTableIndex, moduleName, modeBranch, modeCount,
                                                previous, unused);

    char const* name = moduleName != nullptr ? moduleName : "";
    ParameterModeTable* table = m_modeTree.Table("GetModuleInternal", modeTableIndex);
    if (table == nullptr) {
        ReleasePrevious(previous);
        return nullptr;
    }
    WarnAboutLookup("GetModule", name, table, modeBranch, modeCount);

    bool const fileMode = IsFileMode();
    // The branch's modes are read before the search; a mode that cannot be read shows below as
    // a module that is not loaded.
    if (fileMode)
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, nullptr));

    ModeEntry* root = table != nullptr ? table->rootMode : nullptr;
    ParameterModule* best =
        root != nullptr ? FindOnBranch(root, name, modeBranch, modeCount) : nullptr;
    bool const loaded = best != nullptr && TakeModule(best, fileMode);
    ReleasePrevious(previous);
    if (loaded)
        return best;
    if (best == nullptr)
        return nullptr;
    char branchPath[ModePathLength] = {};
    GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
    ParameterLogging::Write(this, ParameterLogging::LogError,
                            "GetModule %s failed to find a loaded module in %s, returning null\n",
                            name, branchPath);
    return nullptr;
}

void ParameterSetManager::GetModules(unsigned char modeTableIndex, PList<ParameterModule*>& modules,
                                     TuningMode const* modeBranch, unsigned int modeCount,
                                     bool includeLocal, bool includeShared, PipelineType* pipeline)
{
    if (m_mainSetManager != nullptr) {
        MainManager()->GetModules(modeTableIndex, modules, modeBranch, modeCount, includeLocal,
                                  includeShared, pipeline);
        return;
    }
    ReleaseModules(modules);
    ParameterModeTable* table = m_modeTree.Table("GetModules", modeTableIndex);
    if (table == nullptr)
        return;
    WarnAboutLookup("GetModules", "", table, modeBranch, modeCount);

    if (IsFileMode())
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, "GetModules"));

    ModeEntry* node = table != nullptr ? table->rootMode : nullptr;
    if (node == nullptr)
        return;
    if (m_modeTree.WalkBranch("GetModules", node, modeBranch, modeCount,
                              [](ModeEntry*) { return true; }) == WalkEnd::Missing)
        return;
    node->GetModules(modules, includeLocal, includeShared, pipeline);
}

void ParameterSetManager::ReleaseModule(ParameterModule const* module)
{
    if (module == nullptr)
        return;
    if (m_mainSetManager != nullptr) {
        MainManager()->ReleaseModule(module);
        return;
    }
    char const* name = module->moduleName != nullptr ? module->moduleName : "";
    if (module->data == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Attempt to release module with a nullptr Data object.  Mode: %d, "
                                "SubMode: %d, Module %s\n",
                                module->mode.Parts.mode, module->mode.Parts.subMode, name);
        return;
    }
    ModeEntry* owner = ModeEntry::OwnerOf(module);
    if (owner == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Attempt to release module with a nullptr Data->Mode object.  "
                                "Mode: %d, SubMode: %d, Module %s\n",
                                module->mode.Parts.mode, module->mode.Parts.subMode, name);
        return;
    }
    owner->ReleaseReference(module);
}

void ParameterSetManager::ReleaseModules(PList<ParameterModule*>& modules)
{
    while (modules.Count() != 0) {
        ReleaseModule(modules[0]);
        modules.Remove(0);
    }
}

bool ParameterSetManager::LoadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                   unsigned int modeCount, char const* moduleName)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadMode(modeTableIndex, modeBranch, modeCount, moduleName);
    if (m_symbolTable == nullptr) {
        SetError("LoadMode called with no binary file loaded");
        return false;
    }
    if (!IsFileMode()) {
        SetError("LoadMode is not valid in buffer mode");
        return false;
    }
    return LoadModeInternal(modeTableIndex, modeBranch, modeCount, moduleName);
}

bool ParameterSetManager::LoadModeInternal(unsigned char modeTableIndex,
                                           TuningMode const* modeBranch, unsigned int modeCount,
                                           char const* moduleName)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadModeInternal(modeTableIndex, modeBranch, modeCount, moduleName);
    ParameterModeTable* table = m_modeTree.Table("LoadModeInternal", modeTableIndex);
    ModeEntry* root = table != nullptr ? table->rootMode : nullptr;
    if (root == nullptr)
        return false;

    // Each node that is read takes a file reference; they are given back together at the end,
    // so the file stays open across the branch and closes once no one else holds it.
    int fileReferences = 0;
    bool result = true;
    bool const rootRead =
        LoadModules(root, true, moduleName, modeBranch, modeCount, fileReferences);
    if (IsFileMode() && modeBranch != nullptr && rootRead) {
        // The result says whether the branch exists: a mode that fails to read ends the walk
        // but is reported by the lookup that finds its module unloaded.
        ModeEntry* node = root;
        WalkEnd const end = m_modeTree.WalkBranch(
            "LoadModeInternal", node, modeBranch, modeCount, [&](ModeEntry* reached) {
                return LoadModules(reached, true, moduleName, modeBranch, modeCount,
                                   fileReferences);
            });
        if (end == WalkEnd::Missing)
            result = false;
    }
    // The file's read buffers are fixed parts of the file object: there is no separate buffer of
    // the symbol table to drop here.
    if (fileReferences > 0 && m_symbolTable != nullptr)
        m_symbolTable->FileReference(-fileReferences);
    return result;
}

bool ParameterSetManager::UnloadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                     unsigned int modeCount)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->UnloadMode(modeTableIndex, modeBranch, modeCount);
    ParameterModeTable* table = m_modeTree.Table("UnloadMode", modeTableIndex);
    if (table == nullptr)
        return false;
    ModeEntry* root = table->rootMode;
    if (!IsFileMode()) {
        SetError("UnloadMode is not valid in buffer mode");
        return root != nullptr;
    }
    if (root == nullptr) {
        SetError("UnloadMode root mode is nullptr");
        return false;
    }
    ModeEntry* node = root;
    if (m_modeTree.WalkBranch("UnloadMode", node, modeBranch, modeCount,
                              [](ModeEntry*) { return true; }) == WalkEnd::Missing)
        return false;
    // Only the last mode of the branch goes; its parents serve other branches too.
    int fileReferences = 0;
    static_cast<void>(LoadModules(node, false, nullptr, modeBranch, modeCount, fileReferences));
    return true;
}
