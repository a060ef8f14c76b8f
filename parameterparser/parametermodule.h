// SPDX-License-Identifier: Apache-2.0
// ParameterModule: the base of every generated module class, and the frame of its load.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "parameterparser/modeunion.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterloadcontext.h"
#include "parameterparser/parameterloadparameters.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

class DefaultModule;
class IParameterLoggingAPI;
class ModuleData;
class ParameterDefinitionElement;
class ParameterFileSymbolTable;
class ParameterParserInfo;

/// The layout of generated modules that this framework reads: member descriptor tables, the
/// module base and the load frame. Generated files assert that they were made for it, so a
/// generator and a framework that disagree fail at compile time, not in a load.
constexpr unsigned int ParameterModuleLayoutVersion = 1;

/// The low 24 bits of symbolTableID: the module's symbol table ID; the high 8: its edit
/// generation.
constexpr uint32_t ModuleIdMask = 0xFFFFFF;

/// Base of every module class. A module class derives from this first and from its plain
/// structure second; the structure is what clients read. Instances are made by the factory
/// instance's Create and owned by their kind's DefaultModule.
class PARAMETERPARSER_API ParameterModule
{
public:
    /// Name hash of the instance name, computed here; version is the schema's source version;
    /// mode comes from data's slot when data is given (the node's mode with the slot's pipeline).
    /// name is borrowed for the module's lifetime.
    ParameterModule(char const* name, unsigned short major, unsigned short minor,
                    unsigned int patch, ModuleData* data);
    virtual ~ParameterModule();

    ParameterModule(ParameterModule const&) = delete;
    ParameterModule& operator=(ParameterModule const&) = delete;

    /// Module objects live in zeroed platform blocks (object tag) and go back with the release
    /// tag, whoever deletes them. Null when memory runs out: the new-expression then constructs
    /// nothing and yields null; a throwing constructor frees the block again.
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* block) noexcept;

    /// A new instance for data's module record, or the one already made for its ID in defaults
    /// (a shared default). Null after logging when the record's version or name hash differs.
    virtual ParameterModule* Create(ModuleData* data, DefaultModule* defaults) const = 0;
    /// Reads the module from table once; true if its entry was found (and when already loaded).
    virtual bool LoadModule(ParameterFileSymbolTable* table) = 0;
    /// Frees what the load allocated; a no-op when not loaded.
    virtual void UnloadModule() = 0;
    /// Value access by textual path; the base forms have no members and return false.
    virtual bool GetValue(char const* path, char* out, unsigned int outSize);
    virtual bool SetValue(char const* path, char const* value);
    virtual bool GetInfo(char const* path, PList<ParameterParserInfo>& list);

    /// Gives back one client reference: in file mode through the record's manager
    /// (ReleaseModule); in buffer mode, where nothing is counted, nothing. Without a record or a
    /// manager logs "Attempt to release module reference when Data or SetManager is nullptr.
    /// Module %s\n" at error level through the default sink.
    void Release();
    /// The reference count that the owner node reports for this module
    /// (ModeEntry::GetReferenceCount); 0 without a record or a slot.
    int GetReferenceCount();

    // Fields, in record order (read by set managers and live tuning).
    unsigned long moduleNameHash;
    char const* moduleName;
    VersionUnion version;
    ModeUnion mode;
    ModuleData* data;
    bool loaded;
    uint32_t modified;
    std::recursive_mutex moduleMutex;

protected:
    /// Makes a real instance of the generated class with its symbolTableID set to id; null when
    /// memory runs out.
    using MakeFunction = ParameterModule* (*)(char const* name, ModuleData* data, unsigned int id);
    /// The frame of a generated Create once its own version and name hash checks have passed:
    /// the instance already made for the record's ID (its override ID, else its own) in
    /// defaults, else a new one from make under this factory's name, appended to defaults. Null
    /// without data or when memory runs out.
    ParameterModule* CreateInstance(ModuleData* data, DefaultModule* defaults,
                                    MakeFunction make) const;
    /// The logger of record's set manager (null logs everything), for the messages of a
    /// generated Create.
    static IParameterLoggingAPI* RecordLogger(ModuleData const* record);
    /// The symbol table an unload gives shared arrays back to: data's; null after logging
    /// "UnloadModule %s called with nullptr Data->SymbolTable object\n" when it is missing.
    ParameterFileSymbolTable* UnloadTable();
    /// The logger of data's set manager (null logs everything).
    IParameterLoggingAPI* Logger() const;
};

/// One generated LoadModule from lookup to finish. The constructor finds the entry of id, logs
/// "<className>::LoadModule Failed to find module ID (%d) in Symbol Table\n" when it is missing,
/// builds the root element when the file has definitions and fills the parameters; the caller
/// runs its structure's Load on Parameters() and then Finish. The root element is freed however
/// the load ends. For its lifetime the object is the load context of its thread: the decode work
/// of the load is bounded by the file's length, and schema differences are told once a load.
class PARAMETERPARSER_API ParameterModuleLoad
{
public:
    ParameterModuleLoad(ParameterModule* module, ParameterFileSymbolTable* table, unsigned int id,
                        char const* className);
    ~ParameterModuleLoad();

    ParameterModuleLoad(ParameterModuleLoad const&) = delete;
    ParameterModuleLoad& operator=(ParameterModuleLoad const&) = delete;

    ParameterLoadParameters& Parameters() { return m_parameters; }
    bool Found() const { return m_found; }

    /// Counts the load in modified and marks the module loaded; a module whose entry was missing
    /// is unloaded again through its virtual UnloadModule. Returns Found().
    bool Finish();

private:
    ParameterModule* m_module;
    ParameterLoadContext m_context;
    ParameterFileSymbolTableEntry m_entry;
    ParameterDefinitionElement* m_root = nullptr;
    ParameterLoadParameters m_parameters{};
    bool m_found = false;
};

/// The edit generation step of symbolTableID: the high byte counts 1 to 0xFF and wraps to 1, so a
/// set high byte always marks an edited module; the low 24 bits stay.
inline uint32_t NextEditGeneration(uint32_t symbolTableID)
{
    uint32_t generation = (symbolTableID >> 24) + 1;
    if (generation > 0xFF)
        generation = 1;
    return (generation << 24) | (symbolTableID & ModuleIdMask);
}
