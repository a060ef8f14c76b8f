// SPDX-License-Identifier: Apache-2.0
// The width of a number of each storage in a generated structure, as value access steps over it.
#pragma once

#include "parameterparser/parametermemberaccess.h"

namespace ParameterValuePath {

/// The bytes one number of storage takes in a structure (and between the elements of an array).
unsigned int StorageSize(ParameterStorage storage);

} // namespace ParameterValuePath
