// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: module lookup by mode branch, lazy loading of modes, the active mode list
// and its eviction, and the references clients hold.
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
// "(<table name>): " in front of the load messages of a file with several tables.
constexpr unsigned int TablePrefixLength = 133;
// The active list never shrinks below this many modes, whatever the manager's limit.
constexpr unsigned int MinActiveModes = 5;
// Default and Sensor modes are resident and never take a place in the active list.
constexpr unsigned int FirstListedMode = ModeUsecase;

enum class WalkEnd
{
    Complete, ///< every step was found (or the branch has only its root)
    Invalid,  ///< a step failed validation; the node reached so far stands
    Missing,  ///< a step is not in the tree
    Stopped,  ///< the visitor asked to stop
};

// Walks a branch down from node, step 0 being the node itself. A run of steps of one mode value
// names nested nodes of that mode in either order and is matched as a whole. visit sees every
// node reached and returns false to stop. node is left at the last node reached.
template <typename Visit>
WalkEnd WalkBranch(ParameterSetManager& manager, char const* caller, ModeEntry*& node,
                   TuningMode const* modeBranch, unsigned int modeCount, Visit visit)
{
    if (modeBranch == nullptr)
        return WalkEnd::Complete;
    unsigned int i = 1;
    while (i < modeCount) {
        if (!manager.ValidateMode(caller, modeBranch, i))
            return WalkEnd::Invalid;
        unsigned int run = 1;
        while (i + run < modeCount && modeBranch[i + run].mode == modeBranch[i].mode)
            ++run;
        ModeEntry* next = node->FindMode(&modeBranch[i], run, 0);
        if (next == nullptr)
            return WalkEnd::Missing;
        node = next;
        i += run;
        if (!visit(node))
            return WalkEnd::Stopped;
    }
    return WalkEnd::Complete;
}

// Puts a listed node (Usecase or deeper) at the front of its table's active list, where the
// eviction looks last. The caller holds the list's lock.
void MoveToFront(ParameterModeTable& table, ModeEntry* node)
{
    if (node == nullptr || node->mode.Parts.mode < FirstListedMode)
        return;
    if (table.activeModes.Count() != 0 && table.activeModes[0] == node)
        return;
    int const listed = table.activeModes.Find(node);
    if (listed >= 0)
        table.activeModes.Remove(static_cast<unsigned int>(listed));
    table.activeModes.Insert(0, node);
}

