// SPDX-License-Identifier: Apache-2.0
// DefaultModule and ModuleLink: the registry entry of one module kind and its chain of instances.
#pragma once

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
    /// The first instance in the chain with no data or with data->ID equal to id; null if none.
    /// Borrowed.
    ParameterModule* Find(unsigned int id);

    ParameterModule* module;
    ModuleLink* first = nullptr;
    ModuleLink* last = nullptr;
};
