// SPDX-License-Identifier: Apache-2.0
// ParameterFileLoader: the header, the section table, the mode sections and the tables behind
// them, read into a main manager.
#include "parameterparser/parameterfileloader.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
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
// in file mode (freed with this object).
struct ModeSectionBytes
{
    ModeSectionBytes() = default;
    ModeSectionBytes(ModeSectionBytes const&) = delete;
    ModeSectionBytes& operator=(ModeSectionBytes const&) = delete;
    ~ModeSectionBytes() { VornFree(own, VornTagRelease); }

    unsigned char* bytes = nullptr;
    unsigned int length = 0;
    unsigned int start = 0;
    unsigned char* own = nullptr;
};

} // namespace

bool ParameterFileLoader::ReadHeader(unsigned char* buffer, unsigned int length,
                                     unsigned int& position, unsigned int& sectionTableOffset,
                                     unsigned char& alignment)
{
    ParameterSetManager& m = m_manager;
    char message[ParameterSetManager::ErrorStringLength] = {};
    ParameterFileHeader header;
    header.headerFlags = m.m_binaryFlags;
    header.sectionOffset = sectionTableOffset;
    header.sectionCount = m.m_sectionCount;
    bool const read = ReadFileHeader(buffer, length, header, message, &m);
    position = header.end;
    sectionTableOffset = header.sectionOffset;
    alignment = header.layout.alignment;
    m.m_binaryVersion = header.layout.version;
    m.m_binaryFlags = header.headerFlags;
    m.m_sectionCount = header.sectionCount;
    if (header.binaryTag != nullptr)
        m.ReplaceBinaryTag(header.ReleaseBinaryTag());
    m.m_loadStatus = read;
    // message may hold the older-format warning on success; it is only a failure's reason.
    if (read)
        m.UpdateLoggingIdentifier();
    else if (message[0] != '\0')
        m.SetError(message);
    return read;
}

bool ParameterFileLoader::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& position, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    // The descriptors describe the file being read now, not one read before.
    ParameterSectionTable sections;
    char message[ParameterSetManager::ErrorStringLength] = {};
    m.m_loadStatus = ReadSectionRecords(buffer, length, position, alignment, m.m_sectionCount,
                                        sections, message, &m);
    m.m_symbolSection = sections.symbol;
    m.m_dataTableSection = sections.dataTable;
    m.m_dataSection = sections.data;
    m.m_definitionSection = sections.definitions;
    m.m_modeSections.Clear();
    for (unsigned int i = 0; i < sections.modes.Count(); ++i)
        m.m_modeSections.Add(sections.modes[i]);
    if (!m.m_loadStatus && message[0] != '\0')
        m.SetError(message);
    return m.m_loadStatus;
}

bool ParameterFileLoader::ReadSections(unsigned char* buffer, unsigned int length,
                                       char const* fileName, ParameterBinaryFile* file,
                                       unsigned int fileSize, unsigned int sectionTableOffset,
                                       IModeTable* modeTable, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    unsigned int position = sectionTableOffset;
    if (!ReadSectionInfo(buffer, length, position, alignment)) {
        m.SetError("Invalid binary file section count");
        m.m_loadStatus = false;
        return false;
    }
    if ((m.m_binaryFlags & ParameterSetManager::CompressedFlag) != 0) {
        m.SetError("Compressed binary file not supported (support ended with V5.1.0)");
        m.m_loadStatus = false;
        return false;
    }
    m.m_symbolTable = new (std::nothrow) ParameterFileSymbolTable(&m, alignment, m.m_binaryVersion);
    if (m.m_symbolTable == nullptr) {
        m.SetError("Unable to allocate the symbol table");
        m.m_loadStatus = false;
        return false;
    }
    if (!ReadModeSections(buffer, length, file, alignment))
        return false;
    return LoadSectionContents(buffer, length, fileName, file, fileSize, modeTable);
}

bool ParameterFileLoader::LoadSectionContents(unsigned char* buffer, unsigned int length,
                                              char const* fileName, ParameterBinaryFile* file,
                                              unsigned int fileSize, IModeTable* modeTable)
{
    ParameterSetManager& m = m_manager;
    if (m.m_symbolSection.Offset == 0 || m.m_symbolSection.Size == 0 ||
        m.m_dataSection.Offset == 0 || m.m_dataSection.Size == 0) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "ReadModeSections: Binary missing symbol table or data "
                                "SymbolOffset(%u) && SymbolSize(%u) && DataOffset(%u) && "
                                "DataSize(%u)\n",
                                static_cast<unsigned int>(m.m_symbolSection.Offset),
                                static_cast<unsigned int>(m.m_symbolSection.Size),
                                static_cast<unsigned int>(m.m_dataSection.Offset),
                                static_cast<unsigned int>(m.m_dataSection.Size));
        return true;
    }

    // In file mode the table keeps only its lookups and re-reads entries from the file; in
    // buffer mode the modules are read now and nothing of the tables is needed afterwards.
    bool const fileMode = file != nullptr;
    ParameterFileSymbolTable* table = m.m_symbolTable;
    bool result =
        table->Load(buffer, length, fileName, file, fileSize, m.m_symbolSection,
                    m.m_dataTableSection, m.m_dataSection, m.m_definitionSection, modeTable, true);
    if (fileMode)
        table->FreeEntryData();
    if (result && table->Modules().Count() != 0)
        result = CreateModules(fileMode);
    if (fileMode) {
        table->ClearDefinitions(false);
    } else {
        table->FreeEntryData();
        table->FreeLookupData();
        table->ClearDefinitions(true);
    }
    return result;
}

