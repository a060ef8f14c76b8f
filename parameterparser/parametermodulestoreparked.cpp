// SPDX-License-Identifier: Apache-2.0
// ParameterModuleStore: the parked generation, and the modules of a second manager moved into
// this one's tree, which park the modules they replace.
#include <unordered_map>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parametermodetree.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametermodulestore.h"
#include "parameterparser/parametersetmanager.h"

namespace {

// True if instance is one of the links of kind's chain.
bool ChainHolds(DefaultModule const* kind, ParameterModule const* instance)
{
    for (ModuleLink const* link = kind->first; link != nullptr; link = link->next) {
        if (link->module == instance)
            return true;
    }
    return false;
}

// The registry entry of a kind; null when the registry does not know it. The registry is read
// directly, as GetDefaultModule logs every miss and a merge asks for kinds that may be missing.
DefaultModule* FindKind(std::unordered_map<unsigned long, DefaultModule*> const& registry,
                        unsigned long nameHash)
{
    auto const found = registry.find(nameHash);
    return found != registry.end() ? found->second : nullptr;
}

} // namespace

void ParameterModuleStore::Park()
{
    m_manager.SaveAndClearModules();
    if (m_manager.m_symbolTable != nullptr)
        m_parkedTables.Add(m_manager.m_symbolTable);
    m_manager.m_symbolTable = nullptr;
    m_tree.Park();
}

void ParameterModuleStore::FreeParked()
{
    // Modules first: a module still loaded unloads in its destructor, which gives shared blocks
    // back to its symbol table. Each list goes front to back.
    PList<ParameterModule*>& modules = m_manager.m_replacedModules;
    for (unsigned int i = 0; i < modules.Count(); ++i)
        delete modules[i];
    modules.Clear();
    for (unsigned int i = 0; i < m_parkedTables.Count(); ++i)
        delete m_parkedTables[i];
    m_parkedTables.Clear();
    m_tree.FreeParked();
}

void ParameterModuleStore::MoveModules(ModeEntry* target, ModeEntry* source,
                                       ParameterSetManager* other)
{
    for (ModeEntry* node = source; node != nullptr && target->link == nullptr;
         node = node->nextSibling) {
        while (!node->modules.empty()) {
            auto const front = node->modules.begin();
            ParameterModule* const module = front->second.module;
            node->modules.erase(front);
            if (module == nullptr)
                continue;

            DefaultModule* const kind =
                FindKind(m_manager.m_defaultModules, module->moduleNameHash);
            DefaultModule* const otherKind =
                other != nullptr ? FindKind(other->m_defaultModules, module->moduleNameHash)
                                 : nullptr;
            // The module changes owner only where this manager can own it; otherwise it stays in
            // update's chain and goes with update.
            if (otherKind != nullptr && kind != nullptr)
                otherKind->RemoveModule(module);

            ParameterModule* const previous = target->ReplaceModule(module);
            if (previous != nullptr && previous != module && kind != nullptr) {
                bool const known =
                    module->data != nullptr && kind->Find(module->data->ID) != nullptr;
                // A module that a node shares with another is parked once, by the first node
                // that lets it go.
                if (!known && ChainHolds(kind, previous)) {
                    kind->RemoveModule(previous);
                    m_manager.m_replacedModules.Add(previous);
                }
            }
            // Without a chain a moved module would never be freed: this manager's chain takes
            // it, behind the instances of its own file, so that it goes with the next reload or
            // the destructor like them.
            if (kind != nullptr && !ChainHolds(kind, module))
                kind->AddModule(module);
        }
    }
}
