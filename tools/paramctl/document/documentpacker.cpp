// SPDX-License-Identifier: Apache-2.0
// PackTuningDocument: the binary file a document describes, laid out by the file writer.
#include <cstdio>
#include <limits>
#include <map>
#include <optional>

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

constexpr uint32_t NoModule = 0xFFFFFFFF;
constexpr uint64_t MaxNameLength = 0xFFFF;

// One row of the symbol or data table as the document gives it, with the bytes it will hold.
struct Row
{
    Json const* json = nullptr; ///< null for an entry pack adds for a value given without one
    std::optional<std::vector<uint8_t>> bytes;
};

class DocumentPacker
{
public:
    DocumentPacker(Json const& document, std::string& error) : m_document(document), m_error(error)
    {
    }

    bool Pack(std::vector<uint8_t>& bytes)
    {
        if (!m_document.is_object() || m_document.value("format", "") != DocumentFormat)
            return Fail("document", std::string("is no ") + DocumentFormat + " document");
        if (!Header() || !Definitions() || !ModeTables() || !Tables())
            return false;
        return Write(bytes);
    }

private:
    bool Fail(std::string const& where, std::string const& message)
    {
        m_error = where + " " + message;
        return false;
    }

    Json const* Member(Json const& object, char const* key) const
    {
        if (!object.is_object())
            return nullptr;
        auto const found = object.find(key);
        return found != object.end() ? &*found : nullptr;
    }

    bool Text(Json const& object, char const* key, std::string const& where, std::string& text)
    {
        Json const* value = Member(object, key);
        if (value == nullptr) {
            text.clear();
            return true;
        }
        if (!value->is_string() || !FromPrintable(value->get_ref<std::string const&>(), text))
            return Fail(where + "." + key, "must be a text (bytes that are no text as \\xNN)");
        return true;
    }

    bool Number(Json const& object, char const* key, std::string const& where, uint64_t limit,
                uint64_t& number, bool required = true)
    {
        Json const* value = Member(object, key);
        if (value == nullptr && !required)
            return true;
        if (value == nullptr || !UnsignedOf(*value, number) || number > limit)
            return Fail(where + "." + key, "must be a number from 0 to " + std::to_string(limit));
        return true;
    }

    template <typename T>
    bool Field(Json const& object, char const* key, std::string const& where, T& field,
               bool required = true)
    {
        uint64_t number = field;
        if (!Number(object, key, where, std::numeric_limits<T>::max(), number, required))
            return false;
        field = static_cast<T>(number);
        return true;
    }

    static bool ParseVersion(std::string const& text, FileVersion& version)
    {
        unsigned long long major = 0;
        unsigned long long minor = 0;
        unsigned long long patch = 0;
        char tail = 0;
        if (std::sscanf(text.c_str(), "%llu.%llu.%llu%c", &major, &minor, &patch, &tail) != 3 ||
            major > 0xFFFF || minor > 0xFFFF || patch > 0xFFFFFFFFull)
            return false;
        version = {static_cast<uint16_t>(major), static_cast<uint16_t>(minor),
                   static_cast<uint32_t>(patch)};
        return true;
    }

    bool Header()
    {
        Json const* header = Member(m_document, "header");
        Json const* version = header != nullptr ? Member(*header, "version") : nullptr;
        if (version == nullptr || !version->is_string() ||
            !ParseVersion(version->get<std::string>(), m_version))
            return Fail("header.version", "must be a version text \"major.minor.patch\"");
        if (AtLeast(m_version, 7, 0, 1))
            return Fail("header.version", "is above 7.0.0, the latest whose layout is known");
        m_writer = TuningWriter::TuningFileWriter(m_version);
        std::string text;
        if (!Text(*header, "tag", "header", text))
            return false;
        m_writer.SetHeaderTag(text);
        if (!Text(*header, "createdBy", "header", text))
            return false;
        m_writer.SetCreatedBy(text);
        if (!Text(*header, "binaryTag", "header", text))
            return false;
        m_writer.SetBinaryTag(text);
        uint64_t flags = 0;
        if (!Number(*header, "flags", "header", ~0ull, flags, false))
            return false;
        m_writer.SetHeaderFlags(flags);
        return true;
    }

