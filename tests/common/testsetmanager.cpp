// SPDX-License-Identifier: Apache-2.0
// TestSetManager: a set manager with an empty registry.
#include "tests/common/testsetmanager.h"

namespace ParamTest {

TestSetManager::TestSetManager() : TestSetManager(Options{})
{
}

TestSetManager::TestSetManager(Options const& options)
    : ParameterSetManager(options.main, options.modeTableIndex, options.name, false)
{
    m_fileModeAllowed = options.fileModeAllowed;
}

DefaultModule* TestSetManager::GetDefaultModule(unsigned long)
{
    return nullptr;
}

void TestSetManager::SaveAndClearModules()
{
}

} // namespace ParamTest
