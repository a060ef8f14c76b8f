// SPDX-License-Identifier: Apache-2.0
// TuningDescription: parser of the text form of a tuning file.
#include "tools/writer/tuningdescription.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

namespace TuningWriter {

namespace {

constexpr uint32_t CountedArrayMaximum = 65535;

struct TypeName
{
    char const* name;
    ElementType type;
};

constexpr TypeName TypeNames[] = {
    {"Int8", ElementType::Int8},         {"UInt8", ElementType::UInt8},
    {"Int16", ElementType::Int16},       {"UInt16", ElementType::UInt16},
    {"Int32", ElementType::Int32},       {"UInt32", ElementType::UInt32},
    {"Int64", ElementType::Int64},       {"UInt64", ElementType::UInt64},
    {"Float", ElementType::Float},       {"Double", ElementType::Double},
    {"ByteLike", ElementType::ByteLike}, {"ShortLike", ElementType::ShortLike},
    {"UIntLike", ElementType::UIntLike}, {"LongLike", ElementType::LongLike},
    {"IntLike", ElementType::IntLike},   {"UIntLike2", ElementType::UIntLike2},
    {"String", ElementType::String},
};

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
        bool known = false;
        for (TypeName const& candidate : TypeNames) {
            if (base == candidate.name) {
                element.type = candidate.type;
                known = true;
            }
        }
        if (!known)
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

bool TuningDescription::Parse(std::string const& text)
{
    std::istringstream lines(text);
    unsigned int number = 0;
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
        unsigned long long value = 0;
        if (keyword == "version" && words.size() == 2) {
            if (!ParseVersion(words[1], m_version))
                return Fail(number, "bad version '" + words[1] + "'");
        } else if (keyword == "binary-tag" && words.size() == 2) {
            m_binaryTag = words[1];
        } else if (keyword == "created-by" && words.size() >= 2) {
            m_createdBy = line.substr(line.find(words[1]));
            m_createdBy = m_createdBy.substr(0, m_createdBy.find('#'));
            m_createdBy.erase(m_createdBy.find_last_not_of(" \t\r") + 1);
        } else if (keyword == "flags" && words.size() == 2) {
            if (!ParseUnsigned(words[1], ~0ull, value))
                return Fail(number, "bad flags '" + words[1] + "'");
            m_flags = value;
        } else if (keyword == "structure" && words.size() == 3) {
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
        } else if (keyword == "module" && words.size() == 3) {
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
    writer.AddMinimalSections();
    for (ModeSectionBuilder const& table : m_modeTables)
        table.AddTo(writer);
    if (!m_definitions.Empty())
        writer.AddSection(SectionType::Definition, m_definitions.Build(writer.Alignment()));
    return writer;
}

} // namespace TuningWriter