    // ---- Definition table -------------------------------------------------------------------

    bool Hash(Json const& record, std::string const& where, std::optional<uint64_t>& hash)
    {
        if (Member(record, "nameHash") == nullptr)
            return true;
        uint64_t value = 0;
        if (!Number(record, "nameHash", where, ~0ull, value))
            return false;
        hash = value;
        return true;
    }

    bool Element(Json const& member, std::string const& where,
                 TuningWriter::DefinitionElement& element)
    {
        if (!Text(member, "name", where, element.name) ||
            !Text(member, "skipped", where, element.skipped))
            return false;
        Json const* type = Member(member, "type");
        uint8_t code = 0;
        if (type != nullptr && type->is_string() && type->get<std::string>() == "Structure")
            element.type = TuningWriter::ElementType::Structure;
        else if (type != nullptr && type->is_string() &&
                 TuningWriter::ElementTypeOfName(type->get<std::string>(), element.type))
            ;
        else if (Field(member, "type", where, code))
            element.type = static_cast<TuningWriter::ElementType>(code);
        else
            return Fail(where + ".type", "must be a type name or code");
        // A stored name length other than the name's pads it with NULs: bounded, so a document
        // cannot make pack write gigabytes for one name.
        uint64_t nameLength = 0;
        if (Member(member, "nameLength") != nullptr) {
            if (!Number(member, "nameLength", where, MaxNameLength, nameLength))
                return false;
            element.nameLengthOverride = static_cast<uint32_t>(nameLength);
        }
        return Field(member, "structure", where, element.id, false) &&
               Field(member, "min", where, element.minCount) &&
               Field(member, "max", where, element.maxCount) &&
               Field(member, "flags", where, element.flags, false);
    }

    bool Definitions()
    {
        Json const* records = Member(m_document, "definitions");
        if (records == nullptr)
            return true;
        if (!records->is_array())
            return Fail("definitions", "must be an array of records");
        m_hasDefinitions = true;
        for (size_t i = 0; i < records->size(); ++i) {
            Json const& record = (*records)[i];
            std::string const where = "definitions[" + std::to_string(i) + "]";
            std::string const kind = record.is_object() ? record.value("record", "") : "";
            if (kind == "module") {
                TuningWriter::DefinitionModule module;
                if (!Field(record, "structure", where, module.structureId) ||
                    !Text(record, "name", where, module.name) ||
                    !Text(record, "skipped", where, module.skipped) ||
                    !Hash(record, where, module.nameHash))
                    return false;
                m_modules.emplace(
                    module.nameHash.value_or(ParserCRC64::HashName(module.name.c_str())),
                    module.structureId);
                m_definitions.AddModule(std::move(module));
            } else if (kind == "structure") {
                TuningWriter::DefinitionStructure structure;
                Json const* members = Member(record, "members");
                if (!Field(record, "id", where, structure.id) ||
                    !Text(record, "name", where, structure.name) ||
                    !Hash(record, where, structure.nameHash))
                    return false;
                if (members == nullptr || !members->is_array())
                    return Fail(where + ".members", "must be an array");
                for (size_t m = 0; m < members->size(); ++m) {
                    TuningWriter::DefinitionElement element;
                    if (!Element((*members)[m], where + ".members[" + std::to_string(m) + "]",
                                 element))
                        return false;
                    structure.elements.push_back(std::move(element));
                }
                m_structures.push_back(structure);
                m_definitions.AddStructure(std::move(structure));
            } else if (kind == "opaque") {
                TuningWriter::DefinitionOpaque opaque;
                if (!Field(record, "kind", where, opaque.kind) ||
                    !Text(record, "text", where, opaque.text) ||
                    !Text(record, "secondText", where, opaque.secondText))
                    return false;
                m_definitions.AddOpaque(std::move(opaque));
            } else if (kind == "enum") {
                TuningWriter::DefinitionEnum enumeration;
                Json const* values = Member(record, "values");
                if (!Field(record, "id", where, enumeration.id) ||
                    !Text(record, "name", where, enumeration.name) ||
                    !Hash(record, where, enumeration.nameHash))
                    return false;
                for (size_t v = 0; values != nullptr && v < values->size(); ++v) {
                    Json const& item = (*values)[v];
                    TuningWriter::DefinitionEnum::Value value;
                    std::string const at = where + ".values[" + std::to_string(v) + "]";
                    if (!Field(item, "value", at, value.value) ||
                        !Text(item, "name", at, value.name) || !Text(item, "text", at, value.text))
                        return false;
                    value.flag = item.value("flag", false);
                    enumeration.values.push_back(std::move(value));
                }
                m_definitions.AddEnum(std::move(enumeration));
            } else if (kind == "raw") {
                TuningWriter::DefinitionRawKind raw;
                if (!Field(record, "kind", where, raw.kind))
                    return false;
                m_definitions.AddRawKind(raw);
            } else {
                return Fail(where + ".record", "must be module, structure, opaque, enum or raw");
            }
        }
        return true;
    }

