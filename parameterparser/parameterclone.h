// SPDX-License-Identifier: Apache-2.0
// Copies of generated structures for the modules whose clients keep their own copy of a tree:
// the structure by value, its counted arrays of structures as arrays of their own.
#pragma once

#include "parameterparser/parameterexport.h"

struct ParameterTypeDescriptor;

namespace ParameterClone {

/// Copies source over target (both of type) byte for byte, then gives every counted array of
/// structures, in target and in the structures it holds, an array of its own (data tag) whose
/// elements are cloned the same way. An array of count 0 becomes null; an array that cannot be
/// allocated becomes null with count 0. Numbers and strings behind pointers stay shared with
/// source.
PARAMETERPARSER_API void CloneFrom(void* target, void const* source,
                                   ParameterTypeDescriptor const& type);

/// A new structure of type (object tag) filled by CloneFrom; null when memory runs out. Give it
/// back with Destroy.
PARAMETERPARSER_API void* Clone(void const* source, ParameterTypeDescriptor const& type);

/// Frees a structure made by Clone and every array that cloning gave it; null is ignored.
PARAMETERPARSER_API void Destroy(void* clone, ParameterTypeDescriptor const& type);

} // namespace ParameterClone
