// SPDX-License-Identifier: Apache-2.0
// ParameterLoadParameters: the state of one read, passed down through every generated Load.
#pragma once

#include <cstdint>

class ParameterDefinitionElement;
class ParameterFileSymbolTableEntry;

/// Where the next field is read and how it is checked against the file's schema.
struct ParameterLoadParameters
{
    ParameterFileSymbolTableEntry* entry;      ///< entry being read
    unsigned long nameHash;                    ///< hash of the field read next
    bool useParent;                            ///< the element is parentElement itself
    bool addElementOffset;                     ///< expected position includes the element's Offset
    ParameterDefinitionElement* parentElement; ///< enclosing structure; null: no schema checks
    uint32_t basePosition;                     ///< cursor at the start of the structure or array
    uint32_t arrayIndex;                       ///< index in an array of structures
    uint32_t loadLimit;                        ///< the cursor stays below this; 0xFFFFFFFF: none
};

constexpr uint32_t NoLoadLimit = 0xFFFFFFFF;
