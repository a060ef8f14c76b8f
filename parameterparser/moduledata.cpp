// SPDX-License-Identifier: Apache-2.0
// ModuleData: joins a module entry of the symbol table to the slot and path of its mode.
#include "parameterparser/moduledata.h"

#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/imodetable.h"
#include "parameterparser/iparametermodulehost.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parameterlogging.h"

namespace {

constexpr unsigned int ModePathLength = 128;

} // namespace

ModuleData::ModuleData(unsigned long nameHash, uint32_t id, uint32_t duplicateId,
                       VersionUnion version, uint32_t modeId, IModeTable* modeTable,
                       ParameterSetManager* manager, ParameterFileSymbolTable* symbolTable)
    : NameHash(nameHash), ID(id), DuplicateID(duplicateId), Version(version), ModeId(modeId),
      Mode(nullptr), ModePath(nullptr), SetManager(manager), SymbolTable(symbolTable)
{
    if (modeTable == nullptr) {
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "ModuleData called with nullptr modeTable parameter\n");
        ModePath = static_cast<char*>(VornCalloc(1, VornTagAllocData));
        return;
    }

    ModeSlot* slot = modeTable->GetModeEntry(modeId);
    if (slot == nullptr || slot->mode == nullptr) {
        // The record still needs a mode to hang its module on: it gets one of its own, which
        // no branch reaches.
        auto* own = static_cast<ModeSlot*>(VornCalloc(sizeof(ModeSlot), VornTagAllocData));
        if (own != nullptr) {
            own->mode = new (std::nothrow) ModeEntry(false, false);
            Mode = own;
            m_ownsSlot = true;
        }
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "Failed to find ModeID %d in mode table when creating ModuleData\n",
                                static_cast<int>(modeId));
        ModePath = static_cast<char*>(VornCalloc(1, VornTagAllocData));
        return;
    }

    Mode = slot;
    ModePath = static_cast<char*>(VornCalloc(ModePathLength, VornTagAllocData));
    if (ModePath != nullptr)
        slot->mode->GetModePath(ModePath, ModePathLength);
}

ModuleData::~ModuleData()
{
    VornFree(ModePath, VornTagRelease);
    ModePath = nullptr;
    if (m_ownsSlot && Mode != nullptr) {
        delete Mode->mode;
        VornFree(Mode, VornTagRelease);
    }
    Mode = nullptr;
}

unsigned int ModuleData::GetModeTableIndex() const
{
    return ::ModeId::TableIndex(ModeId);
}

unsigned int ModuleData::GetModeIDValue() const
{
    return ::ModeId::SlotIndex(ModeId);
}

ParameterModeTable* ModuleData::GetModeTable() const
{
    IParameterModuleHost* host = Host();
    return host != nullptr ? host->GetModeTable(GetModeTableIndex()) : nullptr;
}

IParameterLoggingAPI* ModuleData::Logger() const
{
    return IParameterModuleHost::LoggerOf(SetManager);
}

// The host face is looked up on each use rather than kept: a record exists for every module entry
// of a file, so it stays as small as its fields.
IParameterModuleHost* ModuleData::Host() const
{
    return IParameterModuleHost::Of(SetManager);
}
