// SPDX-License-Identifier: Apache-2.0
// How a structure of a file's schema differs from the compiled type that reads it: the one
// account that load logs and file tools share.
#pragma once

#include <cstdint>
#include <vector>

#include "parameterparser/parameterexport.h"

class ParameterDefinitionElement;
class ParameterDefinitionStructure;
struct ParameterMemberDescriptor;
struct ParameterTypeDescriptor;

/// Members of one structure, matched by name hash between the file's schema and a compiled type.
struct ParameterSchemaDifference
{
    unsigned int steppedOver = 0; ///< in the file, unknown to the compiled type: stepped over
    unsigned int missing = 0;     ///< in the compiled type, not in the file: read as 0
    unsigned int changed = 0;     ///< in both, in another form (kind, number type or count)

    bool Any() const { return steppedOver != 0 || missing != 0 || changed != 0; }
};

/// How a load reads one compiled member from a structure of the file's schema.
enum class ParameterMemberMatch : uint8_t
{
    Matched,   ///< in the file in the form its reader expects (or proven before): read as it is
    Missing,   ///< not in the file: the member reads as 0
    Converted, ///< in the file in another form (number type, count, kind): read with a conversion
};

/// Finds member among file's elements by its name hash, as the field readers do, and tells how
/// it is read. element, if given, receives the file's element (null when Missing). A member whose
/// definition was cleared after it was proven counts as matching.
PARAMETERPARSER_API ParameterMemberMatch
MatchMember(ParameterDefinitionStructure const& file, ParameterMemberDescriptor const& member,
            ParameterDefinitionElement const** element = nullptr);

/// The name hashes of file's elements that no member of compiled reads, which a load steps over,
/// in ascending order.
PARAMETERPARSER_API std::vector<unsigned long>
SteppedOverMembers(ParameterDefinitionStructure const& file,
                   ParameterTypeDescriptor const& compiled);

/// Compares the members of file with those of compiled, at this level only: the structures they
/// hold are compared on their own.
PARAMETERPARSER_API ParameterSchemaDifference
CompareStructure(ParameterDefinitionStructure const& file, ParameterTypeDescriptor const& compiled);
