// SPDX-License-Identifier: Apache-2.0
// IParameterModuleHost: what module records and modules see of the manager that holds them.
#pragma once

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;
class ParameterModeTable;
class ParameterModule;
class ParameterSetManager;

/// The manager as the tables, module records and modules below it use it: its logger, its mode
/// tables, and the release of a module reference. They keep the manager itself as an opaque
/// pointer and reach it through this face only.
class PARAMETERPARSER_API IParameterModuleHost
{
public:
    virtual ~IParameterModuleHost() = default;

    /// The host face of manager; null for null. Defined beside the manager, the only place that
    /// knows the manager is one.
    static IParameterModuleHost* Of(ParameterSetManager* manager);

    /// The logger of manager's messages; null (which logs everything) without a manager.
    static IParameterLoggingAPI* LoggerOf(ParameterSetManager* manager)
    {
        IParameterModuleHost* host = Of(manager);
        return host != nullptr ? host->GetLogger() : nullptr;
    }

    /// The manager as a logger. Borrowed.
    virtual IParameterLoggingAPI* GetLogger() = 0;
    /// True when the loaded file stays on disk behind the manager (references are counted).
    virtual bool IsFileMode() const = 0;
    /// Gives back one reference of module to the node that owns it.
    virtual void ReleaseModule(ParameterModule const* module) = 0;
    /// The main manager's mode table of this index; null when out of range. Borrowed.
    virtual ParameterModeTable* GetModeTable(unsigned int modeTableIndex) const = 0;
};
