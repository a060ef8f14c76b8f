// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable: the file's schema, its symbol and data tables, and shared objects.
#include "parameterparser/parameterfilesymboltable.h"

#include <cerrno>
#include <new>
#include <system_error>
#include <unordered_set>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametersetmanager.h"

namespace {

// Record kinds of a definition section. Kinds 0 to 2 carry nothing the reader needs; 3 and 7 on
// are not defined.
constexpr uint8_t RecordOpaqueOne = 0;
constexpr uint8_t RecordOpaqueThree = 1;
constexpr uint8_t RecordOpaqueTwoTexts = 2;
constexpr uint8_t RecordModule = 4;
constexpr uint8_t RecordStructure = TypeStructure;
constexpr uint8_t RecordEnum = 6;

// A u32 length at the alignment, then that many bytes rounded up to it.
bool SkipCountedText(ParameterByteReader& reader)
{
    uint32_t length = 0;
    return reader.ReadU32(length) && reader.Skip(length);
}

// The opaque records are stepped over by their lengths alone. Their fixed bytes were written
// without padding, so they are stepped over byte-exactly whatever the alignment.
bool SkipOpaque(ParameterByteReader& reader, uint8_t kind)
{
    switch (kind) {
    case RecordOpaqueOne:
        return reader.SkipUnaligned(1) && SkipCountedText(reader) && reader.SkipUnaligned(1);
    case RecordOpaqueThree:
        return reader.SkipUnaligned(3) && SkipCountedText(reader) && reader.SkipUnaligned(1);
    default:
        return reader.SkipUnaligned(2) && SkipCountedText(reader) && SkipCountedText(reader);
    }
}

// Enumerations are numbers throughout the system, so their records are skipped. ID, name hash and
// each value with its flag were written without padding; only the lengths are aligned.
bool SkipEnum(ParameterByteReader& reader)
{
    uint32_t valueCount = 0;
    if (!reader.SkipUnaligned(4) || !SkipCountedText(reader) || !reader.SkipUnaligned(8) ||
        !reader.ReadU32(valueCount))
        return false;
    for (uint32_t i = 0; i < valueCount; ++i) {
        if (!reader.SkipUnaligned(5) || !SkipCountedText(reader) || !SkipCountedText(reader))
            return false;
    }
    return true;
}

// Names are null only when memory ran out while reading them.
char const* Printable(char const* name)
{
    return name != nullptr ? name : "";
}

} // namespace

ParameterFileSymbolTable::ParameterFileSymbolTable(ParameterSetManager* manager,
                                                   unsigned char alignment,
                                                   VersionUnion const& version)
    : m_setManager(manager), m_layout(ParameterFileLayout::For(version, alignment))
{
    pthread_rwlock_init(&m_lock, nullptr);
}

ParameterFileSymbolTable::~ParameterFileSymbolTable()
{
    FreeEntryData();
    if (!m_objects.empty())
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "%d DupInfo object were not released\n",
                                static_cast<int>(m_objects.size()));
    FreeDuplicates();
    FreeLookupData();
    FreeModules();
    ClearDefinitions(true);
    delete m_file;
    m_file = nullptr;
    pthread_rwlock_destroy(&m_lock);
}

IParameterLoggingAPI* ParameterFileSymbolTable::Logger() const
{
    return m_setManager;
}

