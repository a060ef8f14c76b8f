// SPDX-License-Identifier: Apache-2.0
// ResolveModePath: a mode path from the command line, checked step by step against a mode tree.
#pragma once

#include <functional>
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

/// One step of a mode path, "Usecase.Preview", "2.0" or "Default", as its mode and sub-mode
/// values (names in any case). False for a step that names no mode.
[[nodiscard]] bool ParseModeStep(std::string const& text, unsigned int& mode,
                                 unsigned int& subMode);

/// Moves from the node reached so far to its child of mode and subMode; false when it has none.
using ModeDescent = std::function<bool(unsigned int mode, unsigned int subMode)>;

/// Resolves text strictly, as ResolveModePath does without lenient, in a tree that descend walks
/// from Default. False with error at the first step it refuses, resolved holding the branch up
/// to the step before it.
[[nodiscard]] bool ResolveModeSteps(std::string const& text, unsigned char table,
                                    ModeDescent const& descend, ResolvedMode& resolved,
                                    std::string& error);

/// The step a mode tree node stands for: "Default", "Usecase.Preview", or numbers where the
/// mode or sub-mode has no name ("7.3").
std::string ModeStepName(ModeEntry const& node);

} // namespace ParamCtl
