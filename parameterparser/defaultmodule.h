// SPDX-License-Identifier: Apache-2.0
// DefaultModule and ModuleLink: the registry entry of one module kind and its chain of instances.
#pragma once

#include <unordered_map>

#include "parameterparser/parameterexport.h"

class ParameterModule;

/// One instance in a kind's chain. Owns its module and the rest of the chain.
class PARAMETERPARSER_API ModuleLink
{
public:
    explicit ModuleLink(ParameterModule* linked) : module(linked) {}
    /// Deletes the module through its deleting destructor, then the rest of the chain.
    ~ModuleLink();

    ModuleLink(ModuleLink const&) = delete;
    ModuleLink& operator=(ModuleLink const&) = delete;

    ParameterModule* module;
    ModuleLink* next = nullptr;
};

/// The registry entry of one module kind: its factory instance (no data) and every instance made
/// from it, in every mode. Owns all of them.
class PARAMETERPARSER_API DefaultModule
{
public:
    /// Takes ownership of factory.
    explicit DefaultModule(ParameterModule* factory) : module(factory) {}
    /// Deletes the chain of instances, then the factory instance.
    ~DefaultModule();

    DefaultModule(DefaultModule const&) = delete;
    DefaultModule& operator=(DefaultModule const&) = delete;

    /// Appends instance at the end of the chain (taking ownership); null is ignored.
    void AddModule(ParameterModule* instance);
    /// Unlinks instance without deleting it (the caller takes it over); unknown: nothing.
    void RemoveModule(ParameterModule const* instance);
    /// Hands the whole chain of instances over to the caller and leaves the kind empty.
    ModuleLink* TakeChain();
    /// The first instance in the chain with no data or with data->ID equal to id; null if none.
    /// Borrowed. Constant time while every instance has data, as every instance made from a
    /// file has.
    ParameterModule* Find(unsigned int id);

    ParameterModule* module;
    ModuleLink* first = nullptr;
    ModuleLink* last = nullptr;

private:
    /// Takes link, about to leave the chain, out of the index.
    void Unindex(ModuleLink const* link);

    /// The first link of each ID in the chain. A file makes one instance per record, so a
    /// chain holds thousands of them: a walk per Find made loading quadratic.
    std::unordered_map<unsigned int, ModuleLink*> m_firstById;
    /// Links whose instance has no data; Find then walks the chain, which decides by order.
    unsigned int m_withoutData = 0;
};
