// SPDX-License-Identifier: Apache-2.0
// TestSetManager: the smallest concrete set manager, for tests of the frame and of module lookup.
#pragma once

#include <cstddef>

#include "parameterparser/parametersetmanager.h"

namespace ParamTest {

/// A set manager for tests. By default it is a named main manager with an empty registry that
/// keeps files in file mode with the shipped managers' limit of active modes; the options make it
/// unnamed, buffer-only, a derived handle on another manager's mode table, or register the
/// module kinds of LookupModuleKinds the way a concrete manager registers its list.
class TestSetManager : public ParameterSetManager
{
public:
    struct Options
    {
        char const* name = "TestSetManager";
        bool fileModeAllowed = true;
        ParameterSetManager* main = nullptr;
        unsigned char modeTableIndex = 0;
        /// Register the kinds of LookupModuleKinds (main managers only).
        bool registerModules = false;
        /// The active list's limit of a main manager.
        unsigned int maxActiveModes = 17;
    };

    /// The instance names of the kinds a registering manager knows: catalogue modules of version
    /// 1.0.0 that hold texts, so a test can tell whether a module's values are loaded.
    static constexpr char const* LookupModuleKinds[] = {"versionsA_sw", "versionsB_sw",
                                                        "versionsC_sw", "versionsD_sw"};
    static constexpr size_t LookupModuleKindCount =
        sizeof(LookupModuleKinds) / sizeof(LookupModuleKinds[0]);

    TestSetManager();
    explicit TestSetManager(Options const& options);
    /// Deletes the registry with every module instance, before the frame frees the tables that
    /// the instances unload through.
    ~TestSetManager() override;

    /// The registry entry of nameHash; null (silently) for a kind that is not registered.
    DefaultModule* GetDefaultModule(unsigned long nameHash) override;
    void SaveAndClearModules() override;

    /// Test access to the frame's state.
    unsigned int MaxActiveModes() const { return m_maxActiveModes; }
};

} // namespace ParamTest
