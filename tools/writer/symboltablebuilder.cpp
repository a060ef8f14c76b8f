// SPDX-License-Identifier: Apache-2.0
// SymbolTableBuilder: symbol table, data table and data section of every file version.
#include "tools/writer/symboltablebuilder.h"

#include <utility>

#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"

namespace TuningWriter {

namespace {

constexpr size_t SymbolNameWidth = 32;
// Files before 3.0.1 at alignment 1 carry 8 unused bytes behind the version.
constexpr size_t OldFormatGap = 8;
// What a padded file's reader counts beyond the 72 bytes each entry takes.
constexpr size_t PaddedEntryCountedExtra = 4;

bool Positional(FileVersion version)
{
    return AtLeast(version, 6, 0, 0);
}

bool HasDataTable(FileVersion version)
{
    return AtLeast(version, 4, 0, 0);
}

// DuplicateID is stored above 3.0.1 only.
bool HasDuplicateId(FileVersion version)
{
    return AtLeast(version, 3, 0, 2);
}

uint64_t RawVersion(FileVersion version)
{
    return static_cast<uint64_t>(version.major) | (static_cast<uint64_t>(version.minor) << 16) |
           (static_cast<uint64_t>(version.patch) << 32);
}

// Where one entry's data lies in the data section.
struct Placement
{
    uint32_t offset = 0;
    uint32_t size = 0;
    uint32_t duplicateId = 0;
};

template <typename Entry> uint32_t RootOf(std::vector<Entry> const& entries, uint32_t id)
{
    // Chains of duplicates end at the entry that holds the data; a chain that loops or leaves
    // the table ends where it went wrong.
    for (size_t steps = 0; steps <= entries.size(); ++steps) {
        if (id == 0 || id > entries.size())
            break;
        uint32_t const next = entries[id - 1].module.duplicateOf;
        if (next == 0 || next == id)
            return id;
        id = next;
    }
    return id;
}

// Lays out the data of one table's entries into data; identifiers are index + 1.
template <typename Entry>
std::vector<Placement> PlaceData(std::vector<Entry> const& entries, ByteSink& data)
{
    std::vector<Placement> placements(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].module.duplicateOf != 0)
            continue;
        placements[i].offset = static_cast<uint32_t>(data.Size());
        placements[i].size = static_cast<uint32_t>(entries[i].module.data.size());
        placements[i].duplicateId = static_cast<uint32_t>(i + 1);
        data.PutBytes(entries[i].module.data);
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].module.duplicateOf == 0)
            continue;
        uint32_t const root = RootOf(entries, entries[i].module.duplicateOf);
        if (root == 0 || root > entries.size()) {
            placements[i].duplicateId = root;
            continue;
        }
        placements[i] = placements[root - 1];
        placements[i].duplicateId = root;
    }
    return placements;
}

} // namespace

SymbolTableBuilder::SymbolTableBuilder(FileVersion version) : m_version(version)
{
}

uint32_t SymbolTableBuilder::AddModule(ModuleEntry entry)
{
    m_symbolEntries.push_back({std::move(entry), true});
    return static_cast<uint32_t>(m_symbolEntries.size());
}

uint32_t SymbolTableBuilder::AddData(std::vector<uint8_t> bytes, uint32_t duplicateOf)
{
    ModuleEntry entry;
    entry.modeId = NoModuleModeId;
    entry.data = std::move(bytes);
    entry.duplicateOf = duplicateOf;
    if (!HasDataTable(m_version)) {
        m_symbolEntries.push_back({std::move(entry), false});
        return static_cast<uint32_t>(m_symbolEntries.size());
    }
    m_dataEntries.push_back({std::move(entry), false});
    return static_cast<uint32_t>(m_dataEntries.size());
}

SymbolTableBuilder& SymbolTableBuilder::SetDamage(TableDamage damage)
{
    m_damage = std::move(damage);
    return *this;
}

uint32_t SymbolTableBuilder::SymbolEntrySize(FileVersion version)
{
    if (AtLeast(version, 6, 0, 0))
        return 32;
    if (HasDuplicateId(version))
        return 60;
    if (AlignmentFor(version) == 1)
        return AtLeast(version, 3, 0, 1) ? 56 : 64;
    return 76;
}

