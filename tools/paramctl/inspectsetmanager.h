// SPDX-License-Identifier: Apache-2.0
// InspectSetManager: a set manager that knows no module kinds, for inspecting any tuning file.
#pragma once

#include "parameterparser/parametersetmanager.h"

namespace ParamCtl {

/// Loads a file for inspection: header, sections and tables, with no module kinds registered.
class InspectSetManager final : public ParameterSetManager
{
public:
    InspectSetManager();
    ~InspectSetManager() override;

    /// Always null: no module kinds are known.
    DefaultModule* GetDefaultModule(unsigned long nameHash) override;
    void SaveAndClearModules() override;
};

} // namespace ParamCtl