void ReleasePrevious(ParameterModule* previous)
{
    if (previous != nullptr)
        previous->Release();
}

} // namespace

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
    if (modeTableIndex >= m_modeTables.Count()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called with mode table index (%u) >= mode table count (%u)\n",
                                "GetModuleInternal", static_cast<unsigned int>(modeTableIndex),
                                m_modeTables.Count());
        ReleasePrevious(previous);
        return nullptr;
    }
    ParameterModeTable* table = m_modeTables[modeTableIndex];

    if (modeBranch == nullptr && modeCount != 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "GetModule(%s) called with modeBranch == null and modeCount = %d, "
                                "will return default mode module data\n",
                                name, static_cast<int>(modeCount));
    } else if (modeBranch != nullptr && modeCount != 0 &&
               (modeBranch[0].mode != ModeDefault || modeBranch[0].subMode != 0)) {
        char path[ModePathLength] = {};
        GetPathFromModeBranch(modeBranch, modeCount, path, sizeof(path));
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "GetModule(%s) called with first mode != Default, might not "
                                "return module data from the desired mode path: %s\n",
                                name, path);
    }
    if (m_defaultModules.empty())
        ParameterLogging::Write(
            this, ParameterLogging::LogError,
            "GetModule(%s) Uninitialized Set Manager. this: %lx, SymbolTable: %lx, Modes: %lx, "
            "ModeCount: %d, RootMode: %lx\n",
            name, reinterpret_cast<unsigned long>(this),
            reinterpret_cast<unsigned long>(m_symbolTable),
            reinterpret_cast<unsigned long>(table != nullptr ? table->modes : nullptr),
            table != nullptr ? static_cast<int>(table->m_modeCount) : 0,
            reinterpret_cast<unsigned long>(table != nullptr ? table->rootMode : nullptr));

    bool const fileMode = IsFileMode();
    // The branch's modes are read before the search; a mode that cannot be read shows below as
    // a module that is not loaded.
    if (fileMode)
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, nullptr));

    ModeEntry* root = table != nullptr ? table->rootMode : nullptr;
    if (root == nullptr) {
        ReleasePrevious(previous);
        return nullptr;
    }
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
        if (modeBranch == nullptr) {
            ReleasePrevious(previous);
            return nullptr;
        }
    }
    // The deepest node of the branch that holds the module wins; the walk ends quietly where the
    // branch leaves the tree.
    if (modeBranch != nullptr && modeCount > 1) {
        ModeEntry* node = root;
        static_cast<void>(
            WalkBranch(*this, "GetModule", node, modeBranch, modeCount, [&](ModeEntry* reached) {
                ParameterModule* found = reached->FindModule(nameHash);
                if (found != nullptr)
                    best = found;
                return true;
            }));
    }
    if (best == nullptr) {
        ReleasePrevious(previous);
        return nullptr;
    }

    // The reference is taken before the load test and before previous goes, so that asking
    // again for the module one holds never lets its mode's count touch 0.
    ModeEntry* owner = ModeEntry::OwnerOf(best);
    if (fileMode && owner != nullptr)
        owner->AddReference(best);
    bool read = false;
    bool loaded = false;
    {
        std::lock_guard<std::recursive_mutex> lock(best->moduleMutex);
        read = best->LoadModule(m_symbolTable);
        loaded = best->loaded;
    }
    if (!read && best->data != nullptr) {
        if (fileMode && owner != nullptr)
            owner->ReleaseReference(best);
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Failed to load module %s, path: %s, skipping\n",
                                best->moduleName != nullptr ? best->moduleName : "",
                                best->data->ModePath != nullptr ? best->data->ModePath : "");
    }
    ReleasePrevious(previous);
    if (loaded)
        return best;
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
    if (modeTableIndex >= m_modeTables.Count()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called with mode table index (%u) >= mode table count (%u)\n",
                                "GetModules", static_cast<unsigned int>(modeTableIndex),
                                m_modeTables.Count());
        return;
    }
    ParameterModeTable* table = m_modeTables[modeTableIndex];

    if (modeBranch == nullptr && modeCount != 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "GetModules() called with modeBranch == null and modeCount = %d, "
                                "will return default mode module data\n",
                                static_cast<int>(modeCount));
    } else if (modeBranch != nullptr && modeCount != 0 &&
               (modeBranch[0].mode != ModeDefault || modeBranch[0].subMode != 0)) {
        char path[ModePathLength] = {};
        GetPathFromModeBranch(modeBranch, modeCount, path, sizeof(path));
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "GetModules() called with first mode != Default, might not return "
                                "module data from the desired mode path: %s\n",
                                path);
    }
    if (m_defaultModules.empty())
        ParameterLogging::Write(
            this, ParameterLogging::LogError,
            "GetModules() Uninitialized Set Manager. this: %lx, SymbolTable: %lx, Modes: %lx, "
            "ModeCount: %d, RootMode: %lx\n",
            reinterpret_cast<unsigned long>(this), reinterpret_cast<unsigned long>(m_symbolTable),
            reinterpret_cast<unsigned long>(table != nullptr ? table->modes : nullptr),
            table != nullptr ? static_cast<int>(table->m_modeCount) : 0,
            reinterpret_cast<unsigned long>(table != nullptr ? table->rootMode : nullptr));

    if (IsFileMode())
        static_cast<void>(LoadMode(modeTableIndex, modeBranch, modeCount, "GetModules"));

    ModeEntry* node = table != nullptr ? table->rootMode : nullptr;
    if (node == nullptr)
        return;
    if (WalkBranch(*this, "GetModules", node, modeBranch, modeCount,
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
    if (modeTableIndex >= m_modeTables.Count()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called with mode table index (%u) >= mode table count (%u)\n",
                                "LoadModeInternal", static_cast<unsigned int>(modeTableIndex),
                                m_modeTables.Count());
        return false;
    }
    ParameterModeTable* table = m_modeTables[modeTableIndex];
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
        WalkEnd const end = WalkBranch(*this, "LoadModeInternal", node, modeBranch, modeCount,
                                       [&](ModeEntry* reached) {
                                           return LoadModules(reached, true, moduleName, modeBranch,
                                                              modeCount, fileReferences);
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
    if (modeTableIndex >= m_modeTables.Count()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called with mode table index (%u) >= mode table count (%u)\n",
                                "UnloadMode", static_cast<unsigned int>(modeTableIndex),
                                m_modeTables.Count());
        return false;
    }
    ParameterModeTable* table = m_modeTables[modeTableIndex];
    ModeEntry* root = table != nullptr ? table->rootMode : nullptr;
    if (!IsFileMode()) {
        SetError("UnloadMode is not valid in buffer mode");
        return root != nullptr;
    }
    if (root == nullptr) {
        SetError("UnloadMode root mode is nullptr");
        return false;
    }
    ModeEntry* node = root;
    if (WalkBranch(*this, "UnloadMode", node, modeBranch, modeCount,
                   [](ModeEntry*) { return true; }) == WalkEnd::Missing)
        return false;
    // Only the last mode of the branch goes; its parents serve other branches too.
    int fileReferences = 0;
    static_cast<void>(LoadModules(node, false, nullptr, modeBranch, modeCount, fileReferences));
    return true;
}

bool ParameterSetManager::LoadModules(ModeEntry* mode, bool load, char const* moduleName,
                                      TuningMode const* modeBranch, unsigned int modeCount,
                                      int& fileReferences)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadModules(mode, load, moduleName, modeBranch, modeCount,
                                          fileReferences);

    bool const fileMode = IsFileMode();
    bool const evict = fileMode && m_maxActiveModes != 0;
    if (mode == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError, "LoadModules: mode is nullptr\n");
        return true;
    }
    unsigned int const tableIndex = mode->modeId >> 24;
    ParameterModeTable* table =
        tableIndex < m_modeTables.Count() ? m_modeTables[tableIndex] : nullptr;
    if (table == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "LoadModules: Mode's table index (%u) >= mode table count (%u)\n",
                                tableIndex, m_modeTables.Count());
        return true;
    }
    ModeEntry* target = mode->ResolveLink();
    if (!load && target->resident)
        return true;

    unsigned int const modeValue = target->mode.Parts.mode;
    // A node read before needs no reading, so the repeat lookup of a branch takes no node lock;
    // a Default or Sensor node has no place in the active list either and is done here. The
    // flag is read once: an eviction racing this lookup is met by the module's own load test.
    bool const readBefore = load && target->loaded;
    if (readBefore && modeValue < FirstListedMode)
        return true;

    char prefix[TablePrefixLength] = {};
    if (m_modeTables.Count() > 1)
        Vorn::OsUtils::SNPrintF(prefix, sizeof(prefix),
                                "(%s): ", table->name != nullptr ? table->name : "");

    // The node's own lock covers only the reading or freeing of its modules, and is given up
    // before the active list's lock: a second thread asking for the same mode waits here and
    // then finds it loaded.
    std::unique_lock<std::recursive_mutex> modeLock(target->modeMutex, std::defer_lock);
    if (fileMode && !readBefore)
        modeLock.lock();
    // The node moves to the front of the active list, followed there by the owners of shared
    // modules that reading it touched. A node read before only moves, and nothing is allocated
    // on that path: it is the one every frame of a client takes.
    ModeEntry* listed = nullptr;
    PList<ModeEntry*> owners;
    bool result = true;
    bool work = true;
    if (load) {
        bool const wasLoaded = readBefore || target->loaded;
        if (!wasLoaded && fileMode) {
            ++fileReferences;
            if (m_symbolTable != nullptr)
                m_symbolTable->FileReference(1);
        }
        if (wasLoaded && modeValue < FirstListedMode) {
            work = false;
        } else {
            if (modeValue >= FirstListedMode && target->HasLocalModules())
                listed = target;
            if (wasLoaded)
                work = false;
        }
    }

    if (work) {
        char branchPath[ModePathLength] = {};
        char targetPath[ModePathLength] = {};
        GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
        target->GetModePath(targetPath, sizeof(targetPath));
        char const* word = load ? "L" : "Unl";
        if (mode == target) {
            if (moduleName != nullptr)
                ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                                        "%s%soading modules (GetModule:%s:%s): %s\n", prefix, word,
                                        moduleName, branchPath, targetPath);
            else
                ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                                        "%s%soading modules (GetModule:Unknown:%s): %s\n", prefix,
                                        word, branchPath, targetPath);
        } else {
            char modePath[ModePathLength] = {};
            mode->GetModePath(modePath, sizeof(modePath));
            if (moduleName != nullptr)
                ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                                        "%s%soading modules (GetModule:%s:%s): %s->%s\n", prefix,
                                        word, moduleName, branchPath, modePath, targetPath);
            else
                ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                                        "%s%soading modules (GetModule:Unknown:%s): %s->%s\n",
                                        prefix, word, branchPath, modePath, targetPath);
        }

        if (!load) {
            // Only the node's own modules go; shared ones belong to, and go with, their owners.
            for (auto& entry : target->modules) {
                ParameterModule* module = entry.second.module;
                if (ModeEntry::OwnerOf(module) != target)
                    continue;
                std::lock_guard<std::recursive_mutex> moduleLock(module->moduleMutex);
                if (module->loaded) {
                    unsigned int const references = target->GetReferenceCount(module);
                    if (references != 0)
                        ParameterLogging::Write(
                            this, ParameterLogging::LogError,
                            "%sUnloading referenced module %s, Mode: %s, Ref count: %u\n", prefix,
                            module->moduleName != nullptr ? module->moduleName : "", targetPath,
                            references);
                }
                module->UnloadModule();
            }
            target->loaded = false;
            if (fileMode)
                modeLock.unlock();

            std::lock_guard<std::recursive_mutex> activeLock(table->activeModeMutex);
            unsigned int const unreleased = target->GetReferenceCount(nullptr);
            if (unreleased != 0) {
                ParameterLogging::Write(this, ParameterLogging::LogError,
                                        "%sUnloading mode with %u unreleased modules: %s\n", prefix,
                                        unreleased, targetPath);
                target->ReleaseReferences();
            }
            int const position = table->activeModes.Find(target);
            if (position >= 0)
                table->activeModes.Remove(static_cast<unsigned int>(position));
            return true;
        }

        bool complete = true;
        for (auto& entry : target->modules) {
            ParameterModule* module = entry.second.module;
            if (module == nullptr)
                continue;
            bool read = false;
            bool loaded = false;
            {
                std::lock_guard<std::recursive_mutex> moduleLock(module->moduleMutex);
                read = module->LoadModule(m_symbolTable);
                loaded = module->loaded;
            }
            // The owner of a shared module is in use too: it moves up the list with this mode.
            if (read && evict) {
                ModeEntry* owner = ModeEntry::OwnerOf(module);
                if (owner != nullptr && owner != listed && owners.Find(owner) < 0)
                    owners.Add(owner);
            }
            if (!loaded) {
                complete = false;
                break;
            }
        }
        target->loaded = complete;
        result = complete;
    }
    if (fileMode && modeLock.owns_lock())
        modeLock.unlock();

    std::lock_guard<std::recursive_mutex> activeLock(table->activeModeMutex);
    MoveToFront(*table, listed);
    for (unsigned int i = 0; i < owners.Count(); ++i)
        MoveToFront(*table, owners[i]);

    // Past the limit the oldest modes that no client holds are unloaded; a mode in use stays
    // where it is, so the list may run longer than the limit. The lock is held throughout, so
    // no reference can be taken on a mode between the test and its unload.
    unsigned int const limit =
        m_maxActiveModes > MinActiveModes ? m_maxActiveModes : MinActiveModes;
    for (unsigned int i = table->activeModes.Count(); i-- > limit;) {
        ModeEntry* node = table->activeModes[i];
        if (node == nullptr)
            continue;
        if (evict && !node->resident) {
            if (node->IsActive())
                continue;
            static_cast<void>(
                LoadModules(node, false, moduleName, modeBranch, modeCount, fileReferences));
            // The unload takes the node at the end of its link chain off the list; a listed node
            // that links elsewhere goes here, so that it cannot stay listed for good.
            if (i < table->activeModes.Count() && table->activeModes[i] == node)
                table->activeModes.Remove(i);
        } else {
            table->activeModes.Remove(i);
        }
    }
    return result;
}
