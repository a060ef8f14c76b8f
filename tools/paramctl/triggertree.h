// SPDX-License-Identifier: Apache-2.0
// TriggerTree: the trigger levels of a module's member tree, found by the module's compiled
// schema: the nodes of a recursive trigger tree and the levels of a fixed nest, each with the
// control variable it follows.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/paramctl/document/documentjson.h"

struct ParameterTypeDescriptor;

namespace ParamCtl {

/// The names a file gives the control variables' numbers (its trigger_types enumeration).
using ControlNames = std::map<uint64_t, std::string>;

/// The control variable names of the enumeration records of a file's definition table (the
/// "definitions" of its document); empty when the file has none.
ControlNames ControlNamesOf(Json const& definitions);

/// Marks the trigger nodes in members, the member tree of a module whose top structure is type
/// (the console's MEMBER form): each node becomes kind "trigger" with its generation, level,
/// control variable, interval or discrete value and, at a leaf, the path of its region. Returns
/// {"generation", "path" (the list of root nodes), "levels": [{"level", "control", "variable"}]}
/// for a module with a trigger tree, null for one without.
Json MarkTriggerTree(Json& members, ParameterTypeDescriptor const& type, ControlNames const& names);

} // namespace ParamCtl
