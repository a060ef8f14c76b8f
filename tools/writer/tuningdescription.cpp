// SPDX-License-Identifier: Apache-2.0
// TuningDescription: parser of the text form of a tuning file.
#include "tools/writer/tuningdescription.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "tools/writer/numbertext.h"
#include "tools/writer/symboltablebuilder.h"

namespace TuningWriter {

namespace {

constexpr uint32_t CountedArrayMaximum = 65535;

// The latest file version the loader reads: a description of a later one would make a file
// nothing can load.
constexpr FileVersion LatestLoadableVersion = {7, 0, 0};

// Text fields of the header and the mode sections, in bytes; a longer text would be cut.
constexpr size_t BinaryTagWidth = 64;
constexpr size_t CreatedByWidth = 48;

// The mode table name field: 128 bytes from 7.0.0, 32 from 4.0.0, absent before.
size_t ModeTableNameWidth(FileVersion version)
{
    if (AtLeast(version, 7))
        return 128;
    return AtLeast(version, 4) ? 32 : 0;
}

bool TooLong(std::string const& text, size_t width, std::string const& what, std::string& reason)
{
    if (text.size() <= width)
        return false;
    reason = what + " of " + std::to_string(text.size()) + " characters does not fit its " +
             std::to_string(width) + "-byte field";
    return true;
}

std::vector<std::string> Words(std::string const& line)
{
    std::vector<std::string> words;
    std::istringstream stream(line.substr(0, line.find('#')));
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

bool ParseUnsigned(std::string const& text, unsigned long long maximum, unsigned long long& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    value = std::strtoull(text.c_str(), &end, 0);
    return *end == '\0' && value <= maximum;
}

DefinitionStructure const* FindStructure(std::vector<DefinitionStructure> const& structures,
                                         uint32_t id)
{
    for (DefinitionStructure const& structure : structures) {
        if (structure.id == id)
            return &structure;
    }
    return nullptr;
}

NumberKind KindOf(ElementType type)
{
    switch (type) {
    case ElementType::Int8:
        return NumberKind::Int8;
    case ElementType::UInt8:
    case ElementType::ByteLike:
        return NumberKind::UInt8;
    case ElementType::Int16:
        return NumberKind::Int16;
    case ElementType::UInt16:
    case ElementType::ShortLike:
        return NumberKind::UInt16;
    case ElementType::Int32:
    case ElementType::IntLike:
        return NumberKind::Int32;
    case ElementType::Int64:
        return NumberKind::Int64;
    case ElementType::UInt64:
    case ElementType::LongLike:
        return NumberKind::UInt64;
    case ElementType::Float:
        return NumberKind::Float;
    case ElementType::Double:
        return NumberKind::Double;
    default:
        return NumberKind::UInt32;
    }
}

/// One element's value from its text: numbers in the form and range the element's type asks
/// for, by the same rule paramctl set applies.
bool ElementValue(ElementType type, std::string const& text, EntryValue& value, std::string& reason)
{
    if (type == ElementType::String) {
        value = EntryValue::Text(text);
        return true;
    }
    NumberKind const kind = KindOf(type);
    NumberValue number;
    if (!ParseNumber(kind, text, number, reason))
        return false;
    if (kind == NumberKind::Float || kind == NumberKind::Double)
        value = EntryValue::Real(number.real);
    else if (kind == NumberKind::Int8 || kind == NumberKind::Int16 || kind == NumberKind::Int32 ||
             kind == NumberKind::Int64)
        value = EntryValue::Int(number.integer);
    else
        value = EntryValue::UInt(number.unsignedInteger);
    return true;
}

/// The value a whole member takes from text: an array (or an optional member) as a list of its
/// ","-separated elements, a single element as itself.
bool MemberValue(DefinitionElement const& element, std::string const& text, EntryValue& value,
                 std::string& reason)
{
    bool const list = element.maxCount != 1 || element.minCount != 1;
    if (!list)
        return ElementValue(element.type, text, value, reason);
    std::vector<EntryValue> items;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(',', start);
        if (end == std::string::npos)
            end = text.size();
        EntryValue item;
        if (!ElementValue(element.type, text.substr(start, end - start), item, reason))
            return false;
        items.push_back(std::move(item));
        start = end + 1;
    }
    if (items.size() > element.maxCount) {
        reason = std::to_string(items.size()) + " elements where at most " +
                 std::to_string(element.maxCount) + " fit";
        return false;
    }
    value = EntryValue::List(std::move(items));
    return true;
}

bool ParseVersion(std::string const& text, FileVersion& version)
{
    unsigned long long parts[3];
    std::istringstream stream(text);
    std::string piece;
    for (auto& part : parts) {
        if (!std::getline(stream, piece, '.') || !ParseUnsigned(piece, 0xFFFFFFFF, part))
            return false;
    }
    if (std::getline(stream, piece) || parts[0] > 0xFFFF || parts[1] > 0xFFFF)
        return false;
    version = {static_cast<uint16_t>(parts[0]), static_cast<uint16_t>(parts[1]),
               static_cast<uint32_t>(parts[2])};
    return true;
}

} // namespace

TuningDescription::TuningDescription(std::vector<InstanceCatalogue const*> catalogues)
    : m_catalogues(std::move(catalogues))
{
}

bool TuningDescription::Fail(unsigned int line, std::string const& message)
{
    m_error = "line " + std::to_string(line) + ": " + message;
    return false;
}

bool TuningDescription::ParseMember(unsigned int line, std::string const& name,
                                    std::string const& type, std::string const& option)
{
    DefinitionElement element;
    element.name = name;

    std::string base = type;
    if (base.size() > 1 && base.back() == '?') {
        base.pop_back();
        element.minCount = 0;
        element.maxCount = 1;
    } else if (base.size() > 2 && base.compare(base.size() - 2, 2, "[]") == 0) {
        base.resize(base.size() - 2);
        element.minCount = 0;
        element.maxCount = CountedArrayMaximum;
    } else if (size_t open = base.find('['); open != std::string::npos && base.back() == ']') {
        unsigned long long count = 0;
        if (!ParseUnsigned(base.substr(open + 1, base.size() - open - 2), 0xFFFFFFFF, count) ||
            count == 0)
            return Fail(line, "bad array length in '" + type + "'");
        base.resize(open);
        element.minCount = element.maxCount = static_cast<uint32_t>(count);
    }

    if (base.compare(0, 7, "struct:") == 0) {
        unsigned long long id = 0;
        if (!ParseUnsigned(base.substr(7), 0xFFFFFFFF, id))
            return Fail(line, "bad structure ID in '" + type + "'");
        element.type = ElementType::Structure;
        element.id = static_cast<uint32_t>(id);
    } else {
        if (!ElementTypeOfName(base, element.type))
            return Fail(line, "unknown member type '" + base + "'");
    }

    if (option == "four-byte")
        element.flags |= ElementFourByte;
    else if (!option.empty())
        return Fail(line, "unknown member option '" + option + "'");

    m_structure.elements.push_back(std::move(element));
    return true;
}

bool TuningDescription::ParsePath(unsigned int line, std::vector<std::string> const& words)
{
    if (m_modeTables.empty())
        return Fail(line, "path outside a mode table");
    bool const resident = words.size() == 3 && words[2] == "resident";
    if (words.size() < 2 || words.size() > 3 || (words.size() == 3 && !resident))
        return Fail(line, "expected: path STEP|STEP... [resident]");
    ModeSectionBuilder& table = m_modeTables.back();
    uint32_t const id = table.AddPath(words[1]);
    if (id == InvalidModeId)
        return Fail(line, "bad mode path '" + words[1] + "'");
    if (resident) {
        for (ModeEntryRecord& entry : table.Entries()) {
            if (entry.modeId == id)
                entry.flags |= ModeFlagResident;
        }
    }
    return true;
}

bool TuningDescription::ParseInstance(unsigned int line, std::vector<std::string> const& words)
{
    if (words.size() != 5 || words[3] != "mode")
        return Fail(line, "expected: instance NAME TYPE mode STEP|STEP...");
    if (m_handWrittenSchema)
        return Fail(line, "instances take their structures from their schema: a description "
                          "with instances has no structure or module lines");
    if (m_modeTables.empty())
        return Fail(line, "instance before any modetable");
    InstanceSchema const* schema = nullptr;
    for (InstanceCatalogue const* catalogue : m_catalogues) {
        if (schema == nullptr && catalogue != nullptr)
            schema = catalogue->Find(words[1]);
    }
    if (schema == nullptr)
        return Fail(line, "no set manager lists a module instance '" + words[1] + "'");
    // The type may be given with or without its namespace.
    std::string const topType = schema->topType;
    std::string const unqualified = topType.substr(topType.rfind(':') + 1);
    if (words[2] != topType && words[2] != unqualified)
        return Fail(line,
                    "instance '" + words[1] + "' is of type " + topType + ", not " + words[2]);
    uint32_t const modeId = m_modeTables.back().AddPath(words[4]);
    if (modeId == InvalidModeId)
        return Fail(line, "bad mode path '" + words[4] + "'");
    // A second record of one instance in one mode would leave the loader two modules for one.
    for (Instance const& other : m_instances) {
        if (other.schema->instanceName == schema->instanceName && other.modeId == modeId)
            return Fail(line, "instance '" + words[1] + "' is given twice in mode " + words[4]);
    }
    schema->Describe(m_schema);
    m_instances.push_back({schema, modeId, EntryValue::Struct({})});
    return true;
}

bool TuningDescription::ParseValue(unsigned int line, std::string const& path,
                                   std::string const& text)
{
    if (m_instances.empty())
        return Fail(line, "value outside an instance");
    Instance& instance = m_instances.back();
    DefinitionStructure const* structure =
        FindStructure(m_schema.Structures(), m_schema.Id(instance.schema->topType));
    EntryValue* target = &instance.value;
    size_t start = 0;
    while (structure != nullptr) {
        size_t const dot = path.find('.', start);
        std::string const name = path.substr(start, dot == std::string::npos ? dot : dot - start);
        DefinitionElement const* element = nullptr;
        for (DefinitionElement const& candidate : structure->elements) {
            if (candidate.name == name)
                element = &candidate;
        }
        if (element == nullptr)
            return Fail(line, "no member '" + name + "' in " + structure->name);
        if (dot == std::string::npos) {
            if (element->type == ElementType::Structure)
                return Fail(line, "'" + path + "' is a structure: give its members");
            EntryValue value;
            std::string reason;
            if (!MemberValue(*element, text, value, reason))
                return Fail(line, "value of '" + path + "': " + reason);
            target->Set(name, std::move(value));
            return true;
        }
        if (element->type != ElementType::Structure || element->minCount != 1 ||
            element->maxCount != 1)
            return Fail(line, "'" + name + "' is not a single structure");
        if (target->Find(name) == nullptr)
            target->Set(name, EntryValue::Struct({}));
        // Find gives a read-only view; the field it found lives in target's items.
        for (size_t i = 0; i < target->fieldNames.size(); ++i) {
            if (target->fieldNames[i] == name)
                target = &target->items[i];
        }
        structure = FindStructure(m_schema.Structures(), element->id);
        start = dot + 1;
    }
    return Fail(line, "the schema of '" + path + "' is incomplete");
}

bool TuningDescription::Parse(std::string const& text)
{
    std::istringstream lines(text);
    unsigned int number = 0;
    std::vector<std::pair<unsigned int, std::string>> tableNames;
    auto closeStructure = [this] {
        if (m_inStructure)
            m_definitions.AddStructure(std::move(m_structure));
        m_structure = {};
        m_inStructure = false;
    };

    for (std::string line; std::getline(lines, line);) {
        ++number;
        std::vector<std::string> const words = Words(line);
        if (words.empty())
            continue;
        std::string const& keyword = words[0];
        if (keyword == "member") {
            if (!m_inStructure)
                return Fail(number, "member outside a structure");
            if (words.size() < 3 || words.size() > 4)
                return Fail(number, "expected: member NAME TYPE [four-byte]");
            if (!ParseMember(number, words[1], words[2], words.size() == 4 ? words[3] : ""))
                return false;
            continue;
        }
        closeStructure();
        if (keyword == "path") {
            if (!ParsePath(number, words))
                return false;
            continue;
        }
        if (keyword == "instance") {
            if (!ParseInstance(number, words))
                return false;
            continue;
        }
        if (keyword == "value") {
            if (words.size() < 3)
                return Fail(number, "expected: value MEMBER[.MEMBER...] VALUE");
            // A text value keeps its inner spaces: everything behind the member path.
            std::string rest = line.substr(0, line.find('#'));
            rest = rest.substr(rest.find(words[1]) + words[1].size());
            rest.erase(0, rest.find_first_not_of(" \t"));
            rest.erase(rest.find_last_not_of(" \t\r") + 1);
            if (!ParseValue(number, words[1], rest))
                return false;
            continue;
        }
        unsigned long long value = 0;
        std::string reason;
        if (keyword == "version" && words.size() == 2) {
            if (!ParseVersion(words[1], m_version))
                return Fail(number, "bad version '" + words[1] + "'");
            if (!AtLeast(LatestLoadableVersion, m_version.major, m_version.minor, m_version.patch))
                return Fail(number,
                            "version " + words[1] + " is above 7.0.0, the latest the loader reads");
        } else if (keyword == "binary-tag" && words.size() == 2) {
            if (TooLong(words[1], BinaryTagWidth, "a binary tag", reason))
                return Fail(number, reason);
            m_binaryTag = words[1];
        } else if (keyword == "created-by" && words.size() >= 2) {
            m_createdBy = line.substr(line.find(words[1]));
            m_createdBy = m_createdBy.substr(0, m_createdBy.find('#'));
            m_createdBy.erase(m_createdBy.find_last_not_of(" \t\r") + 1);
            if (TooLong(m_createdBy, CreatedByWidth, "a creator name", reason))
                return Fail(number, reason);
        } else if (keyword == "flags" && words.size() == 2) {
            if (!ParseUnsigned(words[1], ~0ull, value))
                return Fail(number, "bad flags '" + words[1] + "'");
            m_flags = value;
        } else if ((keyword == "structure" || keyword == "module") && !m_instances.empty()) {
            return Fail(number, "instances take their structures from their schema: a "
                                "description with instances has no structure or module lines");
        } else if (keyword == "structure" && words.size() == 3) {
            m_handWrittenSchema = true;
            if (!ParseUnsigned(words[1], 0xFFFFFFFF, value))
                return Fail(number, "bad structure ID '" + words[1] + "'");
            m_inStructure = true;
            m_structure.id = static_cast<uint32_t>(value);
            m_structure.name = words[2];
        } else if (keyword == "modetable" && words.size() <= 2) {
            if (m_modeTables.size() > 0xFF)
                return Fail(number, "too many mode tables");
            m_modeTables.emplace_back(static_cast<uint8_t>(m_modeTables.size()),
                                      words.size() == 2 ? words[1] : "");
            tableNames.emplace_back(number, words.size() == 2 ? words[1] : "");
        } else if (keyword == "module" && words.size() == 3) {
            m_handWrittenSchema = true;
            if (!ParseUnsigned(words[2], 0xFFFFFFFF, value))
                return Fail(number, "bad structure ID '" + words[2] + "'");
            DefinitionModule module;
            module.name = words[1];
            module.structureId = static_cast<uint32_t>(value);
            m_definitions.AddModule(std::move(module));
        } else {
            return Fail(number, "cannot read '" + keyword + "' with " +
                                    std::to_string(words.size() - 1) + " argument(s)");
        }
    }
    closeStructure();
    // The name field's width depends on the version, which may be given after the table.
    for (auto const& [line, name] : tableNames) {
        std::string reason;
        size_t const width = ModeTableNameWidth(m_version);
        if (width != 0 && TooLong(name, width, "a mode table name", reason))
            return Fail(line, reason);
    }
    return true;
}

bool TuningDescription::ParseFile(std::string const& path)
{
    std::ifstream file(path);
    if (!file) {
        m_error = "cannot open " + path;
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return Parse(text.str());
}

TuningFileWriter TuningDescription::MakeWriter() const
{
    TuningFileWriter writer(m_version);
    writer.SetBinaryTag(m_binaryTag).SetCreatedBy(m_createdBy).SetHeaderFlags(m_flags);
    writer.SetMinimumFileSize(FileModeWindow);
    DefinitionTableBuilder definitions = m_definitions;
    if (m_instances.empty()) {
        writer.AddMinimalSections();
    } else {
        SymbolTableBuilder symbols(m_version);
        EntryEncoder encoder(m_version, m_schema.Structures(), symbols);
        std::vector<std::string> named;
        for (Instance const& instance : m_instances) {
            ModuleEntry entry;
            entry.name = instance.schema->instanceName;
            entry.moduleVersion = instance.schema->version;
            entry.modeId = instance.modeId;
            entry.data = encoder.Encode(m_schema.Id(instance.schema->topType), &instance.value);
            symbols.AddModule(std::move(entry));
            if (std::find(named.begin(), named.end(), instance.schema->instanceName) ==
                named.end()) {
                named.push_back(instance.schema->instanceName);
                definitions.AddModule(
                    m_schema.Module(instance.schema->instanceName, instance.schema->topType));
            }
        }
        m_schema.AddTo(definitions);
        symbols.AddTo(writer);
    }
    for (ModeSectionBuilder const& table : m_modeTables)
        table.AddTo(writer);
    if (!definitions.Empty())
        writer.AddSection(SectionType::Definition, definitions.Build(writer.Alignment()));
    return writer;
}

} // namespace TuningWriter