    // ---- Mode tables --------------------------------------------------------------------------

    bool ModeTables()
    {
        Json const* tables = Member(m_document, "modeTables");
        for (size_t t = 0; tables != nullptr && t < tables->size(); ++t) {
            Json const& table = (*tables)[t];
            std::string const where = "modeTables[" + std::to_string(t) + "]";
            std::string name;
            if (!Text(table, "name", where, name))
                return false;
            TuningWriter::ModeSectionBuilder builder(static_cast<uint8_t>(t), name);
            Json const* entries = Member(table, "entries");
            if (entries == nullptr || !entries->is_array())
                return Fail(where + ".entries", "must be an array");
            for (size_t e = 0; e < entries->size(); ++e) {
                Json const& entry = (*entries)[e];
                std::string const at = where + ".entries[" + std::to_string(e) + "]";
                TuningWriter::ModeEntryRecord record;
                if (!Field(entry, "modeId", at, record.modeId) ||
                    !Field(entry, "parentId", at, record.parentId) ||
                    !Field(entry, "mode", at, record.mode) ||
                    !Field(entry, "subMode", at, record.subMode) ||
                    !Field(entry, "pipeline", at, record.pipeline, false) ||
                    !Field(entry, "linkId", at, record.linkId, false) ||
                    !Field(entry, "flags", at, record.flags, false))
                    return false;
                builder.AddEntry(record);
            }
            m_modeTables.push_back(std::move(builder));
        }
        return true;
    }

    // ---- Symbol and data tables -----------------------------------------------------------

    bool Positional() const { return AtLeast(m_version, 6); }

    bool Rows(char const* key, std::vector<Row>& rows)
    {
        Json const* list = Member(m_document, key);
        if (list == nullptr)
            return true;
        if (!list->is_array())
            return Fail(key, "must be an array");
        for (size_t i = 0; i < list->size(); ++i) {
            Json const& row = (*list)[i];
            uint64_t id = 0;
            std::string const where = std::string(key) + "[" + std::to_string(i) + "]";
            if (!Number(row, "id", where, 0xFFFFFFFFu, id))
                return false;
            if (id != (Positional() ? i : i + 1))
                return Fail(where + ".id", "must be " + std::to_string(Positional() ? i : i + 1) +
                                               ": identifiers follow the table order");
            Row entry;
            entry.json = &row;
            if (Json const* hex = Member(row, "hex")) {
                std::vector<uint8_t> bytes;
                if (!hex->is_string() || !BytesOfHex(hex->get<std::string>(), bytes))
                    return Fail(where + ".hex", "must be hex digits, two a byte");
                entry.bytes = std::move(bytes);
            }
            rows.push_back(std::move(entry));
        }
        return true;
    }

    // The rows pointer fields name: the data table from 4.0.0, the symbol table before.
    std::vector<Row>& Targets() { return AtLeast(m_version, 4) ? m_data : m_symbols; }

    uint32_t Store(uint32_t id, std::vector<uint8_t> bytes, std::string& error)
    {
        std::vector<Row>& targets = Targets();
        size_t const index = Positional() ? id : id - 1;
        if (id == 0 || index >= targets.size()) {
            error = "points at entry " + std::to_string(id) + ", which the " +
                    (AtLeast(m_version, 4) ? "data table" : "symbol table") + " does not have";
            return 0;
        }
        Row& row = targets[index];
        // Two values that pointed at one entry and now differ: the later one gets an entry of
        // its own, so an edit of one instance never changes another.
        if (row.bytes.has_value() && *row.bytes != bytes)
            return Add(std::move(bytes));
        row.bytes = std::move(bytes);
        return id;
    }

