// SPDX-License-Identifier: Apache-2.0
// ParameterFileLoader: the mode sections of a file, read into the manager's mode tables.
#include <algorithm>
#include <cstddef>
#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfileloader.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametersetmanager.h"

namespace {

// A Mode ID holds the table index in its top byte and the slot index below it.
// Link ID of an entry that has no link.
constexpr uint32_t NoLink = 0xFFFFFFFF;
// Flag bit of an entry whose node may not be unloaded.
constexpr uint32_t ResidentFlag = 0x1;
// Modes below this value (Default, Sensor) are always loaded and resident.
constexpr unsigned int FirstUnloadableMode = 2;

// One mode entry as read from a section.
struct ModeRecord
{
    uint32_t modeId;
    ModeUnion mode;
    uint32_t parentId;
    uint32_t linkId;
    uint32_t flags;
};

// Reads the entry at the reader's position. Fields that are not there keep the defaults the
// caller put in record; the reader has then logged the short read.
void ReadModeRecord(ParameterByteReader& reader, ParameterFileLayout const& layout,
                    ModeRecord& record)
{
    uint32_t value = 0;
    uint64_t raw = 0;
    if (reader.ReadU32(value))
        record.modeId = value;
    if (reader.ReadU64(raw))
        record.mode.Raw = raw;
    if (reader.ReadU32(value))
        record.parentId = value;
    if (layout.modeHasLink && reader.ReadU32(value))
        record.linkId = value;
    if (layout.modeHasFlags && reader.ReadU32(value))
        record.flags = value;
}

// The address of a slot's node pointer. Slots are packed, so the pointer may be misaligned and
// is read through ModeEntry::ResolveLink rather than dereferenced.
ModeEntry** SlotLink(ModeSlot* slot)
{
    return reinterpret_cast<ModeEntry**>(reinterpret_cast<unsigned char*>(slot) +
                                         offsetof(ModeSlot, mode));
}

// Checks that the three IDs of an entry name slots of its own table. False after keeping the
// reason as the manager's error.
bool CheckModeRecord(ParameterSetManager& manager, ParameterModeTable const& table,
                     unsigned int tableIndex, ModeRecord const& record)
{
    bool const hasLink = record.linkId != NoLink;
    if (ModeId::TableIndex(record.modeId) != tableIndex) {
        ParameterLogging::Write(
            &manager, ParameterLogging::LogError,
            "ReadModeSection: Mode Table Index in Mode ID (%u) does not match expected (%u)\n",
            record.modeId, tableIndex);
        manager.SetError("ReadModeSection: Index from Mode ID does not match expected");
        return false;
    }
    if (ModeId::TableIndex(record.parentId) != tableIndex) {
        ParameterLogging::Write(&manager, ParameterLogging::LogError,
                                "ReadModeSection: Mode Table Index != Parent Table Index,Mode ID "
                                "(%u), Parent ID (%u)\n",
                                record.modeId, record.parentId);
        manager.SetError("ReadModeSection: Mode Table Index != Parent Table Index");
        return false;
    }
    if (hasLink && ModeId::TableIndex(record.linkId) != tableIndex) {
        ParameterLogging::Write(
            &manager, ParameterLogging::LogError,
            "ReadModeSection: Mode Table Index != Link Table Index, Mode ID (%u), Link ID (%u)\n",
            record.modeId, record.linkId);
        manager.SetError("ReadModeSection: Mode Table Index != Link Table Index");
        return false;
    }
    char const* refusal = nullptr;
    if (ModeId::SlotIndex(record.modeId) >= table.m_modeCount)
        refusal = "ReadModeSection: Mode ID exceeds mode count";
    else if (ModeId::SlotIndex(record.parentId) >= table.m_modeCount)
        refusal = "ReadModeSection: Parent Mode ID exceeds mode count";
    else if (hasLink && ModeId::SlotIndex(record.linkId) >= table.m_modeCount)
        refusal = "ReadModeSection: Link Mode ID exceeds mode count";
    if (refusal != nullptr) {
        manager.SetError(refusal);
        return false;
    }
    return true;
}

// Checks one entry, then places its node in the slot and in the tree. False when a check failed;
// the reason is then kept as the manager's error.
bool ReadModeEntry(ParameterSetManager& manager, ParameterModeTable& table, unsigned int tableIndex,
                   ModeRecord const& record, bool fileMode)
{
    if (!CheckModeRecord(manager, table, tableIndex, record))
        return false;
    bool const isRootEntry = record.parentId == record.modeId;
    ModeEntry* parentNode =
        isRootEntry ? nullptr : table.modes[ModeId::SlotIndex(record.parentId)].mode;
    ModeEntry** link = record.linkId != NoLink
                           ? SlotLink(&table.modes[ModeId::SlotIndex(record.linkId)])
                           : nullptr;

    // An entry that repeats its parent's mode and sub-mode differs only in pipeline: it shares
    // the parent's node and so the parent's modules, and keeps only its own slot.
    ModeEntry* node = nullptr;
    if (parentNode != nullptr && parentNode->mode.Parts.mode == record.mode.Parts.mode &&
        parentNode->mode.Parts.subMode == record.mode.Parts.subMode) {
        node = parentNode;
    } else {
        // In file mode the node's modules are read when the mode is first used.
        node = new (std::nothrow) ModeEntry(!fileMode, (record.flags & ResidentFlag) != 0);
        if (node == nullptr) {
            manager.SetError("ReadModeSection: Failed to allocate a mode entry");
            return false;
        }
        node->Initialize(record.modeId, record.mode, link);
    }

    ModeSlot& slot = table.modes[ModeId::SlotIndex(record.modeId)];
    slot.mode = node;
    slot.pipeline = static_cast<uint8_t>(record.mode.Parts.pipeline & 0xFF);

    if (table.rootMode == nullptr) {
        table.rootMode = node;
        node->loaded = true;
        node->resident = true;
        return true;
    }
    if (node->mode.Parts.mode < FirstUnloadableMode) {
        node->loaded = true;
        node->resident = true;
    }
    if (parentNode != nullptr && parentNode != node)
        parentNode->AddMode(node);
    else if (node != parentNode)
        // A node whose parent slot is still empty (or a second root) has no place in the tree;
        // the table keeps it so that it is freed with the tree.
        table.detachedModes.Add(node);
    return true;
}

// The bytes of one mode section: the caller's buffer in buffer mode, a copy read from the file
// in file mode (freed with this object), whose failed read is logged.
struct ModeSectionBytes
{
    ModeSectionBytes(unsigned char* buffer, unsigned int bufferLength, ParameterBinaryFile* file,
                     ParameterSectionTable::SectionInfo const& info, unsigned int section,
                     IParameterLoggingAPI* log)
        : bytes(buffer), length(bufferLength), start(info.Offset)
    {
        if (file == nullptr)
            return;
        own = file->Read(info.Offset, info.Size);
        if (own == nullptr)
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "ReadModeSection(%u): Failed to read %u bytes for mode table "
                                    "from binary file\n",
                                    section, static_cast<unsigned int>(info.Size));
        bytes = own;
        length = info.Size;
        start = 0;
    }
    ModeSectionBytes(ModeSectionBytes const&) = delete;
    ModeSectionBytes& operator=(ModeSectionBytes const&) = delete;
    ~ModeSectionBytes() { VornFree(own, VornTagRelease); }

