// SPDX-License-Identifier: Apache-2.0
// ModeSlot: one slot of a mode table, the place a Mode ID names.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

class ModeEntry;

#pragma pack(push, 1)
/// One element of a table's slot array, packed so that the array steps 9 bytes. Several slots may
/// name one node when their entries differ only in pipeline.
struct PARAMETERPARSER_API ModeSlot
{
    ModeEntry* mode;  ///< the node; null only when the file left the slot out. Borrowed.
    uint8_t pipeline; ///< low byte of the entry's pipeline; 0 means no pipeline
};
#pragma pack(pop)

static_assert(sizeof(ModeSlot) == 9, "mode slots are packed to a 9-byte stride");

/// A Mode ID names a slot: the mode table's index in its top byte, the slot's index in the table
/// in the low 24 bits.
namespace ModeId {

constexpr unsigned int TableIndexShift = 24;
constexpr uint32_t SlotIndexMask = 0x00FFFFFF;

constexpr unsigned int TableIndex(uint32_t modeId)
{
    return modeId >> TableIndexShift;
}

constexpr unsigned int SlotIndex(uint32_t modeId)
{
    return modeId & SlotIndexMask;
}

} // namespace ModeId
