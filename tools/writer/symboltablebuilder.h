// SPDX-License-Identifier: Apache-2.0
// SymbolTableBuilder: lays out the symbol table, the data table and the data section of a file.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

/// Mode ID of a symbol entry that is no module (a data block in a file without a data table).
constexpr uint32_t NoModuleModeId = 0xFFFFFFFF;

/// One module instance: a symbol table entry.
struct ModuleEntry
{
    std::string name;                 ///< module name; its hash is stored from 6.0.0 on
    std::optional<uint64_t> nameHash; ///< default: the name hash of name
    FileVersion moduleVersion;        ///< the module's schema version
    uint32_t modeId = 0;              ///< bits 31-24 mode table index, 23-0 slot index
    std::vector<uint8_t> data;        ///< the entry's data (see EntryEncoder)
    uint32_t duplicateOf = 0;         ///< ID of an entry with equal data; 0: its own ID
};

/// Deliberate faults in the tables, keyed by the identifiers AddModule and AddData returned.
/// Every field left at its default writes sound tables.
struct TableDamage
{
    uint32_t symbolTrailingBytes = 0;        ///< zero bytes appended to the symbol section
    uint32_t dataTableTrailingBytes = 0;     ///< zero bytes appended to the data table section
    std::map<uint32_t, uint32_t> storedIds;  ///< symbol entry -> ID field (below 6.0.0)
    std::map<uint32_t, uint32_t> sizes;      ///< symbol entry -> Size field
    std::map<uint32_t, uint32_t> duplicates; ///< symbol entry -> DuplicateID field (above 3.0.1)
};

/// Collects symbol entries (modules) and data entries (blocks that module data points at) and
/// lays them out for a file version. Identifiers are what readers put in pointer fields:
/// - below 6.0.0 each entry stores its ID, 1 to count;
/// - from 6.0.0 the ID is the entry's position from 0, and position 0 can never be found, so the
///   builder puts a placeholder entry there and real entries start at 1.
/// Files below 4.0.0 have no data table: data entries then become symbol entries with Mode ID
/// NoModuleModeId, and modules and data share one sequence of identifiers in the order they were
/// added; pointers lead to those symbol entries. Either way an identifier is final when returned.
/// Each block of data is written once into the data section; an entry that duplicates another
/// points at the first one's block, and from 3.0.1 on both carry its identifier as DuplicateID,
/// which puts them in one duplicate group. Padded files (alignment 8) step 72 bytes an entry while
/// a reader counts 76: the symbol section ends in 4 zero bytes per entry so that its size is the
/// count times 76.
class SymbolTableBuilder
{
public:
    explicit SymbolTableBuilder(FileVersion version);

    /// Adds a module entry; returns the identifier it will have in the symbol table.
    uint32_t AddModule(ModuleEntry entry);

    /// Adds a data block; returns the identifier a pointer field must hold to reach it.
    /// duplicateOf names an earlier data entry with the same bytes: both then share one data
    /// block and one duplicate group.
    uint32_t AddData(std::vector<uint8_t> bytes, uint32_t duplicateOf = 0);

    SymbolTableBuilder& SetDamage(TableDamage damage);

    /// The symbol, data table and data sections.
    struct Sections
    {
        std::vector<uint8_t> symbol;
        std::vector<uint8_t> dataTable; ///< empty below 4.0.0
        std::vector<uint8_t> data;
    };
    Sections Build() const;

    /// Adds the built sections to writer (symbol, data, and data table when there is one).
    void AddTo(TuningFileWriter& writer) const;

    FileVersion Version() const { return m_version; }

    /// Bytes of one symbol entry as the reader counts them for this version.
    static uint32_t SymbolEntrySize(FileVersion version);
    /// Bytes of one data table entry (0 below 4.0.0).
    static uint32_t DataEntrySize(FileVersion version);

private:
    FileVersion m_version;
    struct Entry
    {
        ModuleEntry module; ///< modeId NoModuleModeId for a data block kept in the symbol table
        bool isModule;
    };
    std::vector<Entry> m_symbolEntries;
    std::vector<Entry> m_dataEntries; ///< empty below 4.0.0
    TableDamage m_damage;
};

} // namespace TuningWriter
