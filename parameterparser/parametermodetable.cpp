// SPDX-License-Identifier: Apache-2.0
// ParameterModeTable: ownership of a table's name, tree and slots.
#include "parameterparser/parametermodetable.h"

#include "platform/vornalloc.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"

ParameterModeTable::ParameterModeTable(char* tableName, ModeSlot* slots, uint32_t count)
    : name(tableName), modes(slots), m_modeCount(count)
{
}

ParameterModeTable::~ParameterModeTable()
{
    // The root takes the whole tree with it; slots only borrow nodes, and the lists free their
    // own storage.
    delete rootMode;
    for (unsigned int i = 0; i < detachedModes.Count(); ++i)
        delete detachedModes[i];
    VornFree(name, VornTagRelease);
    VornFree(modes, VornTagRelease);
}
