// SPDX-License-Identifier: Apache-2.0
// IModeTable: what the tables of a loaded file see of the manager that owns them.
#pragma once

#include "parameterparser/parameterexport.h"

struct ModeSlot;

class PARAMETERPARSER_API IModeTable
{
public:
    /// The slot of a Mode ID (bits 31-24 the mode table index, bits 23-0 the slot index); null
    /// when the table or the slot does not exist. Borrowed.
    virtual ModeSlot* GetModeEntry(unsigned int modeId) = 0;

    // Declared after the lookup so that it keeps the first slot of the table.
    virtual ~IModeTable() = default;
};
