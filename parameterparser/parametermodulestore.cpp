// SPDX-License-Identifier: Apache-2.0
// ParameterModuleStore: modules made and placed at load, lookup by mode branch, the loading of a
// branch's modes, the references clients hold and the parked generation; and the manager's
// module operations, which run on its main manager's store.
#include "parameterparser/parametermodulestore.h"

#include <cstring>
#include <mutex>

#include "platform/vornosutils.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
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

ParameterModule* ParameterModuleStore::CreateModule(ParameterFileSymbolTableEntry const* entry,
                                                    ModuleData* data, bool loadNow)
{
    if (data == nullptr)
        return nullptr;

    DefaultModule* kind = m_manager.GetDefaultModule(data->NameHash);
    if (kind == nullptr) {
        if (!m_manager.m_ignoreUnknownModules)
            m_manager.SetError("Failed to find header module: ", data);
        return nullptr;
    }
    ParameterModule* module = CreateModuleOfKind(kind, entry, data, loadNow);
    if (module == nullptr)
        m_manager.SetError("Failed to parse binary header data for: ", data);
    return module;
}

bool ParameterModuleStore::AddModule(ModuleData const* data, ParameterModule* module)
{
    if (data == nullptr || module == nullptr)
        return false;

    ParameterModeTable* table = m_tree.Table(data->GetModeTableIndex());
    if (table == nullptr || table->rootMode == nullptr) {
        m_manager.SetError("AddModule: RootMode is nullptr");
        return false;
    }
    unsigned int const slot = data->GetModeIDValue();
    if (slot >= table->m_modeCount) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "AddModule: moduleData->ModeId(%u) >= m_modeCount(%u)\n",
                                static_cast<unsigned int>(data->ModeId),
                                static_cast<unsigned int>(table->m_modeCount));
        return false;
    }
    ModeEntry* node = table->modes != nullptr ? table->modes[slot].mode : nullptr;
    if (node == nullptr)
        return false;
    return node->AddModule(module);
}

ParameterModule* ParameterModuleStore::CreateModuleOfKind(
    DefaultModule* kind, ParameterFileSymbolTableEntry const* entry, ModuleData* data, bool loadNow)
{
    if (kind == nullptr || kind->module == nullptr)
        return nullptr;
    // The factory instance checks the record and hands back the instance already made for a
    // duplicate; a load that finds no entry leaves the module zeroed and unloaded, which a later
    // lookup retries, so its result does not decide here.
    ParameterModule* module = kind->module->Create(data, kind);
    if (module != nullptr && loadNow && entry != nullptr)
        static_cast<void>(module->LoadModule(entry->Table));
    return module;
}

void ParameterModuleStore::WarnAboutLookup(char const* caller, char const* name,
                                           ParameterModeTable const* table,
                                           TuningMode const* modeBranch, unsigned int modeCount)
{
    // caller and name make "GetModule(<name>)" or "GetModules()" in front of each message.
    if (modeBranch == nullptr && modeCount != 0) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "%s(%s) called with modeBranch == null and modeCount = %d, "
                                "will return default mode module data\n",
                                caller, name, static_cast<int>(modeCount));
    } else if (modeBranch != nullptr && modeCount != 0 &&
               (modeBranch[0].mode != ModeDefault || modeBranch[0].subMode != 0)) {
        char path[ModePathLength] = {};
        m_tree.GetPathFromModeBranch(modeBranch, modeCount, path, sizeof(path));
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "%s(%s) called with first mode != Default, might not return "
                                "module data from the desired mode path: %s\n",
                                caller, name, path);
    }
    if (m_manager.m_defaultModules.empty())
        ParameterLogging::Write(
            &m_manager, ParameterLogging::LogError,
            "%s(%s) Uninitialized Set Manager. this: %lx, SymbolTable: %lx, Modes: %lx, "
            "ModeCount: %d, RootMode: %lx\n",
            caller, name, reinterpret_cast<unsigned long>(&m_manager),
            reinterpret_cast<unsigned long>(m_manager.m_symbolTable),
            reinterpret_cast<unsigned long>(table != nullptr ? table->modes : nullptr),
            table != nullptr ? static_cast<int>(table->m_modeCount) : 0,
            reinterpret_cast<unsigned long>(table != nullptr ? table->rootMode : nullptr));
}

ParameterModule* ParameterModuleStore::FindOnBranch(ModeEntry* root, char const* name,
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
        m_tree.GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
        ParameterLogging::Write(&m_manager, ParameterLogging::LogWarning,
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
        static_cast<void>(
            m_tree.WalkBranch("GetModule", node, modeBranch, modeCount, [&](ModeEntry* reached) {
                ParameterModule* found = reached->FindModule(nameHash);
                if (found != nullptr)
                    best = found;
                return true;
            }));
    }
    return best;
}

bool ParameterModuleStore::TakeModule(ParameterModule* module, bool fileMode)
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
        read = module->LoadModule(m_manager.m_symbolTable);
        loaded = module->loaded;
    }
    if (!read && module->data != nullptr) {
        if (fileMode && owner != nullptr)
            owner->ReleaseReference(module);
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "Failed to load module %s, path: %s, skipping\n",
                                module->moduleName != nullptr ? module->moduleName : "",
                                module->data->ModePath != nullptr ? module->data->ModePath : "");
    }
    return loaded;
}

