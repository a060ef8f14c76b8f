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
        link->module = nullptr;
        link->next = nullptr;
        delete link;
        return;
    }
}

ParameterModule* DefaultModule::Find(unsigned int id)
{
    for (ModuleLink* link = first; link != nullptr; link = link->next) {
        ParameterModule* instance = link->module;
        if (instance != nullptr && (instance->data == nullptr || instance->data->ID == id))
            return instance;
    }
    return nullptr;
}
