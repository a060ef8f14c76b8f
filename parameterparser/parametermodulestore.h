// SPDX-License-Identifier: Apache-2.0
// ParameterModuleStore: the modules of a loaded file by mode, their references, the loading and
// eviction of modes, and the parked generation.
#pragma once

#include "parameterparser/modeunion.h"
#include "parameterparser/plist.h"

class DefaultModule;
class ModeEntry;
class ModuleData;
class ParameterFileSymbolTable;
class ParameterFileSymbolTableEntry;
class ParameterModeTable;
class ParameterModeTree;
class ParameterModule;
class ParameterSetManager;

/// The module store of one main manager: it makes the modules of a file and hangs them on their
/// mode nodes, finds the module of a branch, counts the references clients hold, reads the modes
/// of a branch in file mode and unloads the least recently used ones that no client holds, except
/// those whose values a client changed. It also keeps the generation a reload parked, and the
/// modules an update replaced. The operations are the manager's of the same names (GetModule is
/// GetModuleInternal), which run here on the main manager.
class ParameterModuleStore
{
public:
    ParameterModuleStore(ParameterSetManager& manager, ParameterModeTree& tree)
        : m_manager(manager), m_tree(tree)
    {
    }

    ParameterModuleStore(ParameterModuleStore const&) = delete;
    ParameterModuleStore& operator=(ParameterModuleStore const&) = delete;

    ParameterModule* CreateModule(ParameterFileSymbolTableEntry const* entry, ModuleData* data,
                                  bool loadNow);
    bool AddModule(ModuleData const* data, ParameterModule* module);

    ParameterModule* GetModule(unsigned char modeTableIndex, char const* moduleName,
                               TuningMode const* modeBranch, unsigned int modeCount,
                               ParameterModule* previous);
    void GetModules(unsigned char modeTableIndex, PList<ParameterModule*>& modules,
                    TuningMode const* modeBranch, unsigned int modeCount, bool includeLocal,
                    bool includeShared, PipelineType* pipeline);
    void ReleaseModule(ParameterModule const* module);
    void ReleaseModules(PList<ParameterModule*>& modules);
    [[nodiscard]] bool LoadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                unsigned int modeCount, char const* moduleName);
    [[nodiscard]] bool LoadModeInternal(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                        unsigned int modeCount, char const* moduleName);
    bool UnloadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                    unsigned int modeCount);
    bool LoadModules(ModeEntry* mode, bool load, char const* moduleName,
                     TuningMode const* modeBranch, unsigned int modeCount, int& fileReferences);

    /// Keeps the node that owns module, a module whose values a client changed, loaded for good:
    /// the node becomes resident and leaves its table's active list.
    void KeepOwnerLoaded(ParameterModule const* module);

    /// Parks the generation in service ahead of a reload: its module instances (through the
    /// manager's SaveAndClearModules), its symbol table and its mode tables.
    void Park();
    /// Deletes the parked generation: modules first (whose unload needs their symbol table),
    /// then symbol tables, then mode tables.
    void FreeParked();
    /// Moves the modules of source and of its later siblings into target, unless target links
    /// elsewhere: each takes the place of target's module of its name, which is parked when this
    /// manager's registry owns it, and joins this manager's registry chain of its kind, leaving
    /// other's.
    void MoveModules(ModeEntry* target, ModeEntry* source, ParameterSetManager* other);
    PList<ParameterFileSymbolTable*> const& ParkedSymbolTables() const { return m_parkedTables; }

private:
    /// Makes and, with loadNow, reads the instance of a registered kind.
    ParameterModule* CreateModuleOfKind(DefaultModule* kind,
                                        ParameterFileSymbolTableEntry const* entry,
                                        ModuleData* data, bool loadNow);
    /// Logs what is amiss in a lookup's arguments: a null branch with steps, a branch that does
    /// not start at Default, an empty registry. caller(name) leads each message.
    void WarnAboutLookup(char const* caller, char const* name, ParameterModeTable const* table,
                         TuningMode const* modeBranch, unsigned int modeCount);
    /// The module name of the deepest node of the branch that holds one, root first; null (a
    /// root miss is a warning) when none does or a root miss meets a null branch.
    ParameterModule* FindOnBranch(ModeEntry* root, char const* name, TuningMode const* modeBranch,
                                  unsigned int modeCount);
    /// Takes the caller's reference on module (file mode) and reads it if needed; a failed read
    /// gives the reference back and is logged. True when the module is loaded.
    bool TakeModule(ParameterModule* module, bool fileMode);
    /// The verbose line of a mode's load or unload; targetPath receives the path of target.
    void LogModeLoad(char const* prefix, bool load, ModeEntry* mode, ModeEntry* target,
                     char const* moduleName, TuningMode const* modeBranch, unsigned int modeCount,
                     char* targetPath, unsigned int targetPathLength);
    /// Unloads target's own modules, logging references still held, clears them and takes
    /// target off the active list.
    void UnloadModeModules(ParameterModeTable& table, ModeEntry* target, char const* prefix,
                           char const* targetPath, bool fileMode);
    /// Reads target's modules until one fails; with evict, adds to owners the owners of shared
    /// modules (other than listed) that were read. True, and target loaded, when all are.
    bool ReadModeModules(ModeEntry* target, bool evict, ModeEntry const* listed,
                         PList<ModeEntry*>& owners);
    /// Unloads the oldest listed modes no client holds past the manager's limit (at least 5);
    /// without evict only shortens the list. The caller holds the list's lock.
    void EvictPastLimit(ParameterModeTable& table, bool evict, char const* moduleName,
                        TuningMode const* modeBranch, unsigned int modeCount, int& fileReferences);

    ParameterSetManager& m_manager;
    ParameterModeTree& m_tree;
    /// Symbol tables of the parked generation; owned.
    PList<ParameterFileSymbolTable*> m_parkedTables;
};
