// SPDX-License-Identifier: Apache-2.0
// DefinitionTableBuilder: lays out the schema section record by record.
#include "tools/writer/definitiontablebuilder.h"

#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"

namespace TuningWriter {

namespace {

// Record kinds of the schema section.
constexpr uint8_t KindModule = 4;
constexpr uint8_t KindStructure = 5;
constexpr uint8_t KindEnum = 6;

// A u32 length, then the bytes padded to the alignment.
void PutCountedText(ByteSink& sink, std::string const& text)
{
    sink.PutU32(static_cast<uint32_t>(text.size()));
    sink.PutBytes(text.data(), text.size());
}

// A name is stored with its NUL and the NUL is counted in its length; storedLength, when given,
// replaces that length and the bytes written follow it (cut, or padded with NULs).
void PutCountedName(ByteSink& sink, std::string const& name,
                    std::optional<uint32_t> storedLength = std::nullopt)
{
    std::string bytes(name.c_str(), name.size() + 1);
    if (storedLength.has_value())
        bytes.resize(*storedLength, '\0');
    PutCountedText(sink, bytes);
}

// Raw fields of the opaque and enum records are stepped over byte-exactly by the reader.
void PutRawU32(ByteSink& sink, uint32_t value)
{
    uint8_t bytes[4];
    for (unsigned int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
    sink.PutUnaligned(bytes, sizeof(bytes));
}

void PutRawU64(ByteSink& sink, uint64_t value)
{
    PutRawU32(sink, static_cast<uint32_t>(value));
    PutRawU32(sink, static_cast<uint32_t>(value >> 32));
}

void PutRawZeros(ByteSink& sink, size_t count)
{
    static uint8_t const zeros[4] = {};
    sink.PutUnaligned(zeros, count);
}

uint64_t HashOf(std::optional<uint64_t> const& given, std::string const& name)
{
    return given.has_value() ? *given : ParserCRC64::HashName(name.c_str());
}

void PutRecord(ByteSink& sink, DefinitionModule const& module)
{
    sink.PutU8(KindModule);
    sink.PutU32(module.structureId);
    sink.PutU64(HashOf(module.nameHash, module.name));
    PutCountedName(sink, module.name);
    PutCountedText(sink, module.skipped);
}

void PutRecord(ByteSink& sink, DefinitionStructure const& structure)
{
    sink.PutU8(KindStructure);
    sink.PutU32(structure.id);
    PutCountedName(sink, structure.name);
    sink.PutU64(HashOf(structure.nameHash, structure.name));
    sink.PutU32(static_cast<uint32_t>(structure.elements.size()));
    for (DefinitionElement const& element : structure.elements) {
        sink.PutU8(static_cast<uint8_t>(element.type));
        sink.PutU32(element.id);
        PutCountedName(sink, element.name, element.nameLengthOverride);
        sink.PutU16(element.flags);
        sink.PutU32(element.minCount);
        sink.PutU32(element.maxCount);
        PutCountedText(sink, element.skipped);
    }
}

void PutRecord(ByteSink& sink, DefinitionOpaque const& opaque)
{
    sink.PutU8(opaque.kind);
    switch (opaque.kind) {
    case 1:
        PutRawZeros(sink, 3);
        PutCountedText(sink, opaque.text);
        PutRawZeros(sink, 1);
        break;
    case 2:
        PutRawZeros(sink, 2);
        PutCountedText(sink, opaque.text);
        PutCountedText(sink, opaque.secondText);
        break;
    default:
        // Kind 0, and any other kind a test asks for, takes the shape of kind 0.
        PutRawZeros(sink, 1);
        PutCountedText(sink, opaque.text);
        PutRawZeros(sink, 1);
        break;
    }
}

void PutRecord(ByteSink& sink, DefinitionEnum const& enumeration)
{
    sink.PutU8(KindEnum);
    PutRawU32(sink, enumeration.id);
    PutCountedName(sink, enumeration.name);
    PutRawU64(sink, HashOf(enumeration.nameHash, enumeration.name));
    sink.PutU32(static_cast<uint32_t>(enumeration.values.size()));
    for (DefinitionEnum::Value const& value : enumeration.values) {
        PutRawU32(sink, value.value);
        uint8_t const flag = value.flag ? 1 : 0;
        sink.PutUnaligned(&flag, 1);
        PutCountedName(sink, value.name);
        PutCountedText(sink, value.text);
    }
}

void PutRecord(ByteSink& sink, DefinitionRawKind const& raw)
{
    sink.PutU8(raw.kind);
}

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

} // namespace

bool IsText(ElementType type)
{
    return static_cast<uint8_t>(type) >= static_cast<uint8_t>(ElementType::String);
}

unsigned int NumberWidth(ElementType type)
{
    switch (type) {
    case ElementType::Int8:
    case ElementType::UInt8:
    case ElementType::ByteLike:
        return 1;
    case ElementType::Int16:
    case ElementType::UInt16:
    case ElementType::ShortLike:
        return 2;
    case ElementType::Int64:
    case ElementType::UInt64:
    case ElementType::Double:
    case ElementType::LongLike:
        return 8;
    default:
        return 4;
    }
}

ElementForm FormOf(DefinitionElement const& element)
{
    if (element.minCount >= 2 && element.maxCount == element.minCount)
        return ElementForm::Fixed;
    if ((element.minCount == 0 && element.maxCount != 0) ||
        (element.minCount >= 1 && element.maxCount >= 2))
        return ElementForm::Counted;
    return ElementForm::Single;
}

char const* ElementTypeName(ElementType type)
{
    for (TypeName const& candidate : TypeNames) {
        if (candidate.type == type)
            return candidate.name;
    }
    return nullptr;
}

bool ElementTypeOfName(std::string const& name, ElementType& type)
{
    for (TypeName const& candidate : TypeNames) {
        if (name == candidate.name) {
            type = candidate.type;
            return true;
        }
    }
    return false;
}

DefinitionTableBuilder& DefinitionTableBuilder::AddModule(DefinitionModule module)
{
    m_records.emplace_back(std::move(module));
    return *this;
}

DefinitionTableBuilder& DefinitionTableBuilder::AddStructure(DefinitionStructure structure)
{
    m_records.emplace_back(std::move(structure));
    return *this;
}

DefinitionTableBuilder& DefinitionTableBuilder::AddOpaque(DefinitionOpaque opaque)
{
    m_records.emplace_back(std::move(opaque));
    return *this;
}

DefinitionTableBuilder& DefinitionTableBuilder::AddEnum(DefinitionEnum enumeration)
{
    m_records.emplace_back(std::move(enumeration));
    return *this;
}

DefinitionTableBuilder& DefinitionTableBuilder::AddRawKind(DefinitionRawKind raw)
{
    m_records.emplace_back(raw);
    return *this;
}

std::vector<uint8_t> DefinitionTableBuilder::Build(unsigned char alignment) const
{
    ByteSink sink(alignment);
    for (Record const& record : m_records)
        std::visit([&sink](auto const& item) { PutRecord(sink, item); }, record);
    return sink.Take();
}

} // namespace TuningWriter
