// SPDX-License-Identifier: Apache-2.0
// ReadTuningDocument: every part of a tuning file, read by the schema the file carries.
#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parsercrc.h"
#include "tools/paramctl/document/compiledschemas.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/document/valuecodec.h"
#include "tools/paramctl/printable.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"

namespace ParamCtl {

using TuningWriter::AtLeast;
using TuningWriter::FileVersion;

namespace {

constexpr size_t HeaderTagWidth = 28;
constexpr size_t CreatedByWidth = 48;
constexpr size_t BinaryTagWidth = 64;
constexpr size_t SymbolNameWidth = 32;
constexpr uint32_t NoModule = 0xFFFFFFFF;
constexpr unsigned int ModeTableShift = 24;
// Value elements a file may decode into, beyond one per byte of it: a sound file has fewer
// elements than bytes, and pointers that name one block many times cannot make a small hostile
// file decode into a huge document.
constexpr size_t ElementBudgetBase = 1u << 20;

char const* const SectionNames[] = {"symbol", "data", "mode", "dataTable", "definition"};

std::string VersionString(FileVersion version)
{
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.patch);
}

// Text of a fixed or counted field: the bytes up to the first NUL.
std::string TextOf(unsigned char const* data, size_t size)
{
    size_t used = 0;
    while (used < size && data[used] != 0)
        ++used;
    return std::string(reinterpret_cast<char const*>(data), used);
}

// A fixed text field at alignment 1.
std::string FixedText(ParameterByteReader& reader, size_t width)
{
    unsigned char const* data = reader.Peek(static_cast<unsigned int>(width));
    if (data == nullptr || !reader.SkipUnaligned(static_cast<unsigned int>(width)))
        return "";
    return TextOf(data, width);
}

// One entry of the symbol or data table, with where its data lies.
struct TableEntry
{
    uint32_t id = 0;
    std::string name; ///< below 6.0.0 from the entry's name field
    uint64_t nameHash = 0;
    uint64_t version = 0;
    uint32_t modeId = NoModule;
    uint32_t offset = 0;
    uint32_t size = 0;
    uint32_t duplicateId = 0;
    bool isSymbol = true;
    EntryBytes bytes;
};

// One mode entry as stored.
struct ModeRecord
{
    uint32_t modeId = 0;
    uint16_t mode = 0;
    uint16_t subMode = 0;
    uint32_t pipeline = 0;
    uint32_t parentId = 0;
    uint32_t linkId = TuningWriter::NoModeLink;
    uint32_t flags = 0;
};

struct Section
{
    uint32_t type = 0;
    uint32_t offset = 0;
    uint32_t size = 0;
    bool usable = false; ///< lies within the file
};

class DocumentReader
{
public:
    DocumentReader(std::vector<unsigned char> const& bytes, Json& document)
        : m_bytes(bytes), m_length(static_cast<unsigned int>(bytes.size())), m_document(document)
    {
    }

    bool Read(std::string& error)
    {
        m_document = Json::object();
        m_document["format"] = DocumentFormat;
        m_document["formatVersion"] = DocumentFormatVersion;
        if (!ReadHeader(error))
            return false;
        ReadSections();
        ReadDefinitions();
        ReadModeTables();
        ReadTables();
        ReadValues();
        m_document["problems"] = m_problems;
        return true;
    }

    /// The definition records alone, with the header and sections they need.
    bool ReadDefinitionRecords(Json& definitions, std::string& error)
    {
        m_document = Json::object();
        if (!ReadHeader(error))
            return false;
        ReadSections();
        ReadDefinitions();
        definitions = m_document.value("definitions", Json::array());
        return true;
    }

private:
    void Problem(std::string text) { m_problems.push_back(std::move(text)); }

    /// A reader of the whole file at its alignment, for cutting out sections.
    ParameterByteReader File() const
    {
        return ParameterByteReader(m_bytes.data(), m_length, m_alignment, nullptr);
    }

