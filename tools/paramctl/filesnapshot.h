// SPDX-License-Identifier: Apache-2.0
// FileSnapshot: what a loaded tuning file holds, in the terms two files are compared in.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/paramctl/moduleleaves.h"

namespace ParamCtl {

struct LoadedFile;

/// One module instance: where it stands and, for a kind the build reads, its values.
struct InstanceSnapshot
{
    std::string name;
    unsigned int table = 0;
    std::string mode; ///< named: "Default|Sensor.0"
    std::string version;
    bool known = false; ///< the build has the module: values holds what it reads
    ModuleLeaves values;
};

/// Instances by (module name, mode table, named mode).
using InstanceKey = std::pair<std::string, std::pair<unsigned int, std::string>>;

struct FileSnapshot
{
    /// Header fields by name: tag, version, flags.
    std::vector<std::pair<std::string, std::string>> header;
    /// Every mode of every table by (table, named path), with what else the tree says of it
    /// (the table's name for the root, pipelines, resident).
    std::map<std::pair<unsigned int, std::string>, std::string> modes;
    std::map<InstanceKey, InstanceSnapshot> instances;
};

/// The snapshot of a loaded file: its tables must have loaded.
FileSnapshot SnapshotOf(LoadedFile& loaded);

} // namespace ParamCtl