bool ParameterFileSymbolTable::ReadDefinitions(unsigned char* buffer, unsigned int length,
                                               unsigned int& pos, unsigned int size, bool keep)
{
    if (buffer == nullptr || size > length || pos > length - size)
        return false;

    ClearDefinitions(true);
    m_definitionModules = new (std::nothrow) ModuleMap();
    m_definitionStructures = new (std::nothrow) StructureMap();
    if (m_definitionModules == nullptr || m_definitionStructures == nullptr) {
        ClearDefinitions(true);
        return false;
    }

    IParameterLoggingAPI* log = Logger();
    unsigned int const end = pos + size;
    // The reader stops at the section's end, so a record that claims more bytes than the section
    // holds fails there instead of reading the sections behind it.
    ParameterByteReader reader(buffer, end, pos, m_layout.alignment, log);
    bool reachedEnd = true;
    while (pos < end) {
        uint8_t kind = 0;
        // A record that was cut short has failed the reader already: the walk stops here.
        if (!reader.ReadU8(kind)) {
            reachedEnd = false;
            break;
        }
        if (kind == RecordModule) {
            auto* module = new (std::nothrow) ParameterDefinitionModule(reader);
            if (module == nullptr || !keep) {
                delete module;
                continue;
            }
            auto const inserted = m_definitionModules->emplace(module->NameHash, module);
            if (!inserted.second) {
                ParameterLogging::Write(
                    log, ParameterLogging::LogError,
                    "Error: Duplicate structure Hash (%llu) found in definition table: %s / %s\n",
                    static_cast<unsigned long long>(module->NameHash),
                    Printable(inserted.first->second->Name), Printable(module->Name));
                delete module;
            }
        } else if (kind == RecordStructure) {
            auto* structure = new (std::nothrow) ParameterDefinitionStructure(reader, log);
            if (structure == nullptr || !keep) {
                delete structure;
                continue;
            }
            auto const inserted = m_definitionStructures->emplace(structure->ID, structure);
            if (!inserted.second) {
                ParameterLogging::Write(
                    log, ParameterLogging::LogError,
                    "Error: Duplicate structure ID (%u) found in definition table: %s / %s\n",
                    structure->ID, Printable(inserted.first->second->Name),
                    Printable(structure->Name));
                delete structure;
            }
        } else if (kind == RecordEnum) {
            (void)SkipEnum(reader);
        } else if (kind <= RecordOpaqueTwoTexts) {
            (void)SkipOpaque(reader, kind);
        } else {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Error: Unexpected type found in definition table (%u)\n",
                                    static_cast<unsigned int>(kind));
            reachedEnd = false;
            break;
        }
    }

    // Sizes are computed for what was read, also when the walk broke off, as this file's version
    // lays structures out.
    if (keep) {
        for (auto& entry : *m_definitionStructures)
            entry.second->PopulateOffsetSizeStructure(m_definitionStructures, log, m_layout);
    }
    return reachedEnd;
}

void ParameterFileSymbolTable::ClearDefinitions(bool all)
{
    if (all) {
        if (m_definitionModules != nullptr) {
            for (auto& entry : *m_definitionModules)
                delete entry.second;
            delete m_definitionModules;
            m_definitionModules = nullptr;
        }
        if (m_definitionStructures != nullptr) {
            for (auto& entry : *m_definitionStructures)
                delete entry.second;
            delete m_definitionStructures;
            m_definitionStructures = nullptr;
        }
        return;
    }

    if (m_definitionStructures == nullptr)
        return;

    // What was verified all the way down is read straight from now on: its Info goes. A child
    // that failed keeps its structure alive, and the structure it refers to.
    std::unordered_set<ParameterDefinitionStructure*> keepSet;
    for (auto& entry : *m_definitionStructures) {
        ParameterDefinitionStructure* structure = entry.second;
        bool needed = false;
        for (auto& child : structure->Children) {
            ParameterDefinitionElement* element = child.second;
            PList<unsigned int> visited;
            if (element->IsStructVerified(visited)) {
                delete element->Info;
                element->Info = nullptr;
            } else {
                if (element->Info != nullptr && element->Info->Structure != nullptr)
                    keepSet.insert(element->Info->Structure);
                needed = true;
            }
        }
        if (needed)
            keepSet.insert(structure);
    }

    for (auto it = m_definitionStructures->begin(); it != m_definitionStructures->end();) {
        if (keepSet.count(it->second) != 0) {
            ++it;
            continue;
        }
        delete it->second;
        it = m_definitionStructures->erase(it);
    }

    if (m_definitionModules == nullptr)
        return;
    for (auto it = m_definitionModules->begin(); it != m_definitionModules->end();) {
        if (FindStructure(it->second->StructureID) != nullptr) {
            ++it;
            continue;
        }
        delete it->second;
        it = m_definitionModules->erase(it);
    }
}

ParameterDefinitionStructure* ParameterFileSymbolTable::FindStructure(unsigned int id) const
{
    if (m_definitionStructures == nullptr)
        return nullptr;
    auto const found = m_definitionStructures->find(id);
    return found != m_definitionStructures->end() ? found->second : nullptr;
}

