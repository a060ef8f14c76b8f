// SPDX-License-Identifier: Apache-2.0
// ParameterSectionInfo: where one section of a tuning file stands.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

/// The place of one section in the file, as the section table gives it.
struct PARAMETERPARSER_API ParameterSectionInfo
{
    uint32_t Offset;
    uint32_t Size;
};