ParameterModule* ParameterModuleStore::GetModule(unsigned char modeTableIndex,
                                                 char const* moduleName,
                                                 TuningMode const* modeBranch,
                                                 unsigned int modeCount, ParameterModule* previous)
{
    char const* name = moduleName != nullptr ? moduleName : "";
    ParameterModeTable* table = m_tree.Table("GetModuleInternal", modeTableIndex);
    if (table == nullptr) {
        ReleasePrevious(previous);
        return nullptr;
    }
    WarnAboutLookup("GetModule", name, table, modeBranch, modeCount);

    bool const fileMode = m_manager.IsFileMode();
    // The branch's modes are read before the search; a mode that cannot be read shows below as
    // a module that is not loaded.
    if (fileMode)
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, nullptr));

    ModeEntry* root = table->rootMode;
    ParameterModule* best =
        root != nullptr ? FindOnBranch(root, name, modeBranch, modeCount) : nullptr;
    bool const loaded = best != nullptr && TakeModule(best, fileMode);
    ReleasePrevious(previous);
    if (loaded)
        return best;
    if (best == nullptr)
        return nullptr;
    char branchPath[ModePathLength] = {};
    m_tree.GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
    ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                            "GetModule %s failed to find a loaded module in %s, returning null\n",
                            name, branchPath);
    return nullptr;
}

void ParameterModuleStore::GetModules(unsigned char modeTableIndex,
                                      PList<ParameterModule*>& modules,
                                      TuningMode const* modeBranch, unsigned int modeCount,
                                      bool includeLocal, bool includeShared, PipelineType* pipeline)
{
    ReleaseModules(modules);
    ParameterModeTable* table = m_tree.Table("GetModules", modeTableIndex);
    if (table == nullptr)
        return;
    WarnAboutLookup("GetModules", "", table, modeBranch, modeCount);

    if (m_manager.IsFileMode())
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, "GetModules"));

    ModeEntry* node = table->rootMode;
    if (node == nullptr)
        return;
    node = m_tree.FindNode("GetModules", node, modeBranch, modeCount);
    if (node == nullptr)
        return;
    node->GetModules(modules, includeLocal, includeShared, pipeline);
}

void ParameterModuleStore::ReleaseModule(ParameterModule const* module)
{
    if (module == nullptr)
        return;
    char const* name = module->moduleName != nullptr ? module->moduleName : "";
    if (module->data == nullptr) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "Attempt to release module with a nullptr Data object.  Mode: %d, "
                                "SubMode: %d, Module %s\n",
                                module->mode.Parts.mode, module->mode.Parts.subMode, name);
        return;
    }
    ModeEntry* owner = ModeEntry::OwnerOf(module);
    if (owner == nullptr) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "Attempt to release module with a nullptr Data->Mode object.  "
                                "Mode: %d, SubMode: %d, Module %s\n",
                                module->mode.Parts.mode, module->mode.Parts.subMode, name);
        return;
    }
    owner->ReleaseReference(module);
}

void ParameterModuleStore::ReleaseModules(PList<ParameterModule*>& modules)
{
    while (modules.Count() != 0) {
        ReleaseModule(modules[0]);
        modules.Remove(0);
    }
}

bool ParameterModuleStore::LoadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                    unsigned int modeCount, char const* moduleName)
{
    if (m_manager.m_symbolTable == nullptr) {
        m_manager.SetError("LoadMode called with no binary file loaded");
        return false;
    }
    if (!m_manager.IsFileMode()) {
        m_manager.SetError("LoadMode is not valid in buffer mode");
        return false;
    }
    return LoadModeInternal(modeTableIndex, modeBranch, modeCount, moduleName);
}

bool ParameterModuleStore::LoadModeInternal(unsigned char modeTableIndex,
                                            TuningMode const* modeBranch, unsigned int modeCount,
                                            char const* moduleName)
{
    ParameterModeTable* table = m_tree.Table("LoadModeInternal", modeTableIndex);
    ModeEntry* root = table != nullptr ? table->rootMode : nullptr;
    if (root == nullptr)
        return false;

    // Each node that is read takes a file reference; they are given back together at the end,
    // so the file stays open across the branch and closes once no one else holds it.
    int fileReferences = 0;
    bool result = true;
    bool const rootRead =
        LoadModules(root, true, moduleName, modeBranch, modeCount, fileReferences);
    if (m_manager.IsFileMode() && modeBranch != nullptr && rootRead) {
        // The result says whether the branch exists: a mode that fails to read ends the walk
        // but is reported by the lookup that finds its module unloaded.
        ModeEntry* node = root;
        WalkEnd const end = m_tree.WalkBranch(
            "LoadModeInternal", node, modeBranch, modeCount, [&](ModeEntry* reached) {
                return LoadModules(reached, true, moduleName, modeBranch, modeCount,
                                   fileReferences);
            });
        if (end == WalkEnd::Missing)
            result = false;
    }
    // The file's read buffers are fixed parts of the file object: there is no separate buffer of
    // the symbol table to drop here.
    if (fileReferences > 0 && m_manager.m_symbolTable != nullptr)
        m_manager.m_symbolTable->FileReference(-fileReferences);
    return result;
}

