// SPDX-License-Identifier: Apache-2.0
// ModeEntry: one node of a mode tree, a mode and sub-mode below its parent.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "parameterparser/modeunion.h"
#include "parameterparser/parameterexport.h"

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

    /// True while some module held through this node has a reference count above 0.
    bool IsActive();

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
    bool loaded;
    bool resident;
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
