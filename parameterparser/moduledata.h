// SPDX-License-Identifier: Apache-2.0
// ModuleData: the record that joins a module entry of the symbol table to its mode.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "parameterparser/versionunion.h"

class IModeTable;
class IParameterLoggingAPI;
class IParameterModuleHost;
class ParameterFileSymbolTable;
class ParameterModeTable;
class ParameterSetManager;
struct ModeSlot;

class PARAMETERPARSER_API ModuleData
{
public:
    /// Takes the entry's fields and finds the slot of modeId through modeTable. A null modeTable
    /// logs "ModuleData called with nullptr modeTable parameter\n"; a Mode ID the table does not
    /// know gets a private slot with a fresh node and logs "Failed to find ModeID %d in mode
    /// table when creating ModuleData\n" (both at error level through manager's logger). manager
    /// stays opaque to the record: it is reached through its host face only.
    ModuleData(unsigned long nameHash, uint32_t id, uint32_t duplicateId, VersionUnion version,
               uint32_t modeId, IModeTable* modeTable, ParameterSetManager* manager,
               ParameterFileSymbolTable* symbolTable);
    ~ModuleData();

    ModuleData(ModuleData const&) = delete;
    ModuleData& operator=(ModuleData const&) = delete;

    /// The mode table index of ModeId (bits 31-24).
    unsigned int GetModeTableIndex() const;
    /// The slot index of ModeId in its table (bits 23-0).
    unsigned int GetModeIDValue() const;
    /// The manager's table of GetModeTableIndex; null without a manager or for an index out of
    /// range. Borrowed.
    ParameterModeTable* GetModeTable() const;
    /// The manager as the logger of what concerns this record; null without a manager.
    IParameterLoggingAPI* Logger() const;
    /// The manager's face for the modules of this record; null without a manager. Borrowed.
    IParameterModuleHost* Host() const;

    unsigned long NameHash;
    uint32_t ID;
    uint32_t DuplicateID;
    VersionUnion Version;
    uint32_t ModeId;
    ModeSlot* Mode; ///< borrowed from the mode table, or the private slot (owned)
    char* ModePath; ///< owned; "" when the mode is unknown
    ParameterSetManager* SetManager;
    ParameterFileSymbolTable* SymbolTable;

private:
    bool m_ownsSlot = false; ///< Mode is the private slot made for an unknown Mode ID
};