bool ParameterModuleStore::UnloadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                      unsigned int modeCount)
{
    ParameterModeTable* table = m_tree.Table("UnloadMode", modeTableIndex);
    if (table == nullptr)
        return false;
    ModeEntry* root = table->rootMode;
    if (!m_manager.IsFileMode()) {
        m_manager.SetError("UnloadMode is not valid in buffer mode");
        return root != nullptr;
    }
    if (root == nullptr) {
        m_manager.SetError("UnloadMode root mode is nullptr");
        return false;
    }
    ModeEntry* node = m_tree.FindNode("UnloadMode", root, modeBranch, modeCount);
    if (node == nullptr)
        return false;
    // Only the last mode of the branch goes; its parents serve other branches too.
    int fileReferences = 0;
    static_cast<void>(LoadModules(node, false, nullptr, modeBranch, modeCount, fileReferences));
    return true;
}

void ParameterModuleStore::KeepOwnerLoaded(ParameterModule const* module)
{
    // The owner becomes resident and leaves the active list, which is what eviction picks from.
    ModuleData const* data = module->data;
    if (data == nullptr || data->Mode == nullptr)
        return;
    // Slots are packed: copy the node pointer out rather than bind a reference into the array.
    ModeSlot slot;
    std::memcpy(&slot, data->Mode, sizeof(slot));
    ModeEntry* owner = slot.mode;
    if (owner == nullptr || owner->resident)
        return;

    ParameterModeTable* dataTable = data->GetModeTable();
    std::unique_lock<std::recursive_mutex> lock;
    if (dataTable != nullptr)
        lock = std::unique_lock<std::recursive_mutex>(dataTable->activeModeMutex);
    else
        ParameterLogging::Write(
            &m_manager, ParameterLogging::LogError,
            "Attempt to lock Active Mode Mutex failed, mode table not found for ModeID: %u\n",
            data->ModeId);
    owner->resident = true;
    ParameterModeTable* ownerTable = m_tree.Table(ModeId::TableIndex(owner->modeId));
    if (ownerTable != nullptr) {
        int const position = ownerTable->activeModes.Find(owner);
        if (position >= 0)
            ownerTable->activeModes.Remove(static_cast<unsigned int>(position));
    }
}

// The manager's module operations run on the main manager's store.

ParameterModule* ParameterSetManager::CreateModule(ParameterFileSymbolTableEntry const* entry,
                                                   ModuleData* data, bool loadNow)
{
    return MainManager()->m_store.CreateModule(entry, data, loadNow);
}

bool ParameterSetManager::AddModule(ModuleData const* data, ParameterModule* module)
{
    return MainManager()->m_store.AddModule(data, module);
}

ParameterModule* ParameterSetManager::GetModuleInternal(unsigned char modeTableIndex,
                                                        char const* moduleName,
                                                        TuningMode const* modeBranch,
                                                        unsigned int modeCount,
                                                        ParameterModule* previous, bool)
{
    return MainManager()->m_store.GetModule(modeTableIndex, moduleName, modeBranch, modeCount,
                                            previous);
}

void ParameterSetManager::GetModules(unsigned char modeTableIndex, PList<ParameterModule*>& modules,
                                     TuningMode const* modeBranch, unsigned int modeCount,
                                     bool includeLocal, bool includeShared, PipelineType* pipeline)
{
    MainManager()->m_store.GetModules(modeTableIndex, modules, modeBranch, modeCount, includeLocal,
                                      includeShared, pipeline);
}

void ParameterSetManager::ReleaseModule(ParameterModule const* module)
{
    MainManager()->m_store.ReleaseModule(module);
}

void ParameterSetManager::ReleaseModules(PList<ParameterModule*>& modules)
{
    MainManager()->m_store.ReleaseModules(modules);
}

bool ParameterSetManager::LoadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                   unsigned int modeCount, char const* moduleName)
{
    return MainManager()->m_store.LoadMode(modeTableIndex, modeBranch, modeCount, moduleName);
}

bool ParameterSetManager::LoadModeInternal(unsigned char modeTableIndex,
                                           TuningMode const* modeBranch, unsigned int modeCount,
                                           char const* moduleName)
{
    return MainManager()->m_store.LoadModeInternal(modeTableIndex, modeBranch, modeCount,
                                                   moduleName);
}

bool ParameterSetManager::UnloadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                     unsigned int modeCount)
{
    return MainManager()->m_store.UnloadMode(modeTableIndex, modeBranch, modeCount);
}

bool ParameterSetManager::LoadModules(ModeEntry* mode, bool load, char const* moduleName,
                                      TuningMode const* modeBranch, unsigned int modeCount,
                                      int& fileReferences)
{
    return MainManager()->m_store.LoadModules(mode, load, moduleName, modeBranch, modeCount,
                                              fileReferences);
}
