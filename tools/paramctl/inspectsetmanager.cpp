// SPDX-License-Identifier: Apache-2.0
// InspectSetManager: a set manager without module kinds.
#include "tools/paramctl/inspectsetmanager.h"

namespace ParamCtl {

InspectSetManager::InspectSetManager() : ParameterSetManager(nullptr, 0, "paramctl", false)
{
    // Keep the console for the library's warnings and errors: paramctl prints its own summary.
    m_logVerbose = false;
}

InspectSetManager::~InspectSetManager() = default;

DefaultModule* InspectSetManager::GetDefaultModule(unsigned long /*nameHash*/)
{
    return nullptr;
}

void InspectSetManager::SaveAndClearModules() {}

} // namespace ParamCtl
