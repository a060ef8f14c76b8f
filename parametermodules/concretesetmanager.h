// SPDX-License-Identifier: Apache-2.0
// ConcreteSetManager: what the generated set managers share, the registry of module kinds.
#pragma once

#include <cstddef>
#include <memory>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametersetmanager.h"

class DefaultModule;
class ParameterKnobbyHost;

/// The common part of the generated set managers (TuningSetManager and its siblings): the
/// registry of module kinds that a main manager fills from its module list, the factories of
/// derived managers and the messages. A generated manager adds its typed constructors, its
/// CreateSetManager pair and the GetModule_<name> family. Objects live in zeroed platform blocks
/// (object tag), wherever they are made with new.
class PARAMETERPARSER_API ConcreteSetManager : public ParameterSetManager
{
public:
    /// Logs "<class> deleting\n" (verbose), stops the live tuning worker, then destroys every
    /// registry entry with all its module instances and factory instance; the frame then frees
    /// the parked instances and the tables. A derived manager's registry is empty: deleting one
    /// leaves its main manager intact.
    ~ConcreteSetManager() override;

    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* block) noexcept;

    /// Registers module (a factory instance, taken over) under its moduleNameHash; a second
    /// module of the same hash replaces the pointer of the first. On a derived manager, or with a
    /// null module, keeps "AddDefaultModule called on a derived set manager object" as the error.
    void AddDefaultModule(ParameterModule* module);

    /// The registry entry of nameHash in this object's own registry; null after logging "Failed to
    /// find module 0x%llx in DefaultModuleMap\n" (a derived manager's registry is empty).
    /// Borrowed.
    DefaultModule* GetDefaultModule(unsigned long nameHash) override;

    /// Moves every module instance of every kind to the replaced modules, ahead of a reload; the
    /// factory instances stay. A derived manager does it on its main manager.
    void SaveAndClearModules() override;

    /// Moves the instances of one kind to the replaced modules and empties its chain; null does
    /// nothing. A derived manager does it on its main manager.
    virtual void SaveAndClearModule(DefaultModule* defaultModule);

    /// Not available in these managers: logs "UpdateBinaryParameters not available.  To
    /// enable, add --update when generating parser utility code\n" and returns false whatever
    /// the arguments.
    bool UpdateBinaryParameters(unsigned char* buffer, unsigned long length);

    /// Makes the factory instance of a module class under instanceName (a literal that outlives
    /// the manager); null when memory runs out.
    using FactoryFunction = ParameterModule* (*)(char const* instanceName);

    /// One line of a module list: the instance name and the factory of its module class.
    struct Registration
    {
        char const* instanceName;
        FactoryFunction make;
    };

    /// The factory of one generated module class.
    template <typename ModuleClass> static ParameterModule* MakeFactory(char const* instanceName)
    {
        return new ModuleClass(instanceName);
    }

protected:
    /// What tells the generated managers apart besides their lists.
    struct Traits
    {
        char const* className; ///< the class name its messages carry; a literal
        bool liveTuning;       ///< the main manager runs the live tuning worker
        bool logVerbose;       ///< verbose lines are logged
    };

    /// A main manager: keeps files in file mode with at most 17 active modes, registers a factory
    /// instance for each of count registrations in order, then logs "<class> constructed: %s\n"
    /// (verbose) with the library's version text. name may be null.
    ConcreteSetManager(Traits const& traits, char const* name, Registration const* registrations,
                       size_t count);

    /// A derived manager on main's mode table modeTableIndex. A null main logs "%s called with
    /// null main parameter\n" with className at error level; the object stays.
    ConcreteSetManager(char const* className, ConcreteSetManager* main,
                       unsigned char modeTableIndex);

    /// True when this manager holds a mode table of that index; otherwise logs "CreateSetManager
    /// called mode table index (%u) >= mode table count (%u)\n" and gives false. Called on the
    /// main manager.
    bool AcceptModeTableIndex(unsigned char modeTableIndex);

    /// The index of the first of this manager's tables named modeTableName (tables without a
    /// name are skipped). False for a null name, and after logging "CreateSetManager unable to
    /// find mode table %s\n" when none matches. Called on the main manager.
    bool FindModeTableIndex(char const* modeTableName, unsigned char& modeTableIndex);

private:
    /// The main manager as a concrete one (this object on a main manager).
    ConcreteSetManager* MainConcrete();

    char const* m_className;
    /// The live tuning worker of a main manager made with live tuning; attached to the frame.
    std::unique_ptr<ParameterKnobbyHost> m_knobbyHost;
};
