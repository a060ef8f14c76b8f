// Generated from tools/generator/tests/golden/GoldenSetManager.list by the module generator. Do not edit.
#pragma once

#include "parameterparser/modeunion.h"
#include "parameterparser/parameterexport.h"
#include "parametermodules/concretesetmanager.h"

namespace goldensample {
struct sampleType;
} // namespace goldensample

static_assert(ParameterModuleLayoutVersion == 1,
              "generated for another module framework layout");

/// The set manager of the module list GoldenSetManager: 2 module instances, with the live tuning worker.
class PARAMETERPARSER_API GoldenSetManager : public ConcreteSetManager
{
public:
    /// A main manager with a factory instance of every module of the list; name may be null.
    explicit GoldenSetManager(char const* name);
    /// A derived manager on main's mode table modeTableIndex. A null main is logged; the object
    /// then finds nothing.
    GoldenSetManager(GoldenSetManager* main, unsigned char modeTableIndex);
    ~GoldenSetManager() override;

    /// The main manager: this object on a main manager. Borrowed.
    GoldenSetManager* GetMainSetManager();
    /// A new derived manager on the main manager's table modeTableIndex, owned by the caller,
    /// who deletes it before the main manager. Null after logging when the index is not below
    /// the table count.
    GoldenSetManager* CreateSetManager(unsigned char modeTableIndex);
    /// The same for the first of the main manager's tables named modeTableName; null after
    /// logging when no table has that name, null for a null name.
    GoldenSetManager* CreateSetManager(char const* modeTableName);

    /// Each returns the module of that instance for the mode branch, with a reference the caller
    /// gives back by passing it as previous or by Release(); previous (may be null) is released.
    /// Null when the loaded file does not hold the module for the branch.
    ::goldensample::sampleType* GetModule_sampleA(TuningMode const* modeBranch, unsigned int modeCount,
        ::goldensample::sampleType* previous);
    ::goldensample::sampleType* GetModule_sampleB(TuningMode const* modeBranch, unsigned int modeCount,
        ::goldensample::sampleType* previous);

private:
    GoldenSetManager* m_mainSet = nullptr;
};
