// SPDX-License-Identifier: Apache-2.0
// ToleranceReport: member by member, how a load reads a module of a file's schema into the
// compiled type, at every depth.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class ParameterDefinitionStructure;
struct ParameterTypeDescriptor;

namespace ParamCtl {

/// A member held in another form by the file than by the build.
struct ConvertedMember
{
    std::string path;
    std::string file;  ///< the file's form ("UInt16[4]", "Float[] four-byte")
    std::string build; ///< the build's form
};

/// Members by value path ("module_version.major_revision", "parts[].gain"); a member the build
/// does not know is named as the file names it, or by its name hash ("parts[].#0x1f2e...").
struct ToleranceReport
{
    unsigned int matched = 0;               ///< read as they stand
    std::vector<std::string> missing;       ///< not in the file: read as 0
    std::vector<std::string> extra;         ///< not in the build: stepped over
    std::vector<ConvertedMember> converted; ///< read with a conversion of type or count

    bool Differs() const { return !missing.empty() || !extra.empty() || !converted.empty(); }
};

/// The name the file gives the member of name hash hash in its structure structureId; "" when
/// it is not known.
using MemberNameLookup = std::function<std::string(uint32_t structureId, unsigned long hash)>;

/// Holds file, the top structure of a module in the file's schema, against compiled, its
/// compiled type, with the decisions a load takes, down through every structure member both
/// hold. A structure reached again on another path is reported once, at its first path. names
/// (may be empty) names the members the build does not know.
ToleranceReport CompareModuleSchema(ParameterDefinitionStructure const& file,
                                    ParameterTypeDescriptor const& compiled,
                                    MemberNameLookup const& names);

} // namespace ParamCtl
