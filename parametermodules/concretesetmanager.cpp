// SPDX-License-Identifier: Apache-2.0
// ConcreteSetManager: the registry of module kinds and what the generated set managers share.
#include "parametermodules/concretesetmanager.h"

#include <cstring>
#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/livetuning/parameterknobbyhost.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametermodetable.h"

namespace {

// The library's version text, logged when a main manager is made.
constexpr char ParserVersionText[] =
    "Parameter Parser V7.4.1 (8cca6579792b9fcef3bc725ff070c5ec453c7c85)";

// Modes of a file kept loaded at once in file mode before the least recently used is dropped.
constexpr uint32_t MaxActiveModes = 17;

} // namespace

ConcreteSetManager::ConcreteSetManager(Traits const& traits, char const* name,
                                       Registration const* registrations, size_t count)
    : ParameterSetManager(nullptr, 0, name, traits.liveTuning), m_className(traits.className)
{
    m_maxActiveModes = MaxActiveModes;
    m_fileModeAllowed = true;
    m_logErrors = true;
    m_logWarnings = true;
    m_logVerbose = traits.logVerbose;
    m_ignoreUnknownModules = false;
    if (traits.liveTuning) {
        m_knobbyHost.reset(new (std::nothrow) ParameterKnobbyHost(this));
        static_cast<void>(AttachLiveTuning(m_knobbyHost.get()));
    }
    for (size_t i = 0; i < count; ++i) {
        // A factory that runs out of memory registers nothing; AddDefaultModule reports it.
        AddDefaultModule(registrations[i].make(registrations[i].instanceName));
    }
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "%s constructed: %s\n", m_className,
                            ParserVersionText);
}

ConcreteSetManager::ConcreteSetManager(char const* className, ConcreteSetManager* main,
                                       unsigned char modeTableIndex)
    : ParameterSetManager(main, modeTableIndex, nullptr, false), m_className(className)
{
    if (main == nullptr)
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called with null main parameter\n", m_className);
}

ConcreteSetManager::~ConcreteSetManager()
{
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "%s deleting\n", m_className);
    // The worker's command thread reads modules through this object: it ends before any module
    // goes.
    StopKnobbyWorker();
    for (auto& entry : m_defaultModules) {
        DefaultModule* kind = entry.second;
        if (kind == nullptr)
            continue;
        kind->~DefaultModule();
        VornFree(kind, VornTagRelease);
    }
    m_defaultModules.clear();
    // The frame's destructor deletes the instances parked by SaveAndClearModule.
}

void* ConcreteSetManager::operator new(std::size_t size) noexcept
{
    return VornCalloc(size, VornTagAllocObject);
}

void ConcreteSetManager::operator delete(void* block) noexcept
{
    VornFree(block, VornTagRelease);
}

ConcreteSetManager* ConcreteSetManager::MainConcrete()
{
    // Derived managers are only ever made on a concrete main manager of the same class.
    return static_cast<ConcreteSetManager*>(MainManager());
}

void ConcreteSetManager::AddDefaultModule(ParameterModule* module)
{
    if (m_mainSetManager != nullptr || module == nullptr) {
        SetError("AddDefaultModule called on a derived set manager object");
        return;
    }
    void* block = VornCalloc(sizeof(DefaultModule), VornTagAllocObject);
    if (block == nullptr) {
        delete module;
        return;
    }
    // The map keeps one entry per hash: a later module of the same name hash takes the place of
    // the earlier one, which goes with its factory instance (no instances exist yet).
    auto* kind = new (block) DefaultModule(module);
    DefaultModule*& slot = m_defaultModules[module->moduleNameHash];
    if (slot != nullptr) {
        slot->~DefaultModule();
        VornFree(slot, VornTagRelease);
    }
    slot = kind;
}

DefaultModule* ConcreteSetManager::GetDefaultModule(unsigned long nameHash)
{
    auto const found = m_defaultModules.find(nameHash);
    if (found == m_defaultModules.end()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Failed to find module 0x%llx in DefaultModuleMap\n",
                                static_cast<unsigned long long>(nameHash));
        return nullptr;
    }
    return found->second;
}

void ConcreteSetManager::SaveAndClearModules()
{
    if (m_mainSetManager != nullptr) {
        MainConcrete()->SaveAndClearModules();
        return;
    }
    for (auto& entry : m_defaultModules)
        SaveAndClearModule(entry.second);
}

void ConcreteSetManager::SaveAndClearModule(DefaultModule* defaultModule)
{
    if (m_mainSetManager != nullptr) {
        MainConcrete()->SaveAndClearModule(defaultModule);
        return;
    }
    if (defaultModule == nullptr)
        return;
    ModuleLink* link = defaultModule->TakeChain();
    while (link != nullptr) {
        ModuleLink* const next = link->next;
        m_replacedModules.Add(link->module);
        // The link goes without its module and without the rest of the chain.
        link->module = nullptr;
        link->next = nullptr;
        delete link;
        link = next;
    }
}

bool ConcreteSetManager::UpdateBinaryParameters(unsigned char*, unsigned long)
{
    ParameterLogging::Write(
        this, ParameterLogging::LogError,
        "%s not available.  To enable, add --update when generating parser utility code\n",
        "UpdateBinaryParameters");
    return false;
}

bool ConcreteSetManager::AcceptModeTableIndex(unsigned char modeTableIndex)
{
    unsigned int const count = GetModeTableCount();
    if (modeTableIndex >= count) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called mode table index (%u) >= mode table count (%u)\n",
                                "CreateSetManager", static_cast<unsigned int>(modeTableIndex),
                                count);
        return false;
    }
    return true;
}

bool ConcreteSetManager::FindModeTableIndex(char const* modeTableName,
                                            unsigned char& modeTableIndex)
{
    if (modeTableName == nullptr)
        return false;
    unsigned int const count = GetModeTableCount();
    for (unsigned int i = 0; i < count; ++i) {
        ParameterModeTable const* table = GetModeTable(i);
        if (table == nullptr || table->name == nullptr)
            continue;
        if (std::strcmp(table->name, modeTableName) == 0) {
            modeTableIndex = static_cast<unsigned char>(i);
            return true;
        }
    }
    ParameterLogging::Write(this, ParameterLogging::LogError, "%s unable to find mode table %s\n",
                            "CreateSetManager", modeTableName);
    return false;
}