bool ParameterFileLoader::CreateModules(bool fileMode)
{
    ParameterSetManager& m = m_manager;
    ParameterFileSymbolTable* table = m.m_symbolTable;
    // One module that cannot be made or placed fails the load; every other one is still made.
    bool result = true;
    PList<ModuleData*> const& modules = table->Modules();
    for (unsigned int i = 0; i < modules.Count(); ++i) {
        ModuleData* data = modules[i];
        if (data == nullptr)
            continue;
        ParameterFileSymbolTableEntry entry;
        bool placed = false;
        if (table->Find(entry, data->ID, true)) {
            bool loadNow = true;
            if (fileMode)
                loadNow = data->Mode != nullptr && data->Mode->mode != nullptr &&
                          data->Mode->mode->resident;
            ParameterModule* module = m.CreateModule(&entry, data, loadNow);
            placed = m.AddModule(data, module);
        }
        if (!placed) {
            m.m_loadStatus = false;
            result = false;
        }
    }
    return result;
}

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

    ModeSectionBytes source;
    source.bytes = buffer;
    source.length = length;
    source.start = info.Offset;
    if (file != nullptr) {
        source.own = file->Read(info.Offset, info.Size);
        if (source.own == nullptr)
            ParameterLogging::Write(&m, ParameterLogging::LogError,
                                    "ReadModeSection(%u): Failed to read %u bytes for mode table "
                                    "from binary file\n",
                                    section, static_cast<unsigned int>(info.Size));
        source.bytes = source.own;
        source.length = info.Size;
        source.start = 0;
    }
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

// The manager's static readers and its member forms of the reading steps.

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length, unsigned int& pos,
                                     unsigned int& sectionOffset, unsigned char& alignment,
                                     VersionUnion& version, char*& binaryTag,
                                     unsigned long& headerFlags, unsigned int& sectionCount,
                                     char* errorText, IParameterLoggingAPI* log)
{
    ParameterFileHeader header;
    header.headerFlags = headerFlags;
    header.sectionOffset = sectionOffset;
    header.sectionCount = sectionCount;
    bool const read = ReadFileHeader(buffer, length, header, errorText, log);
    pos = header.end;
    sectionOffset = header.sectionOffset;
    sectionCount = header.sectionCount;
    headerFlags = header.headerFlags;
    alignment = header.layout.alignment;
    version = header.layout.version;
    if (header.layout.hasBinaryTag) {
        VornFree(binaryTag, VornTagRelease);
        binaryTag = header.ReleaseBinaryTag();
    }
    return read;
}

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& pos, unsigned char alignment,
                                          unsigned int sectionCount, SectionInfo& symbol,
                                          SectionInfo& dataTable, PList<SectionInfo>& modes,
                                          SectionInfo& data, SectionInfo& definitions,
                                          char* errorText, IParameterLoggingAPI* log)
{
    ParameterSectionTable sections;
    sections.symbol = symbol;
    sections.dataTable = dataTable;
    sections.data = data;
    sections.definitions = definitions;
    bool const read =
        ReadSectionRecords(buffer, length, pos, alignment, sectionCount, sections, errorText, log);
    symbol = sections.symbol;
    dataTable = sections.dataTable;
    data = sections.data;
    definitions = sections.definitions;
    for (unsigned int i = 0; i < sections.modes.Count(); ++i)
        modes.Add(sections.modes[i]);
    return read;
}

bool ParameterSetManager::ModeTableEntryExists(char const* fileName, char const* tableName)
{
    return FileHasModeTable(fileName, tableName);
}

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length,
                                     unsigned int& position, unsigned int& sectionTableOffset,
                                     unsigned char& alignment)
{
    return ParameterFileLoader(*MainManager())
        .ReadHeader(buffer, length, position, sectionTableOffset, alignment);
}

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& position, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager()).ReadSectionInfo(buffer, length, position, alignment);
}

bool ParameterSetManager::ReadSections(unsigned char* buffer, unsigned int length,
                                       char const* fileName, ParameterBinaryFile* file,
                                       unsigned int fileSize, unsigned int sectionTableOffset,
                                       IModeTable* modeTable, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager())
        .ReadSections(buffer, length, fileName, file, fileSize, sectionTableOffset, modeTable,
                      alignment);
}

bool ParameterSetManager::ReadModeSections(unsigned char* buffer, unsigned int length,
                                           ParameterBinaryFile* file, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager()).ReadModeSections(buffer, length, file, alignment);
}