    bool ReadHeader(std::string& error)
    {
        ParameterByteReader reader(m_bytes.data(), m_length, 1, nullptr);
        Json header = Json::object();
        header["tag"] = Printable(FixedText(reader, HeaderTagWidth));
        uint32_t fileSize = 0;
        uint32_t patch = 0;
        bool const versionRead = reader.ReadU32(fileSize) && reader.ReadU16(m_version.major) &&
                                 reader.ReadU16(m_version.minor) && reader.ReadU32(patch);
        m_version.patch = patch;
        if (!versionRead) {
            error = "too short for a header (" + std::to_string(m_length) + " bytes)";
            return false;
        }
        if (AtLeast(m_version, 7, 0, 1)) {
            error = "version " + VersionString(m_version) +
                    " is above 7.0.0, the latest whose layout is known";
            return false;
        }
        header["version"] = VersionString(m_version);
        header["fileSize"] = fileSize;
        if (AtLeast(m_version, 1, 0, 2)) {
            header["createdBy"] = Printable(FixedText(reader, CreatedByWidth));
            header["binaryTag"] = Printable(FixedText(reader, BinaryTagWidth));
        }
        uint64_t flags = 0;
        if (AtLeast(m_version, 3) && reader.ReadU64(flags))
            header["flags"] = flags;
        if (!reader.ReadU32(m_sectionOffset) || !reader.ReadU32(m_sectionCount)) {
            error = "too short for a header (" + std::to_string(m_length) + " bytes)";
            return false;
        }
        header["sectionOffset"] = m_sectionOffset;
        header["sectionCount"] = m_sectionCount;
        m_alignment = TuningWriter::AlignmentFor(m_version);
        if (fileSize != m_length)
            Problem("header FileSize " + std::to_string(fileSize) + " differs from the length " +
                    std::to_string(m_length));

        // The checksum covers everything ahead of it; its place follows from the length.
        bool const crc64 = TuningWriter::UsesCrc64(m_version);
        unsigned int const width = crc64 ? 8 : 4;
        Json checksum = {{"kind", crc64 ? "crc64" : "crc32"}, {"valid", false}};
        if (m_length >= width) {
            m_payloadEnd = m_length - width;
            uint64_t stored = 0;
            for (unsigned int i = 0; i < width; ++i)
                stored |= static_cast<uint64_t>(m_bytes[m_payloadEnd + i]) << (8 * i);
            uint64_t const computed =
                crc64 ? ParserCRC64::GetCRC(m_bytes.data(), m_payloadEnd, true, 0)
                      : ParserCRC32::GetCRC(m_bytes.data(), m_payloadEnd, 0);
            checksum["valid"] = stored == computed;
            if (stored != computed)
                Problem("the checksum does not match (pack writes a correct one)");
        }
        m_document["file"] = {{"length", m_length}, {"checksum", std::move(checksum)}};
        m_document["header"] = std::move(header);
        return true;
    }

    void ReadSections()
    {
        Json sections = Json::array();
        ParameterByteReader reader(m_bytes.data(), m_payloadEnd, m_alignment, nullptr,
                                   m_sectionOffset);
        size_t furthest = reader.Position();
        for (uint32_t i = 0; i < m_sectionCount; ++i) {
            Section section;
            if (!reader.ReadU32(section.type) || !reader.ReadU32(section.offset) ||
                !reader.ReadU32(section.size)) {
                Problem("the section table ends after " + std::to_string(i) + " of " +
                        std::to_string(m_sectionCount) + " records");
                break;
            }
            section.usable =
                ParameterByteReader::InBounds(section.offset, section.size, m_payloadEnd);
            if (!section.usable)
                Problem("section " + std::to_string(i) + " lies outside the file");
            else
                furthest = std::max<size_t>(furthest, section.offset + section.size);
            Json record = Json::object();
            if (section.type < sizeof(SectionNames) / sizeof(SectionNames[0]))
                record["type"] = SectionNames[section.type];
            else
                record["type"] = section.type;
            record["offset"] = section.offset;
            record["size"] = section.size;
            sections.push_back(std::move(record));
            m_sections.push_back(section);
            furthest = std::max<size_t>(furthest, reader.Position());
        }
        m_document["sections"] = std::move(sections);
        // Bytes between the last section and the checksum: pack writes as many zeros.
        m_document["padding"] = furthest < m_payloadEnd ? m_payloadEnd - furthest : 0;
    }

    // The last section of a type, as the loader keeps it; null if none lies within the file.
    Section const* Last(uint32_t type) const
    {
        Section const* found = nullptr;
        for (Section const& section : m_sections) {
            if (section.type == type && section.usable)
                found = &section;
        }
        return found;
    }

