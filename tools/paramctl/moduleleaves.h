// SPDX-License-Identifier: Apache-2.0
// ModuleLeaves: every value of a module as value access shows it, element by element.
#pragma once

#include <map>
#include <string>
#include <utility>

class ParameterModule;

namespace ParamCtl {

/// (member path, element) to value text: "module_version.major_revision" with element -1 for a
/// single value, "gains" with 0, 1, ... for the elements of an array of numbers; structures in
/// arrays by index in the path ("parts[2].gain").
using ModuleLeaves = std::map<std::pair<std::string, int>, std::string>;

/// The values of module (nothing for a module without value access).
ModuleLeaves ReadModuleLeaves(ParameterModule& module);

/// "path" for a single value, "path[element]" for an array element.
std::string LeafName(std::pair<std::string, int> const& key);

} // namespace ParamCtl