    unsigned char* bytes;
    unsigned int length;
    unsigned int start;
    unsigned char* own = nullptr;
};

} // namespace

bool ParameterFileLoader::ReadModeSections(unsigned char* buffer, unsigned int length,
                                           ParameterBinaryFile* file, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    unsigned int const sectionCount = m.m_modeSections.Count();
    if (sectionCount == 0) {
        ParameterLogging::Write(&m, ParameterLogging::LogVerbose,
                                "ReadModeSection: No mode tables in binary, creating default\n");
        return m.m_modeTree.AddDefaultTable();
    }

    ParameterFileLayout const layout = ParameterFileLayout::For(m.m_binaryVersion, alignment);
    bool result = false;
    for (unsigned int section = 0; section < sectionCount; ++section)
        static_cast<void>(ReadModeSection(section, buffer, length, file, layout, result));
    return result;
}

bool ParameterFileLoader::ReadModeSection(unsigned int section, unsigned char* buffer,
                                          unsigned int length, ParameterBinaryFile* file,
                                          ParameterFileLayout const& layout, bool& result)
{
    ParameterSetManager& m = m_manager;
    ParameterSectionTable::SectionInfo const info = m.m_modeSections[section];
    unsigned int const nameLength = layout.modeNameLength;
    unsigned int const entrySize = layout.modeEntrySize;
    unsigned int count = info.Size >= nameLength ? (info.Size - nameLength) / entrySize : 0;
    unsigned int const expected = nameLength + entrySize * count;
    if (info.Size != expected) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "ReadModeSection: ModeSize %u does not match expected size %u\n",
                                static_cast<unsigned int>(info.Size),
                                static_cast<unsigned int>(expected));
        return false;
    }

    ModeSectionBytes const source(buffer, length, file, info, section, &m);
    if (source.bytes == nullptr) {
        m.SetError("ReadModeSection: Failed, buffer is nullptr");
        return false;
    }
    if (source.length == 0) {
        m.SetError("ReadModeSection: Failed, buffer length is 0");
        return false;
    }

    ParameterByteReader reader(source.bytes, source.length, layout.alignment, &m, source.start);
    // The table takes the name it was read into; a format without names leaves it null.
    char* name = nameLength != 0 ? reader.ReadTextField(nameLength) : nullptr;
    unsigned int const entriesStart = reader.Position();
    // A section that runs past the end of the buffer holds only what the buffer can give, and
    // the first short entry ends the table: a damaged size must not allocate beyond that.
    if (file == nullptr) {
        unsigned int const room =
            entriesStart < source.length ? (source.length - entriesStart) / entrySize + 1 : 1;
        count = std::min(count, room);
    }
    auto const tableIndex = m.m_modeTree.Count();
    ModeSlot* slots = nullptr;
    if (count != 0)
        slots = static_cast<ModeSlot*>(VornCalloc(sizeof(ModeSlot) * count, VornTagAllocData));
    auto* table = (count == 0 || slots != nullptr) ? new (std::nothrow)
                                                         ParameterModeTable(name, slots, count)
                                                   : nullptr;
    if (table == nullptr) {
        VornFree(name, VornTagRelease);
        VornFree(slots, VornTagRelease);
        m.SetError("ReadModeSection: Failed to allocate the mode table");
        return false;
    }
    m.m_modeTree.Add(table);
    result = true;

    for (unsigned int entry = 0; entry < count; ++entry) {
        ParameterByteReader entryReader(source.bytes, source.length, layout.alignment, &m,
                                        entriesStart + entry * entrySize);
        ModeRecord record = {tableIndex << ModeId::TableIndexShift, ModeUnion(),
                             tableIndex << ModeId::TableIndexShift, NoLink, 0};
        ReadModeRecord(entryReader, layout, record);
        if (!ReadModeEntry(m, *table, tableIndex, record, file != nullptr))
            result = false;
        // A short read still processes what it got, then ends the table.
        if (entryReader.Failed())
            break;
    }
    return true;
}
