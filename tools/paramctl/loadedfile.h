// SPDX-License-Identifier: Apache-2.0
// LoadedFile: a tuning file loaded for the paramctl commands.
#pragma once

#include <string>
#include <vector>

#include "tools/paramctl/commandline.h"

#include "paramgen/TuningSetManager.h"

namespace ParamCtl {

/// The manager paramctl loads files with: every module kind of the tuning set, with the live
/// tuning server kept off, as a tool must not take the camera's port.
class ToolSetManager final : public TuningSetManager
{
public:
    ToolSetManager() : TuningSetManager("paramctl") { m_knobbyEnabled = false; }
};

/// The bytes of a file and a manager that has loaded them from memory.
struct LoadedFile
{
    std::string path;
    std::vector<unsigned char> bytes;
    ToolSetManager manager;
    /// The library refused the file (its error text is the manager's), though its tables
    /// loaded: the commands show what is there and still exit 1.
    bool refused = false;
};

/// One module record of a loaded file: the instance it makes and the mode that holds it.
struct ModuleRecord
{
    std::string name; ///< the instance name; the name hash in hex for a kind this build lacks
    bool known;       ///< the manager registers a module kind of this name
    unsigned long nameHash;
    unsigned int id;
    VersionUnion version;
    unsigned int modeTableIndex;
    std::string modePath; ///< numeric, "0.0|1.2"
};

/// Reads path and loads it into loaded.manager. A file that cannot be read, or that the loader
/// refuses outright (no tables came of it), prints "paramctl <command>: <path>: <reason>" on
/// stderr and returns false. A file whose tables loaded but that the loader still refused (a
/// module of a kind this build does not know, a damaged module) returns true with
/// loaded.refused set.
[[nodiscard]] bool OpenLoadedFile(std::string const& path, char const* command, LoadedFile& loaded);

/// The exit code of a command that has shown what loaded holds: ExitFailure, with the library's
/// error text on stderr, for a file the library refused; ExitSuccess otherwise.
int LoadedExit(LoadedFile const& loaded, char const* command);

/// The module records of the loaded file in symbol table order.
std::vector<ModuleRecord> ModuleRecords(ToolSetManager& manager);

/// The instance manager made for the module record data (a record that duplicates another
/// shares its instance); null for a kind the manager does not register. Borrowed.
ParameterModule* InstanceOf(ParameterSetManager& manager, ModuleData const& data);

/// Version text "major.minor.patch".
std::string VersionText(VersionUnion const& version);

/// The numeric mode path ("0.0|1.2") of a mode path given either way: numeric as it is, named
/// ("Default|Sensor.2|Usecase.Preview") through the manager's names.
std::string NumericModePath(ParameterSetManager& manager, std::string const& modePath);

/// The named form ("Default|Sensor.2") of a numeric mode path.
std::string NamedModePath(std::string const& modePath);

} // namespace ParamCtl