    // ---- Definition table -------------------------------------------------------------------

    std::string CountedText(ParameterByteReader& reader, uint32_t& length)
    {
        length = 0;
        if (!reader.ReadU32(length))
            return "";
        unsigned char const* data = reader.Peek(length);
        if (data == nullptr || !reader.Skip(length)) {
            // The length read is no length of anything the file holds: not kept.
            Problem("a text of the definition table runs past its section");
            length = 0;
            return "";
        }
        return std::string(reinterpret_cast<char const*>(data), length);
    }

    // A stored name counts its NUL; a length other than that is kept so pack writes it again.
    std::string Name(ParameterByteReader& reader, Json& record, char const* lengthKey)
    {
        uint32_t length = 0;
        std::string const bytes = CountedText(reader, length);
        std::string const name =
            TextOf(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
        if (length != name.size() + 1 && length != 0 && lengthKey != nullptr)
            record[lengthKey] = length;
        return name;
    }

    void Hash(Json& record, uint64_t stored, std::string const& name)
    {
        if (stored != ParserCRC64::HashName(name.c_str()))
            record["nameHash"] = Hex64(stored);
    }

    uint64_t RawU64(ParameterByteReader& reader)
    {
        uint32_t low = 0;
        uint32_t high = 0;
        unsigned char const* data = reader.Peek(8);
        if (data == nullptr || !reader.SkipUnaligned(8))
            return 0;
        for (unsigned int i = 0; i < 4; ++i) {
            low |= static_cast<uint32_t>(data[i]) << (8 * i);
            high |= static_cast<uint32_t>(data[4 + i]) << (8 * i);
        }
        return low | (static_cast<uint64_t>(high) << 32);
    }

    uint32_t RawU32(ParameterByteReader& reader)
    {
        unsigned char const* data = reader.Peek(4);
        if (data == nullptr || !reader.SkipUnaligned(4))
            return 0;
        return data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<uint32_t>(data[3]) << 24);
    }

    Json Module(ParameterByteReader& reader)
    {
        Json record = {{"record", "module"}};
        uint32_t structureId = 0;
        uint64_t hash = 0;
        static_cast<void>(reader.ReadU32(structureId));
        static_cast<void>(reader.ReadU64(hash));
        record["structure"] = structureId;
        std::string const name = Name(reader, record, "nameLength");
        record["name"] = Printable(name);
        Hash(record, hash, name);
        uint32_t length = 0;
        record["skipped"] = Printable(CountedText(reader, length));
        // The first record of a hash is the one a reader keeps.
        m_modules.emplace(hash, std::make_pair(name, structureId));
        return record;
    }

    Json Structure(ParameterByteReader& reader)
    {
        Json record = {{"record", "structure"}};
        TuningWriter::DefinitionStructure structure;
        static_cast<void>(reader.ReadU32(structure.id));
        record["id"] = structure.id;
        structure.name = Name(reader, record, "nameLength");
        uint64_t hash = 0;
        uint32_t count = 0;
        static_cast<void>(reader.ReadU64(hash));
        static_cast<void>(reader.ReadU32(count));
        record["name"] = Printable(structure.name);
        Hash(record, hash, structure.name);
        Json members = Json::array();
        for (uint32_t i = 0; i < count && !reader.Failed(); ++i) {
            TuningWriter::DefinitionElement element;
            uint8_t type = 0;
            static_cast<void>(reader.ReadU8(type));
            element.type = static_cast<TuningWriter::ElementType>(type);
            static_cast<void>(reader.ReadU32(element.id));
            Json member = Json::object();
            element.name = Name(reader, member, "nameLength");
            if (member.contains("nameLength"))
                element.nameLengthOverride = member["nameLength"].get<uint32_t>();
            static_cast<void>(reader.ReadU16(element.flags));
            static_cast<void>(reader.ReadU32(element.minCount));
            static_cast<void>(reader.ReadU32(element.maxCount));
            uint32_t length = 0;
            element.skipped = CountedText(reader, length);
            Json described = Json::object();
            described["name"] = Printable(element.name);
            if (char const* typeName = TuningWriter::ElementTypeName(element.type))
                described["type"] = typeName;
            else if (element.type == TuningWriter::ElementType::Structure)
                described["type"] = "Structure";
            else
                described["type"] = type;
            if (element.type == TuningWriter::ElementType::Structure || element.id != 0)
                described["structure"] = element.id;
            described["min"] = element.minCount;
            described["max"] = element.maxCount;
            if (element.flags != 0)
                described["flags"] = element.flags;
            if (!element.skipped.empty())
                described["skipped"] = Printable(element.skipped);
            if (member.contains("nameLength"))
                described["nameLength"] = member["nameLength"];
            members.push_back(std::move(described));
            structure.elements.push_back(std::move(element));
        }
        record["members"] = std::move(members);
        if (reader.Failed())
            Problem("structure " + Printable(structure.name) + " runs past its section");
        m_structures.push_back(std::move(structure));
        return record;
    }

