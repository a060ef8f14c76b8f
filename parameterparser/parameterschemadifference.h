// SPDX-License-Identifier: Apache-2.0
// How a structure of a file's schema differs from the compiled type that reads it: the one
// account that load logs and file tools share.
#pragma once

#include "parameterparser/parameterexport.h"

class ParameterDefinitionStructure;
struct ParameterTypeDescriptor;

/// Members of one structure, matched by name hash between the file's schema and a compiled type.
struct ParameterSchemaDifference
{
    unsigned int steppedOver = 0; ///< in the file, unknown to the compiled type: stepped over
    unsigned int missing = 0;     ///< in the compiled type, not in the file: read as 0
    unsigned int changed = 0;     ///< in both, in another form (kind, number type or count)

    bool Any() const { return steppedOver != 0 || missing != 0 || changed != 0; }
};

/// Compares the members of file with those of compiled, at this level only: the structures they
/// hold are compared on their own. A member of file whose definition was cleared after it was
/// proven counts as matching.
PARAMETERPARSER_API ParameterSchemaDifference
CompareStructure(ParameterDefinitionStructure const& file, ParameterTypeDescriptor const& compiled);
