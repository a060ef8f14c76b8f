// SPDX-License-Identifier: Apache-2.0
// TestSetManager: the smallest concrete set manager, with no module kinds, for tests of the frame.
#pragma once

#include "parameterparser/parametersetmanager.h"

namespace ParamTest {

/// A set manager whose registry is empty. By default it is a named main manager that keeps files
/// in file mode, as the shipped managers do; the options make it unnamed, buffer-only or a
/// derived handle on another manager's mode table.
class TestSetManager : public ParameterSetManager
{
public:
    struct Options
    {
        char const* name = "TestSetManager";
        bool fileModeAllowed = true;
        ParameterSetManager* main = nullptr;
        unsigned char modeTableIndex = 0;
    };

    TestSetManager();
    explicit TestSetManager(Options const& options);

    /// Always null: this manager knows no module kinds.
    DefaultModule* GetDefaultModule(unsigned long nameHash) override;
    void SaveAndClearModules() override;
};

} // namespace ParamTest