    Json Opaque(uint8_t kind, ParameterByteReader& reader)
    {
        // Kinds 0 and 1 hold one text between fixed bytes, kind 2 two texts; the fixed bytes are
        // written as zeros.
        unsigned int const lead = kind == 0 ? 1 : kind == 1 ? 3 : 2;
        Json record = {{"record", "opaque"}, {"kind", kind}};
        static_cast<void>(reader.SkipUnaligned(lead));
        uint32_t length = 0;
        record["text"] = Printable(CountedText(reader, length));
        if (kind == 2)
            record["secondText"] = Printable(CountedText(reader, length));
        else
            static_cast<void>(reader.SkipUnaligned(1));
        return record;
    }

    Json Enumeration(ParameterByteReader& reader)
    {
        Json record = {{"record", "enum"}};
        record["id"] = RawU32(reader);
        std::string const name = Name(reader, record, nullptr);
        record["name"] = Printable(name);
        Hash(record, RawU64(reader), name);
        uint32_t count = 0;
        static_cast<void>(reader.ReadU32(count));
        Json values = Json::array();
        for (uint32_t i = 0; i < count && !reader.Failed(); ++i) {
            Json value = Json::object();
            value["value"] = RawU32(reader);
            unsigned char const* flag = reader.Peek(1);
            value["flag"] = flag != nullptr && *flag != 0;
            static_cast<void>(reader.SkipUnaligned(1));
            value["name"] = Printable(Name(reader, value, nullptr));
            uint32_t length = 0;
            value["text"] = Printable(CountedText(reader, length));
            values.push_back(std::move(value));
        }
        record["values"] = std::move(values);
        return record;
    }

    void ReadDefinitions()
    {
        Section const* section = Last(static_cast<uint32_t>(TuningWriter::SectionType::Definition));
        if (section == nullptr || section->size == 0)
            return;
        m_hasDefinitions = true;
        Json records = Json::array();
        ParameterByteReader reader = File().Section(section->offset, section->size);
        while (reader.Remaining() > 0 && !reader.Failed()) {
            uint8_t kind = 0;
            if (!reader.ReadU8(kind))
                break;
            if (kind <= 2)
                records.push_back(Opaque(kind, reader));
            else if (kind == 4)
                records.push_back(Module(reader));
            else if (kind == 5)
                records.push_back(Structure(reader));
            else if (kind == 6)
                records.push_back(Enumeration(reader));
            else {
                Problem("the definition table stops at a record of kind " + std::to_string(kind));
                records.push_back({{"record", "raw"}, {"kind", kind}});
                break;
            }
        }
        if (reader.Failed())
            Problem("the definition table runs past its section");
        m_document["definitions"] = std::move(records);
    }

    // ---- Mode tables --------------------------------------------------------------------------