    uint32_t Add(std::vector<uint8_t> bytes)
    {
        std::vector<Row>& targets = Targets();
        Row row;
        row.bytes = std::move(bytes);
        targets.push_back(std::move(row));
        return static_cast<uint32_t>(Positional() ? targets.size() - 1 : targets.size());
    }

    bool Tables()
    {
        if (!Rows("symbols", m_symbols) || !Rows("dataTable", m_data))
            return false;
        // Schemas: the file's own records, or the compiled ones the document names.
        CompiledSchemas compiled;
        std::vector<uint32_t> structureIds(m_symbols.size(), 0);
        for (size_t i = 0; i < m_symbols.size(); ++i) {
            Json const& row = *m_symbols[i].json;
            if (Member(row, "values") == nullptr)
                continue;
            std::string const where = "symbols[" + std::to_string(i) + "]";
            std::string name;
            uint64_t hash = 0;
            if (!Text(row, "name", where, name) ||
                !Number(row, "nameHash", where, ~0ull, hash, false))
                return false;
            if (Member(row, "nameHash") == nullptr)
                hash = ParserCRC64::HashName(name.c_str());
            if (m_hasDefinitions) {
                auto const found = m_modules.find(hash);
                if (found == m_modules.end())
                    return Fail(where, "has values but no module record of its name hash");
                structureIds[i] = found->second;
            } else {
                std::string manager;
                structureIds[i] = compiled.Find(name, Positional() ? hash : 0, manager);
                if (structureIds[i] == 0)
                    return Fail(where,
                                "has values but no shipped set manager knows " + Printable(name));
            }
        }
        StructureSet const structures(m_hasDefinitions ? m_structures : compiled.Structures());
        ValueCodec const codec(m_version, structures);
        BlockStore const blocks{
            [this](uint32_t id, std::vector<uint8_t> bytes, std::string& error) {
                return Store(id, std::move(bytes), error);
            },
            [this](std::vector<uint8_t> bytes) { return Add(std::move(bytes)); }};
        // Below 4.0.0 a new data entry is a row added to the symbol table: only the rows the
        // document gave are encoded.
        for (size_t i = 0; i < structureIds.size(); ++i) {
            if (structureIds[i] == 0)
                continue;
            std::vector<uint8_t> bytes;
            std::string error;
            Json const& row = *m_symbols[i].json;
            if (!codec.Encode(structureIds[i], row.at("values"), blocks, bytes, error)) {
                m_error = "symbols[" + std::to_string(i) + "]." + error;
                return false;
            }
            // The rows vector may have grown under an Add: index, never hold references.
            if (m_symbols[i].bytes.has_value() && *m_symbols[i].bytes != bytes)
                return Fail("symbols[" + std::to_string(i) + "]",
                            "is given values and other data by a pointer");
            m_symbols[i].bytes = std::move(bytes);
        }
        return true;
    }

    // The entry whose block this row shared in the file, if the row's data still equal it.
    uint32_t SharedWith(std::vector<Row> const& rows, size_t index)
    {
        Row const& row = rows[index];
        uint64_t shared = 0;
        if (row.json == nullptr || !UnsignedOf(row.json->value("sharesDataWith", Json()), shared))
            return 0;
        size_t const at = Positional() ? shared : shared - 1;
        if (shared == 0 || at >= index || rows[at].bytes != row.bytes)
            return 0;
        return static_cast<uint32_t>(shared);
    }