ParameterDefinitionStructure*
ParameterFileSymbolTable::FindModuleStructure(unsigned long nameHash) const
{
    if (m_definitionModules == nullptr)
        return nullptr;
    auto const found = m_definitionModules->find(nameHash);
    if (found == m_definitionModules->end())
        return nullptr;
    return FindStructure(found->second->StructureID);
}

ParameterDefinitionElement*
ParameterFileSymbolTable::BuildModuleElement(unsigned long nameHash) const
{
    ParameterDefinitionStructure* structure = FindModuleStructure(nameHash);
    if (structure == nullptr)
        return nullptr;
    auto* info = new (std::nothrow) ParameterDefinitionElementInfo(structure);
    if (info == nullptr)
        return nullptr;
    auto* element = new (std::nothrow) ParameterDefinitionElement(nameHash, info);
    if (element == nullptr)
        delete info;
    return element;
}

// ---- Symbol and data tables ------------------------------------------------------------------

namespace {

// Rows of the entry and lookup arrays: identifiers run to count inclusive.
template <typename T> T* AllocateRows(unsigned int count)
{
    size_t const rows = static_cast<size_t>(count) + 1;
    return static_cast<T*>(VornCalloc(rows * sizeof(T), VornTagAllocObject));
}

ParameterFileSymbolTableEntry* AllocateEntries(unsigned int count)
{
    auto* entries = AllocateRows<ParameterFileSymbolTableEntry>(count);
    if (entries == nullptr)
        return nullptr;
    for (size_t i = 0; i <= count; ++i)
        new (&entries[i]) ParameterFileSymbolTableEntry();
    return entries;
}

void DestroyEntries(ParameterFileSymbolTableEntry* entries, unsigned int count)
{
    if (entries == nullptr)
        return;
    for (size_t i = 0; i <= count; ++i)
        entries[i].~ParameterFileSymbolTableEntry();
    VornFree(entries, VornTagRelease);
}

// A section [offset, offset + size) lies within length bytes.
bool Within(unsigned int offset, unsigned int size, unsigned int length)
{
    return offset <= length && size <= length - offset;
}

} // namespace

bool DupObjInfo::Release(DupObjInfo* info)
{
    if (info == nullptr)
        return false;
    // A count that is already 0 belongs to a record whose object was released before: that
    // object is not shared any more, so its holder frees it.
    uint32_t count = info->RefCount.load();
    while (count != 0 && !info->RefCount.compare_exchange_weak(count, count - 1)) {
    }
    if (count > 1)
        return false;
    info->Object = nullptr;
    return true;
}