    void ReadModeTables()
    {
        Json tables = Json::array();
        size_t const nameField = TuningWriter::ModeSectionBuilder::NameFieldSize(m_version);
        size_t const entrySize = TuningWriter::ModeSectionBuilder::EntrySize(m_version);
        for (Section const& section : m_sections) {
            if (section.type != static_cast<uint32_t>(TuningWriter::SectionType::Mode))
                continue;
            unsigned int const index = static_cast<unsigned int>(m_modes.size());
            m_modes.emplace_back();
            Json table = Json::object();
            // A section outside the file is read as an empty one.
            ParameterByteReader reader = File().Section(section.usable ? section.offset : 0,
                                                        section.usable ? section.size : 0);
            if (nameField != 0)
                table["name"] = Printable(FixedText(reader, nameField));
            if (section.usable &&
                (section.size < nameField || (section.size - nameField) % entrySize != 0))
                Problem("mode table " + std::to_string(index) +
                        " has a size that is no whole "
                        "number of entries");
            Json entries = Json::array();
            while (section.usable && reader.Remaining() >= entrySize) {
                ModeRecord record;
                uint64_t mode = 0;
                static_cast<void>(reader.ReadU32(record.modeId) && reader.ReadU64(mode) &&
                                  reader.ReadU32(record.parentId));
                if (AtLeast(m_version, 2))
                    static_cast<void>(reader.ReadU32(record.linkId));
                if (AtLeast(m_version, 5))
                    static_cast<void>(reader.ReadU32(record.flags));
                record.mode = static_cast<uint16_t>(mode);
                record.subMode = static_cast<uint16_t>(mode >> 16);
                record.pipeline = static_cast<uint32_t>(mode >> 32);
                Json entry = {{"modeId", record.modeId},
                              {"parentId", record.parentId},
                              {"mode", record.mode},
                              {"subMode", record.subMode},
                              {"pipeline", record.pipeline}};
                if (AtLeast(m_version, 2))
                    entry["linkId"] = record.linkId;
                if (AtLeast(m_version, 5))
                    entry["flags"] = record.flags;
                entries.push_back(std::move(entry));
                m_modes.back().push_back(record);
            }
            table["entries"] = std::move(entries);
            table["tree"] = Tree(index);
            tables.push_back(std::move(table));
        }
        m_document["modeTables"] = std::move(tables);
    }

    ModeRecord const* Slot(unsigned int table, uint32_t modeId) const
    {
        if (table >= m_modes.size() || (modeId >> ModeTableShift) != table)
            return nullptr;
        for (ModeRecord const& record : m_modes[table]) {
            if (record.modeId == modeId)
                return &record;
        }
        return nullptr;
    }

    static std::string Step(ModeRecord const& record)
    {
        return std::to_string(record.mode) + "." + std::to_string(record.subMode);
    }

    // "Default|Sensor.0|Usecase.Preview" for "0.0|1.0|2.0", by the library's names.
    static std::string Named(std::string const& path)
    {
        char named[1024] = {};
        ParameterSetManager::GetKnobbyModesString(path.c_str(), named, sizeof(named));
        return named;
    }

    // The numeric path of a slot from the root down. An entry with its parent's mode and
    // sub-mode is a pipeline variant of the parent's node and adds no step.
    std::string PathOf(unsigned int table, uint32_t modeId) const
    {
        std::vector<ModeRecord const*> chain;
        ModeRecord const* record = Slot(table, modeId);
        for (size_t steps = 0; record != nullptr && steps <= m_modes[table].size(); ++steps) {
            chain.push_back(record);
            if (record->parentId == record->modeId)
                break;
            record = Slot(table, record->parentId);
        }
        std::string path;
        for (size_t i = chain.size(); i-- > 0;) {
            if (i + 1 < chain.size() && chain[i]->mode == chain[i + 1]->mode &&
                chain[i]->subMode == chain[i + 1]->subMode)
                continue;
            path += (path.empty() ? "" : "|") + Step(*chain[i]);
        }
        return path;
    }