    bool Write(std::vector<uint8_t>& bytes)
    {
        TuningWriter::SymbolTableBuilder tables(m_version);
        // From 6.0.0 the builder writes the reserved entry at position 0 itself.
        size_t const first = Positional() ? 1 : 0;
        for (size_t i = first; i < m_symbols.size(); ++i) {
            TuningWriter::ModuleEntry entry;
            std::string const where = "symbols[" + std::to_string(i) + "]";
            if (Json const* json = m_symbols[i].json) {
                std::string version = json->value("version", "0.0.0");
                if (!ParseVersion(version, entry.moduleVersion))
                    return Fail(where + ".version", "must be a version text");
                uint64_t hash = 0;
                if (!Text(*json, "name", where, entry.name) ||
                    !Field(*json, "modeId", where, entry.modeId) ||
                    !Number(*json, "nameHash", where, ~0ull, hash, false))
                    return false;
                if (Member(*json, "nameHash") != nullptr)
                    entry.nameHash = hash;
            } else {
                entry.modeId = NoModule;
            }
            entry.data = m_symbols[i].bytes.value_or(std::vector<uint8_t>());
            entry.duplicateOf = SharedWith(m_symbols, i);
            tables.AddModule(std::move(entry));
        }
        if (AtLeast(m_version, 4)) {
            for (size_t i = first; i < m_data.size(); ++i)
                tables.AddData(m_data[i].bytes.value_or(std::vector<uint8_t>()),
                               SharedWith(m_data, i));
        }
        TuningWriter::SymbolTableBuilder::Sections sections = tables.Build();

        Json const* list = Member(m_document, "sections");
        if (list == nullptr || !list->is_array())
            return Fail("sections", "must be an array");
        size_t modeTable = 0;
        for (size_t i = 0; i < list->size(); ++i) {
            Json const& section = (*list)[i];
            std::string const where = "sections[" + std::to_string(i) + "]";
            Json const* type = Member(section, "type");
            std::string const name =
                type != nullptr && type->is_string() ? type->get<std::string>() : "";
            using TuningWriter::SectionType;
            if (name == "symbol") {
                m_writer.AddSection(SectionType::Symbol, sections.symbol);
            } else if (name == "data") {
                m_writer.AddSection(SectionType::Data, sections.data);
            } else if (name == "dataTable") {
                m_writer.AddSection(SectionType::DataTable, sections.dataTable);
            } else if (name == "definition") {
                m_writer.AddSection(SectionType::Definition,
                                    m_definitions.Build(TuningWriter::AlignmentFor(m_version)));
            } else if (name == "mode") {
                if (modeTable >= m_modeTables.size())
                    return Fail(where, "is a mode section beyond the mode tables given");
                m_writer.AddSection(SectionType::Mode, m_modeTables[modeTable++].Build(m_version));
            } else {
                // A section type the loader does not know keeps its record as it was.
                uint32_t code = 0;
                uint32_t offset = 0;
                uint32_t size = 0;
                if (!Field(section, "type", where, code) ||
                    !Field(section, "offset", where, offset) ||
                    !Field(section, "size", where, size))
                    return false;
                m_writer.AddRawSectionRecord(code, offset, size);
            }
        }
        // Mode tables the document adds without a section record get one of their own.
        for (; modeTable < m_modeTables.size(); ++modeTable)
            m_writer.AddSection(TuningWriter::SectionType::Mode,
                                m_modeTables[modeTable].Build(m_version));

        bytes = m_writer.Build();
        uint64_t padding = 0;
        if (!Number(m_document, "padding", "document", 0xFFFFFFFFu, padding, false))
            return false;
        if (padding != 0) {
            m_writer.SetMinimumFileSize(bytes.size() + padding);
            bytes = m_writer.Build();
        }
        if (bytes.size() > 0xFFFFFFFFull)
            return Fail("document", "describes a file larger than 4294967295 bytes");
        return true;
    }

    Json const& m_document;
    std::string& m_error;
    FileVersion m_version;
    TuningWriter::TuningFileWriter m_writer;
    bool m_hasDefinitions = false;
    TuningWriter::DefinitionTableBuilder m_definitions;
    std::vector<TuningWriter::DefinitionStructure> m_structures;
    std::map<uint64_t, uint32_t> m_modules;
    std::vector<TuningWriter::ModeSectionBuilder> m_modeTables;
    std::vector<Row> m_symbols;
    std::vector<Row> m_data;
};

} // namespace

bool PackTuningDocument(Json const& document, std::vector<uint8_t>& bytes, std::string& error)
{
    DocumentPacker packer(document, error);
    return packer.Pack(bytes);
}

} // namespace ParamCtl