bool ParameterFileSymbolTable::Load(unsigned char* buffer, unsigned int length,
                                    char const* fileName, ParameterBinaryFile* file,
                                    unsigned int fileLength, SectionInfo const& symbol,
                                    SectionInfo const& dataTable, SectionInfo const& data,
                                    SectionInfo const& definitions, IModeTable* modeTable,
                                    bool keepDefinitions)
{
    IParameterLoggingAPI* log = Logger();

    // The table takes the file over at once, so that a failed load still closes it when the
    // table goes.
    if (file != nullptr && file != m_file) {
        delete m_file;
        m_file = file;
    }

    // A second load starts from empty tables.
    FreeEntryData();
    FreeDuplicates();
    FreeLookupData();
    FreeModules();

    unsigned int const symbolEntrySize = m_layout.symbolEntrySize;
    m_symbols.count = symbol.Size / symbolEntrySize;
    if (symbol.Size % symbolEntrySize != 0) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Invalid symbol table size: %u, expected: %u\n",
                                static_cast<unsigned int>(symbol.Size),
                                static_cast<unsigned int>(m_symbols.count * symbolEntrySize));
        return false;
    }

    m_hasDataTable = false;
    m_data.count = m_symbols.count;
    if (dataTable.Offset != 0 && dataTable.Size != 0) {
        unsigned int const dataEntrySize = m_layout.dataEntrySize;
        if (dataEntrySize == 0) {
            // A version without a data table: its pointers lead to symbol entries, as in every
            // other file of that version.
            ParameterLogging::Write(log, ParameterLogging::LogWarning,
                                    "Data table entry size is zero\n");
        } else {
            m_data.count = dataTable.Size / dataEntrySize;
            if (dataTable.Size % dataEntrySize != 0) {
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Invalid data table size: %u, expected: %u\n",
                                        static_cast<unsigned int>(dataTable.Size),
                                        static_cast<unsigned int>(m_data.count * dataEntrySize));
                return false;
            }
            m_hasDataTable = true;
        }
    }

    // The tables are sized from the section table, which a damaged file may make claim gigabytes:
    // a table that the file cannot hold fails here, before anything is allocated for it.
    unsigned int const available = file != nullptr ? fileLength : length;
    if (!Within(symbol.Offset, symbol.Size, available)) {
        LogUnreadableTable("symbol", symbol);
        return false;
    }
    if (m_hasDataTable && !Within(dataTable.Offset, dataTable.Size, available)) {
        LogUnreadableTable("data", symbol);
        return false;
    }

    m_symbols.entries = AllocateEntries(m_symbols.count);
    m_symbols.lookup = AllocateRows<EntryData>(m_symbols.count);
    if (m_hasDataTable) {
        m_data.entries = AllocateEntries(m_data.count);
        m_data.lookup = AllocateRows<EntryData>(m_data.count);
    } else {
        m_data.entries = m_symbols.entries;
        m_data.lookup = m_symbols.lookup;
    }
    if (m_symbols.entries == nullptr || m_symbols.lookup == nullptr || m_data.entries == nullptr ||
        m_data.lookup == nullptr) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to allocate entry/lookup tables\n");
        FreeEntryData();
        FreeLookupData();
        return false;
    }

    m_fileName = fileName;
    m_modeTable = modeTable;
    m_fileMode = file != nullptr;
    m_fileLength = m_fileMode ? fileLength : length;
    // Entries read from the file find their tables and data through these, so they are known
    // before the tables are read.
    m_symbols.size = symbol.Size;
    m_symbols.offset = symbol.Offset;
    m_data.size = dataTable.Size;
    m_data.offset = dataTable.Offset;
    m_dataOffset = data.Offset;
    m_dataSize = data.Size;

    if (definitions.Size != 0) {
        bool read = false;
        if (!m_fileMode) {
            unsigned int pos = definitions.Offset;
            read = ReadDefinitions(buffer, length, pos, definitions.Size, keepDefinitions);
        } else {
            unsigned char* copy = m_file->Read(definitions.Offset, definitions.Size);
            if (copy == nullptr) {
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Failed to read definition table buffer (offset: %u, "
                                        "size: %u) from binary file\n",
                                        static_cast<unsigned int>(definitions.Offset),
                                        static_cast<unsigned int>(definitions.Size));
            } else {
                unsigned int pos = 0;
                read =
                    ReadDefinitions(copy, definitions.Size, pos, definitions.Size, keepDefinitions);
                VornFree(copy, VornTagRelease);
            }
        }
        if (!read) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to read definition table from binary file\n");
            return false;
        }
    }

    if (!ReadTableSection(buffer, length, symbol, symbol, m_symbols.count, true)) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to read symbol table from binary file\n");
        return false;
    }
    if (m_hasDataTable) {
        // The copy's failure message carries the symbol section's numbers, as it always has.
        if (!ReadTableSection(buffer, length, dataTable, symbol, m_data.count, false)) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to read data table from binary file\n");
            return false;
        }
    } else {
        // Pointers of a file without a data table lead to symbol entries, which share their
        // groups with the symbol side.
        m_data.duplicates = m_symbols.duplicates;
        m_data.duplicateCount = m_symbols.duplicateCount;
    }

    if (!m_fileMode)
        m_buffer = buffer + data.Offset;
    return true;
}

void ParameterFileSymbolTable::LogUnreadableTable(char const* kind,
                                                  SectionInfo const& messageSection) const
{
    IParameterLoggingAPI* log = Logger();
    ParameterLogging::Write(log, ParameterLogging::LogError,
                            "Failed to read %s table buffer (offset: %u, size: %u) from binary "
                            "file\n",
                            kind, static_cast<unsigned int>(messageSection.Offset),
                            static_cast<unsigned int>(messageSection.Size));
    ParameterLogging::Write(log, ParameterLogging::LogError,
                            "Failed to read %s table from binary file\n", kind);
}