    // The mode tree for reading: nodes in file order under their parents. Entries whose parent
    // comes later, or is missing, stand at the top level.
    Json Tree(unsigned int table) const
    {
        std::vector<ModeRecord> const& records = m_modes[table];
        std::map<uint32_t, Json> nodes;
        std::vector<uint32_t> order;
        std::set<uint32_t> placed;
        for (ModeRecord const& record : records) {
            if (nodes.count(record.modeId) != 0)
                continue;
            std::string const path = PathOf(table, record.modeId);
            Json node = {{"modeId", record.modeId},
                         {"step", Named(Step(record))},
                         {"path", path},
                         {"mode", Named(path)},
                         {"pipeline", record.pipeline}};
            if ((record.flags & TuningWriter::ModeFlagResident) != 0)
                node["resident"] = true;
            if (record.linkId != TuningWriter::NoModeLink)
                node["link"] = record.linkId;
            node["children"] = Json::array();
            nodes[record.modeId] = std::move(node);
            order.push_back(record.modeId);
        }
        // Children attach to parents from the last entry up, so each subtree is complete when
        // it moves into its parent.
        std::map<uint32_t, uint32_t> parents;
        std::map<uint32_t, size_t> position;
        for (size_t i = 0; i < records.size(); ++i) {
            position.emplace(records[i].modeId, i);
            parents.emplace(records[i].modeId, records[i].parentId);
        }
        for (size_t i = order.size(); i-- > 0;) {
            uint32_t const id = order[i];
            uint32_t const parent = parents[id];
            auto const parentAt = position.find(parent);
            if (parent == id || parentAt == position.end() || parentAt->second >= position[id])
                continue;
            Json& children = nodes[parent]["children"];
            children.insert(children.begin(), std::move(nodes[id]));
            placed.insert(id);
        }
        Json roots = Json::array();
        for (uint32_t id : order) {
            if (placed.count(id) == 0)
                roots.push_back(std::move(nodes[id]));
        }
        return roots;
    }

    // ---- Symbol and data tables -----------------------------------------------------------

    bool Positional() const { return AtLeast(m_version, 6); }

    void ReadTable(Section const& section, bool isSymbol, std::vector<TableEntry>& entries)
    {
        uint32_t const entrySize =
            isSymbol ? TuningWriter::SymbolTableBuilder::SymbolEntrySize(m_version)
                     : TuningWriter::SymbolTableBuilder::DataEntrySize(m_version);
        if (entrySize == 0)
            return;
        uint32_t const count = section.size / entrySize;
        if (section.size % entrySize != 0)
            Problem(std::string(isSymbol ? "symbol" : "data") + " table size " +
                    std::to_string(section.size) + " is no multiple of " +
                    std::to_string(entrySize));
        ParameterByteReader reader = File().Section(section.offset, section.size);
        for (uint32_t i = 0; i < count && !reader.Failed(); ++i) {
            TableEntry entry;
            entry.isSymbol = isSymbol;
            entry.id = Positional() ? i : 0;
            if (!Positional())
                static_cast<void>(reader.ReadU32(entry.id));
            if (isSymbol) {
                if (Positional()) {
                    static_cast<void>(reader.ReadU64(entry.nameHash));
                } else {
                    unsigned char const* name = reader.Peek(SymbolNameWidth);
                    if (name != nullptr)
                        entry.name = TextOf(name, SymbolNameWidth);
                    static_cast<void>(reader.Skip(SymbolNameWidth));
                    entry.nameHash = ParserCRC64::HashName(entry.name.c_str());
                }
                static_cast<void>(reader.ReadU64(entry.version));
                if (m_alignment == 1 && !AtLeast(m_version, 3, 0, 1))
                    static_cast<void>(reader.SkipUnaligned(8));
                static_cast<void>(reader.ReadU32(entry.modeId));
            }
            static_cast<void>(reader.ReadU32(entry.offset));
            static_cast<void>(reader.ReadU32(entry.size));
            entry.duplicateId = entry.id;
            if (AtLeast(m_version, 3, 0, 2))
                static_cast<void>(reader.ReadU32(entry.duplicateId));
            if (m_data != nullptr &&
                ParameterByteReader::InBounds(entry.offset, entry.size, m_data->size))
                entry.bytes = {m_bytes.data() + m_data->offset + entry.offset, entry.size};
            else if (entry.size != 0)
                Problem("entry " + std::to_string(entry.id) + " lies outside the data section");
            if (!reader.Failed())
                entries.push_back(std::move(entry));
        }
    }

    void ReadTables()
    {
        m_data = Last(static_cast<uint32_t>(TuningWriter::SectionType::Data));
        if (Section const* symbol = Last(static_cast<uint32_t>(TuningWriter::SectionType::Symbol)))
            ReadTable(*symbol, true, m_symbols);
        Section const* dataTable =
            Last(static_cast<uint32_t>(TuningWriter::SectionType::DataTable));
        if (dataTable != nullptr && AtLeast(m_version, 4))
            ReadTable(*dataTable, false, m_dataEntries);
        m_targets = AtLeast(m_version, 4) ? &m_dataEntries : &m_symbols;
        // Identifiers must run in table order for pack to give every entry its place again.
        auto sequential = [this](std::vector<TableEntry> const& entries) {
            for (size_t i = 0; i < entries.size(); ++i) {
                if (entries[i].id != (Positional() ? i : i + 1))
                    return false;
            }
            return true;
        };
        if (!sequential(m_symbols) || !sequential(m_dataEntries))
            Problem("entry identifiers do not run in table order; pack numbers them in order");
    }

