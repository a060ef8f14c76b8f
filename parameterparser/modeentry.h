// SPDX-License-Identifier: Apache-2.0
// ModeEntry: one node of a mode tree, a mode and sub-mode below its parent.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "parameterparser/modeunion.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

class ParameterModule;

/// One node of a table's mode tree. A node owns its first child and its next sibling, so the root
/// owns the whole tree; the modules named in `modules` are not owned. The tree's shape is fixed
/// between a load and the next reload, so reading it needs no lock.
class PARAMETERPARSER_API ModeEntry
{
public:
    /// A module that serves this node, with the count of clients holding it through this node.
    struct ModuleReference
    {
        ParameterModule* module;
        std::atomic<int32_t> refCount;
    };

    /// Sets loaded and resident; everything else is zero and the mode is Default 0.
    ModeEntry(bool loadedFlag, bool residentFlag);
    /// Destroys the node's subtree and its later siblings with their subtrees. Modules named in
    /// `modules` are left alone.
    ~ModeEntry();

    ModeEntry(ModeEntry const&) = delete;
    ModeEntry& operator=(ModeEntry const&) = delete;

    /// Takes the Mode ID, the mode step (pipeline included) and the link slot (may be null).
    void Initialize(unsigned int id, ModeUnion const& step, ModeEntry** linkSlot);
    /// Takes the Mode ID, mode and sub-mode with pipeline 0, and the link slot (may be null).
    void Initialize(unsigned int id, unsigned short modeValue, unsigned short subModeValue,
                    ModeEntry** linkSlot);

    /// Appends child at the end of the children and makes this node its parent; null is ignored.
    void AddMode(ModeEntry* child);

    /// The first child of the node at the end of this node's link chain whose mode and sub-mode
    /// equal step's; null if none (or step is null). Borrowed.
    ModeEntry* FindMode(TuningMode const* step);

    /// The node reached by a chain of exactly count levels below the end of this node's link
    /// chain, each level matching one of the count steps, in whichever order the tree holds
    /// them; depth is the number of levels already matched (0 from outside). Null if no chain
    /// of count levels exists or count is 0. Borrowed.
    ModeEntry* FindMode(TuningMode const* steps, unsigned int count, unsigned int depth);

    /// Appends this node's mode path ("0.0|1.2|2.0") to path, which the caller zeroes first; a
    /// path that does not fit in length bytes (terminator included) is cut.
    void GetModePath(char* path, unsigned int length);

    /// True if other is on the parent chain above this node; a node is not its own parent and
    /// null gives false.
    bool IsParent(ModeEntry* other);

    /// The node at the end of this node's link chain (this node when it has no link). Links
    /// point into packed slots, so they are read through here and never dereferenced directly.
    /// A chain that loops ends after 64 links. Borrowed.
    ModeEntry* ResolveLink();

    // Modules and references. A module is local to the node that owns it (the node of its
    // record's slot) and shared in every other node whose map names it; its reference count lives
    // in its owner's map. Counts change under the table's activeModeMutex and are read without a
    // lock.

    /// The node that owns module: the node of its record's slot. Null for a null module, one
    /// without a record (a factory instance) or one whose record has no slot. Borrowed.
    static ModeEntry* OwnerOf(ParameterModule const* module);

    /// Enters module under its name hash with a count of 0; the first module of a name stays, so
    /// a second one of the same hash changes nothing. False only for null.
    bool AddModule(ParameterModule* module);

    /// The module of nameHash in the map of the node at the end of this node's link chain; null
    /// if that map has none. Parents are not searched. Borrowed.
    ParameterModule* FindModule(unsigned long nameHash);

    /// Adds one reference to module, which must be local here, under its table's
    /// activeModeMutex. Logs at error level (through the module's manager) "Attempt to lock
    /// Active Mode Mutex failed, mode table not found for ModeID: %u\n" when the table is not
    /// found (and goes on unlocked), "Attempt to add reference to a non-existant module. ..." when
    /// the map lacks it and "Attempt to add module reference from wrong mode. ..." when it is
    /// shared here; the count is unchanged in both. Null does nothing.
    void AddReference(ParameterModule const* module);

    /// Takes one reference off module, in the same frame as AddReference. Logs "Attempt to
    /// release a non-existant module. ..." (not in the map, or the map's module has no record or
    /// slot), "Attempt to release module reference from wrong mode. ..." (shared here) or "Attempt
    /// to release unreferenced module. ..." (count 0), each leaving the count alone.
    void ReleaseReference(ParameterModule const* module);

    /// Sets every local count to 0, logging "ReleaseReferences called with unreleased module:
    /// %s, RefCnt: %u\n" at error level for each that was above 0. The caller holds the table's
    /// activeModeMutex.
    void ReleaseReferences();

    /// Gives back the reference of each module in modules to its owner and empties the list.
    void ReleaseModules(PList<ParameterModule*>& modules);

    /// Releases what modules held, then appends every module of the map at the end of the link
    /// chain that passes the filters, taking a reference on its owner for each. includeLocal
    /// takes the modules owned by that node, includeShared the others; pipeline, if given, keeps
    /// only modules whose mode's pipeline is *pipeline + 1. The caller releases the list.
    void GetModules(PList<ParameterModule*>& modules, bool includeLocal, bool includeShared,
                    PipelineType* pipeline);

    /// With a null module: the sum of the counts of all local modules. With a module: the sum of
    /// the local counts from its map entry to the end of the map, in map order (so not that
    /// module's count alone unless it is the last); 0 if the map lacks it.
    unsigned int GetReferenceCount(ParameterModule const* module);

    /// True while some local module has a reference count above 0.
    bool IsActive();

    /// True if some module of the map is local.
    bool HasLocalModules();

    /// Stores module under its name hash with a count of 0, in place of the module stored there
    /// before, whose count is dropped. Returns that earlier module (null if the name was not
    /// here, or module is null), which the caller takes over. Only for a merge that runs alone.
    ParameterModule* ReplaceModule(ParameterModule* module);

    /// The name of this node's sub-mode ("Preview" for Usecase 0); null for Default and Sensor
    /// and for a value past the end of its mode's names. Static text.
    char const* GetSubModeName();

    /// The name of a mode value ("Default" ... "Effect"); null above 6. Static text.
    static char const* GetModeName(unsigned int modeValue);
    /// The name of a sub-mode of a mode value; null where the mode has no names or the value is
    /// past their end. Static text.
    static char const* GetSubModeName(unsigned int modeValue, unsigned int subModeValue);
    /// The number of named sub-modes of a mode value; 0 for Default, Sensor and values above 6.
    static unsigned int GetSubModeNameCount(unsigned int modeValue);

    uint32_t modeId = 0;
    ModeUnion mode;
    /// Whether every module of the node is read. Written under modeMutex; atomic because a
    /// lookup of a node that is already read tests it without taking that lock.
    std::atomic<bool> loaded;
    /// Set for Default and Sensor modes, for modes the file marks, and by SetValue on the owner
    /// of a changed module. Atomic because lookups test it without a lock while a value change
    /// sets it under the table's activeModeMutex; a byte like a plain bool.
    std::atomic<bool> resident;
    ModeEntry** link = nullptr;
    ModeEntry* parent = nullptr;
    ModeEntry* firstChild = nullptr;
    ModeEntry* lastChild = nullptr;
    ModeEntry* nextSibling = nullptr;
    std::recursive_mutex modeMutex;
    std::unordered_map<unsigned long, ModuleReference> modules;

private:
    /// The last node of the child chain.
    ModeEntry* ChildChainEnd();
};