bool ParameterFileSymbolTable::ReadTableSection(unsigned char* buffer, unsigned int length,
                                                SectionInfo const& section,
                                                SectionInfo const& messageSection,
                                                unsigned int count, bool isSymbol)
{
    EntryTable& side = Side(isSymbol);

    if (!m_fileMode) {
        // Reads stop at the section's end (or the buffer's, if the section claims more).
        unsigned int const end =
            Within(section.Offset, section.Size, length) ? section.Offset + section.Size : length;
        unsigned int pos = section.Offset;
        return ReadTable(buffer, end, pos, count, side.entries, side.lookup, side.duplicateCount,
                         side.duplicates, m_dataOffset, m_modeTable, isSymbol);
    }

    // An empty table has nothing to copy: the file refuses reads of zero bytes.
    unsigned char* copy = section.Size != 0 ? m_file->Read(section.Offset, section.Size) : nullptr;
    if (copy == nullptr && section.Size != 0) {
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "Failed to read %s table buffer (offset: %u, size: %u) from "
                                "binary file\n",
                                isSymbol ? "symbol" : "data",
                                static_cast<unsigned int>(messageSection.Offset),
                                static_cast<int>(messageSection.Size));
        return false;
    }
    unsigned int pos = 0;
    bool const read =
        ReadTable(copy, section.Size, pos, count, side.entries, side.lookup, side.duplicateCount,
                  side.duplicates, m_dataOffset, m_modeTable, isSymbol);
    VornFree(copy, VornTagRelease);
    return read;
}

bool ParameterFileSymbolTable::ReadTable(unsigned char* buffer, unsigned int length,
                                         unsigned int& pos, unsigned int count,
                                         ParameterFileSymbolTableEntry* entries, EntryData* lookup,
                                         unsigned int& duplicateCount,
                                         PList<DupObjInfo*>*& duplicates, unsigned int dataOffset,
                                         IModeTable* modeTable, bool isSymbol)
{
    IParameterLoggingAPI* log = Logger();
    duplicateCount = 1;
    duplicates = nullptr;
    if (entries == nullptr || lookup == nullptr)
        return false;

    // Stored identifiers run from 1 to count; positions from 0 to count - 1. One counter per
    // identifier that a DuplicateID may name.
    bool const positional = m_layout.positionalIds;
    size_t const counterCount = positional ? count : static_cast<size_t>(count) + 1;
    auto* counters = static_cast<uint32_t*>(
        VornCalloc((counterCount != 0 ? counterCount : 1) * sizeof(uint32_t), VornTagAllocData));
    if (counters == nullptr) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to allocate entry/lookup tables\n");
        return false;
    }

    bool read = true;
    unsigned int const first = positional ? 0 : 1;
    unsigned int const last = positional ? count : count + 1; // one past the last round
    for (unsigned int round = first; round < last; ++round) {
        unsigned int id = round;
        if (!positional) {
            unsigned int peek = pos;
            ParameterByteReader reader(buffer, length, peek, 1, log);
            uint32_t stored = 0;
            if (!reader.ReadU32(stored)) {
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Failed to read entry ID from Symbol table\n");
                read = false;
                break;
            }
            // pos stays: the next round meets the same identifier, and reports it again.
            if (stored == 0 || stored > count) {
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Symbol table entry ID %u out of range 1 - %u\n",
                                        static_cast<unsigned int>(stored),
                                        static_cast<unsigned int>(count));
                continue;
            }
            id = stored;
        }

        lookup[id].Position = pos;
        ParameterFileSymbolTableEntry& entry = entries[id];
        entry.Init(this);
        if (!entry.Load(buffer, m_fileName, m_file, length, pos, dataOffset, modeTable, isSymbol,
                        id)) {
            read = false;
            break;
        }
        // A DuplicateID beyond the table names no entry: the block is treated as not shared
        // (the entry has reported the value).
        uint32_t const duplicate = entry.DuplicateID;
        if (duplicate < counterCount) {
            ++counters[duplicate];
            lookup[id].Duplicate = duplicate;
        } else {
            lookup[id].Duplicate = 0;
        }
    }

    if (!read) {
        VornFree(counters, VornTagRelease);
        return false;
    }

    // Identifiers named by more than one entry become groups 1, 2, ...; identifier 0 stands for
    // no entry and never gets a group.
    counters[0] = 0;
    for (size_t i = 1; i < counterCount; ++i)
        counters[i] = counters[i] > 1 ? duplicateCount++ : 0;
    lookup[0].Duplicate = 0;
    for (size_t id = 1; id <= count; ++id) {
        if (lookup[id].Duplicate != 0)
            lookup[id].Duplicate = counters[lookup[id].Duplicate];
    }
    VornFree(counters, VornTagRelease);

    if (duplicateCount >= 2) {
        duplicates = new (std::nothrow) PList<DupObjInfo*>[duplicateCount];
        if (duplicates == nullptr) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to allocate entry/lookup tables\n");
            duplicateCount = 1;
            return false;
        }
    }

    if (isSymbol) {
        for (size_t id = 1; id <= count; ++id) {
            ModuleData* module = entries[id].Module;
            if (module == nullptr)
                continue;
            entries[id].Module = nullptr;
            unsigned int const before = m_modules.Count();
            m_modules.Add(module);
            if (m_modules.Count() == before)
                delete module;
        }
    }
    return true;
}