    TableEntry const* Target(uint32_t id) const
    {
        std::vector<TableEntry> const& entries = *m_targets;
        // Identifiers normally equal the position (plus one below 6.0.0); search otherwise.
        size_t const guess = Positional() ? id : id - 1;
        if (id != 0 && guess < entries.size() && entries[guess].id == id)
            return &entries[guess];
        for (TableEntry const& entry : entries) {
            if (entry.id == id && (id != 0 || !Positional()))
                return &entry;
        }
        return nullptr;
    }

    // ---- Values -------------------------------------------------------------------------------

    // The entry an equal block was first placed for: pack shares the block again when the data
    // still match.
    uint32_t SharedWith(TableEntry const& entry,
                        std::map<std::pair<uint32_t, uint32_t>, uint32_t>& firsts) const
    {
        if (entry.size == 0 || entry.bytes.data == nullptr)
            return 0;
        auto const inserted = firsts.emplace(std::make_pair(entry.offset, entry.size), entry.id);
        return inserted.second ? 0 : inserted.first->second;
    }

    void ReadValues()
    {
        CompiledSchemas compiled;
        std::set<std::string> managers;
        struct Resolved
        {
            std::string name;
            uint32_t structureId = 0;
            char const* source = "none";
        };
        std::vector<Resolved> resolved(m_symbols.size());
        for (size_t i = 0; i < m_symbols.size(); ++i) {
            TableEntry const& entry = m_symbols[i];
            if (entry.modeId == NoModule)
                continue;
            Resolved& module = resolved[i];
            module.name = entry.name;
            auto const known = m_modules.find(entry.nameHash);
            if (m_hasDefinitions) {
                if (known != m_modules.end()) {
                    module.name = known->second.first;
                    module.structureId = known->second.second;
                    module.source = "file";
                }
                continue;
            }
            std::string manager;
            module.structureId = compiled.Find(entry.name, entry.nameHash, manager);
            if (module.structureId != 0) {
                module.source = "compiled";
                managers.insert(manager);
            }
        }
        StructureSet const structures(m_hasDefinitions ? m_structures : compiled.Structures());
        ValueCodec const codec(m_version, structures);
        EntryLookup const lookup = [this](uint32_t id, EntryBytes& bytes) {
            TableEntry const* target = Target(id);
            if (target == nullptr || (target->bytes.data == nullptr && target->size != 0))
                return false;
            bytes = target->bytes;
            return true;
        };

        size_t budget = ElementBudgetBase + m_length;
        std::set<uint32_t> referenced;
        std::map<std::pair<uint32_t, uint32_t>, uint32_t> firsts;
        std::map<std::pair<uint32_t, uint32_t>, uint32_t> dataFirsts;
        Json symbols = Json::array();
        for (size_t i = 0; i < m_symbols.size(); ++i) {
            TableEntry const& entry = m_symbols[i];
            Json row = Json::object();
            row["id"] = entry.id;
            Resolved const& module = resolved[i];
            if (!module.name.empty())
                row["name"] = Printable(module.name);
            if (Positional())
                row["nameHash"] = Hex64(entry.nameHash);
            row["version"] = VersionString({static_cast<uint16_t>(entry.version),
                                            static_cast<uint16_t>(entry.version >> 16),
                                            static_cast<uint32_t>(entry.version >> 32)});
            row["modeId"] = entry.modeId;
            if (entry.modeId != NoModule) {
                unsigned int const table = entry.modeId >> ModeTableShift;
                row["table"] = table;
                // A file without mode tables has the one Default mode the loader makes.
                std::string const path = Slot(table, entry.modeId) != nullptr
                                             ? PathOf(table, entry.modeId)
                                             : (m_modes.empty() && entry.modeId == 0 ? "0.0" : "");
                row["modePath"] = path;
                row["mode"] = path.empty() ? "" : Named(path);
            }
            row["offset"] = entry.offset;
            row["size"] = entry.size;
            if (AtLeast(m_version, 3, 0, 2))
                row["duplicateId"] = entry.duplicateId;
            if (uint32_t const shared = SharedWith(entry, firsts))
                row["sharesDataWith"] = shared;
            Json values;
            std::vector<uint32_t> pointed;
            if (entry.modeId != NoModule) {
                row["schema"] = module.source;
                if (module.structureId != 0 && codec.Decode(module.structureId, entry.bytes, lookup,
                                                            budget, values, pointed)) {
                    row["values"] = std::move(values);
                    referenced.insert(pointed.begin(), pointed.end());
                } else if (module.structureId != 0) {
                    Problem("instance " + std::to_string(entry.id) + " (" + Printable(module.name) +
                            ") does not match its schema; kept as hex");
                }
            }
            symbols.push_back(std::move(row));
        }
        // Entries no value tree reaches keep their bytes as hex; module entries whose values
        // could not be read likewise.
        auto keepBytes = [&referenced](Json& row, TableEntry const& entry, bool isTarget) {
            if (row.contains("values") || (isTarget && referenced.count(entry.id) != 0))
                return;
            row["hex"] = entry.bytes.data != nullptr ? HexBytes(entry.bytes.data, entry.size)
                                                     : std::string();
        };
        bool const symbolsAreTargets = m_targets == &m_symbols;
        for (size_t i = 0; i < m_symbols.size(); ++i)
            keepBytes(symbols[i], m_symbols[i], symbolsAreTargets);
        m_document["symbols"] = std::move(symbols);

        if (AtLeast(m_version, 4) &&
            Last(static_cast<uint32_t>(TuningWriter::SectionType::DataTable)) != nullptr) {
            Json data = Json::array();
            for (TableEntry const& entry : m_dataEntries) {
                Json row = {{"id", entry.id},
                            {"offset", entry.offset},
                            {"size", entry.size},
                            {"duplicateId", entry.duplicateId}};
                if (uint32_t const shared = SharedWith(entry, dataFirsts))
                    row["sharesDataWith"] = shared;
                keepBytes(row, entry, true);
                data.push_back(std::move(row));
            }
            m_document["dataTable"] = std::move(data);
        }
        Json schemas = {{"source", m_hasDefinitions   ? "file"
                                   : managers.empty() ? "none"
                                                      : "compiled"}};
        if (!m_hasDefinitions)
            schemas["managers"] = Json(std::vector<std::string>(managers.begin(), managers.end()));
        m_document["schemas"] = std::move(schemas);
    }

