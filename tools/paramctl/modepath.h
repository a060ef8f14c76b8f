// SPDX-License-Identifier: Apache-2.0
// ResolveModePath: a mode path from the command line, checked step by step against a mode tree.
#pragma once

#include <string>

class ParameterSetManager;
class ModeEntry;

namespace ParamCtl {

/// A mode branch as the value commands use it.
struct ResolvedMode
{
    std::string numeric; ///< what the library is given: "0.0|1.2"
    std::string named;   ///< the branch reached in the tree: "Default|Sensor.2"
};

/// Resolves text, named ("Default|Sensor.2|Usecase.Preview", names in any case) or numeric
/// ("0.0|1.2"), in mode table `table` of manager. Each step must name a child of the node
/// before it, starting at Default: a step that names no mode there (a mistyped name, a
/// sub-mode the tree lacks, an empty step) is refused with error naming it and the node it was
/// looked for under. With lenient, such a step is not refused: the library's own fallback reads
/// the deepest mode that exists, and named stops at the last step found. False, with error, for
/// a table the file does not have.
[[nodiscard]] bool ResolveModePath(ParameterSetManager& manager, unsigned char table,
                                   std::string const& text, bool lenient, ResolvedMode& resolved,
                                   std::string& error);

/// The step a mode tree node stands for: "Default", "Usecase.Preview", or numbers where the
/// mode or sub-mode has no name ("7.3").
std::string ModeStepName(ModeEntry const& node);

} // namespace ParamCtl
