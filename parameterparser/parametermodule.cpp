// SPDX-License-Identifier: Apache-2.0
// ParameterModule: the base of every generated module class, and the frame of its load.
#include "parameterparser/parametermodule.h"

#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/iparametermodulehost.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parsercrc.h"

namespace {

ModeUnion ModeOf(ModuleData const* data)
{
    ModeUnion result;
    if (data == nullptr || data->Mode == nullptr)
        return result;
    // The slot array is packed: copy the fields out rather than bind references into it.
    ModeSlot slot;
    std::memcpy(&slot, data->Mode, sizeof(slot));
    if (slot.mode != nullptr)
        result = slot.mode->mode;
    result.Parts.pipeline = slot.pipeline;
    return result;
}

} // namespace

ParameterModule::ParameterModule(char const* name, unsigned short major, unsigned short minor,
                                 unsigned int patch, ModuleData* moduleData)
    : moduleNameHash(ParserCRC64::HashName(name)), moduleName(name), version(major, minor, patch),
      mode(ModeOf(moduleData)), data(moduleData), loaded(false), modified(0)
{
}

ParameterModule::~ParameterModule() = default;

void* ParameterModule::operator new(std::size_t size) noexcept
{
    return VornCalloc(size, VornTagAllocObject);
}

void ParameterModule::operator delete(void* block) noexcept
{
    VornFree(block, VornTagRelease);
}

bool ParameterModule::GetValue(char const*, char*, unsigned int)
{
    return false;
}

bool ParameterModule::SetValue(char const*, char const*)
{
    return false;
}

bool ParameterModule::GetInfo(char const*, PList<ParameterParserInfo>&)
{
    return false;
}

void ParameterModule::Release()
{
    IParameterModuleHost* host = data != nullptr ? data->Host() : nullptr;
    if (host == nullptr) {
        ParameterLogging::Write(nullptr, ParameterLogging::LogError,
                                "Attempt to release module reference when Data or SetManager is "
                                "nullptr. Module %s\n",
                                moduleName != nullptr ? moduleName : "");
        return;
    }
    // Buffer mode counts no references, so there is nothing to give back.
    if (host->IsFileMode())
        host->ReleaseModule(this);
}

int ParameterModule::GetReferenceCount()
{
    ModeEntry* owner = ModeEntry::OwnerOf(this);
    return owner != nullptr ? static_cast<int>(owner->GetReferenceCount(this)) : 0;
}

IParameterLoggingAPI* ParameterModule::Logger() const
{
    return RecordLogger(data);
}

IParameterLoggingAPI* ParameterModule::RecordLogger(ModuleData const* record)
{
    return record != nullptr ? record->Logger() : nullptr;
}

ParameterModule* ParameterModule::CreateInstance(ModuleData* record, DefaultModule* defaults,
                                                 MakeFunction make) const
{
    if (record == nullptr)
        return nullptr;
    unsigned int const id = record->DuplicateID != 0 ? record->DuplicateID : record->ID;
    // A record that duplicates another shares the instance made for it: one load serves both.
    if (defaults != nullptr) {
        ParameterModule* existing = defaults->Find(id);
        if (existing != nullptr)
            return existing;
    }
    ParameterModule* instance = make(moduleName, record, id);
    if (instance != nullptr && defaults != nullptr)
        defaults->AddModule(instance);
    return instance;
}

ParameterFileSymbolTable* ParameterModule::UnloadTable()
{
    if (data != nullptr && data->SymbolTable != nullptr)
        return data->SymbolTable;
    ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                            "UnloadModule %s called with nullptr Data->SymbolTable object\n",
                            moduleName != nullptr ? moduleName : "");
    return nullptr;
}

ParameterModuleLoad::ParameterModuleLoad(ParameterModule* module, ParameterFileSymbolTable* table,
                                         unsigned int id, char const* className)
    : m_module(module), m_context(table != nullptr ? table->GetFileLength() : 0)
{
    if (table != nullptr)
        m_found = table->Find(m_entry, id, true);
    if (!m_found)
        ParameterLogging::Write(table != nullptr ? table->Logger() : nullptr,
                                ParameterLogging::LogError,
                                "%s::LoadModule Failed to find module ID (%d) in Symbol Table\n",
                                className, static_cast<int>(id));
    if (table != nullptr) {
        ParameterFileSymbolTable::ModuleMap const* modules = table->GetDefinitionModules();
        if (modules != nullptr && !modules->empty())
            m_root = table->BuildModuleElement(module->moduleNameHash);
    }
    m_parameters.entry = &m_entry;
    m_parameters.nameHash = module->moduleNameHash;
    m_parameters.useParent = true;
    m_parameters.addElementOffset = true;
    m_parameters.parentElement = m_root;
    m_parameters.basePosition = m_entry.Position;
    m_parameters.arrayIndex = 0;
    m_parameters.loadLimit = NoLoadLimit;
}

ParameterModuleLoad::~ParameterModuleLoad()
{
    delete m_root;
}

bool ParameterModuleLoad::Finish()
{
    delete m_root;
    m_root = nullptr;
    m_parameters.parentElement = nullptr;
    ++m_module->modified;
    m_module->loaded = true;
    // A module whose entry is missing holds only zeros; unloading it keeps loaded false so that
    // the next lookup tries again.
    if (!m_found)
        m_module->UnloadModule();
    return m_found;
}
