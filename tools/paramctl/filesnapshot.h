// SPDX-License-Identifier: Apache-2.0
// FileSnapshot: what a tuning file holds, in the terms two files are compared in.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/paramctl/document/documentjson.h"
#include "tools/paramctl/moduleleaves.h"

namespace ParamCtl {

/// One module instance: where it stands and its values.
struct InstanceSnapshot
{
    std::string name;
    unsigned int table = 0;
    std::string mode; ///< named: "Default|Sensor.0"
    std::string version;
    /// By value path; an instance the file's schema cannot read has its bytes as "(bytes)".
    ModuleLeaves values;
};

/// Instances by (module name, mode table, named mode).
using InstanceKey = std::pair<std::string, std::pair<unsigned int, std::string>>;

struct FileSnapshot
{
    /// Header fields and mode table names, in file order ("" where a version lacks a field).
    std::vector<std::pair<std::string, std::string>> header;
    /// Every mode of every table by (table, named path), with what else the tree says of it
    /// (resident, pipeline, link).
    std::map<std::pair<unsigned int, std::string>, std::string> modes;
    std::map<InstanceKey, InstanceSnapshot> instances;
};

/// The snapshot of a file's document (ReadTuningDocument): values as the file's own schema reads
/// them, with no compiled module needed.
FileSnapshot SnapshotOf(Json const& document);

/// What 'paramctl diff --json' prints for a (named nameA) against b (nameB): every instance, or
/// with branch (named or numeric, in mode table `table`) the modules a camera reads through it.
/// False with error for a branch one of them lacks.
[[nodiscard]] bool DiffJson(FileSnapshot const& a, FileSnapshot const& b, std::string const& nameA,
                            std::string const& nameB, std::string const* branch, unsigned int table,
                            Json& document, std::string& error);

} // namespace ParamCtl
