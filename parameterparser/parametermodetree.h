// SPDX-License-Identifier: Apache-2.0
// ParameterModeTree: the mode tables of a loaded file and of the parked generation, with the
// walks over their trees and the text forms of mode paths.
#pragma once

#include "parameterparser/modeentry.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/plist.h"

class ParameterModeTable;
class ParameterSetManager;
struct ModeSlot;

/// The mode tables of one main manager: those of the file in service, and those a reload parked,
/// which stay readable until the next reload frees them. The tree owns both. Faults are logged
/// through the manager and kept as its error. A tree's shape is fixed between loads, so reading
/// it needs no lock; only the active lists are guarded, by their tables' activeModeMutex.
class ParameterModeTree
{
public:
    /// How a branch walk ended.
    enum class WalkEnd
    {
        Complete, ///< every step was found (or the branch has only its root)
        Invalid,  ///< a step failed validation; the node reached so far stands
        Missing,  ///< a step is not in the tree
        Stopped,  ///< the visitor asked to stop
    };

    explicit ParameterModeTree(ParameterSetManager& manager) : m_manager(manager) {}
    /// Deletes the tables of both generations.
    ~ParameterModeTree();

    ParameterModeTree(ParameterModeTree const&) = delete;
    ParameterModeTree& operator=(ParameterModeTree const&) = delete;

    unsigned int Count() const { return m_tables.Count(); }
    /// The table of index in service; null when out of range. Borrowed.
    ParameterModeTable* Table(unsigned int index) const
    {
        return index < m_tables.Count() ? m_tables[index] : nullptr;
    }
    /// As above, logging at error level that caller was given an index past the count.
    ParameterModeTable* Table(char const* caller, unsigned int index);
    /// Takes over a table read from the file, behind the others.
    void Add(ParameterModeTable* table);
    /// Adds the one unnamed table of a file without mode sections: one slot, a Default root that
    /// is loaded and resident. False, with the error kept, when it cannot be allocated.
    [[nodiscard]] bool AddDefaultTable();
    /// Deletes the tables in service, first to last.
    void Free();
    /// Parks the tables in service, in their order, behind the parked ones.
    void Park();
    /// Deletes the parked tables, first to last.
    void FreeParked();
    PList<ParameterModeTable*> const& ParkedTables() const { return m_parked; }
    /// After a reload: adds the counts clients hold on the parked generation's modules to the
    /// new generation's, slot by slot, when both have the same tables with the same slot counts.
    void CarryReferenceCounts();

    /// The slot of a Mode ID; an index out of range is logged and gives null. Borrowed.
    ModeSlot* GetModeEntry(unsigned int modeId);
    /// Appends each table's name, in table order; false when there is no table.
    bool GetModeTableNames(PList<char const*>& names) const;

    /// Walks modeBranch down from node, step 0 being node itself; a run of steps of one mode
    /// value names nested nodes of that mode in either order and is matched as a whole. visit
    /// sees each node reached and returns false to stop; node is left at the last node reached.
    template <typename Visit>
    WalkEnd WalkBranch(char const* caller, ModeEntry*& node, TuningMode const* modeBranch,
                       unsigned int modeCount, Visit visit)
    {
        if (modeBranch == nullptr)
            return WalkEnd::Complete;
        for (unsigned int index = 1; index < modeCount;) {
            WalkEnd const end = StepDown(caller, node, modeBranch, modeCount, index);
            if (end != WalkEnd::Complete)
                return end;
            if (!visit(node))
                return WalkEnd::Stopped;
        }
        return WalkEnd::Complete;
    }

    /// The node that modeBranch reaches below node, as WalkBranch walks it; null when a step is
    /// not in the tree. Borrowed.
    ModeEntry* FindNode(char const* caller, ModeEntry* node, TuningMode const* modeBranch,
                        unsigned int modeCount)
    {
        auto const any = [](ModeEntry*) { return true; };
        return WalkBranch(caller, node, modeBranch, modeCount, any) == WalkEnd::Missing ? nullptr
                                                                                        : node;
    }

    /// True if step index of modeBranch has a mode value of 6 or less and is Default only at
    /// index 0; otherwise the reason, led by caller, is kept as the manager's error.
    bool ValidateMode(char const* caller, TuningMode const* modeBranch, unsigned int index);

    /// Appends the steps of a mode path ("0.0|1.2") to modeBranch; false for a null path, a
    /// character other than a digit or "." (steps before it stay), or no step at all.
    static bool GetModeBranchFromPath(char const* path, PList<TuningMode>& modeBranch);
    /// Appends the mode path of modeBranch to path, cut at length; stops at an invalid step.
    void GetPathFromModeBranch(TuningMode const* modeBranch, unsigned int modeCount, char* path,
                               unsigned int length);
    /// Writes the named children of node (the root of the table for null; a bad index is logged)
    /// joined by "," and terminated; bytes that do not fit are logged. Returns the bytes written.
    unsigned int GetChildModes(unsigned char modeTableIndex, ModeEntry* node, unsigned char* result,
                               unsigned int resultLength);
    /// Writes the named paths of at most five deepest active branches of a table.
    void GetActiveModes(unsigned char modeTableIndex, char* result, unsigned int resultLength);

    static unsigned short GetModeIndex(char const* name);
    static unsigned short GetSubModeIndex(unsigned short mode, char const* name);
    static void GetModeShorthand(char const* modes, char* result, unsigned int resultLength);
    static void GetKnobbyModesString(char const* modes, char* result, unsigned int resultLength);

private:
    /// One step of WalkBranch at index: validates it, matches its run below node and moves node
    /// and index behind the run. Inline, as every lookup takes it for every step of its branch.
    WalkEnd StepDown(char const* caller, ModeEntry*& node, TuningMode const* modeBranch,
                     unsigned int modeCount, unsigned int& index)
    {
        if (!ValidateMode(caller, modeBranch, index))
            return WalkEnd::Invalid;
        unsigned int run = 1;
        while (index + run < modeCount && modeBranch[index + run].mode == modeBranch[index].mode)
            ++run;
        ModeEntry* next = node->FindMode(&modeBranch[index], run, 0);
        if (next == nullptr)
            return WalkEnd::Missing;
        node = next;
        index += run;
        return WalkEnd::Complete;
    }

    ParameterSetManager& m_manager;
    PList<ParameterModeTable*> m_tables;
    PList<ParameterModeTable*> m_parked;
};
