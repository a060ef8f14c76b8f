// SPDX-License-Identifier: Apache-2.0
// Inspection: loading a file for the read-only paramctl commands.
#include "tools/paramctl/inspection.h"

#include <cstdio>
#include <fstream>
#include <iterator>

namespace ParamCtl {

bool OpenForInspection(std::string const& path, char const* command, Inspection& inspection)
{
    inspection.path = path;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "paramctl %s: cannot open %s\n", command, path.c_str());
        return false;
    }
    inspection.bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());

    ParameterSetManager& manager = inspection.manager;
    // The tables are what these commands show; a load that stopped only at module creation
    // (no module kinds are registered here) still has them all in place.
    if (!manager.LoadBinaryParameters(inspection.bytes.data(), inspection.bytes.size()) &&
        manager.GetSymbolTable() == nullptr) {
        std::fprintf(stderr, "paramctl %s: %s: %s\n", command, path.c_str(),
                     manager.GetErrorString());
        return false;
    }
    return true;
}

std::string VersionText(VersionUnion const& version)
{
    return std::to_string(version.Parts.Major) + "." + std::to_string(version.Parts.Minor) + "." +
           std::to_string(version.Parts.Patch);
}

} // namespace ParamCtl
