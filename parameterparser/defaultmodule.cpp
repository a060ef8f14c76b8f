// SPDX-License-Identifier: Apache-2.0
// DefaultModule and ModuleLink: the registry entry of one module kind and its chain of instances.
#include "parameterparser/defaultmodule.h"

#include "parameterparser/moduledata.h"
#include "parameterparser/parametermodule.h"

ModuleLink::~ModuleLink()
{
    delete module;
    // The rest of the chain goes link by link, so that a long chain does not recurse once per
    // instance.
    ModuleLink* rest = next;
    while (rest != nullptr) {
        ModuleLink* following = rest->next;
        rest->next = nullptr;
        delete rest;
        rest = following;
    }
}

DefaultModule::~DefaultModule()
{
    delete first;
    first = nullptr;
    last = nullptr;
    m_firstById.clear();
    delete module;
}

void DefaultModule::AddModule(ParameterModule* instance)
{
    if (instance == nullptr)
        return;
    auto* link = new ModuleLink(instance);
    if (last == nullptr)
        first = link;
    else
        last->next = link;
    last = link;
    if (instance->data == nullptr)
        ++m_withoutData;
    else
        m_firstById.emplace(instance->data->ID, link); // an earlier link of the ID stays first
}

void DefaultModule::RemoveModule(ParameterModule const* instance)
{
    ModuleLink* previous = nullptr;
    for (ModuleLink* link = first; link != nullptr; previous = link, link = link->next) {
        if (link->module != instance)
            continue;
        if (previous == nullptr)
            first = link->next;
        else
            previous->next = link->next;
        // last also follows a removed tail: left on the freed link, the next AddModule would
        // write into it.
        if (first == nullptr)
            last = nullptr;
        else if (last == link)
            last = previous;
        Unindex(link);
        link->module = nullptr;
        link->next = nullptr;
        delete link;
        return;
    }
}

void DefaultModule::Unindex(ModuleLink const* link)
{
    ParameterModule const* instance = link->module;
    if (instance == nullptr)
        return;
    if (instance->data == nullptr) {
        --m_withoutData;
        return;
    }
    unsigned int const id = instance->data->ID;
    auto const found = m_firstById.find(id);
    if (found == m_firstById.end() || found->second != link)
        return;
    m_firstById.erase(found);
    // Another instance of the ID further down the chain becomes the first one.
    for (ModuleLink* other = first; other != nullptr; other = other->next) {
        if (other != link && other->module != nullptr && other->module->data != nullptr &&
            other->module->data->ID == id) {
            m_firstById.emplace(id, other);
            return;
        }
    }
}

ModuleLink* DefaultModule::TakeChain()
{
    ModuleLink* chain = first;
    first = nullptr;
    last = nullptr;
    m_firstById.clear();
    m_withoutData = 0;
    return chain;
}

ParameterModule* DefaultModule::Find(unsigned int id)
{
    if (m_withoutData == 0) {
        auto const found = m_firstById.find(id);
        return found != m_firstById.end() ? found->second->module : nullptr;
    }
    for (ModuleLink* link = first; link != nullptr; link = link->next) {
        ParameterModule* instance = link->module;
        if (instance != nullptr && (instance->data == nullptr || instance->data->ID == id))
            return instance;
    }
    return nullptr;
}
