// SPDX-License-Identifier: Apache-2.0
// IModeTable: what the tables of a loaded file see of the manager that owns them.
#pragma once

#include "parameterparser/parameterexport.h"

class PARAMETERPARSER_API IModeTable
{
public:
    virtual ~IModeTable() = default;
};
