// SPDX-License-Identifier: Apache-2.0
// TestSetManager: a set manager whose registry is empty or holds a few catalogue module kinds.
#include "tests/common/testsetmanager.h"

#include "parameterparser/defaultmodule.h"

#include "paramgen/versionsA_1_0_0.h"
#include "paramgen/versionsB_1_0_0.h"
#include "paramgen/versionsC_1_0_0.h"
#include "paramgen/versionsD_1_0_0.h"

namespace ParamTest {

namespace {

// One factory instance per kind of LookupModuleKinds, in that order.
ParameterModule* MakeFactory(size_t index, char const* name)
{
    switch (index) {
    case 0:
        return new versionsA_1_0_0::varitonal_versionsA10TypeClass(name);
    case 1:
        return new versionsB_1_0_0::varitonal_versionsB10TypeClass(name);
    case 2:
        return new versionsC_1_0_0::varitonal_versionsC10TypeClass(name);
    default:
        return new versionsD_1_0_0::varitonal_versionsD10TypeClass(name);
    }
}

} // namespace

TestSetManager::TestSetManager() : TestSetManager(Options{})
{
}

TestSetManager::TestSetManager(Options const& options)
    : ParameterSetManager(options.main, options.modeTableIndex, options.name, false)
{
    m_fileModeAllowed = options.fileModeAllowed;
    if (options.main != nullptr)
        return;
    m_maxActiveModes = options.maxActiveModes;
    if (!options.registerModules)
        return;
    for (size_t i = 0; i < LookupModuleKindCount; ++i) {
        ParameterModule* factory = MakeFactory(i, LookupModuleKinds[i]);
        if (factory != nullptr)
            m_defaultModules[factory->moduleNameHash] = new DefaultModule(factory);
    }
}

TestSetManager::~TestSetManager()
{
    for (auto& entry : m_defaultModules)
        delete entry.second;
    m_defaultModules.clear();
}

DefaultModule* TestSetManager::GetDefaultModule(unsigned long nameHash)
{
    auto found = m_defaultModules.find(nameHash);
    return found != m_defaultModules.end() ? found->second : nullptr;
}

void TestSetManager::SaveAndClearModules()
{
}

} // namespace ParamTest
