// SPDX-License-Identifier: Apache-2.0
// ParameterModuleStore: reading and freeing the modules of one mode, the active mode list of each
// table and the eviction of the least recently used modes that no client holds.
#include <cstring>
#include <mutex>

#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametermodulestore.h"
#include "parameterparser/parametersetmanager.h"

namespace {

constexpr unsigned int ModePathLength = 128;
// "(<table name>): " in front of the load messages of a file with several tables.
constexpr unsigned int TablePrefixLength = 133;
// The active list never shrinks below this many modes, whatever the manager's limit.
constexpr unsigned int MinActiveModes = 5;
// Default and Sensor modes are resident and never take a place in the active list.
constexpr unsigned int FirstListedMode = ModeUsecase;

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

} // namespace

void ParameterModuleStore::LogModeLoad(char const* prefix, bool load, ModeEntry* mode,
                                       ModeEntry* target, char const* moduleName,
                                       TuningMode const* modeBranch, unsigned int modeCount,
                                       char* targetPath, unsigned int targetPathLength)
{
    char branchPath[ModePathLength] = {};
    m_tree.GetPathFromModeBranch(modeBranch, modeCount, branchPath, sizeof(branchPath));
    target->GetModePath(targetPath, targetPathLength);
    char const* word = load ? "L" : "Unl";
    char const* caller = moduleName != nullptr ? moduleName : "Unknown";
    if (mode == target) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogVerbose,
                                "%s%soading modules (GetModule:%s:%s): %s\n", prefix, word, caller,
                                branchPath, targetPath);
        return;
    }
    // A linked node names the node asked for and the one whose modules it uses.
    char modePath[ModePathLength] = {};
    mode->GetModePath(modePath, sizeof(modePath));
    ParameterLogging::Write(&m_manager, ParameterLogging::LogVerbose,
                            "%s%soading modules (GetModule:%s:%s): %s->%s\n", prefix, word, caller,
                            branchPath, modePath, targetPath);
}

void ParameterModuleStore::UnloadModeModules(ParameterModeTable& table, ModeEntry* target,
                                             char const* prefix, char const* targetPath,
                                             bool fileMode)
{
    {
        std::unique_lock<std::recursive_mutex> modeLock(target->modeMutex, std::defer_lock);
        if (fileMode)
            modeLock.lock();
        // Only the node's own modules go; shared ones belong to, and go with, their owners.
        for (auto& entry : target->modules) {
            ParameterModule* module = entry.second.module;
            if (ModeEntry::OwnerOf(module) != target)
                continue;
            std::lock_guard<std::recursive_mutex> moduleLock(module->moduleMutex);
            unsigned int const references = module->loaded ? target->GetReferenceCount(module) : 0;
            if (references != 0)
                ParameterLogging::Write(
                    &m_manager, ParameterLogging::LogError,
                    "%sUnloading referenced module %s, Mode: %s, Ref count: %u\n", prefix,
                    module->moduleName != nullptr ? module->moduleName : "", targetPath,
                    references);
            module->UnloadModule();
        }
        target->loaded = false;
    }

    std::lock_guard<std::recursive_mutex> activeLock(table.activeModeMutex);
    unsigned int const unreleased = target->GetReferenceCount(nullptr);
    if (unreleased != 0) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "%sUnloading mode with %u unreleased modules: %s\n", prefix,
                                unreleased, targetPath);
        target->ReleaseReferences();
    }
    int const position = table.activeModes.Find(target);
    if (position >= 0)
        table.activeModes.Remove(static_cast<unsigned int>(position));
}