bool ParameterFileSymbolTable::Find(ParameterFileSymbolTableEntry& entry, unsigned int id,
                                    bool isSymbol)
{
    unsigned int const count = Side(isSymbol).count;
    if (id == 0 || id > count) {
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "Find: Symbol table entry ID %u out of range 1 - %u\n",
                                static_cast<unsigned int>(id), static_cast<unsigned int>(count));
        return false;
    }

    ParameterFileSymbolTableEntry* entries = Side(isSymbol).entries;
    if (entries != nullptr) {
        // A view of the table's entry: it shares Data and owns nothing.
        ParameterFileSymbolTableEntry const& source = entries[id];
        entry.Init(this);
        entry.ID = source.ID;
        entry.DuplicateID = source.DuplicateID;
        entry.Data = source.Data;
        entry.OwnsData = false;
        entry.Position = source.Position;
        entry.Size = source.Size;
        entry.Module = nullptr;
        return true;
    }

    if (m_fileName == nullptr)
        return false;

    EntryData const* lookup = Side(isSymbol).lookup;
    if (lookup == nullptr || m_file == nullptr)
        return false;
    FileReference(1);
    entry.Init(this);
    unsigned int pos = lookup[id].Position;
    // Without a data table, data identifiers name symbol entries, which decode as such.
    bool const decodeAsSymbol = isSymbol || !m_hasDataTable;
    bool const loaded = entry.Load(nullptr, m_fileName, m_file, 0, pos, m_dataOffset, m_modeTable,
                                   decodeAsSymbol, id);
    FileReference(-1);
    return loaded;
}

bool ParameterFileSymbolTable::ReadPointerEntry(ParameterFileSymbolTableEntry& target,
                                                ParameterFileSymbolTableEntry* reader)
{
    IParameterLoggingAPI* log = Logger();
    uint32_t id = 0;
    bool read = false;
    if (reader != nullptr) {
        ParameterByteReader bytes(reader->Data, reader->Size, reader->Position, m_layout.alignment,
                                  log);
        read = bytes.ReadU32(id);
        if (!read)
            reader->LogMessage(false, "Insufficient data to read variable from symbol table "
                                      "entry\n");
    }
    if (!read || id == 0) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "ReadPointerEntry: Unable to read pointer entry from Symbol "
                                "table\n");
        return false;
    }
    if (!Find(target, id, false)) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "ReadPointerEntry: Unable to find pointer entry ID %u in Symbol "
                                "table%d\n",
                                id, static_cast<int>(m_data.count));
        return false;
    }
    return true;
}

void ParameterFileSymbolTable::FreeEntryData()
{
    if (m_data.entries != m_symbols.entries)
        DestroyEntries(m_data.entries, m_data.count);
    DestroyEntries(m_symbols.entries, m_symbols.count);
    m_data.entries = nullptr;
    m_symbols.entries = nullptr;
}

