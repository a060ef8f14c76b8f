// SPDX-License-Identifier: Apache-2.0
// Inspection: a tuning file loaded for the read-only paramctl commands.
#pragma once

#include <string>
#include <vector>

#include "tools/paramctl/inspectsetmanager.h"

namespace ParamCtl {

/// The bytes of a file and a manager that has loaded them from memory.
struct Inspection
{
    std::string path;
    std::vector<unsigned char> bytes;
    InspectSetManager manager;
};

/// Reads path and loads it into inspection.manager. A file the loader refuses outright (no
/// tables came of it) prints "paramctl <command>: <path>: <error>" on stderr and returns false.
/// A file whose tables loaded but whose modules did not (this manager knows no module kinds)
/// counts as loaded.
bool OpenForInspection(std::string const& path, char const* command, Inspection& inspection);

/// Version text "major.minor.patch".
std::string VersionText(VersionUnion const& version);

} // namespace ParamCtl