uint32_t SymbolTableBuilder::DataEntrySize(FileVersion version)
{
    if (!HasDataTable(version))
        return 0;
    return Positional(version) ? 12 : 16;
}

SymbolTableBuilder::Sections SymbolTableBuilder::Build() const
{
    unsigned char const alignment = AlignmentFor(m_version);
    bool const positional = Positional(m_version);
    bool const duplicateIds = HasDuplicateId(m_version);

    ByteSink data(alignment);
    std::vector<Placement> const symbolPlaces = PlaceData(m_symbolEntries, data);
    std::vector<Placement> const dataPlaces = PlaceData(m_dataEntries, data);

    // | ID u32 + Name char[32] (below 6.0.0) | NameHash u64 (from 6.0.0) | Version u64 |
    // | 8 unused bytes (alignment 1, below 3.0.1) | ModeID | Offset | Size | DuplicateID (>3.0.1) |
    ByteSink symbol(alignment);
    auto putSymbol = [&](uint32_t id, ModuleEntry const* module, Placement const& place) {
        auto damaged = [&](std::map<uint32_t, uint32_t> const& faults, uint32_t value) {
            auto const found = faults.find(id);
            return module != nullptr && found != faults.end() ? found->second : value;
        };
        if (!positional) {
            symbol.PutU32(damaged(m_damage.storedIds, id));
            symbol.PutFixedString(module != nullptr ? module->name : std::string(),
                                  SymbolNameWidth);
        } else {
            uint64_t hash = 0;
            if (module != nullptr)
                hash = module->nameHash.value_or(ParserCRC64::HashName(module->name.c_str()));
            symbol.PutU64(hash);
        }
        symbol.PutU64(module != nullptr ? RawVersion(module->moduleVersion) : 0);
        if (alignment == 1 && !AtLeast(m_version, 3, 0, 1)) {
            uint8_t const gap[OldFormatGap] = {};
            symbol.PutUnaligned(gap, sizeof(gap));
        }
        symbol.PutU32(module != nullptr ? module->modeId : NoModuleModeId);
        symbol.PutU32(place.offset);
        symbol.PutU32(damaged(m_damage.sizes, place.size));
        if (duplicateIds)
            symbol.PutU32(damaged(m_damage.duplicates, place.duplicateId));
    };

    // Position 0 of a positional table can never be found: a placeholder takes it.
    if (positional)
        putSymbol(0, nullptr, Placement{});
    for (size_t i = 0; i < m_symbolEntries.size(); ++i)
        putSymbol(static_cast<uint32_t>(i + 1), &m_symbolEntries[i].module, symbolPlaces[i]);
    if (alignment != 1) {
        size_t const rows = m_symbolEntries.size();
        symbol.PutUnaligned(std::vector<uint8_t>(rows * PaddedEntryCountedExtra, 0).data(),
                            rows * PaddedEntryCountedExtra);
    }
    symbol.PutUnaligned(std::vector<uint8_t>(m_damage.symbolTrailingBytes, 0).data(),
                        m_damage.symbolTrailingBytes);

    // | ID (below 6.0.0) | Offset | Size | DuplicateID |
    ByteSink dataTable(alignment);
    if (HasDataTable(m_version)) {
        if (positional) {
            dataTable.PutU32(0);
            dataTable.PutU32(0);
            dataTable.PutU32(0);
        }
        for (size_t i = 0; i < m_dataEntries.size(); ++i) {
            if (!positional)
                dataTable.PutU32(static_cast<uint32_t>(i + 1));
            dataTable.PutU32(dataPlaces[i].offset);
            dataTable.PutU32(dataPlaces[i].size);
            dataTable.PutU32(dataPlaces[i].duplicateId);
        }
        dataTable.PutUnaligned(std::vector<uint8_t>(m_damage.dataTableTrailingBytes, 0).data(),
                               m_damage.dataTableTrailingBytes);
    }

    return {symbol.Take(), dataTable.Take(), data.Take()};
}

void SymbolTableBuilder::AddTo(TuningFileWriter& writer) const
{
    Sections sections = Build();
    writer.AddSection(SectionType::Symbol, std::move(sections.symbol));
    if (HasDataTable(m_version))
        writer.AddSection(SectionType::DataTable, std::move(sections.dataTable));
    writer.AddSection(SectionType::Data, std::move(sections.data));
}

} // namespace TuningWriter