    std::vector<unsigned char> const& m_bytes;
    unsigned int m_length;
    Json& m_document;
    Json m_problems = Json::array();
    FileVersion m_version{0, 0, 0};
    unsigned char m_alignment = 1;
    unsigned int m_payloadEnd = 0;
    uint32_t m_sectionOffset = 0;
    uint32_t m_sectionCount = 0;
    std::vector<Section> m_sections;
    bool m_hasDefinitions = false;
    std::vector<TuningWriter::DefinitionStructure> m_structures;
    std::map<uint64_t, std::pair<std::string, uint32_t>> m_modules;
    std::vector<std::vector<ModeRecord>> m_modes;
    Section const* m_data = nullptr;
    std::vector<TableEntry> m_symbols;
    std::vector<TableEntry> m_dataEntries;
    std::vector<TableEntry> const* m_targets = &m_dataEntries;
};

} // namespace

bool ReadTuningDocument(std::vector<unsigned char> const& bytes, Json& document, std::string& error)
{
    if (bytes.size() > 0xFFFFFFFFull) {
        error = "is larger than 4294967295 bytes";
        return false;
    }
    DocumentReader reader(bytes, document);
    return reader.Read(error);
}

bool ReadTuningDefinitions(std::vector<unsigned char> const& bytes, Json& definitions,
                           std::string& error)
{
    if (bytes.size() > 0xFFFFFFFFull) {
        error = "is larger than 4294967295 bytes";
        return false;
    }
    Json document;
    DocumentReader reader(bytes, document);
    return reader.ReadDefinitionRecords(definitions, error);
}

} // namespace ParamCtl
