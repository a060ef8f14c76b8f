// SPDX-License-Identifier: Apache-2.0
// ParameterModeTable: one mode table of a loaded file, its tree, slots and active list.
#pragma once

#include <cstdint>
#include <mutex>

#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

class ModeEntry;
struct ModeSlot;

/// One mode table: its name, the tree under rootMode and the slot array that Mode IDs index.
/// The table owns the name (VornCalloc), the tree and the slots (VornCalloc); destroying it
/// frees all three. Only the set manager's mode section reader makes tables.
class PARAMETERPARSER_API ParameterModeTable
{
public:
    /// Takes ownership of tableName (VornCalloc, may be null) and of slots (VornCalloc, count
    /// elements, may be null when count is 0). The tree starts empty.
    ParameterModeTable(char* tableName, ModeSlot* slots, uint32_t count);
    ~ParameterModeTable();

    ParameterModeTable(ParameterModeTable const&) = delete;
    ParameterModeTable& operator=(ParameterModeTable const&) = delete;

    char* name;
    ModeEntry* rootMode = nullptr;
    ModeSlot* modes;
    uint32_t m_modeCount;
    /// Nodes with modules in use, most recently used first; guarded by activeModeMutex.
    PList<ModeEntry*> activeModes;
    std::recursive_mutex activeModeMutex;
    /// Nodes the file placed in slots but not in the tree (their parent slot was still empty);
    /// owned here so that they are freed with the tree.
    PList<ModeEntry*> detachedModes;
};
