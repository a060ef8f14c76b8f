// SPDX-License-Identifier: Apache-2.0
// BlockShape: a module of a tuning file's definition table recognised as a pipeline block of the
// generator's family language (a nest of trigger levels, a trigger tree, or a flat block).
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/paramctl/document/documentjson.h"

namespace ParamCtl {

/// A structure record of the file: its name and its member records (from the document).
struct FileStructure
{
    std::string name;
    Json const* members = nullptr;
};

/// What the family language needs to state a block version: everything else (level types,
/// holders, the tree node, the core, control variables and method) follows from the rules.
struct BlockShape
{
    enum class Kind
    {
        Nest,
        Tree,
        Flat
    };
    Kind kind = Kind::Flat;
    std::string block;             ///< "gamma"
    std::string version;           ///< "1.6.0"
    std::vector<std::string> dims; ///< a nest's dimensions, innermost first; "?" if unknown
    unsigned int passes = 0;       ///< a tree's fixed array of passes below the leaf
    bool optionalRegion = false;
    bool controlMethod = false; ///< a nest holds control_method
    uint32_t enable = 0;        ///< structure IDs of the sections, 0 where absent
    uint32_t privateInformation = 0;
    uint32_t reserve = 0;
    uint32_t region = 0;
    std::vector<std::string> dynamicSwitches;
    /// Generated name -> the file's, where the two differ.
    std::map<std::string, std::string> names;
    /// The names of the types the rules make for this version (as the file names them), which
    /// no type of a section may take.
    std::set<std::string> typeNames;
};

/// One row of the generator's trigger dimension table: a level of a generation-0 nest.
struct TriggerDimension
{
    std::string name;              ///< "drc_gain"
    bool control = false;          ///< the level follows a control variable (not a mere selector)
    std::vector<std::string> type; ///< the trigger member's type, as the words of a member line
};

/// The dimension table by trigger member name ("drc_gain_trigger"); a malformed row is left out
/// (the generator refuses the table itself).
std::map<std::string, TriggerDimension> const& DimensionsByTrigger();

/// Recognises the module whose top structure is top, of module version ("1.6.0"), as a block.
/// structures holds every structure record of the file by ID. False when the module does not
/// have a block's shape exactly (a member the rules do not make, another order, kind or count),
/// so that it is written as plain types.
[[nodiscard]] bool RecogniseBlock(std::map<uint32_t, FileStructure> const& structures, uint32_t top,
                                  std::string const& version, BlockShape& shape);

} // namespace ParamCtl