void ParameterFileSymbolTable::FreeLookupData()
{
    if (m_data.lookup != m_symbols.lookup)
        VornFree(m_data.lookup, VornTagRelease);
    VornFree(m_symbols.lookup, VornTagRelease);
    m_data.lookup = nullptr;
    m_symbols.lookup = nullptr;
}

void ParameterFileSymbolTable::FreeModules()
{
    for (unsigned int i = 0; i < m_modules.Count(); ++i)
        delete m_modules[i];
    m_modules.Clear();
}

void ParameterFileSymbolTable::FileReference(int adjust)
{
    if (m_file == nullptr) {
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "FileReference called with null File object, Adjust: %d\n", adjust);
        return;
    }
    m_file->Reference(adjust);
}

// ---- Shared objects ---------------------------------------------------------------------------

class ParameterFileSymbolTable::LockGuard
{
public:
    LockGuard(pthread_rwlock_t& lock, bool write) : m_lock(lock)
    {
        for (;;) {
            int const result =
                write ? pthread_rwlock_wrlock(&m_lock) : pthread_rwlock_rdlock(&m_lock);
            if (result == 0)
                return;
            // Too many readers at once is transient: wait for one to leave.
            if (result == EAGAIN)
                continue;
            // A lock this thread holds already, or a broken lock: nothing guarded may go on.
            throw std::system_error(result, std::generic_category(),
                                    "ParameterFileSymbolTable lock");
        }
    }
    ~LockGuard() { pthread_rwlock_unlock(&m_lock); }

    LockGuard(LockGuard const&) = delete;
    LockGuard& operator=(LockGuard const&) = delete;

private:
    pthread_rwlock_t& m_lock;
};

void ParameterFileSymbolTable::LogInvalidCall(bool publish, bool isModule, unsigned int id,
                                              void* object, int loc) const
{
    EntryTable const& side = Side(isModule);
    // SetDupObject names the object and prints the place as the side and the dup type
    // ("Loc: Data:12"); GetDupObject prints the dup type alone.
    char objectText[48] = "";
    char place[32];
    if (publish) {
        Vorn::OsUtils::SNPrintF(objectText, sizeof(objectText), "Obj: %p, ", object);
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%s:%d", isModule ? "Symbol" : "Data", loc);
    } else {
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%d", loc);
    }
    char duplicate[40] = "";
    if (side.lookup != nullptr && id <= side.count)
        Vorn::OsUtils::SNPrintF(duplicate, sizeof(duplicate), "EntryLookup[id].Dup: %u, ",
                                side.lookup[id].Duplicate);
    ParameterLogging::Write(
        Logger(), ParameterLogging::LogError,
        "%s called with invalid values, This: %p, IsModule: %d, ID: %u, "
        "%sDupCount: %u, LookupCnt: %u, DupEntries: %p, EntryLookup: %p, "
        "%sLoc: %s\n",
        publish ? "SetDupObject" : "GetDupObject", static_cast<void const*>(this), isModule ? 1 : 0,
        id, objectText, side.duplicateCount, side.count, static_cast<void const*>(side.duplicates),
        static_cast<void const*>(side.lookup), duplicate, place);
}

unsigned int ParameterFileSymbolTable::GroupOf(bool isModule, unsigned int id, bool& invalid) const
{
    EntryTable const& side = Side(isModule);
    invalid = false;
    if (side.lookup == nullptr || id > side.count) {
        invalid = true;
        return 0;
    }
    unsigned int const group = side.lookup[id].Duplicate;
    if (group != 0 && (side.duplicates == nullptr || group >= side.duplicateCount))
        invalid = true;
    return invalid ? 0 : group;
}

DupObjInfo* ParameterFileSymbolTable::FindRecord(bool isModule, unsigned int group, int loc) const
{
    PList<DupObjInfo*> const& records = Side(isModule).duplicates[group];
    for (unsigned int i = 0; i < records.Count(); ++i) {
        if (records[i] != nullptr && records[i]->Loc == loc)
            return records[i];
    }
    return nullptr;
}

PList<DupObjInfo*> const* ParameterFileSymbolTable::GetDuplicates(bool isModule,
                                                                  unsigned int group) const
{
    EntryTable const& side = Side(isModule);
    if (side.duplicates == nullptr || group == 0 || group >= side.duplicateCount)
        return nullptr;
    return &side.duplicates[group];
}