bool ParameterModuleStore::ReadModeModules(ModeEntry* target, bool evict, ModeEntry const* listed,
                                           PList<ModeEntry*>& owners)
{
    bool complete = true;
    for (auto& entry : target->modules) {
        ParameterModule* module = entry.second.module;
        if (module == nullptr)
            continue;
        bool read = false;
        bool loaded = false;
        {
            std::lock_guard<std::recursive_mutex> moduleLock(module->moduleMutex);
            read = module->LoadModule(m_manager.m_symbolTable);
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
    return complete;
}

void ParameterModuleStore::EvictPastLimit(ParameterModeTable& table, bool evict,
                                          char const* moduleName, TuningMode const* modeBranch,
                                          unsigned int modeCount, int& fileReferences)
{
    // Past the limit the oldest modes that no client holds are unloaded; a mode in use stays
    // where it is, so the list may run longer than the limit. The caller holds the list's lock
    // throughout, so no reference can be taken on a mode between the test and its unload.
    unsigned int const limit =
        m_manager.m_maxActiveModes > MinActiveModes ? m_manager.m_maxActiveModes : MinActiveModes;
    for (unsigned int i = table.activeModes.Count(); i-- > limit;) {
        ModeEntry* node = table.activeModes[i];
        if (node == nullptr)
            continue;
        if (evict && !node->resident) {
            if (node->IsActive())
                continue;
            static_cast<void>(
                LoadModules(node, false, moduleName, modeBranch, modeCount, fileReferences));
            // The unload takes the node at the end of its link chain off the list; a listed node
            // that links elsewhere goes here, so that it cannot stay listed for good.
            if (i < table.activeModes.Count() && table.activeModes[i] == node)
                table.activeModes.Remove(i);
        } else {
            table.activeModes.Remove(i);
        }
    }
}

bool ParameterModuleStore::LoadModules(ModeEntry* mode, bool load, char const* moduleName,
                                       TuningMode const* modeBranch, unsigned int modeCount,
                                       int& fileReferences)
{
    if (mode == nullptr) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "LoadModules: mode is nullptr\n");
        return true;
    }
    unsigned int const tableIndex = mode->modeId >> 24;
    ParameterModeTable* table = m_tree.Table(tableIndex);
    if (table == nullptr) {
        ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                                "LoadModules: Mode's table index (%u) >= mode table count (%u)\n",
                                tableIndex, m_tree.Count());
        return true;
    }
    ModeEntry* target = mode->ResolveLink();
    if (!load && target->resident)
        return true;

    bool const fileMode = m_manager.IsFileMode();
    unsigned int const modeValue = target->mode.Parts.mode;
    // A node read before needs no reading, so the repeat lookup of a branch takes no node lock;
    // a Default or Sensor node has no place in the active list either and is done here. The
    // flag is read once: an eviction racing this lookup is met by the module's own load test.
    bool const readBefore = load && target->loaded;
    if (readBefore && modeValue < FirstListedMode)
        return true;

    char prefix[TablePrefixLength] = {};
    if (m_tree.Count() > 1)
        Vorn::OsUtils::SNPrintF(prefix, sizeof(prefix),
                                "(%s): ", table->name != nullptr ? table->name : "");
    char targetPath[ModePathLength] = {};
    if (!load) {
        LogModeLoad(prefix, false, mode, target, moduleName, modeBranch, modeCount, targetPath,
                    sizeof(targetPath));
        UnloadModeModules(*table, target, prefix, targetPath, fileMode);
        return true;
    }

    // The node's own lock covers only the reading of its modules, and is given up before the
    // active list's lock: a second thread asking for the same mode waits here and then finds it
    // loaded. A node read before only moves in the list, and nothing is allocated on that path:
    // it is the one every frame of a client takes.
    std::unique_lock<std::recursive_mutex> modeLock(target->modeMutex, std::defer_lock);
    if (fileMode && !readBefore)
        modeLock.lock();
    bool const wasLoaded = readBefore || target->loaded;
    if (!wasLoaded && fileMode) {
        ++fileReferences;
        if (m_manager.m_symbolTable != nullptr)
            m_manager.m_symbolTable->FileReference(1);
    }
    // The node moves to the front of the active list, followed there by the owners of shared
    // modules that reading it touched.
    ModeEntry* listed =
        modeValue >= FirstListedMode && target->HasLocalModules() ? target : nullptr;
    PList<ModeEntry*> owners;
    bool result = true;
    bool const evict = fileMode && m_manager.m_maxActiveModes != 0;
    if (!wasLoaded) {
        LogModeLoad(prefix, true, mode, target, moduleName, modeBranch, modeCount, targetPath,
                    sizeof(targetPath));
        result = ReadModeModules(target, evict, listed, owners);
    }
    if (modeLock.owns_lock())
        modeLock.unlock();

    std::lock_guard<std::recursive_mutex> activeLock(table->activeModeMutex);
    MoveToFront(*table, listed);
    for (unsigned int i = 0; i < owners.Count(); ++i)
        MoveToFront(*table, owners[i]);
    EvictPastLimit(*table, evict, moduleName, modeBranch, modeCount, fileReferences);
    return result;
}
