// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable: loading the symbol and data tables and finding their entries. The
// schema and the shared objects have files of their own.
#include "parameterparser/parameterfilesymboltable.h"

#include <memory>
#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/iparametermodulehost.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterlogging.h"

ParameterFileSymbolTable::ParameterFileSymbolTable(ParameterSetManager* manager,
                                                   unsigned char alignment,
                                                   VersionUnion const& version)
    : m_setManager(manager), m_log(IParameterModuleHost::LoggerOf(manager)),
      m_layout(ParameterFileLayout::For(version, alignment)), m_shared(m_log)
{
}

ParameterFileSymbolTable::~ParameterFileSymbolTable()
{
    FreeEntryData();
    if (m_shared.PublishedCount() != 0)
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "%d DupInfo object were not released\n",
                                static_cast<int>(m_shared.PublishedCount()));
    m_shared.Clear();
    FreeLookupData();
    FreeModules();
    ClearDefinitions(true);
    delete m_file;
    m_file = nullptr;
}

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

// Frees a block of the platform allocator when its holder goes.
struct VornBlockDeleter
{
    void operator()(void* block) const { VornFree(block, VornTagRelease); }
};

// Identifiers named by more than one entry become groups 1, 2, ... counted into duplicateCount;
// identifier 0 stands for no entry and never gets a group. Rewrites each lookup row's
// identifier to its group.
void NumberDuplicateGroups(uint32_t* counters, size_t counterCount,
                           ParameterFileSymbolTable::EntryData* lookup, unsigned int count,
                           unsigned int& duplicateCount)
{
    counters[0] = 0;
    for (size_t i = 1; i < counterCount; ++i)
        counters[i] = counters[i] > 1 ? duplicateCount++ : 0;
    lookup[0].Duplicate = 0;
    for (size_t id = 1; id <= count; ++id) {
        if (lookup[id].Duplicate != 0)
            lookup[id].Duplicate = counters[lookup[id].Duplicate];
    }
}

// Below 6.0.0 an entry's row is the identifier stored at its start, read here without moving
// pos. False when it cannot be read; id 0 (after a message) when it lies outside 1 to count.
bool PeekStoredId(unsigned char* buffer, unsigned int length, unsigned int pos, unsigned int count,
                  IParameterLoggingAPI* log, unsigned int& id)
{
    ParameterByteReader reader(buffer, length, 1, log, pos);
    uint32_t stored = 0;
    if (!reader.ReadU32(stored)) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to read entry ID from Symbol table\n");
        return false;
    }
    id = 0;
    if (stored == 0 || stored > count) {
        ParameterLogging::Write(
            log, ParameterLogging::LogError, "Symbol table entry ID %u out of range 1 - %u\n",
            static_cast<unsigned int>(stored), static_cast<unsigned int>(count));
        return true;
    }
    id = stored;
    return true;
}

} // namespace

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
    m_shared.Clear();
    FreeLookupData();
    FreeModules();

    if (!CountEntries(symbol, dataTable))
        return false;

    // The tables are sized from the section table, which a damaged file may make claim gigabytes:
    // a table that the file cannot hold fails here, before anything is allocated for it.
    unsigned int const available = file != nullptr ? fileLength : length;
    if (!ParameterByteReader::InBounds(symbol.Offset, symbol.Size, available)) {
        LogUnreadableTable("symbol", symbol);
        return false;
    }
    if (m_hasDataTable &&
        !ParameterByteReader::InBounds(dataTable.Offset, dataTable.Size, available)) {
        LogUnreadableTable("data", symbol);
        return false;
    }

    if (!AllocateTables())
        return false;

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

    if (definitions.Size != 0 &&
        !ReadDefinitionSection(buffer, length, definitions, keepDefinitions))
        return false;

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
        m_shared.ShareSymbolGroups();
    }

    if (!m_fileMode)
        m_buffer = buffer + data.Offset;
    return true;
}

bool ParameterFileSymbolTable::CountEntries(SectionInfo const& symbol, SectionInfo const& dataTable)
{
    IParameterLoggingAPI* log = Logger();
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
    return true;
}

bool ParameterFileSymbolTable::AllocateTables()
{
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
        ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                "Failed to allocate entry/lookup tables\n");
        FreeEntryData();
        FreeLookupData();
        return false;
    }
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
    // In memory reads stop at the section's end (or the buffer's, if the section claims more).
    unsigned char* bytes = buffer;
    unsigned int pos = section.Offset;
    unsigned int end = ParameterByteReader::InBounds(section.Offset, section.Size, length)
                           ? section.Offset + section.Size
                           : length;
    unsigned char* copy = nullptr;
    if (m_fileMode) {
        // An empty table has nothing to copy: the file refuses reads of zero bytes.
        copy = section.Size != 0 ? m_file->Read(section.Offset, section.Size) : nullptr;
        if (copy == nullptr && section.Size != 0) {
            ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                    "Failed to read %s table buffer (offset: %u, size: %u) from "
                                    "binary file\n",
                                    isSymbol ? "symbol" : "data",
                                    static_cast<unsigned int>(messageSection.Offset),
                                    static_cast<int>(messageSection.Size));
            return false;
        }
        bytes = copy;
        pos = 0;
        end = section.Size;
    }
    EntryTable& side = Side(isSymbol);
    unsigned int groupCount = 1;
    PList<DupObjInfo*>* groups = nullptr;
    bool const read = ReadTable(bytes, end, pos, count, side.entries, side.lookup, groupCount,
                                groups, m_dataOffset, m_modeTable, isSymbol);
    m_shared.Adopt(isSymbol, groupCount, groups);
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
    std::unique_ptr<uint32_t, VornBlockDeleter> const counters(static_cast<uint32_t*>(
        VornCalloc((counterCount != 0 ? counterCount : 1) * sizeof(uint32_t), VornTagAllocData)));
    if (counters == nullptr) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to allocate entry/lookup tables\n");
        return false;
    }

    unsigned int const first = positional ? 0 : 1;
    unsigned int const last = positional ? count : count + 1; // one past the last round
    for (unsigned int round = first; round < last; ++round) {
        unsigned int id = round;
        if (!positional) {
            if (!PeekStoredId(buffer, length, pos, count, log, id))
                return false;
            // pos stays: the next round meets the same identifier, and reports it again.
            if (id == 0)
                continue;
        }
        lookup[id].Position = pos;
        ParameterFileSymbolTableEntry& entry = entries[id];
        entry.Init(this);
        if (!entry.Load(buffer, m_fileName, m_file, length, pos, dataOffset, modeTable, isSymbol,
                        id))
            return false;
        // A DuplicateID beyond the table names no entry: the block is treated as not shared
        // (the entry has reported the value).
        uint32_t const duplicate = entry.DuplicateID < counterCount ? entry.DuplicateID : 0;
        ++counters.get()[duplicate];
        lookup[id].Duplicate = duplicate;
    }

    NumberDuplicateGroups(counters.get(), counterCount, lookup, count, duplicateCount);
    if (duplicateCount >= 2) {
        duplicates = new (std::nothrow) PList<DupObjInfo*>[duplicateCount];
        if (duplicates == nullptr) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to allocate entry/lookup tables\n");
            duplicateCount = 1;
            return false;
        }
    }

    if (isSymbol)
        TakeModules(entries, count);
    return true;
}

void ParameterFileSymbolTable::TakeModules(ParameterFileSymbolTableEntry* entries,
                                           unsigned int count)
{
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
        ParameterByteReader bytes(reader->Data, reader->Size, m_layout.alignment, log,
                                  reader->Position);
        read = bytes.ReadU32(id);
        reader->Position = bytes.Position();
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