DupObjInfo* ParameterFileSymbolTable::GetDupObjectInternal(bool isModule, unsigned int id, int loc,
                                                           bool lock, uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    if (invalid) {
        LogInvalidCall(false, isModule, id, nullptr, loc);
        return nullptr;
    }
    // A block that is not shared takes no lock at all.
    if (group == 0)
        return nullptr;

    // A record is handed out only with a reference on its object. An empty record is not: its
    // Object may be published the moment the lock goes, and a caller that read it then would
    // hold an object it has no reference on.
    auto search = [&]() -> DupObjInfo* {
        DupObjInfo* info = FindRecord(isModule, group, loc);
        if (info == nullptr || info->Object == nullptr)
            return nullptr;
        // An array of another kind of element is not this reader's to use.
        if (elementType != AnyElementType && info->ElementType != elementType)
            return nullptr;
        // The count rises under the shared lock, so it is atomic.
        info->RefCount.fetch_add(1);
        return info;
    };
    if (!lock)
        return search();
    LockGuard guard(m_lock, false);
    return search();
}

DupObjInfo* ParameterFileSymbolTable::SetDupObject(bool isModule, unsigned int id, void* object,
                                                   int loc, unsigned int elementCount,
                                                   uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    char const* side = isModule ? "Symbol" : "Data";
    if (invalid) {
        LogInvalidCall(true, isModule, id, object, loc);
        return nullptr;
    }
    if (group == 0)
        return nullptr;

    LockGuard guard(m_lock, true);
    // The search under the write lock must not count: a record found here is not handed out.
    DupObjInfo* info = FindRecord(isModule, group, loc);
    if (info != nullptr) {
        // Another reader published first; the caller's copy stays private.
        if (info->Object != nullptr)
            return nullptr;
        if (info->RefCount.load() > 0)
            ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                    "SetDuplicateObject called on existing object with nullptr "
                                    "Object and RefCount %u: ID: %d, DupID: %d, Loc: %s:%d, "
                                    "ignored\n",
                                    info->RefCount.load(), static_cast<int>(id),
                                    static_cast<int>(group), side, loc);
        info->Object = object;
        info->Count = elementCount;
        info->ElementType = elementType;
        info->RefCount.fetch_add(1);
        m_objects[object] = info;
        return info;
    }

    info = new (std::nothrow) DupObjInfo(loc);
    if (info == nullptr)
        return nullptr;
    PList<DupObjInfo*>& records = Side(isModule).duplicates[group];
    unsigned int const before = records.Count();
    records.Add(info);
    if (records.Count() == before) {
        // The list could not grow: the object stays private to its reader.
        delete info;
        return nullptr;
    }
    info->Object = object;
    info->Count = elementCount;
    info->ElementType = elementType;
    info->RefCount.store(1);
    m_objects[object] = info;
    return info;
}

bool ParameterFileSymbolTable::ReleaseDupObject(void* object, unsigned int* sharedCount)
{
    if (object == nullptr)
        return false;
    LockGuard guard(m_lock, true);
    DupObjInfo* info = FindDupObject(object);
    if (info == nullptr)
        return true;
    if (!DupObjInfo::Release(info))
        return false;
    if (sharedCount != nullptr)
        *sharedCount = info->Count;
    // The record stays in its group with no object, ready for the next load.
    m_objects.erase(object);
    return true;
}

DupObjInfo* ParameterFileSymbolTable::FindDupObject(void* object)
{
    auto const found = m_objects.find(object);
    return found != m_objects.end() ? found->second : nullptr;
}

void ParameterFileSymbolTable::FreeDuplicates()
{
    // Without a data table both sides name the same lists.
    if (m_data.duplicates == m_symbols.duplicates)
        m_data.duplicates = nullptr;
    for (EntryTable* side : {&m_symbols, &m_data}) {
        if (side->duplicates != nullptr) {
            for (unsigned int group = 0; group < side->duplicateCount; ++group) {
                for (unsigned int i = 0; i < side->duplicates[group].Count(); ++i)
                    delete side->duplicates[group][i];
            }
            delete[] side->duplicates;
        }
        side->duplicates = nullptr;
        side->duplicateCount = 1;
    }
    m_objects.clear();
}
